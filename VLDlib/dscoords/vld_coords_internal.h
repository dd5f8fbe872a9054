/*
 * vld_coords_internal.h: the seam between dataset coordinates and the
 * coordinate engine.
 *
 * The engine (datums, projections, transformations) lives in the coordinate
 * module, which stands above this one; so the conversions here reach it through
 * a table of entry points that the coordinate module installs with
 * set_coord_engine. While no table is installed, every conversion that needs
 * another datum or projection fails with VLD_ERR_GEODETIC_TRANSFORM, and unit sizes count as
 * metres. The coordinate module (and the tests) include this header.
 *
 * Engine ids are kept in two caches, both guarded by VLN_GLOBAL_GDT_MUTEX like
 * the engine itself: the engine has one current source and target, so choosing
 * them, the mode, and transforming form one critical section.
 */
#ifndef VORLAN_VLD_COORDS_INTERNAL_H
#define VORLAN_VLD_COORDS_INTERNAL_H

#include <cstdint>
#include <string>

#include "vld_coords.h"
#include "vln_guard_internal.h"

namespace vld {

/* The engine's entry points, as the coordinate module exports them. */
struct CoordEngine {
    int (*crelock_coord_sys)(const char *datum, const char *projection, const char *units);
    int (*delete_coord_sys)(int *id);
    int (*set_source)(int *id);
    int (*set_target)(int *id);
    int (*mod_trans_mode)(int *mode);
    int (*transform)(double *x_in, double *y_in, double *z_in, double *x_out, double *y_out,
                     double *z_out);
    int (*inq_coord_sys)(int *id, const char *entity, const char *attribute, const char *type,
                         void *out, int out_size);
    int (*install_error)(void (*handler)(const char *message));
    /* The radius of the datum's ellipsoid, in metres, as its row of the datum
     * table holds it. 0 or a failure. */
    int (*datum_radius)(const char *datum, double *radius);
};

/* Installs the engine (null removes it). The caches are flushed first with the
 * engine that made their ids. */
void set_coord_engine(const CoordEngine *engine);
/* The installed engine, or null. */
const CoordEngine *coord_engine();

/* The id of the system (datum, projection, units), from the space cache. A
 * system the engine refused is cached as it came: zero or negative. Call with
 * VLN_GLOBAL_GDT_MUTEX held and an engine installed. */
int cached_coord_sys(const char *datum, const char *projection, const char *units);
/* The id of (datum, "GEODETIC", "radians"), from the one-entry geodetic cache. */
int cached_geodetic_sys(const char *datum);
/* The radius of `datum`, kept with the datum's name until another datum is
 * asked for. 0 or VLD_ERR_GEODETIC_TRANSFORM. */
int cached_datum_radius(const char *datum, double &radius);
/* Deletes every cached system. */
void flush_coord_caches();
/* What the space cache holds, for tests: the number of entries in use, and
 * whether (datum, projection, units) is one of them. */
int coord_cache_size();
bool coord_cache_holds(const char *datum, const char *projection, const char *units);

/* Carries one point from the system `source` to `target` through the engine,
 * under the lock; a NaN z goes in as 0 and comes out NaN. 0 or VLD_ERR_GEODETIC_TRANSFORM. */
int engine_pass(int source, int target, const dscoord &in, dscoord &out);

/* The geometry of a dataset that the cell formulas use: cell size (0 counts as
 * 1), registration cell and coordinate; a vector dataset has cell size 1 and
 * its top-left corner at cell (0, 0). VLD_ERR_INCOMPATIBLE_COORDSYS for another kind of dataset. */
struct CellGeometry {
    double xd, yd;
    double rx, ry;
    dscoord reg;
};
int cell_geometry(const dshdr *dsh, CellGeometry &g);
/* Sets the registration coordinate of a raster, or the top-left of a vector. */
void set_registration(dshdr *dsh, const dscoord &reg);

/* Case-insensitive equality of two words; two nulls are equal. */
bool same_word(const char *a, const char *b);

/* A coordinate space that owns copies of its strings; used for the working
 * copies (typed EN, or LL) that conversions make of a caller's space. */
struct SpaceCopy {
    coordspace cs{};
    explicit SpaceCopy(const coordspace *from, int type);
    ~SpaceCopy();
    SpaceCopy(const SpaceCopy &) = delete;
    SpaceCopy &operator=(const SpaceCopy &) = delete;
};

/* What fitting a map window to its output size reads and writes of an
 * algorithm. The algorithm document stands above this module, so its
 * adjust_for_aspect fills one of these from the record, calls aspect_fit and
 * stores the results back. */
struct AspectFrame {
    const coordspace *space;       /* CoordinateSpace */
    dscoord top_left;              /* TopLeftCorner */
    dscoord bottom_right;          /* BottomRightCorner */
    int32_t output_width;          /* OutputWidth */
    int32_t output_height;         /* OutputHeight */
    bool planimetric;              /* ViewMode is Planimetric2D */
    bool enforce_aspect;           /* EnforceAspect */
    bool dataset_surface;          /* the first surface is a DATASET one: sizes are cells */
    int32_t canvas_width;          /* out: CanvasWidth */
    int32_t canvas_height;         /* out: CanvasHeight */
    dscoord canvas_top_left;       /* in/out: CanvasTopLeft */
    dscoord canvas_bottom_right;   /* in/out: CanvasBottomRight */
    dscoord adjusted_bottom_right; /* out: AdjustedBottomRight */
};
/* Makes the canvas (the top-left part of the output) show the corners at one
 * scale across and down, and moves the adjusted far corner so that the image
 * fills the whole output at that scale. `dpi_x`, `dpi_y` are the output's dots
 * per inch. 0, VLD_ERR_ALG_CORRUPT for an empty output, or the failure of a conversion. */
int aspect_fit(AspectFrame &frame, double dpi_x, double dpi_y);

}  // namespace vld

#endif
