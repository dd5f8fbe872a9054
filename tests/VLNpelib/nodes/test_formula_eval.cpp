/* The formula evaluator's programs run by hand over runs of a line: only
 * the cells of the runs are written, whatever the length of a run against
 * the evaluator's blocks, and whether the result is an operation's, an
 * input's or a constant's; and the null flags of IF, OR and ISNULL. */
#include <gtest/gtest.h>

#include <vector>

#include "node_harness.h"
#include "vln_formula_eval.h"

namespace {

namespace fe = vln_formula;
using node_test::Runs;

constexpr int WIDTH = 1500;

struct Shape {
    const char *name;
    int result;  // 0: a + b, 1: input a, 2: the constant 7
    Runs runs;
};

const Shape shapes[] = {
    {"op over one long run", 0, {{0, WIDTH - 1}}},
    {"op over runs across blocks", 0, {{3, 3}, {500, 530}, {1023, 1400}}},
    {"input", 1, {{10, 700}, {1499, 1499}}},
    {"constant", 2, {{0, 0}, {511, 1025}}},
    {"no runs", 0, {}},
};

class FormulaEval : public ::testing::TestWithParam<Shape> {};

TEST_P(FormulaEval, WritesTheCellsOfTheRunsOnly)
{
    const Shape &shape = GetParam();
    node_test::Harness h;
    fe::Builder b(false);
    const int a = b.input(false), c = b.input(false);
    const int sum = b.op(fe::OP_ADD_, a, c);
    const int seven = b.constant(7);
    const int result = shape.result == 0 ? sum : (shape.result == 1 ? a : seven);
    fe::Program *p = b.finish(h.pe, result, WIDTH);
    std::vector<double> x(WIDTH), y(WIDTH), out(WIDTH, -1.0);
    for (int i = 0; i < WIDTH; i++) x[i] = i, y[i] = 1000.0 * i;
    fe::set_input(p, a, x.data(), nullptr);
    fe::set_input(p, c, y.data(), nullptr);
    rlseg *runs = node_test::make_runs(h.pe, shape.runs);
    fe::run(p, runs, out.data(), nullptr);
    std::vector<bool> inside(WIDTH, false);
    for (auto [first, last] : shape.runs)
        for (int i = first; i <= last; i++) inside[i] = true;
    for (int i = 0; i < WIDTH; i++) {
        const double want =
            !inside[i] ? -1.0 : (shape.result == 0 ? 1001.0 * i : (shape.result == 1 ? i : 7.0));
        ASSERT_EQ(out[i], want) << shape.name << " at " << i;
    }
    pe_free_rlseg_list(h.pe, &runs);
}

INSTANTIATE_TEST_SUITE_P(Shapes, FormulaEval, ::testing::ValuesIn(shapes));

TEST(FormulaEvalNulls, FollowTheRulesOfIfOrAndIsnull)
{
    // Cells: a null, a zero, a non-zero, crossed with b null or not.
    node_test::Harness h;
    fe::Builder b(true);
    const int a = b.input(true), c = b.input(true);
    const int either = b.op(fe::OP_OR_, a, c);
    const int both = b.op(fe::OP_AND_, a, c);
    const int choose = b.op(fe::OP_IF_, a, c, b.null());
    const int test = b.op(fe::OP_ISNULL_, c);
    const int result =
        b.op(fe::OP_ADD_, b.op(fe::OP_ADD_, either, both), b.op(fe::OP_ADD_, choose, test));
    ASSERT_TRUE(b.may_be_null(result));
    ASSERT_FALSE(b.may_be_null(test));
    fe::Program *p = b.finish(h.pe, result, 6);
    // a: null, 0, 2, null, 0, 2; b: 5, 5, 5, null, null, null
    std::vector<double> av{0, 0, 2, 0, 0, 2}, bv{5, 5, 5, 0, 0, 0};
    std::vector<uint8_t> an{1, 0, 0, 1, 0, 0}, bn{0, 0, 0, 1, 1, 1};
    fe::set_input(p, a, av.data(), an.data());
    fe::set_input(p, c, bv.data(), bn.data());
    rlseg *runs = node_test::make_runs(h.pe, {{0, 5}});
    std::vector<double> out(6);
    std::vector<uint8_t> nulls(6, 9);
    fe::run(p, runs, out.data(), nulls.data());
    pe_free_rlseg_list(h.pe, &runs);
    // Cell 0: a null: OR null. Cell 1: OR 1, AND 0, IF takes ELSE (NULL).
    // Cell 2: OR 1, AND 1, IF takes b = 5, ISNULL 0: 7.
    // Cell 5: OR 1 (b hidden), AND null.
    const std::vector<uint8_t> want_nulls{1, 1, 0, 1, 1, 1};
    EXPECT_EQ(nulls, want_nulls);
    EXPECT_EQ(out[2], 7.0);

    // The parts alone, as results.
    struct Part {
        int reg;
        std::vector<uint8_t> nulls;
    };
    const Part parts[] = {
        {either, {1, 0, 0, 1, 1, 0}},
        {both, {1, 0, 0, 1, 1, 1}},
        {choose, {1, 1, 0, 1, 1, 1}},
    };
    for (const Part &part : parts) {
        p->result = part.reg;
        rlseg *all = node_test::make_runs(h.pe, {{0, 5}});
        fe::run(p, all, out.data(), nulls.data());
        pe_free_rlseg_list(h.pe, &all);
        EXPECT_EQ(nulls, part.nulls) << "register " << part.reg;
    }
}

}  // namespace

namespace {

/* A long formula over a wide line: the program's memory grows with the
 * formula and with its inputs, not with the product of the two. */
TEST(FormulaEvalMemory, LongFormulaOverAWideLineKeepsBlocksNotLines)
{
    constexpr int kWide = 100000, kTerms = 1000;
    node_test::Harness h;
    fe::Builder b(false);
    const int a = b.input(false);
    int acc = a;
    for (int k = 1; k < kTerms; k++) acc = b.op(k % 2 ? fe::OP_ADD_ : fe::OP_SUB_, acc, b.constant(k));
    const int64_t before = h.pe->pool_bytes;
    fe::Program *p = b.finish(h.pe, acc, kWide);
    const int64_t used = h.pe->pool_bytes - before;
    // Two whole lines at most for the input, and a block for each register.
    EXPECT_LT(used, int64_t{2} * kWide * 8 + int64_t{2} * kTerms * 4096 + (1 << 20));
    std::vector<double> x(kWide), out(kWide, -1.0);
    for (int i = 0; i < kWide; i++) x[i] = i;
    fe::set_input(p, a, x.data(), nullptr);
    rlseg *runs = node_test::make_runs(h.pe, {{0, kWide - 1}});
    fe::run(p, runs, out.data(), nullptr);
    // + 1 - 2 + 3 - ... + 999 adds 500.
    for (int i : {0, 511, 512, 50000, kWide - 1}) EXPECT_EQ(out[i], i + 500.0) << i;
    pe_free_rlseg_list(h.pe, &runs);
}

}  // namespace
