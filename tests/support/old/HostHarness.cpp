#include "HostHarness.h"

#include <dlfcn.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <mutex>
#include <set>
#include <thread>

#include "Png.h"

namespace harness {

// ---------------------------------------------------------------- output

static bool MakeDirs(const std::string &path)
{
    for (size_t pos = 1; pos <= path.size(); pos++) {
        if (pos == path.size() || path[pos] == '/') {
            std::string part = path.substr(0, pos);
            if (mkdir(part.c_str(), 0755) != 0 && errno != EEXIST) return false;
        }
    }
    return true;
}

std::string OutputDir()
{
    static const std::string dir = [] {
        std::string d = PANOVIEW_TEST_OUTPUT_DIR;
        MakeDirs(d);
        return d;
    }();
    return dir;
}

std::string SaveImage(const std::string &name, const RgbaImage &image)
{
    std::string path = OutputDir() + "/" + name;
    return WritePng(path, image) ? path : std::string();
}

// ---------------------------------------------------------------- library

// Mesa's driver leaves a few bytes behind when it is unloaded, which
// LeakSanitizer reports against no module. Keeping the driver loaded for the
// life of the process avoids that without hiding leaks of our own.
static void KeepGlDriverLoaded()
{
    static std::once_flag once;
    std::call_once(once, [] {
        const char *drivers[] = {"/usr/lib/x86_64-linux-gnu/dri/swrast_dri.so",
                                 "/usr/lib/x86_64-linux-gnu/dri/kms_swrast_dri.so"};
        for (const char *d : drivers) dlopen(d, RTLD_LAZY | RTLD_NODELETE);
    });
}

PanoviewLibrary::PanoviewLibrary(const std::string &path)
{
    EnsureXThreads();
    KeepGlDriverLoaded();
    m_handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!m_handle) {
        const char *e = dlerror();
        m_error = std::string("dlopen failed: ") + (e ? e : path);
        return;
    }
    m_getPlugin = reinterpret_cast<PFN_ZT_GetPlugin>(dlsym(m_handle, "ZT_GetPlugin"));
    m_releasePlugin = reinterpret_cast<PFN_ZT_ReleasePlugin>(dlsym(m_handle, "ZT_ReleasePlugin"));
    if (!m_getPlugin || !m_releasePlugin) {
        m_error = "ZT_GetPlugin or ZT_ReleasePlugin is not exported";
        return;
    }
    IZT5Plugin *plugin = nullptr;
    int32_t res = m_getPlugin(&plugin);
    if (res != ZT5_OK || !plugin) {
        m_error = "ZT_GetPlugin failed: " + std::to_string(res);
        return;
    }
    m_plugin = plugin;
}

PanoviewLibrary::~PanoviewLibrary()
{
    if (m_plugin) m_releasePlugin(m_plugin);
    if (m_handle) dlclose(m_handle);
}

// ---------------------------------------------------------------- frames

void I420Frame::Fill(int x0, int y0, int x1, int y1, Rgb colour)
{
    uint8_t y, u, v;
    synthetic::RgbToYuv(colour, &y, &u, &v);
    x0 = std::max(0, x0), y0 = std::max(0, y0);
    x1 = std::min(width, x1), y1 = std::min(height, y1);
    for (int row = y0; row < y1; row++) std::fill(Y() + size_t(row) * width + x0, Y() + size_t(row) * width + x1, y);
    const int cw = chromaWidth();
    for (int row = y0 / 2; row < std::min(chromaHeight(), (y1 + 1) / 2); row++) {
        for (int col = x0 / 2; col < std::min(cw, (x1 + 1) / 2); col++) {
            U()[size_t(row) * cw + col] = u;
            V()[size_t(row) * cw + col] = v;
        }
    }
}

I420Frame MakeFrame(int width, int height)
{
    I420Frame f;
    f.width = width;
    f.height = height;
    size_t luma = size_t(width) * height;
    size_t chroma = size_t(width / 2) * (height / 2);
    f.data.assign(luma + 2 * chroma, 128);
    std::fill(f.data.begin(), f.data.begin() + luma, uint8_t(16));
    return f;
}

I420Frame MakeSolidFrame(int width, int height, Rgb colour)
{
    I420Frame f = MakeFrame(width, height);
    f.Fill(0, 0, width, height, colour);
    return f;
}

I420Frame MakeRampFrame(int width, int height)
{
    I420Frame f = MakeFrame(width, height);
    for (int x = 0; x < width; x++) {
        uint8_t y = uint8_t(16 + (219 * x + (width - 1) / 2) / std::max(1, width - 1));
        for (int row = 0; row < height; row++) f.Y()[size_t(row) * width + x] = y;
    }
    return f;
}

I420Frame MakeCheckerFrame(int width, int height, int cell, Rgb a, Rgb b)
{
    I420Frame f = MakeFrame(width, height);
    for (int y = 0; y < height; y += cell)
        for (int x = 0; x < width; x += cell)
            f.Fill(x, y, x + cell, y + cell, ((x / cell + y / cell) % 2 == 0) ? a : b);
    return f;
}

I420Frame MakeMarkedCornerFrame(int width, int height, Rgb background, const Rgb marks[4], int markSize)
{
    I420Frame f = MakeSolidFrame(width, height, background);
    f.Fill(0, 0, markSize, markSize, marks[kTopLeft]);
    f.Fill(width - markSize, 0, width, markSize, marks[kTopRight]);
    f.Fill(0, height - markSize, markSize, height, marks[kBottomLeft]);
    f.Fill(width - markSize, height - markSize, width, height, marks[kBottomRight]);
    return f;
}

Rgb ExpectedRgb(Rgb painted)
{
    uint8_t y, u, v;
    synthetic::RgbToYuv(painted, &y, &u, &v);
    return synthetic::YuvToRgb(y, u, v);
}

// ---------------------------------------------------------------- geometry

Rect LetterboxRect(int windowWidth, int windowHeight, int picW, int picH)
{
    Rect r;
    double wndRatio = double(windowWidth) / windowHeight;
    double picRatio = double(picW) / picH;
    if (wndRatio <= picRatio) { // narrower window: full width, bars above and below
        double h = windowWidth / picRatio;
        r.left = 0;
        r.right = windowWidth;
        r.top = int((windowHeight - h) / 2.0 + 0.5);
        r.bottom = int((windowHeight + h) / 2.0 + 0.5);
    } else { // wider window: full height, bars left and right
        double w = windowHeight * picRatio;
        r.top = 0;
        r.bottom = windowHeight;
        r.left = int((windowWidth - w) / 2.0 + 0.5);
        r.right = int((windowWidth + w) / 2.0 + 0.5);
    }
    return r;
}

// ---------------------------------------------------------------- pictures

ImagePredicate HasSize(int width, int height)
{
    return [=](const RgbaImage &img) { return img.width == width && img.height == height; };
}

ImagePredicate CentreIs(Rgb colour, int tolerance)
{
    return [=](const RgbaImage &img) {
        return !img.empty() && ColourDistance(img.At(img.width / 2, img.height / 2), colour) <= tolerance;
    };
}

ImagePredicate CentreIsNot(Rgb colour, int tolerance)
{
    return [=](const RgbaImage &img) {
        return !img.empty() && ColourDistance(img.At(img.width / 2, img.height / 2), colour) > tolerance;
    };
}

ImagePredicate AllOf(std::vector<ImagePredicate> preds)
{
    return [preds](const RgbaImage &img) {
        for (const auto &p : preds)
            if (!p(img)) return false;
        return true;
    };
}

static Rect Clip(const RgbaImage &image, Rect r)
{
    r.left = std::max(0, r.left);
    r.top = std::max(0, r.top);
    r.right = std::min(image.width, r.right);
    r.bottom = std::min(image.height, r.bottom);
    return r;
}

Rgb MeanColour(const RgbaImage &image, Rect r)
{
    r = Clip(image, r);
    double s[3] = {0, 0, 0};
    long n = 0;
    for (int y = r.top; y < r.bottom; y++)
        for (int x = r.left; x < r.right; x++, n++) {
            const uint8_t *p = image.PixelPtr(x, y);
            s[0] += p[0], s[1] += p[1], s[2] += p[2];
        }
    if (n == 0) return {0, 0, 0};
    return {uint8_t(s[0] / n + 0.5), uint8_t(s[1] / n + 0.5), uint8_t(s[2] / n + 0.5)};
}

long CountNear(const RgbaImage &image, Rect r, Rgb colour, int tolerance)
{
    r = Clip(image, r);
    long n = 0;
    for (int y = r.top; y < r.bottom; y++)
        for (int x = r.left; x < r.right; x++)
            if (ColourDistance(image.At(x, y), colour) <= tolerance) n++;
    return n;
}

Rect BoundsOfNot(const RgbaImage &image, Rgb colour, int tolerance)
{
    Rect r{image.width, image.height, 0, 0};
    for (int y = 0; y < image.height; y++)
        for (int x = 0; x < image.width; x++)
            if (ColourDistance(image.At(x, y), colour) > tolerance) {
                r.left = std::min(r.left, x), r.top = std::min(r.top, y);
                r.right = std::max(r.right, x + 1), r.bottom = std::max(r.bottom, y + 1);
            }
    if (r.right <= r.left) return Rect();
    return r;
}

size_t DistinctColours(const RgbaImage &image)
{
    std::set<uint32_t> seen;
    for (int y = 0; y < image.height; y++)
        for (int x = 0; x < image.width; x++) {
            const uint8_t *p = image.PixelPtr(x, y);
            seen.insert(uint32_t(p[0]) << 16 | uint32_t(p[1]) << 8 | p[2]);
        }
    return seen.size();
}

// ---------------------------------------------------------------- display

HostDisplay::HostDisplay(PanoviewLibrary &lib) : m_lib(lib)
{
    if (!lib.ok()) return;
    void *obj = nullptr;
    if (lib.plugin()->CreateObject(ZT5_PLUGIN_TYPE_DISP, ZT5_PLUGIN_TYPE_DISP, &obj) == ZT5_OK)
        m_display = static_cast<IZT5Display *>(obj);
}

HostDisplay::~HostDisplay()
{
    if (!m_display) return;
    Uninit();
    m_lib.plugin()->DestroyObject(ZT5_PLUGIN_TYPE_DISP, ZT5_PLUGIN_TYPE_DISP, m_display);
}

int32_t HostDisplay::SetU32(uint32_t id, uint32_t value)
{
    return m_display->SetDisplayParam(id, &value);
}

ZT5DisplayParam HostDisplay::WindowRecord(uint32_t hWnd, int width, int height)
{
    ZT5DisplayParam p = {};
    p.hWnd = hWnd;
    p.rtScreen = {0, 0, width, height};
    p.rtClip = p.rtScreen;
    return p;
}

int32_t HostDisplay::Init(uint32_t hWnd, int width, int height)
{
    ZT5DisplayParam p = WindowRecord(hWnd, width, height);
    int32_t res = m_display->Init(&p);
    if (res == ZT5_OK) m_inited = true;
    return res;
}

int32_t HostDisplay::Uninit()
{
    if (!m_inited) return ZT5_OK;
    m_inited = false;
    return m_display->Uninit();
}

int32_t HostDisplay::SetWindow(uint32_t hWnd, int width, int height)
{
    ZT5DisplayParam p = WindowRecord(hWnd, width, height);
    return m_display->SetDisplayParam(ZT5_CFG_DISPLAY_PARAM, &p);
}

ZT5FrameInfo HostDisplay::FrameInfoFor(const I420Frame &frame, uint32_t rotation, uint32_t aspectRatio)
{
    ZT5FrameInfo info = {};
    info.dwWidth = uint32_t(frame.width);
    info.dwHeight = uint32_t(frame.height);
    info.dwStride = uint32_t(frame.width);
    info.dwSliceHeight = uint32_t(frame.height);
    info.dwCSType = ZT5_FRAME_CS_I420;
    info.dwRotation = rotation;
    info.dwAspectRatio = aspectRatio;
    return info;
}

int32_t HostDisplay::Push(I420Frame &frame, uint32_t rotation, uint32_t aspectRatio)
{
    ZT5FrameInfo info = FrameInfoFor(frame, rotation, aspectRatio);
    return m_display->DrawFrame(frame.data.data(), &info, 0);
}

bool HostDisplay::Snapshot(RgbaImage *out, uint32_t *csType)
{
    if (csType) *csType = 0;
    ZT5Snapshot *rec = nullptr;
    m_display->GetDisplayParam(ZT5_CFG_DISPLAY_GL_SNAPSHOT, &rec);
    if (!rec) return false;
    if (csType) *csType = rec->dwCSType;
    if (rec->dwCSType != ZT5_SNAPSHOT_RGBA || !rec->pBuffer || rec->dwWidth == 0 || rec->dwHeight == 0)
        return false;
    // The pixels belong to the display and go at the next snapshot: copy
    // them at once, turning GL's bottom-first rows into top-first ones.
    RgbaImage img;
    img.width = int(rec->dwWidth);
    img.height = int(rec->dwHeight);
    img.rgba.resize(size_t(img.width) * img.height * 4);
    const uint8_t *src = static_cast<const uint8_t *>(rec->pBuffer);
    const size_t pitch = size_t(img.width) * 4;
    for (int y = 0; y < img.height; y++)
        std::copy(src + size_t(img.height - 1 - y) * pitch, src + size_t(img.height - y) * pitch,
                  img.rgba.begin() + size_t(y) * pitch);
    *out = std::move(img);
    return true;
}

template <typename Step>
static bool Poll(HostDisplay &disp, const ImagePredicate &pred, RgbaImage *out, WaitLimits limits, Step step)
{
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + std::chrono::milliseconds(limits.maxMilliseconds);
    RgbaImage img;
    do {
        step();
        std::this_thread::sleep_for(std::chrono::milliseconds(limits.pollMilliseconds));
        if (disp.Snapshot(&img) && pred(img)) {
            *out = std::move(img);
            return true;
        }
    } while (Clock::now() < end);
    *out = std::move(img);
    return false;
}

bool HostDisplay::PushUntil(I420Frame &frame, const ImagePredicate &pred, RgbaImage *out, uint32_t rotation,
                            uint32_t aspectRatio, WaitLimits limits)
{
    return Poll(*this, pred, out, limits, [&] { Push(frame, rotation, aspectRatio); });
}

bool HostDisplay::WaitUntil(const ImagePredicate &pred, RgbaImage *out, WaitLimits limits)
{
    return Poll(*this, pred, out, limits, [] {});
}

// ---------------------------------------------------------------- demo host

std::string DemoHostPath()
{
    std::string lib = PANOVIEW_LIB_PATH;
    size_t slash = lib.rfind('/');
    return (slash == std::string::npos ? std::string(".") : lib.substr(0, slash)) + "/panoview-play";
}

Rect RedBoundsOnGrey(const RgbaImage &img, Rgb painted)
{
    const Rgb red = ExpectedRgb(painted);
    const int threshold = (int(red.r) - int(red.g)) / 2;
    Rect r{img.width, img.height, 0, 0};
    for (int y = 0; y < img.height; y++)
        for (int x = 0; x < img.width; x++) {
            const Rgb c = img.At(x, y);
            if (int(c.r) - int(c.g) > threshold) {
                r.left = std::min(r.left, x), r.top = std::min(r.top, y);
                r.right = std::max(r.right, x + 1), r.bottom = std::max(r.bottom, y + 1);
            }
        }
    if (r.right <= r.left) return Rect();
    return r;
}

} // namespace harness
