#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "base/FileIO.h"

namespace nulo::service {

inline constexpr const char* formType = "multipart/form-data; boundary=0A1B2C3D-00000000ABCD";

/// A form as Nulo sends it; the field "file" gets a file name.
inline std::string formOf(const std::vector<std::pair<std::string, std::string>>& fields) {
    const std::string boundary = "--0A1B2C3D-00000000ABCD";
    std::string body;
    for (const auto& [name, value] : fields) {
        body += boundary + "\r\nContent-Disposition: form-data; name=\"" + name + "\"";
        if (name == "file")
            body += "; filename=\"take.m4a\"\r\nContent-Type: audio/mp4";
        body += "\r\n\r\n" + value + "\r\n";
    }
    return body + boundary + "--\r\n";
}

/// A human voice: "and mister john dashwood had then leisure to consider…" (number 0870) or
/// "he was not an ill disposed young man" (0880).
inline std::string speech(const std::string& number) {
    const std::string folder = NULO_SPEECH_FOLDER "/sense_and_sensibility_01_austen_64kb-";
    return readFile(folder + number + ".wav", 1 << 24).value();
}

/// A WAV file of one channel, on a machine that stores the lowest byte of a number first.
inline std::string speechWav(const std::vector<std::int16_t>& samples, std::uint32_t rate = 16000) {
    const auto size = static_cast<std::uint32_t>(2 * samples.size());
    constexpr std::uint32_t pcmOfOneChannel = 1 | 1 << 16;
    constexpr std::uint32_t twoBytesOfSixteenBits = 2 | 16 << 16;
    const std::uint32_t format[] = {16, pcmOfOneChannel, rate, 2 * rate, twoBytesOfSixteenBits};
    const auto bytes = [](const void* data, std::size_t count) {
        return std::string(static_cast<const char*>(data), count);
    };
    const std::uint32_t rest = 36 + size;
    return "RIFF" + bytes(&rest, 4) + "WAVEfmt " + bytes(format, sizeof format) + "data" +
           bytes(&size, 4) + bytes(samples.data(), size);
}

}  // namespace nulo::service
