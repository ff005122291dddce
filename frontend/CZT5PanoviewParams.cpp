// The parameter catalogue: what SetDisplayParam remembers and forwards, and
// what GetDisplayParam answers.
//
// Values are stored, and forwards to the manager made, under m_DataMutex:
// the manager's display context has no lock of its own, and a frame on
// another thread reads it inside DrawFrame, which holds the same mutex.
// The lock order stays that of the frame road (m_DataMutex, then the
// manager's and the render object's locks).
#include <cstring>

#include "CZT5Panoview.h"
#include "FrontendLock.h"
#include "LensLaw.h"
#include "MLog.h"

namespace {

inline MDWord ReadU32(const void *p)
{
    MDWord v;
    std::memcpy(&v, p, sizeof(v));
    return v;
}

inline void WriteU32(void *p, MDWord v) { std::memcpy(p, &v, sizeof(v)); }

const MDWord kBenchBlit = 3;
const MDWord kBenchFrame = 6;

} // namespace

void CZT5Panoview::PostSettings(MDWord dwChanged)
{
    // Under m_DataMutex (the callers hold it).
    if (m_hCurDisplay) MDisplayMgrSetSettings(m_hCurDisplay, &m_Settings, dwChanged);
}

void CZT5Panoview::Forward(MDWord id, void *pValue, MDWord size)
{
    FrontendLock lock(m_DataMutex);
    if (m_hCurDisplay) MDisplayMgrSetParam(m_hCurDisplay, id, pValue, size);
}

MDWord CZT5Panoview::PresentZoom() const
{
    return m_dwZoomNum ? m_dwZoomNum * 100 / (m_dwZoomDen ? m_dwZoomDen : 1) : m_dwZoom;
}

MRESULT CZT5Panoview::SetZoom(MDWord dwValue)
{
    if (m_dwFitMode != 0) {
        MLogInfo("ERROR--::Unspport Zoom in this mode: %ld\r\n", (long)dwValue);
        return ZT5_ERR_INVALID_PARAM;
    }
    if (dwValue < 25 || dwValue > 800) {
        MLogInfo("ERROR--::Zoom value invalid:%ld\r\n", (long)dwValue);
        return ZT5_ERR_INVALID_PARAM;
    }
    if (dwValue == PresentZoom() && m_dwZoomNum != 0) return 0;
    m_dwZoom = dwValue;
    m_dwZoomNum = 0;
    m_dwZoomDen = 1;
    m_bParamChanged = 1;
    if (m_FrameInfo.dwWidth && m_FrameInfo.dwHeight) CalcZoomState();
    return 0;
}

MRESULT CZT5Panoview::SetDisplayRecord(const ZT5DisplayParam *pParam)
{
    if (std::memcmp(pParam, &m_DisplayParam, sizeof(m_DisplayParam)) == 0) return 0;
    std::memcpy(&m_DisplayParam, pParam, sizeof(m_DisplayParam));
    ApplyOffscreenRects();
    m_bWindowChanged = m_hFirstWnd != (MWindowHandle)m_DisplayParam.hWnd ? 1 : 0;
    MRESULT res = CheckDisplayRects();
    if (res != 0) return res;
    CalcShowRect();
    m_bParamChanged = 1;
    UpdateDisplayParam();
    return 0;
}

// Overlay settings: checked, copied into the settings value, which goes
// down whole.
MRESULT CZT5Panoview::SetOverlay(MDWord id, const void *pValue)
{
    if (id == ZT5_CFG_DISPLAY_FACE_LIST && !COverlaySettings::FaceListValid(static_cast<const ZT5FaceList *>(pValue)))
        return ZT5_ERR_INVALID_PARAM;
    FrontendLock lock(m_DataMutex);
    if (m_Settings.overlay.Store(id, pValue)) PostSettings(id);
    return 0;
}

int32_t CZT5Panoview::SetDisplayParam(uint32_t dwParamID, void *pValue)
{
    if (!pValue) return ZT5_ERR_INVALID_PARAM;
    if (COverlaySettings::IsOverlayId(dwParamID)) return SetOverlay(dwParamID, pValue);

    switch (dwParamID) {
    case ZT5_CFG_COMMON_ROTATION: {
        const MDWord v = ReadU32(pValue);
        FrontendLock lock(m_DataMutex);
        if (v != 0 && v != 90 && v != 180 && v != 270) {
            MLogInfo("ERROR--::Rotate arc invalid:%ld\r\n", (long)v);
            return ZT5_ERR_INVALID_PARAM;
        }
        if (v != m_dwUserRotation) m_bParamChanged = 1;
        m_dwUserRotation = v;
        return 0;
    }
    case ZT5_CFG_COMMON_ORIENTATION: {
        const MDWord v = ReadU32(pValue);
        if (v > 2) {
            MLogInfo("ERROR--::Orientation mode don't support:%ld\r\n", (long)v);
            return ZT5_ERR_UNSUPPORTED;
        }
        FrontendLock lock(m_DataMutex);
        if (v != m_dwOrientationMode) m_bParamChanged = 1;
        m_dwOrientationMode = v;
        return 0;
    }
    case ZT5_CFG_COMMON_SHAREDMEM_AGENT: {
        ZT5SharedMemAgent *pAgent;
        std::memcpy(&pAgent, pValue, sizeof(pAgent));
        FrontendLock lock(m_DataMutex);
        m_pSharedMemAgent = pAgent;
        return 0;
    }
    case ZT5_CFG_COMMON_BENCHMARK_RESET: {
        ZT5PlayerMode mode = {4, 1.0f};
        FrontendLock lock(m_DataMutex);
        m_Benchmark.SetMode(&mode);
        return 0;
    }
    case ZT5_CFG_COMMON_FISHEYE_PARAM: {
        FrontendLock lock(m_DataMutex);
        std::memcpy(&m_FishEyeParam, pValue, sizeof(m_FishEyeParam));
        RedescribeKeptFrame();
        return 0;
    }
    case ZT5_CFG_PLAYER_MODE: {
        {
            FrontendLock lock(m_DataMutex);
            m_Benchmark.SetMode(pValue);
        }
        Forward(dwParamID, pValue, 8);
        return 0;
    }
    case ZT5_CFG_PLAYER_PARENT_OBJECT: {
        FrontendLock lock(m_DataMutex);
        m_pParentObject = pValue;
        MLogDebug("[%s]CZT5Panoview parent object %p\r\n", MLOG_TAG, pValue);
        return 0;
    }
    case ZT5_CFG_DISPLAY_PARAM: {
        FrontendLock lock(m_DataMutex);
        return SetDisplayRecord(static_cast<const ZT5DisplayParam *>(pValue));
    }
    case ZT5_CFG_DISPLAY_STATUS: {
        const MDWord v = ReadU32(pValue);
        FrontendLock lock(m_DataMutex);
        if (v == m_bShow) return 0;
        m_bShow = v ? 1 : 0;
        if (m_hCurDisplay) MDisplayMgrSetParam(m_hCurDisplay, dwParamID, pValue, 4);
        return 0;
    }
    case ZT5_CFG_DISPLAY_SOURCE_RECT: {
        ZT5Rect r;
        std::memcpy(&r, pValue, sizeof(r));
        const int64_t w = (int64_t)r.right - r.left;
        const int64_t h = (int64_t)r.bottom - r.top;
        // A source size beyond any frame would overflow the fitting.
        if (w > PANOVIEW_MAX_FRAME_SIDE || h > PANOVIEW_MAX_FRAME_SIDE) return ZT5_ERR_INVALID_PARAM;
        FrontendLock lock(m_DataMutex);
        m_lUserWidth = w > 0 ? (MLong)w : 0;
        m_lUserHeight = h > 0 ? (MLong)h : 0;
        return 0;
    }
    case ZT5_CFG_DISPLAY_LAST_FRAME: {
        FrontendLock lock(m_DataMutex);
        std::memcpy(&m_LastFrame, pValue, sizeof(m_LastFrame));
        return 0;
    }
    case ZT5_CFG_DISPLAY_FIT_MODE: {
        const MDWord v = ReadU32(pValue);
        FrontendLock lock(m_DataMutex);
        if (v != m_dwFitMode) m_bParamChanged = 1;
        m_dwFitMode = v;
        return 0;
    }
    case ZT5_CFG_DISPLAY_FULLSCREEN: {
        const MDWord v = ReadU32(pValue);
        FrontendLock lock(m_DataMutex);
        m_bFullScreen = v;
        return 0;
    }
    case ZT5_CFG_DISPLAY_SWITCH_HANDLE:
        return SwtichDisplayHandle(ReadU32(pValue));
    case ZT5_CFG_DISPLAY_ZOOM: {
        const MDWord v = ReadU32(pValue);
        FrontendLock lock(m_DataMutex);
        return SetZoom(v);
    }
    case ZT5_CFG_DISPLAY_FRAMEINFO: {
        FrontendLock lock(m_DataMutex);
        std::memcpy(&m_FrameInfo, pValue, sizeof(m_FrameInfo));
        return 0;
    }
    case ZT5_CFG_DISPLAY_RESIZE_ALG: {
        MDWord v = ReadU32(pValue);
        if (v != 1 && v != 4) v = 2;
        FrontendLock lock(m_DataMutex);
        m_dwResizeAlg = v;
        m_bParamChanged = 1;
        return 0;
    }
    case ZT5_CFG_DISPLAY_UPDATE: {
        FrontendLock switchLock(m_SwitchMutex);
        FrontendLock dataLock(m_DataMutex);
        if (m_hDisplayLow) MDisplayMgrUpdate(m_hDisplayLow);
        if (m_hDisplayHigh) MDisplayMgrUpdate(m_hDisplayHigh);
        return 0;
    }
    case ZT5_CFG_DISPLAY_REFRESH: {
        FrontendLock lock(m_DataMutex);
        return 0;
    }
    case ZT5_CFG_DISPLAY_ADJUST: {
        MLong rec[5];
        std::memcpy(rec, pValue, sizeof(rec));
        FrontendLock lock(m_DataMutex);
        if (rec[2] == m_AdjustValues[0] && rec[3] == m_AdjustValues[1] && rec[4] == m_AdjustValues[2]) return 0;
        if (m_hDisplayHigh) MDisplayMgrSetParam(m_hDisplayHigh, M_DISPLAY_PARAM_ADJUST, rec, 20);
        if (m_hDisplayLow && m_hDisplayLow != m_hDisplayHigh)
            MDisplayMgrSetParam(m_hDisplayLow, M_DISPLAY_PARAM_ADJUST, rec, 20);
        m_AdjustValues[0] = rec[2];
        m_AdjustValues[1] = rec[3];
        m_AdjustValues[2] = rec[4];
        return 0;
    }
    case ZT5_CFG_DISPLAY_RESERVED_15: {
        const MDWord v = ReadU32(pValue);
        FrontendLock lock(m_DataMutex);
        m_dwReserved15 = v;
        return 0;
    }
    case ZT5_CFG_DISPLAY_CLIP_TO_VIEWPORT: {
        const MDWord v = ReadU32(pValue);
        FrontendLock lock(m_DataMutex);
        m_bClipToViewport = v;
        return 0;
    }
    case ZT5_CFG_DISPLAY_OPENGL_SCALE_RECT: {
        {
            FrontendLock lock(m_DataMutex);
            std::memcpy(&m_rectOpenglScale, pValue, sizeof(m_rectOpenglScale));
        }
        Forward(dwParamID, pValue, 16);
        return 0;
    }
    case ZT5_CFG_DISPLAY_UITOUCH_VELOCITY: {
        Forward(dwParamID, pValue, 8);
        FrontendLock lock(m_DataMutex);
        std::memcpy(&m_displayPinch, pValue, sizeof(m_displayPinch));
        return 0;
    }
    // Gestures: passed on, never remembered.
    case ZT5_CFG_DISPLAY_UITOUCH_MOVED:
    case ZT5_CFG_DISPLAY_UITOUCH_UP:
    case ZT5_CFG_DISPLAY_UITOUCH_DOWN:
        Forward(dwParamID, pValue, 4);
        return 0;

    // Settings: kept in the one value, which goes down whole.
    case ZT5_CFG_DISPLAY_USE_OPENGLES:
    case ZT5_CFG_DISPLAY_FISHEYE_MODE:
    case ZT5_CFG_DISPLAY_YUV_BUFFER_LEN:
    case ZT5_CFG_DISPLAY_YUV_BUFFER_MODE:
    case ZT5_CFG_DISPLAY_UITOUCH_AUTOCURISE:
    case ZT5_CFG_DISPLAY_AUTOCURISE_VELOCITY:
    case ZT5_CFG_DISPLAY_OPENGL_FULLVIEW:
    case ZT5_CFG_DISPLAY_FE_BASE_ANIMATION:
    case ZT5_CFG_DISPLAY_FE_BG_STAR:
    case ZT5_CFG_DISPLAY_FE_BG_CLOUD:
    case ZT5_CFG_DISPLAY_ROTATION_ANGLE:
    case ZT5_CFG_DISPLAY_FE_PLATFORM:
    case ZT5_CFG_DISPLAY_SCALE_RATIO:
    case ZT5_CFG_DISPLAY_MAX_SCALE:
    case ZT5_CFG_DISPLAY_YUV_BUFFER:
    case ZT5_CFG_DISPLAY_YUV_BUFFER_MUTEX:
    case ZT5_CFG_DISPLAY_EAGL_LAYER:
    case ZT5_CFG_DISPLAY_DISTORTION_PARAM:
    case ZT5_CFG_DISPLAY_UICALLBACK:
    case ZT5_CFG_CODEC_ALIGNINFO: {
        const MDWord v = ReadU32(pValue);
        // A view the renderer doesn't have is refused here, before it is kept.
        if (dwParamID == ZT5_CFG_DISPLAY_FISHEYE_MODE && v > 10) return ZT5_ERR_INVALID_PARAM;
        FrontendLock lock(m_DataMutex);
        DisplaySettings &s = m_Settings;
        switch (dwParamID) {
        case ZT5_CFG_DISPLAY_USE_OPENGLES: s.bUseOpenGles = v; break;
        case ZT5_CFG_DISPLAY_FISHEYE_MODE: s.lFishEyeMode = (MLong)v; break;
        case ZT5_CFG_DISPLAY_YUV_BUFFER_LEN: s.dwYuvBufferLen = v; break;
        case ZT5_CFG_DISPLAY_YUV_BUFFER_MODE: s.dwYuvBufferMode = v; break;
        case ZT5_CFG_DISPLAY_UITOUCH_AUTOCURISE: s.bCruise = v; break;
        case ZT5_CFG_DISPLAY_AUTOCURISE_VELOCITY: std::memcpy(&s.fCruiseVelocity, &v, 4); break;
        case ZT5_CFG_DISPLAY_OPENGL_FULLVIEW: s.bFullView = v; break;
        case ZT5_CFG_DISPLAY_FE_BASE_ANIMATION: s.bAnimation = v; break;
        case ZT5_CFG_DISPLAY_FE_BG_STAR: s.bStar = v; break;
        case ZT5_CFG_DISPLAY_FE_BG_CLOUD: s.bCloud = v; break;
        case ZT5_CFG_DISPLAY_ROTATION_ANGLE: s.dwRotation = v; break;
        case ZT5_CFG_DISPLAY_FE_PLATFORM: s.dwFEPlatform = v; break;
        case ZT5_CFG_DISPLAY_SCALE_RATIO: s.dwScaleRatio = v; break;
        case ZT5_CFG_DISPLAY_MAX_SCALE: s.dwMaxScale = v; break;
        // Pointers: the host's memory must live as long as the display.
        case ZT5_CFG_DISPLAY_YUV_BUFFER: s.pYuvBuffer = static_cast<unsigned char *>(pValue); break;
        case ZT5_CFG_DISPLAY_YUV_BUFFER_MUTEX: s.hYuvBufferMutex = pValue; break;
        case ZT5_CFG_DISPLAY_EAGL_LAYER: s.pEaglLayer = pValue; break;
        case ZT5_CFG_DISPLAY_DISTORTION_PARAM: s.pDistortion = static_cast<ZT5DistortionParam *>(pValue); break;
        case ZT5_CFG_DISPLAY_UICALLBACK: s.pCallback = static_cast<ZT5UICallbackRecord *>(pValue); break;
        case ZT5_CFG_CODEC_ALIGNINFO: std::memcpy(&s.align, pValue, sizeof(s.align)); break;
        }
        PostSettings(dwParamID);
        return 0;
    }
    case ZT5_CFG_DISPLAY_MULTI_DISPLAY: {
        FrontendLock lock(m_DataMutex);
        m_bIsMultiDisplay = ReadU32(pValue);
        return 0;
    }

    // A frame point to aim the view at: a finite point of the last frame,
    // in a view that can aim; passed on like a gesture.
    case ZT5_CFG_DISPLAY_AIM_AT: {
        float p[2];
        std::memcpy(p, pValue, sizeof(p));
        {
            FrontendLock lock(m_DataMutex);
            const bool inside = p[0] >= 0.0f && p[1] >= 0.0f && p[0] <= float(m_FrameInfo.dwWidth) &&
                                p[1] <= float(m_FrameInfo.dwHeight); // false for NaN
            if (!inside || !MDisplayMgrViewAims(m_Settings.lFishEyeMode)) return ZT5_ERR_INVALID_PARAM;
        }
        Forward(dwParamID, p, 8);
        return 0;
    }

    // Gestures given as records, and a state to restore: kept and passed on.
    case ZT5_CFG_DISPLAY_UITOUCH_MOVE_VELOCITY:
    case ZT5_CFG_DISPLAY_UITOUCH_DOUBLETAP:
    case ZT5_CFG_DISPLAY_FE_CURRENTSTATUS: {
        {
            FrontendLock lock(m_DataMutex);
            switch (dwParamID) {
            case ZT5_CFG_DISPLAY_UITOUCH_MOVE_VELOCITY: m_pTouchVelocity = pValue; break;
            case ZT5_CFG_DISPLAY_UITOUCH_DOUBLETAP: m_pDoubleTap = pValue; break;
            case ZT5_CFG_DISPLAY_FE_CURRENTSTATUS: m_pFEStatusDataDict = pValue; break;
            }
        }
        Forward(dwParamID, pValue, 4);
        return 0;
    }
    case ZT5_CFG_CODEC_FRAME_CALLBACK: {
        ZT5FrameCallback cb;
        std::memcpy(&cb, pValue, sizeof(cb));
        FrontendLock lock(m_DataMutex);
        m_pfnFrameCallback = cb.pfnCallback;
        m_pFrameCallbackData = cb.pUserData;
        return 0;
    }
    case ZT5_CFG_CODEC_HINT: {
        FrontendLock lock(m_DataMutex);
        std::memcpy(&m_CodecHint, pValue, sizeof(m_CodecHint));
        return 0;
    }
    case ZT5_CFG_DISPLAY_OFFSCREEN_SIZE: {
        // Taken by the next Init with no window.
        MDWord size[2];
        std::memcpy(size, pValue, sizeof(size));
        for (MDWord side : size)
            if (side < ZT5_OFFSCREEN_SIDE_MIN || side > ZT5_OFFSCREEN_SIDE_MAX) return ZT5_ERR_INVALID_PARAM;
        FrontendLock lock(m_DataMutex);
        std::memcpy(m_dwOffscreenSize, size, sizeof(size));
        return 0;
    }
    case ZT5_CFG_DISPLAY_YUV_MATRIX: {
        MDWord v = ReadU32(pValue);
        if ((v & ~(MDWord)(0xFF | ZT5_YUV_RANGE_FULL)) != 0 || (v & 0xFF) > ZT5_YUV_MATRIX_BT2020)
            return ZT5_ERR_INVALID_PARAM;
        // Part of each frame's description from now on, and of the frame on
        // screen at once.
        FrontendLock lock(m_DataMutex);
        m_dwYuvMatrix = v;
        RedescribeKeptFrame();
        return 0;
    }
    case ZT5_CFG_COMMON_LENS_MODEL: {
        ZT5LensModel m;
        std::memcpy(&m, pValue, sizeof(m));
        if (!LensLawValid(m)) return ZT5_ERR_INVALID_PARAM;
        FrontendLock lock(m_DataMutex);
        m_Settings.lensModel = m;
        PostSettings(dwParamID);
        return 0;
    }
    default:
        return ZT5_ERR_UNSUPPORTED;
    }
}

int32_t CZT5Panoview::GetDisplayParam(uint32_t dwParamID, void *pValue)
{
    if (!pValue) return ZT5_ERR_INVALID_PARAM;

    switch (dwParamID) {
    case ZT5_CFG_COMMON_ROTATION: {
        FrontendLock lock(m_DataMutex);
        WriteU32(pValue, m_dwUserRotation);
        return 0;
    }
    case ZT5_CFG_COMMON_BENCHMARK: {
        MDWord words[23];
        std::memcpy(words, pValue, sizeof(words));
        const MDWord index = words[1];
        if (index > 2) return ZT5_ERR_INVALID_PARAM; // a triple index is 0, 1 or 2
        FrontendLock lock(m_DataMutex);
        m_Benchmark.GetTriple(kBenchBlit, index, &words[11]);
        m_Benchmark.GetTriple(kBenchFrame, index, &words[20]);
        std::memcpy(pValue, words, sizeof(words));
        return 0;
    }
    case ZT5_CFG_COMMON_BENCHMARK_BLIT:
    case ZT5_CFG_COMMON_BENCHMARK_FRAME: {
        MDWord triple[3];
        std::memcpy(triple, pValue, sizeof(triple));
        FrontendLock lock(m_DataMutex);
        m_Benchmark.GetTriple(dwParamID == ZT5_CFG_COMMON_BENCHMARK_BLIT ? kBenchBlit : kBenchFrame, 0, triple);
        std::memcpy(pValue, triple, sizeof(triple));
        return 0;
    }
    case ZT5_CFG_DISPLAY_PARAM: {
        FrontendLock lock(m_DataMutex);
        std::memcpy(pValue, &m_DisplayParam, sizeof(m_DisplayParam));
        return 0;
    }
    case ZT5_CFG_DISPLAY_STATUS: {
        FrontendLock lock(m_DataMutex);
        WriteU32(pValue, m_bShow);
        return 0;
    }
    case ZT5_CFG_DISPLAY_ZOOM: {
        FrontendLock lock(m_DataMutex);
        WriteU32(pValue, PresentZoom());
        return 0;
    }
    case ZT5_CFG_DISPLAY_YUV_MATRIX: {
        FrontendLock lock(m_DataMutex);
        WriteU32(pValue, m_dwYuvMatrix);
        return 0;
    }
    case ZT5_CFG_COMMON_LENS_MODEL: {
        FrontendLock lock(m_DataMutex);
        std::memcpy(pValue, &m_Settings.lensModel, sizeof(m_Settings.lensModel));
        return 0;
    }
    case ZT5_CFG_DISPLAY_USE_OPENGLES:
    case ZT5_CFG_DISPLAY_GL_SNAPSHOT:
    case ZT5_CFG_DISPLAY_GET_FE_CURRENTSTATUS:
    case ZT5_CFG_DISPLAY_SCALE_RATIO:
    case ZT5_CFG_DISPLAY_MAX_SCALE: {
        // Read through the current handle; without one the caller's word
        // stays as it was.
        FrontendLock lock(m_DataMutex);
        if (m_hCurDisplay) MDisplayMgrGetParam(m_hCurDisplay, dwParamID, pValue, 4);
        return 0;
    }
    case ZT5_CFG_DISPLAY_OFFSCREEN_SIZE: {
        FrontendLock lock(m_DataMutex);
        std::memcpy(pValue, m_dwOffscreenSize, sizeof(m_dwOffscreenSize));
        return 0;
    }
    case ZT5_CFG_DISPLAY_PICTURE:
        return ReadPicture(static_cast<ZT5Picture *>(pValue));
    case ZT5_CFG_DISPLAY_MAP_POINT: {
        // Nothing shown (no display yet): the point maps to nothing.
        ZT5PointMap *pMap = static_cast<ZT5PointMap *>(pValue);
        pMap->lPane = -1;
        FrontendLock lock(m_DataMutex);
        if (m_hCurDisplay) MDisplayMgrGetParam(m_hCurDisplay, dwParamID, pMap, sizeof(*pMap));
        return 0;
    }
    case ZT5_CFG_DISPLAY_RENDER_STATS: {
        // Zeros until the current handle has a render object.
        ZT5RenderStats stats = {};
        FrontendLock lock(m_DataMutex);
        if (m_hCurDisplay) MDisplayMgrGetParam(m_hCurDisplay, dwParamID, &stats, sizeof(stats));
        std::memcpy(pValue, &stats, sizeof(stats));
        return 0;
    }
    default:
        return ZT5_ERR_UNSUPPORTED;
    }
}
