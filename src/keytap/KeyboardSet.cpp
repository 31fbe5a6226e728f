#include "keytap/KeyboardSet.h"

#include <sys/inotify.h>
#include <systemd/sd-device.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>

namespace nulo::keytap {
namespace {

constexpr const char* folder = "/dev/input";
// From when the clone's readers are there until they are ready for keys.
constexpr auto settlingTime = std::chrono::milliseconds(500);
// For a reader that is expected, but need not come.
constexpr auto longestSettlingTime = std::chrono::seconds(3);
constexpr auto retryInterval = std::chrono::seconds(5);
constexpr std::size_t mostKeyboards = 32;

/// How many programs read such a device where it is used: a compositor, and logind besides where
/// the device may have a power key.
int expectedReaders(const std::string& node) {
    sd_device* found = nullptr;
    if (sd_device_new_from_subsystem_sysname(&found, "input", node.c_str()) < 0)
        return 1;
    const std::unique_ptr<sd_device, sd_device* (*)(sd_device*)> device(found, sd_device_unref);
    return sd_device_has_tag(found, "power-switch") > 0 ? 2 : 1;
}

}  // namespace

KeyboardSet::KeyboardSet(EventLoop& loop, KeyRouter::OnChord onChord, EventLoop::Callback onChange)
    : m_loop(loop),
      m_onChange(std::move(onChange)),
      m_router(
          [this](int number, KeyCode code, bool down) {
              const auto found = m_keyboards.find(number);
              if (found != m_keyboards.end() && !found->second.clone.key(code, down))
                  found->second.isBroken = true;
          },
          std::move(onChord)),
      m_nodes(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
    checked(m_nodes ? 0 : -errno, "inotify_init1");
    // A node may be opened only after udev has set its owner, which is a change of attributes.
    constexpr auto changes = IN_CREATE | IN_ATTRIB | IN_OPEN | IN_CLOSE;
    const int watched = inotify_add_watch(m_nodes.get(), folder, changes);
    checked(watched < 0 ? -errno : 0, folder);
    m_nodesChanged = loop.watch(m_nodes.get(), [this] { nodesChanged(); });
    tryNodes();
}

KeyboardSet::~KeyboardSet() {
    while (!m_keyboards.empty())
        giveBack(m_keyboards.begin());
}

bool KeyboardSet::isHolding() const {
    return std::any_of(m_keyboards.begin(), m_keyboards.end(),
                       [](const auto& entry) { return entry.second.stage == Stage::grabbed; });
}

Reason KeyboardSet::state() const {
    if (m_keyboards.empty())
        return m_uinputIsMissing ? Reason::noUinput : Reason::noKeyboard;
    for (const auto& [number, keyboard] : m_keyboards)
        if (keyboard.stage != Stage::grabbed)
            return keyboard.stage == Stage::takenByAnother ? Reason::keyboardTaken
                                                           : Reason::starting;
    return Reason::none;
}

void KeyboardSet::nodesChanged() {
    alignas(inotify_event) std::array<char, 4096> buffer;
    ssize_t size = 0;
    while ((size = ::read(m_nodes.get(), buffer.data(), buffer.size())) > 0)
        for (ssize_t at = 0; at < size;) {
            const auto& event = reinterpret_cast<const inotify_event&>(buffer[at]);
            at += sizeof(inotify_event) + event.len;
            if (event.len == 0)
                continue;
            if (event.mask & (IN_CREATE | IN_ATTRIB))
                tryNode(event.name);
            else
                readersChanged(event.name, event.mask & IN_OPEN ? 1 : -1);
        }
    removeBroken();
    m_onChange();
}

/// What is sent to a clone that nobody has opened is lost.
void KeyboardSet::readersChanged(const std::string& node, int change) {
    for (auto& [number, keyboard] : m_keyboards) {
        if (keyboard.clone.node() != node)
            continue;
        keyboard.readers = std::max(0, keyboard.readers + change);
        if (keyboard.readers == 0)
            letGo(number, keyboard);
        else if (keyboard.stage == Stage::settling)
            keyboard.timer = m_loop.after(
                keyboard.readers >= expectedReaders(node) ? settlingTime : longestSettlingTime,
                [this, number = number] { take(number); });
    }
}

void KeyboardSet::letGo(int number, Keyboard& keyboard) {
    m_router.remove(number);
    keyboard.device.ungrab();
    keyboard.timer.reset();
    keyboard.stage = Stage::settling;
}

void KeyboardSet::tryNodes() {
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(folder, error))
        tryNode(entry.path().filename());
}

void KeyboardSet::tryNode(const std::string& name) {
    if (!name.starts_with("event") || isKnown(name) || m_keyboards.size() >= mostKeyboards)
        return;
    auto device = InputDevice::openKeyboard(folder + ("/" + name));
    if (!device)
        return;
    const int number = m_nextNumber++;
    auto fault = DeviceClone::Fault::none;
    auto clone = DeviceClone::of(device->descriptor(), number, fault);
    m_uinputIsMissing = fault == DeviceClone::Fault::noUinput;
    if (m_uinputIsMissing)
        m_uinputTimer = m_loop.after(retryInterval, [this] {
            tryNodes();
            m_onChange();
        });
    if (!clone)
        return;
    auto& keyboard =
        m_keyboards.try_emplace(number, std::move(*device), std::move(*clone)).first->second;
    m_names[number] = name;
    keyboard.events = m_loop.watch(keyboard.device.descriptor(), [this, number] { read(number); });
    keyboard.lamps = m_loop.watch(keyboard.clone.descriptor(), [&keyboard] {
        keyboard.clone.readLamps([&](const input_event& lamp) { keyboard.device.setLamp(lamp); });
    });
}

bool KeyboardSet::isKnown(const std::string& name) const {
    return std::any_of(m_names.begin(), m_names.end(),
                       [&](const auto& entry) { return entry.second == name; }) ||
           std::any_of(m_keyboards.begin(), m_keyboards.end(),
                       [&](const auto& entry) { return entry.second.clone.node() == name; });
}

void KeyboardSet::take(int number) {
    grab(number, m_keyboards.at(number));
    removeBroken();
    m_onChange();
}

/// A key that was pressed for the program that has it must be let go there too, so the keyboard is
/// taken between keys.
void KeyboardSet::grab(int number, Keyboard& keyboard) {
    keyboard.stage = Stage::waitingForKeys;
    if (keyboard.device.keysDown().any())
        return;
    // udev lets a new device be opened before it writes down whose it is.
    keyboard.isBroken = !keyboard.device.isOfFirstSeat();
    if (keyboard.isBroken)
        return;
    switch (keyboard.device.grab()) {
        case InputDevice::Grab::gone:
            keyboard.isBroken = true;
            return;
        case InputDevice::Grab::takenByAnother:
            keyboard.stage = Stage::takenByAnother;
            keyboard.timer = m_loop.after(retryInterval, [this, number] { take(number); });
            return;
        case InputDevice::Grab::done:
            break;
    }
    // What was typed until now has reached the programs.
    std::array<input_event, 64> buffer;
    for (auto events = keyboard.device.read(buffer); events && !events->empty();)
        events = keyboard.device.read(buffer);
    if (keyboard.device.keysDown().any())
        return keyboard.device.ungrab();
    keyboard.stage = Stage::grabbed;
    m_router.add(number);
}

void KeyboardSet::read(int number) {
    Keyboard& keyboard = m_keyboards.at(number);
    std::array<input_event, 64> buffer;
    const auto events = keyboard.device.read(buffer);
    if (!events)
        keyboard.isBroken = true;
    else if (keyboard.stage == Stage::waitingForKeys)
        return take(number);
    else if (keyboard.stage == Stage::grabbed)
        for (const input_event& event : *events)
            handle(number, keyboard, event);
    removeBroken();
}

void KeyboardSet::handle(int number, Keyboard& keyboard, const input_event& event) {
    if (keyboard.lostEvents) {
        if (event.type != EV_SYN || event.code != SYN_REPORT)
            return;
        keyboard.lostEvents = false;
        return m_router.resync(number, keyboard.device.keysDown());
    }
    bool works = true;
    if (event.type == EV_KEY)
        m_router.key(number, event.code, event.value);
    else if (event.type == EV_REL || event.type == EV_ABS || event.type == EV_SW)
        works = keyboard.clone.send(event);
    else if (event.type == EV_SYN && event.code == SYN_REPORT)
        works = keyboard.clone.endFrame();
    else if (event.type == EV_SYN && event.code == SYN_DROPPED)
        keyboard.lostEvents = true;
    if (!works)
        keyboard.isBroken = true;
}

void KeyboardSet::removeBroken() {
    bool changed = false;
    for (auto keyboard = m_keyboards.begin(); keyboard != m_keyboards.end();) {
        const auto next = std::next(keyboard);
        if (keyboard->second.isBroken) {
            giveBack(keyboard);
            changed = true;
        }
        keyboard = next;
    }
    if (changed)
        m_onChange();
}

void KeyboardSet::giveBack(Keyboards::iterator keyboard) {
    const int number = keyboard->first;
    letGo(number, keyboard->second);
    m_names.erase(number);
    m_keyboards.erase(keyboard);
}

}  // namespace nulo::keytap
