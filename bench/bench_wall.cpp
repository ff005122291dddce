// A wall of displays, as a surveillance client shows many cameras: N
// displays tiled over one 1920x1080 screen (N = 1, 4, 16), each fed frames
// of its own window's size at 25 fps, so that the pixels drawn are those of
// one full-screen display whatever N. Per view: the share of the posted
// frames that reached a draw, and the process's CPU (cores busy), at each N
// and at 16 against 1. A view whose work follows its pixels costs about the
// same at every N.
//
// The library is loaded as a host loads it and driven through its public
// boundary. Needs an X display of at least 1920x1080 (Xvfb -screen 0
// 1920x1080x24).
//
// Usage: bench_wall [seconds per case, default 4] [mode ...] (default: all)
#include <X11/Xlib.h>
#include <sys/resource.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "BenchClock.h"
#include "PanoviewHost.h"
#include "SyntheticScene.h"
#include "ZT5Plugin.h"

namespace {

const int kScreenW = 1920, kScreenH = 1080;
const int kFps = 25;


// One tile: its window at its place on the screen, a display in it, and a
// few frames of the built-in scene of the window's size (the wall-camera
// scene for modes 7 to 10).
struct Tile {
    Window window = 0;
    PanoviewDisplay display;
    ZT5FrameInfo info = {};
    std::vector<std::vector<uint8_t>> frames;

    bool Open(Display *x, PanoviewLibrary &lib, int mode, int left, int top, int w, int h)
    {
        window = XCreateSimpleWindow(x, DefaultRootWindow(x), left, top, unsigned(w), unsigned(h), 0, 0, 0);
        XMapWindow(x, window);
        XSync(x, False);
        std::string error;
        if (!display.Create(lib.plugin(), &error)) return false;
        synthetic::LensFrame l = mode >= 7 && mode <= 10 ? synthetic::WallLens(mode == 10) : synthetic::LensFrame();
        const double s = double(h) / l.height; // the scene scaled to the window
        l.width = w, l.height = h;
        l.cx = w / 2, l.cy = h / 2;
        l.radius = int(l.radius * s);
        for (int i = 0; i < 4; i++) frames.push_back(synthetic::MakeFisheyeFrame(l, i));
        ZT5FishEyeParam lens = {l.cx * 10000 / w, l.cy * 10000 / h, l.radius * 10000 / w, l.radius * 10000 / h};
        display.SetU32(ZT5_CFG_DISPLAY_USE_OPENGLES, 1, "USE_OPENGLES");
        display.Set(ZT5_CFG_COMMON_FISHEYE_PARAM, &lens, "FISHEYE_PARAM");
        display.SetU32(ZT5_CFG_DISPLAY_FISHEYE_MODE, uint32_t(mode), "FISHEYE_MODE");
        display.SetU32(ZT5_CFG_DISPLAY_FE_BASE_ANIMATION, 0, "FE_BASE_ANIMATION");
        info.dwWidth = uint32_t(w), info.dwHeight = uint32_t(h);
        info.dwStride = uint32_t(w), info.dwSliceHeight = uint32_t(h);
        info.dwCSType = ZT5_FRAME_CS_I420;
        return display.Init(uint32_t(window), w, h) == ZT5_OK;
    }
    void Post(int n) { display.Draw(frames[size_t(n) % frames.size()].data(), info); }
    ZT5RenderStats Stats()
    {
        ZT5RenderStats s = {};
        display.Get(ZT5_CFG_DISPLAY_RENDER_STATS, &s);
        return s;
    }
    void Close(Display *x)
    {
        display.Uninit();
        if (window) XDestroyWindow(x, window);
        window = 0;
    }
};

struct Result {
    double drawnShare = 0, cores = 0;
};

// N tiles of one view; after a second of warm-up, frames at 25 fps to every
// tile for `seconds`.
Result RunWall(Display *x, PanoviewLibrary &lib, int mode, int n, double seconds)
{
    const int side = int(std::lround(std::sqrt(double(n))));
    // Even sizes, multiples of 8 where the screen allows (480x264 at 16).
    const int w = (kScreenW / side) & ~7, h = (kScreenH / side) & ~7;
    std::vector<std::unique_ptr<Tile>> tiles;
    for (int i = 0; i < n; i++) {
        tiles.emplace_back(new Tile);
        if (!tiles.back()->Open(x, lib, mode, (i % side) * w, (i / side) * h, w, h)) {
            std::fprintf(stderr, "tile %d of mode %d failed\n", i, mode);
            return {};
        }
    }
    auto post = [&](double s, int *frame) {
        const auto t0 = Clock::now();
        int k = 0;
        while (Since(t0) < s) {
            for (auto &t : tiles) t->Post(*frame);
            ++*frame, ++k;
            std::this_thread::sleep_until(t0 + std::chrono::microseconds(int64_t(1e6 * k / kFps)));
        }
    };
    int frame = 0;
    post(1.0, &frame); // renderers made, shaders compiled
    std::vector<ZT5RenderStats> before;
    for (auto &t : tiles) before.push_back(t->Stats());
    const double c0 = ProcessCpuSeconds();
    const auto t0 = Clock::now();
    post(seconds, &frame);
    std::this_thread::sleep_for(std::chrono::milliseconds(100)); // the last frame's draw
    const double elapsed = Since(t0);
    const double cores = (ProcessCpuSeconds() - c0) / elapsed;
    double posted = 0, drawn = 0;
    for (size_t i = 0; i < tiles.size(); i++) {
        const ZT5RenderStats s = tiles[i]->Stats();
        posted += s.dwFramesPosted - before[i].dwFramesPosted;
        drawn += s.dwFramesDrawn - before[i].dwFramesDrawn;
    }
    for (auto &t : tiles) t->Close(x);
    XSync(x, False);
    return {posted > 0 ? drawn / posted : 0, cores};
}

} // namespace

int main(int argc, char **argv)
{
    double seconds = argc > 1 ? std::atof(argv[1]) : 4.0;
    if (!(seconds > 0.0)) seconds = 4.0;
    std::vector<int> modes;
    for (int i = 2; i < argc; i++) modes.push_back(std::atoi(argv[i]));
    if (modes.empty())
        for (int m = 0; m <= 10; m++) modes.push_back(m);

    XInitThreads();
    Display *x = XOpenDisplay(nullptr);
    if (!x) {
        std::fprintf(stderr, "bench_wall: no X display\n");
        return 1;
    }
    if (DisplayWidth(x, DefaultScreen(x)) < kScreenW || DisplayHeight(x, DefaultScreen(x)) < kScreenH)
        std::fprintf(stderr, "bench_wall: the screen is smaller than %dx%d; tiles off it cost less\n", kScreenW, kScreenH);
    PanoviewLibrary lib;
    std::string error;
    if (!lib.Load(PANOVIEW_LIB_PATH, &error)) {
        std::fprintf(stderr, "%s\n", error.c_str());
        return 1;
    }
    std::printf("wall over %dx%d, frames of each window's size at %d fps, %.1f s a case\n", kScreenW, kScreenH, kFps,
                seconds);
    std::printf("%-6s %22s %22s %22s %10s\n", "mode", "N=1 drawn / cores", "N=4 drawn / cores", "N=16 drawn / cores",
                "CPU 16/1");
    for (int mode : modes) {
        Result r[3];
        const int ns[3] = {1, 4, 16};
        for (int i = 0; i < 3; i++) r[i] = RunWall(x, lib, mode, ns[i], seconds);
        std::printf("%-6d", mode);
        for (const Result &q : r) std::printf("      %6.1f%% / %5.2f", 100 * q.drawnShare, q.cores);
        std::printf(" %10.2f\n", r[0].cores > 0 ? r[2].cores / r[0].cores : 0.0);
        std::fflush(stdout);
    }
    XCloseDisplay(x);
    return 0;
}
