#include "Harness.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <png.h>
#include <sys/stat.h>
#include <sys/wait.h>
// After gtest: Xlib's None, Bool and Status macros clash with its names.
#include <X11/Xlib.h>
#include <X11/Xutil.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <future>
#include <thread>

namespace harness {

// ------------------------------------------------------------------ pictures

int ColourDistance(Rgb a, Rgb b)
{
    return std::max({std::abs(a.r - b.r), std::abs(a.g - b.g), std::abs(a.b - b.b)});
}

bool Near(Rgb a, Rgb b, int tolerance)
{
    return ColourDistance(a, b) <= tolerance;
}

std::string Str(Rgb c)
{
    return std::to_string(c.r) + "," + std::to_string(c.g) + "," + std::to_string(c.b);
}

long CountWhere(const Image &img, Rect r, const std::function<bool(Rgb)> &is)
{
    long n = 0;
    for (int y = std::max(0, r.top); y < std::min(img.height, r.bottom); y++)
        for (int x = std::max(0, r.left); x < std::min(img.width, r.right); x++) n += is(img.At(x, y));
    return n;
}

long CountNear(const Image &img, Rect r, Rgb colour, int tolerance)
{
    return CountWhere(img, r, [&](Rgb c) { return Near(c, colour, tolerance); });
}

Rect BoundsWhere(const Image &img, const std::function<bool(Rgb)> &inside, Rect area)
{
    if (area.width() <= 0 || area.height() <= 0) area = Rect{0, 0, img.width, img.height};
    Rect r{img.width, img.height, 0, 0};
    for (int y = std::max(0, area.top); y < std::min(img.height, area.bottom); y++)
        for (int x = std::max(0, area.left); x < std::min(img.width, area.right); x++)
            if (inside(img.At(x, y))) {
                r.left = std::min(r.left, x), r.top = std::min(r.top, y);
                r.right = std::max(r.right, x + 1), r.bottom = std::max(r.bottom, y + 1);
            }
    return r.right > r.left ? r : Rect();
}

Rect PictureBounds(const Image &img)
{
    return BoundsWhere(img, [](Rgb c) { return !Near(c, {0, 0, 0}, 8); });
}

int Sector(Rgb c, int tolerance)
{
    int best = -1, bestDist = tolerance + 1;
    for (int k = 0; k < 8; k++) {
        int d = ColourDistance(c, synthetic::kSectorRgb[k]);
        if (d < bestDist) bestDist = d, best = k;
    }
    return best;
}

bool IsHorizon(Rgb c)
{
    return Near(c, synthetic::kHorizonRgb, 30);
}

Rect LetterboxRect(int winW, int winH, int picW, int picH)
{
    const double ratio = double(picW) / picH;
    if (double(winW) / winH <= ratio) { // bars above and below
        const double h = winW / ratio;
        return Rect{0, int((winH - h) / 2 + 0.5), winW, int((winH + h) / 2 + 0.5)};
    }
    const double w = winH * ratio; // bars left and right
    return Rect{int((winW - w) / 2 + 0.5), 0, int((winW + w) / 2 + 0.5), winH};
}

bool WritePng(const std::string &path, const Image &img)
{
    FILE *f = img.empty() ? nullptr : std::fopen(path.c_str(), "wb");
    if (!f) return false;
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    bool ok = !setjmp(png_jmpbuf(png));
    if (ok) {
        png_init_io(png, f);
        png_set_IHDR(png, info, img.width, img.height, 8, PNG_COLOR_TYPE_RGB_ALPHA, PNG_INTERLACE_NONE,
                     PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
        png_write_info(png, info);
        for (int y = 0; y < img.height; y++) png_write_row(png, &img.rgba[size_t(y) * img.width * 4]);
        png_write_end(png, nullptr);
    }
    png_destroy_write_struct(&png, &info);
    std::fclose(f);
    return ok;
}

bool ReadPng(const std::string &path, Image *img)
{
    FILE *f = std::fopen(path.c_str(), "rb");
    if (!f) return false;
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    Image out; // before setjmp: a longjmp must not skip its destructor
    bool ok = !setjmp(png_jmpbuf(png));
    if (ok) {
        png_init_io(png, f);
        png_read_info(png, info);
        png_set_expand(png);
        png_set_strip_16(png);
        png_set_gray_to_rgb(png);
        png_set_add_alpha(png, 0xff, PNG_FILLER_AFTER);
        png_read_update_info(png, info);
        out.width = int(png_get_image_width(png, info));
        out.height = int(png_get_image_height(png, info));
        out.rgba.resize(size_t(out.width) * out.height * 4);
        for (int y = 0; y < out.height; y++) png_read_row(png, &out.rgba[size_t(y) * out.width * 4], nullptr);
        png_read_end(png, nullptr);
        *img = std::move(out);
    }
    png_destroy_read_struct(&png, &info, nullptr);
    std::fclose(f);
    return ok;
}

std::string OutputDir()
{
    static const std::string dir = [] {
        std::string d = PANOVIEW_TEST_OUTPUT_DIR;
        mkdir(d.c_str(), 0755);
        return d;
    }();
    return dir;
}

std::string Shell(const std::string &cmd, int *status)
{
    std::string out;
    FILE *p = popen(cmd.c_str(), "r");
    char buf[512];
    while (p && std::fgets(buf, sizeof buf, p)) out += buf;
    const int st = p ? pclose(p) : -1;
    if (status) *status = WIFEXITED(st) ? WEXITSTATUS(st) : -1;
    return out;
}

int RunPlayer(const std::string &args, std::string *output)
{
    const std::string lib = PANOVIEW_LIB_PATH, dir = lib.substr(0, lib.rfind('/'));
    int status = -1;
    *output += Shell("'" + dir + "/panoview-play' --lib '" + lib + "' " + args + " 2>&1 </dev/null", &status);
    return status;
}

void RunAllWithin(const char *what, const std::vector<std::function<void()>> &bodies, int limitSeconds)
{
    std::vector<std::future<void>> running;
    for (const auto &b : bodies) running.push_back(std::async(std::launch::async, b));
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(limitSeconds);
    for (auto &r : running)
        if (r.wait_until(end) != std::future_status::ready) {
            ADD_FAILURE() << what << " still running after " << limitSeconds << " s: deadlock";
            std::fprintf(stderr, "deadlock in %s: ending the test program\n", what);
            std::_Exit(1);
        }
    for (auto &r : running) r.get();
}

void SaveShot(const Image &img, const std::string &suffix)
{
    const auto *t = ::testing::UnitTest::GetInstance()->current_test_info();
    std::string name = std::string(t->test_suite_name()) + "_" + t->name() + suffix + ".png";
    std::replace(name.begin(), name.end(), '/', '_');
    WritePng(OutputDir() + "/" + name, img);
}

// -------------------------------------------------------------------- frames

Frame::Frame(int w, int h, Rgb colour) : width(w), height(h)
{
    data.assign(size_t(w) * h * 3 / 2, 128);
    Fill(0, 0, w, h, colour);
}

void Frame::Fill(int x0, int y0, int x1, int y1, Rgb colour)
{
    uint8_t y, u, v;
    synthetic::RgbToYuv(colour, &y, &u, &v);
    x0 = std::max(0, x0), y0 = std::max(0, y0), x1 = std::min(width, x1), y1 = std::min(height, y1);
    for (int r = y0; r < y1; r++) std::fill(Y() + size_t(r) * width + x0, Y() + size_t(r) * width + x1, y);
    const int cw = width / 2;
    for (int r = y0 / 2; r < std::min(height / 2, (y1 + 1) / 2); r++)
        for (int c = x0 / 2; c < std::min(cw, (x1 + 1) / 2); c++) U()[size_t(r) * cw + c] = u, V()[size_t(r) * cw + c] = v;
}

Frame SceneFrame(int n)
{
    return LensSceneFrame(synthetic::LensFrame(), n);
}

Frame LensSceneFrame(const synthetic::LensFrame &lens, int n)
{
    Frame f;
    f.width = lens.width;
    f.height = lens.height;
    f.data = synthetic::MakeFisheyeFrame(lens, n);
    return f;
}

synthetic::YuvEncoding EncodingOf(uint32_t word)
{
    synthetic::YuvEncoding e = (word & 0xff) == ZT5_YUV_MATRIX_BT709    ? synthetic::kBt709
                               : (word & 0xff) == ZT5_YUV_MATRIX_BT2020 ? synthetic::kBt2020
                                                                       : synthetic::kBt601;
    e.fullRange = (word & ZT5_YUV_RANGE_FULL) != 0;
    return e;
}

Rgb Shown(Rgb painted)
{
    uint8_t y, u, v;
    synthetic::RgbToYuv(painted, &y, &u, &v);
    return synthetic::YuvToRgb(y, u, v);
}

// ------------------------------------------------------------------- window

namespace {

// XInitThreads before the first connection (the library renders on a thread
// of its own), and the software driver kept loaded: its unload leaves bytes
// that LeakSanitizer would report against no module.
void PrepareProcess()
{
    static std::once_flag once;
    std::call_once(once, [] {
        XInitThreads();
        dlopen("/usr/lib/x86_64-linux-gnu/dri/swrast_dri.so", RTLD_LAZY | RTLD_NODELETE);
    });
}

template <typename Pred>
bool WaitForEvent(::Display *dpy, Window win, Pred done)
{
    for (int i = 0; i < 500; i++) {
        XEvent ev;
        while (XCheckWindowEvent(dpy, win, StructureNotifyMask, &ev))
            if (done(ev)) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
}

void FixSize(::Display *dpy, Window win, int w, int h)
{
    XSizeHints hints = {};
    hints.flags = PSize | PMinSize | PMaxSize;
    hints.width = hints.min_width = hints.max_width = w;
    hints.height = hints.min_height = hints.max_height = h;
    XSetWMNormalHints(dpy, win, &hints);
}

} // namespace

XWindow::XWindow(int width, int height) : m_width(width), m_height(height)
{
    PrepareProcess();
    ::Display *dpy = nullptr;
    // A busy X server may refuse a connection for a moment.
    for (int i = 0; i < 50 && !dpy; i++)
        if (!(dpy = XOpenDisplay(nullptr))) std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_NE(dpy, nullptr) << "no X display (DISPLAY not set?)";
    if (!(m_display = dpy)) return;
    const int s = DefaultScreen(dpy);
    // The server keeps the window's pixels (Xvfb runs with backing store):
    // another test's window passing over it brings no Expose, so the
    // display's count of draws is its own doing.
    XSetWindowAttributes attrs = {};
    attrs.background_pixel = BlackPixel(dpy, s);
    attrs.backing_store = Always;
    Window win = XCreateWindow(dpy, RootWindow(dpy, s), 0, 0, width, height, 0, CopyFromParent, InputOutput,
                               CopyFromParent, CWBackPixel | CWBackingStore, &attrs);
    FixSize(dpy, win, width, height);
    XSelectInput(dpy, win, StructureNotifyMask);
    XMapWindow(dpy, win);
    XFlush(dpy);
    if (WaitForEvent(dpy, win, [](const XEvent &ev) { return ev.type == MapNotify; })) m_window = win;
    EXPECT_NE(m_window, 0u) << "the test window was never mapped";
}

XWindow::~XWindow()
{
    ::Display *dpy = static_cast<::Display *>(m_display);
    if (!dpy) return;
    if (m_window) XDestroyWindow(dpy, m_window);
    XSync(dpy, False);
    XCloseDisplay(dpy);
}

bool XWindow::Resize(int width, int height)
{
    ::Display *dpy = static_cast<::Display *>(m_display);
    if (!m_window) return false;
    FixSize(dpy, m_window, width, height);
    XResizeWindow(dpy, m_window, width, height);
    XFlush(dpy);
    if (!WaitForEvent(dpy, m_window, [&](const XEvent &ev) {
            return ev.type == ConfigureNotify && ev.xconfigure.width == width && ev.xconfigure.height == height;
        }))
        return false;
    m_width = width, m_height = height;
    return true;
}

bool XWindow::SetMapped(bool mapped)
{
    ::Display *dpy = static_cast<::Display *>(m_display);
    if (!m_window) return false;
    if (mapped)
        XMapWindow(dpy, m_window);
    else
        XUnmapWindow(dpy, m_window);
    XFlush(dpy);
    const int wanted = mapped ? MapNotify : UnmapNotify;
    return WaitForEvent(dpy, m_window, [&](const XEvent &ev) { return ev.type == wanted; });
}

// ------------------------------------------------------------------ library

namespace {

struct Library {
    void *handle = nullptr;
    IZT5Plugin *plugin = nullptr;
    std::string error;
    Library()
    {
        PrepareProcess();
        if (!(handle = dlopen(PANOVIEW_LIB_PATH, RTLD_NOW | RTLD_LOCAL))) {
            error = dlerror();
            return;
        }
        auto get = reinterpret_cast<PFN_ZT_GetPlugin>(dlsym(handle, "ZT_GetPlugin"));
        if (!get || get(&plugin) != ZT5_OK) error = "ZT_GetPlugin failed", plugin = nullptr;
    }
};

Library &Lib()
{
    static Library *lib = new Library(); // kept to the end of the process, as a host keeps its plug-ins
    return *lib;
}

} // namespace

IZT5Plugin *Plugin()
{
    return Lib().plugin;
}

std::string Error()
{
    return Lib().error;
}

void *LibraryHandle()
{
    return Lib().handle;
}

EventLog::EventLog()
{
    record.pMutex = &mutex;
    record.pArg = this;
    record.pfnCallback = [](ZT5UIMessage *m, void *arg) { static_cast<EventLog *>(arg)->messages.push_back(*m); };
}

std::vector<uint32_t> EventLog::Values(uint32_t paramId)
{
    std::vector<uint32_t> v;
    mutex.Lock();
    for (const ZT5UIMessage &m : messages)
        if (m.dwParamID == paramId) v.push_back(m.dwValue1);
    mutex.Unlock();
    return v;
}

void EventLog::Clear()
{
    mutex.Lock();
    messages.clear();
    mutex.Unlock();
}

// ------------------------------------------------------------------ display

Check CentreNear(Rgb c, int tolerance)
{
    return [=](const Image &img) { return !img.empty() && Near(img.At(img.width / 2, img.height / 2), c, tolerance); };
}

Display::Display()
{
    void *obj = nullptr;
    EXPECT_NE(Plugin(), nullptr) << Error();
    if (Plugin() && Plugin()->CreateObject(ZT5_PLUGIN_TYPE_DISP, ZT5_PLUGIN_TYPE_DISP, &obj) == ZT5_OK)
        m_d = static_cast<IZT5Display *>(obj);
}

Display::~Display()
{
    if (!m_d) return;
    if (m_inited) m_d->Uninit();
    Plugin()->DestroyObject(ZT5_PLUGIN_TYPE_DISP, ZT5_PLUGIN_TYPE_DISP, m_d);
}

uint32_t Display::GetU32(uint32_t id, uint32_t initial)
{
    uint32_t v = initial;
    m_d->GetDisplayParam(id, &v);
    return v;
}

static ZT5DisplayParam Record(uint32_t hWnd, int width, int height)
{
    ZT5DisplayParam p = {};
    p.hWnd = hWnd;
    p.rtScreen = p.rtClip = {0, 0, width, height};
    return p;
}

int32_t Display::Init(uint32_t hWnd, int width, int height)
{
    ZT5DisplayParam p = Record(hWnd, width, height);
    int32_t r = m_d->Init(&p);
    m_inited = m_inited || r == ZT5_OK;
    return r;
}

int32_t Display::SetWindow(uint32_t hWnd, int width, int height)
{
    ZT5DisplayParam p = Record(hWnd, width, height);
    return m_d->SetDisplayParam(ZT5_CFG_DISPLAY_PARAM, &p);
}

int32_t Display::Push(Frame &f, uint32_t rotation)
{
    ZT5FrameInfo info = {};
    info.dwWidth = info.dwStride = uint32_t(f.width);
    info.dwHeight = info.dwSliceHeight = uint32_t(f.height);
    info.dwCSType = f.csType;
    info.dwRotation = rotation;
    info.dwAspectRatio = f.aspect;
    return m_d->DrawFrame(f.data.data(), &info, 0);
}

bool Display::Snapshot(Image *out)
{
    ZT5Snapshot *rec = nullptr;
    m_d->GetDisplayParam(ZT5_CFG_DISPLAY_GL_SNAPSHOT, &rec);
    if (!rec || rec->dwCSType != ZT5_SNAPSHOT_RGBA || !rec->pBuffer || !rec->dwWidth || !rec->dwHeight) return false;
    // The pixels are the display's until the next snapshot: copied at once,
    // GL's bottom-first rows turned top-first.
    out->width = int(rec->dwWidth);
    out->height = int(rec->dwHeight);
    const size_t pitch = size_t(out->width) * 4;
    out->rgba.resize(pitch * out->height);
    const uint8_t *src = static_cast<const uint8_t *>(rec->pBuffer);
    for (int y = 0; y < out->height; y++)
        std::memcpy(&out->rgba[y * pitch], src + size_t(out->height - 1 - y) * pitch, pitch);
    return true;
}

bool Display::PushUntil(Frame &f, const Check &check, Image *out, uint32_t rotation)
{
    Image img;
    bool shown = false;
    for (int i = 0; i < kPollRounds && !shown; i++) {
        Push(f, rotation);
        std::this_thread::sleep_for(std::chrono::milliseconds(kPollMs));
        shown = Snapshot(&img) && check(img);
    }
    if (out) *out = std::move(img);
    return shown;
}

bool Display::PushUntilDrawn(Frame &f, uint32_t rotation)
{
    for (int i = 0, next = 0, gap = 20; i < 8 * kPollRounds; i++) {
        if (i == next) Push(f, rotation), next += gap, gap = std::min(2 * gap, 200);
        std::this_thread::sleep_for(std::chrono::milliseconds(kPollMs));
        const ZT5RenderStats s = Stats();
        if (s.dwNewestDrawn != 0 && s.dwNewestDrawn == s.dwFramesPosted) return true;
    }
    return false;
}

bool Display::UntilSaved(Frame &f, const std::function<bool(const FECurrentStatusData &)> &reached, Image *out)
{
    return PushUntil(f, [&](const Image &) { FECurrentStatusData s; return Save(&s) && reached(s); }, out);
}

Image Display::Settled(Frame &f)
{
    Image last, shot;
    for (int i = 0; i < 600; i++) {
        Push(f);
        std::this_thread::sleep_for(std::chrono::milliseconds(kPollMs));
        if (Snapshot(&shot) && !last.empty() && shot.rgba == last.rgba) return shot;
        last = shot;
    }
    ADD_FAILURE() << "the picture never settled";
    return shot;
}

ZT5RenderStats Display::Stats()
{
    ZT5RenderStats s = {};
    m_d->GetDisplayParam(ZT5_CFG_DISPLAY_RENDER_STATS, &s);
    return s;
}

bool Display::Save(FECurrentStatusData *out)
{
    FECurrentStatusData *p = nullptr;
    m_d->GetDisplayParam(ZT5_CFG_DISPLAY_GET_FE_CURRENTSTATUS, &p);
    if (p) std::memcpy(out, p, sizeof(*out));
    return p != nullptr;
}

FECurrentStatusData Display::Saved()
{
    FECurrentStatusData d;
    std::memset(&d, 0, sizeof(d));
    EXPECT_TRUE(Save(&d)) << "no saved state";
    return d;
}

int32_t Display::Restore(const FECurrentStatusData &rec)
{
    FECurrentStatusData *kept;
    {
        std::lock_guard<std::mutex> lock(m_keptLock);
        m_records.push_back(rec);
        kept = &m_records.back();
    }
    return Set(ZT5_CFG_DISPLAY_FE_CURRENTSTATUS, kept);
}

int32_t Display::Drag(float x0, float y0, float x1, float y1)
{
    float p[4] = {x0, y0, x1, y1};
    return Set(ZT5_CFG_DISPLAY_UITOUCH_MOVED, p);
}

int32_t Display::Pinch(float rate, float cx, float cy)
{
    float centre[2] = {cx, cy};
    ZT5TouchPinch pinch = {rate, centre};
    return Set(ZT5_CFG_DISPLAY_UITOUCH_VELOCITY, &pinch);
}

int32_t Display::DoubleTap(float x, float y)
{
    float *kept; // the display keeps the pointer for its next start
    {
        std::lock_guard<std::mutex> lock(m_keptLock);
        m_points.push_back({x, y});
        kept = m_points.back().data();
    }
    return Set(ZT5_CFG_DISPLAY_UITOUCH_DOUBLETAP, kept);
}

int32_t Display::Touch(uint32_t id, float x, float y)
{
    float p[2] = {x, y};
    return Set(id, p);
}

uint32_t Display::DrawsOver(int ms)
{
    const uint32_t d0 = Stats().dwDraws;
    std::this_thread::sleep_for(std::chrono::milliseconds(ms));
    return Stats().dwDraws - d0;
}

bool Display::Quiet()
{
    for (int i = 0; i < 80; i++)
        if (DrawsOver(250) == 0) return true;
    return false;
}

bool Rig::Started(const std::vector<std::pair<uint32_t, uint32_t>> &settings)
{
    if (!ok()) return false;
    for (const auto &s : settings)
        if (display.SetU32(s.first, s.second) != ZT5_OK) return false;
    return Init() == ZT5_OK;
}

Rig::Rig(int width, int height, uint32_t mode) : window(width, height)
{
    if (!display.ok()) return;
    EXPECT_EQ(display.SetU32(ZT5_CFG_DISPLAY_USE_OPENGLES, 1), ZT5_OK);
    EXPECT_EQ(display.SetU32(ZT5_CFG_DISPLAY_FISHEYE_MODE, mode), ZT5_OK);
}

} // namespace harness
