#include "service/offline/PhysicalCores.h"

#include <sched.h>

#include <algorithm>
#include <set>
#include <string>

#include "base/FileIO.h"

namespace nulo::service {

unsigned physicalCores(const std::filesystem::path& system) {
    cpu_set_t allowed;
    CPU_ZERO(&allowed);
    if (sched_getaffinity(0, sizeof allowed, &allowed) != 0)
        return 1;
    std::set<std::string> cores;
    unsigned untold = 0;
    for (int number = 0; number < CPU_SETSIZE; ++number) {
        if (!CPU_ISSET(number, &allowed))
            continue;
        // The same line for all that one core runs.
        const auto siblings =
            readFile(system / "devices/system/cpu" / ("cpu" + std::to_string(number)) /
                         "topology/thread_siblings_list",
                     4096);
        if (siblings)
            cores.insert(*siblings);
        else
            ++untold;
    }
    return std::max(1U, static_cast<unsigned>(cores.size()) + untold);
}

}  // namespace nulo::service
