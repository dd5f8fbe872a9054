// Pulling every line of a 10,000 x 10,000 dataset of one 16-bit band (200 MB,
// written to /tmp at start and removed at exit) through an algorithm of one
// stream, beside the two ways of reading the same file directly: the raster's
// line reader, and its mapped access including mapping and unmapping. The page
// cache is warmed first. "vs_lines" is each run's time as a multiple of the
// line reader's, measured in the same run; the engine's goal is at most 1.1.
// "peak_rss_MB" is the process's peak resident memory during the engine's
// passes (reset before them), "pool_peak_MB" the engine's own line memory.
#include <benchmark/benchmark.h>

#include "bench_common.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "vld_alg.h"
#include "vld_dshdr.h"
#include "vld_raster.h"
#include "vln_pe_internal.h"

namespace {

using bench::seconds_since;
using bench::peak_rss_mb;
using bench::reset_peak_rss;

constexpr int kLines = 10000, kCells = 10000;

struct Data {
    std::string header, data, alg;
    dshdr *d = nullptr;
    double lines_seconds = 0;
};

void remove_files();

std::string alg_text(const std::string &dataset)
{
    const std::string size = std::to_string(kCells), height = std::to_string(kLines);
    return "Algorithm Begin\n\tVersion = \"7.0\"\n\tName = \"one stream\"\n"
           "\tCoordinateSpace Begin\n\t\tDatum = \"RAW\"\n\t\tProjection = \"RAW\"\n"
           "\t\tCoordinateType = RAW\n\tCoordinateSpace End\n"
           "\tTopLeftCorner Begin\n\t\tMetersX = 0\n\t\tMetersY = 0\n\tTopLeftCorner End\n"
           "\tBottomRightCorner Begin\n\t\tMetersX = " +
           size + "\n\t\tMetersY = " + height +
           "\n\tBottomRightCorner End\n\tOutputWidth = " + size + "\n\tOutputHeight = " + height +
           "\n\tCanvasWidth = " + size + "\n\tCanvasHeight = " + height +
           "\n\tOutputType = Unsigned16BitInteger\n\tNullValue = 0\n"
           "\tSurface Begin\n\t\tName = \"Bands\"\n\t\tColorMode = DATASET\n"
           "\t\tStream Begin\n\t\t\tType = Pseudo\n\t\t\tDescription = \"Band\"\n"
           "\t\t\tDataset = \"" +
           dataset +
           "\"\n\t\t\tStreamInput Begin\n\t\t\t\tStreamInputID = 1\n\t\t\tStreamInput End\n"
           "\t\t\tFormula Begin\n\t\t\t\tFormula = \"INPUT1\"\n\t\t\t\tFormulaArg Begin\n"
           "\t\t\t\t\tStreamInput = 1\n\t\t\t\t\tBandNumber = 1\n\t\t\t\tFormulaArg End\n"
           "\t\t\tFormula End\n\t\tStream End\n\tSurface End\nAlgorithm End\n";
}

Data &data()
{
    static Data *s = [] {
        auto *s = new Data;
        std::string stem = "/tmp/vln_bench_engine_" + std::to_string(getpid());
        s->header = stem + ".vld";
        s->data = stem;
        s->alg = stem + ".alg";
        bench::write_raster<uint16_t>(
            s->header, s->data, "", kCells, kLines, 1, Unsigned16BitInteger,
            [](int l, int, uint16_t *line) {
                for (int c = 0; c < kCells; c++) line[c] = static_cast<uint16_t>(l * 3 + c + 1);
            });
        std::ofstream(s->alg) << alg_text(s->header);
        std::atexit(remove_files);
        eg_dshdr(&s->d, s->header.c_str());
        bench::start_engine("bench_engine");
        return s;
    }();
    return *s;
}

void remove_files()
{
    Data &s = data();
    std::remove(s.data.c_str());
    std::remove(s.header.c_str());
    std::remove(s.alg.c_str());
}
void set_counters(benchmark::State &state, double total_seconds)
{
    state.SetBytesProcessed(state.iterations() * int64_t{kLines} * kCells * 2);
    if (data().lines_seconds > 0)
        state.counters["vs_lines"] =
            total_seconds / static_cast<double>(state.iterations()) / data().lines_seconds;
}
void BM_LineReader(benchmark::State &state)
{
    dshdr *d = data().d;
    std::vector<uint16_t> cells(kCells);
    void *buffers[] = {cells.data()};
    {  // warms the page cache
        std::ifstream in(data().data, std::ios::binary);
        std::vector<char> block(1 << 20);
        while (in.read(block.data(), static_cast<std::streamsize>(block.size()))) {
        }
    }
    double total = 0;
    for (auto _ : state) {
        auto start = std::chrono::steady_clock::now();
        rasterfile h;
        char first[] = "1";
        char *strings[] = {first};
        if (eo_raster(&h, d, 0, kLines, 0, kCells, RASTER_BAND_RANGE, 1, strings) != 0)
            state.SkipWithError("eo_raster failed");
        for (int l = 0; l < kLines; l++) {
            if (h.read(&h, buffers, l, 1) != 0) state.SkipWithError("read failed");
            benchmark::DoNotOptimize(cells[kCells - 1]);
        }
        ec_raster(&h);
        total += seconds_since(start);
    }
    data().lines_seconds = total / static_cast<double>(state.iterations());
    set_counters(state, total);
}

void BM_MappedReader(benchmark::State &state)
{
    dshdr *d = data().d;
    std::vector<uint16_t> cells(kCells);
    double total = 0;
    for (auto _ : state) {
        auto start = std::chrono::steady_clock::now();
        VLD_mmraster *h = nullptr;
        if (VLD_raster_mmopen(&h, d, 0, kCells, nullptr, 1, 0) != 0)
            state.SkipWithError("mmopen failed");
        for (int l = 0; l < kLines; l++) {
            std::memcpy(cells.data(), VLD_raster_mmget_cells(h, l, 0, nullptr), kCells * 2);
            benchmark::DoNotOptimize(cells[kCells - 1]);
        }
        VLD_raster_mmclose(&h);
        total += seconds_since(start);
    }
    set_counters(state, total);
}

void BM_EngineOneStream(benchmark::State &state)
{
    std::vector<uint16_t> cells(kCells);
    void *lines[] = {cells.data()};
    rlseg *runs[] = {nullptr};
    double total = 0, pool_peak = 0;
    reset_peak_rss();
    for (auto _ : state) {
        auto start = std::chrono::steady_clock::now();
        algorithm *alg = nullptr;
        if (eg_algorithm_with_transients(&alg, data().alg.c_str()) != 0) {
            state.SkipWithError("the algorithm does not read");
            break;
        }
        pe_context *pe = pe_create_context();
        if (init_alg(pe, alg) != 0) {
            state.SkipWithError(pe->error_text);
        } else {
            pe_start_trees(pe);
            int status = 0, n = 0;
            while ((status = pe_read_lines(pe, 0, lines, runs)) == 0) n++;
            if (status != -1 || n != kLines || cells[kCells - 1] != uint16_t((kLines - 1) * 3 + kCells))
                state.SkipWithError("the engine's lines are not the dataset's");
        }
        pool_peak = std::max(pool_peak, static_cast<double>(pe->pool_peak_bytes));
        pe_destroy_context(pe);
        ef_algorithm(alg);
        total += seconds_since(start);
    }
    set_counters(state, total);
    state.counters["peak_rss_MB"] = peak_rss_mb();
    state.counters["pool_peak_MB"] = pool_peak / (1024.0 * 1024.0);
}

}  // namespace

BENCHMARK(BM_LineReader)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
BENCHMARK(BM_MappedReader)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
BENCHMARK(BM_EngineOneStream)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);

BENCHMARK_MAIN();
