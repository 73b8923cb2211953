#pragma once
// The panel page in a WebKitGTK view: finds the page, serves its files under vantler://app/,
// passes the page's commands to native code and sends native messages into the page. Messages
// sent before the page has said "ready" wait in order and are delivered when it does; the
// same happens again after the page is reloaded (for instance when its web process died).

#include <webkit2/webkit2.h>

#include <deque>
#include <functional>
#include <string>

#include "core/json.h"

class WebStage {
 public:
  // Messages kept while the page is not ready; the oldest go first beyond this.
  static constexpr size_t kMaxQueued = 512;

  WebStage();
  ~WebStage();
  WebStage(const WebStage&) = delete;
  WebStage& operator=(const WebStage&) = delete;

  // The web view, to be put into a window.
  GtkWidget* widget() const;

  // Loads the page: $VANTLER_DEV_URL when it is a URL, else index.html from the first
  // directory that has it, else a page saying the page is missing. `query` ("?onboard") is
  // appended to the page's address.
  void load(const std::string& query = {});

  // Sends {"type": name, ...payload} to the page's `window.__vantler.receive`.
  void send(const std::string& name, Json payload);
  bool isReady() const { return ready_; }

  // Every command the page posts, "ready" included (after the queue has been delivered).
  std::function<void(const Json& message)> onMessage;

  // Opens a link in the user's default browser.
  static void openExternal(const std::string& uri);

  // One line saying where the page comes from, for diagnostics.
  const std::string& source() const { return source_; }

 private:
  static void registerScheme();
  void evaluate(const std::string& script);
  void received(const Json& message);
  void flush();

  static void onScriptMessage(WebKitUserContentManager* manager, WebKitJavascriptResult* result,
                              gpointer self);
  static void onLoadChanged(WebKitWebView* view, WebKitLoadEvent event, gpointer self);
  static gboolean onLoadFailed(WebKitWebView* view, WebKitLoadEvent event, const char* uri,
                               GError* error, gpointer self);
  static void onProcessTerminated(WebKitWebView* view, WebKitWebProcessTerminationReason reason,
                                  gpointer self);
  static gboolean onDecidePolicy(WebKitWebView* view, WebKitPolicyDecision* decision,
                                 WebKitPolicyDecisionType type, gpointer self);

  WebKitWebView* view_ = nullptr;
  WebKitUserContentManager* contentManager_ = nullptr;
  bool ready_ = false;
  std::deque<std::string> queued_;
  std::string source_;
};
