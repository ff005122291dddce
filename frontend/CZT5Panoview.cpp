// Construction, Init/Uninit, the frame road and the two display handles.
#include "CZT5Panoview.h"

#include <cstring>

#include "FrontendLock.h"
#include "MLog.h"

namespace {
// Benchmark items of the display object.
const MDWord kBenchBlit = 3;
const MDWord kBenchFrame = 6;
} // namespace

CZT5Panoview::CZT5Panoview() : m_bSwitchPending(0), m_DrawFrameEvent(0)
{
    std::memset(&m_DisplayParam, 0, sizeof(m_DisplayParam));
    std::memset(&m_Viewport, 0, sizeof(m_Viewport));
    std::memset(&m_DisplayCaps, 0, sizeof(m_DisplayCaps));
    ClearGeometry();
    std::memset(&m_FrameInfo, 0, sizeof(m_FrameInfo));
    std::memset(&m_LastFrame, 0, sizeof(m_LastFrame));
    std::memset(&m_InputYuvBuf, 0, sizeof(m_InputYuvBuf));
    m_pPackedBuf = nullptr;
    for (int i = 0; i < 3; ++i) {
        m_BlitPlanes[i] = nullptr;
        m_BlitStrides[i] = 0;
    }
    m_pSharedMemAgent = nullptr;
    m_bPlanesFromAgent = 0;
    m_pfnFrameCallback = nullptr;
    m_pFrameCallbackData = nullptr;

    std::memset(&m_MgrFrameInfo, 0, sizeof(m_MgrFrameInfo));
    m_dwFEStartX = m_dwFEStartY = m_dwFEWidth = m_dwFEHeight = 0;

    m_hDisplayHigh = m_hDisplayLow = m_hCurDisplay = nullptr;
    m_bInited = 0;
    m_bShow = 1;
    m_bParamChanged = 0;
    m_dwForcedDisplay = 0;
    m_bHighNeedsInit = m_bLowNeedsInit = 1;
    m_hFirstWnd = 0;
    m_bWindowChanged = 0;
    m_bFullScreen = 0;

    m_dwFitMode = 0;
    m_lUserWidth = m_lUserHeight = 0;
    m_dwUserRotation = 0;
    m_dwOrientationMode = 0;
    m_dwZoom = 100;
    m_dwZoomDen = 1;
    m_dwZoomNum = 0;
    m_dwResizeAlg = 2;
    m_bClipToViewport = 0;
    m_AdjustValues[0] = m_AdjustValues[1] = m_AdjustValues[2] = -255;
    m_dwReserved15 = 1;
    m_bUseOpenGles = 0;
    m_bOpenGLFullView = 0;
    m_lFishEyeMode = 0;
    m_bEnableAnimation = 0;
    m_bNeedFEBgCloud = 1;
    m_bNeedFEBgStar = 1;
    m_dwScaleRatio = 100;
    m_dwDisplayMaxScale = 400;
    m_pUICallback = nullptr;
    m_pTouchVelocity = nullptr;
    std::memset(&m_displayPinch, 0, sizeof(m_displayPinch));
    m_pDoubleTap = nullptr;
    m_dwCuriseMode = 0;
    m_curiseVelocity = 0.0f;
    m_pFEStatusDataDict = nullptr;
    m_pYuvBuffer = nullptr;
    m_dwYUVBufferLen = 0;
    m_hYUVBufferMutex = nullptr;
    m_dwYUVBufferMode = 0;
    m_dwRotation = 0;
    m_bIsMultiDisplay = 0;
    m_dwFEPlatform = 0;
    m_pEaglLayer = nullptr;
    m_pDistortionParam = nullptr;
    m_dwYuvMatrix = 0;
    std::memset(&m_LensModel, 0, sizeof(m_LensModel));
    std::memset(&m_AlignInfo, 0, sizeof(m_AlignInfo));
    std::memset(&m_CodecHint, 0, sizeof(m_CodecHint));
    std::memset(&m_FishEyeParam, 0, sizeof(m_FishEyeParam));
    std::memset(&m_rectOpenglScale, 0, sizeof(m_rectOpenglScale));
    m_pParentObject = nullptr;
}

CZT5Panoview::~CZT5Panoview()
{
    Uninit();
    DeleteDisplayHandles();
    // The mutexes, the event, the benchmark and the overlay copies go with
    // the members.
}

void CZT5Panoview::ClearGeometry()
{
    std::memset(&m_rtShow, 0, sizeof(m_rtShow));
    m_lResampleW = m_lResampleH = m_lTotalRotation = 0;
    std::memset(&m_rtDstShow, 0, sizeof(m_rtDstShow));
    std::memset(&m_rtShowRegion, 0, sizeof(m_rtShowRegion));
    m_dwOutputCS = 0;
}

void CZT5Panoview::DeleteDisplayHandles()
{
    if (m_hDisplayHigh != m_hDisplayLow) {
        if (m_hDisplayLow) MDisplayMgrDelete(m_hDisplayLow);
        if (m_hDisplayHigh) MDisplayMgrDelete(m_hDisplayHigh);
    } else if (m_hDisplayHigh) {
        MDisplayMgrDelete(m_hDisplayHigh);
    }
    m_hDisplayHigh = m_hDisplayLow = nullptr;
}

MRESULT CZT5Panoview::CreateDisplayHandle()
{
    DeleteDisplayHandles();
    m_hDisplayHigh = MDisplayMgrCreateGDI();
    m_hDisplayLow = MDisplayMgrCreateGDI();
    if (!m_hDisplayLow) return ZT5_ERR_DISPLAY_CREATE;
    if (!m_hDisplayHigh) m_hDisplayHigh = m_hDisplayLow;
    return 0;
}

int32_t CZT5Panoview::Init(const ZT5DisplayParam *pDisplayParam)
{
    MLogInfo("[%s]CZT5Panoview::Init in\r\n", MLOG_TAG);
    if (m_bInited) return ZT5_ERR_ALREADY_INITED;
    if (!pDisplayParam) return ZT5_ERR_INVALID_PARAM;

    std::memcpy(&m_DisplayParam, pDisplayParam, sizeof(m_DisplayParam));
    if (m_hFirstWnd == 0) m_hFirstWnd = m_DisplayParam.hWnd;

    MRESULT res = CheckDisplayRects();
    if (res != 0) {
        Uninit();
        return res;
    }
    CalcShowRect();
    res = CreateDisplayHandle();
    if (res != 0) {
        Uninit();
        return res;
    }

    m_hCurDisplay = m_hDisplayHigh;
    m_bInited = 1;
    m_bParamChanged = 1;
    m_bFullScreen = 0;

    // Replay of the remembered parameters, in a fixed order, to the current
    // handle only. The manager's answers don't matter here.
    MDisplayHandle h = m_hCurDisplay;
    MDisplayMgrSetParam(h, ZT5_CFG_PLUGINMGR_HDL, &m_hFirstWnd, 4);
    MDisplayMgrSetParam(h, ZT5_CFG_DISPLAY_USE_OPENGLES, &m_bUseOpenGles, 4);
    MDisplayMgrSetParam(h, ZT5_CFG_DISPLAY_OPENGL_FULLVIEW, &m_bOpenGLFullView, 4);
    MDisplayMgrSetParam(h, ZT5_CFG_DISPLAY_UICALLBACK, m_pUICallback, 60);
    MDisplayMgrSetParam(h, ZT5_CFG_DISPLAY_FISHEYE_MODE, &m_lFishEyeMode, 4);
    MDisplayMgrSetParam(h, ZT5_CFG_DISPLAY_UITOUCH_MOVE_VELOCITY, m_pTouchVelocity, 4);
    MDisplayMgrSetParam(h, ZT5_CFG_DISPLAY_UITOUCH_VELOCITY, &m_displayPinch, 8);
    MDisplayMgrSetParam(h, ZT5_CFG_DISPLAY_UITOUCH_DOUBLETAP, m_pDoubleTap, 4);
    MDisplayMgrSetParam(h, ZT5_CFG_DISPLAY_UITOUCH_AUTOCURISE, &m_dwCuriseMode, 4);
    MDisplayMgrSetParam(h, ZT5_CFG_DISPLAY_AUTOCURISE_VELOCITY, &m_curiseVelocity, 4);
    MDisplayMgrSetParam(h, ZT5_CFG_DISPLAY_FE_CURRENTSTATUS, m_pFEStatusDataDict, 4);
    MDisplayMgrSetParam(h, ZT5_CFG_DISPLAY_FE_BASE_ANIMATION, &m_bEnableAnimation, 4);
    MDisplayMgrSetParam(h, ZT5_CFG_DISPLAY_FE_BG_STAR, &m_bNeedFEBgStar, 4);
    MDisplayMgrSetParam(h, ZT5_CFG_DISPLAY_FE_BG_CLOUD, &m_bNeedFEBgCloud, 4);
    MDisplayMgrSetParam(h, ZT5_CFG_DISPLAY_YUV_BUFFER_MODE, &m_dwYUVBufferMode, 4);
    if (m_pYuvBuffer && m_dwYUVBufferLen > 0) {
        MDisplayMgrSetParam(h, ZT5_CFG_DISPLAY_YUV_BUFFER, m_pYuvBuffer, 4);
        MDisplayMgrSetParam(h, ZT5_CFG_DISPLAY_YUV_BUFFER_LEN, &m_dwYUVBufferLen, 4);
        MDisplayMgrSetParam(h, ZT5_CFG_DISPLAY_YUV_BUFFER_MUTEX, m_hYUVBufferMutex, 4);
        MDisplayMgrSetParam(h, ZT5_CFG_DISPLAY_YUV_BUFFER_MODE, &m_dwYUVBufferMode, 4);
    }
    MDisplayMgrSetParam(h, ZT5_CFG_DISPLAY_ROTATION_ANGLE, &m_dwRotation, 4);
    MDisplayMgrSetParam(h, ZT5_CFG_DISPLAY_MULTI_DISPLAY, &m_bIsMultiDisplay, 4);
    MDisplayMgrSetParam(h, ZT5_CFG_DISPLAY_FE_PLATFORM, &m_dwFEPlatform, 4);
    MDisplayMgrSetParam(h, ZT5_CFG_DISPLAY_EAGL_LAYER, m_pEaglLayer, 4);
    MDisplayMgrSetParam(h, ZT5_CFG_DISPLAY_SCALE_RATIO, &m_dwScaleRatio, 4);
    MDisplayMgrSetParam(h, ZT5_CFG_DISPLAY_MAX_SCALE, &m_dwDisplayMaxScale, 4);
    MDisplayMgrSetParam(h, ZT5_CFG_DISPLAY_DISTORTION_PARAM, m_pDistortionParam, 4);
    m_Overlay.Replay([h](MDWord id, void *p) { MDisplayMgrSetParam(h, id, p, OverlayPayloadSize(id)); });
    // The decoder's alignment, told before Init, describes the frames to come.
    if (m_AlignInfo.bNeedCrop || m_AlignInfo.dwAlignCrop) MDisplayMgrSetParam(h, ZT5_CFG_CODEC_ALIGNINFO, &m_AlignInfo, 8);
    // The colour matrix is a property of the stream, so both handles get it;
    // a new handle starts with the default and needs no word for it.
    if (m_dwYuvMatrix != 0) {
        MDisplayMgrSetParam(m_hDisplayHigh, ZT5_CFG_DISPLAY_YUV_MATRIX, &m_dwYuvMatrix, 4);
        if (m_hDisplayLow != m_hDisplayHigh)
            MDisplayMgrSetParam(m_hDisplayLow, ZT5_CFG_DISPLAY_YUV_MATRIX, &m_dwYuvMatrix, 4);
    }
    // The lens is the camera's: both handles, once one was set.
    ZT5LensModel noLens;
    std::memset(&noLens, 0, sizeof(noLens));
    if (std::memcmp(&m_LensModel, &noLens, sizeof(noLens)) != 0) {
        MDisplayMgrSetParam(m_hDisplayHigh, ZT5_CFG_COMMON_LENS_MODEL, &m_LensModel, sizeof(m_LensModel));
        if (m_hDisplayLow != m_hDisplayHigh)
            MDisplayMgrSetParam(m_hDisplayLow, ZT5_CFG_COMMON_LENS_MODEL, &m_LensModel, sizeof(m_LensModel));
    }

    MLogInfo("[%s]CZT5Panoview::Init out\r\n", MLOG_TAG);
    return 0;
}

int32_t CZT5Panoview::Uninit()
{
    if (m_hCurDisplay) MDisplayMgrUninit(m_hCurDisplay);

    if (m_hDisplayHigh && m_hDisplayHigh != m_hDisplayLow) {
        MDisplayMgrDelete(m_hDisplayHigh);
        m_hDisplayHigh = nullptr;
    }
    if (m_hDisplayLow) {
        if (m_hDisplayHigh == m_hDisplayLow) m_hDisplayHigh = nullptr;
        MDisplayMgrDelete(m_hDisplayLow);
        m_hDisplayLow = nullptr;
    }

    m_hCurDisplay = nullptr;
    std::memset(&m_DisplayParam, 0, sizeof(m_DisplayParam));
    ClearGeometry();
    std::memset(&m_Viewport, 0, sizeof(m_Viewport));
    std::memset(&m_MgrFrameInfo, 0, sizeof(m_MgrFrameInfo));
    m_pfnFrameCallback = nullptr;
    m_pFrameCallbackData = nullptr;

    m_bParamChanged = 1;
    m_bInited = 0;
    m_bShow = 1;
    m_bFullScreen = 0;
    m_bHighNeedsInit = m_bLowNeedsInit = 1;
    return 0;
}

int32_t CZT5Panoview::DrawFrame(void *pBuffer, const ZT5FrameInfo *pFrameInfo, uint32_t bSkipRender)
{
    // A hint only: a switch that lands after this read is served by the
    // locked read below, which also decides whether the high handle is shown
    // again: a switch to it that landed between the two reads must still
    // make it visible, or it would stay hidden for good.
    const MDWord wasPending = m_bSwitchPending.load(std::memory_order_relaxed);
    MRESULT res = 0;

    m_DataMutex.Lock();
    const MDWord signalDone = m_bSwitchPending.load(std::memory_order_relaxed);

    do {
        if (m_DisplayParam.hWnd == 0) {
            res = ZT5_ERR_NOT_READY;
            break;
        }
        if (!m_bShow) {
            res = 0;
            break;
        }

        // There must be something to draw.
        if (m_pSharedMemAgent) {
            const ZT5SharedMemAgent *a = m_pSharedMemAgent;
            if (!a->dwCheckA || !a->dwCheckB || (!a->pPlane0[0] && !a->pPlane1[0])) {
                res = ZT5_ERR_INVALID_PARAM;
                break;
            }
        } else if (!pBuffer && !bSkipRender) {
            res = ZT5_ERR_INVALID_PARAM;
            break;
        }

        if (!pFrameInfo || pFrameInfo->dwWidth == 0 || pFrameInfo->dwHeight == 0 ||
            pFrameInfo->dwWidth > PANOVIEW_MAX_FRAME_SIDE || pFrameInfo->dwHeight > PANOVIEW_MAX_FRAME_SIDE) {
            res = ZT5_ERR_INVALID_PARAM;
            break;
        }
        if (!m_hCurDisplay) {
            res = ZT5_ERR_NOT_READY;
            break;
        }

        // The codec's own frame road: the plain view with a frame callback.
        if (m_lFishEyeMode < 1 && m_pfnFrameCallback && m_pFrameCallbackData && pBuffer) {
            if (m_Benchmark.IsEnabled()) m_Benchmark.Start(kBenchFrame);
            res = m_pfnFrameCallback(pBuffer, m_pFrameCallbackData);
            if (m_Benchmark.IsEnabled()) m_Benchmark.Stop(kBenchFrame, 1);
            break;
        }

        // The only per-frame comparison: has the frame description changed?
        if (std::memcmp(pFrameInfo, &m_FrameInfo, sizeof(m_FrameInfo)) != 0) {
            ZT5FrameInfo info;
            std::memcpy(&info, pFrameInfo, sizeof(info)); // may point into m_LastFrame
            m_FrameInfo = info;
            m_LastFrame.frameInfo = info;
            m_bParamChanged = 1;
            EraseBG();
        }

        SetInputData(pBuffer);

        const MDWord switchPending = m_bSwitchPending.load(std::memory_order_relaxed);
        if (m_bParamChanged || switchPending) {
            MDWord bContinueBuf = m_pSharedMemAgent ? 0 : 1;
            MDisplayMgrSetParam(m_hCurDisplay, M_DISPLAY_PARAM_CONTINUEBUF, &bContinueBuf, 4);

            res = CalcDisplayGeometry(&m_FrameInfo);
            if (res == 0 && m_bParamChanged) res = CalcDisplayGeometry(&m_FrameInfo);
            if (res != 0) break;

            if (!m_bWindowChanged && m_rtShowRegion.left < 3) m_rtShowRegion.left = 0;
            m_rtDstShow = m_rtShowRegion;

            MDisplayMgrGetParam(m_hCurDisplay, M_DISPLAY_PARAM_CAPS, &m_DisplayCaps, 32);
            switch (m_DisplayCaps.dwPixelFormat) {
            case 1: m_dwOutputCS = 0x100; break;
            case 5: m_dwOutputCS = 0x400; break;
            case 15:
            case 39: m_dwOutputCS = 0x1; break;
            case 16: m_dwOutputCS = 0x2; break;
            case 35: m_dwOutputCS = 0x4000; break;
            default: m_dwOutputCS = 0; break;
            }
            SendMgrFrameInfo(m_FrameInfo);
        }

        if (m_dwOutputCS != 0x1 && m_dwOutputCS != 0x8001 && m_dwOutputCS != 0x100 && m_dwOutputCS != 0x400 &&
            m_dwOutputCS != 0x4000) {
            res = ZT5_ERR_UNSUPPORTED;
            break;
        }

        res = RefreshDisplay();
        if (res != 0) break;

        if (m_bShow) res = DrawDeviceDisplayBufferUsingZTBlit(bSkipRender);

        // A handle that was closed becomes visible once its first frame went.
        if ((wasPending || signalDone) && m_hCurDisplay == m_hDisplayHigh) MDisplayMgrSetShow(m_hDisplayHigh, 1);
    } while (0);

    m_DataMutex.Unlock();
    if (signalDone) m_DrawFrameEvent.Signal();
    return res;
}

MRESULT CZT5Panoview::RefreshDisplay()
{
    if (!m_bParamChanged && !m_bSwitchPending.load(std::memory_order_relaxed)) return 0;
    if (UpdateDisplayParam() != 0) return ZT5_ERR_UPDATE_FAILED;
    ZTBlitInitParam();
    if (m_bParamChanged) EraseBG();
    m_bSwitchPending.store(0, std::memory_order_relaxed);
    m_bParamChanged = 0;
    return 0;
}

void CZT5Panoview::ZTBlitInitParam()
{
    MLogDebug("[%s]CZT5Panoview::ZTBlitInitParam src %ux%u cs 0x%x, dst (%d,%d,%d,%d) out 0x%x rot %d, resample %dx%d\r\n",
              MLOG_TAG, m_FrameInfo.dwWidth, m_FrameInfo.dwHeight, m_FrameInfo.dwCSType, m_rtDstShow.left,
              m_rtDstShow.top, m_rtDstShow.right, m_rtDstShow.bottom, m_dwOutputCS, m_lTotalRotation, m_lResampleW,
              m_lResampleH);
}

void CZT5Panoview::EraseBG()
{
    if (!m_bShow) return;
    ZT5Rect rt = m_DisplayParam.rtScreen;
    MDisplayMgrEraseRect(m_DisplayParam.hWnd, &rt, m_DisplayParam.dwEraseColor);
}

void CZT5Panoview::SendMgrFrameInfo(const ZT5FrameInfo &info)
{
    ZT5FrameInfo copy = info;
    MDisplayMgrSetParam(m_hCurDisplay, M_DISPLAY_PARAM_FRAMEINFO, &copy, 32);
    m_MgrFrameInfo = copy;
}

MRESULT CZT5Panoview::DrawDeviceDisplayBufferUsingZTBlit(MDWord bSkipRender)
{
    if (m_CodecHint.dwHint0 && m_CodecHint.dwHint1) {
        ZT5CodecHint hint = m_CodecHint;
        MDisplayMgrSetParam(m_hCurDisplay, ZT5_CFG_CODEC_HINT, &hint, 8);
    }

    const MDWord srcCS = SetupBlitPlanes();

    // The picture rectangle: the part of the frame that goes down.
    ZT5Rect rtPicture = {0, 0, (MLong)m_FrameInfo.dwWidth, (MLong)m_FrameInfo.dwHeight};
    if (m_dwFitMode == 5) {
        MRESULT r = ApplyCoverCrop(srcCS, rtPicture);
        if (r != 0) return r;
    } else {
        if (m_bClipToViewport && (MLong)m_FrameInfo.dwWidth > m_Viewport.lWidth &&
            (MLong)m_FrameInfo.dwHeight > m_Viewport.lHeight && m_Viewport.lWidth > 0 && m_Viewport.lHeight > 0) {
            rtPicture.right = m_Viewport.lWidth;
            rtPicture.bottom = m_Viewport.lHeight;
        }
        // Leaving fit mode 5: the manager gets the whole frame again.
        if (std::memcmp(&m_MgrFrameInfo, &m_FrameInfo, sizeof(m_FrameInfo)) != 0) SendMgrFrameInfo(m_FrameInfo);
    }

    SendLensBox(rtPicture);

    const bool bench = m_Benchmark.IsEnabled() != 0;
    if (bench) {
        m_Benchmark.Start(kBenchBlit);
        m_Benchmark.Start(kBenchFrame);
    }
    MRESULT res = MDisplayMgrBlit(m_hCurDisplay, srcCS, m_BlitPlanes, m_BlitStrides, &rtPicture,
                                  m_bClipToViewport ? &rtPicture : nullptr, bSkipRender);
    if (bench) {
        m_Benchmark.Stop(kBenchFrame, 1);
        m_Benchmark.Stop(kBenchBlit, 1);
    }
    return res;
}

int32_t CZT5Panoview::ShowDisplayOverlay(uint32_t bShow)
{
    FrontendLock switchLock(m_SwitchMutex);

    if (m_dwForcedDisplay) {
        // A handle chosen by id wins; the call only reports.
        return ((bShow && m_dwForcedDisplay == 2) || (!bShow && m_dwForcedDisplay == 1)) ? 1 : 0;
    }

    MDWord inited;
    MDisplayHandle high, low;
    {
        FrontendLock dataLock(m_DataMutex);
        if (m_hDisplayHigh != m_hDisplayLow) {
            MDisplayHandle next = bShow ? m_hDisplayHigh : m_hDisplayLow;
            if (next != m_hCurDisplay) {
                m_hCurDisplay = next;
                m_bSwitchPending.store(1, std::memory_order_relaxed);
            }
        }
        inited = m_bInited;
        high = m_hDisplayHigh;
        low = m_hDisplayLow;
    }

    if (inited) {
        // The manager's context is touched only under m_DataMutex.
        if (bShow) {
            {
                FrontendLock dataLock(m_DataMutex);
                MDisplayMgrSetShow(low, 0);
            }
            DrawFrame(nullptr, &m_LastFrame.frameInfo, 0);
        } else {
            DrawFrame(nullptr, &m_LastFrame.frameInfo, 0);
            FrontendLock dataLock(m_DataMutex);
            MDisplayMgrSetShow(high, 0);
        }
    }
    return 0;
}

MRESULT CZT5Panoview::SwtichDisplayHandle(MDWord bHigh)
{
    m_SwitchMutex.Lock();
    m_DataMutex.Lock();

    m_dwForcedDisplay = bHigh ? 2 : 1;
    if (m_hDisplayHigh != m_hDisplayLow) {
        MDisplayHandle next = bHigh ? m_hDisplayHigh : m_hDisplayLow;
        if (next != m_hCurDisplay) {
            m_hCurDisplay = next;
            m_bSwitchPending.store(1, std::memory_order_relaxed);
        }
    }

    if (m_bInited) {
        m_DrawFrameEvent.Reset();
        if (!bHigh) {
            // Let a frame under way on another thread finish on the handle
            // that is about to close, but don't wait for one for long.
            m_DataMutex.Unlock();
            m_DrawFrameEvent.Wait(200);
            m_DrawFrameEvent.Reset();
            m_DataMutex.Lock();
            MDisplayMgrSetShow(m_hDisplayHigh, 0);
        }
    }

    m_DataMutex.Unlock();
    m_SwitchMutex.Unlock();
    return 0;
}
