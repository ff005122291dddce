// Display manager parameters: store first, so that the value is there for
// the next init pass, and hand it to the render object at once when one
// exists. Gestures are not stored: without a render object they are lost.
#include <cstring>

#include "DisplayContext.h"
#include "MLog.h"
#include "ViewTraits.h"

static MDWord ReadWord(const void *p)
{
    MDWord v;
    std::memcpy(&v, p, sizeof(v));
    return v;
}

static void Forward(DisplayContext *c, MDWord dwParamID, void *pParam)
{
    if (c->pRender) c->pRender->setConfig(dwParamID, pParam); // its result carries nothing
}

static MRESULT SetViewport(DisplayContext *c, const ZT5Viewport *pViewport)
{
    MWindowHandle hOldContext = c->hContext;
    MWindowHandle hWnd = pViewport->hWnd;
    MLogInfo("[%s]WinDisplay(0x%x)::MDisplayMgrSetParam(VIEWPORT), hWnd=0x%x\r\n", MLOG_TAG,
             (unsigned)(uintptr_t)c, (unsigned)hWnd);

    // A viewport without area only announces itself: not even its window is
    // taken, so a null window of size 0 doesn't lose the surface.
    if ((int64_t)pViewport->lWidth * pViewport->lHeight == 0) return 0;

    MMemCpy(c->pViewport, pViewport, sizeof(ZT5Viewport));
    if (hWnd && (hWnd != c->hContext || c->bUseOpenGles)) c->hContext = hWnd;
    // The surface is made on the window the picture is to appear in: a new
    // window replaces the one of the first Init, or the rebuilt renderer
    // would draw into the old window again.
    if (hWnd && hWnd != hOldContext) c->hNativeWindow = hWnd;

    if (c->pRender && c->bInited && hWnd && hWnd != hOldContext) {
        // Another window: its EGL objects go now, the render object itself
        // is replaced by the next blits.
        c->pRender->Reset();
        c->bInited = 0;
        MLogInfo("MDisplayMgrSetParam M_DISPLAY_PARAM_VIEWPORT pViewPort->hWnd = 0x%x\r\n", (unsigned)hWnd);
    }
    if (c->pRender && c->bInited && !hWnd) {
        MLogInfo("surface is null, so delete opengl renderer");
        c->pRender->setRender(nullptr);
        c->bInited = 0;
    }
    return 0;
}

MRESULT MDisplayMgrSetParam(MDisplayHandle h, MDWord dwParamID, void *pParam, MDWord dwSize)
{
    if (!h || !pParam) return ZT5_ERR_INVALID_PARAM;
    DisplayContext *c = h;

    // Overlay settings: kept (copies of what the front end may free) and
    // passed on.
    if (c->overlay.Store(dwParamID, pParam, [c](MDWord id, void *p) { Forward(c, id, p); })) return 0;

    switch (dwParamID) {
    case M_DISPLAY_PARAM_VIEWPORT:
        return SetViewport(c, static_cast<const ZT5Viewport *>(pParam));

    case M_DISPLAY_PARAM_CONTINUEBUF: {
        MDWord v = ReadWord(pParam);
        if (v != c->bContinueBuf) c->bInited = 0; // the render object gets a new init pass
        c->bContinueBuf = v;
        return 0;
    }
    case M_DISPLAY_PARAM_FRAMEINFO: {
        const MDWord oldRotation = c->FrameInfo.dwRotation;
        MMemCpy(&c->FrameInfo, pParam, sizeof(ZT5FrameInfo));
        // A stream that turns: the running render object takes the new
        // rotation alone, and the view, its camera and every setting stay
        // (a renderer made later gets it with init).
        if (c->bInited && c->pRender && c->FrameInfo.dwRotation != oldRotation)
            c->pRender->setConfig(ZT5_CFG_DISPLAY_FRAMEINFO, &c->FrameInfo);
        return 0;
    }

    case ZT5_CFG_PLAYER_MODE:
        if (dwSize == sizeof(ZT5PlayerMode)) Forward(c, dwParamID, pParam);
        return 0;

    case ZT5_CFG_PLUGINMGR_HDL:
        // The window word: pointer-sized when the sender says so, else the
        // 32-bit window id.
        if (dwSize >= sizeof(MWindowHandle)) {
            MWindowHandle hWnd;
            std::memcpy(&hWnd, pParam, sizeof(hWnd));
            c->hNativeWindow = hWnd;
        } else {
            c->hNativeWindow = ReadWord(pParam);
        }
        return 0;

    case ZT5_CFG_DISPLAY_STATUS:
        c->bShowIt = ReadWord(pParam);
        Forward(c, dwParamID, pParam);
        return 0;

    case ZT5_CFG_DISPLAY_USE_OPENGLES:
        c->bUseOpenGles = ReadWord(pParam);
        return 0;

    case ZT5_CFG_DISPLAY_UITOUCH_VELOCITY:
    case ZT5_CFG_DISPLAY_UITOUCH_MOVED:
    case ZT5_CFG_DISPLAY_UITOUCH_UP:
    case ZT5_CFG_DISPLAY_UITOUCH_DOWN:
    case ZT5_CFG_DISPLAY_UITOUCH_MOVE_VELOCITY:
    case ZT5_CFG_DISPLAY_UITOUCH_DOUBLETAP:
        Forward(c, dwParamID, pParam);
        return 0;

    case ZT5_CFG_DISPLAY_FISHEYE_MODE: {
        MDWord dwMode = ReadWord(pParam);
        // The renderer keeps its old view for a mode above 10; so does the
        // crop here, so that crop and view stay matched.
        if (dwMode > 10) {
            MLogInfo("[%s]WinDisplay::MDisplayMgrSetParam FISHEYE_MODE %d refused\r\n", MLOG_TAG, (int)dwMode);
            return ZT5_ERR_INVALID_PARAM;
        }
        Forward(c, dwParamID, pParam);
        c->m_lFishEyeMode = (MLong)dwMode;
        c->bFishEye = GetViewTraits((MLong)dwMode).lensBox != LensBox::Whole;
        return 0;
    }
    case ZT5_CFG_DISPLAY_YUV_BUFFER:
        c->pYUVBuffer = static_cast<unsigned char *>(pParam);
        return 0;
    case ZT5_CFG_DISPLAY_YUV_BUFFER_LEN:
        c->dwYUVBufferLen = ReadWord(pParam);
        return 0;
    case ZT5_CFG_DISPLAY_YUV_BUFFER_MUTEX:
        c->hYUVBufferMutex = pParam;
        return 0;
    case ZT5_CFG_DISPLAY_YUV_BUFFER_MODE:
        c->dwYUVBufferMode = ReadWord(pParam);
        return 0;

    case ZT5_CFG_DISPLAY_UITOUCH_AUTOCURISE:
        c->curiseMode = ReadWord(pParam);
        Forward(c, dwParamID, pParam);
        return 0;
    case ZT5_CFG_DISPLAY_AUTOCURISE_VELOCITY:
        std::memcpy(&c->fCuriseVelocity, pParam, sizeof(float));
        Forward(c, dwParamID, pParam);
        return 0;
    case ZT5_CFG_DISPLAY_UICALLBACK:
        c->pUICallback = static_cast<ZT5UICallbackRecord *>(pParam);
        Forward(c, dwParamID, pParam);
        return 0;

    case ZT5_CFG_DISPLAY_FISHEYE_X_POS:
        c->dwFEStartX = ReadWord(pParam);
        return 0;
    case ZT5_CFG_DISPLAY_FISHEYE_Y_POS:
        c->dwFEStartY = ReadWord(pParam);
        return 0;
    case ZT5_CFG_DISPLAY_FISHEYE_WIDTH:
        c->dwFEWidth = ReadWord(pParam);
        return 0;
    case ZT5_CFG_DISPLAY_FISHEYE_HEIGHT:
        c->dwFEHeight = ReadWord(pParam);
        return 0;

    case ZT5_CFG_DISPLAY_OPENGL_FULLVIEW:
        c->bOpenGLFullView = ReadWord(pParam);
        Forward(c, dwParamID, pParam);
        return 0;
    case ZT5_CFG_DISPLAY_FE_BASE_ANIMATION:
        c->bEnableAnimation = ReadWord(pParam);
        Forward(c, dwParamID, pParam);
        return 0;
    case ZT5_CFG_DISPLAY_FE_BG_STAR:
        c->bNeedFEStar = ReadWord(pParam);
        Forward(c, dwParamID, pParam);
        return 0;
    case ZT5_CFG_DISPLAY_FE_BG_CLOUD:
        c->bNeedFEBgCloud = ReadWord(pParam);
        Forward(c, dwParamID, pParam);
        return 0;
    case ZT5_CFG_DISPLAY_FE_CURRENTSTATUS:
        c->pFECurrentStatus = static_cast<FECurrentStatusData *>(pParam);
        Forward(c, dwParamID, pParam);
        return 0;
    case ZT5_CFG_DISPLAY_ROTATION_ANGLE:
        Forward(c, dwParamID, pParam);
        c->dwRotation = ReadWord(pParam);
        return 0;
    case ZT5_CFG_DISPLAY_FE_PLATFORM:
        c->dwFEPlatform = ReadWord(pParam);
        Forward(c, dwParamID, pParam);
        return 0;
    case ZT5_CFG_DISPLAY_EAGL_LAYER:
        c->pEAGLLayer = pParam;
        Forward(c, dwParamID, pParam);
        return 0;
    case ZT5_CFG_DISPLAY_SCALE_RATIO:
        c->dwScaleRatio = ReadWord(pParam);
        Forward(c, dwParamID, pParam);
        return 0;
    case ZT5_CFG_DISPLAY_MAX_SCALE:
        c->dwDisplayMaxScale = ReadWord(pParam);
        Forward(c, dwParamID, pParam);
        return 0;
    case ZT5_CFG_DISPLAY_DISTORTION_PARAM:
        c->pDistortionParam = pParam;
        Forward(c, dwParamID, pParam);
        return 0;
    case ZT5_CFG_DISPLAY_YUV_MATRIX:
        c->dwYuvMatrix = ReadWord(pParam);
        Forward(c, dwParamID, &c->dwYuvMatrix);
        return 0;
    case ZT5_CFG_COMMON_LENS_MODEL:
        std::memcpy(&c->lensModel, pParam, sizeof(c->lensModel));
        c->bLensModel = true;
        Forward(c, dwParamID, &c->lensModel);
        return 0;

    case ZT5_CFG_CODEC_ALIGNINFO: {
        ZT5AlignInfo info;
        std::memcpy(&info, pParam, sizeof(info));
        c->bNeedCrop = info.bNeedCrop;
        c->dwAlignCrop = info.dwAlignCrop;
        return 0;
    }
    default:
        // Among others the fullscreen flag, colour adjustment, scale
        // rectangle and multi display: not on this road.
        return 3;
    }
}

MRESULT MDisplayMgrGetParam(MDisplayHandle h, MDWord dwParamID, void *pParam, MDWord dwSize)
{
    if (!h || !pParam) return ZT5_ERR_INVALID_PARAM;
    DisplayContext *c = h;

    switch (dwParamID) {
    case M_DISPLAY_PARAM_CAPS: {
        MDisplayCaps *pCaps = static_cast<MDisplayCaps *>(pParam);
        pCaps->dwAlignX = 4;
        pCaps->dwAlignY = 4;
        pCaps->dwPixelFormat = 5;
        return 0;
    }
    case M_DISPLAY_PARAM_VIEWPORT:
        if (c->pViewport) MMemCpy(pParam, c->pViewport, sizeof(ZT5Viewport));
        return 0;
    case ZT5_CFG_DISPLAY_USE_OPENGLES:
        std::memcpy(pParam, &c->bUseOpenGles, sizeof(MDWord));
        return 0;
    case ZT5_CFG_DISPLAY_GL_SNAPSHOT:
    case ZT5_CFG_DISPLAY_GET_FE_CURRENTSTATUS:
    case ZT5_CFG_DISPLAY_SCALE_RATIO:
    case ZT5_CFG_DISPLAY_MAX_SCALE:
    case ZT5_CFG_DISPLAY_RENDER_STATS:
        // Only the render object knows the live values; without one the
        // caller's variable is left alone.
        if (c->pRender) c->pRender->getConfig(dwParamID, pParam);
        return 0;
    default:
        return 3;
    }
}

MDWord MDisplayMgrLensBoxIsRectangle(MLong lFishEyeMode)
{
    return GetViewTraits(lFishEyeMode).lensBox == LensBox::Rectangle ? 1 : 0;
}
