#include "CloudPicture.h"

#include <cstring>

size_t ExpandCloudPicture(const unsigned char *block, size_t blockSize, uint8_t *out, size_t outSize,
                          int *pWidth, int *pHeight)
{
    if (pWidth) *pWidth = 0;
    if (pHeight) *pHeight = 0;
    if (!block || blockSize < 4) return 0;
    if (pWidth) *pWidth = block[0] | (block[1] << 8);
    if (pHeight) *pHeight = block[2] | (block[3] << 8);
    if (!out) return 0;

    size_t p = 4, written = 0;
    while (p + 2 <= blockSize && written < outSize) {
        const unsigned w = block[p] | (block[p + 1] << 8);
        p += 2;
        const uint8_t b = static_cast<uint8_t>(w & 0xFF);
        size_t n;
        if (w & 0x2000) {
            if (p + 1 > blockSize) break;
            n = (w & 0x1F00) + block[p];
            p += 1;
        } else if (w & 0x4000) {
            if (p + 2 > blockSize) break;
            n = ((static_cast<size_t>(w & 0x1F00) + block[p + 1]) << 8) + block[p];
            p += 2;
        } else {
            n = (w & 0x1F00) >> 8;
        }
        if (n == 0) continue;
        const size_t room = outSize - written;
        if (w & 0x8000) {
            size_t k = n < room ? n : room;
            memset(out + written, b, k);
            written += k;
        } else {
            out[written++] = b;
            size_t rest = n - 1;
            if (rest > room - 1) rest = room - 1;
            if (rest > blockSize - p) rest = blockSize - p;
            memcpy(out + written, block + p, rest);
            written += rest;
            p += n - 1; // skip the whole literal even when cut short
        }
    }
    return written;
}
