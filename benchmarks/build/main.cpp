// How long the program takes to build from nothing.

#include <fstream>
#include <sstream>

#include "common/Report.h"
#include "rig/process/ChildProcess.h"
#include "rig/process/TemporaryFolder.h"

namespace nulo {
namespace {

void runToItsEnd(std::vector<std::string> command, const std::filesystem::path& log) {
    const std::string line = command[0] + " " + command[1];
    ChildProcess process(std::move(command), {{"CCACHE_DISABLE=1"}, log});
    if (process.wait(std::chrono::hours(1)) == 0)
        return;
    std::ostringstream text;
    text << std::ifstream(log).rdbuf();
    throw std::runtime_error(line + " failed:\n" + text.str());
}

void run() {
    const TemporaryFolder folder;
    const std::filesystem::path log = folder / "log";
    const std::string tree = folder / "tree";
    const auto start = BenchClock::now();
    runToItsEnd({"cmake", "--preset=release", "-S", NULO_SOURCE_FOLDER, "-B", tree}, log);
    runToItsEnd({"cmake", "--build", tree, "--target", "nulo"}, log);
    const auto took = BenchClock::now() - start;
    if (!exists(std::filesystem::path(tree) / "bin/nulo"))
        throw std::runtime_error("the build made no program");
    report({.figure = "clean build, compiler cache off",
            .unit = "s",
            .ours = milliseconds(took) / 1000});
}

}  // namespace
}  // namespace nulo

int main() {
    return nulo::runBench("bench-build", nulo::run);
}
