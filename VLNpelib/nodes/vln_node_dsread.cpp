/*
 * vln_node_dsread.cpp: FN_READ and FN_GETINPUT, the ends of a dataset's
 * little tree.
 *
 * FN_READ fetches the dataset's lines through the mapped reader, stepping
 * by the reduction in lines so that lines no stream needs are never read.
 * The reader is opened at the first read and closed as soon as the last line
 * is in, so that a file is open only while it is being read. FN_GETINPUT sits
 * on top: its input records are the ring's entries, stored by the client
 * that makes the dataset advance.
 */
#include "vln_nodes.h"
#include "vln_pe_plan.h"

namespace {

struct ReadNode {
    vln_pe::NodeBase base;
    dsinput *dsi;
    int32_t cell_type;
    void **lines;
    rlseg **rlsegs;
    int32_t nr_bands;
    int32_t line;
    int32_t flags;
};

void read_init(funcnode *node)
{
    auto *p = vln_pe::priv<ReadNode>(node);
    if (node->output != nullptr) setup_bufinfo(node->output, p->cell_type);
}

void read_read(funcnode *node)
{
    auto *p = vln_pe::priv<ReadNode>(node);
    pe_context *pe = p->base.pe;
    dsinput *d = p->dsi;
    const int line = d->first_line + static_cast<int>(p->line * d->sub_step_y);
    p->line++;
    if (d->raster == nullptr) pe_open_raster(pe, d);
    const int last = d->first_line + static_cast<int>((d->read_lines - 1) * d->sub_step_y);
    if (line <= last) {
        for (int b = 0; b < p->nr_bands; b++) {
            p->lines[b] = node->output->buffers[b]->data;
            p->rlsegs[b] = nullptr;
        }
        if (vds_mmread(d->raster, p->lines, d->needs_rlsegs ? p->rlsegs : nullptr,
                       line - d->first_line, p->flags) != 0) {
            const char *text = vds_error_text(d->raster);
            if (text == nullptr) text = VLD_error_text();
            vds_processing_error(pe, "Error reading virtual dataset: %s\n%s", d->name,
                                 text != nullptr ? text : "");
        }
        d->nr_file_reads++;
        for (int b = 0; b < p->nr_bands; b++) {
            linebuf *out = node->output->buffers[b];
            pe_free_rlseg_list(pe, &out->rlsegs);
            out->rlsegs = dup_rlsegs(&pe->rlsegs, p->rlsegs[b]);
        }
    }
    if (line >= last) pe_close_raster(d);
}

/* The dataset's line `first` of its read window. */
void read_skip(funcnode *node, int first)
{
    vln_pe::priv<ReadNode>(node)->line = first;
}

struct GetInputNode {
    vln_pe::NodeBase base;
};

void getinput_read(funcnode *node)
{
    vln_pe::pull(node);
}

}  // namespace

namespace vln_pe {
extern const NodeOps read_ops;
const NodeOps read_ops = {read_init, nullptr, nullptr, read_read, nullptr, read_skip};
extern const NodeOps getinput_ops;
const NodeOps getinput_ops = {nullptr, nullptr, nullptr, getinput_read, nullptr};
}  // namespace vln_pe

void setup_readnode(funcnode **slot, pe_context *pe, dsinput *dsi)
{
    funcnode *node = nullptr;
    auto *p = vln_pe::new_private_node<ReadNode>(pe, FN_READ, 0, &node);
    p->dsi = dsi;
    p->cell_type = dsi->cell_type;
    p->nr_bands = dsi->nr_read_bands;
    p->lines = static_cast<void **>(pe_malloc(pe, sizeof(void *) * p->nr_bands));
    p->rlsegs = static_cast<rlseg **>(pe_malloc(pe, sizeof(rlseg *) * p->nr_bands));
    // The fast position search always; bilinear sampling where the source
    // itself is being enlarged.
    p->flags = 4;
    const dshdr *src = dsi->dsh->source_dsh;
    if (pe->alg->super_sampling == SS_Bilinear && src != nullptr &&
        (dsi->dsh->info.r.cellinfo.x_dimension < src->info.r.cellinfo.x_dimension ||
         dsi->dsh->info.r.cellinfo.y_dimension < src->info.r.cellinfo.y_dimension))
        p->flags |= 2;
    *slot = node;
}

void setup_ginode(funcnode **slot, pe_context *pe, dsinput *dsi)
{
    vln_pe::add_stage<GetInputNode>(slot, pe, FN_GETINPUT, dsi->nr_read_bands, dsi->read_cells,
                                    dsi->cell_type, PE_ALLOC_SHARED);
}
