#include "integrations/linux_host_transcripts.h"

#include <algorithm>

#include "integrations/remote_hosts.h"

HostTranscriptReader::HostTranscriptReader(Loop& loop, Parser parser)
    : loop_(loop), parser_(std::move(parser)), runner_(loop) {}

HostTranscriptReader::~HostTranscriptReader() {
  if (ticker_) loop_.cancel(ticker_);
}

void HostTranscriptReader::follow(const std::string& id, const std::string& machine,
                                  const std::string& path) {
  if (sessions_.size() >= kMaxSessions && !sessions_.count(id)) {
    // The session whose last event is oldest gives way.
    sessions_.erase(std::min_element(sessions_.begin(), sessions_.end(), [](auto& a, auto& b) {
      return a.second.lastEvent < b.second.lastEvent;
    }));
  }
  Followed& f = sessions_[id];
  if (f.host != machine || f.path != path) {
    f = Followed{machine, path, ++serial_, 0, HostTail(), parser_()};
  }
  f.lastEvent = loop_.uptime();
  if (!ticker_) ticker_ = loop_.every(kEvery, 0.5, [this] { tick(); });
  // An event is a sign of new lines: read them now unless the host was read a moment ago.
  Host& host = hosts_[machine];
  if (!host.busy && loop_.uptime() - host.lastFetch >= kEvery) fetch(machine);
}

void HostTranscriptReader::tick() {
  const double now = loop_.uptime();
  std::erase_if(sessions_, [&](const auto& s) { return now - s.second.lastEvent > kRecent; });
  std::erase_if(hosts_, [&](const auto& h) {
    if (h.second.busy) return false;
    for (const auto& [id, f] : sessions_)
      if (f.host == h.first) return false;
    return true;
  });
  if (sessions_.empty()) {
    loop_.cancel(ticker_);
    ticker_ = 0;
    return;
  }
  for (auto& [name, host] : hosts_)
    if (!host.busy && now - host.lastFetch >= kEvery - 0.5) fetch(name);
}

void HostTranscriptReader::fetch(const std::string& name) {
  auto argv = command ? command(name) : std::nullopt;
  if (!argv) return;
  std::vector<std::pair<std::string, uint64_t>> files, asked;
  for (const auto& [id, f] : sessions_) {
    if (f.host != name) continue;
    files.emplace_back(f.path, f.tail.offset());
    asked.emplace_back(id, f.serial);
  }
  if (files.empty()) return;
  argv->push_back(
      RemoteHosts::remoteCommand(HostFetch::script(), HostFetch::arguments(kCap, files)));
  Subprocesses::Options options;
  options.deadline = kDeadline;
  options.bytes = true;  // a cut at the cap may fall inside a character
  Host& host = hosts_[name];
  host.lastFetch = loop_.uptime();
  host.busy = runner_.run(*argv, options, [this, name, asked](const Subprocesses::Result& r) {
    hosts_[name].busy = false;
    fetched(asked, r);
  });
}

void HostTranscriptReader::fetched(const std::vector<std::pair<std::string, uint64_t>>& asked,
                                   const Subprocesses::Result& result) {
  if (!result.exited0) return;
  auto pieces = HostFetch::parse(result.out, asked.size());
  if (!pieces) return;
  for (size_t i = 0; i < asked.size(); ++i) {
    auto found = sessions_.find(asked[i].first);
    if (found == sessions_.end() || found->second.serial != asked[i].second) continue;
    Followed& f = found->second;
    bool changed = false;
    f.tail.take((*pieces)[i],
                [&] {
                  f.figures = parser_();
                  changed = true;
                },
                [&](std::string_view line) {
                  f.figures->add(line);
                  changed = true;
                });
    if (changed && onFigures && !onFigures(found->first, f.figures->figures()))
      sessions_.erase(found);
  }
}
