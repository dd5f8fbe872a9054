/*
 * vln_install.cpp: the places of the installation tree, and directory lists.
 *
 * Each kind of support file has a fixed place under $VORLAN; the getters here
 * are the only code that spells those places, so that moving one is a change
 * of one line of a table. Every getter returns a new string, or null with
 * VLD_ERR_VORLAN_NOT_SET (reported on the library's standard error stream) when $VORLAN is unset.
 */
#include "vln_path_internal.h"

#include <dirent.h>
#include <strings.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

using namespace vln_path;

namespace {

// $VORLAN joined with a relative place of the tree.
char *install_path(const std::string &place)
{
    char *root = VLN_get_vorlan_dir();
    if (root == nullptr) return nullptr;
    std::string full = clean_file(concat_file(root, place));
    safe_free(root);
    return dup(full);
}

bool ends_with_nocase(const std::string &text, const char *suffix)
{
    size_t n = strlen(suffix);
    return text.size() >= n && strcasecmp(text.c_str() + text.size() - n, suffix) == 0;
}

// A base name in a directory of the tree, with the directory's extension.
char *install_name(const char *dir, const char *name, const char *ext)
{
    if (name == nullptr || *name == '\0') {
        row_error(VLD_ERR_INTERNAL, "Invalid parameters, no name given for %s", dir);
        return nullptr;
    }
    std::string file = name;
    if (!ends_with_nocase(file, ext)) file += ext;
    return install_path(concat_file(dir, file));
}

}  // namespace

// The manuals of this platform's build of the package.
#define VLN_MANUALS "online_manuals/linux"

/* Directories and fixed files of the tree: function, place. */
#define VLN_INSTALL_PLACES(X)                                       \
    X(VLN_get_alg_dir, "examples")                                  \
    X(VLN_get_kernel_dir, "kernel")                                 \
    X(VLN_get_formula_dir, "formula")                               \
    X(VLN_get_lut_dir, "lut")                                       \
    X(VLN_get_hardcopy_dir, "hardcopy")                             \
    X(VLN_get_sensortype_dir, "cameras_and_sensors")                \
    X(VLN_get_legend_rules_dir, "legendrules")                      \
    X(VLN_get_legend_ps_dir, "legendps")                            \
    X(VLN_get_point_extractor_dir, "point_extractors")              \
    X(VLN_get_raster_translator_dir, "raster_translators")          \
    X(VLN_get_digitizer_type_dir, "digitizer_type")                 \
    X(VLN_get_digitizer_config_dir, "digitizer_config")             \
    X(VLN_get_toolbar_dir, "config")                                \
    X(VLN_get_manuals_path_name, VLN_MANUALS)                       \
    X(VLN_get_onlinehelp_ps_file_name, VLN_MANUALS "/manual.ps")    \
    X(VLN_get_onlinehelp_pages_file_name, VLN_MANUALS "/pages.dat") \
    X(VLN_get_onlinehelp_toc_file_name, VLN_MANUALS "/toc.dat")     \
    X(VLN_get_onlinehelp_index_file_name, VLN_MANUALS "/index.dat")

/* The configuration files, all in "config": function, file. */
#define VLN_CONFIG_FILES(X)                                                  \
    X(VLN_get_config_file_name, "config.vln")                                \
    X(VLN_get_psmac_file_name, "vlvecmacro.vln")                             \
    X(VLN_get_user_menu_file_name, "usermenu.vln")                           \
    X(VLN_get_toolbar_menu_file_name, "toolbarmenu.vln")                     \
    X(VLN_get_utilities_menu_file_name, "utilities.vln")                     \
    X(VLN_get_file_menu_file_name, "filemenu.vln")                           \
    X(VLN_get_images_menu_file_name, "imagesmenu.vln")                       \
    X(VLN_get_window_menu_file_name, "windowmenu.vln")                       \
    X(VLN_get_options_menu_file_name, "optionsmenu.vln")                     \
    X(VLN_get_process_menu_file_name, "processmenu.vln")                     \
    X(VLN_get_position_menu_file_name, "positionmenu.vln")                   \
    X(VLN_get_edit_menu_file_name, "editmenu.vln")                           \
    X(VLN_get_view_menu_file_name, "viewmenu.vln")                           \
    X(VLN_get_windows_menu_file_name, "windowsmenu.vln")                     \
    X(VLN_get_overlay_config_file_name, "dynamiclinks.vln")                  \
    X(VLN_get_formula_menu_file_name, "formulamenu.vln")                     \
    X(VLN_get_canvas_basic_menu_file_name, "image_window.vln")               \
    X(VLN_get_canvas_basic_remote_menu_file_name, "image_window_remote.vln") \
    X(VLN_get_canvas_annot_menu_file_name, "image_annotation.vln")           \
    X(VLN_get_canvas_scat_menu_file_name, "image_scatter.vln")               \
    X(VLN_get_canvas_3d_menu_file_name, "image_scatter.vln")                 \
    X(VLN_get_errlog_name, "errlog.vln")

/* Named files: function, directory, extension. */
#define VLN_NAMED_FILES(X)                      \
    X(VLN_get_lut_name, "lut", ".lut")          \
    X(VLN_get_hardcopy_name, "hardcopy", ".hc") \
    X(VLN_get_sensortype_name, "cameras_and_sensors", ".vld")

#define VLN_DEFINE_PLACE(function, place) \
    char *function(void)                  \
    {                                     \
        return install_path(place);       \
    }
#define VLN_DEFINE_CONFIG_FILE(function, file) \
    char *function(void)                       \
    {                                          \
        return install_path("config/" file);   \
    }
#define VLN_DEFINE_NAMED_FILE(function, dir, ext) \
    char *function(const char *name)              \
    {                                             \
        return install_name(dir, name, ext);      \
    }

VLN_INSTALL_PLACES(VLN_DEFINE_PLACE)
VLN_CONFIG_FILES(VLN_DEFINE_CONFIG_FILE)
VLN_NAMED_FILES(VLN_DEFINE_NAMED_FILE)

/* ---------------------------------------------------------------- the interpreter */

// The package runs the system's PostScript interpreter rather than one of its
// own tree: "gs" in $GSHOME when that is set, else the one on $PATH.
char *VLN_get_onlinehelp_ps_exec_name(void)
{
    if (const char *home = env_value("GSHOME")) return dup(clean_file(concat_file(home, "gs")));
    char *found = nullptr;
    find_file_in_path(&found, "gs");
    return found;
}

char *VLN_get_onlinehelp_ps_lib_name(void)
{
    const char *lib = env_value("GS_LIB");
    return lib != nullptr ? strsave(lib) : nullptr;
}

/* ---------------------------------------------------------------- directory lists */

namespace {

char **list_directory(const char *directory, const char *extension, int *count, bool sorted)
{
    if (count != nullptr) *count = 0;
    std::string dir = native(directory);
    DIR *handle = directory != nullptr ? opendir(dir.c_str()) : nullptr;
    if (handle == nullptr) {
        VLD_setup_error(VLD_ERR_CANNOT_FIND_DIR, clip(directory).c_str());
        return nullptr;
    }
    std::vector<std::string> names;
    while (const dirent *entry = readdir(handle)) {
        std::string name = entry->d_name;
        if (name == "." || name == "..") continue;
        if (extension != nullptr && *extension != '\0' && !ends_with_nocase(name, extension))
            continue;
        if (VLD_is_regular_file(concat_file(dir, name).c_str())) names.push_back(std::move(name));
    }
    closedir(handle);
    if (sorted) {
        std::sort(names.begin(), names.end(), [](const std::string &a, const std::string &b) {
            int order = strcasecmp(a.c_str(), b.c_str());
            return order != 0 ? order < 0 : a < b;
        });
    }
    if (count != nullptr) *count = static_cast<int>(names.size());
    return dup_array(names);
}

}  // namespace

char **VLN_get_directory_list(const char *directory, const char *extension, int *count)
{
    return list_directory(directory, extension, count, false);
}

char **VLN_get_sorted_directory_list(const char *directory, const char *extension, int *count)
{
    return list_directory(directory, extension, count, true);
}

void vln_free_directory_list(char **list, int count)
{
    VLN_free_patharray(list, count);
}
