/*
 * gdt_internal.h: the coordinate engine's records, shared by the files of the
 * coordinate module and its tests.
 *
 * A coordinate system is a datum (a spheroid from table "datum_sp") and a
 * projection (a row of table "project" naming a base projection, and a row of
 * the base's own table holding its parameters). A base projection is one row
 * of the base table: a description of its parameter block, and functions to
 * initialise the block and to carry points forward (geodetic radians to
 * projection units) and backward. Each member of the family lives in a file of
 * its own, proj_<base>.cpp, and enters the table through its install function.
 */
#ifndef VORLAN_GDT_INTERNAL_H
#define VORLAN_GDT_INTERNAL_H

#include <cstdint>
#include <string>

#include "gdt_coords.h"

/* One attribute of a description. */
struct gdt_struct_attr {
    char name[40];
    char type; /* 'c', 'd', 'l', 's' */
    long offset;
    int cls; /* 1 from the tables and modifiable, 2 inquiry only, 3 hidden */
};

struct gdt_struct_desc {
    char name[40];
    int count;
    mutable int position; /* of the iterating inquiry */
    int filter;
    gdt_struct_attr attrs[40];
};

namespace gdt {

constexpr int kMaxSystems = 400;
constexpr int kMaxTransforms = 400;
constexpr int kMaxBases = 600;
constexpr int kNoBase = 600;
constexpr int kNameSize = 20;

enum CoordType { kProjected = 0, kGeodetic = 2, kGeocentric = 3 };

/* Status bits of a system. */
constexpr int kStatusSpheroid = 1;
constexpr int kStatusPrimeMeridian = 2;

struct Units {
    char horizontal_label[kNameSize];
    double horizontal_factor;
    char vertical_label[kNameSize];
    double vertical_factor;
};

struct Aoi {
    double x0, x1, y0, y1;
};

struct Datum {
    char name[kNameSize];
    double radius, eccentricity, metre_factor, prime_merid;
};

struct Projection {
    char name[kNameSize];
    double metre_factor;
};

/* The affine constants of a "field" projection; the y factors are derived. */
struct Affine {
    double map_x_offset, map_x_xfact, map_x_yfact, map_y_offset, map_y_xfact, map_y_yfact;
};

struct CoordSys {
    int32_t references;
    int32_t locked;
    int32_t reserved;
    int32_t coord_type;
    Units units;
    double resolution;
    Aoi aoi;
    void *trans_cache;
    Datum datum;
    char prime_merid_text[kNameSize];
    Projection projection;
    int32_t base;
    void *block;
    char *usgs_text;
    int32_t status;
    char unit_word[kNameSize]; /* the horizontal word asked for, for sharing */
    char vertical_word[kNameSize];
};

struct Base {
    char name[40];
    gdt_struct_desc *description;
    gdt_proj_init_fn init;
    gdt_proj_conv_fn forward;
    gdt_proj_conv_fn backward;
    int mode;
    int block_size;
    int radius_offset;
    int eccentricity_offset;
    int long_cut_offset;
};

/* The base table and the systems; ids and indices are checked by the callers. */
Base *base_at(int index);
int base_count();
int find_base(const char *name);
CoordSys *system_at(int id);

/* The "field_" base over base `real` (made on first use): the real base's
 * conversions followed by an affine map of the plane. Its index, or -1. */
int field_base(int real);
/* Stores the affine constants and the real base in a field base's block;
 * returns where the real base's block begins in it. */
int field_fill(void *block, int real, const Affine &affine);

/* Calls the install function of every member, in the family's order: 0 or -1. */
int base_install();
/* Empties the base table. */
void base_reset();

/* Starts the engine on first use: tables opened, descriptions built, bases
 * installed. 0 or -1. */
int engine_start();
/* Forgets every system, transformation and base, and closes the tables, so
 * that a test can start again with other tables. */
void engine_reset();
/* The fixed descriptions of a system's entities. */
const gdt_struct_desc *units_description();
const gdt_struct_desc *aoi_description();
const gdt_struct_desc *resolution_description();
const gdt_struct_desc *datum_description();
const gdt_struct_desc *projection_description();
const gdt_struct_desc *affine_description();

/* Transformations that name `id` are dropped with it. */
void drop_transforms_of(int id);

/* Reports one message: level 0 continues the chain, 3 ends it. */
void report(char cls, int level, const char *text);
void reportf(char cls, int level, const char *format, ...) VLD_PRINTF(3, 4);
/* The text of the last message reported. */
const char *last_text();

/* The table layer's state is global; this closes every slot and forgets the
 * directory, for tests that change GDT_DATA_PATH. */
void gdb_reset();
/* The radius of `datum` as its row of "datum_sp" holds it: 0 or -1. */
int gdb_datum_radius(const char *datum, double *radius);

/* Datum change of a prepared transformation. */
struct DatumChange {
    int mode;          /* 0 none, 1 Bursa-Wolf, 2 grid */
    gdt_bursa_wolf bw; /* mode 1 */
    int grid;          /* mode 2: handle of the grid set */
    int inverse;       /* mode 2: the row was found the other way round */
};
/* Chooses the change between two datums: 0 or -1 after a report. */
int load_datum_change(const char *source, const char *target, DatumChange &change);
int bw_gd_to_gd(const DatumChange &change, const gdt_spheroid &from, const gdt_spheroid &to,
                double lon, double lat, double h, double *olon, double *olat, double *oh);
int grid_gd_to_gd(const DatumChange &change, const gdt_spheroid &from, const gdt_spheroid &to,
                  double lon, double lat, double h, double *olon, double *olat, double *oh);
void close_datum_change(DatumChange &change);

/* Installs the coordinate engine behind the dataset conversions. */
void install_coord_engine();

}  // namespace gdt

#endif
