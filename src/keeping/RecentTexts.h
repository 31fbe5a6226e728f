#pragma once

#include <cstddef>
#include <deque>
#include <optional>
#include <string>

namespace nulo {

/// The texts that were delivered last, in memory only: ten of them, fewer where they are enormous.
class RecentTexts {
  public:
    static constexpr std::size_t most = 10;

    void add(std::string text);
    /// `back` counts from 1, the last one; nothing for one that there is not.
    std::optional<std::string> text(std::size_t back) const;
    void clear() { m_texts.clear(); }

  private:
    std::deque<std::string> m_texts;  // the last one first
};

}  // namespace nulo
