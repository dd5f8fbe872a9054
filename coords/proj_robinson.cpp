/*
 * proj_robinson.cpp: Robinson's world projection, on the sphere of the
 * datum's radius. It is defined by its table, not by a formula: for every
 * 5 degrees of latitude the length of the parallel (relative to the equator)
 * and its distance from the equator (relative to the pole's). Between rows
 * both are interpolated by Stirling's formula of second differences, and the
 * table values are scaled by 0.8487 and 1.3523 times the radius. Backward
 * solves the latitude by Newton's method on the interpolated distance.
 */
#include <cmath>

#include "gdt_proj_internal.h"

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kStep = 5 * kPi / 180; /* between rows of the table */
constexpr int kRows = 19;               /* 0 to 90 degrees */
constexpr double kScaleX = 0.8487, kScaleY = 1.3523;

/* The published table: length of the parallel, distance from the equator. */
constexpr double kLength[kRows] = {1.0000, 0.9986, 0.9954, 0.9900, 0.9822, 0.9730, 0.9600,
                                   0.9427, 0.9216, 0.8962, 0.8679, 0.8350, 0.7986, 0.7597,
                                   0.7186, 0.6732, 0.6213, 0.5722, 0.5322};
constexpr double kDistance[kRows] = {0.0000, 0.0620, 0.1240, 0.1860, 0.2480, 0.3100, 0.3720,
                                     0.4340, 0.4958, 0.5571, 0.6176, 0.6769, 0.7346, 0.7903,
                                     0.8435, 0.8936, 0.9394, 0.9761, 1.0000};

struct Robinson {
    double false_east, false_north, centre_merid;
    double radius, long_cut;
};

Robinson proto;

/* A row of the table, continued past the equator by symmetry: the length is
 * even in latitude, the distance odd. */
double row(const double *table, int i, bool odd)
{
    return i >= 0 ? table[i] : (odd ? -table[-i] : table[-i]);
}

/* Stirling's interpolation of a table at the fractional row u (0 to 18),
 * and its derivative in u. The three rows used are centred on the row at or
 * below u (the last but one at the pole's end), so that neighbouring
 * intervals meet at their common row and the map has no seams. */
double stirling(const double *table, bool odd, double u, double *slope)
{
    int i = static_cast<int>(std::floor(u));
    if (i > kRows - 2) i = kRows - 2;
    double p = u - i;
    double before = row(table, i - 1, odd), here = row(table, i, odd),
           after = row(table, i + 1, odd);
    double first = (after - before) / 2, second = after - 2 * here + before;
    if (slope) *slope = first + p * second;
    return here + p * first + p * p / 2 * second;
}

int init(void *block)
{
    auto *p = static_cast<Robinson *>(block);
    p->long_cut = p->centre_merid - kPi;
    return p->radius > 0 ? 0 : -1;
}

int forward(void *block, double lon, double lat, double *x, double *y)
{
    const auto *p = static_cast<const Robinson *>(block);
    double d = gdt_normal_pi(lon - p->centre_merid);
    double u = std::fmin(std::fabs(lat) / kStep, kRows - 1);
    double length = stirling(kLength, false, u, nullptr);
    double distance = stirling(kDistance, true, u, nullptr);
    *x = kScaleX * p->radius * length * d + p->false_east;
    *y = std::copysign(kScaleY * p->radius * distance, lat) + p->false_north;
    return GDT_PROJ_OK;
}

int backward(void *block, double x, double y, double *lon, double *lat)
{
    const auto *p = static_cast<const Robinson *>(block);
    double target = std::fabs(y - p->false_north) / (kScaleY * p->radius);
    if (target > 1 + 1e-12) return GDT_PROJ_POLE;
    double u = target * (kRows - 1);
    int round = 0;
    for (; round < 100; round++) {
        double slope;
        double step = (stirling(kDistance, true, u, &slope) - target) / slope;
        u = std::fmax(0, std::fmin(u - step, kRows - 1));
        if (std::fabs(step) < 1e-7) break;
    }
    if (round == 100) return GDT_PROJ_NO_CONVERGENCE;
    // One more round after the step fell under the bound: Newton's error is
    // then the square of it.
    double slope;
    u -= (stirling(kDistance, true, u, &slope) - target) / slope;
    u = std::fmax(0, std::fmin(u, kRows - 1));
    double length = stirling(kLength, false, u, nullptr);
    double d = (x - p->false_east) / (kScaleX * p->radius * length);
    if (std::fabs(d) > kPi + 1e-10) return GDT_PROJ_POLE;
    *lat = std::copysign(u * kStep, y - p->false_north);
    *lon = gdt_normal_pi(d + p->centre_merid);
    return GDT_PROJ_OK;
}

}  // namespace

int gdt_robinson_install()
{
    Robinson &b = proto;
    const gdt_proj_par pars[] = {{"false_east", &b.false_east, "d"},
                                 {"false_north", &b.false_north, "d"},
                                 {"centre_merid", &b.centre_merid, "d"},
                                 {"spheroid.radius", &b.radius, "d"},
                                 {".long_cut", &b.long_cut, "d"}};
    return gdt_proj_install("robinson", &proto, sizeof proto, pars, init, forward, backward, 1);
}
