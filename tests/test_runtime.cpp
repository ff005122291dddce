// The platform layer: memory compare, clock, benchmark timers, trace level
// and the log file.
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

TEST(Memory, CompareIsUnsignedAndCoversTheTail)
{
    unsigned char a[7] = {1, 2, 3, 4, 5, 6, 7};
    unsigned char b[7] = {1, 2, 3, 4, 5, 6, 0x80};
    EXPECT_EQ(MMemCmp(a, b, 0), 0);
    EXPECT_EQ(MMemCmp(a, b, 6), 0);
    EXPECT_EQ(MMemCmp(a, b, 7), -1);
    EXPECT_EQ(MMemCmp(b, a, 7), 1);
}

// Ticks are tenths of a millisecond: over one interval the tick count and
// the standard clock agree on that ratio.
TEST(Clock, TicksAreTenthsOfAMillisecond)
{
    const auto t0 = std::chrono::steady_clock::now();
    const MDWord a = MGetTickCount();
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    const MDWord ticks = MGetTickCount() - a;
    const double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count();
    EXPECT_NEAR(ticks / ms, 10.0, 1.0);
}

static MDWord g_fakeNow = 0;
static MDWord FakeClock()
{
    return g_fakeNow;
}

TEST(Benchmark, StartStopTotalsMinMax)
{
    CMBenchmark b;
    b.SetClock(FakeClock);
    MDWord t[3] = {9, 9, 9};
    EXPECT_EQ(b.GetTriple(3, 0, t), 2);
    EXPECT_EQ(t[0], 0u); // no measurement reads as zeros
    g_fakeNow = 100;
    EXPECT_EQ(b.Start(3), 0);
    g_fakeNow = 130;
    EXPECT_EQ(b.Stop(3, 1), 0);
    ASSERT_EQ(b.GetTriple(3, 0, t), 0);
    EXPECT_EQ(t[0], 30u);
    EXPECT_EQ(t[1], 1u);
    ASSERT_EQ(b.GetTriple(3, 1, t), 0);
    EXPECT_EQ(t[0], 30u); // first measurement sets min and max
    EXPECT_EQ(t[1], 0u);
    ASSERT_EQ(b.GetTriple(3, 2, t), 0);
    EXPECT_EQ(t[0], 30u);

    b.Start(3);
    g_fakeNow = 180;
    b.Stop(3, 1);
    b.GetTriple(3, 2, t);
    EXPECT_EQ(t[0], 50u);
    EXPECT_EQ(t[1], 1u);
    b.GetTriple(3, 0, t);
    EXPECT_EQ(t[0], 80u);
    EXPECT_EQ(t[1], 2u);

    // A stop without a start is ignored; so is a wrapped clock.
    EXPECT_EQ(b.Stop(3, 1), 0);
    g_fakeNow = 1000;
    b.Start(3);
    g_fakeNow = 900;
    EXPECT_EQ(b.Stop(3, 1), 0);
    b.GetTriple(3, 0, t);
    EXPECT_EQ(t[1], 2u);
    EXPECT_EQ(b.Stop(77, 1), 2);
}

TEST(Benchmark, TwentyItemsThenFullAndModes)
{
    CMBenchmark b;
    for (MDWord id = 0; id < 20; id++) EXPECT_EQ(b.Start(id), 0);
    EXPECT_EQ(b.Start(99), 3);
    EXPECT_EQ(b.IsEnabled(), 1);
    struct {
        MDWord mode;
        float speed;
    } rec = {1, 1.0f};
    b.SetMode(&rec);
    EXPECT_EQ(b.IsEnabled(), 0);
    MDWord t[3];
    EXPECT_EQ(b.GetTriple(5, 0, t), 0); // counters stay in mode 1
    rec.mode = 4;
    b.SetMode(&rec);
    EXPECT_EQ(b.IsEnabled(), 1);
    EXPECT_EQ(b.GetTriple(5, 0, t), 2); // cleared
    b.SetMode(nullptr);
    EXPECT_EQ(b.m_dwMode, 4u);
}

static std::string g_lastLine;
static void CaptureLine(const char *line)
{
    g_lastLine = line;
}

TEST(Log, SilentAtLevelZeroAndHeadAtLevelOne)
{
    MLogSetSink(CaptureLine);
    g_lastLine.clear();
    MLogInfo("hello %d\n", 1);
    EXPECT_TRUE(g_lastLine.empty());
    MLogSetLevel(1);
    MLogInfo("hello %d\n", 2);
    MLogDebug("debug\n");
    EXPECT_NE(g_lastLine.find("hello 2\n"), std::string::npos);
    EXPECT_EQ(g_lastLine[0], '[');
    EXPECT_NE(g_lastLine.find(" tid:"), std::string::npos);
    // "[YYYY-MM-DD HH:MM:SS.mmm tid:N]"
    EXPECT_EQ(g_lastLine[5], '-');
    EXPECT_EQ(g_lastLine[20], '.');
    MLogSetLevel(0);
    MLogSetSink(nullptr);
}

TEST(Log, FileNameAndBufferOverflowDropsTheMessage)
{
    char dir[] = "/tmp/pvlogXXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    std::string prefix = std::string(dir) + "/run";
    MLogOpen(prefix.c_str(), 0);
    ASSERT_NE(g_pLog, nullptr);
    std::string path = prefix + "_Ztcore5Player.log";
    EXPECT_EQ(access(path.c_str(), F_OK), 0);
    MLogWrite("abc", 3);
    std::string big(60000, 'x');
    MLogWrite(big.data(), big.size()); // flushes "abc", drops itself
    MLogClose();
    FILE *f = std::fopen(path.c_str(), "rb");
    ASSERT_NE(f, nullptr);
    char buf[16] = {0};
    size_t n = std::fread(buf, 1, sizeof(buf), f);
    std::fclose(f);
    EXPECT_EQ(std::string(buf, n), "abc");
    EXPECT_EQ(MLogDumpEnabled(), 0);
    std::remove(path.c_str());
    rmdir(dir);
}
