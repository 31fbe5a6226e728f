#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "rig/process/ChildProcess.h"
#include "rig/process/TemporaryFolder.h"

namespace nulo {

/// A Wayland compositor without a screen, an input device or a graphics card, with a runtime folder
/// of its own. Heavy: one at a time.
class HeadlessCompositor {
  public:
    enum class Kind { sway, kwin, mutter };
    struct Options {
        bool hasXwayland = false;
        /// NAME=value entries for the compositor. KWin and Mutter want a session bus.
        std::vector<std::string> environment = {};
        /// Programs that KWin lets send keys, as installed desktop entries would ask it to.
        std::vector<std::filesystem::path> fakeInputPrograms = {};
        /// Lines of sway's configuration.
        std::string configuration = {};
    };

    /// Returns when clients can connect; throws when they cannot.
    explicit HeadlessCompositor(Kind kind) : HeadlessCompositor(kind, Options{}) {}
    HeadlessCompositor(Kind kind, Options options);
    ~HeadlessCompositor();
    HeadlessCompositor(const HeadlessCompositor&) = delete;
    HeadlessCompositor& operator=(const HeadlessCompositor&) = delete;

    Kind kind() const { return m_kind; }
    /// The socket's path, which serves as $WAYLAND_DISPLAY.
    std::string display() const;
    /// Such as ":7", where there is an XWayland.
    const std::string& xDisplay() const { return m_xDisplay; }
    /// A folder that the programs on it may write to.
    const std::filesystem::path& folder() const { return m_folder.path(); }
    /// For programs that run on it, over this process's; the X server only where there is one.
    std::vector<std::string> environment() const;
    /// As the user whom the compositor runs as, which sway does not as root.
    ChildProcess::Options options(const std::string& log) const;
    std::vector<std::string> command(std::vector<std::string> arguments) const;

    /// sway's own socket.
    std::string swaySocket() const;
    /// What swaymsg answers to such arguments.
    std::string swaymsg(std::vector<std::string> arguments) const;
    /// A PNG of the screen of sway's. Throws when there is none.
    void screenshot(const std::filesystem::path& file) const;
    /// What the compositor said.
    std::string log() const;
    void signal(int number) { m_process->signal(number); }

  private:
    std::string fileThatStartsWith(const std::string& start) const;
    void openFakeInput(const std::vector<std::filesystem::path>& programs,
                       const std::vector<std::string>& environment) const;

    const Kind m_kind;
    TemporaryFolder m_folder;
    std::string m_xDisplay;
    std::optional<ChildProcess> m_process;
};

}  // namespace nulo
