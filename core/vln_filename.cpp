/*
 * vln_filename.cpp: absolute and relative file names of documents.
 *
 * Documents name their datasets relative to themselves or to the dataset
 * search path, so that a tree of data can be moved as a whole. Reading a
 * document makes each name absolute against its own directory, the search
 * path and the current directory; writing one makes the names relative again.
 * VLN_fspec_clashes guards a new dataset from overwriting another one's files.
 */
#include "vln_path_internal.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <string>
#include <vector>

using namespace vln_path;

namespace {

std::atomic<int> fspecs_abs{0};
std::atomic<VLN_header_probe> header_probe{nullptr};

// How a candidate in a search directory is accepted.
enum class Mode {
    FileExists,    // the file itself exists
    DirExists,     // the directory that would hold it exists
    MergeInDir,    // the search directory exists; a repeated tail isn't doubled
    SearchDirOnly  // the search directory exists
};

constexpr Mode kModes[] = {Mode::FileExists, Mode::DirExists, Mode::MergeInDir,
                           Mode::SearchDirOnly};

std::string current_dir()
{
    std::vector<char> buffer(4096);
    while (getcwd(buffer.data(), buffer.size()) == nullptr) {
        if (errno != ERANGE) return "";
        buffer.resize(buffer.size() * 2);
    }
    return buffer.data();
}

// `parent` names a directory; a file stands for the directory that holds it.
std::string parent_dir(const char *parent)
{
    if (parent == nullptr || *parent == '\0') return "";
    if (VLD_is_regular_file(parent)) {
        char *dir = VLN_get_dirname(parent);
        std::string out = dir != nullptr ? dir : ".";
        safe_free(dir);
        return out;
    }
    return native(parent);
}

std::vector<std::string> search_path_dirs()
{
    char *list = VLN_get_data_search_path();
    std::vector<std::string> dirs = split_list(list != nullptr ? list : "");
    safe_free(list);
    return dirs;
}

// `dir` + `path`, where the longest run of `path`'s leading components that
// repeats the tail of `dir` is taken once: "/d/images" and "images/a.vld"
// make "/d/images/a.vld".
std::string merge_by_common_run(const std::string &dir, const std::string &path)
{
    Components d = split_file(dir), p = split_file(path);
    if (p.parts.empty()) return join_file(d.parts);
    size_t best = 0;
    for (size_t k = std::min(d.parts.size(), p.parts.size() - 1); k > 0; --k) {
        bool same = true;
        for (size_t i = 0; i < k && same; ++i) same = d.parts[d.parts.size() - k + i] == p.parts[i];
        if (same) {
            best = k;
            break;
        }
    }
    std::vector<std::string> parts = d.parts;
    parts.insert(parts.end(), p.parts.begin() + static_cast<long>(best), p.parts.end());
    return join_file(parts);
}

bool accept(Mode mode, const std::string &dir, const std::string &path, std::string &out)
{
    if (mode == Mode::MergeInDir) {
        if (!isdirectory(dir.c_str())) return false;
        out = merge_by_common_run(dir, path);
        return true;
    }
    out = clean_file(concat_file(dir, path));
    switch (mode) {
        case Mode::FileExists:
            return fileexists(out.c_str()) != 0;
        case Mode::DirExists: {
            char *holder = VLN_get_dirname(out.c_str());
            bool ok = holder != nullptr && isdirectory(holder);
            safe_free(holder);
            return ok;
        }
        default:
            return isdirectory(dir.c_str()) != 0;
    }
}

// The common procedure behind the absolute-name builders, for one mode.
int build_abs(char **result, const char *parent, const char *path, Mode mode)
{
    if (result == nullptr)
        return row_error(VLD_ERR_INTERNAL, "Invalid parameters, cannot build absolute file path");
    safe_free(*result);
    *result = nullptr;
    if (path == nullptr || *path == '\0')
        return row_error(VLD_ERR_INTERNAL, "Invalid parameters, cannot build absolute file path");

    bool url = VLN_path_is_url(path);
    if (url || VLN_path_is_abs(path)) {
        *result = url ? strsave(path) : dup(clean_file(path));
        if (!url && mode == Mode::FileExists && !fileexists(*result))
            return row_error(VLD_ERR_MESSAGE, "File %s does not exist", clip(path).c_str());
        return 0;
    }

    std::string cwd = current_dir();
    std::vector<std::string> dirs;
    dirs.push_back(parent_dir(parent));
    for (std::string &d : search_path_dirs()) dirs.push_back(std::move(d));
    dirs.push_back(cwd);

    std::string rel = native(path);
    for (const std::string &dir : dirs) {
        if (dir.empty()) continue;
        std::string found;
        if (!accept(mode, dir, rel, found)) continue;
        // A relative search directory is taken from the current one.
        if (!VLN_path_is_abs(found.c_str()) && !cwd.empty())
            found = clean_file(concat_file(cwd, found));
        *result = dup(found);
        return 0;
    }
    return row_error(
        VLD_ERR_INTERNAL,
        "%s not found.\nPath is not relative to the dataset search path or parent path",
        clip(path).c_str());
}

}  // namespace

int VLN_build_abs_fspec(char **result, const char *parent, const char *path)
{
    return build_abs(result, parent, path, Mode::FileExists);
}

int VLN_build_new_abs_fspec(char **result, const char *parent, const char *path, int *exists)
{
    if (exists != nullptr) *exists = 0;
    int rc = 0;
    for (Mode mode : kModes) {
        rc = build_abs(result, parent, path, mode);
        if (rc == 0) {
            if (exists != nullptr) *exists = mode == Mode::FileExists;
            return 0;
        }
    }
    if (result != nullptr) VLDfree(result);
    return rc;
}

int VLN_build_rel_fspec(char **result, const char *parent, const char *path)
{
    if (result == nullptr)
        return row_error(VLD_ERR_INTERNAL, "Invalid parameters, cannot build relative file path");
    safe_free(*result);
    *result = nullptr;
    if (path == nullptr || *path == '\0')
        return row_error(VLD_ERR_INTERNAL, "Invalid parameters, cannot build relative file path");
    if (VLN_path_is_url(path) || !VLN_path_is_abs(path)) {
        *result = strsave(path);
        return 0;
    }

    std::vector<std::string> dirs;
    dirs.push_back(parent_dir(parent));
    for (std::string &d : search_path_dirs()) dirs.push_back(std::move(d));

    Components p = split_file(path);
    for (const std::string &dir : dirs) {
        if (dir.empty()) continue;
        Components d = split_file(dir);
        // Components are compared without regard to case, as documents from
        // case-blind file systems expect. A root alone ("/") is no common run:
        // every absolute name shares it.
        size_t common = 0;
        while (common < d.parts.size() && common < p.parts.size() &&
               VLD_strcasecmp(d.parts[common].c_str(), p.parts[common].c_str()) == 0)
            ++common;
        if (common == 0 || (common == 1 && d.rooted && p.rooted)) continue;

        std::vector<std::string> parts;
        for (size_t i = common; i < d.parts.size(); ++i) parts.emplace_back("..");
        if (parts.empty()) parts.emplace_back(".");
        parts.insert(parts.end(), p.parts.begin() + static_cast<long>(common), p.parts.end());
        *result = dup(join_file(parts));
        return 0;
    }
    *result = strsave(path);
    return 0;
}

int VLN_get_fspecs_abs(void)
{
    return fspecs_abs.load();
}

void VLN_set_fspecs_abs(int flag)
{
    fspecs_abs.store(flag != 0 ? 1 : 0);
}

/* ---------------------------------------------------------------- clashes */

void VLN_set_header_probe(VLN_header_probe probe)
{
    header_probe.store(probe);
}

namespace {

constexpr const char *kVectorClash[2] = {
    "There is already an existing vector file of the same name:\n\n",
    "\n\nPlease choose another name otherwise the vector file will be overwritten.\n"};
constexpr const char *kRasterClash[2] = {
    "There is already an existing raster file of the same name:\n\n",
    "\n\nPlease choose another name otherwise the raster file will be overwritten.\n"};

bool ext_is(const char *ext, const char *want)
{
    return VLD_strcasecmp(ext, want) == 0;
}

// Whether the header's DataFile, taken beside the header, names `stem`.
bool datafile_is(const char *datafile, const std::string &header, const std::string &stem)
{
    if (datafile == nullptr || *datafile == '\0') return false;
    std::string data = datafile;
    if (!VLN_path_is_abs(datafile)) {
        char *dir = VLN_get_dirname(header.c_str());
        if (dir != nullptr) data = concat_file(dir, datafile);
        safe_free(dir);
    }
    return clean_file(data) == clean_file(stem);
}

// Reads the raster header beside `stem`: true when it would be overwritten.
// An unreadable header counts only where `unreadable_clashes`.
bool raster_header_clashes(const std::string &stem, bool unreadable_clashes)
{
    std::string header = stem + ".vld";
    if (!fileexists(header.c_str())) return false;
    VLN_header_probe probe = header_probe.load();
    char *datafile = nullptr;
    int has_algorithm = 0;
    if (probe == nullptr || probe(header.c_str(), &datafile, &has_algorithm) != 0) {
        safe_free(datafile);
        return unreadable_clashes;
    }
    bool clash = !has_algorithm && datafile_is(datafile, header, stem);
    safe_free(datafile);
    return clash;
}

}  // namespace

int VLN_fspec_clashes(const char *name, char **message)
{
    if (message != nullptr) VLDfree(message);
    char *ext = VLN_get_ext(name);
    if (ext == nullptr) return 0;
    char *stem_c = VLN_strip_ext(name);
    std::string stem = stem_c;
    safe_free(stem_c);

    const char *const *text = nullptr;
    if (ext_is(ext, ".vld")) {
        if (fileexists(stem.c_str()) && fileexists((stem + ".vlv").c_str())) text = kVectorClash;
    } else if (ext_is(ext, ".vlv") || ext_is(ext, ".map")) {
        if (raster_header_clashes(stem, ext_is(ext, ".vlv"))) text = kRasterClash;
    }
    safe_free(ext);
    if (text == nullptr) return 0;
    if (message != nullptr) *message = dup(std::string(text[0]) + name + text[1]);
    return 1;
}
