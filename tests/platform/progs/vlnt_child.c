/*
 * vlnt_child: the child that the platform tests start. The first argument
 * names what it does; the rest are that mode's arguments.
 *
 *   exit N           exit with status N
 *   signal N         end by signal N
 *   args ...         print the argument count, then every argument on a line
 *   cat              copy standard input to standard output
 *   fds              print the open descriptors above 2, one per line
 *   pgid             print "PGID PID"
 *   sleep N          sleep N seconds
 *   killself         vln_kill_current_process()
 *   fatal TEXT       Fatal(TEXT) on the main thread
 *   thread_exit N    vln_thread_exit(N) on the main thread
 *   before_init      check what holds before threading starts
 *   forkfail         start a program that doesn't exist, with output pending
 *   trans_size       answer each transport request with "LENGTH:BYTESUM"
 *   trans_noreply    answer each transport request without a reply
 */
#include "vld_core.h"
#include "vln_process.h"
#include "vln_thread.h"

#include <dirent.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

static void print_fds(void)
{
    DIR *dir = opendir("/proc/self/fd");
    if (dir == NULL) exit(2);
    int own = dirfd(dir);
    struct dirent *entry;
    while ((entry = readdir(dir)) != NULL) {
        if (entry->d_name[0] == '.') continue;
        int fd = atoi(entry->d_name);
        if (fd > 2 && fd != own) printf("%d\n", fd);
    }
    closedir(dir);
}

static void at_exit_mark(void)
{
    fputs("atexit;", stdout);
}

/* Output pending in stdio and an exit handler must each show once, however
 * the failed start went. */
static int fork_fail(void)
{
    char text[256] = "";
    atexit(at_exit_mark);
    fputs("before;", stdout);
    int pid = 0;
    int out = -1;
    int rc =
        vln_forkexec(&pid, text, sizeof text, NULL, &out, NULL, "/nonexistent/vlnt_prog", NULL);
    printf("after:%d:%d:%d;%s;", rc, pid, out, text);
    return 0;
}

/* Each check that fails gives its own exit status. */
static int before_init(void)
{
    static vln_mutex lock;
    if (vln_locking_enabled()) return 10;
    vln_mutex_begin(&lock);
    int created = lock.created;
    vln_mutex_end(&lock);
    if (created) return 11;
    vln_thread_id a = {1, 1}, b = {2, 2};
    if (!vln_thread_equal(a, b)) return 12;
    if (vln_thread_init() != 1 || vln_thread_init() != 1) return 13;
    if (!vln_locking_enabled()) return 14;
    if (vln_thread_equal(a, b)) return 15;
    vln_mutex_begin(&lock);
    created = lock.created;
    vln_mutex_end(&lock);
    if (!created) return 16;
    if (vln_main_tid().tid != (uint32_t)getpid() || vln_main_tid().handle == 0) return 17;
    if (vln_thread_fini() != 1 || vln_thread_fini() != 1) return 18;
    if (vln_locking_enabled()) return 19;
    return 0;
}

static int serve(int with_reply)
{
    vln_trans *t = vln_trans_fdopen(0, 1);
    for (;;) {
        void *request = NULL;
        int length = 0;
        char reply[32] = "";
        /* The answer is fixed before the request is read, so each answer
         * describes the request before it; the first describes nothing. */
        static int last_length = 0;
        static unsigned last_sum = 0;
        snprintf(reply, sizeof reply, "%d:%u", last_length, last_sum);
        int rc =
            vln_trans_recv(t, &request, &length, with_reply ? reply : NULL, (int)strlen(reply), 30);
        if (rc != VLN_TRANS_OK) break;
        last_length = length;
        last_sum = 0;
        for (int i = 0; i < length; i++) last_sum += ((unsigned char *)request)[i];
        safe_free(request);
    }
    vln_trans_close(t);
    return 0;
}

int main(int argc, char **argv)
{
    if (argc < 2) return 2;
    const char *mode = argv[1];
    const char *arg = argc > 2 ? argv[2] : "";
    if (strcmp(mode, "exit") == 0) return atoi(arg);
    if (strcmp(mode, "signal") == 0) {
        signal(atoi(arg), SIG_DFL);
        raise(atoi(arg));
        return 3;
    }
    if (strcmp(mode, "args") == 0) {
        printf("%d\n", argc - 1);
        for (int i = 1; i < argc; i++) printf("%s\n", argv[i]);
        return 0;
    }
    if (strcmp(mode, "cat") == 0) {
        char buffer[4096];
        ssize_t n;
        while ((n = read(0, buffer, sizeof buffer)) > 0)
            if (write(1, buffer, (size_t)n) != n) return 4;
        return 0;
    }
    if (strcmp(mode, "fds") == 0) {
        print_fds();
        return 0;
    }
    if (strcmp(mode, "pgid") == 0) {
        printf("%d %d\n", (int)getpgid(0), (int)getpid());
        return 0;
    }
    if (strcmp(mode, "sleep") == 0) {
        vln_sleep(atoi(arg));
        return 0;
    }
    if (strcmp(mode, "killself") == 0) {
        vln_kill_current_process();
        return 5;
    }
    if (strcmp(mode, "fatal") == 0) Fatal(arg);
    if (strcmp(mode, "thread_exit") == 0) vln_thread_exit(atoi(arg));
    if (strcmp(mode, "before_init") == 0) return before_init();
    if (strcmp(mode, "forkfail") == 0) return fork_fail();
    if (strcmp(mode, "trans_size") == 0) return serve(1);
    if (strcmp(mode, "trans_noreply") == 0) return serve(0);
    return 2;
}
