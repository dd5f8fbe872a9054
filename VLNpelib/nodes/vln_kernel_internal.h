/*
 * vln_kernel_internal.h: the shell of the window nodes, shared by FN_KERNEL
 * and the shading nodes; included by the files of this folder only.
 *
 * A window node keeps a ring of its last `rows` input lines as doubles. Each
 * read takes one more line (all `rows` on the first read), so that the
 * window's top row is the oldest line, and hands the window to the kind's
 * cell routine for every cell whose whole window is valid: the output runs
 * are the intersection of the rows' runs, eroded by half the window's width
 * at both ends of each run. Nothing else is done at an edge or a null: a
 * cell whose window touches either is null in the output.
 *
 * The input comes over a level 2 connection whose line is the ring's own
 * line when the child delivers doubles, so that double lines are never
 * copied; lines of other types land in a scratch line and are converted
 * over their runs.
 */
#ifndef VORLAN_VLN_KERNEL_INTERNAL_H
#define VORLAN_VLN_KERNEL_INTERNAL_H

#include "vln_nodes.h"

namespace vln_kernel {

struct Window;

/* Computes output cells `first` to `last` (inclusive) into `out`, a line of
 * the node's output type. `rows[r]` is row r of the window (0 the top),
 * pointing at its cell 0; a window cell x - half_columns + c is column c. */
using CellRoutine = void (*)(const Window *w, int first, int last, const double *const *rows,
                             void *out);

/* The private record of a window node. */
struct Window {
    vln_pe::NodeBase base;
    int first_read;  // 1 until the ring has been filled
    int rows, columns;
    int half_columns;
    const double *coefficients;  // rows by columns, row after row; null for shading
    int cell_size, cell_type;    // of the output line
    linebuf **window_lines;      // the ring from the oldest line to the newest
    const double **window_data;  // their data
    double scale_factor;
    CellRoutine cell_routine;
    int kernel_type;    // KT_ of a kernel; 0 for shading
    linebuf *ring;      // `rows` lines of doubles and their runs
    int ring_position;  // the oldest line of the ring, the next to be replaced
    double threshold;
    int centre_row, centre_column;
    int nr_cells;   // of input and output
    void *scratch;  // the input's line when its cells aren't doubles
    void *kind;     // the kind's own record (user code, shading tables)
};

/* A window node of `type` over the slot's tree: `nr_cells` wide, a window of
 * `rows` by `columns` (both odd), output cells of `out_type`. The caller
 * fills in what its routine needs. */
Window *add_window_stage(funcnode **slot, pe_context *pe, int type, int nr_cells, int rows,
                         int columns, int out_type, CellRoutine routine);

/* The shell's hooks: `init` makes the ring and declares the output type;
 * `read` delivers one line. */
void window_init(funcnode *node);
void window_read(funcnode *node);

/* User kernels (vln_node_kernel_user.cpp): the library is found and its
 * entries resolved at setup, failing the open as the kernel's messages say;
 * `start` runs the init entry and `close` the final one and lets the library
 * go. */
void setup_user_kernel(Window *w, pe_context *pe, pe_stream *ps, const kernel *k);
void use_user_kernel_read(funcnode *node);
void start_user_kernel(Window *w);
void close_user_kernel(Window *w);

}  // namespace vln_kernel

#endif
