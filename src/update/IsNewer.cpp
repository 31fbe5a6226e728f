#include "update/IsNewer.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <vector>

namespace nulo {
namespace {

std::vector<std::int64_t> numbersOf(std::string_view version) {
    std::vector<std::int64_t> numbers;
    while (!version.empty()) {
        const auto dot = std::min(version.find('.'), version.size());
        std::string_view piece = version.substr(0, dot);
        version.remove_prefix(std::min(dot + 1, version.size()));
        if (piece.starts_with('+') && !piece.starts_with("+-"))  // from_chars knows the minus only
            piece.remove_prefix(1);
        std::int64_t number = 0;
        const char* end = piece.data() + piece.size();
        const auto [stop, error] = std::from_chars(piece.data(), end, number);
        if (error == std::errc() && stop == end)
            numbers.push_back(number);
    }
    return numbers;
}

}  // namespace

bool isNewer(std::string_view a, std::string_view b) {
    std::vector<std::int64_t> numbersA = numbersOf(a);
    std::vector<std::int64_t> numbersB = numbersOf(b);
    const std::size_t length = std::max(numbersA.size(), numbersB.size());
    numbersA.resize(length);
    numbersB.resize(length);
    return numbersA > numbersB;
}

}  // namespace nulo
