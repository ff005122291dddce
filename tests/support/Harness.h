// The tests' one support library: they drive libPanoview.so the way a host
// player does. The library is loaded with dlopen, a display is created on a
// real X window, I420 frames are pushed, snapshots are read back as top-down
// RGBA pictures and saved states as records. Nothing here links against the
// library's internals; pictures are measured, never compared with earlier
// output.
#ifndef PANOVIEW_TESTS_HARNESS_H
#define PANOVIEW_TESTS_HARNESS_H

#include <array>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "HostIds.h"
#include "SyntheticScene.h"
#include "ZT5Mutex.h"
#include "ZT5Plugin.h"

namespace harness {

using synthetic::Rgb;

// ------------------------------------------------------------------ pictures

struct Rect {
    int left = 0, top = 0, right = 0, bottom = 0; // right and bottom exclusive
    int width() const { return right - left; }
    int height() const { return bottom - top; }
};

// RGBA, top row first, tightly packed.
struct Image {
    int width = 0, height = 0;
    std::vector<uint8_t> rgba;
    bool empty() const { return width <= 0 || height <= 0; }
    Rgb At(int x, int y) const
    {
        const uint8_t *p = &rgba[(size_t(y) * width + x) * 4];
        return {p[0], p[1], p[2]};
    }
};

int ColourDistance(Rgb a, Rgb b); // largest per-channel difference
bool Near(Rgb a, Rgb b, int tolerance);
std::string Str(Rgb c);
// Pixels of `r` within `tolerance` of `colour`.
long CountNear(const Image &img, Rect r, Rgb colour, int tolerance);
// Pixels of `r` for which `is` holds.
long CountWhere(const Image &img, Rect r, const std::function<bool(Rgb)> &is);
// Bounding box of the pixels (of `r`, the whole picture when empty) for
// which `inside` holds; empty when none.
Rect BoundsWhere(const Image &img, const std::function<bool(Rgb)> &inside, Rect r = Rect());
// Where the picture is on black bars.
Rect PictureBounds(const Image &img);
// Sector of the synthetic scene nearest to `c` (0..7), -1 when none is near.
int Sector(Rgb c, int tolerance = 35);
bool IsHorizon(Rgb c);

// Where the plain view puts a picture of picW x picH in a window: as large as
// fits, centred, proportions kept.
Rect LetterboxRect(int winW, int winH, int picW, int picH);

bool WritePng(const std::string &path, const Image &img);
bool ReadPng(const std::string &path, Image *img);
std::string OutputDir();
// What a shell command printed (stdout); its exit code in *status when given.
std::string Shell(const std::string &cmd, int *status = nullptr);
// panoview-play, built beside the library, run with it and no input: its
// exit code; what it printed (both streams) is appended to *output.
int RunPlayer(const std::string &args, std::string *output);
// Runs the bodies on threads of their own and waits for them all; one still
// running after `limitSeconds` is a deadlock that no teardown could undo, so
// it ends the program.
void RunAllWithin(const char *what, const std::vector<std::function<void()>> &bodies, int limitSeconds = 240);
// Writes <test suite>_<test><suffix>.png into the output directory.
void SaveShot(const Image &img, const std::string &suffix = "");

// -------------------------------------------------------------------- frames

// Planar I420 as the display lays out the host's buffer: Y, then U at w*h
// and V at w*h + (w*h)/4, chroma rows w/2 long; w*h*3/2 bytes in all. The
// buffer is exactly that size, so that a read past it is caught by
// AddressSanitizer.
struct Frame {
    int width = 0, height = 0;
    uint32_t csType = ZT5_FRAME_CS_I420;
    uint32_t aspect = 0; // dwAspectRatio
    std::vector<uint8_t> data;
    Frame() = default;
    Frame(int w, int h, Rgb colour = {0, 0, 0});
    uint8_t *Y() { return data.data(); }
    uint8_t *U() { return Y() + size_t(width) * height; }
    uint8_t *V() { return U() + size_t(width) * height / 4; }
    // Paints [x0, x1) x [y0, y1); even corners keep the chroma exact.
    void Fill(int x0, int y0, int x1, int y1, Rgb colour);
};
// The built-in fisheye scene, 1920x1080 (see SyntheticScene.h).
Frame SceneFrame(int n = 0);
// The same scene through another lens, such as synthetic::WallLens.
Frame LensSceneFrame(const synthetic::LensFrame &lens, int n = 0);
// The colour the plain view shows for a colour painted into a frame.
Rgb Shown(Rgb painted);
// The encoding a ZT5_CFG_DISPLAY_YUV_MATRIX word names.
synthetic::YuvEncoding EncodingOf(uint32_t word);

// ------------------------------------------------------------------- window

class XWindow {
public:
    XWindow(int width, int height);
    ~XWindow();
    XWindow(const XWindow &) = delete;
    XWindow &operator=(const XWindow &) = delete;
    bool ok() const { return m_window != 0; }
    uint32_t id() const { return uint32_t(m_window); }
    int width() const { return m_width; }
    int height() const { return m_height; }
    bool Resize(int width, int height); // waits until the server has it
    bool SetMapped(bool mapped);        // unmaps or maps, waits until the server has it

private:
    void *m_display = nullptr;
    unsigned long m_window = 0;
    int m_width, m_height;
};

// ------------------------------------------------------------------ library


// The library, loaded once for the process: ZT_GetPlugin's factory. Null
// when it could not be loaded (Error() says why).
IZT5Plugin *Plugin();
std::string Error();
void *LibraryHandle();

// Host-side log of the UI callback's messages. The sender holds the record's
// mutex while it calls.
struct EventLog {
    CZT5Mutex mutex;
    ZT5UICallbackRecord record = {};
    std::vector<ZT5UIMessage> messages;
    EventLog();
    // dwValue1 of the messages with this id, in order.
    std::vector<uint32_t> Values(uint32_t paramId);
    void Clear();
};

// Bounds of the polling helpers. They bound a wait; no test asserts a time.
const int kPollRounds = 1000;
const int kPollMs = 15;

using Check = std::function<bool(const Image &)>;
// The window's centre shows `c`: a picture of the frame has been drawn (a
// snapshot asked before the first draw may hold anything).
Check CentreNear(Rgb c, int tolerance = 8);

// One display object of the library: created on construction, uninitialised
// and destroyed on destruction. Records the display may keep by pointer
// (restored states, double tap points) live as long as this object.
class Display {
public:
    Display();
    ~Display();
    Display(const Display &) = delete;
    Display &operator=(const Display &) = delete;
    bool ok() const { return m_d != nullptr; }
    IZT5Display *operator->() const { return m_d; }

    int32_t Set(uint32_t id, void *value) { return m_d->SetDisplayParam(id, value); }
    int32_t SetU32(uint32_t id, uint32_t value) { return m_d->SetDisplayParam(id, &value); }
    uint32_t GetU32(uint32_t id, uint32_t initial = 0xdeadbeef);
    int32_t Init(uint32_t hWnd, int width, int height);
    int32_t Init(const XWindow &w) { return Init(w.id(), w.width(), w.height()); }
    int32_t SetWindow(uint32_t hWnd, int width, int height); // ZT5_CFG_DISPLAY_PARAM

    int32_t Push(Frame &f, uint32_t rotation = 0);
    bool Snapshot(Image *out);
    // Pushes the frame and reads a snapshot until `check` holds; *out is the
    // last picture read.
    bool PushUntil(Frame &f, const Check &check, Image *out = nullptr, uint32_t rotation = 0);
    // Pushes the frame until a draw has shown the newest one posted. It is
    // pushed again at growing intervals: a post may land before the renderer
    // is up, and a slow renderer (sanitizers, valgrind) must not be outrun.
    bool PushUntilDrawn(Frame &f, uint32_t rotation = 0);
    // Pushes the frame until the saved state satisfies `reached`.
    bool UntilSaved(Frame &f, const std::function<bool(const FECurrentStatusData &)> &reached, Image *out = nullptr);
    // Pushes the frame until two snapshots in a row are alike: the picture
    // stands; returns it.
    Image Settled(Frame &f);
    ZT5RenderStats Stats(); // ZT5_CFG_DISPLAY_RENDER_STATS
    // Saved state, copied out at once (the next save overwrites it).
    bool Save(FECurrentStatusData *out);
    FECurrentStatusData Saved();
    // Restores a copy of `rec`, which the display may keep by pointer.
    int32_t Restore(const FECurrentStatusData &rec);
    // Gestures.
    int32_t Drag(float x0, float y0, float x1, float y1);
    int32_t Pinch(float rate, float cx = 0, float cy = 0);
    int32_t DoubleTap(float x, float y);
    int32_t Touch(uint32_t id, float x, float y); // down or up
    // Draws the render thread made over the next `ms` milliseconds
    // (ZT5_CFG_DISPLAY_RENDER_STATS), nothing being sent meanwhile.
    uint32_t DrawsOver(int ms);
    // Waits (bounded) until a quarter second passes without a draw.
    bool Quiet();

private:
    IZT5Display *m_d = nullptr;
    bool m_inited = false;
    std::mutex m_keptLock; // gestures may come from several threads
    std::deque<FECurrentStatusData> m_records;
    std::deque<std::array<float, 2>> m_points;
};

// A window and a display on it with the OpenGL road on and the given view;
// Init is the test's, so that it can set parameters before it.
struct Rig {
    XWindow window;
    Display display;
    Rig(int width, int height, uint32_t mode = 0);
    bool ok() const { return window.ok() && display.ok(); }
    int32_t Init() { return display.Init(window); }
    // Made, the words set (id, value), and Init succeeded.
    bool Started(const std::vector<std::pair<uint32_t, uint32_t>> &settings = {});
};

} // namespace harness

#endif
