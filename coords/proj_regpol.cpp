/*
 * proj_regpol.cpp: the regular (American) polyconic projection, on the
 * ellipsoid (Snyder 18-1 to 18-3, with the meridian distance of 3-21) and the
 * sphere. Backward solves Snyder's 18-21 (18-9 on the sphere) by Newton's
 * method, 100 rounds to 1e-12.
 */
#include <cmath>

#include "gdt_proj_internal.h"

namespace {

constexpr double kPi = 3.14159265358979323846;

struct Regpol {
    double false_east, false_north, scale_factor, centre_merid, centre_lat;
    double radius, eccentricity, long_cut;
    /* derived */
    double a, e2, m_first, m0;
    gdt_series4 meridian;
};

Regpol proto;

int init(void *block)
{
    auto *p = static_cast<Regpol *>(block);
    p->long_cut = p->centre_merid - kPi;
    p->a = p->radius * p->scale_factor;
    p->e2 = p->eccentricity * p->eccentricity;
    gdt_snyder_init_3_21(p->e2, p->a, &p->m_first, &p->meridian);
    gdt_proj_factors_35(&p->meridian);
    p->m0 = gdt_snyder_eqn_3_21(p->centre_lat, p->m_first, &p->meridian);
    return p->a > 0 ? 0 : -1;
}

int forward(void *block, double lon, double lat, double *x, double *y)
{
    const auto *p = static_cast<const Regpol *>(block);
    double d = gdt_normal_pi(lon - p->centre_merid);
    double m = gdt_snyder_eqn_3_21(lat, p->m_first, &p->meridian);
    if (std::fabs(lat) < 1e-12) {
        *x = p->a * d + p->false_east;
        *y = -p->m0 + p->false_north;
        return GDT_PROJ_OK;
    }
    double s = std::sin(lat);
    double n_cot = p->a / std::sqrt(1 - p->e2 * s * s) / std::tan(lat);
    double e = d * s;
    *x = n_cot * std::sin(e) + p->false_east;
    *y = m - p->m0 + n_cot * (1 - std::cos(e)) + p->false_north;
    return GDT_PROJ_OK;
}

int backward(void *block, double x, double y, double *lon, double *lat)
{
    const auto *p = static_cast<const Regpol *>(block);
    x = (x - p->false_east) / p->a;
    y = (y - p->false_north + p->m0) / p->a;
    if (std::fabs(y) < 1e-12) {
        *lat = 0;
        *lon = gdt_normal_pi(x + p->centre_merid);
        return GDT_PROJ_OK;
    }
    double b = x * x + y * y, phi = y;
    double e2 = p->e2;
    int round = 0;
    for (; round < 100; round++) {
        double s = std::sin(phi), c = std::cos(phi), t = std::tan(phi);
        double w = 1 - e2 * s * s;
        double cc = std::sqrt(w) * t;
        double ma = gdt_snyder_eqn_3_21(phi, p->m_first, &p->meridian) / p->a;
        // dM/dphi divided by a: the meridian's radius of curvature.
        double mn = (1 - e2) / (w * std::sqrt(w));
        double num = y * (cc * ma + 1) - ma - 0.5 * (ma * ma + b) * cc;
        double den = e2 * 2 * s * c * (ma * ma + b - 2 * y * ma) / (4 * cc) +
                     (y - ma) * (cc * mn - 2 / (2 * s * c)) - mn;
        double step = num / den;
        phi -= step;
        if (std::fabs(step) < 1e-12) break;
    }
    if (round == 100) return GDT_PROJ_NO_CONVERGENCE;
    double s = std::sin(phi);
    double cc = std::sqrt(1 - e2 * s * s) * std::tan(phi);
    *lat = phi;
    *lon = gdt_normal_pi(gdt_asin(x * cc) / s + p->centre_merid);
    return GDT_PROJ_OK;
}

}  // namespace

int gdt_regpol_install()
{
    Regpol &b = proto;
    const gdt_proj_par pars[] = {{"false_east", &b.false_east, "d"},
                                 {"false_north", &b.false_north, "d"},
                                 {"scale_factor", &b.scale_factor, "d"},
                                 {"centre_merid", &b.centre_merid, "d"},
                                 {"centre_lat", &b.centre_lat, "d"},
                                 {"spheroid.radius", &b.radius, "d"},
                                 {"spheroid.eccentricity", &b.eccentricity, "d"},
                                 {".long_cut", &b.long_cut, "d"}};
    return gdt_proj_install("regpol", &proto, sizeof proto, pars, init, forward, backward, 0);
}
