#pragma once

#include <string>
#include <string_view>

namespace nulo::service {

/// The event that carries a piece of text in a streamed answer; bytes that are no UTF-8 are
/// replaced.
std::string textEvent(std::string_view fragment);

/// The event that ends a streamed answer.
inline constexpr std::string_view endEvent = "data: [DONE]\n\n";

}  // namespace nulo::service
