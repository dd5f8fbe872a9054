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
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "vld_alg.h"
#include "vld_dshdr.h"
#include "vld_raster.h"
#include "vln_pe.h"
#include "vln_vds.h"

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

/* A raster of `bands` bands of cells of type T (cell type `cell_type`),
 * cell size 1: our header, the raw data file, and, when `envi` isn't empty,
 * a header of the peers' raw format over the same file. `fill(line, band,
 * cells)` gives the cells of one band of one line, in file order. */
template <class T, class Fill>
void write_raster(const std::string &header, const std::string &data, const std::string &envi,
                  int cells, int lines, int bands, int cell_type, Fill &&fill)
{
    dshdr *w = nullptr;
    df_raster_dshdr(&w, header.c_str(), cells, lines, bands, cell_type);
    w->info.r.cellinfo.x_dimension = w->info.r.cellinfo.y_dimension = 1.0;
    ep_dshdr(w, header.c_str());
    ef_dshdr(w);
    FILE *f = std::fopen(data.c_str(), "wb");
    std::vector<T> line(static_cast<size_t>(cells));
    for (int l = 0; l < lines; l++)
        for (int b = 0; b < bands; b++) {
            fill(l, b, line.data());
            std::fwrite(line.data(), sizeof(T), line.size(), f);
        }
    std::fclose(f);
    if (envi.empty()) return;
    const int envi_type = cell_type == IEEE4ByteReal ? 4 : 12;  // the two the benchmarks write
    std::ofstream(envi) << "ENVI\nsamples = " << cells << "\nlines = " << lines
                        << "\nbands = " << bands << "\nheader offset = 0\nfile type = ENVI Standard\n"
                        << "data type = " << envi_type << "\ninterleave = bil\nbyte order = 0\n";
}

/* The algorithm in `alg_path` opened as a dataset and every line of its one
 * band written to a new raster `out_header` of cells x lines of `cell_type`:
 * the engine's side of a job. True when all lines came and were written. */
inline bool run_tods(const std::string &alg_path, const std::string &out_header, int cells,
                     int lines, int cell_type)
{
    algorithm *alg = nullptr;
    if (eg_algorithm_with_transients(&alg, alg_path.c_str()) != 0) return false;
    char *errmsg = nullptr;
    Vds *vds = vds_open_alg_tods(alg, &errmsg, nullptr, nullptr);
    if (vds == nullptr) {
        std::fprintf(stderr, "open: %s\n", errmsg != nullptr ? errmsg : "?");
        safe_free(errmsg);
        ef_algorithm(alg);
        return false;
    }
    dshdr *out = nullptr;
    df_raster_dshdr(&out, out_header.c_str(), cells, lines, 1, cell_type);
    rasterfile writer;
    bool ok = eow_raster(&writer, out) == 0;
    std::vector<double> line(static_cast<size_t>(cells));  // room for any type
    void *line_of[] = {line.data()};
    rlseg *runs[] = {nullptr};
    int n = 0;
    while (ok && vds_read(vds, line_of, runs, 0) == 0) {
        ok = ep_raster(&writer, line_of, 1) == 0;
        n++;
    }
    ok = ec_raster(&writer) == 0 && ok && n == lines;
    vds_close(&vds);
    ef_dshdr(out);
    ef_algorithm(alg);
    return ok;
}

/* The environment the engine needs, and its start. */
inline void start_engine(const char *program)
{
    setenv("VORLAN", VORLAN_SHARE_DIR, 0);
    setenv("VLN_MACHINE_TYPE", "linux", 0);
    PE_initialise(program);
}

}  // namespace bench

#endif
