#pragma once

#include <bitset>
#include <functional>
#include <map>
#include <optional>

#include "hotkey/ChordStateMachine.h"
#include "keytap/Keys.h"

namespace nulo::keytap {

/// Decides what becomes of each key of the grabbed keyboards: it goes on to the keyboard's clone,
/// or belongs to the chord and goes nowhere. All keyboards together press one chord.
///
/// Of the chord's modifiers only the one that completes them is held back: ChordStateMachine's
/// Option is down when each of them is.
///
/// A release goes on exactly when its press did, so no program ever finds a key stuck.
class KeyRouter {
  public:
    using Keyboard = int;
    using KeySet = std::bitset<KEY_CNT>;

    /// A press or release for the clone of a keyboard, in order.
    using Send = std::function<void(Keyboard, KeyCode, bool down)>;
    /// The chord went down (true), or ended.
    using OnChord = std::function<void(bool down)>;

    KeyRouter(Send send, OnChord onChord);

    /// From now on this is the chord, left Alt and Space before; counts as soon as no key is down.
    /// Its modifiers' keys are of modifierCodes, its key is not.
    void setChord(ChordKeys chord);

    /// No key of it is down yet.
    void add(Keyboard keyboard);
    /// As the kernel tells it: value 0 is up, 1 down, 2 repeated. A keyboard that was not added and
    /// a key that does not exist are ignored.
    void key(Keyboard keyboard, KeyCode code, int value);
    /// Events were lost; these keys are down in truth.
    void resync(Keyboard keyboard, const KeySet& down);
    /// Whatever is down on it is let go.
    void remove(Keyboard keyboard);

    enum class Paste { sent, modifierHeld, noKeyboard };
    /// Presses Shift+Insert, unless programs see a modifier held, which would make it another
    /// shortcut.
    Paste paste();

  private:
    struct Keys {
        KeySet down;  // by the user
        KeySet sent;  // of these, what programs see
    };

    void modifierChanged(Keyboard keyboard, KeyCode code, bool down);
    void send(Keyboard keyboard, KeyCode code, bool down);
    void sendHiddenModifiers();
    bool isOfChord(KeyCode modifier) const;
    bool areModifiersDown() const;
    void report(ChordStateMachine::Report report);
    void applyChord();

    const Send m_send;
    const OnChord m_onChord;
    ChordKeys m_chord;
    std::optional<ChordKeys> m_nextChord;
    std::map<Keyboard, Keys> m_keyboards;
    Keyboard m_lastUsed = 0;
    ChordStateMachine m_machine;
};

}  // namespace nulo::keytap
