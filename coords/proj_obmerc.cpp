/*
 * proj_obmerc.cpp: Hotine's oblique Mercator on the ellipsoid and the sphere,
 * and the systems built on it. The central line passes through the centre
 * (`origin_lat`, `origin_long`) at the azimuth `azimuth_angl`; the grid is
 * turned back to north by the same angle. Two members differ only in where
 * the grid's origin lies along the central line:
 *
 *   obmerc_b  at the centre itself;
 *   obmerc_c  where the central line crosses the equator of the aposphere
 *             (the natural origin).
 *
 * borneo is the rectified skew orthomorphic grid of Borneo: the centre, the
 * azimuth, the angle of the grid and its offsets are fixed, the scale is read.
 * The constants follow Snyder 9-1 to 9-47 in the arrangement of the national
 * definitions; the latitude comes back from the conformal one by iteration
 * to 1e-12. Points on the infinite line return 2.
 */
#include <cmath>

#include "gdt_proj_internal.h"

namespace {

constexpr double kPi = 3.14159265358979323846;

/* What forward and backward need, filled by hotine_setup. */
struct Hotine {
    double e, a_const, b_const, h, gamma0, lambda0, uc, sin_g0, cos_g0, sin_gc, cos_gc;
    double fe, fn;
    int centred;
};

double hotine_t(double phi, double e)
{
    double es = e * std::sin(phi);
    return std::tan(kPi / 4 - phi / 2) / std::pow((1 - es) / (1 + es), e / 2);
}

/* The constants of the central line through (lat_c, lon_c) at azimuth alpha,
 * the grid turned by gamma: 0, or -1 when no such line exists. */
int hotine_setup(Hotine *o, double a, double e, double k, double lat_c, double lon_c, double alpha,
                 double gamma, double fe, double fn, int centred)
{
    if (!(a > 0) || !(k > 0) || std::fabs(lat_c) >= kPi / 2 - 1e-10) return -1;
    double e2 = e * e, s = std::sin(lat_c), c = std::cos(lat_c);
    o->e = e;
    o->b_const = std::sqrt(1 + e2 * c * c * c * c / (1 - e2));
    o->a_const = a * o->b_const * k * std::sqrt(1 - e2) / (1 - e2 * s * s);
    double t0 = hotine_t(lat_c, e);
    double d = o->b_const * std::sqrt(1 - e2) / (c * std::sqrt(1 - e2 * s * s));
    double d2 = d < 1 ? 1 : d * d;
    double sign = lat_c < 0 ? -1.0 : 1.0;
    double f = d + std::sqrt(d2 - 1) * sign;
    o->h = f * std::pow(t0, o->b_const);
    double g = (f - 1 / f) / 2;
    double sg0 = std::sin(alpha) / d;
    if (std::fabs(sg0) > 1) return -1;
    o->gamma0 = std::asin(sg0);
    o->lambda0 =
        lon_c - std::asin(std::fmax(-1, std::fmin(1, g * std::tan(o->gamma0)))) / o->b_const;
    if (std::fabs(std::cos(alpha)) < 1e-12)
        o->uc = o->a_const * (lon_c - o->lambda0);
    else
        o->uc = o->a_const / o->b_const * std::atan(std::sqrt(d2 - 1) / std::cos(alpha)) * sign;
    o->sin_g0 = std::sin(o->gamma0);
    o->cos_g0 = std::cos(o->gamma0);
    o->sin_gc = std::sin(gamma);
    o->cos_gc = std::cos(gamma);
    o->fe = fe;
    o->fn = fn;
    o->centred = centred;
    return 0;
}

int hotine_forward(const Hotine *o, double lon, double lat, double *x, double *y)
{
    double bl = o->b_const * gdt_normal_pi(lon - o->lambda0);
    double v, u;
    if (std::fabs(std::fabs(lat) - kPi / 2) < 1e-12) {
        // At a pole Q grows without bound: U tends to sin(gamma0) with the
        // pole's sign, and u to a quarter of the aposphere's circle.
        double uu = lat > 0 ? o->sin_g0 : -o->sin_g0;
        v = o->a_const * std::log((1 - uu) / (1 + uu)) / (2 * o->b_const);
        u = o->a_const / o->b_const * (lat > 0 ? kPi / 2 : -kPi / 2);
    } else {
        double q = o->h / std::pow(hotine_t(lat, o->e), o->b_const);
        double s = (q - 1 / q) / 2, t = (q + 1 / q) / 2;
        double vv = std::sin(bl);
        double uu = (-vv * o->cos_g0 + s * o->sin_g0) / t;
        if (std::fabs(std::fabs(uu) - 1) < 1e-10) return GDT_PROJ_INFINITE;
        v = o->a_const * std::log((1 - uu) / (1 + uu)) / (2 * o->b_const);
        u = o->a_const / o->b_const * std::atan2(s * o->cos_g0 + vv * o->sin_g0, std::cos(bl));
    }
    if (o->centred) u -= o->uc;
    *x = v * o->cos_gc + u * o->sin_gc + o->fe;
    *y = u * o->cos_gc - v * o->sin_gc + o->fn;
    return GDT_PROJ_OK;
}

int hotine_backward(const Hotine *o, double x, double y, double *lon, double *lat)
{
    x -= o->fe;
    y -= o->fn;
    double v = x * o->cos_gc - y * o->sin_gc;
    double u = y * o->cos_gc + x * o->sin_gc;
    if (o->centred) u += o->uc;
    double q = std::exp(-o->b_const * v / o->a_const);
    double s = (q - 1 / q) / 2, t = (q + 1 / q) / 2;
    double vv = std::sin(o->b_const * u / o->a_const);
    double uu = (vv * o->cos_g0 + s * o->sin_g0) / t;
    if (std::fabs(std::fabs(uu) - 1) < 1e-10) {
        *lat = uu > 0 ? kPi / 2 : -kPi / 2;
        *lon = o->lambda0;
        return GDT_PROJ_OK;
    }
    double tt = std::pow(o->h / std::sqrt((1 + uu) / (1 - uu)), 1 / o->b_const);
    double e = o->e, phi = kPi / 2 - 2 * std::atan(tt);
    int round = 0;
    for (; round < 100; round++) {
        double es = e * std::sin(phi);
        double next = kPi / 2 - 2 * std::atan(tt * std::pow((1 - es) / (1 + es), e / 2));
        double step = next - phi;
        phi = next;
        if (std::fabs(step) < 1e-12) break;
    }
    if (round == 100) return GDT_PROJ_NO_CONVERGENCE;
    *lat = phi;
    *lon = gdt_normal_pi(o->lambda0 - std::atan2(s * o->cos_g0 - vv * o->sin_g0,
                                                 std::cos(o->b_const * u / o->a_const)) /
                                          o->b_const);
    return GDT_PROJ_OK;
}

/* The block of obmerc_b and obmerc_c. */
struct Obmerc {
    double false_east, false_north, scale_factor, azimuth_angl, origin_lat, origin_long;
    double radius, eccentricity, long_cut;
    /* derived */
    Hotine hotine;
};

Obmerc proto_b, proto_c;

int init(Obmerc *p, int centred)
{
    p->long_cut = p->origin_long - kPi;
    return hotine_setup(&p->hotine, p->radius, p->eccentricity, p->scale_factor, p->origin_lat,
                        p->origin_long, p->azimuth_angl, p->azimuth_angl, p->false_east,
                        p->false_north, centred);
}

int init_b(void *block)
{
    return init(static_cast<Obmerc *>(block), 1);
}

int init_c(void *block)
{
    return init(static_cast<Obmerc *>(block), 0);
}

int forward(void *block, double lon, double lat, double *x, double *y)
{
    return hotine_forward(&static_cast<const Obmerc *>(block)->hotine, lon, lat, x, y);
}

int backward(void *block, double x, double y, double *lon, double *lat)
{
    return hotine_backward(&static_cast<const Obmerc *>(block)->hotine, x, y, lon, lat);
}

int install(const char *name, Obmerc &b, gdt_proj_init_fn init_fn)
{
    const gdt_proj_par pars[] = {
        {"false_east", &b.false_east, "d"},     {"false_north", &b.false_north, "d"},
        {"scale_factor", &b.scale_factor, "d"}, {"azimuth_angl", &b.azimuth_angl, "d"},
        {"origin_lat", &b.origin_lat, "d"},     {"origin_long", &b.origin_long, "d"},
        {"spheroid.radius", &b.radius, "d"},    {"spheroid.eccentricity", &b.eccentricity, "d"},
        {".long_cut", &b.long_cut, "d"}};
    return gdt_proj_install(name, &b, sizeof b, pars, init_fn, forward, backward, 0);
}

/* The block of borneo. */
struct Borneo {
    double scale_factor;
    double radius, eccentricity, long_cut;
    /* derived */
    Hotine hotine;
};

Borneo proto_borneo;

constexpr double kArcSecond = 4.84813681109536e-6;
constexpr double kBorneoLat = 0.06981317007977318; /* 4 degrees north */
constexpr double kBorneoLon = 115 * kPi / 180;
/* The azimuth of the central line, 53 18 56.9537, and of the grid, 53 07 48.3685. */
constexpr double kBorneoAzimuth = (53 * 3600 + 18 * 60 + 56.9537) * kArcSecond;
constexpr double kBorneoGrid = (53 * 3600 + 7 * 60 + 48.3685) * kArcSecond;
constexpr double kBorneoEast = 590476.87, kBorneoNorth = 442857.65;

int init_borneo(void *block)
{
    auto *p = static_cast<Borneo *>(block);
    p->long_cut = kBorneoLon - kPi;
    return hotine_setup(&p->hotine, p->radius, p->eccentricity, p->scale_factor, kBorneoLat,
                        kBorneoLon, kBorneoAzimuth, kBorneoGrid, kBorneoEast, kBorneoNorth, 1);
}

int forward_borneo(void *block, double lon, double lat, double *x, double *y)
{
    return hotine_forward(&static_cast<const Borneo *>(block)->hotine, lon, lat, x, y);
}

int backward_borneo(void *block, double x, double y, double *lon, double *lat)
{
    return hotine_backward(&static_cast<const Borneo *>(block)->hotine, x, y, lon, lat);
}

}  // namespace

int gdt_obmerc_b_install()
{
    return install("obmerc_b", proto_b, init_b);
}

int gdt_obmerc_c_install()
{
    return install("obmerc_c", proto_c, init_c);
}

int gdt_borneo_install()
{
    Borneo &b = proto_borneo;
    const gdt_proj_par pars[] = {{"scale_factor", &b.scale_factor, "d"},
                                 {"spheroid.radius", &b.radius, "d"},
                                 {"spheroid.eccentricity", &b.eccentricity, "d"},
                                 {".long_cut", &b.long_cut, "d"}};
    return gdt_proj_install("borneo", &proto_borneo, sizeof proto_borneo, pars, init_borneo,
                            forward_borneo, backward_borneo, 1);
}
