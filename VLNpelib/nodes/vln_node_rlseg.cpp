/*
 * vln_node_rlseg.cpp: run lists made from cell values, and FN_RLSEG, the node
 * that gives a line the runs of its cells that aren't null.
 *
 * get_setup_rlsegs_info chooses by cell type one scanning routine: a cell is
 * valid when it isn't the null value. An integer line with no null value is
 * valid throughout; a real line with no null value (or a NaN one) treats NaN
 * as its null.
 */
#include <cmath>
#include <type_traits>

#include "vln_resample_internal.h"

using namespace vln_pe;

namespace {

template <class T, bool NanIsNull>
bool is_null(T value, T null)
{
    if constexpr (NanIsNull)
        return std::isnan(value);
    else
        return value == null;
}

/* The maximal runs of cells of a line that aren't null. */
template <class T, bool NanIsNull>
rlseg *scan_runs(rlseg_pool *pool, const void *line, int nr_cells, const void *null_cell)
{
    const T *cells = static_cast<const T *>(line);
    T null;
    std::memcpy(&null, null_cell, sizeof null);
    rlseg *head = nullptr, **tail = &head;
    for (int i = 0; i < nr_cells;) {
        while (i < nr_cells && is_null<T, NanIsNull>(cells[i], null)) i++;
        if (i == nr_cells) break;
        int first = i;
        while (i < nr_cells && !is_null<T, NanIsNull>(cells[i], null)) i++;
        *tail = pe_create_rlseg(pool, first, i - 1);
        tail = &(*tail)->next;
    }
    return head;
}

rlseg *whole_line(rlseg_pool *pool, const void *, int nr_cells, const void *)
{
    return nr_cells > 0 ? pe_create_rlseg(pool, 0, nr_cells - 1) : nullptr;
}

}  // namespace

void get_setup_rlsegs_info(int cell_type, int null_set, double null_value, rlsegs_routine *routine,
                           void *null_cell)
{
    std::memset(null_cell, 0, 8);
    *routine = with_cell_type(cell_type, [&](auto t) -> rlsegs_routine {
        using T = decltype(t);
        if constexpr (std::is_same_v<T, std::byte>) {
            return nullptr;
        } else if constexpr (std::is_floating_point_v<T>) {
            if (null_set && !std::isnan(null_value)) {
                convtype1(null_value, cell_type, null_cell);
                return &scan_runs<T, false>;
            }
            convtype1(vln_nanval(), cell_type, null_cell);
            return &scan_runs<T, true>;
        } else {
            if (!null_set) return &whole_line;
            convtype1(null_value, cell_type, null_cell);
            return &scan_runs<T, false>;
        }
    });
}

/* ---------------------------------------------------------------- FN_RLSEG */

namespace {

struct RlsegNode {
    NodeBase base;
    int nr_cells;
    int null_set;
    double null_value;
    rlsegs_routine routine;
    alignas(8) unsigned char null_cell[8];  // the null value in the line's type
};

void rlseg_init(funcnode *node)
{
    auto *n = priv<RlsegNode>(node);
    pass_type_up(node);
    get_setup_rlsegs_info(node->inputs[0].buffers->cell_type, n->null_set, n->null_value,
                          &n->routine, n->null_cell);
    if (n->routine == nullptr)
        alg_internal_error(n->base.pe, __FILE__, __LINE__, "No run routine for the cell type");
}

void rlseg_read(funcnode *node)
{
    auto *n = priv<RlsegNode>(node);
    bufinfo *in = node->inputs[0].buffers;
    bufinfo *out = node->output;
    for (int b = 0; b < in->nr_buffers; b++) in->buffers[b] = out->buffers[b];
    pull(node);
    for (int b = 0; b < in->nr_buffers; b++) {
        linebuf *line = out->buffers[b];
        give_rlsegs(n->base.pe, line,
                    n->routine(&n->base.pe->rlsegs, line->data, n->nr_cells, n->null_cell));
    }
}

}  // namespace

namespace vln_pe {
extern const NodeOps rlseg_ops;
const NodeOps rlseg_ops = {rlseg_init, nullptr, nullptr, rlseg_read, nullptr};
}  // namespace vln_pe

void setup_rlsegnode(funcnode **slot, pe_context *pe, int nr_cells, int nr_bands, int null_set,
                     double null_value)
{
    auto *n = add_stage<RlsegNode>(slot, pe, FN_RLSEG, nr_bands, nr_cells, 0, PE_ALLOC_SHARED);
    n->nr_cells = nr_cells;
    n->null_set = null_set;
    n->null_value = null_value;
}
