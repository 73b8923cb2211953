#pragma once
// Payload shapes of single agents that the shared adapter cannot read by key lists alone.

#include <string>

#include "core/json.h"

namespace AgentPayloads {

// Cline's camelCase payload, with the call's details nested under the event's own name, in the
// flat keys the other agents use ("hook_event_name", "session_id", "tool_name", …).
Json cline(const Json& payload);

// Whether Crush would ask the user before this call: its tools that change files, run
// commands or reach the network, and every MCP tool, unless the settings' allowed_tools list it
// (forwarded by the hook as "_crush_allowed") or Crush runs without asking ("_crush_yolo").
bool crushAsks(const Json& payload, const std::string& tool);

// A prompt as text: a string, or a list of content parts whose texts are joined.
std::string promptText(const Json* prompt);

}  // namespace AgentPayloads
