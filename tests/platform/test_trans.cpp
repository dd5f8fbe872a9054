// The message transport: framing, limits, timeouts, broken pipes.
#include "vln_process.h"
#include "capture.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <string>
#include <unistd.h>

namespace {

const int32_t minus_one = -1;
const std::string no_reply(reinterpret_cast<const char *>(&minus_one), 4);

std::string as_string(const void *p, int n)
{
    return std::string(static_cast<const char *>(p), static_cast<size_t>(n));
}

// Two pipes: `near_` is the transport under test, and the far ends are
// written and read raw by the test.
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
        ASSERT_EQ(write(far_out_, body.data(), body.size()), static_cast<ssize_t>(body.size()));
    }
    // Reads one raw message from the far side: a reply is a single write.
    std::string take()
    {
        char message[64];
        ssize_t n = read(far_in_, message, sizeof message);
        int32_t length = -1;
        if (n >= 4) memcpy(&length, message, 4);
        return length == n - 4 ? std::string(message + 4, static_cast<size_t>(length)) : "<bad>";
    }
    // Receives one request, answering with `reply` (or without one).
    int recv(std::string *request, const char *reply, int timeout = 5)
    {
        void *body = nullptr;
        int length = 0;
        int rc = vln_trans_recv(near_, &body, &length, reply,
                                reply ? static_cast<int>(strlen(reply)) : 0, timeout);
        if (body != nullptr) *request = as_string(body, length);
        safe_free(body);
        return rc;
    }
    vln_trans *near_ = nullptr;
    int far_in_ = -1;
    int far_out_ = -1;
};

/* ---------------------------------------------------------------- messages */

// Empty messages are passed over; without a reply the answer is 4 bytes of -1.
TEST_F(TransTest, ReceiveAnswersEveryRequest)
{
    put(0, "");
    put(5, "hello");
    put(3, "abc");
    std::string request;
    ASSERT_EQ(recv(&request, "ok"), VLN_TRANS_OK);
    EXPECT_EQ(request, "hello");
    EXPECT_EQ(take(), "ok");
    ASSERT_EQ(recv(&request, nullptr), VLN_TRANS_OK);
    EXPECT_EQ(request, "abc");
    EXPECT_EQ(take(), no_reply);
}

TEST_F(TransTest, SendWritesOneMessageAndReadsTheReply)
{
    put(4, "pong");  // queued ahead: the pipe holds it until send reads
    void *reply = nullptr;
    int reply_length = 0;
    EXPECT_EQ(vln_trans_send(near_, "ping", 4, &reply, &reply_length, 0), VLN_TRANS_OK);
    EXPECT_EQ(as_string(reply, reply_length), "pong");
    safe_free(reply);
    EXPECT_EQ(take(), "ping");
}

// The longest body passes; a negative or longer length is refused, by the
// reader and by the sender alike.
TEST_F(TransTest, BodyLengthIsBounded)
{
    const std::string longest(VLN_TRANS_MAX_BODY, 'x'), longer = longest + "x";
    std::string request;
    put(VLN_TRANS_MAX_BODY, longest);
    EXPECT_EQ(recv(&request, "r"), VLN_TRANS_OK);
    EXPECT_EQ(request + take(), longest + "r");
    void *reply = nullptr;
    int reply_length = 0;
    EXPECT_EQ(
        vln_trans_send(near_, longer.data(), VLN_TRANS_MAX_BODY + 1, &reply, &reply_length, 1),
        VLN_TRANS_FAILED);
    put(-2, "");
    EXPECT_EQ(recv(&request, "r"), VLN_TRANS_FAILED);
    put(VLN_TRANS_MAX_BODY + 1, longer);
    EXPECT_EQ(recv(&request, "r"), VLN_TRANS_FAILED);  // the body stays behind: last
}

// A caller's buffer takes a message that fits, and refuses one that doesn't.
TEST_F(TransTest, CallersBufferMustHoldTheMessage)
{
    char buffer[4];
    void *request = buffer;
    int length = sizeof buffer;
    put(4, "four");
    put(5, "fiver");
    EXPECT_EQ(vln_trans_recv(near_, &request, &length, "r", 1, 5), VLN_TRANS_OK);
    EXPECT_EQ(as_string(request, length) + take(), "fourr");
    EXPECT_EQ(vln_trans_recv(near_, &request, &length, "r", 1, 5), VLN_TRANS_FAILED);
    EXPECT_EQ(request, static_cast<void *>(buffer));
}

/* ---------------------------------------------------------------- time and broken streams */

TEST_F(TransTest, SilenceTimesOutAndAStalledMessageFails)
{
    std::string request = "untouched";
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(recv(&request, nullptr, 1), VLN_TRANS_TIMEOUT);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(900));
    put(10, "half");
    EXPECT_EQ(recv(&request, nullptr, 1), VLN_TRANS_FAILED);
    EXPECT_EQ(request, "untouched");
}

TEST_F(TransTest, ClosedPeerFailsWithoutEndingTheProcess)
{
    // The reader has gone: the write fails with a broken pipe, traced.
    close(far_in_);
    far_in_ = -1;
    StreamCapture err(StreamCapture::Err);
    void *reply = nullptr;
    int reply_length = 0;
    EXPECT_EQ(vln_trans_send(near_, "x", 1, &reply, &reply_length, 1), VLN_TRANS_FAILED);
    EXPECT_EQ(err.text(), "EPIPE on ETread\n");
    // The writer has gone: end of file is a failure, not a timeout.
    close(far_out_);
    far_out_ = -1;
    std::string request = "untouched";
    EXPECT_EQ(recv(&request, nullptr, 1), VLN_TRANS_FAILED);
    EXPECT_EQ(request, "untouched");
}

TEST(TransRecordTest, CloseUnlinksTheNamesWhenAsked)
{
    EXPECT_EQ(vln_trans_close(nullptr), 0);
    for (int flag : {0, 1}) {
        char names[2][32] = {"/tmp/vlnt_trans_XXXXXX", "/tmp/vlnt_trans_XXXXXX"};
        for (auto &name : names) close(mkstemp(name));
        vln_trans *t = vln_trans_fdopen(-1, -1);
        t->rname = strsave(names[0]);
        t->wname = strsave(names[1]);
        t->unlink_names = flag;
        EXPECT_EQ(vln_trans_close(t), 1);
        for (auto &name : names) EXPECT_EQ(unlink(name) == 0, flag == 0);
    }
}

}  // namespace
