// Line and point reads of every storage layout, byte order and a spread of
// cell types, against data files laid out by the fixture; and the bad
// requests and bad files that must fail with their rows.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cerrno>
#include <cmath>
#include <cstring>

#include "raster_fixture.h"
#include "vld_raster_internal.h"

using ras::BandStrings;
using ras::Buffers;
using ras::Dataset;

namespace {

struct Shape {
    const char *what;
    int layout, order, type, header_offset;
};

const Shape kShapes[] = {
    {"plain 16-bit", DST_VLDStorage, LSBFirst, Signed16BitInteger, 0},
    {"swapped 16-bit", DST_VLDStorage, MSBFirst, Unsigned16BitInteger, 0},
    {"swapped double, odd offset", DST_VLDStorage, MSBFirst, IEEE8ByteReal, 3},
    {"8-bit, offset", DST_VLDStorage, MSBFirst, Unsigned8BitInteger, 17},
    {"float", DST_VLDStorage, LSBFirst, IEEE4ByteReal, 8},
    {"GeoScan swapped 32-bit", DST_GeoScanMk2, MSBFirst, Signed32BitInteger, 0},
    {"IFUT 8-bit", DST_IFUT, LSBFirst, Unsigned8BitInteger, 0},
    {"IFUT 16-bit", DST_IFUT, MSBFirst, Signed16BitInteger, 0},
    {"IFUT float", DST_IFUT, MSBFirst, IEEE4ByteReal, 0},
    {"AImage 16-bit", DST_AImage, LSBFirst, Unsigned16BitInteger, 0},
    {"AImage swapped double", DST_AImage, MSBFirst, IEEE8ByteReal, 0},
};

void write_shape(Dataset &ds, const Shape &s, const ras::TempDir &dir)
{
    ds.layout = s.layout;
    ds.order = s.order;
    ds.type = s.type;
    ds.header_offset = s.header_offset;
    ds.write(dir, "img");
}

// The window's cells of band `band`, line `line`, in the host's order.
std::vector<unsigned char> expected_line(const Dataset &ds, int band, int line, int first_cell,
                                         int nr_cells)
{
    std::vector<unsigned char> out;
    for (int c = first_cell; c < first_cell + nr_cells; c++) {
        auto v = ras::cell_bytes(ras::cell_value(band, line, c), ds.type);
        out.insert(out.end(), v.begin(), v.end());
    }
    return out;
}

}  // namespace

TEST(RasterRead, RangeAndListWindowsMatchEveryLayout)
{
    for (const Shape &s : kShapes) {
        SCOPED_TRACE(s.what);
        ras::TempDir dir;
        Dataset ds;
        write_shape(ds, s, dir);
        ASSERT_NE(ds.d, nullptr);
        const int cb = ds.cb();

        // Range mode, several lines per call: a part window, then a whole-width
        // one (which reads each line in one gathering call).
        struct Window {
            int first_line, nr_lines, first_cell, nr_cells, first_band, nr_bands;
        };
        for (Window w : {Window{1, 5, 2, 9, 2, 2}, Window{0, 7, 0, 13, 1, 3}}) {
            rasterfile h;
            BandStrings first{w.first_band};
            ASSERT_EQ(eo_raster(&h, ds.d, w.first_line, w.nr_lines, w.first_cell, w.nr_cells,
                                RASTER_BAND_RANGE, w.nr_bands, first.data()),
                      0)
                << ras::error_text();
            EXPECT_EQ(h.swap, s.order != LSBFirst && cb > 1 ? 1 : 0);
            Buffers buf(w.nr_bands, static_cast<size_t>(w.nr_lines) * w.nr_cells * cb);
            ASSERT_EQ(h.read(&h, buf.data(), w.first_line, w.nr_lines), 0) << ras::error_text();
            for (int k = 0; k < w.nr_bands; k++)
                for (int i = 0; i < w.nr_lines; i++) {
                    auto want = expected_line(ds, w.first_band - 1 + k, w.first_line + i,
                                              w.first_cell, w.nr_cells);
                    ASSERT_EQ(0, std::memcmp(buf.bands[k].data() + i * want.size(), want.data(),
                                             want.size()))
                        << "band " << k << " line " << i;
                }
            EXPECT_EQ(ec_raster(&h), 0);
        }

        // List mode, bands 1 and 3, one line per call.
        rasterfile h;
        BandStrings list{1, 3};
        ASSERT_EQ(eo_raster(&h, ds.d, 0, 7, 4, 6, RASTER_BAND_LIST, 2, list.data()), 0);
        Buffers buf(2, static_cast<size_t>(6) * cb);
        for (int line = 6; line >= 0; line--) {
            ASSERT_EQ(h.read(&h, buf.data(), line, 1), 0);
            EXPECT_EQ(buf.bands[0], expected_line(ds, 0, line, 4, 6));
            EXPECT_EQ(buf.bands[1], expected_line(ds, 2, line, 4, 6));
        }
        ec_raster(&h);
    }
}

TEST(RasterRead, ReaderFollowsByteOrderAndBandMode)
{
    struct Case {
        int order, mode;
        raster_read_func reader;
    } cases[] = {
        {LSBFirst, RASTER_BAND_RANGE, rd_vld_range},
        {MSBFirst, RASTER_BAND_RANGE, rd_vld_range_reverse},
        {LSBFirst, RASTER_BAND_LIST, rd_vld_list},
        {MSBFirst, RASTER_BAND_LIST, rd_vld_list_reverse},
    };
    for (const Case &c : cases) {
        ras::TempDir dir;
        Dataset ds;
        ds.order = c.order;
        ds.write(dir, "img");
        rasterfile h;
        BandStrings one{1};
        ASSERT_EQ(eo_raster(&h, ds.d, 0, 7, 0, 13, c.mode, 1, one.data()), 0);
        EXPECT_EQ(h.read, c.reader);
        ec_raster(&h);
    }
}

TEST(RasterRead, PointsDirectCachedAndTiled)
{
    for (const Shape &s : kShapes) {
        SCOPED_TRACE(s.what);
        ras::TempDir dir;
        Dataset ds;
        write_shape(ds, s, dir);
        const int cb = ds.cb();
        rasterfile h;
        ASSERT_EQ(eo_raster_point(&h, ds.d), 0) << ras::error_text();
        Buffers v(3, 8);
        int is_null = -1;
        for (int pass = 0; pass < 3; pass++)
            for (int line = 0; line < 7; line++)
                for (int cell = 0; cell < 13; cell += 4) {
                    // pass 0: direct; 1: through the cache; 2: through tiles.
                    if (pass == 2) h.no_direct_point = 1;
                    int status = pass == 1
                                     ? eg_raster_point_cache_ex(&h, v.data(), &is_null, line, cell)
                                     : eg_raster_point_ex(&h, v.data(), &is_null, line, cell);
                    ASSERT_EQ(status, 0) << ras::error_text();
                    EXPECT_EQ(is_null, 0);
                    for (int b = 0; b < 3; b++)
                        ASSERT_EQ(0, std::memcmp(v.bands[b].data(),
                                                 expected_line(ds, b, line, cell, 1).data(), cb))
                            << "pass " << pass << " band " << b << " " << line << "," << cell;
                }
        // The tiled reads left the window on a tile of four lines.
        EXPECT_EQ(h.first_line % vld_raster::kTileLines, 0);
        EXPECT_LE(h.nr_lines, vld_raster::kTileLines);
        EXPECT_EQ(ec_raster_point(&h), 0);
    }
}

TEST(RasterRead, OutsideTheWindowAndTheImage)
{
    ras::TempDir dir;
    Dataset ds;
    ds.write(dir, "img");
    ds.d->info.r.has_null = 1;
    ds.d->info.r.null_value = -9999.0;

    rasterfile h;
    BandStrings bands{1, 2};
    ASSERT_EQ(eo_raster(&h, ds.d, 2, 3, 0, 13, RASTER_BAND_LIST, 2, bands.data()), 0);
    // Kept: the fill is the low bytes of the stored double, not -9999.
    double null_value = -9999.0;
    EXPECT_EQ(0, std::memcmp(h.fill, &null_value, 2));
    int16_t fill;
    std::memcpy(&fill, h.fill, 2);
    EXPECT_NE(fill, -9999);

    Buffers v(2, 2);
    int is_null = 0;
    ASSERT_EQ(eg_raster_point_ex(&h, v.data(), &is_null, 6, 0), 0);  // inside the image
    EXPECT_EQ(is_null, 1);
    EXPECT_EQ(0, std::memcmp(v.bands[1].data(), h.fill, 2));

    // Outside the image, through the cache: the null as a cell.
    for (auto [line, cell] : {std::pair{-1, 0}, {7, 0}, {0, 13}, {0, -5}}) {
        ASSERT_EQ(eg_raster_point_cache_ex(&h, v.data(), &is_null, line, cell), 0);
        int16_t value;
        std::memcpy(&value, v.bands[0].data(), 2);
        EXPECT_EQ(value, -9999);
        EXPECT_EQ(is_null, 1);
    }
    // A line read outside the window is refused, not read.
    Buffers lines(2, 13 * 2);
    EXPECT_EQ(h.read(&h, lines.data(), 5, 1), 34);
    EXPECT_EQ(h.read(&h, lines.data(), 1, 1), 34);
    ec_raster_point(&h);
}

TEST(RasterRead, CacheKeepsTheMostRecentPoints)
{
    ras::TempDir dir;
    Dataset ds;
    ds.lines = 20;
    ds.cells = 20;
    ds.write(dir, "img");
    rasterfile h;
    ASSERT_EQ(eo_raster_point(&h, ds.d), 0);
    Buffers v(3, 2);
    for (int i = 0; i < 100; i++) ASSERT_EQ(eg_raster_point_cache(&h, v.data(), i / 20, i % 20), 0);
    auto *st = static_cast<vld_raster::PointState *>(h.point_cache);
    ASSERT_EQ(st->entries.size(), 64u);
    EXPECT_EQ(st->entries.front().line * 20 + st->entries.front().cell, 99);
    EXPECT_EQ(st->entries.back().line * 20 + st->entries.back().cell, 36);
    // A hit moves its entry to the front and gives the same value.
    ASSERT_EQ(eg_raster_point_cache(&h, v.data(), 2, 0), 0);
    EXPECT_EQ(st->entries.front().line * 20 + st->entries.front().cell, 40);
    int16_t value;
    std::memcpy(&value, v.bands[2].data(), 2);
    EXPECT_EQ(value, static_cast<int16_t>(ras::cell_value(2, 2, 0)));
    ec_raster_point(&h);
}

TEST(RasterRead, BadRequestsAndBadFilesGiveTheirRows)
{
    ras::TempDir dir;
    struct Case {
        const char *what;
        void (*change)(dshdr *d);
        int first_line, nr_lines, first_cell, nr_cells, mode;
        std::initializer_list<int> bands;
        int row;
        const char *text;
    } cases[] = {
        {"byte order none",
         [](dshdr *d) { d->byte_order = BO_None; },
         0,
         7,
         0,
         13,
         RASTER_BAND_LIST,
         {1},
         23,
         "Bad byte order in dshdr"},
        {"list out of order",
         nullptr,
         0,
         7,
         0,
         13,
         RASTER_BAND_LIST,
         {3, 1},
         10,
         "Raster request list not in ascending order"},
        {"lines beyond", nullptr, 3, 5, 0, 13, RASTER_BAND_RANGE, {1}, 34, nullptr},
        {"negative line", nullptr, -1, 2, 0, 13, RASTER_BAND_RANGE, {1}, 34, nullptr},
        {"cells beyond", nullptr, 0, 7, 10, 4, RASTER_BAND_RANGE, {1}, 35, nullptr},
        {"band beyond", nullptr, 0, 7, 0, 13, RASTER_BAND_RANGE, {3, 4}, 24, nullptr},
        {"plain BIL",
         [](dshdr *d) { d->dataset_type = DST_BandInterleavedLine; },
         0,
         7,
         0,
         13,
         RASTER_BAND_LIST,
         {1},
         8,
         "Invalid file type: \" 3\""},
        {"translated",
         [](dshdr *d) { d->dataset_type = DST_Translated; },
         0,
         7,
         0,
         13,
         RASTER_BAND_LIST,
         {1},
         168,
         nullptr},
        {"unknown type",
         [](dshdr *d) { d->dataset_type = DST_Unknown; },
         0,
         7,
         0,
         13,
         RASTER_BAND_LIST,
         {1},
         169,
         nullptr},
        {"no data file",
         [](dshdr *d) { unlink(d->data_file); },
         0,
         7,
         0,
         13,
         RASTER_BAND_LIST,
         {1},
         1,
         nullptr},
        // An open of a FIFO for reading would wait for a writer for ever.
        {"data file is a FIFO",
         [](dshdr *d) {
             unlink(d->data_file);
             mkfifo(d->data_file, 0644);
         },
         0,
         7,
         0,
         13,
         RASTER_BAND_LIST,
         {1},
         1,
         "It is not a regular file"},
        {"data file is a directory",
         [](dshdr *d) {
             unlink(d->data_file);
             mkdir(d->data_file, 0755);
         },
         0,
         7,
         0,
         13,
         RASTER_BAND_LIST,
         {1},
         1,
         "It is a directory, not a data file"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        Dataset ds;
        ds.write(dir, c.what);  // a file of its own: a case may leave a FIFO behind
        if (c.change) c.change(ds.d);
        rasterfile h;
        BandStrings bands(c.bands);
        EXPECT_EQ(eo_raster(&h, ds.d, c.first_line, c.nr_lines, c.first_cell, c.nr_cells, c.mode,
                            static_cast<int>(c.bands.size()), bands.data()),
                  c.row);
        if (c.text) {
            // The row's text, or (after a newline) what it adds about the file.
            std::string text = ras::error_text();
            EXPECT_TRUE(text == c.text || text.ends_with(std::string("\n") + c.text)) << text;
        }
        EXPECT_EQ(h.fd, -1);
        EXPECT_EQ(ec_raster(&h), 0);  // a failed open may still be closed
    }
}

TEST(RasterRead, ShortDataFileFailsWithoutReadingPastItsEnd)
{
    // IFUT pads each band-line of 26 bytes to 512: cutting the padding alone
    // loses no cell.
    for (auto [layout, cut] :
         {std::pair{DST_VLDStorage, 5}, {DST_IFUT, 512 - 26 + 5}, {DST_AImage, 5}}) {
        ras::TempDir dir;
        Dataset ds;
        ds.layout = layout;
        ds.write(dir, "img", static_cast<size_t>(cut));
        rasterfile h;
        BandStrings first{1};
        ASSERT_EQ(eo_raster(&h, ds.d, 0, 7, 0, 13, RASTER_BAND_RANGE, 3, first.data()), 0);
        Buffers buf(3, 7 * 13 * 2);
        EXPECT_EQ(h.read(&h, buf.data(), 0, 6), 0);
        errno = EINVAL;  // left by an earlier call: a short file is still row 4
        EXPECT_EQ(h.read(&h, buf.data(), 6, 1), 4) << layout;
        EXPECT_NE(ras::error_text().find(ds.data), std::string::npos);
        Buffers v(3, 2);
        EXPECT_EQ(eg_raster_point(&h, v.data(), 6, 12), 4);
        ec_raster(&h);
    }
}
