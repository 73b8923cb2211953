#include "bridge/control.h"

#include <algorithm>

#include "core/prefs.h"

namespace Control {
namespace {

Json ok() {
  return {{"ok", true}};
}
Json fail(std::string message) {
  return {{"ok", false}, {"error", std::move(message)}};
}

std::vector<std::string> strings(const Json& array) {
  std::vector<std::string> out;
  for (const Json& v : array)
    if (v.is_string()) out.push_back(v.get<std::string>());
  return out;
}

}  // namespace

Json handle(Hub& hub, const Json& command) {
  if (!JsonField::hasString(command, "type")) return fail("the command has no type");
  const std::string type = JsonField::str(command, "type");
  const std::string id = JsonField::str(command, "id");

  if (type == "clear") return hub.clearFinished(), ok();
  if (type == "undo") {
    if (!hub.canUndo()) return fail("nothing to undo");
    return hub.undoClear(), ok();
  }
  if (type == "setting") {
    if (!JsonField::hasString(command, "key")) return fail("the setting has no key");
    const Json* value = JsonField::find(command, "value");
    auto error =
        Prefs::set(hub.defaults(), JsonField::str(command, "key"), value ? *value : Json(nullptr));
    hub.changed();
    return error ? fail(*error) : ok();
  }

  static const char* const kSessionCommands[] = {"allow",   "deny",    "answer", "reply",
                                                 "release", "dismiss", "engage", "answerThere",
                                                 "select",  "jump"};
  if (std::find(std::begin(kSessionCommands), std::end(kSessionCommands), type) ==
      std::end(kSessionCommands))
    return fail("unknown command " + type);

  const Session* s = hub.find(id);
  if (!s) return fail("no session " + (id.empty() ? std::string("(none given)") : id));
  const std::optional<Pending>& p = s->pending;
  // A command about a request that is no longer the one shown (the page showed it a moment
  // ago) must not settle the next one.
  const std::string request = JsonField::str(command, "request");
  if (!request.empty() && (!p || p->id != request))
    return fail("the request " + request + " of " + id + " is no longer open");

  if (type == "allow" || type == "deny") {
    if (!p || p->is<Pending::Reply>()) return fail(id + " has no open request to " + type);
    const bool always = JsonField::boolean(command, "always");
    if (always) {
      const auto* perm = p->as<Pending::Permission>();
      if (type != "allow" || !perm || perm->always.empty())
        return fail(id + " offers no rule to always allow");
    }
    hub.decide(id, type, std::nullopt, always);
  } else if (type == "answer") {
    if (!p || !p->is<Pending::Questions>()) return fail(id + " is not asking questions");
    size_t asked = p->as<Pending::Questions>()->questions.size();
    std::vector<std::string> answers = strings(JsonField::array(command, "answers"));
    if (answers.size() != asked)
      return fail(id + " asks " + std::to_string(asked) + " question" + (asked == 1 ? "" : "s") +
                  ", got " + std::to_string(answers.size()) + " answer" +
                  (answers.size() == 1 ? "" : "s"));
    hub.answer(id, answers);
  } else if (type == "reply") {
    if ((!p || !p->is<Pending::Reply>()) && !s->canType())
      return fail(id + " is not waiting for a reply");
    hub.sendReply(id, JsonField::str(command, "text"));
  } else if (type == "release" || type == "engage" || type == "answerThere") {
    if (!p) return fail(id + " has no open request");
    if (type == "release")
      hub.release(id);
    else if (type == "engage")
      hub.engage(id);
    else
      hub.answerThere(id);
  } else if (type == "dismiss") {
    hub.dismiss(id);
  } else if (type == "select") {
    hub.select(id);
  } else {
    hub.jump(id);
  }
  return ok();
}

}  // namespace Control
