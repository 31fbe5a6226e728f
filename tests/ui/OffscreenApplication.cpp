#include <gtest/gtest.h>

#include <QApplication>
#include <cstdio>
#include <memory>

namespace nulo {
namespace {

/// Offscreen windows have no opacity, no mask and no order, and say so at each call.
void printButMissingAbilities(QtMsgType, const QMessageLogContext&, const QString& message) {
    if (!message.startsWith("This plugin does not support"))
        std::fprintf(stderr, "%s\n", qPrintable(message));
}

/// What every test of a window needs: an application without a display.
class OffscreenApplication final : public testing::Environment {
  public:
    void SetUp() override {
        qputenv("QT_QPA_PLATFORM", "offscreen");
        m_application = std::make_unique<QApplication>(m_argumentCount, m_arguments);
        qInstallMessageHandler(printButMissingAbilities);
        m_application->setQuitOnLastWindowClosed(false);
    }
    void TearDown() override { m_application.reset(); }

  private:
    char m_name[9] = "ui_tests";
    char* m_arguments[2] = {m_name, nullptr};
    int m_argumentCount = 1;
    std::unique_ptr<QApplication> m_application;
};

[[maybe_unused]] const auto* const environment =
    testing::AddGlobalTestEnvironment(new OffscreenApplication);

}  // namespace
}  // namespace nulo
