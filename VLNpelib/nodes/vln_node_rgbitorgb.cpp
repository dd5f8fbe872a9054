/*
 * vln_node_rgbitorgb.cpp: FN_RGBITORGB, an intensity layer over the colour
 * planes of a surface.
 *
 * The colour node of the surface's mode writes its planes straight into this
 * node's (level 1); in the cells where the intensity is valid the colour
 * keeps its hue and saturation and takes the intensity as its value. A cell
 * is valid where either is. With 24-bit colour, a cell that has only an
 * intensity starts from black, so that it shows as grey.
 */
#include <cstdint>
#include <cstring>

#include "vln_colour_nodes.h"

namespace {

struct RgbiToRgb {
    vln_pe::NodeBase base;
    int black_under_intensity;  // 24-bit colour
    uint8_t *hue, *saturation, *value;
};

void init(funcnode *node)
{
    auto *p = vln_pe::priv<RgbiToRgb>(node);
    setup_bufinfo(node->output, Unsigned8BitInteger);
    const int64_t size = node->output->line_size;
    p->hue = static_cast<uint8_t *>(pe_malloc(p->base.pe, size));
    p->saturation = static_cast<uint8_t *>(pe_malloc(p->base.pe, size));
    p->value = static_cast<uint8_t *>(pe_malloc(p->base.pe, size));
}

void read(funcnode *node)
{
    auto *p = vln_pe::priv<RgbiToRgb>(node);
    pe_context *pe = p->base.pe;
    bufinfo *out = node->output;
    bufinfo *colour = node->inputs[0].buffers;
    linebuf *intensity = node->inputs[1].buffers->buffers[0];
    for (int c = 0; c < 3; c++) {
        pe_free_rlseg_list(pe, &out->buffers[c]->rlsegs);
        colour->buffers[c] = out->buffers[c];
    }
    vln_pe::pull(node, 0);
    vln_pe::pull(node, 1);
    uint8_t *plane[3];
    for (int c = 0; c < 3; c++) plane[c] = static_cast<uint8_t *>(out->buffers[c]->data);
    rlseg *colour_runs = out->buffers[0]->rlsegs;
    out->buffers[0]->rlsegs = nullptr;
    if (p->black_under_intensity) {
        rlseg *grey = rlseg_diff(&pe->rlsegs, intensity->rlsegs, colour_runs);
        for (const rlseg *r = grey; r != nullptr; r = r->next)
            for (int c = 0; c < 3; c++)
                std::memset(plane[c] + r->first, 0, static_cast<size_t>(r->last - r->first + 1));
        pe_free_rlseg_list(pe, &grey);
    }
    const auto *level = static_cast<const uint8_t *>(intensity->data);
    for (const rlseg *r = intensity->rlsegs; r != nullptr; r = r->next) {
        const int first = r->first, n = r->last - r->first + 1;
        rgbbufs_to_hsvbufs(plane[0] + first, plane[1] + first, plane[2] + first, p->hue + first,
                           p->saturation + first, p->value + first, n);
        hsvbufs_to_rgbbufs(p->hue + first, p->saturation + first, level + first, plane[0] + first,
                           plane[1] + first, plane[2] + first, n);
    }
    out->buffers[0]->rlsegs = or_rlsegs(&pe->rlsegs, colour_runs, intensity->rlsegs);
    pe_free_rlseg_list(pe, &colour_runs);
    pe_free_rlseg_list(pe, &intensity->rlsegs);
}

}  // namespace

namespace vln_pe {
extern const NodeOps rgbitorgb_ops;
const NodeOps rgbitorgb_ops = {init, nullptr, nullptr, read, nullptr};
}  // namespace vln_pe

void vln_colour::rgbitorgb_over(funcnode **slot, pe_context *pe, funcnode *colour,
                                funcnode *intensity)
{
    *slot = colour;
    if (intensity == nullptr) return;
    funcnode *node = nullptr;
    auto *p = vln_pe::new_private_node<RgbiToRgb>(pe, FN_RGBITORGB, 2, &node);
    p->black_under_intensity = pe->alg->colour24 != 0;
    setup_fninput(pe, &node->inputs[0], colour, 3, pe->nr_cells, Unsigned8BitInteger,
                  PE_ALLOC_SHARED);
    setup_fninput(pe, &node->inputs[1], intensity, 1, pe->nr_cells, Unsigned8BitInteger,
                  PE_ALLOC_LINES);
    *slot = node;
}

/* The colour planes of a surface by its mode, with its Intensity group over
 * them. In HSI mode the intensity is part of the colour node already. */
void setup_rgbitorgb_node(funcnode **slot, pe_context *pe, pe_streamgroup *groups)
{
    const int mode = vln_colour::surface_mode(pe, groups);
    if (mode == CM_HSI) return setup_hsitorgb_node(slot, pe, groups);
    funcnode *colour = nullptr;
    if (mode == CM_RGB)
        setup_rgbtorgb_node(&colour, pe, groups);
    else
        setup_pseudotorgb_node(&colour, pe, groups);
    vln_colour::rgbitorgb_over(slot, pe, colour, vln_colour::group_tree(pe, groups, ST_Intensity));
}
