// The render thread draws when something changed what the window shows, or
// while the view still moves, and rests otherwise. Draws are counted through
// the host's ZT5_CFG_DISPLAY_RENDER_STATS; no test measures a time. Each
// fisheye view resting when still, after its gestures and after its cruise,
// and the half sphere's moving backdrop are checked in test_gl_fisheye.
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <thread>

#include "Harness.h"

using namespace harness;

namespace {

class OnDemand : public ::testing::Test {
protected:
    std::unique_ptr<Rig> rig;
    Frame scene = SceneFrame();
    EventLog log;

    void Start(uint32_t mode)
    {
        rig.reset(); // first: the old window, going, would expose the new one
        rig.reset(new Rig(480, 270, mode));
        ASSERT_TRUE(rig->ok());
        ASSERT_EQ(d().Set(ZT5_CFG_DISPLAY_UICALLBACK, &log.record), ZT5_OK);
        ASSERT_EQ(rig->Init(), ZT5_OK);
        ASSERT_TRUE(PostDrawn());
    }
    Display &d() { return rig->display; }
    bool PostDrawn(uint32_t rotation = 0) { return d().PushUntilDrawn(scene, rotation); }
};

} // namespace

// One frame, then nothing: the display rests; each kind of change wakes it
// for at least one draw, after which it rests again.
TEST_F(OnDemand, AStillDisplayRestsAndEveryChangeWakesIt)
{
    Start(0);
    EXPECT_LE(d().DrawsOver(500), 1u) << "a still frame is drawn again and again";
    struct Change {
        const char *what;
        std::function<void()> send;
    } changes[] = {
        {"a new frame", [&] { d().Push(scene); }},
        {"a parameter", [&] { d().SetU32(ZT5_CFG_DISPLAY_MAX_SCALE, 500); }},
        {"a gesture", [&] { d().Drag(100, 100, 110, 100); }},
        {"a mode switch", [&] { d().SetU32(ZT5_CFG_DISPLAY_FISHEYE_MODE, 2); }},
    };
    for (const Change &c : changes) {
        SCOPED_TRACE(c.what);
        ASSERT_TRUE(d().Quiet());
        const uint32_t d0 = d().Stats().dwDraws;
        c.send();
        bool drawn = false;
        for (int i = 0; i < 300 && !drawn; i++) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
            drawn = d().Stats().dwDraws > d0;
        }
        EXPECT_TRUE(drawn);
    }
    EXPECT_TRUE(d().Quiet());
}

// Frames posted faster than they can be drawn are not queued: the newest
// wins, and once posting stops the display draws it and rests.
TEST_F(OnDemand, FramesFasterThanDrawsAreNotQueued)
{
    Start(0);
    const ZT5RenderStats s0 = d().Stats();
    for (int i = 0; i < 300; i++) d().Push(scene);
    ASSERT_TRUE(d().Quiet());
    const ZT5RenderStats s1 = d().Stats();
    EXPECT_EQ(s1.dwNewestDrawn, s1.dwFramesPosted) << "the newest frame is not the one shown";
    EXPECT_LT(s1.dwFramesDrawn - s0.dwFramesDrawn, 300u) << "every frame was drawn: frames queue";
}

// A stream that turns keeps the viewer's state: a cruise stopped with a touch
// stays stopped (the host hears "on" and "off" once each) and the panorama
// stays where it was.
TEST_F(OnDemand, ARotationChangeMidStreamKeepsCruiseAndCamera)
{
    Start(2);
    ASSERT_EQ(d().SetU32(ZT5_CFG_DISPLAY_UITOUCH_AUTOCURISE, 1), ZT5_OK);
    ASSERT_GE(d().DrawsOver(300), 5u);
    ASSERT_EQ(d().Touch(ZT5_CFG_DISPLAY_UITOUCH_DOWN, 50, 50), ZT5_OK);
    ASSERT_TRUE(d().Quiet());
    const FECurrentStatusData before = d().Saved();
    ASSERT_TRUE(PostDrawn(180));
    ASSERT_TRUE(d().Quiet());
    const FECurrentStatusData after = d().Saved();
    EXPECT_EQ(after.mCruiseState, 0) << "the turn started the cruise again";
    EXPECT_EQ(before.xMove, after.xMove) << "the panorama drifted";
    EXPECT_EQ(before.fTz[0], after.fTz[0]);
    EXPECT_EQ(log.Values(ZT5_CFG_DISPLAY_CURISE_STATE_EVENT), (std::vector<uint32_t>{1, 0}));
}
