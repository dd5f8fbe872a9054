/*
 * vln_node_tconv.cpp: FN_TCONV, which converts lines to another cell type.
 *
 * The planner puts one wherever a stream must end in a given type. Most of
 * the time the line already has that type; the node then takes itself out
 * of the tree in init, joining its child straight to its parent, so that the
 * common case costs nothing when reading.
 */
#include "vln_nodes.h"

namespace {

struct TConv {
    vln_pe::NodeBase base;
    int cell_type;  // the type wanted
};

/* Joins the child straight to the parent: the parent's input and the
 * child's output become the node's own. */
void remove_self(funcnode *node)
{
    funcnode *parent = node->parent;
    funcnode *child = node->inputs[0].node;
    for (int i = 0; i < parent->nr_inputs; i++)
        if (parent->inputs[i].node == node) parent->inputs[i].node = child;
    if (child != nullptr) {
        child->parent = parent;
        child->output = node->output;
    }
}

void init(funcnode *node)
{
    auto *p = vln_pe::priv<TConv>(node);
    const bufinfo *in = node->inputs[0].buffers;
    // A node at the top of a tree has no parent to join its child to: it
    // converts, if only by a copy.
    if (in->cell_type == p->cell_type && node->parent != nullptr) remove_self(node);
    setup_bufinfo(node->output, p->cell_type);
}

void read(funcnode *node)
{
    bufinfo *out = node->output;
    bufinfo *in = node->inputs[0].buffers;
    vln_pe::pull(node);
    vln_pe::move_rlsegs(vln_pe::context_of(node), in, out);
    for (int b = 0; b < out->nr_buffers; b++)
        vln_pe::convtype(in->cell_type, in->buffers[b]->data, out->cell_type, out->buffers[b]->data,
                         out->buffers[b]->rlsegs);
}

}  // namespace

namespace vln_pe {
extern const NodeOps tconv_ops;
const NodeOps tconv_ops = {init, nullptr, nullptr, read, nullptr};
}  // namespace vln_pe

/* Converts lines of `nr_cells` cells to `cell_type`. */
void setup_tconvnode(funcnode **slot, pe_context *pe, int nr_cells, int cell_type)
{
    auto *p = vln_pe::add_stage<TConv>(slot, pe, FN_TCONV, 1, nr_cells, 0, PE_ALLOC_LINES);
    p->cell_type = cell_type;
}
