#include "FisheyeCommon.h"

#include <algorithm>
#include <cmath>

#include "LensLaw.h"
#include "MLog.h"
#include "ViewMap.h"

static_assert(ZT5_FACE_LIST_MAX == 50, "the face stage holds ZT5_FACE_LIST_MAX rectangles");

// ----------------------------------------------------------- lens model

bool FootprintUniform::Find(const ViewProgram &program)
{
    // Absent from a program built without the footprint sampler.
    m_Texel = program.id() ? glGetUniformLocation(program.id(), "lensTexel") : -1;
    m_Width = m_Height = 0;
    return m_Texel >= 0;
}

void FootprintUniform::Send(MLong width, MLong height)
{
    if (m_Texel < 0 || width <= 0 || height <= 0 || (width == m_Width && height == m_Height)) return;
    glUniform2f(m_Texel, 1.0f / float(width), 1.0f / float(height));
    m_Width = width, m_Height = height;
}

bool LensUniforms::Find(const ViewProgram &program, const char *viewName)
{
    m_Scale = program.Uniform(viewName, "lensScale", "mLensScaleHandle");
    // The law's coefficients exist in the polynomial's program only, and a
    // view tests what its lens sees by the angle or by its cosine: looked up
    // without complaint, set where they are.
    const GLuint id = program.id();
    m_K = id ? glGetUniformLocation(id, "lensK") : -1;
    m_HalfFov = id ? glGetUniformLocation(id, "lensHalfFov") : -1;
    m_CosHalfFov = id ? glGetUniformLocation(id, "lensCosHalfFov") : -1;
    m_Sent = 0;
    m_Footprint.Find(program);
    return m_Scale >= 0;
}

void LensUniforms::Send(const ZT5LensModel &model, unsigned generation, MLong boxWidth, MLong boxHeight)
{
    m_Footprint.Send(boxWidth, boxHeight);
    if (generation == m_Sent) return;
    const LensAsDrawn lens(model);
    const ZT5LensModel &m = lens.model;
    glUniform4f(m_K, m.fK[0], m.fK[1], m.fK[2], m.fK[3]);
    glUniform1f(m_Scale, float(lens.scale));
    // Half the field of view and its cosine, below -1 for a lens that sees
    // every direction.
    glUniform1f(m_HalfFov, float(lens.halfFov));
    glUniform1f(m_CosHalfFov, lens.halfFov >= 3.14159265358979 ? -2.0f : float(std::cos(lens.halfFov)));
    m_Sent = generation;
}

LensAsDrawn::LensAsDrawn(const ZT5LensModel &record) : model(LensLawNormalised(record))
{
    // The default keeps the number the equidistant law always divided by.
    const bool equidistant180 = model.dwLaw == ZT5_LENS_EQUIDISTANT && model.fFieldOfView == 180.0f;
    scale = equidistant180 ? 1.0 / 1.570795 : LensLawScale(model);
    // Half the field of view, in radians, a hair wider so that the rim of a
    // 180-degree lens (the dome's rim row) still counts as seen.
    halfFov = model.fFieldOfView * 3.14159265358979 / 360.0 + 1e-4;
}

double LensAsDrawn::Radius(double theta) const
{
    return LensLawF(model, theta) * scale;
}

bool DomeHitOf(const PaneRay &r, const float scale[3], double p[3])
{
    const double *o = r.o, *d = r.d;
    p[0] = 0.0, p[1] = 0.0, p[2] = -6.0;
    if (scale[2] < 1e-4f) {
        if (d[2] == 0.0) return false;
        const double v = -o[2] / d[2];
        const double qx = (o[0] + v * d[0]) / scale[0], qy = (o[1] + v * d[1]) / scale[1];
        const double qq = qx * qx + qy * qy;
        p[0] = qx, p[1] = qy, p[2] = -std::sqrt(std::fmax(36.0 - qq, 0.0));
        return v >= 0.0 && v <= 1.0 && qq <= 36.0;
    }
    double ok[3], dk[3];
    for (int i = 0; i < 3; i++) {
        const double k = double(scale[2]) / double(scale[i]);
        ok[i] = o[i] * k, dk[i] = d[i] * k;
    }
    const double R = 6.0 * scale[2];
    const double a = dk[0] * dk[0] + dk[1] * dk[1] + dk[2] * dk[2];
    const double b = ok[0] * dk[0] + ok[1] * dk[1] + ok[2] * dk[2];
    const double c = ok[0] * ok[0] + ok[1] * ok[1] + ok[2] * ok[2] - R * R;
    double q = b * b - a * c;
    if (q < 0.0 || a == 0.0) return false;
    q = std::sqrt(q);
    double u = (-b - q) / a;
    if (u < 0.0 || o[2] + u * d[2] > 0.0) u = (-b + q) / a;
    for (int i = 0; i < 3; i++) p[i] = (o[i] + u * d[i]) / scale[i];
    return u >= 0.0 && u <= 1.0 && p[2] <= 0.0;
}

double DomeLatitudeOf(const double p[3])
{
    return std::atan2(-p[2], std::hypot(p[0], p[1]));
}

void DomeAboutOf(const double p[3], double about[2])
{
    const double r = std::hypot(p[0], p[1]);
    about[0] = r > 0.0 ? -p[0] / r : 0.0;
    about[1] = r > 0.0 ? -p[1] / r : 1.0;
}

bool DomePoint::Hit(const PaneRay &ray, const float scale[3])
{
    if (!DomeHitOf(ray, scale, p)) return false;
    t = DomeLatitudeOf(p);
    DomeAboutOf(p, about);
    return lens.Sees(1.570795 - t);
}

bool DomeLensPoint(const PaneMap &pane, const ZT5LensModel &model, const PaneRay &ray, double out[2])
{
    DomePoint d(model);
    if (!d.Hit(ray, pane.k)) return false;
    AboutLookupOf(d.about, d.lens.LatitudeRadius(d.t, pane.k[3]), pane.k[4], pane.k[5], out);
    return true;
}

void AboutLookupOf(const double about[2], double fir, double signS, double signT, double out[2])
{
    out[0] = 0.5 + signS * fir * about[0] / 2.0;
    out[1] = 0.5 + signT * fir * about[1] / 2.0;
}

// ------------------------------------------------- views drawn per pixel

MRESULT UploadRayQuad(ViewMesh &mesh)
{
    const float v[12] = {-1, -1, 0, 1, -1, 0, -1, 1, 0, 1, 1, 0};
    const float t[8] = {-1, -1, 1, -1, -1, 1, 1, 1};
    return mesh.Upload(v, t, 4, GL_TRIANGLE_STRIP);
}

bool SetDomeScale(const ViewProgram &program, const char *viewName, float x, float y, float z)
{
    const GLint dome = program.Uniform(viewName, "domeScale", "mDomeScaleHandle");
    if (dome < 0) return false;
    program.Use();
    glUniform3f(dome, x, y, z);
    return true;
}

void SendRayMatrix(const ViewProgram &program, const RotTranMatrix &m)
{
    // A singular matrix (no camera can give one) leaves the identity,
    // which shows nothing of the dome.
    float inverse[16];
    if (!InvertMatrix4(m.mMVPMatrix, inverse)) RotTranMatrix::identity(inverse);
    program.SetMatrix(inverse);
}

void ScissorToBox(const RotTranMatrix &m, const float lo[3], const float hi[3])
{
    GLint vp[4];
    glGetIntegerv(GL_VIEWPORT, vp);
    double x0 = 1.0, x1 = -1.0, y0 = 1.0, y1 = -1.0;
    for (int c = 0; c < 8; c++) {
        const float *M = m.mMVPMatrix;
        const double p[3] = {(c & 1) ? hi[0] : lo[0], (c & 2) ? hi[1] : lo[1], (c & 4) ? hi[2] : lo[2]};
        double v[4];
        for (int r = 0; r < 4; r++) v[r] = M[r] * p[0] + M[4 + r] * p[1] + M[8 + r] * p[2] + M[12 + r];
        // A corner at or behind the eye: the box's outline has no bound.
        if (!(v[3] > 1e-6)) return;
        x0 = std::min(x0, v[0] / v[3]), x1 = std::max(x1, v[0] / v[3]);
        y0 = std::min(y0, v[1] / v[3]), y1 = std::max(y1, v[1] / v[3]);
    }
    // Clip space to window pixels, a pixel of room each side.
    auto px = [](double ndc, GLint o, GLint n) { return o + (ndc + 1.0) * 0.5 * n; };
    const double l = std::max(double(vp[0]), std::floor(px(x0, vp[0], vp[2])) - 1.0);
    const double r = std::min(double(vp[0] + vp[2]), std::ceil(px(x1, vp[0], vp[2])) + 1.0);
    const double b = std::max(double(vp[1]), std::floor(px(y0, vp[1], vp[3])) - 1.0);
    const double t = std::min(double(vp[1] + vp[3]), std::ceil(px(y1, vp[1], vp[3])) + 1.0);
    glEnable(GL_SCISSOR_TEST);
    glScissor(GLint(l), GLint(b), GLsizei(std::max(0.0, r - l)), GLsizei(std::max(0.0, t - b)));
}

// -------------------------------------------------------------- camera

void TwoPositionZoom::OnDoubleClick()
{
    if (animalState.load() != 0) return; // a tap during a move is dropped
    if (maxState.load() == 1) {
        maxState = 0;
        maxMinInit = 0;
    } else if (maxState.load() == 0) {
        maxState = 1;
        maxMinInit = 1;
    }
}

void TwoPositionZoom::Step(Relaxed<float> &fTz, float zMin, float zMax, double step)
{
    const MLong state = maxState.load(), init = maxMinInit.load();
    if (state == 0 && init == 0) {
        float z = fTz.load();
        if (z < zMax) {
            animalState = 1;
            fTz = static_cast<float>(z + step);
        } else {
            animalState = 0;
            maxMinInit = 1;
        }
        return;
    }
    if (state == 1 && init == 1) {
        float z = fTz.load();
        if (z > zMin) {
            animalState = 1;
            fTz = static_cast<float>(z - step);
        } else {
            animalState = 0;
            maxMinInit = 0;
        }
        return;
    }
    // Settled: the position the pinch has left decides which end counts.
    if (zMax - 0.2f > fTz.load()) {
        maxState = 1;
        maxMinInit = 0;
    } else {
        maxState = 0;
        maxMinInit = 1;
    }
}

void TwoPositionZoom::Settle()
{
    animalState = 0;
    maxMinInit = maxState.load() == 0 ? 1 : 0;
}


float FisheyeWrapDegrees(float angle)
{
    if (!std::isfinite(angle)) return 0.0f;
    // Whole turns are removed from the whole-number part; the fraction stays.
    // Large magnitudes are reduced with fmod first so that the conversion to
    // an integer can't overflow.
    if (std::fabs(angle) >= 1.0e9f) angle = std::fmod(angle, 360.0f);
    long long whole = static_cast<long long>(angle);
    return angle - static_cast<float>((whole / 360) * 360);
}

float FisheyeWrapTurn(float angle)
{
    if (!std::isfinite(angle)) return 0.0f;
    if (angle <= 0.0f) angle += 360.0f;
    if (angle >= 360.0f) angle -= 360.0f;
    if (angle < 0.0f || angle >= 360.0f) {
        angle = std::fmod(angle, 360.0f);
        if (angle < 0.0f) angle += 360.0f;
        if (angle >= 360.0f) angle = 0.0f;
    }
    return angle;
}

void FisheyeEye(RotTranMatrix &m, float eyeZ)
{
    m.setLookAt(0.0f, 0.0f, eyeZ, 0.0f, 0.0f, -4.0f, 0.0f, 4.0f, -4.0f);
}

void TiltSpring::Between(float rot, Relaxed<float> &tranY, Relaxed<float> &tranZ) const
{
    if (rot < tiltRot - 0.01f || rot > restRot + 0.01f) return;
    const float p = (rot - tiltRot) / (restRot - tiltRot); // 0 at the deepest tilt, 1 at rest
    tranY = tiltTranY + (restTranY - tiltTranY) * p;
    tranZ = tiltTranZ + (restTranZ - tiltTranZ) * p;
}

bool TiltSpring::Step(Relaxed<float> &rot, Relaxed<float> &tranY, Relaxed<float> &tranZ, bool *arrived) const
{
    float r = rot.load();
    *arrived = false;
    if (!(r < restRot)) return false;
    r += 1.0f;
    if (r > restRot) r = restRot;
    rot = r;
    Between(r, tranY, tranZ);
    *arrived = r >= restRot;
    return true;
}

float FisheyeFlingTurn(float vx, float up, float down, bool zeroTurnsDown)
{
    const float v = std::fabs(vx);
    if (vx > 0.0f || (vx == 0.0f && !zeroTurnsDown)) return v * up / 1000.0f;
    return -(v * down / 1000.0f);
}

TwoSquares TwoSquares::In(MLong w, MLong h)
{
    TwoSquares t;
    if (w / 2 > h) {
        const MLong m = h / 75;
        t.side = h - 2 * m;
        t.left = (w - 2 * t.side) / 2;
        t.bottom = m;
    } else {
        const MLong m = w / 150;
        t.side = (w - 2 * m) / 2;
        t.left = m;
        t.bottom = (h - t.side) / 2;
    }
    return t;
}

void FisheyeBowlView(RotTranMatrix &m, float eyeZ, float rotX, float tranY, float tranZ)
{
    FisheyeEye(m, eyeZ);
    RotTranMatrix::rotate(m.mVMatrix, 180.0f, 0.0f, 0.0f, 1.0f);
    RotTranMatrix::rotate(m.mVMatrix, rotX, 1.0f, 0.0f, 0.0f);
    RotTranMatrix::translate(m.mVMatrix, 0.0f, tranY, tranZ);
}
