#pragma once

#include <QPointer>
#include <QWidget>
#include <memory>

#include "ui/alerts/Alert.h"
#include "update/UpdateWindows.h"

namespace nulo {

/// The windows of an update. They are closed when this object is destroyed, without an answer.
class UpdateDialogs final : public UpdateWindows {
  public:
    /// `alerts` outlives the dialogs.
    explicit UpdateDialogs(const Alerts& alerts) : m_alerts(alerts) {}
    ~UpdateDialogs() override;

    void showUpdateDialog(const VersionInfo& info, const std::string& currentVersion,
                          std::function<void(Answer)> onAnswer) override;
    void showUpToDate(const std::string& currentVersion, std::function<void()> onClose) override;
    void showError(const std::string& message, std::function<void()> onClose) override;
    void showProgress(const std::string& version, std::function<void()> onCancel) override;
    void closeProgress() override;
    void bringToFront() override;

  private:
    const Alerts& m_alerts;
    QPointer<QWidget> m_alert;
    std::unique_ptr<QWidget> m_progress;
};

}  // namespace nulo
