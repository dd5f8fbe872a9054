/*
 * vln_node_pseudotorgb.cpp: FN_PSEUDOTORGB, which colours a pseudocolour
 * line through the surface's lookup table into three 8-bit planes.
 *
 * The table is read once, when the node is built; each valid cell's value
 * picks its red, green and blue bytes. The runs move to plane 0.
 */
#include "vln_colour_nodes.h"

namespace {

struct PseudoToRgb {
    vln_pe::NodeBase base;
    vln_colour::ColourTable table;
};

void init(funcnode *node)
{
    setup_bufinfo(node->output, Unsigned8BitInteger);
}

void read(funcnode *node)
{
    auto *p = vln_pe::priv<PseudoToRgb>(node);
    pe_context *pe = p->base.pe;
    bufinfo *out = node->output;
    linebuf *in = node->inputs[0].buffers->buffers[0];
    vln_pe::pull(node);
    const auto *values = static_cast<const uint8_t *>(in->data);
    auto *red = static_cast<uint8_t *>(out->buffers[0]->data);
    auto *green = static_cast<uint8_t *>(out->buffers[1]->data);
    auto *blue = static_cast<uint8_t *>(out->buffers[2]->data);
    for (const rlseg *r = in->rlsegs; r != nullptr; r = r->next)
        for (int i = r->first; i <= r->last; i++) {
            const uint8_t v = values[i];
            red[i] = p->table.red[v];
            green[i] = p->table.green[v];
            blue[i] = p->table.blue[v];
        }
    for (int c = 0; c < 3; c++) pe_free_rlseg_list(pe, &out->buffers[c]->rlsegs);
    out->buffers[0]->rlsegs = in->rlsegs;
    in->rlsegs = nullptr;
}

}  // namespace

namespace vln_pe {
extern const NodeOps pseudotorgb_ops;
const NodeOps pseudotorgb_ops = {init, nullptr, nullptr, read, nullptr};
}  // namespace vln_pe

/* Without a pseudocolour tree the planes are a source of empty lines. */
void vln_colour::pseudotorgb_over(funcnode **slot, pe_context *pe, funcnode *pseudo,
                                  const ColourTable &table)
{
    if (pseudo == nullptr) {
        setup_gennulls_node(slot, pe, Unsigned8BitInteger, 0.0);
        return;
    }
    *slot = pseudo;
    auto *p = vln_pe::add_stage<PseudoToRgb>(slot, pe, FN_PSEUDOTORGB, 1, pe->nr_cells,
                                             Unsigned8BitInteger, PE_ALLOC_LINES);
    p->table = table;
}

/* The Pseudo group of a surface through its lookup table. */
void setup_pseudotorgb_node(funcnode **slot, pe_context *pe, pe_streamgroup *groups)
{
    funcnode *pseudo = vln_colour::group_tree(pe, groups, ST_Pseudo);
    vln_colour::ColourTable table{};
    if (pseudo != nullptr) vln_colour::load_surface_table(pe, groups, &table);
    vln_colour::pseudotorgb_over(slot, pe, pseudo, table);
}
