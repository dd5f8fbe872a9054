/*
 * vln_node_pito8.cpp: FN_PITO8, a pseudocolour and an intensity in one
 * palette of 256 colours.
 *
 * The free indices of the palette hold black, a grey ramp of `levels` steps,
 * and then groups of `levels` brightness steps, one group per colour of the
 * lookup table taken at even spacing. A cell with both layers takes its
 * colour's group at the intensity's step; a pseudocolour alone takes its
 * colour's own brightness; an intensity alone a grey. All of it is table
 * look-up made when the node is built. Cells with neither get the null
 * colour.
 *
 * Indices within a group are counted from the group's first index; kept:
 * with reserved entries inside a group a step may land on one.
 */
#include <cstdint>
#include <initializer_list>

#include "vln_colour_nodes.h"

namespace {

struct PiTo8 {
    vln_pe::NodeBase base;
    uint8_t null_colour;
    uint8_t table[256];  // the free indices, in order
    uint8_t group_base[256], own[256], level[256];
};

void init(funcnode *node)
{
    setup_bufinfo(node->output, Unsigned8BitInteger);
}

void read(funcnode *node)
{
    auto *p = vln_pe::priv<PiTo8>(node);
    pe_context *pe = p->base.pe;
    bufinfo *out = node->output;
    linebuf *line = out->buffers[0];
    pe_free_rlseg_list(pe, &line->rlsegs);
    node->inputs[0].buffers->buffers[0] = line;
    vln_pe::pull(node, 0);
    vln_pe::pull(node, 1);
    linebuf *pseudo_line = node->inputs[1].buffers->buffers[0];
    rlseg *intensity = line->rlsegs;
    rlseg *pseudo = pseudo_line->rlsegs;
    line->rlsegs = nullptr;
    pseudo_line->rlsegs = nullptr;
    auto *cell = static_cast<uint8_t *>(line->data);
    const auto *colour = static_cast<const uint8_t *>(pseudo_line->data);

    rlseg *both = pe_and_rlsegs(&pe->rlsegs, intensity, pseudo);
    rlseg *pseudo_only = rlseg_diff(&pe->rlsegs, pseudo, intensity);
    rlseg *intensity_only = rlseg_diff(&pe->rlsegs, intensity, pseudo);
    for (const rlseg *r = both; r != nullptr; r = r->next)
        for (int i = r->first; i <= r->last; i++) {
            const int l = p->level[cell[i]];
            cell[i] = l != 0 ? static_cast<uint8_t>(p->group_base[colour[i]] + l - 1) : p->table[0];
        }
    for (const rlseg *r = pseudo_only; r != nullptr; r = r->next)
        for (int i = r->first; i <= r->last; i++) cell[i] = p->own[colour[i]];
    for (const rlseg *r = intensity_only; r != nullptr; r = r->next)
        for (int i = r->first; i <= r->last; i++) cell[i] = p->table[p->level[cell[i]]];
    line->rlsegs = or_rlsegs(&pe->rlsegs, intensity, pseudo);
    convnulls(line->rlsegs, cell, out->nr_cells, p->null_colour);
    for (rlseg **list : {&both, &pseudo_only, &intensity_only, &intensity, &pseudo})
        pe_free_rlseg_list(pe, list);
}

/* The index tables of the palette's groups and steps. */
void make_tables(PiTo8 *p, const algorithm *alg, const vln_colour::ColourTable &colours)
{
    int groups = 0, levels = 0;
    const int n =
        setup_cd8_params(p->table, &groups, &levels, alg->reserved_colours, alg->reserved_colours8);
    auto free_index = [&](int k) {
        return p->table[k < n ? (k > 0 ? k : 0) : (n > 0 ? n - 1 : 0)];
    };
    auto clamp = [](int v) { return static_cast<uint8_t>(v > 255 ? 255 : v); };
    for (int v = 0; v < 256; v++) {
        const int g = groups > 0 ? static_cast<int>(v / (256.0 / groups)) : 0;
        p->group_base[v] = free_index((g + 1) * levels + 1);
        const int entry = groups > 1 ? g * 255 / (groups - 1) : 0;
        uint8_t h = 0, s = 0, value = 0;
        rgb_to_hsv(colours.red[entry], colours.green[entry], colours.blue[entry], &h, &s, &value);
        const int step = value * levels / 255;
        p->own[v] = step != 0 ? clamp(p->group_base[v] + step - 1) : p->table[0];
        p->level[v] = static_cast<uint8_t>(v / (256.0 / (levels + 1)));
    }
}

}  // namespace

namespace vln_pe {
extern const NodeOps pito8_ops;
const NodeOps pito8_ops = {init, nullptr, nullptr, read, nullptr};
}  // namespace vln_pe

void vln_colour::pito8_over(funcnode **slot, pe_context *pe, funcnode *intensity, funcnode *pseudo,
                            const ColourTable &table)
{
    const algorithm *alg = pe->alg;
    // Without an intensity the pseudocolour is an index already.
    if (intensity == nullptr) {
        if (pseudo != nullptr)
            *slot = pseudo;
        else
            setup_gennulls_node(slot, pe, Unsigned8BitInteger, alg->null_colour);
        return;
    }
    if (pseudo == nullptr) setup_gennulls_node(&pseudo, pe, Unsigned8BitInteger, 0.0);
    funcnode *node = nullptr;
    auto *p = vln_pe::new_private_node<PiTo8>(pe, FN_PITO8, 2, &node);
    p->null_colour = alg->null_colour;
    make_tables(p, alg, table);
    setup_fninput(pe, &node->inputs[0], intensity, 1, pe->nr_cells, Unsigned8BitInteger,
                  PE_ALLOC_SHARED);
    setup_fninput(pe, &node->inputs[1], pseudo, 1, pe->nr_cells, Unsigned8BitInteger,
                  PE_ALLOC_LINES);
    *slot = node;
}

/* A surface's pseudocolour, with its intensity, as palette indices. */
void setup_pito8_node(funcnode **slot, pe_context *pe, pe_streamgroup *groups)
{
    funcnode *pseudo = vln_colour::group_tree(pe, groups, ST_Pseudo);
    funcnode *intensity = vln_colour::group_tree(pe, groups, ST_Intensity);
    vln_colour::ColourTable table{};
    if (intensity != nullptr) vln_colour::load_surface_table(pe, groups, &table);
    vln_colour::pito8_over(slot, pe, intensity, pseudo, table);
}
