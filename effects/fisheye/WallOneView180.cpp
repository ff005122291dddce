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

// The picture is mirrored left to right here, against the mirror of the
// dome seen from its front. Black: what lies outside the picture, and
// outside an ellipse through s = 0.5 +- 0.4725 at mid-height (the lens's
// dark rim).
const char kFragment[] = "precision highp float;\n"
                         "varying vec2 vTextureCoord;\n"
                         "varying vec3 vPosition;\n" GLSL_FRAME_COLOUR
                         "void main() {\n"
                         "    vec2 p = vec2(1.0 - vTextureCoord.s, vTextureCoord.t);\n"
                         "    vec2 d = p - 0.5;\n"
                         "    float rad = sqrt(d.x * d.x / 0.079102 + d.y * d.y / 0.25);\n"
                         "    if (abs(d.x) >= 0.5 || abs(d.y) >= 0.5 || rad > 1.6 * 1.05)\n"
                         "        gl_FragColor = vec4(0.0, 0.0, 0.0, 1.0);\n"
                         "    else\n"
                         "        gl_FragColor = frameColour(p);\n"
                         "}\n";

const float kPinchStep = 0.029925f;
// Eye from 6.4 (wide) to -0.8 (behind the rim plane); pan 60 and tilt 32
// degrees at the closest; the disc flat when wide, 0.8 deep close.
const WallPaneConfig kConfig = {-0.8f, 6.4f, 60.0f, 32.0f, 0.5f, {1.0f, 1.0f, 0.0f}, {1.05f, 1.0f, 0.8f}};
// Where released pan and tilt spring back to, and how fast (degrees a frame).
const float kSoftAngle = 37.0f, kSoftRotX = 0.5f, kSpringStep = 0.3f;
// The picture's width over its height that the coordinates are made for
// until a frame tells (16:10).
const float kDefaultAspect = 1.6f;

// Orthographic law: the vertex's x and y on the unit disc become the
// picture point; the lens circle is as wide as the picture, so the picture's
// height covers 1 / aspect of the circle's: y is stretched by the aspect,
// and only the band t in 0..1 lies in the picture.
void OrthographicVertex(double a, double b, const DomeParams &params, float *pos, float *tex, void *user)
{
    DomeStandardVertex(a, b, params, pos, tex, nullptr);
    const double aspect = *static_cast<const float *>(user);
    tex[0] = static_cast<float>((1.0 - std::cos(b) * std::sin(a)) * 0.5);
    tex[1] = static_cast<float>((1.0 - aspect * std::cos(b) * std::cos(a)) * 0.5);
}

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
        if (UploadDome(kDefaultAspect, false) != 0) MLogInfo("[%s] WallOneView180::Initialize no mesh", MLOG_TAG);
        const bool built = BuildStretched(kFragment);
        return (!built || m_Program.aTexCoor < 0 || m_Program.uMVPMatrix < 0 || !m_Dome) ? 1 : 0;
    }

    // The coordinates for a picture of `aspect`, uploaded once a shape.
    MRESULT UploadDome(float aspect, bool update)
    {
        DomeMesh dome;
        MRESULT res = dome.Build(DomeParams(), OrthographicVertex, &aspect);
        if (res == 0) {
            if (update)
                m_Dome.UpdateTexCoords(dome.pTexCoords);
            else
                res = m_Dome.Upload(dome.pVertices, dome.pTexCoords, dome.nVertexCount, GL_TRIANGLES, GL_DYNAMIC_DRAW);
            m_fAspect = aspect;
        }
        dome.Free();
        return res;
    }

    // With no finger on the view and no move running, pan and tilt beyond
    // the soft range go back 0.3 degrees a frame.
    bool Springing() const
    {
        return bTouchReleased.load() && m_Cam.animalState.load() == 0 &&
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
        if (aspect != m_fAspect) UploadDome(aspect, true);
        DrawStretched(f);
    }

    float m_fAspect = 0.0f;
    Relaxed<unsigned char> bTouchReleased{1}; // no finger on the view
};

GlesRenderEffect *MakeWallOneView180(MDWord)
{
    return new (std::nothrow) WallOneView180();
}
