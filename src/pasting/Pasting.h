#pragma once

#include <string_view>

namespace nulo {

/// Where text goes that other programs can paste. Main thread.
class Pasteboard {
  public:
    virtual ~Pasteboard() = default;
    /// Puts UTF-8 text on the clipboard and on the primary selection, replacing what was there.
    virtual void setString(std::string_view text) = 0;
};

/// The keystroke that makes the focused program paste. Main thread.
class PasteKeystroke {
  public:
    virtual ~PasteKeystroke() = default;
    /// Returns at once; the keys are sent as soon as the user's own are out of the way.
    virtual void post() = 0;
};

}  // namespace nulo
