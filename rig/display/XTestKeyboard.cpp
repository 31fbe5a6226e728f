#include "rig/display/XTestKeyboard.h"

#define explicit explicit_  // a field's name in this C header
#include <xcb/xkb.h>
#undef explicit
#include <xcb/xtest.h>

#include <cstdlib>
#include <stdexcept>
#include <string_view>
#include <thread>

namespace nulo {

XTestKeyboard::XTestKeyboard() : m_connection(xcb_connect(nullptr, nullptr), xcb_disconnect) {
    if (xcb_connection_has_error(m_connection.get()))
        throw std::runtime_error("no X server for the keyboard");
    std::free(xcb_xkb_use_extension_reply(
        m_connection.get(), xcb_xkb_use_extension(m_connection.get(), 1, 0), nullptr));
    const std::string_view input = "XInputExtension";
    const std::unique_ptr<xcb_query_extension_reply_t, decltype(&std::free)> extension(
        xcb_query_extension_reply(
            m_connection.get(), xcb_query_extension(m_connection.get(), input.size(), input.data()),
            nullptr),
        std::free);
    m_firstInputEvent = extension ? extension->first_event : 0;
}

void XTestKeyboard::tap(Key key, Device device) {
    press(key, device);
    release(key, device);
}

void XTestKeyboard::button(bool down) {
    inject(down ? XCB_BUTTON_PRESS : XCB_BUTTON_RELEASE, 1);
}

void XTestKeyboard::movePointer(int x, int y) {
    xcb_test_fake_input(m_connection.get(), XCB_MOTION_NOTIFY, 0, XCB_CURRENT_TIME, XCB_NONE,
                        static_cast<std::int16_t>(x), static_cast<std::int16_t>(y), 0);
    keysDown();
    std::this_thread::sleep_for(pace);
}

void XTestKeyboard::send(Key key, bool down, Device device) {
    std::uint8_t type = down ? XCB_KEY_PRESS : XCB_KEY_RELEASE;
    if (device == Device::own)  // the input extension's own events, whose first two are of keys
        type = static_cast<std::uint8_t>(m_firstInputEvent + (down ? 1 : 2));
    inject(type, key, device);
}

void XTestKeyboard::inject(std::uint8_t type, std::uint8_t detail, Device device) {
    xcb_test_fake_input(m_connection.get(), type, detail, XCB_CURRENT_TIME, XCB_NONE, 0, 0,
                        static_cast<std::uint8_t>(device));
    keysDown();
    std::this_thread::sleep_for(pace);
}

void XTestKeyboard::lockGroup(int group) {
    xcb_xkb_latch_lock_state(m_connection.get(), XCB_XKB_ID_USE_CORE_KBD, 0, 0, 1,
                             static_cast<std::uint8_t>(group), 0, 0, 0);
    keysDown();
}

std::set<int> XTestKeyboard::keysDown() {
    const std::unique_ptr<xcb_query_keymap_reply_t, decltype(&std::free)> reply(
        xcb_query_keymap_reply(m_connection.get(), xcb_query_keymap(m_connection.get()), nullptr),
        std::free);
    std::set<int> keys;
    for (int key = 0; reply && key < 256; ++key)
        if (reply->keys[key / 8] >> (key % 8) & 1)
            keys.insert(key);
    return keys;
}

}  // namespace nulo
