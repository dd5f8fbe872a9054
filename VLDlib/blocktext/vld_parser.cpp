/*
 * vld_parser.cpp: the one-statement parser of block text.
 *
 * A statement is "Identifier = value", "Identifier Begin" or "Identifier End".
 * Each call of rf_get_stmeminfo parses one, checks the value's kind against
 * the keyword's declared type, converts it and fills the statement record.
 * The open blocks are kept on a stack of at most 20 names, so that every End
 * is matched to its Begin.
 *
 * The parser is recursive descent over a flat grammar: it needs no stack of
 * its own, so a list of any length reads in one pass. After an integer value
 * it has looked at one more token to see whether a comma (a triple) follows;
 * that token is dropped, whatever it was. Readers rely on this: the token is
 * the line end.
 *
 * The first error reported stops the parse: no statement is delivered after
 * it until the input is opened again.
 */
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "vld_blocktext_internal.h"

namespace vld_bt {

bool parser_first_statement = false;

namespace {

constexpr size_t kMaxBlocks = 20;

struct State {
    std::vector<std::string> blocks;
    bool stopped = false;
};

State P;

enum class Result { Assignment, Begin, End, EndOfInput, Error };

// What a value was, as the scanner and the parser saw it.
enum class Kind { Date, Ident, Real, List, ColonList, Triple, String, Integer, ThreePart };

constexpr uint32_t bit(int type)
{
    return 1u << type;
}

// The type name a kind is reported as, and the declared types that take it.
struct KindInfo {
    int vtype;
    uint32_t accepted;
};

constexpr KindInfo kKinds[] = {
    /* Date      */ {VTYPE_DATETIME, bit(VTYPE_DATETIME)},
    /* Ident     */ {VTYPE_UNKNOWN, bit(VTYPE_YN) | bit(VTYPE_ENUM)},
    /* Real      */ {VTYPE_FLOAT, bit(VTYPE_FLOAT)},
    /* List      */ {VTYPE_LIST, bit(VTYPE_LIST)},
    /* ColonList */ {VTYPE_BANDID, bit(VTYPE_BANDID)},
    /* Triple    */ {VTYPE_TRIPLE, bit(VTYPE_TRIPLE)},
    /* String    */ {VTYPE_STRING, bit(VTYPE_STRING) | bit(VTYPE_FILENAME)},
    /* Integer   */ {VTYPE_INT, bit(VTYPE_INT) | bit(VTYPE_FLOAT) | bit(VTYPE_BANDID)},
    /* ThreePart */ {VTYPE_DMS, bit(VTYPE_BANDID) | bit(VTYPE_DMS)},
};

struct Value {
    Kind kind = Kind::Ident;
    std::string text;
    textnode *list = nullptr;
    textnode *tail = nullptr;
    std::string triple[3];

    Value() = default;
    Value(const Value &) = delete;
    Value &operator=(const Value &) = delete;
    ~Value() { VLD_free_textnodes(list); }

    void append(const std::string &element)
    {
        auto *node = static_cast<textnode *>(malloc_or_die(sizeof(textnode)));
        node->next = nullptr;
        node->text = strsave(element.c_str());
        if (tail != nullptr)
            tail->next = node;
        else
            list = node;
        tail = node;
    }
};

// Reports a parse error unless the parser is only trying the first statement,
// whose failure rf_init_parser reports in its own words.
Result syntax_error(bool quiet)
{
    if (quiet)
        P.stopped = true;
    else
        parse_fail("parse error");
    return Result::Error;
}

bool is_comma(Tok t)
{
    return t == Tok::Char && lex_text() == ",";
}

// Parses a value after "=". Returns false after a syntax error.
bool parse_value(Value &v)
{
    Tok t = lex_next();
    v.text = lex_text();
    switch (t) {
        case Tok::Date:
            v.kind = Kind::Date;
            return true;
        case Tok::String:
            v.kind = Kind::String;
            return true;
        case Tok::ColonList:
            v.kind = Kind::ColonList;
            return true;
        case Tok::ThreePart:
            v.kind = Kind::ThreePart;
            return true;
        case Tok::Ident:
            v.kind = Kind::Ident;
            return true;
        case Tok::Real:
            v.kind = Kind::Real;
            return true;
        case Tok::Integer: {
            v.kind = Kind::Integer;
            // One token further, to see whether this is a triple; dropped if not.
            if (!is_comma(lex_next())) return true;
            v.kind = Kind::Triple;
            v.triple[0] = v.text;
            for (int i = 1; i < 3; i++) {
                if (lex_next() != Tok::Integer) return false;
                v.triple[i] = lex_text();
                if (i < 2 && !is_comma(lex_next())) return false;
            }
            v.text = v.triple[0] + "," + v.triple[1] + "," + v.triple[2];
            return true;
        }
        case Tok::LBrace:
            v.kind = Kind::List;
            for (;;) {
                t = lex_next();
                if (t == Tok::RBrace) break;
                if (t != Tok::Integer && t != Tok::Real && t != Tok::String && t != Tok::Ident)
                    return false;
                v.append(lex_text());
            }
            v.text = "{...}";
            return v.list != nullptr;
        default:
            return false;
    }
}

const VLD_KEYWORD *find_keyword(const VLD_KEYWORD *table, const std::string &name)
{
    if (table == nullptr) return nullptr;
    for (const VLD_KEYWORD *k = table; k->name != nullptr; k++)
        if (VLD_strcasecmp(k->name, name.c_str()) == 0) return k;
    return nullptr;
}

bool convert_yn(const std::string &word, int32_t &out)
{
    static constexpr const char *kYes[] = {"yes", "y", "true", "t"};
    static constexpr const char *kNo[] = {"no", "n", "false", "f"};
    for (const char *w : kYes)
        if (VLD_strcasecmp(w, word.c_str()) == 0) return out = 1, true;
    for (const char *w : kNo)
        if (VLD_strcasecmp(w, word.c_str()) == 0) return out = 0, true;
    return false;
}

// Converts a checked value to the keyword's type into the statement record.
// Reports and returns false when the text doesn't convert.
bool convert(const VLD_KEYWORD &k, Value &v, VLD_STATEMENT *st)
{
    const char *text = v.text.c_str();
    switch (k.type) {
        case VTYPE_YN:
            if (convert_yn(v.text, st->value.i)) return true;
            parse_fail("Expecting Yes|No|True|False, Received \"%s\"", clip_text(v.text).c_str());
            return false;
        case VTYPE_ENUM:
            for (const VLD_ENUM *e = k.enums; e != nullptr && e->name != nullptr; e++) {
                if (VLD_strcasecmp(e->name, text) == 0) {
                    st->value.i = e->value;
                    return true;
                }
            }
            parse_fail("Unknown %s \"%s\"", k.name, clip_text(v.text).c_str());
            return false;
        case VTYPE_FLOAT: {
            double d = text_to_double(text);
            // Only a zero is looked at again, so "+INF" stays 0.0: kept, as
            // documents written that way have always read so.
            if (d == 0.0 && VLD_strcasecmp(text, "INF") == 0) d = HUGE_VAL;
            if (d == 0.0 && VLD_strcasecmp(text, "-INF") == 0) d = -HUGE_VAL;
            st->value.d = d;
            return true;
        }
        case VTYPE_INT: {
            std::optional<int32_t> i = integer_token_value(text);
            if (i) {
                st->value.i = *i;
                return true;
            }
            parse_fail("Value out of range \"%s\"", clip_text(v.text).c_str());
            return false;
        }
        case VTYPE_DATETIME: {
            std::optional<int64_t> t = rdate_seconds(text);
            if (!t) {
                parse_fail("Invalid date \"%s\"", text);
                return false;
            }
            if (*t < std::numeric_limits<int32_t>::min() ||
                *t > std::numeric_limits<int32_t>::max()) {
                parse_fail("Date out of range \"%s\"", text);
                return false;
            }
            st->value.i = static_cast<int32_t>(*t);
            return true;
        }
        case VTYPE_DMS:
            st->value.d = dmsstr_to_d(text);
            // An angle of 1e15 degrees or more has no degrees-minutes-seconds
            // form to be written back in.
            if (!(std::fabs(st->value.d) < 1e15)) {
                parse_fail("Value out of range \"%s\"", clip_text(v.text).c_str());
                return false;
            }
            return true;
        case VTYPE_TRIPLE:
            for (int i = 0; i < 3; i++) {
                std::optional<int32_t> c = integer_token_value(v.triple[i].c_str());
                if (!c || *c < 0 || *c > 255) {
                    parse_fail("Value out of range \"%s\"", clip_text(v.triple[i]).c_str());
                    return false;
                }
                st->value.rgb[i] = static_cast<uint8_t>(*c);
            }
            return true;
        case VTYPE_LIST:
            st->value.list = v.list;
            v.list = v.tail = nullptr;
            return true;
        default: /* VTYPE_STRING, VTYPE_FILENAME, VTYPE_BANDID */
            st->value.s = strsave(text);
            return true;
    }
}

// Closes the block `name` at an End: the innermost open block of that name,
// and every block inside it with a message each.
Result close_block(const std::string &name)
{
    for (size_t i = P.blocks.size(); i-- > 0;) {
        if (VLD_strcasecmp(P.blocks[i].c_str(), name.c_str()) != 0) continue;
        bool missing = false;
        while (P.blocks.size() > i + 1) {
            parse_fail("Missing \"%s END\"", P.blocks.back().c_str());
            P.blocks.pop_back();
            missing = true;
        }
        P.blocks.pop_back();
        return missing ? Result::Error : Result::End;
    }
    parse_fail("\"%s End\" without \"%s Begin\"", name.c_str(), name.c_str());
    return Result::Error;
}

// Parses one statement. In first-statement mode only "`first` Begin" is
// accepted (any name when `first` is null), and a failure is not reported.
Result parse_statement(VLD_STATEMENT *st, const VLD_KEYWORD *table, bool first_mode,
                       const char *first)
{
    Tok t = lex_next();
    while (t == Tok::Newline) t = lex_next();
    if (t == Tok::EndOfInput) return first_mode ? syntax_error(true) : Result::EndOfInput;
    if (t != Tok::Ident) return syntax_error(first_mode);
    std::string name = lex_text();

    t = lex_next();
    if (first_mode) {
        if (t != Tok::Begin || (first != nullptr && VLD_strcasecmp(first, name.c_str()) != 0))
            return syntax_error(true);
        P.blocks.push_back(name);
        return Result::Begin;
    }
    if (t == Tok::End) return close_block(name);
    if (t == Tok::Begin) {
        const VLD_KEYWORD *k = find_keyword(table, name);
        if (k == nullptr) {
            parse_fail("Unknown identifier \"%s\"", clip_text(name).c_str());
            return Result::Error;
        }
        // A Begin for a keyword that doesn't hold a block would hand its
        // reader a statement it can't take.
        if (k->type != VTYPE_BLOCK) {
            parse_fail("Bad Type.  Expecting %s, received %s (%s)", VLD_vtype_name(k->type),
                       VLD_vtype_name(VTYPE_BLOCK), "Begin");
            return Result::Error;
        }
        if (P.blocks.size() >= kMaxBlocks) {
            parse_fail("Too many nested blocks");
            return Result::Error;
        }
        P.blocks.push_back(name);
        st->code = static_cast<int32_t>(k->code);
        st->type = VTYPE_BLOCK;
        return Result::Begin;
    }
    if (t != Tok::Equals) return syntax_error(false);

    Value v;
    if (!parse_value(v)) return syntax_error(false);
    if (P.stopped) return Result::Error;  // the scanner reported the value
    const VLD_KEYWORD *k = find_keyword(table, name);
    if (k == nullptr) {
        parse_fail("Unknown identifier \"%s\"", clip_text(name).c_str());
        return Result::Error;
    }
    const KindInfo &info = kKinds[static_cast<int>(v.kind)];
    if (k->type >= 32 || (info.accepted & bit(static_cast<int>(k->type))) == 0) {
        parse_fail("Bad Type.  Expecting %s, received %s (%s)", VLD_vtype_name(k->type),
                   VLD_vtype_name(info.vtype), clip_text(v.text).c_str());
        return Result::Error;
    }
    st->code = static_cast<int32_t>(k->code);
    st->type = static_cast<int32_t>(k->type);
    return convert(*k, v, st) ? Result::Assignment : Result::Error;
}

}  // namespace

struct ParserState {
    State state;
};

void parse_fail(const char *format, ...)
{
    char message[1024];
    va_list args;
    va_start(args, format);
    vsnprintf(message, sizeof message, format, args);
    va_end(args);
    rf_report_error(message);
    P.stopped = true;
}

void parser_stop()
{
    P.stopped = true;
}

void parser_reset()
{
    P.blocks.clear();
    P.stopped = false;
}

ParserState *parser_set_aside()
{
    auto *saved = new ParserState{std::move(P)};
    P = State{};
    return saved;
}

void parser_restore(ParserState *saved)
{
    P = std::move(saved->state);
    delete saved;
}

std::string clip_text(const std::string &text, size_t limit)
{
    return text.size() <= limit ? text : text.substr(0, limit) + "...";
}

}  // namespace vld_bt

using namespace vld_bt;

const char *VLD_vtype_name(int type)
{
    static constexpr const char *kNames[] = {
        "VTYPE_NONE", "VTYPE_UNKNOWN", "VTYPE_DATETIME", "VTYPE_YN",    "VTYPE_STRING",
        "VTYPE_INT",  "VTYPE_FLOAT",   "VTYPE_ENUM",     "VTYPE_BLOCK", "VTYPE_LIST",
        nullptr,      "VTYPE_BANDID",  "VTYPE_DMS",      nullptr,       "VTYPE_FILENAME"};
    if (type < 0 || type >= static_cast<int>(sizeof kNames / sizeof kNames[0]) ||
        kNames[type] == nullptr)
        return "VTYPE_???";
    return kNames[type];
}

int rf_init_parser(const char *block)
{
    parser_reset();
    int errors_before = lex_error_count();
    VLD_STATEMENT unused;
    bool ok = parse_statement(&unused, nullptr, true, block) == Result::Begin;
    bool empty = lex_chars_read() == 0;
    const char *name = block != nullptr ? block : "";
    if (!ok && empty)
        parse_fail("Invalid header file, probably a 0 length file");
    else if (!ok)
        parse_fail("Expecting 1st statement to be \"%s Begin\"", name);
    // An empty input sets the bad-character flag too; its message is given once.
    if (lex_bad_char() && !empty) parse_fail("Invalid header file, probably a binary file");
    return lex_error_count() == errors_before && ok ? 1 : 0;
}

void rf_finalise_parser(int had_errors)
{
    if (!had_errors)
        for (size_t i = P.blocks.size(); i-- > 0;)
            parse_fail("Missing \"%s END\"", P.blocks[i].c_str());
    P.blocks.clear();
}

int rf_get_stmeminfo(VLD_STATEMENT *statement, const VLD_KEYWORD *table)
{
    if (statement == nullptr) return 0;
    memset(statement, 0, sizeof *statement);
    if (!lex_is_open() || P.stopped) return 0;
    Result r = parse_statement(statement, table, false, nullptr);
    return r == Result::Assignment || r == Result::Begin ? 1 : 0;
}
