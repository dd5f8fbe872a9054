/*
 * vln_process.cpp: starting child processes, waiting for them, and turning
 * how they ended into messages.
 *
 * A child is started by fork and execvp. Between the two, the child runs only
 * async-signal-safe calls, and leaves by _exit(127) when something fails, so
 * that it never runs the parent's exit handlers or flushes the parent's stdio
 * buffers a second time. It reports such a failure to the parent through a
 * close-on-exec "status" pipe: the parent reads end-of-file when the exec
 * succeeded, and a small record (what failed, errno, the descriptors) when it
 * didn't. So a program that can't be run is an error of the call, not a child
 * that exits with 127.
 *
 * Every pipe made here is close-on-exec on both ends; the child's ends become
 * inheritable only as its standard descriptors. Children are started under
 * csect, so that two threads don't interleave their pipes and forks.
 */
#include "vln_process.h"
#include "vln_thread.h"

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// What a child that failed before its program ran tells the parent.
struct ChildReport {
    int32_t stage;
    int32_t error;
    int32_t from;
    int32_t to;
};

enum { STAGE_DUP2 = 1, STAGE_EXEC = 2, STAGE_GROUP = 3 };

void put_text(char *errtext, int errsize, const char *format, ...) VLD_PRINTF(3, 4);

void put_text(char *errtext, int errsize, const char *format, ...)
{
    if (errtext == nullptr || errsize <= 0) return;
    va_list args;
    va_start(args, format);
    vsnprintf(errtext, static_cast<size_t>(errsize), format, args);
    va_end(args);
}

void close_fd(int &fd)
{
    if (fd >= 0) close(fd);
    fd = -1;
}

// Holds off the cancellation of the calling thread for a scope.
class CancelGuard {
   public:
    CancelGuard() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &old_); }
    ~CancelGuard() { pthread_setcancelstate(old_, nullptr); }
    CancelGuard(const CancelGuard &) = delete;
    CancelGuard &operator=(const CancelGuard &) = delete;

   private:
    int old_ = 0;
};

/* ---------------------------------------------------------------- the child's side */

[[noreturn]] void child_fail(int status_fd, int stage, int error, int from, int to)
{
    ChildReport report = {stage, error, from, to};
    ssize_t written;
    do {
        written = write(status_fd, &report, sizeof report);
    } while (written < 0 && errno == EINTR);
    _exit(127);
}

// Runs in the child between fork and exec: async-signal-safe calls only.
[[noreturn]] void run_child(int status_fd, const int child_end[3], const char *program,
                            char *const argv[], bool newgroup)
{
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    if (newgroup && setpgid(0, 0) != 0) child_fail(status_fd, STAGE_GROUP, errno, 0, 0);
    // A source that sits on another standard descriptor moves out of the way
    // first, so that no dup2 overwrites a source still to be used.
    int source[3];
    for (int i = 0; i < 3; i++) {
        source[i] = child_end[i];
        if (source[i] >= 0 && source[i] < 3 && source[i] != i) {
            source[i] = fcntl(child_end[i], F_DUPFD_CLOEXEC, 3);
            if (source[i] < 0) child_fail(status_fd, STAGE_DUP2, errno, child_end[i], i);
        }
    }
    for (int i = 0; i < 3; i++) {
        if (child_end[i] == -1) continue;
        if (source[i] == i) {
            int flags = fcntl(i, F_GETFD);
            if (flags < 0 || fcntl(i, F_SETFD, flags & ~FD_CLOEXEC) < 0)
                child_fail(status_fd, STAGE_DUP2, errno, child_end[i], i);
        } else if (dup2(source[i], i) < 0) {
            child_fail(status_fd, STAGE_DUP2, errno, child_end[i], i);
        }
    }
    execvp(program, argv);
    child_fail(status_fd, STAGE_EXEC, errno, 0, 0);
}

/* ---------------------------------------------------------------- the parent's side */

// A close-on-exec pipe whose ends are above the standard descriptors, so that
// the child's dup2 calls can't land on them.
bool status_pipe(int fds[2])
{
    if (pipe2(fds, O_CLOEXEC) != 0) return false;
    for (int i = 0; i < 2; i++) {
        if (fds[i] >= 3) continue;
        int moved = fcntl(fds[i], F_DUPFD_CLOEXEC, 3);
        close(fds[i]);
        fds[i] = moved;
    }
    if (fds[0] >= 0 && fds[1] >= 0) return true;
    close_fd(fds[0]);
    close_fd(fds[1]);
    return false;
}

ssize_t read_report(int fd, ChildReport *report)
{
    size_t got = 0;
    auto *p = reinterpret_cast<char *>(report);
    while (got < sizeof *report) {
        ssize_t n = read(fd, p + got, sizeof *report - got);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        got += static_cast<size_t>(n);
    }
    return static_cast<ssize_t>(got);
}

int wait_blocking(int pid, int *status)
{
    int r;
    do {
        r = waitpid(pid, status, 0);
    } while (r < 0 && errno == EINTR);
    return r;
}

// The core of every start: makes the pipes, forks, execs, and reports.
int start_child(int *pid, char *errtext, int errsize, int *fds[3], const char *program,
                char *const argv[], bool newgroup)
{
    if (pid != nullptr) *pid = -1;
    if (errtext != nullptr && errsize > 0) errtext[0] = '\0';
    if (program == nullptr || program[0] == '\0') {
        put_text(errtext, errsize, "exec() failed on %s", program != nullptr ? program : "(null)");
        return -1;
    }
    char *alone[2] = {const_cast<char *>(program), nullptr};
    if (argv == nullptr) argv = alone;

    // No cancellation while csect is held and descriptors are in flight.
    CancelGuard no_cancel;
    int child_end[3] = {-1, -1, -1};
    int parent_end[3] = {-1, -1, -1};
    bool made[3] = {false, false, false};
    vln_mutex_begin(&csect);
    for (int i = 0; i < 3; i++) {
        if (fds[i] == nullptr) continue;
        if (*fds[i] != -1) {
            child_end[i] = *fds[i];
            continue;
        }
        int p[2];
        if (pipe2(p, O_CLOEXEC) != 0) {
            int error = errno;
            FILE *err = vln_ReturnStdErr();
            fputs("pipe() failed. closing pipes\n", err);
            for (int j = 0; j < i; j++) {
                if (!made[j]) continue;
                close_fd(child_end[j]);
                close_fd(parent_end[j]);
            }
            fprintf(err, "pipe() (for %d) failed\n", i);
            fflush(err);
            vln_mutex_end(&csect);
            put_text(errtext, errsize, "pipe() (for %d) failed\n", i);
            errno = error;
            append_system_error(errtext, errsize);
            return -1;
        }
        made[i] = true;
        child_end[i] = i == 0 ? p[0] : p[1];
        parent_end[i] = i == 0 ? p[1] : p[0];
    }

    auto close_made = [&]() {
        for (int i = 0; i < 3; i++) {
            if (!made[i]) continue;
            close_fd(child_end[i]);
            close_fd(parent_end[i]);
        }
    };
    int status[2] = {-1, -1};
    int child = -1;
    if (status_pipe(status)) child = fork();
    if (child < 0) {
        close_fd(status[0]);
        close_fd(status[1]);
        close_made();
        vln_mutex_end(&csect);
        put_text(errtext, errsize, "fork() failed on %s", program);
        return -1;
    }
    if (child == 0) run_child(status[1], child_end, program, argv, newgroup);

    if (newgroup) setpgid(child, child);  // either side may win; both ask the same
    close_fd(status[1]);
    for (int i = 0; i < 3; i++)
        if (made[i]) close_fd(child_end[i]);
    ChildReport report = {};
    ssize_t got = read_report(status[0], &report);
    close_fd(status[0]);
    vln_mutex_end(&csect);

    if (got == static_cast<ssize_t>(sizeof report)) {
        wait_blocking(child, nullptr);
        close_made();
        if (report.stage == STAGE_DUP2) {
            put_text(errtext, errsize, "dup2(%d, %d) for process (%s) failed.\n", report.from,
                     report.to, program);
            errno = report.error;
            append_system_error(errtext, errsize);
        } else {
            put_text(errtext, errsize, "exec() failed on %s", program);
        }
        return -1;
    }
    for (int i = 0; i < 3; i++)
        if (made[i]) *fds[i] = parent_end[i];
    if (pid != nullptr) *pid = child;
    return 0;
}

// Gathers the null-terminated arguments behind `program` into argv (program
// first). Returns how many arguments there were, all of them counted even
// when they don't fit.
int gather_args(const char *program, va_list args, char *argv[VLN_MAX_ARGS + 1])
{
    int count = 0;
    argv[0] = const_cast<char *>(program);
    for (const char *arg = va_arg(args, const char *); arg != nullptr;
         arg = va_arg(args, const char *)) {
        if (count + 1 < VLN_MAX_ARGS) argv[count + 1] = const_cast<char *>(arg);
        count++;
    }
    argv[count + 1 < VLN_MAX_ARGS ? count + 1 : VLN_MAX_ARGS] = nullptr;
    return count;
}

int exit_code(int status)
{
    if (WIFEXITED(status)) return WEXITSTATUS(status);
    if (WIFSIGNALED(status)) return WTERMSIG(status);
    return status;
}

int64_t now_ms()
{
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

// The message of report_child_error2, into a buffer.
int format_child_status(char *buffer, int size, const char *name, int status, const char *text)
{
    if (name == nullptr) name = "Child process";
    if (text == nullptr) text = "";
    if (WIFEXITED(status)) {
        put_text(buffer, size, "%s exited with status: %d\n%s", name, WEXITSTATUS(status), text);
        return WEXITSTATUS(status) == 0 ? 0 : 1;
    }
    if (WIFSIGNALED(status))
        put_text(buffer, size, "%s terminated by signal: %d\n%s", name, WTERMSIG(status), text);
    else
        put_text(buffer, size, "%s exited with unknown exit code: %d\n%s", name, status, text);
    return 1;
}

}  // namespace

/* ---------------------------------------------------------------- starting */

int vln_forkexecvp(int *pid, char *errtext, int errsize, int *in_fd, int *out_fd, int *err_fd,
                   const char *program, char *const argv[])
{
    int *fds[3] = {in_fd, out_fd, err_fd};
    return start_child(pid, errtext, errsize, fds, program, argv, false);
}

int vln_forkexecvp_hidden(int *pid, char *errtext, int errsize, int *in_fd, int *out_fd,
                          int *err_fd, const char *program, char *const argv[])
{
    return vln_forkexecvp(pid, errtext, errsize, in_fd, out_fd, err_fd, program, argv);
}

int vln_forkexecvp_newgroup(int *pid, char *errtext, int errsize, int *in_fd, int *out_fd,
                            int *err_fd, const char *program, char *const argv[])
{
    int *fds[3] = {in_fd, out_fd, err_fd};
    return start_child(pid, errtext, errsize, fds, program, argv, true);
}

int vln_forkexec(int *pid, char *errtext, int errsize, int *in_fd, int *out_fd, int *err_fd,
                 const char *program, ...)
{
    char *argv[VLN_MAX_ARGS + 1];
    va_list args;
    va_start(args, program);
    int count = gather_args(program, args, argv);
    va_end(args);
    if (count >= VLN_MAX_ARGS) {
        if (pid != nullptr) *pid = -1;
        put_text(errtext, errsize, "Too many arguments (%d) in vln_forkexec()", count);
        return -1;
    }
    return vln_forkexecvp(pid, errtext, errsize, in_fd, out_fd, err_fd, program, argv);
}

/* ---------------------------------------------------------------- waiting */

int child_done(int pid, int *status)
{
    if (pid <= 0) return -1;
    int st = 0;
    int r;
    do {
        r = waitpid(pid, &st, WNOHANG);
    } while (r < 0 && errno == EINTR);
    if (r < 0) return -1;
    if (r == 0) return 0;
    if (status != nullptr) *status = st;
    return 1;
}

int VLN_waitpid(int pid, int milliseconds)
{
    if (pid <= 0) return -1;
    int status = 0;
    if (milliseconds < 0) return wait_blocking(pid, &status) == pid ? exit_code(status) : -1;
    const int64_t deadline = now_ms() + milliseconds;
    for (;;) {
        int done = child_done(pid, &status);
        if (done < 0) return -1;
        if (done > 0) return exit_code(status);
        if (now_ms() >= deadline) return VLN_STILL_ACTIVE;
        vln_usleep(10000);
    }
}

int report_child_error2(char *buffer, int size, const char *name, int status, const char *text)
{
    return format_child_status(buffer, size, name, status, text);
}

char *PE_report_child_error2(const char *name, int status, const char *text)
{
    if (name == nullptr) name = "Child process";
    if (text == nullptr) text = "";
    int size = static_cast<int>(strlen(name) + strlen(text)) + 64;
    auto *buffer = static_cast<char *>(malloc_or_die(static_cast<size_t>(size)));
    format_child_status(buffer, size, name, status, text);
    return buffer;
}

/* ---------------------------------------------------------------- running, killing */

int vln_run_cmd(char *errtext, int errsize, const char *program, ...)
{
    char *argv[VLN_MAX_ARGS + 1];
    va_list args;
    va_start(args, program);
    int count = gather_args(program, args, argv);
    va_end(args);
    if (count >= VLN_MAX_ARGS) {
        put_text(errtext, errsize, "Too many arguments (%d) in vln_run_cmd()", count);
        return -1;
    }
    int pid = -1;
    int *fds[3] = {nullptr, nullptr, nullptr};
    if (start_child(&pid, errtext, errsize, fds, program, argv, false) != 0) return -1;
    int status = 0;
    if (wait_blocking(pid, &status) != pid) {
        put_text(errtext, errsize, "waitpid() failed in vln_run_cmd()");
        return -1;
    }
    if (WIFEXITED(status)) {
        if (WEXITSTATUS(status) == 0) return 0;
        put_text(errtext, errsize, "%s exited with status %d", program, WEXITSTATUS(status));
    } else if (WIFSIGNALED(status)) {
        put_text(errtext, errsize, "%s terminated by signal: %d", program, WTERMSIG(status));
    } else {
        put_text(errtext, errsize, "%s exited with unknown status: %d", program, status);
    }
    return -1;
}

int vln_kill(int pid, int signo)
{
    if (pid <= 0) {
        errno = EINVAL;
        return -1;
    }
    return kill(pid, signo) == 0 ? 0 : -1;
}

void vln_kill_current_process(void)
{
    kill(getpid(), SIGKILL);
    _exit(128 + SIGKILL);
}

int vln_system(const char *command)
{
    if (command == nullptr) return access("/bin/sh", X_OK) == 0 ? 1 : 0;
    char *argv[] = {const_cast<char *>("sh"), const_cast<char *>("-c"), const_cast<char *>(command),
                    nullptr};
    int pid = -1;
    int *fds[3] = {nullptr, nullptr, nullptr};
    if (start_child(&pid, nullptr, 0, fds, "/bin/sh", argv, false) != 0) return -1;
    int status = 0;
    return wait_blocking(pid, &status) == pid ? status : -1;
}
