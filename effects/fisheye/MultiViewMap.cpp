// FishEyeMode 4: two square panes side by side. On the left a map, the whole
// lens circle seen straight down the bowl's axis; on the right a perspective
// pane from inside the bowl. The map lights the area the perspective pane
// shows. A touch on the map aims the perspective pane there; drags in the
// perspective pane turn and tilt it, a deep tilt springs back on release,
// one degree a frame. Cruise goes on through every gesture.
#include <cmath>
#include <new>

#include "FisheyeCommon.h"
#include "MLog.h"
#include "ViewEffect.h"

namespace {

const float kNear = 1.0f, kFar = 25.0f;
// Eye distances: the perspective pane, the map (from there the bowl's rim
// fills 6 / 6.2 of the map's half side).
const float kPaneCamZ = 2.0f, kMapCamZ = 6.2f;
// The rest pose of the perspective pane and the pose at its deepest tilt
// (those of the half sphere's roam pose).
const float kRoamRotZ = -45.5605965f, kRoamTranY = 1.87908530f, kRoamTranZ = 1.39894652f;
const float kTiltRotZ = -65.9005966f, kTiltTranZ = 0.685671985f, kTiltTranY = 2.61819792f;
// fTz: 10 degrees a unit towards the axis, 13.5 below the rest pose.
const TiltSpring kSpring = {kRoamRotZ, kRoamTranY, kRoamTranZ, kTiltRotZ, kTiltTranY, kTiltTranZ};
const float kTzMax = kRoamRotZ / -10.0f;
const float kTzMin = (kTiltRotZ - kRoamRotZ) / 13.5f;
const float kFlingFactor = 5.0625f;
const float kCruiseStep = 0.043269236f;
const float kRadToDeg = 57.295780490442965f;

enum { kPane = 0, kMap = 1 };
// The lit map's dome as the points are mapped: unscaled, signs (-, +).
const std::initializer_list<float> kMapDome = {1.0f, 1.0f, 1.0f, kFisheyeLensRadius, -1.0f, 1.0f};

} // namespace

extern const ViewTraits kMultiViewMapTraits = {LensBox::Square, false, false, false, true};

class MultiViewMap final : public ViewEffect {
public:
    MultiViewMap() : ViewEffect("MultiViewMap", kMultiViewMapTraits)
    {
        m_CruiseEnd = kCruiseEndsNever;
        FECurrentStatusData &d = m_FECurrentStatusData;
        // The perspective pane's camera comes back; the eye distances and
        // the map's pose are constants of the layout, saved only.
        SaveFields({SavedField::SaveOnly(fCamZ[kPane], d.fCamZ[kPane]),
                    SavedField::Checked(fCamTranZ[kPane], d.fCamTranZ[kPane], kRoamTranZ),
                    SavedField::Checked(fCamRotZ[kPane], d.fCamRotZ[kPane], kRoamRotZ),
                    SavedField::Checked(fCamTranY[kPane], d.fCamTranY[kPane], kRoamTranY),
                    SavedField::Checked(fCamAngleZ[kPane], d.fCamAngleZ[kPane], 0.0f),
                    SavedField::Checked(fTz[kPane], d.fTz[kPane], 0.0f),
                    SavedField::Checked(zAngle[kPane], d.zAngle[kPane], 0.0f)});
        SaveFields({SavedField::SaveOnly(fCamZ[kMap], d.fCamZ[kMap]),
                    SavedField::SaveOnly(fCamTranZ[kMap], d.fCamTranZ[kMap]),
                    SavedField::SaveOnly(fCamRotZ[kMap], d.fCamRotZ[kMap]),
                    SavedField::SaveOnly(fCamTranY[kMap], d.fCamTranY[kMap]),
                    SavedField::SaveOnly(fCamAngleZ[kMap], d.fCamAngleZ[kMap]),
                    SavedField::SaveOnly(fTz[kMap], d.fTz[kMap]),
                    SavedField::SaveOnly(zAngle[kMap], d.zAngle[kMap])});
        SaveFields({{mCruiseState, d.mCruiseState}, SavedField::Checked(mCruiseVelocity, d.mCruiseVelocity, 1.0f)});
    }

private:
    MRESULT Build() override
    {
        UploadRayQuad(m_Quad);
        m_Program.Build("MultiViewMap", FISHEYE_GLSL_RAY_VERTEX, FISHEYE_GLSL_LIT_MAP_FRAGMENT);
        const char *where = "MultiViewMap";
        const GLint rad = m_Program.Uniform(where, "frad", "mRadHandle");
        muRect = m_Program.Uniform(where, "uMVPMatrixRect", "muMVPMatrixRectHandle");
        const bool lens = m_Lens.Find(m_Program, where) && SetDomeScale(m_Program, where, 1.0f, 1.0f, 1.0f);
        muMode = m_Program.Uniform(where, "mode", "muC2RModeHandle");
        if (rad < 0 || muRect < 0 || muMode < 0 || !lens) return -1;
        m_Program.Use();
        glUniform1f(rad, kFisheyeLensRadius);
        return m_Quad ? 0 : 3;
    }

    // The map on the left of the two squares, the pane on the right.
    void Project(MLong w, MLong h) override
    {
        const TwoSquares sq = TwoSquares::In(w, h);
        const MLong side = sq.side, left = sq.left, y0 = sq.bottom;
        m_Pane[kMap].SetViewport(GLint(left), GLint(y0), GLint(side), GLint(side));
        m_Pane[kPane].SetViewport(GLint(left + side), GLint(y0), GLint(side), GLint(side));
        for (ViewPane &p : m_Pane) p.camera.setProjectFrustum(-1.0f, 1.0f, -1.0f, 1.0f, kNear, kFar);
        // The map as a touch sees it (window pixels, y down): its centre and
        // the half diagonal of its square.
        m_MapCentreX = float(left) + float(side) * 0.5f;
        m_MapCentreY = float(h - y0) - float(side) * 0.5f;
        m_MapReach = float(side) * 0.70710678f;
    }

    // The perspective pane, drawn first.
    int AimPane(const ViewMap &map, double, double) const override { return map.paneCount > 0 ? 0 : -1; }

    void StepCamera() override
    {
        // Cruise, once a frame. The turn is kept within (-360, 360) by whole
        // turns, as it is drawn, so that a long cruise keeps even steps.
        float a = zAngle[kPane].load();
        if (Cruising()) a += mCruiseVelocity.load() * kCruiseStep;
        zAngle[kPane] = FisheyeWrapDegrees(a);
        if (!SpringBack()) PoseStep();
    }

    // The perspective pane first: its matrix of this frame is the one the
    // map lights.
    void Draw(const Frame &f) override
    {
        const float turn = FisheyeWrapDegrees(zAngle[kPane].load());
        fCamAngleZ[kPane] = turn;
        auto pane = [&](RotTranMatrix &m) {
            FisheyeBowlView(m, kPaneCamZ, fCamRotZ[kPane].load(), fCamTranY[kPane].load(), fCamTranZ[kPane].load());
            RotTranMatrix::rotate(m.mVMatrix, turn + 180.0f, 0.0f, 0.0f, 1.0f);
        };
        auto map = [&](RotTranMatrix &m) { FisheyeEye(m, kMapCamZ); };
        m_Pane[kPane].Apply();
        DrawPass(m_Pane[kPane].camera, pane, m_Program, m_Quad, f.sampling, [&] {
            SendRayMatrix(m_Program, m_Pane[kPane].camera);
            m_Lens.Send(m_LensModel, m_nLensGeneration, f.videoWidth, f.videoHeight);
            glUniform1f(muMode, 0.0f);
            glUniformMatrix4fv(muRect, 1, GL_FALSE, m_Pane[kPane].camera.mMVPMatrix);
        });
        MapPane(kPane, m_Pane[kPane].x, m_Pane[kPane].y, m_Pane[kPane].width, m_Pane[kPane].height, m_Pane[kPane].camera, DomeLensPoint, kMapDome);
        m_Pane[kMap].Apply();
        DrawPass(m_Pane[kMap].camera, map, m_Program, m_Quad, f.sampling, [&] {
            SendRayMatrix(m_Program, m_Pane[kMap].camera);
            m_Lens.Send(m_LensModel, m_nLensGeneration, f.videoWidth, f.videoHeight);
            glUniform1f(muMode, 1.0f);
            glUniformMatrix4fv(muRect, 1, GL_FALSE, m_Pane[kPane].camera.mMVPMatrix);
        });
        MapPane(kMap, m_Pane[kMap].x, m_Pane[kMap].y, m_Pane[kMap].width, m_Pane[kMap].height, m_Pane[kMap].camera, DomeLensPoint, kMapDome);
    }

    // A released deep tilt returns to the rest pose (the toolkit's spring).
    // Returns 1 while it does.
    int SpringBack()
    {
        const unsigned char up = bTouchUp.load();
        bool arrived = false;
        if (up == 1 && kSpring.Step(fCamRotZ[kPane], fCamTranY[kPane], fCamTranZ[kPane], &arrived)) {
            if (arrived) {
                belasticstate = 1;
                fTz[kPane] = 0.0f;
            }
            bTouchUpPrev = up;
            return 1;
        }
        const float rot = fCamRotZ[kPane].load();
        // A finger landed since the last frame (seen as the change of
        // bTouchUp, or flagged by the touch itself when it was lifted and
        // put down again between two frames): the tilt below the rest pose
        // is allowed, and a springing tilt is taken over without a jump.
        const bool landed = bLanded.load() != 0;
        bLanded = 0;
        if (up == 0 && (bTouchUpPrev == 1 || landed) && rot <= kRoamRotZ) {
            belasticstate = 1;
            if (rot < kRoamRotZ) fTz[kPane] = (rot - kRoamRotZ) / 13.5f;
        }
        bTouchUpPrev = up;
        return 0;
    }

    // The pose from fTz: from the rest pose up to the axis for fTz >= 0;
    // below it, down to the deepest tilt while a finger holds it.
    void PoseStep()
    {
        float tz = fTz[kPane].load();
        if (!(tz >= kTzMin)) tz = tz < 0.0f ? kTzMin : 0.0f; // NaN: 0
        if (tz > kTzMax) tz = kTzMax;
        fTz[kPane] = tz;
        if (tz >= 0.0f) {
            const float rot = tz * 10.0f + kRoamRotZ;
            fCamRotZ[kPane] = rot;
            fCamTranZ[kPane] = kRoamTranZ;
            fCamTranY[kPane] = (rot - kRoamRotZ) / kRoamRotZ * kRoamTranY + kRoamTranY;
        } else if (belasticstate.load() == 1 && bTouchUp.load() == 0) {
            float r = tz * 13.5f + kRoamRotZ;
            if (r < kTiltRotZ) r = kTiltRotZ;
            if (r > 0.0f) r = 0.0f;
            fCamRotZ[kPane] = r;
            kSpring.Between(r, fCamTranY[kPane], fCamTranZ[kPane]);
        } else {
            fCamRotZ[kPane] = kRoamRotZ;
            fCamTranZ[kPane] = kRoamTranZ;
            fCamTranY[kPane] = kRoamTranY;
            fTz[kPane] = 0.0f;
        }
    }

    bool Moving() const override { return bTouchUp.load() == 1 && fCamRotZ[kPane].load() < kRoamRotZ; }

    // Aims the perspective pane at a map point (window pixels, y down): its
    // turn is the point's direction from the map's centre, its tilt goes
    // towards the axis the nearer the point lies to the centre (at rest
    // from 1/1.8 of the half diagonal outwards). The exact centre has no
    // direction: the aim stays as it was.
    void AimFromMap(float x, float y)
    {
        const float dx = m_MapCentreX.load() - x, dy = y - m_MapCentreY.load();
        if (dx == 0.0f && dy == 0.0f) return;
        float a;
        if (dx == 0.0f)
            a = dy > 0.0f ? 360.0f : 180.0f;
        else
            a = std::atan(dy / dx) * kRadToDeg + (dx > 0.0f ? 90.0f : 270.0f);
        zAngle[kPane] = a;
        const float D = m_MapReach.load();
        const float e = std::sqrt(dx * dx + dy * dy);
        float tz = (D - 1.8f * e) * kTzMax / D;
        fTz[kPane] = tz < 0.0f ? 0.0f : tz;
    }

    // Down on the left half: aim from the map; on the right half: a finger
    // holds the perspective pane.
    void Touch(bool bDown, float x, float y) override
    {
        if (!bDown) {
            bTouchUp = 1;
            return;
        }
        const float w = float(m_nWidth.load()), h = float(m_nHeight.load());
        if (x > 0.0f && x < w / 2.0f && y > 0.0f && y < h) {
            AimFromMap(x, y);
            mCurViewIndex = kMap;
        } else if (x >= w / 2.0f && x <= w && y >= 0.0f && y <= h) {
            bTouchUp = 0;
            bLanded = 1;
            mCurViewIndex = kPane;
        }
    }

    // After a touch on the map a drag goes on aiming from it.
    void Drag(float x0, float y0, float x1, float y1) override
    {
        if (mCurViewIndex.load() == kMap) {
            AimFromMap(x1, y1);
            return;
        }
        fTz[kPane] -= (y1 - y0) * TOUCH_SCALE_FACTOR * 0.1f;
        zAngle[kPane] += (x1 - x0) * TOUCH_SCALE_FACTOR;
    }

    void Fling(float fVelX, float) override { zAngle[kPane] += FisheyeFlingTurn(fVelX, kFlingFactor, kFlingFactor, true); }

    void DoubleTap(float, float) override { bTouchUp = 1; }

    ViewProgram m_Program;
    GLint muRect = -1, muMode = -1;
    LensUniforms m_Lens;
    ViewMesh m_Quad;
    ViewPane m_Pane[2];
    // The map as touches see it: written by Project on the render thread,
    // read by touches and drags on the host's thread; single words, so a
    // touch during a resize reads the old or the new layout per word and
    // the next touch reads the new one.
    Relaxed<float> m_MapCentreX{0.0f}, m_MapCentreY{0.0f}, m_MapReach{1.0f};

    // Index kPane is the perspective pane, kMap the map (constant).
    Relaxed<float> fCamZ[2] = {kPaneCamZ, kMapCamZ};
    Relaxed<float> fCamTranZ[2];
    Relaxed<float> fCamRotZ[2];
    Relaxed<float> fCamTranY[2];
    Relaxed<float> fCamAngleZ[2]; // the turn drawn
    Relaxed<float> fTz[2];        // tilt input
    Relaxed<float> zAngle[2];     // turn input
    Relaxed<unsigned char> belasticstate{0}; // a tilt below the rest pose is allowed
    Relaxed<unsigned char> bTouchUp{1};      // 0 while a finger holds the perspective pane
    unsigned char bTouchUpPrev = 0;          // render thread
    Relaxed<unsigned char> bLanded{0};       // a finger came down on the pane since the last frame
    Relaxed<MLong> mCurViewIndex{kPane};     // kMap after a touch on the map
};

GlesRenderEffect *MakeMultiViewMap(MDWord)
{
    return new (std::nothrow) MultiViewMap();
}
