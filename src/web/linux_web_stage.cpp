#include "web/linux_web_stage.h"

#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <cstring>

#include "core/files.h"
#include "web/web_root.h"

namespace {

// The directory the page is served from, chosen by the first load; every stage of the
// process serves the same page.
std::string& servedRoot() {
  static std::string root;
  return root;
}

std::string executableDir() {
  std::string path = Files::executable();
  return path.empty() ? std::string() : Files::parent(path);
}

std::string workingDir() {
  char buf[PATH_MAX];
  return ::getcwd(buf, sizeof buf) ? std::string(buf) : std::string();
}

void refuse(WebKitURISchemeRequest* request, const char* why) {
  GError* error = g_error_new_literal(G_IO_ERROR, G_IO_ERROR_NOT_FOUND, why);
  webkit_uri_scheme_request_finish_error(request, error);
  g_error_free(error);
}

void serve(WebKitURISchemeRequest* request, gpointer) {
  const std::string& root = servedRoot();
  GUri* uri = g_uri_parse(webkit_uri_scheme_request_get_uri(request), G_URI_FLAGS_ENCODED, nullptr);
  if (!uri) return refuse(request, "malformed address");
  std::string host = g_uri_get_host(uri) ? g_uri_get_host(uri) : "";
  std::string path = g_uri_get_path(uri);
  g_uri_unref(uri);
  if (root.empty() || host != WebRoot::kHost) return refuse(request, "not found");
  auto file = WebRoot::resolve(root, path);
  auto bytes = file ? WebRoot::readFile(*file) : std::nullopt;
  if (!bytes) return refuse(request, "not found");
  const std::string mime = WebRoot::mimeType(*file);
  gsize size = bytes->size();
  GBytes* data = g_bytes_new(bytes->data(), size);
  GInputStream* stream = g_memory_input_stream_new_from_bytes(data);
  webkit_uri_scheme_request_finish(request, stream, static_cast<gint64>(size), mime.c_str());
  g_object_unref(stream);
  g_bytes_unref(data);
}

bool envIs(const char* name, const char* value) {
  const char* v = std::getenv(name);
  return v && std::strcmp(v, value) == 0;
}

}  // namespace

void WebStage::registerScheme() {
  static bool done = false;
  if (done) return;
  done = true;
  WebKitWebContext* context = webkit_web_context_get_default();
  webkit_web_context_register_uri_scheme(context, WebRoot::kScheme, serve, nullptr, nullptr);
  WebKitSecurityManager* security = webkit_web_context_get_security_manager(context);
  webkit_security_manager_register_uri_scheme_as_secure(security, WebRoot::kScheme);
  webkit_security_manager_register_uri_scheme_as_cors_enabled(security, WebRoot::kScheme);
}

WebStage::WebStage() {
  // Without accelerated compositing the web process starts in half the time and an animating
  // page costs a sixth of the processor (no GPU: compositing is done in software). The user's
  // own setting wins. It must be in the environment before the first web process starts.
  g_setenv("WEBKIT_DISABLE_COMPOSITING_MODE", "1", FALSE);
  registerScheme();

  contentManager_ = webkit_user_content_manager_new();
  webkit_user_content_manager_register_script_message_handler(contentManager_, "vantler");
  g_signal_connect(contentManager_, "script-message-received::vantler", G_CALLBACK(onScriptMessage),
                   this);

  WebKitSettings* settings = webkit_settings_new();
  webkit_settings_set_enable_developer_extras(settings, envIs("VANTLER_INSPECT", "1"));
  webkit_settings_set_enable_write_console_messages_to_stdout(settings,
                                                              envIs("VANTLER_INSPECT", "1"));
  webkit_settings_set_javascript_can_open_windows_automatically(settings, FALSE);

  view_ = WEBKIT_WEB_VIEW(g_object_new(WEBKIT_TYPE_WEB_VIEW, "user-content-manager",
                                       contentManager_, "settings", settings, nullptr));
  g_object_unref(settings);
  g_object_ref_sink(view_);

  GdkRGBA clear = {0, 0, 0, 0};
  webkit_web_view_set_background_color(view_, &clear);
  g_signal_connect(view_, "load-changed", G_CALLBACK(onLoadChanged), this);
  g_signal_connect(view_, "load-failed", G_CALLBACK(onLoadFailed), this);
  g_signal_connect(view_, "web-process-terminated", G_CALLBACK(onProcessTerminated), this);
  g_signal_connect(view_, "decide-policy", G_CALLBACK(onDecidePolicy), this);
}

WebStage::~WebStage() {
  g_signal_handlers_disconnect_by_data(contentManager_, this);
  g_signal_handlers_disconnect_by_data(view_, this);
  webkit_user_content_manager_unregister_script_message_handler(contentManager_, "vantler");
  gtk_widget_destroy(GTK_WIDGET(view_));
  g_object_unref(view_);
  g_object_unref(contentManager_);
}

GtkWidget* WebStage::widget() const {
  return GTK_WIDGET(view_);
}

void WebStage::load(const std::string& query) {
  ready_ = false;
  if (const char* dev = std::getenv("VANTLER_DEV_URL");
      dev && *dev && g_uri_is_valid(dev, G_URI_FLAGS_NONE, nullptr)) {
    source_ = std::string("page: development server ") + dev;
    webkit_web_view_load_uri(view_, (std::string(dev) + query).c_str());
    return;
  }
  auto root = WebRoot::find(
      WebRoot::candidates(std::getenv("VANTLER_WEB_DIR"), executableDir(), workingDir()));
  if (!root) {
    source_ = "page: missing (fallback page shown)";
    webkit_web_view_load_html(view_, WebRoot::kFallbackPage, nullptr);
    return;
  }
  servedRoot() = *root;
  source_ = "page: " + *root;
  webkit_web_view_load_uri(view_, (std::string(WebRoot::kIndexUri) + query).c_str());
}

void WebStage::send(const std::string& name, Json payload) {
  if (!payload.is_object()) payload = Json::object();
  payload["type"] = name;
  std::string json = JsonField::compactOrEmpty(payload);
  if (json.empty()) return;
  std::string script = "window.__vantler && window.__vantler.receive(" + json + ");";
  if (ready_) {
    evaluate(script);
    return;
  }
  if (queued_.size() >= kMaxQueued) queued_.pop_front();
  queued_.push_back(std::move(script));
}

void WebStage::evaluate(const std::string& script) {
  webkit_web_view_evaluate_javascript(view_, script.c_str(), static_cast<gssize>(script.size()),
                                      nullptr, nullptr, nullptr, nullptr, nullptr);
}

void WebStage::flush() {
  while (ready_ && !queued_.empty()) {
    std::string script = std::move(queued_.front());
    queued_.pop_front();
    evaluate(script);
  }
}

void WebStage::received(const Json& message) {
  if (!message.is_object()) return;
  if (JsonField::str(message, "type") == "ready") {
    ready_ = true;
    flush();
  }
  if (onMessage) onMessage(message);
}

void WebStage::openExternal(const std::string& uri) {
  GError* error = nullptr;
  if (!g_app_info_launch_default_for_uri(uri.c_str(), nullptr, &error)) {
    g_warning("Vantler: cannot open %s: %s", uri.c_str(), error ? error->message : "");
    g_clear_error(&error);
  }
}

void WebStage::onScriptMessage(WebKitUserContentManager*, WebKitJavascriptResult* result,
                               gpointer self) {
  JSCValue* value = webkit_javascript_result_get_js_value(result);
  char* json = jsc_value_to_json(value, 0);
  if (!json) return;
  Json message = JsonField::parse(json);
  g_free(json);
  static_cast<WebStage*>(self)->received(message);
}

void WebStage::onLoadChanged(WebKitWebView*, WebKitLoadEvent event, gpointer self) {
  // A new document has no receiver yet: hold messages until it says "ready".
  if (event == WEBKIT_LOAD_STARTED) static_cast<WebStage*>(self)->ready_ = false;
}

gboolean WebStage::onLoadFailed(WebKitWebView*, WebKitLoadEvent, const char*, GError* error,
                                gpointer) {
  g_warning("Vantler web stage failed: %s", error ? error->message : "unknown error");
  return FALSE;
}

void WebStage::onProcessTerminated(WebKitWebView* view, WebKitWebProcessTerminationReason reason,
                                   gpointer self) {
  g_warning("Vantler: the page's web process ended (%s); reloading",
            reason == WEBKIT_WEB_PROCESS_CRASHED ? "crashed" : "ran out of memory or was ended");
  static_cast<WebStage*>(self)->ready_ = false;
  webkit_web_view_reload(view);
}

gboolean WebStage::onDecidePolicy(WebKitWebView*, WebKitPolicyDecision* decision,
                                  WebKitPolicyDecisionType type, gpointer) {
  if (type != WEBKIT_POLICY_DECISION_TYPE_NEW_WINDOW_ACTION &&
      type != WEBKIT_POLICY_DECISION_TYPE_NAVIGATION_ACTION)
    return FALSE;
  WebKitNavigationAction* action = webkit_navigation_policy_decision_get_navigation_action(
      WEBKIT_NAVIGATION_POLICY_DECISION(decision));
  const char* uri = webkit_uri_request_get_uri(webkit_navigation_action_get_request(action));
  if (!uri) return FALSE;
  // Links meant for a new window, and clicked links that leave the page's own files, open in
  // the browser; the panel keeps showing the page.
  bool leaves =
      webkit_navigation_action_get_navigation_type(action) == WEBKIT_NAVIGATION_TYPE_LINK_CLICKED &&
      !g_str_has_prefix(uri, "vantler:");
  if (type == WEBKIT_POLICY_DECISION_TYPE_NEW_WINDOW_ACTION || leaves) {
    openExternal(uri);
    webkit_policy_decision_ignore(decision);
    return TRUE;
  }
  return FALSE;
}
