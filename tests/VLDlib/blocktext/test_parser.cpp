// The block-text parser and reader: statements, type checks, conversions,
// blocks, diagnostics, file names in documents, lists and parent paths.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cmath>
#include <random>
#include <string>

#include "bt_fixture.h"

namespace {

using bt::read_text;

std::string doc(const std::string &body)
{
    return "Doc Begin\n" + body + "\nDoc End\n";
}

TEST(Parser, ValuesConvertToTheDeclaredType)
{
    struct Case {
        const char *body, *seen;
    } cases[] = {
        {"Yn = YES", "Yn=1"},
        {"Yn = t", "Yn=1"},
        {"Yn = False", "Yn=0"},
        {"Yn = n", "Yn=0"},
        {"Colour = green", "Colour=2"},
        {"Color = VERDE", "Colour=2"},
        {"Flt = 3", "Flt=3"},
        {"Flt = -2.5e-3", "Flt=-0.0025000000000000001"},
        {"Flt = 1e999", "Flt=INF"},
        {"Flt = INF", "Flt=INF"},
        {"Flt = -inf", "Flt=-INF"},
        {"Flt = +INF", "Flt=0"},
        {"Int = -2147483648", "Int=-2147483648"},
        {"Int = +42", "Int=42"},
        {"When = Thu Jan  1 00:00:01 GMT 1970", "When=1"},
        {"When = Fri Dec 13 20:45:52 GMT 1901", "When=-2147483648"},
        {"When = Tue Jan 19 03:14:07 GMT 2038", "When=2147483647"},
        {"Band = 3", "Band=3"},
        {"Band = 1:2", "Band=1:2"},
        {"Band = 1:2:3", "Band=1:2:3"},
        {"Angle = -10:30:0", "Angle=-10.5"},
        {"Angle = 0:0:36.0", "Angle=0.01"},
        {"Rgb = 0,128,255", "Rgb=0,128,255"},
        {"Rgb = 1 ,2, 3", "Rgb=1,2,3"},
        {"List = {1 2.5 \"x y\" word}", "List=1|2.5|x y|word"},
        {"Str = \"\"", "Str="},
    };
    for (const Case &c : cases) {
        bt::Result r = read_text(doc(c.body));
        EXPECT_EQ(r.status, 0) << c.body << "\n" << r.error;
        EXPECT_EQ(r.seen.lines, std::vector<std::string>{c.seen}) << c.body;
    }
}

TEST(Parser, BadValuesStopTheDocument)
{
    struct Case {
        const char *body, *message;
    } cases[] = {
        {"Yn = maybe", "Expecting Yes|No|True|False, Received \"maybe\""},
        {"Colour = Blue", "Unknown Colour \"Blue\""},
        {"Int = 2147483648", "Value out of range \"2147483648\""},
        {"Rgb = 1,256,3", "Value out of range \"256\""},
        // Found by fuzzing: such an angle read, but could not be written back.
        {"Angle = 90:0:100000000000000000000.0",
         "Value out of range \"90:0:100000000000000000000.0\""},
        {"When = Tue Jan 19 03:14:08 GMT 2038",
         "Date out of range \"Tue Jan 19 03:14:08 GMT 2038\""},
        {"When = Mon Feb 30 00:00:00 GMT 2001", "Invalid date \"Mon Feb 30 00:00:00 GMT 2001\""},
        {"Int = 1.5", "Bad Type.  Expecting VTYPE_INT, received VTYPE_FLOAT (1.5)"},
        {"Angle = 1:2", "Bad Type.  Expecting VTYPE_DMS, received VTYPE_BANDID (1:2)"},
        {"Str = word", "Bad Type.  Expecting VTYPE_STRING, received VTYPE_UNKNOWN (word)"},
        {"Len = 1", "Bad Type.  Expecting VTYPE_???, received VTYPE_INT (1)"},
        {"Sub = 1", "Bad Type.  Expecting VTYPE_BLOCK, received VTYPE_INT (1)"},
        {"Int Begin", "Bad Type.  Expecting VTYPE_INT, received VTYPE_BLOCK (Begin)"},
        {"Bogus = 1", "Unknown identifier \"Bogus\""},
        {"Bogus Begin", "Unknown identifier \"Bogus\""},
        {"Int =\n1", "parse error"},
        {"= 1", "parse error"},
        {"Int = 1 Str = \"x\"", "parse error"},  // the token after an integer is dropped
        {"Band = -1:2", "parse error"},
        {"Int = begin", "parse error"},  // reserved in any case
        {"Str = _", "parse error"},
        {"Str = -", "parse error"},
        {"Rgb = 1,2", "parse error"},
        {"List = {}", "parse error"},
        {"List = {1 {2}}", "parse error"},
        {"List = {1:2}", "parse error"},
        {"List = {Mon Jan  2 15:04:05 GMT 2006}", "parse error"},
    };
    for (const Case &c : cases) {
        bt::Result r = read_text(doc(std::string(c.body) + "\nInt = 7"));
        EXPECT_EQ(r.status, 7) << c.body;
        EXPECT_EQ(r.error.rfind(
                      "VLD file \"\" has bad format\nERROR: " + std::string(c.message) + "\n", 0),
                  0u)
            << c.body << "\n"
            << r.error;
        for (const std::string &line : r.seen.lines) EXPECT_NE(line, "Int=7") << c.body;
    }
}

TEST(Parser, DiagnosticsNameTheLine)
{
    bt::Result r = read_text("Doc Begin\n  Int = 1\n  Bogus = 12\nDoc End\n");
    EXPECT_EQ(bt::diagnostic(r.error),
              "ERROR: Unknown identifier \"Bogus\"\n"
              "    Line number: 3\n");
    r = read_text("Doc Begin\n\n  Int = \"twelve and more than twenty\"\n");
    EXPECT_EQ(bt::diagnostic(r.error),
              "ERROR: Bad Type.  Expecting VTYPE_INT, received VTYPE_STRING (twelve and more than "
              "twenty)\n"
              "    Line number: 3\n"
              "    Near       : \"twelve and more than\"\n");
}

TEST(Parser, BlocksNestAndMatch)
{
    bt::Result r =
        read_text(doc("Int = 1\nSub Begin\n Sub Begin\n Str = \"in\"\n Sub End\nSub End\nInt = 2"));
    EXPECT_EQ(r.status, 0) << r.error;
    std::vector<std::string> expected = {"Int=1", "Sub{", "Sub{", "Str=in", "}", "}", "Int=2"};
    EXPECT_EQ(r.seen.lines, expected);

    struct Case {
        const char *text, *diagnostic;
    } cases[] = {
        {"Doc Begin\nSub Begin\nInt = 1\nDoc End\n",
         "ERROR: Missing \"Sub END\"\n    Line number: 4\n    Near       : \"End\"\n"},
        {"Doc Begin\nFoo End\n",
         "ERROR: \"Foo End\" without \"Foo Begin\"\n    Line number: 2\n    Near       : "
         "\"End\"\n"},
        {"Doc Begin\nInt = 1", "ERROR: Missing \"Doc END\"\n    Line number: 2\n"},
        {"Doc Begin\nSub Begin\n",
         "ERROR: Missing \"Sub END\"\n    Line number: 2\nERROR: Missing "
         "\"Doc END\"\n    Line number: 2\n"},
        {"Other Begin\n",
         "ERROR: Expecting 1st statement to be \"Doc Begin\"\n    Line number: 1\n    Near       : "
         "\"Begin\"\n"},
        {"\n# nothing\n",
         "ERROR: Expecting 1st statement to be \"Doc Begin\"\n    Line number: 2\n"},
        {"Doc = 1\n",
         "ERROR: Expecting 1st statement to be \"Doc Begin\"\n    Line number: 1\n    Near       : "
         "\"=\"\n"},
    };
    for (const Case &c : cases) {
        r = read_text(c.text);
        EXPECT_EQ(r.status, 7) << c.text;
        EXPECT_EQ(bt::diagnostic(r.error), c.diagnostic) << c.text;
    }

    // Nothing after the document's own End is read; its name is case-blind.
    r = read_text("doc BEGIN\nInt = 1\nDOC end\ngarbage = = =");
    EXPECT_EQ(r.status, 0) << r.error;
}

TEST(Parser, TwentyOpenBlocksAtMost)
{
    auto nested = [](int subs) {
        std::string text = "Doc Begin\n";
        for (int i = 0; i < subs; i++) text += "Sub Begin\n";
        for (int i = 0; i < subs; i++) text += "Sub End\n";
        return text + "Doc End\n";
    };
    EXPECT_EQ(read_text(nested(19)).status, 0);
    bt::Result r = read_text(nested(20));
    EXPECT_EQ(r.status, 7);
    EXPECT_EQ(bt::diagnostic(r.error),
              "ERROR: Too many nested blocks\n    Line number: 21\n    Near       : \"Begin\"\n");
}

// A list of the wrong length is an error of the document, but reading goes on.
std::vector<int> list_counts;
void counting_callback(void *record, VLD_STATEMENT *st)
{
    if (st->type == VTYPE_LIST) {
        double *values = nullptr;
        list_counts.push_back(conv_list_to_array(&values, st->value.list, 3));
        safe_free(values);
        return;
    }
    bt::callback(record, st);
}

TEST(Parser, WrongListLengthIsCountedButReadingGoesOn)
{
    list_counts.clear();
    bt::Seen seen;
    std::string text = doc("List = {1 2}\nInt = 5\nList = {1 2 3}");
    auto reader = [](void *address, const char *) {
        return eg_general(*static_cast<bt::Seen **>(address), nullptr, "Doc", bt::kTable,
                          counting_callback);
    };
    bt::Seen *p = &seen;
    int status = eg_from_buffer(text.c_str(), reader, &p);
    EXPECT_EQ(status, 7);
    EXPECT_EQ(list_counts, (std::vector<int>{2, 3}));
    EXPECT_EQ(seen.lines, std::vector<std::string>{"Int=5"});
    EXPECT_EQ(bt::diagnostic(VLD_error.text),
              "ERROR: Wrong number of list elements.  Expecting: 3, got: 2\n"
              "    Line number: 2\n"
              "    Near       : \"}\"\n");
}

textnode *make_list(std::initializer_list<const char *> texts)
{
    textnode *head = nullptr, **tail = &head;
    for (const char *t : texts) {
        auto *node = static_cast<textnode *>(malloc_or_die(sizeof(textnode)));
        node->next = nullptr;
        node->text = strsave(t);
        *tail = node;
        tail = &node->next;
    }
    return head;
}

TEST(Parser, ListsToArrays)
{
    double *d = nullptr;
    EXPECT_EQ(conv_list_to_array(&d, make_list({"1.5", "-2", "1e3", "abc", "0x10"}), -1), 5);
    ASSERT_NE(d, nullptr);
    EXPECT_EQ(std::vector<double>(d, d + 5), (std::vector<double>{1.5, -2, 1000, 0, 0}));
    safe_free(d);
    EXPECT_EQ(conv_list_to_array(&d, nullptr, -1), 0);
    EXPECT_EQ(d, nullptr);

    int32_t *i = nullptr;
    EXPECT_EQ(conv_list_to_INT32_array(&i, make_list({"2.9", "-2.9", "1e300", "-1e300"}), 4), 4);
    EXPECT_EQ(std::vector<int32_t>(i, i + 4), (std::vector<int32_t>{2, -2, INT32_MAX, INT32_MIN}));
    safe_free(i);

    double **m = nullptr;
    EXPECT_EQ(conv_list_to_2Darray(&m, make_list({"1", "2", "3", "4", "5", "6"}), 2, 3), 6);
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(m[0][2], 3);
    EXPECT_EQ(m[1][0], 4);
    EXPECT_EQ(m[1][2], 6);
    safe_free(m);
    EXPECT_EQ(conv_list_to_2Darray(&m, make_list({"1", "2", "3"}), 2, 2), 0);
    EXPECT_EQ(m, nullptr);
}

TEST(Parser, ParentPathStackAndNestedReads)
{
    // A nested read needs an input open.
    EXPECT_EQ(eg_general(nullptr, nullptr, "Doc", bt::kTable, bt::callback), 9);
    EXPECT_EQ(eg_from_buffer(nullptr, bt::reader, nullptr), 9);
    EXPECT_EQ(VLD_get_parent_path(), nullptr);
    VLD_push_parent_path(nullptr);
    EXPECT_EQ(VLD_get_parent_path(), nullptr);
    VLD_push_parent_path(strsave("/a"));
    VLD_push_parent_path(strsave("/a/b"));
    EXPECT_STREQ(VLD_get_parent_path(), "/a/b");
    VLD_pop_parent_path(nullptr);
    EXPECT_STREQ(VLD_get_parent_path(), "/a/b");
    VLD_pop_parent_path("/a/b");
    EXPECT_STREQ(VLD_get_parent_path(), "/a");
    VLD_pop_parent_path("/a");
    EXPECT_EQ(VLD_get_parent_path(), nullptr);
}

TEST(Parser, FileNamesAreMadeAbsoluteAgainstTheDocument)
{
    bt::TempDir dir;
    dir.write("data.vld", "x");
    mkdir(dir.file("sub").c_str(), 0755);
    dir.write("sub/two.vld", "x");
    std::string d = dir.path();
    struct Case {
        std::string written, resolved;
    } cases[] = {
        {"data.vld", d + "/data.vld"},
        {"sub\\two.vld", d + "/sub/two.vld"},
        {"missing.vld", "missing.vld"},
        {"sub\\missing.vld", "sub/missing.vld"},
        {"http:/host/x.vld", "http://host/x.vld"},
        {d + "/data.vld", d + "/data.vld"},
        // A network name that lost a backslash gets it back where it exists.
        {"\\" + d.substr(1) + "\\data.vld", "/" + d + "/data.vld"},
    };
    // Read from another directory, so that only the document's own counts.
    char *cwd = getcwd(nullptr, 0);
    ASSERT_EQ(chdir("/"), 0);
    for (const Case &c : cases) {
        std::string path = dir.write("doc.vld", doc("File = \"" + c.written + "\""));
        bt::Result r = bt::read_file(path);
        EXPECT_EQ(r.status, 0) << c.written << r.error;
        EXPECT_EQ(r.seen.lines, std::vector<std::string>{"File=" + c.resolved}) << c.written;
    }
    EXPECT_EQ(chdir(cwd), 0);
    free(cwd);
    EXPECT_EQ(VLD_get_parent_path(), nullptr);
}

// A callback may read another document by name; the first goes on after it.
std::string included_path;
void including_callback(void *record, VLD_STATEMENT *st)
{
    if (st->code == bt::kStr) {
        bt::Seen inner;
        int status = eg_general(&inner, included_path.c_str(), "Doc", bt::kTable, bt::callback);
        auto *seen = static_cast<bt::Seen *>(record);
        seen->lines.push_back("include " + std::to_string(status));
        for (const std::string &l : inner.lines) seen->lines.push_back("  " + l);
        safe_free(st->value.s);
        return;
    }
    bt::callback(record, st);
}

TEST(Parser, ACallbackMayReadAnotherDocument)
{
    bt::TempDir dir;
    included_path = dir.write("inner.vld", doc("Int = 2"));
    std::string outer = dir.write("outer.vld", doc("Int = 1\nStr = \"go\"\nInt = 3\nBogus = 4"));
    bt::Seen seen;
    int status = eg_general(&seen, outer.c_str(), "Doc", bt::kTable, including_callback);
    EXPECT_EQ(status, 7);
    std::vector<std::string> expected = {"Int=1", "include 0", "  Int=2", "Int=3"};
    EXPECT_EQ(seen.lines, expected);
    EXPECT_NE(std::string(VLD_error.text).find("Source file: " + outer), std::string::npos);
}

// Truncated documents, garbage and wrong element types end in an error,
// never in a crash or a leak.
TEST(Parser, BadInputNeverCrashes)
{
    std::string good = bt::slurp(VORLAN_TEST_DATA_DIR "/blocktext/every_type.vld");
    ASSERT_FALSE(good.empty());
    ASSERT_EQ(read_text(good).status, 0);
    for (size_t n = 0; n < good.size(); n++) read_text(good.substr(0, n));

    std::mt19937 random(7);
    for (int round = 0; round < 300; round++) {
        std::string text = "Doc Begin\n";
        int length = static_cast<int>(random() % 200);
        for (int i = 0; i < length; i++) text += static_cast<char>(1 + random() % 255);
        bt::Result r = read_text(text);
        EXPECT_TRUE(r.status == 0 || r.status == 7);
    }
    const char *wrong[] = {"List = {1 Begin}", "List = {\"a\" 1:2:3}", "List = {",
                           "Rgb = 1,2,",       "List = {1 2",          "Str = \"\\"};
    for (const char *body : wrong) EXPECT_EQ(read_text(doc(body)).status, 7) << body;
}

}  // namespace
