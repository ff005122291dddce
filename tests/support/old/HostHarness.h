// Drives libPanoview.so the way a host player does, for end-to-end tests:
// dlopen the real library, create a display on an X window, push I420
// frames, read snapshots back as top-down RGBA pictures.
//
// Typical use:
//
//   harness::PanoviewLibrary lib;                 // dlopen + ZT_GetPlugin
//   ASSERT_TRUE(lib.ok()) << lib.error();
//   harness::XTestWindow win(640, 360);
//   harness::HostDisplay disp(lib);               // CreateObject('disp')
//   disp.SetU32(ZT5_CFG_DISPLAY_USE_OPENGLES, 1); // any parameters
//   ASSERT_EQ(disp.Init(win), ZT5_OK);
//   auto frame = harness::MakeSolidFrame(320, 180, {200, 40, 40});
//   harness::RgbaImage shot;
//   ASSERT_TRUE(disp.PushUntil(frame, harness::CentreIsNot({0, 0, 0}), &shot));
//   harness::SaveImage("my_test.png", shot);      // into PANOVIEW_TEST_OUTPUT_DIR
//
// Everything goes through the exported functions and the public headers;
// nothing here links against the library's internals.
#ifndef PANOVIEW_TESTS_HOSTHARNESS_H
#define PANOVIEW_TESTS_HOSTHARNESS_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "RgbaImage.h"
#include "XTestWindow.h"
#include "ZT5Plugin.h"

namespace harness {

// ---------------------------------------------------------------- output

// PANOVIEW_TEST_OUTPUT_DIR, created on first use.
std::string OutputDir();
// Writes `image` as OutputDir()/name (a .png name) and returns the path,
// or an empty string on failure.
std::string SaveImage(const std::string &name, const RgbaImage &image);

// ---------------------------------------------------------------- library

// The library loaded with dlopen, and its plug-in factory.
class PanoviewLibrary {
public:
    explicit PanoviewLibrary(const std::string &path = PANOVIEW_LIB_PATH);
    ~PanoviewLibrary(); // ZT_ReleasePlugin, dlclose
    PanoviewLibrary(const PanoviewLibrary &) = delete;
    PanoviewLibrary &operator=(const PanoviewLibrary &) = delete;

    bool ok() const { return m_plugin != nullptr; }
    const std::string &error() const { return m_error; }
    IZT5Plugin *plugin() const { return m_plugin; }
    PFN_ZT_GetPlugin getPlugin() const { return m_getPlugin; }
    PFN_ZT_ReleasePlugin releasePlugin() const { return m_releasePlugin; }

private:
    void *m_handle = nullptr;
    PFN_ZT_GetPlugin m_getPlugin = nullptr;
    PFN_ZT_ReleasePlugin m_releasePlugin = nullptr;
    IZT5Plugin *m_plugin = nullptr;
    std::string m_error;
};

// ---------------------------------------------------------------- frames

// A planar I420 frame: Y (width x height), then U and V (width/2 x height/2
// each, integer division, as the library lays them out). Width and height
// are even in all makers below.
struct I420Frame {
    int width = 0;
    int height = 0;
    std::vector<uint8_t> data;

    int chromaWidth() const { return width / 2; }
    int chromaHeight() const { return height / 2; }
    uint8_t *Y() { return data.data(); }
    uint8_t *U() { return data.data() + size_t(width) * height; }
    uint8_t *V() { return U() + size_t(chromaWidth()) * chromaHeight(); }

    // Paints the pixel block [x0, x1) x [y0, y1) (even corners) in a colour.
    void Fill(int x0, int y0, int x1, int y1, Rgb colour);
};

I420Frame MakeFrame(int width, int height); // all black (video range)
I420Frame MakeSolidFrame(int width, int height, Rgb colour);
// Luma rising from 16 at the left column to 235 at the right, no chroma.
I420Frame MakeRampFrame(int width, int height);
// Squares of `cell` pixels (even), `a` where (col + row) is even, else `b`.
I420Frame MakeCheckerFrame(int width, int height, int cell, Rgb a, Rgb b);

// Four marks of `markSize` pixels (even) in the corners of a background:
// index 0 top left, 1 top right, 2 bottom left, 3 bottom right.
enum Corner { kTopLeft = 0, kTopRight = 1, kBottomLeft = 2, kBottomRight = 3 };
I420Frame MakeMarkedCornerFrame(int width, int height, Rgb background, const Rgb marks[4], int markSize);

// The colour the plain view should show for a colour painted with
// synthetic::RgbToYuv: the reference conversion of the quantised YUV.
Rgb ExpectedRgb(Rgb painted);

// ---------------------------------------------------------------- geometry

struct Rect {
    int left = 0, top = 0, right = 0, bottom = 0; // top-down pixels, right/bottom exclusive
    int width() const { return right - left; }
    int height() const { return bottom - top; }
};

// Where the plain view puts a picture of picW x picH (as shown, i.e. after a
// quarter turn the caller swaps them) in a window: as large as fits, centred,
// proportions kept, bars of the clear colour on the two other sides.
Rect LetterboxRect(int windowWidth, int windowHeight, int picW, int picH);

// ---------------------------------------------------------------- pictures

using ImagePredicate = std::function<bool(const RgbaImage &)>;

// True when the image has the given size.
ImagePredicate HasSize(int width, int height);
// True when the centre pixel is within `tolerance` of `colour`.
ImagePredicate CentreIs(Rgb colour, int tolerance = 6);
ImagePredicate CentreIsNot(Rgb colour, int tolerance = 6);
ImagePredicate AllOf(std::vector<ImagePredicate> preds);

// Mean colour of a rectangle (clipped to the image).
Rgb MeanColour(const RgbaImage &image, Rect r);
// Number of pixels in `r` within `tolerance` of `colour`.
long CountNear(const RgbaImage &image, Rect r, Rgb colour, int tolerance);
// Bounding box of the pixels farther than `tolerance` from `colour` (for a
// letterboxed picture on black bars: where the picture is). Empty if none.
Rect BoundsOfNot(const RgbaImage &image, Rgb colour, int tolerance);
// Number of distinct colours (exact RGB) in the image.
size_t DistinctColours(const RgbaImage &image);
// Box of the pixels more than half way from a grey background to the drawn
// colour of `painted`, a red (measured on red minus green); empty when none.
Rect RedBoundsOnGrey(const RgbaImage &image, Rgb painted);

// ---------------------------------------------------------------- display

// Bounds of the polling helpers. They bound a wait; no test asserts a time.
struct WaitLimits {
    int maxMilliseconds = 20000;
    int pollMilliseconds = 20;
};

// One display object, created on construction, uninitialised and destroyed
// on destruction. Frames are described as I420 with the frame's own width as
// stride.
class HostDisplay {
public:
    explicit HostDisplay(PanoviewLibrary &lib);
    ~HostDisplay();
    HostDisplay(const HostDisplay &) = delete;
    HostDisplay &operator=(const HostDisplay &) = delete;

    bool ok() const { return m_display != nullptr; }
    IZT5Display *get() const { return m_display; }
    IZT5Display *operator->() const { return m_display; }

    // SetDisplayParam with a 32-bit value read once by the library.
    int32_t SetU32(uint32_t id, uint32_t value);
    int32_t Set(uint32_t id, void *value) { return m_display->SetDisplayParam(id, value); }

    // Display record covering the whole window: rtScreen = rtClip = (0, 0, w, h).
    static ZT5DisplayParam WindowRecord(uint32_t hWnd, int width, int height);
    int32_t Init(uint32_t hWnd, int width, int height);
    int32_t Init(const XTestWindow &window) { return Init(window.id(), window.width(), window.height()); }
    int32_t Uninit();
    // ZT5_CFG_DISPLAY_PARAM: a new window, or new size of the same window.
    int32_t SetWindow(uint32_t hWnd, int width, int height);

    // One DrawFrame of an I420 frame with the given rotation and aspect word.
    int32_t Push(I420Frame &frame, uint32_t rotation = 0, uint32_t aspectRatio = 0);

    // Reads ZT5_CFG_DISPLAY_GL_SNAPSHOT once. Returns false when the library
    // left the caller's pointer alone or the record holds no RGBA picture;
    // *csType (if given) receives the record's result word (0 if untouched).
    bool Snapshot(RgbaImage *out, uint32_t *csType = nullptr);

    // Pushes `frame` and polls the snapshot until `pred` holds, within the
    // limits; each round pushes the frame again, as a playing host does.
    // On success *out is the matching picture; on failure the last one read.
    bool PushUntil(I420Frame &frame, const ImagePredicate &pred, RgbaImage *out, uint32_t rotation = 0,
                   uint32_t aspectRatio = 0, WaitLimits limits = WaitLimits());
    // Polls without pushing (the render thread redraws the last frame).
    bool WaitUntil(const ImagePredicate &pred, RgbaImage *out, WaitLimits limits = WaitLimits());

    static ZT5FrameInfo FrameInfoFor(const I420Frame &frame, uint32_t rotation = 0, uint32_t aspectRatio = 0);

private:
    PanoviewLibrary &m_lib;
    IZT5Display *m_display = nullptr;
    bool m_inited = false;
};

// ---------------------------------------------------------------- demo host

// Path of the demo host binary built next to the library.
std::string DemoHostPath();

} // namespace harness

#endif
