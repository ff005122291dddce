// FishEyeMode 2: the lens ring unrolled into one flat panorama strip. The
// whole 360 degrees run along the strip, the rim at the top, the centre
// towards the bottom. Four vertices; the dewarp is a polar lookup in the
// fragment shader. Sideways scroll without limit, a wide and a close
// position, inertia and cruise.
#include <cmath>
#include <new>

#include "FisheyeCommon.h"
#include "MLog.h"
#include "ViewEffect.h"

namespace {

const char kVertex[] = "uniform mat4 uMVPMatrix;\n"
                       "attribute vec4 aPosition;\n"
                       "attribute vec4 aTexCoor;\n"
                       "varying vec4 vTextureCoord;\n"
                       "void main() {\n"
                       "    gl_Position = uMVPMatrix * aPosition;\n"
                       "    vTextureCoord = aTexCoor;\n"
                       "}\n";

// The strip's s runs once round the lens (theta, shifted by the scroll
// fPt_Zm), its t from just short of 90 degrees off the axis (radius 0.4991
// of the texture with the default lens) to 18 degrees off it (0.0991), each
// row a fixed angle off the axis whose radius the lens model gives;
// fPt_L..fPt_B place the lens square.
const char kFragment[] = FISHEYE_GLSL_FRAGMENT_HEAD
                         "varying vec4 vTextureCoord;\n"
                         "uniform float fPt_Zm;\n"
                         "uniform float fPt_L;\n"
                         "uniform float fPt_R;\n"
                         "uniform float fPt_T;\n"
                         "uniform float fPt_B;\n" GLSL_FRAME_COLOUR FISHEYE_GLSL_LENS_MODEL
                         "void main() {\n"
                         "    float s = 1.0 - vTextureCoord.s;\n"
                         "    float t = 0.00179 + vTextureCoord.t * 0.8;\n"
                         "    float theta = 1.5708 - 6.2832 * s + fPt_Zm;\n"
                         "    float dr = 0.5 * lensRadius(1.5708 * (1.0 - t));\n"
                         "    bool seen = lensSees(1.5708 * (1.0 - t));\n"
                         "    vec2 p = vec2(fPt_L + (fPt_R - fPt_L) * (dr * cos(theta) + 0.5),\n"
                         "                  fPt_T + (fPt_B - fPt_T) * (dr * sin(theta) + 0.5));\n"
                         "    if (!seen || p.x < 0.0 || p.x > 1.0 || p.y < 0.0 || p.y > 1.0)\n"
                         "        gl_FragColor = vec4(0.0, 0.0, 0.0, 1.0);\n"
                         "    else\n"
                         "        gl_FragColor = lensColour(p);\n"
                         "}\n";

// Strip half extents in world units: at the close position (eye 1.15 from
// the strip) the strip fills the window's height, at the wide one (2.0) 57.5 %.
const float kHalfWidth = 6.0f, kHalfHeight = 1.15f;
const float kNear = 1.0f, kFar = 20.0f;

// The fragment stage on the processor: the ray meets the strip's plane
// z = 0 within its rectangle, whose texture coordinates run 0..1 from left
// to right and from the top down; k[0] is the scroll as the shader has it.
bool LensPoint(const PaneMap &pane, const ZT5LensModel &model, const PaneRay &r, double p[2])
{
    if (r.d[2] == 0.0) return false;
    const double v = -r.o[2] / r.d[2];
    const double X = r.o[0] + v * r.d[0], Y = r.o[1] + v * r.d[1];
    if (std::fabs(X) > kHalfWidth || std::fabs(Y) > kHalfHeight) return false;
    const double s = 1.0 - (X + kHalfWidth) / (2.0 * kHalfWidth);
    const double t = 0.00179 + (kHalfHeight - Y) / (2.0 * kHalfHeight) * 0.8;
    const double theta = 1.5708 - 6.2832 * s + pane.k[0];
    const LensAsDrawn lens(model);
    const double dr = 0.5 * lens.Radius(1.5708 * (1.0 - t));
    p[0] = dr * std::cos(theta) + 0.5;
    p[1] = dr * std::sin(theta) + 0.5;
    return lens.Sees(1.5708 * (1.0 - t)) && p[0] >= 0.0 && p[0] <= 1.0 && p[1] >= 0.0 && p[1] <= 1.0;
}
// Gesture factors: scroll per window pixel of a drag (radians), per unit of
// release velocity, per cruising frame; the pinch's step on fTz.
const float kMoveFactor = 0.02f;
const double kVelocityFactor = 0.00012375;
const float kCruiseStep = 0.0021375f;
const float kPinchStep = 0.03375f;
// Two-position zoom: fTz from wide (kZoomMax) to close (kZoomMin), 0.02 a
// frame, 43 frames from end to end.
const float kZoomMin = -0.85f, kZoomMax = 0.0f;
const double kZoomStep = 0.02;
const float kStartMove = 2.035f;

} // namespace

extern const ViewTraits kCylinderSideTraits = {LensBox::Square, false, false, false, true};

class CylinderSide final : public ViewEffect {
public:
    CylinderSide() : ViewEffect("CylinderSide", kCylinderSideTraits)
    {
        m_Pinch = {&fTz, kPinchStep};
        FECurrentStatusData &d = m_FECurrentStatusData;
        SaveFields({{xMove, d.xMove},
                    {fTz, d.fTz[0]},
                    {mfZoom, d.mfZoom},
                    {m_Zoom.maxState, d.maxState},
                    SavedField::SaveOnly(m_Zoom.maxMinInit, d.maxMinInit),
                    {mCruiseState, d.mCruiseState},
                    {mCruiseVelocity, d.mCruiseVelocity}});
    }

private:
    MRESULT Build() override
    {
        const float v[12] = {-kHalfWidth, -kHalfHeight, 0, kHalfWidth, -kHalfHeight, 0,
                             -kHalfWidth, kHalfHeight,  0, kHalfWidth, kHalfHeight,  0};
        const float t[8] = {0, 1, 1, 1, 0, 0, 1, 0};
        if (m_Strip.Upload(v, t, 4, GL_TRIANGLE_STRIP) != 0)
            MLogInfo("[%s] CylinderSide::Initialize no vertex buffer", MLOG_TAG);
        m_Program.Build("CylinderSide", kVertex, kFragment);
        const char *where = "CylinderSide::Init_shader";
        muZoom = m_Program.Uniform(where, "fPt_Zm", "mnZoom");
        m_Lens.Find(m_Program, where);
        // The lens square fills the texture: these never change.
        const struct {
            const char *name, *handle;
            float value;
        } box[4] = {{"fPt_L", "mnLeft", 0.0f}, {"fPt_R", "mnRight", 1.0f}, {"fPt_T", "mnTop", 0.0f},
                    {"fPt_B", "mnBottom", 1.0f}};
        m_Program.Use();
        for (const auto &b : box) glUniform1f(m_Program.Uniform(where, b.name, b.handle), b.value);
        return 0; // the strip draws whatever it has
    }

    void Project(MLong, MLong) override { m_Camera.setProjectFrustum(-mWndRatio, mWndRatio, -1.0f, 1.0f, kNear, kFar); }

    // The double tap's move (or, settled, the end the pinch has reached
    // becomes the settled one), the cruise, the clamp.
    void StepCamera() override
    {
        m_Zoom.Step(fTz, kZoomMin, kZoomMax, kZoomStep);
        if (Cruising()) xMove -= kCruiseStep;
        const float z = fTz.load();
        if (z < kZoomMin) fTz = kZoomMin;
        if (z > kZoomMax) fTz = kZoomMax;
        mfZoom = -xMove.load();
    }

    // The eye looks at the strip's centre from fTz + 2 in front of it.
    void Draw(const Frame &f) override
    {
        auto camera = [&](RotTranMatrix &m) { m.setLookAt(0.0f, 0.0f, fTz.load() + 2.0f, 0, 0, 0, 0, 1, 0); };
        auto uniforms = [&] {
            glUniform1f(muZoom, mfZoom.load());
            m_Lens.Send(m_LensModel, m_nLensGeneration, f.videoWidth, f.videoHeight);
        };
        DrawPass(m_Camera, camera, m_Program, m_Strip, f.sampling, uniforms);
        MapPane(0, 0, 0, GLint(f.viewportWidth), GLint(f.viewportHeight), m_Camera, LensPoint, {mfZoom.load()});
    }

    bool Moving() const override { return m_Zoom.Moving(); }

    void Drag(float x0, float, float x1, float) override { xMove += (x1 - x0) * TOUCH_SCALE_FACTOR * kMoveFactor; }
    void Fling(float fVelX, float) override
    {
        xMove = static_cast<float>(static_cast<double>(xMove.load()) + static_cast<double>(fVelX) * kVelocityFactor);
    }
    void DoubleTap(float, float) override { m_Zoom.OnDoubleClick(); }
    // A restored view comes back settled where its zoom stands.
    void Restored(const FECurrentStatusData &) override { m_Zoom.Settle(); }

    ViewProgram m_Program;
    GLint muZoom = -1;
    LensUniforms m_Lens;
    ViewMesh m_Strip;
    RotTranMatrix m_Camera = {};

    Relaxed<float> xMove{kStartMove}; // scroll, radians; the picture repeats every 2 pi
    Relaxed<float> mfZoom{1.035f};    // -xMove as the shader takes it
    Relaxed<float> fTz{0.0f};         // eye offset: 0 wide, kZoomMin close
    TwoPositionZoom m_Zoom;
};

GlesRenderEffect *MakeCylinderSide(MDWord)
{
    return new (std::nothrow) CylinderSide();
}
