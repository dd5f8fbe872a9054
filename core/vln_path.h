/*
 * vln_path.h: paths, the environment, the installation tree and dynamic loading.
 *
 * Every file name that the library handles passes through these functions. The
 * native file separator is '/', and the path-list separator is ':'. A backslash
 * in a path given to the library is read as a separator too, since documents
 * written on the older platform use it; the "English" separator is the
 * backslash, which is how such documents spell their paths.
 *
 * The package is installed as a tree under the directory named by $VORLAN, and
 * the getters below hand out the fixed places in it, so that no other module
 * builds them. Plug-in libraries are loaded through vln_dlopen and its kin.
 *
 * Ownership: every function that returns a string returns a new one from the
 * core allocator, which the caller frees with safe_free, unless it says
 * otherwise. A function that stores a string through a `char **result` frees
 * what the pointer held first, so pass null or a string of your own; on failure
 * the result is left null, except where a comment says otherwise. Functions
 * returning int give 0 on success or a row of VLD_errmsg, with VLD_error set.
 */
#ifndef VORLAN_VLN_PATH_H
#define VORLAN_VLN_PATH_H

#include "vld_core.h"

VLD_BEGIN_DECLS

/* ---------------------------------------------------------------- separators */

VLD_API char VLN_get_native_file_sep(void);  /* '/' */
VLD_API char VLN_get_english_file_sep(void); /* '\\' */
VLD_API char VLN_get_native_path_sep(void);  /* ':' */
/* In place; both return `path`, and a null path is allowed. */
VLD_API char *VLN_convert_to_native_sep(char *path);
VLD_API char *VLN_convert_to_english_sep(char *path);
/* In place: a URL's separators become '/' again (a no-op for other paths). */
VLD_API char *VLN_convert_to_correct_webpath(char *path);

/* ---------------------------------------------------------------- names */

/* The last component; null for a bare root ("/", "C:") or an empty path. */
VLD_API char *VLN_get_filename(const char *path);
/* All components but the last; null for a relative name of one component. */
VLD_API char *VLN_get_dirname(const char *path);
/* The extension of the last component with its dot, or null. A name whose only
 * dot is its first character (".profile") has none. */
VLD_API char *VLN_get_ext(const char *path);
VLD_API char *VLN_strip_ext(const char *path);
/* `ext` may be given with or without its dot. */
VLD_API char *VLN_add_ext(const char *path, const char *ext);
VLD_API char *VLN_replace_ext(const char *path, const char *ext);
/* True for "/..." and "\...", and for drive-rooted names ("X:", "X:\..."),
 * which documents from the older platform may carry. */
VLD_API int VLN_path_is_abs(const char *path);
/* True for "scheme://host/..." (either kind of slash after the colon). */
VLD_API int VLN_path_is_url(const char *path);

/* ---------------------------------------------------------------- splitting and joining */

/* Splits into components: a root comes first as a component of its own ("/",
 * "//server/share", "scheme://host"). The array holds `count` strings and a
 * null after them; free it with VLN_free_patharray. An old array in `*array`
 * is not freed. */
VLD_API int VLN_split_filepath(char ***array, int *count, const char *path);
/* Splits a path list at ':'; empty entries are dropped. */
VLD_API int VLN_split_path(char ***array, int *count, const char *list);
VLD_API void VLN_free_patharray(char **array, int count);

/* a '/' b, with the trailing separators of both and the leading ones of b
 * stripped; an empty b gives a. */
VLD_API int VLN_concat_filepath(char **result, const char *a, const char *b);
/* a ':' b, with trailing file separators stripped. */
VLD_API int VLN_concat_path(char **result, const char *a, const char *b);
/* Joins every argument up to a null pointer, then cleans the result: one '/'
 * between components, backslashes converted, no trailing separator. */
VLD_API int VLN_build_filepath(char **result, const char *first, ...);
/* Joins every argument up to a null pointer with ':'. */
VLD_API int VLN_build_path(char **result, const char *first, ...);

/* In place; a path of one character is left as it is. Both return `path`. */
VLD_API char *VLN_strip_trailing_separators(char *path);
VLD_API char *VLN_strip_leading_separators(char *path);

/* If *string is null, set it to the file name (or the directory) of `path`, or
 * to an empty string. Always returns 0. */
VLD_API int VLD_setup_name(char **string, const char *path);
VLD_API int VLD_setup_dir(char **string, const char *path);

/* ---------------------------------------------------------------- absolute and relative names */

/* Makes `path` absolute. An absolute path (or a URL) is copied; when it doesn't
 * exist the copy is still stored and VLD_ERR_MESSAGE is returned. A relative path is
 * looked for in `parent`, in each directory of VLN_get_data_search_path(), and
 * in the current directory, in that order. `parent` is a directory, or a file
 * whose directory is meant; it may be null. */
VLD_API int VLN_build_abs_fspec(char **result, const char *parent, const char *path);
/* As VLN_build_abs_fspec, but also accepts a name that doesn't exist yet. Each
 * test is tried over all the search directories before the next: the file
 * exists; its directory exists; the search directory exists, and the name is
 * merged with it so that a repeated tail ("images" + "images/a.vld") isn't
 * doubled; the search directory exists. `*exists` (may be null) says whether
 * the file itself was found. */
VLD_API int VLN_build_new_abs_fspec(char **result, const char *parent, const char *path,
                                    int *exists);
/* Makes an absolute `path` relative to `parent` or, failing that, to a
 * directory of the dataset search path: "../" per directory left over, or "."
 * when none is, then the rest. With nothing in common, the path is copied. */
VLD_API int VLN_build_rel_fspec(char **result, const char *parent, const char *path);
/* Whether documents are written with absolute file names (off at start). */
VLD_API int VLN_get_fspecs_abs(void);
VLD_API void VLN_set_fspecs_abs(int flag);
/* True when writing dataset `name` would overwrite the files of another
 * dataset. With a clash and a non-null `message`, *message gets a new text for
 * the user; otherwise it is left null. */
VLD_API int VLN_fspec_clashes(const char *name, char **message);

/* ---------------------------------------------------------------- files */

/* True if the name exists (a file, a directory, anything). */
VLD_API int fileexists(const char *path);
VLD_API int VLD_is_regular_file(const char *path);
VLD_API int isdirectory(const char *path);
/* True if the file exists and is not read-only: it has a write permission bit
 * and the caller may write it. */
VLD_API int canwrite(const char *path);
/* True for a regular file that the caller may execute. */
VLD_API int is_executable(const char *path);
/* 0 or VLD_ERR_NULL_FILE_SPEC (null name) or VLD_ERR_MESSAGE. */
VLD_API int vln_rmfile(const char *path);
/* Removes a directory and all that it holds (a file too); a missing name is
 * not a failure. Symbolic links are removed, never followed. */
VLD_API int vln_rmrfdir(const char *path);

/* A name that doesn't exist yet: "<prefix><n>" with a process-wide counter and
 * six unique characters, in `directory` or VLN_get_temp_dir(). Nothing is
 * created. Null when no free name was found. */
VLD_API char *VLN_tempname(const char *directory, const char *prefix);
/* $VLNTMP, $TMPDIR or "/tmp", without a trailing separator. */
VLD_API char *VLN_get_temp_dir(void);
/* The directory where link programs keep their temporary files. */
VLD_API char *VLD_linkmgr_tmpdir(void);

/* Looks for the regular file `name` in each directory of a ':' list, of the
 * list in an environment variable, or of $PATH. 0 with the full name in
 * *result, VLD_ERR_ENV_NOT_SET for an unset variable, or VLD_ERR_FILE_NOT_FOUND_IN. */
VLD_API int find_file_in_pathstring(char **result, const char *pathstring, const char *name);
VLD_API int find_file_in_pathvar(char **result, const char *variable, const char *name);
VLD_API int find_file_in_path(char **result, const char *name);

/* The kind of a document by its extension (with its dot), without regard to
 * case: 0 ".alg", 1 ".frm", 2 ".ker", 3 ".lut", 4 ".vld", 5 ".vlv", 6 ".hc",
 * 8 ".ps", 9 ".stats", 10 ".map", 11 ".ldd", 12 ".sym", 13 ".dtp", 14 ".dcf",
 * 15 ".dig"; anything else, null or empty, is 16. */
VLD_API int VLD_filetype_from_ext(const char *extension);

/* ---------------------------------------------------------------- environment */

/* Selector 1 gives $VLNDSDIR in native separators; any other selector a copy
 * of the variable `name`. Null when unset. */
VLD_API char *VLN_getenv(int selector, const char *name);
/* Kept for old callers: does nothing. */
VLD_API int VLN_putenv(void);
/* 0 with a copy of the value, or VLD_ERR_ENV_NOT_SET. */
VLD_API int VLN_get_environment_variable(char **result, const char *name);
/* Sets `name` to the formatted value (a null format unsets it); VLD_ERR_CANNOT_SET_ENV. */
VLD_API int VLN_set_environment_variable(const char *name, const char *format, ...)
    VLD_PRINTF(2, 3);
/* $VORLAN without trailing separators. Unset, it reports VLD_ERR_VORLAN_NOT_SET on the library's
 * standard error stream and gives null. */
VLD_API char *VLN_get_vorlan_dir(void);
/* Sets $VORLAN and the rest of the environment (VLN_setup_environment). */
VLD_API int VLN_set_vorlan_dir(const char *directory);
/* $VLNBIN and $VLN_MACHINE_TYPE, fetched at the first call that finds them set.
 * The library owns these strings: don't free them. Null while unset. */
VLD_API const char *VLN_get_vlnbin_dir(void);
VLD_API const char *VLN_get_machine_type(void);
/* $VLN_DATASET_SEARCH_PATH, a ':' list of directories; null when unset. */
VLD_API char *VLN_get_data_search_path(void);
/* $VLN_RASTER_LAYER_INFO split at its last ':' into a name (the result) and a
 * number (-1 when absent). Null when unset. */
VLD_API char *VLN_get_vorlan_rli(int *number);
/* Fixes the package's environment for an installation under `base` (null:
 * $VORLAN). Stops at the first failure and returns its row. */
VLD_API int VLN_setup_environment(const char *base);

/* ---------------------------------------------------------------- installation tree */

/* Each gives a new string: $VORLAN joined with the place shown, or null with
 * VLD_ERR_VORLAN_NOT_SET when $VORLAN is unset. */
VLD_API char *VLN_get_alg_dir(void);                    /* examples */
VLD_API char *VLN_get_kernel_dir(void);                 /* kernel */
VLD_API char *VLN_get_formula_dir(void);                /* formula */
VLD_API char *VLN_get_lut_dir(void);                    /* lut */
VLD_API char *VLN_get_hardcopy_dir(void);               /* hardcopy */
VLD_API char *VLN_get_sensortype_dir(void);             /* cameras_and_sensors */
VLD_API char *VLN_get_legend_rules_dir(void);           /* legendrules */
VLD_API char *VLN_get_legend_ps_dir(void);              /* legendps */
VLD_API char *VLN_get_point_extractor_dir(void);        /* point_extractors */
VLD_API char *VLN_get_raster_translator_dir(void);      /* raster_translators */
VLD_API char *VLN_get_digitizer_type_dir(void);         /* digitizer_type */
VLD_API char *VLN_get_digitizer_config_dir(void);       /* digitizer_config */
VLD_API char *VLN_get_toolbar_dir(void);                /* config */
VLD_API char *VLN_get_manuals_path_name(void);          /* online_manuals/linux */
VLD_API char *VLN_get_onlinehelp_ps_file_name(void);    /* online_manuals/linux/manual.ps */
VLD_API char *VLN_get_onlinehelp_pages_file_name(void); /* online_manuals/linux/pages.dat */
VLD_API char *VLN_get_onlinehelp_toc_file_name(void);   /* online_manuals/linux/toc.dat */
VLD_API char *VLN_get_onlinehelp_index_file_name(void); /* online_manuals/linux/index.dat */

/* The `_name` forms join a base name to their directory and add the
 * extension, unless the name carries it already. */
VLD_API char *VLN_get_lut_name(const char *name);        /* lut, ".lut" */
VLD_API char *VLN_get_hardcopy_name(const char *name);   /* hardcopy, ".hc" */
VLD_API char *VLN_get_sensortype_name(const char *name); /* cameras_and_sensors, ".vld" */

/* The configuration files, all in $VORLAN/config. */
VLD_API char *VLN_get_config_file_name(void);                   /* config.vln */
VLD_API char *VLN_get_psmac_file_name(void);                    /* vlvecmacro.vln */
VLD_API char *VLN_get_user_menu_file_name(void);                /* usermenu.vln */
VLD_API char *VLN_get_toolbar_menu_file_name(void);             /* toolbarmenu.vln */
VLD_API char *VLN_get_utilities_menu_file_name(void);           /* utilities.vln */
VLD_API char *VLN_get_file_menu_file_name(void);                /* filemenu.vln */
VLD_API char *VLN_get_images_menu_file_name(void);              /* imagesmenu.vln */
VLD_API char *VLN_get_window_menu_file_name(void);              /* windowmenu.vln */
VLD_API char *VLN_get_options_menu_file_name(void);             /* optionsmenu.vln */
VLD_API char *VLN_get_process_menu_file_name(void);             /* processmenu.vln */
VLD_API char *VLN_get_position_menu_file_name(void);            /* positionmenu.vln */
VLD_API char *VLN_get_edit_menu_file_name(void);                /* editmenu.vln */
VLD_API char *VLN_get_view_menu_file_name(void);                /* viewmenu.vln */
VLD_API char *VLN_get_windows_menu_file_name(void);             /* windowsmenu.vln */
VLD_API char *VLN_get_overlay_config_file_name(void);           /* dynamiclinks.vln */
VLD_API char *VLN_get_formula_menu_file_name(void);             /* formulamenu.vln */
VLD_API char *VLN_get_canvas_basic_menu_file_name(void);        /* image_window.vln */
VLD_API char *VLN_get_canvas_basic_remote_menu_file_name(void); /* image_window_remote.vln */
VLD_API char *VLN_get_canvas_annot_menu_file_name(void);        /* image_annotation.vln */
VLD_API char *VLN_get_canvas_scat_menu_file_name(void);         /* image_scatter.vln */
VLD_API char *VLN_get_canvas_3d_menu_file_name(void);           /* image_scatter.vln */
VLD_API char *VLN_get_errlog_name(void);                        /* errlog.vln */

/* The PostScript interpreter is the system's: "$GSHOME/gs", else "gs" found
 * on $PATH; null with VLD_ERR_FILE_NOT_FOUND_IN when there is none. */
VLD_API char *VLN_get_onlinehelp_ps_exec_name(void);
/* $GS_LIB when set; null means the interpreter's own library. */
VLD_API char *VLN_get_onlinehelp_ps_lib_name(void);

/* The names (not paths) of the regular files of `directory` that end in
 * `extension` (without regard to case; null or empty: every file), in
 * directory order or sorted without regard to case. The array holds `*count`
 * names and a null after them; free it with vln_free_directory_list. Null with
 * VLD_ERR_CANNOT_FIND_DIR when the directory can't be read. */
VLD_API char **VLN_get_directory_list(const char *directory, const char *extension, int *count);
VLD_API char **VLN_get_sorted_directory_list(const char *directory, const char *extension,
                                             int *count);
VLD_API void vln_free_directory_list(char **list, int count);

/* ---------------------------------------------------------------- dynamic loading */

/* Loads a shared library. ".so" is added to a name that has no ".so" of its
 * own; a name that ends in a dot is taken without a suffix and without that
 * dot. With `private_copy`, the library is first copied to a fresh temporary
 * name, so that a library loaded before, or rebuilt under the same name,
 * gives a new instance; vln_dlclose removes the copy. `flags` is ignored.
 * Null with VLD_ERR_NULL_LIBRARY_SPEC or VLD_ERR_CANNOT_LOAD_LIBRARY. */
VLD_API void *vln_dlopen(int flags, const char *path, int private_copy);
/* The address of `name`, or null with VLD_ERR_NULL_LIBRARY_SPEC or VLD_ERR_FUNCTION_NOT_IN_LIBRARY.
 */
VLD_API void *vln_dlsym(void *handle, const char *name);
/* 0, or VLD_ERR_NULL_LIBRARY_SPEC or VLD_ERR_CANNOT_FREE_LIBRARY. */
VLD_API int vln_dlclose(void *handle);
/* Whether the running program (with the libraries it was linked to) exports
 * `name`. */
VLD_API int vln_symexists_inproc(const char *name);
VLD_API int vln_symexists(int flags, const char *name);

VLD_END_DECLS

#endif
