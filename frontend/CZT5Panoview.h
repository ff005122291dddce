// The display object a host drives through IZT5Display: remembers every
// parameter, owns two display handles of the manager, keeps the geometry of
// the picture in the window and hands each frame to MDisplayMgrBlit.
#ifndef PANOVIEW_CZT5PANOVIEW_H
#define PANOVIEW_CZT5PANOVIEW_H

#include <atomic>

#include "CMBenchmark.h"
#include "MDisplayMgr.h"
#include "MRuntime.h"
#include "OverlaySettings.h"
#include "ZT5Plugin.h"

// Largest frame side and window coordinate the geometry accepts. Beyond
// these the 32-bit arithmetic of the fitting could overflow; such input is
// refused with ZT5_ERR_INVALID_PARAM.
#define PANOVIEW_MAX_FRAME_SIDE 16384
#define PANOVIEW_MAX_RECT_SIDE 65536
#define PANOVIEW_MAX_RECT_COORD (1 << 24)

class CZT5Panoview : public IZT5Display {
public:
    CZT5Panoview();
    ~CZT5Panoview() override;

    int32_t Init(const ZT5DisplayParam *pDisplayParam) override;
    int32_t Uninit() override;
    int32_t DrawFrame(void *pBuffer, const ZT5FrameInfo *pFrameInfo, uint32_t bSkipRender) override;
    int32_t ShowDisplayOverlay(uint32_t bShow) override;
    int32_t SetDisplayParam(uint32_t dwParamID, void *pValue) override;
    int32_t GetDisplayParam(uint32_t dwParamID, void *pValue) override;

private:
    CZT5Panoview(const CZT5Panoview &) = delete;
    CZT5Panoview &operator=(const CZT5Panoview &) = delete;

    // Lifecycle and frame road.
    MRESULT CreateDisplayHandle();
    void DeleteDisplayHandles();
    MRESULT RefreshDisplay();
    void ZTBlitInitParam();
    void EraseBG();
    MRESULT DrawDeviceDisplayBufferUsingZTBlit(void *pBuffer, MDWord bSkipRender);
    MRESULT SwtichDisplayHandle(MDWord bHigh);
    bool DescribeFrame(void *pBuffer);
    MRESULT ApplyCoverCrop(ZT5Rect &rtPicture);
    FrameBox LensBoxIn(const ZT5Rect &rtPicture, bool bRectangle) const;
    void SetLensBoxes(const ZT5Rect &rtPicture);
    // Hands the settings value to the current handle; dwChanged names the
    // parameter that was just set (0 for none).
    void PostSettings(MDWord dwChanged);
    void RedescribeKeptFrame();
    void SendMgrFrameInfo(const ZT5FrameInfo &info);

    // Geometry.
    MRESULT CheckDisplayRects();
    void CalcShowRect();
    MRESULT CalcDisplayGeometry(const ZT5FrameInfo *pFrameInfo);
    MRESULT CalcZoomState();
    MRESULT UpdateDisplayParam();
    MRESULT QueryDisplayAlign(MDisplayHandle h, MDWord *pAlignX, MDWord *pAlignY);
    void ClearGeometry();

    // Parameters.
    MRESULT SetZoom(MDWord dwValue);
    MRESULT SetDisplayRecord(const ZT5DisplayParam *pParam);
    MRESULT SetOverlay(MDWord id, const void *pValue);
    // A display without a window: its rectangles are the off-screen picture.
    bool OffScreen() const { return m_DisplayParam.hWnd == 0 && m_dwOffscreenDrawn[0] != 0; }
    void ApplyOffscreenRects();
    MRESULT ReadPicture(ZT5Picture *pPicture);
    void Forward(MDWord id, void *pValue, MDWord size);
    MDWord PresentZoom() const;

    // Display record and geometry.
    ZT5DisplayParam m_DisplayParam;
    ZT5Rect m_rtShow;
    MLong m_lResampleW, m_lResampleH, m_lTotalRotation;
    ZT5Rect m_rtDstShow;
    ZT5Rect m_rtShowRegion;
    MDWord m_dwOutputCS;
    ZT5Viewport m_Viewport;
    MDisplayCaps m_DisplayCaps;

    // Frame state.
    ZT5FrameInfo m_FrameInfo;
    ZT5LastFrame m_LastFrame;
    // The frame of the current call, described once; its planes point into
    // the host's memory for the length of one DrawFrame.
    VideoFrame m_Frame;
    ZT5SharedMemAgent *m_pSharedMemAgent;
    uint8_t *m_AgentPlanes[3]; // the agent's planes last taken (both buffers busy: shown again)
    PFN_ZT5_FRAME_CALLBACK m_pfnFrameCallback;
    void *m_pFrameCallbackData;

    // What the manager was last told about the frame (in fit mode 5 the
    // crop's size).
    ZT5FrameInfo m_MgrFrameInfo;
    MDWord m_dwFEStartX, m_dwFEStartY, m_dwFEWidth, m_dwFEHeight; // the current view's lens box
    ZT5Rect m_rtLensPicture; // the picture the lens boxes were last cut in

    // Handles and state.
    MDisplayHandle m_hDisplayHigh;
    MDisplayHandle m_hDisplayLow;
    MDisplayHandle m_hCurDisplay;
    MDWord m_bInited;
    MDWord m_bShow;
    MDWord m_bParamChanged;
    std::atomic<MDWord> m_bSwitchPending;
    MDWord m_dwForcedDisplay;
    MDWord m_bHighNeedsInit, m_bLowNeedsInit;
    MWindowHandle m_hFirstWnd;
    MDWord m_bWindowChanged;
    MDWord m_bFullScreen;

    // Settings.
    MDWord m_dwFitMode;
    MLong m_lUserWidth, m_lUserHeight;
    MDWord m_dwUserRotation;
    MDWord m_dwOrientationMode;
    MDWord m_dwZoom, m_dwZoomDen, m_dwZoomNum;
    MDWord m_dwResizeAlg;
    MDWord m_bClipToViewport;
    MLong m_AdjustValues[3];
    MDWord m_dwReserved15;
    // The settings that go down as one value (the view, cruise, scale,
    // callback, the host's buffer road, the decoder's alignment, ...).
    DisplaySettings m_Settings;
    // Gestures the host gave as records: kept, never replayed.
    void *m_pTouchVelocity;
    ZT5TouchPinch m_displayPinch;
    void *m_pDoubleTap;
    void *m_pFEStatusDataDict; // the last state to restore
    MDWord m_bIsMultiDisplay;
    MDWord m_dwYuvMatrix; // ZT5_CFG_DISPLAY_YUV_MATRIX word
    MDWord m_dwOffscreenSize[2]; // ZT5_CFG_DISPLAY_OFFSCREEN_SIZE; 0, 0: none
    MDWord m_dwOffscreenDrawn[2]; // the size Init took for a display without a window; 0, 0: it has one
    // Signalled by the render thread after each draw; a reader of a picture
    // waits on it for the frame it asked for, with no lock held.
    CZT5Event m_DrawnEvent;
    ZT5CodecHint m_CodecHint;
    ZT5FishEyeParam m_FishEyeParam;
    ZT5Rect m_rectOpenglScale;
    void *m_pParentObject;

    // Owned parts.
    CMBenchmark m_Benchmark;
    CZT5Event m_DrawFrameEvent;
    CZT5Mutex m_DataMutex;
    CZT5Mutex m_SwitchMutex;
};

#endif
