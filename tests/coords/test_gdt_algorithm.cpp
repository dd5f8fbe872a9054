// Two datasets in two zones of UTM, one in each layer of an algorithm in the
// first zone: the processing engine plans them through the coordinate engine
// and rectifies the second zone's cells into the first on the fly.
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "engine_fixture.h"
#include "gdt_fixture.h"
#include "proj_peer.h"
#include "vld_coords_internal.h"

namespace {

using gdt_test::kDeg;
using gdt_test::Peer;
using test_support::TempDir;

constexpr int kCells = 200;
constexpr double kCellSize = 10.0;

/* A 16-bit dataset in (WGS84, `projection`) whose cell (c, l) holds l * 256 + c. */
std::string write_utm_dataset(const TempDir &dir, const std::string &stem, const char *projection,
                              double east, double north)
{
    std::string header = dir.file(stem + ".vld");
    dshdr *d = nullptr;
    df_raster_dshdr(&d, header.c_str(), kCells, kCells, 1, Unsigned16BitInteger);
    coordspace &cs = d->coordspace;
    safe_free(cs.datum);
    safe_free(cs.projection);
    safe_free(cs.units);
    cs.coordsystype = CST_EN;
    cs.datum = strsave("WGS84");
    cs.projection = strsave(projection);
    cs.units = strsave("METERS");
    d->info.r.registration_coord.x = east;
    d->info.r.registration_coord.y = north;
    d->info.r.cellinfo.x_dimension = d->info.r.cellinfo.y_dimension = kCellSize;
    EXPECT_EQ(ep_dshdr(d, header.c_str()), 0) << VLD_error.text;
    ef_dshdr(d);
    std::string bytes;
    for (int l = 0; l < kCells; l++)
        for (int c = 0; c < kCells; c++) {
            uint16_t v = static_cast<uint16_t>(l * 256 + c);
            bytes.append(reinterpret_cast<const char *>(&v), 2);
        }
    std::ofstream(dir.file(stem), std::ios::binary) << bytes;
    return header;
}

std::string algorithm_text(const std::vector<std::string> &datasets, double tl_x, double tl_y,
                           double br_x, double br_y, int size)
{
    std::ostringstream o;
    o.precision(17);
    o << "Algorithm Begin\n\tVersion = \"7.0\"\n\tName = \"two zones\"\n";
    o << "\tCoordinateSpace Begin\n\t\tDatum = \"WGS84\"\n\t\tProjection = \"NUTM31\"\n"
         "\t\tCoordinateType = EN\n\tCoordinateSpace End\n";
    o << "\tTopLeftCorner Begin\n\t\tEastings = " << tl_x << "\n\t\tNorthings = " << tl_y
      << "\n\tTopLeftCorner End\n";
    o << "\tBottomRightCorner Begin\n\t\tEastings = " << br_x << "\n\t\tNorthings = " << br_y
      << "\n\tBottomRightCorner End\n";
    o << "\tSuperSampling = NearestNeighbour\n";
    o << "\tOutputWidth = " << size << "\n\tOutputHeight = " << size << "\n";
    o << "\tCanvasWidth = " << size << "\n\tCanvasHeight = " << size << "\n";
    o << "\tOutputType = Unsigned16BitInteger\n\tNullValue = 0\n";
    o << "\tSurface Begin\n\t\tName = \"Bands\"\n\t\tColorMode = DATASET\n";
    for (const std::string &d : datasets) {
        o << "\t\tStream Begin\n\t\t\tType = Pseudo\n\t\t\tDescription = \"Band\"\n\t\t\tDataset = "
             "\""
          << d << "\"\n";
        o << "\t\t\tStreamInput Begin\n\t\t\t\tStreamInputID = 1\n\t\t\tStreamInput End\n";
        o << "\t\t\tFormula Begin\n\t\t\t\tFormula = \"INPUT1\"\n\t\t\t\tFormulaArg Begin\n"
             "\t\t\t\t\tStreamInput = 1\n\t\t\t\t\tBandNumber = 1\n\t\t\t\tFormulaArg End\n"
             "\t\t\tFormula End\n\t\tStream End\n";
    }
    o << "\tSurface End\nAlgorithm End\n";
    return o.str();
}

TEST(GdtAlgorithm, DatasetsInTwoZonesMeetInOneSpace)
{
    unsetenv("GDT_DATA_PATH");
    gdt::engine_reset();
    gdt::install_coord_engine();
    setenv("VORLAN", VORLAN_SHARE_DIR, 0);
    setenv("VLN_MACHINE_TYPE", "linux", 0);
    ASSERT_EQ(PE_initialise("coordinate tests"), 0);

    // Around 5.9 E, 50.5 N, near the edge of zones 31 and 32.
    Peer zone31("+proj=utm +zone=31 +ellps=WGS84 +approx"),
        zone32("+proj=utm +zone=32 +ellps=WGS84 +approx");
    double x31, y31, x32, y32;
    ASSERT_TRUE(zone31.forward(5.9 * kDeg, 50.5 * kDeg, x31, y31));
    ASSERT_TRUE(zone32.forward(5.9 * kDeg, 50.5 * kDeg, x32, y32));
    TempDir dir("vln_gdt_alg");
    double half = kCells * kCellSize / 2;
    std::string a = write_utm_dataset(dir, "a31", "NUTM31", x31 - half, y31 + half);
    std::string b = write_utm_dataset(dir, "b32", "NUTM32", x32 - half, y32 + half);
    // The view: the middle kilometre of the first dataset, 50 cells of 20 m.
    const int size = 50;
    double tl_x = x31 - 500, tl_y = y31 + 500, br_x = x31 + 500, br_y = y31 - 500;
    std::string path = dir.file("two.alg");
    std::ofstream(path) << algorithm_text({a, b}, tl_x, tl_y, br_x, br_y, size);
    algorithm *alg = nullptr;
    ASSERT_EQ(eg_algorithm_with_transients(&alg, path.c_str()), 0) << VLD_error.text;
    // Planning carries the second zone's extents into the first through the
    // engine, and the read rectifies the second zone's cells into the view:
    // each view cell shows a cell of the second dataset (the top layer) next
    // to the point under its centre, worked out here through the peer. (The
    // rectified grid is the dataset's footprint at the view's cell size, on
    // its own corners, and is sampled into the view: a view cell's source
    // may lie up to a cell from the point under the view cell's centre.)
    pe_context *pe = pe_create_context();
    ASSERT_EQ(init_alg(pe, alg), 0) << pe->error_text;
    pe_start_trees(pe);
    const double east0 = x32 - half, north0 = y32 + half;
    int exact = 0;
    for (int j = 0; j < size; j++) {
        std::vector<uint16_t> line(size + 1);
        void *lines[] = {line.data()};
        rlseg *runs[] = {nullptr};
        ASSERT_EQ(pe_read_lines(pe, 0, lines, runs), 0) << pe->error_text;
        EXPECT_TRUE(runs[0] != nullptr && runs[0]->first == 0 && runs[0]->last == size - 1 &&
                    runs[0]->next == nullptr)
            << "line " << j << " is whole";
        pe_free_rlseg_list(pe, &runs[0]);
        for (int i = 0; i < size; i++) {
            double lon, lat, e, n;
            ASSERT_TRUE(zone31.backward(tl_x + (i + 0.5) * 20, tl_y - (j + 0.5) * 20, lon, lat));
            ASSERT_TRUE(zone32.forward(lon, lat, e, n));
            const double px = (e - east0) / kCellSize, py = (north0 - n) / kCellSize;
            const int got_line = line[i] / 256, got_cell = line[i] % 256;
            EXPECT_LE(std::fabs(got_line - py), 1.0) << "view cell " << i << ", " << j;
            EXPECT_LE(std::fabs(got_cell - px), 1.0) << "view cell " << i << ", " << j;
            exact += got_line == static_cast<int>(std::rint(py)) &&
                     got_cell == static_cast<int>(std::rint(px));
        }
    }
    EXPECT_GT(exact, size * size / 2);
    pe_destroy_context(pe);
    // Without it the same plan stops at the conversion.
    vld::set_coord_engine(nullptr);
    pe = pe_create_context();
    EXPECT_NE(init_alg(pe, alg), 0);
    EXPECT_NE(std::string(pe->error_text).find("Geodetic transform error"), std::string::npos)
        << pe->error_text;
    pe_destroy_context(pe);
    gdt::install_coord_engine();
    ef_algorithm(alg);
}

}  // namespace
