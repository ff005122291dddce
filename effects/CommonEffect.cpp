// FishEyeMode 0, the plain view: the frame as a flat rectangle letterboxed
// in the window, zoomable and pannable, with an optional lens distortion
// correction in the fragment shader. Its projection follows the picture's
// size and rotation, its gestures report the picture's edges, and its pan
// and zoom are read-modify-written by gestures and draws alike without
// losing either's change.
#include <cmath>
#include <new>

#include "MLog.h"
#include "PlainOverlay.h"
#include "ViewEffect.h"
#include "ZT5Mutex.h"

namespace {

// Plain program: the picture as it is.
const char kVertexShader[] = "attribute vec4 aPosition;\n"
                             "attribute vec2 aTexCoor;\n"
                             "uniform mat4 uMVPMatrix;\n"
                             "varying vec2 tc;\n"
                             "void main() {\n"
                             "  gl_Position = uMVPMatrix * vec4(aPosition.xyz, 1.0);\n"
                             "  tc = aTexCoor;\n"
                             "}\n";

// Texture coordinates get the highest precision the fragment stage offers:
// at low precision a coordinate across a 1920-texel row would land several
// texels off.
const char kFragmentShader[] = "precision mediump float;\n"
                               "#ifdef GL_FRAGMENT_PRECISION_HIGH\n"
                               "varying highp vec2 tc;\n"
                               "#else\n"
                               "varying mediump vec2 tc;\n"
                               "#endif\n" GLSL_FRAME_COLOUR
                               "void main() {\n"
                               "  gl_FragColor = frameColour(tc);\n"
                               "}\n";

// Lens distortion correction: Brown-Conrady model in texture units. Its
// colours come from kYuvLensCorrection.
const char kDistortVertexShader[] = "attribute vec4 aPosition;\n"
                                    "attribute vec2 aTexCoor;\n"
                                    "uniform mat4 uMVPMatrix;\n"
                                    "varying vec2 v_texCoord;\n"
                                    "void main() {\n"
                                    "  gl_Position = uMVPMatrix * aPosition;\n"
                                    "  v_texCoord = aTexCoor;\n"
                                    "}\n";

const char kDistortFragmentShader[] =
    "#ifdef GL_FRAGMENT_PRECISION_HIGH\n"
    "precision highp float;\n"
    "#else\n"
    "precision mediump float;\n"
    "#endif\n"
    "varying vec2 v_texCoord;\n" GLSL_FRAME_COLOUR
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
    "  gl_FragColor = frameColour(vec2(x, y));\n"
    "}\n";

// The correction's coefficients, in the order of the host's table.
const char *const kDistortNames[9] = {"k1", "k2", "k3", "p1", "p2", "fx", "fy", "ox", "oy"};

// The picture's rectangle in model units: -1..1 both ways; the projection
// makes it keep the picture's proportions.
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

// Zoom change per step of the double tap's animation, and per pinch.
const float kZoomStep = 0.06f;
const double kPinchStep = 0.055;

// a += delta without losing a concurrent writer's change; returns the
// value stored. The result is kept finite and within a sane bound.
float AddF(Relaxed<float> &a, double delta)
{
    float seen = a.load();
    float next;
    do {
        next = Sane(double(seen) + delta, seen);
    } while (!a.CompareExchange(seen, next));
    return next;
}

// Replaces `seen` by `v` only if nobody stored another value since it was
// read: a gesture landing meanwhile wins and is limited next draw.
void ReplaceF(Relaxed<float> &a, float seen, float v)
{
    if (seen == v) return;
    a.CompareExchange(seen, v);
}

// The picture a pixel shows, as the programs above draw it: the pixel's ray
// meets the quad's plane z = 0 within its -1..1 square; the corners'
// coordinates k[0..7] (bottom left, bottom right, top left, top right)
// give the point's affinely; with k[8] set, the correction's formula with
// k1..oy in k[9..17] moves it, and what falls outside the frame is black.
bool PlainLensPoint(const PaneMap &pane, const ZT5LensModel &, const PaneRay &r, double p[2])
{
    if (r.d[2] == 0.0) return false;
    const double v = -r.o[2] / r.d[2];
    const double X = r.o[0] + v * r.d[0], Y = r.o[1] + v * r.d[1];
    if (X < -1.0 || X > 1.0 || Y < -1.0 || Y > 1.0) return false;
    const float *k = pane.k;
    const double s = 0.5 * (X + 1.0), t = 0.5 * (Y + 1.0);
    double x = k[0] + s * (k[2] - k[0]) + t * (k[4] - k[0]);
    double y = k[1] + s * (k[3] - k[1]) + t * (k[5] - k[1]);
    if (k[8] != 0.0f) {
        const double k1 = k[9], k2 = k[10], k3 = k[11], p1 = k[12], p2 = k[13];
        const double fx = k[14], fy = k[15], ox = k[16], oy = k[17];
        const double x0 = (x - ox) / fx, y0 = (y - oy) / fy;
        const double r2 = x0 * x0 + y0 * y0, radial = 1.0 + k1 * r2 + k2 * r2 * r2 + k3 * r2 * r2 * r2;
        x = (x0 * radial + 2.0 * p1 * x0 * y0 + p2 * (r2 + 2.0 * x0 * x0)) * fx + ox;
        y = (y0 * radial + 2.0 * p2 * x0 * y0 + p1 * (r2 + 2.0 * y0 * y0)) * fy + oy;
        if (x < 0.0 || x > 1.0 || y < 0.0 || y > 1.0) return false;
    }
    p[0] = x, p[1] = y;
    return true;
}

// Edge codes reported when a drag pushes the pan against its limit.
enum : MDWord { EDGE_NONE = 0, EDGE_TOP = 1, EDGE_LEFT = 2, EDGE_BOTTOM = 4, EDGE_RIGHT = 8 };

} // namespace

extern const ViewTraits kCommonEffectTraits = {LensBox::Whole, false, false, false, false};

class CommonEffect final : public ViewEffect {
public:
    CommonEffect() : ViewEffect("CommonEffect", kCommonEffectTraits)
    {
        ResetTexCoords();
        FECurrentStatusData &d = m_FECurrentStatusData;
        SaveFields({SavedField::Checked(mTransX, d.mTransX, 0.0f), SavedField::Checked(mTransY, d.mTransY, 0.0f),
                    SavedField::Checked(mAnimalStepX, d.mAnimalStepX, 0.0f),
                    SavedField::Checked(mAnimalStepY, d.mAnimalStepY, 0.0f),
                    SavedField::Checked(mScaleRatio, d.mScaleRatio, 1.0f)});
    }

    // Gestures run on the host's thread while the render thread draws:
    // they only store into the Relaxed camera members and make no GL call.
    void OnTouchPinch(float fZoomRate, float fDX, float fDY) override;
    MRESULT setConfig(MDWord dwID, void *pValue) override;
    float GetScaleRatio() override;

private:
    MRESULT Build() override;
    bool Ready(Frame &f) override;
    void Project(MLong, MLong) override {} // Ready makes the letterbox
    void StepCamera() override;
    void Draw(const Frame &f) override;
    bool Moving() const override { return startAnimal.load() == 1; }
    void Drag(float x0, float y0, float x1, float y1) override;
    void DoubleTap(float x, float y) override;

    void MakeProjection(MLong nDisplayWidth, MLong nDisplayHeight, MLong nVideoWidth, MLong nPictureHeight,
                        MDWord dwRotation);
    void ApplyDistortionChange();
    void ResetTexCoords();

    ViewProgram m_Plain;   // the picture as it is
    ViewProgram m_Distort; // with the lens correction, while a table is set
    GLint m_lDistortLoc[9] = {}; // k1 k2 k3 p1 p2 fx fy ox oy
    ViewMesh m_Quad;       // four vertices; texture coordinates follow rotation and crop
    float m_fQuadTexCoord[8] = {};
    RotTranMatrix m_Camera = {};
    const float mProjectNear = 1.0f;
    const float mProjectFar = 30.0f;

    // Pan, zoom and the zoom animation: written by gestures and settings on
    // the host's thread, read and stepped by the draw. Additions go through
    // AddF so that two writers don't lose each other's step; each value
    // stands alone and the draw's limits bring it back in range.
    Relaxed<float> mTransY{0.0f};      // pan in y, model units
    Relaxed<float> mTransX{0.0f};      // pan in x
    Relaxed<float> mScaleRatio{1.0f};  // zoom factor
    Relaxed<MDWord> startAnimal{0};    // a zoom animation runs
    Relaxed<float> mMinScale{1.0f};    // lower zoom limit
    Relaxed<float> mMaxScale{4.0f};    // upper zoom limit
    Relaxed<MLong> mAnimalComSts{0};   // animation direction: 0 not begun, 1 in, -1 out
    Relaxed<float> mMaxTransX{2.0f};   // pan limits, set at each draw
    Relaxed<float> mMaxTransY{2.0f};
    Relaxed<float> mAnimalStepX{0.0f}; // pan change per animation step
    Relaxed<float> mAnimalStepY{0.0f};
    // The camera as this frame's step and limits left it.
    float m_fDrawTransX = 0.0f, m_fDrawTransY = 0.0f, m_fDrawScale = 1.0f;

    std::atomic<ZT5DistortionParam *> m_pDistortionParam{nullptr};
    float mTexCoord[4][8];
    const double *mCurDistortTable = nullptr;
    float m_fFrustumX = 1.0f;
    float m_fFrustumY = 1.0f;
    float m_fPictureRatio = 1.0f;
    // Picture size (after rotation and the correction's height rule) the
    // projection was made for; another one needs a new letterbox.
    MLong m_lProjPictureWidth = 0;
    MLong m_lProjPictureHeight = 0;
    PlainOverlay m_Overlay; // logo, built-in mark, faces
};

GlesRenderEffect *MakeCommonEffect(MDWord)
{
    return new (std::nothrow) CommonEffect();
}

void CommonEffect::ResetTexCoords()
{
    for (int r = 0; r < 4; r++)
        for (int i = 0; i < 8; i++) mTexCoord[r][i] = kTexCoord[r][i];
}

MRESULT CommonEffect::Build()
{
    m_Plain.Build(m_szViewName, kVertexShader, kFragmentShader);
    // Built again for a frame of another layout: the correction's program
    // follows at the next draw, as for a table set anew.
    if (m_Distort) {
        m_Distort.Release();
        mCurDistortTable = nullptr;
    }
    const float *t = mTexCoord[0];
    m_Quad.Upload(kVertices, t, 4, GL_TRIANGLE_STRIP, GL_DYNAMIC_DRAW);
    for (int i = 0; i < 8; i++) m_fQuadTexCoord[i] = t[i];
    return 0;
}

// ------------------------------------------------------------------ draw

bool CommonEffect::Ready(Frame &f)
{
    const MLong nVideoWidth = f.videoWidth, nVideoHeight = f.videoHeight;
    const MDWord dwRotation = f.dwRotation;
    // The corrected picture counts at 83% of its height in the aspect.
    ZT5DistortionParam *pParam = m_pDistortionParam.load(std::memory_order_relaxed);
    const bool bChangePending = pParam && pParam->pTable != mCurDistortTable;
    MLong h;
    if (bChangePending) // a null table switches the correction off
        h = (pParam->dwCount == 13 && pParam->pTable) ? MLong(double(nVideoHeight) * 0.83) : nVideoHeight;
    else
        h = m_Distort ? MLong(double(nVideoHeight) * 0.83) : nVideoHeight;

    const bool bRotated = (dwRotation == 90 || dwRotation == 270);
    const MLong picW = bRotated ? h : nVideoWidth;
    const MLong picH = bRotated ? nVideoWidth : h;
    const bool bWindowChanged = f.width != m_nWidth.load() || f.height != m_nHeight.load();
    const bool bPictureChanged = picW != m_lProjPictureWidth || picH != m_lProjPictureHeight;
    if ((bWindowChanged || !m_nInit.load() || bChangePending || bPictureChanged) && f.width != 0 && f.height != 0)
        MakeProjection(f.width, f.height, nVideoWidth, h, dwRotation);

    if (!m_nInit.load()) {
        MLogDebug("[%s] %s::Render m_nInit == false. ", MLOG_TAG, m_szViewName);
        return false;
    }
    // The window the projection was made for: a size with a zero side
    // keeps it.
    f.viewportWidth = m_nWidth.load();
    f.viewportHeight = m_nHeight.load();
    return true;
}

void CommonEffect::MakeProjection(MLong nDisplayWidth, MLong nDisplayHeight, MLong nVideoWidth,
                                  MLong nPictureHeight, MDWord dwRotation)
{
    m_nInit = 0;
    if (nDisplayWidth <= kViewMinWindow || nDisplayHeight <= kViewMinWindow) {
        MLogDebug("[%s] CommonEffect::Render window too small %dx%d", MLOG_TAG, int(nDisplayWidth),
                  int(nDisplayHeight));
        return;
    }
    const bool bRotated = (dwRotation == 90 || dwRotation == 270);
    const MLong picW = bRotated ? nPictureHeight : nVideoWidth;
    const MLong picH = bRotated ? nVideoWidth : nPictureHeight;
    if (picW <= 0 || picH <= 0) return; // no video size yet: nothing to fit

    mWndRatio = float(nDisplayWidth) / float(nDisplayHeight);
    m_fPictureRatio = float(picW) / float(picH);
    m_fFrustumX = 1.0f;
    m_fFrustumY = 1.0f;
    if (mWndRatio <= m_fPictureRatio)
        m_fFrustumY = m_fPictureRatio / mWndRatio; // bars above and below
    else
        m_fFrustumX = mWndRatio / m_fPictureRatio; // bars left and right
    m_Camera.setProjectFrustum(-m_fFrustumX, m_fFrustumX, -m_fFrustumY, m_fFrustumY, mProjectNear, mProjectFar);
    m_nWidth = nDisplayWidth;
    m_nHeight = nDisplayHeight;
    m_lProjPictureWidth = picW;
    m_lProjPictureHeight = picH;
    m_nInit = 1;
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
        m_Distort.Release();
        return;
    }
    if (!m_Distort) {
        m_Distort.Build(m_szViewName, kDistortVertexShader, kDistortFragmentShader);
        if (!m_Distort) return; // counts as applied: the plain program draws, no crop
        for (int i = 0; i < 9; i++)
            m_lDistortLoc[i] = m_Distort.Uniform(m_szViewName, kDistortNames[i], kDistortNames[i]);
    }
    m_Distort.Use();
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
    // While a correction runs and no logo is loaded the overlay draws the
    // built-in mark.
}

// The zoom animation of the double tap, one step a draw, ahead of the
// limits; then the limits. The values left are the ones drawn: a gesture
// that lands after this is limited at the next draw.
void CommonEffect::StepCamera()
{
    const float minScale = mMinScale.load(), maxScale = mMaxScale.load();
    if (startAnimal.load() == 1) {
        MLong d = mAnimalComSts.load();
        bool bStep = true;
        if (d == 0) {
            const float scale = mScaleRatio.load();
            if (scale > minScale && scale <= maxScale) {
                // Zoom out, taking the pan back to the centre with the same
                // number of steps. The steps come from the pan as the limits
                // will leave it: a drag since the last draw may have pushed
                // it beyond, and a larger step would swing the picture past
                // the centre.
                d = -1;
                const float limit = PanLimit(scale);
                const double range = double(scale) - double(minScale);
                mAnimalStepX = Sane(ClampPan(mTransX.load(), limit) * double(kZoomStep) / range, 0.0f);
                mAnimalStepY = Sane(ClampPan(mTransY.load(), limit) * double(kZoomStep) / range, 0.0f);
            } else if (scale <= minScale) {
                d = 1; // zooming in doesn't pan
                mAnimalStepX = 0.0f;
                mAnimalStepY = 0.0f;
            } else {
                bStep = false; // above the limit: wait for the limits to bring it down
            }
            if (bStep) mAnimalComSts = d;
        }
        if (bStep) {
            AddF(mTransX, double(mAnimalStepX.load()) * double(d));
            const float scale = AddF(mScaleRatio, double(kZoomStep) * double(d));
            AddF(mTransY, double(mAnimalStepY.load()) * double(d));
            if ((d < 0 && scale <= minScale) || (d > 0 && scale >= maxScale)) {
                mScaleRatio = d < 0 ? minScale : maxScale;
                mAnimalComSts = 0;
                startAnimal = 0;
            }
        }
    }

    const float scale0 = mScaleRatio.load();
    float scale = scale0;
    if (!(scale >= minScale)) scale = minScale; // NaN too
    if (scale > maxScale) scale = maxScale;
    ReplaceF(mScaleRatio, scale0, scale);

    const float limit = PanLimit(scale);
    mMaxTransX = limit;
    mMaxTransY = limit;
    const float tx0 = mTransX.load(), ty0 = mTransY.load();
    const float tx = ClampPan(tx0, limit), ty = ClampPan(ty0, limit);
    ReplaceF(mTransX, tx0, tx);
    ReplaceF(mTransY, ty0, ty);
    m_fDrawTransX = tx;
    m_fDrawTransY = ty;
    m_fDrawScale = scale;
}

void CommonEffect::Draw(const Frame &f)
{
    ApplyDistortionChange();
    const bool bDistort = bool(m_Distort);
    const ViewProgram &program = bDistort ? m_Distort : m_Plain;

    const int rot = RotationIndex(f.dwRotation);
    float texCoord[8];
    for (int i = 0; i < 8; i++) texCoord[i] = mTexCoord[rot][i];
    // The buffer is written only when the coordinates change (a new
    // rotation or correction).
    if (MMemCmp(texCoord, m_fQuadTexCoord, sizeof(texCoord)) != 0) {
        m_Quad.UpdateTexCoords(texCoord);
        MMemCpy(m_fQuadTexCoord, texCoord, sizeof(texCoord));
    }

    // The pan moves the eye and the zoom scales the model.
    auto camera = [&](RotTranMatrix &m) {
        m.setLookAt(0.0f, 0.0f, 1.0f, 0.0f, 0.0f, 0.0f, 0.0f, 1.0f, 0.0f);
        RotTranMatrix::translate(m.mVMatrix, m_fDrawTransX, m_fDrawTransY, 0.0f);
        m.scale(m_fDrawScale, m_fDrawScale, 1.0f);
    };
    // The correction program keeps the numbers it has always drawn with.
    FrameSampling corrected = *f.sampling;
    if (bDistort) corrected.conversion = kYuvLensCorrection;
    DrawPass(m_Camera, camera, program, m_Quad, &corrected, [] {});
    const float *t = texCoord;
    if (bDistort && mCurDistortTable) {
        const double *d = mCurDistortTable;
        MapPane(0, 0, 0, GLint(f.viewportWidth), GLint(f.viewportHeight), m_Camera, PlainLensPoint,
                {t[0], t[1], t[2], t[3], t[4], t[5], t[6], t[7], 1.0f, float(d[0]), float(d[1]), float(d[2]),
                 float(d[3]), float(d[4]), float(d[5]), float(d[6]), float(d[7]), float(d[8])});
    } else {
        MapPane(0, 0, 0, GLint(f.viewportWidth), GLint(f.viewportHeight), m_Camera, PlainLensPoint,
                {t[0], t[1], t[2], t[3], t[4], t[5], t[6], t[7], 0.0f});
    }
    // Logo and faces, with the picture's matrix (DrawPass leaves it in the
    // camera): they zoom and pan with the picture.
    const PlainOverlay::Frame overlay = {m_Camera.mMVPMatrix, kTexCoord[rot], f.videoWidth, f.videoHeight,
                                         m_fPictureRatio, bDistort, m_fFrustumX, m_fFrustumY, mWndRatio};
    m_Overlay.Draw(overlay);
}

// -------------------------------------------------------------- gestures

// A drag pans; the picture follows the finger, by more model units a pixel
// the larger the zoom. The pan is limited at the next draw, not here, so
// that a drag against the limit is seen and reported as an edge.
void CommonEffect::Drag(float x0, float y0, float x1, float y1)
{
    if (!m_nInit.load()) return;
    const double dx = double(x1) - double(x0);
    const double dy = double(y1) - double(y0);
    const double w = double(m_nWidth.load());
    const double h = double(m_nHeight.load());
    // The current point must lie in the window (NaN fails here too).
    if (!(x1 > 0.0f && y1 > 0.0f && double(x1) <= w && double(y1) <= h)) return;
    if (!std::isfinite(dx) || !std::isfinite(dy)) return; // a NaN or infinite start point

    const double unit = 0.001 * double(mScaleRatio.load());
    const float ty = AddF(mTransY, -dy * unit);
    const float tx = AddF(mTransX, dx * unit);
    if (std::fabs(dx) + std::fabs(dy) > 0.4) startAnimal = 0;

    const float maxX = mMaxTransX.load(), maxY = mMaxTransY.load();
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
    if (code != EDGE_NONE) PostEdgeEvent(code);
}

// A pinch zooms in fixed steps: a rate above 1.0 in, any other out. The
// centre movement isn't used. It stops a running zoom animation.
void CommonEffect::OnTouchPinch(float fZoomRate, float, float)
{
    if (!m_nInit.load()) return;
    startAnimal = 0;
    AddF(mScaleRatio, fZoomRate > 1.0f ? kPinchStep : -kPinchStep);
}

// A double tap in the window starts (or resumes) the zoom animation; where
// it lands doesn't matter, the zoom centre stays where the pan is.
void CommonEffect::DoubleTap(float x, float y)
{
    if (!m_nInit.load()) return;
    const double w = double(m_nWidth.load());
    const double h = double(m_nHeight.load());
    if (!(x >= 0.0f && y >= 0.0f && double(x) <= w && double(y) <= h)) return;
    startAnimal = 1;
}

// -------------------------------------------------------------- settings

MRESULT CommonEffect::setConfig(MDWord dwID, void *pValue)
{
    if (m_Overlay.SetConfig(dwID, pValue)) return 0;
    switch (dwID) {
    case ZT5_CFG_DISPLAY_DISTORTION_PARAM:
        if (pValue) m_pDistortionParam.store(static_cast<ZT5DistortionParam *>(pValue), std::memory_order_relaxed);
        return 0;
    case ZT5_CFG_DISPLAY_SCALE_RATIO: {
        // A factor here, not a percentage. A NaN or infinite factor is
        // nobody's zoom and is ignored.
        if (!pValue) return 0;
        float v = *static_cast<const float *>(pValue);
        if (!std::isfinite(v)) return 0;
        const float maxScale = mMaxScale.load();
        if (v > maxScale) v = maxScale;
        if (v < 1.0f) v = 1.0f;
        mScaleRatio = v;
        return 0;
    }
    case ZT5_CFG_DISPLAY_MAX_SCALE: {
        if (!pValue) return 0;
        const float v = *static_cast<const float *>(pValue);
        if (v > 0.0f && std::isfinite(v)) mMaxScale = v < kValueBound ? v : kValueBound;
        return 0;
    }
    default:
        return ViewEffect::setConfig(dwID, pValue);
    }
}

float CommonEffect::GetScaleRatio()
{
    const float scale = mScaleRatio.load();
    float v = scale;
    const float maxScale = mMaxScale.load();
    if (v > maxScale) v = maxScale;
    if (!(v >= 1.0f)) v = 1.0f;
    MLogDebug("[%s] CommonEffect::GetScaleRatio() mScaleRatio:%f  return value :%f\r\n", MLOG_TAG, double(scale),
              double(v));
    return v;
}
