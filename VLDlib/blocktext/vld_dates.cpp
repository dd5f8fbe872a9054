/*
 * vld_dates.cpp: dates, angles, numbers and lengths as block text writes them.
 *
 * Dates are Greenwich time, "Mon Jan  2 15:04:05 GMT 2006", converted by our
 * own calendar arithmetic so that no time zone or C library state takes part.
 * Angles are "degrees:minutes:seconds". Numbers are read by the decimal
 * grammar of block text in the "C" locale, whatever locale the caller set.
 * Lengths are a number and a unit, "12.5mm".
 */
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>

#include "vld_blocktext_internal.h"

namespace vld_bt {
namespace {

bool is_space(char c)
{
    return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}
bool is_digit(char c)
{
    return c >= '0' && c <= '9';
}
bool is_letter(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

constexpr const char *kMonthNames[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                       "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
constexpr const char *kDayNames[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};

bool leap(int64_t y)
{
    return (y % 4 == 0 && y % 100 != 0) || y % 400 == 0;
}

int days_in_month(int64_t y, int m)
{
    static constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return m == 2 && leap(y) ? 29 : kDays[m - 1];
}

// Days since 1970-01-01 of a date of the proleptic Gregorian calendar.
int64_t days_from_civil(int64_t y, int m, int d)
{
    y -= m <= 2;
    int64_t era = (y >= 0 ? y : y - 399) / 400;
    int64_t yoe = y - era * 400;
    int64_t doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    int64_t doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + doe - 719468;
}

void civil_from_days(int64_t z, int64_t &y, int &m, int &d)
{
    z += 719468;
    int64_t era = (z >= 0 ? z : z - 146096) / 146097;
    int64_t doe = z - era * 146097;
    int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    int64_t mp = (5 * doy + 2) / 153;
    d = static_cast<int>(doy - (153 * mp + 2) / 5 + 1);
    m = static_cast<int>(mp < 10 ? mp + 3 : mp - 9);
    y = yoe + era * 400 + (m <= 2);
}

// Reads up to `max` digits; false when there is none.
bool read_number(const char *&p, int max, int64_t &out)
{
    out = 0;
    int n = 0;
    while (is_digit(*p) && n < max) out = out * 10 + (*p++ - '0'), n++;
    return n > 0;
}

void skip_blanks(const char *&p)
{
    while (*p == ' ' || *p == '\t') p++;
}

// The decimal number at the start of `text` (after white space), copied out
// so that nothing beyond the grammar reaches strtod.
std::string decimal_prefix(const char *text)
{
    const char *p = text;
    while (is_space(*p)) p++;
    const char *start = p;
    if (*p == '+' || *p == '-') p++;
    size_t digits = 0;
    while (is_digit(*p)) p++, digits++;
    if (*p == '.') {
        p++;
        while (is_digit(*p)) p++, digits++;
    }
    if (digits == 0) return std::string();
    if (*p == 'e' || *p == 'E') {
        const char *e = p + 1;
        if (*e == '+' || *e == '-') e++;
        if (is_digit(*e)) {
            while (is_digit(*e)) e++;
            p = e;
        }
    }
    return std::string(start, p);
}

}  // namespace

locale_t c_locale()
{
    static locale_t locale = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(0));
    return locale;
}

double text_to_double(const char *text)
{
    if (text == nullptr) return 0.0;
    std::string number = decimal_prefix(text);
    if (number.empty()) return 0.0;
    return strtod_l(number.c_str(), nullptr, c_locale());
}

int32_t text_to_int32(const char *text)
{
    if (text == nullptr) return 0;
    const char *p = text;
    while (is_space(*p)) p++;
    bool negative = *p == '-';
    if (*p == '+' || *p == '-') p++;
    int64_t value = 0;
    while (is_digit(*p)) {
        value = value * 10 + (*p++ - '0');
        if (value > int64_t{1} << 32) value = int64_t{1} << 32;  // saturates below
    }
    if (negative) value = -value;
    if (value > std::numeric_limits<int32_t>::max()) return std::numeric_limits<int32_t>::max();
    if (value < std::numeric_limits<int32_t>::min()) return std::numeric_limits<int32_t>::min();
    return static_cast<int32_t>(value);
}

std::optional<int32_t> integer_token_value(const char *text)
{
    if (text == nullptr) return std::nullopt;
    if (*text == '+') text++;
    int32_t value = 0;
    const char *end = text + strlen(text);
    auto [ptr, ec] = std::from_chars(text, end, value);
    if (ec != std::errc() || ptr != end) return std::nullopt;
    return value;
}

std::optional<int64_t> rdate_seconds(const char *text)
{
    if (text == nullptr) return std::nullopt;
    const char *p = text;
    skip_blanks(p);
    while (is_letter(*p)) p++;  // the weekday is not checked
    skip_blanks(p);
    int month = 0;
    for (int m = 0; m < 12 && month == 0; m++)
        if (VLD_strncasecmp(p, kMonthNames[m], 3) == 0) month = m + 1;
    if (month == 0) return std::nullopt;
    p += 3;
    skip_blanks(p);
    int64_t day, hour, minute, second, year;
    if (!read_number(p, 2, day)) return std::nullopt;
    skip_blanks(p);
    if (!read_number(p, 2, hour) || *p++ != ':') return std::nullopt;
    if (!read_number(p, 2, minute) || *p++ != ':') return std::nullopt;
    if (!read_number(p, 2, second)) return std::nullopt;
    skip_blanks(p);
    while (is_letter(*p)) p++;  // "GMT"
    skip_blanks(p);
    if (!read_number(p, 9, year)) return std::nullopt;
    if (day < 1 || day > days_in_month(year, month) || hour > 23 || minute > 59 || second > 59)
        return std::nullopt;
    int64_t days = days_from_civil(year, month, static_cast<int>(day));
    return days * 86400 + hour * 3600 + minute * 60 + second;
}

}  // namespace vld_bt

using namespace vld_bt;

/* The time of a date text, or -1 for a text that isn't a date or a date
 * beyond the 32-bit range. */
int32_t rdate(const char *text)
{
    std::optional<int64_t> t = rdate_seconds(text);
    if (!t || *t < std::numeric_limits<int32_t>::min() || *t > std::numeric_limits<int32_t>::max())
        return -1;
    return static_cast<int32_t>(*t);
}

/* Every 32-bit time has a date, so the text is always a date. */
char *wdate(int32_t time, char *buffer)
{
    if (buffer == nullptr) return nullptr;
    int64_t days = time >= 0 ? time / 86400 : -((-static_cast<int64_t>(time) + 86399) / 86400);
    int64_t rest = time - days * 86400;
    int64_t year;
    int month, day;
    civil_from_days(days, year, month, day);
    int weekday = static_cast<int>(((days % 7) + 7 + 4) % 7);  // 1970-01-01 was a Thursday
    char text[64];
    int n = snprintf(text, sizeof text, "%s %s%3d %.2d:%.2d:%.2d GMT %d", kDayNames[weekday],
                     kMonthNames[month - 1], day, static_cast<int>(rest / 3600),
                     static_cast<int>(rest / 60 % 60), static_cast<int>(rest % 60),
                     static_cast<int>(year));
    memcpy(buffer, text, static_cast<size_t>(n) + 1);  // 28 characters for every 32-bit time
    return buffer;
}

double dmsstr_to_d(const char *text)
{
    if (text == nullptr) return 0.0;
    const char *parts[3] = {text, nullptr, nullptr};
    const char *colon = strchr(text, ':');
    if (colon != nullptr) {
        parts[1] = colon + 1;
        colon = strchr(parts[1], ':');
        if (colon != nullptr) parts[2] = colon + 1;
    }
    bool negative = false;
    for (const char *part : parts) {
        if (part == nullptr) continue;
        while (*part == ' ' || *part == '\t') part++;
        if (*part == '-') negative = true;
    }
    double degrees = std::fabs(text_to_double(parts[0]));
    double minutes =
        parts[1] != nullptr ? std::abs(static_cast<double>(text_to_int32(parts[1]))) : 0.0;
    double seconds = parts[2] != nullptr ? std::fabs(text_to_double(parts[2])) : 0.0;
    double value = degrees + minutes / 60.0 + seconds / 3600.0;
    return negative ? -value : value;
}

/* Writes at most 64 bytes. A value that is not finite, or too large for whole
 * degrees to be exact, is written as "%.17G". */
char *d_to_dmsstr_spec(char *buffer, double value, int places)
{
    if (buffer == nullptr) return nullptr;
    CLocaleGuard locale;
    if (places < 0) places = 0;
    if (places > 20) places = 20;
    if (!std::isfinite(value) || std::fabs(value) >= 1e15) {
        snprintf(buffer, 64, "%.17G", value);
        return buffer;
    }
    double a = std::fabs(value);
    double degrees = std::floor(a);
    double minutes_f = (a - degrees) * 60.0;
    double minutes = std::floor(minutes_f);
    double seconds = (minutes_f - minutes) * 60.0;
    char sec[48];
    snprintf(sec, sizeof sec, "%.*f", places, seconds);
    if (text_to_double(sec) >= 60.0) {
        minutes += 1.0;
        snprintf(sec, sizeof sec, "%.*f", places, 0.0);
    }
    if (minutes >= 60.0) {
        minutes -= 60.0;
        degrees += 1.0;
    }
    char *dot = strchr(sec, '.');
    if (dot != nullptr) {
        size_t length = strlen(sec);
        while (length > static_cast<size_t>(dot - sec) + 2 && sec[length - 1] == '0')
            sec[--length] = '\0';
    }
    snprintf(buffer, 64, "%s%.0f:%.0f:%s", value < 0.0 ? "-" : "", degrees, minutes, sec);
    return buffer;
}

char *d_to_dmsstr(char *buffer, double value)
{
    return d_to_dmsstr_spec(buffer, value, 9);
}

/* ---------------------------------------------------------------- lengths

   A length is a number and a unit, the unit chosen so that the number is at
   least 1; documents write lengths so. */

namespace {

struct LengthUnit {
    const char *word;
    double factor;
};

const LengthUnit kLengthUnits[] = {{"Km", 1000.0}, {"m", 1.0},    {"mm", 0.001}, {"um", 1e-6},
                                   {"nm", 1e-9},   {"pm", 1e-12}, {"fm", 1e-15}, {nullptr, 0.0}};

}  // namespace

double str_to_len(const char *text)
{
    if (!text) return 0.0;
    double value = 0.0;
    char word[11] = "";
    if (std::sscanf(text, "%lf%10s", &value, word) < 1) return 0.0;
    const LengthUnit *u = kLengthUnits;
    while (u->word && VLD_strcasecmp(u->word, word) != 0) u++;
    return value * u->factor;  // the closing row has factor 0
}

const char *generic_len_to_str(double length, int width)
{
    thread_local char buffer[400];
    if (length == 0.0) {
        std::snprintf(buffer, sizeof buffer, "0.0");
        return buffer;
    }
    const LengthUnit *u = kLengthUnits;
    while (u[1].word && std::fabs(length) / u->factor < 1.0) u++;
    char digits[360];
    std::snprintf(digits, sizeof digits, "%s%.3f", length < 0.0 ? "-" : "",
                  std::fabs(length) / u->factor);
    size_t keep = static_cast<size_t>(width < 3 ? 3 : width);
    if (keep > std::strlen(digits)) keep = std::strlen(digits);
    if (digits[keep - 1] == '.') keep--;
    digits[keep] = '\0';
    std::snprintf(buffer, sizeof buffer, "%s%s", digits, u->word);
    return buffer;
}

const char *len_to_str(double length)
{
    return generic_len_to_str(length, 9);
}
