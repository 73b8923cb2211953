#include "app/linux_x11.h"

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <gdk/gdkx.h>

#include <algorithm>
#include <vector>

namespace X11 {
namespace {

// One property of a window as a list of longs (XIDs or atoms); empty when missing.
std::vector<unsigned long> property(Display* d, Window w, const char* name, Atom type,
                                    long length = 64) {
  std::vector<unsigned long> values;
  Atom actual = 0;
  int format = 0;
  unsigned long count = 0, after = 0;
  unsigned char* data = nullptr;
  if (XGetWindowProperty(d, w, XInternAtom(d, name, False), 0, length, False, type, &actual,
                         &format, &count, &after, &data) == Success &&
      data && format == 32) {
    auto* longs = reinterpret_cast<unsigned long*>(data);
    values.assign(longs, longs + count);
  }
  if (data) XFree(data);
  return values;
}

}  // namespace

bool isX11(GdkDisplay* display) {
  return display && GDK_IS_X11_DISPLAY(display);
}

unsigned long xid(GdkWindow* window) {
  return window && GDK_IS_X11_WINDOW(window) ? GDK_WINDOW_XID(window) : 0;
}

bool focusWithin(GdkDisplay* display, unsigned long window) {
  if (!isX11(display) || !window) return false;
  Display* d = GDK_DISPLAY_XDISPLAY(display);
  Window focus = 0, root = 0, parent = 0, *children = nullptr;
  int revert = 0;
  unsigned count = 0;
  XGetInputFocus(d, &focus, &revert);
  if (focus == window) return true;
  if (focus == None || focus == PointerRoot) return false;
  gdk_x11_display_error_trap_push(display);
  bool child = XQueryTree(d, focus, &root, &parent, &children, &count) && parent == window;
  if (children) XFree(children);
  gdk_x11_display_error_trap_pop_ignored(display);
  return child;
}

unsigned long activeWindow(GdkDisplay* display) {
  if (!isX11(display)) return 0;
  Display* d = GDK_DISPLAY_XDISPLAY(display);
  gdk_x11_display_error_trap_push(display);
  auto active = property(d, DefaultRootWindow(d), "_NET_ACTIVE_WINDOW", XA_WINDOW);
  gdk_x11_display_error_trap_pop_ignored(display);
  return active.empty() ? 0 : active[0];
}

std::optional<Box> fullscreenActiveWindow(GdkDisplay* display) {
  unsigned long w = activeWindow(display);
  if (!w) return std::nullopt;
  Display* d = GDK_DISPLAY_XDISPLAY(display);
  std::optional<Box> box;
  gdk_x11_display_error_trap_push(display);
  Atom full = XInternAtom(d, "_NET_WM_STATE_FULLSCREEN", False);
  auto state = property(d, w, "_NET_WM_STATE", XA_ATOM);
  if (std::find(state.begin(), state.end(), full) != state.end()) {
    XWindowAttributes attrs;
    Window child;
    int x = 0, y = 0;
    if (XGetWindowAttributes(d, w, &attrs) &&
        XTranslateCoordinates(d, w, DefaultRootWindow(d), 0, 0, &x, &y, &child))
      box = Box{x, y, attrs.width, attrs.height};
  }
  gdk_x11_display_error_trap_pop_ignored(display);
  return box;
}

namespace {

void sendActive(Display* d, Window window) {
  XEvent e{};
  e.xclient.type = ClientMessage;
  e.xclient.window = window;
  e.xclient.message_type = XInternAtom(d, "_NET_ACTIVE_WINDOW", False);
  e.xclient.format = 32;
  e.xclient.data.l[0] = 2;  // source: a pager, which window managers obey
  e.xclient.data.l[1] = CurrentTime;
  XSendEvent(d, DefaultRootWindow(d), False, SubstructureRedirectMask | SubstructureNotifyMask, &e);
}

}  // namespace

void activate(GdkDisplay* display, unsigned long window) {
  if (!isX11(display) || !window) return;
  Display* d = GDK_DISPLAY_XDISPLAY(display);
  gdk_x11_display_error_trap_push(display);
  sendActive(d, window);
  XFlush(d);
  gdk_x11_display_error_trap_pop_ignored(display);
}

unsigned long raiseProcess(const std::vector<long>& pids, std::string& why) {
  Display* d = XOpenDisplay(nullptr);
  if (!d) {
    why = "cannot open the X display";
    return 0;
  }
  // A window that goes away while it is looked at is simply skipped.
  XSetErrorHandler([](Display*, XErrorEvent*) { return 0; });
  Window root = DefaultRootWindow(d);
  Window best = 0;
  size_t rank = pids.size();
  // More windows than anyone keeps open are not looked at.
  std::vector<unsigned long> clients = property(d, root, "_NET_CLIENT_LIST", XA_WINDOW, 4096);
  for (unsigned long w : clients) {
    auto pid = property(d, w, "_NET_WM_PID", XA_CARDINAL);
    if (pid.empty()) continue;
    auto at = std::find(pids.begin(), pids.end(), static_cast<long>(pid[0]));
    if (at != pids.end() && static_cast<size_t>(at - pids.begin()) < rank) {
      rank = static_cast<size_t>(at - pids.begin());
      best = w;
    }
  }
  if (best) {
    sendActive(d, best);
    XSync(d, False);
  } else {
    why = clients.empty() ? "the window manager lists no windows (_NET_CLIENT_LIST)"
                          : "no window of these processes (_NET_WM_PID)";
  }
  XCloseDisplay(d);
  return best;
}

}  // namespace X11
