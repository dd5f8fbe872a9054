// The mapped access: conversions to 8-byte reals from each byte order and
// alignment, the access code each case gets, read-write mappings, moved views
// of a file larger than 4 GiB, and the failures of each open.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>

#include "raster_fixture.h"
#include "vln_fmap.h"

using ras::Dataset;

TEST(RasterMapped, LinesConvertToDoublesFromEveryOrderAndOffset)
{
    struct Case {
        int layout, order, type, header_offset, ask, access;
    } cases[] = {
        {DST_VLDStorage, LSBFirst, Signed16BitInteger, 0, IEEE8ByteReal, 3},
        {DST_VLDStorage, MSBFirst, Signed16BitInteger, 0, IEEE8ByteReal, 5},
        {DST_VLDStorage, LSBFirst, IEEE4ByteReal, 6, IEEE8ByteReal, 4},
        {DST_VLDStorage, MSBFirst, IEEE8ByteReal, 0, IEEE8ByteReal, 2},
        {DST_VLDStorage, LSBFirst, IEEE8ByteReal, 0, IEEE8ByteReal, 0},
        {DST_VLDStorage, LSBFirst, Unsigned8BitInteger, 1, 0, 0},
        {DST_VLDStorage, LSBFirst, Signed16BitInteger, 3, 0, 1},
        {DST_GeoScanMk2, MSBFirst, Unsigned16BitInteger, 0, IEEE8ByteReal, 5},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(testing::Message() << c.order << "/" << c.type << "/" << c.header_offset);
        ras::TempDir dir;
        Dataset ds;
        ds.layout = c.layout;
        ds.order = c.order;
        ds.type = c.type;
        ds.header_offset = c.header_offset;
        ds.write(dir, "img");
        VLD_mmraster *h = nullptr;
        const int bands[] = {2, 0};
        ASSERT_EQ(VLD_raster_mmopen(&h, ds.d, 3, 8, bands, 2, c.ask), 0) << ras::error_text();
        EXPECT_EQ(h->access, c.access);
        void *buffer = nullptr;
        VLD_raster_mmsetup_buf(h, &buffer);
        EXPECT_EQ(buffer == nullptr, c.access == 0);
        for (int line = 0; line < ds.lines; line++)
            for (int k = 0; k < 2; k++) {
                const void *cells = VLD_raster_mmget_cells(h, line, k, buffer);
                ASSERT_NE(cells, nullptr) << ras::error_text();
                for (int i = 0; i < 8; i++) {
                    double want = ras::cell_value(bands[k], line, 3 + i);
                    if (c.ask == IEEE8ByteReal) {
                        double got;
                        std::memcpy(&got, static_cast<const char *>(cells) + i * 8, 8);
                        ASSERT_EQ(got, want) << line << " " << k << " " << i;
                    } else {
                        auto bytes = ras::cell_bytes(want, c.type);
                        ASSERT_EQ(0,
                                  std::memcmp(static_cast<const char *>(cells) + i * bytes.size(),
                                              bytes.data(), bytes.size()));
                    }
                }
            }
        EXPECT_EQ(VLD_raster_mmget_cells(h, ds.lines, 0, buffer), nullptr);  // past the end
        VLD_raster_mmfree_buf(h, &buffer);
        EXPECT_EQ(VLD_raster_mmclose(&h), 0);
        EXPECT_EQ(h, nullptr);
    }
}

TEST(RasterMapped, ReadWriteMappingWritesTheFile)
{
    ras::TempDir dir;
    Dataset ds;
    ds.header_offset = 4;
    ds.write(dir, "img");
    VLD_mmraster *h = nullptr;
    ASSERT_EQ(VLD_raster_mmopen_rw(&h, ds.d), 0) << ras::error_text();
    int16_t value = -321;
    std::memcpy(h->data + 2 * h->line_bytes + 1 * h->band_line_bytes + 5 * 2, &value, 2);
    ASSERT_EQ(VLD_raster_mmclose(&h), 0);

    rasterfile r;
    ASSERT_EQ(eo_raster_point(&r, ds.d), 0);
    ras::Buffers v(3, 2);
    ASSERT_EQ(eg_raster_point(&r, v.data(), 2, 5), 0);
    int16_t got;
    std::memcpy(&got, v.bands[1].data(), 2);
    EXPECT_EQ(got, -321);
    ec_raster(&r);
}

TEST(RasterMapped, OpensFailWithTheirRows)
{
    ras::TempDir dir;
    {
        Dataset ds;
        ds.header_offset = 3;
        ds.write(dir, "odd");
        VLD_mmraster *h = nullptr;
        EXPECT_EQ(VLD_raster_mmopen_rw(&h, ds.d), 54);
        EXPECT_EQ(ras::error_text(), "Cannot mmap dataset \"" + ds.data +
                                         "\" for reading/writing, header not aligned (3 bytes)");
        EXPECT_EQ(h, nullptr);
    }
    {
        Dataset ds;
        ds.write(dir, "short", 1);
        VLD_mmraster *h = nullptr;
        EXPECT_EQ(VLD_raster_mmopen(&h, ds.d, 0, 13, nullptr, 3, 0), 53);
        EXPECT_EQ(ras::error_text(), "Dataset data file size (545) less than expected (546)");
        char *message = nullptr;
        EXPECT_EQ(mmap_dataset(ds.d, &message, ""), nullptr);
        ASSERT_NE(message, nullptr);
        EXPECT_STREQ(message, "Dataset size (545) < expected size (546).");
        safe_free(message);
    }
    {
        Dataset ds;
        ds.write(dir, "img");
        VLD_mmraster *h = nullptr;
        ds.d->algorithm = reinterpret_cast<struct algorithm *>(&ds);  // only tested for null
        EXPECT_EQ(VLD_raster_mmopen(&h, ds.d, 0, 13, nullptr, 3, 0), 48);
        ds.d->algorithm = nullptr;
        EXPECT_EQ(VLD_raster_mmopen(&h, ds.d, 5, 9, nullptr, 3, 0), 35);
        const int bad_band[] = {3};
        EXPECT_EQ(VLD_raster_mmopen(&h, ds.d, 0, 13, bad_band, 1, 0), 24);
        EXPECT_EQ(h, nullptr);

        // A view moved beyond the end of the file is refused and cleared.
        ASSERT_EQ(VLD_raster_mmopen(&h, ds.d, 0, 13, nullptr, 3, 0), 0);
        EXPECT_EQ(VLD_raster_mmremap(h, ds.d, 1 << 20, 0, 4096), 1);
        EXPECT_EQ(h->view, nullptr);
        EXPECT_EQ(VLD_raster_mmget_cells(h, 0, 0, nullptr), nullptr);
        EXPECT_EQ(VLD_raster_mmclose(&h), 0);

        // mmap_dataset maps the whole file; with limits, a part of it.
        char *message = nullptr;
        VLD_mmdataset *m = mmap_dataset(ds.d, &message, "");
        ASSERT_NE(m, nullptr) << message;
        EXPECT_EQ(m->file_size, 546);
        EXPECT_EQ(m->line_bytes, 78);
        EXPECT_EQ(munmap_dataset(m, &message), 1);
        m = mmap_dataset_with_limits(ds.d, &message, "", 26, 2, 5, 100);
        ASSERT_NE(m, nullptr) << message;
        EXPECT_EQ(m->offset, 2 * 78 + 26);
        EXPECT_EQ(m->length, 100);
        int16_t first;
        std::memcpy(&first, m->view, 2);
        EXPECT_EQ(first, static_cast<int16_t>(ras::cell_value(1, 2, 0)));
        EXPECT_EQ(munmap_dataset(m, &message), 1);
        EXPECT_EQ(mmap_dataset_with_limits(ds.d, &message, "", 0, 5, 8, 0), nullptr);
        safe_free(message);
    }
    {
        // A data file that is no regular file is refused, with its reason,
        // and a FIFO without waiting for a writer.
        struct Kind {
            const char *what;
            int (*make)(const char *path);
            const char *reason;
        } kinds[] = {
            {"directory", [](const char *p) { return mkdir(p, 0755); },
             "It is a directory, not a data file"},
            {"FIFO", [](const char *p) { return mkfifo(p, 0644); }, "It is not a regular file"},
        };
        for (const Kind &k : kinds) {
            SCOPED_TRACE(k.what);
            Dataset ds;
            ds.write(dir, k.what);
            unlink(ds.data.c_str());
            ASSERT_EQ(k.make(ds.data.c_str()), 0);
            VLD_mmraster *h = nullptr;
            EXPECT_EQ(VLD_raster_mmopen(&h, ds.d, 0, 13, nullptr, 3, 0), 1);
            EXPECT_EQ(ras::error_text(),
                      "Cannot open file \"" + ds.data + "\"\n" + std::string(k.reason));
            EXPECT_EQ(h, nullptr);
            EXPECT_EQ(vln_aread_open(ds.data.c_str()), nullptr);
        }
    }
    EXPECT_EQ(mmap_calculate_limit(0), 32 << 20);
    EXPECT_LE(mmap_calculate_limit(4), 32 << 20);
}

TEST(RasterMapped, LargeFileViewsMoveByRemapping)
{
    // A sparse file of three 8-bit bands of 40,000 x 40,000 cells: 4.8 GB,
    // beyond one 32-bit view. Only its last line holds data.
    ras::TempDir dir;
    Dataset ds;
    ds.type = Unsigned8BitInteger;
    ds.lines = ds.cells = 40000;
    ds.write(dir, "big", 0, false);
    int fd = open(ds.data.c_str(), O_RDWR | O_TRUNC);
    ASSERT_GE(fd, 0);
    const int64_t line_bytes = 3 * 40000;
    const int64_t size = line_bytes * 40000;
    if (ftruncate(fd, size) != 0) {
        close(fd);
        GTEST_SKIP() << "no room for a sparse file of " << size << " bytes";
    }
    std::vector<unsigned char> last(static_cast<size_t>(line_bytes));
    for (int64_t i = 0; i < line_bytes; i++) last[i] = static_cast<unsigned char>(i * 7);
    ASSERT_EQ(pwrite(fd, last.data(), last.size(), size - line_bytes),
              static_cast<ssize_t>(last.size()));
    close(fd);

    EXPECT_EQ(VLD_filesize_in_bytes64(ds.data.c_str()), size);
    EXPECT_EQ(VLD_filesize_in_bytes(ds.data.c_str()), -1);

    // The line reader seeks past 4 GiB.
    rasterfile r;
    ras::BandStrings third{3};
    ASSERT_EQ(eo_raster(&r, ds.d, 39999, 1, 100, 50, RASTER_BAND_RANGE, 1, third.data()), 0);
    ras::Buffers line(1, 50);
    ASSERT_EQ(r.read(&r, line.data(), 39999, 1), 0);
    EXPECT_EQ(0, std::memcmp(line.bands[0].data(), last.data() + 2 * 40000 + 100, 50));
    ec_raster(&r);

    VLD_mmraster *h = nullptr;
    ASSERT_EQ(VLD_raster_mmopen(&h, ds.d, 0, 40000, nullptr, 3, 0), 45);
    ASSERT_EQ(VLD_warp_raster_mmopen(&h, ds.d, 0, 40000, nullptr, 3, 0), 0) << ras::error_text();
    EXPECT_LT(static_cast<int64_t>(h->view_size), size);
    EXPECT_EQ(VLD_raster_mmget_cells(h, 39999, 2, nullptr), nullptr);  // not in view yet
    uint64_t at = static_cast<uint64_t>(size - line_bytes + 1);        // not on a page
    ASSERT_EQ(VLD_raster_mmremap(h, ds.d, static_cast<int32_t>(at & 0xffffffffu),
                                 static_cast<int32_t>(at >> 32), line_bytes - 1),
              0)
        << ras::error_text();
    EXPECT_EQ(h->view_offset % vln_getpagesize(), 0);
    EXPECT_LE(h->view_offset, static_cast<int64_t>(at));
    const void *cells = VLD_raster_mmget_cells(h, 39999, 2, nullptr);
    ASSERT_NE(cells, nullptr) << ras::error_text();
    EXPECT_EQ(0, std::memcmp(cells, last.data() + 2 * 40000, 40000));
    EXPECT_EQ(VLD_raster_mmget_cells(h, 39998, 2, nullptr), nullptr);
    EXPECT_EQ(VLD_raster_mmclose(&h), 0);
}

TEST(RasterMapped, ViewsThatCannotBeMadeFailWithTheSystemsReason)
{
    ras::TempDir dir;
    Dataset ds;
    ds.write(dir, "img");
    struct Case {
        const char *what;
        int32_t low, high;
        uint32_t size;
    } cases[] = {
        {"empty view", 0, 0, 0},
        {"offset -1, -1", -1, -1, 100},
        {"offset past 2^63", 0, INT32_MIN, 100},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        VLD_mmraster *h = nullptr;
        ASSERT_EQ(VLD_raster_mmopen(&h, ds.d, 0, 13, nullptr, 3, 0), 0);
        errno = ENOENT;  // what a stale error number would say
        EXPECT_EQ(VLD_raster_mmremap(h, ds.d, c.low, c.high, c.size), 1);
        EXPECT_NE(ras::error_text().find("Invalid argument"), std::string::npos)
            << ras::error_text();
        EXPECT_EQ(h->view, nullptr);
        EXPECT_EQ(VLD_raster_mmget_cells(h, 0, 0, nullptr), nullptr);
        EXPECT_EQ(VLD_raster_mmclose(&h), 0);
    }
}

TEST(RasterMapped, SizesPastTwoGigabytesArePrintedWhole)
{
    ras::TempDir dir;
    Dataset ds;
    ds.type = Unsigned8BitInteger;
    ds.bands = 1;
    ds.lines = 2;
    ds.cells = 1000;
    ds.write(dir, "img");
    ds.d->info.r.nr_lines = 20000000;  // 20 GB expected of a file of 2000 bytes
    VLD_mmraster *h = nullptr;
    EXPECT_EQ(VLD_warp_raster_mmopen(&h, ds.d, 0, 1000, nullptr, 1, 0), 53);
    EXPECT_EQ(ras::error_text(), "Dataset data file size (2000) less than expected (20000000000)");
    char *message = nullptr;
    EXPECT_EQ(mmap_dataset(ds.d, &message, ""), nullptr);
    ASSERT_NE(message, nullptr);
    EXPECT_STREQ(message, "Dataset size (2000) < expected size (20000000000).");
    safe_free(message);
}

TEST(RasterMapped, AFileThatShrinksUnderItsMappingFailsReadsCleanly)
{
    // Lines of 78 bytes: after the cut to 100 bytes, line 0 is whole and line
    // 1 is not. Reading line 1 from the mapping would raise SIGBUS.
    for (int ask : {0, static_cast<int>(IEEE8ByteReal)}) {
        SCOPED_TRACE(ask);
        ras::TempDir dir;
        Dataset ds;
        ds.write(dir, "img");
        VLD_mmraster *h = nullptr;
        ASSERT_EQ(VLD_raster_mmopen(&h, ds.d, 0, 13, nullptr, 3, ask), 0);
        void *buffer = nullptr;
        VLD_raster_mmsetup_buf(h, &buffer);
        ASSERT_EQ(truncate(ds.data.c_str(), 100), 0);
        EXPECT_NE(VLD_raster_mmget_cells(h, 0, 0, buffer), nullptr) << ras::error_text();
        for (int line : {1, 6}) {
            EXPECT_EQ(VLD_raster_mmget_cells(h, line, 2, buffer), nullptr);
            EXPECT_EQ(VLD_error.code, VLD_ERR_CANNOT_READ_FILE);
            EXPECT_EQ(ras::error_text(), "Cannot read from file \"" + ds.data + "\"");
        }
        VLD_raster_mmfree_buf(h, &buffer);
        EXPECT_EQ(VLD_raster_mmclose(&h), 0);
    }
}
