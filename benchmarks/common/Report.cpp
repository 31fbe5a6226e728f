#include "common/Report.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <nlohmann/json.hpp>

namespace nulo {

double Samples::percentile(double percent) const {
    if (m_values.empty())
        return 0;
    std::vector<double> sorted = m_values;
    std::sort(sorted.begin(), sorted.end());
    const double rank = std::ceil(percent / 100 * static_cast<double>(sorted.size()));
    return sorted[static_cast<std::size_t>(std::max(rank, 1.0)) - 1];
}

void report(const Row& row) {
    nlohmann::ordered_json line = {{"figure", row.figure}, {"unit", row.unit}, {"ours", row.ours}};
    double judged = row.ours;
    if (row.reference) {
        line["reference"] = *row.reference;
        line["referenceName"] = row.referenceName;
        const bool isRatio = row.compare == Row::Compare::ratio;
        judged = isRatio ? row.ours / *row.reference : row.ours - *row.reference;
        line[isRatio ? "ratio" : "difference"] = judged;
    }
    if (row.bound) {
        const bool isAtMost = row.sense == Row::Sense::atMost;
        line[isAtMost ? "atMost" : "atLeast"] = *row.bound;
        line["reached"] = isAtMost ? judged <= *row.bound : judged >= *row.bound;
    }
    std::printf("%s\n", line.dump().c_str());
    std::fflush(stdout);
}

void report(Row row, const Samples& ours, const Samples& reference, const SeriesBounds& bounds) {
    const std::string figure = row.figure;
    const auto reportAt = [&](double percent, std::optional<double> bound) {
        char name[16];
        std::snprintf(name, sizeof name, ", p%.0f", percent);
        row.figure = figure + name;
        row.ours = ours.percentile(percent);
        if (reference.count() > 0)
            row.reference = reference.percentile(percent);
        row.bound = bound;
        report(row);
    };
    reportAt(50, bounds.median);
    reportAt(bounds.upperPercent, bounds.upper);
}

int numberOption(int argc, char** argv, const std::string& option, int otherwise) {
    for (int i = 1; i + 1 < argc; ++i)
        if (argv[i] == option)
            return std::max(1, std::atoi(argv[i + 1]));
    return otherwise;
}

int runBench(const char* name, void (*body)()) {
    try {
        body();
        return 0;
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "%s: %s\n", name, failure.what());
        return 1;
    }
}

}  // namespace nulo
