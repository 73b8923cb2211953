#pragma once
// The serialised form of each shown session, kept from one snapshot to the next so that a push
// costs what changed. A session's text is written again only when something it shows changed:
// the session itself (its revision), the stretch of time its mood and pose are in, the reply
// window of an open reply, or the pull request of its project.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "core/ports.h"
#include "core/session.h"

class SessionTexts {
 public:
  // The session's JSON object as `Session::write` makes it (the model catalogue is fixed for
  // the hub's life, so it is no part of what invalidates a text). The view lasts until `sweep`.
  std::string_view text(const Session& session, Date now, int64_t replyWindowSeconds,
                        const PullRequest* pr, const ModelCatalog* models);
  // Ends a snapshot: the texts it did not ask for are dropped.
  void sweep();

 private:
  struct Entry {
    uint64_t revision = 0;
    int phase = 0;
    int64_t replyWindow = 0;
    std::optional<PullRequest> pr;
    std::string text;
    uint64_t used = 0;
  };

  std::unordered_map<std::string, Entry> entries_;  // by session id
  std::string unstored_;                            // the text of a session never stored
  uint64_t generation_ = 1;
  size_t asked_ = 0;
};
