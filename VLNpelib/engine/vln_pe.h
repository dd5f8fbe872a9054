/*
 * vln_pe.h: the processing engine's records.
 *
 * An algorithm is compiled into a tree of function nodes, one tree per open
 * handle, which a caller pulls one output line at a time. A node is a plain
 * record with five hooks (init, post_init, start, read, close) that its node
 * kind stores; lines pass from a child to its parent through the bufinfo of
 * the parent's fninput, with the valid cells of each line as a run list
 * (rlseg). All memory of a tree comes from the handle's pool and goes when the
 * handle closes; a failure anywhere in a tree leaves through the handle's
 * failure target, never by a return code.
 *
 * Planning records (pe_stream, pe_streamgroup) say which streams take part
 * and how; a dsinput is the one shared reader of one dataset, whose lines all
 * the streams that use the dataset take from one ring.
 *
 * The records are plain C, with their fields in their documented order; the
 * fields that only the engine's C++ side uses are opaque pointers at the end.
 */
#ifndef VORLAN_VLN_PE_H
#define VORLAN_VLN_PE_H

#include <stdint.h>

#include "vld_alg.h"
#include "vld_core.h"
#include "vld_dshdr.h"
#include "vld_raster.h"
#include "vld_rlseg.h"
#include "vln_formula.h"

VLD_BEGIN_DECLS

/* ---------------------------------------------------------------- node kinds */

typedef enum pe_fn_type {
    FN_ADDNULL = 0,
    FN_ADJUSTRLSEG = 1,
    FN_APPENDNULLS = 2,
    FN_BILINEAR_LINE_SUPERSAMPLE = 3,
    FN_BILINEAR_SUPERSAMPLE = 4,
    FN_CCOUNT = 5,
    FN_CDMERGE = 6,
    FN_CELLX = 7,
    FN_CELLY = 8,
    FN_CLIP = 9,
    FN_CMERGE = 10,
    FN_DGROUPSTREAMS = 11,
    FN_FORMULA = 12,
    FN_GENNULLS = 13,
    FN_GETINPUT = 14,
    FN_HEIGHT8 = 15,
    FN_HSITORGB = 16,
    FN_INPUT = 17,
    FN_INREGION = 18,
    FN_KERNEL = 19,
    FN_LSUBSAMPLE = 20,
    FN_LSUPERSAMPLE = 21,
    FN_MERGESTREAMS = 22,
    FN_NULLCONV = 23,
    FN_NULLCELL = 24,
    FN_NULLLINE = 25,
    FN_OPTIM = 26,
    FN_PITO8 = 27,
    FN_PIXELX = 28,
    FN_PIXELY = 29,
    FN_PSEUDOTORGB = 30,
    FN_PSMERGE = 31,
    FN_RANODE = 32,
    FN_READ = 33,
    FN_RESCOLOUR = 34,
    FN_RGB24TO8 = 35,
    FN_RGB24FINAL = 36,
    FN_RGBITORGB = 37,
    FN_RGBTORGB = 38,
    FN_RLSEG = 39,
    FN_RTSHADE = 40,
    FN_RTSHADE16 = 41,
    FN_SHADE = 42,
    FN_SSYNC = 43,
    FN_STIPPLE = 44,
    FN_SUBSAMPLE = 45,
    FN_SUBSAMPLE2 = 46,
    FN_SUPERSAMPLE = 47,
    FN_SYNC = 48,
    FN_TCONV = 49,
    FN_OPTIM_TCONV = 50,
    FN_TOBUFFERS = 51,
    FN_TOMSRGBH = 52,
    FN_TOPPBUFFERS = 53,
    FN_TRANSFORM = 54,
    FN_TRANSPARENCY = 55,
    FN_VREADTOPP = 56,
    FN_VREADTOMSRGBH = 57,
    FN_VREAD = 58,
    FN_NR_TYPES = 59
} pe_fn_type;

/* The name of a node kind; "unknown function node type" for any other value. */
VLD_API const char *pe_fn_string(int type);

/* ---------------------------------------------------------------- lines and connections */

/* One line of one band and its valid runs (null: no valid cell). */
typedef struct linebuf {
    void *data;
    rlseg *rlsegs;
} linebuf;

/* Who owns what across a connection: 1 the array only (records and lines are
 * the parent's), 2 array and records (the parent points data at its own
 * memory before each pull), 3 array, records and one line per band. */
enum { PE_ALLOC_SHARED = 1, PE_ALLOC_RECORDS = 2, PE_ALLOC_LINES = 3 };

typedef struct bufinfo {
    int32_t nr_buffers; /* bands side by side */
    linebuf **buffers;  /* one per band */
    int32_t nr_cells;
    int32_t cell_type; /* 0 until init has run, unless known */
    int32_t cell_size;
    int32_t line_size;
    int32_t alloc_level; /* PE_ALLOC_ */
} bufinfo;

struct funcnode;

typedef struct fninput {
    struct funcnode *node; /* the child; null at FN_INPUT */
    bufinfo *buffers;
} fninput;

typedef void (*pe_hook)(struct funcnode *node);

typedef struct funcnode {
    int32_t type; /* FN_ */
    pe_hook init;
    pe_hook post_init;
    pe_hook start;
    pe_hook read;
    pe_hook close;
    int32_t nr_inputs;
    fninput *inputs;
    bufinfo *output;    /* the parent's fninput buffers; null at a root */
    void *private_data; /* the node kind's record; its first field is the pe_context */
    struct funcnode *parent;
    void *pp_output; /* packed-pixel run tables, copied down by the root */
} funcnode;

/* ---------------------------------------------------------------- planning */

struct pe_context;
struct dsinput;

typedef struct pe_input {
    streaminput *streaminput;
    char *band;    /* the band the input reads, e.g. "1"; pool-owned */
    int32_t rows;  /* 1 plus the sum of rows - 1 of the input's kernels */
    int32_t delay; /* lines to read ahead of the longest input */
    int32_t cols;  /* the same across */
} pe_input;

/* Stream type of a band of a DATASET surface. */
enum { ST_PE_DatasetBand = 99 };

typedef struct pe_stream {
    struct pe_stream *next;
    surface *surface;
    stream *stream;
    int32_t type;
    char *name;
    ExprNode *formula; /* null when the formula is one plain input */
    uint8_t no_dataset;
    uint8_t null_aware;
    uint8_t do_static_shade;
    uint8_t do_rtshade;
    uint8_t do_rtshade16;
    uint8_t full_res;
    uint8_t rts_after_zoom;
    uint8_t bilinear_lines;
    uint8_t bilinear_cells;
    int32_t nr_inputs;
    pe_input *inputs;
    int32_t max_input_rows;
    struct dsinput *dsinput;
    int32_t proc_cells, proc_lines;
    int32_t zoom_cells, zoom_lines;
    int32_t half_rows, half_cols;
    int32_t null_top, null_bottom;
    int32_t null_left, null_right;
    int32_t margin_top, margin_bottom, margin_left, margin_right;
    int32_t total_rows, total_cols;
    int32_t input_null_top, input_null_bottom;
    int32_t max_input_cols;
    int32_t surface_number; /* the stream's true surface, before DATASET surfaces fold to 0 */
} pe_stream;

typedef struct pe_streamgroup {
    struct pe_streamgroup *next;
    int32_t surface_index;
    int32_t type;
    char *name;
    int32_t count;
    pe_stream *streams;
} pe_streamgroup;

/* ---------------------------------------------------------------- dataset inputs */

typedef struct dsi_client {
    struct dsi_client *next;
    char *band; /* band number text, from 1 */
    int32_t band_index;
    int32_t read_pos;
    linebuf *output; /* the line the client was last given, for the copy-free path */
} dsi_client;

typedef struct dsinput {
    struct dsinput *next;
    uint8_t is_virtual;
    uint8_t no_dataset;
    uint8_t full_res;
    char *name;
    dshdr *dsh;
    dscoord top_left, bottom_right;
    int32_t cell_type, cell_size;
    int32_t nr_bands;
    double null_value;
    uint8_t in_view;
    int32_t out_first_cell, out_first_line, out_nr_cells, out_nr_lines;
    int32_t proc_cells, proc_lines;
    double inv_step_x, inv_step_y;
    double super_step_cells, super_step_out_cells;
    double super_step_lines, super_step_out_lines;
    double super_frac_x, super_frac_y;
    int32_t read_cells, read_lines;
    int32_t first_line, nr_lines, first_cell, nr_cells;
    int32_t margin_top, margin_bottom, margin_left, margin_right;
    double sub_step_x, sub_step_y;
    dsi_client *clients;
    uint8_t needs_rlsegs;
    funcnode *root;
    int32_t nr_read_bands;
    int32_t *read_bands;
    int32_t ring_lines;
    linebuf **ring; /* [band][line] */
    int32_t ring_write;
    int32_t line_bytes;
    int32_t next_line;
    struct Vds *raster;
    int32_t nr_clients;
    int32_t clients_done;  /* clients that have taken every line */
    int32_t nr_file_reads; /* lines fetched from the reader, for inspection */
} dsinput;

/* ---------------------------------------------------------------- the handle's state */

typedef void (*pe_progress_fn)(void *arg, const char *text);

#define PE_ERROR_TEXT_SIZE 1024

typedef struct pe_context {
    struct Vds *vds;
    algorithm *alg;
    pe_progress_fn progress_fn;
    void *progress_arg;
    uint8_t keep_height, to_buffers, to_ppbuffers, to_ms_rgbh;
    int32_t nr_lines, nr_cells;
    int32_t *surface_modes;
    int32_t cell_type;
    dshdr *image_dsh;
    pe_stream *streams;
    int32_t nr_surfaces;
    int32_t *group_counts;
    pe_streamgroup **groups;
    pe_streamgroup **height_groups;
    int32_t *class_counts;
    pe_streamgroup **class_groups;
    int32_t *classdisp_counts;
    pe_streamgroup **classdisp_groups;
    int32_t *link_counts;
    pe_streamgroup **link_groups;
    int32_t nr_errors;
    char error_text[PE_ERROR_TEXT_SIZE + 1];
    funcnode *raster_root, *vector_root;
    dsinput *dsinputs;
    void *jump_target; /* the failure target's identity; see the engine's internals */
    int32_t aborted;
    void *mem_list, *extra_mem_list;
    void *dcomp_state;
    rlseg_pool rlsegs; /* the free list and the in-use list of run records */
    int32_t nr_delete_files;
    char **delete_files;
    uint8_t is_3d;
    void *handle_3d;
    /* pool accounting, for inspection */
    int64_t pool_bytes, pool_peak_bytes;
    int64_t pool_allocations;
} pe_context;

/* ---------------------------------------------------------------- the virtual dataset handle */

typedef struct Vds {
    algorithm *algorithm;
    int32_t owns_algorithm;
    char *error_text;
    pe_context *context;
    int32_t red_shift, green_shift, blue_shift, height_shift;
    rasterfile *raster;
    /* the mapped form */
    struct Vds *inner_vds;
    int32_t mode; /* 0 direct, 1 resampled, 2 warped */
    int32_t next_line;
    int32_t first_line, nr_lines, first_cell, nr_cells;
    void **lines;
    int32_t *bands;
    int32_t nr_bands;
    void *rlseg_info;
    dshdr *dsh;
    int32_t out_type, file_type;
    double line_step, cell_step;
    int32_t src_first_line, src_nr_lines, src_first_cell, src_nr_cells;
    void **conv_lines;
} Vds;

/* ---------------------------------------------------------------- the pool */

/* A zero-filled block of the handle's pool; never null. */
VLD_API void *pe_malloc(pe_context *pe, int64_t size);
VLD_API void *pe_malloc_raw(pe_context *pe, int64_t size);
/* Gives a block from the ordinary allocator to the pool. */
VLD_API void pe_addmem(pe_context *pe, void *block);
VLD_API char *pe_strsave(pe_context *pe, const char *text);
/* Frees one block of the pool; a block that isn't in it is left alone. */
VLD_API void pe_free(pe_context *pe, void *block);
VLD_API void pe_free_all(pe_context *pe);

/* ---------------------------------------------------------------- the engine */

/* Starts the engine once per process: 0, or error 28 for a missing variable. */
VLD_API int PE_initialise(const char *program_name);
/* Writes a tree to the library's standard error stream. */
VLD_API void dump_functree(funcnode *node);

/* For nodes, user code and callbacks inside a read; none returns. */
VLD_API void vds_processing_error(pe_context *context, const char *format, ...)
    VLD_PRINTF(2, 3) VLD_NORETURN;
VLD_API void vds_processing_system_error(pe_context *context, const char *format, ...)
    VLD_PRINTF(2, 3) VLD_NORETURN;
VLD_API void vds_abort_read(pe_context *context) VLD_NORETURN;
VLD_API char *vds_error_text(Vds *vds);

/* ---------------------------------------------------------------- writing a dataset */

/* The header of the dataset that a handle opened for a dataset writes: the
 * window's cells, their size and registration, a band per line of a read
 * (named by its group, "Classified", "Vector"), the regions of the inputs. A
 * mapped handle describes the handle inside it. Returns 1 with a new header
 * in *dsh, or 0 with a new text in *errmsg. */
VLD_API int PE_setup_output_dsh(Vds *vds, dshdr **dsh, char **errmsg);
/* Merges into a raster header the regions of the raster datasets that the
 * algorithm's layers read (moved onto the header's grid; a virtual dataset
 * without regions of its own gives those of its algorithm), a new "All", and
 * a class region per Classification layer. 0 or an error code. */
VLD_API int VLD_setup_dsh_ri_from_alg(dshdr *dsh, algorithm *alg);

/* ---------------------------------------------------------------- mapped reading */

/* Opens a rectangle of a dataset for reading in `out_type`; 0 or an error
 * code, with *handle null on failure. `bands` are counted from 0. */
VLD_API int vds_mmopen(Vds **handle, dshdr *dsh, int first_line, int nr_lines, int first_cell,
                       int nr_cells, const int *bands, int nr_bands, int out_type);
/* One line of the rectangle, counted from its first line. A null entry of
 * `lines` gets a line that the handle owns; `rlsegs` may be null, else it gets
 * the valid runs of each band, lists that stay the handle's until its next
 * read or close. `flags`: 2 bilinear, 4 fast position search. */
VLD_API int vds_mmread(Vds *handle, void **lines, rlseg **rlsegs, int line, int flags);
VLD_API int vds_mmclose(Vds **handle);

VLD_END_DECLS

#endif
