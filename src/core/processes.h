#pragma once
// What the system says about a process by its pid.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Processes {

// When the process started, in clock ticks after boot (field 22 of /proc/<pid>/stat); nothing
// when no such process runs or its record cannot be read.
std::optional<uint64_t> startTime(int32_t pid);

// Whether the process runs an agent without a user at its prompt: `claude -p`/`--print`
// (scripts, the SDK) or `codex exec`. False when its arguments cannot be read.
bool headless(int32_t pid);
// The same decision on an argument list (argv[0] first).
bool headlessArgs(const std::vector<std::string>& args);

// The parent of a process; nothing when it cannot be read.
std::optional<int32_t> parent(int32_t pid);
// The process and its ancestors, nearest first, up to (not including) init and at most `max`.
// Where a terminal runs a program, the terminal is one of them: the window that shows a
// program belongs to the nearest of these that has one.
std::vector<int32_t> ancestors(int32_t pid, size_t max = 32);

}  // namespace Processes
