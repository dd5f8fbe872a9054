/*
 * vln_node_lsupersample.cpp: FN_LSUPERSAMPLE, the nearest-neighbour
 * enlargement in lines.
 *
 * Output line d shows source line trunc(start + d * step) of the sampling
 * rule. At setup the rule becomes one bit per output line, set where the
 * line's source differs from the line before's; bit 0 is always set. A read
 * pulls a new source line only where the bit is set, and otherwise repeats
 * the line it kept.
 */
#include "vln_resample_internal.h"

using namespace vln_pe;

namespace {

struct LineSupersample {
    NodeBase base;
    int view_lines;
    uint8_t *new_line;  // bit d: output line d needs the next source line
    int line;           // output lines delivered
    bool pull_first;    // the first read pulls whatever its bit says (a start in the middle)
};

bool bit(const uint8_t *bits, int i)
{
    return (bits[i >> 3] >> (i & 7)) & 1;
}

void lsupersample_read(funcnode *node)
{
    auto *n = priv<LineSupersample>(node);
    pe_context *pe = n->base.pe;
    bufinfo *in = node->inputs[0].buffers;
    if (n->line < n->view_lines && (bit(n->new_line, n->line) || n->pull_first)) {
        n->pull_first = false;
        for (int b = 0; b < in->nr_buffers; b++) pe_free_rlseg_list(pe, &in->buffers[b]->rlsegs);
        pull(node);
    }
    for (int b = 0; b < in->nr_buffers; b++) {
        linebuf *from = in->buffers[b];
        linebuf *to = node->output->buffers[b];
        convtype(in->cell_type, from->data, in->cell_type, to->data, from->rlsegs);
        give_rlsegs(pe, to, dup_rlsegs(&pe->rlsegs, from->rlsegs));
    }
    n->line++;
}

/* The source line of output line d is the one the bits up to d have pulled:
 * the first read pulls it, whatever its own bit. */
void lsupersample_skip(funcnode *node, int first)
{
    auto *n = priv<LineSupersample>(node);
    n->line = first;
    if (first >= n->view_lines) return;
    int pulls = 0;
    for (int d = 0; d <= first; d++) pulls += bit(n->new_line, d) ? 1 : 0;
    n->pull_first = true;
    start_at_line(node->inputs[0].node, pulls - 1);
}

}  // namespace

namespace vln_pe {
extern const NodeOps lsupersample_ops;
const NodeOps lsupersample_ops = {pass_type_up,      nullptr, nullptr,
                                  lsupersample_read, nullptr, lsupersample_skip};
}  // namespace vln_pe

void setup_lsupersnode(funcnode **slot, pe_context *pe, int width, int view_lines,
                       double source_span, double view_span, double start)
{
    auto *n = add_stage<LineSupersample>(slot, pe, FN_LSUPERSAMPLE, 1, width, 0, PE_ALLOC_LINES);
    n->view_lines = view_lines;
    if (view_lines < 1) return;
    n->new_line = static_cast<uint8_t *>(pe_malloc(pe, (int64_t{view_lines} + 7) / 8));
    auto *samples = static_cast<int *>(pe_malloc(pe, sizeof(int) * int64_t{view_lines}));
    setup_sample_array(samples, view_lines, source_span, view_span, start);
    for (int d = 0; d < view_lines; d++)
        if (d == 0 || samples[d] != samples[d - 1]) n->new_line[d >> 3] |= uint8_t(1u << (d & 7));
    pe_free(pe, samples);
}
