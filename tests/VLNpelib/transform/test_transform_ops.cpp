// Editing transforms: clip points and limits, the marking of stale
// histograms, simplification, steps and scrolling, composition and inverses,
// equalising and matching, chains, curves through a point. Each case is a
// record built here and the result its definition gives.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "vln_transform_ops.h"

namespace {

using Points = std::vector<double>;

struct TransformDeleter {
    void operator()(transform *t) const { ef_transform(t); }
};
using TransformPtr = std::unique_ptr<transform, TransformDeleter>;

TransformPtr linear(Points points, double in0 = 0, double in1 = 255, double out0 = 0,
                    double out1 = 255)
{
    transform *t = nullptr;
    EXPECT_EQ(df_transform(&t, TT_Linear), 0);
    t->min_input = in0, t->max_input = in1, t->min_output = out0, t->max_output = out1;
    auto *d = static_cast<lineardef *>(t->definition);
    safe_free(d->points);
    d->nr_points = static_cast<int>(points.size() / 2);
    d->points = static_cast<double *>(malloc_or_die(points.size() * sizeof(double)));
    for (size_t i = 0; i < points.size(); i++) d->points[i] = points[i];
    return TransformPtr(t);
}

Points points_of(const transform *t)
{
    const auto *d = static_cast<const lineardef *>(t->definition);
    return Points(d->points, d->points + 2 * d->nr_points);
}

/* Gives `t` a valid histogram with the given bucket counts. */
histogram *give_histogram(transform *t, std::vector<std::pair<int, uint32_t>> counts,
                          uint32_t below = 0, uint32_t above = 0)
{
    ea_histogram(&t->histogram);
    histogram *h = t->histogram;
    for (auto [bucket, n] : counts) {
        h->counts[bucket] += n;
        h->nr_cells += n;
    }
    h->below = below, h->above = above;
    h->nr_cells += below + above;
    return h;
}

void expect_points_near(const Points &got, const Points &want, double tolerance = 1e-12)
{
    ASSERT_EQ(got.size(), want.size());
    for (size_t i = 0; i < got.size(); i++) EXPECT_NEAR(got[i], want[i], tolerance) << "at " << i;
}

/* ---------------------------------------------------------------- clipping */

TEST(TransformOps, ClipPointsScanFromBothEnds)
{
    struct Row {
        const char *name;
        std::vector<std::pair<int, uint32_t>> counts;
        uint32_t below, above;
        double percent, low, high;
    };
    const Row rows[] = {
        {"nothing consumed at 0 percent", {{0, 10}, {255, 10}}, 0, 0, 0, 0, 1},
        // 50 of 100: the lower scan stops after bucket 10, the upper before it.
        {"uneven by one bucket", {{10, 100}}, 0, 0, 50, 11 / 255.0, 9 / 255.0},
        {"one bucket each way", {{0, 5}, {100, 90}, {255, 5}}, 0, 0, 5, 1 / 255.0, 254 / 255.0},
        // Cells outside the range don't count: k is 5 of the 100 inside.
        {"outside cells left out", {{3, 5}, {100, 95}}, 400, 500, 5, 4 / 255.0, 99 / 255.0},
        {"everything consumed", {{7, 1}}, 0, 0, 100, 8 / 255.0, 6 / 255.0},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.name);
        TransformPtr t = linear({0, 0, 1, 1});
        give_histogram(t.get(), row.counts, row.below, row.above);
        double low = -1, high = -1;
        ASSERT_EQ(calc_clip_points(t.get(), row.percent, &low, &high), 0);
        EXPECT_DOUBLE_EQ(low, row.low);
        EXPECT_DOUBLE_EQ(high, row.high);
    }
}

TEST(TransformOps, OperationsOnHistogramsRefuseWithoutAValidOne)
{
    TransformPtr t = linear({0, 0, 1, 1});
    double low = 0, high = 0;
    EXPECT_EQ(calc_clip_points(t.get(), 5, &low, &high), VLD_ERR_NO_HISTOGRAM);
    EXPECT_EQ(histogram_equalise(t.get(), 8, 0), VLD_ERR_NO_HISTOGRAM);
    give_histogram(t.get(), {{4, 4}})->invalid = 1;
    EXPECT_EQ(trans_set_limits_actual(t.get(), nullptr), VLD_ERR_HISTOGRAM_OUT_OF_DATE);
    EXPECT_EQ(autoclip_trans(t.get(), 5), VLD_ERR_HISTOGRAM_OUT_OF_DATE);
    // A shape that isn't linear is refused first, and nothing changes.
    transform *e = nullptr;
    ASSERT_EQ(df_transform(&e, TT_Exponential), 0);
    TransformPtr exp_t(e);
    give_histogram(e, {{4, 4}});
    EXPECT_EQ(autoclip_trans(e, 5), VLD_ERR_PIECEWISE_REQUIRED);
    EXPECT_EQ(gaussian_equalise(e, 8, 1, 0.5, 0.2), VLD_ERR_PIECEWISE_REQUIRED);
    EXPECT_EQ(e->type, TT_Exponential);
    EXPECT_EQ(points_of(t.get()), (Points{0, 0, 1, 1}));
}

TEST(TransformOps, AutoclipMakesTheRampBetweenTheClipPoints)
{
    TransformPtr t = linear({0, 0, 0.3, 0.9, 1, 1});
    give_histogram(t.get(), {{0, 5}, {100, 90}, {255, 5}});
    ASSERT_EQ(autoclip_trans(t.get(), 5), 0);
    EXPECT_EQ(points_of(t.get()), (Points{0, 0, 1 / 255.0, 0, 254 / 255.0, 1, 1, 1}));
}

TEST(TransformOps, LimitsFromTheHistogram)
{
    struct Row {
        const char *name;
        double percent;  // < 0: the actual range
        double min_value, max_value;
        double min_input, max_input;
    };
    // Input 100..355; buckets 0 and 255 hold 5 cells each of 100.
    const Row rows[] = {
        {"actual", -1, 120, 300, 120, 300},
        {"actual, equal values moved apart", -1, 7, 7, 6, 8},
        {"keeping 90 percent cuts a bucket each end", 90, 0, 0, 101, 354},
        {"100 keeps everything", 100, 0, 0, 100, 355},
        {"0.05 counts as 100", 0.05, 0, 0, 100, 355},
        {"above 100 counts as 100", 250, 0, 0, 100, 355},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.name);
        TransformPtr t = linear({0, 0, 1, 1}, 100, 355);
        histogram *h = give_histogram(t.get(), {{0, 5}, {100, 90}, {255, 5}});
        h->min_value = row.min_value, h->max_value = row.max_value;
        const int status = row.percent < 0
                               ? trans_set_limits_actual(t.get(), nullptr)
                               : trans_set_limits_percent(t.get(), nullptr, row.percent);
        ASSERT_EQ(status, 0);
        EXPECT_DOUBLE_EQ(t->min_input, row.min_input);
        EXPECT_DOUBLE_EQ(t->max_input, row.max_input);
        EXPECT_EQ(t->min_output, 0.0);
        EXPECT_EQ(t->max_output, 255.0);
    }
}

/* ---------------------------------------------------------------- stale histograms */

TEST(TransformOps, ChangesMarkTheHistogramsTheyMakeStale)
{
    struct Row {
        const char *name;
        double limits[4];
        int status;
        std::vector<int> invalid;  // of the chain a, b, c
    };
    const Row rows[] = {
        {"input range: from the transform on", {10, 200, 0, 255}, 0, {0, 1, 1}},
        {"output range only: from the next on", {0, 255, 5, 250}, 0, {0, 0, 1}},
        {"nothing changed", {0, 255, 0, 255}, 0, {0, 0, 0}},
        {"a minimum not below its maximum", {10, 10, 0, 255}, -1, {0, 0, 0}},
        {"crossed output", {0, 255, 9, 3}, -1, {0, 0, 0}},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.name);
        TransformPtr a = linear({0, 0, 1, 1}), b = linear({0, 0, 1, 1}), c = linear({0, 0, 1, 1});
        a->next = b.get(), b->prev = a.get(), b->next = c.get(), c->prev = b.get();
        for (transform *t : {a.get(), b.get(), c.get()}) give_histogram(t, {{1, 1}});
        EXPECT_EQ(trans_set_limits(b.get(), nullptr, row.limits[0], row.limits[1], row.limits[2],
                                   row.limits[3]),
                  row.status);
        EXPECT_EQ(
            (std::vector<int>{a->histogram->invalid, b->histogram->invalid, c->histogram->invalid}),
            row.invalid);
        a->next = b->next = nullptr;  // each is freed alone
    }
}

TEST(TransformOps, AnInputChainMarksTheOutputChainToo)
{
    TransformPtr in = linear({0, 0, 1, 1}), out = linear({0, 0, 1, 1});
    streaminput input{};
    input.transforms = in.get();
    stream st{};
    st.stream_inputs = &input;
    st.transforms = out.get();
    give_histogram(in.get(), {{1, 1}});
    give_histogram(out.get(), {{1, 1}});
    EXPECT_EQ(mark_histograms_invalid(out.get(), &st), 1);
    EXPECT_EQ(in->histogram->invalid, 0);
    out->histogram->invalid = 0;
    EXPECT_EQ(mark_histograms_invalid(in.get(), &st), 1);
    EXPECT_EQ(out->histogram->invalid, 1);
    EXPECT_EQ(mark_histograms_invalid(in.get(), &st), 0);  // nothing left to change
    in->histogram->invalid = out->histogram->invalid = 0;
    EXPECT_EQ(mark_all_histograms_invalid(&st), 1);
    EXPECT_EQ(in->histogram->invalid + out->histogram->invalid, 2);
}

/* ---------------------------------------------------------------- simplifying */

TEST(TransformOps, PointTests)
{
    struct Row {
        Points p;
        int in_line, clustered;
    };
    const Row rows[] = {
        {{0, 0, 0.5, 0.5, 1, 1}, 1, 0},     {{0, 0, 0.5, 0.51, 1, 1}, 1, 0},  // under 1.5 degrees
        {{0, 0, 0.5, 0.6, 1, 1}, 0, 0},     {{0.5, 0, 0.5, 0.3, 0.5, 1}, 1, 0},  // a vertical step
        {{0, 0.2, 0.4, 0.2, 1, 0.2}, 1, 0},                                      // level
        {{0, 0, 0, 0, 1, 0.7}, 1, 1},                                            // a repeated point
        {{0, 0, 0.005, 0.5, 1, 0.2}, 0, 0}, {{0, 0, 0.995, 0.995, 1, 1}, 1, 1},
    };
    for (const Row &row : rows) {
        const double *p = row.p.data();
        EXPECT_EQ(trans_three_points_in_line(p, p + 2, p + 4), row.in_line) << p[2] << "," << p[3];
        EXPECT_EQ(trans_two_points_clustered(p, p + 2, p + 4), row.clustered)
            << p[2] << "," << p[3];
    }
}

TEST(TransformOps, ScrapLinesDropsPointsThatAddNothing)
{
    struct Row {
        const char *name;
        Points in, out;
    };
    const Row rows[] = {
        {"two points stay", {0, 0, 1, 1}, {0, 0, 1, 1}},
        {"points on one line", {0, 0, 0.25, 0.25, 0.5, 0.5, 1, 1}, {0, 0, 1, 1}},
        {"a bend stays", {0, 0, 0.5, 0.2, 1, 1}, {0, 0, 0.5, 0.2, 1, 1}},
        {"a cluster goes", {0, 0, 0.5, 0.2, 0.505, 0.205, 1, 1}, {0, 0, 0.505, 0.205, 1, 1}},
        {"a repeated first point goes", {0, 0, 0, 0.3, 1, 1}, {0, 0.3, 1, 1}},
        {"a repeated last point goes", {0, 0, 1, 0.4, 1, 1}, {0, 0, 1, 0.4}},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.name);
        TransformPtr t = linear(row.in);
        ASSERT_EQ(trans_scrap_lines(t.get()), 0);
        EXPECT_EQ(points_of(t.get()), row.out);
    }
    TransformPtr t = linear({0, 0, 0.5, 0.2, 1, 1});
    EXPECT_EQ(trans_scrap_a_point(t.get(), 1), 0);
    EXPECT_EQ(points_of(t.get()), (Points{0, 0, 1, 1}));
    EXPECT_NE(trans_scrap_a_point(t.get(), 0), 0);  // two points are the least
}

/* ---------------------------------------------------------------- steps and scrolling */

TEST(TransformOps, StaircasesAndScrolls)
{
    TransformPtr t = linear({0, 0, 1, 1});
    ASSERT_EQ(trans_step(t.get(), 1), 0);
    EXPECT_EQ(points_of(t.get()), (Points{0, 0.5, 1, 0.5}));
    ASSERT_EQ(trans_step(t.get(), 3), 0);
    expect_points_near(points_of(t.get()),
                       {0, 0, 1 / 3.0, 0, 1 / 3.0, 0.5, 2 / 3.0, 0.5, 2 / 3.0, 1, 1, 1});

    struct Row {
        const char *name;
        Points in;
        double amount;
        Points out;
    };
    const Row rows[] = {
        {"right: the left end stays level", {0, 0, 1, 1}, 0.5, {0, 0, 0.5, 0, 1, 0.5}},
        {"left: the right end stays level", {0, 0, 1, 1}, -0.25, {0, 0.25, 0.75, 1, 1, 1}},
        {"whole turns come off", {0, 0, 1, 1}, 2.5, {0, 0, 0.5, 0, 1, 0.5}},
        {"a bend leaves", {0, 0, 0.2, 0.8, 1, 1}, -0.4, {0, 0.85, 0.6, 1, 1, 1}},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.name);
        TransformPtr s = linear(row.in);
        ASSERT_EQ(trans_scroll(s.get(), row.amount), 0);
        expect_points_near(points_of(s.get()), row.out);
    }
}

/* ---------------------------------------------------------------- composing and inverting */

TEST(TransformOps, CompositionSamplesTheSecondAfterTheFirst)
{
    // A bend after the identity is the bend; a bend after its inverse is the
    // identity, within the sampling.
    TransformPtr bend = linear({0, 0, 0.5, 0.2, 1, 1}, 10, 20, 0, 100);
    TransformPtr identity = linear({0, 0, 1, 1}, 0, 100, 0, 50);
    TransformPtr result = linear({0, 0, 1, 1});
    ASSERT_EQ(combine_two_trans(result.get(), bend.get(), identity.get()), 0);
    EXPECT_EQ(result->min_input, 10.0);
    EXPECT_EQ(result->max_output, 100.0);
    expect_points_near(points_of(result.get()),
                       {0, 0, 0.501002004008016, 0.20160320641282565, 1, 1}, 1e-3);
    transform *inverse = nullptr;
    ASSERT_EQ(eg_undo_trans(&inverse, bend.get()), 0);
    TransformPtr owned(inverse);
    ASSERT_EQ(combine_two_trans(result.get(), bend.get(), inverse), 0);
    expect_points_near(points_of(result.get()), {0, 0, 1, 1});
    transform *e = nullptr;
    df_transform(&e, TT_Exponential);
    TransformPtr not_linear(e);
    EXPECT_EQ(combine_two_trans(result.get(), bend.get(), e), VLD_ERR_PIECEWISE_REQUIRED);
}

TEST(TransformOps, InversesSwapRangesAndShapes)
{
    struct Row {
        const char *name;
        Points in, out;
        int decreasing;
    };
    const Row rows[] = {
        {"rising", {0, 0, 0.4, 0.8, 1, 1}, {0, 0, 0.8, 0.4, 1, 1}, 0},
        {"falling, reversed with level ends", {0, 1, 1, 0}, {0, 1, 0, 1, 1, 0, 1, 0}, 1},
        {"falling short of the corners", {0, 0.8, 1, 0.3}, {0, 1, 0.3, 1, 0.8, 0, 1, 0}, 1},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.name);
        TransformPtr t = linear(row.in, 1, 2, 30, 40);
        EXPECT_EQ(trans_is_decreasing(t.get()), row.decreasing);
        transform *inverse = nullptr;
        ASSERT_EQ(eg_undo_trans(&inverse, t.get()), 0);
        TransformPtr owned(inverse);
        EXPECT_EQ(inverse->min_input, 30.0);
        EXPECT_EQ(inverse->max_output, 2.0);
        EXPECT_EQ(points_of(inverse), row.out);
    }

    // An exponential's inverse is a logarithmic curve and back.
    transform *e = nullptr;
    ASSERT_EQ(df_transform(&e, TT_Exponential), 0);
    TransformPtr exp_t(e);
    e->min_input = 5, e->max_input = 50, e->min_output = 1, e->max_output = 3;
    calc_scaled_any(e);
    transform *log_t = nullptr, *back = nullptr;
    ASSERT_EQ(eg_undo_trans(&log_t, e), 0);
    TransformPtr owned_log(log_t);
    ASSERT_EQ(log_t->type, TT_Logarithmic);
    ASSERT_EQ(eg_undo_trans(&back, log_t), 0);
    TransformPtr owned_back(back);
    const auto *x = static_cast<const expdef *>(e->definition);
    const auto *y = static_cast<const expdef *>(back->definition);
    EXPECT_NEAR(y->a, x->a, 1e-12);
    EXPECT_NEAR(y->b, x->b, 1e-12);
    EXPECT_NEAR(y->c, x->c, 1e-12);
    EXPECT_NEAR(y->b_scaled, x->b_scaled, 1e-12);
    // The logarithmic curve undoes the exponential one in output units.
    const auto *l = static_cast<const logdef *>(log_t->definition);
    for (double v : {5.0, 17.0, 50.0}) {
        const double out = std::exp(v * x->a_scaled) * x->b_scaled + x->c_scaled;
        EXPECT_NEAR(std::log(out + l->a_scaled) * l->b_scaled + l->c_scaled, v, 1e-9);
    }
}

/* ---------------------------------------------------------------- equalising */

TEST(TransformOps, EqualisingFollowsTheCumulativeCounts)
{
    // 10 cells in bucket 0, 30 in 100, 60 in 200.
    const std::vector<std::pair<int, uint32_t>> counts = {{0, 10}, {100, 30}, {200, 60}};
    TransformPtr t = linear({0, 0, 1, 1});
    give_histogram(t.get(), counts, 7, 9);
    ASSERT_EQ(histogram_equalise(t.get(), 5, 0), 0);
    // x = i / 4 takes the bucket trunc(256 * i / 4): 64, 128, 192.
    EXPECT_EQ(points_of(t.get()), (Points{0, 0, 0.25, 0.1, 0.5, 0.4, 0.75, 0.4, 1, 1}));

    TransformPtr all = linear({0, 0, 1, 1});
    give_histogram(all.get(), counts);
    ASSERT_EQ(histogram_equalise(all.get(), 0, 1), 0);
    // The steps of the cumulative curve stay, their level stretches go.
    const Points p = points_of(all.get());
    EXPECT_EQ(p.front(), 0.0);
    EXPECT_EQ(p.back(), 1.0);
    EXPECT_LT(p.size(), 2u * 256);
    for (size_t i = 3; i < p.size(); i += 2) EXPECT_GE(p[i], p[i - 2]);

    // A Gaussian of small sigma about 0.5 pulls the levels towards the middle.
    TransformPtr g = linear({0, 0, 1, 1});
    give_histogram(g.get(), {{0, 25}, {85, 25}, {170, 25}, {255, 25}});
    ASSERT_EQ(gaussian_equalise(g.get(), 5, 0, 0.5, 0.05), 0);
    const Points q = points_of(g.get());
    ASSERT_EQ(q.size(), 10u);
    for (size_t i = 3; i < q.size() - 2; i += 2) {
        EXPECT_GT(q[i], 0.35);
        EXPECT_LT(q[i], 0.65);
    }
}

TEST(TransformOps, ApproximateOutputHistogram)
{
    TransformPtr t = linear({0, 0, 1, 1});
    give_histogram(t.get(), {{0, 10}, {128, 20}, {255, 30}});
    histogram out{};
    ASSERT_EQ(calc_approx_output_histogram(t.get(), &out), 0);
    EXPECT_EQ(out.id, static_cast<int32_t>(0xDEADBEEFu));
    EXPECT_EQ(out.invalid, 0);
    EXPECT_EQ(out.counts[0], 10u);
    EXPECT_EQ(out.counts[255], 30u);
    uint32_t sum = 0;
    for (uint32_t c : out.counts) sum += c;
    EXPECT_EQ(out.nr_cells, sum);
    EXPECT_LE(sum, 60u);
    EXPECT_GE(sum, 58u);  // the middle bucket spreads over two, truncated

    t->histogram->invalid = 1;
    EXPECT_NE(calc_approx_output_histogram(t.get(), &out), 0);
    EXPECT_EQ(out.invalid, 1);
}

TEST(TransformOps, MatchingMakesOtherStreamsLikeTheReference)
{
    TransformPtr ref = linear({0, 0, 1, 1}, 0, 255, 0, 100);
    TransformPtr other = linear({0, 0, 1, 1});
    TransformPtr unlike = linear({0, 0, 1, 1});
    give_histogram(ref.get(), {{0, 50}, {255, 50}});
    give_histogram(other.get(), {{100, 100}});
    give_histogram(unlike.get(), {{100, 100}});
    stream a{}, b{}, c{};
    a.type = b.type = ST_Red;
    c.type = ST_Green;
    a.next = &b, b.prev = &a, b.next = &c, c.prev = &b;
    a.transforms = ref.get(), b.transforms = other.get(), c.transforms = unlike.get();
    EXPECT_EQ(trans_hist_match(&a), 0);
    EXPECT_EQ(other->max_output, 100.0);
    EXPECT_NE(points_of(other.get()), (Points{0, 0, 1, 1}));
    EXPECT_EQ(points_of(unlike.get()), (Points{0, 0, 1, 1}));
    b.next = nullptr;
    other->histogram->invalid = 1;
    EXPECT_EQ(trans_hist_match(&a), -1);  // nobody left to match
}

/* ---------------------------------------------------------------- chains */

TEST(TransformOps, ChainsTakeAndLoseDefaultTransforms)
{
    algorithm alg{};
    surface s{};
    stream st{};
    alg.surfaces = &s;
    s.first_stream = &st;
    transform *a = trans_append(nullptr, nullptr, &st, &alg, TT_Linear);
    transform *c = trans_append(a, nullptr, &st, &alg, TT_Exponential);
    transform *b = trans_insert(c, nullptr, &st, &alg, TT_HistogramOnly);
    ASSERT_NE(b, nullptr);
    EXPECT_EQ(st.transforms, a);
    EXPECT_EQ(a->next, b);
    EXPECT_EQ(b->next, c);
    EXPECT_EQ(c->prev, b);
    EXPECT_EQ((std::vector<int>{a->id, b->id, c->id}), (std::vector<int>{1, 3, 2}));
    EXPECT_EQ(trans_append(nullptr, nullptr, &st, &alg, 9), nullptr);

    // Pasting copies the shape and makes the later histograms stale.
    give_histogram(c, {{1, 1}});
    TransformPtr source = linear({0, 0, 0.5, 0.9, 1, 1}, 3, 4, 5, 6);
    ASSERT_EQ(trans_paste(b, source.get(), &st), 0);
    EXPECT_EQ(b->type, TT_Linear);
    EXPECT_EQ(points_of(b), points_of(source.get()));
    EXPECT_EQ(b->max_output, 6.0);
    EXPECT_EQ(c->histogram->invalid, 1);

    // To the same place in every like stream that is on.
    stream same{}, off{}, unlike{};
    same.type = off.type = ST_Pseudo;
    unlike.type = ST_Classification;
    off.turned_off = 1;
    st.type = ST_Pseudo;
    st.next = &same, same.prev = &st, same.next = &off, off.prev = &same;
    off.next = &unlike, unlike.prev = &off;
    ASSERT_EQ(trans_paste_all(nullptr, b, a, &st, &alg), 0);
    ASSERT_NE(same.transforms, nullptr);
    EXPECT_EQ(same.transforms->next, nullptr);  // appended, but only one
    EXPECT_EQ(off.transforms, nullptr);
    EXPECT_EQ(unlike.transforms, nullptr);
    ASSERT_EQ(trans_paste_all(nullptr, a, a, &st, &alg), 0);
    EXPECT_EQ(points_of(same.transforms), points_of(a));

    ASSERT_EQ(trans_free(b, nullptr, &st), 0);
    EXPECT_EQ(a->next, c);
    EXPECT_EQ(c->prev, a);
    ASSERT_EQ(trans_free(a, nullptr, &st), 0);
    EXPECT_EQ(st.transforms, c);
    EXPECT_EQ(c->prev, nullptr);
    ef_transform(c);
    ef_transform(same.transforms);
}

/* ---------------------------------------------------------------- curves */

TEST(TransformOps, CurvesThroughAPointAndTheirText)
{
    // Exponential curves bend below the diagonal and logarithmic ones above
    // it: the search for a steps across a = 0, where the estimate is held.
    for (auto [x0, y0] : {std::pair{0.5, 0.2}, {0.7, 0.3}, {0.9, 0.6}}) {
        double a = 0, b = 0, c = 0;
        ASSERT_EQ(solve_exp(x0, y0, &a, &b, &c, 1e-6), 0);
        EXPECT_NEAR(y_exp_est(a, x0), y0, 1e-6);
        EXPECT_NEAR(b * std::exp(a) + c, 1.0, 1e-12);  // through (1, 1)
        EXPECT_EQ(c, -b);                              // and (0, 0)
        ASSERT_EQ(solve_log(y0, x0, &a, &b, &c), 0);
        EXPECT_NEAR(b * std::log(y0 + a) + c, x0, 1e-3);
        EXPECT_NEAR(b * std::log(1 + a) + c, 1.0, 1e-3);
    }
    EXPECT_EQ(y_exp_est(1e-12, 0.3), 1.0);  // a flat curve's estimate is kept at 1

    transform *t = nullptr;
    ASSERT_EQ(df_transform(&t, TT_Exponential), 0);
    TransformPtr owned(t);
    auto *e = static_cast<expdef *>(t->definition);
    e->a_scaled = 0.5, e->b_scaled = 2, e->c_scaled = -1.25;
    char text[96];
    EXPECT_EQ(trans_to_str(text, t), 0);
    EXPECT_STREQ(text, "y = 2 * exp(0.5 * x) + -1.25");
    ASSERT_EQ(trans_set_type(t, nullptr, TT_Logarithmic), 0);
    auto *l = static_cast<logdef *>(t->definition);
    l->a_scaled = 0.125, l->b_scaled = 3, l->c_scaled = 1.0 / 3;
    trans_to_str(text, t);
    EXPECT_STREQ(text, "y = 3 * log(x + 0.125) + 0.3333");
    ASSERT_EQ(trans_set_type(t, nullptr, TT_Linear), 0);
    EXPECT_EQ(trans_to_str(text, t), 1);
    EXPECT_STREQ(text, "trans_to_str: Wrong type of transform");
    EXPECT_EQ(trans_set_type(t, nullptr, 7), VLD_ERR_INVALID_TRANSFORM_TYPE);
    EXPECT_EQ(t->type, TT_Linear);
}

TEST(TransformOps, ScaledCoefficientsMapTheRangesLikeTheUnitCurve)
{
    for (int type : {TT_Exponential, TT_Logarithmic}) {
        transform *t = nullptr;
        ASSERT_EQ(df_transform(&t, type), 0);
        TransformPtr owned(t);
        t->min_input = 20, t->max_input = 220, t->min_output = -5, t->max_output = 15;
        ASSERT_EQ(calc_scaled_any(t), 0);
        const auto *d = static_cast<const expdef *>(t->definition);  // the same layout
        for (double x : {0.0, 0.25, 1.0}) {
            const double v = 20 + 200 * x;
            const double unit = type == TT_Exponential ? d->b * std::exp(d->a * x) + d->c
                                                       : d->b * std::log(x + d->a) + d->c;
            const double scaled = type == TT_Exponential
                                      ? std::exp(v * d->a_scaled) * d->b_scaled + d->c_scaled
                                      : std::log(v + d->a_scaled) * d->b_scaled + d->c_scaled;
            EXPECT_NEAR(scaled, -5 + 20 * unit, 1e-9) << type << " at " << x;
        }
    }
}

}  // namespace
