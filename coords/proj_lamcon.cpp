/*
 * proj_lamcon.cpp: Lambert conformal conic, on the ellipsoid and the sphere
 * (Snyder 15-1 to 15-11): lamcon1 with one standard parallel, the centre
 * latitude, where the scale is `scale_factor`; lamcon2 with two standard
 * parallels. They differ only in how the cone is set up; the conversions are
 * one pair. The inverse solves the latitude from t by iteration, at most 100
 * rounds to 1e-12.
 */
#include <cmath>

#include "gdt_proj_internal.h"

namespace {

constexpr double kPi = 3.14159265358979323846;

/* The parameters of both members; each installs the ones it reads. */
struct Lamcon {
    double false_east, false_north, scale_factor, centre_merid, first_paral, second_paral,
        centre_lat;
    double radius, eccentricity, long_cut;
    /* derived */
    double n, af, rho0;
};

Lamcon proto1, proto2;

double lamcon_m(double phi, double e)
{
    double s = std::sin(phi);
    return std::cos(phi) / std::sqrt(1 - e * e * s * s);
}

double lamcon_t(double phi, double e)
{
    return gdt_snyder_eqn_9_13(std::sin(phi), e);
}

int init1(void *block)
{
    auto *p = static_cast<Lamcon *>(block);
    p->long_cut = p->centre_merid - kPi;
    double e = p->eccentricity;
    // A cone needs a parallel off the equator and off the poles.
    if (std::fabs(p->centre_lat) >= kPi / 2 || std::fabs(p->centre_lat) < 1e-12) return -1;
    if (!(p->radius > 0) || !(p->scale_factor > 0)) return -1;
    p->n = std::sin(p->centre_lat);
    double t0 = lamcon_t(p->centre_lat, e);
    p->af = p->scale_factor * p->radius * lamcon_m(p->centre_lat, e) / (p->n * std::pow(t0, p->n));
    p->rho0 = p->af * std::pow(t0, p->n);
    return 0;
}

int init2(void *block)
{
    auto *p = static_cast<Lamcon *>(block);
    p->long_cut = p->centre_merid - kPi;
    double e = p->eccentricity;
    if (std::fabs(p->first_paral) >= kPi / 2 || std::fabs(p->second_paral) >= kPi / 2) return -1;
    double m1 = lamcon_m(p->first_paral, e), m2 = lamcon_m(p->second_paral, e);
    double t1 = lamcon_t(p->first_paral, e), t2 = lamcon_t(p->second_paral, e);
    // One parallel, or two within an arc second: the tangent cone.
    if (std::fabs(p->first_paral - p->second_paral) < 4.84813681109536e-6)
        p->n = std::sin(p->first_paral);
    else
        p->n = (std::log(m1) - std::log(m2)) / (std::log(t1) - std::log(t2));
    if (std::fabs(p->n) < 1e-12) return -1;
    p->af = p->radius * m1 / (p->n * std::pow(t1, p->n));
    double t0 = lamcon_t(p->centre_lat, e);
    p->rho0 = p->af * std::pow(t0, p->n);
    return p->radius > 0 ? 0 : -1;
}

int forward(void *block, double lon, double lat, double *x, double *y)
{
    const auto *p = static_cast<const Lamcon *>(block);
    double rho;
    if (std::fabs(lat) >= kPi / 2 - 1e-10) {
        // The pole on the cone's side is its apex; the other is at infinity.
        if (lat * p->n <= 0) return GDT_PROJ_POLE;
        rho = 0;
    } else {
        rho = p->af * std::pow(lamcon_t(lat, p->eccentricity), p->n);
    }
    double theta = p->n * gdt_normal_pi(lon - p->centre_merid);
    *x = rho * std::sin(theta) + p->false_east;
    *y = p->rho0 - rho * std::cos(theta) + p->false_north;
    return GDT_PROJ_OK;
}

int backward(void *block, double x, double y, double *lon, double *lat)
{
    const auto *p = static_cast<const Lamcon *>(block);
    double dx = x - p->false_east, dy = p->rho0 - (y - p->false_north);
    double sign = p->n < 0 ? -1.0 : 1.0;
    double rho = sign * std::hypot(dx, dy);
    double theta = std::atan2(sign * dx, sign * dy);
    *lon = gdt_normal_pi(theta / p->n + p->centre_merid);
    if (rho == 0) {
        *lat = sign * kPi / 2;
        return GDT_PROJ_OK;
    }
    double t = std::pow(rho / p->af, 1 / p->n);
    double e = p->eccentricity;
    double phi = kPi / 2 - 2 * std::atan(t);
    for (int i = 0; i < 100; i++) {
        double es = e * std::sin(phi);
        double next = kPi / 2 - 2 * std::atan(t * std::pow((1 - es) / (1 + es), e / 2));
        if (std::fabs(next - phi) < 1e-12) {
            *lat = next;
            return GDT_PROJ_OK;
        }
        phi = next;
    }
    return GDT_PROJ_NO_CONVERGENCE;
}

}  // namespace

int gdt_lamcon1_install()
{
    Lamcon &b = proto1;
    const gdt_proj_par pars[] = {{"false_east", &b.false_east, "d"},
                                 {"false_north", &b.false_north, "d"},
                                 {"scale_factor", &b.scale_factor, "d"},
                                 {"centre_merid", &b.centre_merid, "d"},
                                 {"centre_lat", &b.centre_lat, "d"},
                                 {"spheroid.radius", &b.radius, "d"},
                                 {"spheroid.eccentricity", &b.eccentricity, "d"},
                                 {".long_cut", &b.long_cut, "d"}};
    return gdt_proj_install("lamcon1", &proto1, sizeof proto1, pars, init1, forward, backward, 0);
}

int gdt_lamcon2_install()
{
    Lamcon &b = proto2;
    const gdt_proj_par pars[] = {
        {"false_east", &b.false_east, "d"},     {"false_north", &b.false_north, "d"},
        {"centre_merid", &b.centre_merid, "d"}, {"first_paral", &b.first_paral, "d"},
        {"second_paral", &b.second_paral, "d"}, {"centre_lat", &b.centre_lat, "d"},
        {"spheroid.radius", &b.radius, "d"},    {"spheroid.eccentricity", &b.eccentricity, "d"},
        {".long_cut", &b.long_cut, "d"}};
    return gdt_proj_install("lamcon2", &proto2, sizeof proto2, pars, init2, forward, backward, 0);
}
