#pragma once
// What the hook reads from an agent's own settings for the app, which reads no agent's files
// on its loop.

#include <sys/types.h>

#include <string>

#include "core/json.h"

namespace AgentSettings {

// Adds to a Crush payload the tools its settings allow without asking ("_crush_allowed", from
// the user's and the project's crush.json) and whether Crush runs without asking at all
// ("_crush_yolo", its --yolo flag on the agent's command line).
void addCrushPermissions(Json& payload, pid_t agentPid, const std::string& home,
                         const std::string& cwd);

// Adds to a Kimi Code payload the session's wire log as "transcript_path": the one
// "<root>/sessions/<key>/<session_id>/agents/main/wire.jsonl" that is a regular file, under the
// root KIMI_CODE_HOME names, else ~/.kimi-code. Nothing when there is none.
void addKimiTranscript(Json& payload, const std::string& home);

}  // namespace AgentSettings
