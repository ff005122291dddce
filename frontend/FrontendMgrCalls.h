// Every call the display object makes into the display manager goes through
// these wrappers. A process-wide observer can be installed to see each call
// after it returned (handle, id, payload pointer, size, result; for a blit
// its colour space, planes, strides and rectangles). Tests use it to watch
// exactly what reaches the manager; with no observer it costs one load.
#ifndef PANOVIEW_FRONTEND_MGRCALLS_H
#define PANOVIEW_FRONTEND_MGRCALLS_H

#include "MDisplayMgr.h"

enum FrontendMgrOp {
    kMgrOpCreate = 1,
    kMgrOpDelete,
    kMgrOpInit,
    kMgrOpUninit,
    kMgrOpUpdate,
    kMgrOpSetShow,
    kMgrOpSetParam,
    kMgrOpGetParam,
    kMgrOpBlit,
    kMgrOpEraseRect,
};

struct FrontendMgrCall {
    FrontendMgrOp op;
    MDisplayHandle hDisplay; // the handle (for Create: the new one)
    MDWord dwParamID;        // SetParam / GetParam
    void *pValue;            // SetParam / GetParam payload, still valid in the observer
    MDWord dwSize;           // SetParam / GetParam size; SetShow: the flag
    MRESULT result;
    // Blit only.
    MDWord dwCSType;
    unsigned char *planes[3];
    MLong strides[3];
    ZT5Rect rect;
    bool bHasRect2;
    MDWord bSkipRender;
};

typedef void (*PFN_FrontendMgrObserver)(const FrontendMgrCall &call, void *pArg);

// Installs (or with null removes) the observer. Not for use while frames
// are in flight on other threads.
void FrontendSetMgrObserver(PFN_FrontendMgrObserver pfn, void *pArg);

MDisplayHandle FeMgrCreateGDI();
MRESULT FeMgrDelete(MDisplayHandle h);
MRESULT FeMgrInit(MDisplayHandle h);
MRESULT FeMgrUninit(MDisplayHandle h);
MRESULT FeMgrUpdate(MDisplayHandle h);
MRESULT FeMgrSetShow(MDisplayHandle h, MDWord bShow);
MRESULT FeMgrSetParam(MDisplayHandle h, MDWord id, void *pValue, MDWord size);
MRESULT FeMgrGetParam(MDisplayHandle h, MDWord id, void *pValue, MDWord size);
MRESULT FeMgrBlit(MDisplayHandle h, MDWord dwCSType, unsigned char **planes, MLong *strides, const ZT5Rect *pRect,
                  const ZT5Rect *pRect2, MDWord bSkipRender);
MRESULT FeMgrEraseRect(MWindowHandle hWnd, const ZT5Rect *pRect, MDWord dwColor);

#endif
