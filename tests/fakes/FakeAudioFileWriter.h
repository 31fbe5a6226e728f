#pragma once

#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "audio/AudioFileWriter.h"

namespace nulo {

/// Makes writers whose files are 2 KB long, and notes what was written to them. Outlives
/// them.
class FakeAudioFiles {
  public:
    std::optional<Error> makeFailure, writeFailure, closeFailure;
    std::vector<AudioFileSettings> settings;  // one a file
    std::vector<float> frames;                // of all files

    MakeAudioFileWriter maker() {
        return [this](const std::filesystem::path& path, const AudioFileSettings& fileSettings)
                   -> Result<std::unique_ptr<AudioFileWriter>> {
            if (makeFailure)
                return *makeFailure;
            settings.push_back(fileSettings);
            std::ofstream(path) << std::string(2048, 'a');
            return std::unique_ptr<AudioFileWriter>(std::make_unique<Writer>(*this, path));
        };
    }

  private:
    struct Writer final : AudioFileWriter {
        Writer(FakeAudioFiles& owner, std::filesystem::path file)
            : files(owner), path(std::move(file)) {}
        Outcome write(std::span<const float> frames) override {
            files.frames.insert(files.frames.end(), frames.begin(), frames.end());
            return files.writeFailure ? Outcome(*files.writeFailure) : Success{};
        }
        Outcome close() override {
            if (!files.closeFailure)
                return Success{};
            std::filesystem::remove(path);
            return *files.closeFailure;
        }

        FakeAudioFiles& files;
        std::filesystem::path path;
    };
};

}  // namespace nulo
