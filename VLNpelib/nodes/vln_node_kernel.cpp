/*
 * vln_node_kernel.cpp: FN_KERNEL, a spatial filter over one band, and the
 * window shell that the shading nodes share with it.
 *
 * A convolution kernel gives each cell the weighted sum of its window,
 * accumulated row by row and column by column, divided by the scale factor;
 * a threshold kernel gives the same, unless it lies at least the threshold
 * away from the centre cell, when the centre cell is kept; a user kernel calls
 * a function of a library (vln_node_kernel_user.cpp). Results are doubles,
 * neither clamped nor renormalised at edges: a cell whose window isn't wholly
 * valid is null.
 *
 * The cell loops run over whole runs. A 3 by 3 window has its own loop with
 * the weights in registers; other sizes accumulate the window into the
 * output line one weight at a time, in the same order per cell, so that both
 * give the same bytes.
 */
#include <algorithm>
#include <cmath>

#include "vln_kernel_internal.h"

using namespace vln_pe;
using vln_kernel::Window;

namespace {

/* ---------------------------------------------------------------- the shell */

/* Takes the child's next line into the ring's oldest slot. */
void take_line(funcnode *node, Window *w)
{
    pe_context *pe = w->base.pe;
    bufinfo *in = node->inputs[0].buffers;
    linebuf *slot = &w->ring[w->ring_position];
    linebuf *line = in->buffers[0];
    pe_free_rlseg_list(pe, &slot->rlsegs);
    if (w->scratch == nullptr) {
        line->data = slot->data;
        pull(node);
    } else {
        line->data = w->scratch;
        pull(node);
        convtype(in->cell_type, w->scratch, IEEE8ByteReal, slot->data, line->rlsegs);
    }
    slot->rlsegs = line->rlsegs;
    line->rlsegs = nullptr;
    w->ring_position = (w->ring_position + 1) % w->rows;
}

/* The cells whose whole window is valid: the rows' runs intersected, each
 * run narrowed by `half` cells at both ends. Runs are kept within the line's
 * `nr_cells`, so that no window reaches past the ring's lines. */
rlseg *window_runs(pe_context *pe, linebuf *const *lines, int rows, int half, int nr_cells)
{
    rlseg *runs = dup_rlsegs(&pe->rlsegs, lines[0]->rlsegs);
    for (int r = 1; r < rows && runs != nullptr; r++) {
        rlseg *both = pe_and_rlsegs(&pe->rlsegs, runs, lines[r]->rlsegs);
        pe_free_rlseg_list(pe, &runs);
        runs = both;
    }
    rlseg **link = &runs;
    while (*link != nullptr) {
        rlseg *run = *link;
        run->first = std::max(run->first, 0) + half;
        run->last = std::min(run->last, nr_cells - 1) - half;
        if (run->first > run->last) {
            *link = run->next;
            run->next = nullptr;
            pe_free_rlseg(&pe->rlsegs, &run);
        } else {
            link = &run->next;
        }
    }
    return runs;
}

/* ---------------------------------------------------------------- convolution and threshold */

/* The threshold rule: the sum, unless it strays `threshold` or more from the
 * centre cell. */
inline double thresholded(double s, double centre, double threshold)
{
    return std::fabs(s - centre) >= threshold ? centre : s;
}

template <bool Threshold>
void convolve_3x3(const Window *w, int first, int last, const double *const *rows, void *out_line)
{
    const double *c = w->coefficients;
    const double c00 = c[0], c01 = c[1], c02 = c[2];
    const double c10 = c[3], c11 = c[4], c12 = c[5];
    const double c20 = c[6], c21 = c[7], c22 = c[8];
    const double scale = w->scale_factor, threshold = w->threshold;
    const double *__restrict r0 = rows[0] + first - 1;
    const double *__restrict r1 = rows[1] + first - 1;
    const double *__restrict r2 = rows[2] + first - 1;
    double *__restrict out = static_cast<double *>(out_line) + first;
    const int n = last - first + 1;
    for (int i = 0; i < n; i++) {
        double s = 0.0;
        s += c00 * r0[i];
        s += c01 * r0[i + 1];
        s += c02 * r0[i + 2];
        s += c10 * r1[i];
        s += c11 * r1[i + 1];
        s += c12 * r1[i + 2];
        s += c20 * r2[i];
        s += c21 * r2[i + 1];
        s += c22 * r2[i + 2];
        s /= scale;
        if constexpr (Threshold)
            out[i] = thresholded(s, r1[i + 1], threshold);
        else
            out[i] = s;
    }
}

/* Any size: the output line holds each cell's running sum, one weight of
 * the window at a time over the whole run. */
template <bool Threshold>
void convolve_any(const Window *w, int first, int last, const double *const *rows, void *out_line)
{
    double *__restrict out = static_cast<double *>(out_line) + first;
    const int n = last - first + 1;
    for (int i = 0; i < n; i++) out[i] = 0.0;
    const double *weight = w->coefficients;
    for (int r = 0; r < w->rows; r++)
        for (int k = 0; k < w->columns; k++, weight++) {
            const double c = *weight;
            const double *__restrict in = rows[r] + first - w->half_columns + k;
            for (int i = 0; i < n; i++) out[i] += c * in[i];
        }
    const double scale = w->scale_factor;
    if constexpr (Threshold) {
        const double *centre = rows[w->centre_row] + first;
        for (int i = 0; i < n; i++) out[i] = thresholded(out[i] / scale, centre[i], w->threshold);
    } else {
        for (int i = 0; i < n; i++) out[i] /= scale;
    }
}

vln_kernel::CellRoutine convolution_routine(int rows, int columns, bool threshold)
{
    if (rows == 3 && columns == 3) return threshold ? convolve_3x3<true> : convolve_3x3<false>;
    return threshold ? convolve_any<true> : convolve_any<false>;
}

/* ---------------------------------------------------------------- hooks */

void kernel_start(funcnode *node)
{
    auto *w = priv<Window>(node);
    if (w->kernel_type == KT_User) vln_kernel::start_user_kernel(w);
}

void kernel_close(funcnode *node)
{
    auto *w = priv<Window>(node);
    if (w->kernel_type == KT_User) vln_kernel::close_user_kernel(w);
}

/* The checks of a kernel's record that the cell loops rely on. */
void check_kernel(pe_context *pe, const kernel *k)
{
    if (k->type < KT_Convolution || k->type > KT_User)
        alg_error_fatal(pe, "Unsupported kernel type");
    if (k->rows <= 0 || k->rows % 2 == 0) alg_error_fatal(pe, "Bad number of rows (must be odd)");
    if (k->columns <= 0 || k->columns % 2 == 0)
        alg_error_fatal(pe, "Bad number of cols (must be odd)");
    if (k->type == KT_User) return;
    if (k->type == KT_Threshold && k->threshold == 0.0)
        alg_error_fatal(pe, "Threshold kernel: threshold = 0.0");
    if (k->scale_factor == 0.0) alg_error_fatal(pe, "Kernel scalefactor is zero");
    if (k->array == nullptr)
        alg_error_vprintf(pe, "Kernel %s has no Array of weights",
                          k->name != nullptr ? k->name : "");
}

}  // namespace

/* ---------------------------------------------------------------- the shell's interface */

Window *vln_kernel::add_window_stage(funcnode **slot, pe_context *pe, int type, int nr_cells,
                                     int rows, int columns, int out_type, CellRoutine routine)
{
    auto *w = add_stage<Window>(slot, pe, type, 1, nr_cells, 0, PE_ALLOC_RECORDS);
    w->first_read = 1;
    w->rows = rows;
    w->columns = columns;
    w->half_columns = columns / 2;
    w->centre_row = rows / 2;
    w->centre_column = columns / 2;
    w->cell_type = out_type;
    w->cell_size = celltypesize(out_type);
    w->cell_routine = routine;
    w->nr_cells = nr_cells;
    w->scale_factor = 1.0;
    return w;
}

void vln_kernel::window_init(funcnode *node)
{
    auto *w = priv<Window>(node);
    pe_context *pe = w->base.pe;
    // One cell more than the line, as every line of the engine has.
    const int64_t line_bytes = (int64_t{w->nr_cells} + 1) * 8;
    w->ring = static_cast<linebuf *>(pe_malloc(pe, sizeof(linebuf) * w->rows));
    for (int r = 0; r < w->rows; r++) w->ring[r].data = pe_malloc(pe, line_bytes);
    w->window_lines = static_cast<linebuf **>(pe_malloc(pe, sizeof(linebuf *) * w->rows));
    w->window_data = static_cast<const double **>(pe_malloc(pe, sizeof(double *) * w->rows));
    const bufinfo *in = node->inputs[0].buffers;
    if (in->cell_type != IEEE8ByteReal) w->scratch = pe_malloc(pe, int64_t{in->line_size} + 8);
    setup_bufinfo(node->output, w->cell_type);
}

void vln_kernel::window_read(funcnode *node)
{
    auto *w = priv<Window>(node);
    pe_context *pe = w->base.pe;
    if (w->first_read) {
        w->first_read = 0;
        for (int r = 0; r < w->rows; r++) take_line(node, w);
    } else {
        take_line(node, w);
    }
    for (int r = 0; r < w->rows; r++) {
        linebuf *line = &w->ring[(w->ring_position + r) % w->rows];
        w->window_lines[r] = line;
        w->window_data[r] = static_cast<const double *>(line->data);
    }
    linebuf *out = node->output->buffers[0];
    pe_free_rlseg_list(pe, &out->rlsegs);
    out->rlsegs = window_runs(pe, w->window_lines, w->rows, w->half_columns, w->nr_cells);
    for (const rlseg *run = out->rlsegs; run != nullptr; run = run->next)
        w->cell_routine(w, run->first, run->last, w->window_data, out->data);
}

namespace vln_pe {
extern const NodeOps kernel_ops;
const NodeOps kernel_ops = {vln_kernel::window_init, nullptr, kernel_start, vln_kernel::window_read,
                            kernel_close};
}  // namespace vln_pe

/* A kernel over lines of `nr_cells` cells. The record's checks are made here,
 * so that a bad kernel fails the open with its message. */
void setup_kernelnode(funcnode **slot, pe_context *pe, pe_stream *ps, kernel *k, int nr_cells)
{
    if (k == nullptr) return;
    check_kernel(pe, k);
    const bool threshold = k->type == KT_Threshold;
    vln_kernel::CellRoutine routine =
        k->type == KT_User ? nullptr : convolution_routine(k->rows, k->columns, threshold);
    Window *w = vln_kernel::add_window_stage(slot, pe, FN_KERNEL, nr_cells, k->rows, k->columns,
                                             IEEE8ByteReal, routine);
    w->kernel_type = k->type;
    if (k->type == KT_User) {
        vln_kernel::use_user_kernel_read(*slot);
        return vln_kernel::setup_user_kernel(w, pe, ps, k);
    }
    const size_t count = static_cast<size_t>(k->rows) * static_cast<size_t>(k->columns);
    auto *weights =
        static_cast<double *>(pe_malloc(pe, static_cast<int64_t>(count * sizeof(double))));
    std::memcpy(weights, k->array, count * sizeof(double));
    w->coefficients = weights;
    w->scale_factor = k->scale_factor;
    w->threshold = k->threshold;
}
