/*
 * vln_node_height8.cpp: FN_HEIGHT8, an 8-bit image and its height line,
 * for three-dimensional display.
 *
 * The image (palette indices) is written straight into this node's line; the
 * height group is read beside it, line for line, so that its streams keep
 * step with the image, and its runs are let go. Without a height group the
 * image node stands alone.
 */
#include "vln_colour_nodes.h"

namespace {

struct Height8 {
    vln_pe::NodeBase base;
};

void init(funcnode *node)
{
    setup_bufinfo(node->output, Unsigned8BitInteger);
}

void read(funcnode *node)
{
    pe_context *pe = vln_pe::context_of(node);
    bufinfo *out = node->output;
    for (int b = 0; b < out->nr_buffers; b++) {
        pe_free_rlseg_list(pe, &out->buffers[b]->rlsegs);
        node->inputs[0].buffers->buffers[b] = out->buffers[b];
    }
    vln_pe::pull(node, 0);
    vln_pe::pull(node, 1);
    pe_free_rlseg_list(pe, &node->inputs[1].buffers->buffers[0]->rlsegs);
}

}  // namespace

namespace vln_pe {
extern const NodeOps height8_ops;
const NodeOps height8_ops = {init, nullptr, nullptr, read, nullptr};
}  // namespace vln_pe

void vln_colour::height8_over(funcnode **slot, pe_context *pe, funcnode *image, funcnode *height)
{
    *slot = image;
    if (height == nullptr) return;
    funcnode *node = nullptr;
    vln_pe::new_private_node<Height8>(pe, FN_HEIGHT8, 2, &node);
    setup_fninput(pe, &node->inputs[0], image, 1, pe->nr_cells, Unsigned8BitInteger,
                  PE_ALLOC_SHARED);
    setup_fninput(pe, &node->inputs[1], height, 1, pe->nr_cells, Unsigned8BitInteger,
                  PE_ALLOC_LINES);
    *slot = node;
}

/* The 8-bit colour step of a surface: palette indices by its mode, with its
 * height beside them. */
void setup_height8_node(funcnode **slot, pe_context *pe, pe_streamgroup *groups)
{
    funcnode *image = nullptr;
    const int mode = vln_colour::surface_mode(pe, groups);
    if (mode == CM_RGB || mode == CM_HSI)
        setup_rgb24to8_node(&image, pe, groups);
    else
        setup_pito8_node(&image, pe, groups);
    vln_colour::height8_over(slot, pe, image, vln_colour::group_tree(pe, groups, ST_Height));
}
