#include "bridge/agent_payloads.h"

#include <algorithm>
#include <cctype>
#include <string_view>

namespace AgentPayloads {

Json cline(const Json& payload) {
  using JsonField::object;
  using JsonField::str;
  const std::string event = str(payload, "hookName", str(payload, "hook_event_name"));
  Json out = {{"hook_event_name", event}, {"session_id", str(payload, "taskId")}};
  for (const char* key : {"_agent", "_host", "agentPid", "_cwd"})
    if (const Json* v = JsonField::find(payload, key)) out[key] = *v;
  const Json& roots = JsonField::array(payload, "workspaceRoots");
  if (!roots.empty() && roots[0].is_string()) out["cwd"] = roots[0];
  if (std::string model = str(object(payload, "model"), "slug"); !model.empty())
    out["model"] = model;

  // The event's own object: "preToolUse" for "PreToolUse", "taskStart" for "TaskStart".
  std::string own = event;
  if (!own.empty()) own[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(own[0])));
  const Json& details = object(payload, own);
  const Json& call = object(payload, "tool_call");
  std::string tool = str(details, "toolName", str(call, "name"));
  const Json* input = JsonField::find(details, "parameters");
  if (!input || !input->is_object()) input = JsonField::find(call, "input");
  if (!tool.empty()) {
    out["tool_name"] = tool;
    out["tool_input"] = input && input->is_object() ? *input : Json::object();
  }
  if (std::string id = str(call, "id"); !id.empty()) out["tool_use_id"] = id;
  if (event == "PostToolUse" && !JsonField::boolean(details, "success", true))
    out["hook_event_name"] = "PostToolUseFailure";
  if (event == "UserPromptSubmit") out["prompt"] = str(details, "prompt");
  if (event == "Notification") {
    out["message"] = str(details, "message");
    if (JsonField::boolean(details, "waitingForUserInput"))
      out["notification_type"] = "permission_prompt";
  }
  return out;
}

bool crushAsks(const Json& payload, const std::string& tool) {
  static constexpr std::string_view kAsking[] = {"bash",  "edit",     "multiedit",    "write",
                                                 "fetch", "download", "agentic_fetch"};
  const bool asking = tool.starts_with("mcp_") ||
                      std::find(std::begin(kAsking), std::end(kAsking), tool) != std::end(kAsking);
  if (!asking || JsonField::boolean(payload, "_crush_yolo")) return false;
  for (const Json& allowed : JsonField::array(payload, "_crush_allowed")) {
    if (!allowed.is_string()) continue;
    const std::string& rule = allowed.get_ref<const std::string&>();
    if (rule == tool) return false;
  }
  return true;
}

std::string promptText(const Json* prompt) {
  if (!prompt) return {};
  if (prompt->is_string()) return prompt->get<std::string>();
  std::string text;
  if (!prompt->is_array()) return text;
  for (const Json& part : *prompt) {
    std::string piece = part.is_string() ? part.get<std::string>() : JsonField::str(part, "text");
    if (piece.empty()) continue;
    if (!text.empty()) text += ' ';
    text += piece;
  }
  return text;
}

}  // namespace AgentPayloads
