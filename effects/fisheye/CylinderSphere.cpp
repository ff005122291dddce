// FishEyeMode 5 and 6: the lens picture on the outside of a shape seen from
// outside, an open cylinder (5) or a dome (6). The lens mapping is computed
// on the processor when the mesh is built, so the fragment shader is a plain
// lookup. The only view drawn with the depth test: the far side of the shape
// lies behind the near side. Turn about the axis, tilt within limits, and
// the eye along the axis by pinch; the tilt also shifts the eye (and pulls
// it closer with the dome).
#include <cmath>
#include <cstring>
#include <new>

#include "FisheyeCommon.h"
#include "LensLaw.h"
#include "MLog.h"
#include "ViewEffect.h"

namespace {

const char kFragment[] = "precision highp float;\n"
                         "varying vec2 vTextureCoord;\n" GLSL_YUV_TO_RGB
                         "void main() {\n"
                         "    gl_FragColor = frameColour(vTextureCoord);\n"
                         "}\n";

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
// share of the rim's; fratio blends a linear fall of the radius with the
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

// What a vertex is computed from: the flavour and the lens model.
struct ShapeOf {
    const Flavour *flavour;
    ZT5LensModel lens;
};

// One vertex of the shape for the angle pair (a, b): the dome's position
// (or, for the cylinder, one at the full radius at every latitude) shifted
// and scaled along the axis; the lens point of its direction. The profile
// gives the radius an equidistant lens would have; read as that lens's
// angle off the axis (the radius's share of the rim's, times 90 degrees), it
// goes through the lens model, which leaves it as it is by default.
void ShapeVertex(double a, double b, const DomeParams &params, float *pos, float *tex, void *user)
{
    const ShapeOf &shape = *static_cast<const ShapeOf *>(user);
    const Flavour &f = *shape.flavour;
    const bool dome = &f == &kFlavours[1];
    const double c = dome ? std::cos(b) : 1.0;
    const float R = params.radius, P = f.profile;
    pos[0] = static_cast<float>(std::sin(a) * c * -R);
    pos[1] = static_cast<float>(std::cos(a) * c * -R);
    pos[2] = static_cast<float>((f.zOffset + std::sin(b)) * -R * f.zScale);
    const double share = ((P - 1.0) * 2.0 / params.span * b + 1.0) * (1.0 - f.ratio) +
                         (1.0 - (1.0 - P) * std::sin(b)) * f.ratio;
    const double r = kRad * LensLawRadius(shape.lens, share * 1.5707963267948966);
    tex[0] = static_cast<float>((std::sin(a) * r + 1.0) * f.texScale * 0.5 + f.texOffset);
    tex[1] = static_cast<float>((std::cos(a) * r + 1.0) * 0.5);
}

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
        if (UploadShape(false) != 0) MLogInfo("[%s] CylinderSphere::Initialize no mesh", MLOG_TAG);
        if (m_Program.Build("CylinderSphere", FISHEYE_GLSL_DOME_VERTEX, kFragment) != 0) return -1;
        return m_Shape ? 0 : 3;
    }

    // The shape for the current lens model: uploaded once, its texture
    // coordinates replaced when the model changes.
    MRESULT UploadShape(bool update)
    {
        ShapeOf shape = {&m_F, m_LensModel};
        DomeMesh dome;
        MRESULT res = dome.Build(DomeParams(), ShapeVertex, &shape);
        if (res == 0) {
            if (update)
                m_Shape.UpdateTexCoords(dome.pTexCoords);
            else
                res = m_Shape.Upload(dome.pVertices, dome.pTexCoords, dome.nVertexCount, GL_TRIANGLES, GL_DYNAMIC_DRAW);
            m_nShapeLens = m_nLensGeneration;
        }
        dome.Free();
        return res;
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
        if (m_nShapeLens != m_nLensGeneration) UploadShape(true);
        DrawPass(m_Camera, camera, m_Program, m_Shape, f.pTextures, [] {});
    }

    void Drag(float x0, float y0, float x1, float y1) override
    {
        fTilt -= (y1 - y0) * TOUCH_SCALE_FACTOR;
        zAngle += (x1 - x0) * TOUCH_SCALE_FACTOR;
    }
    void Fling(float fVelX, float) override
    {
        const float v = std::fabs(fVelX);
        if (fVelX > 0.0f)
            zAngle += v * kFlingUp / 1000.0f;
        else
            zAngle -= v * kFlingDown / 1000.0f;
    }

    const Flavour &m_F;
    ViewProgram m_Program;
    ViewMesh m_Shape;
    unsigned m_nShapeLens = 0; // the lens generation of its texture coordinates
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
