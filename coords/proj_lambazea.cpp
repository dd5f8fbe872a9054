/*
 * proj_lambazea.cpp: Lambert azimuthal equal-area, on the ellipsoid and the
 * sphere (Snyder 24-1 to 24-31): through the authalic latitude, with a polar
 * case within 1e-10 of a pole and the oblique one elsewhere (the equatorial
 * being the oblique at latitude 0). The antipode of the origin returns 4.
 */
#include <cmath>

#include "gdt_proj_internal.h"

namespace {

constexpr double kPi = 3.14159265358979323846;

struct Lambazea {
    double false_east, false_north, scale_factor, centre_merid, centre_lat;
    double radius, eccentricity, long_cut;
    /* derived */
    double a;         /* radius times scale_factor */
    double qp, rq, d; /* q at the pole, radius of the authalic sphere, D of 24-20 */
    double sin_b1, cos_b1;
    int polar; /* 0 oblique, +1 north pole, -1 south pole */
};

Lambazea proto;

int init(void *block)
{
    auto *p = static_cast<Lambazea *>(block);
    p->long_cut = p->centre_merid - kPi;
    double e = p->eccentricity;
    p->a = p->radius * p->scale_factor;
    if (!(p->a > 0)) return -1;
    p->qp = gdt_snyder_eqn_3_12(1.0, e);
    p->rq = p->a * std::sqrt(p->qp / 2);
    p->polar =
        std::fabs(std::fabs(p->centre_lat) - kPi / 2) < 1e-10 ? (p->centre_lat > 0 ? 1 : -1) : 0;
    double s = std::sin(p->centre_lat);
    double b1 = gdt_asin(gdt_snyder_eqn_3_12(s, e) / p->qp);
    p->sin_b1 = std::sin(b1);
    p->cos_b1 = std::cos(b1);
    double m1 = std::cos(p->centre_lat) / std::sqrt(1 - e * e * s * s);
    p->d = p->polar ? 1.0 : p->a * m1 / (p->rq * p->cos_b1);
    return 0;
}

int forward(void *block, double lon, double lat, double *x, double *y)
{
    const auto *p = static_cast<const Lambazea *>(block);
    double d = gdt_normal_pi(lon - p->centre_merid);
    double q = gdt_snyder_eqn_3_12(std::sin(lat), p->eccentricity);
    if (p->polar) {
        double under = p->qp - p->polar * q;
        if (p->polar * lat <= -kPi / 2 + 1e-10) return GDT_PROJ_ANTIPODE;
        double rho = p->a * std::sqrt(under < 0 ? 0 : under);
        *x = rho * std::sin(d) + p->false_east;
        *y = -p->polar * rho * std::cos(d) + p->false_north;
        return GDT_PROJ_OK;
    }
    double b = gdt_asin(q / p->qp);
    double sb = std::sin(b), cb = std::cos(b), cd = std::cos(d);
    double under = 1 + p->sin_b1 * sb + p->cos_b1 * cb * cd;
    if (under < 1e-10) return GDT_PROJ_ANTIPODE;
    double bb = p->rq * std::sqrt(2 / under);
    *x = bb * p->d * cb * std::sin(d) + p->false_east;
    *y = bb / p->d * (p->cos_b1 * sb - p->sin_b1 * cb * cd) + p->false_north;
    return GDT_PROJ_OK;
}

/* Latitude from q. */
int latitude(const Lambazea *p, double q, double *lat)
{
    if (std::fabs(q) >= p->qp) {
        *lat = q < 0 ? -kPi / 2 : kPi / 2;
        return GDT_PROJ_OK;
    }
    if (p->eccentricity < 1e-8) {
        *lat = gdt_asin(q / 2);
        return GDT_PROJ_OK;
    }
    return gdt_snyder_eqn_3_16(q, p->eccentricity, gdt_asin(q / 2), lat);
}

int backward(void *block, double x, double y, double *lon, double *lat)
{
    const auto *p = static_cast<const Lambazea *>(block);
    x -= p->false_east;
    y -= p->false_north;
    if (p->polar) {
        double rho = std::hypot(x, y);
        double q = p->polar * (p->qp - rho * rho / (p->a * p->a));
        *lon = gdt_normal_pi(p->centre_merid + std::atan2(x, -p->polar * y));
        return latitude(p, q, lat);
    }
    double rho = std::hypot(x / p->d, p->d * y);
    if (rho < 1e-12) {
        *lat = p->centre_lat;
        *lon = p->centre_merid;
        return GDT_PROJ_OK;
    }
    if (rho > 2 * p->rq * (1 + 1e-12)) return GDT_PROJ_POLE;
    double ce = 2 * gdt_asin(rho / (2 * p->rq));
    double sce = std::sin(ce), cce = std::cos(ce);
    double q = p->qp * (cce * p->sin_b1 + p->d * y * sce * p->cos_b1 / rho);
    *lon =
        gdt_normal_pi(p->centre_merid + std::atan2(x * sce, p->d * rho * p->cos_b1 * cce -
                                                                p->d * p->d * y * p->sin_b1 * sce));
    return latitude(p, q, lat);
}

}  // namespace

int gdt_lambazea_install()
{
    Lambazea &b = proto;
    const gdt_proj_par pars[] = {{"false_east", &b.false_east, "d"},
                                 {"false_north", &b.false_north, "d"},
                                 {"scale_factor", &b.scale_factor, "d"},
                                 {"centre_merid", &b.centre_merid, "d"},
                                 {"centre_lat", &b.centre_lat, "d"},
                                 {"spheroid.radius", &b.radius, "d"},
                                 {"spheroid.eccentricity", &b.eccentricity, "d"},
                                 {".long_cut", &b.long_cut, "d"}};
    // Mode bits unset: no check of the position is allowed without a longitude check.
    return gdt_proj_install("lambazea", &proto, sizeof proto, pars, init, forward, backward, 0);
}
