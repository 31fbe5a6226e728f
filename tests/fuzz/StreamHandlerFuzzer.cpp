#include "fakes/FakeMainQueue.h"
#include "fuzz/Fuzz.h"
#include "transcription/CombinedStreamHandler.h"

namespace nulo {
namespace {

/// The fragments that a handler's owner is told, and behind them the results.
using Told = std::vector<std::string>;

Told toldOf(const std::vector<std::string_view>& pieces) {
    Told told;
    FakeMainQueue mainQueue;
    CombinedStreamHandler handler(
        mainQueue, [](std::string_view) {}, nullptr,
        [&](const std::string& fragment) { told.push_back(fragment); },
        [&](const TextResult& result) {
            told.push_back("result: " + (result ? result.value() : describe(result.error())));
        });
    handler.didReceiveResponse({200, {}});
    for (const std::string_view piece : pieces)
        handler.didReceiveData(piece);
    handler.didComplete({});
    mainQueue.runPending();
    return told;
}

}  // namespace

// Cut between characters, valid text must give what it gives in one piece; any bytes at all must
// give one result, and as that result the fragments that were delivered before.
std::string faultIn(std::string_view bytes, std::uint32_t seed) {
    const Told whole = toldOf({bytes});
    for (const std::size_t longest : {1, 7, 1000}) {
        const Told told = toldOf(cut(bytes, seed, longest, true));
        if (isValidUtf8(bytes) && told != whole)
            return "in pieces of at most " + std::to_string(longest) + " bytes it is another text";
        std::string text;
        for (std::size_t i = 0; i + 1 < told.size(); ++i)
            text += told[i];
        if (told.empty() || told.back() != "result: " + trimmed(text))
            return "the result is not what was delivered, once";
    }
    return {};
}

}  // namespace nulo
