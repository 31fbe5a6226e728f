#include <algorithm>

#include "config/ConfigFile.h"
#include "config/PromptMode.h"
#include "fuzz/FuzzedFile.h"

using namespace nulo;

// Whatever the file holds: it is refused and left alone, or it has every built-in mode, and what is
// saved of it is what is loaded again.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const FuzzedFile file(".config/nulo/config.json");
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    file.write(bytes);
    const ConfigFile config(file.home(), [](std::string_view) {});
    config.createDefaultIfNeeded();
    const auto loaded = config.load();
    if (!loaded) {
        std::ifstream stream(file.path(), std::ios::binary);
        const std::string left((std::istreambuf_iterator<char>(stream)), {});
        fuzzingRequires(left == bytes, "a file that was refused was changed");
        return 0;
    }
    for (const PromptMode& builtIn : defaultModes())
        fuzzingRequires(std::count_if(loaded->modes.begin(), loaded->modes.end(),
                                      [&](const auto& mode) { return mode.id == builtIn.id; }) > 0,
                        "a built-in mode is missing");
    static_cast<void>(loaded->activePrompt());
    static_cast<void>(loaded->dictionaryPrompt());
    fuzzingRequires(bool(config.trySave(*loaded)), "what was loaded cannot be saved");
    fuzzingRequires(config.load() == loaded, "what was saved is loaded as something else");
    return 0;
}
