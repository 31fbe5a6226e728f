#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace nulo {

/// What another program finds in an audio file.
struct DecodedAudio {
    std::string format;         // codec, frames per second and channels: "aac,48000,1"
    double duration = 0;        // of the container, seconds
    std::vector<float> frames;  // of the first channel

    double rootMeanSquare() const;
    /// Of a sine of `turns` a frame, the first 10,000 frames left out.
    double amplitudeAt(double turns) const;
};

/// Decodes the whole file; throws when that fails.
DecodedAudio decodeAudioFile(const std::filesystem::path& path);

}  // namespace nulo
