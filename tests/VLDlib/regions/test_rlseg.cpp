// Run lists and their set operations against a plain bitset model, in both
// the heap and the pooled form, and the filling of region polygons against a
// direct even-odd test of every cell centre.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "vld_rlseg.h"

namespace {

constexpr int kWidth = 48;
using Cells = std::vector<bool>;

// ---------------------------------------------------------------- list helpers

struct Run {
    int first, last;
    bool operator==(const Run &) const = default;
};
using Runs = std::vector<Run>;

// A list of the runs, from the pool when one is given, else from the heap.
rlseg *make(const Runs &runs, rlseg_pool *pool = nullptr)
{
    rlseg *head = nullptr, **tail = &head;
    for (const Run &r : runs) {
        *tail =
            pool ? pe_create_rlseg(pool, r.first, r.last) : create_rlseg(nullptr, r.first, r.last);
        tail = &(*tail)->next;
    }
    return head;
}

Runs runs_of(const rlseg *list)
{
    Runs out;
    for (; list; list = list->next) out.push_back({list->first, list->last});
    return out;
}

std::string text(const Runs &runs)
{
    std::string s;
    for (const Run &r : runs) s += std::to_string(r.first) + "-" + std::to_string(r.last) + " ";
    return s;
}

Cells cells_of(const Runs &runs, int width = kWidth)
{
    Cells c(width, false);
    for (const Run &r : runs)
        for (int i = r.first; i <= r.last; i++)
            if (i >= 0 && i < width) c[i] = true;
    return c;
}

// Ascending, not overlapping; with `maximal`, not touching either.
bool well_formed(const Runs &runs, bool maximal)
{
    for (size_t i = 0; i < runs.size(); i++) {
        if (runs[i].first > runs[i].last) return false;
        if (i && runs[i].first <= runs[i - 1].last + (maximal ? 1 : 0)) return false;
    }
    return true;
}

// A random valid list: ascending, not overlapping, sometimes touching, often
// empty or a single long run.
Runs random_runs(std::mt19937 &random)
{
    Runs runs;
    int kind = random() % 8;
    if (kind == 0) return runs;
    if (kind == 1) return {{0, kWidth - 1}};
    int cell = static_cast<int>(random() % 6);
    while (cell < kWidth) {
        int last = std::min(kWidth - 1, cell + static_cast<int>(random() % 7));
        runs.push_back({cell, last});
        cell = last + 1 + static_cast<int>(random() % 5);  // gap of 0 makes touching runs
    }
    return runs;
}

// ---------------------------------------------------------------- set operations

struct BinaryOp {
    const char *name;
    rlseg *(*heap)(const rlseg *, const rlseg *);
    rlseg *(*pool)(rlseg_pool *, const rlseg *, const rlseg *);
    bool (*model)(bool, bool);
    bool maximal;  // the result must have maximal runs
};

const BinaryOp kOps[] = {
    {"and", and_rlsegs, pe_and_rlsegs, [](bool a, bool b) { return a && b; }, false},
    {"or", VLD_or_rlsegs, or_rlsegs, [](bool a, bool b) { return a || b; }, true},
    {"diff", VLD_rlseg_diff, rlseg_diff, [](bool a, bool b) { return a && !b; }, false},
    {"complement", [](const rlseg *a, const rlseg *) { return VLD_rlseg_complement(a, kWidth); },
     [](rlseg_pool *p, const rlseg *a, const rlseg *) { return rlseg_complement(p, a, kWidth); },
     [](bool a, bool) { return !a; }, false},
    {"dup", [](const rlseg *a, const rlseg *) { return VLD_dup_rlsegs(a); },
     [](rlseg_pool *p, const rlseg *a, const rlseg *) { return dup_rlsegs(p, a); },
     [](bool a, bool) { return a; }, false},
};

TEST(Rlseg, BothFormsAgreeWithTheBitsetModel)
{
    std::mt19937 random(7);
    rlseg_pool pool;
    rlseg_pool_init(&pool);
    for (int trial = 0; trial < 3000; trial++) {
        Runs ra = random_runs(random), rb = random_runs(random);
        rlseg *a = make(ra), *b = make(rb);
        rlseg *pa = make(ra, &pool), *pb = make(rb, &pool);
        Cells ca = cells_of(ra), cb = cells_of(rb);
        for (const BinaryOp &op : kOps) {
            SCOPED_TRACE(std::string(op.name) + " a=" + text(ra) + " b=" + text(rb));
            rlseg *h = op.heap(a, b);
            rlseg *p = op.pool(&pool, pa, pb);
            Runs got = runs_of(h);
            Cells expect(kWidth);
            for (int i = 0; i < kWidth; i++) expect[i] = op.model(ca[i], cb[i]);
            ASSERT_EQ(cells_of(got), expect) << text(got);
            ASSERT_TRUE(well_formed(got, op.maximal)) << text(got);
            ASSERT_EQ(runs_of(p), got);
            ASSERT_EQ(runs_of(a), ra);  // inputs stay as they were
            ASSERT_EQ(runs_of(b), rb);
            ASSERT_EQ(runs_of(pa), ra);
            free_rlsegs(&h);
            pe_free_rlsegs(&pool, &p);
            EXPECT_EQ(p, nullptr);
        }
        free_rlsegs(&a);
        free_rlsegs(&b);
        pe_free_rlsegs(&pool, &pa);
        pe_free_rlsegs(&pool, &pb);
        ASSERT_EQ(pool.nr_used, 0);
    }
    rlseg_pool_release(&pool);
}

// Combine takes lists ordered by first cell that may overlap and touch.
TEST(Rlseg, CombineNormalisesInPlace)
{
    std::mt19937 random(11);
    rlseg_pool pool;
    rlseg_pool_init(&pool);
    for (int trial = 0; trial < 2000; trial++) {
        Runs raw;
        int first = static_cast<int>(random() % 4);
        int n = static_cast<int>(random() % 8);
        for (int i = 0; i < n && first < kWidth; i++) {
            raw.push_back({first, std::min(kWidth - 1, first + static_cast<int>(random() % 12))});
            first += static_cast<int>(random() % 6);
        }
        rlseg *h = make(raw), *p = make(raw, &pool);
        VLD_combine_rlsegs(h);
        combine_rlsegs(&pool, p);
        Runs got = runs_of(h);
        SCOPED_TRACE(text(raw) + "-> " + text(got));
        ASSERT_EQ(cells_of(got), cells_of(raw));
        ASSERT_TRUE(well_formed(got, true));
        ASSERT_EQ(runs_of(p), got);
        ASSERT_EQ(pool.nr_used, static_cast<int>(got.size()));  // swallowed runs went back
        free_rlsegs(&h);
        pe_free_rlsegs(&pool, &p);
    }
    rlseg_pool_release(&pool);
}

// Once the free list holds what a line needs, lines make no heap calls.
TEST(Rlseg, PoolReusesFreedRuns)
{
    rlseg_pool pool;
    rlseg_pool_init(&pool);
    rlseg *run = pe_create_rlseg(&pool, 3, 8);
    rlseg *kept = run;
    pe_free_rlseg(&pool, &run);
    EXPECT_EQ(run, nullptr);
    EXPECT_EQ(kept->first, -1);  // the record stays on the pool's free list
    EXPECT_EQ(kept->last, -1);
    EXPECT_EQ(pe_create_rlseg(&pool, 1, 2), kept);
    pe_free_rlseg(&pool, &kept);

    int32_t after_first_line = 0;
    for (int line = 0; line < 200; line++) {
        rlseg *a = make({{0, 10}, {20, 30}, {40, 44}}, &pool);
        rlseg *b = make({{5, 25}, {35, 41}}, &pool);
        rlseg *u = or_rlsegs(&pool, a, b);
        rlseg *i = pe_and_rlsegs(&pool, a, b);
        rlseg *d = rlseg_diff(&pool, u, i);
        rlseg *c = rlseg_complement(&pool, d, kWidth);
        for (rlseg **l : {&a, &b, &u, &i, &d, &c}) pe_free_rlsegs(&pool, l);
        if (line == 0) after_first_line = pool.nr_allocated;
    }
    EXPECT_EQ(pool.nr_allocated, after_first_line);
    EXPECT_EQ(pool.nr_used, 0);
    rlseg *live = make({{1, 2}, {4, 5}}, &pool);  // live runs go at release too
    (void)live;
    rlseg_pool_release(&pool);
    EXPECT_EQ(pool.nr_used + pool.nr_free, 0);
}

// ---------------------------------------------------------------- regions

using Ring = std::vector<std::pair<double, double>>;

regioninfo *make_region(const std::vector<Ring> &rings, const char *name = "r")
{
    regioninfo *region = nullptr;
    ea_regioninfo(&region);
    region->name = strsave(name);
    subregion **tail = &region->subregions;
    for (const Ring &ring : rings) {
        auto *s = static_cast<subregion *>(malloc_or_die(sizeof(subregion)));
        s->next = nullptr;
        s->points = nullptr;
        VLD_POINTNODE **pt = &s->points;
        for (auto [x, y] : ring) {
            auto *p = static_cast<VLD_POINTNODE *>(malloc_or_die(sizeof(VLD_POINTNODE)));
            *p = {nullptr, x, y};
            *pt = p;
            pt = &p->next;
        }
        *tail = s;
        tail = &s->next;
    }
    return region;
}

struct Dataset {
    dshdr header{};
    Dataset(int cells, int lines)
    {
        header.data_type = DT_Raster;
        header.info.r.nr_cells = cells;
        header.info.r.nr_lines = lines;
    }
};

// The cells of each line of the dataset, as the scan gives them.
std::vector<Cells> scan(const Dataset &ds, const regioninfo *region)
{
    int width = ds.header.info.r.nr_cells;
    std::vector<Cells> rows(ds.header.info.r.nr_lines, Cells(width, false));
    lineseg_info *list = nullptr;
    EXPECT_EQ(get_lineseg_info(&ds.header, region, &list), 0);
    int previous = -1;
    for (const lineseg_info *l = list; l; l = l->next) {
        EXPECT_GT(l->line, previous);
        EXPECT_NE(l->rlsegs, nullptr);
        previous = l->line;
        Runs runs = runs_of(l->rlsegs);
        EXPECT_TRUE(well_formed(runs, false)) << text(runs);
        for (const Run &r : runs) {
            EXPECT_GE(r.first, 0);
            EXPECT_LT(r.last, width);
        }
        rows.at(l->line) = cells_of(runs, width);
    }
    free_lineseg_info(&list);
    EXPECT_EQ(list, nullptr);
    return rows;
}

// Even-odd over all rings, at the centre of every cell.
std::vector<Cells> model(const Dataset &ds, const std::vector<Ring> &rings)
{
    std::vector<Cells> rows(ds.header.info.r.nr_lines, Cells(ds.header.info.r.nr_cells, false));
    for (size_t row = 0; row < rows.size(); row++) {
        for (size_t cell = 0; cell < rows[row].size(); cell++) {
            double px = cell + 0.5, py = row + 0.5;
            bool inside = false;
            for (const Ring &ring : rings) {
                if (ring.size() < 3) continue;
                for (size_t i = 0, j = ring.size() - 1; i < ring.size(); j = i++) {
                    auto [xi, yi] = ring[i];
                    auto [xj, yj] = ring[j];
                    if ((yi > py) != (yj > py) && px < xi + (py - yi) * (xj - xi) / (yj - yi))
                        inside = !inside;
                }
            }
            rows[row][cell] = inside;
        }
    }
    return rows;
}

// Rings with vertices anywhere (real values), and rectilinear rings on cell
// corners, whose horizontal and vertical edges never put a centre on the
// boundary either.
TEST(RegionMask, RandomPolygonsFillCellsWhoseCentresAreInside)
{
    std::mt19937 random(5);
    auto any_x = [&] { return std::uniform_real_distribution<double>(-4, 27)(random); };
    auto any_y = [&] { return std::uniform_real_distribution<double>(-4, 21)(random); };
    Dataset ds(23, 17);
    for (int trial = 0; trial < 600; trial++) {
        bool rectilinear = trial % 2;
        std::vector<Ring> rings(1 + random() % 3);
        for (Ring &ring : rings) {
            int n = 3 + static_cast<int>(random() % 7);
            if (!rectilinear) {
                for (int k = 0; k < n; k++) ring.emplace_back(any_x(), any_y());
                continue;
            }
            double x = std::floor(any_x()), y = std::floor(any_y());
            ring.emplace_back(x, y);
            for (int k = 0; k < n; k++) {
                x = std::floor(any_x());
                ring.emplace_back(x, y);
                y = std::floor(any_y());
                ring.emplace_back(x, y);
            }
            ring.emplace_back(ring.front().first, y);
        }
        regioninfo *region = make_region(rings);
        auto got = scan(ds, region);
        auto expect = model(ds, rings);
        for (size_t row = 0; row < got.size(); row++)
            ASSERT_EQ(got[row], expect[row]) << "trial " << trial << " row " << row;
        ef_regioninfo(region);
    }
}

// Stepping the edge table by hand gives what get_lineseg_info gives.
TEST(RegionMask, SteppingTheEdgeTableMatches)
{
    std::vector<Ring> rings = {{{2.3, 1.2}, {14.7, 3.9}, {9.1, 12.6}, {1.0, 8.5}},
                               {{5, 4}, {11, 4}, {11, 7}, {5, 7}}};
    regioninfo *region = make_region(rings);
    Dataset ds(16, 14);
    auto whole = scan(ds, region);
    int start_row = 0, nr_rows = 0;
    ASSERT_EQ(region_extents(region, &start_row, &nr_rows, nullptr, nullptr), 1);
    std::vector<active_edge *> table(nr_rows, nullptr);
    ASSERT_EQ(setup_edge_table(region, start_row, table.data()), 0);
    active_edge *active = nullptr;
    for (int i = 0; i < nr_rows; i++) {
        int row = start_row + i;
        if (row == 6) {  // skipping a row keeps the scan in step
            increment_lineseg_edge_table(16, i, row, table.data(), &active);
            continue;
        }
        lineseg_info *info = get_next_lineseg_info(16, i, row, table.data(), &active);
        Cells cells = info ? cells_of(runs_of(info->rlsegs), 16) : Cells(16, false);
        EXPECT_EQ(cells, whole.at(row)) << "row " << row;
        free_lineseg_info(&info);
    }
    EXPECT_EQ(active, nullptr);
    free_edge_table(table.data(), nr_rows, &active);
    ef_regioninfo(region);
}

// Vertices at cell centres: the diamond's side vertices lie on a row that
// the boundary passes through, its top and bottom on rows it touches.
TEST(RegionMask, DiamondThroughCellCentres)
{
    regioninfo *region = make_region({{{5.5, 0.5}, {10.5, 5.5}, {5.5, 10.5}, {0.5, 5.5}}});
    Dataset ds(11, 11);
    lineseg_info *list = nullptr;
    ASSERT_EQ(get_lineseg_info(&ds.header, region, &list), 0);
    int row = 0;
    for (const lineseg_info *l = list; l; l = l->next, row++) {
        int half = 5 - std::abs(row - 5);
        EXPECT_EQ(l->line, row);
        EXPECT_EQ(runs_of(l->rlsegs), (Runs{{5 - half, 5 + half}})) << "row " << row;
    }
    EXPECT_EQ(row, 11);
    free_lineseg_info(&list);
    ef_regioninfo(region);
}

TEST(RegionMask, RegionsReachingFarOutsideKeepTheirCellsInside)
{
    // Corners beyond any int: the rows and runs inside the dataset of 10 x 8
    // cells are what a region clipped to it would give.
    struct Case {
        const char *what;
        std::vector<Ring> rings;
        int first_row, last_row;  // each row is the full run 0-9
    } cases[] = {
        {"square of +-6e8", {{{-6e8, -6e8}, {6e8, -6e8}, {6e8, 6e8}, {-6e8, 6e8}}}, 0, 7},
        {"band across, 2 to 5", {{{-6e8, 2}, {6e8, 2}, {6e8, 5}, {-6e8, 5}}}, 2, 4},
        {"square of +-1e15", {{{-1e15, -1e15}, {1e15, -1e15}, {1e15, 1e15}, {-1e15, 1e15}}}, 0, 7},
        {"below the dataset, far down", {{{-6e8, 3}, {6e8, 3}, {6e8, 6e8}, {-6e8, 6e8}}}, 3, 7},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        regioninfo *region = make_region(c.rings);
        Dataset ds(10, 8);
        lineseg_info *list = nullptr;
        ASSERT_EQ(get_lineseg_info(&ds.header, region, &list), 0);
        int row = c.first_row;
        for (const lineseg_info *l = list; l; l = l->next, row++) {
            EXPECT_EQ(l->line, row);
            EXPECT_EQ(runs_of(l->rlsegs), (Runs{{0, 9}})) << "row " << row;
        }
        EXPECT_EQ(row, c.last_row + 1);
        free_lineseg_info(&list);
        ef_regioninfo(region);
    }
}

TEST(RegionMask, ExtentsAndRegionsWithoutPolygons)
{
    regioninfo *region = make_region({{{1.5, 2.25}, {7.2, 9.0}, {3, 4}}});
    double x0, x1, y0, y1;
    EXPECT_EQ(region_cell_extents(region, &x0, &x1, &y0, &y1), 1);
    EXPECT_EQ((std::vector<double>{x0, x1, y0, y1}), (std::vector<double>{1.5, 7.2, 2.25, 9.0}));
    int r0, nr, c0, nc;
    EXPECT_EQ(region_extents(region, &r0, &nr, &c0, &nc), 1);
    EXPECT_EQ((std::vector<int>{r0, nr, c0, nc}), (std::vector<int>{2, 7, 1, 7}));
    ef_regioninfo(region);

    Dataset ds(10, 10);
    lineseg_info *list = nullptr;
    regioninfo *few = make_region({{{1, 1}, {5, 5}}}, "Fields");
    regioninfo *none = make_region({}, "Empty");
    EXPECT_EQ(region_extents(none, &r0, &nr, &c0, &nc), 0);
    EXPECT_EQ(get_lineseg_info(&ds.header, few, &list), 18);
    EXPECT_NE(std::string(VLD_error.text).find("\"Fields\""), std::string::npos);
    EXPECT_EQ(get_lineseg_info(&ds.header, none, &list), 18);
    EXPECT_EQ(get_lineseg_info(&ds.header, nullptr, &list), 18);
    EXPECT_EQ(list, nullptr);
    ef_regioninfo(few);
    ef_regioninfo(none);

    // Wholly outside the dataset: no lines, no failure.
    regioninfo *away = make_region({{{-9, -9}, {-2, -9}, {-2, -2}}});
    EXPECT_EQ(get_lineseg_info(&ds.header, away, &list), 0);
    EXPECT_EQ(list, nullptr);
    ef_regioninfo(away);
}

}  // namespace
