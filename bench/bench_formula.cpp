// A normalised difference, (I1 - I2) / (I1 + I2), over two 16-bit bands of
// a 10,000 x 10,000 dataset (400 MB, interleaved by line, written to /tmp at
// start and removed at exit), written out as 32-bit reals: through a virtual
// dataset opened for a dataset output; beside a hand-written C loop over the
// same raw file; beside gdal_calc.py on the same raw data through an ENVI
// header; and beside numexpr on two threads under Debian's own interpreter,
// reading the raw file through numpy.memmap. The page cache is warmed first.
// "vs_loop", "vs_gdal_calc" and "vs_numexpr" are the engine's time as a
// multiple of each, measured in the same run (the goal: at most 1.25 times
// the loop, below 1 against both peers); "cpu_vs_loop" compares the
// processor time of this process in the engine's runs and the loop's, which
// the writing back of 400 MB to a shared disk disturbs less. "differing_cells" counts the cells
// of each output that differ from the loop's, bit for bit; all define every
// cell here, as no sum is 0. Every run starts after a sync, so that no run
// pays for the writing back of the one before.
#include <benchmark/benchmark.h>

#include "bench_common.h"

#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <ctime>
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
using bench::have;

constexpr int kLines = 10000, kCells = 10000;

struct Data {
    std::string stem, header, data, envi, alg, script, loop_out;
    double loop_seconds = 0, gdal_seconds = 0, numexpr_seconds = 0;
    double loop_cpu_seconds = 0;
};

void remove_files();

uint16_t band1(int l, int c)
{
    return static_cast<uint16_t>(((l * 7 + c) & 0xFFF) + 1);
}

uint16_t band2(int l, int c)
{
    return static_cast<uint16_t>((l * 3 + c * 5) % 3000 + 1);
}

const char *kScript =
    "import sys\n"
    "import numpy as np\n"
    "import numexpr as ne\n"
    "ne.set_num_threads(2)\n"
    "src, dst, lines, cells = sys.argv[1], sys.argv[2], int(sys.argv[3]), int(sys.argv[4])\n"
    "m = np.memmap(src, dtype='<u2', mode='r', shape=(lines, 2, cells))\n"
    "with open(dst, 'wb') as out:\n"
    "    for l in range(0, lines, 500):\n"
    "        a = m[l:l + 500, 0, :].astype(np.float64)\n"
    "        b = m[l:l + 500, 1, :].astype(np.float64)\n"
    "        ne.evaluate('(a - b) / (a + b)').astype(np.float32).tofile(out)\n";

Data &data()
{
    static Data *s = [] {
        auto *s = new Data;
        s->stem = "/tmp/vln_bench_formula_" + std::to_string(getpid());
        s->header = s->stem + ".vld";
        s->data = s->stem;
        s->envi = s->stem + ".hdr";
        s->alg = s->stem + ".alg";
        s->script = s->stem + "_numexpr.py";
        s->loop_out = s->stem + "_loop";
        bench::write_raster<uint16_t>(
            s->header, s->data, s->envi, kCells, kLines, 2, Unsigned16BitInteger,
            [](int l, int b, uint16_t *line) {
                for (int c = 0; c < kCells; c++) line[c] = b == 0 ? band1(l, c) : band2(l, c);
            });
        std::ofstream(s->script) << kScript;
        std::ofstream(s->alg)
            << "Algorithm Begin\n\tVersion = \"7.0\"\n\tName = \"ndi\"\n"
               "\tCoordinateSpace Begin\n\t\tDatum = \"RAW\"\n\t\tProjection = \"RAW\"\n"
               "\t\tCoordinateType = RAW\n\tCoordinateSpace End\n"
               "\tTopLeftCorner Begin\n\t\tMetersX = 0\n\t\tMetersY = 0\n\tTopLeftCorner End\n"
               "\tBottomRightCorner Begin\n\t\tMetersX = "
            << kCells << "\n\t\tMetersY = " << kLines
            << "\n\tBottomRightCorner End\n\tOutputWidth = " << kCells
            << "\n\tOutputHeight = " << kLines << "\n\tCanvasWidth = " << kCells
            << "\n\tCanvasHeight = " << kLines
            << "\n\tOutputType = IEEE4ByteReal\n\tNullValue = 0\n"
               "\tSurface Begin\n\t\tName = \"Bands\"\n\t\tColorMode = DATASET\n"
               "\t\tStream Begin\n\t\t\tType = Pseudo\n\t\t\tDescription = \"NDI\"\n"
               "\t\t\tDataset = \""
            << s->header
            << "\"\n\t\t\tStreamInput Begin\n\t\t\t\tStreamInputID = 1\n\t\t\tStreamInput End\n"
               "\t\t\tStreamInput Begin\n\t\t\t\tStreamInputID = 2\n\t\t\tStreamInput End\n"
               "\t\t\tFormula Begin\n\t\t\t\tFormula = \"(I1 - I2) / (I1 + I2)\"\n"
               "\t\t\t\tFormulaArg Begin\n\t\t\t\t\tStreamInput = 1\n\t\t\t\t\tBandNumber = 1\n"
               "\t\t\t\tFormulaArg End\n\t\t\t\tFormulaArg Begin\n\t\t\t\t\tStreamInput = 2\n"
               "\t\t\t\t\tBandNumber = 2\n\t\t\t\tFormulaArg End\n"
               "\t\t\tFormula End\n\t\tStream End\n\tSurface End\nAlgorithm End\n";
        std::atexit(remove_files);
        bench::start_engine("bench_formula");
        return s;
    }();
    return *s;
}

void remove_files()
{
    Data &s = data();
    for (const std::string &f :
         {s.data, s.header, s.envi, s.alg, s.script, s.loop_out, s.stem + "_engine",
          s.stem + "_engine.vld", s.stem + "_gdal", s.stem + "_gdal.hdr", s.stem + "_gdal.aux.xml",
          s.stem + "_numexpr"})
        std::remove(f.c_str());
}
/* The cells of `path` (32-bit reals) that differ from the loop's output. */
double differing_cells(const std::string &path)
{
    std::ifstream a(data().loop_out, std::ios::binary), b(path, std::ios::binary);
    std::vector<uint32_t> x(kCells), y(kCells);
    int64_t differ = 0;
    for (int l = 0; l < kLines; l++) {
        a.read(reinterpret_cast<char *>(x.data()), kCells * 4);
        b.read(reinterpret_cast<char *>(y.data()), kCells * 4);
        if (!b) return static_cast<double>(int64_t{kLines} * kCells);
        for (int c = 0; c < kCells; c++) differ += x[c] != y[c];
    }
    return static_cast<double>(differ);
}

/* The job as one would write it by hand: read a line of both bands, compute,
 * write. A zero sum would be 0, or the largest float of the difference's sign. */
bool ndi_by_hand()
{
    const int in = open(data().data.c_str(), O_RDONLY);
    const int out = open(data().loop_out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    std::vector<uint16_t> cells(static_cast<size_t>(kCells) * 2);
    std::vector<float> reals(kCells);
    bool ok = in >= 0 && out >= 0;
    const off_t line_bytes = off_t{kCells} * 4;
    for (int l = 0; ok && l < kLines; l++) {
        ok = pread(in, cells.data(), line_bytes, l * line_bytes) == line_bytes;
        const uint16_t *a = cells.data(), *b = cells.data() + kCells;
        for (int c = 0; c < kCells; c++) {
            const double d = static_cast<double>(a[c]) - b[c], s = static_cast<double>(a[c]) + b[c];
            reals[c] = static_cast<float>(s != 0 ? d / s : (d > 0 ? 1.7976931348623157e308 : 0));
        }
        ok = ok && write(out, reals.data(), kCells * 4) == kCells * 4;
    }
    if (in >= 0) close(in);
    if (out >= 0) close(out);
    return ok;
}

bool ndi_through_engine()
{
    return bench::run_tods(data().alg, data().stem + "_engine.vld", kCells, kLines, IEEE4ByteReal);
}
bool ndi_gdal_calc()
{
    const std::string &in = data().data;
    const std::string command = "GDAL_NUM_THREADS=1 gdal_calc.py --quiet --overwrite -A '" + in +
                                "' --A_band=1 -B '" + in + "' --B_band=2 --outfile='" +
                                data().stem + "_gdal' --format=ENVI --type=Float32 " +
                                "--calc='(1.0 * A - B) / (1.0 * A + B)' >/dev/null 2>&1";
    return std::system(command.c_str()) == 0;
}

bool ndi_numexpr()
{
    const std::string command = "/usr/bin/python3 '" + data().script + "' '" + data().data + "' '" +
                                data().stem + "_numexpr' " + std::to_string(kLines) + " " +
                                std::to_string(kCells);
    return std::system(command.c_str()) == 0;
}

void BM_NdiByHand(benchmark::State &state)
{
    data();
    bench::warm(data().data);
    data().loop_seconds = timed(state, ndi_by_hand, &data().loop_cpu_seconds, true);
}

void BM_NdiGdalCalc(benchmark::State &state)
{
    if (!have("gdal_calc.py")) {
        state.SkipWithError("gdal_calc.py is not installed (scripts/bench.sh installs it)");
        return;
    }
    data().gdal_seconds = timed(state, ndi_gdal_calc, nullptr, true);
    state.counters["vs_loop"] = data().gdal_seconds / data().loop_seconds;
    state.counters["differing_cells"] = differing_cells(data().stem + "_gdal");
}

void BM_NdiNumexpr(benchmark::State &state)
{
    if (std::system("/usr/bin/python3 -c 'import numexpr' >/dev/null 2>&1") != 0) {
        state.SkipWithError("numexpr is not installed (scripts/bench.sh installs it)");
        return;
    }
    data().numexpr_seconds = timed(state, ndi_numexpr, nullptr, true);
    state.counters["vs_loop"] = data().numexpr_seconds / data().loop_seconds;
    state.counters["differing_cells"] = differing_cells(data().stem + "_numexpr");
}

void BM_NdiEngine(benchmark::State &state)
{
    double cpu = 0;
    const double seconds = timed(state, ndi_through_engine, &cpu, true);
    state.counters["vs_loop"] = seconds / data().loop_seconds;
    state.counters["cpu_vs_loop"] = cpu / data().loop_cpu_seconds;
    if (data().gdal_seconds > 0) state.counters["vs_gdal_calc"] = seconds / data().gdal_seconds;
    if (data().numexpr_seconds > 0) state.counters["vs_numexpr"] = seconds / data().numexpr_seconds;
    state.counters["differing_cells"] = differing_cells(data().stem + "_engine");
    state.counters["peak_rss_MB"] = peak_rss_mb();
}

}  // namespace

BENCHMARK(BM_NdiByHand)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(3.0);
BENCHMARK(BM_NdiGdalCalc)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2);
BENCHMARK(BM_NdiNumexpr)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2);
BENCHMARK(BM_NdiEngine)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(3.0);

BENCHMARK_MAIN();
