/*
 * vln_kernel_usercode.h: the entries of a user kernel library.
 *
 * A kernel of Type User names a shared library (UserCodeFileName) and a
 * function in it (UserFunctionName, here "NAME"). The engine loads the
 * library when the algorithm is opened and looks up four entries:
 *
 *   NAME         required: the value of one cell from its window;
 *   NAME_init    optional: called once when the open has succeeded, before
 *                the first line is computed;
 *   NAME_final   optional: called once when the virtual dataset is closed,
 *                if the open succeeded;
 *   NAME_mtsafe  optional: says whether the function may be called from
 *                several threads, each with its own handle.
 *
 * An absolute name is used as it is. Any other is looked for in the folders
 * $VORLAN/usercode/kernel/c and $VORLAN/usercode/kernel/c/<machine type>,
 * then those of $VLN_KERNEL_UCPATH, then $VORLAN/usercode/kernel/<machine
 * type>, $VORLAN/usercode/kernel and ./usercode/kernel; a name that goes
 * through a folder called "usercode" is looked for by what follows it. The
 * name may be written with any extension: the platform's library suffix
 * replaces it.
 */
#ifndef VORLAN_VLN_KERNEL_USERCODE_H
#define VORLAN_VLN_KERNEL_USERCODE_H

#include "vld_alg.h"
#include "vld_core.h"

VLD_BEGIN_DECLS

/* NAME_init: `parameters` is the kernel's UserCodeParameters (may be null).
 * The function may keep state in *user_data, which every later call gets. It
 * returns 0, or anything else to end the processing; it may then point
 * *error_text at a text that says why, which the library copies. */
typedef int (*vln_kernel_init_fn)(int rows, int columns, const char *parameters, algorithm *alg,
                                  stream *st, void **user_data, const char **error_text);

/* NAME: one cell. row_pointers[r] points at the leftmost cell of row r of the
 * cell's window (row 0 is the top), so that row_pointers[r][c] is the cell of
 * column c. Every cell of the window is valid. */
typedef double (*vln_kernel_fn)(int rows, int columns, double **row_pointers, void **user_data);

/* NAME_final: releases what NAME_init kept. */
typedef void (*vln_kernel_final_fn)(void *user_data);

/* NAME_mtsafe: 1 if NAME may run on several threads at once. */
typedef int (*vln_kernel_mtsafe_fn)(void);

VLD_END_DECLS

#endif
