#include "X11Window.h"

#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/keysym.h>

#include <poll.h>

#include <chrono>
#include <thread>

static Display *Dpy(void *p)
{
    return static_cast<Display *>(p);
}

X11Window::~X11Window()
{
    Display *dpy = Dpy(m_display);
    if (!dpy) return;
    if (m_window) XDestroyWindow(dpy, m_window);
    XCloseDisplay(dpy);
}

bool X11Window::Open(int width, int height, const char *title, std::string *error)
{
    XInitThreads();
    Display *dpy = XOpenDisplay(nullptr);
    if (!dpy) {
        *error = "cannot open the X display (DISPLAY not set?)";
        return false;
    }
    m_display = dpy;
    int screen = DefaultScreen(dpy);
    Window win = XCreateSimpleWindow(dpy, RootWindow(dpy, screen), 0, 0, unsigned(width), unsigned(height), 0,
                                     BlackPixel(dpy, screen), BlackPixel(dpy, screen));
    if (!win) {
        *error = "cannot create the window";
        return false;
    }
    m_window = win;
    m_width = width;
    m_height = height;
    XStoreName(dpy, win, title);
    XSelectInput(dpy, win,
                 StructureNotifyMask | KeyPressMask | ButtonPressMask | ButtonReleaseMask | Button1MotionMask |
                     ExposureMask);
    Atom del = XInternAtom(dpy, "WM_DELETE_WINDOW", False);
    XSetWMProtocols(dpy, win, &del, 1);
    m_deleteAtom = del;
    XMapWindow(dpy, win);
    XFlush(dpy);
    // Wait (bounded) for the map so that the first frame has a surface.
    for (int i = 0; i < 300; i++) {
        XEvent ev;
        if (XCheckTypedWindowEvent(dpy, win, MapNotify, &ev)) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    *error = "the window was never mapped";
    return false;
}

bool X11Window::Poll(WindowEvent *out)
{
    Display *dpy = Dpy(m_display);
    while (dpy && XPending(dpy)) {
        XEvent ev;
        XNextEvent(dpy, &ev);
        WindowEvent e;
        switch (ev.type) {
        case ClientMessage:
            if (Atom(ev.xclient.data.l[0]) != m_deleteAtom) continue;
            e.type = WindowEvent::kClose;
            break;
        case ConfigureNotify:
            if (ev.xconfigure.width == m_width && ev.xconfigure.height == m_height) continue;
            m_width = ev.xconfigure.width;
            m_height = ev.xconfigure.height;
            e.type = WindowEvent::kResize;
            e.width = m_width;
            e.height = m_height;
            break;
        case KeyPress: {
            KeySym sym = XLookupKeysym(&ev.xkey, 0);
            if (sym == XK_Escape) e.key = 27;
            else if (sym == XK_minus || sym == XK_KP_Subtract) e.key = '-';
            else if (sym >= XK_0 && sym <= XK_9) e.key = char('0' + (sym - XK_0));
            else if (sym >= XK_KP_0 && sym <= XK_KP_9) e.key = char('0' + (sym - XK_KP_0));
            else if (sym >= XK_a && sym <= XK_z) e.key = char('a' + (sym - XK_a));
            else if (sym == XK_space) e.key = ' ';
            else if (sym == XK_Left) e.key = WindowEvent::kLeft;
            else if (sym == XK_Right) e.key = WindowEvent::kRight;
            else if (sym == XK_Up) e.key = WindowEvent::kUp;
            else if (sym == XK_Down) e.key = WindowEvent::kDown;
            else continue;
            e.type = WindowEvent::kKey;
            break;
        }
        case ButtonPress:
        case ButtonRelease:
            e.x = ev.xbutton.x;
            e.y = ev.xbutton.y;
            e.timeMs = ev.xbutton.time;
            if (ev.xbutton.button == Button4 || ev.xbutton.button == Button5) {
                if (ev.type == ButtonRelease) continue;
                e.type = WindowEvent::kWheel;
                e.button = ev.xbutton.button == Button4 ? 1 : -1;
            } else {
                e.type = ev.type == ButtonPress ? WindowEvent::kButtonDown : WindowEvent::kButtonUp;
                e.button = int(ev.xbutton.button);
            }
            break;
        case MotionNotify:
            e.type = WindowEvent::kMotion;
            e.x = ev.xmotion.x;
            e.y = ev.xmotion.y;
            e.timeMs = ev.xmotion.time;
            break;
        default:
            continue;
        }
        *out = e;
        return true;
    }
    return false;
}

void X11Window::WaitForEvent(int milliseconds)
{
    Display *dpy = Dpy(m_display);
    if (!dpy) {
        std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
        return;
    }
    if (XPending(dpy)) return;
    pollfd p = {ConnectionNumber(dpy), POLLIN, 0};
    poll(&p, 1, milliseconds);
}
