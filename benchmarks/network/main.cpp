// How soon after the release the recording is on its way, over TLS to a server that is 40 ms of
// round trip away: by Nulo, on the connection that it opened when the recording began, beside curl,
// which opens one for it.
//
// Two moments end it. The request is written when the program has handed its last byte to the
// socket; it is sent when that byte leaves the machine, as TCP's slow start allows.

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <QCoreApplication>
#include <atomic>
#include <cmath>
#include <fstream>
#include <functional>
#include <memory>
#include <random>
#include <regex>

#include "app/RecordingPipeline.h"
#include "audio/AudioRecorder.h"
#include "base/FileIO.h"
#include "common/Report.h"
#include "config/ConfigFile.h"
#include "network/DelayedLink.h"
#include "network/SocketWatch.h"
#include "platform/Backends.h"
#include "rig/http/ScriptedHttpServer.h"
#include "rig/process/ChildProcess.h"
#include "rig/process/TemporaryFolder.h"
#include "rig/process/WaitUntil.h"
#include "rig/sound/FakeMicrophone.h"

namespace nulo {
namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;
using Instant = BenchClock::time_point;

constexpr double roundTrip = 40;          // ms
constexpr double roundTripTolerance = 4;  // ms
constexpr const char* token = "a-token-of-no-worth";

int takes = 25;
int seconds = 8;  // spoken in each

/// The companion with TLS, and beside it a provider that answers at once. All of it runs at the end
/// of the link where it is made.
class FarService {
  public:
    FarService() {
        outputOf({"openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2", "-subj",
                  "/CN=localhost", "-addext",
                  std::string("subjectAltName=IP:") + DelayedLink::serverAddress, "-keyout",
                  m_folder / "key.pem", "-out", certificate()});
        std::ofstream(m_folder / "token") << token;
        std::ofstream(m_folder / "nulo-service.json")
            << R"({"tls": {"certificate": "certificate.pem", "key": "key.pem"}, "providers": )"
            << R"({"openai": {"apiKey": "none", "baseURL": ")" << m_provider.url("/v1")
            << R"("}}})";
        m_process = std::make_unique<ChildProcess>(
            std::vector<std::string>{NULO_BINARY_FOLDER "/nulo-service", "--address",
                                     DelayedLink::serverAddress, "--port", "0", "--token-file",
                                     m_folder / "token", "--config",
                                     m_folder / "nulo-service.json"},
            ChildProcess::Options{{}, m_folder / "log"});
        const std::regex marker("Listening on (https://[0-9.]+:(\\d+))\n");
        std::smatch found;
        std::string log;
        if (!waitUntil(
                [&] {
                    log = readFile(m_folder / "log", 1'000'000).value_or("");
                    return std::regex_search(log, found, marker);
                },
                60s))
            throw std::runtime_error("the far service does not start: " + log);
        origin = found[1];
        port = std::stoi(found[2]);
    }

    std::string certificate() const { return m_folder / "certificate.pem"; }

    /// The whole of a recording's request has arrived and nothing is answered yet, so its client
    /// has nothing to say at this moment. On a thread of the service.
    std::function<void()> onRecording;

    std::string origin;
    int port = 0;

  private:
    void answer(const ReceivedRequest& request, ScriptedHttpServer::Connection& connection) {
        if (request.target.ends_with("/transcriptions")) {
            onRecording();
            connection.send(httpResponse(200, "words"));
        } else {
            connection.send(httpResponse(
                200,
                "data: {\"choices\":[{\"delta\":{\"content\":\"words\"}}]}\n\ndata: [DONE]\n\n",
                {"Content-Type: text/event-stream"}));
        }
    }

    const TemporaryFolder m_folder;
    ScriptedHttpServer m_provider{
        [this](const ReceivedRequest& request, auto& connection) { answer(request, connection); }};
    std::unique_ptr<ChildProcess> m_process;
};

/// The text of a dictation; what else the person would see is nobody's business here.
struct Delivery final : DictationOverlay, Pasteboard, PasteKeystroke {
    Panel panel() const override { return 0; }
    void showTranscribing() override {}
    void showStreaming(std::string_view) override {}
    void appendStreamingText(std::string_view) override {}
    void finishStreaming() override {}
    void showToBePasted() override {}
    void showDebugStep(std::string) override {}
    void updateDebugStep(std::string) override {}
    void clearDebugSteps() override {}
    void hide() override {}
    void post(Report report) override {
        report.onSending();
        onRead({});
        report.onEnd(Success{});
    }
    void setString(std::string_view text) override { delivered = text; }
    bool holdsText() const override { return true; }

    std::string delivered;
};

/// The program between its keys and its windows, made of its own parts.
class Program {
  public:
    Program() { m_config.createDefaultIfNeeded(); }

    /// Leaves a copy of the recording. Returns the moment of the release.
    ///
    /// The program keeps its connection for the next take; here each take begins with none, so that
    /// no window grown by an earlier upload helps.
    Instant take(const std::string& origin, const fs::path& copy) {
        TranscriptionService service(origin, {{"Authorization", std::string("Bearer ") + token}},
                                     {.makeSession = makeHttpSession,
                                      .mainQueue = *m_queue,
                                      .clock = systemClock(),
                                      .print = silent,
                                      .log = [this](std::string_view line) { m_log.log(line); }});
        m_pipeline.setTranscriptionService(&service);
        m_delivery.delivered.clear();

        service.warmUpConnection();
        m_recorder.startRecording();
        while (!m_microphone.isRunning())
            QCoreApplication::processEvents();
        speak();
        // As long as a take must last to be kept; the warm-up is over long before.
        waitFor([end = BenchClock::now() + 1600ms] { return BenchClock::now() >= end; });

        const Instant released = BenchClock::now();
        const auto file = m_recorder.stopRecording();
        m_pipeline.processRecording(file, m_delivery.panel());
        if (!file || !fs::copy_file(*file, copy, fs::copy_options::overwrite_existing))
            throw std::runtime_error("a take was not kept");
        if (!waitFor([this] { return !m_delivery.delivered.empty(); }))
            throw std::runtime_error("a dictation led to no text");
        m_pipeline.setTranscriptionService(nullptr);
        return released;
    }

    AppConfig config() const { return m_config.load().value(); }

  private:
    static void silent(std::string_view) {}

    template <typename Condition>
    static bool waitFor(Condition condition) {
        return waitUntil([&] {
            QCoreApplication::processEvents();
            return condition();
        });
    }

    /// Rich enough that the file gets the size that its bit rate promises.
    void speak() {
        constexpr int rate = 48000;
        std::minstd_rand random(1);
        std::vector<float> frames(1024);
        double time = 0;
        for (int buffer = 0; buffer < seconds * rate / 1024; ++buffer) {
            for (float& frame : frames) {
                double sound = static_cast<double>(random() % 1000) / 20000;
                for (int harmonic = 1; harmonic < 20; ++harmonic)
                    sound += 0.2 / harmonic * std::sin(harmonic * (800 * time + std::sin(time)));
                frame = static_cast<float>(sound);
                time += 1.0 / rate;
            }
            m_microphone.capture(frames);
        }
    }

    const TemporaryFolder m_folder;
    const ConfigFile m_config{m_folder.path(), silent};
    const std::unique_ptr<MainQueue> m_queue = makeQtMainQueue();
    FakeMicrophone m_microphone;
    AudioRecorder m_recorder{m_microphone, makeAacFileWriter, *m_queue, systemClock(),
                             silent,       m_folder.path()};
    PipelineLog m_log{m_folder / "logs", systemClock(), silent};
    Delivery m_delivery;
    RecordingPipeline m_pipeline{{.mainQueue = *m_queue,
                                  .clock = systemClock(),
                                  .print = silent,
                                  .log = m_log,
                                  .overlay = m_delivery,
                                  .pasteboard = m_delivery,
                                  .pasteKeystroke = m_delivery,
                                  .loadConfig = [this] { return m_config.load(); },
                                  .onFailure = [](const Notice&) {},
                                  .onSuccess = [] {}}};
};

/// The same request by curl. Returns the moment of its start.
Instant askByCurl(const FarService& far, const AppConfig& config, const fs::path& take) {
    std::vector<std::string> command = {"curl",     "-q",
                                        "-sS",      "--fail",
                                        "--cacert", far.certificate(),
                                        "-H",       std::string("Authorization: Bearer ") + token};
    for (const std::string& field :
         {std::string("provider=openai"), std::string("model=gpt-4o-mini-transcribe"),
          std::string("response_format=text"), "cleanup_prompt=" + config.activePrompt(),
          "cleanup_model=" + config.activeCleanupModel()})
        command.insert(command.end(), {"--form-string", field});
    command.insert(command.end(), {"-F", "file=@" + take.string() + ";type=audio/mp4",
                                   far.origin + "/api/transcribe"});
    const Instant started = BenchClock::now();
    const std::string answer = outputOf(command);
    if (answer.find("words") == std::string::npos)
        throw std::runtime_error("curl got no text: " + answer);
    return started;
}

/// How long a connection takes, in milliseconds.
double connectTime(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    inet_pton(AF_INET, DelayedLink::serverAddress, &address.sin_addr);
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const Instant start = BenchClock::now();
    const int outcome = connect(socket, reinterpret_cast<sockaddr*>(&address), sizeof address);
    const double took = milliseconds(BenchClock::now() - start);
    close(socket);
    if (outcome != 0)
        throw std::runtime_error("the far service cannot be reached");
    return took;
}

void run() {
    const DelayedLink link(20ms);
    link.enter(DelayedLink::End::server);
    FarService far;
    link.enter(DelayedLink::End::client);
    const SocketWatch watch(link, far.port);
    std::atomic<Instant> written;
    std::atomic<Instant> sent;
    far.onRecording = [&] {
        written = watch.lastWrite();
        sent = link.lastDataFromClient();
    };
    setenv("SSL_CERT_FILE", far.certificate().c_str(), 1);
    setenv("no_proxy", "*", 1);

    const TemporaryFolder folder;
    const fs::path take = folder / "take.m4a";
    Program dictation;
    Samples roundTrips, oursWritten, oursSent, curlWritten, curlSent;
    for (int i = 0; i < takes; ++i) {
        roundTrips.add(connectTime(far.port));
        const Instant released = dictation.take(far.origin, take);
        oursWritten.add(milliseconds(written.load() - released));
        oursSent.add(milliseconds(sent.load() - released));
        const Instant started = askByCurl(far, dictation.config(), take);
        curlWritten.add(milliseconds(written.load() - started));
        curlSent.add(milliseconds(sent.load() - started));
    }
    char measured[32];
    std::snprintf(measured, sizeof measured, "%.1f ms", roundTrips.median());
    if (std::abs(roundTrips.median() - roundTrip) > roundTripTolerance)
        throw std::runtime_error("the link's round trip is " + std::string(measured) +
                                 ": this machine is too busy");
    const std::string reference = "curl -F from a cold start with the same file of " +
                                  std::to_string(fs::file_size(take) / 1000) +
                                  " KB, both over TLS on a link with a round trip of " + measured;
    report({.figure = "release → request written to the socket",
            .unit = "ms",
            .referenceName = reference},
           oursWritten, curlWritten, {.median = 1. / 3, .upper = 1. / 3});
    report({.figure = "release → request sent", .unit = "ms", .referenceName = reference}, oursSent,
           curlSent, {});
}

}  // namespace
}  // namespace nulo

int main(int argc, char** argv) {
    const QCoreApplication application(argc, argv);
    nulo::takes = nulo::numberOption(argc, argv, "--takes", nulo::takes);
    nulo::seconds = nulo::numberOption(argc, argv, "--seconds", nulo::seconds);
    return nulo::runBench("bench-network", nulo::run);
}
