// What the fuzz targets share: one display of the library for the whole
// fuzzing process, on an X window of its own, driven as a host drives it
// (the library's two exported functions and the display interface only),
// and a reader that turns the fuzzer's bytes into values.
#ifndef PANOVIEW_TESTS_FUZZHOST_H
#define PANOVIEW_TESTS_FUZZHOST_H

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "ZT5Plugin.h"

namespace fuzz {

// The display, made at the first call with the OpenGL road on, a lens circle
// and Init on a 160x120 window; kept to the end of the process. Ends the
// process with a message when there is no X display.
IZT5Display *Display();
uint32_t Window();
// A snapshot: returns once the render thread has drawn and served it, so
// that what an input set up has been drawn before the next input.
void Settle();
// A plain frame of the window's proportions, drawn by the current view.
void PushPlainFrame();
// Aborts (a finding) when the saved state holds a float that isn't finite.
void CheckSavedStateFinite();

// The fuzzer's bytes, read front to back; zeros once they run out.
class Bytes {
public:
    Bytes(const uint8_t *p, size_t n) : m_p(p), m_n(n) {}
    size_t Left() const { return m_n; }
    void Take(void *out, size_t n)
    {
        if (n == 0) return; // out may be null then
        const size_t k = n < m_n ? n : m_n;
        if (k) std::memcpy(out, m_p, k);
        std::memset(static_cast<uint8_t *>(out) + k, 0, n - k);
        m_p += k, m_n -= k;
    }
    template <typename T> T Get()
    {
        T v;
        Take(&v, sizeof(v));
        return v;
    }
    uint8_t U8() { return Get<uint8_t>(); }
    uint32_t U32() { return Get<uint32_t>(); }

private:
    const uint8_t *m_p;
    size_t m_n;
};

} // namespace fuzz

#endif
