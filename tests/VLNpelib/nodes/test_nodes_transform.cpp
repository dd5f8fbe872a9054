// The transform node over scripted lines: each read routine (direct, the
// three tables, counting only) against values and histograms worked out
// here from the shape's definition, the edges of the input range, and the
// histogram of the 8-bit short cut.
#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <memory>
#include <vector>

#include "node_harness.h"
#include "vln_transform_ops.h"

namespace {

using node_test::Harness;
using node_test::Line;
using node_test::Runs;
using node_test::Script;

struct TransformDeleter {
    void operator()(transform *t) const { ef_transform(t); }
};
using TransformPtr = std::unique_ptr<transform, TransformDeleter>;

/* A transform of `type` over the given ranges; a linear one takes `points`. */
TransformPtr make_transform(int type, double in0, double in1, double out0, double out1,
                            std::vector<double> points = {0, 0, 1, 1})
{
    transform *t = nullptr;
    EXPECT_EQ(df_transform(&t, type), 0);
    t->id = 7;
    t->min_input = in0, t->max_input = in1, t->min_output = out0, t->max_output = out1;
    if (type == TT_Linear) {
        auto *d = static_cast<lineardef *>(t->definition);
        safe_free(d->points);
        d->nr_points = static_cast<int>(points.size() / 2);
        d->points = static_cast<double *>(malloc_or_die(points.size() * sizeof(double)));
        for (size_t i = 0; i < points.size(); i++) d->points[i] = points[i];
    }
    calc_scaled_any(t);
    return TransformPtr(t);
}

/* The shape of `t` at a value held to its input range, from its unit-square
 * definition. */
double expected_value(const transform *t, double v)
{
    v = std::fmin(std::fmax(v, t->min_input), t->max_input);
    const double x = (v - t->min_input) / (t->max_input - t->min_input);
    double y = 0;
    if (t->type == TT_Linear) {
        const auto *d = static_cast<const lineardef *>(t->definition);
        for (int i = 0; i + 1 < d->nr_points; i++) {
            const double *p = d->points + 2 * i;
            if (p[2] > p[0] && x <= p[2]) {
                y = p[1] + (p[3] - p[1]) * (x - p[0]) / (p[2] - p[0]);
                break;
            }
        }
    } else if (t->type == TT_Exponential) {
        const auto *e = static_cast<const expdef *>(t->definition);
        y = e->b * std::exp(e->a * x) + e->c;
    } else {
        const auto *l = static_cast<const logdef *>(t->definition);
        y = l->b * std::log(x + l->a) + l->c;
    }
    return t->min_output + y * (t->max_output - t->min_output);
}

/* The histogram of `values` within `runs`, counted here. */
histogram expected_histogram(const transform *t, const std::vector<double> &values,
                             const Runs &runs)
{
    histogram h{};
    h.min_value = DBL_MAX, h.max_value = -DBL_MAX;
    for (auto [first, last] : runs)
        for (int i = first; i <= last; i++) {
            const double v = values[i];
            h.nr_cells++;
            h.min_value = std::fmin(h.min_value, v);
            h.max_value = std::fmax(h.max_value, v);
            if (v < t->min_input)
                h.below++;
            else if (v > t->max_input)
                h.above++;
            else
                h.counts[static_cast<int>((v - t->min_input) / (t->max_input - t->min_input) * 255 +
                                          0.5)]++;
        }
    return h;
}

std::vector<histogram *> histograms_of(funcnode *root)
{
    std::vector<histogram *> found;
    collect_hist(
        root,
        [](void *arg, histogram *h) { static_cast<std::vector<histogram *> *>(arg)->push_back(h); },
        &found);
    return found;
}

void expect_same_histogram(const histogram &got, const histogram &want)
{
    EXPECT_EQ(got.nr_cells, want.nr_cells);
    EXPECT_EQ(got.below, want.below);
    EXPECT_EQ(got.above, want.above);
    for (int b = 0; b < VLD_HIST_BUCKETS; b++) ASSERT_EQ(got.counts[b], want.counts[b]) << b;
}

/* ---------------------------------------------------------------- read routines */

struct ModeRow {
    const char *name;
    int input_type;
    int type;
    int request;
    bool tables;
    int output_type;
};

/* One stream through the node: the cells of every run as the definition says
 * (rounded and held to 8 bits by the byte tables), and the histogram. */
TEST(NodesTransform, EveryReadRoutineMapsAndCountsItsRuns)
{
    const ModeRow rows[] = {
        {"direct, 8-bit input", Unsigned8BitInteger, TT_Linear, 0, false, IEEE8ByteReal},
        {"direct, 16-bit input", Unsigned16BitInteger, TT_Linear, 0, false, IEEE8ByteReal},
        {"direct, doubles in place", IEEE8ByteReal, TT_Linear, 0, false, IEEE8ByteReal},
        {"direct, exponential", Unsigned16BitInteger, TT_Exponential, 0, true, IEEE8ByteReal},
        {"direct, logarithmic", IEEE4ByteReal, TT_Logarithmic, 0, false, IEEE8ByteReal},
        {"8-bit to 8-bit table", Unsigned8BitInteger, TT_Linear, Unsigned8BitInteger, true,
         Unsigned8BitInteger},
        {"8-bit to double table", Unsigned8BitInteger, TT_Exponential, 0, true, IEEE8ByteReal},
        {"8-bit to double table, request ignored", Unsigned8BitInteger, TT_Linear, IEEE4ByteReal,
         true, IEEE8ByteReal},
        {"double through 8-bit table", Unsigned16BitInteger, TT_Linear, Unsigned8BitInteger, true,
         Unsigned8BitInteger},
    };
    // Inputs from 10 to 200, with a bend at the middle; cells below, at and
    // above both ends, and one null run between.
    const std::vector<double> values = {0, 9, 10, 11, 50, 105, 150, 199, 200, 201, 250, 77, 33};
    const Runs runs = {{0, 10}, {12, 12}};
    for (const ModeRow &row : rows) {
        SCOPED_TRACE(row.name);
        Harness h;
        algorithm alg{};
        alg.calc_histograms = 1;
        alg.do_optimisation = row.tables;
        h.pe->alg = &alg;
        TransformPtr t = make_transform(row.type, 10, 200, 0, 100, {0, 0, 0.5, 0.25, 1, 1});
        Script script(row.input_type, {{values, runs}});
        funcnode *tree = node_test::make_source(h.pe, &script);
        setup_transformnode(&tree, h.pe, nullptr, t.get(), 13, row.request);
        h.build(tree, 13, PE_ALLOC_RECORDS);
        ASSERT_EQ(h.top()->cell_type, row.output_type);
        const Line line = h.read();
        EXPECT_EQ(line.runs, runs);
        // (The table of 256 input steps has a test of its own.)
        const bool stepped = row.input_type != Unsigned8BitInteger && row.request != 0;
        for (auto [first, last] : runs)
            for (int i = first; i <= last && !stepped; i++) {
                const double want = expected_value(t.get(), values[i]);
                if (row.output_type == Unsigned8BitInteger)
                    EXPECT_EQ(line.values[i], std::floor(want + 0.5)) << "cell " << i;
                else
                    EXPECT_NEAR(line.values[i], want, 1e-9 * (1 + std::fabs(want))) << "cell " << i;
            }
        const auto found = histograms_of(h.root);
        ASSERT_EQ(found.size(), 1u);
        EXPECT_EQ(found[0]->id, 7);
        expect_same_histogram(*found[0], expected_histogram(t.get(), values, runs));
    }
}

/* Through a table of 256 input steps: below the range entry 0, above it
 * entry 255, else the entry of the bucket; the entries truncate. */
TEST(NodesTransform, DoublesThroughTheByteTableTakeTheEntryOfTheirBucket)
{
    Harness h;
    algorithm alg{};
    alg.do_optimisation = 1;
    h.pe->alg = &alg;
    // A bend with slopes 0.5 and 1.5 over 0..255: every entry is exact.
    TransformPtr t = make_transform(TT_Linear, 0, 255, 0, 255, {0, 0, 0.5, 0.25, 1, 1});
    std::vector<double> values;
    for (int v = 0; v < 300; v += 3) values.push_back(v);
    const int n = static_cast<int>(values.size());
    Script script(Unsigned16BitInteger, {{values, {{0, n - 1}}}});
    funcnode *tree = node_test::make_source(h.pe, &script);
    setup_transformnode(&tree, h.pe, nullptr, t.get(), n, Unsigned8BitInteger);
    h.build(tree, n, PE_ALLOC_LINES);
    const Line line = h.read();
    for (int i = 0; i < n; i++) {
        const int bucket = values[i] > 255 ? 255 : static_cast<int>(values[i]);
        EXPECT_EQ(line.values[i], std::floor(expected_value(t.get(), bucket) + 1e-9)) << values[i];
    }
}

/* ---------------------------------------------------------------- edges */

TEST(NodesTransform, DirectCalculationKeepsWhatTheTablesHoldTo8Bits)
{
    // b 0.01 takes the curve to about 2.4 times the output range at x 1.
    for (bool tables : {false, true}) {
        SCOPED_TRACE(tables ? "table" : "direct");
        Harness h;
        algorithm alg{};
        alg.do_optimisation = tables;
        h.pe->alg = &alg;
        TransformPtr t = make_transform(TT_Exponential, 0, 255, 0, 200);
        auto *e = static_cast<expdef *>(t->definition);
        e->b = 0.01, e->c = -0.01;
        calc_scaled_any(t.get());
        Script script(Unsigned8BitInteger, {{{255, 0}, {{0, 1}}}});
        funcnode *tree = node_test::make_source(h.pe, &script);
        setup_transformnode(&tree, h.pe, nullptr, t.get(), 2, Unsigned8BitInteger);
        h.build(tree, 2, PE_ALLOC_RECORDS);
        const Line line = h.read();
        const double want = expected_value(t.get(), 255);
        ASSERT_GT(want, 255.0);
        EXPECT_NEAR(line.values[0], tables ? 255.0 : want, 1e-9 * want);
    }
}

TEST(NodesTransform, EndsOfTheInputRangeAndInfinities)
{
    Harness h;
    algorithm alg{};
    alg.calc_histograms = 1;
    h.pe->alg = &alg;
    TransformPtr t = make_transform(TT_Linear, 1, 2, 0, 1);
    // Kept: negative infinity turns tiny and positive, and so falls below 1.
    const std::vector<double> values = {2, 1, -HUGE_VAL, HUGE_VAL, 1.5};
    Script script(IEEE8ByteReal, {{values, {{0, 4}}}});
    funcnode *tree = node_test::make_source(h.pe, &script);
    setup_transformnode(&tree, h.pe, nullptr, t.get(), 5, 0);
    h.build(tree, 5, PE_ALLOC_RECORDS);
    const Line line = h.read();
    EXPECT_EQ(line.values, (std::vector<double>{1, 0, 0, 1, 0.5}));
    const histogram &hist = *histograms_of(h.root).at(0);
    EXPECT_EQ(hist.counts[255], 1u);  // the maximum itself
    EXPECT_EQ(hist.counts[0], 1u);
    EXPECT_EQ(hist.counts[128], 1u);
    EXPECT_EQ(hist.below, 1u);
    EXPECT_EQ(hist.above, 1u);
    EXPECT_EQ(hist.min_value, DBL_MIN);
    EXPECT_EQ(hist.max_value, DBL_MAX);
}

TEST(NodesTransform, LineWithoutRunsCountsAndChangesNothing)
{
    for (int input_type : {Unsigned8BitInteger, IEEE8ByteReal}) {
        Harness h;
        algorithm alg{};
        alg.calc_histograms = 1;
        alg.do_optimisation = 1;
        h.pe->alg = &alg;
        TransformPtr t = make_transform(TT_Linear, 0, 255, 0, 10);
        Script script(input_type, {{{5, 6, 7}, {}}});
        funcnode *tree = node_test::make_source(h.pe, &script);
        setup_transformnode(&tree, h.pe, nullptr, t.get(), 3, Unsigned8BitInteger);
        h.build(tree, 3, PE_ALLOC_RECORDS);
        const Line line = h.read();
        EXPECT_TRUE(line.runs.empty());
        if (input_type != Unsigned8BitInteger)  // the parent's line is untouched
            for (int i = 0; i < 3; i++) EXPECT_EQ(h.target_byte(i), 0xEE);
        const histogram &hist = *histograms_of(h.root).at(0);
        EXPECT_EQ(hist.nr_cells, 0u);
        for (uint32_t c : hist.counts) EXPECT_EQ(c, 0u);
    }
}

TEST(NodesTransform, WhichTransformsMakeANode)
{
    struct Row {
        int type;
        int collect;
        bool node;
    };
    const Row rows[] = {
        {TT_HistogramOnly, 0, false}, {TT_HistogramOnly, 1, true}, {TT_Linear, 0, true}};
    for (const Row &row : rows) {
        Harness h;
        algorithm alg{};
        alg.calc_histograms = row.collect;
        h.pe->alg = &alg;
        TransformPtr t = make_transform(row.type, 0, 255, 0, 255);
        Script script(Unsigned8BitInteger, {{{3, 4}, {{0, 1}}}});
        funcnode *source = node_test::make_source(h.pe, &script);
        funcnode *tree = source;
        setup_transformnode(&tree, h.pe, nullptr, t.get(), 2, 0);
        EXPECT_EQ(tree != source, row.node) << row.type << "/" << row.collect;
    }
    Harness h;
    TransformPtr t = make_transform(TT_Linear, 0, 255, 0, 255);
    t->type = TT_Null;
    funcnode *tree = nullptr;
    EXPECT_FALSE(
        vln_pe::guarded(h.pe, [&] { setup_transformnode(&tree, h.pe, nullptr, t.get(), 2, 0); }));
    EXPECT_NE(std::string(h.pe->error_text).find("Bad transform type"), std::string::npos);
    t->type = TT_Linear;  // its shape is freed by its own type
}

/* HistogramOnly on 8-bit cells counts raw values and passes the line on; the
 * buckets come when the histogram is collected. */
TEST(NodesTransform, RawCountsBecomeTheHistogramWhenCollected)
{
    for (bool tables : {false, true}) {
        SCOPED_TRACE(tables ? "raw counts" : "doubles");
        Harness h;
        algorithm alg{};
        alg.calc_histograms = 1;
        alg.do_optimisation = tables;
        h.pe->alg = &alg;
        TransformPtr t = make_transform(TT_HistogramOnly, 20, 120, 0, 255);
        std::vector<double> values;
        for (int v = 0; v < 256; v += 5) values.push_back(v);
        const int n = static_cast<int>(values.size());
        const Runs runs = {{0, n / 2}, {n / 2 + 2, n - 1}};
        Script script(Unsigned8BitInteger, {{values, runs}});
        funcnode *tree = node_test::make_source(h.pe, &script);
        setup_transformnode(&tree, h.pe, nullptr, t.get(), n, 0);
        h.build(tree, n, PE_ALLOC_RECORDS);
        EXPECT_EQ(h.top()->cell_type, Unsigned8BitInteger);
        const long allocations = h.pe->pool_allocations;
        for (int r = 0; r < 3; r++) {
            const Line line = h.read();
            for (int i = 0; i < n; i++) ASSERT_EQ(line.values[i], values[i]);
        }
        EXPECT_EQ(h.pe->pool_allocations, allocations);
        histogram want = expected_histogram(t.get(), values, runs);
        want.nr_cells *= 3, want.below *= 3, want.above *= 3;
        for (uint32_t &c : want.counts) c *= 3;
        const histogram &got = *histograms_of(h.root).at(0);
        expect_same_histogram(got, want);
        EXPECT_EQ(got.min_value, 0.0);
        EXPECT_EQ(got.max_value, 255.0);
    }
}

/* The short cut folds the stream's transform into its table and counts the
 * values of the runs. */
TEST(NodesTransform, ShortCutFoldsTheTransformAndGathersItsHistogram)
{
    Harness h;
    algorithm alg{};
    alg.calc_histograms = 1;
    h.pe->alg = &alg;
    TransformPtr t = make_transform(TT_Linear, 50, 150, 0, 200);
    stream st{};
    st.transforms = t.get();
    surface surf{};
    surf.color_mode = CM_PSEUDO;
    pe_stream ps{};
    ps.stream = &st;
    ps.surface = &surf;
    ps.proc_cells = 6;
    const std::vector<double> values = {0, 50, 100, 150, 200, 125};
    const Runs runs = {{0, 4}};
    Script script(Unsigned8BitInteger, {{values, runs}});
    funcnode *tree = node_test::make_source(h.pe, &script);
    setup_optim_node(&tree, h.pe, &ps);
    h.build(tree, 6, PE_ALLOC_RECORDS);
    const Line line = h.read();
    for (int i = 0; i < 6; i++)
        EXPECT_EQ(line.values[i], std::floor(expected_value(t.get(), values[i]) + 0.5)) << i;
    const auto found = histograms_of(h.root);
    ASSERT_EQ(found.size(), 1u);
    expect_same_histogram(*found[0], expected_histogram(t.get(), values, runs));
}

}  // namespace
