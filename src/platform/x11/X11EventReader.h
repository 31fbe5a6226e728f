#pragma once

#include <algorithm>
#include <deque>
#include <utility>

#include "platform/x11/Xcb.h"

namespace nulo {

/// The events of one connection, of which some are read out of turn. One thread.
class X11EventReader {
  public:
    explicit X11EventReader(xcb_connection_t* connection) : m_connection(connection) {}

    xcb_connection_t* connection() const { return m_connection; }
    /// Nothing when there is none at present.
    XcbEvent next() {
        if (m_deferred.empty())
            return XcbEvent(xcb_poll_for_event(m_connection));
        XcbEvent event = std::move(m_deferred.front());
        m_deferred.pop_front();
        return event;
    }
    /// Puts back one that was read while waiting for another.
    void defer(XcbEvent event) { m_deferred.push_back(std::move(event)); }
    /// The first that is wanted of all that the server has sent so far; nothing when there is none.
    template <typename IsWanted>
    XcbEvent takeFirst(IsWanted isWanted) {
        NULO_XCB(xcb_get_input_focus, m_connection);  // brings all that was sent before its answer
        while (XcbEvent event{xcb_poll_for_event(m_connection)})
            defer(std::move(event));
        const auto found = std::find_if(m_deferred.begin(), m_deferred.end(),
                                        [&](const XcbEvent& event) { return isWanted(*event); });
        if (found == m_deferred.end())
            return nullptr;
        XcbEvent event = std::move(*found);
        m_deferred.erase(found);
        return event;
    }

  private:
    xcb_connection_t* const m_connection;
    std::deque<XcbEvent> m_deferred;
};

}  // namespace nulo
