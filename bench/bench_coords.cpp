// The coordinate engine beside the independent projection library on the
// same points in the same run, single-threaded: one million geographic points
// to UTM and back, and one million through a seven-parameter datum change.
// The peer runs proj_trans_generic over the same arrays.
#include <benchmark/benchmark.h>
#include <proj.h>

#include <cmath>
#include <cstdlib>
#include <vector>

#include "gdt_coords.h"
#include "vld_core.h"

namespace {

constexpr int kPoints = 1000000;
constexpr double kDeg = 3.14159265358979323846 / 180;

/* Points of UTM zone 31 north (and of Great Britain for the datum change),
 * as longitude, latitude, height triples in radians. */
std::vector<double> make_points(double lon0, double lon1, double lat0, double lat1)
{
    std::vector<double> p(3 * kPoints);
    uint64_t state = 12345;
    auto uniform = [&](double lo, double hi) {
        state = state * 6364136223846793005ULL + 1442695040888963407ULL;
        return lo + (hi - lo) * static_cast<double>(state >> 11) / 9007199254740992.0;
    };
    for (int i = 0; i < kPoints; i++) {
        p[3 * i] = uniform(lon0, lon1) * kDeg;
        p[3 * i + 1] = uniform(lat0, lat1) * kDeg;
        p[3 * i + 2] = 0;
    }
    return p;
}

int system(const char *datum, const char *projection, const char *units)
{
    static bool ready = false;
    if (!ready) {
        setenv("VORLAN", VORLAN_SHARE_DIR, 0);
        ready = true;
    }
    return gdt_crelock_coord_sys(datum, projection, units);
}

/* Through the engine: `a` to `b` over all points, and back when `back`. */
void engine_run(benchmark::State &state, const char *datum_a, const char *proj_a,
                const char *datum_b, const char *proj_b, bool back, std::vector<double> points)
{
    int a = system(datum_a, proj_a, "radians"), b = system(datum_b, proj_b, "radians");
    if (a <= 0 || b <= 0) {
        state.SkipWithError("no coordinate system");
        return;
    }
    std::vector<double> out(points.size()), again(points.size());
    int n = kPoints;
    for (auto _ : state) {
        gdt_set_source(&a);
        gdt_set_target(&b);
        if (gdt_trans_array(&n, points.data(), out.data()) != 0) state.SkipWithError("transform");
        if (back) {
            gdt_set_source(&b);
            gdt_set_target(&a);
            if (gdt_trans_array(&n, out.data(), again.data()) != 0)
                state.SkipWithError("transform");
        }
        benchmark::DoNotOptimize(again.data());
    }
    state.SetItemsProcessed(state.iterations() * kPoints * (back ? 2 : 1));
}

void peer_run(benchmark::State &state, const char *definition, bool back,
              std::vector<double> points)
{
    PJ_CONTEXT *ctx = proj_context_create();
    PJ *op = proj_create(ctx, definition);
    std::vector<double> work(points.size());
    for (auto _ : state) {
        work = points;
        proj_trans_generic(op, PJ_FWD, &work[0], 24, kPoints, &work[1], 24, kPoints, &work[2], 24,
                           kPoints, nullptr, 0, 0);
        if (back)
            proj_trans_generic(op, PJ_INV, &work[0], 24, kPoints, &work[1], 24, kPoints, &work[2],
                               24, kPoints, nullptr, 0, 0);
        benchmark::DoNotOptimize(work.data());
    }
    state.SetItemsProcessed(state.iterations() * kPoints * (back ? 2 : 1));
    proj_destroy(op);
    proj_context_destroy(ctx);
}

void BM_UtmEngine(benchmark::State &state)
{
    engine_run(state, "WGS84", "GEODETIC", "WGS84", "NUTM31", true, make_points(0, 6, 0, 84));
}

void BM_UtmPeerApprox(benchmark::State &state)
{
    peer_run(state, "+proj=utm +zone=31 +ellps=WGS84 +approx", true, make_points(0, 6, 0, 84));
}

void BM_UtmPeer(benchmark::State &state)
{
    peer_run(state, "+proj=utm +zone=31 +ellps=WGS84", true, make_points(0, 6, 0, 84));
}

void BM_BursaWolfEngine(benchmark::State &state)
{
    engine_run(state, "OSGB36", "GEODETIC", "WGS84", "GEODETIC", false, make_points(-8, 2, 50, 60));
}

void BM_BursaWolfPeer(benchmark::State &state)
{
    peer_run(state,
             "+proj=pipeline +step +proj=cart +ellps=airy +step +proj=helmert +x=446.448 "
             "+y=-125.157 +z=542.06 +rx=0.15 +ry=0.247 +rz=0.842 +s=-20.489 "
             "+convention=position_vector +step +inv +proj=cart +ellps=WGS84",
             false, make_points(-8, 2, 50, 60));
}

}  // namespace

BENCHMARK(BM_UtmEngine)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_UtmPeerApprox)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_UtmPeer)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_BursaWolfEngine)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_BursaWolfPeer)->Unit(benchmark::kMillisecond);
BENCHMARK_MAIN();
