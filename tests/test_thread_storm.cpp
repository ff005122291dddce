// A storm: several host threads do everything a host may do at once, for a
// fixed number of operations each, on two displays, across all eleven views:
// frames of changing sizes, gestures (some of them NaN), view and handle
// switches, snapshots, saved states, parameters and the window's viewport.
// Every call must return (a watchdog ends the program on a deadlock),
// ThreadSanitizer must find no race in the library, and both displays draw
// a new frame afterwards.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <functional>
#include <future>
#include <limits>
#include <random>
#include <thread>
#include <vector>

#include "Harness.h"

using namespace harness;

namespace {

const uint32_t kModeCount = 11;
const int kOpsPerThread = 400;

ZT5RenderStats Stats(Display &d)
{
    ZT5RenderStats s = {};
    d->GetDisplayParam(ZT5_CFG_DISPLAY_RENDER_STATS, &s);
    return s;
}

} // namespace

TEST(Storm, EveryHostCallAtOnceOnTwoDisplays)
{
    Rig a(320, 240, 1), b(256, 192, 0);
    ASSERT_TRUE(a.ok() && b.ok());
    ZT5FishEyeParam lens = {5000, 5000, 2800, 5000};
    // The host's callback reads the display back and sets it, on whichever
    // thread it is called: a cruise event comes from the display's side
    // while another thread's snapshot waits for the render thread.
    ZT5UICallbackRecord records[2] = {};
    for (int i = 0; i < 2; i++) {
        records[i].pArg = i ? &b.display : &a.display;
        records[i].pfnCallback = [](ZT5UIMessage *, void *arg) {
            static_cast<Display *>(arg)->GetU32(ZT5_CFG_DISPLAY_ZOOM);
            static_cast<Display *>(arg)->SetU32(ZT5_CFG_DISPLAY_BACK_COLOR, 0x102030);
        };
    }
    for (Rig *r : {&a, &b}) {
        r->display.Set(ZT5_CFG_COMMON_FISHEYE_PARAM, &lens);
        r->display.Set(ZT5_CFG_DISPLAY_UICALLBACK, &records[r == &b]);
        ASSERT_EQ(r->Init(), ZT5_OK);
    }
    std::vector<Frame> frames = {SceneFrame(0), Frame(320, 240, {128, 128, 128}), Frame(250, 130, {40, 70, 220})};
    std::atomic<long> ops{0};
    const float nan = std::numeric_limits<float>::quiet_NaN();

    auto worker = [&](Rig &rig, int role, unsigned seed) {
        return [&, role, seed] {
            Display &d = rig.display;
            std::mt19937 rng(seed);
            std::vector<FECurrentStatusData> kept(4);
            for (int i = 0; i < kOpsPerThread; i++, ops++) {
                const float x = float(rng() % 320), y = float(rng() % 240);
                switch (role) {
                case 0: // the decoder
                    d.Push(frames[(i / 25) % frames.size()]);
                    break;
                case 1: // the user's hands
                    switch (i % 6) {
                    case 0: d.Touch(ZT5_CFG_DISPLAY_UITOUCH_DOWN, x, y); break;
                    case 1: d.Drag(x, y, i % 17 ? x + 30 : nan, y - 20); break;
                    case 2: d.Pinch(i % 4 ? 1.2f : 0.8f, x, y); break;
                    case 3: {
                        float v[2] = {float(rng() % 400) - 200, i % 23 ? 5.0f : nan};
                        d.Set(ZT5_CFG_DISPLAY_UITOUCH_MOVE_VELOCITY, v);
                        break;
                    }
                    case 4:
                        if (i % 12 == 4) {
                            float point[2] = {x, y};
                            d.Set(ZT5_CFG_DISPLAY_AIM_AT, point);
                        } else {
                            d.DoubleTap(x, y);
                        }
                        break;
                    default: d.Touch(ZT5_CFG_DISPLAY_UITOUCH_UP, x, y); break;
                    }
                    break;
                case 2: // the player's controls
                    switch (i % 8) {
                    case 0: d.SetU32(ZT5_CFG_DISPLAY_FISHEYE_MODE, rng() % kModeCount); break;
                    case 1: d.SetU32(ZT5_CFG_DISPLAY_UITOUCH_AUTOCURISE, rng() % 2); break;
                    case 2: d.SetU32(ZT5_CFG_DISPLAY_SCALE_RATIO, 50 + rng() % 400); break;
                    case 3: d.SetU32(ZT5_CFG_DISPLAY_BACK_COLOR, rng() & 0xffffff); break;
                    case 4: d.SetWindow(rig.window.id(), 200 + rng() % 120, 150 + rng() % 90); break;
                    case 5: d.SetU32(ZT5_CFG_DISPLAY_SWITCH_HANDLE, i % 16 == 5 ? 0 : 1); break;
                    case 6: d.SetU32(ZT5_CFG_COMMON_ROTATION, (rng() % 4) * 90); break;
                    default: d->ShowDisplayOverlay(rng() % 2); break;
                    }
                    break;
                default: { // the player's reads
                    Image img;
                    FECurrentStatusData &st = kept[size_t(i) % kept.size()];
                    switch (i % 4) {
                    case 0: d.Snapshot(&img); break;
                    case 1:
                        if (d.Save(&st)) d.Restore(st);
                        break;
                    case 2: {
                        Stats(d), d.GetU32(ZT5_CFG_DISPLAY_SCALE_RATIO);
                        ZT5PointMap m = {uint32_t(i % 8 == 2), x, y, 0.0f, 0.0f, 0};
                        d->GetDisplayParam(ZT5_CFG_DISPLAY_MAP_POINT, &m);
                        break;
                    }
                    default: {
                        uint32_t triple[3];
                        d->GetDisplayParam(ZT5_CFG_COMMON_BENCHMARK_BLIT, triple);
                        break;
                    }
                    }
                    break;
                }
                }
                if (role != 0 && i % 8 == 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        };
    };
    std::vector<std::future<void>> running;
    unsigned seed = 1;
    for (Rig *r : {&a, &b})
        for (int role = 0; role < 4; role++) running.push_back(std::async(std::launch::async, worker(*r, role, seed++)));
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(240);
    for (auto &r : running)
        if (r.wait_until(end) != std::future_status::ready) {
            ADD_FAILURE() << "storm still running after 240 s (" << ops.load() << " operations done): deadlock";
            std::fprintf(stderr, "deadlock: ending the test program\n");
            std::_Exit(1);
        }
    EXPECT_EQ(ops.load(), 8L * kOpsPerThread);
    std::printf("%ld operations\n", ops.load());

    // Calm again: on the high handle, shown, a touch ending any aim, each
    // display draws a new frame.
    for (Rig *r : {&a, &b}) {
        Display &d = r->display;
        d.SetU32(ZT5_CFG_DISPLAY_SWITCH_HANDLE, 1);
        d.Touch(ZT5_CFG_DISPLAY_UITOUCH_DOWN, 10, 10);
        d.Touch(ZT5_CFG_DISPLAY_UITOUCH_UP, 10, 10);
        d.SetWindow(r->window.id(), r->window.width(), r->window.height());
        d->ShowDisplayOverlay(1);
        bool drawn = false;
        for (int i = 0; i < kPollRounds && !drawn; i++) {
            d.Push(frames[0]);
            std::this_thread::sleep_for(std::chrono::milliseconds(kPollMs));
            const ZT5RenderStats s = Stats(d);
            drawn = s.dwNewestDrawn != 0 && s.dwNewestDrawn == s.dwFramesPosted;
        }
        EXPECT_TRUE(drawn) << "a display stopped drawing after the storm";
    }
}
