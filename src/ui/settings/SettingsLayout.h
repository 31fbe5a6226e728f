#pragma once

#include <QFrame>
#include <QLabel>
#include <QString>
#include <QWidget>

/// The plain parts that the settings window's sections are put together from.
namespace nulo {

QLabel* makeTitle(const QString& text, QWidget* parent);
/// Text that steps back, wrapped where it is too long.
QLabel* makeSecondaryLabel(const QString& text, QWidget* parent);
/// The rounded box that a group of controls stands in.
QFrame* makeCard(QWidget* parent);
/// A hairline between what is above and below, or left and right of it.
QFrame* makeLine(Qt::Orientation orientation, QWidget* parent);

}  // namespace nulo
