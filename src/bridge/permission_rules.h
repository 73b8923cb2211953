#pragma once
// Claude Code offers, with a permission request, the standing rules that would spare the user
// the same question next time ("permission_suggestions"). The panel offers one of them as an
// "always allow" choice, labelled in words from the rule.

#include <optional>
#include <string>

#include "core/json.h"

namespace PermissionRules {

struct Offer {
  std::string label;  // "Always allow `npm test`"
  Json suggestion;    // handed back unchanged with the decision
};

// The first suggestion of the payload that can be put into words; nothing when none can.
std::optional<Offer> offer(const Json& payload);

// Words for one suggestion; empty for a kind the panel does not offer (removing rules, denying).
std::string label(const Json& suggestion);

}  // namespace PermissionRules
