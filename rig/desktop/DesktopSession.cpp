#include "rig/desktop/DesktopSession.h"

#include <sys/stat.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "base/Print.h"
#include "config/ConfigFile.h"
#include "rig/desktop/Screenshot.h"
#include "rig/process/WaitUntil.h"

namespace nulo {
namespace fs = std::filesystem;
namespace {

const fs::path binaries = NULO_BINARY_FOLDER;

std::string contentOf(const fs::path& file) {
    std::ostringstream text;
    text << std::ifstream(file, std::ios::binary).rdbuf();
    return text.str();
}

void require(bool condition, const std::string& failure) {
    if (!condition)
        throw std::runtime_error(failure);
}

}  // namespace

DesktopSession::DesktopSession(Launch launch) : m_xServer(VirtualDisplay::WindowManager::openbox) {
    m_bus.start();
    if (launch == Launch::later)
        setLastUpdateCheck(std::chrono::seconds(0));
}

void DesktopSession::setLastUpdateCheck(std::chrono::seconds ago) {
    const fs::path file = m_home / ".config/nulo/defaults.ini";
    fs::create_directories(file.parent_path());
    const auto then = std::chrono::system_clock::now() - ago;
    std::ofstream(file)
        << "[General]\nnuloHasLaunched=true\nnuloLastUpdateCheck="
        << std::chrono::duration_cast<std::chrono::seconds>(then.time_since_epoch()).count()
        << "\n";
}

fs::path DesktopSession::pipelineLog() const {
    return m_home / "Library/Logs/nulo/pipeline.log";
}

void DesktopSession::writeServiceFile(const std::string& baseURL, const std::string& token) {
    nlohmann::json service = {{"baseURL", baseURL}};
    if (!token.empty())
        service["headers"] = {{"Authorization", "Bearer " + token}};
    const fs::path file = m_home / ".config/nulo/service.json";
    fs::create_directories(file.parent_path());
    std::ofstream(file) << service.dump();
    chmod(file.c_str(), 0600);
}

void DesktopSession::writeConfig(const std::string& provider, const std::string& activeMode,
                                 bool debugMode) {
    AppConfig config = defaultConfig();
    config.transcriptionProvider = provider;
    config.activeMode = activeMode;
    config.debugMode = debugMode;
    config.dictionary = {"Nulo"};
    ConfigFile(m_home.path(), [](std::string_view) {}).save(config);
}

void DesktopSession::startTextWindow() {
    m_textWindow = std::make_unique<ChildProcess>(
        std::vector<std::string>{binaries / "nulo-text-window", "--title", "Letter", "--file",
                                 m_home / "text"},
        ChildProcess::Options{environment(), m_home / "text-window.log"});
    require(waitUntil([&] { return fs::exists(m_home / "text"); }),
            "the text window did not get the focus: " + contentOf(m_home / "text-window.log"));
}

void DesktopSession::startNulo() {
    fs::remove(m_home / "output");
    m_nulo =
        std::make_unique<ChildProcess>(std::vector<std::string>{binaries / "nulo"},
                                       ChildProcess::Options{environment(), m_home / "output"});
    require(waitForPrinted("Nulo is running.").has_value() &&
                waitForPrinted("Global key monitor started").has_value(),
            "Nulo did not start: " + contentOf(m_home / "output"));
}

std::pair<std::optional<int>, std::string> DesktopSession::startNuloAgain(
    const std::vector<std::string>& arguments) {
    const fs::path output = m_home / "second-output";
    fs::remove(output);
    std::vector<std::string> command{binaries / "nulo"};
    command.insert(command.end(), arguments.begin(), arguments.end());
    ChildProcess second(command, {environment(), output});
    const auto status = second.wait(std::chrono::seconds(20));
    return {status, contentOf(output)};
}

std::optional<int> DesktopSession::stopNulo() {
    m_nulo->signal(SIGTERM);
    return m_nulo->wait(std::chrono::seconds(10));
}

void DesktopSession::dictate(const fs::path& soundFile) {
    pressChord();
    require(waitForPrinted("Recording started").has_value(), "recording did not start");
    m_soundServer.play(soundFile)->wait(std::chrono::seconds(60));
    releaseChord();
}

void DesktopSession::pressChord() {
    m_keyboard.press(XTestKeyboard::altLeft);
    m_keyboard.press(XTestKeyboard::space);
}

void DesktopSession::releaseChord() {
    m_keyboard.release(XTestKeyboard::space);
    m_keyboard.release(XTestKeyboard::altLeft);
}

std::string DesktopSession::text() const {
    return contentOf(m_home / "text");
}

std::string DesktopSession::clipboard() const {
    return outputOf({"xclip", "-o", "-selection", "clipboard"}, {environment(), {}});
}

std::vector<std::string> DesktopSession::printed() const {
    std::vector<std::string> lines;
    std::istringstream output(contentOf(m_home / "output"));
    for (std::string line; std::getline(output, line);)
        lines.push_back(line);
    return lines;
}

std::optional<std::string> DesktopSession::waitForPrinted(const std::string& part,
                                                          std::chrono::milliseconds timeout) const {
    std::optional<std::string> found;
    waitUntil(
        [&] {
            for (const std::string& line : printed())
                if (line.find(part) != std::string::npos)
                    found = line;
            return found.has_value();
        },
        timeout);
    return found;
}

bool DesktopSession::noKeyIsDown() {
    return m_keyboard.keysDown().empty();
}

void DesktopSession::screenshot(const fs::path& file) const {
    savePicture(takeScreenshot(m_xServer.display()), file);
}

std::vector<std::string> DesktopSession::environment() const {
    std::vector<std::string> variables = m_soundServer.environment();
    for (const std::string& more :
         {"DISPLAY=" + m_xServer.display(), "HOME=" + m_home.path().string(),
          "TMPDIR=" + m_temporary.path().string(), std::string("WAYLAND_DISPLAY"),
          std::string("XDG_SESSION_TYPE"), "DBUS_SESSION_BUS_ADDRESS=" + m_bus.address(),
          std::string("QT_LINUX_ACCESSIBILITY_ALWAYS_ON=1"), std::string("QT_QPA_PLATFORM"),
          std::string("XDG_CONFIG_HOME"), std::string("LC_ALL=C.UTF-8")})
        variables.push_back(more);
    variables.emplace_back("XDG_STATE_HOME");
    return variables;
}

CompanionProcess::CompanionProcess(const std::string& configuration) {
    const fs::path log = m_folder / "service.log";
    const fs::path file = m_folder / "nulo-service.json";
    std::ofstream(file) << configuration;
    m_process = std::make_unique<ChildProcess>(
        std::vector<std::string>{binaries / "nulo-service", "--port", "0", "--config", file},
        ChildProcess::Options{{}, log});
    const std::string mark = "Listening on ";
    const bool listening = waitUntil([&] {
        const std::string text = contentOf(log);
        const std::size_t at = text.find(mark);
        if (at != std::string::npos && text.find('\n', at) != std::string::npos)
            m_baseURL = text.substr(at + mark.size(),
                                    text.find_first_of(" \n", at + mark.size()) - at - mark.size());
        return !m_baseURL.empty() || !m_process->isRunning();
    });
    require(listening && !m_baseURL.empty(), "nulo-service did not start: " + contentOf(log));
}

RecordedSpeech recordedSpeech() {
    const fs::path folder = "/usr/share/pocketsphinx/test/data/librivox";
    return {folder / "sense_and_sensibility_01_austen_64kb-0870.wav",
            "and mister john dashwood had then leisure to consider how much there might be "
            "prudently in his power to do for them"};
}

}  // namespace nulo
