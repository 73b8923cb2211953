#include "app/linux_desktop.h"

#include <cstring>

#include "web/linux_web_stage.h"

namespace {

constexpr const char* kPortal = "org.freedesktop.portal.Desktop";
constexpr const char* kPortalPath = "/org/freedesktop/portal/desktop";
constexpr const char* kSettings = "org.freedesktop.portal.Settings";
constexpr const char* kAppearance = "org.freedesktop.appearance";

// The portal wraps the value once or twice in variants depending on its version.
int colorSchemeOf(GVariant* value) {
  GVariant* v = g_variant_ref(value);
  while (g_variant_is_of_type(v, G_VARIANT_TYPE_VARIANT)) {
    GVariant* inner = g_variant_get_variant(v);
    g_variant_unref(v);
    v = inner;
  }
  int scheme = g_variant_is_of_type(v, G_VARIANT_TYPE_UINT32) ? int(g_variant_get_uint32(v)) : -1;
  g_variant_unref(v);
  return scheme;
}

}  // namespace

LinuxDesktop::LinuxDesktop(GtkApplication* app, std::vector<std::string> mechanisms)
    : app_(app), mechanisms_(std::move(mechanisms)) {
  GtkSettings* settings = gtk_settings_get_default();
  if (settings) {
    g_signal_connect(settings, "notify::gtk-theme-name", G_CALLBACK(onSettingsNotify), this);
    g_signal_connect(settings, "notify::gtk-application-prefer-dark-theme",
                     G_CALLBACK(onSettingsNotify), this);
  }
  watchPortal();
}

LinuxDesktop::~LinuxDesktop() {
  if (GtkSettings* settings = gtk_settings_get_default())
    g_signal_handlers_disconnect_by_data(settings, this);
  if (cancellable_) {
    g_cancellable_cancel(cancellable_);
    g_object_unref(cancellable_);
  }
  if (bus_) {
    if (portalSignal_) g_dbus_connection_signal_unsubscribe(bus_, portalSignal_);
    g_object_unref(bus_);
  }
  if (menu_) gtk_widget_destroy(menu_);
}

void LinuxDesktop::copyText(const std::string& text) {
  GtkClipboard* clipboard = gtk_clipboard_get(GDK_SELECTION_CLIPBOARD);
  gtk_clipboard_set_text(clipboard, text.c_str(), static_cast<gint>(text.size()));
  gtk_clipboard_store(clipboard);
}

void LinuxDesktop::openUri(const std::string& uri) {
  WebStage::openExternal(uri);
}

void LinuxDesktop::showMenu(std::function<void()> closed) {
  if (menu_) gtk_widget_destroy(menu_);
  menuClosed_ = std::move(closed);
  menu_ = gtk_menu_new();
  LinuxMenu::fill(GTK_MENU(menu_), menuModel ? menuModel() : std::vector<MenuItem>{}, menuChosen);
  g_signal_connect(menu_, "deactivate", G_CALLBACK(+[](GtkMenuShell*, gpointer data) {
                     auto* self = static_cast<LinuxDesktop*>(data);
                     // "deactivate" comes before the chosen item runs: report the close after.
                     g_idle_add(
                         +[](gpointer d) -> gboolean {
                           auto* s = static_cast<LinuxDesktop*>(d);
                           if (auto closed = std::move(s->menuClosed_)) {
                             s->menuClosed_ = nullptr;
                             closed();
                           }
                           return G_SOURCE_REMOVE;
                         },
                         self);
                   }),
                   this);
  GtkWindow* anchor = gtk_application_get_active_window(app_);
  if (!anchor) {
    GList* windows = gtk_application_get_windows(app_);
    anchor = windows ? GTK_WINDOW(windows->data) : nullptr;
  }
  GdkWindow* window = anchor ? gtk_widget_get_window(GTK_WIDGET(anchor)) : nullptr;
  if (!window) return;
  gtk_menu_attach_to_widget(GTK_MENU(menu_), GTK_WIDGET(anchor), nullptr);
  // The page asks for the menu from a script message, with no event GTK could place the menu
  // by: it opens where the pointer is over the panel window.
  GdkRectangle at{0, 0, 1, 1};
  GdkSeat* seat = gdk_display_get_default_seat(gdk_window_get_display(window));
  if (GdkDevice* pointer = seat ? gdk_seat_get_pointer(seat) : nullptr)
    gdk_window_get_device_position(window, pointer, &at.x, &at.y, nullptr);
  gtk_menu_popup_at_rect(GTK_MENU(menu_), window, &at, GDK_GRAVITY_NORTH_WEST,
                         GDK_GRAVITY_NORTH_WEST, nullptr);
}

void LinuxDesktop::quit() {
  g_application_quit(G_APPLICATION(app_));
}

bool LinuxDesktop::prefersDark() const {
  if (colorScheme_ == 1) return true;
  if (colorScheme_ == 2) return false;
  GtkSettings* settings = gtk_settings_get_default();
  if (!settings) return false;
  gboolean preferDark = FALSE;
  char* theme = nullptr;
  g_object_get(settings, "gtk-application-prefer-dark-theme", &preferDark, "gtk-theme-name", &theme,
               nullptr);
  bool dark = preferDark;
  if (theme) {
    size_t n = std::strlen(theme);
    dark = dark || (n >= 5 && (g_ascii_strcasecmp(theme + n - 5, "-dark") == 0 ||
                               g_ascii_strcasecmp(theme + n - 5, ":dark") == 0));
    g_free(theme);
  }
  return dark;
}

void LinuxDesktop::themeChanged() {
  if (onThemeChanged) onThemeChanged();
}

void LinuxDesktop::onSettingsNotify(GObject*, GParamSpec*, gpointer self) {
  static_cast<LinuxDesktop*>(self)->themeChanged();
}

// The desktop portal's appearance setting: read once, then followed through SettingChanged.
// Without a portal (or a session bus) the GTK settings alone decide.
void LinuxDesktop::watchPortal() {
  bus_ = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, nullptr);
  if (!bus_) return;
  portalSignal_ = g_dbus_connection_signal_subscribe(
      bus_, kPortal, kSettings, "SettingChanged", kPortalPath, kAppearance,
      G_DBUS_SIGNAL_FLAGS_NONE,
      +[](GDBusConnection*, const char*, const char*, const char*, const char*,
          GVariant* parameters, gpointer data) {
        auto* self = static_cast<LinuxDesktop*>(data);
        const char* ns = nullptr;
        const char* key = nullptr;
        GVariant* value = nullptr;
        g_variant_get(parameters, "(&s&sv)", &ns, &key, &value);
        if (key && std::strcmp(key, "color-scheme") == 0) {
          self->colorScheme_ = colorSchemeOf(value);
          self->themeChanged();
        }
        if (value) g_variant_unref(value);
      },
      this, nullptr);
  cancellable_ = g_cancellable_new();
  g_dbus_connection_call(
      bus_, kPortal, kPortalPath, kSettings, "Read",
      g_variant_new("(ss)", kAppearance, "color-scheme"), G_VARIANT_TYPE("(v)"),
      G_DBUS_CALL_FLAGS_NO_AUTO_START, 2000, cancellable_,
      +[](GObject* source, GAsyncResult* result, gpointer data) {
        GVariant* reply = g_dbus_connection_call_finish(G_DBUS_CONNECTION(source), result, nullptr);
        if (!reply) return;  // no portal, or cancelled (then `data` is gone: not touched)
        auto* self = static_cast<LinuxDesktop*>(data);
        GVariant* value = nullptr;
        g_variant_get(reply, "(v)", &value);
        int scheme = colorSchemeOf(value);
        g_variant_unref(value);
        g_variant_unref(reply);
        if (scheme != self->colorScheme_) {
          self->colorScheme_ = scheme;
          self->themeChanged();
        }
      },
      this);
}
