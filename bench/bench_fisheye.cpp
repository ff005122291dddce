// Draws per second of the fisheye views next to the plain view (mode 0), each
// also as its time a draw against the panorama strip's (mode 2, timed again
// just before each view), on the same 1080x1080 lens
// square (also for mode 10, which then makes its coordinates for a square
// picture), into a 1280x720 surface on whatever GL the machine has (the
// software rasteriser in CI). Each draw uploads the three planes as the
// renderer does, renders, and waits for the GPU (glFinish), so the figure is
// the cost of one frame without the window system's presentation. The
// process's CPU time a draw is given beside it, and its ratio to the strip's:
// on a software rasteriser that is the work of a draw, which another
// program busy on the same cores slows but does not add to.
//
// Two references: the strip as it opens (57.5 % of the window's height,
// the rest background) and the strip after a double tap, filling the
// window as the other views do, so that the second ratio is the work of a
// pixel against the strip's.
//
// Usage: bench_fisheye [seconds per mode, default 3]
// BENCH_MODES=2,10 in the environment: those modes only; BENCH_SIZE=480x264
// another surface.
// BENCH_NOBACK=1 in the environment draws the half sphere without its cloud
// picture and stars.
#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <GLES2/gl2.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <memory>
#include <vector>

#include "BenchClock.h"
#include "BenchGlContext.h"
#include "EffectFactory.h"
#include "FrameSampler.h"

namespace {

// The surface and the lens square: BENCH_SIZE=WxH sets the surface, the
// square then as high as it (a tile of a wall fed frames of its size).
int kW = 1280, kH = 720, kSide = 1080;

// A lens-like test picture: luma rings and chroma sectors.
void MakePlanes(std::vector<uint8_t> &y, std::vector<uint8_t> &u, std::vector<uint8_t> &v)
{
    y.resize(kSide * kSide);
    u.resize(kSide * kSide / 4);
    v.resize(kSide * kSide / 4);
    for (int j = 0; j < kSide; j++)
        for (int i = 0; i < kSide; i++) {
            double dx = i - kSide / 2.0, dy = j - kSide / 2.0;
            y[j * kSide + i] = uint8_t(16 + 219 * (0.5 + 0.5 * std::cos(std::sqrt(dx * dx + dy * dy) / 20.0)));
        }
    for (int j = 0; j < kSide / 2; j++)
        for (int i = 0; i < kSide / 2; i++) {
            double a = std::atan2(j - kSide / 4.0, i - kSide / 4.0);
            u[j * (kSide / 2) + i] = uint8_t(128 + 100 * std::cos(a));
            v[j * (kSide / 2) + i] = uint8_t(128 + 100 * std::sin(a));
        }
}

// warmup: draws before timing; the half sphere's opening flight (65 draws,
// the eye inside the bowl) is timed separately from its steady overview.
// closeUp: a double tap first, and the move to the close position drawn (the
// four panes: one pane zoomed to the window).
struct Rate {
    double perSecond;  // draws a second, elapsed time; below 0: the view failed
    double cpuPerDraw; // seconds of the process's CPU time a draw
};
Rate DrawsPerSecond(MDWord mode, const GLuint *tex, const std::vector<uint8_t> *planes, double seconds,
                    int warmup, bool inside = false, bool closeUp = false)
{
    std::unique_ptr<GlesRenderEffect> view(CreateRenderEffect(mode, 0));
    if (!view || view->Initialize(kSide, kSide) != 0) return {-1.0, 0.0};
    // The planes the view samples: without them it would read texture 0,
    // which costs a software rasteriser less than a real picture.
    view->SetFrameSampling(PictureSampling(tex));
    if (getenv("BENCH_NOBACK")) view->SetDisBackGroundSts(0, 0);
    if (closeUp) {
        view->Render(nullptr, kW, kH, kSide, kSide, tex, 0, 0);
        view->OnDoubleClick(0, 0);
        for (int i = 0; i < 160; i++) view->Render(nullptr, kW, kH, kSide, kSide, tex, 0, 0);
    }
    if (inside) {
        // The journey into the bowl: double click, then the 42-frame flight.
        for (int i = 0; i < 66; i++) view->Render(nullptr, kW, kH, kSide, kSide, tex, 0, 0);
        view->OnDoubleClick(kW - 1, kH / 2);
        for (int i = 0; i < 43; i++) view->Render(nullptr, kW, kH, kSide, kSide, tex, 0, 0);
    }
    const MLong rect[4] = {0, 0, kW, kH};
    auto draw = [&] {
        bindTexture(tex[0], planes[0].data(), kSide, kSide);
        bindTexture(tex[1], planes[1].data(), kSide / 2, kSide / 2);
        bindTexture(tex[2], planes[2].data(), kSide / 2, kSide / 2);
        view->Render(rect, kW, kH, kSide, kSide, tex, 0, 0);
        glFinish();
    };
    // Warm-up: the first draws of a new shader compile it.
    for (int i = 0; i < warmup; i++) draw();
    const auto t0 = Clock::now();
    const double cpu0 = ProcessCpuSeconds();
    int n = 0;
    double elapsed = 0.0;
    do {
        draw();
        n++;
        elapsed = Since(t0);
    } while (elapsed < seconds);
    return {n / elapsed, (ProcessCpuSeconds() - cpu0) / n};
}

} // namespace

int main(int argc, char **argv)
{
    double seconds = argc > 1 ? std::atof(argv[1]) : 3.0;
    if (!(seconds > 0.0)) seconds = 3.0;
    if (const char *size = getenv("BENCH_SIZE")) {
        int w = 0, h = 0;
        if (std::sscanf(size, "%dx%d", &w, &h) == 2 && w >= 16 && h >= 16) kW = w, kH = h, kSide = h & ~1;
    }
    BenchGlContext context(kW, kH);
    if (!context.ok()) {
        std::fprintf(stderr, "bench_fisheye: no EGL context\n");
        return 1;
    }
    std::printf("renderer: %s\n", reinterpret_cast<const char *>(glGetString(GL_RENDERER)));
    std::vector<uint8_t> planes[3];
    MakePlanes(planes[0], planes[1], planes[2]);
    GLuint tex[3];
    glGenTextures(3, tex);
    const struct {
        MDWord mode;
        const char *name;
        int warmup;
        bool inside;
        bool closeUp;
    } modes[] = {{0, "mode 0 plain view", 10, false, false},
                 {2, "mode 2 panorama strip", 10, false, false},
                 {1, "mode 1 overview", 80, false, false},
                 {1, "mode 1 inside the bowl", 10, true, false},
                 {3, "mode 3 four panes", 10, false, false},
                 {3, "mode 3 one pane zoomed", 10, false, true},
                 {4, "mode 4 map and pane", 10, false, false},
                 {5, "mode 5 cylinder", 10, false, false},
                 {6, "mode 6 dome", 10, false, false},
                 {7, "mode 7 wall, three panes", 10, false, false},
                 {8, "mode 8 wall, two panes", 10, false, false},
                 {9, "mode 9 wall, wide", 10, false, false},
                 {9, "mode 9 wall, close", 10, false, true},
                 {10, "mode 10 180-degree, wide", 10, false, false},
                 {10, "mode 10 180-degree, close", 10, false, true}};
    std::printf("%dx%d lens square into %dx%d, %.1f s each\n", kSide, kSide, kW, kH, seconds);
    // Each view is paired with a run of the strip just before it, so that a
    // load that comes and goes on a shared machine weighs on both alike.
    // The strip as it opens covers 57.5 % of the window's height; after a
    // double tap it fills the window, as every other view does: the second
    // pair of ratios compares the work per pixel.
    const char *only = getenv("BENCH_MODES"); // e.g. "2,10": those views only
    Rate strip = {0.0, 0.0}, full = {0.0, 0.0};
    std::printf("%-28s %6s %9s | %-13s | %-13s\n", "", "draws/s", "ms/draw", "x strip", "x full strip");
    std::printf("%-28s %6s %9s | %5s %7s | %5s %7s\n", "", "", "", "time", "CPU", "time", "CPU");
    for (const auto &m : modes) {
        if (only && !strstr(only, std::to_string(m.mode).c_str())) continue;
        if (m.mode != 0) {
            strip = DrawsPerSecond(2, tex, planes, seconds / 3, 10);
            full = DrawsPerSecond(2, tex, planes, seconds / 3, 10, false, true);
        }
        const Rate r = DrawsPerSecond(m.mode, tex, planes, seconds, m.warmup, m.inside, m.closeUp);
        if (r.perSecond < 0)
            std::printf("%-28s failed to initialise\n", m.name);
        else if (strip.perSecond > 0)
            std::printf("%-28s %7.1f %9.2f | %5.2f %7.2f | %5.2f %7.2f\n", m.name, r.perSecond, 1000.0 / r.perSecond,
                        strip.perSecond / r.perSecond, r.cpuPerDraw / strip.cpuPerDraw, full.perSecond / r.perSecond,
                        r.cpuPerDraw / full.cpuPerDraw);
        else
            std::printf("%-28s %7.1f %9.2f\n", m.name, r.perSecond, 1000.0 / r.perSecond);
    }
    glDeleteTextures(3, tex);
    return 0;
}
