#include "Options.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

bool ParseInt(const char *s, long lo, long hi, long *out)
{
    char *end = nullptr;
    long v = std::strtol(s, &end, 10);
    if (!s[0] || *end || v < lo || v > hi) return false;
    *out = v;
    return true;
}

bool ParseSize(const char *s, int *w, int *h)
{
    int a = 0, b = 0;
    char x = 0, tail = 0;
    if (std::sscanf(s, "%d%c%d%c", &a, &x, &b, &tail) != 3 || (x != 'x' && x != 'X')) return false;
    if (a < 16 || b < 16 || a > 16384 || b > 16384) return false;
    *w = a;
    *h = b;
    return true;
}

bool ParseLens(const char *s, int32_t lens[4])
{
    int v[4];
    char tail = 0;
    if (std::sscanf(s, "%d,%d,%d,%d%c", &v[0], &v[1], &v[2], &v[3], &tail) != 4) return false;
    for (int i = 0; i < 4; i++) {
        if (v[i] < 0 || v[i] > 20000) return false;
        lens[i] = v[i];
    }
    return true;
}

} // namespace

void PrintUsage(const char *argv0)
{
    std::printf(
        "usage: %s [options]\n"
        "  --mode N          view 0..10 (repeat for several in a headless run; default: 0, 1, 2 headless,\n"
        "                    1 in a window)\n"
        "  --input FILE      raw I420 frames (looped); needs --size WxH. Default: built-in fisheye scene\n"
        "  --size WxH        frame size of --input\n"
        "  --window WxH      window size (default 1280x720)\n"
        "  --frames N        frames to play (per mode when headless); default: until the window closes\n"
        "  --fps N           frame rate (default 30)\n"
        "  --lens cx,cy,rx,ry  lens circle in 1/10000 of the picture (default: the built-in scene's)\n"
        "  --fit N           fit mode (default 0)\n"
        "  --rotation N      frame rotation 0, 90, 180 or 270\n"
        "  --snapshot F.png  write a snapshot after the last frame\n"
        "  --headless        don't wait for the window to close; with --outdir write one PNG per mode\n"
        "  --outdir DIR      where headless snapshots go\n"
        "  --faces           moving face rectangles with name, gender and age labels (default view 0)\n"
        "  --logo F.bmp      show a 24- or 32-bit BMP logo in the top left corner of the picture\n"
        "  --font FILE       font of the labels (default: DejaVu Sans)\n"
        "  --lib PATH        libPanoview.so to load (default: the one built with this program)\n"
        "  --verbose         print every parameter sent\n"
        "Window keys: 0-9 and '-' (10) switch the view, c cruise on/off, p snapshot, k save view state,\n"
        "r restore it, q or Escape quit. Mouse: drag to steer, wheel to zoom, double click.\n",
        argv0);
}

bool ParseOptions(int argc, char **argv, PlayerOptions *o, std::string *error)
{
    for (int i = 1; i < argc; i++) {
        const char *a = argv[i];
        auto next = [&](const char **v) {
            if (i + 1 >= argc) {
                *error = std::string(a) + " needs a value";
                return false;
            }
            *v = argv[++i];
            return true;
        };
        const char *v = nullptr;
        long n = 0;
        if (!std::strcmp(a, "--help") || !std::strcmp(a, "-h")) {
            o->help = true;
        } else if (!std::strcmp(a, "--headless")) {
            o->headless = true;
        } else if (!std::strcmp(a, "--verbose")) {
            o->verbose = true;
        } else if (!std::strcmp(a, "--faces")) {
            o->faces = true;
        } else if (!std::strcmp(a, "--logo")) {
            if (!next(&v)) return false;
            o->logoPath = v;
        } else if (!std::strcmp(a, "--font")) {
            if (!next(&v)) return false;
            o->fontPath = v;
        } else if (!std::strcmp(a, "--mode")) {
            if (!next(&v) || !ParseInt(v, 0, 10, &n)) return *error = "--mode takes 0..10", false;
            o->modes.push_back(int(n));
        } else if (!std::strcmp(a, "--input")) {
            if (!next(&v)) return false;
            o->inputPath = v;
        } else if (!std::strcmp(a, "--size")) {
            if (!next(&v) || !ParseSize(v, &o->inputWidth, &o->inputHeight))
                return *error = "--size takes WxH", false;
            if (o->inputWidth % 2 || o->inputHeight % 2) return *error = "--size must be even (I420)", false;
        } else if (!std::strcmp(a, "--window")) {
            if (!next(&v) || !ParseSize(v, &o->windowWidth, &o->windowHeight))
                return *error = "--window takes WxH", false;
        } else if (!std::strcmp(a, "--frames")) {
            if (!next(&v) || !ParseInt(v, 1, 100000000, &n)) return *error = "--frames takes a positive number", false;
            o->frames = n;
        } else if (!std::strcmp(a, "--fps")) {
            if (!next(&v) || !ParseInt(v, 1, 1000, &n)) return *error = "--fps takes 1..1000", false;
            o->fps = double(n);
        } else if (!std::strcmp(a, "--lens")) {
            if (!next(&v) || !ParseLens(v, o->lens)) return *error = "--lens takes cx,cy,rx,ry (0..20000)", false;
            o->haveLens = true;
        } else if (!std::strcmp(a, "--fit")) {
            if (!next(&v) || !ParseInt(v, 0, 5, &n)) return *error = "--fit takes 0..5", false;
            o->fitMode = uint32_t(n);
        } else if (!std::strcmp(a, "--rotation")) {
            if (!next(&v) || !ParseInt(v, 0, 270, &n) || n % 90) return *error = "--rotation takes 0/90/180/270", false;
            o->rotation = uint32_t(n);
        } else if (!std::strcmp(a, "--snapshot")) {
            if (!next(&v)) return false;
            o->snapshotPath = v;
        } else if (!std::strcmp(a, "--outdir")) {
            if (!next(&v)) return false;
            o->outDir = v;
        } else if (!std::strcmp(a, "--lib")) {
            if (!next(&v)) return false;
            o->libPath = v;
        } else {
            *error = std::string("unknown option ") + a;
            return false;
        }
    }
    if (!o->inputPath.empty() && o->inputWidth == 0) {
        *error = "--input needs --size WxH";
        return false;
    }
    return true;
}
