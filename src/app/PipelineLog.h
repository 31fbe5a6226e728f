#pragma once

#include <filesystem>
#include <mutex>
#include <optional>
#include <string_view>

#include "base/Clock.h"
#include "base/Print.h"

namespace nulo {

/// A readable trace of every dictation, appended to one file for all sessions and all runs, its
/// lines echoed on standard output. Always on; a failure to write is ignored. Any thread.
class PipelineLog {
  public:
    /// `clock` outlives the log. Makes the folder.
    PipelineLog(const std::filesystem::path& logDir, const Clock& clock, Print print);

    void startSession(const std::filesystem::path& audioFile);
    void log(std::string_view message);
    /// Writes the session's total. Lines logged outside a session show an elapsed time of 0.
    void endSession();

  private:
    long long elapsedMilliseconds() const;
    void write(std::string_view line);

    const std::filesystem::path m_file;
    const Clock& m_clock;
    const Print m_print;

    std::mutex m_mutex;  // held for a whole session step, so that its lines stay together
    int m_sessionId = 0;
    std::optional<Clock::Instant> m_sessionStart;
};

}  // namespace nulo
