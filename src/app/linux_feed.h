#pragma once
// Reads the update feed with libcurl on a worker thread of GLib's pool; the result comes back
// on the main loop. Only http and https, at most 1 MiB, 20 seconds in all. Dropping the
// fetcher cancels what still runs, and its callbacks never come.

#include <gio/gio.h>

#include "app/panel_updates.h"

class CurlFeedFetcher final : public FeedFetcher {
 public:
  static constexpr size_t kMaxBytes = 1u << 20;
  static constexpr long kTimeoutSeconds = 20;

  CurlFeedFetcher();
  ~CurlFeedFetcher() override;
  CurlFeedFetcher(const CurlFeedFetcher&) = delete;
  CurlFeedFetcher& operator=(const CurlFeedFetcher&) = delete;

  void fetch(const std::string& url, std::function<void(Result)> done) override;

 private:
  GCancellable* cancellable_;
};
