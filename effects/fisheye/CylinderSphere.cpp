// FishEyeMode 5 and 6: the lens picture on the outside of a shape seen from
// outside, an open cylinder (5) or a dome (6), drawn per pixel. The only
// view drawn with the depth test: the far side of the shape lies behind the
// near side, and each pixel shows the nearest point of the shape. Turn about the axis, tilt within limits, and
// the eye along the axis by pinch; the tilt also shifts the eye (and pulls
// it closer with the dome).
#include <cmath>
#include <cstring>
#include <new>

#include "FisheyeCommon.h"
#include "MLog.h"
#include "ViewEffect.h"

namespace {

// Per pixel: the nearest point of the shape on the pixel's ray (the view
// is depth-tested as a whole; within the shape the nearest point is the one
// seen), then the lens point of its direction. The shape, for the angle pair
// (a, b) of its mesh of old: x = -6 c sin a, y = -6 c cos a,
// z = z0 - H sin b with H = 6 zScale and z0 = -H zOffset the rim's plane;
// c = 1 for the cylinder (radius 6, b from 0 to pi/2: z from z0 down to
// z0 - H), c = cos b for the dome (the ellipsoid x^2 + y^2 +
// ((z - z0) / zScale)^2 = 36 below its rim). The profile gives the radius
// an equidistant lens would have, a share of the rim's: a linear fall with
// b blended (by ratio) with a sine-shaped one down to `profile` at the top;
// read as that lens's angle off the axis (the share times 90 degrees), it
// goes through the lens model. frad is the lens radius negated, which shows
// the picture upright from outside; the dome's s is mirrored (texScale -1,
// texOffset 1).
const char kFragment[] = FISHEYE_GLSL_FRAGMENT_HEAD
                         "varying vec4 vNear;\n"
                         "varying vec4 vFar;\n"
                         "uniform float shapeDome;\n"
                         "uniform float zScale;\n"
                         "uniform float zOffset;\n"
                         "uniform float profile;\n"
                         "uniform float ratio;\n"
                         "uniform float texOffset;\n"
                         "uniform float texScale;\n"
                         "uniform float frad;\n" GLSL_FRAME_COLOUR FISHEYE_GLSL_LENS_MODEL
                         "bool seen(vec3 p, float z0, float H) {\n"
                         "    return p.z <= z0 && (shapeDome > 0.5 || p.z >= z0 - H);\n"
                         "}\n"
                         "void main() {\n"
                         "    vec3 o = vNear.xyz / vNear.w, d = vFar.xyz / vFar.w - o;\n"
                         "    float H = 6.0 * zScale, z0 = -H * zOffset;\n"
                         "    vec3 k = vec3(1.0, 1.0, shapeDome > 0.5 ? 1.0 / zScale : 0.0);\n"
                         "    vec3 ok = vec3(o.xy, o.z - z0) * k, dk = d * k;\n"
                         "    float a = dot(dk, dk), b = dot(ok, dk), c = dot(ok, ok) - 36.0;\n"
                         "    float q = b * b - a * c;\n"
                         "    if (q < 0.0 || a == 0.0) discard;\n"
                         "    q = sqrt(q);\n"
                         "    float u = (-b - q) / a;\n"
                         "    vec3 p = o + u * d;\n"
                         "    if (u < 0.0 || u > 1.0 || !seen(p, z0, H)) {\n"
                         "        u = (-b + q) / a;\n"
                         "        p = o + u * d;\n"
                         "        if (u < 0.0 || u > 1.0 || !seen(p, z0, H)) discard;\n"
                         "    }\n"
                         "    float sb = clamp((z0 - p.z) / H, 0.0, 1.0);\n"
                         "    float lat = asin(sb);\n"
                         "    float share = ((profile - 1.0) * 2.0 / 3.14159 * lat + 1.0) * (1.0 - ratio) +\n"
                         "                  (1.0 - (1.0 - profile) * sb) * ratio;\n"
                         "    float theta = share * 1.5707963;\n"
                         "    if (!lensSees(theta)) discard;\n"
                         "    float r = frad * lensRadius(theta);\n"
                         "    float len = length(p.xy);\n"
                         "    vec2 about = len > 0.0 ? -p.xy / len : vec2(0.0, 1.0);\n"
                         "    gl_FragColor = lensColour(vec2((about.x * r + 1.0) * texScale * 0.5 + texOffset,\n"
                         "                                    (about.y * r + 1.0) * 0.5));\n"
                         "}\n";

// The fragment stage on the processor: k = shapeDome, zScale, zOffset,
// profile, ratio, texOffset, texScale, frad.
bool LensPoint(const PaneMap &pane, const ZT5LensModel &model, const PaneRay &r, double out[2])
{
    const float *k = pane.k;
    const bool dome = k[0] > 0.5f;
    const double H = 6.0 * k[1], z0 = -H * k[2];
    const double kz = dome ? 1.0 / k[1] : 0.0;
    const double ok[3] = {r.o[0], r.o[1], (r.o[2] - z0) * kz}, dk[3] = {r.d[0], r.d[1], r.d[2] * kz};
    const double a = dk[0] * dk[0] + dk[1] * dk[1] + dk[2] * dk[2];
    const double b = ok[0] * dk[0] + ok[1] * dk[1] + ok[2] * dk[2];
    const double c = ok[0] * ok[0] + ok[1] * ok[1] + ok[2] * ok[2] - 36.0;
    double q = b * b - a * c;
    if (q < 0.0 || a == 0.0) return false;
    q = std::sqrt(q);
    auto seen = [&](double u, double p[3]) {
        for (int i = 0; i < 3; i++) p[i] = r.o[i] + u * r.d[i];
        return u >= 0.0 && u <= 1.0 && p[2] <= z0 && (dome || p[2] >= z0 - H);
    };
    double p[3];
    if (!seen((-b - q) / a, p) && !seen((-b + q) / a, p)) return false;
    const double sb = std::fmin(std::fmax((z0 - p[2]) / H, 0.0), 1.0);
    const double lat = std::asin(sb);
    const double profile = k[3], ratio = k[4];
    const double share = ((profile - 1.0) * 2.0 / 3.14159 * lat + 1.0) * (1.0 - ratio) + (1.0 - (1.0 - profile) * sb) * ratio;
    const double theta = share * 1.5707963;
    const LensAsDrawn lens(model);
    if (!lens.Sees(theta)) return false;
    const double rr = k[7] * lens.Radius(theta), len = std::hypot(p[0], p[1]);
    const double ax = len > 0.0 ? -p[0] / len : 0.0, ay = len > 0.0 ? -p[1] / len : 1.0;
    out[0] = (ax * rr + 1.0) * k[6] * 0.5 + k[5];
    out[1] = (ay * rr + 1.0) * 0.5;
    return true;
}

float FromBits(uint32_t bits)
{
    float f;
    std::memcpy(&f, &bits, sizeof f);
    return f;
}

const float kNear = 3.0f, kFar = 33.0f;
const float kPinchStep = 0.077175f;
const float kFlingUp = FromBits(0x40C26668);   // 6.075
const float kFlingDown = FromBits(0x40F30001); // 7.59375
const double kCruiseStep = 0.039375;

// The two flavours. P (profile) is the lens radius at the shape's top as a
// share of the rim's; ratio blends a linear fall of the radius with the
// latitude with a sine-shaped one; the dome's s is mirrored.
struct Flavour {
    float baseCamZ, baseRotX, tiltMax, tiltMin;
    double zOffset;
    float zScale, profile, ratio, texOffset, texScale, camYUp, camYDown;
};
const Flavour kFlavours[2] = {
    {16.2f, -118.307f, FromBits(0x42687DF4), FromBits(0xBF858100), -0.5, 1.062f, 0.1f, 0.6f, 0.0f, 1.0f, -0.1536f,
     0.158f},
    {14.05f, -126.06f, FromBits(0x42607AE0), FromBits(0xC08A3D80), -0.35, 1.1f, 0.0f, 0.4f, 1.0f, -1.0f, -0.0f,
     0.378f},
};
// The lens radius, negated: with it the shape shows the picture upright
// from outside.
const float kRad = -kFisheyeLensRadius;

} // namespace

extern const ViewTraits kCylinderSphereTraits = {LensBox::Square, true, false, false, true};

class CylinderSphere final : public ViewEffect {
public:
    explicit CylinderSphere(int flavour)
        : ViewEffect(flavour ? "CylinderSphere(dome)" : "CylinderSphere", kCylinderSphereTraits),
          m_F(kFlavours[flavour ? 1 : 0]), fCamZ(kDomeRadius + m_F.baseCamZ)
    {
        mCruiseVelocity = 0.0f; // stored and saved; the cruise step doesn't use it
        m_Pinch = {&fTz, kPinchStep};
        FECurrentStatusData &d = m_FECurrentStatusData;
        // The eye's place follows from the rest at the next draw.
        SaveFields({SavedField::SaveOnly(fCamZ, d.fCamZ[0]),
                    SavedField::SaveOnly(fCamY, d.fCamTranY[0]),
                    SavedField::Checked(fTz, d.fTz[0], 0.0f),
                    SavedField::Checked(zAngle, d.zAngle[0], 0.0f),
                    SavedField::Checked(fTilt, d.fTilt, 0.0f),
                    {mCruiseState, d.mCruiseState},
                    SavedField::Checked(mCruiseVelocity, d.mCruiseVelocity, 0.0f)});
    }

private:
    MRESULT Build() override
    {
        if (UploadRayQuad(m_Quad) != 0) MLogInfo("[%s] CylinderSphere::Initialize no quad", MLOG_TAG);
        if (m_Program.Build("CylinderSphere", FISHEYE_GLSL_RAY_VERTEX, kFragment) != 0) return -1;
        const struct {
            const char *name;
            float value;
        } shape[] = {{"shapeDome", &m_F == &kFlavours[1] ? 1.0f : 0.0f},
                     {"zScale", m_F.zScale},
                     {"zOffset", float(m_F.zOffset)},
                     {"profile", m_F.profile},
                     {"ratio", m_F.ratio},
                     {"texOffset", m_F.texOffset},
                     {"texScale", m_F.texScale},
                     {"frad", kRad}};
        m_Program.Use();
        for (const auto &u : shape) {
            const GLint at = m_Program.Uniform("CylinderSphere", u.name, u.name);
            if (at < 0) return -1;
            glUniform1f(at, u.value);
        }
        if (!m_Lens.Find(m_Program, "CylinderSphere")) return -1;
        return m_Quad ? 0 : 3;
    }

    void Project(MLong, MLong) override { m_Camera.setProjectFrustum(-mWndRatio, mWndRatio, -1.0f, 1.0f, kNear, kFar); }

    // One frame: the cruise turn, the clamps and wraps, then the eye's place
    // from the tilt: in the middle of the tilt range it stands on the axis;
    // towards the lower limit it shifts by up to camYDown, towards the upper
    // by up to camYUp (and with the dome comes 1.5 units closer).
    void StepCamera() override
    {
        if (Cruising()) zAngle = static_cast<float>(static_cast<double>(zAngle.load()) - kCruiseStep);
        float tz = fTz.load();
        if (std::isnan(tz)) tz = 0.0f;
        if (tz > 1.0f) tz = 1.0f;
        if (tz < -1.0f) tz = -1.0f;
        fTz = tz;
        float camZ = kDomeRadius + m_F.baseCamZ + tz;
        zAngle = FisheyeWrapDegrees(zAngle.load());
        float tilt = FisheyeWrapDegrees(fTilt.load());
        if (tilt > m_F.tiltMax) tilt = m_F.tiltMax;
        if (tilt < m_F.tiltMin) tilt = m_F.tiltMin;
        fTilt = tilt;
        const float mid = (m_F.tiltMax + m_F.tiltMin) * 0.5f;
        const float d = tilt - mid;
        float camY;
        if (d < 0.0f) {
            camY = d / (m_F.tiltMin - mid) * m_F.camYDown;
        } else {
            const float hi = m_F.tiltMax - mid;
            if (&m_F == &kFlavours[1]) camZ -= d * 1.5f / hi;
            camY = d / hi * m_F.camYUp;
        }
        fCamZ = camZ;
        fCamY = camY;
        m_fRotZ = zAngle.load();
        m_fRotX = m_F.baseRotX + tilt;
    }

    // From the axis at fCamZ: turned over (half turns about x and y), shifted
    // by fCamY, tilted, then turned about the shape's axis.
    void Draw(const Frame &f) override
    {
        auto camera = [&](RotTranMatrix &m) {
            m.setLookAt(0.0f, 0.0f, fCamZ.load(), 0.0f, 0.0f, 0.0f, 0.0f, 1.0f, 0.0f);
            RotTranMatrix::rotate(m.mVMatrix, 180.0f, 1.0f, 0.0f, 0.0f);
            RotTranMatrix::rotate(m.mVMatrix, 180.0f, 0.0f, 1.0f, 0.0f);
            RotTranMatrix::translate(m.mVMatrix, 0.0f, fCamY.load(), 0.0f);
            RotTranMatrix::rotate(m.mVMatrix, 180.0f - m_fRotX, 1.0f, 0.0f, 0.0f);
            RotTranMatrix::rotate(m.mVMatrix, 180.0f - m_fRotZ, 0.0f, 0.0f, 1.0f);
        };
        DrawPass(m_Camera, camera, m_Program, m_Quad, f.sampling, [&] {
            SendRayMatrix(m_Program, m_Camera);
            // The surface's bounds: radius 6 about the axis, from the rim's
            // plane z0 down by H (the fragment stage's terms).
            const float H = 6.0f * m_F.zScale, z0 = -H * float(m_F.zOffset);
            const float lo[3] = {-6.0f, -6.0f, z0 - H}, hi[3] = {6.0f, 6.0f, z0};
            ScissorToBox(m_Camera, lo, hi);
            m_Lens.Send(m_LensModel, m_nLensGeneration, f.videoWidth, f.videoHeight);
        });
        MapPane(0, 0, 0, GLint(f.viewportWidth), GLint(f.viewportHeight), m_Camera, LensPoint,
                {&m_F == &kFlavours[1] ? 1.0f : 0.0f, m_F.zScale, float(m_F.zOffset), m_F.profile, m_F.ratio,
                 m_F.texOffset, m_F.texScale, kRad});
    }

    void Drag(float x0, float y0, float x1, float y1) override
    {
        fTilt -= (y1 - y0) * TOUCH_SCALE_FACTOR;
        zAngle += (x1 - x0) * TOUCH_SCALE_FACTOR;
    }
    void Fling(float fVelX, float) override { zAngle += FisheyeFlingTurn(fVelX, kFlingUp, kFlingDown, true); }

    const Flavour &m_F;
    ViewProgram m_Program;
    LensUniforms m_Lens;
    ViewMesh m_Quad; // the shape, drawn per pixel
    RotTranMatrix m_Camera = {};
    float m_fRotZ = 0.0f, m_fRotX = 0.0f; // render thread

    Relaxed<float> fCamZ;      // eye distance
    Relaxed<float> fCamY{0.0f}; // eye shift with the tilt
    Relaxed<float> fTz{0.0f};  // pinch offset of the eye, -1..1
    Relaxed<float> zAngle{0.0f}; // turn about the axis, degrees
    Relaxed<float> fTilt{0.0f};  // tilt, degrees, within the flavour's limits
};

GlesRenderEffect *MakeCylinderSphere(MDWord)
{
    return new (std::nothrow) CylinderSphere(0);
}

GlesRenderEffect *MakeCylinderDome(MDWord)
{
    return new (std::nothrow) CylinderSphere(1);
}
