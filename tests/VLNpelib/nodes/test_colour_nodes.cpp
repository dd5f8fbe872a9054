// The colour nodes over scripted sources: planes from colour groups, the
// intensity layer, pixels, palette indices and the blending of surfaces.
// Expected values are worked out by hand (the arithmetic's own rules are
// tested in test_colour_arith.cpp).
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "colour_fixture.h"
#include "vld_docs.h"

namespace {

using colour_test::BandsScript;
using colour_test::ColourHarness;
using colour_test::Planes;
using node_test::Line;
using node_test::Runs;
using node_test::Script;
using V = std::vector<double>;

funcnode *source(ColourHarness &h, Script *s)
{
    return node_test::make_source(h.pe, s);
}

/* ---------------------------------------------------------------- planes */

TEST(ColourNodes, RgbToRgbZeroForAnAbsentGroupAndUnionOfRuns)
{
    ColourHarness h(5);
    Script red(Unsigned8BitInteger, {{{10, 11, 12, 13, 14}, {{0, 1}}}});
    Script green(Unsigned8BitInteger, {{{20, 21, 22, 23, 24}, {{3, 3}}}});
    funcnode *tree = nullptr;
    vln_colour::rgbtorgb_over(&tree, h.pe, source(h, &red), source(h, &green), nullptr);
    colour_test::build_bands(h, tree, 3, 5);
    for (int k = 0; k < 2; k++) {
        Planes p = colour_test::read_bands(h);
        EXPECT_EQ(p.bands[0], (V{10, 11, 12, 13, 14}));
        EXPECT_EQ(p.bands[1], (V{20, 21, 22, 23, 24}));
        EXPECT_EQ(p.bands[2], V(5, 0));
        EXPECT_EQ(p.runs, (Runs{{0, 1}, {3, 3}}));
        EXPECT_FALSE(p.other_runs);
        EXPECT_EQ(h.pe->rlsegs.nr_used, 0);
    }
}

TEST(ColourNodes, HsiToRgbRunsAreTheIntensitys)
{
    Script hue(Unsigned8BitInteger, {{{0, 255, 128}, {{0, 2}}}});
    Script intensity(Unsigned8BitInteger, {{{200, 255, 100}, {{1, 2}}}});
    Script saturation(Unsigned8BitInteger, {{{255, 255, 128}, {{0, 2}}}});
    struct {
        bool with_saturation;
        std::vector<V> planes;
    } rows[] = {
        {true, {{200, 255, 50}, {0, 0, 100}, {0, 6, 100}}},
        {false, {{200, 255, 100}, {200, 255, 100}, {200, 255, 100}}},  // grey
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.with_saturation);
        ColourHarness h(3);
        funcnode *tree = nullptr;
        vln_colour::hsitorgb_over(&tree, h.pe, source(h, &hue),
                                  row.with_saturation ? source(h, &saturation) : nullptr,
                                  source(h, &intensity));
        colour_test::build_bands(h, tree, 3, 3);
        Planes p = colour_test::read_bands(h);
        EXPECT_EQ(p.bands, row.planes);
        EXPECT_EQ(p.runs, (Runs{{1, 2}}));
        EXPECT_EQ(h.pe->rlsegs.nr_used, 0);
    }
}

TEST(ColourNodes, PseudoToRgbThroughTheTable)
{
    ColourHarness h(4);
    vln_colour::ColourTable table{};
    table.red[7] = 1, table.green[7] = 2, table.blue[7] = 3;
    table.red[200] = 90;
    Script pseudo(Unsigned8BitInteger, {{{7, 200, 7, 9}, {{0, 1}, {3, 3}}}});
    funcnode *tree = nullptr;
    vln_colour::pseudotorgb_over(&tree, h.pe, source(h, &pseudo), table);
    colour_test::build_bands(h, tree, 3, 4);
    Planes p = colour_test::read_bands(h);
    // Cell 2 is outside the runs: untouched (the probe's zeroed line).
    EXPECT_EQ(p.bands, (std::vector<V>{{1, 90, 0, 0}, {2, 0, 0, 0}, {3, 0, 0, 0}}));
    EXPECT_EQ(p.runs, (Runs{{0, 1}, {3, 3}}));
}

/* Writes a table file in the installation's format and loads it for a
 * surface of `groups`. */
struct TableFile {
    explicit TableFile(const std::string &rows)
    {
        path = testing::TempDir() + "colour_test_table.lut";
        std::FILE *f = std::fopen(path.c_str(), "w");
        std::fprintf(f,
                     "LookUpTable Begin\n\tVersion = \"1.0\"\n\tName = \"t\"\n"
                     "\tLUT = {\n%s\t}\nLookUpTable End\n",
                     rows.c_str());
        std::fclose(f);
    }
    ~TableFile() { std::remove(path.c_str()); }
    std::string path;
};

TEST(ColourNodes, SurfaceTableTakesUpperBytesAndLeavesTheRestBlack)
{
    TableFile file("\t0 65535 256 511\n\t1 4660 22136 39612\n\t2 0 0 65280\n");
    ColourHarness h(1);
    surface sf{};
    sf.lookup_table = const_cast<char *>(file.path.c_str());
    pe_stream ps{};
    ps.surface = &sf;
    pe_streamgroup group{};
    group.type = ST_Pseudo;
    group.streams = &ps;
    vln_colour::ColourTable table;
    std::memset(&table, 9, sizeof table);
    vln_colour::load_surface_table(h.pe, &group, &table);
    EXPECT_EQ((std::vector<int>{table.red[0], table.green[0], table.blue[0]}),
              (std::vector<int>{255, 1, 1}));
    EXPECT_EQ((std::vector<int>{table.red[1], table.green[1], table.blue[1]}),
              (std::vector<int>{0x12, 0x56, 0x9A}));
    EXPECT_EQ(table.blue[2], 255);
    for (int i = 3; i < 256; i++) ASSERT_EQ(table.red[i] | table.green[i] | table.blue[i], 0) << i;

    // No name at all.
    sf.lookup_table = nullptr;
    EXPECT_FALSE(
        vln_pe::guarded(h.pe, [&] { vln_colour::load_surface_table(h.pe, &group, &table); }));
    EXPECT_STREQ(h.pe->error_text, "Lookup-table not specified in algorithm\n");
    // A table that isn't there.
    ColourHarness h2(1);
    sf.lookup_table = const_cast<char *>("/nonexistent/none.lut");
    EXPECT_FALSE(
        vln_pe::guarded(h2.pe, [&] { vln_colour::load_surface_table(h2.pe, &group, &table); }));
    EXPECT_EQ(std::string(h2.pe->error_text).rfind("Cannot read lookup-table", 0), 0u);
}

TEST(ColourNodes, InstalledTablesAreFullAndReadable)
{
    for (const char *name : {"greyscale", "pseudocolor", "rainbow", "heat", "terrain", "bluered"}) {
        SCOPED_TRACE(name);
        lut *l = nullptr;
        ASSERT_EQ(eg_lut_standard(&l, VORLAN_SHARE_DIR, name), 0);
        ASSERT_EQ(l->nr_entries, 256);
        for (int i = 0; i < 256; i++) ASSERT_EQ(l->entries[i].index, i);
        ef_lut(l);
    }
    // The grey ramp through the surface's loader: value i is grey i.
    ColourHarness h(1);
    surface sf{};
    sf.lookup_table = const_cast<char *>(VORLAN_SHARE_DIR "/lut/greyscale");
    pe_stream ps{};
    ps.surface = &sf;
    pe_streamgroup group{};
    group.streams = &ps;
    vln_colour::ColourTable table{};
    vln_colour::load_surface_table(h.pe, &group, &table);
    for (int i = 0; i < 256; i++)
        ASSERT_EQ((std::vector<int>{table.red[i], table.green[i], table.blue[i]}),
                  (std::vector<int>{i, i, i}));
}

/* ---------------------------------------------------------------- the intensity layer */

TEST(ColourNodes, IntensityOverColour)
{
    // Cell 0: colour only; cell 1: both; cell 2: intensity only, over a
    // colour plane that holds (10, 20, 30) outside its runs.
    struct {
        int colour24;
        V red, green, blue;
    } rows[] = {
        {1, {200, 100, 90}, {100, 50, 90}, {50, 25, 90}},  // grey from black
        {0, {200, 100, 30}, {100, 50, 60}, {50, 25, 90}},  // the old colour's hue
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.colour24);
        ColourHarness h(4);
        h.alg.colour24 = row.colour24;
        BandsScript colour;
        colour.lines = {{{{200, 200, 10, 0}, {100, 100, 20, 0}, {50, 50, 30, 0}}, {{0, 1}}}};
        Script intensity(Unsigned8BitInteger, {{{0, 100, 90, 0}, {{1, 2}}}});
        funcnode *tree = nullptr;
        vln_colour::rgbitorgb_over(&tree, h.pe, colour_test::make_bands_source(h.pe, &colour),
                                   source(h, &intensity));
        colour_test::build_bands(h, tree, 3, 4);
        Planes p = colour_test::read_bands(h);
        EXPECT_EQ(p.bands[0], (V{row.red[0], row.red[1], row.red[2], 0}));
        EXPECT_EQ(p.bands[1], (V{row.green[0], row.green[1], row.green[2], 0}));
        EXPECT_EQ(p.bands[2], (V{row.blue[0], row.blue[1], row.blue[2], 0}));
        EXPECT_EQ(p.runs, (Runs{{0, 2}}));
        EXPECT_EQ(h.pe->rlsegs.nr_used, 0);
    }
}

/* ---------------------------------------------------------------- 32-bit pixels */

TEST(ColourNodes, Rgb24FinalPixelsHeightAndBackground)
{
    // Background (1, 2, 3); the probe's line starts as 0xEE bytes, so a kept
    // top byte reads 0xEE.
    struct {
        const char *name;
        int red, green, blue;  // shifts; -1: no handle
        bool height, keep_height;
        int reserved;
        V pixels;
    } rows[] = {
        {"common layout", -1, 0, 0, false, false, 0, {0xEE010203, 0x0A141E, 0xFF8000, 0xEE010203}},
        {"other layout", 0, 8, 16, false, false, 0, {0xEE030201, 0x1E140A, 0x80FF, 0xEE030201}},
        {"height kept", -1, 0, 0, true, true, 0, {0x07010203, 0x080A141E, 0x09FF8000, 0x0A010203}},
        {"height not kept", -1, 0, 0, true, false, 0, {0xEE010203, 0x0A141E, 0xFF8000, 0xEE010203}},
        // Two reserved entries: value v goes to 2 + trunc(v * 254 / 256).
        {"reserved colours",
         -1,
         0,
         0,
         false,
         false,
         2,
         {0xEE010203, 0x0B151F, 0xFF8102, 0xEE010203}},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        ColourHarness h(4);
        Vds vds{};
        vds.red_shift = row.red, vds.green_shift = row.green, vds.blue_shift = row.blue;
        vds.height_shift = 24;
        if (row.red >= 0) h.pe->vds = &vds;
        h.pe->keep_height = row.keep_height;
        h.alg.background_colour[0] = 1, h.alg.background_colour[1] = 2;
        h.alg.background_colour[2] = 3;
        h.alg.reserved_colours = row.reserved;
        BandsScript colour;
        colour.lines = {{{{9, 10, 255, 9}, {9, 20, 128, 9}, {9, 30, 0, 9}}, {{1, 2}}}};
        Script height(Unsigned8BitInteger, {{{7, 8, 9, 10}, {{0, 3}}}});
        funcnode *tree = nullptr;
        vln_colour::rgb24final_over(&tree, h.pe, colour_test::make_bands_source(h.pe, &colour),
                                    row.height ? source(h, &height) : nullptr);
        h.build(tree, 4, PE_ALLOC_RECORDS);
        Line line = h.read();
        EXPECT_EQ(line.values, row.pixels);
        EXPECT_EQ(line.runs, (Runs{{1, 2}}));
        EXPECT_EQ(h.pe->rlsegs.nr_used, 0);
    }
}

/* ---------------------------------------------------------------- 8-bit palettes */

TEST(ColourNodes, Rgb24To8CubeIndicesAndNullColour)
{
    struct {
        int reserved;
        V indices;
    } rows[] = {
        // 8 by 8 by 4 on indices 0 to 255.
        {0, {255, 0, 139, 6}},
        // Ten reserved: 7 by 7 by 5 on indices 10 to 255.
        {10, {10 + 244, 10, 10 + 3 * 35 + 1 * 5 + 3, 6}},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.reserved);
        ColourHarness h(4);
        std::vector<uint8_t> reserved;
        for (int i = 0; i < row.reserved; i++) reserved.push_back(static_cast<uint8_t>(i));
        h.alg.reserved_colours = row.reserved;
        h.alg.reserved_colours8 = reserved.data();
        h.alg.null_colour = 6;
        BandsScript colour;
        colour.lines = {{{{255, 0, 128, 1}, {255, 0, 64, 1}, {255, 0, 200, 1}}, {{0, 2}}}};
        funcnode *tree = nullptr;
        vln_colour::rgb24to8_over(&tree, h.pe, colour_test::make_bands_source(h.pe, &colour));
        h.build(tree, 4, PE_ALLOC_RECORDS);
        Line line = h.read();
        EXPECT_EQ(line.values, row.indices);
        EXPECT_EQ(line.runs, (Runs{{0, 2}}));
    }
}

TEST(ColourNodes, PiTo8GroupsStepsAndGreys)
{
    // No reserved colours: 9 levels, 27 groups; group g starts at index
    // 9 (g + 1) + 1, and a level is trunc(i / 25.6).
    ColourHarness h(6);
    h.alg.null_colour = 3;
    vln_colour::ColourTable table{};
    table.red[255] = 255;  // group 26's colour: V 255, its top step
    table.green[0] = 100;  // group 0's colour: V 100, step 3
    // Cells: both (I 0), both (I 255, P 0), pseudo only (P 255), pseudo only
    // (P 0), intensity only (I 130), neither.
    Script intensity(Unsigned8BitInteger, {{{0, 255, 0, 0, 130, 0}, {{0, 1}, {4, 4}}}});
    Script pseudo(Unsigned8BitInteger, {{{0, 0, 255, 0, 0, 0}, {{0, 3}}}});
    funcnode *tree = nullptr;
    vln_colour::pito8_over(&tree, h.pe, source(h, &intensity), source(h, &pseudo), table);
    h.build(tree, 6, PE_ALLOC_RECORDS);
    Line line = h.read();
    EXPECT_EQ(line.values, (V{0, 10 + 9 - 1, 244 + 9 - 1, 10 + 3 - 1, 5, 3}));
    EXPECT_EQ(line.runs, (Runs{{0, 4}}));
    EXPECT_EQ(h.pe->rlsegs.nr_used, 0);
}

TEST(ColourNodes, PiTo8WithoutIntensityIsThePseudoLine)
{
    ColourHarness h(3);
    h.alg.null_colour = 4;
    Script pseudo;
    funcnode *pseudo_node = source(h, &pseudo);
    funcnode *tree = nullptr;
    vln_colour::pito8_over(&tree, h.pe, nullptr, pseudo_node, vln_colour::ColourTable{});
    EXPECT_EQ(tree, pseudo_node);
    // With neither group, a line of the null colour.
    tree = nullptr;
    vln_colour::pito8_over(&tree, h.pe, nullptr, nullptr, vln_colour::ColourTable{});
    h.build(tree, 3, PE_ALLOC_RECORDS);
    EXPECT_EQ(h.read().values, (V{4, 4, 4}));
}

TEST(ColourNodes, Height8PullsTheHeightBesideTheImage)
{
    ColourHarness h(3);
    Script image(Unsigned8BitInteger, {{{5, 6, 7}, {{0, 1}}}});
    Script height(Unsigned8BitInteger, {{{50, 60, 70}, {{0, 2}}}});
    funcnode *tree = nullptr;
    vln_colour::height8_over(&tree, h.pe, source(h, &image), source(h, &height));
    h.build(tree, 3, PE_ALLOC_RECORDS);
    for (int k = 0; k < 3; k++) {
        Line line = h.read();
        EXPECT_EQ(line.values, (V{5, 6, 7}));
        EXPECT_EQ(line.runs, (Runs{{0, 1}}));
    }
    EXPECT_EQ(height.reads, 3);
    EXPECT_EQ(h.pe->rlsegs.nr_used, 0);
    // The image went straight into the probe's line.
    EXPECT_EQ(image.targets[0], h.target.data());
}

/* ---------------------------------------------------------------- blending surfaces */

TEST(ColourNodes, TransparencyBlendsFromTheLastSurfaceUp)
{
    // Background (100, 100, 100). Surface 2 (bottom), t 0.5, cells 0 and 1;
    // surface 1, t 1, cells 1 and 2; surface 0 (top), t 0, cell 3, with a
    // height byte.
    ColourHarness h(5);
    h.alg.background_colour[0] = h.alg.background_colour[1] = h.alg.background_colour[2] = 100;
    Script top(Unsigned32BitInteger, {{V(5, 0x7F010203), {{3, 3}}}});
    Script middle(Unsigned32BitInteger, {{V(5, 0x090909), {{1, 2}}}});
    Script bottom(Unsigned32BitInteger, {{V(5, 0xC80032), {{0, 1}}}});
    funcnode *trees[3] = {source(h, &top), source(h, &middle), source(h, &bottom)};
    const double t[3] = {0, 1, 0.5};
    funcnode *tree = nullptr;
    vln_colour::transparency_over(&tree, h.pe, 3, trees, t);
    h.build(tree, 5, PE_ALLOC_RECORDS);
    Line line = h.read();
    // 200 * 0.5 + 100 * 0.5 = 150, 0 -> 50, 50 -> 75.
    EXPECT_EQ(line.values, (V{0x96324B, 0x96324B, 0x646464, 0x7F010203, 0x646464}));
    // Surface 1 shows nothing of its own and still counts.
    EXPECT_EQ(line.runs, (Runs{{0, 3}}));
    EXPECT_EQ(h.pe->rlsegs.nr_used, 0);
}

TEST(ColourNodes, TransparencyWithNoSurfacesIsBackground)
{
    ColourHarness h(2);
    h.alg.background_colour[2] = 9;
    funcnode *tree = nullptr;
    vln_colour::transparency_over(&tree, h.pe, 0, nullptr, nullptr);
    h.build(tree, 2, PE_ALLOC_RECORDS);
    Line line = h.read();
    EXPECT_EQ(line.values, (V{9, 9}));
    EXPECT_TRUE(line.runs.empty());
}

}  // namespace
