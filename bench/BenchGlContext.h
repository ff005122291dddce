// An EGL context with an 8-bit RGBA pbuffer, current on the constructing
// thread: where the fisheye benchmark draws the views without a window.
// Tries the default display first (needs $DISPLAY), then the surfaceless
// platform.
#ifndef PANOVIEW_BENCH_GLCONTEXT_H
#define PANOVIEW_BENCH_GLCONTEXT_H

#include <EGL/egl.h>
#include <EGL/eglext.h>

#include <cstdlib>

class BenchGlContext {
public:
    BenchGlContext(int width, int height)
    {
        EGLDisplay dpy = EGL_NO_DISPLAY;
        if (std::getenv("DISPLAY")) {
            dpy = eglGetDisplay(EGL_DEFAULT_DISPLAY);
            if (dpy != EGL_NO_DISPLAY && !eglInitialize(dpy, nullptr, nullptr)) dpy = EGL_NO_DISPLAY;
        }
        if (dpy == EGL_NO_DISPLAY) {
            auto getPlatformDisplay =
                reinterpret_cast<PFNEGLGETPLATFORMDISPLAYEXTPROC>(eglGetProcAddress("eglGetPlatformDisplayEXT"));
            if (getPlatformDisplay) dpy = getPlatformDisplay(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr);
            if (dpy != EGL_NO_DISPLAY && !eglInitialize(dpy, nullptr, nullptr)) dpy = EGL_NO_DISPLAY;
        }
        if (dpy == EGL_NO_DISPLAY) return;
        m_display = dpy;
        // Exactly 8 bits a channel: Mesa may list a 10-bit config first.
        const EGLint attribs[] = {EGL_RED_SIZE, 8, EGL_GREEN_SIZE, 8, EGL_BLUE_SIZE, 8, EGL_ALPHA_SIZE, 8,
                                  EGL_DEPTH_SIZE, 8, EGL_RENDERABLE_TYPE, EGL_OPENGL_ES2_BIT,
                                  EGL_SURFACE_TYPE, EGL_PBUFFER_BIT, EGL_NONE};
        EGLConfig configs[64], config = nullptr;
        EGLint count = 0;
        eglChooseConfig(dpy, attribs, configs, 64, &count);
        for (EGLint i = 0; i < count && !config; i++) {
            EGLint r, g, b;
            eglGetConfigAttrib(dpy, configs[i], EGL_RED_SIZE, &r);
            eglGetConfigAttrib(dpy, configs[i], EGL_GREEN_SIZE, &g);
            eglGetConfigAttrib(dpy, configs[i], EGL_BLUE_SIZE, &b);
            if (r == 8 && g == 8 && b == 8) config = configs[i];
        }
        if (!config) return;
        const EGLint pbuf[] = {EGL_WIDTH, width, EGL_HEIGHT, height, EGL_NONE};
        const EGLint ctx[] = {EGL_CONTEXT_CLIENT_VERSION, 2, EGL_NONE};
        m_surface = eglCreatePbufferSurface(dpy, config, pbuf);
        m_context = eglCreateContext(dpy, config, EGL_NO_CONTEXT, ctx);
        m_ok = m_surface != EGL_NO_SURFACE && m_context != EGL_NO_CONTEXT &&
               eglMakeCurrent(dpy, m_surface, m_surface, m_context);
    }
    ~BenchGlContext()
    {
        if (!m_display) return;
        eglMakeCurrent(m_display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
        if (m_context != EGL_NO_CONTEXT) eglDestroyContext(m_display, m_context);
        if (m_surface != EGL_NO_SURFACE) eglDestroySurface(m_display, m_surface);
        eglReleaseThread();
    }
    BenchGlContext(const BenchGlContext &) = delete;
    BenchGlContext &operator=(const BenchGlContext &) = delete;
    bool ok() const { return m_ok; }

private:
    EGLDisplay m_display = EGL_NO_DISPLAY;
    EGLSurface m_surface = EGL_NO_SURFACE;
    EGLContext m_context = EGL_NO_CONTEXT;
    bool m_ok = false;
};

#endif
