#include "integrations/remote_hosts.h"

#include <cctype>
#include <cstdlib>

#include "core/files.h"
#include "core/json.h"

namespace RemoteHosts {

std::string path() {
  return Files::configHome() + "/vantler/remotes.json";
}

std::vector<RemoteHost> load() {
  std::vector<RemoteHost> hosts;
  auto text = Files::read(path());
  if (!text) return hosts;
  Json root = JsonField::parseBounded(*text);
  for (const Json& h : JsonField::array(root, "hosts")) {
    RemoteHost host{
        JsonField::str(h, "name"), JsonField::str(h, "home"), JsonField::str(h, "container"), {}};
    for (const Json& a : JsonField::array(h, "agents"))
      if (a.is_string()) host.agents.push_back(a.get<std::string>());
    if (validName(host.name)) hosts.push_back(std::move(host));
  }
  return hosts;
}

std::optional<std::string> save(const std::vector<RemoteHost>& hosts) {
  Json list = Json::array();
  for (const RemoteHost& h : hosts) {
    Json entry = {{"name", h.name}, {"home", h.home}, {"agents", h.agents}};
    if (!h.container.empty()) entry["container"] = h.container;
    list.push_back(std::move(entry));
  }
  return Files::writeAtomic(path(), Json{{"hosts", list}}.dump(2) + "\n", 0600);
}

bool validName(const std::string& name) {
  if (name.empty() || name.size() > 255 || name[0] == '-') return false;
  for (unsigned char c : name)
    if (!std::isalnum(c) && std::string_view(".-_@:[]").find(c) == std::string_view::npos)
      return false;
  return true;
}

std::vector<std::string> ssh(const std::string& host) {
  const char* program = std::getenv("VANTLER_SSH");
  std::vector<std::string> argv = {program && *program ? program : "ssh",
                                   "-o",
                                   "BatchMode=yes",
                                   "-o",
                                   "ConnectTimeout=10",
                                   "-o",
                                   "ServerAliveInterval=10",
                                   "-o",
                                   "ServerAliveCountMax=3"};
  // user@host:port; a bare alias, or an IPv6 address in brackets, is passed as it is.
  std::string destination = host;
  size_t colon = host.rfind(':');
  if (colon != std::string::npos && host.find(':') == colon && colon + 1 < host.size() &&
      host.find_first_not_of("0123456789", colon + 1) == std::string::npos) {
    argv.insert(argv.end(), {"-p", host.substr(colon + 1)});
    destination = host.substr(0, colon);
  }
  argv.push_back("--");
  argv.push_back(destination);
  return argv;
}

std::string quote(const std::string& word) {
  std::string out = "'";
  for (char c : word) {
    if (c == '\'')
      out += "'\\''";
    else
      out += c;
  }
  return out + "'";
}

std::string remoteCommand(const std::string& script, const std::vector<std::string>& args) {
  std::string command = "sh -c " + quote(script) + " sh";
  for (const std::string& a : args) command += " " + quote(a);
  return command;
}

std::string loginProblem(const std::string& host, const std::string& err) {
  auto has = [&](const char* text) { return err.find(text) != std::string::npos; };
  if (has("Permission denied"))
    return host +
           " asks for a password or a key it does not know, and Vantler logs in with keys only: "
           "run 'ssh-copy-id " +
           host + "' (or 'ssh-add'), check that 'ssh " + host +
           " true' asks nothing, then try again.";
  if (has("IDENTIFICATION HAS CHANGED"))
    return host +
           "'s host key has changed since you last logged in; check why and fix "
           "~/.ssh/known_hosts before trying again.";
  if (has("Host key verification failed") || has("No ED25519 host key is known") ||
      has("host key is known"))
    return host + "'s host key is not known yet: run 'ssh " + host +
           "' once to check and accept it, then try again.";
  if (has("Could not resolve hostname"))
    return "cannot find the host " + host + " (not in ~/.ssh/config and no such name).";
  // The last line ssh wrote says the rest ("Connection refused", "timed out", ...).
  std::string last;
  size_t end = err.find_last_not_of("\r\n");
  if (end != std::string::npos) {
    size_t start = err.rfind('\n', end);
    last = err.substr(start == std::string::npos ? 0 : start + 1,
                      end - (start == std::string::npos ? 0 : start + 1) + 1);
  }
  return "cannot reach " + host + (last.empty() ? std::string(".") : ": " + last);
}

std::string prepareScript() {
  return "umask 077; d=\"$HOME/.vantler/run\"; mkdir -p \"$d\" && chmod 700 \"$HOME/.vantler\" "
         "\"$d\" && rm -f \"$d/vantler.sock\" && printf '%s\\n' \"$HOME\"";
}

}  // namespace RemoteHosts
