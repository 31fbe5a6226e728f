#pragma once

#include <string_view>

namespace nulo {

/// Whether the dotted version `a` is newer than `b`. They are compared number by number; a missing
/// number counts as 0, and pieces that are no integer of 64 bits are left out.
bool isNewer(std::string_view a, std::string_view b);

}  // namespace nulo
