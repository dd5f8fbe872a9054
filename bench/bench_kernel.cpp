// A 3 by 3 average and sun shading over a 10,000 x 10,000 dataset of 32-bit
// real heights (400 MB, written to /tmp at start and removed at exit), each
// through a virtual dataset opened for a dataset output and written to a new
// dataset, beside a hand-written C loop doing the same arithmetic over the
// same raw file (read line by line, written line by line); the shading also
// beside `gdaldem hillshade` on the same raw data through an ENVI header, on
// one thread. The page cache is warmed first. "vs_loop" is each engine run's
// time as a multiple of its hand loop's, "vs_peer" the shading's as a multiple
// of the peer's, all measured in the same run (goals: kernel 1.5, shading
// 1.25, shading below 1 against the peer, whose rule takes eight neighbours
// where ours takes four). "peak_rss_MB" is this process's peak resident
// memory over all its own runs. Each engine run checks a line of its output
// against the hand loop's.
#include <benchmark/benchmark.h>

#include "bench_common.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
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
constexpr int kAzimuth = 315, kElevation = 45;  // degrees
constexpr int kCheckLine = 5000;

struct Data {
    std::string stem, header, data, envi;
    double kernel_loop = 0, shade_loop = 0, shade_peer = 0;
    double sun_azimuth = 0, sun_angle = 0;  // radians, as the document gives them
};

void remove_files();

/* Rolling ground with a little roughness, in metres. */
float ground(int line, int cell)
{
    return static_cast<float>(500.0 + 120.0 * std::sin(line * 0.0031) * std::cos(cell * 0.0047) +
                              15.0 * std::sin((line + 2 * cell) * 0.05) +
                              (line * 7 + cell * 3) % 5);
}

Data &data()
{
    static Data *s = [] {
        auto *s = new Data;
        s->stem = "/tmp/vln_bench_kernel_" + std::to_string(getpid());
        s->header = s->stem + ".vld";
        s->data = s->stem;
        s->envi = s->stem + ".hdr";
        bench::write_raster<float>(s->header, s->data, s->envi, kCells, kLines, 1, IEEE4ByteReal,
                                   [](int l, int, float *line) {
                                       for (int c = 0; c < kCells; c++) line[c] = ground(l, c);
                                   });
        std::atexit(remove_files);
        bench::start_engine("bench_kernel");
        return s;
    }();
    return *s;
}

std::string file(const char *suffix)
{
    return data().stem + suffix;
}

void remove_files()
{
    for (const char *suffix : {"", ".vld", ".hdr", ".alg", "_hand", "_engine", "_engine.vld",
                               "_peer", "_peer.hdr", "_peer.aux.xml"})
        std::remove(file(suffix).c_str());
}
/* ---------------------------------------------------------------- the engine */

/* The algorithm of one layer over the heights, to `output_type`, with the
 * lines `extra` in its stream. */
std::string write_alg(const char *output_type, const std::string &extra)
{
    const std::string path = file(".alg");
    std::ofstream(path)
        << "Algorithm Begin\n\tVersion = \"7.0\"\n\tName = \"kernel\"\n"
           "\tCoordinateSpace Begin\n\t\tDatum = \"RAW\"\n\t\tProjection = \"RAW\"\n"
           "\t\tCoordinateType = RAW\n\tCoordinateSpace End\n"
           "\tTopLeftCorner Begin\n\t\tMetersX = 0\n\t\tMetersY = 0\n\tTopLeftCorner End\n"
           "\tBottomRightCorner Begin\n\t\tMetersX = "
        << kCells << "\n\t\tMetersY = " << kLines
        << "\n\tBottomRightCorner End\n\tOutputWidth = " << kCells
        << "\n\tOutputHeight = " << kLines << "\n\tCanvasWidth = " << kCells
        << "\n\tCanvasHeight = " << kLines << "\n\tOutputType = " << output_type
        << "\n\tNullValue = 0\n"
           "\tSurface Begin\n\t\tName = \"Bands\"\n\t\tColorMode = DATASET\n"
           "\t\tStream Begin\n\t\t\tType = Pseudo\n\t\t\tDescription = \"Band\"\n\t\t\tDataset = \""
        << data().header
        << "\"\n\t\t\tStreamInput Begin\n\t\t\t\tStreamInputID = 1\n\t\t\tStreamInput End\n"
           "\t\t\tFormula Begin\n\t\t\t\tFormula = \"INPUT1\"\n\t\t\t\tFormulaArg Begin\n"
           "\t\t\t\t\tStreamInput = 1\n\t\t\t\t\tBandNumber = 1\n\t\t\t\tFormulaArg End\n"
           "\t\t\tFormula End\n"
        << extra << "\t\tStream End\n\tSurface End\nAlgorithm End\n";
    return path;
}

const char *const kAverageKernel =
    "\t\t\tKernel Begin\n\t\t\t\tType = Convolution\n\t\t\t\tRows = 3\n\t\t\t\tColumns = 3\n"
    "\t\t\t\tArray = { 1 1 1 1 1 1 1 1 1 }\n\t\t\t\tScaleFactor = 9\n\t\t\tKernel End\n";

std::string shading_lines()
{
    return "\t\t\tDoStaticShade = Yes\n\t\t\tSunAzimuth = " + std::to_string(kAzimuth) +
           ":0:0.0\n\t\t\tSunAngle = " + std::to_string(kElevation) + ":0:0.0\n";
}

/* Opens the algorithm for a dataset and writes every line to a new dataset. */
bool run_engine(const std::string &alg_path, int cell_type)
{
    return bench::run_tods(alg_path, file("_engine.vld"), kCells, kLines, cell_type);
}

/* Line kCheckLine of the engine's output equals the hand loop's. */
bool same_check_line(int cell_bytes)
{
    const size_t bytes = static_cast<size_t>(kCells) * cell_bytes;
    const off_t at = off_t{kCheckLine} * static_cast<off_t>(bytes);
    std::vector<char> a(bytes), b(bytes);
    const int fa = open(file("_engine").c_str(), O_RDONLY);
    const int fb = open(file("_hand").c_str(), O_RDONLY);
    bool ok = fa >= 0 && fb >= 0 && pread(fa, a.data(), bytes, at) == static_cast<ssize_t>(bytes) &&
              pread(fb, b.data(), bytes, at) == static_cast<ssize_t>(bytes) && a == b;
    if (fa >= 0) close(fa);
    if (fb >= 0) close(fb);
    return ok;
}

/* ---------------------------------------------------------------- by hand */

/* Reads the heights three lines at a time and writes `cell_fn` of each inner
 * cell's window; the rim, whose windows leave the dataset, is 0. */
template <class Out, class CellFn>
bool filter_by_hand(CellFn cell_fn)
{
    const int in = open(data().data.c_str(), O_RDONLY);
    const int out = open(file("_hand").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    std::vector<float> rows[3];
    for (auto &r : rows) r.resize(kCells);
    std::vector<Out> result(kCells);
    bool ok = in >= 0 && out >= 0;
    const ssize_t line_bytes = ssize_t{kCells} * 4;
    auto read_line = [&](int l, std::vector<float> &into) {
        return pread(in, into.data(), line_bytes, off_t{l} * line_bytes) == line_bytes;
    };
    ok = ok && read_line(0, rows[1]) && read_line(1, rows[2]);
    for (int l = 0; ok && l < kLines; l++) {
        std::fill(result.begin(), result.end(), Out{0});
        if (l > 0 && l < kLines - 1) {
            std::swap(rows[0], rows[1]);
            std::swap(rows[1], rows[2]);
            ok = read_line(l + 1, rows[2]);
            const float *top = rows[0].data(), *mid = rows[1].data(), *bot = rows[2].data();
            for (int c = 1; c < kCells - 1; c++) result[c] = cell_fn(top, mid, bot, c);
        }
        ok = ok && write(out, result.data(), sizeof(Out) * kCells) ==
                       static_cast<ssize_t>(sizeof(Out) * kCells);
    }
    if (in >= 0) close(in);
    if (out >= 0) close(out);
    return ok;
}

bool average_by_hand()
{
    return filter_by_hand<float>([](const float *t, const float *m, const float *b, int c) {
        double s = 0.0;
        s += 1.0 * t[c - 1];
        s += 1.0 * t[c];
        s += 1.0 * t[c + 1];
        s += 1.0 * m[c - 1];
        s += 1.0 * m[c];
        s += 1.0 * m[c + 1];
        s += 1.0 * b[c - 1];
        s += 1.0 * b[c];
        s += 1.0 * b[c + 1];
        return static_cast<float>(s / 9.0);
    });
}

/* The sun's angles as the shading algorithm's stream holds them. */
bool read_sun(const std::string &alg_path)
{
    algorithm *alg = nullptr;
    const bool ok = eg_algorithm_with_transients(&alg, alg_path.c_str()) == 0;
    if (ok) {
        data().sun_azimuth = alg->surfaces->first_stream->sun_azimuth;
        data().sun_angle = alg->surfaces->first_stream->sun_angle;
    }
    ef_algorithm(alg);
    return ok;
}

bool shade_by_hand()
{
    const double az = data().sun_azimuth, el = data().sun_angle;
    const double theta = 1.5707963267948966 - az;
    const double sx = std::cos(el) * std::cos(theta), sy = std::cos(el) * std::sin(theta),
                 sz = std::sin(el);
    return filter_by_hand<uint8_t>([=](const float *t, const float *m, const float *b, int c) {
        const double gx = double{m[c + 1]} - m[c - 1];
        const double gy = double{t[c]} - b[c];
        const double length = std::sqrt(gx * gx + gy * gy + 9.0);
        const double d = (-gx / length) * sx + (-gy / length) * sy + (3.0 / length) * sz;
        return d < 0.0 ? uint8_t{0} : static_cast<uint8_t>(std::min(d * 256.0, 255.0));
    });
}
bool shade_by_peer()
{
    const std::string command = "GDAL_NUM_THREADS=1 gdaldem hillshade -q -of ENVI -az " +
                                std::to_string(kAzimuth) + " -alt " + std::to_string(kElevation) +
                                " '" + data().data + "' '" + file("_peer") + "' 2>/dev/null";
    return std::system(command.c_str()) == 0;
}
void BM_AverageByHand(benchmark::State &state)
{
    data();
    bench::warm(data().data);
    data().kernel_loop = timed(state, average_by_hand);
}

void BM_AverageEngine(benchmark::State &state)
{
    const std::string alg = write_alg("IEEE4ByteReal", kAverageKernel);
    const double seconds = timed(state, [&] { return run_engine(alg, IEEE4ByteReal); });
    if (!same_check_line(4)) state.SkipWithError("the engine's average is not the hand loop's");
    state.counters["vs_loop"] = seconds / data().kernel_loop;
    state.counters["peak_rss_MB"] = peak_rss_mb();
}

void BM_ShadeByHand(benchmark::State &state)
{
    if (!read_sun(write_alg("Unsigned8BitInteger", shading_lines()))) {
        state.SkipWithError("the shading algorithm does not read");
        return;
    }
    data().shade_loop = timed(state, shade_by_hand);
}

void BM_ShadePeer(benchmark::State &state)
{
    if (!bench::have("gdaldem")) {
        state.SkipWithError("gdaldem is not installed (scripts/bench.sh installs it)");
        return;
    }
    data().shade_peer = timed(state, shade_by_peer);
    state.counters["vs_loop"] = data().shade_peer / data().shade_loop;
}

void BM_ShadeEngine(benchmark::State &state)
{
    const std::string alg = write_alg("Unsigned8BitInteger", shading_lines());
    const double seconds = timed(state, [&] { return run_engine(alg, Unsigned8BitInteger); });
    if (!same_check_line(1)) state.SkipWithError("the engine's shading is not the hand loop's");
    state.counters["vs_loop"] = seconds / data().shade_loop;
    if (data().shade_peer > 0) state.counters["vs_peer"] = seconds / data().shade_peer;
    state.counters["peak_rss_MB"] = peak_rss_mb();
}

}  // namespace

BENCHMARK(BM_AverageByHand)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(3.0);
BENCHMARK(BM_AverageEngine)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(3.0);
BENCHMARK(BM_ShadeByHand)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(3.0);
BENCHMARK(BM_ShadePeer)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(3.0);
BENCHMARK(BM_ShadeEngine)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(3.0);

BENCHMARK_MAIN();
