#include "bridge/event_fields.h"

namespace EventFields {

std::string firstString(std::initializer_list<const Json*> objects,
                        std::initializer_list<std::string_view> keys) {
  for (std::string_view key : keys) {
    for (const Json* obj : objects) {
      if (!obj) continue;
      if (const Json* v = JsonField::find(*obj, key); v && v->is_string())
        return v->get_ref<const std::string&>();
    }
  }
  return {};
}

Json objectOrEncoded(const Json* value) {
  if (!value) return nullptr;
  if (value->is_object()) return *value;
  if (value->is_string()) {
    Json parsed = JsonField::parse(value->get_ref<const std::string&>());
    if (parsed.is_object()) return parsed;
  }
  return nullptr;
}

std::string mcpToolName(std::string_view server, std::string_view tool) {
  return "mcp__" + std::string(server) + "__" + std::string(tool);
}

}  // namespace EventFields
