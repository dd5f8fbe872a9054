/*
 * vln_pe_plan.h: planning an algorithm into streams, groups and dataset
 * inputs, and laying down each stream's chain of nodes.
 */
#ifndef VORLAN_VLN_PE_PLAN_H
#define VORLAN_VLN_PE_PLAN_H

#include "vln_pe_internal.h"

/* The two class stream types, which keep their values as doubles to the merge. */
inline bool is_class_type(int type)
{
    return type == ST_Classification || type == ST_ClassificationDisplay;
}

/* The preparation: which streams take part, their datasets, margins and
 * groups. Its failures jump. */
void prepare_alg(algorithm *alg, pe_context *pe);
/* Makes raster_root and, where wanted, vector_root. */
void build_trees(pe_context *pe);
void setup_mergestreamsnode(funcnode **slot, pe_context *pe, pe_streamgroup *groups,
                            pe_streamgroup *group);
void setup_streamnodes(funcnode **slot, pe_context *pe, pe_streamgroup *groups,
                       pe_streamgroup *group, pe_stream *ps);
/* The chain below the formula for one input (`kind`: 1 a dataset input, 2
 * INREGION, 3 CELLX, 4 CELLY, 5 PIXELX, 6 PIXELY). */
void setup_input_chain(funcnode **slot, pe_context *pe, pe_stream *ps, pe_input *input, int kind);
void calc_image_corners(pe_context *pe, dshdr *dsh, double *x0, double *y0, double *x1, double *y1);
int count_streaminputs(const stream *st);
void get_formula_info(pe_context *pe, pe_stream *ps);
/* The band text of a stream input: the formula argument bound to it. */
char *get_band(pe_context *pe, const stream *st, const streaminput *in);
void setup_rclut(unsigned char *table, int nr_reserved, const unsigned char *reserved);
void free_group_formulae(pe_context *pe);

/* Dataset inputs. */
dsinput *find_dsinput(pe_context *pe, pe_stream *ps);
dsi_client *add_client_to_dsi(pe_context *pe, dsinput *dsi, const char *band, int wants_rlsegs);
void raster_registration_calculations(pe_context *pe, dsinput *dsi);
void widen_dsinput(pe_context *pe, dsinput *dsi);
void setup_dsi_subsample_arrays(pe_context *pe, dsinput *dsi);
void finish_setting_up_dsinputs(pe_context *pe);
void close_dsinput(dsinput *dsi);
void close_dsinputs(dsinput *list);
void pe_open_raster(pe_context *pe, dsinput *dsi);
void pe_close_raster(dsinput *dsi);
int bandnumber_cmp(const char *a, const char *b);

/* Conversions of the dataset coordinates; a failure jumps. */
void PE_cvt_coord_to_cell(pe_context *pe, dshdr *dsh, const dscoord *coord, double *x, double *y);
void PE_cvt_cell_to_coord(pe_context *pe, dshdr *dsh, double x, double y, dscoord *coord);
void PE_cvt_cell_to_nonLL_coord(pe_context *pe, dshdr *dsh, double x, double y, dscoord *coord);
void PE_cvt_any_coord_to_cell(pe_context *pe, const coordspace *space, const dscoord *coord,
                              dshdr *dsh, double *x, double *y);

#endif
