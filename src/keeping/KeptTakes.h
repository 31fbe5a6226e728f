#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "keeping/DatedFiles.h"

namespace nulo {

/// How a take becomes a text.
struct TakeRoute {
    enum class Kind {
        raw,       // the transcript, unchanged
        combined,  // one request transcribes and cleans up
        twoStage,  // the transcript first, then its clean-up
    };
    Kind kind = Kind::twoStage;
    std::string provider = "openai";        // as the service is told it
    std::optional<std::string> vocabulary;  // the hint for the recogniser
    std::string mode;                       // its name
    std::optional<std::string> prompt;      // nothing for no clean-up
    std::string cleanupModel;

    bool operator==(const TakeRoute&) const = default;
};

/// Takes whose request failed, with the route that they were on: those of the last seven days, 20
/// and 100 MB at most, in the folder takes/ of a state folder.
class KeptTakes {
  public:
    KeptTakes(const std::filesystem::path& stateFolder, const Clock& clock);

    struct Take {
        DatedFiles::Entry entry;
        /// The transcript without a clean-up when it cannot be read.
        TakeRoute route;
    };

    /// Copies the take.
    Outcome keep(const std::filesystem::path& file, const TakeRoute& route) const;
    std::optional<Take> newest() const;
    void remove(const Take& take) const { m_files.remove(take.entry); }
    void dropOld() const { m_files.dropOld(); }
    Outcome clear() const { return m_files.clear(); }

  private:
    const DatedFiles m_files;
};

}  // namespace nulo
