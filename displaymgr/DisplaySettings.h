// The settings of a display as one value. The front end keeps it (the host
// sets and reads its parameters there) and hands the whole value down
// whenever one of them changes; the manager keeps the last value for the
// render objects it makes, and the render object applies it to its
// renderer, once at its start and on every rebuild of the renderer. No
// layer relays or replays settings one by one.
//
// Pointers are the host's: records it keeps alive as long as the display
// reads them.
#ifndef PANOVIEW_DISPLAYSETTINGS_H
#define PANOVIEW_DISPLAYSETTINGS_H

#include "MRuntime.h"
#include "OverlaySettings.h"
#include "ZT5Records.h"

typedef uintptr_t MWindowHandle;

struct DisplaySettings {
    // The road: the OpenGL switch, and the window the surface is made on (the
    // one of the first Init; a new window comes with a viewport).
    MDWord bUseOpenGles = 0;
    MWindowHandle hWindow = 0;
    // A display without a window draws off-screen at this size (0 x 0: it
    // needs its window).
    MDWord dwOffscreenSize[2] = {0, 0};
    // The front end's event, signalled after every draw: a reader of a
    // picture waits on it for its frame. Outlives every render object.
    CZT5Event *pDrawnEvent = nullptr;

    // The view and its motion.
    MLong lFishEyeMode = 0;
    MDWord bCruise = 0;
    float fCruiseVelocity = 0.0f;
    MDWord bAnimation = 0;
    MDWord bCloud = 1;
    MDWord bStar = 1;
    MDWord dwFEPlatform = 0;
    MDWord bFullView = 0;
    MDWord dwScaleRatio = 100; // percent
    MDWord dwMaxScale = 400;   // percent
    MDWord dwRotation = 0;     // kept only
    ZT5DistortionParam *pDistortion = nullptr;
    ZT5UICallbackRecord *pCallback = nullptr;
    void *pEaglLayer = nullptr; // kept only
    // The lens's projection (a record the front end has checked); all zero:
    // equidistant, 180 degrees.
    ZT5LensModel lensModel = {0, 0.0f, {0.0f, 0.0f, 0.0f, 0.0f}};

    // The host's buffer road (frames handed back instead of drawn).
    unsigned char *pYuvBuffer = nullptr;
    MDWord dwYuvBufferLen = 0;
    MDWord dwYuvBufferMode = 0;
    void *hYuvBufferMutex = nullptr;
    // The decoder's alignment columns, cut off each frame.
    ZT5AlignInfo align = {};

    // What the views draw over the picture (faces, labels, logo) and the
    // background colour.
    COverlaySettings overlay;
};

#endif
