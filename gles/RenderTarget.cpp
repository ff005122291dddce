#include "RenderTarget.h"

#include <EGL/eglext.h>

#include <cstring>

#include "MLog.h"

void RenderTarget::Choose(EGLNativeWindowType window, int offscreenWidth, int offscreenHeight)
{
    m_Window = window;
    m_OffWidth = offscreenWidth > 0 ? offscreenWidth : 0;
    m_OffHeight = offscreenHeight > 0 ? offscreenHeight : 0;
}

EGLDisplay RenderTarget::OpenDisplay() const
{
    if (!OffScreen()) return eglGetDisplay(EGL_DEFAULT_DISPLAY);
    // Client extensions are those of EGL itself (no display): the platform
    // must be named there, or eglGetPlatformDisplayEXT would pick another.
    const char *ext = eglQueryString(EGL_NO_DISPLAY, EGL_EXTENSIONS);
    if (!ext || !std::strstr(ext, "EGL_MESA_platform_surfaceless")) {
        MLogInfo("[%s] RenderTarget: EGL has no surfaceless platform", MLOG_TAG);
        return EGL_NO_DISPLAY;
    }
    auto getPlatformDisplay =
        reinterpret_cast<PFNEGLGETPLATFORMDISPLAYEXTPROC>(eglGetProcAddress("eglGetPlatformDisplayEXT"));
    if (!getPlatformDisplay) return EGL_NO_DISPLAY;
    return getPlatformDisplay(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr);
}

EGLint RenderTarget::SurfaceBits(bool preserved) const
{
    // A surfaceless context needs no surface of the config; the pbuffer bit
    // is what the surfaceless platform's configs carry.
    if (OffScreen()) return EGL_PBUFFER_BIT;
    return preserved ? (EGL_WINDOW_BIT | EGL_SWAP_BEHAVIOR_PRESERVED_BIT) : EGL_WINDOW_BIT;
}

bool RenderTarget::CreateSurface(EGLDisplay dpy, EGLConfig config)
{
    if (OffScreen()) return true;
    if (Nowhere()) return false;
    m_Surface.Adopt(dpy, eglCreateWindowSurface(dpy, config, m_Window, nullptr));
    return bool(m_Surface);
}

bool RenderTarget::Attach()
{
    if (!OffScreen()) return true;
    if (m_Fbo) {
        glBindFramebuffer(GL_FRAMEBUFFER, m_Fbo.id());
        return true;
    }
    m_Colour = GlTexture::Create();
    m_Depth = GlRenderbuffer::Create();
    m_Fbo = GlFramebuffer::Create();
    if (!m_Colour || !m_Depth || !m_Fbo) return false;
    // The colour is a texture rather than a renderbuffer: the picture
    // converter samples it as it is, with no copy.
    glBindTexture(GL_TEXTURE_2D, m_Colour.id());
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, m_OffWidth, m_OffHeight, 0, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    glBindTexture(GL_TEXTURE_2D, 0);
    // 24 depth bits where the driver has them, as a window's config gives;
    // ES2 itself promises 16.
    const char *ext = reinterpret_cast<const char *>(glGetString(GL_EXTENSIONS));
    const GLenum depthFormat = ext && std::strstr(ext, "GL_OES_depth24") ? 0x81A6 /* GL_DEPTH_COMPONENT24_OES */
                                                                          : GL_DEPTH_COMPONENT16;
    glBindRenderbuffer(GL_RENDERBUFFER, m_Depth.id());
    glRenderbufferStorage(GL_RENDERBUFFER, depthFormat, m_OffWidth, m_OffHeight);
    glBindRenderbuffer(GL_RENDERBUFFER, 0);
    glBindFramebuffer(GL_FRAMEBUFFER, m_Fbo.id());
    glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, m_Colour.id(), 0);
    glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_DEPTH_ATTACHMENT, GL_RENDERBUFFER, m_Depth.id());
    if (glCheckFramebufferStatus(GL_FRAMEBUFFER) != GL_FRAMEBUFFER_COMPLETE) {
        MLogInfo("[%s] RenderTarget: framebuffer of %dx%d incomplete", MLOG_TAG, m_OffWidth, m_OffHeight);
        glBindFramebuffer(GL_FRAMEBUFFER, 0);
        ReleaseGl();
        return false;
    }
    return true;
}

bool RenderTarget::Size(EGLDisplay dpy, EGLint *pWidth, EGLint *pHeight) const
{
    if (OffScreen()) {
        if (!m_Fbo) return false;
        *pWidth = m_OffWidth;
        *pHeight = m_OffHeight;
        return true;
    }
    return eglQuerySurface(dpy, m_Surface.get(), EGL_WIDTH, pWidth) &&
           eglQuerySurface(dpy, m_Surface.get(), EGL_HEIGHT, pHeight);
}

bool RenderTarget::Present(EGLDisplay dpy)
{
    if (OffScreen()) {
        glFlush(); // the draw starts now rather than when a reader asks
        return true;
    }
    return eglSwapBuffers(dpy, m_Surface.get()) == EGL_TRUE;
}

void RenderTarget::ReleaseGl()
{
    m_Fbo.reset();
    m_Depth.reset();
    m_Colour.reset();
}

void RenderTarget::Reset()
{
    m_Surface.Reset();
}
