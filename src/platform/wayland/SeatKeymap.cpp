#include "platform/wayland/SeatKeymap.h"

#include <sys/mman.h>
#include <unistd.h>
#include <xkbcommon/xkbcommon.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

#include "platform/WaylandBackends.h"
#include "platform/wayland/WaylandConnection.h"

namespace nulo {
namespace {

constexpr std::uint32_t largestKeymap = 4 << 20;
constexpr xkb_keycode_t xkbOffset = 8;  // of XKB's key codes from the kernel's

struct XkbFree {
    void operator()(xkb_context* context) const { xkb_context_unref(context); }
    void operator()(xkb_keymap* keymap) const { xkb_keymap_unref(keymap); }
    void operator()(char* text) const { std::free(text); }
};
template <typename T>
using Xkb = std::unique_ptr<T, XkbFree>;

std::string defaultKeymap() {
    const Xkb<xkb_context> context(xkb_context_new(XKB_CONTEXT_NO_FLAGS));
    if (!context)
        return {};
    const Xkb<xkb_keymap> keymap(
        xkb_keymap_new_from_names(context.get(), nullptr, XKB_KEYMAP_COMPILE_NO_FLAGS));
    const Xkb<char> text(keymap ? xkb_keymap_get_as_string(keymap.get(), XKB_KEYMAP_FORMAT_TEXT_V1)
                                : nullptr);
    return text ? text.get() : "";
}

}  // namespace

SeatKeymap::SeatKeymap(WaylandConnection& connection) : m_connection(connection) {}

void SeatKeymap::update() {
    if (!m_keyboard && m_connection.seatHas(WL_SEAT_CAPABILITY_KEYBOARD)) {
        m_keyboard.reset(wl_seat_get_keyboard(m_connection.seat()));
        static const wl_keyboard_listener listener{
            .keymap =
                [](void* data, wl_keyboard*, std::uint32_t format, int descriptor,
                   std::uint32_t size) {
                    if (format == WL_KEYBOARD_KEYMAP_FORMAT_XKB_V1)
                        static_cast<SeatKeymap*>(data)->take(descriptor, size);
                    close(descriptor);
                },
            .enter = ignored<void*, wl_keyboard*, std::uint32_t, wl_surface*, wl_array*>,
            .leave = ignored<void*, wl_keyboard*, std::uint32_t, wl_surface*>,
            .key = ignored<void*, wl_keyboard*, std::uint32_t, std::uint32_t, std::uint32_t,
                           std::uint32_t>,
            .modifiers = ignored<void*, wl_keyboard*, std::uint32_t, std::uint32_t, std::uint32_t,
                                 std::uint32_t, std::uint32_t>,
            .repeat_info = ignored<void*, wl_keyboard*, std::int32_t, std::int32_t>};
        wl_keyboard_add_listener(m_keyboard.get(), &listener, this);
        m_connection.finish();
    }
    if (m_text.empty())
        m_text = defaultKeymap();
}

void SeatKeymap::take(int descriptor, std::uint32_t size) {
    if (size == 0 || size > largestKeymap)
        return;
    void* const memory = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, descriptor, 0);
    if (memory == MAP_FAILED)
        return;
    const char* const start = static_cast<const char*>(memory);
    std::string text(start, strnlen(start, size));
    munmap(memory, size);
    // Programs that type bring keyboards whose keymaps have only what they type.
    if (pasteKeysOf(text))
        m_text = std::move(text);
}

std::optional<PasteKeys> pasteKeysOf(const std::string& text) {
    const Xkb<xkb_context> context(xkb_context_new(XKB_CONTEXT_NO_FLAGS));
    const Xkb<xkb_keymap> keymap(context ? xkb_keymap_new_from_string(context.get(), text.c_str(),
                                                                      XKB_KEYMAP_FORMAT_TEXT_V1,
                                                                      XKB_KEYMAP_COMPILE_NO_FLAGS)
                                         : nullptr);
    const auto shift =
        keymap ? xkb_keymap_mod_get_index(keymap.get(), XKB_MOD_NAME_SHIFT) : XKB_MOD_INVALID;
    if (shift >= 32)
        return std::nullopt;
    const auto isAt = [&](xkb_keycode_t key, xkb_keysym_t wanted) {
        const xkb_keysym_t* symbols = nullptr;
        return xkb_keymap_key_get_syms_by_level(keymap.get(), key, 0, 0, &symbols) == 1 &&
               symbols[0] == wanted;
    };
    PasteKeys keys{.shiftMask = 1u << shift};
    for (const auto& [wanted, key] :
         {std::pair{XKB_KEY_Shift_L, &keys.shift}, std::pair{XKB_KEY_Insert, &keys.insert}}) {
        const auto symbol = static_cast<xkb_keysym_t>(wanted);
        const xkb_keycode_t last = xkb_keymap_max_keycode(keymap.get());
        xkb_keycode_t code = *key + xkbOffset;  // where it usually is
        if (!isAt(code, symbol))
            for (code = std::max(xkb_keymap_min_keycode(keymap.get()), xkbOffset);
                 code <= last && !isAt(code, symbol); ++code) {
            }
        if (code > last)
            return std::nullopt;
        *key = code - xkbOffset;
    }
    return keys;
}

std::string keymapOf(const std::string& display) {
    const auto connection = WaylandConnection::open(display);
    if (!connection)
        return {};
    SeatKeymap keymap(*connection.value());
    keymap.update();
    return keymap.text();
}

}  // namespace nulo
