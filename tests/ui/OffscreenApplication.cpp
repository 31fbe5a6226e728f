#include <gtest/gtest.h>

#include <QApplication>

namespace nulo {
namespace {

/// What every test of a window needs: an application without a display.
class OffscreenApplication final : public testing::Environment {
    void SetUp() override {
        static int argumentCount = 1;
        static char name[] = "tests", *arguments[] = {name, nullptr};
        qputenv("QT_QPA_PLATFORM", "offscreen");
        m_application = std::make_unique<QApplication>(argumentCount, arguments);
        m_application->setQuitOnLastWindowClosed(false);
        // Offscreen windows have no opacity, no mask and no order, and say so at each call.
        qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString& message) {
            if (!message.startsWith("This plugin does not support"))
                std::fprintf(stderr, "%s\n", qPrintable(message));
        });
    }
    void TearDown() override { m_application.reset(); }

    std::unique_ptr<QApplication> m_application;
};

[[maybe_unused]] const auto* const environment =
    testing::AddGlobalTestEnvironment(new OffscreenApplication);

}  // namespace
}  // namespace nulo
