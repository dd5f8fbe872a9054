/*
 * vln_node_rgbtorgb.cpp: FN_RGBTORGB and FN_HSITORGB, which turn a surface's
 * colour groups into three 8-bit planes, red, green and blue.
 *
 * Both have an input for each of their three groups that the surface has,
 * and a line of zeros for the others. FN_RGBTORGB lets its groups write
 * straight into its planes (level 1) and a cell is valid where any colour is;
 * FN_HSITORGB converts the whole line, and a cell is valid where the
 * intensity is. The runs of the planes travel on plane 0.
 */
#include <cstring>

#include "vln_colour_nodes.h"

namespace {

struct Planes {
    vln_pe::NodeBase base;
    int input_of[3];  // the input of each group, -1 for an absent one
    uint8_t *zeros;   // one line, for the absent groups
};

void init(funcnode *node)
{
    auto *p = vln_pe::priv<Planes>(node);
    setup_bufinfo(node->output, Unsigned8BitInteger);
    p->zeros = static_cast<uint8_t *>(pe_malloc(p->base.pe, node->output->line_size));
}

void rgb_read(funcnode *node)
{
    auto *p = vln_pe::priv<Planes>(node);
    pe_context *pe = p->base.pe;
    bufinfo *out = node->output;
    for (int c = 0; c < 3; c++) {
        pe_free_rlseg_list(pe, &out->buffers[c]->rlsegs);
        if (p->input_of[c] >= 0)
            node->inputs[p->input_of[c]].buffers->buffers[0] = out->buffers[c];
        else
            std::memcpy(out->buffers[c]->data, p->zeros, out->line_size);
    }
    for (int i = 0; i < node->nr_inputs; i++) vln_pe::pull(node, i);
    rlseg *red_green = or_rlsegs(&pe->rlsegs, out->buffers[0]->rlsegs, out->buffers[1]->rlsegs);
    rlseg *all = or_rlsegs(&pe->rlsegs, red_green, out->buffers[2]->rlsegs);
    pe_free_rlseg_list(pe, &red_green);
    for (int c = 0; c < 3; c++) pe_free_rlseg_list(pe, &out->buffers[c]->rlsegs);
    out->buffers[0]->rlsegs = all;
}

void hsi_read(funcnode *node)
{
    auto *p = vln_pe::priv<Planes>(node);
    pe_context *pe = p->base.pe;
    bufinfo *out = node->output;
    const uint8_t *plane[3];
    for (int c = 0; c < 3; c++) pe_free_rlseg_list(pe, &out->buffers[c]->rlsegs);
    for (int c = 0; c < 3; c++) {
        plane[c] = p->zeros;
        if (p->input_of[c] < 0) continue;
        funcnode *child = node->inputs[p->input_of[c]].node;
        child->read(child);
        linebuf *line = node->inputs[p->input_of[c]].buffers->buffers[0];
        plane[c] = static_cast<const uint8_t *>(line->data);
        // The intensity's cells are the valid ones.
        if (c == 2) {
            out->buffers[0]->rlsegs = line->rlsegs;
            line->rlsegs = nullptr;
        } else {
            pe_free_rlseg_list(pe, &line->rlsegs);
        }
    }
    hsvbufs_to_rgbbufs(plane[0], plane[1], plane[2], static_cast<uint8_t *>(out->buffers[0]->data),
                       static_cast<uint8_t *>(out->buffers[1]->data),
                       static_cast<uint8_t *>(out->buffers[2]->data), out->nr_cells);
}

/* A node of `type` over up to three trees; `level` is that of each input. */
void planes_over(funcnode **slot, pe_context *pe, int type, funcnode *const trees[3], int level)
{
    int count = 0;
    for (int c = 0; c < 3; c++) count += trees[c] != nullptr;
    funcnode *node = nullptr;
    auto *p = vln_pe::new_private_node<Planes>(pe, type, count, &node);
    int k = 0;
    for (int c = 0; c < 3; c++) {
        p->input_of[c] = trees[c] != nullptr ? k : -1;
        if (trees[c] == nullptr) continue;
        setup_fninput(pe, &node->inputs[k], trees[c], 1, pe->nr_cells, Unsigned8BitInteger, level);
        k++;
    }
    *slot = node;
}

}  // namespace

namespace vln_pe {
extern const NodeOps rgbtorgb_ops;
extern const NodeOps hsitorgb_ops;
const NodeOps rgbtorgb_ops = {init, nullptr, nullptr, rgb_read, nullptr};
const NodeOps hsitorgb_ops = {init, nullptr, nullptr, hsi_read, nullptr};
}  // namespace vln_pe

void vln_colour::rgbtorgb_over(funcnode **slot, pe_context *pe, funcnode *red, funcnode *green,
                               funcnode *blue)
{
    funcnode *const trees[3] = {red, green, blue};
    planes_over(slot, pe, FN_RGBTORGB, trees, PE_ALLOC_SHARED);
}

void vln_colour::hsitorgb_over(funcnode **slot, pe_context *pe, funcnode *hue, funcnode *saturation,
                               funcnode *intensity)
{
    funcnode *const trees[3] = {hue, saturation, intensity};
    planes_over(slot, pe, FN_HSITORGB, trees, PE_ALLOC_LINES);
}

/* The Red, Green and Blue groups of a surface as three planes. */
void setup_rgbtorgb_node(funcnode **slot, pe_context *pe, pe_streamgroup *groups)
{
    using vln_colour::group_tree;
    vln_colour::rgbtorgb_over(slot, pe, group_tree(pe, groups, ST_Red),
                              group_tree(pe, groups, ST_Green), group_tree(pe, groups, ST_Blue));
}

/* The Hue, Saturation and Intensity groups of a surface as three planes. */
void setup_hsitorgb_node(funcnode **slot, pe_context *pe, pe_streamgroup *groups)
{
    using vln_colour::group_tree;
    vln_colour::hsitorgb_over(slot, pe, group_tree(pe, groups, ST_Hue),
                              group_tree(pe, groups, ST_Saturation),
                              group_tree(pe, groups, ST_Intensity));
}
