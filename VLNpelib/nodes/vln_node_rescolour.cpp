/*
 * vln_node_rescolour.cpp: FN_RESCOLOUR, which moves 8-bit values off the
 * reserved colours.
 *
 * A palette display keeps some indices for itself (the algorithm's reserved
 * colours). The node maps the full range of a stream's values evenly onto the
 * indices that are left, in place, over the runs of the shared line.
 */
#include <cstdint>

#include "vln_nodes.h"
#include "vln_pe_plan.h"

namespace {

struct ResColour {
    vln_pe::NodeBase base;
    unsigned char *table;  // 256 entries, from the reserved colours
};

void init(funcnode *node)
{
    setup_bufinfo(node->output, Unsigned8BitInteger);
}

void read(funcnode *node)
{
    auto *p = vln_pe::priv<ResColour>(node);
    bufinfo *out = node->output;
    bufinfo *in = node->inputs[0].buffers;
    for (int b = 0; b < out->nr_buffers; b++) in->buffers[b] = out->buffers[b];
    vln_pe::pull(node);
    for (int b = 0; b < out->nr_buffers; b++) {
        auto *cells = static_cast<uint8_t *>(out->buffers[b]->data);
        for (const rlseg *r = out->buffers[b]->rlsegs; r != nullptr; r = r->next)
            for (int i = r->first; i <= r->last; i++) cells[i] = p->table[cells[i]];
    }
}

}  // namespace

namespace vln_pe {
extern const NodeOps rescolour_ops;
const NodeOps rescolour_ops = {init, nullptr, nullptr, read, nullptr};
}  // namespace vln_pe

/* Maps 8-bit lines of `nr_cells` cells onto the indices that the algorithm's
 * reserved colours leave free. */
void setup_rcnode(funcnode **slot, pe_context *pe, int nr_cells)
{
    auto *p = vln_pe::add_stage<ResColour>(slot, pe, FN_RESCOLOUR, 1, nr_cells, Unsigned8BitInteger,
                                           PE_ALLOC_SHARED);
    p->table = static_cast<unsigned char *>(pe_malloc(pe, 256));
    setup_rclut(p->table, pe->alg->reserved_colours, pe->alg->reserved_colours8);
}
