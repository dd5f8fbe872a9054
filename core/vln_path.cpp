/*
 * vln_path.cpp: the path library: separators, names and extensions, splitting
 * and joining, search along path lists, and the kinds of documents.
 *
 * Everything here works on text alone, apart from the searches, which ask the
 * file tests of platform/vln_file.cpp. A backslash is read as a separator
 * wherever a path is taken apart, and output always uses '/'.
 */
#include "vln_path_internal.h"

#include <cctype>
#include <cstdarg>
#include <cstring>
#include <string>
#include <vector>

namespace vln_path {

std::string native(const char *path)
{
    std::string s = path != nullptr ? path : "";
    for (char &c : s)
        if (c == '\\') c = '/';
    return s;
}

std::string clip(const char *text, size_t limit)
{
    if (text == nullptr) return "(null)";
    size_t n = strlen(text);
    if (n <= limit) return text;
    return std::string(text, limit) + "...";
}

int row_error(int row, const char *format, ...)
{
    // Row texts are at most a few dozen bytes beside the "%s": 900 bytes of
    // our own keeps the whole inside the error buffer.
    char text[900];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof text, format, args);
    va_end(args);
    return VLD_setup_error(row, text);
}

char *dup(const std::string &text)
{
    return strsave(text.c_str());
}

char **dup_array(const std::vector<std::string> &items)
{
    auto **array = static_cast<char **>(malloc_or_die((items.size() + 1) * sizeof(char *)));
    for (size_t i = 0; i < items.size(); ++i) array[i] = dup(items[i]);
    array[items.size()] = nullptr;
    return array;
}

const char *env_value(const char *name)
{
    if (name == nullptr) return nullptr;
    const char *value = getenv(name);
    return value != nullptr && *value != '\0' ? value : nullptr;
}

namespace {

bool is_drive(std::string_view s)
{
    return s.size() >= 2 && isalpha(static_cast<unsigned char>(s[0])) && s[1] == ':' &&
           (s.size() == 2 || is_sep(s[2]));
}

// Removes separators at the end, keeping a path of one character.
void strip_trailing(std::string &s)
{
    while (s.size() > 1 && is_sep(s.back())) s.pop_back();
}

std::string strip_all_separators(std::string_view s)
{
    size_t begin = 0, end = s.size();
    while (begin < end && is_sep(s[begin])) ++begin;
    while (end > begin && is_sep(s[end - 1])) --end;
    return std::string(s.substr(begin, end - begin));
}

// The root of a path in native separators, and where it ends (0: none).
struct Root {
    size_t end = 0;
    std::string text;
};

Root take_root(const std::string &s, bool url)
{
    if (url) {
        size_t end = s.find('/', s.find("://") + 3);
        if (end == std::string::npos) end = s.size();
        return {end, s.substr(0, end)};
    }
    if (s.size() > 2 && s[0] == '/' && s[1] == '/' && s[2] != '/') {
        // "//server/share" stays together as one component.
        size_t end = 2;
        for (int part = 0; part < 2 && end < s.size(); ++part) {
            size_t next = s.find('/', end + (part == 0 ? 0 : 1));
            end = next == std::string::npos ? s.size() : next;
        }
        Root root{end, s.substr(0, end)};
        while (root.text.size() > 2 && root.text.back() == '/') root.text.pop_back();
        return root;
    }
    if (!s.empty() && s[0] == '/') return {1, "/"};
    if (is_drive(s)) return {2, s.substr(0, 2)};
    return {};
}

}  // namespace

Components split_file(std::string_view path)
{
    Components c;
    std::string s = native(std::string(path).c_str());
    Root root = take_root(s, VLN_path_is_url(std::string(path).c_str()));
    size_t pos = root.end;
    if (pos > 0) {
        c.parts.push_back(std::move(root.text));
        c.rooted = true;
    }
    while (pos < s.size()) {
        size_t end = s.find('/', pos);
        if (end == std::string::npos) end = s.size();
        if (end > pos) c.parts.push_back(s.substr(pos, end - pos));
        pos = end + 1;
    }
    return c;
}

std::string join_file(const std::vector<std::string> &parts, size_t begin, size_t end)
{
    std::string out;
    for (size_t i = begin; i < end && i < parts.size(); ++i) {
        if (!out.empty() && out.back() != '/') out += '/';
        out += parts[i];
    }
    return out;
}

std::string clean_file(std::string_view path)
{
    // "." components say nothing ("dir/./a" is "dir/a"), unless one is all there is.
    std::vector<std::string> parts = split_file(path).parts;
    std::vector<std::string> kept;
    for (std::string &part : parts)
        if (part != ".") kept.push_back(std::move(part));
    if (kept.empty() && !parts.empty()) return ".";
    return join_file(kept);
}

std::vector<std::string> split_list(std::string_view list)
{
    std::vector<std::string> items;
    size_t pos = 0;
    while (pos <= list.size()) {
        size_t end = list.find(':', pos);
        if (end == std::string_view::npos) end = list.size();
        if (end > pos) items.emplace_back(list.substr(pos, end - pos));
        pos = end + 1;
    }
    return items;
}

std::string concat_file(std::string_view a, std::string_view b)
{
    std::string head(a);
    strip_trailing(head);
    std::string tail = strip_all_separators(b);
    if (tail.empty()) return head;
    if (head.empty()) {
        // Nothing to join to: b keeps its own root.
        std::string whole(b);
        strip_trailing(whole);
        return whole;
    }
    if (!is_sep(head.back())) head += '/';
    return head + tail;
}

}  // namespace vln_path

using namespace vln_path;

namespace {

std::string concat_list(std::string a, std::string b)
{
    while (a.size() > 1 && is_sep(a.back())) a.pop_back();
    while (b.size() > 1 && is_sep(b.back())) b.pop_back();
    if (a.empty()) return b;
    if (b.empty()) return a;
    return a + ':' + b;
}

// The start of the last component of the raw text, for extension handling.
size_t last_name_start(const char *path)
{
    size_t start = 0;
    for (size_t i = 0; path[i] != '\0'; ++i)
        if (is_sep(path[i])) start = i + 1;
    return start;
}

// Where the extension's dot of the last component is, or npos. The dot is
// looked for down to, but not at, the component's first character.
size_t ext_dot(const char *path)
{
    size_t start = last_name_start(path);
    const char *dot = strrchr(path + start, '.');
    if (dot == nullptr || dot == path + start) return std::string::npos;
    return static_cast<size_t>(dot - path);
}

}  // namespace

/* ---------------------------------------------------------------- separators */

char VLN_get_native_file_sep(void)
{
    return '/';
}
char VLN_get_english_file_sep(void)
{
    return '\\';
}
char VLN_get_native_path_sep(void)
{
    return ':';
}

char *VLN_convert_to_native_sep(char *path)
{
    return VLD_strchar_convert(path, '\\', '/');
}

char *VLN_convert_to_english_sep(char *path)
{
    return VLD_strchar_convert(path, '/', '\\');
}

char *VLN_convert_to_correct_webpath(char *path)
{
    if (VLN_path_is_url(path)) VLD_strchar_convert(path, '\\', '/');
    return path;
}

/* ---------------------------------------------------------------- names */

char *VLN_get_filename(const char *path)
{
    if (path == nullptr) return nullptr;
    Components c = split_file(path);
    if (c.parts.empty() || (c.rooted && c.parts.size() == 1)) return nullptr;
    return dup(c.parts.back());
}

char *VLN_get_dirname(const char *path)
{
    if (path == nullptr) return nullptr;
    Components c = split_file(path);
    if (c.parts.size() <= 1) return c.rooted ? dup(c.parts[0]) : nullptr;
    return dup(join_file(c.parts, 0, c.parts.size() - 1));
}

char *VLN_get_ext(const char *path)
{
    if (path == nullptr) return nullptr;
    size_t dot = ext_dot(path);
    return dot == std::string::npos ? nullptr : strsave(path + dot);
}

char *VLN_strip_ext(const char *path)
{
    if (path == nullptr) return nullptr;
    size_t dot = ext_dot(path);
    return dup(dot == std::string::npos ? std::string(path) : std::string(path, dot));
}

char *VLN_add_ext(const char *path, const char *ext)
{
    if (path == nullptr) return nullptr;
    std::string out = path;
    if (ext != nullptr && *ext != '\0') {
        if (*ext != '.') out += '.';
        out += ext;
    }
    return dup(out);
}

char *VLN_replace_ext(const char *path, const char *ext)
{
    char *stem = VLN_strip_ext(path);
    char *out = VLN_add_ext(stem, ext);
    safe_free(stem);
    return out;
}

int VLN_path_is_abs(const char *path)
{
    if (path == nullptr || *path == '\0') return 0;
    return is_sep(path[0]) || is_drive(path) ? 1 : 0;
}

int VLN_path_is_url(const char *path)
{
    if (path == nullptr) return 0;
    // A scheme of two or more characters: so that "X:\..." and a leading
    // separator are never taken for one.
    size_t i = 0;
    for (;; ++i) {
        char c = path[i];
        if (c == '\0' || is_sep(c)) return 0;
        if (c == ':') break;
    }
    if (i < 2 || !is_sep(path[i + 1]) || !is_sep(path[i + 2])) return 0;
    size_t j = i + 3;
    while (path[j] != '\0' && !is_sep(path[j])) ++j;
    return j - (i + 3) >= 2 && path[j] != '\0' ? 1 : 0;
}

/* ---------------------------------------------------------------- splitting and joining */

int VLN_split_filepath(char ***array, int *count, const char *path)
{
    if (array == nullptr || count == nullptr)
        return row_error(VLD_ERR_INTERNAL, "Invalid parameters, cannot split file path");
    *array = nullptr;
    *count = 0;
    if (path == nullptr || *path == '\0')
        return row_error(VLD_ERR_INTERNAL,
                         "Invalid parameters, file path is NULL or does not exist.");
    Components c = split_file(path);
    *array = dup_array(c.parts);
    *count = static_cast<int>(c.parts.size());
    return 0;
}

int VLN_split_path(char ***array, int *count, const char *list)
{
    if (array == nullptr || count == nullptr)
        return row_error(VLD_ERR_INTERNAL, "Invalid parameters, cannot split path");
    *array = nullptr;
    *count = 0;
    if (list == nullptr) return row_error(VLD_ERR_INTERNAL, "Invalid parameters, path is NULL");
    std::vector<std::string> items = split_list(list);
    *array = dup_array(items);
    *count = static_cast<int>(items.size());
    return 0;
}

void VLN_free_patharray(char **array, int count)
{
    if (array == nullptr) return;
    for (int i = 0; i < count; ++i) safe_free(array[i]);
    safe_free(array);
}

int VLN_concat_filepath(char **result, const char *a, const char *b)
{
    if (result == nullptr)
        return row_error(VLD_ERR_INTERNAL, "Invalid parameters, cannot build file path");
    if (a == nullptr) {
        VLDfree(result);
        return row_error(VLD_ERR_INTERNAL, "Invalid parameters, cannot build file path");
    }
    std::string joined = concat_file(a, b != nullptr ? b : "");
    safe_free(*result);  // after the join: `a` may be the old result
    *result = dup(joined);
    return 0;
}

int VLN_concat_path(char **result, const char *a, const char *b)
{
    if (result == nullptr)
        return row_error(VLD_ERR_INTERNAL, "Invalid parameters, cannot build path");
    if (a == nullptr) {
        VLDfree(result);
        return row_error(VLD_ERR_INTERNAL, "Invalid parameters, cannot build path");
    }
    std::string joined = concat_list(a, b != nullptr ? b : "");
    safe_free(*result);
    *result = dup(joined);
    return 0;
}

int VLN_build_filepath(char **result, const char *first, ...)
{
    if (result == nullptr)
        return row_error(VLD_ERR_INTERNAL, "Invalid parameters, cannot build file path");
    if (first == nullptr) {
        VLDfree(result);
        return row_error(VLD_ERR_INTERNAL, "Invalid parameters, cannot build file path");
    }
    std::string joined = first;
    va_list args;
    va_start(args, first);
    while (const char *next = va_arg(args, const char *)) joined = concat_file(joined, next);
    va_end(args);
    std::string clean = clean_file(joined);
    safe_free(*result);
    *result = dup(clean);
    return 0;
}

int VLN_build_path(char **result, const char *first, ...)
{
    if (result == nullptr)
        return row_error(VLD_ERR_INTERNAL, "Invalid parameters, cannot build path");
    if (first == nullptr) {
        VLDfree(result);
        return row_error(VLD_ERR_INTERNAL, "Invalid parameters, cannot build path");
    }
    std::string joined = first;
    va_list args;
    va_start(args, first);
    while (const char *next = va_arg(args, const char *)) joined = concat_list(joined, next);
    va_end(args);
    safe_free(*result);
    *result = dup(joined);
    return 0;
}

char *VLN_strip_trailing_separators(char *path)
{
    if (path == nullptr) return nullptr;
    size_t n = strlen(path);
    while (n > 1 && is_sep(path[n - 1])) path[--n] = '\0';
    return path;
}

char *VLN_strip_leading_separators(char *path)
{
    if (path == nullptr) return nullptr;
    size_t n = strlen(path), skip = 0;
    while (n - skip > 1 && is_sep(path[skip])) ++skip;
    memmove(path, path + skip, n - skip + 1);
    return path;
}

int VLD_setup_name(char **string, const char *path)
{
    if (string != nullptr && *string == nullptr) {
        *string = VLN_get_filename(path);
        if (*string == nullptr) *string = strsave("");
    }
    return 0;
}

int VLD_setup_dir(char **string, const char *path)
{
    if (string != nullptr && *string == nullptr) {
        *string = VLN_get_dirname(path);
        if (*string == nullptr) *string = strsave("");
    }
    return 0;
}

/* ---------------------------------------------------------------- searching */

namespace {

int search_list(char **result, const std::vector<std::string> &dirs, const char *name,
                const char *where)
{
    if (result == nullptr)
        return row_error(VLD_ERR_INTERNAL, "Invalid parameters, cannot search path");
    safe_free(*result);
    *result = nullptr;
    if (name == nullptr || *name == '\0')
        return row_error(VLD_ERR_INTERNAL, "Invalid parameters, cannot search path");
    if (VLN_path_is_abs(name)) {
        if (VLD_is_regular_file(name)) {
            *result = dup(clean_file(name));
            return 0;
        }
    } else {
        for (const std::string &dir : dirs) {
            std::string candidate = clean_file(concat_file(dir, name));
            if (VLD_is_regular_file(candidate.c_str())) {
                *result = dup(candidate);
                return 0;
            }
        }
    }
    return VLD_setup_error(VLD_ERR_FILE_NOT_FOUND_IN, clip(name).c_str(), clip(where).c_str());
}

}  // namespace

int find_file_in_pathstring(char **result, const char *pathstring, const char *name)
{
    std::string list = pathstring != nullptr ? pathstring : "";
    return search_list(result, split_list(list), name, list.c_str());
}

int find_file_in_pathvar(char **result, const char *variable, const char *name)
{
    const char *list = variable != nullptr ? getenv(variable) : nullptr;
    if (list == nullptr) {
        if (result != nullptr) VLDfree(result);
        return VLD_setup_error(VLD_ERR_ENV_NOT_SET, clip(variable).c_str());
    }
    return search_list(result, split_list(list), name, variable);
}

int find_file_in_path(char **result, const char *name)
{
    return find_file_in_pathvar(result, "PATH", name);
}

/* ---------------------------------------------------------------- document kinds */

namespace {

struct FileType {
    const char *ext;
    int type;
};

constexpr FileType kFileTypes[] = {
    {".alg", 0},  {".frm", 1},
    {".ker", 2},  {".lut", 3},
    {".vld", 4},  {".vlv", 5},
    {".hc", 6},   {".vld", 7} /* kept: shadowed by 4, so 7 is never given */,
    {".ps", 8},   {".stats", 9},
    {".map", 10}, {".ldd", 11},
    {".sym", 12}, {".dtp", 13},
    {".dcf", 14}, {".dig", 15},
};

constexpr int kUnknownFileType = 16;

}  // namespace

int VLD_filetype_from_ext(const char *extension)
{
    if (extension == nullptr || *extension == '\0') return kUnknownFileType;
    for (const FileType &t : kFileTypes)
        if (VLD_strcasecmp(extension, t.ext) == 0) return t.type;
    return kUnknownFileType;
}
