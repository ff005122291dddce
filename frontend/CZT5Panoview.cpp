// Construction, Init/Uninit, the frame road and the two display handles.
#include "CZT5Panoview.h"

#include <algorithm>
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
    m_pSharedMemAgent = nullptr;
    for (int i = 0; i < 3; ++i) m_AgentPlanes[i] = nullptr;
    std::memset(&m_rtLensPicture, 0, sizeof(m_rtLensPicture));
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
    m_pTouchVelocity = nullptr;
    std::memset(&m_displayPinch, 0, sizeof(m_displayPinch));
    m_pDoubleTap = nullptr;
    m_pFEStatusDataDict = nullptr;
    m_bIsMultiDisplay = 0;
    m_dwYuvMatrix = 0;
    m_dwOffscreenSize[0] = m_dwOffscreenSize[1] = 0;
    m_dwOffscreenDrawn[0] = m_dwOffscreenDrawn[1] = 0;
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

void CZT5Panoview::ApplyOffscreenRects()
{
    // The picture of a display without a window is all there is to show:
    // screen and clip are the off-screen size, whatever the record said.
    if (!OffScreen()) return;
    const ZT5Rect all = {0, 0, MLong(m_dwOffscreenDrawn[0]), MLong(m_dwOffscreenDrawn[1])};
    m_DisplayParam.rtScreen = all;
    m_DisplayParam.rtClip = all;
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
    // Without a window, the size set before is where the display draws.
    for (int i = 0; i < 2; i++) m_dwOffscreenDrawn[i] = m_DisplayParam.hWnd == 0 ? m_dwOffscreenSize[i] : 0;
    ApplyOffscreenRects();

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

    // The settings given so far go down as one value; the first window is
    // the one the surface is made on.
    m_Settings.hWindow = m_hFirstWnd;
    // A display without a window draws off-screen, at the size set before;
    // both handles tell the front end of their draws, for readers of
    // pictures.
    for (int i = 0; i < 2; i++) m_Settings.dwOffscreenSize[i] = OffScreen() ? m_dwOffscreenDrawn[i] : 0;
    m_Settings.pDrawnEvent = &m_DrawnEvent;
    PostSettings(0);
    if (m_pFEStatusDataDict) MDisplayMgrSetParam(m_hCurDisplay, ZT5_CFG_DISPLAY_FE_CURRENTSTATUS, m_pFEStatusDataDict, 4);

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
    m_dwOffscreenDrawn[0] = m_dwOffscreenDrawn[1] = 0;
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
        if (m_DisplayParam.hWnd == 0 && !OffScreen()) {
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
        if (m_Settings.lFishEyeMode < 1 && m_pfnFrameCallback && m_pFrameCallbackData && pBuffer) {
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

        if (m_bShow) res = DrawDeviceDisplayBufferUsingZTBlit(pBuffer, bSkipRender);

        // A handle that was closed becomes visible once its first frame went.
        if ((wasPending || signalDone) && m_hCurDisplay == m_hDisplayHigh) MDisplayMgrSetShow(m_hDisplayHigh, 1);
    } while (0);

    m_DataMutex.Unlock();
    if (signalDone) m_DrawFrameEvent.Signal();
    return res;
}

MRESULT CZT5Panoview::ReadPicture(ZT5Picture *pPicture)
{
    if (!pPicture->pBuffer) return ZT5_ERR_INVALID_PARAM;
    if (pPicture->dwCSType != ZT5_FRAME_CS_I420 && pPicture->dwCSType != ZT5_SNAPSHOT_RGBA)
        return ZT5_ERR_INVALID_PARAM;
    // Ordinal 0: whatever is shown, once anything is.
    const MDWord dwWanted = pPicture->dwFrameOrdinal;
    const MDWord dwStart = MGetTickCount();
    for (;;) {
        // Reset before the look: a draw after it signals, and the wait
        // below returns at once.
        m_DrawnEvent.Reset();
        {
            FrontendLock lock(m_DataMutex);
            if (!m_hCurDisplay) return ZT5_ERR_NOT_READY;
            ZT5RenderStats stats = {};
            MDisplayMgrGetParam(m_hCurDisplay, ZT5_CFG_DISPLAY_RENDER_STATS, &stats, sizeof(stats));
            const bool bReady = dwWanted == 0 ? stats.dwDraws > 0 : stats.dwNewestDrawn >= dwWanted;
            // Read under the lock, as a snapshot: the handle and its render
            // object stay as they are meanwhile.
            if (bReady) return MDisplayMgrGetParam(m_hCurDisplay, ZT5_CFG_DISPLAY_PICTURE, pPicture, sizeof(*pPicture));
        }
        // The frame isn't drawn yet. Wait with no lock held, so that the
        // host's thread can post it: the render thread signals each draw.
        // A signal taken by another reader costs at most one slice.
        const MDWord dwWaited = MGetTickCount() - dwStart;
        if (dwWaited >= pPicture->dwWaitMs) return ZT5_ERR_TIMEOUT;
        const MDWord kSliceMs = 50;
        m_DrawnEvent.Wait(std::min(pPicture->dwWaitMs - dwWaited, kSliceMs));
    }
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

MRESULT CZT5Panoview::DrawDeviceDisplayBufferUsingZTBlit(void *pBuffer, MDWord bSkipRender)
{
    if (m_CodecHint.dwHint0 && m_CodecHint.dwHint1) {
        ZT5CodecHint hint = m_CodecHint;
        MDisplayMgrSetParam(m_hCurDisplay, ZT5_CFG_CODEC_HINT, &hint, 8);
    }

    // A type that isn't drawn passes and is dropped here, as is a call
    // without planes.
    if (!DescribeFrame(pBuffer)) return 0;

    // The picture rectangle: the part of the frame that goes down.
    ZT5Rect rtPicture = {0, 0, (MLong)m_FrameInfo.dwWidth, (MLong)m_FrameInfo.dwHeight};
    if (m_dwFitMode == 5) {
        MRESULT r = ApplyCoverCrop(rtPicture);
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
    SetLensBoxes(rtPicture);
    // Planes that don't hold a row of the layout are refused: nothing is
    // read past them.
    if (m_Frame.plane[0].data && !m_Frame.PlanesUsable()) return ZT5_ERR_INVALID_PARAM;

    const bool bench = m_Benchmark.IsEnabled() != 0;
    if (bench) {
        m_Benchmark.Start(kBenchBlit);
        m_Benchmark.Start(kBenchFrame);
    }
    MRESULT res =
        MDisplayMgrBlit(m_hCurDisplay, &m_Frame, &rtPicture, m_bClipToViewport ? &rtPicture : nullptr, bSkipRender);
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
                PostSettings(0); // the handle now current has the display's settings
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
            PostSettings(0); // the handle now current has the display's settings
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
