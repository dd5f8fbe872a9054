/*
 * vld_debug.cpp: debug output.
 *
 * dbprintf writes to the process's standard error with the program's name;
 * vln_dbugprintf to the library's error stream; VLN_debug_log_printf appends to
 * the file that VLN_DEBUG_LOGFILE names, when it names one.
 */
#include "vld_core.h"

#include <cstdarg>
#include <cstdlib>

int vln_global_debug = 0;

namespace {

const char *progname = nullptr;

}  // namespace

void init_dbprintf_progname(const char *name)
{
    if (name != nullptr) progname = name;
}

int dbprintf(const char *format, ...)
{
    char buffer[2048];
    va_list args;
    va_start(args, format);
    buffer[0] = '\0';
    if (format != nullptr) vsnprintf(buffer, sizeof buffer, format, args);
    va_end(args);
    if (progname != nullptr) return fprintf(stderr, "%s: %s", progname, buffer);
    return fprintf(stderr, "%s", buffer);
}

int vln_dbugprintf(const char *format, ...)
{
    static char buffer[4096];
    va_list args;
    va_start(args, format);
    buffer[0] = '\0';
    if (format != nullptr) vsnprintf(buffer, sizeof buffer, format, args);
    va_end(args);
    return fputs(buffer, vln_ReturnStdErr());
}

void VLN_debug_log_printf(const char *format, ...)
{
    const char *name = getenv("VLN_DEBUG_LOGFILE");
    if (name == nullptr || *name == '\0' || format == nullptr) return;
    FILE *log = fopen(name, "a");
    if (log == nullptr) return;
    va_list args;
    va_start(args, format);
    vfprintf(log, format, args);
    va_end(args);
    fputs("\r\n", log);
    fclose(log);
}

int vln_printf(const char *format, ...)
{
    if (format == nullptr) return 0;
    va_list args;
    va_start(args, format);
    vfprintf(vln_ReturnStdOut(), format, args);
    va_end(args);
    return 0;
}
