#pragma once

#include <linux/input.h>

#include <optional>
#include <span>
#include <string>

#include "keytap/Descriptor.h"
#include "keytap/KeyRouter.h"

namespace nulo::keytap {

/// A keyboard of the kernel's, /dev/input/event*. No call of it waits.
class InputDevice {
  public:
    /// Nothing for what is no keyboard of the first seat, for a clone of ours, and for what cannot
    /// be opened (yet).
    static std::optional<InputDevice> openKeyboard(const std::string& node);

    int descriptor() const { return m_descriptor.get(); }
    /// A keyboard of another seat is for who sits there.
    bool isOfFirstSeat() const;

    enum class Grab { done, takenByAnother, gone };
    /// From now on nobody else gets its events.
    Grab grab();
    void ungrab();

    KeyRouter::KeySet keysDown() const;
    /// The next events, oldest first, into `buffer`. Empty when there are none at the moment,
    /// nothing when the device is gone.
    std::optional<std::span<const input_event>> read(std::span<input_event> buffer);
    /// Lights its lamps as a compositor lit the clone's.
    void setLamp(const input_event& lamp);

  private:
    explicit InputDevice(Descriptor descriptor) : m_descriptor(std::move(descriptor)) {}

    Descriptor m_descriptor;
};

}  // namespace nulo::keytap
