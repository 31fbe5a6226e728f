#include <gtest/gtest.h>

#include <QApplication>

#include "support/QtProgram.h"

namespace nulo {
namespace {

/// What every test of a window needs: an application without a display.
class OffscreenApplication final : public testing::Environment {
    void SetUp() override {
        qputenv("QT_QPA_PLATFORM", "offscreen");
        m_program.emplace();
        m_program->application.setQuitOnLastWindowClosed(false);
        // Offscreen windows have no opacity, no mask and no order, and say so at each call.
        qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString& message) {
            if (!message.startsWith("This plugin does not support"))
                std::fprintf(stderr, "%s\n", qPrintable(message));
        });
    }
    void TearDown() override { m_program.reset(); }

    std::optional<QtProgram<QApplication>> m_program;
};

[[maybe_unused]] const auto* const environment =
    testing::AddGlobalTestEnvironment(new OffscreenApplication);

}  // namespace
}  // namespace nulo
