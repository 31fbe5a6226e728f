#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "keeping/DatedFiles.h"

namespace nulo {

/// The texts of the last 30 days, 500 and 16 MB at most, in the folder texts/ of a state folder: a
/// JSON object each, {"mode": "…", "text": "…"}.
class TextHistory {
  public:
    TextHistory(const std::filesystem::path& stateFolder, const Clock& clock);

    struct Text {
        Clock::WallTime time;
        std::string mode;
        std::string text;
    };
    struct Contents {
        std::vector<Text> texts;  // the oldest first
        std::size_t unreadable = 0;
    };

    /// Bytes that are no UTF-8 are replaced. Texts above 256 kB are refused.
    Outcome add(std::string_view text, std::string_view mode) const;
    Contents read() const;
    void dropOld() const { m_files.dropOld(); }
    Outcome clear() const { return m_files.clear(); }

  private:
    const DatedFiles m_files;
};

}  // namespace nulo
