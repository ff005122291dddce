#include "WallCamera.h"

#include <cmath>

#include "FisheyeCommon.h"
#include "MLog.h"

namespace {

const float kAnimalStep = 0.05f;  // eye travel a frame of an animated move or of cruise
const float kCruisePan = 0.2f;    // degrees a frame of the cruise's swing
const float kCruiseWide = 0.2f;   // cruising in, the eye counts as wide above tzMax - this
const double kDragFactor = 0.075; // degrees a pixel
const double kFlingFactor = 0.405 / 1000.0;

} // namespace

float WallClamp(float v, float lo, float hi, float fallback)
{
    if (std::isnan(v)) return fallback;
    return v < lo ? lo : (v > hi ? hi : v);
}

WallPaneCamera::WallPaneCamera(const WallPaneConfig &c)
    // The zoom's last eye distance starts at the dome's radius, 6, in both
    // views: mode 9's wide position, and inside mode 10's wide 6.4 (the
    // first step there sees the eye "moving out" from 6 to its widest,
    // which clears pan and tilt, both 0 already).
    : fCamZ(c.tzMax), fTz(c.tzMax), cfg(c), fLastCamZ(kDomeRadius), m_Pose{c.tzMax, 0.0f, 0.0f, c.wide}
{
}

// ------------------------------------------------------------ gestures

void WallPaneCamera::DoubleTap()
{
    zoom.OnDoubleClick();
}

void WallPaneCamera::Drag(float dx, float dy)
{
    fCamRotX = static_cast<float>(double(fCamRotX.load()) - double(dy) * kDragFactor);
    zAngle = static_cast<float>(double(zAngle.load()) - double(dx) * kDragFactor);
}

void WallPaneCamera::Fling(float vx)
{
    zAngle = static_cast<float>(double(zAngle.load()) - double(vx) * kFlingFactor);
}

// ------------------------------------------------------------ the zoom

void WallPaneCamera::LimitCamera()
{
    fTz = WallClamp(fTz.load(), cfg.tzMin, cfg.tzMax, cfg.tzMax);
    // The limits grow from 0 at 95 % of the widest distance to the full
    // value at the closest along a quarter cosine: k = 1 - cos(u pi / 2)
    // with u running from 0 (top) to 1 (tzMin), slow at first.
    const float top = 0.95f * cfg.tzMax;
    const float z = fCamZ.load();
    if (z >= cfg.tzMin && z <= top) {
        const double u = 1.0 - double(z - cfg.tzMin) / double(top - cfg.tzMin);
        const float k = static_cast<float>(1.0 - std::cos(u * 3.1415926 * 0.5));
        fLimitRotX = cfg.maxRotX * k;
        fLimitAngle = cfg.maxAngle * k;
    } else if (z > top) {
        fLimitRotX = fLimitAngle = 0.0f;
    } else {
        fLimitRotX = cfg.maxRotX;
        fLimitAngle = cfg.maxAngle;
    }
    fCamRotX = WallClamp(fCamRotX.load(), -fLimitRotX, fLimitRotX);
    zAngle = WallClamp(zAngle.load(), -fLimitAngle, fLimitAngle);
}

int WallPaneCamera::GoToClose()
{
    const float z = fCamZ.load();
    if (z < cfg.tzMin + kAnimalStep) { // stops up to one step short of tzMin
        zoom.animalState = 0;
        computeAnimal = 0;
        return 0;
    }
    fCamZ = z - kAnimalStep;
    fTz = z - kAnimalStep;
    zoom.animalState = 1;
    computeAnimal = 1;
    return 1;
}

// Back to wide: the eye goes out a step a frame while pan and tilt run down
// evenly from where they stood, reaching 0 as the eye reaches tzMax.
int WallPaneCamera::GoToWide()
{
    const float z = fCamZ.load();
    const double rotX = fCamRotX.load(), angle = zAngle.load();
    if (z >= cfg.tzMax - 0.0001f && rotX > -0.001 && rotX < 0.001 && angle > -0.001 && angle < 0.001) {
        computeAnimal = 0;
        zoom.animalState = 0;
        return 0;
    }
    if (!computeAnimal) { // the first step captures the start and moves nothing
        fAnimalRotX = fCamRotX.load();
        fAnimalAngle = zAngle.load();
        fAnimalRange = cfg.tzMax - z;
        computeAnimal = 1;
        return 1;
    }
    const float nz = z + kAnimalStep > cfg.tzMax ? cfg.tzMax : z + kAnimalStep;
    fCamZ = nz;
    fTz = nz;
    auto runDown = [&](Relaxed<float> &v, float captured) {
        // A range of 0 or less (already wide, or a restore beyond it) has
        // no steps to share the way out: straight to 0.
        const float d = fAnimalRange > 0.0f ? captured * kAnimalStep / fAnimalRange : 0.0f;
        const float now = v.load();
        v = (d != 0.0f && std::fabs(now) > std::fabs(d)) ? now - d : 0.0f;
    };
    runDown(zAngle, fAnimalAngle);
    runDown(fCamRotX, fAnimalRotX);
    zoom.animalState = 1;
    return 1;
}

// Settled, the eye follows the pinch. Moving out, pan and tilt fall in
// proportion, to reach 0 at tzMax; then the position is classed as wide or
// close, which a pinch thus changes too.
void WallPaneCamera::ZMove()
{
    const float z = fCamZ.load();
    if (z > fLastCamZ) {
        const float m = cfg.tzMax - z;
        if (m > 1e-7f) {
            // At most all of the angle goes: a pinch of many steps in one
            // frame must not swing the view past 0 to the other side.
            float f = (z - fLastCamZ) / m;
            if (f > 1.0f) f = 1.0f;
            fCamRotX = fCamRotX.load() - fCamRotX.load() * f;
            zAngle = zAngle.load() - zAngle.load() * f;
        }
    }
    if (z >= cfg.tzMax - 0.0001f && z < cfg.tzMax + 0.001f) {
        fCamRotX = 0.0f;
        zAngle = 0.0f;
    }
    fLastCamZ = z;
    const bool moving = zoom.animalState.load() == 1;
    if (z >= cfg.tzMax - cfg.closeMargin) {
        if (zoom.maxMinInit.load() == 1 && moving) {
            computeAnimal = 0;
            zoom.maxMinInit = 0;
        } else if (!moving) {
            zoom.maxMinInit = 1;
        }
        zoom.maxState = 0;
    } else {
        if (zoom.maxMinInit.load() == 0 && moving) {
            zoom.maxMinInit = 1;
            computeAnimal = 0;
        } else if (!moving) {
            zoom.maxMinInit = 0;
        }
        zoom.maxState = 1;
    }
}

void WallPaneCamera::FollowZoom()
{
    LimitCamera();
    fCamZ = fTz.load();
    ZMove();
    fTz = fCamZ.load();
}

void WallPaneCamera::Step()
{
    const MLong state = zoom.maxState.load(), init = zoom.maxMinInit.load();
    if (state == 0 && init == 0) {
        if (GoToWide() == 0) zoom.maxMinInit = 1;
        LimitCamera();
    } else if (state == 1 && init == 1) {
        if (GoToClose() == 0) zoom.maxMinInit = 0;
        LimitCamera();
    } else {
        FollowZoom();
    }
    // The eye's distance is kept in range as the gestures' target is: a
    // restored distance beyond either end comes back to it.
    const float z = WallClamp(fCamZ.load(), cfg.tzMin, cfg.tzMax, cfg.tzMax);
    fCamZ = z;
    // The stretch follows the eye linearly from wide (tzMax) to close (tzMin).
    const float k = 1.0f - (z - cfg.tzMin) / (cfg.tzMax - cfg.tzMin);
    m_Pose.stretch = {(cfg.close.x - cfg.wide.x) * k + cfg.wide.x, (cfg.close.y - cfg.wide.y) * k + cfg.wide.y,
                      (cfg.close.z - cfg.wide.z) * k + cfg.wide.z};
    // The pose drawn: what the clamps left, whatever a gesture stores
    // before the draw.
    m_Pose.camZ = z;
    m_Pose.rotX = WallClamp(fCamRotX.load(), -cfg.maxRotX, cfg.maxRotX);
    m_Pose.angle = WallClamp(zAngle.load(), -cfg.maxAngle, cfg.maxAngle);
}

bool WallPaneCamera::Moving() const
{
    return zoom.Moving();
}

void WallPaneCamera::Cruise()
{
    zAngle = WallClamp(zAngle.load(), -cfg.maxAngle, cfg.maxAngle);
    const float z = fCamZ.load();
    if (z > cfg.tzMin) { // first the eye goes in, cancelling a move
        if (zoom.animalState.load() == 1) {
            zoom.animalState = 0;
            computeAnimal = 0;
            zoom.maxMinInit = zoom.maxState.load() == 0 ? 1 : 0;
        }
        const float nz = z - kAnimalStep < cfg.tzMin ? cfg.tzMin : z - kAnimalStep;
        fCamZ = nz;
        const bool wide = nz >= cfg.tzMax - kCruiseWide;
        zoom.maxState = wide ? 0 : 1;
        zoom.maxMinInit = wide ? 1 : 0;
        fTz = nz;
        return;
    }
    // Then the swing: from limit to limit and back.
    const MLong dir = nCruiseDir.load() > 0 ? 1 : -1;
    float a = zAngle.load() + float(dir) * kCruisePan;
    if (a >= cfg.maxAngle) {
        a = cfg.maxAngle;
        nCruiseDir = -1;
    } else if (a <= -cfg.maxAngle) {
        a = -cfg.maxAngle;
        nCruiseDir = 1;
    }
    zAngle = a;
}

void WallPaneCamera::Restored()
{
    // A state word other than 0 or 1 matches no row of the zoom and would
    // freeze it; a swing direction of 0 would stall the cruise.
    zoom.maxState = zoom.maxState.load() != 0 ? 1 : 0;
    zoom.maxMinInit = zoom.maxMinInit.load() != 0 ? 1 : 0;
    nCruiseDir = nCruiseDir.load() > 0 ? 1 : -1;
    // The eye jumps to the restored distance without a move: measured from
    // the distance before, the jump would count as a way out and shrink the
    // restored pan and tilt.
    fLastCamZ = fCamZ.load();
    // A restored move to wide captures its start from the restored pose,
    // not from a move that ran before.
    computeAnimal = 0;
}

void WallPaneCamera::Apply(RotTranMatrix &m, float scale) const
{
    FisheyeEye(m, m_Pose.camZ);
    m.rotate(180.0f, 0.0f, 0.0f, 1.0f);
    RotTranMatrix::rotate(m.mVMatrix, -m_Pose.rotX, 1.0f, 0.0f, 0.0f);
    RotTranMatrix::rotate(m.mVMatrix, -m_Pose.angle, 0.0f, 1.0f, 0.0f);
    m.scale(scale, scale, 1.0f);
}

// ------------------------------------------------------- dome panes

float WallDepthShift(float rotX, float angle, float limit, float gain)
{
    const float r = std::sqrt(rotX * rotX + angle * angle) / limit;
    float k = 1.0f;
    if (std::fabs(rotX) > 0.5f && std::fabs(angle) > 0.5f) {
        const float q = std::fabs(rotX / angle);
        k = q <= 1.0f ? 1.0f - q : 1.0f - 1.0f / q;
    }
    return gain * r * k;
}

void WallDomeCamera(RotTranMatrix &m, float camZ, float tranZ, float rotX, float angle)
{
    FisheyeEye(m, camZ);
    RotTranMatrix::translate(m.mVMatrix, 0.0f, 0.0f, tranZ);
    RotTranMatrix::rotate(m.mVMatrix, -rotX, 1.0f, 0.0f, 0.0f);
    RotTranMatrix::rotate(m.mVMatrix, -angle, 0.0f, 1.0f, 0.0f);
}

// ------------------------------------------------------ one-pane views

WallPaneView::WallPaneView(const char *viewName, const ViewTraits &traits, const WallPaneConfig &config,
                           float pinchStep)
    : ViewEffect(viewName, traits), m_Cam(config)
{
    m_CruiseEnd = kCruiseEndsOnTouchAndDoubleTap;
    m_bGesturesWaitForWindow = true;
    m_Pinch = {&m_Cam.fTz, pinchStep};
    FECurrentStatusData &d = m_FECurrentStatusData;
    SaveFields({SavedField::Checked(m_Cam.fCamZ, d.fCamZ[0], config.tzMax),
                SavedField::Checked(m_Cam.fTz, d.fTz[0], config.tzMax),
                SavedField::Checked(m_Cam.zAngle, d.zAngle[0], 0.0f),
                SavedField::Checked(m_Cam.fCamRotX, d.fCamRotX[0], 0.0f),
                {m_Cam.zoom.maxState, d.maxState},
                {m_Cam.zoom.maxMinInit, d.maxMinInit},
                {mCruiseState, d.mCruiseState},
                {m_Cam.nCruiseDir, d.nCruiseDir},
                {mCruiseVelocity, d.mCruiseVelocity}});
}

MRESULT WallPaneView::setConfig(MDWord dwID, void *pValue)
{
    if (!pValue || (dwID != ZT5_CFG_DISPLAY_SCALE_RATIO && dwID != ZT5_CFG_DISPLAY_MAX_SCALE))
        return ViewEffect::setConfig(dwID, pValue);
    const float v = *static_cast<const float *>(pValue); // a factor here, not a percentage
    if (!std::isfinite(v)) return 0;
    if (dwID == ZT5_CFG_DISPLAY_MAX_SCALE) {
        if (v > 0.0f) mMaxScale = v;
    } else {
        // Into 1 .. mMaxScale; a lower maximum set later leaves the scale
        // as it is until the next one.
        const float maxScale = mMaxScale.load();
        mScaleRatio = v > maxScale ? maxScale : (v < 1.0f ? 1.0f : v);
    }
    return 0;
}

void WallPaneView::Project(MLong, MLong)
{
    m_Camera.setProjectFrustum(-mWndRatio, mWndRatio, -1.0f, 1.0f, 1.0f, 30.0f);
}

void WallPaneView::StepCamera()
{
    if (Cruising())
        m_Cam.Cruise();
    else
        BeforeStep();
    m_Cam.Step();
}

void WallPaneView::Drag(float x0, float y0, float x1, float y1)
{
    if (x1 > 0.0f && x1 <= float(m_nWidth.load()) && y1 > 0.0f && y1 <= float(m_nHeight.load()))
        m_Cam.Drag(x1 - x0, y1 - y0);
}

bool WallPaneView::AimReady()
{
    if (m_Cam.Moving()) return false;
    if (m_Cam.zoom.maxState.load() == 1) return true;
    m_Cam.DoubleTap();
    return false;
}

void WallPaneView::DoubleTap(float, float)
{
    m_Cam.DoubleTap();
}

bool WallPaneView::BuildStretched(const char *fragment)
{
    if (UploadRayQuad(m_Quad) != 0) MLogInfo("[%s] %s::Initialize no quad", MLOG_TAG, m_szViewName);
    m_Program.Build(m_szViewName, FISHEYE_GLSL_RAY_VERTEX, fragment);
    muDomeScale = m_Program.Uniform(m_szViewName, "domeScale", "mDomeScaleHandle");
    return muDomeScale >= 0 && m_Quad;
}

void WallPaneView::DrawStretched(const Frame &f, LensPointFn lensPoint, float k)
{
    const float scale = mScaleRatio.load();
    const WallStretch s = m_Cam.Drawn().stretch;
    auto camera = [&](RotTranMatrix &m) { m_Cam.Apply(m, scale); };
    auto uniforms = [&] {
        SendRayMatrix(m_Program, m_Camera);
        glUniform3f(muDomeScale, s.x, s.y, s.z);
        m_Lens.Send(DrawnLens(), m_nLensGeneration, f.videoWidth, f.videoHeight);
    };
    DrawPass(m_Camera, camera, m_Program, m_Quad, f.sampling, uniforms);
    MapPane(0, 0, 0, GLint(f.viewportWidth), GLint(f.viewportHeight), m_Camera, lensPoint, {s.x, s.y, s.z, k});
}
