/*
 * proj_labordom.cpp: Laborde's projection of the grid of Madagascar. The
 * ellipsoid is mapped conformally onto a sphere of radius sqrt(rho0 nu0)
 * (scaled by `scale_factor`) that touches it at the origin's latitude; the
 * sphere by a Gauss-Schreiber transverse development about the origin's
 * meridian, written as series in the longitude; and the plane is turned
 * towards the grid's azimuth `true_bearing` by a complex cubic correction.
 * Backward uses the generic Newton solver. `tissot_ind` is read with the
 * other parameters but does not enter the published formulas.
 */
#include <cmath>

#include "gdt_proj_internal.h"

namespace {

constexpr double kPi = 3.14159265358979323846;

struct Labordom {
    double false_east, false_north, scale_factor, origin_lat, origin_long, true_bearing, tissot_ind;
    double radius, eccentricity, long_cut;
    /* derived */
    double k_rg, p0s, a, c, ca, cb;
};

Labordom proto;

int init(void *block)
{
    auto *p = static_cast<Labordom *>(block);
    p->long_cut = p->origin_long - kPi;
    double e = p->eccentricity, e2 = e * e;
    if (!(p->radius > 0) || !(p->scale_factor > 0) || std::fabs(p->origin_lat) >= kPi / 2)
        return -1;
    double sinp = std::sin(p->origin_lat), t = 1 - e2 * sinp * sinp;
    double n = 1 / std::sqrt(t), r = (1 - e2) * n / t;
    p->k_rg = p->scale_factor * p->radius * std::sqrt(n * r);
    p->p0s = std::atan(std::sqrt(r / n) * std::tan(p->origin_lat));
    p->a = std::fabs(p->origin_lat) < 1e-12 ? 1 / std::sqrt(1 - e2) : sinp / std::sin(p->p0s);
    double es = e * sinp;
    p->c = 0.5 * e * p->a * std::log((1 + es) / (1 - es)) -
           p->a * std::log(std::tan(kPi / 4 + 0.5 * p->origin_lat)) +
           std::log(std::tan(kPi / 4 + 0.5 * p->p0s));
    double twice = 2 * p->true_bearing;
    double cb = 1 / (12 * p->k_rg * p->k_rg);
    p->ca = (1 - std::cos(twice)) * cb;
    p->cb = std::sin(twice) * cb;
    return 0;
}

int forward(void *block, double lon, double lat, double *x, double *y)
{
    const auto *p = static_cast<const Labordom *>(block);
    if (std::fabs(lat) >= kPi / 2 - 1e-10) return GDT_PROJ_POLE;
    double lam = gdt_normal_pi(lon - p->origin_long);
    double es = p->eccentricity * std::sin(lat);
    double v1 = p->a * std::log(std::tan(kPi / 4 + 0.5 * lat));
    double v2 = 0.5 * p->eccentricity * p->a * std::log((1 + es) / (1 - es));
    double ps = 2 * (std::atan(std::exp(v1 - v2 + p->c)) - kPi / 4);
    double i1 = ps - p->p0s;
    double cosps = std::cos(ps), cos2 = cosps * cosps;
    double sinps = std::sin(ps), sin2 = sinps * sinps;
    double a2 = p->a * p->a;
    double i4 = p->a * cosps;
    double i2 = 0.5 * p->a * i4 * sinps;
    double i3 = i2 * a2 * (5 * cos2 - sin2) / 12;
    double i6 = i4 * a2;
    double i5 = i6 * (cos2 - sin2) / 6;
    i6 *= a2 * (5 * cos2 * cos2 + sin2 * (sin2 - 18 * cos2)) / 120;
    double t = lam * lam;
    double xx = p->k_rg * lam * (i4 + t * (i5 + t * i6));
    double yy = p->k_rg * (i1 + t * (i2 + t * i3));
    // The turn towards the azimuth: a cubic in the complex plane.
    double x2 = xx * xx, y2 = yy * yy;
    double w1 = 3 * xx * y2 - xx * x2, w2 = yy * y2 - 3 * x2 * yy;
    *x = xx + p->ca * w1 + p->cb * w2 + p->false_east;
    *y = yy + p->ca * w2 - p->cb * w1 + p->false_north;
    return GDT_PROJ_OK;
}

int backward(void *block, double x, double y, double *lon, double *lat)
{
    auto *p = static_cast<Labordom *>(block);
    *lon = p->origin_long + (x - p->false_east) / p->k_rg;
    *lat = p->origin_lat + (y - p->false_north) / p->k_rg;
    int status = gdt_generic_newton(forward, p, x, y, lon, lat);
    if (status != 0) return status;
    *lon = gdt_normal_pi(*lon);
    return GDT_PROJ_OK;
}

}  // namespace

int gdt_labordom_install()
{
    Labordom &b = proto;
    const gdt_proj_par pars[] = {{"false_east", &b.false_east, "d"},
                                 {"false_north", &b.false_north, "d"},
                                 {"scale_factor", &b.scale_factor, "d"},
                                 {"origin_lat", &b.origin_lat, "d"},
                                 {"origin_long", &b.origin_long, "d"},
                                 {"true_bearing", &b.true_bearing, "d"},
                                 {"tissot_ind", &b.tissot_ind, "d"},
                                 {"spheroid.radius", &b.radius, "d"},
                                 {"spheroid.eccentricity", &b.eccentricity, "d"},
                                 {".long_cut", &b.long_cut, "d"}};
    return gdt_proj_install("labordom", &proto, sizeof proto, pars, init, forward, backward, 3);
}
