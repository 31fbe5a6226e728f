#include "platform/wayland/PasteKeyboards.h"

#include <sys/mman.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>

#include "platform/wayland/WaylandConnection.h"

namespace nulo {
namespace {

constexpr std::uint32_t lowestFakeInput = 4;  // whose keys came last

std::uint32_t milliseconds() {
    return static_cast<std::uint32_t>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                          std::chrono::steady_clock::now().time_since_epoch())
                                          .count());
}

/// A file in memory with the text and the zero at its end; below zero when there is none.
int memoryFile(const std::string& text) {
    const int descriptor = memfd_create("nulo-keymap", MFD_CLOEXEC);
    if (descriptor < 0)
        return -1;
    const auto size = static_cast<ssize_t>(text.size() + 1);
    if (write(descriptor, text.c_str(), text.size() + 1) == size)
        return descriptor;
    close(descriptor);
    return -1;
}

}  // namespace

VirtualKeyboard::VirtualKeyboard(WaylandConnection& connection)
    : m_connection(connection),
      m_keymap(connection),
      m_manager(connection.bind<zwp_virtual_keyboard_manager_v1>(
          zwp_virtual_keyboard_manager_v1_interface, 1, 1)) {}

Outcome VirtualKeyboard::prepare() {
    if (!m_manager || !m_connection.seat())
        return Error{"the compositor offers no virtual keyboard"};
    m_keymap.update();
    if (m_keyboard && m_keymap.text() == m_uploaded)
        return Success{};
    const int keymap = memoryFile(m_keymap.text());
    if (keymap < 0)
        return Error{"there is no memory for the keymap"};
    if (!m_keyboard)
        m_keyboard.reset(zwp_virtual_keyboard_manager_v1_create_virtual_keyboard(
            m_manager.get(), m_connection.seat()));
    m_uploaded = m_keymap.text();
    m_keys = pasteKeysOf(m_uploaded).value_or(PasteKeys{});
    zwp_virtual_keyboard_v1_keymap(m_keyboard.get(), WL_KEYBOARD_KEYMAP_FORMAT_XKB_V1, keymap,
                                   static_cast<std::uint32_t>(m_uploaded.size() + 1));
    const bool isDone = m_connection.finish();
    close(keymap);
    if (!isDone)
        return Error{m_connection.failure()};
    return Success{};
}

void VirtualKeyboard::pressPasteChord() {
    const auto key = [this](std::uint32_t code, wl_keyboard_key_state state) {
        zwp_virtual_keyboard_v1_key(m_keyboard.get(), milliseconds(), code, state);
    };
    // Compositors do not work modifiers out of this keyboard's keys.
    const auto modifiers = [this](std::uint32_t held) {
        zwp_virtual_keyboard_v1_modifiers(m_keyboard.get(), held, 0, 0, 0);
    };
    key(m_keys.shift, WL_KEYBOARD_KEY_STATE_PRESSED);
    modifiers(m_keys.shiftMask);
    key(m_keys.insert, WL_KEYBOARD_KEY_STATE_PRESSED);
    key(m_keys.insert, WL_KEYBOARD_KEY_STATE_RELEASED);
    key(m_keys.shift, WL_KEYBOARD_KEY_STATE_RELEASED);
    modifiers(0);
}

FakeInput::FakeInput(WaylandConnection& connection)
    : m_keymap(connection),
      m_input(connection.bind<org_kde_kwin_fake_input>(org_kde_kwin_fake_input_interface,
                                                       lowestFakeInput, lowestFakeInput)) {
    if (m_input)
        org_kde_kwin_fake_input_authenticate(m_input.get(), "Nulo", "to paste what was dictated");
}

Outcome FakeInput::prepare() {
    if (!m_input)
        return Error{"KWin does not let this program send keys"};
    m_keymap.update();
    return Success{};
}

void FakeInput::pressPasteChord() {
    const PasteKeys keys = pasteKeysOf(m_keymap.text()).value_or(PasteKeys{});
    const auto key = [this](std::uint32_t code, wl_keyboard_key_state state) {
        org_kde_kwin_fake_input_keyboard_key(m_input.get(), code, state);
    };
    key(keys.shift, WL_KEYBOARD_KEY_STATE_PRESSED);
    key(keys.insert, WL_KEYBOARD_KEY_STATE_PRESSED);
    key(keys.insert, WL_KEYBOARD_KEY_STATE_RELEASED);
    key(keys.shift, WL_KEYBOARD_KEY_STATE_RELEASED);
}

}  // namespace nulo
