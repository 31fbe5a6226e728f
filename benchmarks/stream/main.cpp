// How much of the time that an event stream costs is spent on more than what cannot be saved:
// finding the lines and parsing their JSON.

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "common/Report.h"
#include "transcription/CombinedStreamHandler.h"

namespace nulo {
namespace {

constexpr int fragments = 40'000;
constexpr int rounds = 21;
constexpr std::size_t pieceSize = 16 * 1024;  // what the HTTP library hands over at most

/// Runs nothing: what it is given is counted and dropped.
class CountingQueue final : public MainQueue {
  public:
    void async(Work) override { ++count; }
    void asyncAfter(Delay, Work) override { ++count; }
    std::unique_ptr<Timer> every(Delay, Work) override { return nullptr; }

    int count = 0;
};

/// As chat services stream: a fragment of a few letters in an event of some 200 bytes.
std::string eventStream() {
    const char* const words[] = {" le",   " train",  " part", " \\u00e0",
                                 " huit", " heures", " é",    "."};
    std::string body;
    for (int i = 0; i < fragments; ++i)
        body +=
            R"(data: {"id":"chatcmpl-8f3e21","object":"chat.completion.chunk","created":1732000000,)"
            R"("model":"small-latest","choices":[{"index":0,"delta":{"content":")" +
            std::string(words[i % 8]) + R"("},"logprobs":null,"finish_reason":null}]})" + "\n\n";
    return body + "data: [DONE]\n\n";
}

/// In pieces that end at character boundaries, as the session cuts them.
template <typename Take>
void inPieces(std::string_view bytes, Take take) {
    while (!bytes.empty()) {
        std::size_t length = std::min(pieceSize, bytes.size());
        while (length < bytes.size() && (static_cast<unsigned char>(bytes[length]) & 0xC0) == 0x80)
            ++length;
        take(bytes.substr(0, length));
        bytes.remove_prefix(length);
    }
}

int handle(std::string_view body) {
    CountingQueue queue;
    CombinedStreamHandler handler(
        queue, [](std::string_view) {}, nullptr, [](const std::string&) {},
        [](const TextResult&) {});
    handler.didReceiveResponse({200, {}});
    inPieces(body, [&](std::string_view piece) { handler.didReceiveData(piece); });
    handler.didComplete({});
    return queue.count;
}

int splitAndParse(std::string_view body) {
    int parsed = 0;
    while (!body.empty()) {
        const std::size_t end = std::min(body.find('\n'), body.size());
        const std::string_view line = body.substr(0, end);
        body.remove_prefix(std::min(end + 1, body.size()));
        if (line.starts_with("data: {"))
            parsed += nlohmann::json::parse(line.substr(6), nullptr, false).is_object();
    }
    return parsed;
}

void run() {
    const std::string body = eventStream();
    const double megabytes = static_cast<double>(body.size()) / 1e6;
    Samples ours;
    Samples reference;
    for (int round = 0; round < rounds; ++round) {
        const auto start = BenchClock::now();
        const int handled = handle(body);
        const auto middle = BenchClock::now();
        const int parsed = splitAndParse(body);
        const auto end = BenchClock::now();
        if (handled != fragments + 1 || parsed != fragments)
            throw std::runtime_error("the stream was not understood");
        ours.add(megabytes * 1e6 / microseconds(middle - start));
        reference.add(megabytes * 1e6 / microseconds(end - middle));
    }
    report({.figure = "event-stream handler",
            .unit = "MB/s",
            .ours = ours.median(),
            .reference = reference.median(),
            .referenceName = "splitting lines and parsing the JSON alone",
            .bound = 0.8,
            .sense = Row::Sense::atLeast});
    report({.figure = "event-stream handler",
            .unit = "fragments/s",
            .ours = ours.median() / megabytes * fragments,
            .reference = reference.median() / megabytes * fragments,
            .referenceName = "splitting lines and parsing the JSON alone",
            .bound = 0.8,
            .sense = Row::Sense::atLeast});
}

}  // namespace
}  // namespace nulo

int main() {
    return nulo::runBench("bench-stream", nulo::run);
}
