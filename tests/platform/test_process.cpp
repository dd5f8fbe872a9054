// Starting children, their descriptors, waiting, reports, link programs.
#include "vln_process.h"
#include "vln_thread.h"
#include "vlnt_util.h"

#include <gtest/gtest.h>

#include <array>
#include <csignal>
#include <dirent.h>
#include <fcntl.h>
#include <string>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

using vlnt::read_all;

const std::string child_prog = VORLAN_TEST_PROGS_DIR "/vlnt_child";
const char *const child = child_prog.c_str();

int open_fd_count()
{
    int n = 0;
    DIR *dir = opendir("/proc/self/fd");
    while (dirent *e = readdir(dir))
        if (e->d_name[0] != '.') n++;
    closedir(dir);
    return n;
}

// Runs the test child with the given arguments, its output on a pipe; returns
// the output and sets the exit code that VLN_waitpid reports.
std::string run_child(const std::vector<std::string> &args, int *code)
{
    std::vector<char *> argv = {const_cast<char *>(child)};
    for (const auto &a : args) argv.push_back(const_cast<char *>(a.c_str()));
    argv.push_back(nullptr);
    int pid = -1, out = -1;
    char text[512] = "";
    EXPECT_EQ(vln_forkexecvp(&pid, text, sizeof text, nullptr, &out, nullptr, child, argv.data()),
              0)
        << text;
    std::string output = read_all(out);
    close(out);
    *code = VLN_waitpid(pid, -1);
    return output;
}

class ProcessTest : public ::testing::Test {
   protected:
    void SetUp() override { fds_before_ = open_fd_count(); }
    // Nothing that a test started may leave a descriptor open.
    void TearDown() override { EXPECT_EQ(open_fd_count(), fds_before_); }
    int fds_before_ = 0;
};

using ChildTest = ProcessTest;

/* ---------------------------------------------------------------- how children end */

TEST_F(ChildTest, WaitReportsHowTheChildEnded)
{
    struct Case {
        std::vector<std::string> args;
        int code;
    } cases[] = {
        {{"exit", "0"}, 0},      {{"exit", "42"}, 42},      {{"signal", "9"}, 9},
        {{"killself"}, SIGKILL}, {{"thread_exit", "4"}, 4}, {{"fatal", "no way"}, 1},
        {{"before_init"}, 0},
    };
    for (const auto &c : cases) {
        int code = -1;
        run_child(c.args, &code);
        EXPECT_EQ(code, c.code) << c.args[0];
    }
}

TEST_F(ChildTest, WaitTimesOutOnARunningChildAndKillEndsIt)
{
    int pid = -1;
    char text[256] = "";
    ASSERT_EQ(vln_forkexec(&pid, text, sizeof text, nullptr, nullptr, nullptr, child, "sleep", "60",
                           nullptr),
              0);
    int status = 0;
    EXPECT_EQ(child_done(pid, &status), 0);
    EXPECT_EQ(VLN_waitpid(pid, 50), VLN_STILL_ACTIVE);
    EXPECT_EQ(vln_kill(pid, SIGTERM), 0);
    EXPECT_EQ(VLN_waitpid(pid, -1), SIGTERM);
    EXPECT_EQ(VLN_waitpid(pid, 0), -1);  // already reaped
    EXPECT_EQ(child_done(pid, &status), -1);
}

TEST_F(ChildTest, KillRefusesGroupsAndEveryone)
{
    EXPECT_EQ(vln_kill(0, 0), -1);
    EXPECT_EQ(vln_kill(-1, 0), -1);
    EXPECT_EQ(vln_kill(getpid(), 0), 0);
}

TEST(ChildReportTest, StatusesBecomeMessages)
{
    struct Case {
        const char *name;
        int status;
        const char *text;
        const char *expected;
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
        char *made = PE_report_child_error2(c.name, c.status, c.text);
        EXPECT_STREQ(made, c.expected);
        safe_free(made);
    }
    char small[8];
    report_child_error2(small, sizeof small, "a long name", 0, "");
    EXPECT_STREQ(small, "a long ");
}

/* ---------------------------------------------------------------- descriptors */

TEST_F(ProcessTest, NewPipesGiveTheParentItsEnds)
{
    int pid = -1, in = -1, out = -1;
    char text[256] = "";
    ASSERT_EQ(vln_forkexec(&pid, text, sizeof text, &in, &out, nullptr, child, "cat", nullptr), 0)
        << text;
    ASSERT_GE(in, 0);
    ASSERT_GE(out, 0);
    ASSERT_EQ(write(in, "hello\n", 6), 6);
    close(in);
    EXPECT_EQ(read_all(out), "hello\n");
    close(out);
    EXPECT_EQ(VLN_waitpid(pid, -1), 0);
}

TEST_F(ProcessTest, GivenDescriptorsAreUsedAsGiven)
{
    // One socket as both input and output of the child.
    int sv[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sv), 0);
    int pid = -1, in = sv[1], out = sv[1];
    char text[256] = "";
    ASSERT_EQ(vln_forkexec(&pid, text, sizeof text, &in, &out, nullptr, child, "cat", nullptr), 0)
        << text;
    EXPECT_EQ(in, sv[1]);
    EXPECT_EQ(out, sv[1]);
    close(sv[1]);
    ASSERT_EQ(write(sv[0], "ping", 4), 4);
    shutdown(sv[0], SHUT_WR);
    EXPECT_EQ(read_all(sv[0]), "ping");
    close(sv[0]);
    EXPECT_EQ(VLN_waitpid(pid, -1), 0);
}

// The parent ends of one child's pipes must not leak into the next child, or
// the first would never see the end of its input.
TEST_F(ProcessTest, ChildrenDoNotInheritOtherChildrensPipes)
{
    int pid_a = -1, in_a = -1, out_a = -1;
    char text[256] = "";
    ASSERT_EQ(
        vln_forkexec(&pid_a, text, sizeof text, &in_a, &out_a, nullptr, child, "cat", nullptr), 0);
    int code = -1;
    std::string listed = run_child({"fds"}, &code);
    EXPECT_EQ(code, 0);
    for (int fd : {in_a, out_a})
        EXPECT_EQ(listed.find(std::to_string(fd) + "\n"), std::string::npos) << listed;
    close(in_a);
    EXPECT_EQ(read_all(out_a), "");
    close(out_a);
    EXPECT_EQ(VLN_waitpid(pid_a, -1), 0);
}

TEST_F(ProcessTest, NewGroupLeadsItsOwnGroup)
{
    for (bool newgroup : {false, true}) {
        char *argv[] = {const_cast<char *>(child), const_cast<char *>("pgid"), nullptr};
        int pid = -1, out = -1;
        char text[256] = "";
        int rc = newgroup ? vln_forkexecvp_newgroup(&pid, text, sizeof text, nullptr, &out, nullptr,
                                                    child, argv)
                          : vln_forkexecvp_hidden(&pid, text, sizeof text, nullptr, &out, nullptr,
                                                  child, argv);
        ASSERT_EQ(rc, 0) << text;
        int pgid = 0, own = 0;
        ASSERT_EQ(sscanf(read_all(out).c_str(), "%d %d", &pgid, &own), 2);
        close(out);
        EXPECT_EQ(VLN_waitpid(pid, -1), 0);
        EXPECT_EQ(own, pid);
        EXPECT_EQ(pgid, newgroup ? pid : getpgid(0));
    }
}

/* ---------------------------------------------------------------- failures to start */

TEST_F(ProcessTest, FailuresToStartComeBackAsText)
{
    int pid = 12345, in = -1, out = -1;
    char text[256] = "";
    EXPECT_NE(
        vln_forkexec(&pid, text, sizeof text, &in, &out, nullptr, "/nonexistent/prog", nullptr), 0);
    EXPECT_STREQ(text, "exec() failed on /nonexistent/prog");
    EXPECT_EQ(pid, -1);
    EXPECT_EQ(in, -1);
    EXPECT_EQ(out, -1);

    int bad = 1000;  // not open
    ASSERT_EQ(fcntl(bad, F_GETFD), -1);
    EXPECT_NE(
        vln_forkexec(&pid, text, sizeof text, &bad, nullptr, nullptr, child, "exit", "0", nullptr),
        0);
    std::string expected = "dup2(1000, 0) for process (" + child_prog + ") failed.\n";
    EXPECT_EQ(std::string(text).substr(0, expected.size()), expected);
    EXPECT_NE(std::string(text).find("Last system error"), std::string::npos);
    EXPECT_EQ(vln_forkexecvp(&pid, nullptr, 0, nullptr, nullptr, nullptr, nullptr, nullptr), -1);
}

// A child whose exec fails must not flush the parent's pending output or run
// its exit handlers: each mark appears once.
TEST_F(ProcessTest, FailedExecLeavesParentStdioAlone)
{
    int code = -1;
    std::string out = run_child({"forkfail"}, &code);
    EXPECT_EQ(code, 0);
    EXPECT_EQ(out, "before;after:-1:-1:-1;exec() failed on /nonexistent/vlnt_prog;atexit;");
}

// Passes the 100 slots of `a` as variable arguments, then a null; the first
// null slot ends the list.
using Slots = std::array<const char *, 100>;

template <size_t... I>
int forkexec_slots(int *pid, char *text, int size, int *out, const Slots &a,
                   std::index_sequence<I...>)
{
    return vln_forkexec(pid, text, size, nullptr, out, nullptr, child, a[I]..., nullptr);
}

template <size_t... I>
int run_cmd_slots(char *text, int size, const Slots &a, std::index_sequence<I...>)
{
    return vln_run_cmd(text, size, child, a[I]..., nullptr);
}

Slots argument_slots(const char *mode, const char *extra, int count)
{
    static std::vector<std::string> words;
    for (int i = static_cast<int>(words.size()); i < 100; i++)
        words.push_back("a" + std::to_string(i));
    Slots a{};
    int n = 0;
    a[n++] = mode;
    if (extra != nullptr) a[n++] = extra;
    for (int i = 0; n < count; i++) a[n++] = words[i].c_str();
    return a;
}

TEST_F(ProcessTest, ArgumentCountIsBounded)
{
    const auto all = std::make_index_sequence<100>{};
    char text[256] = "";
    // The program and 99 arguments fill the vector of 100.
    int pid = -1, out = -1;
    ASSERT_EQ(
        forkexec_slots(&pid, text, sizeof text, &out, argument_slots("args", nullptr, 99), all), 0)
        << text;
    EXPECT_EQ(read_all(out).substr(0, 3), "99\n");
    close(out);
    EXPECT_EQ(VLN_waitpid(pid, -1), 0);
    EXPECT_EQ(run_cmd_slots(text, sizeof text, argument_slots("exit", "0", 99), all), 0) << text;
    // One more fails, naming the count.
    EXPECT_EQ(
        forkexec_slots(&pid, text, sizeof text, &out, argument_slots("args", nullptr, 100), all),
        -1);
    EXPECT_STREQ(text, "Too many arguments (100) in vln_forkexec()");
    EXPECT_EQ(run_cmd_slots(text, sizeof text, argument_slots("exit", "0", 100), all), -1);
    EXPECT_STREQ(text, "Too many arguments (100) in vln_run_cmd()");
}

TEST_F(ProcessTest, RunCmdWaitsAndExplains)
{
    struct Case {
        const char *program;
        const char *mode;
        const char *arg;
        int result;
        std::string text;
    } cases[] = {
        {child, "exit", "0", 0, ""},
        {child, "exit", "3", -1, child_prog + " exited with status 3"},
        {child, "signal", "15", -1, child_prog + " terminated by signal: 15"},
        {"/nonexistent/prog", "exit", "0", -1, "exec() failed on /nonexistent/prog"},
    };
    for (const auto &c : cases) {
        char text[256] = "";
        EXPECT_EQ(vln_run_cmd(text, sizeof text, c.program, c.mode, c.arg, nullptr), c.result);
        EXPECT_EQ(text, c.text);
    }
}

TEST_F(ProcessTest, SystemRunsAShellCommand)
{
    EXPECT_EQ(vln_system(nullptr), 1);
    int status = vln_system("exit 7");
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 7);
}

/* ---------------------------------------------------------------- link programs */

TEST_F(ProcessTest, LinkProgramGetsItsFixedArgumentList)
{
    struct Case {
        int type;
        const char *word;
    } cases[] = {{2, "EN"}, {3, "LL"}, {1, "RAW"}, {0, "RAW"}};
    for (const auto &c : cases) {
        vln_linkprog_args args = {};
        args.mode = "args";
        args.coordsystype = c.type;
        args.rotation = 0.1;
        args.top_left_x = 1.5;
        args.top_left_y = -2.0;
        args.bottom_right_x = 1e300;
        args.bottom_right_y = 123456789.125;
        args.int_args[0] = 640;
        args.int_args[1] = -1;
        args.double_args[0] = 72.0;
        args.double_args[1] = 1.0 / 3.0;
        args.file = "a file.vlv";
        int pid = -1, out = -1;
        char text[256] = "";
        ASSERT_EQ(forkexec_linkprog(&pid, text, sizeof text, nullptr, &out, nullptr, child, &args),
                  0)
            << text;
        std::string expected = std::string("12\nargs\n") + c.word +
                               "\n0.10000000000000001\n1.5\n-2\n1.0000000000000001E+300\n"
                               "123456789.125\n640\n-1\n72\n0.33333333333333331\na file.vlv\n";
        EXPECT_EQ(read_all(out), expected);
        close(out);
        EXPECT_EQ(VLN_waitpid(pid, -1), 0);
    }
}

TEST(ProcessLinkTest, ParameterTextsSplitInTwo)
{
    struct Case {
        const char *text;
        int result;
        const char *first;
        const char *second;
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
        if (c.result == 0) {
            EXPECT_STREQ(first, c.first);
            EXPECT_STREQ(second, c.second);
        } else {
            EXPECT_EQ(first, nullptr);
            EXPECT_EQ(second, nullptr);
            EXPECT_EQ(VLD_error.code, 160);
        }
        safe_free(first);
        safe_free(second);
    }
}

}  // namespace
