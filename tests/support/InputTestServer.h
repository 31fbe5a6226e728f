#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "rig/process/ChildProcess.h"
#include "rig/process/TemporaryFolder.h"

namespace nulo {

/// A real X server without a screen, with keyboards of its own that a test presses. Unlike keys
/// sent by XTEST, these are the user's: they have their own devices, and are held apart from
/// injected ones.
class InputTestServer {
  public:
    /// Key codes as on every PC keyboard.
    enum Key { keyA = 38, altLeft = 64, space = 65, capsLock = 66, keyV = 55, controlLeft = 37 };

    struct Options {
        int keyboards = 1;
        /// Of these keyboards only: injected keys have the server's own layout, us, until setxkbmap
        /// sets one for all.
        std::string layout = "us";
    };

    /// Throws when the server does not come up.
    InputTestServer() : InputTestServer(Options{}) {}
    explicit InputTestServer(const Options& options);
    ~InputTestServer();

    /// As in $DISPLAY.
    const std::string& display() const { return m_display; }
    pid_t pid() const { return m_process->pid(); }

    /// These return when the server has processed the event; they throw when it does not answer.
    void press(int key, int keyboard = 0) { send(keyboard, key, true); }
    void release(int key, int keyboard = 0) { send(keyboard, key, false); }
    void tap(int key, int keyboard = 0);

  private:
    std::string configuration(const Options& options) const;
    std::string socketPath(int keyboard) const;
    void start();
    void connectKeyboard(int keyboard);
    void send(int keyboard, int key, bool down);

    TemporaryFolder m_folder;
    std::unique_ptr<ChildProcess> m_process;
    std::string m_display;
    std::vector<int> m_sockets;
};

}  // namespace nulo
