// Colour arithmetic and the palettes of 256-colour displays. Expected values
// are worked out by hand from the sextant and degree rules.
#include <gtest/gtest.h>

#include <array>
#include <vector>

#include "vln_nodes.h"

namespace {

using Triple = std::array<int, 3>;

TEST(ColourArith, HsvToRgbAtTheEdges)
{
    struct Row {
        const char *name;
        Triple hsv, rgb;
    } rows[] = {
        {"no saturation is grey", {200, 0, 77}, {77, 77, 77}},
        {"hue 0 is red", {0, 255, 255}, {255, 0, 0}},
        // 255 / (256 / 6) = 5.977: sextant 5, not a wrapped sextant 0.
        {"hue 255 stays in sextant 5", {255, 255, 255}, {255, 0, 6}},
        // f = 1.992, t = 200, u = 198.44: red falls to 2.
        {"end of sextant 1", {85, 255, 200}, {2, 200, 0}},
        // f = 3 exactly, t = 50.2, p = 49.8.
        {"half saturation at sextant 3", {128, 128, 100}, {50, 100, 100}},
        {"black", {40, 255, 0}, {0, 0, 0}},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.name);
        uint8_t r = 1, g = 1, b = 1;
        hsv_to_rgb(row.hsv[0], row.hsv[1], row.hsv[2], &r, &g, &b);
        EXPECT_EQ((Triple{r, g, b}), row.rgb);
    }
}

TEST(ColourArith, RgbToHsvAtTheEdges)
{
    struct Row {
        const char *name;
        Triple rgb, hsv;
    } rows[] = {
        {"black has no saturation", {0, 0, 0}, {0, 0, 0}},
        {"grey has no hue", {10, 10, 10}, {0, 0, 10}},
        {"red", {255, 0, 0}, {0, 255, 255}},
        {"blue is 240 degrees", {0, 0, 255}, {170, 255, 255}},
        // -0.235 degrees wraps to 359.76, the top of the hue range.
        {"just below red wraps", {255, 0, 1}, {255, 255, 255}},
        {"orange", {200, 100, 50}, {14, 191, 200}},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.name);
        uint8_t h = 1, s = 1, v = 1;
        rgb_to_hsv(row.rgb[0], row.rgb[1], row.rgb[2], &h, &s, &v);
        EXPECT_EQ((Triple{h, s, v}), row.hsv);
    }
}

TEST(ColourArith, SixteenBitForms)
{
    uint16_t a = 1, b = 1, c = 1;
    // A hue of 65535 is taken as 0.
    hsv_to_rgb_16(65535, 65535, 65535, &a, &b, &c);
    EXPECT_EQ((Triple{a, b, c}), (Triple{65535, 0, 0}));
    // 65534 / 10922.5 is just below 6: sextant 5, u = 65529.
    hsv_to_rgb_16(65534, 65535, 65535, &a, &b, &c);
    EXPECT_EQ((Triple{a, b, c}), (Triple{65535, 0, 6}));
    hsv_to_rgb_16(3, 0, 40000, &a, &b, &c);
    EXPECT_EQ((Triple{a, b, c}), (Triple{40000, 40000, 40000}));

    rgb_to_hsv_16(0, 65535, 0, &a, &b, &c);
    EXPECT_EQ((Triple{a, b, c}), (Triple{21845, 65535, 65535}));
    rgb_to_hsv_16(32768, 32768, 32768, &a, &b, &c);
    EXPECT_EQ((Triple{a, b, c}), (Triple{0, 0, 32768}));
    // Just below red gives the hue that the other direction reads as 0.
    rgb_to_hsv_16(65535, 0, 1, &a, &b, &c);
    EXPECT_EQ(a, 65535);
}

TEST(ColourArith, ConvnullsFillsOutsideTheRuns)
{
    rlseg second{nullptr, 5, 9};  // reaches past the line's end
    rlseg first{&second, 1, 2};
    std::vector<uint8_t> line(7, 50);
    convnulls(&first, line.data(), 7, 3);
    EXPECT_EQ(line, (std::vector<uint8_t>{3, 50, 50, 3, 3, 50, 50}));
    convnulls(nullptr, line.data(), 7, 4);
    EXPECT_EQ(line, std::vector<uint8_t>(7, 4));
}

/* ---------------------------------------------------------------- palettes */

std::vector<uint8_t> first_n(int n)
{
    std::vector<uint8_t> v;
    for (int i = 0; i < n; i++) v.push_back(static_cast<uint8_t>(i));
    return v;
}

TEST(ColourPalette, CubeByFreeIndices)
{
    struct Row {
        int reserved, free, red, green, blue;
    } rows[] = {
        {0, 256, 8, 8, 4},  {11, 245, 7, 7, 5},  {12, 244, 7, 8, 4},  {32, 224, 7, 8, 4},
        {33, 223, 7, 7, 4}, {148, 108, 6, 6, 3}, {149, 107, 5, 5, 3}, {248, 8, 2, 2, 2},
        {249, 7, 1, 1, 1},  {255, 1, 1, 1, 1},   {256, 0, 0, 0, 0},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.reserved);
        const std::vector<uint8_t> reserved = first_n(row.reserved);
        uint8_t table[256] = {};
        int r = -1, g = -1, b = -1;
        EXPECT_EQ(setup_rgb8_params(table, &r, &g, &b, row.reserved, reserved.data()), row.free);
        EXPECT_EQ((Triple{r, g, b}), (Triple{row.red, row.green, row.blue}));
        if (row.free > 0) {
            EXPECT_EQ(table[0], row.reserved);
        }
    }
}

TEST(ColourPalette, StridesOfTheCube)
{
    int r[256], g[256], b[256];
    setup_rgb8_strides(r, g, b, 8, 8, 4);
    EXPECT_EQ((Triple{r[255], g[255], b[255]}), (Triple{224, 28, 3}));
    EXPECT_EQ((Triple{r[128], g[64], b[200]}), (Triple{128, 8, 3}));
    EXPECT_EQ((Triple{r[31], g[31], b[63]}), (Triple{0, 0, 0}));
    // No free index: every colour lands on position 0.
    setup_rgb8_strides(r, g, b, 0, 0, 0);
    for (int v : {0, 100, 255}) EXPECT_EQ((Triple{r[v], g[v], b[v]}), (Triple{0, 0, 0}));
}

TEST(ColourPalette, FreeIndicesSkipScatteredReservations)
{
    const uint8_t reserved[] = {0, 5};
    uint8_t table[256] = {};
    int r, g, b;
    EXPECT_EQ(setup_rgb8_params(table, &r, &g, &b, 2, reserved), 254);
    EXPECT_EQ((Triple{table[0], table[3], table[4]}), (Triple{1, 4, 6}));
}

TEST(ColourPalette, CubeColours)
{
    std::vector<uint16_t> lut(3 * 256, 7);
    const std::vector<uint8_t> reserved = first_n(12);
    setup_rgb8_lut(lut.data(), 12, reserved.data());  // 244 free: 7 by 8 by 4
    auto at = [&](int i) { return Triple{lut[3 * i], lut[3 * i + 1], lut[3 * i + 2]}; };
    EXPECT_EQ(at(0), (Triple{7, 7, 7}));  // reserved: left alone
    EXPECT_EQ(at(12), (Triple{0, 0, 0}));
    EXPECT_EQ(at(13), (Triple{0, 0, 21845}));       // blue step 1 of 4
    EXPECT_EQ(at(12 + 32), (Triple{10922, 0, 0}));  // red step 1 of 7
    EXPECT_EQ(at(12 + 223), (Triple{65535, 65535, 65535}));
    EXPECT_EQ(at(12 + 224), (Triple{7, 7, 7}));  // past the cube
}

TEST(ColourPalette, GroupsAndLevels)
{
    struct Row {
        int reserved, groups, levels;
    } rows[] = {{0, 27, 9}, {165, 9, 9}, {166, 8, 9}, {200, 6, 7}, {254, 0, 1}, {255, 0, 0}};
    for (const Row &row : rows) {
        SCOPED_TRACE(row.reserved);
        const std::vector<uint8_t> reserved = first_n(row.reserved);
        uint8_t table[256] = {};
        int groups = -1, levels = -1;
        setup_cd8_params(table, &groups, &levels, row.reserved, reserved.data());
        EXPECT_EQ(groups, row.groups);
        EXPECT_EQ(levels, row.levels);
    }
}

TEST(ColourPalette, GroupPaletteFromAColourTable)
{
    // Every colour of the table is pure red.
    std::vector<uint8_t> colours(3 * 256, 0);
    for (int i = 0; i < 256; i++) colours[3 * i] = 255;
    std::vector<uint16_t> lut(3 * 256, 7);
    cdlut24_to_cdlut8(lut.data(), colours.data(), 0, nullptr);
    auto at = [&](int i) { return Triple{lut[3 * i], lut[3 * i + 1], lut[3 * i + 2]}; };
    EXPECT_EQ(at(0), (Triple{0, 0, 0}));
    EXPECT_EQ(at(1), (Triple{7281, 7281, 7281}));  // grey 1 of 9
    EXPECT_EQ(at(9), (Triple{65535, 65535, 65535}));
    EXPECT_EQ(at(10), (Triple{28 * 257, 0, 0}));  // red at brightness 1 of 9
    EXPECT_EQ(at(18), (Triple{65535, 0, 0}));
    EXPECT_EQ(at(252), (Triple{65535, 0, 0}));  // the last group's top
    EXPECT_EQ(at(253), (Triple{7, 7, 7}));
}

}  // namespace
