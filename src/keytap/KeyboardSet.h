#pragma once

#include <map>
#include <memory>
#include <string>

#include "keytap/DeviceClone.h"
#include "keytap/EventLoop.h"
#include "keytap/InputDevice.h"
#include "keytap/KeyRouter.h"
#include "keytap/Protocol.h"

namespace nulo::keytap {

/// All keyboards of the first seat, those that come later included. Each is cloned, then grabbed
/// once a program reads its clone and no key of it is down. It is ungrabbed when nobody reads the
/// clone any more, since its keys would reach nobody; and when the set ends, uncloned after.
class KeyboardSet {
  public:
    /// `onChange` is called when state() or isHolding() may have become another. Throws
    /// std::system_error when devices cannot be watched.
    KeyboardSet(EventLoop& loop, KeyRouter::OnChord onChord, EventLoop::Callback onChange);
    ~KeyboardSet();

    KeyRouter& router() { return m_router; }
    /// Whether the user's keys depend on this process.
    bool isHolding() const;
    /// none when every keyboard there is has been grabbed; else why one is not.
    Reason state() const;

  private:
    enum class Stage { settling, waitingForKeys, takenByAnother, grabbed };
    struct Keyboard {
        Keyboard(InputDevice opened, DeviceClone made)
            : device(std::move(opened)), clone(std::move(made)) {}
        InputDevice device;
        DeviceClone clone;
        Stage stage = Stage::settling;
        int readers = 0;  // of the clone
        bool isBroken = false;
        bool lostEvents = false;
        EventLoop::Source events, lamps, timer;
    };
    using Keyboards = std::map<int, Keyboard>;

    void nodesChanged();
    void readersChanged(const std::string& node, int change);
    void tryNodes();
    void tryNode(const std::string& name);
    bool isKnown(const std::string& name) const;
    void letGo(int number, Keyboard& keyboard);
    void take(int number);
    void grab(int number, Keyboard& keyboard);
    void read(int number);
    void handle(int number, Keyboard& keyboard, const input_event& event);
    void removeBroken();
    void giveBack(Keyboards::iterator keyboard);

    EventLoop& m_loop;
    const EventLoop::Callback m_onChange;
    KeyRouter m_router;
    Descriptor m_nodes;
    Keyboards m_keyboards;
    std::map<int, std::string> m_names;
    int m_nextNumber = 1;
    bool m_uinputIsMissing = false;
    EventLoop::Source m_nodesChanged, m_uinputTimer;
};

}  // namespace nulo::keytap
