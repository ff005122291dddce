#include "CWinOpenGLDisplay.h"

#include <algorithm>
#include <new>

#include "MLog.h"

#include <chrono>

IZT5VideoRenderer *CreateWinOpenGLDisplay()
{
    return new (std::nothrow) CWinOpenGLDisplay();
}

namespace {

class RequestLock {
public:
    explicit RequestLock(MHandle h) : m_h(h) { MMutexLock(m_h); }
    ~RequestLock() { MMutexUnlock(m_h); }

private:
    MHandle m_h;
};

uint64_t MonotonicNs()
{
    return uint64_t(std::chrono::duration_cast<std::chrono::nanoseconds>(
                        std::chrono::steady_clock::now().time_since_epoch())
                        .count());
}

} // namespace

CWinOpenGLDisplay::CWinOpenGLDisplay()
{
    m_dwParentThreadId = MThreadCurrentId();
    m_pRenderer = new (std::nothrow) CWinOpenGLESRenderer();
    // Events and the request lock live as long as the object: a poster or a
    // requester on another thread may touch them while the thread is being
    // stopped, so they are never closed under it.
    m_hRequestEvent = MEventCreate(0);
    m_hDoneEvent = MEventCreate(0);
    m_hRequestLock = MMutexCreate();
}

CWinOpenGLDisplay::~CWinOpenGLDisplay()
{
    Uninit();
    delete m_pRenderer;
    m_pRenderer = nullptr;
    MEventDestroy(m_hRequestEvent);
    MEventDestroy(m_hDoneEvent);
    MMutexDestroy(m_hRequestLock);
    m_hRequestEvent = m_hDoneEvent = m_hRequestLock = nullptr;
}

bool CWinOpenGLDisplay::OnRenderThread() const
{
    unsigned long id = m_dwRenderThreadId.load(std::memory_order_relaxed);
    return id != 0 && id == MThreadCurrentId();
}

// ------------------------------------------------------------ lifecycle

MRESULT CWinOpenGLDisplay::init(MDWord dwReserved, char *pText, MDWord dwCSType, MWindowHandle hContext,
                                MLong lSrcWidth, MLong lSrcHeight, MLong lWidth, MLong lHeight, MDWord bContinueBuf,
                                MDWord dwRotation)
{
    (void)dwReserved;
    (void)pText;
    (void)dwCSType;
    (void)bContinueBuf;
    // Without a window only a display with an off-screen size can draw.
    if (!hContext) {
        const DisplaySettings settings = Settings();
        if (settings.dwOffscreenSize[0] == 0 || settings.dwOffscreenSize[1] == 0) return 0;
    }
    {
        std::lock_guard<std::recursive_mutex> hs(m_HandshakeLock);
        RequestLock lock(m_hRequestLock);
        if (m_hThread) {
            MLogInfo("[%s]CWinOpenGLDisplay::DoInit Error, thread already inited", MLOG_TAG);
            return ZT5_ERR_ALREADY_INITED;
        }
        mDisplayContext.hWindow = hContext;
        mFrameInfo.dwWidth = MDWord(lWidth);
        mFrameInfo.dwHeight = MDWord(lHeight);
        mFrameInfo.dwRotation = dwRotation;
        m_lSrcWidth = lSrcWidth;
        m_lSrcHeight = lSrcHeight;
    }
    return DoInit();
}

MRESULT CWinOpenGLDisplay::DoInit()
{
    std::lock_guard<std::recursive_mutex> hs(m_HandshakeLock);
    if (m_hThread) {
        MLogInfo("[%s]CWinOpenGLDisplay::DoInit Error, thread already inited", MLOG_TAG);
        return ZT5_ERR_ALREADY_INITED;
    }
    m_hThread = MThreadCreate(&CWinOpenGLDisplay::Proc, this);
    if (!m_hRequestEvent) m_hRequestEvent = MEventCreate(0);
    if (!m_hDoneEvent) m_hDoneEvent = MEventCreate(0);
    if (!m_hRequestLock) m_hRequestLock = MMutexCreate();
    if (!m_hThread || !m_hRequestEvent || !m_hDoneEvent || !m_hRequestLock || !m_pRenderer) {
        MLogInfo("[%s]CWinOpenGLDisplay::DoInit Error, init fail", MLOG_TAG);
        // The thread was never resumed: cancel it rather than hand it work.
        MThreadDestroy(m_hThread);
        m_hThread = nullptr;
        Uninit();
        m_dwLastError.store(ZT5_ERR_DISPLAY_CREATE);
        return ZT5_ERR_DISPLAY_CREATE;
    }
    MEventReset(m_hRequestEvent);
    MEventReset(m_hDoneEvent);
    MThreadResume(m_hThread);
    if (m_pViewport) Handshake(OP_SETDC);
    if (!m_bOpenGLInited.load()) Handshake(OP_INIT);
    m_bOpenGLESRendererInited.store(1);
    return 0;
}

MRESULT CWinOpenGLDisplay::Uninit()
{
    std::lock_guard<std::recursive_mutex> hs(m_HandshakeLock);
    if (m_hThread) {
        if (OnRenderThread()) {
            // The thread can't stop itself and wait for its own end.
            MLogInfo("[%s]CWinOpenGLDisplay::Uninit called on the render thread", MLOG_TAG);
            return ZT5_ERR_INVALID_PARAM;
        }
        {
            RequestLock lock(m_hRequestLock);
            m_bOpenGLESRendererInited.store(0);
        }
        Handshake(OP_UNINIT);
        m_bExitThread.store(1);
        MThreadResume(m_hThread); // a thread never resumed must run to see the exit
        MEventSignal(m_hRequestEvent);
        MThreadWait(m_hThread, M_INFINITE);
        MThreadDestroy(m_hThread);
        m_hThread = nullptr;
    }
    MEventReset(m_hRequestEvent);
    MEventReset(m_hDoneEvent);
    {
        RequestLock lock(m_hRequestLock);
        mRequestOp.store(OP_NULL);
        m_bRequestPending = false;
    }
    m_bExitThread.store(0);
    m_bOpenGLInited.store(0);
    MLogInfo("[%s]CWinOpenGLDisplay::Uninit out", MLOG_TAG);
    return 0;
}

MRESULT CWinOpenGLDisplay::setRender(void *pRender)
{
    if (m_bOpenGLInited.load() && !pRender) return Uninit();
    return 0;
}

MRESULT CWinOpenGLDisplay::Reset()
{
    if (m_bOpenGLInited.load()) return Update();
    return 0;
}

MRESULT CWinOpenGLDisplay::Update()
{
    return Handshake(OP_UPDATE);
}

MRESULT CWinOpenGLDisplay::Show(MDWord bShow)
{
    {
        RequestLock lock(m_hRequestLock);
        m_bShow.store(bShow);
    }
    Wake();
    return 0;
}

void CWinOpenGLDisplay::Wake()
{
    // Flag first, then the signal: the thread resets the event before it
    // looks at the flag, so it either sees the flag or wakes from the wait.
    m_bRedraw.store(true);
    if (m_hRequestEvent) MEventSignal(m_hRequestEvent);
}

// ------------------------------------------------------------ posting

void CWinOpenGLDisplay::attachMailbox(FrameMailbox *pMailbox)
{
    RequestLock lock(m_hRequestLock);
    m_pMailbox.store(pMailbox);
    m_dwSerialBase = pMailbox ? pMailbox->Serial() : 0;
}

void CWinOpenGLDisplay::framePosted(bool bNewFrame)
{
    if (!m_bOpenGLInited.load(std::memory_order_acquire)) return;
    if (bNewFrame) {
        m_dwFramesPosted.fetch_add(1, std::memory_order_relaxed);
        m_qwLastFrameUseNs.store(MonotonicNs(), std::memory_order_relaxed);
    }
    {
        RequestLock lock(m_hRequestLock);
        if (!m_bRequestPending) mRequestOp.store(OP_BLIT);
    }
    Wake();
}

// A tightly packed planar frame of lWidth x lHeight, posted through the
// mailbox as the manager posts its frames.
MRESULT CWinOpenGLDisplay::render(unsigned char *pBuffer, MLong lWidth, MLong lHeight, MLong lDstWidth,
                                  MLong lDstHeight)
{
    (void)lDstWidth;
    (void)lDstHeight;
    FrameMailbox *pMailbox = m_pMailbox.load();
    if (!pBuffer || !pMailbox || lWidth <= 0 || lHeight <= 0) return 0;
    VideoFrame f;
    f.width = MDWord(lWidth);
    f.height = MDWord(lHeight);
    const size_t luma = size_t(lWidth) * size_t(lHeight);
    const size_t chroma = size_t(lWidth / 2) * size_t(lHeight / 2);
    f.plane[0] = {pBuffer, size_t(lWidth)};
    f.plane[1] = {pBuffer + luma, size_t(lWidth / 2)};
    f.plane[2] = {pBuffer + luma + chroma, size_t(lWidth / 2)};
    if (pMailbox->Post(f) == 0) framePosted(true);
    return 0;
}

MRESULT CWinOpenGLDisplay::render(MLong lSize)
{
    MLogDebug("[%s]CWinOpenGLDisplay::render size %d", MLOG_TAG, int(lSize));
    return 0;
}

// ------------------------------------------------------------- requests

MRESULT CWinOpenGLDisplay::Handshake(MLong op)
{
    if (OnRenderThread()) {
        // A host callback runs on the render thread (cruise report): serve
        // the request in place rather than wait for ourselves.
        Serve(op, nullptr);
        return 0;
    }
    std::lock_guard<std::recursive_mutex> hs(m_HandshakeLock);
    if (!m_hThread || !m_hRequestEvent || !m_hDoneEvent) return ZT5_ERR_ALREADY_INITED;
    {
        RequestLock lock(m_hRequestLock);
        mRequestOp.store(op);
        m_bRequestPending = true;
    }
    // The request lock is not held across the wait: a poster that holds the
    // frame mutex must be able to get through while the thread, which may
    // be waiting for that frame mutex, finishes its draw and then serves us.
    MEventSignal(m_hRequestEvent);
    MEventWait(m_hDoneEvent, M_INFINITE);
    MEventReset(m_hDoneEvent);
    return 0;
}

void CWinOpenGLDisplay::FinishRequest(MLong op)
{
    {
        RequestLock lock(m_hRequestLock);
        MLong next = op;
        switch (op) {
        case OP_INIT:
        case OP_UNINIT:
        case OP_UPDATE:
        case OP_SETDC:
        case OP_NOP:
            next = OP_NULL;
            break;
        case OP_CHANGEMODE:
        case OP_CAPTUREFRAME:
        case OP_PICTURE:
            next = m_bOpenGLESRendererInited.load() ? OP_BLIT : OP_NULL;
            break;
        default:
            break; // OP_BLIT or an unknown code stays
        }
        mRequestOp.store(next);
        m_bRequestPending = false;
    }
    // A request other than a snapshot changes what the window shows (a new
    // view, a new surface or viewport): draw it. A snapshot reads the
    // picture as it stands and changes nothing.
    if (op != OP_CAPTUREFRAME && op != OP_PICTURE) m_bRedraw.store(true);
    MEventSignal(m_hDoneEvent);
}

void CWinOpenGLDisplay::Serve(MLong op, bool *pbDeferDone)
{
    switch (op) {
    case OP_INIT:
        Internal_Init();
        break;
    case OP_UNINIT:
        Internal_Uninit();
        break;
    case OP_UPDATE:
        Internal_Update();
        break;
    case OP_SETDC:
        Internal_SetDC();
        break;
    case OP_CHANGEMODE:
        Internal_ChangeMode();
        break;
    case OP_CAPTUREFRAME:
        if (!pbDeferDone) {
            void *pBuffer = nullptr;
            MDWord w = 0, h = 0;
            MRESULT res = m_pRenderer->CaptureCurEffect(&pBuffer, &w, &h);
            StoreCapture(pBuffer, w, h, res);
        } else {
            *pbDeferDone = Internal_CaptureFrame();
        }
        break;
    case OP_PICTURE:
        if (!pbDeferDone) StorePicture(m_pRenderer->ReadPicture(m_pPicture));
        else *pbDeferDone = Internal_Picture();
        break;
    default:
        break;
    }
}

uintptr_t CWinOpenGLDisplay::Proc(void *pArg)
{
    return static_cast<CWinOpenGLDisplay *>(pArg)->Run();
}

uintptr_t CWinOpenGLDisplay::Run()
{
    m_dwRenderThreadId.store(MThreadCurrentId());
    // The thread draws only when something changed what the window shows
    // (m_bRedraw: a new frame, a request, a parameter, a gesture) or the
    // view said after its last draw that it still moves. Otherwise it waits
    // on m_hRequestEvent, which every poster and requester signals after
    // setting its flag or code; resetting it before looking at them means
    // no signal is lost between the look and the wait.
    while (!m_bExitThread.load()) {
        MEventReset(m_hRequestEvent);
        MLong op = mRequestOp.load();
        if (op != OP_NULL && op != OP_BLIT) {
            bool bDefer = false;
            Serve(op, &bDefer);
            if (bDefer) {
                // Draw on; the next turn of the loop finishes the capture.
                RequestLock lock(m_hRequestLock);
                mRequestOp.store(OP_BLIT);
                continue;
            }
            FinishRequest(op);
            continue;
        }
        const bool bCanDraw = op == OP_BLIT && m_bOpenGLESRendererInited.load();
        if (bCanDraw && (m_bRedraw.load() || m_bViewMoving || m_bCaptureDeferred || m_bPictureDeferred)) {
            if (m_bViewMoving && !m_bCaptureDeferred && !m_bPictureDeferred) {
                // Motion is counted in draws: while the view moves, draws
                // start kPacingNs apart. A new frame meanwhile waits for the
                // next step (the newest wins) rather than adding a step. On
                // slow GL the deadline has passed and the draws run back to
                // back.
                const uint64_t now = MonotonicNs();
                uint64_t due = m_qwLastDrawStartNs + kPacingNs;
                // Off-screen nobody sees a draw of motion alone, only the
                // pictures read of frames: while frames come (and pictures
                // of them are read), the view's motion waits for the next
                // frame and steps with it, one draw a frame, the same steps
                // for the same frames however fast they come. Once frames
                // stop (a paused stream), motion draws at its own pace again.
                if (!m_bRedraw.load() && m_pRenderer->DrawsOffScreen())
                    due = std::max(due, m_qwLastFrameUseNs.load(std::memory_order_relaxed) + kFrameHoldNs);
                if (now < due) {
                    MEventWait(m_hRequestEvent, MDWord((due - now + 999999) / 1000000));
                    continue;
                }
            }
            m_bRedraw.store(false);
            m_qwLastDrawStartNs = MonotonicNs();
            Internal_Blit();
            if (m_bCaptureDeferred) {
                // The capture armed by the request was read before the swap
                // of this draw; if no draw happened, read what there is.
                void *pBuffer = nullptr;
                MDWord w = 0, h = 0;
                MRESULT res = 0;
                if (!m_pRenderer->TakeArmedCapture(&pBuffer, &w, &h, &res)) {
                    m_pRenderer->DisarmCapture();
                    res = m_pRenderer->CaptureCurEffect(&pBuffer, &w, &h);
                }
                StoreCapture(pBuffer, w, h, res);
                m_bCaptureDeferred = false;
                FinishRequest(OP_CAPTUREFRAME);
            }
            if (m_bPictureDeferred) {
                MRESULT res = 0;
                if (!m_pRenderer->TakeArmedPicture(&res)) {
                    m_pRenderer->DisarmPicture();
                    res = m_pRenderer->ReadPicture(m_pPicture);
                }
                StorePicture(res);
                m_bPictureDeferred = false;
                FinishRequest(OP_PICTURE);
            }
            continue;
        }
        // Idle. A window resized or exposed while nothing else happens still
        // gets its picture: the window is looked at on each time-out, a few
        // times a second, at the cost of two queries and a poll.
        if (MEventWait(m_hRequestEvent, kIdleCheckMs) == 1 && bCanDraw && m_pRenderer->WindowNeedsRedraw())
            m_bRedraw.store(true);
    }
    MLogInfo("[%s] OPENGLD: Exiting thread", MLOG_TAG);
    m_dwRenderThreadId.store(0);
    return 0;
}

// ------------------------------------------------------- render thread

void CWinOpenGLDisplay::Internal_Blit()
{
    // A new window of the host's with the id of the destroyed one: the
    // manager sees no new window, so the surface is rebuilt here, as the
    // manager's rebuild for a new window would.
    if (m_pRenderer->WindowReplaced()) {
        m_pRenderer->Uninitialize();
        Internal_Init();
    }
    if (!m_bShow.load()) {
        MLogDebug("[%s]CWinOpenGLDisplay::Internal_Blit show is disabled", MLOG_TAG);
        return;
    }
    FrameMailbox *pMailbox = m_pMailbox.load();
    if (!pMailbox) return;
    VideoFrame frame;
    MDWord dwSerial = 0;
    bool bNew = false;
    // The newest frame; its slot stays this thread's until the next take, so
    // that the renderer may upload any part of it again.
    if (!pMailbox->Take(&frame, &dwSerial, &bNew)) return;
    m_pRenderer->Render(frame, bNew, bIsNewScaleMode.load());
    m_bViewMoving = m_pRenderer->WantsAnotherFrame();
    m_dwDrawCount.fetch_add(1, std::memory_order_relaxed);
    if (dwSerial != m_dwShownSerial && dwSerial > m_dwSerialBase) {
        m_dwShownSerial = dwSerial;
        m_dwFramesDrawn.fetch_add(1, std::memory_order_relaxed);
        m_dwNewestDrawn.store(dwSerial - m_dwSerialBase, std::memory_order_release);
    }
    if (CZT5Event *pDrawn = m_pDrawnEvent.load()) pDrawn->Signal();
    m_pRenderer->DeliverHostEvents();
}

MRESULT CWinOpenGLDisplay::Internal_Init()
{
    MRESULT res = ZT5_ERR_DISPLAY_CREATE;
    bool bCreateRefused = mDisplayContext.fnCreateCallback &&
                          mDisplayContext.fnCreateCallback(&mDisplayContext, mDisplayContext.pUserData) != 0;
    if (!bCreateRefused) {
        // The settings, applied whole to the renderer as it comes up: the
        // ones its views are made with first, then the view's own.
        const DisplaySettings settings = Settings();
        ApplySetting(settings, ZT5_CFG_DISPLAY_DISTORTION_PARAM);
        ApplySetting(settings, ZT5_CFG_DISPLAY_FE_PLATFORM);
        ApplySetting(settings, ZT5_CFG_DISPLAY_UICALLBACK);
        ApplySetting(settings, ZT5_CFG_COMMON_LENS_MODEL);

        MLong w, h;
        MDWord rotation;
        {
            RequestLock lock(m_hRequestLock);
            w = MLong(mFrameInfo.dwWidth);
            h = MLong(mFrameInfo.dwHeight);
            rotation = mFrameInfo.dwRotation;
        }
        res = m_pRenderer->Initialize(&mDisplayContext, w, h, rotation);
        // The plain view exists now and is current: it gets the overlay
        // settings before any other mode is made.
        settings.overlay.Replay([this](MDWord id, void *p) { m_pRenderer->setConfig(id, p); });

        // Mode first, then the switches that reach only the half sphere once
        // it is current, then the scale settings, so that they land on the
        // view of the wanted mode.
        ApplySetting(settings, ZT5_CFG_DISPLAY_UITOUCH_AUTOCURISE);
        ApplySetting(settings, ZT5_CFG_DISPLAY_AUTOCURISE_VELOCITY);
        m_pRenderer->SetFishEyeMode(settings.lFishEyeMode);
        m_pRenderer->SetDisBackGroundSts(settings.bCloud != 0, settings.bStar != 0);
        m_pRenderer->SetInitAnimalSts(settings.bAnimation != 0);
        ApplySetting(settings, ZT5_CFG_DISPLAY_OPENGL_FULLVIEW);
        ApplySetting(settings, ZT5_CFG_DISPLAY_SCALE_RATIO);
        ApplySetting(settings, ZT5_CFG_DISPLAY_MAX_SCALE);
        if (res == 0) {
            m_bOpenGLInited.store(1, std::memory_order_release);
            return 0;
        }
    }
    MLogInfo("[%s] OPENGLD: Init failed res:%d", MLOG_TAG, int(res));
    m_dwLastError.store(ZT5_ERR_DISPLAY_CREATE);
    return ZT5_ERR_DISPLAY_CREATE;
}

MRESULT CWinOpenGLDisplay::Internal_Uninit()
{
    m_pRenderer->Uninitialize();
    if (mDisplayContext.fnDestroyCallback) mDisplayContext.fnDestroyCallback(&mDisplayContext, mDisplayContext.pUserData);
    m_pViewport = nullptr;
    mDisplayContext.pViewport = nullptr;
    return 0;
}

MRESULT CWinOpenGLDisplay::Internal_Update()
{
    m_pRenderer->Uninitialize();
    if (mDisplayContext.fnUpdateBeforeCallback)
        mDisplayContext.fnUpdateBeforeCallback(&mDisplayContext, mDisplayContext.pUserData);
    if (mDisplayContext.fnUpdateAfterCallback)
        mDisplayContext.fnUpdateAfterCallback(&mDisplayContext, mDisplayContext.pUserData);
    m_bOpenGLInited.store(0);
    return 0;
}

MRESULT CWinOpenGLDisplay::Internal_SetDC()
{
    if (m_pViewport) {
        if (MDWord(m_lSrcWidth) != mDisplayContext.dwWidth || MDWord(m_lSrcHeight) != mDisplayContext.dwHeight) {
            MLogInfo("[%s]CWinOpenGLDisplay::Internal_SetDC DisplayContext changed dst %dx%d, src %dx%d", MLOG_TAG,
                     int(mDisplayContext.dwWidth), int(mDisplayContext.dwHeight), int(m_lSrcWidth),
                     int(m_lSrcHeight));
            m_lSrcWidth = MLong(mDisplayContext.dwWidth);
            m_lSrcHeight = MLong(mDisplayContext.dwHeight);
        }
        return 0;
    }
    MLogInfo("[%s]CWinOpenGLDisplay::Internal_SetDC tmpObj == MNull", MLOG_TAG);
    m_lSrcWidth = 0;
    m_lSrcHeight = 0;
    if (m_bOpenGLInited.load()) {
        m_bOpenGLInited.store(0);
        Internal_Uninit();
        m_pRenderer->Uninitialize();
    }
    return 0;
}

void CWinOpenGLDisplay::Internal_ChangeMode()
{
    const DisplaySettings settings = Settings();
    MLogInfo("[%s] CWinOpenGLDisplay::Internal_ChangeMode mode %d", MLOG_TAG, int(settings.lFishEyeMode));
    if (!m_bShow.load()) {
        MLogInfo("[%s] CWinOpenGLDisplay::Internal_ChangeMode show is disabled", MLOG_TAG);
        return;
    }
    m_pRenderer->SetFishEyeMode(settings.lFishEyeMode);
    m_pRenderer->SetDisBackGroundSts(settings.bCloud != 0, settings.bStar != 0);
    m_pRenderer->SetInitAnimalSts(settings.bAnimation != 0);
}

bool CWinOpenGLDisplay::Internal_CaptureFrame()
{
    MLogInfo("[%s] CWinOpenGLDisplay::Internal_CaptureFrame mode %d", MLOG_TAG,
             int(m_pRenderer->GetFishEyeMode()));
    if (!m_bShow.load()) {
        MLogInfo("[%s] CWinOpenGLDisplay::Internal_CaptureFrame show is disabled", MLOG_TAG);
        return false;
    }
    m_Snapshot.dwWidth = 0;
    m_Snapshot.dwHeight = 0;
    bool bWillDraw;
    {
        RequestLock lock(m_hRequestLock);
        bWillDraw = m_bOpenGLESRendererInited.load() && m_bOpenGLInited.load() && m_pMailbox.load() != nullptr;
    }
    if (!m_pRenderer->CanReadAfterSwap() && bWillDraw) {
        m_pRenderer->ArmCaptureBeforeSwap();
        m_bCaptureDeferred = true;
        return true;
    }
    void *pBuffer = nullptr;
    MDWord w = 0, h = 0;
    MRESULT res = m_pRenderer->CaptureCurEffect(&pBuffer, &w, &h);
    StoreCapture(pBuffer, w, h, res);
    return false;
}

bool CWinOpenGLDisplay::Internal_Picture()
{
    bool bWillDraw;
    {
        RequestLock lock(m_hRequestLock);
        bWillDraw = m_bOpenGLESRendererInited.load() && m_bOpenGLInited.load() && m_pMailbox.load() != nullptr;
    }
    if (!m_pRenderer->CanReadAfterSwap() && bWillDraw) {
        m_pRenderer->ArmPictureBeforeSwap(m_pPicture);
        m_bPictureDeferred = true;
        return true;
    }
    StorePicture(m_pRenderer->ReadPicture(m_pPicture));
    return false;
}

void CWinOpenGLDisplay::StorePicture(MRESULT res)
{
    // A host reading pictures is one that is about to post the next frame:
    // the motion of an off-screen view waits for it from now on.
    m_qwLastFrameUseNs.store(MonotonicNs(), std::memory_order_relaxed);
    // The ordinal of the frame the last draw showed: the picture is of it
    // (a draw and this read both run on this thread, one after the other).
    if (res == 0) m_pPicture->dwFrameOrdinal = m_dwNewestDrawn.load(std::memory_order_relaxed);
    m_lPictureResult = res;
}

void CWinOpenGLDisplay::StoreCapture(void *pBuffer, MDWord dwWidth, MDWord dwHeight, MRESULT res)
{
    m_Snapshot.dwWidth = dwWidth;
    m_Snapshot.dwHeight = dwHeight;
    m_Snapshot.dwCSType = MDWord(res);
    // A failed make-current leaves the old pixels where they were.
    if (res != ZT5_ERR_DISPLAY_CREATE) m_Snapshot.pBuffer = pBuffer;
}

// -------------------------------------------------------------- settings

MRESULT CWinOpenGLDisplay::setConfig(MDWord dwID, void *pValue)
{
    if (!m_pRenderer) return 0;
    SetConfigValue(dwID, pValue);
    // A gesture, a restore or a new viewport may change the picture or start
    // a motion: draw once more (a still view changes nothing by being drawn
    // again). The window handle changes nothing before the next init.
    if (dwID != ZT5_CFG_PLUGINMGR_HDL) Wake();
    return 0;
}

void CWinOpenGLDisplay::SetConfigValue(MDWord dwID, void *pValue)
{
    switch (dwID) {
    case ZT5_CFG_DISPLAY_UITOUCH_VELOCITY: {
        if (!pValue) break;
        const ZT5TouchPinch *pPinch = static_cast<const ZT5TouchPinch *>(pValue);
        float x = 0.0f, y = 0.0f;
        {
            RequestLock lock(m_hRequestLock);
            m_displayPinch.zoomRate = pPinch->zoomRate;
            m_displayPinch.pCenter = pPinch->pCenter;
            if (pPinch->pCenter) {
                x = pPinch->pCenter[0];
                y = pPinch->pCenter[1];
            }
        }
        m_pRenderer->OnTouchPinch(pPinch->zoomRate, x, y);
        break;
    }
    case ZT5_CFG_DISPLAY_UITOUCH_MOVE_VELOCITY: {
        if (!pValue) break;
        const float *p = static_cast<const float *>(pValue);
        m_pRenderer->OnTouchMoveVelocity(p[0], p[1]);
        break;
    }
    case ZT5_CFG_DISPLAY_UITOUCH_DOUBLETAP: {
        if (!pValue) break;
        const float *p = static_cast<const float *>(pValue);
        {
            RequestLock lock(m_hRequestLock);
            m_viewDoubleTap[0] = p[0];
            m_viewDoubleTap[1] = p[1];
        }
        m_pRenderer->OnDoubleClick(p[0], p[1]);
        break;
    }
    case ZT5_CFG_DISPLAY_UITOUCH_UP: {
        if (!pValue) break;
        const float *p = static_cast<const float *>(pValue);
        m_pRenderer->OnTouchUp(p[0], p[1]);
        break;
    }
    case ZT5_CFG_DISPLAY_UITOUCH_DOWN: {
        if (!pValue) break;
        const float *p = static_cast<const float *>(pValue);
        m_pRenderer->OnTouchDown(p[0], p[1]);
        break;
    }
    case ZT5_CFG_DISPLAY_UITOUCH_MOVED: {
        if (!pValue) break;
        const float *p = static_cast<const float *>(pValue);
        {
            RequestLock lock(m_hRequestLock);
            for (int i = 0; i < 4; i++) m_touchPoint[i] = p[i];
        }
        m_pRenderer->OnTouchMove(p[0], p[1], p[2], p[3]);
        break;
    }
    case ZT5_CFG_DISPLAY_FE_CURRENTSTATUS:
    case ZT5_CFG_DISPLAY_AIM_AT:
        m_pRenderer->setConfig(dwID, pValue);
        break;
    case ZT5_CFG_PLUGINMGR_HDL:
        m_pRenderer->setConfig(dwID, pValue);
        break;
    case ZT5_CFG_PLAYER_RECT: {
        if (!pValue) break;
        const ZT5Rect *r = static_cast<const ZT5Rect *>(pValue);
        RequestLock lock(m_hRequestLock);
        mFrameInfo.dwWidth = MDWord(r->right - r->left);
        mFrameInfo.dwHeight = MDWord(r->bottom - r->top);
        break;
    }
    case ZT5_CFG_DISPLAY_OPENGLES_DISPLAYCONTEXT:
        m_pViewport = pValue;
        mDisplayContext.pViewport = pValue;
        break;
    case ZT5_CFG_DISPLAY_OPENGL_SCALE_RECT:
        if (!pValue) break;
        MMemCpy(mDisplayContext.rectOpenglScale, pValue, sizeof(mDisplayContext.rectOpenglScale));
        break;
    case ZT5_CFG_DISPLAY_SCALE_MODE:
        if (pValue) bIsNewScaleMode.store(*static_cast<const MDWord *>(pValue));
        break;
    default:
        break;
    }
}

DisplaySettings CWinOpenGLDisplay::Settings()
{
    RequestLock lock(m_hRequestLock);
    return m_Settings;
}

void CWinOpenGLDisplay::applySettings(const DisplaySettings &settings, MDWord dwChanged)
{
    {
        RequestLock lock(m_hRequestLock);
        m_Settings = settings;
    }
    m_pDrawnEvent.store(settings.pDrawnEvent);
    if (!m_pRenderer) return;
    if (!m_bOpenGLInited.load()) {
        // Where the renderer draws is chosen before it comes up; a running
        // one keeps its target.
        MDWord size[2] = {settings.dwOffscreenSize[0], settings.dwOffscreenSize[1]};
        m_pRenderer->setConfig(ZT5_CFG_DISPLAY_OFFSCREEN_SIZE, size);
    }
    if (!dwChanged) return;
    if (dwChanged == ZT5_CFG_DISPLAY_FISHEYE_MODE) {
        // The view switches on the render thread before this returns.
        if (m_bOpenGLESRendererInited.load()) Handshake(OP_CHANGEMODE);
    } else {
        ApplySetting(settings, dwChanged);
    }
    // What the window shows may change, or a motion start: draw once more
    // (a still view changes nothing by being drawn again).
    if (dwChanged != ZT5_CFG_DISPLAY_UICALLBACK && dwChanged != ZT5_CFG_DISPLAY_FE_PLATFORM) Wake();
}

void CWinOpenGLDisplay::ApplySetting(const DisplaySettings &s, MDWord dwID)
{
    switch (dwID) {
    case ZT5_CFG_DISPLAY_UITOUCH_AUTOCURISE: m_pRenderer->SetFishEyeCruiseState(s.bCruise != 0 ? 1 : 0); break;
    case ZT5_CFG_DISPLAY_AUTOCURISE_VELOCITY: m_pRenderer->SetFishEyeCruiseVelocity(s.fCruiseVelocity); break;
    case ZT5_CFG_DISPLAY_FE_PLATFORM: {
        MDWord v = s.dwFEPlatform;
        m_pRenderer->setConfig(dwID, &v);
        break;
    }
    case ZT5_CFG_DISPLAY_UICALLBACK: m_pRenderer->setConfig(dwID, s.pCallback); break;
    case ZT5_CFG_DISPLAY_DISTORTION_PARAM: m_pRenderer->setConfig(dwID, s.pDistortion); break;
    case ZT5_CFG_COMMON_LENS_MODEL: {
        ZT5LensModel m = s.lensModel;
        m_pRenderer->setConfig(dwID, &m);
        break;
    }
    case ZT5_CFG_DISPLAY_OPENGL_FULLVIEW:
    case ZT5_CFG_DISPLAY_SCALE_RATIO:
    case ZT5_CFG_DISPLAY_MAX_SCALE: {
        MDWord v = dwID == ZT5_CFG_DISPLAY_OPENGL_FULLVIEW ? s.bFullView
                   : dwID == ZT5_CFG_DISPLAY_SCALE_RATIO  ? s.dwScaleRatio
                                                          : s.dwMaxScale;
        m_pRenderer->setConfig(dwID, &v);
        break;
    }
    default:
        // Overlays: the value's payload, read by the views during the call.
        if (COverlaySettings::IsOverlayId(dwID))
            s.overlay.Forward(dwID, [this](MDWord id, void *p) { m_pRenderer->setConfig(id, p); });
        // The switches of the half sphere are taken at the next view switch
        // or start; the rest is kept only.
        break;
    }
}

MRESULT CWinOpenGLDisplay::getConfig(MDWord dwID, void *pValue)
{
    if (!pValue) return ZT5_ERR_INVALID_PARAM;
    switch (dwID) {
    case ZT5_CFG_DISPLAY_RENDERER_INITED:
        if (m_bOpenGLInited.load()) {
            *static_cast<MDWord *>(pValue) = 1;
            return 0;
        }
        *static_cast<MDWord *>(pValue) = 0;
        return ZT5_ERR_ALREADY_INITED;
    case ZT5_CFG_DISPLAY_RENDERER_ERROR:
        *static_cast<MDWord *>(pValue) = m_dwLastError.load();
        return 0;
    case ZT5_CFG_DISPLAY_RENDER_STATS: {
        ZT5RenderStats stats = {};
        stats.dwDraws = m_dwDrawCount.load(std::memory_order_relaxed);
        stats.dwFramesPosted = m_dwFramesPosted.load(std::memory_order_relaxed);
        stats.dwFramesDrawn = m_dwFramesDrawn.load(std::memory_order_relaxed);
        stats.dwNewestDrawn = m_dwNewestDrawn.load(std::memory_order_acquire);
        MMemCpy(pValue, &stats, sizeof(stats));
        return 0;
    }
    case ZT5_CFG_DISPLAY_SCALE_RATIO:
    case ZT5_CFG_DISPLAY_MAX_SCALE:
    case ZT5_CFG_DISPLAY_MAP_POINT:
        if (m_pRenderer) m_pRenderer->GetConfig(dwID, pValue);
        return 0;
    case ZT5_CFG_DISPLAY_PICTURE: {
        if (!m_pRenderer) return ZT5_ERR_NOT_READY;
        std::lock_guard<std::recursive_mutex> hs(m_HandshakeLock);
        if (!m_hThread) return ZT5_ERR_NOT_READY;
        m_pPicture = static_cast<ZT5Picture *>(pValue);
        m_lPictureResult = ZT5_ERR_NOT_READY;
        Handshake(OP_PICTURE);
        m_pPicture = nullptr;
        return m_lPictureResult;
    }
    case ZT5_CFG_DISPLAY_GL_SNAPSHOT:
        if (!m_pRenderer) return ZT5_ERR_ALREADY_INITED;
        Handshake(OP_CAPTUREFRAME);
        *static_cast<ZT5Snapshot **>(pValue) = &m_Snapshot;
        return 0;
    case ZT5_CFG_DISPLAY_GET_FE_CURRENTSTATUS:
        if (!m_pRenderer) return ZT5_ERR_ALREADY_INITED;
        return m_pRenderer->GetConfig(dwID, pValue);
    default:
        return ZT5_ERR_ALREADY_INITED;
    }
}
