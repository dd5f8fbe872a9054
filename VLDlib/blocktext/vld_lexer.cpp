/*
 * vld_lexer.cpp: the block-text scanner, its one input, and the diagnostics.
 *
 * The input is a file read by stdio (or the library's standard input), a
 * zero-ended text in memory, or a whole file mapped read-only. Characters are
 * taken one at a time into a small look-ahead buffer, checked on the way in,
 * and matched by a hand-written recogniser: longest match first, the earlier
 * rule winning a tie. Buffers are reused from token to token, so that reading
 * costs no allocation per character.
 *
 * rf_report_error lives here because a diagnostic quotes the input: its name,
 * the line, the text of that line and the token last read.
 */
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "vld_blocktext_internal.h"
#include "vld_error_internal.h"
#include "vln_fileio.h"
#include "vln_fmap.h"
#include "vln_path.h"

namespace vld_bt {
namespace {

enum Mode { kFile = 0, kMemory = 1, kMapped = 2 };

struct LexState {
    bool open = false;
    int mode = kFile;
    std::string name;
    bool is_stdin = false;

    FILE *fp = nullptr; /* kFile */
    bool own_fp = false;
    const unsigned char *data = nullptr; /* kMemory (zero-ended) and kMapped */
    size_t size = 0;                     /* kMapped */
    size_t pos = 0;
    int handles[2] = {-1, -1};

    std::string ahead; /* characters read but not yet taken */
    size_t ahead_pos = 0;
    bool source_done = false;

    int line = 1;
    size_t line_start = 0;      /* offset of the current line's first character */
    size_t prev_line_start = 0; /* and of the line before it */
    bool any_read = false;
    size_t chars_read = 0;
    bool bad_char = false;
    bool reported_bad_char = false;
    bool in_braces = false;
    bool last_newline = false;
    std::string text;

    int *counter = nullptr;
    int errors = 0;
};

LexState L;

bool is_letter(int c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
bool is_digit(int c)
{
    return c >= '0' && c <= '9';
}
bool is_blank(int c)
{
    return c == ' ' || c == '\t';
}
int lower(int c)
{
    return (c >= 'A' && c <= 'Z') ? c + ('a' - 'A') : c;
}

// Printable ASCII and the usual control characters of text files.
bool allowed(int c)
{
    return (c >= 32 && c <= 126) || c == '\n' || c == '\t' || c == '\v' || c == '\b' || c == '\r' ||
           c == '\f';
}

int source_get()
{
    switch (L.mode) {
        case kFile:
            return getc(L.fp);
        case kMemory:
            return L.data[L.pos] != 0 ? L.data[L.pos++] : EOF;
        default:
            return L.pos < L.size ? L.data[L.pos++] : EOF;
    }
}

// Reads one character into the look-ahead buffer, checking it.
void fetch()
{
    int c = source_get();
    if (!L.any_read) {
        L.any_read = true;
        if (c == EOF) L.bad_char = true;  // nothing at all to read
    }
    if (c == EOF) {
        L.source_done = true;
        return;
    }
    L.chars_read++;
    if (!allowed(c)) {
        L.bad_char = true;
        if (L.mode != kFile) {
            c = ' ';
            if (!L.reported_bad_char) {
                L.reported_bad_char = true;
                rf_report_error("Error in file.");
            }
        }
    }
    L.ahead.push_back(static_cast<char>(c));
}

// The character `i` places ahead, or EOF.
int peek(size_t i)
{
    while (L.ahead.size() - L.ahead_pos <= i && !L.source_done) fetch();
    if (L.ahead.size() - L.ahead_pos <= i) return EOF;
    return static_cast<unsigned char>(L.ahead[L.ahead_pos + i]);
}

void consume(size_t n)
{
    L.ahead_pos += n;
    if (L.ahead_pos >= L.ahead.size()) {
        L.ahead.clear();
        L.ahead_pos = 0;
    } else if (L.ahead_pos > 4096) {
        L.ahead.erase(0, L.ahead_pos);
        L.ahead_pos = 0;
    }
}

// Offset in the input of the next character to be taken.
size_t taken_offset()
{
    return L.chars_read - (L.ahead.size() - L.ahead_pos);
}

// Counts a line end just taken, remembering where the new line starts so that
// a diagnostic can quote it without reading the input again from its start.
void next_line()
{
    L.line++;
    L.prev_line_start = L.line_start;
    L.line_start = taken_offset();
}

// Takes `n` characters as the token's text.
void take(size_t n)
{
    L.text.assign(L.ahead, L.ahead_pos, n);
    consume(n);
}

size_t digits_at(size_t p)
{
    size_t n = 0;
    while (is_digit(peek(p + n))) n++;
    return n;
}

size_t blanks_at(size_t p)
{
    size_t n = 0;
    while (is_blank(peek(p + n))) n++;
    return n;
}

// Whether the three letters at `p` are one of `words`, without regard to case.
bool word3_at(size_t p, const char *const *words, int count)
{
    for (int w = 0; w < count; w++) {
        const char *word = words[w];
        if (lower(peek(p)) == word[0] && lower(peek(p + 1)) == word[1] &&
            lower(peek(p + 2)) == word[2])
            return true;
    }
    return false;
}

constexpr const char *kWeekdays[] = {"mon", "tue", "wed", "thu", "fri", "sat", "sun"};
constexpr const char *kMonths[] = {"jan", "feb", "mar", "apr", "may", "jun",
                                   "jul", "aug", "sep", "oct", "nov", "dec"};

// The length of a date at the start of the look-ahead, or 0:
// "Mon Jan  2 15:04:05 GMT 2006".
size_t match_date()
{
    if (!word3_at(0, kWeekdays, 7)) return 0;
    size_t p = 3, b = blanks_at(p);
    if (b == 0) return 0;
    p += b;
    if (!word3_at(p, kMonths, 12)) return 0;
    p += 3;
    b = blanks_at(p);
    if (b == 0) return 0;
    bool single_digit_ok = b >= 2 && peek(p + b - 1) == ' ';
    p += b;
    if (is_digit(peek(p)) && is_digit(peek(p + 1)))
        p += 2;
    else if (is_digit(peek(p)) && single_digit_ok)
        p += 1;
    else
        return 0;
    if ((b = blanks_at(p)) == 0) return 0;
    p += b;
    for (int i = 0; i < 8; i++) {
        int c = peek(p + i);
        if (i == 2 || i == 5 ? c != ':' : !is_digit(c)) return 0;
    }
    p += 8;
    if ((b = blanks_at(p)) == 0) return 0;
    p += b;
    if (peek(p) != 'G' || peek(p + 1) != 'M' || peek(p + 2) != 'T') return 0;
    p += 3;
    if ((b = blanks_at(p)) == 0) return 0;
    p += b;
    if (digits_at(p) < 4) return 0;
    return p + 4;
}

Tok scan_word()
{
    size_t n = 1;
    for (int c = peek(n); is_letter(c) || is_digit(c) || c == '_'; c = peek(++n)) {
    }
    size_t date = match_date();
    if (date > n) {
        take(date);
        return Tok::Date;
    }
    take(n);
    // "INF" is a real, not a word: a FLOAT keyword must be able to hold it.
    if (n == 3 && VLD_strcasecmp(L.text.c_str(), "inf") == 0) return Tok::Real;
    if (VLD_strcasecmp(L.text.c_str(), "begin") == 0) return Tok::Begin;
    if (VLD_strcasecmp(L.text.c_str(), "end") == 0) return Tok::End;
    return Tok::Ident;
}

// An exponent at `p` ("e", optional sign, digits): its length, or 0.
size_t exponent_at(size_t p)
{
    int c = peek(p);
    if (c != 'e' && c != 'E') return 0;
    size_t q = p + 1;
    if (peek(q) == '+' || peek(q) == '-') q++;
    size_t d = digits_at(q);
    return d > 0 ? q + d - p : 0;
}

// Optional sign and digits at `p`: the length, or 0 without digits.
size_t signed_digits_at(size_t p)
{
    size_t q = p;
    if (peek(q) == '+' || peek(q) == '-') q++;
    size_t d = digits_at(q);
    return d > 0 ? q + d - p : 0;
}

// The number-like tokens: integer, real, signed infinity, the three-part
// colon form and the colon list. Sets `length` to 0 when none matches.
Tok scan_number(size_t &length)
{
    int c = peek(0);
    size_t sign = (c == '+' || c == '-') ? 1 : 0;
    if (sign && lower(peek(1)) == 'i' && lower(peek(2)) == 'n' && lower(peek(3)) == 'f') {
        length = 4;
        return Tok::Real;
    }
    size_t best = 0;
    Tok kind = Tok::Char;
    // Offers are made in the order of the rules, so that a tie keeps the earlier.
    auto offer = [&](size_t len, Tok k) {
        if (len > best) {
            best = len;
            kind = k;
        }
    };
    size_t d1 = digits_at(sign);
    if (d1 > 0) offer(sign + d1, Tok::Integer);

    size_t p = sign + d1;
    if (peek(p) == '.') {
        size_t d2 = digits_at(p + 1);
        if (d1 > 0 || d2 > 0) {
            size_t end = p + 1 + d2;
            offer(end + exponent_at(end), Tok::Real);
        }
    } else if (d1 > 0) {
        size_t e = exponent_at(p);
        if (e > 0) offer(p + e, Tok::Real);
    }

    size_t a = signed_digits_at(0);
    if (a > 0 && peek(a) == ':') {
        size_t b = signed_digits_at(a + 1);
        if (b > 0 && peek(a + 1 + b) == ':') {
            size_t q = a + b + 2;
            if (peek(q) == '+' || peek(q) == '-') q++;
            size_t d = digits_at(q), end = 0;
            if (d > 0) {
                end = q + d;
                if (peek(end) == '.') end += 1 + digits_at(end + 1);
            } else if (peek(q) == '.' && digits_at(q + 1) > 0) {
                end = q + 1 + digits_at(q + 1);
            }
            if (end > 0) offer(end, Tok::ThreePart);
        }
    }

    if (!sign && d1 > 0) {
        size_t q = d1, end2 = 0, end_all = d1;
        int parts = 1;
        while (peek(q) == ':' && is_digit(peek(q + 1))) {
            q += 1 + digits_at(q + 1);
            if (++parts == 2) end2 = q;
            end_all = q;
        }
        if (parts >= 4)
            offer(end_all, Tok::ColonList);
        else if (parts >= 2)
            offer(end2, Tok::ColonList);
    }
    length = best;
    return kind;
}

Tok scan_string()
{
    consume(1);  // the opening quote
    int start_line = L.line;
    L.text.clear();
    for (;;) {
        int c = peek(0);
        if (c == EOF) {
            char message[80];
            snprintf(message, sizeof message, "Unterminated string starting on line %d",
                     start_line);
            rf_report_error(message);
            parser_stop();
            return Tok::String;
        }
        consume(1);
        if (c == '"') return Tok::String;
        if (c == '\\') {
            int next = peek(0);
            if (next == '"' || next == '\\') {
                consume(1);
                L.text.push_back(static_cast<char>(next));
            } else {
                L.text.push_back('\\');  // kept; the next character is read on its own
            }
            continue;
        }
        if (c == '\r') continue;
        if (c == '\n') next_line();
        L.text.push_back(static_cast<char>(c));
    }
}

Tok scan()
{
    for (;;) {
        int c = peek(0);
        if (is_blank(c)) {
            consume(1);
            continue;
        }
        if (c == EOF) {
            L.text.clear();
            return Tok::EndOfInput;
        }
        if (c == '#') {
            while ((c = peek(0)) != '\n' && c != EOF) consume(1);
            continue;
        }
        if (c == '\n' || (c == '\r' && peek(1) == '\n')) {
            consume(c == '\r' ? 2 : 1);
            next_line();
            if (L.in_braces) continue;  // inside braces a line end only counts
            L.text.assign("\n");
            L.last_newline = true;
            return Tok::Newline;
        }
        L.last_newline = false;
        if (c == '"') return scan_string();
        if (c == '=' || c == '{' || c == '}') {
            take(1);
            if (c == '{') L.in_braces = true;
            if (c == '}') L.in_braces = false;
            return c == '=' ? Tok::Equals : c == '{' ? Tok::LBrace : Tok::RBrace;
        }
        if (is_letter(c)) return scan_word();
        if (is_digit(c) || c == '+' || c == '-' || c == '.') {
            size_t n = 0;
            Tok t = scan_number(n);
            if (n > 0) {
                take(n);
                return t;
            }
        }
        take(1);
        return Tok::Char;
    }
}

// Up to 199 characters of line `wanted` of a file input, which is the line
// being scanned or the one before it; false when it can't be read.
bool line_text(int wanted, std::string &out)
{
    out.clear();
    size_t start;
    if (wanted == L.line)
        start = L.line_start;
    else if (wanted == L.line - 1 && wanted >= 1)
        start = L.prev_line_start;
    else
        return false;
    if (L.mode == kMapped) {
        for (size_t i = start; i < L.size && out.size() < 199; i++) {
            unsigned char c = L.data[i];
            if (c == '\n' || c == '\0') break;
            out.push_back(static_cast<char>(c));
        }
    } else {
        off_t here = ftello(L.fp);
        if (here < 0 || fseeko(L.fp, static_cast<off_t>(start), SEEK_SET) != 0) return false;
        for (int c = getc(L.fp); c != EOF && c != '\n' && c != '\0' && out.size() < 199;
             c = getc(L.fp))
            out.push_back(static_cast<char>(c));
        clearerr(L.fp);
        if (fseeko(L.fp, here, SEEK_SET) != 0) return false;
    }
    if (!out.empty() && out.back() == '\r') out.pop_back();
    return true;
}

void append_diagnostic(const std::string &piece)
{
    size_t used = strlen(vld_last_diagnostic);
    size_t room = VLD_DIAGNOSTIC_SIZE - 1 - used;
    size_t n = piece.size() < room ? piece.size() : room;
    memcpy(vld_last_diagnostic + used, piece.data(), n);
    vld_last_diagnostic[used + n] = '\0';
}

// Opens a document for reading, refusing without blocking anything that isn't
// a regular file: opening a FIFO would wait for a writer for ever. -1 on
// failure; lex_not_regular tells a FIFO, device or socket from a file that
// isn't there (a directory is simply no file).
int open_regular(const char *filename, off_t *size)
{
    lex_not_regular = false;
    int fd = vln_open_data(filename, O_RDONLY, 0);
    if (fd == VLN_NOT_REGULAR) lex_not_regular = errno != EISDIR;
    if (fd < 0) return -1;
    *size = static_cast<off_t>(vln_fdsize64(fd));
    return fd;
}

}  // namespace

bool lex_not_regular = false;

struct SavedInput {
    LexState lex;
    ParserState *parser;
    std::string diagnostic;
    bool first_statement;
};

Tok lex_next()
{
    if (!L.open || L.bad_char) {
        L.text.clear();
        return Tok::EndOfInput;
    }
    Tok t = scan();
    if (L.bad_char) {
        // A token that ran into a bad character is not passed on.
        L.text.clear();
        return Tok::EndOfInput;
    }
    return t;
}

const std::string &lex_text()
{
    return L.text;
}
bool lex_is_open()
{
    return L.open;
}
bool lex_bad_char()
{
    return L.bad_char;
}
size_t lex_chars_read()
{
    return L.chars_read;
}
int lex_error_count()
{
    return L.errors;
}

SavedInput *lex_set_aside()
{
    auto *saved = new SavedInput{std::move(L), parser_set_aside(), vld_last_diagnostic,
                                 parser_first_statement};
    L = LexState{};
    parser_first_statement = false;
    return saved;
}

void lex_restore(SavedInput *saved)
{
    if (saved == nullptr) return;
    if (L.open) VLD_finalise_lexer();
    L = std::move(saved->lex);
    parser_restore(saved->parser);
    snprintf(vld_last_diagnostic, VLD_DIAGNOSTIC_SIZE, "%s", saved->diagnostic.c_str());
    parser_first_statement = saved->first_statement;
    delete saved;
}

}  // namespace vld_bt

using namespace vld_bt;

int VLD_init_lexer(int mode, int *error_counter, const char *filename, const char *buffer)
{
    if (L.open) VLD_finalise_lexer();
    L = LexState{};
    L.counter = error_counter;
    if (error_counter != nullptr) *error_counter = 0;
    vld_last_diagnostic[0] = '\0';
    parser_reset();

    // "-" is the library's standard input, which can only be read as a stream.
    if (mode == kMapped && filename != nullptr && strcmp(filename, "-") == 0) mode = kFile;
    L.mode = mode;
    switch (mode) {
        case kFile:
            if (filename == nullptr || *filename == '\0') return 0;
            if (strcmp(filename, "-") == 0) {
                L.fp = vln_ReturnStdIn();
                L.is_stdin = true;
            } else {
                off_t size = 0;
                int fd = open_regular(filename, &size);
                if (fd < 0) return 0;
                L.fp = fdopen(fd, "rb");
                if (L.fp == nullptr) close(fd);
                L.own_fp = true;
            }
            if (L.fp == nullptr) return 0;
            break;
        case kMemory:
            if (buffer == nullptr) return 0;
            L.data = reinterpret_cast<const unsigned char *>(buffer);
            break;
        case kMapped: {
            if (filename == nullptr || *filename == '\0') return 0;
            off_t size = 0;
            int fd = open_regular(filename, &size);
            if (fd < 0) return 0;
            close(fd);
            if (size <= 0) return 0;  // an empty file can't be mapped
            char *message = nullptr;
            void *view = vln_fmap(filename, "s", static_cast<size_t>(size), 0, L.handles, &message);
            safe_free(message);
            if (view == nullptr) return 0;
            L.data = static_cast<const unsigned char *>(view);
            L.size = static_cast<size_t>(size);
            break;
        }
        default:
            return 0;
    }
    L.name = filename != nullptr ? filename : "";
    L.open = true;
    return 1;
}

void VLD_finalise_lexer(void)
{
    if (L.own_fp && L.fp != nullptr) fclose(L.fp);
    if (L.mode == kMapped && L.data != nullptr) {
        char *message = nullptr;
        vln_funmap(const_cast<unsigned char *>(L.data), L.size, L.handles, 0, &message);
        safe_free(message);
    }
    int errors = L.errors;
    L = LexState{};
    L.errors = errors;  // still readable after the input is closed
}

int rf_check_file(void)
{
    return L.open ? 1 : 0;
}

void rf_report_error(const char *text)
{
    L.errors++;
    if (L.counter != nullptr) *L.counter = L.errors;

    std::string piece = "ERROR: ";
    piece += text != nullptr ? text : "";
    piece += '\n';
    if (L.open) {
        char line_buffer[64];
        if (L.mode != kMemory) {
            piece += "    Source file: ";
            piece += L.is_stdin ? "standard input" : L.name;
            piece += '\n';
        }
        int line = L.line - (L.last_newline ? 1 : 0);
        snprintf(line_buffer, sizeof line_buffer, "    Line number: %d\n", line);
        piece += line_buffer;
        std::string content;
        if ((L.mode == kMapped || !L.is_stdin) && L.mode != kMemory && line_text(line, content)) {
            piece += "    Line       : ";
            piece += content;
            piece += '\n';
        }
        std::string near = L.text.substr(0, L.text.find('\n'));
        if (near.size() > 20) near.resize(20);
        if (!near.empty()) piece += "    Near       : \"" + near + "\"\n";
    }
    append_diagnostic(piece);
}
