// Requests at the edges of the 32-bit fields of the raster handles: band
// numbers near the largest int, and lines whose byte counts pass what a
// handle's fields can hold. Each must fail with its row and a text that names
// the real number, never wrap into a read of other cells.
#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

#include "raster_fixture.h"

using ras::Dataset;

namespace {

// Band strings as the caller wrote them, however large.
struct Texts {
    std::vector<std::string> texts;
    std::vector<char *> ptrs;
    Texts(std::initializer_list<const char *> list)
    {
        for (const char *t : list) texts.emplace_back(t);
        for (auto &t : texts) ptrs.push_back(t.data());
    }
    char **data() { return ptrs.data(); }
};

}  // namespace

TEST(RasterLimits, BandNumbersNearTheLargestIntAreRefusedByNumber)
{
    ras::TempDir dir;
    Dataset ds;
    ds.write(dir, "img");
    struct Case {
        int mode;
        std::initializer_list<const char *> bands;
        const char *text;
    } cases[] = {
        {RASTER_BAND_LIST, {"2147483648"}, "Band 2147483648 not in dataset (3 bands)"},
        {RASTER_BAND_LIST, {"1", "99999999999"}, "Band 99999999999 not in dataset (3 bands)"},
        {RASTER_BAND_RANGE, {"2147483647"}, "Band 2147483647 not in dataset (3 bands)"},
        {RASTER_BAND_RANGE, {"3"}, "Band 4 not in dataset (3 bands)"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.text);
        Texts bands(c.bands);
        rasterfile h;
        // A range takes three bands from its first.
        int n = c.mode == RASTER_BAND_RANGE ? 3 : static_cast<int>(c.bands.size());
        EXPECT_EQ(eo_raster(&h, ds.d, 0, 7, 0, 13, c.mode, n, bands.data()), 24);
        EXPECT_EQ(ras::error_text(), c.text);
        EXPECT_EQ(h.fd, -1);
    }
    VLD_mmraster *m = nullptr;
    for (int band : {INT_MAX, 3}) {
        EXPECT_EQ(VLD_raster_mmopen(&m, ds.d, 0, 13, &band, 1, 0), 24);
        EXPECT_EQ(ras::error_text(),
                  "Band " + std::to_string(int64_t{band} + 1) + " not in dataset (3 bands)");
        EXPECT_EQ(m, nullptr);
    }
}

TEST(RasterLimits, LinesBeyondTheHandlesFieldsAreRefused)
{
    // Only the header matters: every open must refuse before it reads a byte.
    struct Case {
        const char *what;
        int cells, bands, type, window_cells;
        const char *size;  // the part of the text that names the size
    } cases[] = {
        {"band-line past 4 GiB, small window", 537000000, 1, IEEE8ByteReal, 10,
         "one band of a line takes 4296000000 bytes"},
        {"band-line of 16 GB", 2000000000, 1, IEEE8ByteReal, 2000000000,
         "one band of a line takes 16000000000 bytes"},
        {"line of two bands past 2 GiB", 200000000, 2, IEEE8ByteReal, 5,
         "one line takes 3200000000 bytes"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        ras::TempDir dir;
        Dataset ds;
        ds.lines = 2;
        ds.cells = 1;  // a small file; the header is made large below
        ds.bands = c.bands;
        ds.type = c.type;
        ds.write(dir, "img");
        ds.d->info.r.nr_cells = c.cells;
        auto refused = [&](int status) {
            EXPECT_EQ(status, 24);
            EXPECT_NE(ras::error_text().find(c.size), std::string::npos) << ras::error_text();
        };

        rasterfile h;
        ras::BandStrings first{1};
        refused(eo_raster(&h, ds.d, 0, 2, 0, c.window_cells, RASTER_BAND_RANGE, 1, first.data()));
        EXPECT_EQ(h.fd, -1);
        refused(eow_raster(&h, ds.d));
        EXPECT_EQ(h.fd, -1);
        VLD_mmraster *m = nullptr;
        refused(VLD_raster_mmopen(&m, ds.d, 0, c.window_cells, nullptr, 1, 0));
        refused(VLD_warp_raster_mmopen(&m, ds.d, 0, c.window_cells, nullptr, 1, 0));
        EXPECT_EQ(m, nullptr);
        char *message = nullptr;
        EXPECT_EQ(mmap_dataset_len(ds.d, &message, "", 0, 1), nullptr);
        ASSERT_NE(message, nullptr);
        EXPECT_NE(std::string(message).find(c.size), std::string::npos) << message;
        safe_free(message);
    }
}
