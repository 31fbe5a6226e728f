#pragma once

#include <QColor>
#include <QFrame>
#include <QLabel>
#include <QPalette>
#include <QString>
#include <QWidget>

namespace nulo {

/// The colours of the windows, all derived from the theme's palette so that light, dark and
/// coloured themes keep their character.
struct WindowColors {
    explicit WindowColors(const QPalette& palette);

    QColor window;
    QColor card;  // a group's background
    QColor text;
    QColor secondaryText;
    QColor border;  // of groups and fields, and the lines between sections
    QColor fill;    // of chips and the picker's track
    QColor hover;   // under the pointer
    QColor raised;  // the chosen segment
    QColor accent;  // prominent button, selection; readable under accentText
    QColor focus;   // the ring around what has the keyboard; visible on all of the grounds
    QColor accentText;
    QColor error;
};

/// The colours of the application's present theme.
WindowColors windowColors();

/// Gives a window and the standard widgets in it their look, and gives it anew when the theme
/// changes. Frames with the property "card" are rounded groups, those with "line" hairlines; labels
/// with "secondary" step back; a button with "prominent" or "destructive" stands out.
void dressWindow(QWidget& window);

QLabel* makeTitle(const QString& text, QWidget* parent);
/// Text that steps back, wrapped where it is too long.
QLabel* makeSecondaryLabel(const QString& text, QWidget* parent);
/// The rounded box that a group of controls stands in.
QFrame* makeCard(QWidget* parent);
/// A hairline between what is above and below, or left and right of it.
QFrame* makeLine(Qt::Orientation orientation, QWidget* parent);

}  // namespace nulo
