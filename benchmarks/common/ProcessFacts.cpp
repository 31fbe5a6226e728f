#include "common/ProcessFacts.h"

#include <time.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace nulo {
namespace fs = std::filesystem;
namespace {

/// The number after `key` in one of /proc's files of lines; 0 when there is none.
long valueOf(const fs::path& file, const std::string& key) {
    std::ifstream lines(file);
    for (std::string line; std::getline(lines, line);)
        if (line.starts_with(key))
            return std::strtol(line.c_str() + key.size(), nullptr, 10);
    return 0;
}

template <typename Visit>
int forEach(const fs::path& folder, Visit visit) {
    std::error_code error;
    int count = 0;
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
         entry.increment(error), ++count)
        visit(entry->path());
    return count;
}

}  // namespace

ProcessFacts processFacts(pid_t process) {
    const fs::path folder = fs::path("/proc") / std::to_string(process);
    ProcessFacts facts;
    facts.threads = forEach(folder / "task", [&](const fs::path& thread) {
        facts.wakeUps += valueOf(thread / "status", "voluntary_ctxt_switches:");
        std::ifstream children(thread / "children");
        for (pid_t child = 0; children >> child;)
            ++facts.children;
    });
    clockid_t clock{};
    timespec used{};
    if (clock_getcpuclockid(process, &clock) == 0 && clock_gettime(clock, &used) == 0)
        facts.processorSeconds =
            static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) / 1e9;
    facts.memory = valueOf(folder / "smaps_rollup", "Pss:");
    facts.residentMemory = valueOf(folder / "smaps_rollup", "Rss:");
    facts.descriptors = forEach(folder / "fd", [](const fs::path&) {});
    return facts;
}

}  // namespace nulo
