#include "keytap/DeviceClone.h"

#include <fcntl.h>
#include <linux/uinput.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <thread>

namespace nulo::keytap {
namespace {

template <int count>
bool copyBits(int original, int clone, int type, unsigned long request) {
    const Bits<count> bits(original, type);
    for (int code = 0; code < count; ++code)
        if (bits.test(code) && ioctl(clone, request, code) < 0)
            return false;
    return true;
}

bool copyAxes(int original, int clone) {
    const Bits<ABS_CNT> axes(original, EV_ABS);
    for (int code = 0; code < ABS_CNT; ++code) {
        uinput_abs_setup axis{.code = static_cast<__u16>(code)};
        if (axes.test(code) && (ioctl(original, EVIOCGABS(code), &axis.absinfo) < 0 ||
                                ioctl(clone, UI_ABS_SETUP, &axis) < 0))
            return false;
    }
    return true;
}

/// A paste needs these, whatever the keyboard has.
bool addPasteKeys(int clone) {
    return ioctl(clone, UI_SET_KEYBIT, KEY_LEFTSHIFT) >= 0 &&
           ioctl(clone, UI_SET_KEYBIT, KEY_INSERT) >= 0;
}

/// Scan codes are left out: they would tell keys that are held back.
bool copyAbilities(int original, int clone) {
    const Bits<EV_CNT> types(original, 0);
    for (const int type : {EV_SYN, EV_KEY, EV_REL, EV_ABS, EV_SW, EV_LED, EV_REP})
        if (types.test(type) && ioctl(clone, UI_SET_EVBIT, type) < 0)
            return false;
    Bits<INPUT_PROP_CNT> properties;
    ioctl(original, EVIOCGPROP(properties.size()), properties.data());
    for (int property = 0; property < INPUT_PROP_CNT; ++property)
        if (properties.test(property) && ioctl(clone, UI_SET_PROPBIT, property) < 0)
            return false;
    return copyBits<KEY_CNT>(original, clone, EV_KEY, UI_SET_KEYBIT) &&
           copyBits<REL_CNT>(original, clone, EV_REL, UI_SET_RELBIT) &&
           copyBits<SW_CNT>(original, clone, EV_SW, UI_SET_SWBIT) &&
           copyBits<LED_CNT>(original, clone, EV_LED, UI_SET_LEDBIT) && copyAxes(original, clone) &&
           addPasteKeys(clone);
}

std::string nodeOf(int clone) {
    std::array<char, 64> name{};
    if (ioctl(clone, UI_GET_SYSNAME(name.size() - 1), name.data()) < 0)
        return {};
    std::error_code error;
    const std::filesystem::path folder = "/sys/class/input";
    for (const auto& entry : std::filesystem::directory_iterator(folder / name.data(), error))
        if (std::string file = entry.path().filename(); file.starts_with("event"))
            return file;
    return {};
}

}  // namespace

std::optional<DeviceClone> DeviceClone::of(int original, int number, Fault& fault) {
    Descriptor clone(open("/dev/uinput", O_RDWR | O_NONBLOCK | O_CLOEXEC));
    fault = clone ? Fault::refused : Fault::noUinput;
    uinput_setup setup{};
    const std::string path = clonePath + std::to_string(number);
    if (!clone || !copyAbilities(original, clone.get()) ||
        ioctl(original, EVIOCGID, &setup.id) < 0 ||
        ioctl(original, EVIOCGNAME(sizeof setup.name - 1), setup.name) < 0 ||
        ioctl(clone.get(), UI_SET_PHYS, path.c_str()) < 0 ||
        ioctl(clone.get(), UI_DEV_SETUP, &setup) < 0 || ioctl(clone.get(), UI_DEV_CREATE) < 0)
        return std::nullopt;
    DeviceClone made(std::move(clone));
    made.m_node = nodeOf(made.descriptor());
    if (made.m_node.empty())
        return std::nullopt;
    fault = Fault::none;
    unsigned repeat[2];  // delay and period, in milliseconds
    if (ioctl(original, EVIOCGREP, repeat) == 0) {
        made.write(EV_REP, REP_DELAY, repeat[0]);
        made.write(EV_REP, REP_PERIOD, repeat[1]);
    }
    Bits<SW_CNT> switches;
    ioctl(original, EVIOCGSW(switches.size()), switches.data());
    for (int code = 0; code < SW_CNT; ++code)
        if (switches.test(code))
            made.write(EV_SW, code, 1);
    made.endFrame();
    return made;
}

DeviceClone::~DeviceClone() {
    if (m_descriptor)
        std::thread([descriptor = std::move(m_descriptor)] {}).detach();
}

bool DeviceClone::key(KeyCode code, bool down) {
    return write(EV_KEY, code, down) && endFrame();
}

bool DeviceClone::send(const input_event& event) {
    return write(event.type, event.code, event.value);
}

bool DeviceClone::endFrame() {
    return !m_frameIsOpen || (write(EV_SYN, SYN_REPORT, 0) && !(m_frameIsOpen = false));
}

bool DeviceClone::write(std::uint16_t type, std::uint16_t code, std::int32_t value) {
    const input_event event{.type = type, .code = code, .value = value};
    m_frameIsOpen = true;
    return ::write(m_descriptor.get(), &event, sizeof event) == sizeof event;
}

void DeviceClone::readLamps(const std::function<void(const input_event&)>& switched) {
    input_event event;
    while (::read(m_descriptor.get(), &event, sizeof event) == sizeof event)
        if (event.type == EV_LED)
            switched(event);
}

}  // namespace nulo::keytap
