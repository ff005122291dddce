// The whole frame road of the display object, DrawFrame down to the crop
// copy of the display manager, against a bare memcpy of the same bytes:
// a 1920x1080 I420 frame in the plain view (the whole frame is copied) and
// in a fisheye view (the 1080x1080 lens square is copied). The render
// object is a double whose render does nothing, so the copy is all there is.
// Prints the median time per frame of each and the ratio to memcpy.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <vector>

#include "BenchNullRenderer.h"
#include "MDisplayMgr.h"
#include "ZT5Plugin.h"

namespace {


double Seconds()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

template <typename F> double MedianPerCall(F f, int reps)
{
    std::vector<double> t;
    for (int r = 0; r < 9; ++r) {
        double a = Seconds();
        for (int i = 0; i < reps; ++i) f();
        t.push_back((Seconds() - a) / reps);
    }
    std::sort(t.begin(), t.end());
    return t[t.size() / 2];
}

} // namespace

int main()
{
    MDisplayMgrSetRendererFactory(&MakeBenchNullRenderer);
    const int W = 1920, H = 1080;
    std::vector<unsigned char> frame(size_t(W) * H * 3 / 2);
    for (size_t i = 0; i < frame.size(); ++i) frame[i] = (unsigned char)(i * 31);

    IZT5Plugin *plugin = nullptr;
    if (ZT_GetPlugin(&plugin) != 0) return 1;
    void *obj = nullptr;
    plugin->CreateObject(ZT5_PLUGIN_TYPE_DISP, ZT5_PLUGIN_TYPE_DISP, &obj);
    IZT5Display *disp = static_cast<IZT5Display *>(obj);
    uint32_t one = 1;
    disp->SetDisplayParam(ZT5_CFG_DISPLAY_USE_OPENGLES, &one);
    ZT5DisplayParam rec = {};
    rec.hWnd = 0x4400001;
    rec.rtScreen = {0, 0, 1280, 720};
    disp->Init(&rec);
    ZT5FrameInfo info = {};
    info.dwWidth = W;
    info.dwHeight = H;
    info.dwStride = W;
    info.dwSliceHeight = H;
    info.dwCSType = ZT5_FRAME_CS_I420;

    const int reps = 40;
    std::vector<unsigned char> dst(frame.size());
    int bad = 0;

    // Plain view: the whole frame.
    for (int i = 0; i < 5; ++i) bad += disp->DrawFrame(frame.data(), &info, 0) != 0;
    double plain = MedianPerCall([&] { bad += disp->DrawFrame(frame.data(), &info, 0) != 0; }, reps);
    const size_t plainBytes = frame.size();
    double plainCopy = MedianPerCall([&] { std::memcpy(dst.data(), frame.data(), plainBytes); }, reps);

    // Fisheye view: the 1080x1080 lens square, row by row at the frame's pitch.
    uint32_t mode = 1;
    disp->SetDisplayParam(ZT5_CFG_DISPLAY_FISHEYE_MODE, &mode);
    for (int i = 0; i < 5; ++i) bad += disp->DrawFrame(frame.data(), &info, 0) != 0;
    double fish = MedianPerCall([&] { bad += disp->DrawFrame(frame.data(), &info, 0) != 0; }, reps);
    const size_t side = 1080;
    const size_t fishBytes = side * side * 3 / 2;
    double fishCopy = MedianPerCall([&] { std::memcpy(dst.data(), frame.data() + 420, fishBytes); }, reps);

    std::printf("DrawFrame 1920x1080 I420, plain view : %8.3f ms  memcpy %zu bytes %8.3f ms  ratio %.2f\n",
                plain * 1e3, plainBytes, plainCopy * 1e3, plain / plainCopy);
    std::printf("DrawFrame 1920x1080 I420, fisheye 1  : %8.3f ms  memcpy %zu bytes %8.3f ms  ratio %.2f\n",
                fish * 1e3, fishBytes, fishCopy * 1e3, fish / fishCopy);
    std::printf("target: ratio within 1.5; frames refused: %d\n", bad);

    disp->Uninit();
    plugin->DestroyObject(ZT5_PLUGIN_TYPE_DISP, ZT5_PLUGIN_TYPE_DISP, disp);
    ZT_ReleasePlugin(plugin);
    return bad ? 1 : 0;
}
