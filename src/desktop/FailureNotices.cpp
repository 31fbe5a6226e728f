#include "desktop/FailureNotices.h"

#include <algorithm>
#include <chrono>

namespace nulo {

void FailureNotices::report(const Notice& notice) {
    const Clock::Instant now = m_clock.now();
    std::erase_if(m_shown,
                  [&](const auto& shown) { return now - shown.first >= std::chrono::minutes(1); });
    if (std::any_of(m_shown.begin(), m_shown.end(),
                    [&](const auto& shown) { return shown.second == notice; }))
        return;
    m_shown.emplace_back(now, notice);
    m_notifications.show(notice);
}

}  // namespace nulo
