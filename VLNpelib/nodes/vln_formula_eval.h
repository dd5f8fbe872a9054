/*
 * vln_formula_eval.h: the evaluator of the formula node.
 *
 * A formula is compiled once, at setup, into a flat program: a list of
 * operations over registers, each register a line of doubles (and, where a
 * null can reach it, a line of null flags). Reading a line runs every
 * operation over whole runs of cells, a block at a time, so that the inner
 * loops are plain array loops that the compiler vectorises; nothing is
 * allocated per line.
 *
 * Evaluation is eager: both branches of an IF and both sides of an OR are
 * computed over the block, and the null flags select the result by the rules
 * of the cell-by-cell interpreter (a null condition makes the IF null, a
 * non-zero left side of OR hides a null right side, and so on). Arithmetic
 * has no side effects, so the values are those of the interpreter. Only user
 * functions are called cell by cell, and only where the interpreter would
 * call them: masks, made only for the parts of a formula that hold a user
 * function, say which cells reach each part (the taken branch of an IF, the
 * right side of an operator whose left side isn't null, or of an OR whose
 * left side is 0, an argument whose elder arguments aren't null).
 *
 * Registers and operations are added by a Builder (setup time, heap), which
 * then lays the program down in the handle's pool.
 */
#ifndef VORLAN_VLN_FORMULA_EVAL_H
#define VORLAN_VLN_FORMULA_EVAL_H

#include <cstdint>
#include <vector>

#include "vln_pe_internal.h"

namespace vln_formula {

enum OpCode : int32_t {
    OP_LOAD, /* dst = the cells of its typed line, as doubles (an input) */
    OP_COPY,
    /* binary arithmetic and comparison: dst = a op b */
    OP_ADD_,
    OP_SUB_,
    OP_MUL_,
    OP_DIV_,
    OP_MOD_,
    OP_EQ_,
    OP_NE_,
    OP_GT_,
    OP_GE_,
    OP_LT_,
    OP_LE_,
    OP_AND_,
    OP_OR_, /* its own null rule */
    OP_POW_,
    /* unary: dst = f(a) */
    OP_NEG_,
    OP_NOT_,
    OP_ABS_,
    OP_SIN_,
    OP_COS_,
    OP_TAN_,
    OP_ASIN_,
    OP_ACOS_,
    OP_ATAN_,
    OP_EXP_,
    OP_LOG_,
    OP_LOG10_,
    OP_SQRT_,
    OP_FLOOR_,
    OP_CEIL_,
    /* running minimum and maximum: dst = min(dst, a), dst = max(dst, a) */
    OP_MIN_STEP,
    OP_MAX_STEP,
    OP_IF_,     /* dst = a ? b : c, with the null rule of IF */
    OP_ISNULL_, /* dst = a is null */
    OP_NULLS,   /* dst's null flags take those of a as well */
    OP_USER,    /* a call of user code; `extra` is the call, `b` its mask or -1 */
    /* masks of the cells where a part of the formula is reached: dst = a
     * (the enclosing mask, or -1 for all) and b not null, and for TRUE and
     * FALSE also b non-zero or zero */
    OP_MASK_NONNULL,
    OP_MASK_TRUE,
    OP_MASK_FALSE,
    OP_MAHAL_, /* squared distance; `extra` is the record */
};

struct Op {
    int32_t code;
    int32_t dst, a, b, c;
    int32_t extra;
};

/* A user-code function as the evaluator calls it. `call` gets the argument
 * values of one cell. */
struct UserCall {
    int32_t first_arg, nr_args; /* registers, in Program::args */
    void *context;              /* handed to `call` */
    double (*call)(void *context, const double *args, int nr_args);
};

/* The squared Mahalanobis distance of a cell's inputs from a region's mean. */
struct MahalCall {
    int32_t first_arg, nr_args; /* registers, in Program::args */
    const double *mean;         /* nr_args */
    const double *inverse;      /* nr_args by nr_args, row-major */
    double *d, *t;              /* scratch, nr_args each */
};

/* The kinds of register. */
enum RegKind : uint8_t {
    REG_TEMP,  /* a result of an operation */
    REG_CONST, /* a value fixed at setup */
    REG_INPUT, /* a line given before each run */
    REG_NULL,  /* always null */
    REG_MASK,  /* a mask of cells: a byte line, in `nulls` */
};

struct Program {
    int32_t nr_regs;
    double **values;     /* per register: a line of nr_cells */
    uint8_t **nulls;     /* per register: null flags, or null when it is never null */
    uint8_t *kinds;      /* RegKind */
    double *consts;      /* per register: the value of a REG_CONST */
    const void **typed;  /* per input register: its line in another cell type, or null */
    int32_t *typed_type; /* the cell type of that line */
    double **own;        /* per input register: a line of doubles for a typed line */
    int32_t nr_ops;
    Op *ops;
    int32_t *args; /* argument lists of user calls and distances */
    UserCall *calls;
    MahalCall *mahals;
    int32_t result;
    int32_t nr_cells;
    bool null_mode;
    /* Registers other than inputs hold one block of cells, not a line: a
     * run points them at its block before each block's operations, so that
     * operations index every register by cell. Null for an input. */
    double **block_values;
    uint8_t **block_nulls;
};

class Builder {
   public:
    explicit Builder(bool null_mode) : null_mode_(null_mode) {}

    int input(bool may_be_null);
    int constant(double value);
    int null();
    /* An operation of one, two or three operands (-1 for none). */
    int op(int code, int a, int b = -1, int c = -1);
    /* MIN or MAX of a list, with the null of every argument. */
    int running(int code, const std::vector<int> &args);
    /* The nulls of `extra` joined into those of `reg` (arguments that a
     * function doesn't use still make it null). */
    int join_nulls(int reg, int extra);
    /* A call at the cells of `mask` (-1: every cell) where no argument is null. */
    int user(const std::vector<int> &args, int mask, void *context,
             double (*call)(void *context, const double *args, int nr_args));
    /* The mask of the cells of `parent` (-1: all) where `reg` isn't null, and
     * for OP_MASK_TRUE and OP_MASK_FALSE where it is non-zero or zero; -1
     * when that is every cell of the parent. */
    int mask(int code, int parent, int reg);
    int mahal(const std::vector<int> &args, const double *mean, const double *inverse);

    bool may_be_null(int reg) const { return regs_[reg].nullable; }
    bool is_const(int reg) const { return regs_[reg].kind == REG_CONST; }
    int nr_regs() const { return static_cast<int>(regs_.size()); }

    /* The program in the pool of `pe`, with lines of `nr_cells` for its
     * temporaries and constants; `result` is the register of the formula. */
    Program *finish(pe_context *pe, int result, int nr_cells) const;

   private:
    struct Reg {
        uint8_t kind;
        bool nullable;
        double value;
    };
    int add(uint8_t kind, bool nullable, double value = 0.0);
    bool null_mode_;
    std::vector<Reg> regs_;
    std::vector<Op> ops_;
    std::vector<int32_t> args_;
    std::vector<UserCall> calls_;
    std::vector<MahalCall> mahals_;
};

/* Gives input register `reg` its line of doubles and its null flags (null:
 * never null) for the next run. */
inline void set_input(Program *p, int reg, double *values, uint8_t *nulls)
{
    p->values[reg] = values;
    p->typed[reg] = nullptr;
    p->nulls[reg] = nulls;
}

/* The same for a line of another cell type, which the run converts block by
 * block as it goes. */
inline void set_typed_input(Program *p, int reg, const void *line, int cell_type, uint8_t *nulls)
{
    p->values[reg] = p->own[reg];
    p->typed[reg] = line;
    p->typed_type[reg] = cell_type;
    p->nulls[reg] = nulls;
}

/* Runs the program over the cells of `runs`, writing the result into `out`
 * and, where the program can be null, its flags into `out_nulls` (1: null). */
void run(Program *p, const rlseg *runs, double *out, uint8_t *out_nulls);

/* The quotient of the formula language: never an error nor an infinity. A
 * zero divisor gives 0.0, or the largest double of the dividend's sign. The
 * division itself is unconditional (by 1.0 in place of 0.0) and the rest
 * are selections, so that a loop of these vectorises. */
inline double divide(double l, double r)
{
    constexpr double largest = 1.7976931348623157e308;
    const double divisor = r != 0.0 ? r : 1.0;
    const double quotient = l / divisor;
    const double by_zero = l > 0 ? largest : (l < 0 ? -largest : 0.0);
    return r != 0.0 ? quotient : by_zero;
}

}  // namespace vln_formula

#endif
