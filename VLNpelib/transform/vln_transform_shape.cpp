/*
 * vln_transform_shape.cpp: evaluating a transform's shape.
 *
 * A linear shape becomes a list of intervals in input units; exponential and
 * logarithmic shapes are evaluated from their scaled coefficients. The
 * tables here are what 8-bit data goes through in the engine, so that a cell
 * costs one lookup; they are built once, when a tree is set up.
 */
#include <cfloat>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <vector>

#include "vln_transform_ops.h"

namespace {

/* Rounds half away from zero. */
double round_half_away(double r)
{
    return r >= 0 ? std::floor(r + 0.5) : std::ceil(r - 0.5);
}

/* An 8-bit number from a double, wrapping as a store to 8 bits does. */
uint8_t to_byte(double value)
{
    if (!(value > -2147483648.0 && value < 2147483648.0)) return 0;
    return static_cast<uint8_t>(static_cast<int32_t>(value));
}

/* The intervals of `t`, when linear. */
std::vector<trans_interval> intervals_of(const transform *t)
{
    std::vector<trans_interval> intervals;
    const auto *d = static_cast<const lineardef *>(t->definition);
    if (t->type != TT_Linear || d == nullptr || d->nr_points < 2) return intervals;
    intervals.resize(static_cast<size_t>(d->nr_points - 1));
    int count = 0;
    setup_interval_info(t, intervals.data(), &count);
    intervals.resize(static_cast<size_t>(count));
    return intervals;
}

/* Calls fill(i, r, mapped) for the 8-bit values i held to the input range. */
template <class Fill>
void for_each_8bit_value(const transform *t, Fill &&fill)
{
    const std::vector<trans_interval> intervals = intervals_of(t);
    const double low = std::ceil(t->min_input);
    const uint8_t lo = to_byte(low < 0 ? 0.0 : low);
    const uint8_t hi = t->max_input >= 255.0 ? 255 : to_byte(t->max_input);
    for (int i = 0; i < 256; i++) {
        int v = i < lo ? lo : i;
        if (v > hi) v = hi;
        int mapped = 1;
        const double r =
            trans_map_value(t, intervals.data(), static_cast<int>(intervals.size()), v, &mapped);
        fill(i, r, mapped != 0);
    }
}

}  // namespace

void setup_interval_info(const transform *t, trans_interval *intervals, int *count)
{
    *count = 0;
    const auto *d = static_cast<const lineardef *>(t->definition);
    if (t->type != TT_Linear || d == nullptr || d->points == nullptr) return;
    const double in_span = t->max_input - t->min_input;
    const double out_span = t->max_output - t->min_output;
    for (int i = 0; i + 1 < d->nr_points; i++) {
        const double x1 = d->points[2 * i], y1 = d->points[2 * i + 1];
        const double x2 = d->points[2 * i + 2], y2 = d->points[2 * i + 3];
        if (!(x1 < x2)) continue;  // a vertical step
        trans_interval &iv = intervals[(*count)++];
        iv.upper = in_span * x2 + t->min_input;
        iv.slope = ((y2 - y1) * out_span) / ((x2 - x1) * in_span);
        iv.intercept = out_span * y1 + t->min_output - (in_span * x1 + t->min_input) * iv.slope;
    }
}

double trans_map_intervals(const trans_interval *intervals, int count, double value, int *mapped)
{
    for (int i = 0; i < count; i++)
        if (!(intervals[i].upper < value)) {
            if (mapped != nullptr) *mapped = 1;
            return value * intervals[i].slope + intervals[i].intercept;
        }
    if (mapped != nullptr) *mapped = 0;
    return value;
}

double trans_map_value(const transform *t, const trans_interval *intervals, int count, double value,
                       int *mapped)
{
    if (mapped != nullptr) *mapped = 1;
    switch (t->type) {
        case TT_Linear:
            return trans_map_intervals(intervals, count, value, mapped);
        case TT_Exponential: {
            const auto *e = static_cast<const expdef *>(t->definition);
            return std::exp(value * e->a_scaled) * e->b_scaled + e->c_scaled;
        }
        case TT_Logarithmic: {
            const auto *l = static_cast<const logdef *>(t->definition);
            return std::log(value + l->a_scaled) * l->b_scaled + l->c_scaled;
        }
        default:
            return value;
    }
}

int trans_bucket(double value, double min_input, double span)
{
    const double b = (value - min_input) / span * 255 + 0.5;
    if (!(b >= 0)) return 0;
    if (b >= 255) return 255;
    return static_cast<int>(b);
}

void setup_UINT8_to_UINT8_lut(const transform *t, uint8_t *table)
{
    for_each_8bit_value(t, [&](int i, double r, bool mapped) {
        if (!mapped) return;
        r = round_half_away(r);
        table[i] = !(r > 0) ? 0 : r >= 255 ? 255 : static_cast<uint8_t>(r);  // NaN gives 0
    });
}

void calc_transform_lut(const transform *t, uint8_t *table)
{
    setup_UINT8_to_UINT8_lut(t, table);
}

void setup_UINT8_to_double_lut(const transform *t, double *table)
{
    for_each_8bit_value(t, [&](int i, double r, bool mapped) {
        if (mapped) table[i] = r;
    });
}

void setup_double_to_UINT8_lut(const transform *t, uint8_t *table)
{
    const std::vector<trans_interval> intervals = intervals_of(t);
    const double span = t->max_input - t->min_input;
    for (int i = 0; i < 256; i++) {
        const double v = t->min_input + i * span / 255;
        int mapped = 1;
        double r =
            trans_map_value(t, intervals.data(), static_cast<int>(intervals.size()), v, &mapped);
        if (!mapped) continue;
        if (!(r >= 0)) r = 0;  // NaN too
        if (r > 255) r = 255;
        table[i] = static_cast<uint8_t>(r);
    }
}

void setup_bucket_of_value(const transform *t, uint16_t *bucket_of_value)
{
    const double span = t->max_input - t->min_input;
    for (int v = 0; v < 256; v++) {
        if (v < t->min_input) {
            bucket_of_value[v] = 65534;
        } else if (v > t->max_input) {
            bucket_of_value[v] = 65535;
        } else {
            const double b = round_half_away((v - t->min_input) / span * 255);
            bucket_of_value[v] = static_cast<uint16_t>(b < 0 ? 0 : b > 255 ? 255 : b);
        }
    }
}

void setup_hist_from_counter_array(histogram *h, const transform *t, const uint32_t *counters,
                                   int skip_zero_flag, int skip_value)
{
    uint16_t bucket_of_value[256];
    setup_bucket_of_value(t, bucket_of_value);
    std::memset(h->counts, 0, sizeof h->counts);
    h->below = h->above = h->nr_cells = 0;
    int first = -1, last = -1;
    for (int v = 0; v < 256; v++) {
        if (skip_zero_flag && v == skip_value) continue;
        const uint32_t n = counters[v];
        if (n != 0) {
            if (first < 0) first = v;
            last = v;
        }
        h->nr_cells += n;
        if (bucket_of_value[v] == 65534)
            h->below += n;
        else if (bucket_of_value[v] == 65535)
            h->above += n;
        else
            h->counts[bucket_of_value[v]] += n;
    }
    h->min_value = first < 0 ? 0.0 : first;
    h->max_value = first < 0 ? 255.0 : last;
}

void PE_dump_hist(const histogram *h)
{
    FILE *out = vln_ReturnStdOut();
    std::fprintf(out, "------ Statistics for transform = %d ------\n", h->id);
    std::fprintf(out, "\tMin input value: %lf\n", h->min_value);
    std::fprintf(out, "\tMax input value: %lf\n", h->max_value);
    std::fprintf(out, "\tNumber of cells: %d\n", static_cast<int>(h->nr_cells));
    std::fprintf(out, "\tNumber of cells below minimum: %d\n", static_cast<int>(h->below));
    std::fprintf(out, "\tNumber of cells above maximum: %d\n", static_cast<int>(h->above));
    std::fputs("\tHistogram:", out);
    for (int i = 0; i < VLD_HIST_BUCKETS; i++)
        std::fprintf(out, "%s%d", i % 16 == 0 ? "\n\t" : " ", static_cast<int>(h->counts[i]));
    std::fputs("\n", out);
}
