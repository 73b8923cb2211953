#pragma once
// Helpers shared by the adapters that translate other agents' hook payloads.

#include <initializer_list>
#include <string>
#include <string_view>

#include "core/json.h"

namespace EventFields {

// The first of the keys whose value is a string in any of the objects, searched in order.
std::string firstString(std::initializer_list<const Json*> objects,
                        std::initializer_list<std::string_view> keys);

// A tool input given as an object, or as a string holding a JSON object (some agents send
// their arguments serialised); nullptr otherwise.
Json objectOrEncoded(const Json* value);

// "mcp__<server>__<tool>", the name the tool words understand.
std::string mcpToolName(std::string_view server, std::string_view tool);

}  // namespace EventFields
