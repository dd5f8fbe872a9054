// Bilinear enlargement across cells and across lines, on doubles, on hue
// values and on 16-bit real-time shade cells. Expected lines are worked out
// by hand from the positions p = d * r + start + 0.5 of the destinations.
#include <cmath>
#include <cstring>
#include <string>

#include "resample_fixture.h"

using namespace resample_test;

namespace {

constexpr double kNull = -1;  // marks a cell that must come out null

// A stream of `source` cells (or lines) zoomed up to `view`, starting at `start`.
struct Zoom {
    int source, view;
    double start;
};

struct Stream {
    dsinput dsi{};
    pe_stream ps{};

    Stream(Zoom cells, Zoom lines, bool hue)
    {
        dsi.super_step_cells = cells.source;
        dsi.super_step_out_cells = cells.view;
        dsi.super_frac_x = cells.start;
        dsi.out_nr_cells = cells.view;
        dsi.super_step_lines = lines.source;
        dsi.super_step_out_lines = lines.view;
        dsi.super_frac_y = lines.start;
        dsi.out_nr_lines = lines.view;
        ps.dsinput = &dsi;
        ps.type = hue ? ST_Hue : ST_Pseudo;
        ps.zoom_cells = cells.source + 2;
        ps.zoom_lines = lines.source + 2;
    }
};

// A shade cell of an elevation and an azimuth level, as the value of the
// 16-bit cell that holds them: the elevation in its first byte in memory, the
// azimuth in its second.
double shade(int elevation, int azimuth)
{
    uint8_t bytes[2];
    bytes[0] = static_cast<uint8_t>(elevation);
    bytes[1] = static_cast<uint8_t>(azimuth);
    uint16_t cell;
    std::memcpy(&cell, bytes, 2);
    return cell;
}

void expect_line(Tree &t, const std::vector<double> &expected, const std::string &what)
{
    std::vector<bool> valid;
    for (size_t d = 0; d < expected.size(); d++) {
        valid.push_back(expected[d] != kNull);
        if (expected[d] != kNull) {
            EXPECT_DOUBLE_EQ(t.cell(static_cast<int>(d)), expected[d]) << what << ", cell " << d;
        }
    }
    EXPECT_EQ(t.take_runs(), runs_where(valid)) << what;
}

// ---------------------------------------------------------------- across cells

struct CellRow {
    const char *what;
    Zoom zoom;
    bool hue, shade;
    SourceLine input;  // with the lead-in and lead-out cells
    std::vector<double> expected;
};

TEST(ResampleBilinearCells, BlendsNeighboursAndKeepsTheValidOneNextToANull)
{
    // Four cells zoomed 2x from 0.25: p = 0.5 d + 0.75.
    const Zoom x2 = {4, 8, 0.25};
    // Two cells zoomed 2x from 0: p = 0.5 d + 0.5, halfway at d = 2.
    const Zoom half = {2, 4, 0.0};
    const CellRow rows[] = {
        {"all valid",
         x2,
         false,
         false,
         {{0, 10, 20, 30, 40, 0}, {{1, 4}}},
         {10, 12.5, 17.5, 22.5, 27.5, 32.5, 37.5, 40}},
        {"null in the middle",
         x2,
         false,
         false,
         {{0, 10, 20, 999, 40, 0}, {{1, 2}, {4, 4}}},
         {10, 12.5, 17.5, 20, 20, kNull, 40, 40}},
        {"lead cells valid",
         x2,
         false,
         false,
         {{2, 10, 20, 30, 40, 50}, {{0, 5}}},
         {8, 12.5, 17.5, 22.5, 27.5, 32.5, 37.5, 42.5}},
        {"runs in the lead cells alone",
         x2,
         false,
         false,
         {{2, 10, 20, 30, 40, 50}, {{0, 0}, {5, 5}}},
         {kNull, kNull, kNull, kNull, kNull, kNull, kNull, kNull}},
        {"not hue", half, false, false, {{0, 250, 10, 0}, {{1, 2}}}, {250, 250, 130, 10}},
        {"hue across 0", half, true, false, {{0, 250, 10, 0}, {{1, 2}}}, {250, 250, 2, 10}},
        {"hue across 0 upwards", half, true, false, {{0, 10, 250, 0}, {{1, 2}}}, {10, 10, 2, 250}},
        {"hue within the circle",
         half,
         true,
         false,
         {{0, 100, 200, 0}, {{1, 2}}},
         {100, 100, 150, 200}},
        {"shade",
         half,
         false,
         true,
         {{0, shade(100, 250), shade(200, 10), 0}, {{1, 2}}},
         {shade(100, 250), shade(100, 250), shade(150, 2), shade(200, 10)}},
    };
    for (const CellRow &row : rows) {
        Stream s(row.zoom, {1, 1, 0}, row.hue);
        Tree t;
        t.add_source(row.shade ? Unsigned16BitInteger : IEEE8ByteReal, {row.input});
        ASSERT_TRUE(t.build([&](funcnode **slot, pe_context *pe) {
            if (row.shade)
                setup_bilinear_rts_supersample_node(slot, pe, &s.ps);
            else
                setup_bilinear_supersample_node(slot, pe, &s.ps);
        }));
        ASSERT_TRUE(t.finish(1, row.zoom.view)) << t.pe->error_text;
        ASSERT_EQ(t.cell_type(), row.shade ? Unsigned16BitInteger : IEEE8ByteReal);
        ASSERT_EQ(t.read(), 0);
        expect_line(t, row.expected, row.what);
        EXPECT_EQ(t.pe->rlsegs.nr_used, 0) << row.what;
    }
}

// ---------------------------------------------------------------- across lines

struct LinesRow {
    const char *what;
    Zoom zoom;
    bool hue, shade;
    std::vector<SourceLine> input;  // with the lead-in and lead-out lines
    std::vector<std::vector<double>> expected;
};

TEST(ResampleBilinearLines, BlendsLinesAndLetsTheNearerLineDecideValidity)
{
    const std::vector<SourceLine> two_lines = {
        {{0, 0, 0}, {}},  // lead-in: null
        {{10, 10, 10}, {{0, 2}}},
        {{30, 30, 99}, {{0, 1}}},  // its last cell is null
        {{0, 0, 0}, {}},           // lead-out: null
    };
    const double N = kNull;
    const LinesRow rows[] = {
        // p = 0.5 n + 0.75: weights 0.75, 0.25, 0.75, 0.25.
        {"two lines 2x",
         {2, 4, 0.25},
         false,
         false,
         two_lines,
         {{10, 10, 10}, {15, 15, 10}, {25, 25, N}, {30, 30, N}}},
        // p = 0.5 n + 0.5: weights 0.5 and 0; at 0 only the shared cells are
        // kept, at 0.5 the upper line decides.
        {"on the lines",
         {2, 4, 0.0},
         false,
         false,
         two_lines,
         {{N, N, N}, {10, 10, N}, {20, 20, 10}, {N, N, N}}},
        // p = 0.25 n + 1.25: the last line lies on the lead-out line itself,
        // which then stands alone.
        {"to the lead-out line",
         {2, 8, 0.75},
         false,
         false,
         {{{0, 0, 0}, {}},
          {{10, 10, 10}, {{0, 2}}},
          {{30, 30, 99}, {{0, 1}}},
          {{40, 40, 40}, {{0, 2}}}},
         {{15, 15, 10},
          {20, 20, 10},
          {25, 25, N},
          {30, 30, N},
          {32.5, 32.5, N},
          {35, 35, N},
          {37.5, 37.5, 40},
          {40, 40, 40}}},
        {"hue",
         {2, 4, 0.0},
         true,
         false,
         {{{0}, {}}, {{250}, {{0, 0}}}, {{10}, {{0, 0}}}, {{0}, {}}},
         {{N}, {250}, {2}, {N}}},
        {"shade",
         {2, 4, 0.0},
         false,
         true,
         {{{0}, {}}, {{shade(100, 250)}, {{0, 0}}}, {{shade(200, 10)}, {{0, 0}}}, {{0}, {}}},
         {{N}, {shade(100, 250)}, {shade(150, 2)}, {N}}},
    };
    for (const LinesRow &row : rows) {
        const int width = static_cast<int>(row.input[0].cells.size());
        Stream s({width, width, 0}, row.zoom, row.hue);
        Tree t;
        t.add_source(row.shade ? Unsigned16BitInteger : IEEE8ByteReal, row.input);
        ASSERT_TRUE(t.build([&](funcnode **slot, pe_context *pe) {
            if (row.shade)
                setup_bilinear_rts_line_supersample_node(slot, pe, &s.ps);
            else
                setup_bilinear_line_supersample_node(slot, pe, &s.ps);
        }));
        ASSERT_TRUE(t.finish(1, width)) << t.pe->error_text;
        for (size_t n = 0; n < row.expected.size(); n++) {
            ASSERT_EQ(t.read(), 0);
            expect_line(t, row.expected[n], std::string(row.what) + ", line " + std::to_string(n));
        }
        // Never beyond the lead-out line.
        EXPECT_EQ(t.source->pulls, row.zoom.source + 2) << row.what;
    }
}

}  // namespace
