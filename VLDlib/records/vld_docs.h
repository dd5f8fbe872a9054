/*
 * vld_docs.h: the cell-size record and the small block-text documents.
 *
 * Every record here has the one family of operations: ea_ allocates, ee_
 * lists the keywords, ef_ frees, eg_ reads, ep_ writes, cp_ copies, df_ sets
 * defaults, with the suffixes _noalloc (work on a given record), _contents
 * (free what an embedded record owns), _spec (an extra argument, here the
 * block name) and _standard (find the file in the installation tree).
 *
 * Readers and writers return 0 or a row of VLD_errmsg. A reader that fails
 * leaves its record allocated and partly filled, for ef_ to free. A null file
 * name continues the document being read or written. Records are plain C
 * structures; every string and sub-record they point to is theirs.
 */
#ifndef VORLAN_VLD_DOCS_H
#define VORLAN_VLD_DOCS_H

#include <stdint.h>

#include "vld_blocktext.h"
#include "vld_core.h"

VLD_BEGIN_DECLS

/* Records defined with the dataset header. */
struct warp_control;
struct regioninfo;

/* ---------------------------------------------------------------- CellInfo */

/* The size of a cell in the units of its coordinate space. */
typedef struct cellinfo {
    double x_overlap;
    double y_dimension;
    double y_overlap;
    double x_dimension;
    double z_dimension;
    double z_overlap;
} cellinfo;

VLD_API int ea_cellinfo(cellinfo **address);
VLD_API int ee_cellinfo(VLD_KEYWORD **array);
VLD_API void ef_cellinfo(cellinfo *record);
VLD_API int eg_cellinfo(cellinfo **address, const char *filename);
VLD_API int eg_cellinfo_noalloc(cellinfo *record, const char *filename);
/* Writes nothing (and returns 0) when every dimension is 0 or 1 and every
 * overlap 0. */
VLD_API int ep_cellinfo(const cellinfo *record, const char *filename);
VLD_API int df_cellinfo(cellinfo **address);
VLD_API int cp_cellinfo_noalloc(cellinfo *copy, const cellinfo *source);
/* Dimensions of 0 become 1.0. */
VLD_API void setup_cellinfo_defaults(cellinfo *record);

/* ---------------------------------------------------------------- ClipInfo */

typedef struct clipinfo {
    double clip_min;
    double clip_max;
} clipinfo;

VLD_API int ea_clipinfo(clipinfo **address);
VLD_API void ef_clipinfo(clipinfo *record);
VLD_API int eg_clipinfo(clipinfo **address, const char *filename);
VLD_API int eg_clipinfo_noalloc(clipinfo *record, const char *filename);
VLD_API int ep_clipinfo(const clipinfo *record, const char *filename);

/* ---------------------------------------------------------------- Windef, ScreenDef */

typedef struct windef {
    int32_t win_pos_x;
    int32_t win_pos_y;
    int32_t win_size_x;
    int32_t win_size_y;
} windef;

VLD_API int ea_windef(windef **address);
VLD_API void ef_windef(windef *record);
VLD_API int eg_windef(windef **address, const char *filename);
VLD_API int ep_windef(const windef *record, const char *filename);

typedef struct screendef {
    struct windef *windef; /* null when absent */
} screendef;

VLD_API int ea_screendef(screendef **address);
VLD_API void ef_screendef(screendef *record);
VLD_API void ef_screendef_contents(screendef *record);
VLD_API int eg_screendef(screendef **address, const char *filename);
VLD_API int ep_screendef(const screendef *record, const char *filename);

/* ---------------------------------------------------------------- DisplayDef, DisplayInfo */

typedef struct displaydef {
    char *control_display;
    char *primary_image_display;
    char *secondary_image_displays;
} displaydef;

VLD_API int ea_displaydef(displaydef **address);
VLD_API void ef_displaydef(displaydef *record);
VLD_API int eg_displaydef(displaydef **address, const char *filename);
VLD_API int ep_displaydef(const displaydef *record, const char *filename);
/* Every display is the local one, ":0". */
VLD_API int df_displaydef(displaydef **address);

typedef struct displayinfo {
    char *display;
    int32_t number_reserved_colors;
} displayinfo;

VLD_API int ea_displayinfo(displayinfo **address);
VLD_API void ef_displayinfo(displayinfo *record);
VLD_API int eg_displayinfo(displayinfo **address, const char *filename);
VLD_API int ep_displayinfo(const displayinfo *record, const char *filename);
/* The local display ":0", no reserved colours. */
VLD_API int df_displayinfo(displayinfo **address);

/* ---------------------------------------------------------------- LookUpTable */

/* One colour of a lookup table: its index and 16-bit red, green and blue. */
typedef VLD_LUT_ENTRY lutentry;

enum { LUT_LOAD_None = 0, LUT_LOAD_Compress = 1, LUT_LOAD_Truncate = 2 };

typedef struct lut {
    char *version;
    char *name;
    char *description;
    char *comments;
    int32_t load_method;
    int32_t nr_entries;
    lutentry *entries; /* nr_entries of them */
} lut;

VLD_API int ea_lut(lut **address);
VLD_API void ef_lut(lut *record);
VLD_API int eg_lut(lut **address, const char *filename);
/* Reads "<base>/lut/<name>.lut"; a null base is $VORLAN. A name with a
 * directory part is taken as it stands; ".lut" is added when missing. */
VLD_API int eg_lut_standard(lut **address, const char *base, const char *name);
VLD_API int ep_lut(const lut *record, const char *filename);
VLD_API int cp_lut(lut **address, const lut *source);

/* ---------------------------------------------------------------- VLNConfig */

enum { CONFIG_UNITS_Metric = 0, CONFIG_UNITS_Imperial = 1 };
enum { HIST_STYLE_Cumulative = 1, HIST_STYLE_NonCumulative = 2, HIST_STYLE_DeQuantised = 3 };

typedef struct VLNConfig {
    char *version;
    int32_t units;
    char *default_pseudo_lut;
    char *default_rgb_lut;
    char *default_hsi_lut;
    char *default_rtshade_lut;
    char *default_hardcopy;
    int32_t default_hist_style;
    struct lut *lookup_table; /* the blocks: null when absent */
    struct screendef *screendef;
    struct displaydef *displaydef;
    struct displayinfo *displayinfo;
    int32_t enforce_aspect_ratio;
    int32_t do_optimisation;
    char *c_library_switches;
    char *fortran_library_switches;
    char *postscript_printer;
    char *line_printer;
    int32_t user_if_screen_nr;
    int32_t terse_formula;
    int32_t minimum_sampling_rate;
    int32_t cache_sampling_rate;
    int32_t dont_fill_cache;
} VLNConfig;

/* The configuration of the process, read once by the dataset header reader;
 * null until then, or when it can't be read. */
extern VLD_API VLNConfig *p_current_config;

VLD_API int ea_config(VLNConfig **address);
VLD_API void ef_config(VLNConfig *record);
VLD_API int eg_config(VLNConfig **address, const char *filename);
/* Reads <directory>/<name>: by default $VORLAN/config and "config.vln". */
VLD_API int eg_config_standard(VLNConfig **address, const char *directory, const char *name);
VLD_API int ep_config(const VLNConfig *record, const char *filename);

/* ---------------------------------------------------------------- digitiser documents */

enum { DIG_PARITY_None = 0, DIG_PARITY_Odd = 1, DIG_PARITY_Even = 2 };

typedef struct digconfiginfo {
    char *name;
    char *comments;
    char *port;
    int32_t baud_rate;
    int32_t parity;
    int32_t stop_bits;
    int32_t data_bits;
} digconfiginfo;

VLD_API int ea_digconfiginfo(digconfiginfo **address);
VLD_API void ef_digconfiginfo(digconfiginfo *record);
VLD_API int eg_digconfiginfo(digconfiginfo **address, const char *filename);
VLD_API int eg_digconfiginfo_noalloc(digconfiginfo *record, const char *filename);
VLD_API int ep_digconfiginfo(const digconfiginfo *record, const char *filename);

typedef struct digsessioninfo {
    char *name;
    char *comments;
    char *type_file;                   /* absolute after reading */
    char *config_file;                 /* absolute after reading */
    struct warp_control *warp_control; /* null when absent */
} digsessioninfo;

VLD_API int ea_digsessioninfo(digsessioninfo **address);
VLD_API void ef_digsessioninfo(digsessioninfo *record);
VLD_API int eg_digsessioninfo(digsessioninfo **address, const char *filename);
VLD_API int eg_digsessioninfo_noalloc(digsessioninfo *record, const char *filename);
VLD_API int ep_digsessioninfo(const digsessioninfo *record, const char *filename);

typedef struct digtypeinfo {
    char *comments;
    int32_t dig_string_length;
    char *last_character;
    char *x_position;
    char *y_position;
    char *flag_position;
    char *status_position;
    char *button_down;
    char *button_up;
} digtypeinfo;

VLD_API int ea_digtypeinfo(digtypeinfo **address);
VLD_API void ef_digtypeinfo(digtypeinfo *record);
VLD_API int eg_digtypeinfo(digtypeinfo **address, const char *filename);
VLD_API int eg_digtypeinfo_noalloc(digtypeinfo *record, const char *filename);
VLD_API int ep_digtypeinfo(const digtypeinfo *record, const char *filename);

/* ---------------------------------------------------------------- CctConfigInfo */

enum { CCT_FORMAT_general = 0, CCT_FORMAT_ers1 = 1, CCT_FORMAT_spot = 2, CCT_FORMAT_amira = 3 };

typedef struct cctconfiginfo {
    int32_t format;
    char *volume_directory_file;
    char *leader_file;
    char *image_file_one;
    char *image_file_two;
    char *trailer_file;
} cctconfiginfo;

VLD_API int ea_cctconfiginfo(cctconfiginfo **address);
VLD_API void ef_cctconfiginfo(cctconfiginfo *record);
VLD_API int eg_cctconfiginfo(cctconfiginfo **address, const char *filename);
VLD_API int eg_cctconfiginfo_noalloc(cctconfiginfo *record, const char *filename);
VLD_API int ep_cctconfiginfo(const cctconfiginfo *record, const char *filename);

/* ---------------------------------------------------------------- Ellipsoid */

typedef struct ellipsoid {
    int32_t ellipsoid_type; /* None 0, UserDefined 1, GRS80 2, ... Everest 11 */
    double equatorial_radius;
    double eccentricity_squared;
} ellipsoid;

VLD_API int ea_ellipsoid(ellipsoid **address);
VLD_API int ee_ellipsoid(VLD_KEYWORD **array);
VLD_API void ef_ellipsoid(ellipsoid *record);
VLD_API int eg_ellipsoid(ellipsoid **address, const char *filename);
VLD_API int eg_ellipsoid_noalloc(ellipsoid *record, const char *filename);
VLD_API int ep_ellipsoid(const ellipsoid *record, const char *filename);
/* Writes the block under the name `block` (null: "Ellipsoid"). */
VLD_API int ep_ellipsoid_spec(const ellipsoid *record, const char *filename, const char *block);
VLD_API int cp_ellipsoid(ellipsoid **address, const ellipsoid *source);
VLD_API int cp_ellipsoid_noalloc(ellipsoid *copy, const ellipsoid *source);

/* ---------------------------------------------------------------- Gamma, Hardcopyinfo */

/* The gamma of a device's three channels. (Named so to keep clear of the
 * C library's gamma function.) */
typedef struct gammainfo {
    double red;
    double green;
    double blue;
} gammainfo;

VLD_API int ea_gamma(gammainfo **address);
VLD_API void ef_gamma(gammainfo *record);
VLD_API int eg_gamma(gammainfo **address, const char *filename);
VLD_API int eg_gamma_noalloc(gammainfo *record, const char *filename);
VLD_API int ep_gamma(const gammainfo *record, const char *filename);
/* Writes the block under the name `block` (null: "Gamma"). */
VLD_API int ep_gamma_spec(const gammainfo *record, const char *filename, const char *block);

/* A colour of a hardcopy device, each channel from 0.0 to 1.0. */
typedef struct hardcopycolour {
    double red;
    double green;
    double blue;
} hardcopycolour;

typedef struct hardcopyinfo {
    char *name;
    char *comments;
    double dots_per_inch_across;
    double dots_per_inch_down;
    int32_t maximum_dots_across;
    int32_t maximum_dots_down;
    char *filter_program;
    char *output_program;
    char *gamma_lut;
    gammainfo gamma;                  /* left out when all 0 */
    hardcopycolour background_colour; /* left out when all 0 */
} hardcopyinfo;

VLD_API int ea_hardcopyinfo(hardcopyinfo **address);
VLD_API void ef_hardcopyinfo(hardcopyinfo *record);
VLD_API int eg_hardcopyinfo(hardcopyinfo **address, const char *filename);
VLD_API int eg_hardcopyinfo_noalloc(hardcopyinfo *record, const char *filename);
VLD_API int ep_hardcopyinfo(const hardcopyinfo *record, const char *filename);

/* ---------------------------------------------------------------- MapHints */

typedef struct maphints {
    int32_t fast_preview_hint;
    int32_t page_relative_hint;
    int32_t square_hint;
    double width_hint;
    double height_hint;
    double left_margin_hint;
    double right_margin_hint;
    double top_margin_hint;
    double bottom_margin_hint;
} maphints;

VLD_API int ea_maphints(maphints **address);
VLD_API void ef_maphints(maphints *record);
VLD_API int eg_maphints(maphints **address, const char *filename);
VLD_API int eg_maphints_noalloc(maphints *record, const char *filename);
VLD_API int ep_maphints(const maphints *record, const char *filename);
VLD_API int cp_maphints_noalloc(maphints *copy, const maphints *source);
/* No hints: the flags off, the sizes and margins 0. */
VLD_API int df_maphints(maphints **address);
VLD_API int df_maphints_noalloc(maphints *record);

/* ---------------------------------------------------------------- AllowedValues, DlinkParam,
 * UserParameter */

/* A list of the values a parameter may take. */
typedef struct allowed {
    int32_t nr_values;
    char **values; /* nr_values strings and a null after them; null when empty */
} allowed;

VLD_API int ea_allowed(allowed **address);
VLD_API void ef_allowed(allowed *record);
VLD_API int eg_allowed(allowed **address, const char *filename);
/* Reads the block named `block` (null: "AllowedValues"). */
VLD_API int eg_allowed_spec(allowed **address, const char *filename, const char *block);
VLD_API int ep_allowed(const allowed *record, const char *filename);
VLD_API int ep_allowed_spec(const allowed *record, const char *filename, const char *block);

typedef struct dlinkparam {
    char *default_string;
    char *chooser_string;
    char *link_program;
    char *init_program;
} dlinkparam;

VLD_API int ea_dlinkparam(dlinkparam **address);
VLD_API void ef_dlinkparam(dlinkparam *record);
VLD_API void ef_dlinkparam_contents(dlinkparam *record);
VLD_API int eg_dlinkparam(dlinkparam **address, const char *filename);
VLD_API int eg_dlinkparam_noalloc(dlinkparam *record, const char *filename);
VLD_API int ep_dlinkparam(const dlinkparam *record, const char *filename);
VLD_API int cp_dlinkparam_noalloc(dlinkparam *copy, const dlinkparam *source);

enum {
    UPARAM_None = 0,
    UPARAM_YesNo = 1,
    UPARAM_String = 2,
    UPARAM_Number = 3,
    UPARAM_List = 4,
    UPARAM_Color = 5,
    UPARAM_Font = 6,
    UPARAM_Algorithm = 7,
    UPARAM_DynamicLink = 8
};

typedef struct userparam {
    struct userparam *next; /* parameters of a rule form a list */
    char *name;
    int32_t type;
    allowed allowed_values; /* the AllowedValues list */
    char *default_value;
    struct dlinkparam *dlinkparam; /* null when absent */
} userparam;

VLD_API int ea_userparam(userparam **address);
/* Frees one parameter; its `next` is left alone. */
VLD_API void ef_userparam(userparam *record);
/* Frees a whole list. */
VLD_API void ef_userparams(userparam *list);
VLD_API int eg_userparam(userparam **address, const char *filename);
VLD_API int eg_userparam_noalloc(userparam *record, const char *filename);
VLD_API int ep_userparam(const userparam *record, const char *filename);
/* Copies one parameter; the copy's `next` is null. */
VLD_API int cp_userparam_noalloc(userparam *copy, const userparam *source);

/* ---------------------------------------------------------------- FontNode */

/* A named text style of a vector layer. */
typedef struct fontnode {
    char *item;
    char *font_name;
    double font_size;
    int32_t font_type;
    int32_t text_mode;
    int32_t justify;
    int32_t pen;
    double rotation; /* degrees, as in a text object */
    int32_t red;
    int32_t green;
    int32_t blue;
} fontnode;

VLD_API int ea_fontnode(fontnode **address);
VLD_API int ee_fontnode(VLD_KEYWORD **array);
VLD_API void ef_fontnode(fontnode *record);
VLD_API int eg_fontnode(fontnode **address, const char *filename);
VLD_API int eg_fontnode_noalloc(fontnode *record, const char *filename);
VLD_API int ep_fontnode(const fontnode *record, const char *filename);

/* ---------------------------------------------------------------- StatsFile */

typedef struct statsfile {
    struct regioninfo *regions; /* in file order */
} statsfile;

VLD_API int ea_statsfile(statsfile **address);
VLD_API void ef_statsfile(statsfile *record);
VLD_API int eg_statsfile(statsfile **address, const char *filename);
VLD_API int ep_statsfile(const statsfile *record, const char *filename);
VLD_API int cp_statsfile(statsfile **address, const statsfile *source);

VLD_END_DECLS

#endif
