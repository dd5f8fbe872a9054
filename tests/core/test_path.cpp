// Names, splitting and joining, file tests, temporary names and searches.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <set>
#include <string>
#include <vector>

#include "path_fixtures.h"
#include "vln_path.h"

namespace {

std::vector<std::string> split(const char *path,
                               int (*splitter)(char ***, int *, const char *) = VLN_split_filepath)
{
    char **parts = nullptr;
    int count = -1;
    EXPECT_EQ(splitter(&parts, &count, path), 0) << path;
    std::vector<std::string> out(parts, parts + count);
    EXPECT_EQ(parts[count], nullptr);
    VLN_free_patharray(parts, count);
    return out;
}

TEST(PathNames, FilenameAndDirname)
{
    struct Case {
        const char *path, *filename, *dirname;
    } cases[] = {
        {"a", "a", "<null>"},
        {"/a", "a", "/"},
        {"/a/b.vld", "b.vld", "/a"},
        {"a/b/", "b", "a"},
        {"C:\\data\\x.vld", "x.vld", "C:/data"},
        {"/", "<null>", "/"},
        {"C:", "<null>", "C:"},
        {"//server/share/x", "x", "//server/share"},
        {"", "<null>", "<null>"},
    };
    for (const Case &c : cases) {
        EXPECT_EQ(take(VLN_get_filename(c.path)), c.filename) << c.path;
        EXPECT_EQ(take(VLN_get_dirname(c.path)), c.dirname) << c.path;
    }
}

TEST(PathNames, Extensions)
{
    struct Case {
        const char *path, *ext, *stripped, *replaced;
    } cases[] = {
        {"a.vld", ".vld", "a", "a.alg"},
        {"a.tar.gz", ".gz", "a.tar", "a.tar.alg"},
        {"dir.d/file", "<null>", "dir.d/file", "dir.d/file.alg"},
        {"C:\\dir.d\\file", "<null>", "C:\\dir.d\\file", "C:\\dir.d\\file.alg"},
        {".profile", "<null>", ".profile", ".profile.alg"},
        {"x/.profile", "<null>", "x/.profile", "x/.profile.alg"},
    };
    for (const Case &c : cases) {
        EXPECT_EQ(take(VLN_get_ext(c.path)), c.ext) << c.path;
        EXPECT_EQ(take(VLN_strip_ext(c.path)), c.stripped) << c.path;
        EXPECT_EQ(take(VLN_replace_ext(c.path, ".alg")), c.replaced) << c.path;
    }
    EXPECT_EQ(take(VLN_add_ext("a", "lut")), "a.lut");
    EXPECT_EQ(take(VLN_add_ext("a", ".lut")), "a.lut");
    EXPECT_EQ(take(VLN_add_ext("a", nullptr)), "a");
}

TEST(PathNames, AbsoluteAndUrl)
{
    struct Case {
        const char *path;
        int abs, url;
    } cases[] = {
        {"/x", 1, 0},
        {"\\x", 1, 0},
        {"C:\\x", 1, 0},
        {"C:", 1, 0},
        {"C:x", 0, 0},
        {"x/y", 0, 0},
        {"", 0, 0},
        {"http://host/path", 0, 1},
        {"ftp:\\\\ho\\x", 0, 1},
        {"http://localhost:8080/x", 0, 1},
        {"http://h/x", 0, 0},    // host too short
        {"http://host", 0, 0},   // no separator after the host
        {"a/b://cc/d", 0, 0},    // separator before the colon
        {"X://ab/c", 1, 0},      // a drive, not a scheme
        {"http:/host/x", 0, 0},  // one slash only
    };
    for (const Case &c : cases) {
        EXPECT_EQ(VLN_path_is_abs(c.path), c.abs) << c.path;
        EXPECT_EQ(VLN_path_is_url(c.path), c.url) << c.path;
    }
}

TEST(PathJoin, SplitFilepath)
{
    using V = std::vector<std::string>;
    EXPECT_EQ(split("/a//b/"), (V{"/", "a", "b"}));
    EXPECT_EQ(split("a\\b\\c"), (V{"a", "b", "c"}));
    EXPECT_EQ(split("\\\\server\\share\\dir\\f"), (V{"//server/share", "dir", "f"}));
    EXPECT_EQ(split("C:\\x"), (V{"C:", "x"}));
    EXPECT_EQ(split("http://host/a/b"), (V{"http://host", "a", "b"}));
    EXPECT_EQ(split("/a::/b/:c", VLN_split_path), (V{"/a", "/b/", "c"}));

    char **parts = reinterpret_cast<char **>(1);
    int count = 7;
    EXPECT_EQ(VLN_split_filepath(&parts, &count, nullptr), 12);
    EXPECT_STREQ(VLD_error_text(),
                 "Internal error: \"Invalid parameters, file path is NULL or does not exist.\"");
    EXPECT_EQ(parts, nullptr);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(VLN_split_filepath(nullptr, &count, "a"), 12);
    EXPECT_STREQ(VLD_error_text(),
                 "Internal error: \"Invalid parameters, cannot split file path\"");
}

TEST(PathJoin, ConcatAndBuild)
{
    struct Case {
        const char *a, *b, *joined;
    } cases[] = {
        {"/a/", "/b/", "/a/b"}, {"/", "x", "/x"},    {"a", "", "a"},        {"a", nullptr, "a"},
        {"", "/x", "/x"},       {"a\\", "b", "a/b"}, {"C:\\", "x", "C:/x"},
    };
    for (const Case &c : cases) {
        char *r = nullptr;
        EXPECT_EQ(VLN_concat_filepath(&r, c.a, c.b), 0);
        EXPECT_EQ(take(r), c.joined) << c.a << " + " << (c.b ? c.b : "(null)");
    }

    // The old result is freed, also when it is one of the arguments.
    char *r = strsave("/d");
    ASSERT_EQ(VLN_concat_filepath(&r, r, "f"), 0);
    EXPECT_STREQ(r, "/d/f");
    EXPECT_EQ(VLN_concat_filepath(&r, nullptr, "f"), 12);
    EXPECT_EQ(r, nullptr);

    ASSERT_EQ(VLN_build_filepath(&r, "/a\\", "b//c", "d/", nullptr), 0);
    EXPECT_EQ(take(r), "/a/b/c/d");
    r = nullptr;
    ASSERT_EQ(VLN_build_filepath(&r, "\\\\srv\\sh", "x", nullptr), 0);
    EXPECT_EQ(take(r), "//srv/sh/x");
    r = nullptr;
    ASSERT_EQ(VLN_build_path(&r, "/a/", "b", "", "c", nullptr), 0);
    EXPECT_EQ(take(r), "/a:b:c");
}

TEST(PathJoin, StripSeparators)
{
    struct Case {
        const char *in, *trailing, *leading;
    } cases[] = {
        {"/", "/", "/"},      {"a///", "a", "a///"}, {"///a", "///a", "a"},
        {"\\\\", "\\", "\\"}, {"", "", ""},
    };
    for (const Case &c : cases) {
        std::string t = c.in, l = c.in;
        EXPECT_STREQ(VLN_strip_trailing_separators(t.data()), c.trailing) << c.in;
        EXPECT_STREQ(VLN_strip_leading_separators(l.data()), c.leading) << c.in;
    }
}

TEST(PathNames, FiletypeFromExtension)
{
    struct Case {
        const char *ext;
        int type;
    } cases[] = {
        {".alg", 0},   {".ALG", 0}, {".frm", 1},   {".vld", 4},  {".Vlv", 5},
        {".hc", 6},    {".ps", 8},  {".stats", 9}, {".dig", 15}, {"", 16},
        {nullptr, 16}, {"alg", 16}, {".tif", 16},
    };
    for (const Case &c : cases) EXPECT_EQ(VLD_filetype_from_ext(c.ext), c.type) << c.ext;
}

TEST(PathFiles, Tests)
{
    ScratchDir dir;
    std::string plain = dir.touch("plain.vld");
    std::string ro = dir.touch("ro.vld", 0444);
    std::string exe = dir.touch("tool", 0755);
    std::string sub = dir.mkdir("sub");
    std::string english = plain;
    VLN_convert_to_english_sep(english.data());

    struct Case {
        std::string path;
        int exists, regular, dir, write, exec;
    } cases[] = {
        {plain, 1, 1, 0, 1, 0}, {english, 1, 1, 0, 1, 0}, {ro, 1, 1, 0, 0, 0},
        {exe, 1, 1, 0, 1, 1},   {sub, 1, 0, 1, 1, 0},     {dir.at("none"), 0, 0, 0, 0, 0},
        {"", 0, 0, 0, 0, 0},    {"/", 1, 0, 1, 1, 0},
    };
    for (const Case &c : cases) {
        const char *p = c.path.c_str();
        EXPECT_EQ(fileexists(p), c.exists) << p;
        EXPECT_EQ(VLD_is_regular_file(p), c.regular) << p;
        EXPECT_EQ(isdirectory(p), c.dir) << p;
        if (c.path != "/") {  // whether the root is writable depends on the user
            EXPECT_EQ(canwrite(p), c.write) << p;
        }
        EXPECT_EQ(is_executable(p), c.exec) << p;
    }
}

TEST(PathFiles, Removal)
{
    ScratchDir dir, outside;
    std::string keep = outside.touch("keep");
    dir.mkdir("tree");
    dir.mkdir("tree/deep");
    dir.touch("tree/deep/f");
    ASSERT_EQ(symlink(outside.path().c_str(), dir.at("tree/link").c_str()), 0);

    EXPECT_EQ(vln_rmrfdir(dir.at("tree").c_str()), 0);
    EXPECT_FALSE(fileexists(dir.at("tree").c_str()));
    EXPECT_TRUE(fileexists(keep.c_str())) << "a link must not be followed";
    EXPECT_EQ(vln_rmrfdir(dir.at("tree").c_str()), 0) << "a missing tree is no failure";

    std::string f = dir.touch("f");
    EXPECT_EQ(vln_rmfile(f.c_str()), 0);
    EXPECT_EQ(vln_rmfile(f.c_str()), 24);
    EXPECT_EQ(vln_rmfile(nullptr), 9);
}

TEST(PathFiles, TempDirAndNames)
{
    ScratchDir dir;
    std::string vlntmp = dir.path() + "//";
    struct Case {
        const char *vlntmp, *tmpdir, *expected;
    } cases[] = {
        {vlntmp.c_str(), "/elsewhere", dir.path().c_str()},
        {nullptr, "/elsewhere/", "/elsewhere"},
        {"", nullptr, "/tmp"},
    };
    for (const Case &c : cases) {
        EnvGuard a("VLNTMP", c.vlntmp), b("TMPDIR", c.tmpdir);
        EXPECT_EQ(take(VLN_get_temp_dir()), c.expected);
    }

    EnvGuard tmp("VLNTMP", dir.path().c_str());
    std::set<std::string> seen;
    for (int i = 0; i < 20; ++i) {
        std::string name = take(VLN_tempname(nullptr, nullptr));
        EXPECT_EQ(name.rfind(dir.path() + "/vln", 0), 0u) << name;
        EXPECT_FALSE(fileexists(name.c_str()));
        EXPECT_TRUE(seen.insert(name).second) << "repeated " << name;
        dir.touch(name.substr(dir.path().size() + 1));
    }
    std::string other = dir.mkdir("other");
    std::string named = take(VLN_tempname(other.c_str(), "abc"));
    EXPECT_EQ(named.rfind(other + "/abc", 0), 0u) << named;
}

TEST(PathSearch, FindsFileInLists)
{
    ScratchDir dir;
    std::string a = dir.mkdir("a"), b = dir.mkdir("b");
    std::string target = dir.touch("b/tool");
    dir.mkdir("a/tool");  // a directory of that name doesn't count
    std::string list = a + ":" + b;

    char *found = nullptr;
    ASSERT_EQ(find_file_in_pathstring(&found, list.c_str(), "tool"), 0);
    EXPECT_EQ(take(found), target);

    found = nullptr;
    EXPECT_EQ(find_file_in_pathstring(&found, list.c_str(), "none"), 29);
    EXPECT_EQ(found, nullptr);
    EXPECT_EQ(std::string(VLD_error_text()), "File \"none\" not found in " + list);

    EnvGuard unset("VLN_TEST_UNSET", nullptr);
    EXPECT_EQ(find_file_in_pathvar(&found, "VLN_TEST_UNSET", "tool"), 28);
    EnvGuard path("PATH", list.c_str());
    ASSERT_EQ(find_file_in_path(&found, "tool"), 0);
    EXPECT_EQ(take(found), target);
}

}  // namespace
