#include <QAbstractButton>
#include <QApplication>
#include <QListView>
#include <QPainter>
#include <QPalette>
#include <QScreen>
#include <QStyleFactory>
#include <QToolButton>
#include <QWidget>
#include <chrono>
#include <cmath>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "Gallery.h"
#include "app/StartUpDialogs.h"
#include "base/Published.h"
#include "platform/Backends.h"
#include "rig/desktop/Screenshot.h"
#include "rig/process/FakeClock.h"
#include "ui/alerts/Alert.h"
#include "ui/alerts/UpdateDialogs.h"
#include "ui/overlay/WaveformWindow.h"
#include "ui/settings/SettingsView.h"

namespace nulo::gallery {
namespace {

/// As a desktop's platform theme gives it.
QPalette paletteOf(bool isDark) {
    const QColor text = isDark ? QColor(0xfc, 0xfc, 0xfc) : QColor(0x23, 0x26, 0x29);
    const QColor window = isDark ? QColor(0x2a, 0x2e, 0x32) : QColor(0xef, 0xf0, 0xf1);
    const QColor base = isDark ? QColor(0x1b, 0x1e, 0x20) : QColor(0xff, 0xff, 0xff);
    const QColor button = isDark ? QColor(0x31, 0x36, 0x3b) : QColor(0xfc, 0xfc, 0xfc);
    const QColor pale(0x7f, 0x8c, 0x8d);
    QPalette palette(button, window);
    for (const auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
        palette.setColor(role, text);
    palette.setColor(QPalette::Base, base);
    palette.setColor(QPalette::Highlight, QColor(0x3d, 0xae, 0xe9));
    palette.setColor(QPalette::HighlightedText, isDark ? text : QColor(Qt::white));
    palette.setColor(QPalette::PlaceholderText, pale);
    for (const auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
        palette.setColor(QPalette::Disabled, role, pale);
    return palette;
}

class Windows {
  public:
    Windows(const std::filesystem::path& folder, const Look& look)
        : m_folder(folder), m_look(look), m_suffix(look.name == "light" ? "" : "-" + look.name) {
        QApplication::setStyle(QStyleFactory::create("Fusion"));
        QFont font(look.font);
        font.setPointSizeF(look.points);
        QApplication::setFont(font);
        QApplication::setPalette(paletteOf(look.isDark));
        QApplication::setLayoutDirection(look.isRightToLeft ? Qt::RightToLeft : Qt::LeftToRight);
        if (isScreenSmall())
            m_suffix += QString("-on-%1x%2")
                            .arg(qRound(screen().width() * qApp->devicePixelRatio()))
                            .arg(qRound(screen().height() * qApp->devicePixelRatio()))
                            .toStdString();
        if (qApp->devicePixelRatio() > 1)
            m_suffix += QString("@%1x").arg(qApp->devicePixelRatio()).toStdString();
    }

    void drawAll() {
        drawSettings();
        if (isScreenSmall())
            return;
        drawManyWords();
        m_alerts.show(loginItemOffer(), [](std::size_t) {});
        saveAndClose("login-item-offer");
        m_alerts.show(accessibilityAlert(), [](std::size_t) {});
        saveAndClose("accessibility");
        drawUpdate();
        if (!m_look.isDark)  // it looks the same in both
            drawOverlay();
    }

  private:
    static QRect visibleFrame() { return QGuiApplication::primaryScreen()->availableGeometry(); }
    static QSize screen() { return QGuiApplication::primaryScreen()->size(); }
    static bool isScreenSmall() { return screen().height() < 700; }

    void drawManyWords() {
        AppConfig config = someonesSettings();
        for (int i = 1; i <= 60; ++i)
            config.dictionary.push_back("Mot " + std::string(std::size_t(i) % 9, 'a') +
                                        std::to_string(i));
        const std::unique_ptr<QWidget> window = makeSettingsWindow(config, {}, visibleFrame());
        window->show();
        save(*window, "settings-many-words");
        window->resize(1000, 900);
        save(*window, "settings-many-words-wide");
        window->close();
    }

    void drawSettings() {
        const SettingsDependencies dependencies{
            .load = [] { return std::nullopt; },
            .onSave = [](const AppConfig&) { return Outcome(Success()); },
            .ask = [this](
                       QWidget& over, const AlertContent& content,
                       auto onAnswer) { m_alerts.showOver(over, content, std::move(onAnswer)); }};
        const std::unique_ptr<QWidget> window =
            makeSettingsWindow(someonesSettings(), dependencies, visibleFrame());
        window->show();
        save(*window, "settings");
        window->resize(window->minimumSize());
        save(*window, "settings-minimum");
        window->resize(580, 620);
        const auto withFocus = [&](QWidget* widget, const char* name) {
            widget->setFocus(Qt::TabFocusReason);
            save(*window, name);
        };
        for (auto* chosen : window->findChildren<QAbstractButton*>())
            if (chosen->isChecked())
                withFocus(chosen, "settings-focus-segment");
        for (auto* list : window->findChildren<QListView*>())
            if (list->accessibleName() == "Modes") {
                list->setFocus();
                list->setCurrentIndex(list->model()->index(5, 0));
            }
        save(*window, "settings-own-mode");
        for (auto* list : window->findChildren<QListView*>())
            if (list->accessibleName() == "Dictionnaire")
                withFocus(list, "settings-focus-chip");
        for (auto* button : window->findChildren<QAbstractButton*>())
            if (button->accessibleName() == "Ajouter le mot")
                withFocus(button, "settings-focus-symbol");
            else if (button->text() == "Enregistrer")
                withFocus(button, "settings-focus-save");
        for (auto* button : window->findChildren<QToolButton*>())
            if (button->accessibleName() == "Supprimer le mode")
                button->click();
        for (QWidget* dialog : QApplication::topLevelWidgets())
            if (dialog != window.get() && dialog->isVisible())
                save(*dialog, "delete-mode");
        window->close();
    }

    void drawUpdate() {
        UpdateDialogs dialogs(m_alerts);
        const VersionInfo info{.version = "1.4.0",
                               .releaseNotes =
                                   "- Mode Espagnol plus naturel\n"
                                   "- Demarrage plus rapide\n"
                                   "- Corrections diverses"};
        dialogs.showUpdateDialog(info, "1.3.2", [](UpdateWindows::Answer) {});
        saveAndClose("update");
        dialogs.showProgress(info.version, [] {});
        saveAndClose("update-progress");
        dialogs.closeProgress();
        dialogs.showError("Le telechargement a echoue : Could not connect to server", [] {});
        saveAndClose("update-error");
    }

    void drawOverlay() {
        const std::unique_ptr<MainQueue> mainQueue = makeQtMainQueue();
        FakeClock clock;  // for the same picture every time
        // The widening's end is where the cursor's blink is brightest.
        constexpr std::chrono::milliseconds brightest(580), widening(200);
        clock.advance(brightest - widening);
        WaveformWindow overlay(*mainQueue, clock, *m_placement);
        Published<std::vector<float>> levels;
        overlay.show(levels);
        std::vector<float> spoken;
        for (int i = 0; i < 53; ++i)  // syllables and pauses
            spoken.push_back(float(std::abs(std::sin(i * 0.55) * std::sin(i * 0.13)) * 0.95));
        levels.set(spoken);
        saveOverlay(*overlay.window(), "overlay-recording");
        overlay.showTranscribing();
        saveOverlay(*overlay.window(), "overlay-transcribing");
        overlay.showStreaming("");
        clock.advance(widening);
        const int panelWidth = overlay.window()->frame().width();
        while (overlay.waveformView()->width() < panelWidth)
            QApplication::processEvents(QEventLoop::WaitForMoreEvents);
        overlay.appendStreamingText(
            "Bonjour Anaïs, la réunion de jeudi est déplacée à quatorze heures. Peux-tu prévenir "
            "l'équipe de Saint-Malo ?");
        saveOverlay(*overlay.window(), "overlay-streaming");
        overlay.showToBePasted();
        saveOverlay(*overlay.window(), "overlay-to-be-pasted");
        overlay.hide();
    }

    static QImage pictureOf(QWidget& window) {
        for (int i = 0; i < 10; ++i)  // layouts settle in a few rounds
            QApplication::processEvents();
        return window.grab().toImage();
    }
    void write(const QImage& picture, const std::string& name) {
        savePicture(picture, m_folder / (name + m_suffix + ".png"));
    }
    void save(QWidget& window, const std::string& name) {
        window.activateWindow();
        write(pictureOf(window), name);
    }
    /// The one window that is open.
    void saveAndClose(const std::string& name) {
        QWidget* open = nullptr;
        for (QWidget* window : QApplication::topLevelWidgets())
            if (window->isVisible())
                open = window;
        if (!open)
            throw std::runtime_error("no window to draw for " + name);
        save(*open, name);
        open->close();
        QApplication::processEvents();
    }
    /// On a piece of a desktop, which shines through.
    void saveOverlay(QWidget& overlay, const std::string& name) {
        const QImage panel = pictureOf(overlay);
        write(on(QColor(0x7d, 0x9b, 0xab), panel), name);
        QImage sheet(panel.width(), 3 * panel.height(), QImage::Format_RGB32);
        QPainter painter(&sheet);
        int y = 0;
        for (const Qt::GlobalColor behind : {Qt::white, Qt::gray, Qt::black}) {
            QImage picture = on(behind, panel);
            picture.setDevicePixelRatio(1);
            painter.drawImage(0, y, picture);
            y += panel.height();
        }
        painter.end();
        write(sheet, name + "-edges");
    }
    static QImage on(const QColor& desktop, const QImage& panel) {
        QImage picture(panel.size(), QImage::Format_RGB32);
        picture.setDevicePixelRatio(panel.devicePixelRatio());
        picture.fill(desktop);
        QPainter(&picture).drawImage(QPointF(), panel);
        return picture;
    }

    const std::unique_ptr<OverlayPlacement> m_placement = makeX11OverlayPlacement();
    const Alerts m_alerts{systemClock(), [this] { return m_placement->visibleFrame(); }};
    const std::filesystem::path m_folder;
    const Look m_look;
    std::string m_suffix;
};

}  // namespace

std::optional<Look> lookNamed(const std::string& name) {
    for (const Look& look : {Look{.name = "light"}, Look{.name = "dark", .isDark = true},
                             Look{.name = "noto", .font = "Noto Sans"},
                             Look{.name = "large", .isDark = true, .points = 13.75},
                             Look{.name = "rtl", .isRightToLeft = true}})
        if (look.name == name)
            return look;
    return std::nullopt;
}

void drawWindows(const std::filesystem::path& folder, const Look& look) {
    Windows(folder, look).drawAll();
}

}  // namespace nulo::gallery
