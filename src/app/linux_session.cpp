#include "app/linux_session.h"

#include <gdk/gdk.h>
#include <gdk/gdkx.h>
#include <gtk-layer-shell.h>
#include <wayland-client.h>

#include <cstdlib>
#include <cstring>

namespace LinuxSession {
namespace {

bool set(const char* name) {
  const char* v = std::getenv(name);
  return v && *v;
}

// Asks the compositor for its globals and looks for the layer-shell protocol. One round trip.
bool compositorHasLayerShell() {
  wl_display* display = wl_display_connect(nullptr);
  if (!display) return false;
  bool found = false;
  wl_registry* registry = wl_display_get_registry(display);
  static const wl_registry_listener listener = {
      [](void* data, wl_registry*, uint32_t, const char* interface, uint32_t) {
        if (std::strcmp(interface, "zwlr_layer_shell_v1") == 0) *static_cast<bool*>(data) = true;
      },
      [](void*, wl_registry*, uint32_t) {},
  };
  wl_registry_add_listener(registry, &listener, &found);
  wl_display_roundtrip(display);
  wl_registry_destroy(registry);
  wl_display_disconnect(display);
  return found;
}

}  // namespace

bool haveDisplay() {
  return set("DISPLAY") || set("WAYLAND_DISPLAY");
}

std::string chooseBackend() {
  if (set("GDK_BACKEND")) return std::string("backend: GDK_BACKEND=") + std::getenv("GDK_BACKEND");
  if (!set("WAYLAND_DISPLAY")) return "backend: x11";
  if (compositorHasLayerShell()) return "backend: wayland (layer-shell offered)";
  if (!set("DISPLAY")) return "backend: wayland (no layer-shell, no XWayland)";
  // The variable is inherited by the page's web process too.
  g_setenv("GDK_BACKEND", "x11", TRUE);
  return "backend: x11 through XWayland (the compositor offers no layer-shell)";
}

Kind kind() {
  GdkDisplay* display = gdk_display_get_default();
  if (display && GDK_IS_X11_DISPLAY(display)) return Kind::X11;
  if (gtk_layer_is_supported()) return Kind::LayerShell;
  return Kind::Wayland;
}

GtkWidget* transparentWindow(GtkApplication* app, const char* title) {
  GtkWidget* window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
  gtk_window_set_application(GTK_WINDOW(window), app);
  gtk_window_set_title(GTK_WINDOW(window), title);
  gtk_window_set_decorated(GTK_WINDOW(window), FALSE);
  gtk_widget_set_app_paintable(window, TRUE);
  if (GdkVisual* rgba = gdk_screen_get_rgba_visual(gtk_widget_get_screen(window)))
    gtk_widget_set_visual(window, rgba);
  return window;
}

const char* name(Kind kind) {
  switch (kind) {
    case Kind::X11:
      return "x11";
    case Kind::LayerShell:
      return "wayland, layer-shell";
    case Kind::Wayland:
      return "wayland";
  }
  return "";
}

}  // namespace LinuxSession
