// In the virtual machine of keytap.py: how long a key takes from a keyboard to a program that reads
// it. bench-machine COUNT makes a keyboard and reads it itself; bench-machine COUNT clone reads the
// virtual keyboard that nulo-keytap makes beside it. Prints microseconds, a line for each press.

#include <fcntl.h>
#include <linux/uinput.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <thread>

#include "common/Report.h"
#include "rig/process/WaitUntil.h"

namespace nulo {
namespace {

using namespace std::chrono_literals;

constexpr const char* keyboardName = "Nulo's benchmark";
constexpr int key = KEY_F20;

int presses = 0;
bool readsClone = false;

int checked(int result, const char* what) {
    if (result < 0)
        throw std::runtime_error(std::string(what) + ": " + std::strerror(errno));
    return result;
}

void write(int device, int type, int code, int value) {
    input_event event{};
    event.type = static_cast<std::uint16_t>(type);
    event.code = static_cast<std::uint16_t>(code);
    event.value = value;
    checked(static_cast<int>(::write(device, &event, sizeof event)), "a key");
}

int makeKeyboard() {
    const int device = checked(open("/dev/uinput", O_WRONLY | O_CLOEXEC), "/dev/uinput");
    checked(ioctl(device, UI_SET_EVBIT, EV_KEY), "keys");
    for (int code = KEY_ESC; code <= KEY_F24; ++code)
        checked(ioctl(device, UI_SET_KEYBIT, code), "keys");
    uinput_setup setup{};
    setup.id.bustype = BUS_USB;
    std::strcpy(setup.name, keyboardName);
    checked(ioctl(device, UI_DEV_SETUP, &setup), "a keyboard");
    checked(ioctl(device, UI_DEV_CREATE), "a keyboard");
    return device;
}

/// Of the keyboard, or of what stands for it; -1 when there is none.
int openReader() {
    for (const auto& node : std::filesystem::directory_iterator("/dev/input")) {
        const int device = open(node.path().c_str(), O_RDONLY | O_CLOEXEC);
        char name[64] = "", path[64] = "";
        ioctl(device, EVIOCGNAME(sizeof name - 1), name);
        ioctl(device, EVIOCGPHYS(sizeof path - 1), path);
        const bool isClone = std::strncmp(path, "nulo-keytap/", 12) == 0;
        if (std::strcmp(name, keyboardName) == 0 && isClone == readsClone)
            return device;
        close(device);
    }
    return -1;
}

void run() {
    const int keyboard = makeKeyboard();
    int reader = -1;
    if (!waitUntil([&] { return (reader = openReader()) >= 0; }, 60s))
        throw std::runtime_error("no device to read from");
    std::atomic<BenchClock::rep> arrived = 0;
    std::thread program([&] {
        input_event event;
        while (::read(reader, &event, sizeof event) == sizeof event)
            if (event.type == EV_KEY && event.value == 1)
                arrived = BenchClock::now().time_since_epoch().count();
    });
    program.detach();  // it waits for keys until the end
    const auto press = [&](std::chrono::milliseconds patience) {
        arrived = 0;
        const auto pressed = BenchClock::now();
        write(keyboard, EV_KEY, key, 1);
        write(keyboard, EV_SYN, SYN_REPORT, 0);
        const bool hasArrived = waitUntil([&] { return arrived != 0; }, patience);
        write(keyboard, EV_KEY, key, 0);
        write(keyboard, EV_SYN, SYN_REPORT, 0);
        std::this_thread::sleep_for(20ms);
        return hasArrived ? microseconds(BenchClock::duration(arrived) - pressed.time_since_epoch())
                          : -1;
    };
    // A keyboard is taken over some time after its clone is there.
    if (!waitUntil([&] { return press(100ms) > 0; }, 60s))
        throw std::runtime_error("no key arrives");
    for (int i = 0; i < presses; ++i) {
        const double time = press(10s);
        if (time < 0)
            throw std::runtime_error("a key was lost");
        std::printf("%.1f\n", time);
    }
    std::fflush(stdout);
    _exit(0);
}

}  // namespace
}  // namespace nulo

int main(int argc, char** argv) {
    nulo::presses = argc > 1 ? std::atoi(argv[1]) : 0;
    nulo::readsClone = argc > 2 && std::strcmp(argv[2], "clone") == 0;
    if (nulo::presses < 1 || argc > 3 || (argc == 3 && !nulo::readsClone)) {
        std::fprintf(stderr, "usage: bench-machine COUNT [clone]\n");
        return 2;
    }
    return nulo::runBench("bench-machine", nulo::run);
}
