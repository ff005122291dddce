// Owners of the EGL objects of one renderer: each destroys what it holds when
// reset or destroyed. Render thread only, with the EGL lock held.
#ifndef PANOVIEW_EGLOBJECTS_H
#define PANOVIEW_EGLOBJECTS_H

#include <EGL/egl.h>

// One EGL object of type H, destroyed by eglDestroySurface or
// eglDestroyContext. The display it belongs to is never terminated: other
// displays of the process share it.
template <typename H, EGLBoolean (*Destroy)(EGLDisplay, H)>
class EglObject {
public:
    EglObject() = default;
    ~EglObject() { Reset(); }
    EglObject(const EglObject &) = delete;
    EglObject &operator=(const EglObject &) = delete;

    // Takes `h` (which may be the null object, after a failed create).
    void Adopt(EGLDisplay dpy, H h)
    {
        Reset();
        m_dpy = dpy;
        m_h = h;
    }
    void Reset()
    {
        if (m_h != H(0)) Destroy(m_dpy, m_h);
        m_h = H(0);
        m_dpy = EGL_NO_DISPLAY;
    }
    H get() const { return m_h; }
    explicit operator bool() const { return m_h != H(0); }

private:
    EGLDisplay m_dpy = EGL_NO_DISPLAY;
    H m_h = H(0);
};

using EglSurface = EglObject<EGLSurface, eglDestroySurface>;
using EglContext = EglObject<EGLContext, eglDestroyContext>;

#endif
