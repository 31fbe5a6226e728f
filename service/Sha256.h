#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include "base/Result.h"

namespace nulo::service {

/// The digest as 64 small hexadecimal digits. Any thread.
std::string sha256(std::string_view bytes);

/// The digest of a regular file of any size; the error is the system's reason.
Result<std::string> sha256OfFile(const std::filesystem::path& file);

struct FileDigests {
    std::string sha1;  // 40 digits
    std::string sha256;
};

/// Both in one reading.
Result<FileDigests> digestsOfFile(const std::filesystem::path& file);

/// Whether the text is a digest as sha256() writes it.
bool isSha256(std::string_view text);

}  // namespace nulo::service
