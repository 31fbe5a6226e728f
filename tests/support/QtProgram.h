#pragma once

#include <QCoreApplication>

#include "rig/process/WaitUntil.h"

namespace nulo {

/// What Qt is given for the command line of a program without arguments. Outlives the application.
struct NoArguments {
    int count = 1;
    char name[5] = "test";
    char* list[2] = {name, nullptr};
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
