/*
 * proj_azimuthal.cpp: the orthographic and gnomonic projections, perspective
 * views of the sphere of the datum's radius from infinity and from its
 * centre (Snyder 20-3, 20-4 and 22-4, 22-5). A point beyond the horizon of
 * the view returns 1. The two share the block and the inverse's frame.
 */
#include <cmath>

#include "gdt_proj_internal.h"

namespace {

constexpr double kPi = 3.14159265358979323846;

struct Azimuthal {
    double false_east, false_north, origin_lat, origin_long;
    double radius, long_cut;
    /* derived */
    double sin0, cos0;
};

Azimuthal proto;

int init(void *block)
{
    auto *p = static_cast<Azimuthal *>(block);
    p->long_cut = p->origin_long - kPi;
    p->sin0 = std::sin(p->origin_lat);
    p->cos0 = std::cos(p->origin_lat);
    return p->radius > 0 ? 0 : -1;
}

/* The cosine of the angular distance from the origin, and the view's frame. */
double view(const Azimuthal *p, double lon, double lat, double *east, double *north)
{
    double d = lon - p->origin_long;
    double s = std::sin(lat), c = std::cos(lat), cd = std::cos(d);
    *east = c * std::sin(d);
    *north = p->cos0 * s - p->sin0 * c * cd;
    return p->sin0 * s + p->cos0 * c * cd;
}

/* Latitude and longitude of the point at angular distance `dist` (sine and
 * cosine given) in the direction of (x, y) from the origin. */
void unview(const Azimuthal *p, double x, double y, double rho, double sc, double cc, double *lon,
            double *lat)
{
    if (rho < 1e-12) {
        *lat = p->origin_lat;
        *lon = p->origin_long;
        return;
    }
    *lat = gdt_asin(cc * p->sin0 + y * sc * p->cos0 / rho);
    *lon =
        gdt_normal_pi(p->origin_long + std::atan2(x * sc, rho * p->cos0 * cc - y * p->sin0 * sc));
}

int ortho_forward(void *block, double lon, double lat, double *x, double *y)
{
    const auto *p = static_cast<const Azimuthal *>(block);
    double e, n;
    if (view(p, lon, lat, &e, &n) < -1e-10) return GDT_PROJ_POLE;
    *x = p->radius * e + p->false_east;
    *y = p->radius * n + p->false_north;
    return GDT_PROJ_OK;
}

int ortho_backward(void *block, double x, double y, double *lon, double *lat)
{
    const auto *p = static_cast<const Azimuthal *>(block);
    x -= p->false_east;
    y -= p->false_north;
    double rho = std::hypot(x, y);
    if (rho > p->radius * (1 + 1e-12)) return GDT_PROJ_POLE;
    double sc = std::fmin(rho / p->radius, 1.0);
    unview(p, x, y, rho, sc, std::sqrt(1 - sc * sc), lon, lat);
    return GDT_PROJ_OK;
}

int gnom_forward(void *block, double lon, double lat, double *x, double *y)
{
    const auto *p = static_cast<const Azimuthal *>(block);
    double e, n;
    double cc = view(p, lon, lat, &e, &n);
    if (cc <= 1e-10) return GDT_PROJ_POLE;
    *x = p->radius * e / cc + p->false_east;
    *y = p->radius * n / cc + p->false_north;
    return GDT_PROJ_OK;
}

int gnom_backward(void *block, double x, double y, double *lon, double *lat)
{
    const auto *p = static_cast<const Azimuthal *>(block);
    x -= p->false_east;
    y -= p->false_north;
    double rho = std::hypot(x, y);
    double c = std::atan(rho / p->radius);
    unview(p, x, y, rho, std::sin(c), std::cos(c), lon, lat);
    return GDT_PROJ_OK;
}

int install(const char *name, gdt_proj_conv_fn forward, gdt_proj_conv_fn backward)
{
    Azimuthal &b = proto;
    const gdt_proj_par pars[] = {
        {"false_east", &b.false_east, "d"},  {"false_north", &b.false_north, "d"},
        {"origin_lat", &b.origin_lat, "d"},  {"origin_long", &b.origin_long, "d"},
        {"spheroid.radius", &b.radius, "d"}, {".long_cut", &b.long_cut, "d"}};
    return gdt_proj_install(name, &proto, sizeof proto, pars, init, forward, backward, 0);
}

}  // namespace

int gdt_orthog_install()
{
    return install("orthog", ortho_forward, ortho_backward);
}

int gdt_gnomonic_install()
{
    return install("gnomonic", gnom_forward, gnom_backward);
}
