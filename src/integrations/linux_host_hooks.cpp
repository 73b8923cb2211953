#include "integrations/linux_host_hooks.h"

#include "core/text.h"
#include "integrations/remote_hosts.h"

HostHooks::HostHooks(Loop& loop, std::string ours, UpdateCommand update, Log log)
    : ours_(std::move(ours)), update_(std::move(update)), log_(std::move(log)), runs_(loop) {}

void HostHooks::tunnelUp(const std::string& host) {
  if (!seen_.insert(host).second) return;
  state_[host] = "checking hook";
  waiting_.push_back(host);
  next();
}

void HostHooks::next() {
  if (busy_ || waiting_.empty()) return;
  busy_ = true;
  std::string host = waiting_.front();
  waiting_.pop_front();
  check(host);
}

void HostHooks::check(const std::string& host) {
  std::vector<std::string> argv = RemoteHosts::ssh(host);
  argv.push_back(RemoteHosts::remoteCommand("\"$HOME/.vantler/bin/vantler-hook\" --version", {}));
  Subprocesses::Options options;
  options.deadline = kCheckWithin;
  bool started = runs_.run(argv, options, [this, host](const Subprocesses::Result& r) {
    if (!r.finished)
      return finish(host, "hook not checked",
                    "no answer within " + std::to_string(int(kCheckWithin)) + " s");
    std::string version = Text::trimWhitespace(r.out);
    if (r.exited0 && version == ours_) return finish(host, version, version + ", up to date");
    log_(host + ": its hook says \"" + (version.empty() ? Text::lastLine(r.err) : version) +
         "\", not \"" + ours_ + "\": updating it");
    update(host);
  });
  if (!started) finish(host, "hook not checked", "cannot run ssh");
}

void HostHooks::update(const std::string& host) {
  state_[host] = "hook outdated";
  Subprocesses::Options options;
  options.deadline = kUpdateWithin;
  bool started = runs_.run(update_(host), options, [this, host](const Subprocesses::Result& r) {
    if (r.exited0) {
      // It says "<host>: hook program updated; ...".
      std::string said = Text::lastLine(r.out);
      if (said.starts_with(host + ": ")) said.erase(0, host.size() + 2);
      return finish(host, ours_, said);
    }
    finish(host, "hook outdated",
           "updating its hook failed: " +
               (r.finished ? Text::lastLine(r.err)
                           : "no end within " + std::to_string(int(kUpdateWithin)) + " s"));
  });
  if (!started) finish(host, "hook outdated", "updating its hook failed: cannot run vantler");
}

void HostHooks::finish(const std::string& host, const std::string& state, const std::string& line) {
  state_[host] = state;
  log_(host + ": " + line);
  busy_ = false;
  next();
}

Json HostHooks::status() const {
  Json hosts = Json::object();
  for (const auto& [host, state] : state_) hosts[host] = state;
  return hosts;
}
