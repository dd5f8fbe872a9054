/*
 * vln_colour_groups.cpp: what the colour nodes ask of a surface: its groups
 * by type, its colour mode, its lookup table, and the handle's pixel layout.
 */
#include <cstring>

#include "vld_docs.h"
#include "vln_colour_nodes.h"
#include "vln_pe_plan.h"

namespace vln_colour {

Shifts shifts_of(const pe_context *pe)
{
    // A context without a handle (a tree built by hand) uses the common
    // layout: red 16, green 8, blue 0, height 24.
    if (pe->vds == nullptr) return {16, 8, 0, 24};
    const Vds *v = pe->vds;
    return {v->red_shift, v->green_shift, v->blue_shift, v->height_shift};
}

uint32_t background_pixel(const pe_context *pe, const Shifts &s)
{
    const uint8_t *rgb = pe->alg->background_colour;
    return static_cast<uint32_t>(rgb[0]) << s.red | static_cast<uint32_t>(rgb[1]) << s.green |
           static_cast<uint32_t>(rgb[2]) << s.blue;
}

pe_streamgroup *find_group(pe_streamgroup *groups, int type)
{
    for (pe_streamgroup *g = groups; g != nullptr; g = g->next)
        if (g->type == type) return g;
    return nullptr;
}

int surface_mode(const pe_context *pe, const pe_streamgroup *groups)
{
    if (groups == nullptr || pe->surface_modes == nullptr) return CM_PSEUDO;
    return pe->surface_modes[groups->surface_index];
}

funcnode *group_tree(pe_context *pe, pe_streamgroup *groups, int type)
{
    pe_streamgroup *group = find_group(groups, type);
    if (group == nullptr) return nullptr;
    funcnode *tree = nullptr;
    setup_mergestreamsnode(&tree, pe, groups, group);
    return tree;
}

void load_surface_table(pe_context *pe, const pe_streamgroup *groups, ColourTable *table)
{
    std::memset(table, 0, sizeof *table);
    const surface *s = nullptr;
    if (groups != nullptr && groups->streams != nullptr) s = groups->streams->surface;
    const char *name = s != nullptr ? s->lookup_table : nullptr;
    if (name == nullptr || *name == '\0')
        alg_error_fatal(pe, "Lookup-table not specified in algorithm");
    lut *l = nullptr;
    if (eg_lut_standard(&l, nullptr, name) != 0) {
        ef_lut(l);
        const char *why = VLD_error_text();
        alg_error_vprintf(pe, "Cannot read lookup-table \"%s\": %s", name,
                          why != nullptr ? why : "");
    }
    // Entries are taken in order, at most 256, each colour by its upper byte.
    const int n = l->nr_entries < 256 ? l->nr_entries : 256;
    for (int i = 0; i < n && l->entries != nullptr; i++) {
        table->red[i] = static_cast<uint8_t>(l->entries[i].red >> 8);
        table->green[i] = static_cast<uint8_t>(l->entries[i].green >> 8);
        table->blue[i] = static_cast<uint8_t>(l->entries[i].blue >> 8);
    }
    ef_lut(l);
}

}  // namespace vln_colour

void setup_colour_step(funcnode **slot, pe_context *pe, pe_streamgroup *groups, int cell_type)
{
    if (groups == nullptr) return;
    if (cell_type == Unsigned32BitInteger)
        setup_rgb24final_node(slot, pe, groups);
    else
        setup_height8_node(slot, pe, groups);
}
