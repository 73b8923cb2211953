#pragma once
// The transcripts of sessions on remote hosts, read there through the host's tunnel connection:
// every few seconds while a session's events are recent, one ssh run per host fetches what its
// sessions' transcripts gained since the last fetch (at most `kCap` bytes, the rest next time),
// and the figures of the new lines go to the hub. Nothing waits on a host: at most one fetch
// per host runs at a time, beside the loop and with a deadline, and a host that is slow or down
// leaves its sessions' figures as they were.

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/loop.h"
#include "core/ports.h"
#include "integrations/host_transcripts.h"
#include "integrations/linux_subprocesses.h"

class HostTranscriptReader final : public HostTranscripts {
 public:
  static constexpr double kEvery = 3;     // seconds between two fetches from one host
  static constexpr double kRecent = 600;  // a session is read this long after its last event
  static constexpr double kDeadline = 15;
  static constexpr size_t kCap = 1u << 20;  // bytes one fetch brings
  static constexpr size_t kMaxSessions = 64;

  // A fresh parser for one transcript's lines.
  using Parser = std::function<std::unique_ptr<TranscriptFigures>()>;
  // The ssh command line, up to the destination, that reaches `host` through the connection it
  // already has; nothing while there is none (no fetch then).
  using Command = std::function<std::optional<std::vector<std::string>>(const std::string& host)>;
  // Where the figures go; false when that session is gone (it is no longer read).
  using Figures = std::function<bool(const std::string& id, const TranscriptStats& stats)>;

  HostTranscriptReader(Loop& loop, Parser parser);
  ~HostTranscriptReader() override;
  HostTranscriptReader(const HostTranscriptReader&) = delete;
  HostTranscriptReader& operator=(const HostTranscriptReader&) = delete;

  void follow(const std::string& id, const std::string& machine, const std::string& path) override;

  Command command;
  Figures onFigures;

 private:
  struct Followed {
    std::string host, path;
    uint64_t serial = 0;   // tells a session followed anew from the one a fetch was for
    double lastEvent = 0;  // uptime
    HostTail tail;
    std::unique_ptr<TranscriptFigures> figures;
  };
  struct Host {
    bool busy = false;
    double lastFetch = -kEvery;  // uptime
  };

  void tick();
  void fetch(const std::string& host);
  void fetched(const std::vector<std::pair<std::string, uint64_t>>& asked,
               const Subprocesses::Result& result);

  Loop& loop_;
  Parser parser_;
  Subprocesses runner_;
  std::map<std::string, Followed> sessions_;
  std::map<std::string, Host> hosts_;
  uint64_t serial_ = 0;
  Loop::TaskId ticker_ = 0;
};
