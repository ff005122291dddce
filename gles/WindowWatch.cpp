#include "WindowWatch.h"

#include <xcb/xcb.h>

#include <cstdlib>

void WindowWatch::Watch(uint32_t window)
{
    if (window == m_window && m_pConnection) return;
    Stop();
    if (!window) return;
    xcb_connection_t *c = xcb_connect(nullptr, nullptr);
    if (xcb_connection_has_error(c)) {
        xcb_disconnect(c);
        return;
    }
    const uint32_t mask = XCB_EVENT_MASK_EXPOSURE | XCB_EVENT_MASK_STRUCTURE_NOTIFY;
    xcb_change_window_attributes(c, window, XCB_CW_EVENT_MASK, &mask);
    xcb_flush(c);
    m_pConnection = c;
    m_window = window;
}

void WindowWatch::Stop()
{
    if (m_pConnection) xcb_disconnect(m_pConnection);
    m_pConnection = nullptr;
    m_window = 0;
}

bool WindowWatch::TakeExposed()
{
    if (!m_pConnection) return false;
    bool bExposed = false;
    while (xcb_generic_event_t *ev = xcb_poll_for_event(m_pConnection)) {
        switch (ev->response_type & 0x7f) {
        case XCB_EXPOSE:
        case XCB_MAP_NOTIFY:
        case XCB_CONFIGURE_NOTIFY:
            bExposed = true;
            break;
        default: // errors (response type 0) for a window that is gone, and the rest
            break;
        }
        std::free(ev);
    }
    return bExposed;
}
