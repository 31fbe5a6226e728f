#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "service/OfflineSettings.h"
#include "service/models/ModelFailure.h"

namespace nulo::service {

/// A model that was fetched whole and checked.
struct InstalledModel {
    std::string name;
    OfflineModel model;  // its digest is the one of the day it was fetched
    std::uintmax_t bytes = 0;
};

/// "nulo/models" in the user's folder for data.
std::filesystem::path defaultModelFolder();

/// Models on the disk. Beside each lies its SHA-256 as sha256sum writes and checks it; without one
/// a file is no model. Any thread.
class ModelFolder {
  public:
    /// Keeps every other one of the kind out, in other processes too, until it is destroyed.
    class Lock {
      public:
        explicit Lock(int descriptor) : m_descriptor(descriptor) {}
        ~Lock();
        Lock(Lock&& other) noexcept;
        Lock& operator=(Lock&&) = delete;

      private:
        int m_descriptor;
    };

    explicit ModelFolder(std::filesystem::path path) : m_path(std::move(path)) {}

    const std::filesystem::path& path() const { return m_path; }
    std::filesystem::path fileOf(const std::string& name) const;
    /// From the quickest to the one that understands best, those that no table knows first. Digests
    /// are read, not compared.
    std::vector<InstalledModel> installed() const;
    std::optional<InstalledModel> installed(const std::string& name) const;

    /// Makes the folder where it is missing. Fails at once when somebody else has the lock.
    Result<Lock, ModelFailure> lock() const;
    /// Gives a file that lies whole in the folder its name, once both it and its digest are on the
    /// disk.
    ModelOutcome install(const std::string& name, const std::filesystem::path& file,
                         const std::string& sha256) const;
    /// Deletes it and what has arrived of it; false when there was nothing.
    Result<bool, ModelFailure> remove(const std::string& name) const;

  private:
    const std::filesystem::path m_path;
};

}  // namespace nulo::service
