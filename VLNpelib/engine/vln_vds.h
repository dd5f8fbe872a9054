/*
 * vln_vds.h: virtual datasets, the way into the processing engine.
 *
 * A virtual dataset is an algorithm read line by line as if it were a raster.
 * An open compiles the algorithm into node trees for one output layout; each
 * read delivers the next line; a close throws the trees away. A handle can't
 * be rewound or reused, and is for one thread at a time; several handles may
 * run on several threads at once.
 *
 *     PE_initialise("myprog");                           once per process
 *     char *errmsg = NULL;
 *     Vds *vds = vds_open_alg_tods(alg, &errmsg, NULL, NULL);
 *     if (vds == NULL) { report errmsg; safe_free(errmsg); }
 *     rlseg *runs[NR_BANDS] = {0};                       starts all null
 *     while ((status = vds_read(vds, lines, runs, 0)) == 0) use the lines;
 *     if (status == 1) report vds_error_text(vds);
 *     vds_close(&vds);
 *
 * Each open takes the algorithm and the address of a text pointer, which it
 * sets to null on entry and, on failure, to a text that the caller frees with
 * safe_free; a failed open returns null and leaves nothing open.
 *
 * Reads return 0 (a line was delivered), -1 (no tree of that kind, or every
 * line has been delivered) or 1 (the read failed: vds_error_text gives why;
 * the handle can then only be closed). A run-list array passed to a read is a
 * loan both ways: on entry each non-null entry is the list the last read gave
 * and is freed; on return it holds the new list of each band, valid until the
 * next read or the close. It must start all null.
 */
#ifndef VORLAN_VLN_VDS_H
#define VORLAN_VLN_VDS_H

#include "vln_pe.h"

VLD_BEGIN_DECLS

/* ---------------------------------------------------------------- opens */

/* A window: one line of OutputWidth pixels per read, 32-bit pixels with the
 * colours at the given bit positions when the algorithm has Colour24Flag,
 * else 8-bit palette indices. */
VLD_API Vds *vds_open_alg_towin(algorithm *alg, char **errmsg, int red_shift, int green_shift,
                                int blue_shift, pe_progress_fn progress_fn, void *progress_arg);
/* The same with the height byte in bits 24 to 31 (red 16, green 8, blue 0). */
VLD_API Vds *vds_open_alg_rgbh(algorithm *alg, char **errmsg);
/* One line per output band in OutputType: every surface read as a dataset. */
VLD_API Vds *vds_open_alg_tods(algorithm *alg, char **errmsg, pe_progress_fn progress_fn,
                               void *progress_arg);
/* Twelve 8-bit lines per read: the colour planes, a mask and an overlay. */
VLD_API Vds *vds_open_alg_tobuffers(algorithm *alg, char **errmsg, pe_progress_fn progress_fn,
                                    void *progress_arg);
/* One packed-pixel line and its run table per surface. */
VLD_API Vds *vds_open_alg_toppbuffers(algorithm *alg, char **errmsg, pe_progress_fn progress_fn,
                                      void *progress_arg);
/* Per surface a line of 32-bit pixels and, with a Height layer, a line of
 * IEEE4ByteReal heights. Leaves ProcessVectors at MergeWithRaster. */
VLD_API Vds *vds_open_alg_ms_rgbh(algorithm *alg, char **errmsg);

/* A rectangle of a dataset whose header holds an algorithm; `bands` counted
 * from 0 (null: 0 to nr_bands - 1). The handle owns a private copy. */
VLD_API Vds *vds_vopen(dshdr *dsh, int first_line, int nr_lines, int first_cell, int nr_cells,
                       const int *bands, int nr_bands, char **errmsg);
/* The same with band numbers as texts counted from 1. Over a plain dataset
 * the handle holds only an open raster (`raster`), read through the raster
 * interface; vds_close closes it. */
VLD_API Vds *vds_open(dshdr *dsh, int first_line, int nr_lines, int first_cell, int nr_cells,
                      char **band_names, int nr_bands, char **errmsg);

/* ---------------------------------------------------------------- a band of lines */

/* Makes the reads of an open algorithm deliver lines `first_line` to
 * `first_line + nr_lines - 1` of its image and then end; each line is the
 * same, byte for byte, as a read from the top gives. Many handles over one
 * algorithm, each with its own band on its own thread, thus make the image
 * together. Before the first read only. 0, or VLD_ERR_VDS with the text
 * (also in vds_error_text). */
VLD_API int vds_set_line_range(Vds *vds, int first_line, int nr_lines);

/* ---------------------------------------------------------------- reads */

/* `lines`: one address per band of at least OutputWidth cells; `rlsegs` one
 * list head per band, or null; `which` 0 the raster tree, 1 the vector tree. */
VLD_API int vds_read(Vds *vds, void **lines, rlseg **rlsegs, int which);
VLD_API int vds_read_tobuffers(Vds *vds, void **lines);
/* `pp_lines` gets one run table per surface, which the caller frees. */
VLD_API int vds_read_toppbuffers(Vds *vds, void **lines, uint32_t **pp_lines);
/* `rlsegs` has two entries per surface: RGB at 2 * s, height at 2 * s + 1. */
VLD_API int vds_read_to_ms_rgbh(Vds *vds, void **rgb_lines, void **height_lines, rlseg **rlsegs);
/* The lines the buffer layouts fill: twelve bytes per surface, 1 where the
 * line is needed. Returns the number of surfaces. */
VLD_API int vds_buffers_needed(Vds *vds, uint8_t *needs);

/* Closes a handle and nulls the caller's pointer; a null handle is ignored. */
VLD_API void vds_close(Vds **vds);
/* A file that vds_close removes. */
VLD_API void register_file_to_delete_on_close(pe_context *context, const char *path);

/* ---------------------------------------------------------------- histograms */

/* The histograms that the transforms of an open gathered (with CalcHistograms
 * on), as a null-terminated array; array and histograms stay the handle's and
 * go with vds_close. Null for a null handle. Each histogram's id is that of
 * its transform. */
VLD_API histogram **vds_get_histograms(Vds *vds);
/* The same as copies that the caller owns, freed by vds_free_histograms. */
VLD_API histogram **vds_get_histograms_copy(Vds *vds);
VLD_API void vds_free_histograms(histogram **list);

/* ---------------------------------------------------------------- 3D views */

typedef void *(*vds_open_3d_fn)(algorithm *alg, char **errmsg, pe_progress_fn progress_fn,
                                void *progress_arg);
typedef int (*vds_read_3d_fn)(void *handle, char **text, void **lines, rlseg **rlsegs, int which);
typedef void (*vds_close_3d_fn)(void *handle);
/* Installs a renderer of 3D views; before any thread opens. A null open
 * function means there is none. */
VLD_API void pe_init_3d_func_ptrs(vds_open_3d_fn open_fn, vds_read_3d_fn read_fn,
                                  vds_close_3d_fn close_fn);
/* The output size of a 3D view of `dsh`: 0, or 12 when a corner has no cell. */
VLD_API int vds_calc_3d_alg_output_size(const algorithm *alg, const dshdr *dsh, double *width,
                                        double *height);
/* Prunes and adjusts a document before a 3D view. */
VLD_API void vds_setup_alg_for_de(algorithm *alg);

/* ---------------------------------------------------------------- fitting a document */

/* Fits a document to a new output size and resolution before an open: 1 if
 * the output size or the page changed, else 0. */
VLD_API int vln_rethink_alg(algorithm *alg, int width, int height, double dpi_x, double dpi_y);

/* pe_mutex (vld_core.h) is for clients that want to serialise whole engine
 * calls; the engine itself does not take it. */

VLD_END_DECLS

#endif
