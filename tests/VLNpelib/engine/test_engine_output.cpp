/* The output layouts end to end: a dataset's bands (order, cell type, where a
 * band's dataset covers part of the window, nothing to output), the twelve
 * buffer lines and their mask, packed-pixel lines with their run tables, the
 * per-surface heights, and the header of a dataset written from an
 * algorithm. */
#include <cstdlib>
#include <cstring>

#include "engine_fixture.h"
#include "vld_coords.h"
#include "vln_nodes.h"

namespace {

using eng::TempDir;

/* An 8-bit raster of `bands` bands whose cell value is value8(band, line, cell). */
uint8_t value8(int band, int line, int cell)
{
    return static_cast<uint8_t>(band * 50 + line * 3 + cell + 1);
}

std::string write_dataset8(const TempDir &dir, const std::string &stem, int cells, int lines,
                           int bands, double x, double y)
{
    std::string header = dir.file(stem + ".vld");
    dshdr *d = nullptr;
    df_raster_dshdr(&d, header.c_str(), cells, lines, bands, Unsigned8BitInteger);
    d->info.r.registration_coord.x = x;
    d->info.r.registration_coord.y = y;
    EXPECT_EQ(ep_dshdr(d, header.c_str()), 0);
    ef_dshdr(d);
    std::string bytes;
    for (int l = 0; l < lines; l++)
        for (int b = 0; b < bands; b++)
            for (int c = 0; c < cells; c++) bytes.push_back(static_cast<char>(value8(b, l, c)));
    std::ofstream(dir.file(stem), std::ios::binary) << bytes;
    return header;
}

struct Layer {
    const char *type;
    std::string dataset;
    int band = 1;
    std::string description = "Band";
    const char *extra = "";  // further lines of the stream
};

struct Surface {
    const char *mode;
    std::vector<Layer> layers;
};

struct Doc {
    int width = 20, height = 15;
    double tl_x = 0, tl_y = 0, br_x = 20, br_y = 15;
    const char *output_type = "Unsigned16BitInteger";
    std::string output_file;
    std::vector<Surface> surfaces;
};

std::string doc_text(const Doc &d)
{
    std::ostringstream o;
    o << "Algorithm Begin\n\tVersion = \"7.0\"\n\tName = \"output test\"\n"
      << "\tCoordinateSpace Begin\n\t\tDatum = \"RAW\"\n\t\tProjection = \"RAW\"\n"
         "\t\tCoordinateType = RAW\n\tCoordinateSpace End\n"
      << "\tTopLeftCorner Begin\n\t\tMetersX = " << d.tl_x << "\n\t\tMetersY = " << d.tl_y
      << "\n\tTopLeftCorner End\n\tBottomRightCorner Begin\n\t\tMetersX = " << d.br_x
      << "\n\t\tMetersY = " << d.br_y << "\n\tBottomRightCorner End\n"
      << "\tOutputWidth = " << d.width << "\n\tOutputHeight = " << d.height
      << "\n\tCanvasWidth = " << d.width << "\n\tCanvasHeight = " << d.height
      << "\n\tDotsPerInchAcross = 72\n\tDotsPerInchDown = 72\n"
      << "\tOutputType = " << d.output_type << "\n\tNullValue = 0\n";
    if (!d.output_file.empty()) o << "\tOutputFile = \"" << d.output_file << "\"\n";
    for (const Surface &s : d.surfaces) {
        o << "\tSurface Begin\n\t\tName = \"S\"\n\t\tColorMode = " << s.mode << "\n";
        for (const Layer &l : s.layers)
            o << "\t\tStream Begin\n\t\t\tType = " << l.type << "\n\t\t\tDescription = \""
              << l.description << "\"\n\t\t\tDataset = \"" << l.dataset << "\"\n"
              << l.extra
              << "\t\t\tStreamInput Begin\n\t\t\t\tStreamInputID = 1\n\t\t\tStreamInput End\n"
              << "\t\t\tFormula Begin\n\t\t\t\tFormula = \"INPUT1\"\n\t\t\t\tFormulaArg Begin\n"
                 "\t\t\t\t\tStreamInput = 1\n\t\t\t\t\tBandNumber = "
              << l.band << "\n\t\t\t\tFormulaArg End\n\t\t\tFormula End\n\t\tStream End\n";
        o << "\tSurface End\n";
    }
    o << "Algorithm End\n";
    return o.str();
}

enum Layout { DATASET_OUT, BUFFERS, PP_BUFFERS, MS_RGBH };

/* A document planned and built for a layout, as the opens do it. */
struct Open {
    algorithm *alg = nullptr;
    pe_context *pe = nullptr;
    Vds vds{};
    int status = -1;

    Open(const TempDir &dir, const Doc &doc, Layout layout = DATASET_OUT)
    {
        setenv("VORLAN", VORLAN_SHARE_DIR, 0);
        setenv("VLN_MACHINE_TYPE", "linux", 0);
        EXPECT_EQ(PE_initialise("engine tests"), 0);
        const std::string path = dir.file("out_test.alg");
        std::ofstream(path) << doc_text(doc);
        EXPECT_EQ(eg_algorithm_with_transients(&alg, path.c_str()), 0)
            << (VLD_error.text ? VLD_error.text : "");
        if (alg == nullptr) return;
        pe = pe_create_context();
        pe->vds = &vds;
        vds.context = pe;
        vds.algorithm = alg;
        pe->keep_height = layout != DATASET_OUT;
        pe->to_buffers = layout == BUFFERS || layout == PP_BUFFERS;
        pe->to_ppbuffers = layout == PP_BUFFERS;
        pe->to_ms_rgbh = layout == MS_RGBH;
        status = init_alg(pe, alg);
        if (status == 0) pe_start_trees(pe);
    }
    ~Open()
    {
        pe_destroy_context(pe);
        ef_algorithm(alg);
    }
    Open(const Open &) = delete;
    Open &operator=(const Open &) = delete;
    std::string error() const { return pe != nullptr ? pe->error_text : ""; }

    /* Runs `read` under the handle's failure target; its result, or 1. */
    template <class F>
    int guarded(F &&read)
    {
        int result = 1;
        if (!vln_pe::guarded(pe, [&] { result = read(pe->raster_root); })) return 1;
        return result;
    }
};

using Runs = std::vector<std::pair<int, int>>;

Runs runs_of(const rlseg *list)
{
    Runs runs;
    for (const rlseg *r = list; r != nullptr; r = r->next) runs.emplace_back(r->first, r->last);
    return runs;
}

/* ---------------------------------------------------------------- dataset */

struct TypeCase {
    const char *word;
    int type;
};

void PrintTo(const TypeCase &c, std::ostream *os)
{
    *os << c.word;
}

class EngineDatasetOutput : public ::testing::TestWithParam<TypeCase> {};

/* Bands come out in the order of the layers, whatever band of the dataset
 * each reads, converted to the output type; a layer whose dataset covers part
 * of the window has its runs, and the null value, in its own band alone. */
TEST_P(EngineDatasetOutput, BandsInLayerOrderInTheOutputType)
{
    const TypeCase &c = GetParam();
    TempDir dir;
    const std::string ds = eng::write_dataset(dir, "ds", 20, 15, 3);
    const std::string part = eng::write_dataset(dir, "part", 5, 4, 1, 10, 5);
    Doc doc;
    doc.output_type = c.word;
    doc.surfaces = {{"DATASET",
                     {{"Pseudo", ds, 3, "c"},
                      {"Pseudo", ds, 1, "a"},
                      {"Pseudo", part, 1, "p"},
                      {"Pseudo", ds, 2, "b"}}}};
    Open open(dir, doc);
    ASSERT_EQ(open.status, 0) << open.error();
    ASSERT_EQ(open.pe->raster_root->inputs[0].buffers->nr_buffers, 4);
    EXPECT_EQ(open.pe->raster_root->inputs[0].node->type, FN_DGROUPSTREAMS);
    const int size = celltypesize(c.type);
    std::vector<std::vector<char>> lines(4, std::vector<char>(20 * size));
    std::vector<void *> ptrs;
    for (auto &l : lines) ptrs.push_back(l.data());
    std::vector<rlseg *> runs(4, nullptr);
    const int source_band[4] = {2, 0, -1, 1};
    for (int y = 0; y < 15; y++) {
        ASSERT_EQ(pe_read_lines(open.pe, 0, ptrs.data(), runs.data()), 0) << open.error();
        for (int k = 0; k < 4; k++) {
            const bool partial = source_band[k] < 0;
            const bool inside = !partial || (y >= 5 && y < 9);
            EXPECT_EQ(
                runs_of(runs[k]),
                inside ? Runs{partial ? std::make_pair(10, 14) : std::make_pair(0, 19)} : Runs{})
                << "band " << k << ", line " << y;
            for (int x = 0; x < 20; x++) {
                double want = 0;  // the null value
                if (!partial)
                    want = eng::value16(source_band[k], y, x);
                else if (inside && x >= 10 && x < 15)
                    want = eng::value16(0, y - 5, x - 10);
                char cell[8];
                vln_pe::convtype1(want, c.type, cell);
                ASSERT_EQ(std::memcmp(cell, lines[k].data() + x * size, size), 0)
                    << "band " << k << ", cell " << x << ", line " << y;
            }
        }
    }
    EXPECT_EQ(pe_read_lines(open.pe, 0, ptrs.data(), runs.data()), -1);
    for (rlseg *r : runs) EXPECT_EQ(r, nullptr);
}

INSTANTIATE_TEST_SUITE_P(Types, EngineDatasetOutput,
                         ::testing::Values(TypeCase{"Unsigned8BitInteger", Unsigned8BitInteger},
                                           TypeCase{"Signed16BitInteger", Signed16BitInteger},
                                           TypeCase{"IEEE8ByteReal", IEEE8ByteReal}),
                         [](const auto &info) { return std::string(info.param.word); });

/* Layers that all drop out before the tree leave a dataset with no band. */
TEST(EngineDatasetOutputNothing, NoLayerLeftIsNothingToOutput)
{
    TempDir dir;
    const std::string far = eng::write_dataset(dir, "far", 5, 5, 1, 100, 100);
    const std::string ds = eng::write_dataset(dir, "ds", 20, 15, 1);
    const Layer annotated{"Pseudo", ds, 1, "a", "\t\t\tBeingAnnotated = Yes\n"};
    const std::vector<Layer> cases[] = {{{"Pseudo", far}}, {annotated}};
    for (const auto &layers : cases) {
        Doc doc;
        doc.surfaces = {{"DATASET", layers}};
        Open open(dir, doc);
        EXPECT_EQ(open.status, 1);
        EXPECT_EQ(open.error(), "Nothing to output to dataset - all overlays off or invisible\n");
        EXPECT_EQ(open.pe->raster_root, nullptr);
    }
}

/* ---------------------------------------------------------------- buffers */

/* A red layer over the whole window and a blue one over a part: each writes
 * its own line, and the mask marks which lines hold a value in each cell. */
TEST(EngineBuffersOutput, LinesByTypeAndTheMaskOfEach)
{
    TempDir dir;
    const std::string ds = write_dataset8(dir, "ds", 20, 15, 2, 0, 0);
    const std::string part = write_dataset8(dir, "part", 5, 4, 1, 10, 5);
    Doc doc;
    doc.surfaces = {{"RGB", {{"Red", ds, 2}, {"Blue", part, 1}}}};
    Open open(dir, doc, BUFFERS);
    ASSERT_EQ(open.status, 0) << open.error();
    std::vector<std::vector<uint8_t>> lines(12, std::vector<uint8_t>(20));
    std::vector<void *> ptrs;
    for (auto &l : lines) ptrs.push_back(l.data());
    for (int y = 0; y < 15; y++) {
        for (auto &l : lines) std::fill(l.begin(), l.end(), 0xEE);
        ASSERT_EQ(pe_read_lines(open.pe, 0, ptrs.data(), nullptr), 0) << open.error();
        for (int x = 0; x < 20; x++) {
            const bool blue = y >= 5 && y < 9 && x >= 10 && x < 15;
            EXPECT_EQ(lines[0][x], value8(1, y, x));
            if (blue) {
                EXPECT_EQ(lines[2][x], value8(0, y - 5, x - 10));
            }
            EXPECT_EQ(lines[8][x], blue ? 1 + 4 : 1) << "cell " << x << ", line " << y;
            for (int untouched : {1, 3, 4, 5, 6, 7, 9, 10, 11})
                EXPECT_EQ(lines[untouched][x], 0xEE) << "line " << untouched;
        }
    }
    EXPECT_EQ(pe_read_lines(open.pe, 0, ptrs.data(), nullptr), -1);
}

/* The same layers packed: a line through the blue part has cells of red
 * alone, then red and blue, then red alone again. A second surface whose
 * layer is not on the line packs no byte. */
TEST(EnginePackedOutput, RunTablePerSurface)
{
    TempDir dir;
    const std::string ds = write_dataset8(dir, "ds", 20, 15, 2, 0, 0);
    const std::string part = write_dataset8(dir, "part", 5, 4, 1, 10, 5);
    Doc doc;
    doc.surfaces = {{"RGB", {{"Red", ds, 2}, {"Blue", part, 1}}},
                    {"PSEUDO", {{"Pseudo", part, 1}}}};
    Open open(dir, doc, PP_BUFFERS);
    ASSERT_EQ(open.status, 0) << open.error();
    ASSERT_EQ(open.pe->raster_root->type, FN_VREADTOPP);
    std::vector<std::vector<uint8_t>> lines(2, std::vector<uint8_t>(20 * 16));
    void *ptrs[2] = {lines[0].data(), lines[1].data()};
    for (int y = 0; y < 15; y++) {
        // Every third read asks for no tables, and then nothing is packed.
        uint32_t *tables[2] = {nullptr, nullptr};
        uint32_t **asked = y % 3 == 2 ? nullptr : tables;
        for (auto &l : lines) std::fill(l.begin(), l.end(), 0xEE);
        ASSERT_EQ(
            open.guarded([&](funcnode *root) { return vreadtopp_read_lines(root, ptrs, asked); }),
            0)
            << open.error();
        const bool on = y >= 5 && y < 9;
        if (asked == nullptr) {
            EXPECT_EQ(lines[0][0], 0xEE);
            EXPECT_EQ(lines[1][0], 0xEE);
            continue;
        }
        if (on) {
            EXPECT_EQ(lines[0][10], value8(1, y, 10));
            EXPECT_EQ(lines[0][11], value8(0, y - 5, 0));
            EXPECT_EQ(lines[1][0], value8(0, y - 5, 0));
        }
        EXPECT_EQ(lines[1][on ? 5 : 0], 0xEE);
        ASSERT_NE(tables[0], nullptr);
        ASSERT_NE(tables[1], nullptr);
        std::vector<uint32_t> want0 = on ? std::vector<uint32_t>{0, 25, 1, 10, 5, 5, 1, 5, 0, 0}
                                         : std::vector<uint32_t>{0, 20, 1, 20, 0, 0};
        std::vector<uint32_t> want1 = on ? std::vector<uint32_t>{0, 5, 0, 10, 64, 5, 0, 5, 0, 0}
                                         : std::vector<uint32_t>{0, 0, 0, 20, 0, 0};
        EXPECT_EQ(std::vector<uint32_t>(tables[0], tables[0] + want0.size()), want0) << y;
        EXPECT_EQ(std::vector<uint32_t>(tables[1], tables[1] + want1.size()), want1) << y;
        std::free(tables[0]);
        std::free(tables[1]);
    }
    EXPECT_EQ(
        open.guarded([&](funcnode *root) { return vreadtopp_read_lines(root, ptrs, nullptr); }),
        -1);
}

/* ---------------------------------------------------------------- per surface */

/* Two surfaces of heights alone: no pixel line, a height line each, whose
 * runs go to the caller's entries 2 * s + 1; without height lines the read
 * still goes through. */
TEST(EngineSurfaceOutput, HeightsOfEachSurfaceToTheirOwnEntries)
{
    TempDir dir;
    const std::string ds = eng::write_dataset(dir, "ds", 20, 15, 1);
    const std::string part = eng::write_dataset(dir, "part", 5, 4, 1, 10, 5);
    Doc doc;
    doc.surfaces = {{"PSEUDO", {{"Height", ds, 1}}}, {"PSEUDO", {{"Height", part, 1}}}};
    Open open(dir, doc, MS_RGBH);
    ASSERT_EQ(open.status, 0) << open.error();
    ASSERT_EQ(open.pe->raster_root->type, FN_VREADTOMSRGBH);
    std::vector<uint32_t> rgb(20, 0xEEEEEEEE);
    std::vector<std::vector<float>> heights(2, std::vector<float>(20));
    void *rgb_lines[2] = {rgb.data(), rgb.data()};
    void *height_lines[2] = {heights[0].data(), heights[1].data()};
    rlseg *runs[4] = {};
    for (int y = 0; y < 15; y++) {
        void **given = y % 2 == 0 ? height_lines : nullptr;
        ASSERT_EQ(open.guarded([&](funcnode *root) {
            return vreadtomsrgbh_read_lines(root, rgb_lines, given, runs);
        }),
                  0)
            << open.error();
        const bool on = y >= 5 && y < 9;
        EXPECT_EQ(runs[0], nullptr);
        EXPECT_EQ(runs[2], nullptr);
        EXPECT_EQ(runs_of(runs[1]), (Runs{{0, 19}}));
        EXPECT_EQ(runs_of(runs[3]), on ? (Runs{{10, 14}}) : Runs{});
        if (given != nullptr) {
            EXPECT_EQ(heights[0][3], float(eng::value16(0, y, 3)));
            if (on) {
                EXPECT_EQ(heights[1][12], float(eng::value16(0, y - 5, 2)));
            }
        }
    }
    EXPECT_EQ(rgb, std::vector<uint32_t>(20, 0xEEEEEEEE));
    EXPECT_EQ(open.guarded([&](funcnode *root) {
        return vreadtomsrgbh_read_lines(root, rgb_lines, height_lines, runs);
    }),
              -1);
    for (rlseg *r : runs) EXPECT_EQ(r, nullptr);
}

/* ---------------------------------------------------------------- the written header */

/* A polygon region of cells (2, 2) to (6, 6) on the dataset's grid. */
void add_field_region(const std::string &header)
{
    dshdr *d = nullptr;
    ASSERT_EQ(eg_dshdr(&d, header.c_str()), 0);
    regioninfo *r = nullptr;
    ea_regioninfo(&r);
    r->type = REGION_POLYGON;
    r->name = strsave("Field");
    auto *sub = static_cast<subregion *>(malloc_or_die(sizeof(subregion)));
    *sub = {nullptr, nullptr};
    const double xy[] = {2, 2, 2, 6, 6, 6, 6, 2};
    VLD_POINTNODE **tail = &sub->points;
    for (int i = 0; i < 4; i++, tail = &(*tail)->next) {
        *tail = static_cast<VLD_POINTNODE *>(malloc_or_die(sizeof(VLD_POINTNODE)));
        **tail = {nullptr, xy[2 * i], xy[2 * i + 1]};
    }
    r->subregions = sub;
    regioninfo **at = &d->info.r.regions;
    while (*at != nullptr) at = &(*at)->next;
    *at = r;
    ASSERT_EQ(ep_dshdr(d, header.c_str()), 0);
    ef_dshdr(d);
}

TEST(EngineOutputHeader, DescribesTheWindowAndItsBands)
{
    TempDir dir;
    const std::string ds = eng::write_dataset(dir, "ds", 20, 15, 2);
    add_field_region(ds);
    Doc doc;
    doc.width = 32, doc.height = 24;
    doc.tl_x = 4, doc.tl_y = 3;
    doc.output_type = "IEEE4ByteReal";
    doc.output_file = dir.file("out.vld");
    doc.surfaces = {{"DATASET", {{"Pseudo", ds, 2, "second"}, {"Pseudo", ds, 1, "first"}}}};
    Open open(dir, doc);
    ASSERT_EQ(open.status, 0) << open.error();

    // A mapped handle describes the handle inside it.
    Vds mapped{};
    mapped.inner_vds = &open.vds;
    for (Vds *handle : {&open.vds, &mapped}) {
        dshdr *dsh = nullptr;
        char *errmsg = nullptr;
        ASSERT_EQ(PE_setup_output_dsh(handle, &dsh, &errmsg), 1) << (errmsg ? errmsg : "");
        EXPECT_EQ(errmsg, nullptr);
        const rasterinfo &r = dsh->info.r;
        EXPECT_EQ(std::string(dsh->data_file), dir.file("out"));
        EXPECT_EQ(dsh->data_type, DT_Raster);
        EXPECT_EQ(r.cell_type, IEEE4ByteReal);
        EXPECT_EQ(r.nr_cells, 32);
        EXPECT_EQ(r.nr_lines, 24);
        EXPECT_DOUBLE_EQ(r.cellinfo.x_dimension, 0.5);
        EXPECT_DOUBLE_EQ(r.cellinfo.y_dimension, 0.5);
        EXPECT_DOUBLE_EQ(r.registration_coord.x, 4);
        EXPECT_DOUBLE_EQ(r.registration_coord.y, 3);
        EXPECT_EQ(r.has_null, 1);
        ASSERT_EQ(r.nr_bands, 2);
        EXPECT_STREQ(r.bandids[0].value, "second");
        EXPECT_STREQ(r.bandids[1].value, "first");
        // The whole image first, named after the output, then the field on
        // the new grid: dataset cell (2, 2) is coordinate (2, 2), which is
        // cell (-4, -2) of a grid of half cells from (4, 3).
        ASSERT_NE(r.regions, nullptr);
        EXPECT_STREQ(r.regions->name, "out");
        ASSERT_NE(r.regions->next, nullptr);
        const regioninfo *field = r.regions->next;
        EXPECT_STREQ(field->name, "Field");
        ASSERT_NE(field->subregions, nullptr);
        std::vector<double> points;
        for (const VLD_POINTNODE *p = field->subregions->points; p != nullptr; p = p->next)
            points.insert(points.end(), {p->x, p->y});
        EXPECT_EQ(points, (std::vector<double>{-4, -2, -4, 6, 4, 6, 4, -2}));
        EXPECT_EQ(field->next, nullptr);
        ef_dshdr(dsh);
    }
}

TEST(EngineOutputHeader, NoOutputFileIsAnError)
{
    TempDir dir;
    const std::string ds = eng::write_dataset(dir, "ds", 20, 15, 1);
    Doc doc;
    doc.surfaces = {{"DATASET", {{"Pseudo", ds}}}};
    Open open(dir, doc);
    ASSERT_EQ(open.status, 0) << open.error();
    dshdr sentinel{};
    dshdr *dsh = &sentinel;
    char *errmsg = nullptr;
    EXPECT_EQ(PE_setup_output_dsh(&open.vds, &dsh, &errmsg), 0);
    EXPECT_EQ(dsh, nullptr);
    ASSERT_NE(errmsg, nullptr);
    EXPECT_STREQ(errmsg, "Algorithm output dataset header file specification is NULL");
    safe_free(errmsg);
}

/* Classification layers become class regions numbered in layer order, and an
 * existing class of the same name is updated; with classes the whole image
 * keeps the name "All". */
TEST(EngineOutputHeader, ClassLayersBecomeClassRegions)
{
    TempDir dir;
    const std::string ds = eng::write_dataset(dir, "ds", 20, 15, 1);
    Doc doc;
    const char *blue =
        "\t\t\tRGBcolour Begin\n\t\t\t\tRed = 0\n\t\t\t\tGreen = 0\n"
        "\t\t\t\tBlue = 65535\n\t\t\tRGBcolour End\n";
    doc.surfaces = {{"PSEUDO",
                     {{"Classification", ds, 1, "water", blue},
                      {"Classification", ds, 1, "forest"},
                      {"Pseudo", ds, 1, "off", "\t\t\tTurnedOff = Yes\n"},
                      {"Classification", ds, 1, "rock", "\t\t\tTurnedOff = Yes\n"}}}};
    const std::string path = dir.file("classes.alg");
    std::ofstream(path) << doc_text(doc);
    algorithm *alg = nullptr;
    ASSERT_EQ(eg_algorithm_with_transients(&alg, path.c_str()), 0);
    dshdr *dsh = nullptr;
    df_raster_dshdr(&dsh, dir.file("out.vld").c_str(), 20, 15, 1, Unsigned8BitInteger);
    regioninfo *old = nullptr;
    ea_regioninfo(&old);
    old->type = REGION_CLASS;
    old->name = strsave("forest");
    old->class_number = 9;
    dsh->info.r.regions = old;

    ASSERT_EQ(VLD_setup_dsh_ri_from_alg(dsh, alg), 0);
    std::vector<std::string> names;
    for (const regioninfo *r = dsh->info.r.regions; r != nullptr; r = r->next)
        names.emplace_back(r->name);
    EXPECT_EQ(names, (std::vector<std::string>{"All", "forest", "water"}));
    const regioninfo *forest = dsh->info.r.regions->next;
    const regioninfo *water = forest->next;
    EXPECT_EQ(forest->class_number, 2);
    EXPECT_EQ(water->class_number, 1);
    EXPECT_EQ(water->type, REGION_CLASS);
    EXPECT_EQ(water->colour.blue, 65535);
    EXPECT_EQ(water->colour.red, 0);
    EXPECT_EQ(std::string(water->source_dataset), ds);
    ef_dshdr(dsh);
    ef_algorithm(alg);
}

}  // namespace
