#pragma once

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>

#include "base/Result.h"
#include "config/ServiceConfig.h"
#include "doctor/Finding.h"

namespace nulo {

/// What one second of the microphone gave.
struct MicrophoneSample {
    std::string name;  // for a person; may be empty
    double rate = 0;   // frames per second
    std::size_t frames = 0;
    float loudest = 0;  // root mean square of the loudest piece, 0...1
};

Finding judgedMicrophone(const Result<MicrophoneSample>& sample);

/// What the service answered when it was asked for its version.
struct ServiceAnswer {
    Result<std::string> body;
    std::chrono::milliseconds roundTrip{0};
};

/// `file` is service.json, `isThere` whether there is one.
Finding judgedServiceFile(const Result<ServiceConfig>& config, const std::filesystem::path& file,
                          bool isThere, bool othersMayRead);
Finding judgedService(const std::string& baseURL, const ServiceAnswer& answer);

/// `check` is what the companion beside this program printed when it was asked to check itself.
Finding judgedEngine(const std::optional<std::string>& check);

/// `modes` is nothing when the file cannot be read.
Finding judgedConfig(const std::filesystem::path& file, bool isThere,
                     std::optional<std::size_t> modes, const std::string& activeMode);

}  // namespace nulo
