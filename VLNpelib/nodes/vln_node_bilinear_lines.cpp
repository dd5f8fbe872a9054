/*
 * vln_node_bilinear_lines.cpp: FN_BILINEAR_LINE_SUPERSAMPLE, the bilinear
 * enlargement in lines, on doubles and, in its real-time shade form, on
 * 16-bit cells of two byte components.
 *
 * The input holds the source lines with one line of lead-in above and one of
 * lead-out below. Output line n lies at input position p = n * r + y0 + 0.5:
 * it blends input lines i = trunc(p) and j = i + 1 (no further than the
 * lead-out line) with the weight p - i of j. The node keeps the two lines,
 * `previous` (i) and `current` (j), and pulls only when the position has
 * moved past `current`. Where only one of the two lines is valid, the nearer
 * line decides: its cell is taken if it is the valid one, and the cell is
 * null otherwise; a tie goes to `previous`. Kept: at a weight of exactly 0
 * only the cells valid in both lines are, so that a line that falls exactly
 * on an input line loses that line's cells at the edge of a valid area.
 */
#include <algorithm>
#include <utility>

#include "vln_resample_internal.h"

using namespace vln_pe;

namespace {

struct BilinearLines {
    NodeBase base;
    int cell_type;      // of input and output: IEEE8ByteReal, or Unsigned16BitInteger (shade)
    int source_height;  // H: the input holds H + 2 lines
    int view_lines;
    double r;   // source lines per output line
    double y0;  // the position of the first sample
    uint8_t hue;
    int line;                   // output lines delivered
    int lines_read;             // input lines pulled
    BlendPosition at;           // of the present output line
    linebuf previous, current;  // the last two input lines, in memory of the node's own
    rlseg *both, *only_previous, *only_current;
    BlendPosition *positions;  // shade form: per output line
};

void bilinear_lines_init(funcnode *node)
{
    auto *n = priv<BilinearLines>(node);
    pe_context *pe = n->base.pe;
    bufinfo *in = node->inputs[0].buffers;
    if (in->cell_type != n->cell_type)
        alg_internal_error(
            pe, __FILE__, __LINE__,
            n->cell_type == IEEE8ByteReal
                ? "Bilinear supersampling needs IEEE8ByteReal cells"
                : "Bilinear supersampling of shade cells needs Unsigned16BitInteger cells");
    setup_bufinfo(node->output, in->cell_type);
    n->previous.data = pe_malloc(pe, in->line_size);
    n->current.data = pe_malloc(pe, in->line_size);
}

/* The position of output line n. */
BlendPosition line_position(const BilinearLines *n, int line)
{
    double p = n->r * line + n->y0 + 0.5;
    if (p < 0) p = 0;
    int i = static_cast<int>(p);
    return {i, std::min(i + 1, n->source_height + 1), p - i};
}

/* Pulls until `current` is input line j, and splits the two lines' runs into
 * the part they share and the parts of each alone. */
void advance(funcnode *node, BilinearLines *n)
{
    pe_context *pe = n->base.pe;
    linebuf *in = node->inputs[0].buffers->buffers[0];
    if (n->lines_read > n->at.j) return;
    for (; n->lines_read <= n->at.j; n->lines_read++) {
        std::swap(n->previous, n->current);
        pe_free_rlseg_list(pe, &n->current.rlsegs);
        in->data = n->current.data;
        pull(node);
        n->current.rlsegs = in->rlsegs;
        in->rlsegs = nullptr;
    }
    pe_free_rlseg_list(pe, &n->both);
    pe_free_rlseg_list(pe, &n->only_previous);
    pe_free_rlseg_list(pe, &n->only_current);
    n->both = pe_and_rlsegs(&pe->rlsegs, n->previous.rlsegs, n->current.rlsegs);
    n->only_previous = rlseg_diff(&pe->rlsegs, n->previous.rlsegs, n->current.rlsegs);
    n->only_current = rlseg_diff(&pe->rlsegs, n->current.rlsegs, n->previous.rlsegs);
}

template <class T>
void copy_runs(const void *in, void *out, const rlseg *runs)
{
    for (; runs != nullptr; runs = runs->next)
        std::memcpy(static_cast<T *>(out) + runs->first, static_cast<const T *>(in) + runs->first,
                    sizeof(T) * static_cast<size_t>(runs->last - runs->first + 1));
}

/* The output line: blended where both lines are valid, and the nearer line's
 * own cells where only that one is. */
template <class T, class Blend>
void compose(BilinearLines *n, linebuf *out, Blend blend)
{
    pe_context *pe = n->base.pe;
    if (n->at.i == n->at.j) {
        copy_runs<T>(n->current.data, out->data, n->current.rlsegs);
        give_rlsegs(pe, out, dup_rlsegs(&pe->rlsegs, n->current.rlsegs));
        return;
    }
    const T *previous = static_cast<const T *>(n->previous.data);
    const T *current = static_cast<const T *>(n->current.data);
    T *cells = static_cast<T *>(out->data);
    const double f = n->at.f;
    for (const rlseg *run = n->both; run != nullptr; run = run->next)
        for (int d = run->first; d <= run->last; d++) cells[d] = blend(previous[d], current[d], f);
    const rlseg *alone = nullptr;
    if (f > 0.5) {
        alone = n->only_current;
        copy_runs<T>(current, cells, alone);
    } else if (f > 0) {
        alone = n->only_previous;
        copy_runs<T>(previous, cells, alone);
    }
    give_rlsegs(pe, out,
                alone != nullptr ? or_rlsegs(&pe->rlsegs, n->both, alone)
                                 : dup_rlsegs(&pe->rlsegs, n->both));
}

void bilinear_lines_read(funcnode *node)
{
    auto *n = priv<BilinearLines>(node);
    if (n->positions != nullptr) {
        n->at = n->positions[std::min(n->line, n->view_lines - 1)];
    } else {
        TruncatingRounding truncating;
        n->at = line_position(n, n->line);
    }
    advance(node, n);
    linebuf *out = node->output->buffers[0];
    {
        TruncatingRounding truncating;
        if (n->positions != nullptr)
            compose<uint16_t>(n, out, blend_shade);
        else if (n->hue)
            compose<double>(
                n, out, [](double u, double v, double f) { return blend_values<true>(u, v, f); });
        else
            compose<double>(
                n, out, [](double u, double v, double f) { return blend_values<false>(u, v, f); });
    }
    n->line++;
}

/* A read from the top holds, at any output line, input line j as `current`
 * and j - 1 as `previous`; the start pulls both. */
void bilinear_lines_skip(funcnode *node, int first)
{
    auto *n = priv<BilinearLines>(node);
    n->line = first;
    BlendPosition at;
    if (n->positions != nullptr) {
        at = n->positions[std::min(first, n->view_lines - 1)];
    } else {
        TruncatingRounding truncating;
        at = line_position(n, first);
    }
    n->lines_read = std::max(at.j - 1, 0);
    start_at_line(node->inputs[0].node, n->lines_read);
}

BilinearLines *add_bilinear_lines(funcnode **slot, pe_context *pe, pe_stream *ps, int cell_type)
{
    const dsinput *dsi = ps->dsinput;
    const int height = ps->zoom_lines - 2;
    if (dsi == nullptr || height < 1 || !(dsi->super_step_lines > 0) ||
        !(dsi->super_step_out_lines > 0))
        alg_internal_error(pe, __FILE__, __LINE__,
                           "Bilinear supersampling without a zoom in lines");
    auto *n = add_stage<BilinearLines>(slot, pe, FN_BILINEAR_LINE_SUPERSAMPLE, 1, dsi->out_nr_cells,
                                       cell_type, PE_ALLOC_RECORDS);
    n->cell_type = cell_type;
    n->source_height = height;
    n->view_lines = dsi->out_nr_lines;
    n->r = 1.0 / (dsi->super_step_out_lines / dsi->super_step_lines);
    n->y0 = dsi->super_frac_y;
    n->hue = ps->type == ST_Hue;
    return n;
}

}  // namespace

namespace vln_pe {
extern const NodeOps bilinear_line_supersample_ops;
const NodeOps bilinear_line_supersample_ops = {bilinear_lines_init, nullptr, nullptr,
                                               bilinear_lines_read, nullptr, bilinear_lines_skip};
}  // namespace vln_pe

void setup_bilinear_line_supersample_node(funcnode **slot, pe_context *pe, pe_stream *ps)
{
    add_bilinear_lines(slot, pe, ps, IEEE8ByteReal);
}

void setup_bilinear_rts_line_supersample_node(funcnode **slot, pe_context *pe, pe_stream *ps)
{
    BilinearLines *n = add_bilinear_lines(slot, pe, ps, Unsigned16BitInteger);
    const int count = std::max(n->view_lines, 1);
    n->positions = static_cast<BlendPosition *>(pe_malloc(pe, sizeof(BlendPosition) * count));
    TruncatingRounding truncating;
    for (int line = 0; line < count; line++) n->positions[line] = line_position(n, line);
}
