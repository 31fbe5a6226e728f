#pragma once

#include <cmath>
#include <complex>
#include <cstring>
#include <filesystem>
#include <numbers>
#include <vector>

#include "rig/process/ChildProcess.h"

namespace nulo {

/// What another program finds in an audio file; making one throws when it cannot be decoded.
struct DecodedAudio {
    explicit DecodedAudio(const std::filesystem::path& path) {
        const std::string file = "file:" + path.string();
        const std::string facts =
            outputOf({"ffprobe", "-v", "error", "-of", "csv=p=0", "-show_entries",
                      "stream=codec_name,sample_rate,channels:format=duration", file});
        const auto bytes = outputOf({"ffmpeg", "-v", "error", "-i", file, "-f", "f32le", "-"});
        format = facts.substr(0, facts.find('\n'));
        duration = std::stod(facts.substr(format.size() + 1));
        frames.resize(bytes.size() / sizeof(float));
        std::memcpy(frames.data(), bytes.data(), frames.size() * sizeof(float));
    }

    /// Of a sine of `turns` a frame, the first 10,000 frames left out.
    double amplitudeAt(double turns) const {
        std::complex<double> sum;
        for (std::size_t i = 10000; i < frames.size(); ++i)
            sum += std::polar<double>(frames[i], 2 * std::numbers::pi * turns * double(i));
        return 2 * std::abs(sum) / double(frames.size() - 10000);
    }
    double rootMeanSquare() const {
        double sum = 0;
        for (const double sample : frames)
            sum += sample * sample;
        return std::sqrt(sum / double(frames.size()));
    }

    std::string format;         // codec, frames per second and channels: "aac,48000,1"
    double duration;            // of the container, seconds
    std::vector<float> frames;  // of the first channel
};

}  // namespace nulo
