// The display manager: flat functions on a display handle, between the
// front end and the render object.
#ifndef PANOVIEW_MDISPLAYMGR_H
#define PANOVIEW_MDISPLAYMGR_H

#include "MRuntime.h"
#include "ZT5Config.h"
#include "ZT5Errors.h"
#include "ZT5Records.h"

// Ids only the front end sends to the manager (a namespace of their own).
#define M_DISPLAY_PARAM_CAPS 1
#define M_DISPLAY_PARAM_VIEWPORT 2
#define M_DISPLAY_PARAM_FULLSCREEN 3
#define M_DISPLAY_PARAM_ADJUST 7
#define M_DISPLAY_PARAM_CONTINUEBUF 9
#define M_DISPLAY_PARAM_FRAMEINFO 11
// A CZT5Event of the front end's, signalled by the render thread after each
// draw; passed on to the render object under the same id.
#define M_DISPLAY_PARAM_DRAWN_EVENT 12

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

// Native window as the lower layers carry it: an X11 Window id here.
typedef uintptr_t MWindowHandle;

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
    virtual MRESULT render(unsigned char **planes, MLong *strides) { return 0; }
    virtual MRESULT render(MLong lSize) = 0;
    virtual MRESULT init(MDWord dwReserved, char *pText, MDWord dwCSType, MWindowHandle hContext, MLong lSrcWidth,
                         MLong lSrcHeight, MLong lWidth, MLong lHeight, MDWord bContinueBuf, MDWord dwRotation) = 0;
    virtual MRESULT setRender(void *pRender) = 0;
    virtual MRESULT Reset() = 0;
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
MRESULT MDisplayMgrGetParam(MDisplayHandle h, MDWord dwParamID, void *pParam, MDWord dwSize);
// 1 when the view of a FishEyeMode takes a rectangle around the lens circle
// (a circle wider than the picture is high), 0 when a square or the frame.
MDWord MDisplayMgrLensBoxIsRectangle(MLong lFishEyeMode);
MRESULT MDisplayMgrBlit(MDisplayHandle h, MDWord dwCSType, unsigned char **planes, MLong *strides,
                        const ZT5Rect *pRect, const ZT5Rect *pRect2, MDWord bSkipRender);

#endif
