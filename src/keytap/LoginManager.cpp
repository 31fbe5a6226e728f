#include "keytap/LoginManager.h"

#include <cstdlib>
#include <utility>

namespace nulo::keytap {
namespace {

constexpr const char* seat = "seat0";
constexpr const char* service = "org.freedesktop.login1";
constexpr const char* sessionFolder = "/org/freedesktop/login1/session";
constexpr const char* sessionInterface = "org.freedesktop.login1.Session";

struct Free {
    void operator()(void* memory) const { std::free(memory); }
};

}  // namespace

LoginManager::LoginManager(EventLoop& loop, EventLoop::Callback onChange,
                           EventLoop::Callback onLost)
    : m_onChange(std::move(onChange)), m_onLost(std::move(onLost)) {
    sd_login_monitor* monitor = nullptr;
    checked(sd_login_monitor_new("seat", &monitor), "logind");
    m_monitor.reset(monitor);
    m_seatChanged = loop.watch(sd_login_monitor_get_fd(monitor), [this] {
        refresh();
        m_onChange();
    });
    sd_bus* bus = nullptr;
    checked(sd_bus_open_system(&bus), "the system bus");
    m_bus.reset(bus);
    checked(sd_bus_attach_event(bus, loop.get(), SD_EVENT_PRIORITY_NORMAL), "the system bus");
    const auto listen = [&](const char* path, const char* interface, const char* member,
                            sd_bus_message_handler_t handler) {
        checked(sd_bus_match_signal_async(bus, nullptr, service, path, interface, member, handler,
                                          nullptr, this),
                member);
    };
    listen(nullptr, "org.freedesktop.DBus.Properties", "PropertiesChanged", propertiesChanged);
    listen("/org/freedesktop/login1", "org.freedesktop.login1.Manager", "PrepareForSleep",
           prepareForSleep);
    checked(sd_bus_match_signal_async(bus, nullptr, "org.freedesktop.DBus.Local", nullptr,
                                      "org.freedesktop.DBus.Local", "Disconnected", disconnected,
                                      nullptr, this),
            "the system bus");
    refresh();
}

void LoginManager::refresh() {
    sd_login_monitor_flush(m_monitor.get());
    SeatUsers users;
    char* found = nullptr;
    uid_t active = 0;
    std::string path;
    if (sd_seat_get_active(seat, &found, &active) >= 0) {
        const std::unique_ptr<char, Free> session(found);
        users.active = active;
        char* encoded = nullptr;
        checked(sd_bus_path_encode(sessionFolder, session.get(), &encoded), "sd_bus_path_encode");
        path = std::unique_ptr<char, Free>(encoded).get();
    }
    char** sessions = nullptr;
    if (sd_seat_get_sessions(seat, &sessions, nullptr, nullptr) >= 0 && sessions) {
        for (char** session = sessions; *session; ++session) {
            uid_t user = 0;
            if (sd_session_get_uid(*session, &user) >= 0)
                users.all.insert(user);
            std::free(*session);
        }
        std::free(sessions);
    }
    m_users = std::move(users);
    if (m_session == path)
        return;
    m_session = std::move(path);
    m_isLocked = false;
    askWhetherLocked();
}

void LoginManager::askWhetherLocked() {
    m_lockQuestion.reset();
    if (m_session.empty())
        return;
    sd_bus_slot* slot = nullptr;
    if (sd_bus_call_method_async(m_bus.get(), &slot, service, m_session.c_str(),
                                 "org.freedesktop.DBus.Properties", "Get", lockAnswered, this, "ss",
                                 sessionInterface, "LockedHint") < 0)
        m_onLost();
    m_lockQuestion.reset(slot);
}

int LoginManager::lockAnswered(sd_bus_message* answer, void* data, sd_bus_error*) {
    auto& self = *static_cast<LoginManager*>(data);
    int locked = 0;
    if (sd_bus_message_read(answer, "v", "b", &locked) >= 0)
        self.m_isLocked = locked != 0;
    self.m_onChange();
    return 0;
}

int LoginManager::propertiesChanged(sd_bus_message* signal, void* data, sd_bus_error*) {
    auto& self = *static_cast<LoginManager*>(data);
    const char* path = sd_bus_message_get_path(signal);
    if (path && path == self.m_session)
        self.askWhetherLocked();
    return 0;
}

int LoginManager::prepareForSleep(sd_bus_message* signal, void* data, sd_bus_error*) {
    auto& self = *static_cast<LoginManager*>(data);
    int begins = 0;
    if (sd_bus_message_read(signal, "b", &begins) >= 0)
        self.m_isGoingToSleep = begins != 0;
    self.m_onChange();
    return 0;
}

int LoginManager::disconnected(sd_bus_message*, void* data, sd_bus_error*) {
    static_cast<LoginManager*>(data)->m_onLost();
    return 0;
}

}  // namespace nulo::keytap
