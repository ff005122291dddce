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

    pContext->hFrameMutex = new (std::nothrow) CZT5Mutex();
    if (!pContext->hFrameMutex) {
        MMemFree(pContext->pViewport);
        pContext->~DisplayContext();
        MMemFree(pMem);
        return nullptr;
    }
    return pContext;
}

MRESULT MDisplayMgrDelete(MDisplayHandle h)
{
    if (!h) return 0;
    // The render object first: its destructor stops the render thread, which
    // is the only other user of the frame mutex and of the crop buffer.
    DestroyRenderObject(h);
    delete h->hFrameMutex;
    h->hFrameMutex = nullptr;
    if (h->pCropBuffer) MMemFree(h->pCropBuffer);
    h->pCropBuffer = nullptr;
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
static MRESULT SoftwareYUVRender(DisplayContext *pContext, unsigned char **planes, MLong *strides,
                                 const ZT5Rect *pRect);

static bool NoPlane(unsigned char **planes)
{
    return !planes || (!planes[0] && !planes[1] && !planes[2]);
}

MRESULT MDisplayMgrBlit(MDisplayHandle h, MDWord dwCSType, unsigned char **planes, MLong *strides,
                        const ZT5Rect *pRect, const ZT5Rect *pRect2, MDWord bSkipRender)
{
    if (bSkipRender) return 0;
    if (NoPlane(planes)) {
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
    h->dwCSType = dwCSType;
    if (!h->bUseOpenGles) return 0;
    if (!h->bInited) InitOpenglRenderer(h, pRect, pRect2); // a failure heals at a later blit
    return SoftwareYUVRender(h, planes, strides, pRect);
}

// The settings the render object needs before init, in the order it expects
// them. Words go by address, pointers and handles by value.
static void FeedRenderObject(DisplayContext *c)
{
    IZT5VideoRenderer *r = c->pRender;
    r->setConfig(ZT5_CFG_DISPLAY_ROTATION_ANGLE, &c->dwRotation);
    r->setConfig(ZT5_CFG_DISPLAY_EAGL_LAYER, c->pEAGLLayer);
    r->setConfig(ZT5_CFG_DISPLAY_FE_PLATFORM, &c->dwFEPlatform);
    r->setConfig(ZT5_CFG_DISPLAY_FE_BG_CLOUD, &c->bNeedFEBgCloud);
    r->setConfig(ZT5_CFG_DISPLAY_FE_BG_STAR, &c->bNeedFEStar);
    r->setConfig(ZT5_CFG_DISPLAY_FE_BASE_ANIMATION, &c->bEnableAnimation);
    r->setConfig(ZT5_CFG_DISPLAY_RENDER_MUTEX, c->hFrameMutex);
    r->setConfig(ZT5_CFG_DISPLAY_FISHEYE_MODE, &c->m_lFishEyeMode);
    r->setConfig(ZT5_CFG_DISPLAY_UITOUCH_AUTOCURISE, &c->curiseMode);
    r->setConfig(ZT5_CFG_DISPLAY_AUTOCURISE_VELOCITY, &c->fCuriseVelocity);
    r->setConfig(ZT5_CFG_DISPLAY_UICALLBACK, c->pUICallback);
    r->setConfig(ZT5_CFG_DISPLAY_OPENGL_FULLVIEW, &c->bOpenGLFullView);
    r->setConfig(ZT5_CFG_DISPLAY_SCALE_RATIO, &c->dwScaleRatio);
    r->setConfig(ZT5_CFG_DISPLAY_MAX_SCALE, &c->dwDisplayMaxScale);
    r->setConfig(ZT5_CFG_DISPLAY_DISTORTION_PARAM, c->pDistortionParam);
    r->setConfig(ZT5_CFG_PLUGINMGR_HDL, reinterpret_cast<void *>(c->hNativeWindow));
    c->overlay.Replay([r](MDWord id, void *p) { r->setConfig(id, p); });
    // A new render object converts with the default until told otherwise.
    if (c->dwYuvMatrix != 0) r->setConfig(ZT5_CFG_DISPLAY_YUV_MATRIX, &c->dwYuvMatrix);
    if (c->bLensModel) r->setConfig(ZT5_CFG_COMMON_LENS_MODEL, &c->lensModel);
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

    if (pContext->bUseOpenGles && !pContext->bInited) {
        if (!pContext->pRender) pContext->pRender = CreateRenderObject();

        IZT5VideoRenderer *r = pContext->pRender;
        if (r) {
            FeedRenderObject(pContext);

            MLong lWidth = lSrcWidth, lHeight = lSrcHeight;
            if (pContext->bFishEye) {
                lWidth = (MLong)pContext->dwFEWidth;
                lHeight = (MLong)pContext->dwFEHeight;
                MLogInfo("[%s]InitOpenglRenderer Opengl fisheye rendererdw, SrcWidth = %d, dwSrcHeight = %d, "
                         "pDisplayContext->dwFEWidth= %d,pDisplayContext->dwFEHeight= %d\r\n",
                         MLOG_TAG, (int)lSrcWidth, (int)lSrcHeight, (int)pContext->dwFEWidth,
                         (int)pContext->dwFEHeight);
            }
            // init receives a zeroed text buffer, which the render object
            // does not read.
            char szText[260] = {0};
            r->init(0, szText, pContext->dwCSType, pContext->hContext, lSrcWidth, lSrcHeight, lWidth, lHeight,
                    pContext->bContinueBuf, pContext->FrameInfo.dwRotation);

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

static bool IsDrawnColourSpace(MDWord dwCSType)
{
    return dwCSType == ZT5_CS_PACKED2 || dwCSType == ZT5_CS_I420 || dwCSType == ZT5_CS_SEMIPLANAR_A ||
           dwCSType == ZT5_CS_NV12;
}

// Copies the frame (host buffer road, or crop into pCropBuffer) and posts it
// to the render object.
static MRESULT SoftwareYUVRender(DisplayContext *pContext, unsigned char **planes, MLong *strides,
                                 const ZT5Rect *pRect)
{
    if (!pContext) {
        MLogInfo("[%s]SoftwareYUVRender, ZT5_ERR_INVALID_PARAM.\r\n", MLOG_TAG);
        return ZT5_ERR_INVALID_PARAM;
    }
    pContext->dwSrcWidth = pContext->FrameInfo.dwWidth;
    pContext->dwSrcHeight = pContext->FrameInfo.dwHeight;
    if (!strides || (MLong)pContext->dwSrcWidth > strides[0]) return ZT5_ERR_INVALID_PARAM;
    for (int i = 0; i < 3; i++) pContext->lSrcStrides[i] = strides[i];

    MRESULT res = CallbackFEYUVData(pContext, planes);
    if (res == 0) return 0; // delivered to the host's buffer, not drawn
    if (!IsDrawnColourSpace(pContext->dwCSType)) return res;

    pContext->hFrameMutex->Lock();
    res = CropFishEyeData(pContext, planes);
    // The render object gets the size the buffer was filled for: the lens
    // square, the align-cropped width or the whole frame.
    if (res == 0 && pContext->pRender && pContext->pCropBuffer && pContext->dwCropWidth &&
        pContext->dwCropHeight) {
        MLong lDstWidth = pRect ? pRect->right - pRect->left : 0;
        MLong lDstHeight = pRect ? pRect->bottom - pRect->top : 0;
        pContext->pRender->render(pContext->pCropBuffer, (MLong)pContext->dwCropWidth,
                                  (MLong)pContext->dwCropHeight, lDstWidth, lDstHeight);
    }
    pContext->hFrameMutex->Unlock();
    return res;
}
