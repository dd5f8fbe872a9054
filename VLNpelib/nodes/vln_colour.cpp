/*
 * vln_colour.cpp: colour arithmetic and the palettes of 256-colour displays.
 *
 * Hue, saturation and value are bytes (or 16-bit words): hue runs from 0 to
 * 255 round the colour circle, six sextants of 256 / 6 each. The conversion
 * to RGB divides the hue by 256 / 6, the conversion back multiplies degrees by
 * 255 / 360. Kept: the two are not exact inverses, and pictures made by them
 * rely on the values as they are.
 *
 * The palettes split the indices that the algorithm leaves free (those not
 * reserved) into a colour cube, or into groups of brightness steps of one
 * hue each, after a grey ramp.
 */
#include <cmath>
#include <cstdint>

#include "vln_colour_nodes.h"

namespace {

/* The colour circle of one word size: the hue span of a sextant, the largest
 * value, and degrees to hue. */
struct Circle {
    double sextant;
    double full;
    double per_degree;
};

constexpr Circle circle8 = {42.666666666666664, 255.0, 0.7083333333333334};
constexpr Circle circle16 = {10922.5, 65535.0, 65535.0 / 360.0};

/* One cell from hue, saturation and value; a hue outside the six sextants
 * writes nothing. */
template <class T>
void hsv_cell(const Circle &c, double h, double s, double v, T *r, T *g, T *b)
{
    if (s == 0) {
        *r = *g = *b = static_cast<T>(v);
        return;
    }
    const double f = h / c.sextant;
    const int i = static_cast<int>(f);
    if (i < 0 || i > 5) return;
    const double t = v * s / c.full;
    const double u = t * (f - i);
    const double p = v - t;
    const T top = static_cast<T>(v);
    const T low = static_cast<T>(p + 0.5);
    const T rising = static_cast<T>(p + u + 0.5);
    const T falling = static_cast<T>(v - u + 0.5);
    switch (i) {
        case 0:
            *r = top, *g = rising, *b = low;
            break;
        case 1:
            *r = falling, *g = top, *b = low;
            break;
        case 2:
            *r = low, *g = top, *b = rising;
            break;
        case 3:
            *r = low, *g = falling, *b = top;
            break;
        case 4:
            *r = rising, *g = low, *b = top;
            break;
        default:
            *r = top, *g = low, *b = falling;
            break;
    }
}

template <class T>
void rgb_cell(const Circle &c, double r, double g, double b, T *h, T *s, T *v)
{
    const double max = r > g ? (r > b ? r : b) : (g > b ? g : b);
    const double min = r < g ? (r < b ? r : b) : (g < b ? g : b);
    *v = static_cast<T>(max);
    const double sat = max == 0 ? 0.0 : std::trunc((max - min) / max * c.full + 0.5);
    *s = static_cast<T>(sat);
    if (sat == 0) {
        *h = 0;
        return;
    }
    const double span = max - min;
    double degrees;
    if (r == max)
        degrees = 60.0 * ((g - b) / span);
    else if (g == max)
        degrees = 60.0 * ((b - r) / span + 2.0);
    else
        degrees = 60.0 * ((r - g) / span + 4.0);
    if (degrees < 0) degrees += 360.0;
    *h = static_cast<T>(degrees * c.per_degree + 0.5);
}

}  // namespace

void hsv_to_rgb(uint8_t h, uint8_t s, uint8_t v, uint8_t *r, uint8_t *g, uint8_t *b)
{
    hsv_cell<uint8_t>(circle8, h, s, v, r, g, b);
}

void rgb_to_hsv(uint8_t r, uint8_t g, uint8_t b, uint8_t *h, uint8_t *s, uint8_t *v)
{
    rgb_cell<uint8_t>(circle8, r, g, b, h, s, v);
}

/* A hue of 65535 is the circle's start again. */
void hsv_to_rgb_16(uint16_t h, uint16_t s, uint16_t v, uint16_t *r, uint16_t *g, uint16_t *b)
{
    hsv_cell<uint16_t>(circle16, h >= 65535 ? 0 : h, s, v, r, g, b);
}

void rgb_to_hsv_16(uint16_t r, uint16_t g, uint16_t b, uint16_t *h, uint16_t *s, uint16_t *v)
{
    rgb_cell<uint16_t>(circle16, r, g, b, h, s, v);
}

void hsvbufs_to_rgbbufs(const uint8_t *h, const uint8_t *s, const uint8_t *v, uint8_t *r,
                        uint8_t *g, uint8_t *b, int n)
{
    for (int i = 0; i < n; i++) hsv_cell<uint8_t>(circle8, h[i], s[i], v[i], r + i, g + i, b + i);
}

void rgbbufs_to_hsvbufs(const uint8_t *r, const uint8_t *g, const uint8_t *b, uint8_t *h,
                        uint8_t *s, uint8_t *v, int n)
{
    for (int i = 0; i < n; i++) rgb_cell<uint8_t>(circle8, r[i], g[i], b[i], h + i, s + i, v + i);
}

void convnulls(const rlseg *rlsegs, uint8_t *line, int nr_cells, uint8_t null)
{
    int next = 0;
    for (const rlseg *r = rlsegs; r != nullptr && next < nr_cells; r = r->next) {
        for (int i = next; i < r->first && i < nr_cells; i++) line[i] = null;
        next = r->last + 1;
    }
    for (int i = next; i < nr_cells; i++) line[i] = null;
}

/* ---------------------------------------------------------------- palettes */

namespace {

/* Lists the indices 0 to 255 that aren't reserved, in order; their count. */
int free_indices(uint8_t *table, int nr_reserved, const uint8_t *reserved)
{
    int n = 0;
    for (int v = 0; v < 256; v++) {
        bool taken = false;
        for (int k = 0; k < nr_reserved && !taken; k++) taken = reserved[k] == v;
        if (!taken) table[n++] = static_cast<uint8_t>(v);
    }
    return n;
}

/* The colour cube that fits in `n` free indices: the largest row whose count
 * is not above n. */
struct CubeRow {
    int at_least, red, green, blue;
};
constexpr CubeRow cubes[] = {
    {256, 8, 8, 4}, {245, 7, 7, 5}, {224, 7, 8, 4}, {196, 7, 7, 4}, {168, 6, 7, 4},
    {147, 7, 7, 3}, {108, 6, 6, 3}, {75, 5, 5, 3},  {50, 5, 5, 2},  {32, 4, 4, 2},
    {18, 3, 3, 2},  {8, 2, 2, 2},   {1, 1, 1, 1},
};

/* 16-bit level of step `level` of `levels`. */
uint16_t ramp16(int level, int levels)
{
    return levels > 1 ? static_cast<uint16_t>(65535 * level / (levels - 1)) : 0;
}

}  // namespace

int setup_rgb8_params(uint8_t *table, int *nr_r, int *nr_g, int *nr_b, int nr_reserved,
                      const uint8_t *reserved)
{
    const int n = free_indices(table, nr_reserved, reserved);
    *nr_r = *nr_g = *nr_b = 0;
    for (const CubeRow &row : cubes) {
        if (n >= row.at_least) {
            *nr_r = row.red, *nr_g = row.green, *nr_b = row.blue;
            break;
        }
    }
    return n;
}

void setup_rgb8_strides(int *r, int *g, int *b, int nr_r, int nr_g, int nr_b)
{
    for (int v = 0; v < 256; v++) {
        r[v] = (v * nr_r) / 256 * nr_g * nr_b;
        g[v] = (v * nr_g) / 256 * nr_b;
        b[v] = (v * nr_b) / 256;
    }
}

void setup_rgb8_lut(uint16_t *lut, int nr_reserved, const uint8_t *reserved)
{
    uint8_t table[256] = {};
    int nr_r = 0, nr_g = 0, nr_b = 0;
    setup_rgb8_params(table, &nr_r, &nr_g, &nr_b, nr_reserved, reserved);
    int k = 0;
    for (int r = 0; r < nr_r; r++)
        for (int g = 0; g < nr_g; g++)
            for (int b = 0; b < nr_b; b++, k++) {
                uint16_t *entry = lut + 3 * table[k];
                entry[0] = ramp16(r, nr_r);
                entry[1] = ramp16(g, nr_g);
                entry[2] = ramp16(b, nr_b);
            }
}

int setup_cd8_params(uint8_t *table, int *groups, int *levels, int nr_reserved,
                     const uint8_t *reserved)
{
    const int n = free_indices(table, nr_reserved, reserved);
    const int x = 255 - nr_reserved;
    *levels = x <= 0 ? 0 : (x < 90 ? static_cast<int>(std::sqrt(static_cast<double>(x))) : 9);
    *groups = *levels > 0 ? x / *levels - 1 : 0;
    return n;
}

void cdlut24_to_cdlut8(uint16_t *cdlut8, const uint8_t *cdlut24, int nr_reserved,
                       const uint8_t *reserved)
{
    uint8_t table[256] = {};
    int groups = 0, levels = 0;
    if (setup_cd8_params(table, &groups, &levels, nr_reserved, reserved) == 0) return;
    auto put = [&](int at, uint16_t r, uint16_t g, uint16_t b) {
        uint16_t *entry = cdlut8 + 3 * table[at];
        entry[0] = r, entry[1] = g, entry[2] = b;
    };
    put(0, 0, 0, 0);
    // The grey ramp: its steps end at white.
    for (int l = 1; l <= levels; l++) {
        const uint16_t grey = static_cast<uint16_t>(65535 * l / levels);
        put(l, grey, grey, grey);
    }
    // Each group: the hue and saturation of its colour, at each brightness.
    for (int g = 0; g < groups; g++) {
        const int entry = groups > 1 ? g * 255 / (groups - 1) : 0;
        const uint8_t *colour = cdlut24 + 3 * entry;
        uint8_t h = 0, s = 0, v = 0;
        rgb_to_hsv(colour[0], colour[1], colour[2], &h, &s, &v);
        for (int l = 1; l <= levels; l++) {
            uint8_t r = 0, gr = 0, b = 0;
            hsv_to_rgb(h, s, static_cast<uint8_t>(255 * l / levels), &r, &gr, &b);
            put((g + 1) * levels + l, static_cast<uint16_t>(r * 257),
                static_cast<uint16_t>(gr * 257), static_cast<uint16_t>(b * 257));
        }
    }
}
