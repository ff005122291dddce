#include "FisheyeGl.h"

#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <dlfcn.h>
#include <sys/stat.h>

#include <cstring>

#include "Png.h"

namespace fisheyegl {

static void KeepDriverLoaded()
{
    // The software driver leaks a few bytes when it is unloaded; keeping it
    // loaded for the life of the process keeps LeakSanitizer quiet.
    static bool done = false;
    if (done) return;
    done = true;
    dlopen("/usr/lib/x86_64-linux-gnu/dri/swrast_dri.so", RTLD_NOW | RTLD_NODELETE);
}

GlContext::GlContext(int width, int height) : m_width(width), m_height(height)
{
    KeepDriverLoaded();
    EGLDisplay dpy = EGL_NO_DISPLAY;
    if (getenv("DISPLAY")) {
        dpy = eglGetDisplay(EGL_DEFAULT_DISPLAY);
        if (dpy != EGL_NO_DISPLAY && !eglInitialize(dpy, nullptr, nullptr)) dpy = EGL_NO_DISPLAY;
    }
    if (dpy == EGL_NO_DISPLAY) {
        auto getPlatformDisplay =
            reinterpret_cast<PFNEGLGETPLATFORMDISPLAYEXTPROC>(eglGetProcAddress("eglGetPlatformDisplayEXT"));
        if (getPlatformDisplay) dpy = getPlatformDisplay(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr);
        if (dpy != EGL_NO_DISPLAY && !eglInitialize(dpy, nullptr, nullptr)) dpy = EGL_NO_DISPLAY;
    }
    if (dpy == EGL_NO_DISPLAY) {
        m_error = "no EGL display";
        return;
    }
    m_display = dpy;
    const EGLint attribs[] = {EGL_RED_SIZE,        8, EGL_GREEN_SIZE,   8,  EGL_BLUE_SIZE,       8,
                              EGL_ALPHA_SIZE,      8, EGL_DEPTH_SIZE,   8,  EGL_RENDERABLE_TYPE, EGL_OPENGL_ES2_BIT,
                              EGL_SURFACE_TYPE, EGL_PBUFFER_BIT, EGL_NONE};
    EGLConfig configs[64];
    EGLint count = 0;
    eglChooseConfig(dpy, attribs, configs, 64, &count);
    EGLConfig config = nullptr;
    for (EGLint i = 0; i < count && !config; i++) {
        EGLint r, g, b;
        eglGetConfigAttrib(dpy, configs[i], EGL_RED_SIZE, &r);
        eglGetConfigAttrib(dpy, configs[i], EGL_GREEN_SIZE, &g);
        eglGetConfigAttrib(dpy, configs[i], EGL_BLUE_SIZE, &b);
        if (r == 8 && g == 8 && b == 8) config = configs[i];
    }
    if (!config) {
        m_error = "no 8-bit config";
        return;
    }
    const EGLint pbuf[] = {EGL_WIDTH, width, EGL_HEIGHT, height, EGL_NONE};
    m_surface = eglCreatePbufferSurface(dpy, config, pbuf);
    const EGLint ctx[] = {EGL_CONTEXT_CLIENT_VERSION, 2, EGL_NONE};
    m_context = eglCreateContext(dpy, config, EGL_NO_CONTEXT, ctx);
    if (m_surface == EGL_NO_SURFACE || m_context == EGL_NO_CONTEXT) {
        m_error = "pbuffer or context failed";
        return;
    }
    if (!eglMakeCurrent(dpy, m_surface, m_surface, m_context)) {
        m_error = "eglMakeCurrent failed";
        return;
    }
    m_ok = true;
}

GlContext::~GlContext()
{
    if (!m_display) return;
    eglMakeCurrent(m_display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
    if (m_context) eglDestroyContext(m_display, m_context);
    if (m_surface) eglDestroySurface(m_display, m_surface);
    eglReleaseThread();
}

LensPlanes CropLensSquare(const synthetic::LensFrame &lens, const std::vector<uint8_t> &i420)
{
    LensPlanes p;
    const int side = (2 * lens.radius) & ~7;
    const int x0 = (lens.cx - side / 2) & ~1, y0 = (lens.cy - side / 2) & ~1;
    const int w = lens.width, h = lens.height;
    p.side = side;
    p.y.resize(size_t(side) * side);
    p.u.resize(size_t(side / 2) * (side / 2));
    p.v.resize(p.u.size());
    const uint8_t *Y = i420.data(), *U = Y + size_t(w) * h, *V = U + size_t(w / 2) * (h / 2);
    for (int r = 0; r < side; r++) std::memcpy(&p.y[size_t(r) * side], Y + size_t(y0 + r) * w + x0, side);
    for (int r = 0; r < side / 2; r++) {
        std::memcpy(&p.u[size_t(r) * (side / 2)], U + size_t(y0 / 2 + r) * (w / 2) + x0 / 2, side / 2);
        std::memcpy(&p.v[size_t(r) * (side / 2)], V + size_t(y0 / 2 + r) * (w / 2) + x0 / 2, side / 2);
    }
    return p;
}

LensPlanes SyntheticLens(int frame)
{
    synthetic::LensFrame lens;
    return CropLensSquare(lens, synthetic::MakeFisheyeFrame(lens, frame));
}

PlaneTextures::PlaneTextures()
{
    glGenTextures(3, m_tex);
}

PlaneTextures::~PlaneTextures()
{
    glDeleteTextures(3, m_tex);
}

void PlaneTextures::Upload(const LensPlanes &planes)
{
    const std::vector<uint8_t> *src[3] = {&planes.y, &planes.u, &planes.v};
    glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
    for (int i = 0; i < 3; i++) {
        int side = i == 0 ? planes.side : planes.side / 2;
        glBindTexture(GL_TEXTURE_2D, m_tex[i]);
        glTexImage2D(GL_TEXTURE_2D, 0, GL_LUMINANCE, side, side, 0, GL_LUMINANCE, GL_UNSIGNED_BYTE, src[i]->data());
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    }
    glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
}

harness::RgbaImage ReadBack(int width, int height)
{
    harness::RgbaImage img;
    img.width = width;
    img.height = height;
    img.rgba.resize(size_t(width) * height * 4);
    std::vector<uint8_t> rows(img.rgba.size());
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glReadPixels(0, 0, width, height, GL_RGBA, GL_UNSIGNED_BYTE, rows.data());
    for (int y = 0; y < height; y++)
        std::memcpy(&img.rgba[size_t(y) * width * 4], &rows[size_t(height - 1 - y) * width * 4], size_t(width) * 4);
    return img;
}

std::string SaveSnapshot(const std::string &name, const harness::RgbaImage &image)
{
    std::string dir = PANOVIEW_TEST_OUTPUT_DIR;
    mkdir(dir.c_str(), 0755);
    std::string path = dir + "/" + name + ".png";
    harness::WritePng(path, image);
    return path;
}

int NearestSector(synthetic::Rgb c, int tolerance)
{
    int best = -1, bestDist = tolerance + 1;
    for (int k = 0; k < 8; k++) {
        int d = harness::ColourDistance(c, synthetic::kSectorRgb[k]);
        if (d < bestDist) {
            bestDist = d;
            best = k;
        }
    }
    return best;
}

bool IsHorizonWhite(synthetic::Rgb c, int tolerance)
{
    return harness::ColourDistance(c, synthetic::kHorizonRgb) <= tolerance;
}

void RenderFrames(GlesRenderEffect &view, const PlaneTextures &tex, int frames, int width, int height)
{
    const MLong rect[4] = {0, 0, width, height};
    for (int i = 0; i < frames; i++) view.Render(rect, width, height, 1080, 1080, tex.names(), 0, 0);
}

FECurrentStatusData SaveState(GlesRenderEffect &view, unsigned char fill)
{
    FECurrentStatusData d;
    std::memset(&d, fill, sizeof(d));
    view.GetConfig(ZT5_CFG_DISPLAY_GET_FE_CURRENTSTATUS, &d);
    return d;
}

} // namespace fisheyegl
