/*
 * vln_colour_nodes.h: what the colour nodes share, for the files of this
 * folder and their tests.
 *
 * Each colour node's builder finds its groups in the surface's list and
 * builds their merges; the `_over` forms below take those trees already
 * built (null for a group that is absent), so that the arithmetic of a node
 * can be set over any source.
 */
#ifndef VORLAN_VLN_COLOUR_NODES_H
#define VORLAN_VLN_COLOUR_NODES_H

#include "vln_nodes.h"

namespace vln_colour {

/* The pixel layout of the handle: the byte shifts of red, green, blue and
 * height. */
struct Shifts {
    int red, green, blue, height;
};
Shifts shifts_of(const pe_context *pe);
/* The background colour as a pixel (the top byte clear). */
uint32_t background_pixel(const pe_context *pe, const Shifts &s);

/* The group of `type` in a surface's list, or null. */
pe_streamgroup *find_group(pe_streamgroup *groups, int type);
/* The colour mode of the surface that the groups belong to; PSEUDO for an
 * empty list. */
int surface_mode(const pe_context *pe, const pe_streamgroup *groups);
/* The tree of one group's merge, or null for an absent group. */
funcnode *group_tree(pe_context *pe, pe_streamgroup *groups, int type);

/* The surface's lookup table as three arrays of 256 bytes (red, green,
 * blue), read at setup; the entries that the table lacks are black. */
struct ColourTable {
    uint8_t red[256], green[256], blue[256];
};
void load_surface_table(pe_context *pe, const pe_streamgroup *groups, ColourTable *table);

/* The node kinds over built trees. The colour nodes deliver three 8-bit
 * planes, red, green and blue, whose runs are those of plane 0. */
void rgbtorgb_over(funcnode **slot, pe_context *pe, funcnode *red, funcnode *green, funcnode *blue);
void hsitorgb_over(funcnode **slot, pe_context *pe, funcnode *hue, funcnode *saturation,
                   funcnode *intensity);
void pseudotorgb_over(funcnode **slot, pe_context *pe, funcnode *pseudo, const ColourTable &table);
/* Leaves the colour tree in the slot alone without an intensity tree. */
void rgbitorgb_over(funcnode **slot, pe_context *pe, funcnode *colour, funcnode *intensity);
void rgb24final_over(funcnode **slot, pe_context *pe, funcnode *colour, funcnode *height);
void rgb24to8_over(funcnode **slot, pe_context *pe, funcnode *colour);
void pito8_over(funcnode **slot, pe_context *pe, funcnode *intensity, funcnode *pseudo,
                const ColourTable &table);
void height8_over(funcnode **slot, pe_context *pe, funcnode *image, funcnode *height);
/* FN_TRANSPARENCY over one pixel tree per surface, top surface first, with
 * each surface's transparency (0 opaque, 1 invisible). */
void transparency_over(funcnode **slot, pe_context *pe, int nr_surfaces, funcnode **trees,
                       const double *transparency);

}  // namespace vln_colour

#endif
