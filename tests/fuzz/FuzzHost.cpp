#include "FuzzHost.h"
#include "HostIds.h"

#include <X11/Xlib.h>
#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <vector>

namespace fuzz {

namespace {

const int kWidth = 160, kHeight = 120;

struct Host {
    IZT5Plugin *plugin = nullptr;
    IZT5Display *display = nullptr;
    ::Window window = 0;
    Host()
    {
        // The library renders on a thread of its own; the software driver is
        // kept loaded (its unload leaves bytes LeakSanitizer would report
        // against no module).
        XInitThreads();
        dlopen("/usr/lib/x86_64-linux-gnu/dri/swrast_dri.so", RTLD_LAZY | RTLD_NODELETE);
        ::Display *dpy = XOpenDisplay(nullptr);
        if (!dpy) {
            std::fprintf(stderr, "fuzz: no X display (DISPLAY not set?)\n");
            std::exit(2);
        }
        const int s = DefaultScreen(dpy);
        window = XCreateSimpleWindow(dpy, RootWindow(dpy, s), 0, 0, kWidth, kHeight, 0, 0, BlackPixel(dpy, s));
        XMapWindow(dpy, window);
        XSync(dpy, False);
        void *obj = nullptr;
        if (ZT_GetPlugin(&plugin) != ZT5_OK ||
            plugin->CreateObject(ZT5_PLUGIN_TYPE_DISP, ZT5_PLUGIN_TYPE_DISP, &obj) != ZT5_OK) {
            std::fprintf(stderr, "fuzz: no display object\n");
            std::exit(2);
        }
        display = static_cast<IZT5Display *>(obj);
        uint32_t on = 1;
        display->SetDisplayParam(ZT5_CFG_DISPLAY_USE_OPENGLES, &on);
        ZT5FishEyeParam lens = {5000, 5000, 2800, 5000};
        display->SetDisplayParam(ZT5_CFG_COMMON_FISHEYE_PARAM, &lens);
        ZT5DisplayParam where = {};
        where.hWnd = uint32_t(window);
        where.rtScreen = where.rtClip = {0, 0, kWidth, kHeight};
        display->Init(&where);
    }
};

Host &TheHost()
{
    static Host *host = new Host(); // lives as long as the process, as a host keeps its player
    return *host;
}

} // namespace

IZT5Display *Display()
{
    return TheHost().display;
}

uint32_t Window()
{
    return uint32_t(TheHost().window);
}

void Settle()
{
    ZT5Snapshot *snap = nullptr;
    Display()->GetDisplayParam(ZT5_CFG_DISPLAY_GL_SNAPSHOT, &snap);
}

void PushPlainFrame()
{
    static std::vector<uint8_t> frame(size_t(kWidth) * kHeight * 3 / 2, 128);
    ZT5FrameInfo info = {uint32_t(kWidth), uint32_t(kHeight), uint32_t(kWidth), uint32_t(kHeight), 0,
                         ZT5_FRAME_CS_I420, 0, 0};
    Display()->DrawFrame(frame.data(), &info, 0);
}

void CheckSavedStateFinite()
{
    FECurrentStatusData *p = nullptr;
    Display()->GetDisplayParam(ZT5_CFG_DISPLAY_GET_FE_CURRENTSTATUS, &p);
    const int at = p ? NonFiniteField(*p) : -1;
    if (at < 0) return;
    std::fprintf(stderr, "fuzz: the saved state of view %d holds %f at byte %d\n", int(p->mFishEyeMode),
                 double(*reinterpret_cast<const float *>(reinterpret_cast<const char *>(p) + at)), at);
    std::abort();
}

} // namespace fuzz
