/*
 * proj_placaree.cpp: plate carree, the equidistant cylindrical projection on
 * its equator: x = R (lon - centre), y = R (lat - centre_lat).
 */
#include <cmath>

#include "gdt_proj_internal.h"

namespace {

constexpr double kPi = 3.14159265358979323846;

struct Placaree {
    double false_east, false_north, centre_merid, centre_lat;
    double radius, eccentricity, long_cut;
};

Placaree proto;

int init(void *block)
{
    auto *p = static_cast<Placaree *>(block);
    p->long_cut = p->centre_merid - kPi;
    return p->radius > 0 ? 0 : -1;
}

int forward(void *block, double lon, double lat, double *x, double *y)
{
    const auto *p = static_cast<const Placaree *>(block);
    *x = p->radius * gdt_normal_pi(lon - p->centre_merid) + p->false_east;
    *y = p->radius * (lat - p->centre_lat) + p->false_north;
    return GDT_PROJ_OK;
}

int backward(void *block, double x, double y, double *lon, double *lat)
{
    const auto *p = static_cast<const Placaree *>(block);
    *lon = gdt_normal_pi((x - p->false_east) / p->radius + p->centre_merid);
    *lat = (y - p->false_north) / p->radius + p->centre_lat;
    return std::fabs(*lat) > kPi / 2 ? GDT_PROJ_POLE : GDT_PROJ_OK;
}

}  // namespace

int gdt_placaree_install()
{
    Placaree &b = proto;
    const gdt_proj_par pars[] = {
        {"false_east", &b.false_east, "d"},     {"false_north", &b.false_north, "d"},
        {"centre_merid", &b.centre_merid, "d"}, {"centre_lat", &b.centre_lat, "d"},
        {"spheroid.radius", &b.radius, "d"},    {"spheroid.eccentricity", &b.eccentricity, "d"},
        {".long_cut", &b.long_cut, "d"}};
    return gdt_proj_install("placaree", &proto, sizeof proto, pars, init, forward, backward, 3);
}
