/*
 * vln_transform_equalise.cpp: shapes made from a histogram.
 *
 * Equalising turns the cumulative distribution of a transform's input into
 * its shape, so that the output spreads evenly (or, for the Gaussian form,
 * like a normal density). Matching makes other streams look like a reference
 * one: each is equalised and then sent through the inverse of the
 * reference's equalised output.
 */
#include <cmath>
#include <cstdint>
#include <numbers>

#include "vln_guard_internal.h"
#include "vln_transform_internal.h"

using namespace vln_tr;

namespace {

constexpr int kBuckets = VLD_HIST_BUCKETS;

/* An index into 256 entries from a value that may be NaN. */
int index_of(double value)
{
    if (!(value >= 0)) return 0;
    return value >= kBuckets - 1 ? kBuckets - 1 : static_cast<int>(value);
}

int equalise(transform *t, int nr_points, int keep_all, bool gaussian, double mean, double sigma)
{
    if (int status = need_linear(t)) return status;
    if (int status = need_histogram(t)) return status;
    vln::Guard guard(&csect);
    const histogram *h = t->histogram;
    const double valid = static_cast<double>(h->nr_cells) - h->below - h->above;
    double cumulative[kBuckets], curve[kBuckets];
    double sum = 0;
    for (int i = 0; i < kBuckets; i++) {
        sum += h->counts[i];
        cumulative[i] = sum / valid;  // an empty histogram gives NaN, as it is
    }
    if (gaussian) {
        double target[kBuckets], total = 0;
        for (int i = 0; i < kBuckets; i++) {
            const double x = i / 255.0;
            total += std::exp(-0.5 * (x - mean) * (x - mean) / (sigma * sigma)) /
                     (sigma * std::sqrt(2 * std::numbers::pi));
            target[i] = total;
        }
        double inverse[kBuckets];
        for (int j = 0; j < kBuckets; j++) {
            const double level = j / 255.0;
            int k = 0;
            double best = std::fabs(target[0] / total - level);
            for (int i = 1; i < kBuckets; i++)
                if (std::fabs(target[i] / total - level) < best) {
                    best = std::fabs(target[i] / total - level);
                    k = i;
                }
            inverse[j] = k / 255.0;
        }
        for (int i = 0; i < kBuckets; i++) curve[i] = inverse[index_of(cumulative[i] * 255)];
    } else {
        for (int i = 0; i < kBuckets; i++) curve[i] = cumulative[i];
    }

    Points p = {0.0, 0.0};
    if (keep_all) {
        for (int i = 1; i < kBuckets - 1; i++)
            p.insert(p.end(), {i * 0.00392156862745098, curve[i]});
    } else {
        const int n = nr_points < 2 ? 2 : nr_points;
        // Kept: the bucket of point i is taken with 256, not 255.
        for (int i = 1; i <= n - 2; i++)
            p.insert(p.end(), {static_cast<double>(i) / (n - 1),
                               curve[index_of(std::trunc(256.0 * i / (n - 1)))]});
    }
    p.insert(p.end(), {1.0, 1.0});
    set_points(t, p);
    mark_from(t->next, t, nullptr);
    return keep_all ? trans_scrap_lines(t) : 0;
}

/* The unit y of a shape at unit x (linear), or the output value at unit x. */
double shape_at(const transform *t, const trans_interval *intervals, int count, double x)
{
    if (t->type == TT_Linear) return trans_map_intervals(intervals, count, x, nullptr);
    const double v = t->min_input + x * (t->max_input - t->min_input);
    return trans_map_value(t, nullptr, 0, v, nullptr);
}

}  // namespace

int histogram_equalise(transform *t, int nr_points, int keep_all)
{
    return equalise(t, nr_points, keep_all, false, 0, 1);
}

int gaussian_equalise(transform *t, int nr_points, int keep_all, double mean, double sigma)
{
    return equalise(t, nr_points, keep_all, true, mean, sigma);
}

int calc_approx_output_histogram(const transform *t, histogram *out)
{
    if (out == nullptr) return VLD_setup_error(VLD_ERR_INTERNAL, "No histogram");
    int status = need_histogram(t);
    if (status == 0 && (t->type < TT_Linear || t->type > TT_HistogramOnly))
        status = VLD_setup_error(VLD_ERR_INVALID_TRANSFORM_TYPE);
    if (status != 0) {
        out->invalid = 1;
        return status;
    }
    const histogram *in = t->histogram;
    if (t->type == TT_HistogramOnly) {
        *out = *in;
        return 0;
    }
    // Linear shapes are sampled on the unit square, the others in output units.
    transform unit = *t;
    std::vector<trans_interval> intervals;
    int count = 0;
    if (t->type == TT_Linear) {
        unit.min_input = unit.min_output = 0;
        unit.max_input = unit.max_output = 1;
        intervals.resize(static_cast<size_t>(linear_of(t)->nr_points));
        setup_interval_info(&unit, intervals.data(), &count);
    }
    const double out_span = t->max_output - t->min_output;
    auto position = [&](double value) {
        const double p =
            t->type == TT_Linear ? value * 256 : (value - t->min_output) * 256 / out_span;
        return !(p >= 0) ? 0.0 : p > 256 ? 256.0 : p;
    };
    auto bucket = [](double p) { return p >= 255 ? 255 : static_cast<int>(std::floor(p)); };

    double counts[kBuckets] = {};
    for (int i = 0; i < kBuckets; i++) {
        if (in->counts[i] == 0) continue;
        // Bucket i takes x from (i - 0.5) / 255 to (i + 0.5) / 255, within 0 to 1.
        const double x0 = std::fmax(0.0, (i - 0.5) / 255), x1 = std::fmin(1.0, (i + 0.5) / 255);
        double p0 = position(shape_at(&unit, intervals.data(), count, x0));
        double p1 = position(shape_at(&unit, intervals.data(), count, x1));
        if (p1 < p0) std::swap(p0, p1);
        if (bucket(p0) == bucket(p1)) {
            counts[bucket(p0)] += in->counts[i];
            continue;
        }
        const double density = in->counts[i] / (p1 - p0);
        for (int k = bucket(p0) - 2; k <= bucket(p1) + 2; k++) {
            if (k < 0 || k >= kBuckets) continue;
            const double overlap = std::fmin(p1, k + 1.0) - std::fmax(p0, static_cast<double>(k));
            if (overlap > 0) counts[k] += std::trunc(overlap * density);
        }
    }
    out->id = static_cast<int32_t>(0xDEADBEEFu);
    out->min_value = t->min_output;
    out->max_value = t->max_output;
    out->below = out->above = 0;
    out->nr_cells = 0;
    out->invalid = 0;
    for (int k = 0; k < kBuckets; k++) {
        out->counts[k] = static_cast<uint32_t>(counts[k]);
        out->nr_cells += out->counts[k];
    }
    return 0;
}

/* ---------------------------------------------------------------- matching */

namespace {

/* The transform of a chain that matching works on: the last one, before any
 * HistogramOnly ones. */
transform *match_point(stream *st)
{
    transform *t = st->transforms;
    if (t == nullptr) return nullptr;
    while (t->next != nullptr) t = t->next;
    while (t != nullptr && t->type == TT_HistogramOnly) t = t->prev;
    return t;
}

/* The inverse of the reference's equalised output, or null. */
transform *reference_inverse(const transform *ref)
{
    transform *copy = nullptr;
    if (cp_transform(&copy, ref) != 0) return nullptr;
    histogram *out = nullptr;
    ea_histogram(&out);
    const transform *next = ref->next;
    if (next != nullptr && next->histogram != nullptr && !next->histogram->invalid) {
        *out = *next->histogram;
        copy->min_input = next->min_input;
        copy->max_input = next->max_input;
    } else {
        calc_approx_output_histogram(ref, out);
        copy->min_input = ref->min_output;
        copy->max_input = ref->max_output;
    }
    ef_histogram(copy->histogram);
    copy->histogram = out;
    transform *inverse = nullptr;
    if (out->invalid == 0 && replace_shape(copy, TT_Linear) == 0 &&
        histogram_equalise(copy, 128, 0) == 0)
        eg_undo_trans(&inverse, copy);
    ef_transform(copy);
    return inverse;
}

}  // namespace

int trans_hist_match(stream *st)
{
    transform *ref = st != nullptr ? match_point(st) : nullptr;
    if (ref == nullptr || need_histogram(ref) != 0) return -1;
    transform *inverse = reference_inverse(ref);
    if (inverse == nullptr) return -1;
    int matched = 0;
    for (stream *other = first_of_surface(st); other != nullptr; other = other->next) {
        if (other == st || other->type != st->type) continue;
        transform *t = match_point(other);
        if (t == nullptr || need_histogram(t) != 0) continue;
        if (linear_of(t) == nullptr && replace_shape(t, TT_Linear) != 0) continue;
        if (histogram_equalise(t, 128, 0) != 0) continue;
        if (combine_two_trans(t, t, inverse) != 0) continue;
        t->min_output = ref->min_output;
        t->max_output = ref->max_output;
        mark_from(t->next, t, other);
        matched++;
    }
    ef_transform(inverse);
    return matched > 0 ? 0 : -1;
}
