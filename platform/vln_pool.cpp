/*
 * vln_pool.cpp: fork-and-join, worker pools and reapers, built on the thread
 * layer of vln_thread.cpp.
 *
 * vln_thread_mfork runs one function over an array of arguments, one call per
 * thread, and joins by polling a running flag per thread. A pool keeps its
 * workers parked between jobs: each worker suspends itself, and
 * vln_thread_run_pool resumes it. Reapers are callbacks that one background
 * thread calls every 200 ms while there are any.
 *
 * The flags are bytes in plain C records that callers may look at, so they are
 * read and written atomically here, and a flag is cleared under the record's
 * mutex: whoever sees every flag clear under that mutex may free the record.
 */
#include "vln_thread.h"

#include <atomic>
#include <mutex>
#include <vector>

namespace {

std::atomic_ref<uint8_t> flag(uint8_t *flags, int i)
{
    return std::atomic_ref<uint8_t>(flags[i]);
}

// Clears flags[i] under `mutex`. The caller must not touch the record after.
void clear_flag_locked(vln_mutex *mutex, uint8_t *flags, int i)
{
    vln_mutex_begin(mutex);
    flag(flags, i).store(0);
    vln_mutex_end(mutex);
}

// Polls every 10 ms until every one of `count` flags is clear. Ids of ended
// threads are collected on the way.
void wait_flags_clear(vln_mutex *mutex, uint8_t *flags, vln_thread_id *ids, int count)
{
    for (;;) {
        int busy = 0;
        vln_mutex_begin(mutex);
        for (int i = 0; i < count; i++) {
            if (flag(flags, i).load() != 0)
                busy++;
            else if (ids != nullptr)
                vln_thread_collect(&ids[i]);
        }
        vln_mutex_end(mutex);
        if (busy == 0) return;
        vln_usleep(10000);
    }
}

/* ---------------------------------------------------------------- fork and join */

struct ForkRec {
    uint8_t *running;
    vln_thread_id *ids;
    vln_mutex mutex;
    vln_indexed_func function;
    void **arguments;
};

struct ForkJob {
    ForkRec *rec;
    int index;
};

void *fork_job(void *p)
{
    ForkJob job = *static_cast<ForkJob *>(p);
    job.rec->function(job.rec->arguments[job.index], job.index);
    clear_flag_locked(&job.rec->mutex, job.rec->running, job.index);
    return nullptr;
}

/* ---------------------------------------------------------------- pools */

struct PoolJob {
    vln_thread_pool *pool;
    int index;
};

// Clears a worker's running flag however the worker ends, killed included.
class RunningGuard {
   public:
    RunningGuard(vln_thread_pool *pool, int index) : pool_(pool), index_(index) {}
    ~RunningGuard() { clear_flag_locked(&pool_->mutex, pool_->running, index_); }
    RunningGuard(const RunningGuard &) = delete;
    RunningGuard &operator=(const RunningGuard &) = delete;

   private:
    vln_thread_pool *pool_;
    int index_;
};

void *pool_worker(void *p)
{
    PoolJob job = *static_cast<PoolJob *>(p);
    safe_free(p);
    vln_thread_pool *pool = job.pool;
    const int i = job.index;
    RunningGuard guard(pool, i);
    vln_thread_id self = vln_gettid();
    std::atomic_ref<uint8_t> state(pool->state[i]);
    for (;;) {
        // Idle again, unless told to quit meanwhile: that order must survive.
        uint8_t s = state.load();
        while (s != VLN_POOL_QUIT && !state.compare_exchange_weak(s, VLN_POOL_IDLE)) {
        }
        vln_thread_suspend(&self);
        if (state.load() == VLN_POOL_QUIT) break;
        state.store(VLN_POOL_RUNNING);
        vln_indexed_func function = pool->functions[i];
        if (function != nullptr) function(pool->arguments[i], i);
    }
    return nullptr;
}

void free_pool(vln_thread_pool *pool)
{
    vln_mutex_destroy(&pool->mutex);
    safe_free(pool->running);
    safe_free(pool->ids);
    safe_free(pool->functions);
    safe_free(pool->arguments);
    safe_free(pool->state);
    safe_free(pool);
}

/* ---------------------------------------------------------------- reapers */

struct Reaper {
    int number;
    vln_reaper_func function;
    void *argument;
};

// Never destroyed: the reaper thread may outlive static destruction.
struct ReaperList {
    std::recursive_mutex lock;
    std::vector<Reaper> entries;
    int next_number = 1;
    bool thread_running = false;
    vln_thread_id thread = {0, 0};
};

ReaperList &reapers()
{
    static ReaperList *list = new ReaperList;
    return *list;
}

void *reaper_main(void *)
{
    ReaperList &list = reapers();
    for (;;) {
        {
            std::lock_guard<std::recursive_mutex> guard(list.lock);
            if (list.entries.empty()) {
                list.thread_running = false;
                return nullptr;
            }
            // A reaper may add or delete entries while it runs: call by number.
            std::vector<int> numbers;
            for (const Reaper &r : list.entries) numbers.push_back(r.number);
            for (int number : numbers) {
                for (const Reaper &r : list.entries) {
                    if (r.number != number) continue;
                    Reaper entry = r;
                    entry.function(entry.argument);
                    break;
                }
            }
        }
        vln_usleep(200000);
    }
}

}  // namespace

void vln_thread_mfork(int n, vln_indexed_func function, void **arguments)
{
    if (n <= 0 || function == nullptr) return;
    if (n == 1) {
        function(arguments != nullptr ? arguments[0] : nullptr, 0);
        return;
    }
    const int others = n - 1;
    std::vector<void *> nulls;
    if (arguments == nullptr) {
        nulls.assign(static_cast<size_t>(n), nullptr);
        arguments = nulls.data();
    }
    auto *rec = static_cast<ForkRec *>(malloc_or_die(sizeof(ForkRec)));
    rec->running = static_cast<uint8_t *>(malloc_or_die(static_cast<size_t>(others)));
    rec->ids = static_cast<vln_thread_id *>(malloc_or_die(sizeof(vln_thread_id) * others));
    rec->function = function;
    rec->arguments = arguments;
    std::vector<ForkJob> jobs(static_cast<size_t>(others));
    for (int i = 0; i < others; i++) {
        jobs[i] = {rec, i};
        flag(rec->running, i).store(1);
        if (vln_thread_spawn(&rec->ids[i], 0, fork_job, &jobs[i]) == 0) {
            function(arguments[i], i);
            flag(rec->running, i).store(0);
        }
    }
    function(arguments[others], others);
    wait_flags_clear(&rec->mutex, rec->running, rec->ids, others);
    vln_mutex_destroy(&rec->mutex);
    safe_free(rec->running);
    safe_free(rec->ids);
    safe_free(rec);
}

vln_thread_pool *vln_thread_create_pool(int size, vln_indexed_func function, void **arguments)
{
    if (size < 0) return nullptr;
    auto *pool = static_cast<vln_thread_pool *>(malloc_or_die(sizeof(vln_thread_pool)));
    const size_t n = static_cast<size_t>(size);
    pool->size = size;
    pool->running = static_cast<uint8_t *>(malloc_or_die(n));
    pool->ids = static_cast<vln_thread_id *>(malloc_or_die(n * sizeof(vln_thread_id)));
    pool->functions = static_cast<vln_indexed_func *>(malloc_or_die(n * sizeof(vln_indexed_func)));
    pool->arguments = static_cast<void **>(malloc_or_die(n * sizeof(void *)));
    pool->state = static_cast<uint8_t *>(malloc_or_die(n));
    for (int i = 0; i < size; i++) {
        pool->functions[i] = function;
        pool->arguments[i] = arguments != nullptr ? arguments[i] : nullptr;
    }
    int started = 0;
    for (; started < size; started++) {
        auto *job = static_cast<PoolJob *>(malloc_or_die(sizeof(PoolJob)));
        *job = {pool, started};
        flag(pool->running, started).store(1);
        if (vln_thread_spawn(&pool->ids[started], 0, pool_worker, job) == 0) {
            flag(pool->running, started).store(0);
            safe_free(job);
            break;
        }
    }
    if (started < size) {
        for (int i = 0; i < started; i++) vln_thread_kill(&pool->ids[i]);
        wait_flags_clear(&pool->mutex, pool->running, pool->ids, started);
        free_pool(pool);
        return nullptr;
    }
    // Return only when every worker is parked, so that the first run finds
    // them waiting for it.
    for (int i = 0; i < size; i++) {
        while (!vln_thread_suspended(&pool->ids[i])) vln_usleep(1000);
    }
    return pool;
}

void vln_thread_destroy_pool(vln_thread_pool *pool)
{
    if (pool == nullptr) return;
    for (int i = 0; i < pool->size; i++)
        std::atomic_ref<uint8_t>(pool->state[i]).store(VLN_POOL_QUIT);
    // Wake each worker once it is parked; a busy one parks after its job.
    for (int i = 0; i < pool->size; i++) {
        while (flag(pool->running, i).load() != 0) {
            if (vln_thread_suspended(&pool->ids[i])) {
                vln_thread_resume(&pool->ids[i]);
                break;
            }
            vln_usleep(10000);
        }
    }
    wait_flags_clear(&pool->mutex, pool->running, pool->ids, pool->size);
    free_pool(pool);
}

int vln_thread_set_pool(vln_thread_pool *pool, int index, vln_indexed_func function, void *argument)
{
    if (pool == nullptr || index < 0 || index >= pool->size) return -1;
    pool->functions[index] = function;
    pool->arguments[index] = argument;
    return index;
}

void vln_thread_run_pool(vln_thread_pool *pool)
{
    if (pool == nullptr) return;
    for (int i = 0; i < pool->size; i++) {
        std::atomic_ref<uint8_t>(pool->state[i]).store(VLN_POOL_RUNNING);
        vln_thread_resume(&pool->ids[i]);
    }
}

void vln_thread_wait_pool(vln_thread_pool *pool)
{
    if (pool == nullptr) return;
    for (;;) {
        bool idle = true;
        for (int i = 0; i < pool->size && idle; i++)
            idle = std::atomic_ref<uint8_t>(pool->state[i]).load() == VLN_POOL_IDLE;
        if (idle) return;
        vln_usleep(10000);
    }
}

int vln_thread_add_reaper(vln_reaper_func function, void *argument)
{
    if (function == nullptr) return -1;
    ReaperList &list = reapers();
    std::lock_guard<std::recursive_mutex> guard(list.lock);
    int number = list.next_number++;
    list.entries.push_back({number, function, argument});
    if (!list.thread_running) {
        list.thread_running = vln_thread_spawn(&list.thread, 0, reaper_main, nullptr) != 0;
    }
    return number;
}

int vln_thread_delete_reaper(int number)
{
    ReaperList &list = reapers();
    std::lock_guard<std::recursive_mutex> guard(list.lock);
    for (auto it = list.entries.begin(); it != list.entries.end(); ++it) {
        if (it->number == number) {
            list.entries.erase(it);
            return 1;
        }
    }
    return 0;
}
