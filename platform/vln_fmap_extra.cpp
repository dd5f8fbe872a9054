/*
 * vln_fmap_extra.cpp: moving a mapped view, and the figures that size views.
 *
 * A view of a large file is moved rather than grown: the old one is unmapped
 * and a new one made on the same descriptor. The free address space is what
 * the process limit (or the 47-bit user space when there is none) leaves above
 * what is mapped already.
 */
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>

#include "vln_fmap.h"

int vln_getpagesize(void)
{
    static const int size = [] {
        long s = sysconf(_SC_PAGESIZE);
        return s > 0 ? static_cast<int>(s) : 4096;
    }();
    return size;
}

void *vln_remap(void *view, size_t size, int handles[2], const char *path, const char *mode,
                size_t new_size, int64_t new_offset, char **message)
{
    if (message != nullptr) *message = nullptr;
    if (view != nullptr) {
        auto address = reinterpret_cast<uintptr_t>(view);
        size_t delta = address % static_cast<size_t>(vln_getpagesize());
        if (munmap(reinterpret_cast<void *>(address - delta), size + delta) != 0) {
            if (message != nullptr)
                *message = strsave("vln_funmap() failed - could not unmap file");
            return nullptr;
        }
    }
    if (handles == nullptr || handles[0] < 0) {
        if (message != nullptr) {
            char text[1024];
            snprintf(text, sizeof text, "vln_fmap() failed - Cannot open %s",
                     path != nullptr ? path : "");
            *message = strsave(text);
        }
        return nullptr;
    }
    if (mode == nullptr) {
        // Keep the access that the file was opened with.
        int flags = fcntl(handles[0], F_GETFL);
        mode = flags >= 0 && (flags & O_ACCMODE) == O_RDWR ? "x" : "";
    }
    return vln_fmap(path, mode, new_size, new_offset, handles, message);
}

int64_t vln_calculate_mmmap_size(void)
{
    int64_t total = int64_t{1} << 47;
    rlimit limit;
    if (getrlimit(RLIMIT_AS, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY)
        total = static_cast<int64_t>(limit.rlim_cur);
    int64_t used = 0;
    if (FILE *f = fopen("/proc/self/statm", "r")) {
        long long pages = 0;
        if (fscanf(f, "%lld", &pages) == 1) used = pages * vln_getpagesize();
        fclose(f);
    }
    int64_t free_space = total > used ? total - used : 0;
    return free_space / 2;
}
