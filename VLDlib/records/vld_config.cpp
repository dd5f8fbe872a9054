/*
 * vld_config.cpp: VLNConfig, the configuration of an installation, and the
 * blocks that only it holds: ScreenDef (with its Windef), DisplayDef and
 * DisplayInfo. The document lives in $VORLAN/config/config.vln; the dataset
 * header reader loads it once into p_current_config.
 */
#include <cstddef>
#include <cstdlib>

#include "vld_docs.h"
#include "vld_record_internal.h"
#include "vln_path.h"

VLNConfig *p_current_config = nullptr;

namespace {

using vld::Kind;

/* ---------------------------------------------------------------- Windef */

enum : uint32_t { WINPOSX = 1, WINPOSY, WINSIZEX, WINSIZEY };

const VLD_KEYWORD windef_keywords[] = {{WINPOSX, "WinPosX", VTYPE_INT, nullptr},
                                       {WINPOSY, "WinPosY", VTYPE_INT, nullptr},
                                       {WINSIZEX, "WinSizeX", VTYPE_INT, nullptr},
                                       {WINSIZEY, "WinSizeY", VTYPE_INT, nullptr},
                                       {0, nullptr, 0, nullptr}};

const vld::Field windef_fields[] = {
    {.code = WINPOSX, .kind = Kind::Int32, .offset = offsetof(windef, win_pos_x)},
    {.code = WINPOSY, .kind = Kind::Int32, .offset = offsetof(windef, win_pos_y)},
    {.code = WINSIZEX, .kind = Kind::Int32, .offset = offsetof(windef, win_size_x)},
    {.code = WINSIZEY, .kind = Kind::Int32, .offset = offsetof(windef, win_size_y)},
};

const vld::Record windef_record = {
    .block = "Windef",
    .keywords = windef_keywords,
    .fields = windef_fields,
    .nfields = vld::count_of(windef_fields),
    .size = sizeof(windef),
};

/* ---------------------------------------------------------------- ScreenDef */

enum : uint32_t { SD_WINDEF = 1 };

const VLD_KEYWORD screendef_keywords[] = {{SD_WINDEF, "Windef", VTYPE_BLOCK, nullptr},
                                          {0, nullptr, 0, nullptr}};

const vld::Field screendef_fields[] = {
    {.code = SD_WINDEF,
     .kind = Kind::BlockPtr,
     .offset = offsetof(screendef, windef),
     .sub = vld::vld_windef_record},
};

const vld::Record screendef_record = {
    .block = "ScreenDef",
    .keywords = screendef_keywords,
    .fields = screendef_fields,
    .nfields = vld::count_of(screendef_fields),
    .size = sizeof(screendef),
};

/* ---------------------------------------------------------------- DisplayDef */

enum : uint32_t { CONTROLDISPLAY = 1, PRIMARYIMAGEDISPLAY, SECONDARYIMAGEDISPLAYS };

const VLD_KEYWORD displaydef_keywords[] = {
    {CONTROLDISPLAY, "ControlDisplay", VTYPE_STRING, nullptr},
    {PRIMARYIMAGEDISPLAY, "PrimaryImageDisplay", VTYPE_STRING, nullptr},
    {SECONDARYIMAGEDISPLAYS, "SecondaryImageDisplays", VTYPE_STRING, nullptr},
    {0, nullptr, 0, nullptr}};

const vld::Field displaydef_fields[] = {
    {.code = CONTROLDISPLAY, .kind = Kind::String, .offset = offsetof(displaydef, control_display)},
    {.code = PRIMARYIMAGEDISPLAY,
     .kind = Kind::String,
     .offset = offsetof(displaydef, primary_image_display)},
    {.code = SECONDARYIMAGEDISPLAYS,
     .kind = Kind::String,
     .offset = offsetof(displaydef, secondary_image_displays)},
};

/* The local display of the X server; the Linux meaning of "this screen". */
constexpr const char *kLocalDisplay = ":0";

void displaydef_defaults(void *r)
{
    auto *d = static_cast<displaydef *>(r);
    d->control_display = strsave(kLocalDisplay);
    d->primary_image_display = strsave(kLocalDisplay);
    d->secondary_image_displays = strsave(kLocalDisplay);
}

const vld::Record displaydef_record = {
    .block = "DisplayDef",
    .keywords = displaydef_keywords,
    .fields = displaydef_fields,
    .nfields = vld::count_of(displaydef_fields),
    .size = sizeof(displaydef),
    .defaults = displaydef_defaults,
};

/* ---------------------------------------------------------------- DisplayInfo */

enum : uint32_t { DISPLAY = 1, NUMBERRESERVEDCOLORS };

const VLD_KEYWORD displayinfo_keywords[] = {
    {DISPLAY, "Display", VTYPE_STRING, nullptr},
    {NUMBERRESERVEDCOLORS, "NumberReservedColors", VTYPE_INT, nullptr},
    {0, nullptr, 0, nullptr}};

const vld::Field displayinfo_fields[] = {
    {.code = DISPLAY, .kind = Kind::String, .offset = offsetof(displayinfo, display)},
    {.code = NUMBERRESERVEDCOLORS,
     .kind = Kind::Int32,
     .offset = offsetof(displayinfo, number_reserved_colors)},
};

void displayinfo_defaults(void *r)
{
    static_cast<displayinfo *>(r)->display = strsave(kLocalDisplay);
}

const vld::Record displayinfo_record = {
    .block = "DisplayInfo",
    .keywords = displayinfo_keywords,
    .fields = displayinfo_fields,
    .nfields = vld::count_of(displayinfo_fields),
    .size = sizeof(displayinfo),
    .defaults = displayinfo_defaults,
};

/* ---------------------------------------------------------------- VLNConfig */

enum : uint32_t {
    VERSION = 1,
    UNITS,
    DEFAULTPSEUDOLUT,
    DEFAULTRGBLUT,
    DEFAULTHSILUT,
    DEFAULTRTSHADELUT,
    DEFAULTHARDCOPY,
    DEFAULTHISTSTYLE,
    LOOKUPTABLE,
    SCREENDEF,
    DISPLAYDEF,
    DISPLAYINFO,
    ENFORCEASPECTRATIO,
    DOOPTIMISATION,
    CLIBRARYSWITCHES,
    FORTRANLIBRARYSWITCHES,
    POSTSCRIPTPRINTER,
    LINEPRINTER,
    USERIFSCREENNR,
    TERSEFORMULA,
    MINIMUMSAMPLINGRATE,
    CACHESAMPLINGRATE,
    DONTFILLCACHE
};

const VLD_ENUM ev_units[] = {
    {CONFIG_UNITS_Metric, "Metric"}, {CONFIG_UNITS_Imperial, "Imperial"}, {0, nullptr}};
const VLD_ENUM ev_hist_style[] = {{HIST_STYLE_Cumulative, "Cumulative"},
                                  {HIST_STYLE_NonCumulative, "NonCumulative"},
                                  {HIST_STYLE_DeQuantised, "DeQuantised"},
                                  {0, nullptr}};

const VLD_KEYWORD config_keywords[] = {
    {VERSION, "Version", VTYPE_STRING, nullptr},
    {UNITS, "Units", VTYPE_ENUM, ev_units},
    {DEFAULTPSEUDOLUT, "DefaultPseudoLUT", VTYPE_STRING, nullptr},
    {DEFAULTRGBLUT, "DefaultRGBLUT", VTYPE_STRING, nullptr},
    {DEFAULTHSILUT, "DefaultHSILUT", VTYPE_STRING, nullptr},
    {DEFAULTRTSHADELUT, "DefaultRtShadeLUT", VTYPE_STRING, nullptr},
    {DEFAULTHARDCOPY, "DefaultHardcopy", VTYPE_STRING, nullptr},
    {DEFAULTHISTSTYLE, "DefaultHistStyle", VTYPE_ENUM, ev_hist_style},
    {LOOKUPTABLE, "LookUpTable", VTYPE_BLOCK, nullptr},
    {SCREENDEF, "ScreenDef", VTYPE_BLOCK, nullptr},
    {DISPLAYDEF, "DisplayDef", VTYPE_BLOCK, nullptr},
    {DISPLAYINFO, "DisplayInfo", VTYPE_BLOCK, nullptr},
    {ENFORCEASPECTRATIO, "EnforceAspectRatio", VTYPE_YN, nullptr},
    {DOOPTIMISATION, "DoOptimisation", VTYPE_YN, nullptr},
    {CLIBRARYSWITCHES, "CLibrarySwitches", VTYPE_STRING, nullptr},
    {FORTRANLIBRARYSWITCHES, "FortranLibrarySwitches", VTYPE_STRING, nullptr},
    {POSTSCRIPTPRINTER, "PostScriptPrinter", VTYPE_STRING, nullptr},
    {LINEPRINTER, "LinePrinter", VTYPE_STRING, nullptr},
    {USERIFSCREENNR, "UserIFScreenNr", VTYPE_INT, nullptr},
    {TERSEFORMULA, "TerseFormula", VTYPE_YN, nullptr},
    {MINIMUMSAMPLINGRATE, "MinimumSamplingRate", VTYPE_INT, nullptr},
    {CACHESAMPLINGRATE, "CacheSamplingRate", VTYPE_INT, nullptr},
    {DONTFILLCACHE, "DontFillCache", VTYPE_YN, nullptr},
    {0, nullptr, 0, nullptr}};

#define CF(m) offsetof(VLNConfig, m)
const vld::Field config_fields[] = {
    {.code = VERSION, .kind = Kind::String, .offset = CF(version)},
    {.code = UNITS, .kind = Kind::Enum, .offset = CF(units)},
    {.code = DEFAULTPSEUDOLUT, .kind = Kind::String, .offset = CF(default_pseudo_lut)},
    {.code = DEFAULTRGBLUT, .kind = Kind::String, .offset = CF(default_rgb_lut)},
    {.code = DEFAULTHSILUT, .kind = Kind::String, .offset = CF(default_hsi_lut)},
    {.code = DEFAULTRTSHADELUT, .kind = Kind::String, .offset = CF(default_rtshade_lut)},
    {.code = DEFAULTHARDCOPY, .kind = Kind::String, .offset = CF(default_hardcopy)},
    {.code = DEFAULTHISTSTYLE, .kind = Kind::Enum, .offset = CF(default_hist_style)},
    {.code = LOOKUPTABLE,
     .kind = Kind::BlockPtr,
     .offset = CF(lookup_table),
     .sub = vld::vld_lut_record},
    {.code = SCREENDEF,
     .kind = Kind::BlockPtr,
     .offset = CF(screendef),
     .sub = vld::vld_screendef_record},
    {.code = DISPLAYDEF,
     .kind = Kind::BlockPtr,
     .offset = CF(displaydef),
     .sub = vld::vld_displaydef_record},
    {.code = DISPLAYINFO,
     .kind = Kind::BlockPtr,
     .offset = CF(displayinfo),
     .sub = vld::vld_displayinfo_record},
    {.code = ENFORCEASPECTRATIO, .kind = Kind::YesNo, .offset = CF(enforce_aspect_ratio)},
    {.code = DOOPTIMISATION, .kind = Kind::YesNo, .offset = CF(do_optimisation)},
    {.code = CLIBRARYSWITCHES, .kind = Kind::String, .offset = CF(c_library_switches)},
    {.code = FORTRANLIBRARYSWITCHES, .kind = Kind::String, .offset = CF(fortran_library_switches)},
    {.code = POSTSCRIPTPRINTER, .kind = Kind::String, .offset = CF(postscript_printer)},
    {.code = LINEPRINTER, .kind = Kind::String, .offset = CF(line_printer)},
    {.code = USERIFSCREENNR, .kind = Kind::Int32, .offset = CF(user_if_screen_nr)},
    {.code = TERSEFORMULA, .kind = Kind::YesNo, .offset = CF(terse_formula)},
    {.code = MINIMUMSAMPLINGRATE, .kind = Kind::Int32, .offset = CF(minimum_sampling_rate)},
    {.code = CACHESAMPLINGRATE, .kind = Kind::Int32, .offset = CF(cache_sampling_rate)},
    {.code = DONTFILLCACHE, .kind = Kind::YesNo, .offset = CF(dont_fill_cache)},
};
#undef CF

/* A configuration that doesn't name a histogram style gets the first one. */
void config_init(void *r)
{
    static_cast<VLNConfig *>(r)->default_hist_style = HIST_STYLE_Cumulative;
}

const vld::Record config_record = {
    .block = "VLNConfig",
    .keywords = config_keywords,
    .fields = config_fields,
    .nfields = vld::count_of(config_fields),
    .size = sizeof(VLNConfig),
    .init = config_init,
};

}  // namespace

const vld::Record &vld::vld_windef_record()
{
    return windef_record;
}
const vld::Record &vld::vld_screendef_record()
{
    return screendef_record;
}
const vld::Record &vld::vld_displaydef_record()
{
    return displaydef_record;
}
const vld::Record &vld::vld_displayinfo_record()
{
    return displayinfo_record;
}
const vld::Record &vld::vld_config_record()
{
    return config_record;
}

/* ---------------------------------------------------------------- the family */

int ea_windef(windef **address)
{
    return vld::fam_alloc(address, windef_record);
}
void ef_windef(windef *w)
{
    vld::rec_free(w, windef_record);
}
int eg_windef(windef **address, const char *filename)
{
    return vld::fam_get(address, filename, windef_record);
}
int ep_windef(const windef *w, const char *filename)
{
    return vld::rec_write(w, filename, windef_record);
}

int ea_screendef(screendef **address)
{
    return vld::fam_alloc(address, screendef_record);
}
void ef_screendef(screendef *s)
{
    vld::rec_free(s, screendef_record);
}
void ef_screendef_contents(screendef *s)
{
    vld::rec_free_contents(s, screendef_record);
}
int eg_screendef(screendef **address, const char *filename)
{
    return vld::fam_get(address, filename, screendef_record);
}
int ep_screendef(const screendef *s, const char *filename)
{
    return vld::rec_write(s, filename, screendef_record);
}

int ea_displaydef(displaydef **address)
{
    return vld::fam_alloc(address, displaydef_record);
}
void ef_displaydef(displaydef *d)
{
    vld::rec_free(d, displaydef_record);
}
int eg_displaydef(displaydef **address, const char *filename)
{
    return vld::fam_get(address, filename, displaydef_record);
}
int ep_displaydef(const displaydef *d, const char *filename)
{
    return vld::rec_write(d, filename, displaydef_record);
}
int df_displaydef(displaydef **address)
{
    return vld::fam_new_defaults(address, displaydef_record);
}

int ea_displayinfo(displayinfo **address)
{
    return vld::fam_alloc(address, displayinfo_record);
}
void ef_displayinfo(displayinfo *d)
{
    vld::rec_free(d, displayinfo_record);
}
int eg_displayinfo(displayinfo **address, const char *filename)
{
    return vld::fam_get(address, filename, displayinfo_record);
}
int ep_displayinfo(const displayinfo *d, const char *filename)
{
    return vld::rec_write(d, filename, displayinfo_record);
}
int df_displayinfo(displayinfo **address)
{
    return vld::fam_new_defaults(address, displayinfo_record);
}

int ea_config(VLNConfig **address)
{
    return vld::fam_alloc(address, config_record);
}
void ef_config(VLNConfig *c)
{
    vld::rec_free(c, config_record);
}
int eg_config(VLNConfig **address, const char *filename)
{
    return vld::fam_get(address, filename, config_record);
}
int ep_config(const VLNConfig *c, const char *filename)
{
    return vld::rec_write(c, filename, config_record);
}

int eg_config_standard(VLNConfig **address, const char *directory, const char *name)
{
    if (!address) return VLD_setup_error(VLD_ERR_INTERNAL, "Null structure pointer");
    char *path = nullptr;
    if (!directory && !name) {
        path = VLN_get_config_file_name();
    } else {
        char *dir = directory ? strsave(directory) : VLN_get_toolbar_dir();
        if (dir) VLN_concat_filepath(&path, dir, name ? name : "config.vln");
        safe_free(dir);
    }
    if (!path) {  // $VORLAN unset: the row is set up already
        int status = VLD_error.code;
        *address = static_cast<VLNConfig *>(vld::rec_alloc(config_record));
        return status;
    }
    int status = vld::fam_get(address, path, config_record);
    safe_free(path);
    return status;
}

void vld::vld_config_load_once()
{
    // One attempt per process; a missing tree or document is no failure of the
    // reader that asked, and is not reported on every header read.
    static bool tried = false;
    vld_mutex_on();
    if (!p_current_config && !tried && getenv("VORLAN") != nullptr) {
        tried = true;
        VLNConfig *c = nullptr;
        if (eg_config_standard(&c, nullptr, nullptr) == 0)
            p_current_config = c;
        else
            ef_config(c);
    }
    vld_mutex_off();
}
