/*
 * vld_dshdr.h: the dataset header and its parts.
 *
 * A dataset is described by a text header: a ".vld" file for a raster, a
 * ".vlv" file for a vector, both the block-text document "DatasetHeader". Its
 * in-memory form is the dshdr record below, which also stands for a virtual
 * dataset (an algorithm, or a header holding one) and for a foreign image read
 * through a translator. Nearly every other module takes a dshdr as its
 * description of a dataset.
 *
 * Every record here has the usual family: ea_ allocates a zeroed record with
 * its fixed starting values, ef_ frees a record and all it owns (null is
 * allowed), ef_X_contents frees what an embedded record owns, eg_ reads (a null
 * file name goes on with the document that is open), ep_ writes, cp_ deep-copies
 * and df_ sets defaults, ee_ hands out a copy of the keyword table. Readers and
 * writers return 0 or a row of VLD_errmsg; a reader that fails leaves its
 * record allocated and partly filled for the caller to free (eg_dshdr itself
 * frees it). Structures list their fields in the order of their keywords.
 *
 * Angles are radians in memory and degrees in the text, except the Rotation of
 * a warp_control, which stays in degrees.
 */
#ifndef VORLAN_VLD_DSHDR_H
#define VORLAN_VLD_DSHDR_H

#include <stdint.h>

#include "vld_blocktext.h"
#include "vld_core.h"
#include "vld_docs.h"

VLD_BEGIN_DECLS

struct algorithm;
struct translator;

/* ---------------------------------------------------------------- enumerations */

enum { CST_None = 0, CST_RAW = 1, CST_EN = 2, CST_LL = 3 }; /* coordsystype, words in ev_CST */

enum {
    DST_None = 0,
    DST_Unknown = 1,
    DST_VLDStorage = 2,
    DST_BandInterleavedLine = 3,
    DST_IFUT = 4,
    DST_AImage = 5,
    DST_GeoScanMk2 = 6,
    DST_Translated = 7
};
enum { DT_None = 0, DT_Unknown = 1, DT_Raster = 2, DT_Vector = 3 };
enum { BO_None = 0, BO_MSBFirst = 1, BO_LSBFirst = 2 };
enum { VT_NONE = 0, VT_UNKNOWN = 1, VT_VLD = 2, VT_VLVEC = 3 }; /* VectorInfo Type */
enum { VFF_NONE = 0, VFF_ASCII = 1, VFF_BINARY = 2 };           /* VectorInfo FileFormat */
enum { REGION_POLYGON = 0, REGION_CLASS = 1 };
enum { FFT_Unknown = 0, FFT_FFT = 1 }; /* ForwardTransform */
enum { SPECTRUM_Full = 0, SPECTRUM_Half = 1 };
enum { RADAR_Unknown = 0, RADAR_SlantRange = 1, RADAR_GroundRange = 2 };
enum { PLATFORM_Unknown = 0, PLATFORM_Aircraft = 1, PLATFORM_Spacecraft = 2 };
enum { SENSOR_LineArray = 0, SENSOR_MetricCamera = 1, SENSOR_NonMetricCamera = 2 };
enum { SPLATFORM_Terrestrial = 0, SPLATFORM_Aerial = 1, SPLATFORM_Satellite = 2 };
enum {
    WARP_None = 0,
    WARP_Polynomial = 1,
    WARP_Triangulated = 2,
    WARP_Rotation = 3,
    WARP_Map = 4,
    WARP_Ortho = 5,
    WARP_OrthoAdvanced = 6,
    WARP_KnownPointRegistration = 7
};
enum { SAMPLE_None = 0, SAMPLE_Nearest = 1, SAMPLE_Bilinear = 2, SAMPLE_Cubic = 3 };
enum { EXTENTS_Maximum = 0, EXTENTS_Optimum = 1, EXTENTS_Custom = 2 };

/* The eight fiducial marks of a camera, in the order of their blocks. */
enum {
    FIDUCIAL_TopLeft = 0,
    FIDUCIAL_TopRight,
    FIDUCIAL_BottomLeft,
    FIDUCIAL_BottomRight,
    FIDUCIAL_MiddleLeft,
    FIDUCIAL_MiddleRight,
    FIDUCIAL_MiddleTop,
    FIDUCIAL_MiddleBottom,
    FIDUCIAL_COUNT
};

/* Bits of dshdr.flags. */
#define DSHDR_FLAG_RESAMPLED 0x1u   /* the header is a resampled view */
#define DSHDR_FLAG_SIDE_HEADER 0x2u /* read from a ".vld" beside a foreign file */

/* The version that the writer puts in every header unless keep_version is set. */
#define DSHDR_CURRENT_VERSION "7.0"

/* Exported enum tables of the header's keywords. */
extern VLD_API const VLD_ENUM ev_DataSetType[];
extern VLD_API const VLD_ENUM ev_DataType[];
extern VLD_API const VLD_ENUM ev_ByteOrder[];

/* ---------------------------------------------------------------- coordinates */

/* A coordinate space. Datum and projection are rows of the coordinate tables,
 * or "RAW"; a space is raw when both are "RAW" or unset. */
typedef struct coordspace {
    int32_t coordsystype; /* CST_ */
    double rotation;      /* radians */
    char *projection;
    char *units;
    double meter_factor; /* metres per map unit; 1.0 by default */
    char *datum;
} coordspace;

/* A position: x, y (and z, NaN when absent). In an LL space x is the longitude
 * and y the latitude, in radians. */
typedef struct dscoord {
    double x, y, z;
} dscoord;

/* The corners of a vector dataset or of a warp's output. */
typedef struct extents {
    dscoord top_left;
    dscoord bottom_right;
} extents;

/* ---------------------------------------------------------------- raster parts */

typedef struct bandid {
    char *value;
    double width;
    char *units;
    char *comment;
} bandid;

typedef struct rgbcolour {
    int32_t red, green, blue;
} rgbcolour;

/* Statistics of one region. Arrays hold one value per band and are null when
 * absent; the covariance is nr_bands by nr_bands, row after row. */
typedef struct msstats {
    int32_t subsample_rate;
    double prior_probability;
    int32_t nr_bands;
    int32_t *non_null_cells;
    int32_t *null_cells;
    double *minimum;
    double *maximum;
    double *mean;
    double *median;
    double *covariance;
} msstats;

/* One ring of a polygon region: a list of points { next, x, y }. */
typedef struct subregion {
    struct subregion *next;
    VLD_POINTNODE *points;
} subregion;

typedef struct regioninfo {
    struct regioninfo *next;
    int32_t type; /* REGION_POLYGON or REGION_CLASS */
    char *name;
    char *source_dataset;
    rgbcolour colour;
    msstats *stats;
    subregion *subregions;
    int32_t class_number;
} regioninfo;

/* ---------------------------------------------------------------- rectification */

typedef struct correction {
    int32_t radial_lens;
    int32_t poly_lens;
    int32_t atmospheric;
    int32_t earth_curvature;
} correction;

/* Exterior orientation of a camera. */
typedef struct orthoinfo {
    double omega, phi, kappa; /* radians */
    double exposure_x, exposure_y, exposure_z;
    double scale;
    coordspace coordspace; /* the space of the exposure centre */
} orthoinfo;

typedef struct map_to_map_info {
    coordspace coordspace;
} map_to_map_info;

/* A ground control point: a cell and the position it has in the warp's working
 * space. Only active points take part in a fit. */
typedef struct controlpoint {
    double cell_x, cell_y;
    double x, y, z;
    char *name;
    int32_t active;
    int32_t shown;
} controlpoint;

typedef struct warp_control {
    coordspace coordspace; /* target space of the points */
    int32_t nr_points;
    controlpoint *points;
    double linear[6]; /* polynomial coefficients: U then V halves */
    double quadratic[12];
    double cubic[20];
    int32_t order;    /* WarpOrder */
    int32_t type;     /* WarpType, WARP_ */
    int32_t sampling; /* WarpSampling, SAMPLE_ */
    char *dem_file;
    int32_t dem_band_nr;
    double dem_meter_factor;
    int32_t use_average_height;
    double average_height;
    correction *correction;
    orthoinfo *given_orthoinfo; /* GivenOrthoInfo, for OrthoAdvanced */
    double rotation;            /* degrees */
    char *gcps_chosen_from;
    char *output_file;
    map_to_map_info *map_to_map_info;
    int32_t choose_gcps_from_digitizer;
    int32_t choose_gcps_from_image;
    int32_t do_background;
    double output_cell_size_x, output_cell_size_y;
    int32_t output_has_null_cells;
    double output_null_cell_value;
    extents extents;
    int32_t extents_used; /* EXTENTS_ */
    orthoinfo orthoinfo;  /* the solved orientation, not part of the text */
    int32_t
        triangulated_poly_extents; /* default extents of a triangulated warp by its linear fit */
} warp_control;

/* ---------------------------------------------------------------- sensors */

typedef struct fiducialpoint {
    int32_t is_on;
    int32_t is_locked;
    double cell_x, cell_y; /* DBL_MAX while unset */
    double offset_x, offset_y;
} fiducialpoint;

typedef struct fiducialinfo {
    double principle_point_offset_x, principle_point_offset_y;
    fiducialpoint *points[FIDUCIAL_COUNT]; /* null when absent */
    int32_t transforms_computed;           /* the fit below is current */
    double image_to_cell[6];
    double cell_to_image[6];
} fiducialinfo;

typedef struct sensorinfo {
    char *camera_manufacturer;
    char *camera_model;
    char *lens_serial_nr;
    int32_t calibration_date;
    int32_t sensor_type;   /* SENSOR_ */
    int32_t platform_type; /* SPLATFORM_ */
    fiducialinfo *fiducialinfo;
    double focal_length; /* millimetres; DBL_MAX while unset */
    double principle_point_x, principle_point_y;
} sensorinfo;

/* ---------------------------------------------------------------- the header */

struct dshdr;

typedef struct rasterinfo {
    int32_t cell_type;  /* VLD_CELLTYPE */
    int32_t cell_bytes; /* from cell_type */
    int32_t has_null;
    double null_value;
    cellinfo cellinfo;
    int32_t nr_lines;
    int32_t nr_cells;
    dscoord registration_coord;
    double registration_cell_x, registration_cell_y;
    int32_t nr_bands;
    bandid *bandids; /* nr_bands records */
    regioninfo *regions;
    warp_control *warp_control;
    sensorinfo *sensorinfo;
    struct dshdr *sub_header;
} rasterinfo;

typedef struct vectorinfo {
    int32_t type;        /* VT_ */
    int32_t file_format; /* VFF_ */
    extents extents;
} vectorinfo;

typedef struct fftinfo {
    int32_t frequency_level; /* the header is a spectrum when above 0 */
    int32_t forward_transform;
    int32_t spectrum_amount;
    char *spatial_dataset;
    int32_t pad_cell_x, pad_cell_y;
    coordspace coordspace;
    rasterinfo rasterinfo; /* the spatial dataset's raster description */
} fftinfo;

typedef struct radarinfo {
    int32_t image_type; /* RADAR_; the record is present when nonzero */
    int32_t sensor_platform_type;
    double range_direction; /* radians */
    double range_cell_size, azimuth_cell_size;
    int32_t number_of_looks;
    double look_angle; /* radians */
    double altitude_above_terrain;
    double near_range_distance, far_range_distance;
} radarinfo;

typedef struct dshdr {
    char *version;
    char *name;
    char *description;
    char *source_dataset;
    int32_t last_updated;
    char *data_file;
    char *sensor_name;
    int32_t sense_date;
    int32_t header_offset;
    int32_t dataset_type; /* DST_ */
    int32_t byte_order;   /* BO_ */
    coordspace coordspace;
    int32_t data_type; /* DT_ */
    union {
        rasterinfo r; /* DT_Raster */
        vectorinfo v; /* DT_Vector */
    } info;
    fftinfo fftinfo;
    radarinfo radarinfo;
    char *comments;
    struct algorithm *algorithm;   /* set for a virtual dataset */
    int32_t keep_version;          /* write `version` instead of the current one */
    void *raster_features;         /* the translator's feature list */
    struct dshdr *source_dsh;      /* the header as the file really is, when this is a view */
    uint32_t flags;                /* DSHDR_FLAG_ */
    struct translator *translator; /* the translator that reads a Translated dataset */
} dshdr;

/* ---------------------------------------------------------------- dshdr */

VLD_API int ea_dshdr(dshdr **record);
VLD_API void ef_dshdr(dshdr *record);
VLD_API void ef_dshdr_contents(dshdr *record);
VLD_API int ee_dshdr(VLD_KEYWORD **array);
/* Reads a header: a ".vld", ".vlv", ".map" or ".cam" document, an algorithm
 * (".alg"), or a foreign file through the ".vld" beside it or a translator.
 * On failure *record is null. Algorithms and translators aren't readable yet:
 * their routes give VLD_ERR_NOT_IMPLEMENTED and VLD_ERR_RASTER_FILETYPE_UNKNOWN. */
VLD_API int eg_dshdr(dshdr **record, const char *name);
VLD_API int eg_dshdr_alg_or_vld(dshdr **record, const char *name);
/* Resolves `name` against `directory` (and the dataset search path) first. */
VLD_API int eg_dshdr_standard(dshdr **record, const char *directory, const char *name);
/* Writes the header; sets last_updated, and removes a raster's stale ".stats". */
VLD_API int ep_dshdr(dshdr *record, const char *name);
/* Writes the short header of a virtual dataset: its algorithm goes with it. */
VLD_API int ep_dshdr_vds(dshdr *record, const char *name);
/* Writes a camera file: a raster header without bands that holds a SensorInfo. */
VLD_API int ep_cam_file(const sensorinfo *sensor, const char *name);
/* Reads the SensorInfo of a camera file; VLD_ERR_MESSAGE when the file has none. */
VLD_API int eg_cam_file(sensorinfo **sensor, const char *name);
VLD_API int cp_dshdr(dshdr **copy, const dshdr *source);
VLD_API int cp_dshdr_noalloc(dshdr *copy, const dshdr *source);
/* A new raster header for `name` with zeroed band records. */
VLD_API int df_raster_dshdr(dshdr **record, const char *name, int cells, int lines, int bands,
                            int cell_type);
VLD_API int df_vector_dshdr(dshdr **record, const char *name);
/* The starting header of an importer: a raster of one 8-bit band, no size yet. */
VLD_API int df_dshdr_import(dshdr **record);
/* A vector header standing for a layer that is drawn in a given space between
 * given corners (those of the algorithm that draws it). The record is zeroed
 * first: what it held isn't freed. A null space gives the default one. */
VLD_API int VLD_setup_fake_dshdr(dshdr *record, const coordspace *space, const dscoord *top_left,
                                 const dscoord *bottom_right);
VLD_API int VLD_create_fake_dshdr(dshdr **record, const coordspace *space, const dscoord *top_left,
                                  const dscoord *bottom_right);
VLD_API int dshdr_is_fft(const dshdr *record);
/* 0 when the header of `name` may be written, or VLD_ERR_INVALID_FILE_TYPE or
 * VLD_ERR_CANNOT_WRITE_FILE. */
VLD_API int VLN_can_write_dshdr(const char *name);

/* ---------------------------------------------------------------- coordspace */

VLD_API int ea_coordspace(coordspace **record);
VLD_API void ef_coordspace(coordspace *record);
VLD_API void ef_coordspace_contents(coordspace *record);
VLD_API int ee_coordspace(VLD_KEYWORD **array);
VLD_API int eg_coordspace(coordspace **record, const char *file);
VLD_API int eg_coordspace_noalloc(coordspace *record, const char *file);
/* As the plain readers, but an old CellInfo inside the block is handed out in
 * *old_cellinfo (new, or null), and an old raw ProjectionType without one gets
 * a default one. */
VLD_API int eg_coordspace_special(coordspace **record, const char *file, cellinfo **old_cellinfo);
VLD_API int eg_coordspace_noalloc_special(coordspace *record, const char *file,
                                          cellinfo **old_cellinfo);
VLD_API int ep_coordspace(const coordspace *record, const char *file);
VLD_API int cp_coordspace(coordspace **copy, const coordspace *source);
VLD_API int cp_coordspace_noalloc(coordspace *copy, const coordspace *source);
/* RAW datum and projection, units "natural", no rotation, factor 1.0. */
VLD_API int df_coordspace(coordspace **record);
VLD_API int df_coordspace_noalloc(coordspace *record);

/* ---------------------------------------------------------------- dscoord, extents */

/* Coordinate blocks are read and written by the type of `space` (raw when
 * null); `block` names the block ("Dscoord" when null). */
VLD_API int ea_dscoord(dscoord **record);
VLD_API void ef_dscoord(dscoord *record);
VLD_API int ee_dscoord(VLD_KEYWORD **array);
VLD_API int eg_dscoord(dscoord **record, const char *file);
VLD_API int eg_dscoord_spec(dscoord **record, const char *file, const char *block,
                            const coordspace *space);
VLD_API int eg_dscoord_spec_noalloc(dscoord *record, const char *file, const char *block,
                                    const coordspace *space);
VLD_API int ep_dscoord(const dscoord *record, const char *file);
VLD_API int ep_dscoord_spec(const dscoord *record, const char *file, const char *block,
                            const coordspace *space);
VLD_API int cp_dscoord(dscoord **copy, const dscoord *source);
/* 0 when x, y and z are all equal (two NaN z count as equal). */
VLD_API int dscoord_cmp(const dscoord *a, const dscoord *b);

VLD_API int ea_extents(extents **record);
VLD_API void ef_extents(extents *record);
VLD_API int ee_extents(VLD_KEYWORD **array);
VLD_API int eg_extents_spec_noalloc_internal(extents *record, const char *file, const char *block,
                                             const coordspace *space);
VLD_API int ep_extents_spec_internal(const extents *record, const char *file, const char *block,
                                     const coordspace *space);
VLD_API int cp_extents_noalloc(extents *copy, const extents *source);

/* ---------------------------------------------------------------- rasterinfo and kin */

VLD_API int ea_rasterinfo(rasterinfo **record);
VLD_API void ef_rasterinfo(rasterinfo *record);
VLD_API void ef_rasterinfo_contents(rasterinfo *record);
VLD_API int ee_rasterinfo(VLD_KEYWORD **array);
VLD_API int eg_rasterinfo(rasterinfo **record, const char *file);
VLD_API int eg_rasterinfo_spec(rasterinfo **record, const char *file, const coordspace *space);
VLD_API int eg_rasterinfo_spec_noalloc(rasterinfo *record, const char *file,
                                       const coordspace *space);
VLD_API int ep_rasterinfo(const rasterinfo *record, const char *file);
VLD_API int ep_rasterinfo_spec(const rasterinfo *record, const char *file, const coordspace *space);
/* The short form of a virtual dataset: SensorInfo, WarpControl and regions. */
VLD_API int ep_rasterinfo_vds(const rasterinfo *record, const char *file, const coordspace *space);
VLD_API int cp_rasterinfo_noalloc(rasterinfo *copy, const rasterinfo *source);

VLD_API int ea_bandid(bandid **record);
VLD_API void ef_bandid(bandid *record);
VLD_API void ef_bandid_contents(bandid *record);
VLD_API int ee_bandid(VLD_KEYWORD **array);
VLD_API int eg_bandid(bandid **record, const char *file);
VLD_API int eg_bandid_noalloc(bandid *record, const char *file);
VLD_API int ep_bandid(const bandid *record, const char *file);
VLD_API int cp_bandid_noalloc(bandid *copy, const bandid *source);

VLD_API int ea_vectorinfo(vectorinfo **record);
VLD_API void ef_vectorinfo(vectorinfo *record);
VLD_API void ef_vectorinfo_contents(vectorinfo *record);
VLD_API int ee_vectorinfo(VLD_KEYWORD **array);
VLD_API int eg_vectorinfo(vectorinfo **record, const char *file);
VLD_API int eg_vectorinfo_spec(vectorinfo **record, const char *file, const coordspace *space);
VLD_API int eg_vectorinfo_spec_noalloc(vectorinfo *record, const char *file,
                                       const coordspace *space);
VLD_API int ep_vectorinfo(const vectorinfo *record, const char *file);
VLD_API int ep_vectorinfo_spec(const vectorinfo *record, const char *file, const coordspace *space);
VLD_API int cp_vectorinfo_noalloc(vectorinfo *copy, const vectorinfo *source);

/* `space` is used for the nested raster description when the block has no
 * CoordinateSpace of its own. */
VLD_API int ea_fftinfo(fftinfo **record);
VLD_API void ef_fftinfo(fftinfo *record);
VLD_API void ef_fftinfo_contents(fftinfo *record);
VLD_API int ee_fftinfo(VLD_KEYWORD **array);
VLD_API int eg_fftinfo(fftinfo **record, const char *file);
VLD_API int eg_fftinfo_spec(fftinfo **record, const char *file, const coordspace *space);
VLD_API int eg_fftinfo_spec_noalloc(fftinfo *record, const char *file, const coordspace *space);
VLD_API int ep_fftinfo(const fftinfo *record, const char *file);
VLD_API int ep_fftinfo_spec(const fftinfo *record, const char *file, const coordspace *space);
VLD_API int ep_fftinfo_vds(const fftinfo *record, const char *file);
VLD_API int cp_fftinfo_noalloc(fftinfo *copy, const fftinfo *source);

VLD_API int ea_radarinfo(radarinfo **record);
VLD_API void ef_radarinfo(radarinfo *record);
VLD_API int ee_radarinfo(VLD_KEYWORD **array);
VLD_API int eg_radarinfo(radarinfo **record, const char *file);
VLD_API int eg_radarinfo_noalloc(radarinfo *record, const char *file);
VLD_API int ep_radarinfo(const radarinfo *record, const char *file);
VLD_API int ep_radarinfo_vds(const radarinfo *record, const char *file);
VLD_API int cp_radarinfo_noalloc(radarinfo *copy, const radarinfo *source);

/* ---------------------------------------------------------------- regions */

VLD_API int ea_regioninfo(regioninfo **record);
/* Frees one region (not the rest of its list). */
VLD_API void ef_regioninfo(regioninfo *record);
/* Frees a whole list of regions. */
VLD_API void ef_regioninfo_list(regioninfo *list);
VLD_API int ee_regioninfo(VLD_KEYWORD **array);
VLD_API int eg_regioninfo(regioninfo **record, const char *file);
VLD_API int ep_regioninfo(const regioninfo *record, const char *file);
/* Copies one region; the copy's next is null. */
VLD_API int cp_regioninfo(regioninfo **copy, const regioninfo *source);
/* Puts the region "All" (the whole image) at the head of a raster's regions,
 * unless one has that name or the image is empty. */
VLD_API int setup_all_region(dshdr *record);

VLD_API int ea_rgbcolour(rgbcolour **record);
VLD_API void ef_rgbcolour(rgbcolour *record);
VLD_API int ee_rgbcolour(VLD_KEYWORD **array);
VLD_API int eg_rgbcolour(rgbcolour **record, const char *file);
VLD_API int eg_rgbcolour_noalloc(rgbcolour *record, const char *file);
VLD_API int ep_rgbcolour(const rgbcolour *record, const char *file);
/* As ep_rgbcolour, under the block name `block`. */
VLD_API int ep_rgbcolour_spec(const rgbcolour *record, const char *file, const char *block);

VLD_API int ea_msstats(msstats **record);
/* With every per-band array allocated for `nr_bands` bands, zeroed. */
VLD_API int ea_msstats_spec(msstats **record, int nr_bands);
VLD_API void ef_msstats(msstats *record);
VLD_API int ee_msstats(VLD_KEYWORD **array);
VLD_API int eg_msstats(msstats **record, const char *file);
VLD_API int ep_msstats(const msstats *record, const char *file);
VLD_API int cp_msstats(msstats **copy, const msstats *source);

/* ---------------------------------------------------------------- warp control */

/* `space` is the dataset's own coordinate space: with the warp's type it picks
 * the working space in which the control points are written. */
VLD_API int ea_warp_control(warp_control **record);
VLD_API void ef_warp_control(warp_control *record);
VLD_API int eg_warp_control(warp_control **record, const char *file);
VLD_API int eg_warp_control_noalloc(warp_control *record, const char *file);
VLD_API int ep_warp_control(const warp_control *record, const char *file);
VLD_API int ep_warp_control_spec(const warp_control *record, const char *file,
                                 const coordspace *space);
VLD_API int cp_warp_control(warp_control **copy, const warp_control *source);
/* Writes the rows of a ControlPoints list and its closing brace. */
VLD_API void ep_control_points(const controlpoint *points, int count, int coordsystype);

VLD_API int ea_correction(correction **record);
VLD_API int ep_correction(const correction *record, const char *file);

/* `block` names the block ("GivenOrthoInfo" when null). */
VLD_API int ea_orthoinfo(orthoinfo **record);
VLD_API void ef_orthoinfo(orthoinfo *record);
VLD_API int eg_orthoinfo(orthoinfo **record, const char *file);
VLD_API int eg_orthoinfo_spec(orthoinfo **record, const char *file, const char *block);
VLD_API int eg_orthoinfo_spec_noalloc(orthoinfo *record, const char *file, const char *block);
VLD_API int ep_orthoinfo(const orthoinfo *record, const char *file);
VLD_API int ep_orthoinfo_spec(const orthoinfo *record, const char *file, const char *block);
VLD_API int cp_orthoinfo_noalloc(orthoinfo *copy, const orthoinfo *source);

/* `block` names the block ("MapToMapInfo" when null). */
VLD_API int ea_map_to_map_info(map_to_map_info **record);
VLD_API void ef_map_to_map_info(map_to_map_info *record);
VLD_API int eg_map_to_map_info(map_to_map_info **record, const char *file);
VLD_API int eg_map_to_map_info_spec(map_to_map_info **record, const char *file, const char *block);
VLD_API int eg_map_to_map_info_spec_noalloc(map_to_map_info *record, const char *file,
                                            const char *block);
VLD_API int ep_map_to_map_info(const map_to_map_info *record, const char *file);
VLD_API int ep_map_to_map_info_spec(const map_to_map_info *record, const char *file,
                                    const char *block);
VLD_API int cp_map_to_map_info_noalloc(map_to_map_info *copy, const map_to_map_info *source);

/* ---------------------------------------------------------------- sensors */

VLD_API int ea_sensorinfo(sensorinfo **record);
VLD_API void ef_sensorinfo(sensorinfo *record);
VLD_API void ef_sensorinfo_contents(sensorinfo *record);
VLD_API int eg_sensorinfo(sensorinfo **record, const char *file);
VLD_API int eg_sensorinfo_noalloc(sensorinfo *record, const char *file);
VLD_API int ep_sensorinfo(const sensorinfo *record, const char *file);
VLD_API int cp_sensorinfo(sensorinfo **copy, const sensorinfo *source);
VLD_API int cp_sensorinfo_noalloc(sensorinfo *copy, const sensorinfo *source);
/* Copies over a record that exists, reusing its fiducial records. */
VLD_API int cp_sensorinfo_update(sensorinfo *copy, const sensorinfo *source);
/* A new metric camera: focal length 153.0 mm. */
VLD_API int df_metric_camera_sensorinfo(sensorinfo **record);

/* `block` names the block ("FiducialInfo" when null). */
VLD_API int ea_fiducialinfo(fiducialinfo **record);
VLD_API void ef_fiducialinfo(fiducialinfo *record);
VLD_API void ef_fiducialinfo_contents(fiducialinfo *record);
VLD_API int eg_fiducialinfo(fiducialinfo **record, const char *file);
VLD_API int eg_fiducialinfo_spec(fiducialinfo **record, const char *file, const char *block);
VLD_API int eg_fiducialinfo_spec_noalloc(fiducialinfo *record, const char *file, const char *block);
VLD_API int ep_fiducialinfo(const fiducialinfo *record, const char *file);
VLD_API int ep_fiducialinfo_spec(const fiducialinfo *record, const char *file, const char *block);
VLD_API int cp_fiducialinfo(fiducialinfo **copy, const fiducialinfo *source);
VLD_API int cp_fiducialinfo_noalloc(fiducialinfo *copy, const fiducialinfo *source);
VLD_API int cp_fiducialinfo_update(fiducialinfo *copy, const fiducialinfo *source);
VLD_API int df_fiducialinfo(fiducialinfo **record);

/* `block` names the block; `type` (FIDUCIAL_) picks one of the eight names. */
VLD_API int ea_fiducialpoint(fiducialpoint **record);
VLD_API void ef_fiducialpoint(fiducialpoint *record);
VLD_API int eg_fiducialpoint(fiducialpoint **record, const char *file);
VLD_API int eg_fiducialpoint_spec(fiducialpoint **record, const char *file, const char *block);
VLD_API int eg_fiducialpoint_spec_noalloc(fiducialpoint *record, const char *file,
                                          const char *block);
VLD_API int ep_fiducialpoint(const fiducialpoint *record, const char *file);
VLD_API int ep_fiducialpoint_type_spec(const fiducialpoint *record, const char *file, int type);
VLD_API int cp_fiducialpoint(fiducialpoint **copy, const fiducialpoint *source);
VLD_API int cp_fiducialpoint_noalloc(fiducialpoint *copy, const fiducialpoint *source);
VLD_API int cp_fiducialpoint_update(fiducialpoint *copy, const fiducialpoint *source);
/* Off, unlocked, every position unset (DBL_MAX). */
VLD_API int df_fiducialpoint(fiducialpoint **record);

VLD_END_DECLS

#endif
