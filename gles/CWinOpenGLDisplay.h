// The render object: owns the EGL renderer and the render thread, on which
// all EGL and GL work runs. Other threads post frames (without waiting) and
// get other work done there through a request handshake.
#ifndef PANOVIEW_CWINOPENGLDISPLAY_H
#define PANOVIEW_CWINOPENGLDISPLAY_H

#include <atomic>
#include <mutex>

#include "CWinOpenGLESRenderer.h"
#include "FrameMailbox.h"
#include "MDisplayMgr.h"
#include "OverlaySettings.h"

enum {
    OP_NULL = 0,
    OP_INIT = 1,
    OP_UNINIT = 2,
    OP_UPDATE = 3,
    OP_BLIT = 4,
    OP_SETDC = 5,
    OP_CHANGEMODE = 6,
    OP_CAPTUREFRAME = 7,
    OP_NOP = 8,
    OP_PICTURE = 9,
};

struct MGLDisplayPinch {
    float zoomRate;
    float *pCenter; // two floats
};

class CWinOpenGLDisplay : public IZT5VideoRenderer {
public:
    CWinOpenGLDisplay();
    ~CWinOpenGLDisplay() override;

    MRESULT setConfig(MDWord dwID, void *pValue) override;
    MRESULT getConfig(MDWord dwID, void *pValue) override;
    MRESULT render(unsigned char *pBuffer, MLong lWidth, MLong lHeight, MLong lDstWidth, MLong lDstHeight) override;
    MRESULT render(MLong lSize) override;
    MRESULT init(MDWord dwReserved, char *pText, MDWord dwCSType, MWindowHandle hContext, MLong lSrcWidth,
                 MLong lSrcHeight, MLong lWidth, MLong lHeight, MDWord bContinueBuf, MDWord dwRotation) override;
    MRESULT setRender(void *pRender) override;
    MRESULT Reset() override;
    void attachMailbox(FrameMailbox *pMailbox) override;
    void framePosted(bool bNewFrame) override;
    void applySettings(const DisplaySettings &settings, MDWord dwChanged) override;

    MRESULT DoInit();
    MRESULT Uninit();
    MRESULT Update();
    MRESULT Show(MDWord bShow);

    // Number of draws the render thread has finished (swap included); the
    // host reads it with ZT5_CFG_DISPLAY_RENDER_STATS.
    MDWord GetDrawCount() const { return m_dwDrawCount.load(std::memory_order_relaxed); }
    CWinOpenGLESRenderer *GetRenderer() { return m_pRenderer; }

private:
    CWinOpenGLDisplay(const CWinOpenGLDisplay &) = delete;
    CWinOpenGLDisplay &operator=(const CWinOpenGLDisplay &) = delete;

    static uintptr_t Proc(void *pArg);
    uintptr_t Run();
    MRESULT Handshake(MLong op);
    // Something changed what the window shows: draw again.
    void Wake();
    void SetConfigValue(MDWord dwID, void *pValue);
    // Puts one setting of the value into the renderer as the parameter dwID
    // would (the view, cruise, scale, callback, ...).
    void ApplySetting(const DisplaySettings &s, MDWord dwID);
    // The settings kept, copied under the request lock.
    DisplaySettings Settings();
    void Serve(MLong op, bool *pbDeferDone);
    void FinishRequest(MLong op);
    bool OnRenderThread() const;

    MRESULT Internal_Init();
    MRESULT Internal_Uninit();
    MRESULT Internal_Update();
    void Internal_Blit();
    MRESULT Internal_SetDC();
    void Internal_ChangeMode();
    // Returns true when the capture will be finished by the next draw.
    bool Internal_CaptureFrame();
    void StoreCapture(void *pBuffer, MDWord dwWidth, MDWord dwHeight, MRESULT res);
    // As Internal_CaptureFrame, for the picture of m_pPicture.
    bool Internal_Picture();
    void StorePicture(MRESULT res);

    MHandle m_hThread = nullptr;
    MHandle m_hRequestEvent = nullptr;
    MHandle m_hRequestLock = nullptr;
    std::atomic<MDWord> m_bExitThread{0};
    MHandle m_hDoneEvent = nullptr;
    MLong m_lSrcWidth = 0;
    MLong m_lSrcHeight = 0;
    MGLDisplayContext mDisplayContext = {};
    ZT5FrameInfo mFrameInfo = {};
    void *m_pViewport = nullptr;
    std::atomic<MDWord> m_bShow{1};
    std::atomic<MDWord> m_bOpenGLInited{0};
    std::atomic<MLong> mRequestOp{OP_NULL};
    CWinOpenGLESRenderer *m_pRenderer = nullptr;
    std::atomic<MDWord> m_dwLastError{0};
    std::atomic<MDWord> bIsNewScaleMode{0};
    unsigned long m_dwParentThreadId = 0;
    MGLDisplayPinch m_displayPinch = {};
    float m_viewDoubleTap[2] = {0.0f, 0.0f};
    float m_touchPoint[4] = {0.0f, 0.0f, 0.0f, 0.0f};
    std::atomic<MDWord> m_bOpenGLESRendererInited{0};
    std::atomic<FrameMailbox *> m_pMailbox{nullptr};
    // Render thread: the mailbox's serial before this object's first frame,
    // and the serial the last draw showed; their difference is the ordinal
    // of the frame on screen among those posted to this object.
    MDWord m_dwSerialBase = 0;
    MDWord m_dwShownSerial = 0;
    ZT5Snapshot m_Snapshot = {};
    // Under m_hRequestLock: the display's settings as the manager last gave
    // them; the render thread copies them when it brings a renderer up or
    // switches the view.
    DisplaySettings m_Settings;

    // Under m_hRequestLock: a requester's code is in mRequestOp and not yet
    // served. A frame posted meanwhile stores its planes but leaves the code
    // alone, and the thread decides after the service whether to draw on.
    bool m_bRequestPending = false;
    // Requesters one at a time; held across the wait for the thread, but
    // never taken by a poster or by the render thread.
    std::recursive_mutex m_HandshakeLock;
    std::atomic<unsigned long> m_dwRenderThreadId{0};
    bool m_bCaptureDeferred = false; // render thread only
    // The host's picture record of the request under way: written by the
    // requester under m_HandshakeLock before the handshake, read and
    // answered by the render thread until it signals done, which orders
    // both ways.
    ZT5Picture *m_pPicture = nullptr;
    MRESULT m_lPictureResult = 0;
    bool m_bPictureDeferred = false; // render thread only
    // Signalled after every draw (the front end's event, which outlives
    // this object): a reader of a picture waits on it for its frame.
    std::atomic<CZT5Event *> m_pDrawnEvent{nullptr};
    std::atomic<MDWord> m_dwDrawCount{0};
    std::atomic<MDWord> m_dwFramesPosted{0};
    std::atomic<MDWord> m_dwFramesDrawn{0};
    std::atomic<MDWord> m_dwNewestDrawn{0}; // post serial the last draw showed

    // Draw on demand. m_bRedraw is set by any thread (Wake, a finished
    // request) and cleared by the render thread before it draws.
    std::atomic<bool> m_bRedraw{false};
    // Render thread only: the view asked for another frame after its last
    // draw, and when that draw started.
    bool m_bViewMoving = false;
    uint64_t m_qwLastDrawStartNs = 0;
    static constexpr uint64_t kPacingNs = 10000000; // one draw per 10 ms while moving
    // Off-screen, a view that moves waits this long after the newest frame
    // (or the newest picture read of one) for the next frame before it
    // draws for motion alone.
    static constexpr uint64_t kFrameHoldNs = 1000000000;
    // When a frame was last posted or a picture last read (monotonic ns):
    // written by posters and by the render thread, read by the render
    // thread; a stale read only shifts one motion draw.
    std::atomic<uint64_t> m_qwLastFrameUseNs{0};
    static constexpr MDWord kIdleCheckMs = 200;      // surface size check while idle
};

#endif
