#include "pasting/Deliveries.h"

#include <utility>

namespace nulo {
namespace {

/// Ends the wait for a program that takes the keystroke for something else and reads nothing.
constexpr MainQueue::Delay longestWaitForReader(1.0);

}  // namespace

Deliveries::Deliveries(MainQueue& mainQueue, Pasteboard& pasteboard, PasteKeystroke& pasteKeystroke)
    : m_mainQueue(mainQueue), m_pasteboard(pasteboard), m_pasteKeystroke(pasteKeystroke) {
    // The call goes through the queue, so that it comes behind what the keystroke reports, and
    // after the reader has its text.
    m_pasteboard.onRead = onMain([this] { wasRead(); });
}

Deliveries::~Deliveries() {
    m_pasteboard.onRead = nullptr;
}

void Deliveries::await(std::function<void()> begin) {
    m_waiting.push_back(std::move(begin));
    if (m_state == State::idle)
        next();
}

void Deliveries::paste() {
    m_state = State::posted;
    auto end = m_lifetime.guard([this](const Outcome& outcome) { ended(outcome); });
    m_pasteKeystroke.post({.onSending = onMain([this] { m_state = State::sending; }),
                           .onEnd = [&queue = m_mainQueue, end](const Outcome& outcome) {
                               queue.async([end, outcome]() mutable { end(outcome); });
                           }});
}

void Deliveries::ended(const Outcome& outcome) {
    if (!outcome)
        if (const auto report = onFailure)
            report(outcome.error());
    if (!outcome || m_state == State::read)
        return next();
    m_state = State::sent;
    m_mainQueue.asyncAfter(longestWaitForReader, m_lifetime.guard([this, turn = m_turn] {
        if (turn == m_turn && m_state == State::sent)
            next();
    }));
}

void Deliveries::wasRead() {
    if (m_state == State::sending)
        m_state = State::read;
    else if (m_state == State::sent)
        next();
}

void Deliveries::next() {
    ++m_turn;
    m_state = State::idle;
    if (m_waiting.empty())
        return;
    m_state = State::begun;
    const auto begin = std::move(m_waiting.front());
    m_waiting.pop_front();
    begin();
}

std::function<void()> Deliveries::onMain(std::function<void()> work) {
    return [&queue = m_mainQueue, guarded = m_lifetime.guard(std::move(work))] {
        queue.async(guarded);
    };
}

}  // namespace nulo
