// The shading nodes over planes of heights whose cells' directions are known,
// with values worked out by hand from the definitions: a plane rising by 3 per
// cell to the east has the normal (-2, 0, 1) / sqrt(5).
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "kernel_fixture.h"

namespace {

using kernel_test::Grid;
using node_test::Harness;
using node_test::Runs;
using node_test::Script;

constexpr double kDegree = 3.141592653589793 / 180.0;

/* Planes of 7 cells by 3 lines, rising by 3 per cell towards one side. */
Grid plane(const char *rising)
{
    const std::string side = rising;
    return kernel_test::make_grid(7, 3, [side](int l, int x) -> double {
        if (side == "east") return 3.0 * x;
        if (side == "west") return -3.0 * x;
        if (side == "north") return -3.0 * l;  // the top line is the north
        if (side == "south") return 3.0 * l;
        return 10.0;
    });
}

using Builder = void (*)(funcnode **, pe_context *, pe_stream *, int);

/* The middle output line of the plane through one shading node; `pe->alg`
 * and the stream come from the caller. */
struct ShadeRun {
    Harness h;
    Script script;
    node_test::Line line;

    ShadeRun(const Grid &g, Builder build, pe_stream *ps, algorithm *alg = nullptr,
             int cell_type = Signed32BitInteger)
        : script(cell_type, g.lines)
    {
        h.pe->alg = alg;
        funcnode *tree = node_test::make_source(h.pe, &script);
        build(&tree, h.pe, ps, g.width);
        h.build(tree, g.width, PE_ALLOC_RECORDS);
        line = h.read();
    }
    /* Byte `b` of cell `x` of a 16-bit line, as it lies in memory. */
    int byte(int x, int b) const { return h.target_byte(2 * x + b); }
};

struct SunRow {
    const char *rising;
    double azimuth, elevation;  // degrees
    double brightness;
};

TEST(NodesShade, SunShadingByHand)
{
    const SunRow rows[] = {
        // Flat: the sun's height alone, whatever its azimuth.
        {"flat", 10, 90, 255},  // 256, limited
        {"flat", 200, 30, std::trunc(std::sin(30 * kDegree) * 256)},
        {"flat", 0, 45, std::trunc(std::sin(45 * kDegree) * 256)},
        // Rising east, the sun low in the west: 3 cos 45 / sqrt(5) = 0.9487.
        {"east", 270, 45, 242},
        // The same slope with the sun in the east faces away.
        {"east", 90, 45, 0},
        // With the sun in the north, only the normal's z counts: cos 45 / sqrt(5).
        {"east", 0, 45, 80},
        {"north", 180, 45, 242},
        {"south", 180, 45, 0},
        {"west", 90, 45, 242},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(std::string(row.rising) + " " + std::to_string(row.azimuth) + " " +
                     std::to_string(row.elevation));
        stream st{};
        st.sun_azimuth = row.azimuth * kDegree;
        st.sun_angle = row.elevation * kDegree;
        pe_stream ps{};
        ps.stream = &st;
        ShadeRun run(plane(row.rising), setup_shadenode, &ps);
        ASSERT_EQ(run.h.top()->cell_type, Unsigned8BitInteger);
        ASSERT_EQ(run.line.runs, (Runs{{1, 5}}));
        for (int x = 1; x <= 5; x++) EXPECT_EQ(run.line.values[x], row.brightness) << x;
    }
}

struct RtsRow {
    const char *rising;
    std::vector<uint8_t> reserved;
    double index;
};

TEST(NodesShade, RealTimeShadeToPaletteIndices)
{
    const RtsRow rows[] = {
        // No reserved colours: 8 azimuth levels, 32 elevation levels. Flat:
        // azimuth 0, elevation by the series 1.2863 (row 5), index 5 * 32.
        {"flat", {}, 160},
        // Rising east: azimuth pi (column 15), elevation 0.4636 (row 2).
        {"east", {}, 2 * 32 + 15},
        // Rising north: azimuth 3 pi / 2 (column 23).
        {"north", {}, 2 * 32 + 23},
        // Rising south: azimuth pi / 2 (column 7).
        {"south", {}, 2 * 32 + 7},
        // Four reserved: 7 by 36 levels; flat is row 4, index 144, moved
        // past the four reserved values at or below it to 148.
        {"flat", {0, 1, 2, 100}, 148},
        {"flat", {100, 2, 0, 1}, 148},
        // Reserved values above the index don't move it.
        {"flat", {200, 201}, 4 * 36},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(std::string(row.rising) + ", " + std::to_string(row.reserved.size()) +
                     " reserved");
        std::vector<uint8_t> reserved = row.reserved;
        algorithm alg{};
        alg.reserved_colours = static_cast<int32_t>(reserved.size());
        alg.reserved_colours8 = reserved.empty() ? nullptr : reserved.data();
        ShadeRun run(plane(row.rising), setup_rtsnode, nullptr, &alg);
        ASSERT_EQ(run.h.top()->cell_type, Unsigned8BitInteger);
        ASSERT_EQ(run.line.runs, (Runs{{1, 5}}));
        for (int x = 1; x <= 5; x++) EXPECT_EQ(run.line.values[x], row.index) << x;
    }
}

struct Rts16Row {
    const char *rising;
    int elevation, azimuth;  // the cell's first and second byte
};

TEST(NodesShade, RealTimeShadeToSixteenBits)
{
    const Rts16Row rows[] = {
        // Flat: asin(1) * 255 / (pi / 2) comes out just below 255.
        {"flat", 254, 0},
        // asin(1 / sqrt(5)) = 0.46365 gives 75; azimuth pi gives 127.4999.
        {"east", 75, 127},
        {"north", 75, 191},  // 3 pi / 2: 191.25
        {"south", 75, 63},   // pi / 2: 63.75
        {"west", 75, 0},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.rising);
        ShadeRun run(plane(row.rising), setup_rts16node, nullptr);
        ASSERT_EQ(run.h.top()->cell_type, Unsigned16BitInteger);
        ASSERT_EQ(run.line.runs, (Runs{{1, 5}}));
        for (int x = 1; x <= 5; x++) {
            EXPECT_EQ(run.byte(x, 0), row.elevation) << x;
            EXPECT_EQ(run.byte(x, 1), row.azimuth) << x;
        }
    }
}

TEST(NodesShade, ANullNeighbourMakesTheCellNull)
{
    const Builder builders[] = {setup_shadenode, setup_rtsnode, setup_rts16node};
    for (Builder build : builders) {
        Grid g = plane("east");
        g.lines[0].runs = {{0, 2}, {4, 6}};  // cell 3 of the top line is null
        stream st{};
        pe_stream ps{};
        ps.stream = &st;
        algorithm alg{};
        ShadeRun run(g, build, &ps, &alg);
        EXPECT_EQ(run.line.runs, (Runs{{1, 1}, {5, 5}}));
    }
}

TEST(NodesShade, HeightsThatAreNoNumberGiveLevelZero)
{
    const Builder builders[] = {setup_shadenode, setup_rtsnode, setup_rts16node};
    for (double bad : {std::nan(""), HUGE_VAL}) {
        for (Builder build : builders) {
            Grid g = plane("flat");
            g.lines[1].values[3] = bad;  // valid, in the run
            stream st{};
            pe_stream ps{};
            ps.stream = &st;
            algorithm alg{};
            ShadeRun run(g, build, &ps, &alg, IEEE8ByteReal);
            ASSERT_EQ(run.line.runs, (Runs{{1, 5}}));
            // The cross of cell 3 reaches it from cells 2 and 4; cell 3
            // itself takes its neighbours only.
            for (int x : {2, 4}) {
                if (build == setup_rts16node) {
                    EXPECT_EQ(run.byte(x, 0), 0);
                    EXPECT_EQ(run.byte(x, 1), 0);
                } else {
                    EXPECT_EQ(run.line.values[x], 0);
                }
            }
        }
    }
}

}  // namespace
