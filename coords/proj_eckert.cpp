/*
 * proj_eckert.cpp: Eckert IV and Eckert VI, the two equal-area world maps of
 * Eckert's series, on the sphere of the datum's radius (Snyder's equations
 * for them). Each solves its auxiliary angle by Newton's method, 100 rounds
 * to 1e-12; the two share the block and differ in their equations.
 */
#include <cmath>

#include "gdt_proj_internal.h"

namespace {

constexpr double kPi = 3.14159265358979323846;

struct Eckert {
    double false_east, false_north, centre_merid;
    double radius, long_cut;
};

Eckert proto;

int init(void *block)
{
    auto *p = static_cast<Eckert *>(block);
    p->long_cut = p->centre_merid - kPi;
    return p->radius > 0 ? 0 : -1;
}

/* Solves f(t) = target from `start` by Newton's method: 0 or -2. */
template <typename F, typename D>
int newton(F f, D df, double target, double start, double *t)
{
    double v = start;
    for (int i = 0; i < 100; i++) {
        double step = (target - f(v)) / df(v);
        v += step;
        if (std::fabs(step) < 1e-12) {
            *t = v;
            return 0;
        }
    }
    return GDT_PROJ_NO_CONVERGENCE;
}

/* Eckert IV: t + sin t cos t + 2 sin t = (2 + pi/2) sin(lat). */
int iv_forward(void *block, double lon, double lat, double *x, double *y)
{
    const auto *p = static_cast<const Eckert *>(block);
    double t;
    int status = newton([](double v) { return v + std::sin(v) * std::cos(v) + 2 * std::sin(v); },
                        [](double v) { return 2 * std::cos(v) * (1 + std::cos(v)); },
                        (2 + kPi / 2) * std::sin(lat), lat / 2, &t);
    if (std::fabs(std::fabs(lat) - kPi / 2) <= 1e-10) {
        // The derivative vanishes at the poles, where the answer is pi/2.
        t = lat < 0 ? -kPi / 2 : kPi / 2;
        status = 0;
    }
    if (status) return status;
    double d = gdt_normal_pi(lon - p->centre_merid);
    *x = 2 / std::sqrt(kPi * (4 + kPi)) * p->radius * d * (1 + std::cos(t)) + p->false_east;
    *y = 2 * std::sqrt(kPi / (4 + kPi)) * p->radius * std::sin(t) + p->false_north;
    return GDT_PROJ_OK;
}

int iv_backward(void *block, double x, double y, double *lon, double *lat)
{
    const auto *p = static_cast<const Eckert *>(block);
    double s = (y - p->false_north) / (2 * std::sqrt(kPi / (4 + kPi)) * p->radius);
    if (std::fabs(s) > 1 + 1e-12) return GDT_PROJ_POLE;
    double t = gdt_asin(s);
    *lat = gdt_asin((t + std::sin(t) * std::cos(t) + 2 * std::sin(t)) / (2 + kPi / 2));
    double d =
        (x - p->false_east) / (2 / std::sqrt(kPi * (4 + kPi)) * p->radius * (1 + std::cos(t)));
    if (std::fabs(d) > kPi + 1e-10) return GDT_PROJ_POLE;
    *lon = gdt_normal_pi(d + p->centre_merid);
    return GDT_PROJ_OK;
}

/* Eckert VI: t + sin t = (1 + pi/2) sin(lat). */
int vi_forward(void *block, double lon, double lat, double *x, double *y)
{
    const auto *p = static_cast<const Eckert *>(block);
    double t;
    int status =
        newton([](double v) { return v + std::sin(v); }, [](double v) { return 1 + std::cos(v); },
               (1 + kPi / 2) * std::sin(lat), lat, &t);
    if (std::fabs(std::fabs(lat) - kPi / 2) <= 1e-10) {
        // At the poles t + sin t = 1 + pi/2 is solved by pi/2 exactly.
        t = lat < 0 ? -kPi / 2 : kPi / 2;
        status = 0;
    }
    if (status) return status;
    double d = gdt_normal_pi(lon - p->centre_merid);
    double k = std::sqrt(2 + kPi);
    *x = p->radius * d * (1 + std::cos(t)) / k + p->false_east;
    *y = 2 * p->radius * t / k + p->false_north;
    return GDT_PROJ_OK;
}

int vi_backward(void *block, double x, double y, double *lon, double *lat)
{
    const auto *p = static_cast<const Eckert *>(block);
    double k = std::sqrt(2 + kPi);
    double t = (y - p->false_north) * k / (2 * p->radius);
    if (std::fabs(t) > kPi / 2 + 1e-12) return GDT_PROJ_POLE;
    *lat = gdt_asin((t + std::sin(t)) / (1 + kPi / 2));
    double d = (x - p->false_east) * k / (p->radius * (1 + std::cos(t)));
    if (std::fabs(d) > kPi + 1e-10) return GDT_PROJ_POLE;
    *lon = gdt_normal_pi(d + p->centre_merid);
    return GDT_PROJ_OK;
}

int install(const char *name, gdt_proj_conv_fn forward, gdt_proj_conv_fn backward, int mode)
{
    Eckert &b = proto;
    const gdt_proj_par pars[] = {{"false_east", &b.false_east, "d"},
                                 {"false_north", &b.false_north, "d"},
                                 {"centre_merid", &b.centre_merid, "d"},
                                 {"spheroid.radius", &b.radius, "d"},
                                 {".long_cut", &b.long_cut, "d"}};
    return gdt_proj_install(name, &proto, sizeof proto, pars, init, forward, backward, mode);
}

}  // namespace

int gdt_eckertiv_install()
{
    return install("eckertiv", iv_forward, iv_backward, 1);
}

int gdt_eckertvi_install()
{
    return install("eckertvi", vi_forward, vi_backward, 0);
}
