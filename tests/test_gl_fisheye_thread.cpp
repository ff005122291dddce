// Gestures, cruise switches and saves from a host thread while a render
// thread draws, as the renderer routes them: no lock around gestures, the
// renderer's lock only around draws and restores. Run under ThreadSanitizer
// this proves the views' shared members race-free; in any build the
// per-frame clamps must bring every value back in range.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <future>
#include <mutex>
#include <thread>

#include "EffectFactory.h"
#include "FisheyeCommon.h"
#include "FisheyeGl.h"

namespace {

const int kW = 320, kH = 240;

struct RenderThread {
    std::mutex drawLock; // the renderer's lock: draws and restores
    std::atomic<bool> stop{false};
    std::atomic<int> frames{0};
    std::promise<GlesRenderEffect *> made;
    std::thread thread;

    explicit RenderThread(MDWord mode)
    {
        thread = std::thread([this, mode] {
            fisheyegl::GlContext ctx(kW, kH);
            if (!ctx.ok()) {
                made.set_value(nullptr);
                return;
            }
            fisheyegl::PlaneTextures tex;
            tex.Upload(fisheyegl::SyntheticLens(0));
            GlesRenderEffect *view = CreateRenderEffect(mode, 0);
            if (view) view->Initialize(1080, 1080);
            made.set_value(view);
            const MLong rect[4] = {0, 0, kW, kH};
            while (view && !stop.load()) {
                {
                    std::lock_guard<std::mutex> lock(drawLock);
                    view->Render(rect, kW, kH, 1080, 1080, tex.names(), 0, 0);
                }
                frames++;
            }
            // Settle: a few frames with no gestures apply every clamp.
            for (int i = 0; view && i < 3; i++) view->Render(rect, kW, kH, 1080, 1080, tex.names(), 0, 0);
            delete view;
        });
    }
    void Finish()
    {
        stop = true;
        thread.join();
    }
};

// Fires every gesture the host can send, saves and restores in between.
void Storm(GlesRenderEffect *view, RenderThread &rt, int rounds)
{
    FECurrentStatusData rec;
    for (int i = 0; i < rounds; i++) {
        float x = float((i * 37) % kW), y = float((i * 53) % kH);
        view->OnTouchDown(x, y);
        view->OnTouchMove(x, y, x + (i % 7) * 9.0f - 27.0f, y + (i % 5) * 40.0f - 80.0f);
        view->OnTouchPinch(i % 3 ? 1.5f : 0.5f, 0.1f, 0.1f);
        if (i % 11 == 0) view->OnDoubleClick(x, y);
        view->StartAcceleratedVelocity(float(i % 9) * 40.0f - 160.0f, 3.0f);
        view->OnTouchUp(x, y);
        view->SetFishEyeCruiseState(i % 4 == 0, 1.0f + float(i % 3));
        (void)view->GetFishEyeCruiseState();
        (void)view->GetScaleRatio();
        ASSERT_EQ(view->GetConfig(ZT5_CFG_DISPLAY_GET_FE_CURRENTSTATUS, &rec), 0);
        if (i % 25 == 0) {
            std::lock_guard<std::mutex> lock(rt.drawLock);
            view->setConfig(ZT5_CFG_DISPLAY_FE_CURRENTSTATUS, &rec);
        }
        if (i % 10 == 0) std::this_thread::yield();
    }
}

void WaitFrames(RenderThread &rt, int n)
{
    int start = rt.frames.load();
    while (rt.frames.load() < start + n) std::this_thread::yield();
}

} // namespace

TEST(FisheyeThreads, StripGesturesDuringDrawsStayInRange)
{
    RenderThread rt(2);
    GlesRenderEffect *view = rt.made.get_future().get();
    if (!view) {
        rt.Finish();
        FAIL() << "no GL context or view";
    }
    WaitFrames(rt, 2);
    Storm(view, rt, 400);
    WaitFrames(rt, 2);
    view->OnTouchDown(0, 0); // end any cruise
    WaitFrames(rt, 3);
    FECurrentStatusData d;
    ASSERT_EQ(view->GetConfig(ZT5_CFG_DISPLAY_GET_FE_CURRENTSTATUS, &d), 0);
    EXPECT_GE(d.fTz[0], -0.85f - 0.04f);
    EXPECT_LE(d.fTz[0], 0.04f);
    EXPECT_TRUE(d.maxState == 0 || d.maxState == 1);
    EXPECT_EQ(d.mCruiseState, 0);
    EXPECT_GT(rt.frames.load(), 4);
    rt.Finish();
}

TEST(FisheyeThreads, HalfSphereGesturesDuringDrawsStayInRange)
{
    RenderThread rt(1);
    GlesRenderEffect *view = rt.made.get_future().get();
    if (!view) {
        rt.Finish();
        FAIL() << "no GL context or view";
    }
    WaitFrames(rt, 2);
    Storm(view, rt, 300);
    view->OnTouchUp(0, 0);
    view->OnTouchDown(0, 0);
    view->OnTouchUp(0, 0);
    WaitFrames(rt, 3);
    FECurrentStatusData d;
    ASSERT_EQ(view->GetConfig(ZT5_CFG_DISPLAY_GET_FE_CURRENTSTATUS, &d), 0);
    EXPECT_GT(d.zAngle[0], -360.0f - 20.0f);
    EXPECT_LT(d.zAngle[0], 360.0f + 20.0f);
    EXPECT_GE(d.fCamRotZ[0], -92.2879715f - 1e-3f);
    EXPECT_LE(d.fCamRotZ[0], 0.0f);
    EXPECT_TRUE(d.nRoamState == 0 || d.nRoamState == 1);
    EXPECT_TRUE(d.nRoamInit == 0 || d.nRoamInit == 1);
    EXPECT_EQ(d.mCruiseState, 0);
    rt.Finish();
}
