#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "base/Clock.h"

namespace nulo::service {

/// Tells how far a fetch is: on a terminal by a bar that is drawn over itself, elsewhere by a line
/// for each tenth. One thread.
class FetchProgress {
  public:
    using Write = std::function<void(std::string_view bytes)>;

    /// `columns` is the terminal's width, 0 where there is none.
    FetchProgress(std::string name, unsigned columns, const Clock& clock, Write write);

    /// In bytes; a total of 0 is not known.
    void show(std::uintmax_t received, std::uintmax_t total);
    /// What is written next begins a line of its own.
    void end();

  private:
    std::string line(std::uintmax_t received, std::uintmax_t total) const;
    void measure(std::uintmax_t received);

    const std::string m_name;
    const unsigned m_columns;
    const Clock& m_clock;
    const Write m_write;
    bool m_started = false;
    bool m_onLine = false;
    Clock::Instant m_shown;
    std::uintmax_t m_step = 0;
    // The speed is that since the older of two marks, some seconds apart.
    struct Mark {
        Clock::Instant time;
        std::uintmax_t bytes = 0;
    } m_older, m_newer;
    double m_speed = 0;  // bytes a second; 0: not known yet
};

}  // namespace nulo::service
