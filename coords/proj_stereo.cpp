/*
 * proj_stereo.cpp: the stereographic projection on the ellipsoid and the
 * sphere. Its cases are chosen by the origin's latitude (within 1e-10 of a
 * pole, else oblique, the equatorial being the oblique one at latitude 0):
 * polar by Snyder 21-33 to 21-40, with the scale given either by
 * `scale_factor` or by a latitude of true scale `true_lat` that is not a pole;
 * oblique through the conformal latitude, Snyder 21-24 to 21-27 and 21-36 to
 * 21-39. The point opposite the origin returns 4.
 */
#include <cmath>

#include "gdt_proj_internal.h"

namespace {

constexpr double kPi = 3.14159265358979323846;

enum Case { kPolar, kOblique };

struct Stereo {
    double false_east, false_north, scale_factor, centre_merid, origin_lat, true_lat;
    double radius, eccentricity, long_cut;
    /* derived */
    int kind;
    double sign; /* polar: +1 north, -1 south */
    double k;    /* polar: rho = k t; oblique: 2 a k0 m1 */
    double sin_chi1, cos_chi1;
};

Stereo proto;

double conformal(double phi, double e)
{
    double es = e * std::sin(phi);
    return 2 * std::atan(std::tan(kPi / 4 + phi / 2) * std::pow((1 - es) / (1 + es), e / 2)) -
           kPi / 2;
}

/* Latitude from conformal latitude, by iteration: 0 or -2. */
int geodetic(double chi, double e, double *phi)
{
    double p = chi;
    for (int i = 0; i < 100; i++) {
        double es = e * std::sin(p);
        double next =
            2 * std::atan(std::tan(kPi / 4 + chi / 2) * std::pow((1 + es) / (1 - es), e / 2)) -
            kPi / 2;
        if (std::fabs(next - p) < 1e-12) {
            *phi = next;
            return 0;
        }
        p = next;
    }
    return GDT_PROJ_NO_CONVERGENCE;
}

int init(void *block)
{
    auto *p = static_cast<Stereo *>(block);
    p->long_cut = p->centre_merid - kPi;
    double e = p->eccentricity, a = p->radius;
    if (!(a > 0) || !(p->scale_factor > 0)) return -1;
    if (std::fabs(std::fabs(p->origin_lat) - kPi / 2) < 1e-10) {
        p->kind = kPolar;
        p->sign = p->origin_lat > 0 ? 1.0 : -1.0;
        double tc = p->sign * p->true_lat;
        if (std::fabs(tc - kPi / 2) > 1e-10 && tc > 0) {
            double s = std::sin(tc);
            double mc = std::cos(tc) / std::sqrt(1 - e * e * s * s);
            p->k = p->scale_factor * a * mc / gdt_snyder_eqn_9_13(s, e);
        } else {
            p->k = 2 * p->scale_factor * a /
                   std::sqrt(std::pow(1 + e, 1 + e) * std::pow(1 - e, 1 - e));
        }
    } else {
        p->kind = kOblique;
        double s = std::sin(p->origin_lat);
        double m1 = std::cos(p->origin_lat) / std::sqrt(1 - e * e * s * s);
        double chi1 = conformal(p->origin_lat, e);
        p->sin_chi1 = std::sin(chi1);
        p->cos_chi1 = std::cos(chi1);
        p->k = 2 * a * p->scale_factor * m1;
    }
    return 0;
}

int forward(void *block, double lon, double lat, double *x, double *y)
{
    const auto *p = static_cast<const Stereo *>(block);
    double d = gdt_normal_pi(lon - p->centre_merid);
    if (p->kind == kPolar) {
        if (std::fabs(lat + p->sign * kPi / 2) < 1e-10) return GDT_PROJ_ANTIPODE;
        double rho = p->k * gdt_snyder_eqn_9_13(std::sin(p->sign * lat), p->eccentricity);
        *x = rho * std::sin(d) + p->false_east;
        *y = -p->sign * rho * std::cos(d) + p->false_north;
        return GDT_PROJ_OK;
    }
    double chi = conformal(lat, p->eccentricity);
    double sc = std::sin(chi), cc = std::cos(chi), cd = std::cos(d);
    double denominator = p->cos_chi1 * (1 + p->sin_chi1 * sc + p->cos_chi1 * cc * cd);
    if (std::fabs(denominator) < 1e-10) return GDT_PROJ_ANTIPODE;
    double a = p->k / denominator;
    *x = a * cc * std::sin(d) + p->false_east;
    *y = a * (p->cos_chi1 * sc - p->sin_chi1 * cc * cd) + p->false_north;
    return GDT_PROJ_OK;
}

int backward(void *block, double x, double y, double *lon, double *lat)
{
    const auto *p = static_cast<const Stereo *>(block);
    x -= p->false_east;
    y -= p->false_north;
    double rho = std::hypot(x, y);
    if (p->kind == kPolar) {
        double t = rho / p->k;
        int status = geodetic(kPi / 2 - 2 * std::atan(t), p->eccentricity, lat);
        *lat *= p->sign;
        *lon = gdt_normal_pi(p->centre_merid + std::atan2(x, -p->sign * y));
        return status;
    }
    if (rho < 1e-12) {
        *lat = p->origin_lat;
        *lon = p->centre_merid;
        return GDT_PROJ_OK;
    }
    double ce = 2 * std::atan(rho * p->cos_chi1 / p->k);
    double sce = std::sin(ce), cce = std::cos(ce);
    double chi = gdt_asin(cce * p->sin_chi1 + y * sce * p->cos_chi1 / rho);
    *lon = gdt_normal_pi(p->centre_merid +
                         std::atan2(x * sce, rho * p->cos_chi1 * cce - y * p->sin_chi1 * sce));
    return geodetic(chi, p->eccentricity, lat);
}

}  // namespace

int gdt_stereo_install()
{
    Stereo &b = proto;
    const gdt_proj_par pars[] = {
        {"false_east", &b.false_east, "d"},     {"false_north", &b.false_north, "d"},
        {"scale_factor", &b.scale_factor, "d"}, {"centre_merid", &b.centre_merid, "d"},
        {"origin_lat", &b.origin_lat, "d"},     {"true_lat", &b.true_lat, "d"},
        {"spheroid.radius", &b.radius, "d"},    {"spheroid.eccentricity", &b.eccentricity, "d"},
        {".long_cut", &b.long_cut, "d"}};
    return gdt_proj_install("stereo", &proto, sizeof proto, pars, init, forward, backward, 0);
}
