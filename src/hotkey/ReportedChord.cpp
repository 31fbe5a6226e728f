#include "hotkey/ReportedChord.h"

#include <utility>

namespace nulo {

class ReportedChord::Tap final : public EventTap {
  public:
    explicit Tap(ReportedChord& chord) : m_chord(chord) {}
    ~Tap() override {
        const std::lock_guard calling(m_chord.m_calling);
        const std::lock_guard lock(m_chord.m_mutex);
        m_chord.m_handler = nullptr;
    }
    /// It comes back by itself, or with another tap.
    void enable() override {}
    bool isEnabled() override {
        const std::lock_guard lock(m_chord.m_mutex);
        return m_chord.m_isEnabled;
    }
    /// What applications see is the desktop's doing.
    void postOptionDown() override {}

  private:
    ReportedChord& m_chord;
};

std::unique_ptr<EventTap> ReportedChord::makeTap(EventTapSource::Handler handler) {
    const std::lock_guard lock(m_mutex);
    m_handler = std::move(handler);
    return std::make_unique<Tap>(*this);
}

void ReportedChord::setDown(bool isDown) {
    const std::lock_guard calling(m_calling);
    if (std::exchange(m_isDown, isDown) == isDown)
        return;
    EventTapSource::Handler handler;
    {
        const std::lock_guard lock(m_mutex);
        handler = m_handler;
    }
    if (!handler)
        return;
    handler({.type = KeyEvent::Type::flagsChanged, .optionSet = isDown});
    if (isDown)
        handler({.type = KeyEvent::Type::keyDown, .isSpace = true});
}

void ReportedChord::setEnabled(bool isEnabled) {
    const std::lock_guard lock(m_mutex);
    m_isEnabled = isEnabled;
}

}  // namespace nulo
