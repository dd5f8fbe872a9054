// Nearest-neighbour resampling: the sampling rule, run lists under reduction,
// the reductions and enlargements in cells and in lines, and reads that stop
// allocating once running.
#include <cmath>
#include <cstring>
#include <functional>
#include <string>

#include "resample_fixture.h"

using namespace resample_test;

namespace {

struct SampleRow {
    int count;
    double source_span, destination_span, start;
    std::vector<int> expected;
};

TEST(ResampleSampleArray, EntriesAreTruncatedAccumulatedPositions)
{
    const SampleRow rows[] = {
        {5, 7, 7, 2.0, {2, 3, 4, 5, 6}},   // equal spans: identity plus start
        {4, 3, 3, 0.75, {0, 1, 2, 3}},     // ... truncated
        {4, 2, 4, 0.0, {0, 0, 1, 1}},      // enlargement
        {5, 10, 5, 0.5, {0, 2, 4, 6, 8}},  // reduction
        {3, 6, 4, 0.25, {0, 1, 3}},        // 0.25, 1.75, 3.25
        // 0.1 added ten times stays below 1: the positions are accumulated,
        // not multiplied.
        {11, 1, 10, 0.0, {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
    };
    for (const SampleRow &row : rows) {
        std::vector<int> array(static_cast<size_t>(row.count), -1);
        setup_sample_array(array.data(), row.count, row.source_span, row.destination_span,
                           row.start);
        EXPECT_EQ(array, row.expected) << row.source_span << "/" << row.destination_span;
    }
}

struct LutRow {
    std::vector<int> samples;
    int source_width;
    std::vector<int> start, end;
};

TEST(ResampleRuns, TablesGiveEachSourceCellItsDestinations)
{
    const LutRow rows[] = {
        // Every other cell sampled: an unsampled cell starts at the next
        // destination and ends at the previous one.
        {{0, 2, 4, 6, 8}, 10, {0, 1, 1, 2, 2, 3, 3, 4, 4, 5}, {0, 0, 1, 1, 2, 2, 3, 3, 4, 4}},
        // Several destinations on one cell: the last one stands.
        {{0, 0, 1, 1}, 2, {1, 3}, {1, 3}},
        // Nothing sampled to the left: the end is 0.
        {{1, 3}, 5, {0, 0, 1, 1, 2}, {0, 0, 0, 1, 1}},
    };
    for (const LutRow &row : rows) {
        const size_t n = static_cast<size_t>(row.source_width);
        std::vector<int> start(n), end(n);
        setup_subs_lseg_luts(start.data(), end.data(), row.samples.data(), row.source_width,
                             static_cast<int>(row.samples.size()));
        EXPECT_EQ(start, row.start);
        EXPECT_EQ(end, row.end);
    }
}

// ---------------------------------------------------------------- FN_SUBSAMPLE

struct SubsampleRow {
    int cell_type;
    int in_cells, out_cells;
};

TEST(ResampleSubsample, CopiesCellRintOfItsPositionWithinRuns)
{
    const SubsampleRow rows[] = {
        {Unsigned8BitInteger, 10, 4},  // step 2.5: rint of 2.5 and 7.5 rounds to even
        {Signed16BitInteger, 10, 4},  {IEEE4ByteReal, 7, 3},
        {IEEE8ByteReal, 16, 5},       {Unsigned32BitInteger, 9, 9},
    };
    for (const SubsampleRow &row : rows) {
        SCOPED_TRACE(row.cell_type);
        const int w = row.in_cells;
        const Runs run_sets[] = {{{0, w - 1}}, {{1, 2}, {4, 4}, {w - 1, w - 1}}, {}};
        dsinput dsi{};
        dsi.nr_read_bands = 2;
        dsi.nr_cells = w;
        dsi.read_cells = row.out_cells;
        dsi.cell_type = row.cell_type;
        dsi.sub_step_x = static_cast<double>(w) / row.out_cells;
        SourceLine line;
        for (int i = 0; i < w; i++) line.cells.push_back(3 * i + 1);
        Tree t;
        t.add_source(0, {line});
        ASSERT_TRUE(
            t.build([&](funcnode **slot, pe_context *pe) { setup_subsamplenode(slot, pe, &dsi); }));
        ASSERT_TRUE(t.finish(2, row.out_cells));
        const long double step = static_cast<long double>(w) / row.out_cells;
        for (const Runs &runs : run_sets) {
            t.lines[0].runs = runs;
            for (int b = 0; b < 2; b++) t.fill(99, b);
            ASSERT_EQ(t.read(), 0) << t.pe->error_text;
            std::vector<bool> valid;
            for (int i = 0; i < row.out_cells; i++)
                valid.push_back(in_runs(runs, static_cast<long long>(i * step)));
            for (int b = 0; b < 2; b++) {
                for (int i = 0; i < row.out_cells; i++) {
                    // Only the runs' cells are written.
                    long long from = std::min<long long>(std::llrint(i * step), w - 1);
                    EXPECT_EQ(t.cell(i, b), valid[static_cast<size_t>(i)] ? 3.0 * from + 1 : 99)
                        << "band " << b << ", cell " << i;
                }
                EXPECT_EQ(t.take_runs(b), runs_where(valid));
            }
        }
        EXPECT_EQ(t.pe->rlsegs.nr_used, 0);
    }
}

TEST(ResampleSubsample, AnUnknownCellSizeFailsTheRead)
{
    dsinput dsi{};
    dsi.nr_read_bands = 1;
    dsi.nr_cells = 8;
    dsi.read_cells = 4;
    dsi.cell_type = CT_Unknown;
    dsi.sub_step_x = 2.0;
    Tree t;
    t.add_source(0, {{{}, {{0, 7}}}});
    ASSERT_TRUE(
        t.build([&](funcnode **slot, pe_context *pe) { setup_subsamplenode(slot, pe, &dsi); }));
    ASSERT_TRUE(t.finish(1, 4));
    ASSERT_EQ(t.read(), 1);
    const std::string text = t.pe->error_text;
    EXPECT_EQ(text.rfind("Internal PE error: File = ", 0), 0u) << text;
    EXPECT_NE(text.find("vln_node_subsample.cpp, Line = "), std::string::npos) << text;
    EXPECT_EQ(text.substr(text.size() - 15), ", Bad cell size") << text;
}

// ---------------------------------------------------------------- FN_SUBSAMPLE2

TEST(ResampleSubsample2, CopiesEveryCellAndKeepsValidityOfItsSource)
{
    struct Row {
        int cell_type, source_cells, view_cells;
        Runs runs;
    };
    const Row rows[] = {
        // Samples 0, 2, 5, 7: runs 1 and 9 hold no sampled cell and vanish;
        // runs 0 and 2-3 come out touching, as one run.
        {Unsigned8BitInteger, 10, 4, {{1, 1}, {3, 5}, {9, 9}}},
        {Unsigned8BitInteger, 10, 4, {{0, 0}, {2, 3}, {7, 7}}},
        {IEEE8ByteReal, 9, 4, {{1, 4}, {6, 8}}},
        {Signed16BitInteger, 12, 3, {}},
        {IEEE4ByteReal, 6, 6, {{2, 3}}},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.source_cells);
        SourceLine line{{}, row.runs};
        for (int i = 0; i < row.source_cells; i++) line.cells.push_back(5 * i + 2);
        Tree t;
        t.add_source(row.cell_type, {line});
        ASSERT_TRUE(t.build([&](funcnode **slot, pe_context *pe) {
            setup_subsamplenode2(slot, pe, row.source_cells, row.view_cells);
        }));
        ASSERT_TRUE(t.finish(1, row.view_cells));
        ASSERT_EQ(t.cell_type(), row.cell_type);
        for (int n = 0; n < 2; n++) {
            ASSERT_EQ(t.read(), 0) << t.pe->error_text;
            const long double step = static_cast<long double>(row.source_cells) / row.view_cells;
            std::vector<bool> valid;
            for (int d = 0; d < row.view_cells; d++) {
                auto s = static_cast<long long>(d * step);
                valid.push_back(in_runs(row.runs, s));
                EXPECT_EQ(t.cell(d), 5.0 * s + 2) << "cell " << d;
            }
            EXPECT_EQ(t.take_runs(), runs_where(valid));
        }
        EXPECT_EQ(t.pe->rlsegs.nr_used, 0);
    }
}

// ---------------------------------------------------------------- FN_SUPERSAMPLE

TEST(ResampleSupersample, DestinationsTakeTheSourceCellOfTheirPosition)
{
    struct Row {
        int cell_type, source_width, view_width;
        double source_span, view_span, start;
        Runs runs;
    };
    const Row rows[] = {
        {Unsigned8BitInteger, 4, 8, 4, 8, 0.25, {{0, 3}}},
        {Unsigned16BitInteger, 4, 8, 4, 8, 0.25, {{0, 0}, {2, 3}}},
        {IEEE8ByteReal, 3, 12, 3, 12, 0.5, {{1, 1}}},
        {Signed32BitInteger, 5, 5, 5, 5, 0.0, {{0, 1}, {3, 4}}},  // equal spans
        // The view takes the source cells from 1 on: cell 0 has no
        // destination, and its run vanishes.
        {IEEE4ByteReal, 6, 10, 5, 10, 1.0, {{0, 0}, {2, 3}, {5, 5}}},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.source_width * 100 + row.view_width);
        SourceLine line{{}, row.runs};
        for (int i = 0; i < row.source_width; i++) line.cells.push_back(7 * i + 3);
        Tree t;
        t.add_source(row.cell_type, {line});
        ASSERT_TRUE(t.build([&](funcnode **slot, pe_context *pe) {
            setup_supersamplenode(slot, pe, row.source_width, row.view_width, row.source_span,
                                  row.view_span, row.start);
        }));
        ASSERT_TRUE(t.finish(1, row.view_width));
        t.fill(0);
        ASSERT_EQ(t.read(), 0) << t.pe->error_text;
        const long double step = static_cast<long double>(row.source_span) / row.view_span;
        std::vector<bool> valid;
        for (int d = 0; d < row.view_width; d++) {
            auto s = static_cast<long long>(row.start + d * step);
            bool inside = s < row.source_width && in_runs(row.runs, s);
            valid.push_back(inside);
            EXPECT_EQ(t.cell(d), inside ? 7.0 * s + 3 : 0.0) << "cell " << d;
        }
        EXPECT_EQ(t.take_runs(), runs_where(valid));
        EXPECT_EQ(t.pe->rlsegs.nr_used, 0);
    }
}

// ---------------------------------------------------------------- lines

// Source line k holds the value k in every cell, and runs that vary with k.
std::vector<SourceLine> numbered_lines(int count, int width)
{
    std::vector<SourceLine> lines;
    for (int k = 0; k < count; k++)
        lines.push_back({std::vector<double>(static_cast<size_t>(width), k), {{k % 3, width - 1}}});
    return lines;
}

TEST(ResampleLines, ReductionDeliversSourceLineTruncOfItsPosition)
{
    struct Row {
        int source_lines, view_lines;
        std::vector<int> expected;
    };
    const Row rows[] = {
        {10, 4, {0, 2, 5, 7}},
        {7, 3, {0, 2, 4}},
        {5, 5, {0, 1, 2, 3, 4}},
    };
    for (const Row &row : rows) {
        Tree t;
        t.add_source(Unsigned8BitInteger, numbered_lines(row.source_lines, 6));
        ASSERT_TRUE(t.build([&](funcnode **slot, pe_context *pe) {
            setup_lsubsnode(slot, pe, 6, row.source_lines, row.view_lines);
        }));
        ASSERT_TRUE(t.finish(1, 6));
        for (int n = 0; n < row.view_lines; n++) {
            ASSERT_EQ(t.read(), 0);
            const int k = row.expected[static_cast<size_t>(n)];
            EXPECT_EQ(t.cell(5), k) << "line " << n;
            EXPECT_EQ(t.take_runs(), (Runs{{k % 3, 5}})) << "line " << n;
            EXPECT_EQ(t.source->pulls, k + 1);
        }
        // The skipped lines' runs went back to the pool.
        EXPECT_EQ(t.pe->rlsegs.nr_used, 0);
    }
}

TEST(ResampleLines, EnlargementPullsOnlyWhereTheSourceLineChanges)
{
    struct Row {
        int view_lines;
        double source_span, view_span, start;
        std::vector<int> expected;
    };
    const Row rows[] = {
        {5, 2, 5, 0.0, {0, 0, 0, 1, 1}}, {6, 3, 6, 0.0, {0, 0, 1, 1, 2, 2}},
        {4, 4, 4, 0.0, {0, 1, 2, 3}},    {1, 1, 1, 0.0, {0}},  // one line: one pull
        {4, 2, 4, 0.5, {0, 1, 1, 2}},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.view_lines);
        Tree t;
        t.add_source(Signed16BitInteger, numbered_lines(4, 6));
        ASSERT_TRUE(t.build([&](funcnode **slot, pe_context *pe) {
            setup_lsupersnode(slot, pe, 6, row.view_lines, row.source_span, row.view_span,
                              row.start);
        }));
        ASSERT_TRUE(t.finish(1, 6));
        for (int n = 0; n < row.view_lines; n++) {
            t.fill(-9);
            ASSERT_EQ(t.read(), 0);
            const int k = row.expected[static_cast<size_t>(n)];
            EXPECT_EQ(t.source->pulls, k + 1) << "line " << n;
            // The runs' cells are copied, the others left alone.
            for (int i = 0; i < 6; i++) EXPECT_EQ(t.cell(i), i >= k % 3 ? k : -9) << n << "," << i;
            EXPECT_EQ(t.take_runs(), (Runs{{k % 3, 5}})) << "line " << n;
        }
        // Each pull retired the kept line's runs; one list is kept.
        EXPECT_EQ(t.pe->rlsegs.nr_used, 1);
    }
}

// ---------------------------------------------------------------- steady state

struct SteadyRow {
    const char *name;
    int cell_type, out_width;
    std::function<void(funcnode **, pe_context *)> build;
};

TEST(ResampleSteadyState, ReadsStopAllocatingOnceRunning)
{
    static dsinput dsi;
    static pe_stream ps;
    dsi = dsinput{};
    dsi.nr_read_bands = 1;
    dsi.nr_cells = 20;
    dsi.read_cells = 8;
    dsi.cell_type = IEEE4ByteReal;
    dsi.sub_step_x = 2.5;
    // 18 cells and 20 lines, each with its lead-in and lead-out, to 50 by 50.
    dsi.super_step_cells = 18;
    dsi.super_step_lines = 20;
    dsi.super_step_out_cells = dsi.out_nr_cells = 50;
    dsi.super_step_out_lines = dsi.out_nr_lines = 50;
    dsi.super_frac_x = dsi.super_frac_y = 0.3;
    ps = pe_stream{};
    ps.dsinput = &dsi;
    ps.zoom_cells = 20;
    ps.zoom_lines = 22;
    const SteadyRow rows[] = {
        {"FN_SUBSAMPLE", 0, 8,
         [](funcnode **s, pe_context *pe) { setup_subsamplenode(s, pe, &dsi); }},
        {"FN_SUBSAMPLE2", IEEE4ByteReal, 8,
         [](funcnode **s, pe_context *pe) { setup_subsamplenode2(s, pe, 20, 8); }},
        {"FN_SUPERSAMPLE", IEEE4ByteReal, 50,
         [](funcnode **s, pe_context *pe) { setup_supersamplenode(s, pe, 20, 50, 20, 50, 0.3); }},
        {"FN_LSUBSAMPLE", IEEE4ByteReal, 20,
         [](funcnode **s, pe_context *pe) { setup_lsubsnode(s, pe, 20, 100, 40); }},
        {"FN_LSUPERSAMPLE", IEEE4ByteReal, 20,
         [](funcnode **s, pe_context *pe) { setup_lsupersnode(s, pe, 20, 40, 16, 40, 0); }},
        {"FN_RLSEG", IEEE4ByteReal, 20,
         [](funcnode **s, pe_context *pe) { setup_rlsegnode(s, pe, 20, 1, 1, 0.0); }},
        {"bilinear", IEEE8ByteReal, 50,
         [](funcnode **s, pe_context *pe) {
             setup_bilinear_supersample_node(s, pe, &ps);
             setup_bilinear_line_supersample_node(s, pe, &ps);
         }},
        {"bilinear shade", Unsigned16BitInteger, 50,
         [](funcnode **s, pe_context *pe) {
             setup_bilinear_rts_supersample_node(s, pe, &ps);
             setup_bilinear_rts_line_supersample_node(s, pe, &ps);
         }},
    };
    std::vector<SourceLine> lines;
    for (int k = 0; k < 5; k++) {
        SourceLine line;
        for (int i = 0; i < 20; i++) line.cells.push_back((i + k) % 4 == 0 ? 0.0 : i);
        line.runs = k % 2 ? Runs{{0, 3}, {6, 9}, {12, 19}} : Runs{{k, 17 - k}};
        lines.push_back(line);
    }
    for (const SteadyRow &row : rows) {
        SCOPED_TRACE(row.name);
        Tree t;
        t.add_source(row.cell_type, lines);
        ASSERT_TRUE(t.build(row.build));
        ASSERT_TRUE(t.finish(1, row.out_width));
        for (int n = 0; n < 6; n++) {
            ASSERT_EQ(t.read(), 0) << t.pe->error_text;
            t.take_runs();
        }
        const int64_t pool = t.pe->pool_allocations;
        const int32_t runs = t.pe->rlsegs.nr_allocated;
        for (int n = 0; n < 30; n++) {
            ASSERT_EQ(t.read(), 0) << t.pe->error_text;
            t.take_runs();
        }
        EXPECT_EQ(t.pe->pool_allocations, pool);
        EXPECT_EQ(t.pe->rlsegs.nr_allocated, runs);
    }
}

}  // namespace
