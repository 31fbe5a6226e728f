#pragma once

#include <cstdint>
#include <fstream>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

namespace nulo::service {

inline constexpr const char* formType =
    "multipart/form-data; boundary=0A1B2C3D-0000-4000-8000-00000000ABCD";

/// A form as Nulo sends it; the field "file" gets a file name.
inline std::string formOf(const std::vector<std::pair<std::string, std::string>>& fields) {
    const std::string boundary = "--0A1B2C3D-0000-4000-8000-00000000ABCD";
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
    std::ifstream stream(std::string(NULO_SPEECH_FOLDER) +
                             "/sense_and_sensibility_01_austen_64kb-" + number + ".wav",
                         std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

/// A WAV file of one channel.
inline std::string speechWav(const std::vector<std::int16_t>& samples, std::uint32_t rate = 16000) {
    std::string wav = "RIFF";
    const auto put = [&](std::uint32_t number, int bytes) {
        for (; bytes > 0; --bytes, number >>= 8)
            wav += static_cast<char>(number & 255);
    };
    const auto size = static_cast<std::uint32_t>(2 * samples.size());
    put(36 + size, 4);
    wav += "WAVEfmt ";
    for (const auto& [number, bytes] : {std::pair<std::uint32_t, int>{16, 4},
                                        {1, 2},
                                        {1, 2},
                                        {rate, 4},
                                        {2 * rate, 4},
                                        {2, 2},
                                        {16, 2}})
        put(number, bytes);
    wav += "data";
    put(size, 4);
    for (const std::int16_t sample : samples)
        put(static_cast<std::uint16_t>(sample), 2);
    return wav;
}

}  // namespace nulo::service
