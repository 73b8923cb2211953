#pragma once
// Commands that reach the hub from outside the panel: the command line's allow, deny, answer,
// reply, release and dismiss, sent over the hook socket as {"_command": {...}}. A command is
// the same object the panel sends ({"type": ..., "id": ...}); unlike the panel, the caller is
// told plainly when a command cannot apply. "subscribe", which keeps its connection, is taken
// by the router (bridge/subscribers.h).

#include "core/hub.h"
#include "core/json.h"

namespace Control {

// Runs one command and answers {"ok": true} or {"ok": false, "error": "..."}.
Json handle(Hub& hub, const Json& command);

}  // namespace Control
