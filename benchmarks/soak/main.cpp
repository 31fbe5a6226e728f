// Dictations in a row on the virtual desktop, against a service that fails at random in every way
// the tests know of. Counts what must not happen (a crash, a stuck key, a file left behind, memory,
// descriptors or threads that grow), and prints what each fault led to.
//
//   bench-soak [--dictations N] [--seed N]

#include <QCoreApplication>
#include <atomic>
#include <cstdio>
#include <fstream>
#include <functional>
#include <map>
#include <random>
#include <thread>

#include "common/ProcessFacts.h"
#include "common/Report.h"
#include "rig/desktop/DesktopSession.h"
#include "rig/http/ScriptedHttpServer.h"
#include "rig/process/WaitUntil.h"

namespace nulo {
namespace {

using namespace std::chrono_literals;
using Client = ScriptedHttpServer::Connection;

const std::string textPasted = "text pasted";
constexpr auto take = 1550ms;  // the shortest take that counts is 1.5 s
int dictations = 1000;
int seed = 1;

std::string event(const std::string& fragment) {
    return R"(data: {"choices":[{"delta":{"content":")" + fragment + "\"}}]}\n\n";
}

const std::string streamHead =
    "HTTP/1.1 200 OK\r\nContent-Type: text/event-stream\r\nTransfer-Encoding: chunked\r\n\r\n";
const std::string endMark = "data: [DONE]\n\n";

/// One way to answer. A form is read before it is called, unless it says otherwise.
struct Fault {
    std::string name;
    std::function<void(Client&)> answer;
    bool readsBody = true;
};

const std::vector<Fault>& faults() {
    const auto whole = [](int status, std::string body, std::vector<std::string> headers = {}) {
        return [=](Client& client) { client.send(httpResponse(status, body, headers)); };
    };
    static const std::vector<Fault> all{
        {"none", whole(200, event("Bonjour") + event(" !") + endMark,
                       {"X-Transcription-Ms: 12", "Content-Type: text/event-stream"})},
        {"slow fragments",
         [](Client& client) {
             client.send(streamHead);
             for (int i = 0; i < 6; ++i) {
                 client.send(httpChunk(event("mot ")));
                 client.pause(80ms);
             }
             client.send(httpChunk(endMark));
             client.send(httpChunk(""));
         }},
        {"one byte at a time",
         [](Client& client) {
             for (const char byte : httpResponse(200, event("été") + endMark)) {
                 client.send({&byte, 1});
                 client.pause(1ms);
             }
         }},
        {"late answer",
         [](Client& client) {
             client.pause(4s);
             client.send(httpResponse(200, event("tard") + endMark));
         }},
        {"empty text", whole(200, endMark)},
        {"empty body", whole(200, "")},
        {"no end mark", whole(200, event("sans fin"))},
        {"wrong shapes", whole(200, "data: {\"choices\":[]}\n\ndata: nonsense\n\ndata: [1]\n\n" +
                                        event("reste") + endMark)},
        {"bytes that are no text", whole(200, "data: \xff\xfe\xc3(\n\n" + endMark)},
        {"deep nesting", whole(200, "data: " + std::string(100'000, '[') + "\n\n" + endMark)},
        {"a megabyte of text", whole(200, event(std::string(1'000'000, 'm')) + endMark)},
        {"401", whole(401, "unknown token")},
        {"429", whole(429, "later", {"Retry-After: 3600"})},
        {"500 with a page", whole(500, "<html>" + std::string(20'000, 'x'))},
        {"redirect elsewhere", whole(302, "", {"Location: http://203.0.113.1/"})},
        {"redirect to itself", whole(307, "", {"Location: /api/transcribe"})},
        {"not HTTP",
         [](Client& client) {
             client.send("SSH-2.0-something\r\n\r\n");
             client.close();
         }},
        {"closed without an answer", [](Client& client) { client.close(); }},
        {"reset without an answer", [](Client& client) { client.reset(); }},
        {"reset during the upload", [](Client& client) { client.reset(); }, false},
        {"closed during the upload",
         [](Client& client) {
             client.receive(100);
             client.close();
         },
         false},
        {"an answer before the upload's end",
         [](Client& client) {
             client.send(httpResponse(413, "too large", {"Connection: close"}));
             client.close();
         },
         false},
        {"reset within the stream",
         [](Client& client) {
             client.send(streamHead + httpChunk(event("moi")));
             client.reset();
         }},
        {"closed within the stream",
         [](Client& client) {
             client.send(streamHead + httpChunk(event("moi")));
             client.close();
         }},
        {"a length that is not kept",
         [](Client& client) {
             client.send("HTTP/1.1 200 OK\r\nContent-Length: 5000\r\n\r\n" + event("court"));
             client.close();
         }},
        {"an endless header",
         [](Client& client) {
             client.send("HTTP/1.1 200 OK\r\nX-Long: " + std::string(400'000, 'h') + "\r\n\r\n");
             client.close();
         }},
    };
    return all;
}

/// What a line of the program says about a dictation; empty when it says nothing.
std::string outcomeIn(const std::string& line) {
    if (line.find("copied:") != std::string::npos || line.find("raw text copied") != line.npos)
        return textPasted;
    const std::size_t failed = line.find("failed");
    if (failed != std::string::npos && !line.starts_with("["))
        return line.substr(0, 72);
    if (line.find("empty text") != std::string::npos)
        return "nothing pasted: empty text";
    if (line.find("too short") != std::string::npos)
        return "discarded as too short";
    return {};
}

/// The program's output from where it was last read.
class Output {
  public:
    explicit Output(const std::filesystem::path& file) : m_file(file) {}

    /// The first later line that `accept` finds something in, and what; empty after the time-out.
    std::string waitFor(const std::function<std::string(const std::string&)>& accept,
                        std::chrono::milliseconds timeout) {
        std::string found;
        waitUntil(
            [&] {
                m_file.clear();
                std::string line;
                while (found.empty() && std::getline(m_file, line)) {
                    if (m_file.eof()) {  // a line of which the rest is still to come
                        m_file.clear();
                        m_file.seekg(-static_cast<std::streamoff>(line.size()), std::ios::cur);
                        return false;
                    }
                    found = accept(line);
                }
                return !found.empty();
            },
            timeout);
        return found;
    }

  private:
    std::ifstream m_file;
};

class Soak {
  public:
    int run() {
        m_desktop.writeServiceFile(m_service.url(), "t0ken");
        m_desktop.startTextWindow();
        m_desktop.startNulo();
        m_output.emplace(m_desktop.home() / "output");
        std::mt19937 random(static_cast<unsigned>(seed));
        const int firstMeasured = std::min(100, std::max(1, dictations / 4));
        ProcessFacts first;
        ProcessFacts last;
        for (m_done = 0; m_done < dictations && m_crashes == 0;) {
            dictate(random);
            ++m_done;
            if (m_done == firstMeasured)
                first = settledFacts();
        }
        last = settledFacts();
        const bool leftFiles = !waitUntil(
            [&] { return std::filesystem::is_empty(m_desktop.recordingsFolder()); }, 15s);
        const bool endsWell = m_crashes == 0 && m_desktop.stopNulo() == 0;
        print(firstMeasured, first, last, leftFiles, endsWell);
        return m_crashes + m_stuckKeys + m_silent + leftFiles + !endsWell > 0 ? 1 : 0;
    }

  private:
    void answer(const ReceivedRequest& request, Client& client) {
        const Fault& fault = faults()[m_fault];
        const bool isForm = request.method == "POST";
        if (isForm && !fault.readsBody)
            return fault.answer(client);
        std::size_t rest =
            std::strtoul(request.header("Content-Length").value_or("0").c_str(), nullptr, 10);
        while (rest > 0) {
            const std::size_t part = client.receive(rest).size();
            if (part == 0)
                return client.close();
            rest -= part;
        }
        if (isForm)
            fault.answer(client);
        else
            client.send(httpResponse(200, ""));
    }

    void dictate(std::mt19937& random) {
        static const char* const modes[] = {"voice-to-text", "raw-transcription", "email"};
        m_fault = static_cast<int>(random() % faults().size());
        m_desktop.writeConfig(random() % 2 ? "openai" : "mistral", modes[random() % 3],
                              random() % 8 == 0);
        m_desktop.pressChord();
        const std::string started = m_output->waitFor(
            [](const std::string& line) {
                return line.starts_with("Recording started") ? line : std::string();
            },
            5s);
        std::this_thread::sleep_for(take);
        m_desktop.releaseChord();
        // Two requests, the second after the first's answer, may each be answered late.
        std::string outcome = m_output->waitFor(outcomeIn, 20s);
        if (outcome.empty()) {
            outcome = started.empty() ? "(did not record)" : "(nothing was said for 20 s)";
            ++m_silent;
            std::fprintf(stderr, "bench-soak: dictation %d, %s: %s\n", m_done + 1,
                         faults()[m_fault].name.c_str(), outcome.c_str());
        }
        ++m_outcomes[faults()[m_fault].name][outcome];
        // The paste follows half a second later, by the device that the user's keys come from here:
        // what that device does meanwhile counts as the paste's, not as a chord.
        if (outcome == textPasted)
            std::this_thread::sleep_for(700ms);
        m_stuckKeys += !waitUntil([&] { return m_desktop.noKeyIsDown(); }, 2s);
        m_crashes += !m_desktop.nulo().isRunning();
    }

    /// Once the last overlay has gone and the last paste is done.
    ProcessFacts settledFacts() {
        std::this_thread::sleep_for(5s);
        return processFacts(m_desktop.nulo().pid());
    }

    void print(int firstMeasured, const ProcessFacts& first, const ProcessFacts& last,
               bool leftFiles, bool endsWell) const {
        std::printf("%d dictations, seed %d\n\n", m_done, seed);
        for (const auto& [fault, outcomes] : m_outcomes) {
            std::printf("%s\n", fault.c_str());
            for (const auto& [outcome, count] : outcomes)
                std::printf("  %4d × %s\n", count, outcome.c_str());
        }
        std::printf(
            "\ncrashes %d, stuck keys %d, dictations without a word %d, files left: %s, %s\n",
            m_crashes, m_stuckKeys, m_silent, leftFiles ? "yes" : "none",
            endsWell ? "ended cleanly" : "did not end cleanly");
        const auto compare = [](const char* what, long from, long to) {
            std::printf("%-12s %8ld → %8ld\n", what, from, to);
        };
        std::printf("after dictation %d → after the last one\n", firstMeasured);
        compare("memory, KB", first.memory, last.memory);
        compare("descriptors", first.descriptors, last.descriptors);
        compare("threads", first.threads, last.threads);
        compare("processes", first.children, last.children);
    }

    std::atomic<int> m_fault = 0;
    ScriptedHttpServer m_service{
        [this](const ReceivedRequest& request, Client& client) { answer(request, client); },
        ScriptedHttpServer::Bodies::leftToTheHandler};
    DesktopSession m_desktop;
    std::optional<Output> m_output;
    std::map<std::string, std::map<std::string, int>> m_outcomes;
    int m_done = 0;
    int m_crashes = 0;
    int m_stuckKeys = 0;
    int m_silent = 0;
};

}  // namespace
}  // namespace nulo

int main(int argc, char** argv) {
    const QCoreApplication application(argc, argv);
    nulo::dictations = nulo::numberOption(argc, argv, "--dictations", nulo::dictations);
    nulo::seed = nulo::numberOption(argc, argv, "--seed", nulo::seed);
    try {
        return nulo::Soak().run();
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "bench-soak: %s\n", failure.what());
        return 1;
    }
}
