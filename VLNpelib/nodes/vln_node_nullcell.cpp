/*
 * vln_node_nullcell.cpp: FN_NULLCELL, which moves a line by a cell or so.
 *
 * The planner uses it to even out a reach that is one cell longer on one
 * side than on the other: the line is moved in place, right for a positive
 * `shift` and left for a negative one, and its runs move with it. The cells
 * that the move leaves behind keep what they held, outside the runs.
 */
#include <cstring>

#include "vln_nodes.h"

namespace {

struct NullCell {
    vln_pe::NodeBase base;
    int nr_cells;
    int shift;
};

/* Moves every run by `shift`, keeping it within the line; a run that falls
 * wholly off the line goes. */
void shift_runs(pe_context *pe, rlseg **list, int shift, int last_cell)
{
    rlseg **at = list;
    while (*at != nullptr) {
        rlseg *r = *at;
        r->first += shift;
        r->last += shift;
        if (r->first > last_cell || r->last < 0) {
            *at = r->next;
            r->next = nullptr;
            pe_free_rlseg_list(pe, &r);
            continue;
        }
        if (r->last > last_cell) r->last = last_cell;
        if (r->first < 0) r->first = 0;
        at = &r->next;
    }
}

void read(funcnode *node)
{
    auto *p = vln_pe::priv<NullCell>(node);
    bufinfo *out = node->output;
    bufinfo *in = node->inputs[0].buffers;
    for (int b = 0; b < out->nr_buffers; b++) in->buffers[b] = out->buffers[b];
    vln_pe::pull(node);

    const int distance = p->shift > 0 ? p->shift : -p->shift;
    const int moved = p->nr_cells - distance;
    const size_t cell = out->cell_size;
    const size_t distance_bytes = static_cast<size_t>(distance) * cell;
    for (int b = 0; b < out->nr_buffers; b++) {
        auto *data = static_cast<char *>(out->buffers[b]->data);
        if (moved > 0 && p->shift > 0)
            std::memmove(data + distance_bytes, data, moved * cell);
        else if (moved > 0)
            std::memmove(data, data + distance_bytes, moved * cell);
        shift_runs(p->base.pe, &out->buffers[b]->rlsegs, p->shift, p->nr_cells - 1);
    }
}

}  // namespace

namespace vln_pe {
extern const NodeOps nullcell_ops;
const NodeOps nullcell_ops = {pass_type_up, nullptr, nullptr, read, nullptr};
}  // namespace vln_pe

/* Moves lines of `nr_cells` cells by `shift` cells; a shift of 0 makes no
 * node. */
void setup_nullcell_node(funcnode **slot, pe_context *pe, int nr_cells, int shift)
{
    if (shift == 0) return;
    auto *p = vln_pe::add_stage<NullCell>(slot, pe, FN_NULLCELL, 1, nr_cells, 0, PE_ALLOC_SHARED);
    p->nr_cells = nr_cells;
    p->shift = shift;
}
