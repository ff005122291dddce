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
    if (hWnd && (hWnd != c->hContext || c->settings.bUseOpenGles)) c->hContext = hWnd;
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

    switch (dwParamID) {
    case M_DISPLAY_PARAM_VIEWPORT:
        return SetViewport(c, static_cast<const ZT5Viewport *>(pParam));

    case M_DISPLAY_PARAM_CONTINUEBUF: {
        MDWord v = ReadWord(pParam);
        if (v != c->bContinueBuf) c->bInited = 0; // the render object gets a new init pass
        c->bContinueBuf = v;
        return 0;
    }
    case M_DISPLAY_PARAM_FRAMEINFO:
        // Kept for the render object's init; the frames themselves carry
        // their size, layout and rotation.
        MMemCpy(&c->FrameInfo, pParam, sizeof(ZT5FrameInfo));
        return 0;

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

    // Gestures: passed on, never kept.
    case ZT5_CFG_DISPLAY_UITOUCH_VELOCITY:
    case ZT5_CFG_DISPLAY_UITOUCH_MOVED:
    case ZT5_CFG_DISPLAY_UITOUCH_UP:
    case ZT5_CFG_DISPLAY_UITOUCH_DOWN:
    case ZT5_CFG_DISPLAY_UITOUCH_MOVE_VELOCITY:
    case ZT5_CFG_DISPLAY_UITOUCH_DOUBLETAP:
    case ZT5_CFG_DISPLAY_AIM_AT:
        Forward(c, dwParamID, pParam);
        return 0;

    // A restore: now, and again whenever a renderer comes up.
    case ZT5_CFG_DISPLAY_FE_CURRENTSTATUS:
        c->pFECurrentStatus = static_cast<FECurrentStatusData *>(pParam);
        Forward(c, dwParamID, pParam);
        return 0;

    default:
        // Among others the fullscreen flag, colour adjustment, scale
        // rectangle and multi display: not on this road.
        return 3;
    }
}

MRESULT MDisplayMgrSetSettings(MDisplayHandle h, const DisplaySettings *pSettings, MDWord dwChanged)
{
    if (!h || !pSettings) return ZT5_ERR_INVALID_PARAM;
    // The renderer keeps its old view for a mode above 10: so does the
    // value kept here, so that the cut of the frame and the view stay
    // matched.
    if (MDWord(pSettings->lFishEyeMode) > 10) {
        MLogInfo("[%s]WinDisplay::MDisplayMgrSetSettings FISHEYE_MODE %d refused\r\n", MLOG_TAG,
                 (int)pSettings->lFishEyeMode);
        return ZT5_ERR_INVALID_PARAM;
    }
    // The first window of the host's, as long as no viewport brought another.
    if (pSettings->hWindow != h->settings.hWindow && pSettings->hWindow) h->hNativeWindow = pSettings->hWindow;
    h->settings = *pSettings;
    if (h->pRender) h->pRender->applySettings(h->settings, dwChanged);
    return 0;
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
        std::memcpy(pParam, &c->settings.bUseOpenGles, sizeof(MDWord));
        return 0;
    case ZT5_CFG_DISPLAY_GL_SNAPSHOT:
    case ZT5_CFG_DISPLAY_GET_FE_CURRENTSTATUS:
    case ZT5_CFG_DISPLAY_SCALE_RATIO:
    case ZT5_CFG_DISPLAY_MAX_SCALE:
    case ZT5_CFG_DISPLAY_RENDER_STATS:
    case ZT5_CFG_DISPLAY_MAP_POINT:
        // Only the render object knows the live values; without one the
        // caller's variable is left alone.
        if (c->pRender) c->pRender->getConfig(dwParamID, pParam);
        return 0;
    case ZT5_CFG_DISPLAY_PICTURE:
        // The render object's answer is the host's.
        return c->pRender ? c->pRender->getConfig(dwParamID, pParam) : ZT5_ERR_NOT_READY;
    default:
        return 3;
    }
}

MDWord MDisplayMgrViewAims(MLong lFishEyeMode)
{
    return GetViewTraits(lFishEyeMode).aims ? 1 : 0;
}

MDWord MDisplayMgrLensBoxIsRectangle(MLong lFishEyeMode)
{
    return GetViewTraits(lFishEyeMode).lensBox == LensBox::Rectangle ? 1 : 0;
}
