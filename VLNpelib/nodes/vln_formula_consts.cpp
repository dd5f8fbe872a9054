/*
 * vln_formula_consts.cpp: what a formula takes from dataset headers, frozen
 * at setup: dataset constants (sizes, and the statistics of a region of a
 * band or a list of bands), and the means and inverse covariance that MAHAL
 * measures against.
 *
 * Statistics are those stored in a region of the header (msstats). Derived
 * figures (standard deviations, correlations, determinants, eigenvalues and
 * eigenvectors) come from the stored covariance, restricted to the bands
 * asked for, through the statistics and matrix routines.
 */
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "vln_formula_node.h"
#include "vln_matrix.h"
#include "vln_path.h"
#include "vln_stats.h"

namespace {

struct HeaderFree {
    void operator()(dshdr *d) const { ef_dshdr(d); }
};
using HeaderPtr = std::unique_ptr<dshdr, HeaderFree>;

void safe_free_double(double *p)
{
    safe_free(p);
}

/* The region name that `ref` stands for, or null. */
const char *region_name(const formula *f, const NameOrNumber *ref)
{
    if (ref == nullptr) return "All";
    if (ref->type == NN_NAME) return ref->name;
    for (int i = 0; f != nullptr && i < f->nr_region_args; i++)
        if (f->region_args[i].region_number == ref->number) return f->region_args[i].region_name;
    return nullptr;
}

/* One dataset constant being resolved: its text for messages and where it
 * looks. Every failure ends the setup with the constant's text and a reason. */
class Resolver {
   public:
    Resolver(pe_context *pe, ExprNode *node, dshdr *dsh, pe_stream *ps, int loop)
        : pe_(pe),
          node_(node),
          own_(dsh),
          ps_(ps),
          loop_(loop),
          f_(ps != nullptr ? &ps->stream->formula : nullptr)
    {
        text_.resize(4096);
        dc_to_output_string(text_.data(), node);
    }

    [[noreturn]] void fail(const char *reason) const
    {
        alg_error_vprintf(pe_, "Dataset constant error: %s - %s", text_.c_str(), reason);
    }

    double value()
    {
        const auto &dc = node_->u.dsconst;
        ds_ = dataset();
        const rasterinfo &r = ds_->info.r;
        switch (dc.dc_type) {
            case DC_NRBANDS:
                return r.nr_bands;
            case DC_NRROWS:
                return r.nr_lines;
            case DC_NRCOLS:
                return r.nr_cells;
            case DC_MAXCELLX:
            case DC_MAXCELLY: {
                const dshdr *top = ds_;
                while (top->source_dsh != nullptr) top = top->source_dsh;
                return dc.dc_type == DC_MAXCELLX ? top->info.r.nr_cells - 1
                                                 : top->info.r.nr_lines - 1;
            }
            default:
                return statistic();
        }
    }

   private:
    dshdr *dataset()
    {
        const NameOrNumber *ref = node_->u.dsconst.dataset;
        dshdr *ds = own_;
        if (ref != nullptr) {
            std::string name;
            if (ref->type == NN_NAME) {
                name = ref->name != nullptr ? ref->name : "";
            } else {
                bool found = false;
                for (int i = 0; f_ != nullptr && i < f_->nr_dataset_args; i++) {
                    const dsarg &a = f_->dataset_args[i];
                    if (a.dataset_number != ref->number) continue;
                    if (a.dataset_directory != nullptr && *a.dataset_directory != '\0')
                        name = std::string(a.dataset_directory) + "/";
                    name += a.dataset_name != nullptr ? a.dataset_name : "";
                    found = true;
                    break;
                }
                if (!found) fail("Bad dataset number");
            }
            char *path = nullptr;
            const char *parent = ps_ != nullptr ? ps_->stream->dataset : nullptr;
            if (VLN_build_abs_fspec(&path, parent, name.c_str()) != 0) path = strsave(name.c_str());
            dshdr *loaded = nullptr;
            const int rc = eg_dshdr(&loaded, path);
            safe_free(path);
            if (rc != 0)
                fail(VLD_error_text() != nullptr ? VLD_error_text() : "Cannot read header");
            other_.reset(loaded);
            ds = loaded;
        }
        if (ds == nullptr || ds->data_type != DT_Raster) fail("Not a raster dataset");
        return ds;
    }

    /* The 0-based band of a ref of the constant's dataset; -1 when none. */
    int band_of(const BandSpec *b) const
    {
        if (b == nullptr) return 0;
        int index = -1;
        switch (b->type) {
            case BS_NAME:
                index = find_band_index(ds_, b->name);
                break;
            case BS_BAND:
                index = b->number - 1;
                break;
            case BS_INPUT: {
                const int number = b->number == LOOP_INPUT_NUMBER ? loop_ : b->number;
                index = find_bindex_from_inum(number, ps_);
                if (other_ != nullptr && index >= 0) {
                    // Carried over to the other dataset by its description.
                    char *desc = find_band_desc(own_, index);
                    index = desc != nullptr ? find_band_index(ds_, desc) : -1;
                    safe_free(desc);
                }
                break;
            }
            default:
                break;
        }
        return index >= 0 && index < ds_->info.r.nr_bands ? index : -1;
    }

    double statistic()
    {
        const auto &dc = node_->u.dsconst;
        if (ds_->info.r.regions == nullptr) fail("No regions have been defined");
        regioninfo *region = find_region(f_, ds_, dc.region);
        if (region == nullptr) fail("Cannot find region");
        const msstats *s = region->stats;
        if (s == nullptr) fail("Statistics have not been calculated");
        const int band = band_of(dc.band);
        if (band < 0 || band >= s->nr_bands) fail("Cannot find band");
        const int nb = s->nr_bands;
        auto need = [&](const void *array) {
            if (array == nullptr) fail("Statistic has not been calculated");
        };
        switch (dc.dc_type) {
            case DC_NRNULLS:
                need(s->null_cells);
                return s->null_cells[band];
            case DC_NRNONNULLS:
                need(s->non_null_cells);
                return s->non_null_cells[band];
            case DC_RMIN:
                need(s->minimum);
                return s->minimum[band];
            case DC_RMAX:
                need(s->maximum);
                return s->maximum[band];
            case DC_MEAN:
                need(s->mean);
                return s->mean[band];
            case DC_MEDIAN:
                need(s->median);
                return s->median[band];
            case DC_STDEVNM1:
                need(s->covariance);
                return std::sqrt(s->covariance[band * nb + band]);
            case DC_STDEV: {
                need(s->covariance);
                need(s->non_null_cells);
                const double n = s->non_null_cells[band];
                if (!(n > 0)) return 0.0;
                return std::sqrt((n - 1) * s->covariance[band * nb + band] / n);
            }
            default:
                break;
        }
        need(s->covariance);
        std::vector<double> matrix(s->covariance, s->covariance + static_cast<size_t>(nb) * nb);
        const bool corr = dc.dc_type == DC_CORR || dc.dc_type == DC_CORR_EVAL ||
                          dc.dc_type == DC_PC_CORR || dc.dc_type == DC_DETCORR ||
                          dc.dc_type == DC_INVPC_CORR;
        if (corr) setup_correlation_matrix(matrix.data(), s->covariance, nb);
        if (dc.dc_type == DC_COVAR || dc.dc_type == DC_CORR) {
            if (dc.nth < 1 || dc.nth > nb) fail("Bad component number");
            return matrix[static_cast<size_t>(band) * nb + dc.nth - 1];
        }
        const std::vector<int> list = band_list(nb);
        const int count = static_cast<int>(list.size());
        if (dc.dc_type == DC_DETCOV || dc.dc_type == DC_DETCORR)
            return VLN_submatrix_determinant(matrix.data(), nb, list.data(), count);

        int position = -1;
        for (int k = 0; k < count; k++)
            if (list[k] == band) position = k;
        if (position < 0) fail("Desired band not in band list");
        double *values = nullptr, *vectors = nullptr;
        if (calc_evec(&values, &vectors, count, list.data(), matrix.data(), nb) != 0)
            fail(VLD_error_text() != nullptr ? VLD_error_text() : "Cannot calculate eigenvectors");
        std::unique_ptr<double, decltype(&safe_free_double)> keep_values(values, safe_free_double),
            keep_vectors(vectors, safe_free_double);
        switch (dc.dc_type) {
            case DC_COV_EVAL:
            case DC_CORR_EVAL:
                return values[position];
            case DC_PC_COV:
            case DC_PC_CORR:
                if (dc.nth < 1 || dc.nth > count) fail("Bad component number");
                return vectors[position * count + dc.nth - 1];
            case DC_INVPC_COV:
            case DC_INVPC_CORR:
                if (dc.nth < 1 || dc.nth > count) fail("Bad component number");
                return vectors[(dc.nth - 1) * count + position];
            default:
                fail("Unknown dataset constant");
        }
    }

    /* The bands of the constant's list; every band when it is empty. */
    std::vector<int> band_list(int nr_bands) const
    {
        std::vector<int> list;
        const BandSpec *head = node_->u.dsconst.band_list;
        if (head == nullptr) {
            for (int i = 0; i < nr_bands; i++) list.push_back(i);
            return list;
        }
        int length = 0;
        for (const BandSpec *b = head; b != nullptr; b = b->next) length++;
        if (length > nr_bands) fail("Too many bands in list");
        for (const BandSpec *b = head; b != nullptr; b = b->next) {
            const int index = band_of(b);
            if (index < 0 || index >= nr_bands) {
                char ref[512];
                bandspec_to_output_string(ref, const_cast<BandSpec *>(b));
                char reason[600];
                std::snprintf(reason, sizeof reason, "Cannot find %s", ref);
                fail(reason);
            }
            list.push_back(index);
        }
        return list;
    }

    pe_context *pe_;
    ExprNode *node_;
    dshdr *own_;
    pe_stream *ps_;
    int loop_;
    const formula *f_;
    std::string text_;
    dshdr *ds_ = nullptr;
    HeaderPtr other_;
};

}  // namespace

double get_dataset_constant(pe_context *pe, ExprNode *dsconst, dshdr *dsh, pe_stream *ps,
                            int loop_input)
{
    Resolver resolver(pe, dsconst, dsh, ps, loop_input);
    return resolver.value();
}

regioninfo *find_region(const formula *f, const dshdr *dsh, const NameOrNumber *ref)
{
    if (dsh == nullptr || dsh->data_type != DT_Raster) return nullptr;
    const char *name = region_name(f, ref);
    if (name == nullptr) return nullptr;
    for (regioninfo *r = dsh->info.r.regions; r != nullptr; r = r->next)
        if (r->name != nullptr && VLD_strcasecmp(r->name, name) == 0) return r;
    return nullptr;
}

int find_bindex_from_inum(int input_number, const pe_stream *ps)
{
    if (ps == nullptr) return -1;
    const formula &f = ps->stream->formula;
    if (input_number < 1 || input_number > f.nr_args) return -1;
    const int id = f.args[input_number - 1].stream_input;
    for (int i = 0; i < ps->nr_inputs; i++)
        if (ps->inputs[i].streaminput->id == id && ps->inputs[i].band != nullptr)
            return std::atoi(ps->inputs[i].band) - 1;
    const char *band = f.args[input_number - 1].band_number;
    return band != nullptr && *band != '\0' ? std::atoi(band) - 1 : -1;
}

void setup_mahal_stats(pe_context *pe, pe_stream *ps, dshdr *dsh, const NameOrNumber *ref,
                       const int *inputs, int nr_inputs, double **mean, double **inverse)
{
    const formula *f = &ps->stream->formula;
    regioninfo *region = find_region(f, dsh, ref);
    if (region == nullptr) {
        if (ref->type == NN_NUMBER)
            alg_error_vprintf(pe, "Could not find region R%d.", ref->number);
        alg_error_vprintf(pe, "Could not find region %s.", ref->name != nullptr ? ref->name : "");
    }
    const char *name = region->name != nullptr ? region->name : "???";
    const msstats *s = region->stats;
    if (s == nullptr) alg_error_vprintf(pe, "Stats not calculated for region: %s", name);
    if (s->mean == nullptr) alg_error_vprintf(pe, "Means not calculated for region: %s", name);
    if (s->covariance == nullptr)
        alg_error_vprintf(pe, "Covariance matrix not calculated for region: %s", name);

    const int n = nr_inputs;
    std::vector<int> bands(static_cast<size_t>(n));
    for (int k = 0; k < n; k++) {
        bands[k] = find_bindex_from_inum(inputs[k], ps);
        if (bands[k] < 0 || bands[k] >= s->nr_bands)
            alg_error_vprintf(pe, "Could not find band for INPUT%d", inputs[k]);
    }
    auto *m = static_cast<double *>(pe_malloc(pe, (n > 0 ? n : 1) * sizeof(double)));
    auto *inv = static_cast<double *>(pe_malloc(pe, (n > 0 ? n * n : 1) * sizeof(double)));
    for (int i = 0; i < n; i++) {
        m[i] = s->mean[bands[i]];
        for (int j = 0; j < n; j++)
            inv[i * n + j] = s->covariance[bands[i] * s->nr_bands + bands[j]];
    }
    if (VLN_get_matrix_inverse(inv, inv, n) != 0)
        alg_error_fatal(pe, "Problem calculating inverse of covariance matrix");
    *mean = m;
    *inverse = inv;
}
