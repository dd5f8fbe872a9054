// The position sources of a formula: FN_PIXELX and FN_PIXELY (output pixels
// of the read window), FN_CELLX and FN_CELLY (cells of the dataset's file),
// on a plain dataset, a subsampled one, a coarser view of its file, and a
// dataset warped into another space.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <string>
#include <vector>

#include "node_harness.h"
#include "vld_coords.h"

namespace {

using node_test::Harness;
using node_test::Line;
using node_test::Runs;

/* A raw raster header of `cells` by `lines` cells of `size` units, with cell
 * (0, 0) at coordinate (0, 0). */
dshdr *raw_header(int cells, int lines, double size, double rotation = 0)
{
    dshdr *dsh = nullptr;
    EXPECT_EQ(df_raster_dshdr(&dsh, "test", cells, lines, 1, Unsigned8BitInteger), 0);
    dsh->info.r.cellinfo.x_dimension = size;
    dsh->info.r.cellinfo.y_dimension = size;
    dsh->coordspace.rotation = rotation;
    return dsh;
}

/* Owns a header and its chain of source headers. */
struct HeaderChain {
    dshdr *top;
    explicit HeaderChain(dshdr *top_header) : top(top_header) {}
    ~HeaderChain()
    {
        for (dshdr *h = top; h != nullptr;) {
            dshdr *next = h->source_dsh;
            h->source_dsh = nullptr;
            ef_dshdr(h);
            h = next;
        }
    }
};

/* ---------------------------------------------------------------- FN_PIXELX, FN_PIXELY */

struct PixelRow {
    const char *name;
    int proc, out_count, out_first, margin, read_count;
    double super_step, super_step_out, super_frac;
    int offset;
    std::vector<double> values;
};

const PixelRow kPixelRows[] = {
    // No zoom: base out_first - margin, plus the offset, and the index.
    {"no zoom", 10, 10, 5, 2, 6, 0, 0, 0, 100, {103, 104, 105, 106, 107, 108}},
    // Zoom up 2.5 times: base trunc(7 - 1 * 2.5) = 4; the sampling rule from
    // -0.5 * 2.5 in steps of 2.5 gives -1, 1, 3, 6, 8, 11, the first raised
    // to 0; then base and offset 2.
    {"zoom up", 4, 10, 7, 1, 6, 4, 10, 0.5, 2, {6, 7, 9, 12, 14, 17}},
};

TEST(NodesPixelX, OutputColumnsOfTheReadWindow)
{
    for (const auto &row : kPixelRows) {
        SCOPED_TRACE(row.name);
        Harness h;
        algorithm alg{};
        alg.x_offset = row.offset;
        h.pe->alg = &alg;
        dsinput dsi{};
        dsi.proc_cells = row.proc;
        dsi.out_nr_cells = row.out_count;
        dsi.out_first_cell = row.out_first;
        dsi.margin_left = row.margin;
        dsi.read_cells = row.read_count;
        dsi.super_step_cells = row.super_step;
        dsi.super_step_out_cells = row.super_step_out;
        dsi.super_frac_x = row.super_frac;
        pe_stream ps{};
        ps.dsinput = &dsi;
        funcnode *tree = nullptr;
        setup_pixelx_node(&tree, h.pe, &ps);
        h.build(tree, row.read_count, PE_ALLOC_RECORDS);
        EXPECT_EQ(h.top()->cell_type, IEEE8ByteReal);
        for (int k = 0; k < 2; k++) {
            Line line = h.read();
            EXPECT_EQ(line.values, row.values);
            EXPECT_EQ(line.runs, (Runs{{0, row.read_count - 1}}));
        }
    }
}

TEST(NodesPixelY, OutputLineOfEachLineOfTheReadWindow)
{
    for (const auto &row : kPixelRows) {
        SCOPED_TRACE(row.name);
        Harness h;
        algorithm alg{};
        alg.y_offset = row.offset;
        h.pe->alg = &alg;
        dsinput dsi{};
        dsi.proc_lines = row.proc;
        dsi.out_nr_lines = row.out_count;
        dsi.out_first_line = row.out_first;
        dsi.margin_top = row.margin;
        dsi.read_lines = row.read_count;
        dsi.super_step_lines = row.super_step;
        dsi.super_step_out_lines = row.super_step_out;
        dsi.super_frac_y = row.super_frac;
        pe_stream ps{};
        ps.dsinput = &dsi;
        funcnode *tree = nullptr;
        setup_pixely_node(&tree, h.pe, &ps);
        h.build(tree, 3, PE_ALLOC_RECORDS);
        for (double want : row.values) {
            Line line = h.read();
            EXPECT_EQ(line.values, std::vector<double>(3, want));
            EXPECT_EQ(line.runs, (Runs{{0, 2}}));
        }
    }
}

/* ---------------------------------------------------------------- FN_CELLX, FN_CELLY */

struct CellRow {
    const char *name;
    int first, count, read_count;  // the read window along the axis, and its cells read
    double view_size;              // the dataset's cell size; 0: no source header
    bool corner;                   // whether the image has a top left corner
    std::vector<double> x_values;  // CELLX's line
    std::vector<double> y_values;  // CELLY's first lines, one value each
};

// The file's cells are 10 units; the image's top left corner (34, 12) lies at
// file cell (3.4, 1.2).
const CellRow kCellRows[] = {
    {"plain", 20, 4, 4, 0, true, {20, 21, 22, 23}, {20, 21, 22, 23}},
    {"subsampled", 20, 8, 4, 0, true, {20, 22, 24, 26}, {20, 22, 24, 26}},
    {"same grid as the file", 20, 4, 4, 10, true, {20, 21, 22, 23}, {20, 21, 22, 23}},
    // Twice as coarse: 4 cells span 8 of the file, starting under the centre
    // of the first view cell: floor(2 * 0.5 + 3.4) = 4 across, floor(1 + 1.2)
    // = 2 down.
    {"coarser view", 20, 4, 4, 20, true, {4, 6, 8, 10}, {2, 4, 6, 8}},
    {"coarser view, no corner", 20, 4, 4, 20, false, {20, 22, 24, 26}, {20, 22, 24, 26}},
    // Finer than the file: 4 cells span trunc(4 * 0.5) = 2 file cells.
    {"finer view", 20, 4, 4, 5, true, {20, 20, 21, 21}, {20, 20, 21, 21}},
};

struct CellFixture {
    algorithm alg{};
    coordspace space{};
    dscoord corner{34, 12, 0};
    dsinput dsi{};
    pe_stream ps{};
    dshdr *view = nullptr;

    explicit CellFixture(const CellRow &row)
    {
        df_coordspace_noalloc(&space);
        alg.coordspace = &space;
        alg.top_left = row.corner ? &corner : nullptr;
        dsi.first_cell = dsi.first_line = row.first;
        dsi.nr_cells = dsi.nr_lines = row.count;
        dsi.read_cells = dsi.read_lines = row.read_count;
        if (row.view_size > 0) {
            view = raw_header(100, 100, row.view_size);
            view->source_dsh = raw_header(200, 200, 10);
        }
        dsi.dsh = view;
        ps.dsinput = &dsi;
    }
    ~CellFixture()
    {
        HeaderChain chain(view);
        ef_coordspace_contents(&space);
    }
};

TEST(NodesCellX, FileColumnsOfTheReadWindow)
{
    for (const auto &row : kCellRows) {
        SCOPED_TRACE(row.name);
        Harness h;
        CellFixture f(row);
        h.pe->alg = &f.alg;
        funcnode *tree = nullptr;
        setup_cellx_node(&tree, h.pe, &f.ps);
        h.build(tree, row.read_count, PE_ALLOC_RECORDS);
        for (int k = 0; k < 2; k++) {
            Line line = h.read();
            EXPECT_EQ(line.values, row.x_values);
            EXPECT_EQ(line.runs, (Runs{{0, row.read_count - 1}}));
        }
    }
}

TEST(NodesCellY, FileLineOfEachLineOfTheReadWindow)
{
    for (const auto &row : kCellRows) {
        SCOPED_TRACE(row.name);
        Harness h;
        CellFixture f(row);
        h.pe->alg = &f.alg;
        funcnode *tree = nullptr;
        setup_celly_node(&tree, h.pe, &f.ps);
        h.build(tree, 5, PE_ALLOC_RECORDS);
        for (double want : row.y_values) {
            Line line = h.read();
            EXPECT_EQ(line.values, std::vector<double>(5, want));
            EXPECT_EQ(line.runs, (Runs{{0, 4}}));
        }
    }
}

/* ---------------------------------------------------------------- warped datasets */

/* A dataset of 12 by 12 unit cells in an unrotated grid over a file of 6 by 6
 * cells turned by 0.4 radians, with the read window cells 1 to 10 of lines 1
 * to 10: the turned file covers only part of each line. */
struct WarpFixture {
    dsinput dsi{};
    pe_stream ps{};
    dshdr *view;

    WarpFixture() : view(raw_header(12, 12, 1))
    {
        view->source_dsh = raw_header(6, 6, 1.5, 0.4);
        view->source_dsh->info.r.registration_coord = {3, -1, 0};
        dsi.dsh = view;
        dsi.first_cell = dsi.first_line = 1;
        dsi.nr_cells = dsi.nr_lines = 10;
        dsi.read_cells = dsi.read_lines = 10;
        ps.dsinput = &dsi;
    }
    ~WarpFixture() { HeaderChain chain(view); }

    /* Where the centre of view cell (x, y) lies in the file, by the
     * conversions themselves. */
    void file_cell(double x, double y, double *fx, double *fy)
    {
        dscoord c{};
        ASSERT_EQ(cvt_cell_to_any_coord(view, x + 0.5, y + 0.5, &view->source_dsh->coordspace, &c),
                  0);
        ASSERT_EQ(cvt_coord_to_cell(view->source_dsh, &c, fx, fy), 0);
    }
};

TEST(NodesCellX, WarpedDatasetRunLosesTheCellsOffTheFile)
{
    for (int type : {FN_CELLX, FN_CELLY}) {
        SCOPED_TRACE(type);
        Harness h;
        WarpFixture f;
        ASSERT_FALSE(coordspaces_equal(&f.view->coordspace, &f.view->source_dsh->coordspace));
        funcnode *tree = nullptr;
        if (type == FN_CELLX)
            setup_cellx_node(&tree, h.pe, &f.ps);
        else
            setup_celly_node(&tree, h.pe, &f.ps);
        h.build(tree, 10, PE_ALLOC_RECORDS);
        int trimmed_lines = 0, empty_lines = 0;
        for (int k = 0; k < 10; k++) {
            SCOPED_TRACE(k);
            Line line = h.read();
            // The run loses, from the left, cells at a negative position on
            // either axis, and from the right, cells past the file's last
            // cell or line.
            std::vector<double> fx(10), fy(10);
            for (int i = 0; i < 10; i++) f.file_cell(1 + i, 1 + k, &fx[i], &fy[i]);
            int first = 0, last = 9;
            while (first <= last && (fx[first] < 0 || fy[first] < 0)) first++;
            while (last >= first && (fx[last] >= 6 || fy[last] >= 6)) last--;
            for (int i = first; i <= last; i++) {
                const double pos = type == FN_CELLX ? fx[i] : fy[i];
                // Interpolated positions may differ from exact ones in the
                // last bits; non-negative ones are truncated.
                if (pos >= 0)
                    EXPECT_EQ(line.values[i], std::trunc(pos)) << "cell " << i;
                else
                    EXPECT_NEAR(line.values[i], pos, 1e-9) << "cell " << i;
            }
            const Runs kept = {{first, last}};
            EXPECT_EQ(line.runs, first > last ? Runs{} : kept);
            if (first > last) first = -1;
            if (first > 0 || (last >= 0 && last < 9)) trimmed_lines++;
            if (first < 0) empty_lines++;
        }
        // The case is only worth its name if runs were cut.
        EXPECT_GT(trimmed_lines, 0);
        EXPECT_LT(empty_lines, 10);
    }
}

TEST(NodesCellX, AFailedConversionEndsTheReadWithItsText)
{
    Harness h;
    WarpFixture f;
    coordspace &file_space = f.view->source_dsh->coordspace;
    file_space.coordsystype = CST_LL;
    safe_free(file_space.datum);
    safe_free(file_space.projection);
    file_space.datum = strsave("WGS84");
    file_space.projection = strsave("GEODETIC");
    funcnode *tree = nullptr;
    setup_cellx_node(&tree, h.pe, &f.ps);
    h.build(tree, 10, PE_ALLOC_RECORDS);
    ASSERT_EQ(pe_guarded_read(h.pe, h.root, [](funcnode *root) { root->read(root); }), 1);
    EXPECT_STRNE(h.pe->error_text, "");
    EXPECT_EQ(std::string(h.pe->error_text), std::string(VLD_error_text()));
}

/* ---------------------------------------------------------------- FN_INREGION */

/* A region of one ring; the records are the test's own. */
struct Ring {
    std::vector<VLD_POINTNODE> points;
    subregion ring{};
    regioninfo region{};

    Ring(std::initializer_list<std::pair<double, double>> vertices, const char *name)
    {
        for (auto [x, y] : vertices) points.push_back({nullptr, x, y});
        for (size_t i = 0; i + 1 < points.size(); i++) points[i].next = &points[i + 1];
        ring.points = points.empty() ? nullptr : points.data();
        region.type = REGION_POLYGON;
        region.name = const_cast<char *>(name);
        region.subregions = &ring;
    }

    /* Whether a point lies inside, by the even-odd rule on crossings. */
    bool contains(double x, double y) const
    {
        bool inside = false;
        for (size_t i = 0, j = points.size() - 1; i < points.size(); j = i++) {
            const VLD_POINTNODE &a = points[i], &b = points[j];
            if ((a.y > y) != (b.y > y) && x < (b.x - a.x) * (y - a.y) / (b.y - a.y) + a.x)
                inside = !inside;
        }
        return inside;
    }
};

struct InRegionRow {
    const char *name;
    int nr_cells, read_cells;
    double step_y;
    int read_lines;
};

TEST(NodesInRegion, OneInsideTheRegionZeroOutside)
{
    // In dataset cells; the ring begins above the read window's first line
    // and ends above its last.
    const InRegionRow rows[] = {
        {"full resolution", 10, 10, 1, 9},
        {"reduced", 10, 5, 2, 4},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        Harness h;
        Ring ring({{3.2, 0.3}, {9.7, 3.1}, {8.3, 7.8}, {2.6, 6.4}, {5.1, 4.2}}, "field");
        dsinput dsi{};
        dsi.first_cell = 2;
        dsi.nr_cells = row.nr_cells;
        dsi.read_cells = row.read_cells;
        dsi.first_line = 1;
        dsi.sub_step_y = row.step_y;
        pe_stream ps{};
        ps.dsinput = &dsi;
        funcnode *tree = nullptr;
        setup_inregion_node(&tree, h.pe, &ps, &ring.region);
        h.build(tree, row.read_cells, PE_ALLOC_RECORDS);
        EXPECT_EQ(h.top()->cell_type, IEEE8ByteReal);

        // Output cell d samples window cell d * nr_cells / read_cells.
        const int ratio = row.nr_cells / row.read_cells;
        int inside_cells = 0;
        int64_t allocations = 0;
        int32_t runs_allocated = 0;
        for (int k = 0; k < row.read_lines; k++) {
            SCOPED_TRACE(k);
            const int line = 1 + static_cast<int>(k * row.step_y);
            Line got = h.read();
            std::vector<double> want;
            for (int d = 0; d < row.read_cells; d++) {
                const int cell = 2 + d * ratio;
                want.push_back(ring.contains(cell + 0.5, line + 0.5) ? 1 : 0);
            }
            EXPECT_EQ(got.values, want);
            EXPECT_EQ(got.runs, (Runs{{0, row.read_cells - 1}}));
            inside_cells += static_cast<int>(std::count(want.begin(), want.end(), 1.0));
            if (k == 1) {
                allocations = h.pe->pool_allocations;
                runs_allocated = h.pe->rlsegs.nr_allocated;
            }
        }
        EXPECT_GT(inside_cells, 3);
        EXPECT_EQ(h.pe->pool_allocations, allocations);
        EXPECT_EQ(h.pe->rlsegs.nr_allocated, runs_allocated);
        EXPECT_EQ(h.pe->rlsegs.nr_used, 0);
    }
}

TEST(NodesInRegion, ARegionWithoutAPolygonEndsTheBuild)
{
    Harness h;
    Ring line_only({{1, 1}, {4, 4}}, "ridge");
    dsinput dsi{};
    dsi.nr_cells = dsi.read_cells = 8;
    pe_stream ps{};
    ps.dsinput = &dsi;
    funcnode *tree = nullptr;
    EXPECT_FALSE(
        vln_pe::guarded(h.pe, [&] { setup_inregion_node(&tree, h.pe, &ps, &line_only.region); }));
    EXPECT_EQ(tree, nullptr);
    EXPECT_STREQ(h.pe->error_text, "Insufficient points for definition of region \"ridge\"\n");
    EXPECT_EQ(h.pe->nr_errors, 1);
}

TEST(NodesPosition, ReadsAllocateNothingOnceRunning)
{
    using Builder = void (*)(funcnode **, pe_context *, pe_stream *);
    const Builder builders[] = {setup_cellx_node, setup_celly_node, setup_pixelx_node,
                                setup_pixely_node};
    for (bool warped : {false, true}) {
        for (Builder build : builders) {
            if (warped && build != setup_cellx_node && build != setup_celly_node) continue;
            Harness h;
            WarpFixture f;
            if (!warped) f.view->source_dsh->coordspace.rotation = 0;
            f.dsi.proc_cells = f.dsi.proc_lines = 10;
            f.dsi.out_nr_cells = f.dsi.out_nr_lines = 10;
            algorithm alg{};
            h.pe->alg = &alg;
            funcnode *tree = nullptr;
            build(&tree, h.pe, &f.ps);
            h.build(tree, 10, PE_ALLOC_RECORDS);
            for (int k = 0; k < 2; k++) h.read();
            const int64_t allocations = h.pe->pool_allocations;
            const int32_t runs_allocated = h.pe->rlsegs.nr_allocated;
            for (int k = 0; k < 6; k++) h.read();
            EXPECT_EQ(h.pe->pool_allocations, allocations);
            EXPECT_EQ(h.pe->rlsegs.nr_allocated, runs_allocated);
        }
    }
}

}  // namespace
