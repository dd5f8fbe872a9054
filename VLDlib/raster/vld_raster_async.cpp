/*
 * vld_raster_async.cpp: reads of one file on a worker thread.
 *
 * A caller queues reads and later waits for each by its ticket. One worker
 * takes the queued requests in order and moves each, done, to the done list;
 * when the queue is empty it ends, and the next read or wait starts another.
 * The three lists (free, queued, done) stand under the handle's lock; the
 * worker never touches the handle after it has said that it ended.
 */
#include <fcntl.h>

#include <algorithm>
#include <cstring>
#include <deque>
#include <new>

#include "vld_raster.h"
#include "vln_fileio.h"
#include "vln_thread.h"
#include "vln_guard_internal.h"

int vln_reent_lib = 1;  // this library is built for threads

namespace {

struct Request {
    int ticket = 0;
    void *buffer = nullptr;
    int64_t position = 0;
    int length = 0;
    int result = 0;
};

}  // namespace

struct vln_aread {
    int fd = -1;
    vln_mutex lock{};
    std::deque<Request> free_list, queued, done;
    int next_ticket = 1;
    bool running = false;  // a worker is alive
    bool stop = false;
};

namespace {

void *worker(void *argument)
{
    auto *h = static_cast<vln_aread *>(argument);
    for (;;) {
        Request r;
        {
            vln::Guard guard(&h->lock);
            if (h->queued.empty() || h->stop) {
                h->running = false;
                return nullptr;
            }
            r = h->queued.front();
            h->queued.pop_front();
        }
        int64_t got = vln_pread64(h->fd, r.buffer, r.length, r.position);
        r.result = got < 0 ? -1 : static_cast<int>(got);
        vln::Guard guard(&h->lock);
        h->done.push_back(r);
    }
}

// Starts a worker when requests wait and none runs; called under the lock.
void ensure_worker(vln_aread *h)
{
    if (h->running || h->queued.empty() || h->stop) return;
    h->running = true;
    if (vln_thread_spawn(nullptr, 0, worker, h) == 0) h->running = false;
}

}  // namespace

vln_aread *vln_aread_open(const char *path)
{
    if (!vln_reent_lib || path == nullptr) return nullptr;
    int fd = vln_open_data(path, O_RDONLY, 0);
    if (fd < 0) return nullptr;
    vln_thread_init();  // the handle's lock must act before a worker exists
    auto *h = new (std::nothrow) vln_aread;
    if (h == nullptr) {
        vln_close(fd);
        return nullptr;
    }
    h->fd = fd;
    return h;
}

int vln_aread_read(vln_aread *handle, void *buffer, int64_t position, int length)
{
    if (handle == nullptr || buffer == nullptr || position < 0 || length < 0) return -1;
    vln::Guard guard(&handle->lock);
    Request r;
    if (!handle->free_list.empty()) handle->free_list.pop_front();
    r.ticket = handle->next_ticket++;
    r.buffer = buffer;
    r.position = position;
    r.length = length;
    handle->queued.push_back(r);
    ensure_worker(handle);
    return r.ticket;
}

int vln_aread_wait(vln_aread *handle, int ticket)
{
    if (handle == nullptr) return -1;
    for (;;) {
        {
            vln::Guard guard(&handle->lock);
            auto is_ticket = [ticket](const Request &r) { return r.ticket == ticket; };
            auto d = std::find_if(handle->done.begin(), handle->done.end(), is_ticket);
            if (d != handle->done.end()) {
                int result = d->result;
                handle->free_list.push_back(*d);
                handle->done.erase(d);
                return result;
            }
            if (std::none_of(handle->queued.begin(), handle->queued.end(), is_ticket)) return -1;
            ensure_worker(handle);
            if (!handle->running) return -1;  // no thread could be started
        }
        vln_usleep(1000);
    }
}

int vln_aread_close(vln_aread *handle)
{
    if (handle == nullptr) return 0;
    for (;;) {
        {
            vln::Guard guard(&handle->lock);
            handle->stop = true;
            if (!handle->running) break;
        }
        vln_usleep(1000);
    }
    int status = vln_close(handle->fd) == 0 ? 0 : -1;
    vln_mutex_destroy(&handle->lock);
    delete handle;
    return status;
}
