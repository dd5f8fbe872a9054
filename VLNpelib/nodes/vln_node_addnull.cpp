/*
 * vln_node_addnull.cpp: FN_ADDNULL, which widens a line.
 *
 * The child writes its narrower line into the node's output, `offset` cells
 * in; the cells around it are left outside the runs, so they read as nulls.
 * The connection is shared (level 1): the node hands down line records of its
 * own, which point into the output line.
 */
#include "vln_nodes.h"

namespace {

struct AddNull {
    vln_pe::NodeBase base;
    int offset;      // cells of the output before the child's first cell
    linebuf *inner;  // one record per band, pointing into the output line
    int nr_buffers;
};

void read(funcnode *node)
{
    auto *p = vln_pe::priv<AddNull>(node);
    bufinfo *out = node->output;
    bufinfo *in = node->inputs[0].buffers;
    const size_t offset_bytes = static_cast<size_t>(p->offset) * out->cell_size;
    for (int b = 0; b < p->nr_buffers; b++) {
        p->inner[b].data = static_cast<char *>(out->buffers[b]->data) + offset_bytes;
        in->buffers[b] = &p->inner[b];
    }
    vln_pe::pull(node);
    vln_pe::move_rlsegs(p->base.pe, in, out);
    for (int b = 0; b < p->nr_buffers; b++)
        vln_pe::shift_rlsegs(out->buffers[b]->rlsegs, p->offset);
}

}  // namespace

namespace vln_pe {
extern const NodeOps addnull_ops;
const NodeOps addnull_ops = {pass_type_up, nullptr, nullptr, read, nullptr};
}  // namespace vln_pe

/* A stage whose output is wider than its `nr_cells` input, the child's line
 * starting `offset` cells in. */
void setup_addnull_node(funcnode **slot, pe_context *pe, int nr_cells, int offset)
{
    auto *p = vln_pe::add_stage<AddNull>(slot, pe, FN_ADDNULL, 1, nr_cells, 0, PE_ALLOC_SHARED);
    p->offset = offset;
    p->nr_buffers = 1;
    p->inner = static_cast<linebuf *>(pe_malloc(pe, sizeof(linebuf)));
}
