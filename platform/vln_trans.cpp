/*
 * vln_trans.cpp: the message transport between the library and a child over
 * a pair of pipes (or FIFOs).
 *
 * A message is a 4-byte length in host order followed by that many bytes, at
 * most VLN_TRANS_MAX_BODY. One side sends a request and waits for one reply;
 * the other waits for a request and answers it, with 4 bytes of -1 when it has
 * nothing to say. Waits poll once a second, up to the caller's timeout.
 *
 * A wait that runs out before the first byte of a message is a timeout; once
 * a message has begun, anything short of its whole is a failure, since the
 * stream can't be trusted after it.
 */
#include "vln_process.h"
#include "vln_thread.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <poll.h>
#include <pthread.h>
#include <unistd.h>

namespace {

enum IoResult { IO_DONE, IO_TIMEOUT, IO_FAILED };

void trace(const char *text)
{
    FILE *err = vln_ReturnStdErr();
    fprintf(err, "%s\n", text);
    fflush(err);
}

// Blocks SIGPIPE for the calling thread while it writes, so that a reader
// that went away gives EPIPE instead of ending the process. A SIGPIPE that the
// write raises is taken off again before the mask is restored.
class SigpipeGuard {
   public:
    SigpipeGuard()
    {
        sigemptyset(&pipe_only_);
        sigaddset(&pipe_only_, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &pipe_only_, &old_);
        sigset_t pending;
        sigpending(&pending);
        was_pending_ = sigismember(&pending, SIGPIPE) == 1;
    }
    ~SigpipeGuard() { pthread_sigmask(SIG_SETMASK, &old_, nullptr); }
    void consume()
    {
        if (was_pending_) return;
        timespec zero = {0, 0};
        while (sigtimedwait(&pipe_only_, nullptr, &zero) < 0 && errno == EINTR) {
        }
    }
    SigpipeGuard(const SigpipeGuard &) = delete;
    SigpipeGuard &operator=(const SigpipeGuard &) = delete;

   private:
    sigset_t pipe_only_;
    sigset_t old_;
    bool was_pending_ = false;
};

// Waits until fd is ready, polling once a second and spending whole seconds
// of *seconds. A descriptor that hung up or failed counts as ready: the read
// or write that follows says what happened.
IoResult wait_ready(int fd, short events, int *seconds)
{
    for (;;) {
        pollfd p = {fd, events, 0};
        int r = poll(&p, 1, 1000);
        if (r < 0) {
            if (errno == EINTR) continue;
            return IO_FAILED;
        }
        if (r > 0) return (p.revents & POLLNVAL) != 0 ? IO_FAILED : IO_DONE;
        if (--*seconds <= 0) return IO_TIMEOUT;
    }
}

// Reads or writes exactly n bytes. *done counts the bytes moved. Interrupted
// calls are retried; a fault or a broken pipe is traced.
IoResult et_transfer(int fd, char *buffer, size_t n, bool writing, int *seconds, size_t *done)
{
    *done = 0;
    while (*done < n) {
        IoResult ready = wait_ready(fd, writing ? POLLOUT : POLLIN, seconds);
        if (ready != IO_DONE) return ready;
        ssize_t r;
        if (writing) {
            SigpipeGuard guard;
            r = write(fd, buffer + *done, n - *done);
            if (r < 0 && errno == EPIPE) guard.consume();
        } else {
            r = read(fd, buffer + *done, n - *done);
        }
        if (r > 0) {
            *done += static_cast<size_t>(r);
            continue;
        }
        if (r == 0) return IO_FAILED;  // the other side closed
        if (errno == EINTR || errno == EAGAIN) continue;
        if (errno == EFAULT) trace("EFAULT on ETread");
        if (errno == EPIPE) trace("EPIPE on ETread");
        return IO_FAILED;
    }
    return IO_DONE;
}

int result_of(IoResult r, size_t done)
{
    if (r == IO_DONE) return VLN_TRANS_OK;
    return r == IO_TIMEOUT && done == 0 ? VLN_TRANS_TIMEOUT : VLN_TRANS_FAILED;
}

int write_message(int fd, const void *body, int length, int timeout)
{
    char message[sizeof(int32_t) + VLN_TRANS_MAX_BODY];
    int32_t header = length;
    memcpy(message, &header, sizeof header);
    if (length > 0) memcpy(message + sizeof header, body, static_cast<size_t>(length));
    int seconds = timeout > 0 ? timeout : 1;
    size_t done = 0;
    IoResult r = et_transfer(fd, message, sizeof header + static_cast<size_t>(length), true,
                             &seconds, &done);
    return result_of(r, done);
}

// Reads one message into *body: a buffer of the callee's when *body is null,
// else the caller's of *length bytes. With skip_empty, messages without a body
// are passed over.
int read_message(int fd, void **body, int *length, int timeout, bool skip_empty)
{
    int seconds = timeout > 0 ? timeout : 1;
    int32_t header = 0;
    size_t done = 0;
    do {
        IoResult r = et_transfer(fd, reinterpret_cast<char *>(&header), sizeof header, false,
                                 &seconds, &done);
        if (r != IO_DONE) return result_of(r, done);
    } while (skip_empty && header == 0);
    if (header < 0 || header > VLN_TRANS_MAX_BODY) return VLN_TRANS_FAILED;
    bool ours = *body == nullptr;
    if (!ours && header > *length) return VLN_TRANS_FAILED;
    char *target = ours ? static_cast<char *>(malloc_or_die(static_cast<size_t>(header)))
                        : static_cast<char *>(*body);
    IoResult r = et_transfer(fd, target, static_cast<size_t>(header), false, &seconds, &done);
    if (r != IO_DONE) {
        if (ours) safe_free(target);
        return VLN_TRANS_FAILED;
    }
    *body = target;
    *length = header;
    return VLN_TRANS_OK;
}

bool usable(const vln_trans *t)
{
    return t != nullptr && t->rfd >= 0 && t->wfd >= 0;
}

}  // namespace

vln_trans *vln_trans_open(const char *read_name, const char *write_name, int flags)
{
    (void)read_name;
    (void)write_name;
    (void)flags;
    return nullptr;
}

int vln_trans_init(void)
{
    return vln_thread_ismain();
}

vln_trans *vln_trans_fdopen(int rfd, int wfd)
{
    auto *t = static_cast<vln_trans *>(malloc_or_die(sizeof(vln_trans)));
    t->rfd = rfd;
    t->wfd = wfd;
    t->rname = nullptr;
    t->wname = nullptr;
    t->unlink_names = 0;
    return t;
}

int vln_trans_close(vln_trans *transport)
{
    if (transport == nullptr) return 0;
    if (transport->rfd >= 0) close(transport->rfd);
    if (transport->wfd >= 0 && transport->wfd != transport->rfd) close(transport->wfd);
    if (transport->unlink_names) {
        if (transport->rname != nullptr) unlink(transport->rname);
        if (transport->wname != nullptr) unlink(transport->wname);
    }
    safe_free(transport->rname);
    safe_free(transport->wname);
    safe_free(transport);
    return 1;
}

int vln_trans_send(vln_trans *transport, const void *body, int length, void **reply,
                   int *reply_length, int timeout)
{
    if (!usable(transport) || reply == nullptr || reply_length == nullptr) return VLN_TRANS_FAILED;
    if (length < 0 || length > VLN_TRANS_MAX_BODY || (length > 0 && body == nullptr))
        return VLN_TRANS_FAILED;
    int r = write_message(transport->wfd, body, length, timeout);
    if (r != VLN_TRANS_OK) return r;
    return read_message(transport->rfd, reply, reply_length, timeout, false);
}

int vln_trans_recv(vln_trans *transport, void **request, int *length, const void *reply,
                   int reply_length, int timeout)
{
    if (!usable(transport) || request == nullptr || length == nullptr) return VLN_TRANS_FAILED;
    int r = read_message(transport->rfd, request, length, timeout, true);
    if (r != VLN_TRANS_OK) return r;
    if (reply == nullptr) {
        const int32_t none = -1;
        return write_message(transport->wfd, &none, sizeof none, timeout);
    }
    if (reply_length < 0 || reply_length > VLN_TRANS_MAX_BODY) return VLN_TRANS_FAILED;
    return write_message(transport->wfd, reply, reply_length, timeout);
}
