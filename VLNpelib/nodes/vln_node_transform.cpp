/*
 * vln_node_transform.cpp: FN_TRANSFORM, one lookup transform over a line,
 * gathering the histogram of the values that pass through it.
 *
 * The read routine is chosen in init from the input's cell type, the type
 * asked of the output and whether the algorithm allows tables:
 *
 *   mode 0  direct calculation in doubles (HistogramOnly: counting only)
 *   mode 1  8-bit HistogramOnly: raw counts of each value, line untouched
 *   mode 2  8-bit to 8-bit through a table
 *   mode 3  any other type to 8-bit through a table of 256 input steps
 *   mode 4  8-bit to doubles through a table
 *
 * Tables are made once, in init; raw counts become a histogram only when
 * the histograms are collected, so that an 8-bit cell costs a lookup and an
 * increment. Where the output has the input's type the node works in place
 * on its parent's line.
 */
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "vln_nodes.h"
#include "vln_transform_ops.h"

using namespace vln_pe;

namespace {

struct Transform {
    NodeBase base;
    transform *t;
    int output_type_request;  // 0, or Unsigned8BitInteger
    bool use_8bit_tables;
    bool collect;
    int mode;
    int interval_count;
    trans_interval *intervals;
    uint8_t *lut;        // modes 2 and 3
    double *double_lut;  // mode 4
    uint32_t *counters;  // modes 1, 2 and 4 while collecting
    double span;
    histogram *hist;  // null unless collecting
};

/* ---------------------------------------------------------------- cell loops */

/* Counts one value into the histogram (direct and table modes); returns the
 * value held to the input range. */
inline double count_value(Transform *p, double v)
{
    histogram *h = p->hist;
    if (v < h->min_value) h->min_value = v;
    if (v > h->max_value) h->max_value = v;
    const transform *t = p->t;
    if (v < t->min_input) {
        h->below++;
        return t->min_input;
    }
    if (v > t->max_input) {
        h->above++;
        return t->max_input;
    }
    h->counts[trans_bucket(v, t->min_input, p->span)]++;
    return v;
}

/* The shapes, for the direct calculation. */
struct LinearShape {
    const trans_interval *intervals;
    int count;
    double operator()(double v) const { return trans_map_intervals(intervals, count, v, nullptr); }
};
struct ExpShape {
    double a, b, c;
    double operator()(double v) const { return std::exp(v * a) * b + c; }
};
struct LogShape {
    double a, b, c;
    double operator()(double v) const { return std::log(v + a) * b + c; }
};

/* Mode 0: every cell of the runs, as a double, held to the input range and
 * mapped; the result isn't limited to the output range. */
template <class T, bool Collect, class Shape>
void direct_runs(Transform *p, const Shape &shape, const void *in, double *out, const rlseg *runs)
{
    const T *cells = static_cast<const T *>(in);
    const double lo = p->t->min_input, hi = p->t->max_input;
    for (const rlseg *r = runs; r != nullptr; r = r->next) {
        if constexpr (Collect) p->hist->nr_cells += static_cast<uint32_t>(r->last - r->first + 1);
        for (int i = r->first; i <= r->last; i++) {
            double v = static_cast<double>(cells[i]);
            // Kept: negative infinity becomes the smallest positive normal
            // number, not the most negative one; histograms rely on it.
            if (v == HUGE_VAL) v = DBL_MAX;
            if (v == -HUGE_VAL) v = DBL_MIN;
            if constexpr (Collect) {
                v = count_value(p, v);
            } else {
                v = v < lo ? lo : v > hi ? hi : v;
            }
            out[i] = shape(v);
        }
    }
}

template <class T, bool Collect>
void direct(Transform *p, const void *in, double *out, const rlseg *runs)
{
    const transform *t = p->t;
    if (t->type == TT_Linear) {
        direct_runs<T, Collect>(p, LinearShape{p->intervals, p->interval_count}, in, out, runs);
    } else if (t->type == TT_Exponential) {
        const auto *e = static_cast<const expdef *>(t->definition);
        direct_runs<T, Collect>(p, ExpShape{e->a_scaled, e->b_scaled, e->c_scaled}, in, out, runs);
    } else {
        const auto *l = static_cast<const logdef *>(t->definition);
        direct_runs<T, Collect>(p, LogShape{l->a_scaled, l->b_scaled, l->c_scaled}, in, out, runs);
    }
}

/* Mode 0 of a HistogramOnly transform: counting only. */
template <class T>
void histogram_only(Transform *p, const void *in, const rlseg *runs)
{
    const T *cells = static_cast<const T *>(in);
    for (const rlseg *r = runs; r != nullptr; r = r->next) {
        p->hist->nr_cells += static_cast<uint32_t>(r->last - r->first + 1);
        for (int i = r->first; i <= r->last; i++) {
            double v = static_cast<double>(cells[i]);
            if (v == HUGE_VAL) v = DBL_MAX;
            if (v == -HUGE_VAL) v = DBL_MIN;
            count_value(p, v);
        }
    }
}

/* Mode 3: below the range entry 0, above it 255, else the entry of the
 * bucket (NaN in bucket 0), worked out in the truncating rounding mode. */
template <class T, bool Collect>
void double_through_table(Transform *p, const void *in, uint8_t *out, const rlseg *runs)
{
    const T *cells = static_cast<const T *>(in);
    const double lo = p->t->min_input, hi = p->t->max_input, span = p->span;
    const uint8_t *lut = p->lut;
    histogram *h = p->hist;
    TruncatingRounding chop;
    for (const rlseg *r = runs; r != nullptr; r = r->next) {
        if constexpr (Collect) h->nr_cells += static_cast<uint32_t>(r->last - r->first + 1);
        for (int i = r->first; i <= r->last; i++) {
            const double v = static_cast<double>(cells[i]);
            if constexpr (Collect) {
                if (v < h->min_value) h->min_value = v;
                if (v > h->max_value) h->max_value = v;
            }
            if (v < lo) {
                if constexpr (Collect) h->below++;
                out[i] = lut[0];
            } else if (v > hi) {
                if constexpr (Collect) h->above++;
                out[i] = lut[255];
            } else {
                const double b = (v - lo) / span * 255 + 0.5;
                int64_t k = b >= 0 ? hardware_int(b) : 0;  // NaN fails the test
                if (k > 255) k = 255;
                if constexpr (Collect) h->counts[k]++;
                out[i] = lut[k];
            }
        }
    }
}

/* Modes 1, 2 and 4 on 8-bit cells. */
void count_bytes(uint32_t *counters, const uint8_t *cells, const rlseg *runs)
{
    for (const rlseg *r = runs; r != nullptr; r = r->next)
        for (int i = r->first; i <= r->last; i++) counters[cells[i]]++;
}

template <class Out>
void bytes_through_table(const Out *lut, const uint8_t *in, Out *out, const rlseg *runs)
{
    for (const rlseg *r = runs; r != nullptr; r = r->next)
        for (int i = r->first; i <= r->last; i++) out[i] = lut[in[i]];
}

/* ---------------------------------------------------------------- hooks */

/* The table mode of the node's input type (see the file's head). */
int choose_mode(const Transform *p, int input_type)
{
    const bool request8 = p->output_type_request == Unsigned8BitInteger;
    const bool type5 = p->t->type == TT_HistogramOnly;
    if (!p->use_8bit_tables) return 0;
    if (input_type == Unsigned8BitInteger) {
        if (type5) return 1;
        return request8 ? 2 : 4;
    }
    if (!type5 && request8) return 3;
    return 0;
}

int output_type_of(int mode, const Transform *p, int input_type)
{
    switch (mode) {
        case 0:
            return p->t->type == TT_HistogramOnly ? input_type : IEEE8ByteReal;
        case 4:
            return IEEE8ByteReal;
        default:
            return Unsigned8BitInteger;
    }
}

void init(funcnode *node)
{
    auto *p = priv<Transform>(node);
    pe_context *pe = p->base.pe;
    bufinfo *in = node->inputs[0].buffers;
    const transform *t = p->t;
    p->mode = choose_mode(p, in->cell_type);
    const int out_type = output_type_of(p->mode, p, in->cell_type);
    setup_bufinfo(node->output, out_type);
    // Same type both sides: the child writes straight into the parent's line.
    if (out_type == in->cell_type) in->alloc_level = PE_ALLOC_SHARED;

    p->span = t->max_input - t->min_input;
    if (t->type == TT_Linear) {
        const auto *d = static_cast<const lineardef *>(t->definition);
        const int room = d != nullptr && d->nr_points > 1 ? d->nr_points - 1 : 1;
        p->intervals = static_cast<trans_interval *>(pe_malloc(pe, room * sizeof(trans_interval)));
        setup_interval_info(t, p->intervals, &p->interval_count);
    }
    if (p->collect) {
        p->hist = static_cast<histogram *>(pe_malloc(pe, sizeof(histogram)));
        p->hist->id = t->id;
        const bool bytes = p->mode == 1 || p->mode == 2 || p->mode == 4;
        p->hist->min_value = bytes ? 0.0 : DBL_MAX;
        p->hist->max_value = bytes ? 255.0 : -DBL_MAX;
        if (bytes) p->counters = static_cast<uint32_t *>(pe_malloc(pe, 256 * sizeof(uint32_t)));
    }
    if (p->mode == 2 || p->mode == 3) p->lut = static_cast<uint8_t *>(pe_malloc(pe, 256));
    if (p->mode == 2) setup_UINT8_to_UINT8_lut(t, p->lut);
    if (p->mode == 3) setup_double_to_UINT8_lut(t, p->lut);
    if (p->mode == 4) {
        p->double_lut = static_cast<double *>(pe_malloc(pe, 256 * sizeof(double)));
        setup_UINT8_to_double_lut(t, p->double_lut);
    }
}

void read(funcnode *node)
{
    auto *p = priv<Transform>(node);
    bufinfo *out = node->output;
    bufinfo *in = node->inputs[0].buffers;
    const bool in_place = in->alloc_level == PE_ALLOC_SHARED;
    if (in_place)
        for (int b = 0; b < out->nr_buffers; b++) in->buffers[b] = out->buffers[b];
    pull(node);
    if (!in_place) move_rlsegs(p->base.pe, in, out);
    for (int b = 0; b < out->nr_buffers; b++) {
        const void *from = in->buffers[b]->data;
        void *to = out->buffers[b]->data;
        const rlseg *runs = out->buffers[b]->rlsegs;
        const auto *bytes = static_cast<const uint8_t *>(from);
        switch (p->mode) {
            case 0:
                with_cell_type(in->cell_type, [&](auto cell) {
                    using T = decltype(cell);
                    if constexpr (!std::is_same_v<T, std::byte>) {
                        if (p->t->type == TT_HistogramOnly)
                            histogram_only<T>(p, from, runs);
                        else if (p->collect)
                            direct<T, true>(p, from, static_cast<double *>(to), runs);
                        else
                            direct<T, false>(p, from, static_cast<double *>(to), runs);
                    }
                });
                break;
            case 1:
                count_bytes(p->counters, bytes, runs);
                break;
            case 2:
                if (p->counters != nullptr) count_bytes(p->counters, bytes, runs);
                bytes_through_table(p->lut, bytes, static_cast<uint8_t *>(to), runs);
                break;
            case 3:
                with_cell_type(in->cell_type, [&](auto cell) {
                    using T = decltype(cell);
                    if constexpr (!std::is_same_v<T, std::byte>) {
                        if (p->collect)
                            double_through_table<T, true>(p, from, static_cast<uint8_t *>(to),
                                                          runs);
                        else
                            double_through_table<T, false>(p, from, static_cast<uint8_t *>(to),
                                                           runs);
                    }
                });
                break;
            case 4:
                if (p->counters != nullptr) count_bytes(p->counters, bytes, runs);
                bytes_through_table(p->double_lut, bytes, static_cast<double *>(to), runs);
                break;
            default:
                break;
        }
    }
}

}  // namespace

namespace vln_pe {
extern const NodeOps transform_ops;
const NodeOps transform_ops = {init, nullptr, nullptr, read, nullptr};
}  // namespace vln_pe

/* Applies `t` to lines of `nr_cells` cells; `out_type` Unsigned8BitInteger
 * asks for 8-bit output, where tables allow it. */
void setup_transformnode(funcnode **slot, pe_context *pe, pe_stream *, transform *t, int nr_cells,
                         int out_type)
{
    const algorithm *alg = pe->alg;
    const bool collect = alg != nullptr && alg->calc_histograms != 0;
    if (t->type < TT_Linear || t->type > TT_HistogramOnly)
        alg_internal_error(pe, __FILE__, __LINE__, "Bad transform type");
    if (t->type == TT_HistogramOnly && !collect) return;
    auto *p = add_stage<Transform>(slot, pe, FN_TRANSFORM, 1, nr_cells, 0, PE_ALLOC_LINES);
    p->t = t;
    p->output_type_request = out_type == Unsigned8BitInteger ? Unsigned8BitInteger : 0;
    // Tables go with the algorithm's optimisation: they trade a step of
    // 1/255 of the input range for one lookup per cell.
    p->use_8bit_tables = alg != nullptr && alg->do_optimisation != 0;
    p->collect = collect;
}

histogram *transform_node_histogram(funcnode *node)
{
    if (node == nullptr || node->type != FN_TRANSFORM) return nullptr;
    auto *p = priv<Transform>(node);
    if (p->hist != nullptr && p->counters != nullptr)
        setup_hist_from_counter_array(p->hist, p->t, p->counters, 0, 0);
    return p->hist;
}

void collect_hist(funcnode *node, void (*deliver)(void *arg, histogram *h), void *arg)
{
    if (node == nullptr) return;
    for (int i = 0; node->type != FN_INPUT && i < node->nr_inputs; i++)
        collect_hist(node->inputs[i].node, deliver, arg);
    histogram *h = nullptr;
    if (node->type == FN_TRANSFORM) h = transform_node_histogram(node);
    if (node->type == FN_OPTIM) h = get_optim_hist(node);
    if (h != nullptr) deliver(arg, h);
}
