#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace nulo {

/// What an alert shows. The texts are UTF-8 and plain: markup in them is shown as it is.
struct AlertContent {
    enum class Style { warning, informational };

    Style style = Style::informational;
    std::string message;
    std::string informativeText;
    /// The buttons in the order in which they are shown; at least one. Escape and closing the
    /// window count as the last one.
    std::vector<std::string> buttons;
    /// The button that Return presses.
    std::size_t defaultButton = 0;
    /// The button that loses something for good: drawn so, and pressed by no Return.
    std::optional<std::size_t> destructiveButton = std::nullopt;
};

}  // namespace nulo
