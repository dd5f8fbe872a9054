/*
 * vln_stats_internal.h: the accumulators of the statistics passes.
 *
 * calc_stats reads a dataset twice, each time line by line for all regions
 * at once. For each region being done a Work record gathers what the passes
 * find; the kernels here add one run of one line (all bands) to it. They are
 * written per cell type and are chosen once per pass, so the loops over cells
 * are plain typed loops with no calls or conversions beyond the arithmetic.
 */
#ifndef VORLAN_VLN_STATS_INTERNAL_H
#define VORLAN_VLN_STATS_INTERNAL_H

#include <array>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <vector>

#include "vld_dshdr.h"

namespace vln_stats {

/* A sum that can't overflow: before an addition would reach the largest
 * double, a new part is started. A mean divides each part on its own. */
struct PartialSum {
    std::vector<double> parts{0.0};

    void add(double x)
    {
        double next = parts.back() + x;
        if (std::fabs(next) >= DBL_MAX)
            parts.push_back(x);
        else
            parts.back() = next;
    }
    double divided_by(double n) const
    {
        double r = 0.0;
        for (double p : parts) r += p / n;
        return r;
    }
};

/* One band of one region. */
struct BandAcc {
    int64_t null_cells = 0;
    int64_t non_null_cells = 0;
    double minimum = DBL_MAX;
    double maximum = -DBL_MAX;
    PartialSum sum;
    /* Set between the passes. */
    double mean = 0.0;
    double range = 1.0;
    std::array<int64_t, 256> histogram{};
    /* For integer cells of a narrow range: the bucket of each value from the
     * minimum, so that the second pass needn't divide per cell. */
    std::vector<uint8_t> bucket_of;
};

/* What the passes gather for one region. */
struct Work {
    regioninfo *region = nullptr;
    int group = 0; /* the share of the work (pair of passes) it belongs to */
    std::vector<BandAcc> bands;
    std::vector<PartialSum> covariance; /* upper triangle of nb by nb */
    int64_t full_cells = 0;             /* cells valid in every band */
};

/* Which cells are null. Integer cells are null when they lie in
 * [int_low, int_high] (empty when int_low > int_high); real cells when they
 * lie outside [type_min, type_max] or equal `single` after rounding to single
 * precision. Inactive: no cell is null. */
struct NullTest {
    bool active = false;
    double int_low = 1.0, int_high = 0.0;
    double type_min = 0.0, type_max = 0.0;
    float single = 0.0f;
};

/* The null test of a dataset's header, as above. */
NullTest make_null_test(const rasterinfo &raster);

/* `value` rounded to single precision; beyond the range of floats it becomes
 * the infinity of its sign rather than undefined. */
float to_single(double value);

/* What a kernel needs besides the run: the current line of every band, the
 * sampling step, the null test and scratch space of one line per band. */
struct PassState {
    int cell_type = 0;
    int nr_bands = 0;
    int rate = 1;
    NullTest null;
    std::vector<const void *> line;    /* one per band, set per line */
    std::vector<double> deviations;    /* nr_bands rows of up to a line of cells */
    std::vector<unsigned char> masked; /* a line of cells: null in some band */
    size_t row_length = 0;             /* cells per row of `deviations` */
};

/* Adds the run first..last (every rate-th cell on the grid from cell 0) of
 * the current line to the region. */
using RunKernel = void (*)(Work &work, PassState &state, int first, int last);

/* The kernels of one cell type: pass one gathers counts, ranges and sums;
 * pass two the histograms and the covariance. Null for an unknown type. */
RunKernel first_pass_kernel(int cell_type);
RunKernel second_pass_kernel(int cell_type);

/* Fills band.bucket_of for integer cells whose range spans at most `limit`
 * values; returns the entries made. */
size_t make_bucket_table(BandAcc &band, int cell_type, size_t limit);

/* The value of a median bucket, rounded to the cell type as its cells are. */
double round_to_cell_type(double value, int cell_type);

}  // namespace vln_stats

#endif
