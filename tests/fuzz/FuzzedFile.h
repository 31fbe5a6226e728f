#pragma once

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string_view>

#include "rig/process/TemporaryFolder.h"

namespace nulo {

/// A home folder in which one file holds what the fuzzer made up. One for a whole run: a folder an
/// input would be most of the time.
class FuzzedFile {
  public:
    explicit FuzzedFile(const char* name) : m_path(m_folder / name) {
        std::filesystem::create_directories(m_path.parent_path());
    }
    void write(std::string_view bytes) const {
        std::ofstream(m_path, std::ios::binary | std::ios::trunc) << bytes;
    }
    const std::filesystem::path& path() const { return m_path; }
    const std::filesystem::path& home() const { return m_folder.path(); }

  private:
    const TemporaryFolder m_folder;
    const std::filesystem::path m_path;
};

/// Ends the run with the fuzzer keeping the input.
inline void fuzzingRequires(bool condition, const char* fault) {
    if (condition)
        return;
    std::fprintf(stderr, "%s\n", fault);
    std::abort();
}

}  // namespace nulo
