#include "ui/settings/DictionarySection.h"

#include <QHBoxLayout>
#include <QVBoxLayout>

#include "ui/WindowStyle.h"
#include "ui/settings/Symbols.h"

namespace nulo {

DictionarySection::DictionarySection(SettingsModel& model, QWidget* parent)
    : QWidget(parent), m_model(model) {
    auto* card = makeCard(this);
    m_chips = new WordChips(model.words(), card);
    m_chips->setVisible(!model.words().empty());
    m_newWord = new PasteableTextField(PasteableTextField::Kind::plain, "Ajouter un mot...", card);
    m_newWord->field().setAccessibleName("Ajouter un mot");
    auto* addButton = new SymbolButton(Symbol::plus, "Ajouter le mot", card);

    auto* newWordRow = new QHBoxLayout;
    newWordRow->setContentsMargins(WordChips::chipMargin, 0, WordChips::chipMargin, 0);
    newWordRow->setSpacing(6);
    newWordRow->addWidget(m_newWord);
    newWordRow->addWidget(addButton);
    auto* cardLayout = new QVBoxLayout(card);
    constexpr int sidePadding = 12 - WordChips::chipMargin;
    cardLayout->setContentsMargins(sidePadding, 10, sidePadding, 11);
    cardLayout->setSpacing(8);
    cardLayout->addWidget(m_chips);
    cardLayout->addLayout(newWordRow);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(4);
    layout->addWidget(makeTitle("Dictionnaire", this));
    layout->addWidget(
        makeSecondaryLabel("Mots que la reconnaissance vocale doit connaitre (noms "
                           "propres, acronymes...)",
                           this));
    layout->addSpacing(6);
    layout->addWidget(card);

    m_chips->onRemove = [this](int row) { removeWord(row); };
    m_newWord->onSubmit = [this] { addWord(); };
    connect(addButton, &QToolButton::clicked, this, [this] { addWord(); });
}

void DictionarySection::addWord() {
    if (!m_model.addWord(m_newWord->text().toStdString()))
        return;
    m_chips->show();
    m_chips->appendWord(m_model.words().back());
    m_newWord->setText({});
    edited();
}

void DictionarySection::removeWord(int row) {
    const auto removed = m_model.removeWord(static_cast<std::size_t>(row));
    if (!removed)
        return;
    m_chips->removeRow(static_cast<int>(*removed));
    if (m_model.words().empty()) {
        m_newWord->setFocus();
        m_chips->hide();
    }
    edited();
}

void DictionarySection::edited() {
    if (const auto call = onEdited)
        call();
}

}  // namespace nulo
