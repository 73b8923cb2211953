#pragma once
// Reading Claude Code transcript lines, shared by the transcript reader and the usage meter.
//
// A transcript is a file of JSON lines. Claude Code writes one line per content block of an
// assistant message, and every such line repeats the message's id, the request id and the usage
// figures; the early lines of a streamed message can carry partial usage. A message is therefore
// identified by (message id, request id) and counted once, with the usage of its latest line.
//
// Lines are read with a light scanner that picks out the few fields used here as views into the
// line and skips everything else (above all the large message contents and tool results)
// without building a JSON tree.

#include <sys/stat.h>
#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "core/json.h"
#include "usage/pricing.h"

namespace ClaudeLines {

// One scanned value: `kind` is 0 when the key is absent, '"' for a string (`raw` is its text
// between the quotes, escapes not yet decoded), '{' or '[' for an object or array (`raw` is the
// whole JSON text), 't', 'f', 'n' for literals and '0' for a number.
struct Value {
  std::string_view raw;
  char kind = 0;

  bool isString() const { return kind == '"'; }
  bool isTrue() const { return kind == 't'; }
  // The exact string value (escapes in `raw` are compared undecoded).
  bool is(std::string_view text) const { return kind == '"' && raw == text; }
};

// The fields of one line that are used here. Those under "message" are prefixed by the object.
struct Line {
  Value type, subtype, timestamp, cwd, gitBranch, entrypoint, customTitle, requestId;
  Value isMeta, isSidechain, isCompactSummary;
  Value messageId, messageModel, messageRole, messageStopReason, messageUsage, messageContent;
};

// Scans one line; false when it is not a JSON object.
bool scan(std::string_view text, Line& line);

// The "type" and "timestamp" of a line as read backwards from its end, where Claude Code writes
// them, without looking at the rest of the line. The walk stops at the first member whose value
// is an object or array, after `maxMembers` members, or at anything that does not end a JSON
// object. `whole` tells that it reached the line's opening brace, so an absent field is absent.
// Nothing at all when the line does not end like an object. On a well-formed line the fields
// found are those `scan` finds.
struct Tail {
  Value type, timestamp;
  bool whole = false;
};
std::optional<Tail> scanTail(std::string_view text, int maxMembers = 8);

// The figures of a "usage" object's JSON text, read without building a tree. Text that is not
// an object gives all zeros.
Pricing::Usage usageOf(std::string_view json);

// Text without the blanks and line breaks at its ends.
std::string trimmed(std::string_view s);

// The decoded text of a string value; nothing for any other kind.
std::optional<std::string> text(const Value& value);

// Seconds since 1970 for an ISO 8601 time such as "2025-06-01T12:34:56.789Z" (an offset such as
// "+02:00" is also accepted); nothing when it does not parse.
std::optional<double> parseTime(std::string_view iso);

// The model id Claude Code uses for messages it made up itself (errors, interruptions).
inline constexpr std::string_view kSynthetic = "<synthetic>";

// The identity of an assistant message: its id and the id of the request that produced it.
// Empty when the message has no id.
std::string messageKey(std::string_view messageId, std::string_view requestId);

// Assistant messages counted once each, with the usage of the latest line seen for them. Lines
// are recorded cheaply; `settle` prices only the messages that changed since its last call.
class MessageLedger {
 public:
  struct Count {
    std::string model;
    double cost = 0;
    int64_t tokens = 0;  // input + output tokens
  };

  // One line of an assistant message. `usage` is the raw JSON text of its "usage" object; a
  // later line of the same message replaces this one. Synthetic messages are ignored.
  void record(const Line& line);
  // Calls `change(before, after)` for each message recorded since the last call: `before` is
  // what it counted until now (nullptr for a new message), `after` what it counts from now on.
  void settle(const std::function<void(const Count* before, const Count& after)>& change);
  void clear();
  size_t size() const { return entries_.size(); }

 private:
  struct Entry {
    std::optional<Count> counted;
    std::string model;
    std::string usage;
    bool dirty = false;
  };
  std::unordered_map<std::string, Entry> entries_;
  std::vector<Entry*> dirty_;
  uint64_t anonymous_ = 0;
};

// The transcript files of a projects directory ("<root>/<project>/<session>.jsonl"), each with
// its stat record. Unreadable directories are skipped.
void forEachTranscript(const std::string& root,
                       const std::function<void(const std::string& path, std::string_view name,
                                                const struct stat& info)>& visit);

// Home + "/.claude/projects".
std::string projectsDirectory();

}  // namespace ClaudeLines
