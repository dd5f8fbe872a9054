/*
 * vln_node_vread.cpp: FN_VREAD, the root of a raster tree.
 *
 * The root has one input per output band, one for each group of streams,
 * and hands the caller's line of each band down to it, so that the streams
 * write their cells straight into the caller's memory. It delivers the
 * image's lines, and then no more.
 */
#include "vln_nodes.h"
#include "vln_pe_plan.h"

namespace {

struct VreadNode {
    vln_pe::NodeBase base;
    int32_t line;
    int32_t which;
};

void vread_read(funcnode *) {}

}  // namespace

namespace vln_pe {
extern const NodeOps vread_ops;
const NodeOps vread_ops = {nullptr, nullptr, nullptr, vread_read, nullptr};
}  // namespace vln_pe

void setup_vreadnode(funcnode **slot, pe_context *pe, int, int which)
{
    if (which != 0) return;  // no vector layers are drawn by this tree
    int count = 0;
    for (int s = 0; s < pe->nr_surfaces; s++) {
        count += pe->group_counts[s];
        if (pe->class_groups[s] != nullptr) count++;
        if (pe->classdisp_groups[s] != nullptr) count++;
    }
    if (count == 0) return;
    funcnode *node = nullptr;
    auto *p = vln_pe::new_private_node<VreadNode>(pe, FN_VREAD, count, &node);
    p->which = which;
    int i = 0;
    auto add = [&](pe_streamgroup *groups, pe_streamgroup *g) {
        setup_mergestreamsnode(&node->inputs[i].node, pe, groups, g);
        node->inputs[i].buffers =
            alloc_bufinfo(pe, 1, pe->nr_cells, pe->cell_type, PE_ALLOC_RECORDS);
        i++;
    };
    for (int s = 0; s < pe->nr_surfaces; s++) {
        for (pe_streamgroup *g = pe->groups[s]; g != nullptr; g = g->next) add(pe->groups[s], g);
        if (pe->classdisp_groups[s] != nullptr) add(pe->groups[s], pe->classdisp_groups[s]);
        if (pe->class_groups[s] != nullptr) add(pe->groups[s], pe->class_groups[s]);
    }
    *slot = node;
}

int vread_read_lines(funcnode *root, void **lines, rlseg **rlsegs)
{
    auto *p = vln_pe::priv<VreadNode>(root);
    pe_context *pe = p->base.pe;
    // The lists the caller holds from the last read go back first.
    if (rlsegs != nullptr)
        for (int i = 0; i < root->nr_inputs; i++) pe_free_rlseg_list(pe, &rlsegs[i]);
    if (p->line >= pe->nr_lines) return -1;
    for (int i = 0; i < root->nr_inputs; i++) {
        linebuf *line = root->inputs[i].buffers->buffers[0];
        line->data = lines[i];
        vln_pe::pull(root, i);
        if (rlsegs != nullptr) {
            rlsegs[i] = line->rlsegs;
            line->rlsegs = nullptr;
        } else {
            pe_free_rlseg_list(pe, &line->rlsegs);
        }
    }
    p->line++;
    return 0;
}
