// Threads, suspension, thread-local data, fork-and-join, pools and reapers.
#include "vln_thread.h"
#include "vlnt_util.h"

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <dirent.h>
#include <vector>

namespace {

using vlnt::eventually;
using vlnt::StderrCapture;
using Clock = std::chrono::steady_clock;

int thread_count()
{
    int n = 0;
    DIR *dir = opendir("/proc/self/task");
    while (dirent *e = readdir(dir))
        if (e->d_name[0] != '.') n++;
    closedir(dir);
    return n;
}

class ThreadTest : public ::testing::Test {
   protected:
    void SetUp() override
    {
        vln_thread_init();
        threads_before_ = thread_count();
    }
    // No test leaves a thread of its own behind.
    void TearDown() override
    {
        EXPECT_TRUE(eventually([&] { return thread_count() <= threads_before_; }));
    }
    int threads_before_ = 0;
};

using PoolTest = ThreadTest;

// Sets a flag when the thread that holds it unwinds, however it ends.
struct SetOnUnwind {
    std::atomic<bool> *flag;
    ~SetOnUnwind() { *flag = true; }
};

struct Probe {
    int how = 0;  // 0 return, 1 vln_thread_exit, 2 Fatal, 3 park itself
    std::atomic<uint32_t> tid{0};
    std::atomic<int> ismain{-1};
    std::atomic<bool> past{false};  // got past the ending call
    std::atomic<bool> unwound{false};
};

void *probe_body(void *p)
{
    auto *probe = static_cast<Probe *>(p);
    SetOnUnwind mark{&probe->unwound};
    vln_thread_id self = vln_gettid();
    probe->tid = self.tid;
    probe->ismain = vln_thread_ismain();
    if (probe->how == 1) vln_thread_exit(5);
    if (probe->how == 2) Fatal("worker gave up");
    if (probe->how == 3) vln_thread_suspend(&self);
    probe->past = true;
    return nullptr;
}

/* ---------------------------------------------------------------- spawning and ending */

TEST_F(ThreadTest, SpawnFillsTheIdOfTheNewThread)
{
    Probe probe;
    vln_thread_id id = {77, 77};  // a stale id is replaced
    vln_mutex_begin(&csect);      // a caller may hold csect while it spawns
    ASSERT_EQ(vln_thread_spawn(&id, 0, probe_body, &probe), 2);
    vln_mutex_end(&csect);
    ASSERT_TRUE(eventually([&] { return probe.unwound.load(); }));
    EXPECT_EQ(id.tid, probe.tid.load());
    EXPECT_NE(id.handle, 0u);
    EXPECT_EQ(probe.ismain.load(), 0);
    EXPECT_FALSE(vln_thread_equal(id, vln_gettid()));
    EXPECT_TRUE(vln_thread_equal(vln_gettid(), vln_main_tid()));
    EXPECT_EQ(vln_thread_ismain(), 1);
    EXPECT_EQ(vln_thread_collect(&id), 0);
    EXPECT_EQ(id.handle + id.tid, 0u);
}

// Ending a thread, directly or through Fatal, ends that thread only, and
// unwinds it.
TEST_F(ThreadTest, ExitAndFatalEndOnlyTheCallingThread)
{
    for (int how : {1, 2}) {
        StderrCapture err;
        Probe probe;
        probe.how = how;
        vln_thread_id id;
        ASSERT_EQ(vln_thread_spawn(&id, 0, probe_body, &probe), 2);
        ASSERT_TRUE(eventually([&] { return probe.unwound.load(); }));
        EXPECT_FALSE(probe.past.load());
        EXPECT_EQ(err.text(), how == 2 ? "FATAL: worker gave up\n" : "");
    }
}

/* ---------------------------------------------------------------- suspension and killing */

TEST_F(ThreadTest, SuspendedThreadWaitsUntilResumed)
{
    Probe probe;
    probe.how = 3;
    vln_thread_id id;
    ASSERT_EQ(vln_thread_spawn(&id, 0, probe_body, &probe), 2);
    ASSERT_TRUE(eventually([&] { return vln_thread_suspended(&id) == 1; }));
    usleep(50000);
    EXPECT_FALSE(probe.past.load());
    EXPECT_EQ(vln_thread_resume(&id), 0);
    EXPECT_TRUE(eventually([&] { return probe.past.load(); }));
}

// Resuming before the thread has parked waits for it instead of being lost.
TEST_F(ThreadTest, ResumeWaitsForTheThreadToPark)
{
    Probe probe;
    probe.how = 3;
    vln_thread_id id;
    ASSERT_EQ(vln_thread_spawn(&id, 0, probe_body, &probe), 2);
    EXPECT_EQ(vln_thread_resume(&id), 0);
    EXPECT_TRUE(eventually([&] { return probe.past.load(); }));
}

TEST_F(ThreadTest, KillEndsAParkedThreadAndThenNothingFindsIt)
{
    Probe probe;
    probe.how = 3;
    vln_thread_id id;
    ASSERT_EQ(vln_thread_spawn(&id, 0, probe_body, &probe), 2);
    ASSERT_TRUE(eventually([&] { return vln_thread_suspended(&id) == 1; }));
    EXPECT_EQ(vln_thread_kill(&id), 0);
    ASSERT_TRUE(eventually([&] { return probe.unwound.load(); }));
    EXPECT_FALSE(probe.past.load());
    // Its record goes as it ends; after that every operation fails.
    ASSERT_TRUE(eventually([&] { return vln_thread_kill(&id) == -1; }));
    StderrCapture err;
    EXPECT_EQ(vln_thread_resume(&id), -1);
    EXPECT_EQ(vln_thread_suspend(&id), -1);
    EXPECT_EQ(vln_thread_suspended(&id), 0);
    EXPECT_NE(err.text().find("Resume Thread failed"), std::string::npos);
    EXPECT_NE(err.text().find("Suspend Thread failed"), std::string::npos);
}

/* ---------------------------------------------------------------- thread-local data, sleeps,
 * signals */

struct TlsJob {
    int key;
    std::atomic<int> result{-1};
};

// A new thread starts without a value, and its own reaches no other thread.
void *tls_job(void *p)
{
    auto *job = static_cast<TlsJob *>(p);
    static int mine = 2;
    bool fresh = vln_tls_get_value(job->key) == nullptr;
    vln_tls_set_value(job->key, &mine);
    job->result = fresh && vln_tls_get_value(job->key) == &mine ? 1 : 0;
    return nullptr;
}

TEST_F(ThreadTest, ThreadLocalValuesArePerThread)
{
    TlsJob job;
    job.key = vln_tls_create();
    ASSERT_GE(job.key, 0);
    int main_value = 1;
    EXPECT_EQ(vln_tls_set_value(job.key, &main_value), 1);
    vln_thread_id id;
    ASSERT_EQ(vln_thread_spawn(&id, 0, tls_job, &job), 2);
    ASSERT_TRUE(eventually([&] { return job.result.load() != -1; }));
    EXPECT_EQ(job.result.load(), 1);
    EXPECT_EQ(vln_tls_get_value(job.key), &main_value);
    vln_tls_destroy(job.key);
    EXPECT_EQ(vln_tls_set_value(-1, &main_value), 0);
    EXPECT_EQ(vln_tls_get_value(-1), nullptr);
}

TEST_F(ThreadTest, SleepsTakeWholeMilliseconds)
{
    // Below 1000 microseconds no time passes: a thousand such calls take far
    // less than the second that real sleeps would.
    auto start = Clock::now();
    for (int i = 0; i < 1000; i++) vln_usleep(999);
    EXPECT_LT(Clock::now() - start, std::chrono::milliseconds(900));
    start = Clock::now();
    vln_usleep(20000);
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(20));
}

// Once a thread has been spawned an alarm interrupts, but doesn't kill.
TEST_F(ThreadTest, AlarmDoesNotEndTheProcessOnceThreadsRun)
{
    Probe probe;
    vln_thread_id id;
    ASSERT_EQ(vln_thread_spawn(&id, 0, probe_body, &probe), 2);
    ASSERT_TRUE(eventually([&] { return probe.unwound.load(); }));
    raise(SIGALRM);
    EXPECT_EQ(vln_signal(-1, nullptr), SIG_ERR);
}

TEST(ThreadMachineTest, FiguresAreSane)
{
    EXPECT_GE(vln_get_ncpus(), 1);
    EXPECT_GT(vln_procmem(), 1);
    int64_t physical = vln_availpmem();
    EXPECT_GT(physical, 0);
    EXPECT_EQ(physical % (int64_t{4} << 20), 0);
    EXPECT_GE(vln_availmem() + (int64_t{64} << 20), physical);
}

/* ---------------------------------------------------------------- fork and join */

struct Job {
    std::atomic<int> started{0};
    std::atomic<int> runs{0};
    std::atomic<int> index{-1};
    std::atomic<uint32_t> tid{0};
    int sleep_us = 1000;
};

void job_body(void *argument, int index)
{
    auto *job = static_cast<Job *>(argument);
    job->started++;
    usleep(static_cast<useconds_t>(job->sleep_us));
    job->tid = vln_gettid().tid;
    job->index = index;
    job->runs++;
}

std::vector<void *> addresses(std::vector<Job> &jobs)
{
    std::vector<void *> out;
    for (auto &j : jobs) out.push_back(&j);
    return out;
}

TEST_F(PoolTest, MforkCallsEveryArgumentOnceAndJoins)
{
    for (int n : {0, 1, 2, 5, 8}) {
        SCOPED_TRACE(n);
        std::vector<Job> jobs(static_cast<size_t>(n + 1));  // one spare, never called
        std::vector<void *> arguments = addresses(jobs);
        vln_thread_mfork(n, job_body, arguments.data());
        const uint32_t me = vln_gettid().tid;
        for (int i = 0; i <= n; i++) {
            EXPECT_EQ(jobs[i].runs.load(), i < n ? 1 : 0) << i;
            if (i == n) break;
            EXPECT_EQ(jobs[i].index.load(), i);
            // The last call runs on the caller; each other one on a thread.
            EXPECT_EQ(jobs[i].tid.load() == me, i == n - 1) << i;
        }
    }
}

/* ---------------------------------------------------------------- pools */

TEST_F(PoolTest, EmptyPoolHasNoThreads)
{
    vln_thread_pool *pool = vln_thread_create_pool(0, job_body, nullptr);
    ASSERT_NE(pool, nullptr);
    EXPECT_EQ(pool->size, 0);
    EXPECT_EQ(thread_count(), threads_before_);
    vln_thread_run_pool(pool);
    vln_thread_wait_pool(pool);
    vln_thread_destroy_pool(pool);
    EXPECT_EQ(vln_thread_create_pool(-1, job_body, nullptr), nullptr);
}

TEST_F(PoolTest, WorkersRunTheirJobOncePerRun)
{
    const int size = 4;
    std::vector<Job> jobs(size);
    vln_thread_pool *pool = vln_thread_create_pool(size, nullptr, nullptr);
    ASSERT_NE(pool, nullptr);
    for (int i = 0; i < size; i++) {
        EXPECT_EQ(vln_thread_set_pool(pool, i, job_body, &jobs[i]), i);
        EXPECT_EQ(pool->running[i], 1);
    }
    EXPECT_EQ(vln_thread_set_pool(pool, size, job_body, nullptr), -1);
    for (int round = 1; round <= 3; round++) {
        vln_thread_run_pool(pool);
        vln_thread_wait_pool(pool);
        for (int i = 0; i < size; i++) {
            EXPECT_EQ(jobs[i].runs.load(), round) << "worker " << i;
            EXPECT_EQ(jobs[i].index.load(), i);
            EXPECT_EQ(pool->state[i], VLN_POOL_IDLE);
        }
    }
    vln_thread_destroy_pool(pool);
}

// Destroying a pool whose workers are busy lets them finish the job once;
// then they quit, instead of running it again or waiting for good.
TEST_F(PoolTest, DestroyWhileBusyQuitsAfterTheJob)
{
    std::vector<Job> jobs(2);
    for (auto &j : jobs) j.sleep_us = 100000;
    std::vector<void *> arguments = addresses(jobs);
    vln_thread_pool *pool = vln_thread_create_pool(2, job_body, arguments.data());
    ASSERT_NE(pool, nullptr);
    vln_thread_run_pool(pool);
    for (auto &j : jobs) ASSERT_TRUE(eventually([&] { return j.started.load() == 1; }));
    StderrCapture err;
    vln_thread_destroy_pool(pool);
    for (auto &j : jobs) EXPECT_EQ(j.runs.load(), 1);
    EXPECT_EQ(err.text(), "");
}

/* ---------------------------------------------------------------- reapers */

void count_reap(void *argument)
{
    ++*static_cast<std::atomic<int> *>(argument);
}

TEST_F(PoolTest, ReapersRunUntilDeleted)
{
    std::atomic<int> a{0}, b{0};
    int na = vln_thread_add_reaper(count_reap, &a);
    int nb = vln_thread_add_reaper(count_reap, &b);
    EXPECT_NE(na, nb);
    ASSERT_TRUE(eventually([&] { return a.load() >= 2 && b.load() >= 2; }));
    EXPECT_EQ(vln_thread_delete_reaper(na), 1);
    EXPECT_EQ(vln_thread_delete_reaper(na), 0);
    int frozen = a.load();
    int moving = b.load();
    ASSERT_TRUE(eventually([&] { return b.load() > moving + 1; }));
    EXPECT_EQ(a.load(), frozen);
    EXPECT_EQ(vln_thread_delete_reaper(nb), 1);
    EXPECT_EQ(vln_thread_add_reaper(nullptr, nullptr), -1);
    // With the list empty the background thread ends, and a new reaper
    // starts another.
    ASSERT_TRUE(eventually([&] { return thread_count() <= threads_before_; }));
    std::atomic<int> c{0};
    int nc = vln_thread_add_reaper(count_reap, &c);
    EXPECT_TRUE(eventually([&] { return c.load() >= 1; }));
    vln_thread_delete_reaper(nc);
}

}  // namespace
