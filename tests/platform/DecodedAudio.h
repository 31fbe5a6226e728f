#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace nulo {

/// What another program finds in an audio file.
struct DecodedAudio {
    std::string codec;
    int sampleRate = 0;
    int channels = 0;
    double duration = 0;        // of the container, seconds
    std::vector<float> frames;  // of the first channel

    double rootMeanSquare() const;
    /// Amplitude of the sine of that frequency in the frames from `start` on.
    double amplitudeAt(double frequency, double startSeconds = 0) const;
};

/// Decodes the whole file; throws when that fails.
DecodedAudio decodeAudioFile(const std::filesystem::path& path);

}  // namespace nulo
