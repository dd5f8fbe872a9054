// File sizes, free disk space and the asynchronous reader.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <cstring>
#include <numeric>

#include "raster_fixture.h"
#include "vln_fileio.h"

TEST(RasterFiles, SizesAndDiskSpace)
{
    ras::TempDir dir;
    ras::Dataset ds;
    ds.write(dir, "img");
    EXPECT_EQ(VLD_filesize_in_bytes(ds.data.c_str()), 546);
    EXPECT_EQ(VLD_filesize_in_bytes64(ds.data.c_str()), 546);
    EXPECT_GE(VLD_filesize_in_blocks(ds.data.c_str()), 1);
    for (const std::string &bad : {dir.file("missing"), dir.file("")}) {
        EXPECT_EQ(VLD_filesize_in_bytes(bad.c_str()), -1) << bad;
        EXPECT_EQ(VLD_filesize_in_bytes64(bad.c_str()), -1) << bad;
    }
    EXPECT_EQ(vln_statfs(dir.file("missing/x").c_str(), nullptr, nullptr), 51);
    EXPECT_EQ(vln_statfs(nullptr, nullptr, nullptr), 50);

    char *message = nullptr;
    EXPECT_EQ(enough_diskspace_for_dataset(ds.d, &message), 1);
    EXPECT_EQ(message, nullptr);
    ds.d->info.r.nr_lines = ds.d->info.r.nr_cells = 2000000000;  // some 24 EB
    EXPECT_EQ(enough_diskspace_for_dataset(ds.d, &message), 0);
    ASSERT_NE(message, nullptr);
    EXPECT_EQ(std::string(message).rfind("Not enough disk space (", 0), 0u) << message;
    safe_free(message);
}

TEST(RasterFiles, SeekTakesTwoHalves)
{
    ras::TempDir dir;
    std::string path = dir.file("f");
    int fd = vln_open(path.c_str(), O_CREAT | O_RDWR, 0644);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(vln_lseek64(fd, 16, 1, SEEK_SET), (int64_t{1} << 32) + 16);
    EXPECT_EQ(vln_tell64(fd), (int64_t{1} << 32) + 16);
    // The low half is unsigned: 0xffffffff is not -1.
    EXPECT_EQ(vln_lseek64(fd, -1, 0, SEEK_SET), int64_t{0xffffffff});
    EXPECT_EQ(vln_lseek64(fd, 0, 0, SEEK_SET), 0);
    vln_close(fd);
}

TEST(RasterFiles, AsynchronousReadsComeBackByTicket)
{
    ras::TempDir dir;
    std::string path = dir.file("data");
    std::vector<unsigned char> content(100000);
    std::iota(content.begin(), content.end(), 0);
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char *>(content.data()), content.size());

    vln_aread *h = vln_aread_open(path.c_str());
    ASSERT_NE(h, nullptr);
    struct Read {
        int64_t at;
        int length, expect;
        std::vector<unsigned char> buffer;
        int ticket;
    } reads[] = {{0, 1000, 1000, {}, 0},
                 {99000, 4000, 1000, {}, 0},  // the file ends first
                 {50001, 3, 3, {}, 0},
                 {200000, 10, 0, {}, 0}};
    for (Read &r : reads) {
        r.buffer.assign(static_cast<size_t>(r.length), 0xee);
        r.ticket = vln_aread_read(h, r.buffer.data(), r.at, r.length);
    }
    EXPECT_EQ(reads[0].ticket, 1);
    EXPECT_EQ(reads[3].ticket, 4);
    for (int i = 3; i >= 0; i--) {
        Read &r = reads[i];
        ASSERT_EQ(vln_aread_wait(h, r.ticket), r.expect) << i;
        EXPECT_EQ(0, std::memcmp(r.buffer.data(), content.data() + r.at, r.expect));
    }
    EXPECT_EQ(vln_aread_wait(h, 2), -1);   // already collected
    EXPECT_EQ(vln_aread_wait(h, 99), -1);  // never issued
    // After the worker ended, a new read starts another.
    std::vector<unsigned char> again(10);
    int t = vln_aread_read(h, again.data(), 10, 10);
    EXPECT_EQ(t, 5);
    EXPECT_EQ(vln_aread_wait(h, t), 10);
    EXPECT_EQ(again[0], 10);
    EXPECT_EQ(vln_aread_close(h), 0);
    EXPECT_EQ(vln_aread_open(dir.file("missing").c_str()), nullptr);
}
