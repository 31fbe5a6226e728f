#pragma once

#include <QImage>
#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "rig/display/HeadlessCompositor.h"
#include "rig/display/VirtualDisplay.h"
#include "rig/display/XTestKeyboard.h"
#include "rig/process/ChildProcess.h"
#include "rig/process/PrivateBus.h"
#include "rig/process/TemporaryFolder.h"
#include "rig/sound/VirtualMicrophone.h"

namespace nulo {

/// A whole private desktop: screen, window manager, session bus, microphone, home folder, a text
/// window that has the focus, and Nulo, run as a person would run it. On sway, the text window is a
/// terminal; KWin and Mutter want one to be brought along, and somebody who presses the chord.
class DesktopSession {
  public:
    enum class Launch {
        later,  // the offers of the first launch were made, the last look for updates was just now
        first,
    };
    enum class Screen { x11, sway, swayWithXwayland, kwin, mutter };
    explicit DesktopSession(Launch launch = Launch::later, Screen screen = Screen::x11);

    const std::filesystem::path& home() const { return m_home.path(); }
    std::filesystem::path pipelineLog() const;
    /// Where the takes are.
    std::filesystem::path recordingsFolder() const { return m_temporary / "nulo"; }

    /// When Nulo last looked for updates, the offers of the first launch having been made. Before
    /// startNulo().
    void setLastUpdateCheck(std::chrono::seconds ago);
    /// Before startNulo().
    void writeServiceFile(const std::string& baseURL, const std::string& token = {});
    /// Replaces config.json; also while Nulo runs.
    void writeConfig(const std::string& provider, const std::string& activeMode,
                     bool debugMode = false);

    /// The text window's program on KWin and Mutter, which gets the file of its text.
    std::string textProgram;
    /// Opens the window and waits until it has the focus.
    void startTextWindow();
    /// Starts the program and waits until it listens to the chord. Throws when it does not.
    void startNulo();
    /// Starts the program once more and waits for its end: its exit status and what it printed.
    std::pair<std::optional<int>, std::string> startNuloAgain(
        const std::vector<std::string>& arguments = {});
    /// Exit status after a SIGTERM.
    std::optional<int> stopNulo();

    /// Presses the chord, plays the sound file into the microphone to its end, lets go.
    void dictate(const std::filesystem::path& soundFile);
    /// Presses the chord and waits until Nulo records.
    void beginTake();
    void pressChord();
    void releaseChord();
    /// What the two do on KWin and Mutter.
    std::function<void(bool isDown)> onChord;

    /// What the text window holds now.
    std::string text() const;
    /// What the clipboard holds now, as another program reads it.
    std::string clipboard() const;
    /// The lines that Nulo has printed so far.
    std::vector<std::string> printed() const;
    /// Waits until a printed line holds `part`; that line, or nothing after the time-out.
    std::optional<std::string> waitForPrinted(
        const std::string& part,
        std::chrono::milliseconds timeout = std::chrono::seconds(20)) const;
    /// No key is down as far as the X server knows.
    bool noKeyIsDown();

    QImage picture() const;
    void screenshot(const std::filesystem::path& file) const;
    VirtualMicrophone& soundServer() { return m_soundServer; }
    /// Not on X11.
    const HeadlessCompositor& compositor() const { return *m_compositor; }
    /// On X11 only, as the keyboard.
    VirtualDisplay& xServer() { return *m_xServer; }
    const VirtualDisplay& xServer() const { return *m_xServer; }
    PrivateBus& bus() { return m_bus; }
    XTestKeyboard& keyboard() { return *m_keyboard; }
    /// Over this process's, for programs that run on the desktop.
    std::vector<std::string> environment() const;
    ChildProcess& nulo() { return *m_nulo; }

  private:
    bool isOnSway() const;
    std::filesystem::path textFile() const;

    TemporaryFolder m_home;
    TemporaryFolder m_temporary;
    PrivateBus m_bus;
    std::optional<VirtualDisplay> m_xServer;
    std::optional<HeadlessCompositor> m_compositor;
    VirtualMicrophone m_soundServer;
    std::optional<XTestKeyboard> m_keyboard;
    std::unique_ptr<ChildProcess> m_swayKeyboard;  // as long as the chord is held
    std::unique_ptr<ChildProcess> m_textWindow;
    std::unique_ptr<ChildProcess> m_nulo;
};

/// A companion service for a test, on a free port.
class CompanionProcess {
  public:
    /// `configuration` is the text of its file; nobody's is used without one.
    explicit CompanionProcess(const std::string& configuration = "{}");
    const std::string& baseURL() const { return m_baseURL; }

  private:
    TemporaryFolder m_folder;
    std::unique_ptr<ChildProcess> m_process;
    std::string m_baseURL;
};

/// Recorded human speech, and what is said in it.
struct RecordedSpeech {
    std::filesystem::path file;
    std::string words;  // lower case, separated by blanks
};
RecordedSpeech recordedSpeech();

}  // namespace nulo
