/*
 * proj_mollweid.cpp: Mollweide's equal-area world map, on the sphere of the
 * datum's radius. The auxiliary angle solves t + sin t = pi sin(lat) by
 * Newton's method (t being twice Snyder's theta).
 */
#include <cmath>

#include "gdt_proj_internal.h"

namespace {

constexpr double kPi = 3.14159265358979323846;

struct Mollweide {
    double false_east, false_north, centre_merid;
    double radius, long_cut;
};

Mollweide proto;

int init(void *block)
{
    auto *p = static_cast<Mollweide *>(block);
    p->long_cut = p->centre_merid - kPi;
    return p->radius > 0 ? 0 : -1;
}

int forward(void *block, double lon, double lat, double *x, double *y)
{
    const auto *p = static_cast<const Mollweide *>(block);
    double t = lat, target = kPi * std::sin(lat);
    if (std::fabs(std::fabs(lat) - kPi / 2) > 1e-10) {
        int i = 0;
        for (; i < 100; i++) {
            double step = -(t + std::sin(t) - target) / (1 + std::cos(t));
            t += step;
            if (std::fabs(step) < 1e-12) break;
        }
        if (i == 100) return GDT_PROJ_NO_CONVERGENCE;
    } else {
        t = lat < 0 ? -kPi : kPi;
    }
    double h = t / 2;
    double d = gdt_normal_pi(lon - p->centre_merid);
    *x = std::sqrt(8.0) / kPi * p->radius * d * std::cos(h) + p->false_east;
    *y = std::sqrt(2.0) * p->radius * std::sin(h) + p->false_north;
    return GDT_PROJ_OK;
}

int backward(void *block, double x, double y, double *lon, double *lat)
{
    const auto *p = static_cast<const Mollweide *>(block);
    double s = (y - p->false_north) / (std::sqrt(2.0) * p->radius);
    if (std::fabs(s) > 1 + 1e-12) return GDT_PROJ_POLE;
    double h = gdt_asin(s);
    *lat = gdt_asin((2 * h + std::sin(2 * h)) / kPi);
    double c = std::cos(h);
    double d = c < 1e-12 ? 0.0 : kPi * (x - p->false_east) / (std::sqrt(8.0) * p->radius * c);
    if (std::fabs(d) > kPi + 1e-10) return GDT_PROJ_POLE;
    *lon = gdt_normal_pi(d + p->centre_merid);
    return GDT_PROJ_OK;
}

}  // namespace

int gdt_mollweid_install()
{
    Mollweide &b = proto;
    const gdt_proj_par pars[] = {{"false_east", &b.false_east, "d"},
                                 {"false_north", &b.false_north, "d"},
                                 {"centre_merid", &b.centre_merid, "d"},
                                 {"spheroid.radius", &b.radius, "d"},
                                 {".long_cut", &b.long_cut, "d"}};
    return gdt_proj_install("mollweid", &proto, sizeof proto, pars, init, forward, backward, 1);
}
