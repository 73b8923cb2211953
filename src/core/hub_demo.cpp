// Demonstration sessions: several agents in every mood with one of each kind of request, for
// the demo mode and for developing the page without real agents.

#include "core/hub.h"
#include "core/prefs.h"
#include "core/tool_text.h"

namespace {

struct Call {
  const char* tool;
  Json input;
};

// Runs tool calls through the session as an adapter would: lines, tally and phase.
void play(Session& s, const std::vector<Call>& calls, Date start, double step) {
  Date t = start;
  for (const Call& c : calls) {
    s.pushTool(ToolText::activity(c.tool, c.input));
    s.countTool(c.tool, c.input, t);
    s.finishTools(false);
    t += step;
  }
}

}  // namespace

void Hub::loadDemo() {
  const Date t = now();
  const std::string home = options_.home;
  const int64_t replyWindow = std::max<int64_t>(Prefs::replyWindow(defaults_), 1);

  auto make = [&](Agent agent, const std::string& id, const std::string& project) {
    Session s = session(std::string(Agents::raw(agent)) + ":" + id, agent, "");
    s.root = home + "/code/" + project;
    return s;
  };

  {  // Claude Code at work in a terminal.
    Session s = make(Agent::claude, "demo-api", "api-server");
    s.title = "Add rate limiting to the public API";
    s.mood = Mood::working;
    s.turnStarted = t - 95;
    play(s,
         {{"Read", {{"file_path", s.root + "/src/server.ts"}}},
          {"Grep", {{"pattern", "rateLimit"}}},
          {"Read", {{"file_path", s.root + "/src/middleware/limits.ts"}}},
          {"Edit", {{"file_path", s.root + "/src/middleware/limits.ts"}}},
          {"Bash", {{"command", "npm test -- limits"}}}},
         t - 90, 15);
    s.tools.back().running = true;
    s.activity = s.tools.back().label;
    s.stats.model = "claude-opus-4-5-20251101";
    s.stats.branch = "feat/rate-limits";
    s.stats.contextTokens = 84'000;
    s.stats.cost = 1.84;
    s.stats.entrypoint = "cli";
    s.hostBundle = "/usr/bin/gnome-terminal-server";
    s.tty = "/dev/pts/3";
    s.updated = t - 5;
    store(std::move(s));
  }
  {  // Claude Code asking leave to run a command.
    Session s = make(Agent::claude, "demo-web", "web-app");
    s.title = "Clean up the build output";
    s.mood = Mood::waiting;
    s.turnStarted = t - 40;
    Json input = {{"command", "rm -rf dist && npm run build"},
                  {"description", "Rebuild from scratch"}};
    play(s, {{"Read", {{"file_path", s.root + "/package.json"}}}}, t - 38, 4);
    auto [title, detail] = ToolText::permission("Bash", input);
    Pending::Permission perm{title, detail, "Bash"};
    perm.always = "Always allow `npm run build`";
    perm.rule = {{"type", "addRules"},
                 {"rules", {{{"toolName", "Bash"}, {"ruleContent", "npm run build:*"}}}},
                 {"behavior", "allow"},
                 {"destination", "localSettings"}};
    s.pending = Pending{"demo-perm", std::move(perm), input, t - 12, false};
    // A subagent asked too: it waits behind the first request.
    Json lint = {{"command", "npx eslint --fix src"}};
    auto [lintTitle, lintDetail] = ToolText::permission("Bash", lint);
    s.queued.push_back(Pending{"demo-perm-2", Pending::Permission{lintTitle, lintDetail, "Bash"},
                               lint, t - 9, false});
    s.activity = ToolText::activity("Bash", input);
    s.stats.model = "claude-sonnet-4-5-20250929";
    s.stats.branch = "main";
    s.stats.contextTokens = 31'500;
    s.stats.cost = 0.42;
    s.hostBundle = "/usr/bin/kitty";
    s.updated = t - 12;
    store(std::move(s));
  }
  {  // Cursor with questions.
    Session s = make(Agent::cursor, "demo-docs", "docs-site");
    s.title = "Restructure the getting-started guide";
    s.mood = Mood::waiting;
    s.turnStarted = t - 200;
    Json input = {{"questions",
                   {{{"header", "Audience"},
                     {"question", "Who should the guide be written for?"},
                     {"multiSelect", false},
                     {"options",
                      {{{"label", "Beginners"}, {"description", "Explain every step"}},
                       {{"label", "Experienced users"}, {"description", "Keep it short"}}}}},
                    {{"header", "Sections"},
                     {"question", "Which sections should move to the reference?"},
                     {"multiSelect", true},
                     {"options",
                      {{{"label", "Configuration"}, {"description", "All options in one table"}},
                       {{"label", "CLI"}, {"description", "Every command and flag"}},
                       {{"label", "Troubleshooting"}, {"description", "Known problems"}}}}}}}};
    s.pending = Pending{"demo-questions", Pending::Questions{ToolText::questions(input)}, input,
                        t - 30, false};
    s.activity = "Asking you";
    s.updated = t - 30;
    store(std::move(s));
  }
  {  // Gemini CLI finished a turn; the reply window is open.
    Session s = make(Agent::gemini, "demo-ml", "ml-pipeline");
    s.title = "Speed up the feature extraction step";
    s.mood = Mood::done;
    s.turnStarted = t - 310;
    s.finishedAt = t - 4;
    play(s,
         {{"Read", {{"file_path", s.root + "/pipeline/features.py"}}},
          {"Edit", {{"file_path", s.root + "/pipeline/features.py"}}},
          {"Bash", {{"command", "pytest tests/test_features.py"}}}},
         t - 300, 60);
    s.pending = Pending{"demo-reply",
                        Pending::Reply{"Feature extraction now runs in batches of 512 and is "
                                       "about 3.4x faster. All 48 tests pass. Should I also "
                                       "cache the tokenizer output?",
                                       t - 4 + static_cast<double>(replyWindow)},
                        Json::object(), t - 4, false};
    s.stats.model = "gemini-2.5-pro";
    s.hostBundle = "/usr/bin/alacritty";
    s.updated = t - 4;
    store(std::move(s));
  }
  {  // droid waiting in its own window.
    Session s = make(Agent::droid, "demo-infra", "infra");
    s.title = "Plan the database migration";
    s.mood = Mood::waiting;
    s.pending = Pending{"demo-elsewhere", Pending::Elsewhere{"Approve the migration plan"},
                        Json::object(), t - 50, false};
    s.updated = t - 50;
    s.hostBundle = "/usr/bin/foot";
    store(std::move(s));
  }
  {  // Codex just finished.
    Session s = make(Agent::codex, "demo-cli", "cli-tools");
    s.title = "Add a --json flag to the status command";
    s.mood = Mood::done;
    s.turnStarted = t - 140;
    s.finishedAt = t - 12;
    play(s,
         {{"Read", {{"file_path", s.root + "/src/status.rs"}}},
          {"Edit", {{"file_path", s.root + "/src/status.rs"}}},
          {"Bash", {{"command", "cargo test status"}}}},
         t - 130, 30);
    s.stats.model = "gpt-5-codex";
    s.updated = t - 12;
    store(std::move(s));
  }
  {  // Copilot CLI hit a failing command.
    Session s = make(Agent::copilot, "demo-scripts", "scripts");
    s.title = "Fix the release script";
    s.mood = Mood::working;
    s.turnStarted = t - 60;
    play(s, {{"Read", {{"file_path", s.root + "/release.sh"}}}}, t - 55, 10);
    s.pushTool(ToolText::activity("Bash", {{"command", "./release.sh --dry-run"}}));
    s.countTool("Bash", {{"command", "./release.sh --dry-run"}}, t - 8);
    s.finishTools(true);
    s.activity = "Running ./release.sh --dry-run";
    s.hostBundle = "/usr/bin/konsole";
    s.updated = t - 8;
    store(std::move(s));
  }
  {  // Windsurf editing.
    Session s = make(Agent::windsurf, "demo-design", "design-system");
    s.title = "Add dark variants to the button tokens";
    s.mood = Mood::working;
    s.turnStarted = t - 25;
    play(s,
         {{"Read", {{"file_path", s.root + "/tokens/button.json"}}},
          {"Write", {{"file_path", s.root + "/tokens/button.dark.json"}}}},
         t - 20, 8);
    s.tools.back().running = true;
    s.activity = s.tools.back().label;
    s.updated = t - 2;
    store(std::move(s));
  }
  {  // OpenCode asleep.
    Session s = make(Agent::opencode, "demo-notes", "notes");
    s.title = "Summarise this week's meeting notes";
    s.mood = Mood::done;
    s.turnStarted = t - 1900;
    s.finishedAt = t - 1800;
    s.updated = t - 1800;
    store(std::move(s));
  }
}
