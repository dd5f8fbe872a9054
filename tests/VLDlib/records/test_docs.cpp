// The small documents and CellInfo: each reads a hand-written file, writes the
// golden text, and reads that back into an equal record; plus the rules that
// are particular to one document.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "vld_docs.h"
#include "vld_record_internal.h"

namespace {

const std::string kDataDir = std::string(VORLAN_TEST_DATA_DIR) + "/docs/";

std::string slurp(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

void spill(const std::string &path, const std::string &text)
{
    std::ofstream(path, std::ios::binary) << text;
}

/* A fresh directory, removed with what it holds. */
class TempDir {
   public:
    TempDir()
    {
        char name[] = "/tmp/vorlan-docs-XXXXXX";
        path_ = mkdtemp(name);
    }
    ~TempDir() { std::system(("rm -rf '" + path_ + "'").c_str()); }
    std::string operator/(const std::string &name) const { return path_ + "/" + name; }
    const std::string &path() const { return path_; }

   private:
    std::string path_;
};

/* One document type through the C interface, with its record's type erased. */
struct DocCase {
    const char *stem;
    const char *block;
    int (*read)(void **address, const char *filename);
    int (*write)(const void *record, const char *filename);
    void (*free)(void *record);
};

template <class T, int (*EG)(T **, const char *), int (*EP)(const T *, const char *),
          void (*EF)(T *)>
constexpr DocCase doc(const char *stem, const char *block)
{
    return {stem, block,
            [](void **address, const char *f) { return EG(reinterpret_cast<T **>(address), f); },
            [](const void *r, const char *f) { return EP(static_cast<const T *>(r), f); },
            [](void *r) { EF(static_cast<T *>(r)); }};
}

const DocCase kDocs[] = {
    doc<cellinfo, eg_cellinfo, ep_cellinfo, ef_cellinfo>("cellinfo", "CellInfo"),
    doc<clipinfo, eg_clipinfo, ep_clipinfo, ef_clipinfo>("clipinfo", "ClipInfo"),
    doc<VLNConfig, eg_config, ep_config, ef_config>("config", "VLNConfig"),
    doc<screendef, eg_screendef, ep_screendef, ef_screendef>("screendef", "ScreenDef"),
    doc<windef, eg_windef, ep_windef, ef_windef>("windef", "Windef"),
    doc<displaydef, eg_displaydef, ep_displaydef, ef_displaydef>("displaydef", "DisplayDef"),
    doc<displayinfo, eg_displayinfo, ep_displayinfo, ef_displayinfo>("displayinfo", "DisplayInfo"),
    doc<digconfiginfo, eg_digconfiginfo, ep_digconfiginfo, ef_digconfiginfo>("digconfiginfo",
                                                                             "DigConfigInfo"),
    doc<digsessioninfo, eg_digsessioninfo, ep_digsessioninfo, ef_digsessioninfo>("digsessioninfo",
                                                                                 "DigSessionInfo"),
    doc<digtypeinfo, eg_digtypeinfo, ep_digtypeinfo, ef_digtypeinfo>("digtypeinfo", "DigTypeInfo"),
    doc<cctconfiginfo, eg_cctconfiginfo, ep_cctconfiginfo, ef_cctconfiginfo>("cctconfiginfo",
                                                                             "CctConfigInfo"),
    doc<ellipsoid, eg_ellipsoid, ep_ellipsoid, ef_ellipsoid>("ellipsoid", "Ellipsoid"),
    doc<hardcopyinfo, eg_hardcopyinfo, ep_hardcopyinfo, ef_hardcopyinfo>("hardcopyinfo",
                                                                         "Hardcopyinfo"),
    doc<gammainfo, eg_gamma, ep_gamma, ef_gamma>("gamma", "Gamma"),
    doc<lut, eg_lut, ep_lut, ef_lut>("lut", "LookUpTable"),
    doc<maphints, eg_maphints, ep_maphints, ef_maphints>("maphints", "MapHints"),
    doc<userparam, eg_userparam, ep_userparam, ef_userparam>("userparam", "UserParameter"),
    doc<dlinkparam, eg_dlinkparam, ep_dlinkparam, ef_dlinkparam>("dlinkparam", "DlinkParam"),
    doc<allowed, eg_allowed, ep_allowed, ef_allowed>("allowed", "AllowedValues"),
    doc<fontnode, eg_fontnode, ep_fontnode, ef_fontnode>("fontnode", "FontNode"),
    doc<statsfile, eg_statsfile, ep_statsfile, ef_statsfile>("statsfile", "StatsFile"),
};

void PrintTo(const DocCase &c, std::ostream *os)
{
    *os << c.stem;
}

class DocsGolden : public testing::TestWithParam<DocCase> {};

TEST_P(DocsGolden, ReadsWritesGoldenTextAndReadsBackEqual)
{
    const DocCase &c = GetParam();
    TempDir dir;
    // File names in a document are resolved against its directory, so the
    // files that the session documents name stand beside the copy.
    for (const char *named : {"tablet.dtp", "serial.dcf"}) spill(dir / named, "");
    std::string input = dir / (std::string(c.stem) + ".in");
    spill(input, slurp(kDataDir + c.stem + ".in"));

    void *first = nullptr;
    ASSERT_EQ(c.read(&first, input.c_str()), 0) << VLD_error.text;
    std::string output = dir / (std::string(c.stem) + ".out");
    ASSERT_EQ(c.write(first, output.c_str()), 0) << VLD_error.text;
    EXPECT_EQ(slurp(output), slurp(kDataDir + c.stem + ".golden"));

    void *second = nullptr;
    ASSERT_EQ(c.read(&second, output.c_str()), 0) << VLD_error.text;
    EXPECT_EQ(vld::rec_equal_by_block(c.block, first, second), 1);
    c.free(first);
    c.free(second);
}

TEST_P(DocsGolden, MissingFileIsRowOneWithTheRecordAllocated)
{
    const DocCase &c = GetParam();
    void *record = nullptr;
    EXPECT_EQ(c.read(&record, "/nonexistent/vorlan/document"), 1);
    EXPECT_NE(record, nullptr);
    c.free(record);
    c.free(nullptr);  // ef_ of null does nothing
}

INSTANTIATE_TEST_SUITE_P(Docs, DocsGolden, testing::ValuesIn(kDocs),
                         [](const testing::TestParamInfo<DocCase> &info) {
                             return std::string(info.param.stem);
                         });

/* ---------------------------------------------------------------- CellInfo */

int write_cellinfo(void *record, const char *filename)
{
    return ep_cellinfo(static_cast<const cellinfo *>(record), filename);
}
int read_cellinfo(void *address, const char *filename)
{
    return eg_cellinfo_noalloc(*static_cast<cellinfo **>(address), filename);
}

std::string cellinfo_text(cellinfo c)
{
    char *text = nullptr;
    EXPECT_EQ(ep_to_buffer(&c, write_cellinfo, &text), 0);
    std::string out = text ? text : "";
    safe_free(text);
    return out;
}

TEST(CellInfoTest, EnumerationHasSixKeywordsEndingWithZoverlap)
{
    VLD_KEYWORD *table = nullptr;
    ASSERT_EQ(ee_cellinfo(&table), 6);
    EXPECT_STREQ(table[0].name, "Xdimension");
    EXPECT_STREQ(table[5].name, "Zoverlap");
    safe_free(table);
}

TEST(CellInfoTest, WriterLeavesOutUnitDimensionsAndZeroOverlaps)
{
    const double nan = std::nan(""), inf = HUGE_VAL;
    const struct {
        cellinfo c; /* x_overlap, y_dimension, y_overlap, x_dimension, z_dimension, z_overlap */
        const char *text;
    } cases[] = {
        {{0, 1, 0, 1, 1, 0}, ""},
        {{0, 0, 0, 0, 0, 0}, ""},
        {{0, 1, 0, 25, 0, 0}, "CellInfo Begin\n\tXdimension\t= 25\nCellInfo End\n"},
        {{0.25, 1, 0, 1, nan, 0}, "CellInfo Begin\n\tXoverlap\t= 0.25\nCellInfo End\n"},
        {{0, 2, 0, 1, inf, 0}, "CellInfo Begin\n\tYdimension\t= 2\nCellInfo End\n"},
        {{0, 1, -1, 1, 1, 3}, "CellInfo Begin\n\tYoverlap\t= -1\n\tZoverlap\t= 3\nCellInfo End\n"},
        {{1, 2, 3, 4, 5, 6},
         "CellInfo Begin\n\tXdimension\t= 4\n\tYdimension\t= 2\n\tZdimension\t= 5\n"
         "\tXoverlap\t= 1\n\tYoverlap\t= 3\n\tZoverlap\t= 6\nCellInfo End\n"},
    };
    for (const auto &k : cases) EXPECT_EQ(cellinfo_text(k.c), k.text);
}

TEST(CellInfoTest, ZeroOrMissingDimensionsReadAsOne)
{
    const struct {
        const char *text;
        double x, y, z;
    } cases[] = {
        {"CellInfo Begin\nCellInfo End\n", 1, 1, 1},
        {"CellInfo Begin\n Xdimension = 0\n Ydimension = 0.5\nCellInfo End\n", 1, 0.5, 1},
        {"CellInfo Begin\n Zdimension = 0\n Xdimension = -2\nCellInfo End\n", -2, 1, 1},
    };
    for (const auto &k : cases) {
        cellinfo *c = nullptr;
        ASSERT_EQ(ea_cellinfo(&c), 0);
        ASSERT_EQ(eg_from_buffer(k.text, read_cellinfo, &c), 0) << k.text;
        EXPECT_EQ(c->x_dimension, k.x) << k.text;
        EXPECT_EQ(c->y_dimension, k.y) << k.text;
        EXPECT_EQ(c->z_dimension, k.z) << k.text;
        ef_cellinfo(c);
    }
}

TEST(CellInfoTest, DefaultsAndCopy)
{
    cellinfo *c = nullptr;
    ASSERT_EQ(df_cellinfo(&c), 0);
    EXPECT_EQ(c->x_dimension, 1.0);
    EXPECT_EQ(c->y_dimension, 1.0);
    EXPECT_EQ(c->z_dimension, 1.0);
    EXPECT_EQ(c->x_overlap, 0.0);
    c->z_overlap = 7;
    cellinfo copy{};
    ASSERT_EQ(cp_cellinfo_noalloc(&copy, c), 0);
    EXPECT_EQ(vld::rec_equal_by_block("CellInfo", &copy, c), 1);
    ef_cellinfo(c);
}

/* ---------------------------------------------------------------- LookUpTable */

int read_lut(void *address, const char *filename)
{
    return eg_lut(static_cast<lut **>(address), filename);
}

TEST(DocsTest, LookupTableRowsMustAgreeWithNrEntries)
{
    const struct {
        const char *text;
        int status;
        int rows;
    } cases[] = {
        {"LookUpTable Begin\n NrEntries = 2\n LUT = { 0 1 2 3 1 4 5 6 }\nLookUpTable End\n", 0, 2},
        {"LookUpTable Begin\n LUT = { 0 1 2 3 1 4 5 6 }\n NrEntries = 2\nLookUpTable End\n", 0, 2},
        {"LookUpTable Begin\n LUT = { 0 1 2 3 }\nLookUpTable End\n", 0, 1},
        {"LookUpTable Begin\n NrEntries = 3\n LUT = { 0 1 2 3 1 4 5 6 }\nLookUpTable End\n", 7, -1},
        {"LookUpTable Begin\n LUT = { 0 1 2 3 1 4 5 6 }\n NrEntries = 1\nLookUpTable End\n", 7, -1},
        {"LookUpTable Begin\n LUT = { 0 1 2 3 1 4 }\nLookUpTable End\n", 7, -1},
    };
    for (const auto &k : cases) {
        lut *l = nullptr;
        EXPECT_EQ(eg_from_buffer(k.text, read_lut, &l), k.status) << k.text;
        ASSERT_NE(l, nullptr);
        if (k.rows >= 0) {
            EXPECT_EQ(l->nr_entries, k.rows) << k.text;
        }
        ef_lut(l);
    }
}

TEST(DocsTest, LargeLookupTableReadsAndWritesBack)
{
    // 65,536 rows, about a megabyte of text.
    constexpr int kRows = 65536;
    std::string text =
        "LookUpTable Begin\n\tName\t\t= \"big\"\n\tNrEntries\t= 65536\n\tLUT\t\t\t= {\n";
    char row[64];
    for (int i = 0; i < kRows; i++) {
        std::snprintf(row, sizeof row, "\t\t%d\t%d\t%d\t%d\n", i, i, 65535 - i, (i * 7) & 0xffff);
        text += row;
    }
    text += "\t}\nLookUpTable End\n";
    TempDir dir;
    spill(dir / "big.lut", text);

    lut *l = nullptr;
    ASSERT_EQ(eg_lut(&l, (dir / "big.lut").c_str()), 0) << VLD_error.text;
    ASSERT_EQ(l->nr_entries, kRows);
    EXPECT_EQ(l->entries[kRows - 1].index, kRows - 1);
    EXPECT_EQ(l->entries[kRows - 1].green, 0);
    EXPECT_EQ(l->entries[1000].blue, 7000);

    ASSERT_EQ(ep_lut(l, (dir / "copy.lut").c_str()), 0);
    lut *again = nullptr;
    ASSERT_EQ(eg_lut(&again, (dir / "copy.lut").c_str()), 0);
    EXPECT_EQ(vld::rec_equal_by_block("LookUpTable", l, again), 1);
    lut *copy = nullptr;
    ASSERT_EQ(cp_lut(&copy, l), 0);
    EXPECT_NE(copy->entries, l->entries);
    EXPECT_EQ(vld::rec_equal_by_block("LookUpTable", l, copy), 1);
    ef_lut(l);
    ef_lut(again);
    ef_lut(copy);
}

/* ---------------------------------------------------------------- the installation tree */

TEST(DocsTest, StandardReadersFindTheInstallationTree)
{
    lut *l = nullptr;
    ASSERT_EQ(eg_lut_standard(&l, nullptr, "greyscale"), 0) << VLD_error.text;
    EXPECT_EQ(l->nr_entries, 256);
    EXPECT_EQ(l->entries[255].red, 65535);
    ef_lut(l);
    l = nullptr;
    ASSERT_EQ(eg_lut_standard(&l, VORLAN_SHARE_DIR, "pseudocolor.lut"), 0) << VLD_error.text;
    EXPECT_EQ(l->nr_entries, 256);
    ef_lut(l);
    l = nullptr;
    EXPECT_EQ(eg_lut_standard(&l, VORLAN_SHARE_DIR, "no-such-table"), 1);
    ef_lut(l);

    VLNConfig *c = nullptr;
    ASSERT_EQ(eg_config_standard(&c, nullptr, nullptr), 0) << VLD_error.text;
    EXPECT_STREQ(c->default_pseudo_lut, "pseudocolor");
    EXPECT_STREQ(c->default_rgb_lut, "greyscale");
    ef_config(c);
}

/* ---------------------------------------------------------------- the rest */

TEST(DocsTest, BlocksNamedByTheCaller)
{
    TempDir dir;
    ellipsoid e{8, 6378206.4, 0.006768658};
    ASSERT_EQ(ep_ellipsoid_spec(&e, (dir / "e.txt").c_str(), "Spheroid"), 0);
    EXPECT_EQ(slurp(dir / "e.txt").rfind("Spheroid Begin\n", 0), 0u);

    char red[] = "Red", blue[] = "Blue";
    char *values[] = {red, blue, nullptr};
    allowed a{2, values};
    ASSERT_EQ(ep_allowed_spec(&a, (dir / "a.txt").c_str(), "Choices"), 0);
    allowed *back = nullptr;
    ASSERT_EQ(eg_allowed_spec(&back, (dir / "a.txt").c_str(), "Choices"), 0) << VLD_error.text;
    EXPECT_EQ(vld::rec_equal_by_block("AllowedValues", &a, back), 1);
    ef_allowed(back);
    back = nullptr;
    EXPECT_EQ(eg_allowed(&back, (dir / "a.txt").c_str()), 7);  // expects AllowedValues
    ef_allowed(back);
}

TEST(DocsTest, UnsetHardcopyBlocksAreLeftOut)
{
    TempDir dir;
    hardcopyinfo *h = nullptr;
    ASSERT_EQ(ea_hardcopyinfo(&h), 0);
    h->name = strsave("plain");
    ASSERT_EQ(ep_hardcopyinfo(h, (dir / "h.hc").c_str()), 0);
    std::string text = slurp(dir / "h.hc");
    EXPECT_EQ(text.find("Gamma Begin"), std::string::npos) << text;
    EXPECT_EQ(text.find("BackGroundColour"), std::string::npos) << text;
    h->background_colour.blue = 0.5;
    ASSERT_EQ(ep_hardcopyinfo(h, (dir / "h.hc").c_str()), 0);
    EXPECT_NE(slurp(dir / "h.hc").find("BackGroundColour Begin"), std::string::npos);
    ef_hardcopyinfo(h);
}

TEST(DocsTest, UserParametersCopyAloneAndFreeAsAList)
{
    userparam *first = nullptr, *second = nullptr;
    ASSERT_EQ(eg_userparam(&first, (kDataDir + "userparam.in").c_str()), 0) << VLD_error.text;
    ASSERT_EQ(ea_userparam(&second), 0);
    ASSERT_EQ(cp_userparam_noalloc(second, first), 0);
    EXPECT_EQ(vld::rec_equal_by_block("UserParameter", first, second), 1);
    EXPECT_NE(second->dlinkparam, first->dlinkparam);
    EXPECT_NE(second->allowed_values.values, first->allowed_values.values);
    ASSERT_EQ(second->allowed_values.nr_values, 3);
    EXPECT_STREQ(second->allowed_values.values[2], "dem");
    EXPECT_EQ(second->allowed_values.values[3], nullptr);
    first->next = second;
    userparam *lone = nullptr;
    ASSERT_EQ(ea_userparam(&lone), 0);
    ASSERT_EQ(cp_userparam_noalloc(lone, first), 0);
    EXPECT_EQ(lone->next, nullptr);
    ef_userparam(lone);
    ef_userparams(first);  // frees both
    ef_userparams(nullptr);
}

TEST(DocsTest, DefaultDisplaysAreLocal)
{
    displaydef *d = nullptr;
    ASSERT_EQ(df_displaydef(&d), 0);
    EXPECT_STREQ(d->control_display, ":0");
    EXPECT_STREQ(d->secondary_image_displays, ":0");
    ef_displaydef(d);
    displayinfo *i = nullptr;
    ASSERT_EQ(df_displayinfo(&i), 0);
    EXPECT_STREQ(i->display, ":0");
    EXPECT_EQ(i->number_reserved_colors, 0);
    ef_displayinfo(i);
}

}  // namespace
