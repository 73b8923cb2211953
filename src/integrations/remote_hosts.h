#pragma once
// Machines whose agents reach Vantler through an SSH tunnel, and containers whose hooks reach it
// through a mounted run directory: the list kept in ~/.config/vantler/remotes.json, and how
// each is reached. Every ssh Vantler runs is non-interactive (BatchMode): a host that wants a
// password or an unknown host key gets a one-line message instead of a hidden prompt.

#include <optional>
#include <string>
#include <vector>

struct RemoteHost {
  std::string name;       // as the user typed it: an ~/.ssh/config alias or user@host[:port]
  std::string home;       // the home directory there (where ~/.vantler/run is)
  std::string container;  // "docker" or "podman" for a container; empty for an SSH host
  std::vector<std::string> agents;  // the agents connected there
};

namespace RemoteHosts {

std::string path();  // ~/.config/vantler/remotes.json
// The list; a missing or broken file is an empty list.
std::vector<RemoteHost> load();
// Writes the list atomically; an error message, or nothing.
std::optional<std::string> save(const std::vector<RemoteHost>& hosts);

// What the host's name may be: letters, digits and ".-_@:[]", not starting with "-".
bool validName(const std::string& name);

// The ssh command line for `host` up to (and including) the destination: the program
// ($VANTLER_SSH or "ssh"), BatchMode and time-outs, "-p <port>" for user@host:port.
std::vector<std::string> ssh(const std::string& host);
// The argument that makes the host's login shell run `sh -c <script> sh <args>...`.
std::string remoteCommand(const std::string& script, const std::vector<std::string>& args);
// A word quoted for a POSIX shell.
std::string quote(const std::string& word);

// The one line the user reads when ssh (exit status 255) could not log in to `host`, from
// what it wrote on standard error.
std::string loginProblem(const std::string& host, const std::string& stderrText);

// The shell script that readies the host for a tunnel: its run directory owner-only, and a
// socket left by an earlier tunnel removed (the server refuses to forward over it).
std::string prepareScript();

}  // namespace RemoteHosts
