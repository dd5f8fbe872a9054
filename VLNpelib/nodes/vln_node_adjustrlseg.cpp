/*
 * vln_node_adjustrlseg.cpp: FN_ADJUSTRLSEG, which drops cells at or below a
 * limit from the runs of a Classification stream.
 *
 * A classified value that is not above the limit of the stream's transform
 * belongs to no class, so its cell becomes null: the runs are rebuilt from
 * the cells above the limit. The line is shared with the parent (level 1).
 */
#include "vln_nodes.h"

namespace {

struct AdjustRlseg {
    vln_pe::NodeBase base;
    int limit_type;
    double limit;
};

/* The cells of `runs` whose value is above `limit`, as a new list. */
template <class T>
rlseg *runs_above(pe_context *pe, const void *line, const rlseg *runs, double limit)
{
    const auto *cells = static_cast<const T *>(line);
    rlseg *head = nullptr;
    rlseg **tail = &head;
    for (const rlseg *r = runs; r != nullptr; r = r->next) {
        int start = -1;
        for (int i = r->first; i <= r->last; i++) {
            const bool above = static_cast<double>(cells[i]) > limit;
            if (above && start < 0) start = i;
            if (!above && start >= 0) {
                *tail = pe_rlseg(pe, start, i - 1);
                tail = &(*tail)->next;
                start = -1;
            }
        }
        if (start >= 0) {
            *tail = pe_rlseg(pe, start, r->last);
            tail = &(*tail)->next;
        }
    }
    return head;
}

void read(funcnode *node)
{
    auto *p = vln_pe::priv<AdjustRlseg>(node);
    pe_context *pe = p->base.pe;
    bufinfo *out = node->output;
    bufinfo *in = node->inputs[0].buffers;
    for (int b = 0; b < out->nr_buffers; b++) in->buffers[b] = out->buffers[b];
    vln_pe::pull(node);
    for (int b = 0; b < out->nr_buffers; b++) {
        linebuf *line = out->buffers[b];
        rlseg *kept = vln_pe::with_cell_type(out->cell_type, [&](auto t) -> rlseg * {
            using T = decltype(t);
            if constexpr (std::is_same_v<T, std::byte>)
                return nullptr;
            else
                return runs_above<T>(pe, line->data, line->rlsegs, p->limit);
        });
        pe_free_rlseg_list(pe, &line->rlsegs);
        line->rlsegs = kept;
    }
}

}  // namespace

namespace vln_pe {
extern const NodeOps adjustrlseg_ops;
const NodeOps adjustrlseg_ops = {pass_type_up, nullptr, nullptr, read, nullptr};
}  // namespace vln_pe

/* Ends runs at the cells of lines of `nr_cells` cells (doubles, in the
 * engine) that are not above `limit`. */
void setup_adjustrlsegnode(funcnode **slot, pe_context *pe, int nr_cells, int limit_type,
                           double limit)
{
    auto *p =
        vln_pe::add_stage<AdjustRlseg>(slot, pe, FN_ADJUSTRLSEG, 1, nr_cells, 0, PE_ALLOC_SHARED);
    p->limit_type = limit_type;
    p->limit = limit;
}
