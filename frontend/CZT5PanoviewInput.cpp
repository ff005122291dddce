// Input buffers: the frame value from the host's buffer or the shared
// memory agent. This is the one place that reads dwCSType: the layout, the
// planes with their pitches, the colours and the rotation are described
// here once, then cut to the fit-mode-5 crop and given the lens boxes, and
// go down unchanged.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "CZT5Panoview.h"
#include "MLog.h"

namespace {

// The layout of a FrameInfo.dwCSType; false for a type that isn't drawn
// (the 3- and 4-byte packed types, the output type, unknown values).
bool LayoutOf(MDWord dwCSType, FrameLayout *pLayout)
{
    switch (dwCSType) {
    case ZT5_FRAME_CS_I420:
    case ZT5_FRAME_CS_I420_B: *pLayout = FrameLayout::I420; return true;
    case ZT5_FRAME_CS_NV12: *pLayout = FrameLayout::NV12; return true;
    case ZT5_FRAME_CS_SEMIPLANAR_A:
    case ZT5_FRAME_CS_SEMIPLANAR_B:
    case ZT5_FRAME_CS_SEMIPLANAR_C: *pLayout = FrameLayout::NV21; return true;
    case ZT5_FRAME_CS_YUYV: *pLayout = FrameLayout::YUYV; return true;
    case ZT5_FRAME_CS_UYVY: *pLayout = FrameLayout::UYVY; return true;
    case ZT5_FRAME_CS_I010: *pLayout = FrameLayout::I010; return true;
    case ZT5_FRAME_CS_P010: *pLayout = FrameLayout::P010; return true;
    default: return false;
    }
}

} // namespace

// The frame of this call, from pBuffer (the planes follow each other
// tightly) or from the agent's buffer that isn't busy (its own pitches).
// False when there is nothing to draw: a type without a layout, no planes.
bool CZT5Panoview::DescribeFrame(void *pBuffer)
{
    const MDWord w = m_FrameInfo.dwWidth;
    const MDWord h = m_FrameInfo.dwHeight;
    VideoFrame f;
    if (!LayoutOf(m_FrameInfo.dwCSType, &f.layout)) return false;
    f.width = w;
    f.height = h;
    f.rotation = m_FrameInfo.dwRotation;
    f.colour.matrix = uint8_t(m_dwYuvMatrix & 0xFF);
    f.colour.bFullRange = (m_dwYuvMatrix & ZT5_YUV_RANGE_FULL) != 0;

    const bool bSemiPlanar = f.layout == FrameLayout::NV12 || f.layout == FrameLayout::NV21 ||
                             f.layout == FrameLayout::P010;
    if (m_pSharedMemAgent && !pBuffer) {
        const ZT5SharedMemAgent *a = m_pSharedMemAgent;
        if (a->dwBusy0 == 0) {
            for (int i = 0; i < 3; ++i) m_AgentPlanes[i] = a->pPlane0[i];
        } else if (a->dwBusy1 == 0) {
            for (int i = 0; i < 3; ++i) m_AgentPlanes[i] = a->pPlane1[i];
        }
        // Both busy: the agent's last planes are shown again.
        f.plane[0] = {m_AgentPlanes[0], a->dwYStride};
        if (bSemiPlanar) {
            // Plane 1 and 2 point at the first U and the first V byte of the
            // pair rows; the rows start at the earlier one. The V-first types
            // read their pairs at the luma pitch.
            const uint8_t *u = m_AgentPlanes[1], *v = m_AgentPlanes[2];
            const uint8_t *first = (u && v) ? std::min(u, v) : (u ? u : v);
            f.plane[1] = {first, f.layout == FrameLayout::NV21 ? a->dwYStride : a->dwUVStride};
        } else if (f.PlaneCount() == 3) {
            f.plane[1] = {m_AgentPlanes[1], a->dwUVStride};
            f.plane[2] = {m_AgentPlanes[2], a->dwUVStride};
        }
    } else {
        // The frame lies in pBuffer, tightly: rows as long as the layout's,
        // 4:2:0 chroma planes of w*h/4 samples each (one chroma row pitch
        // per two luma rows), pairs at the luma row's pitch.
        const uint8_t *p = static_cast<const uint8_t *>(pBuffer);
        const size_t wh = size_t(w) * h;
        if (!p) return false;
        switch (f.layout) {
        case FrameLayout::I420:
            f.plane[0] = {p, w};
            f.plane[1] = {p + wh, w / 2};
            f.plane[2] = {p + wh + wh / 4, w / 2};
            break;
        case FrameLayout::NV12:
        case FrameLayout::NV21:
            f.plane[0] = {p, w};
            f.plane[1] = {p + wh, w};
            break;
        case FrameLayout::YUYV:
        case FrameLayout::UYVY: f.plane[0] = {p, f.RowBytes(0)}; break;
        case FrameLayout::I010:
            f.plane[0] = {p, 2 * size_t(w)};
            f.plane[1] = {p + 2 * wh, f.RowBytes(1)};
            f.plane[2] = {p + 2 * wh + f.RowBytes(1) * f.Shape(1).rows, f.RowBytes(1)};
            break;
        case FrameLayout::P010:
            f.plane[0] = {p, 2 * size_t(w)};
            f.plane[1] = {p + 2 * wh, 2 * size_t(w)};
            break;
        }
    }
    m_Frame = f;
    return true;
}

// Fit mode 5 shows the middle of a frame that covers the clip; the part of
// the frame that stands out is cut off here, and the manager is told a
// frame of the crop's size.
MRESULT CZT5Panoview::ApplyCoverCrop(ZT5Rect &rtPicture)
{
    const MLong W = (MLong)m_FrameInfo.dwWidth;
    const MLong H = (MLong)m_FrameInfo.dwHeight;
    const MLong sw = m_lUserWidth >= 1 ? m_lUserWidth : W;
    const MLong sh = m_lUserHeight >= 1 ? m_lUserHeight : H;
    const MLong vw = m_Viewport.lWidth;
    const MLong vh = m_Viewport.lHeight;

    MLong cropL = 0, cropR = sw, cropT = 0, cropB = sh;
    if (m_lResampleW > vw && m_lResampleW > 0 && vw >= 0) {
        MLong cropW = (MLong)((double)sw / (double)m_lResampleW * (double)vw);
        cropL = (sw - cropW) / 2;
        cropR = cropW + cropL;
    }
    if (m_lResampleH > vh && m_lResampleH > 0 && vh >= 0) {
        MLong cropH = (MLong)((double)sh / (double)m_lResampleH * (double)vh);
        cropT = (sh - cropH) / 2;
        cropB = cropH + cropT;
    }
    // A user source size may be larger than the frame: the crop never
    // leaves the frame.
    cropL = std::max<MLong>(0, std::min(cropL, W));
    cropT = std::max<MLong>(0, std::min(cropT, H));
    cropR = std::max(cropL, std::min(cropR, W));
    cropB = std::max(cropT, std::min(cropB, H));
    const MLong cw = cropR - cropL;
    const MLong ch = cropB - cropT;

    rtPicture.left = rtPicture.top = 0;
    rtPicture.right = cw;
    rtPicture.bottom = ch;

    if (cw <= 0 || ch <= 0) {
        // Nothing of the frame is left to show: no plane goes down.
        m_Frame.plane[0].data = nullptr;
    } else {
        m_Frame = m_Frame.Cut((uint32_t)cropL, (uint32_t)cropT, (uint32_t)cw, (uint32_t)ch);
    }

    ZT5FrameInfo info = m_FrameInfo;
    if (cw != W || ch != H) {
        info.dwWidth = (MDWord)cw;
        info.dwHeight = (MDWord)ch;
        info.dwSliceHeight = (MDWord)ch;
    }
    if (std::memcmp(&m_MgrFrameInfo, &info, sizeof(info)) != 0) SendMgrFrameInfo(info);
    return 0;
}

// The square (or, for a view that takes one, the rectangle) that holds the
// lens circle, from the fisheye parameter in ten-thousandths of the picture.
// The box always lies inside the picture rectangle.
FrameBox CZT5Panoview::LensBoxIn(const ZT5Rect &rtPicture, bool bRectangle) const
{
    const int64_t W = std::max<int64_t>(0, (int64_t)rtPicture.right - rtPicture.left);
    const int64_t H = std::max<int64_t>(0, (int64_t)rtPicture.bottom - rtPicture.top);

    // Float products as the lens parameter is given; kept in range before
    // they become integers.
    auto toInt = [](double v) -> int64_t {
        if (!(v == v)) return 0;
        v = std::max(-4.0e9, std::min(4.0e9, v));
        return (int64_t)v;
    };
    const int64_t cx = toInt((double)((float)m_FishEyeParam.lCenterX / 10000.0f * (float)W) + 0.5);
    const int64_t cy = toInt((double)((float)m_FishEyeParam.lCenterY / 10000.0f * (float)H) + 0.5);
    int64_t rx = toInt((double)((float)m_FishEyeParam.lRadiusX / 10000.0f * (float)W));
    int64_t ry = toInt((double)((float)m_FishEyeParam.lRadiusY / 10000.0f * (float)H));
    if (rx < 0) rx = 0;
    if (ry < 0) ry = 0;

    int64_t startX = cx >= rx ? cx - rx : 0;
    int64_t startY = cy >= ry ? cy - ry : 0;
    int64_t feW = 2 * (rx & ~(int64_t)3);
    int64_t feH = 2 * (ry & ~(int64_t)3);
    if (startX == 0 && cx == 0 && W > H) startX = (W - H) / 2;

    if (feW == 0 || feH == 0) {
        feH = H;
        feW = bRectangle ? W : H;
    }
    if (!bRectangle) feW = feH = std::min(feW, feH);

    // A box larger than the picture is cut to it (keeping the size a
    // multiple of 8 where it can), and a box that reaches past the right or
    // bottom edge is moved back in. With no lens set, a rectangle thus takes
    // the whole picture rather than a box that starts at the centring
    // offset and runs past the right edge.
    if (feW > W || feH > H) {
        feW = std::min(feW, W);
        feH = std::min(feH, H);
        if (!bRectangle) feW = feH = std::min(feW, feH);
        if (feW >= 8) feW &= ~(int64_t)7;
        if (feH >= 8) feH &= ~(int64_t)7;
    }
    startX = std::min(std::max<int64_t>(startX, 0), W - feW);
    startY = std::min(std::max<int64_t>(startY, 0), H - feH);
    return FrameBox{(uint32_t)startX, (uint32_t)startY, (uint32_t)feW, (uint32_t)feH};
}

void CZT5Panoview::SetLensBoxes(const ZT5Rect &rtPicture)
{
    m_rtLensPicture = rtPicture;
    m_Frame.lensSquare = LensBoxIn(rtPicture, false);
    m_Frame.lensRectangle = LensBoxIn(rtPicture, true);
    const bool bRectangle = MDisplayMgrLensBoxIsRectangle(m_Settings.lFishEyeMode) != 0;
    const FrameBox &b = bRectangle ? m_Frame.lensRectangle : m_Frame.lensSquare;
    m_dwFEStartX = b.x;
    m_dwFEStartY = b.y;
    m_dwFEWidth = b.w;
    m_dwFEHeight = b.h;
}

// The lens circle or the colours changed: the frame the display keeps is
// described anew and drawn at once, without waiting for the next frame.
void CZT5Panoview::RedescribeKeptFrame()
{
    if (!m_hCurDisplay || m_rtLensPicture.right <= m_rtLensPicture.left) return;
    SetLensBoxes(m_rtLensPicture);
    m_Frame.colour.matrix = uint8_t(m_dwYuvMatrix & 0xFF);
    m_Frame.colour.bFullRange = (m_dwYuvMatrix & ZT5_YUV_RANGE_FULL) != 0;
    MDisplayMgrRecut(m_hCurDisplay, &m_Frame.lensSquare, &m_Frame.lensRectangle, &m_Frame.colour);
}
