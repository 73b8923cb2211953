#pragma once
// What each agent's hook can do with an answer, and how the answer is written for it. The hub
// writes every permission decision in Claude Code's form; the adapters pass it through the
// agent's style on its way back to the hook.

#include <string>
#include <string_view>

#include "core/session.h"

namespace AgentAnswers {

enum class Style {
  claude,  // Claude Code's PermissionRequest answer, unchanged
  veto,    // the hook can only object: requests are shown, and answered in the agent's window
  crush,   // {"version": 1, "decision": "allow" | "deny" | null}
  cline,   // {"cancel": false}, whatever happens
  amp,     // {"action": "allow"} or {"action": "reject-and-continue", "message": …}
  kilo,    // {"status": "allow" | "deny"}, which the plugin hands to permission.ask
};

Style of(Agent agent);

// Whether the agent's hook can take an answer to a permission request.
inline bool answers(Agent agent) {
  return of(agent) != Style::veto && of(agent) != Style::cline;
}

// The agent's form of a body the hub wrote (a Claude Code decision, or "" for none). For an
// empty body it is the agent's "no opinion": the agent goes on as if no hook had run.
std::string write(Style style, std::string_view claudeBody);

}  // namespace AgentAnswers
