// The error record, the message table and the fatal path.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <string>

#include "capture.h"
#include "vld_core.h"

namespace {

TEST(ErrorDeathTest, TextIsEmptyBeforeAnyError)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    // A fresh process: nothing has set up an error yet.
    EXPECT_EXIT(
        {
            const char *t = VLD_error_text();
            exit(t != nullptr && *t == '\0' && VLD_error.text == nullptr ? 0 : 3);
        },
        testing::ExitedWithCode(0), "");
}

TEST(Error, RowsFormatTheirArguments)
{
    EXPECT_EQ(VLD_setup_error(VLD_ERR_CANNOT_OPEN_FILE, "a.vld"), VLD_ERR_CANNOT_OPEN_FILE);
    EXPECT_EQ(VLD_error.code, VLD_ERR_CANNOT_OPEN_FILE);
    EXPECT_STREQ(VLD_error_text(), "Cannot open file \"a.vld\"");

    EXPECT_EQ(VLD_setup_error(VLD_ERR_DATA_FILE_TOO_SHORT, 5, 10), VLD_ERR_DATA_FILE_TOO_SHORT);
    EXPECT_STREQ(VLD_error_text(), "Dataset data file size (5) less than expected (10)");

    VLD_setup_error(VLD_ERR_BAD_KERNEL_SIZE, "k");
    EXPECT_STREQ(VLD_error_text(), "Bad size for kernel \"k\"\n(rows and columns must be odd)");

    VLD_setup_error(VLD_ERR_LINK_INIT_TOO_FEW, 2, "x y");
    EXPECT_STREQ(VLD_error_text(),
                 "Link init program returned too few (2) parameters.\nParameters were: \"x y\".");

    VLD_setup_error(VLD_ERR_DESTINATION_NOT_FOUND);
    EXPECT_STREQ(VLD_error_text(), "Desination chosen not found");  // sic, as users know it
    VLD_setup_error(VLD_ERR_FAKE);
    EXPECT_STREQ(VLD_error_text(), "This is a Fake error and should never be seen");
}

// Callers compare against the numbers, so a name must never move its row.
TEST(Error, NamesKeepTheirNumbers)
{
    struct Case {
        int name;
        int number;
        const char *text;
    };
    const Case cases[] = {
        {VLD_ERR_NONE, 0, ""},
        {VLD_ERR_CANNOT_OPEN_FILE, 1, "Cannot open file \"%s\""},
        {VLD_ERR_BAD_FORMAT, 7, "VLD file \"%s\" has bad format"},
        {VLD_ERR_INTERNAL, 12, "Internal error: \"%s\""},
        {VLD_ERR_MESSAGE, 24, "%s"},
        {VLD_ERR_GEODETIC_TRANSFORM, 31, "Geodetic transform error: \"%s\""},
        {VLD_ERR_VDS, 49, "%s"},
        {VLD_ERR_LINK_INIT, 59, "%s"},
        {VLD_ERR_TRANSLATOR_SYMBOL, 168, "Error in library (%s) loading symbol (%s)"},
        {VLD_ERR_EXTRACTOR_SYMBOL, 172, "Error in library (%s) loading symbol (%s)"},
        {VLD_ERR_OTHER, 196, "%s"},
    };
    for (const Case &c : cases) {
        EXPECT_EQ(c.name, c.number);
        EXPECT_STREQ(VLD_errmsg[c.number], c.text) << c.number;
    }
    EXPECT_EQ(VLD_ERRMSG_ROWS, 197);
}

// Every row's text, byte for byte, against the golden list (one row a line,
// a newline in a text written as \n).
TEST(Error, TableMatchesGolden)
{
    std::ifstream in(VORLAN_TEST_DATA_DIR "/core/errmsg.golden");
    ASSERT_TRUE(in);
    std::string line;
    int rows = 0;
    while (std::getline(in, line)) {
        size_t tab = line.find('\t');
        ASSERT_NE(tab, std::string::npos) << line;
        int row = std::stoi(line.substr(0, tab));
        std::string text = line.substr(tab + 1);
        for (size_t at = 0; (at = text.find("\\n", at)) != std::string::npos; at++)
            text.replace(at, 2, "\n");
        ASSERT_EQ(row, rows);
        ASSERT_LT(row, VLD_ERRMSG_ROWS);
        EXPECT_EQ(VLD_errmsg[row], text) << "row " << row;
        rows++;
    }
    EXPECT_EQ(rows, VLD_ERRMSG_ROWS);
}

TEST(Error, OutOfTableCodeHasEmptyText)
{
    EXPECT_EQ(VLD_setup_error(500), 500);
    EXPECT_STREQ(VLD_error_text(), "");
    EXPECT_EQ(VLD_setup_error(-1), -1);
}

TEST(Error, LongArgumentIsCutAtTheBuffer)
{
    std::string huge(5000, 'x');
    VLD_setup_error(VLD_ERR_MESSAGE, huge.c_str());
    EXPECT_EQ(strlen(VLD_error_text()), VLD_ERRBUF_SIZE - 1u);
}

TEST(Error, VdsErrorUsesItsRow)
{
    EXPECT_EQ(VLD_setup_vds_error("node %d: %s", 3, "failed"), VLD_ERR_VDS);
    EXPECT_EQ(VLD_error.code, VLD_ERR_VDS);
    EXPECT_STREQ(VLD_error_text(), "node 3: failed");
}

TEST(Error, SystemErrorAppendsErrno)
{
    errno = ENOENT;
    VLD_setup_system_error(VLD_ERR_CANNOT_OPEN_FILE, "f");
    EXPECT_STREQ(VLD_error_text(),
                 "Cannot open file \"f\"\nLast system error = 2, No such file or directory");
}

TEST(Error, AppendSystemErrorBounds)
{
    struct Case {
        std::string start;
        int size;
        std::string expected;
    };
    const std::string sys = "Last system error = 2, No such file or directory";  // 48 characters
    const Case cases[] = {
        {"", 256, sys},
        {"abc\n", 256, "abc\n" + sys},
        {"abc", 256, "abc\n" + sys},
        // room = size - (length + built + 1): 64 - (11 + 48 + 1) = 4 characters.
        {"0123456789", 64, "0123456789\nLast"},
        // No room at all: only the newline is added.
        {"0123456789", 40, "0123456789\n"},
        // A buffer already full is left alone, without even the newline.
        {"0123456789", 11, "0123456789"},
    };
    for (const Case &c : cases) {
        char buffer[300];
        strcpy(buffer, c.start.c_str());
        errno = ENOENT;
        append_system_error(buffer, c.size);
        EXPECT_EQ(buffer, c.expected) << "start '" << c.start << "' size " << c.size;
    }
}

TEST(Error, OutputErrorWritesThreeLines)
{
    StreamCapture err(StreamCapture::Err);
    VLD_setup_error(VLD_ERR_LINES_OUTSIDE_DATASET);
    VLD_output_error();
    EXPECT_EQ(err.text(), "VLD Error:\n    34\n    Lines specified are outside dataset range\n");
}

TEST(Error, AppendingStopsAt511Characters)
{
    VLD_setup_error(VLD_ERR_LOADING_ALG);
    append_buffer_to_VLD_error("detail");
    EXPECT_STREQ(VLD_error_text(), "Error loading algorithm\ndetail");
    append_buffer_to_VLD_error(nullptr);
    EXPECT_STREQ(VLD_error_text(), "Error loading algorithm\ndetail\n");

    std::string long_text(600, 'y');
    VLD_setup_error(VLD_ERR_MESSAGE, long_text.c_str());
    append_buffer_to_VLD_error("more");
    EXPECT_EQ(std::string(VLD_error_text()), long_text);

    std::string near(505, 'z');
    VLD_setup_error(VLD_ERR_MESSAGE, near.c_str());
    append_buffer_to_VLD_error("0123456789");
    EXPECT_EQ(std::string(VLD_error_text()), near + "\n01234");
}

TEST(Error, ConstructedMessagesAreOwnedCopies)
{
    char *text = nullptr;
    construct_errmsg(&text, "%s=%d", "n", 4);
    Owned owned(text);
    EXPECT_STREQ(text, "n=4");

    char *sys = nullptr;
    errno = EACCES;
    construct_system_errmsg(&sys, "open %s", "x");
    Owned owned_sys(sys);
    EXPECT_STREQ(sys, "open x\nLast system error = 13, Permission denied");
}

TEST(Error, PlatformReportRules)
{
    StreamCapture err(StreamCapture::Err);
    win32_error(1, nullptr);
    win32_error(1, "four");
    EXPECT_EQ(err.text(), "");
    errno = EPERM;
    win32_error(1, "Create Thread failed");
    EXPECT_EQ(err.text(), "Vorlan (win32) error\nCreate Thread failed\nOperation not permitted\n");

    Owned txt(win32_error_txt(ENOENT));
    EXPECT_EQ(txt.str(), "No such file or directory");
    EXPECT_EQ(win32_error_txt(99999), nullptr);
}

TEST(ErrorDeathTest, FatalEndsTheProcessFromTheMainThread)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(Fatal("it broke"), testing::ExitedWithCode(1), "FATAL: it broke\n");
}

}  // namespace
