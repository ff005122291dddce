#include "BmpFile.h"

#include <sys/stat.h>

#include <cstdio>

namespace {

// Little-endian fields of the headers.
uint32_t U32(const unsigned char *p)
{
    return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}
uint16_t U16(const unsigned char *p)
{
    return uint16_t(p[0] | p[1] << 8);
}

// File header (14 bytes) and the info header's fields read here; the info
// header is at least the 40 bytes of the common Windows form.
const size_t kFileHeader = 14;
const size_t kInfoHeaderMin = 40;
enum {
    kOffMagic = 0,
    kOffFileSize = 2,
    kOffDataOffset = 10,
    kOffInfoSize = 14,
    kOffWidth = 18,
    kOffHeight = 22,
    kOffBitCount = 28,
    kOffCompression = 30,
    kOffMasks = 54, // red, green, blue masks of a bit-field picture
};
const uint32_t kCompressionNone = 0;
const uint32_t kCompressionBitFields = 3;

} // namespace

BmpFile::~BmpFile()
{
    Clear();
}

void BmpFile::Clear()
{
    MMemFree(m_pData);
    m_pData = nullptr;
    m_nSize = m_nOffset = 0;
    m_lWidth = m_lHeight = m_lBytesPerPixel = 0;
    m_bTopDown = false;
}

bool BmpFile::Load(const char *pFileName)
{
    Clear();
    if (!pFileName) return false;
    FILE *f = std::fopen(pFileName, "rb");
    if (!f) return false;
    // A regular file of a sane size only: no device or pipe that never ends.
    struct stat st;
    unsigned char *data = nullptr;
    size_t size = 0;
    if (fstat(fileno(f), &st) == 0 && S_ISREG(st.st_mode) && st.st_size > 0 &&
        uint64_t(st.st_size) <= kMaxFileSize) {
        size = size_t(st.st_size);
        data = static_cast<unsigned char *>(MMemAlloc(size));
        if (data && std::fread(data, 1, size, f) != size) {
            MMemFree(data);
            data = nullptr;
        }
    }
    std::fclose(f);
    return data && Adopt(data, size);
}

bool BmpFile::Adopt(unsigned char *data, size_t size)
{
    Clear();
    // Every product and difference below is taken in 64 bits, on values
    // read as unsigned or widened first: no header can make a check wrap.
    const uint64_t fileSize = size;
    bool ok = data && fileSize >= kFileHeader + kInfoHeaderMin && fileSize <= kMaxFileSize;
    ok = ok && data[kOffMagic] == 'B' && data[kOffMagic + 1] == 'M';
    ok = ok && U32(data + kOffFileSize) == fileSize;
    const uint64_t infoSize = ok ? U32(data + kOffInfoSize) : 0;
    const uint64_t offset = ok ? U32(data + kOffDataOffset) : 0;
    const uint32_t bits = ok ? U16(data + kOffBitCount) : 0;
    const uint32_t compression = ok ? U32(data + kOffCompression) : 0;
    const int64_t width = ok ? int64_t(int32_t(U32(data + kOffWidth))) : 0;
    const int64_t height = ok ? int64_t(int32_t(U32(data + kOffHeight))) : 0;
    const int64_t rows = height < 0 ? -height : height;
    ok = ok && infoSize >= kInfoHeaderMin && offset >= kFileHeader + infoSize && offset <= fileSize;
    ok = ok && (bits == 24 || bits == 32);
    ok = ok && width > 0 && width <= kMaxSide && rows > 0 && rows <= kMaxSide;
    // No fill bytes: the data is exactly the rows.
    const uint64_t bytesPerPixel = bits / 8;
    ok = ok && fileSize - offset == bytesPerPixel * uint64_t(width) * uint64_t(rows);
    if (ok && compression == kCompressionBitFields) {
        // Only the usual B, G, R, A byte order of a 32-bit picture.
        ok = bits == 32 && offset >= kOffMasks + 12 && U32(data + kOffMasks) == 0x00ff0000u &&
             U32(data + kOffMasks + 4) == 0x0000ff00u && U32(data + kOffMasks + 8) == 0x000000ffu;
    } else {
        ok = ok && compression == kCompressionNone;
    }
    if (!ok) {
        MMemFree(data);
        return false;
    }
    m_pData = data;
    m_nSize = size;
    m_nOffset = size_t(offset);
    m_lWidth = MLong(width);
    m_lHeight = MLong(rows);
    m_lBytesPerPixel = MLong(bytesPerPixel);
    m_bTopDown = height < 0;

    if (bytesPerPixel == 4) {
        unsigned char *p = m_pData + m_nOffset;
        const size_t pixels = size_t(width) * size_t(rows);
        bool anyAlpha = false;
        for (size_t i = 0; i < pixels && !anyAlpha; i++) anyAlpha = p[i * 4 + 3] != 0;
        if (!anyAlpha)
            for (size_t i = 0; i < pixels; i++) p[i * 4 + 3] = 0xff;
    }
    return true;
}
