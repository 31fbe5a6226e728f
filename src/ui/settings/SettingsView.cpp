#include "ui/settings/SettingsView.h"

#include <QAccessible>
#include <QCloseEvent>
#include <QDialog>
#include <QHBoxLayout>
#include <QPointer>
#include <QPushButton>
#include <QScrollArea>
#include <QShortcut>
#include <QStyle>
#include <QVBoxLayout>
#include <utility>

#include "ui/settings/DictionarySection.h"
#include "ui/settings/ModesSection.h"
#include "ui/settings/SettingsLayout.h"
#include "ui/settings/SettingsStyle.h"
#include "ui/settings/SymbolButton.h"
#include "ui/tray/MenuWidget.h"

namespace nulo {
namespace {

constexpr int padding = 20;

}  // namespace

SettingsView::SettingsView(const AppConfig& config, SettingsHost host)
    : m_host(std::move(host)), m_model(config) {
    setMinimumSize(550, 560);
    applyTheme();
    auto* scrollArea = new QScrollArea(this);
    scrollArea->setWidgetResizable(true);
    scrollArea->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    scrollArea->setFocusPolicy(Qt::NoFocus);
    scrollArea->viewport()->setAutoFillBackground(false);
    scrollArea->setWidget(makeContent());
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(scrollArea, 1);
    layout->addWidget(makeLine(Qt::Horizontal, this));
    layout->addWidget(makeBottomBar());
    m_firstField->setFocus();
}

QWidget* SettingsView::makeContent() {
    auto* content = new QWidget;
    content->setObjectName("content");
    auto* dictionary = new DictionarySection(m_model, content);
    auto* modes = new ModesSection(m_model, content);
    auto* layout = new QVBoxLayout(content);
    layout->setContentsMargins(padding, padding - 4, padding, padding - 4);
    layout->setSpacing(14);
    layout->addWidget(dictionary);
    layout->addWidget(makeLine(Qt::Horizontal, content));
    layout->addWidget(modes, 1);
    dictionary->onEdited = [this] { edited(); };
    modes->onEdited = [this] { edited(); };
    m_firstField = &dictionary->newWordField();
    return content;
}

QWidget* SettingsView::makeBottomBar() {
    auto* bar = new QWidget(this);
    auto* layout = new QHBoxLayout(bar);
    layout->setContentsMargins(padding, 8, padding, 8);
    layout->setSpacing(12);
    if (m_host.programMenu)
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
    // Not the button's own shortcut, which would animate a click and save only after that.
    for (const QKeySequence& sequence : {key, QKeySequence(Qt::CTRL | Qt::Key_Enter)})
        connect(new QShortcut(sequence, this), &QShortcut::activated, this,
                [this] { saveConfig(); });
    return bar;
}

QWidget* SettingsView::makeMenuButton(QWidget* parent) {
    auto* button = new SymbolButton(Symbol::menu, "Menu de Nulo", parent);
    auto* menu = new MenuWidget(button);
    connect(button, &QToolButton::clicked, this, [this, button, menu] {
        menu->fill(m_host.programMenu());
        menu->popup(button->mapToGlobal(QPoint(0, -menu->sizeHint().height())));
    });
    return button;
}

void SettingsView::saveConfig() {
    const QPointer<SettingsView> self = this;
    const SettingsHost host = m_host;
    const AppConfig config = m_model.recordToSave(host.load());
    const Outcome outcome = host.onSave(config);
    if (!self)
        return;
    if (outcome)
        showStatus("Enregistre.", false);
    else
        showStatus(
            "Enregistrement impossible : " + QString::fromStdString(outcome.error().description),
            true);
}

void SettingsView::showStatus(const QString& text, bool isError) {
    m_status->setText(text);
    m_status->setToolTip(text.toHtmlEscaped());
    m_status->setProperty("error", isError);
    m_status->style()->polish(m_status);  // or the style sheet would not see the property
    if (text.isEmpty())
        return;
    QAccessibleEvent event(m_status, QAccessible::Alert);
    QAccessible::updateAccessibility(&event);
}

void SettingsView::edited() {
    const bool showsError = m_status->property("error").toBool();
    if (!showsError && !m_status->text().isEmpty())
        showStatus({}, false);  // no longer true; an error is, until the next try
}

void SettingsView::applyTheme() {
    const QString sheet = settingsStyleSheet(settingsColors());
    if (sheet != styleSheet())  // setting one changes palettes, which leads here again
        setStyleSheet(sheet);
}

void SettingsView::changeEvent(QEvent* event) {
    QWidget::changeEvent(event);
    if (event->type() == QEvent::PaletteChange || event->type() == QEvent::ThemeChange)
        applyTheme();
}

void SettingsView::closeEvent(QCloseEvent* event) {
    for (QDialog* dialog : findChildren<QDialog*>())
        dialog->reject();
    event->accept();
    if (const auto close = m_host.onClose)
        close();
}

}  // namespace nulo
