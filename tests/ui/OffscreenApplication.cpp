#include <gtest/gtest.h>

#include <QApplication>
#include <cstdio>
#include <optional>

namespace nulo {
namespace {

/// What every test of a window needs: an application without a display.
class OffscreenApplication final : public testing::Environment {
  public:
    void SetUp() override {
        qputenv("QT_QPA_PLATFORM", "offscreen");
        m_application.emplace(m_argumentCount, m_arguments);
        m_application->setQuitOnLastWindowClosed(false);
        // Offscreen windows have no opacity, no mask and no order, and say so at each call.
        qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString& message) {
            if (!message.startsWith("This plugin does not support"))
                std::fprintf(stderr, "%s\n", qPrintable(message));
        });
    }
    void TearDown() override { m_application.reset(); }

  private:
    char m_name[9] = "ui_tests";
    char* m_arguments[2] = {m_name, nullptr};
    int m_argumentCount = 1;
    std::optional<QApplication> m_application;
};

[[maybe_unused]] const auto* const environment =
    testing::AddGlobalTestEnvironment(new OffscreenApplication);

}  // namespace
}  // namespace nulo
