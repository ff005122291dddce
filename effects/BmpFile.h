// A BMP file as the video logo takes it: 24 or 32 bits a pixel, rows
// without fill bytes, top-down or bottom-up. Everything else is refused.
#ifndef PANOVIEW_BMPFILE_H
#define PANOVIEW_BMPFILE_H

#include <cstddef>

#include "MRuntime.h"

class BmpFile {
public:
    BmpFile() = default;
    ~BmpFile();

    // Reads a whole file and checks it. False for a file this loader
    // refuses; the object then holds nothing.
    bool Load(const char *pFileName);

    // Takes over `data` (MMemAlloc'd, `size` bytes, the file's whole
    // content; freed here whatever the answer) and checks it. A 32-bit
    // picture whose alpha bytes are all 0 (its fourth byte unused, as most
    // writers leave it) is made opaque.
    bool Adopt(unsigned char *data, size_t size);

    // Pixels in file order: B, G, R (and A) a pixel, rows tightly packed,
    // the first row top or bottom as TopDown() says.
    const unsigned char *Pixels() const { return m_pData ? m_pData + m_nOffset : nullptr; }
    MLong Width() const { return m_lWidth; }
    MLong Height() const { return m_lHeight; }
    MLong BytesPerPixel() const { return m_lBytesPerPixel; }
    bool TopDown() const { return m_bTopDown; }

    // Largest side taken, and largest file read.
    static const MLong kMaxSide = 8192;
    static const size_t kMaxFileSize = 64u << 20;

private:
    BmpFile(const BmpFile &) = delete;
    BmpFile &operator=(const BmpFile &) = delete;
    void Clear();

    unsigned char *m_pData = nullptr;
    size_t m_nSize = 0;
    size_t m_nOffset = 0;
    MLong m_lWidth = 0;
    MLong m_lHeight = 0;
    MLong m_lBytesPerPixel = 0;
    bool m_bTopDown = false;
};

#endif
