#include "update/UpdateChecker.h"

#include <chrono>
#include <system_error>
#include <utility>

#include "base/FileIO.h"
#include "base/HttpUrl.h"
#include "base/PrivateFolder.h"
#include "update/IsNewer.h"

namespace nulo {
namespace {

namespace fs = std::filesystem;

constexpr std::uintmax_t largestArchive = 1024 * 1024 * 1024;
constexpr std::uintmax_t largestScript = 1024 * 1024;
constexpr std::string_view lastCheckKey = "nuloLastUpdateCheck";
constexpr double secondsBetweenSilentChecks = 3600;
/// Gives the script time to see the program that it is to wait for.
constexpr MainQueue::Delay delayBeforeTermination(0.3);

Error fileError(const std::string& what, const std::error_code& reason) {
    return {what + ": " + reason.message()};
}

}  // namespace

UpdateChecker::UpdateChecker(std::string baseURL, std::string currentVersion,
                             Dependencies dependencies)
    : m_baseURL(std::move(baseURL)),
      m_currentVersion(std::move(currentVersion)),
      m_dependencies(std::move(dependencies)) {}

UpdateChecker::~UpdateChecker() {
    if (m_state == State::downloading)
        m_dependencies.windows.closeProgress();
    if (m_state != State::handedOver)
        removeFiles();
}

void UpdateChecker::checkForUpdates(Check check) {
    if (m_state != State::idle) {
        if (check == Check::byUser)
            m_dependencies.windows.bringToFront();
        return;
    }
    const double now =
        std::chrono::duration<double>(m_dependencies.clock.wallTime().time_since_epoch()).count();
    if (check == Check::silent && isRecentlyChecked(now))
        return;
    m_dependencies.defaults.set(lastCheckKey, now);
    m_dependencies.http.get(
        m_baseURL + "/api/version", largestVersionInfo + 1,
        m_lifetime.guard([this, check, round = m_round](const Result<std::string>& body) {
            if (round == m_round)
                finishCheck(check, body);
        }));
}

bool UpdateChecker::isRecentlyChecked(double now) const {
    const double last = m_dependencies.defaults.number(lastCheckKey).value_or(0);
    return last > 0 && now - last < secondsBetweenSilentChecks;
}

void UpdateChecker::finishCheck(Check check, const Result<std::string>& body) {
    const bool isSilent = check == Check::silent;
    if (!body || body.value().empty()) {
        if (!isSilent)
            showError("Impossible de verifier les mises a jour.");
        return;
    }
    // The answer's status does not matter: an error page is no version.
    const auto info = parsedVersionInfo(body.value());
    if (!info) {
        if (!isSilent)
            showError("Reponse invalide du serveur.");
        return;
    }
    if (isNewer(info->version, m_currentVersion))
        showUpdateDialog(*info);
    else if (!isSilent)
        showUpToDate();
}

void UpdateChecker::beginWindow() {
    m_state = State::windowOpen;
    ++m_round;
}

void UpdateChecker::showUpdateDialog(const VersionInfo& info) {
    beginWindow();
    m_dependencies.windows.showUpdateDialog(
        info, m_currentVersion, m_lifetime.guard([this, info](UpdateWindows::Answer answer) {
            m_state = State::idle;
            if (answer == UpdateWindows::Answer::install)
                downloadAndInstall(info);
        }));
}

void UpdateChecker::showUpToDate() {
    beginWindow();
    m_dependencies.windows.showUpToDate(m_currentVersion,
                                        m_lifetime.guard([this] { m_state = State::idle; }));
}

void UpdateChecker::showError(const std::string& message) {
    beginWindow();
    m_dependencies.windows.showError(message, m_lifetime.guard([this] { m_state = State::idle; }));
}

void UpdateChecker::downloadAndInstall(const VersionInfo& info) {
    if (!isSecureHttpUrl(info.downloadUrl))
        return showError("URL de telechargement invalide.");
    m_dependencies.print("Downloading update from " + info.downloadUrl);
    m_state = State::downloading;
    m_dependencies.windows.showProgress(info.version,
                                        m_lifetime.guard([this] { cancelDownload(); }));
    std::error_code ignored;
    const fs::path folder = fs::absolute(m_dependencies.temporaryFolder, ignored);
    m_downloadedFile = folder / ("nulo-download-" + m_dependencies.makeUuid());
    m_dependencies.http.download(
        info.downloadUrl, m_downloadedFile, largestArchive,
        m_lifetime.guard([this, version = info.version](const auto& download) {
            finishDownload(download, version);
        }));
}

void UpdateChecker::cancelDownload() {
    if (m_state != State::downloading)
        return;
    m_state = State::idle;
    m_dependencies.http.cancel();
    removeFiles();
    m_dependencies.windows.closeProgress();
}

void UpdateChecker::finishDownload(const Result<UpdateHttp::Download>& download,
                                   const std::string& version) {
    m_dependencies.windows.closeProgress();
    if (!download) {
        removeFiles();
        return showError("Telechargement echoue : " + download.error().description);
    }
    std::error_code ignored;
    if (!fs::exists(m_downloadedFile, ignored)) {  // temporary folders are tidied up by others
        removeFiles();
        return showError("Telechargement echoue.");
    }
    // The status does not matter here either: an error page is a file too, and what is no archive
    // is for the script to refuse, which keeps the installed version and starts it again.
    installUpdate(version);
}

void UpdateChecker::installUpdate(const std::string& version) {
    m_state = State::installing;
    const auto fail = [this](const Error& error) {
        removeFiles();
        showError("Installation echouee : " + error.description);
    };
    if (const auto prepared = prepareWorkingFolder(); !prepared)
        return fail(prepared.error());
    m_dependencies.print("Downloading updater script...");
    m_dependencies.http.download(
        m_baseURL + "/update.sh", m_workingFolder / "update.sh", largestScript,
        m_lifetime.guard([this, version, fail](const auto& download) {
            if (const auto started = runScript(download, version); !started)
                return fail(started.error());
            m_state = State::handedOver;
            m_dependencies.mainQueue.asyncAfter(delayBeforeTermination, m_lifetime.guard([this] {
                const auto terminate = m_dependencies.terminate;
                terminate();
            }));
        }));
}

Outcome UpdateChecker::prepareWorkingFolder() {
    m_workingFolder = m_downloadedFile.parent_path() / ("nulo-update-" + m_dependencies.makeUuid());
    if (auto made = makePrivateFolder(m_workingFolder); !made)
        return made;
    std::error_code error;
    fs::rename(m_downloadedFile, m_workingFolder / "nulo.zip", error);
    if (error)
        return fileError(m_downloadedFile.string() + " cannot be moved", error);
    m_downloadedFile.clear();
    return Success{};
}

Outcome UpdateChecker::runScript(const Result<UpdateHttp::Download>& download,
                                 const std::string& version) {
    const fs::path script = m_workingFolder / "update.sh";
    // Nobody checks a script but us: an error page, or half a script, would be run in its place,
    // and the program would end without anybody to start it again.
    const bool isWhole = download && download.value().status >= 200 &&
                         download.value().status < 300 && download.value().isWhole;
    if (!isWhole || !readFile(script, largestScript).value_or("").starts_with("#!"))
        return Error{"Script download failed"};
    std::error_code error;
    fs::permissions(script, fs::perms(0755), error);
    if (error)
        return fileError("the permissions of " + script.string() + " cannot be set", error);
    m_dependencies.print("Starting updater script and quitting...");
    return m_dependencies.launcher.launch({"/bin/bash", script.string(), m_workingFolder.string(),
                                           (m_workingFolder / "nulo.zip").string(), version});
}

void UpdateChecker::removeFiles() {
    std::error_code ignored;
    if (!m_downloadedFile.empty())
        fs::remove(m_downloadedFile, ignored);
    if (!m_workingFolder.empty())
        fs::remove_all(m_workingFolder, ignored);
    m_downloadedFile.clear();
    m_workingFolder.clear();
}

}  // namespace nulo
