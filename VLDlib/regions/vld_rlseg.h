/*
 * vld_rlseg.h: run-length masks of lines, and regions turned into them.
 *
 * A line doesn't carry a null flag per cell: its valid cells are a list of
 * runs (rlseg), ascending, not overlapping, each giving its first and last
 * cell. A null list is the empty mask; a cell outside every run is null.
 *
 * Every set operation comes in two forms with the same results. The heap form
 * (VLD_ prefix, or none) allocates each run with malloc_or_die and frees it
 * with free_rlseg(s). The pooled form takes an rlseg_pool, which recycles runs
 * through a free list, so that once it has grown to what a reader needs no
 * further heap calls are made; all runs of a pool go when the pool is
 * released. Lists of the two forms must not be mixed. No operation changes
 * its input lists, except the combine operations, which work in place.
 *
 * A region's polygons (its subregions, in cell coordinates) are filled by the
 * even-odd rule on cell centres: a cell belongs to the region exactly when
 * its centre lies inside an odd number of the region's rings. The scan runs
 * row by row over an edge table and an active edge list.
 */
#ifndef VORLAN_VLD_RLSEG_H
#define VORLAN_VLD_RLSEG_H

#include <stdint.h>

#include "vld_core.h"
#include "vld_dshdr.h"

VLD_BEGIN_DECLS

/* One run of valid cells, first to last inclusive. */
typedef struct rlseg {
    struct rlseg *next; /* the next run, at higher cells */
    int32_t first, last;
} rlseg;

/* ---------------------------------------------------------------- pool */

struct rlseg_pooled; /* a run with the pool's two hidden links in front */

/* The runs of one reader. Zeroed storage is an empty pool. A pool belongs to
 * one thread. The counters are for inspection: `nr_allocated` grows only when
 * the free list is empty. */
typedef struct rlseg_pool {
    struct rlseg_pooled *used_list; /* live runs, doubly linked */
    struct rlseg_pooled *free_list; /* freed runs, ready for reuse */
    int32_t nr_used;
    int32_t nr_free;
    int32_t nr_allocated; /* heap allocations made over the pool's life */
} rlseg_pool;

VLD_API void rlseg_pool_init(rlseg_pool *pool);
/* Frees every run of the pool, live or free; the pool is empty afterwards. */
VLD_API void rlseg_pool_release(rlseg_pool *pool);

/* ---------------------------------------------------------------- runs */

/* A new heap run; the first argument is ignored (kept for the pooled form's
 * shape). */
VLD_API rlseg *create_rlseg(void *ignored, int first, int last);
/* Frees one heap run and clears the slot. Null is allowed. */
VLD_API void free_rlseg(rlseg **slot);
/* Frees a whole heap list and clears the head. */
VLD_API void free_rlsegs(rlseg **slot);

/* A run from the pool's free list, or a new one when that is empty. */
VLD_API rlseg *pe_create_rlseg(rlseg_pool *context, int first, int last);
/* Returns one run to the pool's free list, with first and last set to -1,
 * and clears the slot. Null is allowed. */
VLD_API void pe_free_rlseg(rlseg_pool *context, rlseg **slot);
VLD_API void pe_free_rlsegs(rlseg_pool *context, rlseg **slot);

/* ---------------------------------------------------------------- set operations */

/* Intersection. */
VLD_API rlseg *and_rlsegs(const rlseg *a, const rlseg *b);
VLD_API rlseg *pe_and_rlsegs(rlseg_pool *context, const rlseg *a, const rlseg *b);
/* Union, merged to maximal runs: touching runs become one. */
VLD_API rlseg *VLD_or_rlsegs(const rlseg *a, const rlseg *b);
VLD_API rlseg *or_rlsegs(rlseg_pool *context, const rlseg *a, const rlseg *b);
/* The cells of a that aren't in b. */
VLD_API rlseg *VLD_rlseg_diff(const rlseg *a, const rlseg *b);
VLD_API rlseg *rlseg_diff(rlseg_pool *context, const rlseg *a, const rlseg *b);
/* The cells 0 to width - 1 that aren't in a; empty for a width below 1. */
VLD_API rlseg *VLD_rlseg_complement(const rlseg *a, int width);
VLD_API rlseg *rlseg_complement(rlseg_pool *context, const rlseg *a, int width);
/* Normalises a list ordered by first cell, in place: a run that ends at or
 * after its successor's end swallows it, and a run that reaches or touches
 * its successor merges with it. Removed runs are freed. */
VLD_API void VLD_combine_rlsegs(rlseg *list);
VLD_API void combine_rlsegs(rlseg_pool *context, rlseg *list);
/* A copy. */
VLD_API rlseg *VLD_dup_rlsegs(const rlseg *list);
VLD_API rlseg *dup_rlsegs(rlseg_pool *context, const rlseg *list);

/* ---------------------------------------------------------------- regions */

/* The runs of one dataset line inside a region; heap runs. */
typedef struct lineseg_info {
    struct lineseg_info *next;
    int32_t line;
    rlseg *rlsegs;
} lineseg_info;

/* An edge of the scan: it takes part in rows up to bottom_y (a row index),
 * crossing the current row at x (in cell-centre units: cell i's centre is at
 * x = i), and moves by dx_per_line per row. */
typedef struct active_edge {
    double bottom_y;
    double x;
    double dx_per_line;
    struct active_edge *next;
} active_edge;

/* Extremes over all vertices of all rings of the region. 1 when there is a
 * vertex; 0 (and all four 0.0) when there is none. */
VLD_API int region_cell_extents(const regioninfo *region, double *min_x, double *max_x,
                                double *min_y, double *max_y);
/* The integer box of the region: floor of the minima, and extents of ceil of
 * the maximum less floor of the minimum. Same result as region_cell_extents. */
VLD_API int region_extents(const regioninfo *region, int *start_row, int *nr_rows, int *start_col,
                           int *nr_cols);

/* The runs of every line of the dataset that the region covers, in line
 * order, clipped to the dataset's lines and cells. 0, or VLD_ERR_REGION_TOO_FEW_POINTS with the
 * region's name for a region without a ring of three or more vertices. */
VLD_API int get_lineseg_info(const dshdr *record, const regioninfo *region, lineseg_info **list);
VLD_API void free_lineseg_info(lineseg_info **list);

/* Fills `table` (one null entry per row of the region, from region_extents)
 * with the region's edges, each at its first row's entry, sorted by x. */
VLD_API int setup_edge_table(const regioninfo *region, int start_row, active_edge **table);
/* One step of the scan: merges table[row_index] into the active list, and
 * gives the runs of dataset row `row` (null when none), clipped to 0 to
 * width - 1. Then retires the edges that end at this row and steps the rest
 * to the next. */
VLD_API lineseg_info *get_next_lineseg_info(int width, int row_index, int row, active_edge **table,
                                            active_edge **active);
/* The same step with no result. */
VLD_API void increment_lineseg_edge_table(int width, int row_index, int row, active_edge **table,
                                          active_edge **active);
/* Frees the edges left in the first nr_rows entries of the table and in the
 * active list, and clears them; the table's array stays the caller's. */
VLD_API void free_edge_table(active_edge **table, int nr_rows, active_edge **active);

VLD_END_DECLS

#endif
