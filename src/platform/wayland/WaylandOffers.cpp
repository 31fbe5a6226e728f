#include "platform/WaylandBackends.h"
#include "platform/wayland/WaylandConnection.h"
#include "platform/wayland/WaylandSession.h"

namespace nulo {

std::optional<std::set<std::string>> waylandOffers(const std::string& display) {
    const auto connection = WaylandConnection::open(display);
    if (!connection)
        return std::nullopt;
    std::set<std::string> interfaces;
    for (const auto& [interface, offer] : connection.value()->offers())
        interfaces.insert(interface);
    if (!DataControl::isOffered(*connection.value()))
        interfaces.erase(zwlr_data_control_manager_v1_interface.name);
    return interfaces;
}

std::shared_ptr<WaylandSession> openWaylandSession(const std::string& display) {
    return std::make_shared<WaylandSession>(display);
}

}  // namespace nulo
