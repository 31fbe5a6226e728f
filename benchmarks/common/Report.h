#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace nulo {

/// What was measured of one thing, again and again.
class Samples {
  public:
    void add(double value) { m_values.push_back(value); }
    std::size_t count() const { return m_values.size(); }
    /// The value that `percent` of the samples do not exceed; 0 without samples.
    double percentile(double percent) const;
    double median() const { return percentile(50); }

  private:
    std::vector<double> m_values;
};

/// One line of the table.
struct Row {
    enum class Compare { ratio, difference };
    enum class Sense { atMost, atLeast };

    std::string figure;
    std::string unit;
    double ours = 0;
    /// What `ours` is held against, measured in the same run.
    std::optional<double> reference;
    std::string referenceName;
    Compare compare = Compare::ratio;
    /// Of the ratio, of the difference, or of `ours` itself where there is no reference.
    std::optional<double> bound;
    Sense sense = Sense::atMost;
};

/// Writes the row as one line of JSON to standard output, at once: a program that dies later has
/// still told what it knew.
void report(const Row& row);

/// The median and the 95th percentile of two series as two rows; of a bound, only where given.
struct SeriesBounds {
    std::optional<double> median;
    std::optional<double> upper;
    double upperPercent = 95;
};
void report(Row row, const Samples& ours, const Samples& reference, const SeriesBounds& bounds);

using BenchClock = std::chrono::steady_clock;

inline double microseconds(BenchClock::duration duration) {
    return std::chrono::duration<double, std::micro>(duration).count();
}
inline double milliseconds(BenchClock::duration duration) {
    return microseconds(duration) / 1000;
}

/// The argument after `option` as a number, or `otherwise`.
int numberOption(int argc, char** argv, const std::string& option, int otherwise);

/// Runs `body` and turns whatever it throws into a line on standard error and exit status 1.
int runBench(const char* name, void (*body)());

}  // namespace nulo
