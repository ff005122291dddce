// Cost of the frame copy on the blit road, against a bare memcpy of the same
// number of bytes: a 1920x1080 I420 frame in the plain view (block copy) and
// its 1080x1080 lens square in a fisheye view (row crop). The render object
// does nothing, so the numbers are the manager's own.
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

void SetWord(MDisplayHandle h, MDWord id, MDWord v)
{
    MDisplayMgrSetParam(h, id, &v, 4);
}

} // namespace

int main()
{
    const int W = 1920, H = 1080, L = 1080, LX = 420;
    const int kCalls = 40, kRounds = 15;

    std::vector<unsigned char> frame(size_t(W) * H * 3 / 2);
    for (size_t i = 0; i < frame.size(); i++) frame[i] = (unsigned char)(i * 131 + (i >> 11));
    unsigned char *planes[3] = {frame.data(), frame.data() + W * H, frame.data() + W * H * 5 / 4};
    MLong strides[3] = {W, W / 2, W / 2};
    ZT5Rect rc = {0, 0, W, H};

    MDisplayMgrSetRendererFactory(&MakeBenchNullRenderer);
    MDisplayHandle h = MDisplayMgrCreate(1);
    ZT5FrameInfo fi = {};
    fi.dwWidth = W;
    fi.dwHeight = H;
    fi.dwCSType = 1;
    MDisplayMgrSetParam(h, M_DISPLAY_PARAM_FRAMEINFO, &fi, sizeof(fi));
    SetWord(h, ZT5_CFG_DISPLAY_USE_OPENGLES, 1);
    ZT5Viewport vp = {};
    vp.hWnd = 1;
    vp.lWidth = 1280;
    vp.lHeight = 720;
    MDisplayMgrSetParam(h, M_DISPLAY_PARAM_VIEWPORT, &vp, sizeof(vp));

    std::vector<unsigned char> dst(frame.size());
    auto blit = [&] { MDisplayMgrBlit(h, ZT5_CS_I420, planes, strides, &rc, &rc, 0); };

    // Plain view: the whole frame.
    const size_t plainBytes = frame.size();
    blit(); // renderer made, buffer allocated
    double plainBlit = BestNanos(blit, kCalls, kRounds);
    double plainCopy = BestNanos([&] { std::memcpy(dst.data(), frame.data(), plainBytes); }, kCalls, kRounds);

    // Fisheye view: the lens square only.
    SetWord(h, ZT5_CFG_DISPLAY_FISHEYE_MODE, 1);
    SetWord(h, ZT5_CFG_DISPLAY_FISHEYE_X_POS, LX);
    SetWord(h, ZT5_CFG_DISPLAY_FISHEYE_Y_POS, 0);
    SetWord(h, ZT5_CFG_DISPLAY_FISHEYE_WIDTH, L);
    SetWord(h, ZT5_CFG_DISPLAY_FISHEYE_HEIGHT, L);
    const size_t lensBytes = size_t(L) * L * 3 / 2;
    blit();
    double lensBlit = BestNanos(blit, kCalls, kRounds);
    double lensCopy = BestNanos([&] { std::memcpy(dst.data(), frame.data(), lensBytes); }, kCalls, kRounds);

    std::printf("%-34s %12s %12s %8s\n", "case", "blit (us)", "memcpy (us)", "ratio");
    std::printf("%-34s %12.1f %12.1f %8.2f\n", "plain 1920x1080 I420 (3110400 B)", plainBlit / 1e3, plainCopy / 1e3,
                plainBlit / plainCopy);
    std::printf("%-34s %12.1f %12.1f %8.2f\n", "lens 1080x1080 of 1920x1080 (1749600 B)", lensBlit / 1e3,
                lensCopy / 1e3, lensBlit / lensCopy);

    MDisplayMgrDelete(h);
    MDisplayMgrSetRendererFactory(nullptr);
    return 0;
}
