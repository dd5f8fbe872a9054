// FN_KERNEL over scripted lines: convolution and threshold values against
// the definitions worked out cell by cell, the edge and null rules, the
// messages of bad kernels, and the kernel files of the installation.
#include <gtest/gtest.h>

#include <cmath>
#include <set>
#include <string>
#include <vector>

#include "kernel_fixture.h"
#include "vln_path.h"

namespace {

using kernel_test::Expected;
using kernel_test::Grid;
using node_test::Harness;
using node_test::Runs;
using node_test::Script;

struct KernelDef {
    int type;
    int rows, columns;
    std::vector<double> weights;
    double scale = 1.0;
    double threshold = 0.0;
};

kernel record_of(KernelDef &def)
{
    kernel k{};
    k.type = def.type;
    k.rows = def.rows;
    k.columns = def.columns;
    k.array = def.weights.empty() ? nullptr : def.weights.data();
    k.scale_factor = def.scale;
    k.threshold = def.threshold;
    return k;
}

/* The kernel's value at a cell of output line j, by its definition. */
double kernel_value(const Grid &g, const KernelDef &k, int j, int x)
{
    double s = 0.0;
    for (int r = 0; r < k.rows; r++)
        for (int c = 0; c < k.columns; c++)
            s += k.weights[static_cast<size_t>(r * k.columns + c)] *
                 kernel_test::cell(g, j + r, x - k.columns / 2 + c);
    s /= k.scale;
    if (k.type != KT_Threshold) return s;
    const double centre = kernel_test::cell(g, j + k.rows / 2, x);
    return std::fabs(s - centre) >= k.threshold ? centre : s;
}

/* Runs the kernel over the grid, as cells of `source_type`, and checks every
 * line it can make. */
void check_kernel(KernelDef def, const Grid &g, int source_type)
{
    Harness h;
    Script script{source_type, g.lines};
    funcnode *tree = node_test::make_source(h.pe, &script);
    kernel k = record_of(def);
    setup_kernelnode(&tree, h.pe, nullptr, &k, g.width);
    h.build(tree, g.width, PE_ALLOC_RECORDS);
    ASSERT_EQ(h.top()->cell_type, IEEE8ByteReal);
    const int out_lines = static_cast<int>(g.lines.size()) - def.rows + 1;
    for (int j = 0; j < out_lines; j++) {
        SCOPED_TRACE("line " + std::to_string(j));
        node_test::Line got = h.read();
        Expected want = kernel_test::window_line(
            g, j, def.rows, def.columns, [&](int l, int x) { return kernel_value(g, def, l, x); });
        kernel_test::expect_line(got, want);
        // The first line fills the window; every later one takes one line.
        EXPECT_EQ(script.reads, def.rows + j);
    }
}

Grid varied_grid(int width, int lines)
{
    return kernel_test::make_grid(width, lines,
                                  [](int l, int x) { return (l * 37 + x * 11) % 23 - 7.0; });
}

/* A grid with nulls: a lone null cell, a gap of two, and a line that starts late. */
Grid grid_with_nulls()
{
    Grid g = varied_grid(11, 7);
    g.lines[2].runs = {{0, 4}, {6, 10}};
    g.lines[4].runs = {{0, 1}, {4, 10}};
    g.lines[5].runs = {{3, 10}};
    return g;
}

struct ConvolutionRow {
    const char *name;
    KernelDef def;
};

TEST(NodesKernel, ValuesAndRunsFollowTheDefinitions)
{
    const ConvolutionRow rows[] = {
        {"average 3x3", {KT_Convolution, 3, 3, {1, 1, 1, 1, 1, 1, 1, 1, 1}, 9.0}},
        {"sharpen 3x3", {KT_Convolution, 3, 3, {-1, -1, -1, -1, 9, -1, -1, -1, -1}, 1.0}},
        {"Sobel 3x3, weights not symmetric",
         {KT_Convolution, 3, 3, {1, 2, 1, 0, 0, 0, -1, -2, -1}, 4}},
        {"3 rows by 5 columns",
         {KT_Convolution, 3, 5, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15}, 7}},
        {"5x5", {KT_Convolution, 5, 5, std::vector<double>(25, 1.0), 25.0}},
        {"1x3 across", {KT_Convolution, 1, 3, {1, -2, 1}, 0.5}},
        {"3x1 down", {KT_Convolution, 3, 1, {1, 2, 1}, 4.0}},
        {"1x1 doubling, halved", {KT_Convolution, 1, 1, {2}, 2.0}},
        {"threshold 3x3 that decides cell by cell",
         {KT_Threshold, 3, 3, {1, 1, 1, 1, 0, 1, 1, 1, 1}, 8.0, 6.0}},
        {"threshold 3x5 that decides cell by cell",
         {KT_Threshold, 3, 5, {1, 1, 1, 1, 1, 1, 1, 0, 1, 1, 1, 1, 1, 1, 1}, 14.0, 5.0}},
    };
    const Grid grids[] = {varied_grid(9, 8), grid_with_nulls()};
    for (const auto &row : rows)
        for (int source_type : {IEEE8ByteReal, Signed16BitInteger})
            for (size_t g = 0; g < std::size(grids); g++) {
                SCOPED_TRACE(std::string(row.name) + (g ? ", with nulls" : "") +
                             (source_type == IEEE8ByteReal ? ", doubles" : ", 16-bit"));
                check_kernel(row.def, grids[g], source_type);
            }
}

TEST(NodesKernel, ThresholdExtremesAreConvolutionAndCentre)
{
    // Values checked straight against the two limits, not the rule.
    Grid g = varied_grid(6, 3);
    for (double threshold : {1e300, 1e-300}) {
        Harness h;
        Script script{IEEE8ByteReal, g.lines};
        funcnode *tree = node_test::make_source(h.pe, &script);
        KernelDef def{KT_Threshold, 3, 3, std::vector<double>(9, 1.0), 9.0, threshold};
        kernel k = record_of(def);
        setup_kernelnode(&tree, h.pe, nullptr, &k, g.width);
        h.build(tree, g.width, PE_ALLOC_RECORDS);
        node_test::Line got = h.read();
        ASSERT_EQ(got.runs, (Runs{{1, 4}}));
        for (int x = 1; x <= 4; x++) {
            double sum = 0;
            for (int r = 0; r < 3; r++)
                for (int c = -1; c <= 1; c++) sum += kernel_test::cell(g, r, x + c);
            EXPECT_EQ(got.values[x], threshold > 1 ? sum / 9.0 : kernel_test::cell(g, 1, x));
        }
    }
}

TEST(NodesKernel, NarrowLinesAndALoneNull)
{
    struct Row {
        const char *name;
        int width;
        Runs runs;  // of every line
        Runs want;  // of the output line
    };
    const Row rows[] = {
        {"width 3: the centre cell alone", 3, {{0, 2}}, {{1, 1}}},
        {"width 2: no cell", 2, {{0, 1}}, {}},
        {"a null at cell 4 takes cells 3 to 5", 9, {{0, 3}, {5, 8}}, {{1, 2}, {6, 7}}},
        {"runs of one or two cells vanish", 9, {{0, 1}, {3, 3}, {5, 8}}, {{6, 7}}},
        {"runs past the line's ends are cut to it", 9, {{-3, 20}}, {{1, 7}}},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        Harness h;
        Grid g = kernel_test::make_grid(row.width, 3, [](int l, int x) { return l + x; });
        for (auto &line : g.lines) line.runs = row.runs;
        Script script{IEEE8ByteReal, g.lines};
        funcnode *tree = node_test::make_source(h.pe, &script);
        KernelDef def{KT_Convolution, 3, 3, std::vector<double>(9, 1.0), 9.0};
        kernel k = record_of(def);
        setup_kernelnode(&tree, h.pe, nullptr, &k, row.width);
        h.build(tree, row.width, PE_ALLOC_RECORDS);
        EXPECT_EQ(h.read().runs, row.want);
    }
}

TEST(NodesKernel, DoubleLinesLandInTheRingAndReadsStopAllocating)
{
    Harness h;
    Grid g = grid_with_nulls();
    Script script{IEEE8ByteReal, g.lines};
    funcnode *tree = node_test::make_source(h.pe, &script);
    KernelDef def{KT_Convolution, 5, 3, std::vector<double>(15, 1.0), 15.0};
    kernel k = record_of(def);
    setup_kernelnode(&tree, h.pe, nullptr, &k, g.width);
    h.build(tree, g.width, PE_ALLOC_RECORDS);
    for (int i = 0; i < 3; i++) h.read();
    const int64_t allocations = h.pe->pool_allocations;
    const int32_t runs_allocated = h.pe->rlsegs.nr_allocated;
    for (int i = 0; i < 20; i++) h.read();
    EXPECT_EQ(h.pe->pool_allocations, allocations);
    EXPECT_EQ(h.pe->rlsegs.nr_allocated, runs_allocated);
    // The child wrote each double line straight into one of the ring's lines.
    EXPECT_EQ(std::set<void *>(script.targets.begin(), script.targets.end()).size(), 5u);
}

struct BadKernelRow {
    const char *name;
    KernelDef def;
    const char *message;
};

TEST(NodesKernel, BadKernelsFailWithTheirMessages)
{
    const BadKernelRow rows[] = {
        {"type unknown",
         {KT_Unknown, 3, 3, std::vector<double>(9, 1.0), 1.0},
         "Unsupported kernel type"},
        {"type beyond user",
         {KT_User + 1, 3, 3, std::vector<double>(9, 1.0), 1.0},
         "Unsupported kernel type"},
        {"even rows",
         {KT_Convolution, 2, 3, std::vector<double>(6, 1.0), 1.0},
         "Bad number of rows (must be odd)"},
        {"even columns",
         {KT_Convolution, 3, 4, std::vector<double>(12, 1.0), 1.0},
         "Bad number of cols (must be odd)"},
        {"no rows", {KT_Convolution, 0, 3, {}, 1.0}, "Bad number of rows (must be odd)"},
        {"zero scale",
         {KT_Convolution, 3, 3, std::vector<double>(9, 1.0), 0.0},
         "Kernel scalefactor is zero"},
        {"zero threshold",
         {KT_Threshold, 3, 3, std::vector<double>(9, 1.0), 0.0, 0.0},
         "Threshold kernel: threshold = 0.0"},
        {"threshold kernel, zero scale",
         {KT_Threshold, 3, 3, std::vector<double>(9, 1.0), 0.0, 2.0},
         "Kernel scalefactor is zero"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        Harness h;
        Script script{IEEE8ByteReal, {{{1, 2, 3}, {{0, 2}}}}};
        funcnode *tree = node_test::make_source(h.pe, &script);
        KernelDef def = row.def;
        kernel k = record_of(def);
        EXPECT_FALSE(vln_pe::guarded(h.pe, [&] { setup_kernelnode(&tree, h.pe, nullptr, &k, 3); }));
        EXPECT_EQ(std::string(h.pe->error_text), std::string(row.message) + "\n");
    }
}

TEST(NodesKernel, EveryShippedKernelFileLoadsAndRuns)
{
    const std::string dir = std::string(VORLAN_SHARE_DIR) + "/kernel";
    int count = 0;
    char **names = VLN_get_sorted_directory_list(dir.c_str(), ".ker", &count);
    ASSERT_NE(names, nullptr);
    EXPECT_GE(count, 5);
    for (int i = 0; i < count; i++) {
        SCOPED_TRACE(names[i]);
        kernel *k = nullptr;
        ASSERT_EQ(eg_kernel(&k, (dir + "/" + names[i]).c_str()), 0)
            << (VLD_error.text != nullptr ? VLD_error.text : "");
        ASSERT_NE(k->array, nullptr);
        // On a flat area a kernel gives the area's value times the sum of its
        // weights over its scale; a threshold kernel keeps the value where
        // that strays from it.
        Harness h;
        Grid g = kernel_test::make_grid(k->columns + 2, k->rows, [](int, int) { return 40.0; });
        Script script{IEEE8ByteReal, g.lines};
        funcnode *tree = node_test::make_source(h.pe, &script);
        ASSERT_TRUE(vln_pe::guarded(h.pe, [&] {
            setup_kernelnode(&tree, h.pe, nullptr, k, g.width);
        })) << h.pe->error_text;
        h.build(tree, g.width, PE_ALLOC_RECORDS);
        node_test::Line got = h.read();
        ASSERT_EQ(got.runs, (Runs{{k->columns / 2, k->columns / 2 + 2}}));
        double sum = 0;
        for (int w = 0; w < k->rows * k->columns; w++) sum += k->array[w];
        double flat = 40.0 * sum / k->scale_factor;
        if (k->type == KT_Threshold && std::fabs(flat - 40.0) >= k->threshold) flat = 40.0;
        EXPECT_NEAR(got.values[got.runs[0].first], flat, 1e-9);
        ef_kernel(k);
    }
    vln_free_directory_list(names, count);
}

}  // namespace
