// Cursor's hooks, translated into the Claude Code events of the same meaning.

#include "bridge/adapters.h"
#include "bridge/event_fields.h"

std::optional<std::string> CursorAdapter::handle(const Json& payload, Hub::Reply reply) {
  Hub& hub = claude_.hub();
  std::string conversation = JsonField::str(payload, "conversation_id");
  if (conversation.empty()) conversation = JsonField::str(payload, "session_id");
  const std::string key = "cursor:" + conversation;
  std::string cwd = JsonField::str(payload, "cwd");
  if (cwd.empty()) {
    const Json& roots = JsonField::array(payload, "workspace_roots");
    if (!roots.empty() && roots[0].is_string()) cwd = roots[0].get<std::string>();
  }
  const std::string hook = JsonField::str(payload, "hook_event_name");

  auto run = [&](const char* event, Json extra, Hub::Reply replyTo) {
    Json translated = std::move(extra);
    translated["hook_event_name"] = event;
    translated["session_id"] = conversation;
    translated["_agent"] = "cursor";
    translated["cwd"] = cwd;
    if (const Json* host = JsonField::find(payload, "_host")) translated["_host"] = *host;
    if (const Json* machine = JsonField::find(payload, "_machine"))
      translated["_machine"] = *machine;
    if (const Json* pid = JsonField::find(payload, "agentPid")) translated["agentPid"] = *pid;
    return claude_.handle(translated, std::move(replyTo));
  };
  // A tool that already ran arrives as one hook: it starts and finishes at once. Only the
  // second half answers the hook.
  auto toolCall = [&](const std::string& tool, Json input) {
    Json extra = {{"tool_name", tool}, {"tool_input", std::move(input)}};
    run("PreToolUse", extra, [](const std::string&) {});
    return run("PostToolUse", extra, reply);
  };

  std::optional<std::string> held;
  if (conversation.empty()) {
    reply("");
  } else if (hook == "sessionStart") {
    held = run("SessionStart", Json::object(), reply);
  } else if (hook == "beforeSubmitPrompt") {
    held = run("UserPromptSubmit", {{"prompt", JsonField::str(payload, "prompt")}}, reply);
  } else if (hook == "afterShellExecution") {
    held = toolCall("Bash", {{"command", JsonField::str(payload, "command")}});
  } else if (hook == "afterFileEdit") {
    held = toolCall("Edit", {{"file_path", JsonField::str(payload, "file_path")}});
  } else if (hook == "afterMCPExecution") {
    Json input = EventFields::objectOrEncoded(JsonField::find(payload, "tool_input"));
    held = toolCall(EventFields::mcpToolName(JsonField::str(payload, "mcp_server_name"),
                                             JsonField::str(payload, "tool_name")),
                    input.is_object() ? input : Json::object());
  } else if (hook == "afterAgentResponse") {
    lastText_[key] = JsonField::str(payload, "text");
    reply("");
  } else if (hook == "preCompact") {
    held = run("PreCompact", Json::object(), reply);
  } else if (hook == "stop") {
    const std::string status = JsonField::str(payload, "status", "completed");
    if (status == "completed") {
      auto last = lastText_.find(key);
      Json extra = {{"stop_hook_active", JsonField::integer(payload, "loop_count") > 0}};
      if (last != lastText_.end()) extra["last_assistant_message"] = last->second;
      held = run("Stop", std::move(extra), reply);
    } else {
      if (const Session* found = hub.find(key)) {
        Session s = *found;
        s.mood = Mood::idle;
        s.activity = status == "error" ? "Stopped with an error" : "Stopped";
        hub.store(std::move(s));
      }
      reply("");
    }
  } else if (hook == "sessionEnd") {
    lastText_.erase(key);
    held = run("SessionEnd", Json::object(), reply);
  } else {
    reply("");
  }

  // The model Cursor reports with any hook is kept with the session.
  const std::string model = JsonField::str(payload, "model");
  if (!model.empty() && model != "default") {
    if (const Session* found = hub.find(key); found && found->stats.model != model) {
      Session s = *found;
      s.stats.model = model;
      hub.store(std::move(s));
    }
  }
  return held;
}
