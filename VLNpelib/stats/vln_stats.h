/*
 * vln_stats.h: statistics of a raster dataset by region, and their report.
 *
 * Every region of a raster dataset can hold a statistics record (msstats, in
 * the region's block of the header): counts of null and non-null cells,
 * range, mean, median and covariance of the bands. calc_stats fills them for
 * every region in two passes over the dataset; the caller then writes the
 * header. A vldstats is the form derived for a list of bands: the counts and
 * values of those bands, their covariance and correlation, eigenvalues and
 * eigenvectors, determinants, standard deviations, areas and the inverse of
 * the covariance. region_statistics_report prints all of these.
 *
 * Matrices are single arrays of doubles, row after row: entry (i, j) of an
 * n by n matrix is m[i * n + j]. Records and arrays handed to the caller come
 * from the core allocator: a vldstats goes back through ef_vldstats, arrays
 * through safe_free.
 */
#ifndef VORLAN_VLN_STATS_H
#define VORLAN_VLN_STATS_H

#include <stdint.h>
#include <stdio.h>

#include "vld_core.h"
#include "vld_dshdr.h"

VLD_BEGIN_DECLS

/* Statistics of one region for a list of bands. Every array has one entry
 * per listed band, in the list's order, and every matrix is nr_bands by
 * nr_bands; an array whose source is absent from the msstats is null. */
typedef struct vldstats {
    char *region_name;
    char *dataset_name;
    int32_t nr_bands;
    int32_t *band_numbers; /* 1-based band numbers of the dataset */
    int32_t *non_null_cells;
    int32_t *null_cells;
    double *minimum;
    double *maximum;
    double *mean;
    double *median;
    double *covariance;
    double *correlation;
    double *hectares; /* cell width * cell height * non-null cells / 10000 */
    double *acres;    /* hectares * 2.471054 */
    /* Eigenvalues come largest first; column k of an eigenvector matrix is the
     * unit vector of value k, and its transpose is its inverse. */
    double *covariance_eigenvalues;
    double *correlation_eigenvalues;
    double *covariance_eigenvectors;
    double *correlation_eigenvectors;
    double *covariance_eigenvectors_transposed;
    double *correlation_eigenvectors_transposed;
    double covariance_determinant;
    double correlation_determinant;
    double *standard_deviation;     /* over n cells */
    double *standard_deviation_nm1; /* over n - 1 cells: the root of the variance */
    double *inverse_covariance;
} vldstats;

/* Called with a whole percentage, only when it changes. */
typedef void (*vln_stats_progress)(int percent);

/* calc_stats_subsamp(record, force, 1, null). */
VLD_API int calc_stats(dshdr *record, int force);

/* Computes the statistics of every region of the raster dataset, reading
 * every `rate`-th line and cell, and puts them in the header's region records
 * (the caller writes the header). Regions that have statistics keep them
 * unless `force` is set. On any failure the region records stay as they
 * were. 0, or a row of the message table: VLD_ERR_RASTER_DATASET_REQUIRED for
 * a dataset that isn't a raster. */
VLD_API int calc_stats_subsamp(dshdr *record, int force, int rate, vln_stats_progress progress);

/* A new vldstats of the region's statistics for the bands listed (0-based
 * indices into the statistics' bands; a null list means the first
 * `nr_bands`). `record` gives the cell size and the dataset's name and may be
 * null. Null on failure, with a new text in *error_text (when error_text
 * isn't null) that the caller frees. */
VLD_API vldstats *setup_vldstats(const dshdr *record, const char *region_name, const msstats *stats,
                                 const int *band_list, int nr_bands, char **error_text);
/* Frees one, with all its arrays. Null is allowed. */
VLD_API void ef_vldstats(vldstats *stats);

/* result(i, j) = covariance(i, j) / sqrt(covariance(i, i) * covariance(j, j))
 * for an n by n covariance; a zero variance gives what the division gives.
 * `result` may be `covariance`. */
VLD_API void setup_correlation_matrix(double *result, const double *covariance, int n);

/* Eigenvalues (largest first) and eigenvectors (column k for value k) of the
 * n by n submatrix of `matrix` (matrix_bands by matrix_bands) on the bands
 * listed (0-based; a null list means the first n), in the list's order.
 * *values (n) and *vectors (n by n) are new, for the caller to free with
 * safe_free. 0, or a row of the message table with both left null. */
VLD_API int calc_evec(double **values, double **vectors, int n, const int *band_list,
                      const double *matrix, int matrix_bands);

/* Writes the statistics report of every region of the dataset to `out`:
 * for the bands in `bands` (one-based numbers separated by blanks or commas,
 * ranges as "1-3"; null or empty means all), numbers by "%*d " and "%*.*f "
 * with the width and precision of `format` ("W.P", "%W.Pf"; null gives
 * 12.4). `classes_dataset`, when set, names the dataset whose classes made
 * the regions, for the title. 0, or a row of the message table. */
VLD_API int region_statistics_report(const char *dataset, const char *classes_dataset,
                                     const char *bands, const char *format, FILE *out);

VLD_END_DECLS

#endif
