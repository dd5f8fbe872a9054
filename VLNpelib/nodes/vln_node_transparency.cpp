/*
 * vln_node_transparency.cpp: the image chain under the window's root, and
 * FN_TRANSPARENCY, which lays the surfaces' pixels over each other.
 *
 * Each surface's chain is its vector merge, or its class merges, over its
 * colour step. With 32-bit pixels the surfaces are blended from the last to
 * the first, each by its transparency (0 hides what lies below, 1 shows only
 * that), over the background; the first surface is on top, and a cell is
 * valid where any surface is. A single opaque surface, and every 8-bit image,
 * is surface 0's chain alone.
 */
#include <cstdint>

#include "vln_colour_nodes.h"

namespace {

struct Transparency {
    vln_pe::NodeBase base;
    vln_colour::Shifts shifts;
    uint32_t background;
    double *transparency;  // one per input
};

void init(funcnode *node)
{
    setup_bufinfo(node->output, Unsigned32BitInteger);
}

/* One colour byte at `shift`, blended. */
inline uint32_t blend(uint32_t in, uint32_t out, int shift, double t)
{
    const double a = (in >> shift) & 0xFFu, b = (out >> shift) & 0xFFu;
    return static_cast<uint32_t>(static_cast<uint8_t>(a * (1 - t) + b * t + 0.5)) << shift;
}

void read(funcnode *node)
{
    auto *p = vln_pe::priv<Transparency>(node);
    pe_context *pe = p->base.pe;
    const vln_colour::Shifts &s = p->shifts;
    for (int i = 0; i < node->nr_inputs; i++) vln_pe::pull(node, i);
    linebuf *line = node->output->buffers[0];
    auto *pixel = static_cast<uint32_t *>(line->data);
    for (int i = 0; i < node->output->nr_cells; i++) pixel[i] = p->background;
    pe_free_rlseg_list(pe, &line->rlsegs);
    const uint32_t height_mask = 0xFFu << s.height;
    rlseg *all = nullptr;
    for (int k = node->nr_inputs - 1; k >= 0; k--) {
        linebuf *in = node->inputs[k].buffers->buffers[0];
        const auto *from = static_cast<const uint32_t *>(in->data);
        const double t = p->transparency[k];
        for (const rlseg *r = in->rlsegs; r != nullptr; r = r->next)
            for (int i = r->first; i <= r->last; i++)
                pixel[i] = blend(from[i], pixel[i], s.red, t) |
                           blend(from[i], pixel[i], s.green, t) |
                           blend(from[i], pixel[i], s.blue, t) | (from[i] & height_mask);
        rlseg *both = or_rlsegs(&pe->rlsegs, all, in->rlsegs);
        pe_free_rlseg_list(pe, &all);
        pe_free_rlseg_list(pe, &in->rlsegs);
        all = both;
    }
    line->rlsegs = all;
}

const surface *nth_surface(const pe_context *pe, int s)
{
    const surface *sf = pe->alg != nullptr ? pe->alg->surfaces : nullptr;
    for (; sf != nullptr && s > 0; s--) sf = sf->next;
    return sf;
}

double transparency_of(const pe_context *pe, int s)
{
    const surface *sf = nth_surface(pe, s);
    if (sf == nullptr || !(sf->transparency > 0)) return 0.0;
    return sf->transparency < 1 ? sf->transparency : 1.0;
}

bool has_groups(const pe_context *pe, int s)
{
    return pe->groups[s] != nullptr || pe->class_groups[s] != nullptr ||
           pe->classdisp_groups[s] != nullptr || pe->link_groups[s] != nullptr;
}

/* A surface's merges over its colour step. Each merge builder paints its own
 * layers and builds the ones below it; with none of them the colour step is
 * all. */
void surface_chain(funcnode **slot, pe_context *pe, int s, int process_vectors, int with_links,
                   int cell_type)
{
    pe_streamgroup *groups = pe->groups[s];
    if (with_links && pe->link_groups[s] != nullptr)
        setup_psmergenode(slot, pe, process_vectors, cell_type, 1, groups, pe->class_groups[s],
                          pe->classdisp_groups[s], pe->link_groups[s]);
    else if (pe->class_groups[s] != nullptr)
        setup_cmergenode(slot, pe, cell_type, 1, groups, pe->class_groups[s],
                         pe->classdisp_groups[s]);
    else if (pe->classdisp_groups[s] != nullptr)
        setup_cdmergenode(slot, pe, cell_type, 1, groups, pe->classdisp_groups[s]);
    else
        setup_colour_step(slot, pe, groups, cell_type);
}

}  // namespace

namespace vln_pe {
extern const NodeOps transparency_ops;
const NodeOps transparency_ops = {init, nullptr, nullptr, read, nullptr};
}  // namespace vln_pe

void vln_colour::transparency_over(funcnode **slot, pe_context *pe, int nr_surfaces,
                                   funcnode **trees, const double *transparency)
{
    funcnode *node = nullptr;
    auto *p = vln_pe::new_private_node<Transparency>(pe, FN_TRANSPARENCY, nr_surfaces, &node);
    p->shifts = shifts_of(pe);
    p->background = background_pixel(pe, p->shifts);
    p->transparency = static_cast<double *>(
        pe_malloc(pe, static_cast<int64_t>(sizeof(double)) * (nr_surfaces > 0 ? nr_surfaces : 1)));
    for (int k = 0; k < nr_surfaces; k++) {
        p->transparency[k] = transparency[k];
        setup_fninput(pe, &node->inputs[k], trees[k], 1, pe->nr_cells, Unsigned32BitInteger,
                      PE_ALLOC_LINES);
    }
    *slot = node;
}

void setup_transpnode(funcnode **slot, pe_context *pe, int process_vectors, int with_links,
                      int cell_type)
{
    const bool blend = cell_type == Unsigned32BitInteger &&
                       !(pe->nr_surfaces == 1 && has_groups(pe, 0) && transparency_of(pe, 0) == 0);
    if (!blend) {
        if (pe->nr_surfaces > 0) surface_chain(slot, pe, 0, process_vectors, with_links, cell_type);
        return;
    }
    // One input per surface with something to show, in surface order.
    const int n = pe->nr_surfaces;
    auto *trees = static_cast<funcnode **>(pe_malloc(pe, sizeof(funcnode *) * (n > 0 ? n : 1)));
    auto *t = static_cast<double *>(pe_malloc(pe, sizeof(double) * (n > 0 ? n : 1)));
    int count = 0;
    for (int s = 0; s < n; s++) {
        if (!has_groups(pe, s)) continue;
        funcnode *tree = nullptr;
        surface_chain(&tree, pe, s, process_vectors, with_links, cell_type);
        if (tree == nullptr) continue;
        trees[count] = tree;
        t[count] = transparency_of(pe, s);
        count++;
    }
    vln_colour::transparency_over(slot, pe, count, trees, t);
}
