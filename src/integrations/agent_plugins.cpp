// The plugins Vantler ships for agents whose hooks live inside the agent: each forwards the
// agent's events to `vantler-hook`, which honours its own deadlines (an absent or silent app
// costs an event a fraction of a second), and hands a permission answer back to the agent.

#include "integrations/more_agents.h"

namespace MoreAgents {

const std::string& ampPlugin() {
  static const std::string text =
      R"TS(// Vantler: tells the Vantler app what this Amp thread is doing, and lets you answer
// Amp's shell commands from its panel. Installed by `vantler connect amp`; `vantler disconnect
// amp` removes it. Amp loads plugins when started with PLUGINS=all.
import { spawn } from "node:child_process"
import { homedir } from "node:os"

const hook = `${homedir()}/.vantler/bin/vantler-hook`

// Runs vantler-hook with one event; resolves to its answer, or nothing.
function send(event: Record<string, unknown>): Promise<any> {
  return new Promise((resolve) => {
    try {
      const p = spawn(hook, ["amp"], { stdio: ["pipe", "pipe", "ignore"] })
      let out = ""
      p.stdout.on("data", (chunk) => { out += chunk })
      p.on("error", () => resolve(undefined))
      p.on("close", () => {
        try { resolve(out.trim() ? JSON.parse(out) : undefined) } catch { resolve(undefined) }
      })
      p.stdin.end(JSON.stringify({ cwd: process.cwd(), ...event }))
    } catch {
      resolve(undefined)
    }
  })
}

export default function (amp: any) {
  const thread = (e: any) => e?.thread?.id ?? e?.threadID
  amp.on("session.start", (e: any) => { send({ hook_event_name: "session.start", session_id: thread(e) }) })
  amp.on("agent.start", (e: any) => { send({ hook_event_name: "agent.start", session_id: thread(e), prompt: e?.message ?? "" }) })
  amp.on("agent.end", (e: any) => { send({ hook_event_name: "agent.end", session_id: thread(e) }) })
  amp.on("tool.call", async (e: any) => {
    const answer = await send({ hook_event_name: "tool.call", session_id: thread(e), tool_name: e?.tool, tool_input: e?.input ?? {}, tool_use_id: e?.toolUseID })
    return answer?.action ? answer : undefined
  })
  amp.on("tool.result", (e: any) => { send({ hook_event_name: "tool.result", session_id: thread(e), tool_name: e?.tool, tool_use_id: e?.toolUseID }) })
}
)TS";
  return text;
}

const std::string& kiloPlugin() {
  static const std::string text =
      R"JS(// Vantler: tells the Vantler app what this Kilo Code session is doing, and lets you answer
// Kilo's permission prompts from its panel. Installed by `vantler connect kilo`; `vantler
// disconnect kilo` removes it.
const hook = `${process.env.HOME}/.vantler/bin/vantler-hook`

export const Vantler = async ({ directory }) => {
  // Runs vantler-hook with one event; resolves to its answer, or nothing.
  async function send(name, data) {
    try {
      const p = Bun.spawn([hook, "kilo"], { stdin: "pipe", stdout: "pipe", stderr: "ignore" })
      p.stdin.write(JSON.stringify({ hook_event_name: name, cwd: directory, ...data }))
      p.stdin.end()
      const out = (await new Response(p.stdout).text()).trim()
      return out ? JSON.parse(out) : undefined
    } catch {
      return undefined
    }
  }
  return {
    event: async ({ event }) => {
      const p = event.properties ?? {}
      const id = p.sessionID ?? p.info?.sessionID ?? p.info?.id
      if (event.type === "session.idle") send("session.idle", { session_id: id })
      if (event.type === "session.deleted") send("session.deleted", { session_id: p.info?.id ?? id })
      if (event.type === "permission.replied") send("permission.replied", { session_id: id })
    },
    "chat.message": async (input, output) => {
      const text = (output.parts ?? []).filter(p => p.type === "text").map(p => p.text).join(" ")
      send("prompt", { session_id: input.sessionID, prompt: text })
    },
    "tool.execute.before": async (input, output) => {
      send("tool.before", { session_id: input.sessionID, tool_name: input.tool, tool_input: output.args ?? {}, tool_use_id: input.callID })
    },
    "tool.execute.after": async (input) => {
      send("tool.after", { session_id: input.sessionID, tool_name: input.tool, tool_use_id: input.callID })
    },
    "permission.ask": async (input, output) => {
      const answer = await send("permission.ask", { session_id: input.sessionID, tool_name: input.type, tool_input: input.metadata ?? {}, tool_use_id: input.callID, message: input.title })
      if (answer?.status === "allow" || answer?.status === "deny") output.status = answer.status
    },
  }
}
)JS";
  return text;
}

}  // namespace MoreAgents
