#pragma once

#include <xcb/xcb.h>

#include <cstdint>

namespace nulo {

/// Of a core key press or release.
inline const xcb_key_press_event_t& asKey(const xcb_generic_event_t& event) {
    return reinterpret_cast<const xcb_key_press_event_t&>(event);
}

/// Order of full sequence numbers, which wrap.
inline bool isBefore(std::uint32_t sequence, std::uint32_t other) {
    return static_cast<std::int32_t>(sequence - other) < 0;
}

}  // namespace nulo
