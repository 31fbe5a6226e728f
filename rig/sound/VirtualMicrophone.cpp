#include "rig/sound/VirtualMicrophone.h"

#include <algorithm>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "rig/process/WaitUntil.h"

namespace nulo {

VirtualMicrophone::VirtualMicrophone() {
    std::filesystem::create_directory(m_folder / "home");
    // Rewinds would take back what the microphone has not read yet; and the null sink's own monitor
    // is no microphone to a careful client, a remapped source is.
    std::ofstream(m_folder / "server.pa")
        << "load-module module-native-protocol-unix auth-anonymous=1 socket="
        << (m_folder / "socket").string()
        << "\nload-module module-null-sink sink_name=mic_in rate=48000 channels=1 channel_map=mono"
           " format=float32le norewinds=1\n";
    start();
}

void VirtualMicrophone::start() {
    const std::string home = (m_folder / "home").string();
    ChildProcess::Options options;
    options.environment = {"PULSE_SERVER",
                           "DISPLAY",
                           "DBUS_SESSION_BUS_ADDRESS",
                           "HOME=" + home,
                           "XDG_RUNTIME_DIR=" + home,
                           "XDG_CONFIG_HOME=" + home};
    options.log = m_folder / "log";
    m_process.emplace(
        std::vector<std::string>{"pulseaudio", "-n", "-F", (m_folder / "server.pa").string(),
                                 "--daemonize=no", "--exit-idle-time=-1", "--use-pid-file=no",
                                 "--disable-shm=yes", "--realtime=no", "--high-priority=no"},
        options);
    std::string refusal;
    const bool answers = waitUntil([&] {
        try {
            return control({"get-default-sink"}) == "mic_in\n";
        } catch (const std::runtime_error& error) {
            refusal = error.what();
            return false;
        }
    });
    if (!answers) {
        std::ostringstream log;
        log << std::ifstream(options.log).rdbuf();
        throw std::runtime_error("no sound server: " + refusal + log.str());
    }
    plugMicrophone();
}

void VirtualMicrophone::kill() {
    m_process->signal(SIGKILL);
    m_process->wait(std::chrono::seconds(10));
}

std::string VirtualMicrophone::address() const {
    return "unix:" + (m_folder / "socket").string();
}

std::vector<std::string> VirtualMicrophone::environment() const {
    return {"PULSE_SERVER=" + address(), "PULSE_SINK", "PULSE_SOURCE"};
}

std::unique_ptr<ChildProcess> VirtualMicrophone::play(
    const std::filesystem::path& soundFile) const {
    ChildProcess::Options options;
    options.environment = environment();
    return std::make_unique<ChildProcess>(
        std::vector<std::string>{"paplay", "--device=mic_in", soundFile.string()}, options);
}

void VirtualMicrophone::playTone(int frequency) const {
    control(
        {"load-module", "module-sine", "sink=mic_in", "frequency=" + std::to_string(frequency)});
}

void VirtualMicrophone::plugMicrophone(const std::string& name, int rate) const {
    control({"load-module", "module-remap-source", "source_name=" + name, "master=mic_in.monitor",
             "rate=" + std::to_string(rate), "channels=1", "channel_map=mono"});
    control({"set-default-source", name});
}

void VirtualMicrophone::unplugMicrophone(const std::string& name) const {
    std::istringstream modules(control({"list", "short", "modules"}));
    for (std::string line; std::getline(modules, line);)
        if (line.find("source_name=" + name + " ") != std::string::npos)
            control({"unload-module", line.substr(0, line.find('\t'))});
}

void VirtualMicrophone::suspendMicrophone(bool suspended) const {
    control({"suspend-source", "mic", suspended ? "1" : "0"});
}

int VirtualMicrophone::recordingCount() const {
    const std::string list = control({"list", "short", "source-outputs"});
    int count = 0;
    std::istringstream lines(list);
    // The remapped microphones record from the null sink's monitor themselves.
    for (std::string line; std::getline(lines, line);)
        count += line.find("module-remap-source") == std::string::npos;
    return count;
}

std::string VirtualMicrophone::control(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), "pactl");
    ChildProcess::Options options;
    options.environment = environment();
    return outputOf(std::move(arguments), options);
}

}  // namespace nulo
