// The display under concurrent host calls, through the loaded library: frames
// posted on one thread while others set parameters, switch handles and
// views, take snapshots, save and restore, and send gestures. Nothing may
// deadlock (a watchdog ends the program), nothing may read freed memory
// (AddressSanitizer) or race (ThreadSanitizer), and afterwards the display
// still draws and answers as it should.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstring>
#include <functional>
#include <future>
#include <limits>
#include <mutex>
#include <thread>
#include <vector>

#include "Harness.h"

using namespace harness;

namespace {

const Rgb kGrey = {128, 128, 128}, kRed = {210, 40, 40}, kBlue = {40, 70, 220};

// A poster: pushes `frames` in turn until `stop`, `pauseMs` apart.
std::function<void()> Poster(Display &d, std::vector<Frame> &frames, std::atomic<bool> &stop, std::atomic<long> *count = nullptr,
                             int pauseMs = 1)
{
    return [&, count, pauseMs] {
        for (long i = 0; !stop.load(); i++) {
            d.Push(frames[size_t(i) % frames.size()]);
            if (count) (*count)++;
            if (pauseMs) std::this_thread::sleep_for(std::chrono::milliseconds(pauseMs));
        }
    };
}

} // namespace

// Frames of two sizes while parameters, overlay calls, handle switches and
// reads come from other threads. Back on the high handle at the end, the
// display shows new frames again: a switch to it that landed while a frame
// was starting must not leave it hidden.
TEST(DisplayThreads, FramesWhileParametersOverlayAndSwitchesRunElsewhere)
{
    Rig rig(320, 240);
    ASSERT_TRUE(rig.Started());
    Display &d = rig.display;
    std::vector<Frame> frames = {Frame(320, 240, kGrey), Frame(256, 128, kGrey)};
    ASSERT_TRUE(d.PushUntil(frames[0], CentreNear(Shown(kGrey))));
    std::atomic<bool> stop{false};
    auto until = [&](int rounds, std::function<void(int)> body) {
        return [rounds, body] {
            for (int i = 0; i < rounds; i++) body(i);
        };
    };
    auto poster = std::async(std::launch::async, Poster(d, frames, stop));
    RunAllWithin("threads", {
        until(300, [&](int i) {
            d.SetU32(ZT5_CFG_DISPLAY_FISHEYE_MODE, i % 3);
            d.SetU32(ZT5_CFG_DISPLAY_FIT_MODE, i % 3 == 0 ? 5 : 0);
            d.SetU32(ZT5_CFG_DISPLAY_ZOOM, 50 + i % 200);
            d.SetU32(ZT5_CFG_COMMON_ROTATION, (i % 4) * 90);
            ZT5FishEyeParam lens = {5000, 5000, 1000 + i * 10, 4000};
            d.Set(ZT5_CFG_COMMON_FISHEYE_PARAM, &lens);
            d.SetWindow(rig.window.id(), 300 + (i % 5) * 4, 240);
            d.Touch(ZT5_CFG_DISPLAY_UITOUCH_DOWN, float(i), float(i));
            d.SetU32(ZT5_CFG_DISPLAY_STATUS, i % 7 ? 1 : 0);
        }),
        until(60, [&](int i) {
            d->ShowDisplayOverlay(i & 1);
            if (i % 10 == 9) d.SetU32(ZT5_CFG_DISPLAY_SWITCH_HANDLE, (i / 10) & 1);
        }),
        until(1000, [&](int) {
            d.GetU32(ZT5_CFG_DISPLAY_ZOOM);
            d.GetU32(ZT5_CFG_DISPLAY_USE_OPENGLES);
            uint32_t triple[3];
            d->GetDisplayParam(ZT5_CFG_COMMON_BENCHMARK_BLIT, triple);
            ZT5DisplayParam back;
            d->GetDisplayParam(ZT5_CFG_DISPLAY_PARAM, &back);
            Image img;
            d.Snapshot(&img);
        }),
    });
    stop = true;
    poster.wait();
    // Settled on the high handle, shown, plain, upright: a new colour shows.
    d.SetU32(ZT5_CFG_DISPLAY_SWITCH_HANDLE, 1);
    d.SetU32(ZT5_CFG_DISPLAY_STATUS, 1);
    d.SetU32(ZT5_CFG_DISPLAY_FISHEYE_MODE, 0);
    d.SetU32(ZT5_CFG_DISPLAY_FIT_MODE, 0);
    d.SetU32(ZT5_CFG_COMMON_ROTATION, 0);
    ASSERT_EQ(d.SetWindow(rig.window.id(), 320, 240), ZT5_OK);
    Frame blue(320, 240, kBlue);
    Image shot;
    EXPECT_TRUE(d.PushUntil(blue, [](const Image &img) { return Near(img.At(160, 120), Shown(kBlue), 4); }, &shot))
        << "the high handle stayed hidden";
}

// A switch to the low handle and back to the high one, many times, each
// while another thread posts frames as fast as it can (so that the switch
// back waits for the frame lock while a frame starts): each time back, the
// next frames show.
TEST(DisplayThreads, SwitchBackToTheHighHandleAlwaysShowsItAgain)
{
    Rig rig(160, 120);
    ASSERT_TRUE(rig.Started());
    Display &d = rig.display;
    std::vector<Frame> grey = {Frame(160, 120, kGrey)};
    ASSERT_TRUE(d.PushUntil(grey[0], CentreNear(Shown(kGrey))));
    for (int round = 0; round < 30; round++) {
        SCOPED_TRACE(round);
        std::atomic<bool> stop{false};
        auto poster = std::async(std::launch::async, Poster(d, grey, stop, nullptr, 0));
        d.SetU32(ZT5_CFG_DISPLAY_SWITCH_HANDLE, 0);
        std::this_thread::sleep_for(std::chrono::milliseconds(round % 5));
        d.SetU32(ZT5_CFG_DISPLAY_SWITCH_HANDLE, 1);
        stop = true;
        poster.wait();
        Frame colour(160, 120, round % 2 ? kRed : kBlue);
        ASSERT_TRUE(d.PushUntil(colour, [&](const Image &img) { return Near(img.At(80, 60), Shown(round % 2 ? kRed : kBlue), 4); }))
            << "the high handle stayed hidden";
    }
}

// Two displays (sharing the process's EGL lock) take frames whose size keeps
// changing, so that the copy behind them is reallocated, while other threads
// switch views, take snapshots and send gestures. The snapshots are
// well-formed, and nothing hangs: a poster that holds a display's frame lock
// must get through while a snapshot waits for the render thread.
TEST(DisplayThreads, PostsViewSwitchesSnapshotsAndGesturesNeverDeadlock)
{
    Rig a(320, 240), b(256, 192);
    ASSERT_TRUE(a.Started() && b.Started());
    std::vector<Frame> frames;
    for (int i = 0; i < 6; i++) frames.emplace_back(i % 2 ? 256 : 320, i % 2 ? 256 : 240, Rgb{uint8_t(40 * i), 128, 128});
    std::atomic<int> snapshots{0}, bad{0};
    auto posts = [&](Display &d, int n) {
        return [&d, &frames, n] {
            for (int i = 0; i < n; i++) {
                d.Push(frames[size_t(i / 20) % frames.size()]);
                std::this_thread::sleep_for(std::chrono::milliseconds(2));
            }
        };
    };
    auto snaps = [&](Rig &r, int n) {
        return [&, n] {
            for (int i = 0; i < n; i++) {
                Image img;
                if (r.display.Snapshot(&img)) {
                    snapshots++;
                    if (img.width != r.window.width() || img.rgba.size() != size_t(img.width) * img.height * 4) bad++;
                }
                std::this_thread::sleep_for(std::chrono::milliseconds(7));
            }
        };
    };
    RunAllWithin("threads", {posts(a.display, 600), posts(b.display, 400), snaps(a, 80), snaps(b, 60),
            [&] {
                const uint32_t modes[] = {2, 0, 11, 2, 1, 0, 0xFFFFFFFF, 0};
                for (int i = 0; i < 48; i++) {
                    a.display.SetU32(ZT5_CFG_DISPLAY_FISHEYE_MODE, modes[i % 8]);
                    std::this_thread::sleep_for(std::chrono::milliseconds(15));
                }
            },
            [&] {
                for (int i = 0; i < 400; i++) {
                    a.display.Drag(10.0f + i % 50, 20, 12.0f + i % 50, 25);
                    a.display.Pinch(i % 2 ? 1.1f : 0.9f, 100, 80);
                    float vel[2] = {float(i % 7), -2};
                    a.display.Set(ZT5_CFG_DISPLAY_UITOUCH_MOVE_VELOCITY, vel);
                    a.display.SetU32(ZT5_CFG_DISPLAY_SCALE_RATIO, 100 + i % 200);
                    a.display.SetU32(ZT5_CFG_DISPLAY_UITOUCH_AUTOCURISE, i % 3 == 0);
                    FECurrentStatusData st;
                    if (i % 10 == 0 && a.display.Save(&st)) a.display.Restore(st);
                    std::this_thread::sleep_for(std::chrono::milliseconds(1));
                }
            }});
    EXPECT_GT(snapshots.load(), 0);
    EXPECT_EQ(bad.load(), 0);
}

// A storm of gestures, saves and restores (in the plain view some of
// garbage) from several host threads while frames are posted and drawn, in
// each view. Afterwards
// every value of the saved state is in range and the view answers the next
// good gesture as on a fresh display.
TEST(DisplayThreads, GestureStormsLeaveEachViewInRange)
{
    const float nan = std::numeric_limits<float>::quiet_NaN();
    struct View {
        uint32_t mode;
        std::function<void(const FECurrentStatusData &)> inRange;
    } views[] = {
        {0, [](const FECurrentStatusData &s) {
             EXPECT_TRUE(s.mScaleRatio >= 1 && s.mScaleRatio <= 4) << s.mScaleRatio;
             EXPECT_TRUE(std::fabs(s.mTransX) <= s.mScaleRatio - 1 + 1e-3) << s.mTransX;
         }},
        {1, [](const FECurrentStatusData &s) {
             EXPECT_TRUE(s.zAngle[0] > -360 && s.zAngle[0] < 360) << s.zAngle[0];
             EXPECT_TRUE(s.fCamRotZ[0] >= -92.3f && s.fCamRotZ[0] <= 0) << s.fCamRotZ[0];
             EXPECT_TRUE((s.nRoamState | s.nRoamInit) <= 1 && s.nRoamState >= 0 && s.nRoamInit >= 0);
         }},
        {2, [](const FECurrentStatusData &s) {
             EXPECT_TRUE(s.fTz[0] >= -0.85f - 1e-4 && s.fTz[0] <= 1e-4) << s.fTz[0];
             EXPECT_TRUE(s.maxState == 0 || s.maxState == 1);
         }},
        {3, [](const FECurrentStatusData &s) {
             for (int i = 0; i < 4; i++) {
                 EXPECT_TRUE(s.zAngle[i] >= 0 && s.zAngle[i] < 360) << s.zAngle[i];
                 EXPECT_TRUE(s.fTz[i] >= 0 && s.fTz[i] <= 5.5071f) << s.fTz[i];
             }
             EXPECT_TRUE(s.viewBigIndex >= 0 && s.viewBigIndex <= 3 && s.mCurViewIndex >= 0 && s.mCurViewIndex <= 3);
         }},
        {4, [](const FECurrentStatusData &s) {
             EXPECT_TRUE(s.zAngle[0] > -360 && s.zAngle[0] < 360) << s.zAngle[0];
             EXPECT_TRUE(s.fTz[0] >= -1.51f && s.fTz[0] <= 4.5561f) << s.fTz[0];
             EXPECT_TRUE(s.fCamRotZ[0] >= -65.91f && s.fCamRotZ[0] <= 0) << s.fCamRotZ[0];
         }},
        {5, [](const FECurrentStatusData &s) {
             EXPECT_TRUE(s.zAngle[0] > -360 && s.zAngle[0] < 360) << s.zAngle[0];
             EXPECT_TRUE(s.fTilt >= -1.0431f && s.fTilt <= 58.1231f) << s.fTilt;
             EXPECT_TRUE(s.fTz[0] >= -1 && s.fTz[0] <= 1) << s.fTz[0];
         }},
        {6, [](const FECurrentStatusData &s) { EXPECT_TRUE(s.fTilt >= -4.3201f && s.fTilt <= 56.12f) << s.fTilt; }},
        {7, [](const FECurrentStatusData &s) { EXPECT_EQ(s.zAngle[0], 0.0f) << "a view without gestures moved"; }},
        {8, [](const FECurrentStatusData &s) { // the diamond, and one step of 1.44 degrees past it
             EXPECT_TRUE(std::fabs(s.zAngle[0]) <= 50.4f && std::fabs(s.fCamRotX[0]) <= 50.4f);
             EXPECT_LE(std::fabs(s.zAngle[0]) + std::fabs(s.fCamRotX[0]), 50.4f + 1.44f + 1e-3f);
         }},
        {9, [](const FECurrentStatusData &s) {
             EXPECT_TRUE(s.fCamZ[0] >= 3 && s.fCamZ[0] <= 6) << s.fCamZ[0];
             EXPECT_TRUE(std::fabs(s.zAngle[0]) <= 32 && std::fabs(s.fCamRotX[0]) <= 26) << s.zAngle[0] << " " << s.fCamRotX[0];
             EXPECT_TRUE((s.maxState | s.maxMinInit) <= 1 && s.maxState >= 0 && s.maxMinInit >= 0);
             EXPECT_TRUE(s.nCruiseDir == 1 || s.nCruiseDir == -1);
         }},
        {10, [](const FECurrentStatusData &s) {
             EXPECT_TRUE(s.fCamZ[0] >= -0.8f && s.fCamZ[0] <= 6.4f) << s.fCamZ[0];
             EXPECT_TRUE(std::fabs(s.zAngle[0]) <= 60 && std::fabs(s.fCamRotX[0]) <= 32) << s.zAngle[0] << " " << s.fCamRotX[0];
             EXPECT_TRUE((s.maxState | s.maxMinInit) <= 1 && s.maxState >= 0 && s.maxMinInit >= 0);
         }},
    };
    for (const View &v : views) {
        SCOPED_TRACE(v.mode);
        Rig rig(320, 240, v.mode);
        ASSERT_TRUE(rig.Started());
        Display &d = rig.display;
        std::vector<Frame> frames = {v.mode ? SceneFrame() : Frame(320, 240, kGrey)};
        frames[0].Fill(140, 100, 180, 140, kRed);
        ASSERT_TRUE(d.PushUntil(frames[0], [](const Image &) { return true; }));
        std::atomic<bool> stop{false};
        std::atomic<long> posted{0};
        std::mutex saveLock; // one saver at a time reads the display's one saved record
        auto poster = std::async(std::launch::async, Poster(d, frames, stop, &posted));
        auto storm = [&](int t) {
            return [&, t] {
                std::vector<FECurrentStatusData> records(8);
                for (int i = 0; i < 150 || (posted.load() < 100 && i < 5000); i++) {
                    const float x = float((i * 37 + t * 11) % 320), y = float((i * 53 + t * 7) % 240);
                    d.Touch(ZT5_CFG_DISPLAY_UITOUCH_DOWN, x, y);
                    d.Drag(i % 17 ? x : nan, y, i % 19 ? x + (i % 9) * 20.0f - 80 : 1e30f, y + (i % 7) * 15.0f - 45);
                    d.Pinch(i % 3 ? 1.4f : (i % 5 ? 0.6f : nan), x, y);
                    if (i % 13 == 0) d.DoubleTap(x, y);
                    if (i % 23 == 0) d.SetU32(ZT5_CFG_DISPLAY_SCALE_RATIO, 50 + i % 400);
                    if (i % 29 == 0) d.SetU32(ZT5_CFG_DISPLAY_MAX_SCALE, i % 2 ? 300 : 400);
                    if (i % 11 == 0) d.SetU32(ZT5_CFG_DISPLAY_UITOUCH_AUTOCURISE, i % 2);
                    float vel[2] = {float(i % 9) * 40 - 160, 3};
                    d.Set(ZT5_CFG_DISPLAY_UITOUCH_MOVE_VELOCITY, vel);
                    d.Touch(ZT5_CFG_DISPLAY_UITOUCH_UP, x, y);
                    d.GetU32(ZT5_CFG_DISPLAY_SCALE_RATIO);
                    if (i % 7 == 0) {
                        FECurrentStatusData &rec = records[size_t(i / 7) % records.size()];
                        bool saved;
                        {
                            std::lock_guard<std::mutex> lock(saveLock);
                            saved = d.Save(&rec);
                        }
                        // Garbage for the plain view only, which is to bring any record back in range.
                        if (!saved || (v.mode == 0 && i % 35 == 0)) std::memset(&rec, 0xff, sizeof(rec));
                        if (!saved && v.mode) continue;
                        rec.mFishEyeMode = int32_t(v.mode);
                        d.Set(ZT5_CFG_DISPLAY_FE_CURRENTSTATUS, &rec);
                    }
                }
            };
        };
        RunAllWithin("threads", {storm(0), storm(1), storm(2)});
        stop = true;
        poster.wait();
        // A touch and a pinch end any cruise or animation; a clean record
        // puts the camera at a known place.
        d.SetU32(ZT5_CFG_DISPLAY_UITOUCH_AUTOCURISE, 0);
        d.Touch(ZT5_CFG_DISPLAY_UITOUCH_DOWN, 1, 1);
        d.Pinch(1.5f);
        Image shot;
        ASSERT_TRUE(d.PushUntil(frames[0], [](const Image &) { return true; }, &shot));
        // The last gestures are clamped by the draws that follow them.
        EXPECT_TRUE(d.Quiet());
        v.inRange(d.Saved());
        if (v.mode == 0) {
            FECurrentStatusData clean = {};
            clean.mScaleRatio = 2;
            d.SetU32(ZT5_CFG_DISPLAY_MAX_SCALE, 400);
            d.Restore(clean);
            d.Drag(100, 100, 150, 100); // 50 px at zoom 2: 0.1 units, 16 px
            EXPECT_TRUE(d.PushUntil(frames[0], [](const Image &img) {
                const Rect r = BoundsWhere(img, [](Rgb c) { return c.r > 150 && c.g < 90; });
                return std::abs(r.left - 136) <= 2 && std::abs(r.right - 216) <= 2 && std::abs(r.top - 80) <= 2;
            }, &shot)) << "the view doesn't answer a good drag as the model says";
        }
        SaveShot(shot, "_" + std::to_string(v.mode));
    }
}
