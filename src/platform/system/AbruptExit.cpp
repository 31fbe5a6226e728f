#include "platform/system/AbruptExit.h"

#include <stdlib.h>
#include <unistd.h>

#include <utility>

namespace nulo {
namespace {

std::function<void()>& cleanUpNow() {
    static auto& function = *new std::function<void()>;
    return function;
}

void endAtOnce(int status, void*) {
    const auto cleanUp = std::exchange(cleanUpNow(), nullptr);
    if (!cleanUp)
        return;  // the end of main()
    cleanUp();
    _exit(status);
}

}  // namespace

AbruptExit::AbruptExit(std::function<void()> cleanUp) {
    cleanUpNow() = std::move(cleanUp);
    comeFirst();
}

AbruptExit::~AbruptExit() {
    cleanUpNow() = nullptr;
}

void AbruptExit::comeFirst() {
    on_exit(endAtOnce, nullptr);
}

}  // namespace nulo
