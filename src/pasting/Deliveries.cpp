#include "pasting/Deliveries.h"

#include <utility>

namespace nulo {
namespace {

/// Ends the wait for a program that takes the keystroke for something else and reads nothing.
constexpr MainQueue::Delay longestWaitForReader(1.0);
/// What is not asked for by then is said not to have arrived.
constexpr MainQueue::Delay receiptDelay(1.5);

}  // namespace

Deliveries::Deliveries(MainQueue& mainQueue, const Clock& clock, Pasteboard& pasteboard,
                       PasteKeystroke& pasteKeystroke)
    : m_mainQueue(mainQueue),
      m_clock(clock),
      m_pasteboard(pasteboard),
      m_pasteKeystroke(pasteKeystroke) {
    auto read = m_lifetime.guard(
        [this](const PasteboardReader& reader, Clock::Instant now) { wasRead(reader, now); });
    // The call goes through the queue, so that it comes behind what the keystroke reports, and
    // after the reader has its text.
    m_pasteboard.onRead = [&queue = m_mainQueue, &clock, read](const PasteboardReader& reader) {
        queue.async([read, reader, now = clock.now()]() mutable { read(reader, now); });
    };
}

Deliveries::~Deliveries() {
    m_pasteboard.onRead = nullptr;
}

void Deliveries::await(std::function<void()> begin) {
    m_waiting.push_back(std::move(begin));
    if (m_state == State::idle)
        next();
}

void Deliveries::copy(std::string_view text) {
    if (m_receipt.isAwaited())
        tell(Receipt::Verdict::replaced);
    ++m_copies;
    m_text = text;
    m_pasteboard.setString(text);
    if (text.empty())
        m_receipt.close();
    else
        m_receipt.copied();
}

void Deliveries::paste() {
    m_state = State::posted;
    auto sending = m_lifetime.guard([this](Clock::Instant now) { willSend(now); });
    auto end = m_lifetime.guard([this](const Outcome& outcome) { ended(outcome); });
    m_pasteKeystroke.post({.onSending =
                               [&queue = m_mainQueue, &clock = m_clock, sending] {
                                   queue.async(
                                       [sending, now = clock.now()]() mutable { sending(now); });
                               },
                           .onEnd =
                               [&queue = m_mainQueue, end](const Outcome& outcome) {
                                   queue.async([end, outcome]() mutable { end(outcome); });
                               }});
}

void Deliveries::leave() {
    m_receipt.close();
    next();
}

void Deliveries::willSend(Clock::Instant now) {
    m_state = State::sending;
    m_receipt.sending(now);
}

void Deliveries::ended(const Outcome& outcome) {
    if (!outcome) {
        m_receipt.close();
        if (const auto report = onFailure)
            report(outcome.error());
    }
    if (m_receipt.isAwaited())
        m_mainQueue.asyncAfter(receiptDelay, m_lifetime.guard([this, copies = m_copies] {
            if (copies == m_copies)
                judge();
        }));
    if (!outcome || m_state == State::read)
        return next();
    m_state = State::sent;
    m_mainQueue.asyncAfter(longestWaitForReader, m_lifetime.guard([this, turn = m_turn] {
        if (turn == m_turn && m_state == State::sent)
            next();
    }));
}

void Deliveries::wasRead(const PasteboardReader& reader, Clock::Instant now) {
    const bool wasLate = m_receipt.isLate();
    if (const auto after = m_receipt.asked(reader, now))
        tell(wasLate ? Receipt::Verdict::readLate : Receipt::Verdict::read, *after);
    if (m_state == State::sending)
        m_state = State::read;
    else if (m_state == State::sent)
        next();
}

void Deliveries::judge() {
    if (!m_receipt.isAwaited())
        return;
    if (m_pasteboard.holdsText()) {
        m_receipt.giveUp();
        tell(Receipt::Verdict::notRead);
    } else {
        m_receipt.close();
        tell(Receipt::Verdict::notSeen);
    }
}

void Deliveries::tell(Receipt::Verdict verdict, Clock::Instant::duration after) {
    if (const auto report = onReceipt)
        report({verdict, after, m_text});
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

}  // namespace nulo
