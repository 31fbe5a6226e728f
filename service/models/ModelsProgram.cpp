#include "service/models/ModelsProgram.h"

#include <signal.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdio>
#include <system_error>

#include "base/Print.h"
#include "service/GatewayConfig.h"
#include "service/models/ModelsCommand.h"

namespace nulo::service {
namespace {

volatile sig_atomic_t interrupted = 0;

void printError(std::string_view line) {
    std::fputs(("nulo-service: " + std::string(line) + "\n").c_str(), stderr);
}

/// The first one leaves things in order; the second one ends the process at once.
void watchSignals() {
    struct sigaction action {};
    action.sa_handler = [](int) { interrupted = 1; };
    action.sa_flags = SA_RESETHAND;
    for (const int number : {SIGINT, SIGTERM, SIGHUP})
        sigaction(number, &action, nullptr);
    signal(SIGXFSZ, SIG_IGN);  // a file that may not grow fails to be written instead
}

unsigned terminalColumns() {
    winsize size{};
    if (isatty(STDOUT_FILENO) == 0)
        return 0;
    return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

Result<OfflineSettings> settingsOf(const ModelsOptions& options) {
    auto file = options.configFile;
    if (file.empty()) {
        std::error_code error;
        file = defaultGatewayConfigFile();
        if (!exists(symlink_status(file, error)))
            return OfflineSettings{};
    }
    const auto config = readGatewayConfig(file, printError);
    return config ? Result<OfflineSettings>(config.value().offline) : config.error();
}

}  // namespace

int runModels(const std::vector<std::string>& arguments) {
    const auto options = parsedModelsOptions(arguments);
    if (!options) {
        printError(options.error().description);
        std::fputs(std::string(modelsHelpText()).c_str(), stderr);
        return 2;
    }
    auto settings = settingsOf(options.value());
    if (!settings) {
        printError(settings.error().description);
        return 1;
    }
    watchSignals();
    ModelsCommand command(
        ModelFolder(defaultModelFolder()), std::move(settings).value(), machineMemory(), {},
        systemClock(),
        [](std::string_view bytes) {
            std::fwrite(bytes.data(), 1, bytes.size(), stdout);
            std::fflush(stdout);
        },
        terminalColumns());
    const auto outcome = command.run(options.value(), [] { return interrupted == 0; });
    if (outcome)
        return 0;
    printError(outcome.error().text);
    return static_cast<int>(outcome.error().kind);
}

}  // namespace nulo::service
