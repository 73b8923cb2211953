#include "app/linux_portal_keys.h"

#include <algorithm>

namespace {

constexpr const char* kPortal = "org.freedesktop.portal.Desktop";
constexpr const char* kPath = "/org/freedesktop/portal/desktop";
constexpr const char* kShortcuts = "org.freedesktop.portal.GlobalShortcuts";
constexpr int kTimeoutMs = 5000;  // for the method calls; the user's answer may take longer

}  // namespace

// One portal request in flight. Owned by the subscription to its Response signal, which
// deletes it when unsubscribed.
struct PortalShortcuts::Call {
  std::weak_ptr<PortalShortcuts*> owner;
  unsigned generation;
  std::function<void(GVariant*)> done;
  GDBusConnection* bus;
  guint signal = 0;

  PortalShortcuts* live() const {
    auto self = owner.lock();
    return self && (*self)->generation_ == generation ? *self : nullptr;
  }
};

PortalShortcuts::PortalShortcuts(std::function<void(const std::string& id)> activated,
                                 std::function<void(bool ok, const std::string& why)> bound)
    : activated_(std::move(activated)),
      bound_(std::move(bound)),
      bus_(g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, nullptr)),
      self_(std::make_shared<PortalShortcuts*>(this)) {
  if (!bus_) return;
  activatedSignal_ = g_dbus_connection_signal_subscribe(
      bus_, kPortal, kShortcuts, "Activated", kPath, nullptr, G_DBUS_SIGNAL_FLAGS_NONE,
      +[](GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar*,
          GVariant* parameters, gpointer data) {
        auto* self = static_cast<PortalShortcuts*>(data);
        const gchar* session = nullptr;
        const gchar* id = nullptr;
        g_variant_get(parameters, "(&o&sta{sv})", &session, &id, nullptr, nullptr);
        if (session && id && session == self->session_ && self->activated_) self->activated_(id);
      },
      this, nullptr);
}

PortalShortcuts::~PortalShortcuts() {
  close();
  if (activatedSignal_) g_dbus_connection_signal_unsubscribe(bus_, activatedSignal_);
  if (bus_) g_object_unref(bus_);
}

void PortalShortcuts::bind(std::vector<Shortcut> shortcuts) {
  close();
  shortcuts_ = std::move(shortcuts);
  if (!bus_) return fail("There is no session bus to reach the desktop portal.");
  createSession();
}

void PortalShortcuts::close() {
  ++generation_;
  if (session_.empty() || !bus_) return;
  g_dbus_connection_call(bus_, kPortal, session_.c_str(), "org.freedesktop.portal.Session", "Close",
                         nullptr, nullptr, G_DBUS_CALL_FLAGS_NONE, kTimeoutMs, nullptr, nullptr,
                         nullptr);
  session_.clear();
}

void PortalShortcuts::fail(const std::string& why) {
  if (bound_) bound_(false, why);
}

void PortalShortcuts::request(const char* method,
                              std::function<GVariant*(GVariant* options)> parameters,
                              std::function<void(GVariant* results)> done) {
  // The Request object's path is known before the call, so its answer cannot be missed.
  std::string token = "vantler" + std::to_string(++tokens_);
  std::string sender = g_dbus_connection_get_unique_name(bus_) + 1;
  std::replace(sender.begin(), sender.end(), '.', '_');
  std::string path = std::string(kPath) + "/request/" + sender + "/" + token;
  auto* call = new Call{self_, generation_, std::move(done), bus_};
  call->signal = g_dbus_connection_signal_subscribe(
      bus_, kPortal, "org.freedesktop.portal.Request", "Response", path.c_str(), nullptr,
      G_DBUS_SIGNAL_FLAGS_NONE,
      +[](GDBusConnection* bus, const gchar*, const gchar*, const gchar*, const gchar*,
          GVariant* answer, gpointer data) {
        auto* call = static_cast<Call*>(data);
        PortalShortcuts* self = call->live();
        auto done = std::move(call->done);
        g_dbus_connection_signal_unsubscribe(bus, call->signal);  // deletes `call`
        if (!self) return;
        guint32 response = 2;
        GVariant* results = nullptr;
        g_variant_get(answer, "(u@a{sv})", &response, &results);
        if (response == 0)
          done(results);
        else
          self->fail(response == 1 ? "The desktop's shortcut dialog was cancelled."
                                   : "The desktop refused the shortcuts.");
        g_variant_unref(results);
      },
      call, +[](gpointer data) { delete static_cast<Call*>(data); });

  GVariantBuilder options;
  g_variant_builder_init(&options, G_VARIANT_TYPE_VARDICT);
  g_variant_builder_add(&options, "{sv}", "handle_token", g_variant_new_string(token.c_str()));
  struct Pending {
    std::weak_ptr<PortalShortcuts*> owner;
    guint signal;
  };
  g_dbus_connection_call(
      bus_, kPortal, kPath, kShortcuts, method, parameters(g_variant_builder_end(&options)),
      G_VARIANT_TYPE("(o)"), G_DBUS_CALL_FLAGS_NONE, kTimeoutMs, nullptr,
      +[](GObject* source, GAsyncResult* result, gpointer data) {
        std::unique_ptr<Pending> pending(static_cast<Pending*>(data));
        GError* error = nullptr;
        GVariant* reply = g_dbus_connection_call_finish(G_DBUS_CONNECTION(source), result, &error);
        if (reply) {
          g_variant_unref(reply);
          return;
        }
        // No portal, or one without global shortcuts: no answer will come.
        g_dbus_connection_signal_unsubscribe(G_DBUS_CONNECTION(source), pending->signal);
        auto self = pending->owner.lock();
        if (self)
          (*self)->fail(g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_SERVICE_UNKNOWN) ||
                                g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_UNKNOWN_METHOD) ||
                                g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_UNKNOWN_INTERFACE)
                            ? "This desktop offers no global shortcuts to programs."
                            : std::string("The desktop portal failed: ") + error->message);
        g_clear_error(&error);
      },
      new Pending{self_, call->signal});
}

void PortalShortcuts::createSession() {
  std::string handle = "vantler" + std::to_string(++tokens_);
  request(
      "CreateSession",
      [handle](GVariant* options) {
        // The session's own token goes into the same dictionary.
        GVariantBuilder b;
        g_variant_builder_init(&b, G_VARIANT_TYPE_VARDICT);
        GVariantIter it;
        const gchar* key;
        GVariant* value;
        g_variant_iter_init(&it, options);
        while (g_variant_iter_next(&it, "{&sv}", &key, &value)) {
          g_variant_builder_add(&b, "{sv}", key, value);
          g_variant_unref(value);
        }
        g_variant_unref(g_variant_ref_sink(options));
        g_variant_builder_add(&b, "{sv}", "session_handle_token",
                              g_variant_new_string(handle.c_str()));
        return g_variant_new("(a{sv})", &b);
      },
      [this](GVariant* results) {
        // A string in the portal's documentation; some desktops send an object path.
        GVariant* handle = g_variant_lookup_value(results, "session_handle", nullptr);
        bool text = handle && (g_variant_is_of_type(handle, G_VARIANT_TYPE_STRING) ||
                               g_variant_is_of_type(handle, G_VARIANT_TYPE_OBJECT_PATH));
        if (text) session_ = g_variant_get_string(handle, nullptr);
        if (handle) g_variant_unref(handle);
        if (!text) return fail("The desktop portal opened no session.");
        bindShortcuts();
      });
}

void PortalShortcuts::bindShortcuts() {
  std::string session = session_;
  std::vector<Shortcut> shortcuts = shortcuts_;
  request(
      "BindShortcuts",
      [session, shortcuts](GVariant* options) {
        GVariantBuilder list;
        g_variant_builder_init(&list, G_VARIANT_TYPE("a(sa{sv})"));
        for (const Shortcut& s : shortcuts) {
          GVariantBuilder props;
          g_variant_builder_init(&props, G_VARIANT_TYPE_VARDICT);
          g_variant_builder_add(&props, "{sv}", "description",
                                g_variant_new_string(s.description.c_str()));
          g_variant_builder_add(&props, "{sv}", "preferred_trigger",
                                g_variant_new_string(s.trigger.c_str()));
          g_variant_builder_add(&list, "(sa{sv})", s.id.c_str(), &props);
        }
        return g_variant_new("(oa(sa{sv})s@a{sv})", session.c_str(), &list, "", options);
      },
      [this](GVariant*) {
        if (bound_) bound_(true, "");
      });
}
