/*
 * proj_millercy.cpp: Miller cylindrical, on the sphere of the datum's radius:
 * Mercator of four fifths of the latitude, stretched by five quarters.
 */
#include <cmath>

#include "gdt_proj_internal.h"

namespace {

constexpr double kPi = 3.14159265358979323846;

struct Miller {
    double false_east, false_north, centre_merid;
    double radius, long_cut;
};

Miller proto;

int init(void *block)
{
    auto *p = static_cast<Miller *>(block);
    p->long_cut = p->centre_merid - kPi;
    return p->radius > 0 ? 0 : -1;
}

int forward(void *block, double lon, double lat, double *x, double *y)
{
    const auto *p = static_cast<const Miller *>(block);
    *x = p->radius * gdt_normal_pi(lon - p->centre_merid) + p->false_east;
    *y = p->radius * std::log(std::tan(0.7853981633974483 + 0.4 * lat)) / 0.8 + p->false_north;
    return GDT_PROJ_OK;
}

int backward(void *block, double x, double y, double *lon, double *lat)
{
    const auto *p = static_cast<const Miller *>(block);
    *lon = gdt_normal_pi((x - p->false_east) / p->radius + p->centre_merid);
    *lat = 2.5 * std::atan(std::exp(0.8 * (y - p->false_north) / p->radius)) - 0.625 * kPi;
    return GDT_PROJ_OK;
}

}  // namespace

int gdt_millercy_install()
{
    Miller &b = proto;
    const gdt_proj_par pars[] = {{"false_east", &b.false_east, "d"},
                                 {"false_north", &b.false_north, "d"},
                                 {"centre_merid", &b.centre_merid, "d"},
                                 {"spheroid.radius", &b.radius, "d"},
                                 {".long_cut", &b.long_cut, "d"}};
    return gdt_proj_install("millercy", &proto, sizeof proto, pars, init, forward, backward, 0);
}
