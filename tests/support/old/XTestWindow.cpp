#include "XTestWindow.h"

#include <X11/Xlib.h>
#include <X11/Xutil.h>

#include <chrono>
#include <mutex>
#include <thread>

namespace harness {

void EnsureXThreads()
{
    static std::once_flag once;
    std::call_once(once, [] { XInitThreads(); });
}

namespace {

Display *Dpy(void *p)
{
    return static_cast<Display *>(p);
}

// Waits until `done` holds for an event of the window, at most ~5 s.
template <typename Pred>
bool WaitForEvent(Display *dpy, Window win, Pred done)
{
    for (int i = 0; i < 500; i++) {
        XEvent ev;
        while (XCheckWindowEvent(dpy, win, StructureNotifyMask, &ev)) {
            if (done(ev)) return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
}

} // namespace

XTestWindow::XTestWindow(int width, int height) : m_width(width), m_height(height)
{
    EnsureXThreads();
    // A busy X server may refuse a connection for a moment; try again.
    Display *dpy = nullptr;
    for (int i = 0; i < 50 && !dpy; i++) {
        dpy = XOpenDisplay(nullptr);
        if (!dpy) std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    if (!dpy) {
        m_error = "cannot open X display (is DISPLAY set?)";
        return;
    }
    m_display = dpy;
    int screen = DefaultScreen(dpy);
    Window win = XCreateSimpleWindow(dpy, RootWindow(dpy, screen), 0, 0, unsigned(width), unsigned(height), 0,
                                     BlackPixel(dpy, screen), BlackPixel(dpy, screen));
    if (!win) {
        m_error = "XCreateSimpleWindow failed";
        return;
    }
    // Keep the window manager (if any) from choosing another size.
    XSizeHints hints = {};
    hints.flags = PSize | PMinSize | PMaxSize;
    hints.width = hints.min_width = hints.max_width = width;
    hints.height = hints.min_height = hints.max_height = height;
    XSetWMNormalHints(dpy, win, &hints);
    XStoreName(dpy, win, "panoview-test");
    XSelectInput(dpy, win, StructureNotifyMask);
    XMapWindow(dpy, win);
    XFlush(dpy);
    if (!WaitForEvent(dpy, win, [](const XEvent &ev) { return ev.type == MapNotify; })) {
        m_error = "window was never mapped";
        XDestroyWindow(dpy, win);
        XSync(dpy, False);
        return;
    }
    m_window = win;
}

XTestWindow::~XTestWindow()
{
    Display *dpy = Dpy(m_display);
    if (!dpy) return;
    if (m_window) XDestroyWindow(dpy, m_window);
    XSync(dpy, False);
    XCloseDisplay(dpy);
}

bool XTestWindow::Resize(int width, int height)
{
    Display *dpy = Dpy(m_display);
    if (!dpy || !m_window) return false;
    XSizeHints hints = {};
    hints.flags = PSize | PMinSize | PMaxSize;
    hints.width = hints.min_width = hints.max_width = width;
    hints.height = hints.min_height = hints.max_height = height;
    XSetWMNormalHints(dpy, m_window, &hints);
    XResizeWindow(dpy, m_window, unsigned(width), unsigned(height));
    XFlush(dpy);
    bool ok = WaitForEvent(dpy, m_window, [&](const XEvent &ev) {
        return ev.type == ConfigureNotify && ev.xconfigure.width == width && ev.xconfigure.height == height;
    });
    if (ok) {
        m_width = width;
        m_height = height;
    }
    return ok;
}

} // namespace harness
