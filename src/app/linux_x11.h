#pragma once
// The window-manager properties GDK does not cover (EWMH on X11). Kept apart because Xlib's
// own names (Screen, Window) clash with the panel's.

#include <gdk/gdk.h>

#include <optional>
#include <string>
#include <vector>

namespace X11 {

struct Box {
  int x = 0, y = 0, w = 0, h = 0;
};

bool isX11(GdkDisplay* display);
// The focused top-level window (_NET_ACTIVE_WINDOW), 0 when none or not on X11.
unsigned long activeWindow(GdkDisplay* display);
// The active window's frame in device pixels when it is in full-screen state.
std::optional<Box> fullscreenActiveWindow(GdkDisplay* display);
// The X input focus is on this window or a child of it. A key grab reports focus-out to the
// focused window although the focus stays where it was.
bool focusWithin(GdkDisplay* display, unsigned long window);
// Asks the window manager to focus the window, as a pager would.
void activate(GdkDisplay* display, unsigned long window);
unsigned long xid(GdkWindow* window);

// On its own connection to $DISPLAY, without GDK: activates the managed window whose
// _NET_WM_PID is the first of `pids` to own one. Returns the window, or 0 with `why` set.
unsigned long raiseProcess(const std::vector<long>& pids, std::string& why);

}  // namespace X11
