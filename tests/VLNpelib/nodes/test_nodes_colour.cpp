// The nodes that fill the window around the canvas and move palette values
// off the reserved colours: FN_APPENDNULLS, FN_RESCOLOUR and FN_OPTIM.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "node_harness.h"

namespace {

using node_test::Harness;
using node_test::Line;
using node_test::Runs;
using node_test::Script;

constexpr double kFill = 0xEE;

/* The reserved-colour table by its meaning: value i goes to the free index
 * of rank i * (256 - n) / 256, free indices being those not reserved, in
 * order. */
std::vector<int> free_index_table(const std::vector<uint8_t> &reserved)
{
    std::vector<int> free;
    for (int v = 0; v < 256; v++)
        if (std::find(reserved.begin(), reserved.end(), v) == reserved.end()) free.push_back(v);
    const int n = static_cast<int>(reserved.size());
    std::vector<int> table;
    for (int i = 0; i < 256; i++) table.push_back(free[i * (256 - n) / 256]);
    return table;
}

/* ---------------------------------------------------------------- FN_APPENDNULLS */

struct AppendRow {
    const char *name;
    int window_cells, window_lines;
    int canvas_cells, canvas_lines;
    std::vector<std::vector<double>> lines;  // what the window gets, line by line
    std::vector<bool> child_runs;            // whether the line keeps the child's runs
};

TEST(NodesAppendNulls, StipplesTheWindowOutsideTheCanvas)
{
    // Null colour 1, stipple 9; the child's lines are all 5.
    const AppendRow rows[] = {
        {"short canvas",
         6,
         7,
         4,
         3,
         {{5, 5, 5, 5, kFill, kFill},
          {5, 5, 5, 5, kFill, kFill},
          {5, 5, 5, 5, kFill, kFill},
          {9, 1, 1, 1, 9, 1},
          {1, 1, 1, 1, 1, 1},
          {1, 1, 9, 1, 1, 1},
          {1, 1, 1, 1, 1, 1}},
         {true, true, true, false, false, false, false}},
        {"narrow canvas",
         7,
         5,
         4,
         5,
         {{5, 5, 5, 5, 9, 1, 1},
          {5, 5, 5, 5, 1, 1, 1},
          {5, 5, 5, 5, 1, 1, 9},
          {5, 5, 5, 5, 1, 1, 1},
          {5, 5, 5, 5, 9, 1, 1}},
         {true, true, true, true, true}},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        Harness h;
        algorithm alg{};
        alg.output_width = row.window_cells;
        alg.output_height = row.window_lines;
        alg.null_colour = 1;
        alg.stipple_colour = 9;
        h.pe->alg = &alg;
        h.pe->nr_cells = row.canvas_cells;
        h.pe->nr_lines = row.canvas_lines;
        Script script(Unsigned8BitInteger,
                      {{std::vector<double>(row.canvas_cells, 5), {{1, row.canvas_cells - 1}}}});
        funcnode *tree = node_test::make_source(h.pe, &script);
        setup_appendnulls_node(&tree, h.pe, PV_None, 0, Unsigned8BitInteger);
        h.build(tree, row.window_cells, PE_ALLOC_RECORDS);
        for (size_t k = 0; k < row.lines.size(); k++) {
            SCOPED_TRACE(k);
            Line line = h.read();
            EXPECT_EQ(line.values, row.lines[k]);
            const Runs child = {{1, row.canvas_cells - 1}};
            EXPECT_EQ(line.runs, row.child_runs[k] ? child : Runs{});
        }
        EXPECT_EQ(script.reads, row.canvas_lines);
    }
}

TEST(NodesAppendNulls, PixelsOfTheBackgroundAndStippleColoursAt32Bits)
{
    struct {
        int red, green, blue;  // the handle's shifts; -1: no handle
        double null_pixel, stipple_pixel;
    } rows[] = {
        {-1, 0, 0, 0x010203, 0xC86432},
        {0, 8, 16, 0x030201, 0x3264C8},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.red);
        Harness h;
        Vds vds{};
        vds.red_shift = row.red;
        vds.green_shift = row.green;
        vds.blue_shift = row.blue;
        if (row.red >= 0) h.pe->vds = &vds;
        algorithm alg{};
        alg.output_width = 6;
        alg.output_height = 1;
        alg.background_colour[0] = 1, alg.background_colour[1] = 2, alg.background_colour[2] = 3;
        alg.stipple_colour24[0] = 200, alg.stipple_colour24[1] = 100, alg.stipple_colour24[2] = 50;
        h.pe->alg = &alg;
        h.pe->nr_cells = 1;
        h.pe->nr_lines = 1;
        Script script(Unsigned32BitInteger, {{{7}, {{0, 0}}}});
        funcnode *tree = node_test::make_source(h.pe, &script);
        setup_appendnulls_node(&tree, h.pe, PV_None, 0, Unsigned32BitInteger);
        h.build(tree, 6, PE_ALLOC_RECORDS);
        const double n = row.null_pixel, s = row.stipple_pixel;
        EXPECT_EQ(h.read().values, (std::vector<double>{7, s, n, n, n, s}));
    }
}

TEST(NodesAppendNulls, CanvasAsLargeAsTheWindowMakesNoNode)
{
    Harness h;
    algorithm alg{};
    alg.output_width = 8;
    alg.output_height = 4;
    h.pe->alg = &alg;
    h.pe->nr_cells = 8;
    h.pe->nr_lines = 4;
    Script script;
    funcnode *source = node_test::make_source(h.pe, &script);
    funcnode *tree = source;
    setup_appendnulls_node(&tree, h.pe, PV_None, 0, Unsigned8BitInteger);
    EXPECT_EQ(tree, source);
}

/* ---------------------------------------------------------------- FN_RESCOLOUR */

TEST(NodesResColour, MapsTheRunsOntoTheFreeIndices)
{
    const std::vector<std::vector<uint8_t>> reserved_sets = {{0, 1, 255}, {5}, {128, 7, 9}};
    for (const auto &reserved : reserved_sets) {
        SCOPED_TRACE(reserved.size());
        Harness h;
        algorithm alg{};
        std::vector<uint8_t> list = reserved;
        alg.reserved_colours = static_cast<int>(list.size());
        alg.reserved_colours8 = list.data();
        h.pe->alg = &alg;
        std::vector<double> values;
        for (int v = 0; v < 256; v++) values.push_back(v);
        Script script(Unsigned8BitInteger, {{values, {{0, 9}, {11, 255}}}});
        funcnode *tree = node_test::make_source(h.pe, &script);
        setup_rcnode(&tree, h.pe, 256);
        h.build(tree, 256, PE_ALLOC_RECORDS);
        Line line = h.read();
        const std::vector<int> table = free_index_table(reserved);
        for (int v = 0; v < 256; v++) {
            // Cell 10 is outside the runs and keeps its value.
            const double want = v == 10 ? 10 : table[v];
            ASSERT_EQ(line.values[v], want) << "value " << v;
            if (v != 10) {
                ASSERT_EQ(std::count(reserved.begin(), reserved.end(), line.values[v]), 0);
            }
        }
    }
}

/* ---------------------------------------------------------------- FN_OPTIM */

struct OptimRow {
    const char *name;
    std::vector<uint8_t> reserved;
    int has_null;
    double null_value;
    int color_mode;
    int null_entry;  // what the null value maps to; -1: the table's own entry
};

TEST(NodesOptim, OneTableOfReservationAndNullColour)
{
    const OptimRow rows[] = {
        {"identity", {}, 0, 0, CM_PSEUDO, -1},
        {"reserved, no null", {0, 1, 255}, 0, 0, CM_PSEUDO, -1},
        {"null to the null colour", {0, 1, 255}, 1, 3, CM_PSEUDO, 7},
        {"null to 0 outside pseudocolour", {0, 1, 255}, 1, 3, CM_RGB, 0},
        {"null value no byte can hold", {}, 1, 300, CM_PSEUDO, -1},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        Harness h;
        algorithm alg{};
        std::vector<uint8_t> list = row.reserved;
        alg.reserved_colours = static_cast<int>(list.size());
        alg.reserved_colours8 = list.empty() ? nullptr : list.data();
        alg.null_colour = 7;
        h.pe->alg = &alg;
        surface surf{};
        surf.color_mode = row.color_mode;
        dshdr dsh{};
        dsh.info.r.has_null = row.has_null;
        dsh.info.r.null_value = row.null_value;
        dsinput dsi{};
        dsi.dsh = &dsh;
        dsi.null_value = row.null_value;
        pe_stream ps{};
        ps.surface = &surf;
        ps.dsinput = &dsi;
        ps.proc_cells = 256;

        std::vector<double> values;
        for (int v = 0; v < 256; v++) values.push_back(v);
        Script script(Unsigned8BitInteger, {{values, {{0, 127}}}});
        funcnode *tree = node_test::make_source(h.pe, &script);
        setup_optim_node(&tree, h.pe, &ps);
        h.build(tree, 256, PE_ALLOC_RECORDS);
        EXPECT_EQ(h.top()->cell_type, Unsigned8BitInteger);
        Line line = h.read();
        const std::vector<int> table = free_index_table(row.reserved);
        for (int v = 0; v < 256; v++) {
            // The whole line is mapped, not only its runs.
            double want = table[v];
            if (v == static_cast<int>(row.null_value) && row.null_entry >= 0) want = row.null_entry;
            ASSERT_EQ(line.values[v], want) << "value " << v;
        }
        EXPECT_EQ(line.runs, (Runs{{0, 127}}));
    }
}

}  // namespace
