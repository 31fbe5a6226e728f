#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "base/Result.h"
#include "keytap/Protocol.h"
#include "pasting/Pasting.h"

namespace nulo {

/// Nulo's one connection to nulo-keytap, which its key tap and its paste share. A thread of its
/// own, which sleeps while nothing happens, reads what the service says.
class KeytapConnection {
  public:
    /// The chord's keys in the session's layout, as they are asked for; or why there are none, and
    /// no chord. May wait for the compositor.
    using FindChord = std::function<Result<keytap::Request>()>;

    enum class State {
        off,       // nobody listens there
        refused,   // with a reason; none when it ended without an answer
        lost,      // the service ended
        asked,     // connected, no answer yet
        admitted,  // the last notice says whether it serves
    };
    struct Status {
        State state = State::off;
        keytap::Reason reason = keytap::Reason::none;
        bool isServing = false;
        std::string chordFault;  // why no chord was asked for, as an Error has it
    };

    /// What the service says; all on the connection's thread.
    struct Listener {
        std::function<void(bool down)> onChord;
        std::function<void()> onStatus;  // status() is another
        std::function<void()> onWake;    // after wake()
    };

    KeytapConnection(std::string socketPath, FindChord findChord);
    /// Nobody is called any more.
    ~KeytapConnection();

    /// Connects unless it is connected. Never waits. Any thread, as all of this.
    void connect();
    Status status() const;
    /// Connects, and waits until `isEnough` says so of the status, which it returns in any case.
    Status awaitStatus(const std::function<bool(const Status&)>& isEnough,
                       std::chrono::milliseconds atMost);
    void wake();

    /// One listener at a time; none ends the present one's calls, waiting for one that is under way
    /// unless it is that call which ends them.
    void setListener(std::optional<Listener> listener);

    /// Has the service press the paste chord. `report` as PasteKeystroke's.
    void paste(PasteKeystroke::Report report);
    /// Forgets all reports.
    void cancelPastes();

  private:
    void run();
    void read();
    void handle(const keytap::Notice& notice);
    void end(State state, keytap::Reason reason);
    void sendChord();
    void sendPaste();
    void pasteEnded(const Outcome& outcome);
    void tell(const std::function<void(const Listener&)>& call);
    void tellStatus();
    bool send(const keytap::Request& request);

    const std::string m_socketPath;
    const FindChord m_findChord;
    const int m_wake;
    mutable std::mutex m_mutex;
    int m_socket = -1;
    Status m_status;
    std::condition_variable m_statusChanged;
    std::string m_chordFault;  // outlasts the states
    bool m_chordIsToBeSent = false;
    bool m_isStopping = false;
    std::deque<PasteKeystroke::Report> m_pastes;  // the first one was asked for
    std::optional<Listener> m_nextListener;
    std::recursive_mutex m_listenerMutex;  // held during its calls
    std::optional<Listener> m_listener;
    std::thread m_thread;  // once somebody connects
};

/// One sentence for the user, without a final stop.
std::string keytapText(keytap::Reason reason);

/// Why the service is of no use to this program, such a sentence; empty while it serves, or may
/// without anybody's doing.
std::string keytapObstacle(const KeytapConnection::Status& status);

}  // namespace nulo
