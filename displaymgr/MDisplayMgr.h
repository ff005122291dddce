// The display manager: flat functions on a display handle, between the
// front end and the render object.
#ifndef PANOVIEW_MDISPLAYMGR_H
#define PANOVIEW_MDISPLAYMGR_H

#include "MRuntime.h"
#include "ZT5Config.h"
#include "ZT5Errors.h"
#include "ZT5Records.h"
#include "DisplaySettings.h"
#include "VideoFrame.h"

// Ids only the front end sends to the manager (a namespace of their own).
#define M_DISPLAY_PARAM_CAPS 1
#define M_DISPLAY_PARAM_VIEWPORT 2
#define M_DISPLAY_PARAM_FULLSCREEN 3
#define M_DISPLAY_PARAM_ADJUST 7
#define M_DISPLAY_PARAM_CONTINUEBUF 9
#define M_DISPLAY_PARAM_FRAMEINFO 11

// Display caps record, 32 bytes; the manager fills words 3, 4 and 7.
struct MDisplayCaps {
    MDWord dwReserved0;
    MDWord dwReserved1;
    MDWord dwReserved2;
    MDWord dwAlignX;
    MDWord dwAlignY;
    MDWord dwReserved5;
    MDWord dwReserved6;
    MDWord dwPixelFormat;
};
static_assert(sizeof(MDisplayCaps) == 32, "caps record is 32 bytes");

// Native window as the lower layers carry it (MWindowHandle): an X11
// Window id here.

class FrameMailbox;

// The render object as the manager sees it.
class IZT5VideoRenderer {
public:
    virtual ~IZT5VideoRenderer() {}
    virtual MRESULT setConfig(MDWord dwID, void *pValue) { return 3; }
    virtual MRESULT getConfig(MDWord dwID, void *pValue) { return 3; }
    virtual MRESULT render(unsigned char *pBuffer, MLong lWidth, MLong lHeight, MLong lDstWidth, MLong lDstHeight)
    {
        return 0;
    }
    virtual MRESULT render(MLong lSize) = 0;
    virtual MRESULT init(MDWord dwReserved, char *pText, MDWord dwCSType, MWindowHandle hContext, MLong lSrcWidth,
                         MLong lSrcHeight, MLong lWidth, MLong lHeight, MDWord bContinueBuf, MDWord dwRotation) = 0;
    virtual MRESULT setRender(void *pRender) = 0;
    virtual MRESULT Reset() = 0;
    // Where the display's frames wait (owned by the manager, which outlives
    // every render object it makes), and the news that the mailbox changed:
    // one more frame posted, or (bNewFrame false) the kept one cut anew.
    virtual void attachMailbox(FrameMailbox *pMailbox) = 0;
    // The display's settings, the whole value, kept and applied whole to
    // every renderer this object brings up; dwChanged names the parameter
    // that was just set (0: none), which takes effect at once, also when its
    // value is the one already kept (a cruise switched on again after a
    // touch ended it).
    virtual void applySettings(const DisplaySettings &settings, MDWord dwChanged) = 0;
    virtual void framePosted(bool bNewFrame) = 0;
};

// Makes the render object of a display; the default makes a
// CWinOpenGLDisplay. The benchmarks install a render object that draws
// nothing, to time the frame road alone.
typedef IZT5VideoRenderer *(*PFN_MDisplayMgrCreateRenderer)();
void MDisplayMgrSetRendererFactory(PFN_MDisplayMgrCreateRenderer pfn);
IZT5VideoRenderer *CreateWinOpenGLDisplay(); // defined by the OpenGL engine

struct DisplayContext;
typedef DisplayContext *MDisplayHandle;

MDisplayHandle MDisplayMgrCreate(MDWord dwDisplayType);
MDisplayHandle MDisplayMgrCreateGDI();
MRESULT MDisplayMgrDelete(MDisplayHandle h);
MRESULT MDisplayMgrInit(MDisplayHandle h);
MRESULT MDisplayMgrUninit(MDisplayHandle h);
MRESULT MDisplayMgrUpdate(MDisplayHandle h);
MRESULT MDisplayMgrSetShow(MDisplayHandle h, MDWord bShow);
MRESULT MDisplayMgrEraseRect(MWindowHandle hWnd, const ZT5Rect *prtErase, MDWord dwColor);
MRESULT MDisplayMgrEraseRectEx(MWindowHandle hWnd, const ZT5Rect *prtErase, MDWord dwColor, MDWord bFullScreen);
MRESULT MDisplayMgrSetParam(MDisplayHandle h, MDWord dwParamID, void *pParam, MDWord dwSize);
// The display's settings as one value, dwChanged the parameter just set (0
// for none): kept for the render objects made later, and handed to the one
// that exists. A view above 10 is refused (2) and nothing changes.
MRESULT MDisplayMgrSetSettings(MDisplayHandle h, const DisplaySettings *pSettings, MDWord dwChanged);
MRESULT MDisplayMgrGetParam(MDisplayHandle h, MDWord dwParamID, void *pParam, MDWord dwSize);
// 1 when the view of a FishEyeMode takes a rectangle around the lens circle
// (a circle wider than the picture is high), 0 when a square or the frame.
MDWord MDisplayMgrLensBoxIsRectangle(MLong lFishEyeMode);
// 1 when the view of a FishEyeMode has a camera that ZT5_CFG_DISPLAY_AIM_AT
// can turn.
MDWord MDisplayMgrViewAims(MLong lFishEyeMode);
// Hands one frame on: to the host's buffer, or into the display's mailbox
// for its render object. The frame's planes are read before the return.
MRESULT MDisplayMgrBlit(MDisplayHandle h, const VideoFrame *pFrame, const ZT5Rect *pRect, const ZT5Rect *pRect2,
                        MDWord bSkipRender);
// The kept frame is to be looked at through new lens boxes and colours
// (set while the picture stands still); drawn again at once.
MRESULT MDisplayMgrRecut(MDisplayHandle h, const FrameBox *pSquare, const FrameBox *pRectangle,
                         const FrameColour *pColour);

#endif
