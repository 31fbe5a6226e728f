#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/wayland/PipeWriters.h"
#include "platform/wayland/Wayland.h"

namespace nulo {

class WaylandConnection;

/// Owns the clipboard and the primary selection without a window and without the focus, by the
/// protocol of clipboard managers. The connection's thread; gone before the connection.
class DataControl {
  public:
    /// Takes from it what it needs, which it may not offer.
    explicit DataControl(WaylandConnection& connection);
    ~DataControl();
    DataControl(const DataControl&) = delete;
    DataControl& operator=(const DataControl&) = delete;

    /// Whether the compositor lets clients own selections like this.
    static bool isOffered(const WaylandConnection& connection);

    /// UTF-8 text in place of what is there. `onRead` is called when a program asks for it, which
    /// gets it whatever is set afterwards.
    void set(std::shared_ptr<const std::string> text, std::function<void()> onRead);
    /// Whether the compositor takes texts: it may end that at any time.
    bool isPossible() const { return m_device != nullptr; }

    PipeWriters& writers() { return m_writers; }

  private:
    struct Source;
    void offer(std::shared_ptr<const std::string> text, const std::function<void()>& onRead,
               void (*select)(zwlr_data_control_device_v1*, zwlr_data_control_source_v1*));

    Wayland<zwlr_data_control_manager_v1> m_manager;
    Wayland<zwlr_data_control_device_v1> m_device;
    std::vector<std::unique_ptr<Source>> m_sources;
    PipeWriters m_writers;
};

}  // namespace nulo
