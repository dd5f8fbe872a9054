// Copying a 10,000 x 10,000 dataset of one 16-bit band (200 MB, written to
// /tmp at start and removed at exit) to 32-bit reals, and making a
// nearest-neighbour overview of it at 10%, through a virtual dataset opened
// for a dataset output; beside a hand-written C loop doing the same copy, and
// beside gdal_translate on the same raw data through its ENVI driver, run on
// one thread. The page cache is warmed first. "vs_loop" is each copy's time as
// a multiple of the hand loop's, "vs_peer" as a multiple of the peer's doing
// the same job, both measured in the same run. "peak_rss_MB" is this
// process's peak resident memory over all its own runs.
#include <benchmark/benchmark.h>

#include "bench_common.h"

#include <fcntl.h>
#include <unistd.h>

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
#include "vln_vds.h"

namespace {

using bench::peak_rss_mb;
using bench::timed;

constexpr int kLines = 10000, kCells = 10000;

struct Data {
    std::string stem, header, data, envi, out_header, out_data;
    double loop_seconds = 0, peer_copy_seconds = 0, peer_overview_seconds = 0;
};

void remove_files();

Data &data()
{
    static Data *s = [] {
        auto *s = new Data;
        s->stem = "/tmp/vln_bench_vds_" + std::to_string(getpid());
        s->header = s->stem + ".vld";
        s->data = s->stem;
        s->envi = s->stem + ".hdr";
        s->out_header = s->stem + "_out.vld";
        s->out_data = s->stem + "_out";
        bench::write_raster<uint16_t>(
            s->header, s->data, s->envi, kCells, kLines, 1, Unsigned16BitInteger,
            [](int l, int, uint16_t *line) {
                for (int c = 0; c < kCells; c++) line[c] = static_cast<uint16_t>(l * 7 + c);
            });
        std::atexit(remove_files);
        bench::start_engine("bench_vds");
        return s;
    }();
    return *s;
}

void remove_files()
{
    Data &s = data();
    for (const std::string &f : {s.data, s.header, s.envi, s.out_data, s.out_header,
                                 s.stem + "_peer", s.stem + "_peer.hdr", s.stem + "_peer.aux.xml",
                                 s.stem + ".alg"})
        std::remove(f.c_str());
}
/* The algorithm of one layer over the dataset, at `width` by `height`, to
 * 32-bit reals. */
std::string write_alg(int width, int height)
{
    const std::string path = data().stem + ".alg";
    std::ofstream(path)
        << "Algorithm Begin\n\tVersion = \"7.0\"\n\tName = \"copy\"\n"
           "\tCoordinateSpace Begin\n\t\tDatum = \"RAW\"\n\t\tProjection = \"RAW\"\n"
           "\t\tCoordinateType = RAW\n\tCoordinateSpace End\n"
           "\tTopLeftCorner Begin\n\t\tMetersX = 0\n\t\tMetersY = 0\n\tTopLeftCorner End\n"
           "\tBottomRightCorner Begin\n\t\tMetersX = "
        << kCells << "\n\t\tMetersY = " << kLines
        << "\n\tBottomRightCorner End\n\tOutputWidth = " << width << "\n\tOutputHeight = " << height
        << "\n\tCanvasWidth = " << width << "\n\tCanvasHeight = " << height
        << "\n\tOutputType = IEEE4ByteReal\n\tNullValue = 0\n"
           "\tSurface Begin\n\t\tName = \"Bands\"\n\t\tColorMode = DATASET\n"
           "\t\tStream Begin\n\t\t\tType = Pseudo\n\t\t\tDescription = \"Band\"\n\t\t\tDataset = \""
        << data().header
        << "\"\n\t\t\tStreamInput Begin\n\t\t\t\tStreamInputID = 1\n\t\t\tStreamInput End\n"
           "\t\t\tFormula Begin\n\t\t\t\tFormula = \"INPUT1\"\n\t\t\t\tFormulaArg Begin\n"
           "\t\t\t\t\tStreamInput = 1\n\t\t\t\t\tBandNumber = 1\n\t\t\t\tFormulaArg End\n"
           "\t\t\tFormula End\n\t\tStream End\n\tSurface End\nAlgorithm End\n";
    return path;
}

/* Opens the algorithm for a dataset and writes every line to a new dataset. */
bool copy_through_engine(int width, int height)
{
    return bench::run_tods(write_alg(width, height), data().out_header, width, height,
                           IEEE4ByteReal);
}

/* The copy as one would write it by hand: read a line, widen, write it. */
bool copy_by_hand()
{
    const int in = open(data().data.c_str(), O_RDONLY);
    const int out = open(data().out_data.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    std::vector<uint16_t> cells(kCells);
    std::vector<float> reals(kCells);
    bool ok = in >= 0 && out >= 0;
    for (int l = 0; ok && l < kLines; l++) {
        ok = pread(in, cells.data(), kCells * 2, off_t{l} * kCells * 2) == kCells * 2;
        for (int c = 0; c < kCells; c++) reals[c] = cells[c];
        ok = ok && write(out, reals.data(), kCells * 4) == kCells * 4;
    }
    if (in >= 0) close(in);
    if (out >= 0) close(out);
    return ok;
}

bool run_peer(const std::string &options)
{
    const std::string command = "GDAL_NUM_THREADS=1 gdal_translate -q -of ENVI " + options +
                                " '" + data().data + "' '" + data().stem + "_peer' 2>/dev/null";
    return std::system(command.c_str()) == 0;
}
void BM_CopyByHand(benchmark::State &state)
{
    data();
    bench::warm(data().data);
    data().loop_seconds = timed(state, copy_by_hand);
}

void BM_CopyPeer(benchmark::State &state)
{
    if (!bench::have("gdal_translate")) {
        state.SkipWithError("gdal_translate is not installed (scripts/bench.sh installs it)");
        return;
    }
    data().peer_copy_seconds = timed(state, [] { return run_peer("-ot Float32"); });
    state.counters["vs_loop"] = data().peer_copy_seconds / data().loop_seconds;
}

void BM_CopyEngine(benchmark::State &state)
{
    const double seconds = timed(state, [] { return copy_through_engine(kCells, kLines); });
    state.counters["vs_loop"] = seconds / data().loop_seconds;
    if (data().peer_copy_seconds > 0) state.counters["vs_peer"] = seconds / data().peer_copy_seconds;
    state.counters["peak_rss_MB"] = peak_rss_mb();
}

void BM_OverviewPeer(benchmark::State &state)
{
    if (!bench::have("gdal_translate")) {
        state.SkipWithError("gdal_translate is not installed (scripts/bench.sh installs it)");
        return;
    }
    data().peer_overview_seconds =
        timed(state, [] { return run_peer("-ot Float32 -outsize 10% 10% -r near"); });
}

void BM_OverviewEngine(benchmark::State &state)
{
    const double seconds = timed(state, [] { return copy_through_engine(kCells / 10, kLines / 10); });
    if (data().peer_overview_seconds > 0)
        state.counters["vs_peer"] = seconds / data().peer_overview_seconds;
    state.counters["peak_rss_MB"] = peak_rss_mb();
}

}  // namespace

BENCHMARK(BM_CopyByHand)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(3.0);
BENCHMARK(BM_CopyPeer)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(3.0);
BENCHMARK(BM_CopyEngine)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(3.0);
BENCHMARK(BM_OverviewPeer)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
BENCHMARK(BM_OverviewEngine)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);

BENCHMARK_MAIN();
