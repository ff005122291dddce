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
    MMemFree(m_pPadBuffer);
    m_pPadBuffer = nullptr;
    m_dwPadBufferSize = 0;
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
    }
    if (res != 0) return res;

    // The first view is always the plain one (m_FishEyeMode is 0 after
    // construction and after Uninitialize); the wanted mode follows through
    // SetFishEyeMode.
    CreateEffect(m_FishEyeMode.load(std::memory_order_relaxed));

    RendererLocks locks(m_pMutex);
    if (eglMakeCurrent(m_eglDisplay, m_eglSurface.get(), m_eglSurface.get(), m_eglContext.get())) {
        for (GlTexture &t : m_Planes) t = GlTexture::Create();
    }
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

    m_eglDisplay = eglGetDisplay(EGL_DEFAULT_DISPLAY);
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
                        EGL_WINDOW_BIT | EGL_SWAP_BEHAVIOR_PRESERVED_BIT,
                        EGL_NONE};
    EGLint numConfigs = 0;
    EGLBoolean chosen = EGL_FALSE;
    chosen = eglChooseConfig(m_eglDisplay, attribs, &m_eglConfig, 1, &numConfigs);
    bool bPreservedConfig = chosen && numConfigs >= 1;
    if (!bPreservedConfig) {
        attribs[13] = EGL_WINDOW_BIT;
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

    m_eglSurface.Adopt(m_eglDisplay,
                       eglCreateWindowSurface(m_eglDisplay, m_eglConfig,
                                              ToNativeWindow(m_hNativeWindow.load(std::memory_order_relaxed)), nullptr));
    if (!m_eglSurface) {
        MLogInfo("[%s] CWinOpenGLESRenderer::Initialize eglCreateWindowSurface error", MLOG_TAG);
        return ZT5_ERR_DISPLAY_CREATE;
    }
    m_WindowWatch.Watch(uint32_t(m_hNativeWindow.load(std::memory_order_relaxed)));
    m_bSwapPreserved = false;
    if (bPreservedConfig && eglSurfaceAttrib(m_eglDisplay, m_eglSurface.get(), EGL_SWAP_BEHAVIOR, EGL_BUFFER_PRESERVED)) {
        EGLint behaviour = 0;
        m_bSwapPreserved = eglQuerySurface(m_eglDisplay, m_eglSurface.get(), EGL_SWAP_BEHAVIOR, &behaviour) &&
                           behaviour == EGL_BUFFER_PRESERVED;
    }

    const EGLint contextAttribs[] = {EGL_CONTEXT_CLIENT_VERSION, 2, EGL_NONE};
    m_eglContext.Adopt(m_eglDisplay, eglCreateContext(m_eglDisplay, m_eglConfig, EGL_NO_CONTEXT, contextAttribs));
    if (!m_eglContext) {
        MLogInfo("[%s] CWinOpenGLESRenderer::Initialize eglCreateContext error", MLOG_TAG);
        return ZT5_ERR_DISPLAY_CREATE;
    }
    if (!eglMakeCurrent(m_eglDisplay, m_eglSurface.get(), m_eglSurface.get(), m_eglContext.get())) {
        MLogInfo("[%s] CWinOpenGLESRenderer::Initialize eglMakeCurrent error", MLOG_TAG);
        return ZT5_ERR_DISPLAY_CREATE;
    }
    return 0;
}

void CWinOpenGLESRenderer::CreateEffect(MDWord mode)
{
    if (mode >= GL_RENDER_MODE_COUNT) return;
    RendererLocks locks(nullptr);
    if (!eglMakeCurrent(m_eglDisplay, m_eglSurface.get(), m_eglSurface.get(), m_eglContext.get())) {
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
    if (!eglMakeCurrent(m_eglDisplay, m_eglSurface.get(), m_eglSurface.get(), m_eglContext.get())) {
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
    if (hadDisplay) eglMakeCurrent(m_eglDisplay, m_eglSurface.get(), m_eglSurface.get(), m_eglContext.get());

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

    for (int i = 0; i < 3; i++) {
        m_Planes[i].reset();
        m_TextureWidth[i] = m_TextureHeight[i] = 0;
    }
    m_bPlanesUploaded = false;
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
    m_eglSurface.Reset();
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

bool CWinOpenGLESRenderer::Render(unsigned char *const *planes, const MLong *strides, bool bNewFrame,
                                  MDWord bIsNewScaleMode, MDWord dwRotation, MLong lWidth, MLong lHeight,
                                  CZT5Mutex *pPlanesLock)
{
    m_bWantsAnotherFrame = false;
    if (lWidth != m_Width || lHeight != m_Height) bNewFrame = true; // a new video size: planes of that size
    m_Width = lWidth;
    m_Height = lHeight;
    RendererLocks locks(m_pMutex);

    // A destroyed window has nothing left to draw into, and every driver
    // query of it fails: the display waits for the next window.
    if (m_WindowWatch.Gone()) return false;
    if (!eglMakeCurrent(m_eglDisplay, m_eglSurface.get(), m_eglSurface.get(), m_eglContext.get())) return false;
    EGLint w = 0, h = 0;
    if (!eglQuerySurface(m_eglDisplay, m_eglSurface.get(), EGL_WIDTH, &w)) return false;
    if (!eglQuerySurface(m_eglDisplay, m_eglSurface.get(), EGL_HEIGHT, &h)) return false;
    m_lSurfaceWidth = w;
    m_lSurfaceHeight = h;
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
    // The textures keep the last frame: a redraw for motion alone uploads
    // nothing. Textures made anew (a rebuilt renderer) need the planes again.
    if (bNewFrame || !m_bPlanesUploaded) m_bPlanesUploaded = UploadPlanes(planes, strides);
    // glTexSubImage2D has taken its copy of the client memory on return.
    if (pPlanesLock) pPlanesLock->Unlock();
    if (bFinish) glFinish();
    const uint64_t t1 = NowNs();

    MDWord mode = m_FishEyeMode.load(std::memory_order_relaxed);
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
        // The stream's colour description reaches whichever view draws.
        pEffect->SetYuvConversion(YuvConversionFor(m_dwYuvMatrix.load(std::memory_order_relaxed)));
        {
            std::lock_guard<std::mutex> lens(m_LensLock);
            pEffect->SetLensModel(m_LensModel);
        }
        GLuint planes[3] = {m_Planes[0].id(), m_Planes[1].id(), m_Planes[2].id()};
        pEffect->Render(rect, m_dwDisplayWidth, m_dwDisplayHeight, m_Width, m_Height, planes, bIsNewScaleMode,
                        dwRotation);
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

    const uint64_t t3 = NowNs();
    if (!eglSwapBuffers(m_eglDisplay, m_eglSurface.get()))
        MLogInfo("[%s] EGLRenderer::DoRender eglSwapBuffers() returned error %d", MLOG_TAG, int(eglGetError()));
    const uint64_t t4 = NowNs();
    m_qwUploadNs.fetch_add(t1 - t0, std::memory_order_relaxed);
    m_qwEffectNs.fetch_add(t2 - t1, std::memory_order_relaxed);
    m_qwSwapNs.fetch_add(t4 - t3, std::memory_order_relaxed);
    m_qwDraws.fetch_add(1, std::memory_order_relaxed);
    return pPlanesLock != nullptr;
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

bool CWinOpenGLESRenderer::UploadPlanes(unsigned char *const *planes, const MLong *strides)
{
    const MLong w = m_Width, h = m_Height;
    if (w <= 0 || h <= 0) return false;
    // Chroma textures are (w/2) rounded up to 4 columns wide, the luma
    // texture twice that: the views scale the padding columns out of view.
    const MLong c = ((w >> 1) + 3) & ~3;
    const unsigned char *y = planes ? planes[0] : nullptr;
    const unsigned char *u = planes ? planes[1] : nullptr;
    const unsigned char *v = planes ? planes[2] : nullptr;
    if (!y || !u || !v) return false;

    // The decoded planes go up as they are when their rows already have the
    // texture's width; otherwise a packed copy pads each row (ES2 has no
    // unpack row length).
    bool bInPlace = (2 * c == w);
    if (bInPlace && strides && (strides[0] != w || strides[1] != (w >> 1) || strides[2] != (w >> 1)))
        bInPlace = false;
    if (!bInPlace) {
        const size_t lumaSize = size_t(h) * size_t(2 * c);
        const size_t chromaSize = size_t(h >> 1) * size_t(c);
        const size_t need = size_t(h) * size_t(c) * 3;
        if (need > m_dwPadBufferSize || !m_pPadBuffer) {
            MMemFree(m_pPadBuffer);
            m_pPadBuffer = static_cast<unsigned char *>(MMemAlloc(need));
            m_dwPadBufferSize = m_pPadBuffer ? MDWord(need) : 0;
            if (!m_pPadBuffer) return false;
        }
        const MLong sy = strides ? strides[0] : w;
        const MLong su = strides ? strides[1] : (w >> 1);
        const MLong sv = strides ? strides[2] : (w >> 1);
        unsigned char *dy = m_pPadBuffer;
        // An odd width has one luma column more than the texture holds; the
        // padding repeats the last column, so that filtering at the right
        // edge of a magnified picture blends nothing darker in.
        const MLong lw = w < 2 * c ? w : 2 * c;
        for (MLong r = 0; r < h; r++) {
            unsigned char *row = dy + size_t(r) * size_t(2 * c);
            MMemCpy(row, y + size_t(r) * size_t(sy), size_t(lw));
            if (lw < 2 * c) MMemSet(row + lw, row[lw - 1], size_t(2 * c - lw));
        }
        unsigned char *du = m_pPadBuffer + lumaSize;
        unsigned char *dv = du + chromaSize;
        const MLong cw = w >> 1;
        for (MLong r = 0; r < (h >> 1); r++) {
            unsigned char *ru = du + size_t(r) * size_t(c);
            unsigned char *rv = dv + size_t(r) * size_t(c);
            MMemCpy(ru, u + size_t(r) * size_t(su), size_t(cw));
            MMemCpy(rv, v + size_t(r) * size_t(sv), size_t(cw));
            if (cw > 0 && cw < c) {
                MMemSet(ru + cw, ru[cw - 1], size_t(c - cw));
                MMemSet(rv + cw, rv[cw - 1], size_t(c - cw));
            }
        }
        y = dy;
        u = du;
        v = dv;
    }
    const GLsizei widths[3] = {GLsizei(2 * c), GLsizei(c), GLsizei(c)};
    const GLsizei heights[3] = {GLsizei(h), GLsizei(h >> 1), GLsizei(h >> 1)};
    const unsigned char *pixels[3] = {y, u, v};
    glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
    for (int i = 0; i < 3; i++) {
        glBindTexture(GL_TEXTURE_2D, m_Planes[i].id());
        if (m_TextureWidth[i] != widths[i] || m_TextureHeight[i] != heights[i]) {
            // Storage is made once per size; every later frame only replaces
            // the texels.
            glTexImage2D(GL_TEXTURE_2D, 0, GL_LUMINANCE, widths[i], heights[i], 0, GL_LUMINANCE, GL_UNSIGNED_BYTE,
                         nullptr);
            glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
            glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
            glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
            glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
            m_TextureWidth[i] = widths[i];
            m_TextureHeight[i] = heights[i];
        }
        if (heights[i] > 0)
            glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, widths[i], heights[i], GL_LUMINANCE, GL_UNSIGNED_BYTE, pixels[i]);
    }
    checkGlError("UploadPlanes");
    return true;
}

bool CWinOpenGLESRenderer::WindowNeedsRedraw()
{
    // Both questions are asked every time: the watch's queue is emptied.
    const bool bExposed = m_WindowWatch.TakeExposed();
    RendererLocks locks(m_pMutex);
    if (m_eglDisplay == EGL_NO_DISPLAY || !m_eglSurface) return false;
    EGLint w = 0, h = 0;
    if (!eglQuerySurface(m_eglDisplay, m_eglSurface.get(), EGL_WIDTH, &w)) return bExposed;
    if (!eglQuerySurface(m_eglDisplay, m_eglSurface.get(), EGL_HEIGHT, &h)) return bExposed;
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
    if (!m_bDrawn || !m_WindowWatch.Exists() || !eglQuerySurface(m_eglDisplay, m_eglSurface.get(), EGL_WIDTH, &sw) ||
        !eglQuerySurface(m_eglDisplay, m_eglSurface.get(), EGL_HEIGHT, &sh))
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
    if (!eglMakeCurrent(m_eglDisplay, m_eglSurface.get(), m_eglSurface.get(), m_eglContext.get())) {
        MLogInfo("[%s] CWinOpenGLESRenderer::Initialize eglMakeCurrent error", MLOG_TAG);
        return ZT5_ERR_DISPLAY_CREATE;
    }
    return ReadSurface(ppBuffer, pWidth, pHeight);
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
    case ZT5_CFG_DISPLAY_YUV_MATRIX:
        if (pValue) m_dwYuvMatrix.store(*static_cast<const MDWord *>(pValue), std::memory_order_relaxed);
        break;
    case ZT5_CFG_COMMON_LENS_MODEL:
        // Checked by the front end; whichever view draws takes it at its draw.
        if (pValue) {
            std::lock_guard<std::mutex> lens(m_LensLock);
            std::memcpy(&m_LensModel, pValue, sizeof(m_LensModel));
        }
        break;
    case ZT5_CFG_DISPLAY_FONT_PATH:
    case ZT5_CFG_DISPLAY_FACE_INFO:
    case ZT5_CFG_DISPLAY_FACE_MUTEX:
    case ZT5_CFG_DISPLAY_FACE_OPTION:
    case ZT5_CFG_DISPLAY_LOGO_DATA:
    case ZT5_CFG_DISPLAY_FACE_LIST: {
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
