// The render road of the plain view: 1920x1080 I420 video in a 1280x720
// window. Measures the render thread's draws per second, what a post costs
// the poster's thread (CPU time and wall time, the latter including the wait
// for a draw under way), and where a draw's time goes: plane upload, the
// view's draw calls, the swap.
//
// Needs an X display (DISPLAY). Xlib is loaded at run time, so that the
// benchmark links against the library's archive alone.
#include <X11/Xlib.h>
#include <dlfcn.h>
#include <time.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <thread>
#include <vector>

#include "CWinOpenGLDisplay.h"
#include "ZT5Config.h"

namespace {

struct Xlib {
    Status (*InitThreads)();
    Display *(*OpenDisplay)(const char *);
    Window (*RootOf)(Display *);
    Window (*CreateSimpleWindow)(Display *, Window, int, int, unsigned, unsigned, unsigned, unsigned long,
                                 unsigned long);
    int (*MapWindow)(Display *, Window);
    int (*Sync)(Display *, Bool);
    int (*DestroyWindow)(Display *, Window);
    int (*CloseDisplay)(Display *);

    bool Load()
    {
        void *h = dlopen("libX11.so.6", RTLD_NOW | RTLD_GLOBAL);
        if (!h) return false;
        InitThreads = reinterpret_cast<decltype(InitThreads)>(dlsym(h, "XInitThreads"));
        OpenDisplay = reinterpret_cast<decltype(OpenDisplay)>(dlsym(h, "XOpenDisplay"));
        RootOf = reinterpret_cast<decltype(RootOf)>(dlsym(h, "XDefaultRootWindow"));
        CreateSimpleWindow = reinterpret_cast<decltype(CreateSimpleWindow)>(dlsym(h, "XCreateSimpleWindow"));
        MapWindow = reinterpret_cast<decltype(MapWindow)>(dlsym(h, "XMapWindow"));
        Sync = reinterpret_cast<decltype(Sync)>(dlsym(h, "XSync"));
        DestroyWindow = reinterpret_cast<decltype(DestroyWindow)>(dlsym(h, "XDestroyWindow"));
        CloseDisplay = reinterpret_cast<decltype(CloseDisplay)>(dlsym(h, "XCloseDisplay"));
        return InitThreads && OpenDisplay && RootOf && CreateSimpleWindow && MapWindow && Sync &&
               DestroyWindow && CloseDisplay;
    }
};

double ThreadCpuNs()
{
    timespec ts;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return double(ts.tv_sec) * 1e9 + double(ts.tv_nsec);
}

double Percentile(std::vector<double> v, double q)
{
    if (v.empty()) return 0.0;
    std::sort(v.begin(), v.end());
    return v[std::min(v.size() - 1, size_t(q * double(v.size() - 1) + 0.5))];
}

struct RunResult {
    double seconds = 0, drawsPerSecond = 0;
    double postCpuUsMean = 0, postWallUsMedian = 0, postWallUsP99 = 0, postWallUsMax = 0;
    CWinOpenGLESRenderer::Timings timings = {};
    int posted = 0;
};

// Posts `frames` frames at `fps` (0: as fast as the poster can) and
// measures.
RunResult Run(CWinOpenGLDisplay *display, std::vector<std::vector<uint8_t>> &frames,
              int count, int fps)
{
    RunResult r;
    std::vector<double> wallUs;
    double cpuNs = 0;
    const auto start = std::chrono::steady_clock::now();
    const MDWord draws0 = display->GetDrawCount();
    const CWinOpenGLESRenderer::Timings t0 = display->GetRenderer()->GetTimings();
    for (int i = 0; i < count; i++) {
        std::vector<uint8_t> &f = frames[size_t(i) % frames.size()];
        const auto w0 = std::chrono::steady_clock::now();
        const double c0 = ThreadCpuNs();
        display->render(f.data(), 1920, 1080, 1920, 1080);
        cpuNs += ThreadCpuNs() - c0;
        wallUs.push_back(std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - w0).count());
        if (fps > 0) std::this_thread::sleep_until(start + std::chrono::microseconds(int64_t(1e6 * (i + 1) / fps)));
    }
    r.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    r.drawsPerSecond = (display->GetDrawCount() - draws0) / r.seconds;
    const CWinOpenGLESRenderer::Timings t1 = display->GetRenderer()->GetTimings();
    r.timings = {t1.draws - t0.draws, t1.uploadNs - t0.uploadNs, t1.effectNs - t0.effectNs, t1.swapNs - t0.swapNs};
    r.posted = count;
    r.postCpuUsMean = cpuNs / 1000.0 / count;
    r.postWallUsMedian = Percentile(wallUs, 0.5);
    r.postWallUsP99 = Percentile(wallUs, 0.99);
    r.postWallUsMax = Percentile(wallUs, 1.0);
    return r;
}

void Print(const char *title, const RunResult &r)
{
    const double n = r.timings.draws ? double(r.timings.draws) : 1.0;
    const double up = r.timings.uploadNs / n / 1e6, ef = r.timings.effectNs / n / 1e6,
                 sw = r.timings.swapNs / n / 1e6;
    const double total = up + ef + sw;
    std::printf("%s\n", title);
    std::printf("  %d posts in %.2f s; render thread: %.1f draws/s\n", r.posted, r.seconds, r.drawsPerSecond);
    std::printf("  post on the poster's thread: CPU %.2f us mean; wall median %.1f us, p99 %.1f us, max %.1f us\n",
                r.postCpuUsMean, r.postWallUsMedian, r.postWallUsP99, r.postWallUsMax);
    std::printf("  per draw: upload %.2f ms, view %.2f ms, swap %.2f ms (total %.2f ms)\n", up, ef, sw, total);
    if (total > 0)
        std::printf("  shares: upload %.1f%%, view %.1f%%, swap %.1f%%\n", 100 * up / total, 100 * ef / total,
                    100 * sw / total);
}

} // namespace

int main()
{
    Xlib x;
    if (!x.Load()) {
        std::fprintf(stderr, "bench_render: libX11 not found\n");
        return 1;
    }
    x.InitThreads();
    dlopen("/usr/lib/x86_64-linux-gnu/dri/swrast_dri.so", RTLD_NOW | RTLD_NODELETE);
    Display *d = x.OpenDisplay(nullptr);
    if (!d) {
        std::fprintf(stderr, "bench_render: no X display (set DISPLAY)\n");
        return 1;
    }
    Window win = x.CreateSimpleWindow(d, x.RootOf(d), 0, 0, 1280, 720, 0, 0, 0);
    x.MapWindow(d, win);
    x.Sync(d, False);

    // A few different frames, so that every upload carries new content.
    std::vector<std::vector<uint8_t>> frames(4, std::vector<uint8_t>(size_t(1920) * 1080 * 3 / 2));
    for (size_t k = 0; k < frames.size(); k++)
        for (size_t i = 0; i < frames[k].size(); i++) frames[k][i] = uint8_t((i * 13 + k * 61) >> 3);

    FrameMailbox mailbox;
    CWinOpenGLDisplay *display = new CWinOpenGLDisplay();
    display->attachMailbox(&mailbox);
    display->setConfig(ZT5_CFG_PLUGINMGR_HDL, reinterpret_cast<void *>(uintptr_t(win)));
    char text[260] = {0};
    if (display->init(0, text, ZT5_CS_I420, MWindowHandle(win), 1920, 1080, 1920, 1080, 0, 0) != 0) {
        std::fprintf(stderr, "bench_render: init failed\n");
        return 1;
    }
    MDWord inited = 0;
    display->getConfig(ZT5_CFG_DISPLAY_RENDERER_INITED, &inited);
    if (!inited) {
        std::fprintf(stderr, "bench_render: renderer not up\n");
        return 1;
    }

    // Warm-up: the first draws of a new program are slow (shader compile).
    Run(display, frames, 30, 30);

    std::printf("bench_render: 1920x1080 I420 into a 1280x720 window, plain view\n");
    RunResult video = Run(display, frames, 150, 30);
    Print("30 fps video (5 s):", video);
    RunResult flood = Run(display, frames, 3000, 0);
    Print("posting as fast as possible:", flood);
    display->GetRenderer()->SetFinishEachPhase(true);
    RunResult finished = Run(display, frames, 90, 30);
    Print("30 fps, each phase finished on the GPU (attribution of deferred work):", finished);
    display->GetRenderer()->SetFinishEachPhase(false);

    const double drawMs = video.timings.draws
                              ? (video.timings.uploadNs + video.timings.effectNs + video.timings.swapNs) /
                                    double(video.timings.draws) / 1e6
                              : 0;
    std::printf("ratios: post CPU / draw time = %.5f; flood posts per draw = %.1f\n",
                drawMs > 0 ? video.postCpuUsMean / 1000.0 / drawMs : 0.0,
                flood.timings.draws ? double(flood.posted) / double(flood.timings.draws) : 0.0);

    delete display;
    x.DestroyWindow(d, win);
    x.CloseDisplay(d);
    return 0;
}
