#include "app/remote_command.h"

#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <optional>

#include "app/client.h"
#include "bridge/linux_bridge.h"
#include "core/files.h"
#include "core/json.h"
#include "integrations/installers.h"
#include "integrations/remote_files.h"
#include "integrations/remote_hosts.h"

namespace RemoteCommand {
namespace {

constexpr const char* kUsage =
    "Usage: vantler remote add [--container] <host>\n"
    "       vantler remote list | status\n"
    "       vantler remote update <host>\n"
    "       vantler remote remove <host>\n";

// The system, home and configuration directories, and user id there. Which agents are there is
// asked afterwards, all at once, by the installers' own checks.
constexpr const char* kProbe = R"sh(uname -sm
printf '%s\n' "$HOME" "${XDG_CONFIG_HOME:-$HOME/.config}" "$(id -u)")sh";

std::string here() {
  utsname u{};
  ::uname(&u);
  return std::string(u.sysname) + " " + u.machine;
}

std::vector<std::string> lines(const std::string& text) {
  std::vector<std::string> out;
  size_t start = 0;
  while (start < text.size()) {
    size_t nl = text.find('\n', start);
    if (nl == std::string::npos) nl = text.size();
    out.push_back(text.substr(start, nl - start));
    start = nl + 1;
  }
  return out;
}

int fail(const std::string& message) {
  std::fprintf(stderr, "vantler: %s\n", message.c_str());
  return 1;
}

// Tells a running Vantler to read the list again; its answer, or null when none runs.
Json tellApp() {
  Client::Result r =
      Client::exchange(Bridge::socketPath(Files::home()), R"({"_command":{"type":"remotes"}})"
                                                          "\n");
  return r.connected ? JsonField::parse(r.answer) : Json();
}

// The runtime ("podman" or "docker") that knows the container; empty when neither does.
std::string runtimeOf(const std::string& name) {
  for (const char* runtime : {"podman", "docker"}) {
    Remote::Ran ran = Remote::run({runtime, "container", "inspect", name}, {}, 15);
    if (ran.finished && ran.status == 0) return runtime;
  }
  return {};
}

int add(const std::string& name, bool container) {
  RemoteHost host{name, {}, {}, {}};
  RemoteFiles::Exec exec;
  std::optional<SshMaster> master;
  if (container) {
    host.container = runtimeOf(name);
    if (host.container.empty())
      return fail("no running podman or docker container is named " + name + ".");
    exec = RemoteFiles::inContainer(host.container, name);
  } else {
    exec = RemoteFiles::overSsh(name, master.emplace(name).options());
  }
  try {
    RemoteFiles probeFiles(name, exec, "/", "/");
    Remote::Ran probe = probeFiles.script(kProbe, {});
    std::vector<std::string> out = lines(probe.out);
    if (probe.status != 0 || out.size() < 4)
      return fail("cannot look around on " + name + " (no POSIX shell there?)");
    if (out[0] != here())
      return fail(name + " runs " + out[0] + ", and this Vantler's hook program is built for " +
                  here() + ": install Vantler built for " + out[0] + " and add the host from it.");
    host.home = out[1];
    if (container && out[3] != std::to_string(::getuid()))
      std::printf(
          "Warning: %s runs as user %s, you are user %u. Vantler accepts only your own user on "
          "its socket, so its hooks will be refused (rootful Docker runs containers as root). "
          "Use rootless Podman with --userns=keep-id, or run the container with --user "
          "$(id -u):$(id -g).\n",
          name.c_str(), out[3].c_str(), ::getuid());

    RemoteFiles files(name, exec, out[1], out[2]);
    ConfigFile::UseFiles there(files);
    files.installProgram(HookInstaller::binPath());
    files.askAtOnce([] { Integrations::found(); });
    for (const std::string& agent : Integrations::found()) {
      try {
        Integrations::connect(agent);
        host.agents.push_back(agent);
      } catch (const InstallError& e) {
        std::fprintf(stderr, "vantler: %s: %s\n", agent.c_str(), e.what());
      }
    }
  } catch (const InstallError& e) {
    return fail(e.what());
  }

  std::vector<RemoteHost> hosts = RemoteHosts::load();
  std::erase_if(hosts, [&](const RemoteHost& h) { return h.name == name; });
  hosts.push_back(host);
  if (auto error = RemoteHosts::save(hosts)) return fail("cannot save the list: " + *error);

  std::string agents;
  for (const std::string& a : host.agents) agents += (agents.empty() ? "" : ", ") + a;
  std::printf("%s: hook program installed in ~/.vantler/bin; connected: %s.\n", name.c_str(),
              agents.empty() ? "no agent found there" : agents.c_str());
  if (container) {
    std::printf(
        "Start the container with the run directory mounted:\n"
        "  -v %s:%s/.vantler/run\n"
        "or in devcontainer.json:\n"
        "  \"mounts\": [\"source=${localEnv:HOME}/.vantler/run,target=%s/.vantler/run,"
        "type=bind\"]\n",
        Bridge::runDir(Files::home()).c_str(), host.home.c_str(), host.home.c_str());
  } else {
    std::printf(tellApp().is_null() ? "Its tunnel starts with Vantler.\n"
                                    : "Vantler keeps a tunnel to it from now on.\n");
  }
  return 0;
}

int remove(const std::string& name) {
  std::vector<RemoteHost> hosts = RemoteHosts::load();
  auto it =
      std::find_if(hosts.begin(), hosts.end(), [&](const RemoteHost& h) { return h.name == name; });
  if (it == hosts.end()) return fail(name + " is not in the list ('vantler remote list').");
  RemoteHost host = *it;
  hosts.erase(it);
  if (auto error = RemoteHosts::save(hosts)) return fail("cannot save the list: " + *error);
  tellApp();
  int status = 0;
  try {
    std::optional<SshMaster> master;
    RemoteFiles files(name,
                      host.container.empty()
                          ? RemoteFiles::overSsh(name, master.emplace(name).options())
                          : RemoteFiles::inContainer(host.container, name),
                      host.home, host.home + "/.config");
    ConfigFile::UseFiles there(files);
    for (const std::string& agent : host.agents) Integrations::disconnect(agent);
    std::printf("%s removed; its agents' settings are as they were.\n", name.c_str());
  } catch (const InstallError& e) {
    status = fail(std::string(e.what()) +
                  " (removed from the list; its hooks stay and return at "
                  "once without the tunnel: run 'vantler remote add " +
                  name + "' and remove it again to take them out)");
  }
  return status;
}

// Copies this version's hook program to the host and rewrites the hooks of the agents connected
// there, leaving alone those whose hooks the user took out. Run by Vantler when a host's hook
// is of another version.
int update(const std::string& name) {
  std::vector<RemoteHost> hosts = RemoteHosts::load();
  auto it = std::find_if(hosts.begin(), hosts.end(), [&](const RemoteHost& h) {
    return h.name == name && h.container.empty();
  });
  if (it == hosts.end())
    return fail(name + " is not an SSH host in the list ('vantler remote list').");
  std::vector<std::string> refreshed;
  try {
    SshMaster master(name);
    RemoteFiles files(name, RemoteFiles::overSsh(name, master.options()), it->home,
                      it->home + "/.config");
    ConfigFile::UseFiles there(files);
    files.installProgram(HookInstaller::binPath());
    for (const std::string& agent : it->agents) {
      if (!Integrations::isConnected(agent)) continue;
      Integrations::connect(agent);
      refreshed.push_back(agent);
    }
  } catch (const InstallError& e) {
    return fail(e.what());
  }
  std::string agents;
  for (const std::string& a : refreshed) agents += (agents.empty() ? "" : ", ") + a;
  std::printf("%s: hook program updated; hooks rewritten: %s.\n", name.c_str(),
              agents.empty() ? "none" : agents.c_str());
  return 0;
}

int list() {
  std::vector<RemoteHost> hosts = RemoteHosts::load();
  if (hosts.empty()) std::puts("No remote hosts ('vantler remote add <host>').");
  for (const RemoteHost& h : hosts) {
    std::string agents;
    for (const std::string& a : h.agents) agents += (agents.empty() ? "" : ", ") + a;
    std::printf("%-24s %-10s %s\n", h.name.c_str(),
                h.container.empty() ? "ssh" : h.container.c_str(),
                agents.empty() ? "-" : agents.c_str());
  }
  return 0;
}

int status() {
  Json answer = tellApp();
  std::vector<RemoteHost> hosts = RemoteHosts::load();
  if (answer.is_null()) {
    std::puts("Vantler is not running: no tunnels.");
    return list();
  }
  const Json& states = JsonField::array(answer, "hosts");
  const Json& hooks = JsonField::object(answer, "hooks");
  for (const RemoteHost& h : hosts) {
    std::string agents;
    for (const std::string& a : h.agents) agents += (agents.empty() ? "" : ", ") + a;
    std::string state = h.container.empty() ? "no tunnel" : "container (mounted run directory)";
    std::string last = "no event yet";
    for (const Json& s : states) {
      if (JsonField::str(s, "name") != h.name) continue;
      state = JsonField::str(s, "state");
      if (double at = JsonField::num(s, "lastEvent"); at > 0) {
        char text[64];
        time_t t = static_cast<time_t>(at);
        std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", std::localtime(&t));
        last = std::string("last event ") + text;
      }
    }
    if (std::string hook = JsonField::str(hooks, h.name); !hook.empty()) state += "; " + hook;
    std::printf("%s: %s; agents: %s; %s\n", h.name.c_str(), state.c_str(),
                agents.empty() ? "none" : agents.c_str(), last.c_str());
    if (std::find(h.agents.begin(), h.agents.end(), "codex") != h.agents.end())
      std::printf(
          "%s: Codex sessions there are followed through their hooks only; their logs "
          "are not read yet (no model, context or cost).\n",
          h.name.c_str());
  }
  if (hosts.empty()) std::puts("No remote hosts ('vantler remote add <host>').");
  return 0;
}

}  // namespace

int run(const std::vector<std::string>& args) {
  auto usage = [] {
    std::fputs(kUsage, stderr);
    return 2;
  };
  if (args.empty()) return usage();
  const std::string& what = args[0];
  if ((what == "list" || what == "status") && args.size() == 1)
    return what == "list" ? list() : status();
  bool container = args.size() == 3 && args[1] == "--container";
  if (what == "add" && (args.size() == 2 || container)) {
    const std::string& name = args.back();
    if (!container && !RemoteHosts::validName(name))
      return fail("'" + name + "' is not a host name or user@host[:port].");
    return add(name, container);
  }
  if (what == "remove" && args.size() == 2) return remove(args[1]);
  if (what == "update" && args.size() == 2) return update(args[1]);
  return usage();
}

}  // namespace RemoteCommand
