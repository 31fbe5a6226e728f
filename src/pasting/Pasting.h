#pragma once

#include <functional>
#include <string_view>

#include "base/Result.h"

namespace nulo {

/// Where text goes that other programs can paste. Main thread.
class Pasteboard {
  public:
    /// A program asks for the text, which it gets after the call: setString() must wait for that.
    std::function<void()> onRead;

    virtual ~Pasteboard() = default;
    /// Puts UTF-8 text on the clipboard and on the primary selection, replacing what was there.
    virtual void setString(std::string_view text) = 0;
};

/// The keystroke that makes the focused program paste. Main thread.
class PasteKeystroke {
  public:
    /// How a keystroke is getting on; called on any thread, not at all once its maker is gone.
    struct Report {
        /// The keys are about to be sent: no program has acted on them before.
        std::function<void()> onSending;
        /// They were sent; or why they were not and will not be.
        std::function<void(const Outcome&)> onEnd;
    };

    virtual ~PasteKeystroke() = default;
    /// Returns at once; the keys are sent as soon as the user's own are out of the way.
    virtual void post(Report report) = 0;
};

}  // namespace nulo
