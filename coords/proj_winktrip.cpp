/*
 * proj_winktrip.cpp: Winkel's tripel projection, on the sphere of the datum's
 * radius: the mean of the equirectangular projection true at `centre_lat`
 * and Aitoff's. It has no closed inverse; backward uses the generic Newton
 * solver from the equirectangular guess.
 */
#include <cmath>

#include "gdt_proj_internal.h"

namespace {

constexpr double kPi = 3.14159265358979323846;

struct Winkel {
    double false_east, false_north, scale_factor, centre_merid, centre_lat;
    double radius, long_cut;
    /* derived */
    double r, cos_lat1;
};

Winkel proto;

int init(void *block)
{
    auto *p = static_cast<Winkel *>(block);
    p->long_cut = p->centre_merid - kPi;
    p->r = p->radius * p->scale_factor;
    p->cos_lat1 = std::cos(p->centre_lat);
    return p->r > 0 ? 0 : -1;
}

int forward(void *block, double lon, double lat, double *x, double *y)
{
    const auto *p = static_cast<const Winkel *>(block);
    double d = gdt_normal_pi(lon - p->centre_merid);
    double alpha = gdt_acos(std::cos(lat) * std::cos(d / 2));
    double sinc = alpha < 1e-12 ? 1.0 : std::sin(alpha) / alpha;
    *x = p->r / 2 * (d * p->cos_lat1 + 2 * std::cos(lat) * std::sin(d / 2) / sinc) + p->false_east;
    *y = p->r / 2 * (lat + std::sin(lat) / sinc) + p->false_north;
    return GDT_PROJ_OK;
}

int backward(void *block, double x, double y, double *lon, double *lat)
{
    const auto *p = static_cast<const Winkel *>(block);
    // Solved about the central meridian, on a copy of the block, then put back.
    Winkel local = *p;
    local.centre_merid = 0;
    double xx = x - p->false_east, yy = y - p->false_north;
    *lon = xx / (p->r * (1 + p->cos_lat1) / 2);
    *lat = yy / p->r;
    int status = gdt_generic_newton(forward, &local, x, y, lon, lat);
    if (status != 0) return status;
    if (std::fabs(*lon) > kPi + 1e-10) return GDT_PROJ_POLE;
    *lon = gdt_normal_pi(*lon + p->centre_merid);
    return GDT_PROJ_OK;
}

}  // namespace

int gdt_winktrip_install()
{
    Winkel &b = proto;
    const gdt_proj_par pars[] = {
        {"false_east", &b.false_east, "d"},     {"false_north", &b.false_north, "d"},
        {"scale_factor", &b.scale_factor, "d"}, {"centre_merid", &b.centre_merid, "d"},
        {"centre_lat", &b.centre_lat, "d"},     {"spheroid.radius", &b.radius, "d"},
        {".long_cut", &b.long_cut, "d"}};
    return gdt_proj_install("winktrip", &proto, sizeof proto, pars, init, forward, backward, 3);
}
