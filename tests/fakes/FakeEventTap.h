#pragma once

#include <memory>
#include <utility>

#include "hotkey/EventTap.h"

namespace nulo {

/// Makes taps whose events the test sends by hand.
class FakeEventTapSource final : public EventTapSource {
  public:
    bool trusted = true;
    bool undecided = false;
    bool canCreate = true;
    int tapsMade = 0;

    // Of the present tap.
    bool enabled = false;
    int optionDowns = 0;
    bool hasTap() const { return m_tap != nullptr; }

    bool isTrusted() override { return trusted; }
    bool isUndecided() override { return undecided; }
    std::unique_ptr<EventTap> createTap(Handler handler) override {
        if (!canCreate)
            return nullptr;
        ++tapsMade;
        enabled = true;
        auto tap = std::make_unique<Tap>(*this, std::move(handler));
        m_tap = tap.get();
        return tap;
    }

    /// Needs a tap. Any thread, one at a time.
    EventFate send(const KeyEvent& event) { return m_tap->handler(event); }

    EventFate option(bool down) {
        return send({.type = KeyEvent::Type::flagsChanged, .optionSet = down});
    }
    EventFate space(bool down, bool isSpace = true) {
        return send(
            {.type = down ? KeyEvent::Type::keyDown : KeyEvent::Type::keyUp, .isSpace = isSpace});
    }
    EventFate letter(bool down) { return space(down, false); }

  private:
    struct Tap final : EventTap {
        Tap(FakeEventTapSource& owner, Handler onEvent)
            : source(owner), handler(std::move(onEvent)) {}
        ~Tap() override {
            source.enabled = false;
            source.m_tap = nullptr;
        }
        void enable() override { source.enabled = true; }
        bool isEnabled() override { return source.enabled; }
        void postOptionDown() override { ++source.optionDowns; }

        FakeEventTapSource& source;
        Handler handler;
    };

    Tap* m_tap = nullptr;
};

}  // namespace nulo
