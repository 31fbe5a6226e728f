#pragma once

#include <signal.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "rig/process/ChildProcess.h"
#include "rig/process/TemporaryFolder.h"

namespace nulo {

/// A private PulseAudio without hardware: what is played into it, its virtual microphone "mic"
/// hears. Killed with all its clients' playing at the end. Failing commands throw.
class VirtualMicrophone {
  public:
    /// Starts the server and waits until it answers, with the microphone plugged in.
    VirtualMicrophone();

    /// NAME=value entries that lead a client, started later, to this server.
    std::vector<std::string> environment() const;
    /// The value of $PULSE_SERVER; also right before start() and after kill().
    std::string address() const;

    /// Plays a sound file into the microphone; destroying the process stops it.
    std::unique_ptr<ChildProcess> play(const std::filesystem::path& soundFile) const;
    /// Plays a sine tone into the microphone until the server ends.
    void playTone(int frequency) const;

    /// Further microphones may be plugged in under other names; the newest is the default one.
    void plugMicrophone(const std::string& name = "mic", int rate = 48000) const;
    void unplugMicrophone(const std::string& name = "mic") const;
    /// A suspended microphone delivers nothing.
    void suspendMicrophone(bool suspended) const;
    /// How many recordings the server knows of, as the desktop's indicator would show.
    int recordingCount() const;

    void kill();
    void start();
    void freeze() { m_process->signal(SIGSTOP); }
    void thaw() { m_process->signal(SIGCONT); }

  private:
    std::string control(std::vector<std::string> arguments) const;

    TemporaryFolder m_folder;
    std::optional<ChildProcess> m_process;
};

}  // namespace nulo
