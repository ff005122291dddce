// The plain view's pixels as a host sees them: frames pushed through the
// loaded library into an X window, snapshots measured against the reference
// YUV->RGB conversion and the letterbox geometry.
#include <EGL/egl.h>
#include <GLES2/gl2.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <thread>

#include "Harness.h"

using namespace harness;

namespace {

const Rgb kBlack = {0, 0, 0};
const Rgb kRed = {220, 30, 30}, kGreen = {40, 190, 50}, kBlue = {40, 70, 220}, kYellow = {230, 220, 30};
const Rgb kGrey = {128, 128, 128}, kWhite = {250, 250, 250};

// The picture fills `r` with `colour`; every pixel outside it, `edge` pixels
// away from its border, is bar black.
void ExpectPictureOnBars(const Image &img, Rect r, Rgb colour, int edge = 3)
{
    Rect inner{r.left + edge, r.top + edge, r.right - edge, r.bottom - edge};
    EXPECT_EQ(CountNear(img, inner, colour, 4), long(inner.width()) * inner.height()) << "picture not uniform";
    long bars = 0, black = 0;
    for (int y = 0; y < img.height; y++)
        for (int x = 0; x < img.width; x++) {
            if (x >= r.left - edge && x < r.right + edge && y >= r.top - edge && y < r.bottom + edge) continue;
            bars++;
            black += Near(img.At(x, y), kBlack, 2);
        }
    EXPECT_EQ(black, bars) << "bar pixels that aren't black";
}

Check BoundsAre(Rect want)
{
    return [want](const Image &img) {
        Rect b = PictureBounds(img);
        return std::abs(b.left - want.left) <= 1 && std::abs(b.right - want.right) <= 1 &&
               std::abs(b.top - want.top) <= 1 && std::abs(b.bottom - want.bottom) <= 1;
    };
}

Check CentreIs(Rgb c, int w, int h)
{
    return [=](const Image &img) { return img.width == w && img.height == h && Near(img.At(w / 2, h / 2), c, 4); };
}

// Four marks in the corners of a grey frame: top left, top right, bottom
// left, bottom right.
const Rgb kMarks[4] = {kRed, kGreen, kBlue, kYellow};
Frame MarkedCorners(int w, int h, int mark)
{
    Frame f(w, h, kGrey);
    f.Fill(0, 0, mark, mark, kMarks[0]);
    f.Fill(w - mark, 0, w, mark, kMarks[1]);
    f.Fill(0, h - mark, mark, h, kMarks[2]);
    f.Fill(w - mark, h - mark, w, h, kMarks[3]);
    return f;
}

} // namespace

TEST(PlainView, LumaRampKeepsItsOrderAndLevels)
{
    Rig rig(640, 360);
    ASSERT_TRUE(rig.Started());
    Frame f(1280, 360);
    for (int x = 0; x < 1280; x++)
        for (int y = 0; y < 360; y++) f.Y()[size_t(y) * 1280 + x] = uint8_t(16 + 219 * x / 1279);
    Image shot;
    ASSERT_TRUE(rig.display.PushUntil(f, [](const Image &i) { return i.At(636, 180).r > 200; }, &shot));
    SaveShot(shot);
    int last = -1;
    for (int x = 0; x < 640; x += 3) {
        // Each window column shows the mean of two frame columns.
        const int meanY = (f.Y()[2 * x] + f.Y()[2 * x + 1] + 1) / 2;
        EXPECT_LE(ColourDistance(shot.At(x, 180), synthetic::YuvToRgb(uint8_t(meanY), 128, 128)), 3) << x;
        EXPECT_GE(shot.At(x, 180).r, last - 1) << x;
        last = shot.At(x, 180).r;
    }
}

// The picture as large as fits, centred, proportions kept, on black bars
// (PictureFollowsTheWindow: bars above and below). dwRotation 90 turns it a
// quarter clockwise, 270 a quarter counter-clockwise, 180 a half turn; any
// other value shows it upright; the aspect word of fit mode 1 doesn't
// stretch it. A stream that changes its frame size and rotation while
// playing: each picture takes its proportions and orientation on the same
// display.
TEST(PlainView, RotationAndSizeChangesPutEachCornerWhereExpected)
{
    struct Step {
        int w, h;
        uint32_t rotation;
        int lands[4]; // screen corner (TL, TR, BL, BR) of each frame corner
        uint32_t fitMode = 0, aspect = 0;
    } steps[] = {{320, 180, 90, {1, 3, 0, 2}}, {320, 180, 0, {0, 1, 2, 3}},   {320, 320, 45, {0, 1, 2, 3}},
                 {160, 240, 180, {3, 2, 1, 0}}, {640, 360, 270, {2, 0, 3, 1}}, {640, 480, 0, {0, 1, 2, 3}},
                 {640, 360, 0, {0, 1, 2, 3}, 1, 1}, {640, 360, 90, {1, 3, 0, 2}, 1, 5}};
    const int winW = 480, winH = 270;
    Rig rig(winW, winH);
    ASSERT_TRUE(rig.Started());
    for (const Step &st : steps) {
        SCOPED_TRACE(std::to_string(st.w) + "x" + std::to_string(st.h) + " rotation " + std::to_string(st.rotation));
        Frame f = MarkedCorners(st.w, st.h, 16);
        f.aspect = st.aspect;
        ASSERT_EQ(rig.display.SetU32(ZT5_CFG_DISPLAY_FIT_MODE, st.fitMode), ZT5_OK);
        const bool turned = st.rotation == 90 || st.rotation == 270;
        const Rect pic = turned ? LetterboxRect(winW, winH, st.h, st.w) : LetterboxRect(winW, winH, st.w, st.h);
        Image shot;
        const bool shown = rig.display.PushUntil(f, BoundsAre(pic), &shot, st.rotation);
        SaveShot(shot, "_" + std::to_string(&st - steps));
        ASSERT_TRUE(shown) << "the picture never took the shape of this step";
        const int sx[4] = {pic.left + 4, pic.right - 5, pic.left + 4, pic.right - 5};
        const int sy[4] = {pic.top + 4, pic.top + 4, pic.bottom - 5, pic.bottom - 5};
        for (int k = 0; k < 4; k++)
            EXPECT_TRUE(Near(shot.At(sx[st.lands[k]], sy[st.lands[k]]), Shown(kMarks[k]), 4)) << "frame corner " << k;
    }
}

// Rows whose bytes aren't a multiple of 4 (or 8): a row-alignment slip
// shears the picture, padding shows as a dark column at the right edge.
TEST(PlainView, OddRowWidthsDrawWithoutShearOrPadding)
{
    for (int w : {1922, 642, 326}) {
        const int h = w == 1922 ? 1080 : (w == 642 ? 480 : 182);
        SCOPED_TRACE(w);
        Rig rig(640, 360);
        ASSERT_TRUE(rig.Started());
        Frame f(w, h, kRed);
        const int split = (w / 4) * 2;
        f.Fill(split, 0, w, h, kBlue);
        f.Fill(w - 2, 0, w, h, kGreen); // one chroma sample wide, at the very edge
        f.Fill(0, h - 2, w - 2, h, kWhite);
        const Rect pic = LetterboxRect(640, 360, w, h);
        Image shot;
        ASSERT_TRUE(rig.display.PushUntil(f, [&](const Image &i) { return Near(i.At(pic.left + 10, 180), Shown(kRed), 4); }, &shot));
        SaveShot(shot, "_" + std::to_string(w));
        const int boundary = pic.left + int(split * double(pic.width()) / w + 0.5);
        for (int y = pic.top + 4; y < pic.bottom - 6; y += 7) {
            int x = pic.left;
            while (x < pic.right && !Near(shot.At(x, y), Shown(kBlue), 40)) x++;
            ASSERT_NEAR(x, boundary, 2) << "row " << y;
            EXPECT_GT(shot.At(pic.right - 1, y).g, 60) << "row " << y << ": padding at the right edge";
        }
        EXPECT_GE(CountNear(shot, Rect{pic.left + 2, pic.bottom - 1, pic.right - 6, pic.bottom}, Shown(kWhite), 40),
                  long(pic.width() - 8))
            << "the last row doesn't end where it should";
    }
}

// A host resizes its window, moves the display to another window, or takes
// the window away for a while: the picture follows within a few frames.
TEST(PlainView, PictureFollowsTheWindow)
{
    XWindow second(320, 320);
    Rig rig(640, 360);
    ASSERT_TRUE(second.ok() && rig.Started());
    Display &d = rig.display;
    Frame yellow(320, 180, kYellow), blue(320, 180, kBlue), purple(320, 180, Rgb{130, 50, 200});
    Image shot;
    ASSERT_TRUE(d.PushUntil(yellow, CentreIs(Shown(kYellow), 640, 360), &shot));
    ExpectPictureOnBars(shot, Rect{0, 0, 640, 360}, Shown(kYellow));

    for (auto size : {std::make_pair(400, 400), std::make_pair(600, 200)}) {
        ASSERT_TRUE(rig.window.Resize(size.first, size.second));
        ASSERT_EQ(d.SetWindow(rig.window.id(), size.first, size.second), ZT5_OK);
        ASSERT_TRUE(d.PushUntil(yellow, CentreIs(Shown(kYellow), size.first, size.second), &shot));
        ExpectPictureOnBars(shot, LetterboxRect(size.first, size.second, 320, 180), Shown(kYellow));
    }

    // Frames pushed until the new picture shows: the change costs a few.
    auto framesUntil = [&](Frame &f, const Check &check) {
        for (int pushed = 1; pushed <= 200; pushed++) {
            EXPECT_EQ(d.Push(f), ZT5_OK);
            for (int i = 0; i < 10; i++) {
                std::this_thread::sleep_for(std::chrono::milliseconds(kPollMs));
                if (d.Snapshot(&shot) && check(shot)) return pushed;
            }
        }
        return 1000;
    };
    ASSERT_EQ(d.SetWindow(second.id(), 320, 320), ZT5_OK);
    EXPECT_LE(framesUntil(blue, CentreIs(Shown(kBlue), 320, 320)), 5) << "a new window took too many frames";
    ExpectPictureOnBars(shot, LetterboxRect(320, 320, 320, 180), Shown(kBlue));

    ASSERT_EQ(d.SetWindow(0, 320, 320), ZT5_OK);
    for (int i = 0; i < 5; i++) d.Push(blue);
    ASSERT_EQ(d.SetWindow(second.id(), 320, 320), ZT5_OK);
    EXPECT_LE(framesUntil(purple, CentreIs(Shown(Rgb{130, 50, 200}), 320, 320)), 5)
        << "the display didn't draw again soon after its window came back";
}

// Lens distortion correction: a table of 13 values switches the plain view
// to the correcting program (full-range colours, the picture 0.83 of its
// height); a table of another length is dropped, no table is the plain
// program again. The frame: red, then a band of kC, then blue.
TEST(PlainView, DistortionCorrectionTable)
{
    const Rgb kC = {200, 100, 160};
    auto fullRange = [](Rgb painted) {
        uint8_t y, u, v;
        synthetic::RgbToYuv(painted, &y, &u, &v);
        auto c8 = [](double x) { return uint8_t(std::lround(std::min(1.0, std::max(0.0, x)) * 255.0)); };
        const double yy = y / 255.0, uu = u / 255.0 - 0.5, vv = v / 255.0 - 0.5;
        return Rgb{c8(yy + 1.13983 * vv), c8(yy - 0.39465 * uu - 0.58060 * vv), c8(yy + 2.03211 * uu)};
    };
    double identity[13] = {0, 0, 0, 0, 0, 1, 1, 0, 0, 0, 0, 0, 0};
    double barrel[13] = {0.5, 0, 0, 0, 0, 0.5, 0.5, 0.5, 0.5, 0, 0, 0, 0};
    double topHalf[13] = {0, 0, 0, 0, 0, 1, 1, 0, 0, -0.5, 0, 0, 0}; // bottom offset: the top half only
    struct Case {
        const char *name;
        double *table;
        uint32_t count;
        Rgb centre, low; // at (320, 240) and (320, 420)
        int top, bottom; // rows of the picture; 0 0: not measured
    } cases[] = {
        {"identity", identity, 13, fullRange(kC), fullRange(kBlue), 41, 439},
        {"barrel", barrel, 13, fullRange(kC), {0, 0, 0}, 0, 0},
        {"top-half", topHalf, 13, fullRange(kRed), fullRange(kC), 41, 439},
        {"wrong-length", identity, 12, Shown(kC), Shown(kBlue), 0, 480},
        {"none", nullptr, 13, Shown(kC), Shown(kBlue), 0, 480},
    };
    Frame f(640, 480, kRed);
    f.Fill(0, 160, 640, 320, kC);
    f.Fill(0, 320, 640, 480, kBlue);
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        Rig rig(640, 480);
        ASSERT_TRUE(rig.ok());
        ZT5DistortionParam param = {c.table, c.count}; // kept by pointer: outlives the display
        ASSERT_EQ(rig.display.Set(ZT5_CFG_DISPLAY_DISTORTION_PARAM, &param), ZT5_OK);
        ASSERT_EQ(rig.Init(), ZT5_OK);
        Image shot;
        const bool shown = rig.display.PushUntil(f, [&](const Image &i) { return Near(i.At(320, 240), c.centre, 3); }, &shot);
        SaveShot(shot, std::string("_") + c.name);
        ASSERT_TRUE(shown) << "centre " << Str(shot.empty() ? kBlack : shot.At(320, 240));
        EXPECT_TRUE(Near(shot.At(320, 420), c.low, 3)) << Str(shot.At(320, 420));
        if (c.bottom) {
            Rect b = PictureBounds(shot);
            EXPECT_NEAR(b.top, c.top, 1);
            EXPECT_NEAR(b.bottom, c.bottom, 1);
        } else { // barrel: the corners map outside the picture
            EXPECT_TRUE(Near(shot.At(2, 43), kBlack, 2)) << Str(shot.At(2, 43));
            EXPECT_TRUE(Near(shot.At(637, 436), kBlack, 2)) << Str(shot.At(637, 436));
        }
        if (c.count == 12) {
            EXPECT_EQ(param.pTable, nullptr) << "a table of the wrong length is dropped";
        }
    }
}

// A host that draws with GL itself keeps its own context current on its
// thread through a display's whole life: the library's EGL work stays on its
// render thread.
TEST(PlainView, TheHostsOwnGlContextIsLeftAlone)
{
    EGLDisplay dpy = eglGetDisplay(EGL_DEFAULT_DISPLAY);
    ASSERT_TRUE(eglInitialize(dpy, nullptr, nullptr));
    const EGLint attribs[] = {EGL_SURFACE_TYPE, EGL_PBUFFER_BIT, EGL_RENDERABLE_TYPE, EGL_OPENGL_ES2_BIT, EGL_NONE};
    EGLConfig cfg;
    EGLint n = 0;
    ASSERT_TRUE(eglChooseConfig(dpy, attribs, &cfg, 1, &n) && n == 1);
    const EGLint size[] = {EGL_WIDTH, 8, EGL_HEIGHT, 8, EGL_NONE};
    const EGLint version[] = {EGL_CONTEXT_CLIENT_VERSION, 2, EGL_NONE};
    EGLSurface surface = eglCreatePbufferSurface(dpy, cfg, size);
    EGLContext ctx = eglCreateContext(dpy, cfg, EGL_NO_CONTEXT, version);
    ASSERT_TRUE(eglMakeCurrent(dpy, surface, surface, ctx));
    {
        Rig rig(160, 120);
        ASSERT_TRUE(rig.Started());
        Frame f(64, 64, kRed);
        ASSERT_TRUE(rig.display.PushUntil(f, CentreIs(kRed, 160, 120)));
        EXPECT_EQ(rig.display->Uninit(), ZT5_OK);
    }
    EXPECT_EQ(eglGetCurrentContext(), ctx) << "the host's context was released";
    glClearColor(0, 1, 0, 1);
    glClear(GL_COLOR_BUFFER_BIT);
    uint8_t px[4] = {};
    glReadPixels(0, 0, 1, 1, GL_RGBA, GL_UNSIGNED_BYTE, px);
    EXPECT_EQ(px[1], 255) << "the host can no longer draw";
    eglMakeCurrent(dpy, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
    eglDestroyContext(dpy, ctx);
    eglDestroySurface(dpy, surface);
}
