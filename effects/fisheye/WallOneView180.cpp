// FishEyeMode 10: a wall camera with a lens whose circle is as wide as the
// picture, so that its top and bottom fall outside the frame. Wide, the
// dome is flattened to a disc and the picture is shown undistorted; as the
// eye goes in, the disc inflates into a dome and the eye passes through the
// rim plane to a point inside it, which dewarps the picture. Released pan
// and tilt spring back to a soft range.
//
// The lens: this view was made for a 180-degree orthographic lens (a dome
// point takes its picture point straight from its x and y), and that is
// what it draws with while the host has set no lens model (the record reads
// back as all zeros, the initial value). A host that sets a model is taken
// at its word: the view then draws through that law over that field of view
// on its own circle, as wide as the picture, like every other view draws
// through it on the lens circle. An equidistant 180-degree record set on
// purpose is thus equidistant here, not this view's orthographic default;
// writing back the all-zero record returns to the default.
#include <cmath>
#include <cstring>
#include <new>

#include "FisheyeCommon.h"
#include "MLog.h"
#include "WallCamera.h"

namespace {

// Per pixel: the point q of the stretched dome (a flat disc when wide),
// then the lens model: the fraction R of the circle's radius at which q's
// direction lands (lensRadiusDir: for the default orthographic law R is
// |q.xy| / 6, so the picture point is q's x and y on the unit disc), in
// q's direction about the axis. The lens circle is as wide as the picture,
// so the picture's height covers 1 / aspect of the circle's: y is stretched
// by the aspect, and only the band t in 0..1 lies in the picture. The
// picture is mirrored left to right, against the mirror of the dome seen
// from its front. Black: what lies outside the picture, and outside an
// ellipse through s = 0.5 +- 0.4725 at mid-height (the lens's dark rim);
// where the lens sees nothing, the background. One tap (the view never
// builds the footprint sampler), as the plain view shows a frame: wide,
// this is the picture itself; the faces over it as every view has them.
const char kFragment[] = FISHEYE_GLSL_FRAGMENT_HEAD
                         "uniform float aspect;\n" GLSL_FRAME_COLOUR FISHEYE_GLSL_LENS_MODEL FISHEYE_GLSL_DOME_HIT
                         "void main() {\n"
                         "    vec3 q;\n"
                         "    if (!domeHit(q)) discard;\n"
                         "    float r = length(q.xy), c = -q.z / 6.0;\n"
                         "    if (!lensSeesDir(c)) discard;\n"
                         "    float k = r > 0.0 ? 0.5 * lensRadiusDir(r / 6.0, c) / r : 0.0;\n"
                         "    vec2 p = vec2(0.5 - k * q.x, 0.5 + aspect * k * q.y);\n"
                         "    vec2 d = p - 0.5;\n"
                         "    float rad = sqrt(d.x * d.x / 0.079102 + d.y * d.y / 0.25);\n"
                         "    if (abs(d.x) >= 0.5 || abs(d.y) >= 0.5 || rad > 1.6 * 1.05)\n"
                         "        gl_FragColor = vec4(0.0, 0.0, 0.0, 1.0);\n"
                         "    else\n"
                         "        gl_FragColor = lensColour(p);\n"
                         "}\n";

// The fragment stage on the processor; k[3] is the aspect. The dome point
// is 6 from the centre: its sine and cosine off the axis are |q.xy| / 6 and
// -q.z / 6.
bool LensPoint(const PaneMap &pane, const ZT5LensModel &model, const PaneRay &ray, double out[2])
{
    double q[3];
    if (!DomeHitOf(ray, pane.k, q)) return false;
    const double r = std::hypot(q[0], q[1]), theta = std::atan2(r / 6.0, -q[2] / 6.0);
    const LensAsDrawn lens(model);
    if (!lens.Sees(theta)) return false;
    const double k = r > 0.0 ? 0.5 * lens.Radius(theta) / r : 0.0;
    const double x = 0.5 - k * q[0], y = 0.5 + pane.k[3] * k * q[1];
    const double dx = x - 0.5, dy = y - 0.5;
    const double rad = std::sqrt(dx * dx / 0.079102 + dy * dy / 0.25);
    if (std::fabs(dx) >= 0.5 || std::fabs(dy) >= 0.5 || rad > 1.6 * 1.05) return false;
    out[0] = x, out[1] = y;
    return true;
}

const float kPinchStep = 0.029925f;
// Eye from 6.4 (wide) to -0.8 (behind the rim plane); pan 60 and tilt 32
// degrees at the closest; the disc flat when wide, 0.8 deep close.
const WallPaneConfig kConfig = {-0.8f, 6.4f, 60.0f, 32.0f, 0.5f, {1.0f, 1.0f, 0.0f}, {1.05f, 1.0f, 0.8f}};
// Where released pan and tilt spring back to, and how fast (degrees a frame).
const float kSoftAngle = 37.0f, kSoftRotX = 0.5f, kSpringStep = 0.3f;
// The picture's width over its height that the coordinates are made for
// until a frame tells (16:10).
const float kDefaultAspect = 1.6f;

} // namespace

extern const ViewTraits kWallOneView180Traits = {LensBox::Rectangle, false, false, false, true};

class WallOneView180 final : public WallPaneView {
public:
    WallOneView180() : WallPaneView("WallOneView180", kWallOneView180Traits, kConfig, kPinchStep) {}

    void OnTouchDown(float x, float y) override
    {
        WallPaneView::OnTouchDown(x, y);
        if (x >= 0.0f && x <= float(m_nWidth.load()) && y >= 0.0f && y <= float(m_nHeight.load()))
            bTouchReleased = 0;
    }

private:
    MRESULT Build() override
    {
        const bool built = BuildStretched(kFragment) && m_Lens.Find(m_Program, "WallOneView180");
        muAspect = m_Program.Uniform("WallOneView180", "aspect", "mAspectHandle");
        m_fAspect = 0.0f; // a program built again (another layout or law) has none yet
        return (!built || muAspect < 0 || m_Program.aTexCoor < 0 || m_Program.uMVPMatrix < 0) ? 1 : 0;
    }

    // With no finger on the view and no move running, pan and tilt beyond
    // the soft range go back 0.3 degrees a frame.
    bool Springing() const
    {
        return bTouchReleased.load() && m_Cam.zoom.animalState.load() == 0 &&
               (std::fabs(m_Cam.zAngle.load()) >= kSoftAngle + kSpringStep ||
                std::fabs(m_Cam.fCamRotX.load()) >= kSoftRotX + kSpringStep);
    }
    void BeforeStep() override
    {
        if (!Springing()) return;
        auto back = [](Relaxed<float> &v, float soft) {
            const float now = v.load();
            if (std::fabs(now) >= soft + kSpringStep) v = now > 0.0f ? now - kSpringStep : now + kSpringStep;
        };
        back(m_Cam.zAngle, kSoftAngle);
        back(m_Cam.fCamRotX, kSoftRotX);
        m_Cam.LimitCamera();
    }
    // No model set: the orthographic 180-degree lens the view was made for.
    ZT5LensModel DrawnLens() const override
    {
        static const ZT5LensModel kUnset = {0, 0.0f, {0.0f, 0.0f, 0.0f, 0.0f}};
        if (std::memcmp(&m_LensModel, &kUnset, sizeof kUnset) != 0) return m_LensModel;
        return {ZT5_LENS_ORTHOGRAPHIC, 180.0f, {0.0f, 0.0f, 0.0f, 0.0f}};
    }
    // One tap everywhere: the view samples the frame as it stands.
    bool MayShrink(const Frame &) const override { return false; }

    bool Moving() const override { return WallPaneView::Moving() || (!Cruising() && Springing()); }
    void Touch(bool bDown, float, float) override
    {
        if (!bDown) bTouchReleased = 1;
    }

    void Draw(const Frame &f) override
    {
        // The lens box is the circle's width by the picture's height.
        const float aspect = f.videoWidth > 0 && f.videoHeight > 0 ? float(f.videoWidth) / float(f.videoHeight)
                                                                   : kDefaultAspect;
        m_Program.Use();
        if (aspect != m_fAspect) {
            glUniform1f(muAspect, aspect);
            m_fAspect = aspect;
        }
        DrawStretched(f, LensPoint, aspect);
    }

    GLint muAspect = -1;
    float m_fAspect = 0.0f; // the aspect the program has (render thread)
    Relaxed<unsigned char> bTouchReleased{1}; // no finger on the view
};

GlesRenderEffect *MakeWallOneView180(MDWord)
{
    return new (std::nothrow) WallOneView180();
}
