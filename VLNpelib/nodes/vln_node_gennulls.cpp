/*
 * vln_node_gennulls.cpp: FN_GENNULLS, a source of null lines.
 *
 * It stands in for a colour group that an output needs and the algorithm
 * lacks: every line is `null_value` in every cell, with no runs.
 */
#include <cstring>

#include "vln_nodes.h"

namespace {

struct GenNulls {
    vln_pe::NodeBase base;
    int cell_type;
    double null_value;
    void *line;  // one line of the null value, made by init
};

void init(funcnode *node)
{
    auto *p = vln_pe::priv<GenNulls>(node);
    bufinfo *out = node->output;
    setup_bufinfo(out, p->cell_type);
    p->line = pe_malloc(p->base.pe, out->line_size);
    for (int i = 0; i < out->nr_cells; i++)
        vln_pe::convtype1(p->null_value, out->cell_type,
                          static_cast<char *>(p->line) + static_cast<size_t>(i) * out->cell_size);
}

void read(funcnode *node)
{
    auto *p = vln_pe::priv<GenNulls>(node);
    bufinfo *out = node->output;
    for (int b = 0; b < out->nr_buffers; b++) {
        pe_free_rlseg_list(p->base.pe, &out->buffers[b]->rlsegs);
        std::memcpy(out->buffers[b]->data, p->line, out->line_size);
    }
}

}  // namespace

namespace vln_pe {
extern const NodeOps gennulls_ops;
const NodeOps gennulls_ops = {init, nullptr, nullptr, read, nullptr};
}  // namespace vln_pe

/* A source node of lines of `null_value` in `cell_type` (8-bit where the
 * engine builds it). */
void setup_gennulls_node(funcnode **slot, pe_context *pe, int cell_type, double null_value)
{
    funcnode *node = nullptr;
    auto *p = vln_pe::new_private_node<GenNulls>(pe, FN_GENNULLS, 0, &node);
    p->cell_type = cell_type;
    p->null_value = null_value;
    *slot = node;
}
