// Deep formulae on a small thread stack: nesting is refused as a parser stack
// overflow before the parser's recursion can exhaust the stack, and a tall
// tree that the parser accepts (a long left-associative chain) goes through
// every walker without recursion.
#include <gtest/gtest.h>
#include <pthread.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "formula_fixture.h"

namespace {

std::string repeat(const std::string &s, int n)
{
    std::string out;
    for (int i = 0; i < n; i++) out += s;
    return out;
}

/* Runs `body` on a thread whose stack is only 512 KiB, the smallest stack a
 * worker of an application might give the library. */
void on_small_stack(const std::function<void()> &body)
{
    pthread_attr_t attr;
    ASSERT_EQ(pthread_attr_init(&attr), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&attr, 512 * 1024), 0);
    pthread_t thread;
    auto run = [](void *arg) -> void * {
        (*static_cast<const std::function<void()> *>(arg))();
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&thread, &attr, run, const_cast<std::function<void()> *>(&body)), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attr);
}

struct Outcome {
    std::string message;
    size_t printed_length = 0;
    size_t list_text_length = 0;
    int walked = 0, inputs = -1, occurrences = -1, regions = -1, datasets = -1, variables = -1;
};

/* Parses `text` and, when it is accepted, runs every walker over the tree. */
Outcome exercise(const std::string &text)
{
    Outcome o;
    ExprNode *tree = nullptr;
    if (char *m = string_to_expr(&tree, text.c_str())) {
        o.message = m;
        safe_free(m);
        return o;
    }
    std::string printed = vlnf::expr_text(tree, vlnf::TextOptions());
    std::vector<char> buffer(printed.size() + 1);
    expr_to_string(buffer.data(), tree, "I", nullptr, "R", nullptr, "D", nullptr, 0, nullptr);
    o.printed_length = strlen(buffer.data());

    FormulaList *list = nullptr;
    expr_to_list(&list, tree, "I", nullptr, "R", nullptr, "D", nullptr, 0, nullptr);
    for (FormulaList *e = list; e->type != FL_END; e++) o.list_text_length += strlen(e->text);
    free_FormulaList(list);

    walk_formula(
        tree, [](ExprNode *, void *arg) { ++*static_cast<int *>(arg); }, &o.walked);
    o.inputs = count_formula_inputs(tree);
    o.occurrences = count_input_occurances(tree);
    o.regions = count_formula_regions(tree);
    o.datasets = count_formula_datasets(tree);
    o.variables = count_formula_variables(tree);
    INumNode *numbers = nullptr;
    create_input_list(&numbers, tree, 1);
    free_INumNode_list(numbers);
    create_region_list(&numbers, tree, 0);
    free_INumNode_list(numbers);
    create_dataset_list(&numbers, tree, 0);
    free_INumNode_list(numbers);
    variablearg *vars = nullptr;
    int count = 0;
    create_variable_list(&vars, &count, tree, 1);
    ef_variablearg_array(vars, count);
    free_ExprNode(tree);
    return o;
}

constexpr int kDeep = 90;      // nesting every shape below accepts
constexpr int kHuge = 100000;  // nesting that must be refused, not followed

struct NestRow {
    const char *name;
    std::function<std::string(int)> make;
};

const NestRow kNesting[] = {
    {"parentheses", [](int n) { return repeat("(", n) + "I1" + repeat(")", n); }},
    {"unary minus", [](int n) { return repeat("-", n) + "I1"; }},
    {"minus on a number", [](int n) { return repeat("-", n) + "2"; }},
    {"NOT", [](int n) { return repeat("NOT ", n) + "I1"; }},
    {"ABS", [](int n) { return repeat("ABS(", n) + "I1" + repeat(")", n); }},
    {"user function", [](int n) { return repeat("f(", n) + "I1" + repeat(")", n); }},
    {"MIN, last argument", [](int n) { return repeat("MIN(I1, ", n) + "I1" + repeat(")", n); }},
    {"ISNULL", [](int n) { return repeat("ISNULL(", n) + "I1" + repeat(")", n); }},
    {"SIGMA", [](int n) { return repeat("SIGMA(I1 | ", n) + "I?" + repeat(")", n); }},
    {"IF in ELSE", [](int n) { return repeat("IF I1 THEN 1 ELSE ", n) + "2"; }},
    {"IF in THEN", [](int n) { return repeat("IF I1 THEN ", n) + "1" + repeat(" ELSE 2", n); }},
    {"IF in condition",
     [](int n) { return repeat("IF ", n) + "I1" + repeat(" THEN 1 ELSE 2", n); }},
    {"right operands",
     [](int n) { return repeat("I1 OR I1 AND I1 = I1 < I1 + I1 * (", n) + "I1" + repeat(")", n); }},
};

TEST(FormulaDeep, NestingIsAcceptedToALimitThenRefusedOnASmallStack)
{
    for (const NestRow &row : kNesting) {
        std::string deep = row.make(kDeep), huge = row.make(kHuge);
        Outcome accepted, refused;
        on_small_stack([&] {
            accepted = exercise(deep);
            refused = exercise(huge);
        });
        EXPECT_EQ(accepted.message, "") << row.name;
        EXPECT_GT(accepted.walked, 0) << row.name;
        EXPECT_EQ(accepted.list_text_length, accepted.printed_length) << row.name;
        EXPECT_EQ(refused.message.rfind("parser stack overflow - near", 0), 0u)
            << row.name << ": " << refused.message.substr(0, 80);
    }
}

/* A variable prints as its value. A negative value under the deepest chain of
 * unary operators the parser takes adds a sign, which folds into the number
 * on reading and so must not count as one more level. */
TEST(FormulaDeep, NegativeVariableUnderTheDeepestChainReadsBack)
{
    for (const std::string &ops : {repeat("-", 99), repeat("NOT ", 99), repeat("-NOT ", 49) + "-"}) {
        const std::string text = "x - " + ops + "v";
        ExprNode *tree = nullptr;
        ASSERT_EQ(string_to_expr(&tree, text.c_str()), nullptr) << ops;
        variablearg *vars = nullptr;
        int count = 0;
        create_variable_list(&vars, &count, tree, 0);
        for (int i = 0; i < count; i++) vars[i].value = -0.5;
        std::string printed(expr_to_string_n(nullptr, 0, tree, "I", nullptr, "R", nullptr, "D",
                                             nullptr, count, vars) + 1, '\0');
        expr_to_string(printed.data(), tree, "I", nullptr, "R", nullptr, "D", nullptr, count, vars);
        ExprNode *back = nullptr;
        char *message = string_to_expr(&back, printed.c_str());
        EXPECT_EQ(message, nullptr) << printed.substr(0, 40) << ": " << message;
        safe_free(message);
        free_ExprNode(back);
        ef_variablearg_array(vars, count);
        free_ExprNode(tree);
    }
    // One more operator is one level too many, whatever follows it.
    for (const char *operand : {"v", "2"}) {
        ExprNode *tree = nullptr;
        char *message = string_to_expr(&tree, ("x - " + repeat("NOT ", 100) + operand).c_str());
        ASSERT_NE(message, nullptr) << operand;
        EXPECT_EQ(std::string(message).rfind("parser stack overflow - near", 0), 0u) << message;
        safe_free(message);
    }
}

TEST(FormulaDeep, TallTreesGoThroughEveryWalkerOnASmallStack)
{
    // Left-associative chains are not nested: a 9,999-term sum parses and
    // gives a tree 9,999 nodes tall. Each row is such a chain of another kind.
    const struct {
        const char *name;
        std::string text;
        int walked, occurrences, variables;
    } rows[] = {
        {"sum", "I1" + repeat(" + I1", 9998), 19997, 9999, 0},
        {"products of variables", "v" + repeat(" * Gain", 9998), 19997, 0, 2},
        {"mixed operators", "I1" + repeat(" - 1 / I2", 4999), 19997, 5000, 0},
        {"chain of calls and constants",
         "MEAN(D1,R1,I1)" + repeat(" % ABS(-I1) AND INREGION(R1)", 3333), 19999, 3334, 0},
        {"chain inside a call", "ISNULL(SIGMA(I1..I2 | I?" + repeat(" + I?", 9997) + "))", 19997, 2,
         0},
    };
    for (const auto &row : rows) {
        Outcome o;
        on_small_stack([&] { o = exercise(row.text); });
        ASSERT_EQ(o.message, "") << row.name;
        EXPECT_EQ(o.walked, row.walked) << row.name;
        EXPECT_EQ(o.occurrences, row.occurrences) << row.name;
        EXPECT_EQ(o.variables, row.variables) << row.name;
        EXPECT_EQ(o.list_text_length, o.printed_length) << row.name;
        EXPECT_GT(o.printed_length, row.text.size() / 2) << row.name;
    }
    // One step taller than the parser keeps is refused.
    Outcome o;
    on_small_stack([&] { o = exercise("I1" + repeat(" + I1", 10000)); });
    EXPECT_EQ(o.message.rfind("parser stack overflow - near", 0), 0u) << o.message;
}

}  // namespace
