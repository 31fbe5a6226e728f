#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace nulo::service {

/// What is wrong with how bytes from outside are taken; empty when nothing is. However they are cut
/// into pieces (at random, from `seed`), they must be taken alike.

/// The form of a request: the first line is its Content-Type, the rest its body. It is refused, or
/// nothing is handed on that is not in it; a form that holds the body as its recording gives
/// exactly that recording.
std::string faultInRequest(std::string_view bytes, std::uint32_t seed);

/// A provider's answer: as a stream of text, as a transcript and as an error. All texts must be
/// UTF-8, and what a client is told one line without the provider's key.
std::string faultInProviderAnswer(std::string_view bytes, std::uint32_t seed);

}  // namespace nulo::service
