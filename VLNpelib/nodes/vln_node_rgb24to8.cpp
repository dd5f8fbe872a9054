/*
 * vln_node_rgb24to8.cpp: FN_RGB24TO8, which turns three colour planes into
 * the index of a palette of 256 colours.
 *
 * The palette's free indices (those that the display hasn't reserved) hold a
 * colour cube; a cell's index is the cube position of its colour, through
 * three tables of strides made at setup. Cells outside the runs get the null
 * colour.
 */
#include <cstdint>

#include "vln_colour_nodes.h"

namespace {

struct Rgb24To8 {
    vln_pe::NodeBase base;
    uint8_t null_colour;
    uint8_t table[256];  // the free indices, in order
    int red[256], green[256], blue[256];
};

void init(funcnode *node)
{
    setup_bufinfo(node->output, Unsigned8BitInteger);
}

void read(funcnode *node)
{
    auto *p = vln_pe::priv<Rgb24To8>(node);
    pe_context *pe = p->base.pe;
    bufinfo *out = node->output;
    bufinfo *in = node->inputs[0].buffers;
    vln_pe::pull(node);
    const auto *r = static_cast<const uint8_t *>(in->buffers[0]->data);
    const auto *g = static_cast<const uint8_t *>(in->buffers[1]->data);
    const auto *b = static_cast<const uint8_t *>(in->buffers[2]->data);
    linebuf *line = out->buffers[0];
    auto *index = static_cast<uint8_t *>(line->data);
    pe_free_rlseg_list(pe, &line->rlsegs);
    line->rlsegs = in->buffers[0]->rlsegs;
    in->buffers[0]->rlsegs = nullptr;
    for (const rlseg *run = line->rlsegs; run != nullptr; run = run->next)
        for (int i = run->first; i <= run->last; i++)
            index[i] = p->table[p->red[r[i]] + p->green[g[i]] + p->blue[b[i]]];
    convnulls(line->rlsegs, index, out->nr_cells, p->null_colour);
}

}  // namespace

namespace vln_pe {
extern const NodeOps rgb24to8_ops;
const NodeOps rgb24to8_ops = {init, nullptr, nullptr, read, nullptr};
}  // namespace vln_pe

void vln_colour::rgb24to8_over(funcnode **slot, pe_context *pe, funcnode *colour)
{
    *slot = colour;
    auto *p = vln_pe::add_stage<Rgb24To8>(slot, pe, FN_RGB24TO8, 3, pe->nr_cells,
                                          Unsigned8BitInteger, PE_ALLOC_LINES);
    const algorithm *alg = pe->alg;
    p->null_colour = alg->null_colour;
    int nr_r = 0, nr_g = 0, nr_b = 0;
    setup_rgb8_params(p->table, &nr_r, &nr_g, &nr_b, alg->reserved_colours, alg->reserved_colours8);
    setup_rgb8_strides(p->red, p->green, p->blue, nr_r, nr_g, nr_b);
}

/* A surface's colour as palette indices of a colour cube. */
void setup_rgb24to8_node(funcnode **slot, pe_context *pe, pe_streamgroup *groups)
{
    funcnode *colour = nullptr;
    setup_rgbitorgb_node(&colour, pe, groups);
    vln_colour::rgb24to8_over(slot, pe, colour);
}
