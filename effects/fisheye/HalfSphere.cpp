// FishEyeMode 1: the lens picture on the inside of a bowl (a half sphere of
// radius 6, depth squeezed to 97 %), seen by a camera that travels between
// an overview high above the rim and a pose down inside the bowl. Behind the
// bowl a slowly turning cloud picture and a field of twinkling stars.
//
// Camera: an opening flight out of the bowl, a double-click journey between
// the overview side and the inside (roam pose), look around and look down by
// drag and pinch, spring-back of a deep tilt on release, cruise. All of it is
// counted in rendered frames.
#include <cmath>
#include <new>

#include "CloudPicture.h"
#include "FisheyeCommon.h"
#include "MLog.h"
#include "ViewEffect.h"

namespace {

// ------------------------------------------------------------ shaders

// The bowl, per pixel: the point of the bowl (the dome squeezed to 0.97 in
// depth) each pixel sees, then a lens law that blends from a sine-like curve
// through the lens model (the equidistant line by default) to a cosine curve
// as fratio rises with the eye distance, at the point's latitude t. Where
// no point of the bowl is seen the backdrop stays.
const char kSphereFragment[] =
    FISHEYE_GLSL_FRAGMENT_HEAD
    "uniform float frad;\n"
    "uniform float fratio;\n"
    "uniform float PlatFlag;\n" GLSL_FRAME_COLOUR FISHEYE_GLSL_LENS_LAW FISHEYE_GLSL_DOME_HIT
    "void main() {\n"
    "    vec3 p;\n"
    "    if (!domeHit(p)) discard;\n"
    "    float t = domeLatitude(p);\n"
    "    if (!lensSees(1.570795 - t)) discard;\n"
    "    float ftmp = (0.8 - 1.0) * t + 1.0;\n"
    "    float fir2 = ftmp * fisheyeLatitudeRadius(t, frad);\n"
    "    float tm = PlatFlag == 0.0 ? 0.25 : 0.5;\n"
    "    float m3 = 0.35;\n"
    "    float fir;\n"
    "    if (fratio >= tm) {\n"
    "        float frat = (fratio - tm) * 2.0;\n"
    "        fir = frat * frad * ftmp * cos(t) + (1.0 - frat) * fir2;\n"
    "    } else {\n"
    "        float frat = fratio * m3 / tm + 1.0 - m3;\n"
    "        fir = frat * fir2 + (1.0 - frat) * frad * ftmp * (1.0 - sin(t));\n"
    "    }\n"
    "    gl_FragColor = lensColour(fisheyeAboutLookup(domeAbout(p), fir, -1.0, 1.0));\n"
    "}\n";

const char kBackFragment[] =
    "precision mediump float;\n"
    "varying vec2 vTextureCoord;\n" GLSL_FRAME_COLOUR
    "void main() {\n"
    "    gl_FragColor = frameColour(vTextureCoord);\n"
    "}\n";

const char kStarVertex[] =
    "uniform mat4 uMVPMatrix;\n"
    "uniform float uPointSize;\n"
    "uniform float uPointLight;\n"
    "uniform vec3 uPositionCircle;\n"
    "attribute vec3 aPosition;\n"
    "varying vec3 vPosition;\n"
    "varying float vPointSize;\n"
    "varying vec4 vAmbient;\n"
    "void main() {\n"
    "    gl_Position = uMVPMatrix * vec4(aPosition, 1.0);\n"
    "    gl_PointSize = uPointSize;\n"
    "    vPointSize = uPointSize;\n"
    "    vPosition = aPosition;\n"
    "    vAmbient = vec4(uPointLight, uPointLight, uPointLight, 1.0);\n"
    "}\n";

const char kStarFragment[] =
    "precision mediump float;\n"
    "varying vec3 vPosition;\n"
    "varying float vPointSize;\n"
    "varying vec4 vAmbient;\n"
    "void main() {\n"
    "    if (vPointSize == 2.0)\n"
    "        gl_FragColor = vec4(0.4, 0.4, 0.5, 1.0) * vAmbient;\n"
    "    else\n"
    "        gl_FragColor = vec4(0.9, 0.9, 1.0, 1.0) * vAmbient;\n"
    "}\n";

// The bowl's fragment stage on the processor: k = the lens radius, fratio,
// PlatFlag.
bool SphereLensPoint(const PaneMap &pane, const ZT5LensModel &model, const PaneRay &ray, double out[2])
{
    static const float kBowl[3] = {1.0f, 1.0f, 0.97f};
    DomePoint d(model);
    if (!d.Hit(ray, kBowl)) return false;
    const double t = d.t, frad = pane.k[0], fratio = pane.k[1];
    const double ftmp = (0.8 - 1.0) * t + 1.0;
    const double fir2 = ftmp * d.lens.LatitudeRadius(t, frad);
    const double tm = pane.k[2] == 0.0f ? 0.25 : 0.5, m3 = 0.35;
    double fir;
    if (fratio >= tm) {
        const double frat = (fratio - tm) * 2.0;
        fir = frat * frad * ftmp * std::cos(t) + (1.0 - frat) * fir2;
    } else {
        const double frat = fratio * m3 / tm + 1.0 - m3;
        fir = frat * fir2 + (1.0 - frat) * frad * ftmp * (1.0 - std::sin(t));
    }
    AboutLookupOf(d.about, fir, -1.0, 1.0, out);
    return true;
}

int Sign(float v)
{
    return v > 0.0f ? 1 : (v < 0.0f ? -1 : 0);
}

const float fProjectNear = 1.0f, fProjectFar = 25.0f;
const int kStarCount = 680;
// The pinch's step on fTz.
const float kPinchStep = 0.07875f;

} // namespace

extern const ViewTraits kHalfSphereTraits = {LensBox::Square, false, true, true, true};

class HalfSphere final : public ViewEffect {
public:
    explicit HalfSphere(MDWord dwFEPlatform);

    void SetDisBackGroundSts(MDWord bCloud, MDWord bStar) override;
    void SetInitAnimalSts(MDWord bAnimal) override;

    // Poses: overview (fCamZMax, 0, 0, 0), roam, tilt limit.
    static constexpr float fCamZMin = 2.0f;
    static constexpr float fRoamRotZ = -45.5605965f;
    static constexpr float fRoamTranZ = 1.39894652f;
    static constexpr float fRoamTranY = 1.87908530f;
    static constexpr float fTiltRotZ = -92.2879715f;
    static constexpr float fTiltTranZ = -0.239668399f;
    static constexpr float fTiltTranY = 3.57705951f;

private:
    MRESULT Build() override;
    void Project(MLong, MLong) override;
    void DrawBehind(const Frame &) override;
    void StepCamera() override;
    void Draw(const Frame &f) override;
    bool Moving() const override;
    void Touch(bool bDown, float, float) override { bTouchUp = bDown ? 0 : 1; }
    void Drag(float px, float py, float x, float y) override;
    void Fling(float fVelX, float fVelY) override;
    void DoubleTap(float x, float y) override;
    void Restored(const FECurrentStatusData &d) override;
    // Aimed from inside the bowl: from the overview, the journey in first.
    bool AimReady() override
    {
        if (bAnimStarted || nRoamState.load() != nRoamInit.load()) return false;
        if (nRoamState.load() == 1) return true;
        DoubleTap(float(m_nWidth.load() / 2), float(m_nHeight.load() / 2));
        return false;
    }

    // Backdrop.
    void initStars();
    void seedStars();
    void twinkleStars(int count);
    int nextRand();
    // The camera a frame starts with, before its step: the backdrop's.
    struct Pose {
        float camZ, rotZ, tranY, tranZ, angleZ;
    };
    void drawBackdrop();
    void drawCloud();
    void drawStars(int count, float size, int slot);
    // The view matrix of the camera with eye distance `eyeZ`, all but the
    // last rotation, which the caller adds.
    void setCameraView(RotTranMatrix &m, float eyeZ, const Pose &pose);
    float backgroundEyeZ() const;
    Pose m_Behind = {}; // render thread

    // Camera.
    int springBack();
    bool runAnimation(bool toRoam); // true while it goes on
    void spinStep();
    void lookAroundMove();
    void lookDownMove();

    const MDWord m_dwFEPlatform;
    RotTranMatrix m_Camera = {};
    RotTranMatrix m_BackCamera = {};
    RotTranMatrix m_StarCamera = {};

    ViewProgram m_Sphere;
    GLint maRatioHandle = -1;
    LensUniforms m_Lens;
    ViewProgram m_Back;
    ViewProgram m_Points;
    GLint mPointSizeHandle = -1, mPointLightHandle = -1;

    ViewMesh m_Quad; // the bowl, drawn per pixel
    ViewMesh m_BackQuad;
    ViewMesh m_Stars; // the positions drawn, uploaded again when they change
    GlTexture m_BackTextures[3];
    GLuint mBackTextures[3] = {0, 0, 0}; // their names, as a draw binds them
    const float fRad = kFisheyeLensRadius;
    float fRatio = 0.5f;
    const float fRatioMax;

    // Stars.
    int nStarCount = 0;
    float m_StarBase[3 * kStarCount] = {};
    float m_StarNow[3 * kStarCount] = {};
    const float *pStarDraw = nullptr;
    float fStarLight[10] = {};
    int nStarLightUp[10] = {};
    float fStarLightStep = 0.005f;
    int nStarRadiusMax = 24, nStarRadiusMin = 9;
    int nStarFrame = 0;
    unsigned char bStarsSeeded = 0;
    uint32_t m_randState = 1;
    float fCloudAngle = 0.0f;
    float fBackCamZ = 0.0f, fStarCamZ = 0.0f;
    Relaxed<unsigned char> mbISDisplayBack{1};
    Relaxed<unsigned char> mbStarState{1};
    // The cloud turns and the stars twinkle by drawn frames. They keep the
    // display drawing only while the host's animation switch is on; with it
    // off they stand still between the draws that something else asks for,
    // so a still picture costs nothing. Written by the host's settings on the
    // render thread's start or mode switch, read by Moving() on that thread.
    Relaxed<unsigned char> bBackdropLive{1};

    // Camera values, read by saves on the host thread.
    Relaxed<float> fCamZ{0.0f};
    Relaxed<float> fCamRotZ{0.0f};
    Relaxed<float> fCamTranZ{0.0f};
    Relaxed<float> fCamTranY{0.0f};
    Relaxed<float> fCamAngleZ{0.0f};
    Relaxed<float> fCamZMax{7.1f};
    // Input accumulators, written by gestures.
    Relaxed<float> zAngle{0.0f};
    Relaxed<float> fTz{0.0f};
    // Roam state.
    Relaxed<MLong> nRoamState{0};
    Relaxed<MLong> nRoamInit{1};
    Relaxed<MLong> nRDHitS{0};
    Relaxed<unsigned char> belasticstate{0};
    Relaxed<unsigned char> bTouchUp{1};
    unsigned char bTouchUpPrev = 0;
    Relaxed<unsigned char> bIsInitAnimal{0};
    // Animation (render thread only, apart from fHitAngle).
    float fAnimRemain = 0.0f;
    float fAnimTotal = 0.0f;
    const float fAnimStep = 0.12f;
    const float fAnimRotStep = 2.4f;
    float fAnimAngleRate = 0.0f;
    float fDeltaZ = 0.0f, fDeltaRot = 0.0f, fDeltaTranZ = 0.0f, fDeltaTranY = 0.0f, fDeltaMax = 0.0f;
    int nDirZ = 0, nDirRot = 0, nDirTranZ = 0, nDirTranY = 0;
    MLong bAnimStarted = 0;
    MLong nAnimToRoam = 0;
    Relaxed<float> fHitAngle{0.0f};
};

// The spring of a tilt below the roam pose, between it and the tilt limit.
const TiltSpring kSpring = {HalfSphere::fRoamRotZ, HalfSphere::fRoamTranY, HalfSphere::fRoamTranZ,
                            HalfSphere::fTiltRotZ, HalfSphere::fTiltTranY, HalfSphere::fTiltTranZ};

GlesRenderEffect *MakeHalfSphere(MDWord dwFEPlatform)
{
    return new (std::nothrow) HalfSphere(dwFEPlatform);
}

// ------------------------------------------------------- construction

HalfSphere::HalfSphere(MDWord dwFEPlatform)
    : ViewEffect("HalfSphere", kHalfSphereTraits), m_dwFEPlatform(dwFEPlatform),
      fRatioMax(dwFEPlatform == 0 ? 0.5f : 1.0f)
{
    MLogInfo("[%s] HalfSphere() [pid %p], m_dwFEPlatform = %d\r\n", MLOG_TAG, static_cast<void *>(this),
             static_cast<int>(dwFEPlatform));
    m_Pinch = {&fTz, kPinchStep};
    FECurrentStatusData &d = m_FECurrentStatusData;
    SaveFields({{fCamZ, d.fCamZ[0]},
                {fCamTranZ, d.fCamTranZ[0]},
                {fCamRotZ, d.fCamRotZ[0]},
                {fCamTranY, d.fCamTranY[0]},
                {fCamAngleZ, d.fCamAngleZ[0]},
                {fTz, d.fTz[0]},
                {zAngle, d.zAngle[0]},
                {mCruiseState, d.mCruiseState},
                {mCruiseVelocity, d.mCruiseVelocity},
                {nRoamState, d.nRoamState},
                SavedField::SaveOnly(nRoamInit, d.nRoamInit),
                {belasticstate, d.belasticstate}});
    SetDisBackGroundSts(true, true);
    SetInitAnimalSts(true);
}

MRESULT HalfSphere::Build()
{
    UploadRayQuad(m_Quad);
    const float a = 4.0f * kDomeRadius, z = -2.0f * kDomeRadius;
    const float v[12] = {-a, -a, z, a, -a, z, -a, a, z, a, a, z};
    const float t[8] = {0, 1, 1, 1, 0, 0, 1, 0};
    m_BackQuad.Upload(v, t, 4, GL_TRIANGLE_STRIP);
    initStars();

    MRESULT lRet = 0;
    if (m_Sphere.Build("HalfSphere", FISHEYE_GLSL_RAY_VERTEX, kSphereFragment) != 0) lRet = -1;
    const GLint radHandle = m_Sphere.Uniform("HalfSphere", "frad", "mRadHandle");
    maRatioHandle = m_Sphere.Uniform("HalfSphere", "fratio", "maRatioHandle");
    const GLint platformHandle = m_Sphere.Uniform("HalfSphere", "PlatFlag", "mFEPlatformHandle");
    const GLint domeHandle = m_Sphere.Uniform("HalfSphere", "domeScale", "mDomeScaleHandle");
    if (radHandle < 0 || maRatioHandle < 0 || platformHandle < 0 || domeHandle < 0 || !m_Lens.Find(m_Sphere, "HalfSphere")) lRet = -1;
    if (lRet == 0) {
        // Constants of the view.
        m_Sphere.Use();
        glUniform1f(radHandle, fRad);
        glUniform1f(platformHandle, m_dwFEPlatform == 0 ? 0.0f : 1.0f);
        glUniform3f(domeHandle, 1.0f, 1.0f, 0.97f); // the bowl's depth squeeze
        if (m_Back.Build("HalfSphere", FISHEYE_GLSL_MESH_VERTEX, kBackFragment, ViewProgram::kOwnPicture) != 0) {
            MLogInfo("[%s] HalfSphere:: buildProgram error mbackaPositionHandle:%d. ", MLOG_TAG, m_Back.aPosition);
            lRet = -1;
        }
    }
    if (lRet == 0) {
        m_Points.Build("HalfSphere", kStarVertex, kStarFragment, ViewProgram::kPositionOnly);
        mPointSizeHandle = m_Points.Uniform("HalfSphere", "uPointSize", "mPointSizeHandle");
        mPointLightHandle = m_Points.Uniform("HalfSphere", "uPointLight", "mPointLightHandle");
    }

    // The backdrop picture, expanded into its three plane textures.
    for (int i = 0; i < 3; i++) {
        m_BackTextures[i] = GlTexture::Create();
        mBackTextures[i] = m_BackTextures[i].id();
    }
    uint8_t *pPicture = static_cast<uint8_t *>(MMemAlloc(kCloudPictureBytes));
    if (pPicture) {
        MMemSet(pPicture, 0, kCloudPictureBytes);
        int w = 0, h = 0;
        ExpandCloudPicture(kCloudPictureBlock, kCloudPictureBlockSize, pPicture, kCloudPictureBytes, &w, &h);
        const int side = kCloudPictureSide;
        if (w != side || h != side) MLogInfo("[%s] HalfSphere::Init() cloud picture %dx%d", MLOG_TAG, w, h);
        bindTexture(mBackTextures[0], pPicture, side, side);
        bindTexture(mBackTextures[1], pPicture + side * side, side / 2, side / 2);
        bindTexture(mBackTextures[2], pPicture + side * side * 5 / 4, side / 2, side / 2);
        MMemFree(pPicture);
    }

    // Without its quad there is nothing to draw either.
    if (lRet == 0 && !m_Quad) lRet = 3;
    return lRet;
}

void HalfSphere::Project(MLong, MLong)
{
    for (RotTranMatrix *m : {&m_Camera, &m_BackCamera, &m_StarCamera})
        m->setProjectFrustum(-mWndRatio, mWndRatio, -1.0f, 1.0f, fProjectNear, fProjectFar);
}

// -------------------------------------------------------------- stars

int HalfSphere::nextRand()
{
    // Any generator of range 0..32767 does; this one is the classic LCG.
    m_randState = m_randState * 1103515245u + 12345u;
    return static_cast<int>((m_randState >> 16) & 0x7FFF);
}

void HalfSphere::initStars()
{
    nStarCount = kStarCount;
    m_randState = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(this) >> 4) | 1u;
    seedStars();
}

void HalfSphere::seedStars()
{
    for (int i = 0; i < 10; i++) {
        fStarLight[i] = (nextRand() % 2001) / 2000.0f;
        nStarLightUp[i] = (i % 2 == 0) ? 1 : 0;
    }
    fStarLightStep = 0.005f;
    MMemSet(m_StarBase, 0, sizeof(m_StarBase));
    const float R = kDomeRadius;
    nStarRadiusMin = static_cast<int>(1.55f * R + 0.2f);
    nStarRadiusMax = static_cast<int>(1.55f * R + 15.0f);
    const int span = nStarRadiusMax - nStarRadiusMin + 1;
    for (int i = 0; i < nStarCount; i++) {
        float a = (nextRand() % 2001) * 2.0f * 3.14159f / 2000.0f;
        float x = std::cos(a) * static_cast<float>(nextRand() % span + nStarRadiusMin);
        float y = std::sin(a) * static_cast<float>(nextRand() % span + nStarRadiusMin);
        float *b = m_StarBase + 3 * i, *n = m_StarNow + 3 * i;
        b[0] = n[0] = x;
        b[1] = n[1] = y;
        b[2] = n[2] = -1.25f * R;
    }
    pStarDraw = m_StarBase;
    if (!m_Stars)
        m_Stars.Upload(pStarDraw, nullptr, nStarCount, GL_POINTS, GL_DYNAMIC_DRAW);
    else
        m_Stars.UpdatePositions(pStarDraw);
}

// The offset never accumulates: each twinkle starts from the resting place.
void HalfSphere::twinkleStars(int count)
{
    if (count <= 0) return;
    for (int k = 0; k < count / 5; k++) {
        int i = nextRand() % count;
        float ox = 0.0f, oy = 0.0f;
        switch (nextRand() % 4) {
        case 0: ox = 0.03f; break;
        case 1: oy = 0.03f; break;
        case 2: ox = -0.03f; break;
        default: oy = -0.03f; break;
        }
        const float *b = m_StarBase + 3 * i;
        if (b[0] + ox > nStarRadiusMax || b[0] + ox < nStarRadiusMin) ox = -ox;
        if (b[1] + oy > nStarRadiusMax || b[1] + oy < nStarRadiusMin) oy = -oy;
        float *n = m_StarNow + 3 * i;
        n[0] = b[0] + ox;
        n[1] = b[1] + oy;
        n[2] = b[2];
    }
    pStarDraw = m_StarNow;
    m_Stars.UpdatePositions(pStarDraw);
}

// ------------------------------------------------------------- drawing

// The cloud and the stars are drawn with the camera of the last frame: it
// is kept here, before the step, and they are drawn after the bowl (Draw),
// behind it by the depth test, so that no pixel is shaded twice.
void HalfSphere::DrawBehind(const Frame &)
{
    m_Behind = {fCamZ.load(), fCamRotZ.load(), fCamTranY.load(), fCamTranZ.load(), fCamAngleZ.load()};
}

void HalfSphere::drawBackdrop()
{
    if (mbISDisplayBack.load()) drawCloud();
    if (mbStarState.load()) {
        static const struct {
            int count;
            float size;
            int slot;
        } layers[4] = {{350, 2.0f, 0}, {100, 1.5f, 1}, {20, 3.0f, 2}, {10, 3.8f, 3}};
        for (const auto &l : layers) {
            if (!bStarsSeeded) seedStars();
            drawStars(l.count, l.size, l.slot);
        }
        bStarsSeeded = 1;
    }
}

void HalfSphere::setCameraView(RotTranMatrix &m, float eyeZ, const Pose &pose)
{
    FisheyeBowlView(m, eyeZ, pose.rotZ, pose.tranY, pose.tranZ);
}

// The backdrop's eye distance, from the eye's of the last frame.
float HalfSphere::backgroundEyeZ() const
{
    const float zMax = fCamZMax.load();
    const float d = m_Behind.camZ - zMax;
    const float w = zMax - fCamZMin;
    float e;
    if (d <= 0.0f) {
        e = (2.3f * d * d / (w * w) + 1.0f) * d + zMax;
        if (e < 0.0f) e = 0.0f;
    } else {
        e = (0.5f * d * d / (w * w) + 1.0f) * d + zMax;
    }
    return e;
}

void HalfSphere::drawCloud()
{
    // The cloud turns 0.65 degrees a drawn frame.
    fBackCamZ = backgroundEyeZ();
    if (fCloudAngle > 360.0f) fCloudAngle = 0.0f;
    fCloudAngle += 0.65f;
    auto camera = [&](RotTranMatrix &m) {
        setCameraView(m, fBackCamZ, m_Behind);
        RotTranMatrix::rotate(m.mVMatrix, m_Behind.angleZ + 180.0f, 0.0f, 0.0f, 1.0f);
        m.rotate(fCloudAngle, 0.0f, 0.0f, 1.0f);
    };
    // The cloud picture is ours, made in BT.601 video range: it keeps that
    // conversion whatever the video uses.
    const FrameSampling cloud = PictureSampling(mBackTextures);
    DrawPass(m_BackCamera, camera, m_Back, m_BackQuad, &cloud, [] {});
}

void HalfSphere::drawStars(int count, float size, int slot)
{
    if (count > nStarCount || !pStarDraw) return;
    RotTranMatrix &m = m_StarCamera;
    m_Points.Use();
    m.setIdentity();
    m.pushMatrix();
    fStarCamZ = backgroundEyeZ();
    setCameraView(m, fStarCamZ, m_Behind);
    RotTranMatrix::rotate(m.mVMatrix, m_Behind.angleZ + 180.0f, 0.0f, 0.0f, 1.0f);
    m.getFinalMatrix();

    if (size == 2.0f) {
        nStarFrame++;
        if (nStarFrame >= 999999) nStarFrame = 0;
    }
    float L = fStarLight[slot];
    if (L >= 1.8f) nStarLightUp[slot] = 0;
    if (L <= 0.2f) nStarLightUp[slot] = 1;
    L += nStarLightUp[slot] ? fStarLightStep : -fStarLightStep;
    fStarLight[slot] = L;

    m_Points.SetMatrix(m.mMVPMatrix);
    glUniform1f(mPointSizeHandle, size);
    glUniform1f(mPointLightHandle, L);
    m_Stars.Draw(m_Points, count);
    m.popMatrix();
    if (size == 2.0f && nStarFrame % 30 == 0) twinkleStars(count);
}

// The bowl, with this frame's camera; the lens law follows the eye's height.
void HalfSphere::Draw(const Frame &f)
{
    const float z = fCamZ.load(), zMax = fCamZMax.load();
    if (z < fCamZMin)
        fRatio = 0.0f;
    else if (z > zMax)
        fRatio = fRatioMax;
    else
        fRatio = (z - fCamZMin) * fRatioMax / (zMax - fCamZMin);
    const Pose now = {fCamZ.load(), fCamRotZ.load(), fCamTranY.load(), fCamTranZ.load(), fCamAngleZ.load()};
    auto camera = [&](RotTranMatrix &m) {
        setCameraView(m, now.camZ, now);
        RotTranMatrix::rotate(m.mVMatrix, now.angleZ + 180.0f, 0.0f, 0.0f, 1.0f);
    };
    // The bowl's pixels take the depth of its quad (0.5), nearer than any
    // of the backdrop (the cloud 12 and the stars 7.5 below the rim, behind
    // the bowl from every eye): the backdrop fills only the rest.
    glEnable(GL_DEPTH_TEST);
    DrawPass(m_Camera, camera, m_Sphere, m_Quad, f.sampling, [&] {
        SendRayMatrix(m_Sphere, m_Camera);
        // The bowl: the sphere of radius 6 below the rim, its depth
        // squeezed to 0.97 (Build).
        const float lo[3] = {-6.0f, -6.0f, -6.0f * 0.97f}, hi[3] = {6.0f, 6.0f, 0.0f};
        ScissorToBox(m_Camera, lo, hi);
        glUniform1f(maRatioHandle, fRatio);
        m_Lens.Send(m_LensModel, m_nLensGeneration, f.videoWidth, f.videoHeight);
    });
    MapPane(0, 0, 0, GLint(f.viewportWidth), GLint(f.viewportHeight), m_Camera, SphereLensPoint,
            {fRad, fRatio, m_dwFEPlatform == 0 ? 0.0f : 1.0f});
    drawBackdrop();
    glDisable(GL_DEPTH_TEST);
}

// Still moving: the cloud turns and the stars twinkle every frame while
// shown; an opening flight or a journey runs (and the frame after it, which
// settles the pose); a released tilt below the roam pose springs back.
bool HalfSphere::Moving() const
{
    if (bBackdropLive.load() && (mbISDisplayBack.load() || mbStarState.load())) return true;
    const MLong state = nRoamState.load(), init = nRoamInit.load();
    if ((state == 1 && init == 0) || (state == 0 && init == 1)) return true;
    if (bAnimStarted) return true;
    return bTouchUp.load() == 1 && fCamRotZ.load() < fRoamRotZ;
}

// -------------------------------------------------------------- camera

void HalfSphere::StepCamera()
{
    if (Cruising()) {
        double a = static_cast<double>(zAngle.load()) +
                   static_cast<double>(mCruiseVelocity.load()) * 0.08653846497719105;
        if (a <= -360.0) a += 360.0;
        if (a >= 360.0) a -= 360.0;
        zAngle = static_cast<float>(a);
    }

    if (!springBack()) {
        const MLong state = nRoamState.load(), init = nRoamInit.load();
        if (state == 1 && init == 1) {
            lookAroundMove();
        } else if (state == 1 && init == 0) {
            if (runAnimation(true)) {
                nAnimToRoam = 1;
            } else {
                nRoamInit = 1;
                belasticstate = 1;
                fTz = 0.0f;
            }
        } else if (state == 0 && init == 1) {
            if (runAnimation(false)) {
                nAnimToRoam = 0;
            } else {
                nRoamInit = 0;
                belasticstate = 0;
                fTz = 0.0f;
            }
        } else if (state == 0 && init == 0) {
            lookDownMove();
        }
    }
    spinStep();
}

bool HalfSphere::runAnimation(bool toRoam)
{
    const float tZ = toRoam ? fCamZMin : fCamZMax.load();
    const float tRot = toRoam ? fRoamRotZ : 0.0f;
    const float tTranZ = toRoam ? fRoamTranZ : 0.0f;
    const float tTranY = toRoam ? fRoamTranY : 0.0f;
    float z = fCamZ.load(), rot = fCamRotZ.load(), tranZ = fCamTranZ.load(), tranY = fCamTranY.load();

    if (!bAnimStarted) {
        nDirZ = Sign(tZ - z);
        fDeltaZ = std::fabs(tZ - z);
        nDirRot = Sign(tRot - rot);
        fDeltaRot = std::fabs(tRot - rot) / 20.0f;
        nDirTranZ = Sign(tTranZ - tranZ);
        fDeltaTranZ = std::fabs(tTranZ - tranZ);
        nDirTranY = Sign(tTranY - tranY);
        fDeltaTranY = std::fabs(tTranY - tranY);
        fDeltaMax = std::fmax(std::fmax(fDeltaZ, fDeltaRot), std::fmax(fDeltaTranZ, fDeltaTranY));
        fAnimTotal = fDeltaMax;
        bAnimStarted = 1;
        fAnimRemain = fDeltaMax;
    }

    fAnimRemain -= fAnimStep;
    if (fAnimRemain < fAnimStep) {
        nDirZ = nDirRot = nDirTranZ = nDirTranY = 0;
        fAnimRemain = 0.0f;
        return false;
    }
    if (!nDirZ && !nDirRot && !nDirTranZ && !nDirTranY) return false;
    if (!(fDeltaMax > 0.0f)) return false;

    z += fAnimStep * nDirZ * fDeltaZ / fDeltaMax;
    tranZ += fAnimStep * nDirTranZ * fDeltaTranZ / fDeltaMax;
    tranY += fAnimStep * nDirTranY * fDeltaTranY / fDeltaMax;
    rot += fAnimRotStep * nDirRot * fDeltaRot / fDeltaMax;
    fCamZ = z;
    fCamTranZ = tranZ;
    fCamTranY = tranY;
    fCamRotZ = rot;

    // A channel whose next step would pass its target stops; a channel of
    // distance 0 never counts as passing.
    int passing = 0;
    auto check = [&](int &dir, float value, float delta, float step, float target) {
        if (delta == 0.0f) return;
        float next = value + step * dir * delta / fDeltaMax;
        if (dir == 0 || (dir > 0 && next > target) || (dir < 0 && next < target)) {
            dir = 0;
            passing++;
        }
    };
    check(nDirZ, z, fDeltaZ, fAnimStep, tZ);
    check(nDirRot, rot, fDeltaRot, fAnimRotStep, tRot);
    check(nDirTranZ, tranZ, fDeltaTranZ, fAnimStep, tTranZ);
    check(nDirTranY, tranY, fDeltaTranY, fAnimStep, tTranY);
    if (passing == 4) {
        fAnimRemain = 0.0f;
        return false;
    }
    return true;
}

void HalfSphere::spinStep()
{
    float angle = FisheyeWrapDegrees(zAngle.load());
    if (fAnimStep > fAnimRemain) {
        const float t = (fAnimTotal - fAnimRemain) * fAnimAngleRate;
        fAnimTotal = fAnimRemain = fAnimAngleRate = 0.0f;
        angle += t;
        zAngle = angle;
        fCamAngleZ = angle;
        bIsInitAnimal = 0;
        return;
    }
    zAngle = angle;
    if (fAnimTotal > 0.0f) {
        if (nAnimToRoam) {
            const float a = fHitAngle.load();
            if (a >= 0.0f && a <= 180.0f) {
                const float w = 90.0f - std::fabs(a - 90.0f);
                const float k = a > 90.0f ? 55.0f : 10.0f;
                fAnimAngleRate = -(a - w * k / 90.0f) / fAnimTotal;
            } else {
                const float b = 360.0f - a;
                const float w = 90.0f - std::fabs(b - 90.0f);
                const float k = a < 270.0f ? 55.0f : 10.0f;
                fAnimAngleRate = (b - w * k / 90.0f) / fAnimTotal;
            }
        } else {
            fAnimAngleRate = bIsInitAnimal.load() ? fAnimRotStep * 1.9f * 10.0f : fAnimRotStep * 10.0f;
        }
    }
    fCamAngleZ = (fAnimTotal - fAnimRemain) * fAnimAngleRate + angle;
}

int HalfSphere::springBack()
{
    const unsigned char up = bTouchUp.load();
    bool arrived = false;
    if (up == 1 && !bAnimStarted && kSpring.Step(fCamRotZ, fCamTranY, fCamTranZ, &arrived)) {
        fCamZ = fCamZMin;
        if (arrived) {
            belasticstate = 1;
            fTz = nRoamState.load() == 0 ? fRoamRotZ / 18.0f : 0.0f;
        }
        bTouchUpPrev = 1;
        return 1;
    }
    const float rot = fCamRotZ.load();
    if (up == 0 && bTouchUpPrev == 1 && rot < fRoamRotZ && !bAnimStarted) {
        // A finger has landed on a springing tilt: it takes the tilt over.
        belasticstate = 1;
        fTz = nRoamState.load() == 0 ? rot / 18.0f : (rot - fRoamRotZ) / 18.0f;
    }
    bTouchUpPrev = up;
    return 0;
}

void HalfSphere::lookAroundMove()
{
    bAnimStarted = 0;
    nRDHitS = 0;
    const float zMax = fCamZMax.load();
    const float w = zMax - fCamZMin;
    float tz = fTz.load();
    const float tzMin = (fTiltRotZ - fRoamRotZ) / 18.0f;
    if (tz > w) tz = w;
    if (tz < tzMin) tz = tzMin;
    fTz = tz;

    if (tz > 0.0f) {
        float z = fCamZMin + tz;
        if (z >= zMax) {
            z = zMax;
            nRDHitS = 1;
        }
        fCamZ = z;
        const float tilt = fRoamRotZ - fRoamRotZ * tz / w;
        if (tilt < 0.0f) {
            fCamRotZ = tilt;
            fCamTranY = fRoamTranY - fRoamTranY * tz / w;
            fCamTranZ = fRoamTranZ - fRoamTranZ * tz / w;
        } else {
            fCamRotZ = 0.0f;
            fCamTranY = 0.0f;
            fCamTranZ = 0.0f;
        }
    } else if (belasticstate.load() == 1 && bTouchUp.load() == 0) {
        const float r = tz * 18.0f + fRoamRotZ;
        fCamRotZ = r;
        fCamZ = fCamZMin;
        kSpring.Between(r, fCamTranY, fCamTranZ);
    } else {
        fCamZ = fCamZMin;
        fCamRotZ = fRoamRotZ;
        fCamTranZ = fRoamTranZ;
        fCamTranY = fRoamTranY;
        fTz = 0.0f;
    }
}

void HalfSphere::lookDownMove()
{
    bAnimStarted = 0;
    float tz = fTz.load();
    if (tz >= 0.0f) {
        tz = 0.0f;
        nRDHitS = 0;
    } else if (tz <= -0.1f) {
        nRDHitS = 1;
    }
    const float tzMin = fTiltRotZ / 18.0f;
    if (tz < tzMin) tz = tzMin;
    fTz = tz;

    float r = tz * 18.0f;
    if (r < fTiltRotZ) r = fTiltRotZ;
    if (r > 0.0f) r = 0.0f;
    fCamRotZ = r;
    const float zMax = fCamZMax.load();

    if (!belasticstate.load()) {
        const float p = r / fTiltRotZ; // 0 at the overview, 1 at the tilt limit
        fCamTranY = fTiltTranY * p;
        fCamTranZ = fTiltTranZ * p;
        fCamZ = zMax + (fCamZMin - zMax) * p;
    } else if (r <= fRoamRotZ) {
        fCamZ = fCamZMin;
        kSpring.Between(r, fCamTranY, fCamTranZ);
    } else {
        const float q = r / fRoamRotZ; // 1 at the roam pose, 0 at the overview
        fCamTranY = fRoamTranY * q;
        fCamTranZ = fRoamTranZ * q;
        fCamZ = zMax + (fCamZMin - zMax) * q;
    }
}

// ------------------------------------------------------------ gestures

void HalfSphere::Drag(float px, float py, float x, float y)
{
    const float fDX = -(x - px);
    const float fDY = y - py;
    zAngle -= fDX * 1.8f * TOUCH_SCALE_FACTOR;
    fTz -= fDY * TOUCH_SCALE_FACTOR * 0.1f;
}

void HalfSphere::Fling(float fVelX, float)
{
    zAngle += FisheyeFlingTurn(fVelX, 6.075001f, 6.075001f);
}

void HalfSphere::DoubleTap(float x, float y)
{
    if (nRDHitS.load() == 0) {
        const MLong s = nRoamState.load();
        if (s == 0)
            nRoamState = 1;
        else if (s == 1)
            nRoamState = 0;
    } else {
        nRoamInit = (nRoamInit.load() + 1) % 2;
    }
    const float cx = static_cast<float>(m_nWidth.load() / 2);
    const float cy = static_cast<float>(m_nHeight.load() / 2);
    if (x == cx && y == cy) {
        // No direction at the centre: the journey then turns by nothing.
        fHitAngle = 0.0f;
        return;
    }
    float a = std::atan((y - cy) / (x - cx)) * 180.0f / 3.1415926f;
    a += x > cx ? 90.0f : 270.0f;
    fHitAngle = a;
}

void HalfSphere::SetDisBackGroundSts(MDWord bCloud, MDWord bStar)
{
    mbISDisplayBack = bCloud ? 1 : 0;
    mbStarState = bStar ? 1 : 0;
    const float R = kDomeRadius;
    fCamZMax = bCloud ? R + R / 2.0f - 1.0f - 0.9f : R + 0.1f;
}

void HalfSphere::SetInitAnimalSts(MDWord bAnimal)
{
    bBackdropLive = bAnimal ? 1 : 0;
    if (bAnimal) {
        fCamZ = mbISDisplayBack.load() ? -0.8f : -1.9f;
        bIsInitAnimal = 1;
    } else {
        fCamZ = fCamZMax.load();
    }
}

// ---------------------------------------------------------- saved state

// Back at rest in the steady state of its side. A journey that was under way
// is dropped with its spin, or the restored view would show the turn of an
// animation that no longer runs.
void HalfSphere::Restored(const FECurrentStatusData &d)
{
    bAnimStarted = 0;
    fAnimRemain = fAnimTotal = fAnimAngleRate = 0.0f;
    nDirZ = nDirRot = nDirTranZ = nDirTranY = 0;
    if (d.nRoamState == 0 || d.nRoamState == 1)
        nRoamInit = d.nRoamState;
    else
        nRoamInit = d.nRoamInit;
}
