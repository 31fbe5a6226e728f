#include "service/models/FetchProgress.h"

#include <algorithm>
#include <utility>

#include "service/models/Amounts.h"

namespace nulo::service {
namespace {

constexpr std::size_t barLength = 24;
constexpr auto betweenPictures = std::chrono::milliseconds(200);
constexpr auto betweenMarks = std::chrono::seconds(3);
constexpr std::uintmax_t stepWithoutTotal = 100'000'000;

}  // namespace

FetchProgress::FetchProgress(std::string name, unsigned columns, const Clock& clock, Write write)
    : m_name(std::move(name)), m_columns(columns), m_clock(clock), m_write(std::move(write)) {}

void FetchProgress::show(std::uintmax_t received, std::uintmax_t total) {
    const auto now = m_clock.now();
    // After a connection that was lost the fetch may begin anew.
    if (!m_started || received < m_newer.bytes)
        m_older = m_newer = {now, received};
    const bool first = !std::exchange(m_started, true);
    measure(received);
    if (m_columns == 0) {
        const std::uintmax_t step = total ? received * 10 / total : received / stepWithoutTotal;
        if (first || step > m_step)
            m_write(line(received, total) + "\n");
        m_step = step;
        return;
    }
    if (!first && now - m_shown < betweenPictures && received != total)
        return;
    m_shown = now;
    m_onLine = true;
    m_write("\r" + line(received, total).substr(0, m_columns - 1) + "\x1b[K");
}

void FetchProgress::end() {
    if (std::exchange(m_onLine, false))
        m_write("\n");
}

void FetchProgress::measure(std::uintmax_t received) {
    const auto now = m_clock.now();
    const double seconds = std::chrono::duration<double>(now - m_older.time).count();
    if (seconds >= 0.5)
        m_speed = static_cast<double>(received - m_older.bytes) / seconds;
    if (now - m_newer.time >= betweenMarks) {
        m_older = m_newer;
        m_newer = {now, received};
    }
}

std::string FetchProgress::line(std::uintmax_t received, std::uintmax_t total) const {
    std::string text = m_name + "  ";
    if (total) {
        const auto filled = static_cast<std::size_t>(received * barLength / total);
        std::string percent = std::to_string(received * 100 / total);
        percent.insert(0, 3 - std::min<std::size_t>(3, percent.size()), ' ');
        if (m_columns)
            text += "[" + std::string(std::min(filled, barLength), '#') +
                    std::string(barLength - std::min(filled, barLength), '.') + "]  ";
        text += percent + " %  " + amountOf(received) + " of " + amountOf(total);
    } else {
        text += amountOf(received);
    }
    if (m_speed < 1)
        return text;
    text += "  " + amountOf(static_cast<std::uintmax_t>(m_speed)) + "/s";
    if (total > received)
        text += "  " +
                shortDuration(std::chrono::seconds(
                    static_cast<long long>(static_cast<double>(total - received) / m_speed) + 1)) +
                " left";
    return text;
}

}  // namespace nulo::service
