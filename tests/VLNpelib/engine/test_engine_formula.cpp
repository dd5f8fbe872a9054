/* The formula node end to end: every operator and function over two bands
 * of a generated dataset, against values worked out here cell by cell; the
 * null rules (inputs null where the dataset holds 0) with and without IF,
 * NULL and ISNULL; division by zero; positions, variables and image
 * constants. Regions, statistics and user code are in
 * test_engine_formula_refs.cpp. */
#include <atomic>
#include <cfloat>
#include <cmath>

#include "formula_fixture.h"
#include "vln_formula_node.h"

extern std::atomic<long> g_mallocs;  // counted by the engine read suite's wrappers

namespace {

using frm::FormulaRun;
using frm::StreamDoc;
using Opt = std::optional<double>;

constexpr int CELLS = 600;  // past one block of the evaluator
constexpr int LINES = 3;

uint16_t band_value(int band, int line, int cell)
{
    return band == 0 ? static_cast<uint16_t>((cell * 37 + line * 11) % 1000)
                     : static_cast<uint16_t>((cell * 53 + line * 7 + 3) % 900);
}

/* A formula and its value from the two inputs of a cell, nullopt for null. */
struct Case {
    const char *formula;
    std::function<Opt(Opt a, Opt b)> expected;
};

/* Arithmetic on two non-null values: null where either is null. */
std::function<Opt(Opt, Opt)> both(double (*f)(double, double))
{
    return [f](Opt a, Opt b) -> Opt {
        if (!a || !b) return std::nullopt;
        return f(*a, *b);
    };
}

double div0(double l, double r)
{
    if (r != 0) return l / r;
    return l > 0 ? DBL_MAX : (l < 0 ? -DBL_MAX : 0.0);
}

void check(const Case &c, bool with_nulls)
{
    eng::TempDir dir;
    auto fn = [](int b, int l, int c) { return band_value(b, l, c); };
    const std::string ds = frm::write_dataset(dir, "two", CELLS, LINES, 2, fn, with_nulls);
    StreamDoc s;
    s.formula = c.formula;
    s.bands = {1, 2};
    s.variables = {{"Gain", 2.5}, {"Offset", -3}};
    FormulaRun run(dir, ds, CELLS, LINES, s);
    ASSERT_EQ(run.status, 0) << c.formula << ": " << run.error();
    ASSERT_EQ(run.lines.size(), static_cast<size_t>(LINES));
    int wrong = 0;
    for (int y = 0; y < LINES; y++)
        for (int x = 0; x < CELLS && wrong < 3; x++) {
            Opt a = band_value(0, y, x), b = band_value(1, y, x);
            if (with_nulls && *a == 0) a.reset();
            if (with_nulls && *b == 0) b.reset();
            const Opt want = c.expected(a, b);
            const bool is_null = run.lines[y].null[x];
            const double got = run.lines[y].values[x];
            if (want.has_value() == is_null || (want && !frm::same(*want, got))) {
                wrong++;
                ADD_FAILURE() << c.formula << " at (" << x << ", " << y << ") a=" << a.value_or(-1)
                              << " b=" << b.value_or(-1) << ": want "
                              << (want ? std::to_string(*want) : "null") << ", got "
                              << (is_null ? "null" : std::to_string(got));
            }
        }
}

const Case operator_cases[] = {
    {"I1 + I2", both([](double a, double b) { return a + b; })},
    {"I1 - I2", both([](double a, double b) { return a - b; })},
    {"I1 * I2", both([](double a, double b) { return a * b; })},
    {"I1 / I2", both(div0)},
    {"(I1 - I2) / (I1 + I2)", both([](double a, double b) { return div0(a - b, a + b); })},
    {"I1 % 7", both([](double a, double) { return std::fmod(a, 7); })},
    {"I1 % (I2 - I2)", both([](double a, double) { return std::fmod(a, 0.0); })},
    {"I1 = I2 % 10", both([](double a, double b) { return a == std::fmod(b, 10) ? 1.0 : 0.0; })},
    {"I1 != I2", both([](double a, double b) { return a != b ? 1.0 : 0.0; })},
    {"I1 > I2", both([](double a, double b) { return a > b ? 1.0 : 0.0; })},
    {"I1 >= I2", both([](double a, double b) { return a >= b ? 1.0 : 0.0; })},
    {"I1 < I2", both([](double a, double b) { return a < b ? 1.0 : 0.0; })},
    {"I1 <= I2", both([](double a, double b) { return a <= b ? 1.0 : 0.0; })},
    {"I1 > 500 AND I2 > 400", both([](double a, double b) { return a > 500 && b > 400 ? 1.0 : 0.0; })},
    {"I1 > 500 OR I2 > 400", both([](double a, double b) { return a > 500 || b > 400 ? 1.0 : 0.0; })},
    {"-I1 + I2", both([](double a, double b) { return -a + b; })},
    {"NOT I1 - 1 + I2 * 0", both([](double a, double b) { return (a == 0 ? 1.0 : 0.0) - 1 + b * 0; })},
    {"NOT (I1 > 500) + I2 * 0", both([](double a, double b) { return (a > 500 ? 0.0 : 1.0) + b * 0; })},
    {"ABS(I1 - I2)", both([](double a, double b) { return std::fabs(a - b); })},
    {"SIN(I1 / 100) + COS(I2 / 100)", both([](double a, double b) { return std::sin(a / 100) + std::cos(b / 100); })},
    {"TAN(I1 / 1000) * I2", both([](double a, double b) { return std::tan(a / 1000) * b; })},
    {"ASIN(I1 / 1000) - ACOS(I2 / 1000)", both([](double a, double b) { return std::asin(a / 1000) - std::acos(b / 1000); })},
    {"ATAN(I1 - I2)", both([](double a, double b) { return std::atan(a - b); })},
    {"EXP(I1 / 300) + I2", both([](double a, double b) { return std::exp(a / 300) + b; })},
    {"LOG(I1) + LOG10(I2)", both([](double a, double b) { return std::log(a) + std::log10(b); })},
    {"SQRT(I1 - I2)", both([](double a, double b) { return std::sqrt(a - b); })},
    {"POW(I1, 0.5) + POW(I2, 2)", both([](double a, double b) { return std::pow(a, 0.5) + std::pow(b, 2); })},
    {"FLOOR(I1 / 7) + CEIL(I2 / 7)", both([](double a, double b) { return std::floor(a / 7) + std::ceil(b / 7); })},
    {"MIN(I1, I2, 300)", both([](double a, double b) { return std::min(std::min(a, b), 300.0); })},
    {"MAX(I1, I2, 300)", both([](double a, double b) { return std::max(std::max(a, b), 300.0); })},
    {"ABS(I1, I2)", both([](double a, double) { return a; })},
    {"PI * I1 + E * I2", both([](double a, double b) { return 3.141592653589793 * a + 2.718281828459045 * b; })},
    {"Gain * I1 + OFFSET + I2 * 0 + Unset", both([](double a, double b) { return 2.5 * a + -3 + b * 0 + 0.0; })},
    {"SIGMA(I1..I2 | I? * 2)", both([](double a, double b) { return a * 2 + b * 2; })},
    {"I1 * 0 + I2", both([](double a, double b) { return a * 0 + b; })},
    {"I1 / (I2 - I2)", both([](double a, double b) { return div0(a, b - b); })},
    {"(I1 - I1) / (I2 - I2)", both([](double, double) { return 0.0; })},
    {"-I1 / (I2 - I2) - I1 * 0", both([](double a, double b) { return div0(-a, b - b) - a * 0; })},
    // Null-aware: every cell is computed, with null flags.
    {"IF ISNULL(I1) THEN 0 ELSE I1 + I2 * 0",
     [](Opt a, Opt b) -> Opt { if (!a) return 0.0; if (!b) return std::nullopt; return *a; }},
    {"ISNULL(I1) + ISNULL(I2) * 2", [](Opt a, Opt b) -> Opt { return (a ? 0.0 : 1.0) + (b ? 0.0 : 2.0); }},
    {"IF I1 > 500 OR I2 > 400 THEN 1 ELSE 0",
     [](Opt a, Opt b) -> Opt {
         if (!a) return std::nullopt;
         if (*a > 500) return 1.0;
         if (!b) return std::nullopt;
         return *b > 400 ? 1.0 : 0.0;
     }},
    {"IF I1 > 500 AND I2 > 400 THEN 1 ELSE 0",
     [](Opt a, Opt b) -> Opt {
         if (!a || !b) return std::nullopt;
         return *a > 500 && *b > 400 ? 1.0 : 0.0;
     }},
    {"IF I1 > 500 THEN NULL ELSE I1",
     [](Opt a, Opt) -> Opt { if (!a || *a > 500) return std::nullopt; return *a; }},
    {"IF I1 > 500 THEN I2 ELSE 7",
     [](Opt a, Opt b) -> Opt { if (!a) return std::nullopt; if (*a > 500) return b; return 7.0; }},
    {"IF ISNULL(I2) THEN -1 ELSE MIN(I1, I2)",
     [](Opt a, Opt b) -> Opt { if (!b) return -1.0; if (!a) return std::nullopt; return std::min(*a, *b); }},
    {"IF I1 THEN I1 / I2 ELSE IF ISNULL(I2) THEN 5 ELSE NULL",
     [](Opt a, Opt b) -> Opt {
         if (!a) return std::nullopt;
         if (*a != 0) { if (!b) return std::nullopt; return div0(*a, *b); }
         return b ? std::nullopt : Opt(5.0);
     }},
    {"IF NOT ISNULL(I1) AND I1 > 100 THEN SIGMA(I1..I2 | I?) ELSE 0",
     [](Opt a, Opt b) -> Opt {
         // AND has no short circuit: its null right side makes it null.
         if (!a) return std::nullopt;
         if (!(*a > 100)) return 0.0;
         if (!b) return std::nullopt;
         return *a + *b;
     }},
};

class FormulaOperators : public ::testing::TestWithParam<Case> {};

TEST_P(FormulaOperators, MatchesCellByCellValues)
{
    check(GetParam(), false);
}

TEST_P(FormulaOperators, FollowsTheNullRules)
{
    check(GetParam(), true);
}

INSTANTIATE_TEST_SUITE_P(Table, FormulaOperators, ::testing::ValuesIn(operator_cases));

/* Formulae without inputs, and positions: each cell's value from x and y. */
struct PlaceCase {
    const char *formula;
    std::function<Opt(int x, int y)> expected;
};

const PlaceCase place_cases[] = {
    {"PI", [](int, int) -> Opt { return 3.141592653589793; }},
    {"1/0", [](int, int) -> Opt { return DBL_MAX; }},
    {"-1/0", [](int, int) -> Opt { return -DBL_MAX; }},
    {"0/0", [](int, int) -> Opt { return 0.0; }},
    {"NULL", [](int, int) -> Opt { return std::nullopt; }},
    {"CELLX() * 1000 + CELLY()", [](int x, int y) -> Opt { return x * 1000.0 + y; }},
    {"PIXELX() + PIXELY() * 10000", [](int x, int y) -> Opt { return x + y * 10000.0; }},
    {"NRPIXCOLS() * 10 + NRPIXROWS() + MAXPIXELX() * 0.5 + MAXPIXELY() * 0.25",
     [](int, int) -> Opt { return CELLS * 10.0 + LINES + (CELLS - 1) * 0.5 + (LINES - 1) * 0.25; }},
    {"NRBANDS() * 1000000 + NRROWS() * 1000 + NRCOLS() + 0 * I1",
     [](int, int) -> Opt { return 2e6 + LINES * 1000.0 + CELLS; }},
    {"MAXCELLX() * 100 + MAXCELLY() + I1 * 0",
     [](int, int) -> Opt { return (CELLS - 1) * 100.0 + LINES - 1; }},
    {"IF CELLX() % 2 THEN NULL ELSE CELLX()",
     [](int x, int) -> Opt {
         if (x % 2) return std::nullopt;
         return x;
     }},
};

class FormulaPlaces : public ::testing::TestWithParam<PlaceCase> {};

TEST_P(FormulaPlaces, GivesEveryCellItsValue)
{
    const PlaceCase &c = GetParam();
    eng::TempDir dir;
    auto fn = [](int b, int l, int x) { return band_value(b, l, x); };
    const std::string ds = frm::write_dataset(dir, "two", CELLS, LINES, 2, fn);
    StreamDoc s;
    s.formula = c.formula;
    FormulaRun run(dir, ds, CELLS, LINES, s);
    ASSERT_EQ(run.status, 0) << run.error();
    for (int y = 0; y < LINES; y++)
        for (int x = 0; x < CELLS; x++) {
            const Opt want = c.expected(x, y);
            ASSERT_EQ(run.lines[y].null[x], !want.has_value()) << c.formula << " at " << x;
            if (want) {
                ASSERT_EQ(run.lines[y].values[x], *want) << c.formula << " at " << x << ", " << y;
            }
        }
}

INSTANTIATE_TEST_SUITE_P(Table, FormulaPlaces, ::testing::ValuesIn(place_cases));

/* Texts that fail the open, with what the message holds. */
struct FailCase {
    const char *formula;
    const char *message;
};

const FailCase fail_cases[] = {
    {"I1 + I3", "Missing input(s) before I2"},
    {"SQRT()", "Not enough arguments for SQRT"},
    {"POW(I1)", "Not enough arguments for POW"},
    {"myfn(INPUTVECTOR(I1..I2))",
     "Dynamic Compiler must be turned on to use INPUTVECTOR in formula"},
    {"myfn(USERSTATS(,R1,B1))", "Dynamic Compiler must be turned on to use USERSTATS in formula"},
    {"myfn(1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16,17,18,19,20,21)",
     "Too many user function arguments (>10). Try with dynamic compilation turned on."},
};

class FormulaFailures : public ::testing::TestWithParam<FailCase> {};

TEST_P(FormulaFailures, FailTheOpenWithTheirMessage)
{
    eng::TempDir dir;
    auto fn = [](int b, int l, int x) { return band_value(b, l, x); };
    const std::string ds = frm::write_dataset(dir, "two", 8, 2, 2, fn);
    StreamDoc s;
    s.formula = GetParam().formula;
    s.bands = {1, 2};
    s.regions = {"All"};
    FormulaRun run(dir, ds, 8, 2, s);
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.error().find(GetParam().message), std::string::npos) << run.error();
}

INSTANTIATE_TEST_SUITE_P(Table, FormulaFailures, ::testing::ValuesIn(fail_cases));

TEST(FormulaNode, SharesOneReadPerBandAndAllocatesNothingOnceRunning)
{
    eng::TempDir dir;
    auto fn = [](int b, int l, int x) { return band_value(b, l, x); };
    const std::string ds = frm::write_dataset(dir, "two", CELLS, 40, 2, fn, true);
    StreamDoc s;
    s.formula = "IF ISNULL(I1) THEN I2 ELSE (I1 - I2) / (I1 + I2) + I1 * I1 - I2";
    s.bands = {1, 2};
    FormulaRun run(dir, ds, CELLS, 40, s, false);
    ASSERT_EQ(run.status, 0) << run.error();
    std::vector<double> buffer(CELLS);
    void *ptrs[1] = {buffer.data()};
    long mallocs = 0;
    int64_t pool = 0;
    for (int y = 0; y < 40; y++) {
        rlseg *runs[1] = {nullptr};
        if (y == 20) {
            mallocs = g_mallocs.load();
            pool = run.pe->pool_allocations;
        }
        ASSERT_EQ(pe_read_lines(run.pe, 0, ptrs, runs), 0);
        pe_free_rlseg_list(run.pe, &runs[0]);
    }
    EXPECT_EQ(g_mallocs.load(), mallocs);
    EXPECT_EQ(run.pe->pool_allocations, pool);
    // One dataset, read once per line however often the formula names a band.
    ASSERT_NE(run.pe->dsinputs, nullptr);
    EXPECT_EQ(run.pe->dsinputs->nr_file_reads, 40);
}

TEST(FormulaNode, ReportsTheDatasetsReadAndTheTime)
{
    eng::TempDir dir;
    auto fn = [](int b, int l, int x) { return band_value(b, l, x); };
    const std::string ds = frm::write_dataset(dir, "two", 8, 4, 2, fn);
    StreamDoc s;
    s.formula = "I1 + I2";
    s.bands = {1, 2};
    FormulaRun run(dir, ds, 8, 4, s);
    ASSERT_EQ(run.status, 0) << run.error();
    char *labels = nullptr, *values = nullptr;
    ASSERT_EQ(get_procinfo(&labels, &values, run.pe, 100, 165, 250000, 750000), 0);
    EXPECT_EQ(std::string(labels),
              "DATASETS PROCESSED:\n" + dir.file("two.vld") + ":\n\nTIME TO PROCESS:\n");
    EXPECT_EQ(std::string(values), "\n100.00% of rows 0-3\n100.00% of columns 0-7\n00:01:05.50\n");
    safe_free(labels);
    safe_free(values);
}

}  // namespace
