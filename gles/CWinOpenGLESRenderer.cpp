#include "CWinOpenGLESRenderer.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <initializer_list>

#include "EffectFactory.h"
#include "MLog.h"
#include "YuvConversion.h"

CZT5Mutex g_EglMutex;

namespace {

// Takes the renderer lock (when there is one) and the process-wide EGL lock
// and releases both on every way out.
class RendererLocks {
public:
    explicit RendererLocks(CZT5Mutex *pMutex) : m_pMutex(pMutex)
    {
        if (m_pMutex) m_pMutex->Lock();
        g_EglMutex.Lock();
    }
    ~RendererLocks()
    {
        if (m_pMutex) m_pMutex->Unlock();
        g_EglMutex.Unlock();
    }

private:
    CZT5Mutex *m_pMutex;
};

// Holds one mutex (when there is one) for a scope.
class Held {
public:
    explicit Held(CZT5Mutex *pMutex) : m_pMutex(pMutex)
    {
        if (m_pMutex) m_pMutex->Lock();
    }
    ~Held()
    {
        if (m_pMutex) m_pMutex->Unlock();
    }
    Held(const Held &) = delete;
    Held &operator=(const Held &) = delete;

private:
    CZT5Mutex *m_pMutex;
};

inline uint64_t NowNs()
{
    return uint64_t(std::chrono::duration_cast<std::chrono::nanoseconds>(
                        std::chrono::steady_clock::now().time_since_epoch())
                        .count());
}

inline EGLNativeWindowType ToNativeWindow(MWindowHandle h)
{
    // The stored handle is an X11 Window id (32 bits on the wire); EGL takes
    // it as its native window type, an integer of pointer size here.
    return (EGLNativeWindowType)(uintptr_t)(uint32_t)h;
}

} // namespace

CWinOpenGLESRenderer::CWinOpenGLESRenderer()
{
    // The renderer lock lives as long as the object: host threads take it
    // for the saved view state, so it must not vanish under them when the
    // EGL side is torn down.
    m_pMutex = new (std::nothrow) CZT5Mutex();
}

CWinOpenGLESRenderer::~CWinOpenGLESRenderer()
{
    Uninitialize();
    delete m_pMutex;
    m_pMutex = nullptr;
}

// A factor as the percent word of the outer layers, truncated; saturates
// instead of overflowing for a limit the host set absurdly high.
static MDWord ToPercent(float factor)
{
    double percent = double(factor) * 100.0;
    if (!(percent > 0.0)) return 0;
    if (percent >= 4294967295.0) return 0xFFFFFFFFu;
    return MDWord(percent);
}

template <typename F> void CWinOpenGLESRenderer::WithCurrentEffect(F f)
{
    MDWord dwEdge = 0;
    {
        std::unique_lock<std::recursive_mutex> lk = LockViews();
        GlesRenderEffect *pEffect = m_RenderEffect[m_FishEyeMode.load(std::memory_order_relaxed)];
        if (!pEffect) return;
        f(pEffect);
        dwEdge = pEffect->TakeEdgeEvent();
    }
    // The host hears of an edge with the view lock released: its callback
    // may give a new window, whose rebuild on the render thread deletes the
    // views under that lock while this thread waits for the rebuild.
    if (dwEdge) SendHostEvent(ZT5_CFG_DISPLAY_EDGE_EVENT, dwEdge);
}

// A gesture value that isn't a finite number means nothing and would stay
// in the camera for good: the gesture is dropped.
static bool AllFinite(std::initializer_list<float> values)
{
    for (float v : values)
        if (!std::isfinite(v)) return false;
    return true;
}

// A point far outside any window is brought to this distance: the views add
// differences of points to their angles, and two points near the largest
// float would make an infinite difference.
static float Bounded(float v)
{
    const float kMaxCoordinate = 1.0e6f;
    return std::max(-kMaxCoordinate, std::min(kMaxCoordinate, v));
}

std::unique_lock<std::recursive_mutex> CWinOpenGLESRenderer::LockViews()
{
    // The render thread is the one that deletes views: it calls them as they
    // are. Taking the lock there could wait on a host thread that is inside a
    // view's callback, waiting for this very thread.
    std::unique_lock<std::recursive_mutex> lk(m_EffectLock, std::defer_lock);
    if (std::this_thread::get_id() != m_RenderThread.load(std::memory_order_relaxed)) lk.lock();
    return lk;
}

// ------------------------------------------------------------- lifecycle

MRESULT CWinOpenGLESRenderer::Initialize(MGLDisplayContext *pDisplayContext, MLong lWidth, MLong lHeight,
                                         MDWord dwRotation)
{
    (void)dwRotation;
    m_RenderThread.store(std::this_thread::get_id(), std::memory_order_relaxed);
    if (!m_pMutex) m_pMutex = new (std::nothrow) CZT5Mutex();
    MRESULT res;
    {
        RendererLocks locks(m_pMutex);
        res = InitializeLocked(pDisplayContext, lWidth, lHeight);
        // Asked once a context, with it current.
        if (res == 0) m_bRowsAtAnyPitch = FrameTextures::RowsAtAnyPitch();
    }
    if (res != 0) return res;

    // The first view is always the plain one (m_FishEyeMode is 0 after
    // construction and after Uninitialize); the wanted mode follows through
    // SetFishEyeMode.
    CreateEffect(m_FishEyeMode.load(std::memory_order_relaxed));

    return 0;
}

MRESULT CWinOpenGLESRenderer::InitializeLocked(MGLDisplayContext *pDisplayContext, MLong lWidth, MLong lHeight)
{
    if (!pDisplayContext) {
        MLogInfo("[%s] CWinOpenGLESRenderer::Initialize pDisplayContext error", MLOG_TAG);
        return ZT5_ERR_DISPLAY_CREATE;
    }
    m_pDisplayContext = pDisplayContext;
    m_dwDisplayWidth = MLong(pDisplayContext->dwWidth);
    m_dwDisplayHeight = MLong(pDisplayContext->dwHeight);
    m_Width = lWidth;
    m_Height = lHeight;

    // A window wins; without one the display draws off-screen when it was
    // given a size for that.
    const MWindowHandle hWindow = m_hNativeWindow.load(std::memory_order_relaxed);
    m_Target.Choose(ToNativeWindow(hWindow), int(m_dwOffscreenWidth.load(std::memory_order_relaxed)),
                    int(m_dwOffscreenHeight.load(std::memory_order_relaxed)));
    m_eglDisplay = m_Target.OpenDisplay();
    if (m_eglDisplay == EGL_NO_DISPLAY) {
        MLogInfo("[%s] CWinOpenGLESRenderer::Initialize eglGetDisplay error", MLOG_TAG);
        return ZT5_ERR_DISPLAY_CREATE;
    }
    EGLint major = 0, minor = 0;
    if (!eglInitialize(m_eglDisplay, &major, &minor)) {
        MLogInfo("[%s] CWinOpenGLESRenderer::Initialize eglInitialize error", MLOG_TAG);
        return ZT5_ERR_DISPLAY_CREATE;
    }

    // A surface that keeps its content across a swap lets a snapshot read
    // exactly what the window shows. Ask for it first; without it the
    // snapshot is read before the swap of a draw.
    EGLint attribs[] = {EGL_RED_SIZE,
                        8,
                        EGL_GREEN_SIZE,
                        8,
                        EGL_BLUE_SIZE,
                        8,
                        EGL_ALPHA_SIZE,
                        8,
                        EGL_DEPTH_SIZE,
                        8,
                        EGL_RENDERABLE_TYPE,
                        EGL_OPENGL_ES2_BIT,
                        EGL_SURFACE_TYPE,
                        m_Target.SurfaceBits(true),
                        EGL_NONE};
    EGLint numConfigs = 0;
    EGLBoolean chosen = EGL_FALSE;
    chosen = eglChooseConfig(m_eglDisplay, attribs, &m_eglConfig, 1, &numConfigs);
    bool bPreservedConfig = chosen && numConfigs >= 1;
    if (!bPreservedConfig) {
        attribs[13] = m_Target.SurfaceBits(false);
        numConfigs = 0;
        if (!eglChooseConfig(m_eglDisplay, attribs, &m_eglConfig, 1, &numConfigs)) {
            MLogInfo("[%s] CWinOpenGLESRenderer::Initialize eglChooseConfig error", MLOG_TAG);
            return ZT5_ERR_DISPLAY_CREATE;
        }
        if (numConfigs < 1) {
            MLogInfo("[%s] CWinOpenGLESRenderer::Initialize numConfigs error", MLOG_TAG);
            return ZT5_ERR_DISPLAY_CREATE;
        }
    }

    if (!m_Target.CreateSurface(m_eglDisplay, m_eglConfig)) {
        MLogInfo("[%s] CWinOpenGLESRenderer::Initialize eglCreateWindowSurface error", MLOG_TAG);
        return ZT5_ERR_DISPLAY_CREATE;
    }
    m_WindowWatch.Watch(uint32_t(hWindow));
    // A framebuffer keeps its picture until the next draw: it reads like a
    // preserved window.
    m_bSwapPreserved = m_Target.OffScreen();
    if (bPreservedConfig && m_Target.Surface() &&
        eglSurfaceAttrib(m_eglDisplay, m_Target.Surface(), EGL_SWAP_BEHAVIOR, EGL_BUFFER_PRESERVED)) {
        EGLint behaviour = 0;
        m_bSwapPreserved = eglQuerySurface(m_eglDisplay, m_Target.Surface(), EGL_SWAP_BEHAVIOR, &behaviour) &&
                           behaviour == EGL_BUFFER_PRESERVED;
    }

    const EGLint contextAttribs[] = {EGL_CONTEXT_CLIENT_VERSION, 2, EGL_NONE};
    m_eglContext.Adopt(m_eglDisplay, eglCreateContext(m_eglDisplay, m_eglConfig, EGL_NO_CONTEXT, contextAttribs));
    if (!m_eglContext) {
        MLogInfo("[%s] CWinOpenGLESRenderer::Initialize eglCreateContext error", MLOG_TAG);
        return ZT5_ERR_DISPLAY_CREATE;
    }
    if (!eglMakeCurrent(m_eglDisplay, m_Target.Surface(), m_Target.Surface(), m_eglContext.get())) {
        MLogInfo("[%s] CWinOpenGLESRenderer::Initialize eglMakeCurrent error", MLOG_TAG);
        return ZT5_ERR_DISPLAY_CREATE;
    }
    if (!m_Target.Attach()) return ZT5_ERR_DISPLAY_CREATE;
    return 0;
}

void CWinOpenGLESRenderer::CreateEffect(MDWord mode)
{
    if (mode >= GL_RENDER_MODE_COUNT) return;
    RendererLocks locks(nullptr);
    if (!eglMakeCurrent(m_eglDisplay, m_Target.Surface(), m_Target.Surface(), m_eglContext.get())) {
        MLogInfo("[%s] CWinOpenGLESRenderer::Initialize eglMakeCurrent error", MLOG_TAG);
        return;
    }
    if (m_RenderEffect[mode]) return;
    GlesRenderEffect *pEffect = CreateRenderEffect(mode, m_dwFEPlatform.load(std::memory_order_relaxed));
    if (!pEffect) return;
    // Every view is offered what it may take; one that has no use for a
    // setting ignores it.
    ZT5DistortionParam *pDistortion = m_pDistortionParam.load(std::memory_order_relaxed);
    if (pDistortion) pEffect->setConfig(ZT5_CFG_DISPLAY_DISTORTION_PARAM, pDistortion);
    pEffect->Initialize(MDWord(m_Width), MDWord(m_Height));
    ZT5UICallbackRecord *pCallback = m_pUICallback.load(std::memory_order_relaxed);
    if (pCallback) pEffect->setConfig(ZT5_CFG_DISPLAY_UICALLBACK, pCallback);
    if (m_bHaveBackColor.load(std::memory_order_relaxed)) {
        MDWord dwColor = m_dwBackColor.load(std::memory_order_relaxed);
        pEffect->setConfig(ZT5_CFG_DISPLAY_BACK_COLOR, &dwColor);
    }
    m_RenderEffect[mode].store(pEffect);
}

void CWinOpenGLESRenderer::SetFishEyeMode(MLong nFishEyeMode)
{
    MDWord mode = MDWord(nFishEyeMode);
    if (mode > FISHEYE_MODE_MAX) {
        MLogInfo("[%s] CWinOpenGLESRenderer::SetFishEyeMode invalid mode %d", MLOG_TAG, int(nFishEyeMode));
        return;
    }
    MDWord oldMode = m_FishEyeMode.load(std::memory_order_relaxed);
    if (mode == oldMode) return;

    if (m_pMutex) m_pMutex->Lock();
    if (GlesRenderEffect *pOld = m_RenderEffect[oldMode]) {
        MLong state = pOld->GetFishEyeCruiseState();
        if (state == 0 || state == 1) m_CruiseState.store(MDWord(state), std::memory_order_relaxed);
    }
    m_FishEyeMode.store(mode, std::memory_order_relaxed);
    CreateEffect(mode);

    g_EglMutex.Lock();
    if (!eglMakeCurrent(m_eglDisplay, m_Target.Surface(), m_Target.Surface(), m_eglContext.get())) {
        MLogInfo("[%s] CWinOpenGLESRenderer::Initialize eglMakeCurrent error", MLOG_TAG);
    } else if (GlesRenderEffect *pEffect = m_RenderEffect[mode]) {
        ZT5UICallbackRecord *pCallback = m_pUICallback.load(std::memory_order_relaxed);
        if (pCallback) pEffect->setConfig(ZT5_CFG_DISPLAY_UICALLBACK, pCallback);
        pEffect->SetFishEyeCruiseState(m_CruiseState.load(std::memory_order_relaxed) != 0 ? 1 : 0,
                                       m_fAutoCuriseVelocity.load(std::memory_order_relaxed));
        pEffect->SetEnableGLDepth(GetViewTraits(MLong(mode)).depthTest ? 1 : 0);
    }
    if (m_pMutex) m_pMutex->Unlock();
    g_EglMutex.Unlock();
}

void CWinOpenGLESRenderer::Uninitialize()
{
    RendererLocks locks(m_pMutex);
    const bool hadDisplay = m_eglDisplay != EGL_NO_DISPLAY;
    if (hadDisplay) eglMakeCurrent(m_eglDisplay, m_Target.Surface(), m_Target.Surface(), m_eglContext.get());

    // Take the views out of the table first, under the lock the gesture
    // entry points hold while they call a view, then destroy them: no host
    // thread can be inside a view that is being deleted.
    GlesRenderEffect *effects[GL_RENDER_MODE_COUNT];
    {
        std::lock_guard<std::recursive_mutex> lk(m_EffectLock);
        for (int i = 0; i < GL_RENDER_MODE_COUNT; i++) {
            effects[i] = m_RenderEffect[i];
            m_RenderEffect[i] = nullptr;
        }
        m_FishEyeMode.store(0, std::memory_order_relaxed);
    }
    for (int i = 0; i < GL_RENDER_MODE_COUNT; i++) delete effects[i];

    m_FrameTextures.Reset();
    m_UploadedRegion = FrameBox();
    m_lSurfaceWidth = m_lSurfaceHeight = 0;
    m_Target.ReleaseGl();
    m_PictureConverter.Release();
    m_FaceOverlay.Release();
    m_pPictureArmed = nullptr;
    m_bPictureTaken = false;
    m_bDrawn = false;
    m_dwDisplayWidth = 0;
    m_dwDisplayHeight = 0;
    MMemFree(m_pCaptureBuffer);
    m_pCaptureBuffer = nullptr;
    m_bCaptureArmed = false;
    m_bCaptureTaken = false;

    if (m_eglDisplay != EGL_NO_DISPLAY) {
        eglMakeCurrent(m_eglDisplay, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
    }
    m_eglContext.Reset();
    m_Target.Reset();
    m_WindowWatch.Stop();
    m_eglDisplay = EGL_NO_DISPLAY;
    m_eglConfig = nullptr;
    m_bSwapPreserved = false;
    m_pDisplayContext = nullptr;
    // Only the thread that had our context current lets go of its EGL
    // state: a second call (the destructor, on the host's thread) must not
    // release whatever context the host itself has current there.
    if (hadDisplay) eglReleaseThread();
}

// ------------------------------------------------------------------ draw

bool CWinOpenGLESRenderer::MakeCurrent()
{
    // The render thread keeps its context current from draw to draw: asking
    // is a thread-local read, and only a real switch takes the process-wide
    // lock.
    if (eglGetCurrentContext() == m_eglContext.get() && eglGetCurrentSurface(EGL_DRAW) == m_Target.Surface() &&
        m_eglContext)
        return true;
    Held egl(&g_EglMutex);
    return eglMakeCurrent(m_eglDisplay, m_Target.Surface(), m_Target.Surface(), m_eglContext.get()) == EGL_TRUE;
}

void CWinOpenGLESRenderer::Render(const VideoFrame &frame, bool bNewPixels, MDWord bIsNewScaleMode)
{
    m_bWantsAnotherFrame = false;
    // The renderer's own lock (host threads save and restore view state
    // under it) for the whole draw; the process-wide EGL lock only inside
    // MakeCurrent: drawing into and swapping this display's own surface
    // needs nothing of the other displays.
    Held lock(m_pMutex);

    // A destroyed window has nothing left to draw into, and every driver
    // query of it fails: the display waits for the next window.
    if (m_WindowWatch.Gone()) return;
    if (!MakeCurrent()) return;
    // The surface's size is asked only after the window was resized (or
    // mapped), and for a few draws after that: a driver may take the new
    // size only at a swap.
    if (m_WindowWatch.TakeResized()) m_nSizeQueries = kSizeQueriesAfterResize;
    if (m_nSizeQueries > 0 || m_lSurfaceWidth <= 0 || m_lSurfaceHeight <= 0) {
        EGLint qw = 0, qh = 0;
        if (!m_Target.Size(m_eglDisplay, &qw, &qh)) return;
        m_lSurfaceWidth = qw;
        m_lSurfaceHeight = qh;
        if (m_nSizeQueries > 0) m_nSizeQueries--;
    }
    const EGLint w = m_lSurfaceWidth, h = m_lSurfaceHeight;
    if (w != m_dwDisplayWidth || h != m_dwDisplayHeight) {
        m_dwDisplayWidth = w;
        m_dwDisplayHeight = h;
        if (m_pDisplayContext) {
            if (m_pDisplayContext->rectOpenglScale[2] == 0) m_pDisplayContext->rectOpenglScale[2] = w;
            if (m_pDisplayContext->rectOpenglScale[3] == 0) m_pDisplayContext->rectOpenglScale[3] = h;
        }
    }

    const bool bFinish = m_bFinishEachPhase.load(std::memory_order_relaxed);
    const uint64_t t0 = NowNs();
    // The part of the frame the view looks at, by its traits: the whole
    // frame, or the lens circle's square or rectangle. A view switch or a
    // new lens circle on a still frame is thus a new cut at once.
    const MDWord mode = m_FishEyeMode.load(std::memory_order_relaxed);
    FrameBox box = {0, 0, frame.width, frame.height};
    const LensBox lens = GetViewTraits(MLong(mode)).lensBox;
    if (lens == LensBox::Square && !frame.lensSquare.Empty()) box = frame.lensSquare;
    if (lens == LensBox::Rectangle && !frame.lensRectangle.Empty()) box = frame.lensRectangle;
    // Only that part goes up (rounded out to whole chroma samples) where the
    // driver reads rows at the frame's pitch; else the whole frame. The
    // textures keep it: a redraw for motion alone uploads nothing, and the
    // frame's slot stays ours, so another part of a still frame goes up
    // when a view wants it.
    FrameBox region = {0, 0, frame.width, frame.height};
    if (m_bRowsAtAnyPitch) {
        region.x = box.x & ~1u;
        region.y = box.y & ~1u;
        region.w = std::min(frame.width, (box.x + box.w + 1) & ~1u) - region.x;
        region.h = std::min(frame.height, (box.y + box.h + 1) & ~1u) - region.y;
    }
    const VideoFrame part = frame.Cut(region.x, region.y, region.w, region.h);
    const bool bOtherPart = region.x != m_UploadedRegion.x || region.y != m_UploadedRegion.y ||
                            region.w != m_UploadedRegion.w || region.h != m_UploadedRegion.h;
    if (bNewPixels || bOtherPart || !m_FrameTextures.Holds()) {
        m_FrameTextures.Upload(part);
        m_UploadedRegion = region;
    }
    // Pictures for the host are converted back with the frame's own matrix
    // and range.
    m_dwPictureColour = MDWord(frame.colour.matrix) | (frame.colour.bFullRange ? ZT5_YUV_RANGE_FULL : 0u);
    if (bFinish) glFinish();
    const uint64_t t1 = NowNs();

    GlesRenderEffect *pEffect = m_RenderEffect[mode];
    if (!pEffect) {
        MLogInfo("[%s] NULL == m_RenderEffect[%d] ", MLOG_TAG, int(mode));
    } else {
        bool bInertia = false;
        if (m_bVelocityActive.load(std::memory_order_relaxed) == 1) {
            float vx = m_fVelX.load(std::memory_order_relaxed) * 0.9f;
            float vy = m_fVelY.load(std::memory_order_relaxed) * 0.9f;
            m_fVelX.store(vx, std::memory_order_relaxed);
            m_fVelY.store(vy, std::memory_order_relaxed);
            if (std::fabs(vx) < 0.5f && std::fabs(vy) < 0.5f) {
                m_bVelocityActive.store(0, std::memory_order_relaxed);
            } else {
                pEffect->StartAcceleratedVelocity(vx, vy);
                bInertia = true;
            }
        }
        m_lCruiseSeen = pEffect->GetFishEyeCruiseState();

        MLong rect[4] = {0, 0, 0, 0};
        if (m_pDisplayContext)
            for (int i = 0; i < 4; i++) rect[i] = m_pDisplayContext->rectOpenglScale[i];
        m_Width = MLong(box.w);
        m_Height = MLong(box.h);
        const FrameBox inPart = {box.x - region.x, box.y - region.y, box.w, box.h};
        FrameSampling sampling = SamplingFor(part, inPart, m_FrameTextures.Ids());
        sampling.frameBox = box;
        // The plain view draws its own faces.
        if (lens != LensBox::Whole) sampling.faces = m_FaceOverlay.Marks(box);
        pEffect->SetFrameSampling(sampling);
        {
            std::lock_guard<std::mutex> lens(m_LensLock);
            pEffect->SetLensModel(m_LensModel);
        }
        pEffect->Render(rect, m_dwDisplayWidth, m_dwDisplayHeight, m_Width, m_Height, m_FrameTextures.Ids(),
                        bIsNewScaleMode, frame.rotation);
        // The labels of the faces, beside where the view shows them.
        if (lens != LensBox::Whole) m_FaceOverlay.DrawLabels(pEffect->ShownMap());
        // Inertia decays here, one step a draw, and needs the draws to go on
        // until it has died out; everything else that moves is the view's.
        m_bWantsAnotherFrame = bInertia || pEffect->NeedsAnotherFrame();
        m_dwEdgeSeen |= pEffect->TakeEdgeEvent();
        m_bDrawn = true;
    }

    if (bFinish) glFinish();
    const uint64_t t2 = NowNs();

    if (m_bCaptureArmed) {
        // The back buffer is undefined after the swap on this surface: read
        // the picture now, exactly as it is about to be shown.
        m_lCaptureResult = ReadSurface(&m_pCaptureBuffer, &m_dwCaptureWidth, &m_dwCaptureHeight);
        m_bCaptureArmed = false;
        m_bCaptureTaken = true;
    }
    if (m_pPictureArmed) {
        m_lPictureResult = ReadPictureLocked(m_pPictureArmed);
        m_pPictureArmed = nullptr;
        m_bPictureTaken = true;
    }

    const uint64_t t3 = NowNs();
    if (!m_Target.Present(m_eglDisplay))
        MLogInfo("[%s] EGLRenderer::DoRender eglSwapBuffers() returned error %d", MLOG_TAG, int(eglGetError()));
    const uint64_t t4 = NowNs();
    m_qwUploadNs.fetch_add(t1 - t0, std::memory_order_relaxed);
    m_qwEffectNs.fetch_add(t2 - t1, std::memory_order_relaxed);
    m_qwSwapNs.fetch_add(t4 - t3, std::memory_order_relaxed);
    m_qwDraws.fetch_add(1, std::memory_order_relaxed);
}

CWinOpenGLESRenderer::Timings CWinOpenGLESRenderer::GetTimings() const
{
    Timings t;
    t.draws = m_qwDraws.load(std::memory_order_relaxed);
    t.uploadNs = m_qwUploadNs.load(std::memory_order_relaxed);
    t.effectNs = m_qwEffectNs.load(std::memory_order_relaxed);
    t.swapNs = m_qwSwapNs.load(std::memory_order_relaxed);
    return t;
}

void CWinOpenGLESRenderer::DeliverHostEvents()
{
    if (m_dwEdgeSeen) m_Courier.Post(m_pUICallback.load(std::memory_order_relaxed), ZT5_CFG_DISPLAY_EDGE_EVENT, m_dwEdgeSeen);
    m_dwEdgeSeen = 0;
    ReportCruiseState(m_lCruiseSeen);
}

void CWinOpenGLESRenderer::SendHostEvent(MDWord dwParamId, MDWord dwValue)
{
    if (ZT5UICallbackRecord *pRecord = m_pUICallback.load(std::memory_order_relaxed))
        HostEventCourier::Deliver(pRecord, dwParamId, dwValue);
}

void CWinOpenGLESRenderer::ReportCruiseState(MLong state)
{
    // A view without cruise (-1) has no state to report or to remember: the
    // plain view shown first must not make the fisheye view's starting state
    // look like a change.
    if (state == -1) return;
    if (m_lastCuriseState == -2) {
        // The first state seen is where the view starts, not a change.
        m_lastCuriseState = state;
        return;
    }
    ZT5UICallbackRecord *pRecord = m_pUICallback.load(std::memory_order_relaxed);
    if (!pRecord || state == m_lastCuriseState) return;
    m_lastCuriseState = state;
    m_Courier.Post(pRecord, ZT5_CFG_DISPLAY_CURISE_STATE_EVENT, MDWord(state));
}

bool CWinOpenGLESRenderer::WindowNeedsRedraw()
{
    // Both questions are asked every time: the watch's queue is emptied.
    const bool bExposed = m_WindowWatch.TakeExposed();
    RendererLocks locks(m_pMutex);
    if (m_eglDisplay == EGL_NO_DISPLAY || !m_Target.Surface()) return false; // a framebuffer never needs it
    EGLint w = 0, h = 0;
    if (!m_Target.Size(m_eglDisplay, &w, &h)) return bExposed;
    return bExposed || w != m_dwDisplayWidth || h != m_dwDisplayHeight;
}

// --------------------------------------------------------------- capture

MRESULT CWinOpenGLESRenderer::ReadSurface(void **ppBuffer, MDWord *pWidth, MDWord *pHeight)
{
    // The picture of the last draw fills its viewport; the surface may have
    // shrunk since (a resize not drawn yet), and reading past it crashes
    // inside the driver: the read keeps to both. Before the first draw
    // there is no picture at all, and with the window destroyed none to
    // read: the capture is empty then.
    GLint viewport[4] = {0, 0, 0, 0};
    glGetIntegerv(GL_VIEWPORT, viewport);
    EGLint sw = 0, sh = 0;
    if (!m_bDrawn || !m_WindowWatch.Exists() || !m_Target.Size(m_eglDisplay, &sw, &sh))
        sw = sh = 0;
    MDWord w = viewport[2] > 0 ? MDWord(std::min<GLint>(viewport[2], sw)) : 0;
    MDWord h = viewport[3] > 0 ? MDWord(std::min<GLint>(viewport[3], sh)) : 0;
    MMemFree(m_pCaptureBuffer);
    m_pCaptureBuffer = nullptr;
    *pWidth = w;
    *pHeight = h;
    *ppBuffer = nullptr;
    if (w == 0 || h == 0) return ZT5_SNAPSHOT_RGBA;
    m_pCaptureBuffer = MMemAlloc(size_t(w) * size_t(h) * 4);
    if (!m_pCaptureBuffer) {
        MLogInfo("[%s] CWinOpenGLESRenderer::CaptureCurEffect error  new space fail", MLOG_TAG);
        return -1;
    }
    GLint packAlignment = 4;
    glGetIntegerv(GL_PACK_ALIGNMENT, &packAlignment);
    glPixelStorei(GL_PACK_ALIGNMENT, 4);
    glReadPixels(0, 0, GLsizei(w), GLsizei(h), GL_RGBA, GL_UNSIGNED_BYTE, m_pCaptureBuffer);
    glPixelStorei(GL_PACK_ALIGNMENT, packAlignment);
    checkGlError("CaptureCurEffect");
    *ppBuffer = m_pCaptureBuffer;
    return ZT5_SNAPSHOT_RGBA;
}

MRESULT CWinOpenGLESRenderer::CaptureCurEffect(void **ppBuffer, MDWord *pWidth, MDWord *pHeight)
{
    RendererLocks locks(m_pMutex);
    if (!eglMakeCurrent(m_eglDisplay, m_Target.Surface(), m_Target.Surface(), m_eglContext.get())) {
        MLogInfo("[%s] CWinOpenGLESRenderer::Initialize eglMakeCurrent error", MLOG_TAG);
        return ZT5_ERR_DISPLAY_CREATE;
    }
    return ReadSurface(ppBuffer, pWidth, pHeight);
}

MRESULT CWinOpenGLESRenderer::ReadPictureLocked(ZT5Picture *pPicture)
{
    // What the last draw drew, as a snapshot reads it: the drawn size, kept
    // within the surface as it is now (a window that shrank since).
    EGLint sw = 0, sh = 0;
    if (!m_bDrawn || !m_WindowWatch.Exists() || !m_Target.Size(m_eglDisplay, &sw, &sh)) return ZT5_ERR_NOT_READY;
    const MDWord w = MDWord(std::max<MLong>(0, std::min<MLong>(m_dwDisplayWidth, sw)));
    const MDWord h = MDWord(std::max<MLong>(0, std::min<MLong>(m_dwDisplayHeight, sh)));
    if (w == 0 || h == 0) return ZT5_ERR_NOT_READY;
    const size_t need = PictureConverter::Bytes(pPicture->dwCSType, w, h);
    if (need == 0 || need > 0xFFFFFFFFu) return ZT5_ERR_INVALID_PARAM;
    pPicture->dwWidth = w;
    pPicture->dwHeight = h;
    if (pPicture->dwSize < need) {
        pPicture->dwSize = MDWord(need);
        return ZT5_ERR_INVALID_PARAM;
    }
    // The framebuffer's texture is read as it is; a window's picture is
    // copied from the surface bound now.
    if (!m_PictureConverter.Read(m_Target.ColourTexture(), sw, sh, w, h, pPicture->dwCSType,
                                 m_dwPictureColour,
                                 static_cast<uint8_t *>(pPicture->pBuffer)))
        return ZT5_ERR_UPDATE_FAILED;
    pPicture->dwSize = MDWord(need);
    return 0;
}

MRESULT CWinOpenGLESRenderer::ReadPicture(ZT5Picture *pPicture)
{
    RendererLocks locks(m_pMutex);
    if (!eglMakeCurrent(m_eglDisplay, m_Target.Surface(), m_Target.Surface(), m_eglContext.get()))
        return ZT5_ERR_DISPLAY_CREATE;
    return ReadPictureLocked(pPicture);
}

bool CWinOpenGLESRenderer::TakeArmedPicture(MRESULT *pResult)
{
    if (!m_bPictureTaken) return false;
    m_bPictureTaken = false;
    m_pPictureArmed = nullptr;
    *pResult = m_lPictureResult;
    return true;
}

bool CWinOpenGLESRenderer::TakeArmedCapture(void **ppBuffer, MDWord *pWidth, MDWord *pHeight, MRESULT *pResult)
{
    if (!m_bCaptureTaken) return false;
    m_bCaptureTaken = false;
    m_bCaptureArmed = false;
    *ppBuffer = m_pCaptureBuffer;
    *pWidth = m_dwCaptureWidth;
    *pHeight = m_dwCaptureHeight;
    *pResult = m_lCaptureResult;
    return true;
}

// -------------------------------------------------------------- settings

MRESULT CWinOpenGLESRenderer::setConfig(MDWord dwID, void *pValue)
{
    switch (dwID) {
    case ZT5_CFG_DISPLAY_FE_PLATFORM:
        if (pValue) m_dwFEPlatform.store(*static_cast<const MDWord *>(pValue), std::memory_order_relaxed);
        break;
    case ZT5_CFG_DISPLAY_DISTORTION_PARAM:
        if (pValue) m_pDistortionParam.store(static_cast<ZT5DistortionParam *>(pValue), std::memory_order_relaxed);
        WithCurrentEffect([&](GlesRenderEffect *e) { e->setConfig(dwID, pValue); });
        break;
    case ZT5_CFG_DISPLAY_UICALLBACK:
        if (pValue) m_pUICallback.store(static_cast<ZT5UICallbackRecord *>(pValue), std::memory_order_relaxed);
        WithCurrentEffect([&](GlesRenderEffect *e) { e->setConfig(dwID, pValue); });
        break;
    case ZT5_CFG_DISPLAY_FE_CURRENTSTATUS: {
        if (!pValue) break;
        if (m_pMutex) m_pMutex->Lock();
        GlesRenderEffect *pEffect = nullptr;
        {
            std::lock_guard<std::recursive_mutex> lk(m_EffectLock);
            MDWord mode = m_FishEyeMode.load(std::memory_order_relaxed);
            pEffect = m_RenderEffect[mode];
            if (!pEffect) {
                MLogInfo("CWinOpenGLESRenderer set ZT5_CFG_DISPLAY_FE_CURRENTSTATUS "
                         "m_RenderEffect[m_FishEyeMode] == NULL");
            } else {
                MMemCpy(&m_FECurrentStatusData, pValue, sizeof(m_FECurrentStatusData));
                if (MDWord(m_FECurrentStatusData.mFishEyeMode) == mode) {
                    m_FECurrentStatusData.bRestored = 1;
                    pEffect->setConfig(ZT5_CFG_DISPLAY_FE_CURRENTSTATUS, &m_FECurrentStatusData);
                } else {
                    // A state saved in another view is not applied here.
                    MLogInfo("CWinOpenGLESRenderer set ZT5_CFG_DISPLAY_FE_CURRENTSTATUS m_FishEyeMode=%d, "
                             "m_FECurrentStatusData.mFishEyeMode:%d",
                             int(mode), int(m_FECurrentStatusData.mFishEyeMode));
                }
            }
        }
        if (m_pMutex) m_pMutex->Unlock();
        break;
    }
    case ZT5_CFG_DISPLAY_AIM_AT:
        WithCurrentEffect([&](GlesRenderEffect *e) { e->setConfig(dwID, pValue); });
        break;
    case ZT5_CFG_DISPLAY_OPENGL_FULLVIEW:
        if (pValue) m_bOpenglFullView.store(*static_cast<const MDWord *>(pValue), std::memory_order_relaxed);
        WithCurrentEffect([&](GlesRenderEffect *e) { e->setConfig(dwID, pValue); });
        break;
    case ZT5_CFG_DISPLAY_SCALE_RATIO:
        if (!pValue) break;
        WithCurrentEffect([&](GlesRenderEffect *e) {
            m_fScaleRatio = float(*static_cast<const MDWord *>(pValue) / 100.0);
            e->setConfig(dwID, &m_fScaleRatio);
        });
        break;
    case ZT5_CFG_DISPLAY_MAX_SCALE:
        if (!pValue) break;
        WithCurrentEffect([&](GlesRenderEffect *e) {
            m_fMaxScale = float(*static_cast<const MDWord *>(pValue) / 100.0);
            e->setConfig(dwID, &m_fMaxScale);
        });
        break;
    case ZT5_CFG_DISPLAY_OFFSCREEN_SIZE:
        // Taken at the next Initialize; a window, when there is one, wins.
        if (!pValue) break;
        m_dwOffscreenWidth.store(static_cast<const MDWord *>(pValue)[0], std::memory_order_relaxed);
        m_dwOffscreenHeight.store(static_cast<const MDWord *>(pValue)[1], std::memory_order_relaxed);
        break;
    case ZT5_CFG_PLUGINMGR_HDL:
        m_hNativeWindow.store(reinterpret_cast<MWindowHandle>(pValue), std::memory_order_relaxed);
        break;
    case ZT5_CFG_DISPLAY_BACK_COLOR: {
        // Every view clears with it, also the views made later.
        if (!pValue) break;
        std::unique_lock<std::recursive_mutex> lk = LockViews();
        m_dwBackColor.store(*static_cast<const MDWord *>(pValue), std::memory_order_relaxed);
        m_bHaveBackColor.store(true, std::memory_order_relaxed);
        for (auto &slot : m_RenderEffect)
            if (GlesRenderEffect *e = slot.load()) e->setConfig(dwID, pValue);
        break;
    }
    case ZT5_CFG_COMMON_LENS_MODEL:
        // Checked by the front end; whichever view draws takes it at its draw.
        if (pValue) {
            std::lock_guard<std::mutex> lens(m_LensLock);
            std::memcpy(&m_LensModel, pValue, sizeof(m_LensModel));
        }
        break;
    case ZT5_CFG_DISPLAY_FACE_OPTION:
    case ZT5_CFG_DISPLAY_FACE_LIST:
    case ZT5_CFG_DISPLAY_FONT_PATH:
    case ZT5_CFG_DISPLAY_FACE_INFO:
    case ZT5_CFG_DISPLAY_FACE_MUTEX:
        // The fisheye views' faces are the renderer's; the plain view keeps
        // its own.
        m_FaceOverlay.SetConfig(dwID, pValue);
        [[fallthrough]];
    case ZT5_CFG_DISPLAY_LOGO_DATA: {
        // The current view, and the plain view, which draws the overlays:
        // it gets them whichever view is current, so that they are there
        // when it is shown again. A view copies what it keeps.
        std::unique_lock<std::recursive_mutex> lk = LockViews();
        GlesRenderEffect *pCurrent = m_RenderEffect[m_FishEyeMode.load(std::memory_order_relaxed)];
        GlesRenderEffect *pPlain = m_RenderEffect[0];
        if (pCurrent) pCurrent->setConfig(dwID, pValue);
        if (pPlain && pPlain != pCurrent) pPlain->setConfig(dwID, pValue);
        break;
    }
    default:
        break;
    }
    return 0;
}

MRESULT CWinOpenGLESRenderer::GetConfig(MDWord dwID, void *pValue)
{
    if (!pValue) return ZT5_ERR_INVALID_PARAM;
    switch (dwID) {
    case ZT5_CFG_DISPLAY_SCALE_RATIO:
        WithCurrentEffect(
            [&](GlesRenderEffect *e) { *static_cast<MDWord *>(pValue) = ToPercent(e->GetScaleRatio()); });
        break;
    case ZT5_CFG_DISPLAY_MAP_POINT:
        // The view keeps the mapping of its last draw as a value of its own.
        WithCurrentEffect([&](GlesRenderEffect *e) { e->GetConfig(dwID, pValue); });
        break;
    case ZT5_CFG_DISPLAY_MAX_SCALE: {
        std::lock_guard<std::recursive_mutex> lk(m_EffectLock);
        *static_cast<MDWord *>(pValue) = ToPercent(m_fMaxScale);
        break;
    }
    case ZT5_CFG_DISPLAY_GET_FE_CURRENTSTATUS:
        if (m_pMutex) m_pMutex->Lock();
        WithCurrentEffect([&](GlesRenderEffect *e) {
            e->GetConfig(ZT5_CFG_DISPLAY_GET_FE_CURRENTSTATUS, &m_FECurrentStatusData);
            m_FECurrentStatusData.mFishEyeMode = MLong(m_FishEyeMode.load(std::memory_order_relaxed));
        });
        *static_cast<FECurrentStatusData **>(pValue) = &m_FECurrentStatusData;
        if (m_pMutex) m_pMutex->Unlock();
        break;
    default:
        break;
    }
    return 0;
}

void CWinOpenGLESRenderer::SetFishEyeCruiseState(MLong state)
{
    m_CruiseState.store(MDWord(state) & 0xff, std::memory_order_relaxed);
    WithCurrentEffect([&](GlesRenderEffect *e) { e->SetFishEyeCruiseState(state, 1.0f); });
}

void CWinOpenGLESRenderer::SetFishEyeCruiseVelocity(float velocity)
{
    if (!AllFinite({velocity})) return;
    m_fAutoCuriseVelocity.store(velocity, std::memory_order_relaxed);
    WithCurrentEffect([&](GlesRenderEffect *e) {
        if (m_CruiseState.load(std::memory_order_relaxed) != 1) return;
        m_bVelocityActive.store(0, std::memory_order_relaxed);
        e->SetFishEyeCruiseState(1, velocity);
    });
}

// -------------------------------------------------------------- gestures

void CWinOpenGLESRenderer::OnTouchDown(float x, float y)
{
    if (!AllFinite({x, y})) return;
    x = Bounded(x), y = Bounded(y);
    m_fLastX.store(x, std::memory_order_relaxed);
    m_fLastY.store(y, std::memory_order_relaxed);
    WithCurrentEffect([&](GlesRenderEffect *e) { e->OnTouchDown(x, y); });
}

void CWinOpenGLESRenderer::OnTouchUp(float x, float y)
{
    if (!AllFinite({x, y})) return;
    x = Bounded(x), y = Bounded(y);
    WithCurrentEffect([&](GlesRenderEffect *e) { e->OnTouchUp(x, y); });
    m_fLastX.store(x, std::memory_order_relaxed);
    m_fLastY.store(y, std::memory_order_relaxed);
}

void CWinOpenGLESRenderer::OnTouchMove(float px, float py, float x, float y)
{
    if (!AllFinite({px, py, x, y})) return;
    px = Bounded(px), py = Bounded(py), x = Bounded(x), y = Bounded(y);
    WithCurrentEffect([&](GlesRenderEffect *e) { e->OnTouchMove(px, py, x, y); });
    m_fLastX.store(x, std::memory_order_relaxed);
    m_fLastY.store(y, std::memory_order_relaxed);
}

void CWinOpenGLESRenderer::OnTouchPinch(float fZoomRate, float x, float y)
{
    if (!AllFinite({fZoomRate, x, y})) return;
    x = Bounded(x), y = Bounded(y);
    double dx = (double(x) - double(m_fLastX.load(std::memory_order_relaxed))) * 0.1;
    double dy = (double(y) - double(m_fLastY.load(std::memory_order_relaxed))) * 0.1;
    WithCurrentEffect([&](GlesRenderEffect *e) { e->OnTouchPinch(fZoomRate, float(dx), float(dy)); });
    m_fLastX.store(x, std::memory_order_relaxed);
    m_fLastY.store(y, std::memory_order_relaxed);
}

void CWinOpenGLESRenderer::OnDoubleClick(float x, float y)
{
    if (!AllFinite({x, y})) return;
    x = Bounded(x), y = Bounded(y);
    WithCurrentEffect([&](GlesRenderEffect *e) { e->OnDoubleClick(x, y); });
    m_fLastX.store(x, std::memory_order_relaxed);
    m_fLastY.store(y, std::memory_order_relaxed);
}

void CWinOpenGLESRenderer::OnTouchMoveVelocity(float nVelX, float nVelY)
{
    // Inertia decays by a tenth a draw; a huge speed is cut to one that
    // dies out within about a hundred draws.
    if (!AllFinite({nVelX, nVelY})) return;
    const float kMaxVelocity = 10000.0f;
    nVelX = std::max(-kMaxVelocity, std::min(kMaxVelocity, nVelX));
    nVelY = std::max(-kMaxVelocity, std::min(kMaxVelocity, nVelY));
    m_fVelX.store(nVelX, std::memory_order_relaxed);
    m_fVelY.store(nVelY, std::memory_order_relaxed);
    if (std::fabs(nVelX) > 0.1f || std::fabs(nVelY) > 0.1f) m_bVelocityActive.store(1, std::memory_order_relaxed);
}

void CWinOpenGLESRenderer::SetDisBackGroundSts(MDWord bCloud, MDWord bStar)
{
    WithCurrentEffect([&](GlesRenderEffect *e) {
        if (GetViewTraits(MLong(m_FishEyeMode.load(std::memory_order_relaxed))).backgroundLayers)
            e->SetDisBackGroundSts(bCloud, bStar);
    });
}

void CWinOpenGLESRenderer::SetInitAnimalSts(MDWord bAnimal)
{
    WithCurrentEffect([&](GlesRenderEffect *e) {
        if (GetViewTraits(MLong(m_FishEyeMode.load(std::memory_order_relaxed))).openingAnimation)
            e->SetInitAnimalSts(bAnimal);
    });
}
