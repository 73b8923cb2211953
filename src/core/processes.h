#pragma once
// What the system says about a process by its pid.

#include <cstdint>
#include <optional>

namespace Processes {

// When the process started, in clock ticks after boot (field 22 of /proc/<pid>/stat); nothing
// when no such process runs or its record cannot be read.
std::optional<uint64_t> startTime(int32_t pid);

}  // namespace Processes
