// A plain X11 window for the end-to-end tests, on its own connection to the
// display named by $DISPLAY. X11 headers stay in the .cpp.
#ifndef PANOVIEW_TESTS_XTESTWINDOW_H
#define PANOVIEW_TESTS_XTESTWINDOW_H

#include <cstdint>
#include <string>

namespace harness {

// Calls XInitThreads() once per process. The library renders on a thread of
// its own, so this must run before the first XOpenDisplay; every harness
// entry point calls it.
void EnsureXThreads();

class XTestWindow {
public:
    // Opens a connection, creates a window of the given size, maps it and
    // waits (bounded) until the server has mapped it.
    XTestWindow(int width, int height);
    ~XTestWindow();
    XTestWindow(const XTestWindow &) = delete;
    XTestWindow &operator=(const XTestWindow &) = delete;

    bool ok() const { return m_window != 0; }
    const std::string &error() const { return m_error; }

    // The X window id as the display record carries it (32 bits).
    uint32_t id() const { return uint32_t(m_window); }
    int width() const { return m_width; }
    int height() const { return m_height; }

    // Resizes the window and waits until the server reports the new size.
    bool Resize(int width, int height);

private:
    void *m_display = nullptr; // Display*
    unsigned long m_window = 0;
    int m_width = 0;
    int m_height = 0;
    std::string m_error;
};

} // namespace harness

#endif
