#pragma once

#include <string>
#include <string_view>

namespace nulo::service {

/// The text with every byte that is no UTF-8 replaced by U+FFFD.
std::string repairedUtf8(std::string_view bytes);

}  // namespace nulo::service
