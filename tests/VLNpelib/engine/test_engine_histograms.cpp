/* Histograms gathered by an open, against counts made here from the values
 * that the generated datasets hold; and the default algorithm of a dataset,
 * whose transform ends clipped where the data's construction says. */
#include <cmath>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "engine_fixture.h"
#include "vln_transform_ops.h"
#include "vln_vds.h"

namespace {

using eng::AlgDoc;
using eng::StreamDoc;
using eng::TempDir;

void start_engine()
{
    setenv("VORLAN", VORLAN_SHARE_DIR, 0);
    setenv("VLN_MACHINE_TYPE", "linux", 0);
    ASSERT_EQ(PE_initialise("engine tests"), 0);
}

transform *add_transform(stream *st, int type, int32_t id, double in0, double in1)
{
    transform *t = nullptr;
    EXPECT_EQ(df_transform(&t, type), 0);
    t->id = id;
    t->min_input = in0;
    t->max_input = in1;
    transform **at = &st->transforms;
    while (*at != nullptr) {
        t->prev = *at;
        at = &(*at)->next;
    }
    *at = t;
    return t;
}

/* The histogram of band `band` of a dataset of eng::value16 over a range. */
histogram count_band(int band, int cells, int lines, double in0, double in1)
{
    histogram h{};
    for (int l = 0; l < lines; l++)
        for (int c = 0; c < cells; c++) {
            const double v = eng::value16(band, l, c);
            h.nr_cells++;
            if (v < in0)
                h.below++;
            else if (v > in1)
                h.above++;
            else
                h.counts[static_cast<int>((v - in0) / (in1 - in0) * 255 + 0.5)]++;
        }
    return h;
}

TEST(EngineHistograms, EachTransformCountsTheValuesThatPassThroughIt)
{
    start_engine();
    TempDir dir;
    constexpr int kCells = 40, kLines = 30;
    const std::string data = eng::write_dataset(dir, "two", kCells, kLines, 2);
    AlgDoc doc;
    doc.br_x = kCells, doc.br_y = kLines;
    doc.width = kCells, doc.height = kLines;
    doc.streams = {{data, 1, "One"}, {data, 2, "Two"}};
    const std::string path = dir.file("h.alg");
    std::ofstream(path) << eng::alg_text(doc);
    algorithm *alg = nullptr;
    ASSERT_EQ(eg_algorithm_with_transients(&alg, path.c_str()), 0);
    stream *one = alg->surfaces->first_stream, *two = one->next;
    add_transform(one, TT_Linear, 11, 1000, 40000);
    add_transform(two, TT_HistogramOnly, 12, 0, 65535);
    add_transform(two, TT_Linear, 13, 5000, 9000);
    alg->calc_histograms = 1;

    char *errmsg = nullptr;
    Vds *vds = vds_open_alg_tods(alg, &errmsg, nullptr, nullptr);
    ASSERT_NE(vds, nullptr) << (errmsg != nullptr ? errmsg : "");
    std::vector<uint16_t> a(kCells), b(kCells);
    void *lines[2] = {a.data(), b.data()};
    for (int l = 0; l < kLines; l++) ASSERT_EQ(vds_read(vds, lines, nullptr, 0), 0);

    struct Want {
        int32_t id;
        histogram h;
    };
    const Want wants[] = {{11, count_band(0, kCells, kLines, 1000, 40000)},
                          {12, count_band(1, kCells, kLines, 0, 65535)},
                          {13, count_band(1, kCells, kLines, 5000, 9000)}};
    histogram **found = vds_get_histograms(vds);
    histogram **copies = vds_get_histograms_copy(vds);
    ASSERT_NE(found, nullptr);
    int n = 0;
    for (; found[n] != nullptr; n++) {
        const Want *want = nullptr;
        for (const Want &w : wants)
            if (w.id == found[n]->id) want = &w;
        ASSERT_NE(want, nullptr) << found[n]->id;
        EXPECT_EQ(found[n]->nr_cells, want->h.nr_cells);
        EXPECT_EQ(found[n]->below, want->h.below);
        EXPECT_EQ(found[n]->above, want->h.above);
        for (int k = 0; k < VLD_HIST_BUCKETS; k++)
            ASSERT_EQ(found[n]->counts[k], want->h.counts[k]) << want->id << " bucket " << k;
        ASSERT_NE(copies[n], nullptr);
        EXPECT_NE(copies[n], found[n]);
        EXPECT_EQ(std::memcmp(copies[n]->counts, found[n]->counts, sizeof found[n]->counts), 0);
    }
    EXPECT_EQ(n, 3);
    EXPECT_EQ(copies[n], nullptr);
    vds_free_histograms(copies);
    vds_close(&vds);
    EXPECT_EQ(vds_get_histograms_copy(nullptr), nullptr);
    ef_algorithm(alg);
}

/* ---------------------------------------------------------------- default algorithms */

struct ClipRow {
    const char *name;
    int cell_type;
    double cell_size;
    double low, high, middle_low, middle_high;  // the values of the data
    int bands = 1;
};

/* The data's ends in band `b`: each band is moved in by 100 from the last. */
double band_low(const ClipRow &row, int b)
{
    return row.low + 100 * b;
}
double band_high(const ClipRow &row, int b)
{
    return row.high - 100 * b;
}

/* A raster of 100 by 100 cells: in each band 50 cells at its low end, 50 at
 * its high end, the rest spread over middle_low to middle_high. */
std::string write_clip_dataset(const TempDir &dir, const ClipRow &row)
{
    const std::string header = dir.file("clip.vld");
    dshdr *d = nullptr;
    df_raster_dshdr(&d, header.c_str(), 100, 100, row.bands, row.cell_type);
    d->info.r.cellinfo.x_dimension = d->info.r.cellinfo.y_dimension = row.cell_size;
    EXPECT_EQ(ep_dshdr(d, header.c_str()), 0);
    ef_dshdr(d);
    std::string bytes;
    for (int line = 0; line < 100; line++)
        for (int b = 0; b < row.bands; b++)
            for (int cell = 0; cell < 100; cell++) {
                const int i = line * 100 + cell;
                double v =
                    row.middle_low + (row.middle_high - row.middle_low) * ((i * 37) % 9900) / 9899;
                if (i < 50) v = band_low(row, b);
                if (i >= 9950) v = band_high(row, b);
                const auto whole = static_cast<uint16_t>(std::lround(v));
                if (row.cell_type == Unsigned8BitInteger)
                    bytes.push_back(static_cast<char>(whole));
                else
                    bytes.append(reinterpret_cast<const char *>(&whole), 2);
            }
    std::ofstream(dir.file("clip"), std::ios::binary) << bytes;
    return header;
}

TEST(EngineHistograms, DefaultAlgorithmClipsItsTransformToTheData)
{
    start_engine();
    const ClipRow rows[] = {
        {"8-bit, the short cut", Unsigned8BitInteger, 25, 10, 250, 60, 200},
        {"16-bit, a transform node", Unsigned16BitInteger, 25, 1000, 61000, 5000, 50000},
        {"three bands, a layer each", Unsigned16BitInteger, 25, 1000, 61000, 5000, 50000, 3},
    };
    for (const ClipRow &row : rows) {
        SCOPED_TRACE(row.name);
        TempDir dir;
        const std::string path = write_clip_dataset(dir, row);
        algorithm *alg = nullptr;
        ASSERT_EQ(VLN_create_default_algorithm(&alg, path.c_str()), 0)
            << (VLD_error.text != nullptr ? VLD_error.text : "");
        int b = 0;
        for (const stream *st = first_stream_in_alg(alg); st != nullptr; st = st->next, b++) {
            SCOPED_TRACE(b);
            const transform *t = st->transforms;
            ASSERT_NE(t, nullptr);
            // The first pass finds the data's range; keeping 99 percent of it
            // cuts 0.5 percent, the 50 cells, at each end: one bucket of 255.
            const double low = band_low(row, b), span = band_high(row, b) - low;
            EXPECT_DOUBLE_EQ(t->min_input, low + span * (1 / 255.0));
            EXPECT_DOUBLE_EQ(t->max_input, low + span * (254 / 255.0));
            // The last pass clips nothing more: the ramp runs corner to corner.
            const auto *d = static_cast<const lineardef *>(t->definition);
            ASSERT_EQ(d->nr_points, 4);
            EXPECT_EQ(std::vector<double>(d->points, d->points + 8),
                      (std::vector<double>{0, 0, 0, 0, 1, 1, 1, 1}));
            ASSERT_NE(t->histogram, nullptr);
            EXPECT_EQ(t->histogram->invalid, 0);
            EXPECT_EQ(t->histogram->nr_cells, 10000u);
            EXPECT_EQ(t->histogram->below, 50u);
            EXPECT_EQ(t->histogram->above, 50u);
        }
        EXPECT_EQ(b, row.bands);
        ef_algorithm(alg);
    }
}

TEST(EngineHistograms, FineCellsAreShownUnclipped)
{
    start_engine();
    TempDir dir;
    const std::string path =
        write_clip_dataset(dir, {"fine", Unsigned8BitInteger, 1, 10, 250, 60, 200});
    algorithm *alg = nullptr;
    ASSERT_EQ(VLN_create_default_algorithm(&alg, path.c_str()), 0);
    const transform *t = first_stream_in_alg(alg)->transforms;
    EXPECT_EQ(t->min_input, 0.0);
    EXPECT_EQ(t->max_input, 255.0);
    EXPECT_EQ(t->histogram, nullptr);
    ef_algorithm(alg);
}

}  // namespace
