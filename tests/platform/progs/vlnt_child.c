/*
 * vlnt_child: the child that the platform tests start. The first argument
 * names what it does; the rest are that mode's arguments.
 *
 *   exit N           exit with status N
 *   args ...         print the argument count, then every argument on a line
 *   cat              copy standard input to standard output
 *   killself         vln_kill_current_process()
 *   thread_exit N    vln_thread_exit(N) on the main thread
 */
#include "vln_process.h"
#include "vln_thread.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

int main(int argc, char **argv)
{
    if (argc < 2) return 2;
    const char *mode = argv[1];
    const int n = argc > 2 ? atoi(argv[2]) : 0;
    if (strcmp(mode, "exit") == 0) return n;
    if (strcmp(mode, "args") == 0) {
        printf("%d\n", argc - 1);
        for (int i = 1; i < argc; i++) printf("%s\n", argv[i]);
        return 0;
    }
    if (strcmp(mode, "cat") == 0) {
        char buffer[4096];
        ssize_t got;
        while ((got = read(0, buffer, sizeof buffer)) > 0)
            if (write(1, buffer, (size_t)got) != got) return 4;
        return 0;
    }
    if (strcmp(mode, "killself") == 0) vln_kill_current_process();
    if (strcmp(mode, "thread_exit") == 0) vln_thread_exit(n);
    return 2;
}
