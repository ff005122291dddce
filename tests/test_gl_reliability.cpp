// What a host can do to a display's window beyond ordinary use: destroy it
// while the display draws, unmap it, give a new one with the old one's id,
// shrink it before a snapshot, and rebuild the renderer from inside its own
// callback. The display must survive, never hang (a watchdog ends the
// program instead) and draw again afterwards. (Saved states and gestures of
// NaN, infinities and huge numbers in every view: Fisheye.SaveAndRestore,
// Fisheye.RestsWhenStillAndDropsNonFiniteInput, the thread storms and the
// fuzz targets.)
#include <gtest/gtest.h>

#include <X11/Xlib.h>
#include <xcb/xcb.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <future>
#include <memory>
#include <thread>

#include "Harness.h"

using namespace harness;

namespace {

const Rgb kGrey = {128, 128, 128}, kRed = {210, 40, 40}, kBlue = {40, 70, 220};

int HostXErrors = 0;
int HostXErrorHandler(::Display *, XErrorEvent *)
{
    return ++HostXErrors, 0;
}

class Reliability : public ::testing::Test {
protected:
    void SetUp() override { m_previous = XSetErrorHandler(HostXErrorHandler); }
    void TearDown() override
    {
        // The host's handler is still in place: the library may not keep one
        // of its own installed.
        EXPECT_EQ(XSetErrorHandler(m_previous), HostXErrorHandler) << "the host's X error handler was replaced";
    }
    XErrorHandler m_previous = nullptr;
};

} // namespace

namespace {

// A window of an xcb client, which chooses its windows' ids: a new window
// can carry the id of one destroyed, as X hands out the ids of a closed
// connection again.
struct XcbWindow {
    xcb_connection_t *c;
    uint32_t id;
    XcbWindow(xcb_connection_t *conn, uint32_t wid, int w, int h) : c(conn), id(wid)
    {
        const xcb_screen_t *screen = xcb_setup_roots_iterator(xcb_get_setup(c)).data;
        const uint32_t values[] = {screen->black_pixel, XCB_EVENT_MASK_STRUCTURE_NOTIFY};
        xcb_create_window(c, XCB_COPY_FROM_PARENT, id, screen->root, 0, 0, uint16_t(w), uint16_t(h), 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual, XCB_CW_BACK_PIXEL | XCB_CW_EVENT_MASK,
                          values);
        EXPECT_TRUE(SetMapped(true)) << "window never mapped";
    }
    ~XcbWindow()
    {
        xcb_destroy_window(c, id);
        std::free(xcb_get_input_focus_reply(c, xcb_get_input_focus(c), nullptr)); // a round trip: done
    }
    // Maps or unmaps it and waits until the server has.
    bool SetMapped(bool mapped)
    {
        if (mapped)
            xcb_map_window(c, id);
        else
            xcb_unmap_window(c, id);
        xcb_flush(c);
        for (int i = 0; i < 500; i++) {
            bool done = false;
            while (xcb_generic_event_t *ev = xcb_poll_for_event(c)) {
                done = done || (ev->response_type & 0x7f) == (mapped ? XCB_MAP_NOTIFY : XCB_UNMAP_NOTIFY);
                std::free(ev);
            }
            if (done) return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return false;
    }
};

} // namespace

// The window goes while frames keep coming; the display answers every call
// without it. The host's next window carries the destroyed one's id: the
// display draws on it, and again after it was unmapped and mapped.
TEST_F(Reliability, WindowDestroyedWhileDrawingThenANewOneWithItsIdAndUnmapRemap)
{
    xcb_connection_t *c = xcb_connect(nullptr, nullptr);
    ASSERT_FALSE(xcb_connection_has_error(c));
    const uint32_t id = xcb_generate_id(c);
    auto first = std::make_unique<XcbWindow>(c, id, 320, 240);
    harness::Display d;
    ASSERT_TRUE(d.ok());
    d.SetU32(ZT5_CFG_DISPLAY_USE_OPENGLES, 1);
    ASSERT_EQ(d.Init(id, 320, 240), ZT5_OK);
    Frame grey(320, 240, kGrey);
    ASSERT_TRUE(d.PushUntil(grey, CentreNear(Shown(kGrey))));

    std::atomic<bool> stop{false};
    auto poster = std::async(std::launch::async, [&] {
        Frame f(320, 240, kGrey);
        while (!stop) d.Push(f), std::this_thread::sleep_for(std::chrono::milliseconds(2));
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    first.reset(); // destroyed under the drawing display
    RunAllWithin("a display without its window", {[&] {
        for (int i = 0; i < 40; i++) {
            Image img;
            d.Snapshot(&img);
            d.GetU32(ZT5_CFG_DISPLAY_SCALE_RATIO);
            d.SetU32(ZT5_CFG_DISPLAY_FISHEYE_MODE, i % 2);
            d.Drag(10, 10, 20, 20);
            FECurrentStatusData st;
            d.Save(&st);
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    }}, 120);
    stop = true;
    poster.wait();

    d.SetU32(ZT5_CFG_DISPLAY_FISHEYE_MODE, 0);
    {
        XcbWindow second(c, id, 256, 192);
        ASSERT_EQ(d.SetWindow(id, 256, 192), ZT5_OK);
        Frame red(320, 240, kRed), blue(320, 240, kBlue);
        Image shot;
        EXPECT_TRUE(d.PushUntil(red, CentreNear(Shown(kRed)), &shot))
            << "nothing drawn on the new window: " << shot.width << "x" << shot.height << ", " << d.Stats().dwDraws << " draws";
        EXPECT_EQ(shot.width, 256);
        ASSERT_TRUE(second.SetMapped(false));
        RunAllWithin("an unmapped window", {[&] {
            for (int i = 0; i < 20; i++) d.Push(i % 2 ? red : blue), std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }}, 120);
        ASSERT_TRUE(second.SetMapped(true));
        EXPECT_TRUE(d.PushUntil(blue, CentreNear(Shown(kBlue)), &shot)) << "nothing drawn after the window was mapped again";
        SaveShot(shot);
        d->Uninit(); // before its window goes
    }
    xcb_disconnect(c);
}

// A snapshot before anything was drawn has no picture to give, and one taken
// right after the window shrank, before the next draw, reads no more than the
// window still holds (reading the last draw's size crashed in the driver).
TEST_F(Reliability, SnapshotsBeforeTheFirstDrawAndRightAfterAShrink)
{
    Rig rig(320, 240);
    ASSERT_TRUE(rig.Started());
    harness::Display &d = rig.display;
    // Hidden, a frame makes the renderer but no draw.
    Frame grey(320, 240, kGrey);
    d.SetU32(ZT5_CFG_DISPLAY_STATUS, 0);
    for (int i = 0; i < 5; i++) d.Push(grey);
    Image img;
    EXPECT_FALSE(d.Snapshot(&img)) << "a picture before the first draw: " << img.width << "x" << img.height;
    d.SetU32(ZT5_CFG_DISPLAY_STATUS, 1);
    ASSERT_TRUE(d.PushUntil(grey, CentreNear(Shown(kGrey))));
    for (int round = 0; round < 6; round++) {
        const int w = round % 2 ? 320 : 96, h = round % 2 ? 240 : 64;
        ASSERT_TRUE(rig.window.Resize(w, h));
        if (d.Snapshot(&img)) {
            EXPECT_TRUE(img.width <= w && img.height <= h) << img.width << "x" << img.height;
        }
        d.Push(grey);
    }
    EXPECT_TRUE(d.PushUntil(grey, [](const Image &i) { return i.width == 320 && i.height == 240; }, &img));
}

// The host's callback, told of an edge from inside a drag, gives the display
// a new window and switches the view. The rebuild that follows waits for the
// render thread, which must not wait for the drag in turn; the drag returns
// with the new view on.
TEST_F(Reliability, CallbackGivingANewWindowFromInsideAGestureDoesNotHang)
{
    Rig rig(320, 240);
    XWindow other(288, 216);
    ASSERT_TRUE(rig.ok() && other.ok());
    harness::Display &d = rig.display;
    struct Host {
        harness::Display *d;
        uint32_t window;
        std::atomic<int> edges{0};
    } host{&d, other.id()};
    ZT5UICallbackRecord record = {};
    record.pArg = &host;
    record.pfnCallback = [](ZT5UIMessage *m, void *arg) {
        Host *h = static_cast<Host *>(arg);
        if (m->dwParamID != ZT5_CFG_DISPLAY_EDGE_EVENT || h->edges++ != 0) return;
        h->d->SetWindow(h->window, 288, 216);
        h->d->SetU32(ZT5_CFG_DISPLAY_SCALE_RATIO, 200);
        h->d->SetU32(ZT5_CFG_DISPLAY_FISHEYE_MODE, 2);
    };
    ASSERT_EQ(d.Set(ZT5_CFG_DISPLAY_UICALLBACK, &record), ZT5_OK);
    ASSERT_EQ(rig.Init(), ZT5_OK);
    Frame grey(320, 240, kGrey);
    d.SetU32(ZT5_CFG_DISPLAY_SCALE_RATIO, 200);
    ASSERT_TRUE(d.PushUntil(grey, CentreNear(Shown(kGrey))));
    RunAllWithin("drags against the edge", {[&] {
        for (int i = 0; i < 200 && host.edges == 0; i++) {
            d.Drag(100, 100, 300, 100);
            d.Push(grey);
            std::this_thread::sleep_for(std::chrono::milliseconds(kPollMs));
        }
    }}, 120);
    ASSERT_GT(host.edges.load(), 0) << "no edge reported";
    FECurrentStatusData st = {}; // saved once the new window's renderer is up
    EXPECT_TRUE(d.PushUntil(grey, [&](const Image &) { return d.Save(&st) && st.mFishEyeMode == 2; }))
        << "the view the callback chose is not on";
    d.SetU32(ZT5_CFG_DISPLAY_FISHEYE_MODE, 0);
    Image shot;
    Frame red(320, 240, kRed);
    EXPECT_TRUE(d.PushUntil(red, CentreNear(Shown(kRed)), &shot));
    EXPECT_EQ(shot.width, 288) << "not drawn on the window the callback gave";
}
