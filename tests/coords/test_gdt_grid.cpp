// Grid datum shifts: the NTv2 converter over a grid written here, the
// engine's reading of it, and the real grids of the projection library's data
// package, converted at build time, against the library itself.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "gdt_fixture.h"
#include "gdt_grid_format_internal.h"
#include "proj_peer.h"

namespace {

using gdt_test::kDeg;
using gdt_test::OwnTables;
using gdt_test::Peer;
using gdt_test::Points;
using gdt_test::said;

constexpr double kSec = gdt_test::kPi / (180 * 3600);

/* An NTv2 file built record by record. */
class Gsb {
   public:
    void text(const char *label, const char *value)
    {
        label8(label);
        char v[8];
        std::memset(v, ' ', 8);
        std::memcpy(v, value, std::min<size_t>(8, std::strlen(value)));
        bytes_.insert(bytes_.end(), v, v + 8);
    }
    void integer(const char *label, int32_t value)
    {
        label8(label);
        raw(&value, 4);
        int32_t pad = 0;
        raw(&pad, 4);
    }
    void real(const char *label, double value)
    {
        label8(label);
        raw(&value, 8);
    }
    void shift(float lat, float lon)
    {
        float r[4] = {lat, lon, 0.01f, 0.01f};
        raw(r, 16);
    }
    /* A sub-grid over [s, n] x [w, e] (seconds, east positive) whose shifts at a
     * node are (lat, lon) = (f(row, col), g(row, col)); rows from the south,
     * columns written from the east as the format has them. */
    template <typename F, typename G>
    void subgrid(const char *name, const char *parent, double s, double n, double w, double e,
                 double step, F f, G g)
    {
        int rows = static_cast<int>(std::lround((n - s) / step)) + 1;
        int cols = static_cast<int>(std::lround((e - w) / step)) + 1;
        text("SUB_NAME", name);
        text("PARENT", parent);
        text("CREATED", "20240101");
        text("UPDATED", "20240101");
        real("S_LAT", s);
        real("N_LAT", n);
        real("E_LONG", -e);
        real("W_LONG", -w);
        real("LAT_INC", step);
        real("LONG_INC", step);
        integer("GS_COUNT", rows * cols);
        for (int r = 0; r < rows; r++)
            for (int c = cols - 1; c >= 0; c--) shift(f(r, c), g(r, c));
    }
    void header(int grids)
    {
        integer("NUM_OREC", 11);
        integer("NUM_SREC", 11);
        integer("NUM_FILE", grids);
        text("GS_TYPE", "SECONDS");
        text("VERSION", "NTv2.0");
        text("SYSTEM_F", "A");
        text("SYSTEM_T", "B");
        real("MAJOR_F", 6378388.0);
        real("MINOR_F", 6356911.946);
        real("MAJOR_T", 6378137.0);
        real("MINOR_T", 6356752.314);
    }
    void save(const std::string &path) const
    {
        std::ofstream(path, std::ios::binary)
            .write(bytes_.data(), static_cast<std::streamsize>(bytes_.size()));
    }

   private:
    void label8(const char *label)
    {
        char l[8];
        std::memset(l, ' ', 8);
        std::memcpy(l, label, std::strlen(label));
        bytes_.insert(bytes_.end(), l, l + 8);
    }
    void raw(const void *p, size_t n)
    {
        const char *c = static_cast<const char *>(p);
        bytes_.insert(bytes_.end(), c, c + n);
    }
    std::vector<char> bytes_;
};

int convert(const std::string &from, const std::string &stem)
{
    std::string command =
        std::string(VORLAN_GSB2GRID) + " '" + from + "' '" + stem + "' 2>/dev/null";
    return std::system(command.c_str());
}

class GdtGrid : public OwnTables {
   protected:
    void SetUp() override
    {
        OwnTables::SetUp();
        table("datum_sp",
              "name,code,radius,eccentricity,metre_factor,prime_merid\n"
              "A,1,6378388.0,0.08199188997902977,1.0,\nB,2,6378137.0,0.0818191908426215,1.0,\n");
        table("project", "name,type,metre_factor\n");
        table("datumcha", "name,change_type\nA>B,ntv2\n");
        table("bursawol",
              "name,translation_x,translation_y,translation_z,rotation_x,rotation_y,rotation_z,"
              "scale_change\n");
        table("ntv2", "name,control_file\nA>B,test.grd\n");
    }
};

TEST_F(GdtGrid, ShiftsComeFromTheFinestSubGrid)
{
    // A parent over 10..12 E, 50..52 N at 0.5 degrees, shifts growing along
    // rows and columns; a child over 10.5..11 E, 50.5..51 N with shifts of 100".
    Gsb gsb;
    gsb.header(2);
    gsb.subgrid(
        "PARENT", "NONE", 50 * 3600, 52 * 3600, 10 * 3600, 12 * 3600, 1800,
        [](int r, int c) { return 1.0f + r + 0.1f * c; },
        [](int r, int c) { return 2.0f + 0.5f * r + c; });
    gsb.subgrid(
        "CHILD", "PARENT", 50.5 * 3600, 51 * 3600, 10.5 * 3600, 11 * 3600, 900,
        [](int, int) { return 100.0f; }, [](int, int) { return 100.0f; });
    gsb.save(dir.file("test.gsb"));
    ASSERT_EQ(convert(dir.file("test.gsb"), dir.file("test")), 0);

    int a = system("A", "GEODETIC", "degrees"), b = system("B", "GEODETIC", "degrees");
    struct Case {
        double lon, lat; /* degrees */
        int status;
        double dlat, dlon; /* seconds; longitude positive west */
    } cases[] = {
        {10, 50, 0, 1.0, 2.0},            // the south-west node
        {12, 50, 0, 1.4, 6.0},            // the south-east node: columns from the west
        {10.25, 50, 0, 1.05, 2.5},        // half-way along the first row
        {10, 50.25, 0, 1.5, 2.25},        // half-way up the first column
        {10.75, 50.75, 0, 100.0, 100.0},  // inside the child
        {11.3, 51.6, 0, 4.46, 6.2},       // inside the parent
        {9.9, 51, -1, 0, 0},              // outside every grid
        {10, 52.6, -1, 0, 0},
    };
    for (const Case &c : cases) {
        double lon, lat;
        int status = carry(a, b, c.lon, c.lat, lon, lat);
        EXPECT_EQ(status, c.status) << c.lon << " " << c.lat;
        if (status != 0) continue;
        EXPECT_NEAR((lat - c.lat) * 3600, c.dlat, 1e-6) << c.lon << " " << c.lat;
        EXPECT_NEAR((c.lon - lon) * 3600, c.dlon, 1e-6) << c.lon << " " << c.lat;
        // Back again from a shifted point that the grid still holds.
        if (c.lon <= 10 || c.lon >= 12 || c.lat <= 50 || c.lat >= 52) continue;
        double blon, blat;
        ASSERT_EQ(carry(b, a, lon, lat, blon, blat), 0);
        EXPECT_NEAR(blat, c.lat, 1e-9) << "the other way";
        EXPECT_NEAR(blon, c.lon, 1e-9) << "the other way";
    }
    EXPECT_TRUE(said("datum conversion error"));
}

TEST_F(GdtGrid, BadGridFilesAreRefusedByName)
{
    struct Case {
        const char *bytes;
        size_t size;
    } cases[] = {{"", 0}, {"NUM_OREC\x0b\0\0\0\0\0\0\0", 16}, {"garbage that is not a grid", 26}};
    for (const Case &c : cases) {
        std::ofstream(dir.file("bad.gsb"), std::ios::binary)
            .write(c.bytes, static_cast<std::streamsize>(c.size));
        EXPECT_NE(convert(dir.file("bad.gsb"), dir.file("bad")), 0);
    }
    table("ntv2", "name,control_file\nA>B,missing.grd\n");
    gdt_test::messages.clear();
    int a = system("A", "GEODETIC", "degrees"), b = system("B", "GEODETIC", "degrees");
    double lon, lat;
    EXPECT_NE(carry(a, b, 10, 50, lon, lat), 0);
    EXPECT_TRUE(said("missing.grd")) << gdt_test::messages.back();
}

struct RealGrid {
    const char *stem, *from, *to;
};

class GdtRealGrid : public gdt_test::Engine, public ::testing::WithParamInterface<RealGrid> {};

TEST_P(GdtRealGrid, AgreesWithThePeerOnTheOriginal)
{
    const RealGrid &g = GetParam();
    std::string gsb = std::string(VORLAN_NTV2_DIR) + "/" + g.stem + ".gsb";
    std::string index = std::string(VORLAN_SHARE_DIR) + "/GDT_DATA/" + g.stem + ".ind";
    std::ifstream in(index, std::ios::binary);
    if (!in || !std::ifstream(gsb)) GTEST_SKIP() << g.stem << " is not on this machine";
    std::vector<char> bytes((std::istreambuf_iterator<char>(in)), {});
    ASSERT_GE(bytes.size(),
              static_cast<size_t>(gdt::kGridIndexHeaderSize + gdt::kGridIndexRecordSize));
    double limits[6];
    std::memcpy(limits, bytes.data() + gdt::kGridIndexHeaderSize + 40, sizeof limits);
    Peer peer("+proj=hgridshift +grids=" + gsb);
    ASSERT_TRUE(peer.ok());
    int a = system(g.from, "GEODETIC", "radians"), b = system(g.to, "GEODETIC", "radians");
    Points points(3);
    double worst = 0, worst_back = 0;
    int compared = 0;
    for (int i = 0; i < 3000 && compared < 1000; i++) {
        double lat = points.uniform(limits[0] + 1, limits[1] - 1) * kSec;
        double lon = points.uniform(limits[2] + 1, limits[3] - 1) * kSec;
        double plon, plat;
        if (!peer.forward(lon, lat, plon, plat)) continue;
        double olon, olat;
        ASSERT_EQ(carry(a, b, lon, lat, olon, olat), 0) << lon / kDeg << " " << lat / kDeg;
        worst = std::max({worst, std::fabs(olon - plon) * std::cos(lat) * 6.4e6,
                          std::fabs(olat - plat) * 6.4e6});
        double blon, blat;
        ASSERT_EQ(carry(b, a, olon, olat, blon, blat), 0);
        worst_back = std::max({worst_back, std::fabs(blon - lon) * std::cos(lat) * 6.4e6,
                               std::fabs(blat - lat) * 6.4e6});
        compared++;
    }
    std::printf("%-16s %d points: worst %.3g m against the peer, back again %.3g m\n", g.stem,
                compared, worst, worst_back);
    EXPECT_GE(compared, 1000);
    EXPECT_LT(worst, 0.01);
    EXPECT_LT(worst_back, 0.001);
}

INSTANTIATE_TEST_SUITE_P(Grids, GdtRealGrid,
                         ::testing::Values(RealGrid{"nzgd2kgrid0005", "NZGD49", "NZGD2000"},
                                           RealGrid{"BETA2007", "DHDN", "ETRS89"},
                                           RealGrid{"ntf_r93", "NTF", "RGF93"}),
                         [](const ::testing::TestParamInfo<RealGrid> &info) {
                             return std::string(info.param.stem);
                         });

}  // namespace
