/*
 * vln_node_shade.cpp: the shading nodes FN_SHADE, FN_RTSHADE and
 * FN_RTSHADE16, window nodes of 3 by 3 cells over a height line.
 *
 * All three take the surface's direction at a cell from its four neighbours
 * in the cross: gx is east less west, gy north (the row above) less south,
 * and the normal is (-gx, -gy, 3) made unit, the 3 being a fixed vertical
 * exaggeration; heights aren't scaled by the cell size. FN_SHADE lights the
 * surface with a fixed sun. The real-time forms record the direction itself,
 * as levels of azimuth and elevation, so that a display can move the sun by
 * changing its palette: FN_RTSHADE as an index of a grid of levels laid into
 * the free entries of a 256-colour palette, FN_RTSHADE16 as one byte of
 * elevation and one of azimuth.
 */
#include <algorithm>
#include <cmath>

#include "vln_kernel_internal.h"

using namespace vln_pe;
using vln_kernel::Window;

namespace {

constexpr double kPi = 3.141592653589793;
constexpr double kTwoPi = 6.283185307179586;
constexpr double kHalfPi = 1.5707963267948966;
constexpr double kThreeHalvesPi = 4.71238898038469;
/* 255 / (2 pi) and 255 / (pi / 2): a full turn of azimuth, a quarter turn of
 * elevation onto the levels 0 to 255. */
constexpr double kAzimuthScale = 40.58451048843331;
constexpr double kElevationScale = 162.33804195373324;

struct Shade {
    uint8_t colour_map[256];
    int azimuth_levels;
    int elevation_levels;
    int in_cell_size, out_cell_size;
    double sun_vector[3];
    int byte_order;
};

const Shade *shade_of(const Window *w)
{
    return static_cast<const Shade *>(w->kind);
}

/* Truncation of a level; a height that isn't a number (or is infinite)
 * makes no direction, and its levels are 0. */
inline int level(double value)
{
    return value == value ? static_cast<int>(value) : 0;
}

/* The unit normal of the surface at a cell, and its gradients. */
struct Normal {
    double gx, gy;
    double x, y, z;
};

inline Normal normal_at(const double *top, const double *middle, const double *bottom, int x)
{
    Normal n;
    n.gx = middle[x + 1] - middle[x - 1];
    n.gy = top[x] - bottom[x];
    const double length = std::sqrt(n.gx * n.gx + n.gy * n.gy + 9.0);
    n.x = -n.gx / length;
    n.y = -n.gy / length;
    n.z = 3.0 / length;
    return n;
}

/* The direction of the slope, from east counterclockwise, in [0, 2 pi).
 * Without an east-west gradient the direction is fixed, and atan2 isn't
 * called. */
inline double azimuth_of(const Normal &n)
{
    double a;
    if (n.gx != 0.0)
        a = std::atan2(n.y, n.x);
    else if (n.gy == 0.0)
        a = 0.0;
    else if (n.gy > 0.0)
        a = kThreeHalvesPi;
    else
        a = kHalfPi;
    return a;
}

/* ---------------------------------------------------------------- sun shading */

/* A geographic direction (azimuth clockwise from north, elevation above the
 * horizon) as a geometric one: angle counterclockwise from east, elevation. */
void geog_az_el_to_geom(double azimuth, double elevation, double *theta, double *phi)
{
    *theta = kHalfPi - azimuth;
    *phi = elevation;
}

/* The unit vector of a direction: x east, y north, z up. */
void polar3d_to_vector3d(double theta, double phi, double *v)
{
    v[0] = std::cos(phi) * std::cos(theta);
    v[1] = std::cos(phi) * std::sin(theta);
    v[2] = std::sin(phi);
}

void shade_cells(const Window *w, int first, int last, const double *const *rows, void *out_line)
{
    const double *sun = shade_of(w)->sun_vector;
    const double sx = sun[0], sy = sun[1], sz = sun[2];
    auto *out = static_cast<uint8_t *>(out_line);
    for (int x = first; x <= last; x++) {
        const Normal n = normal_at(rows[0], rows[1], rows[2], x);
        const double d = n.x * sx + n.y * sy + n.z * sz;
        out[x] = d >= 0.0 ? static_cast<uint8_t>(std::min(d * 256.0, 255.0)) : 0;
    }
}

/* ---------------------------------------------------------------- real-time shading, 8 bits */

void rtshade_cells(const Window *w, int first, int last, const double *const *rows, void *out_line)
{
    const Shade *s = shade_of(w);
    const int elevation_levels = s->elevation_levels;
    const int azimuth_levels = s->azimuth_levels;
    auto *out = static_cast<uint8_t *>(out_line);
    for (int x = first; x <= last; x++) {
        const Normal n = normal_at(rows[0], rows[1], rows[2], x);
        double a = azimuth_of(n);
        // The arcsine of z by its series, which saves a call per cell.
        const double z = n.z, q = z * z;
        double e = (((0.1190476 * q + 0.2) * q * 0.75 + 0.3333333) * q * 0.5 + 1.0) * z;
        if (e < 0.0) {
            e = -e;
            a += kPi;
        }
        if (a < 0.0) a += kTwoPi;
        const int column = level((elevation_levels - 1) * a / kTwoPi);
        const int row = level((e + e) * (azimuth_levels - 1) / kPi);
        out[x] = s->colour_map[(row * elevation_levels + column) % 256];
    }
}

/* The palette entries of the level grid: entry i of the grid is palette
 * index i moved past the reserved colours at or below it. */
void setup_colour_map(Shade *s, int nr_reserved, const uint8_t *reserved)
{
    uint8_t sorted[256];
    const int n = std::clamp(nr_reserved, 0, 256);
    if (n > 0 && reserved != nullptr) std::copy(reserved, reserved + n, sorted);
    const int count = reserved != nullptr ? n : 0;
    std::sort(sorted, sorted + count);
    for (int i = 0; i < 256; i++) {
        int offset = 0;
        for (int r = 0; r < count; r++)
            if (sorted[r] <= i + offset) offset++;
        s->colour_map[i] = static_cast<uint8_t>(i + offset);
    }
    const int free_colours = 256 - count;
    s->azimuth_levels = static_cast<int>(std::sqrt(free_colours / 4));
    // Fewer than four free colours leave one level, never a division by 0.
    if (s->azimuth_levels < 1) s->azimuth_levels = 1;
    s->elevation_levels = free_colours / s->azimuth_levels;
}

/* ---------------------------------------------------------------- real-time shading, 16 bits */

/* The cell holds the elevation level in its first byte in memory and the
 * azimuth level in its second, on either byte order. The levels are worked
 * out in the truncating rounding mode. */
void rtshade16_cells(const Window *, int first, int last, const double *const *rows, void *out_line)
{
    TruncatingRounding truncating;
    auto *out = static_cast<uint8_t *>(out_line);
    for (int x = first; x <= last; x++) {
        const Normal n = normal_at(rows[0], rows[1], rows[2], x);
        double a = azimuth_of(n);
        double e = std::asin(n.z);
        if (e < 0.0) {
            e = -e;
            a += kPi;
        }
        if (a < 0.0) a += kTwoPi;
        out[2 * x] = static_cast<uint8_t>(level(e * kElevationScale));
        out[2 * x + 1] = static_cast<uint8_t>(level(a * kAzimuthScale));
    }
}

Shade *add_shade_stage(funcnode **slot, pe_context *pe, int type, int nr_cells, int out_type,
                       vln_kernel::CellRoutine routine)
{
    Window *w = vln_kernel::add_window_stage(slot, pe, type, nr_cells, 3, 3, out_type, routine);
    auto *s = static_cast<Shade *>(pe_malloc(pe, sizeof(Shade)));
    s->out_cell_size = celltypesize(out_type);
    s->in_cell_size = 8;
    s->byte_order = byteorder();
    w->kind = s;
    return s;
}

}  // namespace

namespace vln_pe {
extern const NodeOps shade_ops;
/* The three shading kinds differ only in their cell routine and output type. */
const NodeOps shade_ops = {vln_kernel::window_init, nullptr, nullptr, vln_kernel::window_read,
                           nullptr};
}  // namespace vln_pe

/* Sun shading of a height stream of `nr_cells` cells to 8-bit brightness,
 * the sun where the stream's SunAzimuth and SunAngle put it. */
void setup_shadenode(funcnode **slot, pe_context *pe, pe_stream *ps, int nr_cells)
{
    Shade *s = add_shade_stage(slot, pe, FN_SHADE, nr_cells, Unsigned8BitInteger, shade_cells);
    const stream *st = ps != nullptr ? ps->stream : nullptr;
    double theta = 0.0, phi = kHalfPi;
    if (st != nullptr) geog_az_el_to_geom(st->sun_azimuth, st->sun_angle, &theta, &phi);
    polar3d_to_vector3d(theta, phi, s->sun_vector);
}

/* Real-time shading to palette indices, in the entries that the algorithm's
 * reserved colours leave free. */
void setup_rtsnode(funcnode **slot, pe_context *pe, pe_stream *, int nr_cells)
{
    Shade *s = add_shade_stage(slot, pe, FN_RTSHADE, nr_cells, Unsigned8BitInteger, rtshade_cells);
    const algorithm *alg = pe->alg;
    setup_colour_map(s, alg != nullptr ? alg->reserved_colours : 0,
                     alg != nullptr ? alg->reserved_colours8 : nullptr);
}

/* Real-time shading to 256 levels of elevation and of azimuth. */
void setup_rts16node(funcnode **slot, pe_context *pe, pe_stream *, int nr_cells)
{
    Shade *s =
        add_shade_stage(slot, pe, FN_RTSHADE16, nr_cells, Unsigned16BitInteger, rtshade16_cells);
    s->azimuth_levels = s->elevation_levels = 256;
}
