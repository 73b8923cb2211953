#pragma once
// What the hook can learn about the agent that runs it from the process tree in /proc.

#include <sys/types.h>

#include <string>

namespace Surroundings {

struct Found {
  pid_t agentPid = 0;  // the agent process; 0 when unknown
  pid_t hostPid = 0;   // the terminal or editor hosting the agent; 0 when none was found
  std::string bundle;  // the host's executable path (for a JetBrains IDE on Java, its product
                       // name); empty when no host was found
  std::string tty;     // the agent's terminal device, such as "/dev/pts/3"; empty when it has none
};

// Looks upwards from `parent` (the hook's parent process): skips shells and launchers to find
// the agent, then walks the agent's ancestors for a known terminal or editor.
// A terminal multiplexer ends the walk without a host.
Found discover(pid_t parent);

}  // namespace Surroundings
