#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace nulo {

/// Small facts that the program remembers from one run to the next. Main thread. What cannot be
/// read is absent; what cannot be written is lost without a report.
class UserDefaults {
  public:
    virtual ~UserDefaults() = default;
    virtual std::optional<bool> boolean(std::string_view key) const = 0;
    virtual std::optional<double> number(std::string_view key) const = 0;
    /// Only people write texts; of any length.
    virtual std::optional<std::string> text(std::string_view key) const = 0;
    /// Stores the value; it is on the disk when the call returns.
    virtual void set(std::string_view key, bool value) = 0;
    virtual void set(std::string_view key, double value) = 0;
};

}  // namespace nulo
