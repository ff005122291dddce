// A storm of plain-view gestures from several host threads while another
// host thread posts frames and the render thread draws, all through the
// host interface of the real library. Nothing may crash or deadlock (the
// test's time limit turns a hang into a failure), ThreadSanitizer must find
// no race in the view's members, and afterwards the view still draws and
// answers the next good gesture as the model says.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "HostHarness.h"
#include "ZT5Mutex.h"

using namespace harness;

namespace {

const int kW = 320, kH = 240; // window and frame
const int kSquare = 40;
const Rgb kGrey = {128, 128, 128};
const Rgb kRed = {210, 40, 40};

Rect RedBounds(const RgbaImage &img)
{
    return RedBoundsOnGrey(img, kRed);
}

// The square at `scale` with the pan (model units, +y up; one unit is half
// the window, frame and window having the same proportions).
ImagePredicate SquareAt(double scale, double tx, double ty)
{
    return [=](const RgbaImage &img) {
        if (img.empty()) return false;
        const Rect r = RedBounds(img);
        const double cx = kW / 2.0 + tx * kW / 2.0, cy = kH / 2.0 - ty * kH / 2.0, half = kSquare * scale / 2;
        return r.width() > 0 && std::fabs(r.left - (cx - half)) <= 1.5 && std::fabs(r.right - (cx + half)) <= 1.5 &&
               std::fabs(r.top - (cy - half)) <= 1.5 && std::fabs(r.bottom - (cy + half)) <= 1.5;
    };
}

struct Events {
    CZT5Mutex mutex;
    ZT5UICallbackRecord record = {};
    long count = 0; // guarded by the record's mutex, which the sender holds
    Events()
    {
        record.pMutex = &mutex;
        record.pfnCallback = [](ZT5UIMessage *m, void *arg) {
            Events *self = static_cast<Events *>(arg);
            if (m->dwParamID == ZT5_CFG_DISPLAY_EDGE_EVENT) self->count++;
        };
        record.pArg = this;
    }
};

} // namespace

TEST(GestureStorm, ManyHostThreadsWhileFramesArePostedAndDrawn)
{
    ASSERT_NE(std::getenv("DISPLAY"), nullptr) << "this test needs an X display (DISPLAY)";
    PanoviewLibrary lib;
    ASSERT_TRUE(lib.ok()) << lib.error();
    XTestWindow window(kW, kH);
    ASSERT_TRUE(window.ok()) << window.error();
    // Records and points that the display may keep by pointer: they live
    // longer than the display.
    const int kThreads = 3, kRounds = 150;
    const long kMinFrames = 100;
    std::vector<FECurrentStatusData> records(kThreads);
    std::vector<std::array<float, 2>> taps(kThreads);
    std::vector<std::array<float, 2>> centres(kThreads);
    FECurrentStatusData clean;
    float tap[2] = {10, 10};
    Events events;
    HostDisplay disp(lib);
    ASSERT_TRUE(disp.ok());
    ASSERT_EQ(disp.SetU32(ZT5_CFG_DISPLAY_USE_OPENGLES, 1), ZT5_OK);
    ASSERT_EQ(disp.SetU32(ZT5_CFG_DISPLAY_FISHEYE_MODE, 0), ZT5_OK);
    ASSERT_EQ(disp.Set(ZT5_CFG_DISPLAY_UICALLBACK, &events.record), ZT5_OK);
    ASSERT_EQ(disp.Init(window), ZT5_OK);

    I420Frame frame = MakeSolidFrame(kW, kH, kGrey);
    frame.Fill(kW / 2 - kSquare / 2, kH / 2 - kSquare / 2, kW / 2 + kSquare / 2, kH / 2 + kSquare / 2, kRed);
    RgbaImage shot;
    ASSERT_TRUE(disp.PushUntil(frame, SquareAt(1, 0, 0), &shot));

    std::atomic<bool> stop{false};
    std::mutex saveLock;
    std::atomic<long> posted{0};

    // The poster: one host thread pushing frames all along.
    std::thread poster([&] {
        I420Frame own = frame;
        while (!stop.load()) {
            disp.Push(own);
            posted++;
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    });

    const float nan = std::numeric_limits<float>::quiet_NaN();
    std::vector<std::thread> storm;
    for (int t = 0; t < kThreads; t++) {
        storm.emplace_back([&, t] {
            IZT5Display *d = disp.get();
            FECurrentStatusData &rec = records[t];
            std::memset(&rec, 0, sizeof(rec));
            // At least kRounds, and on until enough frames went by that the
            // storm overlaps many draws.
            for (int i = 0; i < kRounds || (posted.load() < kMinFrames && i < 100 * kRounds); i++) {
                const float x = float((i * 37 + t * 11) % kW), y = float((i * 53 + t * 7) % kH);
                float down[2] = {x, y};
                d->SetDisplayParam(ZT5_CFG_DISPLAY_UITOUCH_DOWN, down);
                float move[4] = {x, y, x + float(i % 9) * 20.0f - 80.0f, y + float(i % 7) * 15.0f - 45.0f};
                if (i % 17 == 0) move[0] = nan;
                if (i % 19 == 0) move[2] = 1e30f;
                d->SetDisplayParam(ZT5_CFG_DISPLAY_UITOUCH_MOVED, move);
                centres[t] = {x, y};
                ZT5TouchPinch pinch = {i % 3 ? 1.4f : (i % 5 ? 0.6f : nan), centres[t].data()};
                d->SetDisplayParam(ZT5_CFG_DISPLAY_UITOUCH_VELOCITY, &pinch);
                if (i % 13 == 0) {
                    taps[t] = {x, y};
                    d->SetDisplayParam(ZT5_CFG_DISPLAY_UITOUCH_DOUBLETAP, taps[t].data());
                }
                if (i % 23 == 0) {
                    uint32_t percent = 50 + uint32_t(i % 400);
                    d->SetDisplayParam(ZT5_CFG_DISPLAY_SCALE_RATIO, &percent);
                }
                if (i % 29 == 0) {
                    uint32_t percent = (i % 2) ? 300 : 400;
                    d->SetDisplayParam(ZT5_CFG_DISPLAY_MAX_SCALE, &percent);
                }
                float up[2] = {x, y};
                d->SetDisplayParam(ZT5_CFG_DISPLAY_UITOUCH_UP, up);
                uint32_t scale = 0, maxScale = 0;
                d->GetDisplayParam(ZT5_CFG_DISPLAY_SCALE_RATIO, &scale);
                d->GetDisplayParam(ZT5_CFG_DISPLAY_MAX_SCALE, &maxScale);
                if (i % 7 == 0) {
                    // A save, copied out at once, and put back: a host's
                    // save and restore racing with everything else. The
                    // saved bytes live in one buffer of the display that
                    // the next save overwrites, so the host lets one saver
                    // at a time read it. Every fifth record is garbage.
                    FECurrentStatusData *p = nullptr;
                    {
                        std::lock_guard<std::mutex> lock(saveLock);
                        d->GetDisplayParam(ZT5_CFG_DISPLAY_GET_FE_CURRENTSTATUS, &p);
                        if (p) std::memcpy(&rec, p, sizeof(rec));
                    }
                    if (p && i % 35 != 0) {
                        rec.mFishEyeMode = 0;
                    } else {
                        std::memset(&rec, 0xff, sizeof(rec));
                        rec.mFishEyeMode = 0;
                    }
                    d->SetDisplayParam(ZT5_CFG_DISPLAY_FE_CURRENTSTATUS, &rec);
                }
                if (i % 31 == 0) {
                    ZT5Snapshot *snap = nullptr;
                    d->GetDisplayParam(ZT5_CFG_DISPLAY_GL_SNAPSHOT, &snap);
                }
            }
        });
    }
    for (std::thread &th : storm) th.join();
    stop = true;
    poster.join();
    EXPECT_GT(posted.load(), 0);

    // Still drawing, with every value in range.
    uint32_t maxScale = 0;
    ASSERT_EQ(disp.SetU32(ZT5_CFG_DISPLAY_MAX_SCALE, 400), ZT5_OK);
    ASSERT_EQ(disp->GetDisplayParam(ZT5_CFG_DISPLAY_MAX_SCALE, &maxScale), ZT5_OK);
    EXPECT_EQ(maxScale, 400u);
    // A pinch stops any animation the storm left running; a clean record
    // puts the camera back to a known place.
    ZT5TouchPinch stopper = {1.5f, nullptr};
    ASSERT_EQ(disp.Set(ZT5_CFG_DISPLAY_UITOUCH_VELOCITY, &stopper), ZT5_OK);
    std::memset(&clean, 0, sizeof(clean));
    clean.mScaleRatio = 2.0f;
    ASSERT_EQ(disp.Set(ZT5_CFG_DISPLAY_FE_CURRENTSTATUS, &clean), ZT5_OK);
    ASSERT_TRUE(disp.PushUntil(frame, SquareAt(2, 0, 0), &shot)) << "no clean picture after the storm";
    uint32_t scale = 0;
    ASSERT_EQ(disp->GetDisplayParam(ZT5_CFG_DISPLAY_SCALE_RATIO, &scale), ZT5_OK);
    EXPECT_EQ(scale, 200u);

    // The next good drag moves the picture as the model says: 50 px right
    // at zoom 2 is 0.1 model units, 16 px on the screen.
    float move[4] = {100, 100, 150, 100};
    ASSERT_EQ(disp.Set(ZT5_CFG_DISPLAY_UITOUCH_MOVED, move), ZT5_OK);
    EXPECT_TRUE(disp.WaitUntil(SquareAt(2, 0.1, 0), &shot));
    SaveImage("GestureStorm_after.png", shot);
    // And the zoom animation runs to its ends again. The storm may have
    // left it interrupted in either direction, which a tap resumes; the
    // tap after that starts from rest.
    auto scaleIs = [&](uint32_t want) {
        return [&disp, want](const RgbaImage &) {
            uint32_t v = 0;
            disp->GetDisplayParam(ZT5_CFG_DISPLAY_SCALE_RATIO, &v);
            return v == want;
        };
    };
    ASSERT_EQ(disp.Set(ZT5_CFG_DISPLAY_UITOUCH_DOUBLETAP, tap), ZT5_OK);
    ASSERT_TRUE(disp.WaitUntil([&](const RgbaImage &img) { return scaleIs(100)(img) || scaleIs(400)(img); }, &shot));
    ASSERT_EQ(disp->GetDisplayParam(ZT5_CFG_DISPLAY_SCALE_RATIO, &scale), ZT5_OK);
    ASSERT_EQ(disp.Set(ZT5_CFG_DISPLAY_UITOUCH_DOUBLETAP, tap), ZT5_OK);
    if (scale == 100u) {
        EXPECT_TRUE(disp.WaitUntil(SquareAt(4, 0, 0), &shot)); // zooming in doesn't pan
    } else {
        EXPECT_TRUE(disp.WaitUntil(SquareAt(1, 0, 0), &shot)); // zooming out centres
    }

    events.mutex.Lock();
    const long edgeEvents = events.count;
    events.mutex.Unlock();
    std::printf("storm: %ld frames posted, %ld edge events\n", posted.load(), edgeEvents);
}
