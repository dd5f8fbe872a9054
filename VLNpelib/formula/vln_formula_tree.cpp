/*
 * vln_formula_tree.cpp: formula trees: allocation, freeing, walking, counting.
 *
 * Nodes come zeroed from the core allocator and own everything they point to
 * except their `next`. The counters and list builders all rest on one
 * collector that knows which parts of which nodes refer to inputs, regions and
 * datasets.
 */
#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "vln_formula_internal.h"

namespace vlnf {

ExprNode *new_node(int kind)
{
    auto *node = static_cast<ExprNode *>(malloc_or_die(sizeof(ExprNode)));
    memset(node, 0, sizeof *node);
    node->kind = kind;
    return node;
}

NameOrNumber *new_name(const char *text, int length)
{
    auto *ref = static_cast<NameOrNumber *>(malloc_or_die(sizeof(NameOrNumber)));
    memset(ref, 0, sizeof *ref);
    ref->type = NN_NAME;
    ref->name = strsave(std::string(text, length).c_str());
    return ref;
}

NameOrNumber *new_number(int32_t number)
{
    auto *ref = static_cast<NameOrNumber *>(malloc_or_die(sizeof(NameOrNumber)));
    memset(ref, 0, sizeof *ref);
    ref->type = NN_NUMBER;
    ref->number = number;
    return ref;
}

BandSpec *new_bandspec(int type, const char *text, int length, int32_t number)
{
    auto *band = static_cast<BandSpec *>(malloc_or_die(sizeof(BandSpec)));
    memset(band, 0, sizeof *band);
    band->type = type;
    if (type == BS_NAME) band->name = strsave(std::string(text, length).c_str());
    band->number = number;
    return band;
}

INumNode *new_inum(int32_t number)
{
    auto *inum = static_cast<INumNode *>(malloc_or_die(sizeof(INumNode)));
    inum->next = nullptr;
    inum->number = number;
    return inum;
}

void free_name_or_number_contents(NameOrNumber *ref)
{
    if (!ref) return;
    safe_free(ref->name);
    ref->name = nullptr;
}

namespace {

void add_bandspec(const BandSpec *band, RefKind kind, std::vector<int32_t> &out)
{
    if (kind == RefKind::Input && band && band->type == BS_INPUT &&
        band->number != LOOP_INPUT_NUMBER)
        out.push_back(band->number);
}

void add_reference(const NameOrNumber *ref, std::vector<int32_t> &out)
{
    if (ref && ref->type == NN_NUMBER) out.push_back(ref->number);
}

struct Collect {
    RefKind kind;
    std::vector<int32_t> *out;
};

void collect_visit(ExprNode *node, void *arg)
{
    auto *c = static_cast<Collect *>(arg);
    std::vector<int32_t> &out = *c->out;
    switch (node->kind) {
        case EXPR_INPUT:
            // Inputs listed by MAHAL and INPUTVECTOR are EXPR_INPUT nodes too.
            if (c->kind == RefKind::Input && node->u.input.input_number != LOOP_INPUT_NUMBER)
                out.push_back(node->u.input.input_number);
            break;
        case EXPR_DSCONST: {
            const auto &d = node->u.dsconst;
            for (const BandSpec *b = d.band_list; b; b = b->next) add_bandspec(b, c->kind, out);
            add_bandspec(d.band, c->kind, out);
            if (c->kind == RefKind::Region) add_reference(d.region, out);
            if (c->kind == RefKind::Dataset) add_reference(d.dataset, out);
            break;
        }
        case EXPR_SIGMA:
            if (c->kind == RefKind::Input) {
                for (const INumNode *i = node->u.sigma.inputs; i; i = i->next)
                    if (i->number != LOOP_INPUT_NUMBER) out.push_back(i->number);
            }
            break;
        case EXPR_USERSTATS: {
            const auto &s = node->u.userstats;
            for (const BandSpec *b = s.band_list; b; b = b->next) add_bandspec(b, c->kind, out);
            if (c->kind == RefKind::Region) add_reference(s.region, out);
            if (c->kind == RefKind::Dataset) add_reference(s.dataset, out);
            break;
        }
        case EXPR_INREGION:
            if (c->kind == RefKind::Region) add_reference(&node->u.inregion.region, out);
            break;
        case EXPR_MAHAL:
            if (c->kind == RefKind::Region) add_reference(&node->u.mahal.region, out);
            break;
        default:
            break;
    }
}

/* Sorted, and without repeats unless asked to keep them. */
std::vector<int32_t> sorted_numbers(ExprNode *tree, RefKind kind, bool keep_duplicates)
{
    std::vector<int32_t> numbers;
    collect_numbers(tree, kind, numbers);
    std::sort(numbers.begin(), numbers.end());
    if (!keep_duplicates) numbers.erase(std::unique(numbers.begin(), numbers.end()), numbers.end());
    return numbers;
}

int make_list(INumNode **list, ExprNode *tree, RefKind kind, int keep_duplicates)
{
    std::vector<int32_t> numbers = sorted_numbers(tree, kind, keep_duplicates != 0);
    INumNode *head = nullptr;
    for (auto it = numbers.rbegin(); it != numbers.rend(); ++it) {
        INumNode *n = new_inum(*it);
        n->next = head;
        head = n;
    }
    if (list)
        *list = head;
    else
        free_INumNode_list(head);
    return static_cast<int>(numbers.size());
}

void collect_variables(ExprNode *node, void *arg)
{
    if (node->kind == EXPR_VARIABLE)
        static_cast<std::vector<const char *> *>(arg)->push_back(node->u.variable.name);
}

/* Variable names sorted ignoring case; one of each unless duplicates are kept. */
std::vector<const char *> variable_names(ExprNode *tree, bool keep_duplicates)
{
    std::vector<const char *> names;
    walk_formula(tree, collect_variables, &names);
    auto less = [](const char *a, const char *b) { return strcasecmp(a, b) < 0; };
    std::stable_sort(names.begin(), names.end(), less);
    if (!keep_duplicates) {
        auto same = [](const char *a, const char *b) { return strcasecmp(a, b) == 0; };
        names.erase(std::unique(names.begin(), names.end(), same), names.end());
    }
    return names;
}

}  // namespace

void expr_children(const ExprNode *node, std::vector<ExprNode *> &out)
{
    auto add = [&out](ExprNode *child) {
        if (child) out.push_back(child);
    };
    auto add_list = [&out](ExprNode *list) {
        for (ExprNode *n = list; n; n = n->next) out.push_back(n);
    };
    switch (node->kind) {
        case EXPR_FUNC:
            add_list(node->u.func.args);
            break;
        case EXPR_OP:
            add(node->u.op.left);
            add(node->u.op.right);
            break;
        case EXPR_SIGMA:
            add(node->u.sigma.body);
            break;
        case EXPR_IF:
            add(node->u.ifx.condition);
            add(node->u.ifx.then_expr);
            add(node->u.ifx.else_expr);
            break;
        case EXPR_MAHAL:
            add_list(node->u.mahal.inputs);
            break;
        case EXPR_INPUTVECTOR:
            add_list(node->u.inputvector.inputs);
            break;
        case EXPR_ISNULL:
            add(node->u.isnull.operand);
            break;
        default:
            break;
    }
}

void collect_numbers(ExprNode *tree, RefKind kind, std::vector<int32_t> &out)
{
    Collect c{kind, &out};
    walk_formula(tree, collect_visit, &c);
}

}  // namespace vlnf

using namespace vlnf;

void free_INumNode_list(INumNode *list)
{
    while (list) {
        INumNode *next = list->next;
        safe_free(list);
        list = next;
    }
}

void free_BandSpec_list(BandSpec *list)
{
    while (list) {
        BandSpec *next = list->next;
        safe_free(list->name);
        safe_free(list);
        list = next;
    }
}

void free_NameOrNumber(NameOrNumber *ref)
{
    if (!ref) return;
    safe_free(ref->name);
    safe_free(ref);
}

/* Frees without recursion and without allocating, however tall the tree: the
 * nodes still to be freed are chained through their own `next`, which means
 * nothing any more once a node is on its way out. */
void free_ExprNode(ExprNode *node)
{
    if (!node) return;
    node->next = nullptr;
    ExprNode *pending = node;
    auto push = [&pending](ExprNode *child) {
        if (!child) return;
        child->next = pending;
        pending = child;
    };
    auto push_list = [&pending](ExprNode *list) {
        if (!list) return;
        ExprNode *tail = list;
        while (tail->next) tail = tail->next;
        tail->next = pending;
        pending = list;
    };
    while (pending) {
        ExprNode *n = pending;
        pending = n->next;
        switch (n->kind) {
            case EXPR_DSCONST:
                free_BandSpec_list(n->u.dsconst.band_list);
                free_NameOrNumber(n->u.dsconst.dataset);
                free_NameOrNumber(n->u.dsconst.region);
                free_BandSpec_list(n->u.dsconst.band);
                break;
            case EXPR_FUNC:
                safe_free(n->u.func.name);
                push_list(n->u.func.args);
                break;
            case EXPR_OP:
                push(n->u.op.left);
                push(n->u.op.right);
                break;
            case EXPR_SIGMA:
                free_INumNode_list(n->u.sigma.inputs);
                push(n->u.sigma.body);
                break;
            case EXPR_IF:
                push(n->u.ifx.condition);
                push(n->u.ifx.then_expr);
                push(n->u.ifx.else_expr);
                break;
            case EXPR_INREGION:
                free_name_or_number_contents(&n->u.inregion.region);
                break;
            case EXPR_MAHAL:
                free_name_or_number_contents(&n->u.mahal.region);
                push_list(n->u.mahal.inputs);
                break;
            case EXPR_INPUTVECTOR:
                push_list(n->u.inputvector.inputs);
                break;
            case EXPR_USERSTATS:
                free_NameOrNumber(n->u.userstats.dataset);
                free_NameOrNumber(n->u.userstats.region);
                free_BandSpec_list(n->u.userstats.band_list);
                break;
            case EXPR_ISNULL:
                push(n->u.isnull.operand);
                break;
            case EXPR_VARIABLE:
                safe_free(n->u.variable.name);
                break;
            default:
                break;
        }
        safe_free(n);
    }
}

void free_ExprNode_list(ExprNode *list)
{
    while (list) {
        ExprNode *next = list->next;
        free_ExprNode(list);
        list = next;
    }
}

void free_FormulaList(FormulaList *list)
{
    if (!list) return;
    for (FormulaList *e = list; e->type != FL_END; e++) safe_free(e->text);
    safe_free(list);
}

/* Walks with a stack of its own rather than by recursion, so that the tallest
 * tree the parser builds is walked on any thread. */
void walk_formula(ExprNode *node, void (*visit)(ExprNode *node, void *arg), void *arg)
{
    if (!node) return;
    std::vector<ExprNode *> pending{node};
    std::vector<ExprNode *> children;
    while (!pending.empty()) {
        ExprNode *n = pending.back();
        pending.pop_back();
        visit(n, arg);
        children.clear();
        expr_children(n, children);
        pending.insert(pending.end(), children.rbegin(), children.rend());
    }
}

int count_formula_inputs(ExprNode *tree)
{
    return static_cast<int>(sorted_numbers(tree, RefKind::Input, false).size());
}

int count_input_occurances(ExprNode *tree)
{
    std::vector<int32_t> numbers;
    collect_numbers(tree, RefKind::Input, numbers);
    return static_cast<int>(numbers.size());
}

int count_formula_regions(ExprNode *tree)
{
    return static_cast<int>(sorted_numbers(tree, RefKind::Region, false).size());
}

int count_formula_datasets(ExprNode *tree)
{
    return static_cast<int>(sorted_numbers(tree, RefKind::Dataset, false).size());
}

int count_formula_variables(ExprNode *tree)
{
    return static_cast<int>(variable_names(tree, false).size());
}

int create_input_list(INumNode **list, ExprNode *tree, int keep_duplicates)
{
    return make_list(list, tree, RefKind::Input, keep_duplicates);
}

int create_region_list(INumNode **list, ExprNode *tree, int keep_duplicates)
{
    return make_list(list, tree, RefKind::Region, keep_duplicates);
}

int create_dataset_list(INumNode **list, ExprNode *tree, int keep_duplicates)
{
    return make_list(list, tree, RefKind::Dataset, keep_duplicates);
}

int create_variable_list(variablearg **vars, int *count, ExprNode *tree, int keep_duplicates)
{
    std::vector<const char *> names = variable_names(tree, keep_duplicates != 0);
    variablearg *array = nullptr;
    if (!names.empty()) {
        array = static_cast<variablearg *>(malloc_or_die(names.size() * sizeof(variablearg)));
        for (size_t i = 0; i < names.size(); i++) {
            array[i].name = strsave(names[i]);
            array[i].value = 0.0;
        }
    }
    if (vars) {
        *vars = array;
    } else {
        for (size_t i = 0; i < names.size(); i++) safe_free(array[i].name);
        safe_free(array);
    }
    if (count) *count = static_cast<int>(names.size());
    return 0;
}
