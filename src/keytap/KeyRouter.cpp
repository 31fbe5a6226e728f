#include "keytap/KeyRouter.h"

#include <algorithm>
#include <utility>

namespace nulo::keytap {

KeyRouter::KeyRouter(Send send, OnChord onChord)
    : m_send(std::move(send)), m_onChord(std::move(onChord)) {}

void KeyRouter::setChord(ChordKeys chord) {
    m_nextChord = std::move(chord);
    applyChord();
}

void KeyRouter::add(Keyboard keyboard) {
    m_keyboards[keyboard];
}

void KeyRouter::key(Keyboard keyboard, KeyCode code, int value) {
    const auto found = m_keyboards.find(keyboard);
    if (found == m_keyboards.end() || code >= KEY_CNT || (value != 0 && value != 1))
        return;  // a clone's repeats are the kernel's, so the keyboard's own are not needed
    Keys& keys = found->second;
    const bool down = value == 1;
    if (keys.down.test(code) == down)
        return;
    keys.down.set(code, down);
    m_lastUsed = keyboard;
    if (isOfChord(code)) {
        modifierChanged(keyboard, code, down);
    } else if (isModifier(code)) {
        send(keyboard, code, down);
    } else {
        const auto reaction =
            m_machine.handle({.type = down ? KeyEvent::Type::keyDown : KeyEvent::Type::keyUp,
                              .isSpace = code == m_chord.key});
        if (reaction.postOptionDown)
            sendHiddenModifiers();
        if (!down || reaction.fate == EventFate::pass)
            send(keyboard, code, down);
        report(reaction.report);
    }
    applyChord();
}

void KeyRouter::modifierChanged(Keyboard keyboard, KeyCode code, bool down) {
    const auto reaction =
        m_machine.handle({.type = KeyEvent::Type::flagsChanged, .optionSet = areModifiersDown()});
    if (!down || reaction.fate == EventFate::pass)
        send(keyboard, code, down);
    report(reaction.report);
}

void KeyRouter::resync(Keyboard keyboard, const KeySet& down) {
    const auto found = m_keyboards.find(keyboard);
    if (found == m_keyboards.end())
        return;
    const KeySet before = found->second.down;
    for (const bool value : {false, true})  // a chord that ended must not look like one that began
        for (KeyCode code = 0; code < KEY_CNT; ++code)
            if (before.test(code) != down.test(code) && down.test(code) == value)
                key(keyboard, code, value);
}

void KeyRouter::remove(Keyboard keyboard) {
    resync(keyboard, {});
    m_keyboards.erase(keyboard);
}

KeyRouter::Paste KeyRouter::paste() {
    if (m_keyboards.empty())
        return Paste::noKeyboard;
    for (const auto& [keyboard, keys] : m_keyboards)
        for (KeyCode code = 0; code < KEY_CNT; ++code)
            if (keys.sent.test(code) && (isModifier(code) || code == KEY_INSERT))
                return Paste::modifierHeld;
    const Keyboard keyboard =
        m_keyboards.count(m_lastUsed) ? m_lastUsed : m_keyboards.begin()->first;
    for (const auto& [code, down] : {std::pair(KEY_LEFTSHIFT, true), std::pair(KEY_INSERT, true),
                                     std::pair(KEY_INSERT, false), std::pair(KEY_LEFTSHIFT, false)})
        m_send(keyboard, static_cast<KeyCode>(code), down);
    return Paste::sent;
}

void KeyRouter::send(Keyboard keyboard, KeyCode code, bool down) {
    KeySet& sent = m_keyboards.at(keyboard).sent;
    if (sent.test(code) == down)
        return;
    sent.set(code, down);
    m_send(keyboard, code, down);
}

void KeyRouter::sendHiddenModifiers() {
    for (const auto& [keyboard, keys] : m_keyboards)
        for (const KeyCode code : modifierCodes)
            if (isOfChord(code) && keys.down.test(code))
                send(keyboard, code, true);
}

bool KeyRouter::isOfChord(KeyCode modifier) const {
    return std::any_of(m_chord.modifiers.begin(), m_chord.modifiers.end(),
                       [modifier](const auto& codes) { return codes.count(modifier) > 0; });
}

bool KeyRouter::areModifiersDown() const {
    const auto isDown = [this](KeyCode code) {
        return std::any_of(m_keyboards.begin(), m_keyboards.end(),
                           [code](const auto& entry) { return entry.second.down.test(code); });
    };
    return std::all_of(m_chord.modifiers.begin(), m_chord.modifiers.end(), [&](const auto& codes) {
        return std::any_of(codes.begin(), codes.end(), isDown);
    });
}

void KeyRouter::report(ChordStateMachine::Report report) {
    if (report != ChordStateMachine::Report::none)
        m_onChord(report == ChordStateMachine::Report::recordStart);
}

/// While a key is down, it may be one that was held back.
void KeyRouter::applyChord() {
    if (!m_nextChord)
        return;
    for (const auto& [keyboard, keys] : m_keyboards)
        if (keys.down.any())
            return;
    m_chord = *std::exchange(m_nextChord, std::nullopt);
}

}  // namespace nulo::keytap
