#include "platform/keytap/SessionKeymap.h"

#include <poll.h>
#include <sys/mman.h>
#include <unistd.h>
#include <wayland-client.h>
#include <xkbcommon/xkbcommon.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <memory>

#include "keytap/Protocol.h"

namespace nulo {
namespace {

using SteadyClock = std::chrono::steady_clock;

constexpr xkb_keycode_t xkbOffset = 8;  // of X11's key codes
constexpr auto longestAnswer = std::chrono::seconds(1);
constexpr std::uint32_t largestKeymap = 4 << 20;

struct Free {
    void operator()(xkb_context* context) const { xkb_context_unref(context); }
    void operator()(xkb_keymap* keymap) const { xkb_keymap_unref(keymap); }
    void operator()(wl_display* display) const { wl_display_disconnect(display); }
};

struct Answers {
    wl_seat* seat = nullptr;
    wl_keyboard* keyboard = nullptr;
    std::string keymap;
};

void keymapCame(void* data, wl_keyboard*, std::uint32_t format, std::int32_t descriptor,
                std::uint32_t size) {
    if (format == WL_KEYBOARD_KEYMAP_FORMAT_XKB_V1 && size > 0 && size <= largestKeymap) {
        void* const bytes = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, descriptor, 0);
        if (bytes != MAP_FAILED) {
            const char* const text = static_cast<const char*>(bytes);
            static_cast<Answers*>(data)->keymap.assign(text, strnlen(text, size));
            munmap(bytes, size);
        }
    }
    close(descriptor);
}

const wl_keyboard_listener keyboardListener{
    .keymap = keymapCame,
    .enter = [](auto...) {},
    .leave = [](auto...) {},
    .key = [](auto...) {},
    .modifiers = [](auto...) {},
    .repeat_info = [](auto...) {},
};

const wl_seat_listener seatListener{
    .capabilities =
        [](void* data, wl_seat* seat, std::uint32_t capabilities) {
            auto& answers = *static_cast<Answers*>(data);
            if (!(capabilities & WL_SEAT_CAPABILITY_KEYBOARD) || answers.keyboard)
                return;
            answers.keyboard = wl_seat_get_keyboard(seat);
            wl_keyboard_add_listener(answers.keyboard, &keyboardListener, data);
        },
    .name = [](auto...) {},
};

const wl_registry_listener registryListener{
    .global =
        [](void* data, wl_registry* registry, std::uint32_t name, const char* interface,
           std::uint32_t) {
            auto& answers = *static_cast<Answers*>(data);
            if (answers.seat || std::strcmp(interface, wl_seat_interface.name) != 0)
                return;
            answers.seat =
                static_cast<wl_seat*>(wl_registry_bind(registry, name, &wl_seat_interface, 1));
            wl_seat_add_listener(answers.seat, &seatListener, data);
        },
    .global_remove = [](auto...) {},
};

/// One more round of answers; false when there will be none in time.
bool dispatch(wl_display* display, SteadyClock::time_point end) {
    while (wl_display_prepare_read(display) != 0)
        if (wl_display_dispatch_pending(display) < 0)
            return false;
    wl_display_flush(display);
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - SteadyClock::now());
    pollfd source{wl_display_get_fd(display), POLLIN, 0};
    if (left.count() <= 0 || poll(&source, 1, static_cast<int>(left.count())) <= 0) {
        wl_display_cancel_read(display);
        return false;
    }
    return wl_display_read_events(display) == 0 && wl_display_dispatch_pending(display) >= 0;
}

}  // namespace

std::vector<std::uint8_t> optionKeysOf(const std::string& text) {
    const std::unique_ptr<xkb_context, Free> context(xkb_context_new(static_cast<xkb_context_flags>(
        XKB_CONTEXT_NO_DEFAULT_INCLUDES | XKB_CONTEXT_NO_ENVIRONMENT_NAMES)));
    if (!context)
        return {};
    xkb_context_set_log_level(context.get(), XKB_LOG_LEVEL_CRITICAL);
    const std::unique_ptr<xkb_keymap, Free> keymap(xkb_keymap_new_from_string(
        context.get(), text.c_str(), XKB_KEYMAP_FORMAT_TEXT_V1, XKB_KEYMAP_COMPILE_NO_FLAGS));
    if (!keymap)
        return {};
    std::vector<std::uint8_t> keys;
    for (const std::uint8_t key : keytap::possibleOptionCodes) {
        bool isOption = false;
        const auto layouts = xkb_keymap_num_layouts_for_key(keymap.get(), key + xkbOffset);
        for (xkb_layout_index_t layout = 0; layout < layouts; ++layout) {
            const xkb_keysym_t* symbols = nullptr;
            const int count = xkb_keymap_key_get_syms_by_level(keymap.get(), key + xkbOffset,
                                                               layout, 0, &symbols);
            isOption = isOption ||
                       (count == 1 && (symbols[0] == XKB_KEY_Alt_L || symbols[0] == XKB_KEY_Alt_R));
        }
        if (isOption)
            keys.push_back(key);
    }
    return keys;
}

std::string sessionKeymap() {
    const std::unique_ptr<wl_display, Free> display(wl_display_connect(nullptr));
    if (!display)
        return {};
    Answers answers;
    wl_registry* const registry = wl_display_get_registry(display.get());
    wl_registry_add_listener(registry, &registryListener, &answers);
    const auto end = SteadyClock::now() + longestAnswer;
    while (answers.keymap.empty() && dispatch(display.get(), end)) {
    }
    if (answers.keyboard)
        wl_keyboard_destroy(answers.keyboard);
    if (answers.seat)
        wl_seat_destroy(answers.seat);
    wl_registry_destroy(registry);
    return answers.keymap;
}

}  // namespace nulo
