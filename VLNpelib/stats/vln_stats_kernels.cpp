/*
 * vln_stats_kernels.cpp: the inner loops of the statistics passes.
 *
 * Each kernel adds one run of one line, all bands, to a region's
 * accumulators. Integer cells are summed exactly in 64 bits over the run and
 * the run's total joins the region's partial sums; real cells are summed in
 * double. The second pass keeps each band's deviations from the mean over the
 * run, so that every pair of bands is then one dot product.
 */
#include <algorithm>
#include <cstring>
#include <limits>
#include <type_traits>

#include "vld_core.h"
#include "vln_stats_internal.h"

namespace vln_stats {

namespace {

/* The first cell at or after `first` on the sampling grid (every rate-th cell
 * from 0); the count of grid cells up to `last` through *count. */
inline int grid_start(int first, int last, int rate, int *count)
{
    int start = first <= 0 ? 0 : ((first + rate - 1) / rate) * rate;
    *count = start > last ? 0 : (last - start) / rate + 1;
    return start;
}

/* Calls f(cell) for `count` grid cells from `start`; the unit step is a loop
 * of its own so that the compiler can vectorise it. */
template <typename F>
inline void for_cells(int start, int count, int rate, F &&f)
{
    if (rate == 1) {
        for (int c = start; c < start + count; c++) f(c);
    } else {
        for (int k = 0, c = start; k < count; k++, c += rate) f(c);
    }
}

template <typename T>
inline bool is_null_real(T v, const NullTest &t)
{
    double x = static_cast<double>(v);
    if (!(x >= t.type_min && x <= t.type_max)) return true;
    if constexpr (std::is_same_v<T, float>)
        return v == t.single;
    else
        return to_single(x) == t.single;
}

inline int bucket_of_value(double v, double minimum, double range)
{
    double x = (v - minimum) / range * 256.0;
    if (!(x >= 0.0)) return 0;
    if (x >= 255.0) return 255;
    return static_cast<int>(x);
}

/* ---------------------------------------------------------------- first pass */

template <typename T>
void first_pass_integer(Work &work, PassState &state, int first, int last)
{
    using Sum = std::conditional_t<std::is_signed_v<T>, int64_t, uint64_t>;
    int count = 0;
    const int start = grid_start(first, last, state.rate, &count);
    if (count == 0) return;
    const bool nulls = state.null.active;
    const T low = nulls ? static_cast<T>(state.null.int_low) : T(0);
    const T high = nulls ? static_cast<T>(state.null.int_high) : T(0);
    for (int b = 0; b < state.nr_bands; b++) {
        const T *p = static_cast<const T *>(state.line[b]);
        T mn = std::numeric_limits<T>::max(), mx = std::numeric_limits<T>::lowest();
        Sum sum = 0;
        int64_t valid = count;
        if (!nulls) {
            for_cells(start, count, state.rate, [&](int c) {
                T v = p[c];
                mn = v < mn ? v : mn;
                mx = v > mx ? v : mx;
                sum += static_cast<Sum>(v);
            });
        } else {
            int64_t null_cells = 0;
            for_cells(start, count, state.rate, [&](int c) {
                T v = p[c];
                bool is_null = v >= low && v <= high;
                null_cells += is_null;
                sum += is_null ? Sum(0) : static_cast<Sum>(v);
                mn = !is_null && v < mn ? v : mn;
                mx = !is_null && v > mx ? v : mx;
            });
            valid -= null_cells;
        }
        BandAcc &a = work.bands[b];
        a.null_cells += count - valid;
        a.non_null_cells += valid;
        if (valid == 0) continue;
        a.minimum = std::min(a.minimum, static_cast<double>(mn));
        a.maximum = std::max(a.maximum, static_cast<double>(mx));
        a.sum.add(static_cast<double>(sum));
    }
}

template <typename T>
void first_pass_real(Work &work, PassState &state, int first, int last)
{
    int count = 0;
    const int start = grid_start(first, last, state.rate, &count);
    if (count == 0) return;
    const NullTest &t = state.null;
    for (int b = 0; b < state.nr_bands; b++) {
        const T *p = static_cast<const T *>(state.line[b]);
        BandAcc &a = work.bands[b];
        double mn = a.minimum, mx = a.maximum, sum = 0.0;
        int64_t valid = 0;
        for_cells(start, count, state.rate, [&](int c) {
            T v = p[c];
            if (t.active && is_null_real(v, t)) return;
            double x = static_cast<double>(v);
            valid++;
            mn = x < mn ? x : mn;
            mx = x > mx ? x : mx;
            // Single-precision cells can't overflow a run's sum; doubles can.
            if constexpr (std::is_same_v<T, double>)
                a.sum.add(x);
            else
                sum += x;
        });
        a.null_cells += count - valid;
        a.non_null_cells += valid;
        a.minimum = mn;
        a.maximum = mx;
        if constexpr (!std::is_same_v<T, double>)
            if (valid) a.sum.add(sum);
    }
}

/* ---------------------------------------------------------------- second pass */

/* A dot product in four lanes, so that the additions don't wait on each other. */
inline double dot(const double *x, const double *y, int n)
{
    double l0 = 0.0, l1 = 0.0, l2 = 0.0, l3 = 0.0;
    int k = 0;
    for (; k + 4 <= n; k += 4) {
        l0 += x[k] * y[k];
        l1 += x[k + 1] * y[k + 1];
        l2 += x[k + 2] * y[k + 2];
        l3 += x[k + 3] * y[k + 3];
    }
    for (; k < n; k++) l0 += x[k] * y[k];
    return (l0 + l1) + (l2 + l3);
}

template <typename T>
inline bool cell_is_null(T v, const NullTest &t)
{
    if constexpr (std::is_integral_v<T>)
        return v >= static_cast<T>(t.int_low) && v <= static_cast<T>(t.int_high);
    else
        return is_null_real(v, t);
}

template <typename T>
void second_pass(Work &work, PassState &state, int first, int last)
{
    int count = 0;
    const int start = grid_start(first, last, state.rate, &count);
    if (count == 0) return;
    const bool nulls = state.null.active;
    const int nb = state.nr_bands;
    unsigned char *masked = state.masked.data();
    if (nulls) std::memset(masked, 0, static_cast<size_t>(count));

    for (int b = 0; b < nb; b++) {
        const T *p = static_cast<const T *>(state.line[b]);
        BandAcc &a = work.bands[b];
        double *d = state.deviations.data() + static_cast<size_t>(b) * state.row_length;
        const double mean = a.mean, minimum = a.minimum, range = a.range;
        int64_t *histogram = a.histogram.data();
        const uint8_t *table = a.bucket_of.empty() ? nullptr : a.bucket_of.data();
        const int64_t base = static_cast<int64_t>(minimum);
        const uint64_t top = a.bucket_of.size() - 1;
        int k = 0;
        for_cells(start, count, state.rate, [&](int c) {
            T v = p[c];
            if (nulls && cell_is_null(v, state.null)) {
                masked[k] = 1;
                d[k++] = 0.0;
                return;
            }
            int bucket;
            if constexpr (std::is_integral_v<T>) {
                if (table) {
                    uint64_t at = static_cast<uint64_t>(static_cast<int64_t>(v) - base);
                    bucket = table[at < top ? at : top];
                } else {
                    bucket = bucket_of_value(static_cast<double>(v), minimum, range);
                }
            } else {
                bucket = bucket_of_value(static_cast<double>(v), minimum, range);
            }
            histogram[bucket]++;
            d[k++] = static_cast<double>(v) - mean;
        });
    }

    int64_t full = count;
    if (nulls) {
        for (int k = 0; k < count; k++) full -= masked[k];
        if (full != count)
            for (int b = 0; b < nb; b++) {
                double *d = state.deviations.data() + static_cast<size_t>(b) * state.row_length;
                for (int k = 0; k < count; k++)
                    if (masked[k]) d[k] = 0.0;
            }
    }
    work.full_cells += full;
    for (int i = 0; i < nb; i++) {
        const double *di = state.deviations.data() + static_cast<size_t>(i) * state.row_length;
        for (int j = i; j < nb; j++) {
            const double *dj = state.deviations.data() + static_cast<size_t>(j) * state.row_length;
            work.covariance[static_cast<size_t>(i) * nb + j].add(dot(di, dj, count));
        }
    }
}

template <typename T>
T wrap_to(double rounded)
{
    // Into 64 bits first: the narrowing below then wraps as integers do.
    if (!(std::fabs(rounded) < 9.2e18)) return T(0);
    return static_cast<T>(static_cast<int64_t>(rounded));
}

}  // namespace

/* ---------------------------------------------------------------- shared helpers */

float to_single(double value)
{
    if (std::isnan(value)) return std::numeric_limits<float>::quiet_NaN();
    // Past the largest float, rounding to nearest gives it up to the midpoint
    // between it and 2^128, and infinity from there on.
    constexpr double kOverflow = 0x1.ffffffp+127;
    if (value > FLT_MAX)
        return value < kOverflow ? FLT_MAX : std::numeric_limits<float>::infinity();
    if (value < -FLT_MAX)
        return value > -kOverflow ? -FLT_MAX : -std::numeric_limits<float>::infinity();
    return static_cast<float>(value);
}

NullTest make_null_test(const rasterinfo &raster)
{
    NullTest t;
    if (!raster.has_null) return t;
    const int type = raster.cell_type;
    double type_max = 0.0, type_min = 0.0;
    get_celltype_max_min(type, &type_max, &type_min);
    double null_value = raster.null_value;
    if (type == IEEE4ByteReal) null_value = std::clamp(null_value, type_min, type_max);
    t.single = to_single(null_value);
    t.type_min = type_min;
    t.type_max = type_max;
    if (type == IEEE4ByteReal || type == IEEE8ByteReal) {
        t.active = true;
        return t;
    }
    // An integer cell is null when it rounds to the same float as the null
    // value; those cells form one interval, found by walking out from it.
    const double single = t.single;
    if (!std::isfinite(single) || single != std::floor(single) || single < type_min ||
        single > type_max)
        return t;
    auto same = [&](double x) {
        return x >= type_min && x <= type_max && static_cast<float>(x) == t.single;
    };
    if (!same(single)) return t;
    double low = single, high = single;
    while (same(low - 1.0)) low -= 1.0;
    while (same(high + 1.0)) high += 1.0;
    t.int_low = low;
    t.int_high = high;
    t.active = true;
    return t;
}

size_t make_bucket_table(BandAcc &band, int cell_type, size_t limit)
{
    band.bucket_of.clear();
    if (cell_type < Unsigned8BitInteger || cell_type > Signed32BitInteger) return 0;
    if (band.non_null_cells == 0) return 0;
    double span = band.maximum - band.minimum + 1.0;
    if (!(span >= 1.0) || span > static_cast<double>(limit)) return 0;
    size_t n = static_cast<size_t>(span);
    band.bucket_of.resize(n);
    for (size_t i = 0; i < n; i++)
        band.bucket_of[i] = static_cast<uint8_t>(
            bucket_of_value(band.minimum + static_cast<double>(i), band.minimum, band.range));
    return n;
}

double round_to_cell_type(double value, int cell_type)
{
    if (cell_type == IEEE4ByteReal) return static_cast<double>(to_single(value));
    if (cell_type == IEEE8ByteReal) return value;
    double r = value >= 0.0 ? std::floor(value + 0.5) : std::ceil(value - 0.5);
    switch (cell_type) {
        case Unsigned8BitInteger:
            return wrap_to<uint8_t>(r);
        case Unsigned16BitInteger:
            return wrap_to<uint16_t>(r);
        case Unsigned32BitInteger:
            return wrap_to<uint32_t>(r);
        case Signed8BitInteger:
            return wrap_to<int8_t>(r);
        case Signed16BitInteger:
            return wrap_to<int16_t>(r);
        case Signed32BitInteger:
            return wrap_to<int32_t>(r);
        default:
            return value;
    }
}

RunKernel first_pass_kernel(int cell_type)
{
    switch (cell_type) {
        case Unsigned8BitInteger:
            return first_pass_integer<uint8_t>;
        case Unsigned16BitInteger:
            return first_pass_integer<uint16_t>;
        case Unsigned32BitInteger:
            return first_pass_integer<uint32_t>;
        case Signed8BitInteger:
            return first_pass_integer<int8_t>;
        case Signed16BitInteger:
            return first_pass_integer<int16_t>;
        case Signed32BitInteger:
            return first_pass_integer<int32_t>;
        case IEEE4ByteReal:
            return first_pass_real<float>;
        case IEEE8ByteReal:
            return first_pass_real<double>;
        default:
            return nullptr;
    }
}

RunKernel second_pass_kernel(int cell_type)
{
    switch (cell_type) {
        case Unsigned8BitInteger:
            return second_pass<uint8_t>;
        case Unsigned16BitInteger:
            return second_pass<uint16_t>;
        case Unsigned32BitInteger:
            return second_pass<uint32_t>;
        case Signed8BitInteger:
            return second_pass<int8_t>;
        case Signed16BitInteger:
            return second_pass<int16_t>;
        case Signed32BitInteger:
            return second_pass<int32_t>;
        case IEEE4ByteReal:
            return second_pass<float>;
        case IEEE8ByteReal:
            return second_pass<double>;
        default:
            return nullptr;
    }
}

}  // namespace vln_stats
