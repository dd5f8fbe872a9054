// The formula language, text in and text out: each row is a formula with the
// text it prints back as (prefixes INPUT, REGION, DATASET), or the exact
// message that refuses it.
#include <gtest/gtest.h>

#include <string>

#include "formula_fixture.h"

namespace {

struct Row {
    const char *text;
    bool accepted;
    const char *expected;  // printed form, or the message
};

constexpr bool OK = true;
constexpr bool NO = false;

#define MISSING_I(n) \
    "Missing input(s) before I" #n ".  (Inputs must start with 1 and be consecutive.)"
#define MISSING_R(n) \
    "Missing region(s) before R" #n ".  (Regions must start with 1 and be consecutive.)"
#define MISSING_D(n) \
    "Missing dataset(s) before D" #n ".  (Datasets must start with 1 and be consecutive.)"
#define LOOP_OUTSIDE "Bad INPUT? or I? - only valid within SIGMA expressions"

const Row kRows[] = {
    // tokens and numbers
    {"I1", OK, "INPUT1"},
    {"i1 + input2", OK, "INPUT1 + INPUT2"},
    {"Input1*iNpUt2", OK, "INPUT1 * INPUT2"},
    {"I2", NO, MISSING_I(1)},
    {"I1 + I3", NO, MISSING_I(2)},
    {"I1 + I2 + I4 + I5", NO, MISSING_I(3)},
    {"-2", OK, "-2"},
    {"- I1", OK, "-INPUT1"},
    {"--2", OK, "2"},
    {"- - I1", OK, "--INPUT1"},
    {"5.", OK, "5"},
    {".5", OK, "0.5"},
    {"3.25", OK, "3.25"},
    {"0.1 + 0.2", OK, "0.1 + 0.2"},
    {"1.0/3.0", OK, "1 / 3"},
    {"123456789012345.0", OK, "123456789012345"},
    {"12345678901234567890", OK, "12345678901234567168"},
    {"7777333333333.5", OK, "7777333333333.5"},
    {"7777333333334", OK, "7777333333334"},
    {"MEAN(,,B99999999999)", OK, "MEAN(,,BAND2147483647)"},
    {".", NO, "parse error - near: \".\"."},
    {"1..3", NO, "parse error - near: \".3\"."},
    {"1E5", NO, "parse error - near: \"E5\"."},
    {"E5", OK, "0.0"},
    {"I0", OK, "0.0"},
    {"B01", OK, "0.0"},
    {"I1X", OK, "0.0"},
    {"I1\r", NO, "parse error - near: \"\r\"."},
    {"'abc", NO, "parse error - near: \"'\"."},
    {"\"a\"", NO, "parse error - near: \"\"\"."},
    {"1 +", NO, "parse error - near end of formula."},
    {"", NO, "parse error - near end of formula."},
    {" \t\n", NO, "parse error - near end of formula."},
    {"I1\n+ I2", OK, "INPUT1 + INPUT2"},
    {"I1\t*\tI2", OK, "INPUT1 * INPUT2"},
    {"1 abcdefghijklmnopqrstuvwxyz", NO, "parse error - near: \"abcdefghijklmnopqrst\"."},
    {"1 'a very long quoted string'", NO, "parse error - near: \"'a very long quoted \"."},
    {"PI", OK, "PI"},
    {"e", OK, "E"},
    {"pi * 2", OK, "PI * 2"},
    {"ALL", NO, "parse error - near: \"ALL\"."},
    {"I1 ALL", NO, "parse error - near: \"ALL\"."},
    {"THEN", NO, "parse error - near: \"THEN\"."},
    {"I1 I2", NO, "parse error - near: \"I2\"."},
    {"B1", NO, "parse error - near: \"B1\"."},
    {"R1", NO, "parse error - near: \"R1\"."},
    {"D1", NO, "parse error - near: \"D1\"."},
    {"'name'", NO, "parse error - near: \"'name'\"."},
    {"..", NO, "parse error - near: \"..\"."},

    // operators
    {"I1 * I2 / I3 % 2", OK, "INPUT1 * INPUT2 / INPUT3 % 2"},
    {"I1 <> I2", OK, "INPUT1 != INPUT2"},
    {"I1 != I2", OK, "INPUT1 != INPUT2"},
    {"I1>=1 AND I1<=2 OR I1=3", OK, "INPUT1 >= 1 AND INPUT1 <= 2 OR INPUT1 = 3"},
    {"I1 > 1 and I1 < 2", OK, "INPUT1 > 1 AND INPUT1 < 2"},
    {"not I1", OK, "NOT INPUT1"},
    {"NOT NOT I1", OK, "NOT NOT INPUT1"},
    {"-(2)", OK, "(-2)"},
    {"-(I1)", OK, "-(INPUT1)"},
    {"(1 + 2) * 3", OK, "(1 + 2) * 3"},
    {"((1))", OK, "(1)"},
    {"1 - -2", OK, "1 - -2"},
    {"1--2", OK, "1 - -2"},
    {"2*-I1", OK, "2 * -INPUT1"},
    {"1 ! 2", NO, "parse error - near: \"!\"."},
    {"I1 == I2", NO, "parse error - near: \"=\"."},
    {"I1 =< I2", NO, "parse error - near: \"<\"."},
    {"I1 >< I2", NO, "parse error - near: \"<\"."},
    {"I1 ^ 2", NO, "parse error - near: \"^\"."},
    {"(I1", NO, "parse error - near end of formula."},
    {"I1)", NO, "parse error - near: \")\"."},
    {"()", NO, "parse error - near: \")\"."},
    {"* I1", NO, "parse error - near: \"*\"."},
    {"NOT", NO, "parse error - near end of formula."},

    // NULL and IF
    {"NULL", OK, "NULL"},
    {"null", OK, "NULL"},
    {"NULL + 1", NO, "parse error - near: \"+\"."},
    {"(NULL)", NO, "parse error - near: \"NULL\"."},
    {"MIN(NULL, 1)", NO, "parse error - near: \"NULL\"."},
    {"-NULL", NO, "parse error - near: \"NULL\"."},
    {"IF I1 THEN NULL ELSE I1", OK, "IF INPUT1 THEN NULL ELSE INPUT1"},
    {"IF I1 THEN (IF I2 THEN NULL ELSE 1) ELSE 2", OK,
     "IF INPUT1 THEN (IF INPUT2 THEN NULL ELSE 1) ELSE 2"},
    {"IF I1 THEN 1 ELSE NULL + 1", OK, "IF INPUT1 THEN 1 ELSE NULL + 1"},
    {"ISNULL(NULL)", NO, "parse error - near: \"NULL\"."},
    {"SIGMA(I1 | NULL)", NO, "parse error - near: \"NULL\"."},
    {"IF I1 THEN 1", NO, "parse error - near end of formula."},
    {"IF I1 ELSE 2", NO, "parse error - near: \"ELSE\"."},
    {"IF NULL THEN 1 ELSE 2", NO, "parse error - near: \"NULL\"."},
    {"ISNULL(I1)", OK, "ISNULL(INPUT1)"},
    {"1 + IF I1 THEN I2 ELSE I3 + 4", OK, "1 + IF INPUT1 THEN INPUT2 ELSE INPUT3 + 4"},
    {"IF I1 > 0 THEN IF I2 THEN 1 ELSE 2 ELSE 3", OK,
     "IF INPUT1 > 0 THEN IF INPUT2 THEN 1 ELSE 2 ELSE 3"},
    {"if i1 then 1 else 0", OK, "IF INPUT1 THEN 1 ELSE 0"},

    // built-in functions
    {"abs(I1)", OK, "ABS(INPUT1)"},
    {"POW(I1,2)", OK, "POW(INPUT1, 2)"},
    {"MIN(I1,I2,I3)", OK, "MIN(INPUT1, INPUT2, INPUT3)"},
    {"SIN()", OK, "SIN()"},
    {"LOG10(100)", OK, "LOG10(100)"},
    {"ceil(floor(I1))", OK, "CEIL(FLOOR(INPUT1))"},
    {"SQRT", NO, "parse error - near end of formula."},
    {"SQRT I1", NO, "parse error - near: \"I1\"."},
    {"MAX(I1,)", NO, "parse error - near: \")\"."},
    {"PI()", NO, "parse error - near: \"(\"."},
    {"exp(1", NO, "parse error - near end of formula."},

    // user functions and variables
    {"myfunc(I1, 2)", OK, "myfunc(INPUT1, 2)"},
    {"smooth3_f(I1, I2, I3)", OK, "smooth3_f(INPUT1, INPUT2, INPUT3)"},
    {"smooth3_f(I1)", NO, "Wrong number of arguments for smooth3_f, expected 3 - near: \")\"."},
    {"f2(I1)", NO, "Wrong number of arguments for f2, expected 2 - near: \")\"."},
    {"f0()", OK, "f0()"},
    {"f0(1)", NO, "Wrong number of arguments for f0, expected 0 - near: \")\"."},
    {"F2_F(1,2)", OK, "F2_F(1, 2)"},
    {"g1_f_f(1, 2)", OK, "g1_f_f(1, 2)"},
    {"Gain * I1 + GAIN", OK, "0.0 * INPUT1 + 0.0"},
    {"user(INPUTVECTOR(I1..I3))", OK, "user(INPUTVECTOR(INPUT1,INPUT2,INPUT3))"},
    {"MIN(INPUTVECTOR(I1))", NO, "INPUTVECTOR only valid for user code functions. - near: \")\"."},
    {"INPUTVECTOR(I1)", NO, "parse error - near: \"INPUTVECTOR\"."},
    {"user(USERSTATS(,R1,B1..B2))", OK, "user(USERSTATS(,REGION1,BAND1,BAND2))"},
    {"user(USERSTATS('ds',R1,I1))", OK, "user(USERSTATS('ds',REGION1,INPUT1))"},
    {"user(USERSTATS(D1,'reg','Band 1'))", OK, "user(USERSTATS(DATASET1,'reg','Band 1'))"},
    {"MAX(USERSTATS(,R1,B1))", NO, "USERSTATS only valid for user code functions. - near: \")\"."},
    {"user(USERSTATS(R1,B1))", NO, "parse error - near: \"R1\"."},
    {"user(USERSTATS(,,B1))", NO, "parse error - near: \",\"."},
    {"user(INPUTVECTOR(I?))", NO, "parse error - near: \"I?\"."},
    {"f1(INPUTVECTOR(I1), 2)", NO, "Wrong number of arguments for f1, expected 1 - near: \")\"."},

    // SIGMA and the loop input
    {"SIGMA(I1..I3 | I? * 2)", OK, "SIGMA(INPUT1,INPUT2,INPUT3 | INPUT? * 2)"},
    {"SIGMA(I1,I2 | INPUT?)", OK, "SIGMA(INPUT1,INPUT2 | INPUT?)"},
    {"I?", NO, LOOP_OUTSIDE " - near: \"I?\"."},
    {"I1 + INPUT?", NO, LOOP_OUTSIDE " - near: \"INPUT?\"."},
    {"I? + (", NO, "parse error - near end of formula."},
    {"SIGMA(I3..I1 | I?)", NO, "Bad input range: \"I3\" > \"I1\" - near: \"I1\"."},
    {"SIGMA(I1..I2 | SIGMA(I1 | I?) + I?)", OK,
     "SIGMA(INPUT1,INPUT2 | SIGMA(INPUT1 | INPUT?) + INPUT?)"},
    {"SIGMA(I1 | I?) + I?", NO, LOOP_OUTSIDE " - near: \"I?\"."},
    {"SIGMA(I? | 1)", NO, "parse error - near: \"I?\"."},
    {"SIGMA(I1)", NO, "parse error - near: \")\"."},
    {"SIGMA(B1 | 1)", NO, "parse error - near: \"B1\"."},
    {"SIGMA(I1..B3 | 1)", NO, "parse error - near: \"B3\"."},
    {"SIGMA(I2..I2 | I?)", NO, MISSING_I(1)},
    {"SIGMA(I1..I20000 | I?)", NO, "Range too long: 1 to 20000 - near: \"I20000\"."},

    // regions and cells
    {"MAHAL(R1, I1..I3)", OK, "MAHAL(REGION1,INPUT1,INPUT2,INPUT3)"},
    {"MAHAL('water', I1, I2)", OK, "MAHAL('water',INPUT1,INPUT2)"},
    {"MAHAL(R2, I1)", NO, MISSING_R(1)},
    {"MAHAL(R1)", NO, "parse error - near: \")\"."},
    {"INREGION(R1)", OK, "INREGION(REGION1)"},
    {"INREGION('Forest')", OK, "INREGION('Forest')"},
    {"INREGION(D1)", NO, "parse error - near: \"D1\"."},
    {"INREGION(R1) + INREGION(R3)", NO, MISSING_R(2)},
    {"CELLX() + CELLY() + PIXELX() + PIXELY()", OK, "CELLX() + CELLY() + PIXELX() + PIXELY()"},
    {"CELLX", NO, "parse error - near end of formula."},
    {"CELLY(1)", NO, "parse error - near: \"1\"."},

    // dataset constants
    {"MEAN(B1)", NO, "parse error - near: \")\"."},
    {"MEAN(,,B1)", OK, "MEAN(,,BAND1)"},
    {"MEAN()", OK, "MEAN()"},
    {"MEAN('ds')", OK, "MEAN('ds')"},
    {"MEAN(D1)", OK, "MEAN(DATASET1)"},
    {"MEAN(D1,R1,I1)", OK, "MEAN(DATASET1,REGION1,INPUT1)"},
    {"MEAN(,R1)", OK, "MEAN(,REGION1)"},
    {"MEAN(,,)", OK, "MEAN()"},
    {"MEAN(,,,)", NO, "Bad number of arguments for \"MEAN\" - near: \")\"."},
    {"MEAN(,,B1,)", NO, "Bad number of arguments for \"MEAN\" - near: \")\"."},
    {"COVAR(,,B1,2)", OK, "COVAR(,,BAND1,2)"},
    {"COVAR(,,,2)", OK, "COVAR(,,,2)"},
    {"CORR(D1,,,1)", OK, "CORR(DATASET1,,,1)"},
    {"COV_EVAL(B1..B3 | ,,B2)", OK, "COV_EVAL(BAND1,BAND2,BAND3 | ,,BAND2)"},
    {"MEAN(B1 | ,,B1)", NO, "Band list not valid for \"MEAN\" - near: \")\"."},
    {"MEAN('A','B' | )", NO, "parse error - near: \"|\"."},
    {"MEAN(B1,'A' | )", NO, "Band list not valid for \"MEAN\" - near: \")\"."},
    {"COV_EVAL(B1,'A' | )", OK, "COV_EVAL(BAND1,'A' | )"},
    {"COV_EVAL('A','B' | )", NO, "parse error - near: \"|\"."},
    {"COV_EVAL('A' | )", OK, "COV_EVAL('A' | )"},
    {"COV_EVAL('A')", OK, "COV_EVAL('A')"},
    {"COV_EVAL(I1,B2,'x' | )", OK, "COV_EVAL(INPUT1,BAND2,'x' | )"},
    {"PC_COV(I1..I2 | D1,R1,B1,3)", OK, "PC_COV(INPUT1,INPUT2 | DATASET1,REGION1,BAND1,3)"},
    {"INVPC_COV(B1 | )", NO, "Band list not valid for \"INVPC_COV\" - near: \")\"."},
    {"INVPC_CORR(,,B1,2)", OK, "INVPC_CORR(,,BAND1,2)"},
    {"NRBANDS()", OK, "NRBANDS()"},
    {"NRBANDS('x')", OK, "NRBANDS('x')"},
    {"NRBANDS(,)", NO, "Bad number of arguments for \"NRBANDS\" - near: \")\"."},
    {"nrlines()", OK, "NRROWS()"},
    {"MAXPIXELX(D1)", NO, "Bad number of arguments for \"MAXPIXELX\" - near: \")\"."},
    {"NRPIXCOLS()", OK, "NRPIXCOLS()"},
    {"DETCOV(B1..B2 | D1, R1)", OK, "DETCOV(BAND1,BAND2 | DATASET1,REGION1)"},
    {"DETCORR(,,B1)", NO, "Bad number of arguments for \"DETCORR\" - near: \")\"."},
    {"COV_EVAL(B3..B1 | )", NO, "Bad band range: \"B3\" > \"B1\" - near: \"B1\"."},
    {"COV_EVAL(I3..I1 | )", NO, "Bad input range: \"I3\" > \"I1\" - near: \"I1\"."},
    {"COV_EVAL(B1..I2 | )", NO, "parse error - near: \"I2\"."},
    {"COV_EVAL(I? | )", NO, "parse error - near: \"I?\"."},
    {"MEAN(,,I?)", NO, LOOP_OUTSIDE " - near: \"I?\"."},
    {"SIGMA(I1..I2 | MEAN(,,I?))", OK, "SIGMA(INPUT1,INPUT2 | MEAN(,,INPUT?))"},
    {"MEAN(,,,1)", NO, "Bad number of arguments for \"MEAN\" - near: \")\"."},
    {"MEAN(D2)", NO, MISSING_D(1)},
    {"MEAN(,R1) + INREGION(R3)", NO, MISSING_R(2)},
    {"I2 + MEAN(,R2)", NO, MISSING_I(1)},
    {"MEAN(D1) + MEAN(D3)", NO, MISSING_D(2)},
    {"MEAN", NO, "parse error - near end of formula."},
    {"MEAN(,,1)", NO, "parse error - near: \"1\"."},
    {"MEAN(,,B1,'x')", NO, "parse error - near: \"'x'\"."},
    {"COVAR(,,,-1)", NO, "parse error - near: \"-\"."},
    {"MEAN(,,B1) * 2", OK, "MEAN(,,BAND1) * 2"},
    {"STDEV(D1,'Region A','Band 3')", OK, "STDEV(DATASET1,'Region A','Band 3')"},
    {"MEDIAN('a b'", NO, "parse error - near end of formula."},
    {"NRNULLS(D1 | )", NO, "parse error - near: \"|\"."},
    {"MEAN(,,B1..B2)", NO, "parse error - near: \"..\"."},
    {"COV_EVAL(I2 | )", NO, MISSING_I(1)},
    {"COV_EVAL(I1 | ,,I2)", OK, "COV_EVAL(INPUT1 | ,,INPUT2)"},
    {"COV_EVAL(I1 | ,,B2,1)", NO, "Bad number of arguments for \"COV_EVAL\" - near: \")\"."},
};

class FormulaTable : public ::testing::TestWithParam<Row> {};

TEST_P(FormulaTable, PrintsOrRefuses)
{
    const Row &row = GetParam();
    ParseResult r = parse(row.text);
    if (row.accepted) {
        EXPECT_EQ(r.message, "") << row.text;
        EXPECT_EQ(r.printed, row.expected) << row.text;
    } else {
        EXPECT_EQ(r.printed, "") << row.text;
        EXPECT_EQ(r.message, row.expected) << row.text;
    }
}

INSTANTIATE_TEST_SUITE_P(Rows, FormulaTable, ::testing::ValuesIn(kRows));

TEST(FormulaTableSize, HoldsEnoughRows)
{
    EXPECT_GE(std::size(kRows), 150u);
}

// An accepted formula prints a text that parses back to the same text.
TEST_P(FormulaTable, PrintedTextRoundTrips)
{
    const Row &row = GetParam();
    // Variables print as values, and large numbers print with an exponent
    // that the language doesn't read back.
    std::string expected = row.expected;
    if (!row.accepted || expected.find("0.0") != std::string::npos ||
        expected.find("E+") != std::string::npos)
        return;
    ParseResult again = parse(row.expected);
    EXPECT_EQ(again.message, "") << row.expected;
    EXPECT_EQ(again.printed, row.expected);
}

}  // namespace
