// Positions and lengths as text: what is shown, and what typed text becomes.
#include <cstdlib>

#include "vld_blocktext.h"
#include "coords_fixture.h"

namespace {

using namespace coords;

struct Texts {
    char *a = nullptr, *b = nullptr;
    ~Texts()
    {
        safe_free(a);
        safe_free(b);
    }
};

TEST(CoordsText, LengthsShown)
{
    struct Row {
        double length;
        int width;
        const char *text;
    } rows[] = {
        {0.0, 9, "0.0"},
        {1500.0, 9, "1.500Km"},
        {-1500.0, 9, "-1.500Km"},
        {1.0, 9, "1.000m"},
        {0.25, 9, "250.000mm"},
        {2e-6, 9, "2.000um"},
        {1e-20, 9, "0.000fm"},            // below every unit: the last one
        {123456789.0, 9, "123456.78Km"},  // cut, not rounded
        {1e10, 9, "10000000Km"},          // a cut that ends in the point drops it
        {1500.0, 2, "1.5Km"},             // never fewer than 3 characters
        {12345.0, 3, "12Km"},
        {999.9999, 9, "1000.000m"},  // the unit is picked before rounding
    };
    for (const Row &r : rows)
        EXPECT_STREQ(generic_len_to_str(r.length, r.width), r.text) << r.length << " " << r.width;
    EXPECT_STREQ(len_to_str(0.5), "500.000mm");
}

TEST(CoordsText, LengthsRead)
{
    struct Row {
        const char *text;
        double length;
    } rows[] = {
        {"5Km", 5000.0},  {"2.5 mm", 0.0025}, {"3 KM", 3000.0},
        {"7m", 7.0},      {"5", 0.0},  // no unit
        {"4 miles", 0.0}, {"", 0.0},          {"1.5e3nm", 1.5e-6},
    };
    for (const Row &r : rows) EXPECT_DOUBLE_EQ(str_to_len(r.text), r.length) << r.text;
    EXPECT_EQ(str_to_len(nullptr), 0.0);
}

TEST(CoordsText, AngleCarries)
{
    char text[64];
    EXPECT_STREQ(d_to_dmsstr_spec(text, 0.999999999, 2), "1:0:0.0");
    EXPECT_DOUBLE_EQ(dmsstr_to_d("12:30:0.0"), 12.5);
}

TEST(CoordsText, LatitudeAndLongitudeShown)
{
    Space ll(CST_LL, "WGS84", "GEODETIC");
    struct Row {
        double lon, lat;  // degrees
        const char *lat_text, *lon_text;
    } rows[] = {
        {-130.5, -12.5, "12:30:0.0S", "130:30:0.0W"}, {45.25, 10.0, "10:0:0.0N", "45:15:0.0E"},
        {0.0, 0.0, "0:0:0.0N", "0:0:0.0E"},           {190.0, 89.999, "89:59:56.4N", "170:0:0.0W"},
        {-370.0, 1.0, "1:0:0.0N", "10:0:0.0W"},       {725.0, 1.0, "1:0:0.0N", "5:0:0.0E"},
    };
    for (const Row &r : rows) {
        Texts t;
        dscoord c = at(r.lon * kRad, r.lat * kRad);
        ASSERT_EQ(VLD_coords_to_ll_strings(&t.a, &t.b, &c, nullptr, &ll.cs), 0);
        EXPECT_STREQ(t.a, r.lat_text) << r.lat;
        EXPECT_STREQ(t.b, r.lon_text) << r.lon;
    }
    // A difference has no hemisphere: first minus second in latitude, second
    // minus first in longitude.
    Texts t;
    dscoord a = at(10 * kRad, 20 * kRad), b = at(11 * kRad, 19.5 * kRad);
    ASSERT_EQ(VLD_coords_to_ll_strings(&t.a, &t.b, &a, &b, &ll.cs), 0);
    EXPECT_STREQ(t.a, "0:30:0.0");
    EXPECT_STREQ(t.b, "1:0:0.0");
    Texts raw_texts;
    Space raw(CST_RAW, "RAW", "RAW");
    ASSERT_EQ(VLD_coords_to_ll_strings(&raw_texts.a, &raw_texts.b, &a, nullptr, &raw.cs), 0);
    EXPECT_STREQ(raw_texts.a, "0:0:0.0N");
    EXPECT_STREQ(raw_texts.b, "0:0:0.0E");
}

TEST(CoordsText, EastingsAndNorthingsShown)
{
    Space en(CST_EN, "WGS84", "NUTM50");
    dscoord a = at(1234.567, -89.001), b = at(1300, -100), zero = at(0, 0);
    Texts plain, diff, zeros;
    ASSERT_EQ(VLD_coords_to_en_strings(&plain.a, &plain.b, &a, nullptr, &en.cs), 0);
    EXPECT_STREQ(plain.a, "1234.57E");
    EXPECT_STREQ(plain.b, "-89.00N");
    ASSERT_EQ(VLD_coords_to_en_strings(&diff.a, &diff.b, &a, &b, &en.cs), 0);
    EXPECT_STREQ(diff.a, "65.43");
    EXPECT_STREQ(diff.b, "11.00");
    ASSERT_EQ(VLD_coords_to_en_strings(&zeros.a, &zeros.b, &zero, nullptr, &en.cs), 0);
    EXPECT_STREQ(zeros.a, "0.0E");
    EXPECT_STREQ(zeros.b, "0.0N");
}

TEST(CoordsText, LatitudeAndLongitudeTyped)
{
    Space ll(CST_LL, "WGS84", "GEODETIC");
    struct Row {
        const char *lat, *lon;
        double base_lon, base_lat;  // degrees
        double lon_deg, lat_deg;    // the result
    } rows[] = {
        {"12:30:0.0S", "130:0:0E", 0, 0, 130, -12.5},
        {"12:30:0.0s", "10:0:0w", 0, 0, 350, -12.5},
        {"12:30:0.0N", "10:0:0", 0, 0, 10, 12.5},
        // No letter: the hemisphere is the base's.
        {"12:30:0", "10:0:0", 200, -5, 350, -12.5},
        {"12:30:0", "10:0:0E", 200, 5, 10, 12.5},
    };
    for (const Row &r : rows) {
        dscoord base = at(r.base_lon * kRad, r.base_lat * kRad);
        ASSERT_EQ(VLD_ll_strings_to_coords(r.lat, r.lon, &base, nullptr, &ll.cs, 1), 0);
        EXPECT_NEAR(base.x, r.lon_deg * kRad, 1e-12) << r.lat << " " << r.lon;
        EXPECT_NEAR(base.y, r.lat_deg * kRad, 1e-12) << r.lat << " " << r.lon;
    }
    // An offset from the base: latitude down, longitude across.
    dscoord base = at(100 * kRad, 20 * kRad), out;
    ASSERT_EQ(VLD_ll_strings_to_coords("1:0:0", "2:0:0", &base, &out, &ll.cs, 1), 0);
    EXPECT_NEAR(out.x, 102 * kRad, 1e-12);
    EXPECT_NEAR(out.y, 19 * kRad, 1e-12);
    EXPECT_EQ(VLD_ll_strings_to_coords("1:0:0", "2:0:0", &base, &out, &ll.cs, 0), -1);

    Space en(CST_EN, "WGS84", "NUTM50");
    EXPECT_EQ(VLD_ll_strings_to_coords("1:0:0N", "2:0:0E", &base, nullptr, &en.cs, 1), 31);
}

TEST(CoordsText, EastingsAndCellsTyped)
{
    Space raw(CST_RAW, "RAW", "RAW");
    Space en(CST_EN, "WGS84", "NUTM50");
    dscoord base = at(100, 200), out;
    ASSERT_EQ(VLD_en_to_coords(5, 7, &base, &out, &raw.cs, 1), 0);
    EXPECT_EQ(out.x, 105);
    EXPECT_EQ(out.y, 207);
    ASSERT_EQ(VLD_en_to_coords(5, 7, &base, &out, &en.cs, 1), 0);
    EXPECT_EQ(out.x, 105);
    EXPECT_EQ(out.y, 193);
    ASSERT_EQ(VLD_en_to_coords(5, 7, &base, nullptr, &en.cs, 1), 0);
    EXPECT_EQ(base.x, 5);
    EXPECT_EQ(base.y, 7);
    EXPECT_EQ(VLD_en_to_coords(5, 7, &base, nullptr, &en.cs, 0), -1);
    EXPECT_EQ(VLD_en_to_coords(5, 7, &base, nullptr, nullptr, 1), -1);

    dshdr d = raster(en.cs, 10, 10, 0, 0, at(1000, 2000));
    ASSERT_EQ(VLD_cellxy_strings_to_coords("3", "4.5", &base, nullptr, &en.cs, &d), 0);
    EXPECT_EQ(base.x, 1030);
    EXPECT_EQ(base.y, 1955);
    ASSERT_EQ(VLD_cellxy_strings_to_coords("1", "-2", &base, &out, &en.cs, &d), 0);
    EXPECT_NEAR(out.x, 1040, 1e-9);
    EXPECT_NEAR(out.y, 1975, 1e-9);
    EXPECT_EQ(VLD_cellxy_strings_to_coords("1", nullptr, &base, &out, &en.cs, &d), -1);
}

using CoordsTextEngine = WithEngine;

// In an EN space typed latitudes and longitudes go through LL; a missing
// hemisphere is taken from the base only when the base cannot be carried to LL.
TEST_F(CoordsTextEngine, TypedLatitudeInAGrid)
{
    Space en(CST_EN, "WGS84", "FLAT");
    dscoord base = at(500000, -1000000);  // south of the equator
    ASSERT_EQ(VLD_ll_strings_to_coords("1:0:0", "10:0:0", &base, nullptr, &en.cs, 1), 0);
    EXPECT_NEAR(base.x, kRadius * 10 * kRad + 500000, 1e-6);
    EXPECT_NEAR(base.y, kRadius * 1 * kRad, 1e-6);  // the base converted: signs kept

    dscoord from = at(500000, 0), out;
    ASSERT_EQ(VLD_ll_strings_to_coords("1:0:0", "2:0:0", &from, &out, &en.cs, 1), 0);
    EXPECT_NEAR(out.x, kRadius * 2 * kRad + 500000, 1e-6);
    EXPECT_NEAR(out.y, -kRadius * 1 * kRad, 1e-6);

    Texts t;
    dscoord south = at(500000, -kRadius * 12.5 * kRad);
    ASSERT_EQ(VLD_coords_to_ll_strings(&t.a, &t.b, &south, nullptr, &en.cs), 0);
    EXPECT_STREQ(t.a, "12:30:0.0S");
    EXPECT_STREQ(t.b, "0:0:0.0E");
}

}  // namespace
