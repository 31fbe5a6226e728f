#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "service/http/Messages.h"

namespace nulo::service {

/// What clients are offered as an update: version.json, update.sh and the archives in updates/ of
/// one folder, read anew for each request. An empty path stands for no folder. Any thread.
class UpdateFolder {
  public:
    explicit UpdateFolder(std::filesystem::path folder) : m_folder(std::move(folder)) {}

    /// The content of version.json; nothing when there is none of a sane size.
    std::optional<std::string> versionInfo() const;

    /// Whether the path of a request is one that this folder answers: "/update.sh", or "/updates/"
    /// and a plain file name, which cannot lead out of the folder.
    static bool serves(std::string_view path);

    /// The file of a path that it serves; nothing when there is no such file.
    std::optional<Answer> file(std::string_view path) const;

  private:
    std::filesystem::path m_folder;
};

}  // namespace nulo::service
