/*
 * vln_node_optim.cpp: FN_OPTIM, the short cut for a plain 8-bit pseudocolour
 * stream.
 *
 * When a stream is just one 8-bit input shown through a palette, its whole
 * processing is one table of 256 entries: the stream's transform as a byte
 * table, then the move off the reserved colours, with the dataset's null
 * value sent to the null colour. The node maps the shared line through it,
 * in place. When histograms are collected it counts each value of the runs,
 * and the transform's histogram is made from the counts when asked for.
 */
#include <cfloat>
#include <cmath>
#include <cstdint>

#include "vln_nodes.h"
#include "vln_pe_plan.h"
#include "vln_transform_ops.h"

namespace {

struct Optim {
    vln_pe::NodeBase base;
    pe_stream *stream;
    unsigned char table[256];
    transform *t;        // the stream's one transform, or null
    uint32_t *counters;  // counts of the 8-bit values, while collecting
    histogram *hist;
};

void init(funcnode *node)
{
    setup_bufinfo(node->output, Unsigned8BitInteger);
}

void read(funcnode *node)
{
    auto *p = vln_pe::priv<Optim>(node);
    bufinfo *out = node->output;
    bufinfo *in = node->inputs[0].buffers;
    for (int b = 0; b < out->nr_buffers; b++) in->buffers[b] = out->buffers[b];
    vln_pe::pull(node);
    for (int b = 0; b < out->nr_buffers; b++) {
        auto *cells = static_cast<uint8_t *>(out->buffers[b]->data);
        if (p->counters != nullptr)
            for (const rlseg *r = out->buffers[b]->rlsegs; r != nullptr; r = r->next)
                for (int i = r->first; i <= r->last; i++) p->counters[cells[i]]++;
        for (int i = 0; i < out->nr_cells; i++) cells[i] = p->table[cells[i]];
    }
}

/* The table of a stream: value mapping, colour reservation, null colour. */
void make_table(pe_context *pe, const pe_stream *ps, const transform *t, unsigned char *table)
{
    unsigned char mapping[256];
    for (int i = 0; i < 256; i++) mapping[i] = static_cast<unsigned char>(i);
    if (t != nullptr && t->type >= TT_Linear && t->type <= TT_Logarithmic)
        setup_UINT8_to_UINT8_lut(t, mapping);

    // On the short cut's streams (pseudocolour, 8-bit palette, no shading, no
    // intensity) colours are reserved exactly when the algorithm lists some.
    const algorithm *alg = pe->alg;
    unsigned char reserved[256];
    if (alg->reserved_colours > 0 && alg->reserved_colours8 != nullptr)
        setup_rclut(reserved, alg->reserved_colours, alg->reserved_colours8);
    else
        for (int i = 0; i < 256; i++) reserved[i] = static_cast<unsigned char>(i);
    for (int i = 0; i < 256; i++) table[i] = reserved[mapping[i]];

    const dsinput *dsi = ps->dsinput;
    if (dsi == nullptr || dsi->dsh == nullptr || !dsi->dsh->info.r.has_null) return;
    const double null_value = dsi->null_value;
    if (null_value < 0 || null_value > 255 || null_value != std::floor(null_value)) return;
    const bool pseudo = ps->surface != nullptr && ps->surface->color_mode == CM_PSEUDO;
    table[static_cast<int>(null_value)] = pseudo ? alg->null_colour : 0;
}

}  // namespace

namespace vln_pe {
extern const NodeOps optim_ops;
const NodeOps optim_ops = {init, nullptr, nullptr, read, nullptr};
}  // namespace vln_pe

/* The whole processing of a plain 8-bit pseudocolour stream, as one table
 * over lines of the stream's processing width. */
void setup_optim_node(funcnode **slot, pe_context *pe, pe_stream *ps)
{
    auto *p = vln_pe::add_stage<Optim>(slot, pe, FN_OPTIM, 1, ps->proc_cells, Unsigned8BitInteger,
                                       PE_ALLOC_SHARED);
    p->stream = ps;
    p->t = ps->stream != nullptr ? ps->stream->transforms : nullptr;
    make_table(pe, ps, p->t, p->table);
    if (p->t != nullptr && pe->alg != nullptr && pe->alg->calc_histograms) {
        p->counters = static_cast<uint32_t *>(pe_malloc(pe, 256 * sizeof(uint32_t)));
        p->hist = static_cast<histogram *>(pe_malloc(pe, sizeof(histogram)));
        p->hist->id = p->t->id;
    }
}

histogram *get_optim_hist(funcnode *node)
{
    if (node == nullptr || node->type != FN_OPTIM) return nullptr;
    auto *p = vln_pe::priv<Optim>(node);
    if (p->hist == nullptr) return nullptr;
    setup_hist_from_counter_array(p->hist, p->t, p->counters, 0, 0);
    return p->hist;
}
