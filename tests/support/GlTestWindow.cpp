#include "GlTestWindow.h"

#include <X11/Xlib.h>
#include <dlfcn.h>
#include <png.h>
#include <sys/stat.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <thread>

#include "CWinOpenGLDisplay.h"
#include "ZT5Config.h"

namespace gltest {

bool EnsureX()
{
    static std::once_flag once;
    static bool ok = false;
    std::call_once(once, [] {
        XInitThreads();
        dlopen("/usr/lib/x86_64-linux-gnu/dri/swrast_dri.so", RTLD_NOW | RTLD_NODELETE);
        // A busy X server may refuse a connection for a moment; try again.
        Display *d = nullptr;
        for (int i = 0; i < 50 && !d; i++) {
            d = XOpenDisplay(nullptr);
            if (!d) std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        ok = d != nullptr;
        if (d) XCloseDisplay(d);
    });
    return ok;
}

TestWindow::TestWindow(int width, int height)
{
    if (!EnsureX()) return;
    // A busy X server may refuse a connection for a moment; try again.
    Display *d = nullptr;
    for (int i = 0; i < 50 && !d; i++) {
        d = XOpenDisplay(nullptr);
        if (!d) {
            std::fprintf(stderr, "TestWindow: XOpenDisplay failed (try %d)\n", i + 1);
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
    }
    if (!d) return;
    m_display = d;
    Window w = XCreateSimpleWindow(d, DefaultRootWindow(d), 0, 0, unsigned(width), unsigned(height), 0, 0, 0);
    XMapWindow(d, w);
    XSync(d, False);
    m_window = uint32_t(w);
}

TestWindow::~TestWindow()
{
    Display *d = static_cast<Display *>(m_display);
    if (!d) return;
    if (m_window) XDestroyWindow(d, m_window);
    XSync(d, False);
    XCloseDisplay(d);
}

void TestWindow::Resize(int width, int height)
{
    Display *d = static_cast<Display *>(m_display);
    XResizeWindow(d, m_window, unsigned(width), unsigned(height));
    XSync(d, False);
}

static int Clamp8(double v)
{
    double s = v * 255.0;
    if (s < 0.0) return 0;
    if (s > 255.0) return 255;
    return int(s + 0.5);
}

Rgb VideoRangeToRgb(int y, int u, int v)
{
    const double yy = 1.1643 * (y / 255.0 - 0.0625);
    const double uu = u / 255.0 - 0.5;
    const double vv = v / 255.0 - 0.5;
    return {Clamp8(yy + 1.5958 * vv), Clamp8(yy - 0.39173 * uu - 0.81290 * vv), Clamp8(yy + 2.017 * uu)};
}

Rgb FullRangeToRgb(int y, int u, int v)
{
    const double yy = y / 255.0;
    const double uu = u / 255.0 - 0.5;
    const double vv = v / 255.0 - 0.5;
    return {Clamp8(yy + 1.13983 * vv), Clamp8(yy - 0.39465 * uu - 0.58060 * vv), Clamp8(yy + 2.03211 * uu)};
}

Frame::Frame(int w, int h, uint8_t y, uint8_t u, uint8_t v) : width(w), height(h)
{
    data.resize(size_t(w) * h + 2 * size_t(w / 2) * (h / 2));
    Fill(0, 0, w, h, y, u, v);
}

void Frame::Fill(int x0, int y0, int x1, int y1, uint8_t y, uint8_t u, uint8_t v)
{
    for (int r = y0; r < y1; r++) std::memset(Y() + size_t(r) * width + x0, y, size_t(x1 - x0));
    const int cw = width / 2;
    for (int r = y0 / 2; r < (y1 + 1) / 2 && r < height / 2; r++) {
        for (int c = x0 / 2; c < (x1 + 1) / 2 && c < cw; c++) {
            U()[size_t(r) * cw + c] = u;
            V()[size_t(r) * cw + c] = v;
        }
    }
}

bool Near(const Rgb &a, const Rgb &b, int tolerance)
{
    return std::abs(a.r - b.r) <= tolerance && std::abs(a.g - b.g) <= tolerance && std::abs(a.b - b.b) <= tolerance;
}

std::string ToString(const Rgb &c)
{
    char buf[48];
    std::snprintf(buf, sizeof(buf), "(%d,%d,%d)", c.r, c.g, c.b);
    return buf;
}

std::string WritePng(const Picture &pic, const std::string &name)
{
    const std::string dir = PANOVIEW_TEST_OUTPUT_DIR;
    mkdir(dir.c_str(), 0755);
    const std::string path = dir + "/" + name + ".png";
    FILE *f = std::fopen(path.c_str(), "wb");
    if (!f) return "";
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        std::fclose(f);
        return "";
    }
    png_init_io(png, f);
    png_set_IHDR(png, info, png_uint_32(pic.width), png_uint_32(pic.height), 8, PNG_COLOR_TYPE_RGBA,
                 PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    for (int y = 0; y < pic.height; y++)
        png_write_row(png, const_cast<png_bytep>(&pic.rgba[size_t(y) * pic.width * 4]));
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    std::fclose(f);
    return path;
}

RenderHarness::RenderHarness()
{
    m_pRender = CreateWinOpenGLDisplay();
}

RenderHarness::~RenderHarness()
{
    Destroy();
}

void RenderHarness::Destroy()
{
    delete m_pRender;
    m_pRender = nullptr;
}

MRESULT RenderHarness::Init(uint32_t window, int videoWidth, int videoHeight, uint32_t rotation, int32_t mode)
{
    MDWord zero = 0;
    m_pRender->setConfig(ZT5_CFG_DISPLAY_ROTATION_ANGLE, &zero);
    m_pRender->setConfig(ZT5_CFG_DISPLAY_RENDER_MUTEX, &m_FrameMutex);
    m_pRender->setConfig(ZT5_CFG_DISPLAY_FISHEYE_MODE, &mode);
    m_pRender->setConfig(ZT5_CFG_PLUGINMGR_HDL, reinterpret_cast<void *>(uintptr_t(window)));
    char text[260] = {0};
    return m_pRender->init(0, text, ZT5_CS_I420, MWindowHandle(window), videoWidth, videoHeight, videoWidth,
                           videoHeight, 0, rotation);
}

MDWord RenderHarness::DrawCount() const
{
    return static_cast<CWinOpenGLDisplay *>(m_pRender)->GetDrawCount();
}

void RenderHarness::Post(Frame &frame)
{
    m_FrameMutex.Lock();
    m_Crop.assign(frame.data.begin(), frame.data.end());
    m_pRender->render(m_Crop.data(), frame.width, frame.height, frame.width, frame.height);
    m_FrameMutex.Unlock();
}

bool RenderHarness::WaitDraws(unsigned count)
{
    // A watchdog, not a timing check: a draw normally comes within tens of
    // milliseconds; only a stuck render thread reaches the limit.
    const MDWord start = DrawCount();
    for (int i = 0; i < 3000; i++) {
        if (DrawCount() - start >= count) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return false;
}

bool RenderHarness::PostAndWait(Frame &frame)
{
    Post(frame);
    // Until the draw that showed this very frame has finished.
    for (int i = 0; i < 3000; i++) {
        ZT5RenderStats stats = {};
        m_pRender->getConfig(ZT5_CFG_DISPLAY_RENDER_STATS, &stats);
        if (stats.dwFramesPosted && stats.dwNewestDrawn == stats.dwFramesPosted) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return false;
}

bool RenderHarness::Snapshot(Picture *pic, uint32_t *pCSType)
{
    ZT5Snapshot *pRecord = nullptr;
    m_pRender->getConfig(ZT5_CFG_DISPLAY_GL_SNAPSHOT, &pRecord);
    if (!pRecord) return false;
    if (pCSType) *pCSType = pRecord->dwCSType;
    if (pRecord->dwCSType != ZT5_SNAPSHOT_RGBA || !pRecord->pBuffer) return false;
    pic->width = int(pRecord->dwWidth);
    pic->height = int(pRecord->dwHeight);
    pic->rgba.resize(size_t(pic->width) * pic->height * 4);
    const uint8_t *src = static_cast<const uint8_t *>(pRecord->pBuffer);
    const size_t pitch = size_t(pic->width) * 4;
    // The record's rows are bottom-first.
    for (int y = 0; y < pic->height; y++)
        std::memcpy(&pic->rgba[size_t(y) * pitch], src + size_t(pic->height - 1 - y) * pitch, pitch);
    return true;
}

} // namespace gltest
