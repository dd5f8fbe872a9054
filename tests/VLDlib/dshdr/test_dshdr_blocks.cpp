// The blocks of a dataset header on their own: coordinate spaces and the
// blocks that read by them, control point lists of every generation,
// statistics, regions and camera records.
#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <cstring>
#include <string>

#include "dshdr_fixture.h"

namespace {

using dsh::Header;
using dsh::TempDir;

constexpr double kRadian = M_PI / 180.0;

/* Reads `text` with the record's reader; the record is allocated by `ea`. */
template <class T, int (*EA)(T **), int (*EG)(T *, const char *)>
int read_buffer(const std::string &text, T **record)
{
    EA(record);
    return eg_from_buffer(
        text.c_str(), [](void *a, const char *f) { return EG(*static_cast<T **>(a), f); }, record);
}

/* The text that the record's writer gives. */
template <class T, int (*EP)(const T *, const char *)>
std::string write_buffer(const T *record)
{
    char *text = nullptr;
    EXPECT_EQ(ep_to_buffer(
                  const_cast<T *>(record),
                  [](void *r, const char *f) { return EP(static_cast<T *>(r), f); }, &text),
              0);
    std::string out = text ? text : "";
    safe_free(text);
    return out;
}

int eg_space(coordspace *c, const char *f)
{
    return eg_coordspace_noalloc(c, f);
}
int eg_warp(warp_control *w, const char *f)
{
    return eg_warp_control_noalloc(w, f);
}

/* ---------------------------------------------------------------- CoordinateSpace */

TEST(CoordSpace, ReadsCurrentAndOldForms)
{
    const struct {
        const char *body;
        const char *datum, *projection, *units;
        int type;
    } cases[] = {
        {"Datum = \"WGS84\"\nProjection = \"GEODETIC\"\nCoordinateType = LL\n", "WGS84", "GEODETIC",
         "natural", CST_LL},
        {"Datum = \"RAW\"\nProjection = \"RAW\"\nCoordinateType = RAW\n", "RAW", "RAW", "METERS",
         CST_RAW},
        {"Datum = \"RAW\"\nProjection = \"RAW\"\nCoordinateType = RAW\nUnits = \"natural\"\n",
         "RAW", "RAW", "METERS", CST_RAW},
        {"Datum = \"RAW\"\nProjection = \"RAW\"\nCoordinateType = RAW\nUnits = \"meters\"\n", "RAW",
         "RAW", "meters", CST_RAW},
        {"Datum = \"NAD27\"\nProjection = \"SPCS\"\nCoordinateType = EN\nUnits = \"FEET\"\n",
         "NAD27", "SPCS", "FEET", CST_EN},
        {"CoordinateSystem = LatLong\nDatum = \"AGD84\"\nProjection = \"GEODETIC\"\n", "AGD84",
         "GEODETIC", "natural", CST_LL},
        {"ProjectionType = AMG\nZone = 55\nCoordinateSystem = UTM\n", "AGD66", "TMAMG55", "natural",
         CST_EN},
        {"ProjectionType = UTM\nZone = 7\nCoordinateType = EN\n", "WGS84", "NUTM7", "natural",
         CST_EN},
        {"Zone = 7\nCoordinateType = RAW\n", "RAW", "RAW", "METERS", CST_RAW},
        // The old pair overrides what the block says of datum and projection.
        {"Datum = \"X\"\nProjection = \"Y\"\nProjectionType = Raw\nCoordinateType = RAW\n", "RAW",
         "RAW", "METERS", CST_RAW},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.body);
        coordspace *cs = nullptr;
        std::string text = std::string("CoordinateSpace Begin\n") + c.body +
                           "Rotation = 90:0:0\nCoordinateSpace End\n";
        ASSERT_EQ((read_buffer<coordspace, ea_coordspace, eg_space>(text, &cs)), 0)
            << dsh::error_text();
        EXPECT_STREQ(cs->datum, c.datum);
        EXPECT_STREQ(cs->projection, c.projection);
        EXPECT_STREQ(cs->units, c.units);
        EXPECT_EQ(cs->coordsystype, c.type);
        EXPECT_DOUBLE_EQ(cs->rotation, M_PI / 2);
        EXPECT_DOUBLE_EQ(cs->meter_factor, 1.0);
        ef_coordspace(cs);
    }
}

// Units are written only where they differ from the default of the space.
TEST(CoordSpace, WriterLeavesOutDefaultUnits)
{
    const struct {
        const char *datum, *units;
        int type;
        bool written;
    } cases[] = {
        {"RAW", "METERS", CST_RAW, false},   {"RAW", "natural", CST_RAW, true},
        {"WGS84", "natural", CST_EN, false}, {"WGS84", "METERS", CST_EN, true},
        {"WGS84", nullptr, CST_LL, false},
    };
    for (const auto &c : cases) {
        coordspace cs{};
        cs.datum = const_cast<char *>(c.datum);
        cs.projection = const_cast<char *>(c.datum);
        cs.units = const_cast<char *>(c.units);
        cs.coordsystype = c.type;
        cs.rotation = -1.5 * kRadian;
        std::string text = write_buffer<coordspace, ep_coordspace>(&cs);
        EXPECT_EQ(text.find("Units") != std::string::npos, c.written) << text;
        EXPECT_NE(text.find("Rotation\t= -1:30:0.0"), std::string::npos) << text;
    }
}

TEST(CoordSpace, SpecialReaderKeepsTheOldCellInfo)
{
    TempDir dir;
    const struct {
        const char *body;
        bool kept;
        double x;
    } cases[] = {
        {"ProjectionType = Raw\nCoordinateType = RAW\nCellInfo Begin\nXdimension = 5\n"
         "CellInfo End\n",
         true, 5.0},
        {"ProjectionType = None\nCoordinateType = RAW\n", true, 1.0},  // made by default
        {"Datum = \"RAW\"\nProjection = \"RAW\"\nCoordinateType = RAW\n", false, 0.0},
        {"ProjectionType = AMG\nZone = 56\nCoordinateType = EN\n", false, 0.0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.body);
        std::string path = dir.write(
            "cs.txt", std::string("CoordinateSpace Begin\n") + c.body + "CoordinateSpace End\n");
        coordspace *cs = nullptr;
        cellinfo *old = nullptr;
        ASSERT_EQ(eg_coordspace_special(&cs, path.c_str(), &old), 0) << dsh::error_text();
        EXPECT_EQ(old != nullptr, c.kept);
        if (old) {
            EXPECT_DOUBLE_EQ(old->x_dimension, c.x);
        }
        ef_cellinfo(old);
        ef_coordspace(cs);
        // The plain reader drops it.
        ASSERT_EQ(eg_coordspace(&cs, path.c_str()), 0);
        ef_coordspace(cs);
    }
}

/* ---------------------------------------------------------------- coordinate blocks */

TEST(CoordBlocks, KeywordsFollowTheCoordinateType)
{
    const struct {
        int type;
        const char *text;
    } cases[] = {
        {CST_None, "P Begin\n\tMetersX\t\t= 1.5\n\tMetersY\t\t= -2\nP End\n"},
        {CST_RAW, "P Begin\n\tMetersX\t\t= 1.5\n\tMetersY\t\t= -2\nP End\n"},
        {CST_EN, "P Begin\n\tEastings\t= 1.5\n\tNorthings\t= -2\nP End\n"},
        {CST_LL, "P Begin\n\tLatitude\t= -2:0:0.0\n\tLongitude\t= 1:30:0.0\nP End\n"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.type);
        coordspace cs{};
        cs.coordsystype = c.type;
        bool ll = c.type == CST_LL;
        dscoord p{ll ? 1.5 * kRadian : 1.5, ll ? -2 * kRadian : -2.0, 99.0};  // z isn't written
        struct Frame {
            const dscoord *p;
            const coordspace *cs;
        } frame{&p, &cs};
        char *text = nullptr;
        ASSERT_EQ(ep_to_buffer(
                      &frame,
                      [](void *r, const char *f) {
                          auto *fr = static_cast<Frame *>(r);
                          return ep_dscoord_spec(fr->p, f, "P", fr->cs);
                      },
                      &text),
                  0);
        EXPECT_STREQ(text, c.text);

        // Read back in the same space: x and y as they were, z unset.
        struct Back {
            dscoord p;
            const coordspace *cs;
        } back{{}, &cs};
        Back *b = &back;
        ASSERT_EQ(eg_from_buffer(
                      text,
                      [](void *a, const char *f) {
                          Back *bb = *static_cast<Back **>(a);
                          return eg_dscoord_spec_noalloc(&bb->p, f, "P", bb->cs);
                      },
                      &b),
                  0)
            << dsh::error_text();
        EXPECT_NEAR(back.p.x, p.x, 1e-15);
        EXPECT_NEAR(back.p.y, p.y, 1e-15);
        EXPECT_TRUE(std::isnan(back.p.z));
        safe_free(text);
    }
    dscoord a{1, 2, NAN}, b{1, 2, NAN}, c{1, 2, 3};
    EXPECT_EQ(dscoord_cmp(&a, &b), 0);
    EXPECT_NE(dscoord_cmp(&a, &c), 0);
}

/* ---------------------------------------------------------------- control points */

/* A raster header whose warp has the given list, under a version. */
std::string warp_doc(const char *version, const char *type, const char *points,
                     const char *dataset_space =
                         "Datum = \"RAW\"\nProjection = \"RAW\"\n"
                         "CoordinateType = RAW\n")
{
    return std::string("DatasetHeader Begin\nVersion = \"") + version +
           "\"\nDataType = Raster\nCoordinateSpace Begin\n" + dataset_space +
           "CoordinateSpace End\nRasterInfo Begin\nNrOfBands = 1\nWarpControl Begin\n" + type +
           "CoordinateSpace Begin\nDatum = \"RAW\"\nProjection = \"RAW\"\nCoordinateType = RAW\n"
           "CoordinateSpace End\n" +
           "ControlPoints = {\n" + points +
           "}\nWarpControl End\nRasterInfo End\nDatasetHeader End\n";
}

TEST(WarpControl, ControlPointListsOfEveryGeneration)
{
    const char *raw = "";
    const char *ll_rotation = "WarpType = Rotation\n";
    const char *ll_space = "Datum = \"WGS84\"\nProjection = \"GEODETIC\"\nCoordinateType = LL\n";
    const char *raw_space = "Datum = \"RAW\"\nProjection = \"RAW\"\nCoordinateType = RAW\n";
    const struct {
        const char *what, *version, *type, *points, *space;
        int count;
        const char *name; /* of the last point */
        int active, shown;
        double cell_x, x, y, z;
    } cases[] = {
        {"four numbers a point", "7.0", raw, "1 2 3 4\n5 6 7 8\n", raw_space, 2, "2", 1, 0, 5, 7, 8,
         0},
        {"seven before 5.5", "5.0", raw, "\"a\" Yes No 1 2 3 4\n\"b\" NO yes 5 6 7 8\n", raw_space,
         2, "b", 0, 1, 5, 7, 8, 0},
        {"eight from 5.5", "5.5", raw, "\"a\" Yes No 1 2 3 4 9\n", raw_space, 1, "a", 1, 0, 1, 3, 4,
         9},
        // A list that doesn't fit its version's rows is read in the other layout.
        {"eight in an old header", "5.0", raw, "\"a\" Yes No 1 2 3 4 9\n\"b\" No No 1 2 3 4 9\n",
         raw_space, 2, "b", 0, 0, 1, 3, 4, 9},
        {"angles in the dataset's space", "7.0", ll_rotation,
         "\"p\" Yes Yes 1 2 \"145:30:0\" \"-37:15:0\" 10\n", ll_space, 1, "p", 1, 1, 1,
         145.5 * kRadian, -37.25 * kRadian, 10},
    };
    TempDir dir;
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        std::string path = dir.write("warp.vld", warp_doc(c.version, c.type, c.points, c.space));
        Header h(path);
        ASSERT_EQ(h.status, 0) << dsh::error_text();
        const warp_control *w = h->info.r.warp_control;
        ASSERT_NE(w, nullptr);
        ASSERT_EQ(w->nr_points, c.count);
        const controlpoint &p = w->points[c.count - 1];
        EXPECT_STREQ(p.name, c.name);
        EXPECT_EQ(p.active, c.active);
        EXPECT_EQ(p.shown, c.shown);
        EXPECT_DOUBLE_EQ(p.cell_x, c.cell_x);
        EXPECT_NEAR(p.x, c.x, 1e-12);
        EXPECT_NEAR(p.y, c.y, 1e-12);
        EXPECT_DOUBLE_EQ(p.z, c.z);

        // Written in the newest form, the points read back the same.
        ASSERT_EQ(ep_dshdr(h.d, path.c_str()), 0);
        Header again(path);
        ASSERT_EQ(again.status, 0) << dsh::error_text();
        EXPECT_EQ(vld::rec_equal_by_block("WarpControl", w, again->info.r.warp_control), 1);
    }
}

TEST(WarpControl, BadListsAreParseErrors)
{
    const struct {
        const char *points;
        const char *message;
    } cases[] = {
        {"1 2 3\n", "don't make whole rows of 4"},
        {"\"a\" Yes No 1 2 3\n", "don't make whole rows of 8"},
    };
    TempDir dir;
    for (const auto &c : cases) {
        SCOPED_TRACE(c.points);
        Header h(dir.write("warp.vld", warp_doc("7.0", "", c.points)));
        EXPECT_EQ(h.status, 7);
        EXPECT_NE(dsh::error_text().find(c.message), std::string::npos) << dsh::error_text();
    }
    // Words where numbers belong read as 0, as a scan for a number would.
    Header h(dir.write("warp.vld", warp_doc("7.0", "", "one two three four\n")));
    ASSERT_EQ(h.status, 0);
    EXPECT_EQ(h->info.r.warp_control->points[0].cell_x, 0.0);
}

TEST(WarpControl, StandaloneBlockAndItsWriter)
{
    warp_control *w = nullptr;
    const std::string text =
        "WarpControl Begin\nWarpType = Map\nMapToMapInfo Begin\nCoordinateSpace Begin\n"
        "Datum = \"WGS84\"\nProjection = \"GEODETIC\"\nCoordinateType = LL\n"
        "CoordinateSpace End\nMapToMapInfo End\n"
        "ControlPoints = {\n\"x\\\\y\" Yes No 1.25 2 \"10:0:0\" \"-5:30:0\" \"inf\"\n}\n"
        "WarpPolynomialCubic Begin\nU_Y3Coeff = 2\nV_Const = 3\nWarpPolynomialCubic End\n"
        "WarpControl End\n";
    ASSERT_EQ((read_buffer<warp_control, ea_warp_control, eg_warp>(text, &w)), 0)
        << dsh::error_text();
    ASSERT_EQ(w->nr_points, 1);
    EXPECT_STREQ(w->points[0].name, "x\\y");
    EXPECT_NEAR(w->points[0].y, -5.5 * kRadian, 1e-15);
    EXPECT_TRUE(std::isinf(w->points[0].z));
    EXPECT_EQ(w->cubic[9], 2.0);               // last U term
    EXPECT_EQ(w->cubic[10], 3.0);              // first V term
    EXPECT_STREQ(w->coordspace.datum, "RAW");  // the default target space

    std::string out = write_buffer<warp_control, ep_warp_control>(w);
    EXPECT_NE(out.find("\"x\\\\y\"\tYes\tNo\t1.25\t2\t\"10:0:0.0\"\t\"-5:30:0.0\"\t\"inf\""),
              std::string::npos)
        << out;
    EXPECT_EQ(out.find("WarpPolynomial"), std::string::npos);
    EXPECT_EQ(out.find("DemBandNr"), std::string::npos);  // no DEM file

    warp_control *copy = nullptr;
    ASSERT_EQ(cp_warp_control(&copy, w), 0);
    ef_warp_control(w);
    EXPECT_STREQ(copy->points[0].name, "x\\y");
    ef_warp_control(copy);

    // A term beyond the block's order is unknown.
    w = nullptr;
    EXPECT_EQ((read_buffer<warp_control, ea_warp_control, eg_warp>(
                  "WarpControl Begin\nWarpPolynomialLinear Begin\nU_XYCoeff = 1\n"
                  "WarpPolynomialLinear End\nWarpControl End\n",
                  &w)),
              7);
    EXPECT_NE(dsh::error_text().find("Unknown identifier \"U_XYCoeff\""), std::string::npos);
    ef_warp_control(w);
}

/* ---------------------------------------------------------------- statistics */

/* Reads a Stats block from text with eg_msstats, which allocates. */
int read_stats(const std::string &text, msstats **m)
{
    *m = nullptr;
    return eg_from_buffer(
        text.c_str(),
        [](void *a, const char *f) { return eg_msstats(static_cast<msstats **>(a), f); }, m);
}

TEST(RegionStats, WritesWhatIsSetAndReadsItBack)
{
    msstats *m = nullptr;
    ASSERT_EQ(ea_msstats_spec(&m, 2), 0);
    m->subsample_rate = 1;
    m->non_null_cells[0] = 10;
    m->non_null_cells[1] = 12;
    m->mean[1] = 0.5;
    double cov[] = {1, 2, 3, 4};
    std::memcpy(m->covariance, cov, sizeof cov);
    safe_free(m->median);
    m->median = nullptr;
    std::string text = write_buffer<msstats, ep_msstats>(m);
    EXPECT_EQ(text,
              "Stats Begin\n\tNumberOfBands\t= 2\n\tNumberOfNonNullCells\t= {\n\t\t10\t12\n\t}\n"
              "\tMinimumValue\t= {\n\t\t0\t0\n\t}\n\tMaximumValue\t= {\n\t\t0\t0\n\t}\n"
              "\tMeanValue\t= {\n\t\t0\t0.5\n\t}\n"
              "\tCovarianceMatrix\t= {\n\t\t1\t2\n\t\t3\t4\n\t}\nStats End\n");
    // What was left out reads back unset; the rest as it was.
    msstats *back = nullptr;
    ASSERT_EQ(read_stats(text, &back), 0) << dsh::error_text();
    EXPECT_EQ(back->null_cells, nullptr);
    EXPECT_EQ(back->median, nullptr);
    EXPECT_EQ((write_buffer<msstats, ep_msstats>(back)), text);
    safe_free(m->null_cells);
    m->null_cells = nullptr;
    m->subsample_rate = 0;
    EXPECT_EQ(vld::rec_equal_by_block("Stats", m, back), 1);
    ef_msstats(back);

    msstats *copy = nullptr;
    ASSERT_EQ(cp_msstats(&copy, m), 0);
    ef_msstats(m);
    EXPECT_EQ(copy->covariance[3], 4.0);
    ef_msstats(copy);

    msstats none{};
    EXPECT_EQ((write_buffer<msstats, ep_msstats>(&none)), "");  // no bands: nothing
}

TEST(RegionStats, ListsAreCheckedAgainstTheBandCount)
{
    const struct {
        const char *body, *message;
    } cases[] = {
        {"MeanValue = { 1 2 }\nNumberOfBands = 2\n", "NumberOfBands must come before MeanValue"},
        // The reader's one wording; the keyword stands in the quoted line.
        {"NumberOfBands = 2\nMeanValue = { 1 2 3 }\n",
         "ERROR: Wrong number of list elements.  Expecting: 2, got: 3\n"},
        {"NumberOfBands = 2\nCovarianceMatrix = { 1 2 3 }\n",
         "ERROR: Wrong number of list elements.  Expecting: 4, got: 3\n"},
        {"NumberOfBands = 2\nMinimumValue = { 1 low }\n", "received \"low\""},
        {"NumberOfBands = 2\nMeanValue = { 1 2 }\nNumberOfBands = 3\n", "differs"},
        {"NumberOfBands = -1\n", "out of range"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.body);
        msstats *m = nullptr;
        EXPECT_EQ(read_stats(std::string("Stats Begin\n") + c.body + "Stats End\n", &m), 7);
        EXPECT_NE(dsh::error_text().find(c.message), std::string::npos) << dsh::error_text();
        ef_msstats(m);
    }
}

/* ---------------------------------------------------------------- regions */

TEST(RegionInfo, AllRegionAndWhatEachTypeWrites)
{
    dshdr *d = nullptr;
    ASSERT_EQ(df_raster_dshdr(&d, nullptr, 0, 0, 1, Unsigned8BitInteger), 0);
    EXPECT_EQ(setup_all_region(d), 0);
    EXPECT_EQ(d->info.r.regions, nullptr);  // an empty image has no "All"
    d->info.r.nr_lines = 5;
    d->info.r.nr_cells = 7;
    EXPECT_EQ(setup_all_region(d), 0);
    EXPECT_EQ(setup_all_region(d), 0);
    regioninfo *all = d->info.r.regions;
    ASSERT_NE(all, nullptr);
    EXPECT_EQ(all->next, nullptr);
    const double corners[][2] = {{0, 0}, {0, 5}, {7, 5}, {7, 0}};
    const VLD_POINTNODE *p = all->subregions->points;
    for (const auto &corner : corners) {
        ASSERT_NE(p, nullptr);
        EXPECT_EQ(p->x, corner[0]);
        EXPECT_EQ(p->y, corner[1]);
        p = p->next;
    }
    EXPECT_EQ(p, nullptr);

    // A class region writes its number and no points; a polygon the reverse.
    regioninfo *copy = nullptr;
    ASSERT_EQ(cp_regioninfo(&copy, all), 0);
    copy->type = REGION_CLASS;
    copy->class_number = 4;
    std::string text = write_buffer<regioninfo, ep_regioninfo>(copy);
    EXPECT_NE(text.find("ClassNumber\t= 4"), std::string::npos);
    EXPECT_EQ(text.find("SubRegion"), std::string::npos);
    text = write_buffer<regioninfo, ep_regioninfo>(all);
    EXPECT_EQ(text.find("ClassNumber"), std::string::npos);
    EXPECT_EQ(text.find("RGBcolour"), std::string::npos);  // black is left out
    ef_regioninfo(copy);
    EXPECT_EQ(setup_all_region(nullptr), 117);
    ef_dshdr(d);
}

/* ---------------------------------------------------------------- sensors */

TEST(SensorInfo, DefaultsCopiesAndFiducials)
{
    sensorinfo *s = nullptr;
    ASSERT_EQ(df_metric_camera_sensorinfo(&s), 0);
    EXPECT_EQ(s->focal_length, 153.0);
    EXPECT_EQ(s->sensor_type, SENSOR_MetricCamera);
    EXPECT_EQ(s->platform_type, SPLATFORM_Aerial);
    EXPECT_EQ(s->principle_point_x, DBL_MAX);
    std::string text = write_buffer<sensorinfo, ep_sensorinfo>(s);
    EXPECT_EQ(text.find("PrinciplePoint"), std::string::npos);  // unset numbers

    // A mark at its defaults isn't written; one that differs is.
    ea_fiducialinfo(&s->fiducialinfo);
    df_fiducialpoint(&s->fiducialinfo->points[FIDUCIAL_TopLeft]);
    df_fiducialpoint(&s->fiducialinfo->points[FIDUCIAL_MiddleTop]);
    s->fiducialinfo->points[FIDUCIAL_MiddleTop]->is_locked = 1;
    text = write_buffer<sensorinfo, ep_sensorinfo>(s);
    EXPECT_EQ(text.find("FiducialPointTopLeft"), std::string::npos);
    EXPECT_NE(text.find("FiducialPointMiddleTop Begin\n\t\t\tIsOn\t\t= No\n\t\t\tIsLocked\t= Yes\n"
                        "\t\tFiducialPointMiddleTop End"),
              std::string::npos)
        << text;

    // An update keeps the target's own fiducial records.
    sensorinfo *target = nullptr;
    ea_sensorinfo(&target);
    ea_fiducialinfo(&target->fiducialinfo);
    fiducialinfo *kept = target->fiducialinfo;
    s->camera_model = strsave("RMK");
    ASSERT_EQ(cp_sensorinfo_update(target, s), 0);
    EXPECT_EQ(target->fiducialinfo, kept);
    EXPECT_STREQ(target->camera_model, "RMK");
    EXPECT_EQ(target->fiducialinfo->points[FIDUCIAL_MiddleTop]->is_locked, 1);
    EXPECT_EQ(vld::rec_equal_by_block("SensorInfo", target, s), 1);
    ef_sensorinfo(target);
    ef_sensorinfo(s);

    EXPECT_EQ(ep_fiducialpoint_type_spec(nullptr, nullptr, FIDUCIAL_COUNT), 12);
}

// The family's common promises, on every record that has them.
TEST(DshdrFamily, NullFreesAndMissingFiles)
{
    ef_coordspace(nullptr);
    ef_rasterinfo(nullptr);
    ef_vectorinfo(nullptr);
    ef_regioninfo(nullptr);
    ef_regioninfo_list(nullptr);
    ef_msstats(nullptr);
    ef_sensorinfo(nullptr);
    ef_warp_control(nullptr);
    const char *missing = "/nonexistent/vorlan/header";
    rasterinfo *r = nullptr;
    EXPECT_EQ(eg_rasterinfo(&r, missing), 1);
    EXPECT_NE(r, nullptr);
    ef_rasterinfo(r);
    sensorinfo *s = nullptr;
    EXPECT_EQ(eg_sensorinfo(&s, missing), 1);
    EXPECT_NE(s, nullptr);
    ef_sensorinfo(s);
    VLD_KEYWORD *table = nullptr;
    EXPECT_EQ(ee_rasterinfo(&table), 17);
    safe_free(table);
}

}  // namespace
