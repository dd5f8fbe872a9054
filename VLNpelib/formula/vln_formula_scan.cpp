/*
 * vln_formula_scan.cpp: the scanner of the formula language.
 *
 * Every rule is tried at the current position and the longest match wins; of
 * two matches of one length the rule listed first wins. That is why "I12" is
 * an input but "I1X" and "I01" are words, why "12." is a real and "1..3" is
 * "1." then ".3", and why "1E5" is the integer 1 and then the word "E5": a
 * real has no exponent. A carriage return is not white space and an unclosed
 * quote is a lone quote character; both end in a parse error, as they should.
 */
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string>

#include "vln_formula_internal.h"

namespace vlnf {

namespace {

bool is_letter(char c)
{
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}
bool is_digit(char c)
{
    return c >= '0' && c <= '9';
}
char upper(char c)
{
    return (c >= 'a' && c <= 'z') ? static_cast<char>(c - 'a' + 'A') : c;
}

/* Length of `word` (upper case) at p ignoring case, or 0. */
int match_word(const char *p, const char *word)
{
    int n = 0;
    for (; word[n]; n++) {
        if (upper(p[n]) != word[n]) return 0;
    }
    return n;
}

/* Length of `prefix` followed by a digit 1 to 9 and any digits, or 0. */
int match_numbered(const char *p, const char *prefix)
{
    int n = match_word(p, prefix);
    if (n == 0 || p[n] < '1' || p[n] > '9') return 0;
    while (is_digit(p[n])) n++;
    return n;
}

/* The value of the digits in [p, p + n), held at INT32_MAX when larger. */
int32_t digits_value(const char *p, int n)
{
    int64_t value = 0;
    for (int i = 0; i < n; i++) {
        if (!is_digit(p[i])) continue;
        value = value * 10 + (p[i] - '0');
        if (value > INT32_MAX) return INT32_MAX;
    }
    return static_cast<int32_t>(value);
}

/* Length of a real at p: digits, a point, any digits; or a point and digits. */
int match_real(const char *p)
{
    int n = 0;
    while (is_digit(p[n])) n++;
    if (n > 0) {
        if (p[n] != '.') return 0;
        n++;
        while (is_digit(p[n])) n++;
        return n;
    }
    if (p[0] != '.' || !is_digit(p[1])) return 0;
    n = 1;
    while (is_digit(p[n])) n++;
    return n;
}

/* The double a literal of `n` characters at p names. A literal too large for
 * a double reads as the largest one: the language has no infinity (division
 * by zero saturates the same way), and so every literal prints back. */
double literal_value(const char *p, int n)
{
    double value = strtod(std::string(p, n).c_str(), nullptr);
    return std::isinf(value) ? DBL_MAX : value;
}

struct NumberedRule {
    const char *prefix;
    Tok kind;
};

/* Rules 3 to 10, in order. */
const NumberedRule kNumbered[] = {{"INPUT", Tok::InputNum},     {"I", Tok::InputNum},
                                  {"BAND", Tok::BandNum},       {"B", Tok::BandNum},
                                  {"REGION", Tok::RegionNum},   {"R", Tok::RegionNum},
                                  {"DATASET", Tok::DatasetNum}, {"D", Tok::DatasetNum}};

struct OpRule {
    const char *text;
    int op_type;
};

/* Rules 17 to 27; the longest of them that matches is taken. */
const OpRule kOps[] = {{"!=", OP_NE},       {"<>", OP_NE},    {">=", OP_GE}, {"<=", OP_LE},
                       {"*", OP_MULTIPLY},  {"/", OP_DIVIDE}, {"+", OP_ADD}, {"-", OP_SUBTRACT},
                       {"%", OP_REMAINDER}, {"=", OP_EQ},     {">", OP_GT},  {"<", OP_LT}};

}  // namespace

Token Scanner::next()
{
    for (;;) {
        const char *p = p_;
        Token t;
        t.start = p;
        if (*p == '\0') return t;

        if (*p == ' ' || *p == '\t' || *p == '\n') {  // rules 14 and 16
            while (*p_ == ' ' || *p_ == '\t' || *p_ == '\n') p_++;
            continue;
        }

        if (*p == '\'') {  // rule 1; an unclosed quote falls through to rule 28
            int n = 1;
            while (p[n] && p[n] != '\'' && p[n] != '\n') n++;
            if (p[n] == '\'') {
                t.kind = Tok::String;
                t.length = n + 1;
                p_ += t.length;
                return t;
            }
        }

        // Rules 2 to 13 compete on length; strictly longer beats earlier.
        int best = 0;
        if (int n = match_word(p, "INPUT?")) {
            best = n;
            t.kind = Tok::LoopInput;
        } else if (int m = match_word(p, "I?")) {
            best = m;
            t.kind = Tok::LoopInput;
        }
        for (const NumberedRule &rule : kNumbered) {
            int n = match_numbered(p, rule.prefix);
            if (n > best) {
                best = n;
                t.kind = rule.kind;
                t.number = digits_value(p + strlen(rule.prefix),
                                        n - static_cast<int>(strlen(rule.prefix)));
            }
        }
        if (is_letter(*p)) {
            int n = 1;
            while (is_letter(p[n]) || is_digit(p[n]) || p[n] == '_') n++;
            if (n > best) {
                best = n;
                t.kind = Tok::Word;
            }
        }
        if (is_digit(*p)) {
            int n = 0;
            while (is_digit(p[n])) n++;
            if (n > best) {
                best = n;
                t.kind = Tok::Integer;
                t.number = digits_value(p, n);
                t.real = literal_value(p, n);
            }
        }
        if (int n = match_real(p); n > best) {
            best = n;
            t.kind = Tok::Real;
            t.real = literal_value(p, n);
        }
        if (best == 0 && p[0] == '.' && p[1] == '.') {  // rule 15
            best = 2;
            t.kind = Tok::Range;
        }
        if (best == 0) {
            for (const OpRule &rule : kOps) {
                int n = static_cast<int>(strlen(rule.text));
                if (strncmp(p, rule.text, n) == 0) {
                    best = n;
                    t.kind = Tok::Op;
                    t.number = rule.op_type;
                    break;
                }
            }
        }
        if (best == 0) {  // rule 28
            best = 1;
            t.kind = Tok::Char;
            t.number = static_cast<unsigned char>(*p);
        }
        t.length = best;
        p_ += best;
        return t;
    }
}

int find_in_table(const char *const *table, int count, const char *text, int length)
{
    if (!text) return 0;
    size_t n = length < 0 ? strlen(text) : static_cast<size_t>(length);
    for (int i = 1; i <= count; i++) {
        if (strlen(table[i]) == n && strncasecmp(table[i], text, n) == 0) return i;
    }
    return 0;
}

int reserved_word(const char *text, int length)
{
    static const char *const kWords[] = {"",      "SIGMA",       "IF",        "THEN",   "ELSE",
                                         "AND",   "OR",          "NOT",       "ALL",    "INREGION",
                                         "NULL",  "CELLX",       "CELLY",     "PIXELX", "PIXELY",
                                         "MAHAL", "INPUTVECTOR", "USERSTATS", "ISNULL"};
    return find_in_table(kWords, RW_ISNULL, text, length);
}

}  // namespace vlnf
