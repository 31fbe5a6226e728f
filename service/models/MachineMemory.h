#pragma once

#include <cstdint>

namespace nulo::service {

/// In bytes.
struct MachineMemory {
    std::uintmax_t total = 0;
    std::uintmax_t available = 0;  // without pushing other programs out
};

MachineMemory machineMemory();

/// Whether an engine with so much finds room.
enum class MemoryFit {
    now,
    whenOthersEnd,
    never,  // it would take more than three quarters of the machine, which the unit does not allow
};
MemoryFit memoryFit(std::uintmax_t needed, const MachineMemory& memory);

}  // namespace nulo::service
