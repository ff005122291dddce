// FishEyeMode 9: a wall camera's dome as one full-window pane. Wide, the
// whole dome is in the window, its top and bottom caps blacked out; a double
// tap or a pinch moves the eye in, and a drag then looks around within
// limits that open as the eye comes closer. The dome is stretched along x
// and z with the eye distance. Cruise zooms in, then swings left and right.
#include <new>

#include "FisheyeCommon.h"
#include "MLog.h"
#include "ViewEffect.h"
#include "WallCamera.h"

namespace {

// Per pixel: the point of the stretched dome, then the lens model, s sign +,
// t sign -. The caps: two planes through the stretched dome (q is the
// point there), fixed to it before any camera motion, so that the black
// edges move with the picture.
const char kFragment[] = FISHEYE_GLSL_FRAGMENT_HEAD
                         "uniform float frad;\n" GLSL_FRAME_COLOUR FISHEYE_GLSL_LENS_LAW FISHEYE_GLSL_DOME_HIT
                         "void main() {\n"
                         "    vec3 p;\n"
                         "    if (!domeHit(p)) discard;\n"
                         "    vec3 q = p * domeScale;\n"
                         "    if (0.8 * q.z + q.y > 4.8 || 0.8 * q.z - q.y > 4.8) {\n"
                         "        gl_FragColor = vec4(0.0, 0.0, 0.0, 1.0);\n"
                         "        return;\n"
                         "    }\n"
                         "    vec2 at;\n"
                         "    if (!domeLens(p, frad, vec2(1.0, -1.0), at)) discard;\n"
                         "    gl_FragColor = lensColour(at);\n"
                         "}\n";

// The fragment stage on the processor.
bool LensPoint(const PaneMap &pane, const ZT5LensModel &model, const PaneRay &ray, double out[2])
{
    DomePoint d(model);
    if (!d.Hit(ray, pane.k)) return false;
    const float *s = pane.k;
    const double *p = d.p;
    const double qy = p[1] * s[1], qz = p[2] * s[2];
    if (0.8 * qz + qy > 4.8 || 0.8 * qz - qy > 4.8) return false; // the black caps
    AboutLookupOf(d.about, d.lens.LatitudeRadius(d.t, pane.k[3]), 1.0, -1.0, out);
    return true;
}

const float kPinchStep = 0.115425f;
// Eye from 6 (wide) to 3 (close); pan 32 and tilt 26 degrees at the closest;
// the dome 1.25 deep and 1.0 wide when wide, 0.7 deep and 1.05 wide close.
const WallPaneConfig kConfig = {3.0f, 6.0f, 32.0f, 26.0f, 0.2f, {1.0f, 1.0f, 1.25f}, {1.05f, 1.0f, 0.7f}};

} // namespace

extern const ViewTraits kWallOneViewTraits = {LensBox::Square, false, false, false, true};

class WallOneView final : public WallPaneView {
public:
    WallOneView() : WallPaneView("WallOneView", kWallOneViewTraits, kConfig, kPinchStep) {}

private:
    MRESULT Build() override
    {
        const bool built = BuildStretched(kFragment) && m_Lens.Find(m_Program, "WallOneView");
        const GLint rad = m_Program.Uniform("WallOneView", "frad", "mRadHandle");
        m_Program.Use();
        glUniform1f(rad, kFisheyeLensRadius);
        return (!built || rad < 0) ? 1 : 0;
    }

    void Draw(const Frame &f) override { DrawStretched(f, LensPoint, kFisheyeLensRadius); }
};

GlesRenderEffect *MakeWallOneView(MDWord)
{
    return new (std::nothrow) WallOneView();
}
