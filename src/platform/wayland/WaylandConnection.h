#pragma once

#include <poll.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "base/Result.h"
#include "platform/wayland/Wayland.h"

namespace nulo {

/// A connection of Nulo's own to the compositor, beside the toolkit's, with what the compositor
/// offers and its first seat. One thread, which calls the listeners of all objects in wait().
class WaylandConnection {
  public:
    struct Offer {
        std::uint32_t name;
        std::uint32_t version;
    };

    /// `display` is a name as in $WAYLAND_DISPLAY. Waits ten seconds at most.
    static Result<std::unique_ptr<WaylandConnection>> open(const std::string& display);
    WaylandConnection(const WaylandConnection&) = delete;
    WaylandConnection& operator=(const WaylandConnection&) = delete;

    wl_display* display() const { return m_display.get(); }
    /// What can be bound at the moment, by interface.
    const std::multimap<std::string, Offer>& offers() const { return m_offers; }

    /// Null when the compositor does not offer it in a version from `lowest` on; the first of
    /// several.
    template <typename T>
    Wayland<T> bind(const wl_interface& interface, std::uint32_t lowest, std::uint32_t highest) {
        auto all = bindAll<T>(interface, lowest, highest, 1);
        return all.empty() ? nullptr : std::move(all.front());
    }
    template <typename T>
    std::vector<Wayland<T>> bindAll(const wl_interface& interface, std::uint32_t lowest,
                                    std::uint32_t highest, std::size_t most = 16) {
        std::vector<Wayland<T>> all;
        const auto [first, last] = m_offers.equal_range(interface.name);
        for (auto offer = first; offer != last && all.size() < most; ++offer)
            if (offer->second.version >= lowest)
                all.emplace_back(static_cast<T*>(
                    wl_registry_bind(m_registry.get(), offer->second.name, &interface,
                                     std::min(offer->second.version, highest))));
        return all;
    }

    /// Null without one.
    wl_seat* seat() const { return m_seat.get(); }
    /// To ask a seat for what it has not is the end of the connection.
    bool seatHas(wl_seat_capability capability) const { return m_capabilities & capability; }

    /// Sends what is to be sent, then waits until the compositor says something, until one of
    /// `others` is ready, whose events it fills in, or until `timeout` (milliseconds, -1: for
    /// ever). False once the connection is lost.
    bool wait(std::vector<pollfd>& others, int timeout);
    /// Waits until the compositor has done all that it was asked for. False when it does not do so
    /// in ten seconds, or the connection is lost.
    bool finish();
    bool isLost() const { return wl_display_get_error(m_display.get()) != 0; }
    /// Why it is lost, or that nothing came in time.
    std::string failure() const;

  private:
    explicit WaylandConnection(Wayland<wl_display> display);
    void bindSeat();

    Wayland<wl_display> m_display;
    Wayland<wl_registry> m_registry;
    std::multimap<std::string, Offer> m_offers;
    Wayland<wl_seat> m_seat;
    std::uint32_t m_capabilities = 0;
};

}  // namespace nulo
