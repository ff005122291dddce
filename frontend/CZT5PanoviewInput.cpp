// Input buffers: plane pointers and strides from the host's buffer or the
// shared memory agent, the colour-space id, the fit-mode-5 crop and the
// lens box that goes to the manager before each blit.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "CZT5Panoview.h"
#include "MLog.h"

namespace {

// dwCSType flag -> colour-space id; -1 for a flag without one.
MDWord CSTypeToId(MDWord dwCSType)
{
    switch (dwCSType) {
    case ZT5_FRAME_CS_I420: return ZT5_CS_I420;
    case ZT5_FRAME_CS_I420_B: return ZT5_CS_I420_B;
    case ZT5_FRAME_CS_SEMIPLANAR_A: return ZT5_CS_SEMIPLANAR_A;
    case ZT5_FRAME_CS_SEMIPLANAR_B: return ZT5_CS_SEMIPLANAR_B;
    case ZT5_FRAME_CS_SEMIPLANAR_C: return ZT5_CS_SEMIPLANAR_C;
    case ZT5_FRAME_CS_PACKED2: return ZT5_CS_PACKED2;
    case ZT5_FRAME_CS_PACKED3: return ZT5_CS_PACKED3;
    case ZT5_FRAME_CS_PACKED4_A: return ZT5_CS_PACKED4_A;
    case ZT5_FRAME_CS_PACKED4_B: return ZT5_CS_PACKED4_B;
    case ZT5_FRAME_CS_OUTPUT: return ZT5_CS_OUTPUT;
    case ZT5_FRAME_CS_NV12: return ZT5_CS_NV12;
    default: return 0xFFFFFFFFu;
    }
}

bool IsPlanar420(MDWord cs) { return cs == ZT5_CS_I420 || cs == ZT5_CS_I420_B; }
bool IsSemiPlanar(MDWord cs)
{
    return cs == ZT5_CS_SEMIPLANAR_A || cs == ZT5_CS_SEMIPLANAR_B || cs == ZT5_CS_SEMIPLANAR_C || cs == ZT5_CS_NV12;
}
int PackedBytes(MDWord cs)
{
    switch (cs) {
    case ZT5_CS_PACKED2: return 2;
    case ZT5_CS_PACKED3: return 3;
    case ZT5_CS_PACKED4_A:
    case ZT5_CS_PACKED4_B: return 4;
    default: return 0;
    }
}

} // namespace

void CZT5Panoview::SetInputData(void *pBuffer)
{
    const MDWord w = m_FrameInfo.dwWidth;
    const MDWord h = m_FrameInfo.dwHeight;
    m_InputYuvBuf.lWidth = (MLong)w;
    m_InputYuvBuf.lHeight = (MLong)h;

    if (m_pSharedMemAgent && !pBuffer) {
        const ZT5SharedMemAgent *a = m_pSharedMemAgent;
        if (a->dwBusy0 == 0) {
            for (int i = 0; i < 3; ++i) m_InputYuvBuf.pPlane[i] = a->pPlane0[i];
            m_bPlanesFromAgent = 1;
        } else if (a->dwBusy1 == 0) {
            for (int i = 0; i < 3; ++i) m_InputYuvBuf.pPlane[i] = a->pPlane1[i];
            m_bPlanesFromAgent = 1;
        } else if (!m_bPlanesFromAgent) {
            // Both buffers busy: the last agent planes are shown again. Planes
            // of an earlier DrawFrame buffer are the host's no longer.
            for (int i = 0; i < 3; ++i) m_InputYuvBuf.pPlane[i] = nullptr;
        }
        m_InputYuvBuf.lStride = (MLong)a->dwYStride;
        m_InputYuvBuf.lUVStride = (MLong)a->dwUVStride;
        m_pPackedBuf = m_InputYuvBuf.pPlane[0];
        return;
    }

    // The frame lies in pBuffer; the agent plays no part. Planes that this
    // buffer doesn't give are cleared so that nothing points into the
    // memory of an earlier call.
    unsigned char *p = static_cast<unsigned char *>(pBuffer);
    const size_t wh = (size_t)w * h;
    m_bPlanesFromAgent = 0;
    m_pPackedBuf = nullptr;
    switch (m_FrameInfo.dwCSType) {
    case ZT5_FRAME_CS_I420:
    case ZT5_FRAME_CS_I420_B:
        m_InputYuvBuf.pPlane[0] = p;
        m_InputYuvBuf.pPlane[1] = p ? p + wh : nullptr;
        m_InputYuvBuf.pPlane[2] = p ? p + wh + wh / 4 : nullptr;
        m_InputYuvBuf.lStride = (MLong)w;
        m_InputYuvBuf.lUVStride = (MLong)(w / 2);
        break;
    case ZT5_FRAME_CS_SEMIPLANAR_A:
    case ZT5_FRAME_CS_SEMIPLANAR_B:
    case ZT5_FRAME_CS_SEMIPLANAR_C:
        m_InputYuvBuf.pPlane[0] = p;
        m_InputYuvBuf.pPlane[2] = p ? p + wh : nullptr;
        m_InputYuvBuf.pPlane[1] = p ? p + wh + 1 : nullptr;
        m_InputYuvBuf.lStride = (MLong)w;
        break;
    case ZT5_FRAME_CS_NV12:
        // U first: plane 1 is the first byte of the pair rows, plane 2 the
        // byte behind it. The pair rows are as long as a luma row.
        m_InputYuvBuf.pPlane[0] = p;
        m_InputYuvBuf.pPlane[1] = p ? p + wh : nullptr;
        m_InputYuvBuf.pPlane[2] = p ? p + wh + 1 : nullptr;
        m_InputYuvBuf.lStride = (MLong)w;
        m_InputYuvBuf.lUVStride = (MLong)w;
        break;
    case ZT5_FRAME_CS_PACKED2:
        m_InputYuvBuf.pPlane[0] = p;
        m_InputYuvBuf.pPlane[1] = nullptr;
        m_InputYuvBuf.pPlane[2] = nullptr;
        m_InputYuvBuf.lStride = (MLong)(2 * w);
        break;
    case ZT5_FRAME_CS_PACKED3:
    case ZT5_FRAME_CS_PACKED4_A:
    case ZT5_FRAME_CS_PACKED4_B:
        m_pPackedBuf = p;
        for (int i = 0; i < 3; ++i) m_InputYuvBuf.pPlane[i] = nullptr;
        break;
    default:
        for (int i = 0; i < 3; ++i) m_InputYuvBuf.pPlane[i] = nullptr;
        break;
    }
}

MDWord CZT5Panoview::SetupBlitPlanes()
{
    const MDWord srcCS = CSTypeToId(m_FrameInfo.dwCSType);
    const MDWord w = m_FrameInfo.dwWidth;
    if (IsPlanar420(srcCS)) {
        for (int i = 0; i < 3; ++i) m_BlitPlanes[i] = m_InputYuvBuf.pPlane[i];
        m_BlitStrides[0] = m_InputYuvBuf.lStride;
        m_BlitStrides[1] = m_BlitStrides[2] = m_InputYuvBuf.lUVStride;
    } else if (srcCS == ZT5_CS_NV12) {
        // The pair rows keep a pitch of their own (a decoder's chroma
        // plane may be padded differently from its luma plane).
        for (int i = 0; i < 3; ++i) m_BlitPlanes[i] = m_InputYuvBuf.pPlane[i];
        m_BlitStrides[0] = m_InputYuvBuf.lStride;
        m_BlitStrides[1] = m_BlitStrides[2] = m_InputYuvBuf.lUVStride;
    } else if (IsSemiPlanar(srcCS)) {
        for (int i = 0; i < 3; ++i) m_BlitPlanes[i] = m_InputYuvBuf.pPlane[i];
        m_BlitStrides[0] = m_BlitStrides[1] = m_BlitStrides[2] = m_InputYuvBuf.lStride;
    } else if (srcCS == ZT5_CS_PACKED2) {
        for (int i = 0; i < 3; ++i) m_BlitPlanes[i] = m_InputYuvBuf.pPlane[i];
        m_BlitStrides[0] = m_InputYuvBuf.lStride;
        m_BlitStrides[1] = m_BlitStrides[2] = 0;
    } else if (srcCS == ZT5_CS_PACKED3) {
        m_BlitPlanes[0] = m_pPackedBuf;
        m_BlitPlanes[1] = m_BlitPlanes[2] = nullptr;
        m_BlitStrides[0] = (MLong)(3 * w);
        m_BlitStrides[1] = m_BlitStrides[2] = 0;
    } else if (srcCS == ZT5_CS_PACKED4_A || srcCS == ZT5_CS_PACKED4_B) {
        m_BlitPlanes[0] = m_pPackedBuf;
        m_BlitPlanes[1] = m_BlitPlanes[2] = nullptr;
        m_BlitStrides[0] = (MLong)(4 * w);
        m_BlitStrides[1] = m_BlitStrides[2] = 0;
    } else {
        // No layout for this colour space: no plane goes down, so the
        // manager reads nothing (it answers 0 for a frame without planes).
        for (int i = 0; i < 3; ++i) {
            m_BlitPlanes[i] = nullptr;
            m_BlitStrides[i] = 0;
        }
    }
    return srcCS;
}

// Fit mode 5 shows the middle of a frame that covers the clip; the part of
// the frame that stands out is cut off here. The planes are moved to the
// crop's first pixel, the strides stay those of the frame, and the manager
// is told a frame of the crop's size. Its copy then reads the crop's rows
// at the frame's row pitch and nothing around them. (Even a copy that took
// the rows as tightly packed at the crop's width would stay inside the
// frame: it reads no more than width * height bytes from the moved start.)
MRESULT CZT5Panoview::ApplyCoverCrop(MDWord srcCS, ZT5Rect &rtPicture)
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
        for (int i = 0; i < 3; ++i) m_BlitPlanes[i] = nullptr;
    } else if (m_BlitPlanes[0]) {
        const size_t t = (size_t)cropT, l = (size_t)cropL;
        const size_t s0 = (size_t)std::max<MLong>(0, m_BlitStrides[0]);
        const int bpp = PackedBytes(srcCS);
        if (IsPlanar420(srcCS)) {
            const size_t s1 = (size_t)std::max<MLong>(0, m_BlitStrides[1]);
            const size_t s2 = (size_t)std::max<MLong>(0, m_BlitStrides[2]);
            m_BlitPlanes[0] += t * s0 + l;
            // Chroma rows and columns are halved: the row pair of cropT,
            // the column pair of cropL.
            if (m_BlitPlanes[1]) m_BlitPlanes[1] += (t / 2) * s1 + l / 2;
            if (m_BlitPlanes[2]) m_BlitPlanes[2] += (t / 2) * s2 + l / 2;
        } else if (IsSemiPlanar(srcCS)) {
            // Interleaved pairs at their row pitch: start on a whole pair.
            const size_t s1 = (size_t)std::max<MLong>(0, m_BlitStrides[1]);
            m_BlitPlanes[0] += t * s0 + l;
            if (m_BlitPlanes[1]) m_BlitPlanes[1] += (t / 2) * s1 + (l & ~(size_t)1);
            if (m_BlitPlanes[2]) m_BlitPlanes[2] += (t / 2) * s1 + (l & ~(size_t)1);
        } else if (bpp) {
            m_BlitPlanes[0] += t * s0 + l * (size_t)bpp;
        }
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
// lens circle, from the fisheye parameter in ten-thousandths of the picture. All four
// values go out on every frame, in every mode. The box always lies inside
// the picture rectangle, so the manager's crop never leaves the frame.
void CZT5Panoview::SendLensBox(const ZT5Rect &rtPicture)
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

    const bool bRectangle = MDisplayMgrLensBoxIsRectangle(m_lFishEyeMode) != 0;
    if (feW == 0 || feH == 0) {
        feH = H;
        feW = bRectangle ? W : H;
    }
    if (!bRectangle) feW = feH = std::min(feW, feH);

    // Keep the box inside the picture: a box larger than the picture is cut
    // to it (keeping the size a multiple of 8 where it can), and a box that
    // reaches past the right or bottom edge is moved back in. With no lens
    // set, a rectangle thus takes the whole picture rather than a box that
    // starts at the centring offset and runs past the right edge.
    if (feW > W || feH > H) {
        feW = std::min(feW, W);
        feH = std::min(feH, H);
        if (!bRectangle) feW = feH = std::min(feW, feH);
        if (feW >= 8) feW &= ~(int64_t)7;
        if (feH >= 8) feH &= ~(int64_t)7;
    }
    startX = std::min(std::max<int64_t>(startX, 0), W - feW);
    startY = std::min(std::max<int64_t>(startY, 0), H - feH);

    m_dwFEStartX = (MDWord)startX;
    m_dwFEStartY = (MDWord)startY;
    m_dwFEWidth = (MDWord)feW;
    m_dwFEHeight = (MDWord)feH;

    MDWord v[4] = {m_dwFEStartX, m_dwFEStartY, m_dwFEWidth, m_dwFEHeight};
    MDisplayMgrSetParam(m_hCurDisplay, ZT5_CFG_DISPLAY_FISHEYE_X_POS, &v[0], 4);
    MDisplayMgrSetParam(m_hCurDisplay, ZT5_CFG_DISPLAY_FISHEYE_Y_POS, &v[1], 4);
    MDisplayMgrSetParam(m_hCurDisplay, ZT5_CFG_DISPLAY_FISHEYE_WIDTH, &v[2], 4);
    MDisplayMgrSetParam(m_hCurDisplay, ZT5_CFG_DISPLAY_FISHEYE_HEIGHT, &v[3], 4);
}
