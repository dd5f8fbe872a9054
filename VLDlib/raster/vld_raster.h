/*
 * vld_raster.h: reading and writing the cells of a raster dataset.
 *
 * A native dataset is a data file beside its header, band interleaved by
 * line: for each line in turn, each band's cells of that line. Three older
 * layouts (IFUT, AImage, GeoScanMk2) are read by their own readers, and files
 * in either byte order are read into the host's. A caller opens a window of
 * lines, cells and bands on a rasterfile record it owns, and reads lines
 * through the read function chosen at opening. Beside the line reader stand a
 * point reader with a small cache, a mapped access for random reads without a
 * copy, an asynchronous reader on a worker thread, and the size and free-space
 * helpers that writers consult.
 *
 * Functions return 0 or a row of VLD_errmsg; a failed open leaves the handle
 * closed, and ec_raster may still be called on it.
 */
#ifndef VORLAN_VLD_RASTER_H
#define VORLAN_VLD_RASTER_H

#include <stddef.h>
#include <stdint.h>

#include "vld_core.h"
#include "vld_dshdr.h"

VLD_BEGIN_DECLS

struct translator;
struct Vds;
struct rasterfile;

/* A line reader: `buffers` holds one pointer per band of the window. */
typedef int (*raster_read_func)(struct rasterfile *handle, void **buffers, int first_line,
                                int nr_lines);
/* A translator's reader that also hands out the valid runs of each line. */
typedef int (*raster_read_masked_func)(struct rasterfile *handle, void **buffers, void **masks,
                                       int first_line, int nr_lines);
/* Swaps the bytes of `nr_words` 32-bit words in place. */
typedef void (*raster_word_swap_func)(void *words, int nr_words);

enum { RASTER_BAND_LIST = 1, RASTER_BAND_RANGE = 2 };

typedef struct rasterfile {
    int32_t fd;       /* -1 when closed */
    const char *name; /* the data file; borrowed from the header */
    raster_read_func read;
    raster_read_masked_func read_masked;
    int32_t has_mask;
    int32_t first_line, nr_lines;
    int32_t first_cell, nr_cells;
    int32_t bytes_per_request; /* cell_bytes * nr_cells */
    int32_t band_mode;         /* RASTER_BAND_LIST or RASTER_BAND_RANGE */
    int32_t nr_bands;
    int32_t *bands; /* zero-based band numbers; owned */
    int32_t cell_bytes;
    unsigned char fill[8]; /* what a read outside the window gives */
    int32_t file_bands;
    int32_t file_cells;
    int32_t line_bytes;              /* one file line, all bands */
    int32_t band_line_bytes;         /* one band within a file line */
    int32_t data_offset;             /* bytes before the first line */
    int32_t swap;                    /* the file's byte order isn't the host's */
    void *buffer;                    /* owned */
    void *point_cache;               /* owned */
    raster_word_swap_func word_swap; /* IFUT only */
    struct translator *translator;
    void *translator_data;
    struct dshdr *dshdr; /* borrowed */
    struct Vds *vds;
    int32_t no_direct_point;
} rasterfile;

/* ---------------------------------------------------------------- opening and closing */

/* Opens a window. `band_strings` hold one-based band numbers as text: one per
 * band in list mode (ascending), only the first in range mode. */
VLD_API int eo_raster(rasterfile *handle, dshdr *header, int first_line, int nr_lines,
                      int first_cell, int nr_cells, int band_mode, int nr_bands,
                      char **band_strings);
/* Opens the whole image, all bands, in list mode. */
VLD_API int eo_raster_point(rasterfile *handle, dshdr *header);
/* Opens for writing, all bands and cells: the lines go to a new temporary file
 * beside the data file, which replaces it at ec_raster when every write went
 * well (else the old file stays, and ec_raster gives the failure's row). */
VLD_API int eow_raster(rasterfile *handle, dshdr *header);
VLD_API int ec_raster(rasterfile *handle);
/* Frees the point cache, then ec_raster. */
VLD_API int ec_raster_point(rasterfile *handle);

/* The line readers that eo_raster chooses among. */
VLD_API int rd_vld_range(rasterfile *handle, void **buffers, int first_line, int nr_lines);
VLD_API int rd_vld_range_reverse(rasterfile *handle, void **buffers, int first_line, int nr_lines);
VLD_API int rd_vld_list(rasterfile *handle, void **buffers, int first_line, int nr_lines);
VLD_API int rd_vld_list_reverse(rasterfile *handle, void **buffers, int first_line, int nr_lines);

/* ---------------------------------------------------------------- writing */

/* Writes `nr_lines` lines, every band, at the current position. */
VLD_API int ep_raster(rasterfile *handle, void **buffers, int nr_lines);
/* Writes one band of the following lines, skipping the other bands. */
VLD_API int ep_raster_1band(rasterfile *handle, void *buffer, int nr_lines, int band);
/* Writes one line of one band at (line * bands + band) * cells * cell bytes;
 * kept: no header offset is added to this position. */
VLD_API int ep_raster_1band_1line(rasterfile *handle, void **buffer, int band, int line);
/* Seeks to the absolute position made of two 32-bit halves, then ep_raster. */
VLD_API int ep_seek_raster(rasterfile *handle, void **buffers, int nr_lines, int32_t position_low,
                           int32_t position_high);

/* ---------------------------------------------------------------- points */

/* One cell of every band of the window; `values` holds one pointer per band.
 * A cell outside the window gives `fill` (and is null). */
VLD_API int eg_raster_point(rasterfile *handle, void **values, int line, int cell);
VLD_API int eg_raster_point_ex(rasterfile *handle, void **values, int *is_null, int line, int cell);
/* The same through a cache of the 64 most recently read points. A cell
 * outside the image gives the null value in the cell type, without a read. */
VLD_API int eg_raster_point_cache(rasterfile *handle, void **values, int line, int cell);
VLD_API int eg_raster_point_cache_ex(rasterfile *handle, void **values, int *is_null, int line,
                                     int cell);

/* ---------------------------------------------------------------- mapped access */

enum {
    MM_ACCESS_IN_PLACE = 0,
    MM_ACCESS_MISALIGNED = 1,
    MM_ACCESS_SWAP = 2,
    MM_ACCESS_CONVERT = 3, /* plus one of the above */
};

typedef struct VLD_mmraster {
    int32_t cell_type; /* the type asked for */
    int32_t cell_bytes;
    int32_t first_cell, nr_cells;
    int32_t *bands; /* owned */
    int32_t nr_bands;
    void *view;
    uint32_t view_bytes;
    int32_t file_handle, map_handle; /* -1 when closed */
    char *name;                      /* owned */
    unsigned char *data;             /* view plus the header offset */
    int32_t band_line_bytes;
    int32_t line_bytes;
    int32_t file_cell_type, file_cell_bytes;
    int32_t access;          /* 0 to 5, MM_ACCESS_ */
    void *conversion_buffer; /* owned; access 4 and 5 */
    int64_t view_offset;
    uint32_t view_size;
} VLD_mmraster;

/* Maps the whole data file read-only. `bands` may be null (0 to nr_bands - 1);
 * a cell type of 0 asks for no conversion. */
VLD_API int VLD_raster_mmopen(VLD_mmraster **handle, dshdr *header, int first_cell, int nr_cells,
                              const int *bands, int nr_bands, int cell_type);
/* Maps for reading and writing, all bands and cells; the header offset must be
 * a multiple of the cell size. */
VLD_API int VLD_raster_mmopen_rw(VLD_mmraster **handle, dshdr *header);
/* As VLD_raster_mmopen for files of any size: a file that doesn't fit in one
 * view gets a partial view from its start, moved by VLD_raster_mmremap. */
VLD_API int VLD_warp_raster_mmopen(VLD_mmraster **handle, dshdr *header, int first_cell,
                                   int nr_cells, const int *bands, int nr_bands, int cell_type);
/* Maps `size` bytes from the offset made of two halves (rounded down to the
 * page size). */
VLD_API int VLD_raster_mmremap(VLD_mmraster *handle, dshdr *header, int32_t offset_low,
                               int32_t offset_high, uint32_t size);
VLD_API int VLD_raster_mmclose(VLD_mmraster **handle);
/* A line buffer of nr_cells * cell_bytes when the cells can't be used in
 * place, else null; and its counterparts, one buffer per band. */
VLD_API int VLD_raster_mmsetup_buf(VLD_mmraster *handle, void **buffer);
VLD_API int VLD_raster_mmfree_buf(VLD_mmraster *handle, void **buffer);
VLD_API int VLD_raster_mmsetup_buf_array(VLD_mmraster *handle, void ***buffers);
VLD_API int VLD_raster_mmfree_buf_array(VLD_mmraster *handle, void ***buffers);
/* The window's cells of one line of band `band_index` (an index into the
 * handle's bands), in the type asked for: in place in the view when the access
 * allows it, else converted into `buffer` (from VLD_raster_mmsetup_buf).
 * Null, with VLD_ERR_LINES_OUTSIDE_DATASET, when the cells aren't all inside the view, and with
 * VLD_ERR_CANNOT_READ_FILE when the file has shrunk below them since the view was mapped. */
VLD_API const void *VLD_raster_mmget_cells(VLD_mmraster *handle, int line, int band_index,
                                           void *buffer);

/* A mapping of a dataset's data file, as the statistics and copy paths use. */
typedef struct VLD_mmdataset {
    int32_t file_handle, map_handle;
    int64_t offset;    /* of the view in the file */
    int64_t length;    /* of the view */
    int64_t file_size; /* of the data file */
    void *view;
    int32_t header_offset;
    int32_t band_line_bytes;
    int32_t line_bytes;
    int32_t cell_bytes;
} VLD_mmdataset;

/* `mode` is that of vln_fmap ("" reads). On failure null, with a new text in
 * *message that the caller frees. */
VLD_API VLD_mmdataset *mmap_dataset(dshdr *header, char **message, const char *mode);
VLD_API VLD_mmdataset *mmap_dataset_len(dshdr *header, char **message, const char *mode,
                                        int64_t offset, int64_t length);
/* Maps the first byte only: a cheap test that the file can be mapped. */
VLD_API VLD_mmdataset *mmap_dataset_1_byte(dshdr *header, char **message, const char *mode);
/* Maps lines `start` to `end` (exclusive), from `offset` bytes into the first
 * of them, but no more than `limit` bytes (0: no limit). */
VLD_API VLD_mmdataset *mmap_dataset_with_limits(dshdr *header, char **message, const char *mode,
                                                int64_t offset, int start, int end, int64_t limit);
/* Unmaps and frees; 1, or 0 with a new text in *message. */
VLD_API int munmap_dataset(VLD_mmdataset *record, char **message);
/* Bytes per map when `n` maps are open at once. */
VLD_API int64_t mmap_calculate_limit(int n);

/* ---------------------------------------------------------------- sizes and disk space */

VLD_API int64_t VLD_filesize_in_bytes64(const char *path); /* -1 on failure */
VLD_API int VLD_filesize_in_bytes(const char *path);       /* -1 on failure or above 2 GiB */
/* In blocks of the file system that holds it; -1 on failure. */
VLD_API int VLD_filesize_in_blocks(const char *path);
/* 1 when the file system of the header can take the dataset (counting the
 * present files as free), else 0 with a new text in *message. */
VLD_API int enough_diskspace_for_dataset(dshdr *header, char **message);

/* ---------------------------------------------------------------- asynchronous reading */

/* Nonzero when the library may start threads of its own. */
extern VLD_API int vln_reent_lib;

typedef struct vln_aread vln_aread;

/* Opens `path` for reads on a worker thread; null when it can't be opened or
 * vln_reent_lib is 0. */
VLD_API vln_aread *vln_aread_open(const char *path);
/* Queues a read of `length` bytes at `position`; its ticket (from 1), or -1. */
VLD_API int vln_aread_read(vln_aread *handle, void *buffer, int64_t position, int length);
/* Waits for a ticket; the bytes read, or -1 (unknown ticket or failed read). */
VLD_API int vln_aread_wait(vln_aread *handle, int ticket);
VLD_API int vln_aread_close(vln_aread *handle);

VLD_END_DECLS

#endif
