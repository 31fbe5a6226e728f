#include "hotkey/ChordStateMachine.h"

namespace nulo {

ChordStateMachine::Reaction ChordStateMachine::handle(const KeyEvent& event) {
    switch (event.type) {
        case KeyEvent::Type::flagsChanged:
            return optionChanged(event.optionSet);
        case KeyEvent::Type::keyDown:
            return keyDown(event.isSpace);
        case KeyEvent::Type::keyUp:
            return keyUp(event.isSpace);
        case KeyEvent::Type::tapDisabledByTimeout:
        case KeyEvent::Type::tapDisabledByUserInput:
            break;
    }
    return {};
}

ChordStateMachine::Reaction ChordStateMachine::optionChanged(bool optionSet) {
    if (optionSet == m_optionHeld)
        return {};
    m_optionHeld = optionSet;
    const bool ends = !optionSet && m_isRecording;
    if (ends)
        m_isRecording = false;
    return {EventFate::swallow, ends ? Report::recordStop : Report::none};
}

ChordStateMachine::Reaction ChordStateMachine::keyDown(bool isSpace) {
    if (!m_optionHeld)
        return {};
    if (isSpace) {
        const bool starts = !m_isRecording;
        m_isRecording = true;
        return {EventFate::swallow, starts ? Report::recordStart : Report::none};
    }
    if (m_isRecording)
        return {};
    m_optionHeld = false;
    return {.postOptionDown = true};
}

ChordStateMachine::Reaction ChordStateMachine::keyUp(bool isSpace) {
    if (!isSpace || !m_isRecording)
        return {};
    m_isRecording = false;
    m_optionHeld = false;
    return {EventFate::swallow, Report::recordStop};
}

}  // namespace nulo
