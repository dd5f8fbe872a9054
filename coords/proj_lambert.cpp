/*
 * proj_lambert.cpp: the Lambert conformal conic of the national and State
 * Plane systems, with one standard parallel and a scale there (lambert1) or
 * two standard parallels (lambert2). Both share every function: the cone is
 * found by gdt_calc_zphi from the parallels, a point's radius on the cone
 * comes from its isometric latitude, and backward is closed: the conformal
 * latitude from the radius, and the geodetic latitude from that by the
 * series of Snyder 3-5, without iteration.
 *
 * Two parallels within an arc second make the tangent cone at their mean.
 * Parallels symmetric about the equator make the cone constant vanish: below
 * 1e-12 the cone opens into a cylinder, and the member maps as Mercator true
 * at the parallels.
 */
#include <cmath>

#include "gdt_proj_internal.h"

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kArcSecond = 4.84813681109536e-6;
/* Kept: a hair above pi/2, as the members using it always had. */
constexpr double kPoleBound = 1.5707963267958966;

struct Lambert {
    double false_east, false_north, scale_factor, centre_merid, centre_lat;
    double first_paral, second_paral; /* lambert2 only */
    double radius, eccentricity, long_cut;
    /* derived */
    double n;             /* cone constant; 0 for the cylinder */
    double k;             /* rho = k exp(-n q); the cylinder's x = k dlon */
    double rho0;          /* radius (cone) or isometric latitude (cylinder) of the centre */
    gdt_series4 latitude; /* conformal to geodetic latitude */
};

Lambert proto1, proto2;

/* Radius of the parallel phi in units of the semi-major axis. */
double gdt_eqn_mm(double phi, double e)
{
    double s = std::sin(phi);
    return std::cos(phi) / std::sqrt(1 - e * e * s * s);
}

/* Isometric latitude: ln tan(pi/4 + phi/2) less its ellipsoidal part. */
double isometric(double phi, double e)
{
    double es = e * std::sin(phi);
    return std::atanh(std::sin(phi)) - e * std::atanh(es);
}

/* The cone through parallels p1 and p2 (equal for one parallel) with scale
 * `scale` on them: its constant n and factor k. 0, or 1 when a parallel is
 * at a pole. */
int gdt_calc_zphi(double p1, double p2, double scale, double a, double e, double *n, double *k)
{
    if (std::fabs(p1) >= kPi / 2 || std::fabs(p2) >= kPi / 2) return 1;
    if (std::fabs(p1 - p2) < kArcSecond) p1 = p2 = (p1 + p2) / 2;
    double m1 = gdt_eqn_mm(p1, e), q1 = isometric(p1, e);
    if (p1 == p2)
        *n = std::sin(p1);
    else
        *n = std::log(m1 / gdt_eqn_mm(p2, e)) / (isometric(p2, e) - q1);
    if (std::fabs(*n) < 1e-12) {
        *n = 0;
        *k = scale * a * m1;
    } else {
        *k = scale * a * m1 / *n * std::exp(*n * q1);
    }
    return 0;
}

int setup(Lambert *p, double p1, double p2)
{
    p->long_cut = p->centre_merid - kPi;
    double e = p->eccentricity;
    if (!(p->radius > 0) || !(p->scale_factor > 0)) return -1;
    if (gdt_calc_zphi(p1, p2, p->scale_factor, p->radius, e, &p->n, &p->k) != 0) return -1;
    if (std::fabs(p->centre_lat) >= kPi / 2) {
        // A false origin at the apex; the far pole is at infinity.
        if (p->n == 0 || p->centre_lat * p->n < 0) return -1;
        p->rho0 = 0;
    } else {
        double q0 = isometric(p->centre_lat, e);
        p->rho0 = p->n == 0 ? q0 : p->k * std::exp(-p->n * q0);
    }
    gdt_snyder_init_3_5(e * e, &p->latitude);
    gdt_proj_factors_35(&p->latitude);
    return 0;
}

int init1(void *block)
{
    auto *p = static_cast<Lambert *>(block);
    if (std::fabs(p->centre_lat) < 1e-12) return -1;
    return setup(p, p->centre_lat, p->centre_lat);
}

int init2(void *block)
{
    auto *p = static_cast<Lambert *>(block);
    return setup(p, p->first_paral, p->second_paral);
}

int forward(void *block, double lon, double lat, double *x, double *y)
{
    const auto *p = static_cast<const Lambert *>(block);
    double d = gdt_normal_pi(lon - p->centre_merid);
    if (p->n == 0) {
        if (std::fabs(lat) >= kPoleBound - 1e-10) return GDT_PROJ_POLE;
        *x = p->k * d + p->false_east;
        *y = p->k * (isometric(lat, p->eccentricity) - p->rho0) + p->false_north;
        return GDT_PROJ_OK;
    }
    double rho;
    if (std::fabs(lat) >= kPoleBound - 1e-10) {
        // The pole on the cone's side is its apex; the other is at infinity.
        if (lat * p->n <= 0) return GDT_PROJ_POLE;
        rho = 0;
    } else {
        rho = p->k * std::exp(-p->n * isometric(lat, p->eccentricity));
    }
    double theta = p->n * d;
    *x = rho * std::sin(theta) + p->false_east;
    *y = p->rho0 - rho * std::cos(theta) + p->false_north;
    return GDT_PROJ_OK;
}

int backward(void *block, double x, double y, double *lon, double *lat)
{
    const auto *p = static_cast<const Lambert *>(block);
    double dx = x - p->false_east, dy = y - p->false_north, q, d;
    if (p->n == 0) {
        q = dy / p->k + p->rho0;
        d = dx / p->k;
    } else {
        double sign = p->n < 0 ? -1.0 : 1.0;
        double rho = sign * std::hypot(dx, p->rho0 - dy);
        d = std::atan2(sign * dx, sign * (p->rho0 - dy)) / p->n;
        if (rho == 0) {
            *lat = sign * kPi / 2;
            *lon = p->centre_merid;
            return GDT_PROJ_OK;
        }
        q = -std::log(rho / p->k) / p->n;
    }
    if (std::fabs(d) > kPi + 1e-10) return GDT_PROJ_POLE;
    double chi = 2 * std::atan(std::exp(q)) - kPi / 2;
    *lat = chi + gdt_snyder_eqn_3_35(chi, &p->latitude);
    *lon = gdt_normal_pi(p->centre_merid + d);
    return GDT_PROJ_OK;
}

}  // namespace

int gdt_lambert1_install()
{
    Lambert &b = proto1;
    const gdt_proj_par pars[] = {{"false_east", &b.false_east, "d"},
                                 {"false_north", &b.false_north, "d"},
                                 {"scale_factor", &b.scale_factor, "d"},
                                 {"centre_merid", &b.centre_merid, "d"},
                                 {"centre_lat", &b.centre_lat, "d"},
                                 {"spheroid.radius", &b.radius, "d"},
                                 {"spheroid.eccentricity", &b.eccentricity, "d"},
                                 {".long_cut", &b.long_cut, "d"}};
    return gdt_proj_install("lambert1", &proto1, sizeof proto1, pars, init1, forward, backward, 0);
}

int gdt_lambert2_install()
{
    Lambert &b = proto2;
    const gdt_proj_par pars[] = {{"false_east", &b.false_east, "d"},
                                 {"false_north", &b.false_north, "d"},
                                 {"scale_factor", &b.scale_factor, "d"},
                                 {"centre_merid", &b.centre_merid, "d"},
                                 {"centre_lat", &b.centre_lat, "d"},
                                 {"first_paral", &b.first_paral, "d"},
                                 {"second_paral", &b.second_paral, "d"},
                                 {"spheroid.radius", &b.radius, "d"},
                                 {"spheroid.eccentricity", &b.eccentricity, "d"},
                                 {".long_cut", &b.long_cut, "d"}};
    // Mode left unset (0), as for lambazea.
    return gdt_proj_install("lambert2", &proto2, sizeof proto2, pars, init2, forward, backward, 0);
}
