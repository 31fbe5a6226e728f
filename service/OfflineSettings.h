#pragma once

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>

namespace nulo::service {

/// A model of whisper.cpp on the disk.
struct OfflineModel {
    std::filesystem::path file;  // ggml
    std::string sha256;          // that it must have
};

/// What the configuration says about the offline engine.
struct OfflineSettings {
    std::optional<OfflineModel> file;  // a model that is named by its file
    std::string model;     // the name of an installed one; empty: the best, unless there is a file
    std::string language;  // a code such as "fr", for takes that name none; empty: recognised
    bool spokenPunctuation = false;  // whether "comma" stands for the mark
    /// How long a model that nobody uses stays in memory.
    std::chrono::milliseconds keep = std::chrono::minutes(10);
    std::string modelSource;  // URL of the folder that models are fetched from; empty: the usual
};

}  // namespace nulo::service
