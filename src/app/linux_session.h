#pragma once
// Which kind of desktop session Vantler runs in, chosen by what the compositor offers rather
// than by the desktop's name.

#include <gtk/gtk.h>

#include <string>

namespace LinuxSession {

enum class Kind {
  X11,         // an X server (also XWayland on GNOME): keep-above window, input shape
  LayerShell,  // a Wayland compositor with the layer-shell protocol: an overlay surface
  Wayland,     // Wayland without layer-shell and without XWayland: an ordinary window
};

// Before GTK starts: on a Wayland display without the layer-shell protocol (GNOME) GTK is
// pointed at XWayland, where keep-above, placement and input shapes work. Returns what it
// decided, for the diagnostics.
std::string chooseBackend();

// After GTK started.
Kind kind();
const char* name(Kind kind);

// True when some display is reachable at all.
bool haveDisplay();

// An undecorated top-level window of the app with an RGBA visual (when the screen has one),
// painted by its content only, so what the page leaves transparent is transparent.
GtkWidget* transparentWindow(GtkApplication* app, const char* title);

}  // namespace LinuxSession
