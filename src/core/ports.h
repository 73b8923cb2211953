#pragma once
// Narrow interfaces to the components the hub owns but that live elsewhere: the transcript
// reader, the pull-request tracker, recent transcripts, the jump to a session's window and
// typing into its terminal.
// Each has a quiet default so the hub runs without them.

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/json.h"
#include "core/session.h"

class TranscriptReader {
 public:
  virtual ~TranscriptReader() = default;
  // Reads what was appended to a transcript since the last call and returns its figures.
  virtual std::optional<TranscriptStats> update(const std::string& path) = 0;
};

// The figures of one transcript taken in line by line, whatever carries the lines.
class TranscriptFigures {
 public:
  virtual ~TranscriptFigures() = default;
  virtual void add(std::string_view line) = 0;
  // The figures of every line added so far.
  virtual const TranscriptStats& figures() = 0;
};

// Transcripts of sessions on other machines, read there in the background. Their figures reach
// the hub through `Hub::hostFigures`.
class HostTranscripts {
 public:
  virtual ~HostTranscripts() = default;
  // The session `id` on `machine` writes its transcript at `path` there. Called on each of the
  // session's events; a session is read while its events are recent.
  virtual void follow(const std::string& id, const std::string& machine,
                      const std::string& path) = 0;
};

struct PullRequest {
  int64_t number = 0;
  std::string title;
  std::string state;   // "OPEN", "MERGED", "CLOSED"
  std::string checks;  // "pass", "fail", "pending" or empty
  std::string url;
  bool operator==(const PullRequest&) const = default;
};

class PullRequests {
 public:
  virtual ~PullRequests() = default;
  // Refreshes the pull requests of these project roots; the tracker throttles unless `force`.
  virtual void refresh(const std::vector<std::string>& roots, bool force) = 0;
  virtual const PullRequest* find(const std::string& root) const = 0;
  // Called with a project root and a news kind ("opened", "merged", "closed", "checksPassed",
  // "checksFailed") when a pull request changes.
  std::function<void(const std::string& root, const std::string& kind)> onNews;
};

struct RecentTranscript {
  std::string id;    // the agent's session id
  std::string path;  // the transcript file
  Date modified = 0;
};

class RecentTranscripts {
 public:
  virtual ~RecentTranscripts() = default;
  virtual std::vector<RecentTranscript> find() = 0;
};

class Jumper {
 public:
  virtual ~Jumper() = default;
  // Brings the session's terminal or application to the front.
  virtual void go(const Session& session) = 0;
};

class TerminalReplies {
 public:
  virtual ~TerminalReplies() = default;
  // Types `text` and Enter at the agent's own prompt in the terminal `tty`, when that terminal
  // can be reached; otherwise nothing happens. Returns at once.
  virtual void type(const std::string& tty, const std::string& text) = 0;
};

// Display names and context windows of models, which the core does not know itself.
class ModelCatalog {
 public:
  virtual ~ModelCatalog() = default;
  // The name shown for a session's model ("Opus 4.5"); the model id itself when unknown.
  virtual std::string label(Agent agent, const std::string& model) const = 0;
  // The model's context window in tokens; 0 when unknown.
  virtual int64_t contextWindow(const std::string& model) const = 0;
};

namespace Jump {
// A short display name for the place a session runs: "Cursor", "Codex", or the host
// application's file name without extension.
std::optional<std::string> hostName(const Session& session);
}  // namespace Jump

// The hub's collaborators. Absent ones are replaced by inert defaults.
struct HubPorts {
  std::shared_ptr<TranscriptReader> transcripts;
  std::shared_ptr<PullRequests> github;
  std::shared_ptr<RecentTranscripts> recent;
  std::shared_ptr<Jumper> jumper;
  // When the process with this pid started (clock ticks after boot); nothing when no such
  // process runs. A pid reused by a later process shows a different start.
  std::function<std::optional<uint64_t>(int32_t pid)> processStart;
  std::shared_ptr<ModelCatalog> models;  // none: model ids are shown as they are
  // Whether the process with this pid runs an agent headless (a print or exec mode that
  // cannot take a reply); false when unknown.
  std::function<bool(int32_t pid)> headless;
  // Replies to turns the app no longer holds go through the agent's terminal.
  std::shared_ptr<TerminalReplies> typist;
  std::shared_ptr<HostTranscripts> hostTranscripts;  // none: remote sessions show no figures
};
