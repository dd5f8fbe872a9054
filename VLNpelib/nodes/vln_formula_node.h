/*
 * vln_formula_node.h: what the formula node's files share.
 *
 * The node (vln_node_formula.cpp) turns a stream's parsed formula into a
 * program of the evaluator (vln_formula_eval.h). What a formula refers to
 * outside its inputs is resolved here, once, at setup: dataset constants and
 * the statistics of regions (vln_formula_consts.cpp), and functions of user
 * code in shared libraries (vln_formula_userfn.cpp). A change of a dataset
 * during processing thus has no effect on a running algorithm.
 */
#ifndef VORLAN_VLN_FORMULA_NODE_H
#define VORLAN_VLN_FORMULA_NODE_H

#include "vln_pe_internal.h"

/* ---------------------------------------------------------------- dataset constants */

/* The value of a dataset constant of the stream `ps`, whose own dataset is
 * `dsh` (may be null); `loop_input` is the current SIGMA input. A failure
 * ends the setup with "Dataset constant error: ...". */
double get_dataset_constant(pe_context *pe, ExprNode *dsconst, dshdr *dsh, pe_stream *ps,
                            int loop_input);
/* The region that `ref` names, through the formula's region arguments for
 * a number; null when there is none or `dsh` isn't a raster. */
regioninfo *find_region(const formula *f, const dshdr *dsh, const NameOrNumber *ref);
/* The 0-based band of formula input `input_number`; -1 when out of range. */
int find_bindex_from_inum(int input_number, const pe_stream *ps);

/* The mean vector and inverse covariance matrix of MAHAL(region, inputs),
 * in the pool; `inputs` are the input numbers. Failures end the setup. */
void setup_mahal_stats(pe_context *pe, pe_stream *ps, dshdr *dsh, const NameOrNumber *region,
                       const int *inputs, int nr_inputs, double **mean, double **inverse);

/* ---------------------------------------------------------------- user code */

/* One loaded user-code function: "name_init", "name" and "name_final" of
 * the library "name.so" on the formula user-code path. */
struct UserFunction {
    char *name; /* "%s_%d": the name and a running number */
    int init_done;
    void *init_function, *main_function, *finish_function;
    void *library_handle;
    void *user_data;
    algorithm *alg;
    formula *formula_record;
    UserFunction *next;
};

/* Loads `name` for a call with `nr_args` arguments; the `number`th user call
 * of the formula. The record is in the pool; its library is closed by
 * close_user_functions. A missing library or entry ends the setup. */
UserFunction *load_user_function(pe_context *pe, pe_stream *ps, const char *name, int number);
/* Calls the function on one cell's arguments (its init first, once). Up to
 * 20 arguments; more give 0.0. */
double call_user_function(void *function, const double *args, int nr_args);
/* Calls each finish entry and closes the libraries. */
void close_user_functions(UserFunction *list);

/* ---------------------------------------------------------------- the report */

/* What the open of `pe` processed, as two texts of as many lines, labels and
 * values: the part of each dataset read, the cells of each class of a
 * classification, and the time between the start and end given. Both texts
 * are new (free with safe_free). Returns 0. */
int get_procinfo(char **labels, char **values, pe_context *pe, long start_seconds, long end_seconds,
                 long start_microseconds, long end_microseconds);

#endif
