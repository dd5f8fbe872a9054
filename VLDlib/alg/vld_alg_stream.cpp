/*
 * vld_alg_stream.cpp: the Stream and StreamInput blocks of an algorithm.
 *
 * A stream is one layer: a dataset, its inputs with their transforms and
 * kernels, a formula, and the output kernels and transforms. A DynamicLink
 * stream is a layer drawn by a link program and carries the program's fields
 * instead. The reader also brings old forms up to date: the vector types 81
 * and 82 become DynamicLink layers, a Dataset is joined to its
 * DatasetDirectory, and a stream without a Formula block gets the default one.
 *
 * Transform chains are doubly linked; the framework links them by `next`, and
 * relink() sets the `prev` links after reading and copying.
 */
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "vld_alg_internal.h"
#include "vld_dshdr_internal.h"
#include "vln_path.h"

namespace {

using vld::as;
using vld::Field;
using vld::keep_status;
using vld::Kind;

/* The filter program of annotation overlays. */
constexpr const char *kVectorFilter = "vlnps_vlvec";

/* Sets every prev link of what hangs on a stream. */
void relink(stream &s)
{
    vld::relink_transforms(s.transforms);
    streaminput *prev = nullptr;
    for (streaminput *in = s.stream_inputs; in; prev = in, in = in->next) {
        in->prev = prev;
        vld::relink_transforms(in->transforms);
    }
}

/* ---------------------------------------------------------------- enums */

enum : uint32_t {
    SM_TURNED_OFF = 1,
    SM_TYPE,
    SM_DESCRIPTION,
    SM_DATASET,
    SM_DATASET_TEXT,
    SM_MENU,
    SM_FILTER,
    SM_LINK_TYPE,
    SM_EXTENT,
    SM_INIT,
    SM_CAN_EDIT,
    SM_EDIT,
    SM_COLOUR_LIST,
    SM_RGB,
    SM_STATIC_SHADE,
    SM_SUN_AZIMUTH,
    SM_SUN_ANGLE,
    SM_SCATTERGRAM,
    SM_INPUT,
    SM_FORMULA,
    SM_KERNEL,
    SM_TRANSFORM,
    /* transients */
    SM_ANNOTATED,
    SM_COLOURS8,
    SM_COLOURS24,
    SM_CLASS8,
    SM_CLASS24,
    SM_SPACE,
    SM_TOP_LEFT,
    SM_BOTTOM_RIGHT,
    SM_MULTIPLE,
    SM_DESIRED,
    SM_POSTSCRIPT,
    /* read only */
    SM_DATATYPE,
    SM_DIRECTORY,
    SM_SURFACE_ID,
    SM_GENERATED
};

}  // namespace

const VLD_ENUM ev_StreamType[] = {{ST_Unknown, "Unknown"},
                                  {ST_Red, "Red"},
                                  {ST_Green, "Green"},
                                  {ST_Blue, "Blue"},
                                  {ST_Hue, "Hue"},
                                  {ST_Saturation, "Saturation"},
                                  {ST_Intensity, "Intensity"},
                                  {ST_Pseudo, "Pseudo"},
                                  {ST_Height, "Height"},
                                  {ST_ClassificationDisplay, "ClassificationDisplay"},
                                  {ST_Classification, "Classification"},
                                  {ST_DynamicLink, "DynamicLink"},
                                  {ST_DatasetBand, "DatasetBand"},
                                  {ST_GeneratedVector, "GeneratedVector"},
                                  {ST_DatasetVector, "DatasetVector"},
                                  {ST_Intensity, "Value"},
                                  {ST_Pseudo, "RTShade"},
                                  {ST_Pseudo, "Shade"},
                                  {ST_Pseudo, "Color"},
                                  {0, nullptr}};

namespace {

const VLD_ENUM ev_LinkType[] = {{LT_Monocolour, "Monocolour"},
                                {LT_TrueColour, "TrueColour"},
                                {LT_Monocolour, "Monocolor"},
                                {LT_TrueColour, "TrueColor"},
                                {0, nullptr}};
const VLD_ENUM ev_Datatype[] = {{1, "Unknown"}, {2, "Raster"}, {3, "Vector"}, {0, nullptr}};
const VLD_ENUM ev_GeneratedVectorType[] = {{1, "Performance"},  {2, "CellGrid"},   {3, "ENGrid"},
                                           {4, "CellTickGrid"}, {5, "ENTickGrid"}, {6, "Regions"},
                                           {7, "LLGrid"},       {8, "LLTickGrid"}, {0, nullptr}};

const VLD_KEYWORD sm_keywords[] = {
    {SM_TURNED_OFF, "TurnedOff", VTYPE_YN, nullptr},
    {SM_TYPE, "Type", VTYPE_ENUM, ev_StreamType},
    {SM_DESCRIPTION, "Description", VTYPE_STRING, nullptr},
    {SM_DATASET, "Dataset", VTYPE_FILENAME, nullptr},
    /* the same keyword, written as a plain text for link parameters */
    {SM_DATASET_TEXT, "Dataset", VTYPE_STRING, nullptr},
    {SM_MENU, "MenuButtonDescription", VTYPE_STRING, nullptr},
    {SM_FILTER, "FilterProgramName", VTYPE_STRING, nullptr},
    {SM_LINK_TYPE, "LinkType", VTYPE_ENUM, ev_LinkType},
    {SM_EXTENT, "FileExtent", VTYPE_STRING, nullptr},
    {SM_INIT, "InitialisationProgram", VTYPE_STRING, nullptr},
    {SM_CAN_EDIT, "CanEdit", VTYPE_YN, nullptr},
    {SM_EDIT, "EditProgram", VTYPE_STRING, nullptr},
    {SM_COLOUR_LIST, "ColourList", VTYPE_LIST, nullptr},
    {SM_RGB, "RGBcolour", VTYPE_BLOCK, nullptr},
    {SM_STATIC_SHADE, "DoStaticShade", VTYPE_YN, nullptr},
    {SM_SUN_AZIMUTH, "SunAzimuth", VTYPE_DMS, nullptr},
    {SM_SUN_ANGLE, "SunAngle", VTYPE_DMS, nullptr},
    {SM_SCATTERGRAM, "IsScattergramRegion", VTYPE_YN, nullptr},
    {SM_INPUT, "StreamInput", VTYPE_BLOCK, nullptr},
    {SM_FORMULA, "Formula", VTYPE_BLOCK, nullptr},
    {SM_KERNEL, "Kernel", VTYPE_BLOCK, nullptr},
    {SM_TRANSFORM, "Transform", VTYPE_BLOCK, nullptr},
    {SM_ANNOTATED, "BeingAnnotated", VTYPE_YN, nullptr},
    {SM_COLOURS8, "ColourList8bit", VTYPE_LIST, nullptr},
    {SM_COLOURS24, "ColourList24bit", VTYPE_LIST, nullptr},
    {SM_CLASS8, "ClassColour8", VTYPE_INT, nullptr},
    {SM_CLASS24, "ClassColour24", VTYPE_TRIPLE, nullptr},
    {SM_SPACE, "CoordinateSpace", VTYPE_BLOCK, nullptr},
    {SM_TOP_LEFT, "TopLeftCorner", VTYPE_BLOCK, nullptr},
    {SM_BOTTOM_RIGHT, "BottomRightCorner", VTYPE_BLOCK, nullptr},
    {SM_MULTIPLE, "MultipleCoordspaces", VTYPE_YN, nullptr},
    {SM_DESIRED, "DesiredCoordinateType", VTYPE_ENUM, ev_CST},
    {SM_POSTSCRIPT, "PostScriptFilename", VTYPE_FILENAME, nullptr},
    {SM_DATATYPE, "Datatype", VTYPE_ENUM, ev_Datatype},
    {SM_DIRECTORY, "DatasetDirectory", VTYPE_STRING, nullptr},
    {SM_SURFACE_ID, "StreamSurfaceId", VTYPE_INT, nullptr},
    {SM_GENERATED, "GeneratedVectorType", VTYPE_ENUM, ev_GeneratedVectorType},
    {0, nullptr, 0, nullptr}};

/* ---------------------------------------------------------------- the state of one read */

/* What a Stream block leaves for its end: the directory of its dataset, the
 * generated vector type of an old form, and whether a formula came. Each read
 * of a stream has its own, as the aux of the read. */
struct StreamRead {
    char *directory = nullptr;
    int32_t generated = 0;
    bool formula_seen = false;
    int colours8 = -1, colours24 = -1; /* colours read into the transient arrays */
    ~StreamRead() { safe_free(directory); }
};

void *new_stream_read(const void *)
{
    return new StreamRead;
}
void free_stream_read(void *state)
{
    delete static_cast<StreamRead *>(state);
}
StreamRead &stream_read(const void *aux)
{
    return vld::read_state<StreamRead>(aux);
}

bool is_link(const stream &s)
{
    return s.type == ST_DynamicLink;
}
bool is_vector_overlay(const stream &s)
{
    return is_link(s) && s.filter_program_name &&
           std::strcmp(s.filter_program_name, kVectorFilter) == 0;
}
bool manages_relative_paths(const stream &s)
{
    return s.file_extent && std::strstr(s.file_extent, "MANAGERELATIVEPATHS");
}

/* The value of a link's parameter string: after "file=" or "dir=", up to the
 * first "|". Sets [begin, end) and returns false when there is none. */
bool parameter_value(const std::string &text, size_t &begin, size_t &end)
{
    size_t at = text.find("file=");
    size_t skip = 5;
    if (at == std::string::npos) {
        at = text.find("dir=");
        skip = 4;
    }
    if (at == std::string::npos) return false;
    begin = at + skip;
    end = text.find('|', begin);
    if (end == std::string::npos) end = text.size();
    return true;
}

/* Rewrites the value of a link's parameter string by `convert` (absolute or
 * relative); a failure leaves the text as it is. */
void convert_parameter(char *&text, int (*convert)(char **, const char *, const char *),
                       const char *parent)
{
    if (!text) return;
    std::string s = text;
    size_t begin, end;
    if (!parameter_value(s, begin, end) || begin == end) return;
    std::string value = s.substr(begin, end - begin);
    char *converted = nullptr;
    if (convert(&converted, parent, value.c_str()) == 0 && converted) {
        s.replace(begin, end - begin, converted);
        vld::replace_text(text, s.c_str());
    }
    safe_free(converted);
}

/* ---------------------------------------------------------------- Dataset */

void read_dataset(vld::ReadContext &ctx, VLD_STATEMENT *st)
{
    stream &s = as<stream>(ctx.record);
    safe_free(s.dataset);
    s.dataset = st->value.s;
    st->value.s = nullptr;
}

void write_dataset(const vld::WriteContext &ctx)
{
    const stream &s = as<stream>(ctx.record);
    if (is_link(s) && manages_relative_paths(s)) {
        char *text = s.dataset ? strsave(s.dataset) : nullptr;
        convert_parameter(text, VLN_build_rel_fspec, VLD_get_parent_path());
        ep_line(&text, SM_DATASET_TEXT, ctx.rec->keywords);
        safe_free(text);
        return;
    }
    if (is_link(s)) {  // a file name, or a word such as "Variable" that stays as it is
        vld::rec_write_line(ctx, &s.dataset);
        return;
    }
    // A dataset named without its extension is written with it.
    char *name = s.dataset ? strsave(s.dataset) : nullptr;
    if (name && *name && !vld::empty_text(s.file_extent)) {
        char *ext = VLN_get_ext(name);
        if (vld::empty_text(ext)) {
            std::string with = std::string(name) + s.file_extent;
            vld::replace_text(name, with.c_str());
        }
        safe_free(ext);
    }
    vld::rec_write_line(ctx, &name);
    safe_free(name);
}

void read_directory(vld::ReadContext &ctx, VLD_STATEMENT *st)
{
    StreamRead &state = stream_read(ctx.aux);
    safe_free(state.directory);
    state.directory = st->value.s;
    st->value.s = nullptr;
}

/* The surface of an old top-level stream; surfaces up to it are made as
 * needed, so a number beyond any real document is refused. */
void read_surface_id(vld::ReadContext &ctx, VLD_STATEMENT *st)
{
    int32_t n = st->value.i;
    if (n < 0 || n > vld::kMaxOldSurfaceId) {
        char text[96];
        std::snprintf(text, sizeof text, "StreamSurfaceId = %d is out of range", n);
        rf_report_error(text);
        return;
    }
    as<stream>(ctx.record).surface_id = n;
}

void read_generated(vld::ReadContext &ctx, VLD_STATEMENT *st)
{
    stream_read(ctx.aux).generated = st->value.i;
}

/* Resolves the dataset name as it was read. */
void resolve_dataset(stream &s, const char *directory)
{
    if (vld::empty_text(s.dataset)) return;
    if (is_link(s) && manages_relative_paths(s)) {
        convert_parameter(s.dataset, VLN_build_abs_fspec, VLD_get_parent_path());
        return;
    }
    if (!vld::empty_text(directory) && !VLN_path_is_abs(s.dataset)) {
        char *joined = nullptr;
        if (VLN_concat_filepath(&joined, directory, s.dataset) == 0 && joined) {
            safe_free(s.dataset);
            s.dataset = joined;
        } else {
            safe_free(joined);
        }
        // Against the document's directory too, as the other file names of
        // the document are.
        char *absolute = nullptr;
        if (VLN_build_abs_fspec(&absolute, VLD_get_parent_path(), s.dataset) == 0 && absolute) {
            safe_free(s.dataset);
            s.dataset = absolute;
        } else {
            safe_free(absolute);
        }
    }
}

/* ---------------------------------------------------------------- colour lists */

/* Reads a list of numbers into a new byte or 16-bit array of `width` values
 * per colour; returns the number of colours, or -1 after a parse error. */
template <class T>
int read_colours(textnode *list, T *&out, int width, const char *keyword)
{
    std::vector<double> values;
    bool ok = vld::list_to_doubles(list, values, keyword);  // takes the list
    if (!ok) return -1;
    if (values.size() % width) {
        char text[120];
        std::snprintf(text, sizeof text, "%s holds %zu values, not a multiple of %d", keyword,
                      values.size(), width);
        rf_report_error(text);
        return -1;
    }
    safe_free(out);
    out = nullptr;
    if (values.empty()) return 0;
    constexpr double top = std::numeric_limits<T>::max();
    for (double v : values)
        if (!(v >= 0 && v <= top)) {
            char text[120];
            std::snprintf(text, sizeof text, "Value out of range in %s: %.17g", keyword, v);
            rf_report_error(text);
            return -1;
        }
    out = static_cast<T *>(malloc_or_die(values.size() * sizeof(T)));
    for (size_t i = 0; i < values.size(); i++) out[i] = static_cast<T>(values[i]);
    return static_cast<int>(values.size() / width);
}

void read_colour_list(vld::ReadContext &ctx, VLD_STATEMENT *st)
{
    stream &s = as<stream>(ctx.record);
    textnode *list = st->value.list;
    st->value.list = nullptr;
    int n = read_colours(list, s.rgb_colours, 3, "ColourList");
    if (n >= 0) s.nr_rgb_colours = n;
}
void write_colour_list(const vld::WriteContext &ctx)
{
    const stream &s = as<stream>(ctx.record);
    textnode *marker = nullptr;
    vld::rec_write_line(ctx, &marker);
    ep_rgb_colours(s.rgb_colours, s.nr_rgb_colours);
}
bool omit_colour_list(const void *r, const void *)
{
    const stream &s = as<stream>(r);
    return s.type != ST_ClassificationDisplay || !s.rgb_colours || s.nr_rgb_colours <= 0;
}

void read_colours8(vld::ReadContext &ctx, VLD_STATEMENT *st)
{
    stream &s = as<stream>(ctx.record);
    textnode *list = st->value.list;
    st->value.list = nullptr;
    stream_read(ctx.aux).colours8 = read_colours(list, s.colours8, 1, "ColourList8bit");
}
void write_colours8(const vld::WriteContext &ctx)
{
    const stream &s = as<stream>(ctx.record);
    textnode *marker = nullptr;
    vld::rec_write_line(ctx, &marker);
    ep_c8_colours(s.colours8, s.nr_rgb_colours);
}
bool omit_colours8(const void *r, const void *)
{
    const stream &s = as<stream>(r);
    return s.type != ST_ClassificationDisplay || !s.colours8 || s.nr_rgb_colours <= 0;
}

void read_colours24(vld::ReadContext &ctx, VLD_STATEMENT *st)
{
    stream &s = as<stream>(ctx.record);
    textnode *list = st->value.list;
    st->value.list = nullptr;
    stream_read(ctx.aux).colours24 = read_colours(list, s.colours24, 3, "ColourList24bit");
}
void write_colours24(const vld::WriteContext &ctx)
{
    const stream &s = as<stream>(ctx.record);
    textnode *marker = nullptr;
    vld::rec_write_line(ctx, &marker);
    ep_c24_colours(s.colours24, s.nr_rgb_colours);
}
bool omit_colours24(const void *r, const void *)
{
    const stream &s = as<stream>(r);
    return s.type != ST_ClassificationDisplay || !s.colours24 || s.nr_rgb_colours <= 0;
}

/* ---------------------------------------------------------------- class colour */

void read_rgb(vld::ReadContext &ctx, VLD_STATEMENT *)
{
    stream &s = as<stream>(ctx.record);
    keep_status(ctx, vld::rec_read(&s.class_colour, nullptr, vld::rgbcolour_record()));
    s.class_colour_set = 1;
}
void write_rgb(const vld::WriteContext &ctx)
{
    vld::rec_write(&as<stream>(ctx.record).class_colour, nullptr, vld::rgbcolour_record(), nullptr,
                   "RGBcolour");
}
bool omit_rgb(const void *r, const void *)
{
    const stream &s = as<stream>(r);
    return !(s.type == ST_Classification || is_link(s)) || !s.class_colour_set;
}
bool omit_class_colour(const void *r, const void *)
{
    const stream &s = as<stream>(r);
    return !(s.type == ST_Classification || is_link(s));
}

void read_class8(vld::ReadContext &ctx, VLD_STATEMENT *st)
{
    as<stream>(ctx.record).class_colour8 = static_cast<uint8_t>(st->value.i);
}
void write_class8(const vld::WriteContext &ctx)
{
    int32_t value = as<stream>(ctx.record).class_colour8;
    vld::rec_write_line(ctx, &value);
}

/* ---------------------------------------------------------------- blocks of the stream */

void read_formula(vld::ReadContext &ctx, VLD_STATEMENT *)
{
    stream &s = as<stream>(ctx.record);
    stream_read(ctx.aux).formula_seen = true;
    vld::rec_free_contents(&s.formula, vld::vld_formula_record());
    keep_status(ctx, vld::rec_read(&s.formula, nullptr, vld::vld_formula_record()));
}
void write_formula(const vld::WriteContext &ctx)
{
    vld::rec_write(&as<stream>(ctx.record).formula, nullptr, vld::vld_formula_record(), nullptr,
                   "Formula");
}

bool omit_for_link(const void *r, const void *)
{
    return is_link(as<stream>(r));
}
bool omit_unless_link(const void *r, const void *)
{
    return !is_link(as<stream>(r));
}
bool omit_turned_off(const void *r, const void *)
{
    return !as<stream>(r).turned_off;
}
bool omit_scattergram(const void *r, const void *)
{
    const stream &s = as<stream>(r);
    return is_link(s) || !s.is_scattergram_region;
}

/* A layer that was never set up has no space to write. */
bool omit_space(const void *r, const void *)
{
    const coordspace &cs = as<stream>(r).coordspace;
    return cs.coordsystype == CST_None && !cs.datum && !cs.projection;
}

/* The stream's own space for its corners. */
const void *own_space(const void *r, const void *)
{
    return &as<stream>(r).coordspace;
}

/* ---------------------------------------------------------------- the record */

void set_default_class_colour(stream &s)
{
    if (s.class_colour_set) return;
    s.class_colour = {65535, 65535, 65535};
    s.class_colour8 = 255;
    std::memset(s.class_colour24, 255, 3);
}

void sm_init(void *r)
{
    stream &s = as<stream>(r);
    double nan = vln_nanval();
    s.top_left = {0.0, 0.0, nan};
    s.bottom_right = {0.0, 0.0, nan};
    s.surface_id = 1;
}

int sm_after_read(void *r, const void *aux)
{
    stream &s = as<stream>(r);
    const StreamRead &state = stream_read(aux);
    // A stream without Type is a pseudocolour layer, as the default stream
    // is; left at 0 it could not be written back.
    if (s.type == 0) s.type = ST_Pseudo;
    vld::upgrade_vector_types(s, state.generated);
    resolve_dataset(s, state.directory);
    if (vld::empty_text(s.file_extent) && !vld::empty_text(s.dataset)) {
        char *ext = VLN_get_ext(s.dataset);
        if (!vld::empty_text(ext)) vld::replace_text(s.file_extent, ext);
        safe_free(ext);
    }
    if (!state.formula_seen) df_formula_noalloc(&s.formula);
    set_default_class_colour(s);
    if (is_vector_overlay(s) && vld::empty_text(s.dataset)) s.turned_off = 1;
    // Transient colour arrays must hold as many colours as ColourList.
    if (s.colours8 && state.colours8 != s.nr_rgb_colours) {
        safe_free(s.colours8);
        s.colours8 = nullptr;
    }
    if (s.colours24 && state.colours24 != s.nr_rgb_colours) {
        safe_free(s.colours24);
        s.colours24 = nullptr;
    }
    // The 24-bit colours follow the 16-bit ones: their top bytes.
    if (s.rgb_colours && s.colours24)
        for (int32_t i = 0; i < 3 * s.nr_rgb_colours; i++)
            s.colours24[i] = static_cast<uint8_t>(s.rgb_colours[i] >> 8);
    relink(s);
    return 0;
}

/* A vector overlay without a dataset is written turned off. */
void sm_before_write(void *r, const void *)
{
    stream &s = as<stream>(r);
    if (is_vector_overlay(s) && vld::empty_text(s.dataset)) s.turned_off = 1;
}

void sm_free_extra(void *r)
{
    stream &s = as<stream>(r);
    safe_free(s.rgb_colours);
    safe_free(s.colours8);
    safe_free(s.colours24);
    s.rgb_colours = nullptr;
    s.colours8 = s.colours24 = nullptr;
    s.nr_rgb_colours = 0;
    ef_dshdr(s.dshdr);
    s.dshdr = nullptr;
}

template <class T>
T *copy_array(const T *from, size_t n)
{
    if (!from || !n) return nullptr;
    T *to = static_cast<T *>(malloc_or_die(n * sizeof(T)));
    std::memcpy(to, from, n * sizeof(T));
    return to;
}

void sm_copy_extra(void *dst, const void *src)
{
    stream &d = as<stream>(dst);
    const stream &s = as<stream>(src);
    d.prev = d.next = nullptr;
    size_t n = s.nr_rgb_colours > 0 ? static_cast<size_t>(s.nr_rgb_colours) : 0;
    d.rgb_colours = copy_array(s.rgb_colours, 3 * n);
    d.colours8 = copy_array(s.colours8, n);
    d.colours24 = copy_array(s.colours24, 3 * n);
    d.dshdr = nullptr;
    cp_dshdr(&d.dshdr, s.dshdr);
    relink(d);
}

bool same_bytes(const void *a, const void *b, size_t n)
{
    if (!a || !b) return a == b || n == 0;
    return std::memcmp(a, b, n) == 0;
}

bool sm_equal_extra(const void *a, const void *b)
{
    const stream &p = as<stream>(a), &q = as<stream>(b);
    if (p.nr_rgb_colours != q.nr_rgb_colours) return false;
    size_t n = p.nr_rgb_colours > 0 ? static_cast<size_t>(p.nr_rgb_colours) : 0;
    return same_bytes(p.rgb_colours, q.rgb_colours, 6 * n) &&
           same_bytes(p.colours8, q.colours8, n) && same_bytes(p.colours24, q.colours24, 3 * n);
}

const Field sm_fields[] = {
    {.code = SM_TURNED_OFF,
     .kind = Kind::YesNo8,
     .offset = offsetof(stream, turned_off),
     .omit = omit_turned_off},
    {.code = SM_TYPE, .kind = Kind::Enum, .offset = offsetof(stream, type)},
    {.code = SM_DESCRIPTION, .kind = Kind::String, .offset = offsetof(stream, description)},
    {.code = SM_DATASET,
     .kind = Kind::Filename,
     .offset = offsetof(stream, dataset),
     .read_only = true},
    {.code = SM_DATASET, .kind = Kind::Custom, .read = read_dataset, .write = write_dataset},
    {.code = SM_MENU,
     .kind = Kind::String,
     .offset = offsetof(stream, menu_button_description),
     .omit = omit_unless_link},
    {.code = SM_FILTER,
     .kind = Kind::String,
     .offset = offsetof(stream, filter_program_name),
     .omit = omit_unless_link},
    {.code = SM_LINK_TYPE,
     .kind = Kind::Enum,
     .offset = offsetof(stream, link_type),
     .omit = omit_unless_link},
    {.code = SM_EXTENT,
     .kind = Kind::String,
     .offset = offsetof(stream, file_extent),
     .omit = omit_unless_link},
    {.code = SM_INIT,
     .kind = Kind::String,
     .offset = offsetof(stream, initialisation_program),
     .omit = omit_unless_link},
    {.code = SM_CAN_EDIT,
     .kind = Kind::YesNo8,
     .offset = offsetof(stream, can_edit),
     .omit = omit_unless_link},
    {.code = SM_EDIT,
     .kind = Kind::String,
     .offset = offsetof(stream, edit_program),
     .omit = omit_unless_link},
    {.code = SM_COLOUR_LIST,
     .kind = Kind::Custom,
     .omit = omit_colour_list,
     .read = read_colour_list,
     .write = write_colour_list},
    {.code = SM_RGB,
     .kind = Kind::Custom,
     .offset = offsetof(stream, class_colour),
     .sub = vld::rgbcolour_record,
     .omit = omit_rgb,
     .read = read_rgb,
     .write = write_rgb},
    {.code = SM_STATIC_SHADE,
     .kind = Kind::YesNo,
     .offset = offsetof(stream, do_static_shade),
     .omit = omit_for_link},
    {.code = SM_SUN_AZIMUTH,
     .kind = Kind::Angle,
     .offset = offsetof(stream, sun_azimuth),
     .omit = omit_for_link},
    {.code = SM_SUN_ANGLE,
     .kind = Kind::Angle,
     .offset = offsetof(stream, sun_angle),
     .omit = omit_for_link},
    {.code = SM_SCATTERGRAM,
     .kind = Kind::YesNo,
     .offset = offsetof(stream, is_scattergram_region),
     .omit = omit_scattergram},
    {.code = SM_INPUT,
     .kind = Kind::BlockList,
     .offset = offsetof(stream, stream_inputs),
     .sub = vld::vld_streaminput_record,
     .omit = omit_for_link},
    {.code = SM_FORMULA,
     .kind = Kind::Custom,
     .offset = offsetof(stream, formula),
     .sub = vld::vld_formula_record,
     .omit = omit_for_link,
     .read = read_formula,
     .write = write_formula},
    {.code = SM_KERNEL,
     .kind = Kind::BlockList,
     .offset = offsetof(stream, kernels),
     .sub = vld::vld_kernel_record,
     .omit = omit_for_link},
    {.code = SM_TRANSFORM,
     .kind = Kind::BlockList,
     .offset = offsetof(stream, transforms),
     .sub = vld::vld_transform_record,
     .omit = omit_for_link},
    /* transients */
    {.code = SM_ANNOTATED,
     .kind = Kind::YesNo,
     .offset = offsetof(stream, being_annotated),
     .transient = true},
    {.code = SM_COLOURS8,
     .kind = Kind::Custom,
     .omit = omit_colours8,
     .transient = true,
     .read = read_colours8,
     .write = write_colours8},
    {.code = SM_COLOURS24,
     .kind = Kind::Custom,
     .omit = omit_colours24,
     .transient = true,
     .read = read_colours24,
     .write = write_colours24},
    {.code = SM_CLASS8,
     .kind = Kind::Custom,
     .omit = omit_class_colour,
     .transient = true,
     .read = read_class8,
     .write = write_class8},
    {.code = SM_CLASS24,
     .kind = Kind::Rgb,
     .offset = offsetof(stream, class_colour24),
     .omit = omit_class_colour,
     .transient = true},
    {.code = SM_SPACE,
     .kind = Kind::Block,
     .offset = offsetof(stream, coordspace),
     .sub = vld::coordspace_record,
     .sub_aux = vld::no_aux,
     .omit = omit_space,
     .transient = true},
    {.code = SM_TOP_LEFT,
     .kind = Kind::Block,
     .offset = offsetof(stream, top_left),
     .sub = vld::dscoord_record,
     .sub_aux = own_space,
     .omit = omit_space,
     .transient = true},
    {.code = SM_BOTTOM_RIGHT,
     .kind = Kind::Block,
     .offset = offsetof(stream, bottom_right),
     .sub = vld::dscoord_record,
     .sub_aux = own_space,
     .omit = omit_space,
     .transient = true},
    {.code = SM_MULTIPLE,
     .kind = Kind::YesNo,
     .offset = offsetof(stream, multiple_coordspaces),
     .transient = true},
    {.code = SM_DESIRED,
     .kind = Kind::Enum,
     .offset = offsetof(stream, desired_coordinate_type),
     .transient = true},
    {.code = SM_POSTSCRIPT,
     .kind = Kind::Filename,
     .offset = offsetof(stream, postscript_filename),
     .transient = true},
    /* read only */
    {.code = SM_DATATYPE, .kind = Kind::Ignore},
    {.code = SM_DIRECTORY, .kind = Kind::Custom, .read_only = true, .read = read_directory},
    {.code = SM_SURFACE_ID,
     .kind = Kind::Custom,
     .offset = offsetof(stream, surface_id),
     .read_only = true,
     .read = read_surface_id},
    {.code = SM_GENERATED, .kind = Kind::Custom, .read_only = true, .read = read_generated},
};

const vld::Record sm_record = {
    .block = "Stream",
    .keywords = sm_keywords,
    .fields = sm_fields,
    .nfields = vld::count_of(sm_fields),
    .size = sizeof(stream),
    .init = sm_init,
    .after_read = sm_after_read,
    .before_write = sm_before_write,
    .free_extra = sm_free_extra,
    .copy_extra = sm_copy_extra,
    .equal_extra = sm_equal_extra,
    .new_read_state = new_stream_read,
    .free_read_state = free_stream_read,
};

}  // namespace

const vld::Record &vld::vld_stream_record()
{
    return sm_record;
}
/* ---------------------------------------------------------------- the family */

int ea_stream(stream **record)
{
    return vld::fam_alloc(record, sm_record);
}
void ef_stream(stream *record)
{
    vld::rec_free(record, sm_record);
}
int cp_stream(stream **copy, const stream *source)
{
    return vld::fam_dup(copy, source, sm_record);
}

int df_stream(stream **record, int type)
{
    if (!record) return VLD_setup_error(VLD_ERR_INTERNAL, "Null structure pointer");
    *record = nullptr;
    bool layer = (type >= ST_Red && type <= ST_Classification) || type == ST_DatasetBand;
    if (!layer && type != ST_DynamicLink) return VLD_setup_error(VLD_ERR_INVALID_STREAM_TYPE);
    stream *s = static_cast<stream *>(vld::rec_alloc(sm_record));
    s->type = type;
    s->turned_off = 1;
    s->dataset = strsave("");
    if (layer) {
        s->description = get_default_layer_description(type, 1);
        df_formula_noalloc(&s->formula);
        s->stream_inputs = vld::default_streaminput();
        int ttype =
            type == ST_Height || type == ST_ClassificationDisplay || type == ST_Classification
                ? TT_HistogramOnly
                : TT_Linear;
        df_transform(&s->transforms, ttype);
    } else {
        s->description = strsave("");
        s->menu_button_description = strsave("");
        s->filter_program_name = strsave("");
        s->file_extent = strsave("");
        s->initialisation_program = strsave("");
        s->edit_program = strsave("");
    }
    set_default_class_colour(*s);
    // kept: the sun's angles are 45.0 as stored, not 45 degrees.
    s->sun_azimuth = 45.0;
    s->sun_angle = 45.0;
    s->surface_id = 1;
    relink(*s);
    *record = s;
    return 0;
}
