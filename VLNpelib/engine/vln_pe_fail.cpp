/*
 * vln_pe_fail.cpp: the failure calls of a tree.
 *
 * A failure in the depth of a setup or a read never returns: the text is
 * collected (in the context during setup, in the handle during a read) and
 * the call leaves through the handle's target. Texts are bounded: the
 * context's text stops at 1024 characters, and what was cut is lost.
 */
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>

#include "vln_pe_internal.h"

namespace {

// Set by nothing; PE_initialise clears it. Kept as the switch of the
// verbose failure report.
bool verbose_errors = false;

std::string vformat(const char *format, va_list args)
{
    va_list copy;
    va_copy(copy, args);
    int n = std::vsnprintf(nullptr, 0, format, copy);
    va_end(copy);
    if (n < 0) return std::string(format);
    std::string text(static_cast<size_t>(n) + 1, '\0');
    std::vsnprintf(text.data(), text.size(), format, args);
    text.resize(static_cast<size_t>(n));
    return text;
}

void append_bounded(char *buffer, const char *text)
{
    size_t used = std::strlen(buffer);
    if (used >= PE_ERROR_TEXT_SIZE) return;
    std::strncat(buffer, text, PE_ERROR_TEXT_SIZE - used);
}

}  // namespace

void vln_pe::jump(pe_context *pe)
{
    throw Failure{pe};
}

void pe_clear_verbose_errors()
{
    verbose_errors = false;
}

void alg_error_fatal(pe_context *pe, const char *text)
{
    append_bounded(pe->error_text, text != nullptr ? text : "");
    append_bounded(pe->error_text, "\n");
    pe->nr_errors++;
    pe->aborted = 1;
    if (verbose_errors) std::fprintf(vln_ReturnStdErr(), "Algorithm Error: %s\n", text);
    vln_pe::jump(pe);
}

void alg_error_vprintf(pe_context *pe, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    std::string text = vformat(format, args);
    va_end(args);
    alg_error_fatal(pe, text.c_str());
}

void alg_system_error(pe_context *pe, const char *format, ...)
{
    int saved = errno;
    va_list args;
    va_start(args, format);
    std::string text = vformat(format, args);
    va_end(args);
    char buffer[PE_ERROR_TEXT_SIZE + 1];
    std::snprintf(buffer, sizeof buffer, "%s", text.c_str());
    errno = saved;
    append_system_error(buffer, PE_ERROR_TEXT_SIZE);
    alg_error_fatal(pe, buffer);
}

void alg_internal_error(pe_context *pe, const char *file, int line, const char *text)
{
    char buffer[PE_ERROR_TEXT_SIZE + 1];
    std::snprintf(buffer, sizeof buffer, "Internal Error:\nFile: %s\nLine: %d\n%s", file, line,
                  text != nullptr ? text : "");
    alg_error_fatal(pe, buffer);
}

int usercode_error_fatal(char **out, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    std::string text = vformat(format, args);
    va_end(args);
    if (out != nullptr) *out = strsave(text.c_str());
    return 1;
}

// Kept as the place where user code's error handling would be set up.
void init_usercode_error_handling(void) {}

/* ---------------------------------------------------------------- during reads */

namespace {

[[noreturn]] void read_failure(pe_context *pe, const std::string &text)
{
    // An earlier text is not freed: a caller may still hold it.
    if (pe->vds != nullptr)
        pe->vds->error_text = strsave(text.c_str());
    else {
        pe->error_text[0] = '\0';
        append_bounded(pe->error_text, text.c_str());
    }
    vln_pe::jump(pe);
}

}  // namespace

void vds_processing_error(pe_context *context, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    std::string text = vformat(format, args);
    va_end(args);
    read_failure(context, text);
}

void vds_processing_system_error(pe_context *context, const char *format, ...)
{
    int saved = errno;
    va_list args;
    va_start(args, format);
    std::string text = vformat(format, args);
    va_end(args);
    char buffer[2049];
    std::snprintf(buffer, sizeof buffer, "%s", text.c_str());
    errno = saved;
    append_system_error(buffer, 2048);
    read_failure(context, buffer);
}

void vds_abort_read(pe_context *context)
{
    vln_pe::jump(context);
}

char *vds_error_text(Vds *vds)
{
    return vds != nullptr ? vds->error_text : nullptr;
}
