// Gemini CLI, droid, Windsurf, Copilot CLI and OpenCode: each agent's event names and keys are
// normalised to the Claude Code vocabulary and share its session rules.

#include <array>
#include <utility>

#include "bridge/adapters.h"
#include "bridge/event_fields.h"

namespace {

struct EventName {
  std::string_view from;
  std::string_view to;
};

constexpr std::array<EventName, 38> kEvents{{
    {"SessionStart", "SessionStart"},
    {"sessionStart", "SessionStart"},
    {"session.created", "SessionStart"},
    {"SessionEnd", "SessionEnd"},
    {"sessionEnd", "SessionEnd"},
    {"session.deleted", "SessionEnd"},
    {"UserPromptSubmit", "UserPromptSubmit"},
    {"BeforeAgent", "UserPromptSubmit"},
    {"userPromptSubmitted", "UserPromptSubmit"},
    {"pre_user_prompt", "UserPromptSubmit"},
    {"prompt", "UserPromptSubmit"},
    {"PreToolUse", "PreToolUse"},
    {"BeforeTool", "PreToolUse"},
    {"preToolUse", "PreToolUse"},
    {"tool.before", "PreToolUse"},
    {"pre_read_code", "PreToolUse"},
    {"pre_write_code", "PreToolUse"},
    {"pre_run_command", "PreToolUse"},
    {"pre_mcp_tool_use", "PreToolUse"},
    {"PostToolUse", "PostToolUse"},
    {"AfterTool", "PostToolUse"},
    {"postToolUse", "PostToolUse"},
    {"tool.after", "PostToolUse"},
    {"post_read_code", "PostToolUse"},
    {"post_write_code", "PostToolUse"},
    {"post_run_command", "PostToolUse"},
    {"post_mcp_tool_use", "PostToolUse"},
    {"Notification", "Notification"},
    {"permission", "Notification"},
    {"Stop", "Stop"},
    {"AfterAgent", "Stop"},
    {"agentStop", "Stop"},
    {"errorOccurred", "Stop"},
    {"post_cascade_response", "Stop"},
    {"session.idle", "Stop"},
    // Claude-style names some agents share verbatim.
    {"PreCompact", "PreCompact"},
    {"SubagentStop", "SubagentStop"},
    {"PostToolUseFailure", "PostToolUseFailure"},
}};

std::string_view claudeEvent(std::string_view name) {
  for (const EventName& e : kEvents)
    if (e.from == name) return e.to;
  return {};
}

}  // namespace

std::optional<std::string> OtherAgentsAdapter::handle(const Json& payload, Hub::Reply reply) {
  using EventFields::firstString;
  const Json* inputKey = nullptr;
  for (const char* k : {"tool_input", "toolArgs", "args", "tool_info"}) {
    const Json* v = JsonField::find(payload, k);
    if (v && EventFields::objectOrEncoded(v).is_object()) {
      inputKey = v;
      break;
    }
  }
  Json input = inputKey ? EventFields::objectOrEncoded(inputKey) : Json::object();
  auto top = [&](std::initializer_list<std::string_view> keys) {
    return firstString({&payload}, keys);
  };
  // Some agents put the call's details inside the tool input rather than beside it.
  auto field = [&](std::initializer_list<std::string_view> keys) {
    return firstString({&payload, &input}, keys);
  };

  const std::string name = top({"hook_event_name", "agent_action_name", "event"});
  const std::string_view event = claudeEvent(name);
  if (event.empty()) {
    reply("");
    return std::nullopt;
  }

  // Windsurf has the working directory only in the data of its command actions.
  std::string cwd = top({"cwd", "directory", "workspace", "workspacePath"});
  if (cwd.empty()) cwd = firstString({&input}, {"cwd"});
  Json out = {
      {"hook_event_name", event}, {"_agent", JsonField::str(payload, "_agent")}, {"cwd", cwd}};
  // Without a session id the shared rules let the hook go without touching any session.
  const std::string sessionId =
      top({"session_id", "sessionId", "sessionID", "trajectory_id", "conversation_id"});
  if (!sessionId.empty()) out["session_id"] = sessionId;
  if (const Json* host = JsonField::find(payload, "_host")) out["_host"] = *host;
  if (const Json* machine = JsonField::find(payload, "_machine")) out["_machine"] = *machine;
  if (const Json* pid = JsonField::find(payload, "agentPid")) out["agentPid"] = *pid;
  if (std::string t = top({"transcript_path"}); !t.empty()) out["transcript_path"] = t;

  std::string tool = field({"tool_name", "toolName", "tool"});
  if (name.ends_with("_read_code")) {
    tool = "Read";
    input = {{"file_path", field({"file_path"})}};
  } else if (name.ends_with("_write_code")) {
    tool = "Edit";
    input = {{"file_path", field({"file_path"})}};
  } else if (name.ends_with("_run_command")) {
    tool = "Bash";
    input = {{"command", field({"command_line", "command"})}};
  } else if (name.ends_with("_mcp_tool_use")) {
    tool = EventFields::mcpToolName(field({"mcp_server_name"}), field({"mcp_tool_name"}));
    Json arguments = EventFields::objectOrEncoded(JsonField::find(input, "mcp_tool_arguments"));
    input = arguments.is_object() ? arguments : Json::object();
  }
  if (event == "PreToolUse" || event == "PostToolUse" || event == "PostToolUseFailure") {
    out["tool_name"] = tool;
    out["tool_input"] = input;
  }

  if (event == "UserPromptSubmit") {
    out["prompt"] = field({"prompt", "user_prompt", "userPrompt"});
  } else if (event == "Stop") {
    std::string last = field({"last_assistant_message", "prompt_response", "response", "error"});
    // Copilot reports a failure as an object.
    if (last.empty()) last = JsonField::str(JsonField::object(payload, "error"), "message");
    out["last_assistant_message"] = last;
    if (const Json* active = JsonField::find(payload, "stop_hook_active"))
      out["stop_hook_active"] = *active;
  } else if (event == "Notification") {
    std::string message = field({"message", "details"});
    out["message"] = message.empty() ? "Needs your input" : message;
    // OpenCode's permission event and Gemini CLI's tool permission prompt both mean the agent
    // now waits for the user in its own window.
    const std::string type = JsonField::str(payload, "notification_type");
    out["notification_type"] =
        name == "permission" || type == "ToolPermission" ? "permission_prompt" : type;
  }
  return claude_.handle(out, std::move(reply));
}
