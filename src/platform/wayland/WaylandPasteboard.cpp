#include <atomic>
#include <memory>
#include <string>
#include <utility>

#include "base/Lifetime.h"
#include "platform/WaylandBackends.h"
#include "platform/wayland/WaylandSession.h"

namespace nulo {
namespace {

class WaylandPasteboard final : public Pasteboard {
  public:
    WaylandPasteboard(std::shared_ptr<WaylandSession> session, MainQueue& mainQueue, bool isPrivate)
        : m_session(std::move(session)), m_mainQueue(mainQueue), m_isPrivate(isPrivate) {}

    void setString(std::string_view text) override {
        // The session's thread serves the text by itself; main only hears of it.
        auto tellMain = [&queue = m_mainQueue, read = m_lifetime.guard([this] {
            if (const auto callback = onRead)
                callback({});
        })] { queue.async(read); };
        m_isHeld = std::make_shared<std::atomic<bool>>(true);
        const auto offered = std::make_shared<const OfferedText>(
            OfferedText{.text = std::string(text),
                        .isPrivate = m_isPrivate,
                        .onRead = std::move(tellMain),
                        .onReplaced = [held = m_isHeld] { *held = false; }});
        m_session->post([offered](const Result<WaylandDesk*>& desk) {
            if (desk)
                desk.value()->selections.set(offered);
        });
    }

    bool holdsText() const override { return *m_isHeld; }

  private:
    const std::shared_ptr<WaylandSession> m_session;
    MainQueue& m_mainQueue;
    const bool m_isPrivate;
    std::shared_ptr<std::atomic<bool>> m_isHeld = std::make_shared<std::atomic<bool>>(false);
    Lifetime m_lifetime;
};

}  // namespace

std::unique_ptr<Pasteboard> makeWaylandPasteboard(std::shared_ptr<WaylandSession> session,
                                                  MainQueue& mainQueue, bool isPrivate) {
    return std::make_unique<WaylandPasteboard>(std::move(session), mainQueue, isPrivate);
}

}  // namespace nulo
