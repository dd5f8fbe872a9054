/*
 * vld_alg_surface.cpp: the Surface block of an algorithm.
 *
 * A surface is one colour model (ColorMode) over a list of streams, with its
 * lookup table and its 3D scale and offset. Its streams are a doubly linked
 * list, in file order.
 */
#include <cmath>
#include <cstddef>
#include <cstring>

#include "vld_alg_internal.h"

namespace {

using vld::as;
using vld::Field;
using vld::keep_status;
using vld::Kind;

enum : uint32_t {
    SF_NAME = 1,
    SF_TURNED_OFF,
    SF_ZSCALE,
    SF_ZOFFSET,
    SF_TRANSPARENCY,
    SF_COLOR_MODE,
    SF_LUT,
    SF_STREAM,
    SF_ID
};

}  // namespace

const VLD_ENUM ev_ColorMode[] = {{CM_Unknown, "Unknown"},   {CM_RGB, "RGB"},
                                 {CM_HSI, "HSI"},           {CM_PSEUDO, "PSEUDO"},
                                 {CM_RTSHADE, "RTSHADE"},   {CM_DATASET, "DATASET"},
                                 {CM_PSEUDO, "COLORDRAPE"}, {CM_HSI, "HSV"},
                                 {CM_PSEUDO, "SHADE"},      {0, nullptr}};

namespace {

const VLD_KEYWORD sf_keywords[] = {{SF_NAME, "Name", VTYPE_STRING, nullptr},
                                   {SF_TURNED_OFF, "TurnedOff", VTYPE_YN, nullptr},
                                   {SF_ZSCALE, "ZScale", VTYPE_FLOAT, nullptr},
                                   {SF_ZOFFSET, "ZOffset", VTYPE_FLOAT, nullptr},
                                   {SF_TRANSPARENCY, "Transparency", VTYPE_FLOAT, nullptr},
                                   {SF_COLOR_MODE, "ColorMode", VTYPE_ENUM, ev_ColorMode},
                                   {SF_LUT, "LookupTable", VTYPE_STRING, nullptr},
                                   {SF_STREAM, "Stream", VTYPE_BLOCK, nullptr},
                                   {SF_ID, "Id", VTYPE_INT, nullptr},
                                   {0, nullptr, 0, nullptr}};

/* Appends a stream to the surface's list; the search for its end starts at
 * `last` when given, a stream of the list. Returns the stream. */
stream *append(surface &s, stream *st, stream *last = nullptr)
{
    st->next = nullptr;
    st->prev = nullptr;
    if (!s.first_stream) {
        s.first_stream = st;
        return st;
    }
    if (!last) last = s.first_stream;
    while (last->next) last = last->next;
    last->next = st;
    st->prev = last;
    return st;
}

void read_stream(vld::ReadContext &ctx, VLD_STATEMENT *)
{
    surface &s = as<surface>(ctx.record);
    auto *st = static_cast<stream *>(vld::rec_alloc(vld::vld_stream_record()));
    auto *last = ctx.last_list == ctx.field ? static_cast<stream *>(ctx.last_element) : nullptr;
    ctx.last_element = append(s, st, last);
    ctx.last_list = ctx.field;
    keep_status(ctx, vld::rec_read(st, nullptr, vld::vld_stream_record()));
}

/* A vector overlay without a dataset isn't written: nothing would draw it. */
bool left_out(const stream &st)
{
    return st.type == ST_DynamicLink && st.filter_program_name &&
           std::strcmp(st.filter_program_name, "vlnps_vlvec") == 0 && (!st.dataset || !*st.dataset);
}

void write_streams(const vld::WriteContext &ctx)
{
    for (const stream *st = as<surface>(ctx.record).first_stream; st; st = st->next)
        if (!left_out(*st))
            vld::rec_write(st, nullptr, vld::vld_stream_record(), nullptr, "Stream");
}

bool omit_turned_off(const void *r, const void *)
{
    return !as<surface>(r).turned_off;
}
bool omit_zscale(const void *r, const void *)
{
    return std::isnan(as<surface>(r).z_scale);
}
bool omit_zoffset(const void *r, const void *)
{
    return std::isnan(as<surface>(r).z_offset);
}

void sf_init(void *r)
{
    surface &s = as<surface>(r);
    s.z_scale = s.z_offset = vln_nanval();
}

int sf_after_read(void *r, const void *)
{
    surface &s = as<surface>(r);
    if (!s.name || !*s.name) {
        safe_free(s.name);
        s.name = strsave("Surface 1");
    }
    if (s.color_mode == 0 || s.color_mode == CM_Unknown) s.color_mode = CM_PSEUDO;
    if (!s.lookup_table) s.lookup_table = strsave("pseudocolor");
    return 0;
}

void sf_defaults(void *r)
{
    surface &s = as<surface>(r);
    s.name = strsave("Default Surface");
    s.z_scale = s.z_offset = vln_nanval();
    s.transparency = 0.0;
    s.color_mode = CM_PSEUDO;
    s.lookup_table = strsave("pseudocolor");
    stream *st = nullptr;
    df_stream(&st, ST_Pseudo);
    s.first_stream = st;
}

void sf_free_extra(void *r)
{
    surface &s = as<surface>(r);
    for (stream *st = s.first_stream; st;) {
        stream *next = st->next;
        ef_stream(st);
        st = next;
    }
    s.first_stream = nullptr;
}

void sf_copy_extra(void *dst, const void *src)
{
    surface &d = as<surface>(dst);
    d.prev = d.next = nullptr;
    d.first_stream = nullptr;
    stream *last = nullptr;
    for (const stream *st = as<surface>(src).first_stream; st; st = st->next) {
        stream *copy = nullptr;
        cp_stream(&copy, st);
        last = append(d, copy, last);
    }
}

bool sf_equal_extra(const void *a, const void *b)
{
    const stream *p = as<surface>(a).first_stream, *q = as<surface>(b).first_stream;
    for (; p && q; p = p->next, q = q->next)
        if (!vld::rec_equal(p, q, vld::vld_stream_record())) return false;
    return !p && !q;
}

const Field sf_fields[] = {
    {.code = SF_NAME, .kind = Kind::String, .offset = offsetof(surface, name)},
    {.code = SF_TURNED_OFF,
     .kind = Kind::YesNo8,
     .offset = offsetof(surface, turned_off),
     .omit = omit_turned_off},
    {.code = SF_ZSCALE,
     .kind = Kind::Double,
     .offset = offsetof(surface, z_scale),
     .omit = omit_zscale},
    {.code = SF_ZOFFSET,
     .kind = Kind::Double,
     .offset = offsetof(surface, z_offset),
     .omit = omit_zoffset},
    {.code = SF_TRANSPARENCY, .kind = Kind::Double, .offset = offsetof(surface, transparency)},
    {.code = SF_COLOR_MODE, .kind = Kind::Enum, .offset = offsetof(surface, color_mode)},
    {.code = SF_LUT, .kind = Kind::String, .offset = offsetof(surface, lookup_table)},
    {.code = SF_STREAM, .kind = Kind::Custom, .read = read_stream, .write = write_streams},
    {.code = SF_ID, .kind = Kind::Int32, .offset = offsetof(surface, id), .read_only = true},
};

const vld::Record sf_record = {
    .block = "Surface",
    .keywords = sf_keywords,
    .fields = sf_fields,
    .nfields = vld::count_of(sf_fields),
    .size = sizeof(surface),
    .init = sf_init,
    .defaults = sf_defaults,
    .after_read = sf_after_read,
    .free_extra = sf_free_extra,
    .copy_extra = sf_copy_extra,
    .equal_extra = sf_equal_extra,
};

}  // namespace

const vld::Record &vld::vld_surface_record()
{
    return sf_record;
}

stream *vld::append_stream(surface *s, stream *st, stream *last)
{
    return append(*s, st, last);
}

/* ---------------------------------------------------------------- the family */

int ea_surface(surface **record)
{
    return vld::fam_alloc(record, sf_record);
}
void ef_surface(surface *record)
{
    vld::rec_free(record, sf_record);
}
void ef_surface_contents(surface *record)
{
    if (record) vld::rec_free_contents(record, sf_record);
}
int cp_surface(surface **copy, const surface *source)
{
    return vld::fam_dup(copy, source, sf_record);
}
int cp_surface_noalloc(surface *copy, const surface *source)
{
    return vld::fam_copy(copy, source, sf_record);
}
int df_surface(surface **record)
{
    return vld::fam_new_defaults(record, sf_record);
}
int df_surface_noalloc(surface *record)
{
    if (!record) return VLD_setup_error(VLD_ERR_INTERNAL, "Null structure pointer");
    vld::rec_free_contents(record, sf_record);
    sf_init(record);
    vld::rec_defaults(record, sf_record);
    return 0;
}
