/*
 * vln_node_formula.cpp: FN_FORMULA, the node that computes a stream's cells
 * from its inputs by the stream's formula.
 *
 * At setup the parsed formula is compiled into a flat program of the
 * evaluator: every input-like reference (a band of the dataset, INREGION,
 * CELLX, CELLY, PIXELX, PIXELY) becomes one shared source, read once per line
 * however often the formula names it; dataset constants, variables and
 * region statistics become constants; user functions are loaded. The node
 * has one input per source, sorted by kind and input number, each a chain of
 * its own, and delivers one line of doubles.
 *
 * A formula without IF, NULL or ISNULL is computed only where every input is
 * valid: the line's runs are the intersection of the inputs' runs, and no
 * arithmetic is done elsewhere. With them, every cell is computed with null
 * flags, and the cells whose result is null drop out of the runs.
 */
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <vector>

#include "vln_formula_eval.h"
#include "vln_formula_node.h"
#include "vln_nodes.h"
#include "vln_pe_plan.h"

namespace {

namespace fe = vln_formula;

/* One source of the formula's values. */
struct Source {
    int kind;          // 1 input, 2 INREGION, 3 CELLX, 4 CELLY, 5 PIXELX, 6 PIXELY
    int input_number;  // for kind 1
    regioninfo *region;
    int reg;  // its register
    uint8_t *nulls;
};

struct Formula {
    vln_pe::NodeBase base;
    pe_stream *stream;
    bool process_nulls;
    fe::Program *program;
    Source *sources;  // one per input of the node, in input order
    int nr_sources;
    uint8_t *result_nulls;
    UserFunction *user_functions;
};

/* ---------------------------------------------------------------- conversion */

/* The evaluator's operation of an operator of the language; -1 for none. */
int op_code(int op_type)
{
    static constexpr int table[NR_OPTYPES + 1] = {
        -1,          fe::OP_MUL_, fe::OP_DIV_, fe::OP_ADD_, fe::OP_SUB_, fe::OP_NEG_,
        fe::OP_MOD_, fe::OP_EQ_,  fe::OP_NE_,  fe::OP_GT_,  fe::OP_GE_,  fe::OP_LT_,
        fe::OP_LE_,  fe::OP_AND_, fe::OP_OR_,  fe::OP_NOT_};
    return op_type >= 1 && op_type <= NR_OPTYPES ? table[op_type] : -1;
}

/* The evaluator's operation of a built-in function, and the arguments it reads. */
struct FunctionOp {
    int code;
    int nr_used;
};

FunctionOp function_op(int ff_type)
{
    static constexpr FunctionOp table[NR_FFTYPES + 1] = {
        {-1, 0},           {fe::OP_ABS_, 1},     {fe::OP_SIN_, 1},     {fe::OP_COS_, 1},
        {fe::OP_TAN_, 1},  {fe::OP_ASIN_, 1},    {fe::OP_ACOS_, 1},    {fe::OP_ATAN_, 1},
        {fe::OP_EXP_, 1},  {fe::OP_LOG_, 1},     {fe::OP_LOG10_, 1},   {fe::OP_POW_, 2},
        {fe::OP_SQRT_, 1}, {fe::OP_MIN_STEP, 1}, {fe::OP_MAX_STEP, 1}, {fe::OP_FLOOR_, 1},
        {fe::OP_CEIL_, 1}};
    if (ff_type < 1 || ff_type > NR_FFTYPES) return {-1, 0};
    return table[ff_type];
}

class Converter {
   public:
    Converter(pe_context *pe, pe_stream *ps, bool null_mode)
        : pe_(pe),
          ps_(ps),
          f_(&ps->stream->formula),
          dsh_(ps->dsinput != nullptr ? ps->dsinput->dsh : nullptr),
          b_(null_mode)
    {
    }

    /* The register of the formula's value. The tree is walked without
     * recursion, as a formula may be thousands of terms deep; children are
     * taken one at a time, so that the mask of the cells that reach a child
     * can depend on its elder siblings. */
    int convert(ExprNode *root)
    {
        walk_formula(root, note_user_function, &has_user_);
        struct Item {
            ExprNode *node;
            int loop;
            int guard;        // the mask of cells that reach the node; -1: all
            int next, count;  // children taken, and their number
            size_t kids, base;
            int last_guard;  // the mask of the child taken last
        };
        std::vector<Item> stack;
        std::vector<std::pair<ExprNode *, int>> kids;
        std::vector<int> results;
        auto push = [&](ExprNode *n, int loop, int guard) {
            Item item{n, loop, guard, 0, 0, kids.size(), results.size(), guard};
            children_of(n, loop, kids);
            item.count = static_cast<int>(kids.size() - item.kids);
            stack.push_back(item);
        };
        push(root, 0, -1);
        while (!stack.empty()) {
            Item &item = stack.back();
            if (item.next < item.count) {
                const int k = item.next++;
                const int guard = has_user_ ? child_guard(item, k, results) : -1;
                item.last_guard = guard;
                const auto kid = kids[item.kids + static_cast<size_t>(k)];
                push(kid.first, kid.second, guard);
                continue;
            }
            const Item done = item;
            std::vector<int> args(results.begin() + static_cast<std::ptrdiff_t>(done.base),
                                  results.end());
            results.resize(done.base);
            kids.resize(done.kids);
            stack.pop_back();
            results.push_back(done.count == 0 ? leaf(done.node, done.loop, done.guard)
                                              : combine(done.node, done.loop, args, done.guard));
        }
        return results.back();
    }

    ~Converter() { close_user_functions(users_); }
    Converter(const Converter &) = delete;
    Converter &operator=(const Converter &) = delete;

    fe::Builder &builder() { return b_; }
    std::vector<Source> &sources() { return sources_; }
    /* The loaded user functions, now the node's to close. */
    UserFunction *take_user_functions()
    {
        UserFunction *list = users_;
        users_ = nullptr;
        return list;
    }

   private:
    static void note_user_function(ExprNode *n, void *flag)
    {
        if (n->kind == EXPR_FUNC && n->u.func.ff_type == FF_USER) *static_cast<bool *>(flag) = true;
    }

    /* The mask of the cells that reach child k of a node: the taken branch
     * of an IF, the right side of an operator where the left isn't null (and
     * of OR where it is 0), an argument or SIGMA term where the ones before
     * it aren't null. */
    template <class Item>
    int child_guard(const Item &item, int k, const std::vector<int> &results)
    {
        if (k == 0) return item.guard;
        const int first = results[item.base];
        const int previous = results[item.base + static_cast<size_t>(k) - 1];
        switch (item.node->kind) {
            case EXPR_IF:
                return b_.mask(k == 1 ? fe::OP_MASK_TRUE : fe::OP_MASK_FALSE, item.guard, first);
            case EXPR_OP:
                return b_.mask(
                    item.node->u.op.op_type == OP_OR ? fe::OP_MASK_FALSE : fe::OP_MASK_NONNULL,
                    item.guard, first);
            case EXPR_FUNC:
            case EXPR_SIGMA:
                return b_.mask(fe::OP_MASK_NONNULL, item.last_guard, previous);
            default:
                return item.guard;
        }
    }

    void children_of(ExprNode *n, int loop, std::vector<std::pair<ExprNode *, int>> &out)
    {
        switch (n->kind) {
            case EXPR_FUNC:
                for (ExprNode *a = n->u.func.args; a != nullptr; a = a->next)
                    out.emplace_back(a, loop);
                break;
            case EXPR_OP:
                out.emplace_back(n->u.op.left, loop);
                if (n->u.op.right != nullptr) out.emplace_back(n->u.op.right, loop);
                break;
            case EXPR_SIGMA:
                for (INumNode *i = n->u.sigma.inputs; i != nullptr; i = i->next)
                    out.emplace_back(n->u.sigma.body, i->number);
                break;
            case EXPR_IF:
                out.emplace_back(n->u.ifx.condition, loop);
                out.emplace_back(n->u.ifx.then_expr, loop);
                out.emplace_back(n->u.ifx.else_expr, loop);
                break;
            case EXPR_ISNULL:
                out.emplace_back(n->u.isnull.operand, loop);
                break;
            case EXPR_MAHAL:
                for (ExprNode *a = n->u.mahal.inputs; a != nullptr; a = a->next)
                    out.emplace_back(a, loop);
                break;
            default:
                break;
        }
    }

    int source(int kind, int input_number, regioninfo *region)
    {
        for (const Source &s : sources_)
            if (s.kind == kind && s.input_number == input_number && s.region == region)
                return s.reg;
        const int reg = b_.input(kind == 1);
        sources_.push_back({kind, input_number, region, reg, nullptr});
        return reg;
    }

    int input_number(const ExprNode *n, int loop) const
    {
        return n->u.input.input_number == LOOP_INPUT_NUMBER ? loop : n->u.input.input_number;
    }

    int region_source(ExprNode *n)
    {
        const NameOrNumber &ref = n->u.inregion.region;
        regioninfo *region = find_region(f_, dsh_, &ref);
        if (region == nullptr) {
            if (ref.type == NN_NUMBER)
                alg_error_vprintf(pe_, "Could not find region R%d.", ref.number);
            alg_error_vprintf(pe_, "Could not find region %s.",
                              ref.name != nullptr ? ref.name : "");
        }
        if (region->type == REGION_CLASS)
            alg_error_fatal(pe_,
                            "INREGION() not yet supported for classified regions.\n"
                            "Use IF expression instead.\n"
                            "(eg: IF I1 = classnumber THEN I1 ELSE NULL)");
        return source(2, 0, region);
    }

    int leaf(ExprNode *n, int loop, int guard)
    {
        switch (n->kind) {
            case EXPR_INPUT: {
                const int number = input_number(n, loop);
                if (number < 1 || number > f_->nr_args)
                    alg_error_vprintf(pe_, "No FormulaArg info for INPUT%d", number);
                return source(1, number, nullptr);
            }
            case EXPR_INREGION:
                return region_source(n);
            case EXPR_CELLX:
                return source(3, 0, nullptr);
            case EXPR_CELLY:
                return source(4, 0, nullptr);
            case EXPR_PIXELX:
                return source(5, 0, nullptr);
            case EXPR_PIXELY:
                return source(6, 0, nullptr);
            case EXPR_NUMBER:
                return b_.constant(n->u.number.value);
            case EXPR_DSCONST:
                return b_.constant(image_or_dataset_constant(n, loop));
            case EXPR_SYMCONST:
                return b_.constant(n->u.symconst.sc_type == SC_PI ? 3.141592653589793
                                                                  : 2.718281828459045);
            case EXPR_NULL:
                return b_.null();
            case EXPR_VARIABLE: {
                double value = 0.0;
                if (!find_variable_value(n->u.variable.name, f_->nr_variable_args,
                                         f_->variable_args, &value))
                    value = 0.0;
                return b_.constant(value);
            }
            case EXPR_INPUTVECTOR:
                alg_error_fatal(pe_,
                                "Dynamic Compiler must be turned on to use INPUTVECTOR in formula");
            case EXPR_USERSTATS:
                alg_error_fatal(pe_,
                                "Dynamic Compiler must be turned on to use USERSTATS in formula");
            case EXPR_FUNC:  // a function without arguments
                return combine(n, loop, {}, guard);
            default:
                alg_error_vprintf(pe_, "Internal PE error: File = %s, line = %d", __FILE__,
                                  __LINE__);
        }
    }

    double image_or_dataset_constant(ExprNode *n, int loop)
    {
        switch (n->u.dsconst.dc_type) {
            case DC_MAXPIXELX:
                return pe_->nr_cells - 1;
            case DC_MAXPIXELY:
                return pe_->nr_lines - 1;
            case DC_NRPIXROWS:
                return pe_->nr_lines;
            case DC_NRPIXCOLS:
                return pe_->nr_cells;
            default:
                // The stream's own header, as the file describes it; the
                // engine's copy may be regridded into the image's space.
                return get_dataset_constant(
                    pe_, n, ps_->stream->dshdr != nullptr ? ps_->stream->dshdr : dsh_, ps_, loop);
        }
    }

    int combine(ExprNode *n, int loop, const std::vector<int> &args, int guard)
    {
        switch (n->kind) {
            case EXPR_OP: {
                const int code = op_code(n->u.op.op_type);
                if (code < 0)
                    alg_error_vprintf(pe_, "Internal PE error: File = %s, line = %d", __FILE__,
                                      __LINE__);
                return args.size() == 1 ? b_.op(code, args[0]) : b_.op(code, args[0], args[1]);
            }
            case EXPR_IF:
                return b_.op(fe::OP_IF_, args[0], args[1], args[2]);
            case EXPR_ISNULL:
                return b_.op(fe::OP_ISNULL_, args[0]);
            case EXPR_SIGMA: {
                // body(p) + (body(q) + (... + body(z)))
                int acc = args.back();
                for (size_t k = args.size() - 1; k-- > 0;) acc = b_.op(fe::OP_ADD_, args[k], acc);
                return acc;
            }
            case EXPR_MAHAL:
                return mahal(n, loop, args);
            case EXPR_FUNC:
                return n->u.func.ff_type == FF_USER ? user(n, args, guard) : builtin(n, args);
            default:
                alg_error_vprintf(pe_, "Internal PE error: File = %s, line = %d", __FILE__,
                                  __LINE__);
        }
    }

    int builtin(ExprNode *n, const std::vector<int> &args)
    {
        const FunctionOp fop = function_op(n->u.func.ff_type);
        if (fop.code < 0)
            alg_error_vprintf(pe_, "Internal PE error: File = %s, line = %d", __FILE__, __LINE__);
        if (static_cast<int>(args.size()) < fop.nr_used)
            alg_error_vprintf(pe_, "Not enough arguments for %s", fftype_text(n->u.func.ff_type));
        int reg;
        size_t used = static_cast<size_t>(fop.nr_used);
        if (fop.code == fe::OP_MIN_STEP || fop.code == fe::OP_MAX_STEP) {
            reg = b_.running(fop.code, args);
            used = args.size();
        } else {
            reg = fop.nr_used == 1 ? b_.op(fop.code, args[0]) : b_.op(fop.code, args[0], args[1]);
        }
        // Arguments the function doesn't read still make it null.
        for (size_t k = used; k < args.size(); k++) reg = b_.join_nulls(reg, args[k]);
        return reg;
    }

    int user(ExprNode *n, const std::vector<int> &args, int guard)
    {
        if (args.size() > 20)
            alg_error_fatal(pe_,
                            "Too many user function arguments (>10). Try with dynamic compilation "
                            "turned on.");
        UserFunction *uf = load_user_function(pe_, ps_, n->u.func.name, ++nr_users_);
        uf->next = users_;
        users_ = uf;
        return b_.user(args, guard, uf, call_user_function);
    }

    int mahal(ExprNode *n, int loop, const std::vector<int> &args)
    {
        std::vector<int> numbers;
        for (ExprNode *a = n->u.mahal.inputs; a != nullptr; a = a->next)
            numbers.push_back(input_number(a, loop));
        double *mean = nullptr, *inverse = nullptr;
        setup_mahal_stats(pe_, ps_, dsh_, &n->u.mahal.region, numbers.data(),
                          static_cast<int>(numbers.size()), &mean, &inverse);
        return b_.mahal(args, mean, inverse);
    }

    pe_context *pe_;
    pe_stream *ps_;
    const formula *f_;
    dshdr *dsh_;
    fe::Builder b_;
    std::vector<Source> sources_;
    UserFunction *users_ = nullptr;
    int nr_users_ = 0;
    bool has_user_ = false;  // masks are made only for formulas with user functions
};

/* The stream input that formula input `number` reads. */
pe_input *stream_input_of(pe_context *pe, pe_stream *ps, int number)
{
    const formula &f = ps->stream->formula;
    if (number >= 1 && number <= f.nr_args) {
        const int id = f.args[number - 1].stream_input;
        for (int i = 0; i < ps->nr_inputs; i++)
            if (ps->inputs[i].streaminput->id == id) return &ps->inputs[i];
    }
    char text[64];
    std::snprintf(text, sizeof text, "Formula Input %d is not set up", number);
    alg_internal_error(pe, "formula", __LINE__, text);
}

/* The chain of one source, into `slot`. */
void build_source(funcnode **slot, pe_context *pe, pe_stream *ps, const Source &s)
{
    if (s.kind == 1)
        return setup_input_chain(slot, pe, ps, stream_input_of(pe, ps, s.input_number), 1);
    if (s.kind != 2) return setup_input_chain(slot, pe, ps, nullptr, s.kind);
    setup_inregion_node(slot, pe, ps, s.region);
    setup_syncnode(slot, pe, ps->proc_cells, (ps->max_input_rows - 1) / 2);
}

/* ---------------------------------------------------------------- hooks */

void init(funcnode *node)
{
    auto *p = vln_pe::priv<Formula>(node);
    pe_context *pe = p->base.pe;
    setup_bufinfo(node->output, IEEE8ByteReal);
    const int64_t width = node->output->nr_cells > 0 ? node->output->nr_cells : 1;
    for (int i = 0; i < p->nr_sources; i++) {
        Source &s = p->sources[i];
        if (p->process_nulls && s.kind == 1) s.nulls = static_cast<uint8_t *>(pe_malloc(pe, width));
    }
    if (p->process_nulls) p->result_nulls = static_cast<uint8_t *>(pe_malloc(pe, width));
}

/* The runs of the cells whose flag is 0. */
rlseg *runs_of_flags(pe_context *pe, const uint8_t *flags, int width)
{
    rlseg *head = nullptr;
    rlseg **tail = &head;
    int i = 0;
    while (i < width) {
        while (i < width && flags[i]) i++;
        if (i >= width) break;
        const int first = i;
        while (i < width && !flags[i]) i++;
        *tail = pe_rlseg(pe, first, i - 1);
        tail = &(*tail)->next;
    }
    return head;
}

void read(funcnode *node)
{
    auto *p = vln_pe::priv<Formula>(node);
    pe_context *pe = p->base.pe;
    bufinfo *out = node->output;
    const int width = out->nr_cells;
    linebuf *line = out->buffers[0];
    pe_free_rlseg_list(pe, &line->rlsegs);

    for (int i = 0; i < p->nr_sources; i++) vln_pe::pull(node, i);

    rlseg *runs = nullptr;
    if (p->process_nulls || p->nr_sources == 0) {
        if (width > 0) runs = pe_rlseg(pe, 0, width - 1);
        for (int i = 0; i < p->nr_sources; i++) {
            linebuf *in = node->inputs[i].buffers->buffers[0];
            if (uint8_t *flags = p->sources[i].nulls) {
                std::memset(flags, 1, static_cast<size_t>(width));
                for (const rlseg *r = in->rlsegs; r != nullptr; r = r->next)
                    if (r->first < width)
                        std::memset(
                            flags + r->first, 0,
                            static_cast<size_t>(std::min(r->last, width - 1) - r->first + 1));
            }
            pe_free_rlseg_list(pe, &in->rlsegs);
        }
    } else {
        // Computed only where every input is valid.
        linebuf *first = node->inputs[0].buffers->buffers[0];
        runs = first->rlsegs;
        first->rlsegs = nullptr;
        for (int i = 1; i < p->nr_sources; i++) {
            linebuf *in = node->inputs[i].buffers->buffers[0];
            rlseg *both = pe_and_rlsegs(&pe->rlsegs, runs, in->rlsegs);
            pe_free_rlseg_list(pe, &runs);
            pe_free_rlseg_list(pe, &in->rlsegs);
            runs = both;
        }
    }

    // Lines of other types are converted by the run, a block at a time.
    for (int i = 0; i < p->nr_sources; i++) {
        const bufinfo *in = node->inputs[i].buffers;
        const Source &s = p->sources[i];
        void *data = in->buffers[0]->data;
        if (in->cell_type == IEEE8ByteReal)
            fe::set_input(p->program, s.reg, static_cast<double *>(data), s.nulls);
        else
            fe::set_typed_input(p->program, s.reg, data, in->cell_type, s.nulls);
    }

    auto *cells = static_cast<double *>(line->data);
    const bool may_be_null = p->process_nulls && p->program->nulls[p->program->result] != nullptr;
    fe::run(p->program, runs, cells, may_be_null ? p->result_nulls : nullptr);
    if (may_be_null) {
        // Null results drop out of the line's runs.
        pe_free_rlseg_list(pe, &runs);
        runs = runs_of_flags(pe, p->result_nulls, width);
    }
    line->rlsegs = runs;
}

void close(funcnode *node)
{
    auto *p = vln_pe::priv<Formula>(node);
    close_user_functions(p->user_functions);
    p->user_functions = nullptr;
}

}  // namespace

namespace vln_pe {
extern const NodeOps formula_ops;
const NodeOps formula_ops = {init, nullptr, nullptr, read, close};
}  // namespace vln_pe

/* The stream's formula over its sources; a formula of one plain input has
 * no node (the planner gives it the input's chain). Consumes the stream's
 * parsed formula. */
void setup_formulanode(funcnode **slot, pe_context *pe, pe_streamgroup *, pe_stream *ps)
{
    if (ps->formula == nullptr)
        return setup_input_chain(slot, pe, ps, ps->nr_inputs > 0 ? &ps->inputs[0] : nullptr, 1);
    const bool process_nulls = ps->null_aware != 0;
    Converter conv(pe, ps, process_nulls);
    const int result = conv.convert(ps->formula);
    free_ExprNode(ps->formula);
    ps->formula = nullptr;

    // Sources in order of kind, and inputs by number.
    std::vector<Source> &sources = conv.sources();
    std::stable_sort(sources.begin(), sources.end(), [](const Source &a, const Source &b) {
        return a.kind != b.kind ? a.kind < b.kind : a.input_number < b.input_number;
    });
    const int n = static_cast<int>(sources.size());
    funcnode *node = nullptr;
    auto *p = vln_pe::new_private_node<Formula>(pe, FN_FORMULA, n, &node);
    p->stream = ps;
    p->process_nulls = process_nulls;
    p->nr_sources = n;
    p->sources = static_cast<Source *>(pe_malloc(pe, (n > 0 ? n : 1) * sizeof(Source)));
    for (int i = 0; i < n; i++) {
        p->sources[i] = sources[static_cast<size_t>(i)];
        funcnode *child = nullptr;
        build_source(&child, pe, ps, p->sources[i]);
        setup_fninput(pe, &node->inputs[i], child, 1, ps->proc_cells, 0, PE_ALLOC_LINES);
    }
    p->program = conv.builder().finish(pe, result, ps->proc_cells);
    // The libraries are the node's to close from here on; a failure before
    // this closes them with the converter.
    p->user_functions = conv.take_user_functions();
    *slot = node;
}
