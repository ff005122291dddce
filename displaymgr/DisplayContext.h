// The record behind a display handle, and the two steps of a blit that live
// in the frame copy's file. Private to the display manager.
#ifndef PANOVIEW_DISPLAYCONTEXT_H
#define PANOVIEW_DISPLAYCONTEXT_H

#include "FrameMailbox.h"
#include "MDisplayMgr.h"
#include "OverlaySettings.h"

// One display: allocated by MDisplayMgrCreateGDI, freed by
// MDisplayMgrDelete. The display's settings live here as one value while no
// render object exists, so that a render object can be rebuilt at any later
// frame.
// Words are 32 bits; pointers and window handles are pointer-sized.
struct DisplayContext {
    IZT5VideoRenderer *pRender = nullptr; // owned; null until made, and after a failed init
    ZT5Viewport *pViewport = nullptr;     // owned copy of the last viewport with a non-zero area
    MDWord bInited = 0;                   // render object up and fed
    MDWord bShowIt = 1;                   // 0: blits do nothing
    MDWord bContinueBuf = 0;              // handed to init; a change forces a new init pass

    DisplaySettings settings;    // the display's settings as the front end last gave them
    FrameMailbox mailbox;        // the frames on their way to the render object
    ZT5FrameInfo FrameInfo = {}; // frame description as last sent

    MWindowHandle hContext = 0;      // last non-null window of a viewport; 0: no surface yet
    MWindowHandle hNativeWindow = 0; // window the EGL surface is made on
    FECurrentStatusData *pFECurrentStatus = nullptr; // restored whenever a renderer comes up; not owned
};

// Host buffer road: 0 when the frame went to (or was meant for) the host's
// buffer and must not be drawn, 4 when that road is not in use.
MRESULT CallbackFEYUVData(DisplayContext *pContext, const VideoFrame &frame);

#endif
