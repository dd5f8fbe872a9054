/*
 * proj_grinten.cpp: van der Grinten's first projection, the world in a circle,
 * on the sphere of the datum's radius (Snyder 29-1 to 29-6; within 90 degrees
 * of the central meridian by the meeting of the parallel's and the meridian's
 * circles, which keeps its digits there). Backward is the
 * closed form of Snyder 29-9 to 29-15, a cubic solved by its trigonometric
 * root, polished by the scaled Newton solver where the cubic loses digits
 * (near the equator and the central meridian).
 */
#include <cmath>

#include "gdt_proj_internal.h"

namespace {

constexpr double kPi = 3.14159265358979323846;

struct Grinten {
    double false_east, false_north, centre_merid;
    double radius, long_cut;
    /* derived */
    double tolerance;
};

Grinten proto;

int init(void *block)
{
    auto *p = static_cast<Grinten *>(block);
    p->long_cut = p->centre_merid - kPi;
    p->tolerance = p->radius / 6.378388e9;
    return p->radius > 0 ? 0 : -1;
}

int forward(void *block, double lon, double lat, double *x, double *y)
{
    const auto *p = static_cast<const Grinten *>(block);
    double d = gdt_normal_pi(lon - p->centre_merid);
    double pr = kPi * p->radius;
    double theta = gdt_asin(std::fabs(2 * lat / kPi));
    if (std::fabs(lat) < 1e-12) {
        *x = p->radius * d;
        *y = 0;
    } else if (std::fabs(d) < 1e-12 || std::fabs(std::fabs(lat) - kPi / 2) < 1e-12) {
        *x = 0;
        *y = std::copysign(pr * std::tan(theta / 2), lat);
    } else if (std::fabs(d) <= kPi / 2) {
        // Near the central meridian the closed form cancels digits (its A
        // grows as 1/d). There the point is the meeting of two circles: the
        // parallel's, centred on the central meridian through its points
        // there (pi tan(theta/2)) and on the bounding circle (pi sin(theta)/
        // (2 - sin(theta))); and the meridian's, through the poles and its
        // point on the equator. Their common chord is a line; the point is the
        // small root of a quadratic along it, taken without cancellation.
        double st = std::fabs(2 * lat / kPi);
        double yp = kPi * std::tan(theta / 2), yb = kPi * st / (2 - st);
        double yc = (kPi * kPi - yp * yp) / (2 * (yb - yp));
        double ad = std::fabs(d), s = ad / (ad * ad - kPi * kPi);
        double a = 2 * yc, b = yp * yp - kPi * kPi;
        double qa = s * s * a * a + 1, qb = 2 * s * s * a * b + 2 * (yp - yc), qc = s * s * b * b;
        double root = std::sqrt(std::fmax(0, qb * qb - 4 * qa * qc));
        double u = -2 * qc / (qb + std::copysign(root, qb));
        *x = std::copysign(p->radius * s * (a * u + b), d);
        *y = std::copysign(p->radius * (yp + u), lat);
    } else {
        double a = std::fabs(kPi / d - d / kPi) / 2;
        double st = std::sin(theta), ct = std::cos(theta);
        double g = ct / (st + ct - 1);
        double pp = g * (2 / st - 1);
        double q = a * a + g;
        double p2 = pp * pp, a2 = a * a, gp = g - p2;
        double den = p2 + a2;
        *x = std::copysign(
            pr * (a * gp + std::sqrt(std::fmax(0, a2 * gp * gp - den * (g * g - p2)))) / den, d);
        *y = std::copysign(
            pr * (pp * q - a * std::sqrt(std::fmax(0, (a2 + 1) * den - q * q))) / den, lat);
    }
    *x += p->false_east;
    *y += p->false_north;
    return GDT_PROJ_OK;
}

int backward(void *block, double x, double y, double *lon, double *lat)
{
    auto *p = static_cast<Grinten *>(block);
    double xx = (x - p->false_east) / (kPi * p->radius);
    double yy = (y - p->false_north) / (kPi * p->radius);
    double x2 = xx * xx, y2 = yy * yy, r2 = x2 + y2;
    if (r2 > 1 + 1e-12) return GDT_PROJ_POLE;
    double phi;
    if (std::fabs(yy) < 1e-15) {
        phi = 0;
    } else {
        double c1 = -std::fabs(yy) * (1 + r2);
        double c2 = c1 - 2 * y2 + x2;
        double c3 = -2 * c1 + 1 + 2 * y2 + r2 * r2;
        double d = y2 / c3 + (2 * c2 * c2 * c2 / (c3 * c3 * c3) - 9 * c1 * c2 / (c3 * c3)) / 27;
        double a1 = (c1 - c2 * c2 / (3 * c3)) / c3;
        double m1 = 2 * std::sqrt(-a1 / 3);
        double t1 = gdt_acos(3 * d / (a1 * m1)) / 3;
        phi = std::copysign(kPi * (-m1 * std::cos(t1 + 1.0471975511965976) - c2 / (3 * c3)), yy);
    }
    double lambda = 0;
    if (std::fabs(xx) > 1e-15)
        lambda = kPi * (r2 - 1 + std::sqrt(std::fmax(0, 1 + 2 * (x2 - y2) + r2 * r2))) / (2 * xx);
    *lat = std::fmax(-kPi / 2, std::fmin(kPi / 2, phi));
    *lon = p->centre_merid + lambda;
    // The closed form is exact in theory, but its cubic cancels digits:
    // Newton from its answer restores them. At the poles the longitude is
    // free and the answer is kept.
    if (std::fabs(std::fabs(*lat) - kPi / 2) > 1e-9) {
        double l = *lon, f = *lat;
        if (gdt_scaled_newton(forward, p, x, y, p->tolerance, &l, &f) == 0) {
            *lon = l;
            *lat = f;
        }
    }
    *lon = gdt_normal_pi(*lon);
    return GDT_PROJ_OK;
}

}  // namespace

int gdt_grinten_install()
{
    Grinten &b = proto;
    const gdt_proj_par pars[] = {{"false_east", &b.false_east, "d"},
                                 {"false_north", &b.false_north, "d"},
                                 {"centre_merid", &b.centre_merid, "d"},
                                 {"spheroid.radius", &b.radius, "d"},
                                 {".long_cut", &b.long_cut, "d"}};
    return gdt_proj_install("grinten", &proto, sizeof proto, pars, init, forward, backward, 0);
}
