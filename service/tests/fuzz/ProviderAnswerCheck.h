#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace nulo::service {

/// What is wrong with how an answer of these bytes is taken from a provider, as a stream of text,
/// as a transcript and as an error; empty when nothing is. However a stream is cut into pieces (at
/// random, from `seed`), it must give the same; all texts must be UTF-8, and what a client is told
/// one line without the provider's key.
std::string faultInProviderAnswer(std::string_view bytes, std::uint32_t seed);

}  // namespace nulo::service
