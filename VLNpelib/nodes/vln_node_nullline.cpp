/*
 * vln_node_nullline.cpp: FN_NULLLINE, which pads a stream with null lines.
 *
 * Of the stream's `nr_lines` lines the first `top` and the last `bottom` are
 * made here, all zero and with no runs; the child is pulled for the others
 * only, so it never sees the padding.
 */
#include <cstring>

#include "vln_nodes.h"

namespace {

struct NullLine {
    vln_pe::NodeBase base;
    int first_real;  // the first line that comes from the child
    int end_real;    // one past the last such line
    int line;        // lines delivered so far
};

void read(funcnode *node)
{
    auto *p = vln_pe::priv<NullLine>(node);
    bufinfo *out = node->output;
    const int line = p->line++;
    if (line < p->first_real || line >= p->end_real) {
        for (int b = 0; b < out->nr_buffers; b++) {
            std::memset(out->buffers[b]->data, 0, out->line_size);
            pe_free_rlseg_list(p->base.pe, &out->buffers[b]->rlsegs);
        }
        return;
    }
    bufinfo *in = node->inputs[0].buffers;
    for (int b = 0; b < out->nr_buffers; b++) in->buffers[b] = out->buffers[b];
    vln_pe::pull(node);
}

/* The child gives the lines from first_real on. */
void skip(funcnode *node, int first)
{
    auto *p = vln_pe::priv<NullLine>(node);
    p->line = first;
    start_at_line(node->inputs[0].node, first > p->first_real ? first - p->first_real : 0);
}

}  // namespace

namespace vln_pe {
extern const NodeOps nullline_ops;
const NodeOps nullline_ops = {pass_type_up, nullptr, nullptr, read, nullptr, skip};
}  // namespace vln_pe

/* A stream of `nr_lines` lines of `nr_cells` cells whose first `top` and last
 * `bottom` lines are nulls. */
void setup_nullline_node(funcnode **slot, pe_context *pe, int nr_cells, int nr_lines, int top,
                         int bottom)
{
    auto *p = vln_pe::add_stage<NullLine>(slot, pe, FN_NULLLINE, 1, nr_cells, 0, PE_ALLOC_SHARED);
    p->first_real = top;
    p->end_real = nr_lines - bottom;
}
