// The demo's X11 window and its input, turned into plain events so that the
// player never sees Xlib types.
#ifndef PANOVIEW_HOST_X11WINDOW_H
#define PANOVIEW_HOST_X11WINDOW_H

#include <cstdint>
#include <string>

struct WindowEvent {
    enum Type { kNone, kClose, kResize, kKey, kButtonDown, kButtonUp, kMotion, kWheel };
    Type type = kNone;
    int width = 0, height = 0; // kResize
    char key = 0;              // kKey: ASCII, 27 for Escape, or one of the arrows below
    int x = 0, y = 0;          // pointer events, window pixels
    int button = 0;            // kButtonDown/Up: 1 left; kWheel: +1 up, -1 down
    unsigned long timeMs = 0;  // server time of pointer events

    static const char kLeft = 1, kRight = 2, kUp = 3, kDown = 4;
};

class X11Window {
public:
    X11Window() = default;
    ~X11Window();
    X11Window(const X11Window &) = delete;
    X11Window &operator=(const X11Window &) = delete;

    // Calls XInitThreads first (the library renders on its own thread).
    bool Open(int width, int height, const char *title, std::string *error);
    uint32_t id() const { return uint32_t(m_window); }
    int width() const { return m_width; }
    int height() const { return m_height; }
    // Next pending event, without waiting; false when there is none.
    bool Poll(WindowEvent *ev);
    // Sleeps until an event is pending or `milliseconds` have passed.
    void WaitForEvent(int milliseconds);

private:
    void *m_display = nullptr;
    unsigned long m_window = 0;
    unsigned long m_deleteAtom = 0;
    int m_width = 0, m_height = 0;
};

#endif
