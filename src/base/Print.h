#pragma once

#include <functional>
#include <string_view>

namespace nulo {

/// Takes one diagnostic line, without its line feed. Callable from any thread.
using Print = std::function<void(std::string_view line)>;

/// Writes the line and a line feed to standard output in one piece and flushes it. Any thread.
void printLine(std::string_view line);

}  // namespace nulo
