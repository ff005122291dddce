// One frame as every layer below the host's call sees it: its layout, size,
// planes with their row pitches, colours, rotation and the boxes of the
// lens circle. Built once where the host's call arrives (the front end) and
// passed down unchanged; nothing below works the layout out again.
#ifndef PANOVIEW_VIDEOFRAME_H
#define PANOVIEW_VIDEOFRAME_H

#include <cstddef>
#include <cstdint>
#include <initializer_list>

// How the samples lie in memory. Chroma of the 4:2:0 layouts is (w / 2) by
// (h / 2) samples, of the 4:2:2 ones (w + 1) / 2 by h.
enum class FrameLayout : uint8_t {
    I420, // planar 8-bit: Y, U, V
    NV12, // Y, then rows of U,V pairs (U first)
    NV21, // Y, then rows of V,U pairs (V first)
    YUYV, // one plane: Y0 U Y1 V for each pair of pixels
    UYVY, // one plane: U Y0 V Y1
    I010, // planar, 16-bit little-endian words holding 10 bits in their low bits
    P010, // semi-planar U,V pairs, 16-bit little-endian words holding 10 bits in their top bits
};
constexpr int kFrameLayoutCount = 7;

// The colour description: the matrix (0 BT.601, 1 BT.709, 2 BT.2020) and
// whether the samples use the full range rather than video range.
struct FrameColour {
    uint8_t matrix = 0;
    bool bFullRange = false;
};

// A rectangle of the frame in pixels.
struct FrameBox {
    uint32_t x = 0, y = 0, w = 0, h = 0;
    bool Empty() const { return w == 0 || h == 0; }
};

struct FramePlane {
    const uint8_t *data = nullptr;
    size_t pitch = 0; // bytes from one row to the next
};

// What the memory of one plane holds, in texels of the texture it goes up
// as: `bytes` per texel, `cols` and `rows` for a frame of w by h.
struct PlaneShape {
    uint32_t cols, rows, bytes;
};

struct VideoFrame {
    FrameLayout layout = FrameLayout::I420;
    uint32_t width = 0, height = 0;
    FramePlane plane[3];
    FrameColour colour;
    uint32_t rotation = 0; // 0, 90, 180, 270: how the picture is to be turned
    // The lens circle's square and rectangle in this frame; a view taking the
    // whole frame ignores them.
    FrameBox lensSquare, lensRectangle;

    static int PlaneCount(FrameLayout l)
    {
        switch (l) {
        case FrameLayout::I420:
        case FrameLayout::I010: return 3;
        case FrameLayout::YUYV:
        case FrameLayout::UYVY: return 1;
        default: return 2;
        }
    }
    int PlaneCount() const { return PlaneCount(layout); }

    // Plane i's rows as stored tightly: one texel is a luma sample (two bytes
    // for 10 bits), a chroma pair of the semi-planar layouts, or the two
    // bytes Y and C of a packed pixel. The packed 4:2:2 plane is as wide as
    // an even number of pixels, so that it reads both as w pixels of two
    // bytes and as (w + 1) / 2 pairs of four.
    PlaneShape Shape(int i) const
    {
        const uint32_t cw = width / 2 > 0 ? width / 2 : 1, ch = height / 2 > 0 ? height / 2 : 1;
        switch (layout) {
        case FrameLayout::I420: return i == 0 ? PlaneShape{width, height, 1} : PlaneShape{cw, ch, 1};
        case FrameLayout::NV12:
        case FrameLayout::NV21: return i == 0 ? PlaneShape{width, height, 1} : PlaneShape{cw, ch, 2};
        case FrameLayout::YUYV:
        case FrameLayout::UYVY: return PlaneShape{(width + 1) & ~1u, height, 2};
        case FrameLayout::I010: return i == 0 ? PlaneShape{width, height, 2} : PlaneShape{cw, ch, 2};
        case FrameLayout::P010: return i == 0 ? PlaneShape{width, height, 2} : PlaneShape{cw, ch, 4};
        }
        return PlaneShape{0, 0, 0};
    }
    // Bytes of one tightly stored row of plane i.
    size_t RowBytes(int i) const
    {
        const PlaneShape s = Shape(i);
        return size_t(s.cols) * s.bytes;
    }
    // Bytes a plane needs to be read whole at its pitch: every row but the
    // last at the pitch, the last only as long as a row. The host's memory
    // for a plane must hold this much.
    size_t PlaneSpan(int i) const
    {
        const PlaneShape s = Shape(i);
        return s.rows ? size_t(s.rows - 1) * plane[i].pitch + RowBytes(i) : 0;
    }
    // Every plane is there and its pitch holds a row.
    bool PlanesUsable() const
    {
        for (int i = 0; i < PlaneCount(); i++)
            if (!plane[i].data || plane[i].pitch < RowBytes(i)) return false;
        return true;
    }

    // Lens boxes reaching past the frame (cut for a larger picture) are cut
    // to it; one that starts outside it is empty.
    void KeepBoxesInside()
    {
        for (FrameBox *b : {&lensSquare, &lensRectangle}) {
            if (b->x >= width || b->y >= height) *b = FrameBox();
            if (b->w > width - b->x) b->w = width - b->x;
            if (b->h > height - b->y) b->h = height - b->y;
        }
    }

    // The same frame cut to (x, y, w, h), already inside it. Subsampled
    // chroma starts on a whole sample: x and y of a 4:2:0 layout, x of a
    // 4:2:2 one, go down to even.
    VideoFrame Cut(uint32_t x, uint32_t y, uint32_t w, uint32_t h) const
    {
        VideoFrame c = *this;
        const bool b420 = layout != FrameLayout::YUYV && layout != FrameLayout::UYVY;
        x &= ~1u;
        if (b420) y &= ~1u;
        for (int i = 0; i < PlaneCount(); i++) {
            if (!plane[i].data) continue;
            const PlaneShape s = Shape(i);
            const bool bChroma = i > 0;
            // Texels of this plane per pixel across: luma 1, subsampled chroma
            // 1/2, packed 4:2:2 1 (a texel is one pixel's two bytes).
            const size_t col = bChroma ? x / 2 : x;
            const size_t row = (bChroma && b420) ? y / 2 : y;
            c.plane[i].data = plane[i].data + row * plane[i].pitch + col * s.bytes;
        }
        c.width = w;
        c.height = h;
        return c;
    }
};

#endif
