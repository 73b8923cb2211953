#include "app/panel_remotes.h"

#include <algorithm>

#include "core/text.h"

RemoteSettings::RemoteSettings(Loop& loop, std::string program, std::function<Json()> status,
                               std::function<void()> changed)
    : runner_(loop),
      program_(std::move(program)),
      status_(std::move(status)),
      changed_(std::move(changed)) {}

void RemoteSettings::report(Json& settings) const {
  const Json status = status_();
  const Json& hooks = JsonField::object(status, "hooks");
  Json hosts = Json::array();
  for (const RemoteHost& host : hosts_) {
    std::string state = host.container.empty() ? "starting" : "container (" + host.container + ")";
    for (const Json& tunnel : JsonField::array(status, "hosts"))
      if (JsonField::str(tunnel, "name") == host.name) state = JsonField::str(tunnel, "state");
    auto busy = busy_.find(host.name);
    hosts.push_back({{"name", host.name},
                     {"state", state},
                     {"hook", JsonField::str(hooks, host.name)},
                     {"busy", busy == busy_.end() ? "" : busy->second}});
  }
  // A host being added is not in the list yet.
  for (const auto& [name, doing] : busy_)
    if (std::none_of(hosts.begin(), hosts.end(), [&](const Json& h) { return h["name"] == name; }))
      hosts.push_back({{"name", name}, {"state", ""}, {"hook", ""}, {"busy", doing}});
  settings["remotes"] = {{"hosts", std::move(hosts)}, {"message", message_}};
}

bool RemoteSettings::set(std::string_view key, const Json& value, std::string& error) {
  if (key != "remote:add" && key != "remote:remove") return false;
  const std::string host = Text::trimWhitespace(value.is_string() ? value.get<std::string>() : "");
  if (!RemoteHosts::validName(host)) {
    error = "\"" + host + "\" is not a host name: use an ~/.ssh/config alias or user@host[:port]";
  } else if (busy_.count(host)) {
    error = "wait for " + host + " to finish " + busy_[host];
  } else {
    run(key == "remote:add" ? "add" : "remove", host);
  }
  return true;
}

void RemoteSettings::run(const std::string& verb, const std::string& host) {
  Subprocesses::Options options;
  options.deadline = kDeadline;
  const bool started = runner_.run(
      {program_, "remote", verb, host}, options, [this, verb, host](const Subprocesses::Result& r) {
        busy_.erase(host);
        // `vantler remote add` says what it did first, and a failure says why last.
        std::string said = r.exited0 ? Text::firstLine(r.out) : Text::lastLine(r.err);
        if (said.empty()) said = Text::lastLine(r.out);
        if (!r.finished)
          said = host + ": gave up after " + std::to_string(int(kDeadline)) + " s";
        else if (said.empty())
          said = host + (r.exited0 ? ": done" : ": failed");
        message_ = said;
        reload();
        changed_();
      });
  if (!started) {
    message_ = "could not run " + program_;
  } else {
    busy_[host] = verb == "add" ? "adding" : "removing";
    message_.clear();
  }
  changed_();
}
