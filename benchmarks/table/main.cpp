// The rows that the bench programs wrote, one JSON object a line on standard input, as a table to
// read; with --json as one JSON document.

#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <vector>

namespace {

using nlohmann::ordered_json;

std::string machine() {
    std::ifstream info("/proc/cpuinfo");
    std::string name = "unknown processor";
    for (std::string line; std::getline(info, line);)
        if (line.starts_with("model name")) {
            name = line.substr(line.find(": ") + 2);
            break;
        }
    return name + ", " + std::to_string(std::thread::hardware_concurrency()) + " cores";
}

std::string today() {
    const std::time_t now = std::time(nullptr);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M UTC", std::gmtime(&now));
    return text;
}

/// Three significant digits, thousands apart.
std::string number(double value) {
    char text[64];
    const double size = std::abs(value);
    std::snprintf(text, sizeof text, "%.*f",
                  size >= 100   ? 0
                  : size >= 10  ? 1
                  : size >= 0.1 ? 2
                                : 3,
                  value);
    std::string digits = text;
    const std::size_t start = digits.find_first_of("0123456789");
    for (std::size_t at = std::min(digits.find('.'), digits.size()); at > start + 3; at -= 3)
        digits.insert(at - 3, ",");
    return digits;
}

/// As wide on the screen as it has characters: all of ours are one column wide.
std::string padded(const std::string& text, std::size_t width) {
    std::size_t length = 0;
    for (const char letter : text)
        length += (static_cast<unsigned char>(letter) & 0xC0) != 0x80;
    return text + std::string(width > length ? width - length : 1, ' ');
}

std::string compared(const ordered_json& row, double value) {
    if (row.contains("ratio"))
        return number(value) + " ×";
    return (row.contains("difference") && value > 0 ? "+" : "") + number(value) + " " +
           row["unit"].get<std::string>();
}

void printTable(const std::vector<ordered_json>& rows) {
    const auto line = [](const std::string& figure, const std::string& ours,
                         const std::string& reference, const std::string& ratio,
                         const std::string& bound) {
        std::printf("| %s| %s| %s| %s| %s|\n", padded(figure, 55).c_str(), padded(ours, 20).c_str(),
                    padded(reference, 20).c_str(), padded(ratio, 12).c_str(),
                    padded(bound, 22).c_str());
    };
    line("figure", "ours", "reference", "compared", "to reach");
    line(std::string(54, '-'), std::string(19, '-'), std::string(19, '-'), std::string(11, '-'),
         std::string(21, '-'));
    for (const ordered_json& row : rows) {
        const std::string unit = " " + row["unit"].get<std::string>();
        std::string ratio = "";
        for (const char* key : {"ratio", "difference"})
            if (row.contains(key))
                ratio = compared(row, row[key].get<double>());
        std::string bound = "";
        for (const char* key : {"atMost", "atLeast"})
            if (row.contains(key))
                bound = std::string(key == std::string("atMost") ? "≤ " : "≥ ") +
                        compared(row, row[key].get<double>()) +
                        (row["reached"].get<bool>() ? "" : ": missed");
        line(row["figure"], number(row["ours"]) + unit,
             row.contains("reference") ? number(row["reference"]) + unit : "", ratio, bound);
    }
    std::printf("\nReferences, measured in the same run:\n");
    std::string last;
    for (const ordered_json& row : rows)
        if (row.contains("referenceName") && row["referenceName"] != last) {
            last = row["referenceName"];
            std::printf("  %s: %s\n", row["figure"].get<std::string>().c_str(), last.c_str());
        }
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<ordered_json> rows;
    for (std::string line; std::getline(std::cin, line);)
        if (ordered_json row = ordered_json::parse(line, nullptr, false); row.is_object())
            rows.push_back(std::move(row));
    if (argc > 1 && std::string(argv[1]) == "--json") {
        const ordered_json document = {{"machine", machine()}, {"date", today()}, {"rows", rows}};
        std::printf("%s\n", document.dump(2).c_str());
        return 0;
    }
    std::printf("%s, %s\n\n", machine().c_str(), today().c_str());
    printTable(rows);
    return 0;
}
