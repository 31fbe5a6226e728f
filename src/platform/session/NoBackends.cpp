// What stands in where a session offers nothing for a capability.

#include "platform/Backends.h"

namespace nulo {
namespace {

class NoEventTapSource final : public EventTapSource {
  public:
    bool isTrusted() override { return false; }
    std::unique_ptr<EventTap> createTap(Handler) override { return nullptr; }
};

class NoPasteKeystroke final : public PasteKeystroke {
  public:
    /// The text waits on the clipboard for the user's own keystroke.
    void post(Report report) override { report.onEnd(Success{}); }
};

}  // namespace

std::unique_ptr<EventTapSource> makeUnavailableEventTapSource() {
    return std::make_unique<NoEventTapSource>();
}

std::unique_ptr<PasteKeystroke> makeNoPasteKeystroke() {
    return std::make_unique<NoPasteKeystroke>();
}

}  // namespace nulo
