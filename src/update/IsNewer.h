#pragma once

#include <string_view>

namespace nulo {

/// Whether the dotted version `a` is newer than `b`. Compared number by number, a missing one
/// counting as 0; pieces that are no integer of 64 bits are left out.
bool isNewer(std::string_view a, std::string_view b);

}  // namespace nulo
