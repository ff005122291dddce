// The fisheye views as a host drives them: the built-in scene (coloured
// compass sectors, white horizon ring, see SyntheticScene.h) pushed through
// the loaded library, gestures by parameter ids, snapshots and saved states
// read back. One fixture runs over the views; a view is a row: how to tell
// its start is over, what its picture of the scene must show, how far its
// picture turns for a change of its saved state, and a script of its own
// gestures.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <memory>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <functional>
#include <random>
#include <thread>

#include "Harness.h"

using namespace harness;

namespace {

const double kPi = 3.14159265358979323846;
using State = FECurrentStatusData;

// The pixel r pixels from the window's centre at screen angle `deg`
// (counter-clockwise from the right).
Rgb Polar(const Image &img, double r, double deg)
{
    return img.At(int(img.width / 2 + r * std::cos(deg * kPi / 180)), int(img.height / 2 - r * std::sin(deg * kPi / 180)));
}

// ------------------------------------------------------------ half sphere

// Screen angle (degrees, counter-clockwise from the right) at which sector 7
// gives way to sector 0 on a circle of radius r around the window's centre.
double SectorZeroAngle(const Image &img, double r)
{
    int prev = -1;
    for (double a = 0; a < 720; a += 0.25) {
        const int s = Sector(Polar(img, r, a));
        if (s < 0) continue;
        if (prev == 7 && s == 0) return std::fmod(a, 360.0);
        prev = s;
    }
    return NAN;
}

// A picture of the scene has been drawn: a sector right of the centre, or
// below that, or left of it (where a ring, the moving dot or a bar may be).
bool SceneDrawn(const Image &img)
{
    if (img.empty()) return false;
    const int w = img.width, h = img.height;
    return Sector(img.At(w / 2 + 20, h / 2)) >= 0 || Sector(img.At(w / 2 + 20, h * 3 / 4)) >= 0 ||
           Sector(img.At(w / 2 - 25, h / 2 - 5)) >= 0;
}

// The overview: the whole lens circle seen from above, upright and not
// mirrored (screen angle a shows azimuth a), the horizon all round, the
// backdrop in the corners.
void ExpectOverview(const Image &img)
{
    const double turn = SectorZeroAngle(img, 90);
    for (double r : {40.0, 90.0, 140.0})
        for (int k = 0; k < 8; k++)
            for (double off : {10.0, 35.0}) EXPECT_EQ(Sector(Polar(img, r, turn + 45.0 * k + off)), k) << "radius " << r;
    for (int a = 0; a < 360; a += 5) {
        bool found = false;
        for (int r = 120; r < img.width / 2 && !found; r++)
            found = IsHorizon(Polar(img, r, a));
        EXPECT_TRUE(found) << "no horizon at " << a << " degrees";
    }
    for (int c = 0; c < 4; c++) {
        const Rgb px = img.At(c & 1 ? img.width - 3 : 2, c & 2 ? img.height - 3 : 2);
        EXPECT_TRUE(Sector(px) < 0 && !IsHorizon(px)) << "corner " << c;
    }
}

// Inside the bowl looking at its wall: the horizon a band across the top,
// one sector large and upright in the middle, its neighbours left and right
// as a viewer inside sees them.
void ExpectInside(const Image &img, int sector)
{
    const int w = img.width, h = img.height;
    EXPECT_EQ(Sector(img.At(w / 2, h * 2 / 5)), sector);
    int white = 0, large = 0;
    for (int x = 0; x < w; x++) white += IsHorizon(img.At(x, h / 8));
    EXPECT_GT(white, w * 9 / 10) << "no horizon band across the top";
    for (int y = 0; y < h; y += 2)
        for (int x = 0; x < w; x += 2) large += Sector(img.At(x, y)) == sector;
    EXPECT_GT(large, (w / 2) * (h / 2) / 5) << "sector " << sector << " covers less than a fifth";
    EXPECT_EQ(Sector(img.At(w / 10, h / 2)), (sector + 1) % 8);
    EXPECT_EQ(Sector(img.At(w * 9 / 10, h / 3)), (sector + 7) % 8);
}

// ---------------------------------------------------------- panorama strip

// The strip at its wide position in 640x360: 90 pixels a world unit, its 12
// units holding 360 degrees of azimuth; its top is the rim, its bottom 0.8 of
// the way to the centre.
const double kStripPxPerRad = 90.0 * 12.0 / (2 * kPi);
int StripRow(double thetaDeg)
{
    const double t = ((1.0 - thetaDeg / 90.0) - 0.00179) / 0.8;
    return int(180 - 1.15 * 90 + t * 2.3 * 90);
}

struct Run {
    int sector, x0, x1;
};
// Runs of one sector along a row, specks of label edges left out.
std::vector<Run> SectorRuns(const Image &img, int y)
{
    std::vector<Run> runs, out;
    for (int x = 0; x < img.width; x++) {
        const int s = Sector(img.At(x, y), 30);
        if (s < 0) continue;
        if (!runs.empty() && runs.back().sector == s && runs.back().x1 >= x - 12)
            runs.back().x1 = x;
        else
            runs.push_back({s, x, x});
    }
    for (const Run &r : runs)
        if (r.x1 - r.x0 >= 6) {
            if (!out.empty() && out.back().sector == r.sector) out.back().x1 = r.x1;
            else out.push_back(r);
        }
    return out;
}

// x of the sector boundary nearest the window's centre, in radians.
double StripTurn(const Image &img)
{
    const std::vector<Run> runs = SectorRuns(img, StripRow(40));
    double best = 1e9;
    for (size_t i = 1; i < runs.size(); i++) {
        const double b = (runs[i - 1].x1 + runs[i].x0) / 2.0;
        if (std::fabs(b - img.width / 2.0) < std::fabs(best - img.width / 2.0)) best = b;
    }
    return best / kStripPxPerRad;
}

// The panorama: one band a sector, azimuth falling from left to right, each
// inner band 45 degrees wide; the horizon one white band; black above and
// below the strip.
void ExpectPanorama(const Image &img)
{
    const std::vector<Run> runs = SectorRuns(img, StripRow(40));
    ASSERT_GE(runs.size(), 4u);
    for (size_t i = 1; i < runs.size(); i++) EXPECT_EQ(runs[i].sector, (runs[i - 1].sector + 7) % 8) << "run " << i;
    for (size_t i = 1; i + 1 < runs.size(); i++)
        EXPECT_NEAR(runs[i].x1 - runs[i].x0 + 1, kStripPxPerRad * kPi / 4, 6.0) << "run " << i;
    EXPECT_GT(CountNear(img, Rect{0, StripRow(80), img.width, StripRow(80) + 1}, synthetic::kHorizonRgb, 30), img.width * 98 / 100);
    const int top = int(180 - 1.15 * 90);
    for (int x = 0; x < img.width; x += 7) {
        EXPECT_TRUE(Near(img.At(x, top - 4), {0, 0, 0}, 0));
        EXPECT_TRUE(Near(img.At(x, img.height - top + 4), {0, 0, 0}, 0));
    }
}

// ------------------------------------------------------------------ views

// A gesture of a view's script and the saved state it must lead to, then
// what the picture must show there.
struct Step {
    const char *what;
    std::function<void(Display &)> act;
    std::function<bool(const State &)> reached;
    std::function<void(const Image &, const State &)> check;
};

struct View {
    const char *name;
    uint32_t mode;
    int width, height;
    synthetic::LensFrame lens;                    // the scene pushed: the compass, or the room from a wall
    std::function<bool(const Image &)> drawn = SceneDrawn; // a picture of the scene is there
    std::function<bool(const State &)> started;   // the start animation is over (default: the mode is on)
    std::function<void(const Image &)> scene;     // the start picture
    std::function<double(const Image &)> turnOf;  // where the picture stands (none: not measured)...
    std::function<double(const State &)> turnIn = [](const State &s) { return double(s.zAngle[0]); }; // ...and in the state
    double sector;                                // one sector in those units
    double pictureSign;                           // the picture turns by this times the state
    double dragStep;                              // a drag of 100 px to the right
    double cruiseSign;                            // the way cruise turns
    double inertiaStep;                           // turn a unit of inertia velocity
    double inertiaStepBack = 0;                   // the same for a negative velocity (0: alike)
    float dragX = 100, dragY = 100;               // where the drag starts
    std::function<void(Display &)> endCruise;     // the touch that ends the cruise (default: one touch)
    std::function<bool(const State &)> cruiseEnded; // and its state (default: mCruiseState 0)
    std::function<bool(const State &)> flingEndedCruise; // the state after a fling (default: cruise off)
    bool steerable = true;                        // gestures move it at all
    Step prepare;                                 // where drag and inertia can turn it (none: at the start)
    std::vector<Step> script;
    State restoreIn = {};                         // a record (of this view) and
    std::function<void(const State &)> restoreOut; // what a save right after it shows
};

void PrintTo(const View &v, std::ostream *os) { *os << v.name; }

bool Eq(float a, float b) { return std::fabs(a - b) < 1e-3f; }

const float kRoamRotZ = -45.5605965f; // the tilt of the eye inside the bowl

View HalfSphereView()
{
    View v;
    v.name = "HalfSphere", v.mode = 1, v.width = 480, v.height = 480;
    v.started = [](const State &s) { return s.nRoamInit == 0 && s.fCamZ[0] > 5; }; // at the overview
    v.scene = ExpectOverview;
    v.turnOf = [](const Image &img) { return SectorZeroAngle(img, 90); };
    v.sector = 45, v.pictureSign = -1, v.dragStep = 20.25, v.cruiseSign = 1, v.inertiaStep = 6.075e-3;
    v.script = {
        {"a double click right of the centre: the journey inside, turning to face that side", [](Display &d) { d.DoubleTap(470, 240); },
         [](const State &s) { return s.nRoamState == 1 && s.nRoamInit == 1 && Eq(s.fCamZ[0], 2.0f) && Eq(s.fCamRotZ[0], kRoamRotZ); },
         [](const Image &img, const State &) { ExpectInside(img, 0); }},
        {"a deep drag down tilts to the limit", [](Display &d) { d.Touch(ZT5_CFG_DISPLAY_UITOUCH_DOWN, 100, 100); d.Drag(100, 100, 100, 340); },
         [](const State &s) { return Eq(s.fCamRotZ[0], -92.2879715f); }, nullptr},
        // The spring takes a degree a draw: the finger lands as soon as it
        // has moved, however slowly this machine draws.
        {"released, it springs back, and a finger landing on the spring holds it",
         [](Display &d) {
             d.Touch(ZT5_CFG_DISPLAY_UITOUCH_UP, 100, 340);
             State s;
             for (int i = 0; i < 5000 && !(d.Save(&s) && s.fCamRotZ[0] > -92.28f + 0.5f); i++)
                 std::this_thread::sleep_for(std::chrono::milliseconds(1));
             d.Touch(ZT5_CFG_DISPLAY_UITOUCH_DOWN, 100, 340);
         },
         [](const State &s) { // the same tilt for ten looks in a row
             static float last;
             static int same;
             same = s.fCamRotZ[0] == last ? same + 1 : 0;
             last = s.fCamRotZ[0];
             return same >= 10;
         },
         [](const Image &, const State &s) {
             EXPECT_GT(s.fCamRotZ[0], -92.28f) << "the spring never started";
             EXPECT_LT(s.fCamRotZ[0], kRoamRotZ - 4) << "the spring went on under the finger";
         }},
        {"released again, it springs to the eye's tilt", [](Display &d) { d.Touch(ZT5_CFG_DISPLAY_UITOUCH_UP, 100, 340); },
         [](const State &s) { return Eq(s.fCamRotZ[0], kRoamRotZ) && s.fTz[0] == 0; }, nullptr},
        {"pinching out backs the eye out of the bowl", [](Display &d) { for (int i = 0; i < 100; i++) d.Pinch(0.5f); },
         [](const State &s) { return s.fCamRotZ[0] == 0 && Eq(s.fCamZ[0], 6.1f) && Eq(s.fTz[0], 4.1f); }, nullptr},
        {"a double click there goes back inside", [](Display &d) { d.DoubleTap(240, 0); },
         [](const State &s) { return s.nRoamState == 1 && s.nRoamInit == 1 && Eq(s.fCamZ[0], 2.0f); }, nullptr},
        {"a double click sets off the journey out", [](Display &d) { d.DoubleTap(240, 10); },
         // (on a loaded machine the first save may come after the journey ended)
         [](const State &s) { return s.nRoamState == 0 && s.fCamZ[0] > 2.5f; }, nullptr},
        {"and another on the way turns back at once", [](Display &d) { d.DoubleTap(240, 10); },
         [](const State &s) { return s.nRoamState == 1 && s.nRoamInit == 1 && Eq(s.fCamZ[0], 2.0f) && Eq(s.fCamRotZ[0], kRoamRotZ); }, nullptr},
    };
    State &r = v.restoreIn;
    r.mFishEyeMode = 1, r.xMove = 9.5f, r.nRoamState = 1, r.nRoamInit = 0, r.belasticstate = 5, r.mCruiseState = 3;
    r.mCruiseVelocity = 1, r.fCamZ[0] = 2;
    v.restoreOut = [](const State &s) { // saved during a journey: back at rest inside
        EXPECT_EQ(s.nRoamInit, 1);
        EXPECT_EQ(s.belasticstate, 1);
        EXPECT_EQ(s.mCruiseState, 1);
        EXPECT_EQ(s.xMove, 9.5f) << "a field the view doesn't use travels through";
    };
    return v;
}

View StripView()
{
    View v;
    v.name = "PanoramaStrip", v.mode = 2, v.width = 640, v.height = 360;
    v.scene = [](const Image &img) {
        ExpectPanorama(img);
        EXPECT_EQ(Sector(img.At(320, StripRow(40)), 30), 4) << "the start scroll puts sector 4 in the middle";
    };
    v.turnOf = StripTurn;
    v.turnIn = [](const State &s) { return double(s.xMove); };
    v.sector = kPi / 4, v.pictureSign = 1, v.dragStep = 0.225, v.cruiseSign = -1, v.inertiaStep = 0.00012375;
    auto pinches = [](int n, float rate) { return [=](Display &d) { for (int i = 0; i < n; i++) d.Pinch(rate); }; };
    v.script = {
        {"a double tap moves close", [](Display &d) { d.DoubleTap(10, 10); },
         [](const State &s) { return Eq(s.fTz[0], -0.85f) && s.maxState == 1 && s.maxMinInit == 0; }, // settled
         [](const Image &img, const State &) { // the strip fills the window
             int lit = 0;
             for (int x = 0; x < img.width; x++) lit += img.At(x, 1).r + img.At(x, 1).g + img.At(x, 1).b > 60;
             EXPECT_GT(lit, img.width * 9 / 10);
         }},
        {"and back", [](Display &d) { d.DoubleTap(10, 10); }, [](const State &s) { return s.fTz[0] == 0 && s.maxState == 0 && s.maxMinInit == 1; }, nullptr},
        {"pinching in stops at close", pinches(40, 1.5f), [](const State &s) { return Eq(s.fTz[0], -0.85f); }, nullptr},
        {"pinching out stops at wide", pinches(40, 0.5f), [](const State &s) { return s.fTz[0] == 0; }, nullptr},
        {"six steps in settle on close", pinches(6, 2.0f), [](const State &s) { return s.maxState == 1; }, nullptr},
        {"so a double tap goes wide", [](Display &d) { d.DoubleTap(0, 0); }, [](const State &s) { return s.fTz[0] == 0 && s.maxState == 0 && s.maxMinInit == 1; }, nullptr},
        {"five steps in stay on wide", pinches(5, 2.0f), [](const State &s) { return Eq(s.fTz[0], -0.16875f); },
         [](const Image &, const State &s) { EXPECT_EQ(s.maxState, 0); }},
        {"a rate of 1 zooms out", pinches(1, 1.0f), [](const State &s) { return Eq(s.fTz[0], -0.135f); }, nullptr},
        {"a drag's vertical part doesn't count", [](Display &d) { d.Drag(100, 100, 150, 180); d.Drag(150, 180, 200, 40); },
         [](const State &s) { return Eq(s.fTz[0], -0.135f) && Eq(s.xMove, 2.035f + 0.225f); }, nullptr},
    };
    State &r = v.restoreIn;
    r.fCamZ[2] = 12.5f, r.nRoamState = 7, r.bIsAutoTouring[3] = 1, r.mFishEyeMode = 2, r.xMove = 1, r.fTz[0] = -0.5f;
    r.mfZoom = -1, r.maxState = 1, r.maxMinInit = 1, r.mCruiseState = 2, r.mCruiseVelocity = 0.25f;
    v.restoreOut = [](const State &s) { // saved during a zoom: back settled on close
        EXPECT_EQ(s.maxMinInit, 0);
        EXPECT_EQ(s.mCruiseState, 1);
        EXPECT_EQ(s.mCruiseVelocity, 0.25f);
        EXPECT_EQ(s.fCamZ[2], 12.5f);
        EXPECT_EQ(s.nRoamState, 7);
        EXPECT_EQ(s.bIsAutoTouring[3], 1);
        EXPECT_EQ(s.fTz[0], -0.5f);
    };
    return v;
}

// ------------------------------------------------------------- four panes

double Folded(double diff, double expect, double sector);

const uint32_t kDown = ZT5_CFG_DISPLAY_UITOUCH_DOWN;

// Pane i of the four in a window (y down): left half 0 (bottom) and 1 (top),
// right half 2 (top) and 3 (bottom); at zAngle 0 they face azimuths a
// quarter turn apart.
Rect PaneRect(int w, int h, int i)
{
    const bool left = i < 2, top = i == 1 || i == 2;
    return {left ? 0 : w / 2, top ? 0 : h / 2, left ? w / 2 : w, top ? h / 2 : h};
}
const int kPaneFacing[4] = {270, 0, 90, 180};

// A perspective pane facing azimuth a (a multiple of 45) from inside the
// bowl: the sector above a left of its middle, the one below right of it.
void ExpectFacing(const Image &img, Rect r, int azimuth, double row = 0.7)
{
    const int y = r.top + int(r.height() * row), dx = r.height() * 15 / 100, x = r.left + r.width() / 2;
    EXPECT_EQ(Sector(img.At(x - dx, y)), (azimuth / 45) % 8) << "left of the middle, facing " << azimuth;
    EXPECT_EQ(Sector(img.At(x + dx, y)), (azimuth / 45 + 7) % 8) << "right of the middle, facing " << azimuth;
}

// A turn in degrees as a signed one.
double Signed(float a) { return a > 180 ? a - 360.0 : a; }

View FourPanesView()
{
    View v;
    v.name = "FourPanes", v.mode = 3, v.width = 640, v.height = 480;
    v.scene = [](const Image &img) {
        for (int i = 0; i < 4; i++) ExpectFacing(img, PaneRect(img.width, img.height, i), kPaneFacing[i]);
    };
    v.turnIn = [](const State &s) { return Signed(s.zAngle[std::min(3, std::max(0, s.mCurViewIndex))]); };
    v.sector = 45, v.pictureSign = 1, v.dragStep = 22.5, v.cruiseSign = 1, v.inertiaStep = 6.075e-3, v.inertiaStepBack = 4.86e-3;
    v.endCruise = [](Display &d) { // a touch stops its own pane only
        for (int i = 0; i < 4; i++) {
            const Rect r = PaneRect(640, 480, i);
            d.Touch(kDown, (r.left + r.right) / 2, (r.top + r.bottom) / 2);
        }
    };
    auto noneTours = [](const State &s) { return !s.bIsAutoTouring[0] && !s.bIsAutoTouring[1] && !s.bIsAutoTouring[2] && !s.bIsAutoTouring[3]; };
    // Every pane stopped, the host's switch stays on.
    v.cruiseEnded = [=](const State &s) { return noneTours(s) && s.mCruiseState == 1; };
    v.flingEndedCruise = [](const State &s) { return s.mCruiseState == 1 && !s.bIsAutoTouring[0] && s.bIsAutoTouring[1]; };
    auto turns = [](float a0, float a1, float a2, float a3) {
        return [=](const State &s) { return Eq(s.zAngle[0], a0) && Eq(s.zAngle[1], a1) && Eq(s.zAngle[2], a2) && Eq(s.zAngle[3], a3); };
    };
    for (int i = 0; i < 4; i++) {
        const Rect r = PaneRect(640, 480, i);
        v.script.push_back({"a double click on a pane brings it to the window", [=](Display &d) { d.DoubleTap((r.left + r.right) / 2, (r.top + r.bottom) / 2); },
                            [=](const State &s) { return s.bIsZoom == 1 && s.viewBigIndex == i; },
                            [=](const Image &img, const State &) { ExpectFacing(img, Rect{0, 0, img.width, img.height}, kPaneFacing[i]); }});
        v.script.push_back({"a second one returns to the grid", [](Display &d) { d.DoubleTap(5, 5); },
                            [=](const State &s) { return s.bIsZoom == 0 && s.viewBigIndex == i; }, nullptr});
    }
    v.script.push_back({"zoomed, a drag anywhere turns the zoomed pane, 0.1125 a pixel", [](Display &d) { d.DoubleTap(480, 120); d.Drag(10, 400, 110, 400); },
                        turns(0, 0, 11.25f, 0), nullptr});
    v.script.push_back({"in the grid a drag turns only the pane under it, 0.225 a pixel", [](Display &d) { d.DoubleTap(1, 1); d.Drag(100, 100, 140, 100); },
                        turns(0, 9, 11.25f, 0), nullptr});
    v.script.push_back({"crossing into the next pane, the drag goes on there", [](Display &d) { d.Drag(300, 100, 340, 100); },
                        turns(0, 9, 20.25f, 0), [](const Image &img, const State &) {
                            ExpectFacing(img, PaneRect(img.width, img.height, 0), 270);
                            ExpectFacing(img, PaneRect(img.width, img.height, 3), 180);
                        }});
    v.script.push_back({"a drag up tilts the pane to the axis and no further", [](Display &d) { for (int i = 0; i < 2; i++) d.Drag(100, 230, 100, 10); },
                        [](const State &s) { return s.fTz[1] == 5.50705986f && std::fabs(s.fCamRotZ[1]) < 1e-4f && s.fTz[0] == 0 && s.fTz[2] == 0; }, nullptr});
    v.script.push_back({"a drag down past the side returns to it; a pinch does nothing", [](Display &d) { for (int i = 0; i < 3; i++) d.Drag(100, 10, 100, 230); d.Pinch(2); d.Pinch(0.5f); },
                        [](const State &s) { return s.fTz[1] == 0 && Eq(s.fCamRotZ[1], -55.0705986f) && s.fTz[0] == 0 && s.fTz[2] == 0; }, nullptr});
    v.script.push_back({"a mode switch with the cruise on re-arms every pane, also one a touch has stopped",
                        [](Display &d) {
                            d.SetU32(ZT5_CFG_DISPLAY_UITOUCH_AUTOCURISE, 1);
                            d.Touch(kDown, 100, 100);
                            d.SetU32(ZT5_CFG_DISPLAY_FISHEYE_MODE, 1);
                            d.SetU32(ZT5_CFG_DISPLAY_FISHEYE_MODE, 3);
                        },
                        [](const State &s) {
                            return s.mFishEyeMode == 3 && s.bIsAutoTouring[0] && s.bIsAutoTouring[1] && s.bIsAutoTouring[2] && s.bIsAutoTouring[3];
                        }, nullptr});
    v.script.push_back({"the host's switch stops them all", [](Display &d) { d.SetU32(ZT5_CFG_DISPLAY_UITOUCH_AUTOCURISE, 0); },
                        noneTours, nullptr});
    State &r = v.restoreIn;
    r.mFishEyeMode = 3, r.viewBigIndex = 9, r.mCurViewIndex = -4, r.bIsZoom = 7, r.bIsAutoTouring[0] = 5;
    r.bIsAutoTouring[3] = 1, r.zAngle[2] = NAN, r.mCruiseState = 2, r.mCruiseVelocity = 1, r.xMove = 3.5f;
    v.restoreOut = [](const State &s) { // indices clamped to the four panes, no NaN
        EXPECT_EQ(s.viewBigIndex, 3);
        EXPECT_EQ(s.mCurViewIndex, 0);
        EXPECT_EQ(s.bIsZoom, 1);
        EXPECT_EQ(s.bIsAutoTouring[0], 1);
        EXPECT_EQ(s.bIsAutoTouring[1], 0);
        EXPECT_TRUE(std::isfinite(s.zAngle[2]));
        EXPECT_EQ(s.mCruiseState, 1);
        EXPECT_EQ(s.xMove, 3.5f);
    };
    return v;
}

// ------------------------------------------------------------ map and pane

// The map square in a window (y down): its centre, its side and the lens
// circle's radius on it (the bowl's rim of radius 6 seen from 6.2).
struct MapLayout {
    double cx, cy, side, lens;
};
MapLayout MapOf(int w, int h)
{
    int side, left, top;
    if (w / 2 > h) {
        const int m = h / 75;
        side = h - 2 * m, left = (w - 2 * side) / 2, top = m;
    } else {
        const int m = w / 150;
        side = (w - 2 * m) / 2, left = m, top = h - (h - side) / 2 - side;
    }
    return {left + side / 2.0, top + side / 2.0, double(side), side / 2.0 * 6.0 / 6.2};
}
// The map point at azimuth a (degrees) and a share f of the lens radius.
std::array<float, 2> MapPoint(int w, int h, double a, double f)
{
    const MapLayout m = MapOf(w, h);
    return {float(m.cx + f * m.lens * std::cos(a * kPi / 180)), float(m.cy - f * m.lens * std::sin(a * kPi / 180))};
}
// The map lights what the pane sees by 0.3 in each channel: the scene's
// colours have no channel as low as 70 there, and none above 60 elsewhere.
bool IsLit(Rgb c)
{
    const int lo = std::min({c.r, c.g, c.b});
    return lo >= 70 && lo < 240;
}
// Direction (degrees, counter-clockwise from the right) of the lit area's
// centre seen from the map's centre.
double LitAzimuth(const Image &img)
{
    const MapLayout m = MapOf(img.width, img.height);
    double sx = 0, sy = 0;
    for (int y = int(m.cy - m.lens); y < int(m.cy + m.lens); y++)
        for (int x = int(m.cx - m.lens); x < int(m.cx + m.lens); x++)
            if (std::hypot(x - m.cx, y - m.cy) < m.lens * 0.97 && IsLit(img.At(x, y))) sx += x - m.cx, sy += m.cy - y;
    return std::fmod(std::atan2(sy, sx) * 180 / kPi + 360, 360);
}
Rect PaneOf(int w, int h)
{
    const MapLayout m = MapOf(w, h);
    const int left = int(m.cx + m.side / 2), top = int(m.cy - m.side / 2);
    return {left, top, left + int(m.side), top + int(m.side)};
}

// The whole lens circle on the map, upright (screen angle a shows azimuth
// a), lit where the pane looks; the pane facing azimuth `facing`.
void ExpectMap(const Image &img, int facing)
{
    const MapLayout m = MapOf(img.width, img.height);
    auto at = [&](double a, double f) { return img.At(int(m.cx + f * m.lens * std::cos(a * kPi / 180)), int(m.cy - f * m.lens * std::sin(a * kPi / 180))); };
    int plain = 0;
    for (int k = 0; k < 8; k++) {
        // Beside the sector's digit, which stands at its middle.
        const Rgb c = at(45 * k + 35, 0.45);
        if (IsLit(c)) continue;
        EXPECT_EQ(Sector(c), k) << "azimuth " << 45 * k + 35;
        plain++;
    }
    EXPECT_GE(plain, 5) << "most of the map is lit";
    for (int a = 0; a < 360; a += 10) {
        EXPECT_TRUE(IsHorizon(at(a, 0.89))) << "no horizon at " << a;
        EXPECT_TRUE(Near(at(a, 1.02), {0, 0, 0}, 10)) << "not black beyond the lens at " << a;
    }
    EXPECT_NEAR(Folded(LitAzimuth(img) - facing, 0, 360), 0, 3) << "the lit area isn't where the pane looks";
    ExpectFacing(img, PaneOf(img.width, img.height), facing, 0.85);
}

View MapView(int w, int h)
{
    View v;
    v.name = w > h ? "MapAndPaneWide" : "MapAndPaneTall", v.mode = 4, v.width = w, v.height = h;
    v.scene = [](const Image &img) { ExpectMap(img, 90); };
    v.turnOf = LitAzimuth;
    v.sector = 45, v.pictureSign = 1, v.dragStep = 11.25, v.cruiseSign = 1, v.inertiaStep = 5.0625e-3;
    v.dragX = float(PaneOf(w, h).left + 10), v.dragY = float(h / 2);
    v.endCruise = [](Display &d) { d.SetU32(ZT5_CFG_DISPLAY_UITOUCH_AUTOCURISE, 0); }; // touches don't end it
    v.flingEndedCruise = [](const State &s) { return s.mCruiseState == 1; };
    const Rect pane = PaneOf(w, h);
    v.script.push_back({"cruise goes on through touches on the map and the pane, drags and a double click",
                        [=](Display &d) {
                            d.SetU32(ZT5_CFG_DISPLAY_UITOUCH_AUTOCURISE, 1);
                            const auto p = MapPoint(w, h, 200, 0.5);
                            d.Touch(kDown, p[0], p[1]);
                            d.Drag(p[0], p[1], p[0] + 5, p[1]);
                            d.Touch(kDown, pane.left + 20, h / 2);
                            d.Drag(pane.left + 20, h / 2, pane.left + 40, h / 2);
                            d.DoubleTap(pane.left + 20, h / 2);
                            d.Touch(ZT5_CFG_DISPLAY_UITOUCH_UP, pane.left + 20, h / 2);
                        },
                        [](const State &s) { return s.mCruiseState == 1; }, nullptr});
    v.script.push_back({"cruise off", [](Display &d) { d.SetU32(ZT5_CFG_DISPLAY_UITOUCH_AUTOCURISE, 0); },
                        [](const State &s) { return s.mCruiseState == 0; }, nullptr});
    for (int k : {0, 3, 6}) {
        const double a = 45 * k + 22.5;
        v.script.push_back({"a touch on the map turns the pane to the sector touched",
                            [=](Display &d) { const auto p = MapPoint(w, h, a, 0.6); d.Touch(kDown, p[0], p[1]); },
                            [](const State &) { return true; },
                            [=](const Image &img, const State &) {
                                EXPECT_EQ(Sector(img.At((pane.left + pane.right) / 2, pane.top + pane.height() * 6 / 10)), k);
                                EXPECT_NEAR(Folded(LitAzimuth(img) - a, 0, 360), 0, 3);
                            }});
    }
    v.script.push_back({"a drag after it aims from the map as well",
                        [=](Display &d) { const auto p = MapPoint(w, h, 22.5, 0.6), q = MapPoint(w, h, 112.5, 0.3); d.Drag(p[0], p[1], q[0], q[1]); },
                        [](const State &) { return true; },
                        [=](const Image &img, const State &) { EXPECT_NEAR(Folded(LitAzimuth(img) - 112.5, 0, 360), 0, 3); }});
    v.script.push_back({"a touch at the map's very centre keeps the aim",
                        [=](Display &d) { const MapLayout m = MapOf(w, h); d.Touch(kDown, float(m.cx), float(m.cy)); },
                        [](const State &s) { return std::isfinite(s.zAngle[0]) && std::isfinite(s.fCamAngleZ[0]); },
                        [=](const Image &img, const State &) { EXPECT_NEAR(Folded(LitAzimuth(img) - 112.5, 0, 360), 0, 3); }});
    const float px = float(pane.left + 30);
    v.script.push_back({"a drag down in the pane stops at the rest pose", [=](Display &d) { d.Touch(kDown, px, 20); d.Drag(px, 20, px, 320); },
                        [](const State &s) { return Eq(s.fCamRotZ[0], kRoamRotZ) && s.fTz[0] == 0; }, nullptr});
    v.script.push_back({"a finger put down there tilts deeper, to the limit", [=](Display &d) {
                            d.Touch(ZT5_CFG_DISPLAY_UITOUCH_UP, px, 320);
                            d.Touch(kDown, px, 20);
                            d.Drag(px, 20, px, 320);
                        },
                        [](const State &s) { return Eq(s.fCamRotZ[0], -65.9005966f); }, nullptr});
    v.script.push_back({"released, it springs back to the rest pose", [=](Display &d) { d.Touch(ZT5_CFG_DISPLAY_UITOUCH_UP, px, 320); },
                        [](const State &s) { return Eq(s.fCamRotZ[0], kRoamRotZ) && s.fTz[0] == 0; }, nullptr});
    State &r = v.restoreIn;
    r.mFishEyeMode = 4, r.zAngle[0] = 7200.5f, r.fTz[0] = NAN, r.fCamZ[1] = 0, r.mCruiseState = 9, r.nRoamState = 4;
    v.restoreOut = [](const State &s) {
        EXPECT_EQ(s.mCruiseState, 1);
        EXPECT_EQ(s.fTz[0], 0) << "NaN taken";
        EXPECT_EQ(s.fCamZ[1], 6.2f) << "the map's eye moved";
        EXPECT_EQ(s.nRoamState, 4);
    };
    return v;
}

// ------------------------------------------------------ cylinder and dome

// Seen from outside from the side of azimuth 90: sectors 2 and 1 low on the
// near side (mirrored on the dome), and through the open top the inside of
// the far side, sectors 6 and 5 (mirrored on the cylinder). Positions in
// window heights from the middle. Without the depth test the far side
// would cover parts of the near side.
void ExpectShape(const Image &img, bool dome)
{
    const int w = img.width, h = img.height, dx = h * 14 / 100;
    const int nearY = h * 80 / 100, farY = h * (dome ? 40 : 33) / 100;
    EXPECT_EQ(Sector(img.At(w / 2 - dx, nearY)), dome ? 1 : 2) << "near side";
    EXPECT_EQ(Sector(img.At(w / 2 + dx, nearY)), dome ? 2 : 1) << "near side";
    EXPECT_EQ(Sector(img.At(w / 2 - dx, farY)), dome ? 6 : 5) << "far side, inside";
    EXPECT_EQ(Sector(img.At(w / 2 + dx, farY)), dome ? 5 : 6) << "far side, inside";
    EXPECT_TRUE(Near(img.At(5, 5), {0, 0, 0}, 10));
    // Below the near rim only the near side: none of the far side's sectors.
    int far = 0;
    for (int y = h * (dome ? 80 : 55) / 100; y < h * 95 / 100; y += 3)
        for (int x = 0; x < w; x += 2) far += Sector(img.At(x, y)) >= 4;
    EXPECT_EQ(far, 0) << "the far side shows through the near side";
}

View ShapeView(bool dome)
{
    View v;
    v.name = dome ? "Dome" : "Cylinder", v.mode = dome ? 6 : 5, v.width = 640, v.height = 360;
    const int mode = v.mode;
    v.scene = [=](const Image &img) { ExpectShape(img, dome); };
    v.sector = 45, v.pictureSign = 1, v.dragStep = 11.25, v.cruiseSign = -1, v.inertiaStep = 6.075e-3, v.inertiaStepBack = 7.59375e-3;
    uint32_t bits[2] = {dome ? 0x42607AE0u : 0x42687DF4u, dome ? 0xC08A3D80u : 0xBF858100u};
    float limit[2];
    std::memcpy(limit, bits, sizeof limit);
    const float hi = limit[0], lo = limit[1];
    v.script = {
        {"a drag up tilts to the upper limit exactly", [](Display &d) { for (int i = 0; i < 3; i++) d.Drag(100, 300, 100, 50); },
         [=](const State &s) { return s.fTilt == hi; }, [](const Image &, const State &) {}},
        {"and back down at once", [](Display &d) { d.Drag(100, 100, 100, 110); },
         [=](const State &s) { return Eq(s.fTilt, hi - 1.125f); }, nullptr},
        {"a drag down tilts to the lower limit exactly", [](Display &d) { for (int i = 0; i < 3; i++) d.Drag(100, 50, 100, 300); },
         [=](const State &s) { return s.fTilt == lo; }, [](const Image &, const State &) {}},
        {"pinching moves the eye by 1 at most", [](Display &d) { for (int i = 0; i < 20; i++) d.Pinch(0.5f); },
         [](const State &s) { return s.fTz[0] == 1; }, nullptr},
    };
    State &r = v.restoreIn;
    r.mFishEyeMode = mode, r.fTilt = NAN, r.zAngle[0] = INFINITY, r.mCruiseState = 2, r.bIsZoom = 3;
    v.restoreOut = [](const State &s) { // the restored cruise may have stepped before the save
        EXPECT_EQ(s.fTilt, 0);
        EXPECT_NEAR(s.zAngle[0], 0, 3);
        EXPECT_EQ(s.mCruiseState, 1);
        EXPECT_EQ(s.bIsZoom, 3);
    };
    return v;
}

// ------------------------------------------------------------ wall views

std::string Describe(const State &s);

// The room seen from a wall (SyntheticScene.h): which surface a colour shows,
// -1 for none (black, labels, the lit overlay).
int Surface(Rgb c)
{
    int best = -1, bestDist = 36;
    for (int k = 0; k < synthetic::kWallSurfaces; k++) {
        const int dist = ColourDistance(c, synthetic::kWallRgb[k]);
        if (dist < bestDist) bestDist = dist, best = k;
    }
    return best;
}
long CountSurface(const Image &img, Rect r, int surface)
{
    long n = 0;
    for (int y = r.top; y < r.bottom; y++)
        for (int x = r.left; x < r.right; x++) n += Surface(img.At(x, y)) == surface;
    return n;
}
bool IsBlack(Rgb c) { return Near(c, {0, 0, 0}, 4); }
// Columns of the centre wall along row y.
int CentreWallWidth(const Image &img, int y)
{
    int n = 0;
    for (int x = 0; x < img.width; x++) n += Surface(img.At(x, y)) == synthetic::kCentreWall;
    return n;
}
bool Settled(const State &s, int32_t maxState) { return s.maxState == maxState && s.maxMinInit == 1 - maxState; }

// x of the first centre-wall column of row y, from the left.
int CentreWallLeft(const Image &img, int y)
{
    for (int x = 0; x < img.width; x++)
        if (Surface(img.At(x, y)) == synthetic::kCentreWall) return x;
    return -1;
}

// Mode 9 wide, 640x360: the whole dome, its rim 180 pixels round the centre,
// the caps above and below black; the centre wall in the middle, about 90
// pixels wide, the side walls, floor and ceiling round it, upright and not
// mirrored.
void ExpectWallDome(const Image &img, double scale)
{
    using namespace synthetic;
    EXPECT_EQ(Surface(img.At(320, 180)), kCentreWall);
    EXPECT_EQ(Surface(img.At(320 - 150, 180)), kLeftWall);
    EXPECT_EQ(Surface(img.At(320 + 150, 180)), kRightWall);
    EXPECT_EQ(Surface(img.At(320, 80)), kCeiling);
    // (Magnified 1.5 times, the floor's label ends on row 282: the floor is
    // read clear of its anti-aliased edge.)
    EXPECT_EQ(Surface(img.At(320, scale > 1 ? 290 : 280)), kFloor);
    if (scale > 1) return;
    for (int y : {12, 348}) EXPECT_TRUE(IsBlack(img.At(320, y))) << "no cap at row " << y;
    for (int x : {320 - 192, 320 + 192}) EXPECT_TRUE(IsBlack(img.At(x, 180))) << "the dome reaches column " << x;
    EXPECT_NEAR(CentreWallWidth(img, 150), 90 * scale, 8 * scale);
}

View WallOneRow()
{
    View v;
    v.name = "WallOneView", v.mode = 9, v.width = 640, v.height = 360, v.lens = synthetic::WallLens(false);
    v.drawn = [](const Image &img) { return !img.empty() && Surface(img.At(320, 280)) == synthetic::kFloor; };
    v.scene = [](const Image &img) { ExpectWallDome(img, 1); };
    // Wide, pan and tilt are held at 0; close, a drag turns by 0.075 degrees a pixel.
    v.sector = 32, v.pictureSign = 0, v.dragStep = 0, v.cruiseSign = -1, v.inertiaStep = -0.405e-3;
    auto closeUp = [](const State &s) { return Settled(s, 1) && s.fCamZ[0] < 3.06f; };
    v.prepare = {"a double tap moves the eye in", [](Display &d) { d.DoubleTap(5, 5); }, closeUp, nullptr};
    v.script = {
        {"a double tap moves the eye in: the centre wall twice as large, the room all round", [](Display &d) { d.DoubleTap(5, 5); }, closeUp,
         [](const Image &img, const State &) {
             EXPECT_NEAR(CentreWallWidth(img, 150), 170, 15);
             EXPECT_NEAR(CentreWallLeft(img, 150), 235, 8);
             EXPECT_EQ(Surface(img.At(5, 180)), synthetic::kLeftWall);
             EXPECT_EQ(Surface(img.At(634, 180)), synthetic::kRightWall);
             EXPECT_EQ(Surface(img.At(320, 5)), synthetic::kCeiling);
         }},
        {"a drag to the right turns the room to the right", [](Display &d) { d.Touch(ZT5_CFG_DISPLAY_UITOUCH_DOWN, 320, 180); d.Drag(320, 180, 520, 180); },
         [](const State &s) { return Eq(s.zAngle[0], -15); },
         [](const Image &img, const State &) { EXPECT_GT(CentreWallLeft(img, 150), 235 + 20); }},
        {"long drags stop at the limits", [](Display &d) { for (int i = 0; i < 4; i++) d.Drag(10, 10, 630, 350); },
         [](const State &s) { return s.zAngle[0] >= -32 && s.zAngle[0] < -31 && s.fCamRotX[0] >= -26 && s.fCamRotX[0] < -25; }, nullptr},
        {"a drag outside the window moves nothing", [](Display &d) { d.Drag(300, 180, 900, 180); d.Drag(300, 180, 300, -5); },
         [](const State &s) { return s.zAngle[0] < -31 && s.fCamRotX[0] < -25; }, nullptr},
        {"a double tap goes back to wide, pan and tilt to 0", [](Display &d) { d.Touch(ZT5_CFG_DISPLAY_UITOUCH_UP, 320, 180); d.DoubleTap(5, 5); },
         [](const State &s) { return Settled(s, 0) && s.fCamZ[0] == 6 && s.zAngle[0] == 0 && s.fCamRotX[0] == 0; },
         [](const Image &img, const State &) { ExpectWallDome(img, 1); }},
        {"pinching in stops at the closest", [](Display &d) { for (int i = 0; i < 40; i++) d.Pinch(2.0f); },
         [](const State &s) { return Settled(s, 1) && s.fCamZ[0] == 3 && s.fTz[0] == 3; }, nullptr},
        {"the host's picture scale is held to its maximum", [](Display &d) {
             d.SetU32(ZT5_CFG_DISPLAY_MAX_SCALE, 150);
             d.SetU32(ZT5_CFG_DISPLAY_SCALE_RATIO, 400);
             d.DoubleTap(5, 5);
         },
         [](const State &s) { return Settled(s, 0) && s.fCamZ[0] == 6; },
         [](const Image &img, const State &) { ExpectWallDome(img, 1.5); EXPECT_NEAR(CentreWallWidth(img, 150), 135, 12); }},
    };
    State &r = v.restoreIn;
    r.mFishEyeMode = 9, r.fCamZ[0] = NAN, r.fTz[0] = 4, r.zAngle[0] = 5, r.maxState = 7, r.maxMinInit = -2;
    r.nCruiseDir = 0, r.xMove = 9.5f;
    v.restoreOut = [](const State &s) { // words brought into range; a NaN eye distance is the widest
        EXPECT_EQ(s.maxState, 1);
        EXPECT_EQ(s.maxMinInit, 1);
        EXPECT_EQ(s.nCruiseDir, -1);
        // The NaN became the widest, 6; the restored move may have taken
        // steps towards the closest, 3, before the save.
        EXPECT_TRUE(s.fCamZ[0] >= 3.0f && s.fCamZ[0] <= 6.0f) << s.fCamZ[0];
        EXPECT_TRUE(s.fTz[0] >= 3.0f && s.fTz[0] <= 6.0f) << s.fTz[0];
        EXPECT_EQ(s.xMove, 9.5f) << "a field the view doesn't use travels through";
    };
    return v;
}

// Mode 10 wide, 640x360: the picture itself, undistorted: each point of
// the picture shows where a scale and a shift put it (the disc of radius 6
// at 6.4 before the eye: 28.125 pixels a unit, the circle 12 units wide, the
// picture's height 12 / (16/9) units), inside the lens's dark rim.
void ExpectFlatPicture(const Image &img)
{
    const synthetic::LensFrame lens = synthetic::WallLens(true);
    const double unit = 180 / 6.4, aspect = double(lens.width) / lens.height;
    auto surfaceAt = [&](double px, double py) { // the picture's pixel
        const double dx = px - lens.cx, dy = py - lens.cy, r = std::hypot(dx, dy);
        if (r >= lens.radius) return -1;
        return int(synthetic::WallSurfaceAt(std::asin(r / lens.radius) * 180 / kPi, std::atan2(-dy, dx) * 180 / kPi));
    };
    int checked = 0, same = 0;
    for (double u = 0.04; u < 0.97; u += 0.03)
        for (double t = 0.04; t < 0.97; t += 0.03) {
            const double ds = u - 0.5, dt = t - 0.5;
            if (ds * ds / 0.079102 + dt * dt / 0.25 > 1.6 * 1.6) continue; // near or past the rim
            const int s = surfaceAt(u * lens.width, t * lens.height);
            bool inside = s >= 0;
            for (int k = 0; k < 4 && inside; k++) inside = surfaceAt(u * lens.width + (k & 1 ? 8 : -8), t * lens.height + (k & 2 ? 8 : -8)) == s;
            if (!inside) continue; // an edge between surfaces
            checked++;
            same += Surface(img.At(int(320 + ds * 12 * unit), int(180 + dt * 12 / aspect * unit))) == s;
        }
    EXPECT_GT(checked, 300);
    EXPECT_GT(same, checked * 95 / 100) << "of " << checked << " points of the picture";
    EXPECT_TRUE(IsBlack(img.At(320, 60)) && IsBlack(img.At(320, 300))) << "something above or below the picture";
}

View WallOne180Row()
{
    View v;
    v.name = "WallOneView180", v.mode = 10, v.width = 640, v.height = 360, v.lens = synthetic::WallLens(true);
    v.drawn = [](const Image &img) { return !img.empty() && Surface(img.At(320, 140)) == synthetic::kCentreWall; };
    v.scene = ExpectFlatPicture;
    v.sector = 60, v.pictureSign = 0, v.dragStep = 0, v.cruiseSign = -1, v.inertiaStep = -0.405e-3;
    auto closeUp = [](const State &s) { return Settled(s, 1) && s.fCamZ[0] < -0.74f; };
    v.prepare = {"a double tap moves the eye in", [](Display &d) { d.DoubleTap(5, 5); }, closeUp, nullptr};
    v.script = {
        {"a double tap takes the eye through the rim: the centre wall dewarped", [](Display &d) { d.DoubleTap(5, 5); }, closeUp,
         [](const Image &img, const State &) {
             // Its left edge, a curve in the picture, comes out a straight upright line.
             const int x0 = CentreWallLeft(img, 180);
             EXPECT_GT(x0, 10);
             for (int y = 120; y <= 240; y += 20) EXPECT_NEAR(CentreWallLeft(img, y), x0, 3) << "row " << y;
             EXPECT_EQ(Surface(img.At(x0 - 20, 180)), synthetic::kLeftWall);
             EXPECT_EQ(Surface(img.At(320, 20)), synthetic::kCeiling);
             EXPECT_EQ(Surface(img.At(320, 340)), synthetic::kFloor);
         }},
        {"held past the soft range, the pan stays at the hard limit", [](Display &d) {
             d.Touch(ZT5_CFG_DISPLAY_UITOUCH_DOWN, 320, 180);
             for (int i = 0; i < 3; i++) d.Drag(20, 180, 620, 180);
         },
         [](const State &s) { return s.zAngle[0] < -59 && s.zAngle[0] >= -60; }, nullptr},
        {"released, it springs back to the soft range", [](Display &d) { d.Touch(ZT5_CFG_DISPLAY_UITOUCH_UP, 620, 180); },
         [](const State &s) { return s.zAngle[0] <= -37 && s.zAngle[0] > -37.3f; },
         [](const Image &img, const State &) { EXPECT_EQ(Surface(img.At(240, 260)), synthetic::kLeftWall); }},
        {"cruising, the swing passes the soft range", [](Display &d) { d.SetU32(ZT5_CFG_DISPLAY_UITOUCH_AUTOCURISE, 1); },
         [](const State &s) { return s.mCruiseState == 1 && s.zAngle[0] < -45; }, nullptr},
        {"a tap ends the cruise, and the pan springs back", [](Display &d) {
             d.Touch(ZT5_CFG_DISPLAY_UITOUCH_DOWN, 10, 10);
             d.Touch(ZT5_CFG_DISPLAY_UITOUCH_UP, 10, 10);
         },
         [](const State &s) { return s.mCruiseState == 0 && s.zAngle[0] <= -37 && s.zAngle[0] > -37.3f; }, nullptr},
        {"a double tap goes back to the flat picture", [](Display &d) { d.DoubleTap(5, 5); },
         [](const State &s) { return Settled(s, 0) && Eq(s.fCamZ[0], 6.4f) && s.zAngle[0] == 0; },
         [](const Image &img, const State &) { ExpectFlatPicture(img); }},
    };
    State &r = v.restoreIn;
    r.mFishEyeMode = 10, r.fCamZ[0] = 2, r.fTz[0] = 2, r.zAngle[0] = 20, r.maxState = 1, r.maxMinInit = 0;
    r.nCruiseDir = 3, r.mCruiseState = 9;
    v.restoreOut = [](const State &s) {
        EXPECT_EQ(s.nCruiseDir, 1);
        EXPECT_EQ(s.mCruiseState, 1);
        EXPECT_NEAR(s.zAngle[0], 20.0f, 3) << "the restored cruise may have stepped before the save";
    };
    return v;
}

// Mode 8 in 640x360: the overview's square (316 pixels) on the left, the
// close pane's on the right, both 22 pixels from the top.
const Rect kOverview = {4, 22, 320, 338};
// Mean x of the lit pixels of the overview (the part the close pane
// shows), and how many there are.
double LitCentre(const Image &img, long *count = nullptr)
{
    double sum = 0;
    long n = 0;
    for (int y = kOverview.top; y < kOverview.bottom; y++)
        for (int x = kOverview.left; x < kOverview.right; x++) {
            const Rgb c = img.At(x, y);
            if (std::min({c.r, c.g, c.b}) >= 70) sum += x, n++;
        }
    if (count) *count = n;
    return n ? sum / n : -1;
}
double Diamond(const State &s) { return std::fabs(s.zAngle[0]) + std::fabs(s.fCamRotX[0]); }
const double kDiamond = 50.4, kMoveStep = 1.44;

View WallTwoRow()
{
    View v;
    v.name = "WallTwoView", v.mode = 8, v.width = 640, v.height = 360, v.lens = synthetic::WallLens(false);
    v.scene = [](const Image &img) {
        long lit = 0;
        EXPECT_NEAR(LitCentre(img, &lit), 162, 6) << "the close pane's part isn't lit in the middle";
        EXPECT_GT(lit, 2000);
        EXPECT_EQ(Surface(img.At(30, 180)), synthetic::kLeftWall) << "the overview's left is lit or not the left wall";
        EXPECT_EQ(Surface(img.At(290, 180)), synthetic::kRightWall);
        EXPECT_EQ(Surface(img.At(480, 230)), synthetic::kCentreWall);
        EXPECT_EQ(Surface(img.At(480, 40)), synthetic::kCeiling);
    };
    // A 100-pixel drag asks 3 degrees, made as two steps of 1.44.
    v.sector = 50, v.pictureSign = 0, v.dragStep = 2 * kMoveStep, v.cruiseSign = 0, v.inertiaStep = 3 * 0.1125 * 1.2e-3;
    v.prepare = {"a drag in the close pane sets the sense of inertia", [](Display &d) { d.Drag(400, 100, 400.5f, 100); },
                 [](const State &) { return true; }, nullptr};
    v.script = {
        {"a drag in the close pane turns it, and the lit part follows", [](Display &d) {
             d.Touch(ZT5_CFG_DISPLAY_UITOUCH_DOWN, 620, 180);
             d.Drag(620, 180, 330, 180);
         },
         [](const State &s) { return Eq(s.zAngle[0], 5 * kMoveStep); }, // 8.7 degrees asked, in steps
         [](const Image &img, const State &) { EXPECT_GT(LitCentre(img), 162 + 8); }},
        {"a tap left of the overview's middle re-aims the close pane there", [](Display &d) {
             d.Touch(ZT5_CFG_DISPLAY_UITOUCH_UP, 330, 180);
             d.Touch(ZT5_CFG_DISPLAY_UITOUCH_DOWN, 4 + 316 * 0.35f, 180);
         },
         [](const State &s) { return s.zAngle[0] < -15; },
         [](const Image &img, const State &) {
             EXPECT_LT(LitCentre(img), 162 - 25);
             EXPECT_GT(CountSurface(img, Rect{320, 22, 636, 338}, synthetic::kLeftWall), 316 * 316 / 8);
         }},
        {"pinches and double taps do nothing", [](Display &d) { for (int i = 0; i < 5; i++) d.Pinch(2.0f); d.DoubleTap(480, 180); },
         [](const State &s) { return s.zAngle[0] < -15 && s.fCamZ[0] == 2; }, nullptr},
        {"long drags reach the diamond and stay within one step of it", [](Display &d) {
             for (int i = 0; i < 12; i++) {
                 d.Drag(600, 300, 330, 40);
                 State s;
                 ASSERT_TRUE(d.Save(&s));
                 EXPECT_LE(Diamond(s), kDiamond + 2 * kMoveStep + 1e-3) << Describe(s);
             }
         },
         [](const State &s) { return Diamond(s) > kDiamond - 1 && Diamond(s) <= kDiamond + kMoveStep + 1e-3; }, nullptr},
        {"a huge drag and a huge fling end at once and keep to the diamond", [](Display &d) {
             d.Drag(600, 300, 1e30f, -1e30f);
             float velocity[2] = {3e38f, -3e38f};
             d.Set(ZT5_CFG_DISPLAY_UITOUCH_MOVE_VELOCITY, velocity);
         },
         [](const State &s) { return Diamond(s) > kDiamond - 1 && Diamond(s) <= kDiamond + kMoveStep + 1e-3; }, nullptr},
    };
    State &r = v.restoreIn;
    r.mFishEyeMode = 8, r.fCamZ[0] = 2.5f, r.fCamZ[1] = 12.5f, r.zAngle[0] = NAN, r.fCamRotX[1] = 7, r.mCruiseState = 1;
    r.xMove = 3;
    v.restoreOut = [](const State &s) {
        EXPECT_EQ(s.fCamZ[0], 2.5f);
        EXPECT_EQ(s.fCamZ[1], 12.5f);
        EXPECT_EQ(s.zAngle[0], 0.0f) << "a NaN pan";
        EXPECT_EQ(s.fCamRotX[1], 7.0f);
        EXPECT_EQ(s.xMove, 3.0f);
    };
    return v;
}

// Mode 7 in 640x360: the panorama in rows 181..359 (top down), the two side
// panes above it, rows 0..178, columns 0..318 and 321..639; two-pixel gaps.
void ExpectWallThree(const Image &img)
{
    using namespace synthetic;
    const Rect left = {0, 0, 319, 179}, right = {321, 0, 640, 179};
    const long area = 319 * 179;
    EXPECT_GT(CountSurface(img, left, kLeftWall), area / 4);
    EXPECT_LT(CountSurface(img, left, kRightWall), area / 50) << "the right wall in the left pane";
    EXPECT_GT(CountSurface(img, right, kRightWall), area / 4);
    EXPECT_LT(CountSurface(img, right, kLeftWall), area / 50) << "the left wall in the right pane";
    // The panorama: left wall, centre, right wall from left to right, the
    // ceiling above the floor.
    const long band = 80 * 40;
    EXPECT_GT(CountSurface(img, Rect{0, 250, 80, 290}, kLeftWall), band * 8 / 10);
    EXPECT_GT(CountSurface(img, Rect{240, 286, 400, 304}, kCentreWall), 160 * 18 * 8 / 10);
    EXPECT_GT(CountSurface(img, Rect{560, 250, 640, 290}, kRightWall), band * 8 / 10);
    EXPECT_EQ(Surface(img.At(320, 184)), kCeiling);
    EXPECT_EQ(Surface(img.At(320, 356)), kFloor);
    for (int x = 0; x < 640; x += 3) EXPECT_TRUE(IsBlack(img.At(x, 179)) && IsBlack(img.At(x, 180))) << "column " << x;
    for (int y = 0; y < 179; y += 3) EXPECT_TRUE(IsBlack(img.At(319, y)) && IsBlack(img.At(320, y))) << "row " << y;
}

View WallThreeRow()
{
    View v;
    v.name = "WallThreeView", v.mode = 7, v.width = 640, v.height = 360, v.lens = synthetic::WallLens(false);
    v.drawn = [](const Image &img) { return !img.empty() && Surface(img.At(40, 270)) == synthetic::kLeftWall; };
    v.scene = ExpectWallThree;
    v.sector = 50, v.pictureSign = 0, v.dragStep = 0, v.cruiseSign = 0, v.inertiaStep = 0, v.steerable = false;
    State &r = v.restoreIn;
    r.mFishEyeMode = 7, r.fCamZ[2] = 4, r.zAngle[0] = 33, r.maxState = 9;
    v.restoreOut = [](const State &s) { // kept as it came
        EXPECT_EQ(s.fCamZ[2], 4.0f);
        EXPECT_EQ(s.zAngle[0], 33.0f);
        EXPECT_EQ(s.maxState, 9);
    };
    return v;
}

// Difference of two turns folded into (-sector/2, sector/2] around `expect`:
// the boundary measured may be another sector's.
double Folded(double diff, double expect, double sector)
{
    while (diff < expect - sector / 2) diff += sector;
    while (diff > expect + sector / 2) diff -= sector;
    return diff;
}

std::string Describe(const State &s)
{
    char b[300];
    std::snprintf(b, sizeof b, "fCamZ %g fCamRotZ %g fTz %g zAngle %g fCamRotX %g xMove %g roam %d/%d max %d/%d cruise %d",
                  s.fCamZ[0], s.fCamRotZ[0], s.fTz[0], s.zAngle[0], s.fCamRotX[0], s.xMove, s.nRoamState, s.nRoamInit,
                  s.maxState, s.maxMinInit, s.mCruiseState);
    return b;
}

class Fisheye : public ::testing::TestWithParam<View> {
protected:
    using Settings = std::vector<std::pair<uint32_t, uint32_t>>;
    const View &v = GetParam();
    std::unique_ptr<Rig> rig;
    Frame scene = LensSceneFrame(v.lens);

    // A display of the view (or another mode), settings set before Init;
    // the half sphere's backdrop is off unless the settings say otherwise.
    void Start(Settings settings = {{ZT5_CFG_DISPLAY_FE_BG_CLOUD, 0}, {ZT5_CFG_DISPLAY_FE_BG_STAR, 0}}, uint32_t mode = ~0u,
               EventLog *log = nullptr)
    {
        rig.reset(new Rig(v.width, v.height, mode == ~0u ? v.mode : mode));
        ASSERT_TRUE(rig->ok());
        if (log) {
            ASSERT_EQ(d().Set(ZT5_CFG_DISPLAY_UICALLBACK, &log->record), ZT5_OK);
        }
        ASSERT_TRUE(rig->Started(settings));
        if (mode == ~0u) {
            ASSERT_TRUE(Until([&](const State &s) { return Started(s); })) << "the view never finished its start";
            ASSERT_TRUE(d().PushUntil(scene, v.drawn)) << "no picture of the scene";
        }
    }
    Display &d() { return rig->display; }
    bool Started(const State &s) const { return v.started ? v.started(s) : s.mFishEyeMode == int32_t(v.mode); }
    bool Until(const std::function<bool(const State &)> &reached, Image *shot = nullptr) { return d().UntilSaved(scene, reached, shot); }
    Image Settled() { return d().Settled(scene); }
    // The turn between two pictures against the state's; a view without a
    // measure of its picture's turn shows at least another picture.
    void ExpectTurn(const Image &a, const Image &b, double stateDiff)
    {
        if (!v.turnOf) {
            EXPECT_NE(a.rgba == b.rgba, std::fabs(stateDiff) > 1e-3) << "the picture and the state disagree";
            return;
        }
        const double want = v.pictureSign * stateDiff;
        EXPECT_NEAR(Folded(v.turnOf(b) - v.turnOf(a), want, v.sector), want, v.sector / 30) << "picture turned otherwise than the state";
    }
    // The display stops drawing (a window event may bring one redraw), and
    // resting changes nothing in the saved state.
    void ExpectRests()
    {
        ASSERT_TRUE(d().Quiet()) << "it never rests: " << Describe(d().Saved());
        const State before = d().Saved();
        EXPECT_LE(d().DrawsOver(500), 1u);
        const State after = d().Saved();
        EXPECT_EQ(std::memcmp(&before, &after, sizeof before), 0) << Describe(before) << "\n" << Describe(after);
    }
};

} // namespace

TEST_P(Fisheye, ShowsTheScene)
{
    ASSERT_NO_FATAL_FAILURE(Start());
    Image shot;
    ASSERT_TRUE(d().Snapshot(&shot));
    SaveShot(shot);
    v.scene(shot);
    EXPECT_EQ(d().Saved().mFishEyeMode, int32_t(v.mode));
}

// A drag turns the saved state by the documented step, and the picture by
// as much.
TEST_P(Fisheye, DragTurnsByTheDocumentedStep)
{
    ASSERT_NO_FATAL_FAILURE(Start());
    const Image before = Settled();
    const float x = v.dragX, y = v.dragY;
    d().Touch(ZT5_CFG_DISPLAY_UITOUCH_DOWN, x, y);
    const double s0 = v.turnIn(d().Saved());
    d().Drag(x, y, x + 100, y);
    d().Touch(ZT5_CFG_DISPLAY_UITOUCH_UP, x + 100, y);
    const Image after = Settled(); // the view's limits have had their frame
    EXPECT_NEAR(v.turnIn(d().Saved()) - s0, v.dragStep, 1e-3);
    SaveShot(after);
    ExpectTurn(before, after, v.dragStep);
}

// Cruise, switched on by the host, turns the view until a touch, after
// which the display rests. The host hears of each change once; the state a
// view starts in is none, even after the plain view (which has no cruise)
// was shown first.
TEST_P(Fisheye, CruiseTurnsUntilATouchAndTheHostHearsOfIt)
{
    EventLog log;
    ASSERT_NO_FATAL_FAILURE(Start({{ZT5_CFG_DISPLAY_FE_BG_CLOUD, 0}, {ZT5_CFG_DISPLAY_FE_BG_STAR, 0}}, 0, &log));
    // The plain view of the scene: the compass right of the centre, or the
    // room's centre wall below it.
    ASSERT_TRUE(d().PushUntil(scene, [&](const Image &i) {
        return v.lens.wall ? !i.empty() && Surface(i.At(i.width / 2, i.height * 5 / 8)) == synthetic::kCentreWall : SceneDrawn(i);
    }));
    ASSERT_EQ(d().SetU32(ZT5_CFG_DISPLAY_FISHEYE_MODE, v.mode), ZT5_OK);
    ASSERT_TRUE(Until([&](const State &s) { return Started(s); }));
    const Image before = Settled();
    const double s0 = v.turnIn(d().Saved());
    ASSERT_EQ(d().SetU32(ZT5_CFG_DISPLAY_UITOUCH_AUTOCURISE, 1), ZT5_OK);
    if (v.cruiseSign == 0) { // no cruise: nothing turns, the host hears nothing
        EXPECT_EQ(Settled().rgba, before.rgba);
        EXPECT_EQ(v.turnIn(d().Saved()), s0);
        EXPECT_TRUE(log.Values(ZT5_CFG_DISPLAY_CURISE_STATE_EVENT).empty());
        return;
    }
    float speed = 4; // taken by a view that has a speed
    ASSERT_EQ(d().Set(ZT5_CFG_DISPLAY_AUTOCURISE_VELOCITY, &speed), ZT5_OK);
    ASSERT_TRUE(Until([&](const State &s) { return s.mCruiseState == 1 && v.cruiseSign * (v.turnIn(s) - s0) > v.sector / 6; }));
    if (v.endCruise)
        v.endCruise(d());
    else
        d().Touch(ZT5_CFG_DISPLAY_UITOUCH_DOWN, 10, 10);
    const State ended = d().Saved();
    EXPECT_TRUE(v.cruiseEnded ? v.cruiseEnded(ended) : ended.mCruiseState == 0);
    const Image after = Settled();
    const double s1 = v.turnIn(d().Saved());
    ExpectTurn(before, after, s1 - s0);
    ExpectRests();
    EXPECT_EQ(v.turnIn(d().Saved()), s1) << "the view turned on after the touch";
    ASSERT_TRUE(Until([&](const State &) { return log.Values(ZT5_CFG_DISPLAY_CURISE_STATE_EVENT).size() >= 2; }));
    // Away to the plain view and back: nothing new to tell.
    ASSERT_EQ(d().SetU32(ZT5_CFG_DISPLAY_FISHEYE_MODE, 0), ZT5_OK);
    ASSERT_TRUE(Until([](const State &s) { return s.mFishEyeMode == 0; }));
    ASSERT_EQ(d().SetU32(ZT5_CFG_DISPLAY_FISHEYE_MODE, v.mode), ZT5_OK);
    ASSERT_TRUE(Until([&](const State &s) { return s.mFishEyeMode == int32_t(v.mode); }));
    Settled();
    EXPECT_EQ(log.Values(ZT5_CFG_DISPLAY_CURISE_STATE_EVENT), std::vector<uint32_t>({1, 0}));
}

// Inertia goes on in the direction of the release velocity, a tenth less
// each frame until it falls below one half, and ends a cruise.
TEST_P(Fisheye, InertiaDecaysAndEndsCruise)
{
    ASSERT_NO_FATAL_FAILURE(Start());
    if (v.inertiaStep == 0) return;
    if (v.prepare.act) {
        v.prepare.act(d());
        ASSERT_TRUE(Until(v.prepare.reached)) << v.prepare.what;
    }
    for (float v0 : {-50.0f, 100.0f}) {
        SCOPED_TRACE(v0);
        Settled();
        const double s0 = v.turnIn(d().Saved());
        double sum = 0;
        for (double vel = v0 * 0.9; std::fabs(vel) >= 0.5; vel *= 0.9) sum += vel;
        const double step = v0 < 0 && v.inertiaStepBack ? v.inertiaStepBack : v.inertiaStep;
        float velocity[2] = {v0, 0};
        ASSERT_EQ(d().Set(ZT5_CFG_DISPLAY_UITOUCH_MOVE_VELOCITY, velocity), ZT5_OK);
        ASSERT_TRUE(Until([&](const State &s) { return std::fabs(v.turnIn(s) - s0 - sum * step) < std::fabs(sum * step) * 0.01; }))
            << "turned " << v.turnIn(d().Saved()) - s0 << " of " << sum * step;
    }
    if (v.cruiseSign == 0) return;
    ASSERT_TRUE(d().Quiet()) << "the last steps of inertia would end the cruise at once";
    ASSERT_EQ(d().SetU32(ZT5_CFG_DISPLAY_UITOUCH_AUTOCURISE, 1), ZT5_OK);
    EXPECT_EQ(d().Saved().mCruiseState, 1);
    float velocity[2] = {40, 0};
    ASSERT_EQ(d().Set(ZT5_CFG_DISPLAY_UITOUCH_MOVE_VELOCITY, velocity), ZT5_OK);
    EXPECT_TRUE(Until(v.flingEndedCruise ? v.flingEndedCruise : [](const State &s) { return s.mCruiseState == 0; }));
}

// The view's own gestures, step by step; at the end the display rests.
TEST_P(Fisheye, GestureScript)
{
    ASSERT_NO_FATAL_FAILURE(Start());
    Settled(); // a double tap in the view's very first frames may lose the journey's turn
    for (const Step &s : v.script) {
        SCOPED_TRACE(s.what);
        s.act(d());
        Image shot;
        ASSERT_TRUE(Until(s.reached, &shot)) << "not reached: " << Describe(d().Saved());
        if (s.check) {
            shot = Settled(); // a gesture's state is there before its picture
            SaveShot(shot, "_" + std::to_string(&s - v.script.data()));
            s.check(shot, d().Saved());
        }
    }
    ExpectRests();
}

// A saved record brings back the picture of the save after other gestures;
// a record of another view is dropped; a record of this view is taken by
// the view's rules.
TEST_P(Fisheye, SaveAndRestore)
{
    ASSERT_NO_FATAL_FAILURE(Start());
    d().Drag(0, 10, 77, 10);
    for (int i = 0; i < 4; i++) d().Pinch(2.0f);
    const Image saved = Settled();
    const State rec = d().Saved();
    d().DoubleTap(10, 10);
    d().Drag(0, 10, 300, 100);
    if (v.steerable)
        ASSERT_TRUE(d().PushUntil(scene, [&](const Image &i) { return i.rgba != saved.rgba; }));
    else
        EXPECT_EQ(Settled().rgba, saved.rgba) << "gestures moved a view that has none";
    Settled();
    ASSERT_EQ(d().Restore(rec), ZT5_OK);
    Image shot;
    EXPECT_TRUE(d().PushUntil(scene, [&](const Image &i) { return i.rgba == saved.rgba; }, &shot)) << "not the picture of the save";
    SaveShot(shot);

    State other = d().Saved();
    const double before = v.turnIn(other);
    other.mFishEyeMode = v.mode == 1 ? 2 : 1;
    other.xMove += 1, other.zAngle[0] += 10;
    ASSERT_EQ(d().Restore(other), ZT5_OK);
    EXPECT_EQ(v.turnIn(d().Saved()), before) << "a record of another view was taken";

    ASSERT_EQ(d().Restore(v.restoreIn), ZT5_OK);
    const State out = d().Saved();
    EXPECT_EQ(out.bRestored, 1u);
    EXPECT_EQ(out.mFishEyeMode, int32_t(v.mode));
    v.restoreOut(out);

    // Records of garbage (NaN everywhere, then random bytes), each followed
    // by gestures and speeds of huge numbers: the saved state holds finite
    // numbers only, and the view draws on.
    State junk;
    std::memset(&junk, 0xff, sizeof junk);
    std::mt19937 rng(v.mode);
    for (int round = 0; round < 6; round++) {
        SCOPED_TRACE(round);
        junk.mFishEyeMode = int32_t(v.mode);
        ASSERT_EQ(d().Restore(junk), ZT5_OK);
        d().SetU32(ZT5_CFG_DISPLAY_UITOUCH_AUTOCURISE, round % 2);
        float wild[2] = {round % 2 ? 3e38f : -1e9f, -3e38f};
        d().Set(ZT5_CFG_DISPLAY_AUTOCURISE_VELOCITY, wild);
        d().Pinch(round % 3 ? 3e38f : 1e-30f, wild[0], wild[1]);
        d().Drag(wild[1], 1e9f, wild[0], -1e9f);
        d().Set(ZT5_CFG_DISPLAY_UITOUCH_MOVE_VELOCITY, wild);
        ASSERT_TRUE(d().PushUntilDrawn(scene)) << "no draw after a record of garbage";
        EXPECT_EQ(NonFiniteField(d().Saved()), -1) << Describe(d().Saved());
        for (size_t k = 0; k < sizeof junk; k++) reinterpret_cast<uint8_t *>(&junk)[k] = uint8_t(rng());
    }
}

// A still view rests once its start and a move are over; the half sphere
// with its backdrop on too, the host's animation switch being off. NaN and
// infinite touch points, pinches, release velocities and cruise speeds are
// dropped: the view
// neither moves nor stops drawing, and its saved state stays as it was.
TEST_P(Fisheye, RestsWhenStillAndDropsNonFiniteInput)
{
    ASSERT_NO_FATAL_FAILURE(Start({}));
    ExpectRests();
    const State before = d().Saved();
    float inf = INFINITY, nan = NAN;
    for (std::array<float, 2> vel : {std::array<float, 2>{inf, 0}, {-inf, nan}, {0, nan}}) d().Set(ZT5_CFG_DISPLAY_UITOUCH_MOVE_VELOCITY, vel.data());
    for (float *speed : {&inf, &nan}) d().Set(ZT5_CFG_DISPLAY_AUTOCURISE_VELOCITY, speed);
    for (float rate : {nan, inf, -inf}) d().Pinch(rate, 100, 100);
    d().Pinch(1.5f, nan, inf);
    d().Touch(ZT5_CFG_DISPLAY_UITOUCH_DOWN, nan, 100);
    d().Drag(nan, 100, 110, 100);
    d().Drag(100, 100, 110, inf);
    d().DoubleTap(nan, 10);
    d().Touch(ZT5_CFG_DISPLAY_UITOUCH_UP, inf, -inf);
    ASSERT_TRUE(d().Quiet()); // any move they made is over
    ASSERT_TRUE(d().PushUntil(scene, v.drawn)) << "the view stopped drawing";
    const State after = d().Saved();
    EXPECT_EQ(std::memcmp(&before, &after, sizeof before), 0) << Describe(after);
    if (!v.prepare.act) return;
    v.prepare.act(d());
    ASSERT_TRUE(Until(v.prepare.reached));
    ExpectRests();
}

INSTANTIATE_TEST_SUITE_P(Views, Fisheye,
                         ::testing::Values(HalfSphereView(), StripView(), FourPanesView(), MapView(640, 300),
                                           MapView(360, 480), ShapeView(false), ShapeView(true), WallThreeRow(),
                                           WallTwoRow(), WallOneRow(), WallOne180Row()),
                         [](const ::testing::TestParamInfo<View> &i) { return std::string(i.param.name); });

// ------------------------------------------------------------- half sphere

// With the start animation on, the eye flies from inside the bowl out to the
// overview, turning as it goes; without it the overview is there at once.
// The cloud and stars keep the view drawing while the animation is on; with
// it off the view rests (Fisheye.RestsWhenStill).
TEST(HalfSphere, OpeningFlightEndsAtTheOverview)
{
    Rig rig(480, 480, 1);
    ASSERT_TRUE(rig.Started({{ZT5_CFG_DISPLAY_FE_BASE_ANIMATION, 1}}));
    Frame scene = SceneFrame();
    std::vector<float> camZ;
    ASSERT_TRUE(rig.display.UntilSaved(scene, [&](const State &s) {
        if (camZ.empty() || s.fCamZ[0] != camZ.back()) camZ.push_back(s.fCamZ[0]);
        return s.nRoamInit == 0 && Eq(s.fCamZ[0], 7.1f);
    }));
    ASSERT_GE(camZ.size(), 3u) << "no flight seen";
    // The first save may come after the eye left the bowl on a slow
    // machine: the flight is seen as a climb of several steps.
    EXPECT_LT(camZ.front(), 5.0f) << "the flight starts near or inside the bowl";
    EXPECT_TRUE(std::is_sorted(camZ.begin(), camZ.end()));
    const State s = rig.display.Saved();
    EXPECT_GT(s.zAngle[0], -360.0f);
    EXPECT_LT(s.zAngle[0], 360.0f);
    Image shot;
    ASSERT_TRUE(rig.display.Snapshot(&shot));
    ExpectOverview(shot);
    // Drawing on, at whatever pace the machine allows (a sanitizer build
    // under load draws a few times a second).
    EXPECT_GE(rig.display.DrawsOver(800), 4u) << "the backdrop stopped with the animation on";
    // Off, and the view started again: it rests.
    ASSERT_EQ(rig.display.SetU32(ZT5_CFG_DISPLAY_FE_BASE_ANIMATION, 0), ZT5_OK);
    for (uint32_t mode : {2u, 1u}) ASSERT_EQ(rig.display.SetU32(ZT5_CFG_DISPLAY_FISHEYE_MODE, mode), ZT5_OK);
    EXPECT_TRUE(rig.display.Quiet()) << "the backdrop keeps drawing with the animation off";
}

// The backdrop: without cloud and stars the corners are the clear colour and
// the eye comes nearer; with them light shows outside the bowl. Platform 1
// draws the lens by the cosine law alone: the horizon lands nearer the
// centre.
TEST(HalfSphere, BackdropAndPlatformSettings)
{
    const uint32_t cases[3][2] = {{0, 0}, {1, 0}, {1, 1}}; // cloud and stars, platform
    double horizon[3] = {0, 0, 0};
    Frame scene = SceneFrame();
    for (int i = 0; i < 3; i++) {
        SCOPED_TRACE(i);
        const uint32_t cloud = cases[i][0];
        Rig rig(480, 480, 1);
        ASSERT_TRUE(rig.Started({{ZT5_CFG_DISPLAY_FE_BG_CLOUD, cloud}, {ZT5_CFG_DISPLAY_FE_BG_STAR, cloud}, {ZT5_CFG_DISPLAY_FE_PLATFORM, cases[i][1]}}));
        Image shot;
        ASSERT_TRUE(rig.display.UntilSaved(scene, [](const State &s) { return s.nRoamInit == 0; }));
        ASSERT_TRUE(rig.display.PushUntil(scene, SceneDrawn, &shot));
        SaveShot(shot, "_" + std::to_string(i));
        EXPECT_FLOAT_EQ(rig.display.Saved().fCamZ[0], cloud ? 7.1f : 6.1f);
        long lit = 0; // outside the bowl's rim: all round with the backdrop, in a corner without
        for (int y = 0; y < 480; y++)
            for (int x = 0; x < 480; x++) {
                const Rgb p = shot.At(x, y);
                if (cloud ? std::hypot(x - 240, y - 240) >= 480 * 0.47 : (x < 40 && y < 40)) lit += p.r + p.g + p.b > (cloud ? 30 : 0);
            }
        EXPECT_TRUE(cloud ? lit > 200 : lit == 0) << lit << " pixels lit outside the bowl";
        int n = 0;
        for (int k = 0; k < 16; k++)
            for (int r = 0; r < 240; r++)
                if (IsHorizon(Polar(shot, r, k * 22.5 + 5))) horizon[i] += r, n++;
        horizon[i] /= std::max(1, n);
    }
    EXPECT_LT(horizon[2], horizon[1] - 3) << "platform 1 keeps the horizon where platform 0 has it";
}

// ------------------------------------------------------------- four panes

// The cruise steps once for each pane drawn: four steps a frame in the
// grid, one when a pane is zoomed (its step is mCruiseVelocity * 0.043269).
TEST(FourPanes, CruiseStepsOncePerDrawnPane)
{
    Rig rig(480, 360, 3);
    ASSERT_TRUE(rig.Started());
    Display &d = rig.display;
    Frame scene = SceneFrame();
    ASSERT_TRUE(d.PushUntil(scene, SceneDrawn));
    // The draws and the state are read when the display rests: the cruise
    // counted between two rests, less the draw for the switch itself.
    auto rested = [&] {
        EXPECT_TRUE(d.Quiet());
        return d.Stats().dwDraws;
    };
    for (int panes : {4, 1}) {
        SCOPED_TRACE(panes);
        if (panes == 1) {
            ASSERT_EQ(d.DoubleTap(100, 100), ZT5_OK);
        }
        const uint32_t d0 = rested();
        const float z0 = d.Saved().zAngle[0];
        ASSERT_EQ(d.SetU32(ZT5_CFG_DISPLAY_UITOUCH_AUTOCURISE, 1), ZT5_OK);
        while (d.Stats().dwDraws - d0 < 150) std::this_thread::sleep_for(std::chrono::milliseconds(20));
        ASSERT_EQ(d.SetU32(ZT5_CFG_DISPLAY_UITOUCH_AUTOCURISE, 0), ZT5_OK);
        const uint32_t d1 = rested();
        const float z1 = d.Saved().zAngle[0];
        EXPECT_NEAR((z1 - z0) / double(d1 - d0), panes * 0.043269236, panes * 0.043269236 * 0.1) << z1 - z0 << " in " << d1 - d0;
    }
}

// A restored record whose panes tour while the cruise is off: nothing
// turns, and the host hears of no cruise; with the cruise on it does.
TEST(FourPanes, RestoredTouringFlagsCruiseOnlyWithTheCruise)
{
    EventLog log;
    Rig rig(480, 360, 3);
    ASSERT_TRUE(rig.ok());
    ASSERT_EQ(rig.display.Set(ZT5_CFG_DISPLAY_UICALLBACK, &log.record), ZT5_OK);
    ASSERT_EQ(rig.Init(), ZT5_OK);
    Display &d = rig.display;
    Frame scene = SceneFrame();
    ASSERT_TRUE(d.PushUntil(scene, SceneDrawn));
    State rec = d.Saved();
    rec.bIsAutoTouring[1] = 1, rec.mCruiseState = 0;
    ASSERT_EQ(d.Restore(rec), ZT5_OK);
    ASSERT_TRUE(d.Quiet()) << "a restored touring flag keeps the display drawing";
    const float z = d.Saved().zAngle[1];
    EXPECT_LE(d.DrawsOver(300), 1u);
    EXPECT_EQ(d.Saved().zAngle[1], z);
    EXPECT_TRUE(log.Values(ZT5_CFG_DISPLAY_CURISE_STATE_EVENT).empty());
    rec.mCruiseState = 1;
    ASSERT_EQ(d.Restore(rec), ZT5_OK);
    ASSERT_TRUE(d.PushUntil(scene, [&](const Image &) { return !log.Values(ZT5_CFG_DISPLAY_CURISE_STATE_EVENT).empty(); }));
    EXPECT_EQ(log.Values(ZT5_CFG_DISPLAY_CURISE_STATE_EVENT).front(), 1u);
}

// ------------------------------------------------------------ wall views

// Pinches, flings and double taps before the one-pane wall views have a
// usable window are dropped: the view starts wide, unturned.
TEST(WallPanes, GesturesWaitForTheFirstWindow)
{
    for (uint32_t mode : {9u, 10u}) {
        SCOPED_TRACE(mode);
        Rig rig(8, 8, mode);
        ASSERT_TRUE(rig.Started());
        Display &d = rig.display;
        Frame scene = LensSceneFrame(synthetic::WallLens(mode == 10));
        ASSERT_TRUE(d.PushUntil(scene, [&](const Image &) { State s; return d.Save(&s) && s.mFishEyeMode == int32_t(mode); }));
        for (int i = 0; i < 40; i++) d.Pinch(2.0f);
        d.DoubleTap(4, 4);
        float velocity[2] = {-3000, 0};
        d.Set(ZT5_CFG_DISPLAY_UITOUCH_MOVE_VELOCITY, velocity);
        for (int i = 0; i < 20; i++) d.Push(scene);
        ASSERT_TRUE(rig.window.Resize(640, 360));
        ASSERT_EQ(d.SetWindow(rig.window.id(), 640, 360), ZT5_OK);
        const int y = mode == 9 ? 280 : 140, surface = mode == 9 ? synthetic::kFloor : synthetic::kCentreWall;
        ASSERT_TRUE(d.PushUntil(scene, [&](const Image &i) { return !i.empty() && i.width == 640 && Surface(i.At(320, y)) == surface; }));
        ASSERT_TRUE(d.Quiet());
        const State s = d.Saved();
        EXPECT_EQ(s.fCamZ[0], mode == 9 ? 6.0f : 6.4f) << Describe(s);
        EXPECT_EQ(s.zAngle[0], 0.0f);
        EXPECT_TRUE(Settled(s, 0)) << Describe(s);
    }
}

// Mode 8 in windows far from 2:1: the two squares lie side by side in the
// middle; a tap on a surface of the overview turns the close pane to it.
TEST(WallTwoView, ATapAimsInAnyWindowShape)
{
    struct Aim {
        double u, v; // in the overview's square, from its top left
        int surface;
    } aims[] = {{0.12, 0.5, synthetic::kLeftWall}, {0.88, 0.5, synthetic::kRightWall}, {0.5, 0.12, synthetic::kCeiling},
                {0.5, 0.88, synthetic::kFloor}};
    for (std::array<int, 2> size : {std::array<int, 2>{1600, 500}, {500, 1000}}) {
        SCOPED_TRACE(size[0]);
        const MapLayout m = MapOf(size[0], size[1]); // the overview's square lies as the map's of mode 4
        auto closeShows = [&](int surface) {
            return [=](const Image &i) { return !i.empty() && Surface(i.At(int(m.cx + m.side), int(m.cy))) == surface; };
        };
        Rig rig(size[0], size[1], 8);
        ASSERT_TRUE(rig.Started());
        Display &d = rig.display;
        Frame scene = LensSceneFrame(synthetic::WallLens(false));
        ASSERT_TRUE(d.PushUntil(scene, closeShows(synthetic::kCentreWall)));
        const State start = d.Saved();
        for (const Aim &a : aims) {
            // From the start each time: a jump goes only part of a long way.
            ASSERT_EQ(d.Restore(start), ZT5_OK);
            const float x = float(m.cx + (a.u - 0.5) * m.side), y = float(m.cy + (a.v - 0.5) * m.side);
            d.Touch(kDown, x, y);
            d.Touch(ZT5_CFG_DISPLAY_UITOUCH_UP, x, y);
            ASSERT_TRUE(d.PushUntil(scene, closeShows(a.surface))) << "aimed at " << a.u << ", " << a.v << ": " << Describe(d.Saved());
        }
    }
}

// Mode 7 in a tall window: both side panes and the panorama draw.
TEST(WallThreeView, DrawsInATallWindow)
{
    Rig rig(300, 700, 7);
    ASSERT_TRUE(rig.Started());
    Frame scene = LensSceneFrame(synthetic::WallLens(false));
    Image shot;
    ASSERT_TRUE(rig.display.PushUntil(scene, [](const Image &i) { return !i.empty() && Surface(i.At(20, 520)) == synthetic::kLeftWall; }, &shot));
    SaveShot(shot);
    using namespace synthetic;
    const long pane = 149 * 349;
    EXPECT_GT(CountSurface(shot, Rect{0, 0, 149, 349}, kLeftWall), pane / 4);
    EXPECT_GT(CountSurface(shot, Rect{151, 0, 300, 349}, kRightWall), pane / 4);
    EXPECT_GT(CountSurface(shot, Rect{260, 480, 300, 560}, kRightWall), 40 * 80 / 2);
    EXPECT_EQ(Surface(shot.At(150, 356)), kCeiling);
    EXPECT_EQ(Surface(shot.At(150, 696)), kFloor);
}

// ------------------------------------------------------------- lens model

// A lens of each law, and a frame of it: black with a white ring where the
// law puts the directions kRingDeg off the axis (f(theta) / f(fov / 2) of
// the circle's radius, the circle inscribed in the frame's height).
const double kRingDeg = 60;
struct Lens {
    const char *name;
    ZT5LensModel model;
};
double LawF(const ZT5LensModel &m, double t)
{
    switch (m.dwLaw) {
    case 1: return std::sin(t / 2);
    case 2: return std::tan(t / 2);
    case 3: return std::sin(t);
    case 4: return t * (1 + m.fK[0] * t * t + m.fK[1] * std::pow(t, 4) + m.fK[2] * std::pow(t, 6) + m.fK[3] * std::pow(t, 8));
    default: return t;
    }
}
double RingShare(const ZT5LensModel &m)
{
    const double fov = m.fFieldOfView ? m.fFieldOfView : 180;
    return LawF(m, kRingDeg * kPi / 180) / LawF(m, fov / 2 * kPi / 180);
}
Frame RingFrame(double share)
{
    Frame f(1920, 1080);
    const double r = 540 * share;
    for (int y = 0; y < 1080; y += 2)
        for (int x = int(960 - r - 8) & ~1; x < 960 + r + 8; x += 2)
            if (std::fabs(std::hypot(x + 1 - 960.0, y + 1 - 540.0) - r) < 6) f.Fill(x, y, x + 2, y + 2, {255, 255, 255});
    return f;
}
bool White(Rgb c) { return std::min({c.r, c.g, c.b}) > 160; }
// Where a view shows the ring: the panorama strip (wide, 640x360) along the
// row of kRingDeg; the wall dome (mode 9 wide) where the dome's point that
// far off its axis stands, 180 (6 sin t) / (6 + 1.25 * 6 cos t) pixels
// right of the centre.
double StripRingWhite(const Image &img)
{
    int n = 0;
    for (int x = 0; x < img.width; x++) n += White(img.At(x, StripRow(kRingDeg))) || White(img.At(x, StripRow(kRingDeg) + 1));
    return double(n) / img.width;
}
bool DomeRingAt(const Image &img)
{
    const double t = kRingDeg * kPi / 180, x = 320 + 180 * 6 * std::sin(t) / (6 + 7.5 * std::cos(t));
    return White(img.At(int(x), 180)) && White(img.At(int(640 - x), 180)) && !White(img.At(int(x) + 12, 180)) && !White(img.At(int(x) - 12, 180));
}

class LensModel : public ::testing::TestWithParam<Lens> {};

// Set before Init or after the first picture, the lens puts the ring where
// its law says in a strip and a dome, and keeps it over a new window; the
// default lens doesn't; the record reads back as set. (A polynomial of
// zeros is the equidistant lens, not the default.)
TEST_P(LensModel, ShowsTheRingWhereTheLawPutsIt)
{
    const Lens &lens = GetParam();
    Frame ring = RingFrame(RingShare(lens.model));
    for (uint32_t mode : {2u, 9u}) {
        SCOPED_TRACE(mode);
        auto shows = [&](const Image &i) { return !i.empty() && (mode == 2 ? StripRingWhite(i) > 0.9 : DomeRingAt(i)); };
        Rig rig(640, 360, mode);
        ASSERT_TRUE(rig.ok());
        Display &d = rig.display;
        const bool before = mode == 2;
        if (before) {
            ASSERT_EQ(d.Set(ZT5_CFG_COMMON_LENS_MODEL, const_cast<ZT5LensModel *>(&lens.model)), ZT5_OK);
        }
        ASSERT_EQ(rig.Init(), ZT5_OK);
        Image shot;
        if (!before) {
            ASSERT_TRUE(d.PushUntil(ring, [&](const Image &i) { return !i.empty() && i.width == 640; }, &shot));
            for (int i = 0; i < 10; i++) d.Push(ring);
            ASSERT_TRUE(d.Snapshot(&shot));
            if (RingShare(lens.model) != RingShare(ZT5LensModel{})) {
                EXPECT_FALSE(shows(shot)) << "the default lens shows the ring there";
            }
            ASSERT_EQ(d.Set(ZT5_CFG_COMMON_LENS_MODEL, const_cast<ZT5LensModel *>(&lens.model)), ZT5_OK);
        }
        EXPECT_TRUE(d.PushUntil(ring, shows, &shot)) << "no ring at " << kRingDeg << " degrees";
        SaveShot(shot, "_" + std::to_string(mode));
        ZT5LensModel back;
        std::memset(&back, 0xff, sizeof back);
        ASSERT_EQ(d->GetDisplayParam(ZT5_CFG_COMMON_LENS_MODEL, &back), ZT5_OK);
        EXPECT_EQ(std::memcmp(&back, &lens.model, sizeof back), 0);
        XWindow other(640, 360);
        ASSERT_EQ(d.SetWindow(other.id(), 640, 360), ZT5_OK);
        EXPECT_TRUE(d.PushUntil(ring, shows, &shot)) << "the new window's renderer lost the lens";
    }
}

const Lens kLenses[] = {{"Equidistant200", {0, 200, {0, 0, 0, 0}}}, {"Equisolid", {1, 0, {0, 0, 0, 0}}},
                        {"Stereographic190", {2, 190, {0, 0, 0, 0}}}, {"Orthographic", {3, 180, {0, 0, 0, 0}}},
                        {"Polynomial", {4, 185, {-0.05f, 0.002f, 0, 0}}}, {"ZeroPolynomial200", {4, 200, {0, 0, 0, 0}}}};
INSTANTIATE_TEST_SUITE_P(Laws, LensModel, ::testing::ValuesIn(kLenses),
                         [](const ::testing::TestParamInfo<Lens> &i) { return std::string(i.param.name); });

// Mode 10 draws through its own orthographic 180-degree lens until a model
// is set, then through the model: the wall scene seen through each law, the
// view told that law, looks as the orthographic scene does by default;
// untold, it doesn't.
TEST(LensModels, WallOneView180FollowsTheModelOnceSet)
{
    Rig rig(640, 360, 10);
    ASSERT_TRUE(rig.Started());
    Display &d = rig.display;
    // Of the pixels where the default shows a surface, the share where a
    // picture shows the same (a wider lens shows more of the room besides).
    auto agreement = [](const Image &a, const Image &want) {
        long same = 0, shown = 0;
        for (int y = 0; y < want.height; y++)
            for (int x = 0; x < want.width; x++) {
                const int surface = Surface(want.At(x, y));
                shown += surface >= 0;
                same += surface >= 0 && Surface(a.At(x, y)) == surface;
            }
        return double(same) / shown;
    };
    Frame orthographic = LensSceneFrame(synthetic::WallLens(true));
    Image want, shot;
    ASSERT_TRUE(d.PushUntil(orthographic, [](const Image &i) { return !i.empty() && Surface(i.At(320, 180)) == synthetic::kCentreWall; }));
    ASSERT_TRUE(d.Quiet());
    ASSERT_TRUE(d.Snapshot(&want));
    for (const Lens &lens : kLenses) {
        SCOPED_TRACE(lens.name);
        synthetic::LensFrame l = synthetic::WallLens(true);
        l.orthographic = false, l.law = lens.model.dwLaw, l.fovDeg = lens.model.fFieldOfView;
        for (int i = 0; i < 4; i++) l.k[i] = lens.model.fK[i];
        Frame scene = LensSceneFrame(l);
        // The orthographic 180-degree record is the default's lens: nothing to tell apart untold.
        if (lens.model.dwLaw != ZT5_LENS_ORTHOGRAPHIC || lens.model.fFieldOfView != 180) {
            ASSERT_TRUE(d.PushUntil(scene, [&](const Image &i) { return !i.empty() && i.rgba != want.rgba; }, &shot));
            ASSERT_TRUE(d.Quiet());
            ASSERT_TRUE(d.Snapshot(&shot));
            EXPECT_LT(agreement(shot, want), 0.9) << "the default lens shows this scene as the orthographic one";
        }
        ASSERT_EQ(d.Set(ZT5_CFG_COMMON_LENS_MODEL, const_cast<ZT5LensModel *>(&lens.model)), ZT5_OK);
        EXPECT_TRUE(d.PushUntil(scene, [&](const Image &i) { return !i.empty() && agreement(i, want) > 0.98; }, &shot))
            << agreement(shot, want);
        SaveShot(shot, std::string("_") + lens.name);
        ZT5LensModel unset = {};
        ASSERT_EQ(d.Set(ZT5_CFG_COMMON_LENS_MODEL, &unset), ZT5_OK);
    }
}

// Bad records are refused with 2 and change nothing.
TEST(LensModels, BadRecordsAreRefused)
{
    Display d;
    ASSERT_TRUE(d.ok());
    ZT5LensModel good = {1, 220, {0, 0, 0, 0}};
    ASSERT_EQ(d.Set(ZT5_CFG_COMMON_LENS_MODEL, &good), ZT5_OK);
    const ZT5LensModel bad[] = {{5, 180, {0, 0, 0, 0}},        {0, 59.9f, {0, 0, 0, 0}}, {0, 360.5f, {0, 0, 0, 0}},
                                {0, NAN, {0, 0, 0, 0}},        {3, 181, {0, 0, 0, 0}},   {2, 360, {0, 0, 0, 0}},
                                {0, 180, {0, INFINITY, 0, 0}}, {1, 180, {NAN, 0, 0, 0}}, {4, 180, {-1, 0, 0, 0}},
                                {4, 360, {0, 0, 0, -0.001f}}, {0, -180, {0, 0, 0, 0}}};
    for (const ZT5LensModel &b : bad) {
        SCOPED_TRACE(&b - bad);
        EXPECT_EQ(d.Set(ZT5_CFG_COMMON_LENS_MODEL, const_cast<ZT5LensModel *>(&b)), ZT5_ERR_INVALID_PARAM);
        ZT5LensModel back;
        ASSERT_EQ(d->GetDisplayParam(ZT5_CFG_COMMON_LENS_MODEL, &back), ZT5_OK);
        EXPECT_EQ(std::memcmp(&back, &good, sizeof back), 0);
    }
    for (const ZT5LensModel &ok : {ZT5LensModel{0, 360, {0, 0, 0, 0}}, ZT5LensModel{3, 60, {0, 0, 0, 0}}, ZT5LensModel{4, 220, {0.01f, 0, 0, 0}}})
        EXPECT_EQ(d.Set(ZT5_CFG_COMMON_LENS_MODEL, const_cast<ZT5LensModel *>(&ok)), ZT5_OK);
}

// A view that shrinks the picture many times (the half sphere's overview or
// the wall dome in a small window on a large frame) samples each pixel's
// footprint: columns
// of one texel, black and white in turn, come out grey, not a random pick
// of black and white that flickers as the view turns.
TEST(Footprint, FineDetailShrunkManyTimesIsAveraged)
{
    Frame stripes(1920, 1080, {128, 128, 128});
    for (int y = 0; y < 1080; y++)
        for (int x = 0; x < 1920; x++) stripes.Y()[size_t(y) * 1920 + x] = x % 2 ? 235 : 16;
    // Each view measures its last draw and must find that it shrinks the
    // picture: the settled picture is averaged, not the stripes of one tap.
    for (uint32_t mode : {1u, 9u}) {
        SCOPED_TRACE(mode);
        Rig rig(120, 120, mode);
        ASSERT_TRUE(rig.Started({{ZT5_CFG_DISPLAY_FE_BG_CLOUD, 0}, {ZT5_CFG_DISPLAY_FE_BG_STAR, 0}, {ZT5_CFG_DISPLAY_FE_BASE_ANIMATION, 0}}));
        Image shot;
        ASSERT_TRUE(rig.display.PushUntil(stripes, [](const Image &i) { return !i.empty() && i.At(60, 60).g > 20; }, &shot));
        ASSERT_TRUE(rig.display.Quiet());
        ASSERT_TRUE(rig.display.Snapshot(&shot));
        SaveShot(shot, "_" + std::to_string(mode));
        int grey = 0, all = 0;
        for (int y = 30; y < 90; y++)
            for (int x = 30; x < 90; x++) {
                all++;
                grey += std::abs(int(shot.At(x, y).g) - 128) < 64;
            }
        EXPECT_GT(grey, all * 85 / 100) << "of " << all << " pixels of the picture";
    }
}
