/*
 * vld_string.cpp: string helpers with fixed rules for null pointers and blanks.
 *
 * A null string is allowed wherever it can mean something: it compares below
 * every string, counts as empty when copied, and is left alone when edited in
 * place. Functions that return text return a new string that the caller frees.
 */
#include "vld_core.h"

#include <cctype>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string>
#include <strings.h>

namespace {

bool is_space(char c)
{
    return isspace(static_cast<unsigned char>(c)) != 0;
}

}  // namespace

int VLD_strcasecmp(const char *a, const char *b)
{
    if (a == nullptr && b == nullptr) return 0;
    if (a == nullptr) return -1;
    if (b == nullptr) return 1;
    return strcasecmp(a, b);
}

int VLD_strncasecmp(const char *a, const char *b, int n)
{
    if (a == nullptr && b == nullptr) return 0;
    if (a == nullptr) return -1;
    if (b == nullptr) return 1;
    for (int i = 0; i < n; i++) {
        int ca = tolower(static_cast<unsigned char>(a[i]));
        int cb = tolower(static_cast<unsigned char>(b[i]));
        if (ca != cb) return ca < cb ? -1 : 1;
        if (ca == 0) break;
    }
    return 0;
}

char *VLD_toupper(char *s)
{
    for (char *p = s; p != nullptr && *p != '\0'; p++)
        *p = static_cast<char>(toupper(static_cast<unsigned char>(*p)));
    return s;
}

char *VLD_tolower(char *s)
{
    for (char *p = s; p != nullptr && *p != '\0'; p++)
        *p = static_cast<char>(tolower(static_cast<unsigned char>(*p)));
    return s;
}

char *VLD_strchar_convert(char *s, int from, int to)
{
    if (s == nullptr || from == 0) return s;
    for (char *p = s; *p != '\0'; p++)
        if (*p == static_cast<char>(from)) *p = static_cast<char>(to);
    return s;
}

int VLD_strstr_convert(char **s, const char *from, const char *to)
{
    if (s == nullptr || *s == nullptr || from == nullptr || to == nullptr || *from == '\0')
        return 0;
    if (strstr(*s, from) == nullptr) return 0;
    std::string out;
    size_t from_len = strlen(from);
    for (const char *p = *s;;) {
        const char *hit = strstr(p, from);
        if (hit == nullptr) {
            out += p;
            break;
        }
        out.append(p, static_cast<size_t>(hit - p));
        out += to;
        p = hit + from_len;
    }
    safe_free(*s);
    *s = strsave(out.c_str());
    return 1;
}

/* As strtok, but two adjacent delimiters give an empty token. One static
 * position: not reentrant. */
char *VLD_expanded_strtok(char *s, const char *delimiters)
{
    static char *position = nullptr;
    if (delimiters == nullptr) return nullptr;
    if (s != nullptr) position = s;
    if (position == nullptr) return nullptr;
    char *token = position;
    char *end = token + strcspn(token, delimiters);
    if (*end == '\0') {
        position = nullptr;
    } else {
        *end = '\0';
        position = end + 1;
    }
    return token;
}

char *VLD_stripblanks(char *s)
{
    if (s == nullptr) return s;
    char *start = s;
    while (is_space(*start)) start++;
    size_t length = strlen(start);
    while (length > 0 && is_space(start[length - 1])) length--;
    memmove(s, start, length);
    s[length] = '\0';
    return s;
}

int strip_whitespace2(char *s)
{
    if (s == nullptr) return 0;
    char *out = s;
    int removed = 0;
    for (const char *in = s; *in != '\0'; in++) {
        if (is_space(*in))
            removed++;
        else
            *out++ = *in;
    }
    *out = '\0';
    return removed;
}

char *strip_whitespace(char *s)
{
    strip_whitespace2(s);
    return s;
}

int string_is_blank(const char *s)
{
    if (s == nullptr) return 1;
    for (; *s != '\0'; s++)
        if (!is_space(*s)) return 0;
    return 1;
}

/* Copies the letters, digits, punctuation and blanks of `src`. */
int strcpylint(char *dst, const char *src)
{
    if (dst == nullptr) return 0;
    char *out = dst;
    for (const char *in = src; in != nullptr && *in != '\0'; in++) {
        auto c = static_cast<unsigned char>(*in);
        if (isalnum(c) || ispunct(c) || c == ' ') *out++ = *in;
    }
    *out = '\0';
    return 0;
}

char *safe_strcat(char *dst, const char *src, int limit)
{
    if (dst == nullptr || src == nullptr || limit < 1) return dst;
    size_t length = strlen(dst);
    size_t most = static_cast<size_t>(limit - 1);
    if (length >= most) return dst;
    size_t room = most - length;
    size_t add = strnlen(src, room);
    memcpy(dst + length, src, add);
    dst[length + add] = '\0';
    return dst;
}

int vln_sumstring(const char *s)
{
    int sum = 0;
    for (; s != nullptr && *s != '\0'; s++) sum += static_cast<unsigned char>(*s);
    return sum;
}

char *quote_string(const char *s)
{
    if (s == nullptr) s = "";
    size_t length = strlen(s);
    auto *out = static_cast<char *>(malloc_or_die(length + 3));
    out[0] = '"';
    memcpy(out + 1, s, length);
    out[length + 1] = '"';
    out[length + 2] = '\0';
    return out;
}

char *unquote_string(const char *s)
{
    if (s == nullptr) return strsave("");
    size_t length = strlen(s);
    if (length >= 2 && s[0] == '"' && s[length - 1] == '"') {
        char *out = strsave(s + 1);
        out[length - 2] = '\0';
        return out;
    }
    return strsave(s);
}

/* Turns backslash sequences into their characters, in place: "\n" a newline,
 * "\t" a tab, a backslash before anything else that character alone. */
char *convert_backquoted_chars(char *s)
{
    if (s == nullptr) return s;
    char *out = s;
    for (const char *in = s; *in != '\0'; in++) {
        if (*in != '\\') {
            *out++ = *in;
            continue;
        }
        in++;
        if (*in == '\0') break;  // a lone backslash at the end is dropped
        *out++ = *in == 'n' ? '\n' : *in == 't' ? '\t' : *in;
    }
    *out = '\0';
    return s;
}

/* Expands $NAME from the environment. "$" before a separator stays as it is.
 * An unset variable ends the expansion with what has been gathered so far. */
char *VLD_expand_env_vars(char *s)
{
    if (s == nullptr || *s == '\0') return nullptr;
    std::string out;
    char *p = s;
    while (*p != '\0') {
        if (*p != '$') {
            out += *p++;
            continue;
        }
        if (p[1] == '/' || p[1] == '\\') {
            out += *p++;
            continue;
        }
        char *name = ++p;
        while (isalnum(static_cast<unsigned char>(*p)) || *p == '_') p++;
        char saved = *p;
        // Kept: the name's end is written into the input, and it stays so when
        // the variable is unset; callers have always seen their text cut there.
        if (saved != '\0') *p = '\0';
        const char *value = getenv(name);
        if (value == nullptr) break;
        *p = saved;
        out += value;
    }
    return strsave(out.c_str());
}

char *format_float(char *dst, double value)
{
    if (dst != nullptr) sprintf(dst, "%.13G", value);
    return dst;
}

namespace {

// Rounds to `places` decimals with the power built by repeated multiplication.
double round_places(double value, int places)
{
    double power = 1.0;
    for (int i = 0; i < places; i++) power *= 10.0;
    return floor(value * power + 0.5) / power;
}

}  // namespace

char *format_float3(char *dst, double value, int places)
{
    if (places < 0) places = 0;
    if (dst != nullptr) sprintf(dst, "%.*f", places, round_places(value, places));
    return dst;
}

char *format_float2_G(char *dst, double value, int places)
{
    if (places < 0) places = 0;
    if (dst != nullptr) sprintf(dst, "%.*G", places, round_places(value, places));
    return dst;
}

char *format_float2(char *dst, double value, int places)
{
    if (dst == nullptr) return dst;
    format_float3(dst, value, places);
    if (places > 0 && strchr(dst, '.') != nullptr) {
        size_t length = strlen(dst);
        while (length > 0 && dst[length - 1] == '0') dst[--length] = '\0';
        if (length > 0 && dst[length - 1] == '.') dst[--length] = '\0';
    }
    return dst;
}

int64_t vln_nint(double value)
{
    // Out of range (or NaN) has no nearest 64-bit integer; saturate.
    if (!(value > -9.2e18 && value < 9.2e18)) return value > 0.0 ? INT64_MAX : INT64_MIN;
    return static_cast<int64_t>(value < 0.0 ? value - 0.5 : value + 0.5);
}

double vln_anint(double value)
{
    return value > 0.0 ? floor(value + 0.5) : ceil(value - 0.5);
}

double vln_exp10(double value)
{
    return pow(10.0, value);
}
