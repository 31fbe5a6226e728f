#include "platform/DecodedAudio.h"

#include <cmath>
#include <complex>
#include <cstring>
#include <numbers>

#include "rig/process/ChildProcess.h"

namespace nulo {

DecodedAudio decodeAudioFile(const std::filesystem::path& path) {
    const std::string file = "file:" + path.string();
    const std::string facts =
        outputOf({"ffprobe", "-v", "error", "-of", "csv=p=0", "-show_entries",
                  "stream=codec_name,sample_rate,channels:format=duration", file});
    const std::string bytes = outputOf({"ffmpeg", "-v", "error", "-i", file, "-f", "f32le", "-"});
    DecodedAudio audio{facts.substr(0, facts.find('\n')), 0, {}};
    audio.duration = std::stod(facts.substr(facts.find('\n') + 1));
    audio.frames.resize(bytes.size() / sizeof(float));
    std::memcpy(audio.frames.data(), bytes.data(), audio.frames.size() * sizeof(float));
    return audio;
}

double DecodedAudio::rootMeanSquare() const {
    double sum = 0;
    for (const double sample : frames)
        sum += sample * sample;
    return frames.empty() ? 0 : std::sqrt(sum / static_cast<double>(frames.size()));
}

double DecodedAudio::amplitudeAt(double turns) const {
    std::complex<double> sum;
    for (std::size_t i = 10000; i < frames.size(); ++i)
        sum += std::polar(double{frames[i]}, 2 * std::numbers::pi * turns * static_cast<double>(i));
    return frames.size() > 10000 ? 2 * std::abs(sum) / static_cast<double>(frames.size() - 10000)
                                 : 0;
}

}  // namespace nulo
