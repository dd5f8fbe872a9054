/* Bands of lines: an image read as row stripes, one handle per stripe that
 * starts at the stripe's first line, gives the very bytes of one handle read
 * from the top. Each case is an algorithm whose nodes keep something from
 * line to line (resampling in lines, kernels and shading over windows of
 * lines, delays between inputs, regions, positions, streams that start and
 * end inside the image, an algorithm read inside another), cut at stripe
 * boundaries that fall on every kind of line: the first, the last, inside a
 * stream's rows and outside them. */
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <string>
#include <thread>
#include <set>
#include <vector>

#include "formula_fixture.h"
#include "vln_thread.h"
#include "vln_vds.h"

namespace {

using eng::TempDir;

constexpr int kCells = 90, kLines = 70;

/* Smooth heights with some roughness, and nulls (0) in one corner. */
uint16_t height(int band, int line, int cell)
{
    if (line > 55 && cell < 12) return 0;
    const double h = 900 + 400 * std::sin(line * 0.11 + band) * std::cos(cell * 0.07) +
                     37 * std::sin(line * 1.7 + cell * 2.3);
    return static_cast<uint16_t>(h);
}

/* The datasets every case may name. */
struct Data {
    TempDir dir;
    std::string heights, image, east;
    Data()
    {
        const std::vector<frm::RegionDoc> regions = {{"Field", 20, 15, 61, 40, nullptr},
                                                     {"Strip", 0, 30, 90, 33, nullptr}};
        heights = frm::write_dataset(dir, "heights", kCells, kLines, 1, height, true, regions);
        image = frm::write_dataset(dir, "image", kCells, kLines, 4, height, true);
        // Lies over the right half, lower down: its streams start and end
        // inside the image.
        east = frm::write_dataset(
            dir, "east", 50, 40, 1, [](int, int l, int c) { return uint16_t(700 + l * 3 + c); },
            false);
        rewrite_origin(east, 55, 20);
    }
    static void rewrite_origin(const std::string &header, double x, double y)
    {
        dshdr *d = nullptr;
        ASSERT_EQ(eg_dshdr(&d, header.c_str()), 0);
        d->info.r.registration_coord.x = x;
        d->info.r.registration_coord.y = y;
        ASSERT_EQ(ep_dshdr(d, header.c_str()), 0);
        ef_dshdr(d);
    }
};

/* A layer: its type, dataset, formula and the lines inside its block. */
struct Layer {
    const char *type;
    std::string dataset;
    std::string formula = "INPUT1";
    int band = 1;
    std::string extra;        // inside the stream
    std::string input_extra;  // inside its first stream input
    int inputs = 1;           // stream inputs, all over `dataset`
};

struct Case {
    const char *name;
    double x0, y0, x1, y1;  // the image's corners in the datasets' raw space
    int width, height;
    std::string settings;  // lines of the top level
    const char *mode;      // of the one surface
    std::string surface_extra;
    std::vector<Layer> layers;
    enum Open { Window, Dataset } open = Window;
};

std::string doc_text(const Case &k, const Data &data)
{
    std::string o =
        "Algorithm Begin\n\tVersion = \"7.0\"\n\tName = \"stripes\"\n"
        "\tCoordinateSpace Begin\n\t\tDatum = \"RAW\"\n\t\tProjection = \"RAW\"\n"
        "\t\tCoordinateType = RAW\n\tCoordinateSpace End\n";
    o += "\tTopLeftCorner Begin\n\t\tMetersX = " + std::to_string(k.x0) +
         "\n\t\tMetersY = " + std::to_string(k.y0) + "\n\tTopLeftCorner End\n";
    o += "\tBottomRightCorner Begin\n\t\tMetersX = " + std::to_string(k.x1) +
         "\n\t\tMetersY = " + std::to_string(k.y1) + "\n\tBottomRightCorner End\n";
    o += "\tOutputWidth = " + std::to_string(k.width) +
         "\n\tOutputHeight = " + std::to_string(k.height) + "\n";
    if (k.settings.find("Canvas") == std::string::npos)
        o += "\tCanvasWidth = " + std::to_string(k.width) +
             "\n\tCanvasHeight = " + std::to_string(k.height) + "\n";
    o += "\tDotsPerInchAcross = 96\n\tDotsPerInchDown = 96\n\tNullValue = 0\n" + k.settings;
    if (k.settings.find("OutputType") == std::string::npos)
        o += "\tOutputType = Unsigned16BitInteger\n";
    o += std::string("\tSurface Begin\n\t\tName = \"S\"\n\t\tColorMode = ") + k.mode + "\n" +
         k.surface_extra;
    // One description: the layers of a DATASET surface merge into one band.
    for (const Layer &l : k.layers) {
        const std::string dataset = l.dataset == "heights" ? data.heights
                                    : l.dataset == "image" ? data.image
                                    : l.dataset == "east"  ? data.east
                                                           : data.dir.file(l.dataset);
        o += std::string("\t\tStream Begin\n\t\t\tType = ") + l.type +
             "\n\t\t\tDescription = \"Band\"\n\t\t\tDataset = \"" + dataset + "\"\n" + l.extra;
        for (int i = 1; i <= l.inputs; i++)
            o += "\t\t\tStreamInput Begin\n\t\t\t\tStreamInputID = " + std::to_string(i) + "\n" +
                 (i == 1 ? l.input_extra : "") + "\t\t\tStreamInput End\n";
        o += "\t\t\tFormula Begin\n\t\t\t\tFormula = \"" + l.formula + "\"\n";
        for (int i = 1; i <= l.inputs; i++)
            o += "\t\t\t\tFormulaArg Begin\n\t\t\t\t\tStreamInput = " + std::to_string(i) +
                 "\n\t\t\t\t\tBandNumber = " + std::to_string(l.band + i - 1) +
                 "\n\t\t\t\tFormulaArg End\n";
        o += "\t\t\tFormula End\n\t\tStream End\n";
    }
    return o + "\tSurface End\nAlgorithm End\n";
}

const std::string kSmooth =
    "\t\t\t\tKernel Begin\n\t\t\t\t\tType = Convolution\n\t\t\t\t\tRows = 3\n"
    "\t\t\t\t\tColumns = 3\n\t\t\t\t\tArray = { 1 2 1 2 4 2 1 2 1 }\n"
    "\t\t\t\t\tScaleFactor = 16\n\t\t\t\tKernel End\n";
const std::string kTall =
    "\t\t\tKernel Begin\n\t\t\t\tType = Convolution\n\t\t\t\tRows = 5\n"
    "\t\t\t\tColumns = 3\n\t\t\t\tArray = { -1 0 1 -2 0 2 -3 1 3 -2 0 2 -1 0 1 }\n"
    "\t\t\t\tScaleFactor = 3\n\t\t\tKernel End\n";
const std::string kClip =
    "\t\t\t\tTransform Begin\n\t\t\t\t\tType = Linear\n\t\t\t\t\tMinimumInputValue = 600\n"
    "\t\t\t\t\tMaximumInputValue = 1200\n\t\t\t\t\tMinimumOutputValue = 0\n"
    "\t\t\t\t\tMaximumOutputValue = 255\n\t\t\t\t\tLinearDef Begin\n"
    "\t\t\t\t\t\tNumberOfPoints = 2\n\t\t\t\t\t\tPoints = {\n\t\t\t\t\t\t\t0 0\n"
    "\t\t\t\t\t\t\t1 1\n\t\t\t\t\t\t}\n\t\t\t\t\tLinearDef End\n\t\t\t\tTransform End\n";
const std::string kShade =
    "\t\t\tDoStaticShade = Yes\n\t\t\tSunAzimuth = 315:0:0.0\n"
    "\t\t\tSunAngle = 35:0:0.0\n";
const std::string kColour = "\tColour24Flag = Yes\n\tOutputType = Unsigned8BitInteger\n";
const std::string kGrey = "\t\tLookupTable = \"greyscale\"\n";

std::vector<Case> cases()
{
    const Layer plain{"Pseudo", "heights"};
    std::vector<Case> all = {
        {"one to one",
         0,
         0,
         kCells,
         kLines,
         kCells,
         kLines,
         "",
         "DATASET",
         "",
         {plain},
         Case::Dataset},
        {"reduced", 0, 0, kCells, kLines, 37, 23, "", "DATASET", "", {plain}, Case::Dataset},
        {"enlarged", 10.3, 5.2, 40.7, 30.9, 101, 77, "", "DATASET", "", {plain}, Case::Dataset},
        {"bilinear enlarged",
         10.3,
         5.2,
         40.7,
         30.9,
         101,
         77,
         "\tSuperSampling = Bilinear\n\tOutputType = IEEE4ByteReal\n",
         "DATASET",
         "",
         {plain},
         Case::Dataset},
        {"bilinear across, reduced down",
         3,
         2,
         33,
         69,
         75,
         29,
         "\tSuperSampling = Bilinear\n\tOutputType = IEEE4ByteReal\n",
         "DATASET",
         "",
         {plain},
         Case::Dataset},
        {"kernels and delays",
         0,
         0,
         kCells,
         kLines,
         60,
         83,
         "\tOutputType = IEEE8ByteReal\n",
         "DATASET",
         "",
         {{"Pseudo", "heights", "INPUT1 - INPUT2", 1, kTall, kSmooth, 2}},
         Case::Dataset},
        {"kernel, then reduced",
         0,
         0,
         kCells,
         kLines,
         41,
         29,
         "\tOutputType = IEEE8ByteReal\n",
         "DATASET",
         "",
         {{"Pseudo", "heights", "INPUT1", 1, kTall}},
         Case::Dataset},
        {"regions and positions",
         0,
         0,
         kCells,
         kLines,
         kCells,
         kLines,
         "\tOutputType = IEEE8ByteReal\n",
         "DATASET",
         "",
         {{"Pseudo", "heights",
           "INREGION('Field') * 1000 + INREGION('Strip') * 2000 + PIXELY() * 3 + CELLY() + "
           "PIXELX() + INPUT1"}},
         Case::Dataset},
        {"shaded pseudocolour",
         0,
         0,
         kCells,
         kLines,
         71,
         97,
         kColour,
         "PSEUDO",
         kGrey,
         {{"Pseudo", "heights", "INPUT1", 1, kShade}}},
        {"real-time shading, bilinear",
         12,
         9,
         52,
         49,
         83,
         91,
         kColour + "\tSuperSampling = Bilinear\n",
         "RTSHADE",
         kGrey,
         {{"Pseudo", "heights", "INPUT1", 1, "", kClip}}},
        {"canvas smaller than the window",
         0,
         0,
         kCells,
         kLines,
         64,
         60,
         kColour + "\tCanvasWidth = 50\n\tCanvasHeight = 41\n",
         "PSEUDO",
         kGrey,
         {{"Pseudo", "heights", "INPUT1", 1, "", kClip}}},
        {"clipped RGB",
         0,
         0,
         kCells,
         kLines,
         64,
         51,
         kColour,
         "RGB",
         "",
         {{"Red", "image", "INPUT1", 3, "", kClip},
          {"Green", "image", "INPUT1", 2, "", kClip},
          {"Blue", "image", "INPUT1", 1, "", kClip}}},
        {"a virtual dataset inside",
         5.5,
         3.25,
         85,
         67.5,
         70,
         101,
         "\tOutputType = IEEE4ByteReal\n",
         "DATASET",
         "",
         {{"Pseudo", "inner.alg", "INPUT1 * 2"}},
         Case::Dataset},
        // Its lead-in lines reach past the inner algorithm's grid.
        {"bilinear over a virtual dataset",
         0,
         0,
         kCells,
         kLines,
         150,
         120,
         "\tSuperSampling = Bilinear\n\tOutputType = IEEE4ByteReal\n",
         "DATASET",
         "",
         {{"Pseudo", "inner.alg"}},
         Case::Dataset},
        {"mosaic overlay",
         0,
         0,
         120,
         kLines,
         120,
         kLines,
         "",
         "DATASET",
         "",
         {{"Pseudo", "heights"}, {"Pseudo", "east"}},
         Case::Dataset},
        {"mosaic feathered, 8-bit window",
         0,
         0,
         120,
         kLines,
         80,
         93,
         "\tMosaicType = Feather\n",
         "PSEUDO",
         kGrey,
         {{"Pseudo", "heights", "INPUT1", 1, "", kClip},
          {"Pseudo", "east", "INPUT1", 1, "", kClip}}},
    };
    return all;
}

/* Opens the case's algorithm; the caller closes. */
Vds *open_case(const Case &k, algorithm *alg, std::string *error)
{
    char *errmsg = nullptr;
    Vds *vds = k.open == Case::Dataset
                   ? vds_open_alg_tods(alg, &errmsg, nullptr, nullptr)
                   : vds_open_alg_towin(alg, &errmsg, 16, 8, 0, nullptr, nullptr);
    if (vds == nullptr && error != nullptr) *error = errmsg != nullptr ? errmsg : "?";
    safe_free(errmsg);
    return vds;
}

/* Lines `first` to `end - 1` of the one-band image as one block of bytes;
 * `end` < 0 reads to the end with no range set. */
std::string read_band(const std::string &path, const Case &k, int cell_size, int first, int end)
{
    algorithm *alg = nullptr;
    EXPECT_EQ(eg_algorithm_with_transients(&alg, path.c_str()), 0);
    if (alg == nullptr) return "no algorithm";
    std::string error;
    Vds *vds = open_case(k, alg, &error);
    if (vds == nullptr) {
        ef_algorithm(alg);
        return "open failed: " + error;
    }
    if (end >= 0) {
        EXPECT_EQ(vds_set_line_range(vds, first, end - first), 0) << VLD_error_text();
    }
    const size_t line_bytes = static_cast<size_t>(k.width) * cell_size;
    std::vector<char> line(line_bytes + 8);
    void *ptr = line.data();
    std::string out;
    int status;
    while ((status = vds_read(vds, &ptr, nullptr, 0)) == 0) out.append(line.data(), line_bytes);
    EXPECT_EQ(status, -1) << vds->context->error_text;
    vds_close(&vds);
    ef_algorithm(alg);
    return out;
}

void start_engine()
{
    setenv("VORLAN", VORLAN_SHARE_DIR, 0);
    setenv("VLN_MACHINE_TYPE", "linux", 0);
    ASSERT_EQ(PE_initialise("stripe tests"), 0);
}

TEST(EngineStripes, StripesGiveTheBytesOfAReadFromTheTop)
{
    start_engine();
    Data data;
    // The inner algorithm: a kernel over the heights, a formula of two
    // inputs, cell for cell over the dataset.
    const Case inner{"inner",
                     0,
                     0,
                     kCells,
                     kLines,
                     kCells,
                     kLines,
                     "\tOutputType = IEEE8ByteReal\n",
                     "DATASET",
                     "",
                     {{"Pseudo", "heights", "INPUT1 - INPUT2 / 2", 1, kTall, kSmooth, 2}},
                     Case::Dataset};
    std::ofstream(data.dir.file("inner.alg")) << doc_text(inner, data);
    for (const Case &k : cases()) {
        SCOPED_TRACE(k.name);
        const std::string path = data.dir.file("case.alg");
        std::ofstream(path) << doc_text(k, data);
        int cell_size = 4;
        if (k.open == Case::Dataset) {
            cell_size = k.settings.find("IEEE8") != std::string::npos   ? 8
                        : k.settings.find("IEEE4") != std::string::npos ? 4
                                                                        : 2;
        } else if (k.settings.find("Colour24") == std::string::npos) {
            cell_size = 1;
        }
        const std::string whole = read_band(path, k, cell_size, 0, -1);
        const size_t line_bytes = static_cast<size_t>(k.width) * cell_size;
        ASSERT_EQ(whole.size(), line_bytes * k.height) << whole.substr(0, 200);
        // Every case shows something that changes from line to line.
        std::set<std::string> distinct;
        for (int l = 0; l < k.height; l++)
            distinct.insert(whole.substr(l * line_bytes, line_bytes));
        EXPECT_GT(distinct.size(), static_cast<size_t>(k.height) / 3);

        const int h = k.height;
        const std::vector<std::vector<int>> cuts = {
            {h / 2}, {1, h - 1}, {h / 3, 2 * h / 3}, {7, 8, 9, 21, 22, 40}, {h - 4, h - 3, h - 2}};
        for (const auto &inner : cuts) {
            std::vector<int> bounds = {0};
            for (int c : inner)
                if (c > bounds.back() && c < h) bounds.push_back(c);
            bounds.push_back(h);
            std::string joined;
            for (size_t i = 0; i + 1 < bounds.size(); i++)
                joined += read_band(path, k, cell_size, bounds[i], bounds[i + 1]);
            ASSERT_EQ(joined.size(), whole.size());
            for (size_t at = 0; at < whole.size(); at++)
                if (joined[at] != whole[at]) {
                    const size_t line = at / line_bytes;
                    FAIL() << "stripes cut at " << ::testing::PrintToString(bounds)
                           << " differ first at line " << line << ", byte " << at % line_bytes;
                }
        }
    }
}

/* Two stripes read at once, each handle on a thread of its own, as the tool
 * reads them. */
TEST(EngineStripes, StripesOnTwoThreadsTogether)
{
    start_engine();
    ASSERT_EQ(vln_thread_init(), 1);
    Data data;
    const Case k = cases()[8];  // shaded pseudocolour
    const std::string path = data.dir.file("threads.alg");
    std::ofstream(path) << doc_text(k, data);
    const std::string whole = read_band(path, k, 4, 0, -1);
    std::string top, bottom;
    std::thread first([&] { top = read_band(path, k, 4, 0, k.height / 2); });
    std::thread second([&] { bottom = read_band(path, k, 4, k.height / 2, k.height); });
    first.join();
    second.join();
    EXPECT_EQ(top + bottom, whole);
}

TEST(EngineStripes, RangesOutsideTheImageOrAfterAReadAreRefused)
{
    start_engine();
    Data data;
    const Case k = cases()[0];
    const std::string path = data.dir.file("refuse.alg");
    std::ofstream(path) << doc_text(k, data);
    algorithm *alg = nullptr;
    ASSERT_EQ(eg_algorithm_with_transients(&alg, path.c_str()), 0);
    struct Row {
        int first, count;
        const char *text;  // null: accepted
    };
    const Row rows[] = {{-1, 5, "Lines -1 to 3 are not lines of an image of 70"},
                        {60, 11, "Lines 60 to 70 are not lines of an image of 70"},
                        {10, -1, "Lines 10 to 8 are not lines of an image of 70"},
                        {70, 0, nullptr},
                        {0, 70, nullptr}};
    std::vector<uint16_t> line(kCells + 4);
    void *ptr = line.data();
    for (const Row &row : rows) {
        SCOPED_TRACE(row.first);
        Vds *vds = open_case(k, alg, nullptr);
        ASSERT_NE(vds, nullptr);
        const int status = vds_set_line_range(vds, row.first, row.count);
        if (row.text == nullptr) {
            EXPECT_EQ(status, 0);
            int lines = 0;
            while (vds_read(vds, &ptr, nullptr, 0) == 0) lines++;
            EXPECT_EQ(lines, row.count);
        } else {
            EXPECT_EQ(status, VLD_ERR_VDS);
            EXPECT_STREQ(VLD_error_text(), (std::string(row.text) + "\n").c_str());
        }
        vds_close(&vds);
    }
    // After a read, and on no handle.
    Vds *vds = open_case(k, alg, nullptr);
    ASSERT_NE(vds, nullptr);
    ASSERT_EQ(vds_read(vds, &ptr, nullptr, 0), 0);
    EXPECT_EQ(vds_set_line_range(vds, 5, 5), VLD_ERR_VDS);
    EXPECT_STREQ(VLD_error_text(), "Lines can be chosen only before the first read\n");
    // The handle reads on as before.
    ASSERT_EQ(vds_read(vds, &ptr, nullptr, 0), 0);
    const std::string whole = read_band(path, k, 2, 0, -1);
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(line.data()), kCells * 2),
              whole.substr(kCells * 2, kCells * 2));
    vds_close(&vds);
    EXPECT_EQ(vds_set_line_range(nullptr, 0, 1), VLD_ERR_VDS);
    ef_algorithm(alg);
}

}  // namespace
