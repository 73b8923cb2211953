#pragma once
// Learning about new versions. The feed (an appcast: RSS items carrying sparkle:version or
// sparkle:shortVersionString, with a link to the release) is fixed when Vantler is built; none
// means no checks. It is read at most once a day and when the user asks, never while a request
// waits for the user (the check is put off in one-minute steps). Vantler never replaces its own
// files: a newer version is only announced, with its link, in the menu and the settings.

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "core/defaults.h"
#include "core/json.h"
#include "core/loop.h"

// Reads the feed without the loop waiting on it; `done` runs on the loop's thread.
class FeedFetcher {
 public:
  struct Result {
    bool ok = false;
    std::string body;
    std::string error;  // why it failed, for the settings and the log
  };
  virtual ~FeedFetcher() = default;
  virtual void fetch(const std::string& url, std::function<void(Result)> done) = 0;
};

namespace UpdateFeed {

// Below zero when `a` is older than `b`, zero when the same, above zero when newer. Numbers
// compare as numbers, "1.10" > "1.9"; a word after a number marks a pre-release, "1.0b2" <
// "1.0"; trailing zeros do not count, "1.0" == "1.0.0".
int compareVersions(std::string_view a, std::string_view b);

struct Release {
  std::string version;
  std::string link;  // an http(s) page for the release; empty when the feed gives none
};
// The newest release of an appcast, or nothing when the text is not one with a versioned item.
std::optional<Release> newest(std::string_view appcast);

}  // namespace UpdateFeed

class Updater {
 public:
  static constexpr double kDay = 24 * 3600.0;
  static constexpr double kBusyRetry = 60.0;
  static constexpr double kFirstDelay = 20.0;  // after start, before a first-ever check
  static constexpr const char* kLastCheckKey = "updates.lastCheck";

  Updater(Loop& loop, Defaults& defaults, FeedFetcher& fetcher, std::string feedUrl,
          std::string currentVersion);
  ~Updater();
  Updater(const Updater&) = delete;
  Updater& operator=(const Updater&) = delete;

  // Whether a request waits for the user. Set before `start`.
  std::function<bool()> busy = [] { return false; };
  // The status changed (for the page and the menu).
  std::function<void()> changed = [] {};

  // Schedules the daily check: a day after the last one, or shortly after start.
  void start();
  // "Check for Updates…": now, or as soon as no request waits.
  void checkNow();

  bool enabled() const { return !feedUrl_.empty(); }
  // The newer version announced and its link; empty when there is none.
  const std::string& newerVersion() const { return newer_.version; }
  const std::string& link() const { return newer_.link; }
  // {"state": "off" | "idle" | "waiting" | "checking" | "current" | "newer" | "failed",
  //  "version", "link", "error"} for the settings.
  Json status() const;

 private:
  void schedule(double seconds);
  void attempt();
  void finished(const FeedFetcher::Result& result);
  void setState(std::string state, std::string error = {});

  Loop& loop_;
  Defaults& defaults_;
  FeedFetcher& fetcher_;
  std::string feedUrl_;
  std::string current_;
  std::string state_ = "idle";
  std::string error_;
  UpdateFeed::Release newer_;
  bool fetching_ = false;
  std::optional<Loop::TaskId> timer_;
  std::shared_ptr<Updater*> self_;
};
