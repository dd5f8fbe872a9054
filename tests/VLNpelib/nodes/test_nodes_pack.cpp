/* Packed-pixel lines: the run table and the bytes of each mask, the lines past
 * the last and the cells past a short line, a table that must grow, and a
 * line that does not fit. Also the band map of the per-surface root. */
#include <cstdlib>

#include "node_harness.h"

namespace {

/* Planes whose cells tell where they come from: 8-bit colour c holds
 * 10 * (c + 1) + x, 16-bit colour c holds 1000 * (c + 1) + x. */
struct Planes {
    static constexpr int width = 64;
    uint8_t p8[8][width];
    uint16_t p16[8][width];
    pp_planes planes{};
    Planes()
    {
        for (int c = 0; c < 8; c++) {
            for (int x = 0; x < width; x++) {
                p8[c][x] = static_cast<uint8_t>(10 * (c + 1) + x);
                p16[c][x] = static_cast<uint16_t>(1000 * (c + 1) + x);
            }
            planes.plane8[c] = p8[c];
            planes.plane16[c] = p16[c];
        }
    }
};

uint8_t b8(int c, int x)
{
    return static_cast<uint8_t>(10 * (c + 1) + x);
}
/* The two bytes of a 16-bit cell, in the host's order (least first). */
std::vector<uint8_t> b16(int c, int x)
{
    const int v = 1000 * (c + 1) + x;
    return {static_cast<uint8_t>(v & 0xFF), static_cast<uint8_t>(v >> 8)};
}

std::vector<uint8_t> cat(std::initializer_list<std::vector<uint8_t>> parts)
{
    std::vector<uint8_t> all;
    for (const auto &p : parts) all.insert(all.end(), p.begin(), p.end());
    return all;
}

enum { R, G, B, H, S, I, P, HT };

struct PackCase {
    const char *name;
    std::vector<uint32_t> masks;
    int nr_cells, line, nr_in, nr_lines_in;
    std::vector<uint32_t> table;  // without entry 0, which is {0, bytes}
    std::vector<uint8_t> bytes;
};

void PrintTo(const PackCase &c, std::ostream *os)
{
    *os << c.name;
}

class PackTable : public ::testing::TestWithParam<PackCase> {};

TEST_P(PackTable, EntriesAndBytes)
{
    const PackCase &c = GetParam();
    Planes planes;
    std::vector<uint8_t> out(1024, 0xEE);
    uint32_t *table = nullptr;
    ASSERT_EQ(convert_bufs_to_pp(1024, c.nr_cells, c.line, c.nr_in, c.nr_lines_in, &planes.planes,
                                 c.masks.data(), &table, out.data()),
              0);
    ASSERT_NE(table, nullptr);
    std::vector<uint32_t> want{0, static_cast<uint32_t>(c.bytes.size())};
    want.insert(want.end(), c.table.begin(), c.table.end());
    EXPECT_EQ(std::vector<uint32_t>(table, table + want.size()), want);
    EXPECT_EQ(std::vector<uint8_t>(out.begin(), out.begin() + c.bytes.size()), c.bytes);
    EXPECT_EQ(out[c.bytes.size()], 0xEE) << "written past the packed bytes";
    std::free(table);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, PackTable,
    ::testing::Values(
        PackCase{"RunsOfEqualMasksMerge",
                 {PP_RED, PP_RED, PP_RED | PP_BLUE, PP_RED | PP_BLUE, 0},
                 5,
                 1,
                 5,
                 10,
                 {PP_RED, 2, PP_RED | PP_BLUE, 2, 0, 1, 0, 0},
                 {b8(R, 0), b8(R, 1), b8(R, 2), b8(B, 2), b8(R, 3), b8(B, 3)}},
        PackCase{"ShortLineEndsEmpty",
                 {PP_PSEUDO, PP_PSEUDO, PP_PSEUDO},
                 7,
                 1,
                 3,
                 10,
                 {PP_PSEUDO, 3, PP_EMPTY, 4, 0, 0},
                 {b8(P, 0), b8(P, 1), b8(P, 2)}},
        PackCase{"PastTheLastLineIsEmpty", {PP_RED}, 7, 11, 7, 10, {PP_EMPTY, 7, 0, 0}, {}},
        PackCase{"ComposedColourIsThreeBytes",
                 {PP_RGB, PP_RED | PP_GREEN | PP_BLUE},
                 2,
                 1,
                 2,
                 10,
                 {PP_RGB, 1, PP_RED | PP_GREEN | PP_BLUE, 1, 0, 0},
                 {b8(R, 0), b8(G, 0), b8(B, 0), b8(R, 1), b8(G, 1), b8(B, 1)}},
        PackCase{"SixteenBitPseudoAndIntensity",
                 {PP_PSEUDO16, PP_INTENSITY16 | PP_PSEUDO},
                 2,
                 1,
                 2,
                 10,
                 {PP_PSEUDO16, 1, PP_INTENSITY16 | PP_PSEUDO, 1, 0, 0},
                 cat({b16(P, 0), b16(I, 1), {b8(P, 1)}})},
        // Intensity before hue: the reverse of the bits.
        PackCase{"FixedOrderOfPlanes",
                 {PP_HUE | PP_SATURATION | PP_INTENSITY | PP_HEIGHT,
                  PP_RED | PP_HUE16 | PP_INTENSITY | PP_HEIGHT16},
                 2,
                 1,
                 2,
                 10,
                 {PP_HUE | PP_SATURATION | PP_INTENSITY | PP_HEIGHT, 1,
                  PP_RED | PP_HUE16 | PP_INTENSITY | PP_HEIGHT16, 1, 0, 0},
                 cat({{b8(I, 0), b8(S, 0), b8(H, 0), b8(HT, 0), b8(R, 1), b8(I, 1)},
                      b16(H, 1),
                      b16(HT, 1)})}),
    [](const auto &info) { return std::string(info.param.name); });

/* One entry per cell: the table doubles past its first four entries, and
 * keeps every entry. */
TEST(PackTableGrowth, EveryEntryKept)
{
    Planes planes;
    const int n = 40;
    std::vector<uint32_t> masks;
    std::vector<uint32_t> want{0, n};
    for (int x = 0; x < n; x++) {
        masks.push_back(x % 2 == 0 ? PP_RED : PP_GREEN);
        want.insert(want.end(), {masks.back(), 1});
    }
    want.insert(want.end(), {0, 0});
    std::vector<uint8_t> out(n);
    uint32_t *table = nullptr;
    ASSERT_EQ(convert_bufs_to_pp(n, n, 1, n, 1, &planes.planes, masks.data(), &table, out.data()),
              0);
    EXPECT_EQ(std::vector<uint32_t>(table, table + want.size()), want);
    EXPECT_EQ(out[n - 1], b8(G, n - 1));
    std::free(table);
}

TEST(PackTableLimits, TooLongOrNoTable)
{
    Planes planes;
    const std::vector<uint32_t> masks{PP_RGB, PP_RGB};
    std::vector<uint8_t> out(8, 0xEE);
    uint32_t sentinel = 0;
    uint32_t *table = &sentinel;
    // Two cells of three bytes do not fit in five.
    EXPECT_EQ(convert_bufs_to_pp(5, 2, 1, 2, 1, &planes.planes, masks.data(), &table, out.data()),
              2);
    EXPECT_EQ(table, nullptr);
    // No table asked for: nothing is packed.
    std::fill(out.begin(), out.end(), 0xEE);
    EXPECT_EQ(convert_bufs_to_pp(8, 2, 1, 2, 1, &planes.planes, masks.data(), nullptr, out.data()),
              0);
    EXPECT_EQ(out, std::vector<uint8_t>(8, 0xEE));
}

/* ---------------------------------------------------------------- per-surface bands */

TEST(SurfaceBandMap, PixelsOfSurfacesWithGroupsThenHeights)
{
    node_test::Harness h;
    pe_context *pe = h.pe;
    const int n = 4;
    pe->nr_surfaces = n;
    auto array = [&]() {
        return static_cast<pe_streamgroup **>(pe_malloc(pe, sizeof(pe_streamgroup *) * n));
    };
    pe->groups = array();
    pe->height_groups = array();
    pe->class_groups = array();
    pe->classdisp_groups = array();
    pe->link_groups = array();
    auto *g = static_cast<pe_streamgroup *>(pe_malloc(pe, sizeof(pe_streamgroup)));
    // 0: colours and heights; 1: nothing; 2: heights alone; 3: classes alone.
    pe->groups[0] = g;
    pe->height_groups[0] = g;
    pe->height_groups[2] = g;
    pe->class_groups[3] = g;
    std::vector<int32_t> map(8, -1);
    ASSERT_EQ(tomsrgbh_band_map(pe, map.data()), 4);
    EXPECT_EQ(std::vector<int32_t>(map.begin(), map.begin() + 4),
              (std::vector<int32_t>{0, 6, 1, 5}));
}

}  // namespace
