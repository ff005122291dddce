// The one copy of a frame on its way to the render object: out of the
// decoder's buffer, cut to the lens square in a fisheye mode, with the
// decoder's alignment columns cut off; or, with a host buffer set, the whole
// frame handed back to the host instead of drawn.
//
// Destination layout, width w and height h: w*h bytes Y, then (w*h)/4 bytes
// U at w*h, then (w*h)/4 bytes V at (w*h*5)/4; chroma rows are w/2 long.
#include <algorithm>
#include <cstring>

#include "DisplayContext.h"
#include "MLog.h"

namespace {

// A source frame as the copy reads it. Planar chroma has a sample step of 1;
// semi-planar chroma (pairs interleaved in one plane, with plane 1 and 2
// pointing at their first sample) has a step of 2.
struct FrameSource {
    const unsigned char *p[3];
    MDWord width, height;
    size_t stride[3];
    MDWord uvStep;
};

bool IsSemiPlanar(MDWord dwCSType)
{
    return dwCSType == ZT5_CS_SEMIPLANAR_A || dwCSType == ZT5_CS_SEMIPLANAR_B || dwCSType == ZT5_CS_SEMIPLANAR_C ||
           dwCSType == ZT5_CS_NV12;
}

// Strides shorter than a tightly packed row (or absent) count as tightly
// packed; longer ones are the padding of the producer and are honoured.
FrameSource MakeSource(unsigned char *const *planes, MDWord width, MDWord height, MDWord uvStep,
                       const MLong *strides)
{
    FrameSource s;
    for (int i = 0; i < 3; i++) s.p[i] = planes[i];
    s.width = width;
    s.height = height;
    s.uvStep = uvStep;
    size_t packed[3] = {width, uvStep == 1 ? width / 2 : size_t(width), uvStep == 1 ? width / 2 : size_t(width)};
    for (int i = 0; i < 3; i++) {
        MLong given = strides ? strides[i] : 0;
        s.stride[i] = (given > 0 && size_t(given) >= packed[i]) ? size_t(given) : packed[i];
    }
    return s;
}

bool IsPackedPlanar(const FrameSource &s)
{
    return s.uvStep == 1 && s.stride[0] == s.width && s.stride[1] == s.width / 2 && s.stride[2] == s.width / 2;
}

// Cuts (x, y, w, h), already inside the frame, into dst. Rows of chroma are
// taken at the odd rows of the region, from the chroma row that the odd row
// falls in; an odd start row therefore takes the lower row of its pair.
void CopyRegion(const FrameSource &s, MDWord x, MDWord y, MDWord w, MDWord h, unsigned char *dst)
{
    const size_t lumaSize = size_t(w) * h;
    unsigned char *dstY = dst;
    unsigned char *dstU = dst + lumaSize;
    unsigned char *dstV = dst + lumaSize + lumaSize / 4;

    if (x == 0 && y == 0 && w == s.width && h == s.height && IsPackedPlanar(s)) {
        // The whole frame, tightly packed: each plane is one run of bytes,
        // a chroma plane (w/2) * (h/2) of them as the row by row copy below
        // takes; for an odd size that is less than a quarter of the luma,
        // and a host's separate plane may hold no more.
        const size_t chromaSize = size_t(w / 2) * (h / 2);
        MMemCpy(dstY, s.p[0], lumaSize);
        MMemCpy(dstU, s.p[1], chromaSize);
        MMemCpy(dstV, s.p[2], chromaSize);
        return;
    }

    // Luma first, then chroma: two sequential streams at a time copy faster
    // than six interleaved ones.
    for (MDWord i = 0; i < h; i++) MMemCpy(dstY + size_t(i) * w, s.p[0] + size_t(y + i) * s.stride[0] + x, w);

    const MDWord cw = w / 2;
    // Chroma planes hold height/2 rows (quarter planes by integer division).
    // Chroma row i/2 of the region is taken at its odd luma row i, from the
    // source chroma row that row falls in; an odd last row of an odd-height
    // frame uses the last chroma row.
    const MDWord chromaRows = s.height / 2;
    if (cw == 0 || chromaRows == 0) return;
    for (int plane = 1; plane <= 2; plane++) {
        unsigned char *dstC = plane == 1 ? dstU : dstV;
        for (MDWord i = 1; i < h; i += 2) {
            MDWord cr = std::min((i + y) / 2, chromaRows - 1);
            unsigned char *dc = dstC + size_t(i / 2) * cw;
            const unsigned char *sc = s.p[plane] + size_t(cr) * s.stride[plane] + size_t(x / 2) * s.uvStep;
            if (s.uvStep == 1) {
                MMemCpy(dc, sc, cw);
            } else {
                for (MDWord j = 0; j < cw; j++) dc[j] = sc[size_t(j) * s.uvStep];
            }
        }
    }
}

// Brings a region inside the frame. False when nothing of it is left.
bool ClampRegion(MDWord srcWidth, MDWord srcHeight, MDWord &x, MDWord &y, MDWord &w, MDWord &h)
{
    if (x >= srcWidth || y >= srcHeight) {
        w = h = 0;
        return false;
    }
    w = std::min(w, srcWidth - x);
    h = std::min(h, srcHeight - y);
    return w > 0 && h > 0;
}

bool PlanesPresent(unsigned char *const *planes)
{
    return planes && planes[0] && planes[1] && planes[2];
}

const MDWord kMaxBufferBytes = 0xFFFFFFFFu;

} // namespace

MRESULT CallbackFEYUVData(DisplayContext *pContext, unsigned char **planes)
{
    if (!pContext) {
        MLogInfo("[%s]WinDisplay::CallbackFEYUVData, ZT5_ERR_INVALID_PARAM.\r\n", MLOG_TAG);
        return 4;
    }
    if (!planes || (!planes[0] && !planes[1] && !planes[2])) {
        MLogInfo("[%s]WinDisplay::CallbackFEYUVData no plane!!\r\n", MLOG_TAG);
        return 4;
    }
    if ((MLong)pContext->dwYUVBufferLen <= 0 || !pContext->pYUVBuffer || !pContext->hYUVBufferMutex) return 4;

    // From here on the host's buffer takes the frame and nothing is drawn.
    const MDWord w = pContext->dwSrcWidth, h = pContext->dwSrcHeight;
    const uint64_t needed = uint64_t(w) * h * 3 / 2;
    if (needed > pContext->dwYUVBufferLen) {
        MLogInfo("[%s]WinDisplay::CallbackFEYUVData buffer too short: %u bytes for %ux%u, frame dropped\r\n",
                 MLOG_TAG, pContext->dwYUVBufferLen, w, h);
        return 0;
    }
    if (!PlanesPresent(planes)) {
        MLogInfo("[%s]WinDisplay::CallbackFEYUVData plane missing, frame dropped\r\n", MLOG_TAG);
        return 0;
    }
    if (w == 0 || h == 0) return 0;
    FrameSource s = MakeSource(planes, w, h, IsSemiPlanar(pContext->dwCSType) ? 2 : 1, pContext->lSrcStrides);
    CopyRegion(s, 0, 0, w, h, pContext->pYUVBuffer);
    return 0;
}

MRESULT CropFishEyeData(DisplayContext *pContext, unsigned char **planes)
{
    if (!pContext) {
        MLogInfo("[%s]WinDisplay::CropFishEyeData in pDisplayContext == MNull.\r\n", MLOG_TAG);
        return ZT5_ERR_INVALID_PARAM;
    }
    DisplayContext *c = pContext;
    const MDWord srcW = c->dwSrcWidth, srcH = c->dwSrcHeight;

    MDWord x = 0, y = 0, w = srcW, h = srcH;
    bool bAlignCut = false;
    if (c->bFishEye) {
        x = c->dwFEStartX;
        y = c->dwFEStartY;
        w = c->dwFEWidth;
        h = c->dwFEHeight;
        MDWord askedW = w, askedH = h;
        ClampRegion(srcW, srcH, x, y, w, h);
        if (w != askedW || h != askedH)
            MLogInfo("[%s]WinDisplay::CropFishEyeData lens box (%u,%u %ux%u) clamped to %ux%u in %ux%u\r\n",
                     MLOG_TAG, x, y, askedW, askedH, w, h, srcW, srcH);
    } else if (c->bNeedCrop) {
        if (c->dwAlignCrop < srcW) {
            w = srcW - c->dwAlignCrop;
            bAlignCut = c->dwAlignCrop > 0;
        } else if (srcW) {
            MLogInfo("[%s]WinDisplay::CropFishEyeData align crop %u not below width %u, ignored\r\n", MLOG_TAG,
                     c->dwAlignCrop, srcW);
        }
    }

    if (w == 0 || h == 0) {
        // Nothing to show (no lens box yet, or a box outside the frame);
        // the buffer and what the render thread may be drawing stay as they are.
        c->dwCropWidth = 0;
        c->dwCropHeight = 0;
        return 0;
    }

    const uint64_t needed = uint64_t(w) * h * 3 / 2;
    if (!c->pCropBuffer || needed > c->dwCropBufferSize) {
        // Grows, never shrinks. The old block is released only once the new
        // one exists, so that on failure the render thread keeps valid planes.
        unsigned char *pNew = needed <= kMaxBufferBytes ? static_cast<unsigned char *>(MMemAlloc(size_t(needed)))
                                                        : nullptr;
        if (!pNew) {
            MLogInfo("[%s]WinDisplay::CropFishEyeData, memAlloc failed.\r\n", MLOG_TAG);
            return ZT5_ERR_NO_MEMORY;
        }
        // Black until a frame lands, so a frame with missing planes shows
        // nothing rather than stale memory.
        const size_t lumaSize = size_t(w) * h;
        MMemSet(pNew, 0, lumaSize);
        MMemSet(pNew + lumaSize, 128, size_t(needed) - lumaSize);
        if (c->pCropBuffer) MMemFree(c->pCropBuffer);
        c->pCropBuffer = pNew;
        c->dwCropBufferSize = MDWord(needed);
    }

    if (planes) {
        if (PlanesPresent(planes)) {
            FrameSource s = MakeSource(planes, srcW, srcH, IsSemiPlanar(c->dwCSType) ? 2 : 1, c->lSrcStrides);
            CopyRegion(s, x, y, w, h, c->pCropBuffer);
        } else {
            MLogInfo("[%s]WinDisplay::FishEyeCropYUVData, src address error.\r\n", MLOG_TAG);
        }
    }

    c->dwCropWidth = w;
    c->dwCropHeight = h;
    if (bAlignCut) c->dwSrcWidth = w; // the render object gets the cut width
    return 0;
}
