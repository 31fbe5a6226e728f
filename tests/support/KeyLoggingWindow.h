#pragma once

#include <xcb/xinput.h>

#include "rig/display/KeyWindow.h"
#include "rig/process/WaitUntil.h"

namespace nulo {

/// An ordinary program's window on a connection of its own, which notes the keys it gets. Without a
/// thread: it reads what has arrived when it is asked.
class KeyLoggingWindow : public KeyWindow {
  public:
    enum class Input { core, xi2 };  // what it asks the server for; GTK 3 and later want XI2

    /// Returns when the window has the focus.
    explicit KeyLoggingWindow(Input input = Input::core)
        : KeyWindow(input == Input::core ? XCB_EVENT_MASK_KEY_PRESS | XCB_EVENT_MASK_KEY_RELEASE
                                         : 0) {
        NULO_XCB(xcb_xkb_use_extension, server, 1, 0);
        xcb_xkb_per_client_flags(server, XCB_XKB_ID_USE_CORE_KBD,
                                 XCB_XKB_PER_CLIENT_FLAG_DETECTABLE_AUTO_REPEAT,
                                 XCB_XKB_PER_CLIENT_FLAG_DETECTABLE_AUTO_REPEAT, 0, 0, 0);
        if (input == Input::xi2) {
            const struct {
                xcb_input_event_mask_t header{XCB_INPUT_DEVICE_ALL_MASTER, 1};
                std::uint32_t bits =
                    XCB_INPUT_XI_EVENT_MASK_KEY_PRESS | XCB_INPUT_XI_EVENT_MASK_KEY_RELEASE;
            } mask;
            NULO_XCB(xcb_input_xi_query_version, server, 2, 2);
            xcb_input_xi_select_events(server, window, 1, &mask.header);
        }
        hasFocus();
    }

    /// Everything so far: "+64" for a press, "-64" for a release, by keycode and separated by
    /// spaces; "=64" is an auto-repeat.
    std::string keys() {
        hasFocus();  // a round trip brings all that is on its way
        while (const XcbEvent event{xcb_poll_for_event(server)}) {
            const auto& extended = reinterpret_cast<const xcb_input_key_press_event_t&>(*event);
            const int type = typeOf(*event);
            if (type == XCB_KEY_PRESS || type == XCB_KEY_RELEASE)
                note(asKey(*event).detail, type == XCB_KEY_PRESS);
            if (type == XCB_GE_GENERIC)
                note(extended.detail & 0xFF, extended.event_type == XCB_INPUT_KEY_PRESS);
            m_askedToClose |= type == XCB_CLIENT_MESSAGE;
        }
        return m_keys;
    }
    /// What came since the last call, up to a press and release of `fence`, which it waits for.
    std::string keysUntil(int fence) {
        const std::string press = "+" + std::to_string(fence) + " ";
        const std::string release = "-" + std::to_string(fence) + " ";
        if (!waitUntil([&] { return keys().find(release) != std::string::npos; }))
            return std::exchange(m_keys, "") + "(no fence)";
        const std::string keys = m_keys.substr(0, m_keys.find(press));
        m_keys.erase(0, m_keys.find(release) + release.size());
        return keys.substr(0, keys.find_last_not_of(' ') + 1);
    }
    /// Whether a window manager asked it to close.
    bool wasAskedToClose() {
        keys();
        return m_askedToClose;
    }
    /// Whether the window manager takes it for the one in use.
    bool isActive() {
        const auto reply = NULO_XCB(xcb_get_property, server, 0, root,
                                    atomOf(server, "_NET_ACTIVE_WINDOW"), XCB_ATOM_WINDOW, 0, 1);
        return reply && xcb_get_property_value_length(reply.get()) == 4 &&
               *static_cast<xcb_window_t*>(xcb_get_property_value(reply.get())) == window;
    }
    /// Takes the key of `place`: its own window, as its program does, or the root, as a hot-key
    /// tool does; or gives it back.
    void grabKey(xcb_keycode_t key, xcb_window_t place, bool grab = true) {
        if (grab)
            xcb_grab_key(server, 0, place, 0, key, XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC);
        else
            xcb_ungrab_key(server, key, place, 0);
        hasFocus();
    }
    /// Takes the whole keyboard, as a screen lock does, or gives it back; false when it cannot.
    bool grabKeyboard(bool grab) {
        xcb_ungrab_keyboard(server, XCB_CURRENT_TIME);
        return grab ? answerToGrab(window) == XCB_GRAB_STATUS_SUCCESS : hasFocus();
    }
    /// Whether another program has taken the whole keyboard; takes nothing.
    bool isKeyboardTaken() {
        // The server grants no grab on a window that is not on the screen, and looks for others
        // first.
        const xcb_window_t hidden = xcb_generate_id(server);
        xcb_create_window(server, 0, hidden, root, 0, 0, 1, 1, 0, XCB_WINDOW_CLASS_INPUT_ONLY,
                          XCB_COPY_FROM_PARENT, 0, nullptr);
        const int answer = answerToGrab(hidden);
        xcb_destroy_window(server, hidden);
        return answer == XCB_GRAB_STATUS_ALREADY_GRABBED;
    }
    /// Has the server refuse keys that are not held for so long; 0 ends that.
    void slowKeys(std::chrono::milliseconds delay) {
        const std::uint32_t on = delay.count() > 0 ? XCB_XKB_BOOL_CTRL_SLOW_KEYS : 0;
        const std::uint8_t repeat[32] = {};
        xcb_xkb_set_controls(server, XCB_XKB_ID_USE_CORE_KBD, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                             XCB_XKB_BOOL_CTRL_SLOW_KEYS, on, XCB_XKB_CONTROL_CONTROLS_ENABLED | on,
                             0, 0, static_cast<std::uint16_t>(delay.count()), 0, 0, 0, 0, 0, 0, 0,
                             0, 0, 0, 0, repeat);
        hasFocus();
    }

  private:
    void note(unsigned key, bool press) {
        const bool repeats = std::exchange(m_down[key], press) && press;
        m_keys += (repeats ? "=" : press ? "+" : "-") + std::to_string(key) + " ";
    }
    int answerToGrab(xcb_window_t place) {
        const auto reply = NULO_XCB(xcb_grab_keyboard, server, 0, place, XCB_CURRENT_TIME,
                                    XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC);
        return reply ? reply->status : -1;
    }

    std::string m_keys;
    bool m_down[256] = {};
    bool m_askedToClose = false;
};

}  // namespace nulo
