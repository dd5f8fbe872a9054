/* What a formula refers to outside its inputs, end to end: regions
 * (INREGION), statistics of regions as dataset constants and in MAHAL,
 * other datasets, and functions of user code in shared libraries; and the
 * messages of each when what it names is missing. */
#include <cmath>

#include "formula_fixture.h"

namespace {

using frm::FormulaRun;
using frm::StreamDoc;
using Opt = std::optional<double>;

constexpr int CELLS = 10;
constexpr int LINES = 6;

uint16_t band_value(int band, int line, int cell)
{
    return band == 0 ? static_cast<uint16_t>((cell * 3 + line * 5) % 17 + 5)
                     : static_cast<uint16_t>((cell * 7 + line) % 11);
}

/* Statistics of two bands: means, covariance and the rest. */
msstats *make_stats(double m1, double m2, double c11, double c12, double c22)
{
    msstats *s = nullptr;
    ea_msstats_spec(&s, 2);
    s->subsample_rate = 1;
    s->mean[0] = m1, s->mean[1] = m2;
    s->covariance[0] = c11, s->covariance[1] = c12;
    s->covariance[2] = c12, s->covariance[3] = c22;
    s->non_null_cells[0] = 100, s->non_null_cells[1] = 50;
    s->null_cells[0] = 3, s->null_cells[1] = 4;
    s->minimum[0] = 1, s->minimum[1] = 2;
    s->maximum[0] = 30, s->maximum[1] = 40;
    s->median[0] = 11, s->median[1] = 21;
    return s;
}

/* A dataset with the regions All, Field (cells 2..5 of lines 1..3, with
 * statistics) and Bare (without), and a second dataset of other size. */
class FormulaRefs : public ::testing::Test {
   protected:
    void SetUp() override
    {
        msstats *all = make_stats(5, 6, 2, 0, 2);
        msstats *field = make_stats(10, 20, 4, 1, 9);
        const std::vector<frm::RegionDoc> regions = {{"All", 0, 0, CELLS, LINES, all},
                                                     {"Field", 2, 1, 6, 4, field},
                                                     {"Bare", 0, 0, 3, 3, nullptr}};
        dataset_ = frm::write_dataset(dir_, "reg", CELLS, LINES, 2, band_value, nulls_, regions);
        ef_msstats(all);
        ef_msstats(field);
        frm::write_dataset(dir_, "other", 7, 4, 3, band_value);
        setenv("VLN_FORMULA_UCPATH", VORLAN_TEST_PROGS_DIR "/usercode", 1);
    }

    StreamDoc doc(const char *formula) const
    {
        StreamDoc s;
        s.formula = formula;
        s.bands = {1, 2};
        s.regions = {"Field", "Ghost"};
        s.datasets = {dir_.file("other.vld")};
        return s;
    }

    eng::TempDir dir_;
    std::string dataset_;
    bool nulls_ = false;
};

/* ---------------------------------------------------------------- constants */

struct ConstCase {
    const char *formula;
    double value;
    double tolerance;
};

const double lambda1 = (13 + std::sqrt(29.0)) / 2, lambda2 = (13 - std::sqrt(29.0)) / 2;

const ConstCase const_cases[] = {
    {"MEAN(,'Field',B2)", 20, 0},
    {"MEAN(,R1,B1)", 10, 0},
    {"MEAN(,,B2)", 6, 0},
    {"MEAN()", 5, 0},
    {"MEAN(,'field',I2) + I1 * 0", 20, 0},
    {"SIGMA(I1..I2 | MEAN(,'Field',I?))", 30, 0},
    {"NRNULLS(,'Field',B2) * 1000 + NRNONNULLS(,'Field',B1)", 4100, 0},
    {"RMIN(,'Field',B1) + RMAX(,'Field',B2) * 100 + MEDIAN(,'Field',B2) * 10000", 214001, 0},
    {"STDEVNM1(,'Field',B2)", 3, 0},
    {"STDEV(,'Field',B1)", std::sqrt(99 * 4.0 / 100), 0},
    {"COVAR(,'Field',B1,2)", 1, 0},
    {"CORR(,'Field',B2,1)", 1.0 / 6, 1e-15},
    {"CORR(,'Field',B2,2)", 1, 1e-15},
    {"DETCOV(B1..B2 | ,'Field')", 35, 1e-12},
    {"DETCOV(,'Field')", 35, 1e-12},
    {"DETCORR(,'Field')", 1 - 1.0 / 36, 1e-12},
    {"COV_EVAL(B1..B2 | ,'Field',B1)", lambda1, 1e-9},
    {"COV_EVAL(,'Field',B2)", lambda2, 1e-9},
    {"CORR_EVAL(,'Field',B1)", 1 + 1.0 / 6, 1e-9},
    {"ABS(PC_COV(,'Field',B1,1))", 1 / std::sqrt(1 + (lambda1 - 4) * (lambda1 - 4)), 1e-9},
    {"ABS(INVPC_COV(,'Field',B2,1))", 1 / std::sqrt(1 + (lambda2 - 4) * (lambda2 - 4)), 1e-9},
    {"NRCOLS('other.vld') * 100 + NRROWS(D1) + NRBANDS(D1) * 1000", 3704, 0},
    {"MAXCELLX(D1) + MAXCELLY() * 100", 6 + (LINES - 1) * 100, 0},
};

class FormulaConstants : public FormulaRefs, public ::testing::WithParamInterface<ConstCase> {};

TEST_P(FormulaConstants, AreFrozenAtSetup)
{
    const ConstCase &c = GetParam();
    FormulaRun run(dir_, dataset_, CELLS, LINES, doc(c.formula));
    ASSERT_EQ(run.status, 0) << c.formula << ": " << run.error();
    for (const frm::Line &line : run.lines)
        for (int x = 0; x < CELLS; x++) {
            ASSERT_FALSE(line.null[x]);
            ASSERT_NEAR(line.values[x], c.value, c.tolerance) << c.formula;
        }
}

INSTANTIATE_TEST_SUITE_P(Table, FormulaConstants, ::testing::ValuesIn(const_cases));

/* ---------------------------------------------------------------- per cell */

bool in_field(int x, int y)
{
    return x >= 2 && x <= 5 && y >= 1 && y <= 3;
}

double mahal_field(double a, double b)
{
    const double d1 = a - 10, d2 = b - 20;
    return (9 * d1 * d1 - 2 * d1 * d2 + 4 * d2 * d2) / 35;
}

struct CellCase {
    const char *formula;
    bool nulls;  // band 2 null (0) at every fourth cell
    std::function<Opt(int x, int y, Opt a, Opt b)> expected;
};

const CellCase cell_cases[] = {
    {"INREGION('Field')", false,
     [](int x, int y, Opt, Opt) -> Opt { return in_field(x, y) ? 1.0 : 0.0; }},
    {"INREGION(R1) * I1 + INREGION('Bare') * 1000", false,
     [](int x, int y, Opt a, Opt) -> Opt {
         return (in_field(x, y) ? *a : 0.0) + (x < 3 && y < 3 ? 1000.0 : 0.0);
     }},
    {"MAHAL('Field', I1, I2)", false,
     [](int, int, Opt a, Opt b) -> Opt { return mahal_field(*a, *b); }},
    {"MAHAL(R1, I1, I2) + I2 * 0", true,
     [](int, int, Opt a, Opt b) -> Opt {
         if (!b) return std::nullopt;
         return mahal_field(*a, *b);
     }},
    {"IF ISNULL(I2) THEN -1 ELSE MAHAL('Field', I1, I2)", true,
     [](int, int, Opt a, Opt b) -> Opt { return b ? mahal_field(*a, *b) : -1.0; }},
    {"IF INREGION('Field') THEN MAHAL('Field', I2) + I1 * 0 ELSE NULL", true,
     [](int x, int y, Opt, Opt b) -> Opt {
         if (!in_field(x, y) || !b) return std::nullopt;
         return (*b - 20) * (*b - 20) / 9;
     }},
    // The init entry keeps 100 plus the first cell's I1 (5).
    {"offsetsum(I1, I2)", false, [](int, int, Opt a, Opt b) -> Opt { return *a + *b + 105; }},
    {"offsetsum(I1, I2) + offsetsum(I2, I1)", false,
     [](int, int, Opt a, Opt b) -> Opt { return 2 * (*a + *b) + 105 + 100; }},
};

class FormulaCells : public FormulaRefs, public ::testing::WithParamInterface<CellCase> {
   protected:
    void SetUp() override
    {
        nulls_ = GetParam().nulls;
        FormulaRefs::SetUp();
    }
};

TEST_P(FormulaCells, MatchCellByCellValues)
{
    const CellCase &c = GetParam();
    FormulaRun run(dir_, dataset_, CELLS, LINES, doc(c.formula));
    ASSERT_EQ(run.status, 0) << c.formula << ": " << run.error();
    for (int y = 0; y < LINES; y++)
        for (int x = 0; x < CELLS; x++) {
            Opt a = band_value(0, y, x), b = band_value(1, y, x);
            if (c.nulls && *b == 0) b.reset();
            const Opt want = c.expected(x, y, a, b);
            ASSERT_EQ(run.lines[y].null[x], !want.has_value())
                << c.formula << " at " << x << ", " << y;
            if (want) {
                ASSERT_NEAR(run.lines[y].values[x], *want, 1e-9 * (1 + std::fabs(*want)))
                    << c.formula << " at " << x << ", " << y;
            }
        }
}

INSTANTIATE_TEST_SUITE_P(Table, FormulaCells, ::testing::ValuesIn(cell_cases));

/* A user function is called where the cell-by-cell interpreter would call
 * it, in cell order: in the taken branch of an IF, on the right of an OR
 * whose left side is 0, as an argument whose elder arguments aren't null. */
struct CountCase {
    const char *formula;
    bool nulls;
    // The expected value, given the calls so far, which it may add to.
    std::function<Opt(Opt a, Opt b, long &calls)> expected;
};

const CountCase count_cases[] = {
    {"IF I1 > 12 THEN callcount(I1) ELSE -1", false,
     [](Opt a, Opt, long &calls) -> Opt { return *a > 12 ? Opt(++calls) : Opt(-1.0); }},
    {"IF I1 > 12 OR callcount(I1) > 5 THEN 1 ELSE 0", false,
     [](Opt a, Opt, long &calls) -> Opt { return *a > 12 || ++calls > 5 ? 1.0 : 0.0; }},
    {"MIN(I2, callcount(I1)) + I1 * 0", true,
     [](Opt a, Opt b, long &calls) -> Opt {
         if (!b) return std::nullopt;
         return std::min(*b, static_cast<double>(++calls)) + *a * 0;
     }},
    {"IF ISNULL(I2) THEN 0 ELSE I2 * 0 + callcount(I1)", true,
     [](Opt, Opt b, long &calls) -> Opt { return b ? Opt(++calls) : Opt(0.0); }},
};

class FormulaUserCalls : public FormulaRefs, public ::testing::WithParamInterface<CountCase> {
   protected:
    void SetUp() override
    {
        nulls_ = GetParam().nulls;
        FormulaRefs::SetUp();
    }
};

TEST_P(FormulaUserCalls, HappenWhereTheInterpreterMakesThem)
{
    const CountCase &c = GetParam();
    FormulaRun run(dir_, dataset_, CELLS, LINES, doc(c.formula));
    ASSERT_EQ(run.status, 0) << c.formula << ": " << run.error();
    long calls = 0;
    for (int y = 0; y < LINES; y++)
        for (int x = 0; x < CELLS; x++) {
            Opt a = band_value(0, y, x), b = band_value(1, y, x);
            if (c.nulls && *b == 0) b.reset();
            const Opt want = c.expected(a, b, calls);
            ASSERT_EQ(run.lines[y].null[x], !want.has_value())
                << c.formula << " at " << x << ", " << y;
            if (want) {
                ASSERT_EQ(run.lines[y].values[x], *want) << c.formula << " at " << x << ", " << y;
            }
        }
}

INSTANTIATE_TEST_SUITE_P(Table, FormulaUserCalls, ::testing::ValuesIn(count_cases));

/* ---------------------------------------------------------------- failures */

struct FailCase {
    const char *formula;
    const char *message;
};

const FailCase fail_cases[] = {
    {"MEAN(,'Nowhere',B1)", " - Cannot find region"},
    {"MEAN(,'Bare',B1)", " - Statistics have not been calculated"},
    {"MEAN(,'Field',B3)", " - Cannot find band"},
    {"COVAR(,'Field',B1,3)", " - Bad component number"},
    {"PC_COV(B2 | ,'Field',B1,1)", " - Desired band not in band list"},
    {"DETCOV(B1..B3 | ,'Field')", " - Too many bands in list"},
    {"MEAN(D1,'Field',B1)", " - Bad dataset number"},
    {"MAHAL('Nowhere', I1, I2)", "Could not find region Nowhere."},
    {"MAHAL(R2, I1) + INREGION(R1)", "Could not find region R2."},
    {"MAHAL('Bare', I1)", "Stats not calculated for region: Bare"},
    {"INREGION('Nowhere')", "Could not find region Nowhere."},
    {"nolibrary(I1)", "Cannot load library"},
    {"nofinal(I1)", "Could not find symbol nofinal_final in "},
};

class FormulaRefFailures : public FormulaRefs, public ::testing::WithParamInterface<FailCase> {};

TEST_P(FormulaRefFailures, FailTheOpenWithTheirMessage)
{
    const FailCase &c = GetParam();
    StreamDoc s = doc(c.formula);
    s.datasets.clear();
    FormulaRun run(dir_, dataset_, CELLS, LINES, s);
    EXPECT_EQ(run.status, 1) << c.formula;
    EXPECT_NE(run.error().find(c.message), std::string::npos) << run.error();
}

INSTANTIATE_TEST_SUITE_P(Table, FormulaRefFailures, ::testing::ValuesIn(fail_cases));

TEST_F(FormulaRefs, NamesTheConstantAndTheReasonInItsMessage)
{
    FormulaRun run(dir_, dataset_, CELLS, LINES, doc("1 + MEAN(,'Field',B3)"));
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.error(), "Dataset constant error: MEAN(,'Field',BAND3) - Cannot find band\n");
}

}  // namespace
