#include "ui/settings/SettingsView.h"

#include <QAccessible>
#include <QCloseEvent>
#include <QDialog>
#include <QHBoxLayout>
#include <QLabel>
#include <QMargins>
#include <QPointer>
#include <QPushButton>
#include <QResizeEvent>
#include <QScreen>
#include <QScrollArea>
#include <QShortcut>
#include <QStyle>
#include <QVBoxLayout>
#include <QWindow>
#include <utility>

#include "ui/MenuWidget.h"
#include "ui/OneLine.h"
#include "ui/WindowStyle.h"
#include "ui/settings/DictionarySection.h"
#include "ui/settings/ModesSection.h"
#include "ui/settings/SettingsModel.h"
#include "ui/settings/Symbols.h"

namespace nulo {
namespace {

constexpr QSize usualSize(580, 620);
constexpr QSize leastSize(550, 560);
// What a window manager puts around the window. It says so only when the window is on the screen,
// where its place is settled already; so this is as much as any of the usual ones takes.
constexpr QMargins windowFrame(6, 40, 6, 6);
constexpr int padding = 20;
const QString notKept = QStringLiteral("Mode inclus : ce changement ne sera pas enregistre.");

/// The content of the settings window: dictionary, modes and, below them, the button that saves.
/// Edits copies; nothing is written before the user asks for it. Main thread.
class SettingsView final : public QWidget {
  public:
    SettingsView(const AppConfig& config, SettingsDependencies dependencies);

    /// Makes the window no larger than `visibleFrame` and its frame allow.
    void fitInto(const QRect& visibleFrame);

  protected:
    void closeEvent(QCloseEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

  private:
    QWidget* makeContent();
    QWidget* makeBottomBar();
    QWidget* makeMenuButton(QWidget* parent);
    void takeShortcutsOfProgramMenu();
    void saveConfig();
    void showStatus(const QString& text, bool isError);
    void edited();
    void askForDeletion();

    SettingsDependencies m_dependencies;
    SettingsModel m_model;
    DictionarySection* m_dictionary = nullptr;
    ModesSection* m_modes = nullptr;
    QLabel* m_status = nullptr;
};

SettingsView::SettingsView(const AppConfig& config, SettingsDependencies dependencies)
    : m_dependencies(std::move(dependencies)), m_model(config) {
    dressWindow(*this);
    auto* scrollArea = new QScrollArea(this);
    scrollArea->setWidgetResizable(true);
    scrollArea->setFocusPolicy(Qt::NoFocus);
    scrollArea->viewport()->setAutoFillBackground(false);
    scrollArea->setWidget(makeContent());
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(scrollArea, 1);
    layout->addWidget(makeLine(Qt::Horizontal, this));
    layout->addWidget(makeBottomBar());
    takeShortcutsOfProgramMenu();
    m_dictionary->newWordField().setFocus();
}

QWidget* SettingsView::makeContent() {
    auto* content = new QWidget;
    content->setObjectName("content");
    m_dictionary = new DictionarySection(m_model, content);
    m_modes = new ModesSection(m_model, content);
    m_modes->onDeletionWanted = [this] { askForDeletion(); };
    auto* layout = new QVBoxLayout(content);
    layout->setContentsMargins(padding, padding - 4, padding, padding - 4);
    layout->setSpacing(12);
    layout->addWidget(m_dictionary);
    layout->addWidget(makeLine(Qt::Horizontal, content));
    layout->addWidget(m_modes, 1);
    m_dictionary->onEdited = [this] { edited(); };
    m_modes->onEdited = [this] { edited(); };
    m_modes->onSelected = [this] {
        if (m_status->text() == notKept)
            showStatus({}, false);
    };
    return content;
}

QWidget* SettingsView::makeBottomBar() {
    auto* bar = new QWidget(this);
    auto* layout = new QHBoxLayout(bar);
    layout->setContentsMargins(padding, 8, padding, 8);
    layout->setSpacing(12);
    if (m_dependencies.showsProgramMenu)
        layout->addWidget(makeMenuButton(bar));
    m_status = makeSecondaryLabel({}, bar);
    m_status->setTextFormat(Qt::PlainText);
    m_status->setMinimumWidth(1);  // a long path must not widen the window
    layout->addWidget(m_status, 1);

    auto* save = new QPushButton("Enregistrer", bar);
    save->setProperty("prominent", true);
    const QKeySequence key(Qt::CTRL | Qt::Key_Return);
    save->setToolTip(key.toString(QKeySequence::NativeText));
    layout->addWidget(save);
    connect(save, &QPushButton::clicked, this, [this] { saveConfig(); });
    // The button's own shortcut would animate a click and save only after that.
    for (const QKeySequence& sequence : {key, QKeySequence(Qt::CTRL | Qt::Key_Enter)})
        connect(new QShortcut(sequence, this), &QShortcut::activated, this,
                [this] { saveConfig(); });
    return bar;
}

void SettingsView::takeShortcutsOfProgramMenu() {
    if (!m_dependencies.programMenu)
        return;
    for (const MenuEntry& entry : m_dependencies.programMenu()) {
        if (entry.shortcut.empty() || !entry.action)
            continue;
        const QKeySequence keys(QString::fromStdString(entry.shortcut));
        // Queued, because the action may destroy the window.
        connect(new QShortcut(keys, this), &QShortcut::activated, this, entry.action,
                Qt::QueuedConnection);
    }
}

QWidget* SettingsView::makeMenuButton(QWidget* parent) {
    auto* button = new SymbolButton(Symbol::menu, "Menu de Nulo", parent);
    auto* menu = new MenuWidget(button);
    connect(button, &QToolButton::clicked, this, [this, button, menu] {
        menu->fill(m_dependencies.programMenu());
        menu->popup(button->mapToGlobal(QPoint(0, -menu->sizeHint().height())));
    });
    return button;
}

void SettingsView::saveConfig() {
    const QPointer<SettingsView> self = this;
    const SettingsDependencies dependencies = m_dependencies;
    const AppConfig config = m_model.recordToSave(dependencies.load());
    const Outcome outcome = dependencies.onSave(config);
    if (!self)
        return;
    if (!outcome)
        return showStatus(
            "Enregistrement impossible : " + QString::fromStdString(outcome.error().description),
            true);
    const bool dropped = m_model.editsAreDropped();
    if (dropped)
        m_modes->showStoredMode();
    showStatus(dropped ? "Enregistre, sauf le changement du mode inclus." : "Enregistre.", false);
}

void SettingsView::showStatus(const QString& text, bool isError) {
    m_status->setText(text);
    m_status->setToolTip(text.toHtmlEscaped());
    m_status->setProperty("error", isError);
    m_status->style()->polish(m_status);  // makes the style sheet look at the property
    if (text.isEmpty())
        return;
    QAccessibleEvent event(m_status, QAccessible::Alert);
    QAccessible::updateAccessibility(&event);
}

void SettingsView::edited() {
    if (m_status->property("error").toBool())
        return;  // the failure stays true until the next try
    const QString status = m_model.editsAreDropped() ? notKept : QString();
    if (m_status->text() != status)
        showStatus(status, false);
}

void SettingsView::askForDeletion() {
    constexpr int shownCharacters = 60;
    const QString name = oneLine(m_model.selectedMode()->name, shownCharacters);
    m_dependencies.ask(*this,
                       {.style = AlertContent::Style::warning,
                        .message = "Supprimer ce mode ?",
                        .informativeText = "Le mode \"" + name.toStdString() + "\" sera supprime.",
                        .buttons = {"Supprimer", "Annuler"},
                        .defaultButton = 1,
                        .destructiveButton = 0},
                       [this](std::size_t button) {
                           if (button == 0)
                               m_modes->deleteSelectedMode();
                       });
}

void SettingsView::fitInto(const QRect& visibleFrame) {
    const QSize room = visibleFrame.marginsRemoved(windowFrame).size();
    setMinimumSize(leastSize.boundedTo(room));
    resize(size().boundedTo(room));
}

void SettingsView::resizeEvent(QResizeEvent* event) {
    QWidget::resizeEvent(event);
    m_dictionary->setMostHeightOfWords(height() / 3);
}

void SettingsView::closeEvent(QCloseEvent* event) {
    for (QDialog* dialog : findChildren<QDialog*>())
        dialog->reject();
    event->accept();
    if (const auto close = m_dependencies.onClose)
        close();
}

}  // namespace

std::unique_ptr<QWidget> makeSettingsWindow(const AppConfig& config,
                                            SettingsDependencies dependencies,
                                            const QRect& visibleFrame) {
    auto window = std::make_unique<SettingsView>(config, std::move(dependencies));
    window->setWindowTitle("Nulo - Reglages");
    window->setWindowFlags(Qt::Window | Qt::WindowTitleHint | Qt::WindowSystemMenuHint |
                           Qt::WindowMinimizeButtonHint | Qt::WindowCloseButtonHint);
    window->setAttribute(Qt::WA_QuitOnClose, false);
    window->resize(usualSize);
    window->fitInto(visibleFrame);
    QRect place(QPoint(), window->size());
    place.moveCenter(visibleFrame.marginsRemoved(windowFrame).center());
    window->setGeometry(place);
    window->winId();  // makes the handle, which tells when the window comes to another screen
    QObject::connect(window->windowHandle(), &QWindow::screenChanged, window.get(),
                     [view = window.get()](const QScreen* screen) {
                         if (screen)
                             view->fitInto(screen->availableGeometry());
                     });
    return window;
}

}  // namespace nulo
