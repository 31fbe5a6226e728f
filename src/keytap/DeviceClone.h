#pragma once

#include <linux/input.h>
#include <sys/ioctl.h>

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "keytap/Descriptor.h"
#include "keytap/Keys.h"

namespace nulo::keytap {

/// How the physical path of each clone begins.
inline constexpr const char* clonePath = "nulo-keytap/";

/// A device's bits, as the kernel hands them over.
template <int count>
class Bits {
  public:
    Bits() = default;
    /// Those of an event type that the device knows; none when it does not answer.
    Bits(int descriptor, int type) { ioctl(descriptor, EVIOCGBIT(type, size()), data()); }

    bool test(int bit) const { return m_bytes[bit / 8] >> (bit % 8) & 1; }
    std::uint8_t* data() { return m_bytes.data(); }
    static constexpr int size() { return (count + 7) / 8; }

  private:
    std::array<std::uint8_t, (count + 7) / 8> m_bytes{};
};

/// A virtual device that programs take for the one that it was made of: the same name, identity,
/// keys, axes and lamps. No call of it waits but that which ends it.
class DeviceClone {
  public:
    enum class Fault { none, noUinput, refused };
    /// Nothing when it cannot be made, with the fault.
    static std::optional<DeviceClone> of(int original, int number, Fault& fault);

    DeviceClone(DeviceClone&&) = default;
    DeviceClone& operator=(DeviceClone&&) = delete;
    /// The kernel may take more than a second for it: that happens beside this thread.
    ~DeviceClone();

    int descriptor() const { return m_descriptor.get(); }
    /// Where programs open it, such as "event7" of /dev/input.
    const std::string& node() const { return m_node; }

    /// All false when the clone no longer works.
    bool key(KeyCode code, bool down);
    bool send(const input_event& event);
    bool endFrame();

    /// Calls back for each lamp that a compositor switched since.
    void readLamps(const std::function<void(const input_event&)>& switched);

  private:
    explicit DeviceClone(Descriptor descriptor) : m_descriptor(std::move(descriptor)) {}
    bool write(std::uint16_t type, std::uint16_t code, std::int32_t value);

    Descriptor m_descriptor;
    std::string m_node;
    bool m_frameIsOpen = false;
};

}  // namespace nulo::keytap
