/*
 * vln_stats_derived.cpp: what is derived from a region's stored statistics.
 *
 * The stored record (msstats) keeps only counts, ranges, means, medians and
 * the covariance of all bands. Reports, the formula's dataset constants and
 * user code want more, for a chosen list of bands: the correlation, principal
 * components, determinants, standard deviations, areas and the inverse of the
 * covariance. This file builds those, on the general matrix routines.
 */
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <vector>

#include "vln_matrix.h"
#include "vln_stats.h"

namespace {

/* Acres in a hectare. */
constexpr double kAcresPerHectare = 2.471054;

template <typename T>
T *new_array(size_t count)
{
    T *p = static_cast<T *>(malloc_or_die(count * sizeof(T)));
    std::memset(p, 0, count * sizeof(T));
    return p;
}

/* The submatrix of an n by n matrix on the listed rows and columns. */
std::vector<double> restrict_matrix(const double *matrix, int n, const int *index, int count)
{
    std::vector<double> sub(static_cast<size_t>(count) * count);
    for (int i = 0; i < count; i++)
        for (int j = 0; j < count; j++)
            sub[static_cast<size_t>(i) * count + j] =
                matrix[static_cast<size_t>(index[i]) * n + index[j]];
    return sub;
}

double *transpose(const double *m, int n)
{
    double *t = new_array<double>(static_cast<size_t>(n) * n);
    for (int i = 0; i < n; i++)
        for (int j = 0; j < n; j++)
            t[static_cast<size_t>(j) * n + i] = m[static_cast<size_t>(i) * n + j];
    return t;
}

void set_error(char **error_text, const char *format, ...) VLD_PRINTF(2, 3);
void set_error(char **error_text, const char *format, ...)
{
    if (!error_text) return;
    char buffer[512];
    va_list args;
    va_start(args, format);
    std::vsnprintf(buffer, sizeof buffer, format, args);
    va_end(args);
    *error_text = strsave(buffer);
}

/* A per-band array of the statistics for the listed bands; null when absent. */
template <typename T>
T *pick(const T *source, const int *index, int count)
{
    if (!source) return nullptr;
    T *out = new_array<T>(static_cast<size_t>(count));
    for (int i = 0; i < count; i++) out[i] = source[index[i]];
    return out;
}

/* Fills everything that stems from the covariance; false with the text set
 * when the covariance can't be inverted or its eigenvectors found. */
bool derive_from_covariance(vldstats &s, char **error_text)
{
    const int n = s.nr_bands;
    const size_t nn = static_cast<size_t>(n) * n;

    s.inverse_covariance = new_array<double>(nn);
    if (VLN_get_matrix_inverse(s.covariance, s.inverse_covariance, n) != 0) {
        set_error(error_text, "ERROR calculating inverse of covariance matrix");
        return false;
    }
    s.correlation = new_array<double>(nn);
    setup_correlation_matrix(s.correlation, s.covariance, n);
    s.covariance_determinant = VLN_matrix_determinant(s.covariance, n);
    s.correlation_determinant = VLN_matrix_determinant(s.correlation, n);

    if (calc_evec(&s.covariance_eigenvalues, &s.covariance_eigenvectors, n, nullptr, s.covariance,
                  n) != 0) {
        set_error(error_text, "ERROR calculating eigenvectors of covariance matrix");
        return false;
    }
    if (calc_evec(&s.correlation_eigenvalues, &s.correlation_eigenvectors, n, nullptr,
                  s.correlation, n) != 0) {
        set_error(error_text, "ERROR calculating eigenvectors of correlation matrix");
        return false;
    }
    s.covariance_eigenvectors_transposed = transpose(s.covariance_eigenvectors, n);
    s.correlation_eigenvectors_transposed = transpose(s.correlation_eigenvectors, n);

    s.standard_deviation = new_array<double>(static_cast<size_t>(n));
    s.standard_deviation_nm1 = new_array<double>(static_cast<size_t>(n));
    for (int i = 0; i < n; i++) {
        double nm1 = std::sqrt(s.covariance[static_cast<size_t>(i) * n + i]);
        double cells = s.non_null_cells ? s.non_null_cells[i] : 0.0;
        s.standard_deviation_nm1[i] = nm1;
        s.standard_deviation[i] = cells > 0.0 ? nm1 * std::sqrt((cells - 1.0) / cells) : 0.0;
    }
    return true;
}

}  // namespace

void setup_correlation_matrix(double *result, const double *covariance, int n)
{
    if (!result || !covariance || n < 1) return;
    std::vector<double> variance(static_cast<size_t>(n));
    for (int i = 0; i < n; i++) variance[i] = covariance[static_cast<size_t>(i) * n + i];
    for (int i = 0; i < n; i++)
        for (int j = 0; j < n; j++) {
            size_t at = static_cast<size_t>(i) * n + j;
            result[at] = covariance[at] / std::sqrt(variance[i] * variance[j]);
        }
}

int calc_evec(double **values, double **vectors, int n, const int *band_list, const double *matrix,
              int matrix_bands)
{
    if (values) *values = nullptr;
    if (vectors) *vectors = nullptr;
    if (!values || !vectors || !matrix || n < 1 || n > matrix_bands)
        return VLD_setup_error(VLD_ERR_INTERNAL, "Bad arguments for eigenvectors");
    std::vector<int> index(static_cast<size_t>(n));
    for (int i = 0; i < n; i++) {
        index[i] = band_list ? band_list[i] : i;
        if (index[i] < 0 || index[i] >= matrix_bands)
            return VLD_setup_error(VLD_ERR_INTERNAL, "Band not in matrix for eigenvectors");
    }
    std::vector<double> sub = restrict_matrix(matrix, matrix_bands, index.data(), n);
    double *vals = new_array<double>(static_cast<size_t>(n));
    double *vecs = new_array<double>(static_cast<size_t>(n) * n);
    if (eigenrs(sub.data(), n, vals, vecs) != 0) {
        safe_free(vals);
        safe_free(vecs);
        return VLD_setup_error(VLD_ERR_MESSAGE, "Could not calculate eigenvalues");
    }
    *values = vals;
    *vectors = vecs;
    return 0;
}

vldstats *setup_vldstats(const dshdr *record, const char *region_name, const msstats *stats,
                         const int *band_list, int nr_bands, char **error_text)
{
    if (error_text) *error_text = nullptr;
    const char *region = region_name ? region_name : "";
    if (!stats) {
        set_error(error_text, "Stats not calculated for %s", region);
        return nullptr;
    }
    if (nr_bands < 1 || nr_bands > stats->nr_bands) {
        set_error(error_text, "Number of bands %d does not match statistics of %s (%d bands)",
                  nr_bands, region, stats->nr_bands);
        return nullptr;
    }
    std::vector<int> index(static_cast<size_t>(nr_bands));
    for (int i = 0; i < nr_bands; i++) {
        index[i] = band_list ? band_list[i] : i;
        if (index[i] < 0 || index[i] >= stats->nr_bands) {
            set_error(error_text, "Band %d not in statistics of %s", index[i] + 1, region);
            return nullptr;
        }
    }

    auto *s = static_cast<vldstats *>(malloc_or_die(sizeof(vldstats)));
    std::memset(s, 0, sizeof *s);
    s->region_name = strsave(region);
    s->dataset_name = strsave(record ? record->name : nullptr);
    s->nr_bands = nr_bands;
    s->band_numbers = new_array<int32_t>(static_cast<size_t>(nr_bands));
    for (int i = 0; i < nr_bands; i++) s->band_numbers[i] = index[i] + 1;
    s->non_null_cells = pick(stats->non_null_cells, index.data(), nr_bands);
    s->null_cells = pick(stats->null_cells, index.data(), nr_bands);
    // The header leaves out a row of null counts that are all 0.
    if (!s->null_cells && s->non_null_cells)
        s->null_cells = new_array<int32_t>(static_cast<size_t>(nr_bands));
    s->minimum = pick(stats->minimum, index.data(), nr_bands);
    s->maximum = pick(stats->maximum, index.data(), nr_bands);
    s->mean = pick(stats->mean, index.data(), nr_bands);
    s->median = pick(stats->median, index.data(), nr_bands);

    if (s->non_null_cells) {
        double cell_area = 1.0;
        if (record && record->data_type == DT_Raster)
            cell_area = record->info.r.cellinfo.x_dimension * record->info.r.cellinfo.y_dimension;
        s->hectares = new_array<double>(static_cast<size_t>(nr_bands));
        s->acres = new_array<double>(static_cast<size_t>(nr_bands));
        for (int i = 0; i < nr_bands; i++) {
            s->hectares[i] = cell_area * s->non_null_cells[i] / 10000.0;
            s->acres[i] = s->hectares[i] * kAcresPerHectare;
        }
    }

    if (stats->covariance) {
        std::vector<double> sub =
            restrict_matrix(stats->covariance, stats->nr_bands, index.data(), nr_bands);
        s->covariance = new_array<double>(sub.size());
        std::memcpy(s->covariance, sub.data(), sub.size() * sizeof(double));
        if (!derive_from_covariance(*s, error_text)) {
            ef_vldstats(s);
            return nullptr;
        }
    }
    return s;
}

void ef_vldstats(vldstats *s)
{
    if (!s) return;
    void *arrays[] = {s->region_name,
                      s->dataset_name,
                      s->band_numbers,
                      s->non_null_cells,
                      s->null_cells,
                      s->minimum,
                      s->maximum,
                      s->mean,
                      s->median,
                      s->covariance,
                      s->correlation,
                      s->hectares,
                      s->acres,
                      s->covariance_eigenvalues,
                      s->correlation_eigenvalues,
                      s->covariance_eigenvectors,
                      s->correlation_eigenvectors,
                      s->covariance_eigenvectors_transposed,
                      s->correlation_eigenvectors_transposed,
                      s->standard_deviation,
                      s->standard_deviation_nm1,
                      s->inverse_covariance};
    for (void *p : arrays) safe_free(p);
    safe_free(s);
}
