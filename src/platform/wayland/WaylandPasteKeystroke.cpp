#include <memory>
#include <mutex>
#include <utility>

#include "platform/WaylandBackends.h"
#include "platform/wayland/WaylandSession.h"

namespace nulo {
namespace {

/// Shift+Insert, which all programs take for "paste": some paste the clipboard and some the primary
/// selection, and both have the text.
template <typename Keyboard>
class WaylandPasteKeystroke final : public PasteKeystroke {
  public:
    WaylandPasteKeystroke(std::shared_ptr<WaylandSession> session, Keyboard WaylandDesk::*keyboard)
        : m_session(std::move(session)), m_keyboard(keyboard) {
        // Early, so that the first paste is as quick as the others; each paste reports for itself.
        m_session->post([keyboard](const Result<WaylandDesk*>& desk) {
            if (desk) [[maybe_unused]]
                const Outcome early = (desk.value()->*keyboard).prepare();
        });
    }

    ~WaylandPasteKeystroke() override {
        const std::lock_guard lock(m_end->mutex);
        m_end->isOver = true;
    }

    void post(Report report) override {
        m_session->post([report = std::move(report), keyboard = m_keyboard,
                         end = m_end](const Result<WaylandDesk*>& desk) {
            const Outcome outcome = paste(desk, keyboard, report, *end);
            const std::lock_guard lock(end->mutex);
            if (!end->isOver && report.onEnd)
                report.onEnd(outcome);
        });
    }

  private:
    struct End {
        std::mutex mutex;
        bool isOver = false;
    };

    static Outcome paste(const Result<WaylandDesk*>& reached, Keyboard WaylandDesk::*keyboard,
                         const Report& report, End& end) {
        if (!reached)
            return reached.error();
        WaylandDesk& desk = *reached.value();
        // What the clipboard had before must not be pasted in place of the text.
        if (!desk.connection->finish())
            return Error{desk.connection->failure()};
        if (!desk.selections.isPossible())
            return Error{"the compositor lets Nulo have the clipboard no more"};
        if (Outcome ready = (desk.*keyboard).prepare(); !ready)
            return ready;
        {
            const std::lock_guard lock(end.mutex);
            if (end.isOver)
                return Success{};
            if (report.onSending)
                report.onSending();
        }
        (desk.*keyboard).pressPasteChord();
        if (!desk.connection->finish())
            return Error{desk.connection->failure()};
        return Success{};
    }

    const std::shared_ptr<WaylandSession> m_session;
    Keyboard WaylandDesk::*const m_keyboard;
    const std::shared_ptr<End> m_end = std::make_shared<End>();
};

}  // namespace

std::unique_ptr<PasteKeystroke> makeVirtualKeyboardPaste(std::shared_ptr<WaylandSession> session) {
    return std::make_unique<WaylandPasteKeystroke<VirtualKeyboard>>(std::move(session),
                                                                    &WaylandDesk::keyboard);
}

std::unique_ptr<PasteKeystroke> makeFakeInputPaste(std::shared_ptr<WaylandSession> session) {
    return std::make_unique<WaylandPasteKeystroke<FakeInput>>(std::move(session),
                                                              &WaylandDesk::fakeInput);
}

}  // namespace nulo
