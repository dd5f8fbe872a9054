/*
 * gdt_coords.h: datums, projections and the coordinate-system engine.
 *
 * Three layers, one prefix each:
 *   gdb_     keyed access to the text tables (*.dat) of datums, projections and
 *            datum changes, found under GDT_DATA_PATH or $VORLAN/GDT_DATA/;
 *   struct_  named attributes of a parameter block, shared by the tables, by
 *            modification and by inquiry;
 *   gdt_     coordinate systems built from (datum, projection, units) names,
 *            and transformations of points between two of them.
 *
 * The engine keeps one current source, target and transformation, so callers
 * hold VLN_GLOBAL_GDT_MUTEX over each set-source, set-target, mode and
 * transform sequence. Functions return 0 (or an id) on success and -1 or below
 * on failure, after reporting through the installed error handler. Angles in
 * parameter blocks are radians; a geodetic point is (longitude, latitude).
 */
#ifndef VORLAN_GDT_COORDS_H
#define VORLAN_GDT_COORDS_H

#include "vld_core.h"

VLD_BEGIN_DECLS

/* ---------------------------------------------------------------- tables */

/* The directory of the tables and grids, with a final "/"; settled on first call. */
VLD_API const char *gdb_path(void);
VLD_API const char *gdb_grid_path(void);
/* 0 plain files, 1 a database server (not built); ignored after the first choice. */
VLD_API int gdb_set_db(int type);
/* Chooses table `name` (NAME.dat), opening it if needed: 0 or -1. */
VLD_API int gdb_set_table(const char *name);
/* Chooses the row whose key is `key`, case-insensitively: 0, -1 not found, -2 read error. */
VLD_API int gdb_set_name_key(const char *key);
/* The next row's key into `key` (20 bytes); null rewinds. 0, 1 at the end, -1 on error. */
VLD_API int gdb_next_name_key(char *key);
/* A column of the chosen row as type "c", "d", "l" (int32_t) or "s" (512 bytes).
 * 0, 1 for an empty field (`out` untouched), -1 unknown column or type. */
VLD_API int gdb_load(const char *column, const char *type, void *out);
/* The next column name of the current table into `name` (512 bytes); null
 * restarts. 0, 1 past the last, -1 without a table. */
VLD_API int gdb_next_column_name(char *name);

/* ---------------------------------------------------------------- attributes */

typedef struct gdt_struct_desc gdt_struct_desc;

VLD_API int struct_begin(const char *name, void *base);
VLD_API int struct_add(const char *name, void *address, const char *type);
VLD_API int struct_add_struct(const gdt_struct_desc *description, void *address);
VLD_API gdt_struct_desc *struct_end(void);
/* `name` is "init", "init-.", "next" (written back with the attribute's name,
 * so give 64 bytes) or an exact name; `type` "*" is replaced by the
 * attribute's own letter. 0, 1 at the end of an iteration, -1 on failure. */
VLD_API int struct_inq(const gdt_struct_desc *description, const void *block, char *name,
                       char *type, void *out, int out_size);
VLD_API int struct_mod(const gdt_struct_desc *description, void *block, const char *name,
                       const char *type, const void *value);
VLD_API int struct_offset(const gdt_struct_desc *description, const char *name);
VLD_API void struct_dump(const gdt_struct_desc *description, const void *block);
/* Fills `block` from the current row of the current table: 0 or -1. */
VLD_API int gdb_struct_load(const gdt_struct_desc *description, void *block);

/* ---------------------------------------------------------------- look-ups */

/* Which row of "datum_sp" has the given numbers: one value per column after
 * the key, doubles but for the integer next to last. The first column isn't
 * compared, the radius within 0.001, the others within 1e-6; with `ignore`
 * the last two match anyway. 0 with the key in `name` (20 characters), or -1
 * with `*message` (the caller's, freed with safe_free) saying why, or how a
 * row for these numbers would read. */
VLD_API int find_datum(char **message, char *name, int ignore, ...);
/* The same over projection table `table`: doubles but for the integer last,
 * within 1e-11; a value whose bits are 0x41cdcd65 00000000 isn't compared;
 * `ignore` leaves out the last four columns. */
VLD_API int find_projection(char **message, char *name, const char *table, int ignore, ...);

/* Two texts of a list; a list ends with an item of two nulls. */
typedef struct gdt_name_item {
    const char *first;
    const char *second;
} gdt_name_item;
/* (type, name) of every row of "project", by type and then name; made once,
 * kept for the life of the library. */
VLD_API const gdt_name_item *get_projection_list(void);
/* (name, "Spheroid: %s, tie point: %s") of every row of "datum_sp". */
VLD_API const gdt_name_item *get_datum_list(void);
/* The projection and datum of a State Plane zone number: 1, or 0 with "RAW"
 * in both. */
VLD_API int state_plane2gdt_code(int number, char *projection, char *datum);
/* The Albers projection of seven numbers (false east, false north, two
 * parallels, centre latitude and meridian in radians, radius): the known row
 * that agrees in most of them (1, datum "NAD27"), or 0 with "RAW" in both. */
VLD_API int albea2proj(const double *values, char *projection, char *datum);
struct ellipsoid;
/* Fills the radius and eccentricity squared of a legacy ellipsoid code (2
 * GRS80 to 11 Everest): 0, or -1 for a code that has none. */
VLD_API int load_ellipsoid(int type, struct ellipsoid *out);

/* ---------------------------------------------------------------- systems */

VLD_API int gdt_create_coord_sys(const char *datum, const char *projection, const char *units);
VLD_API int gdt_crelock_coord_sys(const char *datum, const char *projection, const char *units);
VLD_API int gdt_check_creation_coord_sys(const char *datum, const char *projection,
                                         const char *units);
VLD_API int gdt_inq_status_coord_sys(int *id);
VLD_API int gdt_copy_coord_sys(int *id);
VLD_API int gdt_lock_coord_sys(int *id);
VLD_API int gdt_delete_coord_sys(int *id);
VLD_API int gdt_next_coord_sys(int *id);
VLD_API int gdt_mod_coord_sys(int *id, const char *entity, const char *attribute, const char *type,
                              const void *value);
/* `attribute` and `type` follow struct_inq, and are written back alike. */
VLD_API int gdt_inq_coord_sys(int *id, const char *entity, char *attribute, char *type, void *out,
                              int out_size);

/* ---------------------------------------------------------------- transformations */

VLD_API int gdt_set_source(int *id);
VLD_API int gdt_set_target(int *id);
VLD_API int gdt_inq_source(void);
VLD_API int gdt_inq_target(void);
VLD_API int gdt_inq_trans_status(void);
VLD_API int gdt_mod_num_points(int *n);
/* 1 no position check, 2 longitude brought into range, 3 points outside
 * rejected, 4 automatic. */
VLD_API int gdt_mod_trans_mode(int *mode);
/* 0 when `mode` is allowed for the current transformation; 5 gives the current mode. */
VLD_API int gdt_inq_trans_mode(int *mode);
VLD_API int gdt_transform(double *x_in, double *y_in, double *z_in, double *x_out, double *y_out,
                          double *z_out);
/* `n` triples of doubles. */
VLD_API int gdt_trans_array(int *n, const double *in, double *out);
VLD_API int gdt_trans_polyline(void);
VLD_API double gdt_i_get_resolution(int unit);

/* ---------------------------------------------------------------- messages */

/* The handler receives "C<level>:<text>", C being the class letter P, S or U. */
typedef void (*gdt_error_handler)(const char *message);
VLD_API int gdt_install_error(gdt_error_handler handler);
VLD_API int gdt_install_error_f(gdt_error_handler handler);
/* Passes a message to the handler; level 0 continues the current chain. */
VLD_API void gdt_combine_error(int cls, int level, const char *text);
VLD_API void gdt_debug(void);

/* ---------------------------------------------------------------- base projections */

typedef int (*gdt_proj_init_fn)(void *block);
typedef int (*gdt_proj_conv_fn)(void *block, double a, double b, double *out_a, double *out_b);

/* Names of the base table; null restarts. 0, then 1 and an empty name at the end. */
VLD_API int gdt_inq_next_base(char *name);
/* Install sequence of one base: create, one ins_par per attribute, funcs, mode, end. */
VLD_API int gdt_proj_create(const char *name, void *block, int block_size);
VLD_API int gdt_proj_ins_par(const char *name, void *address, const char *type);
VLD_API int gdt_proj_ins_funcs(gdt_proj_init_fn init, gdt_proj_conv_fn forward,
                               gdt_proj_conv_fn backward);
VLD_API int gdt_proj_ins_mode(int bits);
VLD_API int gdt_proj_end(void);

/* ---------------------------------------------------------------- geodesy */

/* A spheroid: semi-major axis (metres), eccentricity, prime meridian (radians). */
typedef struct gdt_spheroid {
    double a;
    double e;
    double prime_merid;
} gdt_spheroid;

/* A seven-parameter change: level 0 identity, 1 translation, 2 with z rotation
 * and scale, 3 full. Rotations are small-angle radians, position-vector sense. */
typedef struct gdt_bursa_wolf {
    int32_t level;
    double translation_x, translation_y, translation_z;
    double rotation_x, rotation_y, rotation_z;
    double scale;
} gdt_bursa_wolf;

VLD_API void gdt_gd_to_xyz(const gdt_spheroid *s, double lon, double lat, double h, double *x,
                           double *y, double *z);
VLD_API void gdt_xyz_to_gd(const gdt_spheroid *s, double x, double y, double z, double *lon,
                           double *lat, double *h);
VLD_API void gdt_xyz_to_gd_2(const gdt_spheroid *s, double x, double y, double z, double *lon,
                             double *lat, double *h);
VLD_API int gdt_xyz_to_xyz(const gdt_bursa_wolf *bw, double x, double y, double z, double *ox,
                           double *oy, double *oz);
VLD_API void gdt_bw_invert(const gdt_bursa_wolf *in, gdt_bursa_wolf *out);
VLD_API void gdt_bw_combine(const gdt_bursa_wolf *a, const gdt_bursa_wolf *b, gdt_bursa_wolf *out);

/* Grid sets of datum shifts: a list of file names, blank-separated, in the
 * table directory. init returns a handle, or 0 when no file could be read. */
VLD_API int grid_access_init(const char *file_list);
VLD_API int grid_access_set_current_id(int handle);
/* Coefficients a square of the current set: 18, 8, or 2 for NTv2 shifts. */
VLD_API int grid_access_inq_num_coeffs(void);
VLD_API int grid_access_close(int handle);

/* Angle brought to -pi..pi when its size exceeds pi by more than rounding. */
VLD_API double gdt_normal_pi(double angle);

VLD_END_DECLS

#endif
