#pragma once

#include <filesystem>
#include <optional>

#include "base/Print.h"
#include "base/Result.h"
#include "config/AppConfig.h"

namespace nulo {

/// The file that AppConfig lives in. There is no cache: every load() reads the disk. Main thread.
class ConfigFile {
  public:
    ConfigFile(const std::filesystem::path& home, Print print);

    const std::filesystem::path& configDir() const { return m_configDir; }
    const std::filesystem::path& configFile() const { return m_configFile; }

    /// Makes sure that a usable file exists: a new one, one migrated from the legacy program's
    /// folder, or the present one given the default modes when it holds none. A file that cannot be
    /// decoded is left alone.
    void createDefaultIfNeeded() const;

    /// Nothing when the file cannot be read or decoded. Puts back what belongs to the built-in
    /// modes and drops legacy keys, saving the file when that changed anything.
    std::optional<AppConfig> load() const;

    /// Writes the whole file, by replaceFile(): a failure leaves the old one, a symbolic link stays
    /// one.
    Outcome trySave(const AppConfig& config) const;
    /// Does what trySave() does, but drops a failure: its callers have no way to show it.
    void save(const AppConfig& config) const;

  private:
    void migrateOrCreate() const;

    std::filesystem::path m_configDir;
    std::filesystem::path m_configFile;
    std::filesystem::path m_legacyFile;
    Print m_print;
};

}  // namespace nulo
