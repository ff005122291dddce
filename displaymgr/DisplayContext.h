// The record behind a display handle, and the internal steps of a blit that
// tests drive one at a time.
#ifndef PANOVIEW_DISPLAYCONTEXT_H
#define PANOVIEW_DISPLAYCONTEXT_H

#include "MDisplayMgr.h"
#include "OverlaySettings.h"

// One display. Plain data: allocated by MDisplayMgrCreateGDI, freed by
// MDisplayMgrDelete. Every setting of the display lives here while no render
// object exists, so that a render object can be rebuilt at any later frame.
// Words are 32 bits; pointers and window handles are pointer-sized.
struct DisplayContext {
    IZT5VideoRenderer *pRender = nullptr; // owned; null until made, and after a failed init
    ZT5Viewport *pViewport = nullptr;     // owned copy of the last viewport with a non-zero area
    MDWord dwCSType = 0;                  // colour-space id of the frame last blitted
    MDWord bInited = 0;                   // render object up and fed
    MDWord bShowIt = 1;                   // 0: blits do nothing
    MDWord bContinueBuf = 0;              // handed to init; a change forces a new init pass
    MDWord bUseOpenGles = 0;              // 0: blits do nothing and succeed
    MDWord bFishEye = 0;                  // m_lFishEyeMode != 0
    MLong m_lFishEyeMode = 0;

    unsigned char *pYUVBuffer = nullptr; // host's buffer for frames handed back; not owned
    MDWord dwYUVBufferLen = 0;
    MDWord dwYUVBufferMode = 0;     // stored only
    void *hYUVBufferMutex = nullptr; // host's CZT5Mutex of that buffer; not owned

    unsigned char *pCropBuffer = nullptr; // owned planar 4:2:0 copy of the frame handed to the renderer
    MDWord dwCropBufferSize = 0;          // bytes at the last allocation
    MDWord dwFEStartX = 0, dwFEStartY = 0; // lens square in the frame
    MDWord dwFEWidth = 0, dwFEHeight = 0;
    MDWord dwCropWidth = 0, dwCropHeight = 0; // size pCropBuffer was last filled for

    ZT5FrameInfo FrameInfo = {}; // frame description; its dwRotation goes to init
    MDWord dwRotation = 0;       // display rotation angle

    CZT5Mutex *hFrameMutex = nullptr; // owned; guards pCropBuffer against the render thread

    MDWord curiseMode = 0;
    float fCuriseVelocity = 0.0f; // automatic cruise velocity
    MDWord bEnableAnimation = 0;
    MDWord bNeedFEBgCloud = 0;
    MDWord bNeedFEStar = 0;
    MDWord dwFEPlatform = 0;
    MDWord bNeedCrop = 0, dwAlignCrop = 0; // decoder's alignment columns
    MDWord dwSrcWidth = 0, dwSrcHeight = 0; // working size of the current blit

    MWindowHandle hContext = 0; // last non-null window of a viewport; 0: no surface yet
    MDWord bOpenGLFullView = 0;
    void *pEAGLLayer = nullptr;
    FECurrentStatusData *pFECurrentStatus = nullptr; // restored once the renderer is up; not owned
    ZT5UICallbackRecord *pUICallback = nullptr;      // not owned
    MDWord dwScaleRatio = 100;
    MDWord dwDisplayMaxScale = 400;
    void *pDistortionParam = nullptr; // not owned
    MWindowHandle hNativeWindow = 0;   // window the EGL surface is made on
    COverlaySettings overlay;          // font, faces, background colour, logo

    // Strides of the planes of the current blit. A stride shorter than a
    // tightly packed row (or 0) means tightly packed.
    MLong lSrcStrides[3] = {0, 0, 0};
};

// Makes (if needed), feeds and starts the render object. Result 0 when the
// render object is up, else the error it reported.
MRESULT InitOpenglRenderer(DisplayContext *pContext, const ZT5Rect *pRect, const ZT5Rect *pRect2);

// Copies the frame (host buffer road, or crop into pCropBuffer) and posts it
// to the render object.
MRESULT SoftwareYUVRender(DisplayContext *pContext, unsigned char **planes, MLong *strides, const ZT5Rect *pRect);

// Host buffer road: 0 when the frame went to (or was meant for) the host's
// buffer and must not be drawn, 4 when that road is not in use.
MRESULT CallbackFEYUVData(DisplayContext *pContext, unsigned char **planes);

// Brings the frame (whole, lens square or align crop) into pCropBuffer.
// 0, 2 for a null context, 3 when no buffer can be had.
MRESULT CropFishEyeData(DisplayContext *pContext, unsigned char **planes);

// Copies the region (x, y, width, height) of a tightly packed planar 4:2:0
// frame of srcWidth x srcHeight into dst, tightly packed. A region equal to
// the whole frame is left to the caller's block copy.
void FishEyeCropYUVData(unsigned char **planes, MDWord srcWidth, MDWord srcHeight, MDWord x, MDWord y,
                        MDWord width, MDWord height, unsigned char *dst);

#endif
