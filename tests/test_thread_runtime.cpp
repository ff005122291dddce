// The platform layer's synchronisation: events, re-entrant mutexes, threads
// created suspended, and the two ways an object may go at once after its
// last use on another thread.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "MRuntime.h"

namespace {

std::atomic<int> g_runs{0};
uintptr_t CountRun(void *)
{
    g_runs++;
    return 7;
}

} // namespace

TEST(Event, ManualStaysSignalledAutoReleasesOneWait)
{
    for (MDWord mode : {0u, 2u}) {
        MHandle e = MEventCreate(mode);
        EXPECT_EQ(MEventWait(e, 0), 1);
        EXPECT_EQ(MEventSignal(e), 0);
        EXPECT_EQ(MEventWait(e, 0), 0);
        EXPECT_EQ(MEventWait(e, M_INFINITE), 0);
        EXPECT_EQ(MEventReset(e), 0);
        EXPECT_EQ(MEventWait(e, 5), 1);
        EXPECT_EQ(MEventDestroy(e), 0);
    }
    MHandle e = MEventCreate(1);
    MEventSignal(e);
    EXPECT_EQ(MEventWait(e, 0), 0);
    EXPECT_EQ(MEventWait(e, 0), 1);
    MEventDestroy(e);
    for (auto call : {MEventSignal, MEventReset, MEventDestroy}) EXPECT_EQ(call(nullptr), 2);
    EXPECT_EQ(MEventWait(nullptr, 0), 2);
}

// A waiter that wakes may destroy the event at once: the signaller must be
// out of it by then.
TEST(Event, AWaiterMayDestroyTheEventAsSoonAsItWakes)
{
    for (int i = 0; i < 2000; i++) {
        MHandle e = MEventCreate(i % 2);
        std::thread signaller([e] { MEventSignal(e); });
        EXPECT_EQ(MEventWait(e, M_INFINITE), 0);
        MEventDestroy(e);
        signaller.join();
    }
}

TEST(Mutex, ReentrantOnItsOwnerExclusiveAcrossThreads)
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
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    m.Unlock();
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_FALSE(got.load()) << "taken while still held once";
    m.Unlock();
    t.join();
    EXPECT_TRUE(got.load());
    EXPECT_EQ(MMutexLock(nullptr), 2);
    EXPECT_EQ(MMutexUnlock(nullptr), 2);
}

TEST(Thread, CreatedSuspendedRunsOnlyAfterResume)
{
    g_runs = 0;
    EXPECT_EQ(MThreadCreate(nullptr, nullptr), nullptr);
    MHandle t = MThreadCreate(CountRun, nullptr);
    MHandle never = MThreadCreate(CountRun, nullptr);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(g_runs.load(), 0);
    for (int level = -2; level <= 2; level++) EXPECT_EQ(MThreadSetPriority(t, level), 0);
    EXPECT_EQ(MThreadSetPriority(t, 3), 2);
    EXPECT_EQ(MThreadSetPriority(nullptr, 0), 2);
    EXPECT_EQ(MThreadResume(t), 0);
    EXPECT_EQ(MThreadWait(t, M_INFINITE), 0);
    EXPECT_EQ(MThreadDestroy(t), 0);
    EXPECT_EQ(MThreadDestroy(never), 0) << "a thread never resumed is cancelled";
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(g_runs.load(), 1);
    EXPECT_EQ(MThreadDestroy(nullptr), 0);
}

// The handle of a thread that is just ending may be closed at once: whether
// to join is decided under the thread's lock.
TEST(Thread, AHandleMayBeClosedWhileItsThreadEnds)
{
    g_runs = 0;
    for (int i = 0; i < 500; i++) {
        MHandle t = MThreadCreate(CountRun, nullptr);
        MThreadResume(t);
        if (i % 2) std::this_thread::yield();
        EXPECT_EQ(MThreadDestroy(t), 0);
    }
    for (int i = 0; i < 1000 && g_runs.load() < 500; i++) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    EXPECT_EQ(g_runs.load(), 500);
}

// The thread object: created once, its routine run, its exit waited for.
TEST(Thread, ThreadObjectCreateRunExit)
{
    struct Counting : CZT5Thread {
        std::atomic<int> runs{0};
        MDWord Run() override { return runs++, CZT5Thread::Run(); }
        ~Counting() override { Exit(); }
    };
    for (int i = 0; i < 200; i++) {
        Counting th;
        EXPECT_EQ(th.Create(0), 1);
        EXPECT_EQ(th.Create(0), 1) << "exists already";
        EXPECT_EQ(th.Resume(), 1);
        EXPECT_EQ(th.Lock(), 1);
        EXPECT_EQ(th.Unlock(), 1);
        EXPECT_EQ(th.Exit(), 1);
        EXPECT_EQ(th.runs.load(), 1);
    }
}
