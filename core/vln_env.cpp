/*
 * vln_env.cpp: the package's environment.
 *
 * Programs of the package find everything through a few variables: $VORLAN
 * names the installation tree, and VLN_setup_environment derives the rest from
 * it. Where the older platform kept settings in its registry, these are
 * environment variables too: the dataset search path is
 * $VLN_DATASET_SEARCH_PATH. The functions here are for start-up, before a
 * program starts threads: the process environment has no lock.
 */
#include "vln_path_internal.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

using namespace vln_path;

namespace {

std::string without_trailing_separators(std::string s)
{
    while (s.size() > 1 && is_sep(s.back())) s.pop_back();
    return s;
}

// A variable that is read once, at the first call that finds it set, and kept
// for the life of the process.
const char *fetch_once(std::atomic<char *> &slot, const char *name)
{
    char *kept = slot.load();
    if (kept != nullptr) return kept;
    const char *value = env_value(name);
    if (value == nullptr) return nullptr;
    char *copy = strsave(value);
    if (!slot.compare_exchange_strong(kept, copy)) {
        safe_free(copy);  // another thread was first
        return kept;
    }
    return copy;
}

std::atomic<char *> vlnbin_dir{nullptr};
std::atomic<char *> machine_type{nullptr};

}  // namespace

char *VLN_getenv(int selector, const char *name)
{
    if (selector == 1) {
        const char *dirs = getenv("VLNDSDIR");
        return dirs != nullptr ? dup(native(dirs)) : nullptr;
    }
    const char *value = name != nullptr ? getenv(name) : nullptr;
    return value != nullptr ? strsave(value) : nullptr;
}

int VLN_putenv(void)
{
    return 0;
}

int VLN_get_environment_variable(char **result, const char *name)
{
    if (result != nullptr) VLDfree(result);
    const char *value = name != nullptr ? getenv(name) : nullptr;
    if (value == nullptr) return VLD_setup_error(VLD_ERR_ENV_NOT_SET, clip(name).c_str());
    if (result != nullptr) *result = strsave(value);
    return 0;
}

int VLN_set_environment_variable(const char *name, const char *format, ...)
{
    if (name == nullptr || *name == '\0' || strchr(name, '=') != nullptr)
        return VLD_setup_error(VLD_ERR_CANNOT_SET_ENV, clip(name).c_str());
    if (format == nullptr)
        return unsetenv(name) == 0 ? 0
                                   : VLD_setup_error(VLD_ERR_CANNOT_SET_ENV, clip(name).c_str());

    va_list args, again;
    va_start(args, format);
    va_copy(again, args);
    int length = vsnprintf(nullptr, 0, format, args);
    va_end(args);
    std::string value(length > 0 ? static_cast<size_t>(length) : 0, '\0');
    if (length > 0) vsnprintf(value.data(), value.size() + 1, format, again);
    va_end(again);
    if (length < 0 || setenv(name, value.c_str(), 1) != 0)
        return VLD_setup_error(VLD_ERR_CANNOT_SET_ENV, clip(name).c_str());
    return 0;
}

char *VLN_get_vorlan_dir(void)
{
    const char *dir = env_value("VORLAN");
    if (dir == nullptr) {
        // Where the older platform showed a message box titled "Vorlan".
        VLD_setup_error(VLD_ERR_VORLAN_NOT_SET);
        FILE *err = vln_ReturnStdErr();
        fprintf(err, "Vorlan: %s\n", VLD_error_text());
        fflush(err);
        return nullptr;
    }
    return dup(without_trailing_separators(native(dir)));
}

int VLN_set_vorlan_dir(const char *directory)
{
    if (directory == nullptr || *directory == '\0') return VLD_setup_error(VLD_ERR_VORLAN_NOT_SET);
    int rc = VLN_set_environment_variable("VORLAN", "%s", directory);
    return rc != 0 ? rc : VLN_setup_environment(directory);
}

const char *VLN_get_vlnbin_dir(void)
{
    return fetch_once(vlnbin_dir, "VLNBIN");
}

const char *VLN_get_machine_type(void)
{
    return fetch_once(machine_type, "VLN_MACHINE_TYPE");
}

char *VLN_get_data_search_path(void)
{
    const char *list = env_value("VLN_DATASET_SEARCH_PATH");
    return list != nullptr ? strsave(list) : nullptr;
}

char *VLN_get_vorlan_rli(int *number)
{
    if (number != nullptr) *number = -1;
    const char *info = env_value("VLN_RASTER_LAYER_INFO");
    if (info == nullptr) return nullptr;
    std::string name = info;
    size_t colon = name.rfind(':');
    if (colon != std::string::npos) {
        const char *digits = info + colon + 1;
        char *end = nullptr;
        errno = 0;
        long n = strtol(digits, &end, 10);
        if (*digits != '\0' && *end == '\0' && errno == 0) {
            if (number != nullptr) *number = static_cast<int>(n);
            name.resize(colon);
        }
    }
    return dup(name);
}

/* ---------------------------------------------------------------- set-up */

namespace {

using Value = std::optional<std::string>;

// The first usable temporary directory: $TMPDIR, /tmp, then $HOME/tmp.
Value temp_dir(const std::string &)
{
    std::string home = env_value("HOME") != nullptr ? env_value("HOME") : "";
    const std::string candidates[] = {env_value("TMPDIR") != nullptr ? env_value("TMPDIR") : "",
                                      "/tmp", home.empty() ? "" : home + "/tmp"};
    for (const std::string &dir : candidates)
        if (!dir.empty() && isdirectory(dir.c_str())) return without_trailing_separators(dir);
    return std::nullopt;
}

// The package uses the system's PostScript interpreter: GSHOME is the
// directory that holds "gs" on $PATH. Without one, GSHOME stays unset.
Value ghostscript_home(const std::string &)
{
    char *gs = nullptr;
    if (find_file_in_path(&gs, "gs") != 0) return std::nullopt;
    char *dir = VLN_get_dirname(gs);
    Value home = dir != nullptr ? Value(dir) : std::nullopt;
    safe_free(dir);
    safe_free(gs);
    return home;
}

Value editor(const std::string &)
{
    const char *own = env_value("EDITOR");
    return std::string(own != nullptr ? own : "vi");
}

struct EnvStep {
    const char *name;
    bool keep_existing;  // set only when the variable is unset
    int row_if_none;     // when `value` gives nothing: 0 skips the step
    Value (*value)(const std::string &base);
};

// In order; the first failure ends the set-up. The older platform's own help
// viewer, resource file and resource-library variables have no counterpart
// here. GS_LIB is left alone: the system's interpreter knows its library.
const EnvStep kSteps[] = {
    {"VLN_MACHINE_TYPE", false, 0, [](const std::string &) -> Value { return "linux"; }},
    {"VORLAN", false, 0, [](const std::string &base) -> Value { return base; }},
    {"VLNBIN", false, 0, [](const std::string &base) -> Value { return base + "/bin/linux"; }},
    {"VLNDSDIR", false, 0,
     [](const std::string &base) -> Value {
         const char *search = env_value("VLN_DATASET_SEARCH_PATH");
         return search != nullptr ? std::string(search) : base + "/examples";
     }},
    {"VLNSCRIPTS", false, 0,
     [](const std::string &base) -> Value { return base + "/bin/scripts"; }},
    {"VLNTMP", true, VLD_ERR_CANNOT_SETUP_VLNTMP, temp_dir},
    {"GSHOME", true, 0, ghostscript_home},
    {"VLNEDIT", true, 0, editor},
};

// The package's program directories go at the end of $PATH, each once.
int extend_path()
{
    const char *current = getenv("PATH");
    std::string path = current != nullptr ? current : "";
    std::vector<std::string> have = split_list(path);
    for (const char *var : {"VLNBIN", "GSHOME", "VLNSCRIPTS"}) {
        const char *dir = env_value(var);
        if (dir == nullptr || std::find(have.begin(), have.end(), dir) != have.end()) continue;
        if (!path.empty()) path += ':';
        path += dir;
        have.emplace_back(dir);
    }
    return VLN_set_environment_variable("PATH", "%s", path.c_str());
}

}  // namespace

int VLN_setup_environment(const char *base)
{
    const char *given = base != nullptr && *base != '\0' ? base : env_value("VORLAN");
    if (given == nullptr) return VLD_setup_error(VLD_ERR_VORLAN_NOT_SET);
    std::string root = without_trailing_separators(native(given));

    for (const EnvStep &step : kSteps) {
        if (step.keep_existing && env_value(step.name) != nullptr) continue;
        Value value = step.value(root);
        if (!value) {
            if (step.row_if_none != 0) return VLD_setup_error(step.row_if_none);
            continue;
        }
        int rc = VLN_set_environment_variable(step.name, "%s", value->c_str());
        if (rc != 0) return rc;
    }
    return extend_path();
}
