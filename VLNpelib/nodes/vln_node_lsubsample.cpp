/*
 * vln_node_lsubsample.cpp: FN_LSUBSAMPLE, the nearest-neighbour reduction in
 * lines.
 *
 * Output line n is source line trunc(n * step), step being source_lines /
 * view_lines. The child writes straight into the output's lines, through a
 * shared connection; the lines in between are pulled into them too and
 * dropped, run lists and all.
 */
#include "vln_resample_internal.h"

using namespace vln_pe;

namespace {

struct LineSubsample {
    NodeBase base;
    double step;     // source lines per output line
    int64_t line;    // output lines delivered
    int64_t pulled;  // source lines pulled
    int64_t wanted;  // the source line of the present output line
};

void lsubsample_read(funcnode *node)
{
    auto *n = priv<LineSubsample>(node);
    pe_context *pe = n->base.pe;
    bufinfo *in = node->inputs[0].buffers;
    bufinfo *out = node->output;
    {
        TruncatingRounding truncating;
        n->wanted = static_cast<int64_t>(static_cast<double>(n->line) * n->step);
    }
    for (int b = 0; b < in->nr_buffers; b++) in->buffers[b] = out->buffers[b];
    for (; n->pulled < n->wanted; n->pulled++) {
        pull(node);
        for (int b = 0; b < in->nr_buffers; b++) pe_free_rlseg_list(pe, &in->buffers[b]->rlsegs);
    }
    pull(node);
    n->pulled++;
    n->line++;
}

/* Output line n is source line trunc(n * step), as the read works it out. */
void lsubsample_skip(funcnode *node, int first)
{
    auto *n = priv<LineSubsample>(node);
    {
        TruncatingRounding truncating;
        n->wanted = static_cast<int64_t>(static_cast<double>(first) * n->step);
    }
    n->line = first;
    n->pulled = n->wanted;
    start_at_line(node->inputs[0].node, static_cast<int>(n->wanted));
}

}  // namespace

namespace vln_pe {
extern const NodeOps lsubsample_ops;
const NodeOps lsubsample_ops = {pass_type_up,    nullptr, nullptr,
                                lsubsample_read, nullptr, lsubsample_skip};
}  // namespace vln_pe

void setup_lsubsnode(funcnode **slot, pe_context *pe, int width, int source_lines, int view_lines)
{
    if (view_lines < 1) alg_internal_error(pe, __FILE__, __LINE__, "Line reduction to no lines");
    auto *n = add_stage<LineSubsample>(slot, pe, FN_LSUBSAMPLE, 1, width, 0, PE_ALLOC_SHARED);
    n->step = static_cast<double>(source_lines) / view_lines;
}
