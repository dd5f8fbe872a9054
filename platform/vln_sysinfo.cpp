/*
 * vln_sysinfo.cpp: the machine's figures: processors and memory.
 *
 * Memory figures come from /proc/meminfo, in bytes. "Available" memory is the
 * kernel's estimate of what can be had without swapping (MemAvailable), which
 * is what a program sizing its buffers wants to know; kernels too old to give
 * it fall back to MemFree.
 */
#include "vln_thread.h"

#include <cstdio>
#include <cstring>
#include <unistd.h>

namespace {

struct MemInfo {
    int64_t available = -1;  // bytes; -1 when not found
    int64_t free = -1;
    int64_t swap_free = -1;
};

MemInfo read_meminfo()
{
    MemInfo info;
    FILE *f = fopen("/proc/meminfo", "re");
    if (f == nullptr) return info;
    char line[256];
    while (fgets(line, sizeof line, f) != nullptr) {
        char name[64];
        long long kib = 0;
        if (sscanf(line, "%63[^:]: %lld", name, &kib) != 2) continue;
        int64_t bytes = static_cast<int64_t>(kib) * 1024;
        if (strcmp(name, "MemAvailable") == 0)
            info.available = bytes;
        else if (strcmp(name, "MemFree") == 0)
            info.free = bytes;
        else if (strcmp(name, "SwapFree") == 0)
            info.swap_free = bytes;
    }
    fclose(f);
    return info;
}

int64_t physical_available(const MemInfo &info)
{
    if (info.available >= 0) return info.available;
    return info.free >= 0 ? info.free : 0;
}

}  // namespace

int vln_get_ncpus(void)
{
    long n = sysconf(_SC_NPROCESSORS_ONLN);
    return n > 0 ? static_cast<int>(n) : 1;
}

int64_t vln_procmem(void)
{
    FILE *f = fopen("/proc/self/statm", "re");
    if (f == nullptr) return 1;
    long long size = 0, resident = 0;
    int got = fscanf(f, "%lld %lld", &size, &resident);
    fclose(f);
    long page = sysconf(_SC_PAGESIZE);
    if (got != 2 || resident <= 0 || page <= 0) return 1;
    return static_cast<int64_t>(resident) * page;
}

int64_t vln_availmem(void)
{
    MemInfo info = read_meminfo();
    return physical_available(info) + (info.swap_free > 0 ? info.swap_free : 0);
}

int64_t vln_availpmem(void)
{
    const int64_t unit = int64_t{4} << 20;
    int64_t bytes = physical_available(read_meminfo());
    return (bytes + unit - 1) / unit * unit;
}
