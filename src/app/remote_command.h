#pragma once
// `vantler remote add|list|status|remove`: agents on other machines over SSH, and in
// containers.

#include <string>
#include <vector>

namespace RemoteCommand {

// `args` are the words after "remote". Returns the exit status.
int run(const std::vector<std::string>& args);

}  // namespace RemoteCommand
