/*
 * vln_formula_internal.h: what the formula sources share behind vln_formula.h.
 *
 * The scanner hands the parser one token at a time; the parser builds nodes
 * with the allocation helpers; the text forms are written by one printer that
 * can also record where each reference starts and ends. Only VLNpelib's
 * formula sources and their tests include this.
 */
#ifndef VORLAN_VLN_FORMULA_INTERNAL_H
#define VORLAN_VLN_FORMULA_INTERNAL_H

#include <cstdint>
#include <string>
#include <vector>

#include "vln_formula.h"

namespace vlnf {

/* ---------------------------------------------------------------- scanner */

enum class Tok {
    End,
    String,      // text between the quotes
    LoopInput,   // "I?" or "INPUT?"
    InputNum,    // "I3", "INPUT3"
    BandNum,     // "B3", "BAND3"
    RegionNum,   // "R3", "REGION3"
    DatasetNum,  // "D3", "DATASET3"
    Word,        // a letter, then letters, digits and underscores
    Integer,
    Real,
    Range,  // ".."
    Op,     // an operator; `number` is its op_type
    Char    // any other character; `number` is the character
};

struct Token {
    Tok kind = Tok::End;
    const char *start = nullptr;  // the matched text in the formula
    int length = 0;
    int32_t number = 0;  // numbers of references, integers, op_type, the character
    double real = 0.0;   // reals, and integers too: one beyond 32 bits keeps its value
};

/* Splits a formula text into tokens by the longest match, the earlier rule
 * winning a tie. Works on the caller's text in place, so a formula of any
 * length is scanned without a buffer of its own. */
class Scanner {
   public:
    explicit Scanner(const char *text) : p_(text) {}
    Token next();

   private:
    const char *p_;
};

/* Reserved words of the language, in the order they are tried. */
enum Reserved {
    RW_NONE = 0,
    RW_SIGMA,
    RW_IF,
    RW_THEN,
    RW_ELSE,
    RW_AND,
    RW_OR,
    RW_NOT,
    RW_ALL,
    RW_INREGION,
    RW_NULL,
    RW_CELLX,
    RW_CELLY,
    RW_PIXELX,
    RW_PIXELY,
    RW_MAHAL,
    RW_INPUTVECTOR,
    RW_USERSTATS,
    RW_ISNULL
};

/* The reserved word `text` (of `length` characters) is, ignoring case. */
int reserved_word(const char *text, int length);

/* Index (1-based) of `text` in a table of `count` words, ignoring case; 0
 * when absent. `length` < 0 means the text is NUL-ended. */
int find_in_table(const char *const *table, int count, const char *text, int length);

/* ---------------------------------------------------------------- tables */

extern const char *const kOpNames[NR_OPTYPES + 1];
extern const char *const kFfNames[NR_FFTYPES + 1];
extern const char *const kScNames[NR_SCTYPES + 1];
extern const char *const kDcNames[NR_DCTYPES + 1];
extern const int kDcMaxArgs[NR_DCTYPES + 1];
extern const bool kDcBandList[NR_DCTYPES + 1];

/* ---------------------------------------------------------------- nodes */

/* A zeroed node of `kind`, from the core allocator. */
ExprNode *new_node(int kind);
NameOrNumber *new_name(const char *text, int length);
NameOrNumber *new_number(int32_t number);
BandSpec *new_bandspec(int type, const char *text, int length, int32_t number);
INumNode *new_inum(int32_t number);
void free_name_or_number_contents(NameOrNumber *ref);

/* The child expressions of `node`, in document order, appended to `out`.
 * Walkers keep their own stack of these instead of recursing: a tree may be
 * as tall as the parser allows, and the library runs on small thread stacks. */
void expr_children(const ExprNode *node, std::vector<ExprNode *> &out);

/* Every input, region or dataset number referred to, in tree order; the
 * loop input and quoted names are left out. */
enum class RefKind { Input, Region, Dataset };
void collect_numbers(ExprNode *tree, RefKind kind, std::vector<int32_t> &out);

/* ---------------------------------------------------------------- text */

struct TextOptions {
    const char *input_prefix = "INPUT";
    char **input_names = nullptr;
    const char *region_prefix = "REGION";
    char **region_names = nullptr;
    const char *dataset_prefix = "DATASET";
    char **dataset_names = nullptr;
    int nr_variables = 0;
    const variablearg *variables = nullptr;
};

/* A reference in a printed text: [start, end) and what it refers to. */
struct TextRef {
    size_t start, end;
    int type;  // FL_INPUT, FL_REGION, FL_DATASET
    int number;
};

/* Appends the canonical text of `tree` to `out`; records references in
 * `refs` when it is given. */
void print_expr(std::string &out, const ExprNode *tree, const TextOptions &options,
                std::vector<TextRef> *refs = nullptr);
void print_dsconst(std::string &out, const ExprNode *node, const TextOptions &options,
                   std::vector<TextRef> *refs = nullptr);
void print_bandspec(std::string &out, const BandSpec *band, const TextOptions &options,
                    std::vector<TextRef> *refs = nullptr);
void print_userstats(std::string &out, const ExprNode *node, const TextOptions &options,
                     std::vector<TextRef> *refs = nullptr);

/* The whole canonical text as a string. */
std::string expr_text(const ExprNode *tree, const TextOptions &options);

}  // namespace vlnf

#endif
