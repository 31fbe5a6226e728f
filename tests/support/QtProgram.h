#pragma once

#include <QCoreApplication>

#include "rig/process/WaitUntil.h"

namespace nulo {

/// Makes this process a program of Qt's without arguments.
template <typename Application = QCoreApplication>
struct QtProgram {
    int count = 1;
    char name[5] = "test";
    char* arguments[2] = {name, nullptr};
    Application application{count, arguments};
};

/// Lets this process's own objects answer meanwhile; needs a QCoreApplication.
template <typename Condition>
bool processUntil(Condition condition,
                  std::chrono::milliseconds timeout = std::chrono::seconds(10)) {
    return waitUntil(
        [&] {
            QCoreApplication::processEvents();
            return condition();
        },
        timeout);
}

}  // namespace nulo
