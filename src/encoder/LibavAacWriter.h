#pragma once

#include <filesystem>
#include <memory>

#include "audio/AudioFileWriter.h"

namespace nulo {

/// Encodes with libavcodec, into a file that is there already and whose content is replaced.
/// Everything happens in the calls, on their thread. A failed close() leaves the file.
Result<std::unique_ptr<AudioFileWriter>> makeLibavAacWriter(const std::filesystem::path& path,
                                                            const AudioFileSettings& settings);

}  // namespace nulo
