#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace nulo::service {

/// The text with every byte that is no UTF-8 replaced by U+FFFD.
std::string repairedUtf8(std::string_view bytes);

/// A client's text made fit for a log: its first `most` bytes, with '?' in place of all that is no
/// visible ASCII character.
std::string printable(std::string_view text, std::size_t most);

}  // namespace nulo::service
