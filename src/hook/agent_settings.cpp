#include "hook/agent_settings.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

namespace AgentSettings {
namespace {

constexpr size_t kMaxSettings = size_t{1} << 20;
constexpr int kMaxKimiProjects = 4096;

// A regular file's bytes, at most kMaxSettings of them; empty for anything else. Opened without
// blocking, so a named pipe put in its place cannot hold the agent up.
std::string readSmall(const std::string& path) {
  std::string out;
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  if (fd < 0) return out;
  struct stat st;
  if (::fstat(fd, &st) == 0 && S_ISREG(st.st_mode) &&
      static_cast<size_t>(st.st_size) <= kMaxSettings) {
    char buf[16384];
    for (ssize_t n; out.size() <= kMaxSettings && (n = ::read(fd, buf, sizeof buf)) > 0;)
      out.append(buf, static_cast<size_t>(n));
  }
  ::close(fd);
  return out;
}

}  // namespace

void addCrushPermissions(Json& payload, pid_t agentPid, const std::string& home,
                         const std::string& cwd) {
  const char* xdg = std::getenv("XDG_CONFIG_HOME");
  const std::string config = xdg && *xdg ? xdg : home + "/.config";
  Json allowed = Json::array();
  for (const std::string& path :
       {config + "/crush/crush.json", cwd + "/crush.json", cwd + "/.crush.json"}) {
    Json settings = JsonField::parseBounded(readSmall(path));
    for (const Json& tool :
         JsonField::array(JsonField::object(settings, "permissions"), "allowed_tools"))
      if (tool.is_string()) allowed.push_back(tool);
  }
  payload["_crush_allowed"] = std::move(allowed);
  if (agentPid <= 0) return;
  const std::string cmdline = readSmall("/proc/" + std::to_string(agentPid) + "/cmdline");
  bool yolo = false;
  for (size_t at = 0; at < cmdline.size();) {
    size_t end = cmdline.find('\0', at);
    if (end == std::string::npos) end = cmdline.size();
    std::string_view arg(cmdline.data() + at, end - at);
    yolo = yolo || arg == "--yolo" || arg == "-y";
    at = end + 1;
  }
  payload["_crush_yolo"] = yolo;
}

void addKimiTranscript(Json& payload, const std::string& home) {
  const std::string sessionId = JsonField::str(payload, "session_id");
  // A session id that could name something outside the sessions folder is not followed.
  if (sessionId.empty() || sessionId == "." || sessionId == ".." ||
      sessionId.find('/') != std::string::npos)
    return;
  // Kimi Code, then the older Kimi CLI, each with the variable that moves its folder.
  const struct {
    const char* variable;
    const char* folder;
    const char* log;
  } kinds[] = {{"KIMI_CODE_HOME", "/.kimi-code", "/agents/main/wire.jsonl"},
               {"KIMI_SHARE_DIR", "/.kimi", "/wire.jsonl"}};
  for (const auto& kind : kinds) {
    const char* moved = std::getenv(kind.variable);
    const std::string sessions =
        (moved && *moved ? std::string(moved) : home + kind.folder) + "/sessions";
    DIR* dir = ::opendir(sessions.c_str());
    if (!dir) continue;
    // One folder per project: a bounded look, so a crowded folder cannot hold the agent up.
    int looked = 0;
    for (const dirent* entry; looked < kMaxKimiProjects && (entry = ::readdir(dir)); ++looked) {
      const std::string_view key = entry->d_name;
      if (key == "." || key == "..") continue;
      std::string path = sessions + "/" + entry->d_name + "/" + sessionId + kind.log;
      struct stat st;
      if (::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode)) {
        payload["transcript_path"] = std::move(path);
        break;
      }
    }
    ::closedir(dir);
    if (payload.contains("transcript_path")) return;
  }
}

}  // namespace AgentSettings
