#pragma once

#include <poll.h>

#include <chrono>
#include <deque>
#include <memory>
#include <string>
#include <vector>

namespace nulo {

/// Texts on their way into pipes whose readers take their time. The newest 32 are kept, each for
/// ten seconds without a byte taken: a program that asks and does not read costs no more. One
/// thread.
class PipeWriters {
  public:
    PipeWriters() = default;
    ~PipeWriters();
    PipeWriters(const PipeWriters&) = delete;
    PipeWriters& operator=(const PipeWriters&) = delete;

    /// Takes over the descriptor, which is closed at the text's end.
    void add(int descriptor, std::shared_ptr<const std::string> text);
    /// What to poll for before work().
    void addTo(std::vector<pollfd>& sources) const;
    /// Milliseconds until work() gives a reader up; -1 when nothing is to be written.
    int timeout() const;
    /// Writes what goes without waiting, and gives up readers whose time is over.
    void work();

  private:
    using Clock = std::chrono::steady_clock;
    struct Writer {
        int descriptor;
        std::shared_ptr<const std::string> text;
        std::size_t written;
        Clock::time_point end;
    };
    static bool isDone(Writer& writer);

    std::deque<Writer> m_writers;
};

}  // namespace nulo
