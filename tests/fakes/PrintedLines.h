#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "base/Print.h"

namespace nulo {

/// Collects what is printed; outlives the printer.
class PrintedLines {
  public:
    Print print() {
        return [this](std::string_view line) {
            const std::lock_guard lock(m_mutex);
            m_lines.emplace_back(line);
        };
    }
    std::vector<std::string> lines() const {
        const std::lock_guard lock(m_mutex);
        return m_lines;
    }

  private:
    mutable std::mutex m_mutex;
    std::vector<std::string> m_lines;
};

}  // namespace nulo
