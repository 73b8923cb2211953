#include "integrations/more_agents.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <functional>

#include "integrations/file_access.h"
#include "integrations/installers.h"
#include "integrations/toml_tables.h"

namespace MoreAgents {
namespace {

using ConfigFile::GroupEvent;

enum class Shape {
  grouped,   // Claude Code's shape under "hooks"
  rootKeys,  // the same groups, keyed by event at the top of the file (Devin CLI)
  scripts,   // grouped, each command a shell script of Vantler's (Augment)
  flat,      // entries straight in each event's list (Crush)
  toml,      // [[hooks]] tables (Kimi, Mistral Vibe)
  goose,     // a plugin directory of Vantler's with Claude-shaped hooks
  kiro,      // a hook file of Vantler's
  cline,     // one executable per event, named after it
  aider,     // two lines in Aider's YAML settings
  plugin,    // a plugin file of Vantler's (Amp, Kilo Code)
};

struct Row {
  std::string_view id, label;
  Shape shape;
  std::vector<GroupEvent> events;
  // Where the agent lives: any of these existing under the home directory, or the command on
  // PATH, makes it available.
  std::vector<std::string_view> dirs;
  std::string_view command;
  std::string_view todo = {};
  std::string_view note = {};
};

// Timeouts in each agent's unit: a day for a request the user answers in the panel, ten
// seconds for every event answered at once. Qwen Code shows only a spinner while its hook holds
// a request, so after a minute the request goes back to its own dialog (the panel then says to
// answer in the terminal).
constexpr int64_t kDay = 86400, kSoon = 10, kMs = 1000, kQwenHandover = 60;

// Qoder and CodeBuddy Code copy Claude Code's events and seconds.
const std::vector<GroupEvent> kClaudeShaped = {
    {"SessionStart", false, kSoon},     {"SessionEnd", false, kSoon},
    {"UserPromptSubmit", false, kSoon}, {"PreToolUse", true, kSoon},
    {"PostToolUse", true, kSoon},       {"PermissionRequest", true, kDay},
    {"Notification", true, kSoon},      {"Stop", false, kSoon}};

const std::vector<Row>& rows() {
  static const std::vector<Row> table = {
      {"qwen",
       "Qwen Code",
       Shape::grouped,
       {{"SessionStart", false, kSoon * kMs},
        {"SessionEnd", false, kSoon * kMs},
        {"UserPromptSubmit", false, kSoon * kMs},
        {"PreToolUse", true, kSoon * kMs},
        {"PostToolUse", true, kSoon * kMs},
        {"PostToolUseFailure", true, kSoon * kMs},
        {"PermissionRequest", true, kQwenHandover * kMs},
        {"Notification", true, kSoon * kMs},
        {"Stop", false, kSoon * kMs},
        {"PreCompact", false, kSoon * kMs}},
       {"/.qwen"},
       "qwen"},
      {"qoder", "Qoder", Shape::grouped, kClaudeShaped, {"/.qoder"}, "qodercli"},
      {"codebuddy",
       "CodeBuddy Code",
       Shape::grouped,
       kClaudeShaped,
       {"/.codebuddy"},
       "codebuddy",
       "review the hooks in its /hooks screen",
       "CodeBuddy Code runs hooks edited outside it only after you review them in its /hooks "
       "screen."},
      {"devin",
       "Devin CLI",
       Shape::rootKeys,
       {{"SessionStart", false, kSoon},
        {"SessionEnd", false, kSoon},
        {"UserPromptSubmit", false, kSoon},
        {"PreToolUse", true, kSoon},
        {"PostToolUse", true, kSoon},
        {"PermissionRequest", true, kDay},
        {"Stop", false, kSoon}},
       {"/.devin"},
       "devin"},
      {"augment",
       "Augment",
       Shape::scripts,
       {{"SessionStart", false, kSoon * kMs},
        {"SessionEnd", false, kSoon * kMs},
        {"PromptSubmit", false, kSoon * kMs},
        {"PreToolUse", true, kSoon * kMs},
        {"PostToolUse", true, kSoon * kMs},
        {"Notification", false, kSoon * kMs},
        {"Stop", false, kSoon * kMs}},
       {"/.augment"},
       "auggie"},
      {"kimi",
       "Kimi Code",
       Shape::toml,
       {{"SessionStart", false, kSoon},
        {"SessionEnd", false, kSoon},
        {"UserPromptSubmit", false, kSoon},
        {"PreToolUse", false, kSoon},
        {"PostToolUse", false, kSoon},
        {"PermissionRequest", false, kSoon},
        {"PermissionResult", false, kSoon},
        {"Notification", false, kSoon},
        {"Stop", false, kSoon}},
       {"/.kimi-code", "/.kimi"},
       "kimi"},
      {"goose",
       "Goose",
       Shape::goose,
       {{"SessionStart", false, kSoon},
        {"SessionEnd", false, kSoon},
        {"UserPromptSubmit", false, kSoon},
        {"PreToolUse", true, kSoon},
        {"PostToolUse", true, kSoon},
        {"Stop", false, kSoon}},
       {"/.config/goose", "/.agents"},
       "goose"},
      {"cline",
       "Cline",
       Shape::cline,
       {{"TaskStart", false, {}},
        {"TaskResume", false, {}},
        {"TaskCancel", false, {}},
        {"TaskComplete", false, {}},
        {"PreToolUse", false, {}},
        {"PostToolUse", false, {}},
        {"UserPromptSubmit", false, {}},
        {"Notification", false, {}},
        {"PreCompact", false, {}}},
       {"/Documents/Cline", "/.cline"},
       "cline",
       "turn on hooks in Cline's settings",
       "Cline runs hooks only while hooks are turned on in its settings."},
      {"kiro",
       "Kiro",
       Shape::kiro,
       {{"AgentSpawn", false, kSoon},
        {"UserPromptSubmit", false, kSoon},
        {"PreToolUse", true, kSoon},
        {"PostToolUse", true, kSoon},
        {"Stop", false, kSoon}},
       {"/.kiro"},
       "kiro-cli"},
      {"vibe",
       "Mistral Vibe",
       Shape::toml,
       {{"pre_tool", true, kSoon}, {"post_tool", true, kSoon}, {"post_agent", false, kSoon}},
       {"/.vibe"},
       "vibe",
       {},
       "Mistral Vibe before 2.21 names its hooks differently and runs them only with "
       "enable_experimental_hooks = true in ~/.vibe/config.toml: Vantler writes the form the "
       "installed version takes (vibe --version, else the package's own record)."},
      {"crush",
       "Crush",
       Shape::flat,
       {{"PreToolUse", false, 600}},
       {"/.config/crush", "/.local/share/crush"},
       "crush"},
      {"junie", "Junie", Shape::grouped, {{"SessionStart", false, kSoon}}, {"/.junie"}, "junie"},
      {"aider", "Aider", Shape::aider, {{"Notification", false, {}}}, {}, "aider"},
      {"amp",
       "Amp",
       Shape::plugin,
       {},
       {"/.config/amp"},
       "amp",
       "start Amp with PLUGINS=all",
       "Amp loads plugins only when started with PLUGINS=all."},
      {"kilo", "Kilo Code", Shape::plugin, {}, {"/.config/kilo"}, "kilo"},
  };
  return table;
}

const Row& row(std::string_view id) {
  for (const Row& r : rows())
    if (r.id == id) return r;
  throw InstallError("unknown agent \"" + std::string(id) + "\"");
}

FileAccess& files() {
  return ConfigFile::files();
}

std::string home(std::string_view rest) {
  return files().home() + std::string(rest);
}

std::string envOr(const char* name, std::string fallback) {
  return files().variable(name).value_or(std::move(fallback));
}

std::string hookCommand(std::string_view args) {
  return R"(/bin/sh -c '[ -x "$HOME/.vantler/bin/vantler-hook" ] && "$HOME/.vantler/bin/vantler-hook" )" +
         std::string(args) + "; exit 0'";
}

// --- where each agent's files are ---

std::string kimiCodeDir() {
  return envOr("KIMI_CODE_HOME", home("/.kimi-code"));
}

// Kimi Code's settings, and the older Kimi CLI's when that is on the machine too.
std::vector<std::string> kimiFiles() {
  std::vector<std::string> out;
  const bool cli = files().exists(home("/.kimi"));
  if (files().exists(kimiCodeDir()) || !cli) out.push_back(kimiCodeDir() + "/config.toml");
  if (cli) out.push_back(home("/.kimi/config.toml"));
  return out;
}

std::string gooseDir() {
  return home("/.agents/plugins/vantler");
}

// Cline reads hooks from its documents folder; its newer runtime also from ~/.cline/hooks.
std::vector<std::string> clineDirs() {
  std::vector<std::string> dirs = {home("/Documents/Cline/Hooks")};
  if (files().exists(home("/.cline"))) dirs.push_back(home("/.cline/hooks"));
  return dirs;
}

std::string augmentScript(std::string_view event) {
  return "vantler-" + std::string(event) + ".sh";
}

std::string filePath(const Row& r) {
  const std::string id(r.id);
  if (id == "qoder") return envOr("QODER_CONFIG_DIR", home("/.qoder")) + "/settings.json";
  if (id == "devin") return home("/.devin/hooks.v1.json");
  if (id == "kimi") return kimiFiles().front();
  if (id == "goose") return gooseDir() + "/hooks/hooks.json";
  if (id == "cline") return clineDirs().front();
  if (id == "kiro") return home("/.kiro/hooks/vantler.json");
  if (id == "vibe") return home("/.vibe/hooks.toml");
  if (id == "crush") return files().configHome() + "/crush/crush.json";
  if (id == "aider") return home("/.aider.conf.yml");
  if (id == "junie") return home("/.junie/config.json");
  if (id == "amp") return files().configHome() + "/amp/plugins/vantler.ts";
  if (id == "kilo") return files().configHome() + "/kilo/plugin/vantler.js";
  return home("/." + id + "/settings.json");  // qwen, codebuddy, augment
}

// --- TOML tables ---

// Kimi refuses a hook table with any key beyond these four; Mistral Vibe's tables are named.
TomlTables::Table tomlTable(const Row& r, const GroupEvent& e) {
  const std::string command = hookCommand(r.id);
  if (r.id == "kimi")
    return {{"event", e.name}, {"matcher", ""}, {"command", command}, {"timeout", *e.timeout}};
  return {{"name", "vantler-" + std::string(e.name)},
          {"type", e.name},
          {"match", "*"},
          {"command", command},
          {"timeout", *e.timeout}};
}

bool isOurTable(const TomlTables::Table& table) {
  return std::any_of(table.begin(), table.end(), [](const auto& kv) {
    return kv.first == "command" && kv.second.is_string() &&
           ConfigFile::isOurCommand(kv.second.template get<std::string>());
  });
}

void editToml(const std::string& file, const std::function<std::string(const std::string&)>& change,
              bool createIfMissing) {
  auto text = ConfigFile::read(file);
  if (!text && !createIfMissing) return;
  std::string before = text.value_or("");
  if (auto problem = TomlTables::conflict(before, "hooks"))
    throw InstallError(ConfigFile::shown(file) + " cannot take hook tables (" + *problem +
                       "); left it untouched");
  std::string after = change(before);
  if (after != before || !text) ConfigFile::write(file, after);
}

void installToml(const Row& r, const std::string& file, const std::vector<GroupEvent>& events) {
  editToml(
      file,
      [&](const std::string& text) {
        std::vector<TomlTables::Table> add;
        for (const GroupEvent& e : events)
          if (r.id != "kimi" || file == kimiFiles().front() ||
              !std::string_view(e.name).starts_with("Permission"))
            add.push_back(tomlTable(r, e));
        return TomlTables::append(TomlTables::strip(text, "hooks", isOurTable), "hooks", add);
      },
      true);
}

void uninstallToml(const std::string& file) {
  editToml(
      file, [](const std::string& text) { return TomlTables::strip(text, "hooks", isOurTable); },
      false);
}

// Our tables in the file; none when it is missing or unreadable.
std::vector<TomlTables::Table> ourTables(const std::string& file) {
  std::vector<TomlTables::Table> ours;
  try {
    if (auto text = ConfigFile::read(file))
      for (TomlTables::Table& table : TomlTables::tables(*text, "hooks"))
        if (isOurTable(table)) ours.push_back(std::move(table));
  } catch (const InstallError&) {
  }
  return ours;
}

bool tomlInstalled(const std::string& file) {
  return !ourTables(file).empty();
}

// --- Mistral Vibe: its hook types were renamed in 2.21; before that, hooks run only with
// enable_experimental_hooks = true in its config.toml ---

const std::vector<GroupEvent> kVibeBefore221 = {
    {"before_tool", true, kSoon}, {"after_tool", true, kSoon}, {"post_agent_turn", false, kSoon}};

constexpr std::string_view kVibeSwitch = "enable_experimental_hooks";
constexpr std::string_view kVibeSwitchLine =
    "enable_experimental_hooks = true  # Vantler: vantler disconnect vibe removes this line\n";

std::string vibeConfig() {
  return home("/.vibe/config.toml");
}

// Whether the first "major.minor" in the text is before 2.21: "vibe 2.20.3", "v2.21.0",
// "1.9.0.dist-info". Nothing when the text holds none.
std::optional<bool> before221(std::string_view text) {
  auto digit = [&](size_t at) { return std::isdigit(static_cast<unsigned char>(text[at])) != 0; };
  for (size_t at = 0; at < text.size(); ++at) {
    if (!digit(at) || (at > 0 && (digit(at - 1) || text[at - 1] == '.'))) continue;
    int major = 0, minor = 0;
    if (std::sscanf(std::string(text.substr(at, 24)).c_str(), "%d.%d", &major, &minor) == 2)
      return major < 2 || (major == 2 && minor < 21);
  }
  return std::nullopt;
}

// The installed Vibe's version, by asking it (where waiting is allowed), else from the record
// uv or pipx keep of the package (its dist-info directory is named with the version).
std::optional<bool> vibeBefore221() {
  if (auto said = files().version("vibe"))
    if (auto old = before221(*said)) return old;
  const std::string data = envOr("XDG_DATA_HOME", home("/.local/share"));
  for (const std::string& lib :
       {data + "/uv/tools/mistral-vibe/lib", data + "/pipx/venvs/mistral-vibe/lib"})
    for (const std::string& python : files().list(lib))
      for (const std::string& name : files().list(lib + "/" + python + "/site-packages"))
        if (name.starts_with("mistral_vibe-") && name.ends_with(".dist-info"))
          if (auto old = before221(name.substr(13))) return old;
  return std::nullopt;
}

// Our tables in hooks.toml are of the form before 2.21.
bool vibeTablesBefore221() {
  for (const TomlTables::Table& table : ourTables(home("/.vibe/hooks.toml")))
    for (const auto& [key, value] : table)
      if (key == "type" && value == kVibeBefore221.front().name) return true;
  return false;
}

// The value of the switch where it is set at the top of config.toml (before any table).
std::optional<std::string> vibeSwitch(std::string_view text) {
  for (size_t at = 0; at < text.size();) {
    size_t nl = text.find('\n', at);
    std::string_view line = text.substr(at, nl == std::string_view::npos ? nl : nl - at);
    at = nl == std::string_view::npos ? text.size() : nl + 1;
    line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
    if (line.starts_with("[")) break;
    if (!line.starts_with(kVibeSwitch)) continue;
    line.remove_prefix(kVibeSwitch.size());
    line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
    if (!line.starts_with("=")) continue;
    line.remove_prefix(1);
    line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
    return std::string(line.substr(0, line.find_first_of(" \t\r#")));
  }
  return std::nullopt;
}

// Turns hooks on in config.toml with one line of ours at its top, unless they are on already.
void vibeSwitchOn() {
  const std::string file = vibeConfig();
  std::string text = ConfigFile::read(file).value_or("");
  auto value = vibeSwitch(text);
  if (value == "true") return;
  if (value)
    throw InstallError(ConfigFile::shown(file) + " turns hooks off (" + std::string(kVibeSwitch) +
                       " = " + *value + "); left Mistral Vibe unconnected");
  ConfigFile::write(file, std::string(kVibeSwitchLine) + text);
}

void vibeSwitchOff() {
  const std::string file = vibeConfig();
  auto text = ConfigFile::read(file);
  size_t at = text ? text->find(kVibeSwitchLine) : std::string::npos;
  if (at == std::string::npos) return;
  text->erase(at, kVibeSwitchLine.size());
  if (text->empty())
    files().remove(file);  // it was there only for our line
  else
    ConfigFile::write(file, *text);
}

// The form the installed version takes; unknown, the form already connected, else the newer.
void installVibe(const Row& r) {
  bool old = vibeBefore221().value_or(vibeTablesBefore221());
  if (old) vibeSwitchOn();
  installToml(r, filePath(r), old ? kVibeBefore221 : r.events);
  if (!old) vibeSwitchOff();
}

// --- Aider's YAML settings: two lines under a comment, at the top of the document ---

constexpr std::string_view kAiderComment =
    "# Vantler: tells Vantler when Aider waits for you (vantler disconnect aider removes this)\n";

std::string aiderCommandLine() {
  // A single-quoted YAML scalar doubles its quotes. Aider gives the command no input; its own
  // standard input may be the terminal, so the hook reads none.
  std::string command = hookCommand("aider Notification </dev/null"), quoted;
  for (char c : command) quoted += c == '\'' ? std::string("''") : std::string(1, c);
  return "notifications-command: '" + quoted + "'\n";
}

std::string aiderBlock(bool withSwitch) {
  return std::string(kAiderComment) + (withSwitch ? "notifications: true\n" : "") +
         aiderCommandLine();
}

std::string withoutAider(std::string text) {
  for (bool withSwitch : {true, false}) {
    const std::string block = aiderBlock(withSwitch);
    if (size_t at = text.find(block); at != std::string::npos) text.erase(at, block.size());
  }
  return text;
}

// The value of a top-level key of the YAML text; nothing when the key is not there.
std::optional<std::string> yamlValue(std::string_view text, std::string_view key) {
  for (size_t at = 0; at < text.size();) {
    size_t nl = text.find('\n', at);
    std::string_view line = text.substr(at, nl == std::string_view::npos ? nl : nl - at);
    at = nl == std::string_view::npos ? text.size() : nl + 1;
    if (line.starts_with(key) && line.substr(key.size()).starts_with(':')) {
      std::string_view value = line.substr(key.size() + 1);
      if (size_t hash = value.find(" #"); hash != std::string_view::npos)
        value = value.substr(0, hash);
      size_t b = value.find_first_not_of(" \t"), e = value.find_last_not_of(" \t\r");
      return b == std::string_view::npos ? std::string() : std::string(value.substr(b, e - b + 1));
    }
  }
  return std::nullopt;
}

void installAider(const std::string& file) {
  std::string text = withoutAider(ConfigFile::read(file).value_or(""));
  if (yamlValue(text, "notifications-command"))
    throw InstallError(ConfigFile::shown(file) +
                       " already runs a notifications-command of yours; left it untouched");
  auto enabled = yamlValue(text, "notifications");
  if (enabled && *enabled != "true")
    throw InstallError(ConfigFile::shown(file) + " turns notifications off (notifications: " +
                       *enabled + "); left it untouched");
  // After a document start marker, so the lines belong to the first document.
  size_t at = text.starts_with("---") ? std::min(text.find('\n'), text.size()) : 0;
  std::string block = aiderBlock(!enabled);
  if (at > 0) block = "\n" + block.substr(0, block.size() - 1);
  text.insert(at, block);
  ConfigFile::write(file, text);
}

// --- files that are entirely Vantler's ---

void removeFile(const std::string& file) {
  files().remove(file);
}

bool ownFile(const std::string& file, std::string_view mark) {
  try {
    auto text = ConfigFile::read(file);
    return text && text->find(mark) != std::string::npos;
  } catch (const InstallError&) {
    return false;
  }
}

void writeExecutable(const std::string& file, const std::string& text) {
  ConfigFile::write(file, text, false, 0755);
}

std::string script(std::string_view agent, std::string_view event, std::string_view fallback) {
  return "#!/bin/sh\n# Vantler: forwards this hook to the Vantler app (vantler disconnect " +
         std::string(agent) +
         " removes it).\n[ -x \"$HOME/.vantler/bin/vantler-hook\" ] && exec "
         "\"$HOME/.vantler/bin/vantler-hook\" " +
         std::string(agent) + " " + std::string(event) + "\n" + std::string(fallback) + "\n";
}

constexpr std::string_view kScriptMark = "# Vantler: forwards this hook";

std::string clineScript(std::string_view event) {
  return script("cline", event, R"(echo '{"cancel":false}')");
}

void installCline(const Row& r) {
  // Every file is checked before any is written: a script of the user's is never replaced.
  for (const std::string& dir : clineDirs())
    for (const GroupEvent& e : r.events) {
      const std::string file = dir + "/" + e.name;
      auto text = ConfigFile::read(file);
      if (text && text->find(kScriptMark) == std::string::npos)
        throw InstallError(ConfigFile::shown(file) +
                           " is a hook of yours; Cline takes one per event, so Vantler left "
                           "Cline unconnected");
    }
  for (const std::string& dir : clineDirs())
    for (const GroupEvent& e : r.events) writeExecutable(dir + "/" + e.name, clineScript(e.name));
}

void uninstallCline(const Row& r) {
  for (const std::string& dir : {home("/Documents/Cline/Hooks"), home("/.cline/hooks")})
    for (const GroupEvent& e : r.events)
      if (ownFile(dir + "/" + e.name, kScriptMark)) removeFile(dir + "/" + e.name);
}

std::string gooseHooks(const Row& r) {
  Json hooks = Json::object();
  for (const GroupEvent& e : r.events) {
    Json group = ConfigFile::makeGroup(hookCommand("goose"), false, e.timeout);
    // Goose reads the matcher as a pattern and skips a bare "*".
    if (e.matcher) group["matcher"] = ".*";
    hooks[e.name] = Json::array({group});
  }
  return ConfigFile::serialise({{"hooks", hooks}});
}

std::string kiroHooks(const Row& r) {
  Json list = Json::array();
  for (const GroupEvent& e : r.events) {
    Json hook = {{"name", "vantler-" + std::string(e.name)},
                 {"trigger", e.name},
                 {"action", {{"type", "command"}, {"command", hookCommand("kiro")}}},
                 {"timeout", *e.timeout}};
    if (e.matcher) hook["matcher"] = "*";
    list.push_back(std::move(hook));
  }
  return ConfigFile::serialise({{"version", "v1"}, {"hooks", list}});
}

// --- Kiro: Kiro 3 reads hook files of its own; older Kiro CLIs read the hooks inside each
// agent file, with camelCase events and timeouts in milliseconds ---

const std::vector<GroupEvent> kKiroAgentEvents = {{"agentSpawn", false, kSoon* kMs},
                                                  {"userPromptSubmit", false, kSoon* kMs},
                                                  {"preToolUse", true, kSoon* kMs},
                                                  {"postToolUse", true, kSoon* kMs},
                                                  {"stop", false, kSoon* kMs}};

std::string kiroHooksDir() {
  return home("/.kiro/hooks");
}

std::vector<std::string> kiroAgentFiles() {
  std::vector<std::string> out;
  const std::string dir = home("/.kiro/agents");
  for (const std::string& name : files().list(dir))
    if (name.ends_with(".json")) out.push_back(dir + "/" + name);
  return out;
}

// The older form is used while agent files are there and Kiro 3's hooks directory holds
// nothing.
bool kiroAgentForm() {
  return files().list(kiroHooksDir()).empty() && !kiroAgentFiles().empty();
}

size_t kiroAgentsConnected() {
  auto agents = kiroAgentFiles();
  return std::count_if(agents.begin(), agents.end(), [](const std::string& file) {
    auto root = ConfigFile::peek(file);
    return root && ConfigFile::hasFlatEntry(JsonField::object(*root, "hooks"));
  });
}

void addKiroEntries(Json& root, const std::string& file) {
  Json& hooks = ConfigFile::hooksOf(root, file);
  ConfigFile::stripFlat(hooks);
  for (const GroupEvent& e : kKiroAgentEvents) {
    Json entry = {{"command", hookCommand("kiro")}, {"timeout_ms", *e.timeout}};
    if (e.matcher) entry["matcher"] = "*";
    ConfigFile::eventList(hooks, e.name, file).push_back(std::move(entry));
  }
}

void installKiroAgents() {
  // Every agent file is checked before any is changed.
  const auto agents = kiroAgentFiles();
  for (const std::string& file : agents) {
    Json root = ConfigFile::load(file);
    addKiroEntries(root, file);
  }
  for (const std::string& file : agents)
    ConfigFile::edit(file, [&](Json& root) { return addKiroEntries(root, file), true; });
}

void uninstallKiroAgents() {
  for (const std::string& file : kiroAgentFiles())
    ConfigFile::edit(
        file,
        [](Json& root) {
          auto hooks = root.find("hooks");
          return hooks != root.end() && ConfigFile::stripFlat(*hooks);
        },
        false);
}

// --- JSON settings ---

void installJson(const Row& r, const std::string& file) {
  ConfigFile::edit(file, [&](Json& root) {
    Json& hooks = r.shape == Shape::rootKeys ? root : ConfigFile::hooksOf(root, file);
    if (r.shape == Shape::flat) {
      ConfigFile::stripFlat(hooks);
      for (const GroupEvent& e : r.events)
        ConfigFile::eventList(hooks, e.name, file)
            .push_back(
                {{"name", "vantler"}, {"command", hookCommand(r.id)}, {"timeout", *e.timeout}});
      return true;
    }
    // Fresh entries replace ours, always at the end of each list.
    const bool script = r.shape == Shape::scripts;
    for (const GroupEvent& e : r.events)
      ConfigFile::stripGroups(
          hooks, script ? std::string_view(augmentScript(e.name)) : ConfigFile::kMarker);
    for (const GroupEvent& e : r.events) {
      const std::string command =
          script ? home("/.augment/hooks/") + augmentScript(e.name) : hookCommand(r.id);
      ConfigFile::eventList(hooks, e.name, file)
          .push_back(ConfigFile::makeGroup(command, e.matcher, e.timeout));
    }
    return true;
  });
}

void uninstallJson(const Row& r, const std::string& file) {
  ConfigFile::edit(
      file,
      [&](Json& root) {
        Json* hooks = r.shape == Shape::rootKeys ? &root
                      : root.contains("hooks")   ? &root["hooks"]
                                                 : nullptr;
        if (!hooks) return false;
        if (r.shape == Shape::flat) return ConfigFile::stripFlat(*hooks);
        bool removed = false;
        for (const GroupEvent& e : r.events)
          removed |= ConfigFile::stripGroups(*hooks, r.shape == Shape::scripts
                                                         ? std::string_view(augmentScript(e.name))
                                                         : ConfigFile::kMarker);
        return removed;
      },
      false);
}

bool jsonInstalled(const Row& r, const std::string& file) {
  auto root = ConfigFile::peek(file);
  if (!root) return false;
  const Json& hooks = r.shape == Shape::rootKeys ? *root : JsonField::object(*root, "hooks");
  if (r.shape == Shape::flat) return ConfigFile::hasFlatEntry(hooks);
  if (r.shape == Shape::scripts)
    return ConfigFile::hasGroupEntry(hooks, augmentScript(r.events[0].name));
  return ConfigFile::hasGroupEntry(hooks);
}

}  // namespace

const std::vector<std::string_view>& ids() {
  static const std::vector<std::string_view> list = [] {
    std::vector<std::string_view> out;
    for (const Row& r : rows()) out.push_back(r.id);
    return out;
  }();
  return list;
}

bool known(std::string_view id) {
  return std::find(ids().begin(), ids().end(), id) != ids().end();
}

std::string_view label(std::string_view id) {
  return row(id).label;
}

std::string path(std::string_view id) {
  if (id == "kiro" && kiroAgentForm()) return home("/.kiro/agents/");
  return filePath(row(id));
}

std::string todo(std::string_view id) {
  if (id == "kiro") {
    if (size_t agents = kiroAgentsConnected(); agents > 0)
      return "in the hooks of " + std::to_string(agents) +
             (agents == 1 ? " agent file" : " agent files") + ", for Kiro CLIs before Kiro 3";
  }
  if (id == "vibe" && isInstalled(id)) {
    if (vibeTablesBefore221())
      return "in the form of Vibe before 2.21, with experimental hooks turned on";
    if (!vibeBefore221())
      return "check that vibe --version says 2.21 or later (hooks are in its newer form)";
  }
  return std::string(row(id).todo);
}

std::string_view note(std::string_view id) {
  return row(id).note;
}

bool available(std::string_view id) {
  const Row& r = row(id);
  if (Integrations::onPath(r.command)) return true;
  if (id == "kimi" && files().exists(kimiCodeDir())) return true;
  if (id == "aider" && files().exists(home("/.aider.conf.yml"))) return true;
  return std::any_of(r.dirs.begin(), r.dirs.end(),
                     [](std::string_view dir) { return files().exists(home(dir)); });
}

bool isInstalled(std::string_view id) {
  const Row& r = row(id);
  switch (r.shape) {
    case Shape::grouped:
    case Shape::rootKeys:
    case Shape::scripts:
    case Shape::flat:
      return jsonInstalled(r, filePath(r));
    case Shape::toml: {
      if (id == "vibe") return tomlInstalled(filePath(r));
      auto kimi = kimiFiles();
      return std::any_of(kimi.begin(), kimi.end(), tomlInstalled);
    }
    case Shape::kiro:
      if (kiroAgentsConnected() > 0) return true;
      [[fallthrough]];
    case Shape::goose:
    case Shape::plugin:
      return ownFile(filePath(r), ConfigFile::kMarker);
    case Shape::cline:
      return ownFile(clineDirs().front() + "/" + r.events[0].name, kScriptMark);
    case Shape::aider:
      return ownFile(filePath(r), aiderCommandLine());
  }
  return false;
}

void install(std::string_view id) {
  const Row& r = row(id);
  // The agents work without a fresh copy of the hook program as long as one is in place.
  try {
    HookInstaller::copyBinary();
  } catch (const InstallError&) {
  }
  const std::string file = filePath(r);
  switch (r.shape) {
    case Shape::scripts:
      for (const GroupEvent& e : r.events)
        writeExecutable(home("/.augment/hooks/") + augmentScript(e.name),
                        script("augment", e.name, "exit 0"));
      [[fallthrough]];
    case Shape::grouped:
    case Shape::rootKeys:
    case Shape::flat:
      installJson(r, file);
      break;
    case Shape::toml:
      if (id == "vibe") {
        installVibe(r);
      } else {
        for (const std::string& each : kimiFiles()) installToml(r, each, r.events);
      }
      break;
    case Shape::goose:
      ConfigFile::write(gooseDir() + "/plugin.json",
                        ConfigFile::serialise({{"name", "vantler"},
                                               {"version", "1.0.0"},
                                               {"description", "Shows this session in Vantler"}}),
                        false);
      ConfigFile::write(file, gooseHooks(r), false);
      break;
    case Shape::kiro:
      // One form at a time: the other one's entries go.
      if (kiroAgentForm()) {
        installKiroAgents();
        removeFile(file);
      } else {
        ConfigFile::write(file, kiroHooks(r), false);
        uninstallKiroAgents();
      }
      break;
    case Shape::cline:
      installCline(r);
      break;
    case Shape::aider:
      installAider(file);
      break;
    case Shape::plugin:
      ConfigFile::write(file, id == "amp" ? ampPlugin() : kiloPlugin(), false);
      break;
  }
}

void uninstall(std::string_view id) {
  const Row& r = row(id);
  const std::string file = filePath(r);
  switch (r.shape) {
    case Shape::grouped:
    case Shape::rootKeys:
    case Shape::flat:
      uninstallJson(r, file);
      break;
    case Shape::scripts:
      uninstallJson(r, file);
      for (const GroupEvent& e : r.events)
        removeFile(home("/.augment/hooks/") + augmentScript(e.name));
      break;
    case Shape::toml:
      if (id == "vibe") {
        uninstallToml(file);
        vibeSwitchOff();
      } else {
        for (const std::string& each : kimiFiles()) uninstallToml(each);
      }
      break;
    case Shape::goose:
      removeFile(file);
      removeFile(gooseDir() + "/plugin.json");
      files().removeEmptyDir(gooseDir() + "/hooks");
      files().removeEmptyDir(gooseDir());
      break;
    case Shape::kiro:
      uninstallKiroAgents();
      removeFile(file);
      files().removeEmptyDir(kiroHooksDir());
      break;
    case Shape::plugin:
      removeFile(file);
      break;
    case Shape::cline:
      uninstallCline(r);
      break;
    case Shape::aider:
      if (auto text = ConfigFile::read(file)) ConfigFile::write(file, withoutAider(*text));
      break;
  }
}

}  // namespace MoreAgents
