// Comparing coordinate spaces and carrying coordinates between them: the
// rules that need no engine, then the engine's paths and caches through a
// stand-in engine.
#include "coords_fixture.h"

namespace {

using namespace coords;

TEST(CoordsSpace, CheckTwoRegs)
{
    Space raw(CST_RAW, "RAW", "RAW");
    Space raw_lower(CST_RAW, "raw", "Raw");
    Space en(CST_EN, "WGS84", "NUTM50");
    Space en_turned(CST_EN, "wgs84", "nutm50", "METERS", 0.5);
    Space ll(CST_LL, "AGD66", "GEODETIC");
    Space mixed(CST_EN, "RAW", "NUTM50");
    struct Row {
        const char *name;
        const coordspace *a, *b;
        int strict, status;
    } rows[] = {
        {"neither", nullptr, nullptr, 0, 0},
        {"only a raw", &raw.cs, nullptr, 1, 0},
        {"only b raw, any case", nullptr, &raw_lower.cs, 0, 0},
        {"only a projected", &en.cs, nullptr, 0, 16},
        {"only b mixed: its datum is raw", nullptr, &mixed.cs, 0, 0},
        {"relaxed raw and raw", &raw.cs, &raw_lower.cs, 0, 0},
        {"relaxed projected and projected", &en.cs, &ll.cs, 0, 0},
        {"relaxed raw and projected", &raw.cs, &en.cs, 0, 16},
        {"relaxed mixture", &mixed.cs, &mixed.cs, 0, 16},
        {"strict, other datum", &en.cs, &ll.cs, 1, 16},
        {"strict, other rotation", &en.cs, &en_turned.cs, 1, 16},
        {"strict, same but for case", &en.cs, &en.cs, 1, 0},
    };
    for (const Row &r : rows) EXPECT_EQ(check_2_regs(r.a, r.b, r.strict), r.status) << r.name;
}

TEST(CoordsSpace, CoordspacesEqual)
{
    Space a(CST_EN, "WGS84", "NUTM50", "METERS");
    Space metres(CST_EN, "wgs84", "NUTM50", "metres");
    Space other_datum(CST_EN, "AGD66", "NUTM50", "metres");
    Space ll(CST_LL, "WGS84", "NUTM50", "METERS");
    Space turned(CST_EN, "WGS84", "NUTM50", "METERS", 0.25);
    Space no_datum(CST_EN, "", "NUTM50");
    no_datum.cs.datum = nullptr;
    struct Row {
        const char *name;
        const coordspace *a, *b;
        int equal;
    } rows[] = {
        {"itself", &a.cs, &a.cs, 1},
        {"units of equal size", &a.cs, &metres.cs, 1},
        {"other datum", &a.cs, &other_datum.cs, 0},
        {"other type", &a.cs, &ll.cs, 0},
        {"other rotation", &a.cs, &turned.cs, 0},
        {"missing datum", &no_datum.cs, &no_datum.cs, 0},
        {"missing space", &a.cs, nullptr, 0},
    };
    for (const Row &r : rows) EXPECT_EQ(coordspaces_equal(r.a, r.b), r.equal) << r.name;
}

TEST(CoordsSpace, ConversionsThatNeedNoEngine)
{
    Space raw(CST_RAW, "RAW", "RAW");
    Space untyped(CST_None, "RAW", "RAW");
    Space en(CST_EN, "WGS84", "NUTM50", "METERS");
    Space en_metres(CST_EN, "WGS84", "nutm50", "metres");
    Space en_turned(CST_EN, "WGS84", "NUTM50", "METERS", 0.5);
    dscoord in = {12.5, -7.25, 3.0};
    struct Row {
        const char *name;
        const coordspace *a, *b;
        bool strict;
    } rows[] = {
        {"raw to raw", &raw.cs, &raw.cs, true},
        {"null space", nullptr, &raw.cs, true},
        {"both null", nullptr, nullptr, false},
        {"type 0 is raw", &untyped.cs, &raw.cs, true},
        {"units of equal size", &en.cs, &en_metres.cs, true},
        {"relaxed ignores rotation", &en.cs, &en_turned.cs, false},
    };
    for (const Row &r : rows) {
        dscoord out = {0, 0, 0};
        int status = r.strict ? cvt_coord_to_coord(r.a, &in, r.b, &out)
                              : cvt_any_coord_to_coord(r.a, &in, r.b, &out);
        ASSERT_EQ(status, 0) << r.name;
        EXPECT_EQ(dscoord_cmp(&out, &in), 0) << r.name;
    }
}

TEST(CoordsSpace, ConversionsRefused)
{
    Space raw(CST_RAW, "RAW", "RAW");
    Space en(CST_EN, "WGS84", "NUTM50");
    Space en_turned(CST_EN, "WGS84", "NUTM50", "METERS", 0.5);
    Space raw_typed_projected(CST_RAW, "WGS84", "NUTM50");
    dscoord in = at(1, 2), out;
    EXPECT_EQ(cvt_any_coord_to_coord(&raw.cs, &in, &en.cs, &out), 16);
    EXPECT_EQ(cvt_coord_to_coord(&en.cs, &in, &en_turned.cs, &out), 16);
    EXPECT_EQ(cvt_any_coord_to_coord(&raw_typed_projected.cs, &in, &en.cs, &out), 16);
    EXPECT_EQ(cvt_coord_to_coord(&en.cs, nullptr, &en.cs, &out), 16);
    EXPECT_STREQ(VLD_error_text(), "Incompatible coordinate systems");
}

TEST(CoordsSpace, OtherProjectionsFailUntilTheEngineComes)
{
    Space amg(CST_EN, "AGD66", "TMAMG55");
    Space utm(CST_EN, "WGS84", "NUTM55");
    Space ll(CST_LL, "WGS84", "GEODETIC");
    dscoord in = at(500000, 6000000), out;
    EXPECT_EQ(cvt_any_coord_to_coord(&amg.cs, &in, &utm.cs, &out), 31);
    EXPECT_STREQ(VLD_error_text(),
                 "Geodetic transform error: \"no coordinate engine to carry EN AGD66/TMAMG55 to "
                 "EN WGS84/NUTM55\"");
    EXPECT_EQ(cvt_any_coord_to_coord(&amg.cs, &in, &ll.cs, &out), 31);
    EXPECT_EQ(get_meter_factor_from_datum_proj("NAD27", "SPCS", "FEET"), 1.0);
    EXPECT_EQ(VLN_coordspace_valid(&amg.cs), 0);
}

TEST(CoordsSpace, Validation)
{
    struct Row {
        int type;
        const char *datum, *projection, *units;
        int valid, typed_valid;
    } rows[] = {
        {CST_RAW, "RAW", "RAW", "METERS", 1, 1},
        {CST_RAW, nullptr, "", nullptr, 0, 0},
        {CST_RAW, "", "RAW", "", 1, 1},
        {CST_EN, "WGS84", "NUTM50", "METERS", 1, 1},
        {CST_LL, "WGS84", "GEODETIC", nullptr, 1, 1},
        {CST_RAW, "WGS84", "NUTM50", "METERS", 1, 0},
        {CST_EN, "RAW", "RAW", "METERS", 1, 0},
        {CST_EN, "RAW", "NUTM50", "METERS", 0, 0},
        {CST_None, "WGS84", "NUTM50", "METERS", 1, 0},
    };
    for (const Row &r : rows) {
        EXPECT_EQ(coordspace_valid(r.datum, r.projection, r.units), r.valid)
            << r.datum << "/" << r.projection;
        EXPECT_EQ(coordspace_and_coordsystype_valid(r.type, r.datum, r.projection, r.units),
                  r.typed_valid)
            << r.type << " " << r.datum << "/" << r.projection;
    }
    Space raw(CST_RAW, "RAW", "RAW", "meters");
    Space local(CST_EN, "WGS84", "LOCAL");
    EXPECT_EQ(VLN_coordspace_valid(&raw.cs), 1);
    EXPECT_EQ(VLN_coordspace_valid(&local.cs), 1);
    EXPECT_EQ(VLN_coordspace_valid(nullptr), 0);
}

TEST(CoordsSpace, Zones)
{
    const std::pair<const char *, int> rows[] = {
        {"TMAMG55", 55}, {"tmamg9", 9}, {"NUTM55", 0}, {"TMAMG", 0}, {nullptr, 0}};
    for (const auto &[name, zone] : rows) EXPECT_EQ(VLD_get_zone(name), zone);
}

TEST(CoordsSpace, MetresBetweenPoints)
{
    Space raw(CST_RAW, "RAW", "RAW");
    Space feet(CST_EN, "NAD27", "SPCS", "FEET", 0.0, 0.3048);
    dscoord a = at(10, 20), b = at(4, 30);
    double dx, dy;
    ASSERT_EQ(delta_coords_meters_non_abs(&raw.cs, &a, &b, &dx, &dy), 0);
    EXPECT_EQ(dx, 6);
    EXPECT_EQ(dy, -10);
    ASSERT_EQ(delta_coords_meters(&feet.cs, &a, &b, &dx, &dy), 0);
    EXPECT_NEAR(dx, 6 * 0.3048, 1e-12);
    EXPECT_NEAR(dy, 10 * 0.3048, 1e-12);
    EXPECT_EQ(delta_coords_meters(nullptr, &a, &b, &dx, &dy), 0);
    EXPECT_EQ(dx, 0);
}

TEST(CoordsSpace, DistancesWithoutTheEngine)
{
    Space feet(CST_EN, "NAD27", "SPCS", "FEET", 0.0, 0.3048);
    Space geo(CST_LL, "WGS84", "GEODETIC", "DEGREES");
    dscoord a = at(10, 20), b = at(13, 24);
    double d = -1;
    ASSERT_EQ(distance_coords_meters(&feet.cs, &a, &b, &d), 0);
    EXPECT_NEAR(d, 5 * 0.3048, 1e-12);
    EXPECT_EQ(distance_coords_meters(&feet.cs, nullptr, &b, &d), 0);
    EXPECT_EQ(d, 0);
    EXPECT_EQ(distance_coords_meters(&feet.cs, &a, &b, nullptr), 16);
    EXPECT_EQ(distance_coords_meters(&geo.cs, &a, &b, &d), 31);
}

// Off the usable area of a projection a point doesn't come back from latitude
// and longitude; spaces without a projection are never checked.
TEST(CoordsSpace, RoundTripWithoutTheEngine)
{
    Space raw(CST_RAW, "RAW", "RAW");
    Space geo(CST_LL, "WGS84", "GEODETIC");
    Space local(CST_EN, "WGS84", "LOCAL");
    Space amg(CST_EN, "AGD66", "TMAMG55");
    dscoord tl = at(0, 10), br = at(10, 0);
    for (const Space *s : {&raw, &geo, &local})
        EXPECT_EQ(VLN_check_coords_round_trip(&s->cs, &tl, &br, 10, 10), 0) << s->projection;
    EXPECT_EQ(VLN_check_coords_round_trip(&amg.cs, &tl, &br, 10, 10), 31);
}

/* ---------------------------------------------------------------- through the engine */

using CoordsEngine = WithEngine;

TEST_F(CoordsEngine, PathsBetweenTypes)
{
    Space ll(CST_LL, "WGS84", "FLAT", "natural");
    Space en(CST_EN, "WGS84", "FLAT");
    Space feet(CST_EN, "WGS84", "FLAT", "FEET");
    Space ll2(CST_LL, "AGD66", "FLAT2", "natural");
    dscoord p = {0.2, -0.4, 12.0}, q, back;

    ASSERT_EQ(cvt_any_coord_to_coord(&ll.cs, &p, &en.cs, &q), 0);
    EXPECT_NEAR(q.x, kRadius * 0.2 + 500000, 1e-6);
    EXPECT_NEAR(q.y, kRadius * -0.4, 1e-6);
    EXPECT_EQ(q.z, 12.0);  // a real z goes through
    ASSERT_EQ(cvt_any_coord_to_coord(&en.cs, &q, &feet.cs, &back), 0);
    EXPECT_NEAR(back.x, q.x / 0.3048, 1e-6);
    ASSERT_EQ(cvt_any_coord_to_coord(&feet.cs, &back, &ll.cs, &back), 0);
    EXPECT_NEAR(back.x, 0.2, 1e-12);
    EXPECT_NEAR(back.y, -0.4, 1e-12);

    // LL to LL goes down to the source's grid, across, and up again.
    engine.created.clear();
    dscoord none = at(0.2, -0.4);
    ASSERT_EQ(cvt_any_coord_to_coord(&ll.cs, &none, &ll2.cs, &q), 0);
    EXPECT_NEAR(q.x, 0.2, 1e-12);
    EXPECT_TRUE(vln_disnan(q.z));
    EXPECT_EQ(engine.created, (std::vector<std::string>{"WGS84/FLAT/natural", "AGD66/FLAT2/natural",
                                                        "AGD66/GEODETIC/radians"}));
    // The geodetic cache holds one datum, so going back and forth rebuilds it.
    engine.created.clear();
    ASSERT_EQ(cvt_any_coord_to_coord(&ll.cs, &none, &ll2.cs, &q), 0);
    EXPECT_EQ(engine.created,
              (std::vector<std::string>{"WGS84/GEODETIC/radians", "AGD66/GEODETIC/radians"}));
}

TEST_F(CoordsEngine, LatitudeIsClampedOnlyOnTheWayIntoAGrid)
{
    Space ll(CST_LL, "WGS84", "FLAT", "natural");
    Space ll2(CST_LL, "WGS84", "FLAT2", "natural");
    Space en(CST_EN, "WGS84", "FLAT");
    dscoord pole = at(0.1, kPi / 2), beyond = at(0.1, 1.6), a, b;
    ASSERT_EQ(cvt_any_coord_to_coord(&ll.cs, &pole, &en.cs, &a), 0);
    ASSERT_EQ(cvt_any_coord_to_coord(&ll.cs, &beyond, &en.cs, &b), 0);
    EXPECT_EQ(a.y, b.y);
    EXPECT_EQ(cvt_any_coord_to_coord(&ll.cs, &beyond, &ll2.cs, &b), 31);
    EXPECT_STREQ(VLD_error_text(), "Geodetic transform error: \"U2:Latitude beyond the pole\"");
}

TEST_F(CoordsEngine, ModesNotesAndFailures)
{
    Space en(CST_EN, "WGS84", "FLAT");
    Space en2(CST_EN, "WGS84", "FLAT2");
    Space note(CST_EN, "NOTE", "FLAT2");
    Space bad(CST_EN, "BAD", "FLAT2");
    dscoord p = at(600000, 100000), q;

    engine.refuse_mode_1 = true;
    ASSERT_EQ(cvt_any_coord_to_coord(&en.cs, &p, &en2.cs, &q), 0);
    EXPECT_EQ(engine.modes, (std::vector<int>{1, 2}));
    EXPECT_NEAR(q.x, 1100000, 1e-6);

    // A note of the engine doesn't fail a conversion; a refused system does.
    ASSERT_EQ(cvt_any_coord_to_coord(&en.cs, &p, &note.cs, &q), 0);
    EXPECT_EQ(cvt_any_coord_to_coord(&en.cs, &p, &bad.cs, &q), 31);
    EXPECT_STREQ(VLD_error_text(), "Geodetic transform error: \"U1:Unknown datum BAD\"");
}

TEST_F(CoordsEngine, UnitSizesAndNames)
{
    EXPECT_EQ(get_meter_factor_from_datum_proj("WGS84", "FLAT", "FEET"), 0.3048);
    EXPECT_EQ(get_meter_factor_from_datum_proj("RAW", "FLAT", "FEET"), 1.0);
    EXPECT_EQ(get_meter_factor_from_datum_proj("WGS84", "GEODETIC", "FEET"), 1.0);
    EXPECT_EQ(get_meter_factor_from_datum_proj("WGS84", nullptr, "FEET"), 1.0);
    struct Row {
        const char *datum, *projection, *units, *name;
    } rows[] = {
        {"RAW", "RAW", "natural", "Meters"},
        {"WGS84", "GEODETIC", "natural", "Decimal Degrees"},
        {"WGS84", "FLAT", "FEET", "Feet"},
        {"BAD", "FLAT", "furlongs", "furlongs"},
    };
    for (const Row &r : rows) {
        char *name = get_units_from_datum_proj(r.datum, r.projection, r.units);
        EXPECT_STREQ(name, r.name);
        safe_free(name);
    }
    // Spaces in feet and in metres differ once sizes are known.
    Space m(CST_EN, "WGS84", "FLAT", "METERS");
    Space f(CST_EN, "WGS84", "FLAT", "FEET");
    EXPECT_EQ(coordspaces_equal(&m.cs, &f.cs), 0);
    EXPECT_EQ(VLN_coordspace_valid(&f.cs), 1);
    Space bad(CST_EN, "BAD", "FLAT");
    EXPECT_EQ(VLN_coordspace_valid(&bad.cs), 0);
}

// The cache's counters are 8-bit and wrap: after 400 entries the one evicted
// is the first with the least count, which is not the oldest.
TEST_F(CoordsEngine, FourHundredAndFirstSpaceEvictsTheLeastCount)
{
    auto name = [](int i) { return "P" + std::to_string(i); };
    std::vector<int> ids;
    for (int i = 0; i < 400; i++) {
        vln_mutex_begin(&VLN_GLOBAL_GDT_MUTEX);
        ids.push_back(vld::cached_coord_sys("WGS84", name(i).c_str(), "METERS"));
        vln_mutex_end(&VLN_GLOBAL_GDT_MUTEX);
    }
    EXPECT_EQ(vld::coord_cache_size(), 400);
    EXPECT_EQ(vld::cached_coord_sys("WGS84", "P7", "METERS"), ids[7]);  // a hit builds nothing
    EXPECT_EQ(engine.created.size(), 400u);

    // Entry i has now been lowered 401 - i times (P7 raised once besides):
    // P17 is the first at -128, the least a wrapping 8-bit count holds.
    vld::cached_coord_sys("WGS84", "P400", "METERS");
    EXPECT_EQ(engine.deleted, (std::vector<int>{ids[17]}));
    EXPECT_FALSE(vld::coord_cache_holds("WGS84", "P17", "METERS"));
    EXPECT_TRUE(vld::coord_cache_holds("WGS84", "P0", "METERS"));
    EXPECT_TRUE(vld::coord_cache_holds("WGS84", "P400", "METERS"));

    vld::flush_coord_caches();
    EXPECT_EQ(vld::coord_cache_size(), 0);
    EXPECT_TRUE(engine.live.empty());
}

// Great circles on a sphere of the datum's radius; the radius is asked for
// once per run of one datum.
TEST_F(CoordsEngine, DistancesAlongTheGround)
{
    Space wgs(CST_LL, "WGS84", "GEODETIC", "DEGREES");
    Space agd(CST_LL, "AGD66", "GEODETIC", "DEGREES");
    Space bad(CST_LL, "BAD", "GEODETIC", "DEGREES");
    dscoord a = at(0.1, 0), b = at(0.4, 0), north = at(0.1, 0.5);
    double d;
    ASSERT_EQ(distance_coords_meters(&wgs.cs, &a, &b, &d), 0);
    EXPECT_NEAR(d, 0.3 * kRadius, 1e-6);
    ASSERT_EQ(distance_coords_meters(&wgs.cs, &a, &north, &d), 0);
    EXPECT_NEAR(d, 0.5 * kRadius, 1e-6);
    // Along the parallel of 60 degrees a turn is half as long.
    dscoord w60 = at(0.1, kPi / 3), e60 = at(0.3, kPi / 3);
    ASSERT_EQ(distance_coords_meters(&wgs.cs, &w60, &e60, &d), 0);
    EXPECT_NEAR(d, 2 * kRadius * std::asin(0.5 * std::sin(0.1)), 1e-6);
    EXPECT_EQ(engine.radii, (std::vector<std::string>{"WGS84"}));

    ASSERT_EQ(distance_coords_meters(&agd.cs, &a, &b, &d), 0);
    EXPECT_NEAR(d, 0.3 * kAgdRadius, 1e-6);
    EXPECT_EQ(distance_coords_meters(&bad.cs, &a, &b, &d), 31);
    EXPECT_STREQ(VLD_error_text(), "Geodetic transform error: \"no radius for datum BAD\"");
    EXPECT_EQ(engine.radii, (std::vector<std::string>{"WGS84", "AGD66", "BAD"}));

    // Grid spaces stay straight lines, with no radius asked for.
    Space flat(CST_EN, "WGS84", "FLAT");
    dscoord e = at(600000, 0), f = at(600300, 400);
    ASSERT_EQ(distance_coords_meters(&flat.cs, &e, &f, &d), 0);
    EXPECT_NEAR(d, 500, 1e-9);
    EXPECT_EQ(engine.radii.size(), 3u);
}

TEST_F(CoordsEngine, RoundTripRejectsPointsOffTheProjection)
{
    Space wrap(CST_EN, "WGS84", "WRAP");
    Space wrap_ll(CST_LL, "WGS84", "WRAP", "natural");
    dscoord tl = at(500000 - 1e6, 2e6), br = at(500000 + 1e6, -2e6);
    ASSERT_EQ(VLN_check_coords_round_trip(&wrap.cs, &tl, &br, 50, 20), 0);
    EXPECT_EQ(engine.modes.size(), 2 * 51u);  // every cell along the longer side

    // Four radians east is past half a turn: the far corner comes back wrapped.
    dscoord far_east = at(500000 + 4 * kRadius, 0);
    EXPECT_EQ(VLN_check_coords_round_trip(&wrap.cs, &tl, &far_east, 1000, 10), 35);
    EXPECT_STREQ(VLD_error_text(), "Cells specified are outside dataset range");
    engine.modes.clear();
    dscoord near_east = at(500000 + 3 * kRadius, 0);
    ASSERT_EQ(VLN_check_coords_round_trip(&wrap.cs, &tl, &near_east, 1000, 10), 0);
    EXPECT_EQ(engine.modes.size(), 2 * 101u);  // a hundredth of the side at a time

    // An LL space is checked in its grid.
    dscoord ll_tl = at(-0.5, 0.5), ll_br = at(0.5, -0.5);
    EXPECT_EQ(VLN_check_coords_round_trip(&wrap_ll.cs, &ll_tl, &ll_br, 10, 10), 0);
}

}  // namespace
