#include "base/Uuid.h"

#include <array>
#include <cstddef>
#include <random>

namespace nulo {

std::string randomUuid() {
    std::random_device device;
    std::array<unsigned char, 16> bytes{};
    for (std::size_t i = 0; i < bytes.size(); i += 4) {
        const unsigned int word = device();
        for (std::size_t j = 0; j < 4; ++j)
            bytes[i + j] = static_cast<unsigned char>(word >> (8 * j));
    }
    bytes[6] = static_cast<unsigned char>(0x40 | (bytes[6] & 0x0F));  // version 4: random
    bytes[8] = static_cast<unsigned char>(0x80 | (bytes[8] & 0x3F));  // the RFC 4122 variant

    constexpr char digits[] = "0123456789ABCDEF";
    std::string text;
    text.reserve(36);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10)
            text += '-';
        text += digits[bytes[i] >> 4];
        text += digits[bytes[i] & 0x0F];
    }
    return text;
}

}  // namespace nulo
