// Embedding Panoview in a player, in one file: open an X11 window, create a
// display on it, push I420 frames, read one picture back. It links the
// installed library (pkg-config panoview, or CMake's find_package); a player
// may as well dlopen libPanoview.so.1 and look up ZT_GetPlugin.
//
//   c++ -std=c++17 embed_host.cpp $(pkg-config --cflags --libs panoview x11) -o embed_host
//
// Prints the colour drawn in the middle of the window; exit code 0 when it
// is the colour of the frames.
#include <X11/Xlib.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <vector>

#include "ZT5Plugin.h"

int main()
{
    // The library renders on a thread of its own, which uses Xlib too.
    XInitThreads();
    Display *x = XOpenDisplay(nullptr);
    if (!x) {
        std::fprintf(stderr, "embed_host: no X display\n");
        return 1;
    }
    const int W = 320, H = 180;
    Window win = XCreateSimpleWindow(x, DefaultRootWindow(x), 0, 0, W, H, 0, 0, 0);
    XMapWindow(x, win);
    XSync(x, False);

    IZT5Plugin *plugin = nullptr;
    IZT5Display *display = nullptr;
    if (ZT_GetPlugin(&plugin) != ZT5_OK ||
        plugin->CreateObject(ZT5_PLUGIN_TYPE_DISP, ZT5_PLUGIN_TYPE_DISP, reinterpret_cast<void **>(&display)) !=
            ZT5_OK) {
        std::fprintf(stderr, "embed_host: no display object\n");
        return 1;
    }

    // Parameters may come before Init; OpenGL ES is the drawing road.
    uint32_t on = 1;
    display->SetDisplayParam(ZT5_CFG_DISPLAY_USE_OPENGLES, &on);
    ZT5DisplayParam where = {};
    where.hWnd = uint32_t(win);
    where.rtScreen = {0, 0, W, H};
    where.rtClip = where.rtScreen;
    if (display->Init(&where) != ZT5_OK) {
        std::fprintf(stderr, "embed_host: Init failed\n");
        return 1;
    }

    // A 64x36 I420 frame of one colour: Y, then U, then V.
    const int fw = 64, fh = 36;
    const uint8_t Y = 82, U = 90, V = 240; // BT.601 video range for RGB about (255, 0, 0)
    std::vector<uint8_t> frame(size_t(fw) * fh * 3 / 2, U);
    std::fill(frame.begin(), frame.begin() + fw * fh, Y);
    std::fill(frame.begin() + fw * fh + fw * fh / 4, frame.end(), V);
    ZT5FrameInfo info = {};
    info.dwWidth = fw;
    info.dwHeight = fh;
    info.dwStride = fw;
    info.dwSliceHeight = fh;
    info.dwCSType = ZT5_FRAME_CS_I420;

    // The renderer comes up on its own thread after the first frame: push
    // frames as a player does and look at the picture until it shows.
    int r = 0, g = 0, b = 0;
    bool red = false;
    for (int i = 0; i < 200 && !red; i++) {
        display->DrawFrame(frame.data(), &info, 0);
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        ZT5Snapshot *shot = nullptr;
        display->GetDisplayParam(ZT5_CFG_DISPLAY_GL_SNAPSHOT, &shot);
        if (shot && shot->dwCSType == ZT5_SNAPSHOT_RGBA && shot->pBuffer) {
            const uint8_t *p = static_cast<const uint8_t *>(shot->pBuffer) +
                               (size_t(shot->dwHeight / 2) * shot->dwWidth + shot->dwWidth / 2) * 4;
            r = p[0], g = p[1], b = p[2];
            red = r > 200 && g < 60 && b < 60;
        }
    }
    std::printf("embed_host: centre of the window is %d,%d,%d\n", r, g, b);

    display->Uninit();
    plugin->DestroyObject(ZT5_PLUGIN_TYPE_DISP, ZT5_PLUGIN_TYPE_DISP, display);
    ZT_ReleasePlugin(plugin);
    XDestroyWindow(x, win);
    XCloseDisplay(x);
    return red ? 0 : 1;
}
