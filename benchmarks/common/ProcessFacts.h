#pragma once

#include <sys/types.h>

namespace nulo {

/// What a running process has used up to now, and what it holds, all its threads together; in the
/// processor's time those that have ended count too.
struct ProcessFacts {
    long wakeUps = 0;  // times that a thread went to sleep by itself, and so woke
    double processorSeconds = 0;
    long memory = 0;          // KB, its share of what is shared counted in (PSS)
    long residentMemory = 0;  // KB, what is shared counted whole (RSS)
    int descriptors = 0;
    int threads = 0;
    int children = 0;  // processes that it has started and not collected
};

/// All 0 for a process that is gone.
ProcessFacts processFacts(pid_t process);

}  // namespace nulo
