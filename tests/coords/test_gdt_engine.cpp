// The coordinate-system engine over the installed tables: sharing, units,
// refusals, robustness modes and the choice of datum change.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "gdt_fixture.h"

namespace {

using gdt_test::Engine;
using gdt_test::kDeg;
using gdt_test::kPi;
using gdt_test::said;

using GdtEngine = Engine;

TEST_F(GdtEngine, LockedSystemsAreSharedByName)
{
    int a = system("WGS84", "NUTM55");
    int b = system("wgs84", "nutm55");
    EXPECT_EQ(a, b);
    int c = gdt_create_coord_sys("WGS84", "NUTM55", "metres");
    EXPECT_NE(c, a);
    int next = 0, visits = 0;
    while (gdt_next_coord_sys(&next) > 0)
        if (next == a) visits++;
    EXPECT_EQ(visits, 2);
    ASSERT_EQ(gdt_delete_coord_sys(&a), 0);
    char label[64] = "horizontal_label", type[4] = "s", out[32];
    EXPECT_EQ(gdt_inq_coord_sys(&b, "units", label, type, out, sizeof out), 0);
    ASSERT_EQ(gdt_delete_coord_sys(&b), 0);
    EXPECT_EQ(gdt_inq_coord_sys(&b, "units", label, type, out, sizeof out), -1);
    gdt_delete_coord_sys(&c);
}

TEST_F(GdtEngine, UnitsOfGeodeticAndProjectedSystems)
{
    struct Case {
        const char *projection, *units, *label;
        double factor;
    } cases[] = {
        {"GEODETIC", "natural", "degrees", kDeg}, {"GEODETIC", "", "degrees", kDeg},
        {"GEODETIC", "radians", "radians", 1.0},  {"GEODETIC", "grads", "grads", kPi / 200},
        {"NUTM31", "feet", "metres", 1.0},        {"BNG", "natural", "metres", 1.0}};
    for (const Case &c : cases) {
        int id = system("OSGB36", c.projection, c.units);
        char attribute[64] = "horizontal_label", type[4] = "s", label[32] = "";
        ASSERT_EQ(gdt_inq_coord_sys(&id, "units", attribute, type, label, sizeof label), 0);
        EXPECT_STREQ(label, c.label) << c.projection << " " << c.units;
        std::strcpy(attribute, "horizontal_factor");
        std::strcpy(type, "d");
        double factor = 0;
        ASSERT_EQ(gdt_inq_coord_sys(&id, "units", attribute, type, &factor, sizeof factor), 0);
        EXPECT_DOUBLE_EQ(factor, c.factor);
        gdt_delete_coord_sys(&id);
    }
    int id = gdt_crelock_coord_sys("WGS84", "GEODETIC", "furlongs");
    EXPECT_EQ(id, -1);
    EXPECT_TRUE(said("Bad Angular unit"));
}

TEST_F(GdtEngine, ProjectionParametersAreInquiredByName)
{
    int id = system("WGS84", "SUTM60");
    char attribute[64] = "centre_merid", type[4] = "*";
    double value = 0;
    ASSERT_EQ(gdt_inq_coord_sys(&id, "projection", attribute, type, &value, sizeof value), 0);
    EXPECT_STREQ(type, "d");
    EXPECT_NEAR(value, 177 * kDeg, 1e-15);
    std::strcpy(attribute, "false_north");
    char text[32];
    std::strcpy(type, "s");
    ASSERT_EQ(gdt_inq_coord_sys(&id, "projection", attribute, type, text, sizeof text), 0);
    EXPECT_STREQ(text, "10000000");
    std::strcpy(attribute, "false_north");
    EXPECT_EQ(gdt_inq_coord_sys(&id, "projection", attribute, type, text, 4), -1);
    EXPECT_TRUE(said("STR:result too large for the string"));
    // The iterating inquiry skips hidden attributes with "init-.".
    std::strcpy(attribute, "init-.");
    std::strcpy(type, "*");
    std::string names;
    int status = gdt_inq_coord_sys(&id, "projection", attribute, type, nullptr, 0);
    while (status == 0) {
        names += std::string(attribute) + ";";
        std::strcpy(attribute, "next");
        status = gdt_inq_coord_sys(&id, "projection", attribute, type, nullptr, 0);
    }
    EXPECT_EQ(names, "zone;hemisphere;");
    gdt_delete_coord_sys(&id);
}

TEST_F(GdtEngine, BadNamesAreRefusedWithTheirTexts)
{
    struct Case {
        const char *datum, *projection, *units, *text;
    } cases[] = {{"NODATUM", "GEODETIC", "degrees", "Datum \"NODATUM\" not found"},
                 {"WGS84", "NOPROJ", "metres", "Projection \"NOPROJ\" not found"},
                 {"AVERYLONGDATUMNAME_X", "GEODETIC", "degrees", "Name too big"},
                 {"WGS84", "GEODETIC", "a-unit-word-too-long", "Name too big"},
                 {"WGS84", "GEODETIC", "degrees/a-vertical-word-too-long", "Name too big"},
                 {"WGS84", "USGS x 31", "metres", "projection initialisation"},
                 {"WGS84", "USGS", "metres", "Projection \"USGS\" not found"}};
    for (const Case &c : cases) {
        gdt_test::messages.clear();
        EXPECT_EQ(gdt_crelock_coord_sys(c.datum, c.projection, c.units), -1) << c.text;
        EXPECT_TRUE(said(c.text)) << c.text;
        ASSERT_FALSE(gdt_test::messages.empty());
        EXPECT_EQ(gdt_test::messages.back()[1], '3') << "a chain ends at level 3";
    }
    int id = 0;
    EXPECT_EQ(gdt_set_source(&id), -1);
    id = 399;
    EXPECT_EQ(gdt_delete_coord_sys(&id), -1);
}

TEST_F(GdtEngine, UnlockedSystemsDoNotTransformAndLockedOnesDoNotChange)
{
    int a = gdt_create_coord_sys("WGS84", "GEODETIC", "radians");
    int b = gdt_create_coord_sys("WGS84", "NUTM31", "metres");
    ASSERT_GT(a, 0);
    ASSERT_GT(b, 0);
    gdt_set_source(&a);
    gdt_set_target(&b);
    EXPECT_EQ(gdt_inq_trans_status(), 3);
    EXPECT_TRUE(said("Cannot transform with unlocked coord_sys"));
    double x = 0.05, y = 0.8, z = 0, ox, oy, oz;
    EXPECT_NE(gdt_transform(&x, &y, &z, &ox, &oy, &oz), 0);
    gdt_lock_coord_sys(&a);
    gdt_lock_coord_sys(&b);
    EXPECT_EQ(gdt_inq_trans_status(), 3) << "stays bad until the pair is dropped";
    double v = 1;
    EXPECT_EQ(gdt_mod_coord_sys(&a, "resolution", "resolution", "d", &v), -2);
    gdt_delete_coord_sys(&a);
    gdt_delete_coord_sys(&b);
    EXPECT_EQ(gdt_transform(&x, &y, &z, &ox, &oy, &oz), -1);
    EXPECT_TRUE(said("No transformation set up"));
}

TEST_F(GdtEngine, LongitudeModesOfGeodeticToProjected)
{
    // UTM zone 1 (centre -177 degrees) is cut at 3 degrees: 190 degrees
    // wraps to -170 under mode 2 and is refused under mode 3.
    int ll = system("WGS84", "GEODETIC", "degrees");
    int utm = system("WGS84", "NUTM1");
    int mode = 1;
    gdt_set_source(&ll);
    gdt_set_target(&utm);
    EXPECT_EQ(gdt_mod_trans_mode(&mode), -1) << "tranmerc lacks mode bit 0";
    double x1, y1, x2, y2;
    ASSERT_EQ(carry(ll, utm, 190, 0.01, x1, y1, 2), 0);
    ASSERT_EQ(carry(ll, utm, -170, 0.01, x2, y2, 2), 0);
    EXPECT_NEAR(x1, x2, 1e-6);
    EXPECT_NEAR(y1, y2, 1e-6);
    ASSERT_EQ(carry(ll, utm, 190 + 720, 0.01, x1, y1, 2), 0);
    EXPECT_NEAR(x1, x2, 1e-6);
    EXPECT_EQ(carry(ll, utm, 190, 10, x1, y1, 3), 1);
    EXPECT_EQ(carry(ll, utm, -175, 90, x1, y1, 3), 1);
    EXPECT_EQ(carry(ll, utm, -175, 45, x1, y1, 3), 0);
    // Projected to geodetic allows only modes 1 and 4.
    gdt_set_source(&utm);
    gdt_set_target(&ll);
    for (int m : {2, 3, 7}) EXPECT_EQ(gdt_mod_trans_mode(&m), -1) << m;
    mode = 1;
    EXPECT_EQ(gdt_mod_trans_mode(&mode), 0);
    mode = 5;
    ASSERT_EQ(gdt_inq_trans_mode(&mode), 0);
    EXPECT_EQ(mode, 1);
}

TEST_F(GdtEngine, ChoiceOfDatumChange)
{
    struct Case {
        const char *from, *to;
        int mode, level;
    } cases[] = {{"WGS84", "WGS84", 0, 0}, {"OSGB36", "WGS84", 1, 3}, {"WGS84", "OSGB36", 1, 3},
                 {"OSGB36", "ED50", 1, 3}, {"USC_X", "WGS84", 1, 0},  {"WGS84", "USCTEST", 1, 0}};
    for (const Case &c : cases) {
        gdt::DatumChange change;
        ASSERT_EQ(gdt::load_datum_change(c.from, c.to, change), 0) << c.from << ">" << c.to;
        EXPECT_EQ(change.mode, c.mode);
        if (c.mode == 1) {
            EXPECT_EQ(change.bw.level, c.level);
        }
    }
    gdt::DatumChange change;
    EXPECT_EQ(gdt::load_datum_change("OSGB36", "SPHERE", change), -1);
    EXPECT_TRUE(said("No Datum change exists"));
    // Reverse rows are inverted: OSGB36 from WGS84 negates every parameter.
    gdt::DatumChange there, back;
    gdt::load_datum_change("OSGB36", "WGS84", there);
    gdt::load_datum_change("WGS84", "OSGB36", back);
    EXPECT_EQ(back.bw.translation_x, -there.bw.translation_x);
    EXPECT_EQ(back.bw.rotation_z, -there.bw.rotation_z);
    EXPECT_DOUBLE_EQ(back.bw.scale * there.bw.scale, 1.0);
}

TEST(GdtBursaWolf, RecordArithmetic)
{
    gdt_bursa_wolf bw = {3, 446.448, -125.157, 542.06, 7e-7, 1.2e-6, 4e-6, 1 - 20.489e-6};
    gdt_bursa_wolf inv, sum;
    gdt_bw_invert(&bw, &inv);
    gdt_bw_combine(&bw, &inv, &sum);
    EXPECT_EQ(sum.translation_x, 0.0);
    EXPECT_EQ(sum.translation_y, 0.0);
    EXPECT_EQ(sum.rotation_z, 0.0);
    EXPECT_DOUBLE_EQ(sum.scale, 1.0);
    double x, y, z;
    bw.level = 4;
    EXPECT_EQ(gdt_xyz_to_xyz(&bw, 1, 2, 3, &x, &y, &z), -1);
    bw.level = 1;
    ASSERT_EQ(gdt_xyz_to_xyz(&bw, 1, 2, 3, &x, &y, &z), 0);
    EXPECT_DOUBLE_EQ(x, 447.448);
}

TEST(GdtGeocentric, RoundTripsOverTheEllipsoid)
{
    gdt_spheroid s = {6378137.0, 0.0818191908426215, 0.0};
    double worst_angle = 0, worst_height = 0, worst_newton = 0;
    for (double lat = -90; lat <= 90; lat += 7.5)
        for (double lon = -180; lon < 180; lon += 15)
            for (double h : {-100.0, 0.0, 8000.0}) {
                double x, y, z, lo, la, hh;
                gdt_gd_to_xyz(&s, lon * kDeg, lat * kDeg, h, &x, &y, &z);
                gdt_xyz_to_gd(&s, x, y, z, &lo, &la, &hh);
                worst_angle = std::max(worst_angle, std::fabs(la - lat * kDeg));
                if (std::fabs(lat) < 90)
                    worst_angle =
                        std::max(worst_angle, std::fabs(std::remainder(lo - lon * kDeg, 2 * kPi)));
                worst_height = std::max(worst_height, std::fabs(hh - h));
                gdt_xyz_to_gd_2(&s, x, y, z, &lo, &la, &hh);
                worst_newton = std::max(worst_newton, std::fabs(la - lat * kDeg));
            }
    std::printf("geocentric round trip: %.3g rad, %.3g m; one Newton step %.3g rad\n", worst_angle,
                worst_height, worst_newton);
    EXPECT_LT(worst_angle, 1e-10);
    EXPECT_LT(worst_height, 1e-3);
    EXPECT_LT(worst_newton, 1e-7);
}

TEST(GdtNormalPi, ValuesNearPiStay)
{
    struct Case {
        double in, out;
    } cases[] = {{3.1415926535898, 3.1415926535898},
                 {-3.1415926535898, -3.1415926535898},
                 {1.0, 1.0},
                 {3 * kPi, kPi},
                 {-3.5 * kPi, 0.5 * kPi},
                 {2 * kPi + 0.25, 0.25}};
    for (const Case &c : cases) EXPECT_NEAR(gdt_normal_pi(c.in), c.out, 1e-12) << c.in;
    EXPECT_EQ(gdt_normal_pi(3.1415926535898), 3.1415926535898);
}

TEST_F(GdtEngine, BasesAreListedInInstallOrder)
{
    char name[64];
    ASSERT_EQ(gdt_inq_next_base(nullptr), 0);
    std::string names;
    while (gdt_inq_next_base(name) == 0) names += std::string(name) + ";";
    EXPECT_EQ(name[0], '\0');
    // The family's order, which the lists of projections show.
    EXPECT_EQ(names,
              "coniced;lambert1;lambert2;mollweid;mercator;tranmerc;stm;utm;albersea;regpol;"
              "modpol;azimuted;obmerc_b;stereo;grinten;lambazea;sinusoid;eckertiv;eckertvi;"
              "placaree;cassini;bioconco;dutch;borneo;swiss;winktrip;nzmapgrd;labordom;bonne;"
              "orthog;gnomonic;modstero;robinson;lamcon1;lamcon2;obmerc_c;usgs;millercy;"
              "danish_uts;");
    EXPECT_EQ(gdt_trans_polyline(), -1);
    EXPECT_TRUE(said("function gdt_trans_polyline is NOT implemented"));
}

}  // namespace
