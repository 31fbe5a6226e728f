#pragma once

#include <QPointer>
#include <QWidget>
#include <memory>

#include "update/UpdateWindows.h"

namespace nulo {

/// The windows of an update. They go with it, without an answer.
class UpdateDialogs final : public UpdateWindows {
  public:
    ~UpdateDialogs() override;

    void showUpdateDialog(const VersionInfo& info, const std::string& currentVersion,
                          std::function<void(Answer)> onAnswer) override;
    void showUpToDate(const std::string& currentVersion, std::function<void()> onClose) override;
    void showError(const std::string& message, std::function<void()> onClose) override;
    void showProgress(const std::string& version, std::function<void()> onCancel) override;
    void closeProgress() override;
    void bringToFront() override;

  private:
    QPointer<QWidget> m_alert;
    std::unique_ptr<QWidget> m_progress;
};

}  // namespace nulo
