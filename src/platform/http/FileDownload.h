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

    /// Once. The file must not exist; only its owner can read it.
    Outcome create(const std::filesystem::path& path);
    Outcome write(std::string_view bytes);
    /// All that was written is in the file's hands; errors that the system held back come out now.
    Outcome close();
    /// After close().
    void keep() { m_path.clear(); }

  private:
    Error error(int number) const;

    std::filesystem::path m_path;  // empty when there is nothing to remove
    int m_descriptor = -1;
};

}  // namespace nulo
