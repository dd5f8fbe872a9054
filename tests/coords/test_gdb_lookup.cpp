// Look-ups beside the rows: names by values, the lists, State Plane zones,
// Albers projections and the legacy ellipsoid codes.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>

#include "gdt_fixture.h"
#include "vld_docs.h"

namespace {

using GdbLookup = gdt_test::OwnTables;

const char *kDatums =
    "name,code,radius,eccentricity,metre_factor,prime_merid,spheroid_code,inverse_flattening\n"
    "WGS84,1,6378137.0,0.0818191908426,1.0,0.0,1,298.257223563\n"
    "HOLEY,2,6378388.0,,1.0,0.0,4,297.0\n"
    "INTL24,3,6378388.0,0.0819918899790,1.0,0.0,4,297.0\n"
    "INTL24B,4,6378388.0005,0.0819918899790,1.0,0.0,5,296.0\n";

TEST_F(GdbLookup, DatumsAreNamedByTheirValues)
{
    table("datum_sp", kDatums);
    char name[32] = "", *message = nullptr;
    // The code column isn't compared; the radius within a millimetre.
    EXPECT_EQ(find_datum(&message, name, 0, 99.0, 6378137.0004, 0.0818191908426, 1.0, 0.0, 1,
                         298.257223563),
              0);
    EXPECT_STREQ(name, "WGS84");
    EXPECT_EQ(message, nullptr);
    // The row with an empty field never matches; the first full match wins,
    // and with `ignore` the last two columns don't count.
    EXPECT_EQ(find_datum(&message, name, 0, 0.0, 6378388.0, 0.0819918899790, 1.0, 0.0, 4, 297.0),
              0);
    EXPECT_STREQ(name, "INTL24");
    EXPECT_EQ(find_datum(&message, name, 1, 0.0, 6378388.0, 0.0819918899790, 1.0, 0.0, 9, 1.0), 0);
    EXPECT_STREQ(name, "INTL24");
    // No match: the text says what row to add.
    EXPECT_EQ(find_datum(&message, name, 1, 0.0, 6378000.0, 0.08, 1.0, 0.0, 7, 300.0), -1);
    ASSERT_NE(message, nullptr);
    EXPECT_EQ(std::string(message),
              "ERROR: Could not find a match in datum_sp.dat\n"
              "Please put the following line into the file\n"
              "NOTE: Set last 2 parameters the same as those existing in the file\n"
              "-----------------------------CUT HERE----------------------------\n"
              "<DATUM_NAME>, 0, 6378000, 0.08, 1, 0, 7, 300\n"
              "-----------------------------END HERE----------------------------\n");
    safe_free(message);
}

TEST_F(GdbLookup, ProjectionsAreNamedByTheirValuesWithColumnsSkipped)
{
    table("cone",
          "name,false_east,false_north,first_par,zone\n"
          "CONE_A,500000.0,0.0,0.5,1\nCONE_B,500000.0,100.0,0.5,2\n");
    char name[32] = "", *message = nullptr;
    EXPECT_EQ(find_projection(&message, name, "cone", 0, 500000.0, 100.0, 0.5, 2), 0);
    EXPECT_STREQ(name, "CONE_B");
    // The skip marker leaves a column out of the comparison.
    double skip;
    const uint64_t bits = uint64_t{0x41cdcd65} << 32;
    std::memcpy(&skip, &bits, sizeof skip);
    EXPECT_EQ(find_projection(&message, name, "cone", 0, 500000.0, skip, 0.5, 1), 0);
    EXPECT_STREQ(name, "CONE_A");
    // Within 1e-11 only.
    EXPECT_EQ(find_projection(&message, name, "cone", 0, 500000.0, 0.0, 0.5 + 1e-9, 1), -1);
    ASSERT_NE(message, nullptr);
    EXPECT_NE(std::string(message).find("ERROR: Could not find a match in cone.dat\n"),
              std::string::npos);
    safe_free(message);
    EXPECT_EQ(find_projection(&message, name, "nosuch", 0, 1.0), -1);
    EXPECT_STREQ(message, "ERROR: Projection file nosuch.dat does not exist\n");
    safe_free(message);
}

TEST_F(GdbLookup, ListsOfProjectionsAndDatums)
{
    table("project", "name,type,metre_factor\nZED,utm,1.0\nALPHA,utm,1.0\nMID,albersea,1.0\n");
    table("datum_sp", kDatums);
    table("datum",
          "name,spheroid_name,origin_name\nWGS84,WGS84,Centre of the Earth\n"
          "INTL24,INTERNATIONAL,\n");
    const gdt_name_item *projections = get_projection_list();
    ASSERT_NE(projections, nullptr);
    std::string seen;
    for (const gdt_name_item *p = projections; p->first != nullptr; p++)
        seen += std::string(p->first) + ":" + p->second + ";";
    EXPECT_EQ(seen, "albersea:MID;utm:ALPHA;utm:ZED;");
    EXPECT_EQ(get_projection_list(), projections) << "made once";
    seen.clear();
    for (const gdt_name_item *d = get_datum_list(); d->first != nullptr; d++)
        seen += std::string(d->first) + "=" + d->second + ";";
    EXPECT_EQ(seen,
              "WGS84=Spheroid: WGS84, tie point: Centre of the Earth;"
              "HOLEY=Datum description not found;"
              "INTL24=Spheroid: INTERNATIONAL, tie point: not specified;"
              "INTL24B=Datum description not found;");
}

TEST(GdbLookupTables, StatePlaneZonesAlbersAndEllipsoids)
{
    struct Zone {
        int number;
        const char *projection;
        int found;
    } zones[] = {{1501, "LM2KANNF", 1}, {101, "TMALABEF", 1}, {4205, "LM2TXSF", 1},
                 {4903, "TMWYO3FT", 1}, {9999, "RAW", 0},     {-1, "RAW", 0}};
    for (const Zone &z : zones) {
        char projection[32] = "", datum[32] = "";
        EXPECT_EQ(state_plane2gdt_code(z.number, projection, datum), z.found) << z.number;
        EXPECT_STREQ(projection, z.projection) << z.number;
        EXPECT_STREQ(datum, z.found ? "NAD27" : "RAW") << z.number;
    }
    const double deg = 3.14159265358979323846 / 180;
    const double alaska[7] = {-4943910.68, 0, 65 * deg, 55 * deg, 0, -153 * deg, 6378206.4};
    const double nowhere[7] = {1, 2, 3, 4, 5, 6, 7};
    char projection[32] = "", datum[32] = "";
    EXPECT_EQ(albea2proj(alaska, projection, datum), 1);
    EXPECT_STREQ(projection, "ALALASK2");
    EXPECT_STREQ(datum, "NAD27");
    EXPECT_EQ(albea2proj(nowhere, projection, datum), 0);
    EXPECT_STREQ(projection, "RAW");

    struct Ellipse {
        int type;
        double radius, e2;
        int status;
    } ellipses[] = {{2, 6378137.0, 0.00669438, 0},
                    {9, 6377563.4, 0.006670650454, 0},
                    {11, 6377276.3, 0.006637884082, 0},
                    {0, -1, -1, -1},
                    {1, -1, -1, -1},
                    {12, -1, -1, -1}};
    for (const Ellipse &e : ellipses) {
        ellipsoid out{-1, -1, -1};
        EXPECT_EQ(load_ellipsoid(e.type, &out), e.status) << e.type;
        EXPECT_EQ(out.equatorial_radius, e.radius) << e.type;
        EXPECT_EQ(out.eccentricity_squared, e.e2) << e.type;
    }
}

}  // namespace

namespace {

/* A field projection: its reference projection's conversion followed by a
 * similarity of the plane, whose y factors follow from the x ones. */
TEST_F(GdbLookup, FieldProjectionsWrapTheirReference)
{
    table("datum_sp", kDatums);
    table("datumcha", "name,change_type\n");
    table("bursawol", "name,translation_x\n");
    table("project",
          "name,type,metre_factor\nMERC,mercator,1.0\nFLD,field,1.0\n"
          "LOST,field,1.0\nELSEWHERE,field,1.0\n");
    table("mercator",
          "name,false_east,false_north,scale_factor,centre_merid\n"
          "MERC,100.0,-50.0,1.0,0.2\n");
    table("field",
          "name,ref_proj_name,ref_datum_name,map_x_offset,map_y_offset,map_x_xfact,"
          "map_x_yfact\nFLD,MERC,WGS84,1000.0,2000.0,0.8,0.6\n"
          "LOST,NOWHERE,WGS84,0,0,1,0\nELSEWHERE,MERC,INTL24,0,0,1,0\n");
    const int geo = system("WGS84", "GEODETIC", "radians");
    const int merc = system("WGS84", "MERC");
    const int fld = system("WGS84", "FLD");
    for (double lon : {-0.5, 0.1, 0.7})
        for (double lat : {-0.6, 0.0, 0.9}) {
            double mx, my, fx, fy;
            ASSERT_EQ(carry(geo, merc, lon, lat, mx, my), 0);
            ASSERT_EQ(carry(geo, fld, lon, lat, fx, fy), 0);
            EXPECT_NEAR(fx, 1000.0 + 0.8 * mx + 0.6 * my, 1e-6);
            EXPECT_NEAR(fy, 2000.0 - 0.6 * mx + 0.8 * my, 1e-6);
            double blon, blat;
            ASSERT_EQ(carry(fld, geo, fx, fy, blon, blat), 0);
            EXPECT_NEAR(blon, lon, 1e-12);
            EXPECT_NEAR(blat, lat, 1e-12);
        }
    // The reference's parameters are the field's, after the affine ones.
    int id = fld;
    char attribute[64] = "init-.", type[4] = "*";
    std::string names;
    int status = gdt_inq_coord_sys(&id, "projection", attribute, type, nullptr, 0);
    while (status == 0) {
        names += std::string(attribute) + ";";
        std::strcpy(attribute, "next");
        status = gdt_inq_coord_sys(&id, "projection", attribute, type, nullptr, 0);
    }
    EXPECT_EQ(names.rfind("map_x_offset;", 0), 0u) << names;
    EXPECT_NE(names.find("false_east;"), std::string::npos) << names;
    // A reference that isn't there; a reference on another datum.
    gdt_test::messages.clear();
    EXPECT_EQ(gdt_crelock_coord_sys("WGS84", "LOST", "metres"), -1);
    EXPECT_TRUE(gdt_test::said("Field ref-projection not found"));
    gdt_test::messages.clear();
    EXPECT_GT(gdt_crelock_coord_sys("WGS84", "ELSEWHERE", "metres"), 0);
    EXPECT_TRUE(gdt_test::said("Inconsistent datum/projection pair"));
}

}  // namespace
