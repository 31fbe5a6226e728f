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

HeadlessCompositor::Kind kindOf(DesktopSession::Screen screen) {
    switch (screen) {
        case DesktopSession::Screen::kwin:
            return HeadlessCompositor::Kind::kwin;
        case DesktopSession::Screen::mutter:
            return HeadlessCompositor::Kind::mutter;
        default:
            return HeadlessCompositor::Kind::sway;
    }
}

}  // namespace

DesktopSession::DesktopSession(Launch launch, Screen screen) {
    m_bus.start();
    if (screen == Screen::x11) {
        m_xServer.emplace(VirtualDisplay::WindowManager::openbox);
        m_keyboard.emplace();
    } else {
        m_compositor.emplace(
            kindOf(screen),
            HeadlessCompositor::Options{
                .hasXwayland = screen != Screen::sway,
                .environment = {"DBUS_SESSION_BUS_ADDRESS=" + m_bus.address()},
                .fakeInputPrograms = {fs::read_symlink("/proc/self/exe"), binaries / "nulo"},
                .configuration = "output * bg #3a6ea5 solid_color\n"
                                 "for_window [app_id=foot] floating enable, resize set "
                                 "640 320, move position 320 120\n"});
    }
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

bool DesktopSession::isOnSway() const {
    return m_compositor && m_compositor->kind() == HeadlessCompositor::Kind::sway;
}

fs::path DesktopSession::textFile() const {
    return (isOnSway() ? m_compositor->folder() : m_home.path()) / "text";
}

void DesktopSession::startTextWindow() {
    if (isOnSway()) {
        m_textWindow = std::make_unique<ChildProcess>(
            m_compositor->command({"foot", "--override=font=monospace:size=11", "sh", "-c",
                                   "stty -echo -icanon; exec tee " + textFile().string()}),
            m_compositor->options("foot.log"));
        require(waitUntil([&] {
                    return fs::exists(textFile()) &&
                           m_compositor->swaymsg({"-t", "get_tree"}).find("\"app_id\": \"foot\"") !=
                               std::string::npos;
                }),
                "the terminal did not open: " + m_compositor->log());
        return;
    }
    std::vector<std::string> command{binaries / "nulo-text-window", "--title", "Letter", "--file"};
    if (m_compositor)
        command = {textProgram};
    command.push_back(textFile());
    m_textWindow = std::make_unique<ChildProcess>(
        command, ChildProcess::Options{environment(), m_home / "text-window.log"});
    require(waitUntil([&] { return fs::exists(textFile()); }),
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

void DesktopSession::beginTake() {
    const auto takes = [this] {
        const auto lines = printed();
        return std::count_if(lines.begin(), lines.end(), [](const std::string& line) {
            return line.starts_with("Recording started");
        });
    };
    const auto before = takes();
    pressChord();
    require(waitUntil([&] { return takes() > before; }), "recording did not start");
}

void DesktopSession::dictate(const fs::path& soundFile) {
    beginTake();
    m_soundServer.play(soundFile)->wait(std::chrono::seconds(60));
    releaseChord();
}

void DesktopSession::pressChord() {
    if (onChord)
        return onChord(true);
    if (m_compositor) {
        m_swayKeyboard = std::make_unique<ChildProcess>(
            m_compositor->command({"wtype", "-M", "alt", "-P", "space", "-s", "600000"}),
            m_compositor->options("wtype.log"));
        return;
    }
    m_keyboard->press(XTestKeyboard::altLeft);
    m_keyboard->press(XTestKeyboard::space);
}

void DesktopSession::releaseChord() {
    if (onChord)
        return onChord(false);
    if (m_compositor)
        return m_swayKeyboard.reset();  // a keyboard that is gone holds no keys
    m_keyboard->release(XTestKeyboard::space);
    m_keyboard->release(XTestKeyboard::altLeft);
}

std::string DesktopSession::text() const {
    return contentOf(textFile());
}

std::string DesktopSession::clipboard() const {
    if (isOnSway())
        return outputOf(m_compositor->command({"timeout", "60", "wl-paste", "--no-newline"}),
                        {m_compositor->environment(), {}});
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
    return m_compositor ? !m_swayKeyboard : m_keyboard->keysDown().empty();
}

QImage DesktopSession::picture() const {
    if (!m_compositor)
        return takeScreenshot(m_xServer->display());
    m_compositor->screenshot(m_temporary / "screen.png");
    return QImage((m_temporary / "screen.png").c_str());
}

void DesktopSession::screenshot(const fs::path& file) const {
    savePicture(picture(), file);
}

std::vector<std::string> DesktopSession::environment() const {
    std::vector<std::string> variables = m_soundServer.environment();
    const std::vector<std::string> screen =
        m_compositor ? m_compositor->environment()
                     : std::vector<std::string>{"DISPLAY=" + m_xServer->display(),
                                                "WAYLAND_DISPLAY", "XDG_SESSION_TYPE"};
    variables.insert(variables.end(), screen.begin(), screen.end());
    for (const std::string& more :
         {"HOME=" + m_home.path().string(), "TMPDIR=" + m_temporary.path().string(),
          std::string("XDG_RUNTIME_DIR"), "DBUS_SESSION_BUS_ADDRESS=" + m_bus.address(),
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
