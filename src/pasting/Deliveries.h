#pragma once

#include <deque>
#include <functional>

#include "base/Lifetime.h"
#include "base/MainQueue.h"
#include "base/Result.h"
#include "pasting/Pasting.h"

namespace nulo {

/// Brings texts into the focused program one after the other. The keystroke may have to wait for
/// the user's fingers, and the program fetches the text after it: until both are over, another text
/// on the clipboard would be pasted in place of this one. Main thread.
class Deliveries {
  public:
    /// All references outlive the deliveries, which take over the pasteboard's onRead.
    Deliveries(MainQueue& mainQueue, Pasteboard& pasteboard, PasteKeystroke& pasteKeystroke);
    ~Deliveries();
    Deliveries(const Deliveries&) = delete;
    Deliveries& operator=(const Deliveries&) = delete;

    /// Called when a text was not pasted, which stays on the clipboard.
    std::function<void(const Error& reason)> onFailure;

    /// Whether texts come into programs by themselves in this session.
    bool arePasted() const { return m_pasteKeystroke.isPossible(); }
    /// Calls `begin` when it is this delivery's turn, inside this call when none is under way. The
    /// turn ends with what paste() starts or with leave(), so every `begin` leads to one of them.
    void await(std::function<void()> begin);
    /// Sends the keystroke of the delivery whose turn it is.
    void paste();
    /// Ends the turn without a keystroke.
    void leave() { next(); }

  private:
    enum class State {
        idle,
        begun,    // the text is on the clipboard, or about to be
        posted,   // the keystroke waits for the user's fingers
        sending,  // from here on a program that reads the clipboard acts on the keystroke
        read,     // a program has read it before the end of sending was known
        sent,     // the program has yet to read
    };

    void ended(const Outcome& outcome);
    void wasRead();
    void next();
    /// Brings a call over to the main thread.
    std::function<void()> onMain(std::function<void()> work);

    MainQueue& m_mainQueue;
    Pasteboard& m_pasteboard;
    PasteKeystroke& m_pasteKeystroke;
    State m_state = State::idle;
    unsigned m_turn = 0;
    std::deque<std::function<void()>> m_waiting;
    Lifetime m_lifetime;
};

}  // namespace nulo
