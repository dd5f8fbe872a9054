/*
 * vld_alg_walk.cpp: counting, finding and walking the members of an algorithm.
 *
 * The engine and the applications reach surfaces, streams, stream inputs,
 * kernels and transforms only through these small functions, so that every
 * caller gets the same answer for a null record: 0, null, or -1 for an index.
 * Nothing here allocates except the layer descriptions, which are new text.
 *
 * Lists run in the reverse of display order (the first stream is drawn last);
 * the words "first" and "last" here are about the lists, not the display.
 */
#include <cstring>

#include "vld_alg.h"

namespace {

/* The stream types, with their default layer descriptions. */
struct LayerName {
    int type;
    const char *description;
};

constexpr LayerName kLayerNames[] = {
    {ST_Red, "Red"},
    {ST_Green, "Green"},
    {ST_Blue, "Blue"},
    {ST_Hue, "Hue"},
    {ST_Saturation, "Saturation"},
    {ST_Intensity, "Intensity"},
    {ST_Pseudo, "Pseudo"},
    {ST_Height, "Height"},
    {ST_ClassificationDisplay, "Class Display"},
    {ST_Classification, "Classification"},
    {ST_DynamicLink, "Annotation"},
};

constexpr const char *kUnknownLayer = "Unknown";
constexpr const char *kLayerWord = " Layer";

const char *layer_name(int type)
{
    for (const LayerName &n : kLayerNames)
        if (n.type == type) return n.description;
    return kUnknownLayer;
}

/* Bits of the display modes 2 (RGB) to 6 (DATASET). */
constexpr unsigned mode_bit(int mode)
{
    return 1u << mode;
}
constexpr unsigned kAnyMode = ~0u;
constexpr unsigned kRGB = mode_bit(CM_RGB), kHSI = mode_bit(CM_HSI), kPSEUDO = mode_bit(CM_PSEUDO),
                   kRTSHADE = mode_bit(CM_RTSHADE), kDATASET = mode_bit(CM_DATASET);

/* The modes in which a stream of each type may take part in a surface. */
struct TypeModes {
    int type;
    unsigned modes;
};

constexpr TypeModes kValidModes[] = {
    {ST_Red, kRGB | kRTSHADE | kDATASET},
    {ST_Green, kRGB | kRTSHADE | kDATASET},
    {ST_Blue, kRGB | kRTSHADE | kDATASET},
    {ST_Hue, kHSI | kRTSHADE | kDATASET},
    {ST_Saturation, kHSI | kRTSHADE | kDATASET},
    {ST_Intensity, kRGB | kHSI | kPSEUDO | kRTSHADE | kDATASET},
    {ST_Pseudo, kPSEUDO | kRTSHADE | kDATASET},
    {ST_Height, kAnyMode},
    {ST_ClassificationDisplay, kAnyMode},
    {ST_Classification, kAnyMode},
    {ST_DynamicLink, kAnyMode},
};

/* The stream types (2 to 12) that a display mode accepts; every listed mode
 * also takes the two old vector types, 81 and 82. */
constexpr unsigned type_bits(int low, int high)
{
    unsigned bits = 0;
    for (int t = low; t <= high; t++) bits |= 1u << t;
    return bits;
}

struct ModeTypes {
    int mode;
    unsigned types;
};

constexpr ModeTypes kAcceptedTypes[] = {
    {CM_RGB, type_bits(ST_Red, ST_Blue) | type_bits(ST_Intensity, ST_Intensity) |
                 type_bits(ST_Height, ST_DynamicLink)},
    {CM_HSI, type_bits(ST_Hue, ST_Intensity) | type_bits(ST_Height, ST_DynamicLink)},
    {CM_PSEUDO, type_bits(ST_Intensity, ST_DynamicLink)},
    {CM_RTSHADE, type_bits(ST_Red, ST_DynamicLink)},
    {CM_DATASET, type_bits(ST_Red, ST_DynamicLink)},
};

bool mode_accepts(const ModeTypes &m, int type)
{
    if (type == ST_DatasetVector || type == ST_GeneratedVector) return true;
    return type >= 0 && type <= ST_DynamicLink && (m.types & (1u << type));
}

bool is_active(const stream *st)
{
    return st->turned_off == 0;
}

bool is_active_raster(const stream *st)
{
    return is_active(st) && st->dshdr && st->type != ST_DynamicLink &&
           st->dshdr->data_type == DT_Raster;
}

/* The first stream from `from` on, along its list, that fits. */
template <typename Pred>
stream *find_from(const stream *from, Pred pred)
{
    for (const stream *st = from; st; st = st->next)
        if (pred(st)) return const_cast<stream *>(st);
    return nullptr;
}

template <typename Pred>
stream *find_in_surface(const surface *s, Pred pred)
{
    return find_from(s ? s->first_stream : nullptr, pred);
}

/* The first stream that fits, over the surfaces that are on. */
template <typename Pred>
stream *find_in_alg_on(const algorithm *alg, Pred pred)
{
    for (const surface *s = alg ? alg->surfaces : nullptr; s; s = s->next)
        if (!s->turned_off)
            if (stream *st = find_in_surface(s, pred)) return st;
    return nullptr;
}

template <typename T>
T *last_of(T *node)
{
    while (node && node->next) node = node->next;
    return node;
}

template <typename T>
int count_of(const T *node)
{
    int n = 0;
    for (; node; node = node->next) n++;
    return n;
}

/* The kernel before `k` in a singly linked chain, or null. */
kernel *kernel_before(kernel *chain, const kernel *k)
{
    if (!k) return nullptr;
    for (; chain; chain = chain->next)
        if (chain->next == k) return chain;
    return nullptr;
}

}  // namespace

/* ---------------------------------------------------------------- counting and finding */

int nr_surfaces_in_alg(const algorithm *alg)
{
    return alg ? count_of(alg->surfaces) : 0;
}

int nr_streams_in_alg(const algorithm *alg)
{
    int n = 0;
    for (const surface *s = alg ? alg->surfaces : nullptr; s; s = s->next)
        n += nr_streams_in_surface(s);
    return n;
}

int nr_streams_in_surface(const surface *s)
{
    return s ? count_of(s->first_stream) : 0;
}

surface *surface_of_stream(const algorithm *alg, const stream *st)
{
    if (!st) return nullptr;
    for (const surface *s = alg ? alg->surfaces : nullptr; s; s = s->next)
        if (find_in_surface(s, [st](const stream *x) { return x == st; }))
            return const_cast<surface *>(s);
    return nullptr;
}

int surface_index_in_alg(const algorithm *alg, const surface *s)
{
    int i = 0;
    if (s)
        for (const surface *x = alg ? alg->surfaces : nullptr; x; x = x->next, i++)
            if (x == s) return i;
    return -1;
}

int stream_id(const stream *st)
{
    int id = 0;
    for (; st; st = st->prev) id++;
    return id;
}

int count_stream_inputs(const stream *st)
{
    return st ? count_of(st->stream_inputs) : 0;
}

streaminput *nth_stream_input(const stream *st, int n)
{
    if (!st || n < 1) return nullptr;
    streaminput *in = st->stream_inputs;
    while (in && --n > 0) in = in->next;
    return in;
}

stream *get_annot_edit_stream(const algorithm *alg)
{
    for (const surface *s = alg ? alg->surfaces : nullptr; s; s = s->next)
        if (stream *st =
                find_in_surface(s, [](const stream *x) { return x->being_annotated != 0; }))
            return st;
    return nullptr;
}

int is_raster_stream(const stream *st)
{
    return st && st->type >= ST_Red && st->type <= ST_Classification;
}

int check_stream_type(int mode, const stream *st)
{
    if (!st) return 0;
    for (const ModeTypes &m : kAcceptedTypes)
        if (m.mode == mode) return mode_accepts(m, st->type) ? 1 : 0;
    return 0;
}

/* ---------------------------------------------------------------- walking streams */

stream *first_stream_in_alg(const algorithm *alg)
{
    return alg && alg->surfaces ? alg->surfaces->first_stream : nullptr;
}

stream *first_stream_in_surface(const surface *s)
{
    return s ? s->first_stream : nullptr;
}

stream *last_stream_in_alg(const algorithm *alg)
{
    return last_stream_in_surface(alg ? last_of(alg->surfaces) : nullptr);
}

stream *last_stream_in_surface(const surface *s)
{
    return s ? last_of(s->first_stream) : nullptr;
}

stream *get_last_stream_in_surface(const surface *s)
{
    return last_stream_in_surface(s);
}

stream *next_stream(const stream *st)
{
    return st ? st->next : nullptr;
}

stream *prev_stream(const stream *st)
{
    return st ? st->prev : nullptr;
}

stream *first_active_stream_in_alg(const algorithm *alg)
{
    return find_in_alg_on(alg, is_active);
}

stream *first_active_stream_in_surface(const surface *s)
{
    return find_in_surface(s, is_active);
}

stream *next_active_stream_in_alg(const algorithm *alg, const stream *st)
{
    const surface *s = surface_of_stream(alg, st);
    if (!s) return nullptr;
    if (stream *hit = find_from(st->next, is_active)) return hit;
    for (s = s->next; s; s = s->next)
        if (!s->turned_off)
            if (stream *hit = find_in_surface(s, is_active)) return hit;
    return nullptr;
}

stream *next_active_stream_in_surface(const surface *, const stream *st)
{
    return st ? find_from(st->next, is_active) : nullptr;
}

stream *first_active_raster_stream_in_alg(const algorithm *alg)
{
    return find_in_alg_on(alg, is_active_raster);
}

stream *first_active_raster_stream_in_Surface(const surface *s)
{
    return find_in_surface(s, is_active_raster);
}

int got_active_intensity_stream_in_alg(const algorithm *alg)
{
    for (const surface *s = alg ? alg->surfaces : nullptr; s; s = s->next)
        if (got_active_intensity_stream_in_surface(s)) return 1;
    return 0;
}

int got_active_intensity_stream_in_surface(const surface *s)
{
    return find_in_surface(s,
                           [](const stream *x) { return is_active(x) && x->type == ST_Intensity; })
               ? 1
               : 0;
}

/* Only the first surface is looked at. Where that surface has no shading
 * stream the answer is null; callers that may meet such a surface ask
 * first_rtshade_stream_in_surface. */
stream *first_rtshade_stream_in_alg(const algorithm *alg)
{
    return first_rtshade_stream_in_surface(alg ? alg->surfaces : nullptr);
}

stream *first_rtshade_stream_in_surface(const surface *s)
{
    return find_in_surface(s, [](const stream *x) { return x->type == ST_Pseudo; });
}

/* ---------------------------------------------------------------- what hangs on a stream */

streaminput *first_stream_input(const stream *st)
{
    return st ? st->stream_inputs : nullptr;
}
streaminput *last_stream_input(const stream *st)
{
    return st ? last_of(st->stream_inputs) : nullptr;
}
streaminput *next_stream_input(const streaminput *in)
{
    return in ? in->next : nullptr;
}
streaminput *prev_stream_input(const streaminput *in)
{
    return in ? in->prev : nullptr;
}

kernel *first_stream_output_kernel(const stream *st)
{
    return st ? st->kernels : nullptr;
}
kernel *last_stream_output_kernel(const stream *st)
{
    return st ? last_of(st->kernels) : nullptr;
}
kernel *next_stream_output_kernel(const kernel *k)
{
    return k ? k->next : nullptr;
}
kernel *prev_stream_output_kernel(const stream *st, const kernel *k)
{
    return st ? kernel_before(st->kernels, k) : nullptr;
}
kernel **p_first_stream_output_kernel(stream *st)
{
    return st ? &st->kernels : nullptr;
}
kernel **p_next_stream_output_kernel(kernel *k)
{
    return k ? &k->next : nullptr;
}

kernel *first_stream_input_kernel(const streaminput *in)
{
    return in ? in->kernels : nullptr;
}
kernel *last_stream_input_kernel(const streaminput *in)
{
    return in ? last_of(in->kernels) : nullptr;
}
kernel *next_stream_input_kernel(const kernel *k)
{
    return k ? k->next : nullptr;
}
kernel *prev_stream_input_kernel(const streaminput *in, const kernel *k)
{
    return in ? kernel_before(in->kernels, k) : nullptr;
}
kernel **p_first_stream_input_kernel(streaminput *in)
{
    return in ? &in->kernels : nullptr;
}
kernel **p_next_stream_input_kernel(kernel *k)
{
    return k ? &k->next : nullptr;
}

transform *first_stream_output_transform(const stream *st)
{
    return st ? st->transforms : nullptr;
}
transform *last_stream_output_transform(const stream *st)
{
    return st ? last_of(st->transforms) : nullptr;
}
transform *next_stream_output_transform(const transform *t)
{
    return t ? t->next : nullptr;
}
transform *prev_stream_output_transform(const transform *t)
{
    return t ? t->prev : nullptr;
}

transform *first_stream_input_transform(const streaminput *in)
{
    return in ? in->transforms : nullptr;
}
transform *last_stream_input_transform(const streaminput *in)
{
    return in ? last_of(in->transforms) : nullptr;
}
transform *next_stream_input_transform(const transform *t)
{
    return t ? t->next : nullptr;
}
transform *prev_stream_input_transform(const transform *t)
{
    return t ? t->prev : nullptr;
}

/* ---------------------------------------------------------------- validity and names */

int stream_is_valid(const stream *st, int mode)
{
    if (!st) return 0;
    for (const TypeModes &t : kValidModes)
        if (t.type == st->type)
            return (t.modes == kAnyMode || (mode >= 0 && mode < 32 && (t.modes & mode_bit(mode))))
                       ? 1
                       : 0;
    return 0;
}

/* The word of a stream type as it is written; VLD_ERR_INVALID_STREAM_TYPE (and a null word) for a
 * value that the table doesn't hold. */
int stream_type_name(const char **name, int type)
{
    if (name) *name = nullptr;
    for (const VLD_ENUM *e = ev_StreamType; e->name; e++)
        if (e->value == type) {
            if (name) *name = e->name;
            return 0;
        }
    return VLD_setup_error(VLD_ERR_INVALID_STREAM_TYPE);
}

char *get_default_layer_description(int type, int with_word)
{
    const char *base = layer_name(type);
    return with_word ? strsave_cat(base, kLayerWord) : strsave(base);
}

/* A description that a user never chose: a copy's, or any type's default. */
static bool is_default_description(const char *text)
{
    if (!text) return false;
    if (VLD_strncasecmp(text, "Copy of", 7) == 0) return true;
    auto matches = [text](const char *base) {
        size_t n = strlen(base);
        return VLD_strcasecmp(text, base) == 0 ||
               (VLD_strncasecmp(text, base, static_cast<int>(n)) == 0 &&
                VLD_strcasecmp(text + n, kLayerWord) == 0);
    };
    for (const LayerName &n : kLayerNames)
        if (matches(n.description)) return true;
    return matches(kUnknownLayer);
}

void check_for_default_layer_desc(stream *st)
{
    if (!st || !is_default_description(st->description)) return;
    safe_free(st->description);
    st->description = get_default_layer_description(st->type, 1);
}
