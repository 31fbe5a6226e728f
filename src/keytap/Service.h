#pragma once

#include <sys/types.h>

#include <atomic>
#include <list>
#include <memory>
#include <optional>

#include "keytap/EventLoop.h"
#include "keytap/KeyboardSet.h"
#include "keytap/LoginManager.h"
#include "keytap/Protocol.h"

namespace nulo::keytap {

/// What the watchdog, a process of its own, sees of the service.
struct Pulse {
    std::atomic<std::uint32_t> turn = 0;  // odd while the service works
    std::atomic<bool> isHolding = false;  // the user's keys depend on it
};

/// Serves the program of whoever has the screen; holds the keyboards only while there is one. Ends
/// when it has had no client for a while.
class Service {
  public:
    /// `listener` is a listening SOCK_SEQPACKET socket; it is left open.
    Service(int listener, Pulse& pulse);

    /// Until there is nobody to serve. Throws std::system_error when it cannot go on: whatever
    /// starts it starts it again.
    void run();

  private:
    struct Client {
        uid_t user = 0;
        Descriptor socket;
        std::optional<ChordKeys> chord;  // that it named
        std::optional<Notice> lastState;
        std::chrono::steady_clock::time_point allowance;  // of requests, used up until then
        bool isGone = false;
        EventLoop::Source arrived;
    };

    void accept();
    void read(Client& client);
    void refuse(Client& client, Reason reason);
    void tell(Client& client, Notice notice);
    void tellState(Client& client);

    /// Brings everything in line with who is there and what logind says: soon, since what changes
    /// it may be at work inside what it ends.
    void updateSoon();
    void update();
    Client* whoIsToBeServed();
    void serve(Client* client);
    void removeGone();

    void paste();
    void tryPaste();
    void endPaste(Notice notice);

    const int m_listener;
    Pulse& m_pulse;
    EventLoop m_loop;
    std::list<Client> m_clients;
    LoginManager m_login;
    Client* m_served = nullptr;  // whom the keyboards are held for
    std::unique_ptr<KeyboardSet> m_keyboards;
    bool m_isPasting = false;
    std::chrono::steady_clock::time_point m_pasteEnds;
    EventLoop::Source m_newClient, m_pasteTimer, m_idleTimer, m_updateTimer;
};

}  // namespace nulo::keytap
