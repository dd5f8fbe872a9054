/*
 * vld_alg_default.cpp: the algorithm made for a plain dataset.
 *
 * When a user opens a dataset rather than an algorithm, the library makes a
 * display of it that looks sensible without any choice: a colour composite of
 * the red, green and blue bands of a raster with three bands or more, a
 * greyscale layer of band 1 otherwise, and an annotation overlay for a vector
 * file. The layers' transforms are then fitted to the data by clipping their
 * histograms, in passes that the engine installs.
 */
#include <atomic>
#include <cstdio>
#include <cstring>

#include "vld_alg.h"
#include "vln_path.h"

namespace {

constexpr const char *kColourNames[3] = {"red", "green", "blue"};
constexpr int kColourTypes[3] = {ST_Red, ST_Green, ST_Blue};

/* The band (counted from 1) whose Value names a colour, as "red" or "red
 * layer" without regard to case; `fallback` when none does. */
int band_of_colour(const dshdr *h, const char *colour, int fallback)
{
    const rasterinfo &r = h->info.r;
    char with_word[32];
    snprintf(with_word, sizeof with_word, "%s layer", colour);
    for (int i = 0; r.bandids && i < r.nr_bands; i++) {
        const char *v = r.bandids[i].value;
        if (v && (VLD_strcasecmp(v, colour) == 0 || VLD_strcasecmp(v, with_word) == 0))
            return i + 1;
    }
    return fallback;
}

/* Points the stream's formula at one band. */
void set_band(stream *st, int band)
{
    formula &f = st->formula;
    if (f.nr_args < 1 || !f.args) return;
    char text[16];
    snprintf(text, sizeof text, "%d", band);
    safe_free(f.args[0].band_number);
    f.args[0].band_number = strsave(text);
}

bool is_vector_file(const char *name)
{
    size_t n = strlen(name);
    auto ends = [&](const char *tail) {
        size_t t = strlen(tail);
        return n >= t && VLD_strcasecmp(name + n - t, tail) == 0;
    };
    return ends(".vlv") || ends(".vlv $$ALG");
}

/* Replaces the surface's one stream by an annotation overlay of the file. */
int make_link_layer(algorithm *alg, surface *s, const char *name)
{
    stream *link = nullptr;
    if (int status = df_stream(&link, ST_DynamicLink)) {
        ef_stream(link);
        return status;
    }
    auto set = [](char *&field, const char *value) {
        safe_free(field);
        field = strsave(value);
    };
    set(link->menu_button_description, "Annotation overlay");
    set(link->filter_program_name, "vlnps_vlvec");
    set(link->file_extent, ".vlv");
    set(link->initialisation_program, "vlninit_vld");
    set(link->dataset, name);
    link->can_edit = 1;
    link->turned_off = 0;
    ef_stream(s->first_stream);
    s->first_stream = link;
    alg->current_stream = link;
    return 0;
}

/* Three layers of a colour composite: the first stream becomes the red one
 * and two copies of it the green and blue ones. */
int make_rgb_layers(surface *s, const dshdr *h)
{
    stream *layers[3] = {s->first_stream, nullptr, nullptr};
    for (int i = 1; i < 3; i++)
        if (int status = cp_stream(&layers[i], layers[0])) {
            ef_stream(layers[i]);
            for (int j = 1; j < i; j++) ef_stream(layers[j]);
            return status;
        }
    for (int i = 0; i < 3; i++) {
        stream *st = layers[i];
        st->type = kColourTypes[i];
        safe_free(st->description);
        st->description = get_default_layer_description(st->type, 1);
        set_band(st, band_of_colour(h, kColourNames[i], i + 1));
        st->prev = i > 0 ? layers[i - 1] : nullptr;
        st->next = i < 2 ? layers[i + 1] : nullptr;
    }
    s->color_mode = CM_RGB;
    return 0;
}

/* Puts the dataset's space and extents in the algorithm and remakes the page
 * for them. */
int place_on_dataset(algorithm *alg, const dshdr *h)
{
    dscoord tl{}, br{};
    if (int status = setup_extents_from_dsh(h, &tl, &br)) return status;
    if (!alg->coordspace) ea_coordspace(&alg->coordspace);
    ef_coordspace_contents(alg->coordspace);
    cp_coordspace_noalloc(alg->coordspace, &h->coordspace);
    dscoord **corners[] = {&alg->top_left, &alg->bottom_right, &alg->adjusted_bottom_right};
    const dscoord *values[] = {&tl, &br, &br};
    for (int i = 0; i < 3; i++) {
        if (!*corners[i]) ea_dscoord(corners[i]);
        **corners[i] = *values[i];
    }
    alg->canvas_top_left = alg->canvas_bottom_right = tl;
    // The page of the defaults stood on the default corners: make it anew.
    // A page that can't be worked out keeps the defaults.
    alg->page.page_width = alg->page.page_height = 0.0;
    check_pagesize(alg);
    return 0;
}

int build(algorithm *alg, const char *name, const dshdr *h)
{
    surface *s = alg->surfaces;
    safe_free(alg->name);
    alg->name = strsave(name);
    safe_free(alg->description);
    alg->description = strsave("Algorithm generated from dataset.");
    alg->do_optimisation = 1;
    if (int status = place_on_dataset(alg, h)) return status;

    safe_free(s->lookup_table);
    s->lookup_table = strsave("greyscale");
    alg->current_surface = s;
    s->selected = 1;
    if (is_vector_file(name)) {
        if (int status = make_link_layer(alg, s, name)) return status;
    } else {
        stream *st = s->first_stream;
        st->turned_off = 0;
        safe_free(st->dataset);
        st->dataset = strsave(name);
        alg->current_stream = st;
    }
    stream *first = s->first_stream;
    if (int status = setup_layer_cspace_and_extents(alg, first, 0, name, 1)) return status;
    if (first->type != ST_DynamicLink && h->data_type == DT_Raster && h->info.r.nr_bands > 2)
        return make_rgb_layers(s, h);
    return 0;
}

/* The engine's clipping passes, once it has started. */
std::atomic<VLN_alg_clip_passes_fn> &clip_passes()
{
    static std::atomic<VLN_alg_clip_passes_fn> passes{nullptr};
    return passes;
}

}  // namespace

int VLN_create_algorithm(algorithm **alg, const char *name, double clip, double limit)
{
    if (!alg)
        return VLD_setup_error(VLD_ERR_INTERNAL,
                               "First argument is null in call to VLN_create_default_algorithm");
    *alg = nullptr;
    if (!name || !*name) return VLD_setup_error(VLD_ERR_NULL_FILE_SPEC);
    dshdr *h = nullptr;
    if (eg_dshdr(&h, name) || !h) {
        ef_dshdr(h);
        return VLD_setup_error(VLD_ERR_DEFAULT_STREAM);
    }
    algorithm *a = nullptr;
    int status = df_algorithm(&a);
    if (!status && (!a || !a->surfaces || !a->surfaces->first_stream))
        status = VLD_setup_error(VLD_ERR_DEFAULT_STREAM);
    if (!status) status = build(a, name, h);
    ef_dshdr(h);
    if (status) {
        ef_algorithm(a);
        return status;
    }
    *alg = a;
    if (first_stream_in_alg(a)->type == ST_DynamicLink) return 0;

    // The clipping of the layers' transforms to their histograms reads the
    // algorithm through the engine, which lies above this part.
    VLN_alg_clip_passes_fn passes = clip_passes().load();
    if (passes == nullptr || (clip <= 0 && limit <= 0)) return 0;
    if (int status = passes(a, clip, limit)) {
        ef_algorithm(a);
        *alg = nullptr;
        return status;
    }
    return 0;
}

void VLN_set_alg_clip_passes(VLN_alg_clip_passes_fn passes)
{
    clip_passes().store(passes);
}

int VLN_create_default_algorithm(algorithm **alg, const char *name)
{
    double clip = 99.0, limit = 100.0;
    dshdr *h = nullptr;
    if (alg && name && *name && eg_dshdr(&h, name) == 0 && h && h->data_type == DT_Raster &&
        h->info.r.cellinfo.x_dimension < 10.0 && h->info.r.cellinfo.y_dimension < 10.0)
        clip = limit = 0.0;  // fine cells: shown unclipped
    ef_dshdr(h);
    return VLN_create_algorithm(alg, name, clip, limit);
}

int VLN_create_default_alg_from_dataset_fspec(algorithm **alg, const char *name, double percentage)
{
    if (percentage < 0.1) percentage = 100.0;
    return VLN_create_algorithm(alg, name, percentage, 0.0);
}
