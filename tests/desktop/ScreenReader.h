#pragma once

#include <QDBusConnection>
#include <QList>
#include <QString>
#include <string>
#include <vector>

#include "rig/process/ChildProcess.h"

namespace nulo {

/// Reads and presses what other programs show, the way a screen reader does: what it does not find,
/// a blind user does not either.
class ScreenReader {
  public:
    /// `environment` names a session bus and is the one that programs get; `busAddress` is that
    /// bus's.
    ScreenReader(const std::vector<std::string>& environment, const std::string& busAddress);
    ~ScreenReader();
    ScreenReader(const ScreenReader&) = delete;
    ScreenReader& operator=(const ScreenReader&) = delete;

    /// By its title.
    bool waitForWindow(const std::string& title) const;
    bool waitForNoWindow() const;
    /// Names of the buttons shown in the window, in reading order.
    std::vector<std::string> buttonsIn(const std::string& window) const;
    /// Presses the button of that name; false when there is none.
    bool press(const std::string& window, const std::string& button) const;

  private:
    struct Node {
        QString program;
        QString path;
        QString name;
        uint role = 0;
    };

    QDBusMessage call(const Node& node, const QString& interface, const QString& method,
                      const QVariantList& arguments = {}) const;
    QList<Node> children(const Node& node) const;
    bool isShowing(const Node& node) const;
    QList<Node> shownWindows() const;
    QList<Node> shownIn(const std::string& window) const;
    void collect(const Node& node, QList<Node>& found) const;

    ChildProcess m_launcher;
    QDBusConnection m_bus;
};

}  // namespace nulo
