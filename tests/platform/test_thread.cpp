// Threads, suspension, thread-local data, fork-and-join, pools and reapers.
#include "vln_thread.h"
#include "capture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <dirent.h>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

// Polls `done` every 5 ms for up to 30 seconds: generous on a loaded machine.
template <typename F>
bool eventually(F done)
{
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        usleep(5000);
    }
    return true;
}

int thread_count()
{
    int n = 0;
    DIR *dir = opendir("/proc/self/task");
    while (dirent *e = readdir(dir)) n += e->d_name[0] != '.';
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
    if (probe->how == 3) {
        usleep(50000);  // parks late, so that a resume has to wait for it
        vln_thread_suspend(&self);
    }
    probe->past = true;
    return nullptr;
}

/* ---------------------------------------------------------------- starting and ending */

// Before threading starts all ids are equal; init and fini may be repeated, and
// fini turns locking off again. Returns the number of the first check to fail.
int start_and_stop()
{
    const vln_thread_id a = {1, 1}, b = {2, 2};
    if (!vln_thread_equal(a, b)) return 1;
    if (vln_thread_init() != 1 || vln_thread_init() != 1 || vln_thread_equal(a, b)) return 2;
    if (vln_main_tid().tid != static_cast<uint32_t>(getpid()) || !vln_main_tid().handle) return 3;
    if (vln_thread_fini() != 1 || vln_thread_fini() != 1 || vln_locking_enabled()) return 4;
    return 0;
}

TEST(ThreadDeathTest, ThreadingStartsAndStops)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(exit(start_and_stop()), testing::ExitedWithCode(0), "");
}

// A thread that returns, calls vln_thread_exit or calls Fatal ends alone, and
// unwinds. The id is filled in even while the caller holds csect.
TEST_F(ThreadTest, SpawnedThreadsRunAndEnd)
{
    for (int how : {0, 1, 2}) {
        StreamCapture err(StreamCapture::Err);
        Probe probe;
        probe.how = how;
        vln_thread_id id = {77, 77};  // a stale id is replaced
        vln_mutex_begin(&csect);
        ASSERT_EQ(vln_thread_spawn(&id, 0, probe_body, &probe), 2);
        vln_mutex_end(&csect);
        ASSERT_TRUE(eventually([&] { return probe.unwound.load(); }));
        EXPECT_EQ(id.tid, probe.tid.load());
        EXPECT_NE(id.handle, 0u);
        EXPECT_EQ(probe.ismain.load(), 0);
        EXPECT_FALSE(vln_thread_equal(id, vln_gettid()));
        EXPECT_EQ(probe.past.load(), how == 0);
        EXPECT_EQ(err.text(), how == 2 ? "FATAL: worker gave up\n" : "");
    }
    EXPECT_EQ(vln_thread_ismain(), 1);
    EXPECT_TRUE(vln_thread_equal(vln_gettid(), vln_main_tid()));
    raise(SIGALRM);  // once threads have run, an alarm interrupts but doesn't kill
}

// Resuming a thread that hasn't parked yet waits for it instead of being lost.
// A parked thread can be killed; after it has gone every operation fails.
TEST_F(ThreadTest, ParkedThreadsResumeOrDie)
{
    Probe resumed, killed;
    resumed.how = killed.how = 3;
    vln_thread_id id;
    ASSERT_EQ(vln_thread_spawn(&id, 0, probe_body, &resumed), 2);
    EXPECT_EQ(vln_thread_resume(&id), 0);
    EXPECT_TRUE(eventually([&] { return resumed.past.load(); }));

    ASSERT_EQ(vln_thread_spawn(&id, 0, probe_body, &killed), 2);
    ASSERT_TRUE(eventually([&] { return vln_thread_suspended(&id) == 1; }));
    EXPECT_EQ(vln_thread_kill(&id), 0);
    ASSERT_TRUE(eventually([&] { return killed.unwound.load(); }));
    EXPECT_FALSE(killed.past.load());
    ASSERT_TRUE(eventually([&] { return vln_thread_kill(&id) == -1; }));
    StreamCapture err(StreamCapture::Err);
    EXPECT_EQ(vln_thread_resume(&id), -1);
    EXPECT_EQ(vln_thread_suspend(&id), -1);
    EXPECT_EQ(vln_thread_suspended(&id), 0);
    EXPECT_NE(err.text().find("Resume Thread failed"), std::string::npos);
    EXPECT_NE(err.text().find("Suspend Thread failed"), std::string::npos);
}

/* ---------------------------------------------------------------- thread-local data, sleeps */

TEST(ThreadLocalTest, ValuesArePerThread)
{
    int key = vln_tls_create(), mine = 1, theirs = 2;
    ASSERT_GE(key, 0);
    EXPECT_EQ(vln_tls_set_value(key, &mine), 1);
    void *seen = &theirs;
    std::thread([&] {
        seen = vln_tls_get_value(key);
        vln_tls_set_value(key, &theirs);
    }).join();
    EXPECT_EQ(seen, nullptr);  // a new thread starts without a value
    EXPECT_EQ(vln_tls_get_value(key), &mine);
    vln_tls_destroy(key);
    EXPECT_EQ(vln_tls_set_value(-1, &mine), 0);
    EXPECT_EQ(vln_tls_get_value(-1), nullptr);
}

TEST(ThreadSleepTest, SleepsTakeWholeMilliseconds)
{
    // Below 1000 microseconds no time passes: the thread never blocks, which
    // a count of its voluntary context switches shows however loaded we are.
    rusage before, after;
    getrusage(RUSAGE_THREAD, &before);
    for (int i = 0; i < 100; i++) vln_usleep(999);
    getrusage(RUSAGE_THREAD, &after);
    EXPECT_LT(after.ru_nvcsw - before.ru_nvcsw, 50);
    auto start = std::chrono::steady_clock::now();
    vln_usleep(20000);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(20));
}

TEST(ThreadMachineTest, FiguresAreSane)
{
    EXPECT_GE(vln_get_ncpus(), 1);
    EXPECT_GT(vln_procmem(), 1);
    const int64_t physical = vln_availpmem();  // rounded up to whole 4 MiB
    EXPECT_TRUE(physical > 0 && physical % (int64_t{4} << 20) == 0) << physical;
    EXPECT_GE(vln_availmem() + (int64_t{64} << 20), physical);
}

/* ---------------------------------------------------------------- fork and join, pools */

struct Job {
    std::atomic<int> started{0}, runs{0}, index{-1};
    std::atomic<uint32_t> tid{0};
    int sleep_us = 0;
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

TEST_F(ThreadTest, MforkCallsEveryArgumentOnceAndJoins)
{
    for (int n : {0, 1, 2, 5}) {
        SCOPED_TRACE(n);
        std::vector<Job> jobs(static_cast<size_t>(n + 1));  // one spare, never called
        std::vector<void *> arguments;
        for (auto &j : jobs) arguments.push_back(&j);
        vln_thread_mfork(n, job_body, arguments.data());
        EXPECT_EQ(jobs[n].runs.load(), 0);
        for (int i = 0; i < n; i++) {
            EXPECT_EQ(jobs[i].runs.load(), 1) << i;
            EXPECT_EQ(jobs[i].index.load(), i);
            // The last call runs on the caller; each other one on a thread.
            EXPECT_EQ(jobs[i].tid.load() == vln_gettid().tid, i == n - 1) << i;
        }
    }
}

// A pool has one thread per worker (none when empty), and each run calls
// every worker's job once. Destroyed while busy, the workers finish the job
// once and quit, instead of running it again or waiting for good.
TEST_F(ThreadTest, WorkersRunTheirJobOncePerRun)
{
    for (int size : {0, 4}) {
        std::vector<Job> jobs(static_cast<size_t>(size));
        vln_thread_pool *pool = vln_thread_create_pool(size, nullptr, nullptr);
        ASSERT_NE(pool, nullptr);
        EXPECT_EQ(thread_count(), threads_before_ + size);
        for (int i = 0; i < size; i++) vln_thread_set_pool(pool, i, job_body, &jobs[i]);
        EXPECT_EQ(vln_thread_set_pool(pool, size, job_body, nullptr), -1);
        for (int round = 1; round <= 3; round++) {
            vln_thread_run_pool(pool);
            vln_thread_wait_pool(pool);
            for (int i = 0; i < size; i++) {
                EXPECT_EQ(jobs[i].runs.load(), round) << "worker " << i;
                EXPECT_EQ(jobs[i].index.load(), i);
            }
        }
        for (auto &j : jobs) j.sleep_us = 100000;
        vln_thread_run_pool(pool);
        for (auto &j : jobs) ASSERT_TRUE(eventually([&] { return j.started.load() == 4; }));
        StreamCapture err(StreamCapture::Err);
        vln_thread_destroy_pool(pool);
        for (auto &j : jobs) EXPECT_EQ(j.runs.load(), 4);
        EXPECT_EQ(err.text(), "");
    }
    EXPECT_EQ(vln_thread_create_pool(-1, job_body, nullptr), nullptr);
}

/* ---------------------------------------------------------------- reapers */

void count_reap(void *argument)
{
    ++*static_cast<std::atomic<int> *>(argument);
}

TEST_F(ThreadTest, ReapersRunUntilDeleted)
{
    std::atomic<int> a{0}, b{0};
    int na = vln_thread_add_reaper(count_reap, &a);
    int nb = vln_thread_add_reaper(count_reap, &b);
    ASSERT_TRUE(eventually([&] { return a.load() >= 2 && b.load() >= 2; }));
    EXPECT_EQ(vln_thread_delete_reaper(na), 1);
    EXPECT_EQ(vln_thread_delete_reaper(na), 0);
    int frozen = a.load(), moving = b.load();
    ASSERT_TRUE(eventually([&] { return b.load() > moving + 1; }));
    EXPECT_EQ(a.load(), frozen);
    EXPECT_EQ(vln_thread_delete_reaper(nb), 1);
    EXPECT_EQ(vln_thread_add_reaper(nullptr, nullptr), -1);
    // With the list empty the background thread ends, and a new reaper
    // starts another.
    ASSERT_TRUE(eventually([&] { return thread_count() <= threads_before_; }));
    int na2 = vln_thread_add_reaper(count_reap, &a);
    EXPECT_TRUE(eventually([&] { return a.load() > frozen; }));
    vln_thread_delete_reaper(na2);
}

}  // namespace
