// Helpers of the formula tests: parse a text and print it back, and a form of
// a tree that shows its shape.
#ifndef VORLAN_TESTS_FORMULA_FIXTURE_H
#define VORLAN_TESTS_FORMULA_FIXTURE_H

#include <string>
#include <vector>

#include "vln_formula.h"
#include "vln_formula_internal.h"

struct ParseResult {
    std::string printed;  // empty when refused
    std::string message;  // empty when accepted
};

/* Parses and prints with the prefixes INPUT, REGION and DATASET. */
inline ParseResult parse(const char *text)
{
    ParseResult r;
    ExprNode *tree = nullptr;
    char *message = string_to_expr(&tree, text);
    if (message) {
        r.message = message;
        safe_free(message);
        if (tree) r.printed = "tree left with a message";
        return r;
    }
    r.printed = vlnf::expr_text(tree, vlnf::TextOptions());
    free_ExprNode(tree);
    return r;
}

/* A tree that frees itself. */
struct Tree {
    ExprNode *root = nullptr;
    std::string message;
    explicit Tree(const char *text)
    {
        char *m = string_to_expr(&root, text);
        if (m) message = m;
        safe_free(m);
    }
    ~Tree() { free_ExprNode(root); }
    Tree(const Tree &) = delete;
    Tree &operator=(const Tree &) = delete;
};

/* The shape of a tree: operators and IF as prefix lists, leaves as text. */
inline std::string shape(const ExprNode *n)
{
    if (!n) return "?";
    switch (n->kind) {
        case EXPR_OP:
            if (!n->u.op.right)
                return std::string("(") + optype_text(n->u.op.op_type) + "u " +
                       shape(n->u.op.left) + ")";
            return std::string("(") + optype_text(n->u.op.op_type) + " " + shape(n->u.op.left) +
                   " " + shape(n->u.op.right) + ")";
        case EXPR_IF:
            return "(IF " + shape(n->u.ifx.condition) + " " + shape(n->u.ifx.then_expr) + " " +
                   shape(n->u.ifx.else_expr) + ")";
        default: {
            vlnf::TextOptions o;
            o.input_prefix = "I";
            return vlnf::expr_text(n, o);
        }
    }
}

#endif
