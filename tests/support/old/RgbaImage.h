// A picture as the tests see it: RGBA bytes, top row first, tightly packed.
#ifndef PANOVIEW_TESTS_RGBAIMAGE_H
#define PANOVIEW_TESTS_RGBAIMAGE_H

#include <cstdint>
#include <cstdlib>
#include <vector>

#include "SyntheticScene.h"

namespace harness {

using synthetic::Rgb;

struct RgbaImage {
    int width = 0;
    int height = 0;
    std::vector<uint8_t> rgba; // width * height * 4 bytes, top row first

    bool empty() const { return width <= 0 || height <= 0; }
    const uint8_t *PixelPtr(int x, int y) const { return &rgba[(size_t(y) * width + x) * 4]; }
    Rgb At(int x, int y) const
    {
        const uint8_t *p = PixelPtr(x, y);
        return {p[0], p[1], p[2]};
    }
};

// Largest per-channel difference between two colours.
inline int ColourDistance(Rgb a, Rgb b)
{
    int d = std::abs(int(a.r) - int(b.r));
    d = std::max(d, std::abs(int(a.g) - int(b.g)));
    return std::max(d, std::abs(int(a.b) - int(b.b)));
}

} // namespace harness

#endif
