// Claude Code hook events, and the event vocabulary every other agent is translated into.

#include <glib.h>

#include "bridge/adapters.h"
#include "core/prefs.h"
#include "core/tool_text.h"

namespace {

std::string shortUuid() {
  gchar* uuid = g_uuid_string_random();
  std::string out(uuid, 8);
  g_free(uuid);
  return out;
}

void copySurroundings(Session& s, const Json& payload) {
  const Json& host = JsonField::object(payload, "_host");
  if (const Json* pid = JsonField::find(host, "pid"); pid && pid->is_number_integer())
    s.hostPid = static_cast<int32_t>(pid->get<int64_t>());
  if (JsonField::hasString(host, "bundle")) s.hostBundle = JsonField::str(host, "bundle");
  if (JsonField::hasString(host, "tty")) s.tty = JsonField::str(host, "tty");
  if (const Json* pid = JsonField::find(payload, "agentPid"); pid && pid->is_number_integer())
    s.agentPid = static_cast<int32_t>(pid->get<int64_t>());
}

bool isPromptNotification(const std::string& type) {
  return type == "permission_prompt" || type == "elicitation_dialog" || type == "agent_needs_input";
}

}  // namespace

std::optional<std::string> Adapters::handle(const Json& payload, Hub::Reply reply) {
  const std::string agent = JsonField::str(payload, "_agent", "claude");
  if (agent == "cursor") return cursor_.handle(payload, std::move(reply));
  if (agent == "claude" || agent == "codex" || !JsonField::hasString(payload, "_agent"))
    return claude_.handle(payload, std::move(reply));
  return others_.handle(payload, std::move(reply));
}

std::optional<std::string> ClaudeAdapter::handle(const Json& payload, Hub::Reply reply) {
  if (!JsonField::hasString(payload, "session_id") ||
      !JsonField::hasString(payload, "hook_event_name")) {
    reply("");
    return std::nullopt;
  }
  const Agent agent = Agents::parse(JsonField::str(payload, "_agent")).value_or(Agent::claude);
  const std::string key =
      std::string(Agents::raw(agent)) + ":" + JsonField::str(payload, "session_id");
  const std::string event = JsonField::str(payload, "hook_event_name");
  const Date t = hub_.now();

  Session s = hub_.session(key, agent, JsonField::str(payload, "cwd"));
  hub_.untuck(key);
  s.updated = t;
  copySurroundings(s, payload);
  if (JsonField::hasString(payload, "transcript_path")) {
    s.transcript = JsonField::str(payload, "transcript_path");
    if (auto stats = hub_.transcripts().update(*s.transcript)) s.stats = std::move(*stats);
  }

  const std::string tool = JsonField::str(payload, "tool_name");
  const Json& input = JsonField::object(payload, "tool_input");
  const bool mainAgent = !JsonField::find(payload, "agent_id");
  std::optional<std::string> held;
  bool attention = false;

  auto open = [&](std::string id, Pending::Kind kind, Json toolInput) {
    hub_.openRequest(s, Pending{id, std::move(kind), std::move(toolInput), t, false}, reply);
    held = std::move(id);
    attention = true;
  };

  if (event == "SessionStart") {
    if (s.mood != Mood::working) s.mood = Mood::idle;
  } else if (event == "UserPromptSubmit") {
    hub_.clearPending(s);
    s.title = ToolText::headline(JsonField::str(payload, "prompt"));
    s.mood = Mood::working;
    s.activity = "Thinking";
    s.tally.clear();
    s.tools.clear();
    s.turnCalls = 0;
    s.phase = "reasoning";
    s.turnStarted = t;
    s.finishedAt.reset();
  } else if (event == "PreToolUse") {
    if (mainAgent && tool != "AskUserQuestion") {
      s.activity = ToolText::activity(tool, input);
      s.pushTool(s.activity);
      s.countTool(tool, input, t);
      s.mood = Mood::working;
    }
  } else if (event == "PostToolUse" || event == "PostToolUseFailure") {
    if (mainAgent) {
      s.finishTools(event == "PostToolUseFailure");
      const std::string toolUse = JsonField::str(payload, "tool_use_id");
      // The call went ahead, so a prompt shown elsewhere, or the request for this very call
      // (answered in the terminal), is over.
      if (s.pending &&
          (s.pending->is<Pending::Elsewhere>() || (!toolUse.empty() && s.pending->id == toolUse)))
        hub_.clearPending(s);
      if (!s.pending) s.mood = Mood::working;
    }
  } else if (event == "PermissionRequest") {
    std::string id = JsonField::str(payload, "tool_use_id");
    if (id.empty()) id = key + ":perm:" + shortUuid();
    if (tool == "AskUserQuestion") {
      open(id, Pending::Questions{ToolText::questions(input)}, input);
    } else {
      auto [title, detail] = ToolText::permission(tool, input);
      open(id, Pending::Permission{std::move(title), std::move(detail), tool}, input);
    }
  } else if (event == "Notification") {
    if (isPromptNotification(JsonField::str(payload, "notification_type")) && !s.pending) {
      std::string message = JsonField::str(payload, "message");
      if (message.empty()) message = "Needs your input";
      // Shown only: the agent asks in its own window, so nothing waits for an answer here.
      s.pending =
          Pending{key + ":note", Pending::Elsewhere{std::move(message)}, Json::object(), t, false};
      s.mood = Mood::waiting;
      attention = true;
    }
  } else if (event == "Stop") {
    hub_.clearPending(s);
    s.finishTools(false);
    s.mood = Mood::done;
    s.finishedAt = t;
    const std::string last = JsonField::str(payload, "last_assistant_message");
    s.activity = last.empty() ? "Finished" : ToolText::shorten(last, 90);
    if (s.activity.empty()) s.activity = "Finished";
    hub_.flashSession(key);
    for (double delay : {Hub::kPrRefreshSoon, Hub::kPrRefreshLater}) {
      hub_.later(delay, [key](Hub& hub) {
        if (const Session* found = hub.find(key)) hub.github().refresh({found->root}, true);
      });
    }
    const int64_t window = Prefs::replyWindow(hub_.defaults());
    if (window > 0 && Agents::canReply(agent) && !JsonField::boolean(payload, "stop_hook_active")) {
      open(key + ":reply:" + shortUuid(), Pending::Reply{last, t + static_cast<double>(window)},
           Json::object());
    }
  } else if (event == "PreCompact") {
    s.activity = "Compacting";
  } else if (event == "SessionEnd") {
    // The agent has exited: its request can no longer be answered. The session stays in the
    // list as finished, so the user still sees how it ended; clearing or hiding removes it.
    hub_.clearPending(s);
    s.finishTools(false);
    if (s.mood != Mood::done) {
      s.mood = Mood::done;
      s.finishedAt = t;
    }
    s.activity = "Session ended";
  }
  // "SubagentStop" and unknown events change nothing beyond the surroundings above.

  hub_.store(s);
  if (held) {
    hub_.onAttention();
    hub_.autoAnswerForTests(s);
    return held;
  }
  if (attention) hub_.onAttention();
  // Nothing waits: the hook is let go at once.
  reply("");
  return std::nullopt;
}
