#pragma once

#include <QString>
#include <QWidget>

namespace nulo {

/// Tells that a new version is being downloaded: a text and a busy bar. Its user cannot close it.
class UpdateProgressWindow final : public QWidget {
  public:
    explicit UpdateProgressWindow(const QString& version);

  protected:
    void closeEvent(QCloseEvent* event) override;
};

}  // namespace nulo
