/*
 * vln_nodes.h: the builders of the engine's node kinds.
 *
 * Each builder takes a slot that holds the tree so far and leaves the new
 * node in it, following the builder's idiom of vln_pe_internal.h; a builder
 * with nothing to do leaves the slot alone. Each kind lives in one file of
 * this folder, with its hooks, and has one row in vln_node_table.cpp.
 */
#ifndef VORLAN_VLN_NODES_H
#define VORLAN_VLN_NODES_H

#include "vln_pe_internal.h"

/* ---------------------------------------------------------------- dataset inputs */

/* A client of the dataset's ring: its line of band `pe_input->band`. */
void setup_inputnode(funcnode **slot, pe_context *pe, dsinput *dsi, pe_input *input,
                     int wants_rlsegs);
/* The dataset's little tree: read, reduce in cells, hand to the ring. */
void setup_readnode(funcnode **slot, pe_context *pe, dsinput *dsi);
void setup_subsamplenode(funcnode **slot, pe_context *pe, dsinput *dsi);
void setup_ginode(funcnode **slot, pe_context *pe, dsinput *dsi);
/* The dsinput of an FN_INPUT node; null for any other node. */
dsinput *input_node_dsinput(funcnode *node);

/* ---------------------------------------------------------------- nulls, conversion, placement */

void setup_addnull_node(funcnode **slot, pe_context *pe, int nr_cells, int offset);
/* Fills the window outside the canvas; `cell_type` is that of the root's line. */
void setup_appendnulls_node(funcnode **slot, pe_context *pe, int process_vectors, int with_links,
                            int cell_type);
/* Ends runs at cells not above `limit` (Classification streams). */
void setup_adjustrlsegnode(funcnode **slot, pe_context *pe, int nr_cells, int limit_type,
                           double limit);
/* `nr_cells` is the input's width; the output is left and right cells narrower. */
void setup_clipnode(funcnode **slot, pe_context *pe, int nr_cells, int left, int right);
void setup_gennulls_node(funcnode **slot, pe_context *pe, int cell_type, double null_value);
void setup_nconvnode(funcnode **slot, pe_context *pe, pe_streamgroup *group, int nr_cells,
                     double null_value);
void setup_nullcell_node(funcnode **slot, pe_context *pe, int nr_cells, int shift);
void setup_nullline_node(funcnode **slot, pe_context *pe, int nr_cells, int nr_lines, int top,
                         int bottom);
void setup_optim_node(funcnode **slot, pe_context *pe, pe_stream *ps);
/* The histogram that an FN_OPTIM node gathers through its transform; null
 * without one, or when histograms aren't collected. */
histogram *get_optim_hist(funcnode *node);
void setup_rcnode(funcnode **slot, pe_context *pe, int nr_cells);
void setup_rlsegnode(funcnode **slot, pe_context *pe, int nr_cells, int nr_bands, int null_set,
                     double null_value);
void setup_ssync_node(funcnode **slot, pe_context *pe, pe_stream *ps, int nr_cells, int first_line,
                      int nr_lines, int first_cell, double null_value);
void setup_syncnode(funcnode **slot, pe_context *pe, int nr_cells, int count);
void setup_tconvnode(funcnode **slot, pe_context *pe, int nr_cells, int cell_type);
void setup_cellx_node(funcnode **slot, pe_context *pe, pe_stream *ps);
void setup_celly_node(funcnode **slot, pe_context *pe, pe_stream *ps);
void setup_pixelx_node(funcnode **slot, pe_context *pe, pe_stream *ps);
void setup_pixely_node(funcnode **slot, pe_context *pe, pe_stream *ps);
void setup_inregion_node(funcnode **slot, pe_context *pe, pe_stream *ps, regioninfo *region);

/* A routine that makes a line's runs from its values: every cell that isn't
 * `null_cell` (a value in the line's type) is valid. */
typedef rlseg *(*rlsegs_routine)(rlseg_pool *pool, const void *line, int nr_cells,
                                 const void *null_cell);
/* Chooses the routine for a cell type: with no null value, the integer types
 * give the whole line and the real types treat NaN as null. `null_cell` gets
 * the null value in the type's form (8 bytes). */
void get_setup_rlsegs_info(int cell_type, int null_set, double null_value, rlsegs_routine *routine,
                           void *null_cell);

/* ---------------------------------------------------------------- resampling */

/* Reduction in cells: `source_cells` to `view_cells` by the sampling rule. */
void setup_subsamplenode2(funcnode **slot, pe_context *pe, int source_cells, int view_cells);
/* Nearest enlargement in cells: destination d takes source trunc(start + d * step),
 * step = source_span / view_span. */
void setup_supersamplenode(funcnode **slot, pe_context *pe, int source_width, int view_width,
                           double source_span, double view_span, double start);
/* Bilinear enlargement in cells of the stream's dataset (doubles, one cell of
 * lead-in on each side); the rts form works on 16-bit shade cells. */
void setup_bilinear_supersample_node(funcnode **slot, pe_context *pe, pe_stream *ps);
void setup_bilinear_rts_supersample_node(funcnode **slot, pe_context *pe, pe_stream *ps);
/* Nearest reduction in lines. */
void setup_lsubsnode(funcnode **slot, pe_context *pe, int width, int source_lines, int view_lines);
/* Nearest enlargement in lines. */
void setup_lsupersnode(funcnode **slot, pe_context *pe, int width, int view_lines,
                       double source_span, double view_span, double start);
void setup_bilinear_line_supersample_node(funcnode **slot, pe_context *pe, pe_stream *ps);
void setup_bilinear_rts_line_supersample_node(funcnode **slot, pe_context *pe, pe_stream *ps);

/* Run lists under reduction: the first and last destination of each source cell. */
void setup_subs_lseg_luts(int *start_table, int *end_table, const int *sample_array,
                          int source_width, int view_width);
rlseg *subsample_rlsegs(pe_context *pe, rlseg **out, const rlseg *rlsegs, const int *start_table,
                        const int *end_table);

/* ---------------------------------------------------------------- transforms and histograms */

/* The histogram that an FN_TRANSFORM node gathers (raw counts turned into
 * it first); null on another node or when histograms aren't collected. */
histogram *transform_node_histogram(funcnode *node);
/* Walks the tree depth first, not below FN_INPUT, and hands each histogram
 * of an FN_TRANSFORM or FN_OPTIM node to `deliver`, children first. */
void collect_hist(funcnode *node, void (*deliver)(void *arg, histogram *h), void *arg);

/* FN_TRANSFORM: the transform `t` over lines of `nr_cells` cells, by table
 * where one serves, into `out_type`; a stage with nothing to do leaves the
 * slot alone. */
void setup_transformnode(funcnode **slot, pe_context *pe, pe_stream *ps, transform *t, int nr_cells,
                         int out_type);

/* ---------------------------------------------------------------- formulae */

/* FN_FORMULA: a stream's formula over its inputs, one line of doubles; a
 * formula of one plain input gets that input's chain instead. */
void setup_formulanode(funcnode **slot, pe_context *pe, pe_streamgroup *group, pe_stream *ps);

/* ---------------------------------------------------------------- kernels and shading */

/* FN_KERNEL: the kernel `k` (convolution, threshold or user code) over lines
 * of `nr_cells` cells, giving doubles; a cell whose window isn't wholly valid
 * is null. A bad kernel fails the open with its message; a null `k` leaves
 * the slot alone. */
void setup_kernelnode(funcnode **slot, pe_context *pe, pe_stream *ps, kernel *k, int nr_cells);
/* Shading of a height line of `nr_cells` cells by its 3 by 3 window:
 * FN_SHADE, brightness under the stream's sun (8-bit); FN_RTSHADE, a palette
 * index of the slope's direction in the entries the algorithm's reserved
 * colours leave free (8-bit); FN_RTSHADE16, elevation and azimuth levels in
 * the first and second byte of a 16-bit cell. */
void setup_shadenode(funcnode **slot, pe_context *pe, pe_stream *ps, int nr_cells);
void setup_rtsnode(funcnode **slot, pe_context *pe, pe_stream *ps, int nr_cells);
void setup_rts16node(funcnode **slot, pe_context *pe, pe_stream *ps, int nr_cells);

/* ---------------------------------------------------------------- merges */

/* FN_MERGESTREAMS: the streams of one group on one line (overlay, feather,
 * classification); with fewer than two streams, not Classification, the
 * stream's own chain. Declared in vln_pe_plan.h. */

/* The node alone, with one input per stream of the group (`nr_cells` wide)
 * and no children yet: setup_mergestreamsnode puts each stream's chain in
 * its input's slot. */
funcnode *new_mergestreams_node(pe_context *pe, pe_streamgroup *group, int nr_cells);
/* The feathered value of a cell `k` cells into the overlap of a stream's
 * extent [left, right) with the extent covered by the layers above it, A the
 * stream's value and B the value there. */
double feather_value(int left, int right, int covered_left, int covered_right, int k, double a,
                     double b);
/* The cells given to each class by a Classification merge so far, one
 * counter per stream of the group (*count of them); null for another node. */
const int64_t *merge_class_counters(funcnode *node, int *count);

/* Classification colours over what lies below: input 0 (optional) what lies
 * below, the last input the class numbers. `output_type` is that of the line
 * (Unsigned8BitInteger or Unsigned32BitInteger); `colour_layers` 3 gives three
 * 8-bit planes instead of one line. */
void setup_cmergenode(funcnode **slot, pe_context *pe, int output_type, int colour_layers,
                      pe_streamgroup *groups, pe_streamgroup *class_group,
                      pe_streamgroup *cdisplay_group);
void setup_cdmergenode(funcnode **slot, pe_context *pe, int output_type, int colour_layers,
                       pe_streamgroup *groups, pe_streamgroup *cdisplay_group);
/* What lies below a class merge: the tree in the slot when the caller put
 * one there; otherwise, when `groups` is not null, the surface's colour step
 * (FN_RGB24FINAL for 32-bit cells, FN_HEIGHT8 for 8-bit, FN_RGBITORGB for
 * three planes); otherwise nothing, and a 32-bit line starts as the
 * background, an 8-bit one as NullColour, while planes keep what they hold.
 * Without class streams a builder leaves the slot to what lies below;
 * setup_cmergenode puts the ClassificationDisplay layer (setup_cdmergenode)
 * under its own. */
/* The class merge alone (FN_CMERGE or FN_CDMERGE), over the slot's tree when
 * there is one, with `nr_classes` class inputs (8-bit, level 3) whose slots
 * the caller fills: class_merge_input(node, i). */
funcnode *new_class_merge_node(funcnode **slot, pe_context *pe, int type, int output_type,
                               int colour_layers, pe_streamgroup *group, int nr_classes);
fninput *class_merge_input(funcnode *node, int i);
/* Vector layers drawn by a child process over what lies below (the class
 * merges, by setup_cmergenode, when `mode` is MergeWithRaster; nothing when
 * it is AfterRasterOkay). The program is the filter program of the group's
 * first stream; it is given the algorithm's file, the line's width and
 * height in cells and the bytes per cell it must write (1, an 8-bit index;
 * 3, red, green and blue), then each stream's dataset. It writes one line of
 * text, then each line of the view: 0 (or white) is a cell not drawn on.
 * Without a vector group, setup_cmergenode alone. */
void setup_psmergenode(funcnode **slot, pe_context *pe, int mode, int output_type,
                       int colour_layers, pe_streamgroup *groups, pe_streamgroup *class_group,
                       pe_streamgroup *cdisplay_group, pe_streamgroup *vector_group);

/* ---------------------------------------------------------------- colour and pixels */

/* Colour arithmetic on 8-bit (and 16-bit) hue, saturation and value. */
void hsv_to_rgb(uint8_t h, uint8_t s, uint8_t v, uint8_t *r, uint8_t *g, uint8_t *b);
void rgb_to_hsv(uint8_t r, uint8_t g, uint8_t b, uint8_t *h, uint8_t *s, uint8_t *v);
void hsv_to_rgb_16(uint16_t h, uint16_t s, uint16_t v, uint16_t *r, uint16_t *g, uint16_t *b);
void rgb_to_hsv_16(uint16_t r, uint16_t g, uint16_t b, uint16_t *h, uint16_t *s, uint16_t *v);
void hsvbufs_to_rgbbufs(const uint8_t *h, const uint8_t *s, const uint8_t *v, uint8_t *r,
                        uint8_t *g, uint8_t *b, int n);
void rgbbufs_to_hsvbufs(const uint8_t *r, const uint8_t *g, const uint8_t *b, uint8_t *h,
                        uint8_t *s, uint8_t *v, int n);
/* Fills the cells of an 8-bit line outside the runs with `null`. */
void convnulls(const rlseg *rlsegs, uint8_t *line, int nr_cells, uint8_t null);

/* Palettes of a display with 256 colours. The free indices (those not
 * reserved) are listed in `table`, in order; each returns their count. */
/* A colour cube in the free indices: its steps of red, green and blue. */
int setup_rgb8_params(uint8_t *table, int *nr_r, int *nr_g, int *nr_b, int nr_reserved,
                      const uint8_t *reserved);
/* The cube's strides by 8-bit value: the cube position of (R, G, B) is
 * r[R] + g[G] + b[B]. */
void setup_rgb8_strides(int *r, int *g, int *b, int nr_r, int nr_g, int nr_b);
/* The cube's 16-bit colours at their palette indices: `lut` holds red, green,
 * blue for each of 256 indices; reserved ones are left alone. */
void setup_rgb8_lut(uint16_t *lut, int nr_reserved, const uint8_t *reserved);
/* Colour groups of `levels` brightness steps, after black and a grey ramp. */
int setup_cd8_params(uint8_t *table, int *groups, int *levels, int nr_reserved,
                     const uint8_t *reserved);
/* The palette of those groups (as `setup_rgb8_lut`) from a colour table of
 * 256 byte triples. */
void cdlut24_to_cdlut8(uint16_t *cdlut8, const uint8_t *cdlut24, int nr_reserved,
                       const uint8_t *reserved);

/* The colour nodes of a surface; `groups` is the surface's list of groups. */
void setup_rgbitorgb_node(funcnode **slot, pe_context *pe, pe_streamgroup *groups);
void setup_rgbtorgb_node(funcnode **slot, pe_context *pe, pe_streamgroup *groups);
void setup_hsitorgb_node(funcnode **slot, pe_context *pe, pe_streamgroup *groups);
void setup_pseudotorgb_node(funcnode **slot, pe_context *pe, pe_streamgroup *groups);
void setup_height8_node(funcnode **slot, pe_context *pe, pe_streamgroup *groups);
void setup_rgb24final_node(funcnode **slot, pe_context *pe, pe_streamgroup *groups);
void setup_rgb24to8_node(funcnode **slot, pe_context *pe, pe_streamgroup *groups);
void setup_pito8_node(funcnode **slot, pe_context *pe, pe_streamgroup *groups);
/* The colour step of a surface under its class merges: FN_RGB24FINAL for
 * 32-bit pixels, else the 8-bit palette form; leaves the slot alone for a
 * surface without ordinary groups. */
void setup_colour_step(funcnode **slot, pe_context *pe, pe_streamgroup *groups, int cell_type);
/* The image chain under the root's FN_APPENDNULLS: FN_TRANSPARENCY over the
 * surfaces, or surface 0's merges and colour step alone. */
void setup_transpnode(funcnode **slot, pe_context *pe, int process_vectors, int with_links,
                      int cell_type);

/* ---------------------------------------------------------------- roots and output layouts */

/* The root of a tree by the open's layout: FN_VREAD, FN_VREADTOPP or
 * FN_VREADTOMSRGBH. `which` 0 raster, 1 vector. */
void setup_vreadnode(funcnode **slot, pe_context *pe, int process_vectors, int which);
/* The reads of the three roots, run under the handle's failure target: 0, or
 * -1 when every line has been delivered. `rlsegs` may be null; a list in it is
 * the last read's and is freed first. */
int vread_read_lines(funcnode *root, void **lines, rlseg **rlsegs);
int vreadtopp_read_lines(funcnode *root, void **lines, uint32_t **pp_lines);
int vreadtomsrgbh_read_lines(funcnode *root, void **rgb_lines, void **height_lines, rlseg **rlsegs);

/* The groups that make the bands of a dataset written from the algorithm, in
 * band order: every ordinary group of every surface, then each surface's
 * Classification group, then each surface's DynamicLink group. Stores up to
 * `max` of them in `groups` (which may be null) and returns the count. */
int dataset_output_groups(const pe_context *pe, pe_streamgroup **groups, int max);
/* FN_DGROUPSTREAMS: one band per output group, in `pe->cell_type`. */
void setup_dgsnode(funcnode **slot, pe_context *pe, int nr_bands);
/* FN_TOBUFFERS: surface 0 as twelve 8-bit lines (planes, a mask, overlay). */
void setup_tobufnode(funcnode **slot, pe_context *pe);
/* FN_TOPPBUFFERS: one packed-pixel line and run table per surface. */
void setup_toppbufnode(funcnode **slot, pe_context *pe);
/* FN_TOMSRGBH: a line of 32-bit pixels per surface and one of heights per
 * surface with a Height group, which this takes out of `groups` into
 * `height_groups`. */
void setup_tomsrgbh(funcnode **slot, pe_context *pe);
/* The bands of the per-surface root, in order: 2 * s for the pixels of a
 * surface s that has any group, then 2 * s + 1 for the heights of each surface
 * with a Height group. Fills `band_map` (may be null); returns the count. */
int tomsrgbh_band_map(const pe_context *pe, int32_t *band_map);

/* Bits of a packed-pixel mask: what a cell carries, and in what order. */
enum {
    PP_RED = 0x1,
    PP_GREEN = 0x2,
    PP_BLUE = 0x4,
    PP_HUE = 0x8,
    PP_SATURATION = 0x10,
    PP_INTENSITY = 0x20,
    PP_PSEUDO = 0x40,
    PP_HEIGHT = 0x80,
    PP_RGB = 0x100,   /* composed colour: red, green, blue bytes */
    PP_EMPTY = 0x200, /* no bytes */
    PP_RED16 = 0x400, /* 16-bit planes, replacing the 8-bit one: 0x400 << colour */
    PP_GREEN16 = 0x800,
    PP_BLUE16 = 0x1000,
    PP_HUE16 = 0x2000,
    PP_SATURATION16 = 0x4000,
    PP_INTENSITY16 = 0x8000,
    PP_PSEUDO16 = 0x10000,
    PP_HEIGHT16 = 0x20000
};
/* The planes of one surface, by colour (red, green, blue, hue, saturation,
 * intensity, pseudo, height), in 8 and 16 bits; null where there is none. */
struct pp_planes {
    const uint8_t *plane8[8];
    const uint16_t *plane16[8];
};
/* Packs the first `nr_in` cells of a line by their masks into `out` and makes
 * its run table: entry 0 is {0, bytes written}, then {mask, count} runs of
 * cells, cells from `nr_in` to `nr_cells` as one PP_EMPTY run, and {0, 0} at
 * the end. A `line` (from 1) above `nr_lines_in` is one PP_EMPTY run. The
 * table is new (malloc) and the caller's, in *table; a null `table` packs
 * nothing. Returns 0, 1 when memory ran out, 2 when the cells need more than
 * `nr_bytes_limit` bytes; *table is null after a failure. */
int convert_bufs_to_pp(int nr_bytes_limit, int nr_cells, int line, int nr_in, int nr_lines_in,
                       const pp_planes *planes, const uint32_t *masks, uint32_t **table,
                       uint8_t *out);

/* A 32-bit pixel of the bytes red, green, blue at the handle's shifts (16, 8, 0
 * without a handle). */
void Colour24toUINT32(const Vds *vds, const uint8_t *rgb, uint32_t *pixel);

#endif
