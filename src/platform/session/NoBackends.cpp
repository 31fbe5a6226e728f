// What stands in where a session offers nothing for a capability.

#include <utility>

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
    explicit NoPasteKeystroke(std::string reason) : m_reason(std::move(reason)) {}
    bool isPossible() const override { return false; }
    /// The text waits on the clipboard for the user's own keystroke.
    void post(Report report) override { report.onEnd(Error{m_reason}); }

  private:
    const std::string m_reason;
};

}  // namespace

std::unique_ptr<EventTapSource> makeUnavailableEventTapSource() {
    return std::make_unique<NoEventTapSource>();
}

std::unique_ptr<PasteKeystroke> makeNoPasteKeystroke(std::string reason) {
    return std::make_unique<NoPasteKeystroke>(std::move(reason));
}

}  // namespace nulo
