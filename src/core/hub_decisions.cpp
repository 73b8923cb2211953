// Settling open requests: permission decisions, answers to questions, replies after a turn,
// and handing a prompt back to the agent's own window.

#include "core/hub.h"
#include "core/tool_text.h"

namespace {
constexpr const char* kDeniedMessage = "The user denied this in Vantler's panel.";
constexpr const char* kReplyPrefix = "The user replied in Vantler's panel:\n\n";
constexpr const char* kClaudeReplyPrefix =
    "The user replied in Vantler's panel. Treat this as their next message:\n\n";
constexpr const char* kClaudeSystemPrefix = "Replied in Vantler's panel: ";
}  // namespace

Json Hub::decisionBody(const std::string& behavior, const std::optional<Json>& input,
                       const Json* rule) {
  Json decision = {{"behavior", behavior}};
  if (input) decision["updatedInput"] = *input;
  if (rule) decision["updatedPermissions"] = Json::array({*rule});
  if (behavior == "deny") decision["message"] = kDeniedMessage;
  return {{"hookSpecificOutput",
           {{"hookEventName", "PermissionRequest"}, {"decision", std::move(decision)}}}};
}

// Each agent's stop hook has its own way of being told to go on with the user's words.
Json Hub::replyBody(Agent agent, const std::string& text) {
  switch (agent) {
    case Agent::droid:
      return {{"decision", "block"}, {"reason", kReplyPrefix + text}};
    case Agent::gemini:
      return {{"decision", "deny"}, {"reason", kReplyPrefix + text}};
    case Agent::cursor:
      return {{"followup_message", text}};
    default:
      return {{"hookSpecificOutput",
               {{"hookEventName", "Stop"}, {"additionalContext", kClaudeReplyPrefix + text}}},
              {"systemMessage", kClaudeSystemPrefix + text}};
  }
}

void Hub::decide(const std::string& id, const std::string& behavior,
                 const std::optional<Json>& input, bool always) {
  Session* found = findMutable(id);
  if (!found || !found->pending) return;
  Session s = *found;
  if (s.pending->is<Pending::Elsewhere>()) {
    clearPending(s);
    store(s);
    ports_.jumper->go(s);
    return;
  }
  const auto* perm = s.pending->as<Pending::Permission>();
  const Json* rule =
      always && behavior == "allow" && perm && !perm->always.empty() ? &perm->rule : nullptr;
  std::string body = JsonField::compactOrEmpty(decisionBody(behavior, input, rule));
  if (Reply reply = takeResponder(s.pending->id)) reply(body);
  showNext(s);
  s.mood = Mood::working;
  if (behavior == "deny") s.activity = "Denied from the notch";
  store(std::move(s));
}

void Hub::answer(const std::string& id, const std::vector<std::string>& answers) {
  const Session* s = find(id);
  if (!s || !s->pending) return;
  const auto* qs = s->pending->as<Pending::Questions>();
  if (!qs) return;
  Json byText = Json::object();
  for (size_t i = 0; i < qs->questions.size() && i < answers.size(); ++i)
    byText[qs->questions[i].text] = answers[i];
  Json input = s->pending->toolInput.is_object() ? s->pending->toolInput : Json::object();
  input["answers"] = std::move(byText);
  decide(id, "allow", input);
}

void Hub::sendReply(const std::string& id, const std::string& text) {
  Session* found = findMutable(id);
  if (!found) return;
  if (!found->pending) {
    // The finished turn was let go: the agent waits at its own prompt, where the reply can
    // still be typed. Its hooks tell of the new turn.
    if (found->canType()) ports_.typist->type(*found->tty, text);
    return;
  }
  if (!found->pending->is<Pending::Reply>()) return;
  Session s = *found;
  std::string body = JsonField::compactOrEmpty(replyBody(s.agent, text));
  if (Reply reply = takeResponder(s.pending->id)) reply(body);
  showNext(s);
  s.mood = Mood::working;
  s.title = ToolText::headline(text);
  s.activity = "Thinking";
  s.tally.clear();
  s.turnCalls = 0;
  s.phase = "reasoning";
  s.tools.clear();
  s.turnStarted = now();
  s.finishedAt.reset();
  store(std::move(s));
}

void Hub::engage(const std::string& id) {
  Session* found = findMutable(id);
  if (!found || !found->pending) return;
  Session s = *found;
  s.pending->engaged = true;
  store(std::move(s));
}

void Hub::release(const std::string& id) {
  Session* found = findMutable(id);
  if (!found || !found->pending) return;
  Session s = *found;
  // The agent now asks in its own window, so the session waits for the user there.
  if (s.pending->is<Pending::Permission>() || s.pending->is<Pending::Questions>())
    s.mood = Mood::waiting;
  withdrawRequest(s, s.pending->id);
  store(std::move(s));
}

void Hub::answerThere(const std::string& id) {
  release(id);
  if (const Session* s = find(id)) ports_.jumper->go(*s);
}

void Hub::autoAnswerForTests(const Session& session) {
  if (!options_.debugAnswer) return;
  std::string id = session.id;
  std::string value = *options_.debugAnswer;
  later(kAutoAnswerDelay, [id, value](Hub& hub) {
    const Session* s = hub.find(id);
    if (s && s->pending && s->pending->is<Pending::Reply>()) {
      if (value != "allow" && value != "deny") hub.sendReply(id, value);
      return;
    }
    if (value == "allow" || value == "deny") {
      hub.decide(id, value);
    } else {
      hub.answer(id, {value, value, value, value});
    }
  });
}
