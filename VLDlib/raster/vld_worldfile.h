/*
 * vld_worldfile.h: world files, the six numbers that place a foreign image.
 *
 * A world file is a text beside an image holding an affine transform from
 * cell (column, row) to map coordinate: x = c * col + a * row + e and
 * y = b * col + d * row + f, taken at the centre of the top-left cell. Its
 * lines hold c, b, a, d, e, f in that order. This module reads and writes such
 * files, finds one beside an image by the usual naming conventions, and turns
 * a transform into the registration of a dataset header and back.
 *
 * A transform is usable (type 2) when it is a rotation with cell sizes and no
 * shear; only then can rotation, cell sizes and translation be taken out of
 * it. Functions return 0 or a row of VLD_errmsg, after VLD_setup_error.
 */
#ifndef VORLAN_VLD_WORLDFILE_H
#define VORLAN_VLD_WORLDFILE_H

#include <stdint.h>

#include "vld_core.h"
#include "vld_dshdr.h"

VLD_BEGIN_DECLS

/* The matrix terms a to d and the translations e, f; `reserved` is kept 0. */
typedef struct affine {
    double a, b, c, d;
    double e, f;
    int32_t reserved;
} affine;

enum { AFFINE_INVALID = 0, AFFINE_SHEARED = 1, AFFINE_USABLE = 2 };

/* 0 invalid, 1 contains shearing, 2 usable. */
VLD_API int VLN_get_transform_type(const affine *transform);
/* The transform of a rotation (radians) and cell sizes sx, sy, with the
 * translation (e, f); VLD_ERR_INTERNAL when the result is invalid. */
VLD_API int VLN_get_affine_transform(double sx, double sy, double rotation, double e, double f,
                                     affine *transform);
/* The transform of a raster header: its rotation and cell sizes, and the
 * coordinate of the centre of cell (0, 0) (degrees in an LL space). */
VLD_API int VLN_get_affine_transform_from_dshdr(const dshdr *record, affine *transform);
/* Reads a world file. Fewer than six numbers is VLD_ERR_INTERNAL, and the terms read
 * stay in `transform`; a file that can't be opened is VLD_ERR_MESSAGE. */
VLD_API int VLN_get_affine_transform_from_world_file(affine *transform, const char *path);

/* Looks for the world file of `image`, trying the names of its own extension
 * and of the translator's `extensions` (a list split at ';'). 0 and *path a
 * new string when one opens; otherwise 1, which isn't a failure. */
VLD_API int VLN_check_for_world_file(char **path, const char *image, const char *extensions);
/* Whether any extension of the list has a world-file convention. */
VLD_API int VLN_translator_supports_world_files(const char *extensions);
/* Takes rotation, cell sizes and registration of a raster header from a world
 * file. A raw space becomes EN, "WGS84", "LOCAL". */
VLD_API int VLN_add_world_file_params_to_dshdr(dshdr *record, const char *path);
/* Writes the transform over the image's world file, or, without one, beside
 * the image under its conventional name. An image type without a convention
 * writes nothing and returns 0. */
VLD_API int VLN_write_world_file(const affine *transform, const char *image,
                                 const char *extensions);
/* The world file of a translated dataset's data file. */
VLD_API int VLN_write_world_file_for_dshdr(const dshdr *record);

/* Terms of a usable transform: rotation in radians. VLD_ERR_INTERNAL for a transform
 * that is invalid or sheared. */
VLD_API int VLN_get_rotation(double *value, const affine *transform);
VLD_API int VLN_get_cellsize_x(double *value, const affine *transform);
VLD_API int VLN_get_cellsize_y(double *value, const affine *transform);
VLD_API int VLN_get_translation_x(double *value, const affine *transform);
VLD_API int VLN_get_translation_y(double *value, const affine *transform);
VLD_API int VLN_decompose_affine_transform(const affine *transform, double *rotation, double *sx,
                                           double *sy, double *tx, double *ty);

/* Whether world files are read with foreign images, and written when their
 * headers are saved. Process-wide; a value never set gives `fallback`. */
VLD_API int VLN_get_world_file_pref(int fallback);
VLD_API void VLN_set_world_file_pref(int value);
VLD_API int VLN_get_world_file_save_as_pref(int fallback);
VLD_API void VLN_set_world_file_save_as_pref(int value);

VLD_END_DECLS

#endif
