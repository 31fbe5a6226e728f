#include "platform/wayland/WaylandConnection.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace nulo {
namespace {

constexpr auto longestAnswer = std::chrono::seconds(10);

WaylandConnection& self(void* data) {
    return *static_cast<WaylandConnection*>(data);
}

}  // namespace

WaylandConnection::WaylandConnection(Wayland<wl_display> display)
    : m_display(std::move(display)), m_registry(wl_display_get_registry(m_display.get())) {
    static const wl_registry_listener listener{
        .global =
            [](void* data, wl_registry*, std::uint32_t name, const char* interface,
               std::uint32_t version) {
                self(data).m_offers.emplace(interface, Offer{name, version});
            },
        .global_remove =
            [](void* data, wl_registry*, std::uint32_t name) {
                std::erase_if(self(data).m_offers,
                              [name](const auto& offer) { return offer.second.name == name; });
            }};
    wl_registry_add_listener(m_registry.get(), &listener, this);
}

Result<std::unique_ptr<WaylandConnection>> WaylandConnection::open(const std::string& display) {
    Wayland<wl_display> connected(wl_display_connect(display.c_str()));
    if (!connected)
        return Error{"no Wayland compositor answers on " + display};
    std::unique_ptr<WaylandConnection> connection(new WaylandConnection(std::move(connected)));
    if (!connection->finish())
        return Error{connection->failure()};
    connection->bindSeat();
    if (!connection->finish())
        return Error{connection->failure()};
    return connection;
}

void WaylandConnection::bindSeat() {
    m_seat = bind<wl_seat>(wl_seat_interface, 1, 2);
    if (!m_seat)
        return;
    static const wl_seat_listener listener{
        .capabilities =
            [](void* data, wl_seat*, std::uint32_t capabilities) {
                self(data).m_capabilities = capabilities;
            },
        .name = ignored<void*, wl_seat*, const char*>};
    wl_seat_add_listener(m_seat.get(), &listener, this);
}

bool WaylandConnection::wait(std::vector<pollfd>& others, int timeout) {
    wl_display* const display = m_display.get();
    while (wl_display_prepare_read(display) != 0)
        if (wl_display_dispatch_pending(display) < 0)
            return false;
    const bool isFull = wl_display_flush(display) < 0 && errno == EAGAIN;
    pollfd compositor{wl_display_get_fd(display), POLLIN, 0};
    if (isFull)
        compositor.events |= POLLOUT;
    others.push_back(compositor);
    const int ready = ::poll(others.data(), others.size(), timeout);
    compositor = others.back();
    others.pop_back();
    if (ready < 0)
        for (pollfd& other : others)
            other.revents = 0;
    // The connection's end is read as an error, which flush() does not always tell.
    if (ready > 0 && (compositor.revents & ~POLLOUT))
        wl_display_read_events(display);
    else
        wl_display_cancel_read(display);
    return wl_display_dispatch_pending(display) >= 0 && !isLost();
}

bool WaylandConnection::finish() {
    bool isDone = false;
    const Wayland<wl_callback> callback(wl_display_sync(m_display.get()));
    static const wl_callback_listener listener{
        [](void* data, wl_callback*, std::uint32_t) { *static_cast<bool*>(data) = true; }};
    wl_callback_add_listener(callback.get(), &listener, &isDone);
    const auto end = std::chrono::steady_clock::now() + longestAnswer;
    std::vector<pollfd> none;
    while (!isDone) {
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
        if (left.count() <= 0 || !wait(none, static_cast<int>(left.count())))
            return false;
    }
    return true;
}

std::string WaylandConnection::failure() const {
    if (!isLost())
        return "the compositor does not answer";
    const wl_interface* interface = nullptr;
    std::uint32_t id = 0;
    const int number = wl_display_get_error(m_display.get());
    if (number != EPROTO)
        return std::string("the compositor has gone (") + std::strerror(number) + ")";
    const auto code = wl_display_get_protocol_error(m_display.get(), &interface, &id);
    return std::string("the compositor refused a request of ") +
           (interface ? interface->name : "an object") + " (error " + std::to_string(code) + ")";
}

}  // namespace nulo
