#include "ui/settings/ModeEditor.h"

#include <QLabel>
#include <QSignalBlocker>
#include <QTextDocument>
#include <QVBoxLayout>

#include "ui/WindowStyle.h"

namespace nulo {
namespace {

constexpr int leastLines = 3;  // of a prompt

/// The text as it was typed. toPlainText() would make ordinary spaces of the no-break spaces that
/// French writes before a colon.
std::string typedText(const QPlainTextEdit& editor) {
    QString text = editor.document()->toRawText();
    for (QChar& character : text)
        if (character == QChar::ParagraphSeparator || character == QChar::LineSeparator)
            character = '\n';
    return text.toStdString();
}

QLabel* makeFieldLabel(const QString& text, QWidget* buddy) {
    auto* label = new QLabel(text);
    label->setBuddy(buddy);
    return label;
}

}  // namespace

ModeEditor::ModeEditor(SettingsModel& model, QWidget* parent)
    : QStackedWidget(parent), m_model(model), m_form(makeForm()) {
    auto* nothingSelected = makeSecondaryLabel("Selectionnez un mode", this);
    nothingSelected->setAlignment(Qt::AlignCenter);
    m_nothingSelected = nothingSelected;
    addWidget(m_form);
    addWidget(m_nothingSelected);
    showSelectedMode();
}

QWidget* ModeEditor::makeForm() {
    auto* form = new QWidget(this);
    m_name = new PasteableTextField(PasteableTextField::Kind::plain, {}, form);
    m_name->field().setAccessibleName("Nom du mode");
    m_prompt = new QPlainTextEdit(form);
    m_prompt->setAccessibleName("Prompt");
    m_prompt->setTabChangesFocus(true);
    m_prompt->setMinimumHeight(leastLines * m_prompt->fontMetrics().lineSpacing() + 16);
    m_prompt->setSizePolicy(QSizePolicy::Expanding,
                            QSizePolicy::Ignored);  // takes what is left over
    auto* note =
        makeSecondaryLabel("Ce mode retourne la transcription brute sans reformulation.", form);
    note->setAlignment(Qt::AlignLeft | Qt::AlignTop);
    m_promptNote = note;
    m_cleanupModel = new SegmentedPicker(
        {{"Mistral Small", "mistral"}, {"OpenAI GPT-5.4 mini", "openai"}}, form);
    m_cleanupModel->setAccessibleName("Reformulation");

    auto* layout = new QVBoxLayout(form);
    layout->setContentsMargins(14, 10, 14, 12);
    layout->setSpacing(5);
    layout->addWidget(makeFieldLabel("Nom du mode", &m_name->field()));
    layout->addWidget(m_name);
    layout->addSpacing(8);
    layout->addWidget(makeFieldLabel("Prompt", m_prompt));
    layout->addWidget(m_prompt, 1);
    layout->addWidget(m_promptNote, 1);
    layout->addSpacing(8);
    layout->addWidget(makeFieldLabel("Reformulation", &m_cleanupModel->firstButton()));
    layout->addWidget(m_cleanupModel);

    m_name->onTextChanged = [this](const QString& text) {
        m_model.editName(text.toStdString());
        edited();
    };
    connect(m_prompt, &QPlainTextEdit::textChanged, this, [this] {
        m_model.editPrompt(typedText(*m_prompt));
        edited();
    });
    m_cleanupModel->onValueChanged = [this](const std::string& value) {
        m_model.editCleanupModel(value);
        edited();
    };
    return form;
}

void ModeEditor::showSelectedMode() {
    const PromptMode* mode = m_model.selectedMode();
    setCurrentWidget(mode ? m_form : m_nothingSelected);
    if (!mode)
        return;
    m_name->setText(QString::fromStdString(m_model.editedName()));
    m_name->setEnabled(!mode->isBuiltIn);
    {
        const QSignalBlocker blocker(m_prompt);  // showing a prompt is no edit
        m_prompt->setPlainText(QString::fromStdString(m_model.editedPrompt()));
    }
    const bool isRaw = mode->id == rawTranscriptionMode().id;
    m_prompt->setVisible(!isRaw);
    m_promptNote->setVisible(isRaw);
    m_cleanupModel->setValue(m_model.editedCleanupModel());
}

void ModeEditor::startRenaming() {
    m_name->field().setFocus();
    m_name->field().selectAll();
}

void ModeEditor::edited() {
    if (const auto call = onEdited)
        call();
}

}  // namespace nulo
