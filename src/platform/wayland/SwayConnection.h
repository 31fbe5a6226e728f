#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "base/Result.h"

namespace nulo {

/// A connection to sway's (or i3's) own socket. One thread.
class SwayConnection {
  public:
    struct Message {
        std::uint32_t type;
        std::string content;  // JSON
    };
    static constexpr std::uint32_t runCommand = 0, subscribe = 2;
    static constexpr std::uint32_t workspaceEvent = 0x80000000, bindingEvent = 0x80000005;

    /// `path` as in $SWAYSOCK.
    static Result<SwayConnection> open(const std::string& path);
    SwayConnection(SwayConnection&& other) noexcept;
    SwayConnection& operator=(SwayConnection&&) = delete;
    ~SwayConnection();

    int descriptor() const { return m_socket; }
    /// False when it cannot be sent in two seconds.
    bool send(std::uint32_t type, const std::string& content);
    /// Waits two seconds at most once `descriptor` can be read. Nothing when the connection is
    /// lost, or what comes is not sway's way to speak.
    std::optional<Message> receive();

  private:
    explicit SwayConnection(int descriptor) : m_socket(descriptor) {}
    bool receiveAll(char* to, std::size_t size);

    int m_socket;
};

}  // namespace nulo
