/*
 * proj_modpol.cpp: the modified polyconic of the sheets of the International
 * Map of the World. Two parallels of the sheet are true to scale and drawn as
 * circles of the regular polyconic; the meridians 2 degrees either side of
 * the centre (4 degrees from 60 and 8 degrees from 76 degrees of latitude) are
 * true to scale and straight; every other parallel is a circle whose centre
 * and radius follow linearly from the meridian distance, and every meridian
 * meets it where the straight line between its points on the two true
 * parallels does. The grid's origin is the centre (`centre_merid`,
 * `centre_lat`); there are no false offsets. Backward is a secant iteration
 * on both axes, at most 400 rounds to 0.0001 units.
 */
#include <cmath>

#include "gdt_proj_internal.h"

namespace {

constexpr double kPi = 3.14159265358979323846;

struct Modpol {
    double centre_merid, centre_lat, first_paral, second_paral;
    double radius, eccentricity, long_cut;
    /* derived, in units of the radius */
    double phi1, phi2, lam1, e2;
    double m_first;
    gdt_series4 meridian;
    bool zero1, zero2; /* a true parallel on the equator is a straight line */
    double s1, r1, s2, r2;
    double c2, pa, qa, pb, qb; /* the line of centres: y = pa + qa m, x = pb + qb m */
    double y0;                 /* northing of the centre */
};

Modpol proto;

double meridian_distance(const Modpol *p, double phi)
{
    return gdt_snyder_eqn_3_21(phi, p->m_first, &p->meridian);
}

/* The polyconic circle of a true parallel: sine, radius, and its point on
 * the true meridian. */
void true_parallel(const Modpol *p, double phi, double *s, double *r, double *x, double *y)
{
    *s = std::sin(phi);
    *r = 1 / (std::tan(phi) * std::sqrt(1 - p->e2 * *s * *s));
    double f = p->lam1 * *s;
    *y = *r * (1 - std::cos(f));
    *x = *r * std::sin(f);
}

/* Point (x, y) in units of the radius, with y from the first parallel; yc
 * gets the northing of the meridian on the first parallel. */
void locate(const Modpol *p, double lam, double phi, double *x, double *y, double *yc)
{
    double m = meridian_distance(p, phi);
    double xa = p->pb + p->qb * m, ya = p->pa + p->qa * m;
    double xb, yb, xc;
    if (p->zero2) {
        xb = lam;
        yb = p->c2;
    } else {
        double t = lam * p->s2;
        xb = p->r2 * std::sin(t);
        yb = p->c2 + p->r2 * (1 - std::cos(t));
    }
    if (p->zero1) {
        xc = lam;
        *yc = 0;
    } else {
        double t = lam * p->s1;
        xc = p->r1 * std::sin(t);
        *yc = p->r1 * (1 - std::cos(t));
    }
    double d = (xb - xc) / (yb - *yc);
    if (std::fabs(phi) < 1e-9) {
        // The equator is the straight line at the centre's height.
        *y = ya;
        *x = xc + d * (ya - *yc);
        return;
    }
    double s = std::sin(phi);
    double r = 1 / (std::tan(phi) * std::sqrt(1 - p->e2 * s * s));
    // The parallel's circle: centre on the central meridian at c + r, where
    // c is its northing there; written without the cancellation of sqrt(r^2
    // - xa^2) - r.
    double c = ya - xa * xa / (std::copysign(std::sqrt(r * r - xa * xa), r) + r);
    double b = xc + d * (c + r - *yc);
    double root = d * std::sqrt(std::fmax(0, r * r * (1 + d * d) - b * b));
    if (phi > 0) root = -root;
    double xx = (b + root) / (1 + d * d);
    double yy = std::sqrt(std::fmax(0, r * r - xx * xx));
    if (phi > 0) yy = -yy;
    *x = xx;
    *y = yy + c + r;
}

int init(void *block)
{
    auto *p = static_cast<Modpol *>(block);
    p->long_cut = p->centre_merid - kPi;
    if (!(p->radius > 0)) return -1;
    p->phi1 = std::fmin(p->first_paral, p->second_paral);
    p->phi2 = std::fmax(p->first_paral, p->second_paral);
    if (p->phi2 - p->phi1 < 1e-10 || std::fabs(p->phi1 + p->phi2) < 1e-10) return -1;
    if (std::fabs(p->phi1) >= kPi / 2 || std::fabs(p->phi2) >= kPi / 2) return -1;
    double mid = std::fabs(p->phi1 + p->phi2) / 2 * 180 / kPi;
    p->lam1 = (mid <= 60 ? 2 : mid <= 76 ? 4 : 8) * kPi / 180;
    p->e2 = p->eccentricity * p->eccentricity;
    gdt_snyder_init_3_21(p->e2, 1.0, &p->m_first, &p->meridian);
    gdt_proj_factors_35(&p->meridian);
    double x1, y1, x2, t2;
    p->zero1 = p->phi1 == 0;
    p->zero2 = p->phi2 == 0;
    if (p->zero1) {
        x1 = p->lam1;
        y1 = 0;
    } else {
        true_parallel(p, p->phi1, &p->s1, &p->r1, &x1, &y1);
    }
    if (p->zero2) {
        x2 = p->lam1;
        t2 = 0;
    } else {
        true_parallel(p, p->phi2, &p->s2, &p->r2, &x2, &t2);
    }
    double m1 = meridian_distance(p, p->phi1), m2 = meridian_distance(p, p->phi2);
    double t = m2 - m1, s = x2 - x1;
    double y2 = std::sqrt(t * t - s * s) + y1;
    p->c2 = y2 - t2;
    p->pa = (m2 * y1 - m1 * y2) / t;
    p->qa = (y2 - y1) / t;
    p->pb = (m2 * x1 - m1 * x2) / t;
    p->qb = (x2 - x1) / t;
    double x0, yc;
    p->y0 = 0;
    locate(p, 0, p->centre_lat, &x0, &p->y0, &yc);
    return 0;
}

int forward(void *block, double lon, double lat, double *x, double *y)
{
    const auto *p = static_cast<const Modpol *>(block);
    if (std::fabs(lat) >= kPi / 2 - 1e-10) return GDT_PROJ_POLE;
    double xx, yy, yc;
    locate(p, gdt_normal_pi(lon - p->centre_merid), lat, &xx, &yy, &yc);
    *x = p->radius * xx;
    *y = p->radius * (yy - p->y0);
    return GDT_PROJ_OK;
}

int backward(void *block, double x, double y, double *lon, double *lat)
{
    const auto *p = static_cast<const Modpol *>(block);
    double tx = x / p->radius, ty = y / p->radius + p->y0, tol = 0.0001 / p->radius;
    double phi = p->phi2, lam = tx / std::cos(phi);
    for (int round = 0; round < 400; round++) {
        double fx, fy, yc;
        locate(p, lam, phi, &fx, &fy, &yc);
        if (std::fabs(fx - tx) <= tol && std::fabs(fy - ty) <= tol) {
            if (std::fabs(lam) > kPi + 1e-10) return GDT_PROJ_POLE;
            *lat = phi;
            *lon = gdt_normal_pi(lam + p->centre_merid);
            return GDT_PROJ_OK;
        }
        // Secant steps: latitude along the meridian from the first parallel,
        // longitude by the ratio of eastings.
        phi = (phi - p->phi1) * (ty - yc) / (fy - yc) + p->phi1;
        if (fx != 0) lam = lam * tx / fx;
        if (!std::isfinite(phi) || !std::isfinite(lam) || std::fabs(phi) >= kPi / 2)
            return GDT_PROJ_NO_CONVERGENCE;
    }
    return GDT_PROJ_NO_CONVERGENCE;
}

}  // namespace

int gdt_modpol_install()
{
    Modpol &b = proto;
    const gdt_proj_par pars[] = {
        {"centre_merid", &b.centre_merid, "d"}, {"centre_lat", &b.centre_lat, "d"},
        {"first_paral", &b.first_paral, "d"},   {"second_paral", &b.second_paral, "d"},
        {"spheroid.radius", &b.radius, "d"},    {"spheroid.eccentricity", &b.eccentricity, "d"},
        {".long_cut", &b.long_cut, "d"}};
    return gdt_proj_install("modpol", &proto, sizeof proto, pars, init, forward, backward, 0);
}
