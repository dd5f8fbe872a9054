// The message transport: framing, limits, timeouts, broken pipes, a child.
#include "vln_process.h"
#include "vln_thread.h"
#include "vlnt_util.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

using vlnt::StderrCapture;
using Clock = std::chrono::steady_clock;

// Two pipes: `near` is the transport under test, and the far ends are written
// and read raw by the test.
class TransTest : public ::testing::Test {
   protected:
    void SetUp() override
    {
        int to_near[2], to_far[2];
        ASSERT_EQ(pipe(to_near), 0);
        ASSERT_EQ(pipe(to_far), 0);
        near_ = vln_trans_fdopen(to_near[0], to_far[1]);
        far_in_ = to_far[0];
        far_out_ = to_near[1];
    }
    void TearDown() override
    {
        vln_trans_close(near_);
        if (far_in_ >= 0) close(far_in_);
        if (far_out_ >= 0) close(far_out_);
    }
    // Writes one raw message: a length and a body that may be shorter.
    void put(int32_t length, const std::string &body)
    {
        ASSERT_EQ(write(far_out_, &length, 4), 4);
        if (!body.empty()) {
            ASSERT_EQ(write(far_out_, body.data(), body.size()), static_cast<ssize_t>(body.size()));
        }
    }
    // Reads one raw message from the far side.
    std::string take()
    {
        int32_t length = 0;
        if (read(far_in_, &length, 4) != 4) return "<none>";
        std::string body(static_cast<size_t>(length), '\0');
        size_t got = 0;
        while (got < body.size()) {
            ssize_t n = read(far_in_, &body[got], body.size() - got);
            if (n <= 0) return "<short>";
            got += static_cast<size_t>(n);
        }
        return body;
    }
    vln_trans *near_ = nullptr;
    int far_in_ = -1;
    int far_out_ = -1;
};

std::string as_string(const void *p, int n)
{
    return std::string(static_cast<const char *>(p), n);
}

/* ---------------------------------------------------------------- receiving */

TEST_F(TransTest, ReceiveSkipsEmptyMessagesAndAnswers)
{
    put(0, "");
    put(5, "hello");
    void *request = nullptr;
    int length = 0;
    ASSERT_EQ(vln_trans_recv(near_, &request, &length, "ok", 2, 5), VLN_TRANS_OK);
    EXPECT_EQ(as_string(request, length), "hello");
    safe_free(request);
    EXPECT_EQ(take(), "ok");
}

TEST_F(TransTest, ReceiveWithoutReplyAnswersMinusOne)
{
    put(3, "abc");
    void *request = nullptr;
    int length = 0;
    ASSERT_EQ(vln_trans_recv(near_, &request, &length, nullptr, 0, 5), VLN_TRANS_OK);
    safe_free(request);
    const int32_t minus_one = -1;
    EXPECT_EQ(take(), std::string(reinterpret_cast<const char *>(&minus_one), 4));
}

TEST_F(TransTest, BodyLengthIsBounded)
{
    struct Case {
        int32_t length;
        int result;
    } cases[] = {{VLN_TRANS_MAX_BODY, VLN_TRANS_OK},
                 {VLN_TRANS_MAX_BODY + 1, VLN_TRANS_FAILED},
                 {-2, VLN_TRANS_FAILED}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.length);
        put(c.length, c.length > 0 ? std::string(static_cast<size_t>(c.length), 'x') : "");
        void *request = nullptr;
        int length = 0;
        EXPECT_EQ(vln_trans_recv(near_, &request, &length, "r", 1, 5), c.result);
        if (c.result == VLN_TRANS_OK) {
            EXPECT_EQ(length, c.length);
            EXPECT_EQ(take(), "r");
        } else {
            // A refused message leaves the stream unusable: start afresh.
            TearDown();
            SetUp();
        }
        safe_free(request);
    }
    void *reply = nullptr;
    int reply_length = 0;
    std::vector<char> big(VLN_TRANS_MAX_BODY + 1, 'y');
    EXPECT_EQ(
        vln_trans_send(near_, big.data(), static_cast<int>(big.size()), &reply, &reply_length, 1),
        VLN_TRANS_FAILED);
}

// A caller's buffer takes a message that fits, and refuses one that doesn't.
TEST_F(TransTest, CallersBufferMustHoldTheMessage)
{
    char buffer[4];
    for (std::string body : {"four", "fiver"}) {
        put(static_cast<int32_t>(body.size()), body);
        void *request = buffer;
        int length = sizeof buffer;
        bool fits = body.size() <= sizeof buffer;
        EXPECT_EQ(vln_trans_recv(near_, &request, &length, "r", 1, 5),
                  fits ? VLN_TRANS_OK : VLN_TRANS_FAILED);
        EXPECT_EQ(request, static_cast<void *>(buffer));
        if (fits) {
            EXPECT_EQ(as_string(buffer, length) + take(), body + "r");
        }
    }
}

/* ---------------------------------------------------------------- time and broken streams */

TEST_F(TransTest, SilenceTimesOutAndAStalledMessageFails)
{
    void *request = nullptr;
    int length = 0;
    auto start = Clock::now();
    EXPECT_EQ(vln_trans_recv(near_, &request, &length, nullptr, 0, 1), VLN_TRANS_TIMEOUT);
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(900));
    put(10, "half");
    EXPECT_EQ(vln_trans_recv(near_, &request, &length, nullptr, 0, 1), VLN_TRANS_FAILED);
    EXPECT_EQ(request, nullptr);
}

TEST_F(TransTest, ClosedPeerFailsWithoutEndingTheProcess)
{
    // The reader has gone: the write fails with a broken pipe, traced.
    close(far_in_);
    far_in_ = -1;
    StderrCapture err;
    void *reply = nullptr;
    int reply_length = 0;
    EXPECT_EQ(vln_trans_send(near_, "x", 1, &reply, &reply_length, 1), VLN_TRANS_FAILED);
    EXPECT_EQ(err.text(), "EPIPE on ETread\n");
    // The writer has gone: end of file is a failure, not a timeout.
    close(far_out_);
    far_out_ = -1;
    void *request = nullptr;
    int length = 0;
    EXPECT_EQ(vln_trans_recv(near_, &request, &length, nullptr, 0, 1), VLN_TRANS_FAILED);
    EXPECT_EQ(request, nullptr);
}

/* ---------------------------------------------------------------- both sides */

struct Server {
    vln_trans *t;
    std::atomic<int> result{-1};
    std::string got;
};

void *serve_once(void *p)
{
    auto *s = static_cast<Server *>(p);
    void *request = nullptr;
    int length = 0;
    s->result = vln_trans_recv(s->t, &request, &length, "pong", 4, 30);
    if (request != nullptr) s->got = as_string(request, length);
    safe_free(request);
    return nullptr;
}

TEST(TransPairTest, SendGetsTheReplyOfTheOtherSide)
{
    int a[2], b[2];
    ASSERT_EQ(pipe(a), 0);
    ASSERT_EQ(pipe(b), 0);
    Server server;
    server.t = vln_trans_fdopen(a[0], b[1]);
    vln_trans *client = vln_trans_fdopen(b[0], a[1]);
    vln_thread_id id;
    ASSERT_EQ(vln_thread_spawn(&id, 0, serve_once, &server), 2);
    void *reply = nullptr;
    int reply_length = 0;
    EXPECT_EQ(vln_trans_send(client, "ping", 4, &reply, &reply_length, 30), VLN_TRANS_OK);
    EXPECT_EQ(as_string(reply, reply_length), "pong");
    safe_free(reply);
    while (server.result.load() == -1) usleep(1000);
    EXPECT_EQ(server.result.load(), VLN_TRANS_OK);
    EXPECT_EQ(server.got, "ping");
    EXPECT_EQ(vln_trans_close(client), 1);
    EXPECT_EQ(vln_trans_close(server.t), 1);
}

TEST(TransPairTest, ChildAnswersOverItsStandardStreams)
{
    const char *child = VORLAN_TEST_PROGS_DIR "/vlnt_child";
    for (const char *mode : {"trans_size", "trans_noreply"}) {
        int pid = -1, in = -1, out = -1;
        char text[256] = "";
        ASSERT_EQ(vln_forkexec(&pid, text, sizeof text, &in, &out, nullptr, child, mode, nullptr),
                  0)
            << text;
        vln_trans *t = vln_trans_fdopen(out, in);
        // The child's answer is fixed before it reads, so it describes the
        // request before: none, then "hello" (5 bytes summing to 532).
        std::vector<std::string> replies;
        for (const char *body : {"hello", "again"}) {
            void *reply = nullptr;
            int reply_length = 0;
            EXPECT_EQ(vln_trans_send(t, body, 5, &reply, &reply_length, 30), VLN_TRANS_OK);
            replies.push_back(as_string(reply, reply_length));
            safe_free(reply);
        }
        const int32_t minus_one = -1;
        const std::string none(reinterpret_cast<const char *>(&minus_one), 4);
        if (strcmp(mode, "trans_size") == 0)
            EXPECT_EQ(replies, (std::vector<std::string>{"0:0", "5:532"}));
        else
            EXPECT_EQ(replies, (std::vector<std::string>{none, none}));
        vln_trans_close(t);  // the child reads end of file and leaves
        EXPECT_EQ(VLN_waitpid(pid, -1), 0);
    }
}

TEST(TransRecordTest, OpenInitAndClose)
{
    EXPECT_EQ(vln_trans_open("a", "b", 0), nullptr);
    EXPECT_EQ(vln_trans_close(nullptr), 0);
    EXPECT_EQ(vln_trans_init(), 1);

    // Closing unlinks the names when asked to.
    char names[2][64];
    for (auto &name : names) {
        snprintf(name, sizeof name, "/tmp/vlnt_trans_XXXXXX");
        int fd = mkstemp(name);
        ASSERT_GE(fd, 0);
        close(fd);
    }
    for (int flag : {0, 1}) {
        int p[2];
        ASSERT_EQ(pipe(p), 0);
        vln_trans *t = vln_trans_fdopen(p[0], p[1]);
        t->rname = strsave(names[0]);
        t->wname = strsave(names[1]);
        t->unlink_names = flag;
        EXPECT_EQ(vln_trans_close(t), 1);
        struct stat st;
        EXPECT_EQ(stat(names[0], &st) == 0, flag == 0);
        EXPECT_EQ(stat(names[1], &st) == 0, flag == 0);
    }
}

}  // namespace
