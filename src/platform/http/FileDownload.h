#pragma once

#include <filesystem>
#include <string_view>

#include "base/Result.h"

namespace nulo {

/// A new file that is written piece by piece and is removed again unless it is kept. One thread at
/// a time. Errors name the file and the reason.
class FileDownload {
  public:
    FileDownload() = default;
    ~FileDownload();
    FileDownload(const FileDownload&) = delete;
    FileDownload& operator=(const FileDownload&) = delete;

    /// Call it once. The file must not exist; only its owner will be able to read it.
    Outcome create(const std::filesystem::path& path);
    Outcome write(std::string_view bytes);
    /// Completes the file; errors that the system held back come out now.
    Outcome close();
    /// Leaves the file where it is. Call it after close().
    void keep() { m_path.clear(); }

  private:
    Error error(int number) const;

    std::filesystem::path m_path;  // empty when there is nothing to remove
    int m_descriptor = -1;
};

}  // namespace nulo
