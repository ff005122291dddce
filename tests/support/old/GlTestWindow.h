// Test helpers for drawing tests: an X window under the test's X server, the
// render object driven the way the display manager drives it, I420 frame
// builders, snapshot reading and PNG output.
#ifndef PANOVIEW_TESTS_GLTESTWINDOW_H
#define PANOVIEW_TESTS_GLTESTWINDOW_H

#include <cstdint>
#include <string>
#include <vector>

#include "MDisplayMgr.h"
#include "ZT5Mutex.h"
#include "ZT5Records.h"

namespace gltest {

// XInitThreads, keeps the software driver loaded for the whole process (its
// unload leaves bytes LeakSanitizer would report) and opens the display.
// False when no X display is usable.
bool EnsureX();

// A mapped top-level window of its own X connection.
class TestWindow {
public:
    TestWindow(int width, int height);
    ~TestWindow();
    bool ok() const { return m_window != 0; }
    uint32_t id() const { return m_window; }
    void Resize(int width, int height);

private:
    TestWindow(const TestWindow &) = delete;
    TestWindow &operator=(const TestWindow &) = delete;
    void *m_display = nullptr;
    uint32_t m_window = 0;
};

struct Rgb {
    int r, g, b;
};

// BT.601 video-range expansion, written out from the standard coefficients
// (the plain program's conversion).
Rgb VideoRangeToRgb(int y, int u, int v);
// Full-range conversion (the distortion correction program's).
Rgb FullRangeToRgb(int y, int u, int v);

// A planar I420 frame, Y then U then V, tightly packed.
struct Frame {
    int width = 0;
    int height = 0;
    std::vector<uint8_t> data;
    Frame(int w, int h, uint8_t y = 16, uint8_t u = 128, uint8_t v = 128);
    uint8_t *Y() { return data.data(); }
    uint8_t *U() { return data.data() + size_t(width) * height; }
    uint8_t *V() { return data.data() + size_t(width) * height + size_t(width / 2) * (height / 2); }
    // Paints the luma/chroma of the rectangle [x0,x1) x [y0,y1) (even
    // bounds keep chroma exact).
    void Fill(int x0, int y0, int x1, int y1, uint8_t y, uint8_t u, uint8_t v);
};

// A snapshot turned right way up (row 0 at the top).
struct Picture {
    int width = 0;
    int height = 0;
    std::vector<uint8_t> rgba;
    Rgb At(int x, int y) const
    {
        const uint8_t *p = &rgba[(size_t(y) * width + x) * 4];
        return {p[0], p[1], p[2]};
    }
    int Alpha(int x, int y) const { return rgba[(size_t(y) * width + x) * 4 + 3]; }
};

bool Near(const Rgb &a, const Rgb &b, int tolerance);
std::string ToString(const Rgb &c);

// Writes to PANOVIEW_TEST_OUTPUT_DIR/<name>.png; returns the path.
std::string WritePng(const Picture &pic, const std::string &name);

// The render object as the manager drives it: frame mutex, native window,
// init with the window as hContext, frames posted under the frame mutex.
class RenderHarness {
public:
    RenderHarness();
    ~RenderHarness();
    IZT5VideoRenderer *object() { return m_pRender; }
    CZT5Mutex &frameMutex() { return m_FrameMutex; }

    // Settings of the manager's replay that matter here, then init.
    MRESULT Init(uint32_t window, int videoWidth, int videoHeight, uint32_t rotation = 0, int32_t mode = 0);
    void Set(MDWord id, void *value) { m_pRender->setConfig(id, value); }
    void SetU32(MDWord id, uint32_t value) { m_pRender->setConfig(id, &value); }
    // Posts a frame: copied, under the frame mutex, into the harness's own
    // buffer (as the manager copies into its crop buffer), then posted.
    // PostAndWait also waits until a draw that used it has been shown.
    bool PostAndWait(Frame &frame);
    void Post(Frame &frame);
    // Waits for `count` more finished draws; false on the watchdog's limit.
    bool WaitDraws(unsigned count);
    MDWord DrawCount() const;
    // Snapshot through getConfig; false when the record says failure.
    bool Snapshot(Picture *pic, uint32_t *pCSType = nullptr);
    void Destroy();

private:
    CZT5Mutex m_FrameMutex;
    std::vector<uint8_t> m_Crop; // outlives the render object
    IZT5VideoRenderer *m_pRender = nullptr;
};

} // namespace gltest

#endif
