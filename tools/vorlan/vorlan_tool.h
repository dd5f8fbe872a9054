/*
 * vorlan_tool.h: what the subcommands of the `vorlan` program share.
 *
 * Each subcommand is one file with one entry, `vt_cmd_NAME(argc, argv)`, that
 * parses its own options (argv[0] is the subcommand's name) and returns the
 * program's exit status: VT_OK, VT_FAILED when the library or the system
 * refused, VT_USAGE for bad arguments, VT_INTERRUPTED after a signal.
 *
 * Outputs are written under temporary names beside their final ones and
 * renamed into place only when whole; a failure or a signal removes them.
 */
#ifndef VORLAN_TOOL_H
#define VORLAN_TOOL_H

#include <signal.h>
#include <stdio.h>
#include <sys/types.h>

#include "vld_alg.h"
#include "vld_core.h"
#include "vln_vds.h"

enum { VT_OK = 0, VT_FAILED = 1, VT_USAGE = 2, VT_INTERRUPTED = 130 };

/* One subcommand: its name, a line for the program's help, its usage text
 * (printed after a bad argument and by --help) and its entry. */
typedef struct vt_command {
    const char *name;
    const char *summary;
    const char *usage;
    int (*run)(int argc, char **argv);
} vt_command;

int vt_cmd_info(int argc, char **argv);
int vt_cmd_process(int argc, char **argv);
int vt_cmd_calc(int argc, char **argv);
int vt_cmd_stats(int argc, char **argv);
int vt_cmd_render(int argc, char **argv);
int vt_cmd_demo(int argc, char **argv);
int vt_cmd_cs(int argc, char **argv);

/* The command of a name, or null. */
const vt_command *vt_find_command(const char *name);

/* "vorlan SUB: <message>" on stderr, then SUB's usage; returns VT_USAGE. */
int vt_usage_error(const char *sub, const char *format, ...) VLD_PRINTF(2, 3);
/* "vorlan SUB: <message>" on stderr; returns VT_FAILED. */
int vt_fail(const char *sub, const char *format, ...) VLD_PRINTF(2, 3);
/* A text of the library as one line; returns VT_FAILED. */
int vt_fail_text(const char *sub, const char *text);
/* Why a read of `vds` failed: the handle's text, or else the text a failure
 * of the engine's own (a dataset that can't be opened) left in its context. */
const char *vt_read_error_text(Vds *vds);
/* The library's last error as one line; returns VT_FAILED. */
int vt_fail_library(const char *sub);
/* Prints SUB's usage on `out`. */
void vt_print_usage(const char *sub, FILE *out);

/* True when argv holds --help or -h before any "--". */
int vt_wants_help(int argc, char **argv);

/* The word of `value` in an enum table, or "?". */
const char *vt_word(const VLD_ENUM *table, int value);
/* A cell type by keyword (case-insensitive, e.g. "Unsigned16BitInteger")
 * or short name ("u8", "u16", "u32", "s8", "s16", "s32", "f32", "f64");
 * CT_None when unknown. */
int vt_parse_cell_type(const char *text);

/* ------------------------------------------------------------- interrupts */

/* Set by SIGINT and SIGTERM once vt_catch_signals has run. */
extern volatile sig_atomic_t vt_interrupted;
void vt_catch_signals(void);

/* ------------------------------------------------------------- outputs */

/* A file written under a temporary name in its final folder. */
typedef struct vt_tempfile {
    char *final_path;
    char *temp_path;
} vt_tempfile;

/* Chooses a temporary name beside `final_path` ending in `suffix` (which may
 * be empty); creates nothing. 0, or -1 after saying why. */
int vt_tempfile_init(vt_tempfile *t, const char *sub, const char *final_path, const char *suffix);
/* Renames the temporary file over the final one. 0, or -1 after saying why. */
int vt_tempfile_commit(vt_tempfile *t, const char *sub);
/* Removes the temporary file if it exists, and frees the names. */
void vt_tempfile_discard(vt_tempfile *t);

/* Gives an algorithm without an output size the size of its layers at their
 * own cell size, and one without a resolution 96 dots per inch. 0, or VT_FAILED after saying why.
 */
int vt_default_window(const char *sub, algorithm *alg);

/* ------------------------------------------------------------- all cores */

#define VT_MAX_THREADS 256

/* The threads asked for with --threads; 0 for one per core. */
extern int vt_threads;
/* Reads --threads' value into vt_threads; VT_OK or a usage error. */
int vt_parse_threads(const char *sub, const char *text);
/* The threads an image of `lines` lines is made with. */
int vt_thread_count(int lines);

/* An image made in row stripes: each stripe opens its own handle over a copy
 * of `alg` with `open` and reads its lines (`nr_bands` lines of `band_bytes`
 * each). Row y of the output, `row_bytes` long, is the bands' lines one after
 * the other, or what `convert` makes of them; it goes to `fd` at offset
 * `base + y * row_bytes`, a few megabytes at a time, or, when `memory` isn't
 * null, to `memory + y * row_bytes`. */
typedef struct vt_stripe_job {
    const char *sub;
    const char *output_name; /* for messages */
    const algorithm *alg;    /* as it was before any open */
    Vds *(*open)(algorithm *alg, char **errmsg);
    int height, nr_bands;
    size_t band_bytes, row_bytes;
    void (*convert)(void **lines, unsigned char *row, int width);
    int width; /* for convert */
    int fd;
    off_t base;
    unsigned char *memory;
} vt_stripe_job;

/* Makes the image on vt_thread_count threads; the first stripe may use a
 * handle the caller opened (and closes). Says what failed; an exit status. */
int vt_run_stripes(const vt_stripe_job *job, Vds *first_handle);

/* Draws the algorithm in file `name` as a picture `output` (PPM, or PNG by
 * its extension) of `width` x `height` (0: the algorithm's own size), on
 * every core; messages name `sub`. An exit status. */
int vt_render(const char *sub, const char *name, const char *output, int width, int height);

/* Writes what `alg` computes as a new dataset: header `out_header` (".vld"
 * is added when absent) and its data file beside it, in `cell_type`
 * (CT_None: the algorithm's own output type). Takes care of temporary
 * names, signals and cleanup; returns an exit status. */
int vt_write_dataset(const char *sub, algorithm *alg, const char *out_header, int cell_type);

#endif
