// Picture geometry: the rectangles of the window, the fit modes, the zoom
// ratio, the corner correction and the viewport that goes to the manager.
//
// The arithmetic is that of 32-bit integers. It is carried out in 64 bits
// so that a hostile size can't overflow silently: any product or result
// that would not fit in 32 bits marks the computation as failed, and the
// frame is refused with ZT5_ERR_INVALID_PARAM. For every size that fits,
// the results are exactly those of the 32-bit arithmetic.
#include <algorithm>
#include <cstdint>
#include <cstring>

#include "CZT5Panoview.h"
#include "MLog.h"

namespace {

struct Arith {
    bool bad = false;
    int64_t chk(int64_t v)
    {
        if (v > INT32_MAX || v < INT32_MIN) bad = true;
        return v;
    }
    // A failed computation goes on with the numbers it has, which may lie
    // far outside 32 bits: their product may not even fit in 64.
    int64_t mul(int64_t a, int64_t b)
    {
        int64_t v;
        if (__builtin_mul_overflow(a, b, &v)) {
            bad = true;
            return 0;
        }
        return chk(v);
    }
    int64_t div(int64_t a, int64_t b)
    {
        if (b == 0) {
            bad = true;
            return 0;
        }
        return a / b; // truncates toward zero
    }
};

inline int64_t even(int64_t x) { return x & ~(int64_t)1; }
inline int64_t atLeast1(int64_t x) { return x > 1 ? x : 1; }
inline int64_t widthOf(const ZT5Rect &r) { return (int64_t)r.right - r.left; }
inline int64_t heightOf(const ZT5Rect &r) { return (int64_t)r.bottom - r.top; }

bool RectInRange(const ZT5Rect &r)
{
    const int64_t m = PANOVIEW_MAX_RECT_COORD;
    return r.left >= -m && r.left <= m && r.right >= -m && r.right <= m && r.top >= -m && r.top <= m &&
           r.bottom >= -m && r.bottom <= m && widthOf(r) <= PANOVIEW_MAX_RECT_SIDE &&
           heightOf(r) <= PANOVIEW_MAX_RECT_SIDE;
}

// Largest amount, in steps of 2, to take from 'size' so that pos + size
// no longer exceeds 'limit'.
inline int64_t ShrinkBy2(int64_t pos, int64_t size, int64_t limit)
{
    int64_t excess = pos + size - limit;
    if (excess <= 0) return size;
    return size - 2 * ((excess + 1) / 2);
}

uint64_t Gcd(uint64_t a, uint64_t b)
{
    while (b) {
        uint64_t t = a % b;
        a = b;
        b = t;
    }
    return a;
}

uint64_t Lcm(uint64_t a, uint64_t b)
{
    uint64_t g = Gcd(a, b);
    return g ? a * b / g : 0;
}

} // namespace

MRESULT CZT5Panoview::CheckDisplayRects()
{
    ZT5Rect &scr = m_DisplayParam.rtScreen;
    ZT5Rect &clip = m_DisplayParam.rtClip;
    // A rectangle without a positive width and height is empty; a reversed
    // one would give a negative size to everything below.
    auto isEmpty = [](const ZT5Rect &r) { return widthOf(r) <= 0 || heightOf(r) <= 0; };

    const bool screenEmpty = isEmpty(scr);
    if (isEmpty(clip)) clip = scr;
    if (screenEmpty) scr = clip;
    if (isEmpty(scr) || isEmpty(clip)) return ZT5_ERR_INVALID_PARAM;
    if (!RectInRange(scr) || !RectInRange(clip)) return ZT5_ERR_INVALID_PARAM;
    if (clip.left >= scr.right || clip.right <= scr.left || clip.top >= scr.bottom || clip.bottom <= scr.top)
        return ZT5_ERR_INVALID_PARAM;
    return 0;
}

void CZT5Panoview::CalcShowRect()
{
    const ZT5Rect &a = m_DisplayParam.rtScreen;
    const ZT5Rect &b = m_DisplayParam.rtClip;
    m_rtShow.left = std::max(a.left, b.left);
    m_rtShow.top = std::max(a.top, b.top);
    m_rtShow.right = std::min(a.right, b.right);
    m_rtShow.bottom = std::min(a.bottom, b.bottom);
}

namespace {

// What every fit routine starts from.
struct FitInput {
    int64_t cw, ch;     // clip size
    int64_t dispW, dispH;
    int64_t A, B, S, T; // source size (user or frame) and frame size, turned
    bool turned;
    MDWord rot;
};

FitInput StartFit(const ZT5Rect &clip, const ZT5FrameInfo &f, MLong userW, MLong userH, MDWord userRot)
{
    FitInput in;
    in.cw = widthOf(clip);
    in.ch = heightOf(clip);
    in.dispW = userW >= 1 ? userW : (int64_t)f.dwWidth;
    in.dispH = userH >= 1 ? userH : (int64_t)f.dwHeight;
    in.rot = (MDWord)(userRot + f.dwRotation) % 360u;
    in.turned = in.rot == 90 || in.rot == 270;
    in.A = in.dispW;
    in.B = in.dispH;
    in.S = f.dwWidth;
    in.T = f.dwHeight;
    if (in.turned) {
        std::swap(in.A, in.B);
        std::swap(in.S, in.T);
    }
    return in;
}

// Steps 1 to 5 of the centred fit: the zoomed source, made smaller when it
// doesn't fit, in the source's proportions, with the achieved ratio kept.
void FitInCenterSize(Arith &ar, const FitInput &in, MDWord dwZoom, MDWord &dwZoomNum, MDWord &dwZoomDen, int64_t &w,
                     int64_t &h)
{
    const int64_t A = in.A, B = in.B, S = in.S, T = in.T, cw = in.cw, ch = in.ch;
    bool byHeight = false;
    if (A > cw || B > ch) {
        if (ar.mul(A, ch) <= ar.mul(B, cw)) {
            w = atLeast1(ar.div(ar.mul(A, ch), B));
            h = ch;
            byHeight = true;
        } else {
            w = cw;
            h = atLeast1(ar.div(ar.mul(B, cw), A));
        }
    } else {
        if (dwZoomNum) {
            w = ar.div(ar.mul(dwZoomNum, A), dwZoomDen);
            h = ar.div(ar.mul(dwZoomNum, B), dwZoomDen);
        } else {
            w = ar.div(ar.mul(dwZoom, A), 100);
            h = ar.div(ar.mul(dwZoom, B), 100);
        }
        if (w > cw || h > ch) {
            if (ar.mul(w, ch) <= ar.mul(h, cw)) {
                w = atLeast1(ar.div(ar.mul(w, ch), h));
                h = ch;
                byHeight = true;
            } else {
                h = atLeast1(ar.div(ar.mul(h, cw), w));
                w = cw;
            }
        }
    }
    if (A != S || B != T) {
        if (A < S || B < T) {
            int64_t p, q;
            if (ar.mul(S, B) <= ar.mul(T, A)) {
                p = atLeast1(ar.div(ar.mul(S, B), T));
                q = B;
            } else {
                p = A;
                q = atLeast1(ar.div(ar.mul(T, A), S));
            }
            w = ar.div(ar.mul(p, w), A);
            h = ar.div(ar.mul(q, h), B);
        } else {
            w = ar.div(ar.mul(S, w), A);
            h = ar.div(ar.mul(T, h), B);
        }
    }
    w = even(w);
    h = even(h);
    if (ar.bad) return;
    if (byHeight) {
        if (B != 0) {
            dwZoomNum = (MDWord)h;
            dwZoomDen = (MDWord)B;
        }
    } else if (A != 0) {
        dwZoomNum = (MDWord)w;
        dwZoomDen = (MDWord)A;
    }
}

} // namespace

MRESULT CZT5Panoview::CalcDisplayGeometry(const ZT5FrameInfo *pFrameInfo)
{
    if (!pFrameInfo) return ZT5_ERR_INVALID_PARAM;
    Arith ar;
    const FitInput in = StartFit(m_DisplayParam.rtClip, *pFrameInfo, m_lUserWidth, m_lUserHeight, m_dwUserRotation);
    const int64_t cw = in.cw, ch = in.ch;
    if (cw <= 0 || ch <= 0 || in.dispW <= 0 || in.dispH <= 0) return ZT5_ERR_INVALID_PARAM;

    const int64_t L = m_rtShow.left, P = m_rtShow.top;
    const int64_t aw = widthOf(m_rtShow), ah = heightOf(m_rtShow);

    int64_t w = 0, h = 0, rw = 0, rh = 0;
    int64_t left = 0, top = 0, right = 0, bottom = 0;
    bool halveAsInteger = false;
    bool cover = false;
    MDWord zoomNum = m_dwZoomNum, zoomDen = m_dwZoomDen;

    switch (m_dwFitMode) {
    case 1: { // UpscaleFitInCenterCrop
        int64_t a, b;
        switch (pFrameInfo->dwAspectRatio) {
        case 1: a = 4, b = 3; break;
        case 2: a = 16, b = 9; break;
        case 4: a = 24, b = 10; break;
        case 5: a = 9, b = 16; break;
        default: a = in.dispW, b = in.dispH; break;
        }
        if (in.turned) std::swap(a, b);
        if (ar.mul(a, ch) <= ar.mul(b, cw)) {
            w = atLeast1(ar.div(ar.chk(ar.mul(a, ch) + b / 2), b));
            h = ch;
        } else {
            w = cw;
            h = atLeast1(ar.div(ar.chk(ar.mul(b, cw) + a / 2), a));
        }
        if (in.dispW != in.S || in.dispH != in.T) {
            w = ar.div(ar.mul(in.S, w), in.dispW);
            h = ar.div(ar.mul(in.T, h), in.dispH);
        }
        w = even(w);
        h = even(h);
        rw = w, rh = h;
        if (in.turned) std::swap(rw, rh);
        break;
    }
    case 2: { // FitInCenterFixedCif
        if ((in.A == 352 && in.B == 288) || (in.A == 176 && in.B == 144)) {
            w = 352;
            h = 288;
        } else if (ar.mul(in.A, ch) <= ar.mul(in.B, cw)) {
            w = atLeast1(ar.div(ar.mul(in.A, ch), in.B));
            h = ch;
        } else {
            w = cw;
            h = atLeast1(ar.div(ar.mul(in.B, cw), in.A));
        }
        if (in.A != in.S || in.B != in.T) {
            w = ar.div(ar.mul(in.S, w), in.A);
            h = ar.div(ar.mul(in.T, h), in.B);
        }
        w = even(w);
        h = even(h);
        rw = w, rh = h; // not swapped, also when turned
        break;
    }
    case 4: // StretchToClip
        w = even(cw);
        h = even(ch);
        rw = w, rh = h;
        if (in.turned) std::swap(rw, rh);
        break;
    case 5: // CoverClip
        if (ar.mul(in.A, ch) <= ar.mul(in.B, cw)) {
            w = cw;
            h = atLeast1(ar.div(ar.mul(in.B, cw), in.A));
        } else {
            w = atLeast1(ar.div(ar.mul(in.A, ch), in.B));
            h = ch;
        }
        if (in.A != in.S || in.B != in.T) {
            w = ar.div(ar.mul(in.S, w), in.A);
            h = ar.div(ar.mul(in.T, h), in.B);
        }
        w = even(w);
        h = even(h);
        rw = w, rh = h;
        if (in.turned) std::swap(rw, rh);
        cover = true;
        break;
    default: // FitInCenter
        FitInCenterSize(ar, in, m_dwZoom, zoomNum, zoomDen, w, h);
        rw = w, rh = h;
        if (in.turned) std::swap(rw, rh);
        halveAsInteger = true;
        break;
    }

    if (cover) {
        left = L;
        top = P;
        right = w <= aw ? L + even(aw) : L + aw;
        bottom = h > ah ? P + ah : P + even(ah);
    } else {
        if (w <= aw) {
            if (halveAsInteger)
                left = L + (aw - w) / 2;
            else
                left = (int64_t)((float)L + (float)((double)(aw - w) * 0.5));
            right = left + w;
        } else {
            left = L;
            right = L + even(aw);
        }
        if (h <= ah) {
            top = P + (ah - h) / 2;
            bottom = top + h;
        } else {
            top = P;
            bottom = P + even(ah);
        }
    }

    // Corner correction: corners are kept even. A picture moved one pixel
    // to the right (or down) loses 2 pixels of resample size for each 2 it
    // would stand out of the show rectangle.
    const bool turned = in.rot == 90 || in.rot == 270;
    if (left & 1) {
        left += 1;
        if (turned) {
            rw = ShrinkBy2(top, rw, m_rtShow.bottom);
            right = left + rh;
        } else {
            rw = ShrinkBy2(left, rw, m_rtShow.right);
            right = left + rw;
        }
    }
    if (top & 1) {
        top += 1;
        if (turned) {
            rh = ShrinkBy2(left, rh, m_rtShow.right);
            bottom = top + rw;
        } else {
            rh = ShrinkBy2(top, rh, m_rtShow.bottom);
            bottom = top + rh;
        }
    }

    ar.chk(left), ar.chk(top), ar.chk(right), ar.chk(bottom), ar.chk(rw), ar.chk(rh);
    if (ar.bad) {
        MLogInfo("[%s]CZT5Panoview::CalcDisplayGeometry, sizes out of range (%ux%u).\r\n", MLOG_TAG,
                 pFrameInfo->dwWidth, pFrameInfo->dwHeight);
        return ZT5_ERR_INVALID_PARAM;
    }

    m_lTotalRotation = (MLong)in.rot;
    m_dwZoomNum = zoomNum;
    m_dwZoomDen = zoomDen;
    m_lResampleW = (MLong)rw;
    m_lResampleH = (MLong)rh;
    m_rtShowRegion.left = (MLong)left;
    m_rtShowRegion.top = (MLong)top;
    m_rtShowRegion.right = (MLong)right;
    m_rtShowRegion.bottom = (MLong)bottom;
    return 0;
}

MRESULT CZT5Panoview::CalcZoomState()
{
    if (!m_FrameInfo.dwWidth || !m_FrameInfo.dwHeight) return 0;
    if (m_FrameInfo.dwWidth > PANOVIEW_MAX_FRAME_SIDE || m_FrameInfo.dwHeight > PANOVIEW_MAX_FRAME_SIDE)
        return ZT5_ERR_INVALID_PARAM;
    Arith ar;
    const FitInput in = StartFit(m_DisplayParam.rtClip, m_FrameInfo, m_lUserWidth, m_lUserHeight, m_dwUserRotation);
    if (in.dispW <= 0 || in.dispH <= 0) return ZT5_ERR_INVALID_PARAM;
    MDWord num = m_dwZoomNum, den = m_dwZoomDen;
    int64_t w = 0, h = 0;
    FitInCenterSize(ar, in, m_dwZoom, num, den, w, h);
    if (ar.bad) return ZT5_ERR_INVALID_PARAM;
    m_dwZoomNum = num;
    m_dwZoomDen = den;
    m_lTotalRotation = (MLong)in.rot;
    return 0;
}

MRESULT CZT5Panoview::QueryDisplayAlign(MDisplayHandle h, MDWord *pAlignX, MDWord *pAlignY)
{
    if (!h) return 1;
    MDisplayCaps caps;
    std::memset(&caps, 0, sizeof(caps));
    if (MDisplayMgrGetParam(h, M_DISPLAY_PARAM_CAPS, &caps, 32) != 0) return 1;

    // An empty viewport is only an announcement to the manager.
    ZT5Viewport vp;
    std::memset(&vp, 0, sizeof(vp));
    vp.dwOrientationMode = m_dwOrientationMode;
    if (MDisplayMgrSetParam(h, M_DISPLAY_PARAM_VIEWPORT, &vp, 56) != 0) return 1;
    if (MDisplayMgrGetParam(h, M_DISPLAY_PARAM_VIEWPORT, &vp, 56) != 0) return 1;

    if (vp.dwRotation == vp.dwReserved[1]) { // word 9 of the record
        *pAlignX = caps.dwAlignX;
        *pAlignY = caps.dwAlignY;
    } else {
        *pAlignX = caps.dwAlignY;
        *pAlignY = caps.dwAlignX;
    }
    return 0;
}

MRESULT CZT5Panoview::UpdateDisplayParam()
{
    MDWord lowX = 0, lowY = 0, highX = 0, highY = 0;
    QueryDisplayAlign(m_hDisplayLow, &lowX, &lowY);
    QueryDisplayAlign(m_hDisplayHigh, &highX, &highY);
    const uint64_t stepX = Lcm(std::max(lowX, highX), 4);
    const uint64_t stepY = Lcm(std::max(lowY, highY), 4);
    // Without a handle there is no alignment to work with.
    if (stepX == 0 || stepY == 0 || stepX > PANOVIEW_MAX_RECT_SIDE || stepY > PANOVIEW_MAX_RECT_SIDE) return 1;

    std::memset(&m_Viewport, 0, sizeof(m_Viewport));
    m_Viewport.dwOrientationMode = m_dwOrientationMode;
    const ZT5Rect &d = m_rtDstShow;
    const int64_t dw = std::max<int64_t>(0, widthOf(d));
    const int64_t dh = std::max<int64_t>(0, heightOf(d));
    const int64_t vw = (int64_t)((uint64_t)dw / stepX * stepX);
    const int64_t vh = (int64_t)((uint64_t)dh / stepY * stepY);
    m_Viewport.lWidth = (MLong)vw;
    m_Viewport.lHeight = (MLong)vh;
    m_Viewport.lLeft = (MLong)even(d.left + 1 + (d.right - vw - d.left) / 2);
    m_Viewport.lTop = (MLong)even(d.top + 1 + (d.bottom - vh - d.top) / 2);
    m_Viewport.hWnd = m_DisplayParam.hWnd;
    m_Viewport.dwRotation = (MDWord)m_lTotalRotation;
    m_Viewport.dwResizeAlg = m_dwResizeAlg;

    MDWord bFullScreen = m_bFullScreen;
    MDisplayMgrSetParam(m_hCurDisplay, M_DISPLAY_PARAM_FULLSCREEN, &bFullScreen, 4);
    if (MDisplayMgrSetParam(m_hCurDisplay, M_DISPLAY_PARAM_VIEWPORT, &m_Viewport, 56) != 0) return 1;

    MDWord *pNeedsInit = nullptr;
    if (m_hCurDisplay == m_hDisplayLow)
        pNeedsInit = &m_bLowNeedsInit;
    else if (m_hCurDisplay == m_hDisplayHigh)
        pNeedsInit = &m_bHighNeedsInit;
    if (pNeedsInit && *pNeedsInit) {
        MDisplayMgrInit(m_hCurDisplay);
        *pNeedsInit = 0;
    } else {
        MDisplayMgrUpdate(m_hCurDisplay);
    }

    if (MDisplayMgrGetParam(m_hCurDisplay, M_DISPLAY_PARAM_VIEWPORT, &m_Viewport, 56) != 0) return 1;
    return 0;
}
