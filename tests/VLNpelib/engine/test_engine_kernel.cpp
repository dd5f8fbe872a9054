/* Kernels and sun shading end to end: an algorithm over a 16-bit dataset of
 * uneven heights, opened and pulled through the root, against the kernels
 * applied here to the whole dataset, cell by cell, and then cut to the window.
 * Where a window reaches past the dataset, cells are null; inside it, the
 * margins are the dataset's own cells. */
#include <cmath>
#include <fstream>
#include <string>
#include <vector>

#include "engine_fixture.h"

namespace {

using eng::AlgDoc;
using eng::StreamDoc;
using eng::TempDir;

constexpr int kCells = 14, kLines = 12;

double height(int line, int cell)
{
    return (line * line * 7 + cell * cell * 3 + line * cell * 5) % 1000;
}

std::string write_heights(const TempDir &dir)
{
    const std::string header = dir.file("heights.vld");
    dshdr *d = nullptr;
    df_raster_dshdr(&d, header.c_str(), kCells, kLines, 1, Unsigned16BitInteger);
    d->info.r.cellinfo.x_dimension = d->info.r.cellinfo.y_dimension = 1.0;
    EXPECT_EQ(ep_dshdr(d, header.c_str()), 0);
    ef_dshdr(d);
    std::vector<uint16_t> cells;
    for (int l = 0; l < kLines; l++)
        for (int c = 0; c < kCells; c++) cells.push_back(static_cast<uint16_t>(height(l, c)));
    std::ofstream(dir.file("heights"), std::ios::binary)
        .write(reinterpret_cast<const char *>(cells.data()),
               static_cast<std::streamsize>(cells.size() * 2));
    return header;
}

struct KernelDef {
    int type;
    int rows, columns;
    std::vector<double> weights;
    double scale, threshold;
};

const KernelDef kAverage{KT_Convolution, 3, 3, std::vector<double>(9, 1.0), 9, 0};
// Not symmetric in either direction, so that a row or column out of place shows.
const KernelDef kEmboss{KT_Convolution, 3, 3, {-2, -1, 0, -1, 1, 1, 0, 1, 3}, 2, 0};
const KernelDef kThreshold{KT_Threshold, 3, 5, {1, 2, 1, 2, 1, 0, 0, 0, 0, 0, 1, 2, 1, 2, 1},
                           12,           40};

std::string kernel_text(const KernelDef &k)
{
    std::string text = std::string("Kernel Begin\n\tType = ") +
                       (k.type == KT_Threshold ? "Threshold" : "Convolution") +
                       "\n\tRows = " + std::to_string(k.rows) +
                       "\n\tColumns = " + std::to_string(k.columns) + "\n\tArray = {";
    for (double w : k.weights) text += " " + std::to_string(w);
    text += " }\n\tScaleFactor = " + std::to_string(k.scale) + "\n";
    if (k.type == KT_Threshold) text += "\tThreshold = " + std::to_string(k.threshold) + "\n";
    return text + "Kernel End\n";
}

/* The whole dataset as doubles, and which cells are valid. */
struct Field {
    std::vector<double> value;
    std::vector<char> valid;
    double at(int l, int c) const { return value[static_cast<size_t>(l * kCells + c)]; }
    bool ok(int l, int c) const
    {
        return l >= 0 && l < kLines && c >= 0 && c < kCells &&
               valid[static_cast<size_t>(l * kCells + c)];
    }
};

Field dataset_field()
{
    Field f;
    for (int l = 0; l < kLines; l++)
        for (int c = 0; c < kCells; c++) {
            f.value.push_back(height(l, c));
            f.valid.push_back(1);
        }
    return f;
}

/* A kernel over the whole field: valid where its whole window is. */
Field apply(const Field &in, const KernelDef &k)
{
    Field out = in;
    const int hr = k.rows / 2, hc = k.columns / 2;
    for (int l = 0; l < kLines; l++)
        for (int c = 0; c < kCells; c++) {
            bool ok = true;
            double s = 0.0;
            for (int r = 0; r < k.rows; r++)
                for (int x = 0; x < k.columns; x++) {
                    ok = ok && in.ok(l - hr + r, c - hc + x);
                    if (ok)
                        s += k.weights[static_cast<size_t>(r * k.columns + x)] *
                             in.at(l - hr + r, c - hc + x);
                }
            const size_t i = static_cast<size_t>(l * kCells + c);
            out.valid[i] = ok;
            if (!ok) continue;
            s /= k.scale;
            if (k.type == KT_Threshold && std::fabs(s - in.at(l, c)) >= k.threshold)
                s = in.at(l, c);
            out.value[i] = s;
        }
    return out;
}

/* An algorithm of one stream over the heights, to doubles, with kernels on
 * the stream input and on the stream, and any lines for the stream. */
std::string write_alg(const TempDir &dir, int x0, int y0, int x1, int y1, int output_type,
                      const std::vector<KernelDef> &input_kernels,
                      const std::vector<KernelDef> &stream_kernels,
                      const std::string &stream_lines = "")
{
    AlgDoc doc;
    doc.tl_x = x0;
    doc.tl_y = y0;
    doc.br_x = x1;
    doc.br_y = y1;
    doc.width = x1 - x0;
    doc.height = y1 - y0;
    doc.output_type = output_type;
    doc.streams.push_back(StreamDoc{write_heights(dir), 1, "Heights"});
    std::string text = eng::alg_text(doc);
    auto insert_after = [&text](const std::string &mark, const std::string &what) {
        const size_t at = text.find(mark);
        ASSERT_NE(at, std::string::npos) << mark;
        text.insert(at + mark.size(), what);
    };
    std::string blocks;
    for (const KernelDef &k : input_kernels) blocks += kernel_text(k);
    insert_after("StreamInputID = 1\n", blocks);
    blocks.clear();
    for (const KernelDef &k : stream_kernels) blocks += kernel_text(k);
    insert_after("\t\t\tFormula End\n", blocks);
    insert_after("\t\t\tType = Pseudo\n", stream_lines);
    const std::string path = dir.file("kernels.alg");
    std::ofstream(path) << text;
    return path;
}

/* The algorithm opened and every line read, as doubles and runs. */
struct Result {
    std::string error;
    std::vector<std::vector<double>> lines;
    std::vector<std::vector<std::pair<int, int>>> runs;
};

void start_engine()
{
    setenv("VORLAN", VORLAN_SHARE_DIR, 0);
    setenv("VLN_MACHINE_TYPE", "linux", 0);
    EXPECT_EQ(PE_initialise("engine tests"), 0);
}

Result run_alg(const std::string &path, int width, int output_type)
{
    start_engine();
    Result result;
    algorithm *alg = nullptr;
    EXPECT_EQ(eg_algorithm_with_transients(&alg, path.c_str()), 0)
        << (VLD_error.text ? VLD_error.text : "");
    pe_context *pe = pe_create_context();
    if (alg != nullptr && init_alg(pe, alg) == 0) {
        pe_start_trees(pe);
        std::vector<double> cells(static_cast<size_t>(width) + 1);
        void *lines[] = {cells.data()};
        rlseg *runs[] = {nullptr};
        while (pe_read_lines(pe, 0, lines, runs) == 0) {
            std::vector<double> line;
            for (int i = 0; i < width; i++)
                line.push_back(vln_pe::cell_value(output_type, cells.data(), i));
            result.lines.push_back(line);
            result.runs.emplace_back();
            for (const rlseg *r = runs[0]; r != nullptr; r = r->next)
                result.runs.back().emplace_back(r->first, r->last);
        }
    }
    result.error = pe->error_text;
    pe_destroy_context(pe);
    ef_algorithm(alg);
    return result;
}

/* Checks the window (x0, y0) to (x1, y1) of a field, with nulls as 0. */
void expect_window(const Result &got, const Field &want, int x0, int y0, int x1, int y1)
{
    ASSERT_EQ(got.error, "");
    ASSERT_EQ(static_cast<int>(got.lines.size()), y1 - y0);
    for (int l = y0; l < y1; l++) {
        SCOPED_TRACE("line " + std::to_string(l));
        std::vector<std::pair<int, int>> runs;
        for (int c = x0; c < x1; c++) {
            if (!want.ok(l, c)) {
                EXPECT_EQ(got.lines[l - y0][c - x0], 0.0) << "null cell " << c;
                continue;
            }
            EXPECT_EQ(got.lines[l - y0][c - x0], want.at(l, c)) << "cell " << c;
            if (!runs.empty() && runs.back().second == c - x0 - 1)
                runs.back().second = c - x0;
            else
                runs.emplace_back(c - x0, c - x0);
        }
        EXPECT_EQ(got.runs[l - y0], runs);
    }
}

struct KernelCase {
    const char *name;
    int x0, y0, x1, y1;
    std::vector<KernelDef> input_kernels, stream_kernels;
};

TEST(EngineKernel, WindowsOfTheDatasetFilteredAsAWhole)
{
    const KernelCase cases[] = {
        {"average over the whole dataset: a null rim", 0, 0, kCells, kLines, {}, {kAverage}},
        {"average inside: margins from the dataset", 3, 2, 10, 9, {}, {kAverage}},
        {"average touching the top left edge", 0, 0, 6, 5, {}, {kAverage}},
        {"an input kernel", 0, 0, kCells, kLines, {kAverage}, {}},
        {"two stacked kernels, one cell from the edge",
         1,
         1,
         kCells,
         kLines,
         {},
         {kAverage, kEmboss}},
        {"input and stream kernels, inside", 2, 2, 12, 10, {kEmboss}, {kAverage}},
        {"a 3 by 5 threshold kernel, across the right edge", 4, 3, kCells, 9, {}, {kThreshold}},
    };
    for (const auto &k : cases) {
        SCOPED_TRACE(k.name);
        TempDir dir;
        const std::string path = write_alg(dir, k.x0, k.y0, k.x1, k.y1, IEEE8ByteReal,
                                           k.input_kernels, k.stream_kernels);
        Field want = dataset_field();
        for (const KernelDef &def : k.input_kernels) want = apply(want, def);
        for (const KernelDef &def : k.stream_kernels) want = apply(want, def);
        expect_window(run_alg(path, k.x1 - k.x0, IEEE8ByteReal), want, k.x0, k.y0, k.x1, k.y1);
    }
}

TEST(EngineKernel, SunShadingOfTheHeights)
{
    const double degree = 3.141592653589793 / 180.0;
    const double azimuth = 135 * degree, elevation = 40 * degree;
    TempDir dir;
    const std::string path = write_alg(dir, 0, 0, kCells, kLines, Unsigned8BitInteger, {}, {},
                                       "\t\t\tDoStaticShade = Yes\n\t\t\tSunAzimuth = 135:0:0.0\n"
                                       "\t\t\tSunAngle = 40:0:0.0\n");
    // The sun's unit vector: x east, y north, z up; azimuth clockwise from north.
    const double sun[3] = {std::cos(elevation) * std::sin(azimuth),
                           std::cos(elevation) * std::cos(azimuth), std::sin(elevation)};
    Field want = dataset_field();
    const Field heights = want;
    for (int l = 0; l < kLines; l++)
        for (int c = 0; c < kCells; c++) {
            const size_t i = static_cast<size_t>(l * kCells + c);
            want.valid[i] = l > 0 && l < kLines - 1 && c > 0 && c < kCells - 1;
            if (!want.valid[i]) continue;
            const double gx = heights.at(l, c + 1) - heights.at(l, c - 1);
            const double gy = heights.at(l - 1, c) - heights.at(l + 1, c);
            const double length = std::sqrt(gx * gx + gy * gy + 9.0);
            const double d = (-gx * sun[0] - gy * sun[1] + 3.0 * sun[2]) / length;
            want.value[i] = d < 0 ? 0 : std::trunc(std::min(d * 256, 255.0));
        }
    const Result got = run_alg(path, kCells, Unsigned8BitInteger);
    ASSERT_EQ(got.error, "");
    // The sun vector and the normal are worked out here in another order:
    // a brightness may differ by the last bit before truncation.
    ASSERT_EQ(static_cast<int>(got.lines.size()), kLines);
    for (int l = 0; l < kLines; l++)
        for (int c = 0; c < kCells; c++)
            if (want.ok(l, c))
                EXPECT_NEAR(got.lines[l][c], want.at(l, c), 1.0) << l << ", " << c;
            else
                EXPECT_EQ(got.lines[l][c], 0.0) << l << ", " << c;
    EXPECT_EQ(got.runs[0], (std::vector<std::pair<int, int>>{}));
    EXPECT_EQ(got.runs[5], (std::vector<std::pair<int, int>>{{1, kCells - 2}}));
}

TEST(EngineKernel, ABadKernelFailsTheOpen)
{
    TempDir dir;
    KernelDef zero_scale = kAverage;
    zero_scale.scale = 0;
    const std::string path = write_alg(dir, 0, 0, kCells, kLines, IEEE8ByteReal, {}, {zero_scale});
    EXPECT_EQ(run_alg(path, kCells, IEEE8ByteReal).error, "Kernel scalefactor is zero\n");
}

/* Whether a node of `type` stands in the tree. */
bool has_node(const funcnode *node, int type)
{
    if (node == nullptr) return false;
    if (node->type == type) return true;
    for (int i = 0; i < node->nr_inputs; i++)
        if (has_node(node->inputs[i].node, type)) return true;
    return false;
}

/* A shaded layer in each colour mode: a real-time shading surface records
 * directions in 16 bits, the others are sun-shaded; every line comes. */
TEST(EngineKernel, ShadedLayersInEveryColourMode)
{
    struct Row {
        const char *mode, *type;
        int shade_kind;
    };
    const Row rows[] = {{"RTSHADE", "Pseudo", FN_RTSHADE16},
                        {"PSEUDO", "Pseudo", FN_SHADE},
                        {"RGB", "Red", FN_SHADE}};
    for (const Row &row : rows) {
        SCOPED_TRACE(row.mode);
        TempDir dir;
        const std::string path = write_alg(dir, 0, 0, kCells, kLines, Unsigned8BitInteger, {}, {},
                                           "\t\t\tDoStaticShade = Yes\n");
        std::ifstream in(path);
        std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        text.replace(text.find("DATASET"), 7, row.mode);
        text.replace(text.find("Type = Pseudo"), 13, std::string("Type = ") + row.type);
        text.insert(text.find("\tOutputWidth"),
                    "\tDotsPerInchAcross = 72\n\tDotsPerInchDown = 72\n");
        std::ofstream(path) << text;
        start_engine();
        algorithm *alg = nullptr;
        ASSERT_EQ(eg_algorithm_with_transients(&alg, path.c_str()), 0);
        pe_context *pe = pe_create_context();
        ASSERT_EQ(init_alg(pe, alg), 0) << pe->error_text;
        EXPECT_TRUE(has_node(pe->raster_root, row.shade_kind));
        pe_start_trees(pe);
        std::vector<std::vector<char>> lines(16, std::vector<char>(kCells * 8 + 8));
        std::vector<void *> ptrs;
        for (auto &l : lines) ptrs.push_back(l.data());
        std::vector<rlseg *> runs(16, nullptr);
        int n = 0, status;
        while ((status = pe_read_lines(pe, 0, ptrs.data(), runs.data())) == 0) n++;
        EXPECT_EQ(status, -1) << pe->error_text;
        EXPECT_EQ(n, kLines);
        pe_destroy_context(pe);
        ef_algorithm(alg);
    }
}

}  // namespace
