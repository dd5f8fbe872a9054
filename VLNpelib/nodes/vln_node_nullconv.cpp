/*
 * vln_node_nullconv.cpp: FN_NULLCONV, which writes the null value into
 * every cell outside the runs.
 *
 * Upstream nodes leave null cells holding whatever was there; this makes them
 * hold the stream's null value, in place, on the shared line (level 1).
 */
#include <algorithm>
#include <cstdint>
#include <cstring>

#include "vln_nodes.h"

namespace {

struct NullConv {
    vln_pe::NodeBase base;
    pe_streamgroup *group;
    double null_value;
    unsigned char null_cell[8];  // the null value in the line's type
};

void init(funcnode *node)
{
    auto *p = vln_pe::priv<NullConv>(node);
    vln_pe::pass_type_up(node);
    vln_pe::convtype1(p->null_value, node->output->cell_type, p->null_cell);
}

/* Fills cells first .. last - 1 with `value`. */
template <class Word>
void fill(void *line, int first, int last, Word value)
{
    auto *cells = static_cast<Word *>(line);
    for (int i = first; i < last; i++) cells[i] = value;
}

template <class Word>
void fill_gaps(void *line, const rlseg *runs, int nr_cells, const unsigned char *null_cell)
{
    Word value;
    std::memcpy(&value, null_cell, sizeof value);
    int next = 0;
    for (const rlseg *r = runs; r != nullptr; r = r->next) {
        fill<Word>(line, next, std::min(r->first, nr_cells), value);
        next = r->last + 1;
    }
    fill<Word>(line, next, nr_cells, value);
}

void read(funcnode *node)
{
    auto *p = vln_pe::priv<NullConv>(node);
    bufinfo *out = node->output;
    bufinfo *in = node->inputs[0].buffers;
    for (int b = 0; b < out->nr_buffers; b++) in->buffers[b] = out->buffers[b];
    vln_pe::pull(node);
    for (int b = 0; b < out->nr_buffers; b++) {
        linebuf *line = out->buffers[b];
        switch (out->cell_size) {
            case 1:
                fill_gaps<uint8_t>(line->data, line->rlsegs, out->nr_cells, p->null_cell);
                break;
            case 2:
                fill_gaps<uint16_t>(line->data, line->rlsegs, out->nr_cells, p->null_cell);
                break;
            case 4:
                fill_gaps<uint32_t>(line->data, line->rlsegs, out->nr_cells, p->null_cell);
                break;
            case 8:
                fill_gaps<uint64_t>(line->data, line->rlsegs, out->nr_cells, p->null_cell);
                break;
            default:
                break;
        }
    }
}

}  // namespace

namespace vln_pe {
extern const NodeOps nullconv_ops;
const NodeOps nullconv_ops = {init, nullptr, nullptr, read, nullptr};
}  // namespace vln_pe

/* Writes `null_value` into the null cells of lines of `nr_cells` cells. The
 * second mode of the kind, runs from a window of values, is off in every
 * caller and not built. */
void setup_nconvnode(funcnode **slot, pe_context *pe, pe_streamgroup *group, int nr_cells,
                     double null_value)
{
    auto *p = vln_pe::add_stage<NullConv>(slot, pe, FN_NULLCONV, 1, nr_cells, 0, PE_ALLOC_SHARED);
    p->group = group;
    p->null_value = null_value;
}
