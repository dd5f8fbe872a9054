/*
 * vln_node_clip.cpp: FN_CLIP, which cuts cells off both ends of a line.
 *
 * The input owns a line of its own (level 3), as wide as the child makes it;
 * the output is `left` plus `right` cells narrower. Runs are cut to the kept
 * window and moved down by `left`; runs wholly outside it go.
 */
#include <cstring>

#include "vln_nodes.h"

namespace {

struct Clip {
    vln_pe::NodeBase base;
    int left;
    int last_kept;  // the last kept cell, counted in the output
};

/* Cuts a list to the input cells left .. left + last_kept and moves it down
 * by left, in place; the runs that fall outside are freed. */
void clip_runs(pe_context *pe, rlseg **list, int left, int last_kept)
{
    rlseg **at = list;
    while (*at != nullptr) {
        rlseg *r = *at;
        r->first -= left;
        r->last -= left;
        if (r->last < 0 || r->first > last_kept) {
            *at = r->next;
            r->next = nullptr;
            pe_free_rlseg_list(pe, &r);
            continue;
        }
        if (r->first < 0) r->first = 0;
        if (r->last > last_kept) r->last = last_kept;
        at = &r->next;
    }
}

void read(funcnode *node)
{
    auto *p = vln_pe::priv<Clip>(node);
    bufinfo *out = node->output;
    bufinfo *in = node->inputs[0].buffers;
    vln_pe::pull(node);
    const size_t skip = static_cast<size_t>(p->left) * in->cell_size;
    for (int b = 0; b < out->nr_buffers; b++) {
        std::memcpy(out->buffers[b]->data, static_cast<const char *>(in->buffers[b]->data) + skip,
                    out->line_size);
        clip_runs(p->base.pe, &in->buffers[b]->rlsegs, p->left, p->last_kept);
    }
    vln_pe::move_rlsegs(p->base.pe, in, out);
}

}  // namespace

namespace vln_pe {
extern const NodeOps clip_ops;
const NodeOps clip_ops = {pass_type_up, nullptr, nullptr, read, nullptr};
}  // namespace vln_pe

/* Keeps the cells `left` to `nr_cells - right - 1` of lines of `nr_cells`. */
void setup_clipnode(funcnode **slot, pe_context *pe, int nr_cells, int left, int right)
{
    auto *p = vln_pe::add_stage<Clip>(slot, pe, FN_CLIP, 1, nr_cells, 0, PE_ALLOC_LINES);
    p->left = left;
    p->last_kept = nr_cells - left - right - 1;
}
