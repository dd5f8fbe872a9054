/*
 * vln_vds.cpp: the opens, reads and close of virtual datasets.
 *
 * Every open of an algorithm goes through one common open, which differs
 * only in the output layout's flags and the pixel's bit positions; the opens
 * of a dataset by its header (vds_vopen, vds_open) fit a private copy of the
 * header's algorithm to the asked rectangle first. A read pulls one line
 * through the root under the handle's failure target.
 */
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "vld_coords.h"
#include "vln_guard_internal.h"
#include "vln_nodes.h"
#include "vln_vds.h"

using namespace vln_pe;

namespace {

/* The renderer of 3D views, when one is installed. */
std::atomic<vds_open_3d_fn> g_open_3d{nullptr};
std::atomic<vds_read_3d_fn> g_read_3d{nullptr};
std::atomic<vds_close_3d_fn> g_close_3d{nullptr};

struct Layout {
    int shifts[4];  // red, green, blue, height
    uint8_t keep_height, to_buffers, to_ppbuffers, to_ms_rgbh;
};

void set_errmsg(char **errmsg, const char *text)
{
    if (errmsg != nullptr && *errmsg == nullptr)
        construct_errmsg(errmsg, "%s", text != nullptr ? text : "");
}

Vds *open_common(algorithm *alg, char **errmsg, const Layout &layout, pe_progress_fn progress_fn,
                 void *progress_arg)
{
    if (errmsg != nullptr) *errmsg = nullptr;
    if (alg == nullptr) {
        VLD_setup_error(VLD_ERR_MESSAGE, "Null algorithm passed to function");
        set_errmsg(errmsg, VLD_error_text());
        return nullptr;
    }
    auto *vds = static_cast<Vds *>(malloc_or_die(sizeof(Vds)));
    std::memset(vds, 0, sizeof *vds);
    pe_context *pe = pe_create_context();
    vds->context = pe;
    pe->vds = vds;
    vds->algorithm = alg;

    vds_open_3d_fn open_3d = g_open_3d.load();
    if (alg->view_mode != VM_Planimetric2D && open_3d != nullptr) {
        if (void *handle = open_3d(alg, errmsg, progress_fn, progress_arg)) {
            pe->handle_3d = handle;
            pe->is_3d = 1;
            return vds;
        }
        pe->is_3d = 0;
    }
    pe->progress_fn = progress_fn;
    pe->progress_arg = progress_arg;
    pe->keep_height = layout.keep_height;
    pe->to_buffers = layout.to_buffers;
    pe->to_ppbuffers = layout.to_ppbuffers;
    pe->to_ms_rgbh = layout.to_ms_rgbh;
    vds->red_shift = layout.shifts[0];
    vds->green_shift = layout.shifts[1];
    vds->blue_shift = layout.shifts[2];
    vds->height_shift = layout.shifts[3];

    const int status = init_alg(pe, alg);
    vds->owns_algorithm = 0;
    if (status == 1 && errmsg != nullptr) {
        safe_free(*errmsg);  // a text the declining renderer left
        *errmsg = strsave(pe->error_text);
    }
    if (status != 0) {
        vds_close(&vds);
        return nullptr;
    }
    pe_start_trees(pe);
    return vds;
}

/* Runs `body` on the handle's tree `which`, under its failure target. */
template <class Body>
int read_root(Vds *vds, int which, Body &&body)
{
    if (vds == nullptr || vds->context == nullptr) return -1;
    pe_context *pe = vds->context;
    funcnode *root = which == 0 ? pe->raster_root : pe->vector_root;
    if (root == nullptr) return -1;
    int result = -1;
    if (!guarded(pe, [&] { result = body(root); })) return 1;
    return result;
}

}  // namespace

/* ---------------------------------------------------------------- opens */

Vds *vds_open_alg_towin(algorithm *alg, char **errmsg, int red_shift, int green_shift,
                        int blue_shift, pe_progress_fn progress_fn, void *progress_arg)
{
    const Layout layout{{red_shift, green_shift, blue_shift, 0}, 0, 0, 0, 0};
    return open_common(alg, errmsg, layout, progress_fn, progress_arg);
}

Vds *vds_open_alg_rgbh(algorithm *alg, char **errmsg)
{
    const Layout layout{{16, 8, 0, 24}, 1, 0, 0, 0};
    return open_common(alg, errmsg, layout, nullptr, nullptr);
}

Vds *vds_open_alg_tods(algorithm *alg, char **errmsg, pe_progress_fn progress_fn,
                       void *progress_arg)
{
    if (alg == nullptr) return open_common(alg, errmsg, Layout{}, nullptr, nullptr);
    // Every surface reads as a dataset for the open alone; the tree keeps the
    // modes it took, and the document gets its own back, also on failure.
    std::vector<int32_t> modes;
    for (surface *s = alg->surfaces; s != nullptr; s = s->next) {
        modes.push_back(s->color_mode);
        s->color_mode = CM_DATASET;
    }
    const Layout layout{{0, 0, 0, 0}, 0, 0, 0, 0};
    Vds *vds = open_common(alg, errmsg, layout, progress_fn, progress_arg);
    size_t i = 0;
    for (surface *s = alg->surfaces; s != nullptr && i < modes.size(); s = s->next)
        s->color_mode = modes[i++];
    return vds;
}

Vds *vds_open_alg_tobuffers(algorithm *alg, char **errmsg, pe_progress_fn progress_fn,
                            void *progress_arg)
{
    const Layout layout{{0, 0, 0, 0}, 1, 1, 0, 0};
    return open_common(alg, errmsg, layout, progress_fn, progress_arg);
}

Vds *vds_open_alg_toppbuffers(algorithm *alg, char **errmsg, pe_progress_fn progress_fn,
                              void *progress_arg)
{
    const Layout layout{{0, 0, 0, 0}, 1, 1, 1, 0};
    return open_common(alg, errmsg, layout, progress_fn, progress_arg);
}

Vds *vds_open_alg_ms_rgbh(algorithm *alg, char **errmsg)
{
    if (alg == nullptr) return open_common(alg, errmsg, Layout{}, nullptr, nullptr);
    // A plain view for the call, which keeps the 3D open out.
    const int32_t view_mode = alg->view_mode;
    alg->view_mode = VM_Planimetric2D;
    // Kept: vectors stay merged with the raster after the call, as callers
    // of this layout expect to find the document so.
    alg->process_vectors = PV_MergeWithRaster;
    const Layout layout{{16, 8, 0, 0}, 1, 0, 0, 1};
    Vds *vds = open_common(alg, errmsg, layout, nullptr, nullptr);
    alg->view_mode = view_mode;
    return vds;
}

Vds *vds_vopen(dshdr *dsh, int first_line, int nr_lines, int first_cell, int nr_cells,
               const int *bands, int nr_bands, char **errmsg)
{
    if (errmsg != nullptr) *errmsg = nullptr;
    if (dsh == nullptr || dsh->algorithm == nullptr) {
        VLD_setup_error(VLD_ERR_NULL_DSHDR);
        set_errmsg(errmsg, VLD_error_text());
        return nullptr;
    }
    algorithm *copy = nullptr;
    if (cp_algorithm(&copy, dsh->algorithm) != 0 || copy == nullptr) {
        set_errmsg(errmsg, VLD_error_text());
        return nullptr;
    }
    auto fail = [&]() -> Vds * {
        set_errmsg(errmsg, VLD_error_text());
        ef_algorithm(copy);
        return nullptr;
    };
    // The rectangle's corners, in the dataset's space.
    if (copy->top_left == nullptr)
        copy->top_left = static_cast<dscoord *>(malloc_or_die(sizeof(dscoord)));
    if (copy->bottom_right == nullptr)
        copy->bottom_right = static_cast<dscoord *>(malloc_or_die(sizeof(dscoord)));
    if (cvt_cell_to_coord(dsh, first_cell, first_line, copy->top_left) != 0 ||
        cvt_cell_to_coord(dsh, static_cast<double>(first_cell) + nr_cells,
                          static_cast<double>(first_line) + nr_lines, copy->bottom_right) != 0)
        return fail();
    copy->output_width = nr_cells;
    copy->output_height = nr_lines;
    copy->enforce_aspect = 0;
    if (adjust_for_aspect(copy, copy->dots_per_inch_across, copy->dots_per_inch_down) != 0)
        return fail();
    copy->calc_histograms = 0;
    copy->do_optimisation = 1;
    copy->do_compilation = 0;  // no code generator in this build
    copy->output_type = dsh->info.r.cell_type;
    copy->null_value = dsh->info.r.null_value;
    copy->canvas_top_left = *copy->top_left;
    copy->canvas_bottom_right = *copy->bottom_right;
    copy->x_offset = copy->y_offset = 0;

    // Bands that aren't asked for are switched off, stream by stream.
    msinfo *groups = nullptr;
    if (VLD_setup_msinfo(&groups, copy) != 0) return fail();
    int band = 0, selected = 0;
    for (msinfo *g = groups; g != nullptr; g = g->next, band++) {
        bool wanted = false;
        for (int i = 0; i < nr_bands && !wanted; i++)
            wanted = (bands != nullptr ? bands[i] : i) == band;
        if (!wanted)
            for (int i = 0; i < g->nr_streams; i++) g->streams[i]->turned_off = 1;
        selected += wanted ? 1 : 0;
    }
    VLD_free_msinfos(groups);
    // With every layer off the planning would stop at its own check; a band
    // list that selects nothing is said as the dataset layout says it.
    if (selected == 0) {
        VLD_setup_error(VLD_ERR_MESSAGE,
                        "Nothing to output to dataset - all overlays off or invisible\n");
        return fail();
    }

    Vds *vds = vds_open_alg_tods(copy, errmsg, nullptr, nullptr);
    if (vds == nullptr) {
        ef_algorithm(copy);
        return nullptr;
    }
    vds->algorithm = copy;
    vds->owns_algorithm = 1;
    return vds;
}

Vds *vds_open(dshdr *dsh, int first_line, int nr_lines, int first_cell, int nr_cells,
              char **band_names, int nr_bands, char **errmsg)
{
    if (errmsg != nullptr) *errmsg = nullptr;
    if (dsh == nullptr) {
        VLD_setup_error(VLD_ERR_NULL_DSHDR);
        set_errmsg(errmsg, VLD_error_text());
        return nullptr;
    }
    if (dsh->algorithm != nullptr) {
        std::vector<int> numbers(static_cast<size_t>(nr_bands > 0 ? nr_bands : 0));
        for (int i = 0; i < nr_bands; i++)
            numbers[i] = band_names != nullptr && band_names[i] != nullptr
                             ? std::atoi(band_names[i]) - 1
                             : i;
        return vds_vopen(dsh, first_line, nr_lines, first_cell, nr_cells, numbers.data(), nr_bands,
                         errmsg);
    }
    auto *raster = static_cast<rasterfile *>(malloc_or_die(sizeof(rasterfile)));
    std::memset(raster, 0, sizeof *raster);
    raster->fd = -1;
    if (eo_raster(raster, dsh, first_line, nr_lines, first_cell, nr_cells, RASTER_BAND_LIST,
                  nr_bands, band_names) != 0) {
        std::free(raster);
        set_errmsg(errmsg, VLD_error_text());
        return nullptr;
    }
    auto *vds = static_cast<Vds *>(malloc_or_die(sizeof(Vds)));
    std::memset(vds, 0, sizeof *vds);
    vds->raster = raster;
    return vds;
}

/* ---------------------------------------------------------------- a band of lines */

int vds_set_line_range(Vds *vds, int first_line, int nr_lines)
{
    if (vds == nullptr || vds->context == nullptr || vds->context->is_3d)
        return VLD_setup_vds_error("Lines can be chosen only on an open algorithm");
    pe_context *pe = vds->context;
    if (pe_set_line_range(pe, first_line, nr_lines) != 0)
        return VLD_setup_vds_error("%s", pe->error_text);
    return 0;
}

/* ---------------------------------------------------------------- reads */

int vds_read(Vds *vds, void **lines, rlseg **rlsegs, int which)
{
    if (vds == nullptr || vds->context == nullptr) return -1;
    pe_context *pe = vds->context;
    if (pe->is_3d) {
        vds_read_3d_fn read_3d = g_read_3d.load();
        if (read_3d == nullptr) return -1;
        char *text = nullptr;
        const int result = read_3d(pe->handle_3d, &text, lines, rlsegs, which);
        if (result != 0 && result != -1 && text != nullptr) vds->error_text = text;
        return result;
    }
    return read_root(vds, which, [&](funcnode *root) {
        switch (root->type) {
            case FN_VREADTOPP:
                return vreadtopp_read_lines(root, lines, nullptr);
            case FN_VREADTOMSRGBH:
                return vreadtomsrgbh_read_lines(root, lines, nullptr, rlsegs);
            default:
                return vread_read_lines(root, lines, rlsegs);
        }
    });
}

int vds_read_tobuffers(Vds *vds, void **lines)
{
    return vds_read(vds, lines, nullptr, 0);
}

int vds_read_toppbuffers(Vds *vds, void **lines, uint32_t **pp_lines)
{
    return read_root(vds, 0, [&](funcnode *root) {
        return root->type == FN_VREADTOPP ? vreadtopp_read_lines(root, lines, pp_lines)
                                          : vread_read_lines(root, lines, nullptr);
    });
}

int vds_read_to_ms_rgbh(Vds *vds, void **rgb_lines, void **height_lines, rlseg **rlsegs)
{
    return read_root(vds, 0, [&](funcnode *root) {
        return root->type == FN_VREADTOMSRGBH
                   ? vreadtomsrgbh_read_lines(root, rgb_lines, height_lines, rlsegs)
                   : vread_read_lines(root, rgb_lines, rlsegs);
    });
}

int vds_buffers_needed(Vds *vds, uint8_t *needs)
{
    if (vds == nullptr || vds->context == nullptr || needs == nullptr) return 0;
    pe_context *pe = vds->context;
    std::memset(needs, 0, static_cast<size_t>(pe->nr_surfaces) * 12);
    for (int s = 0; s < pe->nr_surfaces; s++) {
        uint8_t *n = needs + static_cast<size_t>(s) * 12;
        n[8] = 1;  // the mask, always
        for (pe_streamgroup *g = pe->groups != nullptr ? pe->groups[s] : nullptr; g != nullptr;
             g = g->next) {
            switch (g->type) {
                case ST_Red:
                case ST_Green:
                case ST_Blue:
                    n[0] = n[1] = n[2] = 1;
                    break;
                case ST_Hue:
                    n[3] = 1;
                    break;
                case ST_Saturation:
                    n[4] = 1;
                    break;
                case ST_Intensity:
                    n[5] = 1;
                    break;
                case ST_Pseudo:
                    n[6] = 1;
                    break;
                case ST_Height:
                    n[7] = 1;
                    break;
                default:
                    break;
            }
        }
        if ((pe->class_groups != nullptr && pe->class_groups[s] != nullptr) ||
            (pe->classdisp_groups != nullptr && pe->classdisp_groups[s] != nullptr))
            n[0] = n[1] = n[2] = 1;
        if (pe->height_groups != nullptr && pe->height_groups[s] != nullptr) n[7] = 1;
        if (pe->link_groups != nullptr && pe->link_groups[s] != nullptr) n[9] = n[10] = n[11] = 1;
    }
    return pe->nr_surfaces;
}

/* ---------------------------------------------------------------- close */

void vds_close(Vds **handle)
{
    if (handle == nullptr || *handle == nullptr) return;
    Vds *vds = *handle;
    pe_context *pe = vds->context;
    if (pe != nullptr && pe->is_3d) {
        if (vds_close_3d_fn close_3d = g_close_3d.load()) close_3d(pe->handle_3d);
        pe->raster_root = pe->vector_root = nullptr;
        pe_destroy_context(pe);
    } else if (pe != nullptr) {
        pe_destroy_context(pe);
        if (vds->owns_algorithm) ef_algorithm(vds->algorithm);
    } else if (vds->raster != nullptr) {
        // A plain dataset's handle: its raster is all it holds.
        ec_raster(vds->raster);
        std::free(vds->raster);
    }
    std::free(vds->error_text);
    std::free(vds);
    *handle = nullptr;
}

void register_file_to_delete_on_close(pe_context *context, const char *path)
{
    if (context == nullptr || path == nullptr) return;
    const int n = context->nr_delete_files;
    auto **files =
        static_cast<char **>(pe_malloc(context, static_cast<int64_t>(n + 1) * sizeof(char *)));
    if (n > 0) std::memcpy(files, context->delete_files, static_cast<size_t>(n) * sizeof(char *));
    files[n] = pe_strsave(context, path);
    if (context->delete_files != nullptr) pe_free(context, context->delete_files);
    context->delete_files = files;
    context->nr_delete_files = n + 1;
}

void pe_init_3d_func_ptrs(vds_open_3d_fn open_fn, vds_read_3d_fn read_fn, vds_close_3d_fn close_fn)
{
    g_open_3d.store(open_fn);
    g_read_3d.store(read_fn);
    g_close_3d.store(close_fn);
}

/* ---------------------------------------------------------------- histograms */

namespace {

/* Histograms are gathered one handle at a time. */
vln_mutex hist_mutex;

struct HistList {
    histogram **items;
    int count;
};

void count_histogram(void *arg, histogram *)
{
    static_cast<HistList *>(arg)->count++;
}

void store_histogram(void *arg, histogram *h)
{
    auto *list = static_cast<HistList *>(arg);
    list->items[list->count++] = h;
}

}  // namespace

histogram **vds_get_histograms(Vds *vds)
{
    if (vds == nullptr || vds->context == nullptr) return nullptr;
    vln::Guard guard(&hist_mutex);
    pe_context *pe = vds->context;
    HistList list{nullptr, 0};
    for (funcnode *root : {pe->raster_root, pe->vector_root})
        collect_hist(root, count_histogram, &list);
    list.items = static_cast<histogram **>(pe_malloc(pe, (list.count + 1) * sizeof(histogram *)));
    list.count = 0;
    for (funcnode *root : {pe->raster_root, pe->vector_root})
        collect_hist(root, store_histogram, &list);
    list.items[list.count] = nullptr;
    return list.items;
}

histogram **vds_get_histograms_copy(Vds *vds)
{
    histogram **list = vds_get_histograms(vds);
    if (list == nullptr) return nullptr;
    int n = 0;
    while (list[n] != nullptr) n++;
    auto **copy = static_cast<histogram **>(malloc_or_die((n + 1) * sizeof(histogram *)));
    for (int i = 0; i < n; i++) {
        copy[i] = nullptr;
        cp_histogram(&copy[i], list[i]);
    }
    copy[n] = nullptr;
    return copy;
}

void vds_free_histograms(histogram **list)
{
    if (list == nullptr) return;
    for (histogram **h = list; *h != nullptr; h++) ef_histogram(*h);
    std::free(list);
}
