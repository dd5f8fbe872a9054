/*
 * vln_streams.cpp: the library's standard streams.
 *
 * Every module writes to these and never to the process's own streams, so that
 * an application can redirect the library's output as a whole.
 */
#include "vld_core.h"

#include <atomic>

namespace {

std::atomic<FILE *> lib_stdin{nullptr};
std::atomic<FILE *> lib_stdout{nullptr};
std::atomic<FILE *> lib_stderr{nullptr};

FILE *stream_or(std::atomic<FILE *> &slot, FILE *fallback)
{
    FILE *s = slot.load();
    return s != nullptr ? s : fallback;
}

}  // namespace

FILE *vln_ReturnStdIn(void)
{
    return stream_or(lib_stdin, stdin);
}
FILE *vln_ReturnStdOut(void)
{
    return stream_or(lib_stdout, stdout);
}
FILE *vln_ReturnStdErr(void)
{
    return stream_or(lib_stderr, stderr);
}

void vln_SetStdIn(FILE *stream)
{
    lib_stdin.store(stream);
}
void vln_SetStdOut(FILE *stream)
{
    lib_stdout.store(stream);
}
void vln_SetStdErr(FILE *stream)
{
    lib_stderr.store(stream);
}
