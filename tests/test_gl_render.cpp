// The render object and the plain view, driven as the display manager drives
// them, on a real X window: pixels of snapshots against values computed
// from the conversion formulas and the letterbox geometry.
#include <gtest/gtest.h>

#include <cstdlib>

#include <chrono>
#include <cmath>
#include <thread>

#include "CWinOpenGLDisplay.h"
#include "GlTestWindow.h"
#include "ZT5Config.h"

using namespace gltest;

namespace {

class GlRender : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(EnsureX()) << "no X display (DISPLAY=" << (getenv("DISPLAY") ? getenv("DISPLAY") : "") << ")";
    }
};

// Quadrant colours of the orientation frame, as YUV and as drawn.
struct Yuv {
    uint8_t y, u, v;
};
const Yuv kRed = {81, 90, 240};
const Yuv kGreen = {145, 54, 34};
const Yuv kBlue = {41, 240, 110};
const Yuv kWhite = {235, 128, 128};

Rgb Drawn(const Yuv &c)
{
    return VideoRangeToRgb(c.y, c.u, c.v);
}

Frame QuadrantFrame(int w, int h)
{
    Frame f(w, h);
    f.Fill(0, 0, w / 2, h / 2, kRed.y, kRed.u, kRed.v);
    f.Fill(w / 2, 0, w, h / 2, kGreen.y, kGreen.u, kGreen.v);
    f.Fill(0, h / 2, w / 2, h, kBlue.y, kBlue.u, kBlue.v);
    f.Fill(w / 2, h / 2, w, h, kWhite.y, kWhite.u, kWhite.v);
    return f;
}

// First and last row (or column) whose pixel is not the clear colour.
void PictureSpanY(const Picture &p, int x, int *first, int *last)
{
    *first = -1;
    *last = -1;
    for (int y = 0; y < p.height; y++) {
        Rgb c = p.At(x, y);
        if (c.r + c.g + c.b > 30) {
            if (*first < 0) *first = y;
            *last = y;
        }
    }
}

void PictureSpanX(const Picture &p, int y, int *first, int *last)
{
    *first = -1;
    *last = -1;
    for (int x = 0; x < p.width; x++) {
        Rgb c = p.At(x, y);
        if (c.r + c.g + c.b > 30) {
            if (*first < 0) *first = x;
            *last = x;
        }
    }
}

} // namespace

TEST_F(GlRender, SolidColoursFollowTheVideoRangeConversion)
{
    TestWindow win(320, 240);
    ASSERT_TRUE(win.ok());
    RenderHarness h;
    ASSERT_EQ(0, h.Init(win.id(), 320, 240));
    MDWord inited = 0;
    EXPECT_EQ(0, h.object()->getConfig(ZT5_CFG_DISPLAY_RENDERER_INITED, &inited));
    EXPECT_EQ(1u, inited);

    const Yuv colours[] = {{16, 128, 128}, {235, 128, 128}, {128, 128, 128}, kRed, kGreen, kBlue, {60, 200, 60}};
    for (const Yuv &c : colours) {
        Frame f(320, 240, c.y, c.u, c.v);
        ASSERT_TRUE(h.PostAndWait(f));
        Picture p;
        uint32_t cs = 0;
        ASSERT_TRUE(h.Snapshot(&p, &cs));
        EXPECT_EQ(uint32_t(ZT5_SNAPSHOT_RGBA), cs);
        ASSERT_EQ(320, p.width);
        ASSERT_EQ(240, p.height);
        const Rgb want = VideoRangeToRgb(c.y, c.u, c.v);
        for (int y : {0, 120, 239})
            for (int x : {0, 160, 319}) {
                EXPECT_TRUE(Near(p.At(x, y), want, 3))
                    << "yuv " << int(c.y) << "," << int(c.u) << "," << int(c.v) << " at " << x << "," << y
                    << " got " << ToString(p.At(x, y)) << " want " << ToString(want);
                EXPECT_EQ(255, p.Alpha(x, y));
            }
    }
}

TEST_F(GlRender, LetterboxBarsWhereTheGeometrySays)
{
    {
        // 16:9 in a square window: full width, height 640 * 9 / 16 = 360,
        // bars of 140 above and below.
        TestWindow win(640, 640);
        ASSERT_TRUE(win.ok());
        RenderHarness h;
        ASSERT_EQ(0, h.Init(win.id(), 1920, 1080));
        Frame f(1920, 1080, kWhite.y, kWhite.u, kWhite.v);
        ASSERT_TRUE(h.PostAndWait(f));
        Picture p;
        ASSERT_TRUE(h.Snapshot(&p));
        WritePng(p, "letterbox_1920x1080_in_640x640");
        int first, last;
        PictureSpanY(p, 320, &first, &last);
        EXPECT_NEAR(140, first, 1);
        EXPECT_NEAR(499, last, 1);
        PictureSpanX(p, 320, &first, &last);
        EXPECT_EQ(0, first);
        EXPECT_EQ(639, last);
        EXPECT_TRUE(Near(p.At(320, 10), {0, 0, 0}, 0)) << ToString(p.At(320, 10));
        EXPECT_TRUE(Near(p.At(320, 320), Drawn(kWhite), 3));
    }
    {
        // Portrait 480x640 in 640x480: height full, width 480 * 480 / 640 =
        // 360, bars of 140 left and right.
        TestWindow win(640, 480);
        ASSERT_TRUE(win.ok());
        RenderHarness h;
        ASSERT_EQ(0, h.Init(win.id(), 480, 640));
        Frame f(480, 640, kWhite.y, kWhite.u, kWhite.v);
        ASSERT_TRUE(h.PostAndWait(f));
        Picture p;
        ASSERT_TRUE(h.Snapshot(&p));
        int first, last;
        PictureSpanX(p, 240, &first, &last);
        EXPECT_NEAR(140, first, 1);
        EXPECT_NEAR(499, last, 1);
        PictureSpanY(p, 320, &first, &last);
        EXPECT_EQ(0, first);
        EXPECT_EQ(479, last);
    }
}

TEST_F(GlRender, BackgroundColourFillsTheBars)
{
    TestWindow win(400, 400);
    ASSERT_TRUE(win.ok());
    RenderHarness h;
    h.SetU32(ZT5_CFG_DISPLAY_BACK_COLOR, 0x3060c0);
    ASSERT_EQ(0, h.Init(win.id(), 640, 320));
    Frame f(640, 320, kWhite.y, kWhite.u, kWhite.v);
    ASSERT_TRUE(h.PostAndWait(f));
    Picture p;
    ASSERT_TRUE(h.Snapshot(&p));
    EXPECT_TRUE(Near(p.At(200, 20), {0x30, 0x60, 0xc0}, 1)) << ToString(p.At(200, 20));
    EXPECT_TRUE(Near(p.At(200, 200), Drawn(kWhite), 3));
}

TEST_F(GlRender, RotationsTurnTheMarkedCorner)
{
    // Where each frame quadrant lands, listed for the window's top left, top
    // right, bottom left, bottom right; rotations are clockwise.
    struct Case {
        uint32_t rotation;
        Yuv tl, tr, bl, br;
    } cases[] = {
        {0, kRed, kGreen, kBlue, kWhite},
        {90, kBlue, kRed, kWhite, kGreen},
        {180, kWhite, kBlue, kGreen, kRed},
        {270, kGreen, kWhite, kRed, kBlue},
        {45, kRed, kGreen, kBlue, kWhite}, // not a rotation: drawn as 0
    };
    for (const Case &c : cases) {
        TestWindow win(480, 480);
        ASSERT_TRUE(win.ok());
        RenderHarness h;
        ASSERT_EQ(0, h.Init(win.id(), 640, 480, c.rotation));
        Frame f = QuadrantFrame(640, 480);
        ASSERT_TRUE(h.PostAndWait(f));
        Picture p;
        ASSERT_TRUE(h.Snapshot(&p));
        WritePng(p, "rotation_" + std::to_string(c.rotation));
        const bool turned = c.rotation == 90 || c.rotation == 270;
        // 640x480 in 480x480: 480x360 upright, 360x480 turned.
        int first, last;
        if (turned) {
            PictureSpanX(p, 240, &first, &last);
            EXPECT_NEAR(60, first, 1) << c.rotation;
            EXPECT_NEAR(419, last, 1) << c.rotation;
        } else {
            PictureSpanY(p, 240, &first, &last);
            EXPECT_NEAR(60, first, 1) << c.rotation;
            EXPECT_NEAR(419, last, 1) << c.rotation;
        }
        const int x0 = 160, x1 = 320, y0 = 160, y1 = 320;
        EXPECT_TRUE(Near(p.At(x0, y0), Drawn(c.tl), 3)) << c.rotation << " tl " << ToString(p.At(x0, y0));
        EXPECT_TRUE(Near(p.At(x1, y0), Drawn(c.tr), 3)) << c.rotation << " tr " << ToString(p.At(x1, y0));
        EXPECT_TRUE(Near(p.At(x0, y1), Drawn(c.bl), 3)) << c.rotation << " bl " << ToString(p.At(x0, y1));
        EXPECT_TRUE(Near(p.At(x1, y1), Drawn(c.br), 3)) << c.rotation << " br " << ToString(p.At(x1, y1));
    }
}

TEST_F(GlRender, RampAndCheckerboardKeepTheirGeometry)
{
    {
        // Luma ramp, one step per 4 columns; the window halves the frame, so
        // each window column samples the mean of two frame columns.
        TestWindow win(512, 128);
        ASSERT_TRUE(win.ok());
        RenderHarness h;
        ASSERT_EQ(0, h.Init(win.id(), 1024, 256));
        Frame f(1024, 256);
        for (int y = 0; y < 256; y++)
            for (int x = 0; x < 1024; x++) f.Y()[size_t(y) * 1024 + x] = uint8_t(x / 4);
        ASSERT_TRUE(h.PostAndWait(f));
        Picture p;
        ASSERT_TRUE(h.Snapshot(&p));
        WritePng(p, "ramp");
        int prev = -1;
        for (int x = 0; x < 512; x += 7) {
            const double meanY = ((2 * x) / 4 + (2 * x + 1) / 4) / 2.0;
            const Rgb want = VideoRangeToRgb(int(std::lround(meanY)), 128, 128);
            const Rgb got = p.At(x, 64);
            EXPECT_NEAR(want.r, got.r, 3) << "column " << x;
            EXPECT_GE(got.r, prev) << "column " << x;
            prev = got.r;
        }
    }
    {
        // 8x8 squares of 64 pixels drawn 1:1: sharp edges where they belong,
        // top left square white.
        TestWindow win(512, 512);
        ASSERT_TRUE(win.ok());
        RenderHarness h;
        ASSERT_EQ(0, h.Init(win.id(), 512, 512));
        Frame f(512, 512, 16, 128, 128);
        for (int r = 0; r < 8; r++)
            for (int c = 0; c < 8; c++)
                if ((r + c) % 2 == 0) f.Fill(c * 64, r * 64, c * 64 + 64, r * 64 + 64, 235, 128, 128);
        ASSERT_TRUE(h.PostAndWait(f));
        Picture p;
        ASSERT_TRUE(h.Snapshot(&p));
        WritePng(p, "checkerboard");
        for (int r = 0; r < 8; r++)
            for (int c = 0; c < 8; c++) {
                const int want = (r + c) % 2 == 0 ? 255 : 0;
                for (int dx : {0, 32, 63})
                    for (int dy : {0, 32, 63}) {
                        const Rgb got = p.At(c * 64 + dx, r * 64 + dy);
                        ASSERT_NEAR(want, got.g, 2) << "square " << r << "," << c << " +" << dx << "," << dy;
                    }
            }
    }
}

TEST_F(GlRender, OddWidthsUploadThroughThePaddedCopy)
{
    // Widths that are not a multiple of 8 go through the padded copy: no
    // shear between rows, chroma rows aligned with luma rows, and no padding
    // visible at the right edge.
    for (int w : {642, 1922}) {
        const int hgt = (w == 642) ? 482 : 1080;
        const int winW = (w == 642) ? 642 : 961, winH = (w == 642) ? 482 : 540;
        TestWindow win(winW, winH);
        ASSERT_TRUE(win.ok());
        RenderHarness h;
        ASSERT_EQ(0, h.Init(win.id(), w, hgt));
        Frame f(w, hgt, kRed.y, kRed.u, kRed.v);
        const int split = (w / 2) & ~1; // even: chroma split exact
        f.Fill(split, 0, w, hgt, kBlue.y, kBlue.u, kBlue.v);
        // A one-chroma-sample stripe at the very right edge.
        f.Fill(w - 2, 0, w, hgt, kGreen.y, kGreen.u, kGreen.v);
        ASSERT_TRUE(h.PostAndWait(f));
        Picture p;
        ASSERT_TRUE(h.Snapshot(&p));
        ASSERT_EQ(winW, p.width);
        WritePng(p, "odd_width_" + std::to_string(w));
        const double sx = double(winW) / w;
        const int edge = int(std::lround(split * sx));
        for (int y : {1, winH / 3, winH / 2, winH - 2}) {
            EXPECT_TRUE(Near(p.At(2, y), Drawn(kRed), 4)) << w << " row " << y << " " << ToString(p.At(2, y));
            EXPECT_TRUE(Near(p.At(edge - 3, y), Drawn(kRed), 4)) << w << " row " << y;
            EXPECT_TRUE(Near(p.At(edge + 3, y), Drawn(kBlue), 4)) << w << " row " << y;
            // The rightmost window column shows the green stripe, not black
            // padding.
            const Rgb right = p.At(winW - 1, y);
            EXPECT_GT(right.g, 60) << w << " row " << y << " " << ToString(right);
        }
    }
}

TEST_F(GlRender, PictureFollowsAWindowResize)
{
    TestWindow win(640, 480);
    ASSERT_TRUE(win.ok());
    RenderHarness h;
    ASSERT_EQ(0, h.Init(win.id(), 640, 480));
    Frame f = QuadrantFrame(640, 480);
    ASSERT_TRUE(h.PostAndWait(f));
    Picture p;
    ASSERT_TRUE(h.Snapshot(&p));
    EXPECT_EQ(640, p.width);

    win.Resize(400, 400);
    ASSERT_TRUE(h.WaitDraws(2));
    ASSERT_TRUE(h.Snapshot(&p));
    WritePng(p, "resized_400x400");
    ASSERT_EQ(400, p.width);
    ASSERT_EQ(400, p.height);
    int first, last;
    PictureSpanY(p, 200, &first, &last); // 400 x 300, bars of 50
    EXPECT_NEAR(50, first, 1);
    EXPECT_NEAR(349, last, 1);
    EXPECT_TRUE(Near(p.At(100, 100), Drawn(kRed), 3));
    EXPECT_TRUE(Near(p.At(300, 300), Drawn(kWhite), 3));
}

TEST_F(GlRender, FrameOfAnotherSizeIsDroppedOnceThenDrawn)
{
    TestWindow win(640, 480);
    ASSERT_TRUE(win.ok());
    RenderHarness h;
    ASSERT_EQ(0, h.Init(win.id(), 640, 480));
    Frame red(640, 480, kRed.y, kRed.u, kRed.v);
    ASSERT_TRUE(h.PostAndWait(red));

    // 16:9 now. The first frame of that size only announces it: nothing is
    // drawn from then on (the old planes may be gone) until the next one.
    Frame blue(640, 360, kBlue.y, kBlue.u, kBlue.v);
    h.Post(blue);
    Picture p;
    // The snapshot is served between draws: a draw under way at the post
    // has ended when it returns.
    ASSERT_TRUE(h.Snapshot(&p));
    EXPECT_TRUE(Near(p.At(320, 240), Drawn(kRed), 3));
    const MDWord before = h.DrawCount();
    std::this_thread::sleep_for(std::chrono::milliseconds(150));
    EXPECT_EQ(before, h.DrawCount()) << "drew after a size change without a frame of the new size";

    ASSERT_TRUE(h.PostAndWait(blue));
    ASSERT_TRUE(h.Snapshot(&p));
    WritePng(p, "size_change_640x360");
    EXPECT_TRUE(Near(p.At(320, 240), Drawn(kBlue), 3));
    // And the letterbox is that of the new size: 640x360, bars of 60.
    int first, last;
    PictureSpanY(p, 320, &first, &last);
    EXPECT_NEAR(60, first, 1);
    EXPECT_NEAR(419, last, 1);
}

TEST_F(GlRender, ModeOutOfRangeKeepsThePlainView)
{
    TestWindow win(320, 240);
    ASSERT_TRUE(win.ok());
    RenderHarness h;
    ASSERT_EQ(0, h.Init(win.id(), 320, 240));
    Frame f = QuadrantFrame(320, 240);
    ASSERT_TRUE(h.PostAndWait(f));
    for (int32_t mode : {11, -1}) {
        h.Set(ZT5_CFG_DISPLAY_FISHEYE_MODE, &mode);
        ASSERT_TRUE(h.WaitDraws(2));
        Picture p;
        ASSERT_TRUE(h.Snapshot(&p));
        EXPECT_TRUE(Near(p.At(80, 60), Drawn(kRed), 3)) << mode;
        EXPECT_TRUE(Near(p.At(240, 180), Drawn(kWhite), 3)) << mode;
    }
}

TEST_F(GlRender, ModeSwitchKeepsThePlainViewsZoom)
{
    TestWindow win(320, 240);
    ASSERT_TRUE(win.ok());
    RenderHarness h;
    h.SetU32(ZT5_CFG_DISPLAY_SCALE_RATIO, 200); // replayed at the end of the start
    ASSERT_EQ(0, h.Init(win.id(), 320, 240));
    MDWord scale = 0;
    h.object()->getConfig(ZT5_CFG_DISPLAY_SCALE_RATIO, &scale);
    EXPECT_EQ(200u, scale);
    Frame f = QuadrantFrame(320, 240);
    ASSERT_TRUE(h.PostAndWait(f));
    Picture p;
    ASSERT_TRUE(h.Snapshot(&p));
    // Twice the size about the centre: each quadrant fills a window quarter
    // and the window corners show the frame's quarter points.
    EXPECT_TRUE(Near(p.At(5, 5), Drawn(kRed), 3));
    EXPECT_TRUE(Near(p.At(314, 234), Drawn(kWhite), 3));

    int32_t mode = 2;
    h.Set(ZT5_CFG_DISPLAY_FISHEYE_MODE, &mode);
    ASSERT_TRUE(h.PostAndWait(f));
    mode = 0;
    h.Set(ZT5_CFG_DISPLAY_FISHEYE_MODE, &mode);
    ASSERT_TRUE(h.PostAndWait(f));
    scale = 0;
    h.object()->getConfig(ZT5_CFG_DISPLAY_SCALE_RATIO, &scale);
    EXPECT_EQ(200u, scale);
}

TEST_F(GlRender, SavedStateOfThePlainViewRoundTrips)
{
    TestWindow win(320, 240);
    ASSERT_TRUE(win.ok());
    RenderHarness h;
    ASSERT_EQ(0, h.Init(win.id(), 320, 240));
    Frame f = QuadrantFrame(320, 240);
    ASSERT_TRUE(h.PostAndWait(f));

    // Zoom 2 panned fully right: the window shows the frame's left half.
    FECurrentStatusData in = {};
    in.mScaleRatio = 2.0f;
    in.mTransX = 1.0f;
    in.mTransY = 0.0f;
    in.mAnimalStepX = 0.25f;
    in.mAnimalStepY = -0.5f;
    in.mFishEyeMode = 0;
    h.Set(ZT5_CFG_DISPLAY_FE_CURRENTSTATUS, &in);
    ASSERT_TRUE(h.WaitDraws(2));
    Picture p;
    ASSERT_TRUE(h.Snapshot(&p));
    WritePng(p, "restored_zoom_pan");
    EXPECT_TRUE(Near(p.At(300, 20), Drawn(kRed), 3)) << ToString(p.At(300, 20));
    EXPECT_TRUE(Near(p.At(300, 220), Drawn(kBlue), 3)) << ToString(p.At(300, 220));

    FECurrentStatusData *out = nullptr;
    EXPECT_EQ(0, h.object()->getConfig(ZT5_CFG_DISPLAY_GET_FE_CURRENTSTATUS, &out));
    ASSERT_NE(nullptr, out);
    EXPECT_FLOAT_EQ(2.0f, out->mScaleRatio);
    EXPECT_FLOAT_EQ(1.0f, out->mTransX);
    EXPECT_FLOAT_EQ(0.25f, out->mAnimalStepX);
    EXPECT_FLOAT_EQ(-0.5f, out->mAnimalStepY);
    EXPECT_EQ(1u, out->bRestored);
    EXPECT_EQ(0, out->mFishEyeMode);

    // A state saved in another mode is kept but not applied.
    FECurrentStatusData other = in;
    other.mScaleRatio = 1.0f;
    other.mTransX = 0.0f;
    other.mFishEyeMode = 3;
    h.Set(ZT5_CFG_DISPLAY_FE_CURRENTSTATUS, &other);
    ASSERT_TRUE(h.WaitDraws(2));
    ASSERT_TRUE(h.Snapshot(&p));
    EXPECT_TRUE(Near(p.At(300, 20), Drawn(kRed), 3)) << ToString(p.At(300, 20));
}

TEST_F(GlRender, SnapshotReadBeforeTheSwapShowsTheSamePicture)
{
    // The road for surfaces whose back buffer is undefined after a swap.
    TestWindow win(320, 240);
    ASSERT_TRUE(win.ok());
    RenderHarness h;
    static_cast<CWinOpenGLDisplay *>(h.object())->SetAvoidPreservedSwap(true);
    ASSERT_EQ(0, h.Init(win.id(), 320, 240));
    Frame f = QuadrantFrame(320, 240);
    ASSERT_TRUE(h.PostAndWait(f));
    for (int i = 0; i < 3; i++) {
        Picture p;
        ASSERT_TRUE(h.Snapshot(&p));
        ASSERT_EQ(320, p.width);
        EXPECT_TRUE(Near(p.At(80, 60), Drawn(kRed), 3));
        EXPECT_TRUE(Near(p.At(240, 60), Drawn(kGreen), 3));
        EXPECT_TRUE(Near(p.At(80, 180), Drawn(kBlue), 3));
        EXPECT_TRUE(Near(p.At(240, 180), Drawn(kWhite), 3));
    }
}

TEST_F(GlRender, DistortionCorrectionOnAndOff)
{
    TestWindow win(640, 480);
    ASSERT_TRUE(win.ok());
    RenderHarness h;
    // Identity lens, no crop.
    double identity[13] = {0, 0, 0, 0, 0, 1, 1, 0, 0, 0, 0, 0, 0};
    ZT5DistortionParam param = {identity, 13};
    h.Set(ZT5_CFG_DISPLAY_DISTORTION_PARAM, &param);
    ASSERT_EQ(0, h.Init(win.id(), 640, 480));
    const Yuv c = {200, 100, 160};
    Frame f(640, 480, c.y, c.u, c.v);
    ASSERT_TRUE(h.PostAndWait(f));
    Picture p;
    ASSERT_TRUE(h.Snapshot(&p));
    WritePng(p, "distortion_identity");
    // Corrected: full-range colours, the picture counted 480 * 0.83 = 398
    // high: 640x398 in 640x480, bars of 41.
    EXPECT_TRUE(Near(p.At(320, 240), FullRangeToRgb(c.y, c.u, c.v), 3)) << ToString(p.At(320, 240));
    int first, last;
    PictureSpanY(p, 320, &first, &last);
    EXPECT_NEAR(41, first, 1);
    EXPECT_NEAR(438, last, 1);

    // Barrel correction centred: the corners map outside the picture and
    // turn black, the centre keeps its colour.
    double barrel[13] = {0.5, 0, 0, 0, 0, 0.5, 0.5, 0.5, 0.5, 0, 0, 0, 0};
    param.pTable = barrel;
    ASSERT_TRUE(h.WaitDraws(2));
    ASSERT_TRUE(h.Snapshot(&p));
    WritePng(p, "distortion_barrel");
    EXPECT_TRUE(Near(p.At(2, 43), {0, 0, 0}, 2)) << ToString(p.At(2, 43));
    EXPECT_TRUE(Near(p.At(637, 436), {0, 0, 0}, 2)) << ToString(p.At(637, 436));
    EXPECT_TRUE(Near(p.At(320, 240), FullRangeToRgb(c.y, c.u, c.v), 3));

    // Crop: bottom offset -0.5 keeps the top half of the frame only.
    Frame halves(640, 480, kRed.y, kRed.u, kRed.v);
    halves.Fill(0, 240, 640, 480, kBlue.y, kBlue.u, kBlue.v);
    double crop[13] = {0, 0, 0, 0, 0, 1, 1, 0, 0, -0.5, 0, 0, 0};
    param.pTable = crop;
    ASSERT_TRUE(h.PostAndWait(halves));
    ASSERT_TRUE(h.WaitDraws(1));
    ASSERT_TRUE(h.Snapshot(&p));
    WritePng(p, "distortion_crop");
    EXPECT_TRUE(Near(p.At(320, 60), FullRangeToRgb(kRed.y, kRed.u, kRed.v), 3)) << ToString(p.At(320, 60));
    EXPECT_TRUE(Near(p.At(320, 420), FullRangeToRgb(kRed.y, kRed.u, kRed.v), 3)) << ToString(p.At(320, 420));

    // Off: the plain program, whole height, video-range colours.
    param.pTable = nullptr;
    ASSERT_TRUE(h.WaitDraws(2));
    ASSERT_TRUE(h.Snapshot(&p));
    PictureSpanY(p, 320, &first, &last);
    EXPECT_EQ(0, first);
    EXPECT_EQ(479, last);
    EXPECT_TRUE(Near(p.At(320, 60), Drawn(kRed), 3));
    EXPECT_TRUE(Near(p.At(320, 420), Drawn(kBlue), 3));

    // A table of the wrong length is dropped for good.
    param.pTable = identity;
    param.dwCount = 12;
    ASSERT_TRUE(h.WaitDraws(2));
    EXPECT_EQ(nullptr, param.pTable);
    ASSERT_TRUE(h.Snapshot(&p));
    EXPECT_TRUE(Near(p.At(320, 60), Drawn(kRed), 3));
    h.Destroy(); // before `param` goes
}

namespace {

struct CruiseLog {
    std::vector<uint32_t> states;
    std::vector<uint32_t> ids;
    std::mutex m;
};

void OnUi(ZT5UIMessage *msg, void *arg)
{
    CruiseLog *log = static_cast<CruiseLog *>(arg);
    std::lock_guard<std::mutex> lk(log->m);
    EXPECT_EQ(uint32_t(ZT5_UI_EVENT), msg->dwEvent);
    EXPECT_EQ(msg->dwValue1, msg->dwValue2);
    log->states.push_back(msg->dwValue1);
    log->ids.push_back(msg->dwParamID);
}

} // namespace

TEST_F(GlRender, CruiseChangesReachTheUiCallback)
{
    TestWindow win(320, 240);
    ASSERT_TRUE(win.ok());
    CruiseLog log;
    CZT5Mutex recordMutex;
    ZT5UICallbackRecord record = {};
    record.pMutex = &recordMutex;
    record.pfnCallback = OnUi;
    record.pArg = &log;
    RenderHarness h;
    h.Set(ZT5_CFG_DISPLAY_UICALLBACK, &record);
    ASSERT_EQ(0, h.Init(win.id(), 320, 240, 0, 2)); // panorama strip: has cruise
    Frame f(320, 240, 128, 128, 128);
    ASSERT_TRUE(h.PostAndWait(f));
    ASSERT_TRUE(h.WaitDraws(2));
    {
        std::lock_guard<std::mutex> lk(log.m);
        EXPECT_TRUE(log.states.empty()) << "the first state seen was reported";
    }
    h.SetU32(ZT5_CFG_DISPLAY_UITOUCH_AUTOCURISE, 1);
    ASSERT_TRUE(h.WaitDraws(2));
    h.SetU32(ZT5_CFG_DISPLAY_UITOUCH_AUTOCURISE, 0);
    ASSERT_TRUE(h.WaitDraws(2));
    // The plain view has no cruise (-1): never reported, and coming back to
    // a view whose state equals the last report reports nothing.
    int32_t mode = 0;
    h.Set(ZT5_CFG_DISPLAY_FISHEYE_MODE, &mode);
    ASSERT_TRUE(h.WaitDraws(2));
    mode = 2;
    h.Set(ZT5_CFG_DISPLAY_FISHEYE_MODE, &mode);
    ASSERT_TRUE(h.WaitDraws(2));
    h.Destroy();
    std::lock_guard<std::mutex> lk(log.m);
    ASSERT_EQ(2u, log.states.size());
    EXPECT_EQ(1u, log.states[0]);
    EXPECT_EQ(0u, log.states[1]);
    for (uint32_t id : log.ids) EXPECT_EQ(uint32_t(ZT5_CFG_DISPLAY_CURISE_STATE_EVENT), id);
}

TEST_F(GlRender, StartingInThePlainViewDoesNotReportTheFisheyeViewsFirstState)
{
    // A host that shows the plain view first and then the strip: the strip's
    // starting state is no change, whatever the plain view (no cruise) said.
    TestWindow win(320, 240);
    ASSERT_TRUE(win.ok());
    CruiseLog log;
    ZT5UICallbackRecord record = {};
    record.pfnCallback = OnUi;
    record.pArg = &log;
    RenderHarness h;
    h.Set(ZT5_CFG_DISPLAY_UICALLBACK, &record);
    ASSERT_EQ(0, h.Init(win.id(), 320, 240, 0, 0));
    Frame f(320, 240, 128, 128, 128);
    ASSERT_TRUE(h.PostAndWait(f));
    ASSERT_TRUE(h.WaitDraws(2));
    int32_t mode = 2;
    h.Set(ZT5_CFG_DISPLAY_FISHEYE_MODE, &mode);
    ASSERT_TRUE(h.WaitDraws(3));
    h.SetU32(ZT5_CFG_DISPLAY_UITOUCH_AUTOCURISE, 1);
    ASSERT_TRUE(h.WaitDraws(2));
    h.Destroy();
    std::lock_guard<std::mutex> lk(log.m);
    EXPECT_EQ(std::vector<uint32_t>({1}), log.states);
}

TEST_F(GlRender, LifecycleRoads)
{
    TestWindow win(320, 240);
    ASSERT_TRUE(win.ok());
    Frame f = QuadrantFrame(320, 240);
    {
        // Before init: no draw, snapshot record untouched, init refused twice.
        RenderHarness h;
        MDWord inited = 7;
        EXPECT_NE(0, h.object()->getConfig(ZT5_CFG_DISPLAY_RENDERER_INITED, &inited));
        EXPECT_EQ(0u, inited);
        char text[260] = {0};
        EXPECT_EQ(0, h.object()->init(0, text, 0, 0, 320, 240, 320, 240, 0, 0)); // null window: nothing
        ASSERT_EQ(0, h.Init(win.id(), 320, 240));
        EXPECT_EQ(ZT5_ERR_ALREADY_INITED, h.Init(win.id(), 320, 240));
        ASSERT_TRUE(h.PostAndWait(f));

        // setRender(0): thread and EGL down, the object stays; init again
        // draws again on a new thread.
        h.object()->setRender(nullptr);
        EXPECT_NE(0, h.object()->getConfig(ZT5_CFG_DISPLAY_RENDERER_INITED, &inited));
        h.Post(f); // ignored
        Picture p;
        ASSERT_EQ(0, h.Init(win.id(), 320, 240));
        ASSERT_TRUE(h.PostAndWait(f));
        ASSERT_TRUE(h.Snapshot(&p));
        EXPECT_TRUE(Near(p.At(80, 60), Drawn(kRed), 3));

        // Reset: EGL goes, the thread stays; a snapshot then reports the
        // failed make-current and keeps the old pixels.
        void *oldPixels = nullptr;
        {
            ZT5Snapshot *rec = nullptr;
            h.object()->getConfig(ZT5_CFG_DISPLAY_GL_SNAPSHOT, &rec);
            ASSERT_NE(nullptr, rec);
            oldPixels = rec->pBuffer;
        }
        EXPECT_EQ(0, h.object()->Reset());
        EXPECT_NE(0, h.object()->getConfig(ZT5_CFG_DISPLAY_RENDERER_INITED, &inited));
        ZT5Snapshot *rec = nullptr;
        h.object()->getConfig(ZT5_CFG_DISPLAY_GL_SNAPSHOT, &rec);
        ASSERT_NE(nullptr, rec);
        EXPECT_EQ(uint32_t(ZT5_ERR_DISPLAY_CREATE), rec->dwCSType);
        EXPECT_EQ(0u, rec->dwWidth);
        EXPECT_EQ(oldPixels, rec->pBuffer);
        EXPECT_EQ(ZT5_ERR_ALREADY_INITED, h.Init(win.id(), 320, 240));
        // Destruction after Reset runs the teardown a second time.
    }
    {
        // The renderer's teardown may run any number of times.
        CWinOpenGLESRenderer r;
        MGLDisplayContext dc = {};
        r.setConfig(ZT5_CFG_PLUGINMGR_HDL, reinterpret_cast<void *>(uintptr_t(win.id())));
        ASSERT_EQ(0, r.Initialize(&dc, 320, 240, 0));
        unsigned char *planes[3] = {f.Y(), f.U(), f.V()};
        MLong strides[3] = {320, 160, 160};
        r.Render(planes, strides, true, 0, 0, 320, 240);
        r.Uninitialize();
        r.Uninitialize();
        void *buf = nullptr;
        MDWord w = 1, hh = 1;
        EXPECT_EQ(ZT5_ERR_DISPLAY_CREATE, r.CaptureCurEffect(&buf, &w, &hh));
        // And it comes up again after that.
        ASSERT_EQ(0, r.Initialize(&dc, 320, 240, 0));
        r.Render(planes, strides, true, 0, 0, 320, 240);
        EXPECT_EQ(ZT5_SNAPSHOT_RGBA, r.CaptureCurEffect(&buf, &w, &hh));
        EXPECT_EQ(320u, w);
        r.Uninitialize();
    }
}
