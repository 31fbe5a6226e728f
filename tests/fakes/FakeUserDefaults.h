#pragma once

#include <map>
#include <string>

#include "desktop/UserDefaults.h"

namespace nulo {

class FakeUserDefaults final : public UserDefaults {
  public:
    std::optional<bool> boolean(std::string_view key) const override { return find(booleans, key); }
    std::optional<double> number(std::string_view key) const override { return find(numbers, key); }
    void set(std::string_view key, bool value) override { booleans[std::string(key)] = value; }
    void set(std::string_view key, double value) override { numbers[std::string(key)] = value; }

    std::map<std::string, bool> booleans;
    std::map<std::string, double> numbers;

  private:
    template <typename Value>
    static std::optional<Value> find(const std::map<std::string, Value>& values,
                                     std::string_view key) {
        const auto entry = values.find(std::string(key));
        return entry == values.end() ? std::nullopt : std::optional(entry->second);
    }
};

}  // namespace nulo
