/*
 * vld_error.cpp: the process-wide error record and its message table.
 *
 * A failing function returns what VLD_setup_error returned: a row of the table,
 * with the formatted text in one static buffer. Nothing clears the record; a
 * later failure overwrites it, and callers that want to keep detail append.
 */
#include "vld_core.h"
#include "vld_error_internal.h"
#include "vln_thread.h"

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <iterator>

VLD_ERROR_REC VLD_error = {0, nullptr};

// The table and its names come from one list; a row's number is its place.
#define VLD_ERR_TEXT_ENTRY_(name, number, format) format,
const char *VLD_errmsg[VLD_ERRMSG_ROWS] = {VLD_ERROR_ROWS(VLD_ERR_TEXT_ENTRY_)};
#undef VLD_ERR_TEXT_ENTRY_

namespace {

#define VLD_ERR_NUMBER_ENTRY_(name, number, format) number,
constexpr int kRowNumbers[] = {VLD_ERROR_ROWS(VLD_ERR_NUMBER_ENTRY_)};
#undef VLD_ERR_NUMBER_ENTRY_

constexpr bool rows_in_place()
{
    for (int i = 0; i < static_cast<int>(std::size(kRowNumbers)); i++)
        if (kRowNumbers[i] != i) return false;
    return true;
}

static_assert(std::size(kRowNumbers) == VLD_ERRMSG_ROWS, "the list holds every row of the table");
static_assert(rows_in_place(), "each row's number is its place in the list");

char error_buffer[VLD_ERRBUF_SIZE];
char empty_text[] = "";

const char *row_format(int code)
{
    return (code >= 0 && code < VLD_ERRMSG_ROWS) ? VLD_errmsg[code] : "";
}

// Formats into the static buffer and points the record at it; csect is held.
int setup_locked(int code, const char *format, va_list args)
{
    vsnprintf(error_buffer, sizeof error_buffer, format, args);
    VLD_error.code = code;
    VLD_error.text = error_buffer;
    return code;
}

// Appends a newline and a text to the error text, never growing it past 511
// characters; an error text that is that long already stays as it is.
void append_to_error_text(const char *text)
{
    vln_mutex_begin(&csect);
    if (VLD_error.text == nullptr) {
        error_buffer[0] = '\0';
        VLD_error.text = error_buffer;
    }
    safe_strcat(VLD_error.text, "\n", 512);
    safe_strcat(VLD_error.text, text, 512);
    vln_mutex_end(&csect);
}

// Formats a caller's message into a new string stored through `out`.
void construct_from_args(char **out, const char *format, va_list args, bool with_system_error)
{
    int saved_errno = errno;
    char buffer[2048];
    buffer[0] = '\0';
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    if (format != nullptr) vsnprintf(buffer, sizeof buffer, format, args);
#pragma GCC diagnostic pop
    if (with_system_error) {
        errno = saved_errno;
        append_system_error(buffer, sizeof buffer);
    }
    if (out != nullptr) *out = strsave(buffer);
}

// Sets up the error of a table row, with the last system error after it when
// `with_system_error` is set.
void setup_row(int code, va_list args, bool with_system_error)
{
    int saved_errno = errno;
    vln_mutex_begin(&csect);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    setup_locked(code, row_format(code), args);
#pragma GCC diagnostic pop
    if (with_system_error) {
        errno = saved_errno;
        append_system_error(error_buffer, VLD_ERRBUF_SIZE);
    }
    vln_mutex_end(&csect);
}

}  // namespace

char vld_last_diagnostic[VLD_DIAGNOSTIC_SIZE];

int VLD_setup_error(int code, ...)
{
    va_list args;
    va_start(args, code);
    setup_row(code, args, false);
    va_end(args);
    return code;
}

int vld_setup_error_text(int code, const char *text)
{
    vln_mutex_begin(&csect);
    snprintf(error_buffer, sizeof error_buffer, "%s", text != nullptr ? text : "");
    VLD_error.code = code;
    VLD_error.text = error_buffer;
    vln_mutex_end(&csect);
    return code;
}

int VLD_setup_system_error(int code, ...)
{
    va_list args;
    va_start(args, code);
    setup_row(code, args, true);
    va_end(args);
    return code;
}

int VLD_setup_vds_error(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    vln_mutex_begin(&csect);
    setup_locked(VLD_ERR_VDS, format != nullptr ? format : "", args);
    vln_mutex_end(&csect);
    va_end(args);
    return VLD_ERR_VDS;
}

char *VLD_error_text(void)
{
    return VLD_error.text != nullptr ? VLD_error.text : empty_text;
}

void VLD_output_error(void)
{
    vln_mutex_begin(&csect);
    FILE *err = vln_ReturnStdErr();
    fprintf(err, "VLD Error:\n");
    fprintf(err, "    %d\n", VLD_error.code);
    fprintf(err, "    %s\n", VLD_error_text());
    fflush(err);
    vln_mutex_end(&csect);
}

int VLD_error_vprintf(const char *format, va_list args)
{
    if (format == nullptr) return 0;
    return vfprintf(vln_ReturnStdErr(), format, args);
}

int construct_errmsg(char **out, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    construct_from_args(out, format, args, false);
    va_end(args);
    return 0;
}

int construct_system_errmsg(char **out, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    construct_from_args(out, format, args, true);
    va_end(args);
    return 0;
}

/* Appends a line naming the last system error (errno and its text) to a
 * buffer of `size` bytes, keeping the terminator inside the buffer. */
void append_system_error(char *buffer, int size)
{
    int saved_errno = errno;
    if (buffer == nullptr || size <= 0) return;
    vln_mutex_begin(&csect);
    size_t length = strlen(buffer);
    // A buffer already full gets nothing appended. (The lock is released on
    // this path too: holding it would stall every other thread for good.)
    if (length >= static_cast<size_t>(size - 1)) {
        vln_mutex_end(&csect);
        return;
    }
    if (length > 0 && buffer[length - 1] != '\n') {
        buffer[length++] = '\n';
        buffer[length] = '\0';
    }
    char built[256];
    snprintf(built, sizeof built, "Last system error = %d, %s", saved_errno, strerror(saved_errno));
    long room = static_cast<long>(size) - static_cast<long>(length + strlen(built) + 1);
    if (room > 0) strncat(buffer, built, static_cast<size_t>(room));
    buffer[size - 1] = '\0';
    vln_mutex_end(&csect);
    errno = saved_errno;
}

void append_parser_error_to_VLD_error(void)
{
    append_to_error_text(vld_last_diagnostic);
}

void append_buffer_to_VLD_error(const char *text)
{
    append_to_error_text(text);
}

void Fatal(const char *text)
{
    FILE *err = vln_ReturnStdErr();
    fprintf(err, "FATAL: %s\n", text != nullptr ? text : "");
    fflush(err);
    vln_thread_exit(1);
}

/* The platform's report of a failure. There are no message boxes here: a shown
 * report goes to the library's standard error stream under the box's title,
 * followed by the system's text for the last error. */
void win32_error(int show, const char *text)
{
    int saved_errno = errno;
    if (text == nullptr || strlen(text) < 5) return;
    if (!show) {
        VLN_debug_log_printf("%s", text);
        return;
    }
    FILE *err = vln_ReturnStdErr();
    fprintf(err, "Vorlan (win32) error\n%s\n%s\n", text, strerror(saved_errno));
    fflush(err);
}

char *win32_error_txt(int code)
{
    char buffer[256];
    const char *text = strerror_r(code, buffer, sizeof buffer);
    if (text == nullptr || strncmp(text, "Unknown error", 13) == 0) return nullptr;
    return strsave(text);
}

const char *VLD_version(void)
{
    return VORLAN_VERSION;
}
