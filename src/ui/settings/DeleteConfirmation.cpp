#include "ui/settings/DeleteConfirmation.h"

#include <QDialog>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>
#include <utility>

#include "ui/OneLine.h"
#include "ui/WindowStyle.h"

namespace nulo {

void confirmDeletion(QWidget* parent, const std::string& modeName,
                     std::function<void()> onConfirmed) {
    constexpr int shownCharacters = 60;
    auto* dialog = new QDialog(parent);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setAttribute(Qt::WA_QuitOnClose, false);
    dialog->setWindowTitle("Supprimer ce mode ?");
    auto* title = makeTitle("Supprimer ce mode ?", dialog);
    auto* message = new QLabel(dialog);
    message->setTextFormat(Qt::PlainText);
    message->setWordWrap(true);
    message->setText("Le mode \"" + oneLine(modeName, shownCharacters) + "\" sera supprime.");
    dialog->setAccessibleDescription(message->text());
    auto* remove = new QPushButton("Supprimer", dialog);
    remove->setProperty("destructive", true);
    remove->setAutoDefault(false);
    auto* cancel = new QPushButton("Annuler", dialog);
    cancel->setDefault(true);
    cancel->setFocus();

    auto* buttons = new QHBoxLayout;
    buttons->setSpacing(8);
    buttons->addStretch();
    buttons->addWidget(remove);
    buttons->addWidget(cancel);
    auto* layout = new QVBoxLayout(dialog);
    layout->setContentsMargins(20, 18, 20, 16);
    layout->setSpacing(8);
    layout->addWidget(title);
    layout->addWidget(message);
    layout->addSpacing(10);
    layout->addLayout(buttons);
    dialog->setMinimumWidth(340);

    QObject::connect(remove, &QPushButton::clicked, dialog, &QDialog::accept);
    QObject::connect(cancel, &QPushButton::clicked, dialog, &QDialog::reject);
    QObject::connect(dialog, &QDialog::accepted, parent, std::move(onConfirmed));
    dialog->open();
}

}  // namespace nulo
