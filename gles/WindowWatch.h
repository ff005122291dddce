// Tells the render thread that the host's window needs its picture again
// although nothing the display shows has changed: the window was exposed
// (uncovered, mapped again) or resized. Without a backing store the X server
// drops the content of a covered window, and a paused video would stay
// black until its next frame.
//
// The watch has an X connection of its own and asks for exposure and
// structure events of the host's window on it; X delivers them to every
// client that asks, so the host's own event handling is not disturbed.
// Errors (a window the host destroyed) arrive as events on this connection
// and are dropped: no process-wide X error handler is involved.
#ifndef PANOVIEW_WINDOWWATCH_H
#define PANOVIEW_WINDOWWATCH_H

#include <cstdint>

struct xcb_connection_t;

class WindowWatch {
public:
    WindowWatch() = default;
    ~WindowWatch() { Stop(); }
    WindowWatch(const WindowWatch &) = delete;
    WindowWatch &operator=(const WindowWatch &) = delete;

    // Starts watching `window` (an X window id), replacing any earlier one.
    // Does nothing when no X server is reachable.
    void Watch(uint32_t window);
    void Stop();
    // True when the window was exposed, mapped or resized since the last
    // call. Never blocks.
    bool TakeExposed();
    // True when the window was resized or mapped since the last call, or
    // when nothing is watched (no connection): then any draw may find a new
    // size. Never blocks.
    bool TakeResized();
    // False once the window is known to be destroyed: asks the server (one
    // round trip) unless its destruction was seen already. A surface whose
    // window is gone must not be read: the driver's read of it crashes.
    bool Exists();
    // True once the window's destruction has been seen. Never blocks.
    bool Gone();
    // True when the window was destroyed and a window of the same id exists
    // now: X hands out the ids of a closed connection again, so a host's new
    // window may carry the old one's id. One round trip while gone.
    bool Replaced();

private:
    xcb_connection_t *m_pConnection = nullptr;
    uint32_t m_window = 0;
    bool m_bGone = false;
    bool m_bExposed = false;
    bool m_bResized = true; // the first draw asks for the size
    void Poll(); // takes the queued events
};

#endif
