/*
 * proj_azimuted.cpp: the azimuthal equidistant projection: distance and
 * azimuth from the origin are kept. On the sphere the closed forms of
 * Snyder 25-2 to 25-5 and 26-5 to 26-7. On the ellipsoid the polar case is
 * exact through the meridian distance (Snyder 25-16 to 25-18, inverse by the
 * footpoint series); the oblique case takes distance and azimuth of the
 * geodesic from Vincenty's series, iterated to 1e-12 (inverse problem
 * forward, direct problem backward). The origin's antipode returns 4.
 */
#include <cmath>

#include "gdt_proj_internal.h"

namespace {

constexpr double kPi = 3.14159265358979323846;

enum Kind { kSphere, kPolar, kOblique };

struct Azimuted {
    double false_east, false_north, origin_lat, origin_long;
    double radius, eccentricity, long_cut;
    /* derived */
    int kind;
    double sign; /* polar: +1 north, -1 south */
    double sin_lat0, cos_lat0;
    double f, b;           /* flattening, semi-minor axis */
    double u0_sin, u0_cos; /* reduced latitude of the origin */
    double m_first, mp;    /* meridian distance: factor of latitude, to the pole */
    gdt_series4 meridian, footpoint;
};

Azimuted proto;

/* The two coefficients of Vincenty's series in u^2. */
void vincenty_ab(double u2, double *a, double *b)
{
    *a = 1 + u2 / 16384 * (4096 + u2 * (-768 + u2 * (320 - 175 * u2)));
    *b = u2 / 1024 * (256 + u2 * (-128 + u2 * (74 - 47 * u2)));
}

double vincenty_dsigma(double b, double s, double c, double c2m)
{
    return b * s *
           (c2m +
            b / 4 *
                (c * (-1 + 2 * c2m * c2m) - b / 6 * c2m * (-3 + 4 * s * s) * (-3 + 4 * c2m * c2m)));
}

/* Geodesic distance and azimuth from the origin to (lon offset l, lat):
 * 0, or 4 when the iteration does not settle (near the antipode). */
int geodesic_inverse(const Azimuted *p, double l, double lat, double *s, double *azimuth)
{
    double f = p->f;
    double u2a = std::atan((1 - f) * std::tan(lat));
    double su2 = std::sin(u2a), cu2 = std::cos(u2a), su1 = p->u0_sin, cu1 = p->u0_cos;
    double lambda = l, sin_sigma = 0, cos_sigma = 1, sigma = 0, cos2a = 1, c2m = 0, sin_alpha = 0;
    int round = 0;
    for (; round < 200; round++) {
        double sl = std::sin(lambda), cl = std::cos(lambda);
        sin_sigma = std::hypot(cu2 * sl, cu1 * su2 - su1 * cu2 * cl);
        if (sin_sigma == 0) {
            *s = 0;
            *azimuth = 0;
            return GDT_PROJ_OK;
        }
        cos_sigma = su1 * su2 + cu1 * cu2 * cl;
        sigma = std::atan2(sin_sigma, cos_sigma);
        sin_alpha = cu1 * cu2 * sl / sin_sigma;
        cos2a = 1 - sin_alpha * sin_alpha;
        c2m = cos2a != 0 ? cos_sigma - 2 * su1 * su2 / cos2a : 0;
        double c = f / 16 * cos2a * (4 + f * (4 - 3 * cos2a));
        double next =
            l + (1 - c) * f * sin_alpha *
                    (sigma + c * sin_sigma * (c2m + c * cos_sigma * (-1 + 2 * c2m * c2m)));
        double step = next - lambda;
        lambda = next;
        if (std::fabs(step) < 1e-12) break;
    }
    if (round == 200) return GDT_PROJ_ANTIPODE;
    double bb = p->b, u2 = cos2a * (p->radius * p->radius - bb * bb) / (bb * bb), a, b;
    vincenty_ab(u2, &a, &b);
    *s = bb * a * (sigma - vincenty_dsigma(b, sin_sigma, cos_sigma, c2m));
    double sl = std::sin(lambda), cl = std::cos(lambda);
    *azimuth = std::atan2(cu2 * sl, cu1 * su2 - su1 * cu2 * cl);
    return GDT_PROJ_OK;
}

/* The point at distance s and azimuth from the origin: its longitude offset
 * and latitude. */
void geodesic_direct(const Azimuted *p, double s, double azimuth, double *l, double *lat)
{
    double f = p->f, su1 = p->u0_sin, cu1 = p->u0_cos;
    double sa1 = std::sin(azimuth), ca1 = std::cos(azimuth);
    double sigma1 = std::atan2(su1, cu1 * ca1);
    double sin_alpha = cu1 * sa1, cos2a = 1 - sin_alpha * sin_alpha;
    double bb = p->b, u2 = cos2a * (p->radius * p->radius - bb * bb) / (bb * bb), a, b;
    vincenty_ab(u2, &a, &b);
    double sigma = s / (bb * a), c2m = 0, ss = 0, cs = 1;
    for (int round = 0; round < 200; round++) {
        c2m = std::cos(2 * sigma1 + sigma);
        ss = std::sin(sigma);
        cs = std::cos(sigma);
        double next = s / (bb * a) + vincenty_dsigma(b, ss, cs, c2m);
        double step = next - sigma;
        sigma = next;
        if (std::fabs(step) < 1e-12) break;
    }
    c2m = std::cos(2 * sigma1 + sigma);
    ss = std::sin(sigma);
    cs = std::cos(sigma);
    double t = su1 * ss - cu1 * cs * ca1;
    *lat = std::atan2(su1 * cs + cu1 * ss * ca1, (1 - f) * std::hypot(sin_alpha, t));
    double lambda = std::atan2(ss * sa1, cu1 * cs - su1 * ss * ca1);
    double c = f / 16 * cos2a * (4 + f * (4 - 3 * cos2a));
    *l =
        lambda - (1 - c) * f * sin_alpha * (sigma + c * ss * (c2m + c * cs * (-1 + 2 * c2m * c2m)));
}

int init(void *block)
{
    auto *p = static_cast<Azimuted *>(block);
    p->long_cut = p->origin_long - kPi;
    if (!(p->radius > 0) || std::fabs(p->origin_lat) > kPi / 2 + 1e-12) return -1;
    double e = p->eccentricity, e2 = e * e;
    p->sin_lat0 = std::sin(p->origin_lat);
    p->cos_lat0 = std::cos(p->origin_lat);
    if (e < kGdtSphereEcc) {
        p->kind = kSphere;
        return 0;
    }
    if (std::fabs(std::fabs(p->origin_lat) - kPi / 2) < 1e-12) {
        p->kind = kPolar;
        p->sign = p->origin_lat > 0 ? 1.0 : -1.0;
        gdt_snyder_init_3_21(e2, p->radius, &p->m_first, &p->meridian);
        gdt_proj_factors_35(&p->meridian);
        p->mp = gdt_snyder_eqn_3_21(kPi / 2, p->m_first, &p->meridian);
        gdt_snyder_init_3_26(gdt_snyder_eqn_3_24(e2), &p->footpoint);
        gdt_proj_factors_35(&p->footpoint);
        return 0;
    }
    p->kind = kOblique;
    p->f = 1 - std::sqrt(1 - e2);
    p->b = p->radius * (1 - p->f);
    double u0 = std::atan((1 - p->f) * std::tan(p->origin_lat));
    p->u0_sin = std::sin(u0);
    p->u0_cos = std::cos(u0);
    return 0;
}

int forward(void *block, double lon, double lat, double *x, double *y)
{
    const auto *p = static_cast<const Azimuted *>(block);
    double d = gdt_normal_pi(lon - p->origin_long);
    double xx, yy;
    if (p->kind == kSphere) {
        double cd = std::cos(d), sl = std::sin(lat), cl = std::cos(lat);
        double cos_c = p->sin_lat0 * sl + p->cos_lat0 * cl * cd;
        if (cos_c < -1 + 1e-12) return GDT_PROJ_ANTIPODE;
        double c = gdt_acos(cos_c);
        double k = c < 1e-7 ? 1 : c / std::sin(c);
        xx = p->radius * k * cl * std::sin(d);
        yy = p->radius * k * (p->cos_lat0 * sl - p->sin_lat0 * cl * cd);
    } else if (p->kind == kPolar) {
        if (std::fabs(lat + p->sign * kPi / 2) < 1e-12) return GDT_PROJ_ANTIPODE;
        double rho = p->mp - p->sign * gdt_snyder_eqn_3_21(lat, p->m_first, &p->meridian);
        xx = rho * std::sin(d);
        yy = -p->sign * rho * std::cos(d);
    } else {
        double s, azimuth;
        int status = geodesic_inverse(p, d, lat, &s, &azimuth);
        if (status != 0) return status;
        xx = s * std::sin(azimuth);
        yy = s * std::cos(azimuth);
    }
    *x = xx + p->false_east;
    *y = yy + p->false_north;
    return GDT_PROJ_OK;
}

int backward(void *block, double x, double y, double *lon, double *lat)
{
    const auto *p = static_cast<const Azimuted *>(block);
    x -= p->false_east;
    y -= p->false_north;
    double rho = std::hypot(x, y);
    if (rho < 1e-9) {
        *lon = p->origin_long;
        *lat = p->origin_lat;
        return GDT_PROJ_OK;
    }
    if (p->kind == kSphere) {
        double c = rho / p->radius;
        if (c > kPi + 1e-12) return GDT_PROJ_POLE;
        double sc = std::sin(c), cc = std::cos(c);
        *lat = gdt_asin(cc * p->sin_lat0 + y * sc * p->cos_lat0 / rho);
        *lon = gdt_normal_pi(p->origin_long +
                             std::atan2(x * sc, rho * p->cos_lat0 * cc - y * p->sin_lat0 * sc));
        return GDT_PROJ_OK;
    }
    if (p->kind == kPolar) {
        if (rho > 2 * p->mp + 1e-6) return GDT_PROJ_POLE;
        double m = p->sign * (p->mp - rho);
        double mu = m / p->m_first;
        *lat = gdt_snyder_eqn_3_35(mu, &p->footpoint) + mu;
        *lon = gdt_normal_pi(p->origin_long + std::atan2(x, -p->sign * y));
        return GDT_PROJ_OK;
    }
    double l;
    geodesic_direct(p, rho, std::atan2(x, y), &l, lat);
    *lon = gdt_normal_pi(p->origin_long + l);
    // Past the antipode (at a distance that depends on the azimuth) the
    // geodesic runs on and its point maps elsewhere: not on the map.
    double fx, fy;
    if (forward(block, *lon, *lat, &fx, &fy) != 0 ||
        std::hypot(fx - p->false_east - x, fy - p->false_north - y) > 1e-3)
        return GDT_PROJ_POLE;
    return GDT_PROJ_OK;
}

}  // namespace

int gdt_azimuted_install()
{
    Azimuted &b = proto;
    const gdt_proj_par pars[] = {
        {"false_east", &b.false_east, "d"},  {"false_north", &b.false_north, "d"},
        {"origin_lat", &b.origin_lat, "d"},  {"origin_long", &b.origin_long, "d"},
        {"spheroid.radius", &b.radius, "d"}, {"spheroid.eccentricity", &b.eccentricity, "d"},
        {".long_cut", &b.long_cut, "d"}};
    return gdt_proj_install("azimuted", &proto, sizeof proto, pars, init, forward, backward, 0);
}
