// The render thread draws when something changed what the window shows, or
// while the view still moves, and rests otherwise. Draws are counted through
// the host's ZT5_CFG_DISPLAY_RENDER_STATS; no test measures a time.
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
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

// Cruise keeps a view drawing until it ends: a touch in most views, a
// touch in each pane of the four-pane view, the host's switch in the map
// view (after a deep tilt released there, which springs back). Then the
// display rests, and resting changes nothing in the saved state.
TEST_F(OnDemand, CruiseDrawsUntilItEndsThenIdleTimeChangesNothing)
{
    const uint32_t down = ZT5_CFG_DISPLAY_UITOUCH_DOWN, up = ZT5_CFG_DISPLAY_UITOUCH_UP;
    const struct {
        uint32_t mode;
        std::function<void(Display &)> end;
    } cases[] = {
        {2, [&](Display &d) { d.Touch(down, 50, 50); d.Touch(up, 50, 50); }},
        {3, [&](Display &d) { for (float x : {100.f, 380.f}) for (float y : {60.f, 200.f}) d.Touch(down, x, y); }},
        {4, [&](Display &d) {
             d.Touch(down, 300, 20);
             d.Drag(300, 20, 300, 260);
             d.Touch(up, 300, 260);
             d.SetU32(ZT5_CFG_DISPLAY_UITOUCH_AUTOCURISE, 0);
         }},
        {5, [&](Display &d) { d.Touch(down, 50, 50); }},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.mode);
        Start(c.mode);
        ASSERT_EQ(d().SetU32(ZT5_CFG_DISPLAY_UITOUCH_AUTOCURISE, 1), ZT5_OK);
        // Moving, the view draws on (the four panes' draws are slow under
        // the sanitizers on a loaded machine); resting, it draws at most
        // for a window event or two, and that changes nothing.
        EXPECT_GE(d().DrawsOver(400), 3u) << "cruise does not keep the view moving";
        EXPECT_GE(d().DrawsOver(400), 3u);
        c.end(d());
        ASSERT_TRUE(d().Quiet());
        const FECurrentStatusData before = d().Saved();
        EXPECT_LE(d().DrawsOver(500), 2u);
        const FECurrentStatusData after = d().Saved();
        EXPECT_EQ(std::memcmp(&before, &after, sizeof before), 0) << "the saved state changed while resting";
        // The four panes keep the switch on with every pane stopped.
        EXPECT_EQ(after.mCruiseState, c.mode == 3 ? 1 : 0);
    }
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

// The half sphere's cloud and stars keep it drawing while the host's
// animation switch is on, and stand still with it off: with the switch off
// the view rests once the camera stops.
TEST_F(OnDemand, TheHalfSphereBackdropMovesOnlyWithItsAnimation)
{
    Start(1);
    EXPECT_TRUE(d().Quiet()) << "the backdrop keeps drawing with the animation off";
    ASSERT_EQ(d().SetU32(ZT5_CFG_DISPLAY_FE_BASE_ANIMATION, 1), ZT5_OK);
    ASSERT_EQ(d().SetU32(ZT5_CFG_DISPLAY_FISHEYE_MODE, 2), ZT5_OK);
    ASSERT_EQ(d().SetU32(ZT5_CFG_DISPLAY_FISHEYE_MODE, 1), ZT5_OK);
    bool arrived = false; // the opening flight ends at the overview
    for (int i = 0; i < 1000 && !arrived; i++) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        const FECurrentStatusData s = d().Saved();
        arrived = s.nRoamInit == 0 && s.fCamZ[0] > 7.0f;
    }
    ASSERT_TRUE(arrived);
    // Drawing on, at whatever pace the machine allows (a sanitizer build
    // under load draws a few times a second).
    EXPECT_GE(d().DrawsOver(800), 4u) << "the backdrop stopped with the animation on";
    ASSERT_EQ(d().SetU32(ZT5_CFG_DISPLAY_FE_BASE_ANIMATION, 0), ZT5_OK);
    ASSERT_EQ(d().SetU32(ZT5_CFG_DISPLAY_FISHEYE_MODE, 2), ZT5_OK);
    ASSERT_EQ(d().SetU32(ZT5_CFG_DISPLAY_FISHEYE_MODE, 1), ZT5_OK);
    EXPECT_TRUE(d().Quiet());
}
