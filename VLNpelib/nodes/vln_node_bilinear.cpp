/*
 * vln_node_bilinear.cpp: FN_BILINEAR_SUPERSAMPLE, the bilinear enlargement
 * in cells, on doubles and, in its real-time shade form, on 16-bit cells of
 * two byte components.
 *
 * The input line is the source line with one cell of lead-in on each side,
 * so that a destination near the edge still has two neighbours. Destination
 * d lies at input position p = d * r + x0 + 0.5, r being source cells per
 * destination cell and x0 the stream's start: it draws on input cells
 * i = trunc(p) and j = i + 1 with the weight p - i of j. Next to a null it
 * keeps the valid neighbour instead of blending with the null. Positions are
 * worked out in the truncating rounding mode; the shade form takes them from
 * a table made at setup.
 */
#include <algorithm>

#include "vln_resample_internal.h"

using namespace vln_pe;

namespace {

struct BilinearCells {
    NodeBase base;
    int cell_type;     // of input and output: IEEE8ByteReal, or Unsigned16BitInteger (shade)
    int source_width;  // w: the input holds w + 2 cells
    int view_width;
    double step;               // destination cells per source cell
    double r;                  // source cells per destination cell
    double x0;                 // the position of the first sample
    uint8_t hue;               // values lie on a circle of 256
    uint8_t *mask;             // per input cell: 1 inside a run
    BlendPosition *positions;  // shade form: per destination cell
};

void bilinear_init(funcnode *node)
{
    auto *n = priv<BilinearCells>(node);
    int type = node->inputs[0].buffers->cell_type;
    if (type != n->cell_type)
        alg_internal_error(
            n->base.pe, __FILE__, __LINE__,
            n->cell_type == IEEE8ByteReal
                ? "Bilinear supersampling needs IEEE8ByteReal cells"
                : "Bilinear supersampling of shade cells needs Unsigned16BitInteger cells");
    setup_bufinfo(node->output, type);
}

/* Sets the mask over the runs' cells to `value`. Between reads the mask is
 * all 0, so that no work is done outside runs. */
void mark_mask(BilinearCells *n, const rlseg *runs, uint8_t value)
{
    const int last_input = n->source_width + 1;
    for (; runs != nullptr; runs = runs->next) {
        int first = std::max(runs->first, 0);
        int last = std::min(runs->last, last_input);
        if (first <= last)
            std::memset(n->mask + first, value, static_cast<size_t>(last - first + 1));
    }
}

/* The destination runs of the input's runs. A run reaches a little beyond its
 * cells, as far as destinations that draw on them; a run wholly in the
 * lead-in or lead-out cell has no destination of its own. */
rlseg *map_runs(const BilinearCells *n, const rlseg *runs)
{
    const int last_input = n->source_width + 1;
    const double lead = 0.5 - n->x0 * n->step;
    const double tail = (n->step + 0.5) - n->x0 * n->step;
    RunList out(n->base.pe);
    for (; runs != nullptr; runs = runs->next) {
        if (runs->last == 0 || runs->first == last_input) continue;
        int a = std::max(runs->first - 1, 0);
        int b = std::min(runs->last - 1, n->source_width - 1);
        int first = std::max(static_cast<int>(a * n->step + lead), 0);
        int last = std::min(static_cast<int>(b * n->step + tail), n->view_width - 1);
        if (first <= last) out.add(first, last);
    }
    return out.finish();
}

/* The value of a destination between input cells i and j. */
template <class T, class Blend>
T pick(const uint8_t *mask, const T *in, int i, int j, double f, Blend blend)
{
    if (!mask[i]) return in[j];
    if (!mask[j]) return in[i];
    return blend(in[i], in[j], f);
}

/* Doubles: the position steps by r from each run's first destination. */
template <class Blend>
void blend_runs(const BilinearCells *n, const double *in, double *out, const rlseg *runs,
                Blend blend)
{
    const int last_input = n->source_width + 1;
    for (; runs != nullptr; runs = runs->next) {
        double p = runs->first * n->r + n->x0 + 0.5;
        for (int d = runs->first; d <= runs->last; d++, p += n->r) {
            int i = std::min(static_cast<int>(p), last_input);
            int j = std::min(i + 1, last_input);
            out[d] = pick(n->mask, in, i, j, p - i, blend);
        }
    }
}

/* Shade cells: the positions come from the table. */
void blend_shade_runs(const BilinearCells *n, const uint16_t *in, uint16_t *out, const rlseg *runs)
{
    for (; runs != nullptr; runs = runs->next)
        for (int d = runs->first; d <= runs->last; d++) {
            const BlendPosition &at = n->positions[d];
            out[d] = pick(n->mask, in, at.i, at.j, at.f, blend_shade);
        }
}

void bilinear_read(funcnode *node)
{
    auto *n = priv<BilinearCells>(node);
    pe_context *pe = n->base.pe;
    pull(node);
    linebuf *from = node->inputs[0].buffers->buffers[0];
    linebuf *to = node->output->buffers[0];
    mark_mask(n, from->rlsegs, 1);
    {
        TruncatingRounding truncating;
        rlseg *runs = map_runs(n, from->rlsegs);
        if (n->positions != nullptr)
            blend_shade_runs(n, static_cast<const uint16_t *>(from->data),
                             static_cast<uint16_t *>(to->data), runs);
        else if (n->hue)
            blend_runs(n, static_cast<const double *>(from->data), static_cast<double *>(to->data),
                       runs,
                       [](double u, double v, double f) { return blend_values<true>(u, v, f); });
        else
            blend_runs(n, static_cast<const double *>(from->data), static_cast<double *>(to->data),
                       runs,
                       [](double u, double v, double f) { return blend_values<false>(u, v, f); });
        give_rlsegs(pe, to, runs);
    }
    mark_mask(n, from->rlsegs, 0);
    pe_free_rlseg_list(pe, &from->rlsegs);
}

BilinearCells *add_bilinear_cells(funcnode **slot, pe_context *pe, pe_stream *ps, int cell_type)
{
    const dsinput *dsi = ps->dsinput;
    const int w = ps->zoom_cells - 2;
    if (dsi == nullptr || w < 1 || !(dsi->super_step_cells > 0) || !(dsi->super_step_out_cells > 0))
        alg_internal_error(pe, __FILE__, __LINE__,
                           "Bilinear supersampling without a zoom in cells");
    auto *n = add_stage<BilinearCells>(slot, pe, FN_BILINEAR_SUPERSAMPLE, 1, w + 2, cell_type,
                                       PE_ALLOC_LINES);
    n->cell_type = cell_type;
    n->source_width = w;
    n->view_width = dsi->out_nr_cells;
    n->step = dsi->super_step_out_cells / dsi->super_step_cells;
    n->r = 1.0 / n->step;
    n->x0 = dsi->super_frac_x;
    n->hue = ps->type == ST_Hue;
    n->mask = static_cast<uint8_t *>(pe_malloc(pe, w + 2));
    return n;
}

}  // namespace

namespace vln_pe {
extern const NodeOps bilinear_supersample_ops;
const NodeOps bilinear_supersample_ops = {bilinear_init, nullptr, nullptr, bilinear_read, nullptr};
}  // namespace vln_pe

void setup_bilinear_supersample_node(funcnode **slot, pe_context *pe, pe_stream *ps)
{
    add_bilinear_cells(slot, pe, ps, IEEE8ByteReal);
}

void setup_bilinear_rts_supersample_node(funcnode **slot, pe_context *pe, pe_stream *ps)
{
    BilinearCells *n = add_bilinear_cells(slot, pe, ps, Unsigned16BitInteger);
    const int last_input = n->source_width + 1;
    n->positions = static_cast<BlendPosition *>(
        pe_malloc(pe, sizeof(BlendPosition) * int64_t{std::max(n->view_width, 0)}));
    TruncatingRounding truncating;
    for (int d = 0; d < n->view_width; d++) {
        double p = d * n->r + n->x0 + 0.5;
        int i = std::min(static_cast<int>(p), last_input);
        n->positions[d] = {i, std::min(i + 1, last_input), p - i};
    }
}
