/*
 * gdt_error.cpp: the engine's message channel.
 *
 * Every failure of the engine is told to one installed handler as a chain of
 * messages, "C<level>:<text>": C the class (P programming, S system or data,
 * U user), the levels running 1, 2, ... and the last of a chain being 3. A
 * caller that passes level 0 continues the current chain. With no handler
 * the engine is silent.
 */
#include <cstdarg>
#include <cstdio>

#include "gdt_internal.h"

namespace {

gdt_error_handler handler = nullptr;
int last_level = 3;
char last[512] = "";

}  // namespace

int gdt_install_error(gdt_error_handler h)
{
    handler = h;
    return 0;
}

/* Kept for callers written in Fortran: the handler is called as the other. */
int gdt_install_error_f(gdt_error_handler h)
{
    handler = h;
    return 0;
}

void gdt_combine_error(int cls, int level, const char *text)
{
    if (level == 0) level = last_level == 3 ? 1 : 2;
    last_level = level;
    std::snprintf(last, sizeof last, "%s", text ? text : "");
    if (!handler) return;
    char letter = cls == 'P' || cls == 'S' || cls == 'U' ? static_cast<char>(cls) : ' ';
    char message[600];
    std::snprintf(message, sizeof message, "%c%d:%s", letter, level, text ? text : "");
    handler(message);
}

void gdt::report(char cls, int level, const char *text)
{
    gdt_combine_error(cls, level, text);
}

void gdt::reportf(char cls, int level, const char *format, ...)
{
    char text[512];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    gdt_combine_error(cls, level, text);
}

const char *gdt::last_text()
{
    return last;
}
