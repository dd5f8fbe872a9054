/*
 * proj_cassini.cpp: Cassini-Soldner, on the ellipsoid by the series of Snyder
 * 13-5 to 13-7 and on the sphere in closed form (13-1, 13-2). Backward inverts
 * the forward by the scaled Newton solver, to a millimetre on the earth.
 */
#include <cmath>

#include "gdt_proj_internal.h"

namespace {

constexpr double kPi = 3.14159265358979323846;

struct Cassini {
    double false_east, false_north, centre_merid, centre_lat;
    double radius, eccentricity, long_cut;
    /* derived */
    double e2, ep2, m_first, m0, tolerance;
    gdt_series4 meridian;
    int sphere;
};

Cassini proto;

int init(void *block)
{
    auto *p = static_cast<Cassini *>(block);
    p->long_cut = p->centre_merid - kPi;
    p->e2 = p->eccentricity * p->eccentricity;
    p->ep2 = p->e2 / (1 - p->e2);
    p->sphere = p->eccentricity < kGdtSphereEcc;
    gdt_snyder_init_3_21(p->e2, p->radius, &p->m_first, &p->meridian);
    gdt_proj_factors_35(&p->meridian);
    p->m0 = p->sphere ? p->radius * p->centre_lat
                      : gdt_snyder_eqn_3_21(p->centre_lat, p->m_first, &p->meridian);
    p->tolerance = p->radius / 6.378388e9;
    return p->radius > 0 ? 0 : -1;
}

int forward(void *block, double lon, double lat, double *x, double *y)
{
    const auto *p = static_cast<const Cassini *>(block);
    double d = gdt_normal_pi(lon - p->centre_merid);
    if (p->sphere) {
        double b = std::cos(lat) * std::sin(d);
        *x = p->radius * gdt_asin(b) + p->false_east;
        *y = p->radius * (std::atan2(std::tan(lat), std::cos(d)) - p->centre_lat) + p->false_north;
        return GDT_PROJ_OK;
    }
    double s = std::sin(lat), c = std::cos(lat), t = std::tan(lat);
    double n = p->radius / std::sqrt(1 - p->e2 * s * s);
    double tt = t * t, a = d * c, a2 = a * a, cc = p->ep2 * c * c;
    double m = gdt_snyder_eqn_3_21(lat, p->m_first, &p->meridian);
    *x = n * (a - tt * a2 * a / 6 - (8 - tt + 8 * cc) * tt * a2 * a2 * a / 120) + p->false_east;
    *y = m - p->m0 + n * t * (a2 / 2 + (5 - tt + 6 * cc) * a2 * a2 / 24) + p->false_north;
    return GDT_PROJ_OK;
}

int backward(void *block, double x, double y, double *lon, double *lat)
{
    auto *p = static_cast<Cassini *>(block);
    if (p->sphere) {
        double d = (y - p->false_north) / p->radius + p->centre_lat;
        double xx = (x - p->false_east) / p->radius;
        *lat = gdt_asin(std::sin(d) * std::cos(xx));
        *lon = gdt_normal_pi(p->centre_merid + std::atan2(std::tan(xx), std::cos(d)));
        return GDT_PROJ_OK;
    }
    *lon = p->centre_merid + (x - p->false_east) / p->radius;
    *lat = p->centre_lat + (y - p->false_north) / p->radius;
    int status = gdt_scaled_newton(forward, p, x, y, p->tolerance, lon, lat);
    *lon = gdt_normal_pi(*lon);
    return status;
}

}  // namespace

int gdt_cassini_install()
{
    Cassini &b = proto;
    const gdt_proj_par pars[] = {
        {"false_east", &b.false_east, "d"},     {"false_north", &b.false_north, "d"},
        {"centre_merid", &b.centre_merid, "d"}, {"centre_lat", &b.centre_lat, "d"},
        {"spheroid.radius", &b.radius, "d"},    {"spheroid.eccentricity", &b.eccentricity, "d"},
        {".long_cut", &b.long_cut, "d"}};
    return gdt_proj_install("cassini", &proto, sizeof proto, pars, init, forward, backward, 3);
}
