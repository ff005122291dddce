// FishEyeMode 10: a wall camera with a 180-degree lens whose circle is as
// wide as the picture, so that its top and bottom fall outside the frame.
// The lens law is orthographic: a dome vertex takes its picture point
// straight from its x and y. Wide, the dome is flattened to a disc and the
// picture is shown undistorted; as the eye goes in, the disc inflates into a
// dome and the eye passes through the rim plane to a point inside it, which
// dewarps the picture. Released pan and tilt spring back to a soft range.
#include <cmath>
#include <new>

#include "FisheyeCommon.h"
#include "MLog.h"
#include "WallCamera.h"

namespace {

// Per pixel: the point of the stretched dome (a flat disc when wide), then
// the orthographic law: the point's x and y on the unit disc are the
// picture point; the lens circle is as wide as the picture, so the
// picture's height covers 1 / aspect of the circle's: y is stretched by the
// aspect, and only the band t in 0..1 lies in the picture. The picture is
// mirrored left to right, against the mirror of the dome seen from its
// front. Black: what lies outside the picture, and outside an ellipse
// through s = 0.5 +- 0.4725 at mid-height (the lens's dark rim). One tap, as
// the plain view shows a frame: wide, this is the picture itself.
const char kFragment[] = FISHEYE_GLSL_FRAGMENT_HEAD
                         "uniform float aspect;\n" GLSL_FRAME_COLOUR FISHEYE_GLSL_DOME_HIT
                         "void main() {\n"
                         "    vec3 q;\n"
                         "    if (!domeHit(q)) discard;\n"
                         "    vec2 p = vec2(1.0 - (1.0 + q.x / 6.0) * 0.5, (1.0 + aspect * q.y / 6.0) * 0.5);\n"
                         "    vec2 d = p - 0.5;\n"
                         "    float rad = sqrt(d.x * d.x / 0.079102 + d.y * d.y / 0.25);\n"
                         "    if (abs(d.x) >= 0.5 || abs(d.y) >= 0.5 || rad > 1.6 * 1.05)\n"
                         "        gl_FragColor = vec4(0.0, 0.0, 0.0, 1.0);\n"
                         "    else\n"
                         "        gl_FragColor = frameColour(p);\n"
                         "}\n";

// The fragment stage on the processor; k[3] is the aspect.
bool LensPoint(const PaneMap &pane, const ZT5LensModel &, const PaneRay &ray, double out[2])
{
    double q[3];
    if (!DomeHitOf(ray, pane.k, q)) return false;
    const double x = 1.0 - (1.0 + q[0] / 6.0) * 0.5, y = (1.0 + pane.k[3] * q[1] / 6.0) * 0.5;
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
        const bool built = BuildStretched(kFragment);
        muAspect = m_Program.Uniform("WallOneView180", "aspect", "mAspectHandle");
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
