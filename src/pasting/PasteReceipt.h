#pragma once

#include <deque>
#include <optional>

#include "base/Clock.h"
#include "pasting/Pasting.h"

namespace nulo {

/// Tells from who asks for a text, and when, whether its paste arrived. Programs that ask before
/// the keys are sent look at everything that is copied, as clipboard managers do: what they ask
/// proves nothing, now or for later texts, unless the keyboard is theirs. One thread.
class PasteReceipt {
  public:
    using Instant = Clock::Instant;

    /// A text was put on the clipboard, in place of the one before it.
    void copied();
    /// Its keys are about to be sent.
    void sending(Instant now);
    /// Nobody has asked in time: who asks later is late.
    void giveUp();
    /// Whatever is asked from here on is not about this text.
    void close();

    /// The time since the keys when this question is the first that tells of a paste, which closes
    /// the receipt.
    std::optional<Instant::duration> asked(const PasteboardReader& reader, Instant now);

    /// Whether the keys were sent, nobody has asked, and it is not late.
    bool isAwaited() const { return m_state == State::awaited; }
    bool isLate() const { return m_state == State::late; }

  private:
    enum class State { closed, copied, awaited, late };
    void remember(PasteboardReader reader);
    bool looksAtEverything(const PasteboardReader& reader) const;

    State m_state = State::closed;
    Instant m_keys;
    std::deque<std::uint32_t> m_watchers;  // who asked before the keys; the newest is the last
};

}  // namespace nulo
