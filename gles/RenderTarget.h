// Where a renderer draws: the host's window, through an EGL window surface,
// or, for a display without a window, a framebuffer object of a fixed size
// on a context made current without any surface. The off-screen kind needs
// no window system at all: its EGL display is Mesa's surfaceless platform,
// so neither an X server nor DISPLAY is involved.
//
// Render thread only, with the EGL lock held, as every EGL object.
#ifndef PANOVIEW_RENDERTARGET_H
#define PANOVIEW_RENDERTARGET_H

#include <EGL/egl.h>
#include <GLES2/gl2.h>

#include "EglObjects.h"
#include "GlObjects.h"

class RenderTarget {
public:
    RenderTarget() = default;
    RenderTarget(const RenderTarget &) = delete;
    RenderTarget &operator=(const RenderTarget &) = delete;

    // Before Open: a window (non-zero) wins; without one a size of at least
    // 1 x 1 makes the target a framebuffer of that size.
    void Choose(EGLNativeWindowType window, int offscreenWidth, int offscreenHeight);
    bool OffScreen() const { return m_Window == 0 && m_OffWidth > 0 && m_OffHeight > 0; }
    // Neither a window nor a size: nothing to draw into.
    bool Nowhere() const { return m_Window == 0 && !OffScreen(); }

    // The EGL display the target lives on: the default one for a window,
    // the surfaceless platform's for a framebuffer (EGL_NO_DISPLAY when the
    // EGL library has none).
    EGLDisplay OpenDisplay() const;
    // EGL_SURFACE_TYPE bits a config must have; `preserved` asks for a
    // window whose content survives the swap.
    EGLint SurfaceBits(bool preserved) const;

    // A window: makes its surface. A framebuffer: nothing yet.
    bool CreateSurface(EGLDisplay dpy, EGLConfig config);
    EGLSurface Surface() const { return m_Surface.get(); }
    // With the context current, once after CreateSurface: a framebuffer is
    // made (RGBA colour texture, depth buffer) and bound. It stays bound:
    // the binding is the context's, and whoever binds another framebuffer
    // binds Framebuffer() back. True for a window.
    bool Attach();
    // The framebuffer drawn into (0 for the window's).
    GLuint Framebuffer() const { return m_Fbo.id(); }
    // The framebuffer's colour texture (0 for a window).
    GLuint ColourTexture() const { return m_Colour.id(); }
    // The size drawn at: the surface's as the window has it now, or the
    // framebuffer's.
    bool Size(EGLDisplay dpy, EGLint *pWidth, EGLint *pHeight) const;
    // End of a draw: the window's swap. A framebuffer keeps its picture
    // until the next draw, with nothing to present.
    bool Present(EGLDisplay dpy);
    // Context current: the framebuffer's GL objects go.
    void ReleaseGl();
    // The surface goes (no context needed).
    void Reset();

private:
    EGLNativeWindowType m_Window = 0;
    int m_OffWidth = 0, m_OffHeight = 0;
    EglSurface m_Surface;
    GlFramebuffer m_Fbo;
    GlTexture m_Colour;
    GlRenderbuffer m_Depth;
};

#endif
