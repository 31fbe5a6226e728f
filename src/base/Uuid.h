#pragma once

#include <string>

namespace nulo {

/// A fresh random UUID (version 4) in its canonical form: 36 characters, upper-case hexadecimal
/// digits in groups of 8-4-4-4-12. Any thread.
std::string randomUuid();

}  // namespace nulo
