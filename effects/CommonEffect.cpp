#include "CommonEffect.h"

#include <cmath>

#include "MLog.h"
#include "ZT5Errors.h"
#include "ZT5Mutex.h"

namespace {

// Plain YUV program: video-range BT.601 expansion.
const char kVertexShader[] = "attribute vec4 vPosition;\n"
                             "attribute vec2 a_texCoord;\n"
                             "uniform mat4 uMVPMatrix;\n"
                             "varying vec2 tc;\n"
                             "void main() {\n"
                             "  gl_Position = uMVPMatrix * vec4(vPosition.xyz, 1.0);\n"
                             "  tc = a_texCoord;\n"
                             "}\n";

// Texture coordinates get the highest precision the fragment stage offers:
// at low precision a coordinate across a 1920-texel row would land several
// texels off.
const char kFragmentShader[] = "precision mediump float;\n"
                               "#ifdef GL_FRAGMENT_PRECISION_HIGH\n"
                               "varying highp vec2 tc;\n"
                               "#else\n"
                               "varying mediump vec2 tc;\n"
                               "#endif\n"
                               "uniform sampler2D SamplerY;\n"
                               "uniform sampler2D SamplerU;\n"
                               "uniform sampler2D SamplerV;\n"
                               "void main() {\n"
                               "  mediump vec3 yuv;\n"
                               "  lowp vec3 rgb;\n"
                               "  yuv.x = 1.1643 * (texture2D(SamplerY, tc).r - 0.0625);\n"
                               "  yuv.y = texture2D(SamplerU, tc).r - 0.5;\n"
                               "  yuv.z = texture2D(SamplerV, tc).r - 0.5;\n"
                               "  rgb.r = yuv.x + 1.5958 * yuv.z;\n"
                               "  rgb.g = yuv.x - 0.39173 * yuv.y - 0.81290 * yuv.z;\n"
                               "  rgb.b = yuv.x + 2.017 * yuv.y;\n"
                               "  gl_FragColor = vec4(rgb, 1.0);\n"
                               "}\n";

// Lens distortion correction: Brown-Conrady model in texture units, full
// range colour matrix.
const char kDistortVertexShader[] = "attribute vec4 a_position;\n"
                                    "attribute vec2 a_texCoord;\n"
                                    "uniform mat4 u_mapMatrix;\n"
                                    "varying vec2 v_texCoord;\n"
                                    "void main() {\n"
                                    "  gl_Position = u_mapMatrix * a_position;\n"
                                    "  v_texCoord = a_texCoord;\n"
                                    "}\n";

const char kDistortFragmentShader[] =
    "#ifdef GL_FRAGMENT_PRECISION_HIGH\n"
    "precision highp float;\n"
    "#else\n"
    "precision mediump float;\n"
    "#endif\n"
    "varying vec2 v_texCoord;\n"
    "uniform sampler2D y_texture;\n"
    "uniform sampler2D u_texture;\n"
    "uniform sampler2D v_texture;\n"
    "uniform float k1;\n"
    "uniform float k2;\n"
    "uniform float k3;\n"
    "uniform float p1;\n"
    "uniform float p2;\n"
    "uniform float fx;\n"
    "uniform float fy;\n"
    "uniform float ox;\n"
    "uniform float oy;\n"
    "uniform float u_texScaleX;\n"
    "void main() {\n"
    "  float x0 = (v_texCoord.x - ox) / fx;\n"
    "  float y0 = (v_texCoord.y - oy) / fy;\n"
    "  float r2 = x0 * x0 + y0 * y0;\n"
    "  float r4 = r2 * r2;\n"
    "  float r6 = pow(r2, 3.0);\n"
    "  float radial = 1.0 + k1 * r2 + k2 * r4 + k3 * r6;\n"
    "  float x = x0 * radial + 2.0 * p1 * x0 * y0 + p2 * (r2 + 2.0 * x0 * x0);\n"
    "  float y = y0 * radial + 2.0 * p2 * x0 * y0 + p1 * (r2 + 2.0 * y0 * y0);\n"
    "  x = x * fx + ox;\n"
    "  y = y * fy + oy;\n"
    "  if (x < 0.0 || x > 1.0 || y < 0.0 || y > 1.0) {\n"
    "    gl_FragColor = vec4(0.0, 0.0, 0.0, 1.0);\n"
    "    return;\n"
    "  }\n"
    "  vec2 tc = vec2(x * u_texScaleX, y);\n"
    "  float yy = texture2D(y_texture, tc).r;\n"
    "  float u = texture2D(u_texture, tc).r - 0.5;\n"
    "  float v = texture2D(v_texture, tc).r - 0.5;\n"
    "  vec3 rgb = vec3(yy) + vec3(0.0, -0.39465, 2.03211) * u + vec3(1.13983, -0.58060, 0.0) * v;\n"
    "  gl_FragColor = vec4(rgb, 1.0);\n"
    "}\n";

const char *const kDistortNames[15] = {"k1", "k2", "k3", "p1", "p2", "fx", "fy", "ox", "oy", "a_position",
                                       "a_texCoord", "u_mapMatrix", "y_texture", "u_texture", "v_texture"};
enum { LOC_A_POSITION = 9, LOC_A_TEXCOORD = 10, LOC_U_MAPMATRIX = 11, LOC_Y_TEX = 12 };

const float kVertices[12] = {-1.0f, -1.0f, 0.0f, 1.0f, -1.0f, 0.0f, -1.0f, 1.0f, 0.0f, 1.0f, 1.0f, 0.0f};

// Picture coordinates of the four strip corners (bottom left, bottom right,
// top left, top right) for a frame rotation of 0, 90, 180 and 270 degrees
// clockwise; v = 0 is the frame's top row.
const float kTexCoord[4][8] = {
    {0.0f, 1.0f, 1.0f, 1.0f, 0.0f, 0.0f, 1.0f, 0.0f},
    {1.0f, 1.0f, 1.0f, 0.0f, 0.0f, 1.0f, 0.0f, 0.0f},
    {1.0f, 0.0f, 0.0f, 0.0f, 1.0f, 1.0f, 0.0f, 1.0f},
    {0.0f, 0.0f, 0.0f, 1.0f, 1.0f, 0.0f, 1.0f, 1.0f},
};

int RotationIndex(MDWord dwRotation)
{
    switch (dwRotation) {
    case 90:
        return 1;
    case 180:
        return 2;
    case 270:
        return 3;
    default:
        return 0;
    }
}

// The renderer uploads each plane into a texture whose rows are padded to
// a multiple of 8 (luma) and 4 (chroma) texels; this is the share of the
// texture width that holds picture, the same for all three planes.
float PlaneTextureUScale(MLong videoWidth)
{
    if (videoWidth <= 0) return 1.0f;
    const MLong c = ((videoWidth >> 1) + 3) & ~3;
    return float(double(videoWidth) / double(2 * c));
}

// Pan, zoom and animation steps never leave this bound, and are never NaN
// or infinite: a host's garbage (a NaN coordinate, a record of random
// bytes) must not reach the matrices, where one NaN blanks the picture for
// good. The bound lies far beyond any limit a host can set (a percent word
// of 0xffffffff is a zoom of about 4.3e7).
const float kValueBound = 1.0e9f;

float Sane(double v, float fallback)
{
    if (!std::isfinite(v)) return fallback;
    if (v > kValueBound) return kValueBound;
    if (v < -kValueBound) return -kValueBound;
    return float(v);
}

// Pan limit for a zoom: the part of the zoomed picture beyond the window.
// Below a zoom of 1.0 the picture doesn't fill the window and stays centred.
float PanLimit(float scale)
{
    return scale < 1.0f ? 0.0f : scale - 1.0f;
}

float ClampPan(float v, float limit)
{
    if (!std::isfinite(v)) return 0.0f;
    if (v < -limit) v = -limit;
    if (v > limit) v = limit;
    return v;
}

// Edge codes reported when a drag pushes the pan against its limit.
enum : MDWord { EDGE_NONE = 0, EDGE_TOP = 1, EDGE_LEFT = 2, EDGE_BOTTOM = 4, EDGE_RIGHT = 8 };

} // namespace

CommonEffect::CommonEffect()
{
    for (int i = 0; i < 12; i++) mVertices[i] = kVertices[i];
    ResetTexCoords();
}

CommonEffect::~CommonEffect()
{
    // The video logo object belongs to the overlay code; none is made yet.
    Uninitialize();
}

void CommonEffect::ResetTexCoords()
{
    for (int r = 0; r < 4; r++) {
        for (int i = 0; i < 8; i++) {
            mTexCoord[r][i] = kTexCoord[r][i];
            mLogoTexCoord[r][i] = kTexCoord[r][i];
        }
    }
}

MRESULT CommonEffect::Initialize(MDWord dwWidth, MDWord dwHeight)
{
    m_width = MLong(dwWidth);
    m_height = MLong(dwHeight);
    mProgram = buildProgram(kVertexShader, kFragmentShader);
    if (mProgram) muMVPMatrixHandle = glGetUniformLocation(mProgram, "uMVPMatrix");
    SetEnableGLDepth(0);
    return 0;
}

void CommonEffect::Uninitialize()
{
    if (mProgram) {
        glDeleteProgram(mProgram);
        mProgram = 0;
    }
    mDefaultLogo = nullptr; // the built-in mark is not made by this view yet
    if (mDistortProgram) {
        glDeleteProgram(mDistortProgram);
        mDistortProgram = 0;
    }
    RotTranMatrix::Destroy(mpRotTranMatrix);
    mpRotTranMatrix = nullptr;
    m_Overlay.Release();
    m_nInit.store(0, std::memory_order_relaxed);
}

void CommonEffect::SetEnableGLDepth(unsigned char enable)
{
    if (enable)
        glEnable(GL_DEPTH_TEST);
    else
        glDisable(GL_DEPTH_TEST);
}

// ------------------------------------------------------------------ draw

void CommonEffect::Render(const MLong *prtRender, MLong nDisplayWidth, MLong nDisplayHeight, MLong lVideoWidth,
                          MLong lVideoHeight, const GLuint *pTextures, MDWord bIsNewScaleMode, MDWord dwRotation)
{
    (void)prtRender;
    (void)bIsNewScaleMode;
    nVideoWidth = lVideoWidth;
    nVideoHeight = lVideoHeight;

    // The corrected picture counts at 83% of its height in the aspect.
    ZT5DistortionParam *pParam = m_pDistortionParam.load(std::memory_order_relaxed);
    const bool bChangePending = pParam && pParam->pTable != mCurDistortTable;
    MLong h;
    if (bChangePending) // a null table switches the correction off
        h = (pParam->dwCount == 13 && pParam->pTable) ? MLong(double(nVideoHeight) * 0.83) : nVideoHeight;
    else
        h = mDistortProgram ? MLong(double(nVideoHeight) * 0.83) : nVideoHeight;

    const bool bRotated = (dwRotation == 90 || dwRotation == 270);
    const MLong picW = bRotated ? h : nVideoWidth;
    const MLong picH = bRotated ? nVideoWidth : h;
    const bool bWindowChanged = nDisplayWidth != m_dwDisplayWidth.load(std::memory_order_relaxed) ||
                                nDisplayHeight != m_dwDisplayHeight.load(std::memory_order_relaxed);
    const bool bPictureChanged = picW != m_lProjPictureWidth || picH != m_lProjPictureHeight;
    if ((bWindowChanged || !m_nInit.load(std::memory_order_relaxed) || bChangePending || bPictureChanged) &&
        nDisplayWidth != 0 && nDisplayHeight != 0)
        MakeProjection(nDisplayWidth, nDisplayHeight, h, dwRotation);

    if (!m_nInit.load(std::memory_order_relaxed)) {
        MLogDebug("[%s] WallTwoView::Render m_nInit == false. ", MLOG_TAG);
        return;
    }
    clearBackground();
    glViewport(0, 0, m_dwDisplayWidth.load(std::memory_order_relaxed),
               m_dwDisplayHeight.load(std::memory_order_relaxed));
    DrawFrame(pTextures, dwRotation);
}

void CommonEffect::MakeProjection(MLong nDisplayWidth, MLong nDisplayHeight, MLong nPictureHeight,
                                  MDWord dwRotation)
{
    if (!mpRotTranMatrix) mpRotTranMatrix = RotTranMatrix::Create();
    m_nInit.store(0, std::memory_order_relaxed);
    if (!mpRotTranMatrix) return;
    if (nDisplayWidth <= 10 || nDisplayHeight <= 10) {
        MLogDebug("[%s] CommonEffect::Render window too small %dx%d", MLOG_TAG, int(nDisplayWidth),
                  int(nDisplayHeight));
        return;
    }
    const bool bRotated = (dwRotation == 90 || dwRotation == 270);
    const MLong picW = bRotated ? nPictureHeight : nVideoWidth;
    const MLong picH = bRotated ? nVideoWidth : nPictureHeight;
    if (picW <= 0 || picH <= 0) return; // no video size yet: nothing to fit

    fWndRatio = float(nDisplayWidth) / float(nDisplayHeight);
    m_fPictureRatio = float(picW) / float(picH);
    m_fFrustumX = 1.0f;
    m_fFrustumY = 1.0f;
    if (fWndRatio <= m_fPictureRatio)
        m_fFrustumY = m_fPictureRatio / fWndRatio; // bars above and below
    else
        m_fFrustumX = fWndRatio / m_fPictureRatio; // bars left and right
    mpRotTranMatrix->setProjectFrustum(-m_fFrustumX, m_fFrustumX, -m_fFrustumY, m_fFrustumY, mProjectNear,
                                       mProjectFar);
    m_dwDisplayWidth.store(nDisplayWidth, std::memory_order_relaxed);
    m_dwDisplayHeight.store(nDisplayHeight, std::memory_order_relaxed);
    m_lProjPictureWidth = picW;
    m_lProjPictureHeight = picH;
    m_nInit.store(1, std::memory_order_relaxed);
}

void CommonEffect::ApplyDistortionChange()
{
    ZT5DistortionParam *pParam = m_pDistortionParam.load(std::memory_order_relaxed);
    if (!pParam || pParam->pTable == mCurDistortTable) return;

    // A table of the wrong length is dropped for good.
    if (pParam->dwCount != 13) pParam->pTable = nullptr;
    mCurDistortTable = pParam->pTable;
    ResetTexCoords();

    const double *t = mCurDistortTable;
    if (!t) {
        if (mDistortProgram) glDeleteProgram(mDistortProgram);
        mDistortProgram = 0;
        mDefaultLogo = nullptr;
        return;
    }
    if (!mDistortProgram) {
        mDistortProgram = buildProgram(kDistortVertexShader, kDistortFragmentShader);
        if (!mDistortProgram) return; // counts as applied: the plain program draws, no crop
        for (int i = 0; i < 15; i++) {
            m_lDistortLoc[i] = (i == LOC_A_POSITION || i == LOC_A_TEXCOORD)
                                   ? glGetAttribLocation(mDistortProgram, kDistortNames[i])
                                   : glGetUniformLocation(mDistortProgram, kDistortNames[i]);
        }
        m_lDistortTexScaleLoc = glGetUniformLocation(mDistortProgram, "u_texScaleX");
    }
    glUseProgram(mDistortProgram);
    for (int i = 0; i < 9; i++) glUniform1f(m_lDistortLoc[i], float(t[i]));

    // Crop of the corrected picture: a left, d top, b bottom, c right.
    const float a = float(t[10]);
    const float d = float(t[11]);
    const float b = float(1.0 + t[9]);
    const float c = float(1.0 + t[12]);
    const float crop[4][8] = {
        {a, b, c, b, a, d, c, d},
        {c, b, c, d, a, b, a, d},
        {c, d, a, d, c, b, a, b},
        {a, d, a, b, c, d, c, b},
    };
    for (int r = 0; r < 4; r++)
        for (int i = 0; i < 8; i++) mTexCoord[r][i] = crop[r][i];
    // The built-in mark of a corrected picture is made here by the overlay
    // code once it exists (mDefaultLogo).
}

float CommonEffect::AddF(std::atomic<float> &a, double delta)
{
    float seen = a.load(std::memory_order_relaxed);
    float next;
    do {
        next = Sane(double(seen) + delta, seen);
    } while (!a.compare_exchange_weak(seen, next, std::memory_order_relaxed));
    return next;
}

void CommonEffect::ReplaceF(std::atomic<float> &a, float seen, float v)
{
    if (seen == v) return;
    a.compare_exchange_strong(seen, v, std::memory_order_relaxed);
}

// The zoom animation of the double tap, one step a draw, ahead of the limits.
void CommonEffect::Update_camposrot()
{
    if (startAnimal.load(std::memory_order_relaxed) != 1) return;
    const float minScale = LoadF(mMinScale), maxScale = LoadF(mMaxScale);
    MLong d = mAnimalComSts.load(std::memory_order_relaxed);
    if (d == 0) {
        const float scale = LoadF(mScaleRatio);
        if (scale > minScale && scale <= maxScale) {
            // Zoom out, taking the pan back to the centre with the same
            // number of steps. The steps come from the pan as the limits
            // will leave it: a drag since the last draw may have pushed it
            // beyond, and a larger step would swing the picture past the
            // centre.
            d = -1;
            const float limit = PanLimit(scale);
            const double range = double(scale) - double(minScale);
            StoreF(mAnimalStepX, Sane(ClampPan(LoadF(mTransX), limit) * double(mZoomStep) / range, 0.0f));
            StoreF(mAnimalStepY, Sane(ClampPan(LoadF(mTransY), limit) * double(mZoomStep) / range, 0.0f));
        } else if (scale <= minScale) {
            d = 1; // zooming in doesn't pan
            StoreF(mAnimalStepX, 0.0f);
            StoreF(mAnimalStepY, 0.0f);
        } else {
            return; // above the limit: wait for the limits to bring it down
        }
        mAnimalComSts.store(d, std::memory_order_relaxed);
    }

    AddF(mTransX, double(LoadF(mAnimalStepX)) * double(d));
    const float scale = AddF(mScaleRatio, double(mZoomStep) * double(d));
    AddF(mTransY, double(LoadF(mAnimalStepY)) * double(d));

    if ((d < 0 && scale <= minScale) || (d > 0 && scale >= maxScale)) {
        StoreF(mScaleRatio, d < 0 ? minScale : maxScale);
        mAnimalComSts.store(0, std::memory_order_relaxed);
        startAnimal.store(0, std::memory_order_relaxed);
    }
}

// Brings zoom and pan into range, once a draw. The values it returns are the
// ones drawn: a gesture that lands after this is limited at the next draw.
CommonEffect::Camera CommonEffect::ApplyLimits()
{
    const float minScale = LoadF(mMinScale), maxScale = LoadF(mMaxScale);
    const float scale0 = LoadF(mScaleRatio);
    float scale = scale0;
    if (!(scale >= minScale)) scale = minScale; // NaN too
    if (scale > maxScale) scale = maxScale;
    ReplaceF(mScaleRatio, scale0, scale);

    const float limit = PanLimit(scale);
    StoreF(mMaxTransX, limit);
    StoreF(mMaxTransY, limit);
    const float tx0 = LoadF(mTransX), ty0 = LoadF(mTransY);
    const float tx = ClampPan(tx0, limit), ty = ClampPan(ty0, limit);
    ReplaceF(mTransX, tx0, tx);
    ReplaceF(mTransY, ty0, ty);
    return Camera{tx, ty, scale};
}

void CommonEffect::DrawFrame(const GLuint *pTextures, MDWord dwRotation)
{
    ApplyDistortionChange();
    const bool bDistort = mDistortProgram != 0;
    const GLuint program = bDistort ? mDistortProgram : mProgram;
    glUseProgram(program);

    const GLint posLoc = bDistort ? m_lDistortLoc[LOC_A_POSITION] : glGetAttribLocation(mProgram, "vPosition");
    if (posLoc >= 0) {
        glVertexAttribPointer(GLuint(posLoc), 3, GL_FLOAT, GL_FALSE, 0, mVertices);
        glEnableVertexAttribArray(GLuint(posLoc));
    }

    // Only the left part of each plane texture holds picture when the
    // renderer padded the rows.
    const float uScale = PlaneTextureUScale(nVideoWidth);
    const int rot = RotationIndex(dwRotation);
    float texCoord[8];
    for (int i = 0; i < 8; i++) texCoord[i] = (bDistort || (i & 1)) ? mTexCoord[rot][i] : mTexCoord[rot][i] * uScale;
    const GLint tcLoc = bDistort ? m_lDistortLoc[LOC_A_TEXCOORD] : glGetAttribLocation(mProgram, "a_texCoord");
    if (tcLoc >= 0) {
        glVertexAttribPointer(GLuint(tcLoc), 2, GL_FLOAT, GL_FALSE, 0, texCoord);
        glEnableVertexAttribArray(GLuint(tcLoc));
    }
    if (bDistort && m_lDistortTexScaleLoc >= 0) glUniform1f(m_lDistortTexScaleLoc, uScale);

    // Camera: the animation step, the limits, then the pan moves the eye
    // and the zoom scales the model.
    Update_camposrot();
    const Camera cam = ApplyLimits();
    RotTranMatrix *m = mpRotTranMatrix;
    RotTranMatrix::identity(m->mCurrMatrix);
    m->pushMatrix();
    m->setLookAt(0.0f, 0.0f, 1.0f, 0.0f, 0.0f, 0.0f, 0.0f, 1.0f, 0.0f);
    RotTranMatrix::translate(m->mVMatrix, cam.fTransX, cam.fTransY, 0.0f);
    m->scale(cam.fScale, cam.fScale, 1.0f);

    GLint samplers[3];
    if (bDistort) {
        for (int i = 0; i < 3; i++) samplers[i] = m_lDistortLoc[LOC_Y_TEX + i];
    } else {
        samplers[0] = glGetUniformLocation(mProgram, "SamplerY");
        samplers[1] = glGetUniformLocation(mProgram, "SamplerU");
        samplers[2] = glGetUniformLocation(mProgram, "SamplerV");
    }

    m->getFinalMatrix();
    glUniformMatrix4fv(bDistort ? m_lDistortLoc[LOC_U_MAPMATRIX] : muMVPMatrixHandle, 1, GL_FALSE, m->mMVPMatrix);

    for (int i = 0; i < 3; i++) {
        glActiveTexture(GL_TEXTURE0 + GLenum(i));
        glBindTexture(GL_TEXTURE_2D, pTextures ? pTextures[i] : 0);
        glUniform1i(samplers[i], i);
    }
    glDrawArrays(GL_TRIANGLE_STRIP, 0, 4);
    glActiveTexture(GL_TEXTURE0);

    // Logo and faces, with the picture's matrix: they zoom and pan with it.
    PlainOverlay::Frame overlay = {m->mMVPMatrix, kTexCoord[rot], nVideoWidth, nVideoHeight, m_fPictureRatio,
                                   bDistort, m_fFrustumX, m_fFrustumY, fWndRatio};
    m_Overlay.Draw(overlay);

    m->popMatrix();
}

// -------------------------------------------------------------- gestures

// A drag pans; the picture follows the finger, by more model units a pixel
// the larger the zoom. The pan is limited at the next draw, not here, so
// that a drag against the limit is seen and reported as an edge.
void CommonEffect::OnTouchMove(float x0, float y0, float x1, float y1)
{
    if (!m_nInit.load(std::memory_order_relaxed)) return;
    const double dx = double(x1) - double(x0);
    const double dy = double(y1) - double(y0);
    const double w = double(m_dwDisplayWidth.load(std::memory_order_relaxed));
    const double h = double(m_dwDisplayHeight.load(std::memory_order_relaxed));
    // The current point must lie in the window (NaN fails here too).
    if (!(x1 > 0.0f && y1 > 0.0f && double(x1) <= w && double(y1) <= h)) return;
    if (!std::isfinite(dx) || !std::isfinite(dy)) return; // a NaN or infinite start point

    const double unit = 0.001 * double(LoadF(mScaleRatio));
    const float ty = AddF(mTransY, -dy * unit);
    const float tx = AddF(mTransX, dx * unit);
    if (std::fabs(dx) + std::fabs(dy) > 0.4) startAnimal.store(0, std::memory_order_relaxed);

    const float maxX = LoadF(mMaxTransX), maxY = LoadF(mMaxTransY);
    if (tx > -maxX && tx < maxX && ty > -maxY && ty < maxY) return;

    const double ax = std::fabs(dx), ay = std::fabs(dy);
    MDWord code = EDGE_NONE;
    if (tx >= maxX && dx > 0 && ax > ay)
        code = EDGE_RIGHT;
    else if (tx <= -maxX && dx < 0 && ax > ay)
        code = EDGE_LEFT;
    else if (ty <= -maxY && dy > 0 && ay > ax)
        code = EDGE_TOP;
    else if (ty >= maxY && dy < 0 && ay > ax)
        code = EDGE_BOTTOM;
    ReportEdge(code);
}

// Tells the host, on the caller's thread, that a drag met the picture's edge.
void CommonEffect::ReportEdge(MDWord dwCode)
{
    if (dwCode == EDGE_NONE) return;
    ZT5UICallbackRecord *pRecord = m_pUICallback.load(std::memory_order_relaxed);
    if (!pRecord) return;
    CZT5Mutex *pRecordMutex = static_cast<CZT5Mutex *>(pRecord->pMutex);
    if (pRecordMutex) pRecordMutex->Lock();
    pRecord->msg.dwEvent = ZT5_UI_EVENT;
    pRecord->msg.dwValue1 = dwCode;
    pRecord->msg.dwValue2 = dwCode;
    pRecord->msg.dwParamID = ZT5_CFG_DISPLAY_EDGE_EVENT;
    if (pRecord->pfnCallback) pRecord->pfnCallback(&pRecord->msg, pRecord->pArg);
    if (pRecordMutex) pRecordMutex->Unlock();
}

// A pinch zooms in fixed steps: a rate above 1.0 in, any other out. The
// centre movement isn't used. It stops a running zoom animation.
void CommonEffect::OnTouchPinch(float fZoomRate, float fDX, float fDY)
{
    (void)fDX;
    (void)fDY;
    if (!m_nInit.load(std::memory_order_relaxed)) return;
    startAnimal.store(0, std::memory_order_relaxed);
    AddF(mScaleRatio, fZoomRate > 1.0f ? 0.055 : -0.055);
}

// A double tap in the window starts (or resumes) the zoom animation; where
// it lands doesn't matter, the zoom centre stays where the pan is.
void CommonEffect::OnDoubleClick(float x, float y)
{
    if (!m_nInit.load(std::memory_order_relaxed)) return;
    const double w = double(m_dwDisplayWidth.load(std::memory_order_relaxed));
    const double h = double(m_dwDisplayHeight.load(std::memory_order_relaxed));
    if (!(x >= 0.0f && y >= 0.0f && double(x) <= w && double(y) <= h)) return;
    startAnimal.store(1, std::memory_order_relaxed);
}

// -------------------------------------------------------------- settings

MRESULT CommonEffect::setConfig(MDWord dwID, void *pValue)
{
    if (m_Overlay.SetConfig(dwID, pValue)) return 0;
    switch (dwID) {
    case ZT5_CFG_DISPLAY_FRAMEINFO:
        if (pValue) {
            const ZT5FrameInfo *pInfo = static_cast<const ZT5FrameInfo *>(pValue);
            m_width = MLong(pInfo->dwWidth);
            m_height = MLong(pInfo->dwHeight);
        }
        return 0;
    case ZT5_CFG_DISPLAY_DISTORTION_PARAM:
        if (pValue) m_pDistortionParam.store(static_cast<ZT5DistortionParam *>(pValue), std::memory_order_relaxed);
        return 0;
    case ZT5_CFG_DISPLAY_UICALLBACK:
        if (pValue) m_pUICallback.store(static_cast<ZT5UICallbackRecord *>(pValue), std::memory_order_relaxed);
        return 0;
    case ZT5_CFG_DISPLAY_SCALE_RATIO: {
        // A factor here, not a percentage. A NaN or infinite factor is
        // nobody's zoom and is ignored.
        if (!pValue) return 0;
        float v = *static_cast<const float *>(pValue);
        if (!std::isfinite(v)) return 0;
        const float maxScale = LoadF(mMaxScale);
        if (v > maxScale) v = maxScale;
        if (v < 1.0f) v = 1.0f;
        StoreF(mScaleRatio, v);
        return 0;
    }
    case ZT5_CFG_DISPLAY_MAX_SCALE: {
        if (!pValue) return 0;
        const float v = *static_cast<const float *>(pValue);
        if (v > 0.0f && std::isfinite(v)) StoreF(mMaxScale, v < kValueBound ? v : kValueBound);
        return 0;
    }
    case ZT5_CFG_DISPLAY_FE_CURRENTSTATUS:
        if (!pValue) return 0;
        MMemCpy(&m_FECurrentStatusData, pValue, sizeof(m_FECurrentStatusData));
        restoreCurrentStatus();
        return 0;
    default:
        return GlesRenderEffect::setConfig(dwID, pValue);
    }
}

// What this view keeps in the saved-state record: each live member, its
// field of the record, and the value a restore puts in place of a NaN or
// infinite field. Save and restore both run over this table, so a field
// added to the view's saved state is one line here.
const CommonEffect::SavedField *CommonEffect::SavedFields(size_t *pCount)
{
    static const SavedField kFields[] = {
        {&CommonEffect::mTransX, &FECurrentStatusData::mTransX, 0.0f},
        {&CommonEffect::mTransY, &FECurrentStatusData::mTransY, 0.0f},
        {&CommonEffect::mAnimalStepX, &FECurrentStatusData::mAnimalStepX, 0.0f},
        {&CommonEffect::mAnimalStepY, &FECurrentStatusData::mAnimalStepY, 0.0f},
        {&CommonEffect::mScaleRatio, &FECurrentStatusData::mScaleRatio, 1.0f},
    };
    *pCount = sizeof(kFields) / sizeof(kFields[0]);
    return kFields;
}

void CommonEffect::saveCurrentStatus()
{
    size_t n = 0;
    const SavedField *f = SavedFields(&n);
    for (size_t i = 0; i < n; i++) m_FECurrentStatusData.*(f[i].field) = LoadF(this->*(f[i].member));
}

// The record's values are taken as they come, with one guard: a field that
// isn't a finite number (or is beyond any sane size) is replaced, since the
// draw's limits can bring a large value back but not a NaN. The limits of
// the next draw then apply as to any other value.
void CommonEffect::restoreCurrentStatus()
{
    size_t n = 0;
    const SavedField *f = SavedFields(&n);
    for (size_t i = 0; i < n; i++)
        StoreF(this->*(f[i].member), Sane(double(m_FECurrentStatusData.*(f[i].field)), f[i].fallback));
}

MRESULT CommonEffect::GetConfig(MDWord dwID, void *pValue)
{
    if (dwID != ZT5_CFG_DISPLAY_GET_FE_CURRENTSTATUS) return 0;
    if (!pValue) return ZT5_ERR_INVALID_PARAM;
    saveCurrentStatus();
    MMemCpy(pValue, &m_FECurrentStatusData, sizeof(m_FECurrentStatusData));
    return 0;
}

float CommonEffect::GetScaleRatio()
{
    const float scale = LoadF(mScaleRatio);
    float v = scale;
    const float maxScale = LoadF(mMaxScale);
    if (v > maxScale) v = maxScale;
    if (!(v >= 1.0f)) v = 1.0f;
    MLogDebug("[%s] CommonEffect::GetScaleRatio() mScaleRatio:%f  return value :%f\r\n", MLOG_TAG, double(scale),
              double(v));
    return v;
}
