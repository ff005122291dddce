// The record behind a display handle, and the two steps of a blit that live
// in the frame copy's file. Private to the display manager.
#ifndef PANOVIEW_DISPLAYCONTEXT_H
#define PANOVIEW_DISPLAYCONTEXT_H

#include "FrameMailbox.h"
#include "MDisplayMgr.h"
#include "OverlaySettings.h"

// One display. Plain data: allocated by MDisplayMgrCreateGDI, freed by
// MDisplayMgrDelete. Every setting of the display lives here while no render
// object exists, so that a render object can be rebuilt at any later frame.
// Words are 32 bits; pointers and window handles are pointer-sized.
struct DisplayContext {
    IZT5VideoRenderer *pRender = nullptr; // owned; null until made, and after a failed init
    ZT5Viewport *pViewport = nullptr;     // owned copy of the last viewport with a non-zero area
    MDWord bInited = 0;                   // render object up and fed
    MDWord bShowIt = 1;                   // 0: blits do nothing
    MDWord bContinueBuf = 0;              // handed to init; a change forces a new init pass
    MDWord bUseOpenGles = 0;              // 0: blits do nothing and succeed
    MLong m_lFishEyeMode = 0;

    unsigned char *pYUVBuffer = nullptr; // host's buffer for frames handed back; not owned
    MDWord dwYUVBufferLen = 0;
    MDWord dwYUVBufferMode = 0;     // stored only
    void *hYUVBufferMutex = nullptr; // host's CZT5Mutex of that buffer; not owned

    FrameMailbox mailbox; // the frames on their way to the render object

    ZT5FrameInfo FrameInfo = {}; // frame description as last sent
    MDWord dwRotation = 0;       // display rotation angle

    MDWord curiseMode = 0;
    float fCuriseVelocity = 0.0f; // automatic cruise velocity
    MDWord bEnableAnimation = 0;
    MDWord bNeedFEBgCloud = 0;
    MDWord bNeedFEStar = 0;
    MDWord dwFEPlatform = 0;
    MDWord bNeedCrop = 0, dwAlignCrop = 0; // decoder's alignment columns

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
};

// Host buffer road: 0 when the frame went to (or was meant for) the host's
// buffer and must not be drawn, 4 when that road is not in use.
MRESULT CallbackFEYUVData(DisplayContext *pContext, const VideoFrame &frame);

#endif
