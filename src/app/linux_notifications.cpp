#include "app/linux_notifications.h"

#include <cstring>

#include "app/desktop.h"

namespace {

constexpr const char* kName = "org.freedesktop.Notifications";
constexpr const char* kPath = "/org/freedesktop/Notifications";

using Weak = std::weak_ptr<LinuxNotifications*>;

// A D-Bus call whose answer goes to `then` while the notifier still exists.
template <class Then>
void call(GDBusConnection* bus, const char* method, GVariant* args, const char* type,
          const std::shared_ptr<LinuxNotifications*>& self, Then then) {
  struct Pending {
    Weak weak;
    Then then;
  };
  g_dbus_connection_call(
      bus, kName, kPath, kName, method, args, type ? G_VARIANT_TYPE(type) : nullptr,
      G_DBUS_CALL_FLAGS_NONE, 5000, nullptr,
      +[](GObject* source, GAsyncResult* result, gpointer data) {
        std::unique_ptr<Pending> pending(static_cast<Pending*>(data));
        GError* error = nullptr;
        GVariant* reply = g_dbus_connection_call_finish(G_DBUS_CONNECTION(source), result, &error);
        if (error) {
          g_message("Vantler notifications: %s", error->message);
          g_error_free(error);
        }
        if (auto self = pending->weak.lock(); self && reply) pending->then(**self, reply);
        if (reply) g_variant_unref(reply);
      },
      new Pending{self, std::move(then)});
}

}  // namespace

LinuxNotifications::LinuxNotifications() : self_(std::make_shared<LinuxNotifications*>(this)) {
  bus_ = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, nullptr);
  if (!bus_) return;
  // Only the server's own signals count: another program on the bus cannot answer a request.
  subscription_ = g_dbus_connection_signal_subscribe(
      bus_, kName, kName, nullptr, kPath, nullptr, G_DBUS_SIGNAL_FLAGS_NONE,
      +[](GDBusConnection*, const char*, const char*, const char*, const char* name,
          GVariant* parameters,
          gpointer self) { static_cast<LinuxNotifications*>(self)->signal(name, parameters); },
      this, nullptr);
  call(bus_, "GetCapabilities", nullptr, "(as)", self_, [](LinuxNotifications& n, GVariant* reply) {
    GVariantIter* caps = nullptr;
    const char* cap = nullptr;
    g_variant_get(reply, "(as)", &caps);
    while (g_variant_iter_loop(caps, "&s", &cap))
      if (std::strcmp(cap, "actions") == 0) n.actions_ = true;
    g_variant_iter_free(caps);
  });
}

LinuxNotifications::~LinuxNotifications() {
  if (!bus_) return;
  g_dbus_connection_signal_unsubscribe(bus_, subscription_);
  g_object_unref(bus_);
}

void LinuxNotifications::show(const std::string& key, const Notice& notice) {
  if (!bus_) return;
  GVariantBuilder actions;
  g_variant_builder_init(&actions, G_VARIANT_TYPE("as"));
  for (const auto& [action, label] : notice.actions) {
    g_variant_builder_add(&actions, "s", action.c_str());
    g_variant_builder_add(&actions, "s", label.c_str());
  }
  GVariantBuilder hints;
  g_variant_builder_init(&hints, G_VARIANT_TYPE("a{sv}"));
  g_variant_builder_add(&hints, "{sv}", "desktop-entry", g_variant_new_string(DesktopApp::kAppId));
  // Critical: it stays until answered, like the request itself.
  g_variant_builder_add(&hints, "{sv}", "urgency", g_variant_new_byte(2));
  ids_[key] = 0;
  call(bus_, "Notify",
       g_variant_new("(susssasa{sv}i)", "Vantler", 0u, "vantler-symbolic", notice.title.c_str(),
                     notice.body.c_str(), &actions, &hints, 0),
       "(u)", self_, [key](LinuxNotifications& n, GVariant* reply) {
         uint32_t id = 0;
         g_variant_get(reply, "(u)", &id);
         auto it = n.ids_.find(key);
         if (it == n.ids_.end())
           n.close(id);  // withdrawn meanwhile
         else
           it->second = id;
       });
}

void LinuxNotifications::withdraw(const std::string& key) {
  auto it = ids_.find(key);
  if (it == ids_.end()) return;
  uint32_t id = it->second;
  ids_.erase(it);
  if (id) close(id);
}

void LinuxNotifications::close(uint32_t id) {
  call(bus_, "CloseNotification", g_variant_new("(u)", id), nullptr, self_,
       [](LinuxNotifications&, GVariant*) {});
}

std::string LinuxNotifications::keyOf(uint32_t id) const {
  for (const auto& [key, known] : ids_)
    if (known == id && id != 0) return key;
  return {};
}

void LinuxNotifications::signal(const char* name, GVariant* parameters) {
  uint32_t id = 0;
  if (std::strcmp(name, "ActionInvoked") == 0 &&
      g_variant_is_of_type(parameters, G_VARIANT_TYPE("(us)"))) {
    const char* action = nullptr;
    g_variant_get(parameters, "(u&s)", &id, &action);
    std::string key = keyOf(id);
    if (!key.empty() && onAction) onAction(key, action);
  } else if (std::strcmp(name, "NotificationClosed") == 0 &&
             g_variant_is_of_type(parameters, G_VARIANT_TYPE("(uu)"))) {
    g_variant_get(parameters, "(uu)", &id, nullptr);
    std::string key = keyOf(id);
    if (key.empty()) return;
    ids_.erase(key);
    if (onClosed) onClosed(key);
  }
}
