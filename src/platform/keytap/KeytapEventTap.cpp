#include <utility>

#include "base/Lifetime.h"
#include "platform/WaylandBackends.h"
#include "platform/keytap/KeytapConnection.h"

namespace nulo {
namespace {

using State = KeytapConnection::State;

/// The chord, as the key events that it consists of. What it returns is not heeded: the service has
/// hidden them already.
class KeytapEventTap final : public EventTap {
  public:
    KeytapEventTap(std::shared_ptr<KeytapConnection> connection, EventTapSource::Handler handler,
                   std::function<void()> onStatus)
        : m_connection(std::move(connection)),
          m_handler(std::move(handler)),
          m_onStatus(std::move(onStatus)) {
        m_connection->setListener(KeytapConnection::Listener{[this](bool down) { chord(down); },
                                                             [this] { statusChanged(); },
                                                             [this] { chord(false); }});
        m_connection->wake();  // the first event says that Option is up
    }
    ~KeytapEventTap() override { m_connection->setListener(std::nullopt); }

    void enable() override { m_connection->connect(); }
    bool isEnabled() override {
        const State state = m_connection->status().state;
        return state == State::asked || state == State::admitted;
    }
    void postOptionDown() override {}

  private:
    // Connection's thread.
    void chord(bool down) {
        if (down) {
            m_handler({.type = KeyEvent::Type::flagsChanged, .optionSet = true});
            m_handler({.type = KeyEvent::Type::keyDown, .isSpace = true});
        } else {
            m_handler({.type = KeyEvent::Type::flagsChanged, .optionSet = false});
        }
    }

    void statusChanged() {
        m_onStatus();
        const State state = m_connection->status().state;
        if (state == State::refused || state == State::lost)
            chord(false);
        // A service that refuses, or ends unasked, is left to the next health check.
        if (state == State::lost)
            m_handler({.type = KeyEvent::Type::tapDisabledByTimeout});
    }

    const std::shared_ptr<KeytapConnection> m_connection;
    const EventTapSource::Handler m_handler;
    const std::function<void()> m_onStatus;
};

class KeytapEventTapSource final : public EventTapSource {
  public:
    KeytapEventTapSource(std::shared_ptr<KeytapConnection> connection, MainQueue& mainQueue,
                         Print print)
        : m_connection(std::move(connection)), m_mainQueue(mainQueue), m_print(std::move(print)) {}

    bool isTrusted() override {
        m_connection->connect();
        explain();
        const State state = m_connection->status().state;
        return state != State::off && state != State::refused;
    }

    std::unique_ptr<EventTap> createTap(Handler handler) override {
        return std::make_unique<KeytapEventTap>(
            m_connection, std::move(handler),
            [this, look = m_lifetime.guard([this] { explain(); })] { m_mainQueue.async(look); });
    }

    /// The service learns of locks by itself, of most of them.
    void letGo() override { m_connection->wake(); }

  private:
    void explain() {
        const KeytapConnection::Status status = m_connection->status();
        const std::string obstacle = keytapObstacle(status);
        std::string line;
        if (!obstacle.empty())
            line = (status.isServing && status.chordFault.empty()
                        ? "A keyboard without the global shortcut: "
                        : "No global shortcut: ") +
                   obstacle;
        else if (status.isServing)
            line = "[nulo] nulo-keytap has taken the keyboards over";
        if (line != m_lastLine && !line.empty())
            m_print(line);
        m_lastLine = line;
        const bool isObstructed = status.state == State::admitted && !obstacle.empty() &&
                                  (!status.isServing || !status.chordFault.empty());
        if (std::exchange(m_wasObstructed, isObstructed) != isObstructed && onObstructed)
            onObstructed(isObstructed);
    }

    const std::shared_ptr<KeytapConnection> m_connection;
    MainQueue& m_mainQueue;
    const Print m_print;
    std::string m_lastLine;  // printed once, not at every look
    bool m_wasObstructed = false;
    Lifetime m_lifetime;
};

class KeytapPasteKeystroke final : public PasteKeystroke {
  public:
    explicit KeytapPasteKeystroke(std::shared_ptr<KeytapConnection> connection)
        : m_connection(std::move(connection)) {}
    ~KeytapPasteKeystroke() override { m_connection->cancelPastes(); }

    void post(Report report) override { m_connection->paste(std::move(report)); }

  private:
    const std::shared_ptr<KeytapConnection> m_connection;
};

}  // namespace

std::unique_ptr<EventTapSource> makeKeytapEventTapSource(
    std::shared_ptr<KeytapConnection> connection, MainQueue& mainQueue, Print print) {
    return std::make_unique<KeytapEventTapSource>(std::move(connection), mainQueue,
                                                  std::move(print));
}

std::unique_ptr<PasteKeystroke> makeKeytapPasteKeystroke(
    std::shared_ptr<KeytapConnection> connection) {
    return std::make_unique<KeytapPasteKeystroke>(std::move(connection));
}

}  // namespace nulo
