// Statistics of regions: every cell type against sums made here over the
// cells, polygon and class regions, the null test, subsampling, the cases at
// the edges (all null, constant, one full cell), progress, what is kept and
// what is redone, writing to the header, and the failures.
#include <fcntl.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "stats_fixture.h"
#include "vln_stats.h"

namespace {

void expect_stats(const msstats *m, const st::Expected &e, int bands)
{
    ASSERT_NE(m, nullptr);
    ASSERT_EQ(m->nr_bands, bands);
    for (int b = 0; b < bands; b++) {
        SCOPED_TRACE(testing::Message() << "band " << b);
        EXPECT_EQ(m->null_cells[b], e.null_cells[b]);
        EXPECT_EQ(m->non_null_cells[b], e.non_null_cells[b]);
        EXPECT_EQ(m->minimum[b], e.minimum[b]);
        EXPECT_EQ(m->maximum[b], e.maximum[b]);
        EXPECT_NEAR(m->mean[b], e.mean[b], 1e-12 * std::fabs(e.mean[b]));
        EXPECT_EQ(m->median[b], e.median[b]);
    }
    for (int i = 0; i < bands * bands; i++) {
        double scale = std::fabs(e.covariance[i]) + 1e-300;
        EXPECT_NEAR(m->covariance[i], e.covariance[i], 1e-9 * scale) << "covariance " << i;
    }
}

/* A repeatable value in [low, high]. */
struct Lcg {
    uint64_t state;
    double next(double low, double high)
    {
        state = state * 6364136223846793005ULL + 1442695040888963407ULL;
        double u = static_cast<double>(state >> 11) / 9007199254740992.0;
        return low + std::floor(u * (high - low + 1));
    }
};

const st::Ring kTriangle = {{1.3, 0.7}, {12.2, 3.1}, {6.6, 10.4}};

TEST(Stats, EveryCellTypeMatchesSumsOverTheCells)
{
    struct Case {
        int type;
        double low, high;
        bool has_null;
        double null_value;
        double null_like; /* a cell value that is null only after rounding to float */
    } cases[] = {
        {Unsigned8BitInteger, 0, 255, false, 0, 0},
        {Unsigned8BitInteger, 0, 255, true, 255, 255},
        {Unsigned16BitInteger, 0, 65535, true, 0, 0},
        {Unsigned32BitInteger, 0, 4294967295.0, false, 0, 0},
        {Signed8BitInteger, -128, 127, true, -128, -128},
        {Signed16BitInteger, -30000, 30000, true, -9999, -9999},
        {Signed32BitInteger, -2000000000, 2000000000, true, 100000001, 100000003},
        {IEEE4ByteReal, -1e6, 1e6, true, -1e30, -1e30},
        {IEEE8ByteReal, -1e9, 1e9, true, 0.1, 0.1 + 1e-12},
    };
    for (const Case &k : cases) {
        SCOPED_TRACE(testing::Message() << "type " << k.type << " null " << k.has_null);
        st::TempDir dir;
        st::Grid g;
        g.type = k.type;
        g.lines = 11;
        g.cells = 13;
        g.bands = 3;
        g.has_null = k.has_null;
        g.null_value = k.null_value;
        Lcg lcg{static_cast<uint64_t>(k.type)};
        g.fill([&](int b, int l, int c) {
            double v = lcg.next(k.low, k.high);
            if (k.type >= IEEE4ByteReal) v += 0.25 * b;
            if (k.has_null && (l * 13 + c + b) % 7 == 0) v = k.null_like;
            return v;
        });
        g.write(dir, "img");
        ASSERT_NE(g.d, nullptr) << st::error_text();
        st::add_polygon(g.d, "Tri", kTriangle);
        ASSERT_EQ(calc_stats(g.d, 0), 0) << st::error_text();
        expect_stats(st::find_region(g.d, "All")->stats, g.expect([](int, int) { return true; }),
                     3);
        expect_stats(st::find_region(g.d, "Tri")->stats,
                     g.expect([](int c, int l) { return st::inside(kTriangle, c, l); }), 3);
    }
}

TEST(Stats, CellsSwappedOrMisalignedInTheFile)
{
    struct Case {
        int type, order, header_offset;
    } cases[] = {
        {Signed16BitInteger, MSBFirst, 0},
        {Unsigned16BitInteger, LSBFirst, 3},
        {IEEE8ByteReal, MSBFirst, 5},
        {Unsigned32BitInteger, MSBFirst, 2},
    };
    for (const Case &k : cases) {
        SCOPED_TRACE(testing::Message() << k.type << "/" << k.order << "/" << k.header_offset);
        st::TempDir dir;
        st::Grid g;
        g.type = k.type;
        g.order = k.order;
        g.header_offset = k.header_offset;
        g.has_null = true;
        g.null_value = 7;
        g.fill(
            [](int b, int l, int c) { return (b * 300 + l * 41 + c * 29) % 250 + 1.5 * (c % 2); });
        g.write(dir, "img");
        ASSERT_EQ(calc_stats(g.d, 0), 0) << st::error_text();
        expect_stats(g.d->info.r.regions->stats, g.expect([](int, int) { return true; }), 2);
    }
}

TEST(Stats, EdgeCases)
{
    struct Case {
        const char *what;
        int type, lines, cells, rate;
        bool has_null;
        double null_value;
        std::function<double(int, int, int)> cell;
    } cases[] = {
        // A band of nulls has mean, minimum and maximum 0.
        {"all null", Unsigned8BitInteger, 5, 6, 1, true, 0,
         [](int b, int l, int c) { return b == 0 ? 0.0 : l * 6 + c + 1.0; }},
        // A constant band has a range of 1 and the constant as its median.
        {"constant", Signed16BitInteger, 5, 6, 1, false, 0,
         [](int b, int l, int c) { return b == 0 ? -42.0 : l * c; }},
        // Rate 2 on 100 cells: the counts are scaled back up to 100.
        {"rate 2", Unsigned8BitInteger, 10, 10, 2, true, 7,
         [](int b, int l, int c) { return (l + c + b) % 9; }},
        // One cell valid in every band: the covariance is 0.
        {"one full cell", Unsigned8BitInteger, 4, 5, 1, true, 0,
         [](int b, int l, int c) { return b == 1 || (l == 2 && c == 3) ? l + c + 1.0 : 0.0; }},
        // Cells equal to the null only in single precision are null.
        {"float null", IEEE4ByteReal, 3, 4, 1, true, 0.1,
         [](int b, int l, int c) { return (l + c) % 2 ? 0.1 : b + l * 0.5 + c; }},
        {"double null", IEEE8ByteReal, 3, 4, 1, true, 0.1,
         [](int b, int l, int c) { return (l + c) % 2 ? 0.1 + 1e-11 : b + l * 0.5 + c; }},
        {"float null out of range", IEEE4ByteReal, 3, 4, 1, true, 1e300,
         [](int b, int l, int c) { return (l + c) % 2 ? 3.4028234663852886e38 : b + c; }},
    };
    for (const Case &k : cases) {
        SCOPED_TRACE(k.what);
        st::TempDir dir;
        st::Grid g;
        g.type = k.type;
        g.lines = k.lines;
        g.cells = k.cells;
        g.has_null = k.has_null;
        g.null_value = k.null_value;
        g.fill(k.cell);
        g.write(dir, "img");
        ASSERT_EQ(calc_stats_subsamp(g.d, 0, k.rate, nullptr), 0) << st::error_text();
        const msstats *m = st::find_region(g.d, "All")->stats;
        expect_stats(m, g.expect([](int, int) { return true; }, k.rate), 2);
        EXPECT_EQ(m->subsample_rate, k.rate);
    }
}

TEST(Stats, EdgeCasesHaveTheirStatedValues)
{
    // The values stated for the edge cases, not only agreement with the sums.
    st::TempDir dir;
    st::Grid g;
    g.lines = 10;
    g.cells = 10;
    g.has_null = true;
    g.null_value = 0;
    g.fill([](int b, int l, int c) { return b == 0 ? 0.0 : (l == 2 && c == 3 ? 9.0 : 5.0); });
    g.write(dir, "img");
    ASSERT_EQ(calc_stats_subsamp(g.d, 0, 2, nullptr), 0) << st::error_text();
    const msstats *m = g.d->info.r.regions->stats;
    EXPECT_EQ(m->non_null_cells[0] + m->null_cells[0], 100);
    EXPECT_EQ(m->non_null_cells[0], 0);
    EXPECT_EQ(m->mean[0], 0.0);
    EXPECT_EQ(m->minimum[0], 0.0);
    EXPECT_EQ(m->maximum[0], 0.0);
    EXPECT_EQ(m->median[1], 5.0);  // constant on the sampled cells
    for (int i = 0; i < 4; i++) EXPECT_EQ(m->covariance[i], 0.0);
}

TEST(Stats, ClassRegionsFollowTheClassDataset)
{
    st::TempDir dir;
    st::Grid classes;
    classes.lines = 9;
    classes.cells = 12;
    classes.bands = 1;
    classes.has_null = true;
    classes.null_value = 0;
    classes.fill([](int, int l, int c) { return (l + c / 4) % 3; });
    classes.write(dir, "classes");
    for (int rate : {1, 2}) {
        SCOPED_TRACE(rate);
        st::Grid g;
        g.type = Signed16BitInteger;
        g.lines = 9;
        g.cells = 12;
        g.bands = 3;
        g.fill([](int b, int l, int c) { return (b + 1) * (l * 12 + c) % 97 - 40; });
        g.write(dir, "img");
        st::add_class(g.d, "One", "classes.vld", 1);
        st::add_class(g.d, "Two", "classes.vld", 2);
        st::add_polygon(g.d, "Tri", kTriangle);
        std::vector<int> seen;
        static std::vector<int> *progress;
        progress = &seen;
        ASSERT_EQ(calc_stats_subsamp(g.d, 0, rate, [](int p) { progress->push_back(p); }), 0)
            << st::error_text();
        for (int k : {1, 2}) {
            auto in = [&](int c, int l) { return classes.at(0, l, c) == k; };
            expect_stats(st::find_region(g.d, k == 1 ? "One" : "Two")->stats, g.expect(in, rate),
                         3);
        }
        if (rate == 1)
            expect_stats(st::find_region(g.d, "Tri")->stats,
                         g.expect([](int c, int l) { return st::inside(kTriangle, c, l); }), 3);
        // Progress rises through whole numbers to 100.
        ASSERT_FALSE(seen.empty());
        for (size_t i = 1; i < seen.size(); i++) EXPECT_LT(seen[i - 1], seen[i]);
        EXPECT_EQ(seen.back(), 100);
    }
}

TEST(Stats, RegionsWithStatisticsAreKeptUnlessForced)
{
    st::TempDir dir;
    st::Grid g;
    g.fill([](int b, int l, int c) { return b + l + c; });
    g.write(dir, "img");
    st::add_polygon(g.d, "Balance Wizard 1", kTriangle);
    ASSERT_EQ(calc_stats(g.d, 0), 0) << st::error_text();
    msstats *all = st::find_region(g.d, "All")->stats;
    EXPECT_EQ(st::find_region(g.d, "Balance Wizard 1")->stats, nullptr);
    all->mean[0] = -1.0;
    all->prior_probability = 0.25;
    ASSERT_EQ(calc_stats(g.d, 0), 0);
    EXPECT_EQ(st::find_region(g.d, "All")->stats->mean[0], -1.0);
    ASSERT_EQ(calc_stats(g.d, 1), 0);
    const msstats *redone = st::find_region(g.d, "All")->stats;
    EXPECT_NE(redone->mean[0], -1.0);
    EXPECT_EQ(redone->prior_probability, 0.25);
}

TEST(Stats, WrittenToTheHeaderAndReadBack)
{
    st::TempDir dir;
    st::Grid g;
    g.type = IEEE4ByteReal;
    g.bands = 3;
    g.has_null = true;
    g.null_value = -1;
    g.fill([](int b, int l, int c) { return (l + c) % 5 == 0 ? -1.0 : b * 0.3 + l * 1.7 - c; });
    g.write(dir, "img");
    st::add_polygon(g.d, "Tri", kTriangle);
    ASSERT_EQ(calc_stats_subsamp(g.d, 0, 3, nullptr), 0) << st::error_text();
    ASSERT_EQ(ep_dshdr(g.d, g.header.c_str()), 0) << st::error_text();
    dshdr *back = nullptr;
    ASSERT_EQ(eg_dshdr(&back, g.header.c_str()), 0) << st::error_text();
    for (const char *name : {"All", "Tri"}) {
        SCOPED_TRACE(name);
        const msstats *a = st::find_region(g.d, name)->stats;
        const msstats *b = st::find_region(back, name)->stats;
        ASSERT_NE(b, nullptr);
        ASSERT_EQ(b->nr_bands, 3);
        EXPECT_EQ(b->subsample_rate, 3);
        for (int i = 0; i < 3; i++) {
            EXPECT_EQ(b->non_null_cells[i], a->non_null_cells[i]);
            // A row of null counts that are all 0 isn't written.
            EXPECT_EQ(b->null_cells ? b->null_cells[i] : 0, a->null_cells[i]);
            // Reals are kept to 13 significant digits.
            for (auto [x, y] : {std::pair{a->minimum, b->minimum},
                                {a->maximum, b->maximum},
                                {a->mean, b->mean},
                                {a->median, b->median}})
                EXPECT_NEAR(y[i], x[i], 1e-12 * std::fabs(x[i]));
        }
        for (int i = 0; i < 9; i++)
            EXPECT_NEAR(b->covariance[i], a->covariance[i], 1e-12 * std::fabs(a->covariance[i]));
    }
    ef_dshdr(back);
}

TEST(Stats, FailuresLeaveTheRegionsAsTheyWere)
{
    st::TempDir dir;
    st::Grid g;
    g.fill([](int b, int l, int c) { return b + l + c; });
    g.write(dir, "img");

    // A dataset that isn't a raster.
    dshdr *vector = nullptr;
    df_vector_dshdr(&vector, dir.file("v.vlv").c_str());
    EXPECT_EQ(calc_stats(vector, 1), VLD_ERR_RASTER_DATASET_REQUIRED);
    ef_dshdr(vector);

    // A class region without a class dataset, or with one that isn't there.
    st::add_class(g.d, "NoSource", nullptr, 1);
    EXPECT_EQ(calc_stats(g.d, 1), VLD_ERR_MESSAGE);
    EXPECT_EQ(st::error_text(), "No Source Dataset for Class labels");
    regioninfo *r = st::find_region(g.d, "NoSource");
    r->source_dataset = strsave("missing.vld");
    EXPECT_NE(calc_stats(g.d, 1), 0);
    EXPECT_EQ(st::find_region(g.d, "All")->stats, nullptr);
    safe_free(r->source_dataset);
    r->source_dataset = nullptr;
    r->type = REGION_POLYGON;

    // A polygon region outside the dataset's lines: nothing to read.
    ASSERT_EQ(calc_stats(g.d, 0), VLD_ERR_REGION_TOO_FEW_POINTS);  // the ring-less region
    ef_regioninfo_list(g.d->info.r.regions->next);
    g.d->info.r.regions->next = nullptr;
    ASSERT_EQ(calc_stats(g.d, 0), 0);
    st::add_polygon(g.d, "Below", {{1, 50}, {5, 50}, {3, 60}});
    EXPECT_EQ(calc_stats(g.d, 0), VLD_ERR_LINES_OUTSIDE_DATASET);

    // A data file cut short: the old statistics stay.
    const msstats *before = st::find_region(g.d, "All")->stats;
    ASSERT_EQ(truncate(dir.file("img").c_str(), 10), 0);
    EXPECT_NE(calc_stats(g.d, 1), 0);
    EXPECT_EQ(st::find_region(g.d, "All")->stats, before);
    EXPECT_EQ(st::find_region(g.d, "Below")->stats, nullptr);
}

}  // namespace

namespace {

/* A region in the last lines of a sparse data file past 4 GiB: the passes
 * move the mapped view beyond the 32-bit offsets and find the cells there. */
TEST(Stats, RegionPastFourGigabytesOfData)
{
    constexpr int kCells = 65536, kLines = 34000;  // 16-bit: 4.46 GB
    st::TempDir dir;
    const std::string header = dir.file("huge.vld");
    dshdr *made = nullptr;
    ASSERT_EQ(df_raster_dshdr(&made, header.c_str(), kCells, kLines, 1, Unsigned16BitInteger), 0);
    made->info.r.cellinfo.x_dimension = made->info.r.cellinfo.y_dimension = 1.0;
    ASSERT_EQ(ep_dshdr(made, header.c_str()), 0) << st::error_text();
    ef_dshdr(made);
    const std::string data = dir.file("huge");
    const int fd = open(data.c_str(), O_CREAT | O_WRONLY | O_TRUNC, 0644);
    ASSERT_GE(fd, 0);
    const int64_t line_bytes = int64_t{kCells} * 2;
    if (ftruncate(fd, line_bytes * kLines) != 0) {
        close(fd);
        GTEST_SKIP() << "no room for a sparse file of 4.46 GB here";
    }
    // Lines 33990 to 33999 hold cell + line at cells 100 to 199, zero elsewhere.
    for (int l = 33990; l < kLines; l++) {
        std::vector<uint16_t> cells(100);
        for (int c = 0; c < 100; c++) cells[c] = static_cast<uint16_t>(100 + c + l - 33990);
        ASSERT_EQ(pwrite(fd, cells.data(), 200, line_bytes * l + 200), 200);
    }
    close(fd);

    dshdr *d = nullptr;
    ASSERT_EQ(eg_dshdr(&d, header.c_str()), 0) << st::error_text();
    // The whole image has statistics already, so only the new region is read.
    msstats *kept = nullptr;
    ASSERT_EQ(ea_msstats_spec(&kept, 1), 0);
    st::find_region(d, "All")->stats = kept;
    st::add_polygon(d, "Corner", {{100, 33990}, {200, 33990}, {200, 34000}, {100, 34000}});
    ASSERT_EQ(calc_stats(d, 0), 0) << st::error_text();
    const msstats *m = st::find_region(d, "Corner")->stats;
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(st::find_region(d, "All")->stats, kept);
    EXPECT_EQ(m->non_null_cells[0], 1000);
    EXPECT_EQ(m->minimum[0], 100);
    EXPECT_EQ(m->maximum[0], 208);
    // The mean of c + k over c in 100..199 and k in 0..9.
    EXPECT_DOUBLE_EQ(m->mean[0], 149.5 + 4.5);
    ef_dshdr(d);
}

}  // namespace
