// Claude Code hook events, and the event vocabulary every other agent is translated into.

#include <glib.h>

#include "bridge/adapters.h"
#include "bridge/permission_rules.h"
#include "core/prefs.h"
#include "core/tool_text.h"

namespace {

std::string shortUuid() {
  gchar* uuid = g_uuid_string_random();
  std::string out(uuid, 8);
  g_free(uuid);
  return out;
}

void copySurroundings(Hub& hub, Session& s, const Json& payload) {
  const Json& host = JsonField::object(payload, "_host");
  if (const Json* pid = JsonField::find(host, "pid"); pid && pid->is_number_integer())
    s.hostPid = static_cast<int32_t>(pid->get<int64_t>());
  if (JsonField::hasString(host, "bundle")) s.hostBundle = JsonField::str(host, "bundle");
  if (JsonField::hasString(host, "tty")) s.tty = JsonField::str(host, "tty");
  if (JsonField::hasString(host, "tmuxPane")) {
    s.tmux = JsonField::str(host, "tmux");
    s.tmuxPane = JsonField::str(host, "tmuxPane");
  }
  if (const Json* pid = JsonField::find(payload, "agentPid"); pid && pid->is_number_integer())
    hub.noteAgent(s, static_cast<int32_t>(pid->get<int64_t>()));
}

bool isPromptNotification(const std::string& type) {
  return type == "permission_prompt" || type == "elicitation_dialog" || type == "agent_needs_input";
}

}  // namespace

std::optional<std::string> Adapters::handle(const Json& payload, Hub::Reply reply) {
  const std::string agent = JsonField::str(payload, "_agent", "claude");
  if (agent == "cursor") return cursor_.handle(payload, std::move(reply));
  if (agent == "claude" || agent == "codex" || !JsonField::hasString(payload, "_agent")) {
    if (agent == "claude" && others_.mirrors(JsonField::str(payload, "session_id"))) {
      reply("");
      return std::nullopt;
    }
    return claude_.handle(payload, std::move(reply));
  }
  return others_.handle(payload, std::move(reply));
}

std::string ClaudeAdapter::callFor(const Session& s, const std::string& tool, const Json& input) {
  auto found = calls_.find(s.id);
  if (found == calls_.end()) return {};
  // Oldest first: parallel calls announced A, B ask in the same order.
  for (const Call& c : found->second)
    if (c.tool == tool && c.input == input && !s.request(s.id + ":" + c.id)) return c.id;
  return {};
}

std::optional<std::string> ClaudeAdapter::handle(const Json& payload, Hub::Reply reply) {
  if (!JsonField::hasString(payload, "session_id") ||
      !JsonField::hasString(payload, "hook_event_name")) {
    reply("");
    return std::nullopt;
  }
  const Agent agent = Agents::parse(JsonField::str(payload, "_agent")).value_or(Agent::claude);
  // A session on another machine is told apart by its name: claude@devbox:<id>.
  const std::string machine = JsonField::str(payload, "_machine");
  const std::string key =
      sessionKey(Agents::raw(agent), machine, JsonField::str(payload, "session_id"));
  const std::string event = JsonField::str(payload, "hook_event_name");
  const Date t = hub_.now();

  Session s = hub_.session(key, agent, JsonField::str(payload, "cwd"));
  hub_.untuck(key);
  s.updated = t;
  s.hooked = true;
  s.machine = machine;
  copySurroundings(hub_, s, payload);
  // Codex's transcript is its rollout log, which the Codex watcher reads; a transcript on
  // another machine is read there, in the background.
  if (agent != Agent::codex && JsonField::hasString(payload, "transcript_path")) {
    const std::string path = JsonField::str(payload, "transcript_path");
    if (!machine.empty()) {
      hub_.hostTranscripts().follow(key, machine, path);
    } else {
      s.transcript = path;
      if (auto stats = hub_.transcripts().update(path)) {
        // Other agents send some figures with their events (a model, the context in use, a
        // title); those stay where their transcript has none.
        if (agent != Agent::claude) {
          if (!stats->model) stats->model = s.stats.model;
          if (!stats->customTitle) stats->customTitle = s.stats.customTitle;
          if (stats->contextTokens == 0) stats->contextTokens = s.stats.contextTokens;
          if (stats->contextWindow == 0) stats->contextWindow = s.stats.contextWindow;
        }
        s.stats = std::move(*stats);
      }
    }
  }

  const std::string tool = JsonField::str(payload, "tool_name");
  const Json& input = JsonField::object(payload, "tool_input");
  const bool mainAgent = !JsonField::find(payload, "agent_id");
  const std::string callId = JsonField::str(payload, "tool_use_id");
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
    if (!callId.empty()) {
      if (calls_.size() >= kSessionsKept && !calls_.count(key)) calls_.clear();
      std::deque<Call>& calls = calls_[key];
      calls.push_back({callId, tool, input});
      if (calls.size() > kCallsKept) calls.pop_front();
    }
    if (mainAgent && tool != "AskUserQuestion") {
      s.activity = ToolText::activity(tool, input);
      s.pushTool(s.activity);
      s.countTool(tool, input, t);
      s.mood = Mood::working;
    }
  } else if (event == "PostToolUse" || event == "PostToolUseFailure") {
    // The call went ahead, so a prompt shown elsewhere, or the request for this very call
    // (answered in the terminal), is over; a subagent's call too.
    if (s.pending && s.pending->is<Pending::Elsewhere>()) s.pending.reset();
    if (!callId.empty()) {
      hub_.withdrawRequest(s, key + ":" + callId);
      if (auto calls = calls_.find(key); calls != calls_.end())
        std::erase_if(calls->second, [&](const Call& c) { return c.id == callId; });
    }
    if (mainAgent) {
      s.finishTools(event == "PostToolUseFailure");
      if (!s.pending) s.mood = Mood::working;
    }
  } else if (event == "PermissionRequest") {
    // Claude Code's request carries no call id: the call announced just before it tells which
    // one it is about. Ids are the session's key and the call's, so no answer can reach the
    // hook of another session whose agent numbers its calls alike.
    std::string call = callId.empty() ? callFor(s, tool, input) : callId;
    std::string id = key + ":" + (call.empty() ? "perm:" + shortUuid() : call);
    hub_.withdrawRequest(s, id);  // the same call asking again: the earlier hook is stale
    if (tool == "AskUserQuestion") {
      open(id, Pending::Questions{ToolText::questions(input)}, input);
    } else {
      auto [title, detail] = ToolText::permission(tool, input);
      Pending::Permission perm{std::move(title), std::move(detail), tool};
      if (auto offer = PermissionRules::offer(payload)) {
        perm.always = std::move(offer->label);
        perm.rule = std::move(offer->suggestion);
      }
      open(id, std::move(perm), input);
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
    calls_.erase(key);
    s.finishTools(false);
    s.mood = Mood::done;
    s.finishedAt = t;
    const std::string last = JsonField::str(payload, "last_assistant_message");
    s.activity = last.empty() ? "Finished" : ToolText::shorten(last, 90);
    if (s.activity.empty()) s.activity = "Finished";
    hub_.flashSession(key);
    // The project of a session on another machine is not here to ask about.
    for (double delay : {Hub::kPrRefreshSoon, Hub::kPrRefreshLater}) {
      if (!machine.empty()) break;
      hub_.later(delay, [key](Hub& hub) {
        if (const Session* found = hub.find(key)) hub.github().refresh({found->root}, true);
      });
    }
    const int64_t window = Prefs::replyWindow(hub_.defaults());
    if (window > 0 && Agents::canReply(agent) && !JsonField::boolean(payload, "stop_hook_active") &&
        hub_.holdsReply(s)) {
      open(key + ":reply:" + shortUuid(), Pending::Reply{last, t + static_cast<double>(window)},
           Json::object());
    }
  } else if (event == "PreCompact") {
    s.activity = "Compacting";
  } else if (event == "SessionEnd") {
    // The agent has exited: its request can no longer be answered. The session stays in the
    // list as finished, so the user still sees how it ended; clearing or hiding removes it.
    hub_.clearPending(s);
    calls_.erase(key);
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
