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
    m_bGone = false;
    m_bExposed = false;
    m_bResized = true;
}

bool WindowWatch::Exists()
{
    if (!m_pConnection) return true; // nothing to ask: assume it does
    if (m_bGone) return false;
    xcb_generic_error_t *pError = nullptr;
    xcb_get_geometry_reply_t *pReply =
        xcb_get_geometry_reply(m_pConnection, xcb_get_geometry(m_pConnection, m_window), &pError);
    std::free(pError);
    if (!pReply) m_bGone = true;
    std::free(pReply);
    return !m_bGone;
}

void WindowWatch::Poll()
{
    if (!m_pConnection) return;
    while (xcb_generic_event_t *ev = xcb_poll_for_event(m_pConnection)) {
        switch (ev->response_type & 0x7f) {
        case XCB_EXPOSE:
            m_bExposed = true;
            break;
        case XCB_MAP_NOTIFY:
        case XCB_CONFIGURE_NOTIFY:
            m_bExposed = true;
            m_bResized = true;
            break;
        case XCB_DESTROY_NOTIFY:
            m_bGone = true;
            break;
        default: // errors (response type 0) for a window that is gone, and the rest
            break;
        }
        std::free(ev);
    }
}

bool WindowWatch::TakeExposed()
{
    Poll();
    const bool bExposed = m_bExposed;
    m_bExposed = false;
    return bExposed;
}

bool WindowWatch::TakeResized()
{
    Poll();
    // Without a connection of its own the watch hears nothing: every draw
    // must look at the surface.
    const bool bResized = m_bResized || !m_pConnection;
    m_bResized = false;
    return bResized;
}

bool WindowWatch::Gone()
{
    Poll();
    return m_bGone;
}

bool WindowWatch::Replaced()
{
    if (!Gone()) return false;
    xcb_generic_error_t *pError = nullptr;
    xcb_get_geometry_reply_t *pReply =
        xcb_get_geometry_reply(m_pConnection, xcb_get_geometry(m_pConnection, m_window), &pError);
    std::free(pError);
    const bool bExists = pReply != nullptr;
    std::free(pReply);
    return bExists;
}
