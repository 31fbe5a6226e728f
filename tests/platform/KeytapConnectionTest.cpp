#include "platform/keytap/KeytapConnection.h"
#include "rig/process/WaitUntil.h"

#include <gtest/gtest.h>
#include <linux/input-event-codes.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <xkbcommon/xkbcommon.h>

#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <mutex>
#include <thread>
#include <utility>

#include "fakes/FakeMainQueue.h"
#include "fakes/PrintedLines.h"
#include "hotkey/GlobalKeyMonitor.h"
#include "platform/WaylandBackends.h"
#include "platform/keytap/ChordRequest.h"

namespace nulo {
namespace {

using keytap::Notice;
using keytap::Reason;
using keytap::Request;
using Kind = Notice::Kind;

/// What arrives on another thread, in order.
class Arrivals {
  public:
    void add(const std::string& what) {
        const std::lock_guard lock(m_mutex);
        m_text += what;
        m_changed.notify_all();
    }
    /// All of it, once it ends with `last`.
    std::string upTo(const std::string& last) {
        std::unique_lock lock(m_mutex);
        m_changed.wait_for(lock, std::chrono::seconds(60), [&] { return m_text.ends_with(last); });
        return m_text;
    }

  private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::string m_text;
};

/// Stands where the service listens, and says what the test has it say.
class KeytapConnectionTest : public testing::Test {
  protected:
    KeytapConnectionTest() {
        m_listener = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
        sockaddr_un address{.sun_family = AF_UNIX};
        path().copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(bind(m_listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        EXPECT_EQ(listen(m_listener, 1), 0);
    }
    ~KeytapConnectionTest() override {
        hangUp();
        switchOff();
        std::filesystem::remove_all(m_folder);
    }

    std::string path() const { return m_folder / "sock"; }
    void takeClient() { m_client = accept(m_listener, nullptr, nullptr); }
    void hangUp() { close(std::exchange(m_client, -1)); }
    void switchOff() { close(std::exchange(m_listener, -1)); }
    void say(Kind kind, Reason reason = Reason::none) {
        const Notice notice{kind, reason};
        EXPECT_EQ(send(m_client, &notice, sizeof notice, MSG_NOSIGNAL), ssize_t(sizeof notice));
    }
    Request heard() {
        Request request{.key = 255};
        EXPECT_EQ(recv(m_client, &request, sizeof request, 0), ssize_t(sizeof request));
        return request;
    }
    std::unique_ptr<EventTap> tap() {
        return source->createTap([this](const KeyEvent& event) {
            switch (event.type) {
                case KeyEvent::Type::flagsChanged:
                    arrived.add(event.optionSet ? "O" : "o");
                    break;
                case KeyEvent::Type::keyDown:
                    arrived.add(event.isSpace ? "S" : "?");
                    break;
                default:
                    arrived.add("!");
            }
            return EventFate::pass;
        });
    }
    PasteKeystroke::Report report() {
        return {.onSending = [this] { arrived.add("sending "); },
                .onEnd =
                    [this](const Outcome& outcome) {
                        arrived.add(outcome ? "pasted;" : outcome.error().description + ";");
                    }};
    }

    static std::string newFolder() {
        char folder[] = "/tmp/nulo-keytap-XXXXXX";
        return mkdtemp(folder);
    }
    const std::filesystem::path m_folder = newFolder();
    int m_listener = -1;
    int m_client = -1;
    FakeMainQueue queue;
    PrintedLines printed;
    Arrivals arrived;
    Result<Request> chord = Request{.key = 57, .modifiers{0, 1}};
    std::shared_ptr<KeytapConnection> connection =
        std::make_shared<KeytapConnection>(path(), [this] { return chord; });
    std::unique_ptr<EventTapSource> source =
        makeKeytapEventTapSource(connection, queue, printed.print());
};

// A chord that goes on when the service is gone, or on a lock screen; a connection that is not made
// again; keys of the layout that are not told.
TEST_F(KeytapConnectionTest, makesKeyEventsOfTheChord) {
    EXPECT_TRUE(source->isTrusted());
    takeClient();
    const Request asked = heard();
    EXPECT_EQ(asked.kind, Request::Kind::chord);
    EXPECT_EQ(asked.key, 57);
    EXPECT_EQ(asked.modifiers, chord.value().modifiers);
    const auto made = tap();
    EXPECT_EQ(arrived.upTo("o"), "o");
    say(Kind::serving);
    say(Kind::chordDown);
    EXPECT_EQ(arrived.upTo("S"), "oOS");
    say(Kind::chordUp);
    EXPECT_EQ(arrived.upTo("So"), "oOSo");
    say(Kind::chordDown);
    arrived.upTo("OS");
    source->letGo();
    EXPECT_EQ(arrived.upTo("OSo"), "oOSoOSo");
    hangUp();
    EXPECT_EQ(arrived.upTo("!"), "oOSoOSoo!");
    EXPECT_FALSE(made->isEnabled());
    made->enable();
    EXPECT_TRUE(made->isEnabled());
    takeClient();
    heard();
    EXPECT_TRUE(source->isTrusted());
}

// A recording that nobody can end, since the service ended first; a chord that is dead from then
// on, although the service was started again.
TEST_F(KeytapConnectionTest, aServiceThatEndsEndsTheRecordingAndComesBack) {
    GlobalKeyMonitor monitor(*source, queue, printed.print(), {}, "Option+Space");
    std::string recorded;
    monitor.onRecordStart = [&] { recorded += "start "; };
    monitor.onRecordStop = [&] { recorded += "stop "; };
    const auto records = [&](const std::string& all) {
        EXPECT_TRUE(waitUntil([&] {
            queue.runPending();
            return recorded == all;
        })) << recorded;
    };
    monitor.start();
    std::string all;
    for (int i = 0; i < 3; ++i) {
        takeClient();
        heard();
        say(Kind::serving);
        say(Kind::chordDown);
        records(all += "start ");
        hangUp();
        records(all += "stop ");
    }
    EXPECT_TRUE(monitor.isEventTapAlive());
}

// A start that does not wait for the answer, or waits for ever.
TEST_F(KeytapConnectionTest, waitsForTheAnswer) {
    const auto status = [&](std::chrono::milliseconds atMost) {
        return connection->awaitStatus(
            [](const auto& now) { return now.state != KeytapConnection::State::asked; }, atMost);
    };
    EXPECT_EQ(status(std::chrono::milliseconds(1)).state, KeytapConnection::State::asked);
    takeClient();
    say(Kind::refused, Reason::otherSession);
    EXPECT_EQ(status(std::chrono::minutes(1)).reason, Reason::otherSession);
    hangUp();
    switchOff();
    EXPECT_EQ(KeytapConnection(path(), [] { return Result<Request>(Request()); })
                  .awaitStatus([](const auto&) { return true; }, {})
                  .state,
              KeytapConnection::State::off);
}

// A refusal that is taken for trust at the next look, before its answer; a reason said again and
// again, or not at all.
TEST_F(KeytapConnectionTest, saysWhyThereIsNoChord) {
    std::string obstructions;
    source->onObstructed = [&](bool is) { obstructions += is ? "obstructed " : "free "; };
    chord = Error{"no such key"};
    EXPECT_TRUE(source->isTrusted());
    const auto made = tap();
    takeClient();
    EXPECT_EQ(heard().key, 0);
    say(Kind::serving);
    const auto look = [&](std::size_t lines, const std::string& said) {
        EXPECT_TRUE(waitUntil([&] {
            queue.runPending();
            return printed.lines().size() == lines && obstructions == said;
        })) << said;
    };
    look(1, "obstructed ");
    chord = Request{.key = 57, .modifiers{0, 1}};
    hangUp();
    look(1, "obstructed free ");
    made->enable();
    takeClient();
    say(Kind::waiting, Reason::keyboardTaken);
    look(2, "obstructed free obstructed ");
    say(Kind::serving);
    look(3, "obstructed free obstructed free ");
    say(Kind::serving, Reason::keyboardTaken);
    look(4, "obstructed free obstructed free ");
    say(Kind::refused, Reason::secondClient);
    hangUp();
    look(5, "obstructed free obstructed free ");
    for (int i = 0; i < 2; ++i)
        EXPECT_FALSE(source->isTrusted());
    takeClient();
    hangUp();
    look(6, "obstructed free obstructed free ");
    switchOff();
    std::filesystem::remove(path());
    for (int i = 0; i < 2; ++i)
        EXPECT_FALSE(source->isTrusted());
    EXPECT_EQ(printed.lines(),
              (std::vector<std::string>{
                  "No global shortcut: no such key",
                  "No global shortcut: another program has taken a keyboard for itself",
                  "[nulo] nulo-keytap has taken the keyboards over",
                  "A keyboard without the global shortcut: another program has taken a keyboard "
                  "for itself",
                  "No global shortcut: another program of yours is connected to the key service",
                  "No global shortcut: the key service does not answer",
                  "No global shortcut: nulo-keytap is not switched on"}));
}

// A paste that nobody hears the end of, which would hold up every later one; two under way at once,
// which the service refuses.
TEST_F(KeytapConnectionTest, pastesOneAfterTheOther) {
    const auto keystroke = makeKeytapPasteKeystroke(connection);
    keystroke->post(report());
    EXPECT_EQ(arrived.upTo(";"), "pasted;");  // by the user: the service is off
    source->isTrusted();
    takeClient();
    heard();
    say(Kind::serving);
    while (!connection->status().isServing)
        std::this_thread::yield();
    keystroke->post(report());
    keystroke->post(report());
    EXPECT_EQ(heard().kind, Request::Kind::paste);
    Request early;
    EXPECT_LT(recv(m_client, &early, sizeof early, MSG_DONTWAIT), 0);
    say(Kind::pasted);
    EXPECT_EQ(heard().kind, Request::Kind::paste);
    say(Kind::notPasted, Reason::modifierHeld);
    EXPECT_EQ(arrived.upTo("down;"), "pasted;sending pasted;sending a modifier key was held down;");
    keystroke->post(report());
    heard();
    hangUp();
    EXPECT_TRUE(arrived.upTo("keys;").ends_with("before it pressed the paste keys;"));
}

// AltGr taken for Alt, keys that an option of the layout or another layout has moved, a chord that
// the service refuses where it could have had another.
TEST(ChordRequest, knowsTheKeysOfAChord) {
    const struct {
        const char *chord, *layout, *options;
        int key;  // zero where there is none
        std::array<keytap::ModifierKeys, 4> modifiers;
    } rows[] = {
        {"Alt+Space", "us", "", KEY_SPACE, {0, 0b11}},
        {"Alt+Space", "de", "", KEY_SPACE, {0, 0b01}},
        {"Alt+Space", "us,de", "", KEY_SPACE, {0, 0b11}},
        {"Alt+Space", "us", "altwin:swap_lalt_lwin", KEY_SPACE, {0, 0b110}},
        {"Super+Space", "us", "", KEY_SPACE, {0, 0, 0, 0b1100}},
        {"Ctrl+Alt+D", "us", "ctrl:nocaps", KEY_D, {0b1110000, 0b01}},
        {"Alt+D", "us", "", KEY_D, {0, 0b01}},
        {"Ctrl+Shift+Q", "fr", "", KEY_A, {0b110000, 0, 0b110000000}},
        {"Super+7", "fr", "", KEY_7, {0, 0, 0, 0b1100}},
        {"Ctrl+D", "ru,us", "", KEY_D, {0b110000}},
        {"Ctrl+D", "ru", "", 0, {}},
        {"Super+Pause", "us", "", KEY_PAUSE, {0, 0, 0, 0b1100}},
        {"Super+Menu", "us", "", KEY_COMPOSE, {0, 0, 0, 0b1100}},
        {"Super+Home", "us", "altwin:alt_win", 0, {}},
        {"Shift+F9", "us", "", 0, {}},
    };
    xkb_context* const context = xkb_context_new(XKB_CONTEXT_NO_FLAGS);
    for (const auto& row : rows) {
        const xkb_rule_names names{
            .rules = "evdev", .model = "pc105", .layout = row.layout, .options = row.options};
        xkb_keymap* const keymap =
            xkb_keymap_new_from_names(context, &names, XKB_KEYMAP_COMPILE_NO_FLAGS);
        char* const text = xkb_keymap_get_as_string(keymap, XKB_KEYMAP_FORMAT_TEXT_V1);
        const auto request = chordRequest(text, parsedChord(row.chord).value());
        EXPECT_EQ(request ? request.value().key : 0, row.key) << row.chord << " " << row.layout;
        EXPECT_EQ(request ? request.value().modifiers : Request().modifiers, row.modifiers)
            << row.chord << " " << row.layout;
        free(text);
        xkb_keymap_unref(keymap);
    }
    xkb_context_unref(context);
    for (const char* text : {"xkb_keymap { nonsense", ""}) {
        EXPECT_EQ(chordRequest(text, {}).value().modifiers[1], 0b01);
        EXPECT_FALSE(chordRequest(text, parsedChord("Super+Space").value()));
    }
}

}  // namespace
}  // namespace nulo
