/*
 * vln_formula_eval.cpp: the flat programs of the formula node, built at
 * setup and run over the runs of each line.
 *
 * Each operation is one loop over a block of cells for its values and, when
 * its result can be null, one loop for its null flags. Blocks are short, so
 * that the registers of a block stay in the first-level cache however many
 * operations a formula has.
 */
#include "vln_formula_eval.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <type_traits>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace vln_formula {

namespace {

constexpr int BLOCK = 512;

/* ---------------------------------------------------------------- values */

template <class F>
inline void unary(double *__restrict d, const double *__restrict a, int s, int e, F f)
{
    for (int i = s; i < e; i++) d[i] = f(a[i]);
}

template <class F>
inline void binary(double *__restrict d, const double *__restrict a, const double *__restrict b,
                   int s, int e, F f)
{
    for (int i = s; i < e; i++) d[i] = f(a[i], b[i]);
}

/* Quotients of a block by the language's rule (divide), two at a time. */
void divide_block(double *__restrict d, const double *__restrict a, const double *__restrict b,
                  int s, int e)
{
    int i = s;
#ifdef __SSE2__
    const __m128d zero = _mm_setzero_pd(), one = _mm_set1_pd(1.0);
    const __m128d largest = _mm_set1_pd(1.7976931348623157e308);
    const __m128d least = _mm_set1_pd(-1.7976931348623157e308);
    for (; i + 2 <= e; i += 2) {
        const __m128d l = _mm_loadu_pd(a + i), r = _mm_loadu_pd(b + i);
        const __m128d by_zero_mask = _mm_cmpeq_pd(r, zero);
        const __m128d divisor =
            _mm_or_pd(_mm_andnot_pd(by_zero_mask, r), _mm_and_pd(by_zero_mask, one));
        const __m128d quotient = _mm_div_pd(l, divisor);
        const __m128d by_zero = _mm_or_pd(_mm_and_pd(_mm_cmpgt_pd(l, zero), largest),
                                          _mm_and_pd(_mm_cmplt_pd(l, zero), least));
        _mm_storeu_pd(d + i, _mm_or_pd(_mm_andnot_pd(by_zero_mask, quotient),
                                       _mm_and_pd(by_zero_mask, by_zero)));
    }
#endif
    for (; i < e; i++) d[i] = divide(a[i], b[i]);
}

inline double truth(bool t)
{
    return t ? 1.0 : 0.0;
}

void values_of(Program *p, const Op &op, int s, int e)
{
    double *d = p->values[op.dst];
    const double *a = op.a >= 0 ? p->values[op.a] : nullptr;
    const double *b = op.b >= 0 ? p->values[op.b] : nullptr;
    switch (op.code) {
        case OP_LOAD:
            if (const void *line = p->typed[op.dst])
                vln_pe::with_cell_type(p->typed_type[op.dst], [&](auto t) {
                    using T = decltype(t);
                    if constexpr (!std::is_same_v<T, std::byte>) {
                        const T *__restrict in = static_cast<const T *>(line);
                        for (int i = s; i < e; i++) d[i] = static_cast<double>(in[i]);
                    }
                });
            break;
        case OP_COPY:
            if (d != a) std::memcpy(d + s, a + s, sizeof(double) * (e - s));
            break;
        case OP_ADD_:
            binary(d, a, b, s, e, [](double x, double y) { return x + y; });
            break;
        case OP_SUB_:
            binary(d, a, b, s, e, [](double x, double y) { return x - y; });
            break;
        case OP_MUL_:
            binary(d, a, b, s, e, [](double x, double y) { return x * y; });
            break;
        case OP_DIV_:
            divide_block(d, a, b, s, e);
            break;
        case OP_MOD_:
            binary(d, a, b, s, e, [](double x, double y) { return std::fmod(x, y); });
            break;
        case OP_EQ_:
            binary(d, a, b, s, e, [](double x, double y) { return truth(x == y); });
            break;
        case OP_NE_:
            binary(d, a, b, s, e, [](double x, double y) { return truth(x != y); });
            break;
        case OP_GT_:
            binary(d, a, b, s, e, [](double x, double y) { return truth(x > y); });
            break;
        case OP_GE_:
            binary(d, a, b, s, e, [](double x, double y) { return truth(x >= y); });
            break;
        case OP_LT_:
            binary(d, a, b, s, e, [](double x, double y) { return truth(x < y); });
            break;
        case OP_LE_:
            binary(d, a, b, s, e, [](double x, double y) { return truth(x <= y); });
            break;
        case OP_AND_:
            binary(d, a, b, s, e, [](double x, double y) { return truth(x != 0.0 && y != 0.0); });
            break;
        case OP_OR_:
            binary(d, a, b, s, e, [](double x, double y) { return truth(x != 0.0 || y != 0.0); });
            break;
        case OP_POW_:
            binary(d, a, b, s, e, [](double x, double y) { return std::pow(x, y); });
            break;
        case OP_NEG_:
            unary(d, a, s, e, [](double x) { return -x; });
            break;
        case OP_NOT_:
            unary(d, a, s, e, [](double x) { return truth(x == 0.0); });
            break;
        case OP_ABS_:
            unary(d, a, s, e, [](double x) { return std::fabs(x); });
            break;
        case OP_SIN_:
            unary(d, a, s, e, [](double x) { return std::sin(x); });
            break;
        case OP_COS_:
            unary(d, a, s, e, [](double x) { return std::cos(x); });
            break;
        case OP_TAN_:
            unary(d, a, s, e, [](double x) { return std::tan(x); });
            break;
        case OP_ASIN_:
            unary(d, a, s, e, [](double x) { return std::asin(x); });
            break;
        case OP_ACOS_:
            unary(d, a, s, e, [](double x) { return std::acos(x); });
            break;
        case OP_ATAN_:
            unary(d, a, s, e, [](double x) { return std::atan(x); });
            break;
        case OP_EXP_:
            unary(d, a, s, e, [](double x) { return std::exp(x); });
            break;
        case OP_LOG_:
            unary(d, a, s, e, [](double x) { return std::log(x); });
            break;
        case OP_LOG10_:
            unary(d, a, s, e, [](double x) { return std::log10(x); });
            break;
        case OP_SQRT_:
            unary(d, a, s, e, [](double x) { return std::sqrt(x); });
            break;
        case OP_FLOOR_:
            unary(d, a, s, e, [](double x) { return std::floor(x); });
            break;
        case OP_CEIL_:
            unary(d, a, s, e, [](double x) { return std::ceil(x); });
            break;
        case OP_MIN_STEP:
            // Replaced only by a value strictly below.
            for (int i = s; i < e; i++) d[i] = a[i] < d[i] ? a[i] : d[i];
            break;
        case OP_MAX_STEP:
            // Replaced by any value not below.
            for (int i = s; i < e; i++) d[i] = !(a[i] < d[i]) ? a[i] : d[i];
            break;
        case OP_IF_: {
            const double *c = p->values[op.c];
            for (int i = s; i < e; i++) d[i] = a[i] != 0.0 ? b[i] : c[i];
            break;
        }
        case OP_ISNULL_: {
            const uint8_t *an = p->nulls[op.a];
            for (int i = s; i < e; i++) d[i] = an != nullptr && an[i] ? 1.0 : 0.0;
            break;
        }
        case OP_NULLS:
            break;
        case OP_MASK_NONNULL:
        case OP_MASK_TRUE:
        case OP_MASK_FALSE: {
            uint8_t *m = p->nulls[op.dst];
            const uint8_t *parent = op.a >= 0 ? p->nulls[op.a] : nullptr;
            const uint8_t *bn = p->nulls[op.b];
            const double *bv = p->values[op.b];
            for (int i = s; i < e; i++) {
                bool on = (parent == nullptr || parent[i]) && (bn == nullptr || !bn[i]);
                if (op.code == OP_MASK_TRUE) on = on && bv[i] != 0.0;
                if (op.code == OP_MASK_FALSE) on = on && bv[i] == 0.0;
                m[i] = on ? 1 : 0;
            }
            break;
        }
        case OP_USER: {
            const UserCall &call = p->calls[op.extra];
            const uint8_t *dn = p->nulls[op.dst];
            const uint8_t *mask = op.b >= 0 ? p->nulls[op.b] : nullptr;
            double args[64];
            const int n = std::min(call.nr_args, 64);
            for (int i = s; i < e; i++) {
                if ((dn != nullptr && dn[i]) || (mask != nullptr && !mask[i])) continue;
                for (int k = 0; k < n; k++) args[k] = p->values[p->args[call.first_arg + k]][i];
                d[i] = call.call(call.context, args, call.nr_args);
            }
            break;
        }
        case OP_MAHAL_: {
            const MahalCall &m = p->mahals[op.extra];
            const int n = m.nr_args;
            for (int i = s; i < e; i++) {
                for (int k = 0; k < n; k++)
                    m.d[k] = p->values[p->args[m.first_arg + k]][i] - m.mean[k];
                double sum = 0.0;
                for (int j = 0; j < n; j++) {
                    double t = 0.0;
                    for (int k = 0; k < n; k++) t += m.d[k] * m.inverse[k * n + j];
                    sum += t * m.d[j];
                }
                d[i] = sum;
            }
            break;
        }
        default:
            break;
    }
}

/* ---------------------------------------------------------------- nulls */

inline uint8_t flag(const uint8_t *line, int i)
{
    return line != nullptr ? line[i] : 0;
}

/* The null flags of an operation's result; called only where it has them,
 * and before its values (a user call looks at them). */
void nulls_of(Program *p, const Op &op, int s, int e)
{
    uint8_t *dn = p->nulls[op.dst];
    const uint8_t *an = op.a >= 0 ? p->nulls[op.a] : nullptr;
    const uint8_t *bn = op.b >= 0 ? p->nulls[op.b] : nullptr;
    switch (op.code) {
        case OP_OR_: {
            // A non-zero left side hides a null right side.
            const double *a = p->values[op.a];
            for (int i = s; i < e; i++)
                dn[i] = static_cast<uint8_t>(flag(an, i) | (a[i] == 0.0 ? flag(bn, i) : 0));
            break;
        }
        case OP_IF_: {
            // The condition's null, else the null of the branch it takes.
            const double *a = p->values[op.a];
            const uint8_t *cn = p->nulls[op.c];
            for (int i = s; i < e; i++)
                dn[i] =
                    static_cast<uint8_t>(flag(an, i) | (a[i] != 0.0 ? flag(bn, i) : flag(cn, i)));
            break;
        }
        case OP_MIN_STEP:
        case OP_MAX_STEP:
        case OP_NULLS:
            for (int i = s; i < e; i++) dn[i] = static_cast<uint8_t>(dn[i] | flag(an, i));
            break;
        case OP_USER:
        case OP_MAHAL_: {
            const int first =
                op.code == OP_USER ? p->calls[op.extra].first_arg : p->mahals[op.extra].first_arg;
            const int n =
                op.code == OP_USER ? p->calls[op.extra].nr_args : p->mahals[op.extra].nr_args;
            std::memset(dn + s, 0, static_cast<size_t>(e - s));
            for (int k = 0; k < n; k++) {
                const uint8_t *kn = p->nulls[p->args[first + k]];
                if (kn != nullptr)
                    for (int i = s; i < e; i++) dn[i] = static_cast<uint8_t>(dn[i] | kn[i]);
            }
            break;
        }
        default:
            for (int i = s; i < e; i++) dn[i] = static_cast<uint8_t>(flag(an, i) | flag(bn, i));
            break;
    }
}

}  // namespace

/* ---------------------------------------------------------------- building */

int Builder::add(uint8_t kind, bool nullable, double value)
{
    regs_.push_back({kind, nullable && null_mode_, value});
    return static_cast<int>(regs_.size()) - 1;
}

int Builder::input(bool may_be_null)
{
    return add(REG_INPUT, may_be_null);
}

int Builder::constant(double value)
{
    return add(REG_CONST, false, value);
}

int Builder::null()
{
    return add(REG_NULL, true);
}

int Builder::op(int code, int a, int b, int c)
{
    bool nullable = false;
    switch (code) {
        case OP_ISNULL_:
            nullable = false;
            break;
        case OP_IF_:
            nullable = may_be_null(a) || may_be_null(b) || may_be_null(c);
            break;
        default:
            nullable = may_be_null(a) || (b >= 0 && may_be_null(b));
            break;
    }
    const int dst = add(REG_TEMP, nullable);
    ops_.push_back({code, dst, a, b, c, 0});
    return dst;
}

int Builder::running(int code, const std::vector<int> &args)
{
    int dst = op(OP_COPY, args[0]);
    bool nullable = may_be_null(args[0]);
    for (size_t k = 1; k < args.size(); k++) nullable = nullable || may_be_null(args[k]);
    regs_[dst].nullable = nullable;
    for (size_t k = 1; k < args.size(); k++) ops_.push_back({code, dst, args[k], -1, -1, 0});
    return dst;
}

int Builder::join_nulls(int reg, int extra)
{
    if (!may_be_null(extra)) return reg;
    if (regs_[reg].kind != REG_TEMP) reg = op(OP_COPY, reg);
    regs_[reg].nullable = true;
    ops_.push_back({OP_NULLS, reg, extra, -1, -1, 0});
    return reg;
}

int Builder::mask(int code, int parent, int reg)
{
    if (code == OP_MASK_NONNULL && !may_be_null(reg)) return parent;
    const int dst = add(REG_MASK, false);
    ops_.push_back({code, dst, parent, reg, -1, 0});
    return dst;
}

int Builder::user(const std::vector<int> &args, int mask, void *context,
                  double (*call)(void *context, const double *args, int nr_args))
{
    bool nullable = false;
    for (int a : args) nullable = nullable || may_be_null(a);
    const int dst = add(REG_TEMP, nullable);
    const int first = static_cast<int>(args_.size());
    args_.insert(args_.end(), args.begin(), args.end());
    calls_.push_back({first, static_cast<int32_t>(args.size()), context, call});
    ops_.push_back({OP_USER, dst, -1, mask, -1, static_cast<int32_t>(calls_.size()) - 1});
    return dst;
}

int Builder::mahal(const std::vector<int> &args, const double *mean, const double *inverse)
{
    bool nullable = false;
    for (int a : args) nullable = nullable || may_be_null(a);
    const int dst = add(REG_TEMP, nullable);
    const int first = static_cast<int>(args_.size());
    args_.insert(args_.end(), args.begin(), args.end());
    mahals_.push_back({first, static_cast<int32_t>(args.size()), mean, inverse, nullptr, nullptr});
    ops_.push_back({OP_MAHAL_, dst, -1, -1, -1, static_cast<int32_t>(mahals_.size()) - 1});
    return dst;
}

template <class T>
static T *pool_array(pe_context *pe, size_t count)
{
    return static_cast<T *>(
        pe_malloc(pe, static_cast<int64_t>(count == 0 ? 1 : count) * sizeof(T)));
}

template <class T>
static T *pool_copy(pe_context *pe, const std::vector<T> &v)
{
    T *out = pool_array<T>(pe, v.size());
    if (!v.empty()) std::memcpy(out, v.data(), v.size() * sizeof(T));
    return out;
}

Program *Builder::finish(pe_context *pe, int result, int nr_cells) const
{
    auto *p = pool_array<Program>(pe, 1);
    const size_t n = regs_.size();
    p->nr_regs = static_cast<int32_t>(n);
    p->nr_cells = nr_cells;
    p->null_mode = null_mode_;
    p->result = result;
    p->values = pool_array<double *>(pe, n);
    p->nulls = pool_array<uint8_t *>(pe, n);
    p->kinds = pool_array<uint8_t>(pe, n);
    p->consts = pool_array<double>(pe, n);
    p->typed = pool_array<const void *>(pe, n);
    p->typed_type = pool_array<int32_t>(pe, n);
    p->own = pool_array<double *>(pe, n);
    p->block_values = pool_array<double *>(pe, n);
    p->block_nulls = pool_array<uint8_t *>(pe, n);
    // Inputs are whole lines; everything else holds one block, whatever the
    // width of the line or the length of the formula.
    const int64_t width = nr_cells > 0 ? nr_cells : 1;
    const int64_t block = std::min<int64_t>(width, BLOCK);
    uint8_t *all_null = nullptr;
    for (size_t r = 0; r < n; r++) {
        const Reg &reg = regs_[r];
        p->kinds[r] = reg.kind;
        p->consts[r] = reg.value;
        p->block_values[r] = nullptr;
        p->block_nulls[r] = nullptr;
        if (reg.kind == REG_INPUT) {
            p->own[r] = static_cast<double *>(pe_malloc_raw(pe, width * sizeof(double)));
            continue;
        }
        p->values[r] = static_cast<double *>(pe_malloc_raw(pe, block * sizeof(double)));
        if (reg.kind == REG_CONST)
            for (int64_t i = 0; i < block; i++) p->values[r][i] = reg.value;
        if (reg.kind == REG_NULL) {
            if (all_null == nullptr) {
                all_null = static_cast<uint8_t *>(pe_malloc_raw(pe, block));
                std::memset(all_null, 1, static_cast<size_t>(block));
            }
            p->nulls[r] = all_null;
            std::memset(p->values[r], 0, static_cast<size_t>(block) * sizeof(double));
        } else if ((reg.kind == REG_TEMP && reg.nullable) || reg.kind == REG_MASK) {
            p->nulls[r] = static_cast<uint8_t *>(pe_malloc(pe, block));
        }
        p->block_values[r] = p->values[r];
        p->block_nulls[r] = p->nulls[r];
    }
    // Each block starts by loading the inputs that come in other types.
    std::vector<Op> ops;
    for (size_t r = 0; r < n; r++)
        if (regs_[r].kind == REG_INPUT)
            ops.push_back({OP_LOAD, static_cast<int32_t>(r), -1, -1, -1, 0});
    ops.insert(ops.end(), ops_.begin(), ops_.end());
    p->nr_ops = static_cast<int32_t>(ops.size());
    p->ops = pool_copy(pe, ops);
    p->args = pool_copy(pe, args_);
    p->calls = pool_copy(pe, calls_);
    p->mahals = pool_copy(pe, mahals_);
    for (size_t m = 0; m < mahals_.size(); m++) {
        p->mahals[m].d = pool_array<double>(pe, static_cast<size_t>(mahals_[m].nr_args));
        p->mahals[m].t = pool_array<double>(pe, static_cast<size_t>(mahals_[m].nr_args));
    }
    return p;
}

/* ---------------------------------------------------------------- running */

namespace {

/* Points the block registers at the block that starts at cell `s`: cell i of
 * the block is element i - s of the register's memory. The result keeps the
 * caller's line when the run writes into it directly. */
void point_at_block(Program *p, int s, bool direct, bool direct_nulls)
{
    for (int r = 0; r < p->nr_regs; r++) {
        if (p->block_values[r] == nullptr) continue;
        const bool keep = r == p->result && direct;
        if (!keep) p->values[r] = p->block_values[r] - s;
        if (p->block_nulls[r] != nullptr && !(keep && direct_nulls))
            p->nulls[r] = p->block_nulls[r] - s;
    }
}

}  // namespace

void run(Program *p, const rlseg *runs, double *out, uint8_t *out_nulls)
{
    const int result = p->result;
    // An operation's result is written straight into the output line.
    const bool direct = p->kinds[result] == REG_TEMP;
    double *saved_values = p->values[result];
    uint8_t *saved_nulls = p->nulls[result];
    if (direct) {
        p->values[result] = out;
        if (saved_nulls != nullptr && out_nulls != nullptr) p->nulls[result] = out_nulls;
    }
    for (const rlseg *r = runs; r != nullptr; r = r->next) {
        const int last = std::min(r->last, p->nr_cells - 1);
        for (int s = std::max(r->first, 0); s <= last; s += BLOCK) {
            const int e = std::min(s + BLOCK, last + 1);
            point_at_block(p, s, direct, out_nulls != nullptr);
            for (int k = 0; k < p->nr_ops; k++) {
                const Op &op = p->ops[k];
                if (p->nulls[op.dst] != nullptr && p->kinds[op.dst] == REG_TEMP)
                    nulls_of(p, op, s, e);
                values_of(p, op, s, e);
            }
            if (!direct) std::memcpy(out + s, p->values[result] + s, sizeof(double) * (e - s));
            if (out_nulls != nullptr) {
                const uint8_t *rn = p->nulls[result];
                if (rn == nullptr)
                    std::memset(out_nulls + s, 0, static_cast<size_t>(e - s));
                else if (rn != out_nulls)
                    std::memcpy(out_nulls + s, rn + s, static_cast<size_t>(e - s));
            }
        }
    }
    point_at_block(p, 0, false, false);
    p->values[result] = saved_values;
    p->nulls[result] = saved_nulls;
}

}  // namespace vln_formula
