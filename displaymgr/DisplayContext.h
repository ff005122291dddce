// The record behind a display handle, and the two steps of a blit that live
// in the frame copy's file. Private to the display manager.
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
    MDWord bFishEye = 0;                  // the view of m_lFishEyeMode takes the lens box, not the frame
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
    MDWord dwYuvMatrix = 0;            // ZT5_CFG_DISPLAY_YUV_MATRIX word; 0 is the render object's default
    ZT5LensModel lensModel = {};       // ZT5_CFG_COMMON_LENS_MODEL, checked above
    bool bLensModel = false;           // one was set: a new render object gets it

    // Strides of the planes of the current blit. A stride shorter than a
    // tightly packed row (or 0) means tightly packed.
    MLong lSrcStrides[3] = {0, 0, 0};
};

// Host buffer road: 0 when the frame went to (or was meant for) the host's
// buffer and must not be drawn, 4 when that road is not in use.
MRESULT CallbackFEYUVData(DisplayContext *pContext, unsigned char **planes);

// Brings the frame (whole, lens square or align crop) into pCropBuffer.
// 0, 2 for a null context, 3 when no buffer can be had.
MRESULT CropFishEyeData(DisplayContext *pContext, unsigned char **planes);

#endif
