#include "ViewEffect.h"

#include <algorithm>
#include <cmath>

#include "MLog.h"
#include "ZT5Errors.h"

namespace {

// The law a record's programs are built with (records are checked when the
// host sets them; anything else reads as the default).
unsigned LensLawOf(const ZT5LensModel &m)
{
    return m.dwLaw <= ZT5_LENS_POLYNOMIAL ? m.dwLaw : ZT5_LENS_EQUIDISTANT;
}

} // namespace

// ------------------------------------------------------------ SavedField

SavedField SavedField::Checked(Relaxed<float> &live, float &field, float fallback)
{
    SavedField f(live, field);
    f.m_Kind = kCheckedFloat;
    f.m_fFallback = fallback;
    return f;
}

void SavedField::Save() const
{
    switch (m_Kind) {
    case kFloat:
    case kCheckedFloat:
        *static_cast<float *>(m_pField) = static_cast<Relaxed<float> *>(m_pLive)->load();
        break;
    case kWord:
        *static_cast<int32_t *>(m_pField) = static_cast<Relaxed<MLong> *>(m_pLive)->load();
        break;
    case kFlag:
        *static_cast<int32_t *>(m_pField) = static_cast<Relaxed<unsigned char> *>(m_pLive)->load();
        break;
    }
}

void SavedField::Restore() const
{
    if (!m_bRestore) return;
    switch (m_Kind) {
    case kFloat:
    case kCheckedFloat: {
        // The draw's limits bring a large value back, but not a NaN: a
        // record of garbage must not reach the matrices, where one NaN
        // blanks the picture for good. The bound lies far beyond any limit
        // a host can set, and far enough below the largest float that the
        // camera's sums stay finite. A plain float that isn't finite keeps
        // the live value.
        const float kBound = 1.0e9f;
        float v = *static_cast<const float *>(m_pField);
        if (!std::isfinite(v))
            v = m_Kind == kCheckedFloat ? m_fFallback : static_cast<Relaxed<float> *>(m_pLive)->load();
        else if (v > kBound)
            v = kBound;
        else if (v < -kBound)
            v = -kBound;
        *static_cast<Relaxed<float> *>(m_pLive) = v;
        break;
    }
    case kWord:
        *static_cast<Relaxed<MLong> *>(m_pLive) = *static_cast<const int32_t *>(m_pField);
        break;
    case kFlag:
        *static_cast<Relaxed<unsigned char> *>(m_pLive) = *static_cast<const int32_t *>(m_pField) != 0 ? 1 : 0;
        break;
    }
}

// ------------------------------------------------------------ ViewEffect

ViewEffect::ViewEffect(const char *viewName, const ViewTraits &traits) : m_szViewName(viewName), m_Traits(traits)
{
    MMemSet(&m_FECurrentStatusData, 0, sizeof(m_FECurrentStatusData));
}

MRESULT ViewEffect::Initialize(MDWord, MDWord)
{
    // Built for the layout of the frame the renderer has last described
    // (planar until one comes); a frame of another layout builds again.
    BuildFor(WantedKey());
    if (m_lBuildResult != 0)
        MLogInfo("[%s] %s::Init() mInitResourceSuc = false lRet = %d.\r\n", MLOG_TAG, m_szViewName,
                 int(m_lBuildResult));
    SetEnableGLDepth(m_Traits.depthTest ? 1 : 0);
    return m_lBuildResult;
}

ViewEffect::BuildKey ViewEffect::WantedKey() const
{
    const bool faces = m_Sampling.faces && m_Sampling.faces->count > 0;
    return {m_Sampling.layout, LensLawOf(DrawnLens()), m_Built.footprint, faces};
}

MRESULT ViewEffect::BuildFor(const BuildKey &key)
{
    m_Built = key;
    ViewProgram::SetBuildLayout(key.layout);
    ViewProgram::SetBuildLens(key.law, key.footprint, key.faces);
    m_lBuildResult = Build();
    return m_lBuildResult;
}

void ViewEffect::Uninitialize()
{
    m_lBuildResult = -1;
    m_bDrawn = false;
}

void ViewEffect::SetEnableGLDepth(unsigned char enable)
{
    if (enable)
        glEnable(GL_DEPTH_TEST);
    else
        glDisable(GL_DEPTH_TEST);
}

bool ViewEffect::Ready(Frame &f)
{
    if (m_lBuildResult != 0) {
        MLogDebug("[%s] %s::Render mInitResourceSuc == false. ", MLOG_TAG, m_szViewName);
        return false;
    }
    const MLong w = f.width, h = f.height;
    if (w != m_nWidth.load() || h != m_nHeight.load() || !m_nInit.load()) {
        if (w != 0 && h != 0) m_nInit = 0;
        if (w > kViewMinWindow && h > kViewMinWindow) {
            mWndRatio = float(w) / float(h);
            m_nWidth = w;
            m_nHeight = h;
            Project(w, h);
            m_nInit = 1;
        }
    }
    if (!m_nInit.load()) {
        MLogDebug("[%s] %s::Render m_nInit == false. ", MLOG_TAG, m_szViewName);
        return false;
    }
    f.viewportWidth = w;
    f.viewportHeight = h;
    return true;
}

void ViewEffect::Render(const MLong *, MLong nDisplayWidth, MLong nDisplayHeight, MLong nVideoWidth,
                        MLong nVideoHeight, const GLuint *pTextures, MDWord, MDWord dwRotation)
{
    (void)pTextures; // the frame's textures come with its sampling
    Frame f = {nDisplayWidth, nDisplayHeight, nVideoWidth, nVideoHeight, &m_Sampling, dwRotation, 0, 0};
    m_bDrawn = false;
    const BuildKey key = WantedKey();
    if (key != m_Built && m_lBuildResult != -1) {
        // A stream of another layout, a lens of another law, faces shown or
        // gone: the programs for them (compiled once, then kept) and their
        // locations. The camera stays.
        BuildFor(key);
    }
    if (!Ready(f)) return;
    clearBackground();
    glViewport(0, 0, f.viewportWidth, f.viewportHeight);
    DrawBehind(f);
    StepCamera();
    const bool footprint = MayShrink(f);
    if (footprint != m_Built.footprint) {
        // The camera or the window now asks for (or no longer needs) the
        // footprint sampler: the programs built with (without) it.
        BuildFor({m_Built.layout, m_Built.law, footprint, m_Built.faces});
        if (m_lBuildResult != 0) return;
    }
    m_Drawing.paneCount = 0;
    Draw(f);
    PublishMap(f);
    StepAim();
    // A view with panes moved the viewport; the window's is left behind,
    // which is what a snapshot reads.
    glViewport(0, 0, f.viewportWidth, f.viewportHeight);
    m_bDrawn = true;
    checkGlError(m_szViewName);
}

bool ViewEffect::MayShrink(const Frame &) const
{
    // The last draw's mapping stands for this one: a camera moves by small
    // steps between draws, and the bound below leaves room for one (and
    // for what the grid passes over). Shrunk more than 5 times (the sampler
    // averages from 7) in at least 1 of 32 of a pane's points: a lens
    // shown small, a large frame in a small window. Less is the thin band
    // where a surface turns edge-on at an outline (steps beyond 24 frame
    // pixels there are an edge, which the sampler takes with one tap
    // anyway): a few pixels wide, which no averaging would steady.
    if (m_Drawing.paneCount == 0) return true;
    if (!m_Drawing.SameAs(m_Measured)) {
        m_Measured = m_Drawing;
        m_bMeasuredShrinks = m_Drawing.ShrinkShare(5.0, 24.0) >= 1.0 / 32.0;
    }
    return m_bMeasuredShrinks;
}

void ViewEffect::MapPane(int index, GLint x, GLint y, GLint w, GLint h, const RotTranMatrix &m, LensPointFn lensPoint,
                         std::initializer_list<float> k)
{
    if (m_Drawing.paneCount >= ViewMap::kMaxPanes) return;
    PaneMap &p = m_Drawing.pane[m_Drawing.paneCount++];
    p.index = index;
    p.x = x, p.y = y, p.w = w, p.h = h;
    p.SetMatrix(m.mMVPMatrix);
    p.lensPoint = lensPoint;
    int i = 0;
    for (float v : k)
        if (i < int(sizeof(p.k) / sizeof(p.k[0]))) p.k[i++] = v;
}

void ViewEffect::PublishMap(const Frame &f)
{
    ViewMap &m = m_Drawing;
    m.windowWidth = int(f.viewportWidth);
    m.windowHeight = int(f.viewportHeight);
    const FrameBox &b = f.sampling->frameBox;
    m.boxX = b.x, m.boxY = b.y, m.boxW = b.w, m.boxH = b.h;
    m.lens = DrawnLens();
    std::lock_guard<std::mutex> lock(m_MapLock);
    m_Shown = m;
}

ViewMap ViewEffect::ShownMap()
{
    std::lock_guard<std::mutex> lock(m_MapLock);
    return m_Shown;
}

bool ViewEffect::NeedsAnotherFrame()
{
    // A view that could not draw has nothing in motion on screen: its steps
    // run only in draws, so drawing again would change nothing.
    if (!m_bDrawn) return false;
    return (m_Traits.cruises && CruiseMoving()) || Moving() || m_Aim.active;
}

// ------------------------------------------------------------------ aim

// One step a drawn frame. The error is the target less the frame point at
// the steered pane's centre, in frame pixels; a drag of d window pixels
// moves that point by about J d. A step drags d = 0.3 J+ e (the damped
// least-squares inverse, so that an axis the view can't move, such as the
// strip's height, asks nothing of it), at most a sixth of the pane, from
// the pane's centre so that the view takes it as a drag in that pane. The
// aim ends at a tenth of a frame pixel, when the camera stops answering
// (a limit) for 8 frames, or after 400 frames.
void ViewEffect::StepAim()
{
    double target[2];
    unsigned request;
    {
        std::lock_guard<std::mutex> lock(m_MapLock);
        target[0] = m_AimTarget[0], target[1] = m_AimTarget[1];
        request = m_nAimRequest;
        if (m_nAimEnded == request) m_Aim.active = false;
    }
    Aim &a = m_Aim;
    if (request != a.request && m_nAimEnded != request) {
        a = Aim();
        a.request = request;
        a.active = true;
    }
    if (!a.active) return;
    const ViewMap &map = m_Drawing;
    const int slot = AimPane(map, target[0], target[1]);
    double c[2];
    if (slot < 0 || !map.PaneCentre(slot, &c[0], &c[1]) || ++a.frames > 400) {
        a.active = false;
        return;
    }
    if (!AimReady()) return;
    const PaneMap &p = map.pane[slot];
    const double e[2] = {target[0] - c[0], target[1] - c[1]};
    const double moved[2] = {c[0] - a.last[0], c[1] - a.last[1]};
    // The probes: a drag of 4 pixels across, then down; one the camera
    // doesn't answer (it stands at a limit that way) is made the other way.
    const double probe = 4.0, none = 1e-3;
    const bool answered = std::hypot(moved[0], moved[1]) > none;
    double d[2] = {0.0, 0.0};
    int next = kAimSteer;
    switch (a.phase) {
    case kAimStart: d[0] = probe, next = kAimAcross; break;
    case kAimAcross:
    case kAimAcrossBack: {
        const double k = a.phase == kAimAcross ? probe : -probe;
        a.J[0] = moved[0] / k, a.J[2] = moved[1] / k;
        if (a.phase == kAimAcross && !answered)
            d[0] = -probe, next = kAimAcrossBack;
        else
            d[1] = probe, next = kAimDown;
        break;
    }
    case kAimDown:
    case kAimDownBack: {
        const double k = a.phase == kAimDown ? probe : -probe;
        a.J[1] = moved[0] / k, a.J[3] = moved[1] / k;
        if (a.phase == kAimDown && !answered) d[1] = -probe, next = kAimDownBack;
        break;
    }
    default: {
        // Broyden: J += (moved - J d) d^T / |d|^2.
        const double *g = a.drag, gg = g[0] * g[0] + g[1] * g[1];
        if (gg > 0.0) {
            const double r0 = moved[0] - (a.J[0] * g[0] + a.J[1] * g[1]);
            const double r1 = moved[1] - (a.J[2] * g[0] + a.J[3] * g[1]);
            a.J[0] += r0 * g[0] / gg, a.J[1] += r0 * g[1] / gg;
            a.J[2] += r1 * g[0] / gg, a.J[3] += r1 * g[1] / gg;
        }
        a.stall = std::hypot(moved[0], moved[1]) < 0.05 ? a.stall + 1 : 0;
        break;
    }
    }
    if (next == kAimSteer && a.phase >= kAimDown) {
        if (std::hypot(e[0], e[1]) < 0.1 || a.stall >= 8) {
            a.active = false;
            return;
        }
        // d = 0.3 (J^T J + l I)^-1 J^T e, l a millionth of J's size.
        const double *J = a.J;
        const double m00 = J[0] * J[0] + J[2] * J[2], m01 = J[0] * J[1] + J[2] * J[3], m11 = J[1] * J[1] + J[3] * J[3];
        const double l = 1e-6 * (m00 + m11) + 1e-12;
        const double g0 = J[0] * e[0] + J[2] * e[1], g1 = J[1] * e[0] + J[3] * e[1];
        const double det = (m00 + l) * (m11 + l) - m01 * m01;
        d[0] = 0.3 * ((m11 + l) * g0 - m01 * g1) / det;
        d[1] = 0.3 * (-m01 * g0 + (m00 + l) * g1) / det;
        const double len = std::hypot(d[0], d[1]), most = std::min(p.w, p.h) / 6.0;
        if (!std::isfinite(len)) {
            a.active = false;
            return;
        }
        if (len > most) d[0] *= most / len, d[1] *= most / len;
    }
    a.phase = next;
    a.last[0] = c[0], a.last[1] = c[1];
    a.drag[0] = d[0], a.drag[1] = d[1];
    const double x0 = p.x + 0.5 * p.w, y0 = map.windowHeight - (p.y + 0.5 * p.h);
    Drag(float(x0), float(y0), float(x0 + d[0]), float(y0 + d[1]));
}

// -------------------------------------------------------------- gestures

void ViewEffect::EndCruise()
{
    if (m_CruiseEnd != kCruiseEndsNever) mCruiseState = 0;
    // The user's hands take over from an aim under way.
    std::lock_guard<std::mutex> lock(m_MapLock);
    m_nAimEnded = m_nAimRequest;
}

void ViewEffect::OnTouchDown(float x, float y)
{
    EndCruise();
    Touch(true, x, y);
}

void ViewEffect::OnTouchUp(float x, float y)
{
    Touch(false, x, y);
}

void ViewEffect::OnTouchMove(float x0, float y0, float x1, float y1)
{
    EndCruise();
    if (Waiting()) return;
    Drag(x0, y0, x1, y1);
}

void ViewEffect::OnTouchPinch(float fZoomRate, float, float)
{
    EndCruise();
    if (!m_Pinch.target || Waiting()) return;
    if (fZoomRate > 1.0f)
        *m_Pinch.target -= m_Pinch.step;
    else
        *m_Pinch.target += m_Pinch.step;
}

void ViewEffect::StartAcceleratedVelocity(float fVelX, float fVelY)
{
    EndCruise();
    if (Waiting()) return;
    Fling(fVelX, fVelY);
}

void ViewEffect::OnDoubleClick(float x, float y)
{
    if (m_CruiseEnd == kCruiseEndsOnTouchAndDoubleTap) EndCruise();
    if (Waiting()) return;
    DoubleTap(x, y);
}

// ----------------------------------------------------------------- cruise

void ViewEffect::SetFishEyeCruiseState(MLong state, float fVelocity)
{
    if (!m_Traits.cruises) return;
    mCruiseVelocity = fVelocity;
    mCruiseState = static_cast<unsigned char>(state);
}

MLong ViewEffect::GetFishEyeCruiseState()
{
    if (!m_Traits.cruises) return -1;
    return Cruising() ? 1 : 0;
}

// ------------------------------------------------------------ saved state

MRESULT ViewEffect::setConfig(MDWord dwID, void *pValue)
{
    if (dwID == ZT5_CFG_DISPLAY_AIM_AT) {
        // Checked by the front end; a touch's end of the cruise, then the
        // steps at the next draws.
        if (!pValue) return ZT5_ERR_INVALID_PARAM;
        EndCruise(); // and an aim before this one
        const float *point = static_cast<const float *>(pValue);
        std::lock_guard<std::mutex> lock(m_MapLock);
        m_AimTarget[0] = point[0], m_AimTarget[1] = point[1];
        m_nAimRequest++;
        return 0;
    }
    if (dwID != ZT5_CFG_DISPLAY_FE_CURRENTSTATUS) return GlesRenderEffect::setConfig(dwID, pValue);
    if (pValue) Restore(pValue);
    return 0;
}

// Every float of the record that isn't a finite number becomes 0, so that
// garbage in a field the view doesn't use never travels on into a save, and
// the view's Restored sees numbers only. The word fields are left alone.
static void ZeroNonFinite(FECurrentStatusData *s)
{
    auto zero = [](float *p, int n) {
        for (int i = 0; i < n; i++)
            if (!std::isfinite(p[i])) p[i] = 0.0f;
    };
    for (float *a : {s->fCamZ, s->fCamTranZ, s->fCamRotZ, s->fCamTranY, s->fCamAngleZ, s->fTz, s->zAngle, s->fCamRotX})
        zero(a, 4);
    for (float *p : {&s->xMove, &s->fTilt, &s->mTransX, &s->mTransY, &s->mAnimalStepX, &s->mAnimalStepY,
                     &s->mScaleRatio, &s->mfZoom, &s->mCruiseVelocity})
        zero(p, 1);
}

// The whole record is kept, so that fields the view doesn't use travel
// through a restore and the next save unchanged.
void ViewEffect::Restore(const void *pRecord)
{
    MMemCpy(&m_FECurrentStatusData, pRecord, sizeof(m_FECurrentStatusData));
    for (const SavedField &f : m_SavedFields) f.Restore();
    ZeroNonFinite(&m_FECurrentStatusData);
    Restored(m_FECurrentStatusData);
}

MRESULT ViewEffect::GetConfig(MDWord dwID, void *pValue)
{
    if (!pValue) return ZT5_ERR_INVALID_PARAM;
    if (dwID == ZT5_CFG_DISPLAY_MAP_POINT) {
        ZT5PointMap *q = static_cast<ZT5PointMap *>(pValue);
        const ViewMap map = ShownMap();
        double x = 0.0, y = 0.0;
        const int pane = q->dwToWindow ? map.FrameToWindow(q->fX, q->fY, &x, &y) : map.WindowToFrame(q->fX, q->fY, &x, &y);
        q->lPane = pane;
        if (pane >= 0) q->fOutX = float(x), q->fOutY = float(y);
        return 0;
    }
    if (dwID != ZT5_CFG_DISPLAY_GET_FE_CURRENTSTATUS) return 0;
    for (const SavedField &f : m_SavedFields) f.Save();
    MMemCpy(pValue, &m_FECurrentStatusData, sizeof(m_FECurrentStatusData));
    return 0;
}
