/*
 * proj_bioconco.cpp: the bipolar oblique conic conformal projection of the
 * Americas, on the sphere (Snyder 17-1 to 17-26). Two oblique conformal cones
 * have their axes through the poles A (20 S, 110 W) and B (45 N, 19 59 36 W),
 * 104 degrees apart; each is true at 31 and 73 degrees from its pole, and
 * the two meet along the great circle 52 degrees from both, where a
 * correction of the radius joins them without a break. The plane is turned so
 * that the line between the poles' images runs as the published map has it.
 * The angles are those of the published construction. Backward finds the
 * distance from each pole by bisection of the corrected radius and keeps the
 * cone whose forward returns to the point.
 */
#include <cmath>
#include <initializer_list>

#include "gdt_proj_internal.h"

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kDeg = kPi / 180;
/* 26, 31, 52 and 73 degrees: half the distance between the poles, the
 * standard circles, and the distance of the seam from each pole. */
constexpr double k26 = 0.4537856055185257, k31 = 0.5410520681182421;
constexpr double k52 = 0.9075712110370514, k73 = 1.2740903539558606;
constexpr double kLatA = -20 * kDeg, kLonA = -110 * kDeg;
constexpr double kLatB = 45 * kDeg, kLonB = -(19 + 59 / 60.0 + 36 / 3600.0) * kDeg;

struct Bioconco {
    double false_east, false_north, centre_merid;
    double radius, long_cut;
    /* derived, on the unit sphere */
    double n, f, t, rho_c, az_ab, az_ba, cos_azc, sin_azc;
};

Bioconco proto;

/* Distance and azimuth of a point as seen from the pole (lat_p, lon_p). */
void from_pole(double lat_p, double lon_p, double lon, double lat, double *z, double *az)
{
    double d = lon_p - lon;
    *z = gdt_acos(std::sin(lat_p) * std::sin(lat) + std::cos(lat_p) * std::cos(lat) * std::cos(d));
    *az =
        std::atan2(std::sin(d) * std::cos(lat),
                   std::cos(lat_p) * std::sin(lat) - std::sin(lat_p) * std::cos(lat) * std::cos(d));
}

/* The plane before it is turned: x', y'. */
int unturned(const Bioconco *p, double lon, double lat, double *x, double *y)
{
    double z, az;
    from_pole(kLatB, kLonB, lon, lat, &z, &az);
    bool from_a = az > p->az_ba;
    double av;
    if (from_a) {
        from_pole(kLatA, kLonA, lon, lat, &z, &az);
        // Azimuths from A run the other way round.
        az = -az;
        av = p->az_ab;
    } else {
        av = p->az_ba;
    }
    if (z < 1e-12) {
        // The pole itself is the cone's apex.
        *x = 0;
        *y = from_a ? p->rho_c : -p->rho_c;
        return GDT_PROJ_OK;
    }
    if (z > 2 * k52 - 1e-12) return GDT_PROJ_POLE;
    double tz = std::pow(std::tan(z / 2), p->n);
    double r = p->f * tz;
    double alpha = gdt_acos((tz + std::pow(std::tan(k52 - z / 2), p->n)) / p->t);
    double theta = p->n * (av - az);
    if (std::fabs(theta) < alpha) r /= std::cos(alpha + (from_a ? theta : -theta));
    *x = r * std::sin(theta);
    *y = from_a ? p->rho_c - r * std::cos(theta) : -p->rho_c + r * std::cos(theta);
    return GDT_PROJ_OK;
}

int init(void *block)
{
    auto *p = static_cast<Bioconco *>(block);
    p->long_cut = p->centre_merid - kPi;
    if (!(p->radius > 0)) return -1;
    p->n = (std::log(std::sin(k31)) - std::log(std::sin(k73))) /
           (std::log(std::tan(k31 / 2)) - std::log(std::tan(k73 / 2)));
    // F0 of the cone true at 31 degrees, scaled by k0 so that the scale at
    // the seam's middle, 52 degrees from both poles, equals that at 31 and 73.
    double f0 = std::sin(k31) / (p->n * std::pow(std::tan(k31 / 2), p->n));
    double k0 = 2 / (1 + p->n * f0 * std::pow(std::tan(k26), p->n) / std::sin(k52));
    p->f = k0 * f0;
    p->t = std::pow(std::tan(k31 / 2), p->n) + std::pow(std::tan(k73 / 2), p->n);
    p->rho_c = p->f * p->t / 2;
    double z;
    from_pole(kLatA, kLonA, kLonB, kLatB, &z, &p->az_ab);
    from_pole(kLatB, kLonB, kLonA, kLatA, &z, &p->az_ba);
    p->az_ab = -p->az_ab;
    // The turn puts north up at C, the point of the seam on the line between
    // the poles, 52 degrees from A: the plane turns by the azimuth there of
    // the line towards B.
    double az_a = p->az_ab; /* azimuth from A towards B, east of north */
    double lat_c = std::asin(std::sin(kLatA) * std::cos(k52) +
                             std::cos(kLatA) * std::sin(k52) * std::cos(az_a));
    double lon_c = kLonA + std::atan2(std::sin(az_a) * std::sin(k52) * std::cos(kLatA),
                                      std::cos(k52) - std::sin(kLatA) * std::sin(lat_c));
    double az_c;
    from_pole(lat_c, lon_c, kLonB, kLatB, &z, &az_c);
    // from_pole counts azimuths west of north.
    p->cos_azc = std::cos(-az_c);
    p->sin_azc = std::sin(-az_c);
    return 0;
}

int forward(void *block, double lon, double lat, double *x, double *y)
{
    const auto *p = static_cast<const Bioconco *>(block);
    double xx, yy;
    int status = unturned(p, gdt_normal_pi(lon - p->centre_merid), lat, &xx, &yy);
    if (status != 0) return status;
    *x = p->radius * (-xx * p->cos_azc - yy * p->sin_azc) + p->false_east;
    *y = p->radius * (-yy * p->cos_azc + xx * p->sin_azc) + p->false_north;
    return GDT_PROJ_OK;
}

/* The radius of the unturned image at distance z from the pole, for the
 * direction theta on the cone: the cone's radius with the seam's correction. */
double corrected_radius(const Bioconco *p, bool from_a, double z, double theta)
{
    double tz = std::pow(std::tan(z / 2), p->n);
    double r = p->f * tz;
    double alpha = gdt_acos((tz + std::pow(std::tan(std::fmax(0, k52 - z / 2)), p->n)) / p->t);
    if (std::fabs(theta) < alpha) r /= std::cos(alpha + (from_a ? theta : -theta));
    return r;
}

/* The point whose unturned image is (x, y) on the cone about A (or B): 0,
 * or 1 when no distance from the pole gives that radius. */
int from_cone(const Bioconco *p, bool from_a, double x, double y, double *lon, double *lat)
{
    double yy = from_a ? p->rho_c - y : y + p->rho_c;
    double rp = std::hypot(x, yy), theta = std::atan2(x, yy);
    // The distance from the pole: bisection, since near the seam the
    // correction makes a fixed-point iteration wander.
    double lo = 0, hi = 2 * k52;
    if (corrected_radius(p, from_a, hi - 1e-12, theta) < rp) return GDT_PROJ_POLE;
    for (int round = 0; round < 200 && hi - lo > 1e-15; round++) {
        double mid = (lo + hi) / 2;
        (corrected_radius(p, from_a, mid, theta) < rp ? lo : hi) = mid;
    }
    double z = (lo + hi) / 2;
    double az = (from_a ? p->az_ab : p->az_ba) - theta / p->n;
    double lat_p = from_a ? kLatA : kLatB, lon_p = from_a ? kLonA : kLonB;
    *lat = gdt_asin(std::sin(lat_p) * std::cos(z) + std::cos(lat_p) * std::sin(z) * std::cos(az));
    double l = std::atan2(std::sin(az) * std::sin(z) * std::cos(lat_p),
                          std::cos(z) - std::sin(lat_p) * std::sin(*lat));
    // Azimuths about A run east of north, about B west of north.
    *lon = from_a ? lon_p + l : lon_p - l;
    return GDT_PROJ_OK;
}

int backward(void *block, double x, double y, double *lon, double *lat)
{
    auto *p = static_cast<Bioconco *>(block);
    double xx = (x - p->false_east) / p->radius, yy = (y - p->false_north) / p->radius;
    // Undo the turn.
    double ux = -xx * p->cos_azc + yy * p->sin_azc, uy = -yy * p->cos_azc - xx * p->sin_azc;
    // The point lies on one of the two cones: the one whose forward comes
    // back to it.
    double best = HUGE_VAL;
    for (bool from_a : {true, false}) {
        double l, f, fx, fy;
        if (from_cone(p, from_a, ux, uy, &l, &f) != 0) continue;
        if (unturned(p, gdt_normal_pi(l), f, &fx, &fy) != 0) continue;
        double miss = std::hypot(fx - ux, fy - uy);
        if (miss < best) {
            best = miss;
            *lon = l;
            *lat = f;
        }
    }
    // Beyond both cones' reach, or on neither: not on the map.
    if (best > 1e-9) return GDT_PROJ_POLE;
    *lon = gdt_normal_pi(*lon + p->centre_merid);
    return GDT_PROJ_OK;
}

}  // namespace

int gdt_bioconco_install()
{
    Bioconco &b = proto;
    const gdt_proj_par pars[] = {{"false_east", &b.false_east, "d"},
                                 {"false_north", &b.false_north, "d"},
                                 {"centre_merid", &b.centre_merid, "d"},
                                 {"spheroid.radius", &b.radius, "d"},
                                 {".long_cut", &b.long_cut, "d"}};
    return gdt_proj_install("bioconco", &proto, sizeof proto, pars, init, forward, backward, 0);
}
