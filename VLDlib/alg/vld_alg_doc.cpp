/*
 * vld_alg_doc.cpp: the Algorithm record: its keywords, the members that take
 * special reading or writing (surfaces, old top-level forms, reserved colours,
 * dots per inch, canvas corners), and its free, copy and comparison, which
 * carry the selection over to the copied surfaces and streams.
 *
 * Old documents are read as well: DisplayMode and LookupTable at the top level
 * and Stream blocks outside surfaces are kept in the read state for
 * vld_alg_finish.cpp to place. The family of functions is in vld_alg_io.cpp.
 */
#include <cmath>
#include <cstddef>
#include <cstring>
#include <ctime>
#include <vector>

#include "vld_alg_internal.h"
#include "vld_coords.h"
#include "vln_path.h"

namespace {

using vld::as;
using vld::Field;
using vld::keep_status;
using vld::Kind;

vld::AlgReadState *state_of(const void *aux)
{
    return static_cast<vld::AlgReadState *>(const_cast<void *>(aux));
}

thread_local bool embedded_writing = false;

enum : uint32_t {
    AL_VERSION = 1,
    AL_NAME,
    AL_DESCRIPTION,
    AL_AUTHOR,
    AL_COMMENTS,
    AL_PAGE_VIEW_MODE,
    AL_VIEW_MODE,
    AL_UPDATED,
    AL_BG_SET,
    AL_BG,
    AL_GREYSCALE,
    AL_SPACE,
    AL_TOP_LEFT,
    AL_BOTTOM_RIGHT,
    AL_SUPER_SAMPLING,
    AL_MOSAIC,
    AL_PAGE,
    AL_3D,
    AL_SURFACE,
    /* transients */
    AL_ADJUSTED,
    AL_OUTPUT_HEIGHT,
    AL_OUTPUT_WIDTH,
    AL_CANVAS_HEIGHT,
    AL_CANVAS_WIDTH,
    AL_X_OFFSET,
    AL_Y_OFFSET,
    AL_DPI_ACROSS,
    AL_DPI_DOWN,
    AL_ENFORCE_ASPECT,
    AL_CALC_HIST,
    AL_OPTIMISE,
    AL_COMPILE,
    AL_COLOUR24,
    AL_RESERVED,
    AL_RESERVED24,
    AL_NULL_COLOUR,
    AL_NULL_VALUE,
    AL_STIPPLE,
    AL_STIPPLE24,
    AL_PROCESS_VECTORS,
    AL_OUTPUT_TYPE,
    AL_OUTPUT_FILE,
    AL_CANVAS_TL,
    AL_CANVAS_BR,
    /* read only */
    AL_DISPLAY_MODE,
    AL_LUT,
    AL_STREAM
};

const VLD_ENUM ev_PageViewMode[] = {
    {PVM_Normal, "Normal"}, {PVM_Layout, "Layout"}, {PVM_Contents, "Contents"}, {0, nullptr}};
/* kept: "Plythrough" is how older documents spelled Flythrough; it is read,
 * never written. */
const VLD_ENUM ev_ViewMode[] = {{VM_Planimetric2D, "Planimetric2D"},
                                {VM_Planimetric3D, "Planimetric3D"},
                                {VM_Perspective3D, "Perspective3D"},
                                {VM_Flythrough, "Flythrough"},
                                {VM_EpipolarModel, "EpipolarModel"},
                                {VM_Flythrough, "Plythrough"},
                                {0, nullptr}};
const VLD_ENUM ev_SuperSampling[] = {
    {SS_NearestNeighbour, "NearestNeighbour"}, {SS_Bilinear, "Bilinear"}, {0, nullptr}};
const VLD_ENUM ev_MosaicType[] = {{MT_Overlay, "Overlay"}, {MT_Feather, "Feather"}, {0, nullptr}};
const VLD_ENUM ev_ProcessVectors[] = {{PV_None, "None"},
                                      {PV_MergeWithRaster, "MergeWithRaster"},
                                      {PV_AfterRasterOkay, "AfterRasterOkay"},
                                      {0, nullptr}};

const VLD_KEYWORD al_keywords[] = {
    {AL_VERSION, "Version", VTYPE_STRING, nullptr},
    {AL_NAME, "Name", VTYPE_STRING, nullptr},
    {AL_DESCRIPTION, "Description", VTYPE_STRING, nullptr},
    {AL_AUTHOR, "Author", VTYPE_STRING, nullptr},
    {AL_COMMENTS, "Comments", VTYPE_STRING, nullptr},
    {AL_PAGE_VIEW_MODE, "PageViewMode", VTYPE_ENUM, ev_PageViewMode},
    {AL_VIEW_MODE, "ViewMode", VTYPE_ENUM, ev_ViewMode},
    {AL_UPDATED, "LastUpdated", VTYPE_DATETIME, nullptr},
    {AL_BG_SET, "BackGroundColourSet", VTYPE_YN, nullptr},
    {AL_BG, "BackGroundColour", VTYPE_TRIPLE, nullptr},
    {AL_GREYSCALE, "ConvertToGreyscale", VTYPE_YN, nullptr},
    {AL_SPACE, "CoordinateSpace", VTYPE_BLOCK, nullptr},
    {AL_TOP_LEFT, "TopLeftCorner", VTYPE_BLOCK, nullptr},
    {AL_BOTTOM_RIGHT, "BottomRightCorner", VTYPE_BLOCK, nullptr},
    {AL_SUPER_SAMPLING, "SuperSampling", VTYPE_ENUM, ev_SuperSampling},
    {AL_MOSAIC, "MosaicType", VTYPE_ENUM, ev_MosaicType},
    {AL_PAGE, "PageSize", VTYPE_BLOCK, nullptr},
    {AL_3D, "ThreeDInfo", VTYPE_BLOCK, nullptr},
    {AL_SURFACE, "Surface", VTYPE_BLOCK, nullptr},
    {AL_ADJUSTED, "AdjustedBottomRight", VTYPE_BLOCK, nullptr},
    {AL_OUTPUT_HEIGHT, "OutputHeight", VTYPE_INT, nullptr},
    {AL_OUTPUT_WIDTH, "OutputWidth", VTYPE_INT, nullptr},
    {AL_CANVAS_HEIGHT, "CanvasHeight", VTYPE_INT, nullptr},
    {AL_CANVAS_WIDTH, "CanvasWidth", VTYPE_INT, nullptr},
    {AL_X_OFFSET, "XOffset", VTYPE_INT, nullptr},
    {AL_Y_OFFSET, "YOffset", VTYPE_INT, nullptr},
    {AL_DPI_ACROSS, "DotsPerInchAcross", VTYPE_FLOAT, nullptr},
    {AL_DPI_DOWN, "DotsPerInchDown", VTYPE_FLOAT, nullptr},
    {AL_ENFORCE_ASPECT, "EnforceAspect", VTYPE_YN, nullptr},
    {AL_CALC_HIST, "CalcHistograms", VTYPE_YN, nullptr},
    {AL_OPTIMISE, "DoOptimisation", VTYPE_YN, nullptr},
    {AL_COMPILE, "DoCompilation", VTYPE_YN, nullptr},
    {AL_COLOUR24, "Colour24Flag", VTYPE_YN, nullptr},
    {AL_RESERVED, "ReservedColours", VTYPE_LIST, nullptr},
    {AL_RESERVED24, "ReservedColours24bit", VTYPE_LIST, nullptr},
    {AL_NULL_COLOUR, "NullColour", VTYPE_INT, nullptr},
    {AL_NULL_VALUE, "NullValue", VTYPE_FLOAT, nullptr},
    {AL_STIPPLE, "StippleColour", VTYPE_INT, nullptr},
    {AL_STIPPLE24, "StippleColour24", VTYPE_TRIPLE, nullptr},
    {AL_PROCESS_VECTORS, "ProcessVectors", VTYPE_ENUM, ev_ProcessVectors},
    {AL_OUTPUT_TYPE, "OutputType", VTYPE_ENUM, ev_CellType},
    {AL_OUTPUT_FILE, "OutputFile", VTYPE_FILENAME, nullptr},
    {AL_CANVAS_TL, "CanvasTopLeft", VTYPE_BLOCK, nullptr},
    {AL_CANVAS_BR, "CanvasBottomRight", VTYPE_BLOCK, nullptr},
    {AL_DISPLAY_MODE, "DisplayMode", VTYPE_ENUM, ev_ColorMode},
    {AL_LUT, "LookupTable", VTYPE_STRING, nullptr},
    {AL_STREAM, "Stream", VTYPE_BLOCK, nullptr},
    {0, nullptr, 0, nullptr}};

algorithm &alg_of(void *r)
{
    return as<algorithm>(r);
}
const algorithm &alg_of(const void *r)
{
    return as<algorithm>(r);
}

/* ---------------------------------------------------------------- custom members */

void write_version(const vld::WriteContext &ctx)
{
    const char *version = "7.0";
    vld::rec_write_line(ctx, &version);
}

/* Name is written as the file's stem. */
void write_name(const vld::WriteContext &ctx)
{
    const char *name = alg_of(ctx.record).name;
    char *stem = nullptr;
    if (name && *name) {
        char *file = VLN_get_filename(name);
        stem = VLN_strip_ext(file ? file : name);
        safe_free(file);
    }
    vld::rec_write_line(ctx, &stem);
    safe_free(stem);
}

void read_surface(vld::ReadContext &ctx, VLD_STATEMENT *)
{
    algorithm &a = alg_of(ctx.record);
    auto *s = static_cast<surface *>(vld::rec_alloc(vld::vld_surface_record()));
    auto *last = ctx.last_list == ctx.field ? static_cast<surface *>(ctx.last_element) : nullptr;
    ctx.last_element = vld::append_surface(a, s, last);
    ctx.last_list = ctx.field;
    keep_status(ctx, vld::rec_read(s, nullptr, vld::vld_surface_record()));
}
void write_surfaces(const vld::WriteContext &ctx)
{
    for (const surface *s = alg_of(ctx.record).surfaces; s; s = s->next)
        vld::rec_write(s, nullptr, vld::vld_surface_record(), nullptr, "Surface");
}

void read_display_mode(vld::ReadContext &ctx, VLD_STATEMENT *st)
{
    if (vld::AlgReadState *state = state_of(ctx.aux)) state->old_display_mode = st->value.i;
}
void read_old_lut(vld::ReadContext &ctx, VLD_STATEMENT *st)
{
    if (vld::AlgReadState *state = state_of(ctx.aux)) {
        safe_free(state->old_lookup_table);
        state->old_lookup_table = st->value.s;
        st->value.s = nullptr;
    } else {
        safe_free(st->value.s);
        st->value.s = nullptr;
    }
}
void read_old_stream(vld::ReadContext &ctx, VLD_STATEMENT *)
{
    auto *st = static_cast<stream *>(vld::rec_alloc(vld::vld_stream_record()));
    keep_status(ctx, vld::rec_read(st, nullptr, vld::vld_stream_record()));
    if (vld::AlgReadState *state = state_of(ctx.aux))
        state->old_streams.push_back(st);
    else
        ef_stream(st);
}

/* The reserved colours: 8-bit entries, or triples. */
void read_reserved(vld::ReadContext &ctx, VLD_STATEMENT *st)
{
    algorithm &a = alg_of(ctx.record);
    bool triples = ctx.field->code == AL_RESERVED24;
    textnode *list = st->value.list;
    st->value.list = nullptr;
    std::vector<double> values;  // list_to_doubles takes the list
    bool ok =
        vld::list_to_doubles(list, values, triples ? "ReservedColours24bit" : "ReservedColours");
    if (!ok) return;
    for (double v : values)
        if (!(v >= 0 && v <= 255)) {
            rf_report_error("Value out of range in ReservedColours");
            return;
        }
    size_t n = triples ? values.size() / 3 : values.size();
    // The two lists share one count: one of another length is dropped.
    uint8_t *&other = triples ? a.reserved_colours8 : a.reserved_colours24;
    if (other && static_cast<size_t>(a.reserved_colours) != n) {
        safe_free(other);
        other = nullptr;
    }
    uint8_t *&slot = triples ? a.reserved_colours24 : a.reserved_colours8;
    safe_free(slot);
    slot = nullptr;
    if (n) {
        slot = static_cast<uint8_t *>(malloc_or_die(triples ? 3 * n : n));
        for (size_t i = 0; i < (triples ? 3 * n : n); i++)
            slot[i] = static_cast<uint8_t>(values[i]);
    }
    a.reserved_colours = static_cast<int32_t>(n);
}
void write_reserved(const vld::WriteContext &ctx)
{
    const algorithm &a = alg_of(ctx.record);
    textnode *marker = nullptr;
    vld::rec_write_line(ctx, &marker);
    if (ctx.field->code == AL_RESERVED24)
        ep_rescol24_entries(a.reserved_colours24, a.reserved_colours);
    else
        ep_rescol_entries(a.reserved_colours8, a.reserved_colours);
}
bool omit_reserved(const void *r, const void *)
{
    const algorithm &a = alg_of(r);
    return a.reserved_colours <= 0 || !a.reserved_colours8;
}
bool omit_reserved24(const void *r, const void *)
{
    const algorithm &a = alg_of(r);
    return a.reserved_colours <= 0 || !a.reserved_colours24;
}

/* 8-bit members written as integers. */
template <size_t Offset>
void read_byte(vld::ReadContext &ctx, VLD_STATEMENT *st)
{
    *(reinterpret_cast<uint8_t *>(ctx.record) + Offset) = static_cast<uint8_t>(st->value.i);
}
template <size_t Offset>
void write_byte(const vld::WriteContext &ctx)
{
    int32_t value = *(reinterpret_cast<const uint8_t *>(ctx.record) + Offset);
    vld::rec_write_line(ctx, &value);
}

/* The dots-per-inch values go with transients, and with an algorithm inside a
 * dataset header. */
void read_dpi(vld::ReadContext &ctx, VLD_STATEMENT *st)
{
    vld::AlgReadState *state = state_of(ctx.aux);
    if (!read_transients && !(state && state->embedded)) return;
    double v = st->type == VTYPE_INT ? st->value.i : st->value.d;
    algorithm &a = alg_of(ctx.record);
    (ctx.field->code == AL_DPI_ACROSS ? a.dots_per_inch_across : a.dots_per_inch_down) = v;
}
void write_dpi(const vld::WriteContext &ctx)
{
    const algorithm &a = alg_of(ctx.record);
    vld::rec_write_line(
        ctx, ctx.field->code == AL_DPI_ACROSS ? &a.dots_per_inch_across : &a.dots_per_inch_down);
}
bool omit_dpi(const void *, const void *)
{
    return !write_transients && !embedded_writing;
}

void read_canvas(vld::ReadContext &ctx, VLD_STATEMENT *)
{
    algorithm &a = alg_of(ctx.record);
    dscoord &c = ctx.field->code == AL_CANVAS_TL ? a.canvas_top_left : a.canvas_bottom_right;
    keep_status(ctx, vld::rec_read(&c, nullptr, vld::dscoord_record(), a.coordspace));
    if (vld::AlgReadState *state = state_of(ctx.aux)) state->canvas_seen = true;
}
void write_canvas(const vld::WriteContext &ctx)
{
    const algorithm &a = alg_of(ctx.record);
    bool tl = ctx.field->code == AL_CANVAS_TL;
    vld::rec_write(tl ? &a.canvas_top_left : &a.canvas_bottom_right, nullptr, vld::dscoord_record(),
                   a.coordspace, tl ? "CanvasTopLeft" : "CanvasBottomRight");
}

bool omit_zero_enum(const void *r, const void *)
{
    return alg_of(r).page_view_mode == 0;
}
bool omit_super_sampling(const void *r, const void *)
{
    return alg_of(r).super_sampling == 0;
}
bool omit_3d(const void *r, const void *)
{
    return alg_of(r).d3info.draw_mode == 0;
}

const void *space_aux(const void *, const void *aux)
{
    vld::AlgReadState *state = state_of(aux);
    return state ? &state->cs : nullptr;
}
/* Corners read and write by the algorithm's space. */
const void *alg_space(const void *r, const void *)
{
    return alg_of(r).coordspace;
}

/* ---------------------------------------------------------------- the descriptor */

#define AL(member) offsetof(algorithm, member)

const Field al_fields[] = {
    {.code = AL_VERSION, .kind = Kind::String, .offset = AL(version), .read_only = true},
    {.code = AL_VERSION, .kind = Kind::Custom, .write = write_version},
    {.code = AL_NAME, .kind = Kind::String, .offset = AL(name), .read_only = true},
    {.code = AL_NAME, .kind = Kind::Custom, .write = write_name},
    {.code = AL_DESCRIPTION, .kind = Kind::String, .offset = AL(description)},
    {.code = AL_AUTHOR, .kind = Kind::String, .offset = AL(author)},
    {.code = AL_COMMENTS, .kind = Kind::String, .offset = AL(comments)},
    {.code = AL_PAGE_VIEW_MODE,
     .kind = Kind::Enum,
     .offset = AL(page_view_mode),
     .omit = omit_zero_enum},
    {.code = AL_VIEW_MODE, .kind = Kind::Enum, .offset = AL(view_mode)},
    {.code = AL_UPDATED, .kind = Kind::Time, .offset = AL(last_updated)},
    {.code = AL_BG_SET, .kind = Kind::YesNo, .offset = AL(background_colour_set)},
    {.code = AL_BG, .kind = Kind::Rgb, .offset = AL(background_colour)},
    {.code = AL_GREYSCALE, .kind = Kind::YesNo, .offset = AL(convert_to_greyscale)},
    {.code = AL_SPACE,
     .kind = Kind::BlockPtr,
     .offset = AL(coordspace),
     .sub = vld::coordspace_record,
     .sub_aux = space_aux},
    {.code = AL_TOP_LEFT,
     .kind = Kind::BlockPtr,
     .offset = AL(top_left),
     .sub = vld::dscoord_record,
     .sub_aux = alg_space},
    {.code = AL_BOTTOM_RIGHT,
     .kind = Kind::BlockPtr,
     .offset = AL(bottom_right),
     .sub = vld::dscoord_record,
     .sub_aux = alg_space},
    {.code = AL_SUPER_SAMPLING,
     .kind = Kind::Enum,
     .offset = AL(super_sampling),
     .omit = omit_super_sampling},
    {.code = AL_MOSAIC, .kind = Kind::Enum, .offset = AL(mosaic_type)},
    {.code = AL_PAGE,
     .kind = Kind::Block,
     .offset = AL(page),
     .sub = vld::vld_pagesize_record,
     .sub_aux = alg_space},
    {.code = AL_3D,
     .kind = Kind::Block,
     .offset = AL(d3info),
     .sub = vld::vld_d3info_record,
     .sub_aux = vld::no_aux,
     .omit = omit_3d},
    {.code = AL_SURFACE, .kind = Kind::Custom, .read = read_surface, .write = write_surfaces},
    /* transients */
    {.code = AL_ADJUSTED,
     .kind = Kind::BlockPtr,
     .offset = AL(adjusted_bottom_right),
     .sub = vld::dscoord_record,
     .sub_aux = alg_space,
     .transient = true},
    {.code = AL_OUTPUT_HEIGHT, .kind = Kind::Int32, .offset = AL(output_height), .transient = true},
    {.code = AL_OUTPUT_WIDTH, .kind = Kind::Int32, .offset = AL(output_width), .transient = true},
    {.code = AL_CANVAS_HEIGHT, .kind = Kind::Int32, .offset = AL(canvas_height), .transient = true},
    {.code = AL_CANVAS_WIDTH, .kind = Kind::Int32, .offset = AL(canvas_width), .transient = true},
    {.code = AL_X_OFFSET, .kind = Kind::Int32, .offset = AL(x_offset), .transient = true},
    {.code = AL_Y_OFFSET, .kind = Kind::Int32, .offset = AL(y_offset), .transient = true},
    {.code = AL_DPI_ACROSS,
     .kind = Kind::Custom,
     .omit = omit_dpi,
     .read = read_dpi,
     .write = write_dpi},
    {.code = AL_DPI_DOWN,
     .kind = Kind::Custom,
     .omit = omit_dpi,
     .read = read_dpi,
     .write = write_dpi},
    {.code = AL_ENFORCE_ASPECT,
     .kind = Kind::YesNo,
     .offset = AL(enforce_aspect),
     .transient = true},
    {.code = AL_CALC_HIST, .kind = Kind::YesNo, .offset = AL(calc_histograms), .transient = true},
    {.code = AL_OPTIMISE, .kind = Kind::YesNo, .offset = AL(do_optimisation), .transient = true},
    {.code = AL_COMPILE, .kind = Kind::YesNo, .offset = AL(do_compilation), .transient = true},
    {.code = AL_COLOUR24, .kind = Kind::YesNo, .offset = AL(colour24), .transient = true},
    {.code = AL_RESERVED,
     .kind = Kind::Custom,
     .omit = omit_reserved,
     .transient = true,
     .read = read_reserved,
     .write = write_reserved},
    {.code = AL_RESERVED24,
     .kind = Kind::Custom,
     .omit = omit_reserved24,
     .transient = true,
     .read = read_reserved,
     .write = write_reserved},
    {.code = AL_NULL_COLOUR,
     .kind = Kind::Custom,
     .transient = true,
     .read = read_byte<AL(null_colour)>,
     .write = write_byte<AL(null_colour)>},
    {.code = AL_NULL_VALUE, .kind = Kind::Double, .offset = AL(null_value), .transient = true},
    {.code = AL_STIPPLE,
     .kind = Kind::Custom,
     .transient = true,
     .read = read_byte<AL(stipple_colour)>,
     .write = write_byte<AL(stipple_colour)>},
    {.code = AL_STIPPLE24, .kind = Kind::Rgb, .offset = AL(stipple_colour24), .transient = true},
    {.code = AL_PROCESS_VECTORS,
     .kind = Kind::Enum,
     .offset = AL(process_vectors),
     .transient = true},
    {.code = AL_OUTPUT_TYPE, .kind = Kind::Enum, .offset = AL(output_type), .transient = true},
    {.code = AL_OUTPUT_FILE, .kind = Kind::Filename, .offset = AL(output_file), .transient = true},
    {.code = AL_CANVAS_TL,
     .kind = Kind::Custom,
     .offset = AL(canvas_top_left),
     .sub = vld::dscoord_record,
     .transient = true,
     .read = read_canvas,
     .write = write_canvas},
    {.code = AL_CANVAS_BR,
     .kind = Kind::Custom,
     .offset = AL(canvas_bottom_right),
     .sub = vld::dscoord_record,
     .transient = true,
     .read = read_canvas,
     .write = write_canvas},
    /* read only: the forms before surfaces */
    {.code = AL_DISPLAY_MODE, .kind = Kind::Custom, .read_only = true, .read = read_display_mode},
    {.code = AL_LUT, .kind = Kind::Custom, .read_only = true, .read = read_old_lut},
    {.code = AL_STREAM, .kind = Kind::Custom, .read_only = true, .read = read_old_stream},
};

void al_init(void *r)
{
    algorithm &a = alg_of(r);
    a.is_new = 1;
    double nan = vln_nanval();
    a.canvas_top_left = {0.0, 0.0, nan};
    a.canvas_bottom_right = {0.0, 0.0, nan};
    for (double &e : a.d3info.eye_xyz) e = nan;
    // Heights of corners are NaN unless given, as the corner blocks read them.
    for (extents *e : {&a.page.page_extents, &a.page.content_extents})
        e->top_left.z = e->bottom_right.z = nan;
}

void al_before_write(void *r, const void *)
{
    alg_of(r).last_updated = static_cast<int32_t>(std::time(nullptr));
}

void free_surfaces(surface *s)
{
    while (s) {
        surface *next = s->next;
        ef_surface(s);
        s = next;
    }
}

void al_free_extra(void *r)
{
    algorithm &a = alg_of(r);
    free_surfaces(a.surfaces);
    a.surfaces = nullptr;
    safe_free(a.reserved_colours8);
    safe_free(a.reserved_colours24);
    a.reserved_colours8 = a.reserved_colours24 = nullptr;
    a.reserved_colours = 0;
    a.current_surface = nullptr;
    a.current_stream = nullptr;
    a.intensity_input = a.height_input = nullptr;
    a.intensity_streaminput = a.height_streaminput = nullptr;
}

/* The position of `target` among the streams of the algorithm, surface by
 * surface; -1 when it isn't there. */
template <class T>
int index_of(const algorithm &a, const T *target);

template <>
int index_of(const algorithm &a, const surface *target)
{
    int i = 0;
    for (const surface *s = a.surfaces; s; s = s->next, i++)
        if (s == target) return i;
    return -1;
}
template <>
int index_of(const algorithm &a, const stream *target)
{
    int i = 0;
    for (const surface *s = a.surfaces; s; s = s->next)
        for (const stream *st = s->first_stream; st; st = st->next, i++)
            if (st == target) return i;
    return -1;
}

stream *stream_at(const algorithm &a, int i)
{
    for (surface *s = a.surfaces; s; s = s->next)
        for (stream *st = s->first_stream; st; st = st->next)
            if (i-- == 0) return st;
    return nullptr;
}
streaminput *input_at(const stream *st, int i)
{
    streaminput *in = st ? st->stream_inputs : nullptr;
    while (in && i-- > 0) in = in->next;
    return in;
}
int input_index(const stream *st, const streaminput *target)
{
    int i = 0;
    for (const streaminput *in = st ? st->stream_inputs : nullptr; in; in = in->next, i++)
        if (in == target) return i;
    return -1;
}

void al_copy_extra(void *dst, const void *src)
{
    algorithm &d = alg_of(dst);
    const algorithm &s = alg_of(src);
    d.surfaces = nullptr;
    surface **tail = &d.surfaces, *prev = nullptr;
    for (const surface *sf = s.surfaces; sf; sf = sf->next) {
        surface *copy = nullptr;
        cp_surface(&copy, sf);
        copy->prev = prev;
        *tail = prev = copy;
        tail = &copy->next;
    }
    size_t n = s.reserved_colours > 0 ? static_cast<size_t>(s.reserved_colours) : 0;
    d.reserved_colours8 = nullptr;
    d.reserved_colours24 = nullptr;
    if (s.reserved_colours8 && n) {
        d.reserved_colours8 = static_cast<uint8_t *>(malloc_or_die(n));
        std::memcpy(d.reserved_colours8, s.reserved_colours8, n);
    }
    if (s.reserved_colours24 && n) {
        d.reserved_colours24 = static_cast<uint8_t *>(malloc_or_die(3 * n));
        std::memcpy(d.reserved_colours24, s.reserved_colours24, 3 * n);
    }
    // The selection follows the surfaces and streams to their copies.
    d.current_surface = vld::surface_at(d, index_of(s, s.current_surface));
    d.current_stream = stream_at(d, index_of(s, s.current_stream));
    d.intensity_input = stream_at(d, index_of(s, s.intensity_input));
    d.height_input = stream_at(d, index_of(s, s.height_input));
    d.intensity_streaminput =
        input_at(d.intensity_input, input_index(s.intensity_input, s.intensity_streaminput));
    d.height_streaminput =
        input_at(d.height_input, input_index(s.height_input, s.height_streaminput));
    if (!s.intensity_streaminput) d.intensity_streaminput = nullptr;
    if (!s.height_streaminput) d.height_streaminput = nullptr;
}

bool al_equal_extra(const void *a, const void *b)
{
    const surface *p = alg_of(a).surfaces, *q = alg_of(b).surfaces;
    for (; p && q; p = p->next, q = q->next)
        if (!vld::rec_equal(p, q, vld::vld_surface_record())) return false;
    if (p || q) return false;
    const algorithm &x = alg_of(a), &y = alg_of(b);
    return x.dots_per_inch_across == y.dots_per_inch_across &&
           x.dots_per_inch_down == y.dots_per_inch_down && x.null_colour == y.null_colour &&
           x.stipple_colour == y.stipple_colour && x.reserved_colours == y.reserved_colours;
}

const vld::Record al_record = {
    .block = "Algorithm",
    .keywords = al_keywords,
    .fields = al_fields,
    .nfields = vld::count_of(al_fields),
    .size = sizeof(algorithm),
    .init = al_init,
    .before_write = al_before_write,
    .free_extra = al_free_extra,
    .copy_extra = al_copy_extra,
    .equal_extra = al_equal_extra,
};

}  // namespace

const vld::Record &vld::vld_algorithm_record()
{
    return al_record;
}

bool vld::embedded_write()
{
    return embedded_writing;
}
void vld::set_embedded_write(bool on)
{
    embedded_writing = on;
}
