/*
 * bench_common.h: what every benchmark of a job beside its peers needs: wall
 * and processor time of a run, the process's peak memory, a warm page cache,
 * and whether a peer program is installed.
 */
#ifndef VORLAN_BENCH_COMMON_H
#define VORLAN_BENCH_COMMON_H

#include <benchmark/benchmark.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

namespace bench {

inline double seconds_since(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/* This process's processor time, in seconds. */
inline double cpu_seconds()
{
    timespec t{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

/* The process's peak resident set in MB (file pages it maps count too). */
inline double peak_rss_mb()
{
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind("VmHWM:", 0) == 0) return std::atof(line.c_str() + 6) / 1024.0;
    return 0;
}

inline void reset_peak_rss()
{
    std::ofstream("/proc/self/clear_refs") << "5";
}

/* Reads a file through, so that every job meets it in the page cache. */
inline void warm(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    std::vector<char> block(1 << 20);
    while (in.read(block.data(), static_cast<std::streamsize>(block.size()))) {
    }
}

/* Whether a program is on the PATH. */
inline bool have(const char *command)
{
    return std::system((std::string("command -v ") + command + " >/dev/null 2>&1").c_str()) == 0;
}

/* The mean wall time of a job's runs; *cpu (may be null) gets the mean
 * processor time of this process. With `settle`, each run starts after the
 * writes of the one before have reached the disk. */
template <class Job>
double timed(benchmark::State &state, Job &&job, double *cpu = nullptr, bool settle = false)
{
    double total = 0, cpu_total = 0;
    for (auto _ : state) {
        if (settle) {
            state.PauseTiming();
            sync();
            state.ResumeTiming();
        }
        auto start = std::chrono::steady_clock::now();
        const double cpu_start = cpu_seconds();
        if (!job()) {
            state.SkipWithError("the job failed");
            break;
        }
        total += seconds_since(start);
        cpu_total += cpu_seconds() - cpu_start;
    }
    const double runs = static_cast<double>(std::max<int64_t>(state.iterations(), 1));
    if (cpu != nullptr) *cpu = cpu_total / runs;
    return total / runs;
}

}  // namespace bench

#endif
