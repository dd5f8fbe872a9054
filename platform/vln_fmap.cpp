/*
 * vln_fmap.cpp: file mapping over mmap.
 *
 * The other platform named its mapping objects after the file and committed
 * them uncached; Linux has neither, so a mapping here is the file's descriptor
 * and a shared view of it, and the second handle of a pair stays -1. Views may
 * start at any 64-bit offset: the mapping begins at the page below it.
 */
#include "vln_fmap.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "vln_path.h"

namespace {

size_t page_size()
{
    static const size_t size = [] {
        long s = sysconf(_SC_PAGESIZE);
        return s > 0 ? static_cast<size_t>(s) : size_t{4096};
    }();
    return size;
}

void set_message(char **message, const char *format, ...) VLD_PRINTF(2, 3);
void set_message(char **message, const char *format, ...)
{
    if (message == nullptr) return;
    char text[1024];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof text, format, args);
    va_end(args);
    *message = strsave(text);
}

struct ModeFlags {
    bool write = false, check = false, sequential = false, create_always = false,
         create_new = false;
};

ModeFlags parse_mode(const char *mode)
{
    ModeFlags f;
    for (const char *p = mode != nullptr ? mode : ""; *p != '\0'; p++) {
        switch (*p) {
            case 'w':
                f.write = f.check = true;
                break;
            case 'x':
                f.write = true;
                break;
            case 's':
                f.sequential = true;
                break;
            case 'n':
                f.sequential = false;
                break;
            case 'c':
                f.create_always = true;
                break;
            case 'u':
                f.create_new = true;
                break;
            default:
                break;
        }
    }
    return f;
}

// Whether the caller may write `path`, or the directory a new `path` goes in.
bool may_write(const char *path, bool exists)
{
    if (exists) return canwrite(path) != 0;
    char *dir = VLN_get_dirname(path);
    bool ok = canwrite(dir != nullptr ? dir : ".") != 0;
    safe_free(dir);
    return ok;
}

}  // namespace

void *vln_fmap(const char *path, const char *mode, size_t size, int64_t offset, int handles[2],
               char **message)
{
    if (message != nullptr) *message = nullptr;
    // Every failure leaves errno saying why, for callers that report the
    // system's reason beside the text.
    auto refuse = [&](int err, const char *format) -> void * {
        set_message(message, format, path != nullptr ? path : "");
        errno = err;
        return nullptr;
    };
    if (path == nullptr || handles == nullptr)
        return refuse(EINVAL, "vln_fmap() failed - Cannot open %s");
    ModeFlags f = parse_mode(mode);
    struct stat st;
    bool exists = stat(path, &st) == 0;
    if (exists && S_ISDIR(st.st_mode))
        return refuse(EISDIR, "vln_fmap() failed - directory name given - %s");
    if (exists && !S_ISREG(st.st_mode))
        return refuse(ENODEV, "vln_fmap() failed - Cannot open %s (not a regular file)");
    if (f.check && !may_write(path, exists))
        return refuse(EACCES, "vln_fmap() failed - no write permission on file %s");

    bool opened_here = handles[0] < 0;
    bool create = f.create_always || f.create_new;
    int fd = handles[0];
    if (opened_here) {
        int flags = (f.write || create) ? O_RDWR : O_RDONLY;
        if (f.create_always) flags |= O_CREAT | O_TRUNC;
        if (f.create_new) flags |= O_CREAT | O_EXCL;
        // Without blocking: what is swapped in for the file after the look
        // above (a FIFO) must not hold the open up; the kind is checked below.
        fd = open(path, flags | O_CLOEXEC | O_NONBLOCK, 0666);
        if (fd < 0) return refuse(errno, "vln_fmap() failed - Cannot open %s");
    }
    auto fail = [&](int err, const char *format) -> void * {
        if (opened_here) close(fd);
        return refuse(err, format);
    };

    struct stat fs;
    if (fstat(fd, &fs) != 0) return fail(errno, "vln_fmap() failed - Cannot get file size on %s");
    if (S_ISDIR(fs.st_mode)) return fail(EISDIR, "vln_fmap() failed - directory name given - %s");
    if (!S_ISREG(fs.st_mode))
        return fail(ENODEV, "vln_fmap() failed - Cannot open %s (not a regular file)");
    if (offset < 0 || size > static_cast<size_t>(INT64_MAX - offset))
        return fail(EINVAL, "vln_fmap() failed - Cannot seek on %s");
    int64_t end = offset + static_cast<int64_t>(size);
    if (opened_here && create) {
        if (ftruncate(fd, static_cast<off_t>(end)) != 0)
            return fail(errno, "vln_fmap() failed - Cannot set EOF on %s");
    } else if (static_cast<int64_t>(fs.st_size) < end) {
        if (opened_here) close(fd);
        set_message(message, "vln_fmap() failed - File is too short to map %lld bytes on %s",
                    static_cast<long long>(size), path);
        errno = EINVAL;
        return nullptr;
    }
    if (size == 0) return fail(EINVAL, "vln_fmap() failed on %s - could not create object");

    int64_t aligned = offset - offset % static_cast<int64_t>(page_size());
    size_t delta = static_cast<size_t>(offset - aligned);
    int prot = f.write ? PROT_READ | PROT_WRITE : PROT_READ;
    void *base = mmap(nullptr, size + delta, prot, MAP_SHARED, fd, static_cast<off_t>(aligned));
    if (base == MAP_FAILED) {
        int err = errno;
        if (err == ENOMEM)
            return fail(err,
                        "Could Not Map file %s: Your system is running low on Virtual Memory.  "
                        "Please close down any other applications you have running, or close "
                        "any other datasets you have open, and try again.");
        return fail(err, "vln_fmap() failed on %s - could not create object");
    }
    madvise(base, size + delta, f.sequential ? MADV_SEQUENTIAL : MADV_RANDOM);
    handles[0] = fd;
    handles[1] = -1;
    return static_cast<char *>(base) + delta;
}

int vln_funmap(void *view, size_t size, int handles[2], int flag, char **message)
{
    (void)flag;
    if (message != nullptr) *message = nullptr;
    int ok = 1;
    if (view != nullptr) {
        uintptr_t address = reinterpret_cast<uintptr_t>(view);
        size_t delta = address % page_size();
        if (munmap(reinterpret_cast<void *>(address - delta), size + delta) != 0) {
            set_message(message, "vln_funmap() failed - could not unmap file");
            ok = 0;
        }
    }
    if (handles != nullptr) {
        if (handles[0] >= 0 && close(handles[0]) != 0 && ok) {
            set_message(message, "vln_funmap() failed - could not close file");
            ok = 0;
        }
        handles[0] = handles[1] = -1;
    }
    return ok;
}
