/*
 * vld_blocktext_internal.h: what the scanner, the parser, the reader and the
 * writer of block text share inside the library.
 *
 * The scanner (vld_lexer.cpp) owns the one input and hands out tokens; the
 * parser (vld_parser.cpp) turns them into statements; the reader
 * (vld_reader.cpp) drives both for a record's keyword table. All of it runs
 * under vld_mutex_on, so the state below is plain globals, never touched
 * without the lock.
 */
#ifndef VORLAN_VLD_BLOCKTEXT_INTERNAL_H
#define VORLAN_VLD_BLOCKTEXT_INTERNAL_H

#include <locale.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "vld_blocktext.h"
#include "vln_guard_internal.h"

namespace vld_bt {

/* ---------------------------------------------------------------- tokens */

enum class Tok {
    EndOfInput,
    Date,
    Ident,
    Begin,
    End,
    Integer,
    Real, /* also INF, +INF and -INF */
    ThreePart,
    ColonList,
    String,
    Equals,
    LBrace,
    RBrace,
    Newline,
    Char /* any other character, as a token of its own */
};

/* The next token. Its text (a string's content, quotes and escapes removed)
 * stays in lex_text() until the next call. Once a bad character has been read
 * every call gives EndOfInput. */
Tok lex_next();
const std::string &lex_text();
/* True while an input is open (rf_check_file). */
bool lex_is_open();
/* Whether a bad character was read, and how many characters were read. */
bool lex_bad_char();
size_t lex_chars_read();
/* The errors counted since VLD_init_lexer. */
int lex_error_count();
/* Reports a list that doesn't hold the expected number of elements, with the
 * reader's one wording; the keyword's line follows in the diagnostic. The
 * report counts as an error but doesn't stop the reading. */
void report_list_count(long long expected, long long got);

/* Set when VLD_init_lexer refused its file for being a FIFO, a device or a
 * socket, which can't be read as a document. */
extern bool lex_not_regular;

/* The scanner's and the parser's whole state, set aside while a callback
 * reads another document by name, and put back afterwards. */
struct SavedInput;
SavedInput *lex_set_aside();
void lex_restore(SavedInput *saved);

/* ---------------------------------------------------------------- parser */

/* Whether the next eg_general must read the document's first statement. */
extern bool parser_first_statement;

/* Reports through rf_report_error and stops the parse: from now on no more
 * statements are delivered until the next VLD_init_lexer. */
void parse_fail(const char *format, ...) VLD_PRINTF(1, 2);
/* Stops the parse after an error that was reported already. */
void parser_stop();
void parser_reset();

/* Parser state that travels with a set-aside input. */
struct ParserState;
ParserState *parser_set_aside();
void parser_restore(ParserState *saved);

/* ---------------------------------------------------------------- numbers and text */

/* The C library's atof limited to the decimal grammar of block text: optional
 * blanks, sign, digits, dot, digits, exponent. Anything else (hex, "nan",
 * "inf", "infinity") reads as far as the grammar goes, so "inf" gives 0.
 * Independent of the locale. */
double text_to_double(const char *text);
/* atoi likewise: sign and digits, saturated at the 32-bit range. */
int32_t text_to_int32(const char *text);
/* An integer token's text as a 32-bit value; empty when out of range. */
std::optional<int32_t> integer_token_value(const char *text);

/* Seconds since 1970 of a date text, by our own calendar, in 64 bits so that
 * the caller can tell a date beyond the 32-bit range; empty for a text that
 * isn't a date or has a field out of its range (day 0, hour 24, ...). */
std::optional<int64_t> rdate_seconds(const char *text);

/* The "C" locale, so that number formatting doesn't follow the caller's. */
locale_t c_locale();

/* Sets the calling thread to the "C" locale for its lifetime. */
class CLocaleGuard {
   public:
    CLocaleGuard() : old_(uselocale(c_locale())) {}
    ~CLocaleGuard() { uselocale(old_); }
    CLocaleGuard(const CLocaleGuard &) = delete;
    CLocaleGuard &operator=(const CLocaleGuard &) = delete;

   private:
    locale_t old_;
};

/* The block-text lock: the scanner and the parser have one input at a time,
 * so a whole read or write of a document holds it. */
extern vln_mutex vld_mutex;

/* `text` cut to `limit` bytes, for messages that quote a value. */
std::string clip_text(const std::string &text, size_t limit = 100);

}  // namespace vld_bt

#endif
