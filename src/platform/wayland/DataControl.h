#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/wayland/PipeWriters.h"
#include "platform/wayland/Wayland.h"

namespace nulo {

class WaylandConnection;

/// A text for other programs.
struct OfferedText {
    std::string text;  // UTF-8
    /// It carries the hint by which clipboard managers know passwords.
    bool isPrivate = false;
    /// Called when a program asks for it, which gets it whatever is offered afterwards.
    std::function<void()> onRead;
    /// Called when another program has put something in its place, once for each selection.
    std::function<void()> onReplaced;
};

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

    /// Offers the text in place of what is there; calls its functions on this thread.
    void set(std::shared_ptr<const OfferedText> offered);
    /// Whether the compositor takes texts: it may end that at any time.
    bool isPossible() const { return m_device != nullptr; }

    PipeWriters& writers() { return m_writers; }

  private:
    struct Source;
    void offer(std::shared_ptr<const OfferedText> offered,
               void (*select)(zwlr_data_control_device_v1*, zwlr_data_control_source_v1*));

    Wayland<zwlr_data_control_manager_v1> m_manager;
    Wayland<zwlr_data_control_device_v1> m_device;
    std::vector<std::unique_ptr<Source>> m_sources;
    PipeWriters m_writers;
};

}  // namespace nulo
