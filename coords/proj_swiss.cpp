/*
 * proj_swiss.cpp: the Swiss oblique cylindrical projection of the national
 * grid: the Bessel ellipsoid is mapped conformally onto a sphere of radius
 * a sqrt(1 - e^2)/(1 - e^2 sin^2 phi0) (Gauss), the sphere turned so that
 * the centre lies on its equator, and that equator projected by Mercator.
 * `centre_lat` and `centre_merid` name the centre (the old observatory of
 * Bern). Backward is the closed inverse, the sphere's latitude back to the
 * ellipsoid's by iteration to 1e-12.
 */
#include <cmath>

#include "gdt_proj_internal.h"

namespace {

constexpr double kPi = 3.14159265358979323846;

struct Swiss {
    double false_east, false_north, centre_merid, centre_lat;
    double radius, eccentricity, long_cut;
    /* derived */
    double alpha, k, r, sin_b0, cos_b0;
};

Swiss proto;

/* ln tan(pi/4 + phi/2) less its ellipsoidal part: the isometric latitude. */
double isometric(double phi, double e)
{
    double es = e * std::sin(phi);
    return std::log(std::tan(kPi / 4 + phi / 2)) - e / 2 * std::log((1 + es) / (1 - es));
}

int init(void *block)
{
    auto *p = static_cast<Swiss *>(block);
    p->long_cut = p->centre_merid - kPi;
    double a = p->radius, e = p->eccentricity, e2 = e * e;
    if (!(a > 0) || std::fabs(p->centre_lat) >= kPi / 2 - 1e-10) return -1;
    double s0 = std::sin(p->centre_lat), c0 = std::cos(p->centre_lat);
    p->alpha = std::sqrt(1 + e2 / (1 - e2) * c0 * c0 * c0 * c0);
    double b0 = std::asin(s0 / p->alpha);
    p->k = std::log(std::tan(kPi / 4 + b0 / 2)) - p->alpha * isometric(p->centre_lat, e);
    p->r = a * std::sqrt(1 - e2) / (1 - e2 * s0 * s0);
    p->sin_b0 = std::sin(b0);
    p->cos_b0 = std::cos(b0);
    return 0;
}

int forward(void *block, double lon, double lat, double *x, double *y)
{
    const auto *p = static_cast<const Swiss *>(block);
    if (std::fabs(lat) >= kPi / 2 - 1e-12) lat = std::copysign(kPi / 2 - 1e-12, lat);
    double s = p->alpha * isometric(lat, p->eccentricity) + p->k;
    double b = 2 * (std::atan(std::exp(s)) - kPi / 4);
    double l = p->alpha * gdt_normal_pi(lon - p->centre_merid);
    double sb = std::sin(b), cb = std::cos(b), cl = std::cos(l);
    double lbar = std::atan2(cb * std::sin(l), p->sin_b0 * sb + p->cos_b0 * cb * cl);
    double sbbar = p->cos_b0 * sb - p->sin_b0 * cb * cl;
    if (std::fabs(sbbar) > 1 - 1e-12) return GDT_PROJ_INFINITE;
    *x = p->r * lbar + p->false_east;
    *y = p->r / 2 * std::log((1 + sbbar) / (1 - sbbar)) + p->false_north;
    return GDT_PROJ_OK;
}

int backward(void *block, double x, double y, double *lon, double *lat)
{
    const auto *p = static_cast<const Swiss *>(block);
    double lbar = (x - p->false_east) / p->r;
    // Beyond the map's cut, or at its infinite ends.
    if (std::fabs(lbar) > kPi || std::fabs(y - p->false_north) / p->r > 40) return GDT_PROJ_POLE;
    double bbar = 2 * (std::atan(std::exp((y - p->false_north) / p->r)) - kPi / 4);
    double sbb = std::sin(bbar), cbb = std::cos(bbar), clb = std::cos(lbar);
    double b = gdt_asin(p->cos_b0 * sbb + p->sin_b0 * cbb * clb);
    double l = std::atan2(cbb * std::sin(lbar), p->cos_b0 * cbb * clb - p->sin_b0 * sbb);
    *lon = gdt_normal_pi(p->centre_merid + l / p->alpha);
    double e = p->eccentricity;
    double target = (std::log(std::tan(kPi / 4 + b / 2)) - p->k) / p->alpha;
    double phi = b;
    for (int round = 0; round < 100; round++) {
        double es = e * std::sin(phi);
        double s = target + e / 2 * std::log((1 + es) / (1 - es));
        double next = 2 * std::atan(std::exp(s)) - kPi / 2;
        double step = next - phi;
        phi = next;
        if (std::fabs(step) < 1e-12) {
            *lat = phi;
            return GDT_PROJ_OK;
        }
    }
    return GDT_PROJ_NO_CONVERGENCE;
}

}  // namespace

int gdt_swiss_install()
{
    Swiss &b = proto;
    const gdt_proj_par pars[] = {
        {"false_east", &b.false_east, "d"},     {"false_north", &b.false_north, "d"},
        {"centre_merid", &b.centre_merid, "d"}, {"centre_lat", &b.centre_lat, "d"},
        {"spheroid.radius", &b.radius, "d"},    {"spheroid.eccentricity", &b.eccentricity, "d"},
        {".long_cut", &b.long_cut, "d"}};
    return gdt_proj_install("swiss", &proto, sizeof proto, pars, init, forward, backward, 3);
}
