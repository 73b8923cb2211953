#include "app/linux_tray.h"

#include <libayatana-appindicator/app-indicator.h>

#include "core/files.h"

namespace {

constexpr const char* kWatcher = "org.kde.StatusNotifierWatcher";
constexpr const char* kWatcherPath = "/StatusNotifierWatcher";
constexpr const char* kIcon = "vantler-symbolic";
constexpr const char* kIconFile = "/hicolor/scalable/status/vantler-symbolic.svg";

// The icon theme directory holding our icon: the build tree's copy beside the executable, or
// the share directory of the prefix it is installed under. Nothing: the desktop's own themes
// (an installation under /usr) find it.
std::string iconThemeDir() {
  char* exe = g_file_read_link("/proc/self/exe", nullptr);
  if (!exe) return {};
  std::string dir = Files::parent(exe);
  g_free(exe);
  for (std::string candidate : {dir + "/icons", dir + "/../share/icons"})
    if (Files::exists(candidate + kIconFile)) return candidate;
  return {};
}

}  // namespace

LinuxTray::LinuxTray(Model model, LinuxMenu::Chosen chosen)
    : model_(std::move(model)), chosen_(std::move(chosen)) {
  indicator_ = app_indicator_new("vantler", kIcon, APP_INDICATOR_CATEGORY_APPLICATION_STATUS);
  std::string themeDir = iconThemeDir();
  if (!themeDir.empty()) app_indicator_set_icon_theme_path(indicator_, themeDir.c_str());
  app_indicator_set_title(indicator_, "Vantler");
  menu_ = gtk_menu_new();
  g_object_ref_sink(menu_);
  refresh();
  app_indicator_set_menu(indicator_, GTK_MENU(menu_));
  // The indicator exports the menu once it is connected to the watcher.
  g_signal_connect_swapped(
      indicator_, "connection-changed",
      G_CALLBACK(+[](gpointer self) { static_cast<LinuxTray*>(self)->followOpening(); }), this);
  followOpening();
  app_indicator_set_status(indicator_, APP_INDICATOR_STATUS_ACTIVE);
  watchHost();
}

LinuxTray::~LinuxTray() {
  if (cancellable_) {
    g_cancellable_cancel(cancellable_);
    g_object_unref(cancellable_);
  }
  if (watch_) g_bus_unwatch_name(watch_);
  if (bus_) {
    if (registered_) g_dbus_connection_signal_unsubscribe(bus_, registered_);
    g_object_unref(bus_);
  }
  if (root_) {
    g_signal_handlers_disconnect_by_data(root_, this);
    g_object_unref(root_);
  }
  if (indicator_) {
    g_signal_handlers_disconnect_by_data(indicator_, this);
    g_object_unref(indicator_);
  }
  gtk_widget_destroy(menu_);
  g_object_unref(menu_);
}

// A host asks for the menu just before it opens (dbusmenu's AboutToShow): it is rebuilt then,
// through the signal of the root item the indicator's menu server exports.
void LinuxTray::followOpening() {
  if (root_) return;
  GObject* server = nullptr;
  g_object_get(indicator_, "dbus-menu-server", &server, nullptr);
  if (!server) return;
  g_object_get(server, "root-node", &root_, nullptr);
  g_object_unref(server);
  if (!root_) return;
  g_signal_connect_swapped(root_, "about-to-show", G_CALLBACK(+[](gpointer self) -> gboolean {
                             static_cast<LinuxTray*>(self)->refresh();
                             return TRUE;
                           }),
                           this);
}

void LinuxTray::refresh() {
  std::vector<MenuItem> items = model_();
  if (items == shown_) return;
  shown_ = std::move(items);
  LinuxMenu::fill(GTK_MENU(menu_), shown_, chosen_);
}

std::string LinuxTray::missing() const {
  if (!known_ || host_) return {};
  const char* menu = " Right-click the panel for Vantler's menu.";
  if (!bus_) return std::string("No tray icon: there is no session bus.") + menu;
  if (!watcher_)
    return std::string(
               "No tray icon: this desktop has no StatusNotifier tray (on GNOME, the "
               "AppIndicator extension adds one).") +
           menu;
  return std::string("No tray icon: the desktop's tray is not running.") + menu;
}

// The watcher's name, then its IsStatusNotifierHostRegistered property, followed as both
// change: a panel started after Vantler shows the icon at once.
void LinuxTray::watchHost() {
  bus_ = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, nullptr);
  if (!bus_) {
    known_ = true;
    return;
  }
  cancellable_ = g_cancellable_new();
  registered_ = g_dbus_connection_signal_subscribe(
      bus_, kWatcher, kWatcher, "StatusNotifierHostRegistered", kWatcherPath, nullptr,
      G_DBUS_SIGNAL_FLAGS_NONE,
      +[](GDBusConnection*, const char*, const char*, const char*, const char*, GVariant*,
          gpointer self) { static_cast<LinuxTray*>(self)->setHost(true); },
      this, nullptr);
  watch_ = g_bus_watch_name_on_connection(
      bus_, kWatcher, G_BUS_NAME_WATCHER_FLAGS_NONE,
      +[](GDBusConnection*, const char*, const char*, gpointer self) {
        auto* tray = static_cast<LinuxTray*>(self);
        tray->watcher_ = true;
        tray->askHost();
      },
      +[](GDBusConnection*, const char*, gpointer self) {
        auto* tray = static_cast<LinuxTray*>(self);
        tray->watcher_ = false;
        tray->setHost(false);
      },
      this, nullptr);
}

void LinuxTray::askHost() {
  g_dbus_connection_call(
      bus_, kWatcher, kWatcherPath, "org.freedesktop.DBus.Properties", "Get",
      g_variant_new("(ss)", kWatcher, "IsStatusNotifierHostRegistered"), G_VARIANT_TYPE("(v)"),
      G_DBUS_CALL_FLAGS_NONE, 2000, cancellable_,
      +[](GObject* source, GAsyncResult* result, gpointer self) {
        GError* error = nullptr;
        GVariant* reply = g_dbus_connection_call_finish(G_DBUS_CONNECTION(source), result, &error);
        if (!reply && g_error_matches(error, G_IO_ERROR, G_IO_ERROR_CANCELLED)) {
          g_error_free(error);
          return;  // the tray is gone
        }
        g_clear_error(&error);
        bool registered = false;
        if (reply) {
          GVariant* value = nullptr;
          g_variant_get(reply, "(v)", &value);
          registered =
              g_variant_is_of_type(value, G_VARIANT_TYPE_BOOLEAN) && g_variant_get_boolean(value);
          g_variant_unref(value);
          g_variant_unref(reply);
        }
        static_cast<LinuxTray*>(self)->setHost(registered);
      },
      this);
}

void LinuxTray::setHost(bool present) {
  if (known_ && host_ == present) return;
  known_ = true;
  host_ = present;
  g_message("Vantler tray: %s", present ? "shown by the desktop's StatusNotifier host"
                                        : "no StatusNotifier host; the menu opens from the panel");
  if (changed) changed();
}
