#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/Print.h"
#include "base/Result.h"

namespace nulo {

/// The address of the speech service, and what every request to it carries.
struct ServiceConfig {
    /// An https URL, or http for this machine; paths are appended to it as text.
    std::string baseURL;
    std::vector<std::pair<std::string, std::string>> authHeaders;
};

/// Reads service.json: {"baseURL": "https://…", "headers": {"Authorization": "Bearer …"}}; a
/// missing file stands for `defaultBaseURL` without headers. A file that other users can change is
/// refused. The error is one line that names the file. Warns through `print` when a file with
/// headers can be read by other users.
Result<ServiceConfig> loadServiceConfig(const std::filesystem::path& file,
                                        std::string_view defaultBaseURL, const Print& print);

/// Why no request may be sent there: the text is no URL, or speech would go over a network
/// unencrypted. Empty when requests may be sent.
std::string serviceUrlFault(std::string_view url);

}  // namespace nulo
