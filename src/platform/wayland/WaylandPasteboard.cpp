#include <string>
#include <utility>

#include "base/Lifetime.h"
#include "platform/WaylandBackends.h"
#include "platform/wayland/WaylandSession.h"

namespace nulo {
namespace {

class WaylandPasteboard final : public Pasteboard {
  public:
    WaylandPasteboard(std::shared_ptr<WaylandSession> session, MainQueue& mainQueue)
        : m_session(std::move(session)), m_mainQueue(mainQueue) {}

    void setString(std::string_view text) override {
        // The session's thread serves the text by itself; main only hears of it.
        auto onText = [&queue = m_mainQueue, read = m_lifetime.guard([this] {
            if (const auto callback = onRead)
                callback();
        })] { queue.async(read); };
        m_session->post([text = std::make_shared<const std::string>(text),
                         onText = std::move(onText)](const Result<WaylandDesk*>& desk) {
            if (desk)
                desk.value()->selections.set(text, onText);
        });
    }

  private:
    const std::shared_ptr<WaylandSession> m_session;
    MainQueue& m_mainQueue;
    Lifetime m_lifetime;
};

}  // namespace

std::unique_ptr<Pasteboard> makeWaylandPasteboard(std::shared_ptr<WaylandSession> session,
                                                  MainQueue& mainQueue) {
    return std::make_unique<WaylandPasteboard>(std::move(session), mainQueue);
}

}  // namespace nulo
