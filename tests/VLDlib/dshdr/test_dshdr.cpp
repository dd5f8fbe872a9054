// The dataset header as a document: hand-written headers of every kind read,
// write back to the golden text and read again into equal records; the routes
// of eg_dshdr and its failures; what writing a header does beside the text.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cmath>
#include <cstring>
#include <string>

#include "dshdr_fixture.h"

namespace {

using dsh::Header;
using dsh::TempDir;

/* ---------------------------------------------------------------- golden round trips */

struct GoldenCase {
    const char *file;
};

class DshdrGolden : public testing::TestWithParam<GoldenCase> {};

// Each header is written over its own copy, so that its name (and what
// depends on it) is the same when it is read again.
TEST_P(DshdrGolden, ReadsWritesGoldenAndReadsBackEqual)
{
    TempDir dir;
    std::string path = dir.copy(GetParam().file);
    Header first(path);
    ASSERT_EQ(first.status, 0) << dsh::error_text();
    ASSERT_EQ(ep_dshdr(first.d, path.c_str()), 0) << dsh::error_text();
    std::string golden = dsh::kDataDir + GetParam().file + ".golden";
    EXPECT_EQ(dsh::masked(dsh::slurp(path)), dsh::slurp(golden));

    Header second(path);
    ASSERT_EQ(second.status, 0) << dsh::error_text();
    // The text says the current version; the record keeps the one it was read with.
    safe_free(first->version);
    first->version = strsave(DSHDR_CURRENT_VERSION);
    EXPECT_EQ(vld::rec_equal_by_block("DatasetHeader", first.d, second.d), 1);

    // And a deep copy is equal too, and owns all it holds.
    dshdr *copy = nullptr;
    ASSERT_EQ(cp_dshdr(&copy, second.d), 0);
    ef_dshdr(second.d);
    second.d = nullptr;
    EXPECT_EQ(vld::rec_equal_by_block("DatasetHeader", first.d, copy), 1);
    ef_dshdr(copy);
}

INSTANTIATE_TEST_SUITE_P(Headers, DshdrGolden,
                         testing::Values(GoldenCase{"raster.vld"}, GoldenCase{"full.vld"},
                                         GoldenCase{"vector.vlv"}, GoldenCase{"legacy_amg.vld"},
                                         GoldenCase{"legacy_raw.vld"},
                                         GoldenCase{"legacy_vector.vlv"},
                                         GoldenCase{"legacy_warp.vld"}),
                         [](const testing::TestParamInfo<GoldenCase> &info) {
                             std::string name = info.param.file;
                             return name.substr(0, name.find('.'));
                         });

TEST(DshdrGolden, CameraFileRoundTrip)
{
    TempDir dir;
    std::string path = dir.copy("camera.cam");
    sensorinfo *first = nullptr, *second = nullptr;
    ASSERT_EQ(eg_cam_file(&first, path.c_str()), 0) << dsh::error_text();
    ASSERT_EQ(ep_cam_file(first, path.c_str()), 0) << dsh::error_text();
    EXPECT_EQ(dsh::masked(dsh::slurp(path)), dsh::slurp(dsh::kDataDir + "camera.cam.golden"));
    ASSERT_EQ(eg_cam_file(&second, path.c_str()), 0) << dsh::error_text();
    EXPECT_EQ(vld::rec_equal_by_block("SensorInfo", first, second), 1);
    EXPECT_DOUBLE_EQ(second->focal_length, 152.82);
    ASSERT_NE(second->fiducialinfo, nullptr);
    ASSERT_NE(second->fiducialinfo->points[FIDUCIAL_BottomRight], nullptr);
    EXPECT_EQ(second->fiducialinfo->points[FIDUCIAL_TopLeft], nullptr);
    ef_sensorinfo(first);
    ef_sensorinfo(second);

    // A camera file has no bands, so as a dataset it is refused.
    Header as_dataset(path);
    EXPECT_EQ(as_dataset.status, 146);
    EXPECT_EQ(as_dataset.d, nullptr);
}

/* ---------------------------------------------------------------- what reading makes of a header
 */

TEST(DshdrRead, LegacyKeywordsLandInTheCurrentFields)
{
    TempDir dir;
    Header amg(dir.copy("legacy_amg.vld"));
    ASSERT_EQ(amg.status, 0) << dsh::error_text();
    EXPECT_STREQ(amg->coordspace.datum, "AGD66");
    EXPECT_STREQ(amg->coordspace.projection, "TMAMG55");
    EXPECT_EQ(amg->coordspace.coordsystype, CST_EN);  // CoordinateSystem = UTM
    EXPECT_DOUBLE_EQ(amg->info.r.registration_coord.x, 300000.0);
    EXPECT_DOUBLE_EQ(amg->info.r.registration_cell_x, 1.5);
    EXPECT_DOUBLE_EQ(amg->info.r.registration_cell_y, 2.5);
    EXPECT_EQ(amg->info.r.cell_bytes, 2);
    EXPECT_TRUE(dshdr_is_fft(amg.d));

    // Raw coordinates of old files were in cells: scaled by the old cell size,
    // which becomes the raster's.
    Header raw(dir.copy("legacy_raw.vld"));
    ASSERT_EQ(raw.status, 0) << dsh::error_text();
    EXPECT_DOUBLE_EQ(raw->info.r.registration_coord.x, 20.0);
    EXPECT_DOUBLE_EQ(raw->info.r.registration_coord.y, 80.0);
    EXPECT_DOUBLE_EQ(raw->info.r.cellinfo.x_dimension, 2.0);
    EXPECT_STREQ(raw->coordspace.units, "METERS");  // "natural" in a raw space

    Header vec(dir.copy("legacy_vector.vlv"));
    ASSERT_EQ(vec.status, 0) << dsh::error_text();
    EXPECT_DOUBLE_EQ(vec->info.v.extents.bottom_right.x, 300.0);
    EXPECT_DOUBLE_EQ(vec->info.v.extents.bottom_right.y, 20.0);
    EXPECT_EQ(vec->info.v.file_format, VFF_BINARY);  // the old form defaults to binary
}

TEST(DshdrRead, VectorInLatitudeLongitudeBecomesEastingsInMetres)
{
    TempDir dir;
    Header vec(dir.copy("vector.vlv"));
    ASSERT_EQ(vec.status, 0) << dsh::error_text();
    EXPECT_EQ(vec->coordspace.coordsystype, CST_EN);
    EXPECT_STREQ(vec->coordspace.units, "METERS");
    // The extents keep the values they were read with, in radians.
    EXPECT_DOUBLE_EQ(vec->info.v.extents.top_left.x, 144.5 * M_PI / 180.0);
    EXPECT_DOUBLE_EQ(vec->info.v.extents.top_left.y, -37.25 * M_PI / 180.0);
    EXPECT_EQ(vec->info.v.file_format, VFF_ASCII);  // VLVEC is always text
}

TEST(DshdrRead, DefaultsOfAMinimalHeader)
{
    TempDir dir;
    std::string path = dir.write("min.vld",
                                 "DatasetHeader Begin\n DataType = Raster\n"
                                 " RasterInfo Begin\n  NrOfBands = 1\n"
                                 "  NrOfLines = 2\n  NrOfCellsPerLine = 3\n"
                                 " RasterInfo End\nDatasetHeader End\n");
    Header h(path);
    ASSERT_EQ(h.status, 0) << dsh::error_text();
    EXPECT_STREQ(h->name, path.c_str());
    EXPECT_EQ(std::string(h->data_file), dir.file("min"));
    EXPECT_STREQ(h->coordspace.datum, "RAW");  // no CoordinateSpace: the default one
    EXPECT_EQ(h->coordspace.coordsystype, CST_RAW);
    EXPECT_DOUBLE_EQ(h->info.r.cellinfo.x_dimension, 1.0);
    ASSERT_NE(h->info.r.regions, nullptr);
    EXPECT_STREQ(h->info.r.regions->name, "All");
    EXPECT_EQ(h->info.r.regions->next, nullptr);
}

// Each row: a header's text, the row eg_dshdr gives, and a piece of the text.
TEST(DshdrRead, FailuresGiveTheirRowAndText)
{
    const std::string bands = "  NrOfBands = 1\n";
    const struct {
        const char *what;
        std::string text;
        int row;
        const char *message;
    } cases[] = {
        {"unknown keyword", dsh::raster_doc(bands + "  Colour = 3\n"), 7, "Unknown identifier"},
        {"more band ids than bands",
         dsh::raster_doc("  NrOfBands = 2\n  BandId Begin\n  BandId End\n  BandId Begin\n"
                         "  BandId End\n  BandId Begin\n  BandId End\n"),
         7, "Number of bandids > number of bands"},
        {"band id before the count", dsh::raster_doc("  BandId Begin\n  BandId End\n" + bands), 7,
         "Number of bandids > number of bands"},
        {"no bands", dsh::raster_doc("  NrOfLines = 4\n"), 146, "Less than one band"},
        {"negative band count", dsh::raster_doc("  NrOfBands = -3\n"), 7, "out of range"},
        {"no datum",
         dsh::raster_doc(bands, dsh::space_doc("Projection = \"RAW\"\nCoordinateType = RAW\n")), 30,
         "No Datum"},
        {"no projection",
         dsh::raster_doc(bands, dsh::space_doc("Datum = \"RAW\"\nCoordinateType = RAW\n")), 30,
         "No Projection"},
        {"no coordinate type",
         dsh::raster_doc(bands, dsh::space_doc("Datum = \"RAW\"\nProjection = \"RAW\"\n")), 30,
         "Bad (or no) CoordinateSystem (should be RAW, EN, or LL)"},
        {"feet in a raw space",
         dsh::raster_doc(bands, dsh::space_doc("Datum = \"RAW\"\nProjection = \"RAW\"\n"
                                               "CoordinateType = RAW\nUnits = \"FEET\"\n")),
         30, "\n  Units were set to FEET, must be METERS for a RAW coordinate space"},
        {"eastings in a raw space",
         dsh::raster_doc(bands + "  RegistrationCoord Begin\n   Eastings = 5\n"
                                 "  RegistrationCoord End\n"),
         7, "Unknown identifier \"Eastings\""},
        {"raster block in a vector",
         "DatasetHeader Begin\nDataType = Vector\nRasterInfo Begin\nRasterInfo End\n"
         "DatasetHeader End\n",
         7, "RasterInfo in a vector dataset"},
        {"data type after the raster block", dsh::raster_doc(bands, "", "\tDataType = Vector\n"), 7,
         "DataType doesn't match"},
        {"words in a region's points",
         dsh::raster_doc(bands + "  RegionInfo Begin\n   SubRegion = { 1 2 three 4 }\n"
                                 "  RegionInfo End\n"),
         7, "Expecting a number in SubRegion, received \"three\""},
        {"odd number of region coordinates",
         dsh::raster_doc(bands + "  RegionInfo Begin\n   SubRegion = { 1 2 3 }\n"
                                 "  RegionInfo End\n"),
         7, "needs pairs of numbers"},
        {"an algorithm without corners",
         dsh::raster_doc(bands, "", "\tAlgorithm Begin\n\tAlgorithm End\n"), 25,
         "Coordinate missing in algorithm: topleft"},
        {"truncated", dsh::raster_doc(bands).substr(0, 80), 7, "Missing"},
        {"binary garbage first", std::string("\x7f\x45\x4c\x46\x02\x01\x01\0\xfe\xff", 10), 7,
         "Invalid header file, probably a binary file"},
        {"binary garbage later", std::string("DatasetHeader Begin\n\x01\xfe\xff\x80 = 3\n"), 7,
         "Error in file."},
        {"translated without a data file",
         "DatasetHeader Begin\nDataSetType = Translated\nDatasetHeader End\n", 171,
         "Error determining data filename for translated data."},
    };
    TempDir dir;
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        Header h(dir.write("bad.vld", c.text));
        EXPECT_EQ(h.status, c.row);
        EXPECT_EQ(h.d, nullptr);
        EXPECT_NE(dsh::error_text().find(c.message), std::string::npos) << dsh::error_text();
    }
}

// Cut short or damaged anywhere, the fullest header gives an error or a
// header, never a crash or a leak (the sanitizer build checks both).
TEST(DshdrRead, DamagedCopiesNeverCrash)
{
    TempDir dir;
    const std::string text = dsh::slurp(dsh::kDataDir + "full.vld");
    const char damage[] = {'\0', '"', '{', '}', '\n', 'x', '\xff', ':', '9'};
    int read = 0;
    for (size_t at = 0; at < text.size(); at += 31) {
        for (int variant = 0; variant < 3; variant++) {
            std::string bad = text;
            if (variant == 0)
                bad.resize(at);
            else if (variant == 1)
                bad[at] = damage[at % sizeof damage];
            else
                bad.erase(at, 5);
            Header h(dir.write("damaged.vld", bad));
            EXPECT_EQ(h.status == 0, h.d != nullptr);
            read += h.status == 0;
        }
    }
    EXPECT_GT(read, 0);  // some damage falls where it doesn't matter
}

TEST(DshdrRead, RoutesByName)
{
    TempDir dir;
    std::string image = dir.write("photo.tif", "not really an image");
    const struct {
        const char *what;
        std::string name;
        int row;
    } cases[] = {
        {"null name", "", 9},
        {"a missing algorithm", dir.file("view.alg"), 1},
        {"missing header", dir.file("absent.vld"), 1},
        {"missing foreign file", dir.file("absent.tif"), 1},
        {"foreign file without a side header", image, 169},
        {"zero-length header", dir.write("empty.vld", ""), 1},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        Header h(c.name);
        EXPECT_EQ(h.status, c.row) << dsh::error_text();
        EXPECT_EQ(h.d, nullptr);
    }
    dshdr *d = reinterpret_cast<dshdr *>(1);
    EXPECT_EQ(eg_dshdr(&d, nullptr), 9);
    EXPECT_EQ(d, nullptr);
}

TEST(DshdrRead, SideHeadersOfForeignFiles)
{
    TempDir dir;
    std::string image = dir.write("photo.tif", "pixels");
    const std::string translated =
        "DatasetHeader Begin\nDataSetType = Translated\n"
        "DataType = Raster\nRasterInfo Begin\nNrOfBands = 1\n";
    const struct {
        const char *what;
        std::string side;
        int row;
        const char *message;
    } cases[] = {
        // Only a translated header may stand beside a foreign file; without
        // translators the file itself is then of no known type.
        {"native side header", dsh::raster_doc("  NrOfBands = 1\n"), 169, "Filetype unknown"},
        {"translated without a data file", translated + "RasterInfo End\nDatasetHeader End\n", 169,
         "Filetype unknown"},
        {"translated naming the file itself",
         translated + "RasterInfo End\nDataFile = \"photo.tif\"\nDatasetHeader End\n", 169,
         "Filetype unknown"},
        {"translated naming another file",
         translated + "RasterInfo End\nDataFile = \"other.tif\"\nDatasetHeader End\n", 0, ""},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        dir.write("photo.vld", c.side);
        Header h(image);
        EXPECT_EQ(h.status, c.row) << dsh::error_text();
        if (c.row != 0) {
            EXPECT_NE(dsh::error_text().find(c.message), std::string::npos) << dsh::error_text();
            continue;
        }
        EXPECT_TRUE(h->flags & DSHDR_FLAG_SIDE_HEADER);
        EXPECT_EQ(std::string(h->name), image);
    }
}

TEST(DshdrRead, StandardResolvesAgainstTheDirectory)
{
    TempDir dir;
    dir.copy("raster.vld");
    dshdr *d = nullptr;
    ASSERT_EQ(eg_dshdr_standard(&d, dir.file("").c_str(), "raster.vld"), 0) << dsh::error_text();
    EXPECT_EQ(std::string(d->name), dir.file("raster.vld"));
    ef_dshdr(d);
    EXPECT_EQ(eg_dshdr_standard(&d, dir.file("").c_str(), "nothing.vld"), 1);
}

/* ---------------------------------------------------------------- what writing does */

TEST(DshdrWrite, StampsTheTimeAndRemovesStaleStatistics)
{
    TempDir dir;
    std::string path = dir.copy("raster.vld");
    std::string stats = dir.write("raster.stats", "old");
    Header h(path);
    ASSERT_EQ(h.status, 0);
    int32_t before = h->last_updated;
    int32_t now = static_cast<int32_t>(time(nullptr));
    ASSERT_EQ(ep_dshdr(h.d, path.c_str()), 0);
    EXPECT_NE(h->last_updated, before);
    EXPECT_GE(h->last_updated, now);
    EXPECT_FALSE(fileexists(stats.c_str()));
}

TEST(DshdrWrite, DataFileLineAndVersion)
{
    TempDir dir;
    struct {
        const char *what;
        const char *data_file; /* relative to the directory */
        int32_t dataset_type;
        int32_t keep_version;
        bool transients;
        bool line_written;
    } cases[] = {
        {"own name", "out", DST_VLDStorage, 0, false, false},
        {"another name", "elsewhere", DST_VLDStorage, 0, false, true},
        {"translated keeps it", "out", DST_Translated, 0, false, true},
        {"transients keep it", "out", DST_VLDStorage, 1, true, true},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        dshdr *d = nullptr;
        std::string path = dir.file("out.vld");
        ASSERT_EQ(df_raster_dshdr(&d, path.c_str(), 4, 3, 1, Unsigned8BitInteger), 0);
        safe_free(d->data_file);
        d->data_file = strsave(dir.file(c.data_file).c_str());
        d->dataset_type = c.dataset_type;
        d->keep_version = c.keep_version;
        d->version = strsave("5.2");
        write_transients = c.transients;
        ASSERT_EQ(ep_dshdr(d, path.c_str()), 0) << dsh::error_text();
        write_transients = 0;
        std::string text = dsh::slurp(path);
        EXPECT_EQ(text.find("\tDataFile") != std::string::npos, c.line_written) << text;
        EXPECT_NE(text.find(c.keep_version ? "\"5.2\"" : "\"7.0\""), std::string::npos);
        ef_dshdr(d);
    }
}

TEST(DshdrWrite, TranslatedHeaderGoesBesideTheData)
{
    TempDir dir;
    dshdr *d = nullptr;
    ASSERT_EQ(df_raster_dshdr(&d, nullptr, 2, 2, 1, Unsigned8BitInteger), 0);
    d->dataset_type = DST_Translated;
    d->data_file = strsave(dir.file("scene.tif").c_str());
    d->byte_order = BO_None;
    std::string target = dir.file("scene.tif");
    ASSERT_EQ(ep_dshdr(d, target.c_str()), 0) << dsh::error_text();
    EXPECT_EQ(std::string(d->name), dir.file("scene.vld"));
    EXPECT_FALSE(fileexists(target.c_str()));
    EXPECT_NE(dsh::slurp(dir.file("scene.vld")).find("ByteOrder\t= LSBFirst"), std::string::npos);
    EXPECT_EQ(d->byte_order, BO_LSBFirst);
    ef_dshdr(d);
}

// A header kept at an old version only carries a spectrum the version knew.
TEST(DshdrWrite, OldVersionsDropTheSpectrum)
{
    TempDir dir;
    for (const char *version : {"4.0", "4.1", "4.2"}) {
        SCOPED_TRACE(version);
        dshdr *d = nullptr;
        ASSERT_EQ(df_raster_dshdr(&d, nullptr, 2, 2, 1, Unsigned8BitInteger), 0);
        d->fftinfo.frequency_level = 3;
        d->keep_version = 1;
        d->version = strsave(version);
        std::string path = dir.file("fft.vld");
        ASSERT_EQ(ep_dshdr(d, path.c_str()), 0);
        bool written = dsh::slurp(path).find("FFTInfo Begin") != std::string::npos;
        EXPECT_EQ(written, std::strcmp(version, "4.1") > 0);
        ef_dshdr(d);
    }
}

TEST(DshdrWrite, VirtualDatasetShortForm)
{
    TempDir dir;
    Header h(dir.copy("full.vld"));
    ASSERT_EQ(h.status, 0);
    std::string path = dir.file("short.vld");
    ASSERT_EQ(ep_dshdr_vds(h.d, path.c_str()), 0);
    std::string text = dsh::slurp(path);
    for (const char *absent : {"\n\tCoordinateSpace", "DataType", "CellType", "BandId", "RadarInfo",
                               "FFTInfo", "DataFile"})
        EXPECT_EQ(text.find(absent), std::string::npos) << absent;
    for (const char *present : {"Comments", "SensorInfo Begin", "WarpControl Begin",
                                "RegionName\t= \"Lake\"", "Description"})
        EXPECT_NE(text.find(present), std::string::npos) << present;
}

TEST(DshdrWrite, CanWriteChecksTheHeaderBesideTheData)
{
    TempDir dir;
    std::string path = dir.copy("raster.vld");
    EXPECT_EQ(VLN_can_write_dshdr(path.c_str()), 0);
    EXPECT_EQ(VLN_can_write_dshdr(dir.file("absent.vld").c_str()), 8);
    if (geteuid() != 0) {  // root may write a read-only file
        chmod(path.c_str(), 0444);
        EXPECT_EQ(VLN_can_write_dshdr(path.c_str()), 5);
    }
    // A translated side header that describes another file isn't this one's.
    std::string image = dir.write("photo.tif", "pixels");
    dir.write("photo.vld",
              "DatasetHeader Begin\nDataSetType = Translated\nDataType = Raster\n"
              "DataFile = \"other.tif\"\nRasterInfo Begin\nNrOfBands = 1\n"
              "RasterInfo End\nDatasetHeader End\n");
    EXPECT_EQ(VLN_can_write_dshdr(image.c_str()), 5);
}

// VLN_fspec_clashes reads the raster header beside a vector's name through
// the probe that this module registers when the library loads.
TEST(DshdrWrite, FspecClashesReadsHeaders)
{
    TempDir dir;
    const std::string raster =
        "DatasetHeader Begin\nDataType = Raster\nRasterInfo Begin\n"
        "NrOfBands = 1\nRasterInfo End\n";
    dir.write("roads.vld", raster + "DatasetHeader End\n");
    EXPECT_EQ(VLN_fspec_clashes(dir.file("roads.vlv").c_str(), nullptr), 1);
    dir.write("roads.vld", raster + "DataFile = \"other\"\nDatasetHeader End\n");
    EXPECT_EQ(VLN_fspec_clashes(dir.file("roads.vlv").c_str(), nullptr), 0);
    dir.write("roads.vld", raster + "Algorithm Begin\nAlgorithm End\nDatasetHeader End\n");
    EXPECT_EQ(VLN_fspec_clashes(dir.file("roads.vlv").c_str(), nullptr), 0);
}

/* ---------------------------------------------------------------- the family */

TEST(DshdrFamily, DefaultsAndKeywords)
{
    dshdr *d = nullptr;
    ASSERT_EQ(df_raster_dshdr(&d, "/data/scene.vld", 100, 50, 3, IEEE4ByteReal), 0);
    EXPECT_STREQ(d->data_file, "/data/scene");
    EXPECT_EQ(d->data_type, DT_Raster);
    EXPECT_EQ(d->dataset_type, DST_VLDStorage);
    EXPECT_EQ(d->info.r.nr_bands, 3);
    EXPECT_EQ(d->info.r.cell_bytes, 4);
    EXPECT_EQ(d->info.r.bandids[2].value, nullptr);
    EXPECT_EQ(d->radarinfo.image_type, 0);
    ef_dshdr(d);

    ASSERT_EQ(df_vector_dshdr(&d, "roads.vlv"), 0);
    EXPECT_EQ(d->info.v.type, VT_VLVEC);
    EXPECT_STREQ(d->coordspace.units, "natural");
    ef_dshdr(d);

    ASSERT_EQ(df_dshdr_import(&d), 0);
    EXPECT_EQ(d->info.r.cell_type, Unsigned8BitInteger);
    EXPECT_EQ(d->info.r.nr_bands, 1);
    ef_dshdr(d);

    coordspace space{};
    df_coordspace_noalloc(&space);
    dscoord tl{1, 2, NAN}, br{3, 4, NAN};
    ASSERT_EQ(VLD_create_fake_dshdr(&d, &space, &tl, &br), 0);
    EXPECT_EQ(d->data_type, DT_Vector);
    EXPECT_EQ(dscoord_cmp(&d->info.v.extents.bottom_right, &br), 0);
    EXPECT_NE(d->coordspace.datum, space.datum);  // a copy
    ef_dshdr(d);
    ef_coordspace_contents(&space);

    VLD_KEYWORD *table = nullptr;
    int n = ee_dshdr(&table);
    ASSERT_EQ(n, 19);
    EXPECT_STREQ(table[0].name, "Version");
    EXPECT_STREQ(table[n - 1].name, "Algorithm");
    safe_free(table);
    ef_dshdr(nullptr);
}

}  // namespace
