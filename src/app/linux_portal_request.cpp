#include "app/linux_portal_request.h"

#include <algorithm>

namespace {

constexpr const char* kPortal = "org.freedesktop.portal.Desktop";
constexpr const char* kPath = "/org/freedesktop/portal/desktop";
constexpr int kTimeoutMs = 5000;  // for the method call; the user's answer may take longer

}  // namespace

// One request in flight. Owned by the subscription to its Response signal, which deletes it
// when unsubscribed.
struct PortalRequests::Call {
  std::weak_ptr<PortalRequests*> owner;
  unsigned generation;
  std::function<void(GVariant*)> done;
  std::function<void(const Failure&)> failed;
  guint signal = 0;

  bool live() const {
    auto self = owner.lock();
    return self && (*self)->generation_ == generation;
  }
};

PortalRequests::PortalRequests(GDBusConnection* bus, const char* interface)
    : bus_(bus), interface_(interface), self_(std::make_shared<PortalRequests*>(this)) {}

GVariant* PortalRequests::extend(GVariant* options,
                                 const std::function<void(GVariantBuilder&)>& add) {
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
  add(b);
  return g_variant_builder_end(&b);
}

void PortalRequests::call(const char* method,
                          std::function<GVariant*(GVariant* options)> parameters,
                          std::function<void(GVariant* results)> done,
                          std::function<void(const Failure&)> failed) {
  // The Request object's path is known before the call, so its answer cannot be missed.
  std::string handle = token();
  std::string sender = g_dbus_connection_get_unique_name(bus_) + 1;
  std::replace(sender.begin(), sender.end(), '.', '_');
  std::string path = std::string(kPath) + "/request/" + sender + "/" + handle;
  auto* call = new Call{self_, generation_, std::move(done), failed};
  call->signal = g_dbus_connection_signal_subscribe(
      bus_, kPortal, "org.freedesktop.portal.Request", "Response", path.c_str(), nullptr,
      G_DBUS_SIGNAL_FLAGS_NONE,
      +[](GDBusConnection* bus, const gchar*, const gchar*, const gchar*, const gchar*,
          GVariant* answer, gpointer data) {
        auto* call = static_cast<Call*>(data);
        bool live = call->live();
        auto done = std::move(call->done);
        auto failed = std::move(call->failed);
        g_dbus_connection_signal_unsubscribe(bus, call->signal);  // deletes `call`
        if (!live) return;
        guint32 response = 2;
        GVariant* results = nullptr;
        g_variant_get(answer, "(u@a{sv})", &response, &results);
        if (response == 0)
          done(results);
        else
          failed({response == 1 ? Why::cancelled : Why::refused, {}});
        g_variant_unref(results);
      },
      call, +[](gpointer data) { delete static_cast<Call*>(data); });

  GVariantBuilder options;
  g_variant_builder_init(&options, G_VARIANT_TYPE_VARDICT);
  g_variant_builder_add(&options, "{sv}", "handle_token", g_variant_new_string(handle.c_str()));
  struct Pending {
    std::weak_ptr<PortalRequests*> owner;
    unsigned generation;
    guint signal;
    std::function<void(const Failure&)> failed;
  };
  g_dbus_connection_call(
      bus_, kPortal, kPath, interface_, method, parameters(g_variant_builder_end(&options)),
      G_VARIANT_TYPE("(o)"), G_DBUS_CALL_FLAGS_NONE, kTimeoutMs, nullptr,
      +[](GObject* source, GAsyncResult* result, gpointer data) {
        std::unique_ptr<Pending> pending(static_cast<Pending*>(data));
        GError* error = nullptr;
        GVariant* reply = g_dbus_connection_call_finish(G_DBUS_CONNECTION(source), result, &error);
        if (reply) {
          g_variant_unref(reply);
          return;
        }
        // No portal, or one without this interface: no answer will come.
        g_dbus_connection_signal_unsubscribe(G_DBUS_CONNECTION(source), pending->signal);
        Failure failure{g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_SERVICE_UNKNOWN) ||
                                g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_UNKNOWN_METHOD) ||
                                g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_UNKNOWN_INTERFACE)
                            ? Why::missing
                            : Why::failed,
                        error->message};
        g_clear_error(&error);
        auto self = pending->owner.lock();
        if (self && (*self)->generation_ == pending->generation) pending->failed(failure);
      },
      new Pending{self_, generation_, call->signal, std::move(failed)});
}

void PortalRequests::createSession(std::function<void(const std::string& session)> done,
                                   std::function<void(const Failure&)> failed) {
  std::string handle = token();
  call(
      "CreateSession",
      [handle](GVariant* options) {
        // The session's own token goes into the same dictionary.
        return g_variant_new("(@a{sv})", extend(options, [&](GVariantBuilder& b) {
                               g_variant_builder_add(&b, "{sv}", "session_handle_token",
                                                     g_variant_new_string(handle.c_str()));
                             }));
      },
      [done = std::move(done)](GVariant* results) {
        // A string in the portal's documentation; some desktops send an object path.
        GVariant* value = g_variant_lookup_value(results, "session_handle", nullptr);
        std::string session;
        if (value && (g_variant_is_of_type(value, G_VARIANT_TYPE_STRING) ||
                      g_variant_is_of_type(value, G_VARIANT_TYPE_OBJECT_PATH)))
          session = g_variant_get_string(value, nullptr);
        if (value) g_variant_unref(value);
        done(session);
      },
      std::move(failed));
}
