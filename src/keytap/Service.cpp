#include "keytap/Service.h"

#include <sys/socket.h>

#include <array>
#include <cerrno>

namespace nulo::keytap {
namespace {

using SteadyClock = std::chrono::steady_clock;
using namespace std::chrono_literals;

// As long as it goes on, a program that connects again and again does not start it each time.
constexpr auto longestIdleness = 10s;
constexpr auto longestWaitForModifiers = 2s;
constexpr auto modifierPollInterval = 10ms;
// Of one client; it may use a burst of them at once.
constexpr auto timePerRequest = 20ms;
constexpr auto burst = 2s;

}  // namespace

Service::Service(int listener, Pulse& pulse)
    : m_listener(listener),
      m_pulse(pulse),
      m_login(
          m_loop, [this] { updateSoon(); }, [this] { m_loop.quit(); }) {}

void Service::run() {
    m_newClient = m_loop.watch(m_listener, [this] { accept(); });
    update();
    m_loop.run(m_pulse.turn);
    serve(nullptr);
}

void Service::accept() {
    Descriptor socket(accept4(m_listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    ucred peer{};
    socklen_t size = sizeof peer;
    if (!socket) {
        const bool isTransient = errno == EAGAIN || errno == EINTR || errno == ECONNABORTED;
        checked(isTransient ? 0 : -errno, "accept");
        return;
    }
    checked(getsockopt(socket.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 ? 0 : -errno,
            "SO_PEERCRED");
    m_login.refresh();
    std::set<uid_t> served;
    for (const Client& client : m_clients)
        if (!client.isGone)
            served.insert(client.user);
    Client& client = m_clients.emplace_back();
    client.user = peer.uid;
    client.socket = std::move(socket);
    const Reason reason = refusal(peer.uid, m_login.users(), served);
    if (reason != Reason::none)
        refuse(client, reason);
    else
        client.arrived = m_loop.watch(client.socket.get(), [this, &client] { read(client); });
    update();
}

void Service::read(Client& client) {
    std::array<std::byte, 2 * sizeof(Request)> packet;
    const ssize_t size = recv(client.socket.get(), packet.data(), packet.size(), 0);
    if (size < 0 && (errno == EAGAIN || errno == EINTR))
        return;
    const auto now = SteadyClock::now();
    client.allowance = std::max(client.allowance, now) + timePerRequest;
    const auto request =
        size > 0 ? parsedRequest(std::span(packet).first(size)) : std::optional<Request>();
    if (size <= 0) {
        client.isGone = true;
        updateSoon();
    } else if (!request || client.allowance > now + burst) {
        refuse(client, Reason::badRequest);
    } else if (request->kind == Request::Kind::chord) {
        if (client.chord)
            return refuse(client, Reason::badRequest);
        client.chord = chordOf(*request);
        if (&client == m_served)
            m_keyboards->router().setChord(*client.chord);
    } else if (&client != m_served) {
        tell(client, {Notice::Kind::notPasted, client.lastState->reason});
    } else if (m_isPasting) {
        refuse(client, Reason::badRequest);
    } else {
        paste();
    }
}

void Service::refuse(Client& client, Reason reason) {
    tell(client, {Notice::Kind::refused, reason});
    client.isGone = true;
    updateSoon();
}

/// A client that does not read what it is told is let go of, rather than waited for.
void Service::tell(Client& client, Notice notice) {
    if (client.isGone)
        return;
    if (send(client.socket.get(), &notice, sizeof notice, MSG_NOSIGNAL | MSG_DONTWAIT) ==
        sizeof notice)
        return;
    client.isGone = true;
    updateSoon();
}

void Service::tellState(Client& client) {
    Notice state{Notice::Kind::waiting, Reason::notActive};
    if (&client == m_served)
        state = {m_keyboards->isHolding() ? Notice::Kind::serving : Notice::Kind::waiting,
                 m_keyboards->state()};
    else if (client.user == m_login.users().active)
        state.reason = Reason::locked;
    if (client.lastState && client.lastState->kind == state.kind &&
        client.lastState->reason == state.reason)
        return;
    client.lastState = state;
    tell(client, state);
}

void Service::updateSoon() {
    if (!m_updateTimer)
        m_updateTimer = m_loop.after(0ms, [this] { update(); });
}

void Service::update() {
    m_updateTimer.reset();
    serve(whoIsToBeServed());  // whoever is served no more is told that the chord ended
    for (Client& client : m_clients)
        if (!m_login.users().all.count(client.user))
            refuse(client, Reason::otherSession);
    removeGone();
    m_pulse.isHolding = m_keyboards && m_keyboards->isHolding();
    for (Client& client : m_clients)
        tellState(client);
    if (!m_clients.empty())
        m_idleTimer.reset();
    else if (!m_idleTimer)
        m_idleTimer = m_loop.after(longestIdleness, [this] { m_loop.quit(); });
}

Service::Client* Service::whoIsToBeServed() {
    if (m_login.isLocked())
        return nullptr;
    for (Client& client : m_clients)
        if (!client.isGone && client.user == m_login.users().active)
            return &client;
    return nullptr;
}

void Service::serve(Client* client) {
    if (client == m_served)
        return;
    // What follows gives the keyboards back, however long the kernel takes for it.
    m_pulse.isHolding = false;
    if (m_isPasting)
        endPaste({Notice::Kind::notPasted, Reason::notActive});
    m_keyboards.reset();
    m_served = client;
    if (!client)
        return;
    m_keyboards = std::make_unique<KeyboardSet>(
        m_loop,
        [this](bool down) {
            tell(*m_served, {down ? Notice::Kind::chordDown : Notice::Kind::chordUp});
        },
        [this] { updateSoon(); });
    if (client->chord)
        m_keyboards->router().setChord(*client->chord);
}

void Service::removeGone() {
    m_clients.remove_if([this](const Client& client) { return client.isGone; });
}

void Service::paste() {
    m_isPasting = true;
    m_pasteEnds = SteadyClock::now() + longestWaitForModifiers;
    tryPaste();
}

void Service::tryPaste() {
    switch (m_keyboards->router().paste()) {
        case KeyRouter::Paste::sent:
            return endPaste({Notice::Kind::pasted});
        case KeyRouter::Paste::noKeyboard:
            return endPaste({Notice::Kind::notPasted, m_keyboards->state()});
        case KeyRouter::Paste::modifierHeld:
            if (SteadyClock::now() >= m_pasteEnds)
                return endPaste({Notice::Kind::notPasted, Reason::modifierHeld});
            m_pasteTimer = m_loop.after(modifierPollInterval, [this] { tryPaste(); });
    }
}

void Service::endPaste(Notice notice) {
    m_pasteTimer.reset();
    m_isPasting = false;
    tell(*m_served, notice);
}

}  // namespace nulo::keytap
