// What a display costs as a host sees it, against the floor of the machine.
//
// Floor: a bare EGL program in this process doing only what any player must
// do per frame: upload three 1080p planes, draw one YUV quad, swap; and the
// same with a per-pixel equidistant unwrap of the lens in its fragment
// shader (what the cheapest dewarp costs).
//
// Library (loaded with dlopen, driven through the public boundary): process
// CPU per second while a display sits on a still frame in modes 0, 1, 2 and
// with the half sphere's animation switch on; draws per second and CPU
// for 30 and 60 fps 1080p video and for frames posted faster than drawn;
// ms per draw of modes 0, 1 (overview, inside the bowl) and 2.
//
// All figures come from one run on one machine and are printed as ratios to
// the floor. Needs an X display.
#include <EGL/egl.h>
#include <GLES2/gl2.h>
#include <sys/resource.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "BenchClock.h"
#include "PanoviewHost.h"
#include "SyntheticScene.h"
#include "X11Window.h"
#include "ZT5Plugin.h"

namespace {

constexpr int kW = 1280, kH = 720;     // window
constexpr int kVW = 1920, kVH = 1080;  // video


struct Rate {
    double drawsPerSecond = 0, cpuPerSecond = 0; // cpu: cores busy (1.0 = one core)
};

// ------------------------------------------------------------------ floor

const char *kVertex = "attribute vec2 aPos;\n"
                      "varying vec2 vTex;\n"
                      "void main() { vTex = vec2(aPos.x * 0.5 + 0.5, 0.5 - aPos.y * 0.5);"
                      " gl_Position = vec4(aPos, 0.0, 1.0); }\n";
#define FLOOR_YUV                                                                                      \
    "precision mediump float;\n"                                                                       \
    "varying vec2 vTex;\n"                                                                             \
    "uniform sampler2D ty, tu, tv;\n"                                                                  \
    "vec4 rgb(vec2 p) {\n"                                                                             \
    "  float y = 1.1643 * (texture2D(ty, p).r - 0.0625);\n"                                            \
    "  float u = texture2D(tu, p).r - 0.5, v = texture2D(tv, p).r - 0.5;\n"                            \
    "  return vec4(y + 1.5958 * v, y - 0.39173 * u - 0.8129 * v, y + 2.017 * u, 1.0);\n"               \
    "}\n"
const char *kQuadFragment = FLOOR_YUV "void main() { gl_FragColor = rgb(vTex); }\n";
// Panorama unwrap: x is the azimuth, y the angle from the horizon; the
// equidistant law puts that direction at radius (1 - elevation / 90deg) of
// the lens circle, which is inscribed in the square the lens box crops.
const char *kUnwrapFragment = FLOOR_YUV
    "void main() {\n"
    "  float phi = vTex.x * 6.2831853;\n"
    "  float r = 0.5 * vTex.y;\n"
    "  vec2 p = vec2(0.5 + r * cos(phi), 0.5 - r * sin(phi));\n"
    "  p.x = (p.x - 0.5) * 0.5625 + 0.5;\n" // lens square inside the 16:9 frame
    "  gl_FragColor = rgb(p);\n"
    "}\n";

class FloorProgram {
public:
    bool Open(uint32_t window)
    {
        m_dpy = eglGetDisplay(EGL_DEFAULT_DISPLAY);
        if (!eglInitialize(m_dpy, nullptr, nullptr)) return false;
        const EGLint attribs[] = {EGL_RED_SIZE, 8, EGL_GREEN_SIZE, 8, EGL_BLUE_SIZE, 8, EGL_RENDERABLE_TYPE,
                                  EGL_OPENGL_ES2_BIT, EGL_SURFACE_TYPE, EGL_WINDOW_BIT, EGL_NONE};
        EGLConfig cfg;
        EGLint n = 0;
        if (!eglChooseConfig(m_dpy, attribs, &cfg, 1, &n) || n < 1) return false;
        m_surface = eglCreateWindowSurface(m_dpy, cfg, (EGLNativeWindowType)(uintptr_t)window, nullptr);
        const EGLint ctx[] = {EGL_CONTEXT_CLIENT_VERSION, 2, EGL_NONE};
        m_ctx = eglCreateContext(m_dpy, cfg, EGL_NO_CONTEXT, ctx);
        if (m_surface == EGL_NO_SURFACE || m_ctx == EGL_NO_CONTEXT) return false;
        if (!eglMakeCurrent(m_dpy, m_surface, m_surface, m_ctx)) return false;
        m_quad = Build(kQuadFragment);
        m_unwrap = Build(kUnwrapFragment);
        glGenTextures(3, m_tex);
        const int w[3] = {kVW, kVW / 2, kVW / 2}, h[3] = {kVH, kVH / 2, kVH / 2};
        glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
        for (int i = 0; i < 3; i++) {
            glBindTexture(GL_TEXTURE_2D, m_tex[i]);
            glTexImage2D(GL_TEXTURE_2D, 0, GL_LUMINANCE, w[i], h[i], 0, GL_LUMINANCE, GL_UNSIGNED_BYTE, nullptr);
            glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
            glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
            glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
            glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
        }
        const float quad[8] = {-1, -1, 1, -1, -1, 1, 1, 1};
        glGenBuffers(1, &m_vbo);
        glBindBuffer(GL_ARRAY_BUFFER, m_vbo);
        glBufferData(GL_ARRAY_BUFFER, sizeof(quad), quad, GL_STATIC_DRAW);
        return m_quad && m_unwrap;
    }
    ~FloorProgram()
    {
        if (m_dpy == EGL_NO_DISPLAY) return;
        eglMakeCurrent(m_dpy, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
        if (m_ctx != EGL_NO_CONTEXT) eglDestroyContext(m_dpy, m_ctx);
        if (m_surface != EGL_NO_SURFACE) eglDestroySurface(m_dpy, m_surface);
    }
    void Draw(const uint8_t *i420, bool unwrap)
    {
        const uint8_t *p[3] = {i420, i420 + kVW * kVH, i420 + kVW * kVH * 5 / 4};
        const int w[3] = {kVW, kVW / 2, kVW / 2}, h[3] = {kVH, kVH / 2, kVH / 2};
        for (int i = 0; i < 3; i++) {
            glActiveTexture(GL_TEXTURE0 + i);
            glBindTexture(GL_TEXTURE_2D, m_tex[i]);
            glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, w[i], h[i], GL_LUMINANCE, GL_UNSIGNED_BYTE, p[i]);
        }
        GLuint prog = unwrap ? m_unwrap : m_quad;
        glUseProgram(prog);
        glViewport(0, 0, kW, kH);
        glBindBuffer(GL_ARRAY_BUFFER, m_vbo);
        glVertexAttribPointer(0, 2, GL_FLOAT, GL_FALSE, 0, nullptr);
        glEnableVertexAttribArray(0);
        glDrawArrays(GL_TRIANGLE_STRIP, 0, 4);
        eglSwapBuffers(m_dpy, m_surface);
    }

private:
    static GLuint Shader(GLenum type, const char *src)
    {
        GLuint s = glCreateShader(type);
        glShaderSource(s, 1, &src, nullptr);
        glCompileShader(s);
        return s;
    }
    static GLuint Build(const char *fragment)
    {
        GLuint p = glCreateProgram();
        glAttachShader(p, Shader(GL_VERTEX_SHADER, kVertex));
        glAttachShader(p, Shader(GL_FRAGMENT_SHADER, fragment));
        glBindAttribLocation(p, 0, "aPos");
        glLinkProgram(p);
        GLint ok = 0;
        glGetProgramiv(p, GL_LINK_STATUS, &ok);
        if (!ok) return 0;
        glUseProgram(p);
        glUniform1i(glGetUniformLocation(p, "ty"), 0);
        glUniform1i(glGetUniformLocation(p, "tu"), 1);
        glUniform1i(glGetUniformLocation(p, "tv"), 2);
        return p;
    }
    EGLDisplay m_dpy = EGL_NO_DISPLAY;
    EGLSurface m_surface = EGL_NO_SURFACE;
    EGLContext m_ctx = EGL_NO_CONTEXT;
    GLuint m_quad = 0, m_unwrap = 0, m_tex[3] = {}, m_vbo = 0;
};

// fps 0: back to back.
Rate FloorRun(FloorProgram &floor, const std::vector<std::vector<uint8_t>> &frames, bool unwrap, int fps,
              double seconds)
{
    for (int i = 0; i < 10; i++) floor.Draw(frames[0].data(), unwrap); // warm the shader up
    const auto t0 = Clock::now();
    const double c0 = ProcessCpuSeconds();
    int n = 0;
    while (Since(t0) < seconds) {
        floor.Draw(frames[size_t(n) % frames.size()].data(), unwrap);
        n++;
        if (fps > 0) std::this_thread::sleep_until(t0 + std::chrono::microseconds(int64_t(1e6 * n / fps)));
    }
    const double t = Since(t0);
    return {n / t, (ProcessCpuSeconds() - c0) / t};
}

// ---------------------------------------------------------------- library

class Display {
public:
    bool Open(PanoviewLibrary &lib, uint32_t window, int mode, bool animation = false,
              uint32_t cs = ZT5_FRAME_CS_I420)
    {
        std::string error;
        if (!m_display.Create(lib.plugin(), &error)) return false;
        m_display.SetU32(ZT5_CFG_DISPLAY_USE_OPENGLES, 1, "USE_OPENGLES");
        synthetic::LensFrame l;
        ZT5FishEyeParam lens = {l.cx * 10000 / l.width, l.cy * 10000 / l.height, l.radius * 10000 / l.width,
                                l.radius * 10000 / l.height};
        m_display.Set(ZT5_CFG_COMMON_FISHEYE_PARAM, &lens, "FISHEYE_PARAM");
        m_display.SetU32(ZT5_CFG_DISPLAY_FISHEYE_MODE, uint32_t(mode), "FISHEYE_MODE");
        m_display.SetU32(ZT5_CFG_DISPLAY_FE_BASE_ANIMATION, animation ? 1 : 0, "FE_BASE_ANIMATION");
        m_info.dwWidth = kVW;
        m_info.dwHeight = kVH;
        m_info.dwStride = kVW;
        m_info.dwSliceHeight = kVH;
        m_info.dwCSType = cs;
        return m_display.Init(window, kW, kH) == ZT5_OK;
    }
    void Post(std::vector<uint8_t> &frame) { m_display.Draw(frame.data(), m_info); }
    ZT5RenderStats Stats()
    {
        ZT5RenderStats s = {};
        m_display.Get(ZT5_CFG_DISPLAY_RENDER_STATS, &s);
        return s;
    }
    // Until the newest posted frame is in the window and the view is quiet
    // (no draw for `quietMs`), at most `limitS` seconds.
    void Settle(int quietMs = 300, double limitS = 20)
    {
        const auto t0 = Clock::now();
        uint32_t last = Stats().dwDraws;
        auto lastChange = Clock::now();
        while (Since(t0) < limitS) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            ZT5RenderStats s = Stats();
            if (s.dwDraws != last) {
                last = s.dwDraws;
                lastChange = Clock::now();
            } else if (s.dwNewestDrawn == s.dwFramesPosted && Since(lastChange) * 1000 > quietMs) {
                return;
            }
        }
    }
    PanoviewDisplay &raw() { return m_display; }

private:
    PanoviewDisplay m_display;
    ZT5FrameInfo m_info = {};
};

// CPU per second and draws while nothing is posted.
Rate Idle(Display &d, double seconds)
{
    const uint32_t d0 = d.Stats().dwDraws;
    const double c0 = ProcessCpuSeconds();
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    return {(d.Stats().dwDraws - d0) / seconds, (ProcessCpuSeconds() - c0) / seconds};
}

// Posts frames for `seconds` at `fps`; with fps 0, faster than any draw
// here (every 5 ms, like a decoder that is never the bottleneck, without
// spending a core on copies of frames that will never be shown).
Rate Video(Display &d, std::vector<std::vector<uint8_t>> &frames, int fps, double seconds)
{
    if (fps <= 0) fps = 200;
    const auto t0 = Clock::now();
    const double c0 = ProcessCpuSeconds();
    const uint32_t d0 = d.Stats().dwDraws;
    int n = 0;
    while (Since(t0) < seconds) {
        d.Post(frames[size_t(n) % frames.size()]);
        n++;
        std::this_thread::sleep_until(t0 + std::chrono::microseconds(int64_t(1e6 * n / fps)));
    }
    const double t = Since(t0);
    return {(d.Stats().dwDraws - d0) / t, (ProcessCpuSeconds() - c0) / t};
}

// A planar 8-bit frame of kVW x kVH laid out as `cs`, tightly.
std::vector<uint8_t> Relayout(const std::vector<uint8_t> &i420, uint32_t cs)
{
    const size_t w = kVW, h = kVH, cw = w / 2;
    const uint8_t *Y = i420.data(), *U = Y + w * h, *V = U + cw * (h / 2);
    std::vector<uint8_t> out;
    auto word = [&](uint16_t v) { out.push_back(uint8_t(v & 0xFF)), out.push_back(uint8_t(v >> 8)); };
    switch (cs) {
    case ZT5_FRAME_CS_NV12:
        out.assign(Y, Y + w * h);
        for (size_t i = 0; i < cw * (h / 2); i++) out.push_back(U[i]), out.push_back(V[i]);
        break;
    case ZT5_FRAME_CS_YUYV:
    case ZT5_FRAME_CS_UYVY:
        for (size_t y = 0; y < h; y++)
            for (size_t x = 0; x < w; x += 2) {
                const uint8_t y0 = Y[y * w + x], y1 = Y[y * w + x + 1], u = U[(y / 2) * cw + x / 2],
                              v = V[(y / 2) * cw + x / 2];
                const uint8_t q[4] = {y0, u, y1, v}, r[4] = {u, y0, v, y1};
                out.insert(out.end(), cs == ZT5_FRAME_CS_YUYV ? q : r, (cs == ZT5_FRAME_CS_YUYV ? q : r) + 4);
            }
        break;
    case ZT5_FRAME_CS_I010:
        for (size_t i = 0; i < i420.size(); i++) word(uint16_t(i420[i] << 2));
        break;
    case ZT5_FRAME_CS_P010:
        for (size_t i = 0; i < w * h; i++) word(uint16_t(Y[i] << 8));
        for (size_t i = 0; i < cw * (h / 2); i++) word(uint16_t(U[i] << 8)), word(uint16_t(V[i] << 8));
        break;
    default: out = i420;
    }
    return out;
}

void Row(const char *what, const Rate &r, const Rate *floor)
{
    std::printf("  %-44s %7.1f draws/s  CPU %5.1f%% of a core", what, r.drawsPerSecond, 100 * r.cpuPerSecond);
    if (floor && floor->drawsPerSecond > 0)
        std::printf("  rate %.2fx floor, CPU %.2fx", r.drawsPerSecond / floor->drawsPerSecond,
                    floor->cpuPerSecond > 0 ? r.cpuPerSecond / floor->cpuPerSecond : 0.0);
    std::printf("\n");
}

} // namespace

int main()
{
    X11Window win;
    std::string error;
    if (!win.Open(kW, kH, "bench_ondemand", &error)) {
        std::fprintf(stderr, "no X window: %s\n", error.c_str());
        return 1;
    }
    synthetic::LensFrame lens;
    std::vector<std::vector<uint8_t>> frames;
    for (int i = 0; i < 8; i++) frames.push_back(synthetic::MakeFisheyeFrame(lens, i));
    const double kSeconds = 4.0;

    std::printf("Floor: bare EGL, 1920x1080 I420 into %dx%d\n", kW, kH);
    Rate floorQuad, floorUnwrap, floor30, floor60;
    X11Window floorWin;
    FloorProgram floor;
    if (!floorWin.Open(kW, kH, "floor", &error) || !floor.Open(floorWin.id())) {
        std::fprintf(stderr, "floor program failed\n");
        return 1;
    }
    {
        floorQuad = FloorRun(floor, frames, false, 0, kSeconds);
        floorUnwrap = FloorRun(floor, frames, true, 0, kSeconds);
        floor30 = FloorRun(floor, frames, false, 30, kSeconds);
        floor60 = FloorRun(floor, frames, false, 60, kSeconds);
    }
    Row("upload + YUV quad + swap, back to back", floorQuad, nullptr);
    Row("upload + per-pixel unwrap + swap", floorUnwrap, nullptr);
    Row("upload + YUV quad + swap, 30 fps", floor30, nullptr);
    Row("upload + YUV quad + swap, 60 fps", floor60, nullptr);

    PanoviewLibrary lib;
    if (!lib.Load(PANOVIEW_LIB_PATH, &error)) {
        std::fprintf(stderr, "%s\n", error.c_str());
        return 1;
    }

    std::printf("\nLibrary, idle on a still frame (one display)\n");
    for (int mode : {0, 1, 2}) {
        Display d;
        if (!d.Open(lib, win.id(), mode)) return 1;
        d.Post(frames[0]);
        d.Settle();
        char what[64];
        std::snprintf(what, sizeof what, "mode %d, still", mode);
        Row(what, Idle(d, kSeconds), nullptr);
    }
    {
        Display d;
        // With the animation switch on, the opening flight runs and then the
        // cloud and stars keep turning: the display never rests, by choice.
        if (!d.Open(lib, win.id(), 1, true)) return 1;
        d.Post(frames[0]);
        Row("mode 1, animation on (flight, then backdrop)", Idle(d, kSeconds), nullptr);
    }

    std::printf("\nLibrary, 1080p video in mode 0, against the floor\n");
    {
        Display d;
        if (!d.Open(lib, win.id(), 0)) return 1;
        d.Post(frames[0]);
        d.Settle();
        Row("30 fps", Video(d, frames, 30, kSeconds), &floor30);
        Row("60 fps", Video(d, frames, 60, kSeconds), &floor60);
        Row("frames every 5 ms", Video(d, frames, 0, kSeconds), &floorQuad);
    }

    // Each case is paired with a floor run just before it, so that a load
    // that comes and goes on a shared machine weighs on both alike.
    std::printf("\nLibrary, ms per draw with frames posted every 5 ms\n");
    struct Case {
        const char *name;
        int mode;
        bool inside;
        bool unwrap; // against the per-pixel unwrap floor, else the quad floor
    } cases[] = {{"mode 0", 0, false, false},
                 {"mode 1 overview", 1, false, true},
                 {"mode 1 inside the bowl", 1, true, true},
                 {"mode 2", 2, false, true}};
    for (const Case &c : cases) {
        const Rate floorNow = FloorRun(floor, frames, c.unwrap, 0, kSeconds / 2);
        Display d;
        if (!d.Open(lib, win.id(), c.mode)) return 1;
        d.Post(frames[0]);
        d.Settle();
        if (c.inside) {
            float centre[2] = {kW / 2.0f, kH / 2.0f};
            d.raw().Set(ZT5_CFG_DISPLAY_UITOUCH_DOUBLETAP, centre, "DOUBLETAP");
            d.Settle();
        }
        Video(d, frames, 0, 1.0); // warm up
        const Rate r = Video(d, frames, 0, kSeconds);
        const double ms = r.drawsPerSecond > 0 ? 1000.0 / r.drawsPerSecond : 0;
        const double floorMs = floorNow.drawsPerSecond > 0 ? 1000.0 / floorNow.drawsPerSecond : 0;
        std::printf("  %-24s %6.2f ms a draw  (%s floor %.2f ms: %.2fx)\n", c.name, ms, c.unwrap ? "unwrap" : "quad",
                    floorMs, floorMs > 0 ? ms / floorMs : 0.0);
    }

    // Upload and draw of each layout in the plain view, against I420 run
    // just before it.
    std::printf("\nLibrary, mode 0, ms per draw by frame layout (frames every 5 ms), against I420\n");
    auto msPerDraw = [&](uint32_t cs, std::vector<std::vector<uint8_t>> &laid) {
        Display d;
        if (!d.Open(lib, win.id(), 0, false, cs)) return 0.0;
        d.Post(laid[0]);
        d.Settle();
        Video(d, laid, 0, 1.0); // warm up
        const Rate r = Video(d, laid, 0, kSeconds);
        return r.drawsPerSecond > 0 ? 1000.0 / r.drawsPerSecond : 0.0;
    };
    const struct {
        const char *name;
        uint32_t cs;
    } layouts[] = {{"NV12", ZT5_FRAME_CS_NV12}, {"YUYV", ZT5_FRAME_CS_YUYV}, {"UYVY", ZT5_FRAME_CS_UYVY},
                   {"I010 (10-bit planar)", ZT5_FRAME_CS_I010}, {"P010", ZT5_FRAME_CS_P010}};
    for (const auto &l : layouts) {
        std::vector<std::vector<uint8_t>> laid;
        for (const auto &f : frames) laid.push_back(Relayout(f, l.cs));
        const double base = msPerDraw(ZT5_FRAME_CS_I420, frames);
        const double ms = msPerDraw(l.cs, laid);
        std::printf("  %-24s %6.2f ms a draw  (I420 %.2f ms: %.2fx)\n", l.name, ms, base, base > 0 ? ms / base : 0.0);
    }
    return 0;
}
