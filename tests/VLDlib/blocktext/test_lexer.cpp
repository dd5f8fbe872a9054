// The block-text scanner: token kinds, strings, comments, line ends, bad
// characters, the three inputs, and the cost of a large document.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>

#include "bt_fixture.h"
#include "capture.h"

namespace {

using bt::read_text;

std::string doc(const std::string &body)
{
    return "Doc Begin\n" + body + "\nDoc End\n";
}

// A keyword of no type takes no value, so the "Bad Type" message names the
// kind the scanner gave the value, and its text.
TEST(Lexer, TokenKinds)
{
    struct Case {
        const char *value, *kind, *text;
    } cases[] = {
        {"12", "VTYPE_INT", "12"},
        {"-12", "VTYPE_INT", "-12"},
        {"+7", "VTYPE_INT", "+7"},
        {"1.", "VTYPE_FLOAT", "1."},
        {".5", "VTYPE_FLOAT", ".5"},
        {"1e5", "VTYPE_FLOAT", "1e5"},
        {"-.5E+2", "VTYPE_FLOAT", "-.5E+2"},
        {"1e", "VTYPE_INT", "1"},  // no exponent digits: "e" is the dropped token
        {"0x10", "VTYPE_INT", "0"},
        {"INF", "VTYPE_FLOAT", "INF"},
        {"-inf", "VTYPE_FLOAT", "-inf"},
        {"+Inf", "VTYPE_FLOAT", "+Inf"},
        {"INFO", "VTYPE_UNKNOWN", "INFO"},
        {"nan", "VTYPE_UNKNOWN", "nan"},
        {"word_1", "VTYPE_UNKNOWN", "word_1"},
        {"1:2", "VTYPE_BANDID", "1:2"},
        {"1:2:3:4", "VTYPE_BANDID", "1:2:3:4"},
        {"1:2:3:4.5", "VTYPE_BANDID", "1:2:3:4"},
        {"1:2:3", "VTYPE_DMS", "1:2:3"},
        {"-1:2:3.5", "VTYPE_DMS", "-1:2:3.5"},
        {"1:-2:+3", "VTYPE_DMS", "1:-2:+3"},
        {"0:0:.5", "VTYPE_DMS", "0:0:.5"},
        {"-1:2", "VTYPE_INT", "-1"},  // no token of its own
        {"Mon Jan  2 15:04:05 GMT 2006", "VTYPE_DATETIME", "Mon Jan  2 15:04:05 GMT 2006"},
        {"sun DEC 31 23:59:59 GMT 1999", "VTYPE_DATETIME", "sun DEC 31 23:59:59 GMT 1999"},
        {"Mon Jan 2 15:04:05 GMT 2006", "VTYPE_UNKNOWN", "Mon"},  // one blank before one digit
        {"Monday", "VTYPE_UNKNOWN", "Monday"},
        {"\"a # b\"", "VTYPE_STRING", "a # b"},
        {"{1 -2.5 \"s\" w}", "VTYPE_LIST", "{...}"},
        {"1,2,3", "VTYPE_???", "1,2,3"},
    };
    for (const Case &c : cases) {
        bt::Result r = read_text(doc(std::string("None = ") + c.value));
        std::string expected = std::string("Bad Type.  Expecting VTYPE_NONE, received ") + c.kind +
                               " (" + c.text + ")";
        EXPECT_NE(r.error.find(expected), std::string::npos) << c.value << "\n" << r.error;
    }
}

TEST(Lexer, StringsKeepTheirContent)
{
    struct Case {
        const char *value, *content;
    } cases[] = {
        {R"("x\"y")", "x\"y"},
        {R"("x\\y")", "x\\y"},
        {R"("x\ny")", "x\\ny"},  // only \" and \\ are escapes
        {R"("x\\")", "x\\"},
        {R"("x\\\"")", "x\\\""},
        {"\"two\r\nlines\"", "two\nlines"},
        {"\"a\tb\"", "a\tb"},
        {R"("")", ""},
    };
    for (const Case &c : cases) {
        bt::Result r = read_text(doc(std::string("Str = ") + c.value));
        ASSERT_EQ(r.status, 0) << c.value << r.error;
        ASSERT_EQ(r.seen.lines.size(), 1u);
        EXPECT_EQ(r.seen.lines[0], std::string("Str=") + c.content) << c.value;
    }
}

TEST(Lexer, CommentsLineEndsAndBraces)
{
    bt::Result r = read_text(
        "# heading\r\n"
        "Doc Begin # trailing\r\n"
        "\r\n"
        "   Int = 5 # after an integer\r\n"
        "\tStr = \"a # b\" # after a string\r\n"
        "List = {1\r\n 2 # inside\n\n 3}\n"
        "Doc End");
    ASSERT_EQ(r.status, 0) << r.error;
    std::vector<std::string> expected = {"Int=5", "Str=a # b", "List=1|2|3"};
    EXPECT_EQ(r.seen.lines, expected);

    // A lone carriage return is a character of its own.
    r = read_text("Doc Begin\r Int = 1\nDoc End\n");
    EXPECT_NE(r.error.find("ERROR: parse error"), std::string::npos) << r.error;
}

TEST(Lexer, LinesAreCountedInStringsAndBraces)
{
    bt::Result r = read_text(
        "Doc Begin\n"
        "Str = \"one\ntwo\"\n"
        "List = {1\n2}\n"
        "Bogus = \"x\"\n");
    EXPECT_EQ(bt::diagnostic(r.error),
              "ERROR: Unknown identifier \"Bogus\"\n"
              "    Line number: 6\n"
              "    Near       : \"x\"\n");
}

TEST(Lexer, UnterminatedString)
{
    bt::Result r = read_text("Doc Begin\nStr = \"abc\ndef\n");
    EXPECT_NE(r.status, 0);
    EXPECT_EQ(bt::diagnostic(r.error),
              "ERROR: Unterminated string starting on line 2\n"
              "    Line number: 4\n"
              "    Near       : \"abc\"\n");
    EXPECT_TRUE(r.seen.lines.empty());
}

TEST(Lexer, BadCharacters)
{
    // In memory a bad character is reported, and the parse sees the end there.
    bt::Result r = read_text("Doc Begin\nInt = 1\nStr = \"caf\xc3\xa9\"\nDoc End\n");
    EXPECT_NE(r.status, 0);
    EXPECT_EQ(r.seen.lines, std::vector<std::string>{"Int=1"});
    EXPECT_NE(r.error.find("ERROR: Error in file.\n    Line number: 3\n"), std::string::npos)
        << r.error;

    // In the first statement it makes a binary file.
    r = read_text("Doc\x01 Begin\n");
    EXPECT_NE(r.error.find("Expecting 1st statement to be \"Doc Begin\""), std::string::npos);
    EXPECT_NE(r.error.find("Invalid header file, probably a binary file"), std::string::npos);

    // Form feed, vertical tab and backspace are allowed characters, though no
    // rule takes them.
    r = read_text("Doc Begin\n\f\n");
    EXPECT_NE(r.error.find("ERROR: parse error"), std::string::npos) << r.error;
    EXPECT_EQ(r.error.find("Error in file"), std::string::npos) << r.error;
}

TEST(Lexer, FileInputsNameTheirSourceAndLine)
{
    bt::TempDir dir;
    std::string path = dir.write("bad.vld", "Doc Begin\r\n  Int = 1.5\r\nDoc End\r\n");
    std::string expected_tail =
        "ERROR: Bad Type.  Expecting VTYPE_INT, received VTYPE_FLOAT (1.5)\n"
        "    Source file: " +
        path +
        "\n"
        "    Line number: 2\n"
        "    Line       :   Int = 1.5\n"
        "    Near       : \"1.5\"\n";

    // Mapped, as eg_general reads.
    bt::Result r = bt::read_file(path);
    EXPECT_EQ(r.status, 7);
    EXPECT_EQ(r.error, "VLD file \"" + path + "\" has bad format\n" + expected_tail);

    // By stdio: the line is read again from the start, and reading goes on.
    int errors = -1;
    ASSERT_EQ(VLD_init_lexer(0, &errors, path.c_str(), nullptr), 1);
    EXPECT_EQ(errors, 0);
    EXPECT_EQ(rf_check_file(), 1);
    EXPECT_EQ(rf_init_parser("Doc"), 1);
    VLD_STATEMENT st;
    EXPECT_EQ(rf_get_stmeminfo(&st, bt::kTable), 0);
    EXPECT_EQ(errors, 1);
    VLD_finalise_lexer();
    EXPECT_EQ(rf_check_file(), 0);

    // Far into a long document, after a string that spans lines, the quoted
    // line is still the one that holds the error.
    std::string body = "Doc Begin\n";
    for (int i = 0; i < 20000; i++) body += "  Int = " + std::to_string(i) + "\n";
    body += "  Str = \"two\nlines\"\n  Int = 2.5 # the bad one\nDoc End\n";
    path = dir.write("long.vld", body);
    r = bt::read_file(path);
    EXPECT_NE(r.error.find("    Line number: 20004\n    Line       :   Int = 2.5 # the bad one\n"),
              std::string::npos)
        << bt::diagnostic(r.error);

    // The library's standard input, named "-".
    FILE *in = tmpfile();
    fputs("Doc Begin\nInt = 1\nBogus = 2\nDoc End\n", in);
    rewind(in);
    vln_SetStdIn(in);
    r = bt::read_file("-");
    vln_SetStdIn(nullptr);
    fclose(in);
    EXPECT_EQ(bt::diagnostic(r.error),
              "ERROR: Unknown identifier \"Bogus\"\n"
              "    Source file: standard input\n"
              "    Line number: 3\n");
    EXPECT_EQ(r.seen.lines, std::vector<std::string>{"Int=1"});
}

TEST(Lexer, InputsThatCannotBeOpened)
{
    bt::TempDir dir;
    std::string empty = dir.write("empty.vld", "");
    struct Case {
        std::string path;
    } cases[] = {{empty}, {dir.file("missing.vld")}, {dir.path()}};
    for (const Case &c : cases) {
        bt::Result r = bt::read_file(c.path);
        EXPECT_EQ(r.status, 1) << c.path;
        EXPECT_EQ(r.error, "Cannot open file \"" + c.path + "\"");
    }
    // An empty stream or text is opened, and is a zero-length header.
    int errors = 0;
    ASSERT_EQ(VLD_init_lexer(0, &errors, empty.c_str(), nullptr), 1);
    EXPECT_EQ(rf_init_parser("Doc"), 0);
    VLD_finalise_lexer();
    bt::Result r = read_text("");
    EXPECT_EQ(bt::diagnostic(r.error),
              "ERROR: Invalid header file, probably a 0 length file\n"
              "    Line number: 1\n");
}

// A FIFO is refused at once, without waiting for a writer or reading from it.
// The test writes a whole document into the FIFO and closes its end a little
// later, so that a reader that does read it sees a good document, not a hang.
TEST(Lexer, FifoIsRefusedWithoutReadingIt)
{
    bt::TempDir dir;
    std::string fifo = dir.file("fifo.vld");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    for (int mode : {0, 2}) {
        int fd = open(fifo.c_str(), O_RDWR | O_NONBLOCK);
        ASSERT_GE(fd, 0);
        std::string text = doc("Int = 1");
        ASSERT_EQ(write(fd, text.data(), text.size()), static_cast<ssize_t>(text.size()));
        std::thread closer([fd] {
            std::this_thread::sleep_for(std::chrono::milliseconds(200));
            close(fd);
        });
        if (mode == 2) {
            bt::Result r = bt::read_file(fifo);
            EXPECT_EQ(r.status, 1);
            EXPECT_EQ(r.error, "Cannot open file \"" + fifo + "\"\nIt is not a regular file");
        } else {
            int errors = 0;
            EXPECT_EQ(VLD_init_lexer(mode, &errors, fifo.c_str(), nullptr), 0);
        }
        closer.join();
    }
}

TEST(Lexer, HandWrittenDocument)
{
    bt::Result r = bt::read_file(VORLAN_TEST_DATA_DIR "/blocktext/hand_written.vld");
    ASSERT_EQ(r.status, 0) << r.error;
    std::vector<std::string> expected = {
        "Str=with \"quotes\", a # and a \\",
        "Int=12",
        "Flt=-1500",
        "Yn=1",
        "Colour=2",
        "When=1582977600",
        "List=1|2.5|three|four",
        "Band=1:2:3:4",
        "Angle=-33.865138888888893",
        "Rgb=10,20,30",
        "File=../elsewhere/image.vld",  // not found: left relative
        "Sub{",
        "Flt=INF",
        "Sub{",
        "Band=7",
        "}",
        "}",
    };
    EXPECT_EQ(r.seen.lines, expected);
}

// A list of 65,536 numbers in about a megabyte reads whole (its speed is
// measured in bench/).
TEST(Lexer, LargeListReadsInOnePass)
{
    std::string text = "Doc Begin\nList = {";
    for (int i = 0; i < 65536; i++) text += " " + std::to_string(i) + ".0625001";
    text += "}\nDoc End\n";
    ASSERT_GT(text.size(), 900000u);
    bt::TempDir dir;
    std::string path = dir.write("big.vld", text);

    bt::Result r = bt::read_file(path);
    ASSERT_EQ(r.status, 0) << r.error;
    ASSERT_EQ(r.seen.lines.size(), 1u);
    EXPECT_EQ(r.seen.lines[0].substr(0, 25), "List=0.0625001|1.0625001|");
}

}  // namespace
