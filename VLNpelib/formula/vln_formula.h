/*
 * vln_formula.h: the formula language.
 *
 * A formula is the one-expression language in which a stream computes each of
 * its cells from its inputs. This header is the whole contract of its parser
 * and of the utilities that work on parsed formulae: string_to_expr turns a
 * text into an ExprNode tree; walkers count and list the inputs, regions,
 * datasets and variables a tree refers to; expr_to_string and expr_to_list
 * turn a tree back into text; small lookups translate the names of operators,
 * functions and dataset constants, and band descriptions of a dataset. The last
 * group installs a formula into a stream of an algorithm.
 *
 * Every node and string of a tree comes from the core allocator and belongs to
 * the tree; free_ExprNode and its kin give it back. Nothing here evaluates a
 * formula.
 */
#ifndef VORLAN_VLN_FORMULA_H
#define VORLAN_VLN_FORMULA_H

#include <stddef.h>
#include <stdint.h>

#include "vld_alg.h"
#include "vld_core.h"
#include "vld_dshdr.h"

VLD_BEGIN_DECLS

/* ---------------------------------------------------------------- kinds and tables */

enum {
    EXPR_INPUT = 1,
    EXPR_NUMBER = 2,
    EXPR_DSCONST = 3,
    EXPR_SYMCONST = 4,
    EXPR_FUNC = 5,
    EXPR_OP = 6,
    EXPR_SIGMA = 7,
    EXPR_IF = 8,
    EXPR_INREGION = 9,
    EXPR_CELLX = 10,
    EXPR_CELLY = 11,
    EXPR_PIXELX = 12,
    EXPR_PIXELY = 13,
    EXPR_NULL = 14,
    EXPR_MAHAL = 15,
    EXPR_INPUTVECTOR = 16,
    EXPR_USERSTATS = 17,
    EXPR_ISNULL = 18,
    EXPR_VARIABLE = 19
};

/* Operators (optype_text). */
enum {
    OP_MULTIPLY = 1,
    OP_DIVIDE = 2,
    OP_ADD = 3,
    OP_SUBTRACT = 4,
    OP_NEGATE = 5,
    OP_REMAINDER = 6,
    OP_EQ = 7,
    OP_NE = 8,
    OP_GT = 9,
    OP_GE = 10,
    OP_LT = 11,
    OP_LE = 12,
    OP_AND = 13,
    OP_OR = 14,
    OP_NOT = 15
};
#define NR_OPTYPES 15

/* Built-in functions (fftype_text), and the type of a user code function. */
enum {
    FF_ABS = 1,
    FF_SIN,
    FF_COS,
    FF_TAN,
    FF_ASIN,
    FF_ACOS,
    FF_ATAN,
    FF_EXP,
    FF_LOG,
    FF_LOG10,
    FF_POW,
    FF_SQRT,
    FF_MIN,
    FF_MAX,
    FF_FLOOR,
    FF_CEIL
};
#define NR_FFTYPES 16
#define FF_USER 99

/* Symbolic constants (sctype_text). */
enum { SC_PI = 1, SC_E = 2 };
#define NR_SCTYPES 2

/* Dataset constants (dctype_text). */
enum {
    DC_NRBANDS = 1,
    DC_NRROWS,
    DC_NRCOLS,
    DC_NRNULLS,
    DC_NRNONNULLS,
    DC_RMIN,
    DC_RMAX,
    DC_MEAN,
    DC_MEDIAN,
    DC_COVAR,
    DC_CORR,
    DC_COV_EVAL,
    DC_CORR_EVAL,
    DC_PC_COV,
    DC_PC_CORR,
    DC_STDEV,
    DC_STDEVNM1,
    DC_MAXCELLX,
    DC_MAXCELLY,
    DC_MAXPIXELX,
    DC_MAXPIXELY,
    DC_NRPIXROWS,
    DC_NRPIXCOLS,
    DC_DETCOV,
    DC_DETCORR,
    DC_INVPC_COV,
    DC_INVPC_CORR
};
#define NR_DCTYPES 27

/* NameOrNumber and BandSpec types. */
enum { NN_NAME = 1, NN_NUMBER = 2 };
enum { BS_NAME = 1, BS_BAND = 2, BS_INPUT = 3 };

/* The input number of the SIGMA loop input "I?". */
#define LOOP_INPUT_NUMBER (-1)

/* FormulaList entry types; a list ends with an entry of type 0. */
enum { FL_END = 0, FL_INPUT = 1, FL_TEXT = 2, FL_REGION = 3, FL_DATASET = 4 };

/* ---------------------------------------------------------------- records */

/* A region or dataset reference: a quoted name, or a number from "R3", "D2". */
typedef struct NameOrNumber {
    int32_t type; /* NN_ */
    char *name;   /* NN_NAME: owned */
    int32_t number;
} NameOrNumber;

/* One band of a band list, or the band argument of a dataset constant. */
typedef struct BandSpec {
    struct BandSpec *next;
    int32_t type;   /* BS_ */
    char *name;     /* BS_NAME: a band description, owned */
    int32_t number; /* BS_BAND: 1-based band; BS_INPUT: input, -1 the loop input */
} BandSpec;

typedef struct INumNode {
    struct INumNode *next;
    int32_t number;
} INumNode;

/* A node of a parsed formula. The part after the three common fields is the
 * member of `u` named after the kind. */
typedef struct ExprNode {
    struct ExprNode *next; /* sibling in an argument or input list */
    int32_t kind;          /* EXPR_ */
    int32_t parenthesised; /* stood in its own parentheses */
    union {
        struct {
            int32_t input_number;
        } input;
        struct {
            double value;
        } number;
        struct {
            BandSpec *band_list;
            int32_t dc_type;
            NameOrNumber *dataset;
            NameOrNumber *region;
            BandSpec *band;
            int32_t nth;
        } dsconst;
        struct {
            int32_t sc_type;
        } symconst;
        struct {
            int32_t ff_type;
            char *name; /* user functions only */
            struct ExprNode *args;
        } func;
        struct {
            int32_t op_type;
            struct ExprNode *left;
            struct ExprNode *right; /* null for a unary operator */
        } op;
        struct {
            INumNode *inputs;
            struct ExprNode *body;
        } sigma;
        struct {
            struct ExprNode *condition;
            struct ExprNode *then_expr;
            struct ExprNode *else_expr;
        } ifx;
        struct {
            NameOrNumber region;
        } inregion;
        struct {
            NameOrNumber region;
            struct ExprNode *inputs; /* EXPR_INPUT nodes */
        } mahal;
        struct {
            struct ExprNode *inputs; /* EXPR_INPUT nodes */
        } inputvector;
        struct {
            NameOrNumber *dataset; /* may be null */
            NameOrNumber *region;
            BandSpec *band_list;
        } userstats;
        struct {
            struct ExprNode *operand;
        } isnull;
        struct {
            char *name;
        } variable;
    } u;
} ExprNode;

/* The flat form of a formula for a user interface. */
typedef struct FormulaList {
    int32_t type; /* FL_ */
    char *text;
    int32_t number;
} FormulaList;

/* ---------------------------------------------------------------- parsing and trees */

/* Parses `text`. Returns null with *tree set, or a new message (free it with
 * safe_free) with *tree null. Nesting deeper than 100 levels, or a tree more
 * than 10000 nodes tall, is refused as a "parser stack overflow": parsing
 * stays safe on a small thread stack, and every function below walks even the
 * tallest tree without recursion. */
VLD_API char *string_to_expr(ExprNode **tree, const char *text);

/* One node and all it owns, not its `next`; and a whole list. Null is allowed. */
VLD_API void free_ExprNode(ExprNode *node);
VLD_API void free_ExprNode_list(ExprNode *list);
VLD_API void free_INumNode_list(INumNode *list);
VLD_API void free_BandSpec_list(BandSpec *list);
VLD_API void free_NameOrNumber(NameOrNumber *ref);
VLD_API void free_FormulaList(FormulaList *list);

/* Visits `node` and then its children in document order. */
VLD_API void walk_formula(ExprNode *node, void (*visit)(ExprNode *node, void *arg), void *arg);

VLD_API int count_formula_inputs(ExprNode *tree);
VLD_API int count_input_occurances(ExprNode *tree);
VLD_API int count_formula_regions(ExprNode *tree);
VLD_API int count_formula_datasets(ExprNode *tree);
VLD_API int count_formula_variables(ExprNode *tree);

/* Ascending lists of the numbers referred to; return their length. */
VLD_API int create_input_list(INumNode **list, ExprNode *tree, int keep_duplicates);
VLD_API int create_region_list(INumNode **list, ExprNode *tree, int keep_duplicates);
VLD_API int create_dataset_list(INumNode **list, ExprNode *tree, int keep_duplicates);
/* The variables, sorted by name ignoring case, values 0; free with
 * ef_variablearg_array. Returns 0. */
VLD_API int create_variable_list(variablearg **vars, int *count, ExprNode *tree,
                                 int keep_duplicates);

/* ---------------------------------------------------------------- text forms */

/* Writes the canonical text of `tree` into `buffer` and returns `buffer`. A
 * name table, when given, replaces prefix and number of each reference. */
VLD_API char *expr_to_string(char *buffer, ExprNode *tree, const char *input_prefix,
                             char **input_names, const char *region_prefix, char **region_names,
                             const char *dataset_prefix, char **dataset_names, int nr_variables,
                             const variablearg *variables);
/* The same text written into a buffer of `size` bytes: cut short when it
 * doesn't fit, and always ended when `size` is not zero. Returns the length of
 * the whole text, so that a caller sizes its buffer by a first call with
 * `size` 0 (and `buffer` null), as with snprintf. expr_to_string itself
 * assumes the buffer is large enough. */
VLD_API size_t expr_to_string_n(char *buffer, size_t size, ExprNode *tree, const char *input_prefix,
                                char **input_names, const char *region_prefix, char **region_names,
                                const char *dataset_prefix, char **dataset_names, int nr_variables,
                                const variablearg *variables);
/* The same text cut into literal pieces and references. Returns 0. */
VLD_API int expr_to_list(FormulaList **list, ExprNode *tree, const char *input_prefix,
                         char **input_names, const char *region_prefix, char **region_names,
                         const char *dataset_prefix, char **dataset_names, int nr_variables,
                         const variablearg *variables);
/* One part, with the prefixes INPUT, REGION and DATASET; for messages. */
VLD_API char *dc_to_output_string(char *buffer, ExprNode *dsconst);
VLD_API char *bandspec_to_output_string(char *buffer, BandSpec *band);
VLD_API char *ustats_to_output_string(char *buffer, ExprNode *userstats);
/* The number of argument places a dataset constant prints. */
VLD_API int dc_count_args(ExprNode *dsconst);

/* ---------------------------------------------------------------- lookups */

VLD_API int find_dctype(const char *text);
VLD_API int find_sctype(const char *text);
VLD_API int find_optype(const char *text);
VLD_API int find_fftype(const char *text);
/* The word of a type; outside the table a static "Unknown ..." text. */
VLD_API const char *dctype_text(int type);
VLD_API const char *sctype_text(int type);
VLD_API const char *optype_text(int type);
VLD_API const char *fftype_text(int type);

VLD_API int find_band_index(const dshdr *header, const char *description);
VLD_API int find_bandindex_from_bandid(const rasterinfo *info, const bandid *band);
VLD_API char *find_band_desc(const dshdr *header, int band_index);

VLD_API int find_variable_value(const char *name, int count, const variablearg *variables,
                                double *value);
VLD_API int set_variable_value(const char *name, int count, variablearg *variables, double value);

/* ---------------------------------------------------------------- formulae of streams */

VLD_API int new_generic_formula(stream *st, const char *text);
VLD_API int new_formula(stream *st, const formula *f, int keep_variable_values);
VLD_API int new_formula_band(formula *f, int input_number, int band_number, const dshdr *header);
/* Rewrite the quoted dataset names of the formula text *text (a new string
 * replaces it) as absolute names, or names relative to `directory`. A text
 * that doesn't parse is left alone. Return 0. */
VLD_API int VLNfrm_convert_to_abs(char **text, const char *directory);
VLD_API int VLNfrm_convert_to_rel(char **text, const char *directory);

VLD_END_DECLS

#endif
