#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <span>

#include "base/Result.h"

namespace nulo {

struct AudioFileSettings {
    double sampleRate = 48000;  // Hz
    int channels = 1;
    int bitRate = 64000;  // bits per second
};

/// One AAC file in an MPEG-4 container. One thread at a time.
class AudioFileWriter {
  public:
    virtual ~AudioFileWriter() = default;
    /// Encodes and appends mono float32 frames; samples that are not finite count as silence. The
    /// first failure ends the file: all calls after it fail too.
    virtual Outcome write(std::span<const float> frames) = 0;
    /// Completes the file, once. On a failure, of an earlier write() too, the file is removed.
    virtual Outcome close() = 0;
};

/// Makes the file at the path, replacing one that is there, readable by its owner only.
using MakeAudioFileWriter = std::function<Result<std::unique_ptr<AudioFileWriter>>(
    const std::filesystem::path&, const AudioFileSettings&)>;

}  // namespace nulo
