/*
 * vln_node_subsample.cpp: FN_SUBSAMPLE, the reduction in cells at the source
 * of a dataset's little tree.
 *
 * It stands between the read and the ring: each read pulls the read once,
 * a line of the read window's width in every band read, and leaves in the
 * ring's line `read_cells` cells, output cell i being input cell rint(i *
 * step). A run of the input maps to the output cells whose truncated
 * position lies in it, and only those cells are written: a cell between runs
 * keeps what the ring's line held. The rounding of rint is to nearest, set
 * for the loops whatever mode the caller left.
 */
#include <algorithm>
#include <cfenv>
#include <cmath>

#include "vln_resample_internal.h"

using namespace vln_pe;

namespace {

struct Subsample {
    NodeBase base;
    double step;    // input cells per output cell, at least 1
    int in_cells;   // the read window's width
    int out_cells;  // read_cells
};

/* The input cell on which output cell i falls, truncated. */
int64_t position(int64_t i, double step)
{
    return static_cast<int64_t>(static_cast<double>(i) * step);
}

/* The smallest output cell whose position is not below input cell s. */
int64_t first_output(int s, double step)
{
    auto i = static_cast<int64_t>(std::rint(s / step));
    while (position(i, step) < s) i++;
    while (i > 0 && position(i - 1, step) >= s) i--;
    return i;
}

/* The largest output cell whose position is not above input cell s. */
int64_t last_output(int s, double step)
{
    auto i = static_cast<int64_t>(std::rint(s / step));
    while (i > 0 && position(i, step) > s) i--;
    while (position(i + 1, step) <= s) i++;
    return i;
}

/* Output cells first to last, each from input cell rint(p), p stepping by
 * `step`. A position past the line's last cell reads the last cell. */
template <class U>
void copy_run(const void *in, void *out, int64_t first, int64_t last, double step, int64_t in_last)
{
    double p = static_cast<double>(first) * step;
    for (int64_t i = first; i <= last; i++, p += step) {
        auto s = static_cast<int64_t>(std::rint(p));
        move_cell<U>(in, std::min(s, in_last), out, i);
    }
}

void subsample_read(funcnode *node)
{
    auto *n = priv<Subsample>(node);
    pe_context *pe = n->base.pe;
    bufinfo *in = node->inputs[0].buffers;
    pull(node);
    with_cell_size(pe, in->cell_size, __FILE__, __LINE__, [&](auto unit) {
        using U = decltype(unit);
        NearestRounding nearest;
        for (int b = 0; b < in->nr_buffers; b++) {
            linebuf *from = in->buffers[b];
            linebuf *to = node->output->buffers[b];
            // The runs are rewritten in place; a run that no output cell
            // samples goes back to the pool.
            for (rlseg **at = &from->rlsegs; *at != nullptr;) {
                rlseg *run = *at;
                int64_t first = first_output(run->first, n->step);
                int64_t last = std::min<int64_t>(last_output(run->last, n->step), n->out_cells - 1);
                if (first > last) {
                    *at = run->next;
                    pe_free_rlseg(&pe->rlsegs, &run);
                    continue;
                }
                copy_run<U>(from->data, to->data, first, last, n->step, n->in_cells - 1);
                run->first = static_cast<int32_t>(first);
                run->last = static_cast<int32_t>(last);
                at = &run->next;
            }
            combine_rlsegs(&pe->rlsegs, from->rlsegs);
            give_rlsegs(pe, to, from->rlsegs);
            from->rlsegs = nullptr;
        }
    });
}

}  // namespace

namespace vln_pe {
extern const NodeOps subsample_ops;
const NodeOps subsample_ops = {pass_type_up, nullptr, nullptr, subsample_read, nullptr};
}  // namespace vln_pe

void setup_subsamplenode(funcnode **slot, pe_context *pe, dsinput *dsi)
{
    if (!(dsi->sub_step_x >= 1.0))
        alg_internal_error(pe, __FILE__, __LINE__, "Cell reduction with a step below 1");
    auto *n = add_stage<Subsample>(slot, pe, FN_SUBSAMPLE, dsi->nr_read_bands, dsi->nr_cells,
                                   dsi->cell_type, PE_ALLOC_LINES);
    n->step = dsi->sub_step_x;
    n->in_cells = dsi->nr_cells;
    n->out_cells = dsi->read_cells;
}
