// The block-text writer: line formats, padding, value writers, round trips,
// and what a failed write leaves behind (nothing but the old document).
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <cmath>
#include <string>

#include "bt_fixture.h"
#include "capture.h"

namespace {

double g_double;
int32_t g_int;
const char *g_text;

// Writes one document into a string through a block writer of no record.
using BlockFn = void (*)();
std::string written(BlockFn body)
{
    char *text = nullptr;
    ep_to_buffer(
        reinterpret_cast<void *>(body),
        [](void *record, const char *filename) {
            return ep_general(record, filename, "Doc",
                              [](void *r) { reinterpret_cast<BlockFn>(r)(); });
        },
        &text);
    std::string out = text != nullptr ? text : "<null>";
    safe_free(text);
    return out;
}

// One keyword of each type with a value; "" where the line is left out. The
// keywords of 2 to 6 characters show the padding; the last line, 8.
struct LineCase {
    uint32_t code;
    double d;
    int32_t i;
    const char *s;
    const char *line;
};

const LineCase kLines[] = {
    {bt::kInt, 0, -42, nullptr, "Int\t\t\t= -42"},
    {bt::kFlt, 0.1, 0, nullptr, "Flt\t\t\t= 0.10000000000000001"},
    {bt::kFlt, HUGE_VAL, 0, nullptr, "Flt\t\t\t= INF"},
    {bt::kFlt, -HUGE_VAL, 0, nullptr, "Flt\t\t\t= -INF"},
    {bt::kFlt, NAN, 0, nullptr, ""},
    {bt::kLength, 2.5, 0, nullptr, "Len\t\t\t= 2.500m"},
    {bt::kLength, 0.0125, 0, nullptr, "Len\t\t\t= 12.500mm"},
    {bt::kAngle, 10.5, 0, nullptr, "Angle\t\t= 10:30:0.0"},
    {bt::kYn, 0, 1, nullptr, "Yn\t\t\t= Yes"},
    {bt::kYn, 0, 256, nullptr, "Yn\t\t\t= No"},  // the first byte of the field
    {bt::kColour, 0, 2, nullptr, "Colour\t\t= Green"},
    {bt::kWhen, 0, 0, nullptr, "When\t\t= Thu Jan  1 00:00:00 GMT 1970"},
    {bt::kList, 0, 0, nullptr, "List\t\t= {"},
    {bt::kRgb, 0, 0x00ff1601, nullptr, "Rgb\t\t\t= 1,22,255"},
    {bt::kBand, 0, 0, "1:2", "Band\t\t= 1:2"},
    {bt::kBand, 0, 0, nullptr, ""},
    {bt::kStr, 0, 0, "a\"b\\c\nd", "Str\t\t\t= \"a\\\"b\\\\c\nd\""},
    {bt::kStr, 0, 0, "", ""},
    {bt::kStr, 0, 0, nullptr, ""},
    {bt::kFile, 0, 0, "/x/y.vld", "File\t\t= \"\\x\\y.vld\""},  // relative to nothing
};

const LineCase *g_case;

const char *g_path = nullptr;

TEST(Writer, LineFormats)
{
    for (const LineCase &c : kLines) {
        g_case = &c;
        std::string text = written([] {
            uint32_t type = VTYPE_NONE;
            for (const VLD_KEYWORD *k = bt::kTable; k->name != nullptr; k++)
                if (k->code == g_case->code) type = k->type;
            bool text_field =
                type == VTYPE_STRING || type == VTYPE_FILENAME || type == VTYPE_BANDID;
            bool double_field = type == VTYPE_FLOAT || type == VTYPE_DMS || type == VTYPE_LENGTH;
            const void *field = text_field     ? static_cast<const void *>(&g_case->s)
                                : double_field ? static_cast<const void *>(&g_case->d)
                                               : static_cast<const void *>(&g_case->i);
            ep_line(field, g_case->code, bt::kTable);
        });
        std::string expected = std::string("Doc Begin\n") +
                               (*c.line ? "\t" + std::string(c.line) + "\n" : "") + "Doc End\n";
        EXPECT_EQ(text, expected) << c.line;
    }
    EXPECT_EQ(written([] {
                  const char *path = "/x/y z.vld";
                  double bandwidth = 12.50004;
                  VLN_set_fspecs_abs(1);
                  ep_line(&path, bt::kFile, bt::kTable);
                  VLN_set_fspecs_abs(0);
                  ep_bandwidth(&bandwidth, bt::kFlt, bt::kTable);
                  ep_lr_struct_element("Na\"me", "te\\xt");
              }),
              "Doc Begin\n"
              "\tFile\t\t= \"/x/y z.vld\"\n"
              "\tFlt\t\t\t= 12.5\n"
              "\t\"Na\\\"me\"\t= \"te\\\\xt\"\n"
              "Doc End\n");
}

// Found by fuzzing: a file name ending in a separator, or with a backslash
// before a quote, wrote a backslash that escaped a quote, and the document no
// longer read.
TEST(Writer, FileNamesReadBack)
{
    struct Case {
        const char *path, *line, *read;
    } cases[] = {
        {"/data/dir/", "File\t\t= \"/data/dir\"", "File=/data/dir"},
        {"/data/a\"b", "File\t\t= \"/data/a\\\"b\"", "File=/data/a\"b"},
        {"/", "File\t\t= \"/\"", "File=/"},
        // A backslash just before a quote would escape the quote's escape.
        {"/data/a\\\"b", "File\t\t= \"/data/a\\\\\\\"b\"", "File=/data/a/\"b"},
    };
    for (const Case &c : cases) {
        g_path = c.path;
        std::string text = written([] {
            VLN_set_fspecs_abs(1);
            ep_line(&g_path, bt::kFile, bt::kTable);
            VLN_set_fspecs_abs(0);
        });
        EXPECT_EQ(text, "Doc Begin\n\t" + std::string(c.line) + "\nDoc End\n") << c.path;
        bt::Result r = bt::read_text(text);
        ASSERT_EQ(r.status, 0) << r.error;
        ASSERT_EQ(r.seen.lines.size(), 1u);
        EXPECT_EQ(r.seen.lines[0], c.read);
    }
}

TEST(Writer, ValueWriters)
{
    std::string text = written([] {
        static const double array[] = {1, 2.5, -3, 1e-20, 0.1, 7};
        static char *strings[] = {const_cast<char *>("a\"b"), const_cast<char *>(""), nullptr};
        static const VLD_LUT_ENTRY lut[] = {{0, 1, 2, 3}, {255, 65535, 0, 9}};
        static const uint16_t rgb16[] = {1, 22, 333};
        static const uint8_t rgb8[] = {1, 22, 255};
        static const double pairs[] = {0.5, 1, -2, 3.25};
        static const int32_t hist[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11};
        static const VLD_POINTNODE p2 = {nullptr, 3.14159, -2};
        static const VLD_POINTNODE p1 = {const_cast<VLD_POINTNODE *>(&p2), 1, 0.00004};
        ep_raw_line("Array = {");
        ep_array(array, 2, 3);
        ep_text_array(strings);
        ep_text_array(nullptr);
        ep_lut_entries(lut, 2);
        ep_rgb_colours(rgb16, 1);
        ep_c24_colours(rgb8, 1);
        ep_c8_colours(rgb8, 2);
        ep_rescol_entries(rgb8, 1);
        ep_rescol24_entries(rgb8, 1);
        ep_trxyval_entries(pairs, 2);
        ep_hist_entries(hist, 12);
        ep_region_points(&p1);
    });
    EXPECT_EQ(text,
              "Doc Begin\n"
              "\tArray = {\n"
              "\t\t1\t2.5\t-3\n"
              "\t\t1E-20\t0.1\t7\n"
              "\t}\n"
              "\t\t\"a\\\"b\"\n"
              "\t\t\"\"\n"
              "\t}\n"
              "\t\t0\t1\t2\t3\n"
              "\t\t255\t65535\t0\t9\n"
              "\t}\n"
              "\t\t    1    22   333\n"
              "\t}\n"
              "\t\t  1  22 255\n"
              "\t}\n"
              "\t\t  1\n"
              "\t\t 22\n"
              "\t}\n"
              "\t\t1\n"
              "\t}\n"
              "\t\t1 22 255\n"
              "\t}\n"
              "\t\t0.500000\t1.000000\t\n"
              "\t\t-2.000000\t3.250000\t\n"
              "\t}\n"
              "\t\t0\t1\t2\t3\t4\t5\t6\t7\t8\t9\t\n"
              "\t\t10\t11\t\n"
              "\t}\n"
              "\t\t1\t0\n"
              "\t\t3.1416\t-2\n"
              "\t}\n"
              "Doc End\n");
}

// A row is written whole, however long its numbers make it.
TEST(Writer, LongRowsAreWrittenWhole)
{
    std::string text = written([] {
        static const double big[] = {1e308, -1e308};
        ep_trxyval_entries(big, 1);
    });
    char expected[1024];
    snprintf(expected, sizeof expected, "\t\t%f\t%f\t\n", 1e308, -1e308);
    EXPECT_NE(text.find(expected), std::string::npos);
}

TEST(Writer, StringsAndNumbersReadBackEqual)
{
    static const char *strings[] = {
        "\"",        "\\",          "\\\"",     "a\nb\n",
        "tab\there", "#hash",       "end\\",    "  spaced  ",
        "Begin",     "{x} = y",     "\\n",      "x\\\\\\\"y",
        "\"\"\"\\",  "line\n\n\n3", "caf\\xe9", "Mon Jan  2 15:04:05 GMT 2006"};
    std::string all;  // every printable character
    for (int c = 32; c < 127; c++) all += static_cast<char>(c);
    std::vector<std::string> texts(std::begin(strings), std::end(strings));
    texts.push_back(all);
    for (const std::string &s : texts) {
        g_text = s.c_str();
        bt::Result r = bt::read_text(written([] { ep_line(&g_text, bt::kStr, bt::kTable); }));
        EXPECT_EQ(r.seen.lines, std::vector<std::string>{"Str=" + s}) << s << r.error;
    }

    static const double numbers[] = {
        0.1,      -1e-300,  1.7976931348623157e308, 5e-324, 123456789012345678.0, -0.0,
        HUGE_VAL, -HUGE_VAL};
    for (double d : numbers) {
        g_double = d;
        bt::Result r = bt::read_text(written([] { ep_line(&g_double, bt::kFlt, bt::kTable); }));
        char expected[64];
        snprintf(expected, sizeof expected, "Flt=%.17G", d);
        EXPECT_EQ(r.seen.lines, std::vector<std::string>{expected});
    }
}

TEST(Writer, GoldenDocumentOfEveryType)
{
    bt::Record sub;
    bt::Record r = bt::every_type(&sub);
    char *text = nullptr;
    ASSERT_EQ(ep_to_buffer(&r, bt::write_doc, &text), 0);
    std::string golden = bt::slurp(VORLAN_TEST_DATA_DIR "/blocktext/every_type.vld");
    EXPECT_EQ(std::string(text), golden);
    safe_free(text);

    bt::Result back = bt::read_text(golden);
    ASSERT_EQ(back.status, 0) << back.error;
    EXPECT_EQ(back.seen.lines[0], std::string("Str=") + r.str);
    EXPECT_EQ(back.seen.lines[4], "Colour=2");
    EXPECT_EQ(back.seen.lines[5], "When=1136214245");
}

TEST(Writer, DocumentsReplaceTheirFileOnlyWhenComplete)
{
    bt::TempDir dir;
    std::string target = dir.write("out.vld", "old text\n");
    bt::Record r = bt::every_type(nullptr);
    ASSERT_EQ(bt::write_doc(&r, target.c_str()), 0);
    std::string text = bt::slurp(target);
    EXPECT_EQ(text.substr(0, 10), "Doc Begin\n");
    EXPECT_EQ(dir.names(), std::vector<std::string>{"out.vld"});

    // A code or an enum value that the table doesn't know ends the document.
    struct Case {
        const char *what;
        void (*write)(void *);
        const char *error;
    } cases[] = {
        {"code", [](void *) { ep_line(&g_int, 999, bt::kTable); },
         "Internal error: \"Bad structure member code\""},
        {"enum",
         [](void *) {
             g_int = 3;
             ep_line(&g_int, bt::kColour, bt::kTable);
         },
         "Internal error: \"Bad structure member enum value\""},
    };
    for (const Case &c : cases) {
        EXPECT_EQ(ep_general(&r, target.c_str(), "Doc", c.write), 12) << c.what;
        EXPECT_STREQ(VLD_error.text, c.error);
        EXPECT_EQ(bt::slurp(target), text) << c.what;
        EXPECT_EQ(dir.names(), std::vector<std::string>{"out.vld"}) << c.what;
    }

    EXPECT_EQ(ep_general(nullptr, target.c_str(), "Doc", bt::write_record), 12);
    EXPECT_STREQ(VLD_error.text, "Internal error: \"Null structure pointer\"");

    // Renaming over a directory fails: row 26, and the temporary file goes.
    mkdir(dir.file("adir").c_str(), 0755);
    dir.write("adir/keep", "x");
    {
        StreamCapture err(StreamCapture::Err);
        EXPECT_EQ(bt::write_doc(&r, dir.file("adir").c_str()), 26);
        EXPECT_EQ(err.text().rfind("VLDLIB: ", 0), 0u);
    }
    EXPECT_EQ(dir.names(), std::vector<std::string>{"out.vld"});

    // A directory that can't be written.
    mkdir(dir.file("ro").c_str(), 0555);
    EXPECT_EQ(bt::write_doc(&r, dir.file("ro/x.vld").c_str()), 27);
    EXPECT_EQ(std::string(VLD_error.text), "Directory \"" + dir.file("ro") + "\" is not writable");
}

// A write that fails part-way (the file size limit, here) leaves the old
// document as it was and no temporary file.
TEST(Writer, FailedWriteLeavesTheOldFile)
{
    bt::TempDir dir;
    std::string target = dir.write("out.vld", "old text\n");
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        signal(SIGXFSZ, SIG_IGN);
        struct rlimit limit = {1024, 1024};
        setrlimit(RLIMIT_FSIZE, &limit);
        int status = ep_general(&limit, target.c_str(), "Doc", [](void *) {
            std::string long_text(300, 'x');
            const char *p = long_text.c_str();
            for (int i = 0; i < 100; i++) ep_line(&p, bt::kStr, bt::kTable);
        });
        _exit(status == 5 && strstr(VLD_error.text, "Cannot write to file") != nullptr ? 0 : 1);
    }
    int wstatus = 0;
    waitpid(child, &wstatus, 0);
    EXPECT_TRUE(WIFEXITED(wstatus) && WEXITSTATUS(wstatus) == 0);
    EXPECT_EQ(bt::slurp(target), "old text\n");
    EXPECT_EQ(dir.names(), std::vector<std::string>{"out.vld"});
}

TEST(Writer, StandardOutputNestingAndNullRecords)
{
    bt::Record sub;
    bt::Record r = bt::every_type(&sub);
    {
        StreamCapture out(StreamCapture::Out);
        EXPECT_EQ(bt::write_doc(&r, "-"), 0);
        EXPECT_EQ(out.text(), bt::slurp(VORLAN_TEST_DATA_DIR "/blocktext/every_type.vld"));
    }
    // Outside a document there is nothing to nest in.
    EXPECT_EQ(ep_general(&r, nullptr, "Doc", bt::write_record), 9);

    // A null record leaves a sub-block out; a null block name leaves out its
    // two lines but not what the writer writes.
    std::string text = written([] {
        ep_general(nullptr, nullptr, "Gone", bt::write_record);
        ep_general(&g_int, nullptr, nullptr, [](void *) { ep_raw_line("bare"); });
    });
    EXPECT_EQ(text, "Doc Begin\n\t\tbare\nDoc End\n");

    char *out = reinterpret_cast<char *>(1);
    EXPECT_EQ(ep_to_buffer(&r, nullptr, &out), 9);
    EXPECT_EQ(out, nullptr);
}

}  // namespace

// A document written through a symbolic link replaces the file the link
// points to, in that file's folder, and the link stays a link; the file keeps
// its permissions.
TEST(Writer, LinksAreWrittenThroughAndPermissionsKept)
{
    bt::TempDir dir;
    mkdir(dir.file("real").c_str(), 0755);
    struct Case {
        const char *what;
        std::string path;    // what the writer is given
        std::string target;  // the file that must hold the document
        mode_t mode;         // of the target before and after
    } cases[] = {
        {"plain file of mode 0600", dir.file("private.vld"), dir.file("private.vld"), 0600},
        {"absolute link", dir.file("abs.vld"), dir.file("real/abs.vld"), 0640},
        {"relative link into another folder", dir.file("rel.vld"), dir.file("real/rel.vld"), 0604},
        {"chain of two links", dir.file("chain.vld"), dir.file("real/chain.vld"), 0644},
    };
    ASSERT_EQ(symlink(dir.file("real/abs.vld").c_str(), dir.file("abs.vld").c_str()), 0);
    ASSERT_EQ(symlink("real/rel.vld", dir.file("rel.vld").c_str()), 0);
    ASSERT_EQ(symlink("chain2.vld", dir.file("chain.vld").c_str()), 0);
    ASSERT_EQ(symlink("real/chain.vld", dir.file("chain2.vld").c_str()), 0);
    bt::Record r = bt::every_type(nullptr);
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        std::ofstream(c.target) << "old text\n";
        ASSERT_EQ(chmod(c.target.c_str(), c.mode), 0);
        ASSERT_EQ(bt::write_doc(&r, c.path.c_str()), 0) << VLD_error.text;
        EXPECT_EQ(bt::slurp(c.target).substr(0, 10), "Doc Begin\n");
        struct stat st;
        ASSERT_EQ(stat(c.target.c_str(), &st), 0);
        EXPECT_EQ(st.st_mode & 07777, c.mode);
        ASSERT_EQ(lstat(c.path.c_str(), &st), 0);
        EXPECT_EQ(S_ISLNK(st.st_mode), c.path != c.target);
    }
    // No temporary file is left in either folder.
    for (const std::string &folder : {dir.file(""), dir.file("real")})
        for (const auto &e : std::filesystem::directory_iterator(folder))
            EXPECT_NE(e.path().filename().string().rfind("tmp", 0), 0u) << e.path();

    // A link to a file that doesn't exist yet creates it where the link points.
    ASSERT_EQ(symlink("real/new.vld", dir.file("new.vld").c_str()), 0);
    ASSERT_EQ(bt::write_doc(&r, dir.file("new.vld").c_str()), 0);
    EXPECT_EQ(bt::slurp(dir.file("real/new.vld")).substr(0, 10), "Doc Begin\n");
}
