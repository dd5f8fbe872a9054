// File mapping: views at any offset, the modes that create and write, and the
// failures that a caller is told about.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <iterator>
#include <fstream>
#include <string>

#include "vld_core.h"
#include "vln_fmap.h"
#include "vln_path.h"

namespace {

class FmapTest : public ::testing::Test {
   protected:
    void SetUp() override
    {
        char pattern[] = "/tmp/vln_fmap_XXXXXX";
        dir_ = mkdtemp(pattern);
    }
    void TearDown() override { vln_rmrfdir(dir_.c_str()); }
    std::string file(const std::string &name, const std::string &content)
    {
        std::string path = dir_ + "/" + name;
        std::ofstream(path, std::ios::binary) << content;
        return path;
    }
    std::string dir_;
};

// Maps and returns the message of a failure ("" on success, then unmapped).
std::string map_message(const std::string &path, const char *mode, size_t size, int64_t offset)
{
    int handles[2] = {-1, -1};
    char *message = nullptr;
    void *view = vln_fmap(path.c_str(), mode, size, offset, handles, &message);
    std::string text = message != nullptr ? message : "";
    safe_free(message);
    if (view != nullptr) {
        EXPECT_EQ(vln_funmap(view, size, handles, 0, nullptr), 1);
        EXPECT_EQ(handles[0], -1);
    } else {
        EXPECT_EQ(handles[0], -1);
    }
    return text;
}

TEST_F(FmapTest, ViewsStartAtAnyOffset)
{
    long page = sysconf(_SC_PAGESIZE);
    std::string content;
    for (long i = 0; i < 3 * page; i++) content += static_cast<char>('a' + i % 26);
    std::string path = file("data", content);
    for (int64_t offset :
         {int64_t{0}, int64_t{1}, int64_t{page - 1}, int64_t{page}, 2 * page + 5}) {
        int handles[2] = {-1, -1};
        size_t size = static_cast<size_t>(3 * page - offset);
        auto *view =
            static_cast<char *>(vln_fmap(path.c_str(), "s", size, offset, handles, nullptr));
        ASSERT_NE(view, nullptr) << offset;
        EXPECT_GE(handles[0], 0);
        EXPECT_EQ(handles[1], -1);
        EXPECT_EQ(std::string(view, size), content.substr(static_cast<size_t>(offset))) << offset;
        EXPECT_EQ(vln_funmap(view, size, handles, 0, nullptr), 1);
    }
}

TEST_F(FmapTest, CreateAndWrite)
{
    std::string path = dir_ + "/new";
    int handles[2] = {-1, -1};
    auto *view = static_cast<char *>(vln_fmap(path.c_str(), "wc", 10, 0, handles, nullptr));
    ASSERT_NE(view, nullptr);
    memcpy(view, "0123456789", 10);
    ASSERT_EQ(vln_funmap(view, 10, handles, 0, nullptr), 1);
    std::ifstream in(path, std::ios::binary);
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    EXPECT_EQ(text, "0123456789");
    // "u" creates only a file that isn't there yet.
    EXPECT_EQ(map_message(path, "u", 10, 0), "vln_fmap() failed - Cannot open " + path);
}

TEST_F(FmapTest, Failures)
{
    std::string empty = file("empty", "");
    std::string small = file("small", "abc");
    std::string readonly = file("readonly", "abc");
    chmod(readonly.c_str(), 0444);
    std::string fifo = dir_ + "/fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0644), 0);
    struct Case {
        std::string path;
        const char *mode;
        size_t size;
        int64_t offset;
        std::string message;
    } cases[] = {
        {dir_, "", 1, 0, "vln_fmap() failed - directory name given - " + dir_},
        {dir_ + "/none", "", 1, 0, "vln_fmap() failed - Cannot open " + dir_ + "/none"},
        {empty, "", 0, 0, "vln_fmap() failed on " + empty + " - could not create object"},
        {small, "", 4, 0, "vln_fmap() failed - File is too short to map 4 bytes on " + small},
        {small, "", 2, 2, "vln_fmap() failed - File is too short to map 2 bytes on " + small},
        {small, "", 1, -1, "vln_fmap() failed - Cannot seek on " + small},
        {readonly, "w", 3, 0, "vln_fmap() failed - no write permission on file " + readonly},
        // Refused without waiting for a writer, whatever the mode.
        {fifo, "", 1, 0, "vln_fmap() failed - Cannot open " + fifo + " (not a regular file)"},
        {fifo, "x", 1, 0, "vln_fmap() failed - Cannot open " + fifo + " (not a regular file)"},
        {small, "x", 3, 0, ""},
        {readonly, "", 3, 0, ""},
    };
    for (const Case &c : cases)
        EXPECT_EQ(map_message(c.path, c.mode, c.size, c.offset), c.message)
            << c.path << " " << c.mode;
}

}  // namespace
