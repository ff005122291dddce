#include "CylinderSide.h"

#include "MLog.h"

static const char kCylinderSideFragment[] =
    "precision highp float;\n"
    "varying vec4 vTextureCoord;\n"
    "uniform float fPt_Zm;\n"
    "uniform float fPt_L;\n"
    "uniform float fPt_R;\n"
    "uniform float fPt_T;\n"
    "uniform float fPt_B;\n" GLSL_YUV_TO_RGB
    "void main() {\n"
    "    float s = 1.0 - vTextureCoord.s;\n"
    "    float t = 0.00179 + vTextureCoord.t * 0.8;\n"
    "    float theta = 1.5708 - 6.2832 * s + fPt_Zm;\n"
    "    float dr = 0.5 - t / 2.0;\n"
    "    vec2 p = vec2(fPt_L + (fPt_R - fPt_L) * (dr * cos(theta) + 0.5),\n"
    "                  fPt_T + (fPt_B - fPt_T) * (dr * sin(theta) + 0.5));\n"
    "    if (p.x < 0.0 || p.x > 1.0 || p.y < 0.0 || p.y > 1.0)\n"
    "        gl_FragColor = vec4(0.0, 0.0, 0.0, 1.0);\n"
    "    else\n"
    "        gl_FragColor = yuvToRgb(p);\n"
    "}\n";

static const char kCylinderSideVertex[] =
    "uniform mat4 uMVPMatrix;\n"
    "attribute vec4 aPosition;\n"
    "attribute vec4 aTexCoor;\n"
    "varying vec4 vTextureCoord;\n"
    "void main() {\n"
    "    gl_Position = uMVPMatrix * aPosition;\n"
    "    vTextureCoord = aTexCoor;\n"
    "}\n";

CylinderSide::CylinderSide() : FisheyeEffect("CylinderSide") {}

CylinderSide::~CylinderSide()
{
    Uninitialize();
}

MRESULT CylinderSide::Initialize(MDWord, MDWord)
{
    if (!m_Strip) {
        const float v[12] = {-kHalfWidth, -kHalfHeight, 0, kHalfWidth, -kHalfHeight, 0,
                             -kHalfWidth, kHalfHeight,  0, kHalfWidth, kHalfHeight,  0};
        const float t[8] = {0, 1, 1, 1, 0, 0, 1, 0};
        if (m_Strip.Upload(v, t, 4, GL_TRIANGLE_STRIP) != 0)
            MLogInfo("[%s] CylinderSide::Initialize no vertex buffer", MLOG_TAG);
    }
    m_Program.Build("CylinderSide", kCylinderSideVertex, kCylinderSideFragment);
    mnZoom = m_Program.Uniform("CylinderSide::Init_shader", "fPt_Zm", "mnZoom");
    mnLeft = m_Program.Uniform("CylinderSide::Init_shader", "fPt_L", "mnLeft");
    mnRight = m_Program.Uniform("CylinderSide::Init_shader", "fPt_R", "mnRight");
    mnTop = m_Program.Uniform("CylinderSide::Init_shader", "fPt_T", "mnTop");
    mnBottom = m_Program.Uniform("CylinderSide::Init_shader", "fPt_B", "mnBottom");
    if (!mpRotTranMatrix) mpRotTranMatrix = RotTranMatrix::Create();
    // The strip draws whatever it has: no build failure stops it.
    mInitResourceSuc = 1;
    SetEnableGLDepth(false);
    return 0;
}

void CylinderSide::Uninitialize()
{
    m_Program.Release();
    m_Strip.Release();
    RotTranMatrix::Destroy(mpRotTranMatrix);
    mpRotTranMatrix = nullptr;
    mInitResourceSuc = 0;
}

void CylinderSide::Render(const MLong *, MLong w, MLong h, MLong, MLong, const GLuint *pTextures, MDWord, MDWord)
{
    if (w != 0 && h != 0 && !mpRotTranMatrix) mpRotTranMatrix = RotTranMatrix::Create();
    SizeResult size = UpdateWindowSize(w, h);
    if (size == kSizeChanged && mpRotTranMatrix)
        mpRotTranMatrix->setProjectFrustum(-mWndRatio, mWndRatio, -1.0f, 1.0f, mNear, mFar);
    if (size == kSizeUnusable || !mpRotTranMatrix) {
        MLogDebug("[%s] CylinderSide::Render m_nInit == false. ", MLOG_TAG);
        return;
    }
    clearBackground();
    glViewport(0, 0, w, h);
    Update_camposrot();
    if (!m_Strip) return;

    RotTranMatrix &m = *mpRotTranMatrix;
    m.setIdentity();
    m.pushMatrix();
    m.setLookAt(0.0f, 0.0f, fTz.load() + 2.0f, 0.0f, 0.0f, 0.0f, 0.0f, 1.0f, 0.0f);

    m_Program.Use(m_YuvConversion);
    m_Program.BindPlanes(pTextures);
    glUniform1f(mnZoom, mfZoom.load());
    glUniform1f(mnLeft, mfLeft);
    glUniform1f(mnRight, mfRight);
    glUniform1f(mnTop, mfTop);
    glUniform1f(mnBottom, mfBottom);

    m.getFinalMatrix();
    m_Program.SetMatrix(m.mMVPMatrix);
    m_Strip.Draw(m_Program);
    m.popMatrix();
    checkGlError("CylinderSide::Render");
}

void CylinderSide::Update_camposrot()
{
    mZoom.Step(fTz, zMin, zMax, kZoomStep);
    if (mCruiseState.load() == 1) xMove -= kCruiseStep;
    float z = fTz.load();
    if (z < zMin) fTz = zMin;
    if (z > zMax) fTz = zMax;
    mfZoom = -xMove.load();
}

void CylinderSide::OnTouchDown(float, float)
{
    mCruiseState = 0;
}

void CylinderSide::OnTouchPinch(float fZoomRate, float, float)
{
    mCruiseState = 0;
    if (fZoomRate > 1.0f)
        fTz -= kPinchStep;
    else
        fTz += kPinchStep;
}

void CylinderSide::OnDoubleClick(float, float)
{
    mZoom.OnDoubleClick();
}

void CylinderSide::OnTouchMove(float x0, float, float x1, float)
{
    mCruiseState = 0;
    xMove += (x1 - x0) * TOUCH_SCALE_FACTOR * kMoveFactor;
}

void CylinderSide::StartAcceleratedVelocity(float fVelX, float)
{
    mCruiseState = 0;
    xMove = static_cast<float>(static_cast<double>(xMove.load()) + static_cast<double>(fVelX) * kVelocityFactor);
}

void CylinderSide::saveCurrentStatus()
{
    FECurrentStatusData &d = m_FECurrentStatusData;
    d.xMove = xMove.load();
    d.fTz[0] = fTz.load();
    d.mfZoom = mfZoom.load();
    d.maxState = mZoom.maxState.load();
    d.maxMinInit = mZoom.maxMinInit.load();
    d.mCruiseState = mCruiseState.load();
    d.mCruiseVelocity = mCruiseVelocity.load();
}

MRESULT CylinderSide::GetConfig(MDWord dwID, void *pValue)
{
    if (!pValue) return 2;
    if (dwID == ZT5_CFG_DISPLAY_GET_FE_CURRENTSTATUS) {
        saveCurrentStatus();
        return SaveStatusTo(pValue);
    }
    return 0;
}

MRESULT CylinderSide::setConfig(MDWord dwID, void *pValue)
{
    if (dwID != ZT5_CFG_DISPLAY_FE_CURRENTSTATUS) return FisheyeEffect::setConfig(dwID, pValue);
    if (!pValue) return 0;
    MMemCpy(&m_FECurrentStatusData, pValue, sizeof(m_FECurrentStatusData));
    const FECurrentStatusData &d = m_FECurrentStatusData;
    xMove = d.xMove;
    fTz = d.fTz[0];
    mfZoom = d.mfZoom;
    mCruiseVelocity = d.mCruiseVelocity;
    mZoom.maxState = d.maxState;
    mCruiseState = d.mCruiseState != 0 ? 1 : 0;
    // Comes back settled: the stored maxMinInit is not used.
    mZoom.Settle();
    return 0;
}
