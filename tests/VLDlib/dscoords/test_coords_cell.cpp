// Cells of a dataset and coordinates of its own space: known positions, round
// trips over registrations, cell sizes and rotations, and the LL cases.
#include "coords_fixture.h"

namespace {

using namespace coords;

struct Placement {
    const char *name;
    double xd, yd;  // cell size; 0 counts as 1
    double rx, ry;  // registration cell
    dscoord reg;
};

const Placement kPlacements[] = {
    {"origin", 1.0, 1.0, 0.0, 0.0, {0.0, 0.0, 0.0}},
    {"offset", 25.0, 12.5, 12.5, -3.25, {500000.5, 7000000.25, 0.0}},
    {"zero size", 0.0, 0.0, 3.0, 4.0, {-100.0, 250.0, 0.0}},
    {"fine", 0.05, 0.2, 1000.75, 2000.5, {321.125, -654.875, 0.0}},
};

struct SpaceCase {
    const char *name;
    int type;
    const char *datum, *projection;
    double factor;
};

const SpaceCase kSpaces[] = {
    {"raw", CST_RAW, "RAW", "RAW", 1.0},
    {"none", CST_None, "RAW", "RAW", 1.0},
    {"EN metres", CST_EN, "WGS84", "NUTM50", 1.0},
    {"EN feet", CST_EN, "NAD27", "SPCS", 0.3048},
    {"EN factor 0", CST_EN, "WGS84", "NUTM50", 0.0},
};

TEST(CoordsCell, RoundTripsOverPlacementsAndRotations)
{
    for (const SpaceCase &sc : kSpaces)
        for (double degrees : {0.0, 30.0})
            for (const Placement &p : kPlacements) {
                SCOPED_TRACE(std::string(sc.name) + " / " + p.name + " / " +
                             std::to_string(degrees));
                Space s(sc.type, sc.datum, sc.projection, "METERS", degrees * kRad, sc.factor);
                dshdr d = raster(s.cs, p.xd, p.yd, p.rx, p.ry, p.reg);

                dscoord c;
                ASSERT_EQ(cvt_cell_to_coord(&d, p.rx, p.ry, &c), 0);
                EXPECT_NEAR(c.x, p.reg.x, 1e-8);
                EXPECT_NEAR(c.y, p.reg.y, 1e-8);
                EXPECT_TRUE(vln_disnan(c.z));
                for (double cx : {-7.5, 0.0, 0.25, 99.0, 4096.5})
                    for (double cy : {-1.0, 0.0, 17.75, 3000.0}) {
                        ASSERT_EQ(cvt_cell_to_coord(&d, cx, cy, &c), 0);
                        double bx, by;
                        ASSERT_EQ(cvt_coord_to_cell(&d, &c, &bx, &by), 0);
                        EXPECT_NEAR(bx, cx, 1e-9) << cx << "," << cy;
                        EXPECT_NEAR(by, cy, 1e-9) << cx << "," << cy;
                    }
            }
}

// Positions worked by hand: which way y runs, which way the grid turns, and
// that cell sizes are metres in a space counted in feet.
TEST(CoordsCell, KnownPositions)
{
    const double c30 = std::cos(30 * kRad), s30 = std::sin(30 * kRad);
    struct Row {
        const char *name;
        int type;
        double degrees, factor, xd, yd, cx, cy;
        double x, y;
    } rows[] = {
        {"EN y runs up", CST_EN, 0, 1.0, 25, 12.5, 10, 20, 100 + 250, 200 - 250},
        {"RAW y runs down", CST_RAW, 0, 1.0, 25, 12.5, 10, 20, 100 + 250, 200 + 250},
        {"zero cell size", CST_EN, 0, 1.0, 0, 0, 3, 4, 103, 196},
        {"EN along a line", CST_EN, 30, 1.0, 1, 1, 1, 0, 100 + c30, 200 - s30},
        {"EN down a column", CST_EN, 30, 1.0, 1, 1, 0, 1, 100 - s30, 200 - c30},
        {"RAW along a line", CST_RAW, 30, 1.0, 1, 1, 1, 0, 100 + c30, 200 + s30},
        {"EN in feet", CST_EN, 0, 0.3048, 0.3048, 0.3048, 1, 2, 101, 198},
    };
    for (const Row &r : rows) {
        Space s(r.type, r.type == CST_EN ? "WGS84" : "RAW", r.type == CST_EN ? "NUTM50" : "RAW",
                "METERS", r.degrees * kRad, r.factor);
        dshdr d = raster(s.cs, r.xd, r.yd, 0, 0, at(100, 200));
        dscoord c;
        ASSERT_EQ(cvt_cell_to_coord(&d, r.cx, r.cy, &c), 0) << r.name;
        EXPECT_NEAR(c.x, r.x, 1e-9) << r.name;
        EXPECT_NEAR(c.y, r.y, 1e-9) << r.name;
    }
}

// The _ex forms use the cosine and sine handed in, in that order; the rotation
// field only says whether to rotate.
TEST(CoordsCell, ExFormsTakeCosineThenSine)
{
    Space s(CST_EN, "WGS84", "NUTM50", "METERS", 0.1);
    dshdr d = raster(s.cs, 1, 1, 0, 0, at(0, 0));
    dscoord c;
    ASSERT_EQ(cvt_cell_to_coord_ex(&d, 1, 0, &c, 0.0, 1.0), 0);  // a quarter turn
    EXPECT_NEAR(c.x, 0.0, 1e-12);
    EXPECT_NEAR(c.y, -1.0, 1e-12);
    double cx, cy;
    ASSERT_EQ(cvt_coord_to_cell_ex(&d, &c, &cx, &cy, 0.0, 1.0), 0);
    EXPECT_NEAR(cx, 1.0, 1e-12);
    EXPECT_NEAR(cy, 0.0, 1e-12);
}

TEST(CoordsCell, VectorDatasetsCountFromTheirTopLeftCorner)
{
    Space s(CST_EN, "WGS84", "NUTM50");
    dshdr d{};
    d.data_type = DT_Vector;
    d.coordspace = s.cs;
    d.info.v.extents.top_left = at(1000, 2000);
    dscoord c;
    ASSERT_EQ(cvt_cell_to_coord(&d, 3, 4, &c), 0);
    EXPECT_EQ(c.x, 1003);
    EXPECT_EQ(c.y, 1996);
}

TEST(CoordsCell, RefusalsAreIncompatibleSpaces)
{
    Space raw(CST_RAW, "RAW", "RAW");
    Space ll_on_raw(CST_LL, "RAW", "GEODETIC");
    dshdr good = raster(raw.cs, 1, 1, 0, 0, at(0, 0));
    dshdr other_kind = good;
    other_kind.data_type = DT_Unknown;
    dshdr ll_raw = raster(ll_on_raw.cs, 1, 1, 0, 0, at(0, 0));
    dscoord c = at(0, 0);
    double x, y;
    struct Row {
        const char *name;
        int status;
    } rows[] = {
        {"null header", cvt_cell_to_coord(nullptr, 0, 0, &c)},
        {"null output", cvt_cell_to_coord(&good, 0, 0, nullptr)},
        {"null coordinate", cvt_coord_to_cell(&good, nullptr, &x, &y)},
        {"null cell", cvt_coord_to_cell(&good, &c, nullptr, &y)},
        {"other kind", cvt_cell_to_coord(&other_kind, 0, 0, &c)},
        {"LL on a raw datum", cvt_cell_to_coord(&ll_raw, 0, 0, &c)},
    };
    for (const Row &r : rows) {
        EXPECT_EQ(r.status, 16) << r.name;
    }
    cvt_cell_to_coord(&ll_raw, 0, 0, &c);
    EXPECT_STREQ(VLD_error_text(), "Incompatible coordinate systems");
}

// A "GEODETIC" dataset steps in degrees and answers in radians; the plain
// coordinate-to-cell form takes degrees, the forgiving form radians.
TEST(CoordsCell, GeodeticDatasetsReadDegreesAndWriteRadians)
{
    Space s(CST_LL, "WGS84", "GEODETIC", "natural", 0.3);  // rotation is ignored
    dshdr d = raster(s.cs, 0.01, 0.02, 0, 0, at(130 * kRad, -25 * kRad));
    dscoord c;
    ASSERT_EQ(cvt_cell_to_coord(&d, 100, 50, &c), 0);
    EXPECT_NEAR(c.x, 131 * kRad, 1e-12);
    EXPECT_NEAR(c.y, -26 * kRad, 1e-12);
    EXPECT_TRUE(vln_disnan(c.z));

    d.coordspace.rotation = 0.0;  // the inverse goes through EN, which would turn
    double cx, cy;
    dscoord degrees = at(131, -26);
    ASSERT_EQ(cvt_coord_to_cell(&d, &degrees, &cx, &cy), 0);
    EXPECT_NEAR(cx, 100, 1e-9);
    EXPECT_NEAR(cy, 50, 1e-9);
    ASSERT_EQ(cvt_coord_to_cell(&d, &c, &cx, &cy), 0);  // radians are taken as degrees
    EXPECT_GT(std::fabs(cx - 100), 1000);
}

// Anything that needs another datum or projection waits for the engine.
TEST(CoordsCell, ProjectedLLFailsWithoutTheEngine)
{
    Space s(CST_LL, "AGD66", "TMAMG55");
    dshdr d = raster(s.cs, 25, 25, 0, 0, at(147 * kRad, -35 * kRad));
    dscoord c;
    EXPECT_EQ(cvt_cell_to_coord(&d, 1, 1, &c), 31);
    EXPECT_STREQ(VLD_error_text(),
                 "Geodetic transform error: \"no coordinate engine to carry LL AGD66/TMAMG55 to "
                 "EN AGD66/TMAMG55\"");
    double cx, cy;
    EXPECT_EQ(cvt_coord_to_cell(&d, &c, &cx, &cy), 31);

    // The forgiving forms put the header back as it was, also on failure.
    dshdr before = d;
    EXPECT_EQ(cvt_cell_to_nonLL_coord(&d, 1, 1, &c), 31);
    EXPECT_EQ(cvt_any_coord_to_cell(&s.cs, &c, &d, &cx, &cy), 31);
    EXPECT_EQ(d.coordspace.coordsystype, CST_LL);
    EXPECT_EQ(dscoord_cmp(&d.info.r.registration_coord, &before.info.r.registration_coord), 0);
}

using CoordsCellEngine = WithEngine;

TEST_F(CoordsCellEngine, ProjectedLLRoundTripsThroughTheGrid)
{
    for (double degrees : {0.0, 30.0}) {
        Space s(CST_LL, "WGS84", "FLAT", "natural", degrees * kRad);
        dshdr d = raster(s.cs, 1000, 500, 2.5, 7.5, at(10 * kRad, 20 * kRad));
        dscoord c;
        ASSERT_EQ(cvt_cell_to_coord(&d, 2.5, 7.5, &c), 0);
        EXPECT_NEAR(c.x, 10 * kRad, 1e-12);
        EXPECT_NEAR(c.y, 20 * kRad, 1e-12);
        if (degrees == 0.0) {  // one cell east is 1000 m along the sphere
            ASSERT_EQ(cvt_cell_to_coord(&d, 3.5, 7.5, &c), 0);
            EXPECT_NEAR(c.x, 10 * kRad + 1000 / kRadius, 1e-12);
        }
        for (double cx : {0.0, 40.25, -3.0})
            for (double cy : {0.0, 12.5}) {
                ASSERT_EQ(cvt_cell_to_coord(&d, cx, cy, &c), 0);
                double bx, by;
                ASSERT_EQ(cvt_coord_to_cell(&d, &c, &bx, &by), 0);
                EXPECT_NEAR(bx, cx, 1e-9);
                EXPECT_NEAR(by, cy, 1e-9);
                ASSERT_EQ(cvt_any_coord_to_cell(&s.cs, &c, &d, &bx, &by), 0);
                EXPECT_NEAR(bx, cx, 1e-9);
                EXPECT_NEAR(by, cy, 1e-9);
            }
        EXPECT_EQ(d.coordspace.coordsystype, CST_LL);
        EXPECT_EQ(d.info.r.registration_coord.x, 10 * kRad);
    }
}

TEST_F(CoordsCellEngine, ForgivingFormsAnswerInTheGridAndTakeRadians)
{
    Space s(CST_LL, "WGS84", "GEODETIC", "natural");
    dshdr d = raster(s.cs, 0.01, 0.01, 0, 0, at(130 * kRad, -25 * kRad));
    double cx, cy;
    dscoord radians = at(131 * kRad, -25.5 * kRad);
    ASSERT_EQ(cvt_any_coord_to_cell(&s.cs, &radians, &d, &cx, &cy), 0);
    EXPECT_NEAR(cx, 100, 1e-9);
    EXPECT_NEAR(cy, 50, 1e-9);

    dscoord c;  // the EN reading of a geodetic space is degrees
    ASSERT_EQ(cvt_cell_to_nonLL_coord(&d, 100, 50, &c), 0);
    EXPECT_NEAR(c.x, 131, 1e-9);
    EXPECT_NEAR(c.y, -25.5, 1e-9);

    Space grid(CST_EN, "WGS84", "FLAT");
    ASSERT_EQ(cvt_cell_to_any_coord(&d, 0, 0, &grid.cs, &c), 0);
    EXPECT_NEAR(c.x, kRadius * 130 * kRad + 500000, 1e-6);
    EXPECT_NEAR(c.y, kRadius * -25 * kRad, 1e-6);
    EXPECT_EQ(d.coordspace.coordsystype, CST_LL);
}

/* ---------------------------------------------------------------- extents in another space */

// A 10 by 10 grid of 1 m cells whose top-left corner is at (1000, 2000).
dshdr square_grid(const coordspace &space)
{
    dshdr d = raster(space, 1, 1, 0, 0, at(1000, 2000));
    d.info.r.nr_cells = d.info.r.nr_lines = 10;
    return d;
}

TEST(CoordsCell, ExtentsNeedNoWorkInTheSameSpace)
{
    Space own(CST_EN, "WGS84", "NUTM50");
    Space same(CST_EN, "wgs84", "nutm50", "FEET");
    dshdr d = square_grid(own.cs);
    dscoord tl = at(1, 2), br = at(3, 4);
    ASSERT_EQ(VLN_calculate_reprojected_extents(&same.cs, &d, &tl, &br), 0);
    EXPECT_EQ(tl.x, 1);  // the caller's corners come back untouched
    EXPECT_EQ(br.y, 4);

    Space other(CST_EN, "WGS84", "NUTM51");
    EXPECT_EQ(VLN_calculate_reprojected_extents(&other.cs, &d, &tl, &br), 31);
    EXPECT_EQ(VLN_calculate_reprojected_extents(nullptr, &d, &tl, &br), 16);
}

// Turned a quarter, the grid lies west and south of its registration, and the
// extents are the square that holds it, in its own space or carried across.
TEST(CoordsCell, ExtentsOfATurnedGridAreSquareToTheMap)
{
    Space turned(CST_EN, "WGS84", "NUTM50", "METERS", kPi / 2);
    Space square(CST_EN, "WGS84", "NUTM50");
    dshdr d = square_grid(turned.cs);
    dscoord tl = at(0, 0), br = at(0, 0);
    ASSERT_EQ(VLN_calculate_reprojected_extents(&square.cs, &d, &tl, &br), 0);
    EXPECT_NEAR(tl.x, 990, 1e-9);
    EXPECT_NEAR(tl.y, 2000, 1e-9);
    EXPECT_NEAR(br.x, 1000, 1e-9);
    EXPECT_NEAR(br.y, 1990, 1e-9);
}

using CoordsExtentsEngine = WithEngine;

TEST_F(CoordsExtentsEngine, EdgesAreWalkedIntoTheTarget)
{
    Space flat(CST_EN, "WGS84", "FLAT");
    Space flat2(CST_EN, "WGS84", "FLAT2");
    dshdr d = square_grid(flat.cs);
    dscoord tl, br;
    ASSERT_EQ(VLN_calculate_reprojected_extents(&flat2.cs, &d, &tl, &br), 0);
    EXPECT_NEAR(tl.x, 501000, 1e-6);
    EXPECT_NEAR(tl.y, 2000, 1e-6);
    EXPECT_NEAR(br.x, 501010, 1e-6);
    EXPECT_NEAR(br.y, 1990, 1e-6);
    // Under 100 lines and cells every cell edge is visited: 11 points on each
    // of four edges, one engine pass each.
    EXPECT_EQ(engine.modes.size(), 44u);

    // Larger grids step by a hundredth of a side, far ends included.
    d.info.r.nr_cells = 250;
    d.info.r.nr_lines = 120;
    engine.modes.clear();
    ASSERT_EQ(VLN_calculate_reprojected_extents(&flat2.cs, &d, &tl, &br), 0);
    EXPECT_EQ(engine.modes.size(), 2 * 126u + 2 * 121u);
    EXPECT_NEAR(br.x, 501250, 1e-6);
    EXPECT_NEAR(br.y, 2000 - 120, 1e-6);

    // A vector dataset counts map units of its extents as cells.
    dshdr v{};
    v.data_type = DT_Vector;
    v.coordspace = flat.cs;
    v.info.v.extents = {at(600000, 2000), at(600010, 1990)};
    engine.modes.clear();
    ASSERT_EQ(VLN_calculate_reprojected_extents(&flat2.cs, &v, &tl, &br), 0);
    EXPECT_NEAR(tl.x, 1100000, 1e-6);
    EXPECT_NEAR(br.x, 1100010, 1e-6);
    EXPECT_NEAR(br.y, 1990, 1e-6);
    EXPECT_EQ(engine.modes.size(), 44u);

    // A grid that reaches past the pole fails at the first point that does.
    dshdr polar = raster(flat.cs, 1e6, 1e6, 0, 0, at(1000, 9.5e6));
    polar.info.r.nr_cells = polar.info.r.nr_lines = 10;
    polar.info.r.registration_cell_y = 1;  // the top edge lies 1000 km further north
    engine.modes.clear();
    EXPECT_EQ(VLN_calculate_reprojected_extents(&flat2.cs, &polar, &tl, &br), 31);
    EXPECT_EQ(engine.modes.size(), 1u);
}

TEST_F(CoordsExtentsEngine, TurnedGridCarriedAcross)
{
    Space turned(CST_EN, "WGS84", "FLAT", "METERS", kPi / 2);
    Space flat2(CST_EN, "WGS84", "FLAT2");
    dshdr d = square_grid(turned.cs);
    dscoord tl, br;
    ASSERT_EQ(VLN_calculate_reprojected_extents(&flat2.cs, &d, &tl, &br), 0);
    EXPECT_NEAR(tl.x, 500990, 1e-6);
    EXPECT_NEAR(tl.y, 2000, 1e-6);
    EXPECT_NEAR(br.x, 501000, 1e-6);
    EXPECT_NEAR(br.y, 1990, 1e-6);
    EXPECT_EQ(d.coordspace.rotation, kPi / 2);  // the header is left as it was
}

}  // namespace
