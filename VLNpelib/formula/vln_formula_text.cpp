/*
 * vln_formula_text.cpp: the canonical text of a formula tree.
 *
 * One printer writes every text form. Parentheses come back only where the
 * formula had them; variables are printed as their values, so the text of a
 * tree with variables has those values baked in. expr_to_list prints once,
 * remembering where each reference to an input, region or dataset lies, and
 * cuts the text at those marks for a user interface.
 */
#include <algorithm>
#include <cfloat>
#include <charconv>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "vln_formula_internal.h"

namespace vlnf {

namespace {

void append_format(std::string &out, const char *fmt, ...) VLD_PRINTF(2, 3);
void append_format(std::string &out, const char *fmt, ...)
{
    char buffer[64];
    va_list args;
    va_start(args, fmt);
    vsnprintf(buffer, sizeof buffer, fmt, args);
    va_end(args);
    out += buffer;
}

/* The text reads back as `value`: it is a plain decimal the scanner takes (a
 * real has no exponent, and INF or NAN would be names) whose value is that
 * very double. */
bool reads_back(const char *text, double value)
{
    const char *p = text + (*text == '-');
    if (!*p) return false;
    for (const char *c = p; *c; c++) {
        if (!(*c >= '0' && *c <= '9') && *c != '.') return false;
    }
    double read = strtod(text, nullptr);
    return memcmp(&read, &value, sizeof read) == 0;
}

/* Writes a number in the look `format` gives it (%.13G for numbers, %f for
 * the values of variables) when that text reads back to the same double, and
 * otherwise as the shortest plain decimal that does, so that every printed
 * formula reads back to the tree it came from. The language has no infinity
 * (an overlong literal reads as the largest double) and no NaN: an infinity
 * prints as the largest double of its sign and a NaN as zero. */
void append_number(std::string &out, double value, const char *format)
{
    if (std::isnan(value)) value = 0.0;
    if (std::isinf(value)) value = std::copysign(DBL_MAX, value);
    char text[512];  // DBL_MAX takes 309 digits before the point
    int n = snprintf(text, sizeof text, format, value);
    if (n > 0 && static_cast<size_t>(n) < sizeof text && reads_back(text, value)) {
        out += text;
        return;
    }
    auto result = std::to_chars(text, text + sizeof text, value, std::chars_format::fixed);
    out.append(text, result.ptr);
}

const char *safe(const char *s)
{
    return s ? s : "";
}

/* A reference by number: the name table's entry, or prefix and number. */
void print_ref(std::string &out, int number, const char *prefix, char **names, int type,
               std::vector<TextRef> *refs)
{
    size_t start = out.size();
    if (names && number >= 1)
        out += safe(names[number - 1]);
    else
        append_format(out, "%s%d", safe(prefix), number);
    if (refs) refs->push_back({start, out.size(), type, number});
}

void print_input(std::string &out, int number, const TextOptions &o, std::vector<TextRef> *refs)
{
    if (number == LOOP_INPUT_NUMBER) {
        append_format(out, "%s?", safe(o.input_prefix));
        return;
    }
    print_ref(out, number, o.input_prefix, o.input_names, FL_INPUT, refs);
}

void print_name_or_number(std::string &out, const NameOrNumber *ref, const char *prefix,
                          char **names, int type, std::vector<TextRef> *refs)
{
    if (!ref) return;
    if (ref->type == NN_NAME) {
        out += '\'';
        out += safe(ref->name);
        out += '\'';
    } else {
        print_ref(out, ref->number, prefix, names, type, refs);
    }
}

void print_region(std::string &out, const NameOrNumber *ref, const TextOptions &o,
                  std::vector<TextRef> *refs)
{
    print_name_or_number(out, ref, o.region_prefix, o.region_names, FL_REGION, refs);
}

void print_dataset(std::string &out, const NameOrNumber *ref, const TextOptions &o,
                   std::vector<TextRef> *refs)
{
    print_name_or_number(out, ref, o.dataset_prefix, o.dataset_names, FL_DATASET, refs);
}

void print_band_list(std::string &out, const BandSpec *list, const TextOptions &o,
                     std::vector<TextRef> *refs)
{
    for (const BandSpec *b = list; b; b = b->next) {
        if (b != list) out += ',';
        print_bandspec(out, b, o, refs);
    }
}

/* A piece of text still to be written: a subexpression, or a literal text
 * when `node` is null. */
struct Piece {
    const ExprNode *node;
    const char *text;
};

/* Adds the pieces of a list of expressions, `separator` between them. */
void add_list(std::vector<Piece> &tail, const ExprNode *list, const char *separator)
{
    for (const ExprNode *n = list; n; n = n->next) {
        if (n != list) tail.push_back({nullptr, separator});
        tail.push_back({n, nullptr});
    }
}

/* Writes the text of `n` up to its first subexpression and adds, in order,
 * the pieces that follow it to `tail`. A node without subexpressions is
 * written whole. */
void print_head(std::string &out, const ExprNode *n, const TextOptions &o,
                std::vector<TextRef> *refs, std::vector<Piece> &tail)
{
    switch (n->kind) {
        case EXPR_INPUT:
            print_input(out, n->u.input.input_number, o, refs);
            break;
        case EXPR_NUMBER:
            append_number(out, n->u.number.value, "%.13G");
            break;
        case EXPR_DSCONST:
            print_dsconst(out, n, o, refs);
            break;
        case EXPR_SYMCONST:
            out += sctype_text(n->u.symconst.sc_type);
            break;
        case EXPR_FUNC:
            out += n->u.func.ff_type == FF_USER ? safe(n->u.func.name)
                                                : fftype_text(n->u.func.ff_type);
            out += '(';
            add_list(tail, n->u.func.args, ", ");
            tail.push_back({nullptr, ")"});
            break;
        case EXPR_OP:
            if (n->u.op.op_type == OP_NEGATE) {
                out += '-';
                tail.push_back({n->u.op.left, nullptr});
            } else if (n->u.op.op_type == OP_NOT) {
                out += "NOT ";
                tail.push_back({n->u.op.left, nullptr});
            } else {
                tail.push_back({n->u.op.left, nullptr});
                tail.push_back({nullptr, " "});
                tail.push_back({nullptr, optype_text(n->u.op.op_type)});
                tail.push_back({nullptr, " "});
                tail.push_back({n->u.op.right, nullptr});
            }
            break;
        case EXPR_SIGMA:
            out += "SIGMA(";
            for (const INumNode *i = n->u.sigma.inputs; i; i = i->next) {
                if (i != n->u.sigma.inputs) out += ',';
                print_input(out, i->number, o, refs);
            }
            out += " | ";
            tail.push_back({n->u.sigma.body, nullptr});
            tail.push_back({nullptr, ")"});
            break;
        case EXPR_IF:
            out += "IF ";
            tail.push_back({n->u.ifx.condition, nullptr});
            tail.push_back({nullptr, " THEN "});
            tail.push_back({n->u.ifx.then_expr, nullptr});
            tail.push_back({nullptr, " ELSE "});
            tail.push_back({n->u.ifx.else_expr, nullptr});
            break;
        case EXPR_INREGION:
            out += "INREGION(";
            print_region(out, &n->u.inregion.region, o, refs);
            out += ')';
            break;
        case EXPR_CELLX:
            out += "CELLX()";
            break;
        case EXPR_CELLY:
            out += "CELLY()";
            break;
        case EXPR_PIXELX:
            out += "PIXELX()";
            break;
        case EXPR_PIXELY:
            out += "PIXELY()";
            break;
        case EXPR_NULL:
            out += "NULL";
            break;
        case EXPR_MAHAL:
            out += "MAHAL(";
            print_region(out, &n->u.mahal.region, o, refs);
            out += ',';
            add_list(tail, n->u.mahal.inputs, ",");
            tail.push_back({nullptr, ")"});
            break;
        case EXPR_INPUTVECTOR:
            out += "INPUTVECTOR(";
            add_list(tail, n->u.inputvector.inputs, ",");
            tail.push_back({nullptr, ")"});
            break;
        case EXPR_USERSTATS:
            print_userstats(out, n, o, refs);
            break;
        case EXPR_ISNULL:
            out += "ISNULL(";
            tail.push_back({n->u.isnull.operand, nullptr});
            tail.push_back({nullptr, ")"});
            break;
        case EXPR_VARIABLE: {
            double value = 0.0;
            if (find_variable_value(n->u.variable.name, o.nr_variables, o.variables, &value))
                append_number(out, value, "%f");
            else
                out += "0.0";
            break;
        }
        default:
            break;
    }
}

/* Copies a printed text into a caller's buffer. */
char *to_buffer(char *buffer, const std::string &text)
{
    if (buffer) memcpy(buffer, text.c_str(), text.size() + 1);
    return buffer;
}

}  // namespace

/* Prints with a stack of pieces rather than by recursion, so that the tallest
 * tree the parser builds is printed on any thread. */
void print_expr(std::string &out, const ExprNode *tree, const TextOptions &options,
                std::vector<TextRef> *refs)
{
    std::vector<Piece> pending, tail;
    if (tree) pending.push_back({tree, nullptr});
    while (!pending.empty()) {
        Piece p = pending.back();
        pending.pop_back();
        if (!p.node) {
            if (p.text) out += p.text;  // a missing subexpression prints nothing
            continue;
        }
        tail.clear();
        if (p.node->parenthesised) out += '(';
        print_head(out, p.node, options, refs, tail);
        if (p.node->parenthesised) tail.push_back({nullptr, ")"});
        pending.insert(pending.end(), tail.rbegin(), tail.rend());
    }
}

void print_bandspec(std::string &out, const BandSpec *band, const TextOptions &options,
                    std::vector<TextRef> *refs)
{
    if (!band) return;
    switch (band->type) {
        case BS_NAME:
            out += '\'';
            out += safe(band->name);
            out += '\'';
            break;
        case BS_BAND:
            append_format(out, "BAND%d", band->number);
            break;
        default:
            print_input(out, band->number, options, refs);
            break;
    }
}

void print_dsconst(std::string &out, const ExprNode *node, const TextOptions &options,
                   std::vector<TextRef> *refs)
{
    const auto &d = node->u.dsconst;
    out += dctype_text(d.dc_type);
    out += '(';
    if (d.band_list) {
        print_band_list(out, d.band_list, options, refs);
        out += " | ";
    }
    int count = dc_count_args(const_cast<ExprNode *>(node));
    if (count >= 1) print_dataset(out, d.dataset, options, refs);
    if (count >= 2) {
        out += ',';
        print_region(out, d.region, options, refs);
    }
    if (count >= 3) {
        out += ',';
        print_bandspec(out, d.band, options, refs);
    }
    if (count >= 4) {
        out += ',';
        if (d.nth) append_format(out, "%d", d.nth);
    }
    out += ')';
}

void print_userstats(std::string &out, const ExprNode *node, const TextOptions &options,
                     std::vector<TextRef> *refs)
{
    const auto &u = node->u.userstats;
    out += "USERSTATS(";
    print_dataset(out, u.dataset, options, refs);
    out += ',';
    print_region(out, u.region, options, refs);
    out += ',';
    print_band_list(out, u.band_list, options, refs);
    out += ')';
}

std::string expr_text(const ExprNode *tree, const TextOptions &options)
{
    std::string out;
    print_expr(out, tree, options);
    return out;
}

}  // namespace vlnf

using namespace vlnf;

namespace {

TextOptions make_options(const char *input_prefix, char **input_names, const char *region_prefix,
                         char **region_names, const char *dataset_prefix, char **dataset_names,
                         int nr_variables, const variablearg *variables)
{
    TextOptions o;
    o.input_prefix = input_prefix;
    o.input_names = input_names;
    o.region_prefix = region_prefix;
    o.region_names = region_names;
    o.dataset_prefix = dataset_prefix;
    o.dataset_names = dataset_names;
    o.nr_variables = nr_variables;
    o.variables = variables;
    return o;
}

}  // namespace

int dc_count_args(ExprNode *dsconst)
{
    if (!dsconst || dsconst->kind != EXPR_DSCONST) return 0;
    const auto &d = dsconst->u.dsconst;
    if (d.nth != 0) return 4;
    if (d.band) return 3;
    if (d.region) return 2;
    if (d.dataset) return 1;
    return 0;
}

char *expr_to_string(char *buffer, ExprNode *tree, const char *input_prefix, char **input_names,
                     const char *region_prefix, char **region_names, const char *dataset_prefix,
                     char **dataset_names, int nr_variables, const variablearg *variables)
{
    TextOptions o = make_options(input_prefix, input_names, region_prefix, region_names,
                                 dataset_prefix, dataset_names, nr_variables, variables);
    return to_buffer(buffer, expr_text(tree, o));
}

size_t expr_to_string_n(char *buffer, size_t size, ExprNode *tree, const char *input_prefix,
                        char **input_names, const char *region_prefix, char **region_names,
                        const char *dataset_prefix, char **dataset_names, int nr_variables,
                        const variablearg *variables)
{
    TextOptions o = make_options(input_prefix, input_names, region_prefix, region_names,
                                 dataset_prefix, dataset_names, nr_variables, variables);
    std::string text = expr_text(tree, o);
    if (buffer && size > 0) {
        size_t n = std::min(text.size(), size - 1);
        memcpy(buffer, text.data(), n);
        buffer[n] = '\0';
    }
    return text.size();
}

int expr_to_list(FormulaList **list, ExprNode *tree, const char *input_prefix, char **input_names,
                 const char *region_prefix, char **region_names, const char *dataset_prefix,
                 char **dataset_names, int nr_variables, const variablearg *variables)
{
    TextOptions o = make_options(input_prefix, input_names, region_prefix, region_names,
                                 dataset_prefix, dataset_names, nr_variables, variables);
    std::string text;
    std::vector<TextRef> refs;
    print_expr(text, tree, o, &refs);

    struct Entry {
        int type;
        std::string text;
        int number;
    };
    std::vector<Entry> entries;
    size_t at = 0;
    for (const TextRef &r : refs) {
        if (r.start > at) entries.push_back({FL_TEXT, text.substr(at, r.start - at), 0});
        entries.push_back({r.type, text.substr(r.start, r.end - r.start), r.number});
        at = r.end;
    }
    if (at < text.size() || entries.empty()) entries.push_back({FL_TEXT, text.substr(at), 0});

    auto *out =
        static_cast<FormulaList *>(malloc_or_die((entries.size() + 1) * sizeof(FormulaList)));
    for (size_t i = 0; i < entries.size(); i++) {
        out[i].type = entries[i].type;
        out[i].text = strsave(entries[i].text.c_str());
        out[i].number = entries[i].number;
    }
    out[entries.size()] = FormulaList{FL_END, nullptr, 0};
    if (list)
        *list = out;
    else
        free_FormulaList(out);
    return 0;
}

char *dc_to_output_string(char *buffer, ExprNode *dsconst)
{
    std::string out;
    if (dsconst) print_dsconst(out, dsconst, TextOptions());
    return to_buffer(buffer, out);
}

char *bandspec_to_output_string(char *buffer, BandSpec *band)
{
    std::string out;
    print_bandspec(out, band, TextOptions());
    return to_buffer(buffer, out);
}

char *ustats_to_output_string(char *buffer, ExprNode *userstats)
{
    std::string out;
    if (userstats) print_userstats(out, userstats, TextOptions());
    return to_buffer(buffer, out);
}
