#include "FrontendMgrCalls.h"

#include <atomic>
#include <cstring>

namespace {
std::atomic<PFN_FrontendMgrObserver> g_observer{nullptr};
std::atomic<void *> g_observerArg{nullptr};

inline void Report(FrontendMgrCall &c)
{
    PFN_FrontendMgrObserver pfn = g_observer.load(std::memory_order_acquire);
    if (pfn) pfn(c, g_observerArg.load(std::memory_order_acquire));
}

inline FrontendMgrCall MakeCall(FrontendMgrOp op, MDisplayHandle h)
{
    FrontendMgrCall c;
    std::memset(&c, 0, sizeof(c));
    c.op = op;
    c.hDisplay = h;
    return c;
}
} // namespace

void FrontendSetMgrObserver(PFN_FrontendMgrObserver pfn, void *pArg)
{
    g_observerArg.store(pArg, std::memory_order_release);
    g_observer.store(pfn, std::memory_order_release);
}

MDisplayHandle FeMgrCreateGDI()
{
    MDisplayHandle h = MDisplayMgrCreateGDI();
    if (g_observer.load(std::memory_order_relaxed)) {
        FrontendMgrCall c = MakeCall(kMgrOpCreate, h);
        Report(c);
    }
    return h;
}

#define FE_SIMPLE_CALL(name, op, expr)                                    \
    MRESULT name(MDisplayHandle h)                                        \
    {                                                                     \
        MRESULT r = expr;                                                 \
        if (g_observer.load(std::memory_order_relaxed)) {                 \
            FrontendMgrCall c = MakeCall(op, h);                          \
            c.result = r;                                                 \
            Report(c);                                                    \
        }                                                                 \
        return r;                                                         \
    }

FE_SIMPLE_CALL(FeMgrDelete, kMgrOpDelete, MDisplayMgrDelete(h))
FE_SIMPLE_CALL(FeMgrInit, kMgrOpInit, MDisplayMgrInit(h))
FE_SIMPLE_CALL(FeMgrUninit, kMgrOpUninit, MDisplayMgrUninit(h))
FE_SIMPLE_CALL(FeMgrUpdate, kMgrOpUpdate, MDisplayMgrUpdate(h))

MRESULT FeMgrSetShow(MDisplayHandle h, MDWord bShow)
{
    MRESULT r = MDisplayMgrSetShow(h, bShow);
    if (g_observer.load(std::memory_order_relaxed)) {
        FrontendMgrCall c = MakeCall(kMgrOpSetShow, h);
        c.dwSize = bShow;
        c.result = r;
        Report(c);
    }
    return r;
}

// A parameter call as the observer sees it.
static MRESULT ReportParam(FrontendMgrOp op, MDisplayHandle h, MDWord id, void *pValue, MDWord size, MRESULT r)
{
    if (g_observer.load(std::memory_order_relaxed)) {
        FrontendMgrCall c = MakeCall(op, h);
        c.dwParamID = id;
        c.pValue = pValue;
        c.dwSize = size;
        c.result = r;
        Report(c);
    }
    return r;
}

MRESULT FeMgrSetParam(MDisplayHandle h, MDWord id, void *pValue, MDWord size)
{
    return ReportParam(kMgrOpSetParam, h, id, pValue, size, MDisplayMgrSetParam(h, id, pValue, size));
}

MRESULT FeMgrGetParam(MDisplayHandle h, MDWord id, void *pValue, MDWord size)
{
    return ReportParam(kMgrOpGetParam, h, id, pValue, size, MDisplayMgrGetParam(h, id, pValue, size));
}

MRESULT FeMgrBlit(MDisplayHandle h, MDWord dwCSType, unsigned char **planes, MLong *strides, const ZT5Rect *pRect,
                  const ZT5Rect *pRect2, MDWord bSkipRender)
{
    MRESULT r = MDisplayMgrBlit(h, dwCSType, planes, strides, pRect, pRect2, bSkipRender);
    if (g_observer.load(std::memory_order_relaxed)) {
        FrontendMgrCall c = MakeCall(kMgrOpBlit, h);
        c.dwCSType = dwCSType;
        for (int i = 0; i < 3; ++i) {
            c.planes[i] = planes ? planes[i] : nullptr;
            c.strides[i] = strides ? strides[i] : 0;
        }
        if (pRect) c.rect = *pRect;
        c.bHasRect2 = pRect2 != nullptr;
        c.bSkipRender = bSkipRender;
        c.result = r;
        Report(c);
    }
    return r;
}

MRESULT FeMgrEraseRect(MWindowHandle hWnd, const ZT5Rect *pRect, MDWord dwColor)
{
    MRESULT r = MDisplayMgrEraseRect(hWnd, pRect, dwColor);
    if (g_observer.load(std::memory_order_relaxed)) {
        FrontendMgrCall c = MakeCall(kMgrOpEraseRect, nullptr);
        if (pRect) c.rect = *pRect;
        c.dwSize = dwColor;
        c.result = r;
        Report(c);
    }
    return r;
}
