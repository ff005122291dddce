// The platform layer's synchronisation: events, re-entrant mutexes and
// threads created suspended.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <unistd.h>

#include "CMBenchmark.h"
#include "MLog.h"
#include "MRuntime.h"

TEST(Event, ManualResetStaysSignalledUntilReset)
{
    for (MDWord mode : {0u, 2u}) {
        MHandle e = MEventCreate(mode);
        ASSERT_NE(e, nullptr);
        EXPECT_EQ(MEventWait(e, 0), 1);
        EXPECT_EQ(MEventSignal(e), 0);
        EXPECT_EQ(MEventWait(e, 0), 0);
        EXPECT_EQ(MEventWait(e, 10), 0);
        EXPECT_EQ(MEventWait(e, M_INFINITE), 0);
        EXPECT_EQ(MEventReset(e), 0);
        EXPECT_EQ(MEventWait(e, 5), 1);
        EXPECT_EQ(MEventDestroy(e), 0);
    }
}

TEST(Event, AutoResetReleasesOneWait)
{
    MHandle e = MEventCreate(1);
    MEventSignal(e);
    EXPECT_EQ(MEventWait(e, 0), 0);
    EXPECT_EQ(MEventWait(e, 0), 1);
    MEventDestroy(e);
}

TEST(Event, NullHandlesAnswerTwo)
{
    EXPECT_EQ(MEventWait(nullptr, 0), 2);
    EXPECT_EQ(MEventSignal(nullptr), 2);
    EXPECT_EQ(MEventReset(nullptr), 2);
    EXPECT_EQ(MEventDestroy(nullptr), 2);
}

TEST(Event, TimedWaitWakesWhenSignalledFromAnotherThread)
{
    CZT5Event ev(0);
    std::thread t([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        ev.Signal();
    });
    auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(ev.Wait(5000), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - t0, std::chrono::seconds(4));
    t.join();
}

TEST(Mutex, ReentrantOnOwningThreadAndExclusiveAcrossThreads)
{
    CZT5Mutex m;
    EXPECT_EQ(m.Lock(), 0);
    EXPECT_EQ(m.Lock(), 0); // must not block
    std::atomic<bool> got{false};
    std::thread t([&] {
        m.Lock();
        got = true;
        m.Unlock();
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    EXPECT_FALSE(got.load());
    m.Unlock();
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_FALSE(got.load()); // still held once
    m.Unlock();
    t.join();
    EXPECT_TRUE(got.load());
    EXPECT_EQ(MMutexLock(nullptr), 2);
    EXPECT_EQ(MMutexUnlock(nullptr), 2);
    EXPECT_EQ(MMutexDestroy(nullptr), 0);
}

static std::atomic<int> g_runs{0};
static uintptr_t CountRun(void *)
{
    g_runs++;
    return 7;
}

TEST(Thread, CreatedSuspendedRunsOnlyAfterResume)
{
    g_runs = 0;
    EXPECT_EQ(MThreadCreate(nullptr, nullptr), nullptr);
    MHandle t = MThreadCreate(CountRun, nullptr);
    ASSERT_NE(t, nullptr);
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    EXPECT_EQ(g_runs.load(), 0);
    EXPECT_EQ(MThreadSuspend(t), 0);
    EXPECT_EQ(MThreadResume(t), 0);
    EXPECT_EQ(MThreadWait(t, 5000), 0);
    EXPECT_EQ(g_runs.load(), 1);
    EXPECT_EQ(MThreadDestroy(t), 0);
    EXPECT_EQ(MThreadDestroy(nullptr), 0);
}

TEST(Thread, DestroyingANeverResumedThreadDoesNotRunIt)
{
    g_runs = 0;
    MHandle t = MThreadCreate(CountRun, nullptr);
    EXPECT_EQ(MThreadDestroy(t), 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(g_runs.load(), 0);
}

TEST(Thread, PriorityLevels)
{
    MHandle t = MThreadCreate(CountRun, nullptr);
    for (int lvl = -2; lvl <= 2; lvl++) EXPECT_EQ(MThreadSetPriority(t, lvl), 0);
    EXPECT_EQ(MThreadSetPriority(t, 3), 2);
    EXPECT_EQ(MThreadSetPriority(t, -3), 2);
    EXPECT_EQ(MThreadSetPriority(nullptr, 0), 2);
    MThreadResume(t);
    MThreadWait(t, M_INFINITE);
    MThreadDestroy(t);
}

class CountingThread : public CZT5Thread {
public:
    std::atomic<int> runs{0};
    MDWord Run() override
    {
        runs++;
        return CZT5Thread::Run();
    }
    ~CountingThread() override { Exit(); }
};

TEST(Thread, ThreadObjectCreateRunExit)
{
    CountingThread th;
    EXPECT_EQ(th.Create(0), 1);
    EXPECT_EQ(th.Create(0), 1); // exists already
    EXPECT_EQ(th.Resume(), 1);
    EXPECT_EQ(th.Lock(), 1);
    EXPECT_EQ(th.Unlock(), 1);
    EXPECT_EQ(th.Exit(), 1);
    EXPECT_EQ(th.runs.load(), 1);
}

