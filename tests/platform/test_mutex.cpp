// The library's locks: inert until threading starts, then recursive and exclusive.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "vld_core.h"
#include "vln_thread.h"

namespace {

TEST(MutexDeathTest, LocksDoNothingBeforeThreadingStarts)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            static vln_mutex m;
            vln_mutex_begin(&m);
            vln_mutex_begin(&m);
            bool inert = !vln_locking_enabled() && m.created == 0 && m.count == 0;
            vln_mutex_end(&m);
            vln_mutex_end(&m);  // an end without a begin is harmless too
            exit(inert ? 0 : 3);
        },
        testing::ExitedWithCode(0), "");
}

TEST(Mutex, RecursiveAndExclusiveOnceThreadingStarts)
{
    ASSERT_EQ(vln_thread_init(), 1);
    ASSERT_EQ(vln_thread_init(), 1);  // idempotent
    EXPECT_TRUE(vln_locking_enabled());

    static vln_mutex m;
    vln_mutex_begin(&m);
    vln_mutex_begin(&m);  // the same thread enters again
    EXPECT_EQ(m.created, 1);
    EXPECT_EQ(m.count, 2);

    std::atomic<bool> entered{false};
    std::thread other([&] {
        vln_mutex_begin(&m);
        entered = true;
        vln_mutex_end(&m);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(entered.load());  // held twice here: the other thread waits
    vln_mutex_end(&m);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_FALSE(entered.load());
    vln_mutex_end(&m);
    other.join();
    EXPECT_TRUE(entered.load());
    EXPECT_EQ(m.count, 0);

    vln_mutex_destroy(&m);
    EXPECT_EQ(m.created, 0);
    vln_mutex_destroy(&m);
    vln_mutex_begin(nullptr);
    vln_mutex_end(nullptr);
}

}  // namespace
