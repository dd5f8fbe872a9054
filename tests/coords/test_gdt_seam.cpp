// Dataset coordinates through the real engine: conversions between spaces,
// datum changes against the peer's Helmert transformation, reprojected
// extents, and the engine's texts in the library's error.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>

#include "coords_fixture.h"
#include "gdt_fixture.h"
#include "proj_peer.h"
#include "vld_coords.h"
#include "vld_coords_internal.h"

namespace {

using coords::at;
using coords::Space;
using gdt_test::kDeg;
using gdt_test::kPi;
using gdt_test::Peer;
using gdt_test::Points;

constexpr double kRadius = 6.4e6; /* metres per radian, for angle differences */

class GdtSeam : public ::testing::Test {
   protected:
    void SetUp() override
    {
        unsetenv("GDT_DATA_PATH");
        gdt::engine_reset();
        gdt::install_coord_engine();
    }
    void TearDown() override
    {
        vld::set_coord_engine(nullptr);
        gdt::engine_reset();
        gdt::install_coord_engine();
    }
};

TEST_F(GdtSeam, GeographicToUtmAgreesWithThePeer)
{
    Space ll(CST_LL, "WGS84", "GEODETIC", "natural");
    Space utm(CST_EN, "WGS84", "SUTM55");
    Peer peer("+proj=utm +zone=55 +south +ellps=WGS84 +approx");
    Points points(55);
    double worst = 0, worst_back = 0;
    for (int i = 0; i < 1000; i++) {
        dscoord in = at((147 + points.uniform(-3.5, 3.5)) * kDeg, points.uniform(-60, -1) * kDeg);
        dscoord out, back;
        ASSERT_EQ(cvt_any_coord_to_coord(&ll.cs, &in, &utm.cs, &out), 0) << VLD_error.text;
        EXPECT_TRUE(std::isnan(out.z));
        double px, py;
        ASSERT_TRUE(peer.forward(in.x, in.y, px, py));
        worst = std::max({worst, std::fabs(out.x - px), std::fabs(out.y - py)});
        ASSERT_EQ(cvt_any_coord_to_coord(&utm.cs, &out, &ll.cs, &back), 0);
        worst_back = std::max({worst_back, std::fabs(back.x - in.x), std::fabs(back.y - in.y)});
    }
    EXPECT_LT(worst, 0.01);
    EXPECT_LT(worst_back, 1e-9);
}

struct Helmert {
    const char *datum;
    const char *peer; /* the published transformation in the peer's words */
    double lon_lo, lon_hi, lat_lo, lat_hi;
};

// Rows published in either sense: the tables hold them position-vector.
const Helmert kHelmerts[] = {
    {"OSGB36",
     "+proj=helmert +x=446.448 +y=-125.157 +z=542.06 +rx=0.15 +ry=0.247 +rz=0.842 "
     "+s=-20.489 +convention=position_vector",
     -8, 2, 50, 60},
    {"DHDN",
     "+proj=helmert +x=598.1 +y=73.7 +z=418.2 +rx=0.202 +ry=0.045 +rz=-2.455 +s=6.7 "
     "+convention=position_vector",
     6, 15, 47, 55},
    {"NZGD49",
     "+proj=helmert +x=59.47 +y=-5.04 +z=187.44 +rx=-0.47 +ry=0.1 +rz=-1.024 +s=-4.5993 "
     "+convention=coordinate_frame",
     166, 179, -47, -34},
    {"ED50", "+proj=helmert +x=-87 +y=-98 +z=-121", -10, 30, 35, 70},
};

class GdtSeamHelmert : public GdtSeam, public ::testing::WithParamInterface<Helmert> {};

TEST_P(GdtSeamHelmert, DatumChangeAgreesWithThePeer)
{
    const Helmert &h = GetParam();
    static const std::pair<const char *, const char *> ellipsoids[] = {
        {"OSGB36", "airy"}, {"DHDN", "bessel"}, {"NZGD49", "intl"}, {"ED50", "intl"}};
    const char *ellps = "";
    for (const auto &e : ellipsoids)
        if (std::strcmp(e.first, h.datum) == 0) ellps = e.second;
    Peer peer(std::string("+proj=pipeline +step +proj=cart +ellps=") + ellps + " +step " + h.peer +
              " +step +inv +proj=cart +ellps=WGS84");
    ASSERT_TRUE(peer.ok());
    Space from(CST_LL, h.datum, "GEODETIC", "natural");
    Space to(CST_LL, "WGS84", "GEODETIC", "natural");
    Points points(7);
    double worst = 0;
    for (int i = 0; i < 1000; i++) {
        dscoord in = at(points.uniform(h.lon_lo, h.lon_hi) * kDeg,
                        points.uniform(h.lat_lo, h.lat_hi) * kDeg);
        dscoord out;
        ASSERT_EQ(cvt_any_coord_to_coord(&from.cs, &in, &to.cs, &out), 0) << VLD_error.text;
        double plon, plat;
        ASSERT_TRUE(peer.forward(in.x, in.y, plon, plat));
        worst = std::max({worst, std::fabs(out.x - plon) * std::cos(plat) * kRadius,
                          std::fabs(out.y - plat) * kRadius});
    }
    std::printf("%-7s to WGS84: worst %.3g m\n", h.datum, worst);
    EXPECT_LT(worst, 0.001) << h.datum;
}

INSTANTIATE_TEST_SUITE_P(Rows, GdtSeamHelmert, ::testing::ValuesIn(kHelmerts),
                         [](const ::testing::TestParamInfo<Helmert> &info) {
                             return std::string(info.param.datum);
                         });

TEST_F(GdtSeam, EngineTextsReachTheLibraryError)
{
    struct Case {
        const char *datum, *projection, *text;
    } cases[] = {{"NOPE", "NUTM55", "Datum \\\"NOPE\\\" not found"},
                 {"WGS84", "NOPROJ", "Projection \\\"NOPROJ\\\" not found"}};
    Space ll(CST_LL, "WGS84", "GEODETIC", "natural");
    for (const Case &c : cases) {
        Space en(CST_EN, c.datum, c.projection);
        dscoord in = at(2 * kDeg, 50 * kDeg), out;
        EXPECT_EQ(cvt_any_coord_to_coord(&ll.cs, &in, &en.cs, &out), VLD_ERR_GEODETIC_TRANSFORM);
        ASSERT_NE(VLD_error.text, nullptr);
        EXPECT_NE(std::string(VLD_error.text).find("not found"), std::string::npos)
            << VLD_error.text;
        EXPECT_EQ(VLN_coordspace_valid(&en.cs), 0);
    }
    Space good(CST_EN, "WGS84", "NUTM31");
    EXPECT_EQ(VLN_coordspace_valid(&good.cs), 1);
    EXPECT_EQ(get_meter_factor_from_datum_proj("WGS84", "NUTM31", "METERS"), 1.0);
    char *label = get_units_from_datum_proj("WGS84", "NUTM31", "METERS");
    EXPECT_STREQ(label, "metres");
    safe_free(label);
}

TEST_F(GdtSeam, GeodeticDistancesUseTheDatumRadius)
{
    Space ll(CST_LL, "WGS84", "GEODETIC", "natural");
    dscoord a = at(0, 0), b = at(kPi / 2, 0);
    double d = 0;
    ASSERT_EQ(distance_coords_meters(&ll.cs, &a, &b, &d), 0) << VLD_error.text;
    EXPECT_NEAR(d, 6378137.0 * kPi / 2, 1e-6);
}

TEST_F(GdtSeam, ReprojectedExtentsAgreeWithThePeer)
{
    // A raster in zone 55 of the Map Grid of Australia, 250 by 200 cells of
    // 100 metres, its extents taken to geographic and to zone 54.
    Space mga(CST_EN, "GDA94", "MGA55");
    dshdr h = coords::raster(mga.cs, 100, 100, 0, 0, at(250000, 6000000));
    h.info.r.nr_cells = 250;
    h.info.r.nr_lines = 200;
    Peer inverse("+proj=utm +zone=55 +south +ellps=GRS80 +approx");
    struct Target {
        const char *projection;
        int type;
        const char *peer; /* empty: geographic radians */
        double tolerance; /* in the target's units */
    } targets[] = {{"GEODETIC", CST_LL, "", 0.001 / kRadius},
                   {"SUTM54", CST_EN, "+proj=utm +zone=54 +south +ellps=GRS80 +approx", 0.01}};
    for (const Target &t : targets) {
        Space target(t.type, "GDA94", t.projection, "natural");
        dscoord tl = at(250000, 6000000), br = at(275000, 5980000);
        ASSERT_EQ(VLN_calculate_reprojected_extents(&target.cs, &h, &tl, &br), 0) << VLD_error.text;
        std::unique_ptr<Peer> forward;
        if (t.peer[0]) forward = std::make_unique<Peer>(t.peer);
        double lo_x = HUGE_VAL, lo_y = HUGE_VAL, hi_x = -HUGE_VAL, hi_y = -HUGE_VAL;
        auto visit = [&](double cx, double cy) {
            double lon, lat, x, y;
            ASSERT_TRUE(inverse.backward(250000 + 100 * cx, 6000000 - 100 * cy, lon, lat));
            if (forward)
                ASSERT_TRUE(forward->forward(lon, lat, x, y));
            else
                x = lon, y = lat;
            lo_x = std::min(lo_x, x);
            lo_y = std::min(lo_y, y);
            hi_x = std::max(hi_x, x);
            hi_y = std::max(hi_y, y);
        };
        for (int i = 0; i <= 250; i += 2) visit(i, 0), visit(i, 200);
        for (int j = 0; j <= 200; j += 2) visit(0, j), visit(250, j);
        EXPECT_NEAR(tl.x, lo_x, t.tolerance) << t.projection;
        EXPECT_NEAR(tl.y, hi_y, t.tolerance) << t.projection;
        EXPECT_NEAR(br.x, hi_x, t.tolerance) << t.projection;
        EXPECT_NEAR(br.y, lo_y, t.tolerance) << t.projection;
    }
}

}  // namespace
