/*
 * vln_file.cpp: file tests, removal and temporary names.
 *
 * The tests read a backslash in a name as a separator, like the rest of the
 * path library, and follow symbolic links, except the removals, which never do.
 * A temporary name is only a name: nothing is created, and a caller that needs
 * the file creates it itself.
 */
#include "vln_path_internal.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <system_error>

using namespace vln_path;

namespace {

bool stat_native(const char *path, struct stat *st)
{
    if (path == nullptr || *path == '\0') return false;
    return stat(native(path).c_str(), st) == 0;
}

// Six characters for a temporary name, as the platform's template functions
// fill "XXXXXX": letters and digits.
std::string unique_tail()
{
    static constexpr char kChars[] =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
    thread_local std::mt19937_64 engine{std::random_device{}() ^
                                        (static_cast<uint64_t>(getpid()) << 32)};
    std::uniform_int_distribution<size_t> pick(0, sizeof kChars - 2);
    std::string tail(6, 'X');
    for (char &c : tail) c = kChars[pick(engine)];
    return tail;
}

int tempname_counter = 0;  // under csect

}  // namespace

int fileexists(const char *path)
{
    struct stat st;
    return stat_native(path, &st) ? 1 : 0;
}

int VLD_is_regular_file(const char *path)
{
    struct stat st;
    return stat_native(path, &st) && S_ISREG(st.st_mode) ? 1 : 0;
}

int isdirectory(const char *path)
{
    struct stat st;
    return stat_native(path, &st) && S_ISDIR(st.st_mode) ? 1 : 0;
}

int canwrite(const char *path)
{
    // A file without any write bit is read-only even to the superuser, whom
    // access() alone would let through.
    struct stat st;
    if (!stat_native(path, &st)) return 0;
    if ((st.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH)) == 0) return 0;
    return access(native(path).c_str(), W_OK) == 0 ? 1 : 0;
}

int is_executable(const char *path)
{
    struct stat st;
    if (!stat_native(path, &st) || !S_ISREG(st.st_mode)) return 0;
    if ((st.st_mode & (S_IXUSR | S_IXGRP | S_IXOTH)) == 0) return 0;
    return access(native(path).c_str(), X_OK) == 0 ? 1 : 0;
}

int vln_rmfile(const char *path)
{
    if (path == nullptr) return VLD_setup_error(VLD_ERR_NULL_FILE_SPEC);
    if (unlink(native(path).c_str()) == 0) return 0;
    int err = errno;
    return row_error(VLD_ERR_MESSAGE, "Cannot remove file \"%s\": %s", clip(path).c_str(),
                     strerror(err));
}

int vln_rmrfdir(const char *path)
{
    if (path == nullptr || *path == '\0') return VLD_setup_error(VLD_ERR_NULL_FILE_SPEC);
    std::error_code ec;
    std::filesystem::remove_all(native(path), ec);
    if (!ec) return 0;
    return row_error(VLD_ERR_MESSAGE, "Cannot remove directory \"%s\": %s", clip(path).c_str(),
                     ec.message().c_str());
}

char *VLN_get_temp_dir(void)
{
    const char *dir = env_value("VLNTMP");
    if (dir == nullptr) dir = env_value("TMPDIR");
    std::string out = native(dir != nullptr ? dir : "/tmp");
    while (out.size() > 1 && out.back() == '/') out.pop_back();
    return dup(out);
}

char *VLD_linkmgr_tmpdir(void)
{
    return VLN_get_temp_dir();
}

char *VLN_tempname(const char *directory, const char *prefix)
{
    vln_mutex_begin(&csect);
    int n = tempname_counter++;
    vln_mutex_end(&csect);

    std::string dir;
    if (directory != nullptr && *directory != '\0') {
        dir = directory;
    } else {
        char *tmp = VLN_get_temp_dir();
        dir = tmp;
        safe_free(tmp);
    }
    std::string stem =
        (prefix != nullptr && *prefix != '\0' ? std::string(prefix) : "vln") + std::to_string(n);
    std::string base = clean_file(concat_file(dir, stem));

    // Like the platform's template filler: try fresh characters until the name
    // is free. Another process may take it before the caller does; callers
    // that create the file open it exclusively.
    for (int attempt = 0; attempt < 100; ++attempt) {
        std::string name = base + unique_tail();
        struct stat st;
        if (lstat(name.c_str(), &st) != 0 && errno == ENOENT) return dup(name);
    }
    row_error(VLD_ERR_CANNOT_CREATE_FILE, "%sXXXXXX", clip(base).c_str());
    return nullptr;
}
