// The host's buffer road: with a buffer of the host's set, each frame is
// handed back there instead of drawn. 8-bit 4:2:0 frames arrive as planar
// I420 (w*h bytes Y, then (w/2)*(h/2) U, then as many V); frames of the
// other layouts in their own layout, rows tightly packed.
#include "DisplayContext.h"
#include "MLog.h"

namespace {

// Plane i's rows, tightly, at dst; returns the end.
uint8_t *CopyPlane(const VideoFrame &f, int i, uint8_t *dst)
{
    const size_t row = f.RowBytes(i);
    for (uint32_t r = 0; r < f.Shape(i).rows; r++) MMemCpy(dst + r * row, f.plane[i].data + r * f.plane[i].pitch, row);
    return dst + row * f.Shape(i).rows;
}

// The interleaved pairs of a semi-planar frame as two planes, U then V.
uint8_t *SplitPairs(const VideoFrame &f, uint8_t *dst)
{
    const PlaneShape s = f.Shape(1);
    const int u = f.layout == FrameLayout::NV12 ? 0 : 1;
    uint8_t *du = dst, *dv = dst + size_t(s.cols) * s.rows;
    for (uint32_t r = 0; r < s.rows; r++) {
        const uint8_t *src = f.plane[1].data + r * f.plane[1].pitch;
        for (uint32_t c = 0; c < s.cols; c++) {
            *du++ = src[2 * c + u];
            *dv++ = src[2 * c + 1 - u];
        }
    }
    return dv;
}

size_t HostBytes(const VideoFrame &f)
{
    size_t n = 0;
    for (int i = 0; i < f.PlaneCount(); i++) n += f.RowBytes(i) * f.Shape(i).rows;
    return n;
}

} // namespace

MRESULT CallbackFEYUVData(DisplayContext *pContext, const VideoFrame &frame)
{
    if (!pContext) {
        MLogInfo("[%s]WinDisplay::CallbackFEYUVData, ZT5_ERR_INVALID_PARAM.\r\n", MLOG_TAG);
        return 4;
    }
    const DisplaySettings &s = pContext->settings;
    if ((MLong)s.dwYuvBufferLen <= 0 || !s.pYuvBuffer || !s.hYuvBufferMutex) return 4;

    // From here on the host's buffer takes the frame and nothing is drawn.
    if (!frame.PlanesUsable()) {
        MLogInfo("[%s]WinDisplay::CallbackFEYUVData plane missing, frame dropped\r\n", MLOG_TAG);
        return 0;
    }
    const size_t needed = HostBytes(frame);
    if (needed > s.dwYuvBufferLen) {
        MLogInfo("[%s]WinDisplay::CallbackFEYUVData buffer too short: %u bytes for %ux%u, frame dropped\r\n",
                 MLOG_TAG, s.dwYuvBufferLen, frame.width, frame.height);
        return 0;
    }
    uint8_t *dst = CopyPlane(frame, 0, s.pYuvBuffer);
    if (frame.layout == FrameLayout::NV12 || frame.layout == FrameLayout::NV21) {
        SplitPairs(frame, dst);
    } else {
        for (int i = 1; i < frame.PlaneCount(); i++) dst = CopyPlane(frame, i, dst);
    }
    return 0;
}
