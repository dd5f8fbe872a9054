/*
 * vln_replace.cpp: replacing a file by a temporary file and a rename.
 *
 * Both writers of files that a user keeps (the block-text documents and the
 * raster data files) go through here, so that a full disk or a failed write
 * never leaves half a file where a whole one stood. The temporary file lives
 * in the target's own folder, since rename(2) works only within one file
 * system; the path is followed through symbolic links first, so that the file
 * a link points to is replaced and the link itself stays a link.
 */
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <string>

#include "vln_fileio.h"

namespace {

constexpr int kMaxLinks = 40;  // as the kernel's own limit on a chain of links

std::atomic<int> temp_counter{0};

std::string folder_of(const std::string &path)
{
    size_t slash = path.find_last_of('/');
    if (slash == std::string::npos) return ".";
    if (slash == 0) return "/";
    return path.substr(0, slash);
}

void clear(vln_replacement *r)
{
    safe_free(r->temp);
    safe_free(r->target);
    r->temp = r->target = nullptr;
    r->fd = -1;
}

// Makes the file that a rename just changed durable in its folder; a failure
// here loses nothing that the rename didn't already do, so it isn't reported.
void sync_folder(const std::string &folder)
{
    int fd = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return;
    vln_fsync(fd);
    close(fd);
}

}  // namespace

char *vln_resolve_links(const char *path)
{
    if (path == nullptr) return nullptr;
    std::string at = path;
    for (int hop = 0; hop <= kMaxLinks; hop++) {
        struct stat st;
        if (lstat(at.c_str(), &st) != 0 || !S_ISLNK(st.st_mode)) return strsave(at.c_str());
        std::string link(static_cast<size_t>(st.st_size > 0 ? st.st_size : 255) + 1, '\0');
        ssize_t n = readlink(at.c_str(), link.data(), link.size());
        if (n < 0) return strsave(at.c_str());
        if (static_cast<size_t>(n) >= link.size()) {  // grew since lstat: try again
            hop--;
            continue;
        }
        link.resize(static_cast<size_t>(n));
        at = link[0] == '/' ? link : folder_of(at) + "/" + link;
    }
    errno = ELOOP;
    return nullptr;
}

int vln_replace_begin(vln_replacement *r, const char *path, int mode)
{
    if (r == nullptr || path == nullptr || *path == '\0') {
        errno = EINVAL;
        return -1;
    }
    r->fd = -1;
    r->temp = nullptr;
    r->target = vln_resolve_links(path);
    if (r->target == nullptr) return -1;

    struct stat old;
    // A target that can't be replaced (a directory) is found out by the
    // rename, after the writing: the writers report that failure as such.
    bool exists = stat(r->target, &old) == 0;
    bool keep_mode = exists && S_ISREG(old.st_mode);
    std::string folder = folder_of(r->target);
    // A name of our own: an existing file of that name is never touched.
    for (int attempt = 0; attempt < 100 && r->fd < 0; attempt++) {
        char name[64];
        std::snprintf(name, sizeof name, "/tmp%d%d", static_cast<int>(getpid()),
                      temp_counter.fetch_add(1));
        std::string temp = folder + name;
        // A new file gets `mode` less the umask from open(2) itself; the
        // permissions of a file being replaced are copied below.
        int fd = vln_open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL, keep_mode ? 0600 : mode);
        if (fd < 0) {
            if (errno == EEXIST) continue;
            break;
        }
        r->fd = fd;
        r->temp = strsave(temp.c_str());
    }
    if (r->fd < 0) {
        int err = errno;
        clear(r);
        errno = err;
        return -1;
    }
    if (keep_mode) {
        // The owner first: a change of owner may clear set-id bits.
        if (old.st_uid != geteuid() || old.st_gid != getegid())
            (void)!fchown(r->fd, old.st_uid, old.st_gid);  // only where we may
        if (fchmod(r->fd, old.st_mode & 07777) != 0) {
            int err = errno;
            vln_replace_abandon(r);
            errno = err;
            return -1;
        }
    }
    return 0;
}

int vln_replace_close(vln_replacement *r)
{
    if (r == nullptr || r->fd < 0) return 0;
    int fd = r->fd;
    r->fd = -1;
    int status = vln_fsync(fd);
    int err = errno;
    if (close(fd) != 0 && status == 0) {
        status = -1;
        err = errno;
    }
    errno = err;
    return status;
}

int vln_replace_commit(vln_replacement *r)
{
    if (r == nullptr || r->temp == nullptr) {
        errno = EINVAL;
        return -1;
    }
    if (vln_replace_close(r) != 0 || rename(r->temp, r->target) != 0) {
        int err = errno;
        vln_replace_abandon(r);
        errno = err;
        return -1;
    }
    sync_folder(folder_of(r->target));
    clear(r);
    return 0;
}

void vln_replace_abandon(vln_replacement *r)
{
    if (r == nullptr) return;
    int err = errno;
    if (r->fd >= 0) close(r->fd);
    if (r->temp != nullptr) unlink(r->temp);
    clear(r);
    errno = err;
}
