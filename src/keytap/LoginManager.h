#pragma once

#include <systemd/sd-bus.h>
#include <systemd/sd-login.h>

#include <memory>
#include <string>

#include "keytap/Admission.h"
#include "keytap/EventLoop.h"

namespace nulo::keytap {

/// What logind knows of the first seat. Who uses it is read from logind's files, so that no answer
/// has to be waited for; locks and sleep are announced on the system bus.
class LoginManager {
  public:
    /// `onChange` follows every change; `onLost` when the bus is gone. Throws std::system_error
    /// when there is no logind, or no bus.
    LoginManager(EventLoop& loop, EventLoop::Callback onChange, EventLoop::Callback onLost);

    /// Looks anew, should logind's announcement not have been read yet.
    void refresh();
    const SeatUsers& users() const { return m_users; }
    /// Nobody is to speak: the active session is locked, or the machine about to sleep.
    bool isLocked() const { return m_isLocked || m_isGoingToSleep; }

  private:
    void askWhetherLocked();
    static int lockAnswered(sd_bus_message*, void*, sd_bus_error*);
    static int propertiesChanged(sd_bus_message*, void*, sd_bus_error*);
    static int prepareForSleep(sd_bus_message*, void*, sd_bus_error*);
    static int disconnected(sd_bus_message*, void*, sd_bus_error*);

    struct Unref {
        void operator()(sd_login_monitor* monitor) const { sd_login_monitor_unref(monitor); }
        void operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }
        void operator()(sd_bus_slot* slot) const { sd_bus_slot_unref(slot); }
    };

    const EventLoop::Callback m_onChange, m_onLost;
    SeatUsers m_users;
    std::string m_session;  // the active one's path on the bus
    bool m_isLocked = false;
    bool m_isGoingToSleep = false;
    std::unique_ptr<sd_login_monitor, Unref> m_monitor;
    std::unique_ptr<sd_bus, Unref> m_bus;
    std::unique_ptr<sd_bus_slot, Unref> m_lockQuestion;
    EventLoop::Source m_seatChanged;
};

}  // namespace nulo::keytap
