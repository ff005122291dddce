// Many whole lives of a display in one process, as a host that opens and
// closes streams all day: create, set up, Init, draw, switch the view, draw,
// Uninit, destroy, going through all eleven views in turn. After a warm-up
// (every view made once, the driver's caches filled) the process must not
// grow: the same number of threads and open files, and resident memory
// within a small allowance (GL objects of the software driver live in that
// memory too). PANOVIEW_CYCLES sets the number of cycles (default 60; `make
// lifecycle` runs 1,000), PANOVIEW_WARMUP those of the warm-up (`make
// valgrind` runs a few of each under memcheck).
#include <gtest/gtest.h>

#include <dirent.h>
#include <unistd.h>
#include <valgrind/valgrind.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>

#include "Harness.h"

using namespace harness;

// A short quarantine: freed memory is reused instead of held back, so that
// resident memory measures what the library keeps.
extern "C" const char *__asan_default_options()
{
    return "quarantine_size_mb=8";
}

namespace {

const uint32_t kModeCount = 11;

int CountEntries(const char *dir)
{
    int n = 0;
    if (DIR *d = opendir(dir)) {
        while (dirent *e = readdir(d))
            if (e->d_name[0] != '.') n++;
        closedir(d);
    }
    return n;
}

long ResidentKb()
{
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind("VmRSS:", 0) == 0) return std::atol(line.c_str() + 6);
    return -1;
}

struct Usage {
    int threads, fds;
    long rssKb;
};

Usage Measure()
{
    // Threads that have ended are gone from /proc a moment later.
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    return {CountEntries("/proc/self/task"), CountEntries("/proc/self/fd"), ResidentKb()};
}

// One life; `n` picks the views.
void Cycle(XWindow &w, Frame &f, int n)
{
    Display d;
    ASSERT_TRUE(d.ok());
    const uint32_t first = uint32_t(n) % kModeCount, second = uint32_t(n * 7 + 3) % kModeCount;
    d.SetU32(ZT5_CFG_DISPLAY_USE_OPENGLES, 1);
    d.SetU32(ZT5_CFG_DISPLAY_FISHEYE_MODE, first);
    ZT5FishEyeParam lens = {5000, 5000, 2800, 5000};
    d.Set(ZT5_CFG_COMMON_FISHEYE_PARAM, &lens);
    ASSERT_EQ(d.Init(w), ZT5_OK);
    ASSERT_TRUE(d.PushUntilDrawn(f)) << "view " << first;
    d.SetU32(ZT5_CFG_DISPLAY_FISHEYE_MODE, second);
    d.Drag(100, 100, 120, 110);
    ASSERT_TRUE(d.PushUntilDrawn(f)) << "view " << second;
    // Destruction (Uninit, DestroyObject) follows in Display's destructor.
}

} // namespace

TEST(Lifecycle, CyclesLeaveNoThreadsFilesOrMemoryBehind)
{
    auto count = [](const char *name, int otherwise) {
        const char *env = std::getenv(name);
        return env ? std::max(0, std::atoi(env)) : otherwise;
    };
    const int cycles = std::max(1, count("PANOVIEW_CYCLES", 60));
    const int warmUp = count("PANOVIEW_WARMUP", int(kModeCount) * 2);
    XWindow w(256, 192);
    ASSERT_TRUE(w.ok());
    Frame f = SceneFrame();
    for (int n = 0; n < warmUp; n++) { // by default every view made twice
        Cycle(w, f, n);
        if (HasFatalFailure()) return;
    }
    const Usage before = Measure();
    const auto start = std::chrono::steady_clock::now();
    for (int n = 0; n < cycles; n++) {
        Cycle(w, f, n);
        if (HasFatalFailure()) return;
    }
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    const Usage after = Measure();
    std::printf("%d cycles in %.1f s: threads %d -> %d, fds %d -> %d, RSS %ld -> %ld kB\n", cycles, seconds,
                before.threads, after.threads, before.fds, after.fds, before.rssKb, after.rssKb);
    EXPECT_EQ(after.threads, before.threads);
    EXPECT_EQ(after.fds, before.fds);
    // Allocator fragmentation may add a little whatever the count; a leak
    // of a frame copy, a texture or a view a cycle grows with it. Under
    // valgrind the resident memory is valgrind's; memcheck judges there.
    if (!RUNNING_ON_VALGRIND) {
        EXPECT_LT(after.rssKb - before.rssKb, 8192 + 16L * cycles) << "resident memory grows with the cycles";
    }
}
