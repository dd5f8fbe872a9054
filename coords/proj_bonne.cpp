/*
 * proj_bonne.cpp: Bonne's pseudoconic equal-area projection, on the ellipsoid
 * (Snyder 19-1 to 19-15, the meridian distance of 3-21 and the footpoint
 * latitude of 3-26) and on the sphere. `centre_lat` is the standard parallel.
 */
#include <cmath>

#include "gdt_proj_internal.h"

namespace {

constexpr double kPi = 3.14159265358979323846;

struct Bonne {
    double false_east, false_north, centre_merid, centre_lat;
    double radius, eccentricity, long_cut;
    /* derived */
    double e2, m_first, m1, top; /* top: a m1 / sin(lat1) + M1 */
    gdt_series4 meridian, footpoint;
};

Bonne proto;

double parallel(const Bonne *p, double lat)
{
    double s = std::sin(lat);
    return std::cos(lat) / std::sqrt(1 - p->e2 * s * s);
}

int init(void *block)
{
    auto *p = static_cast<Bonne *>(block);
    p->long_cut = p->centre_merid - kPi;
    if (std::fabs(p->centre_lat) < 1e-10 || !(p->radius > 0)) return -1;
    p->e2 = p->eccentricity * p->eccentricity;
    gdt_snyder_init_3_21(p->e2, p->radius, &p->m_first, &p->meridian);
    gdt_proj_factors_35(&p->meridian);
    gdt_snyder_init_3_26(gdt_snyder_eqn_3_24(p->e2), &p->footpoint);
    gdt_proj_factors_35(&p->footpoint);
    p->m1 = parallel(p, p->centre_lat);
    p->top = p->radius * p->m1 / std::sin(p->centre_lat) +
             gdt_snyder_eqn_3_21(p->centre_lat, p->m_first, &p->meridian);
    return 0;
}

int forward(void *block, double lon, double lat, double *x, double *y)
{
    const auto *p = static_cast<const Bonne *>(block);
    double rho = p->top - gdt_snyder_eqn_3_21(lat, p->m_first, &p->meridian);
    double d = gdt_normal_pi(lon - p->centre_merid);
    double e = std::fabs(rho) < 1e-10 ? 0.0 : p->radius * parallel(p, lat) * d / rho;
    *x = rho * std::sin(e) + p->false_east;
    *y = p->top - gdt_snyder_eqn_3_21(p->centre_lat, p->m_first, &p->meridian) - rho * std::cos(e) +
         p->false_north;
    return GDT_PROJ_OK;
}

int backward(void *block, double x, double y, double *lon, double *lat)
{
    const auto *p = static_cast<const Bonne *>(block);
    double m1 = gdt_snyder_eqn_3_21(p->centre_lat, p->m_first, &p->meridian);
    double dx = x - p->false_east, dy = p->top - m1 - (y - p->false_north);
    double sign = p->centre_lat < 0 ? -1.0 : 1.0;
    double rho = sign * std::hypot(dx, dy);
    double mu = (p->top - rho) / p->m_first;
    double phi = mu + gdt_snyder_eqn_3_35(mu, &p->footpoint);
    if (std::fabs(phi) > kPi / 2 + 1e-10) return GDT_PROJ_POLE;
    *lat = phi;
    double m = parallel(p, phi);
    if (std::fabs(std::fabs(phi) - kPi / 2) < 1e-10 || m < 1e-12) {
        *lon = p->centre_merid;
        return GDT_PROJ_OK;
    }
    double d = rho * std::atan2(sign * dx, sign * dy) / (p->radius * m);
    if (std::fabs(d) > kPi + 1e-10) return GDT_PROJ_POLE;
    *lon = gdt_normal_pi(p->centre_merid + d);
    return GDT_PROJ_OK;
}

}  // namespace

int gdt_bonne_install()
{
    Bonne &b = proto;
    const gdt_proj_par pars[] = {
        {"false_east", &b.false_east, "d"},     {"false_north", &b.false_north, "d"},
        {"centre_merid", &b.centre_merid, "d"}, {"centre_lat", &b.centre_lat, "d"},
        {"spheroid.radius", &b.radius, "d"},    {"spheroid.eccentricity", &b.eccentricity, "d"},
        {".long_cut", &b.long_cut, "d"}};
    return gdt_proj_install("bonne", &proto, sizeof proto, pars, init, forward, backward, 0);
}
