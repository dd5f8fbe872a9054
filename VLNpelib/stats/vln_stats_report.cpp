/*
 * vln_stats_report.cpp: the printed statistics of a dataset's regions.
 *
 * For each region the report shows a column per band of the counts, areas,
 * range, mean, median and standard deviations, the eigenvalues by principal
 * component, and then the correlation and covariance matrices with their
 * determinants, eigenvectors and the eigenvectors' inverses. A region whose
 * statistics can't be shown gets a line saying why, and the report goes on.
 */
#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "vln_guard_internal.h"
#include "vln_stats.h"

namespace {

/* The width of the column of row names. */
constexpr int kLabelWidth = 20;

/* Numbers and the way they are printed. */
struct Layout {
    FILE *out;
    int width = 12;
    int precision = 4;
    int nr_bands = 0;

    void label(const char *text) const { std::fprintf(out, "%-*s", kLabelWidth, text); }
    void integer(int value) const { std::fprintf(out, "%*d ", width, value); }
    void real(double value) const { std::fprintf(out, "%*.*f ", width, precision, value); }
    void end_row() const { std::fputc('\n', out); }

    /* A row of column names: "Band%d" of the listed bands, or "PC%d". */
    void columns(const vldstats &s, bool components) const
    {
        label("");
        for (int i = 0; i < s.nr_bands; i++) {
            char name[32];
            std::snprintf(name, sizeof name, components ? "PC%d" : "Band%d",
                          components ? i + 1 : s.band_numbers[i]);
            std::fprintf(out, "%*s ", width, name);
        }
        end_row();
    }

    void integers(const char *name, const int32_t *values, int n) const
    {
        if (!values) return;
        label(name);
        for (int i = 0; i < n; i++) integer(values[i]);
        end_row();
    }

    void reals(const char *name, const double *values, int n) const
    {
        if (!values) return;
        label(name);
        for (int i = 0; i < n; i++) real(values[i]);
        end_row();
    }

    /* A matrix under its title: rows named by band or component. */
    void matrix(const char *title, const double *m, const vldstats &s, bool rows_are_components,
                bool columns_are_components) const
    {
        if (!m) return;
        std::fprintf(out, "\n%s\n", title);
        columns(s, columns_are_components);
        const int n = s.nr_bands;
        for (int i = 0; i < n; i++) {
            char name[32];
            std::snprintf(name, sizeof name, rows_are_components ? "PC%d" : "Band%d",
                          rows_are_components ? i + 1 : s.band_numbers[i]);
            label(name);
            for (int j = 0; j < n; j++) real(m[static_cast<size_t>(i) * n + j]);
            end_row();
        }
    }

    void determinant(double value) const
    {
        label("Determinant");
        real(value);
        end_row();
    }
};

/* Width and precision from "W.P", "%W.Pf" or "W"; the defaults stay where a
 * part is missing. */
void parse_format(const char *format, Layout &layout)
{
    if (!format) return;
    const char *p = format;
    if (*p == '%') p++;
    char *end = nullptr;
    long width = std::strtol(p, &end, 10);
    if (end != p && width >= 0 && width <= 64) layout.width = static_cast<int>(width);
    p = end;
    if (*p == '.') {
        long precision = std::strtol(p + 1, &end, 10);
        if (end != p + 1 && precision >= 0 && precision <= 30)
            layout.precision = static_cast<int>(precision);
    }
}

/* One-based band numbers separated by blanks or commas, with ranges "a-b";
 * every band when the text is empty. False for anything else. */
bool parse_bands(const char *text, int nr_bands, std::vector<int> &bands)
{
    bands.clear();
    if (!text || !*text) {
        for (int b = 0; b < nr_bands; b++) bands.push_back(b);
        return nr_bands > 0;
    }
    const char *p = text;
    while (*p) {
        if (std::isspace(static_cast<unsigned char>(*p)) || *p == ',') {
            p++;
            continue;
        }
        char *end = nullptr;
        long first = std::strtol(p, &end, 10);
        if (end == p) return false;
        long last = first;
        p = end;
        if (*p == '-') {
            last = std::strtol(p + 1, &end, 10);
            if (end == p + 1) return false;
            p = end;
        }
        if (first < 1 || last < first || last > nr_bands) return false;
        for (long b = first; b <= last; b++) bands.push_back(static_cast<int>(b - 1));
    }
    return !bands.empty();
}

void region_report(const Layout &layout, const dshdr *record, const regioninfo *region,
                   const std::vector<int> &bands)
{
    FILE *out = layout.out;
    const char *name = region->name ? region->name : "";
    if (name[std::strspn(name, " \t")] == '\0') name = "***Unnamed";
    std::fprintf(out, "REGION: %s\n", name);
    const msstats *stats = region->stats;
    if (!stats) {
        std::fprintf(out, "Stats not calculated for %s\n", name);
        return;
    }
    if (stats->nr_bands != layout.nr_bands) {
        std::fprintf(out,
                     "Error in Region %s - Number of bands in statistics %d does not match "
                     "expected %d\n",
                     name, stats->nr_bands, layout.nr_bands);
        return;
    }
    for (int b : bands)
        if (b >= stats->nr_bands) {
            std::fprintf(out, "Error in Region %s - Band %d not in Statistics\n", name, b + 1);
            return;
        }
    char *error = nullptr;
    const int count = static_cast<int>(bands.size());
    vldstats *s = setup_vldstats(record, name, stats, bands.data(), count, &error);
    if (!s) {
        // What doesn't need the covariance is still shown, then why the rest isn't.
        msstats plain = *stats;
        plain.covariance = nullptr;
        s = setup_vldstats(record, name, &plain, bands.data(), count, nullptr);
        if (!s) {
            std::fprintf(out, "%s\n", error ? error : "");
            safe_free(error);
            return;
        }
    }
    const int n = s->nr_bands;
    layout.columns(*s, false);
    layout.integers("Null Cells", s->null_cells, n);
    layout.integers("Non-Null Cells", s->non_null_cells, n);
    layout.reals("Area In Hectares", s->hectares, n);
    layout.reals("Area In Acres", s->acres, n);
    layout.reals("Minimum", s->minimum, n);
    layout.reals("Maximum", s->maximum, n);
    layout.reals("Mean", s->mean, n);
    layout.reals("Median", s->median, n);
    if (error || !s->covariance) {
        if (error)
            std::fprintf(out, "%s\n", error);
        else
            std::fprintf(out, "No covariance matrix for %s\n", name);
        safe_free(error);
        ef_vldstats(s);
        return;
    }
    layout.reals("Std. Dev.", s->standard_deviation, n);
    layout.reals("Std. Dev. (n-1)", s->standard_deviation_nm1, n);
    std::fputc('\n', out);
    layout.columns(*s, true);
    layout.reals("Corr. Eigenval.", s->correlation_eigenvalues, n);
    layout.reals("Cov. Eigenval.", s->covariance_eigenvalues, n);

    layout.matrix("Correlation Matrix", s->correlation, *s, false, false);
    layout.determinant(s->correlation_determinant);
    layout.matrix("Corr. Eigenvectors", s->correlation_eigenvectors, *s, false, true);
    layout.matrix("Inv. of Corr. Ev.", s->correlation_eigenvectors_transposed, *s, true, false);
    layout.matrix("Covariance Matrix", s->covariance, *s, false, false);
    layout.determinant(s->covariance_determinant);
    layout.matrix("Cov. Eigenvectors", s->covariance_eigenvectors, *s, false, true);
    layout.matrix("Inv. of Cov. Ev.", s->covariance_eigenvectors_transposed, *s, true, false);
    ef_vldstats(s);
}

}  // namespace

int region_statistics_report(const char *dataset, const char *classes_dataset, const char *bands,
                             const char *format, FILE *out)
{
    if (!dataset || !*dataset) return VLD_setup_error(VLD_ERR_MESSAGE, "Dataset not specified");
    if (!out) return VLD_setup_error(VLD_ERR_INTERNAL, "Null structure pointer");
    dshdr *record = nullptr;
    if (int status = eg_dshdr(&record, dataset)) return status;
    if (record->data_type != DT_Raster) {
        ef_dshdr(record);
        return VLD_setup_error(VLD_ERR_RASTER_DATASET_REQUIRED);
    }
    std::vector<int> list;
    if (!parse_bands(bands, record->info.r.nr_bands, list)) {
        ef_dshdr(record);
        char text[VLD_ERRBUF_SIZE / 2];
        std::snprintf(text, sizeof text, "Bad band list: \"%s\"", bands ? bands : "");
        return VLD_setup_error(VLD_ERR_MESSAGE, text);
    }
    Layout layout;
    layout.out = out;
    layout.nr_bands = record->info.r.nr_bands;
    parse_format(format, layout);

    {
        vln::Guard hold(&csect);
        if (classes_dataset && *classes_dataset)
            std::fprintf(out, "STATISTICS FOR DATASET: %s (using %s classes/regions)\n", dataset,
                         classes_dataset);
        else
            std::fprintf(out, "STATISTICS FOR DATASET: %s\n", dataset);
        for (const regioninfo *r = record->info.r.regions; r; r = r->next) {
            std::fputc('\n', out);
            region_report(layout, record, r, list);
        }
        std::fflush(out);
    }
    ef_dshdr(record);
    return 0;
}
