#include "app/linux_portal_paste.h"

namespace {

constexpr const char* kPortal = "org.freedesktop.portal.Desktop";
constexpr const char* kPath = "/org/freedesktop/portal/desktop";
constexpr const char* kRemote = "org.freedesktop.portal.RemoteDesktop";
constexpr int kTimeoutMs = 5000;  // for each method call; the user's answer may take longer
constexpr guint32 kKeyboard = 1;
constexpr guint32 kPersistUntilRevoked = 2;
constexpr gint32 kControl = 0xffe3, kShift = 0xffe1, kV = 0x76;  // keysyms

}  // namespace

PortalKeyboard::PortalKeyboard(Loop& loop, Defaults& defaults)
    : loop_(loop),
      defaults_(defaults),
      bus_(g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, nullptr)),
      requests_(bus_, kRemote),
      self_(std::make_shared<PortalKeyboard*>(this)) {}

PortalKeyboard::~PortalKeyboard() {
  if (deadline_) loop_.cancel(*deadline_);
  closeSession();
  if (bus_) g_object_unref(bus_);
}

void PortalKeyboard::paste(bool terminal, std::function<void(bool typed)> done) {
  if (!bus_) return done(false);
  if (started_) return type(terminal, std::move(done));
  waiting_.emplace_back(terminal, std::move(done));
  if (!opening_) open();
}

void PortalKeyboard::request(const char* method,
                             std::function<GVariant*(GVariant* options)> parameters,
                             std::function<void(GVariant* results)> done) {
  requests_.call(method, std::move(parameters), std::move(done), failed());
}

std::function<void(const PortalRequests::Failure&)> PortalKeyboard::failed() {
  return [this](const PortalRequests::Failure& failure) {
    g_message("Vantler: no paste keys through the desktop portal: %s",
              failure.why == PortalRequests::Why::cancelled ? "not allowed"
              : failure.why == PortalRequests::Why::refused ? "refused"
                                                            : failure.message.c_str());
    finishOpening(false);
  };
}

void PortalKeyboard::open() {
  opening_ = true;
  std::weak_ptr<PortalKeyboard*> weak = self_;
  deadline_ = loop_.after(kOpenDeadline, [weak] {
    if (auto self = weak.lock()) {
      (*self)->deadline_.reset();
      g_message("Vantler: the desktop portal did not open a keyboard session in time");
      (*self)->finishOpening(false);
    }
  });
  requests_.createSession(
      [this](const std::string& session) {
        session_ = session;
        if (session_.empty()) return finishOpening(false);
        closedSignal_ = g_dbus_connection_signal_subscribe(
            bus_, kPortal, "org.freedesktop.portal.Session", "Closed", session_.c_str(), nullptr,
            G_DBUS_SIGNAL_FLAGS_NONE,
            +[](GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar*, GVariant*,
                gpointer data) {
              // Revoked by the user or the desktop: the next paste opens a new session.
              auto* self = static_cast<PortalKeyboard*>(data);
              self->session_.clear();
              self->closeSession();
            },
            this, nullptr);
        selectDevices();
      },
      failed());
}

void PortalKeyboard::selectDevices() {
  std::string session = session_;
  std::string token = defaults_.string(kTokenKey);
  request(
      "SelectDevices",
      [session, token](GVariant* options) {
        GVariant* all = PortalRequests::extend(options, [&](GVariantBuilder& b) {
          g_variant_builder_add(&b, "{sv}", "types", g_variant_new_uint32(kKeyboard));
          g_variant_builder_add(&b, "{sv}", "persist_mode",
                                g_variant_new_uint32(kPersistUntilRevoked));
          if (!token.empty())
            g_variant_builder_add(&b, "{sv}", "restore_token", g_variant_new_string(token.c_str()));
        });
        return g_variant_new("(o@a{sv})", session.c_str(), all);
      },
      [this](GVariant*) { start(); });
}

void PortalKeyboard::start() {
  std::string session = session_;
  request(
      "Start",
      [session](GVariant* options) {
        return g_variant_new("(os@a{sv})", session.c_str(), "", options);
      },
      [this](GVariant* results) {
        guint32 devices = 0;
        g_variant_lookup(results, "devices", "u", &devices);
        // A token is good for one restore; each start hands out the next.
        const gchar* token = nullptr;
        if (g_variant_lookup(results, "restore_token", "&s", &token) && token && *token)
          defaults_.set(kTokenKey, std::string(token));
        finishOpening((devices & kKeyboard) != 0);
      });
}

void PortalKeyboard::finishOpening(bool ok) {
  requests_.drop();
  opening_ = false;
  if (deadline_) loop_.cancel(*deadline_);
  deadline_.reset();
  started_ = ok;
  if (!ok) closeSession();
  auto waiting = std::move(waiting_);
  waiting_.clear();
  for (auto& [terminal, done] : waiting) {
    if (ok)
      type(terminal, std::move(done));
    else
      done(false);
  }
}

void PortalKeyboard::closeSession() {
  started_ = false;
  if (closedSignal_) g_dbus_connection_signal_unsubscribe(bus_, closedSignal_);
  closedSignal_ = 0;
  if (session_.empty() || !bus_) return;
  g_dbus_connection_call(bus_, kPortal, session_.c_str(), "org.freedesktop.portal.Session", "Close",
                         nullptr, nullptr, G_DBUS_CALL_FLAGS_NONE, kTimeoutMs, nullptr, nullptr,
                         nullptr);
  session_.clear();
}

void PortalKeyboard::type(bool terminal, std::function<void(bool)> done) {
  std::vector<std::pair<gint32, guint32>> keys{{kControl, 1}};
  if (terminal) keys.emplace_back(kShift, 1);
  keys.insert(keys.end(), {{kV, 1}, {kV, 0}});
  if (terminal) keys.emplace_back(kShift, 0);
  keys.emplace_back(kControl, 0);
  // The calls go out in order on one connection; the paste counts once all were taken.
  struct Keys {
    std::weak_ptr<PortalKeyboard*> owner;
    size_t left;
    bool ok = true;
    std::function<void(bool)> done;
  };
  auto state = std::make_shared<Keys>(Keys{self_, keys.size(), true, std::move(done)});
  for (auto [keysym, pressed] : keys) {
    g_dbus_connection_call(
        bus_, kPortal, kPath, kRemote, "NotifyKeyboardKeysym",
        g_variant_new("(o@a{sv}iu)", session_.c_str(),
                      g_variant_new_array(G_VARIANT_TYPE("{sv}"), nullptr, 0), keysym, pressed),
        nullptr, G_DBUS_CALL_FLAGS_NONE, kTimeoutMs, nullptr,
        +[](GObject* source, GAsyncResult* result, gpointer data) {
          std::unique_ptr<std::shared_ptr<Keys>> keys(static_cast<std::shared_ptr<Keys>*>(data));
          Keys& k = **keys;
          GError* error = nullptr;
          GVariant* reply =
              g_dbus_connection_call_finish(G_DBUS_CONNECTION(source), result, &error);
          if (reply) g_variant_unref(reply);
          if (error) {
            g_message("Vantler: a paste key was not taken: %s", error->message);
            g_clear_error(&error);
            k.ok = false;
          }
          if (--k.left > 0) return;
          auto self = k.owner.lock();
          if (!self) return;
          if (!k.ok) (*self)->closeSession();  // the next paste opens a new one
          k.done(k.ok);
        },
        new std::shared_ptr<Keys>(state));
  }
}
