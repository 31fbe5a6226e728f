#include "keeping/RecentTexts.h"

#include <utility>

namespace nulo {
namespace {

constexpr std::size_t mostBytes = 16 * 1024 * 1024;

}  // namespace

void RecentTexts::add(std::string text) {
    m_texts.push_front(std::move(text));
    std::size_t kept = 0;
    for (std::size_t bytes = 0; kept < m_texts.size() && kept < most; ++kept) {
        bytes += m_texts[kept].size();
        if (kept > 0 && bytes > mostBytes)
            break;
    }
    m_texts.resize(kept);
}

std::optional<std::string> RecentTexts::text(std::size_t back) const {
    if (back < 1 || back > m_texts.size())
        return std::nullopt;
    return m_texts[back - 1];
}

}  // namespace nulo
