#pragma once

#include <QRect>

struct xcb_connection_t;

namespace nulo {

/// What the desktop's bars leave of the screen whose window has the keyboard, else of the
/// pointer's, else of the primary one; in the toolkit's coordinates, empty without a screen. Waits
/// for the X server's answers. Without a connection the focus and the bars are not known. Main
/// thread, with a QGuiApplication.
QRect visibleFrameOfMainScreen(xcb_connection_t* server);

}  // namespace nulo
