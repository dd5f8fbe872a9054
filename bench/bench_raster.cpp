// Reading every line of a 10,000 x 10,000 dataset of three 16-bit bands
// (600 MB, written to /tmp at start and removed at exit), through the line
// reader and through the mapped access, beside `cat FILE > /dev/null` of the
// same data file. The page cache is warmed first, so all of them measure the
// cost above the file system's own. "vs_cat" is each reader's rate as a
// fraction of cat's, measured in the same run.
#include <benchmark/benchmark.h>

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "vld_dshdr.h"
#include "vld_raster.h"

namespace {

constexpr int kLines = 10000, kCells = 10000, kBands = 3;

struct Data {
    std::string header, data;
    dshdr *d = nullptr;
    double cat_seconds = 0;
};

void remove_files();

Data &data()
{
    static Data *s = [] {
        auto *s = new Data;
        std::string stem = "/tmp/vln_bench_raster_" + std::to_string(getpid());
        s->header = stem + ".vld";
        s->data = stem;
        dshdr *w = nullptr;
        df_raster_dshdr(&w, s->header.c_str(), kCells, kLines, kBands, Unsigned16BitInteger);
        ep_dshdr(w, s->header.c_str());
        ef_dshdr(w);
        FILE *f = std::fopen(s->data.c_str(), "wb");
        std::vector<uint16_t> line(static_cast<size_t>(kCells));
        for (int l = 0; l < kLines; l++)
            for (int b = 0; b < kBands; b++) {
                for (int c = 0; c < kCells; c++) line[c] = static_cast<uint16_t>(l * 3 + b + c);
                std::fwrite(line.data(), 2, line.size(), f);
            }
        std::fclose(f);
        std::atexit(remove_files);
        eg_dshdr(&s->d, s->header.c_str());
        return s;
    }();
    return *s;
}

void remove_files()
{
    Data &s = data();
    std::remove(s.data.c_str());
    std::remove(s.header.c_str());
}

void run_cat()
{
    std::string command = "cat '" + data().data + "' > /dev/null";
    if (std::system(command.c_str()) != 0) std::abort();
}

void set_counters(benchmark::State &state)
{
    const int64_t bytes = int64_t{kLines} * kCells * kBands * 2;
    state.SetBytesProcessed(state.iterations() * bytes);
    if (data().cat_seconds > 0)
        state.counters["vs_cat"] =
            benchmark::Counter(data().cat_seconds * static_cast<double>(state.iterations()),
                               benchmark::Counter::kIsRate);
}

void BM_Cat(benchmark::State &state)
{
    data();
    run_cat();  // warms the page cache
    double total = 0;
    for (auto _ : state) {
        auto start = std::chrono::steady_clock::now();
        run_cat();
        total += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    }
    data().cat_seconds = total / static_cast<double>(state.iterations());
    set_counters(state);
}

void BM_ReadLines(benchmark::State &state)
{
    dshdr *d = data().d;
    std::vector<std::vector<uint16_t>> bands(kBands, std::vector<uint16_t>(kCells));
    void *buffers[kBands] = {bands[0].data(), bands[1].data(), bands[2].data()};
    for (auto _ : state) {
        rasterfile h;
        char first[] = "1";
        char *strings[] = {first};
        if (eo_raster(&h, d, 0, kLines, 0, kCells, RASTER_BAND_RANGE, kBands, strings) != 0)
            state.SkipWithError("eo_raster failed");
        for (int l = 0; l < kLines; l++) {
            if (h.read(&h, buffers, l, 1) != 0) state.SkipWithError("read failed");
            benchmark::DoNotOptimize(bands[2][kCells - 1]);
        }
        ec_raster(&h);
    }
    set_counters(state);
}

void BM_ReadLinesMapped(benchmark::State &state)
{
    dshdr *d = data().d;
    std::vector<std::vector<uint16_t>> bands(kBands, std::vector<uint16_t>(kCells));
    for (auto _ : state) {
        VLD_mmraster *h = nullptr;
        if (VLD_raster_mmopen(&h, d, 0, kCells, nullptr, kBands, 0) != 0)
            state.SkipWithError("mmopen failed");
        for (int l = 0; l < kLines; l++)
            for (int k = 0; k < kBands; k++) {
                const void *cells = VLD_raster_mmget_cells(h, l, k, nullptr);
                std::memcpy(bands[k].data(), cells, kCells * 2);
            }
        benchmark::DoNotOptimize(bands[2][kCells - 1]);
        VLD_raster_mmclose(&h);
    }
    set_counters(state);
}

// The same with the mapping made once, before timing: what a caller that maps
// a dataset and then walks it repeatedly pays per pass, without the cost of
// setting up and tearing down the page tables.
void BM_ReadLinesMappedKept(benchmark::State &state)
{
    dshdr *d = data().d;
    std::vector<std::vector<uint16_t>> bands(kBands, std::vector<uint16_t>(kCells));
    VLD_mmraster *h = nullptr;
    if (VLD_raster_mmopen(&h, d, 0, kCells, nullptr, kBands, 0) != 0) {
        state.SkipWithError("mmopen failed");
        return;
    }
    auto pass = [&] {
        for (int l = 0; l < kLines; l++)
            for (int k = 0; k < kBands; k++) {
                const void *cells = VLD_raster_mmget_cells(h, l, k, nullptr);
                std::memcpy(bands[k].data(), cells, kCells * 2);
            }
        benchmark::DoNotOptimize(bands[2][kCells - 1]);
    };
    pass();  // faults the pages in
    for (auto _ : state) pass();
    VLD_raster_mmclose(&h);
    set_counters(state);
}

}  // namespace

BENCHMARK(BM_Cat)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
BENCHMARK(BM_ReadLines)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
BENCHMARK(BM_ReadLinesMapped)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
BENCHMARK(BM_ReadLinesMappedKept)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);

BENCHMARK_MAIN();
