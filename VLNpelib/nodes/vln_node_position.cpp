/*
 * vln_node_position.cpp: FN_CELLX, FN_CELLY, FN_PIXELX and FN_PIXELY, the
 * position sources of a formula.
 *
 * They deliver, for each cell of the read window of a stream's dataset, its
 * column or line: CELLX and CELLY in the cells of the dataset's file (the
 * last header of the chain of source headers), PIXELX and PIXELY in pixels of
 * the output image. Lines are doubles with one run over the whole line, but
 * for a warped dataset, whose run loses the cells that fall off the file.
 *
 * Where the dataset's grid is the file's, or a resampled view of it in the
 * same space, positions follow the sampling rule of the resampling nodes and
 * are worked out once. Where the dataset is warped into the image's space,
 * each line's positions are taken through the coordinate conversions at its
 * two ends and, between them, by halving the span until a straight line fits
 * within a twentieth of a cell.
 *
 * This file is compiled with -frounding-math: positions are truncated in the
 * processor's truncating mode.
 */
#include <cmath>

#include "vld_coords.h"
#include "vln_nodes.h"

namespace {

enum Axis { X = 0, Y = 1 };

struct Position {
    vln_pe::NodeBase base;
    dsinput *dsi;
    int axis;
    bool per_line;  // one value per line (CELLY, PIXELY) rather than one per cell
    int line;       // lines delivered so far
    double *table;  // the values: one per cell, or one per line for PIXELY
    int table_size;
    // CELLY in the same space: value of line n is start + span / lines * n.
    double start, span;
    int lines;
    // A warped dataset: the file's header and one line of positions in it.
    dshdr *file;
    double *pos_x, *pos_y;
    int width;
};

Position *new_source(funcnode **slot, pe_context *pe, int type, pe_stream *ps)
{
    funcnode *node = nullptr;
    auto *p = vln_pe::new_private_node<Position>(pe, type, 0, &node);
    p->dsi = ps->dsinput;
    *slot = node;
    return p;
}

double *new_table(pe_context *pe, int count)
{
    return static_cast<double *>(pe_malloc(pe, static_cast<int64_t>(count) * sizeof(double)));
}

/* Entries i of the sampling rule, as doubles. */
void sample_table(pe_context *pe, double *table, int count, double source_span,
                  double destination_span, double start)
{
    auto *entries = static_cast<int *>(pe_malloc(pe, static_cast<int64_t>(count) * sizeof(int)));
    setup_sample_array(entries, count, source_span, destination_span, start);
    for (int i = 0; i < count; i++) table[i] = entries[i];
    pe_free(pe, entries);
}

/* ---------------------------------------------------------------- warped datasets */

/* The last header of the chain of source headers: how the file really is. */
dshdr *file_header(dshdr *dsh)
{
    while (dsh->source_dsh != nullptr) dsh = dsh->source_dsh;
    return dsh;
}

/* The position of the centre of cell (x, y) of `dsh` in cells of `file`. A
 * failure of a conversion ends the read with the conversion's text. */
void file_position(pe_context *pe, dshdr *dsh, dshdr *file, double x, double y, double *fx,
                   double *fy)
{
    dscoord coord{};
    int rc = cvt_cell_to_any_coord(dsh, x + 0.5, y + 0.5, &file->coordspace, &coord);
    if (rc == 0) {
        const coordspace &space = file->coordspace;
        if (space.coordsystype == CST_LL && space.projection != nullptr &&
            VLD_strcasecmp(space.projection, "GEODETIC") == 0) {
            coord.x = coord.x * 180.0 / M_PI;
            coord.y = coord.y * 180.0 / M_PI;
        }
        rc = cvt_coord_to_cell(file, &coord, fx, fy);
    }
    if (rc != 0) vds_processing_error(pe, "%s", VLD_error_text());
}

struct WarpedLine {
    pe_context *pe;
    dshdr *dsh, *file;
    double first_cell, step, y;
    double *xs, *ys;

    void exact(int i) { file_position(pe, dsh, file, first_cell + i * step, y, &xs[i], &ys[i]); }

    /* Fills the cells between a and b, whose positions are known. */
    void fill(int a, int b)
    {
        if (b - a < 2) return;
        const int m = (a + b) / 2;
        exact(m);
        const double t = static_cast<double>(m - a) / (b - a);
        const double ix = xs[a] + (xs[b] - xs[a]) * t;
        const double iy = ys[a] + (ys[b] - ys[a]) * t;
        if (std::fabs(xs[m] - ix) <= 0.05 && std::fabs(ys[m] - iy) <= 0.05) {
            for (int i = a + 1; i < b; i++) {
                const double u = static_cast<double>(i - a) / (b - a);
                xs[i] = xs[a] + (xs[b] - xs[a]) * u;
                ys[i] = ys[a] + (ys[b] - ys[a]) * u;
            }
            return;
        }
        fill(a, m);
        fill(m, b);
    }
};

/* One line of a warped dataset: positions in the file, the values of the
 * axis, and a run that leaves out the cells off the file at either end. */
void read_warped(Position *p, bufinfo *out, int line)
{
    const dsinput *dsi = p->dsi;
    const double step_x = dsi->sub_step_x > 0 ? dsi->sub_step_x : 1.0;
    const double step_y = dsi->sub_step_y > 0 ? dsi->sub_step_y : 1.0;
    const int n = p->width;
    double y;
    {
        vln_pe::TruncatingRounding truncating;
        y = dsi->first_line + static_cast<double>(vln_pe::hardware_int(line * step_y));
    }
    WarpedLine w{p->base.pe, dsi->dsh, p->file,  static_cast<double>(dsi->first_cell),
                 step_x,     y,        p->pos_x, p->pos_y};
    w.exact(0);
    if (n > 1) w.exact(n - 1);
    w.fill(0, n - 1);

    const double *values = p->axis == X ? p->pos_x : p->pos_y;
    const double last_cell = p->file->info.r.nr_cells - 1;
    const double last_line = p->file->info.r.nr_lines - 1;
    {
        vln_pe::TruncatingRounding truncating;
        for (int b = 0; b < out->nr_buffers; b++) {
            auto *cells = static_cast<double *>(out->buffers[b]->data);
            for (int i = 0; i < n; i++)
                cells[i] = values[i] >= 0 ? static_cast<double>(vln_pe::hardware_int(values[i]))
                                          : values[i];
        }
    }
    int first = 0, last = n - 1;
    while (first <= last && (p->pos_x[first] < 0 || p->pos_y[first] < 0)) first++;
    while (last >= first &&
           (std::trunc(p->pos_x[last]) > last_cell || std::trunc(p->pos_y[last]) > last_line))
        last--;
    for (int b = 0; b < out->nr_buffers; b++) {
        pe_free_rlseg_list(p->base.pe, &out->buffers[b]->rlsegs);
        if (first <= last) out->buffers[b]->rlsegs = pe_rlseg(p->base.pe, first, last);
    }
}

/* ---------------------------------------------------------------- hooks */

void init(funcnode *node)
{
    auto *p = vln_pe::priv<Position>(node);
    setup_bufinfo(node->output, IEEE8ByteReal);
    if (p->file == nullptr) return;
    p->width = node->output->nr_cells;
    p->pos_x = new_table(p->base.pe, p->width);
    p->pos_y = new_table(p->base.pe, p->width);
}

/* Delivers `count` cells of `value` (or of `values`) over one run. */
void deliver(pe_context *pe, bufinfo *out, const double *values, double value, int count)
{
    if (count > out->nr_cells) count = out->nr_cells;
    for (int b = 0; b < out->nr_buffers; b++) {
        auto *cells = static_cast<double *>(out->buffers[b]->data);
        for (int i = 0; i < count; i++) cells[i] = values != nullptr ? values[i] : value;
        pe_free_rlseg_list(pe, &out->buffers[b]->rlsegs);
        if (count > 0) out->buffers[b]->rlsegs = pe_rlseg(pe, 0, count - 1);
    }
}

void read(funcnode *node)
{
    auto *p = vln_pe::priv<Position>(node);
    bufinfo *out = node->output;
    const int line = p->line++;
    if (p->file != nullptr) return read_warped(p, out, line);
    if (!p->per_line) return deliver(p->base.pe, out, p->table, 0, p->table_size);
    double value;
    if (p->table != nullptr) {
        value = p->table[line < p->table_size ? line : p->table_size - 1];
    } else {
        // CELLY: one entry of the sampling rule, starting at this line's place.
        const double from = p->start + (p->span == p->lines ? line : p->span / p->lines * line);
        int entry = 0;
        setup_sample_array(&entry, 1, p->span, p->lines, from);
        value = entry;
    }
    deliver(p->base.pe, out, nullptr, value, out->nr_cells);
}

/* ---------------------------------------------------------------- builders */

/* Where the dataset's cells lie in the file's, along one axis: the first
 * file cell and the file cells that the read window spans. Returns false for
 * a dataset warped into another space. */
bool cell_window(pe_context *pe, const dsinput *dsi, int axis, double *start, double *span)
{
    const int first = axis == X ? dsi->first_cell : dsi->first_line;
    const int count = axis == X ? dsi->nr_cells : dsi->nr_lines;
    *start = first;
    *span = count;
    dshdr *dsh = dsi->dsh;
    dshdr *source = dsh != nullptr ? dsh->source_dsh : nullptr;
    if (source == nullptr) return true;
    if (!coordspaces_equal(&dsh->coordspace, &source->coordspace)) return false;

    const cellinfo &own = dsh->info.r.cellinfo;
    const cellinfo &src = source->info.r.cellinfo;
    const double ratio =
        axis == X ? own.x_dimension / src.x_dimension : own.y_dimension / src.y_dimension;
    *span = std::trunc(count * ratio);
    if (ratio <= 1) return true;
    // A view coarser than its file: the window starts at the file cell under
    // the centre of its first cell, from the image's top left corner.
    const algorithm *alg = pe->alg;
    double x = 0, y = 0;
    if (alg == nullptr || alg->top_left == nullptr ||
        cvt_any_coord_to_cell(alg->coordspace, alg->top_left, source, &x, &y) != 0)
        return true;
    double corner = axis == X ? x : y;
    if (corner < 0) corner = 0;
    *start = std::trunc(std::floor(ratio * 0.5 + corner));
    return true;
}

void setup_cell_source(funcnode **slot, pe_context *pe, pe_stream *ps, int type, int axis)
{
    Position *p = new_source(slot, pe, type, ps);
    p->axis = axis;
    p->per_line = axis == Y;
    const dsinput *dsi = p->dsi;
    double start = 0, span = 0;
    if (!cell_window(pe, dsi, axis, &start, &span)) {
        p->file = file_header(dsi->dsh);
        return;
    }
    if (axis == X) {
        p->table_size = dsi->read_cells;
        p->table = new_table(pe, p->table_size);
        sample_table(pe, p->table, p->table_size, span, dsi->read_cells, start);
    } else {
        p->start = start;
        p->span = span;
        p->lines = dsi->read_lines;
    }
}

/* The output pixels of the read window along one axis, worked out once. */
void setup_pixel_source(funcnode **slot, pe_context *pe, pe_stream *ps, int type, int axis)
{
    Position *p = new_source(slot, pe, type, ps);
    p->axis = axis;
    p->per_line = axis == Y;
    const dsinput *dsi = p->dsi;
    const bool across = axis == X;
    const int count = across ? dsi->read_cells : dsi->read_lines;
    const int proc = across ? dsi->proc_cells : dsi->proc_lines;
    const int out_count = across ? dsi->out_nr_cells : dsi->out_nr_lines;
    const int out_first = across ? dsi->out_first_cell : dsi->out_first_line;
    const int margin = across ? dsi->margin_left : dsi->margin_top;
    const int offset = pe->alg != nullptr ? (across ? pe->alg->x_offset : pe->alg->y_offset) : 0;

    p->table_size = count;
    p->table = new_table(pe, count);
    double base;
    if (proc >= out_count) {
        base = out_first - margin;
        for (int i = 0; i < count; i++) p->table[i] = i;
    } else {
        const double ratio = across ? dsi->super_step_out_cells / dsi->super_step_cells
                                    : dsi->super_step_out_lines / dsi->super_step_lines;
        const double frac = across ? dsi->super_frac_x : dsi->super_frac_y;
        base = std::trunc(out_first - margin * ratio);
        sample_table(pe, p->table, count, count * ratio, count, -frac * ratio);
    }
    for (int i = 0; i < count; i++) {
        if (p->table[i] < 0) p->table[i] = 0;
        p->table[i] += base + offset;
    }
}

void skip(funcnode *node, int first)
{
    vln_pe::priv<Position>(node)->line = first;
    start_inputs_at_line(node, first);
}

}  // namespace

namespace vln_pe {
extern const NodeOps position_ops;
const NodeOps position_ops = {init, nullptr, nullptr, read, nullptr, skip};
}  // namespace vln_pe

/* The column, in the dataset's file, of each cell of the stream's read window. */
void setup_cellx_node(funcnode **slot, pe_context *pe, pe_stream *ps)
{
    setup_cell_source(slot, pe, ps, FN_CELLX, X);
}

/* The line, in the dataset's file, of each line of the read window. */
void setup_celly_node(funcnode **slot, pe_context *pe, pe_stream *ps)
{
    setup_cell_source(slot, pe, ps, FN_CELLY, Y);
}

/* The output image's column of each cell of the read window. */
void setup_pixelx_node(funcnode **slot, pe_context *pe, pe_stream *ps)
{
    setup_pixel_source(slot, pe, ps, FN_PIXELX, X);
}

/* The output image's line of each line of the read window. */
void setup_pixely_node(funcnode **slot, pe_context *pe, pe_stream *ps)
{
    setup_pixel_source(slot, pe, ps, FN_PIXELY, Y);
}
