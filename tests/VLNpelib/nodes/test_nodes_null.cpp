// The null-cell, conversion and synchronising node kinds, each over a
// scripted source: what lands in the parent's line, which runs come with it,
// how often the child is pulled, and that reads stop allocating.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "capture.h"
#include "node_harness.h"

namespace {

using node_test::Harness;
using node_test::Line;
using node_test::Runs;
using node_test::Script;

constexpr double kFill = 0xEE;  // a byte of the probe's own line, as an 8-bit cell

std::vector<double> iota_values(int n, double from = 0)
{
    std::vector<double> v;
    for (int i = 0; i < n; i++) v.push_back(from + i);
    return v;
}

/* ---------------------------------------------------------------- FN_ADDNULL */

struct AddNullRow {
    int offset;
    std::vector<double> cells;
    Runs runs;
};

TEST(NodesAddNull, ChildLineLandsAtTheOffsetWithItsRuns)
{
    const AddNullRow rows[] = {
        {0, {1, 2, 3, 4, kFill, kFill, kFill, kFill}, {{0, 1}, {3, 3}}},
        {2, {kFill, kFill, 1, 2, 3, 4, kFill, kFill}, {{2, 3}, {5, 5}}},
        {4, {kFill, kFill, kFill, kFill, 1, 2, 3, 4}, {{4, 5}, {7, 7}}},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.offset);
        Harness h;
        Script script{Unsigned8BitInteger, {{{1, 2, 3, 4}, {{0, 1}, {3, 3}}}}};
        funcnode *tree = node_test::make_source(h.pe, &script);
        setup_addnull_node(&tree, h.pe, 4, row.offset);
        h.build(tree, 8, PE_ALLOC_RECORDS);
        Line line = h.read();
        EXPECT_EQ(line.values, row.cells);
        EXPECT_EQ(line.runs, row.runs);
    }
}

/* ---------------------------------------------------------------- FN_NULLCELL */

struct NullCellRow {
    int shift;
    Runs in_runs;
    std::vector<double> cells;
    Runs runs;
};

TEST(NodesNullCell, MovesCellsAndRunsWithinTheLine)
{
    const NullCellRow rows[] = {
        // Cell 0 keeps what the child wrote there, and no run reaches it.
        {1, {{0, 2}, {4, 5}}, {10, 10, 11, 12, 13, 14}, {{1, 3}, {5, 5}}},
        {-1, {{0, 2}, {4, 5}}, {11, 12, 13, 14, 15, 15}, {{0, 1}, {3, 4}}},
        // A run moved wholly off the line goes.
        {2, {{0, 0}, {5, 5}}, {10, 11, 10, 11, 12, 13}, {{2, 2}}},
        {-2, {{0, 1}, {4, 5}}, {12, 13, 14, 15, 14, 15}, {{2, 3}}},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.shift);
        Harness h;
        Script script{Unsigned8BitInteger, {{iota_values(6, 10), row.in_runs}}};
        funcnode *tree = node_test::make_source(h.pe, &script);
        setup_nullcell_node(&tree, h.pe, 6, row.shift);
        ASSERT_EQ(tree->type, FN_NULLCELL);
        h.build(tree, 6, PE_ALLOC_RECORDS);
        Line line = h.read();
        EXPECT_EQ(line.values, row.cells);
        EXPECT_EQ(line.runs, row.runs);
    }
}

TEST(NodesNullCell, ShiftOfZeroMakesNoNode)
{
    Harness h;
    Script script;
    funcnode *source = node_test::make_source(h.pe, &script);
    funcnode *tree = source;
    setup_nullcell_node(&tree, h.pe, 6, 0);
    EXPECT_EQ(tree, source);
}

/* ---------------------------------------------------------------- FN_CLIP */

TEST(NodesClip, CutsRunsToTheKeptWindow)
{
    // Lines of 10 cells lose 2 on the left and 3 on the right: input cells 2
    // to 6 become output cells 0 to 4.
    const std::pair<Runs, Runs> cases[] = {
        {{{0, 1}}, {}}, {{{0, 3}}, {{0, 1}}}, {{{3, 4}, {6, 9}}, {{1, 2}, {4, 4}}},
        {{{7, 9}}, {}}, {{{0, 9}}, {{0, 4}}}, {{{2, 2}, {6, 6}}, {{0, 0}, {4, 4}}},
        {{}, {}},
    };
    Harness h;
    Script script;
    for (const auto &c : cases) script.lines.push_back({iota_values(10), c.first});
    funcnode *tree = node_test::make_source(h.pe, &script);
    setup_clipnode(&tree, h.pe, 10, 2, 3);
    h.build(tree, 5, PE_ALLOC_RECORDS);
    for (size_t k = 0; k < std::size(cases); k++) {
        SCOPED_TRACE(k);
        Line line = h.read();
        EXPECT_EQ(line.values, (std::vector<double>{2, 3, 4, 5, 6}));
        EXPECT_EQ(line.runs, cases[k].second);
    }
    EXPECT_EQ(h.pe->rlsegs.nr_used, 0);
}

/* ---------------------------------------------------------------- FN_NULLLINE */

TEST(NodesNullLine, PadsTopAndBottomWithoutPullingTheChild)
{
    Harness h;
    Script script;
    for (int k = 0; k < 3; k++) script.lines.push_back({{k + 1.0, k + 1.0}, {{0, 1}}});
    funcnode *tree = node_test::make_source(h.pe, &script);
    setup_nullline_node(&tree, h.pe, 2, 6, 2, 1);
    h.build(tree, 2, PE_ALLOC_RECORDS);

    const std::vector<double> expected_first = {0, 0, 1, 2, 3, 0};
    const std::vector<int> expected_reads = {0, 0, 1, 2, 3, 3};
    for (int k = 0; k < 6; k++) {
        SCOPED_TRACE(k);
        Line line = h.read();
        EXPECT_EQ(line.values[0], expected_first[k]);
        EXPECT_EQ(line.runs.empty(), expected_first[k] == 0);
        EXPECT_EQ(script.reads, expected_reads[k]);
    }
}

/* ---------------------------------------------------------------- FN_GENNULLS */

TEST(NodesGenNulls, LinesOfTheNullValueWithNoRuns)
{
    const std::pair<int, double> rows[] = {{Unsigned8BitInteger, 7}, {IEEE4ByteReal, -1.5}};
    for (auto [type, value] : rows) {
        SCOPED_TRACE(type);
        Harness h;
        funcnode *tree = nullptr;
        setup_gennulls_node(&tree, h.pe, type, value);
        ASSERT_EQ(tree->nr_inputs, 0);
        h.build(tree, 5, PE_ALLOC_RECORDS);
        EXPECT_EQ(tree->inputs, nullptr);
        EXPECT_EQ(h.top()->cell_type, type);
        for (int k = 0; k < 2; k++) {
            Line line = h.read();
            EXPECT_EQ(line.values, std::vector<double>(5, value));
            EXPECT_TRUE(line.runs.empty());
        }
    }
}

/* ---------------------------------------------------------------- FN_SYNC */

TEST(NodesSync, FirstReadSkipsCountLinesThenOneLinePerRead)
{
    Harness h;
    Script script;
    for (int k = 0; k < 6; k++) script.lines.push_back({{double(k)}, {{0, 0}}});
    funcnode *tree = node_test::make_source(h.pe, &script);
    setup_syncnode(&tree, h.pe, 1, 2);
    h.build(tree, 1, PE_ALLOC_RECORDS);

    for (int k = 0; k < 4; k++) {
        SCOPED_TRACE(k);
        Line line = h.read();
        EXPECT_EQ(script.reads, k + 3);
        EXPECT_EQ(line.values[0], k + 2);
        EXPECT_EQ(line.runs, (Runs{{0, 0}}));
        // The skipped lines' runs went back to the pool.
        EXPECT_EQ(h.pe->rlsegs.nr_used, 0);
    }
}

TEST(NodesSync, CountOfZeroMakesNoNode)
{
    Harness h;
    Script script;
    funcnode *source = node_test::make_source(h.pe, &script);
    funcnode *tree = source;
    setup_syncnode(&tree, h.pe, 4, 0);
    EXPECT_EQ(tree, source);
}

/* ---------------------------------------------------------------- FN_SSYNC */

struct SSyncRow {
    const char *name;
    int cell_type;
    int image_cells;
    int stream_cells;
    int first_line;
    int nr_lines;
    int first_cell;
    double null_value;
    bool below_merge;
    bool null_conversion = false;  // FN_NULLCONV below, which writes its whole line
};

TEST(NodesSSync, PlacesTheStreamAndFillsTheRestWithNulls)
{
    const SSyncRow rows[] = {
        {"exactly one block", Unsigned8BitInteger, 512, 100, 1, 2, 400, 3, false},
        {"two blocks and a remainder", Unsigned16BitInteger, 1030, 10, 2, 3, 1020, 300, false},
        {"shorter than a block", Unsigned8BitInteger, 5, 3, 0, 2, 2, 9, false},
        {"one-line stream", Unsigned8BitInteger, 7, 2, 1, 1, 0, 4, false},
        {"below a merge", Unsigned8BitInteger, 20, 5, 1, 2, 7, 9, true},
        {"over a null conversion", Unsigned16BitInteger, 1100, 530, 1, 2, 300, 7, false, true},
        {"null conversion at the start", Unsigned8BitInteger, 9, 4, 0, 1, 0, 5, false, true},
        {"null conversion at the end", Unsigned8BitInteger, 9, 4, 0, 1, 5, 5, false, true},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        Harness h;
        Script script{row.cell_type, {}};
        for (int k = 0; k < row.nr_lines; k++) {
            std::vector<double> v;
            for (int i = 0; i < row.stream_cells; i++) v.push_back(k * 10 + i % 7 + 20);
            script.lines.push_back({v, {{0, 0}, {row.stream_cells - 1, row.stream_cells - 1}}});
        }
        funcnode *tree = node_test::make_source(h.pe, &script);
        if (row.null_conversion)
            setup_nconvnode(&tree, h.pe, nullptr, row.stream_cells, row.null_value);
        else
            setup_clipnode(&tree, h.pe, row.stream_cells, 0, 0);  // a level 3 line below
        funcnode *clip = tree;
        setup_ssync_node(&tree, h.pe, nullptr, row.stream_cells, row.first_line, row.nr_lines,
                         row.first_cell, row.null_value);
        funcnode *ssync = tree;
        h.build(tree, row.image_cells, PE_ALLOC_RECORDS,
                row.below_merge ? FN_MERGESTREAMS : FN_CCOUNT);
        const int64_t bytes_before = h.pe->pool_bytes;

        // Below a merge the line keeps what it held: at first the probe's fill.
        std::vector<double> held(row.image_cells,
                                 row.cell_type == Unsigned8BitInteger ? kFill : 0xEEEE);
        const int end = row.first_line + row.nr_lines;
        for (int k = 0; k < end + 2; k++) {
            SCOPED_TRACE(k);
            if (k == row.first_line || k >= end) {
                // Outside the rows the stream holds no line memory.
                EXPECT_EQ(clip->inputs[0].buffers->buffers, nullptr);
                EXPECT_EQ(ssync->inputs[0].buffers->buffers, nullptr);
            }
            const int reads_before = script.reads;
            Line line = h.read();
            const bool in_rows = k >= row.first_line && k < end;
            EXPECT_EQ(script.reads, reads_before + (in_rows ? 1 : 0));
            for (int i = 0; i < row.image_cells; i++) {
                const int s = i - row.first_cell;
                double want = row.below_merge ? held[i] : row.null_value;
                const bool in_run = s == 0 || s == row.stream_cells - 1;
                if (in_rows && s >= 0 && s < row.stream_cells && (in_run || !row.null_conversion))
                    want = (k - row.first_line) * 10 + s % 7 + 20;
                ASSERT_EQ(line.values[i], want) << "cell " << i;
            }
            held = line.values;
            const int last = row.first_cell + row.stream_cells - 1;
            const Runs placed = {{row.first_cell, row.first_cell}, {last, last}};
            EXPECT_EQ(line.runs, in_rows ? placed : Runs{});
            if (k >= end - 1) {
                EXPECT_EQ(h.pe->pool_bytes, bytes_before);
            }
        }
        EXPECT_EQ(script.reads, row.nr_lines);
        EXPECT_EQ(h.pe->rlsegs.nr_used, 0);
    }
}

/* ---------------------------------------------------------------- FN_TCONV */

TEST(NodesTConv, ToItsInputsTypeLeavesTheTreeInInit)
{
    Harness h;
    Script script{Unsigned16BitInteger, {{{5, 6, 7}, {{0, 2}}}}};
    funcnode *source = node_test::make_source(h.pe, &script);
    funcnode *tree = source;
    setup_tconvnode(&tree, h.pe, 3, Unsigned16BitInteger);
    {
        StreamCapture err(StreamCapture::Err);
        dump_functree(tree);
        EXPECT_NE(err.text().find("FN_TCONV"), std::string::npos);
    }
    h.build(tree, 3, PE_ALLOC_RECORDS);
    EXPECT_EQ(h.child(), source);
    EXPECT_EQ(source->parent, h.root);
    EXPECT_EQ(source->output, h.top());
    EXPECT_EQ(h.top()->cell_type, Unsigned16BitInteger);
    {
        StreamCapture err(StreamCapture::Err);
        dump_functree(h.root);
        EXPECT_EQ(err.text().find("FN_TCONV"), std::string::npos);
    }
    Line line = h.read();
    EXPECT_EQ(line.values, (std::vector<double>{5, 6, 7}));
    // The child wrote straight into the probe's line.
    EXPECT_EQ(script.targets[0], h.target.data());
}

struct TConvRow {
    int from, to;
    std::vector<double> in;
    std::vector<double> out;  // the run's cells
};

TEST(NodesTConv, ConvertsTheCellsOfTheRuns)
{
    const TConvRow rows[] = {
        {Unsigned8BitInteger, IEEE4ByteReal, {1, 2, 3}, {1, 2, 3}},
        {IEEE8ByteReal, Unsigned8BitInteger, {1.5, -3, 300, 2.49}, {2, 0, 255, 2}},
        {IEEE8ByteReal, Signed16BitInteger, {-1.5, 40000}, {-2, 32767}},
        {Signed32BitInteger, IEEE8ByteReal, {-7, 123456}, {-7, 123456}},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.to);
        Harness h;
        const int n = static_cast<int>(row.in.size());
        Script script{row.from, {{row.in, {{0, n - 1}}}}};
        funcnode *tree = node_test::make_source(h.pe, &script);
        setup_tconvnode(&tree, h.pe, n, row.to);
        h.build(tree, n, PE_ALLOC_RECORDS);
        ASSERT_EQ(h.child()->type, FN_TCONV);
        EXPECT_EQ(h.top()->cell_type, row.to);
        Line line = h.read();
        EXPECT_EQ(line.values, row.out);
        EXPECT_EQ(line.runs, (Runs{{0, n - 1}}));
    }
}

/* ---------------------------------------------------------------- FN_NULLCONV */

TEST(NodesNullConv, WritesTheNullIntoEveryCellOutsideTheRuns)
{
    const std::pair<int, double> rows[] = {
        {Unsigned8BitInteger, 5}, {Signed16BitInteger, -7}, {Unsigned32BitInteger, 4e9},
        {IEEE4ByteReal, 2.5},     {IEEE8ByteReal, -1e300},
    };
    for (auto [type, null_value] : rows) {
        SCOPED_TRACE(type);
        Harness h;
        Script script{type, {{{1, 2, 3, 4, 5, 6}, {{1, 2}, {4, 4}}}}};
        funcnode *tree = node_test::make_source(h.pe, &script);
        setup_nconvnode(&tree, h.pe, nullptr, 6, null_value);
        h.build(tree, 6, PE_ALLOC_RECORDS);
        Line line = h.read();
        EXPECT_EQ(line.values, (std::vector<double>{null_value, 2, 3, null_value, 5, null_value}));
        EXPECT_EQ(line.runs, (Runs{{1, 2}, {4, 4}}));
    }
}

/* ---------------------------------------------------------------- FN_ADJUSTRLSEG */

TEST(NodesAdjustRlseg, CellsNotAboveTheLimitEndRuns)
{
    Harness h;
    Script script{IEEE8ByteReal,
                  {
                      {{1, 0.2, 3, 4, 0.5, 6, 7, 0}, {{0, 5}, {7, 7}}},
                      {{0, 1, 1, 1, 0, 1, 1, 1}, {{1, 3}, {5, 7}}},
                      {{0.5, 0.5, 0.5, 0.5, 0.5, 0.5, 0.5, 0.5}, {{0, 7}}},
                  }};
    funcnode *tree = node_test::make_source(h.pe, &script);
    setup_adjustrlsegnode(&tree, h.pe, 8, 2, 0.5);
    h.build(tree, 8, PE_ALLOC_RECORDS);
    const Runs expected[] = {{{0, 0}, {2, 3}, {5, 5}}, {{1, 3}, {5, 7}}, {}};
    for (const auto &runs : expected) {
        Line line = h.read();
        EXPECT_EQ(line.runs, runs);
    }
    EXPECT_EQ(h.pe->rlsegs.nr_used, 0);
}

/* ---------------------------------------------------------------- steady state */

struct SteadyRow {
    const char *name;
    int cell_type;
    int out_cells;
    std::function<void(funcnode **, pe_context *)> stage;
};

TEST(NodesSteadyState, ReadsAllocateNothingOnceRunning)
{
    const SteadyRow rows[] = {
        {"addnull", Unsigned8BitInteger, 10,
         [](funcnode **s, pe_context *pe) { setup_addnull_node(s, pe, 8, 1); }},
        {"nullcell", Unsigned8BitInteger, 8,
         [](funcnode **s, pe_context *pe) { setup_nullcell_node(s, pe, 8, -1); }},
        {"clip", Unsigned8BitInteger, 5,
         [](funcnode **s, pe_context *pe) { setup_clipnode(s, pe, 8, 1, 2); }},
        {"nullline", Unsigned8BitInteger, 8,
         [](funcnode **s, pe_context *pe) { setup_nullline_node(s, pe, 8, 20, 1, 1); }},
        {"sync", Unsigned8BitInteger, 8,
         [](funcnode **s, pe_context *pe) { setup_syncnode(s, pe, 8, 3); }},
        {"ssync", Unsigned8BitInteger, 12,
         [](funcnode **s, pe_context *pe) { setup_ssync_node(s, pe, nullptr, 8, 0, 20, 2, 0); }},
        {"tconv", Unsigned8BitInteger, 8,
         [](funcnode **s, pe_context *pe) { setup_tconvnode(s, pe, 8, IEEE8ByteReal); }},
        {"nullconv", Unsigned8BitInteger, 8,
         [](funcnode **s, pe_context *pe) { setup_nconvnode(s, pe, nullptr, 8, 1); }},
        {"adjustrlseg", IEEE8ByteReal, 8,
         [](funcnode **s, pe_context *pe) { setup_adjustrlsegnode(s, pe, 8, 2, 2.5); }},
        {"appendnulls, short canvas", Unsigned8BitInteger, 10,
         [](funcnode **s, pe_context *pe) {
             pe->nr_cells = 8, pe->nr_lines = 2;
             setup_appendnulls_node(s, pe, PV_None, 0, Unsigned8BitInteger);
         }},
        {"appendnulls, narrow canvas", Unsigned8BitInteger, 10,
         [](funcnode **s, pe_context *pe) {
             pe->nr_cells = 8, pe->nr_lines = 100;
             setup_appendnulls_node(s, pe, PV_None, 0, Unsigned8BitInteger);
         }},
        {"rescolour", Unsigned8BitInteger, 8,
         [](funcnode **s, pe_context *pe) { setup_rcnode(s, pe, 8); }},
        {"gennulls", Unsigned8BitInteger, 8,
         [](funcnode **s, pe_context *pe) {
             *s = nullptr;
             setup_gennulls_node(s, pe, Unsigned8BitInteger, 0);
         }},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        Harness h;
        uint8_t reserved[] = {0, 3};
        algorithm alg{};
        alg.output_width = row.out_cells;
        alg.output_height = 100;
        alg.reserved_colours = 2;
        alg.reserved_colours8 = reserved;
        h.pe->alg = &alg;
        Script script{row.cell_type, {{iota_values(8), {{0, 2}, {4, 7}}}}};
        funcnode *tree = node_test::make_source(h.pe, &script);
        row.stage(&tree, h.pe);
        h.build(tree, row.out_cells, PE_ALLOC_RECORDS);
        for (int k = 0; k < 3; k++) h.read();
        const int64_t allocations = h.pe->pool_allocations;
        const int32_t runs_allocated = h.pe->rlsegs.nr_allocated;
        for (int k = 0; k < 10; k++) h.read();
        EXPECT_EQ(h.pe->pool_allocations, allocations);
        EXPECT_EQ(h.pe->rlsegs.nr_allocated, runs_allocated);
        EXPECT_EQ(h.pe->rlsegs.nr_used, 0);
    }
}

}  // namespace
