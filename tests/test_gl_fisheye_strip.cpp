// The panorama strip (FishEyeMode 2) driven at the effect level: an EGL
// context of our own, the synthetic lens square in three textures, Render,
// read back, and checks against the known scene.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <map>
#include <memory>
#include <vector>

#include "EffectFactory.h"
#include "FisheyeCommon.h"
#include "FisheyeGl.h"

using fisheyegl::GlContext;
using fisheyegl::NearestSector;
using harness::RgbaImage;

namespace {

const int kW = 640, kH = 360;
const double kPi = 3.14159265358979323846;
// At the wide position the eye is 2 units from the strip and the frustum's
// half height is 1 at distance 1: kH / 2 pixels span 2 world units.
const double kPxPerUnitWide = (kH / 2) / 2.0;
// The strip's 12 units hold 360 degrees of azimuth.
const double kPxPerRadianWide = kPxPerUnitWide * 12.0 / (2.0 * kPi);

class StripTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ctx.reset(new GlContext(kW, kH));
        ASSERT_TRUE(ctx->ok()) << ctx->error();
        tex.reset(new fisheyegl::PlaneTextures());
        tex->Upload(fisheyegl::SyntheticLens(0));
        view.reset(CreateRenderEffect(2, 0));
        ASSERT_NE(view, nullptr);
        ASSERT_EQ(view->Initialize(1080, 1080), 0);
    }
    void TearDown() override
    {
        view.reset();
        tex.reset();
        ctx.reset();
    }
    void RenderFrames(int n, int w = kW, int h = kH) { fisheyegl::RenderFrames(*view, *tex, n, w, h); }
    RgbaImage Snap() { return fisheyegl::ReadBack(kW, kH); }
    FECurrentStatusData Save() { return fisheyegl::SaveState(*view, 0xEE); }

    std::unique_ptr<GlContext> ctx;
    std::unique_ptr<fisheyegl::PlaneTextures> tex;
    std::unique_ptr<GlesRenderEffect> view;
};

// Runs of one sector colour along a row: (sector, first x, last x).
struct SectorRun {
    int sector, x0, x1;
};
std::vector<SectorRun> SectorRuns(const RgbaImage &img, int y)
{
    std::vector<SectorRun> runs;
    for (int x = 0; x < img.width; x++) {
        int s = NearestSector(img.At(x, y), 30);
        if (s < 0) continue;
        if (!runs.empty() && runs.back().sector == s && runs.back().x1 >= x - 12)
            runs.back().x1 = x;
        else
            runs.push_back({s, x, x});
    }
    // Drop specks (anti-aliased label edges) shorter than 6 pixels.
    std::vector<SectorRun> out;
    for (const SectorRun &r : runs)
        if (r.x1 - r.x0 >= 6) {
            if (!out.empty() && out.back().sector == r.sector)
                out.back().x1 = r.x1;
            else
                out.push_back(r);
        }
    return out;
}

// Row of the strip that shows latitude theta (degrees from the axis) at the
// wide position: the strip's top is the rim and its bottom 0.8 of the way in.
int RowForTheta(double thetaDeg)
{
    double tPrime = 1.0 - thetaDeg / 90.0;          // radius fraction -> t'
    double t = (tPrime - 0.00179) / 0.8;              // strip coordinate, 0 at the top
    double stripTop = kH / 2.0 - 1.15 * kPxPerUnitWide; // world y 1.15
    return int(stripTop + t * 2.3 * kPxPerUnitWide);
}

// A measured shift of the centre boundary, folded into the sector width
// around `expected` (the boundary nearest the centre may be another one).
double FoldShift(double shift, double expected)
{
    const double sectorPx = kPxPerRadianWide * kPi / 4.0;
    while (shift < expected - sectorPx / 2) shift += sectorPx;
    while (shift > expected + sectorPx / 2) shift -= sectorPx;
    return shift;
}

// x of the boundary between the two runs around the window centre.
double CentreBoundary(const std::vector<SectorRun> &runs)
{
    double best = 1e9;
    for (size_t i = 1; i < runs.size(); i++) {
        double b = (runs[i - 1].x1 + runs[i].x0) / 2.0;
        if (std::fabs(b - kW / 2.0) < std::fabs(best - kW / 2.0)) best = b;
    }
    return best;
}

} // namespace

TEST_F(StripTest, PanoramaShowsSectorsInAzimuthOrderAndHorizonBand)
{
    RenderFrames(1);
    RgbaImage img = Snap();
    fisheyegl::SaveSnapshot("fisheye_strip_wide", img);

    // Sectors: one band each, decreasing azimuth from left to right, every
    // inner band 45 degrees wide.
    std::vector<SectorRun> runs = SectorRuns(img, RowForTheta(40.0));
    ASSERT_GE(runs.size(), 4u);
    for (size_t i = 1; i < runs.size(); i++)
        EXPECT_EQ(runs[i].sector, (runs[i - 1].sector + 7) % 8) << "run " << i;
    const double sectorPx = kPxPerRadianWide * kPi / 4.0;
    for (size_t i = 1; i + 1 < runs.size(); i++)
        EXPECT_NEAR(runs[i].x1 - runs[i].x0 + 1, sectorPx, 6.0) << "run " << i;

    // The centre column looks at azimuth 90 + 2.035 rad + 90 degrees: the
    // start scroll puts sector 4 (180..225 degrees) in the middle.
    EXPECT_EQ(NearestSector(img.At(kW / 2, RowForTheta(40.0)), 30), 4);

    // Horizon ring (75..85 degrees) as one white band across the whole width,
    // just below the strip's top edge.
    int whiteRow = RowForTheta(80.0);
    int white = 0;
    for (int x = 0; x < kW; x++) white += fisheyegl::IsHorizonWhite(img.At(x, whiteRow), 30);
    EXPECT_GT(white, kW * 98 / 100);

    // Wide position: the strip fills 57.5 % of the height, clear colour
    // (black) above and below.
    int top = int(kH / 2.0 - 1.15 * kPxPerUnitWide);
    for (int x = 0; x < kW; x += 7) {
        EXPECT_EQ(harness::ColourDistance(img.At(x, top - 4), {0, 0, 0}), 0);
        EXPECT_EQ(harness::ColourDistance(img.At(x, kH - top + 4), {0, 0, 0}), 0);
    }
}

TEST_F(StripTest, DragScrollsByTheExpectedAmountAndIgnoresY)
{
    RenderFrames(1);
    double before = CentreBoundary(SectorRuns(Snap(), RowForTheta(40.0)));
    // 100 pixels to the right, with a vertical component that must not count.
    view->OnTouchDown(100, 100);
    view->OnTouchMove(100, 100, 150, 180);
    view->OnTouchMove(150, 180, 200, 40);
    view->OnTouchUp(200, 40);
    RenderFrames(1);
    RgbaImage img = Snap();
    fisheyegl::SaveSnapshot("fisheye_strip_dragged", img);
    double after = CentreBoundary(SectorRuns(img, RowForTheta(40.0)));
    // 100 px * 0.1125 * 0.02 = 0.225 rad; the picture follows the finger.
    double expected = 0.225 * kPxPerRadianWide;
    EXPECT_NEAR(FoldShift(after - before, expected), expected, 2.5);
    EXPECT_NEAR(Save().xMove, 2.035f + 0.225f, 1e-5);
    EXPECT_FLOAT_EQ(Save().fTz[0], 0.0f);
}

TEST_F(StripTest, DoubleTapMovesToCloseAndBackFrameByFrame)
{
    RenderFrames(1);
    view->OnDoubleClick(10, 10);
    RenderFrames(1);
    EXPECT_NEAR(Save().fTz[0], -0.02f, 1e-6);
    view->OnDoubleClick(10, 10); // dropped: a move runs
    RenderFrames(41);
    EXPECT_NEAR(Save().fTz[0], -0.84f, 1e-4);
    EXPECT_EQ(Save().maxState, 1);
    RenderFrames(3);
    FECurrentStatusData d = Save();
    EXPECT_FLOAT_EQ(d.fTz[0], -0.85f);
    EXPECT_EQ(d.maxState, 1);

    // Close: the strip (half height 1.15 at distance 1.15) fills the window.
    RgbaImage img = Snap();
    fisheyegl::SaveSnapshot("fisheye_strip_close", img);
    int lit = 0;
    for (int x = 0; x < kW; x++) {
        synthetic::Rgb a = img.At(x, 1), b = img.At(x, kH - 2);
        lit += (a.r + a.g + a.b > 60) + (b.r + b.g + b.b > 60);
    }
    EXPECT_GT(lit, 2 * kW * 9 / 10);

    view->OnDoubleClick(10, 10);
    RenderFrames(50);
    EXPECT_FLOAT_EQ(Save().fTz[0], 0.0f);
    EXPECT_EQ(Save().maxState, 0);
}

TEST_F(StripTest, PinchStepsAreClampedAndDecideTheSettledPosition)
{
    RenderFrames(1);
    for (int i = 0; i < 40; i++) view->OnTouchPinch(1.5f, 0, 0);
    RenderFrames(1);
    EXPECT_FLOAT_EQ(Save().fTz[0], -0.85f);
    for (int i = 0; i < 40; i++) view->OnTouchPinch(0.5f, 0, 0);
    RenderFrames(1);
    EXPECT_FLOAT_EQ(Save().fTz[0], 0.0f);

    // Six steps in: -0.2025, past -0.2, so close is the settled position and
    // the next double tap goes back to wide.
    for (int i = 0; i < 6; i++) view->OnTouchPinch(2.0f, 0, 0);
    RenderFrames(1);
    EXPECT_EQ(Save().maxState, 1);
    view->OnDoubleClick(0, 0);
    RenderFrames(12);
    EXPECT_FLOAT_EQ(Save().fTz[0], 0.0f);
    // Five steps in (-0.16875) stays settled on wide.
    for (int i = 0; i < 5; i++) view->OnTouchPinch(2.0f, 0, 0);
    RenderFrames(1);
    EXPECT_EQ(Save().maxState, 0);
    // A rate of exactly 1 counts as zooming out.
    view->OnTouchPinch(1.0f, 0, 0);
    RenderFrames(1);
    EXPECT_NEAR(Save().fTz[0], -0.135f, 1e-5);
}

TEST_F(StripTest, CruiseMovesEachFrameAndATouchEndsIt)
{
    RenderFrames(1);
    EXPECT_EQ(view->GetFishEyeCruiseState(), 0);
    double before = CentreBoundary(SectorRuns(Snap(), RowForTheta(40.0)));
    view->SetFishEyeCruiseState(1, 3.0f); // the strip's speed ignores the velocity
    EXPECT_EQ(view->GetFishEyeCruiseState(), 1);
    RenderFrames(40);
    FECurrentStatusData d = Save();
    EXPECT_NEAR(d.xMove, 2.035 - 40 * 0.0021375, 1e-4);
    EXPECT_EQ(d.mCruiseState, 1);
    EXPECT_FLOAT_EQ(d.mCruiseVelocity, 3.0f);
    double after = CentreBoundary(SectorRuns(Snap(), RowForTheta(40.0)));
    const double expected = -40 * 0.0021375 * kPxPerRadianWide;
    EXPECT_NEAR(FoldShift(after - before, expected), expected, 2.5);

    view->OnDoubleClick(5, 5); // a double tap doesn't stop the cruise
    EXPECT_EQ(view->GetFishEyeCruiseState(), 1);
    view->OnTouchDown(5, 5);
    EXPECT_EQ(view->GetFishEyeCruiseState(), 0);
    float stopped = Save().xMove;
    RenderFrames(5);
    EXPECT_FLOAT_EQ(Save().xMove, stopped);
}

TEST_F(StripTest, InertiaStepsScrollByTheDecayingVelocity)
{
    RenderFrames(1);
    view->SetFishEyeCruiseState(1, 1.0f);
    float vx = 100.0f, vy = -300.0f;
    int calls = 0;
    double expected = 2.035f;
    while (FisheyeInertiaStep(&vx, &vy)) {
        view->StartAcceleratedVelocity(vx, vy);
        expected = float(expected + double(vx) * 0.00012375);
        calls++;
    }
    // 300 * 0.9^k stays at or above 0.5 up to k = 60.
    EXPECT_EQ(calls, 60);
    EXPECT_EQ(view->GetFishEyeCruiseState(), 0); // inertia ends a cruise
    EXPECT_NEAR(Save().xMove, expected, 1e-5);
    // Geometric sum of the x steps: 100 * 0.9 (1 - 0.9^60) / 0.1.
    EXPECT_NEAR(Save().xMove - 2.035, 0.00012375 * 100 * 0.9 * (1 - std::pow(0.9, 60)) / 0.1, 1e-4);
}

TEST_F(StripTest, SaveChangeRestoreRendersTheSavedPicture)
{
    view->OnTouchMove(0, 0, 333, 0);
    for (int i = 0; i < 4; i++) view->OnTouchPinch(2.0f, 0, 0);
    RenderFrames(2);
    FECurrentStatusData saved = Save();
    RgbaImage atSave = Snap();

    view->OnTouchMove(0, 0, -500, 0);
    view->OnDoubleClick(0, 0);
    RenderFrames(20);
    RgbaImage changed = Snap();
    EXPECT_NE(changed.rgba, atSave.rgba);

    ASSERT_EQ(view->setConfig(ZT5_CFG_DISPLAY_FE_CURRENTSTATUS, &saved), 0);
    RenderFrames(1);
    RgbaImage restored = Snap();
    EXPECT_EQ(restored.rgba, atSave.rgba);
}

TEST_F(StripTest, RestoreRules)
{
    RenderFrames(1);
    FECurrentStatusData rec;
    std::memset(&rec, 0, sizeof(rec));
    // Fields the strip doesn't use travel through unchanged.
    rec.fCamZ[2] = 12.5f;
    rec.nRoamState = 7;
    rec.bIsAutoTouring[3] = 1;
    rec.bRestored = 1;
    rec.mFishEyeMode = 2;
    rec.xMove = 1.0f;
    rec.fTz[0] = -0.5f;
    rec.mfZoom = -1.0f;
    rec.maxState = 1;
    rec.maxMinInit = 1; // saved during a zoom...
    rec.mCruiseState = 2;
    rec.mCruiseVelocity = 0.25f;
    ASSERT_EQ(view->setConfig(ZT5_CFG_DISPLAY_FE_CURRENTSTATUS, &rec), 0);
    EXPECT_EQ(view->GetFishEyeCruiseState(), 1); // 2 restores as 1

    FECurrentStatusData back = Save();
    EXPECT_FLOAT_EQ(back.fCamZ[2], 12.5f);
    EXPECT_EQ(back.nRoamState, 7);
    EXPECT_EQ(back.bIsAutoTouring[3], 1);
    EXPECT_EQ(back.bRestored, 1u);
    EXPECT_EQ(back.mFishEyeMode, 2);
    EXPECT_EQ(back.mCruiseState, 1);
    EXPECT_EQ(back.maxMinInit, 0); // ...comes back settled on close
    EXPECT_FLOAT_EQ(back.mCruiseVelocity, 0.25f);

    // Settled: the next frames neither animate nor move fTz.
    view->SetFishEyeCruiseState(0, 1.0f);
    RenderFrames(3);
    EXPECT_FLOAT_EQ(Save().fTz[0], -0.5f);
    EXPECT_FLOAT_EQ(Save().mfZoom, -1.0f);

    EXPECT_EQ(view->GetConfig(ZT5_CFG_DISPLAY_GET_FE_CURRENTSTATUS, nullptr), 2);
    EXPECT_EQ(view->setConfig(ZT5_CFG_DISPLAY_FE_CURRENTSTATUS, nullptr), 0);
}

TEST_F(StripTest, TinyWindowDrawsNothing)
{
    glClearColor(0.0f, 1.0f, 0.0f, 1.0f);
    glClear(GL_COLOR_BUFFER_BIT);
    RenderFrames(1, 10, 10);
    RgbaImage img = Snap();
    EXPECT_EQ(img.At(5, kH - 5).g, 255); // untouched
    RenderFrames(1, 11, 11);
    img = Snap();
    EXPECT_NE(img.At(5, kH - 5).g, 255);
}
