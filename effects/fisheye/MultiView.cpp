// FishEyeMode 3: four panes, each a perspective view from inside the bowl
// with a camera of its own, facing four directions a quarter turn apart. A
// double click brings the pane under it to the whole window and a second one
// returns to the grid. A drag turns and tilts the pane under the finger (the
// zoomed pane when zoomed); cruise and inertia are per pane. No animation:
// every gesture takes effect at the next draw.
#include <cmath>
#include <new>

#include "FisheyeCommon.h"
#include "MLog.h"
#include "ViewEffect.h"

namespace {

// Per pixel: the dome point the pane sees, then the lens model narrowed
// towards the zenith by (1 - 0.2 t) at its latitude t (the bowl law of this
// view); fratio is 0 in every draw. Signs (+, -): the picture is turned half
// a turn against the half sphere's at equal angles.
const char kFragment[] = FISHEYE_GLSL_FRAGMENT_HEAD
                         "uniform float frad;\n"
                         "uniform float fratio;\n" GLSL_FRAME_COLOUR FISHEYE_GLSL_LENS_LAW FISHEYE_GLSL_DOME_HIT
                         "void main() {\n"
                         "    vec3 p;\n"
                         "    if (!domeHit(p)) discard;\n"
                         "    float t = domeLatitude(p);\n"
                         "    if (!lensSees(1.570795 - t)) discard;\n"
                         "    float ftmp = (0.8 - 1.0) * t + 1.0 + fratio;\n"
                         "    float fir = ftmp * fisheyeLatitudeRadius(t, frad);\n"
                         "    gl_FragColor = lensColour(fisheyeAboutLookup(domeAbout(p), fir, 1.0, -1.0));\n"
                         "}\n";

// The fragment stage on the processor; k[0] is the lens radius.
bool LensPoint(const PaneMap &pane, const ZT5LensModel &model, const PaneRay &ray, double out[2])
{
    static const float kUnscaled[3] = {1.0f, 1.0f, 1.0f};
    DomePoint d(model);
    if (!d.Hit(ray, kUnscaled)) return false;
    const double ftmp = (0.8 - 1.0) * d.t + 1.0;
    AboutLookupOf(d.about, ftmp * d.lens.LatitudeRadius(d.t, pane.k[0]), 1.0, -1.0, out);
    return true;
}

const float kNear = 1.5f, kFar = 25.0f;
const float kCamZ = 2.0f; // eye distance of every pane
// The pose of a pane at fTz 0: looking sideways from inside the bowl. fTz
// runs from 0 to kBaseRotZ / -10, where the tilt and both shifts reach 0 and
// the pane looks straight down the axis.
const float kBaseRotZ = -55.0705986f;
const float kBaseTranY = 2.20720005f;
const float kBaseTranZ = 1.03999317f;
const float kTzMax = kBaseRotZ / -10.0f;
// The turn of each pane at zAngle 0: a quarter turn apart.
const float kPaneOffset[4] = {180.0f, 270.0f, 0.0f, 90.0f};
// Gestures: tilt per unit of vertical drag; inertia per unit of velocity,
// in degrees / 1000 (the two directions differ); cruise per drawn pane.
const float kTiltFactor = 0.2f;
const float kFlingUp = 6.0750003f, kFlingDown = 4.86f;
const float kCruiseStep = 0.043269236f;

} // namespace

extern const ViewTraits kMultiViewTraits = {LensBox::Square, false, false, false, true};

class MultiView final : public ViewEffect {
public:
    MultiView() : ViewEffect("MultiView", kMultiViewTraits)
    {
        m_CruiseEnd = kCruiseEndsNever; // a touch stops only its own pane
        FECurrentStatusData &d = m_FECurrentStatusData;
        for (int i = 0; i < 4; i++)
            SaveFields({SavedField::Checked(zAngle[i], d.zAngle[i], 0.0f), SavedField::Checked(fTz[i], d.fTz[i], 0.0f),
                        SavedField::Checked(fCamRotZ[i], d.fCamRotZ[i], kBaseRotZ),
                        SavedField::Checked(fCamTranZ[i], d.fCamTranZ[i], kBaseTranZ),
                        SavedField::Checked(fCamTranY[i], d.fCamTranY[i], kBaseTranY),
                        {bIsAutoTouring[i], d.bIsAutoTouring[i]}});
        SaveFields({{viewBigIndex, d.viewBigIndex},
                    {bIsZoom, d.bIsZoom},
                    {mCurViewIndex, d.mCurViewIndex},
                    {mCruiseState, d.mCruiseState},
                    SavedField::Checked(mCruiseVelocity, d.mCruiseVelocity, 1.0f)});
    }

    // The host's cruise switch (and the switch to this view) arms or stops
    // every pane.
    void SetFishEyeCruiseState(MLong state, float fVelocity) override
    {
        ViewEffect::SetFishEyeCruiseState(state, fVelocity);
        for (auto &t : bIsAutoTouring) t = state != 0 ? 1 : 0;
        UpdateAnyTouring();
    }
    MLong GetFishEyeCruiseState() override { return bIsAnyTouring.load() ? 1 : 0; }

private:
    MRESULT Build() override
    {
        UploadRayQuad(m_Quad);
        const int failures = m_Program.Build("MultiView", FISHEYE_GLSL_RAY_VERTEX, kFragment);
        const GLint rad = m_Program.Uniform("MultiView", "frad", "mRadHandle");
        const GLint ratio = m_Program.Uniform("MultiView", "fratio", "maRatioHandle");
        const GLint dome = m_Program.Uniform("MultiView", "domeScale", "mDomeScaleHandle");
        if (failures || rad < 0 || ratio < 0 || dome < 0 || !m_Lens.Find(m_Program, "MultiView")) return -1;
        m_Program.Use();
        glUniform1f(rad, kFisheyeLensRadius);
        glUniform1f(ratio, 0.0f);
        glUniform3f(dome, 1.0f, 1.0f, 1.0f);
        return m_Quad ? 0 : 3;
    }

    // Each pane's frustum has the window's proportions, which are also the
    // pane's in the grid (half the width by half the height) and when
    // zoomed: a pane is never stretched, and one projection serves both.
    void Project(MLong w, MLong h) override
    {
        const GLint w2 = GLint(w / 2), h2 = GLint(h / 2);
        m_Pane[0].SetViewport(0, 0, w2, h2);
        m_Pane[1].SetViewport(0, h2, w2, h2);
        m_Pane[2].SetViewport(w2, h2, w2, h2);
        m_Pane[3].SetViewport(w2, 0, w2, h2);
        for (ViewPane &p : m_Pane) p.camera.setProjectFrustum(-mWndRatio, mWndRatio, -1.0f, 1.0f, kNear, kFar);
    }

    // Every pane's pose and turn are brought in range, the hidden ones too
    // (gestures and restores write them from the host's thread). The cruise
    // runs as the panes are drawn: its steps count drawn panes.
    void StepCamera() override
    {
        for (int i = 0; i < 4; i++) {
            Pose(i);
            zAngle[i] = FisheyeWrapTurn(zAngle[i].load());
        }
    }

    void Draw(const Frame &f) override
    {
        if (bIsZoom.load()) {
            const int i = PaneIndex(viewBigIndex.load());
            glViewport(0, 0, GLsizei(f.viewportWidth), GLsizei(f.viewportHeight));
            DrawPane(i, f);
            MapPane(i, 0, 0, GLint(f.viewportWidth), GLint(f.viewportHeight), m_Pane[i].camera, LensPoint,
                    {kFisheyeLensRadius});
        } else {
            for (int i = 0; i < 4; i++) {
                const ViewPane &p = m_Pane[i];
                p.Apply();
                DrawPane(i, f);
                MapPane(i, p.x, p.y, p.width, p.height, p.camera, LensPoint, {kFisheyeLensRadius});
            }
        }
    }

    void PaneCamera(int i, RotTranMatrix &m) const
    {
        FisheyeBowlView(m, kCamZ, fCamRotZ[i].load(), fCamTranY[i].load(), fCamTranZ[i].load());
        RotTranMatrix::rotate(m.mVMatrix, zAngle[i].load() + kPaneOffset[i], 0.0f, 0.0f, 1.0f);
    }

    void DrawPane(int i, const Frame &f)
    {
        if (Cruising()) CruiseStep();
        auto camera = [&](RotTranMatrix &m) { PaneCamera(i, m); };
        DrawPass(m_Pane[i].camera, camera, m_Program, m_Quad, f.sampling, [&] {
            SendRayMatrix(m_Program, m_Pane[i].camera);
            m_Lens.Send(m_LensModel, m_nLensGeneration, f.videoWidth, f.videoHeight);
        });
    }

    // The enlarged pane, or the pane whose centre shows the frame point
    // nearest the target.
    int AimPane(const ViewMap &map, double fx, double fy) const override
    {
        int best = -1;
        double nearest = HUGE_VAL;
        for (int s = 0; s < map.paneCount; s++) {
            double cx, cy;
            if (!map.PaneCentre(s, &cx, &cy)) continue;
            const double d = std::hypot(cx - fx, cy - fy);
            if (d < nearest) nearest = d, best = s;
        }
        return best;
    }

    // The pose from the tilt input: sideways at 0, straight down the axis at
    // kTzMax; below 0 the pane returns to the base pose.
    void Pose(int i)
    {
        float tz = fTz[i].load();
        if (!(tz >= 0.0f)) {
            fCamRotZ[i] = kBaseRotZ;
            fCamTranZ[i] = kBaseTranZ;
            fCamTranY[i] = kBaseTranY;
            fTz[i] = 0.0f;
            return;
        }
        if (tz > kTzMax) fTz[i] = tz = kTzMax;
        const float rot = tz * 10.0f + kBaseRotZ;
        const float q = (rot - kBaseRotZ) / kBaseRotZ; // 0 .. -1
        fCamRotZ[i] = rot;
        fCamTranZ[i] = kBaseTranZ * q + kBaseTranZ;
        fCamTranY[i] = kBaseTranY * q + kBaseTranY;
    }

    // One step of every touring pane, run once per drawn pane: in the grid
    // a pane turns four steps a frame, zoomed one (hidden panes too).
    void CruiseStep()
    {
        const float step = mCruiseVelocity.load() * kCruiseStep;
        for (int k = 0; k < 4; k++)
            if (bIsAutoTouring[k].load()) zAngle[k] = FisheyeWrapTurn(zAngle[k].load() + step);
        UpdateAnyTouring();
    }

    bool CruiseMoving() const override
    {
        if (!Cruising()) return false;
        for (const auto &t : bIsAutoTouring)
            if (t.load()) return true;
        return false;
    }

    // What the host hears: a cruise runs while it is on and some pane takes
    // part (a restored record may carry touring flags with the cruise off:
    // nothing turns then, and none is reported).
    void UpdateAnyTouring()
    {
        bIsAnyTouring = Cruising() && (bIsAutoTouring[0].load() | bIsAutoTouring[1].load() |
                                       bIsAutoTouring[2].load() | bIsAutoTouring[3].load()) != 0;
    }

    // A pane index as stored (a restore clamps it; a gesture may race it).
    static int PaneIndex(MLong i) { return i < 0 ? 0 : (i > 3 ? 3 : int(i)); }

    // The pane under a window point (y down): left half 0 (bottom) and 1
    // (top), right half 2 (top) and 3 (bottom); lower bounds exclusive,
    // upper inclusive; -1 outside the window or on its left or top edge.
    int PaneAt(float x, float y) const
    {
        const float w = float(m_nWidth.load()), h = float(m_nHeight.load());
        const float w2 = float(m_nWidth.load() / 2), h2 = float(m_nHeight.load() / 2);
        if (!(x > 0.0f && x <= w && y > 0.0f && y <= h)) return -1;
        const bool left = x <= w2, top = y <= h2;
        if (left) return top ? 1 : 0;
        return top ? 2 : 3;
    }

    void Touch(bool bDown, float x, float y) override
    {
        if (!bDown) return;
        const int i = PaneAt(x, y);
        if (i >= 0) bIsAutoTouring[i] = 0;
        UpdateAnyTouring();
    }

    // Turn by the horizontal motion (twice as fast in the grid), tilt by
    // the vertical; the pane under the finger now, the zoomed pane always.
    void Drag(float x0, float y0, float x1, float y1) override
    {
        const float dx = x1 - x0;
        const float dt = -(y1 - y0) * TOUCH_SCALE_FACTOR * kTiltFactor;
        int i;
        float turn;
        if (bIsZoom.load()) {
            i = PaneIndex(viewBigIndex.load());
            turn = dx * TOUCH_SCALE_FACTOR;
        } else {
            i = PaneAt(x1, y1);
            turn = 2.0f * dx * TOUCH_SCALE_FACTOR;
        }
        if (i >= 0) {
            mCurViewIndex = i;
            bIsAutoTouring[i] = 0;
            zAngle[i] += turn;
            fTz[i] += dt;
        }
        UpdateAnyTouring();
    }

    void Fling(float fVelX, float) override
    {
        const int i = PaneIndex(mCurViewIndex.load());
        zAngle[i] += FisheyeFlingTurn(fVelX, kFlingUp, kFlingDown);
        bIsAutoTouring[i] = 0;
        UpdateAnyTouring();
    }

    // Zoom to the pane under the point (outside every pane: the one zoomed
    // last), or back to the grid.
    void DoubleTap(float x, float y) override
    {
        if (bIsZoom.load()) {
            bIsZoom = 0;
            return;
        }
        const int i = PaneAt(x, y);
        if (i >= 0) viewBigIndex = i;
        mCurViewIndex = PaneIndex(viewBigIndex.load());
        bIsZoom = 1;
    }

    // Pane indices from a record index four panes: out of range they are
    // clamped. The touring summary follows the restored flags.
    void Restored(const FECurrentStatusData &) override
    {
        viewBigIndex = PaneIndex(viewBigIndex.load());
        mCurViewIndex = PaneIndex(mCurViewIndex.load());
        UpdateAnyTouring();
    }

    ViewProgram m_Program;
    LensUniforms m_Lens;
    ViewMesh m_Quad;
    ViewPane m_Pane[4];

    Relaxed<float> zAngle[4];    // turn of each pane, degrees, 0..360
    Relaxed<float> fTz[4];       // tilt input of each pane, 0..kTzMax
    Relaxed<float> fCamRotZ[4];  // the pose worked out from fTz
    Relaxed<float> fCamTranZ[4];
    Relaxed<float> fCamTranY[4];
    Relaxed<unsigned char> bIsAutoTouring[4]; // the pane takes part in cruise
    Relaxed<unsigned char> bIsAnyTouring{0};
    Relaxed<unsigned char> bIsZoom{0};        // one pane fills the window
    Relaxed<MLong> viewBigIndex{0};           // that pane
    Relaxed<MLong> mCurViewIndex{0};          // pane of the last gesture; inertia goes there
};

GlesRenderEffect *MakeMultiView(MDWord)
{
    return new (std::nothrow) MultiView();
}
