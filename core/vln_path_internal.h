/*
 * vln_path_internal.h: helpers shared by the path, environment and
 * installation-tree sources of core/, and by platform/vln_file.cpp and
 * platform/vln_dl.cpp, which test, remove and load files by these names.
 *
 * It also holds the hook through which the dataset-header module lets
 * VLN_fspec_clashes read a header without core depending on that module.
 */
#ifndef VORLAN_VLN_PATH_INTERNAL_H
#define VORLAN_VLN_PATH_INTERNAL_H

#include "vln_path.h"

VLD_BEGIN_DECLS

/* Reads the header `vld_path`: returns 0 when it could be read, and then gives
 * a new copy of its DataFile (or null) and whether it holds an algorithm. */
typedef int (*VLN_header_probe)(const char *vld_path, char **datafile, int *has_algorithm);

/* Registers the header reader; null removes it. Without one, no header can be
 * read. Tests, which link the library's objects, stand in for the header
 * module through it; it isn't exported. */
void VLN_set_header_probe(VLN_header_probe probe);

VLD_END_DECLS

#ifdef __cplusplus

#include <string>
#include <string_view>
#include <vector>

namespace vln_path {

inline bool is_sep(char c)
{
    return c == '/' || c == '\\';
}

/* A copy of `path` with every backslash turned into '/'; null gives "". */
std::string native(const char *path);

/* `text` cut to at most `limit` bytes, so that a message row can't overflow the
 * 1024-byte error buffer; null gives "(null)". */
std::string clip(const char *text, size_t limit = 400);
inline std::string clip(const std::string &text, size_t limit = 400)
{
    return clip(text.c_str(), limit);
}

/* Formats a text for a row that takes one "%s" (12, 24, 28, 33, 154, 155,
 * 194, ...), bounded to fit the error buffer, and sets up that row. */
int row_error(int row, const char *format, ...) VLD_PRINTF(2, 3);

/* A path taken apart: its components, of which the first is the root when
 * `rooted` ("/", "//server/share", "C:", "scheme://host"). */
struct Components {
    std::vector<std::string> parts;
    bool rooted = false;
};

Components split_file(std::string_view path);
/* Components [begin, end) joined by '/', without doubling a root's slash. */
std::string join_file(const std::vector<std::string> &parts, size_t begin, size_t end);
inline std::string join_file(const std::vector<std::string> &parts)
{
    return join_file(parts, 0, parts.size());
}
/* The clean form of a path: split and joined again. */
std::string clean_file(std::string_view path);
/* The non-empty entries of a ':' list. */
std::vector<std::string> split_list(std::string_view list);
/* a '/' b, as VLN_concat_filepath. */
std::string concat_file(std::string_view a, std::string_view b);

/* The value of an environment variable; null when unset or empty. */
const char *env_value(const char *name);

/* A new library string holding `text`. */
char *dup(const std::string &text);

/* A new array of `items` and a null after them, for VLN_free_patharray. */
char **dup_array(const std::vector<std::string> &items);

}  // namespace vln_path

#endif

#endif
