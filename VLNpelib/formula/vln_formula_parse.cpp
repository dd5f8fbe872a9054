/*
 * vln_formula_parse.cpp: the parser of the formula language, and
 * string_to_expr, its one entry.
 *
 * A recursive-descent parser that recurses only into nested constructs (at
 * most a fixed depth of them); binary operators are ordered on an operator
 * stack and runs of unary operators are read in a loop. It keeps the
 * shape of the language's grammar where that grammar is odd on purpose: NOT
 * binds as tightly as unary minus, an IF is open at its right end, NULL may
 * stand only as a whole formula or a whole THEN or ELSE branch, and after a
 * quoted name and a comma the arguments of a dataset constant are settled, so
 * that the name is a dataset and not the head of a band list.
 *
 * Checks either stop the parse at once (an exception that string_to_expr
 * catches; the nodes built so far are owned by smart pointers and freed on the
 * way out) or only raise the error count, so that the parse goes on and a
 * later message may replace the text. Messages pass through fp_yyerror, which
 * names the token the scanner is on.
 *
 * The scanner, the SIGMA depth and the message are static: all of
 * string_to_expr runs under one lock.
 */
#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "vln_formula_internal.h"
#include "vln_guard_internal.h"

namespace vlnf {

namespace {

/* Nesting (parentheses, calls, IF, SIGMA, ISNULL, unary operators) deeper
 * than this is refused as a parser stack overflow. The parser recurses once per
 * level, at up to about 2.5 KB a level in an instrumented build, so this keeps
 * it within a quarter of a 512 KiB worker stack in every build. */
constexpr int kMaxNesting = 100;
/* A tree taller than this is refused in the same way. Left-associative chains
 * reach it without nesting; the walkers keep their own stacks, so the height
 * costs them no thread stack. */
constexpr int kMaxHeight = 10000;
/* Ranges unroll into lists; one range may give at most this many entries. */
constexpr int64_t kMaxRange = 10000;

struct ParseFailure {};

vln_mutex g_formula_mutex;
int g_error_count;
std::string g_message;
int g_sigma_depth;
const char *g_token_text;
int g_token_length;

std::string format(const char *fmt, ...) VLD_PRINTF(1, 2);
std::string format(const char *fmt, ...)
{
    char buffer[512];
    va_list args;
    va_start(args, fmt);
    vsnprintf(buffer, sizeof buffer, fmt, args);
    va_end(args);
    return buffer;
}

/* Records a message and raises the error count, naming the current token. */
void fp_yyerror(const std::string &message)
{
    g_error_count++;
    if (g_token_length > 0) {
        int n = std::min(g_token_length, 20);
        g_message = format("%s - near: \"%.*s\".", message.c_str(), n, g_token_text);
    } else {
        g_message = message + " - near end of formula.";
    }
}

[[noreturn]] void fatal(const std::string &message)
{
    fp_yyerror(message);
    throw ParseFailure{};
}

struct NodeFree {
    void operator()(ExprNode *n) const { free_ExprNode(n); }
};
struct NodeListFree {
    void operator()(ExprNode *n) const { free_ExprNode_list(n); }
};
struct BandListFree {
    void operator()(BandSpec *b) const { free_BandSpec_list(b); }
};
struct InumListFree {
    void operator()(INumNode *i) const { free_INumNode_list(i); }
};
struct SpecFree {
    void operator()(NameOrNumber *s) const { free_NameOrNumber(s); }
};
using NodePtr = std::unique_ptr<ExprNode, NodeFree>;
using NodeList = std::unique_ptr<ExprNode, NodeListFree>;
using BandList = std::unique_ptr<BandSpec, BandListFree>;
using InumList = std::unique_ptr<INumNode, InumListFree>;
using SpecPtr = std::unique_ptr<NameOrNumber, SpecFree>;

/* A parsed expression and the height of its tree. */
struct Sub {
    NodePtr node;
    int height = 1;
};

/* Appends to a singly linked list in order, keeping its tail. */
template <typename T, typename Owner>
struct ListBuilder {
    Owner head;
    T *tail = nullptr;
    void add(T *item)
    {
        if (tail)
            tail->next = item;
        else
            head.reset(item);
        tail = item;
    }
};

int declared_arg_count(const char *name)
{
    size_t n = strlen(name);
    if (n >= 2 && name[n - 2] == '_' && (name[n - 1] == 'f' || name[n - 1] == 'F')) n -= 2;
    size_t first = n;
    while (first > 0 && name[first - 1] >= '0' && name[first - 1] <= '9') first--;
    if (first == n) return -1;
    int64_t value = 0;
    for (size_t i = first; i < n; i++) {
        value = value * 10 + (name[i] - '0');
        if (value > INT32_MAX) return INT32_MAX;
    }
    return static_cast<int>(value);
}

class Parser {
   public:
    explicit Parser(const char *text) : scanner_(text) {}

    NodePtr formula()
    {
        Sub top = parse_top();
        if (peek().kind != Tok::End) syntax_error();
        return std::move(top.node);
    }

   private:
    Scanner scanner_;
    Token look_;
    bool have_look_ = false;
    int nesting_ = 0;

    /* One or more levels of nesting, for as long as it lives. */
    struct Nest {
        Parser &p;
        int levels = 1;
        explicit Nest(Parser &parser) : p(parser)
        {
            if (++p.nesting_ > kMaxNesting) fatal("parser stack overflow");
        }
        ~Nest() { p.nesting_ -= levels; }
        void deeper()
        {
            levels++;
            if (++p.nesting_ > kMaxNesting) fatal("parser stack overflow");
        }
    };

    const Token &peek()
    {
        if (!have_look_) {
            look_ = scanner_.next();
            have_look_ = true;
            g_token_text = look_.start;
            g_token_length = look_.length;
        }
        return look_;
    }

    Token take()
    {
        peek();
        have_look_ = false;
        return look_;
    }

    [[noreturn]] void syntax_error()
    {
        peek();
        fatal("parse error");
    }

    bool is_char(char c) { return peek().kind == Tok::Char && peek().number == c; }
    bool is_word(int reserved)
    {
        return peek().kind == Tok::Word && reserved_word(peek().start, peek().length) == reserved;
    }
    void expect_char(char c)
    {
        if (!is_char(c)) syntax_error();
        take();
    }
    void expect_word(int reserved)
    {
        if (!is_word(reserved)) syntax_error();
        take();
    }

    static Sub leaf(int kind)
    {
        Sub s;
        s.node.reset(new_node(kind));
        return s;
    }

    static int grown(int height)
    {
        if (height + 1 > kMaxHeight) fatal("parser stack overflow");
        return height + 1;
    }

    /* top: "NULL" | expr */
    Sub parse_top()
    {
        if (is_word(RW_NULL)) {
            take();
            return leaf(EXPR_NULL);
        }
        return parse_expr();
    }

    /* Binary operators over unary operands, all left-associative. The
     * operators are ordered on a stack of their own rather than by one call
     * per precedence level, so that nesting costs the stack little. */
    Sub parse_expr()
    {
        std::vector<Sub> operands;
        std::vector<std::pair<int, int>> operators;  // op_type and level
        operands.push_back(parse_unary());
        for (;;) {
            int op_type = 0;
            int level = binary_level(&op_type);
            if (level == 0) break;
            take();
            while (!operators.empty() && operators.back().second <= level)
                reduce(operands, operators);
            operators.push_back({op_type, level});
            operands.push_back(parse_unary());
        }
        while (!operators.empty()) reduce(operands, operators);
        return std::move(operands.back());
    }

    /* Joins the last two operands by the last operator. */
    static void reduce(std::vector<Sub> &operands, std::vector<std::pair<int, int>> &operators)
    {
        Sub right = std::move(operands.back());
        operands.pop_back();
        Sub &left = operands.back();
        Sub s = leaf(EXPR_OP);
        s.node->u.op.op_type = operators.back().first;
        operators.pop_back();
        s.height = grown(std::max(left.height, right.height));
        s.node->u.op.left = left.node.release();
        s.node->u.op.right = right.node.release();
        left = std::move(s);
    }

    /* The level of a binary operator token, 0 when it isn't one. */
    int binary_level(int *op_type)
    {
        const Token &t = peek();
        if (t.kind == Tok::Op) {
            *op_type = t.number;
            switch (t.number) {
                case OP_MULTIPLY:
                case OP_DIVIDE:
                case OP_REMAINDER:
                    return 2;
                case OP_ADD:
                case OP_SUBTRACT:
                    return 3;
                case OP_GT:
                case OP_GE:
                case OP_LT:
                case OP_LE:
                    return 4;
                case OP_EQ:
                case OP_NE:
                    return 5;
                default:
                    return 0;
            }
        }
        if (t.kind == Tok::Word) {
            int rw = reserved_word(t.start, t.length);
            if (rw == RW_AND) return *op_type = OP_AND, 6;
            if (rw == RW_OR) return *op_type = OP_OR, 7;
        }
        return 0;
    }

    /* Unary minus and NOT, the tightest level. A run of them is read in a
     * loop, each counting one level of nesting, and applied inside out. The
     * minus signs next to a number fold into it and make no level: so a
     * variable printed as a negative value reads back at the same depth. */
    Sub parse_unary()
    {
        Nest nest(*this);
        std::vector<int> prefix;
        for (;;) {
            if (peek().kind == Tok::Op && peek().number == OP_SUBTRACT) {
                prefix.push_back(OP_NEGATE);
            } else if (is_word(RW_NOT)) {
                prefix.push_back(OP_NOT);
            } else {
                break;
            }
            take();
            if (prefix.size() > static_cast<size_t>(kMaxHeight)) fatal("parser stack overflow");
        }
        size_t levels = prefix.size();
        if (peek().kind == Tok::Integer || peek().kind == Tok::Real)
            while (levels > 0 && prefix[levels - 1] == OP_NEGATE) levels--;
        for (size_t i = 0; i < levels; i++) nest.deeper();
        Sub operand = parse_primary();
        for (auto op = prefix.rbegin(); op != prefix.rend(); ++op) {
            if (*op == OP_NEGATE && operand.node->kind == EXPR_NUMBER)
                operand.node->u.number.value = -operand.node->u.number.value;
            else
                operand = unary(*op, std::move(operand));
        }
        return operand;
    }

    static Sub unary(int op_type, Sub operand)
    {
        Sub s = leaf(EXPR_OP);
        s.node->u.op.op_type = op_type;
        s.height = grown(operand.height);
        s.node->u.op.left = operand.node.release();
        return s;
    }

    Sub parse_primary()
    {
        const Token t = peek();
        switch (t.kind) {
            case Tok::InputNum:
            case Tok::LoopInput: {
                take();
                Sub s = leaf(EXPR_INPUT);
                s.node->u.input.input_number = input_number(t);
                return s;
            }
            case Tok::Integer:
            case Tok::Real: {
                take();
                Sub s = leaf(EXPR_NUMBER);
                // An integer too large for 32 bits is read as the double it
                // names, so that every printed number reads back.
                s.node->u.number.value = t.real;
                return s;
            }
            case Tok::Word:
                return parse_word(t);
            case Tok::Char:
                if (t.number == '(') return parse_parenthesised();
                break;
            default:
                break;
        }
        syntax_error();
    }

    [[gnu::noinline]] Sub parse_parenthesised()
    {
        take();
        Sub s = parse_expr();
        expect_char(')');
        s.node->parenthesised = 1;
        return s;
    }

    /* The number of an input token; the loop input is checked against SIGMA. */
    int32_t input_number(const Token &t)
    {
        if (t.kind == Tok::InputNum) return t.number;
        if (g_sigma_depth < 1) fp_yyerror("Bad INPUT? or I? - only valid within SIGMA expressions");
        return LOOP_INPUT_NUMBER;
    }

    Sub parse_word(const Token &t)
    {
        switch (reserved_word(t.start, t.length)) {
            case RW_NONE:
                break;
            case RW_SIGMA:
                return parse_sigma();
            case RW_IF:
                return parse_if();
            case RW_INREGION: {
                take();
                expect_char('(');
                Sub s = leaf(EXPR_INREGION);
                SpecPtr region = parse_region();
                s.node->u.inregion.region = *region;
                safe_free(region.release());
                expect_char(')');
                return s;
            }
            case RW_CELLX:
                return parse_empty_call(EXPR_CELLX);
            case RW_CELLY:
                return parse_empty_call(EXPR_CELLY);
            case RW_PIXELX:
                return parse_empty_call(EXPR_PIXELX);
            case RW_PIXELY:
                return parse_empty_call(EXPR_PIXELY);
            case RW_MAHAL: {
                take();
                expect_char('(');
                Sub s = leaf(EXPR_MAHAL);
                SpecPtr region = parse_region();
                s.node->u.mahal.region = *region;
                safe_free(region.release());
                expect_char(',');
                s.node->u.mahal.inputs = input_nodes(parse_input_list()).release();
                expect_char(')');
                return s;
            }
            case RW_ISNULL:
                return parse_isnull();
            default:
                syntax_error();
        }
        if (int dc = find_in_table(kDcNames, NR_DCTYPES, t.start, t.length))
            return parse_dsconst(dc);
        if (t.length == 7 && strncasecmp(t.start, "NRLINES", 7) == 0)
            return parse_dsconst(DC_NRROWS);
        if (int sc = find_in_table(kScNames, NR_SCTYPES, t.start, t.length)) {
            take();
            Sub s = leaf(EXPR_SYMCONST);
            s.node->u.symconst.sc_type = sc;
            return s;
        }
        if (int ff = find_in_table(kFfNames, NR_FFTYPES, t.start, t.length)) {
            take();
            return parse_call(ff, std::string());
        }
        take();
        std::string name(t.start, t.length);
        if (is_char('(')) return parse_call(FF_USER, name);
        Sub s = leaf(EXPR_VARIABLE);
        s.node->u.variable.name = strsave(name.c_str());
        return s;
    }

    /* "IF" expr "THEN" top "ELSE" top */
    [[gnu::noinline]] Sub parse_if()
    {
        take();
        Sub cond = parse_expr();
        expect_word(RW_THEN);
        Sub then_expr = parse_top();
        expect_word(RW_ELSE);
        Sub else_expr = parse_top();
        Sub s = leaf(EXPR_IF);
        s.height = grown(std::max({cond.height, then_expr.height, else_expr.height}));
        s.node->u.ifx.condition = cond.node.release();
        s.node->u.ifx.then_expr = then_expr.node.release();
        s.node->u.ifx.else_expr = else_expr.node.release();
        return s;
    }

    /* "ISNULL" "(" expr ")" */
    [[gnu::noinline]] Sub parse_isnull()
    {
        take();
        expect_char('(');
        Sub operand = parse_expr();
        expect_char(')');
        Sub s = leaf(EXPR_ISNULL);
        s.height = grown(operand.height);
        s.node->u.isnull.operand = operand.node.release();
        return s;
    }

    Sub parse_empty_call(int kind)
    {
        take();
        expect_char('(');
        expect_char(')');
        return leaf(kind);
    }

    /* "SIGMA" "(" input_list "|" expr ")" */
    [[gnu::noinline]] Sub parse_sigma()
    {
        take();
        g_sigma_depth++;
        expect_char('(');
        InumList inputs = parse_input_list();
        expect_char('|');
        Sub body = parse_expr();
        expect_char(')');
        g_sigma_depth--;
        Sub s = leaf(EXPR_SIGMA);
        s.height = grown(body.height);
        s.node->u.sigma.inputs = inputs.release();
        s.node->u.sigma.body = body.node.release();
        return s;
    }

    /* A function call after its name: "(" args ")". */
    [[gnu::noinline]] Sub parse_call(int ff_type, const std::string &name)
    {
        expect_char('(');
        ListBuilder<ExprNode, NodeList> args;
        int height = 1, count = 0;
        bool vector_arg = false, stats_arg = false;
        if (!is_char(')')) {
            for (;;) {
                Sub arg = parse_arg(&vector_arg, &stats_arg);
                height = std::max(height, arg.height);
                args.add(arg.node.release());
                count++;
                if (!is_char(',')) break;
                take();
            }
        }
        expect_char(')');
        Sub s = leaf(EXPR_FUNC);
        s.height = grown(height);
        s.node->u.func.ff_type = ff_type;
        s.node->u.func.args = args.head.release();
        if (ff_type == FF_USER) {
            s.node->u.func.name = strsave(name.c_str());
            int declared = declared_arg_count(name.c_str());
            if (declared >= 0 && declared != count)
                fp_yyerror(format("Wrong number of arguments for %s, expected %d", name.c_str(),
                                  declared));
        } else {
            if (vector_arg) fp_yyerror("INPUTVECTOR only valid for user code functions.");
            if (stats_arg) fp_yyerror("USERSTATS only valid for user code functions.");
        }
        return s;
    }

    /* arg: expr | INPUTVECTOR(input_list) | USERSTATS(opt_dataset, region, band_list) */
    Sub parse_arg(bool *vector_arg, bool *stats_arg)
    {
        if (is_word(RW_INPUTVECTOR)) {
            take();
            expect_char('(');
            Sub s = leaf(EXPR_INPUTVECTOR);
            s.node->u.inputvector.inputs = input_nodes(parse_input_list()).release();
            expect_char(')');
            *vector_arg = true;
            return s;
        }
        if (is_word(RW_USERSTATS)) {
            take();
            expect_char('(');
            Sub s = leaf(EXPR_USERSTATS);
            auto &u = s.node->u.userstats;
            u.dataset = parse_opt_dataset().release();
            expect_char(',');
            u.region = parse_region().release();
            expect_char(',');
            u.band_list = parse_band_list().release();
            expect_char(')');
            *stats_arg = true;
            return s;
        }
        return parse_expr();
    }

    /* input_list: input_range, separated by ","; ranges unrolled. */
    InumList parse_input_list()
    {
        ListBuilder<INumNode, InumList> list;
        for (;;) {
            if (peek().kind != Tok::InputNum) syntax_error();
            int32_t first = take().number;
            int32_t last = first;
            if (peek().kind == Tok::Range) {
                take();
                if (peek().kind != Tok::InputNum) syntax_error();
                last = take().number;
                check_range(first, last, "Bad input range: \"I%d\" > \"I%d\"");
            }
            for (int64_t n = first; n <= last; n++) list.add(new_inum(static_cast<int32_t>(n)));
            if (!is_char(',')) break;
            take();
        }
        return std::move(list.head);
    }

    static void check_range(int32_t first, int32_t last, const char *message)
    {
        if (first > last) fatal(format(message, first, last));
        if (static_cast<int64_t>(last) - first >= kMaxRange)
            fatal(format("Range too long: %d to %d", first, last));
    }

    /* EXPR_INPUT nodes for the numbers of an input list. */
    static NodeList input_nodes(InumList inputs)
    {
        ListBuilder<ExprNode, NodeList> nodes;
        for (INumNode *i = inputs.get(); i; i = i->next) {
            ExprNode *n = new_node(EXPR_INPUT);
            n->u.input.input_number = i->number;
            nodes.add(n);
        }
        return std::move(nodes.head);
    }

    /* band_list: band_item, separated by ","; ranges unrolled. */
    BandList parse_band_list(BandList head = nullptr)
    {
        ListBuilder<BandSpec, BandList> list;
        if (head)
            list.add(head.release());
        else
            parse_band_item(list);
        while (is_char(',')) {
            take();
            parse_band_item(list);
        }
        return std::move(list.head);
    }

    void parse_band_item(ListBuilder<BandSpec, BandList> &list)
    {
        const Token t = peek();
        if (t.kind == Tok::String) {
            take();
            list.add(new_bandspec(BS_NAME, t.start + 1, t.length - 2, 0));
            return;
        }
        if (t.kind != Tok::BandNum && t.kind != Tok::InputNum) syntax_error();
        take();
        int type = t.kind == Tok::BandNum ? BS_BAND : BS_INPUT;
        int32_t last = t.number;
        if (peek().kind == Tok::Range) {
            take();
            if (peek().kind != t.kind) syntax_error();
            last = take().number;
            check_range(t.number, last,
                        type == BS_BAND ? "Bad band range: \"B%d\" > \"B%d\""
                                        : "Bad input range: \"I%d\" > \"I%d\"");
        }
        for (int64_t n = t.number; n <= last; n++)
            list.add(new_bandspec(type, nullptr, 0, static_cast<int32_t>(n)));
    }

    SpecPtr parse_region()
    {
        const Token t = peek();
        if (t.kind == Tok::String) {
            take();
            return SpecPtr(new_name(t.start + 1, t.length - 2));
        }
        if (t.kind == Tok::RegionNum) {
            take();
            return SpecPtr(new_number(t.number));
        }
        syntax_error();
    }

    SpecPtr parse_opt_region()
    {
        if (peek().kind == Tok::String || peek().kind == Tok::RegionNum) return parse_region();
        return nullptr;
    }

    SpecPtr parse_opt_dataset()
    {
        const Token t = peek();
        if (t.kind == Tok::String) {
            take();
            return SpecPtr(new_name(t.start + 1, t.length - 2));
        }
        if (t.kind == Tok::DatasetNum) {
            take();
            return SpecPtr(new_number(t.number));
        }
        return nullptr;
    }

    /* name "(" [band_list "|"] dc_args ")" */
    Sub parse_dsconst(int dc_type)
    {
        take();
        expect_char('(');
        Sub s = leaf(EXPR_DSCONST);
        auto &d = s.node->u.dsconst;
        d.dc_type = dc_type;
        BandList bands;
        SpecPtr dataset;
        const Token t = peek();
        if (t.kind == Tok::BandNum || t.kind == Tok::InputNum) {
            bands = parse_band_list();
            expect_char('|');
        } else if (t.kind == Tok::String) {
            // A lone quoted name before the bar is a band list; before anything
            // else it is the dataset, even when a band list follows.
            take();
            if (is_char('|')) {
                take();
                bands.reset(new_bandspec(BS_NAME, t.start + 1, t.length - 2, 0));
            } else {
                dataset.reset(new_name(t.start + 1, t.length - 2));
            }
        }
        bool have_list = bands != nullptr;
        d.band_list = bands.release();

        int count = 0;
        if (!dataset) dataset = parse_opt_dataset();
        if (dataset) count = 1;
        d.dataset = dataset.release();
        if (is_char(',')) {
            take();
            count = 2;
            d.region = parse_opt_region().release();
            if (is_char(',')) {
                take();
                count = 3;
                d.band = parse_opt_band().release();
                if (is_char(',')) {
                    take();
                    count = 4;
                    if (peek().kind == Tok::Integer) d.nth = take().number;
                }
            }
        }
        expect_char(')');
        if (have_list && !kDcBandList[dc_type])
            fatal(format("Band list not valid for \"%s\"", kDcNames[dc_type]));
        if (count > kDcMaxArgs[dc_type])
            fatal(format("Bad number of arguments for \"%s\"", kDcNames[dc_type]));
        return s;
    }

    /* opt_band: empty | string | band number | input */
    BandList parse_opt_band()
    {
        const Token t = peek();
        switch (t.kind) {
            case Tok::String:
                take();
                return BandList(new_bandspec(BS_NAME, t.start + 1, t.length - 2, 0));
            case Tok::BandNum:
                take();
                return BandList(new_bandspec(BS_BAND, nullptr, 0, t.number));
            case Tok::InputNum:
            case Tok::LoopInput:
                take();
                return BandList(new_bandspec(BS_INPUT, nullptr, 0, input_number(t)));
            default:
                return nullptr;
        }
    }
};

/* The first gap in the sorted distinct numbers 1, 2, 3...; 0 when none. */
int first_missing(ExprNode *tree, RefKind kind)
{
    std::vector<int32_t> numbers;
    collect_numbers(tree, kind, numbers);
    std::sort(numbers.begin(), numbers.end());
    numbers.erase(std::unique(numbers.begin(), numbers.end()), numbers.end());
    for (size_t i = 0; i < numbers.size(); i++) {
        if (numbers[i] != static_cast<int32_t>(i + 1)) return static_cast<int>(i + 1);
    }
    return 0;
}

}  // namespace

}  // namespace vlnf

using namespace vlnf;

char *string_to_expr(ExprNode **tree, const char *text)
{
    if (tree) *tree = nullptr;
    vln::Guard lock(&g_formula_mutex);
    g_error_count = 0;
    g_message.clear();
    g_sigma_depth = 0;
    g_token_text = nullptr;
    g_token_length = 0;

    NodePtr root;
    try {
        Parser parser(text ? text : "");
        root = parser.formula();
    } catch (const ParseFailure &) {
        return strsave(g_message.c_str());
    }
    if (g_error_count != 0) return strsave(g_message.c_str());

    std::string message;
    if (int n = first_missing(root.get(), RefKind::Input)) {
        message = format(
            "Missing input(s) before I%d.  (Inputs must start with 1 and be consecutive.)", n);
    } else if (int r = first_missing(root.get(), RefKind::Region)) {
        message = format(
            "Missing region(s) before R%d.  (Regions must start with 1 and be consecutive.)", r);
    } else if (int d = first_missing(root.get(), RefKind::Dataset)) {
        message = format(
            "Missing dataset(s) before D%d.  (Datasets must start with 1 and be consecutive.)", d);
    }
    if (!message.empty()) return strsave(message.c_str());
    if (tree) *tree = root.release();
    return nullptr;
}
