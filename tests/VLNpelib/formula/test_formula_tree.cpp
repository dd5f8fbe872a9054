// Formula trees: the shape the parser builds (precedence, associativity,
// IF at the right end), its limits, and the walkers, counters, lists and text
// forms over a tree.
#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "formula_fixture.h"

namespace {

struct ShapeRow {
    const char *text;
    const char *shape;
};

const ShapeRow kShapes[] = {
    {"1 + 2 * 3", "(+ 1 (* 2 3))"},
    {"1 - 2 - 3", "(- (- 1 2) 3)"},
    {"8 / 4 / 2", "(/ (/ 8 4) 2)"},
    {"1 * 2 % 3", "(% (* 1 2) 3)"},
    {"-I1 * 2", "(* (-u I1) 2)"},
    {"-I1 + 2", "(+ (-u I1) 2)"},
    {"NOT I1 = I2", "(= (NOTu I1) I2)"},
    {"NOT I1 + I2", "(+ (NOTu I1) I2)"},
    {"NOT I1 AND I2", "(AND (NOTu I1) I2)"},
    {"I1 < I2 = I3", "(= (< I1 I2) I3)"},
    {"I1 = I2 < I3", "(= I1 (< I2 I3))"},
    {"I1 = I2 != I3", "(!= (= I1 I2) I3)"},
    {"I1 OR I2 AND I3", "(OR I1 (AND I2 I3))"},
    {"I1 AND I2 OR I3", "(OR (AND I1 I2) I3)"},
    {"I1 + 1 > 2 AND I2", "(AND (> (+ I1 1) 2) I2)"},
    {"1 + IF I1 THEN I2 ELSE I3 + 4", "(+ 1 (IF I1 I2 (+ I3 4)))"},
    {"IF I1 THEN I2 ELSE I3 OR I1", "(IF I1 I2 (OR I3 I1))"},
    {"IF I1 THEN 1 ELSE NULL + 1", "(+ (IF I1 1 NULL) 1)"},
    {"2 * IF I1 THEN 1 ELSE NULL + 1", "(+ (* 2 (IF I1 1 NULL)) 1)"},
    {"-IF I1 THEN 1 ELSE 2 * 3", "(-u (IF I1 1 (* 2 3)))"},
    {"IF I1 + 1 THEN I2 ELSE I3", "(IF (+ I1 1) I2 I3)"},
    {"IF I1 THEN IF I2 THEN 1 ELSE 2 ELSE 3", "(IF I1 (IF I2 1 2) 3)"},
    {"(1 + 2) * 3", "(* (+ 1 2) 3)"},
};

TEST(FormulaShape, PrecedenceAndAssociativity)
{
    for (const ShapeRow &row : kShapes) {
        Tree t(row.text);
        ASSERT_EQ(t.message, "") << row.text;
        EXPECT_EQ(shape(t.root), row.shape) << row.text;
    }
}

TEST(FormulaShape, NegativeNumbersAreFoldedAndParenthesesKept)
{
    Tree minus("-2");
    ASSERT_EQ(minus.root->kind, EXPR_NUMBER);
    EXPECT_EQ(minus.root->u.number.value, -2.0);

    Tree twice("--2");
    ASSERT_EQ(twice.root->kind, EXPR_NUMBER);
    EXPECT_EQ(twice.root->u.number.value, 2.0);

    Tree op("- I1");
    ASSERT_EQ(op.root->kind, EXPR_OP);
    EXPECT_EQ(op.root->u.op.op_type, OP_NEGATE);
    EXPECT_EQ(op.root->u.op.right, nullptr);

    Tree paren("((1))");
    EXPECT_EQ(paren.root->parenthesised, 1);
}

TEST(FormulaShape, DatasetConstantArguments)
{
    Tree t("PC_COV(B1..B3, I2 | D1,'r',I1,2)");
    ASSERT_EQ(t.message, "");
    const auto &d = t.root->u.dsconst;
    EXPECT_EQ(d.dc_type, DC_PC_COV);
    std::vector<std::pair<int, int>> bands;
    for (const BandSpec *b = d.band_list; b; b = b->next) bands.push_back({b->type, b->number});
    EXPECT_EQ(bands, (std::vector<std::pair<int, int>>{
                         {BS_BAND, 1}, {BS_BAND, 2}, {BS_BAND, 3}, {BS_INPUT, 2}}));
    EXPECT_EQ(d.dataset->type, NN_NUMBER);
    EXPECT_EQ(d.region->type, NN_NAME);
    EXPECT_STREQ(d.region->name, "r");
    EXPECT_EQ(d.band->type, BS_INPUT);
    EXPECT_EQ(d.nth, 2);
    EXPECT_EQ(dc_count_args(t.root), 4);

    // A lone quoted name before the bar is a band list; otherwise a dataset.
    Tree list("COV_EVAL('Band 1' | )");
    EXPECT_EQ(list.root->u.dsconst.dataset, nullptr);
    ASSERT_NE(list.root->u.dsconst.band_list, nullptr);
    EXPECT_STREQ(list.root->u.dsconst.band_list->name, "Band 1");
    Tree dataset("COV_EVAL('scene', R1)");
    EXPECT_EQ(dataset.root->u.dsconst.band_list, nullptr);
    EXPECT_STREQ(dataset.root->u.dsconst.dataset->name, "scene");
}

std::string repeat(const std::string &s, int n)
{
    std::string out;
    for (int i = 0; i < n; i++) out += s;
    return out;
}

TEST(FormulaLimits, DeepNestingIsAStackOverflowNotACrash)
{
    const struct {
        std::string text;
        bool accepted;
    } rows[] = {
        {repeat("(", 99) + "I1" + repeat(")", 99), true},
        {repeat("(", 100) + "I1" + repeat(")", 100), false},
        {repeat("-", 99) + "I1", true},
        {repeat("-", 100) + "2", true},  // signs fold into the number: no levels
        {repeat("-", 99) + "NOT 2", false},
        {repeat("-", 10001) + "2", false},
        {repeat("(", 100000) + "I1" + repeat(")", 100000), false},
        {repeat("-", 100000) + "I1", false},
        {repeat("NOT ", 50000) + "I1", false},
        {repeat("ABS(", 50000) + "I1" + repeat(")", 50000), false},
        {repeat("IF I1 THEN 1 ELSE ", 50000) + "2", false},
        {"I1" + repeat(" + I1", 9000), true},
        {"I1" + repeat(" + I1", 20000), false},
        {"MIN(I1" + repeat(", I1", 50000) + ")", true},
    };
    for (const auto &row : rows) {
        ParseResult r = parse(row.text.c_str());
        if (row.accepted) {
            EXPECT_EQ(r.message, "") << row.text.substr(0, 40);
        } else {
            EXPECT_EQ(r.message.rfind("parser stack overflow - near", 0), 0u)
                << row.text.substr(0, 40) << ": " << r.message;
        }
    }
}

TEST(FormulaLimits, LongTextsParse)
{
    // Longer than any fixed scanner buffer would be.
    std::string text = "I1" + repeat(" + 1.25", 4000);
    ParseResult r = parse(text.c_str());
    EXPECT_EQ(r.message, "");
    EXPECT_GT(text.size(), 16384u);
}

struct CountRow {
    const char *text;
    int inputs, occurrences, regions, datasets, variables;
    std::vector<int> input_list;    // with duplicates
    std::vector<int> region_list;   // distinct
    std::vector<int> dataset_list;  // distinct
};

const CountRow kCounts[] = {
    {"i1 + input2", 2, 2, 0, 0, 0, {1, 2}, {}, {}},
    {"I2 * I1 + I2", 2, 3, 0, 0, 0, {1, 2, 2}, {}, {}},
    {"SIGMA(I1..I3 | I? * 2)", 3, 3, 0, 0, 0, {1, 2, 3}, {}, {}},
    {"Gain * I1 + GAIN + offset", 1, 1, 0, 0, 2, {1}, {}, {}},
    {"COV_EVAL(I1, I2, B1, 'x' | D1, R1, I2)", 2, 3, 1, 1, 0, {1, 2, 2}, {1}, {1}},
    {"MEAN('ds', 'r', 'b')", 0, 0, 0, 0, 0, {}, {}, {}},
    {"INREGION(R2) + MAHAL(R1, I1..I2) + INREGION(R1)", 2, 2, 2, 0, 0, {1, 2}, {1, 2}, {}},
    {"user(USERSTATS(D1, R1, I1..I2, B4), INPUTVECTOR(I3))", 3, 3, 1, 1, 0, {1, 2, 3}, {1}, {1}},
    {"SIGMA(I1..I2 | MEAN(,,I?) + I?)", 2, 2, 0, 0, 0, {1, 2}, {}, {}},
    {"IF ISNULL(I1) THEN NULL ELSE MIN(I1, I2)", 2, 3, 0, 0, 0, {1, 1, 2}, {}, {}},
    {"NULL", 0, 0, 0, 0, 0, {}, {}, {}},
};

std::vector<int> to_vector(INumNode *list)
{
    std::vector<int> out;
    for (INumNode *n = list; n; n = n->next) out.push_back(n->number);
    free_INumNode_list(list);
    return out;
}

TEST(FormulaCounts, InputsRegionsDatasetsVariables)
{
    for (const CountRow &row : kCounts) {
        Tree t(row.text);
        ASSERT_EQ(t.message, "") << row.text;
        EXPECT_EQ(count_formula_inputs(t.root), row.inputs) << row.text;
        EXPECT_EQ(count_input_occurances(t.root), row.occurrences) << row.text;
        EXPECT_EQ(count_formula_regions(t.root), row.regions) << row.text;
        EXPECT_EQ(count_formula_datasets(t.root), row.datasets) << row.text;
        EXPECT_EQ(count_formula_variables(t.root), row.variables) << row.text;

        INumNode *list = nullptr;
        EXPECT_EQ(create_input_list(&list, t.root, 1), static_cast<int>(row.input_list.size()));
        EXPECT_EQ(to_vector(list), row.input_list) << row.text;
        create_region_list(&list, t.root, 0);
        EXPECT_EQ(to_vector(list), row.region_list) << row.text;
        create_dataset_list(&list, t.root, 0);
        EXPECT_EQ(to_vector(list), row.dataset_list) << row.text;
    }
}

TEST(FormulaCounts, VariableListIsSortedIgnoringCaseWithZeroValues)
{
    Tree t("zeta + Alpha * beta + ALPHA + gain_2");
    variablearg *vars = nullptr;
    int count = 0;
    EXPECT_EQ(create_variable_list(&vars, &count, t.root, 0), 0);
    ASSERT_EQ(count, 4);
    std::vector<std::string> names;
    for (int i = 0; i < count; i++) {
        names.push_back(vars[i].name);
        EXPECT_EQ(vars[i].value, 0.0);
    }
    EXPECT_EQ(names, (std::vector<std::string>{"Alpha", "beta", "gain_2", "zeta"}));
    ef_variablearg_array(vars, count);

    create_variable_list(&vars, &count, t.root, 1);
    EXPECT_EQ(count, 5);
    ef_variablearg_array(vars, count);
}

TEST(FormulaWalk, VisitsParentsThenChildrenInOrder)
{
    Tree t("IF I1 THEN MIN(I2, -I3) ELSE ISNULL(MAHAL(R1, I1..I2))");
    std::vector<int> kinds;
    walk_formula(
        t.root,
        [](ExprNode *n, void *arg) { static_cast<std::vector<int> *>(arg)->push_back(n->kind); },
        &kinds);
    EXPECT_EQ(kinds,
              (std::vector<int>{EXPR_IF, EXPR_INPUT, EXPR_FUNC, EXPR_INPUT, EXPR_OP, EXPR_INPUT,
                                EXPR_ISNULL, EXPR_MAHAL, EXPR_INPUT, EXPR_INPUT}));
    walk_formula(
        nullptr, [](ExprNode *, void *) { FAIL(); }, nullptr);
}

TEST(FormulaText, PrefixesNameTablesAndVariables)
{
    Tree t("SIGMA(I1..I2 | I?) + MEAN(D1, R1, I2) + INREGION(R2) + Gain + Offset");
    ASSERT_EQ(t.message, "");
    char buffer[512];
    EXPECT_STREQ(
        expr_to_string(buffer, t.root, "I", nullptr, "R", nullptr, "D", nullptr, 0, nullptr),
        "SIGMA(I1,I2 | I?) + MEAN(D1,R1,I2) + INREGION(R2) + 0.0 + 0.0");

    char *inputs[] = {const_cast<char *>("red"), const_cast<char *>("nir")};
    char *regions[] = {const_cast<char *>("lake"), const_cast<char *>("field")};
    char *datasets[] = {const_cast<char *>("scene")};
    variablearg vars[] = {{const_cast<char *>("GAIN"), 2.5}};
    expr_to_string(buffer, t.root, "I", inputs, "R", regions, "D", datasets, 1, vars);
    EXPECT_STREQ(buffer,
                 "SIGMA(red,nir | I?) + MEAN(scene,lake,nir) + INREGION(field) + "
                 "2.500000 + 0.0");
}

TEST(FormulaText, SizedPrintCutsShortAndReportsTheWholeLength)
{
    Tree t("SIGMA(I1..I3 | I? * 2)");
    const std::string whole = "SIGMA(I1,I2,I3 | I? * 2)";
    auto print = [&](char *buffer, size_t size) {
        return expr_to_string_n(buffer, size, t.root, "I", nullptr, "R", nullptr, "D", nullptr, 0,
                                nullptr);
    };
    EXPECT_EQ(print(nullptr, 0), whole.size());
    for (size_t size : {size_t{1}, size_t{2}, size_t{10}, whole.size(), whole.size() + 1}) {
        std::vector<char> buffer(size + 4, '#');
        EXPECT_EQ(print(buffer.data(), size), whole.size()) << size;
        EXPECT_EQ(std::string(buffer.data()), whole.substr(0, size - 1)) << size;
        EXPECT_EQ(buffer[size], '#') << "written past a buffer of " << size;
    }
}

TEST(FormulaText, NumbersPrintInTheirLookAndReadBackExactly)
{
    const std::string huge = "1" + std::string(400, '9');  // beyond the largest double
    const std::string tiny = "0." + std::string(400, '0') + "1";
    char dbl_max[400];  // its exact digits are as short as any that read back
    snprintf(dbl_max, sizeof dbl_max, "%.0f", DBL_MAX);
    const struct {
        std::string text;
        std::string printed;
    } rows[] = {
        {"3.25", "3.25"},  // ordinary numbers keep their look
        {"0.1 + 0.2", "0.1 + 0.2"},
        {"-2", "-2"},
        {"-0", "-0"},
        {"0.00001", "0.00001"},  // not 1E-05, which is no number of the language
        {"0.000000000000000000001", "0.000000000000000000001"},
        {".3333333333333333", "0.3333333333333333"},  // more than 13 digits
        {"7777333333333.5", "7777333333333.5"},
        {"123456789012345.0", "123456789012345"},
        {"12345678901234567890", "12345678901234567168"},
        {huge, dbl_max},  // not INF, which would read back as a name
        {"-" + huge, std::string("-") + dbl_max},
        {tiny, "0"},
    };
    for (const auto &row : rows) {
        Tree t(row.text.c_str());
        ASSERT_EQ(t.message, "") << row.text;
        std::string printed = vlnf::expr_text(t.root, vlnf::TextOptions());
        EXPECT_EQ(printed, row.printed) << row.text;
        Tree back(printed.c_str());
        ASSERT_EQ(back.message, "") << printed;
        EXPECT_EQ(shape(back.root), shape(t.root)) << row.text;
        const ExprNode *a = t.root, *b = back.root;
        if (a->kind == EXPR_OP) a = a->u.op.left, b = b->u.op.left;
        ASSERT_EQ(b->kind, EXPR_NUMBER) << row.text;
        EXPECT_EQ(memcmp(&a->u.number.value, &b->u.number.value, sizeof(double)), 0) << row.text;
    }
    Tree huge_tree(huge.c_str());
    EXPECT_EQ(huge_tree.root->u.number.value, DBL_MAX);
}

TEST(FormulaText, VariableValuesReadBackExactly)
{
    const struct {
        double value;
        const char *printed;  // null: only reading back is checked
        double reads_as;
    } rows[] = {
        {2.5, "2.500000", 2.5},  // the look of a variable's value is kept
        {-3, "-3.000000", -3},
        {-1e70, nullptr, -1e70},  // was cut short in a 64-byte buffer
        {1e-7, "0.0000001", 1e-7},
        {1.0 / 3, "0.3333333333333333", 1.0 / 3},
        {5e-324, nullptr, 5e-324},
        {DBL_MAX, nullptr, DBL_MAX},
        {-HUGE_VAL, nullptr, -DBL_MAX},
        {NAN, "0.000000", 0.0},
    };
    Tree t("Gain");
    for (const auto &row : rows) {
        variablearg vars[] = {{const_cast<char *>("gain"), row.value}};
        std::string printed(1024, '\0');
        size_t n = expr_to_string_n(printed.data(), printed.size(), t.root, "I", nullptr, "R",
                                    nullptr, "D", nullptr, 1, vars);
        ASSERT_LT(n, printed.size());
        printed.resize(n);
        if (row.printed) {
            EXPECT_EQ(printed, row.printed);
        }
        Tree back(printed.c_str());
        ASSERT_EQ(back.message, "") << printed;
        ASSERT_EQ(back.root->kind, EXPR_NUMBER) << printed;
        EXPECT_EQ(back.root->u.number.value, row.reads_as) << printed;
    }
}

TEST(FormulaText, ListCutsAtReferences)
{
    struct Entry {
        int type;
        std::string text;
        int number;
    };
    const struct {
        const char *formula;
        std::vector<Entry> entries;
    } rows[] = {
        {"I1", {{FL_INPUT, "INPUT1", 1}}},
        {"1 + 2", {{FL_TEXT, "1 + 2", 0}}},
        {"I1 + I2", {{FL_INPUT, "INPUT1", 1}, {FL_TEXT, " + ", 0}, {FL_INPUT, "INPUT2", 2}}},
        {"ABS(I1)", {{FL_TEXT, "ABS(", 0}, {FL_INPUT, "INPUT1", 1}, {FL_TEXT, ")", 0}}},
        {"MEAN(D1,R1,I1) * I?",
         {{FL_TEXT, "MEAN(", 0},
          {FL_DATASET, "DATASET1", 1},
          {FL_TEXT, ",", 0},
          {FL_REGION, "REGION1", 1},
          {FL_TEXT, ",", 0},
          {FL_INPUT, "INPUT1", 1},
          {FL_TEXT, ") * INPUT?", 0}}},
    };
    for (const auto &row : rows) {
        std::string text = row.formula;
        if (text.find("I?") != std::string::npos) text = "SIGMA(I1 | " + text + ")";
        Tree t(text.c_str());
        ASSERT_EQ(t.message, "") << text;
        ExprNode *root = t.root;
        if (root->kind == EXPR_SIGMA) root = root->u.sigma.body;
        FormulaList *list = nullptr;
        EXPECT_EQ(expr_to_list(&list, root, "INPUT", nullptr, "REGION", nullptr, "DATASET", nullptr,
                               0, nullptr),
                  0);
        size_t i = 0;
        for (; list[i].type != FL_END; i++) {
            ASSERT_LT(i, row.entries.size()) << row.formula;
            EXPECT_EQ(list[i].type, row.entries[i].type) << row.formula << " #" << i;
            EXPECT_EQ(list[i].text, row.entries[i].text) << row.formula << " #" << i;
            EXPECT_EQ(list[i].number, row.entries[i].number) << row.formula << " #" << i;
        }
        EXPECT_EQ(i, row.entries.size()) << row.formula;
        free_FormulaList(list);
    }
}

TEST(FormulaText, PartsForMessages)
{
    Tree t("PC_CORR(B1, I2 | 'scene', R1, 'Band 3', 2) + user(USERSTATS(, 'r', I1..I2))");
    ASSERT_EQ(t.message, "");
    char buffer[256];
    EXPECT_STREQ(dc_to_output_string(buffer, t.root->u.op.left),
                 "PC_CORR(BAND1,INPUT2 | 'scene',REGION1,'Band 3',2)");
    Tree c("CORR(,R1,I1)");
    EXPECT_STREQ(dc_to_output_string(buffer, c.root), "CORR(,REGION1,INPUT1)");
    EXPECT_STREQ(bandspec_to_output_string(buffer, c.root->u.dsconst.band), "INPUT1");
    ExprNode *stats = t.root->u.op.right->u.func.args;
    EXPECT_STREQ(ustats_to_output_string(buffer, stats), "USERSTATS(,'r',INPUT1,INPUT2)");
}

}  // namespace
