/*
 * vld_rasterinfo.cpp: RasterInfo with its BandId blocks, and VectorInfo: the
 * blocks that describe the data of a dataset.
 *
 * The band records of a raster are an array sized by NrOfBands, which must come
 * before the first BandId; further BandId blocks are a parse error. Coordinates
 * inside these blocks read and write by the dataset's coordinate space, which
 * the reader hands down with each block.
 */
#include <cstddef>
#include <cstdio>
#include <cstring>

#include "vld_dshdr_internal.h"

namespace {

using vld::Field;
using vld::Kind;

using vld::as;

using vld::keep_status;

/* More bands than any sensor has; a larger NrOfBands is taken as damage. */
constexpr int32_t kMaxBands = 1 << 20;

/* ---------------------------------------------------------------- BandId */

enum : uint32_t { BI_VALUE = 1, BI_WIDTH, BI_UNITS, BI_COMMENT };

const VLD_KEYWORD bi_keywords[] = {{BI_VALUE, "Value", VTYPE_STRING, nullptr},
                                   {BI_WIDTH, "Width", VTYPE_FLOAT, nullptr},
                                   {BI_UNITS, "Units", VTYPE_STRING, nullptr},
                                   {BI_COMMENT, "Comment", VTYPE_STRING, nullptr},
                                   {0, nullptr, 0, nullptr}};

void write_width(const vld::WriteContext &ctx)
{
    ep_bandwidth(&as<bandid>(ctx.record).width, ctx.field->code, ctx.rec->keywords);
}
bool omit_width(const void *r, const void *)
{
    return as<bandid>(r).width == 0.0;
}

/* The Double field reads and compares the width; the Custom one, found second,
 * only writes it in the band-width form. */
const Field bi_fields[] = {
    {.code = BI_VALUE, .kind = Kind::String, .offset = offsetof(bandid, value)},
    {.code = BI_WIDTH, .kind = Kind::Double, .offset = offsetof(bandid, width), .read_only = true},
    {.code = BI_WIDTH, .kind = Kind::Custom, .omit = omit_width, .write = write_width},
    {.code = BI_UNITS, .kind = Kind::String, .offset = offsetof(bandid, units)},
    {.code = BI_COMMENT, .kind = Kind::String, .offset = offsetof(bandid, comment)},
};

const vld::Record bi_record = {
    .block = "BandId",
    .keywords = bi_keywords,
    .fields = bi_fields,
    .nfields = vld::count_of(bi_fields),
    .size = sizeof(bandid),
};

bool band_is_blank(const bandid &b)
{
    return vld::empty_text(b.value) && b.width == 0.0 && vld::empty_text(b.units) &&
           vld::empty_text(b.comment);
}

/* ---------------------------------------------------------------- RasterInfo */

enum : uint32_t {
    RI_CELL_TYPE = 1,
    RI_NULL_VALUE,
    RI_CELLINFO,
    RI_LINES,
    RI_CELLS,
    RI_REGISTRATION,
    RI_REG_CELL_X,
    RI_REG_CELL_Y,
    RI_BANDS,
    RI_BANDID,
    RI_SENSORINFO,
    RI_WARP,
    RI_REGION,
    RI_CLIPINFO
};

const VLD_KEYWORD ri_keywords[] = {{RI_CELL_TYPE, "CellType", VTYPE_ENUM, ev_CellType},
                                   {RI_NULL_VALUE, "NullCellValue", VTYPE_FLOAT, nullptr},
                                   {RI_CELLINFO, "CellInfo", VTYPE_BLOCK, nullptr},
                                   {RI_LINES, "NrOfLines", VTYPE_INT, nullptr},
                                   {RI_CELLS, "NrOfCellsPerLine", VTYPE_INT, nullptr},
                                   {RI_REGISTRATION, "RegistrationCoord", VTYPE_BLOCK, nullptr},
                                   {RI_REGISTRATION, "Origin", VTYPE_BLOCK, nullptr},
                                   {RI_REG_CELL_X, "RegistrationCellX", VTYPE_FLOAT, nullptr},
                                   {RI_REG_CELL_X, "OriginCellX", VTYPE_FLOAT, nullptr},
                                   {RI_REG_CELL_Y, "RegistrationCellY", VTYPE_FLOAT, nullptr},
                                   {RI_REG_CELL_Y, "OriginCellY", VTYPE_FLOAT, nullptr},
                                   {RI_BANDS, "NrOfBands", VTYPE_INT, nullptr},
                                   {RI_BANDID, "BandId", VTYPE_BLOCK, nullptr},
                                   {RI_SENSORINFO, "SensorInfo", VTYPE_BLOCK, nullptr},
                                   {RI_WARP, "WarpControl", VTYPE_BLOCK, nullptr},
                                   {RI_REGION, "RegionInfo", VTYPE_BLOCK, nullptr},
                                   {RI_CLIPINFO, "ClipInfo", VTYPE_BLOCK, nullptr},
                                   {0, nullptr, 0, nullptr}};

void read_null_value(vld::ReadContext &ctx, VLD_STATEMENT *st)
{
    rasterinfo &r = as<rasterinfo>(ctx.record);
    r.null_value = st->type == VTYPE_INT ? st->value.i : st->value.d;
    r.has_null = 1;
}
void write_null_value(const vld::WriteContext &ctx)
{
    vld::rec_write_line(ctx, &as<rasterinfo>(ctx.record).null_value);
}
bool omit_null_value(const void *r, const void *)
{
    return !as<rasterinfo>(r).has_null;
}

void read_nr_bands(vld::ReadContext &ctx, VLD_STATEMENT *st)
{
    rasterinfo &r = as<rasterinfo>(ctx.record);
    int32_t n = st->value.i;
    if (n < 0 || n > kMaxBands) {
        char text[80];
        std::snprintf(text, sizeof text, "NrOfBands = %d is out of range", n);
        rf_report_error(text);
        return;
    }
    vld::free_bandids(r.bandids, r.nr_bands);
    r.bandids = n ? static_cast<bandid *>(malloc_or_die(n * sizeof(bandid))) : nullptr;
    if (n) std::memset(r.bandids, 0, n * sizeof(bandid));
    r.nr_bands = n;
    ctx.counter = 0;  // the BandId blocks read so far
}
void write_nr_bands(const vld::WriteContext &ctx)
{
    vld::rec_write_line(ctx, &as<rasterinfo>(ctx.record).nr_bands);
}

void read_bandid(vld::ReadContext &ctx, VLD_STATEMENT *)
{
    rasterinfo &r = as<rasterinfo>(ctx.record);
    if (r.nr_bands <= 0 || ctx.counter >= static_cast<size_t>(r.nr_bands)) {
        rf_report_error("Number of bandids > number of bands");
        bandid scratch{};
        keep_status(ctx, vld::rec_read(&scratch, nullptr, bi_record));
        ef_bandid_contents(&scratch);
        return;
    }
    keep_status(ctx, vld::rec_read(&r.bandids[ctx.counter++], nullptr, bi_record));
}

/* Blank band records are left out at the end only: one left out in the middle
 * would shift the bands after it on reading. */
void write_bandids(const vld::WriteContext &ctx)
{
    const rasterinfo &r = as<rasterinfo>(ctx.record);
    int32_t last = r.bandids ? r.nr_bands : 0;
    while (last > 0 && band_is_blank(r.bandids[last - 1])) last--;
    for (int32_t i = 0; i < last; i++)
        vld::rec_write(&r.bandids[i], nullptr, bi_record, nullptr, "BandId");
}

bool omit_registration(const void *r, const void *)
{
    const dscoord &c = as<rasterinfo>(r).registration_coord;
    return c.x == 0.0 && c.y == 0.0;
}
bool omit_registration_cell(const void *r, const void *)
{
    const rasterinfo &ri = as<rasterinfo>(r);
    return ri.registration_cell_x == 0.0 && ri.registration_cell_y == 0.0;
}

void ri_init(void *r)
{
    as<rasterinfo>(r).registration_coord.z = vln_nanval();
}

/* Heights of coordinate blocks are NaN unless given, written or not. */
void ri_before_read(void *r, const void *)
{
    ri_init(r);
}

int ri_after_read(void *r, const void *)
{
    rasterinfo &ri = as<rasterinfo>(r);
    ri.cell_bytes = celltypesize(ri.cell_type);
    setup_cellinfo_defaults(&ri.cellinfo);
    vld::add_all_region(&ri);
    return 0;
}

void ri_free_extra(void *r)
{
    rasterinfo &ri = as<rasterinfo>(r);
    vld::free_bandids(ri.bandids, ri.nr_bands);
    ri.bandids = nullptr;
    ri.nr_bands = 0;
    ef_dshdr(ri.sub_header);
    ri.sub_header = nullptr;
}

void ri_copy_extra(void *dst, const void *src)
{
    rasterinfo &d = as<rasterinfo>(dst);
    const rasterinfo &s = as<rasterinfo>(src);
    d.bandids = vld::copy_bandids(s.bandids, s.nr_bands);
    d.sub_header = nullptr;
    cp_dshdr(&d.sub_header, s.sub_header);
}

bool ri_equal_extra(const void *a, const void *b)
{
    const rasterinfo &p = as<rasterinfo>(a);
    const rasterinfo &q = as<rasterinfo>(b);
    if (p.has_null != q.has_null || (p.has_null && p.null_value != q.null_value)) return false;
    if (p.nr_bands != q.nr_bands) return false;
    for (int32_t i = 0; p.bandids && q.bandids && i < p.nr_bands; i++)
        if (!vld::rec_equal(&p.bandids[i], &q.bandids[i], bi_record)) return false;
    if ((p.bandids == nullptr) != (q.bandids == nullptr)) return false;
    return vld::rec_equal(p.sub_header, q.sub_header, vld::dshdr_record());
}

const Field ri_fields[] = {
    {.code = RI_CELL_TYPE, .kind = Kind::Enum, .offset = offsetof(rasterinfo, cell_type)},
    {.code = RI_NULL_VALUE,
     .kind = Kind::Custom,
     .omit = omit_null_value,
     .read = read_null_value,
     .write = write_null_value},
    {.code = RI_CELLINFO,
     .kind = Kind::Block,
     .offset = offsetof(rasterinfo, cellinfo),
     .sub = vld::vld_cellinfo_record},
    {.code = RI_LINES, .kind = Kind::Int32, .offset = offsetof(rasterinfo, nr_lines)},
    {.code = RI_CELLS, .kind = Kind::Int32, .offset = offsetof(rasterinfo, nr_cells)},
    {.code = RI_REGISTRATION,
     .kind = Kind::Block,
     .offset = offsetof(rasterinfo, registration_coord),
     .sub = vld::dscoord_record,
     .omit = omit_registration},
    {.code = RI_REG_CELL_X,
     .kind = Kind::Double,
     .offset = offsetof(rasterinfo, registration_cell_x),
     .omit = omit_registration_cell},
    {.code = RI_REG_CELL_Y,
     .kind = Kind::Double,
     .offset = offsetof(rasterinfo, registration_cell_y),
     .omit = omit_registration_cell},
    {.code = RI_BANDS, .kind = Kind::Custom, .read = read_nr_bands, .write = write_nr_bands},
    {.code = RI_BANDID, .kind = Kind::Custom, .read = read_bandid, .write = write_bandids},
    {.code = RI_SENSORINFO,
     .kind = Kind::BlockPtr,
     .offset = offsetof(rasterinfo, sensorinfo),
     .sub = vld::sensorinfo_record},
    {.code = RI_WARP,
     .kind = Kind::BlockPtr,
     .offset = offsetof(rasterinfo, warp_control),
     .sub = vld::vld_warp_control_record},
    {.code = RI_REGION,
     .kind = Kind::BlockList,
     .offset = offsetof(rasterinfo, regions),
     .sub = vld::vld_regioninfo_record},
    {.code = RI_CLIPINFO, .kind = Kind::Discard, .sub = vld::vld_clipinfo_record},
};

const vld::Record ri_record = {
    .block = "RasterInfo",
    .keywords = ri_keywords,
    .fields = ri_fields,
    .nfields = vld::count_of(ri_fields),
    .size = sizeof(rasterinfo),
    .init = ri_init,
    .before_read = ri_before_read,
    .after_read = ri_after_read,
    .free_extra = ri_free_extra,
    .copy_extra = ri_copy_extra,
    .equal_extra = ri_equal_extra,
};

/* The short form that a virtual dataset's header carries: what an algorithm
 * can't work out for itself. Written only. */
const Field ri_vds_fields[] = {
    ri_fields[10],  // SensorInfo
    ri_fields[11],  // WarpControl
    ri_fields[12],  // RegionInfo
};

const vld::Record ri_vds_record = {
    .block = "RasterInfo",
    .keywords = ri_keywords,
    .fields = ri_vds_fields,
    .nfields = vld::count_of(ri_vds_fields),
    .size = sizeof(rasterinfo),
};

/* ---------------------------------------------------------------- VectorInfo */

enum : uint32_t {
    VI_TYPE = 1,
    VI_FORMAT,
    VI_EXTENTS,
    VI_XSCALE,
    VI_YSCALE,
    VI_FONTNODE,
    VI_DEFFONT
};

const VLD_ENUM ev_VectorType[] = {
    {VT_NONE, "NONE"}, {VT_UNKNOWN, "UNKNOWN"}, {VT_VLD, "VLD"}, {VT_VLVEC, "VLVEC"}, {0, nullptr}};
const VLD_ENUM ev_VectorFormat[] = {
    {VFF_NONE, "NONE"}, {VFF_ASCII, "ASCII"}, {VFF_BINARY, "BINARY"}, {0, nullptr}};

const VLD_KEYWORD vi_keywords[] = {{VI_TYPE, "Type", VTYPE_ENUM, ev_VectorType},
                                   {VI_FORMAT, "FileFormat", VTYPE_ENUM, ev_VectorFormat},
                                   {VI_EXTENTS, "Extents", VTYPE_BLOCK, nullptr},
                                   {VI_XSCALE, "XScaleFactor", VTYPE_FLOAT, nullptr},
                                   {VI_YSCALE, "YScaleFactor", VTYPE_FLOAT, nullptr},
                                   {VI_FONTNODE, "FontNode", VTYPE_BLOCK, nullptr},
                                   {VI_DEFFONT, "Defaultfont", VTYPE_STRING, nullptr},
                                   {0, nullptr, 0, nullptr}};

const Field vi_fields[] = {
    {.code = VI_TYPE, .kind = Kind::Enum, .offset = offsetof(vectorinfo, type)},
    {.code = VI_FORMAT, .kind = Kind::Enum, .offset = offsetof(vectorinfo, file_format)},
    {.code = VI_EXTENTS,
     .kind = Kind::Block,
     .offset = offsetof(vectorinfo, extents),
     .sub = vld::extents_record},
    {.code = VI_XSCALE, .kind = Kind::Ignore},
    {.code = VI_YSCALE, .kind = Kind::Ignore},
    {.code = VI_FONTNODE, .kind = Kind::Discard, .sub = vld::vld_fontnode_record},
    {.code = VI_DEFFONT, .kind = Kind::Ignore},
};

void vi_init(void *r)
{
    extents &e = as<vectorinfo>(r).extents;
    e.top_left.z = e.bottom_right.z = vln_nanval();
}
void vi_before_read(void *r, const void *)
{
    vi_init(r);
}

/* A VLVEC file is always text; the old VLD form is binary unless it says. */
int vi_after_read(void *r, const void *)
{
    vectorinfo &v = as<vectorinfo>(r);
    if (v.type == VT_VLVEC) v.file_format = VFF_ASCII;
    if (v.type == VT_VLD && v.file_format == VFF_NONE) v.file_format = VFF_BINARY;
    return 0;
}

const vld::Record vi_record = {
    .block = "VectorInfo",
    .keywords = vi_keywords,
    .fields = vi_fields,
    .nfields = vld::count_of(vi_fields),
    .size = sizeof(vectorinfo),
    .init = vi_init,
    .before_read = vi_before_read,
    .after_read = vi_after_read,
};

}  // namespace

/* ---------------------------------------------------------------- shared */

const vld::Record &vld::rasterinfo_record()
{
    return ri_record;
}
const vld::Record &vld::rasterinfo_vds_record()
{
    return ri_vds_record;
}
const vld::Record &vld::bandid_record()
{
    return bi_record;
}
const vld::Record &vld::vectorinfo_record()
{
    return vi_record;
}

void vld::free_bandids(bandid *bands, int count)
{
    if (!bands) return;
    for (int i = 0; i < count; i++) rec_free_contents(&bands[i], bi_record);
    safe_free(bands);
}

bandid *vld::copy_bandids(const bandid *bands, int count)
{
    if (!bands || count <= 0) return nullptr;
    auto *copy = static_cast<bandid *>(malloc_or_die(count * sizeof(bandid)));
    for (int i = 0; i < count; i++) rec_copy(&copy[i], &bands[i], bi_record);
    return copy;
}

/* ---------------------------------------------------------------- rasterinfo */

int ea_rasterinfo(rasterinfo **record)
{
    return vld::fam_alloc(record, ri_record);
}
void ef_rasterinfo(rasterinfo *record)
{
    vld::rec_free(record, ri_record);
}
void ef_rasterinfo_contents(rasterinfo *record)
{
    vld::rec_free_contents(record, ri_record);
}
int ee_rasterinfo(VLD_KEYWORD **array)
{
    return vld::rec_enumerate(array, ri_record);
}
int eg_rasterinfo(rasterinfo **record, const char *file)
{
    return vld::fam_get(record, file, ri_record);
}
int eg_rasterinfo_spec(rasterinfo **record, const char *file, const coordspace *space)
{
    return vld::fam_get(record, file, ri_record, space);
}
int eg_rasterinfo_spec_noalloc(rasterinfo *record, const char *file, const coordspace *space)
{
    return vld::rec_read(record, file, ri_record, space);
}
int ep_rasterinfo(const rasterinfo *record, const char *file)
{
    return vld::rec_write(record, file, ri_record);
}
int ep_rasterinfo_spec(const rasterinfo *record, const char *file, const coordspace *space)
{
    return vld::rec_write(record, file, ri_record, space);
}
int ep_rasterinfo_vds(const rasterinfo *record, const char *file, const coordspace *space)
{
    return vld::rec_write(record, file, ri_vds_record, space);
}
int cp_rasterinfo_noalloc(rasterinfo *copy, const rasterinfo *source)
{
    return vld::fam_copy(copy, source, ri_record);
}

/* ---------------------------------------------------------------- bandid */

int ea_bandid(bandid **record)
{
    return vld::fam_alloc(record, bi_record);
}
void ef_bandid(bandid *record)
{
    vld::rec_free(record, bi_record);
}
void ef_bandid_contents(bandid *record)
{
    vld::rec_free_contents(record, bi_record);
}
int ee_bandid(VLD_KEYWORD **array)
{
    return vld::rec_enumerate(array, bi_record);
}
int eg_bandid(bandid **record, const char *file)
{
    return vld::fam_get(record, file, bi_record);
}
int eg_bandid_noalloc(bandid *record, const char *file)
{
    return vld::rec_read(record, file, bi_record);
}
int ep_bandid(const bandid *record, const char *file)
{
    return vld::rec_write(record, file, bi_record);
}
int cp_bandid_noalloc(bandid *copy, const bandid *source)
{
    return vld::fam_copy(copy, source, bi_record);
}

/* ---------------------------------------------------------------- vectorinfo */

int ea_vectorinfo(vectorinfo **record)
{
    return vld::fam_alloc(record, vi_record);
}
void ef_vectorinfo(vectorinfo *record)
{
    vld::rec_free(record, vi_record);
}
void ef_vectorinfo_contents(vectorinfo *record)
{
    vld::rec_free_contents(record, vi_record);
}
int ee_vectorinfo(VLD_KEYWORD **array)
{
    return vld::rec_enumerate(array, vi_record);
}
int eg_vectorinfo(vectorinfo **record, const char *file)
{
    return vld::fam_get(record, file, vi_record);
}
int eg_vectorinfo_spec(vectorinfo **record, const char *file, const coordspace *space)
{
    return vld::fam_get(record, file, vi_record, space);
}
int eg_vectorinfo_spec_noalloc(vectorinfo *record, const char *file, const coordspace *space)
{
    return vld::rec_read(record, file, vi_record, space);
}
int ep_vectorinfo(const vectorinfo *record, const char *file)
{
    return vld::rec_write(record, file, vi_record);
}
int ep_vectorinfo_spec(const vectorinfo *record, const char *file, const coordspace *space)
{
    return vld::rec_write(record, file, vi_record, space);
}
int cp_vectorinfo_noalloc(vectorinfo *copy, const vectorinfo *source)
{
    return vld::fam_copy(copy, source, vi_record);
}
