#include "hotkey/GlobalKeyMonitor.h"

#include <string>
#include <utility>

namespace nulo {
namespace {

constexpr MainQueue::Delay retryInterval{2.0};
constexpr MainQueue::Delay healthCheckInterval{5.0};

}  // namespace

GlobalKeyMonitor::GlobalKeyMonitor(EventTapSource& source, MainQueue& mainQueue, Print print,
                                   std::function<void()> openSettings, std::string chord)
    : m_source(source),
      m_mainQueue(mainQueue),
      m_print(std::move(print)),
      m_openSettings(std::move(openSettings)),
      m_chordTitle(std::move(chord)) {}

GlobalKeyMonitor::~GlobalKeyMonitor() {
    stop();
}

void GlobalKeyMonitor::start() {
    checkAndSetup();
    m_healthCheckTimer = m_mainQueue.every(healthCheckInterval, [this] { healthCheck(); });
}

void GlobalKeyMonitor::stop() {
    m_retryTimer.reset();
    m_healthCheckTimer.reset();
    tearDownEventTap();
}

void GlobalKeyMonitor::openAccessibilitySettings() const {
    if (m_openSettings)
        m_openSettings();
}

void GlobalKeyMonitor::checkAndSetup() {
    const bool trusted = m_source.isTrusted();
    const bool changed = trusted != std::exchange(m_isAccessibilityGranted, trusted);
    if (trusted) {
        m_retryTimer.reset();
        setupEventTap();
    } else {
        tearDownEventTap();
        if (!m_retryTimer)
            m_retryTimer = m_mainQueue.every(retryInterval, [this] { retry(); });
    }
    if (changed)
        postAccessibilityChanged();
}

void GlobalKeyMonitor::retry() {
    if (!m_source.isTrusted())
        return;
    m_retryTimer.reset();
    m_isAccessibilityGranted = true;
    setupEventTap();
    if (const auto callback = onAccessibilityChanged)
        callback(true);
}

void GlobalKeyMonitor::healthCheck() {
    const bool trusted = m_source.isTrusted();
    if (trusted != m_isAccessibilityGranted) {
        m_isAccessibilityGranted = trusted;
        postAccessibilityChanged();
        if (trusted)
            setupEventTap();
        else
            tearDownEventTap();
    }
    if (trusted && m_eventTap) {
        if (!m_eventTap->isEnabled()) {
            m_print("Event tap was disabled — re-enabling...");
            m_eventTap->enable();
        }
    } else if (trusted) {
        m_print("Event tap lost — recreating...");
        setupEventTap();
    }
    m_isEventTapAlive = trusted && m_eventTap;
}

void GlobalKeyMonitor::setupEventTap() {
    if (m_eventTap)
        return;
    {
        const std::lock_guard lock(m_mutex);
        m_eventTap = m_source.createTap([this](const KeyEvent& event) { return handle(event); });
    }
    m_isEventTapAlive = m_eventTap != nullptr;
    m_print(m_eventTap ? "Global key monitor started (" + m_chordTitle + ")"
                       : "Failed to create event tap. Check Accessibility permissions.");
}

void GlobalKeyMonitor::tearDownEventTap() {
    std::unique_ptr<EventTap> tap;
    {
        const std::lock_guard lock(m_mutex);
        tap = std::move(m_eventTap);
    }
    tap.reset();
    m_isEventTapAlive = false;
}

void GlobalKeyMonitor::postAccessibilityChanged() {
    m_mainQueue.async(m_lifetime.guard([this, granted = m_isAccessibilityGranted] {
        if (const auto callback = onAccessibilityChanged)
            callback(granted);
    }));
}

EventFate GlobalKeyMonitor::handle(const KeyEvent& event) {
    const bool byTimeout = event.type == KeyEvent::Type::tapDisabledByTimeout;
    const bool disabled = byTimeout || event.type == KeyEvent::Type::tapDisabledByUserInput;
    const std::lock_guard lock(m_mutex);
    if (disabled && m_eventTap) {
        m_eventTap->enable();
        m_print(std::string("Event tap re-enabled after ") +
                (byTimeout ? "timeout" : "user input"));
    }
    const ChordStateMachine::Reaction reaction = m_chord.handle(event);
    if (reaction.postOptionDown && m_eventTap)
        m_eventTap->postOptionDown();
    if (reaction.report == ChordStateMachine::Report::recordStart)
        post(&GlobalKeyMonitor::onRecordStart);
    if (reaction.report == ChordStateMachine::Report::recordStop)
        post(&GlobalKeyMonitor::onRecordStop);
    return reaction.fate;
}

void GlobalKeyMonitor::post(std::function<void()> GlobalKeyMonitor::*callback) {
    m_mainQueue.async(m_lifetime.guard([this, callback] {
        if (const auto call = this->*callback)
            call();
    }));
}

}  // namespace nulo
