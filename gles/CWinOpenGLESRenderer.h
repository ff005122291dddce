// The EGL renderer of one display: EGL objects, the three plane textures and
// the table of views, one per FishEyeMode. Drawing runs on the render thread;
// settings and gestures may come from any thread.
#ifndef PANOVIEW_CWINOPENGLESRENDERER_H
#define PANOVIEW_CWINOPENGLESRENDERER_H

#include <EGL/egl.h>
#include <GLES2/gl2.h>

#include <atomic>
#include <mutex>
#include <thread>

#include "EglObjects.h"
#include "FaceOverlay.h"
#include "FrameTextures.h"
#include "GlObjects.h"
#include "HostEventCourier.h"
#include "GlesRenderEffect.h"
#include "WindowWatch.h"
#include "MDisplayMgr.h"
#include "PictureConverter.h"
#include "RenderTarget.h"
#include "MRuntime.h"
#include "ZT5Records.h"

#define GL_RENDER_MODE_COUNT 11

// Serialises every section that makes an EGL context current; one for the
// whole process, since all displays share the default EGL display.
extern CZT5Mutex g_EglMutex;

struct MGLDisplayContext;
typedef MRESULT (*PFN_MGLDisplayCallback)(MGLDisplayContext *pContext, void *pUserData);

// What the render object hands the renderer by address. The callbacks are
// hooks for a platform that needs its surface made for it; nothing in this
// library sets them and each is called only when present.
struct MGLDisplayContext {
    MWindowHandle hWindow;
    void *pViewport;
    PFN_MGLDisplayCallback fnCreateCallback;
    PFN_MGLDisplayCallback fnDestroyCallback;
    PFN_MGLDisplayCallback fnUpdateBeforeCallback;
    PFN_MGLDisplayCallback fnUpdateAfterCallback;
    void *pUserData;
    MDWord dwWidth;
    MDWord dwHeight;
    MLong rectOpenglScale[4]; // x, y, width, height
};

class CWinOpenGLESRenderer {
public:
    CWinOpenGLESRenderer();
    virtual ~CWinOpenGLESRenderer();

    // Render thread.
    MRESULT Initialize(MGLDisplayContext *pDisplayContext, MLong lWidth, MLong lHeight, MDWord dwRotation);
    // One draw of `frame`. Its pixels go up only when bNewPixels says they
    // are valid and not drawn yet (or the textures are new); a redraw for
    // motion alone, or a new cut of a still frame, reuses the textures. The
    // part of the frame the view looks at follows the view's traits.
    void Render(const VideoFrame &frame, bool bNewPixels, MDWord bIsNewScaleMode);
    // After a Render: whether the next draw would show something else even
    // without a new frame (the view still moves, or inertia runs).
    bool WantsAnotherFrame() const { return m_bWantsAnotherFrame; }
    // Whether the window needs the picture drawn again by itself: its
    // surface has another size than the last draw used, or it was exposed.
    // Cheap and never blocks; the render thread asks it while idle.
    bool WindowNeedsRedraw();
    // Render thread: the window was destroyed and another took its id; the
    // surface must be made anew.
    bool WindowReplaced() { return m_WindowWatch.Replaced(); }
    // Render thread: the target is a framebuffer, which nobody watches.
    bool DrawsOffScreen() const { return m_Target.OffScreen(); }
    void SetFishEyeMode(MLong nFishEyeMode);
    // After a Render, with no lock held: hands the courier a changed cruise
    // state and an edge the view met while it drew, for the host.
    void DeliverHostEvents();
    void Uninitialize();
    // Reads the surface as the last draw left it (RGBA, bottom row first).
    // Result ZT5_SNAPSHOT_RGBA, -1 for no memory, ZT5_ERR_DISPLAY_CREATE when
    // the context can't be made current.
    MRESULT CaptureCurEffect(void **ppBuffer, MDWord *pWidth, MDWord *pHeight);

    // Snapshot support. When the surface keeps its content across a swap a
    // capture reads it at once; otherwise it must be read before the swap of
    // a draw: ArmCaptureBeforeSwap makes the next Render do that.
    bool CanReadAfterSwap() const { return m_bSwapPreserved; }
    void ArmCaptureBeforeSwap() { m_bCaptureArmed = true; }
    // True once a capture armed above has run; result and size through the
    // pointers, as CaptureCurEffect. Disarms.
    bool TakeArmedCapture(void **ppBuffer, MDWord *pWidth, MDWord *pHeight, MRESULT *pResult);
    void DisarmCapture() { m_bCaptureArmed = false; }

    // The picture of the last draw into the host's record (its buffer, size
    // and layout), converted on the GPU; fills the record's size and
    // dimensions. 0; ZT5_ERR_INVALID_PARAM for a buffer too small or
    // another layout (the record then says what is needed, the buffer is
    // untouched); ZT5_ERR_NOT_READY before the first draw;
    // ZT5_ERR_DISPLAY_CREATE when the context can't be made current.
    MRESULT ReadPicture(ZT5Picture *pPicture);
    // As the capture above: a surface that doesn't keep its content across
    // the swap is read by the next Render, before its swap.
    void ArmPictureBeforeSwap(ZT5Picture *pPicture) { m_pPictureArmed = pPicture; }
    // True once a picture armed above was read; its result through pResult.
    bool TakeArmedPicture(MRESULT *pResult);
    void DisarmPicture() { m_pPictureArmed = nullptr; }

    // Any thread.
    MRESULT setConfig(MDWord dwID, void *pValue);
    MRESULT GetConfig(MDWord dwID, void *pValue);
    void SetFishEyeCruiseState(MLong state);
    void SetFishEyeCruiseVelocity(float velocity);
    void OnTouchDown(float x, float y);
    void OnTouchUp(float x, float y);
    void OnTouchMove(float px, float py, float x, float y);
    void OnTouchPinch(float fZoomRate, float x, float y);
    void OnDoubleClick(float x, float y);
    void OnTouchMoveVelocity(float nVelX, float nVelY);
    void SetDisBackGroundSts(MDWord bCloud, MDWord bStar);
    void SetInitAnimalSts(MDWord bAnimal);

    MDWord GetFishEyeMode() const { return m_FishEyeMode.load(std::memory_order_relaxed); }

    // Where the render thread's time goes, summed over all draws since the
    // start, in nanoseconds: plane upload, the view's draw calls, the swap.
    // With bFinish set each phase ends with glFinish, so that work the
    // driver defers is charged to the phase that asked for it (measurement
    // only: it stalls the pipeline).
    struct Timings {
        uint64_t draws, uploadNs, effectNs, swapNs;
    };
    Timings GetTimings() const;
    void SetFinishEachPhase(bool bFinish) { m_bFinishEachPhase.store(bFinish, std::memory_order_relaxed); }

private:
    CWinOpenGLESRenderer(const CWinOpenGLESRenderer &) = delete;
    CWinOpenGLESRenderer &operator=(const CWinOpenGLESRenderer &) = delete;

    void CreateEffect(MDWord mode);
    // Makes the context current on this thread unless it is already.
    bool MakeCurrent();
    void ReportCruiseState(MLong state);
    // To the host at once, on the calling (gesture) thread, no lock held.
    void SendHostEvent(MDWord dwParamId, MDWord dwValue);
    MRESULT ReadSurface(void **ppBuffer, MDWord *pWidth, MDWord *pHeight); // GL part of a capture
    MRESULT ReadPictureLocked(ZT5Picture *pPicture);                      // GL part of a picture
    MRESULT InitializeLocked(MGLDisplayContext *pDisplayContext, MLong lWidth, MLong lHeight);

    // Gesture entry points run on the host's thread while the render thread
    // draws. They call the current view under m_EffectLock, which keeps the
    // view alive: only Uninitialize, which deletes views, takes it besides
    // them. A mode switch doesn't, so a host callback reached from inside a
    // gesture may switch the mode without waiting on itself; the render
    // thread never takes it.
    template <typename F> void WithCurrentEffect(F f);
    // m_EffectLock as WithCurrentEffect takes it: held unless on the render thread.
    std::unique_lock<std::recursive_mutex> LockViews();

    EGLDisplay m_eglDisplay = EGL_NO_DISPLAY;
    RenderTarget m_Target; // the window's surface, or a framebuffer off-screen
    // ZT5_CFG_DISPLAY_OFFSCREEN_SIZE as the render object passed it on: set
    // by the host's thread before Initialize, read by Initialize.
    std::atomic<MDWord> m_dwOffscreenWidth{0};
    std::atomic<MDWord> m_dwOffscreenHeight{0};
    EglContext m_eglContext;
    WindowWatch m_WindowWatch; // render thread
    EGLConfig m_eglConfig = nullptr;
    MGLDisplayContext *m_pDisplayContext = nullptr;
    // Render thread: the surface's size as last asked, and how many more
    // draws ask again (a resize was seen).
    EGLint m_lSurfaceWidth = 0;
    EGLint m_lSurfaceHeight = 0;
    int m_nSizeQueries = 0;
    static constexpr int kSizeQueriesAfterResize = 3;
    MLong m_Width = 0;
    MLong m_Height = 0;
    MLong m_dwDisplayWidth = 0;
    MLong m_dwDisplayHeight = 0;
    FrameTextures m_FrameTextures; // the frame on screen, in its layout's textures
    FrameBox m_UploadedRegion;     // render thread: the part of the frame the textures hold
    bool m_bRowsAtAnyPitch = false; // render thread: a part of a frame goes up without a copy
    MDWord m_dwPictureColour = 0;  // render thread: the frame's colours as a ZT5_CFG_DISPLAY_YUV_MATRIX word
    bool m_bWantsAnotherFrame = false;     // render thread only
    bool m_bDrawn = false;                 // a view has drawn on this surface
    MLong m_lCruiseSeen = -1;              // render thread: the last draw's cruise state
    MDWord m_dwEdgeSeen = 0;               // render thread: edges met while drawing
    std::atomic<MDWord> m_FishEyeMode{0};
    // Slots are read by host threads while the render thread fills them.
    std::atomic<GlesRenderEffect *> m_RenderEffect[GL_RENDER_MODE_COUNT] = {};
    std::atomic<float> m_fLastX{0.0f};
    std::atomic<float> m_fLastY{0.0f};
    std::atomic<float> m_fVelX{0.0f};
    std::atomic<float> m_fVelY{0.0f};
    std::atomic<unsigned char> m_bVelocityActive{0};
    CZT5Mutex *m_pMutex = nullptr;
    void *m_pCaptureBuffer = nullptr;
    std::atomic<MDWord> m_dwFEPlatform{0};
    std::atomic<MDWord> m_bOpenglFullView{0};
    std::atomic<MDWord> m_CruiseState{0};
    std::atomic<float> m_fAutoCuriseVelocity{1.0f};
    std::atomic<ZT5UICallbackRecord *> m_pUICallback{nullptr};
    HostEventCourier m_Courier; // the render thread's events to the host
    MLong m_lastCuriseState = -2;
    FECurrentStatusData m_FECurrentStatusData = {};
    float m_fScaleRatio = 1.0f;
    float m_fMaxScale = 4.0f;
    std::atomic<ZT5DistortionParam *> m_pDistortionParam{nullptr};
    std::atomic<MWindowHandle> m_hNativeWindow{0};
    std::atomic<MDWord> m_dwBackColor{0};
    std::atomic<bool> m_bHaveBackColor{false};
    // ZT5_CFG_COMMON_LENS_MODEL: written by setConfig on the host's thread
    // under m_LensLock, copied by the draw on the render thread under it.
    std::mutex m_LensLock;
    ZT5LensModel m_LensModel = {};
    // The faces over the fisheye views: the rectangles their programs draw
    // (its marks) and the labels beside them. Settings from any thread;
    // the marks and labels on the render thread, which also releases it.
    FaceOverlay m_FaceOverlay;

    std::atomic<uint64_t> m_qwDraws{0};
    std::atomic<uint64_t> m_qwUploadNs{0};
    std::atomic<uint64_t> m_qwEffectNs{0};
    std::atomic<uint64_t> m_qwSwapNs{0};
    std::atomic<bool> m_bFinishEachPhase{false};

    std::recursive_mutex m_EffectLock;
    // The thread that draws and deletes views; it needs no lock to call one.
    std::atomic<std::thread::id> m_RenderThread{};
    bool m_bSwapPreserved = false;
    bool m_bCaptureArmed = false;
    bool m_bCaptureTaken = false;
    MRESULT m_lCaptureResult = 0;
    MDWord m_dwCaptureWidth = 0;
    MDWord m_dwCaptureHeight = 0;
    // Render thread only, as the capture's fields.
    PictureConverter m_PictureConverter;
    ZT5Picture *m_pPictureArmed = nullptr;
    bool m_bPictureTaken = false;
    MRESULT m_lPictureResult = 0;
};

#endif
