#include <pthread.h>
#include <signal.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <optional>
#include <system_error>
#include <thread>

#include "base/Clock.h"
#include "base/Print.h"
#include "service/HttpServer.h"
#include "service/InheritedSocket.h"
#include "service/OfflineRecogniser.h"
#include "service/Options.h"
#include "service/PocketSphinxEngine.h"
#include "service/RuleCleanup.h"
#include "service/SpeechApi.h"

namespace nulo::service {
namespace {

void printError(const std::string& line) {
    std::fputs(("nulo-service: " + line + "\n").c_str(), stderr);
}

void warnOfReadableToken(const std::filesystem::path& file) {
    struct stat facts {};
    if (stat(file.c_str(), &facts) == 0 && (facts.st_mode & (S_IRGRP | S_IROTH)) != 0)
        printError("warning: others can read the token file " + file.string() + "; chmod 600 it");
}

/// Waits for the first SIGINT or SIGTERM; a second one then ends the process at once.
void waitForStopSignal(const sigset_t& signals) {
    int number = 0;
    sigwait(&signals, &number);
    pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
}

int serve(Options options) {
    const auto inherited = inheritedSocket();
    if (!inherited) {
        printError(inherited.error().description);
        return 1;
    }
    if (const auto& socket = inherited.value()) {
        options.address = socket->address;
        options.port = socket->port;
        if (const auto allowed = checkReach(options); !allowed) {
            printError(allowed.error().description);
            return 1;
        }
    }

    // Blocked before any thread starts, so that they reach the thread that waits for them only.
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    signal(SIGPIPE, SIG_IGN);  // a log that nobody reads any more is no reason to stop

    std::optional<std::string> token;
    if (!options.tokenFile.empty()) {
        auto read = readToken(options.tokenFile);
        if (!read) {
            printError(read.error().description);
            return 1;
        }
        warnOfReadableToken(options.tokenFile);
        token = std::move(read).value();
    }

    std::error_code ignored;
    if (!options.updateFolder.empty() &&
        !std::filesystem::is_directory(options.updateFolder, ignored)) {
        printError("--update-dir " + options.updateFolder.string() + " is no folder");
        return 1;
    }

    const auto model = options.modelFolder.empty() ? installedModelFolder() : options.modelFolder;
    const std::size_t cores = std::max(1U, std::thread::hardware_concurrency());
    const std::size_t jobs = options.jobs ? options.jobs : cores;
    OfflineRecogniser recogniser([model] { return makePocketSphinxEngine(model); },
                                 {.atOnce = jobs, .waiting = 2 * jobs});
    RuleCleanup cleanup;
    SpeechApi api(recogniser, cleanup, RequestGuard(std::move(token)), systemClock(), NULO_VERSION,
                  UpdateFolder(options.updateFolder));
    HttpServer server(systemClock(), printLine, {});
    api.attachTo(server);
    if (inherited.value()) {
        server.listenOn(*inherited.value());
    } else {
        const auto port = server.listenOn(options.address, options.port);
        if (!port) {
            printError(port.error().description);
            return 1;
        }
        options.port = port.value();
    }
    if (const auto ready = recogniser.prepare(); !ready) {
        printError(ready.error().description);
        return 1;
    }
    printLine(
        "nulo-service " NULO_VERSION
        ": offline engine PocketSphinx, US English only, lower case, no punctuation, about one "
        "word in four wrong on read speech");
    const bool bracketed = options.address.find(':') != std::string::npos;
    printLine("Listening on http://" + (bracketed ? "[" + options.address + "]" : options.address) +
              ":" + std::to_string(options.port));
    std::atomic<bool> asked = false;
    std::thread stopper([&] {
        waitForStopSignal(signals);
        asked = true;
        printLine("Stopping: finishing what is in flight");
        server.finish();
    });
    server.run();
    const bool failed = !asked;
    if (failed) {
        printError("the system accepts no more connections");
        // Every thread blocks the signal: it only wakes the one that waits for it.
        // NOLINTNEXTLINE(bugprone-bad-signal-to-kill-thread)
        pthread_kill(stopper.native_handle(), SIGTERM);
    }
    stopper.join();
    return failed ? 1 : 0;
}

}  // namespace
}  // namespace nulo::service

int main(int argumentCount, char** arguments) {
    using namespace nulo;
    using namespace nulo::service;
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
        case Options::Action::serve:
            return serve(options.value());
    }
    return 0;
}
