#pragma once

#include <functional>
#include <string>

#include "update/VersionInfo.h"

namespace nulo {

/// What an update shows, one window at a time. Nothing here waits: each answer comes by a callback,
/// once, on the main thread. Main thread.
class UpdateWindows {
  public:
    enum class Answer { install, later };

    virtual ~UpdateWindows() = default;
    virtual void showUpdateDialog(const VersionInfo& info, const std::string& currentVersion,
                                  std::function<void(Answer)> onAnswer) = 0;
    virtual void showUpToDate(const std::string& currentVersion, std::function<void()> onClose) = 0;
    virtual void showError(const std::string& message, std::function<void()> onClose) = 0;
    /// Shows a small window until closeProgress(). `onCancel` is called each time the user wants an
    /// end of the download.
    virtual void showProgress(const std::string& version, std::function<void()> onCancel) = 0;
    virtual void closeProgress() = 0;
    /// Raises the window that is open, if one is.
    virtual void bringToFront() = 0;
};

}  // namespace nulo
