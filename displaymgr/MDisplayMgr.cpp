// Display manager: handle lifetime, the blit and the render object's
// lifecycle (create lazily at the first usable frame, feed it every stored
// setting, throw it away when it can't come up and try again next frame).
#include <atomic>
#include <new>

#include "DisplayContext.h"
#include "MLog.h"

// ------------------------------------------------------- renderer factory

static std::atomic<PFN_MDisplayMgrCreateRenderer> g_pfnCreateRenderer{nullptr};

void MDisplayMgrSetRendererFactory(PFN_MDisplayMgrCreateRenderer pfn)
{
    g_pfnCreateRenderer.store(pfn);
}

static IZT5VideoRenderer *CreateRenderObject()
{
    PFN_MDisplayMgrCreateRenderer pfn = g_pfnCreateRenderer.load();
    return pfn ? pfn() : CreateWinOpenGLDisplay();
}

static void DestroyRenderObject(DisplayContext *pContext)
{
    IZT5VideoRenderer *pRender = pContext->pRender;
    pContext->pRender = nullptr;
    delete pRender;
}

// ------------------------------------------------------------- lifetime

MDisplayHandle MDisplayMgrCreate(MDWord dwDisplayType)
{
    if (dwDisplayType == 1) return MDisplayMgrCreateGDI();
    return nullptr;
}

MDisplayHandle MDisplayMgrCreateGDI()
{
    void *pMem = MMemAlloc(sizeof(DisplayContext));
    if (!pMem) return nullptr;
    DisplayContext *pContext = new (pMem) DisplayContext();

    pContext->pViewport = static_cast<ZT5Viewport *>(MMemAlloc(sizeof(ZT5Viewport)));
    if (!pContext->pViewport) {
        pContext->~DisplayContext();
        MMemFree(pMem);
        return nullptr;
    }
    MMemSet(pContext->pViewport, 0, sizeof(ZT5Viewport));
    return pContext;
}

MRESULT MDisplayMgrDelete(MDisplayHandle h)
{
    if (!h) return 0;
    // The render object first: its destructor stops the render thread, the
    // only other user of the mailbox.
    DestroyRenderObject(h);
    MMemFree(h->pViewport);
    h->pViewport = nullptr;
    h->~DisplayContext();
    MMemFree(h);
    return 0;
}

MRESULT MDisplayMgrInit(MDisplayHandle h)
{
    return h ? 0 : ZT5_ERR_INVALID_PARAM;
}

MRESULT MDisplayMgrUninit(MDisplayHandle h)
{
    return h ? 0 : ZT5_ERR_INVALID_PARAM;
}

MRESULT MDisplayMgrUpdate(MDisplayHandle h)
{
    return h ? 0 : ZT5_ERR_INVALID_PARAM;
}

MRESULT MDisplayMgrSetShow(MDisplayHandle h, MDWord bShow)
{
    if (!h) return ZT5_ERR_INVALID_PARAM;
    h->bShowIt = bShow;
    return 0;
}

// Erasing is done by the render object clearing the surface; there is no
// erase on this road.
MRESULT MDisplayMgrEraseRect(MWindowHandle hWnd, const ZT5Rect *prtErase, MDWord dwColor)
{
    return 3;
}

MRESULT MDisplayMgrEraseRectEx(MWindowHandle hWnd, const ZT5Rect *prtErase, MDWord dwColor, MDWord bFullScreen)
{
    if (prtErase)
        MLogInfo("[%s]WinDisplay::MDisplayMgrEraseRectEx hWnd=0x%lx rect=(%d,%d,%d,%d) bFullScreen=%u\r\n", MLOG_TAG,
                 (unsigned long)hWnd, prtErase->left, prtErase->top, prtErase->right, prtErase->bottom, bFullScreen);
    else
        MLogInfo("[%s]WinDisplay::MDisplayMgrEraseRectEx hWnd=0x%lx rect=null bFullScreen=%u\r\n", MLOG_TAG,
                 (unsigned long)hWnd, bFullScreen);
    return 3;
}

// ------------------------------------------------------------------ blit

static MRESULT InitOpenglRenderer(DisplayContext *pContext, const ZT5Rect *pRect, const ZT5Rect *pRect2);
static MRESULT SoftwareYUVRender(DisplayContext *pContext, const VideoFrame &frame);

MRESULT MDisplayMgrBlit(MDisplayHandle h, const VideoFrame *pFrame, const ZT5Rect *pRect, const ZT5Rect *pRect2,
                        MDWord bSkipRender)
{
    if (bSkipRender) return 0;
    if (!pFrame || !pFrame->plane[0].data) {
        MLogInfo("[%s]WinDisplay::MDisplayMgrBlit no plane!!\r\n", MLOG_TAG);
        return 0;
    }
    if (!h) {
        MLogInfo("[%s]WinDisplay::MDisplayMgrBlit, ZT5_ERR_INVALID_PARAM.\r\n", MLOG_TAG);
        return ZT5_ERR_INVALID_PARAM;
    }
    if (!h->bShowIt) {
        MLogInfo("[%s]WinDisplay::MDisplayMgrBlit pDisplayContext->bShowIt:%d need not show it\r\n", MLOG_TAG,
                 (int)h->bShowIt);
        return 0;
    }
    if (!h->settings.bUseOpenGles) return 0;
    if (!h->bInited) InitOpenglRenderer(h, pRect, pRect2); // a failure heals at a later blit
    return SoftwareYUVRender(h, *pFrame);
}

MRESULT MDisplayMgrRecut(MDisplayHandle h, const FrameBox *pSquare, const FrameBox *pRectangle,
                         const FrameColour *pColour)
{
    if (!h || !pSquare || !pRectangle || !pColour) return ZT5_ERR_INVALID_PARAM;
    // The kept frame is looked at anew; its pixels stay in the textures.
    if (h->mailbox.Recut(*pSquare, *pRectangle, *pColour) && h->pRender) h->pRender->framePosted(false);
    return 0;
}

// What a new render object needs before init: the mailbox, the settings
// (overlays among them), the window.
static void FeedRenderObject(DisplayContext *c)
{
    IZT5VideoRenderer *r = c->pRender;
    r->attachMailbox(&c->mailbox);
    r->applySettings(c->settings, 0);
    r->setConfig(ZT5_CFG_PLUGINMGR_HDL, reinterpret_cast<void *>(c->hNativeWindow));
}

// Makes (if needed), feeds and starts the render object. 0 when it is up,
// else the error it reported.
static MRESULT InitOpenglRenderer(DisplayContext *pContext, const ZT5Rect *pRect, const ZT5Rect *pRect2)
{
    if (!pContext) {
        MLogInfo("[%s]InitOpenglRenderer, ZT5_ERR_INVALID_PARAM.\r\n", MLOG_TAG);
        return ZT5_ERR_INVALID_PARAM;
    }
    MLong lSrcWidth = pRect ? pRect->right - pRect->left : 0;
    MLong lSrcHeight = pRect ? pRect->bottom - pRect->top : 0;
    MRESULT res = 0;

    if (pContext->settings.bUseOpenGles && !pContext->bInited) {
        if (!pContext->pRender) pContext->pRender = CreateRenderObject();

        IZT5VideoRenderer *r = pContext->pRender;
        if (r) {
            FeedRenderObject(pContext);

            // init receives a zeroed text buffer, which the render object
            // does not read; the frame itself describes its size, layout and
            // rotation when it comes.
            char szText[260] = {0};
            r->init(0, szText, pContext->FrameInfo.dwCSType, pContext->hContext, lSrcWidth, lSrcHeight, lSrcWidth,
                    lSrcHeight, pContext->bContinueBuf, pContext->FrameInfo.dwRotation);

            if (pContext->pFECurrentStatus)
                r->setConfig(ZT5_CFG_DISPLAY_FE_CURRENTSTATUS, pContext->pFECurrentStatus);
        }

        MDWord bRendererInited = 0;
        if (r) r->getConfig(ZT5_CFG_DISPLAY_RENDERER_INITED, &bRendererInited);
        if (r && bRendererInited == 1) {
            pContext->bInited = 1;
        } else {
            if (r) {
                MDWord dwError = 0;
                r->getConfig(ZT5_CFG_DISPLAY_RENDERER_ERROR, &dwError);
                res = (MRESULT)dwError;
            }
            // A render object that did nothing (no window yet) reports no
            // error of its own; the caller still learns that it isn't up.
            if (!res) res = ZT5_ERR_DISPLAY_CREATE;
            MLogInfo("InitOpenglRenderer create opengl renderer fail res:%d\r\n", (int)res);
            if (r) DestroyRenderObject(pContext);
        }
    }
    MLogInfo("[%s]InitOpenglRenderer out bInited:%d\r\n", MLOG_TAG, (int)pContext->bInited);
    return res;
}

// Hands the frame to the host's buffer, or posts it to the render object:
// cut of the decoder's alignment columns, copied into the mailbox.
static MRESULT SoftwareYUVRender(DisplayContext *pContext, const VideoFrame &frame)
{
    if (!frame.PlanesUsable()) return ZT5_ERR_INVALID_PARAM;
    VideoFrame f = frame;
    const ZT5AlignInfo &align = pContext->settings.align;
    if (align.bNeedCrop && align.dwAlignCrop > 0) {
        if (align.dwAlignCrop < f.width) {
            f = f.Cut(0, 0, f.width - align.dwAlignCrop, f.height);
        } else {
            MLogInfo("[%s]WinDisplay::SoftwareYUVRender align crop %u not below width %u, ignored\r\n", MLOG_TAG,
                     align.dwAlignCrop, f.width);
        }
    }
    f.KeepBoxesInside();

    MRESULT res = CallbackFEYUVData(pContext, f);
    if (res == 0) return 0; // delivered to the host's buffer, not drawn

    res = pContext->mailbox.Post(f);
    if (res == 0 && pContext->pRender) pContext->pRender->framePosted(true);
    return res;
}
