/*
 * vln_node_supersample.cpp: FN_SUPERSAMPLE, the nearest-neighbour
 * enlargement in cells.
 *
 * Destination d takes source cell trunc(start + d * step), by the sampling
 * rule, step being source_span / view_span. The tables, made at setup, give
 * for each source cell the first and last destination that takes it, so
 * that a source run maps to one destination run and only the cells of runs
 * are written.
 */
#include "vln_resample_internal.h"

using namespace vln_pe;

namespace {

struct Supersample {
    NodeBase base;
    int source_width, view_width;
    int *samples;       // the source cell of each destination
    int *first, *last;  // the first and last destination of each source cell
};

/* Fills the first and last destination of each source cell. A cell that no
 * destination takes starts at the next taken destination (view_width if none)
 * and ends at the one before it (-1 if none), so that a run of such cells
 * maps to nothing. */
void setup_destination_tables(Supersample *n)
{
    for (int s = 0; s < n->source_width; s++) n->first[s] = n->last[s] = -1;
    for (int d = 0; d < n->view_width; d++) {
        int s = n->samples[d];
        if (s < 0 || s >= n->source_width) continue;
        if (n->first[s] < 0) n->first[s] = d;
        n->last[s] = d;
    }
    int next = n->view_width;
    for (int s = n->source_width - 1; s >= 0; s--) {
        if (n->first[s] < 0)
            n->first[s] = next;
        else
            next = n->first[s];
    }
    int previous = -1;
    for (int s = 0; s < n->source_width; s++) {
        if (n->last[s] < 0)
            n->last[s] = previous;
        else
            previous = n->last[s];
    }
}

/* Destinations first to last; each takes the source cell of its own sample,
 * so a run's cells and its mapped ends always agree. */
template <class U>
void copy_run(const void *in, void *out, const int *samples, int first, int last)
{
    for (int d = first; d <= last; d++) move_cell<U>(in, samples[d], out, d);
}

void supersample_read(funcnode *node)
{
    auto *n = priv<Supersample>(node);
    pe_context *pe = n->base.pe;
    bufinfo *in = node->inputs[0].buffers;
    pull(node);
    with_cell_size(pe, in->cell_size, __FILE__, __LINE__, [&](auto unit) {
        using U = decltype(unit);
        for (int b = 0; b < in->nr_buffers; b++) {
            linebuf *from = in->buffers[b];
            linebuf *to = node->output->buffers[b];
            for (rlseg **at = &from->rlsegs; *at != nullptr;) {
                rlseg *run = *at;
                int first = run->first >= 0 && run->first < n->source_width ? n->first[run->first]
                                                                            : n->view_width;
                int last = run->last >= 0 && run->last < n->source_width ? n->last[run->last] : -1;
                if (first > last) {
                    *at = run->next;
                    pe_free_rlseg(&pe->rlsegs, &run);
                    continue;
                }
                copy_run<U>(from->data, to->data, n->samples, first, last);
                run->first = first;
                run->last = last;
                at = &run->next;
            }
            combine_rlsegs(&pe->rlsegs, from->rlsegs);
            give_rlsegs(pe, to, from->rlsegs);
            from->rlsegs = nullptr;
        }
    });
}

}  // namespace

namespace vln_pe {
extern const NodeOps supersample_ops;
const NodeOps supersample_ops = {pass_type_up, nullptr, nullptr, supersample_read, nullptr};
}  // namespace vln_pe

void setup_supersamplenode(funcnode **slot, pe_context *pe, int source_width, int view_width,
                           double source_span, double view_span, double start)
{
    auto *n = add_stage<Supersample>(slot, pe, FN_SUPERSAMPLE, 1, source_width, 0, PE_ALLOC_LINES);
    n->source_width = source_width;
    n->view_width = view_width;
    n->samples = static_cast<int *>(pe_malloc(pe, sizeof(int) * int64_t{view_width}));
    n->first = static_cast<int *>(pe_malloc(pe, sizeof(int) * int64_t{source_width}));
    n->last = static_cast<int *>(pe_malloc(pe, sizeof(int) * int64_t{source_width}));
    setup_sample_array(n->samples, view_width, source_span, view_span, start);
    setup_destination_tables(n);
}
