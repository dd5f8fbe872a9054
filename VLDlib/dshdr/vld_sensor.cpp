/*
 * vld_sensor.cpp: SensorInfo, the camera of a photograph, with its
 * FiducialInfo: the eight fiducial marks that tie film positions to cells.
 *
 * Unset numbers are held as the largest double and left out of the text. A
 * camera file (".cam") is a dataset header that holds only a SensorInfo; it is
 * written and read in vld_dshdr.cpp.
 */
#include <cfloat>
#include <cstddef>

#include "vld_dshdr_internal.h"

namespace {

using vld::Field;
using vld::Kind;

using vld::as;

/* ---------------------------------------------------------------- FiducialPoint */

enum : uint32_t { FP_ON = 1, FP_LOCKED, FP_CELL_X, FP_CELL_Y, FP_OFFSET_X, FP_OFFSET_Y };

const VLD_KEYWORD fp_keywords[] = {{FP_ON, "IsOn", VTYPE_YN, nullptr},
                                   {FP_LOCKED, "IsLocked", VTYPE_YN, nullptr},
                                   {FP_CELL_X, "CellX", VTYPE_FLOAT, nullptr},
                                   {FP_CELL_Y, "CellY", VTYPE_FLOAT, nullptr},
                                   {FP_OFFSET_X, "OffsetX", VTYPE_FLOAT, nullptr},
                                   {FP_OFFSET_Y, "OffsetY", VTYPE_FLOAT, nullptr},
                                   {0, nullptr, 0, nullptr}};

template <double fiducialpoint::*Member>
bool omit_unset(const void *r, const void *)
{
    return as<fiducialpoint>(r).*Member == DBL_MAX;
}

const Field fp_fields[] = {
    {.code = FP_ON, .kind = Kind::YesNo, .offset = offsetof(fiducialpoint, is_on)},
    {.code = FP_LOCKED, .kind = Kind::YesNo, .offset = offsetof(fiducialpoint, is_locked)},
    {.code = FP_CELL_X,
     .kind = Kind::Double,
     .offset = offsetof(fiducialpoint, cell_x),
     .omit = omit_unset<&fiducialpoint::cell_x>},
    {.code = FP_CELL_Y,
     .kind = Kind::Double,
     .offset = offsetof(fiducialpoint, cell_y),
     .omit = omit_unset<&fiducialpoint::cell_y>},
    {.code = FP_OFFSET_X,
     .kind = Kind::Double,
     .offset = offsetof(fiducialpoint, offset_x),
     .omit = omit_unset<&fiducialpoint::offset_x>},
    {.code = FP_OFFSET_Y,
     .kind = Kind::Double,
     .offset = offsetof(fiducialpoint, offset_y),
     .omit = omit_unset<&fiducialpoint::offset_y>},
};

void fp_init(void *r)
{
    fiducialpoint &p = as<fiducialpoint>(r);
    p.cell_x = p.cell_y = p.offset_x = p.offset_y = DBL_MAX;
}

const vld::Record fp_record = {
    .block = "FiducialPoint",
    .keywords = fp_keywords,
    .fields = fp_fields,
    .nfields = vld::count_of(fp_fields),
    .size = sizeof(fiducialpoint),
    .init = fp_init,
    .defaults = fp_init,
};

/* ---------------------------------------------------------------- FiducialInfo */

enum : uint32_t { FI_OFFSET_X = 1, FI_OFFSET_Y, FI_POINT /* + FIDUCIAL_ index */ };

const char *const point_blocks[FIDUCIAL_COUNT] = {
    "FiducialPointTopLeft",     "FiducialPointTopRight",    "FiducialPointBottomLeft",
    "FiducialPointBottomRight", "FiducialPointMiddleLeft",  "FiducialPointMiddleRight",
    "FiducialPointMiddleTop",   "FiducialPointMiddleBottom"};

const VLD_KEYWORD fi_keywords[] = {{FI_OFFSET_X, "PrinciplePointOffsetX", VTYPE_FLOAT, nullptr},
                                   {FI_OFFSET_Y, "PrinciplePointOffsetY", VTYPE_FLOAT, nullptr},
                                   {FI_POINT + 0, point_blocks[0], VTYPE_BLOCK, nullptr},
                                   {FI_POINT + 1, point_blocks[1], VTYPE_BLOCK, nullptr},
                                   {FI_POINT + 2, point_blocks[2], VTYPE_BLOCK, nullptr},
                                   {FI_POINT + 3, point_blocks[3], VTYPE_BLOCK, nullptr},
                                   {FI_POINT + 4, point_blocks[4], VTYPE_BLOCK, nullptr},
                                   {FI_POINT + 5, point_blocks[5], VTYPE_BLOCK, nullptr},
                                   {FI_POINT + 6, point_blocks[6], VTYPE_BLOCK, nullptr},
                                   {FI_POINT + 7, point_blocks[7], VTYPE_BLOCK, nullptr},
                                   {0, nullptr, 0, nullptr}};

/* A mark is written when it holds something other than the defaults. */
template <int Index>
bool omit_point(const void *r, const void *)
{
    const fiducialpoint *p = as<fiducialinfo>(r).points[Index];
    if (!p) return true;
    fiducialpoint blank{};
    fp_init(&blank);
    return vld::rec_equal(p, &blank, fp_record);
}

template <int Index>
constexpr Field point_field()
{
    return {.code = FI_POINT + Index,
            .kind = Kind::BlockPtr,
            .offset = offsetof(fiducialinfo, points) + Index * sizeof(fiducialpoint *),
            .sub = vld::fiducialpoint_record,
            .omit = omit_point<Index>};
}

const Field fi_fields[] = {
    {.code = FI_OFFSET_X,
     .kind = Kind::Double,
     .offset = offsetof(fiducialinfo, principle_point_offset_x)},
    {.code = FI_OFFSET_Y,
     .kind = Kind::Double,
     .offset = offsetof(fiducialinfo, principle_point_offset_y)},
    point_field<0>(),
    point_field<1>(),
    point_field<2>(),
    point_field<3>(),
    point_field<4>(),
    point_field<5>(),
    point_field<6>(),
    point_field<7>(),
};

const vld::Record fi_record = {
    .block = "FiducialInfo",
    .keywords = fi_keywords,
    .fields = fi_fields,
    .nfields = vld::count_of(fi_fields),
    .size = sizeof(fiducialinfo),
};

/* ---------------------------------------------------------------- SensorInfo */

enum : uint32_t {
    SI_MANUFACTURER = 1,
    SI_MODEL,
    SI_LENS,
    SI_CALIBRATED,
    SI_SENSOR_TYPE,
    SI_PLATFORM,
    SI_FIDUCIALS,
    SI_FOCAL,
    SI_PP_X,
    SI_PP_Y
};

const VLD_ENUM ev_SensorType[] = {{SENSOR_LineArray, "LineArray"},
                                  {SENSOR_MetricCamera, "MetricCamera"},
                                  {SENSOR_NonMetricCamera, "NonMetricCamera"},
                                  {0, nullptr}};
const VLD_ENUM ev_SensorPlatform[] = {{SPLATFORM_Terrestrial, "Terrestrial"},
                                      {SPLATFORM_Aerial, "Aerial"},
                                      {SPLATFORM_Satellite, "Satellite"},
                                      {0, nullptr}};

const VLD_KEYWORD si_keywords[] = {{SI_MANUFACTURER, "CameraManufacturer", VTYPE_STRING, nullptr},
                                   {SI_MODEL, "CameraModel", VTYPE_STRING, nullptr},
                                   {SI_LENS, "LensSerialNr", VTYPE_STRING, nullptr},
                                   {SI_CALIBRATED, "CalibrationDate", VTYPE_DATETIME, nullptr},
                                   {SI_SENSOR_TYPE, "SensorType", VTYPE_ENUM, ev_SensorType},
                                   {SI_PLATFORM, "PlatformType", VTYPE_ENUM, ev_SensorPlatform},
                                   {SI_FIDUCIALS, "FiducialInfo", VTYPE_BLOCK, nullptr},
                                   {SI_FOCAL, "FocalLength", VTYPE_FLOAT, nullptr},
                                   {SI_PP_X, "PrinciplePointX", VTYPE_FLOAT, nullptr},
                                   {SI_PP_Y, "PrinciplePointY", VTYPE_FLOAT, nullptr},
                                   {0, nullptr, 0, nullptr}};

#define SI_OFFSET(member) offsetof(sensorinfo, member)

/* Numbers still unset, and a calibration date never given, are left out. */
template <double sensorinfo::*Member>
bool omit_unset_number(const void *r, const void *)
{
    return as<sensorinfo>(r).*Member == DBL_MAX;
}
bool omit_calibration(const void *r, const void *)
{
    return as<sensorinfo>(r).calibration_date == 0;
}

const Field si_fields[] = {
    {.code = SI_MANUFACTURER, .kind = Kind::String, .offset = SI_OFFSET(camera_manufacturer)},
    {.code = SI_MODEL, .kind = Kind::String, .offset = SI_OFFSET(camera_model)},
    {.code = SI_LENS, .kind = Kind::String, .offset = SI_OFFSET(lens_serial_nr)},
    {.code = SI_CALIBRATED,
     .kind = Kind::Time,
     .offset = SI_OFFSET(calibration_date),
     .omit = omit_calibration},
    {.code = SI_SENSOR_TYPE, .kind = Kind::Enum, .offset = SI_OFFSET(sensor_type)},
    {.code = SI_PLATFORM, .kind = Kind::Enum, .offset = SI_OFFSET(platform_type)},
    {.code = SI_FIDUCIALS,
     .kind = Kind::BlockPtr,
     .offset = SI_OFFSET(fiducialinfo),
     .sub = vld::fiducialinfo_record},
    {.code = SI_FOCAL,
     .kind = Kind::Double,
     .offset = SI_OFFSET(focal_length),
     .omit = omit_unset_number<&sensorinfo::focal_length>},
    {.code = SI_PP_X,
     .kind = Kind::Double,
     .offset = SI_OFFSET(principle_point_x),
     .omit = omit_unset_number<&sensorinfo::principle_point_x>},
    {.code = SI_PP_Y,
     .kind = Kind::Double,
     .offset = SI_OFFSET(principle_point_y),
     .omit = omit_unset_number<&sensorinfo::principle_point_y>},
};

void si_init(void *r)
{
    sensorinfo &s = as<sensorinfo>(r);
    s.sensor_type = SENSOR_MetricCamera;
    s.platform_type = SPLATFORM_Aerial;
    s.focal_length = s.principle_point_x = s.principle_point_y = DBL_MAX;
}

/* A metric camera of the common 153 mm lens. */
void si_metric_camera(void *r)
{
    as<sensorinfo>(r).focal_length = 153.0;
}

const vld::Record si_record = {
    .block = "SensorInfo",
    .keywords = si_keywords,
    .fields = si_fields,
    .nfields = vld::count_of(si_fields),
    .size = sizeof(sensorinfo),
    .init = si_init,
    .defaults = si_metric_camera,
};

const char *block_or(const char *block, const char *fallback)
{
    return block ? block : fallback;
}

/* Copies `source` into an existing `*slot`, reusing it, or allocates a copy;
 * a null source frees the slot. */
template <class T, int (*Update)(T *, const T *)>
void update_slot(T *&slot, const T *source, const vld::Record &r)
{
    if (!source) {
        vld::rec_free(slot, r);
        slot = nullptr;
    } else if (slot) {
        Update(slot, source);
    } else {
        slot = static_cast<T *>(vld::rec_dup(source, r));
    }
}

}  // namespace

/* ---------------------------------------------------------------- shared */

const vld::Record &vld::sensorinfo_record()
{
    return si_record;
}
const vld::Record &vld::fiducialinfo_record()
{
    return fi_record;
}
const vld::Record &vld::fiducialpoint_record()
{
    return fp_record;
}

/* ---------------------------------------------------------------- sensorinfo */

int ea_sensorinfo(sensorinfo **record)
{
    return vld::fam_alloc(record, si_record);
}
void ef_sensorinfo(sensorinfo *record)
{
    vld::rec_free(record, si_record);
}
void ef_sensorinfo_contents(sensorinfo *record)
{
    vld::rec_free_contents(record, si_record);
}
int eg_sensorinfo(sensorinfo **record, const char *file)
{
    return vld::fam_get(record, file, si_record);
}
int eg_sensorinfo_noalloc(sensorinfo *record, const char *file)
{
    return vld::rec_read(record, file, si_record);
}
int ep_sensorinfo(const sensorinfo *record, const char *file)
{
    return vld::rec_write(record, file, si_record);
}
int cp_sensorinfo(sensorinfo **copy, const sensorinfo *source)
{
    return vld::fam_dup(copy, source, si_record);
}
int cp_sensorinfo_noalloc(sensorinfo *copy, const sensorinfo *source)
{
    return vld::fam_copy(copy, source, si_record);
}

int cp_sensorinfo_update(sensorinfo *copy, const sensorinfo *source)
{
    if (!copy || !source) return VLD_setup_error(VLD_ERR_INTERNAL, "Null structure pointer");
    if (copy == source) return 0;
    fiducialinfo *fiducials = copy->fiducialinfo;
    copy->fiducialinfo = nullptr;
    ef_sensorinfo_contents(copy);
    vld::rec_copy(copy, source, si_record);
    // Keep the caller's fiducial record, brought up to date.
    ef_fiducialinfo(copy->fiducialinfo);
    copy->fiducialinfo = fiducials;
    update_slot<fiducialinfo, cp_fiducialinfo_update>(copy->fiducialinfo, source->fiducialinfo,
                                                      fi_record);
    return 0;
}

int df_metric_camera_sensorinfo(sensorinfo **record)
{
    return vld::fam_new_defaults(record, si_record);
}

/* ---------------------------------------------------------------- fiducialinfo */

int ea_fiducialinfo(fiducialinfo **record)
{
    return vld::fam_alloc(record, fi_record);
}
void ef_fiducialinfo(fiducialinfo *record)
{
    vld::rec_free(record, fi_record);
}
void ef_fiducialinfo_contents(fiducialinfo *record)
{
    vld::rec_free_contents(record, fi_record);
}
int eg_fiducialinfo(fiducialinfo **record, const char *file)
{
    return vld::fam_get(record, file, fi_record);
}
int eg_fiducialinfo_spec(fiducialinfo **record, const char *file, const char *block)
{
    return vld::fam_get(record, file, fi_record, nullptr, block);
}
int eg_fiducialinfo_spec_noalloc(fiducialinfo *record, const char *file, const char *block)
{
    return vld::rec_read(record, file, fi_record, nullptr, block);
}
int ep_fiducialinfo(const fiducialinfo *record, const char *file)
{
    return vld::rec_write(record, file, fi_record);
}
int ep_fiducialinfo_spec(const fiducialinfo *record, const char *file, const char *block)
{
    return vld::rec_write(record, file, fi_record, nullptr, block_or(block, "FiducialInfo"));
}
int cp_fiducialinfo(fiducialinfo **copy, const fiducialinfo *source)
{
    return vld::fam_dup(copy, source, fi_record);
}
int cp_fiducialinfo_noalloc(fiducialinfo *copy, const fiducialinfo *source)
{
    return vld::fam_copy(copy, source, fi_record);
}

int cp_fiducialinfo_update(fiducialinfo *copy, const fiducialinfo *source)
{
    if (!copy || !source) return VLD_setup_error(VLD_ERR_INTERNAL, "Null structure pointer");
    if (copy == source) return 0;
    fiducialpoint *points[FIDUCIAL_COUNT];
    for (int i = 0; i < FIDUCIAL_COUNT; i++) points[i] = copy->points[i];
    *copy = *source;  // no owned members besides the points
    for (int i = 0; i < FIDUCIAL_COUNT; i++) {
        copy->points[i] = points[i];
        update_slot<fiducialpoint, cp_fiducialpoint_update>(copy->points[i], source->points[i],
                                                            fp_record);
    }
    return 0;
}

int df_fiducialinfo(fiducialinfo **record)
{
    return vld::fam_new_defaults(record, fi_record);
}

/* ---------------------------------------------------------------- fiducialpoint */

int ea_fiducialpoint(fiducialpoint **record)
{
    return vld::fam_alloc(record, fp_record);
}
void ef_fiducialpoint(fiducialpoint *record)
{
    vld::rec_free(record, fp_record);
}
int eg_fiducialpoint(fiducialpoint **record, const char *file)
{
    return vld::fam_get(record, file, fp_record);
}
int eg_fiducialpoint_spec(fiducialpoint **record, const char *file, const char *block)
{
    return vld::fam_get(record, file, fp_record, nullptr, block);
}
int eg_fiducialpoint_spec_noalloc(fiducialpoint *record, const char *file, const char *block)
{
    return vld::rec_read(record, file, fp_record, nullptr, block);
}
int ep_fiducialpoint(const fiducialpoint *record, const char *file)
{
    return vld::rec_write(record, file, fp_record);
}
int ep_fiducialpoint_type_spec(const fiducialpoint *record, const char *file, int type)
{
    if (type < 0 || type >= FIDUCIAL_COUNT)
        return VLD_setup_error(VLD_ERR_INTERNAL, "Bad fiducial point type");
    return vld::rec_write(record, file, fp_record, nullptr, point_blocks[type]);
}
int cp_fiducialpoint(fiducialpoint **copy, const fiducialpoint *source)
{
    return vld::fam_dup(copy, source, fp_record);
}
int cp_fiducialpoint_noalloc(fiducialpoint *copy, const fiducialpoint *source)
{
    return vld::fam_copy(copy, source, fp_record);
}
int cp_fiducialpoint_update(fiducialpoint *copy, const fiducialpoint *source)
{
    return vld::fam_copy(copy, source, fp_record);
}
int df_fiducialpoint(fiducialpoint **record)
{
    return vld::fam_new_defaults(record, fp_record);
}
