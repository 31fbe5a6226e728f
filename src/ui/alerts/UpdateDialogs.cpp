#include "ui/alerts/UpdateDialogs.h"

#include "ui/alerts/UpdateProgressWindow.h"

namespace nulo {

UpdateDialogs::~UpdateDialogs() {
    delete m_alert;
}

void UpdateDialogs::showUpdateDialog(const VersionInfo& info, const std::string& currentVersion,
                                     std::function<void(Answer)> onAnswer) {
    m_alert = m_alerts.show({.style = AlertContent::Style::informational,
                             .message = "Nulo " + info.version + " est disponible",
                             .informativeText = "Vous utilisez la version " + currentVersion +
                                                ".\n\n" + info.releaseNotes,
                             .buttons = {"Installer maintenant", "Plus tard"}},
                            [onAnswer](std::size_t button) {
                                onAnswer(button == 0 ? Answer::install : Answer::later);
                            });
}

void UpdateDialogs::showUpToDate(const std::string& currentVersion, std::function<void()> onClose) {
    m_alert = m_alerts.show(
        {.style = AlertContent::Style::informational,
         .message = "Nulo est a jour",
         .informativeText = "Vous utilisez la derniere version (" + currentVersion + ").",
         .buttons = {"OK"}},
        [onClose](std::size_t) { onClose(); });
}

void UpdateDialogs::showError(const std::string& message, std::function<void()> onClose) {
    m_alert = m_alerts.show({.style = AlertContent::Style::warning,
                             .message = "Erreur de mise a jour",
                             .informativeText = message,
                             .buttons = {"OK"}},
                            [onClose](std::size_t) { onClose(); });
}

void UpdateDialogs::showProgress(const std::string& version, std::function<void()> onCancel) {
    m_progress = std::make_unique<UpdateProgressWindow>(QString::fromStdString(version),
                                                        std::move(onCancel));
    m_alerts.showInFront(*m_progress);
}

void UpdateDialogs::closeProgress() {
    m_progress.reset();
}

void UpdateDialogs::bringToFront() {
    if (m_progress)
        m_alerts.showInFront(*m_progress);
    else if (m_alert && m_alert->isVisible())
        m_alerts.showInFront(*m_alert);
}

}  // namespace nulo
