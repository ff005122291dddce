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

bool ParseNamed(const char *s, const char *const *names, int count, int *out)
{
    for (int i = 0; i < count; i++) {
        if (!std::strcmp(s, names[i])) {
            *out = i;
            return true;
        }
    }
    return false;
}

namespace {

// The list after the colon of an --output; false (with *error) when it
// isn't one.
bool ParseOutputOptions(const std::string &list, OutputSpec *o, std::string *error)
{
    size_t start = 0;
    while (start <= list.size()) {
        size_t end = list.find(',', start);
        if (end == std::string::npos) end = list.size();
        const std::string item = list.substr(start, end - start);
        const size_t eq = item.find('=');
        const std::string key = item.substr(0, eq), value = eq == std::string::npos ? "" : item.substr(eq + 1);
        long n = 0;
        if (key == "cruise" && eq == std::string::npos) {
            o->cruise = true;
        } else if (key == "mode" && ParseInt(value.c_str(), 0, 10, &n)) {
            o->mode = int(n);
        } else if (key == "size" && ParseSize(value.c_str(), &o->width, &o->height)) {
            if (o->width > 8192 || o->height > 8192) return *error = "size= of --output takes at most 8192x8192", false;
        } else if (key == "view-state" && !value.empty()) {
            o->viewState = value;
        } else if (key == "codec" && !value.empty()) {
            o->codec = value;
        } else {
            *error = "--output: '" + item + "' is none of mode=N, cruise, size=WxH, view-state=FILE, codec=NAME";
            return false;
        }
        start = end + 1;
    }
    return true;
}

} // namespace

bool ParseOutput(const std::string &request, OutputSpec *out, std::string *error)
{
    OutputSpec o;
    o.path = request;
    const size_t colon = request.rfind(':');
    if (colon != std::string::npos && colon > 0) {
        OutputSpec withList;
        std::string listError;
        const std::string list = request.substr(colon + 1);
        // A tail that names a key is meant as options: its errors count.
        const bool looksLikeOptions = list == "cruise" || list.find('=') != std::string::npos;
        if (ParseOutputOptions(list, &withList, &listError)) {
            withList.path = request.substr(0, colon);
            o = withList;
        } else if (looksLikeOptions) {
            *error = listError;
            return false;
        }
    }
    if (o.path.empty()) {
        *error = "--output needs a file name";
        return false;
    }
    *out = o;
    return true;
}

void PrintUsage(const char *argv0)
{
    std::printf(
        "usage: %s [options] [FILE]\n"
        "  FILE              a video file (MP4, MKV, MOV, AVI, ... whatever FFmpeg decodes), played in a loop\n"
        "                    at its own pace. Default: the built-in fisheye scene\n"
        "  --mode N          view 0..10 (repeat for several in a headless run; default: all headless,\n"
        "                    1 in a window)\n"
        "  --format F        pictures handed to the display: as-decoded (default), i420, nv12, yuyv, uyvy,\n"
        "                    yuv420p10 (10-bit planar) or p010; with --write-clip, yuv420p10 or p010\n"
        "                    writes 10-bit pictures (e.g. --codec hevc)\n"
        "  --colour M        YUV matrix: auto (the stream's; default), bt601, bt709 or bt2020\n"
        "  --range R         sample range: auto (default), video or full\n"
        "  --input FILE      raw I420 frames (looped); needs --size WxH\n"
        "  --size WxH        frame size of --input, or of --write-clip (default 1280x720)\n"
        "  --window WxH      window size (default 1280x720)\n"
        "  --frames N        frames to play (per mode when headless); default: until the window closes\n"
        "  --fps N           frame rate (default 30)\n"
        "  --lens cx,cy,rx,ry  lens circle in 1/10000 of the picture (default: the built-in scene's, or the\n"
        "                    picture's middle as tall as the picture); with --write-clip where the scene's is\n"
        "  --lens-law L      the lens's projection: equidistant (default), equisolid, stereographic,\n"
        "                    orthographic or polynomial; the built-in scene is drawn through it too\n"
        "  --fov DEG         the lens's field of view across its circle, 60..360 (default 180)\n"
        "  --k k1,k2,k3,k4   the polynomial's coefficients, theta in radians (--lens-law polynomial)\n"
        "  --fit N           fit mode (default 0)\n"
        "  --rotation N      frame rotation 0, 90, 180 or 270\n"
        "  --snapshot F.png  write a snapshot after the last frame\n"
        "  --headless        don't wait for the window to close; with --outdir write one PNG per mode\n"
        "  --outdir DIR      where headless snapshots go\n"
        "  --faces           moving face rectangles with name, gender and age labels, in every view\n"
        "  --logo F.bmp      show a 24- or 32-bit BMP logo in the top left corner of the picture\n"
        "  --font FILE       font of the labels (default: DejaVu Sans)\n"
        "  --contact-sheet F.png  every view (or those of --mode) side by side, labelled, then stop\n"
        "  --lib PATH        libPanoview.so to load (default: the one built with this program)\n"
        "  --verbose         print every parameter sent, and FFmpeg's messages\n"
        "  --write-clip OUT  write the built-in scene as a video file (--codec, --size, --frames, --fps,\n"
        "                    --colour, --range) and stop\n"
        "  --codec NAME      encoder of --write-clip and --output: h264 (default), mjpeg, mpeg4, ffv1, ...\n"
        "  --output OUT[:mode=N,cruise,size=WxH,view-state=FILE,codec=NAME]\n"
        "                    transcode FILE into a video of the dewarped view instead of opening a window\n"
        "                    (repeat for several outputs from one decode; no X server needed). Defaults of\n"
        "                    every output: --mode (1), --size (1280x720), --cruise, --view-state, --codec\n"
        "  --cruise          the views of --output cruise\n"
        "  --view-state FILE the 264-byte view state the window's k key writes (default\n"
        "                    panoview-view.state) and --output starts from\n"
        "Window keys: 0-9 and '-' (10) switch the view, c cruise on/off, p snapshot, k save view state,\n"
        "r restore it, space pause, left/right seek 5 s, up/down seek 30 s, q or Escape quit.\n"
        "Mouse: drag to steer, wheel to zoom, double click.\n",
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
        } else if (!std::strcmp(a, "--format")) {
            static const char *const names[] = {"as-decoded", "i420", "nv12", "yuyv", "uyvy", "yuv420p10", "p010"};
            if (!next(&v) || !ParseNamed(v, names, 7, &o->layout))
                return *error = "--format takes as-decoded, i420, nv12, yuyv, uyvy, yuv420p10 or p010", false;
        } else if (!std::strcmp(a, "--colour") || !std::strcmp(a, "--color")) {
            static const char *const names[] = {"bt601", "bt709", "bt2020", "auto"};
            if (!next(&v) || !ParseNamed(v, names, 4, &o->colourMatrix))
                return *error = "--colour takes auto, bt601, bt709 or bt2020", false;
            if (o->colourMatrix == 3) o->colourMatrix = -1;
        } else if (!std::strcmp(a, "--range")) {
            static const char *const names[] = {"video", "full", "auto"};
            if (!next(&v) || !ParseNamed(v, names, 3, &o->colourRange))
                return *error = "--range takes auto, video or full", false;
            if (o->colourRange == 2) o->colourRange = -1;
        } else if (!std::strcmp(a, "--write-clip")) {
            if (!next(&v)) return false;
            o->clipPath = v;
        } else if (!std::strcmp(a, "--codec")) {
            if (!next(&v)) return false;
            o->clipCodec = v;
            o->codecGiven = true;
        } else if (!std::strcmp(a, "--output")) {
            OutputSpec request;
            if (!next(&v) || !ParseOutput(v, &request, error)) return false;
            o->outputs.push_back(request);
        } else if (!std::strcmp(a, "--cruise")) {
            o->cruise = true;
        } else if (!std::strcmp(a, "--view-state")) {
            if (!next(&v)) return false;
            o->viewStatePath = v;
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
        } else if (!std::strcmp(a, "--lens-law")) {
            static const char *const names[] = {"equidistant", "equisolid", "stereographic", "orthographic", "polynomial"};
            int law = 0;
            if (!next(&v) || !ParseNamed(v, names, 5, &law))
                return *error = "--lens-law takes equidistant, equisolid, stereographic, orthographic or polynomial", false;
            o->lensLaw = uint32_t(law);
            o->haveLensModel = true;
        } else if (!std::strcmp(a, "--fov")) {
            char *end = nullptr;
            if (!next(&v)) return *error = "--fov takes degrees, 60..360", false;
            const double fov = std::strtod(v, &end);
            if (end == v || *end || !(fov >= 60 && fov <= 360)) return *error = "--fov takes degrees, 60..360", false;
            o->lensFov = float(fov);
            o->haveLensModel = true;
        } else if (!std::strcmp(a, "--k")) {
            double k[4];
            char tail = 0;
            if (!next(&v) || std::sscanf(v, "%lf,%lf,%lf,%lf%c", &k[0], &k[1], &k[2], &k[3], &tail) != 4)
                return *error = "--k takes k1,k2,k3,k4", false;
            for (int i = 0; i < 4; i++) o->lensK[i] = float(k[i]);
            o->haveLensModel = true;
        } else if (!std::strcmp(a, "--fit")) {
            if (!next(&v) || !ParseInt(v, 0, 5, &n)) return *error = "--fit takes 0..5", false;
            o->fitMode = uint32_t(n);
        } else if (!std::strcmp(a, "--rotation")) {
            if (!next(&v) || !ParseInt(v, 0, 270, &n) || n % 90) return *error = "--rotation takes 0/90/180/270", false;
            o->rotation = uint32_t(n);
        } else if (!std::strcmp(a, "--snapshot")) {
            if (!next(&v)) return false;
            o->snapshotPath = v;
        } else if (!std::strcmp(a, "--contact-sheet")) {
            if (!next(&v)) return false;
            o->contactSheet = v;
            o->headless = true;
        } else if (!std::strcmp(a, "--outdir")) {
            if (!next(&v)) return false;
            o->outDir = v;
        } else if (!std::strcmp(a, "--lib")) {
            if (!next(&v)) return false;
            o->libPath = v;
        } else if (a[0] != '-' && o->videoPath.empty()) {
            o->videoPath = a;
        } else {
            *error = std::string(a[0] == '-' ? "unknown option " : "more than one FILE: ") + a;
            return false;
        }
    }
    if (!o->inputPath.empty() && o->inputWidth == 0) {
        *error = "--input needs --size WxH";
        return false;
    }
    if (!o->inputPath.empty() && (o->inputWidth % 2 || o->inputHeight % 2)) {
        *error = "--size of --input must be even (I420)";
        return false;
    }
    if (!o->outputs.empty() && o->videoPath.empty()) {
        *error = "--output transcodes a video FILE: name one";
        return false;
    }
    if (!o->inputPath.empty() && !o->videoPath.empty()) {
        *error = "give either FILE or --input, not both";
        return false;
    }
    return true;
}
