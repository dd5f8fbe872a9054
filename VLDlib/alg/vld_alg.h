/*
 * vld_alg.h: the algorithm document.
 *
 * An algorithm says what to show or compute: which datasets and bands, which
 * formulae, kernels and transforms, in which colour model, and how the result
 * sits on a page. Its file is a ".alg" block-text document; in memory it is the
 * algorithm record below: a doubly linked list of surfaces, each a doubly
 * linked list of streams (layers), each with its stream inputs, one formula,
 * and lists of kernels and transforms. The engine compiles the record into its
 * node tree.
 *
 * Lists run in the reverse of display order: the first stream of a surface is
 * the one drawn last. Records are walked and edited through the functions
 * declared here, which give a null record the same answer everywhere (0, null,
 * or -1 for an index).
 *
 * Every record has the usual family (ea_, ef_, eg_, ep_, cp_, df_); readers and
 * writers return 0 or a row of VLD_errmsg, and a failed reader leaves its
 * record allocated for the caller to free with ef_algorithm. Angles are
 * radians in memory and degrees in the text.
 */
#ifndef VORLAN_VLD_ALG_H
#define VORLAN_VLD_ALG_H

#include <stdint.h>

#include "vld_blocktext.h"
#include "vld_core.h"
#include "vld_dshdr.h"

VLD_BEGIN_DECLS

/* ---------------------------------------------------------------- enumerations */

/* Surface ColorMode (and the old DisplayMode). */
enum { CM_Unknown = 1, CM_RGB = 2, CM_HSI = 3, CM_PSEUDO = 4, CM_RTSHADE = 5, CM_DATASET = 6 };

/* Stream Type. */
enum {
    ST_Unknown = 1,
    ST_Red = 2,
    ST_Green = 3,
    ST_Blue = 4,
    ST_Hue = 5,
    ST_Saturation = 6,
    ST_Intensity = 7,
    ST_Pseudo = 8,
    ST_Height = 9,
    ST_ClassificationDisplay = 10,
    ST_Classification = 11,
    ST_DynamicLink = 12,
    ST_DatasetVector = 81,
    ST_GeneratedVector = 82,
    ST_DatasetBand = 99
};

enum { LT_Monocolour = 0, LT_TrueColour = 1 }; /* LinkType */

/* Transform Type. */
enum {
    TT_Unknown = 1,
    TT_Linear = 2,
    TT_Exponential = 3,
    TT_Logarithmic = 4,
    TT_HistogramOnly = 5,
    TT_Null = 6
};

/* Kernel Type. */
enum { KT_Unknown = 1, KT_Convolution = 2, KT_Threshold = 3, KT_User = 4 };

enum { PVM_Normal = 0, PVM_Layout = 1, PVM_Contents = 2 }; /* PageViewMode */
enum { VM_Planimetric2D = 0, VM_Planimetric3D, VM_Perspective3D, VM_Flythrough, VM_EpipolarModel };
enum { SS_NearestNeighbour = 0, SS_Bilinear = 1 };                    /* SuperSampling */
enum { MT_Overlay = 0, MT_Feather = 1 };                              /* MosaicType */
enum { PC_None = 0, PC_Page = 1, PC_Border = 2, PC_Scale = 3 };       /* PageConstraint */
enum { PV_None = 0, PV_MergeWithRaster = 1, PV_AfterRasterOkay = 2 }; /* ProcessVectors */

/* Number of buckets of every histogram of the engine. */
#define VLD_HIST_BUCKETS 256

/* ---------------------------------------------------------------- transforms and kernels */

/* The piecewise-linear shape: nr_points (x, y) pairs in the unit square. */
typedef struct lineardef {
    int32_t nr_points;
    double *points; /* x0, y0, x1, y1, ... */
} lineardef;

/* y = b * exp(a * x) + c on the unit square, and the scaled coefficients. */
typedef struct expdef {
    double a, b, c;
    double a_scaled, b_scaled, c_scaled;
} expdef;

/* y = b * log(x + a) + c on the unit square, and the scaled coefficients. */
typedef struct logdef {
    double a, b, c;
    double a_scaled, b_scaled, c_scaled;
} logdef;

/* The histogram a transform gathered. */
typedef struct histogram {
    int32_t id; /* the transform's id */
    double min_value, max_value;
    uint32_t counts[VLD_HIST_BUCKETS];
    uint32_t below, above;
    uint32_t nr_cells;
    int32_t invalid; /* 1 when it no longer describes its chain */
} histogram;

/* A one-dimensional mapping of cell values. Chains run by next towards the
 * output. */
typedef struct transform {
    struct transform *next, *prev;
    int32_t id;
    double min_output, max_output;
    double min_input, max_input;
    int32_t type;     /* TT_ */
    void *definition; /* lineardef, expdef or logdef by type; null otherwise */
    histogram *histogram;
    int32_t do_in_realtime;
} transform;

/* A spatial filter of rows by columns (both odd). */
typedef struct kernel {
    struct kernel *next;
    int32_t type; /* KT_ */
    char *name;   /* the ".ker" file, or a plain name */
    char *description;
    char *comments;
    int32_t rows, columns;
    int32_t ok_on_subsampled_data;
    double *array; /* rows by columns, row after row; null when absent */
    double scale_factor;
    double threshold;
    char *user_code_file_name;
    char *user_function_name;
    int32_t interface_type; /* 0: C */
    char *user_code_parameters;
} kernel;

/* ---------------------------------------------------------------- formula */

typedef struct formulaarg {
    int32_t stream_input; /* StreamInput: the stream input's id */
    char *band_number;    /* BandNumber, as written (a band id text) */
    bandid *band_id;      /* BandId; null when absent */
} formulaarg;

typedef struct regionarg {
    int32_t region_number;
    char *region_name;
} regionarg;

typedef struct dsarg {
    int32_t dataset_number;
    char *dataset_directory;
    char *dataset_name;
} dsarg;

typedef struct variablearg {
    char *name;
    double value;
} variablearg;

/* A stream's formula: its text and the arrays that bind its inputs, regions,
 * datasets and variables. Each array holds its count of records. */
typedef struct formula {
    char *name; /* a ".frm" file it came from, or null */
    char *description;
    char *comments;
    char *formula; /* the text */
    int32_t nr_args;
    formulaarg *args;
    int32_t nr_region_args;
    regionarg *region_args;
    int32_t nr_dataset_args;
    dsarg *dataset_args;
    int32_t nr_variable_args;
    variablearg *variable_args;
} formula;

/* ---------------------------------------------------------------- page and 3D view */

typedef struct pagesize {
    int32_t page_constraint; /* PC_ */
    double page_width, page_height;
    double top_border, bottom_border, left_border, right_border;
    double scale;
    extents page_extents;
    extents content_extents;
} pagesize;

/* The 3D view: carried unchanged for the application. */
typedef struct d3info {
    int32_t draw_mode;
    int32_t degen_mode;
    double wire_percentage;
    double window_aspect_ratio;
    double view_matrix[16], model_matrix[16], head_matrix[16];
    int32_t all_lights_off;
    int32_t line_anti_alias, display_axes, display_bbox, screen_axes_rotn;
    int32_t fly_thru_mode;
    int32_t move_forward;
    double velocity, turn_rate;
    double eye_xyz[3];
    double left, right, bottom, top, near_plane, far_plane;
    double fly_near, fly_far, fly_fov;
    int32_t fog;
    double fog_density;
    double fog_color[4];
    double material_ambient[4], material_diffuse[4], material_specular[4];
    double material_shininess;
    /* read only */
    int32_t fallback_resolution;
    double point_size, line_width;
    double z_scale;
    int32_t auto_pilot;
} d3info;

/* ---------------------------------------------------------------- surfaces and streams */

typedef struct streaminput {
    struct streaminput *next, *prev;
    int32_t id;            /* StreamInputID */
    transform *transforms; /* input transforms */
    kernel *kernels;       /* input kernels */
} streaminput;

typedef struct stream {
    struct stream *prev, *next;
    char *description;
    uint8_t turned_off;
    int32_t type; /* ST_ */
    int32_t is_scattergram_region;
    char *dataset;
    char *menu_button_description;
    char *filter_program_name;
    int32_t link_type; /* LT_ */
    char *file_extent;
    char *initialisation_program;
    uint8_t can_edit;
    char *edit_program;
    streaminput *stream_inputs;
    formula formula;
    kernel *kernels;       /* output kernels */
    transform *transforms; /* output transforms */
    int32_t do_static_shade;
    double sun_azimuth, sun_angle; /* radians */
    uint16_t *rgb_colours;         /* nr_rgb_colours triples */
    int32_t nr_rgb_colours;
    int32_t being_annotated;
    uint8_t *colours8;  /* nr_rgb_colours entries; null when absent */
    uint8_t *colours24; /* nr_rgb_colours triples; null when absent */
    /* the cached layer */
    coordspace coordspace;
    dscoord top_left, bottom_right;
    int32_t multiple_coordspaces;
    int32_t desired_coordinate_type;
    char *postscript_filename;
    dshdr *dshdr;
    int32_t surface_id;
    /* the class colour of Classification and DynamicLink layers */
    int32_t class_colour_set;
    rgbcolour class_colour; /* RGBcolour, 16-bit components */
    uint8_t class_colour8;
    uint8_t class_colour24[3];
    int32_t file_time; /* modification time of the cached header's file */
} stream;

typedef struct surface {
    struct surface *prev, *next;
    stream *first_stream;
    uint8_t turned_off;
    char *name;
    int32_t id;
    double z_scale, z_scale_min, z_scale_max;
    double z_offset, z_offset_min, z_offset_max;
    double transparency;
    int32_t color_mode; /* CM_ */
    char *lookup_table;
    uint8_t selected;
} surface;

typedef struct algorithm {
    char *version;
    char *name;
    char *description;
    char *author;
    char *comments;
    int32_t last_updated;
    d3info d3info;
    surface *surfaces;
    int32_t convert_to_greyscale;
    int32_t background_colour_set;
    coordspace *coordspace;
    dscoord *top_left, *bottom_right;
    int32_t super_sampling;
    int32_t mosaic_type;
    pagesize page;
    int32_t page_view_mode, view_mode;
    dscoord *adjusted_bottom_right;
    int32_t output_height, output_width;
    int32_t canvas_height, canvas_width;
    int32_t x_offset, y_offset;
    double dots_per_inch_across, dots_per_inch_down;
    int32_t enforce_aspect, do_optimisation, do_compilation, calc_histograms, colour24;
    int32_t reserved_colours;
    uint8_t *reserved_colours8;  /* reserved_colours entries */
    uint8_t *reserved_colours24; /* reserved_colours triples */
    uint8_t null_colour;
    uint8_t background_colour[3];
    double null_value;
    uint8_t stipple_colour;
    uint8_t stipple_colour24[3];
    int32_t process_vectors; /* PV_ */
    int32_t output_type;     /* a cell type */
    char *output_file;
    dscoord canvas_top_left, canvas_bottom_right;
    surface *current_surface;
    stream *current_stream;
    stream *intensity_input;
    streaminput *intensity_streaminput;
    stream *height_input;
    streaminput *height_streaminput;
    uint8_t is_new;
} algorithm;

/* Exported enum tables of the document's keywords. */
extern VLD_API const VLD_ENUM ev_StreamType[];
extern VLD_API const VLD_ENUM ev_ColorMode[];
extern VLD_API const VLD_ENUM ev_TransformType[];
extern VLD_API const VLD_ENUM ev_KernelType[];

/* ---------------------------------------------------------------- the document */

VLD_API int ea_algorithm(algorithm **record);
VLD_API void ef_algorithm(algorithm *record);
/* Reads and finishes an algorithm: defaults, upgrades, the selection, and the
 * set-up of each layer that is on. */
VLD_API int eg_algorithm(algorithm **record, const char *name);
VLD_API int eg_algorithm_standard(algorithm **record, const char *directory, const char *name);
/* The same for an algorithm embedded in a dataset header: no layer set-up. */
VLD_API int eg_vds_algorithm(algorithm **record, const char *name);
VLD_API int eg_algorithm_with_transients(algorithm **record, const char *name);
VLD_API int ep_algorithm(algorithm *record, const char *name);
VLD_API int ep_vds_algorithm(algorithm *record, const char *name);
VLD_API int ep_algorithm_with_transients(algorithm *record, const char *name);
VLD_API int ee_algorithm(VLD_KEYWORD **array);
VLD_API int df_algorithm(algorithm **record);
VLD_API int cp_algorithm(algorithm **copy, const algorithm *source);
VLD_API int cp_algorithm_all(algorithm **copy, const algorithm *source);

VLD_API int ea_surface(surface **record);
VLD_API void ef_surface(surface *record);
VLD_API void ef_surface_contents(surface *record);
VLD_API int cp_surface(surface **copy, const surface *source);
VLD_API int cp_surface_noalloc(surface *copy, const surface *source);
VLD_API int df_surface(surface **record);
VLD_API int df_surface_noalloc(surface *record);

VLD_API int ea_stream(stream **record);
VLD_API void ef_stream(stream *record);
VLD_API int cp_stream(stream **copy, const stream *source);
VLD_API int df_stream(stream **record, int type);

VLD_API int ea_streaminput(streaminput **record);
VLD_API void ef_streaminput(streaminput *record);
VLD_API int cp_streaminput(streaminput **copy, const streaminput *source);

VLD_API int ea_formula(formula **record);
VLD_API void ef_formula(formula *record);
VLD_API void ef_formula_contents(formula *record);
/* Reads a ".frm" document, or a Formula block of the open document. */
VLD_API int eg_formula(formula **record, const char *name);
VLD_API int eg_formula_noalloc(formula *record, const char *name);
VLD_API int ep_formula(const formula *record, const char *name);
VLD_API int cp_formula(formula **copy, const formula *source);
VLD_API int cp_formula_noalloc(formula *copy, const formula *source);
/* The formula of one input on its band: "INPUT1". */
VLD_API int df_formula(formula **record);
VLD_API int df_formula_noalloc(formula *record);
VLD_API void ef_formulaarg_contents(formulaarg *record);
VLD_API int cp_formulaarg_noalloc(formulaarg *copy, const formulaarg *source);
VLD_API void ef_regionarg_contents(regionarg *record);
VLD_API int cp_regionarg_noalloc(regionarg *copy, const regionarg *source);
VLD_API void ef_dsarg_contents(dsarg *record);
VLD_API void ef_dsarg_array(dsarg *array, int count);
VLD_API int cp_dsarg_noalloc(dsarg *copy, const dsarg *source);
VLD_API void ef_variablearg_contents(variablearg *record);
VLD_API void ef_variablearg_array(variablearg *array, int count);
VLD_API int cp_variablearg_noalloc(variablearg *copy, const variablearg *source);

VLD_API int ea_kernel(kernel **record);
VLD_API void ef_kernel(kernel *record);
VLD_API void ef_kernel_contents(kernel *record);
/* Reads a ".ker" document, or a Kernel block of the open document. */
VLD_API int eg_kernel(kernel **record, const char *name);
VLD_API int ep_kernel(const kernel *record, const char *name);
VLD_API int cp_kernel(kernel **copy, const kernel *source);
VLD_API int cp_kernel_noalloc(kernel *copy, const kernel *source);
/* A "Default Kernel" of size by size: 1.0 in the centre, 0 elsewhere. */
VLD_API int df_kernel(kernel **record, int size);
VLD_API int df_kernel_noalloc(kernel *record, int size);
VLD_API int kernel_is_trivial(const kernel *record);

VLD_API int ea_transform(transform **record);
VLD_API void ef_transform(transform *record);
VLD_API int eg_transform(transform **record, const char *name);
VLD_API int ep_transform(const transform *record, const char *name);
VLD_API int cp_transform(transform **copy, const transform *source);
VLD_API int cp_transform_noalloc(transform *copy, const transform *source);
/* Copies the ranges, type and definition, but not the links, id or histogram. */
VLD_API int cp_transform_partial(transform *copy, const transform *source);
/* Ranges 0 to 255 both ways and the type's default shape; VLD_ERR_INVALID_TRANSFORM_TYPE for a type
 * outside 2 to 6. */
VLD_API int df_transform(transform **record, int type);
VLD_API int df_transform_noalloc(transform *record, int type);
VLD_API int cp_lineardef(lineardef **copy, const lineardef *source);
VLD_API int cp_expdef(expdef **copy, const expdef *source);
VLD_API int cp_logdef(logdef **copy, const logdef *source);

VLD_API int ea_histogram(histogram **record);
VLD_API void ef_histogram(histogram *record);
VLD_API int cp_histogram(histogram **copy, const histogram *source);
VLD_API int cp_histogram_noalloc(histogram *copy, const histogram *source);

VLD_API int ea_pagesize(pagesize **record);
VLD_API void ef_pagesize(pagesize *record);
VLD_API int eg_pagesize_spec(pagesize **record, const char *file, const coordspace *space);
VLD_API int eg_pagesize_spec_noalloc(pagesize *record, const char *file, const coordspace *space);
VLD_API int ep_pagesize_spec(const pagesize *record, const char *file, const coordspace *space);
VLD_API int cp_pagesize_noalloc(pagesize *copy, const pagesize *source);

VLD_API int ea_d3info(d3info **record);
VLD_API void ef_d3info(d3info *record);
VLD_API int eg_d3info_noalloc(d3info *record, const char *file);
VLD_API int cp_d3info(d3info **copy, const d3info *source);
VLD_API int cp_d3info_noalloc(d3info *copy, const d3info *source);

/* ---------------------------------------------------------------- layers and the page */

/* Brings a stream's cached layer (header, space, corners) up to date for the
 * dataset `name`; `ignored` is not used. */
VLD_API int setup_layer_cspace_and_extents(algorithm *alg, stream *layer, int ignored,
                                           const char *name, int share);
VLD_API int setup_layer_cspace_and_extents_ex(algorithm *alg, stream *layer, int ignored,
                                              const char *name, int share, int reproject);
/* The extents of a header: stored for a vector, worked out for a raster. */
VLD_API int setup_extents_from_dsh(const dshdr *header, dscoord *top_left, dscoord *bottom_right);
/* Fits the formula's inputs to the bands of the dataset. */
VLD_API int VLD_merge_new_d_with_f(formula *f, const dshdr *header);

/* Repairs a page that the document left unset. */
VLD_API int check_pagesize(algorithm *alg);
VLD_API double page_check_get_scale(const algorithm *alg, double page_width, double page_height,
                                    double *width, double *height);
/* The content's size in metres (`rotated` 0: the corners as they stand). */
VLD_API int page_check_get_extents(const algorithm *alg, double *width, double *height,
                                   int rotated);
VLD_API int page_set_rotated_contents_from_alg(algorithm *alg);
VLD_API int page_get_rotated_contents_from_alg(const algorithm *alg, extents *contents);
VLD_API int page_rotated_contents_from_alg(const algorithm *alg, dscoord *top_left,
                                           dscoord *bottom_right);
VLD_API int page_set_rotated_page_from_delta(algorithm *alg, double dx, double dy);

/* Fits the output window to the algorithm's aspect at the given resolutions. */
VLD_API int adjust_for_aspect(algorithm *alg, double dpi_x, double dpi_y);

/* ---------------------------------------------------------------- walking and editing */

VLD_API int nr_surfaces_in_alg(const algorithm *alg);
VLD_API int nr_streams_in_alg(const algorithm *alg);
VLD_API int nr_streams_in_surface(const surface *s);
VLD_API surface *surface_of_stream(const algorithm *alg, const stream *st);
VLD_API int surface_index_in_alg(const algorithm *alg, const surface *s);
VLD_API int stream_id(const stream *st);
VLD_API int count_stream_inputs(const stream *st);
VLD_API streaminput *nth_stream_input(const stream *st, int n);
VLD_API stream *get_annot_edit_stream(const algorithm *alg);
VLD_API int is_raster_stream(const stream *st);
VLD_API int check_stream_type(int mode, const stream *st);

VLD_API stream *first_stream_in_alg(const algorithm *alg);
VLD_API stream *first_stream_in_surface(const surface *s);
VLD_API stream *last_stream_in_alg(const algorithm *alg);
VLD_API stream *last_stream_in_surface(const surface *s);
VLD_API stream *get_last_stream_in_surface(const surface *s);
VLD_API stream *next_stream(const stream *st);
VLD_API stream *prev_stream(const stream *st);
VLD_API stream *first_active_stream_in_alg(const algorithm *alg);
VLD_API stream *first_active_stream_in_surface(const surface *s);
VLD_API stream *next_active_stream_in_alg(const algorithm *alg, const stream *st);
VLD_API stream *next_active_stream_in_surface(const surface *s, const stream *st);
VLD_API stream *first_active_raster_stream_in_alg(const algorithm *alg);
VLD_API stream *first_active_raster_stream_in_Surface(const surface *s);
VLD_API int got_active_intensity_stream_in_alg(const algorithm *alg);
VLD_API int got_active_intensity_stream_in_surface(const surface *s);
VLD_API stream *first_rtshade_stream_in_alg(const algorithm *alg);
VLD_API stream *first_rtshade_stream_in_surface(const surface *s);

VLD_API streaminput *first_stream_input(const stream *st);
VLD_API streaminput *last_stream_input(const stream *st);
VLD_API streaminput *next_stream_input(const streaminput *in);
VLD_API streaminput *prev_stream_input(const streaminput *in);
VLD_API kernel *first_stream_output_kernel(const stream *st);
VLD_API kernel *last_stream_output_kernel(const stream *st);
VLD_API kernel *next_stream_output_kernel(const kernel *k);
VLD_API kernel *prev_stream_output_kernel(const stream *st, const kernel *k);
VLD_API kernel **p_first_stream_output_kernel(stream *st);
VLD_API kernel **p_next_stream_output_kernel(kernel *k);
VLD_API kernel *first_stream_input_kernel(const streaminput *in);
VLD_API kernel *last_stream_input_kernel(const streaminput *in);
VLD_API kernel *next_stream_input_kernel(const kernel *k);
VLD_API kernel *prev_stream_input_kernel(const streaminput *in, const kernel *k);
VLD_API kernel **p_first_stream_input_kernel(streaminput *in);
VLD_API kernel **p_next_stream_input_kernel(kernel *k);
VLD_API transform *first_stream_output_transform(const stream *st);
VLD_API transform *last_stream_output_transform(const stream *st);
VLD_API transform *next_stream_output_transform(const transform *t);
VLD_API transform *prev_stream_output_transform(const transform *t);
VLD_API transform *first_stream_input_transform(const streaminput *in);
VLD_API transform *last_stream_input_transform(const streaminput *in);
VLD_API transform *next_stream_input_transform(const transform *t);
VLD_API transform *prev_stream_input_transform(const transform *t);

VLD_API int insert_surface_into_alg(algorithm *alg, surface *added, surface *before);
VLD_API surface *cp_surface_in_alg(algorithm *alg, surface *s);
VLD_API int delete_surface(algorithm *alg, surface *s);
VLD_API int move_stream_up(algorithm *alg, stream *st);
VLD_API int move_stream_down(algorithm *alg, stream *st);
VLD_API int move_stream_first(algorithm *alg, stream *st);
VLD_API int move_stream_last(algorithm *alg, stream *st);
VLD_API int move_surface_up(algorithm *alg, surface *s);
VLD_API int move_surface_down(algorithm *alg, surface *s);
VLD_API int move_surface_first(algorithm *alg, surface *s);
VLD_API int move_surface_last(algorithm *alg, surface *s);
VLD_API int reverse_streams_in_surface(surface *s);
VLD_API int reverse_streams_in_alg(algorithm *alg);
VLD_API int reverse_alg_stack(algorithm *alg);
VLD_API int delete_output_transforms_in_alg(algorithm *alg);

VLD_API int stream_is_valid(const stream *st, int mode);
VLD_API int stream_type_name(const char **name, int type);
VLD_API char *get_default_layer_description(int type, int with_word);
VLD_API void check_for_default_layer_desc(stream *st);

VLD_API int VLN_calc_alg_abs_extents(algorithm *alg, dscoord *top_left, dscoord *bottom_right,
                                     int raster, int height, int vector, int virtual_ds,
                                     int turned_off_surfaces, int turned_off_streams,
                                     int invalid_streams);

/* ---------------------------------------------------------------- default algorithms and queries
 */

/* The band groups of a surface: streams that share a description. */
typedef struct msinfo {
    struct msinfo *next;
    char *name;
    int32_t nr_streams;
    stream **streams;
} msinfo;

VLD_API int VLN_create_default_algorithm(algorithm **alg, const char *name);
VLD_API int VLN_create_default_alg_from_dataset_fspec(algorithm **alg, const char *name,
                                                      double percentage);
VLD_API int VLN_create_algorithm(algorithm **alg, const char *name, double clip, double limit);
/* The clipping passes of VLN_create_algorithm fit the layers' transforms to
 * histograms that the engine gathers; the engine installs them when it
 * starts. Without them (no engine started) the transforms keep their
 * defaults. The function returns 0 or a row of the message table. */
typedef int (*VLN_alg_clip_passes_fn)(algorithm *alg, double clip, double limit);
VLD_API void VLN_set_alg_clip_passes(VLN_alg_clip_passes_fn passes);
VLD_API int VLD_setup_dsh_from_alg(dshdr *header);
VLD_API int VLN_get_algorithm_nominal_cell_size(algorithm *alg, double *x, double *y);
VLD_API int VLN_get_algorithm_nominal_cell_sizeEx(algorithm *alg, double *x, double *y, int flag);
VLD_API int VLN_get_algorithm_default_image_and_cell_dimensions(algorithm *alg, int *lines,
                                                                int *cells, double *x, double *y);
VLD_API int VLN_get_algorithm_default_image_and_cell_dimensionsEx(algorithm *alg, int *lines,
                                                                  int *cells, double *x, double *y,
                                                                  int flag);
VLD_API int VLN_get_algorithm_band_info(algorithm *alg, int *count, bandid **bandids);
VLD_API int VLN_get_algorithm_dsh(algorithm *alg, dshdr **header);
VLD_API int VLN_get_algorithm_dshEx(algorithm *alg, dshdr **header, int flag);
VLD_API int VLD_check_ds_in_alg(const algorithm *alg, const char *parent, const char *name);
VLD_API int VLD_check_recur_alg(const algorithm *alg, char **name, char **parent);
VLD_API int VLD_setup_msinfo(msinfo **list, const algorithm *alg);
VLD_API int VLD_setup_msinfo_surface(msinfo **list, const surface *s);
VLD_API void VLD_free_msinfos(msinfo *list);
VLD_API int alg_is_fft(const algorithm *alg);

VLD_END_DECLS

#endif
