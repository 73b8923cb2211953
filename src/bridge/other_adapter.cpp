// Every agent but Claude Code and Cursor: each agent's event names and keys are normalised to
// the Claude Code vocabulary and share its session rules. Answers go back in the agent's own
// form (AgentAnswers); agents whose hooks can only object show their prompts as waiting in the
// agent's own window.

#include <cmath>
#include <utility>

#include "bridge/adapters.h"
#include "bridge/agent_answers.h"
#include "bridge/agent_payloads.h"
#include "bridge/event_fields.h"
#include "core/tool_text.h"

namespace {

struct EventName {
  std::string_view from;
  std::string_view to;
};

constexpr EventName kEvents[] = {
    {"SessionStart", "SessionStart"},
    {"sessionStart", "SessionStart"},
    {"session.created", "SessionStart"},
    {"session.start", "SessionStart"},
    {"TaskStart", "SessionStart"},
    {"TaskResume", "SessionStart"},
    {"agentSpawn", "SessionStart"},
    {"AgentSpawn", "SessionStart"},
    {"SessionEnd", "SessionEnd"},
    {"sessionEnd", "SessionEnd"},
    {"session.deleted", "SessionEnd"},
    {"UserPromptSubmit", "UserPromptSubmit"},
    {"BeforeAgent", "UserPromptSubmit"},
    {"userPromptSubmitted", "UserPromptSubmit"},
    {"pre_user_prompt", "UserPromptSubmit"},
    {"prompt", "UserPromptSubmit"},
    {"PromptSubmit", "UserPromptSubmit"},
    {"userPromptSubmit", "UserPromptSubmit"},
    {"agent.start", "UserPromptSubmit"},
    {"PreToolUse", "PreToolUse"},
    {"BeforeTool", "PreToolUse"},
    {"preToolUse", "PreToolUse"},
    {"tool.before", "PreToolUse"},
    {"pre_read_code", "PreToolUse"},
    {"pre_write_code", "PreToolUse"},
    {"pre_run_command", "PreToolUse"},
    {"pre_mcp_tool_use", "PreToolUse"},
    {"tool.call", "PreToolUse"},
    {"before_tool", "PreToolUse"},
    {"pre_tool", "PreToolUse"},
    {"PostToolUse", "PostToolUse"},
    {"AfterTool", "PostToolUse"},
    {"postToolUse", "PostToolUse"},
    {"tool.after", "PostToolUse"},
    {"post_read_code", "PostToolUse"},
    {"post_write_code", "PostToolUse"},
    {"post_run_command", "PostToolUse"},
    {"post_mcp_tool_use", "PostToolUse"},
    {"tool.result", "PostToolUse"},
    {"after_tool", "PostToolUse"},
    {"post_tool", "PostToolUse"},
    {"Notification", "Notification"},
    {"permission", "Notification"},
    {"Stop", "Stop"},
    {"AfterAgent", "Stop"},
    {"agentStop", "Stop"},
    {"errorOccurred", "Stop"},
    {"post_cascade_response", "Stop"},
    {"session.idle", "Stop"},
    {"StopFailure", "Stop"},
    {"TaskComplete", "Stop"},
    {"TaskCancel", "Stop"},
    {"stop", "Stop"},
    {"agent.end", "Stop"},
    {"post_agent_turn", "Stop"},
    {"post_agent", "Stop"},
    {"PermissionRequest", "PermissionRequest"},
    {"permission.ask", "PermissionRequest"},
    // The user answered in the agent's own window.
    {"PermissionResult", "PermissionResult"},
    {"permission.replied", "PermissionResult"},
    // Claude-style names some agents share verbatim.
    {"PreCompact", "PreCompact"},
    {"SubagentStop", "SubagentStop"},
    {"PostToolUseFailure", "PostToolUseFailure"},
};

std::string_view claudeEvent(std::string_view name) {
  for (const EventName& e : kEvents)
    if (e.from == name) return e.to;
  return {};
}

}  // namespace

bool OtherAgentsAdapter::mirrors(const std::string& sessionId) const {
  return devinSessions_.count(sessionId) > 0;
}

std::optional<std::string> OtherAgentsAdapter::handle(const Json& received, Hub::Reply reply) {
  using EventFields::firstString;
  const Agent agent = Agents::parse(JsonField::str(received, "_agent")).value_or(Agent::gemini);
  const AgentAnswers::Style style = AgentAnswers::of(agent);
  // Every answer, the "nothing to say" of an event that is not held included, in the agent's
  // own form.
  Hub::Reply answer = [style, reply = std::move(reply)](const std::string& body) {
    reply(AgentAnswers::write(style, body));
  };
  const Json payload = agent == Agent::cline ? AgentPayloads::cline(received) : received;

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
  std::string_view event = claudeEvent(name);
  if (event.empty()) {
    answer("");
    return std::nullopt;
  }

  // Windsurf has the working directory only in the data of its command actions; Augment names
  // its workspace folders; Aider sends nothing, and its hook runs in its folder.
  std::string cwd = top({"cwd", "directory", "workspace", "workspacePath", "working_dir"});
  if (cwd.empty()) cwd = firstString({&input}, {"cwd"});
  if (const Json& roots = JsonField::array(payload, "workspace_roots");
      cwd.empty() && !roots.empty() && roots[0].is_string())
    cwd = roots[0].get<std::string>();
  if (cwd.empty() && agent == Agent::aider) cwd = top({"_cwd"});
  Json out = {{"hook_event_name", event}, {"_agent", Agents::raw(agent)}, {"cwd", cwd}};
  // Without a session id the shared rules let the hook go without touching any session. Kiro
  // and Aider have none: their session is the agent's process in its folder.
  std::string sessionId =
      top({"session_id", "sessionId", "sessionID", "trajectory_id", "conversation_id"});
  const Json* pid = JsonField::find(payload, "agentPid");
  if (sessionId.empty() && (agent == Agent::kiro || agent == Agent::aider) && pid &&
      pid->is_number_integer())
    sessionId = std::to_string(pid->get<int64_t>()) + "@" + cwd;
  if (!sessionId.empty()) out["session_id"] = sessionId;
  if (const Json* host = JsonField::find(payload, "_host")) out["_host"] = *host;
  if (const Json* machine = JsonField::find(payload, "_machine")) out["_machine"] = *machine;
  if (pid) out["agentPid"] = *pid;
  // Agents that write Claude Code's transcript format, and Qwen Code and Kimi Code, whose own
  // formats are read too, pass its path on.
  if (agent == Agent::qoder || agent == Agent::codebuddy || agent == Agent::gemini ||
      agent == Agent::droid || agent == Agent::copilot || agent == Agent::windsurf ||
      agent == Agent::opencode || agent == Agent::qwen || agent == Agent::kimi) {
    if (std::string t = top({"transcript_path"}); !t.empty()) out["transcript_path"] = t;
  }
  const std::string key =
      sessionKey(Agents::raw(agent), JsonField::str(payload, "_machine"), sessionId);
  // Devin CLI also runs Claude Code's hooks: its session is not shown twice.
  if (agent == Agent::devin && !sessionId.empty()) {
    if (devinSessions_.size() >= kDevinKept) devinSessions_.clear();
    devinSessions_.insert(sessionId);
    claude_.hub().remove(sessionKey("claude", JsonField::str(payload, "_machine"), sessionId));
  }

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
  const std::string status = top({"tool_status"});
  if (event == "PostToolUse" && (status == "error" || status == "failed"))
    event = "PostToolUseFailure";
  if (event == "PreToolUse" || event == "PostToolUse" || event == "PostToolUseFailure" ||
      event == "PermissionRequest") {
    out["tool_name"] = tool;
    out["tool_input"] = input;
    if (std::string id = top({"tool_use_id", "tool_call_id", "toolUseID"}); !id.empty())
      out["tool_use_id"] = id;
  }

  // A permission prompt the hook cannot answer is shown as the agent waiting in its window.
  if (event == "PermissionRequest" && !AgentAnswers::answers(agent)) {
    auto [title, detail] = ToolText::permission(tool, input);
    std::string message = top({"action", "display"});
    if (message.empty())
      message =
          ToolText::canonical(tool) == "Bash" ? title + " " + ToolText::shorten(detail, 60) : title;
    out["hook_event_name"] = "Notification";
    out["notification_type"] = "permission_prompt";
    out["message"] = message;
  } else if (event == "PermissionRequest") {
    if (const Json* offered = JsonField::find(payload, "permission_suggestions"))
      out["permission_suggestions"] = *offered;
  } else if (event == "PermissionResult") {
    settleElsewhere(key);
    answer("");
    return std::nullopt;
  } else if (event == "UserPromptSubmit") {
    std::string prompt = AgentPayloads::promptText(JsonField::find(payload, "prompt"));
    if (prompt.empty()) prompt = field({"user_prompt", "userPrompt", "message"});
    // Qwen Code (0.24) sends the tool results it hands back to the model as a prompt of their
    // own, with no text and the turn's prompt_id: the turn goes on.
    if (prompt.empty() && agent == Agent::qwen) {
      answer("");
      return std::nullopt;
    }
    out["prompt"] = prompt;
  } else if (event == "Stop") {
    std::string last = field({"last_assistant_message", "prompt_response", "response", "error"});
    // Copilot reports a failure as an object.
    if (last.empty()) last = JsonField::str(JsonField::object(payload, "error"), "message");
    out["last_assistant_message"] = last;
    if (const Json* active = JsonField::find(payload, "stop_hook_active"))
      out["stop_hook_active"] = *active;
  } else if (event == "Notification") {
    std::string message = field({"message", "details", "notification_message"});
    out["message"] = message.empty() ? "Needs your input" : message;
    // OpenCode's permission event and Gemini CLI's tool permission prompt both mean the agent
    // now waits for the user in its own window; so does every call of Aider's notification
    // command.
    const std::string type = JsonField::str(payload, "notification_type");
    out["notification_type"] =
        name == "permission" || type == "ToolPermission" || type == "permission_prompt"
            ? "permission_prompt"
        : agent == Agent::aider ? "agent_needs_input"
                                : type;
  }

  // Crush asks its hook before every call, and Amp's plugin sees every call: the call is shown,
  // and held for the user only where the agent itself would have asked.
  const bool holdCall = event == "PreToolUse" &&
                        ((agent == Agent::crush && AgentPayloads::crushAsks(payload, tool)) ||
                         (agent == Agent::amp && ToolText::canonical(tool) == "Bash"));
  std::optional<std::string> held;
  if (holdCall) {
    claude_.handle(out, [](const std::string&) {});
    out["hook_event_name"] = "PermissionRequest";
    held = claude_.handle(out, std::move(answer));
  } else {
    held = claude_.handle(out, std::move(answer));
  }
  noteStats(key, payload);
  return held;
}

void OtherAgentsAdapter::settleElsewhere(const std::string& key) {
  Hub& hub = claude_.hub();
  const Session* found = hub.find(key);
  if (!found || !found->pending || !found->pending->is<Pending::Elsewhere>()) return;
  Session s = *found;
  s.pending.reset();
  s.mood = Mood::working;
  hub.store(std::move(s));
}

// Figures some agents send with their events rather than in a transcript Vantler reads: the
// model (Qwen Code at the session's start, Cline with every event), the context in use (Qwen
// Code at the end of a turn) and the session's title (Kimi Code).
void OtherAgentsAdapter::noteStats(const std::string& key, const Json& payload) {
  Hub& hub = claude_.hub();
  const Session* found = hub.find(key);
  if (!found) return;
  Session s = *found;
  const std::string model = JsonField::str(payload, "model");
  if (!model.empty()) s.stats.model = model;
  // Qwen Code's "context_usage" is the share of "context_limit" in use, not a count.
  const int64_t limit = JsonField::integer(payload, "context_limit");
  const Json* share = JsonField::find(payload, "context_usage");
  const int64_t used =
      JsonField::integer(payload, "input_tokens",
                         share && share->is_number() && share->get<double>() <= 1
                             ? std::llround(share->get<double>() * static_cast<double>(limit))
                             : JsonField::integer(payload, "context_usage"));
  if (used > 0 && limit > 0) {
    s.stats.contextTokens = used;
    s.stats.contextWindow = limit;
  }
  const std::string title = JsonField::str(payload, "session_title");
  if (!title.empty()) s.stats.customTitle = title;
  if (s.stats.model != found->stats.model || s.stats.contextTokens != found->stats.contextTokens ||
      s.stats.contextWindow != found->stats.contextWindow ||
      s.stats.customTitle != found->stats.customTitle)
    hub.store(std::move(s));
}
