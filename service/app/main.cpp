#include <malloc.h>
#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <optional>
#include <system_error>
#include <thread>

#include "base/Clock.h"
#include "base/HttpUrl.h"
#include "base/Print.h"
#include "base/StandardStreams.h"
#include "service/AudioDecoder.h"
#include "service/GatewayConfig.h"
#include "service/Sha256.h"
#include "service/app/OfflineEngines.h"
#include "service/app/Options.h"
#include "service/app/SpeechApi.h"
#include "service/gateway/GatewayCleanup.h"
#include "service/gateway/GatewayRecogniser.h"
#include "service/http/HttpServer.h"
#include "service/http/ListeningSocket.h"
#include "service/models/ModelsProgram.h"
#include "service/offline/OfflineRecogniser.h"
#include "service/offline/PocketSphinxEngine.h"
#include "service/offline/RuleCleanup.h"

namespace nulo::service {
namespace {

void printError(const std::string& line) {
    std::fputs(("nulo-service: " + line + "\n").c_str(), stderr);
}

void printWarning(std::string_view line) {
    printError(std::string(line));
}

/// Waits for the first SIGINT or SIGTERM; a second one then ends the process at once.
void waitForStopSignal(const sigset_t& signals) {
    int number = 0;
    sigwait(&signals, &number);
    pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
}

/// Fixes the size from which freed memory is given back to the system: the first large recording
/// would raise it otherwise.
void giveMemoryBack() {
    mallopt(M_MMAP_THRESHOLD, 128 * 1024);
}

/// A request in flight holds up to five files: sockets, what wakes its transfer, its recording. A
/// dump of the memory would hold recordings and keys.
void setSystemLimits() {
    const rlimit none{};
    setrlimit(RLIMIT_CORE, &none);
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return;
    limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, std::max<rlim_t>(limit.rlim_cur, 8192));
    setrlimit(RLIMIT_NOFILE, &limit);  // where it is forbidden, fewer are served at once
}

/// Requests by endpoint; what else clients ask for is one series, so that they cannot make more.
void countRequest(Metrics& metrics, const std::string& path, int status,
                  std::chrono::nanoseconds duration, bool brokenOff) {
    std::string endpoint = "other";
    for (const char* known :
         {"/api/transcribe", "/api/chat", "/api/version", "/healthz", "/metrics"})
        if (path == known)
            endpoint = known;
    const std::string label = "path=\"" + endpoint + "\"";
    metrics.add("nulo_requests_total", label + ",status=\"" + std::to_string(status) + "\"");
    metrics.add("nulo_request_seconds_total", label,
                std::chrono::duration<double>(duration).count());
    if (brokenOff)
        metrics.add("nulo_requests_broken_off_total", label);
}

/// The settings that the command line, the configuration and the service manager give together.
struct Setup {
    GatewayConfig config;
    std::string address = "127.0.0.1";
    int port = 8737;
    std::optional<ListeningSocket> inherited;
    std::vector<std::string> tokens;  // digests
    std::optional<TlsIdentity> tls;   // absent: plain HTTP
    std::shared_ptr<OfflineEngines> offline;
};

Result<Setup> setUp(const Options& options) {
    Setup setup;
    auto file = options.configFile;
    if (file.empty()) {
        std::error_code error;
        if (exists(symlink_status(defaultGatewayConfigFile(), error)))
            file = defaultGatewayConfigFile();
    }
    if (!file.empty()) {
        auto config = readGatewayConfig(file, printWarning);
        if (!config)
            return config.error();
        setup.config = std::move(config).value();
        printLine("nulo-service: configured by " + file.string());
    }
    const auto inherited = inheritedSocket();
    if (!inherited)
        return inherited.error();
    setup.inherited = inherited.value();
    setup.address = options.address.value_or(setup.config.address.value_or(setup.address));
    setup.port = options.port.value_or(setup.config.port.value_or(setup.port));
    if (setup.inherited) {
        setup.address = setup.inherited->address;
        setup.port = setup.inherited->port;
    }
    setup.tokens = setup.config.tokens;
    if (!options.tokenFile.empty()) {
        const auto token = readToken(options.tokenFile);
        if (!token)
            return token.error();
        warnIfReadable(options.tokenFile, printWarning);
        setup.tokens.push_back(sha256(token.value()));
    }
    if (const auto allowed = checkReach(setup.address, !setup.tokens.empty()); !allowed)
        return allowed.error();
    setup.offline = std::make_shared<OfflineEngines>(
        setup.config.offline,
        options.modelFolder.empty() ? installedModelFolder() : options.modelFolder, printLine);
    if (const auto chosen = setup.offline->choose(); !chosen)
        return Error{file.string() + ": " + chosen.error().description};
    if (setup.config.tls) {
        auto tls = loadTlsIdentity(*setup.config.tls);
        if (!tls)
            return Error{file.string() + ": " + tls.error().description};
        setup.tls = std::move(tls).value();
    } else if (!isThisMachine(setup.address)) {
        printError("warning: other machines reach " + setup.address +
                   " without encryption; name a tls certificate and key in the configuration, or "
                   "put a proxy in front that adds it");
    }
    return setup;
}

int check(const Options& options) {
    const auto setup = setUp(options);
    if (!setup) {
        printError(setup.error().description);
        return 1;
    }
    for (const std::string& line : descriptionOf(setup.value().config))
        printLine(line);
    printLine(setup.value().offline->description());
    return 0;
}

int serve(const Options& options) {
    auto prepared = setUp(options);
    if (!prepared) {
        printError(prepared.error().description);
        return 1;
    }
    Setup setup = std::move(prepared).value();

    setSystemLimits();
    giveMemoryBack();
    // Blocked before any thread starts, so that they reach the thread that waits for them only.
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    signal(SIGPIPE, SIG_IGN);  // a log that nobody reads any more is no reason to stop

    std::error_code ignored;
    if (!options.updateFolder.empty() &&
        !std::filesystem::is_directory(options.updateFolder, ignored)) {
        printError("--update-dir " + options.updateFolder.string() + " is no folder");
        return 1;
    }

    OfflineEngines& engines = *setup.offline;
    const std::size_t cores = std::max(1U, std::thread::hardware_concurrency());
    // whisper.cpp shares the cores among the takes, and gains nothing from more than two.
    const std::size_t atOnce = engines.usesWhisper() ? std::min<std::size_t>(cores, 2) : cores;
    const std::size_t jobs = options.jobs ? options.jobs : atOnce;
    OfflineRecogniser recogniser([&engines] { return engines.make(); },
                                 {.atOnce = jobs, .waiting = 2 * jobs},
                                 setup.config.offline.language, setup.config.offline.keep,
                                 systemClock(), [&engines] { return engines.isOutdated(); });
    RuleCleanup rules(setup.config.offline.spokenPunctuation);
    Metrics metrics;
    UpstreamClient client({});
    ProviderCalls calls(
        client, systemClock(),
        [](std::chrono::milliseconds duration) { std::this_thread::sleep_for(duration); },
        printLine, metrics, {});
    GatewayRecogniser gatewayRecogniser(setup.config, calls, recogniser);
    GatewayCleanup gatewayCleanup(setup.config, calls, rules);
    SpeechApi api(gatewayRecogniser, gatewayCleanup, RequestGuard(std::move(setup.tokens)),
                  systemClock(), NULO_VERSION, UpdateFolder(options.updateFolder));
    HttpServer server(systemClock(), printLine, {},
                      [&api](const RequestHead& head) { return api.accept(head); });
    const bool isOffline = !transcriptionRoute(setup.config, "", "").provider;
    api.onWarmUp = [&recogniser, isOffline] {
        prepareDecoder();
        if (isOffline)
            recogniser.warmUp();
    };
    api.onMetrics = [&] { return metrics.text(); };
    server.onServed = [&](const std::string& path, int status, std::chrono::nanoseconds duration,
                          bool brokenOff) {
        countRequest(metrics, path, status, duration, brokenOff);
    };
    auto socket = setup.inherited ? Result<ListeningSocket>(*setup.inherited)
                                  : openSocket(setup.address, setup.port);
    if (!socket) {
        printError(socket.error().description);
        return 1;
    }
    setup.port = socket.value().port;
    if (isOffline) {
        // A model of whisper.cpp is known to be the right file; while it is loaded, the first
        // recording arrives.
        if (engines.usesWhisper())
            recogniser.warmUp();
        else if (const auto ready = recogniser.prepare(); !ready) {
            printError(ready.error().description);
            return 1;
        }
        printLine(
            std::string("nulo-service " NULO_VERSION ": offline engine ") +
            (engines.usesWhisper() ? "whisper.cpp" : "PocketSphinx: lower case, no punctuation"));
    }
    if (!setup.config.providers.empty())
        for (const std::string& line : descriptionOf(setup.config))
            printLine(line);
    printLine(engines.description());
    const bool bracketed = setup.address.find(':') != std::string::npos;
    printLine(std::string("Listening on ") + (setup.tls ? "https" : "http") + "://" +
              (bracketed ? "[" + setup.address + "]" : setup.address) + ":" +
              std::to_string(setup.port));
    if (const auto started = server.start(socket.value(), setup.tls); !started) {
        printError(started.error().description);
        return 1;
    }
    std::thread stopper([&] {
        waitForStopSignal(signals);
        printLine("Stopping: finishing what is in flight");
        server.finish();
    });
    server.run();
    stopper.join();
    return 0;
}

}  // namespace
}  // namespace nulo::service

int main(int argumentCount, char** arguments) {
    using namespace nulo;
    using namespace nulo::service;
    secureStandardStreams();
    if (argumentCount > 1 && std::string_view(arguments[1]) == "models")
        return runModels({arguments + 2, arguments + argumentCount});
    const auto options = parsedOptions({arguments + 1, arguments + argumentCount});
    const std::string help(helpText());
    if (!options) {
        printError(options.error().description);
        std::fputs(help.substr(0, help.find('\n') + 1).c_str(), stderr);
        return 2;
    }
    switch (options.value().action) {
        case Options::Action::help:
            std::fputs(help.c_str(), stdout);
            return 0;
        case Options::Action::version:
            printLine("nulo-service " NULO_VERSION);
            return 0;
        case Options::Action::check:
            return check(options.value());
        case Options::Action::serve:
            return serve(options.value());
    }
    return 0;
}
