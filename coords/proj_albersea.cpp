/*
 * proj_albersea.cpp: Albers equal-area conic, on the ellipsoid and the sphere
 * (Snyder 14-1 to 14-21): q of the authalic latitude forward, its fixed-point
 * inverse of 3-16 backward.
 */
#include <cmath>

#include "gdt_proj_internal.h"

namespace {

constexpr double kPi = 3.14159265358979323846;

struct Albers {
    double false_east, false_north, first_paral, second_paral, origin_lat, origin_long;
    double radius, eccentricity, long_cut;
    /* derived */
    double n, c, rho0, q_pole;
};

Albers proto;

double albers_m(double phi, double e)
{
    double s = std::sin(phi);
    return std::cos(phi) / std::sqrt(1 - e * e * s * s);
}

int init(void *block)
{
    auto *p = static_cast<Albers *>(block);
    p->long_cut = p->origin_long - kPi;
    double e = p->eccentricity;
    double m1 = albers_m(p->first_paral, e), m2 = albers_m(p->second_paral, e);
    double q1 = gdt_snyder_eqn_3_12(std::sin(p->first_paral), e);
    double q2 = gdt_snyder_eqn_3_12(std::sin(p->second_paral), e);
    double q0 = gdt_snyder_eqn_3_12(std::sin(p->origin_lat), e);
    if (std::fabs(p->first_paral + p->second_paral) < 1e-12) return -1;
    p->n = std::fabs(p->first_paral - p->second_paral) < 1e-8 ? std::sin(p->first_paral)
                                                              : (m1 * m1 - m2 * m2) / (q2 - q1);
    if (std::fabs(p->n) < 1e-12) return -1;
    p->c = m1 * m1 + p->n * q1;
    p->rho0 = p->radius * std::sqrt(p->c - p->n * q0) / p->n;
    p->q_pole = gdt_snyder_eqn_3_12(1.0, e);
    return p->radius > 0 ? 0 : -1;
}

int forward(void *block, double lon, double lat, double *x, double *y)
{
    const auto *p = static_cast<const Albers *>(block);
    double q = gdt_snyder_eqn_3_12(std::sin(lat), p->eccentricity);
    double under = p->c - p->n * q;
    if (under < 0) return GDT_PROJ_POLE;
    double rho = p->radius * std::sqrt(under) / p->n;
    double theta = p->n * gdt_normal_pi(lon - p->origin_long);
    *x = rho * std::sin(theta) + p->false_east;
    *y = p->rho0 - rho * std::cos(theta) + p->false_north;
    return GDT_PROJ_OK;
}

int backward(void *block, double x, double y, double *lon, double *lat)
{
    const auto *p = static_cast<const Albers *>(block);
    double dx = x - p->false_east, dy = p->rho0 - (y - p->false_north);
    double sign = p->n < 0 ? -1.0 : 1.0;
    double rho = std::hypot(dx, dy);
    double theta = std::atan2(sign * dx, sign * dy);
    *lon = gdt_normal_pi(theta / p->n + p->origin_long);
    double r = rho * p->n / p->radius;
    double q = (p->c - r * r) / p->n;
    if (std::fabs(q) >= std::fabs(p->q_pole) - 1e-12) {
        if (std::fabs(q) > std::fabs(p->q_pole) + 1e-8) return GDT_PROJ_POLE;
        *lat = q < 0 ? -kPi / 2 : kPi / 2;
        return GDT_PROJ_OK;
    }
    if (p->eccentricity < 1e-8) {
        *lat = gdt_asin(q / 2);
        return GDT_PROJ_OK;
    }
    return gdt_snyder_eqn_3_16(q, p->eccentricity, gdt_asin(q / 2), lat);
}

}  // namespace

int gdt_albersea_install()
{
    Albers &b = proto;
    const gdt_proj_par pars[] = {
        {"false_east", &b.false_east, "d"},   {"false_north", &b.false_north, "d"},
        {"first_paral", &b.first_paral, "d"}, {"second_paral", &b.second_paral, "d"},
        {"origin_lat", &b.origin_lat, "d"},   {"origin_long", &b.origin_long, "d"},
        {"spheroid.radius", &b.radius, "d"},  {"spheroid.eccentricity", &b.eccentricity, "d"},
        {".long_cut", &b.long_cut, "d"}};
    return gdt_proj_install("albersea", &proto, sizeof proto, pars, init, forward, backward, 0);
}
