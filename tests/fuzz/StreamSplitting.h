#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "base/Text.h"
#include "fakes/FakeMainQueue.h"
#include "transcription/CombinedStreamHandler.h"

namespace nulo {

/// What a handler's owner is told about one stream.
struct StreamOutcome {
    std::vector<std::string> fragments;
    std::vector<std::string> results;

    bool operator==(const StreamOutcome&) const = default;
};

inline StreamOutcome outcomeOf(const std::vector<std::string_view>& chunks) {
    StreamOutcome outcome;
    FakeMainQueue mainQueue;
    CombinedStreamHandler handler(
        mainQueue, [](std::string_view) {}, nullptr,
        [&](const std::string& fragment) { outcome.fragments.push_back(fragment); },
        [&](const TextResult& result) {
            outcome.results.push_back(result ? result.value() : describe(result.error()));
        });
    handler.didReceiveResponse({200, {}});
    for (const std::string_view chunk : chunks)
        handler.didReceiveData(chunk);
    handler.didComplete({});
    mainQueue.runPending();
    return outcome;
}

/// `bytes` in pieces of 1 to `longest` bytes, each stretched to the next character boundary.
inline std::vector<std::string_view> split(std::string_view bytes, std::uint32_t seed,
                                           std::uint32_t longest) {
    std::minstd_rand random(seed);
    std::vector<std::string_view> pieces;
    while (!bytes.empty()) {
        std::size_t length = 1 + random() % longest;
        while (length < bytes.size() && (static_cast<unsigned char>(bytes[length]) & 0xC0) == 0x80)
            ++length;
        pieces.push_back(bytes.substr(0, length));
        bytes.remove_prefix(pieces.back().size());
    }
    return pieces;
}

/// What is wrong with how a stream of these bytes is handled; empty when nothing is. Split anywhere
/// between characters, valid text must give what it gives in one piece; any bytes at all must give
/// one result, and as that result the fragments that were delivered before.
inline std::string faultInSplitting(std::string_view bytes, std::uint32_t seed) {
    const StreamOutcome whole = outcomeOf({bytes});
    for (const std::uint32_t longest : {1u, 7u, 1000u}) {
        const StreamOutcome pieces = outcomeOf(split(bytes, seed, longest));
        if (isValidUtf8(bytes) && pieces != whole)
            return "split at random (seed " + std::to_string(seed) + ", at most " +
                   std::to_string(longest) + " bytes), the stream gives something else";
        std::string text;
        for (const std::string& fragment : pieces.fragments)
            text += fragment;
        if (pieces.results != std::vector{trimmed(text)})
            return "the result is not what was delivered, once";
    }
    return {};
}

}  // namespace nulo
