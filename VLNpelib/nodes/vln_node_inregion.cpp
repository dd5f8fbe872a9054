/*
 * vln_node_inregion.cpp: FN_INREGION, the source of a formula's INREGION.
 *
 * For each cell of the read window of a stream's dataset it delivers 1 inside
 * the region and 0 outside, over one run of the whole line. The region's
 * polygons are scanned row by row through an edge table, which the node
 * steps down to the dataset line of each output line; a reduced read window
 * takes the line's runs through the same run tables as the reduction in
 * cells. The edges go as soon as the scan has passed the region's last row.
 */
#include "vln_nodes.h"

namespace {

struct InRegion {
    vln_pe::NodeBase base;
    pe_stream *stream;
    dsinput *dsi;
    regioninfo *region;
    int start_row;  // the region's first row, in dataset lines
    int nr_rows;
    active_edge **table;  // one entry per row of the region
    active_edge *active;
    bool scanning;     // false once the edges are freed
    int next_row;      // the next row the scan will step through
    int line;          // output lines delivered so far
    int *start_table;  // for a reduced window: first and last output
    int *end_table;    // cell of each read window cell; null otherwise
};

void release_edges(InRegion *p)
{
    free_edge_table(p->table, p->nr_rows, &p->active);
    p->scanning = false;
}

void init(funcnode *node)
{
    setup_bufinfo(node->output, IEEE8ByteReal);
}

/* Sets the output cells of the read window's runs to 1. */
void mark_runs(InRegion *p, rlseg *runs, double *cells, int nr_cells)
{
    pe_context *pe = p->base.pe;
    rlseg *mapped = nullptr;
    const rlseg *marked = runs;
    if (p->start_table != nullptr) {
        subsample_rlsegs(pe, &mapped, runs, p->start_table, p->end_table);
        marked = mapped;
    }
    for (const rlseg *r = marked; r != nullptr; r = r->next)
        for (int i = r->first; i <= r->last && i < nr_cells; i++) cells[i] = 1.0;
    pe_free_rlseg_list(pe, &mapped);
}

/* The region's runs of dataset line `line`, in cells of the read window, as
 * a heap list; null when the line has none. */
rlseg *window_runs(InRegion *p, int line)
{
    const dsinput *dsi = p->dsi;
    const int width = dsi->first_cell + dsi->nr_cells;
    while (p->next_row < line) {
        increment_lineseg_edge_table(width, p->next_row - p->start_row, p->next_row, p->table,
                                     &p->active);
        p->next_row++;
    }
    lineseg_info *info =
        get_next_lineseg_info(width, line - p->start_row, line, p->table, &p->active);
    p->next_row = line + 1;
    if (info == nullptr) return nullptr;
    rlseg *runs = info->rlsegs;
    info->rlsegs = nullptr;
    free_lineseg_info(&info);

    // Down to the read window: cells left of it go.
    rlseg **at = &runs;
    while (*at != nullptr) {
        rlseg *r = *at;
        r->first -= dsi->first_cell;
        r->last -= dsi->first_cell;
        if (r->last < 0) {
            *at = r->next;
            free_rlseg(&r);
            continue;
        }
        if (r->first < 0) r->first = 0;
        at = &r->next;
    }
    return runs;
}

void read(funcnode *node)
{
    auto *p = vln_pe::priv<InRegion>(node);
    bufinfo *out = node->output;
    const dsinput *dsi = p->dsi;
    const double step = dsi->sub_step_y > 0 ? dsi->sub_step_y : 1.0;
    const int line = dsi->first_line + static_cast<int>(p->line++ * step);

    rlseg *runs = nullptr;
    if (p->scanning && line >= p->start_row + p->nr_rows)
        release_edges(p);
    else if (p->scanning && line >= p->start_row && line >= p->next_row)
        runs = window_runs(p, line);

    for (int b = 0; b < out->nr_buffers; b++) {
        auto *cells = static_cast<double *>(out->buffers[b]->data);
        for (int i = 0; i < out->nr_cells; i++) cells[i] = 0.0;
        mark_runs(p, runs, cells, out->nr_cells);
        pe_free_rlseg_list(p->base.pe, &out->buffers[b]->rlsegs);
        if (out->nr_cells > 0) out->buffers[b]->rlsegs = pe_rlseg(p->base.pe, 0, out->nr_cells - 1);
    }
    free_rlsegs(&runs);
}

void close(funcnode *node)
{
    auto *p = vln_pe::priv<InRegion>(node);
    if (p->table != nullptr) release_edges(p);
}

/* The scan steps over the rows before the line when it gets there. */
void skip(funcnode *node, int first)
{
    vln_pe::priv<InRegion>(node)->line = first;
}

}  // namespace

namespace vln_pe {
extern const NodeOps inregion_ops;
const NodeOps inregion_ops = {init, nullptr, nullptr, read, close, skip};
}  // namespace vln_pe

/* 1 inside `region` and 0 outside, over the read window of the stream's
 * dataset. A region without a polygon ends the build. */
void setup_inregion_node(funcnode **slot, pe_context *pe, pe_stream *ps, regioninfo *region)
{
    funcnode *node = nullptr;
    auto *p = vln_pe::new_private_node<InRegion>(pe, FN_INREGION, 0, &node);
    p->stream = ps;
    p->dsi = ps->dsinput;
    p->region = region;
    region_extents(region, &p->start_row, &p->nr_rows, nullptr, nullptr);
    p->table = static_cast<active_edge **>(pe_malloc(
        pe, static_cast<int64_t>(p->nr_rows > 0 ? p->nr_rows : 1) * sizeof(active_edge *)));
    if (setup_edge_table(region, p->start_row, p->table) != 0)
        alg_error_vprintf(pe, VLD_errmsg[VLD_ERR_REGION_TOO_FEW_POINTS],
                          region != nullptr && region->name != nullptr ? region->name : "");
    p->scanning = true;
    p->next_row = p->start_row;

    const dsinput *dsi = p->dsi;
    if (dsi->nr_cells != dsi->read_cells) {
        const int64_t bytes = static_cast<int64_t>(dsi->nr_cells) * sizeof(int);
        auto *samples =
            static_cast<int *>(pe_malloc(pe, static_cast<int64_t>(dsi->read_cells) * sizeof(int)));
        setup_sample_array(samples, dsi->read_cells, dsi->nr_cells, dsi->read_cells, 0);
        p->start_table = static_cast<int *>(pe_malloc(pe, bytes));
        p->end_table = static_cast<int *>(pe_malloc(pe, bytes));
        setup_subs_lseg_luts(p->start_table, p->end_table, samples, dsi->nr_cells, dsi->read_cells);
        pe_free(pe, samples);
    }
    *slot = node;
}
