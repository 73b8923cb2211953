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

// Adds to a Kimi payload the session's wire log as "transcript_path": Kimi Code's
// "<root>/sessions/<key>/<session_id>/agents/main/wire.jsonl" under KIMI_CODE_HOME (else
// ~/.kimi-code), or the Kimi CLI's "<root>/sessions/<key>/<session_id>/wire.jsonl" under
// KIMI_SHARE_DIR (else ~/.kimi), whichever is a regular file. Nothing when there is none.
void addKimiTranscript(Json& payload, const std::string& home);

}  // namespace AgentSettings
