#include "keytap/InputDevice.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <systemd/sd-device.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <memory>

#include "keytap/DeviceClone.h"

namespace nulo::keytap {
namespace {

bool isKeyboard(int descriptor) {
    Bits<KEY_CNT> keys(descriptor, EV_KEY);
    return keys.test(KEY_A) && keys.test(KEY_SPACE) && keys.test(KEY_LEFTALT);
}

bool isClone(int descriptor) {
    std::array<char, 64> path{};
    return ioctl(descriptor, EVIOCGPHYS(path.size() - 1), path.data()) >= 0 &&
           std::strncmp(path.data(), clonePath, std::strlen(clonePath)) == 0;
}

}  // namespace

std::optional<InputDevice> InputDevice::openKeyboard(const std::string& node) {
    InputDevice device{Descriptor(open(node.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC))};
    const int descriptor = device.descriptor();
    if (descriptor < 0 || !isKeyboard(descriptor) || isClone(descriptor) || !device.isOfFirstSeat())
        return std::nullopt;
    return device;
}

bool InputDevice::isOfFirstSeat() const {
    struct stat status {};
    if (fstat(m_descriptor.get(), &status) != 0 || !S_ISCHR(status.st_mode))
        return false;
    sd_device* found = nullptr;
    if (sd_device_new_from_devnum(&found, 'c', status.st_rdev) < 0)
        return false;
    const std::unique_ptr<sd_device, sd_device* (*)(sd_device*)> device(found, sd_device_unref);
    const char* seat = nullptr;
    return sd_device_get_property_value(found, "ID_SEAT", &seat) < 0 ||
           std::strcmp(seat, "seat0") == 0;
}

InputDevice::Grab InputDevice::grab() {
    if (ioctl(m_descriptor.get(), EVIOCGRAB, 1) == 0)
        return Grab::done;
    return errno == EBUSY ? Grab::takenByAnother : Grab::gone;
}

void InputDevice::ungrab() {
    ioctl(m_descriptor.get(), EVIOCGRAB, 0);
}

KeyRouter::KeySet InputDevice::keysDown() const {
    Bits<KEY_CNT> bits;
    ioctl(m_descriptor.get(), EVIOCGKEY(bits.size()), bits.data());
    KeyRouter::KeySet keys;
    for (int code = 0; code < KEY_CNT; ++code)
        keys.set(code, bits.test(code));
    return keys;
}

std::optional<std::span<const input_event>> InputDevice::read(std::span<input_event> buffer) {
    const ssize_t size = ::read(m_descriptor.get(), buffer.data(), buffer.size_bytes());
    if (size > 0)
        return buffer.first(size / sizeof(input_event));
    if (size < 0 && (errno == EAGAIN || errno == EINTR))
        return buffer.first(0);
    return std::nullopt;
}

void InputDevice::setLamp(const input_event& lamp) {
    const input_event events[] = {{.type = EV_LED, .code = lamp.code, .value = lamp.value},
                                  {.type = EV_SYN, .code = SYN_REPORT}};
    [[maybe_unused]] const auto written = write(m_descriptor.get(), events, sizeof events);
}

}  // namespace nulo::keytap
