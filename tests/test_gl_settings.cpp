// What a host's settings and frames come to, seen where a host sees them:
// in the picture and in what it reads back. A setting takes effect whether
// it comes before Init, after Init before the first frame, while frames are
// drawn, or before a new window makes the display rebuild its renderer.
// Frames of every layout the display takes reach the picture whole; frames
// are read within their buffers (exactly sized here, so that
// AddressSanitizer sees any read past them).
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <thread>
#include <cstring>
#include <functional>
#include <random>

#include "Harness.h"

using namespace harness;

namespace {

const Rgb kGrey = {128, 128, 128}, kRed = {210, 40, 40}, kBlue = {40, 70, 220}, kGreen = {40, 190, 50};

// A grey 640x360 frame with a red square of 80 in its middle.
Frame Square()
{
    Frame f(640, 360, kGrey);
    f.Fill(280, 140, 360, 220, kRed);
    return f;
}

Rect RedBounds(const Image &img)
{
    return BoundsWhere(img, [](Rgb c) { return c.r > 150 && c.g < 90; });
}

// The square at `zoom`, shifted by `tx` half windows to the right.
bool SquareAt(const Image &img, double zoom, double tx = 0)
{
    const Rect r = RedBounds(img);
    const double cx = 320 + tx * 320, half = 40 * zoom;
    return r.width() > 0 && std::fabs(r.left - std::max(0.0, cx - half)) <= 2.5 &&
           std::fabs(r.right - std::min(640.0, cx + half)) <= 2.5 && std::fabs(r.height() - std::min(360.0, 2 * half)) <= 1.5;
}

enum When { kBeforeInit, kBeforeFirstFrame, kLive, kRebuilt, kWhens };
const char *kWhenNames[] = {"before Init", "before the first frame", "live", "before a new window"};

struct Setting {
    const char *name;
    uint32_t mode;
    std::function<void(Display &)> set;
    std::function<bool(Display &, const Image &, When)> inEffect;
};

} // namespace

TEST(Settings, TakeEffectWheneverTheyAreSet)
{
    static FECurrentStatusData record;
    record = FECurrentStatusData{};
    record.mScaleRatio = 2, record.mTransX = 1;
    static double identity[13] = {0, 0, 0, 0, 0, 1, 1, 0, 0, 0, 0, 0, 0};
    static ZT5DistortionParam table = {identity, 13};
    static EventLog log;
    const Setting settings[] = {
        {"zoom", 0, [](Display &d) { d.SetU32(ZT5_CFG_DISPLAY_SCALE_RATIO, 200); },
         [](Display &d, const Image &img, When) { return SquareAt(img, 2) && d.GetU32(ZT5_CFG_DISPLAY_SCALE_RATIO) == 200; }},
        {"zoom limit", 0, [](Display &d) { d.SetU32(ZT5_CFG_DISPLAY_MAX_SCALE, 300); d.SetU32(ZT5_CFG_DISPLAY_SCALE_RATIO, 400); },
         [](Display &d, const Image &img, When) {
             return SquareAt(img, 3) && d.GetU32(ZT5_CFG_DISPLAY_SCALE_RATIO) == 300 && d.GetU32(ZT5_CFG_DISPLAY_MAX_SCALE) == 300;
         }},
        {"a view keeps its state across a switch", 0,
         [](Display &d) { d.SetU32(ZT5_CFG_DISPLAY_SCALE_RATIO, 200); d.SetU32(ZT5_CFG_DISPLAY_FISHEYE_MODE, 2); d.SetU32(ZT5_CFG_DISPLAY_FISHEYE_MODE, 0); },
         [](Display &, const Image &img, When) { return SquareAt(img, 2); }},
        {"a mode the views don't know is refused", 0, [](Display &d) { d.SetU32(ZT5_CFG_DISPLAY_FISHEYE_MODE, 11); },
         [](Display &d, const Image &img, When) { return SquareAt(img, 1) && d.Saved().mFishEyeMode == 0; }},
        {"the view", 0, [](Display &d) { d.SetU32(ZT5_CFG_DISPLAY_FISHEYE_MODE, 2); },
         [](Display &d, const Image &img, When) { // the strip of the square frame's lens square: a band between black bars
             return d.Saved().mFishEyeMode == 2 && Near(img.At(320, 10), {0, 0, 0}, 0) && !Near(img.At(320, 180), {0, 0, 0}, 8);
         }},
        {"a restored state", 0, [](Display &d) { d.Set(ZT5_CFG_DISPLAY_FE_CURRENTSTATUS, &record); },
         [](Display &d, const Image &img, When) { return SquareAt(img, 2, 1) && d.Saved().bRestored == 1; }},
        {"a pinch, which is not kept", 0, [](Display &d) { for (int i = 0; i < 10; i++) d.Pinch(1.5f); },
         [](Display &, const Image &img, When w) { return SquareAt(img, w == kLive ? 1.55 : 1); }},
        {"a distortion table", 0, [](Display &d) { d.Set(ZT5_CFG_DISPLAY_DISTORTION_PARAM, &table); },
         [](Display &, const Image &img, When) { return PictureBounds(img).top > 20; }}, // 0.83 of the height
        {"cruise", 2, [](Display &d) { d.SetU32(ZT5_CFG_DISPLAY_UITOUCH_AUTOCURISE, 1); },
         [](Display &d, const Image &, When) { return d.Saved().mCruiseState == 1; }},
        {"the host's callback", 0, [](Display &d) { d.Set(ZT5_CFG_DISPLAY_UICALLBACK, &log.record); },
         [](Display &d, const Image &, When) {
             log.Clear();
             d.Drag(300, 180, 320, 181); // at zoom 1 every drag meets the edge
             return log.Values(ZT5_CFG_DISPLAY_EDGE_EVENT) == std::vector<uint32_t>{8};
         }},
    };
    for (const Setting &s : settings) {
        for (int w = 0; w < kWhens; w++) {
            SCOPED_TRACE(std::string(s.name) + ", " + kWhenNames[w]);
            XWindow second(642, 360); // outlives the display drawn into it
            Rig rig(640, 360, s.mode);
            ASSERT_TRUE(rig.ok() && second.ok());
            Display &d = rig.display;
            Frame f = Square();
            if (w == kBeforeInit) s.set(d);
            ASSERT_EQ(rig.Init(), ZT5_OK);
            if (w == kBeforeFirstFrame) s.set(d);
            // A picture: plain, the red square (in either colour range); of a view, the frame's grey.
            ASSERT_TRUE(d.PushUntil(f, [](const Image &i) {
                return !i.empty() && (i.At(320, 180).r > i.At(320, 180).g + 60 || CentreNear(Shown(kGrey), 8)(i));
            }));
            if (w >= kLive) s.set(d);
            if (w == kRebuilt) {
                ASSERT_EQ(d.SetWindow(second.id(), 642, 360), ZT5_OK);
                ASSERT_TRUE(d.PushUntil(f, [](const Image &img) { return img.width == 642; })) << "no new renderer";
            }
            Image shot;
            const bool ok = d.PushUntil(f, [&](const Image &img) { return s.inEffect(d, img, When(w)); }, &shot);
            if (!ok) SaveShot(shot, "_" + std::to_string(&s - settings) + "_" + std::to_string(w));
            EXPECT_TRUE(ok) << "not in effect";
        }
    }
}

// Crops: the decoder's alignment columns cut off, fit mode 5's middle of a
// frame that covers the window, and the shared memory agent's free buffer.
TEST(FrameInput, LayoutsAndCropsReachThePicture)
{
    const auto Aligned = [](Display &d, Frame &f) {
        static ZT5AlignInfo align = {1, 8};
        d.Set(ZT5_CFG_CODEC_ALIGNINFO, &align);
        f = Frame(968, 540, kBlue);
        f.Fill(960, 0, 968, 540, kGreen); // the decoder's padding
    };
    const auto AlignedShows = [](const Image &img) {
        return Near(img.At(479, 135), Shown(kBlue), 4) && Near(img.At(240, 1), Shown(kBlue), 4);
    };
    struct Case {
        const char *name;
        int winW, winH;
        std::function<void(Display &, Frame &)> prepare; // after Init, before the first frame
        std::function<bool(const Image &)> shows;
        bool beforeInit = false; // prepare before Init: what was set must outlive it
    } cases[] = {
        {"alignment columns", 480, 270, Aligned, AlignedShows},
        {"alignment columns told before Init", 480, 270, Aligned, AlignedShows, true},
        {"cover crop", 400, 400,
         [](Display &d, Frame &f) {
             d.SetU32(ZT5_CFG_DISPLAY_FIT_MODE, 5);
             f = Frame(1920, 1080, kRed); // the middle 1080 columns blue: all a 400x400 window shows
             f.Fill(420, 0, 1500, 1080, kBlue);
         },
         [](const Image &img) {
             return !img.empty() && Near(img.At(200, 2), Shown(kBlue), 4) && Near(img.At(2, 200), Shown(kBlue), 4) &&
                    Near(img.At(397, 200), Shown(kBlue), 4);
         }},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        Rig rig(c.winW, c.winH);
        ASSERT_TRUE(rig.ok());
        Frame f;
        if (c.beforeInit) c.prepare(rig.display, f);
        ASSERT_EQ(rig.Init(), ZT5_OK);
        if (!c.beforeInit) c.prepare(rig.display, f);
        Image shot;
        const bool ok = rig.display.PushUntil(f, c.shows, &shot);
        SaveShot(shot, std::string("_") + c.name);
        EXPECT_TRUE(ok);
    }

    // The agent's two buffers: the one not busy is shown; a buffer given to
    // DrawFrame wins; without its check words there is no frame.
    Rig rig(320, 180);
    ASSERT_TRUE(rig.Started());
    Frame busy(320, 180, kRed), free(320, 180, kBlue), given(320, 180, kGreen);
    ZT5SharedMemAgent agent = {};
    agent.dwYStride = 320, agent.dwUVStride = 160, agent.dwCheckA = agent.dwCheckB = 1, agent.dwBusy0 = 1;
    for (int i = 0; i < 3; i++) {
        agent.pPlane0[i] = i == 0 ? busy.Y() : i == 1 ? busy.U() : busy.V();
        agent.pPlane1[i] = i == 0 ? free.Y() : i == 1 ? free.U() : free.V();
    }
    ZT5SharedMemAgent *pAgent = &agent;
    ASSERT_EQ(rig.display.Set(ZT5_CFG_COMMON_SHAREDMEM_AGENT, &pAgent), ZT5_OK);
    ZT5FrameInfo info = {320, 180, 320, 180, 0, ZT5_FRAME_CS_I420, 0, 0};
    auto shows = [&](void *buffer, Rgb c) {
        Image img;
        for (int i = 0; i < kPollRounds; i++) {
            EXPECT_EQ(rig.display->DrawFrame(buffer, &info, 0), ZT5_OK);
            std::this_thread::sleep_for(std::chrono::milliseconds(kPollMs));
            if (rig.display.Snapshot(&img) && Near(img.At(160, 90), Shown(c), 4)) return true;
        }
        return false;
    };
    EXPECT_TRUE(shows(nullptr, kBlue)) << "the free buffer";
    EXPECT_TRUE(shows(given.data.data(), kGreen)) << "the buffer given";
    agent.dwCheckA = 0;
    EXPECT_EQ(rig.display->DrawFrame(nullptr, &info, 0), ZT5_ERR_INVALID_PARAM);
}

// In a fisheye view only the lens box of a frame is copied. However the lens
// is set, the box stays inside the frame: odd frame heights and odd box rows,
// boxes reaching past an edge, no lens at all in the wide view.
TEST(FrameInput, LensBoxesStayInsideTheFrame)
{
    struct Case {
        uint32_t mode;
        int w, h;
        ZT5FishEyeParam lens;
    } cases[] = {
        {2, 64, 65, {5000, 9000, 3000, 3000}},    // a box of odd rows to the last row of an odd height
        {1, 641, 361, {9500, 9500, 5000, 5000}}, // reaching past the bottom right
        {10, 1920, 1080, {0, 0, 0, 0}},          // no lens: the whole picture
        {10, 1920, 1080, {5000, 5000, 5000, 8889}}, // a 180-degree circle as wide as the picture: taller than it
        {2, 1920, 1080, {5000, 5000, 2812, 5000}},
    };
    std::mt19937 rng(1234);
    for (const Case &c : cases) {
        SCOPED_TRACE(int(&c - cases));
        Rig rig(320, 180, c.mode);
        ASSERT_TRUE(rig.ok());
        ZT5FishEyeParam lens = c.lens;
        ASSERT_EQ(rig.display.Set(ZT5_CFG_COMMON_FISHEYE_PARAM, &lens), ZT5_OK);
        ASSERT_EQ(rig.Init(), ZT5_OK);
        Frame f(c.w, c.h, kGreen);
        EXPECT_TRUE(rig.display.PushUntil(f, [](const Image &) { return true; }));
        // Random lenses on the same frame, every view.
        std::uniform_int_distribution<int32_t> any(-30000, 30000);
        for (int i = 0; i < 60; i++) {
            lens = {any(rng), i % 11 ? any(rng) : INT32_MIN, i % 7 ? any(rng) : INT32_MAX, any(rng)};
            rig.display.SetU32(ZT5_CFG_DISPLAY_FISHEYE_MODE, i % 11);
            ASSERT_EQ(rig.display.Set(ZT5_CFG_COMMON_FISHEYE_PARAM, &lens), ZT5_OK);
            ASSERT_EQ(rig.display.Push(f), ZT5_OK);
        }
    }
}

// With a host buffer, its length and its mutex set, the frame goes whole
// into the host's buffer instead of to the picture; a buffer too short for
// the frame gets nothing.
TEST(FrameInput, HostBufferTakesTheFrameInstead)
{
    Rig rig(320, 180, 2);
    ASSERT_TRUE(rig.Started());
    Display &d = rig.display;
    Frame red(320, 180, kRed), blue(320, 180, kBlue);
    for (int i = 0; i < 64; i++) blue.Y()[i * 7] = uint8_t(i); // bytes to recognise
    Image before;
    ASSERT_TRUE(d.PushUntil(red, CentreNear(Shown(kRed)), &before));
    std::vector<uint8_t> host(blue.data.size() + 64, 0xA5), shorter(blue.data.size() - 1, 0x5A);
    CZT5Mutex mutex;
    ASSERT_EQ(d.Set(ZT5_CFG_DISPLAY_YUV_BUFFER_MUTEX, &mutex), ZT5_OK);
    for (auto *buf : {&host, &shorter}) {
        ASSERT_EQ(d.Set(ZT5_CFG_DISPLAY_YUV_BUFFER, buf->data()), ZT5_OK);
        ASSERT_EQ(d.SetU32(ZT5_CFG_DISPLAY_YUV_BUFFER_LEN, uint32_t(buf == &host ? blue.data.size() : shorter.size())), ZT5_OK);
        for (int i = 0; i < 5; i++) ASSERT_EQ(d.Push(blue), ZT5_OK);
    }
    EXPECT_EQ(std::memcmp(host.data(), blue.data.data(), blue.data.size()), 0) << "the whole frame, not the lens square";
    EXPECT_TRUE(std::all_of(host.end() - 64, host.end(), [](uint8_t b) { return b == 0xA5; }));
    EXPECT_TRUE(std::all_of(shorter.begin(), shorter.end(), [](uint8_t b) { return b == 0x5A; }));
    Image after;
    ASSERT_TRUE(d.Snapshot(&after));
    EXPECT_EQ(after.rgba, before.rgba) << "a frame handed to the host was drawn";
    // A length negative as a signed number closes the road: drawn again.
    ASSERT_EQ(d.SetU32(ZT5_CFG_DISPLAY_YUV_BUFFER_LEN, 0x80000000u), ZT5_OK);
    EXPECT_TRUE(d.PushUntil(blue, [&](const Image &img) { return img.rgba != before.rgba; }));
}
