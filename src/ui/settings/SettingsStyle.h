#pragma once

#include <QColor>
#include <QPalette>
#include <QString>

namespace nulo {

/// The colours of the windows, all derived from the theme's palette so that light, dark and
/// coloured themes keep their character.
struct SettingsColors {
    explicit SettingsColors(const QPalette& palette);

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
SettingsColors settingsColors();

/// How the windows' standard widgets look. Frames with the property "card" are rounded groups,
/// those with "line" hairlines; labels with "secondary" step back; a button with "prominent" or
/// "destructive" stands out.
QString settingsStyleSheet(const SettingsColors& colors);

}  // namespace nulo
