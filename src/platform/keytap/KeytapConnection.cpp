#include "platform/keytap/KeytapConnection.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

namespace nulo {

using keytap::Notice;
using keytap::Reason;
using keytap::Request;

KeytapConnection::KeytapConnection(std::string socketPath, FindChord findChord)
    : m_socketPath(std::move(socketPath)),
      m_findChord(std::move(findChord)),
      m_wake(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (m_wake < 0)
        throw std::system_error(errno, std::generic_category(), "eventfd");
}

KeytapConnection::~KeytapConnection() {
    setListener(std::nullopt);
    cancelPastes();
    {
        const std::lock_guard lock(m_mutex);
        m_isStopping = true;
    }
    wake();
    if (m_thread.joinable())
        m_thread.join();
    if (m_socket >= 0)
        close(m_socket);
    close(m_wake);
}

void KeytapConnection::connect() {
    {
        const std::lock_guard lock(m_mutex);
        if (m_socket >= 0 || m_isStopping)
            return;
        sockaddr_un address{.sun_family = AF_UNIX};
        std::strncpy(address.sun_path, m_socketPath.c_str(), sizeof address.sun_path - 1);
        const int made = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
        if (::connect(made, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
            if (made >= 0)
                close(made);
            m_status = {};
            return;
        }
        m_socket = made;
        // A refusal is believed until the service says otherwise.
        if (m_status.state != State::refused)
            m_status = {.state = State::asked};
        m_chordIsToBeSent = true;
        if (!m_thread.joinable())
            m_thread = std::thread([this] { run(); });
    }
    wake();
}

KeytapConnection::Status KeytapConnection::status() const {
    const std::lock_guard lock(m_mutex);
    Status status = m_status;
    status.chordFault = m_chordFault;
    return status;
}

KeytapConnection::Status KeytapConnection::awaitStatus(
    const std::function<bool(const Status&)>& isEnough, std::chrono::milliseconds atMost) {
    connect();
    std::unique_lock lock(m_mutex);
    m_statusChanged.wait_for(lock, atMost, [&] { return isEnough(m_status); });
    return m_status;
}

void KeytapConnection::wake() {
    eventfd_write(m_wake, 1);
}

void KeytapConnection::setListener(std::optional<Listener> listener) {
    // Who makes a listener may hold what its calls wait for.
    if (listener) {
        const std::lock_guard lock(m_mutex);
        m_nextListener = std::move(listener);
        return;
    }
    const std::lock_guard callLock(m_listenerMutex);
    const std::lock_guard lock(m_mutex);
    m_nextListener.reset();
    m_listener.reset();
}

void KeytapConnection::tell(const std::function<void(const Listener&)>& call) {
    const std::lock_guard callLock(m_listenerMutex);
    {
        const std::lock_guard lock(m_mutex);
        if (m_nextListener)
            m_listener = std::exchange(m_nextListener, std::nullopt);
    }
    if (m_listener)
        call(*m_listener);
}

void KeytapConnection::paste(PasteKeystroke::Report report) {
    std::unique_lock lock(m_mutex);
    if (m_status.state == State::admitted) {
        m_pastes.push_back(std::move(report));
        const bool isNext = m_pastes.size() == 1;
        lock.unlock();
        if (isNext)
            sendPaste();
        return;
    }
    const bool isOff = m_status.state == State::off;
    lock.unlock();
    // Where the service is off, the text waits on the clipboard for the user's own keystroke.
    if (report.onEnd)
        report.onEnd(isOff ? Outcome(Success{}) : Outcome(Error{keytapText(status().reason)}));
}

void KeytapConnection::cancelPastes() {
    const std::lock_guard lock(m_mutex);
    for (auto& report : m_pastes)  // the service still answers the first
        report = {};
    m_pastes.resize(std::min<std::size_t>(m_pastes.size(), 1));
}

void KeytapConnection::run() {
    while (true) {
        int socket = -1;
        bool chordIsToBeSent = false;
        {
            const std::lock_guard lock(m_mutex);
            if (m_isStopping)
                return;
            socket = m_socket;
            chordIsToBeSent = std::exchange(m_chordIsToBeSent, false);
        }
        if (chordIsToBeSent)
            sendChord();
        pollfd sources[] = {{m_wake, POLLIN, 0}, {socket, POLLIN, 0}};
        poll(sources, 2, -1);
        eventfd_t woken = 0;
        if (eventfd_read(m_wake, &woken) == 0)
            tell([](const Listener& listener) { listener.onWake(); });
        if (sources[1].revents)
            read();
    }
}

void KeytapConnection::read() {
    Notice notice;
    const ssize_t size = recv(m_socket, &notice, sizeof notice, MSG_TRUNC);
    // The kernel tells once, before what was said last, that the service ended without reading all.
    if (size < 0 && (errno == EAGAIN || errno == EINTR || errno == ECONNRESET))
        return;
    if (size != sizeof notice)
        return end(status().state == State::admitted ? State::lost : State::refused, Reason::none);
    handle(notice);
}

void KeytapConnection::handle(const Notice& notice) {
    switch (notice.kind) {
        case Notice::Kind::refused:
            return end(State::refused, notice.reason);
        case Notice::Kind::waiting:
        case Notice::Kind::serving: {
            {
                const std::lock_guard lock(m_mutex);
                m_status = {State::admitted, notice.reason, notice.kind == Notice::Kind::serving};
            }
            return tellStatus();
        }
        case Notice::Kind::chordDown:
        case Notice::Kind::chordUp:
            return tell([&](const Listener& listener) {
                listener.onChord(notice.kind == Notice::Kind::chordDown);
            });
        case Notice::Kind::pasted:
            return pasteEnded(Success{});
        case Notice::Kind::notPasted:
            return pasteEnded(Error{keytapText(notice.reason)});
    }
}

void KeytapConnection::end(State state, Reason reason) {
    std::deque<PasteKeystroke::Report> unanswered;
    {
        const std::lock_guard lock(m_mutex);
        close(std::exchange(m_socket, -1));
        m_status = {state, reason};
        unanswered.swap(m_pastes);
    }
    for (const auto& report : unanswered)
        if (report.onEnd)
            report.onEnd(Error{"the key service ended before it pressed the paste keys"});
    tellStatus();
}

void KeytapConnection::sendChord() {
    const Result<Request> chord = m_findChord();
    {
        const std::lock_guard lock(m_mutex);
        m_chordFault = chord ? "" : chord.error().description;
    }
    send(chord ? chord.value() : Request{});  // the service presses the paste keys all the same
    tellStatus();
}

void KeytapConnection::sendPaste() {
    std::function<void()> onSending;
    {
        const std::lock_guard lock(m_mutex);
        if (m_pastes.empty())
            return;
        onSending = m_pastes.front().onSending;
    }
    if (onSending)
        onSending();
    if (!send({.kind = Request::Kind::paste}))
        pasteEnded(Error{"the key service does not take requests"});
}

void KeytapConnection::pasteEnded(const Outcome& outcome) {
    PasteKeystroke::Report report;
    bool othersWait = false;
    {
        const std::lock_guard lock(m_mutex);
        if (m_pastes.empty())
            return;
        report = std::move(m_pastes.front());
        m_pastes.pop_front();
        othersWait = !m_pastes.empty();  // one that is added from here on asks for itself
    }
    if (report.onEnd)
        report.onEnd(outcome);
    if (othersWait)
        sendPaste();
}

void KeytapConnection::tellStatus() {
    m_statusChanged.notify_all();
    tell([](const Listener& listener) { listener.onStatus(); });
}

bool KeytapConnection::send(const Request& request) {
    const std::lock_guard lock(m_mutex);
    return m_socket >= 0 &&
           ::send(m_socket, &request, sizeof request, MSG_NOSIGNAL) == sizeof request;
}

std::string keytapText(Reason reason) {
    switch (reason) {
        case Reason::none:
            return "the key service does not answer";
        case Reason::otherSession:
            return "the key service serves users who sit at this machine";
        case Reason::secondClient:
            return "another program of yours is connected to the key service";
        case Reason::badRequest:
            return "the key service is of another version: start it anew (sudo systemctl restart "
                   "nulo-keytap.socket)";
        case Reason::notActive:
            return "another session has the screen";
        case Reason::locked:
            return "the screen is locked";
        case Reason::noKeyboard:
            return "no keyboard is connected";
        case Reason::noUinput:
            return "the key service cannot open /dev/uinput (sudo modprobe uinput)";
        case Reason::keyboardTaken:
            return "another program has taken a keyboard for itself";
        case Reason::starting:
            return "the keyboards are being taken over";
        case Reason::modifierHeld:
            return "a modifier key was held down";
    }
    return "the key service gave a reason that this version does not know";
}

std::string keytapObstacle(const KeytapConnection::Status& status) {
    using State = KeytapConnection::State;
    const Reason reason = status.reason;
    switch (status.state) {
        case State::off:
            return "nulo-keytap is not switched on";
        case State::refused:
            return keytapText(reason);
        case State::admitted:
            if (!status.chordFault.empty())
                return status.chordFault;
            return reason == Reason::noUinput || reason == Reason::noKeyboard ||
                           reason == Reason::keyboardTaken
                       ? keytapText(reason)
                       : "";
        case State::asked:
        case State::lost:
            break;
    }
    return {};
}

}  // namespace nulo
