/*
 * vln_fileio.cpp: plain file access with 64-bit offsets, over POSIX calls.
 *
 * Every transfer loops until it is complete, the file ends, or a real error
 * comes; EINTR is never a failure. The vectored read gathers a run of
 * consecutive pieces (one band-line after another) in a single system call.
 */
#include "vln_fileio.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

int vln_open(const char *path, int flags, int mode)
{
    if (path == nullptr) {
        errno = EINVAL;
        return -1;
    }
    int fd;
    do {
        fd = open(path, flags | O_CLOEXEC, static_cast<mode_t>(mode));
    } while (fd < 0 && errno == EINTR);
    return fd;
}

int vln_open_data(const char *path, int flags, int mode)
{
    // O_NONBLOCK: an open of a FIFO for reading would otherwise wait for a
    // writer. The kind comes from the descriptor, so nothing can be swapped in
    // between a look at the name and the open.
    int fd = vln_open(path, flags | O_NONBLOCK, mode);
    if (fd < 0) return -1;
    struct stat st;
    if (fstat(fd, &st) != 0) {
        int err = errno;
        close(fd);
        errno = err;
        return -1;
    }
    if (!S_ISREG(st.st_mode)) {
        close(fd);
        errno = S_ISDIR(st.st_mode) ? EISDIR : ENODEV;
        return VLN_NOT_REGULAR;
    }
    int status = fcntl(fd, F_GETFL);
    if (status < 0 || fcntl(fd, F_SETFL, status & ~O_NONBLOCK) != 0) {
        int err = errno;
        close(fd);
        errno = err;
        return -1;
    }
    return fd;
}

int vln_close(int fd)
{
    if (fd < 0) return -1;
    return close(fd) == 0 ? 0 : -1;
}

int64_t vln_read(int fd, void *buffer, int64_t length)
{
    auto *p = static_cast<char *>(buffer);
    int64_t done = 0;
    while (done < length) {
        ssize_t n = read(fd, p + done, static_cast<size_t>(length - done));
        if (n < 0) {
            if (errno == EINTR) continue;
            return -1;
        }
        if (n == 0) break;
        done += n;
    }
    return done;
}

int64_t vln_write(int fd, const void *buffer, int64_t length)
{
    const auto *p = static_cast<const char *>(buffer);
    int64_t done = 0;
    while (done < length) {
        ssize_t n = write(fd, p + done, static_cast<size_t>(length - done));
        if (n < 0) {
            if (errno == EINTR) continue;
            return -1;
        }
        if (n == 0) return -1;
        done += n;
    }
    return done;
}

int64_t vln_pread64(int fd, void *buffer, int64_t length, int64_t offset)
{
    if (offset < 0) {
        errno = EINVAL;
        return -1;
    }
    auto *p = static_cast<char *>(buffer);
    int64_t done = 0;
    while (done < length) {
        ssize_t n = pread(fd, p + done, static_cast<size_t>(length - done),
                          static_cast<off_t>(offset + done));
        if (n < 0) {
            if (errno == EINTR) continue;
            return -1;
        }
        if (n == 0) break;
        done += n;
    }
    return done;
}

int64_t vln_preadv64(int fd, void *const *buffers, int count, int64_t each, int64_t offset)
{
    if (offset < 0 || count < 0 || each < 0) {
        errno = EINVAL;
        return -1;
    }
    constexpr int kBatch = 64;  // well below IOV_MAX
    int64_t total = 0;
    for (int first = 0; first < count; first += kBatch) {
        int n = std::min(kBatch, count - first);
        iovec iov[kBatch];
        for (int i = 0; i < n; i++) {
            iov[i].iov_base = buffers[first + i];
            iov[i].iov_len = static_cast<size_t>(each);
        }
        int64_t want = each * n;
        ssize_t got;
        do {
            got = preadv(fd, iov, n, static_cast<off_t>(offset + total));
        } while (got < 0 && errno == EINTR);
        if (got < 0) return -1;
        if (got < want) {
            // A short transfer: finish piece by piece from where it stopped.
            int64_t have = got;
            for (int i = 0; i < n; i++) {
                int64_t start = static_cast<int64_t>(i) * each;
                if (have >= start + each) continue;
                int64_t skip = std::max<int64_t>(0, have - start);
                int64_t r = vln_pread64(fd, static_cast<char *>(buffers[first + i]) + skip,
                                        each - skip, offset + total + start + skip);
                if (r < 0) return -1;
                have = start + skip + r;
                if (r < each - skip) return total + have;
            }
            got = have;
        }
        total += got;
    }
    return total;
}

int64_t vln_lseek64(int fd, int32_t low, int32_t high, int whence)
{
    int64_t offset = static_cast<int64_t>(
        (static_cast<uint64_t>(static_cast<uint32_t>(high)) << 32) | static_cast<uint32_t>(low));
    off_t r = lseek(fd, static_cast<off_t>(offset), whence);
    return r < 0 ? -1 : static_cast<int64_t>(r);
}

int64_t vln_tell64(int fd)
{
    off_t r = lseek(fd, 0, SEEK_CUR);
    return r < 0 ? -1 : static_cast<int64_t>(r);
}

int64_t vln_filesize64(const char *path)
{
    struct stat st;
    if (path == nullptr) {
        errno = EINVAL;
        return -1;
    }
    if (stat(path, &st) != 0) return -1;
    if (S_ISDIR(st.st_mode)) {
        errno = EISDIR;  // callers report the system's reason
        return -1;
    }
    return static_cast<int64_t>(st.st_size);
}

int vln_fsync(int fd)
{
    int r;
    do {
        r = fsync(fd);
    } while (r != 0 && errno == EINTR);
    return r == 0 ? 0 : -1;
}

int64_t vln_file_mtime(const char *path)
{
    struct stat st;
    if (path == nullptr || stat(path, &st) != 0) return -1;
    return static_cast<int64_t>(st.st_mtime);
}

int64_t vln_fdsize64(int fd)
{
    struct stat st;
    if (fd < 0 || fstat(fd, &st) != 0) return -1;
    return static_cast<int64_t>(st.st_size);
}

int vln_statfs(const char *path, int64_t *free_blocks, int64_t *block_size)
{
    if (path == nullptr) return VLD_setup_error(VLD_ERR_STATFS_NULL_SPEC);
    struct statvfs fs;
    if (statvfs(path, &fs) != 0) return VLD_setup_error(VLD_ERR_STATFS_FAILED, path);
    // Free blocks are counted in fragment units, the unit that f_bavail uses.
    int64_t unit =
        fs.f_frsize != 0 ? static_cast<int64_t>(fs.f_frsize) : static_cast<int64_t>(fs.f_bsize);
    if (free_blocks != nullptr) *free_blocks = static_cast<int64_t>(fs.f_bavail);
    if (block_size != nullptr) *block_size = unit;
    return 0;
}
