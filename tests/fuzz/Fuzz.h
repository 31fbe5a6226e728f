#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "base/Text.h"

namespace nulo {

/// What is wrong with how bytes from outside are taken; empty when nothing is. Every fuzzer has its
/// own. However the bytes are cut into pieces (by chance, from `seed`), they must be taken alike.
std::string faultIn(std::string_view bytes, std::uint32_t seed);

/// `bytes` in pieces of 1 to `longest` bytes, where it is asked for up to the end of a character.
inline std::vector<std::string_view> cut(std::string_view bytes, std::uint32_t seed,
                                         std::size_t longest, bool wholeCharacters = false) {
    std::minstd_rand random(seed);
    std::vector<std::string_view> pieces;
    while (!bytes.empty()) {
        std::size_t length = 1 + random() % longest;
        while (wholeCharacters && length < bytes.size() && (bytes[length] & 0xC0) == 0x80)
            ++length;
        pieces.push_back(bytes.substr(0, length));
        bytes.remove_prefix(pieces.back().size());
    }
    return pieces;
}

}  // namespace nulo
