// Starting children, their descriptors, waiting, reports, link programs.
#include "vln_process.h"
#include "vln_thread.h"
#include "capture.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace {

const std::string child_prog = VORLAN_TEST_PROGS_DIR "/vlnt_child";
const char *const child = child_prog.c_str();

// Reads until end of file, giving up after 30 seconds without data.
std::string read_all(int fd)
{
    std::string out;
    char buffer[4096];
    for (pollfd p = {fd, POLLIN, 0}; poll(&p, 1, 30000) > 0;) {
        ssize_t n = read(fd, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        out.append(buffer, static_cast<size_t>(n));
    }
    return out;
}

int open_fd_count()
{
    int n = 0;
    DIR *dir = opendir("/proc/self/fd");
    while (dirent *e = readdir(dir)) n += e->d_name[0] != '.';
    closedir(dir);
    return n;
}

// Starts the test child; `in` and `out` are as vln_forkexec takes them.
int start(const char *mode, const char *arg, int *in = nullptr, int *out = nullptr)
{
    int pid = -1;
    char text[256] = "";
    EXPECT_EQ(vln_forkexec(&pid, text, sizeof text, in, out, nullptr, child, mode, arg, nullptr), 0)
        << text;
    return pid;
}

bool has_fd(int pid, int fd)
{
    struct stat st;
    std::string path = "/proc/" + std::to_string(pid) + "/fd/" + std::to_string(fd);
    return lstat(path.c_str(), &st) == 0;
}

class ProcessTest : public ::testing::Test {
   protected:
    void SetUp() override { fds_before_ = open_fd_count(); }
    // Nothing that a test started may leave a descriptor open.
    void TearDown() override { EXPECT_EQ(open_fd_count(), fds_before_); }
    int fds_before_ = 0;
};

/* ---------------------------------------------------------------- how children end */

// Waiting gives the exit status or the signal; vln_run_cmd waits and explains.
TEST_F(ProcessTest, WaitReportsHowTheChildEnded)
{
    struct Case {
        const char *mode, *arg;
        int code;
        std::string text;
    } cases[] = {
        {"exit", "0", 0, ""},
        {"exit", "42", 42, child_prog + " exited with status 42"},
        {"thread_exit", "4", 4, child_prog + " exited with status 4"},
        {"killself", nullptr, SIGKILL, child_prog + " terminated by signal: 9"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(VLN_waitpid(start(c.mode, c.arg), -1), c.code) << c.mode;
        char text[256] = "";
        EXPECT_EQ(vln_run_cmd(text, sizeof text, child, c.mode, c.arg, nullptr), c.code ? -1 : 0);
        EXPECT_EQ(text, c.text);
    }
    char text[256] = "";
    EXPECT_EQ(vln_run_cmd(text, sizeof text, "/nonexistent/prog", nullptr), -1);
    EXPECT_STREQ(text, "exec() failed on /nonexistent/prog");
    EXPECT_EQ(vln_system(nullptr), 1);
    int status = vln_system("exit 7");
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 7) << status;
}

// A child blocked on its input outlasts a timed wait, until it is killed.
// Started in a new group it leads that group; otherwise it stays in ours.
TEST_F(ProcessTest, RunningChildIsWaitedForAndKilled)
{
    for (auto starter : {vln_forkexecvp_hidden, vln_forkexecvp_newgroup}) {
        char *argv[] = {const_cast<char *>(child), const_cast<char *>("cat"), nullptr};
        int pid = -1, in = -1, status = 0;
        char text[256] = "";
        ASSERT_EQ(starter(&pid, text, sizeof text, &in, nullptr, nullptr, child, argv), 0) << text;
        EXPECT_EQ(getpgid(pid), starter == vln_forkexecvp_newgroup ? pid : getpgid(0));
        EXPECT_EQ(child_done(pid, &status), 0);
        EXPECT_EQ(VLN_waitpid(pid, 50), VLN_STILL_ACTIVE);
        EXPECT_EQ(vln_kill(pid, SIGTERM), 0);
        EXPECT_EQ(VLN_waitpid(pid, -1), SIGTERM);
        EXPECT_EQ(VLN_waitpid(pid, 0), -1);  // already reaped
        EXPECT_EQ(child_done(pid, &status), -1);
        close(in);
    }
    // Neither our own group nor every process may be signalled.
    EXPECT_EQ(vln_kill(0, 0), -1);
    EXPECT_EQ(vln_kill(-1, 0), -1);
}

TEST(ChildReportTest, StatusesBecomeMessages)
{
    struct Case {
        const char *name;
        int status;
        const char *text, *expected;
        int result;
    } cases[] = {
        {"ps", 0, "ok", "ps exited with status: 0\nok", 0},
        {"ps", 3 << 8, nullptr, "ps exited with status: 3\n", 1},
        {nullptr, 3 << 8, "tail", "Child process exited with status: 3\ntail", 1},
        {"gs", SIGSEGV, "", "gs terminated by signal: 11\n", 1},
        {"gs", 0x137f, "", "gs exited with unknown exit code: 4991\n", 1},  // stopped
    };
    for (const auto &c : cases) {
        char buffer[256];
        EXPECT_EQ(report_child_error2(buffer, sizeof buffer, c.name, c.status, c.text), c.result);
        EXPECT_STREQ(buffer, c.expected);
        EXPECT_EQ(Owned(PE_report_child_error2(c.name, c.status, c.text)).str(), c.expected);
    }
    char small[8];
    report_child_error2(small, sizeof small, "a long name", 0, "");
    EXPECT_STREQ(small, "a long ");
}

/* ---------------------------------------------------------------- descriptors */

// A descriptor of -1 becomes a new pipe whose far end comes back; a given one
// is used as it is, for input and output alike. The parent's ends of one
// child's pipes must not reach the next child, or the first would never see
// the end of its input.
TEST_F(ProcessTest, ChildrenGetNewPipesOrGivenDescriptors)
{
    int in_a = -1, out_a = -1;
    int pid_a = start("cat", nullptr, &in_a, &out_a);

    int sv[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sv), 0);
    int in_b = sv[1], out_b = sv[1];
    int pid_b = start("cat", nullptr, &in_b, &out_b);
    EXPECT_EQ(in_b, sv[1]);
    EXPECT_EQ(out_b, sv[1]);
    close(sv[1]);
    char echo[4];
    ASSERT_EQ(write(sv[0], "ping", 4), 4);
    ASSERT_EQ(recv(sv[0], echo, 4, MSG_WAITALL), 4);  // the child is past its start-up
    EXPECT_TRUE(has_fd(pid_b, 0));
    EXPECT_FALSE(has_fd(pid_b, in_a));
    EXPECT_FALSE(has_fd(pid_b, out_a));
    shutdown(sv[0], SHUT_WR);
    EXPECT_EQ(std::string(echo, 4) + read_all(sv[0]), "ping");
    close(sv[0]);
    EXPECT_EQ(VLN_waitpid(pid_b, -1), 0);

    ASSERT_EQ(write(in_a, "hello\n", 6), 6);
    close(in_a);
    EXPECT_EQ(read_all(out_a), "hello\n");
    close(out_a);
    EXPECT_EQ(VLN_waitpid(pid_a, -1), 0);
}

/* ---------------------------------------------------------------- failures to start */

// A child whose exec fails leaves without flushing the stdio buffers it shares
// with us: our pending output reaches the file once.
TEST_F(ProcessTest, FailuresToStartComeBackAsText)
{
    FILE *pending = tmpfile();
    fputs("pending", pending);
    int pid = 12345, in = -1, out = -1;
    char text[256] = "";
    EXPECT_EQ(
        vln_forkexec(&pid, text, sizeof text, &in, &out, nullptr, "/nonexistent/prog", nullptr),
        -1);
    EXPECT_STREQ(text, "exec() failed on /nonexistent/prog");
    EXPECT_EQ(pid, -1);
    EXPECT_EQ(in, -1);
    EXPECT_EQ(out, -1);
    fflush(pending);
    struct stat st;
    EXPECT_EQ(fstat(fileno(pending), &st) == 0 ? st.st_size : -1, 7);
    fclose(pending);

    int bad = 1000;  // not open
    ASSERT_EQ(fcntl(bad, F_GETFD), -1);
    EXPECT_EQ(
        vln_forkexec(&pid, text, sizeof text, &bad, nullptr, nullptr, child, "exit", "0", nullptr),
        -1);
    std::string expected = "dup2(1000, 0) for process (" + child_prog + ") failed.\n";
    EXPECT_EQ(std::string(text).substr(0, expected.size()), expected);
    EXPECT_NE(std::string(text).find("Last system error"), std::string::npos);
    EXPECT_EQ(vln_forkexecvp(&pid, nullptr, 0, nullptr, nullptr, nullptr, nullptr, nullptr), -1);
}

// Copies of one argument, for lists longer than the starters take.
#define X3(...) __VA_ARGS__, __VA_ARGS__, __VA_ARGS__
#define X9(...) X3(X3(__VA_ARGS__))
#define X10(...) __VA_ARGS__, X9(__VA_ARGS__)
#define X11(...) __VA_ARGS__, X10(__VA_ARGS__)

// The program and 99 arguments fill the vector of 100; one more fails, naming
// the count. (The child takes the first argument for its mode.)
TEST_F(ProcessTest, ArgumentCountIsBounded)
{
    char text[256] = "";
    int pid = -1, out = -1;
    ASSERT_EQ(vln_forkexec(&pid, text, sizeof text, nullptr, &out, nullptr, child, X9(X11("args")),
                           nullptr),
              0)
        << text;
    EXPECT_EQ(read_all(out).substr(0, 3), "99\n");
    close(out);
    EXPECT_EQ(VLN_waitpid(pid, -1), 0);
    EXPECT_EQ(vln_run_cmd(text, sizeof text, child, X9(X11("exit")), nullptr), 0) << text;
    EXPECT_EQ(vln_forkexec(&pid, text, sizeof text, nullptr, &out, nullptr, child, X10(X10("args")),
                           nullptr),
              -1);
    EXPECT_STREQ(text, "Too many arguments (100) in vln_forkexec()");
    EXPECT_EQ(vln_run_cmd(text, sizeof text, child, X10(X10("exit")), nullptr), -1);
    EXPECT_STREQ(text, "Too many arguments (100) in vln_run_cmd()");
}

/* ---------------------------------------------------------------- link programs */

TEST_F(ProcessTest, LinkProgramGetsItsFixedArgumentList)
{
    vln_linkprog_args args = {
        "args", 0, 0.1, 1.5, -2.0, 1e300, 123456789.125, {640, -1}, {72.0, 1.0 / 3}, "a file.vlv"};
    for (auto [type, word] : {std::pair{2, "EN"}, {3, "LL"}, {1, "RAW"}}) {
        args.coordsystype = type;
        int pid = -1, out = -1;
        char text[256] = "";
        ASSERT_EQ(forkexec_linkprog(&pid, text, sizeof text, nullptr, &out, nullptr, child, &args),
                  0)
            << text;
        EXPECT_EQ(read_all(out),
                  std::string("12\nargs\n") + word +
                      "\n0.10000000000000001\n1.5\n-2\n1.0000000000000001E+300\n"
                      "123456789.125\n640\n-1\n72\n0.33333333333333331\na file.vlv\n");
        close(out);
        EXPECT_EQ(VLN_waitpid(pid, -1), 0);
    }
}

TEST(ProcessLinkTest, ParameterTextsSplitInTwo)
{
    struct Case {
        const char *text;
        int result;
        const char *first, *second;
    } cases[] = {
        {"\"file=a b.vlv\" \"colour red\"", 0, "file=a b.vlv", "colour red"},
        {"x\"\"y\"two\"", 0, "", "two"},
        {"vlnps_vlvec  -x 1 2  ", 0, "vlnps_vlvec", "-x 1 2"},
        {"\"only one\"", 160, nullptr, nullptr},
        {"\"unclosed", 160, nullptr, nullptr},
        {"single", 160, nullptr, nullptr},
        {"   ", 160, nullptr, nullptr},
        {nullptr, 160, nullptr, nullptr},
    };
    for (const auto &c : cases) {
        char *first = reinterpret_cast<char *>(1);
        char *second = reinterpret_cast<char *>(1);
        EXPECT_EQ(VLD_dlink_separate_arguments(c.text, &first, &second), c.result)
            << (c.text ? c.text : "(null)");
        Owned a(first), b(second);
        EXPECT_EQ(a.str(), c.first ? c.first : "<null>");
        EXPECT_EQ(b.str(), c.second ? c.second : "<null>");
        EXPECT_TRUE(c.result == 0 || VLD_error.code == 160);
    }
}

}  // namespace
