// The merge node kinds over scripted sources: which layer's cells land in
// the merged line (overlay), the blend across an overlap in each placement of
// a stream against the layers above it (feather), the lowest-value rule and
// the counters of a classification, class colours over what lies below, and
// vector layers read from a child program.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <fstream>
#include <string>
#include <vector>

#include "node_harness.h"
#include "vld_dshdr.h"
#include "vln_path.h"

namespace {

using node_test::Harness;
using node_test::Line;
using node_test::Runs;
using node_test::Script;

/* ---------------------------------------------------------------- a group on one line */

/* One stream of a merge: its extent in image cells and its scripted line. */
struct Layer {
    int left, right;  // [left, right)
    double value;     // every cell of the extent
    bool no_dataset = false;
};

/* A group of streams over scripted sources, each paired with a dataset
 * record that gives its extent. Layers are listed in group order. */
class MergeRig {
   public:
    MergeRig(Harness &h, const std::vector<Layer> &layers, int mosaic, int cell_type, int width,
             int group_type = ST_PE_DatasetBand, int surface_mode = CM_DATASET,
             const std::vector<Script> *given = nullptr)
        : h_(h)
    {
        alg_.mosaic_type = mosaic;
        h.pe->alg = &alg_;
        modes_[0] = surface_mode;
        h.pe->surface_modes = modes_;
        h.pe->nr_cells = width;
        streams_.resize(layers.size());
        for (size_t i = 0; i < layers.size(); i++) {
            streams_[i].next = i + 1 < layers.size() ? &streams_[i + 1] : nullptr;
            streams_[i].type = group_type;
        }
        group_.type = group_type;
        group_.count = static_cast<int>(layers.size());
        group_.streams = &streams_[0];
        // Newest dataset first: the last layer's dataset heads the list.
        for (const Layer &layer : layers) {
            auto *d = static_cast<dsinput *>(pe_malloc(h.pe, sizeof(dsinput)));
            d->out_first_cell = layer.left;
            d->inv_step_x = 1.0;
            d->no_dataset = layer.no_dataset;
            ea_dshdr(&d->dsh);
            d->dsh->info.r.nr_cells = layer.right - layer.left;
            d->next = h.pe->dsinputs;
            h.pe->dsinputs = d;
        }
        node = new_mergestreams_node(h.pe, &group_, width);
        if (given != nullptr) scripts_ = *given;
        for (size_t i = 0; i < layers.size() && given == nullptr; i++) {
            const Layer &l = layers[i];
            std::vector<double> values(static_cast<size_t>(width), 0.0);
            const int first = std::max(l.left, 0), last = std::min(l.right, width) - 1;
            for (int x = first; x <= last; x++) values[static_cast<size_t>(x)] = l.value;
            scripts_.emplace_back(cell_type, std::vector<node_test::ScriptLine>{{values, {}}});
            if (last >= first) scripts_.back().lines[0].runs = {{first, last}};
        }
        for (size_t i = 0; i < layers.size(); i++)
            node->inputs[i].node = node_test::make_source(h.pe, &scripts_[i]);
        h.build(node, width, PE_ALLOC_RECORDS);
    }
    ~MergeRig() { h_.pe->alg = nullptr; }

    int reads(size_t i) const { return scripts_[i].reads; }
    funcnode *node = nullptr;

   private:
    Harness &h_;
    algorithm alg_{};
    int32_t modes_[1] = {0};
    std::vector<pe_stream> streams_;
    pe_streamgroup group_{};
    std::vector<Script> scripts_;  // sized once: the sources keep pointers
};

/* The value every cell gets under overlay: the last layer of the list that
 * holds the cell. */
TEST(NodesMerge, OverlayKeepsTheLastLayerOfTheListWhereItIsValid)
{
    Harness h;
    const std::vector<Layer> layers = {{0, 6, 10}, {4, 9, 20}, {2, 5, 30}};
    MergeRig rig(h, layers, MT_Overlay, Unsigned8BitInteger, 10);
    for (int pass = 0; pass < 2; pass++) {
        Line line = h.read();
        std::vector<double> expected(10, -1);
        for (int x = 0; x < 10; x++)
            for (const Layer &l : layers)
                if (x >= l.left && x < l.right) expected[static_cast<size_t>(x)] = l.value;
        for (int x = 0; x < 9; x++) EXPECT_EQ(line.values[x], expected[x]) << "cell " << x;
        EXPECT_EQ(line.runs, (Runs{{0, 8}}));
    }
    for (size_t i = 0; i < layers.size(); i++) EXPECT_EQ(rig.reads(i), 2);
}

/* Stream 0 (A = 0) lies below stream 1 (B = 80), whose extent is the covered
 * one. Expected cells are worked out by hand from the weights. */
struct FeatherRow {
    const char *name;
    Layer below, above;
    std::vector<double> cells;  // cells 0 to 9; -1 where neither layer is valid
};

TEST(NodesMerge, FeatherBlendsTheOverlapByThePlacementOfTheStream)
{
    const double n = -1;
    const FeatherRow rows[] = {
        {"same extent", {2, 6, 0}, {2, 6, 80}, {n, n, 40, 40, 40, 40, n, n, n, n}},
        // W 3, D 8: half and half at the common end.
        {"left end common, stream goes on",
         {2, 8, 0},
         {2, 5, 80},
         {n, n, 40, 30, 20, 0, 0, 0, n, n}},
        {"left end common, stream ends inside",
         {2, 5, 0},
         {2, 8, 80},
         {n, n, 40, 50, 60, 80, 80, 80, n, n}},
        {"right end common, stream goes on",
         {1, 7, 0},
         {4, 7, 80},
         {n, 0, 0, 0, 20, 30, 40, n, n, n}},
        {"right end common, stream ends inside",
         {4, 7, 0},
         {1, 7, 80},
         {n, 80, 80, 80, 60, 50, 40, n, n, n}},
        // W 4, D 5.
        {"stream inside the covered extent",
         {3, 7, 0},
         {0, 10, 80},
         {80, 80, 80, 64, 48, 32, 64, 80, 80, 80}},
        {"covered extent inside the stream",
         {0, 10, 0},
         {3, 7, 80},
         {0, 0, 0, 16, 32, 48, 16, 0, 0, 0}},
        // W 3, D 4: a plain cross-fade.
        {"stream to the right", {3, 10, 0}, {0, 6, 80}, {80, 80, 80, 60, 40, 20, 0, 0, 0, 0}},
        {"stream to the left", {0, 7, 0}, {4, 10, 80}, {0, 0, 0, 0, 20, 40, 60, 80, 80, 80}},
    };
    for (const FeatherRow &row : rows) {
        SCOPED_TRACE(row.name);
        Harness h;
        MergeRig rig(h, {row.below, row.above}, MT_Feather, IEEE8ByteReal, 10);
        Line line = h.read();
        for (int x = 0; x < 10; x++) {
            if (row.cells[x] >= 0) {
                EXPECT_DOUBLE_EQ(line.values[x], row.cells[x]) << "cell " << x;
            }
        }
    }
}

TEST(NodesMerge, FeatherWeightsSumToOneInEveryPlacement)
{
    // Equal values must come through unchanged, wherever the stream lies.
    const int extents[][4] = {{2, 6, 2, 6},  {2, 8, 2, 5},  {2, 5, 2, 8},
                              {1, 7, 4, 7},  {4, 7, 1, 7},  {3, 7, 0, 10},
                              {0, 10, 3, 7}, {3, 10, 0, 6}, {0, 7, 4, 10}};
    for (const auto &e : extents) {
        const int first = std::max(e[0], e[2]);
        const int w = std::min(e[1], e[3]) - first;
        for (int k = 0; k < w; k++)
            EXPECT_DOUBLE_EQ(feather_value(e[0], e[1], e[2], e[3], k, 57.0, 57.0), 57.0)
                << e[0] << " " << e[1] << " " << e[2] << " " << e[3] << " k " << k;
    }
}

TEST(NodesMerge, FeatheredCellsAreStoredByTheRulesOfTheOutputType)
{
    struct Row {
        int type;
        double a, b, expected;
    };
    const Row rows[] = {
        {Unsigned8BitInteger, 0, 81, 41},  // 40.5 rounds up
        {Signed16BitInteger, -1, -2, -2},  // -1.5 rounds away from zero
        {Signed16BitInteger, 1, 2, 2},
        {IEEE4ByteReal, -1, -2, -1.5},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.type);
        Harness h;
        MergeRig rig(h, {{0, 4, row.a}, {0, 4, row.b}}, MT_Feather, row.type, 4);
        EXPECT_EQ(h.read().values[1], row.expected);
    }
}

TEST(NodesMerge, NoBlendUnderOverlayOrOverAFormulaWithoutDataset)
{
    struct Row {
        int mosaic;
        bool no_dataset;
    };
    for (const Row row : {Row{MT_Overlay, false}, Row{MT_Feather, true}}) {
        Harness h;
        MergeRig rig(h, {{0, 6, 0, row.no_dataset}, {2, 8, 80}}, row.mosaic, IEEE8ByteReal, 8);
        Line line = h.read();
        EXPECT_EQ(line.values, (std::vector<double>{0, 0, 80, 80, 80, 80, 80, 80}));
    }
}

/* Kept pairing: streams take the datasets by position, newest first, and the
 * last dataset serves every stream past the end of the list. */
TEST(NodesMerge, StreamsPastTheDatasetListShareTheLastDataset)
{
    Harness h;
    MergeRig rig(h, {{0, 6, 0}, {2, 8, 80}}, MT_Feather, IEEE8ByteReal, 8);
    // Drop the older dataset: both streams now meet the newer one's extent
    // [2, 8), the case of both ends common, where their own extents would
    // give a cross-fade (32 at cell 3).
    dsinput *older = h.pe->dsinputs->next;
    h.pe->dsinputs->next = nullptr;
    EXPECT_EQ(h.read().values[3], 40);
    ef_dshdr(older->dsh);
}

/* ---------------------------------------------------------------- classification */

TEST(NodesMerge, ClassificationGivesTheLowestStreamAndCountsItsCells)
{
    for (const bool dataset : {false, true}) {
        SCOPED_TRACE(dataset);
        Harness h;
        // Distances of three classes; cell 7 is in no stream.
        std::vector<Script> scripts = {
            Script{IEEE8ByteReal, {{{5, 1, 9, 4, 4, 0, 0, 0}, {{0, 4}}}}},
            Script{IEEE8ByteReal, {{{2, 2, 3, 4, 0, 3, 0, 0}, {{0, 5}}}}},
            Script{IEEE8ByteReal, {{{7, 1, 3, 1, 0, 0, 6, 0}, {{1, 3}, {6, 6}}}}},
        };
        MergeRig rig(h, {{0, 8, 0}, {0, 8, 0}, {0, 8, 0}}, MT_Overlay, IEEE8ByteReal, 8,
                     ST_Classification, dataset ? CM_DATASET : CM_RGB, &scripts);
        // Ties go to the stream nearer the head of the list (cell 2).
        const std::vector<double> classes = {1, 0, 1, 2, 1, 1, 2};
        for (int pass = 0; pass < 2; pass++) {
            Line line = h.read();
            for (int x = 0; x < 7; x++)
                EXPECT_EQ(line.values[x], classes[x] + (dataset ? 1 : 0)) << "cell " << x;
            EXPECT_EQ(line.runs, (Runs{{0, 6}}));
        }
        int count = 0;
        const int64_t *counters = merge_class_counters(rig.node, &count);
        ASSERT_EQ(count, 3);
        EXPECT_EQ(counters[0], 2);
        EXPECT_EQ(counters[1], 8);
        EXPECT_EQ(counters[2], 4);
    }
}

/* ---------------------------------------------------------------- class colours */

/* A class merge over scripted lines: below (optional) and class numbers. */
struct ClassRig {
    ClassRig(Harness &h, int type, int output_type, int colour_layers, bool with_below,
             int nr_streams)
    {
        alg.background_colour[0] = 1;
        alg.background_colour[1] = 2;
        alg.background_colour[2] = 3;
        alg.null_colour = 9;
        h.pe->alg = &alg;
        h.pe->nr_cells = 6;
        docs.resize(static_cast<size_t>(nr_streams));
        streams.resize(static_cast<size_t>(nr_streams));
        for (int i = 0; i < nr_streams; i++) {
            streams[i].stream = &docs[i];
            streams[i].next = i + 1 < nr_streams ? &streams[i + 1] : nullptr;
            docs[i].class_colour = {0x1100 * (i + 1), 0x2200 * (i + 1), 0x3300 * (i + 1)};
            docs[i].class_colour8 = static_cast<uint8_t>(100 + i);
        }
        group.count = nr_streams;
        group.streams = &streams[0];
        funcnode *slot = nullptr;
        below = Script{output_type, {{{50, 51, 52, 53, 54, 55}, {{0, 1}}}}};
        if (with_below) slot = node_test::make_source(h.pe, &below);
        node = new_class_merge_node(&slot, h.pe, type, output_type, colour_layers, &group,
                                    type == FN_CMERGE ? 1 : nr_streams);
        classes.reserve(4);
        for (int i = 0; i < (type == FN_CMERGE ? 1 : nr_streams); i++) {
            classes.push_back(Script{Unsigned8BitInteger, {{{0, 0, 1, 0, 3, 4}, {{2, 4}}}}});
            class_merge_input(node, i)->node = node_test::make_source(h.pe, &classes.back());
        }
        h.build(node, 6, PE_ALLOC_RECORDS);
    }
    algorithm alg{};
    std::vector<stream> docs;
    std::vector<pe_stream> streams;
    pe_streamgroup group{};
    Script below;
    std::vector<Script> classes;
    funcnode *node = nullptr;
};

uint32_t pixel(int r, int g, int b)
{
    return static_cast<uint32_t>(r) << 16 | static_cast<uint32_t>(g) << 8 |
           static_cast<uint32_t>(b);
}

TEST(NodesClassMerge, ClassColoursPaintOverWhatLiesBelow)
{
    struct Row {
        const char *name;
        int output_type;
        bool below;
        std::vector<double> cells;
    };
    // Class 0 is the first stream's colour, class 1 the second's; cells 2 to
    // 4 hold classes 1, 0 and 3 (no such stream: the background).
    const uint32_t bg = pixel(1, 2, 3);
    const Row rows[] = {
        {"8-bit over below", Unsigned8BitInteger, true, {50, 51, 101, 100, 9, 55}},
        {"32-bit over below",
         Unsigned32BitInteger,
         true,
         {50, 51, double(pixel(0x22, 0x44, 0x66)), double(pixel(0x11, 0x22, 0x33)), double(bg),
          55}},
        {"32-bit over the background",
         Unsigned32BitInteger,
         false,
         {double(bg), double(bg), double(pixel(0x22, 0x44, 0x66)), double(pixel(0x11, 0x22, 0x33)),
          double(bg), double(bg)}},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.name);
        Harness h;
        ClassRig rig(h, FN_CMERGE, row.output_type, 1, row.below, 2);
        Line line = h.read();
        EXPECT_EQ(line.values, row.cells);
        EXPECT_EQ(line.runs, row.below ? (Runs{{0, 4}}) : (Runs{{2, 4}}));
        h.pe->alg = nullptr;
    }
}

TEST(NodesClassMerge, DisplayClassesTakeTheColoursOfTheStreamsDataset)
{
    Harness h;
    dshdr *dsh = nullptr;
    df_raster_dshdr(&dsh, "classes.vld", 6, 1, 1, Unsigned8BitInteger);
    const int numbers[] = {3, 300};  // a number past the table is left out
    for (int number : numbers) {
        regioninfo *r = nullptr;
        ea_regioninfo(&r);
        r->type = REGION_CLASS;
        r->class_number = number;
        r->colour = {0xAB00, 0xCD00, 0xEF00};
        r->next = dsh->info.r.regions;
        dsh->info.r.regions = r;
    }
    h.pe->nr_cells = 6;
    {
        // Built by hand: the stream's header must exist before init.
        algorithm alg{};
        stream doc{};
        doc.dshdr = dsh;
        pe_stream ps{};
        ps.stream = &doc;
        pe_streamgroup group{};
        group.count = 1;
        group.streams = &ps;
        h.pe->alg = &alg;
        funcnode *slot = nullptr;
        funcnode *node =
            new_class_merge_node(&slot, h.pe, FN_CDMERGE, Unsigned32BitInteger, 1, &group, 1);
        Script classes{Unsigned8BitInteger, {{{0, 0, 3, 0, 4, 3}, {{2, 2}, {4, 5}}}}};
        class_merge_input(node, 0)->node = node_test::make_source(h.pe, &classes);
        h.build(node, 6, PE_ALLOC_RECORDS);
        Line line = h.read();
        const double bg = 0, colour = pixel(0xAB, 0xCD, 0xEF);
        EXPECT_EQ(line.values, (std::vector<double>{bg, bg, colour, bg, bg, colour}));
        EXPECT_EQ(line.runs, (Runs{{2, 2}, {4, 5}}));
        h.pe->alg = nullptr;
    }
    ef_dshdr(dsh);
}

/* ---------------------------------------------------------------- vector layers */

class PsMergeTest : public ::testing::Test {
   protected:
    void SetUp() override
    {
        char pattern[] = "/tmp/vln_psmerge_XXXXXX";
        dir_ = mkdtemp(pattern);
    }
    void TearDown() override { vln_rmrfdir(dir_.c_str()); }

    /* A drawing program: a shell script with `body`. */
    std::string program(const std::string &body)
    {
        std::string path = dir_ + "/vlnps_test";
        std::ofstream(path) << "#!/bin/sh\n" << body;
        chmod(path.c_str(), 0755);
        return path;
    }

    /* A vector group drawn by `path` into an 8-bit line of 4 cells. */
    funcnode *build(Harness &h, const std::string &path)
    {
        h.pe->nr_cells = 4;
        h.pe->nr_lines = 2;
        program_path_ = path;
        doc_.filter_program_name = program_path_.data();
        ps_.stream = &doc_;
        group_.count = 1;
        group_.streams = &ps_;
        funcnode *slot = nullptr;
        setup_psmergenode(&slot, h.pe, PV_AfterRasterOkay, Unsigned8BitInteger, 1, nullptr, nullptr,
                          nullptr, &group_);
        return slot;
    }

    std::string dir_;
    std::string program_path_;
    stream doc_{};
    pe_stream ps_{};
    pe_streamgroup group_{};
};

TEST_F(PsMergeTest, DrawnCellsComeFromTheProgramAndItsEndFailsTheRead)
{
    Harness h;
    funcnode *node = build(h, program("printf 'header line\\n'\nprintf '\\000\\007\\007\\000'\n"
                                      "printf '\\003\\000\\000\\000'\n"));
    ASSERT_TRUE(vln_pe::guarded(h.pe, [&] { h.build(node, 4, PE_ALLOC_RECORDS); }))
        << h.pe->error_text;
    Line line;
    ASSERT_TRUE(vln_pe::guarded(h.pe, [&] { line = h.read(); })) << h.pe->error_text;
    EXPECT_EQ(line.values, (std::vector<double>{0, 7, 7, 0}));
    EXPECT_EQ(line.runs, (Runs{{1, 2}}));
    ASSERT_TRUE(vln_pe::guarded(h.pe, [&] { line = h.read(); })) << h.pe->error_text;
    EXPECT_EQ(line.runs, (Runs{{0, 0}}));
    EXPECT_FALSE(vln_pe::guarded(h.pe, [&] { h.read(); }));
    EXPECT_STREQ(h.pe->error_text, "Read 0 bytes from PostScript conversion program");
}

TEST_F(PsMergeTest, AMissingProgramFailsTheOpen)
{
    Harness h;
    const std::string missing = dir_ + "/vlnps_none";
    funcnode *node = build(h, missing);
    EXPECT_FALSE(vln_pe::guarded(h.pe, [&] { h.build(node, 4, PE_ALLOC_RECORDS); }));
    EXPECT_NE(std::string(h.pe->error_text).find("Cannot run vector drawing program " + missing),
              std::string::npos)
        << h.pe->error_text;
}

TEST_F(PsMergeTest, CloseEndsAProgramThatIsStillRunning)
{
    const auto start = std::chrono::steady_clock::now();
    {
        Harness h;
        funcnode *node = build(h, program("printf 'h\\n\\001\\001\\001\\001'\nexec sleep 30\n"));
        ASSERT_TRUE(vln_pe::guarded(h.pe, [&] { h.build(node, 4, PE_ALLOC_RECORDS); }))
            << h.pe->error_text;
        ASSERT_TRUE(vln_pe::guarded(h.pe, [&] { h.read(); })) << h.pe->error_text;
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
}

}  // namespace
