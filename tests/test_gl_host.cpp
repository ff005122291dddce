// End to end through the exported functions only: the library is dlopen'ed,
// a display is created on a real X window, I420 frames are pushed and the
// window's contents are read back through the snapshot parameter. Expected
// pixels come from the reference YUV->RGB formula and from the letterbox
// geometry, never from pictures saved by an earlier run.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <memory>
#include <thread>

#include "HostHarness.h"
#include "HostSuite.h"

using namespace harness;

namespace {

const Rgb kBlack = {0, 0, 0};

class HostPlainView : public HostSuite {
protected:

    // A window and a display on it with the OpenGL road switched on.
    struct Rig {
        std::unique_ptr<XTestWindow> window;
        std::unique_ptr<HostDisplay> display;
    };
    static Rig MakeRig(int w, int h, uint32_t fitMode = 0)
    {
        Rig rig;
        rig.window.reset(new XTestWindow(w, h));
        EXPECT_TRUE(rig.window->ok()) << rig.window->error();
        rig.display.reset(new HostDisplay(*s_lib));
        EXPECT_TRUE(rig.display->ok());
        EXPECT_EQ(rig.display->SetU32(ZT5_CFG_DISPLAY_USE_OPENGLES, 1), ZT5_OK);
        EXPECT_EQ(rig.display->SetU32(ZT5_CFG_DISPLAY_FIT_MODE, fitMode), ZT5_OK);
        EXPECT_EQ(rig.display->SetU32(ZT5_CFG_DISPLAY_FISHEYE_MODE, 0), ZT5_OK);
        EXPECT_EQ(rig.display->Init(*rig.window), ZT5_OK);
        return rig;
    }


};

// Checks that `r` of the image is filled with `colour` and the rest is bar
// (black), leaving a margin of `edge` pixels on both sides of each border
// for filtering at the picture's edge.
void ExpectPictureAndBars(const RgbaImage &img, Rect r, Rgb colour, int edge = 3, int tol = 4)
{
    Rect inner{r.left + edge, r.top + edge, r.right - edge, r.bottom - edge};
    long area = long(inner.width()) * inner.height();
    EXPECT_EQ(CountNear(img, inner, colour, tol), area)
        << "picture area " << r.left << "," << r.top << "-" << r.right << "," << r.bottom << " not uniform";
    long barPixels = 0, blackBar = 0;
    for (int y = 0; y < img.height; y++) {
        for (int x = 0; x < img.width; x++) {
            bool inOuter = x >= r.left - edge && x < r.right + edge && y >= r.top - edge && y < r.bottom + edge;
            if (inOuter) continue;
            barPixels++;
            if (ColourDistance(img.At(x, y), kBlack) <= 2) blackBar++;
        }
    }
    EXPECT_EQ(blackBar, barPixels) << "bar pixels that aren't the clear colour";
}

} // namespace

TEST_F(HostPlainView, SolidColoursFollowTheConversionFormula)
{
    Rig rig = MakeRig(320, 180);
    const Rgb colours[] = {{220, 30, 30},  {40, 190, 50},  {40, 70, 220}, {128, 128, 128},
                           {250, 250, 250}, {230, 220, 30}, {20, 20, 20},  {130, 50, 200}};
    for (Rgb c : colours) {
        I420Frame frame = MakeSolidFrame(320, 180, c);
        Rgb want = ExpectedRgb(c);
        RgbaImage shot;
        ASSERT_TRUE(rig.display->PushUntil(frame, CentreIs(want, 3), &shot))
            << "colour " << int(c.r) << "," << int(c.g) << "," << int(c.b) << " never showed; centre is "
            << (shot.empty() ? std::string("no snapshot")
                             : std::to_string(shot.At(shot.width / 2, shot.height / 2).r) + "," +
                                   std::to_string(shot.At(shot.width / 2, shot.height / 2).g) + "," +
                                   std::to_string(shot.At(shot.width / 2, shot.height / 2).b));
        ASSERT_EQ(shot.width, 320);
        ASSERT_EQ(shot.height, 180);
        // Same-aspect frame: the whole window is picture, in one colour.
        EXPECT_EQ(CountNear(shot, Rect{0, 0, 320, 180}, want, 3), 320L * 180) << "colour " << int(c.r);
    }
}

TEST_F(HostPlainView, HorizontalRampKeepsOrderAndLevels)
{
    Rig rig = MakeRig(640, 360);
    I420Frame frame = MakeRampFrame(640, 360);
    RgbaImage shot;
    // The ramp's left is dark and its right bright; wait for that picture.
    auto rampShown = [](const RgbaImage &img) {
        return !img.empty() && img.At(img.width - 4, img.height / 2).r > 200 && img.At(4, img.height / 2).r < 20;
    };
    ASSERT_TRUE(rig.display->PushUntil(frame, rampShown, &shot));
    SaveImage(Name(""), shot);
    for (int row : {10, 180, 350}) {
        int last = -1;
        for (int x = 0; x < 640; x++) {
            Rgb p = shot.At(x, row);
            EXPECT_GE(int(p.r), last - 1) << "ramp not rising at x=" << x << " row " << row;
            last = p.r;
            // Grey: no chroma in the frame.
            EXPECT_LE(ColourDistance(p, Rgb{p.r, p.r, p.r}), 2) << "x=" << x;
        }
        for (int x : {64, 160, 320, 480, 600}) {
            uint8_t y = frame.Y()[size_t(row) * 640 + x];
            Rgb want = synthetic::YuvToRgb(y, 128, 128);
            EXPECT_LE(ColourDistance(shot.At(x, row), want), 3) << "x=" << x << " row " << row;
        }
    }
}

TEST_F(HostPlainView, LetterboxBarsStandWhereTheGeometrySays)
{
    struct Case {
        int winW, winH, frameW, frameH;
    } cases[] = {
        {640, 360, 640, 480},  // 4:3 in 16:9: bars left and right
        {640, 360, 640, 180},  // 32:9 in 16:9: bars above and below
        {400, 400, 1920, 1080}, // 16:9 in a square
        {360, 640, 320, 320},  // square in portrait
    };
    const Rgb colour = {40, 190, 50};
    for (const Case &c : cases) {
        SCOPED_TRACE(std::to_string(c.frameW) + "x" + std::to_string(c.frameH) + " in " + std::to_string(c.winW) +
                     "x" + std::to_string(c.winH));
        Rig rig = MakeRig(c.winW, c.winH);
        I420Frame frame = MakeSolidFrame(c.frameW, c.frameH, colour);
        Rgb want = ExpectedRgb(colour);
        RgbaImage shot;
        ASSERT_TRUE(rig.display->PushUntil(frame, AllOf({HasSize(c.winW, c.winH), CentreIs(want, 4)}), &shot));
        SaveImage(Name("_" + std::to_string(c.frameW) + "x" + std::to_string(c.frameH)), shot);
        Rect expect = LetterboxRect(c.winW, c.winH, c.frameW, c.frameH);
        Rect found = BoundsOfNot(shot, kBlack, 8);
        EXPECT_NEAR(found.left, expect.left, 1);
        EXPECT_NEAR(found.right, expect.right, 1);
        EXPECT_NEAR(found.top, expect.top, 1);
        EXPECT_NEAR(found.bottom, expect.bottom, 1);
        ExpectPictureAndBars(shot, expect, want);
    }
}

// Corner marks tell where each corner of the frame lands: dwRotation 90 turns
// the picture a quarter clockwise, 270 a quarter counter-clockwise, 180 a
// half turn; any other value shows it upright.
TEST_F(HostPlainView, RotationPutsEachMarkedCornerWhereExpected)
{
    const int fw = 320, fh = 180, mark = 40;
    const Rgb bg = {128, 128, 128};
    const Rgb marks[4] = {{220, 30, 30}, {40, 190, 50}, {40, 70, 220}, {230, 220, 30}};
    I420Frame frame = MakeMarkedCornerFrame(fw, fh, bg, marks, mark);

    struct Case {
        uint32_t rotation;
        bool turned;
        // For each frame corner (TL, TR, BL, BR): the screen corner it lands in.
        Corner lands[4];
    } cases[] = {
        {0, false, {kTopLeft, kTopRight, kBottomLeft, kBottomRight}},
        {45, false, {kTopLeft, kTopRight, kBottomLeft, kBottomRight}},
        {90, true, {kTopRight, kBottomRight, kTopLeft, kBottomLeft}},
        {180, false, {kBottomRight, kBottomLeft, kTopRight, kTopLeft}},
        {270, true, {kBottomLeft, kTopLeft, kBottomRight, kTopRight}},
    };
    const int winW = 480, winH = 270;
    for (const Case &c : cases) {
        SCOPED_TRACE("dwRotation " + std::to_string(c.rotation));
        // A new stream on a new display, rotated from its first frame.
        Rig rig = MakeRig(winW, winH);
        Rect pic = c.turned ? LetterboxRect(winW, winH, fh, fw) : LetterboxRect(winW, winH, fw, fh);
        // Wait until the picture has the shape of this rotation: bars where
        // the shape says, picture in the middle.
        auto shapeShown = [&](const RgbaImage &img) {
            if (img.width != winW || img.height != winH) return false;
            Rect b = BoundsOfNot(img, kBlack, 8);
            return std::abs(b.left - pic.left) <= 1 && std::abs(b.right - pic.right) <= 1 &&
                   std::abs(b.top - pic.top) <= 1 && std::abs(b.bottom - pic.bottom) <= 1;
        };
        RgbaImage shot;
        bool shown = rig.display->PushUntil(frame, shapeShown, &shot, c.rotation);
        SaveImage(Name("_" + std::to_string(c.rotation)), shot);
        ASSERT_TRUE(shown) << "the picture never took the shape of this rotation (see the saved PNG)";
        const int in = 8;
        const int sx[4] = {pic.left + in, pic.right - 1 - in, pic.left + in, pic.right - 1 - in};
        const int sy[4] = {pic.top + in, pic.top + in, pic.bottom - 1 - in, pic.bottom - 1 - in};
        for (int corner = 0; corner < 4; corner++) {
            Corner at = c.lands[corner];
            Rgb got = shot.At(sx[at], sy[at]);
            EXPECT_LE(ColourDistance(got, ExpectedRgb(marks[corner])), 4)
                << "frame corner " << corner << " expected at screen corner " << at << ", found " << int(got.r)
                << "," << int(got.g) << "," << int(got.b);
        }
        EXPECT_LE(ColourDistance(shot.At((pic.left + pic.right) / 2, (pic.top + pic.bottom) / 2), ExpectedRgb(bg)),
                  4);
    }
}

// Widths whose luma rows or chroma rows aren't a multiple of 4 bytes: any
// row-alignment slip shears the picture, moving the colour boundary from row
// to row.
TEST_F(HostPlainView, OddRowWidthsDrawWithoutShear)
{
    struct Case {
        int w, h;
    } cases[] = {{1922, 1080}, {642, 480}, {326, 182}};
    const Rgb left = {220, 30, 30}, right = {40, 70, 220};
    for (const Case &c : cases) {
        SCOPED_TRACE(std::to_string(c.w) + "x" + std::to_string(c.h));
        const int winW = 640, winH = 360;
        Rig rig = MakeRig(winW, winH);
        I420Frame frame = MakeSolidFrame(c.w, c.h, left);
        const int split = (c.w / 4) * 2; // even column at about the middle
        frame.Fill(split, 0, c.w, c.h, right);
        // A white line along the last row shows whether the bottom row ends
        // where it should.
        frame.Fill(0, c.h - 2, c.w, c.h, Rgb{250, 250, 250});
        Rect pic = LetterboxRect(winW, winH, c.w, c.h);
        RgbaImage shot;
        auto shown = [&](const RgbaImage &img) {
            return img.width == winW && img.height == winH &&
                   ColourDistance(img.At(pic.left + 10, (pic.top + pic.bottom) / 2), ExpectedRgb(left)) <= 4;
        };
        ASSERT_TRUE(rig.display->PushUntil(frame, shown, &shot));
        SaveImage(Name("_" + std::to_string(c.w)), shot);
        const double scale = double(pic.width()) / c.w;
        const int boundary = pic.left + int(split * scale + 0.5);
        for (int row = pic.top + 4; row < pic.bottom - 6; row += 7) {
            // Find the first column of the right colour on this row.
            int x = pic.left;
            while (x < pic.right && ColourDistance(shot.At(x, row), ExpectedRgb(right)) > 40) x++;
            ASSERT_NEAR(x, boundary, 2) << "row " << row;
            EXPECT_LE(ColourDistance(shot.At(pic.left + 3, row), ExpectedRgb(left)), 4) << "row " << row;
            EXPECT_LE(ColourDistance(shot.At(pic.right - 4, row), ExpectedRgb(right)), 4) << "row " << row;
        }
        // Bottom line white across the whole width.
        const int lastRow = pic.bottom - 1;
        EXPECT_GE(CountNear(shot, Rect{pic.left + 2, lastRow, pic.right - 2, pic.bottom}, ExpectedRgb({250, 250, 250}),
                            40),
                  long(pic.width() - 4));
    }
}

TEST_F(HostPlainView, PictureFollowsAWindowResize)
{
    XTestWindow win(640, 360);
    ASSERT_TRUE(win.ok()) << win.error();
    HostDisplay disp(*s_lib);
    ASSERT_EQ(disp.SetU32(ZT5_CFG_DISPLAY_USE_OPENGLES, 1), ZT5_OK);
    ASSERT_EQ(disp.Init(win), ZT5_OK);
    const Rgb colour = {230, 220, 30};
    I420Frame frame = MakeSolidFrame(320, 180, colour);
    Rgb want = ExpectedRgb(colour);
    RgbaImage shot;
    ASSERT_TRUE(disp.PushUntil(frame, AllOf({HasSize(640, 360), CentreIs(want)}), &shot));
    ExpectPictureAndBars(shot, Rect{0, 0, 640, 360}, want);

    // A host tells the display the new size as a host does: the window
    // record, the same window.
    ASSERT_TRUE(win.Resize(400, 400));
    ASSERT_EQ(disp.SetWindow(win.id(), 400, 400), ZT5_OK);
    ASSERT_TRUE(disp.PushUntil(frame, AllOf({HasSize(400, 400), CentreIs(want)}), &shot))
        << "snapshot stayed " << shot.width << "x" << shot.height;
    SaveImage(Name(""), shot);
    ExpectPictureAndBars(shot, LetterboxRect(400, 400, 320, 180), want);

    // Wider than the picture now: bars left and right.
    ASSERT_TRUE(win.Resize(600, 200));
    ASSERT_EQ(disp.SetWindow(win.id(), 600, 200), ZT5_OK);
    ASSERT_TRUE(disp.PushUntil(frame, AllOf({HasSize(600, 200), CentreIs(want)}), &shot));
    ExpectPictureAndBars(shot, LetterboxRect(600, 200, 320, 180), want);
}

TEST_F(HostPlainView, NewWindowTakesOverWithinAFewFrames)
{
    XTestWindow first(480, 270);
    XTestWindow second(320, 320);
    ASSERT_TRUE(first.ok() && second.ok());
    HostDisplay disp(*s_lib);
    ASSERT_EQ(disp.SetU32(ZT5_CFG_DISPLAY_USE_OPENGLES, 1), ZT5_OK);
    ASSERT_EQ(disp.Init(first), ZT5_OK);
    I420Frame red = MakeSolidFrame(320, 180, {220, 30, 30});
    RgbaImage shot;
    ASSERT_TRUE(disp.PushUntil(red, AllOf({HasSize(480, 270), CentreIs(ExpectedRgb({220, 30, 30}))}), &shot));

    ASSERT_EQ(disp.SetWindow(second.id(), 320, 320), ZT5_OK);
    I420Frame blue = MakeSolidFrame(320, 180, {40, 70, 220});
    Rgb want = ExpectedRgb({40, 70, 220});
    int pushed = 0;
    auto counting = [&](const RgbaImage &img) { return HasSize(320, 320)(img) && CentreIs(want)(img); };
    // Push frames one at a time and count how many the switch costs.
    bool shown = false;
    for (; pushed < 200 && !shown; pushed++) {
        ASSERT_EQ(disp.Push(blue), ZT5_OK);
        shown = disp.WaitUntil(counting, &shot, WaitLimits{100, 20});
    }
    SaveImage(Name(""), shot);
    ASSERT_TRUE(shown) << "the new window never showed the picture; last snapshot " << shot.width << "x"
                       << shot.height;
    EXPECT_LE(pushed, 5) << "frames pushed before the new window showed the picture";
    ExpectPictureAndBars(shot, LetterboxRect(320, 320, 320, 180), want);
}

TEST_F(HostPlainView, NullWindowThenTheWindowAgainHeals)
{
    XTestWindow win(480, 270);
    ASSERT_TRUE(win.ok());
    HostDisplay disp(*s_lib);
    ASSERT_EQ(disp.SetU32(ZT5_CFG_DISPLAY_USE_OPENGLES, 1), ZT5_OK);
    ASSERT_EQ(disp.Init(win), ZT5_OK);
    I420Frame green = MakeSolidFrame(480, 270, {40, 190, 50});
    RgbaImage shot;
    ASSERT_TRUE(disp.PushUntil(green, CentreIs(ExpectedRgb({40, 190, 50})), &shot));

    // The window goes away for a while (a host rebuilding its view), frames
    // keep coming; nothing may crash or hang.
    ASSERT_EQ(disp.SetWindow(0, 480, 270), ZT5_OK);
    for (int i = 0; i < 5; i++) {
        disp.Push(green);
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    // The window is back: the display draws again within a few frames.
    ASSERT_EQ(disp.SetWindow(win.id(), 480, 270), ZT5_OK);
    I420Frame purple = MakeSolidFrame(480, 270, {130, 50, 200});
    Rgb want = ExpectedRgb({130, 50, 200});
    bool shown = false;
    int pushed = 0;
    for (; pushed < 200 && !shown; pushed++) {
        ASSERT_EQ(disp.Push(purple), ZT5_OK);
        shown = disp.WaitUntil(AllOf({HasSize(480, 270), CentreIs(want)}), &shot, WaitLimits{100, 20});
    }
    ASSERT_TRUE(shown) << "the display never drew again after the window came back";
    EXPECT_LE(pushed, 5) << "frames pushed before the display drew again";
    ExpectPictureAndBars(shot, Rect{0, 0, 480, 270}, want);
}

TEST_F(HostPlainView, SnapshotWithoutARendererLeavesThePointerAlone)
{
    int sentinelStorage = 0;
    void *const sentinel = &sentinelStorage;

    // Before Init.
    {
        HostDisplay disp(*s_lib);
        ASSERT_TRUE(disp.ok());
        void *p = sentinel;
        EXPECT_EQ(disp->GetDisplayParam(ZT5_CFG_DISPLAY_GL_SNAPSHOT, &p), ZT5_OK);
        EXPECT_EQ(p, sentinel);
        EXPECT_EQ(disp->GetDisplayParam(ZT5_CFG_DISPLAY_GL_SNAPSHOT, nullptr), ZT5_ERR_INVALID_PARAM);
    }
    // Initialised and fed, but the OpenGL road never switched on: nothing
    // is drawn, frames still succeed, and no snapshot record appears.
    {
        XTestWindow win(320, 180);
        ASSERT_TRUE(win.ok());
        HostDisplay disp(*s_lib);
        ASSERT_EQ(disp.Init(win), ZT5_OK);
        I420Frame frame = MakeSolidFrame(320, 180, {220, 30, 30});
        for (int i = 0; i < 10; i++) {
            EXPECT_EQ(disp.Push(frame), ZT5_OK);
            std::this_thread::sleep_for(std::chrono::milliseconds(15));
            void *p = sentinel;
            EXPECT_EQ(disp->GetDisplayParam(ZT5_CFG_DISPLAY_GL_SNAPSHOT, &p), ZT5_OK);
            EXPECT_EQ(p, sentinel) << "after frame " << i;
        }
        uint32_t useGl = 77;
        EXPECT_EQ(disp->GetDisplayParam(ZT5_CFG_DISPLAY_USE_OPENGLES, &useGl), ZT5_OK);
        EXPECT_EQ(useGl, 0u);
    }
}

// The OpenGL road draws the frame in its own proportions in the whole window;
// fit mode 1's declared aspect word doesn't stretch it.
TEST_F(HostPlainView, FitModeOneKeepsTheFrameProportions)
{
    const int winW = 480, winH = 360;
    const Rgb colour = {30, 200, 210};
    Rgb want = ExpectedRgb(colour);
    for (uint32_t aspect : {1u, 2u, 5u}) {
        SCOPED_TRACE("dwAspectRatio " + std::to_string(aspect));
        Rig rig = MakeRig(winW, winH, 1);
        I420Frame frame = MakeSolidFrame(640, 360, colour);
        RgbaImage shot;
        ASSERT_TRUE(rig.display->PushUntil(frame, AllOf({HasSize(winW, winH), CentreIs(want)}), &shot, 0, aspect));
        SaveImage(Name("_" + std::to_string(aspect)), shot);
        Rect expect = LetterboxRect(winW, winH, 640, 360);
        Rect found = BoundsOfNot(shot, kBlack, 8);
        EXPECT_NEAR(found.left, expect.left, 1);
        EXPECT_NEAR(found.right, expect.right, 1);
        EXPECT_NEAR(found.top, expect.top, 1);
        EXPECT_NEAR(found.bottom, expect.bottom, 1);
        ExpectPictureAndBars(shot, expect, want);
    }
}

// A stream that changes its frame size and rotation while playing (a new
// resolution from the encoder, a turned camera): the display shows the new
// frames in their new proportions and orientation on the same display.
TEST_F(HostPlainView, FrameSizeAndRotationChangesMidStreamAreFollowed)
{
    const int winW = 480, winH = 270;
    Rig rig = MakeRig(winW, winH);
    const Rgb bg = {128, 128, 128};
    const Rgb marks[4] = {{220, 30, 30}, {40, 190, 50}, {40, 70, 220}, {230, 220, 30}};
    auto shapeIs = [&](Rect pic) {
        return [=](const RgbaImage &img) {
            if (img.width != winW || img.height != winH) return false;
            Rect b = BoundsOfNot(img, kBlack, 8);
            return std::abs(b.left - pic.left) <= 1 && std::abs(b.right - pic.right) <= 1 &&
                   std::abs(b.top - pic.top) <= 1 && std::abs(b.bottom - pic.bottom) <= 1;
        };
    };
    struct Step {
        int w, h;
        uint32_t rotation;
    } steps[] = {{640, 360, 0}, {320, 320, 0}, {160, 240, 0}, {640, 360, 90}, {640, 480, 0}};
    for (const Step &st : steps) {
        SCOPED_TRACE(std::to_string(st.w) + "x" + std::to_string(st.h) + " rotation " + std::to_string(st.rotation));
        I420Frame frame = MakeMarkedCornerFrame(st.w, st.h, bg, marks, 16);
        const bool turned = st.rotation == 90 || st.rotation == 270;
        Rect pic = turned ? LetterboxRect(winW, winH, st.h, st.w) : LetterboxRect(winW, winH, st.w, st.h);
        RgbaImage shot;
        bool shown = rig.display->PushUntil(frame, shapeIs(pic), &shot, st.rotation, 0, WaitLimits{8000, 20});
        SaveImage(Name("_" + std::to_string(st.w) + "x" + std::to_string(st.h) + "_" + std::to_string(st.rotation)),
                  shot);
        ASSERT_TRUE(shown) << "the picture never took the new frame's shape";
        // Top left mark where the orientation puts it: top left upright,
        // top right after a quarter turn clockwise.
        int x = turned ? pic.right - 5 : pic.left + 4, y = pic.top + 4;
        EXPECT_LE(ColourDistance(shot.At(x, y), ExpectedRgb(marks[kTopLeft])), 4);
    }
}
