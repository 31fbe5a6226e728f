#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

#include "service/models/ModelFailure.h"

namespace nulo::service {

/// What has arrived of a file, in "FILE.part" beside it, and in "FILE.part.from" where it comes
/// from: kept from one attempt to the next, and never taken for the file. One thread.
class PartialFile {
  public:
    struct Origin {
        std::string url;
        std::string validator;  // for If-Range; empty when the server gave none
    };

    static std::filesystem::path pathFor(const std::filesystem::path& file);
    static std::filesystem::path originFor(const std::filesystem::path& file);

    /// Opens what there is of the file, or begins.
    static Result<PartialFile, ModelFailure> open(const std::filesystem::path& file);
    ~PartialFile();
    PartialFile(PartialFile&& other) noexcept;
    PartialFile& operator=(PartialFile&&) = delete;

    const std::filesystem::path& path() const { return m_path; }
    std::uintmax_t size() const { return m_size; }
    const Origin& origin() const { return m_origin; }

    /// Throws away what has arrived; the next bytes are of this origin.
    ModelOutcome restart(Origin origin);
    ModelOutcome append(std::string_view bytes);
    /// Returns when all of it is on the disk.
    ModelOutcome sync();
    /// Deletes it, and what is known of its origin.
    void discard();
    /// Whether that many bytes more find room; the failure says how many are missing.
    ModelOutcome checkRoomFor(std::uintmax_t bytes) const;

  private:
    PartialFile(std::filesystem::path path, std::filesystem::path originPath, int descriptor);

    ModelFailure failure(int number) const;

    std::filesystem::path m_path;
    std::filesystem::path m_originPath;
    int m_descriptor = -1;
    std::uintmax_t m_size = 0;
    Origin m_origin;
};

}  // namespace nulo::service
