#pragma once

#include <deque>
#include <functional>
#include <string>
#include <string_view>

#include "base/Clock.h"
#include "base/Lifetime.h"
#include "base/MainQueue.h"
#include "base/Result.h"
#include "pasting/PasteReceipt.h"
#include "pasting/Pasting.h"

namespace nulo {

/// Brings texts into the focused program one after the other. The keystroke may have to wait for
/// the user's fingers, and the program fetches the text after it: until both are over, another text
/// on the clipboard would be pasted in place of this one. Main thread.
class Deliveries {
  public:
    /// What became of a text that was copied and pasted.
    struct Receipt {
        enum class Verdict {
            read,      // a program asked for it in time
            readLate,  // a program asked for it after `notRead` was told
            notRead,   // no program did for 1.5 s after the keys
            replaced,  // no program did before the next text came in its place
            notSeen,   // another program owns the clipboard, and may have been asked
        };
        Verdict verdict;
        /// From the keys to the question, when there was one.
        Clock::Instant::duration after;
        std::string text;
    };

    /// All references outlive the deliveries, which take over the pasteboard's onRead.
    Deliveries(MainQueue& mainQueue, const Clock& clock, Pasteboard& pasteboard,
               PasteKeystroke& pasteKeystroke);
    ~Deliveries();
    Deliveries(const Deliveries&) = delete;
    Deliveries& operator=(const Deliveries&) = delete;

    /// Called when a text was not pasted, which stays on the clipboard.
    std::function<void(const Error& reason)> onFailure;
    /// Called once for each text whose keys were sent, and once more when it is read late. None is
    /// told of empty ones.
    std::function<void(const Receipt&)> onReceipt;

    /// Whether texts come into programs by themselves in this session.
    bool arePasted() const { return m_pasteKeystroke.isPossible(); }
    /// Calls `begin` when it is this delivery's turn, inside this call when none is under way. The
    /// turn ends with what paste() starts or with leave(), so every `begin` leads to one of them.
    void await(std::function<void()> begin);
    /// Puts the text of the delivery whose turn it is on the clipboard.
    void copy(std::string_view text);
    /// Sends the keystroke of the delivery whose turn it is; without a copy(), what the clipboard
    /// held before is pasted, and nothing is told of it.
    void paste();
    /// Ends the turn without a keystroke.
    void leave();

  private:
    enum class State {
        idle,
        begun,    // the text is on the clipboard, or about to be
        posted,   // the keystroke waits for the user's fingers
        sending,  // from here on a program that reads the clipboard acts on the keystroke
        read,     // a program has read it before the end of sending was known
        sent,     // the program has yet to read
    };

    void willSend(Clock::Instant now);
    void ended(const Outcome& outcome);
    void wasRead(const PasteboardReader& reader, Clock::Instant now);
    void next();
    void judge();
    void tell(Receipt::Verdict verdict, Clock::Instant::duration after = {});

    MainQueue& m_mainQueue;
    const Clock& m_clock;
    Pasteboard& m_pasteboard;
    PasteKeystroke& m_pasteKeystroke;
    State m_state = State::idle;
    unsigned m_turn = 0;
    std::deque<std::function<void()>> m_waiting;
    PasteReceipt m_receipt;
    std::string m_text;  // the receipt's
    unsigned m_copies = 0;
    Lifetime m_lifetime;
};

}  // namespace nulo
