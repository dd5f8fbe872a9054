// Fuzz target of the formula parser: any bytes, as a zero-ended text. A
// formula that parses must print a text that parses again, and whose own
// printed text is a fixed point. Variables print as values, so the first
// reprint of a tree with variables may differ; numbers that print with an
// exponent (or as INF and NAN) are outside the language and are skipped.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "vld_core.h"
#include "vln_formula.h"

namespace {

bool g_unreadable_number;

void check_numbers(ExprNode *node, void *)
{
    if (node->kind != EXPR_NUMBER) return;
    char text[64];
    snprintf(text, sizeof text, "%.13G", node->u.number.value);
    if (strpbrk(text, "EIN")) g_unreadable_number = true;
}

/* The printed text of `text`, or false when it doesn't parse. */
bool reprint(const char *text, std::string *printed, bool *has_variables, bool *skip)
{
    ExprNode *tree = nullptr;
    char *message = string_to_expr(&tree, text);
    if (message) {
        if (tree) abort();
        safe_free(message);
        return false;
    }
    if (!tree) abort();
    g_unreadable_number = false;
    walk_formula(tree, check_numbers, nullptr);
    *skip = g_unreadable_number;
    *has_variables = count_formula_variables(tree) > 0;
    // Ranges unroll (at most 10000 entries each), so a short formula can
    // print a long text; the buffer is sized for the worst of 4096 bytes.
    static std::vector<char> buffer(64u << 20);
    expr_to_string(buffer.data(), tree, "I", nullptr, "R", nullptr, "D", nullptr, 0, nullptr);
    *printed = buffer.data();

    FormulaList *list = nullptr;
    expr_to_list(&list, tree, "INPUT", nullptr, "REGION", nullptr, "DATASET", nullptr, 0, nullptr);
    free_FormulaList(list);
    free_ExprNode(tree);
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size > 4096) return 0;
    std::string text(reinterpret_cast<const char *>(data), size);  // zero-ended copy
    std::string first, second, third;
    bool variables = false, skip = false;
    if (!reprint(text.c_str(), &first, &variables, &skip) || skip) return 0;
    bool v2 = false, s2 = false;
    if (!reprint(first.c_str(), &second, &v2, &s2)) abort();
    if (!variables && second != first) abort();
    if (variables) {
        bool v3 = false, s3 = false;
        if (!reprint(second.c_str(), &third, &v3, &s3) || third != second) abort();
    }
    return 0;
}
