#include "bridge/agent_answers.h"

#include "core/json.h"

namespace AgentAnswers {

Style of(Agent agent) {
  switch (agent) {
    case Agent::crush:
      return Style::crush;
    case Agent::cline:
      return Style::cline;
    case Agent::amp:
      return Style::amp;
    case Agent::kilo:
      return Style::kilo;
    case Agent::kimi:
    case Agent::goose:
    case Agent::kiro:
    case Agent::augment:
    case Agent::vibe:
    case Agent::junie:
    case Agent::aider:
      return Style::veto;
    default:
      return Style::claude;
  }
}

std::string write(Style style, std::string_view claudeBody) {
  if (style == Style::claude || style == Style::veto) return std::string(claudeBody);
  if (style == Style::cline) return R"({"cancel":false})";
  const Json body = claudeBody.empty() ? Json() : JsonField::parse(claudeBody);
  const Json& decision =
      JsonField::object(JsonField::object(body, "hookSpecificOutput"), "decision");
  const std::string behavior = JsonField::str(decision, "behavior");
  const bool known = behavior == "allow" || behavior == "deny";
  switch (style) {
    case Style::crush:
      return JsonField::compact(
          {{"version", 1}, {"decision", known ? Json(behavior) : Json(nullptr)}});
    case Style::amp:
      if (!known) return {};
      if (behavior == "allow") return R"({"action":"allow"})";
      return JsonField::compact(
          {{"action", "reject-and-continue"}, {"message", JsonField::str(decision, "message")}});
    case Style::kilo:
      return known ? JsonField::compact({{"status", behavior}}) : std::string();
    default:
      return std::string(claudeBody);
  }
}

}  // namespace AgentAnswers
