#include "ui/settings/ModesSection.h"

#include <QHBoxLayout>
#include <QVBoxLayout>

#include "ui/WindowStyle.h"

namespace nulo {

ModesSection::ModesSection(SettingsModel& model, QWidget* parent)
    : QWidget(parent), m_model(model) {
    auto* card = makeCard(this);
    auto* cardLayout = new QHBoxLayout(card);
    cardLayout->setContentsMargins(1, 1, 1, 1);  // the card's border
    cardLayout->setSpacing(0);
    cardLayout->addWidget(makeListColumn(card));
    cardLayout->addWidget(makeLine(Qt::Vertical, card));
    m_editor = new ModeEditor(model, card);
    cardLayout->addWidget(m_editor, 1);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(10);
    layout->addWidget(makeTitle("Modes", this));
    layout->addWidget(card, 1);

    m_list->onSelected = [this] {
        showSelectedMode();
        if (const auto selected = onSelected)
            selected();
    };
    m_editor->onEdited = [this] {
        m_list->refreshSelectedRow();
        edited();
    };
    showSelectedMode();
}

QWidget* ModesSection::makeListColumn(QWidget* parent) {
    auto* column = new QWidget(parent);
    column->setSizePolicy(QSizePolicy::Maximum, QSizePolicy::Preferred);
    m_list = new ModeList(m_model, column);
    auto* addButton = new SymbolButton(Symbol::plus, "Ajouter un mode", column);
    m_deleteButton = new SymbolButton(Symbol::minus, "Supprimer le mode", column);

    auto* buttons = new QHBoxLayout;
    buttons->setContentsMargins(6, 4, 6, 4);
    buttons->setSpacing(2);
    buttons->addWidget(addButton);
    buttons->addWidget(m_deleteButton);
    buttons->addStretch();
    auto* layout = new QVBoxLayout(column);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addSpacing(6);
    layout->addWidget(m_list, 1);
    layout->addSpacing(6);
    layout->addWidget(makeLine(Qt::Horizontal, column));
    layout->addLayout(buttons);

    connect(addButton, &QToolButton::clicked, this, [this] { addMode(); });
    connect(m_deleteButton, &QToolButton::clicked, this, [this] {
        if (m_model.canDeleteSelectedMode() && onDeletionWanted)
            onDeletionWanted();
    });
    return column;
}

void ModesSection::addMode() {
    m_list->addMode();
    m_editor->startRenaming();
    edited();
}

void ModesSection::deleteSelectedMode() {
    m_list->deleteSelectedMode();
    m_list->setFocus();
    edited();
}

void ModesSection::showStoredMode() {
    if (const auto row = m_model.selectedRow())
        m_model.selectMode(*row);
    m_editor->showSelectedMode();
}

void ModesSection::showSelectedMode() {
    m_deleteButton->setEnabled(m_model.canDeleteSelectedMode());
    m_editor->showSelectedMode();
}

void ModesSection::edited() {
    if (const auto call = onEdited)
        call();
}

}  // namespace nulo
