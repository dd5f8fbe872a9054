/*
 * vld_coords.h: positions of datasets, and the spaces they are written in.
 *
 * A position is written three ways: a cell of a dataset (fractional column and
 * line, cell (0, 0) being the top-left corner of the top-left cell), a map
 * coordinate in the dataset's coordinate space, and a coordinate in some other
 * space. The cvt_ family moves a position between them. Within one space (or
 * between spaces that differ only in units of equal size) the work is plain
 * arithmetic over the header's registration, cell size and rotation; anything
 * that changes datum or projection goes through the coordinate engine, which
 * the coordinate module installs. Without it such conversions fail with VLD_ERR_GEODETIC_TRANSFORM.
 *
 * Every function returns 0 or a row of VLD_errmsg, after VLD_setup_error. A
 * null dataset, coordinate or output is VLD_ERR_INCOMPATIBLE_COORDSYS. In an LL space x is
 * longitude and y latitude, in radians; z is NaN when absent. The _ex forms take the cosine and
 * sine of the dataset's rotation, in that order, so that a loop over cells computes them once.
 */
#ifndef VORLAN_VLD_COORDS_H
#define VORLAN_VLD_COORDS_H

#include "vld_core.h"
#include "vld_dshdr.h"

VLD_BEGIN_DECLS

/* ---------------------------------------------------------------- cells and coordinates */

/* A coordinate in the dataset's own space to a cell. For a "GEODETIC" LL
 * dataset the coordinate is taken in degrees (kept: callers of this form hand
 * in degrees; cvt_any_coord_to_cell takes radians). */
VLD_API int cvt_coord_to_cell(const dshdr *dsh, const dscoord *coord, double *cell_x,
                              double *cell_y);
VLD_API int cvt_coord_to_cell_ex(const dshdr *dsh, const dscoord *coord, double *cell_x,
                                 double *cell_y, double cos_rot, double sin_rot);
/* A cell to a coordinate in the dataset's own space (radians for LL). */
VLD_API int cvt_cell_to_coord(const dshdr *dsh, double cell_x, double cell_y, dscoord *coord);
VLD_API int cvt_cell_to_coord_ex(const dshdr *dsh, double cell_x, double cell_y, dscoord *coord,
                                 double cos_rot, double sin_rot);
/* As cvt_cell_to_coord, but an LL dataset answers in its projection's
 * eastings and northings. The header is changed during the call and restored
 * before it returns, so it may not be shared with another thread meanwhile. */
VLD_API int cvt_cell_to_nonLL_coord(dshdr *dsh, double cell_x, double cell_y, dscoord *coord);
VLD_API int cvt_cell_to_nonLL_coord_ex(dshdr *dsh, double cell_x, double cell_y, dscoord *coord,
                                       double cos_rot, double sin_rot);
/* A cell to a coordinate in `target`. The header is briefly changed. */
VLD_API int cvt_cell_to_any_coord(dshdr *dsh, double cell_x, double cell_y,
                                  const coordspace *target, dscoord *coord);
VLD_API int cvt_cell_to_any_coord_ex(dshdr *dsh, double cell_x, double cell_y,
                                     const coordspace *target, dscoord *coord, double cos_rot,
                                     double sin_rot);
/* A coordinate in `source` to a cell of the dataset. The header is briefly
 * changed. */
VLD_API int cvt_any_coord_to_cell(const coordspace *source, const dscoord *coord, dshdr *dsh,
                                  double *cell_x, double *cell_y);
VLD_API int cvt_any_coord_to_cell_ex(const coordspace *source, const dscoord *coord, dshdr *dsh,
                                     double *cell_x, double *cell_y, double cos_rot,
                                     double sin_rot);

/* ---------------------------------------------------------------- between spaces */

/* Strict: the two spaces must agree in datum, projection and rotation. */
VLD_API int cvt_coord_to_coord(const coordspace *source, const dscoord *in,
                               const coordspace *target, dscoord *out);
/* Relaxed: raw goes only to raw, and projected to projected. */
VLD_API int cvt_any_coord_to_coord(const coordspace *source, const dscoord *in,
                                   const coordspace *target, dscoord *out);

/* Whether two spaces may be compared at all: 0 or VLD_ERR_INCOMPATIBLE_COORDSYS. Either may be
 * null. */
VLD_API int check_2_regs(const coordspace *a, const coordspace *b, int strict);
/* 1 when the spaces are the same: datum, projection, type, rotation, and units
 * by name or by size. */
VLD_API int coordspaces_equal(const coordspace *a, const coordspace *b);
/* 1 when datum and projection are each "RAW" or null; a null space is raw. */
VLD_API int is_raw_cspace(const coordspace *space);

/* Metres per unit of the space so named; 1.0 for raw and geodetic spaces, a
 * null argument, or a system the engine cannot give a factor for. */
VLD_API double get_meter_factor_from_datum_proj(const char *datum, const char *projection,
                                                const char *units);
/* The display name of the unit, new. */
VLD_API char *get_units_from_datum_proj(const char *datum, const char *projection,
                                        const char *units);

/* 1 when the engine can build the space. */
VLD_API int VLN_coordspace_valid(const coordspace *space);
VLD_API int coordspace_valid(const char *datum, const char *projection, const char *units);
VLD_API int coordspace_and_coordsystype_valid(int coordsystype, const char *datum,
                                              const char *projection, const char *units);
/* The zone of a "TMAMG<zone>" projection, else 0. */
VLD_API int VLD_get_zone(const char *projection);

/* The words of coordsystype: "None", "RAW", "EN", "LL", and "UTM", "LatLong"
 * read as EN and LL. Unknown words read as 0; a value prints its first word. */
VLD_API int string_to_coordsystype(const char *word);
VLD_API const char *coordsystype_to_string(int coordsystype);

/* Metres from a to b along each axis, signed (b subtracted from a) or absolute.
 * A null argument gives 0 for both. */
VLD_API int delta_coords_meters_non_abs(const coordspace *space, const dscoord *a, const dscoord *b,
                                        double *dx, double *dy);
VLD_API int delta_coords_meters(const coordspace *space, const dscoord *a, const dscoord *b,
                                double *dx, double *dy);

/* Metres along the ground from a to b. In a "GEODETIC" space this is the
 * great circle on a sphere of the datum's radius; elsewhere the straight line
 * of delta_coords_meters. A null space or point gives 0; a null output is
 * VLD_ERR_INCOMPATIBLE_COORDSYS. */
VLD_API int distance_coords_meters(const coordspace *space, const dscoord *a, const dscoord *b,
                                   double *distance);

/* ---------------------------------------------------------------- extents */

/* Replaces the corners of the dataset's extents (in its space, given by the
 * caller) with the dataset's extents in `target`: the edges of the dataset
 * are walked through the target space, and rotations of either grid are
 * taken out and put back. The header is briefly changed. */
VLD_API int VLN_calculate_reprojected_extents(const coordspace *target, dshdr *dsh,
                                              dscoord *top_left, dscoord *bottom_right);
/* Whether the area between two corners in `space` survives the trip to
 * latitude and longitude and back: points along the diagonal, at every
 * hundredth of `nr_cells` and `nr_lines` (at least every one), must come back
 * within one metre. VLD_ERR_CELLS_OUTSIDE_DATASET when one doesn't, which marks a dataset off the
 * usable area of its projection; a point the engine cannot carry at all is
 * VLD_ERR_GEODETIC_TRANSFORM. Raw, "GEODETIC" and "LOCAL" spaces pass. */
VLD_API int VLN_check_coords_round_trip(const coordspace *space, const dscoord *top_left,
                                        const dscoord *bottom_right, int32_t nr_cells,
                                        int32_t nr_lines);

/* ---------------------------------------------------------------- positions as text */

/* Latitude and longitude texts ("12:30:0.0S", "130:0:0.0E") of a coordinate,
 * or of the difference to a second one (no hemisphere letter then). The texts
 * are new. */
VLD_API int VLD_coords_to_ll_strings(char **lat, char **lon, const dscoord *coord,
                                     const dscoord *second, const coordspace *space);
/* Easting and northing texts ("%.2f" and E or N), new. */
VLD_API int VLD_coords_to_en_strings(char **east, char **north, const dscoord *coord,
                                     const dscoord *second, const coordspace *space);
/* Sets `base` to an easting and northing, or with `out`, puts in `out` the
 * position that far from `base`. -1 when disabled or without space or base. */
VLD_API int VLD_en_to_coords(double east, double north, dscoord *base, dscoord *out,
                             const coordspace *space, int enable);
/* As VLD_en_to_coords, from latitude and longitude texts ("d:m:s" and an
 * optional hemisphere letter). */
VLD_API int VLD_ll_strings_to_coords(const char *lat, const char *lon, dscoord *base, dscoord *out,
                                     const coordspace *space, int enable);
/* As VLD_en_to_coords, from a cell of `dsh` given as texts. */
VLD_API int VLD_cellxy_strings_to_coords(const char *x, const char *y, dscoord *base, dscoord *out,
                                         const coordspace *space, dshdr *dsh);

VLD_END_DECLS

#endif
