#include "app/linux_portal_keys.h"

namespace {

constexpr const char* kPortal = "org.freedesktop.portal.Desktop";
constexpr const char* kPath = "/org/freedesktop/portal/desktop";
constexpr const char* kShortcuts = "org.freedesktop.portal.GlobalShortcuts";
constexpr int kTimeoutMs = 5000;  // for the method calls; the user's answer may take longer

}  // namespace

PortalShortcuts::PortalShortcuts(std::function<void(const std::string& id)> activated,
                                 std::function<void(bool ok, const std::string& why)> bound)
    : activated_(std::move(activated)),
      bound_(std::move(bound)),
      bus_(g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, nullptr)),
      requests_(bus_, kShortcuts) {
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
  requests_.drop();
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
  requests_.call(method, std::move(parameters), std::move(done), failed());
}

std::function<void(const PortalRequests::Failure&)> PortalShortcuts::failed() {
  return [this](const PortalRequests::Failure& failure) {
    switch (failure.why) {
      case PortalRequests::Why::cancelled:
        return fail("The desktop's shortcut dialog was cancelled.");
      case PortalRequests::Why::refused:
        return fail("The desktop refused the shortcuts.");
      case PortalRequests::Why::missing:
        return fail("This desktop offers no global shortcuts to programs.");
      case PortalRequests::Why::failed:
        return fail("The desktop portal failed: " + failure.message);
    }
  };
}

void PortalShortcuts::createSession() {
  requests_.createSession(
      [this](const std::string& session) {
        session_ = session;
        if (session_.empty()) return fail("The desktop portal opened no session.");
        bindShortcuts();
      },
      failed());
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
