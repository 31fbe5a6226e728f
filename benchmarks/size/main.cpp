// What Nulo takes on a disk, and how many libraries it brings into memory.

#include <algorithm>
#include <filesystem>
#include <string>

#include "common/Report.h"
#include "rig/process/ChildProcess.h"
#include "rig/process/TemporaryFolder.h"

namespace nulo {
namespace {

void run() {
    const TemporaryFolder folder;
    const std::string destination = (folder / "root").string();
    outputOf({"cmake", "--install", NULO_BINARY_FOLDER "/..", "--strip", "--prefix", destination});
    double bytes = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(destination))
        if (entry.is_regular_file())
            bytes += static_cast<double>(entry.file_size());
    report({.figure = "installed size", .unit = "MB", .ours = bytes / 1e6});
    const auto librariesOf = [&](const std::string& program) {
        const std::string libraries = outputOf({"ldd", destination + program});
        return static_cast<double>(std::count(libraries.begin(), libraries.end(), '\n'));
    };
    report({.figure = "libraries loaded", .unit = "", .ours = librariesOf("/bin/nulo")});
    report({.figure = "libraries loaded by the encoder, during a take",
            .unit = "",
            .ours = librariesOf("/libexec/nulo-encoder")});
}

}  // namespace
}  // namespace nulo

int main() {
    return nulo::runBench("bench-size", nulo::run);
}
