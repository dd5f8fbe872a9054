// Mosaics end to end: two datasets that share a band name on a DATASET
// surface are merged into one band, by overlay and by feathering, and the
// lines read through the root are checked against values worked out here
// from the datasets' cells.
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <string>
#include <vector>

#include "engine_fixture.h"

namespace {

using eng::AlgDoc;
using eng::TempDir;

/* The fixture's algorithm with a mosaic type, opened and started. */
struct MosaicOpen {
    algorithm *alg = nullptr;
    pe_context *pe = nullptr;
    int status = -1;

    MosaicOpen(const TempDir &dir, const AlgDoc &doc, const char *mosaic)
    {
        setenv("VORLAN", VORLAN_SHARE_DIR, 0);
        setenv("VLN_MACHINE_TYPE", "linux", 0);
        EXPECT_EQ(PE_initialise("engine tests"), 0);
        std::string text = eng::alg_text(doc);
        const std::string anchor = "\tOutputWidth";
        text.insert(text.find(anchor), std::string("\tMosaicType = ") + mosaic + "\n");
        const std::string path = dir.file("mosaic.alg");
        std::ofstream(path) << text;
        EXPECT_EQ(eg_algorithm_with_transients(&alg, path.c_str()), 0);
        if (alg == nullptr) return;
        pe = pe_create_context();
        status = init_alg(pe, alg);
        if (status == 0) pe_start_trees(pe);
    }
    ~MosaicOpen()
    {
        pe_destroy_context(pe);
        ef_algorithm(alg);
    }
    MosaicOpen(const MosaicOpen &) = delete;
    MosaicOpen &operator=(const MosaicOpen &) = delete;

    /* One line of the single band, and its runs. */
    std::vector<uint16_t> read(std::vector<std::pair<int, int>> *runs = nullptr)
    {
        std::vector<uint16_t> line(static_cast<size_t>(pe->nr_cells));
        void *ptr = line.data();
        rlseg *list = nullptr;
        EXPECT_EQ(pe_read_lines(pe, 0, &ptr, &list), 0) << pe->error_text;
        if (runs != nullptr)
            for (rlseg *r = list; r != nullptr; r = r->next) runs->emplace_back(r->first, r->last);
        pe_free_rlseg_list(pe, &list);
        return line;
    }
};

uint16_t round16(double r)
{
    return static_cast<uint16_t>(std::floor(r + 0.5));
}

/* "left" covers image cells 0 to 5, "right" cells 4 to 9; right is listed
 * last, so it is the top layer. */
AlgDoc side_by_side(const TempDir &dir)
{
    AlgDoc doc{0, 0, 10, 3, 10, 3, false, Unsigned16BitInteger, {}};
    doc.streams.push_back({eng::write_dataset(dir, "left", 6, 3, 1, 0, 0), 1, "Band"});
    doc.streams.push_back({eng::write_dataset(dir, "right", 6, 3, 1, 4, 0), 1, "Band"});
    return doc;
}

TEST(EngineMerge, OverlayShowsTheLastStreamWhereItIsValid)
{
    TempDir dir;
    MosaicOpen open(dir, side_by_side(dir), "Overlay");
    ASSERT_EQ(open.status, 0) << open.pe->error_text;
    // The dataset's one band: a merge under the band's null conversion.
    funcnode *bands = open.pe->raster_root->inputs[0].node;
    ASSERT_EQ(bands->type, FN_DGROUPSTREAMS);
    funcnode *top = bands->inputs[0].node;
    ASSERT_EQ(top->type, FN_NULLCONV);
    EXPECT_EQ(top->inputs[0].node->type, FN_MERGESTREAMS);
    for (int y = 0; y < 3; y++) {
        std::vector<std::pair<int, int>> runs;
        std::vector<uint16_t> line = open.read(&runs);
        for (int x = 0; x < 10; x++) {
            const uint16_t expected = x < 4 ? eng::value16(0, y, x) : eng::value16(0, y, x - 4);
            EXPECT_EQ(line[x], expected) << "line " << y << " cell " << x;
        }
        EXPECT_EQ(runs, (std::vector<std::pair<int, int>>{{0, 9}}));
    }
}

TEST(EngineMerge, FeatherCrossFadesTheOverlapOfTwoDatasets)
{
    TempDir dir;
    MosaicOpen open(dir, side_by_side(dir), "Feather");
    ASSERT_EQ(open.status, 0) << open.pe->error_text;
    for (int y = 0; y < 3; y++) {
        std::vector<uint16_t> line = open.read();
        // The overlap is cells 4 and 5: two cells, thirds of the way from the
        // lower layer (left) to the top one (right).
        auto left = [&](int x) { return double(eng::value16(0, y, x)); };
        auto right = [&](int x) { return double(eng::value16(0, y, x - 4)); };
        for (int x = 0; x < 4; x++) EXPECT_EQ(line[x], eng::value16(0, y, x));
        EXPECT_EQ(line[4], round16(left(4) * 2 / 3 + right(4) / 3)) << "line " << y;
        EXPECT_EQ(line[5], round16(left(5) / 3 + right(5) * 2 / 3)) << "line " << y;
        for (int x = 6; x < 10; x++) EXPECT_EQ(line[x], eng::value16(0, y, x - 4));
    }
}

TEST(EngineMerge, FeatherOfTwoBandsOfOneDatasetAverages)
{
    // Both streams read the one dataset: the second stream stays on the one
    // dataset record, and both extents are the same.
    TempDir dir;
    std::string ds = eng::write_dataset(dir, "two", 5, 2, 2);
    AlgDoc doc{0, 0, 5, 2, 5, 2, false, Unsigned16BitInteger, {{ds, 1, "Band"}, {ds, 2, "Band"}}};
    MosaicOpen open(dir, doc, "Feather");
    ASSERT_EQ(open.status, 0) << open.pe->error_text;
    for (int y = 0; y < 2; y++) {
        std::vector<uint16_t> line = open.read();
        for (int x = 0; x < 5; x++) {
            const double a = eng::value16(0, y, x), b = eng::value16(1, y, x);
            EXPECT_EQ(line[x], round16((a + b) * 0.5)) << "line " << y << " cell " << x;
        }
    }
}

}  // namespace
