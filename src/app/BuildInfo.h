#pragma once

#include <string_view>

/// What the build compiled in.
namespace nulo::build {

/// Dotted version, "0.0" when the build gave none.
std::string_view version();

/// Origin of the speech service for users without a service.json.
std::string_view baseURL();

}  // namespace nulo::build
