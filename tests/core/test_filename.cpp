// Absolute and relative names of documents, and clashes between datasets.
#include <gtest/gtest.h>

#include <string>

#include "path_fixtures.h"
#include "vln_path.h"
#include "vln_path_internal.h"

namespace {

std::string build_abs(const std::string &parent, const char *path, int *rc)
{
    char *r = nullptr;
    *rc = VLN_build_abs_fspec(&r, parent.empty() ? nullptr : parent.c_str(), path);
    return take(r);
}

TEST(PathFspec, RelativeNameSearchOrder)
{
    ScratchDir dir;
    std::string parent = dir.mkdir("parent"), search = dir.mkdir("search");
    dir.mkdir("parent/sub");
    dir.touch("parent/x.vld");
    dir.touch("search/x.vld");
    dir.touch("search/only.vld");
    dir.touch("parent/sub/y.vld");
    std::string document = dir.touch("parent/doc.alg");
    std::string english = dir.at("parent/x.vld"), missing = dir.at("nope.vld");
    VLN_convert_to_english_sep(english.data());
    EnvGuard env("VLN_DATASET_SEARCH_PATH", ("/nonexistent:" + search).c_str());

    struct Case {
        std::string parent;
        const char *path;
        int rc;
        std::string expected;
    } cases[] = {
        {parent, "x.vld", 0, parent + "/x.vld"},    // the parent wins over the search path
        {document, "x.vld", 0, parent + "/x.vld"},  // a document stands for its directory
        {parent, "only.vld", 0, search + "/only.vld"},
        {"", "x.vld", 0, search + "/x.vld"},
        {parent, "sub\\y.vld", 0, parent + "/sub/y.vld"},
        {parent, "none.vld", 12, "<null>"},
        {parent, "", 12, "<null>"},
        {"", english.c_str(), 0, parent + "/x.vld"},
        {"", "http://host/data/x.vld", 0, "http://host/data/x.vld"},
        {parent, missing.c_str(), 24, missing},  // kept, though it doesn't exist
    };
    for (const Case &c : cases) {
        int rc = -1;
        EXPECT_EQ(build_abs(c.parent, c.path, &rc), c.expected) << c.path;
        EXPECT_EQ(rc, c.rc) << c.path;
    }
    EXPECT_EQ(std::string(VLD_error_text()), "File " + missing + " does not exist");
}

TEST(PathFspec, NewNamesByMode)
{
    ScratchDir dir;
    std::string images = dir.mkdir("images");
    dir.mkdir("images/sub");
    dir.touch("images/old.vld");
    std::string absent = dir.at("images/absent.vld");
    EnvGuard env("VLN_DATASET_SEARCH_PATH", nullptr);

    struct Case {
        const char *path;
        std::string expected;
        int exists;
    } cases[] = {
        {"old.vld", images + "/old.vld", 1},
        {"sub/new.vld", images + "/sub/new.vld", 0},      // its directory exists
        {"images/new.vld", images + "/new.vld", 0},       // the repeated tail isn't doubled
        {"nodir/new.vld", images + "/nodir/new.vld", 0},  // only the search directory exists
        {images.c_str(), images, 1},
        {absent.c_str(), absent, 0},  // absolute: the parent plays no part
    };
    for (const Case &c : cases) {
        char *r = nullptr;
        int exists = -1;
        EXPECT_EQ(VLN_build_new_abs_fspec(&r, images.c_str(), c.path, &exists), 0) << c.path;
        EXPECT_EQ(take(r), c.expected) << c.path;
        EXPECT_EQ(exists, c.exists) << c.path;
    }
}

TEST(PathFspec, RelativeNames)
{
    ScratchDir dir;
    const std::string t = dir.path();
    EnvGuard env("VLN_DATASET_SEARCH_PATH", (t + "/search").c_str());
    struct Case {
        std::string parent, path, expected;
    } cases[] = {
        {t + "/a", t + "/a/b/x.vld", "./b/x.vld"},
        {t + "/a/", t + "/a", "."},
        {t + "/a/b", t + "/c/x.vld", "../../c/x.vld"},
        {t + "/A", t + "/a/x.vld", "./x.vld"},               // compared without case
        {"/zzz/q", t + "/search/s/x.vld", "./s/x.vld"},      // by the search path
        {"/zzz/q", "/elsewhere/x.vld", "/elsewhere/x.vld"},  // the root alone isn't shared
        {t + "/a", "rel/x.vld", "rel/x.vld"},
        {t + "/a", "http://host/x/y", "http://host/x/y"},
    };
    for (const Case &c : cases) {
        char *r = nullptr;
        EXPECT_EQ(VLN_build_rel_fspec(&r, c.parent.c_str(), c.path.c_str()), 0);
        EXPECT_EQ(take(r), c.expected) << c.parent << " | " << c.path;
    }
}

// The header module's stand-in: the answer for every header.
struct ProbeAnswer {
    int rc = 0;
    const char *datafile = nullptr;
    int has_algorithm = 0;
} answer;

int probe(const char *, char **datafile, int *has_algorithm)
{
    *datafile = answer.datafile != nullptr ? strsave(answer.datafile) : nullptr;
    *has_algorithm = answer.has_algorithm;
    return answer.rc;
}

TEST(PathClash, VectorAndRasterNeighbours)
{
    ScratchDir dir;
    dir.touch("v");
    dir.touch("v.vlv");
    dir.touch("w.vlv");
    dir.touch("r");
    dir.touch("r.vld");
    const std::string vector_text =
        "There is already an existing vector file of the same name:\n\n" + dir.at("v.vld") +
        "\n\nPlease choose another name otherwise the vector file will be overwritten.\n";
    const std::string raster_text =
        "There is already an existing raster file of the same name:\n\n" + dir.at("r.vlv") +
        "\n\nPlease choose another name otherwise the raster file will be overwritten.\n";

    char *message = strsave("old");  // freed by the call
    EXPECT_EQ(VLN_fspec_clashes(dir.at("v.vld").c_str(), &message), 1);
    EXPECT_EQ(take(message), vector_text);
    message = nullptr;
    EXPECT_EQ(VLN_fspec_clashes(dir.at("w.vld").c_str(), &message), 0) << "no data file";
    EXPECT_EQ(message, nullptr);
    EXPECT_EQ(VLN_fspec_clashes(dir.at("v.VLD").c_str(), nullptr), 1) << "extension case";

    struct Case {
        const char *name;
        bool with_probe;
        ProbeAnswer answer;
        int clash;
    } cases[] = {
        {"r.vlv", false, {}, 1},  // unreadable header counts for .vlv
        {"r.map", false, {}, 0},  // but not for .map
        {"r.map", true, {0, "r", 0}, 1},
        {"r.map", true, {0, "r.dat", 0}, 0},  // the header is another dataset's
        {"r.vlv", true, {0, "r", 1}, 0},      // a virtual dataset has no data file
        {"r.vlv", true, {4, nullptr, 0}, 1},
        {"x.vlv", true, {0, "x", 0}, 0},  // no header at all
        {"r", true, {0, "r", 0}, 0},
    };
    for (const Case &c : cases) {
        VLN_set_header_probe(c.with_probe ? probe : nullptr);
        answer = c.answer;
        std::string name = dir.at(c.name);
        message = nullptr;
        EXPECT_EQ(VLN_fspec_clashes(name.c_str(), &message), c.clash) << c.name;
        if (c.clash && std::string(c.name) == "r.vlv") {
            EXPECT_EQ(std::string(message), raster_text);
        }
        safe_free(message);
    }
    // A DataFile given with its full path names the same file.
    std::string full = dir.at("r");
    answer = {0, full.c_str(), 0};
    VLN_set_header_probe(probe);
    EXPECT_EQ(VLN_fspec_clashes(dir.at("r.map").c_str(), nullptr), 1);
    VLN_set_header_probe(nullptr);
}

}  // namespace
