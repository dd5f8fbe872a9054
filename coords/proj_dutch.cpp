/*
 * proj_dutch.cpp: the national grid of the Netherlands (RD), a double
 * projection: the Bessel ellipsoid is mapped conformally onto a sphere of
 * radius sqrt(rho0 nu0) by Gauss's method, and that sphere by an oblique
 * stereographic projection about the old observatory of Amersfoort. Origin,
 * scale and sphere are fixed; the false offsets are read. Backward uses the
 * generic Newton solver.
 */
#include <cmath>

#include "gdt_proj_internal.h"

namespace {

constexpr double kPi = 3.14159265358979323846;
/* Amersfoort: 52 09 22.178 N, 5 23 15.500 E, as the grid defines it in arc
 * seconds (kept exact: the values rounded to 1e-8 degrees, 0.9102967269708094
 * and 0.0940320375389926 radians, move the grid by half a millimetre); the
 * scale at the origin. */
constexpr double kArcSecond = 4.84813681109536e-6;
constexpr double kOriginLat = (52 * 3600 + 9 * 60 + 22.178) * kArcSecond;
constexpr double kOriginLon = (5 * 3600 + 23 * 60 + 15.500) * kArcSecond;
constexpr double kScale = 0.9999079;

struct Dutch {
    double false_east, false_north;
    double radius, eccentricity, long_cut;
    /* derived */
    double n, c, two_rk, sin_chi0, cos_chi0;
};

Dutch proto;

/* Latitude on the conformal sphere. */
double sphere_lat(const Dutch *p, double phi)
{
    double s = std::sin(phi), e = p->eccentricity;
    double w = p->c * std::pow((1 + s) / (1 - s) * std::pow((1 - e * s) / (1 + e * s), e), p->n);
    return std::asin((w - 1) / (w + 1));
}

int init(void *block)
{
    auto *p = static_cast<Dutch *>(block);
    p->long_cut = kOriginLon - kPi;
    double a = p->radius, e = p->eccentricity, e2 = e * e;
    if (!(a > 0)) return -1;
    double s0 = std::sin(kOriginLat), c0 = std::cos(kOriginLat);
    double rho0 = a * (1 - e2) / std::pow(1 - e2 * s0 * s0, 1.5);
    double nu0 = a / std::sqrt(1 - e2 * s0 * s0);
    p->two_rk = 2 * std::sqrt(rho0 * nu0) * kScale;
    p->n = std::sqrt(1 + e2 * c0 * c0 * c0 * c0 / (1 - e2));
    double w1 = std::pow((1 + s0) / (1 - s0) * std::pow((1 - e * s0) / (1 + e * s0), e), p->n);
    double sin_chi = (w1 - 1) / (w1 + 1);
    p->c = (p->n + s0) * (1 - sin_chi) / ((p->n - s0) * (1 + sin_chi));
    double chi0 = sphere_lat(p, kOriginLat);
    p->sin_chi0 = std::sin(chi0);
    p->cos_chi0 = std::cos(chi0);
    return 0;
}

int forward(void *block, double lon, double lat, double *x, double *y)
{
    const auto *p = static_cast<const Dutch *>(block);
    if (std::fabs(lat) >= kPi / 2 - 1e-12) {
        // The poles are the sphere's poles.
        lat = std::copysign(kPi / 2 - 1e-12, lat);
    }
    double chi = sphere_lat(p, lat);
    double d = p->n * gdt_normal_pi(lon - kOriginLon);
    double sc = std::sin(chi), cc = std::cos(chi), cd = std::cos(d);
    double b = 1 + sc * p->sin_chi0 + cc * p->cos_chi0 * cd;
    if (b < 1e-10) return GDT_PROJ_ANTIPODE;
    *x = p->false_east + p->two_rk * cc * std::sin(d) / b;
    *y = p->false_north + p->two_rk * (sc * p->cos_chi0 - cc * p->sin_chi0 * cd) / b;
    return GDT_PROJ_OK;
}

int backward(void *block, double x, double y, double *lon, double *lat)
{
    auto *p = static_cast<Dutch *>(block);
    // Start from the grid's distances on the ground.
    *lon = kOriginLon + (x - p->false_east) / (p->two_rk / 2 * std::cos(kOriginLat));
    *lat = kOriginLat + (y - p->false_north) / (p->two_rk / 2);
    int status = gdt_generic_newton(forward, p, x, y, lon, lat);
    if (status != 0) return status;
    *lon = gdt_normal_pi(*lon);
    return GDT_PROJ_OK;
}

}  // namespace

int gdt_dutch_install()
{
    Dutch &b = proto;
    const gdt_proj_par pars[] = {{"false_east", &b.false_east, "d"},
                                 {"false_north", &b.false_north, "d"},
                                 {"spheroid.radius", &b.radius, "d"},
                                 {"spheroid.eccentricity", &b.eccentricity, "d"},
                                 {".long_cut", &b.long_cut, "d"}};
    return gdt_proj_install("dutch", &proto, sizeof proto, pars, init, forward, backward, 0);
}
