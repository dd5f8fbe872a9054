/*
 * vln_node_ssync.cpp: FN_SSYNC, the top of every stream.
 *
 * It places a stream in the image: for each image line it decides whether
 * the stream has a line there at all. Inside the stream's rows it hands the
 * stream the image line, `first_cell` cells in, and moves the runs up to
 * image cells; outside them it pulls nothing. Unless a merge above it handles
 * nulls itself, the whole line is first filled with the null value, by
 * copying a block of up to 512 null cells, so that a long line costs no loop
 * per cell.
 *
 * Line memory below this node exists only while the stream is in its rows:
 * it is made on the stream's first row and released right after its last.
 */
#include <algorithm>
#include <cstring>

#include "vln_nodes.h"

namespace {

constexpr int null_block_cells = 512;

struct SSync {
    vln_pe::NodeBase base;
    pe_stream *stream;
    int first_line;
    int nr_lines;
    int first_cell;
    double null_value;
    int line;          // image lines read so far
    int buffers_from;  // the line at which the stream's line memory is made
    void *null_block;  // up to 512 null cells; null below a merge
    int block_cells;
};

bool below_merge(const funcnode *node)
{
    return node->parent != nullptr && node->parent->type == FN_MERGESTREAMS;
}

void init(funcnode *node)
{
    auto *p = vln_pe::priv<SSync>(node);
    vln_pe::pass_type_up(node);
    bufinfo *out = node->output;
    if (below_merge(node) || out == nullptr || out->nr_cells <= 0) return;
    p->block_cells = out->nr_cells < null_block_cells ? out->nr_cells : null_block_cells;
    p->null_block = pe_malloc(p->base.pe, static_cast<int64_t>(p->block_cells) * out->cell_size);
    for (int i = 0; i < p->block_cells; i++)
        vln_pe::convtype1(
            p->null_value, out->cell_type,
            static_cast<char *>(p->null_block) + static_cast<size_t>(i) * out->cell_size);
}

/* Fills cells `first` .. `first + count - 1` of a line with nulls, a block at a time. */
void fill_nulls(const SSync *p, const bufinfo *out, void *line, int first, int count)
{
    if (count <= 0) return;
    const size_t block_bytes = static_cast<size_t>(p->block_cells) * out->cell_size;
    auto *at = static_cast<char *>(line) + static_cast<size_t>(first) * out->cell_size;
    for (int n = count / p->block_cells; n > 0; n--, at += block_bytes)
        std::memcpy(at, p->null_block, block_bytes);
    std::memcpy(at, p->null_block, static_cast<size_t>(count % p->block_cells) * out->cell_size);
}

/* The cells of the stream's own window that its child writes whole: a child
 * FN_NULLCONV writes every cell of its line, the runs' cells from below and
 * the null value into the rest. Filling those cells first would be undone. */
int child_covers(const funcnode *node)
{
    const funcnode *child = node->inputs[0].node;
    if (child == nullptr || child->type != FN_NULLCONV || child->output == nullptr) return 0;
    return child->output->nr_cells;
}

void read(funcnode *node)
{
    auto *p = vln_pe::priv<SSync>(node);
    pe_context *pe = p->base.pe;
    bufinfo *out = node->output;
    const int line = p->line++;
    const bool fill = p->null_block != nullptr && !below_merge(node);
    const bool inside = line >= p->first_line && line < p->first_line + p->nr_lines;
    // Inside the rows, the part of the line that the child writes whole is
    // left to it; the line comes out the same as when all of it is filled.
    const int window_end = inside ? std::min(p->first_cell + child_covers(node), out->nr_cells) : 0;
    const int window_start = inside ? std::max(p->first_cell, 0) : 0;
    for (int b = 0; b < out->nr_buffers; b++) {
        if (fill && window_end > window_start) {
            fill_nulls(p, out, out->buffers[b]->data, 0, window_start);
            fill_nulls(p, out, out->buffers[b]->data, window_end, out->nr_cells - window_end);
        } else if (fill) {
            fill_nulls(p, out, out->buffers[b]->data, 0, out->nr_cells);
        }
        pe_free_rlseg_list(pe, &out->buffers[b]->rlsegs);
    }
    if (!inside) return;

    if (line == p->buffers_from) alloc_subtree_buffers(pe, node);
    bufinfo *in = node->inputs[0].buffers;
    const size_t offset = static_cast<size_t>(p->first_cell) * out->cell_size;
    for (int b = 0; b < out->nr_buffers; b++)
        in->buffers[b]->data = static_cast<char *>(out->buffers[b]->data) + offset;
    vln_pe::pull(node);
    vln_pe::move_rlsegs(pe, in, out);
    for (int b = 0; b < out->nr_buffers; b++)
        vln_pe::shift_rlsegs(out->buffers[b]->rlsegs, p->first_cell);
    if (line == p->first_line + p->nr_lines - 1) free_subtree_buffers(pe, node);
}

/* Image line `first` is the stream's line first - first_line, or its first
 * line while the stream is still below. */
void skip(funcnode *node, int first)
{
    auto *p = vln_pe::priv<SSync>(node);
    p->line = first;
    if (first >= p->first_line + p->nr_lines) return;
    p->buffers_from = first > p->first_line ? first : p->first_line;
    start_at_line(node->inputs[0].node, p->buffers_from - p->first_line);
}

}  // namespace

namespace vln_pe {
extern const NodeOps ssync_ops;
const NodeOps ssync_ops = {init, nullptr, nullptr, read, nullptr, skip};
}  // namespace vln_pe

/* Places a stream of `nr_lines` lines of `nr_cells` cells at image line
 * `first_line` and cell `first_cell`; the rest of the image line holds
 * `null_value`. */
void setup_ssync_node(funcnode **slot, pe_context *pe, pe_stream *ps, int nr_cells, int first_line,
                      int nr_lines, int first_cell, double null_value)
{
    auto *p = vln_pe::add_stage<SSync>(slot, pe, FN_SSYNC, 1, nr_cells, 0, PE_ALLOC_RECORDS);
    p->stream = ps;
    p->first_line = first_line;
    p->buffers_from = first_line;
    p->nr_lines = nr_lines;
    p->first_cell = first_cell;
    p->null_value = null_value;
}
