// Points of the frame in every view, as a host asks for them: window points
// to frame points and back (ZT5_CFG_DISPLAY_MAP_POINT), tied to the pixels
// by a bright dot pushed where the mapping says a pane's point lies, and
// aiming a view at a frame point (ZT5_CFG_DISPLAY_AIM_AT).
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <thread>

#include "Harness.h"

using namespace harness;

namespace {

// A 640x480 frame, its lens circle of radius 240 in the middle: grey
// inside, a white dot of 4x4 pixels centred on a whole pixel corner.
const int kFrameW = 640, kFrameH = 480;
const Rgb kGrey = {90, 90, 90}, kWhite = {255, 255, 255};

Frame DotFrame(int dx, int dy)
{
    Frame f(kFrameW, kFrameH, kGrey);
    if (dx >= 2 && dy >= 2) f.Fill(dx - 2, dy - 2, dx + 2, dy + 2, kWhite);
    return f;
}

struct Mapped {
    int pane = -1;
    double x = 0, y = 0;
};

Mapped MapPoint(Display &d, bool toWindow, double x, double y)
{
    ZT5PointMap m = {toWindow ? 1u : 0u, float(x), float(y), -7.0f, -7.0f, 99};
    EXPECT_EQ(d->GetDisplayParam(ZT5_CFG_DISPLAY_MAP_POINT, &m), ZT5_OK);
    if (m.lPane < 0) {
        EXPECT_EQ(m.fOutX, -7.0f) << "an unmapped point leaves the answer";
    }
    return {m.lPane, m.fOutX, m.fOutY};
}

// The middle of the bright pixels within `reach` of (x, y), weighted by how
// much brighter than the grey they are; false when none is.
bool BrightCentre(const Image &img, double x, double y, int reach, double *cx, double *cy)
{
    double sw = 0, sx = 0, sy = 0;
    for (int j = int(y) - reach; j <= int(y) + reach; j++) {
        for (int i = int(x) - reach; i <= int(x) + reach; i++) {
            if (i < 0 || j < 0 || i >= img.width || j >= img.height) continue;
            const Rgb c = img.At(i, j);
            const double w = (c.r + c.g + c.b) / 3.0 - 200.0;
            if (w <= 0) continue;
            sw += w, sx += w * (i + 0.5), sy += w * (j + 0.5);
        }
    }
    if (sw <= 0) return false;
    *cx = sx / sw, *cy = sy / sw;
    return true;
}

// Moves (x, y) to the window point nearby that shows frame point (fx, fy):
// Newton's steps on the window-to-frame mapping, differences of half a
// pixel.
bool WindowPointNear(Display &d, double fx, double fy, double *x, double *y)
{
    for (int it = 0; it < 10; it++) {
        const Mapped m = MapPoint(d, false, *x, *y), mx = MapPoint(d, false, *x + 0.5, *y),
                     my = MapPoint(d, false, *x, *y + 0.5);
        if (m.pane < 0 || mx.pane != m.pane || my.pane != m.pane) return false;
        const double a = 2 * (mx.x - m.x), b = 2 * (my.x - m.x), c = 2 * (mx.y - m.y), e = 2 * (my.y - m.y);
        const double det = a * e - b * c, ex = fx - m.x, ey = fy - m.y;
        if (det == 0) return false;
        *x += (e * ex - b * ey) / det, *y += (-c * ex + a * ey) / det;
        if (std::hypot(ex, ey) < 0.01) return true;
    }
    return false;
}

struct ViewCase {
    uint32_t mode;
    int width, height;
    int panes; // panes to check, at their centres
    uint32_t rotation = 0; // of the frames pushed
    uint32_t law = 0;      // a lens model set (ZT5_LENS_*, 200 degrees), 0 none
};

// A window of the usual proportions for each view; the grid view at its
// four panes, the two-square views at both; the plain view also with a
// picture turned a quarter.
const ViewCase kViews[] = {
    {0, 480, 360, 1}, {0, 480, 360, 1, 90}, {1, 480, 360, 1}, {2, 480, 360, 1}, {3, 480, 360, 4}, {4, 640, 320, 2}, {5, 480, 360, 1},
    {6, 480, 360, 1}, {7, 480, 360, 3}, {8, 640, 320, 2}, {9, 480, 360, 1}, {10, 480, 360, 1},
    {1, 480, 360, 1, 0, ZT5_LENS_EQUISOLID}, {10, 480, 360, 1, 0, ZT5_LENS_STEREOGRAPHIC},
};

class PointsInViews : public ::testing::TestWithParam<ViewCase> {
protected:
    void SetUp() override
    {
        const ViewCase &v = GetParam();
        rig.reset(new Rig(v.width, v.height, v.mode));
        ASSERT_TRUE(rig->ok()) << Error();
        // Centre and radii in 1/10000 of the frame's width and height.
        ZT5FishEyeParam lens = {5000, 5000, 10000 * (kFrameH / 2) / kFrameW, 5000};
        ASSERT_EQ(rig->display.Set(ZT5_CFG_COMMON_FISHEYE_PARAM, &lens), ZT5_OK);
        if (v.law) {
            ZT5LensModel model = {v.law, 200.0f, {0.0f, 0.0f, 0.0f, 0.0f}};
            ASSERT_EQ(rig->display.Set(ZT5_CFG_COMMON_LENS_MODEL, &model), ZT5_OK);
        }
        ASSERT_EQ(rig->Init(), ZT5_OK);
        Frame f = DotFrame(0, 0);
        // Drawn, and the view's start (a flight, a zoom) over.
        ASSERT_TRUE(rig->display.PushUntil(f, [](const Image &img) { return !img.empty(); }, nullptr, v.rotation));
        rig->display.Quiet();
    }
    // Window point of pane slot k's centre, nudged off the exact middle.
    void PaneCentre(int k, double *x, double *y) const
    {
        const ViewCase &v = GetParam();
        const double w = v.width, h = v.height;
        switch (v.mode) {
        case 3: *x = (k == 0 || k == 1 ? 0.25 : 0.75) * w, *y = (k == 1 || k == 2 ? 0.25 : 0.75) * h; break;
        case 4:
        case 8: *x = (k == 0 ? 0.75 : 0.25) * w, *y = 0.5 * h; break;
        case 7: *x = k == 1 ? 0.5 * w : (k == 0 ? 0.25 * w : 0.75 * w), *y = k == 1 ? 0.75 * h : 0.3 * h; break;
        case 0: *x = 0.5 * w + 60, *y = 0.5 * h + 40; break; // off the middle, where a turn shows
        case 5: *x = 0.5 * w, *y = 0.75 * h; break; // the middle looks through the cylinder
        default: *x = 0.5 * w, *y = 0.5 * h;
        }
        *x += 7.3, *y += 4.6;
        if (v.law) *x += 50, *y += 30; // off the lens axis, where the law shows
    }
    std::unique_ptr<Rig> rig;
};

// Window points on a grid go to the frame and back to where they were
// (or to a lower pane that shows the same frame point).
TEST_P(PointsInViews, WindowPointsGoToTheFrameAndBack)
{
    Display &d = rig->display;
    const ViewCase &v = GetParam();
    int mapped = 0;
    for (int j = 1; j < 12; j++) {
        for (int i = 1; i < 16; i++) {
            const double x = v.width * i / 16.0 + 0.3, y = v.height * j / 12.0 + 0.2;
            const Mapped f = MapPoint(d, false, x, y);
            if (f.pane < 0) continue;
            EXPECT_TRUE(f.x >= 0 && f.x <= kFrameW && f.y >= 0 && f.y <= kFrameH) << f.x << "," << f.y;
            const Mapped w = MapPoint(d, true, f.x, f.y);
            ASSERT_GE(w.pane, 0) << "window " << x << "," << y << " frame " << f.x << "," << f.y;
            EXPECT_LE(w.pane, f.pane);
            if (w.pane == f.pane) {
                EXPECT_NEAR(w.x, x, 1.0) << "window " << x << "," << y;
                EXPECT_NEAR(w.y, y, 1.0) << "window " << x << "," << y;
            }
            mapped++;
        }
    }
    EXPECT_GT(mapped, 40) << "most of the window shows the frame";
}

// A dot pushed at the frame point a pane's centre shows is drawn there, and
// the frame point's window point is where the dot is drawn.
TEST_P(PointsInViews, DotShowsWhereTheMappingSays)
{
    Display &d = rig->display;
    for (int k = 0; k < GetParam().panes; k++) {
        double x, y;
        PaneCentre(k, &x, &y);
        const Mapped f = MapPoint(d, false, x, y);
        ASSERT_GE(f.pane, 0) << "pane " << k;
        // The dot's centre is a whole pixel corner: the window point of this
        // pane that shows it exactly.
        const int dx = int(std::lround(f.x)), dy = int(std::lround(f.y));
        ASSERT_TRUE(WindowPointNear(d, dx, dy, &x, &y)) << "pane " << k;
        const Mapped w = MapPoint(d, true, dx, dy);
        ASSERT_GE(w.pane, 0);
        EXPECT_LE(w.pane, f.pane);
        Frame dot = DotFrame(dx, dy);
        Image img;
        double cx = 0, cy = 0;
        const bool shown = d.PushUntil(
            dot, [&](const Image &i) { return BrightCentre(i, x, y, 25, &cx, &cy); }, &img, GetParam().rotation);
        SaveShot(img, "_pane" + std::to_string(k));
        ASSERT_TRUE(shown) << "pane " << k << " at " << x << "," << y << " frame " << dx << "," << dy;
        EXPECT_NEAR(cx, x, 2.0) << "pane " << k;
        EXPECT_NEAR(cy, y, 2.0) << "pane " << k;
        ASSERT_TRUE(BrightCentre(img, w.x, w.y, 25, &cx, &cy));
        EXPECT_NEAR(cx, w.x, 2.0) << "pane " << k << " answered " << w.pane;
        EXPECT_NEAR(cy, w.y, 2.0) << "pane " << k << " answered " << w.pane;
    }
}

// AIM_AT turns the view so that the point comes to the centre of the pane
// it steers; the dot pushed there is drawn there. The target is a point the
// view shows beside that centre. Mode 7 has nothing to steer. The
// cylinder (mode 5) is left out: around its middle the picture jumps between
// its near and its far wall, seen through its open top, and a turn there
// moves the middle's point by leaps.
TEST_P(PointsInViews, AimBringsThePointToThePaneCentre)
{
    Display &d = rig->display;
    const ViewCase &v = GetParam();
    float point[2] = {320.0f, 240.0f};
    if (v.mode == 5) GTEST_SKIP() << "the cylinder's middle leaps between its walls";
    if (v.mode == 7) {
        EXPECT_EQ(d.Set(ZT5_CFG_DISPLAY_AIM_AT, point), ZT5_ERR_INVALID_PARAM);
        return;
    }
    if (v.mode == 0) { // zoomed in, so that the pan can move
        ASSERT_EQ(d.SetU32(ZT5_CFG_DISPLAY_SCALE_RATIO, 200), ZT5_OK);
        Frame f = DotFrame(0, 0);
        d.Push(f, v.rotation);
        d.Quiet();
    }
    double cx = v.width / 2.0, cy = v.height / 2.0;
    if (v.mode == 3) cx = v.width / 4.0, cy = v.height * 3 / 4.0;
    if (v.mode == 4 || v.mode == 8) cx = 478, cy = 160;
    // The strip scrolls only across; the dome from outside and the 180-degree
    // wall view tilt only a little (a limit, a spring).
    const bool across = v.mode == 2 || v.mode == 6 || v.mode == 10;
    const Mapped t = MapPoint(d, false, cx + 25, cy + (across ? 0 : 18));
    ASSERT_GE(t.pane, 0);
    point[0] = float(std::lround(t.x)), point[1] = float(std::lround(t.y));
    Frame dot = DotFrame(int(point[0]), int(point[1]));
    d.Push(dot, v.rotation);
    ASSERT_EQ(d.Set(ZT5_CFG_DISPLAY_AIM_AT, point), ZT5_OK);
    ASSERT_TRUE(d.Quiet());
    const Mapped w = MapPoint(d, true, point[0], point[1]);
    ASSERT_GE(w.pane, 0);
    EXPECT_NEAR(w.x, cx, 1.5);
    EXPECT_NEAR(w.y, cy, 1.5);
    Image img;
    double bx = 0, by = 0;
    const bool shown = d.PushUntil(
        dot, [&](const Image &i) { return BrightCentre(i, cx, cy, 25, &bx, &by); }, &img, v.rotation);
    SaveShot(img);
    ASSERT_TRUE(shown);
    EXPECT_NEAR(bx, cx, 2.0);
    EXPECT_NEAR(by, cy, 2.0);
    // Points the frame doesn't have are refused.
    for (float bad : {-1.0f, 1e9f, NAN}) {
        float p[2] = {bad, 100.0f};
        EXPECT_EQ(d.Set(ZT5_CFG_DISPLAY_AIM_AT, p), ZT5_ERR_INVALID_PARAM);
    }
}

// A face rectangle around the dot is drawn around it, as the view bends
// it: red on every side of the dot, the dot itself left white; its label
// ("female") stands right of it.
class FacesInViews : public PointsInViews {};

TEST_P(FacesInViews, RectangleSurroundsTheDot)
{
    Display &d = rig->display;
    double x, y;
    PaneCentre(0, &x, &y);
    const Mapped f = MapPoint(d, false, x, y);
    ASSERT_GE(f.pane, 0);
    const int dx = int(std::lround(f.x)), dy = int(std::lround(f.y));
    ASSERT_TRUE(WindowPointNear(d, dx, dy, &x, &y));
    ZT5FaceRect face = {};
    face.left = dx - 10, face.top = dy - 10, face.width = 20, face.height = 20;
    ZT5FaceList list = {1, 0, &face};
    static const char kFont[] = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";
    ASSERT_EQ(d.Set(ZT5_CFG_DISPLAY_FONT_PATH, const_cast<char *>(kFont)), ZT5_OK);
    ASSERT_EQ(d.SetU32(ZT5_CFG_DISPLAY_FACE_OPTION, 1 | 2), ZT5_OK);
    ASSERT_EQ(d.Set(ZT5_CFG_DISPLAY_FACE_LIST, &list), ZT5_OK);
    Frame dot = DotFrame(dx, dy);
    const Rgb kRed = {255, 0, 0};
    // How far from the dot the first red pixel lies that way; 0 for none.
    auto redAt = [&](const Image &img, double ux, double uy) {
        for (int r = 2; r < 60; r++)
            if (Near(img.At(int(x + ux * r), int(y + uy * r)), kRed, 40)) return r;
        return 0;
    };
    Image img;
    double bx, by;
    const bool drawn =
        d.PushUntil(dot, [&](const Image &i) { return redAt(i, 1, 0) && BrightCentre(i, x, y, 6, &bx, &by); }, &img);
    SaveShot(img);
    ASSERT_TRUE(drawn);
    for (double a = 0; a < 360; a += 45)
        EXPECT_TRUE(redAt(img, std::cos(a * M_PI / 180), std::sin(a * M_PI / 180))) << a << " degrees";
    EXPECT_GT((img.At(int(x), int(y)).r + img.At(int(x), int(y)).b) / 2, 200) << "the dot stays white";
    const int right = int(x) + redAt(img, 1, 0) + 4;
    const Rect label = {right, int(y) - 15, std::min(right + 120, img.width), int(y) + 15};
    EXPECT_GT(CountNear(img, label, kRed, 60), 20) << "the label right of the rectangle";
}

INSTANTIATE_TEST_SUITE_P(Views, FacesInViews, ::testing::Values(kViews[3], kViews[4], kViews[10]),
                         [](const ::testing::TestParamInfo<ViewCase> &i) {
                             return "Mode" + std::to_string(i.param.mode);
                         });

INSTANTIATE_TEST_SUITE_P(Views, PointsInViews, ::testing::ValuesIn(kViews),
                         [](const ::testing::TestParamInfo<ViewCase> &i) {
                             return "Mode" + std::to_string(i.param.mode) + (i.param.rotation ? "Turned" : "") +
                                    (i.param.law ? "Law" + std::to_string(i.param.law) : "");
                         });

// A null record is refused; before any draw every point maps to nothing.
TEST(PointMap, RefusesNullAndMapsNothingBeforeADraw)
{
    Rig rig(160, 120, 1);
    ASSERT_TRUE(rig.ok()) << Error();
    EXPECT_EQ(rig.display->GetDisplayParam(ZT5_CFG_DISPLAY_MAP_POINT, nullptr), ZT5_ERR_INVALID_PARAM);
    EXPECT_EQ(MapPoint(rig.display, false, 80, 60).pane, -1);
    ASSERT_EQ(rig.Init(), ZT5_OK);
    EXPECT_EQ(MapPoint(rig.display, true, 320, 240).pane, -1);
}

} // namespace
