// Nulo's start, and what it takes while nothing happens, beside the smallest tray program.

#include <QCoreApplication>
#include <csignal>
#include <fstream>
#include <thread>

#include "common/ProcessFacts.h"
#include "common/Report.h"
#include "rig/desktop/DesktopSession.h"
#include "rig/http/ScriptedHttpServer.h"
#include "rig/process/WaitUntil.h"

namespace nulo {
namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

constexpr int starts = 12;
constexpr auto settling = 6s;  // the looks and offers of the first seconds are over
const std::string minimal = "a minimal tray program with Qt";

int idleSeconds = 60;

/// A program that says when it is ready.
struct Program {
    std::string path;
    std::string readyLine;
};

const Program nuloProgram{NULO_BINARY_FOLDER "/nulo", "Nulo is running."};
const Program minimalProgram{NULO_BINARY_FOLDER "/bench-minimal", "ready"};

class Running {
  public:
    /// Returns once the program is ready.
    Running(const DesktopSession& desktop, const Program& program) : m_log(desktop.home() / "out") {
        fs::remove(m_log);
        const auto start = BenchClock::now();
        m_process =
            std::make_unique<ChildProcess>(std::vector<std::string>{program.path},
                                           ChildProcess::Options{desktop.environment(), m_log});
        while (!hasPrinted(program.readyLine)) {
            if (BenchClock::now() - start > 20s)
                throw std::runtime_error(program.path + " did not get ready");
            std::this_thread::sleep_for(100us);
        }
        startTime = BenchClock::now() - start;
    }
    ~Running() {
        m_process->signal(SIGTERM);
        m_process->wait(10s);
    }
    Running(const Running&) = delete;
    Running& operator=(const Running&) = delete;

    ProcessFacts facts() const { return processFacts(m_process->pid()); }

    BenchClock::duration startTime{};

  private:
    bool hasPrinted(const std::string& start) const {
        std::ifstream lines(m_log);
        for (std::string line; std::getline(lines, line);)
            if (line.starts_with(start))
                return true;
        return false;
    }

    const fs::path m_log;
    std::unique_ptr<ChildProcess> m_process;
};

void measureStarts(const DesktopSession& desktop) {
    Samples ours;
    Samples reference;
    for (int i = 0; i < starts; ++i) {
        ours.add(milliseconds(Running(desktop, nuloProgram).startTime));
        reference.add(milliseconds(Running(desktop, minimalProgram).startTime));
    }
    report({.figure = "start → ready line",
            .unit = "ms",
            .ours = ours.median(),
            .reference = reference.median(),
            .referenceName = minimal,
            .bound = 1.5});
}

void measureIdling(const DesktopSession& desktop) {
    const Running ours(desktop, nuloProgram);
    const Running reference(desktop, minimalProgram);
    std::this_thread::sleep_for(settling);
    const ProcessFacts oursBefore = ours.facts();
    const ProcessFacts referenceBefore = reference.facts();
    std::this_thread::sleep_for(std::chrono::seconds(idleSeconds));
    const ProcessFacts oursAfter = ours.facts();
    const ProcessFacts referenceAfter = reference.facts();

    const std::string time = "idle for " + std::to_string(idleSeconds) + " s: ";
    const int healthChecks = idleSeconds / 5;
    report({.figure = time + "wake-ups",
            .unit = "times",
            .ours = static_cast<double>(oursAfter.wakeUps - oursBefore.wakeUps),
            .reference = static_cast<double>(referenceAfter.wakeUps - referenceBefore.wakeUps),
            .referenceName = minimal,
            .compare = Row::Compare::difference,
            .bound = healthChecks + 5});
    report(
        {.figure = time + "processor time",
         .unit = "ms",
         .ours = (oursAfter.processorSeconds - oursBefore.processorSeconds) * 1000,
         .reference = (referenceAfter.processorSeconds - referenceBefore.processorSeconds) * 1000,
         .referenceName = minimal,
         .compare = Row::Compare::difference});
}

/// Each alone: of two that run at once, one pays half of the other's libraries. What still runs on
/// the machine beside them does that too, so the whole of what is in memory is shown as well.
void measureMemory(const DesktopSession& desktop) {
    const auto facts = [&](const Program& program) {
        const Running running(desktop, program);
        std::this_thread::sleep_for(settling);
        return running.facts();
    };
    const ProcessFacts ours = facts(nuloProgram);
    const ProcessFacts reference = facts(minimalProgram);
    report({.figure = "idle: memory, its share (PSS)",
            .unit = "MB",
            .ours = static_cast<double>(ours.memory) / 1024,
            .reference = static_cast<double>(reference.memory) / 1024,
            .referenceName = minimal,
            .bound = 1.35});
    report({.figure = "idle: memory, all that it maps (RSS)",
            .unit = "MB",
            .ours = static_cast<double>(ours.residentMemory) / 1024,
            .reference = static_cast<double>(reference.residentMemory) / 1024,
            .referenceName = minimal});
}

void run() {
    ScriptedHttpServer service([](const ReceivedRequest&, ScriptedHttpServer::Connection& client) {
        client.send(httpResponse(200, ""));
    });
    DesktopSession desktop;
    desktop.writeServiceFile(service.url());
    measureStarts(desktop);
    measureIdling(desktop);
    measureMemory(desktop);
}

}  // namespace
}  // namespace nulo

int main(int argc, char** argv) {
    const QCoreApplication application(argc, argv);
    nulo::idleSeconds = nulo::numberOption(argc, argv, "--seconds", nulo::idleSeconds);
    return nulo::runBench("bench-idle", nulo::run);
}
