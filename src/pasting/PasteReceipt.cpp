#include "pasting/PasteReceipt.h"

#include <algorithm>

namespace nulo {
namespace {

constexpr std::size_t mostWatchers = 64;

}  // namespace

void PasteReceipt::copied() {
    m_state = State::copied;
}

void PasteReceipt::sending(Instant now) {
    if (m_state != State::copied)
        return;  // a keystroke that repeats what the clipboard held before
    m_state = State::awaited;
    m_keys = now;
}

void PasteReceipt::giveUp() {
    m_state = State::late;
}

void PasteReceipt::close() {
    m_state = State::closed;
}

std::optional<PasteReceipt::Instant::duration> PasteReceipt::asked(const PasteboardReader& reader,
                                                                   Instant now) {
    if (m_state == State::copied)
        remember(reader);
    if ((m_state != State::awaited && m_state != State::late) || looksAtEverything(reader))
        return std::nullopt;
    m_state = State::closed;
    return now - m_keys;
}

void PasteReceipt::remember(PasteboardReader reader) {
    if (reader.program == 0 || looksAtEverything(reader))
        return;
    if (m_watchers.size() == mostWatchers)
        m_watchers.pop_front();
    m_watchers.push_back(reader.program);
}

bool PasteReceipt::looksAtEverything(const PasteboardReader& reader) const {
    // A window system gives a program that has ended its number to another one, whose window then
    // still tells the truth.
    return !reader.hasFocus &&
           std::find(m_watchers.begin(), m_watchers.end(), reader.program) != m_watchers.end();
}

}  // namespace nulo
