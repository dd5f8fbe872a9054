// Writes of whole lines, single bands and single band-lines, checked byte for
// byte against the layout that the fixture writes, and read back.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>

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

// Rewriting a dataset: the new cells go to a temporary file that replaces the
// data file at ec_raster, so the old file stays whole until then, and for good
// when a write fails; the data file keeps its mode and its links.
TEST(RasterWrite, RewritingReplacesTheDataFileOnlyWhenComplete)
{
    ras::TempDir dir;
    Dataset old_ds;
    old_ds.write(dir, "img");
    const std::string old_bytes = slurp(old_ds.data);
    // The new cells: the old ones plus one, in every band.
    Buffers lines = all_lines(old_ds);
    for (auto &band : lines.bands)
        for (size_t i = 0; i < band.size(); i += 2) band[i] += 1;
    auto no_temporary_file = [&] {
        for (const auto &e : std::filesystem::directory_iterator(dir.file("")))
            EXPECT_NE(e.path().filename().string().rfind("tmp", 0), 0u) << e.path();
    };

    {
        SCOPED_TRACE("complete rewrite, through a link, of a file of mode 0600");
        ASSERT_EQ(rename(old_ds.data.c_str(), dir.file("cells").c_str()), 0);
        ASSERT_EQ(symlink("cells", old_ds.data.c_str()), 0);
        ASSERT_EQ(chmod(dir.file("cells").c_str(), 0600), 0);
        rasterfile h;
        ASSERT_EQ(eow_raster(&h, old_ds.d), 0);
        ASSERT_EQ(ep_raster(&h, lines.data(), old_ds.lines), 0);
        EXPECT_EQ(slurp(old_ds.data), old_bytes);  // not yet replaced
        ASSERT_EQ(ec_raster(&h), 0);
        std::string now = slurp(old_ds.data);
        ASSERT_EQ(now.size(), old_bytes.size());
        EXPECT_EQ(static_cast<unsigned char>(now[0]), static_cast<unsigned char>(old_bytes[0]) + 1);
        struct stat st;
        ASSERT_EQ(lstat(old_ds.data.c_str(), &st), 0);
        EXPECT_TRUE(S_ISLNK(st.st_mode));
        ASSERT_EQ(stat(old_ds.data.c_str(), &st), 0);
        EXPECT_EQ(st.st_mode & 07777, 0600u);
        no_temporary_file();
    }

    const std::string before = slurp(old_ds.data);
    {
        // A full disk, as the file size limit simulates it: the write fails
        // with EFBIG half-way through the dataset.
        SCOPED_TRACE("failed write");
        pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            signal(SIGXFSZ, SIG_IGN);
            struct rlimit limit = {100, 100};
            setrlimit(RLIMIT_FSIZE, &limit);
            rasterfile h;
            int ok = eow_raster(&h, old_ds.d) == 0 &&
                     ep_raster(&h, lines.data(), old_ds.lines) == 5 && ec_raster(&h) == 5;
            _exit(ok ? 0 : 1);
        }
        int wstatus = 0;
        waitpid(child, &wstatus, 0);
        EXPECT_TRUE(WIFEXITED(wstatus) && WEXITSTATUS(wstatus) == 0);
        EXPECT_EQ(slurp(old_ds.data), before);
        no_temporary_file();
    }
    {
        // A replacement that can't be renamed into place (the data file is now
        // a directory) fails at close, and leaves nothing behind.
        SCOPED_TRACE("failed rename");
        std::string blocked = dir.file("blocked");
        mkdir(blocked.c_str(), 0755);
        safe_free(old_ds.d->data_file);
        old_ds.d->data_file = strsave(blocked.c_str());
        rasterfile h;
        ASSERT_EQ(eow_raster(&h, old_ds.d), 0);
        ASSERT_EQ(ep_raster(&h, lines.data(), old_ds.lines), 0);
        EXPECT_EQ(ec_raster(&h), 26);
        no_temporary_file();
    }
}
