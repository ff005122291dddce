// Cost of the frame copy on the blit road (into the display's mailbox),
// against a bare memcpy of the same number of bytes, for 1920x1080 frames of
// each layout. The render object does nothing, so the numbers are the
// manager's own.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <vector>

#include "BenchNullRenderer.h"
#include "MDisplayMgr.h"

namespace {


using Clock = std::chrono::steady_clock;

// Shortest time per call over several rounds: the least disturbed figure on
// a shared machine.
template <class F> double BestNanos(F &&f, int callsPerRound, int rounds)
{
    double best = 1e300;
    for (int r = 0; r < rounds; r++) {
        auto t0 = Clock::now();
        for (int i = 0; i < callsPerRound; i++) f();
        double ns = std::chrono::duration<double, std::nano>(Clock::now() - t0).count() / callsPerRound;
        best = std::min(best, ns);
    }
    return best;
}

// A frame of `layout`, w x h, in one buffer with the host's tight rows.
VideoFrame FrameIn(std::vector<unsigned char> &bytes, FrameLayout layout, uint32_t w, uint32_t h)
{
    VideoFrame f;
    f.layout = layout;
    f.width = w;
    f.height = h;
    size_t total = 0;
    for (int i = 0; i < f.PlaneCount(); i++) total += f.RowBytes(i) * f.Shape(i).rows;
    bytes.resize(total);
    for (size_t i = 0; i < bytes.size(); i++) bytes[i] = (unsigned char)(i * 131 + (i >> 11));
    size_t at = 0;
    for (int i = 0; i < f.PlaneCount(); i++) {
        f.plane[i] = {bytes.data() + at, f.RowBytes(i)};
        at += f.RowBytes(i) * f.Shape(i).rows;
    }
    return f;
}

} // namespace

int main()
{
    const uint32_t W = 1920, H = 1080;
    const int kCalls = 40, kRounds = 15;

    MDisplayMgrSetRendererFactory(&MakeBenchNullRenderer);
    MDisplayHandle h = MDisplayMgrCreate(1);
    DisplaySettings settings;
    settings.bUseOpenGles = 1;
    MDisplayMgrSetSettings(h, &settings, 0);
    ZT5Viewport vp = {};
    vp.hWnd = 1;
    vp.lWidth = 1280;
    vp.lHeight = 720;
    MDisplayMgrSetParam(h, M_DISPLAY_PARAM_VIEWPORT, &vp, sizeof(vp));
    ZT5Rect rc = {0, 0, int32_t(W), int32_t(H)};

    std::printf("%-34s %12s %12s %8s\n", "1920x1080 frame posted", "post (us)", "memcpy (us)", "ratio");
    const struct {
        const char *name;
        FrameLayout layout;
    } layouts[] = {{"I420", FrameLayout::I420}, {"NV12", FrameLayout::NV12}, {"YUYV", FrameLayout::YUYV},
                   {"I010 (10-bit planar)", FrameLayout::I010}, {"P010", FrameLayout::P010}};
    for (const auto &l : layouts) {
        std::vector<unsigned char> bytes, dst;
        const VideoFrame f = FrameIn(bytes, l.layout, W, H);
        dst.resize(bytes.size());
        auto post = [&] { MDisplayMgrBlit(h, &f, &rc, &rc, 0); };
        post(); // renderer made, slots allocated
        post();
        post();
        const double postNs = BestNanos(post, kCalls, kRounds);
        const double copyNs = BestNanos([&] { std::memcpy(dst.data(), bytes.data(), bytes.size()); }, kCalls, kRounds);
        std::printf("%-34s %12.1f %12.1f %8.2f\n", l.name, postNs / 1e3, copyNs / 1e3, postNs / copyNs);
    }

    MDisplayMgrDelete(h);
    MDisplayMgrSetRendererFactory(nullptr);
    return 0;
}
