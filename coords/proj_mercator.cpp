/*
 * proj_mercator.cpp: the normal Mercator projection, on the sphere and the
 * ellipsoid (Snyder 7-1, 7-2, 7-7), its inverse through the conformal
 * latitude and the series of 3-5.
 */
#include <cmath>

#include "gdt_proj_internal.h"

namespace {

constexpr double kPi = 3.14159265358979323846;

struct Mercator {
    double false_east, false_north, scale_factor, centre_merid;
    double radius, eccentricity, long_cut;
    /* derived */
    double k; /* scale_factor * radius */
    gdt_series4 conformal;
};

Mercator proto;

int init(void *block)
{
    auto *p = static_cast<Mercator *>(block);
    p->long_cut = p->centre_merid - kPi;
    p->k = p->scale_factor * p->radius;
    gdt_snyder_init_3_5(p->eccentricity * p->eccentricity, &p->conformal);
    gdt_proj_factors_35(&p->conformal);
    return p->k > 0 ? 0 : -1;
}

int forward(void *block, double lon, double lat, double *x, double *y)
{
    const auto *p = static_cast<const Mercator *>(block);
    if (std::fabs(std::fabs(lat) - kPi / 2) <= 1e-10) return GDT_PROJ_INFINITE;
    double t = gdt_snyder_eqn_9_13(std::sin(lat), p->eccentricity);
    *x = p->k * gdt_normal_pi(lon - p->centre_merid) + p->false_east;
    *y = -p->k * std::log(t) + p->false_north;
    return GDT_PROJ_OK;
}

int backward(void *block, double x, double y, double *lon, double *lat)
{
    const auto *p = static_cast<const Mercator *>(block);
    double t = std::exp(-(y - p->false_north) / p->k);
    double chi = -gdt_snyder_eqn_3_1(t);
    *lat = chi + gdt_snyder_eqn_3_35(chi, &p->conformal);
    *lon = gdt_normal_pi((x - p->false_east) / p->k + p->centre_merid);
    return GDT_PROJ_OK;
}

}  // namespace

int gdt_mercator_install()
{
    int bad = gdt_proj_create("mercator", &proto, sizeof proto);
    bad |= gdt_proj_ins_par("false_east", &proto.false_east, "d");
    bad |= gdt_proj_ins_par("false_north", &proto.false_north, "d");
    bad |= gdt_proj_ins_par("scale_factor", &proto.scale_factor, "d");
    bad |= gdt_proj_ins_par("centre_merid", &proto.centre_merid, "d");
    bad |= gdt_proj_ins_par("spheroid.radius", &proto.radius, "d");
    bad |= gdt_proj_ins_par("spheroid.eccentricity", &proto.eccentricity, "d");
    bad |= gdt_proj_ins_par(".long_cut", &proto.long_cut, "d");
    bad |= gdt_proj_ins_funcs(init, forward, backward);
    bad |= gdt_proj_ins_mode(1);
    bad |= gdt_proj_end();
    return bad ? -1 : 0;
}
