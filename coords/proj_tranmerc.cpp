/*
 * proj_tranmerc.cpp: transverse Mercator, and the two members built on it:
 * `stm`, whose grid runs south and west (the South African convention), and
 * `utm`, whose parameters follow from a zone and a hemisphere.
 *
 * On the ellipsoid the series of Snyder's equations 8-9 and 8-10 forward and
 * 8-17 and 8-18 backward, with the meridian distance of 3-21 and the footpoint
 * latitude of 3-26: accurate to a centimetre within a few degrees of the
 * central meridian, as a national grid needs. On the sphere the closed forms.
 */
#include <cmath>
#include <cstdio>
#include <cstring>

#include "gdt_proj_internal.h"

namespace {

constexpr double kPi = 3.14159265358979323846;

struct Tm {
    double false_east, false_north, scale_factor, centre_merid, centre_lat;
    double radius, eccentricity, long_cut;
    int32_t zone;
    char hemisphere;
    int32_t grid_ws;
    /* derived */
    double e2, ep2, m_first, m0;
    gdt_series4 meridian, footpoint;
    int solver; /* 1 sphere, 10 ellipsoid */
    int sign;   /* 1: grid runs south and west */
};

Tm proto;

int init_common(Tm *p)
{
    p->long_cut = p->centre_merid - kPi;
    double e = p->eccentricity;
    p->e2 = e * e;
    p->ep2 = p->e2 / (1 - p->e2);
    gdt_snyder_init_3_21(p->e2, p->radius, &p->m_first, &p->meridian);
    gdt_proj_factors_35(&p->meridian);
    p->m0 = gdt_snyder_eqn_3_21(p->centre_lat, p->m_first, &p->meridian);
    gdt_snyder_init_3_26(gdt_snyder_eqn_3_24(p->e2), &p->footpoint);
    gdt_proj_factors_35(&p->footpoint);
    p->solver = std::fabs(e) < kGdtSphereEcc ? 1 : 10;
    return p->radius > 0 && p->scale_factor != 0 ? 0 : -1;
}

int tm_init(void *block)
{
    auto *p = static_cast<Tm *>(block);
    p->zone = -999;
    p->hemisphere = ' ';
    p->sign = 0;
    return init_common(p);
}

int stm_init(void *block)
{
    int status = tm_init(block);
    static_cast<Tm *>(block)->sign = 1;
    return status;
}

int utm_init(void *block)
{
    auto *p = static_cast<Tm *>(block);
    if (p->zone < 1 || p->zone > 60) return -1;
    bool south = p->hemisphere == 'S' || p->hemisphere == 's';
    if (!south && p->hemisphere != 'N' && p->hemisphere != 'n') return -1;
    p->false_east = 500000.0;
    p->false_north = south ? 10000000.0 : 0.0;
    p->scale_factor = 0.9996;
    p->centre_lat = 0.0;
    p->centre_merid = p->zone * 0.10471975511965977 - 3.193952531149623;
    p->sign = 0;
    return init_common(p);
}

int tm_forward(void *block, double lon, double lat, double *x, double *y)
{
    const Tm *p = static_cast<const Tm *>(block);
    double d = gdt_normal_pi(lon - p->centre_merid);
    double ex, ny;
    if (p->solver == 10) {
        double m = gdt_snyder_eqn_3_21(lat, p->m_first, &p->meridian);
        if (std::fabs(kPi / 2 - std::fabs(lat)) <= 1e-10) {
            ex = 0.0;
            ny = m - p->m0;
        } else {
            double s = std::sin(lat), c = std::cos(lat), t = std::tan(lat);
            double n = p->radius / std::sqrt(1 - p->e2 * s * s);
            double tt = t * t, cc = p->ep2 * c * c, a = d * c, a2 = a * a;
            ex = n * a *
                 (1 + (1 - tt + cc) / 6 * a2 +
                  (5 - 18 * tt + tt * tt + 72 * cc - 58 * p->ep2) / 120 * a2 * a2);
            ny = m - p->m0 +
                 n * t *
                     (a2 / 2 + (5 - tt + 9 * cc + 4 * cc * cc) / 24 * a2 * a2 +
                      (61 - 58 * tt + tt * tt + 600 * cc - 330 * p->ep2) / 720 * a2 * a2 * a2);
        }
    } else if (std::fabs(kPi / 2 - std::fabs(lat)) <= 1e-10) {
        ex = 0.0;
        ny = (lat - p->centre_lat) * p->radius;
    } else {
        double b = std::cos(lat) * std::sin(d);
        if (std::fabs(std::fabs(b) - 1) < 1e-7) return GDT_PROJ_INFINITE;
        ex = gdt_atanh(b) * p->radius;
        ny = (std::atan2(std::tan(lat), std::cos(d)) - p->centre_lat) * p->radius;
    }
    ex = ex * p->scale_factor + p->false_east;
    ny = ny * p->scale_factor + p->false_north;
    *x = p->sign ? -ex : ex;
    *y = p->sign ? -ny : ny;
    return GDT_PROJ_OK;
}

int tm_backward(void *block, double x, double y, double *lon, double *lat)
{
    const Tm *p = static_cast<const Tm *>(block);
    if (p->sign) {
        x = -x;
        y = -y;
    }
    x = (x - p->false_east) / p->scale_factor;
    y = (y - p->false_north) / p->scale_factor;
    if (p->solver == 10) {
        double mu = (y + p->m0) / p->m_first;
        double phi1 = gdt_snyder_eqn_3_35(mu, &p->footpoint) + mu;
        if (std::fabs(kPi / 2 - std::fabs(phi1)) <= 1e-10) {
            *lat = y < 0 ? -kPi / 2 : kPi / 2;
            *lon = p->centre_merid;
            return GDT_PROJ_OK;
        }
        double s = std::sin(phi1), c = std::cos(phi1), t = std::tan(phi1);
        double w = 1 - p->e2 * s * s;
        double t1 = t * t, c1 = p->ep2 * c * c;
        double n1 = p->radius / std::sqrt(w);
        double r1 = p->radius * (1 - p->e2) / (w * std::sqrt(w));
        double d = x / n1, d2 = d * d;
        *lat =
            phi1 - (n1 * t / r1) *
                       (d2 / 2 - (5 + 3 * t1 + 10 * c1 - 4 * c1 * c1 - 9 * p->ep2) * d2 * d2 / 24 +
                        (61 + 90 * t1 + 298 * c1 + 45 * t1 * t1 - 252 * p->ep2 - 3 * c1 * c1) * d2 *
                            d2 * d2 / 720);
        *lon = p->centre_merid + (d - (1 + 2 * t1 + c1) * d2 * d / 6 +
                                  (5 - 2 * c1 + 28 * t1 - 3 * c1 * c1 + 8 * p->ep2 + 24 * t1 * t1) *
                                      d2 * d2 * d / 120) /
                                     c;
    } else {
        double d = x / p->radius;
        double phi0 = y / p->radius + p->centre_lat;
        *lat = gdt_asin(std::sin(phi0) / std::cosh(d));
        *lon = p->centre_merid + std::atan2(std::sinh(d), std::cos(phi0));
    }
    *lon = gdt_normal_pi(*lon);
    return GDT_PROJ_OK;
}

/* Registers a member over the Tm block; `visible` says whether the usual
 * parameters are read from the member's table (utm computes them). */
int install(const char *name, gdt_proj_init_fn init, bool visible)
{
    const char *hide = visible ? "" : ".";
    auto par = [&](const char *n, void *address, const char *type, const char *prefix) {
        char full[48];
        std::snprintf(full, sizeof full, "%s%s", prefix, n);
        return gdt_proj_ins_par(full, address, type);
    };
    int bad = gdt_proj_create(name, &proto, sizeof proto);
    if (!visible) {
        bad |= par("zone", &proto.zone, "l", "");
        bad |= par("hemisphere", &proto.hemisphere, "c", "");
    }
    bad |= par("false_east", &proto.false_east, "d", hide);
    bad |= par("false_north", &proto.false_north, "d", hide);
    bad |= par("scale_factor", &proto.scale_factor, "d", hide);
    bad |= par("centre_merid", &proto.centre_merid, "d", hide);
    bad |= par("centre_lat", &proto.centre_lat, "d", hide);
    bad |= par("spheroid.radius", &proto.radius, "d", "");
    bad |= par("spheroid.eccentricity", &proto.eccentricity, "d", "");
    bad |= par("long_cut", &proto.long_cut, "d", ".");
    if (visible) {
        bad |= par("zone", &proto.zone, "l", ".");
        bad |= par("hemisphere", &proto.hemisphere, "c", ".");
    }
    bad |= par("grid_ws", &proto.grid_ws, "l", ".");
    bad |= gdt_proj_ins_funcs(init, tm_forward, tm_backward);
    bad |= gdt_proj_ins_mode(2);
    bad |= gdt_proj_end();
    return bad ? -1 : 0;
}

}  // namespace

int gdt_tranmerc_install()
{
    return install("tranmerc", tm_init, true);
}

int gdt_stm_install()
{
    return install("stm", stm_init, true);
}

int gdt_utm_install()
{
    return install("utm", utm_init, false);
}
