#pragma once

#include <optional>
#include <string>

#include "rig/process/ChildProcess.h"
#include "rig/process/TemporaryFolder.h"

namespace nulo {

/// A real X server without a screen, with a keyboard that a test presses. Unlike keys sent by
/// XTEST, these are the user's: they have their own device, and are held apart from injected ones.
class InputTestServer {
  public:
    /// Key codes as on every PC keyboard.
    enum Key { keyA = 38, altLeft = 64, space = 65, capsLock = 66, keyV = 55, controlLeft = 37 };

    /// `layout` is the keyboard's: injected keys have the server's own, us, until setxkbmap sets
    /// one for all. Throws when the server does not come up.
    explicit InputTestServer(const std::string& layout = "us");
    ~InputTestServer();

    /// As in $DISPLAY.
    const std::string& display() const { return m_display; }

    /// These return when the server has processed the event; they throw when it does not answer.
    void press(int key) { send(key, true); }
    void release(int key) { send(key, false); }
    void tap(int key);

  private:
    void start();
    void send(int key, bool down);

    TemporaryFolder m_folder;
    std::optional<ChildProcess> m_process;
    std::string m_display;
    int m_keyboard = -1;
};

}  // namespace nulo
