/*
 * proj_coniced.cpp: the equidistant conic with two standard parallels, on the
 * ellipsoid and the sphere (Snyder 16-1 to 16-13), with the meridian distance
 * of 3-21 and, backward, the footpoint latitude of 3-26.
 */
#include <cmath>

#include "gdt_proj_internal.h"

namespace {

constexpr double kPi = 3.14159265358979323846;

struct Coniced {
    double false_east, false_north, centre_merid, centre_lat, first_paral, second_paral;
    double radius, eccentricity, long_cut;
    /* derived */
    double e2, m_first, n, g, rho0; /* g and rho0 in projection units */
    gdt_series4 meridian, footpoint;
};

Coniced proto;

double parallel(const Coniced *p, double lat)
{
    double s = std::sin(lat);
    return std::cos(lat) / std::sqrt(1 - p->e2 * s * s);
}

double meridian(const Coniced *p, double lat)
{
    return gdt_snyder_eqn_3_21(lat, p->m_first, &p->meridian);
}

int init(void *block)
{
    auto *p = static_cast<Coniced *>(block);
    p->long_cut = p->centre_merid - kPi;
    if (!(p->radius > 0)) return -1;
    p->e2 = p->eccentricity * p->eccentricity;
    gdt_snyder_init_3_21(p->e2, p->radius, &p->m_first, &p->meridian);
    gdt_proj_factors_35(&p->meridian);
    gdt_snyder_init_3_26(gdt_snyder_eqn_3_24(p->e2), &p->footpoint);
    gdt_proj_factors_35(&p->footpoint);
    double m1 = parallel(p, p->first_paral), m2 = parallel(p, p->second_paral);
    double big1 = meridian(p, p->first_paral), big2 = meridian(p, p->second_paral);
    p->n = std::fabs(p->first_paral - p->second_paral) < 1e-10
               ? std::sin(p->first_paral)
               : p->radius * (m1 - m2) / (big2 - big1);
    if (std::fabs(p->n) < 1e-12) return -1;
    p->g = p->radius * m1 / p->n + big1;
    p->rho0 = p->g - meridian(p, p->centre_lat);
    return 0;
}

int forward(void *block, double lon, double lat, double *x, double *y)
{
    const auto *p = static_cast<const Coniced *>(block);
    double rho = p->g - meridian(p, lat);
    double theta = p->n * gdt_normal_pi(lon - p->centre_merid);
    *x = rho * std::sin(theta) + p->false_east;
    *y = p->rho0 - rho * std::cos(theta) + p->false_north;
    return GDT_PROJ_OK;
}

int backward(void *block, double x, double y, double *lon, double *lat)
{
    const auto *p = static_cast<const Coniced *>(block);
    double dx = x - p->false_east, dy = p->rho0 - (y - p->false_north);
    double sign = p->n < 0 ? -1.0 : 1.0;
    double rho = sign * std::hypot(dx, dy);
    double theta = std::atan2(sign * dx, sign * dy);
    double mu = (p->g - rho) / p->m_first;
    double phi = mu + gdt_snyder_eqn_3_35(mu, &p->footpoint);
    if (std::fabs(phi) > kPi / 2 + 1e-10) return GDT_PROJ_POLE;
    *lat = phi;
    *lon = gdt_normal_pi(theta / p->n + p->centre_merid);
    return GDT_PROJ_OK;
}

}  // namespace

int gdt_coniced_install()
{
    Coniced &b = proto;
    const gdt_proj_par pars[] = {
        {"false_east", &b.false_east, "d"},     {"false_north", &b.false_north, "d"},
        {"centre_merid", &b.centre_merid, "d"}, {"centre_lat", &b.centre_lat, "d"},
        {"first_paral", &b.first_paral, "d"},   {"second_paral", &b.second_paral, "d"},
        {"spheroid.radius", &b.radius, "d"},    {"spheroid.eccentricity", &b.eccentricity, "d"},
        {".long_cut", &b.long_cut, "d"}};
    return gdt_proj_install("coniced", &proto, sizeof proto, pars, init, forward, backward, 0);
}
