/* The engine end to end: one stream over one dataset, pulled line by line
 * through the root, against values worked out here from the sampling rules:
 * at 1:1, enlarged (nearest and bilinear) and reduced. Also the sharing of one
 * read between streams, the memory of a mosaic, a failure deep in a read, and
 * reads that allocate nothing once running. */
#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "engine_fixture.h"

std::atomic<long> g_news{0};

// The test program is linked with malloc, calloc and realloc wrapped: every
// call of the C allocator from the library and from these tests counts here.
std::atomic<long> g_mallocs{0};
extern "C" {
void *__real_malloc(size_t size);
void *__real_calloc(size_t count, size_t size);
void *__real_realloc(void *p, size_t size);
void *__wrap_malloc(size_t size)
{
    g_mallocs.fetch_add(1, std::memory_order_relaxed);
    return __real_malloc(size);
}
void *__wrap_calloc(size_t count, size_t size)
{
    g_mallocs.fetch_add(1, std::memory_order_relaxed);
    return __real_calloc(count, size);
}
void *__wrap_realloc(void *p, size_t size)
{
    g_mallocs.fetch_add(1, std::memory_order_relaxed);
    return __real_realloc(p, size);
}
}

namespace {

using eng::AlgDoc;
using eng::Open;
using eng::StreamDoc;
using eng::TempDir;

/* The dataset cells that the window's cells 0 to out - 1 take along one axis
 * of `size` dataset cells shown at `out` image cells. Reduced at the source,
 * cells round to the nearest sub-step and lines truncate. */
std::vector<int> nearest_positions(int size, int out, bool lines)
{
    const double step = static_cast<double>(size) / out;
    const int first = static_cast<int>(std::floor(step / 2));
    const int last = std::min(static_cast<int>(std::floor(size - step / 2)), size - 1);
    const int nr = last - first + 1;
    std::vector<int> at(static_cast<size_t>(out));
    if (nr >= out) {
        // Reduced at the source: every sub-step'th cell of the read window.
        const double sub = nr == out ? 1.0 : static_cast<double>(nr) / out;
        double p = 0;
        for (int i = 0; i < out; i++, p += sub)
            at[i] = first + static_cast<int>(lines ? std::trunc(i * sub) : std::rint(p));
    } else {
        // Enlarged: each image cell takes the cell under its centre.
        const double frac = step / 2 - std::floor(step / 2);
        for (int d = 0; d < out; d++) at[d] = first + static_cast<int>(frac + d * step);
    }
    return at;
}

struct SamplingCase {
    const char *name;
    int cells, lines, out_cells, out_lines;
};

class EngineRead : public ::testing::TestWithParam<SamplingCase> {};

TEST_P(EngineRead, NearestFollowsTheSamplingRule)
{
    const SamplingCase &c = GetParam();
    TempDir dir;
    std::string ds = eng::write_dataset(dir, "ds", c.cells, c.lines);
    AlgDoc doc{0,           0,     double(c.cells),      double(c.lines), c.out_cells,
               c.out_lines, false, Unsigned16BitInteger, {{ds}}};
    Open open(dir, doc);
    ASSERT_EQ(open.status, 0) << open.error();
    const std::vector<int> xs = nearest_positions(c.cells, c.out_cells, false);
    const std::vector<int> ys = nearest_positions(c.lines, c.out_lines, true);
    std::vector<std::vector<uint16_t>> lines(1, std::vector<uint16_t>(c.out_cells));
    std::vector<rlseg *> runs(1, nullptr);
    for (int y = 0; y < c.out_lines; y++) {
        ASSERT_EQ(open.read(lines, runs), 0) << "line " << y << ": " << open.error();
        ASSERT_NE(runs[0], nullptr);
        EXPECT_EQ(runs[0]->first, 0);
        EXPECT_EQ(runs[0]->last, c.out_cells - 1);
        for (int x = 0; x < c.out_cells; x++)
            ASSERT_EQ(lines[0][x], eng::value16(0, ys[y], xs[x])) << "cell " << x << ", line " << y;
    }
    EXPECT_EQ(open.read(lines, runs), -1);
    EXPECT_EQ(runs[0], nullptr);
    EXPECT_EQ(open.read(lines, runs), -1);
}

/* Where a window cell falls between the dataset cells along one axis, for
 * bilinear enlargement: its centre in cell-centre units, held to the first and
 * last centre. Returns the lower cell and sets the weight of the upper. */
int bilinear_position(int size, int out, int d, double *weight)
{
    const double pos = std::max((d + 0.5) * size / out - 0.5, 0.0);
    const int i = std::min(static_cast<int>(pos), size - 1);
    *weight = i + 1 < size ? pos - i : 0.0;
    return i;
}

/* Bilinear is an enlargement: an axis that is not enlarged samples as nearest. */
TEST_P(EngineRead, BilinearInterpolatesBetweenCellCentres)
{
    const SamplingCase &c = GetParam();
    TempDir dir;
    std::string ds = eng::write_dataset(dir, "ds", c.cells, c.lines);
    AlgDoc doc{0,           0,    double(c.cells), double(c.lines), c.out_cells,
               c.out_lines, true, IEEE4ByteReal,   {{ds}}};
    Open open(dir, doc);
    ASSERT_EQ(open.status, 0) << open.error();
    const bool wide = c.out_cells > c.cells, tall = c.out_lines > c.lines;
    const std::vector<int> xs = nearest_positions(c.cells, c.out_cells, false);
    const std::vector<int> ys = nearest_positions(c.lines, c.out_lines, true);
    // The value at window cell (x, y), interpolated along each enlarged axis.
    auto expected = [&](int x, int y) {
        double wx = 0, wy = 0;
        const int cx = wide ? bilinear_position(c.cells, c.out_cells, x, &wx) : xs[x];
        const int cy = tall ? bilinear_position(c.lines, c.out_lines, y, &wy) : ys[y];
        auto at = [&](int dx, int dy) {
            return double(eng::value16(0, std::min(cy + dy, c.lines - 1),
                                       std::min(cx + dx, c.cells - 1)));
        };
        const double top = at(0, 0) + wx * (at(1, 0) - at(0, 0));
        const double bottom = at(0, 1) + wx * (at(1, 1) - at(0, 1));
        return top + wy * (bottom - top);
    };
    std::vector<std::vector<float>> lines(1, std::vector<float>(c.out_cells));
    std::vector<void *> ptrs{lines[0].data()};
    std::vector<rlseg *> runs(1, nullptr);
    for (int y = 0; y < c.out_lines; y++) {
        ASSERT_EQ(pe_read_lines(open.pe, 0, ptrs.data(), runs.data()), 0)
            << "line " << y << ": " << open.error();
        ASSERT_NE(runs[0], nullptr);
        EXPECT_EQ(runs[0]->first, 0);
        EXPECT_EQ(runs[0]->last, c.out_cells - 1);
        EXPECT_EQ(runs[0]->next, nullptr);
        for (int x = 0; x < c.out_cells; x++)
            ASSERT_NEAR(lines[0][x], expected(x, y), 1e-3) << "cell " << x << ", line " << y;
    }
    EXPECT_EQ(pe_read_lines(open.pe, 0, ptrs.data(), runs.data()), -1);
}

INSTANTIATE_TEST_SUITE_P(Zooms, EngineRead,
                         ::testing::Values(SamplingCase{"same", 20, 15, 20, 15},
                                           SamplingCase{"twice", 20, 15, 40, 30},
                                           SamplingCase{"thrice", 20, 15, 60, 45},
                                           SamplingCase{"third", 60, 45, 20, 15},
                                           SamplingCase{"mixed", 60, 15, 20, 45}),
                         [](const auto &info) { return std::string(info.param.name); });

}  // namespace

namespace {

std::vector<std::vector<uint16_t>> band_lines(int bands, int cells)
{
    return std::vector<std::vector<uint16_t>>(static_cast<size_t>(bands),
                                              std::vector<uint16_t>(static_cast<size_t>(cells)));
}

/* Two streams over one dataset share one reader: the file is read once. */
TEST(EngineShare, TwoStreamsReadTheFileOnce)
{
    TempDir dir;
    std::string ds = eng::write_dataset(dir, "two", 30, 12, 2);
    for (int second_band : {1, 2}) {
        AlgDoc doc{0,
                   0,
                   30,
                   12,
                   30,
                   12,
                   false,
                   Unsigned16BitInteger,
                   {{ds, 1, "first"}, {ds, second_band, "second"}}};
        Open open(dir, doc);
        ASSERT_EQ(open.status, 0) << open.error();
        ASSERT_NE(open.pe->dsinputs, nullptr);
        EXPECT_EQ(open.pe->dsinputs->next, nullptr) << "one reader for the dataset";
        auto lines = band_lines(2, 30);
        std::vector<rlseg *> runs(2, nullptr);
        for (int y = 0; y < 12; y++) {
            ASSERT_EQ(open.read(lines, runs), 0) << open.error();
            for (int x = 0; x < 30; x += 7) {
                EXPECT_EQ(lines[0][x], eng::value16(0, y, x));
                EXPECT_EQ(lines[1][x], eng::value16(second_band - 1, y, x));
            }
        }
        EXPECT_EQ(open.pe->dsinputs->nr_file_reads, 12);
        EXPECT_EQ(open.pe->dsinputs->nr_read_bands, second_band);
    }
}

/* A mosaic of many small datasets down a tall window: only the streams that
 * cross the current line hold line memory. */
TEST(EngineMosaic, LineMemoryOnlyForStreamsOnTheLine)
{
    TempDir dir;
    const int n = 50, cells = 40, rows = 4;
    AlgDoc doc{0, 0, double(cells), double(n * rows), cells, n * rows, false, IEEE4ByteReal, {}};
    for (int k = 0; k < n; k++) {
        std::string name = "tile" + std::to_string(k);
        doc.streams.push_back(
            {eng::write_dataset(dir, name, cells, rows, 1, 0, k * rows), 1, name});
    }
    Open open(dir, doc);
    ASSERT_EQ(open.status, 0) << open.error();
    const int64_t after_open = open.pe->pool_bytes;
    auto lines = std::vector<std::vector<float>>(n, std::vector<float>(cells));
    std::vector<void *> ptrs;
    for (auto &l : lines) ptrs.push_back(l.data());
    std::vector<rlseg *> runs(n, nullptr);
    int64_t peak = 0;
    for (int y = 0; y < n * rows; y++) {
        ASSERT_EQ(pe_read_lines(open.pe, 0, ptrs.data(), runs.data()), 0) << open.error();
        peak = std::max(peak, open.pe->pool_bytes - after_open);
        const int k = y / rows;
        EXPECT_EQ(lines[k][5], float(eng::value16(0, y % rows, 5)));
    }
    // A stream's line memory: a line of each connection that owns one, and
    // the dataset's ring. Fifty of them at once would be far above this.
    const int64_t one_stream = 4 * (cells * 8 + 64);
    EXPECT_GT(peak, 0);
    EXPECT_LE(peak, 2 * one_stream);
}

/* A data file cut short after the open: the read that meets the cut fails
 * with the reader's text, and the handle still closes cleanly. */
TEST(EngineFailure, TruncatedDataFileFailsTheRead)
{
    TempDir dir;
    std::string ds = eng::write_dataset(dir, "cut", 25, 10);
    AlgDoc doc{0, 0, 25, 10, 25, 10, false, Unsigned16BitInteger, {{ds}}};
    Open open(dir, doc);
    ASSERT_EQ(open.status, 0) << open.error();
    ASSERT_EQ(truncate(dir.file("cut").c_str(), 25 * 2 * 4), 0);
    auto lines = band_lines(1, 25);
    std::vector<rlseg *> runs(1, nullptr);
    int status = 0, y = 0;
    for (; y < 10 && status == 0; y++) status = open.read(lines, runs);
    EXPECT_EQ(status, 1);
    EXPECT_EQ(y, 5) << "lines 0 to 3 are whole";
    const std::string text = open.error();
    EXPECT_EQ(text.rfind("Error reading virtual dataset: " + ds + "\n", 0), 0u) << text;
}

/* A failure while planning: the texts of the checks come back, and nothing is left open. */
TEST(EngineFailure, PlanningFailuresGiveTheirTexts)
{
    TempDir dir;
    std::string ds = eng::write_dataset(dir, "plan", 10, 10);
    struct Case {
        AlgDoc doc;
        const char *text;
    } cases[] = {
        {{0, 0, 10, 10, 10, 10, false, CT_None, {{ds}}},
         "Output data type not specified or invalid\n"},
        {{10, 10, 0, 0, 10, 10, false, Unsigned16BitInteger, {{ds}}},
         "Image top left coordinate > bottom right coordinate\n"},
    };
    for (const Case &c : cases) {
        Open open(dir, c.doc);
        EXPECT_EQ(open.status, 1);
        if (c.text != nullptr)
            EXPECT_EQ(open.error(), c.text);
        else
            EXPECT_FALSE(open.error().empty());
        EXPECT_EQ(open.pe->nr_errors, 1);
    }
}

/* Once the first lines are through, reads take nothing from the pool, the
 * run records or the heap. */
TEST(EngineSteadyState, ReadsAllocateNothingAfterTheFirstLines)
{
    TempDir dir;
    std::string ds = eng::write_dataset(dir, "steady", 30, 20, 2);
    AlgDoc doc{
        0, 0, 30, 20, 60, 40, false, IEEE4ByteReal, {{ds, 1, "a"}, {ds, 2, "b"}, {ds, 1, "c"}}};
    Open open(dir, doc);
    ASSERT_EQ(open.status, 0) << open.error();
    auto lines = std::vector<std::vector<float>>(3, std::vector<float>(60));
    std::vector<void *> ptrs;
    for (auto &l : lines) ptrs.push_back(l.data());
    std::vector<rlseg *> runs(3, nullptr);
    for (int y = 0; y < 3; y++) ASSERT_EQ(pe_read_lines(open.pe, 0, ptrs.data(), runs.data()), 0);
    const int64_t pool = open.pe->pool_allocations;
    const int runs_made = open.pe->rlsegs.nr_allocated;
    const long news = g_news.load(), mallocs = g_mallocs.load();
    for (int y = 3; y < 39; y++) ASSERT_EQ(pe_read_lines(open.pe, 0, ptrs.data(), runs.data()), 0);
    EXPECT_EQ(open.pe->pool_allocations, pool);
    EXPECT_EQ(open.pe->rlsegs.nr_allocated, runs_made);
    EXPECT_EQ(g_news.load(), news);
    EXPECT_EQ(g_mallocs.load(), mallocs);
    // The count does see the library: an open allocates.
    const long before_open = g_mallocs.load();
    { Open again(dir, doc); }
    EXPECT_GT(g_mallocs.load(), before_open);
}

}  // namespace

// The sanitizers bring their own global operator new, which this must not
// replace: under them the count of C++ allocations stands aside.
#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define VORLAN_TEST_NO_NEW_COUNT 1
#endif
#endif
#if !defined(VORLAN_TEST_NO_NEW_COUNT) && !defined(__SANITIZE_ADDRESS__) && \
    !defined(__SANITIZE_THREAD__)
// Counts the heap allocations of C++ code in this program. (The compiler
// can't see that these replace the global pair, and warns of a mismatch.)
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
void *operator new(size_t size)
{
    g_news++;
    void *p = std::malloc(size > 0 ? size : 1);
    if (p == nullptr) throw std::bad_alloc();
    return p;
}
void operator delete(void *p) noexcept
{
    std::free(p);
}
void operator delete(void *p, size_t) noexcept
{
    std::free(p);
}
#endif
