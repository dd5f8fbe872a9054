/*
 * vln_node_sync.cpp: FN_SYNC, which delays a branch by reading ahead.
 *
 * On its first read the node pulls `count` lines more than it delivers and
 * throws them away, so that a branch that needs fewer lines of look-ahead
 * stays registered with a longer one; after that it passes one line per
 * read. The line is shared with the parent (level 1).
 */
#include "vln_nodes.h"

namespace {

struct Sync {
    vln_pe::NodeBase base;
    int count;  // lines to skip before the first
    int done;   // lines skipped so far
};

void read(funcnode *node)
{
    auto *p = vln_pe::priv<Sync>(node);
    bufinfo *out = node->output;
    bufinfo *in = node->inputs[0].buffers;
    for (int b = 0; b < out->nr_buffers; b++) in->buffers[b] = out->buffers[b];
    for (; p->done < p->count; p->done++) {
        vln_pe::pull(node);
        for (int b = 0; b < out->nr_buffers; b++)
            pe_free_rlseg_list(p->base.pe, &out->buffers[b]->rlsegs);
    }
    vln_pe::pull(node);
}

/* Output line n is input line n + count. */
void skip(funcnode *node, int first)
{
    auto *p = vln_pe::priv<Sync>(node);
    p->done = p->count;
    start_at_line(node->inputs[0].node, first + p->count);
}

}  // namespace

namespace vln_pe {
extern const NodeOps sync_ops;
const NodeOps sync_ops = {pass_type_up, nullptr, nullptr, read, nullptr, skip};
}  // namespace vln_pe

/* Skips `count` lines of `nr_cells` cells at the start; a count of 0 makes no
 * node. */
void setup_syncnode(funcnode **slot, pe_context *pe, int nr_cells, int count)
{
    if (count <= 0) return;
    auto *p = vln_pe::add_stage<Sync>(slot, pe, FN_SYNC, 1, nr_cells, 0, PE_ALLOC_SHARED);
    p->count = count;
}
