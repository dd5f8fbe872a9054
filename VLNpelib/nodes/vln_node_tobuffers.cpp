/*
 * vln_node_tobuffers.cpp: FN_TOBUFFERS, surface 0 as separate 8-bit lines.
 *
 * The caller gives twelve lines: red, green, blue, hue, saturation,
 * intensity, pseudo, height (0 to 7), a mask (8) and overlay red, green, blue
 * (9 to 11). Each ordinary group writes its values straight into the line of
 * its type, and the mask's byte of a cell gets the bit of each line that has a
 * value there: 1 << line. The class colours of the ClassificationDisplay and
 * Classification groups are painted over lines 0 to 2 and mark bit 128. The
 * overlay lines are never written: no vector layer is drawn in this layout.
 */
#include <cstring>

#include "vln_nodes.h"
#include "vln_pe_plan.h"

namespace {

constexpr int mask_line = 8;
constexpr int class_bit = 128;

struct ToBuffers {
    vln_pe::NodeBase base;
    int8_t *line_of;  // per input: the line of an ordinary group, or -1 for class colours
};

void init(funcnode *node)
{
    auto *p = vln_pe::priv<ToBuffers>(node);
    setup_bufinfo(node->output, Unsigned8BitInteger);
    for (int i = 0; i < node->nr_inputs; i++)
        if (node->inputs[i].buffers->cell_size != 1)
            alg_internal_error(p->base.pe, "tobuffers", __LINE__,
                               "A buffer layer does not deliver 8-bit cells");
}

/* Sets `bit` in the mask of every cell of the runs. */
void mark(uint8_t *mask, const rlseg *runs, int nr_cells, int bit)
{
    for (const rlseg *r = runs; r != nullptr; r = r->next)
        for (int x = r->first < 0 ? 0 : r->first; x <= r->last && x < nr_cells; x++)
            mask[x] = static_cast<uint8_t>(mask[x] | bit);
}

void read(funcnode *node)
{
    auto *p = vln_pe::priv<ToBuffers>(node);
    pe_context *pe = p->base.pe;
    bufinfo *out = node->output;
    auto *mask = static_cast<uint8_t *>(out->buffers[mask_line]->data);
    std::memset(mask, 0, out->nr_cells);
    for (int i = 0; i < node->nr_inputs; i++) {
        bufinfo *in = node->inputs[i].buffers;
        const int line = p->line_of[i];
        if (line >= 0)
            in->buffers[0] = out->buffers[line];
        else
            for (int b = 0; b < 3; b++) in->buffers[b] = out->buffers[b];
        vln_pe::pull(node, i);
        mark(mask, in->buffers[0]->rlsegs, out->nr_cells, line >= 0 ? 1 << line : class_bit);
        for (int b = 0; b < in->nr_buffers; b++) pe_free_rlseg_list(pe, &in->buffers[b]->rlsegs);
    }
}

}  // namespace

namespace vln_pe {
extern const NodeOps tobuffers_ops;
const NodeOps tobuffers_ops = {init, nullptr, nullptr, read, nullptr};
}  // namespace vln_pe

void setup_tobufnode(funcnode **slot, pe_context *pe)
{
    const int width = pe->alg->output_width;
    pe_streamgroup *classdisp = pe->nr_surfaces > 0 ? pe->classdisp_groups[0] : nullptr;
    pe_streamgroup *classes = pe->nr_surfaces > 0 ? pe->class_groups[0] : nullptr;
    pe_streamgroup *groups = pe->nr_surfaces > 0 ? pe->groups[0] : nullptr;
    int n = (classdisp != nullptr ? 1 : 0) + (classes != nullptr ? 1 : 0);
    for (pe_streamgroup *g = groups; g != nullptr; g = g->next) n++;

    funcnode *node = nullptr;
    auto *p = vln_pe::new_private_node<ToBuffers>(pe, FN_TOBUFFERS, n, &node);
    p->line_of = static_cast<int8_t *>(pe_malloc(pe, n));
    int i = 0;
    for (pe_streamgroup *g = groups; g != nullptr; g = g->next, i++) {
        if (g->type < ST_Red || g->type > ST_Height)
            alg_internal_error(pe, "tobuffers", __LINE__, "No buffer for this layer type");
        p->line_of[i] = static_cast<int8_t>(g->type - ST_Red);
        setup_mergestreamsnode(&node->inputs[i].node, pe, groups, g);
        node->inputs[i].buffers = alloc_bufinfo(pe, 1, width, Unsigned8BitInteger, PE_ALLOC_SHARED);
    }
    // The class colours alone, with nothing below them.
    if (classdisp != nullptr) {
        p->line_of[i] = -1;
        setup_cdmergenode(&node->inputs[i].node, pe, Unsigned8BitInteger, 3, nullptr, classdisp);
        node->inputs[i++].buffers =
            alloc_bufinfo(pe, 3, width, Unsigned8BitInteger, PE_ALLOC_SHARED);
    }
    if (classes != nullptr) {
        p->line_of[i] = -1;
        setup_cmergenode(&node->inputs[i].node, pe, Unsigned8BitInteger, 3, nullptr, classes,
                         nullptr);
        node->inputs[i++].buffers =
            alloc_bufinfo(pe, 3, width, Unsigned8BitInteger, PE_ALLOC_SHARED);
    }
    *slot = node;
}
