// Fuzz target of the formula parser: any bytes, as a zero-ended text. Every
// formula that parses is printed, the text parsed again, and the two trees
// compared: a difference aborts. Variables print as their values, so each
// variable is given a value that is hard to print (the values cycle through a
// table) and must come back as that number; a chain of unary minus over a
// variable comes back as one number, as the parser folds it.
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "vld_core.h"
#include "vln_formula.h"

namespace {

const double kValues[] = {-1e70, 1e-7, 0.1, 2.5, DBL_MAX, 5e-324, -0.0, 1.0 / 3, 123456789.125};

struct Variables {
    variablearg *vars = nullptr;
    int count = 0;
};

bool same_double(double a, double b)
{
    return memcmp(&a, &b, sizeof a) == 0;
}

bool same_string(const char *a, const char *b)
{
    return (a ? std::string(a) : std::string()) == (b ? std::string(b) : std::string());
}

bool same_ref(const NameOrNumber *a, const NameOrNumber *b)
{
    if (!a || !b) return a == b;
    return a->type == b->type &&
           (a->type == NN_NAME ? same_string(a->name, b->name) : a->number == b->number);
}

bool same_bands(const BandSpec *a, const BandSpec *b)
{
    for (; a && b; a = a->next, b = b->next) {
        if (a->type != b->type) return false;
        if (a->type == BS_NAME ? !same_string(a->name, b->name) : a->number != b->number)
            return false;
    }
    return !a && !b;
}

bool same_inums(const INumNode *a, const INumNode *b)
{
    for (; a && b; a = a->next, b = b->next)
        if (a->number != b->number) return false;
    return !a && !b;
}

/* The number a variable, or unary minus over one, prints as: its value, and
 * whether any part of it stood in parentheses. False for anything else. */
bool printed_number(const ExprNode *n, const Variables &v, double *value, int *parenthesised)
{
    double sign = 1.0;
    int paren = 0;
    for (; n && n->kind == EXPR_OP && n->u.op.op_type == OP_NEGATE; n = n->u.op.left) {
        sign = -sign;
        paren |= n->parenthesised;
    }
    if (!n || n->kind != EXPR_VARIABLE) return false;
    double x = 0.0;
    find_variable_value(n->u.variable.name, v.count, v.vars, &x);
    *value = sign * x;
    *parenthesised = paren | n->parenthesised;
    return true;
}

/* The tree `b`, read back from the text of `a`, is `a`. */
bool same_tree(const ExprNode *a, const ExprNode *b, const Variables &v)
{
    std::vector<std::pair<const ExprNode *, const ExprNode *>> pending{{a, b}};
    auto add_lists = [&pending](const ExprNode *x, const ExprNode *y) {
        for (; x && y; x = x->next, y = y->next) pending.push_back({x, y});
        return !x && !y;
    };
    while (!pending.empty()) {
        auto [x, y] = pending.back();
        pending.pop_back();
        if (!x || !y) {
            if (x != y) return false;
            continue;
        }
        double value;
        int paren;
        if (printed_number(x, v, &value, &paren)) {
            if (y->kind != EXPR_NUMBER || !same_double(y->u.number.value, value) ||
                y->parenthesised != paren)
                return false;
            continue;
        }
        if (x->kind != y->kind || x->parenthesised != y->parenthesised) return false;
        switch (x->kind) {
            case EXPR_INPUT:
                if (x->u.input.input_number != y->u.input.input_number) return false;
                break;
            case EXPR_NUMBER:
                if (!same_double(x->u.number.value, y->u.number.value)) return false;
                break;
            case EXPR_DSCONST: {
                const auto &p = x->u.dsconst, &q = y->u.dsconst;
                if (p.dc_type != q.dc_type || p.nth != q.nth ||
                    !same_bands(p.band_list, q.band_list) || !same_ref(p.dataset, q.dataset) ||
                    !same_ref(p.region, q.region) || !same_bands(p.band, q.band))
                    return false;
                break;
            }
            case EXPR_SYMCONST:
                if (x->u.symconst.sc_type != y->u.symconst.sc_type) return false;
                break;
            case EXPR_FUNC:
                if (x->u.func.ff_type != y->u.func.ff_type ||
                    !same_string(x->u.func.name, y->u.func.name) ||
                    !add_lists(x->u.func.args, y->u.func.args))
                    return false;
                break;
            case EXPR_OP:
                if (x->u.op.op_type != y->u.op.op_type) return false;
                pending.push_back({x->u.op.left, y->u.op.left});
                pending.push_back({x->u.op.right, y->u.op.right});
                break;
            case EXPR_SIGMA:
                if (!same_inums(x->u.sigma.inputs, y->u.sigma.inputs)) return false;
                pending.push_back({x->u.sigma.body, y->u.sigma.body});
                break;
            case EXPR_IF:
                pending.push_back({x->u.ifx.condition, y->u.ifx.condition});
                pending.push_back({x->u.ifx.then_expr, y->u.ifx.then_expr});
                pending.push_back({x->u.ifx.else_expr, y->u.ifx.else_expr});
                break;
            case EXPR_INREGION:
                if (!same_ref(&x->u.inregion.region, &y->u.inregion.region)) return false;
                break;
            case EXPR_MAHAL:
                if (!same_ref(&x->u.mahal.region, &y->u.mahal.region) ||
                    !add_lists(x->u.mahal.inputs, y->u.mahal.inputs))
                    return false;
                break;
            case EXPR_INPUTVECTOR:
                if (!add_lists(x->u.inputvector.inputs, y->u.inputvector.inputs)) return false;
                break;
            case EXPR_USERSTATS: {
                const auto &p = x->u.userstats, &q = y->u.userstats;
                if (!same_ref(p.dataset, q.dataset) || !same_ref(p.region, q.region) ||
                    !same_bands(p.band_list, q.band_list))
                    return false;
                break;
            }
            case EXPR_ISNULL:
                pending.push_back({x->u.isnull.operand, y->u.isnull.operand});
                break;
            default:
                break;
        }
    }
    return true;
}

/* The text of `tree` as expr_to_string prints it, through a buffer of its size. */
std::string print(ExprNode *tree, const Variables &v)
{
    size_t length = expr_to_string_n(nullptr, 0, tree, "I", nullptr, "R", nullptr, "D", nullptr,
                                     v.count, v.vars);
    std::string text(length + 1, '\0');
    expr_to_string(text.data(), tree, "I", nullptr, "R", nullptr, "D", nullptr, v.count, v.vars);
    if (text[length] != '\0' || strlen(text.c_str()) != length) abort();
    text.resize(length);
    return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size > 4096) return 0;
    std::string text(reinterpret_cast<const char *>(data), size);  // zero-ended copy
    ExprNode *tree = nullptr;
    if (char *message = string_to_expr(&tree, text.c_str())) {
        if (tree) abort();
        safe_free(message);
        return 0;
    }
    if (!tree) abort();

    Variables v;
    create_variable_list(&v.vars, &v.count, tree, 0);
    for (int i = 0; i < v.count; i++)
        v.vars[i].value = kValues[(i + size) % (sizeof kValues / sizeof kValues[0])];
    std::string printed = print(tree, v);

    ExprNode *back = nullptr;
    char *message = string_to_expr(&back, printed.c_str());
    if (message || !same_tree(tree, back, v)) abort();

    FormulaList *list = nullptr;
    expr_to_list(&list, tree, "INPUT", nullptr, "REGION", nullptr, "DATASET", nullptr, 0, nullptr);
    free_FormulaList(list);
    ef_variablearg_array(v.vars, v.count);
    free_ExprNode(back);
    free_ExprNode(tree);
    return 0;
}
