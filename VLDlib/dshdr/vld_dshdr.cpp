/*
 * vld_dshdr.cpp: the DatasetHeader document and the dshdr record.
 *
 * The descriptor here writes a header in the one order every reader expects:
 * the identity of the dataset, its coordinate space, then the description of
 * its data (RasterInfo or VectorInfo, by DataType, sharing one union in the
 * record), then the optional radar, spectrum and algorithm blocks. A virtual
 * dataset's header has a short form, with its algorithm at the end.
 *
 * Reading with its routes (side headers, translated data, algorithms) is in
 * vld_dshdr_read.cpp; this file holds the record, the writers, copies, defaults
 * and camera files.
 */
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

#include "vld_alg.h"
#include "vld_dshdr_internal.h"
#include "vld_worldfile.h"
#include "vln_path.h"
#include "vln_guard_internal.h"

const VLD_ENUM ev_DataSetType[] = {{DST_None, "None"},
                                   {DST_Unknown, "Unknown"},
                                   {DST_VLDStorage, "VLDStorage"},
                                   {DST_BandInterleavedLine, "BandInterleavedLine"},
                                   {DST_IFUT, "IFUT"},
                                   {DST_AImage, "AImage"},
                                   {DST_GeoScanMk2, "GeoScanMk2"},
                                   {DST_Translated, "Translated"},
                                   {0, nullptr}};
const VLD_ENUM ev_DataType[] = {{DT_None, "None"},
                                {DT_Unknown, "Unknown"},
                                {DT_Raster, "Raster"},
                                {DT_Vector, "Vector"},
                                {0, nullptr}};
const VLD_ENUM ev_ByteOrder[] = {
    {BO_None, "None"}, {BO_MSBFirst, "MSBFirst"}, {BO_LSBFirst, "LSBFirst"}, {0, nullptr}};

namespace {

using vld::Field;
using vld::Kind;

dshdr &hdr(void *r)
{
    return *static_cast<dshdr *>(r);
}
const dshdr &hdr(const void *r)
{
    return *static_cast<const dshdr *>(r);
}

vld::DshdrReadState *state_of(const void *aux)
{
    return static_cast<vld::DshdrReadState *>(const_cast<void *>(aux));
}

using vld::keep_status;

enum : uint32_t {
    DH_VERSION = 1,
    DH_NAME,
    DH_DESCRIPTION,
    DH_SOURCE,
    DH_UPDATED,
    DH_DATA_FILE,
    DH_SENSOR_NAME,
    DH_SENSE_DATE,
    DH_OFFSET,
    DH_DATASET_TYPE,
    DH_DATA_TYPE,
    DH_BYTE_ORDER,
    DH_COMMENTS,
    DH_SPACE,
    DH_RASTER,
    DH_VECTOR,
    DH_RADAR,
    DH_FFT,
    DH_ALGORITHM
};

const VLD_KEYWORD dh_keywords[] = {{DH_VERSION, "Version", VTYPE_STRING, nullptr},
                                   {DH_NAME, "Name", VTYPE_FILENAME, nullptr},
                                   {DH_DESCRIPTION, "Description", VTYPE_STRING, nullptr},
                                   {DH_SOURCE, "SourceDataset", VTYPE_FILENAME, nullptr},
                                   {DH_UPDATED, "LastUpdated", VTYPE_DATETIME, nullptr},
                                   {DH_DATA_FILE, "DataFile", VTYPE_FILENAME, nullptr},
                                   {DH_SENSOR_NAME, "SensorName", VTYPE_FILENAME, nullptr},
                                   {DH_SENSE_DATE, "SenseDate", VTYPE_DATETIME, nullptr},
                                   {DH_OFFSET, "HeaderOffset", VTYPE_INT, nullptr},
                                   {DH_DATASET_TYPE, "DataSetType", VTYPE_ENUM, ev_DataSetType},
                                   {DH_DATA_TYPE, "DataType", VTYPE_ENUM, ev_DataType},
                                   {DH_BYTE_ORDER, "ByteOrder", VTYPE_ENUM, ev_ByteOrder},
                                   {DH_COMMENTS, "Comments", VTYPE_STRING, nullptr},
                                   {DH_SPACE, "CoordinateSpace", VTYPE_BLOCK, nullptr},
                                   {DH_RASTER, "RasterInfo", VTYPE_BLOCK, nullptr},
                                   {DH_VECTOR, "VectorInfo", VTYPE_BLOCK, nullptr},
                                   {DH_RADAR, "RadarInfo", VTYPE_BLOCK, nullptr},
                                   {DH_FFT, "FFTInfo", VTYPE_BLOCK, nullptr},
                                   {DH_ALGORITHM, "Algorithm", VTYPE_BLOCK, nullptr},
                                   {0, nullptr, 0, nullptr}};

/* ---------------------------------------------------------------- Version */

/* Kept also for the control point lists further down the same document. */
void read_version(vld::ReadContext &ctx, VLD_STATEMENT *st)
{
    dshdr &d = hdr(ctx.record);
    safe_free(d.version);
    d.version = st->value.s;
    st->value.s = nullptr;
    vld::set_document_version(d.version ? d.version : "");
}

void write_version(const vld::WriteContext &ctx)
{
    const dshdr &d = hdr(ctx.record);
    const char *version = d.keep_version ? d.version : DSHDR_CURRENT_VERSION;
    vld::rec_write_line(ctx, &version);
}

/* ---------------------------------------------------------------- DataType and the info union */

/* Switches the union to another kind of data, dropping what it held. */
void set_data_type(dshdr &d, int32_t type)
{
    if (d.data_type == type) return;
    if (d.data_type == DT_Raster) vld::rec_free_contents(&d.info.r, vld::rasterinfo_record());
    std::memset(&d.info, 0, sizeof d.info);
    d.data_type = type;
}

void read_data_type(vld::ReadContext &ctx, VLD_STATEMENT *st)
{
    dshdr &d = hdr(ctx.record);
    vld::DshdrReadState *state = state_of(ctx.aux);
    int32_t type = st->value.i;
    if (type == d.data_type) return;
    if (state && (state->raster_seen || state->vector_seen)) {
        rf_report_error(state->raster_seen
                            ? "DataType doesn't match the RasterInfo block before it"
                            : "DataType doesn't match the VectorInfo block before it");
        return;
    }
    set_data_type(d, type);
}

void write_data_type(const vld::WriteContext &ctx)
{
    vld::rec_write_line(ctx, &hdr(ctx.record).data_type);
}

/* Reads an info block that contradicts the header into a scratch record, so
 * that the reading can go on to report further faults. */
template <class T>
void discard_info(vld::ReadContext &ctx, const vld::Record &r, const char *message)
{
    rf_report_error(message);
    T scratch{};
    keep_status(ctx, vld::rec_read(&scratch, nullptr, r, &hdr(ctx.record).coordspace));
    vld::rec_free_contents(&scratch, r);
}

void read_raster(vld::ReadContext &ctx, VLD_STATEMENT *)
{
    dshdr &d = hdr(ctx.record);
    vld::DshdrReadState *state = state_of(ctx.aux);
    if (d.data_type == DT_Vector || (state && state->vector_seen)) {
        discard_info<rasterinfo>(ctx, vld::rasterinfo_record(), "RasterInfo in a vector dataset");
        return;
    }
    set_data_type(d, DT_Raster);
    if (state) state->raster_seen = true;
    keep_status(ctx, vld::rec_read(&d.info.r, nullptr, vld::rasterinfo_record(), &d.coordspace));
}

void read_vector(vld::ReadContext &ctx, VLD_STATEMENT *)
{
    dshdr &d = hdr(ctx.record);
    vld::DshdrReadState *state = state_of(ctx.aux);
    if (d.data_type == DT_Raster || (state && state->raster_seen)) {
        discard_info<vectorinfo>(ctx, vld::vectorinfo_record(), "VectorInfo in a raster dataset");
        return;
    }
    set_data_type(d, DT_Vector);
    if (state) state->vector_seen = true;
    keep_status(ctx, vld::rec_read(&d.info.v, nullptr, vld::vectorinfo_record(), &d.coordspace));
}

void write_raster(const vld::WriteContext &ctx)
{
    const dshdr &d = hdr(ctx.record);
    if (d.data_type == DT_Raster)
        vld::rec_write(&d.info.r, nullptr, vld::rasterinfo_record(), &d.coordspace, "RasterInfo");
}

void write_raster_vds(const vld::WriteContext &ctx)
{
    const dshdr &d = hdr(ctx.record);
    if (d.data_type == DT_Raster)
        vld::rec_write(&d.info.r, nullptr, vld::rasterinfo_vds_record(), &d.coordspace,
                       "RasterInfo");
}

void write_vector(const vld::WriteContext &ctx)
{
    const dshdr &d = hdr(ctx.record);
    if (d.data_type == DT_Vector)
        vld::rec_write(&d.info.v, nullptr, vld::vectorinfo_record(), &d.coordspace, "VectorInfo");
}

/* ---------------------------------------------------------------- Algorithm */

void read_algorithm(vld::ReadContext &ctx, VLD_STATEMENT *)
{
    if (vld::DshdrReadState *state = state_of(ctx.aux)) state->algorithm_seen = true;
    keep_status(ctx, vld::read_embedded_algorithm(&hdr(ctx.record).algorithm));
}

void write_algorithm(const vld::WriteContext &ctx)
{
    vld::write_embedded_algorithm(hdr(ctx.record).algorithm);
}

/* ---------------------------------------------------------------- omissions and auxiliary
 * arguments */

bool omit_data_file(const void *r, const void *)
{
    const dshdr &d = hdr(r);
    if (d.dataset_type == DST_Translated || write_transients || !d.name) return false;
    char *stem = VLN_strip_ext(d.name);
    bool same = vld::same_file(d.data_file, stem, d.name);
    safe_free(stem);
    return same;
}
bool omit_sense_date(const void *r, const void *)
{
    return hdr(r).sense_date == 0;
}
bool omit_offset(const void *r, const void *)
{
    return hdr(r).header_offset == 0;
}

/* Old versions knew no spectra: a header kept at one of them gets none. */
bool omit_fft(const void *r, const void *)
{
    const dshdr &d = hdr(r);
    if (d.fftinfo.frequency_level <= 0) return true;
    return d.keep_version && !(d.version && std::atof(d.version) > 4.1);
}

const void *space_aux(const void *, const void *aux)
{
    vld::DshdrReadState *state = state_of(aux);
    return state ? &state->cs : nullptr;
}
const void *own_space(const void *r, const void *)
{
    return &hdr(r).coordspace;
}

/* ---------------------------------------------------------------- the descriptor */

#define DH_OFFSET_OF(member) offsetof(dshdr, member)

const Field f_version = {
    .code = DH_VERSION, .kind = Kind::Custom, .read = read_version, .write = write_version};
/* Not written (f_version does that): frees, copies and compares the text. */
const Field f_version_text = {
    .code = DH_VERSION, .kind = Kind::String, .offset = DH_OFFSET_OF(version), .read_only = true};
const Field f_name = {.code = DH_NAME, .kind = Kind::Filename, .offset = DH_OFFSET_OF(name)};
const Field f_description = {
    .code = DH_DESCRIPTION, .kind = Kind::String, .offset = DH_OFFSET_OF(description)};
const Field f_source = {
    .code = DH_SOURCE, .kind = Kind::Filename, .offset = DH_OFFSET_OF(source_dataset)};
const Field f_updated = {
    .code = DH_UPDATED, .kind = Kind::Time, .offset = DH_OFFSET_OF(last_updated)};
const Field f_data_file = {.code = DH_DATA_FILE,
                           .kind = Kind::Filename,
                           .offset = DH_OFFSET_OF(data_file),
                           .omit = omit_data_file};
const Field f_sensor_name = {
    .code = DH_SENSOR_NAME, .kind = Kind::Filename, .offset = DH_OFFSET_OF(sensor_name)};
const Field f_sense_date = {.code = DH_SENSE_DATE,
                            .kind = Kind::Time,
                            .offset = DH_OFFSET_OF(sense_date),
                            .omit = omit_sense_date};
const Field f_offset = {.code = DH_OFFSET,
                        .kind = Kind::Int32,
                        .offset = DH_OFFSET_OF(header_offset),
                        .omit = omit_offset};
const Field f_dataset_type = {
    .code = DH_DATASET_TYPE, .kind = Kind::Enum, .offset = DH_OFFSET_OF(dataset_type)};
const Field f_data_type = {
    .code = DH_DATA_TYPE, .kind = Kind::Custom, .read = read_data_type, .write = write_data_type};
const Field f_byte_order = {
    .code = DH_BYTE_ORDER, .kind = Kind::Enum, .offset = DH_OFFSET_OF(byte_order)};
const Field f_comments = {
    .code = DH_COMMENTS, .kind = Kind::String, .offset = DH_OFFSET_OF(comments)};
const Field f_space = {.code = DH_SPACE,
                       .kind = Kind::Block,
                       .offset = DH_OFFSET_OF(coordspace),
                       .sub = vld::coordspace_record,
                       .sub_aux = space_aux};
const Field f_raster = {
    .code = DH_RASTER, .kind = Kind::Custom, .read = read_raster, .write = write_raster};
const Field f_raster_vds = {
    .code = DH_RASTER, .kind = Kind::Custom, .read = read_raster, .write = write_raster_vds};
const Field f_vector = {
    .code = DH_VECTOR, .kind = Kind::Custom, .read = read_vector, .write = write_vector};
const Field f_radar = {.code = DH_RADAR,
                       .kind = Kind::Block,
                       .offset = DH_OFFSET_OF(radarinfo),
                       .sub = vld::radarinfo_record,
                       .sub_aux = vld::no_aux};
const Field f_fft = {.code = DH_FFT,
                     .kind = Kind::Block,
                     .offset = DH_OFFSET_OF(fftinfo),
                     .sub = vld::fftinfo_record,
                     .sub_aux = own_space,
                     .omit = omit_fft};
const Field f_algorithm = {
    .code = DH_ALGORITHM, .kind = Kind::Custom, .read = read_algorithm, .write = write_algorithm};

const Field dh_fields[] = {
    f_version,     f_version_text, f_name,   f_description,  f_source,    f_updated,    f_data_file,
    f_sensor_name, f_sense_date,   f_offset, f_dataset_type, f_data_type, f_byte_order, f_comments,
    f_space,       f_raster,       f_vector, f_radar,        f_fft,       f_algorithm};

const Field dh_vds_fields[] = {f_version, f_version_text, f_name,       f_description, f_source,
                               f_updated, f_comments,     f_raster_vds, f_algorithm};

void dh_before_read(void *, const void *)
{
    vld::set_document_version(nullptr);
}

int dh_after_read(void *r, const void *)
{
    dshdr &d = hdr(r);
    if (d.data_type == DT_Raster) setup_cellinfo_defaults(&d.info.r.cellinfo);
    return 0;
}

/* The time of writing is stamped into the caller's record, and a header
 * without a byte order gets the host's. */
void dh_before_write(void *r, const void *)
{
    dshdr &d = hdr(r);
    d.last_updated = static_cast<int32_t>(std::time(nullptr));
    if (d.byte_order == BO_None) d.byte_order = byteorder();
}

void dh_free_extra(void *r)
{
    dshdr &d = hdr(r);
    if (d.data_type == DT_Raster) vld::rec_free_contents(&d.info.r, vld::rasterinfo_record());
    std::memset(&d.info, 0, sizeof d.info);
    const vld::DshdrHooks &hooks = vld::dshdr_hooks();
    if (d.raster_features && hooks.free_raster_features)
        hooks.free_raster_features(d.raster_features);
    d.raster_features = nullptr;
    ef_algorithm(d.algorithm);
    d.algorithm = nullptr;
    ef_dshdr(d.source_dsh);
    d.source_dsh = nullptr;
}

void dh_copy_extra(void *dst, const void *src)
{
    dshdr &d = hdr(dst);
    const dshdr &s = hdr(src);
    if (s.data_type == DT_Raster) vld::rec_copy(&d.info.r, &s.info.r, vld::rasterinfo_record());
    const vld::DshdrHooks &hooks = vld::dshdr_hooks();
    d.raster_features = s.raster_features && hooks.copy_raster_features
                            ? hooks.copy_raster_features(s.raster_features)
                            : nullptr;
    d.algorithm = nullptr;
    cp_algorithm_all(&d.algorithm, s.algorithm);
    d.source_dsh = nullptr;
    cp_dshdr(&d.source_dsh, s.source_dsh);
}

bool dh_equal_extra(const void *a, const void *b)
{
    const dshdr &p = hdr(a), &q = hdr(b);
    if (p.data_type != q.data_type || p.keep_version != q.keep_version) return false;
    if (p.data_type == DT_Raster && !vld::rec_equal(&p.info.r, &q.info.r, vld::rasterinfo_record()))
        return false;
    if (p.data_type == DT_Vector && !vld::rec_equal(&p.info.v, &q.info.v, vld::vectorinfo_record()))
        return false;
    if ((p.algorithm == nullptr) != (q.algorithm == nullptr)) return false;
    return vld::rec_equal(p.source_dsh, q.source_dsh, vld::dshdr_record());
}

const vld::Record dh_record = {
    .block = "DatasetHeader",
    .keywords = dh_keywords,
    .fields = dh_fields,
    .nfields = vld::count_of(dh_fields),
    .size = sizeof(dshdr),
    .before_read = dh_before_read,
    .after_read = dh_after_read,
    .before_write = dh_before_write,
    .free_extra = dh_free_extra,
    .copy_extra = dh_copy_extra,
    .equal_extra = dh_equal_extra,
};

/* The short form: written only. */
const vld::Record dh_vds_record = {
    .block = "DatasetHeader",
    .keywords = dh_keywords,
    .fields = dh_vds_fields,
    .nfields = vld::count_of(dh_vds_fields),
    .size = sizeof(dshdr),
    .before_write = dh_before_write,
};

/* A raster header as the defaults describe it, without bands. */
void setup_raster(dshdr &d, const char *name)
{
    vld::replace_text(d.name, name);
    safe_free(d.data_file);
    d.data_file = name ? VLN_strip_ext(name) : nullptr;
    d.dataset_type = DST_VLDStorage;
    d.byte_order = byteorder();
    df_coordspace_noalloc(&d.coordspace);
    set_data_type(d, DT_Raster);
    d.info.r.registration_coord.z = vln_nanval();
    setup_cellinfo_defaults(&d.info.r.cellinfo);
}

int write_header(dshdr *d, const char *name, const vld::Record &r)
{
    if (!d) return VLD_setup_error(VLD_ERR_INTERNAL, "Null structure pointer");
    vln::Guard lock(&vld_bt::vld_mutex);
    char *translated = nullptr;
    if (name && d->dataset_type == DST_Translated) {
        translated = VLN_replace_ext(name, ".vld");
        vld::replace_text(d->name, translated);
        name = translated;
    }
    if (name && (!d->name || !*d->name)) vld::replace_text(d->name, name);
    int status = vld::rec_write(d, name, r);
    if (!status && name && std::strcmp(name, "-") != 0 && d->data_type == DT_Raster) {
        // Statistics beside the header describe the data as it was.
        char *stats = VLN_replace_ext(name, ".stats");
        if (stats && fileexists(stats)) vln_rmfile(stats);
        safe_free(stats);
    }
    // A translated dataset keeps its registration in a world file too, when
    // the user prefers world files.
    if (!status && name && d->dataset_type == DST_Translated && VLN_get_world_file_pref(0))
        status = VLN_write_world_file_for_dshdr(d);
    safe_free(translated);
    return status;
}

}  // namespace

/* ---------------------------------------------------------------- shared */

const vld::Record &vld::dshdr_record()
{
    return dh_record;
}
const vld::Record &vld::dshdr_vds_record()
{
    return dh_vds_record;
}

int vld::read_dshdr_document(dshdr *record, const char *filename, DshdrReadState &state)
{
    return rec_read(record, filename, dh_record, &state);
}

/* ---------------------------------------------------------------- the family */

int ea_dshdr(dshdr **record)
{
    return vld::fam_alloc(record, dh_record);
}
void ef_dshdr(dshdr *record)
{
    vld::rec_free(record, dh_record);
}
void ef_dshdr_contents(dshdr *record)
{
    vld::rec_free_contents(record, dh_record);
}
int ee_dshdr(VLD_KEYWORD **array)
{
    return vld::rec_enumerate(array, dh_record);
}

int ep_dshdr(dshdr *record, const char *name)
{
    return write_header(record, name, record && record->algorithm ? dh_vds_record : dh_record);
}
int ep_dshdr_vds(dshdr *record, const char *name)
{
    return write_header(record, name, dh_vds_record);
}

int cp_dshdr(dshdr **copy, const dshdr *source)
{
    return vld::fam_dup(copy, source, dh_record);
}
int cp_dshdr_noalloc(dshdr *copy, const dshdr *source)
{
    return vld::fam_copy(copy, source, dh_record);
}

int df_raster_dshdr(dshdr **record, const char *name, int cells, int lines, int bands,
                    int cell_type)
{
    if (!record) return VLD_setup_error(VLD_ERR_INTERNAL, "Null structure pointer");
    if (cells < 0 || lines < 0 || bands < 0)
        return VLD_setup_error(VLD_ERR_INTERNAL, "Negative size for a new raster header");
    ea_dshdr(record);
    dshdr &d = **record;
    setup_raster(d, name);
    rasterinfo &r = d.info.r;
    r.nr_cells = cells;
    r.nr_lines = lines;
    r.cell_type = cell_type;
    r.cell_bytes = celltypesize(cell_type);
    r.nr_bands = bands;
    if (bands > 0) {
        r.bandids = static_cast<bandid *>(malloc_or_die(bands * sizeof(bandid)));
        std::memset(r.bandids, 0, bands * sizeof(bandid));
    }
    return 0;
}

int df_vector_dshdr(dshdr **record, const char *name)
{
    if (!record) return VLD_setup_error(VLD_ERR_INTERNAL, "Null structure pointer");
    ea_dshdr(record);
    dshdr &d = **record;
    vld::replace_text(d.name, name);
    d.data_file = name ? VLN_strip_ext(name) : nullptr;
    df_coordspace_noalloc(&d.coordspace);
    set_data_type(d, DT_Vector);
    d.info.v.type = VT_VLVEC;
    d.info.v.file_format = VFF_ASCII;
    d.info.v.extents.top_left.z = d.info.v.extents.bottom_right.z = vln_nanval();
    return 0;
}

/* What an importer starts from: a native raster of one 8-bit band in the host's
 * byte order, raw coordinates, its size still to be set. */
int df_dshdr_import(dshdr **record)
{
    int status = df_raster_dshdr(record, nullptr, 0, 0, 1, Unsigned8BitInteger);
    if (status) return status;
    vld::replace_text((*record)->version, DSHDR_CURRENT_VERSION);
    return 0;
}

int VLD_setup_fake_dshdr(dshdr *record, const coordspace *space, const dscoord *top_left,
                         const dscoord *bottom_right)
{
    if (!record) return VLD_setup_error(VLD_ERR_NULL_DSHDR);
    std::memset(record, 0, sizeof *record);
    record->data_type = DT_Vector;
    if (space)
        cp_coordspace_noalloc(&record->coordspace, space);
    else
        df_coordspace_noalloc(&record->coordspace);
    extents &e = record->info.v.extents;
    e.top_left = top_left ? *top_left : dscoord{0.0, 0.0, vln_nanval()};
    e.bottom_right = bottom_right ? *bottom_right : dscoord{0.0, 0.0, vln_nanval()};
    return 0;
}

int VLD_create_fake_dshdr(dshdr **record, const coordspace *space, const dscoord *top_left,
                          const dscoord *bottom_right)
{
    if (!record) return VLD_setup_error(VLD_ERR_INTERNAL, "Null structure pointer");
    ea_dshdr(record);
    return VLD_setup_fake_dshdr(*record, space, top_left, bottom_right);
}

int dshdr_is_fft(const dshdr *record)
{
    return record && record->fftinfo.frequency_level > 0;
}

/* ---------------------------------------------------------------- camera files */

int ep_cam_file(const sensorinfo *sensor, const char *name)
{
    if (!name || !*name) return VLD_setup_error(VLD_ERR_NULL_FILE_SPEC);
    vln::Guard lock(&vld_bt::vld_mutex);
    dshdr d{};
    setup_raster(d, name);
    d.dataset_type = DST_None;
    d.keep_version = 1;  // a camera file carries no version
    d.info.r.sensorinfo = const_cast<sensorinfo *>(sensor);
    int status = vld::rec_write(&d, name, dh_record);
    d.info.r.sensorinfo = nullptr;
    ef_dshdr_contents(&d);
    return status;
}

int eg_cam_file(sensorinfo **sensor, const char *name)
{
    if (!sensor) return VLD_setup_error(VLD_ERR_INTERNAL, "Null structure pointer");
    *sensor = nullptr;
    if (!name || !*name) return VLD_setup_error(VLD_ERR_NULL_FILE_SPEC);
    vln::Guard lock(&vld_bt::vld_mutex);
    dshdr d{};
    vld::DshdrReadState state;
    int status = vld::read_dshdr_document(&d, name, state);
    if (!status && d.data_type == DT_Raster && d.info.r.sensorinfo) {
        *sensor = d.info.r.sensorinfo;
        d.info.r.sensorinfo = nullptr;
    } else if (!status) {
        std::string text = std::string("No SensorInfo in camera file \"") + name + "\"";
        status = VLD_setup_error(VLD_ERR_MESSAGE, text.c_str());
    }
    ef_dshdr_contents(&d);
    return status;
}
