/*
 * vln_transform_ops.h: lookup transforms as calculations on their records.
 *
 * Two families live here. The shape family evaluates a transform: the
 * intervals of a linear shape, the 256-entry tables that 8-bit data goes
 * through, and the histogram bucket of a value; the engine's transform node
 * builds on it. The editing family changes a transform from the histogram it
 * gathered: limits, clipping, equalising, matching streams, composing and
 * inverting, keeping a linear shape small. Nothing here touches a node tree.
 *
 * Positions on a shape are in its unit square: x 0 is MinimumInputValue and
 * x 1 MaximumInputValue, y 0 MinimumOutputValue and y 1 MaximumOutputValue.
 * Functions that return int give 0 or a row of the message table, with the
 * record unchanged on failure, unless stated otherwise.
 */
#ifndef VORLAN_VLN_TRANSFORM_OPS_H
#define VORLAN_VLN_TRANSFORM_OPS_H

#include "vld_alg.h"

VLD_BEGIN_DECLS

/* ---------------------------------------------------------------- evaluating a shape */

/* One piece of a linear shape, in input units: a value up to `upper` maps to
 * value * slope + intercept. */
typedef struct trans_interval {
    double upper, slope, intercept;
} trans_interval;

/* The intervals of a linear transform, one per pair of neighbouring points
 * whose x rises (vertical steps give none). `intervals` has room for
 * nr_points - 1 entries; *count gets the number made. */
VLD_API void setup_interval_info(const transform *t, trans_interval *intervals, int *count);
/* Maps `value` by the first interval whose upper end isn't below it; a value
 * above the last one is left as it is, and *mapped (may be null) gets 0. */
VLD_API double trans_map_intervals(const trans_interval *intervals, int count, double value,
                                   int *mapped);
/* Maps one value by a transform of type Linear, Exponential or Logarithmic,
 * without limiting input or output. */
VLD_API double trans_map_value(const transform *t, const trans_interval *intervals, int count,
                               double value, int *mapped);

/* The bucket of a value inside the input range: trunc((v - min_input) / span
 * * 255 + 0.5), with NaN in bucket 0 and the result kept within 0 to 255. */
VLD_API int trans_bucket(double value, double min_input, double span);

/* 256-entry tables of a transform of type 2 to 4. The 8-bit inputs are held
 * to the input range first; entries of linear values that no interval takes
 * keep what the table held. */
VLD_API void setup_UINT8_to_UINT8_lut(const transform *t, uint8_t *table);
VLD_API void calc_transform_lut(const transform *t, uint8_t *table);
VLD_API void setup_UINT8_to_double_lut(const transform *t, double *table);
/* Entry i is the mapping of min_input + i * span / 255, limited to 0..255
 * and truncated. */
VLD_API void setup_double_to_UINT8_lut(const transform *t, uint8_t *table);
/* For each 8-bit value: 65534 below the input range, 65535 above it, else its
 * bucket. */
VLD_API void setup_bucket_of_value(const transform *t, uint16_t *bucket_of_value);
/* Builds `h` from counts of the 8-bit values (all of `h` but its id is
 * replaced); with `skip_zero_flag` the value `skip_value` doesn't count. */
VLD_API void setup_hist_from_counter_array(histogram *h, const transform *t,
                                           const uint32_t *counters, int skip_zero_flag,
                                           int skip_value);
/* Prints a histogram on the library's standard output. */
VLD_API void PE_dump_hist(const histogram *h);

/* ---------------------------------------------------------------- histograms and limits */

/* Marks the histograms of `t` and of every transform after it invalid and,
 * when `t` isn't in the stream's output chain, those of that chain too.
 * Returns 1 if any histogram changed. */
VLD_API int mark_histograms_invalid(transform *t, stream *st);
/* The same for every chain of the stream. */
VLD_API int mark_all_histograms_invalid(stream *st);

/* The clip points of a histogram: `percent` of its cells in range cut off at
 * each end, as positions in the unit square. */
VLD_API int calc_clip_points(const transform *t, double percent, double *low, double *high);
/* Replaces a linear shape by the ramp between the clip points. */
VLD_API int autoclip_trans(transform *t, double percent);
/* Sets the ranges: -1 when a minimum isn't below its maximum. */
VLD_API int trans_set_limits(transform *t, stream *st, double min_input, double max_input,
                             double min_output, double max_output);
/* The input range from the lowest and highest value of the histogram. */
VLD_API int trans_set_limits_actual(transform *t, stream *st);
/* The input range narrowed to the clip points of `percent`. */
VLD_API int trans_set_limits_percent(transform *t, stream *st, double percent);
/* Replaces the shape by the default of `type`, keeping ranges and links. */
VLD_API int trans_set_type(transform *t, stream *st, int type);
/* The histogram that would leave the transform; marked invalid when it can't
 * be worked out. */
VLD_API int calc_approx_output_histogram(const transform *t, histogram *out);

/* ---------------------------------------------------------------- equalising and matching */

VLD_API int histogram_equalise(transform *t, int nr_points, int keep_all);
VLD_API int gaussian_equalise(transform *t, int nr_points, int keep_all, double mean, double sigma);
/* Matches the other streams of the stream's surface and type to it: 0 if at
 * least one was matched, else -1. */
VLD_API int trans_hist_match(stream *st);

/* ---------------------------------------------------------------- shapes */

/* `p0`, `p1`, `p2` are (x, y) pairs. 1 if the middle point adds nothing. */
VLD_API int trans_three_points_in_line(const double *p0, const double *p1, const double *p2);
/* 1 if p1 lies within 0.01 of p0 or of p2 in both x and y. */
VLD_API int trans_two_points_clustered(const double *p0, const double *p1, const double *p2);
VLD_API int trans_scrap_a_point(transform *t, int index);
VLD_API int trans_scrap_lines(transform *t);
/* The composition of two linear transforms: `second` after `first`. */
VLD_API int combine_two_trans(transform *result, const transform *first, const transform *second);
VLD_API int trans_is_decreasing(const transform *t);
/* A new transform, the inverse of `t`, in *result. */
VLD_API int eg_undo_trans(transform **result, const transform *t);
VLD_API int eg_undo_linear_trans(transform **result, const transform *t);
VLD_API int eg_undo_exp_trans(transform **result, const transform *t);
VLD_API int eg_undo_log_trans(transform **result, const transform *t);
/* A staircase of `nr_steps` steps. */
VLD_API int trans_step(transform *t, int nr_steps);
/* Shifts a linear shape along x by `amount`. */
VLD_API int trans_scroll(transform *t, double amount);
/* The text of an exponential or logarithmic shape, in `text` of at least 96
 * bytes; another type gives a text that says so, and 1. */
VLD_API int trans_to_str(char *text, const transform *t);

/* ---------------------------------------------------------------- chains */

/* A default transform of `type` after `after` (at the end of the chain when
 * null) or before `before` (at its head when null), in the chain of `input`
 * or, with a null `input`, the stream's output chain. Returns the new
 * transform, or null with the error set. */
VLD_API transform *trans_append(transform *after, streaminput *input, stream *st, algorithm *alg,
                                int type);
VLD_API transform *trans_insert(transform *before, streaminput *input, stream *st, algorithm *alg,
                                int type);
/* Unlinks `t` from its chain and frees it. */
VLD_API int trans_free(transform *t, streaminput *input, stream *st);
/* Copies ranges, type and shape of `source` into `target`. */
VLD_API int trans_paste(transform *target, const transform *source, stream *st);
/* Pastes `source`, which stands in the chain that begins at `chain_head` (of
 * the stream input `input`, or the output chain when null), to the same place
 * in every like stream of the surface that is on. */
VLD_API int trans_paste_all(streaminput *input, const transform *source,
                            const transform *chain_head, stream *st, algorithm *alg);

/* ---------------------------------------------------------------- curves */

VLD_API int calc_scaled_exp(transform *t);
VLD_API int calc_scaled_log(transform *t);
VLD_API int calc_scaled_any(transform *t);
VLD_API double y_exp_est(double a, double x);
VLD_API int solve_exp(double x0, double y0, double *a, double *b, double *c, double tolerance);
VLD_API int solve_log(double x0, double y0, double *a, double *b, double *c);

VLD_END_DECLS

#endif
