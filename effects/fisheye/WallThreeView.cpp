// FishEyeMode 7: a wall camera's picture in three fixed panes: a panorama
// across the lower half of the window and, above it, a dome view of the left
// wall and one of the right wall, with gaps of two pixels between them. No
// gestures, no cruise; the only input is the window's size.
#include <cmath>
#include <new>

#include "FisheyeCommon.h"
#include "MLog.h"
#include "ViewEffect.h"
#include "WallCamera.h"

namespace {

// The side panes, per pixel: the dome (depth squeezed to 0.97) through the
// lens model, s sign -, t sign +.
const char kDomeFragment[] = FISHEYE_GLSL_FRAGMENT_HEAD
                             "uniform float frad;\n" GLSL_FRAME_COLOUR FISHEYE_GLSL_LENS_LAW FISHEYE_GLSL_DOME_HIT
                             "void main() {\n"
                             "    vec3 p;\n"
                             "    if (!domeHit(p)) discard;\n"
                             "    vec2 at;\n"
                             "    if (!domeLens(p, frad, vec2(-1.0, 1.0), at)) discard;\n"
                             "    gl_FragColor = lensColour(at);\n"
                             "}\n";

// The panorama: an equirectangular unwrap of the lens per pixel. (s, t) of
// the rectangle become latitude and longitude on the unit sphere, z along
// the lens axis; the direction's angle off the axis gives the radius by the
// lens model (0.5 at half its field of view, the rim), its angle about the axis
// the direction in the picture. A lens wider than 180 degrees shows the
// part of the sphere behind the lens plane too.
const char kPanoramaFragment[] = FISHEYE_GLSL_FRAGMENT_HEAD
                                 "varying vec2 vTextureCoord;\n" GLSL_FRAME_COLOUR FISHEYE_GLSL_LENS_MODEL
                                 "void main() {\n"
                                 "    float latitude = 3.1415927 * vTextureCoord.s;\n"
                                 "    float longitude = 3.1415927 * (1.0 - vTextureCoord.t);\n"
                                 "    vec3 d = vec3(-sin(latitude) * cos(longitude), cos(latitude),\n"
                                 "                  sin(latitude) * sin(longitude));\n"
                                 "    float phi = atan(d.y, d.x) + 3.1415927;\n"
                                 "    float theta = acos(clamp(d.z, -1.0, 1.0));\n"
                                 "    if (!lensSees(theta)) discard;\n"
                                 "    float p = 0.5 * lensRadius(theta);\n"
                                 "    gl_FragColor = lensColour(vec2(p * cos(phi) + 0.5, p * sin(phi) + 0.5));\n"
                                 "}\n";

// The panorama on the processor: the rectangle's plane z = 0, its
// coordinates 0..1 from left to right and from the bottom up.
bool PanoramaLensPoint(const PaneMap &, const ZT5LensModel &model, const PaneRay &r, double out[2]);

const float kDomeNear = 1.5f, kDomeFar = 25.0f;
const float kCamZ = 2.0f;
const float kViewLimit = 50.4f;   // how far the side panes look left and right
const float kDepthGain = 1.0486f; // their forward shift at that pan
// The panorama's rectangle, 3.3 by 2, seen through a 1.8 window at 1.0:
// about 162 degrees of longitude across and 98 of latitude up.
const float kHalfWidth = 1.65f, kHalfHeight = 1.0f, kPanoramaWindow = 0.9f;

enum { kLeft = 0, kPanorama = 1, kRight = 2 };

bool PanoramaLensPoint(const PaneMap &, const ZT5LensModel &model, const PaneRay &r, double out[2])
{
    if (r.d[2] == 0.0) return false;
    const double v = -r.o[2] / r.d[2];
    const double X = r.o[0] + v * r.d[0], Y = r.o[1] + v * r.d[1];
    if (std::fabs(X) > kHalfWidth || std::fabs(Y) > kHalfHeight) return false;
    const double s = (X + kHalfWidth) / (2.0 * kHalfWidth), t = (Y + kHalfHeight) / (2.0 * kHalfHeight);
    const double latitude = 3.1415927 * s, longitude = 3.1415927 * (1.0 - t);
    const double dx = -std::sin(latitude) * std::cos(longitude), dy = std::cos(latitude);
    const double dz = std::sin(latitude) * std::sin(longitude);
    const double phi = std::atan2(dy, dx) + 3.1415927;
    const double theta = std::acos(std::fmax(-1.0, std::fmin(1.0, dz)));
    const LensAsDrawn lens(model);
    if (!lens.Sees(theta)) return false;
    const double p = 0.5 * lens.Radius(theta);
    out[0] = p * std::cos(phi) + 0.5, out[1] = p * std::sin(phi) + 0.5;
    return true;
}

} // namespace

extern const ViewTraits kWallThreeViewTraits = {LensBox::Square, false, false, false, false, false};

class WallThreeView final : public ViewEffect {
public:
    WallThreeView() : ViewEffect("WallThreeView", kWallThreeViewTraits) { m_CruiseEnd = kCruiseEndsNever; }

private:
    MRESULT Build() override
    {
        if (UploadRayQuad(m_Quad) != 0) MLogInfo("[%s] WallThreeView::Initialize no quad", MLOG_TAG);
        const float v[12] = {-kHalfWidth, -kHalfHeight, 0, kHalfWidth, -kHalfHeight, 0,
                             -kHalfWidth, kHalfHeight,  0, kHalfWidth, kHalfHeight,  0};
        const float t[8] = {0, 0, 1, 0, 0, 1, 1, 1};
        if (m_Rectangle.Upload(v, t, 4, GL_TRIANGLE_STRIP) != 0)
            MLogInfo("[%s] WallThreeView::Initialize no rectangle", MLOG_TAG);
        int failures = m_DomeProgram.Build("WallThreeView", FISHEYE_GLSL_RAY_VERTEX, kDomeFragment);
        if (!SetDomeScale(m_DomeProgram, "WallThreeView", 1.0f, 1.0f, 0.97f)) failures++;
        const GLint rad = m_DomeProgram.Uniform("WallThreeView", "frad", "mRadHandle");
        if (rad < 0 || !m_DomeLens.Find(m_DomeProgram, "WallThreeView")) failures++;
        if (failures != 0 || !m_Quad) return 1;
        m_DomeProgram.Use();
        glUniform1f(rad, kFisheyeLensRadius);
        m_PanoramaProgram.Build("WallThreeView", FISHEYE_GLSL_MESH_VERTEX, kPanoramaFragment); // a miss only logs
        m_PanoramaLens.Find(m_PanoramaProgram, "WallThreeView");
        return 0;
    }

    // Panes in glViewport's terms, two pixels apart. The side panes' frustum
    // takes their real width over height.
    void Project(MLong w, MLong h) override
    {
        m_Pane[kLeft] = {0, h / 2 + 1, w / 2 - 1, h / 2 - 1};
        m_Pane[kPanorama] = {0, 0, w, h / 2 - 1};
        m_Pane[kRight] = {w / 2 + 1, h / 2 + 1, w / 2 - 1, h / 2 - 1};
        for (int i : {kLeft, kRight}) {
            const float ratio = m_Pane[i].h > 0 ? float(m_Pane[i].w) / float(m_Pane[i].h) : 1.0f;
            m_Camera[i].setProjectFrustum(-ratio, ratio, -1.0f, 1.0f, kDomeNear, kDomeFar);
        }
        const float k = kPanoramaWindow;
        m_Camera[kPanorama].setProjectFrustum(-k, k, -k, k, 1.0f, 30.0f);
    }

    void StepCamera() override {}

    // The panorama first, then the left and the right wall.
    void Draw(const Frame &f) override
    {
        if (m_PanoramaProgram) {
            auto camera = [](RotTranMatrix &m) {
                m.setLookAt(0.0f, 0.0f, 1.0f, 0.0f, 0.0f, 0.0f, 0.0f, 1.0f, 0.0f);
                RotTranMatrix::rotate(m.mVMatrix, 90.0f, 0.0f, 0.0f, 1.0f);
            };
            m_Pane[kPanorama].Viewport();
            DrawPass(m_Camera[kPanorama], camera, m_PanoramaProgram, m_Rectangle, f.sampling,
                     [&] { m_PanoramaLens.Send(m_LensModel, m_nLensGeneration, f.videoWidth, f.videoHeight); });
            MapPane(kPanorama, GLint(m_Pane[kPanorama].x), GLint(m_Pane[kPanorama].y), GLint(m_Pane[kPanorama].w), GLint(m_Pane[kPanorama].h), m_Camera[kPanorama], PanoramaLensPoint);
        }
        // Each side pane looks 50.4 degrees to its side, moved forward as
        // far as a pan to the diamond's rim moves the close pane of mode 8.
        const float shift = WallDepthShift(0.0f, kViewLimit, kViewLimit, kDepthGain);
        for (int i : {kLeft, kRight}) {
            const float angle = i == kLeft ? -kViewLimit : kViewLimit;
            auto camera = [&](RotTranMatrix &m) { WallDomeCamera(m, kCamZ, shift, 0.0f, angle); };
            m_Pane[i].Viewport();
            DrawPass(m_Camera[i], camera, m_DomeProgram, m_Quad, f.sampling, [&] {
                SendRayMatrix(m_DomeProgram, m_Camera[i]);
                m_DomeLens.Send(m_LensModel, m_nLensGeneration, f.videoWidth, f.videoHeight);
            });
            MapPane(i, GLint(m_Pane[i].x), GLint(m_Pane[i].y), GLint(m_Pane[i].w), GLint(m_Pane[i].h), m_Camera[i], DomeLensPoint, {1.0f, 1.0f, 0.97f, kFisheyeLensRadius, -1.0f, 1.0f});
        }
    }

    ViewProgram m_DomeProgram;
    ViewProgram m_PanoramaProgram;
    LensUniforms m_DomeLens, m_PanoramaLens;
    ViewMesh m_Quad; // the side panes, drawn per pixel
    ViewMesh m_Rectangle;
    RotTranMatrix m_Camera[3] = {};
    WallPane m_Pane[3] = {};
};

GlesRenderEffect *MakeWallThreeView(MDWord)
{
    return new (std::nothrow) WallThreeView();
}
