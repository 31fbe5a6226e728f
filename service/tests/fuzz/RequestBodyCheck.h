#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace nulo::service {

/// What is wrong with how the form of a request is taken; empty when nothing is. The first line of
/// `bytes` is its Content-Type, the rest its body. However the body is cut into pieces (at random,
/// from `seed`), it must be taken alike: refused, or with nothing handed on that is not in it. A
/// form that holds the body as its recording must give exactly that recording.
std::string faultInRequest(std::string_view bytes, std::uint32_t seed);

}  // namespace nulo::service
