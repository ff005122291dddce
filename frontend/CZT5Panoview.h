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

// The frame as the front end sees it: three planes into the host's memory.
struct InputYuvBuf {
    unsigned char *pPlane[3];
    MLong lWidth;
    MLong lHeight;
    MLong lStride;
    MLong lUVStride;
};

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
    MRESULT DrawDeviceDisplayBufferUsingZTBlit(MDWord bSkipRender);
    MRESULT SwtichDisplayHandle(MDWord bHigh);
    void SetInputData(void *pBuffer);
    MDWord SetupBlitPlanes(); // gives srcCS
    MRESULT ApplyCoverCrop(MDWord srcCS, ZT5Rect &rtPicture);
    void SendLensBox(const ZT5Rect &rtPicture);
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
    static MDWord OverlayPayloadSize(MDWord id);
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
    InputYuvBuf m_InputYuvBuf;
    unsigned char *m_pPackedBuf;
    unsigned char *m_BlitPlanes[3];
    MLong m_BlitStrides[3];
    ZT5SharedMemAgent *m_pSharedMemAgent;
    MDWord m_bPlanesFromAgent;
    PFN_ZT5_FRAME_CALLBACK m_pfnFrameCallback;
    void *m_pFrameCallbackData;

    // What the manager was last told about the frame (in fit mode 5 the
    // crop's size).
    ZT5FrameInfo m_MgrFrameInfo;
    MDWord m_dwFEStartX, m_dwFEStartY, m_dwFEWidth, m_dwFEHeight;

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
    MDWord m_bUseOpenGles;
    MDWord m_bOpenGLFullView;
    MLong m_lFishEyeMode;
    MDWord m_bEnableAnimation;
    MDWord m_bNeedFEBgCloud;
    MDWord m_bNeedFEBgStar;
    MDWord m_dwScaleRatio;
    MDWord m_dwDisplayMaxScale;
    void *m_pUICallback;
    void *m_pTouchVelocity;
    ZT5TouchPinch m_displayPinch;
    void *m_pDoubleTap;
    MDWord m_dwCuriseMode;
    float m_curiseVelocity;
    void *m_pFEStatusDataDict;
    void *m_pYuvBuffer;
    MDWord m_dwYUVBufferLen;
    void *m_hYUVBufferMutex;
    MDWord m_dwYUVBufferMode;
    MDWord m_dwRotation;
    MDWord m_bIsMultiDisplay;
    MDWord m_dwFEPlatform;
    void *m_pEaglLayer;
    void *m_pDistortionParam;
    // Font path, face names, option and list, background colour, logo:
    // copies of what the host may free, replayed at Init.
    COverlaySettings m_Overlay;
    MDWord m_dwYuvMatrix; // ZT5_CFG_DISPLAY_YUV_MATRIX word
    ZT5LensModel m_LensModel; // ZT5_CFG_COMMON_LENS_MODEL as set; all zero: the default lens
    ZT5AlignInfo m_AlignInfo;
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
