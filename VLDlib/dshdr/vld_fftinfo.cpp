/*
 * vld_fftinfo.cpp: FFTInfo and RadarInfo, the optional descriptions of a
 * dataset that is the spectrum of another one, and of a radar image.
 *
 * A spectrum keeps the raster description of its spatial dataset, read by the
 * spectrum's own coordinate space when it has one.
 */
#include <cstddef>

#include "vld_dshdr_internal.h"

namespace {

using vld::Field;
using vld::Kind;

using vld::as;

/* ---------------------------------------------------------------- FFTInfo */

enum : uint32_t {
    FI_LEVEL = 1,
    FI_FORWARD,
    FI_SPECTRUM,
    FI_SPATIAL,
    FI_PAD_X,
    FI_PAD_Y,
    FI_SPACE,
    FI_RASTER
};

const VLD_ENUM ev_ForwardTransform[] = {{FFT_Unknown, "Unknown"}, {FFT_FFT, "FFT"}, {0, nullptr}};
const VLD_ENUM ev_SpectrumAmount[] = {
    {SPECTRUM_Full, "Full"}, {SPECTRUM_Half, "Half"}, {0, nullptr}};

const VLD_KEYWORD fi_keywords[] = {
    {FI_LEVEL, "FrequencyLevel", VTYPE_INT, nullptr},
    {FI_FORWARD, "ForwardTransform", VTYPE_ENUM, ev_ForwardTransform},
    {FI_SPECTRUM, "SpectrumAmount", VTYPE_ENUM, ev_SpectrumAmount},
    {FI_SPATIAL, "SpatialDataset", VTYPE_FILENAME, nullptr},
    {FI_PAD_X, "PadCellX", VTYPE_INT, nullptr},
    {FI_PAD_Y, "PadCellY", VTYPE_INT, nullptr},
    {FI_SPACE, "CoordinateSpace", VTYPE_BLOCK, nullptr},
    {FI_RASTER, "RasterInfo", VTYPE_BLOCK, nullptr},
    {0, nullptr, 0, nullptr}};

bool omit_level(const void *r, const void *)
{
    return as<fftinfo>(r).frequency_level <= 1;
}
bool omit_fft_space(const void *r, const void *)
{
    return as<fftinfo>(r).coordspace.coordsystype == CST_None;
}
/* The spectrum's raster reads by its own space, or the dataset's without one. */
const void *fft_raster_aux(const void *r, const void *aux)
{
    const coordspace &own = as<fftinfo>(r).coordspace;
    return own.coordsystype != CST_None ? &own : aux;
}

/* A FFTInfo block makes the header a spectrum: level 1 unless it says more. */
void fi_before_read(void *r, const void *)
{
    as<fftinfo>(r).frequency_level = 1;
    as<fftinfo>(r).rasterinfo.registration_coord.z = vln_nanval();
}

/* The spectrum's raster has the cell size of any raster, with or without its
 * block. */
int fi_after_read(void *r, const void *)
{
    setup_cellinfo_defaults(&as<fftinfo>(r).rasterinfo.cellinfo);
    return 0;
}

const Field fi_level = {.code = FI_LEVEL,
                        .kind = Kind::Int32,
                        .offset = offsetof(fftinfo, frequency_level),
                        .omit = omit_level};
const Field fi_forward = {
    .code = FI_FORWARD, .kind = Kind::Enum, .offset = offsetof(fftinfo, forward_transform)};
const Field fi_spectrum = {
    .code = FI_SPECTRUM, .kind = Kind::Enum, .offset = offsetof(fftinfo, spectrum_amount)};
const Field fi_spatial = {
    .code = FI_SPATIAL, .kind = Kind::Filename, .offset = offsetof(fftinfo, spatial_dataset)};
const Field fi_pad_x = {
    .code = FI_PAD_X, .kind = Kind::Int32, .offset = offsetof(fftinfo, pad_cell_x)};
const Field fi_pad_y = {
    .code = FI_PAD_Y, .kind = Kind::Int32, .offset = offsetof(fftinfo, pad_cell_y)};
const Field fi_space = {.code = FI_SPACE,
                        .kind = Kind::Block,
                        .offset = offsetof(fftinfo, coordspace),
                        .sub = vld::coordspace_record,
                        .sub_aux = vld::no_aux,
                        .omit = omit_fft_space};

const Field fi_fields[] = {fi_level,
                           fi_forward,
                           fi_spectrum,
                           fi_spatial,
                           fi_pad_x,
                           fi_pad_y,
                           fi_space,
                           {.code = FI_RASTER,
                            .kind = Kind::Block,
                            .offset = offsetof(fftinfo, rasterinfo),
                            .sub = vld::rasterinfo_record,
                            .sub_aux = fft_raster_aux}};
/* The same with the spectrum's raster in its short form. Written only. */
const Field fi_vds_fields[] = {fi_level,
                               fi_forward,
                               fi_spectrum,
                               fi_spatial,
                               fi_pad_x,
                               fi_pad_y,
                               fi_space,
                               {.code = FI_RASTER,
                                .kind = Kind::Block,
                                .offset = offsetof(fftinfo, rasterinfo),
                                .sub = vld::rasterinfo_vds_record,
                                .sub_aux = fft_raster_aux}};

const vld::Record fi_record = {
    .block = "FFTInfo",
    .keywords = fi_keywords,
    .fields = fi_fields,
    .nfields = vld::count_of(fi_fields),
    .size = sizeof(fftinfo),
    .before_read = fi_before_read,
    .after_read = fi_after_read,
};

const vld::Record fi_vds_record = {
    .block = "FFTInfo",
    .keywords = fi_keywords,
    .fields = fi_vds_fields,
    .nfields = vld::count_of(fi_vds_fields),
    .size = sizeof(fftinfo),
};

/* ---------------------------------------------------------------- RadarInfo */

enum : uint32_t {
    RA_IMAGE_TYPE = 1,
    RA_PLATFORM,
    RA_RANGE_DIRECTION,
    RA_RANGE_CELL,
    RA_AZIMUTH_CELL,
    RA_LOOKS,
    RA_LOOK_ANGLE,
    RA_ALTITUDE,
    RA_NEAR,
    RA_FAR
};

const VLD_ENUM ev_ImageType[] = {{RADAR_Unknown, "Unknown"},
                                 {RADAR_SlantRange, "SlantRange"},
                                 {RADAR_GroundRange, "GroundRange"},
                                 {0, nullptr}};
const VLD_ENUM ev_RadarPlatform[] = {{PLATFORM_Unknown, "Unknown"},
                                     {PLATFORM_Aircraft, "Aircraft"},
                                     {PLATFORM_Spacecraft, "Spacecraft"},
                                     {0, nullptr}};

const VLD_KEYWORD ra_keywords[] = {
    {RA_IMAGE_TYPE, "ImageType", VTYPE_ENUM, ev_ImageType},
    {RA_PLATFORM, "SensorPlatformType", VTYPE_ENUM, ev_RadarPlatform},
    {RA_RANGE_DIRECTION, "RangeDirection", VTYPE_DMS, nullptr},
    {RA_RANGE_CELL, "RangeCellSize", VTYPE_FLOAT, nullptr},
    {RA_AZIMUTH_CELL, "AzimuthCellSize", VTYPE_FLOAT, nullptr},
    {RA_LOOKS, "NumberOfLooks", VTYPE_INT, nullptr},
    {RA_LOOK_ANGLE, "LookAngle", VTYPE_DMS, nullptr},
    {RA_ALTITUDE, "AltitudeAboveTerrain", VTYPE_FLOAT, nullptr},
    {RA_ALTITUDE, "AltitudeAboveTerrane", VTYPE_FLOAT, nullptr},  // kept: old files spell it so
    {RA_NEAR, "NearRangeDistance", VTYPE_FLOAT, nullptr},
    {RA_FAR, "FarRangeDistance", VTYPE_FLOAT, nullptr},
    {0, nullptr, 0, nullptr}};

const Field ra_fields[] = {
    {.code = RA_IMAGE_TYPE, .kind = Kind::Enum, .offset = offsetof(radarinfo, image_type)},
    {.code = RA_PLATFORM, .kind = Kind::Enum, .offset = offsetof(radarinfo, sensor_platform_type)},
    {.code = RA_RANGE_DIRECTION,
     .kind = Kind::Angle,
     .offset = offsetof(radarinfo, range_direction)},
    {.code = RA_RANGE_CELL, .kind = Kind::Double, .offset = offsetof(radarinfo, range_cell_size)},
    {.code = RA_AZIMUTH_CELL,
     .kind = Kind::Double,
     .offset = offsetof(radarinfo, azimuth_cell_size)},
    {.code = RA_LOOKS, .kind = Kind::Int32, .offset = offsetof(radarinfo, number_of_looks)},
    {.code = RA_LOOK_ANGLE, .kind = Kind::Angle, .offset = offsetof(radarinfo, look_angle)},
    {.code = RA_ALTITUDE,
     .kind = Kind::Double,
     .offset = offsetof(radarinfo, altitude_above_terrain)},
    {.code = RA_NEAR, .kind = Kind::Double, .offset = offsetof(radarinfo, near_range_distance)},
    {.code = RA_FAR, .kind = Kind::Double, .offset = offsetof(radarinfo, far_range_distance)},
};

void ra_init(void *r)
{
    radarinfo &ra = as<radarinfo>(r);
    ra.image_type = RADAR_SlantRange;
    ra.sensor_platform_type = PLATFORM_Unknown;
    ra.range_cell_size = ra.azimuth_cell_size = 1.0;
}
void ra_before_read(void *r, const void *)
{
    ra_init(r);
}
bool ra_empty(const void *r, const void *)
{
    return as<radarinfo>(r).image_type == 0;
}

const vld::Record ra_record = {
    .block = "RadarInfo",
    .keywords = ra_keywords,
    .fields = ra_fields,
    .nfields = vld::count_of(ra_fields),
    .size = sizeof(radarinfo),
    .init = ra_init,
    .before_read = ra_before_read,
    .empty = ra_empty,
};

}  // namespace

/* ---------------------------------------------------------------- shared */

const vld::Record &vld::fftinfo_record()
{
    return fi_record;
}
const vld::Record &vld::radarinfo_record()
{
    return ra_record;
}
/* ---------------------------------------------------------------- fftinfo */

int ea_fftinfo(fftinfo **record)
{
    return vld::fam_alloc(record, fi_record);
}
void ef_fftinfo(fftinfo *record)
{
    vld::rec_free(record, fi_record);
}
void ef_fftinfo_contents(fftinfo *record)
{
    vld::rec_free_contents(record, fi_record);
}
int ee_fftinfo(VLD_KEYWORD **array)
{
    return vld::rec_enumerate(array, fi_record);
}
int eg_fftinfo(fftinfo **record, const char *file)
{
    return vld::fam_get(record, file, fi_record);
}
int eg_fftinfo_spec(fftinfo **record, const char *file, const coordspace *space)
{
    return vld::fam_get(record, file, fi_record, space);
}
int eg_fftinfo_spec_noalloc(fftinfo *record, const char *file, const coordspace *space)
{
    return vld::rec_read(record, file, fi_record, space);
}
int ep_fftinfo(const fftinfo *record, const char *file)
{
    return vld::rec_write(record, file, fi_record);
}
int ep_fftinfo_spec(const fftinfo *record, const char *file, const coordspace *space)
{
    return vld::rec_write(record, file, fi_record, space);
}
int ep_fftinfo_vds(const fftinfo *record, const char *file)
{
    return vld::rec_write(record, file, fi_vds_record);
}
int cp_fftinfo_noalloc(fftinfo *copy, const fftinfo *source)
{
    return vld::fam_copy(copy, source, fi_record);
}

/* ---------------------------------------------------------------- radarinfo */

int ea_radarinfo(radarinfo **record)
{
    return vld::fam_alloc(record, ra_record);
}
void ef_radarinfo(radarinfo *record)
{
    vld::rec_free(record, ra_record);
}
int ee_radarinfo(VLD_KEYWORD **array)
{
    return vld::rec_enumerate(array, ra_record);
}
int eg_radarinfo(radarinfo **record, const char *file)
{
    return vld::fam_get(record, file, ra_record);
}
int eg_radarinfo_noalloc(radarinfo *record, const char *file)
{
    return vld::rec_read(record, file, ra_record);
}
int ep_radarinfo(const radarinfo *record, const char *file)
{
    return vld::rec_write(record, file, ra_record);
}
/* A virtual dataset's header keeps the radar description as it stands. */
int ep_radarinfo_vds(const radarinfo *record, const char *file)
{
    return vld::rec_write(record, file, ra_record);
}
int cp_radarinfo_noalloc(radarinfo *copy, const radarinfo *source)
{
    return vld::fam_copy(copy, source, ra_record);
}
