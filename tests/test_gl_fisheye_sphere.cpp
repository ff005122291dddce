// The half sphere (FishEyeMode 1) driven at the effect level: opening
// flight, overview, double-click journey to the inside, look around,
// spring-back, cruise, background switches, saved state.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <memory>
#include <vector>

#include "EffectFactory.h"
#include "FisheyeCommon.h"
#include "FisheyeGl.h"

using fisheyegl::GlContext;
using fisheyegl::NearestSector;
using harness::RgbaImage;

namespace {

const int kW = 480, kH = 480;
const double kPi = 3.14159265358979323846;
const float kRoamRotZ = -45.5605965f;

class SphereTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ctx.reset(new GlContext(kW, kH));
        ASSERT_TRUE(ctx->ok()) << ctx->error();
        tex.reset(new fisheyegl::PlaneTextures());
        tex->Upload(fisheyegl::SyntheticLens(0));
    }
    void TearDown() override
    {
        view.reset();
        tex.reset();
        ctx.reset();
    }
    void Make(MDWord platform = 0)
    {
        view.reset(CreateRenderEffect(1, platform));
        ASSERT_NE(view, nullptr);
        ASSERT_EQ(view->Initialize(1080, 1080), 0);
    }
    void RenderFrames(int n, int w = kW, int h = kH) { fisheyegl::RenderFrames(*view, *tex, n, w, h); }
    RgbaImage Snap() { return fisheyegl::ReadBack(kW, kH); }
    FECurrentStatusData Save() { return fisheyegl::SaveState(*view, 0); }
    // Opening flight done and the overview pose placed.
    void ToOverview()
    {
        RenderFrames(66);
        ASSERT_EQ(Save().nRoamInit, 0);
    }
    // Double click right of the centre, then the journey to the roam pose.
    void ToInside()
    {
        ToOverview();
        view->OnDoubleClick(kW - 10, kH / 2);
        RenderFrames(43);
        FECurrentStatusData d = Save();
        ASSERT_EQ(d.nRoamState, 1);
        ASSERT_EQ(d.nRoamInit, 1);
    }

    std::unique_ptr<GlContext> ctx;
    std::unique_ptr<fisheyegl::PlaneTextures> tex;
    std::unique_ptr<GlesRenderEffect> view;
};

// Sector seen at screen angle `deg` (counter-clockwise from the right, y up)
// and radius `r` pixels around the window centre.
int SectorAt(const RgbaImage &img, double deg, double r)
{
    int x = int(kW / 2 + r * std::cos(deg * kPi / 180.0));
    int y = int(kH / 2 - r * std::sin(deg * kPi / 180.0));
    return NearestSector(img.At(x, y), 35);
}

// Mean distance from the centre of horizon-white pixels along 16 rays.
double HorizonRadius(const RgbaImage &img)
{
    double sum = 0;
    int n = 0;
    for (int k = 0; k < 16; k++) {
        double a = (k * 22.5 + 5.0) * kPi / 180.0;
        for (int r = 0; r < kW / 2; r++) {
            int x = int(kW / 2 + r * std::cos(a)), y = int(kH / 2 - r * std::sin(a));
            if (fisheyegl::IsHorizonWhite(img.At(x, y), 30)) {
                sum += r;
                n++;
            }
        }
    }
    return n ? sum / n : 0.0;
}

} // namespace

TEST_F(SphereTest, OpeningFlightEndsAtTheOverviewWithOneTurn)
{
    Make();
    FECurrentStatusData d = Save();
    EXPECT_FLOAT_EQ(d.fCamZ[0], -0.8f); // starts inside the bowl
    EXPECT_EQ(d.nRoamState, 0);
    EXPECT_EQ(d.nRoamInit, 1);

    RenderFrames(1);
    EXPECT_NEAR(Save().fCamZ[0], -0.8f + 0.12f, 1e-5);
    RenderFrames(63);
    d = Save();
    EXPECT_EQ(d.nRoamInit, 1) << "still flying after 64 frames";
    EXPECT_NEAR(d.fCamZ[0], -0.8f + 64 * 0.12f, 1e-3);
    // Spin shown so far: 64 frames of 0.12 budget at 45.6 degrees a unit.
    EXPECT_NEAR(d.fCamAngleZ[0], 64 * 0.12 * 45.6, 0.05);

    RenderFrames(1); // the 65th frame ends the flight
    d = Save();
    EXPECT_EQ(d.nRoamInit, 0);
    // 7.9 units at 45.6 degrees: the turn stays in zAngle.
    EXPECT_NEAR(d.zAngle[0], 360.24f, 0.01f);
    RenderFrames(1);
    d = Save();
    EXPECT_FLOAT_EQ(d.fCamZ[0], 7.1f);
    EXPECT_FLOAT_EQ(d.fCamRotZ[0], 0.0f);
    EXPECT_NEAR(d.zAngle[0], 0.24f, 0.01f); // wrapped into (-360, 360)
}

TEST_F(SphereTest, OverviewShowsTheWholeLensCircleUpright)
{
    Make();
    ToOverview();
    RgbaImage img = Snap();
    fisheyegl::SaveSnapshot("fisheye_sphere_overview", img);

    // Around the centre the sectors come in azimuth order, upright and not
    // mirrored: screen angle a shows the sector of azimuth a.
    for (double r : {40.0, 90.0, 140.0}) {
        for (int k = 0; k < 8; k++) {
            double a = 45.0 * k + 10.0; // off the labels at the sector middle
            EXPECT_EQ(SectorAt(img, a, r), k) << "angle " << a << " radius " << r;
            EXPECT_EQ(SectorAt(img, a + 25.0, r), k) << "angle " << a + 25 << " radius " << r;
        }
    }
    // The horizon ring closes all the way round, inside the window.
    for (int k = 0; k < 72; k++) {
        double a = k * 5.0 * kPi / 180.0;
        bool found = false;
        for (int r = 120; r < kW / 2 && !found; r++)
            found = fisheyegl::IsHorizonWhite(img.At(int(kW / 2 + r * std::cos(a)), int(kH / 2 - r * std::sin(a))), 30);
        EXPECT_TRUE(found) << "no horizon at " << k * 5 << " degrees";
    }
    // The rim of the bowl (radius 6 at 7.1) lies inside the window: the
    // corners show the backdrop, never the lens picture.
    for (int c = 0; c < 4; c++) {
        int x = c & 1 ? kW - 3 : 2, y = c & 2 ? kH - 3 : 2;
        EXPECT_EQ(NearestSector(img.At(x, y), 35), -1);
        EXPECT_FALSE(fisheyegl::IsHorizonWhite(img.At(x, y), 30));
    }
}

TEST_F(SphereTest, DoubleClickJourneyShowsOneSectorLargeAndUpright)
{
    Make();
    ToOverview();
    view->OnDoubleClick(kW - 10, kH / 2); // right of the centre: 90 degrees
    RenderFrames(41);
    EXPECT_EQ(Save().nRoamInit, 0) << "journey still under way after 41 frames";
    RenderFrames(1);
    EXPECT_EQ(Save().nRoamInit, 1) << "journey ends at the 42nd frame";
    RenderFrames(1);
    FECurrentStatusData d = Save();
    EXPECT_FLOAT_EQ(d.fCamZ[0], 2.0f);
    EXPECT_FLOAT_EQ(d.fCamRotZ[0], kRoamRotZ);
    EXPECT_FLOAT_EQ(d.fCamTranY[0], 1.87908530f);
    EXPECT_EQ(d.belasticstate, 1);
    // A click at 90 degrees turns the bowl by -80 degrees on the way.
    EXPECT_NEAR(d.zAngle[0], 0.24f - 80.0f, 0.05f);

    RgbaImage img = Snap();
    fisheyegl::SaveSnapshot("fisheye_sphere_inside", img);

    // Looking out at the bowl's wall towards the clicked side: the horizon
    // ring is a band across the top, the sector of azimuth 0..45 (sector 0)
    // stands large in the middle, its neighbours left and right in the order
    // a viewer inside the bowl sees them (1 on the left, 7 on the right).
    int whiteTop = 0;
    for (int x = 0; x < kW; x++) whiteTop += fisheyegl::IsHorizonWhite(img.At(x, kH / 8), 30);
    EXPECT_GT(whiteTop, kW * 9 / 10);
    EXPECT_EQ(NearestSector(img.At(kW / 2, kH * 2 / 5), 35), 0);
    int red = 0;
    for (int y = 0; y < kH; y += 2)
        for (int x = 0; x < kW; x += 2) red += NearestSector(img.At(x, y), 35) == 0;
    EXPECT_GT(red, (kW / 2) * (kH / 2) / 5) << "sector 0 covers a fifth of the view";
    EXPECT_EQ(NearestSector(img.At(kW / 10, kH / 2), 35), 1);
    EXPECT_EQ(NearestSector(img.At(kW * 9 / 10, kH / 3), 35), 7);
    // Upright: going down the centre column, the horizon comes first, then
    // the sector, and nothing below the horizon is white again.
    int firstWhite = -1, lastWhite = -1, firstSector = -1;
    for (int y = 0; y < kH; y++) {
        if (fisheyegl::IsHorizonWhite(img.At(kW / 2, y), 30)) {
            if (firstWhite < 0) firstWhite = y;
            lastWhite = y;
        } else if (firstSector < 0 && firstWhite >= 0 && NearestSector(img.At(kW / 2, y), 35) >= 0) {
            firstSector = y;
        }
    }
    EXPECT_GE(firstWhite, 0);
    EXPECT_LT(lastWhite, kH / 4);
    EXPECT_GT(firstSector, lastWhite);
}

TEST_F(SphereTest, DoubleClickDuringTheJourneyTurnsBack)
{
    Make();
    ToOverview();
    view->OnDoubleClick(kW / 2, 10); // above the centre: 0 degrees, no turn
    RenderFrames(10);
    FECurrentStatusData d = Save();
    EXPECT_EQ(d.nRoamState, 1);
    EXPECT_EQ(d.nRoamInit, 0);
    EXPECT_LT(d.fCamZ[0], 7.0f);
    view->OnDoubleClick(kW / 2, 10); // (1, 0) -> (0, 0): the overview side takes over at once
    RenderFrames(1);
    d = Save();
    EXPECT_EQ(d.nRoamState, 0);
    EXPECT_EQ(d.nRoamInit, 0);
    EXPECT_FLOAT_EQ(d.fCamZ[0], 7.1f);
    EXPECT_FLOAT_EQ(d.fCamRotZ[0], 0.0f);
}

TEST_F(SphereTest, DeepTiltSpringsBackOneDegreeAFrame)
{
    Make();
    ToInside();
    view->OnTouchDown(100, 100);
    RenderFrames(1);
    // Drag down: each pixel of rising y is 0.01125 of fTz, 18 degrees a unit
    // past the roam tilt; 240 pixels reach the tilt limit.
    view->OnTouchMove(100, 100, 100, 340);
    RenderFrames(1);
    FECurrentStatusData d = Save();
    EXPECT_NEAR(d.fCamRotZ[0], -92.2879715f, 1e-3);
    EXPECT_NEAR(d.fCamTranY[0], 3.57705951f, 1e-4);
    RgbaImage deep = Snap();
    fisheyegl::SaveSnapshot("fisheye_sphere_tilted", deep);

    view->OnTouchUp(100, 340);
    RenderFrames(46);
    EXPECT_NEAR(Save().fCamRotZ[0], -92.2879715f + 46.0f, 1e-3);
    RenderFrames(1);
    d = Save();
    EXPECT_FLOAT_EQ(d.fCamRotZ[0], kRoamRotZ);
    RenderFrames(1);
    d = Save();
    EXPECT_FLOAT_EQ(d.fCamRotZ[0], kRoamRotZ);
    EXPECT_FLOAT_EQ(d.fTz[0], 0.0f);
    EXPECT_EQ(d.nRoamState, 1);
    EXPECT_EQ(d.nRoamInit, 1);
}

TEST_F(SphereTest, FingerLandingOnASpringingTiltTakesItOverWithoutAJump)
{
    Make();
    ToInside();
    view->OnTouchDown(0, 0);
    view->OnTouchMove(0, 0, 0, 200);
    RenderFrames(1);
    view->OnTouchUp(0, 200);
    RenderFrames(10);
    float springing = Save().fCamRotZ[0];
    EXPECT_LT(springing, kRoamRotZ - 5.0f);
    view->OnTouchDown(0, 200);
    RenderFrames(3);
    EXPECT_NEAR(Save().fCamRotZ[0], springing, 1e-3); // held where the finger caught it
}

TEST_F(SphereTest, LookAroundAndPinchBackToTheOverviewSide)
{
    Make();
    ToInside();
    float z0 = Save().zAngle[0];
    view->OnTouchDown(10, 10);
    view->OnTouchMove(10, 10, 110, 10); // 100 px right: +20.25 degrees
    view->OnTouchUp(110, 10);
    RenderFrames(1);
    EXPECT_NEAR(Save().zAngle[0], z0 + 20.25f, 1e-3);

    // Pinching in (rate below 1) raises fTz: the eye backs out of the bowl.
    for (int i = 0; i < 100; i++) view->OnTouchPinch(0.5f, 0, 0);
    RenderFrames(1);
    FECurrentStatusData d = Save();
    EXPECT_FLOAT_EQ(d.fCamZ[0], 7.1f);
    EXPECT_FLOAT_EQ(d.fCamRotZ[0], 0.0f);
    EXPECT_FLOAT_EQ(d.fTz[0], 5.1f);
    // At the far end a double click goes back to the roam pose (same side).
    view->OnDoubleClick(kW / 2, 0);
    RenderFrames(1);
    EXPECT_EQ(Save().nRoamState, 1);
    EXPECT_EQ(Save().nRoamInit, 0);
    RenderFrames(45);
    d = Save();
    EXPECT_EQ(d.nRoamInit, 1);
    EXPECT_FLOAT_EQ(d.fCamZ[0], 2.0f);
}

TEST_F(SphereTest, CruiseTurnsEachFrameAndATouchEndsIt)
{
    Make();
    ToOverview();
    float z0 = Save().zAngle[0];
    view->SetFishEyeCruiseState(1, 2.0f);
    EXPECT_EQ(view->GetFishEyeCruiseState(), 1);
    RgbaImage before = Snap();
    RenderFrames(100);
    EXPECT_NEAR(Save().zAngle[0], z0 + 100 * 2.0 * 0.08653846497719105, 1e-3);
    EXPECT_NE(Snap().rgba, before.rgba);
    view->OnTouchMove(0, 0, 0, 0);
    EXPECT_EQ(view->GetFishEyeCruiseState(), 0);
    float stopped = Save().zAngle[0];
    RenderFrames(3);
    EXPECT_FLOAT_EQ(Save().zAngle[0], stopped);

    // A long cruise keeps zAngle within (-360, 360).
    view->SetFishEyeCruiseState(1, 1000.0f);
    for (int i = 0; i < 30; i++) {
        RenderFrames(1);
        float z = Save().zAngle[0];
        EXPECT_GT(z, -360.0f);
        EXPECT_LT(z, 360.0f);
    }
}

TEST_F(SphereTest, InertiaTurnsTheBowlAndEndsCruise)
{
    Make();
    ToOverview();
    view->SetFishEyeCruiseState(1, 1.0f);
    float z0 = Save().zAngle[0];
    float vx = -50.0f, vy = 0.0f;
    double expected = z0;
    while (FisheyeInertiaStep(&vx, &vy)) {
        view->StartAcceleratedVelocity(vx, vy);
        expected -= std::fabs(vx) * 6.075001 / 1000.0;
    }
    EXPECT_EQ(view->GetFishEyeCruiseState(), 0);
    EXPECT_NEAR(Save().zAngle[0], expected, 1e-3);
    EXPECT_LT(Save().zAngle[0], z0 - 2.0f);
}

TEST_F(SphereTest, SaveChangeRestoreRendersTheSavedPicture)
{
    Make();
    ToInside();
    view->OnTouchDown(0, 0);
    view->OnTouchMove(0, 0, 77, 0);
    view->OnTouchUp(77, 0);
    for (int i = 0; i < 10; i++) view->OnTouchPinch(0.5f, 0, 0);
    view->SetDisBackGroundSts(0, 0); // the backdrop moves on its own
    RenderFrames(2);
    FECurrentStatusData saved = Save();
    RgbaImage atSave = Snap();
    fisheyegl::SaveSnapshot("fisheye_sphere_saved", atSave);

    view->OnDoubleClick(10, 10);
    RenderFrames(20);
    view->OnTouchMove(0, 0, 300, 100);
    RenderFrames(2);
    EXPECT_NE(Snap().rgba, atSave.rgba);

    ASSERT_EQ(view->setConfig(ZT5_CFG_DISPLAY_FE_CURRENTSTATUS, &saved), 0);
    RenderFrames(1);
    EXPECT_EQ(Snap().rgba, atSave.rgba);
}

TEST_F(SphereTest, RestoreComesBackAtRestOnItsSide)
{
    Make();
    FECurrentStatusData rec;
    std::memset(&rec, 0, sizeof(rec));
    rec.mFishEyeMode = 1;
    rec.xMove = 9.5f; // not the half sphere's: travels through
    rec.nRoamState = 1;
    rec.nRoamInit = 0; // saved during a journey
    rec.belasticstate = 5;
    rec.mCruiseState = 3;
    rec.mCruiseVelocity = 1.0f;
    rec.fCamZ[0] = 2.0f;
    ASSERT_EQ(view->setConfig(ZT5_CFG_DISPLAY_FE_CURRENTSTATUS, &rec), 0);
    FECurrentStatusData d = Save();
    EXPECT_EQ(d.nRoamInit, 1);
    EXPECT_EQ(d.belasticstate, 1);
    EXPECT_EQ(d.mCruiseState, 1);
    EXPECT_FLOAT_EQ(d.xMove, 9.5f);
    RenderFrames(1);
    d = Save();
    EXPECT_FLOAT_EQ(d.fCamRotZ[0], kRoamRotZ); // inside, at the roam pose
    EXPECT_FLOAT_EQ(d.fCamZ[0], 2.0f);
}

TEST_F(SphereTest, BackgroundAndAnimationSwitches)
{
    Make();
    view->SetDisBackGroundSts(0, 0);
    view->SetInitAnimalSts(0);
    FECurrentStatusData d = Save();
    EXPECT_FLOAT_EQ(d.fCamZ[0], 6.1f); // overview distance without the cloud
    RenderFrames(1);
    EXPECT_EQ(Save().nRoamInit, 0); // nothing to animate: over in one frame
    RenderFrames(1);
    RgbaImage bare = Snap();
    fisheyegl::SaveSnapshot("fisheye_sphere_bare", bare);
    // Without cloud and stars the corners are the clear colour exactly.
    int lit = 0;
    for (int y = 0; y < 40; y++)
        for (int x = 0; x < 40; x++) lit += bare.At(x, y).r + bare.At(x, y).g + bare.At(x, y).b > 0;
    EXPECT_EQ(lit, 0);

    // With them, something shows outside the bowl: the light of the cloud
    // picture's ring and the stars.
    view->SetDisBackGroundSts(1, 1);
    view->SetInitAnimalSts(0);
    RenderFrames(2);
    RgbaImage dressed = Snap();
    fisheyegl::SaveSnapshot("fisheye_sphere_dressed", dressed);
    int lit2 = 0;
    for (int y = 0; y < kH; y++)
        for (int x = 0; x < kW; x++) {
            double dx = x - kW / 2, dy = y - kH / 2;
            if (std::sqrt(dx * dx + dy * dy) < kW * 0.47) continue; // outside the rim only
            synthetic::Rgb c = dressed.At(x, y);
            lit2 += c.r + c.g + c.b > 30;
        }
    EXPECT_GT(lit2, 200);

    // Animation back on: the flight starts again from inside the bowl.
    view->SetInitAnimalSts(1);
    EXPECT_FLOAT_EQ(Save().fCamZ[0], -0.8f);
}

TEST_F(SphereTest, PlatformChangesTheLensLawAtTheOverview)
{
    // At the overview the law is (cos + linear) / 2 on platform 0 and the
    // cosine law alone otherwise: the horizon lands nearer the centre.
    Make(0);
    ToOverview();
    double r0 = HorizonRadius(Snap());
    Make(1);
    ToOverview();
    RgbaImage img1 = Snap();
    fisheyegl::SaveSnapshot("fisheye_sphere_platform1", img1);
    double r1 = HorizonRadius(img1);
    EXPECT_GT(r0, 0);
    EXPECT_LT(r1, r0 - 3.0);
}

TEST_F(SphereTest, TinyWindowDrawsNothing)
{
    Make();
    glClearColor(0.0f, 1.0f, 0.0f, 1.0f);
    glClear(GL_COLOR_BUFFER_BIT);
    RenderFrames(3, 10, 10);
    EXPECT_EQ(Snap().At(5, kH - 5).g, 255);
    EXPECT_FLOAT_EQ(Save().fCamZ[0], -0.8f); // no frame, no camera step
    RenderFrames(1, 11, 11);
    EXPECT_NE(Snap().At(5, kH - 5).g, 255);
    RenderFrames(1, 0, 0); // a zero size keeps the last state and draws
    EXPECT_NEAR(Save().fCamZ[0], -0.8f + 0.24f, 1e-5);
}

