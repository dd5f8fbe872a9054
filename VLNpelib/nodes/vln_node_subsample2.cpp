/*
 * vln_node_subsample2.cpp: FN_SUBSAMPLE2, the nearest-neighbour reduction in
 * cells within a stream.
 *
 * Destination cell d takes the source cell of the sampling rule's entry d.
 * Every destination cell is copied, valid or not, by stepping through the
 * byte offsets between consecutive samples, so that the loop does no
 * arithmetic on positions; the run list maps through the tables of
 * setup_subs_lseg_luts.
 */
#include <algorithm>

#include "vln_resample_internal.h"

using namespace vln_pe;

namespace {

struct Subsample2 {
    NodeBase base;
    int source_cells, view_cells;
    int *start_table, *end_table;  // destinations of each source cell, for the runs
    int64_t *offsets;              // bytes from one sample to the next; the first from cell 0
};

void subsample2_init(funcnode *node)
{
    auto *n = priv<Subsample2>(node);
    pe_context *pe = n->base.pe;
    pass_type_up(node);
    const int64_t cell_size = node->inputs[0].buffers->cell_size;
    auto *samples = static_cast<int *>(pe_malloc(pe, sizeof(int) * int64_t{n->view_cells}));
    setup_sample_array(samples, n->view_cells, n->source_cells, n->view_cells, 0.0);
    n->start_table = static_cast<int *>(pe_malloc(pe, sizeof(int) * int64_t{n->source_cells}));
    n->end_table = static_cast<int *>(pe_malloc(pe, sizeof(int) * int64_t{n->source_cells}));
    setup_subs_lseg_luts(n->start_table, n->end_table, samples, n->source_cells, n->view_cells);
    n->offsets = static_cast<int64_t *>(pe_malloc(pe, sizeof(int64_t) * int64_t{n->view_cells}));
    int previous = 0;
    for (int d = 0; d < n->view_cells; d++) {
        int s = std::clamp(samples[d], 0, n->source_cells - 1);
        n->offsets[d] = (s - previous) * cell_size;
        previous = s;
    }
    pe_free(pe, samples);
}

template <class U>
void copy_samples(const void *in, void *out, const int64_t *offsets, int count)
{
    const char *from = static_cast<const char *>(in);
    char *to = static_cast<char *>(out);
    for (int d = 0; d < count; d++, to += sizeof(U)) {
        from += offsets[d];
        std::memcpy(to, from, sizeof(U));
    }
}

void subsample2_read(funcnode *node)
{
    auto *n = priv<Subsample2>(node);
    pe_context *pe = n->base.pe;
    bufinfo *in = node->inputs[0].buffers;
    pull(node);
    with_cell_size(pe, in->cell_size, __FILE__, __LINE__, [&](auto unit) {
        using U = decltype(unit);
        for (int b = 0; b < in->nr_buffers; b++) {
            linebuf *from = in->buffers[b];
            linebuf *to = node->output->buffers[b];
            copy_samples<U>(from->data, to->data, n->offsets, n->view_cells);
            subsample_rlsegs(pe, &to->rlsegs, from->rlsegs, n->start_table, n->end_table);
            pe_free_rlseg_list(pe, &from->rlsegs);
        }
    });
}

}  // namespace

namespace vln_pe {
extern const NodeOps subsample2_ops;
const NodeOps subsample2_ops = {subsample2_init, nullptr, nullptr, subsample2_read, nullptr};
}  // namespace vln_pe

void setup_subsamplenode2(funcnode **slot, pe_context *pe, int source_cells, int view_cells)
{
    auto *n = add_stage<Subsample2>(slot, pe, FN_SUBSAMPLE2, 1, source_cells, 0, PE_ALLOC_LINES);
    n->source_cells = source_cells;
    n->view_cells = view_cells;
}
