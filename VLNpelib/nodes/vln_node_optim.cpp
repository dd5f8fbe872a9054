/*
 * vln_node_optim.cpp: FN_OPTIM, the short cut for a plain 8-bit pseudocolour
 * stream.
 *
 * When a stream is just one 8-bit input shown through a palette, its whole
 * processing is one table of 256 entries: the stream's value mapping, then
 * the move off the reserved colours, with the dataset's null value sent to
 * the null colour. The node maps the shared line through it, in place.
 */
#include <cmath>
#include <cstdint>

#include "vln_nodes.h"
#include "vln_pe_plan.h"

namespace {

struct Optim {
    vln_pe::NodeBase base;
    pe_stream *stream;
    unsigned char table[256];
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
        for (int i = 0; i < out->nr_cells; i++) cells[i] = p->table[cells[i]];
    }
}

/* The table of a stream: value mapping, colour reservation, null colour. */
void make_table(pe_context *pe, const pe_stream *ps, unsigned char *table)
{
    // The value mapping is the identity: the planner takes this short cut
    // only for a stream without a transform until transforms are built.
    unsigned char mapping[256];
    for (int i = 0; i < 256; i++) mapping[i] = static_cast<unsigned char>(i);

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
    make_table(pe, ps, p->table);
}
