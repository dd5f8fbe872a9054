// Writes of whole lines, single bands and single band-lines, checked byte for
// byte against the layout that the fixture writes, and read back.
#include <gtest/gtest.h>

#include <fcntl.h>

#include <cstring>

#include "raster_fixture.h"
#include "vln_fileio.h"

using ras::Buffers;
using ras::Dataset;

namespace {

std::string slurp(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

// Every line of every band, in the host's order, one buffer per band.
Buffers all_lines(const Dataset &ds)
{
    Buffers b(ds.bands, static_cast<size_t>(ds.lines) * ds.cells * ds.cb());
    for (int band = 0; band < ds.bands; band++)
        for (int l = 0; l < ds.lines; l++)
            for (int c = 0; c < ds.cells; c++) {
                auto v = ras::cell_bytes(ras::cell_value(band, l, c), ds.type);
                std::memcpy(
                    b.bands[band].data() + (static_cast<size_t>(l) * ds.cells + c) * v.size(),
                    v.data(), v.size());
            }
    return b;
}

}  // namespace

TEST(RasterWrite, LinesAndSingleBandsGiveTheNativeLayout)
{
    for (int type : {Unsigned8BitInteger, Signed16BitInteger, IEEE8ByteReal}) {
        SCOPED_TRACE(type);
        ras::TempDir dir;
        Dataset ref;  // the layout as the fixture writes it
        ref.type = type;
        ref.write(dir, "ref");
        const std::string want = slurp(ref.data);
        Buffers lines = all_lines(ref);

        // Whole lines, in two calls.
        rasterfile h;
        ASSERT_EQ(eow_raster(&h, ref.d), 0) << ras::error_text();
        ASSERT_EQ(ep_raster(&h, lines.data(), 3), 0);
        std::vector<void *> rest;
        for (auto &b : lines.bands) rest.push_back(b.data() + 3 * ref.cells * ref.cb());
        ASSERT_EQ(ep_raster(&h, rest.data(), ref.lines - 3), 0);
        ASSERT_EQ(ec_raster(&h), 0);
        EXPECT_EQ(slurp(ref.data), want);

        // One band at a time, each pass from the start of the file.
        ASSERT_EQ(eow_raster(&h, ref.d), 0);
        for (int band = ref.bands - 1; band >= 0; band--) {
            ASSERT_EQ(vln_lseek64(h.fd, 0, 0, SEEK_SET), 0);
            ASSERT_EQ(ep_raster_1band(&h, lines.bands[band].data(), ref.lines, band), 0);
        }
        ec_raster(&h);
        EXPECT_EQ(slurp(ref.data), want);

        // One band-line at a time, in reverse order.
        ASSERT_EQ(eow_raster(&h, ref.d), 0);
        for (int l = ref.lines - 1; l >= 0; l--)
            for (int band = 0; band < ref.bands; band++) {
                void *line =
                    lines.bands[band].data() + static_cast<size_t>(l) * ref.cells * ref.cb();
                ASSERT_EQ(ep_raster_1band_1line(&h, &line, band, l), 0);
            }
        ec_raster(&h);
        EXPECT_EQ(slurp(ref.data), want);

        // And the readers give back what was written.
        ASSERT_EQ(eo_raster_point(&h, ref.d), 0);
        Buffers back(ref.bands, lines.bands[0].size());
        for (int l = 0; l < ref.lines; l++) {
            std::vector<void *> at;
            for (auto &b : back.bands)
                at.push_back(b.data() + static_cast<size_t>(l) * ref.cells * ref.cb());
            ASSERT_EQ(h.read(&h, at.data(), l, 1), 0);
        }
        EXPECT_EQ(back.bands, lines.bands);
        ec_raster(&h);
    }
}

TEST(RasterWrite, PositionedWritesIgnoreTheHeaderOffset)
{
    ras::TempDir dir;
    Dataset ds;
    ds.header_offset = 5;
    ds.write(dir, "img");
    rasterfile h;
    ASSERT_EQ(eow_raster(&h, ds.d), 0);
    std::vector<int16_t> line(13, 0x1234);
    void *p = line.data();
    ASSERT_EQ(ep_raster_1band_1line(&h, &p, 2, 1), 0);
    // (line 1 * 3 bands + band 2) * 13 cells * 2 bytes, and no offset.
    EXPECT_EQ(vln_tell64(h.fd), (1 * 3 + 2) * 26 + 26);

    // ep_seek_raster takes the position in two halves.
    Buffers one(3, 26);
    ASSERT_EQ(ep_seek_raster(&h, one.data(), 1, 1000, 0), 0);
    EXPECT_EQ(vln_tell64(h.fd), 1000 + 3 * 26);
    ec_raster(&h);
    std::string bytes = slurp(ds.data);
    ASSERT_EQ(bytes.size(), 1000u + 3 * 26);
    int16_t cell;
    std::memcpy(&cell, bytes.data() + 5 * 26, 2);
    EXPECT_EQ(cell, 0x1234);
}

TEST(RasterWrite, OpenForWritingRefusesWhatItCannotWrite)
{
    ras::TempDir dir;
    Dataset ds;
    ds.write(dir, "img");
    rasterfile h;
    ds.d->dataset_type = DST_Translated;
    EXPECT_EQ(eow_raster(&h, ds.d), 168);
    ds.d->dataset_type = DST_BandInterleavedLine;
    EXPECT_EQ(eow_raster(&h, ds.d), 169);
    ds.d->dataset_type = DST_VLDStorage;
    std::string inside_missing = dir.file("no/such/dir/img");
    safe_free(ds.d->data_file);
    ds.d->data_file = strsave(inside_missing.c_str());
    EXPECT_EQ(eow_raster(&h, ds.d), 3);
    EXPECT_EQ(h.fd, -1);
    // A header without bands writes one.
    safe_free(ds.d->data_file);
    ds.d->data_file = strsave(ds.data.c_str());
    ds.d->info.r.nr_bands = 0;
    ASSERT_EQ(eow_raster(&h, ds.d), 0);
    EXPECT_EQ(h.nr_bands, 1);
    ec_raster(&h);
    ds.d->info.r.nr_bands = 3;
}
