#include "service/models/MachineMemory.h"

#include <sys/sysinfo.h>

#include <fstream>
#include <limits>
#include <string>

namespace nulo::service {

MachineMemory machineMemory() {
    struct sysinfo facts {};
    if (sysinfo(&facts) != 0)
        return {};
    MachineMemory memory{std::uintmax_t{facts.totalram} * facts.mem_unit,
                         (std::uintmax_t{facts.freeram} + facts.bufferram) * facts.mem_unit};
    // What the kernel can take back from its caches stands here alone; a sandbox may hide it.
    std::ifstream file("/proc/meminfo");
    for (std::string name; file >> name;) {
        std::uintmax_t kilobytes = 0;
        if (name == "MemAvailable:" && file >> kilobytes)
            memory.available = kilobytes * 1024;
        file.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
    }
    return memory;
}

MemoryFit memoryFit(std::uintmax_t needed, const MachineMemory& memory) {
    if (needed > memory.total / 4 * 3)
        return MemoryFit::never;
    return needed <= memory.available ? MemoryFit::now : MemoryFit::whenOthersEnd;
}

}  // namespace nulo::service
