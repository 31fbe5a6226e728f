#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "base/Clock.h"
#include "base/Result.h"

namespace nulo {

/// Entries in a private folder, each a file or several, named by the time at which it was added.
/// What is too old, too many or too much goes, the oldest first. Other processes may add and remove
/// entries at any time: each is there whole or not at all. Any thread, one at a time.
class DatedFiles {
  public:
    struct Limits {
        std::size_t entries;
        std::uintmax_t bytes;    // of the first files of all entries together
        std::uintmax_t largest;  // of one; what is larger was not added here
        std::chrono::hours age;
    };
    struct Entry {
        Clock::WallTime time;
        std::filesystem::path file;  // the first one
    };

    /// An entry has one file a suffix, and exists as long as its first one. `clock` outlives it.
    DatedFiles(std::filesystem::path folder, std::vector<std::string> suffixes, Limits limits,
               const Clock& clock)
        : m_folder(std::move(folder)),
          m_suffixes(std::move(suffixes)),
          m_limits(limits),
          m_clock(clock) {}

    /// One content a suffix. Makes the folder, and drops what the new entry leaves no room for. The
    /// files are on the disk when the call returns.
    Outcome add(const std::vector<std::string_view>& contents) const;
    /// What is within the limits, whether or not the rest could be removed.
    std::vector<Entry> newestFirst() const;
    void remove(const Entry& entry) const;
    /// Removes what is beyond the limits, and what a crash left.
    void dropOld() const;
    /// Removes everything; the error names what is left.
    Outcome clear() const;

  private:
    using Stem = std::string;
    std::vector<Stem> stems(const std::function<void(const Stem&)>& onSurplus) const;
    std::filesystem::path pathOf(const Stem& stem, const std::string& suffix) const {
        return m_folder / (stem + suffix);
    }
    void removeStem(const Stem& stem) const;
    void removeWrittenBefore(Clock::WallTime moment) const;

    const std::filesystem::path m_folder;
    const std::vector<std::string> m_suffixes;
    const Limits m_limits;
    const Clock& m_clock;
};

}  // namespace nulo
