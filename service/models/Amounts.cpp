#include "service/models/Amounts.h"

#include <array>
#include <cstdio>

namespace nulo::service {

std::string amountOf(std::uintmax_t bytes) {
    std::array<char, 40> text{};
    const double amount = static_cast<double>(bytes) / 1e6;
    if (amount < 9.95)
        std::snprintf(text.data(), text.size(), "%.1f MB", amount);
    else if (amount < 9950)
        std::snprintf(text.data(), text.size(), "%.0f MB", amount);
    else
        std::snprintf(text.data(), text.size(), "%.1f GB", amount / 1000);
    return text.data();
}

std::string shortDuration(std::chrono::seconds duration) {
    const long long seconds = duration.count();
    std::array<char, 60> text{};
    if (seconds < 60)
        std::snprintf(text.data(), text.size(), "%lld s", seconds);
    else if (seconds < 3600)
        std::snprintf(text.data(), text.size(), "%lld min %02lld s", seconds / 60, seconds % 60);
    else
        std::snprintf(text.data(), text.size(), "%lld h %02lld min", seconds / 3600,
                      seconds / 60 % 60);
    return text.data();
}

}  // namespace nulo::service
