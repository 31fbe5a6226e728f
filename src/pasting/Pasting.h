#pragma once

#include <cstdint>
#include <functional>
#include <string_view>

#include "base/Result.h"

namespace nulo {

/// A program that asks for the text on the clipboard.
struct PasteboardReader {
    /// Tells programs apart while they run; 0 where it is not known which one asks.
    std::uint32_t program = 0;
    /// Whether the keyboard is known to be its own.
    bool hasFocus = false;
};

/// Takes the text that other programs can paste. Main thread.
class Pasteboard {
  public:
    /// Called when a program asks for the text. The program gets it after the call, so setString()
    /// must wait.
    std::function<void(const PasteboardReader&)> onRead;

    virtual ~Pasteboard() = default;
    /// Puts UTF-8 text on the clipboard and on the primary selection, replacing what was there.
    virtual void setString(std::string_view text) = 0;
    /// Whether programs that paste still come here, on both selections: false as soon as this
    /// program hears that another one has put something in the text's place.
    virtual bool holdsText() const = 0;
};

/// The keystroke that makes the focused program paste. Main thread.
class PasteKeystroke {
  public:
    /// Told how a keystroke gets on: on any thread, and not at all once the PasteKeystroke is gone.
    struct Report {
        /// The keys are about to be sent: no program has acted on them before.
        std::function<void()> onSending;
        /// The keys were sent; or the reason why they were not and will not be.
        std::function<void(const Outcome&)> onEnd;
    };

    virtual ~PasteKeystroke() = default;
    /// Whether keys can be sent in this session at all.
    virtual bool isPossible() const { return true; }
    /// Returns at once; the keys are sent as soon as the user's own are out of the way.
    virtual void post(Report report) = 0;
};

}  // namespace nulo
