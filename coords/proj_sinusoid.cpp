/*
 * proj_sinusoid.cpp: the sinusoidal projection, on the sphere and on the
 * ellipsoid (Snyder 30-8 and 30-9: parallels at their true length, the
 * meridian distance of 3-21 along the central meridian).
 */
#include <cmath>

#include "gdt_proj_internal.h"

namespace {

constexpr double kPi = 3.14159265358979323846;

struct Sinusoid {
    double false_east, false_north, centre_merid;
    double radius, eccentricity, long_cut;
    /* derived */
    double e2, m_first;
    gdt_series4 meridian, footpoint;
};

Sinusoid proto;

int init(void *block)
{
    auto *p = static_cast<Sinusoid *>(block);
    p->long_cut = p->centre_merid - kPi;
    p->e2 = p->eccentricity * p->eccentricity;
    gdt_snyder_init_3_21(p->e2, p->radius, &p->m_first, &p->meridian);
    gdt_proj_factors_35(&p->meridian);
    gdt_snyder_init_3_26(gdt_snyder_eqn_3_24(p->e2), &p->footpoint);
    gdt_proj_factors_35(&p->footpoint);
    return p->radius > 0 ? 0 : -1;
}

int forward(void *block, double lon, double lat, double *x, double *y)
{
    const auto *p = static_cast<const Sinusoid *>(block);
    double s = std::sin(lat);
    double d = gdt_normal_pi(lon - p->centre_merid);
    *x = p->radius * d * std::cos(lat) / std::sqrt(1 - p->e2 * s * s) + p->false_east;
    *y = gdt_snyder_eqn_3_21(lat, p->m_first, &p->meridian) + p->false_north;
    return GDT_PROJ_OK;
}

int backward(void *block, double x, double y, double *lon, double *lat)
{
    const auto *p = static_cast<const Sinusoid *>(block);
    double mu = (y - p->false_north) / p->m_first;
    double phi = mu + gdt_snyder_eqn_3_35(mu, &p->footpoint);
    if (std::fabs(phi) > kPi / 2 + 1e-10) return GDT_PROJ_POLE;
    *lat = phi;
    if (std::fabs(std::fabs(phi) - kPi / 2) < 1e-10) {
        *lon = p->centre_merid;
        return GDT_PROJ_OK;
    }
    double s = std::sin(phi);
    double d = (x - p->false_east) * std::sqrt(1 - p->e2 * s * s) / (p->radius * std::cos(phi));
    if (std::fabs(d) > kPi + 1e-10) return GDT_PROJ_POLE;
    *lon = gdt_normal_pi(d + p->centre_merid);
    return GDT_PROJ_OK;
}

}  // namespace

int gdt_sinusoid_install()
{
    Sinusoid &b = proto;
    const gdt_proj_par pars[] = {{"false_east", &b.false_east, "d"},
                                 {"false_north", &b.false_north, "d"},
                                 {"centre_merid", &b.centre_merid, "d"},
                                 {"spheroid.radius", &b.radius, "d"},
                                 {"spheroid.eccentricity", &b.eccentricity, "d"},
                                 {".long_cut", &b.long_cut, "d"}};
    return gdt_proj_install("sinusoid", &proto, sizeof proto, pars, init, forward, backward, 2);
}
