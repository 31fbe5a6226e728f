#pragma once

#include <filesystem>
#include <functional>
#include <string>

#include "base/Clock.h"
#include "base/Lifetime.h"
#include "base/MainQueue.h"
#include "base/Print.h"
#include "base/Uuid.h"
#include "desktop/UserDefaults.h"
#include "update/ProcessLauncher.h"
#include "update/UpdateHttp.h"
#include "update/UpdateWindows.h"
#include "update/VersionInfo.h"

namespace nulo {

/// Looks for a newer version, offers it, downloads it and hands over to the updater script. Main
/// thread; no call waits for the network or for the user.
///
/// Checks may overlap. The first answer with something to show answers all that are under way.
/// There is one window at a time: asking again while one is open brings it to the front.
class UpdateChecker {
  public:
    enum class Check { silent, byUser };

    /// Everything referred to outlives the checker.
    struct Dependencies {
        UpdateHttp& http;
        UpdateWindows& windows;
        ProcessLauncher& launcher;
        UserDefaults& defaults;
        const Clock& clock;
        MainQueue& mainQueue;
        Print print;
        std::function<void()> terminate;  // ends the program normally; may return before it does
        std::filesystem::path temporaryFolder;
        std::function<std::string()> makeUuid = randomUuid;
    };

    /// `baseURL` is the service's, without a trailing slash; `currentVersion` the running one.
    UpdateChecker(std::string baseURL, std::string currentVersion, Dependencies dependencies);
    /// Gives up what is under way and leaves no file behind, unless the updater already runs.
    ~UpdateChecker();
    UpdateChecker(const UpdateChecker&) = delete;
    UpdateChecker& operator=(const UpdateChecker&) = delete;

    /// A silent check does nothing within an hour of the last check of either kind, and shows
    /// nothing but a newer version.
    void checkForUpdates(Check check);

  private:
    enum class State {
        idle,        // checks may be under way
        windowOpen,  // an alert waits for the user
        downloading,
        installing,  // the script is being fetched
        handedOver,  // the script runs; the program is about to end
    };

    bool isRecentlyChecked(double now) const;
    void finishCheck(Check check, const Result<std::string>& body);
    void beginWindow();
    void showUpdateDialog(const VersionInfo& info);
    void showUpToDate();
    void showError(const std::string& message);
    void downloadAndInstall(const VersionInfo& info);
    void cancelDownload();
    void finishDownload(const Result<UpdateHttp::Download>& download, const std::string& version);
    void installUpdate(const std::string& version);
    Outcome prepareWorkingFolder();
    Outcome runScript(const Result<UpdateHttp::Download>& download, const std::string& version);
    void removeFiles();

    const std::string m_baseURL;
    const std::string m_currentVersion;
    const Dependencies m_dependencies;
    State m_state = State::idle;
    int m_round = 0;  // raised by each window, which answers all that was asked before
    // Removed at the end of an attempt; empty when there is none.
    std::filesystem::path m_downloadedFile;
    std::filesystem::path m_workingFolder;
    Lifetime m_lifetime;
};

}  // namespace nulo
