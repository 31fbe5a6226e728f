#pragma once

class QRect;
class QWidget;

namespace nulo {

/// How the desktop shows the overlay's panel: each window system has a way of its own to keep a
/// window above the others without the keyboard, and to say where it goes. Main thread, with a
/// QApplication. Rectangles are in the toolkit's coordinates.
class OverlayPlacement {
  public:
    virtual ~OverlayPlacement() = default;

    /// What the desktop's bars leave of the main screen: the one whose window has the keyboard,
    /// else the pointer's, else the primary one. Empty without a screen.
    virtual QRect visibleFrame() = 0;
    /// Whether what is behind a window shows through its translucent pixels at the moment.
    virtual bool isComposited() = 0;
    /// Makes the hidden window one that stays above all others, on all desktops, and never gets
    /// the keyboard.
    virtual void prepare(QWidget& window) = 0;
    /// Puts the prepared window where its panel has that frame. Around the panel the window has
    /// `margin` points more, through which clicks reach what is behind.
    virtual void place(QWidget& window, const QRect& panel, int margin) = 0;
    /// How much of the prepared window is seen, 0...1.
    virtual void setOpacity(QWidget& window, double opacity) = 0;
};

}  // namespace nulo
