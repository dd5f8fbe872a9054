// Statistics of a 10,000 x 10,000 dataset of three 16-bit unsigned bands
// (600 MB, written to /tmp at start and removed at exit): calc_stats over the
// region "All" (both passes: counts, ranges, means, medians and covariance),
// beside a hand-written C loop doing the same sums over the same raw file, and
// beside "gdalinfo -stats" on the same raw data through an ENVI header, run on
// one thread with its side files off. The page cache is warmed first.
// "vs_loop" is the library's time as a multiple of the hand loop's, "vs_peer"
// as a multiple of the peer's, both measured in the same run. "agree" is 1
// when the library's counts, minima and maxima equal the loop's and the
// peer's, and its means agree with theirs to 1e-9 relative. "peak_rss_MB" is
// this process's peak resident memory, counting the mapped file.
#include <benchmark/benchmark.h>

#include "bench_common.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "vld_dshdr.h"
#include "vln_stats.h"

namespace {

using bench::peak_rss_mb;
using bench::timed;

constexpr int kLines = 10000, kCells = 10000, kBands = 3;

/* What one run found, per band. */
struct Found {
    std::array<long long, kBands> count{};
    std::array<double, kBands> minimum{}, maximum{}, mean{};
};

struct Data {
    std::string stem, header, data, envi;
    double loop_seconds = 0, peer_seconds = 0;
    Found loop, peer;
    bool have_peer_values = false;
};

void remove_files();

Data &data()
{
    static Data *s = [] {
        auto *s = new Data;
        s->stem = "/tmp/vln_bench_stats_" + std::to_string(getpid());
        s->header = s->stem + ".vld";
        s->data = s->stem;
        s->envi = s->stem + ".hdr";
        // Bands that differ and correlate, over most of the 16-bit range.
        uint32_t noise = 12345;
        bench::write_raster<uint16_t>(
            s->header, s->data, s->envi, kCells, kLines, kBands, Unsigned16BitInteger,
            [&noise](int l, int b, uint16_t *line) {
                for (int c = 0; c < kCells; c++) {
                    noise = noise * 1664525u + 1013904223u;
                    uint32_t base = static_cast<uint32_t>(l * 3 + c * 2) % 40000;
                    line[c] = static_cast<uint16_t>(base + (b + 1) * (noise >> 20) % 20000);
                }
            });
        std::atexit(remove_files);
        setenv("VORLAN", VORLAN_SHARE_DIR, 0);
        return s;
    }();
    return *s;
}

void remove_files()
{
    Data &s = data();
    for (const std::string &f : {s.data, s.header, s.envi, s.stem + ".aux.xml"})
        std::remove(f.c_str());
}
/* The same sums by hand: a pass of counts, ranges and sums, then a pass of
 * 256-bucket histograms and the covariance of every pair of bands. */
bool stats_by_hand(Found &found)
{
    const int in = open(data().data.c_str(), O_RDONLY);
    if (in < 0) return false;
    std::vector<uint16_t> line(static_cast<size_t>(kCells) * kBands);
    const ssize_t bytes = static_cast<ssize_t>(line.size() * 2);
    uint64_t sum[kBands] = {};
    unsigned mn[kBands], mx[kBands];
    for (int b = 0; b < kBands; b++) mn[b] = 65535, mx[b] = 0;
    bool ok = true;
    for (int l = 0; ok && l < kLines; l++) {
        ok = pread(in, line.data(), bytes, off_t{l} * bytes) == bytes;
        for (int b = 0; b < kBands; b++) {
            const uint16_t *p = line.data() + static_cast<size_t>(b) * kCells;
            for (int c = 0; c < kCells; c++) {
                unsigned v = p[c];
                sum[b] += v;
                mn[b] = v < mn[b] ? v : mn[b];
                mx[b] = v > mx[b] ? v : mx[b];
            }
        }
    }
    double mean[kBands], scale[kBands];
    for (int b = 0; b < kBands; b++) {
        mean[b] = static_cast<double>(sum[b]) / (double(kLines) * kCells);
        double range = mx[b] == mn[b] ? 1.0 : double(mx[b]) - mn[b];
        scale[b] = 256.0 / range;
    }
    static long long histogram[kBands][256];
    std::memset(histogram, 0, sizeof histogram);
    double cov[kBands][kBands] = {};
    for (int l = 0; ok && l < kLines; l++) {
        ok = pread(in, line.data(), bytes, off_t{l} * bytes) == bytes;
        const uint16_t *p0 = line.data(), *p1 = p0 + kCells, *p2 = p1 + kCells;
        for (int c = 0; c < kCells; c++) {
            const uint16_t v[kBands] = {p0[c], p1[c], p2[c]};
            double d[kBands];
            for (int b = 0; b < kBands; b++) {
                int k = static_cast<int>((v[b] - mn[b]) * scale[b]);
                histogram[b][k > 255 ? 255 : k]++;
                d[b] = v[b] - mean[b];
            }
            for (int i = 0; i < kBands; i++)
                for (int j = i; j < kBands; j++) cov[i][j] += d[i] * d[j];
        }
    }
    close(in);
    benchmark::DoNotOptimize(histogram);
    benchmark::DoNotOptimize(cov);
    for (int b = 0; b < kBands; b++) {
        found.count[b] = static_cast<long long>(kLines) * kCells;
        found.minimum[b] = mn[b];
        found.maximum[b] = mx[b];
        found.mean[b] = mean[b];
    }
    return ok;
}

bool stats_by_library(Found &found)
{
    dshdr *d = nullptr;
    if (eg_dshdr(&d, data().header.c_str()) != 0) return false;
    bool ok = calc_stats(d, 1) == 0;
    const msstats *m = ok ? d->info.r.regions->stats : nullptr;
    for (int b = 0; m && b < kBands; b++) {
        found.count[b] = m->non_null_cells[b];
        found.minimum[b] = m->minimum[b];
        found.maximum[b] = m->maximum[b];
        found.mean[b] = m->mean[b];
    }
    ef_dshdr(d);
    return ok;
}
/* gdalinfo -stats, with the values it prints for each band. */
bool stats_by_peer(Found &found)
{
    const std::string command = "GDAL_NUM_THREADS=1 GDAL_PAM_ENABLED=NO gdalinfo -stats '" +
                                data().envi.substr(0, data().envi.size() - 4) + "' 2>/dev/null";
    FILE *p = popen(command.c_str(), "r");
    if (!p) return false;
    char text[512];
    int band = -1;
    while (std::fgets(text, sizeof text, p)) {
        int b = 0;
        double v = 0;
        if (std::sscanf(text, "Band %d", &b) == 1) band = b - 1;
        if (band < 0 || band >= kBands) continue;
        if (std::sscanf(text, " STATISTICS_MINIMUM=%lf", &v) == 1) found.minimum[band] = v;
        if (std::sscanf(text, " STATISTICS_MAXIMUM=%lf", &v) == 1) found.maximum[band] = v;
        if (std::sscanf(text, " STATISTICS_MEAN=%lf", &v) == 1) found.mean[band] = v;
        if (std::sscanf(text, " STATISTICS_VALID_PERCENT=%lf", &v) == 1)
            found.count[band] = std::llround(v / 100.0 * kLines * kCells);
    }
    return pclose(p) == 0;
}

/* Counts, minima and maxima equal; means to 1e-9 relative. The peer prints
 * its mean to fewer digits, so its tolerance is what it prints. */
bool agree(const Found &a, const Found &b, double mean_tolerance)
{
    for (int k = 0; k < kBands; k++) {
        if (a.count[k] != b.count[k] || a.minimum[k] != b.minimum[k] ||
            a.maximum[k] != b.maximum[k])
            return false;
        if (std::fabs(a.mean[k] - b.mean[k]) > mean_tolerance * std::fabs(b.mean[k])) return false;
    }
    return true;
}
void BM_StatsByHand(benchmark::State &state)
{
    data();
    bench::warm(data().data);
    data().loop_seconds = timed(state, [] { return stats_by_hand(data().loop); });
}

void BM_StatsPeer(benchmark::State &state)
{
    if (!bench::have("gdalinfo")) {
        state.SkipWithError("gdalinfo is not installed (scripts/bench.sh installs it)");
        return;
    }
    data().peer_seconds = timed(state, [] { return stats_by_peer(data().peer); });
    data().have_peer_values = true;
    state.counters["vs_loop"] = data().peer_seconds / data().loop_seconds;
}

void BM_StatsLibrary(benchmark::State &state)
{
    Found found;
    const double seconds = timed(state, [&] { return stats_by_library(found); });
    state.counters["vs_loop"] = seconds / data().loop_seconds;
    if (data().peer_seconds > 0) state.counters["vs_peer"] = seconds / data().peer_seconds;
    bool same = agree(found, data().loop, 1e-9);
    if (data().have_peer_values) same = same && agree(found, data().peer, 1e-9);
    state.counters["agree"] = same ? 1 : 0;
    state.counters["peak_rss_MB"] = peak_rss_mb();
    if (!same) {
        for (int b = 0; b < kBands; b++)
            std::fprintf(stderr,
                         "band %d: library %lld %.17g %.17g %.17g, loop %lld %.17g %.17g %.17g, "
                         "peer %lld %.17g %.17g %.17g\n",
                         b + 1, found.count[b], found.minimum[b], found.maximum[b], found.mean[b],
                         data().loop.count[b], data().loop.minimum[b], data().loop.maximum[b],
                         data().loop.mean[b], data().peer.count[b], data().peer.minimum[b],
                         data().peer.maximum[b], data().peer.mean[b]);
    }
}

}  // namespace

BENCHMARK(BM_StatsByHand)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(3.0);
BENCHMARK(BM_StatsPeer)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(3.0);
BENCHMARK(BM_StatsLibrary)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(3.0);

BENCHMARK_MAIN();
